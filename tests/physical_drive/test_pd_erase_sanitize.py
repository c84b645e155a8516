"""Erase and sanitize: params as sent, status records, refusals."""
import pytest

from orvex_sim.recorder import parser

OK = parser("Start Drive Erase Succeeded. success")
NO = parser("Failed")

ACTIONS = [
    ("storcli64", lambda r: r.start_pd_erase(eid="65", sid="0", mode="simple", adapter_id="0"),
     "pd_set_erase_storcli64",
     [("eid", "65"), ("sid", "0"), ("mode", "simple"), ("oper", "start"), ("adapter_id", "0")]),
    ("sorbctl", lambda r: r.start_pd_erase(eid="0", sid="1", mode="normal"),
     "start_controller_pd_erase_sorbctl",
     [("eid", "0"), ("sid", "1"), ("mode", "normal"), ("oper", "start")]),
    ("arcconf", lambda r: r.start_pd_erase(eid="0", sid="1", mode="thorough", adapter_id="2"),
     "set_ctr_pd_erase_arcconf",
     [("eid", "0"), ("sid", "1"), ("mode", "thorough"), ("oper", "start"), ("adapter_id", "2")]),
    ("storcli64", lambda r: r.stop_pd_erase(eid="65", sid="0"),
     "pd_set_erase_storcli64", [("eid", "65"), ("sid", "0"), ("oper", "stop")]),
    ("sorbctl", lambda r: r.stop_pd_erase(eid="0", sid="1"),
     "stop_controller_pd_erase_sorbctl", [("eid", "0"), ("sid", "1"), ("oper", "stop")]),
    ("arcconf", lambda r: r.stop_pd_erase(eid="0", sid="1"),
     "set_ctr_pd_erase_arcconf", [("eid", "0"), ("sid", "1"), ("oper", "stop")]),
]


@pytest.mark.parametrize("tool, call, wrapper, params", ACTIONS)
@pytest.mark.parametrize("answer, expected", [(OK, True), (NO, False)])
def test_start_and_stop_send_exact_params(rig, tool, call, wrapper, params, answer, expected):
    raid, host = rig(tool)
    host.on(wrapper, answer)
    assert call(raid) is expected
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("self", wrapper, params)]


SAN_ROW = {"Drive-ID": "/c0/e65/s0", "Progress%": 18, "Status": "In progress",
           "Estimated Time Left": "80 Minutes"}
SAN_SORB = {"SanitizeStatus": "run", "SanitizeProgress": "18", "SanitizeTimeLeft": "80 min"}
ERASE_ROW = {"Drive-ID": "/c0/e65/s0", "Progress%": "5", "Status": "In progress",
             "Estimated Time Left": "2 Hours"}


@pytest.mark.parametrize("tool, op, wrapper, parsed, kwargs, expected", [
    ("storcli64", "get_pd_sanitize", "get_pd_sanitize_storcli64", [SAN_ROW, {"Drive-ID": "x"}],
     {"eid": "65", "sid": "0", "adapter_id": "0"},
     {"Status": "In progress", "Progress": 18, "Estimated_time_left": "80 Minutes",
      "raw_data": SAN_ROW}),
    ("sorbctl", "get_pd_sanitize", "get_controller_pd_sanitize_sorbctl", SAN_SORB,
     {"eid": "0", "sid": "1"},
     {"Status": "run", "Progress": "18", "Estimated_time_left": "80 min", "raw_data": SAN_SORB}),
    ("storcli64", "get_pd_erase", "pd_get_erase_storcli64", [ERASE_ROW], {"eid": "65", "sid": "0"},
     {"Drive-ID": "/c0/e65/s0", "Progress": "5", "Status": "In progress",
      "Estimated_time_left": "2 Hours", "raw_data": ERASE_ROW}),
])
def test_status_records(rig, tool, op, wrapper, parsed, kwargs, expected):
    raid, host = rig(tool)
    host.on(wrapper, parser(parsed))
    assert getattr(raid, op)(**kwargs) == expected
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("self", wrapper, list(kwargs.items()))]
    if tool == "storcli64":
        host.on(wrapper, parser([]))
        with pytest.raises(IndexError):
            getattr(raid, op)(eid="65", sid="0")


@pytest.mark.parametrize("extra, drive_id", [({"adapter_id": "1"}, "c1:e0:s4"),
                                             ({}, "cNone:e0:s4")])
def test_erase_status_sorbctl_sets_drive_id(rig, extra, drive_id):
    raid, host = rig("sorbctl")
    status = {"EraseProgress": "0%", "EraseStatus": "In progress", "EraseTimeLeft": "0 min"}
    host.on("get_controller_pd_erase_sorbctl", parser(status))
    out = raid.get_pd_erase(eid="0", sid="4", **extra)
    assert out == {"Drive-ID": drive_id, "Progress": "0%", "Status": "In progress",
                   "Estimated_time_left": "0 min", "raw_data": dict(status, **{"Drive-ID": drive_id})}
    assert list(host.last().params.items()) == [("eid", "0"), ("sid", "4")] + list(extra.items())


def test_erase_status_sorbctl_passes_fail_through(rig):
    raid, host = rig("sorbctl")
    host.on("get_controller_pd_erase_sorbctl", parser("fail"))
    assert raid.get_pd_erase(eid="0", sid="4") == "fail"


def test_erase_status_arcconf_calls_formatter_with_task_list(rig):
    raid, host = rig("arcconf")
    tasks = {"physical_device_task": []}
    host.on("ctr_get_controller_bgtask_arcconf", parser(tasks))
    seen = []
    raid.formatter.get_controller_pd_erase_raid = lambda *a, **kw: seen.append((a, kw)) or "shaped"
    assert raid.get_pd_erase(eid="0", sid="2", adapter_id="1") == "shaped"
    assert seen == [((tasks,), {"eid": "0", "sid": "2"})]
    assert host.calls == [("self", "ctr_get_controller_bgtask_arcconf",
                           {"eid": "0", "sid": "2", "adapter_id": "1"})]


def test_erase_status_arcconf_picks_the_drive_erase_task(rig):
    raid, host = rig("arcconf")
    tasks = [{"controller": "1", "channel": "0", "device": "1", "current_operation": "Erase",
              "status": "In Progress", "percentage_complete": "9"},
             {"controller": "1", "channel": "0", "device": "2", "current_operation": "Verify"},
             {"controller": "1", "channel": "0", "device": "2", "current_operation": "Secure Erase",
              "status": "In Progress", "percentage_complete": "30", "estimated_time_left": "3 min"}]
    host.on("ctr_get_controller_bgtask_arcconf", parser({"physical_device_task": tasks}))
    assert raid.get_pd_erase(eid="0", sid="2") == {
        "Drive-ID": "c1:e0:s2", "Progress": "30%", "Status": "In Progress",
        "Estimated_time_left": "3 min", "raw_data": tasks[2]}
    assert raid.get_pd_erase(eid="0", sid="7")["Status"] == "Not in progress"
