"""Record a short script on a simulated host, then replay it without the host.

`show()` runs the script once on a simulated storcli64 host while recording
every wrapper call into a temporary file (as an engineer would on the lab
machine), runs it again, unchanged, on a `ReplayHost` reading that file (as
CI would), compares results and calls, and shows the replay refusing a call
the recording lacks.  It returns the number of failed checks.
"""
import json
import os
import sys
import tempfile

import orvex_sim
from orvex.api.hostos.raid.raid import Raid
from orvex_sim.replay import MissingCall, ReplayHost, record
from orvex_sim.simhost import SimulatedHost


class Log:
    """Prints steps the way a test log reads: phase, text, PASS/FAIL."""

    def __init__(self):
        self.failures = 0

    def __call__(self, phase, text):
        print("[%-9s] %s" % (phase, text))

    def expect(self, what, ok):
        self.failures += not ok
        self("check", "  %-58s %s" % (what, "PASS" if ok else "FAIL"))


def script(raid):
    """The test script: what it returns is what a log would show."""
    drives = ["252:4", "252:5"]
    return [
        raid.get_controller_status_raid()["firmware_version"],
        raid.create_virtual_drive(raid_level="1", drives=drives, name="mirror", pd_per_array=""),
        [(v["vd"], v["raid_level"], v["status"]) for v in raid.get_all_virtual_drive_info()],
        raid.get_one_physical_drive_info(eid="252", sid="4")["status"],
        raid.delete_virtual_drive(vid="0"),
    ]


def show():
    log = Log()
    print("\n######## record and replay ########")
    with tempfile.TemporaryDirectory() as scratch:
        path = os.path.join(scratch, "run.json")
        live = SimulatedHost("storcli64")
        with orvex_sim.use(live):
            raid = Raid()
        with record(raid, path):
            recorded = script(raid)
        with open(path, encoding="utf-8") as saved:
            calls = json.load(saved)["calls"]
        log("record", "script on the simulated host -> %r" % (recorded,))
        routes = [c["route"] for c in calls]
        log("record", "%d wrapper calls (%d self, %d host) into run.json, %d bytes" % (
            len(calls), routes.count("self"), routes.count("host"), os.path.getsize(path)))

        replay = ReplayHost(path)         # the calls in recorded order
        with orvex_sim.use(replay):
            raid = Raid()
        replayed = script(raid)
        log("replay", "same script, no host        -> %r" % (replayed,))
        log.expect("replayed results equal the recorded ones", replayed == recorded)
        log.expect("replayed calls (route, wrapper, params) equal", replay.calls == live.calls)
        try:
            raid.delete_virtual_drive(vid="0")
        except MissingCall as why:
            log("replay", "one call more -> %s: %s" % (type(why).__name__, why))
            log.expect("a call the recording lacks is refused", True)
        else:
            log.expect("a call the recording lacks is refused", False)
    return log.failures


if __name__ == "__main__":
    sys.exit(1 if show() else 0)
