"""A script recorded on one host and replayed, unchanged, without it."""
import sys
import zipfile

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
    replay = ReplayHost(str(tmp_path / "run.json"))
    with orvex_sim.use(replay):
        assert script(raid_module.Raid(), e) == recorded
    assert replay.calls == live.calls and {c.route for c in live.calls} == {"self", "host"}


def recorded(tmp_path):
    """A recording of five calls: an answer JSON holds, one it cannot, and
    errors of an importable class, of a local class and of a class whose
    module is imported again on replay."""
    class Boom(Exception):
        pass

    answer = ({"parser": {1: ("a", b"\x00")}, "$ref": [None]}, 0)
    host = RecordingHost().on("w_data", answer).on("w_obj", [object()])
    host.on("w_fail", OrvexException("no such drive")).on("w_boom", Boom("disk gone"))
    host.on("w_zip", zipfile.BadZipFile("not a zip"))
    with orvex_sim.use(host):
        raid = raid_module.Raid()
    with record(raid, str(tmp_path / "run.json")):
        assert raid.dispatch("w_data", {"eid": "252"}) is answer
        raid.dispatcher.dispatch("w_obj", None)
        for target, wrapper in ((raid.host, "w_fail"), (raid, "w_boom"), (raid, "w_zip")):
            with pytest.raises(Exception):
                target.dispatch(wrapper, None)
    return str(tmp_path / "run.json"), answer


def test_replay_answers_in_order_and_raises_what_was_raised(tmp_path, monkeypatch):
    path, answer = recorded(tmp_path)
    monkeypatch.delitem(sys.modules, "zipfile")
    with orvex_sim.use(ReplayHost(path)):
        raid = raid_module.Raid()
    assert raid.dispatch("w_data", {"eid": "252"}) == answer
    with pytest.raises(ReplayError, match="^cannot answer 'w_obj': a builtins.object value "
                                          "was recorded only as <object object at"):
        raid.dispatcher.dispatch("w_obj", None)
    with pytest.raises(OrvexException) as framework:
        raid.host.dispatch("w_fail", None)
    with pytest.raises(RecordedError) as local:
        raid.dispatch("w_boom", None)
    with pytest.raises(Exception) as reimported:
        raid.dispatch("w_zip", None)
    assert (type(framework.value), str(framework.value)) == (OrvexException, "no such drive")
    assert type(local.value).__name__ == "Boom" and type(local.value) is not RecordedError
    assert str(local.value).endswith("<locals>.Boom: disk gone")
    assert type(reimported.value) is sys.modules["zipfile"].BadZipFile
    assert reimported.value.args == ("not a zip",)
    with pytest.raises(MissingCall) as more:
        raid.dispatch("w_data", {"eid": "252"})
    assert str(more.value) == ("the recording holds 5 calls, all answered; none left for "
                               "'w_data' on route 'self' with params {'eid': '252'}")


OTHER_CALLS = [
    ("other params", lambda r: r.dispatch("w_data", {"eid": "253"}),
     "'w_data' on route 'self' with params {'eid': '253'}"),
    ("another route", lambda r: r.host.dispatch("w_data", {"eid": "252"}),
     "'w_data' on route 'host' with params {'eid': '252'}"),
    ("another wrapper", lambda r: r.dispatch("w_zip", {"eid": "252"}),
     "'w_zip' on route 'self' with params {'eid': '252'}"),
]


@pytest.mark.parametrize("why, call, called", OTHER_CALLS, ids=[c[0] for c in OTHER_CALLS])
def test_a_call_other_than_the_recorded_one(why, call, called, tmp_path):
    path, answer = recorded(tmp_path)
    with orvex_sim.use(ReplayHost(path)):
        strict = raid_module.Raid()
    with pytest.raises(ReplayError) as caught:
        call(strict)
    assert str(caught.value) == ("call 1 differs from the recording: recorded 'w_data' on "
                                 "route 'self' with params {'eid': '252'}, called " + called)
    with orvex_sim.use(ReplayHost(path, strict=False)):
        lenient = raid_module.Raid()
    if why == "another wrapper":
        with pytest.raises(zipfile.BadZipFile):
            call(lenient)
        with pytest.raises(MissingCall, match=r"^the recording holds 1 call of 'w_zip'; "
                                              r"none left for params \{'eid': '252'\}$"):
            call(lenient)
    else:
        assert call(lenient) == answer
