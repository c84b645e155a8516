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

`ReplayHost(path)` answers each wrapper with its recorded answers in order,
whatever the route and params (`strict=True` also requires the same route
and params, call by call).  A wrapper the recording lacks, or one call of a
wrapper more than it holds, raises `MissingCall` naming the wrapper and the
params.  A recorded exception is raised again: as its own class when that is
loaded (the framework's `OrvexException`, the simulated host's
`CommandFailed`, built-in errors), else as `RecordedError` carrying the
recorded type name and message.
"""
import base64
import collections
import json
import sys

ROUTES = ("self", "host", "dispatcher")


class ReplayError(AssertionError):
    """The recording cannot answer a call."""


class MissingCall(ReplayError, LookupError):
    """A call the recording does not hold."""


class RecordedError(Exception):
    """A recorded exception whose class is not loaded here."""

    def __init__(self, type_name, message):
        super().__init__("%s: %s" % (type_name, message))
        self.type_name = type_name
        self.message = message


# -- values ---------------------------------------------------------------------
def _qualname(cls):
    return "%s.%s" % (cls.__module__, cls.__qualname__)


def encode(value):
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


def decode(data):
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

    def __init__(self, raid, path):
        self.raid = raid
        self.path = path
        self.tool = None
        self.records = []
        self._patched = []
        self._depth = 0

    def __enter__(self):
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

    def __exit__(self, *exc):
        for target, own in reversed(self._patched):
            if own is None:
                del target.dispatch
            else:
                target.dispatch = own
        self._patched = []
        self.write()
        return False

    def _wrap(self, route, original):
        absent = object()

        def dispatch(name, params=absent, *args, **kwargs):
            call = () if params is absent else (params,)
            if self._depth:
                return original(name, *call, *args, **kwargs)
            record = {"route": route, "wrapper": name,
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

    def write(self):
        lines = [json.dumps(r, ensure_ascii=False) for r in self.records]
        with open(self.path, "w", encoding="utf-8") as out:
            out.write('{"tool": %s,\n "calls": [\n%s\n]}\n'
                      % (json.dumps(self.tool), ",\n".join(lines)))


def record(raid, path):
    """`with record(raid, path):` records the wrapper calls of `raid` into `path`."""
    return Recorder(raid, path)


# -- replay ---------------------------------------------------------------------
class ReplayHost:
    """A backend of the framework stand-in answering from a recording."""

    def __init__(self, path, strict=False):
        from orvex_sim.recorder import Dispatched  # recording needs nothing of this tree

        self._entry = Dispatched
        with open(path, encoding="utf-8") as source:
            data = json.load(source)
        self.tool = data["tool"]
        self.strict = strict
        self.calls = []
        self._queues = collections.defaultdict(collections.deque)
        for rec in data["calls"]:
            self._queues[rec["wrapper"]].append(rec)
        self._recorded = {w: len(q) for w, q in self._queues.items()}

    def get_raid_tool(self):
        return self.tool

    def dispatch(self, route, wrapper, params=None):
        given = None if params is None else dict(params)
        self.calls.append(self._entry(route, wrapper, given))
        queue = self._queues.get(wrapper)
        if not queue:
            held = self._recorded.get(wrapper, 0)
            raise MissingCall("the recording holds %d call%s of %r; none left for params %r"
                              % (held, "" if held == 1 else "s", wrapper, given))
        rec = queue.popleft()
        if self.strict and (rec["route"], rec["params"]) != (route, encode(given)):
            raise ReplayError("%r was recorded on route %r with params %r, called on %r with %r"
                              % (wrapper, rec["route"], decode(rec["params"]), route, given))
        if "raise" in rec:
            raise _rebuilt(rec["raise"])
        try:
            return decode(rec["answer"])
        except ValueError as why:
            raise ReplayError("cannot answer %r: %s" % (wrapper, why)) from None


def _rebuilt(error):
    module, _, name = error["type"].rpartition(".")
    cls = sys.modules.get(module)
    for part in name.split("."):
        cls = getattr(cls, part, None)
    if isinstance(cls, type) and issubclass(cls, BaseException):
        try:
            return cls(*decode(error["args"]))
        except Exception:
            pass
    return RecordedError(error["type"], error["message"])
