"""Drive state changes: params as edited and translated, routes, rebuild status."""
import logging

import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

OK = parser("Set Drive State success")
NO = parser("Set Drive State failed")
S0, S1 = [("eid", "65"), ("sid", "0")], [("eid", "0"), ("sid", "1")]

# (tool, call, wrapper, route, params as sent)
SETTERS = [
    ("storcli64", lambda r: r.set_disk_offline(eid="65", sid="0", adapter_id="0"),
     "pd_set_state_storcli64", "self", S0 + [("adapter_id", "0"), ("state", "offline")]),
    ("sorbctl", lambda r: r.set_disk_offline(eid="0", sid="1"),
     "set_controller_phy_func_sorbctl", "self", S1 + [("oper", "disable")]),
    ("storcli64", lambda r: r.set_disk_jbod_state(eid="65", sid="0", state="on"),
     "pd_set_state_storcli64", "self", S0 + [("state", "jbod")]),
    ("storcli64", lambda r: r.set_disk_jbod_state(eid="65", sid="0", state="off", force=False),
     "pd_set_state_storcli64", "self", S0 + [("state", "good"), ("force", True)]),
    ("sorbctl", lambda r: r.set_disk_jbod_state(eid="0", sid="1", state="on"),
     "set_controller_pd_state_sorbctl", "self", S1 + [("state", "jbod")]),
    ("sorbctl", lambda r: r.set_disk_jbod_state(eid="0", sid="1", state="off", force=False),
     "set_controller_pd_state_sorbctl", "self", S1 + [("state", "free"), ("force", False)]),
    ("storcli64", lambda r: r.set_pd_hotspare_drive("65", "0", "add", adapter_id="0"),
     "pd_set_hotspare_drive_storcli64", "host", S0 + [("oper", "add"), ("adapter_id", "0")]),
    ("sorbctl", lambda r: r.set_pd_hotspare_drive("0", "1", "add"),
     "set_controller_pd_hotspare_sorbctl", "host", S1 + [("oper", "hotspare")]),
    ("sorbctl", lambda r: r.set_pd_hotspare_drive(eid="0", sid="1", oper="delete"),
     "set_controller_pd_hotspare_sorbctl", "host", S1 + [("oper", "free")]),
    ("sorbctl", lambda r: r.set_pd_hotspare_drive("0", "1", "remove"),
     "set_controller_pd_hotspare_sorbctl", "host", S1 + [("oper", None)]),
    ("arcconf", lambda r: r.set_pd_hotspare_drive("0", "1", "delete", ar_id="3"),
     "set_controller_pd_hotspare_arcconf", "host", S1 + [("oper", "rdy"), ("ar_id", "3")]),
    ("storcli64", lambda r: r.pd_set_bootdrive(eid="65", sid="0", state="secondary", adapter_id="0"),
     "pd_set_bootdrive_storcli64", "self",
     S0 + [("adapter_id", "0"), ("bootdrive", "on"), ("status", "on")]),
    ("storcli64", lambda r: r.pd_set_bootdrive(eid="65", sid="0", state="off"),
     "pd_set_bootdrive_storcli64", "self", S0 + [("bootdrive", "off"), ("status", "off")]),
    ("sorbctl", lambda r: r.pd_set_bootdrive(eid="0", sid="1", state="primary"),
     "set_controller_pd_boot_sorbctl", "self", S1 + [("state", "on")]),
    ("arcconf", lambda r: r.pd_set_bootdrive(eid="0", sid="1", state="off"),
     "set_controller_pd_boot_arcconf", "self", S1 + [("state", "none")]),
]


@pytest.mark.parametrize("tool, call, wrapper, route, params", SETTERS)
def test_setters_send_edited_params(rig, tool, call, wrapper, route, params):
    raid, host = rig(tool)
    host.on(wrapper, OK)
    host.on("ctr_set_device_order_by_firmware", parser("success"))
    assert call(raid) is True
    last = host.last()
    assert (last.route, last.wrapper, list(last.params.items())) == (route, wrapper, params)


@pytest.mark.parametrize("tool", ["storcli64", "sorbctl"])
def test_eed_state_is_accepted_without_running_anything(rig, tool):
    raid, host = rig(tool)
    assert raid.set_disk_state(eid="0", sid="1", state="eed") is True
    assert host.calls == []


def test_arcconf_spare_release_takes_first_logical_drive_array(rig):
    raid, host = rig("arcconf")
    host.on("set_controller_pd_hotspare_arcconf", OK)
    seen = []
    raid.get_all_virtual_drive_info = lambda **kw: seen.append(kw) or [{"array": "2"}, {"array": "5"}]
    assert raid.set_pd_hotspare_drive("0", "1", "delete", ar_id="") is True
    assert seen == [{}]
    assert list(host.last().params.items()) == S1 + [("oper", "rdy"), ("ar_id", "2")]
    raid.get_all_virtual_drive_info = lambda: []
    with pytest.raises(OrvexException, match="^当前环境不存在逻辑盘$"):
        raid.set_pd_hotspare_drive("0", "1", "delete")
    assert len(host.calls) == 1


def test_bootdrive_order_by_firmware_failure_is_logged_not_raised(rig, caplog):
    raid, host = rig("storcli64")
    host.on("ctr_set_device_order_by_firmware", RuntimeError("unsupported option"))
    host.on("pd_set_bootdrive_storcli64", NO)
    with caplog.at_level(logging.INFO, logger="orvex.hostos.raid"):
        assert raid.pd_set_bootdrive(eid="65", sid="0", state="primary") is False
    assert [(r.levelno, r.getMessage()) for r in caplog.records] == [
        (logging.ERROR, "不支持order_by_firmware功能,unsupported option")]
    assert host.wrappers == ["ctr_set_device_order_by_firmware", "pd_set_bootdrive_storcli64"]
    assert host.calls[0].params == {"eid": "65", "sid": "0", "bootdrive": "on", "status": "on"}


# -- rebuild status ----------------------------------------------------------------

@pytest.mark.parametrize("empty", [None, {}, ""])
def test_rebuild_status_storcli64_formats_the_answer_or_refuses_an_empty_one(rig, empty):
    raid, host = rig("storcli64")
    row = {"Drive-ID": "/c0/e65/s0", "Progress%": 20, "Status": "In progress",
           "Estimated Time Left": "10 Minutes"}
    host.on("ctr_get_rebuild_cfg_storcli64", parser(row), parser(empty))
    assert raid.get_pd_rebuild_status(eid="65", sid="0", adapter_id="0") == {
        "status": "In progress", "progress": 20, "estimated_time_left": "10 Minutes",
        "raw_data": row}
    with pytest.raises(OrvexException) as err:
        raid.get_pd_rebuild_status(eid="65", sid="3")
    assert str(err.value) == "获取[eid:65, sid:3]硬盘重构功能状态失败"


TASKS = [{"logical_device": "0", "current_operation": "Rebuild", "status": "In Progress",
          "percentage_complete": "10"},
         {"logical_device": "1", "current_operation": "Verify", "status": "In Progress"},
         {"logical_device": "2", "current_operation": "Rebuild", "status": "In Progress",
          "percentage_complete": "40", "estimated_time_left": "5 min"},
         {"logical_device": "3", "current_operation": "Rebuild", "status": "Queued"}]


@pytest.mark.parametrize("status, members, task", [
    ("reconstructing", {"0": [{"eid": "0", "sid": "3"}], "2": [{"eid": "0", "sid": "4"}],
                        "3": [{"eid": "0", "sid": "4"}]}, 2),
    ("online", {"2": [{"eid": "0", "sid": "4"}]}, None),
    ("reconstructing", {"2": [{"eid": "0", "sid": "4", "extra": 1}]}, None),
])
def test_rebuild_status_arcconf_finds_task_of_member_drive(rig, status, members, task):
    raid, host = rig("arcconf")
    host.on("ctr_get_controller_bgtask_arcconf", parser({"logical_device_task": TASKS}))
    asked = []
    raid.get_one_physical_drive_info = lambda **kw: asked.append(("pd", kw)) or {"status": status}
    raid.get_virtual_drive_member_drives = (
        lambda **kw: asked.append(("vd", kw)) or members.get(kw["vid"], []))
    out = raid.get_pd_rebuild_status(eid="0", sid="4", adapter_id="1")
    if task is None:
        assert out == {"status": "", "progress": "", "estimated_time_left": "", "raw_data": {}}
        assert len(host.calls) == (status == "reconstructing")
        return
    assert out == {"status": "In Progress", "progress": "40", "estimated_time_left": "5 min",
                   "raw_data": TASKS[task]}
    assert asked == [("pd", {"eid": "0", "sid": "4"}), ("vd", {"vid": "0"}), ("vd", {"vid": "2"})]
    assert host.calls == [("self", "ctr_get_controller_bgtask_arcconf",
                           {"eid": "0", "sid": "4", "adapter_id": "1"})]
