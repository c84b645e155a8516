"""A simulated host for developing and running test scripts offline.

`SimulatedHost(tool)` stands in for a server whose RAID controllers are
managed by `tool` (`storcli64`, `arcconf` or `sorbctl`; a `storcli64` host
also answers the `storelibtest` PHY wrappers).  It is a backend of the
framework stand-in: `Raid()` built while it is active dispatches every
command wrapper to it, and it answers in that tool's own parsed-output shape.

Selecting it::

    from orvex.api.hostos.raid.raid import Raid     # with sim/ on sys.path
    raid = Raid()          # storcli64, or the tool named by ORVEX_RAID_TOOL

    import orvex_sim
    from orvex_sim.simhost import SimulatedHost
    host = SimulatedHost("arcconf")       # or SimulatedHost.from_file("lab.yaml")
    orvex_sim.use(host)    # Raid objects built from now on talk to `host`
    raid = Raid()

The default host: one RAID controller with eight drives behind an expander
backplane (slots 0-3 SAS HDD 1.2 TB, 4-5 SAS SSD 960 GB, 6-7 SATA HDD 4 TB;
enclosure 252 under storcli64, channel 0 under arcconf, enclosure 65 under
sorbctl), no virtual drives, patrol read in auto mode, consistency check off,
supercapacitor optimal.  A host file describes others: several controllers
(`adapter_id` or `adp_id` selects one, the first when absent), HBAs in IT
mode, drives attached directly, NVMe drives, and the tool version whose
spellings the answers use.  Drives in `drives` lists may be written "e:s",
"e,s", "e s" or as a bare slot number.

The controller model (`model.py`) owns every state change and every rule;
a tool's view (`storcli64.py`, ...) holds a table of its wrappers, each
translating the wrapper's parameters into a call of the model and drawing
the tool's answer.  Setters answer the tool's success text when the request
is valid, and the tool's failure text otherwise (RAID 1 of one drive, a
drive that does not exist, deleting a missing virtual drive, ...); a refused
request changes nothing.  A query naming something that does not exist, or
a controller that is gone, raises `CommandFailed`, as the framework does
for a tool that exits with an error.  A name that is not a wrapper of the
tool raises `UnknownWrapper` naming it.  The host is strict unless built
with `strict=False`: a key that none of a wrapper's handlers reads raises
`UnexpectedParams` before anything happens (`reads.py` holds each wrapper's
keys).  Every dispatch is logged to the logger "orvex_sim" at DEBUG with its
params and the tool's answer or the error raised.

Time: background tasks (initialisation, background initialisation,
consistency check, rebuild, copyback, erase, sanitize, patrol read,
expansion, migration) advance with simulated time.  Every dispatch moves
the clock by `step` seconds (1 by default); `advance(seconds)` moves it
explicitly.  At the default rate a rebuild takes 80 s, a consistency check
90 s, a background initialisation 120 s, a patrol read 100 s per drive.

Test helpers: `fail_drive(eid, sid)` pulls a drive (a hot spare takes over
and rebuilds when one fits and auto rebuild is on), `add_foreign_config(sid)`
marks a drive as carrying a foreign configuration, `drive_errors`,
`fail_wrapper`, `raise_wrapper` and `remove_controller` inject faults,
`calls` lists every dispatch as (route, wrapper, params copy), with its
`answer`, `error` and `outcome` (either as text) as attributes, `files` is
the host's small file system (logs, pass-through data), `model` the first
controller and `controllers` all of them.
"""
from __future__ import annotations

import datetime
import importlib
import logging
from typing import Any, Dict, List, Mapping, Optional, Sequence, Tuple, Type

from orvex_sim.recorder import Call, recorded
from orvex_sim.simhost import reads
from orvex_sim.simhost.reads import UndeclaredRead, UnexpectedParams  # noqa: F401
from orvex_sim.simhost.common import HostCommands
from orvex_sim.simhost.model import Controller, NotFound, Refused, default_drives, make_drive


class UnknownWrapper(LookupError):
    """The simulated host has no wrapper of that name."""


class CommandFailed(RuntimeError):
    """The tool ran and failed (a query of something that does not exist, a
    controller that is gone), or could not run at all."""


TOOLS = ("storcli64", "arcconf", "sorbctl")
VERSIONS = ("new", "old")
# The tool version whose output the module reads, when a host names none.
DEFAULT_VERSION = {"storcli64": "new", "arcconf": "old", "sorbctl": "new"}
START = datetime.datetime(2024, 5, 20, 9, 30, 0)
CARD_KEYS = ("model", "pcie", "roc", "write_cache")
# Every dispatch, at DEBUG: wrapper, params, and the answer or the error.
LOG = logging.getLogger("orvex_sim")


class SimulatedHost:
    """A host whose RAID controllers are managed by `tool`; see the module.

    `controllers`: descriptions as in a host file (None: one RAID controller
    with the eight default drives); `version`: "new" or "old" spellings of
    the tool's output (by default the spellings the module reads); `strict`:
    a wrapper given a key none of its handlers reads raises
    `UnexpectedParams` (see `reads`)."""

    def __init__(self, tool: str = "storcli64", step: float = 1.0,
                 start: datetime.datetime = START,
                 controllers: Optional[Sequence[Optional[Mapping[str, Any]]]] = None,
                 version: Optional[str] = None, strict: bool = True) -> None:
        if tool not in TOOLS:
            raise ValueError("no simulated controller for tool %r (choose one of %s)"
                             % (tool, ", ".join(TOOLS)))
        version = version or DEFAULT_VERSION.get(tool)
        if version not in VERSIONS:
            raise ValueError("tool version %r is not one of %s" % (version, ", ".join(VERSIONS)))
        self.tool, self.version = tool, version
        self.step = float(step)
        self.strict = bool(strict)
        self.clock = start
        self.calls: List[Call] = []
        self.files: Dict[str, Any] = {}
        # wrapper -> ("fail", text) or ("raise", exception)
        self.faults: Dict[str, Tuple[str, Any]] = {}
        self.controllers: List[Any] = []
        for index, spec in enumerate(controllers or [None]):
            self.controllers.append(self._controller(index, spec))
        view = importlib.import_module("orvex_sim.simhost." + tool)
        self._view_class: Type[Any] = getattr(view, tool.capitalize())
        self._common = HostCommands(self)

    def _controller(self, index: int, spec: Optional[Mapping[str, Any]]) -> Any:
        spec = dict(spec or {})
        mode = spec.pop("mode", "raid")
        if mode not in ("raid", "hba"):
            raise ValueError("controller mode %r is not raid or hba" % (mode,))
        c = Controller(self.tool, lambda: self.clock, index, hba=mode == "hba")
        c.card = {k: spec.pop(k) for k in CARD_KEYS if k in spec}
        if "drives" in spec or "enclosure" in spec:
            enclosure = spec.pop("enclosure", None)
            c.drives = [make_drive(self.tool, enclosure, adapter=index, **d)
                        for d in spec.pop("drives", [])]
        else:
            c.drives = default_drives(self.tool)
        if spec:
            raise ValueError("unknown controller settings: %s" % ", ".join(sorted(spec)))
        for d in c.drives if c.hba else ():
            d.state = "jbod"
        return c

    @classmethod
    def from_file(cls, path: str, **options: Any) -> SimulatedHost:
        """A host described in a YAML file (see the README): tool, version,
        controllers with their mode, enclosure and drives, and `strict`."""
        import yaml
        with open(path) as stream:
            spec = yaml.safe_load(stream) or {}
        unknown = set(spec) - {"tool", "version", "step", "controllers", "strict"}
        if unknown:
            raise ValueError("%s: unknown host settings: %s" % (path, ", ".join(sorted(unknown))))
        spec.update(options)
        return cls(**spec)

    @property
    def model(self) -> Any:
        """The first controller (the one a wrapper without `adapter_id` reaches)."""
        return self.controllers[0]

    # -- backend interface ------------------------------------------------------
    def get_raid_tool(self) -> str:
        return self.tool

    def dispatch(self, route: str, wrapper: str,
                 params: Optional[Dict[str, Any]] = None) -> Any:
        try:
            return recorded(self.calls, route, wrapper, params, self._answer).answer
        finally:
            call = self.calls[-1]
            LOG.debug("%s %s -> %s", wrapper, call.params, call.outcome)

    def _answer(self, wrapper: str, params: Optional[Dict[str, Any]]) -> Any:
        if wrapper in self._common.WRAPPERS:
            kind, views = "common", self._common
        elif wrapper in self._view_class.WRAPPERS:
            kind, views = self.tool, self._view_class
        else:
            raise UnknownWrapper("the simulated %s host has no wrapper named %r"
                                 % (self.tool, wrapper))
        p: Dict[str, Any] = dict(params or {})
        if self.strict:
            keys = reads.keys_of(kind, wrapper)
            if keys is None:
                raise reads.UndeclaredRead("orvex_sim/simhost/reads.py has no entry for %r"
                                           % wrapper)
            if reads.unexpected(p, keys):
                raise UnexpectedParams(self.tool, wrapper, reads.unexpected(p, keys), keys)
            p = reads.TrackedParams(wrapper, p, keys)
        view = views if kind == "common" else views(self, self._controller_of(wrapper, p))
        self.advance(self.step)
        fault = self.faults.get(wrapper)
        if fault and fault[0] == "raise":
            raise fault[1]
        if fault:
            return [{"parser": view.failure(fault[1])}]
        try:
            answer = view.WRAPPERS[wrapper](view, p)
        except Refused as why:
            answer = view.failure(str(why))
        except ValueError as why:       # a number or time the tool cannot read
            answer = view.failure("invalid value: %s" % why)
        except NotFound as why:
            raise CommandFailed("%s: %s" % (wrapper, why))
        if answer is None:
            answer = view.OK
        if isinstance(answer, list) and answer and isinstance(answer[0], dict) \
                and "parser" in answer[0]:
            return answer
        if isinstance(answer, dict) and "parser" in answer and answer.get("_raw"):
            answer = dict(answer)
            del answer["_raw"]
            return [answer]
        return [{"parser": answer}]

    def _controller_of(self, wrapper: str, p: Mapping[str, Any]) -> Any:
        """The controller named by `adapter_id` (or `adp_id`); the first when none."""
        wanted = p.get("adapter_id", p.get("adp_id"))
        index = 0 if wanted in (None, "") else str(wanted)
        for c in self.controllers:
            if str(c.index) == str(index):
                return c
        raise CommandFailed("%s: controller %s not found" % (wrapper, index))

    @property
    def wrapper_names(self) -> List[str]:
        return sorted(set(self._view_class.WRAPPERS) | set(self._common.WRAPPERS))

    # -- simulation controls -------------------------------------------------------
    def advance(self, seconds: float) -> None:
        """Moves the host clock and every running task on by `seconds`."""
        remaining = float(seconds)
        while remaining > 0:
            dt = min(remaining, 1.0)
            self.clock += datetime.timedelta(seconds=dt)
            for c in self.controllers:
                c.tick(dt)
            remaining -= dt

    def controller(self, adapter: Any = 0) -> Any:
        for c in self.controllers:
            if c.index == int(adapter):
                return c
        raise LookupError("no controller %s" % adapter)

    def fail_drive(self, eid: Any, sid: Any, adapter: Any = 0) -> None:
        """Pulls drive (eid, sid) as if it had died."""
        c = self.controller(adapter)
        c.fail_drive(c.drive(eid, sid))

    def add_foreign_config(self, sid: Any, adapter: Any = 0) -> None:
        """Drive in slot `sid` arrives with a foreign configuration."""
        c = self.controller(adapter)
        drive = c.find_drive(str(sid))
        if drive.state != "ugood":
            raise Refused("drive %s is in use" % drive.address)
        drive.foreign = True
        c.foreign_groups += 1

    # -- faults -----------------------------------------------------------------------
    def drive_errors(self, eid: Any, sid: Any, media: int = 0, predictive: int = 0,
                     adapter: Any = 0) -> None:
        """Drive (eid, sid) reports `media` media errors and `predictive`
        predictive failures (a S.M.A.R.T. alert when there are any)."""
        d = self.controller(adapter).drive(eid, sid)
        d.media_errors, d.predictive = int(media), int(predictive)

    def fail_wrapper(self, wrapper: str, reason: str = "internal error") -> None:
        """`wrapper` runs but the tool answers its failure text with `reason`."""
        self._fault(wrapper, ("fail", reason))

    def raise_wrapper(self, wrapper: str, error: Optional[BaseException] = None) -> None:
        """`wrapper` raises `error` (by default CommandFailed, as the framework
        does when the tool cannot run)."""
        self._fault(wrapper, ("raise", error or CommandFailed(
            "%s: /opt/raid/%s: No such file or directory" % (wrapper, self.tool))))

    def clear_faults(self) -> None:
        self.faults.clear()

    def _fault(self, wrapper: str, fault: Tuple[str, Any]) -> None:
        if wrapper not in self.wrapper_names:
            raise UnknownWrapper("the simulated %s host has no wrapper named %r"
                                 % (self.tool, wrapper))
        self.faults[wrapper] = fault

    def remove_controller(self, adapter: Any) -> None:
        """The controller drops off the bus: it is no longer counted or listed,
        and a wrapper naming it fails as the tool does."""
        self.controllers.remove(self.controller(adapter))

    @property
    def wrappers(self) -> List[str]:
        return [c.wrapper for c in self.calls]
