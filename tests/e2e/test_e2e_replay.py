"""A script recorded on one host and replayed, unchanged, without it."""
import pytest

import orvex_sim
from orvex.api.hostos.raid import raid as raid_module
from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import RecordingHost
from orvex_sim.replay import MissingCall, RecordedError, ReplayError, ReplayHost, record
from orvex_sim.simhost import SimulatedHost


def script(raid, e):
    steps = [lambda: raid.create_virtual_drive(raid_level="1", drives=["%s:4" % e, "%s:5" % e],
                                               pd_per_array=""),
             lambda: raid.create_virtual_drive(raid_level="1", drives=["%s:3" % e],
                                               pd_per_array=""),
             lambda: raid.get_one_physical_drive_info(eid=e, sid="4"),
             lambda: raid.get_one_virtual_drive_info(vid="7"),
             lambda: raid.delete_virtual_drive(vid="0")]
    results = []
    for step in steps:
        try:
            results.append(step())
        except Exception as error:
            results.append((type(error), str(error)))
    return results


@pytest.mark.parametrize("tool", ("storcli64", "arcconf"))
def test_a_recorded_run_replays_with_the_same_results_and_calls(tool, tmp_path):
    live = SimulatedHost(tool)
    with orvex_sim.use(live):
        raid = raid_module.Raid()
    e = live.model.drives[0].eid
    with record(raid, str(tmp_path / "run.json")):
        recorded = script(raid, e)
    assert not any("dispatch" in vars(t) for t in (raid, raid.host, raid.dispatcher))
    replay = ReplayHost(str(tmp_path / "run.json"), strict=True)
    with orvex_sim.use(replay):
        assert script(raid_module.Raid(), e) == recorded
    assert replay.calls == live.calls and {c.route for c in live.calls} == {"self", "host"}


FAILURES = [
    ("a wrapper never recorded", lambda r: r.dispatch("w_other", {"vid": "1"}), MissingCall,
     "the recording holds 0 calls of 'w_other'; none left for params {'vid': '1'}"),
    ("one call too many", lambda r: r.dispatch("w_data", {"eid": "252"}), MissingCall,
     "the recording holds 1 call of 'w_data'; none left for params {'eid': '252'}"),
    ("other params when strict", lambda r: r.host.dispatch("w_fail", {"sid": 3}), ReplayError,
     "'w_fail' was recorded on route 'host' with params None, called on 'host' with {'sid': 3}"),
    ("a recorded framework error", lambda r: r.host.dispatch("w_fail"), OrvexException,
     "no such drive"),
    ("a recorded error of a class not loaded", lambda r: r.dispatch("w_boom", None),
     RecordedError, "<locals>.Boom: disk gone"),
    ("an answer JSON cannot hold", lambda r: r.dispatcher.dispatch("w_obj", None), ReplayError,
     "cannot answer 'w_obj': a builtins.object value was recorded only as <object object at"),
]


@pytest.mark.parametrize("why, call, kind, message", FAILURES, ids=[f[0] for f in FAILURES])
def test_replay_refuses_what_the_recording_lacks(why, call, kind, message, tmp_path):
    class Boom(Exception):
        pass

    answer = ({"parser": {1: ("a", b"\x00")}, "$ref": [None]}, 0)
    host = RecordingHost().on("w_data", answer).on("w_fail", OrvexException("no such drive"))
    host.on("w_boom", Boom("disk gone")).on("w_obj", [object()])
    with orvex_sim.use(host):
        raid = raid_module.Raid()
    with record(raid, str(tmp_path / "run.json")):
        assert raid.dispatch("w_data", {"eid": "252"}) is answer
        raid.dispatcher.dispatch("w_obj", None)
        for target, wrapper in ((raid.host, "w_fail"), (raid, "w_boom")):
            with pytest.raises((OrvexException, Boom)):
                target.dispatch(wrapper, None)
    with orvex_sim.use(ReplayHost(str(tmp_path / "run.json"), strict=True)):
        raid = raid_module.Raid()
    assert raid.dispatch("w_data", {"eid": "252"}) == answer
    with pytest.raises(kind) as caught:
        call(raid)
    assert message in str(caught.value)
