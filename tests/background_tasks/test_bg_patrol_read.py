"""Patrol read: wrappers, params, reshaping and refusals per tool."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser


@pytest.mark.parametrize("tool, call, message", [
    # refusals the sorbctl variants compute from the requested operation
    ("sorbctl", lambda r: r.set_patrolread_oper("pause"), "7460卡sorbctl工具没有 设置巡读功能操作 功能"),
    ("sorbctl", lambda r: r.set_patrolread_switch("auto", mode="auto"),
     "7460卡sorbctl工具没有 设置巡读功能开关 功能"),
    ("sorbctl", lambda r: r.set_pd_patrolread_oper("halt", "0", "1"),
     "传入的halt操作不存在, 请输入合法操作: start/stop"),
    ("sorbctl", lambda r: r.set_pd_patrolread_oper(7, "0", "1"),
     "传入的7操作不存在, 请输入合法操作: start/stop"),
])
def test_refusals_raise_before_dispatch(rig, tool, call, message):
    raid, host = rig(tool)
    with pytest.raises(OrvexException) as err:
        call(raid)
    assert str(err.value) == message
    assert host.calls == []


CHECKED = [
    ("storcli64", lambda r: r.set_patrolread_oper("pause", adapter_id="0", delay="2"),
     "ctr_state_pr_storcli64", [("oper", "pause"), ("adapter_id", "0"), ("delay", "2")]),
    ("sorbctl", lambda r: r.set_patrolread_oper("start", adapter_id="1"),
     "start_controller_patrolread_sorbctl", [("oper", "start"), ("adapter_id", "1")]),
    ("sorbctl", lambda r: r.set_patrolread_oper("stop"),
     "stop_controller_patrolread_sorbctl", [("oper", "stop")]),
    ("sorbctl", lambda r: r.set_pd_patrolread_oper("start", "0", "1", prrate="high", adapter_id="0"),
     "start_controller_pd_patrolread_sorbctl",
     [("oper", "start"), ("eid", "0"), ("sid", "1"), ("prrate", "high"), ("adapter_id", "0")]),
    ("sorbctl", lambda r: r.set_pd_patrolread_oper(sid="3", eid="2", oper="stop"),
     "stop_controller_pd_patrolread_sorbctl", [("oper", "stop"), ("eid", "2"), ("sid", "3")]),
    ("storcli64", lambda r: r.set_patrolread_rate("40", adapter_id="0"),
     "ctr_set_prrate_storcli64", [("prrate", "40"), ("adapter_id", "0")]),
    ("sorbctl", lambda r: r.set_patrolread_rate("high"),
     "set_controller_bgrate_patrolread_sorbctl", [("prrate", "high")]),
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
    ("sorbctl", lambda r: r.set_patrolread_param(prrate="low"),
     "set_controller_patrolread_sorbctl", [("prrate", "low")]),
    ("storcli64", lambda r: r.set_patrolread_param(uncfg_areas_state="off"),
     "ctr_set_patrolread_storcli64", [("uncfg_areas_state", "off")]),
    ("storcli64", lambda r: r.set_patrolread_switch("on", mode="auto"),
     "ctr_set_pr_switch_storcli64", [("switch_status", "on"), ("mode", "auto")]),
    ("sorbctl", lambda r: r.set_patrolread_switch("on", mode="auto"),
     "start_controller_patrolread_sorbctl", [("mode", "auto")]),
    ("sorbctl", lambda r: r.set_patrolread_switch(switch_status="off", adapter_id="0"),
     "stop_controller_patrolread_sorbctl", [("adapter_id", "0")]),
]


@pytest.mark.parametrize("answer, expected", [("Set success", True), ("failed", False), (None, False)])
@pytest.mark.parametrize("tool, call, wrapper, params", CHECKED)
def test_set_operations_dispatch_and_test_for_success(rig, tool, call, wrapper, params, answer, expected):
    raid, host = rig(tool)
    host.on(wrapper, parser(answer))
    assert call(raid) is expected
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("self", wrapper, params)]


def test_storcli64_delay_that_is_no_whole_number_fails_before_dispatch(rig):
    raid, host = rig("storcli64")
    with pytest.raises(ValueError, match="invalid literal for int"):
        raid.set_patrolread_param(delay="1.5")
    assert host.calls == []


STORCLI_PR_ROWS = [
    {"Ctrl_Prop": "PR Mode", "Value": "Auto"},
    {"Ctrl_Prop": "PR Execution Delay", "Value": "168 hours"},
    {"Ctrl_Prop": "PR iterations completed", "Value": "3"},
    {"Ctrl_Prop": "PR Current State", "Value": "Stopped"},
    {"Ctrl_Prop": "PR MaxConcurrentPd", "Value": "2"},
]
SORBCTL_PR = {"Patrolread Switch": "off", "Patrolread Period": "168 hours", "Patrolread Rate": "high",
              "Patrolread Parallel Drives": "2", "Patrolread Finished Drives": "0",
              "Patrolread Status": "Stopped"}


@pytest.mark.parametrize("tool, wrapper, answer, expected, raw", [
    ("storcli64", "ctr_get_patrolread_storcli64", {"Controller Properties": STORCLI_PR_ROWS},
     {"PR_switch": "Auto", "PR_period": "168 hours", "drive_parall_num": "2", "finish_drive_sum": "3",
      "run_status": "Stopped"},
     {row["Ctrl_Prop"]: row["Value"] for row in STORCLI_PR_ROWS}),
    ("sorbctl", "get_controller_patrolread_sorbctl", SORBCTL_PR,
     {"PR_switch": "off", "PR_period": "168 hours", "drive_parall_num": "2", "finish_drive_sum": "0",
      "run_status": "Stopped"}, SORBCTL_PR),
])
def test_controller_state_is_normalised(rig, tool, wrapper, answer, expected, raw):
    raid, host = rig(tool)
    host.on(wrapper, parser(answer))
    result = raid.get_ctl_patrolread_status(adapter_id="0")
    assert type(result) is dict
    assert list(result.items()) == list(expected.items()) + [("raw_data", raw)]
    assert host.calls[0][:2] == ("self", wrapper)
    assert list(host.calls[0].params.items()) == [("adapter_id", "0")]


def test_controller_state_uses_the_formatter_template(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_patrolread_storcli64", parser({"Controller Properties": STORCLI_PR_ROWS[:1]}))
    raid.formatter.get_ctl_patrolread_status_format = {"contents": {"storcli64": {"mode": "PR Mode"}}}
    assert raid.get_ctl_patrolread_status() == {"mode": "Auto", "raw_data": {"PR Mode": "Auto"}}


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
    assert list(result) == ["/c0/e252/s0", "/c0/e252/s1"]
    assert result["/c0/e252/s0"] == {"Status": "In progress", "Estimated_time_left": "32 min",
                                     "Progress": "2", "raw_data": rows[0]}
    assert result["/c0/e252/s1"]["Status"] == "Not in progress"
    assert list(host.last().params.items()) == [("eid", "all"), ("sid", "all"), ("adapter_id", "0")]


@pytest.mark.parametrize("kwargs, key", [({"adapter_id": "0"}, "/c0/e0/s1"),
                                         ({"adapter_id": "2"}, "/c2/e0/s1"),
                                         ({}, "/cNone/e0/s1")])
def test_sorbctl_drive_progress_is_keyed_by_the_callers_ids(rig, kwargs, key):
    raid, host = rig("sorbctl")
    answer = {"Status": "run", "EstimatedTimeLeft": "32 min", "Progress": "2"}
    host.on("get_controller_pd_patrolread_sorbctl", parser(answer))
    result = raid.get_pd_patrolread_status("0", "1", **kwargs)
    assert result == {key: {"Status": "run", "Estimated_time_left": "32 min", "Progress": "2",
                            "raw_data": answer}}
    assert list(host.last().params.items()) == [("eid", "0"), ("sid", "1")] + list(kwargs.items())


@pytest.mark.parametrize("tool, wrapper, answer, rate", [
    ("storcli64", "ctr_get_prrate_storcli64",
     {"Controller Properties": {"Ctrl_Prop": "Patrol Read Rate", "Value": "40%"}}, "40%"),
    ("sorbctl", "get_controller_patrolread_sorbctl", SORBCTL_PR, "high"),
    ("sorbctl", "get_controller_patrolread_sorbctl", {"Patrolread Switch": "on"}, None),
])
def test_rate_is_a_one_entry_dictionary(rig, tool, wrapper, answer, rate):
    raid, host = rig(tool)
    host.on(wrapper, parser(answer))
    assert raid.get_patrolread_rate(adapter_id="1") == {"Patrolread Rate": rate}
    assert host.calls[0][:2] == ("self", wrapper)
    assert list(host.calls[0].params.items()) == [("adapter_id", "1")]
