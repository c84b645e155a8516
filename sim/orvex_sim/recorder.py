"""A recording double of the host: scripted answers, recorded dispatches."""
import collections

Dispatched = collections.namedtuple("Dispatched", "route wrapper params")


class UnscriptedWrapper(AssertionError):
    pass


def parser(value, **extra):
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

    def __init__(self, tool="storcli64"):
        self.tool = tool
        self.tool_reads = 0
        self.calls = []
        self._answers = {}

    def get_raid_tool(self):
        self.tool_reads += 1
        if isinstance(self.tool, BaseException):
            raise self.tool
        return self.tool

    def on(self, wrapper, *answers):
        self._answers[wrapper] = collections.deque(answers)
        return self

    def dispatch(self, route, wrapper, params=None):
        self.calls.append(Dispatched(route, wrapper, None if params is None else dict(params)))
        queue = self._answers.get(wrapper)
        if not queue:
            raise UnscriptedWrapper("unscripted wrapper: %s" % wrapper)
        answer = queue.popleft() if len(queue) > 1 else queue[0]
        if callable(answer) and not isinstance(answer, (dict, list, tuple)):
            answer = answer(params)
        if isinstance(answer, BaseException):
            raise answer
        if isinstance(answer, (list, tuple)):
            return answer
        return [answer]

    # conveniences for assertions
    @property
    def wrappers(self):
        return [c.wrapper for c in self.calls]

    def sent(self):
        """The calls as (route, wrapper, params items in order)."""
        return [(c.route, c.wrapper, None if c.params is None else list(c.params.items()))
                for c in self.calls]

    def last(self):
        return self.calls[-1]
