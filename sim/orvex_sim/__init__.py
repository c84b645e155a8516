"""The stand-in host behind the framework modules of this tree.

A `Raid` object talks to whichever backend is active when it is built:

* `RecordingHost` (tests): answers scripted per wrapper name and records every
  dispatch with its route and a copy of its params;
* `SimulatedHost` (`orvex_sim.simhost`, the default): a stateful host with
  controllers of one tool kind (one RAID controller, or those a host file
  describes), answering every wrapper of that tool in its own parsed-output
  shape, with background tasks that move with simulated time.

Select one with `use(backend)` (also a context manager), for example
`use(SimulatedHost("arcconf"))`.  Without a choice, `current()` builds a
`SimulatedHost` from the host file named by the environment variable
ORVEX_RAID_HOST, else for the tool named by ORVEX_RAID_TOOL (storcli64 when
unset), and keeps it for later `Raid` objects.  A `Raid` object talks to the backend that was active when it was
built.
"""
from __future__ import annotations

import os
from typing import Any, Optional

from orvex_sim.recorder import RecordingHost, parser  # noqa: F401

_active: Optional[Any] = None


class _Using:
    def __init__(self, previous: Optional[Any]) -> None:
        self._previous = previous

    def __enter__(self) -> Any:
        return current()

    def __exit__(self, *exc: object) -> None:
        global _active
        _active = self._previous


def use(backend: Any) -> _Using:
    """Make `backend` the host that new Raid objects talk to."""
    global _active
    previous = _active
    _active = backend
    return _Using(previous)


def default_tool() -> str:
    return os.environ.get("ORVEX_RAID_TOOL", "storcli64")


def current() -> Any:
    global _active
    if _active is None:
        try:
            from orvex_sim.simhost import SimulatedHost
        except ImportError:
            _active = RecordingHost(default_tool())
        else:
            path = os.environ.get("ORVEX_RAID_HOST")
            _active = SimulatedHost.from_file(path) if path else SimulatedHost(default_tool())
    return _active
