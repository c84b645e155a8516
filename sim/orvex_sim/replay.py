"""Record a script's wrapper calls on a real host, replay them without one.

On the lab machine (real framework, real controller)::

    from orvex_sim.replay import record   # or this file alone, copied: `from replay import record`
    raid = Raid()
    with record(raid, "run.json"):       # the script, unchanged
        raid.create_virtual_drive(raid_level="1", drives=["252:4", "252:5"], pd_per_array="")

In CI (the framework stand-in of this tree, no hardware)::

    import orvex_sim
    from orvex_sim.replay import ReplayHost
    orvex_sim.use(ReplayHost("run.json"))
    raid = Raid()                         # the same script answers from run.json

Recording needs nothing but this file and the standard library: it replaces the
`dispatch` of the object, of its `host` and (when it can) of its
`dispatcher` by recording wrappers and puts the originals back on leaving.
Calls made while a recorded call runs (a framework `dispatch` that goes
through `host.dispatch`) belong to that call and are not recorded again.

The file is JSON: the tool kind, then one record a line, in call order::

    {"tool": "storcli64",
     "calls": [
    {"route": "self", "wrapper": "...", "params": {...}, "answer": [...]},
    {"route": "host", "wrapper": "...", "params": null, "raise": {"type": "mod.Name",
     "message": "...", "args": [...]}}
    ]}

Params are copied before the call and the answer as it came back, before
the module touches it.  Values JSON lacks are written as tagged objects: a
tuple as {"$tuple": [...]}, bytes as {"$bytes": "<base64>"}, a dict with a
key that is not a string or starts with "$" as {"$dict": [[key, value],
...]}; anything else as {"$repr": "...", "$type": "mod.Name"}, which the
replay refuses to answer with (it names the wrapper).

`ReplayHost(path)` answers the calls in the order they were recorded: each
call must name the wrapper, route and params of the next recorded call, or
it raises `ReplayError` naming the recorded call and the one made; a call
after the last recorded one raises `MissingCall`.  `ReplayHost(path,
strict=False)`, the lenient replay, answers each wrapper with its own
recorded answers in order, whatever the route and params; a wrapper the
recording lacks, or one call of a wrapper more than it holds, raises
`MissingCall` naming the wrapper and the params.

A recorded exception is raised again as its own class when that class can
be imported (the framework's `OrvexException`, the simulated host's
`CommandFailed`, built-in errors), built from the recorded args; else as a
subclass of `RecordedError` named after it, carrying the recorded type name
and message.
"""
from __future__ import annotations

import base64
import collections
import importlib
import json
from typing import Any, Callable, Deque, Dict, List, Optional, Type

ROUTES = ("self", "host", "dispatcher")


class ReplayError(AssertionError):
    """The recording cannot answer a call."""


class MissingCall(ReplayError, LookupError):
    """A call the recording does not hold."""


class RecordedError(Exception):
    """A recorded exception whose class cannot be imported here; the replay
    raises a subclass named after that class."""

    def __init__(self, type_name: str, message: str) -> None:
        super().__init__("%s: %s" % (type_name, message))
        self.type_name = type_name
        self.message = message


# -- values ---------------------------------------------------------------------
def _qualname(cls: type) -> str:
    return "%s.%s" % (cls.__module__, cls.__qualname__)


def encode(value: Any) -> Any:
    """A JSON-ready copy of `value` (see the module for the tagged forms)."""
    if value is None or isinstance(value, (bool, int, float, str)):
        return value
    if isinstance(value, list):
        return [encode(v) for v in value]
    if isinstance(value, tuple):
        return {"$tuple": [encode(v) for v in value]}
    if isinstance(value, dict):
        if all(isinstance(k, str) and not k.startswith("$") for k in value):
            return {k: encode(v) for k, v in value.items()}
        return {"$dict": [[encode(k), encode(v)] for k, v in value.items()]}
    if isinstance(value, (bytes, bytearray)):
        return {"$bytes": base64.b64encode(bytes(value)).decode("ascii")}
    return {"$repr": repr(value), "$type": _qualname(type(value))}


def decode(data: Any) -> Any:
    """The value `encode` wrote; ValueError for a value it could only describe."""
    if isinstance(data, list):
        return [decode(v) for v in data]
    if not isinstance(data, dict):
        return data
    if len(data) == 1:
        (tag, inner), = data.items()
        if tag == "$tuple":
            return tuple(decode(v) for v in inner)
        if tag == "$dict":
            return {decode(k): decode(v) for k, v in inner}
        if tag == "$bytes":
            return base64.b64decode(inner)
    if "$repr" in data:
        raise ValueError("a %s value was recorded only as %s" % (data["$type"], data["$repr"]))
    return {k: decode(v) for k, v in data.items()}


# -- recording ------------------------------------------------------------------
class Recorder:
    """Records every wrapper call of `raid` while active; writes `path` on leaving."""

    def __init__(self, raid: Any, path: str) -> None:
        self.raid = raid
        self.path = path
        self.tool: Optional[str] = None
        self.records: List[Dict[str, Any]] = []
        self._patched: List[Any] = []
        self._depth = 0

    def __enter__(self) -> Recorder:
        self.tool = self.raid.dispatcher.get_raid_tool()
        for route, target in (("self", self.raid), ("host", self.raid.host),
                              ("dispatcher", self.raid.dispatcher)):
            own = vars(target).get("dispatch") if hasattr(target, "__dict__") else None
            try:
                target.dispatch = self._wrap(route, target.dispatch)
            except AttributeError:
                if route != "dispatcher":
                    raise
                continue
            self._patched.append((target, own))
        return self

    def __exit__(self, *exc: object) -> None:
        for target, own in reversed(self._patched):
            if own is None:
                del target.dispatch
            else:
                target.dispatch = own
        self._patched = []
        self.write()

    def _wrap(self, route: str, original: Callable[..., Any]) -> Callable[..., Any]:
        absent = object()

        def dispatch(name: str, params: Any = absent, *args: Any, **kwargs: Any) -> Any:
            call = () if params is absent else (params,)
            if self._depth:
                return original(name, *call, *args, **kwargs)
            record: Dict[str, Any] = {"route": route, "wrapper": name,
                                      "params": None if params is absent else encode(params)}
            self.records.append(record)
            self._depth += 1
            try:
                answer = original(name, *call, *args, **kwargs)
            except BaseException as error:
                record["raise"] = {"type": _qualname(type(error)), "message": str(error),
                                   "args": encode(list(error.args))}
                raise
            finally:
                self._depth -= 1
            record["answer"] = encode(answer)
            return answer

        return dispatch

    def write(self) -> None:
        lines = [json.dumps(r, ensure_ascii=False) for r in self.records]
        with open(self.path, "w", encoding="utf-8") as out:
            out.write('{"tool": %s,\n "calls": [\n%s\n]}\n'
                      % (json.dumps(self.tool), ",\n".join(lines)))


def record(raid: Any, path: str) -> Recorder:
    """`with record(raid, path):` records the wrapper calls of `raid` into `path`."""
    return Recorder(raid, path)


# -- replay ---------------------------------------------------------------------
class ReplayHost:
    """A backend of the framework stand-in answering from a recording: the
    recorded calls in order (`strict`, the default), or each wrapper's own
    recorded calls in order, whatever the route and params (`strict=False`)."""

    def __init__(self, path: str, strict: bool = True) -> None:
        with open(path, encoding="utf-8") as source:
            data = json.load(source)
        self.tool: str = data["tool"]
        self.strict = strict
        self.calls: List[Any] = []
        self._records: List[Dict[str, Any]] = data["calls"]
        self._next = 0
        self._queues: Dict[str, Deque[Dict[str, Any]]] = collections.defaultdict(
            collections.deque)
        for rec in self._records:
            self._queues[rec["wrapper"]].append(rec)
        self._recorded = {w: len(q) for w, q in self._queues.items()}

    def get_raid_tool(self) -> str:
        return self.tool

    def dispatch(self, route: str, wrapper: str,
                 params: Optional[Dict[str, Any]] = None) -> Any:
        from orvex_sim.recorder import call_of  # recording needs nothing of this tree

        call = call_of(route, wrapper, params)
        self.calls.append(call)
        try:
            call.answer = self._answer(route, wrapper, call.params)
        except BaseException as error:
            call.error = error
            raise
        return call.answer

    def _answer(self, route: str, wrapper: str, given: Optional[Dict[str, Any]]) -> Any:
        rec = self._in_order(route, wrapper, given) if self.strict \
            else self._by_wrapper(wrapper, given)
        if "raise" in rec:
            raise rebuilt(rec["raise"])
        try:
            return decode(rec["answer"])
        except ValueError as why:
            raise ReplayError("cannot answer %r: %s" % (wrapper, why)) from None

    def _in_order(self, route: str, wrapper: str,
                  given: Optional[Dict[str, Any]]) -> Dict[str, Any]:
        if self._next >= len(self._records):
            raise MissingCall("the recording holds %d call%s, all answered; none left for %s"
                              % (len(self._records), "" if len(self._records) == 1 else "s",
                                 _described(route, wrapper, given)))
        rec = self._records[self._next]
        if (rec["wrapper"], rec["route"], rec["params"]) != (wrapper, route, encode(given)):
            try:
                recorded = _described(rec["route"], rec["wrapper"], decode(rec["params"]))
            except ValueError:
                recorded = _described(rec["route"], rec["wrapper"], rec["params"])
            raise ReplayError("call %d differs from the recording: recorded %s, called %s"
                              % (self._next + 1, recorded, _described(route, wrapper, given)))
        self._next += 1
        return rec

    def _by_wrapper(self, wrapper: str, given: Optional[Dict[str, Any]]) -> Dict[str, Any]:
        queue = self._queues.get(wrapper)
        if not queue:
            held = self._recorded.get(wrapper, 0)
            raise MissingCall("the recording holds %d call%s of %r; none left for params %r"
                              % (held, "" if held == 1 else "s", wrapper, given))
        return queue.popleft()


def _described(route: str, wrapper: str, params: Any) -> str:
    return "%r on route %r with params %r" % (wrapper, route, params)


_SYNTHESIZED: Dict[str, Type[RecordedError]] = {}


def rebuilt(error: Dict[str, Any]) -> BaseException:
    """The exception a record holds: its own class when that can be
    imported and built from the recorded args, else a `RecordedError`
    subclass named after it."""
    type_name = error["type"]
    cls = _importable(type_name)
    if cls is not None:
        try:
            return cls(*decode(error["args"]))
        except Exception:
            pass
    synthesized = _SYNTHESIZED.get(type_name)
    if synthesized is None:
        synthesized = type(type_name.rpartition(".")[2], (RecordedError,), {
            "__doc__": "Stands in for the recorded %s, which cannot be imported here."
                       % type_name})
        _SYNTHESIZED[type_name] = synthesized
    return synthesized(type_name, error["message"])


def _importable(type_name: str) -> Optional[Type[BaseException]]:
    """The exception class `type_name` ("module.Qual.Name") names, when it
    can be imported; None otherwise."""
    if "<locals>" in type_name:
        return None
    parts = type_name.split(".")
    for cut in range(len(parts) - 1, 0, -1):
        try:
            found: Any = importlib.import_module(".".join(parts[:cut]))
        except Exception:
            continue
        for part in parts[cut:]:
            found = getattr(found, part, None)
        if isinstance(found, type) and issubclass(found, BaseException):
            return found
        return None
    return None
