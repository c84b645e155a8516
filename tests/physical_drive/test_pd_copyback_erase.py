"""Copyback, precopy, erase: computed answers, drive ids and the params as built."""
import pytest

from orvex_sim.recorder import parser


def test_copyback_status_storcli64_reads_the_indexed_property_row(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_copyback_storcli64", parser({"Controller Properties": [
        {"Ctrl_Prop": "Copyback", "Value": "off"}, {"Ctrl_Prop": "SMARTer", "Value": "On"}]}))
    assert raid.get_copyback_status() == "OFF"
    assert raid.get_copyback_status(adapter_id="1", index=1) == "ON"
    assert [list(c.params.items()) for c in host.calls] == [
        [("index", 0)], [("adapter_id", "1"), ("index", 1)]]
    with pytest.raises(IndexError):
        raid.get_copyback_status(index=2)


# (call, wrapper, parser entry, result or the KeyError raised)
@pytest.mark.parametrize("call, wrapper, parsed, expected", [
    (lambda r: r.query_copyback_info(), "get_controller_copyback_sorbctl",
     {"Copyback Switch": "Off", "Other": 1}, "Off"),
    (lambda r: r.get_copyback_status(), "get_controller_copyback_sorbctl",
     {"Copyback Switch": "Off"}, "OFF"),
    (lambda r: r.get_copyback_rate(), "get_controller_config_sorbctl",
     {"CopyBack Rate": "low", "Rebuild Rate": "high"}, {"CopyBack Rate": "low"}),
    (lambda r: r.get_copyback_rate(), "get_controller_config_sorbctl", {},
     KeyError("CopyBack Rate")),
    (lambda r: r.get_precopy_info(), "get_controller_precopy_sorbctl",
     {"Precopy Switch": "Off", "Precopy Threshold": "80"},
     {"Precopy Threshold": "80", "precopy_switch": "off"}),
    (lambda r: r.get_precopy_info(), "get_controller_precopy_sorbctl", {},
     KeyError("Precopy Switch")),
    (lambda r: r.get_pd_copyback_info(eid="0", sid="1"), "get_controller_pd_info_sorbctl", {},
     KeyError("DriveDetailInformation")),
])
def test_sorbctl_queries(rig, call, wrapper, parsed, expected):
    raid, host = rig("sorbctl")
    host.on(wrapper, parser(parsed), {"other": 1})
    if isinstance(expected, KeyError):
        with pytest.raises(KeyError) as err:
            call(raid)
        assert err.value.args == expected.args
    else:
        assert call(raid) == expected
    with pytest.raises(KeyError) as err:  # an answer without a parser entry
        call(raid)
    assert err.value.args == ("parser",)


@pytest.mark.parametrize("extra, drive_id", [({"adapter_id": "1"}, "c1:e0:s4"),
                                             ({}, "cNone:e0:s4")])
def test_sorbctl_drive_records_carry_the_drive_id(rig, extra, drive_id):
    raid, host = rig("sorbctl")
    copyback = {"CopybackProgress": "0%", "CopybackStatus": "In progress",
                "CopybackTimeLeft": "0 min", "Model": "ST6000"}
    erase = {"EraseProgress": "0%", "EraseStatus": "In progress", "EraseTimeLeft": "0 min"}
    host.on("get_controller_pd_info_sorbctl", parser({"DriveDetailInformation": copyback}))
    host.on("get_controller_pd_erase_sorbctl", parser(erase), parser("fail"))
    record = [("Drive-ID", drive_id), ("Progress", "0%"), ("Status", "In progress"),
              ("Estimated_time_left", "0 min")]
    assert list(raid.get_pd_copyback_info(eid="0", sid="4", **extra).items())[:4] == record
    assert list(raid.get_pd_erase(eid="0", sid="4", **extra).items()) == record + [
        ("raw_data", dict(erase, **{"Drive-ID": drive_id}))]
    assert raid.get_pd_erase(eid="0", sid="4") == "fail"  # passed through as it stands


def test_erase_status_arcconf_picks_the_drive_erase_task(rig):
    raid, host = rig("arcconf")
    tasks = [{"controller": "1", "channel": "0", "device": "1", "current_operation": "Erase",
              "status": "In Progress", "percentage_complete": "9"},
             {"controller": "1", "channel": "0", "device": "2", "current_operation": "Verify"},
             {"controller": "1", "channel": "0", "device": "2", "current_operation": "Secure Erase",
              "status": "In Progress", "percentage_complete": "30", "estimated_time_left": "3 min"}]
    host.on("ctr_get_controller_bgtask_arcconf", parser({"physical_device_task": tasks}))
    assert raid.get_pd_erase(eid="0", sid="2", adapter_id="1") == {
        "Drive-ID": "c1:e0:s2", "Progress": "30%", "Status": "In Progress",
        "Estimated_time_left": "3 min", "raw_data": tasks[2]}
    assert host.calls[0].params == {"eid": "0", "sid": "2", "adapter_id": "1"}
    assert raid.get_pd_erase(eid="0", sid="7")["Status"] == "Not in progress"


@pytest.mark.parametrize("tool, call, wrapper, params", [
    ("storcli64", lambda r: r.start_pd_erase(eid="65", sid="0", mode="simple", adapter_id="0"),
     "pd_set_erase_storcli64",
     [("eid", "65"), ("sid", "0"), ("mode", "simple"), ("oper", "start"), ("adapter_id", "0")]),
    ("sorbctl", lambda r: r.start_pd_erase(eid="0", sid="1", mode="normal"),
     "start_controller_pd_erase_sorbctl",
     [("eid", "0"), ("sid", "1"), ("mode", "normal"), ("oper", "start")]),
    ("storcli64", lambda r: r.stop_pd_erase(eid="65", sid="0"),
     "pd_set_erase_storcli64", [("eid", "65"), ("sid", "0"), ("oper", "stop")]),
    ("sorbctl", lambda r: r.stop_pd_erase(eid="0", sid="1"),
     "stop_controller_pd_erase_sorbctl", [("eid", "0"), ("sid", "1"), ("oper", "stop")]),
    ("arcconf", lambda r: r.stop_pd_erase(eid="0", sid="1"),
     "set_ctr_pd_erase_arcconf", [("eid", "0"), ("sid", "1"), ("oper", "stop")]),
])
def test_erase_start_and_stop_send_built_params(rig, tool, call, wrapper, params):
    raid, host = rig(tool)
    host.on(wrapper, parser("Start Drive Erase Succeeded. success"))
    assert call(raid) is True
    assert host.sent() == [
        ("self", wrapper, params)]
