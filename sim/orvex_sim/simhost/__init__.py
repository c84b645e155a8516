"""A simulated host for developing and running test scripts offline.

`SimulatedHost(tool)` stands in for a server whose RAID controller is managed
by `tool` (`storcli64`, `arcconf` or `sorbctl`; a `storcli64` host also
answers the `storelibtest` PHY wrappers).  It is a backend of the framework
stand-in: `Raid()` built while it is active dispatches every command wrapper
to it, and it answers in that tool's own parsed-output shape.

Selecting it::

    from orvex.api.hostos.raid.raid import Raid     # with sim/ on sys.path
    raid = Raid()          # storcli64, or the tool named by ORVEX_RAID_TOOL

    import orvex_sim
    from orvex_sim.simhost import SimulatedHost
    host = SimulatedHost("arcconf")
    orvex_sim.use(host)    # Raid objects built from now on talk to `host`
    raid = Raid()

The host: one controller with eight drives behind an expander backplane
(slots 0-3 SAS HDD 1.2 TB, 4-5 SAS SSD 960 GB, 6-7 SATA HDD 4 TB; enclosure
252 under storcli64, channel 0 under arcconf, enclosure 65 under sorbctl),
no virtual drives, patrol read in auto mode, consistency check off,
supercapacitor optimal.  Drives in `drives` lists may be written "e:s",
"e,s", "e s" or as a bare slot number.

Setters change the model and answer the tool's success text when the
request is valid, and the tool's failure text otherwise (RAID 1 of one
drive, a drive that does not exist, deleting a missing virtual drive, ...);
a refused request changes nothing.  A query naming something that does not
exist raises `CommandFailed`, as the framework does for a tool that exits
with an error.  A wrapper the host does not know raises `UnknownWrapper`
naming it.

Time: background tasks (initialisation, background initialisation,
consistency check, rebuild, copyback, erase, sanitize, patrol read,
expansion, migration) advance with simulated time.  Every dispatch moves
the clock by `step` seconds (1 by default); `advance(seconds)` moves it
explicitly.  At the default rate a rebuild takes 80 s, a consistency check
90 s, a background initialisation 120 s, a patrol read 100 s per drive.

Test helpers: `fail_drive(eid, sid)` pulls a drive (a hot spare takes over
and rebuilds when one fits and auto rebuild is on), `add_foreign_config(sid)`
marks a drive as carrying a foreign configuration, `calls` lists every
dispatch as (route, wrapper, params copy), `files` is the host's small file
system (logs, pass-through data), `model` the controller itself.
"""
import datetime
import importlib

from orvex_sim.recorder import Dispatched
from orvex_sim.simhost.common import HostCommands
from orvex_sim.simhost.model import Controller, NotFound, Refused, default_drives


class UnknownWrapper(LookupError):
    """The simulated host has no wrapper of that name."""


class CommandFailed(RuntimeError):
    """The tool ran and failed (a query of something that does not exist)."""


TOOLS = ("storcli64", "arcconf", "sorbctl")
START = datetime.datetime(2024, 5, 20, 9, 30, 0)


class SimulatedHost:
    """A host with one RAID controller managed by `tool`; see the module."""

    def __init__(self, tool="storcli64", step=1.0, start=START):
        if tool not in TOOLS:
            raise ValueError("no simulated controller for tool %r (choose one of %s)"
                             % (tool, ", ".join(TOOLS)))
        self.tool = tool
        self.step = float(step)
        self.clock = start
        self.calls = []
        self.files = {}
        self.model = Controller(tool, lambda: self.clock)
        self.model.drives = default_drives(tool)
        view = importlib.import_module("orvex_sim.simhost." + tool)
        self._view = getattr(view, tool.capitalize())(self)
        self._common = HostCommands(self)

    # -- backend interface ------------------------------------------------------
    def get_raid_tool(self):
        return self.tool

    def dispatch(self, route, wrapper, params=None):
        self.calls.append(Dispatched(route, wrapper, None if params is None else dict(params)))
        handler = self._handler(wrapper)
        self.advance(self.step)
        p = dict(params or {})
        try:
            answer = handler(p)
        except Refused as why:
            answer = self._view.failure(str(why))
        except ValueError as why:       # a number or time the tool cannot read
            answer = self._view.failure("invalid value: %s" % why)
        except NotFound as why:
            raise CommandFailed("%s: %s" % (wrapper, why))
        if isinstance(answer, list) and answer and isinstance(answer[0], dict) \
                and "parser" in answer[0]:
            return answer
        if isinstance(answer, dict) and "parser" in answer and answer.get("_raw"):
            answer = dict(answer)
            del answer["_raw"]
            return [answer]
        return [{"parser": answer}]

    def _handler(self, wrapper):
        for owner in (self._view, self._common):
            if wrapper in owner.WRAPPERS:
                return getattr(owner, wrapper)
        raise UnknownWrapper("the simulated %s host has no wrapper named %r" % (self.tool, wrapper))

    @property
    def wrapper_names(self):
        return sorted(set(self._view.WRAPPERS) | set(self._common.WRAPPERS))

    # -- simulation controls -------------------------------------------------------
    def advance(self, seconds):
        """Moves the host clock and every running task on by `seconds`."""
        remaining = float(seconds)
        while remaining > 0:
            dt = min(remaining, 1.0)
            self.clock += datetime.timedelta(seconds=dt)
            self.model.tick(dt)
            remaining -= dt

    def fail_drive(self, eid, sid):
        """Pulls drive (eid, sid) as if it had died."""
        self.model.fail_drive(self.model.drive(eid, sid))

    def add_foreign_config(self, sid):
        """Drive in slot `sid` arrives with a foreign configuration."""
        drive = self.model.find_drive(str(sid))
        if drive.state != "ugood":
            raise Refused("drive %s is in use" % drive.address)
        drive.foreign = True
        self.model.foreign_groups += 1

    @property
    def wrappers(self):
        return [c.wrapper for c in self.calls]
