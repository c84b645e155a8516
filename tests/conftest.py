import os
import pathlib
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "sim"))
# A developer's local install prefix may stand in for the installed wheel.
if os.environ.get("RAID_SITE"):
    sys.path.insert(0, os.environ["RAID_SITE"])

import orvex_sim  # noqa: E402
from orvex_sim.recorder import RecordingHost  # noqa: E402
from orvex.api.hostos.raid import raid as raid_module  # noqa: E402

if str(pathlib.Path(raid_module.__file__).resolve()).startswith(str(ROOT / "src")):
    raise RuntimeError("tests must run against the built module, not the source tree")

TOOLS = ("storcli64", "arcconf", "sorbctl")


@pytest.fixture
def rig():
    """rig(tool) -> (Raid object, recording host) for that tool kind."""

    def make(tool="storcli64"):
        host = RecordingHost(tool)
        with orvex_sim.use(host):
            return raid_module.Raid(), host

    return make


@pytest.fixture
def sleeps(monkeypatch):
    """Records time.sleep calls instead of sleeping."""
    import time

    calls = []
    monkeypatch.setattr(time, "sleep", calls.append)
    return calls
