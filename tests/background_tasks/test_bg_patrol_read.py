"""Patrol read: the branches and params each tool computes, the refusals
that name the value given, and the reshaped read-backs."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser


@pytest.mark.parametrize("call, message", [
    (lambda r: r.set_patrolread_oper("pause"), "7460卡sorbctl工具没有 设置巡读功能操作 功能"),
    (lambda r: r.set_patrolread_switch("auto", mode="auto"), "7460卡sorbctl工具没有 设置巡读功能开关 功能"),
    (lambda r: r.set_pd_patrolread_oper("halt", "0", "1"), "传入的halt操作不存在, 请输入合法操作: start/stop"),
    (lambda r: r.set_pd_patrolread_oper(7, "0", "1"), "传入的7操作不存在, 请输入合法操作: start/stop"),
])
def test_sorbctl_refusals_raise_before_dispatch(rig, call, message):
    raid, host = rig("sorbctl")
    with pytest.raises(OrvexException) as err:
        call(raid)
    assert str(err.value) == message
    assert host.calls == []


@pytest.mark.parametrize("tool, call, wrapper, params", [
    ("sorbctl", lambda r: r.set_patrolread_oper("stop"), "stop_controller_patrolread_sorbctl",
     [("oper", "stop")]),
    ("sorbctl", lambda r: r.set_pd_patrolread_oper("start", "0", "1", prrate="high", adapter_id="0"),
     "start_controller_pd_patrolread_sorbctl",
     [("oper", "start"), ("eid", "0"), ("sid", "1"), ("prrate", "high"), ("adapter_id", "0")]),
    ("sorbctl", lambda r: r.set_pd_patrolread_oper(sid="3", eid="2", oper="stop"),
     "stop_controller_pd_patrolread_sorbctl", [("oper", "stop"), ("eid", "2"), ("sid", "3")]),
    # delay is given in days: storcli64 takes hours, sorbctl a period_time copy
    ("storcli64", lambda r: r.set_patrolread_param(delay="3", adapter_id="0", pd_count="2"),
     "ctr_set_patrolread_storcli64", [("delay", "72"), ("adapter_id", "0"), ("pd_count", "2")]),
    ("sorbctl", lambda r: r.set_patrolread_param(delay="3", adapter_id="0", pd_count="2"),
     "set_controller_patrolread_sorbctl",
     [("delay", "3"), ("adapter_id", "0"), ("pd_count", "2"), ("period_time", "3")]),
    ("storcli64", lambda r: r.set_patrolread_param(delay="", start_time="2022/10/5 23"),
     "ctr_set_patrolread_storcli64", [("delay", ""), ("start_time", "2022/10/5 23")]),
    ("sorbctl", lambda r: r.set_patrolread_param(delay="", inc_ssd_state="on"),
     "set_controller_patrolread_sorbctl", [("delay", ""), ("inc_ssd_state", "on")]),
    ("sorbctl", lambda r: r.set_patrolread_param(prrate="low"), "set_controller_patrolread_sorbctl",
     [("prrate", "low")]),
    ("storcli64", lambda r: r.set_patrolread_param(uncfg_areas_state="off"),
     "ctr_set_patrolread_storcli64", [("uncfg_areas_state", "off")]),
    # sorbctl switches by starting and stopping, without switch_status
    ("sorbctl", lambda r: r.set_patrolread_switch("on", mode="auto"),
     "start_controller_patrolread_sorbctl", [("mode", "auto")]),
    ("sorbctl", lambda r: r.set_patrolread_switch(switch_status="off", adapter_id="0"),
     "stop_controller_patrolread_sorbctl", [("adapter_id", "0")]),
])
def test_set_operations_send_their_params(rig, tool, call, wrapper, params):
    raid, host = rig(tool)
    host.on(wrapper, parser("Set success"))
    assert call(raid) is True
    assert host.sent() == [
        ("self", wrapper, params)]


def test_storcli64_delay_that_is_no_whole_number_fails_before_dispatch(rig):
    raid, host = rig("storcli64")
    with pytest.raises(ValueError, match="invalid literal for int"):
        raid.set_patrolread_param(delay="1.5")
    assert host.calls == []


@pytest.mark.parametrize("empty", [{}, None, ""])
def test_sorbctl_controller_state_without_output_raises(rig, empty):
    raid, host = rig("sorbctl")
    host.on("get_controller_patrolread_sorbctl", parser(empty))
    with pytest.raises(OrvexException) as err:
        raid.get_ctl_patrolread_status()
    assert str(err.value) == "Command execution failed, nothing returned."


def test_storcli64_drive_progress_is_keyed_by_drive(rig):
    raid, host = rig("storcli64")
    rows = [
        {"Drive-ID": "/c0/e252/s0", "Progress%": "2", "Status": "In progress", "Estimated time left": "32 min"},
        {"Drive-ID": "/c0/e252/s1", "Progress%": "-", "Status": "Not in progress", "Estimated time left": "-"},
    ]
    host.on("ctr_get_patrolread_cfg_storcli64", parser(rows))
    result = raid.get_pd_patrolread_status("all", "all", adapter_id="0")
    assert list(result) == ["/c0/e252/s0", "/c0/e252/s1"] and result["/c0/e252/s1"]["Progress"] == "-"
    assert result["/c0/e252/s0"] == {"Status": "In progress", "Estimated_time_left": "32 min",
                                     "Progress": "2", "raw_data": rows[0]}
    assert list(host.last().params.items()) == [("eid", "all"), ("sid", "all"), ("adapter_id", "0")]


@pytest.mark.parametrize("kwargs, key", [({"adapter_id": "2"}, "/c2/e0/s1"), ({}, "/cNone/e0/s1")])
def test_sorbctl_drive_progress_is_keyed_by_the_callers_ids(rig, kwargs, key):
    raid, host = rig("sorbctl")
    answer = {"Status": "run", "EstimatedTimeLeft": "32 min", "Progress": "2"}
    host.on("get_controller_pd_patrolread_sorbctl", parser(answer))
    assert raid.get_pd_patrolread_status("0", "1", **kwargs) == {key: {
        "Status": "run", "Estimated_time_left": "32 min", "Progress": "2", "raw_data": answer}}
    assert list(host.last().params.items()) == [("eid", "0"), ("sid", "1")] + list(kwargs.items())


def test_sorbctl_rate_without_its_entry_is_none(rig):
    raid, host = rig("sorbctl")
    host.on("get_controller_patrolread_sorbctl", parser({"Patrolread Switch": "on"}))
    assert raid.get_patrolread_rate(adapter_id="1") == {"Patrolread Rate": None}
