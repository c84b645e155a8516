"""A recording double of the host: scripted answers, recorded dispatches."""
from __future__ import annotations

import collections
from typing import Any, Callable, Deque, Dict, List, NamedTuple, Optional, Tuple, Union


class Dispatched(NamedTuple):
    route: str
    wrapper: str
    params: Optional[Dict[str, Any]]


class Call(Dispatched):
    """One dispatch as a host saw it: (route, wrapper, params copy) as a
    tuple, and what it answered (`answer`) or raised (`error`) as
    attributes, which tuple comparison leaves out."""

    answer: Any = None
    error: Optional[BaseException] = None

    @property
    def outcome(self) -> str:
        """What the call came to, as text: the tool's answer (its `parser`
        entry, which holds a refusal's reason) or the error it raised."""
        if self.error is not None:
            return "raised %s: %s" % (type(self.error).__name__, self.error)
        return answer_text(self.answer)


def answer_text(answer: Any, limit: int = 300) -> str:
    """A wrapper answer in a line: the `parser` entry of its first element
    (the tool's text as it stands), else the answer's repr, cut at `limit`."""
    first = answer[0] if isinstance(answer, (list, tuple)) and answer else answer
    value = first.get("parser", first) if isinstance(first, dict) else first
    text = value if isinstance(value, str) else repr(value)
    return text if len(text) <= limit else text[:limit - 3] + "..."


def call_of(route: str, wrapper: str, params: Optional[Dict[str, Any]]) -> Call:
    return Call(route, wrapper, None if params is None else dict(params))


def recorded(calls: List[Call], route: str, wrapper: str, params: Optional[Dict[str, Any]],
             answer: Callable[[str, Optional[Dict[str, Any]]], Any]) -> Call:
    """Appends the call to `calls` and runs `answer(wrapper, params)`,
    keeping what it answered or raised on the call (and raising it again)."""
    call = call_of(route, wrapper, params)
    calls.append(call)
    try:
        call.answer = answer(wrapper, params)
    except BaseException as error:
        call.error = error
        raise
    return call


Answer = Union[Dict[str, Any], List[Any], Tuple[Any, ...], BaseException,
               Callable[[Optional[Dict[str, Any]]], Any]]


class UnscriptedWrapper(AssertionError):
    pass


def parser(value: Any, **extra: Any) -> Dict[str, Any]:
    """A raw wrapper answer whose parser entry is `value`."""
    raw = {"parser": value}
    raw.update(extra)
    return raw


class RecordingHost:
    """Answers per wrapper name and records (route, wrapper, params copy).

    `on(wrapper, *answers)`: each answer is a dict (the raw output, returned
    as `[raw]`), a list or tuple (returned as the whole dispatch result), an
    exception instance (raised) or a callable taking params (its return value
    is treated like an answer).  Several answers are given out in order, the
    last one repeating.
    """

    def __init__(self, tool: Any = "storcli64") -> None:
        self.tool = tool
        self.tool_reads = 0
        self.calls: List[Call] = []
        self._answers: Dict[str, Deque[Answer]] = {}

    def get_raid_tool(self) -> Any:
        self.tool_reads += 1
        if isinstance(self.tool, BaseException):
            raise self.tool
        return self.tool

    def on(self, wrapper: str, *answers: Answer) -> RecordingHost:
        self._answers[wrapper] = collections.deque(answers)
        return self

    def dispatch(self, route: str, wrapper: str,
                 params: Optional[Dict[str, Any]] = None) -> Any:
        return recorded(self.calls, route, wrapper, params, self._answer).answer

    def _answer(self, wrapper: str, params: Optional[Dict[str, Any]]) -> Any:
        queue = self._answers.get(wrapper)
        if not queue:
            raise UnscriptedWrapper("unscripted wrapper: %s" % wrapper)
        answer: Any = queue.popleft() if len(queue) > 1 else queue[0]
        if callable(answer) and not isinstance(answer, (dict, list, tuple)):
            answer = answer(params)
        if isinstance(answer, BaseException):
            raise answer
        if isinstance(answer, (list, tuple)):
            return answer
        return [answer]

    # conveniences for assertions
    @property
    def wrappers(self) -> List[str]:
        return [c.wrapper for c in self.calls]

    def sent(self) -> List[Tuple[str, str, Optional[List[Tuple[str, Any]]]]]:
        """The calls as (route, wrapper, params items in order)."""
        return [(c.route, c.wrapper, None if c.params is None else list(c.params.items()))
                for c in self.calls]

    def last(self) -> Call:
        return self.calls[-1]
