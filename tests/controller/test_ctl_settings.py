"""Controller-wide settings: routes, params sent, translations and answers."""
import copy

import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

# (operation, args, kwargs, tool, wrapper, route, params as sent)
CHECKED = [
    ("set_jbod_state", ("on",), {"force": True, "adapter_id": "0"}, "storcli64",
     "ctr_set_jbod_cfg_storcli64", "self", [("state", "on"), ("force", True), ("adapter_id", "0")]),
    ("set_jbod_state", ("on",), {"adapter_id": "0"}, "sorbctl",
     "set_controller_jbod_sorbctl", "self", [("adapter_id", "0"), ("jbod", "rawdrive")]),
    ("set_jbod_state", ("off",), {}, "sorbctl",
     "set_controller_jbod_sorbctl", "self", [("jbod", "off")]),
    ("set_jbod_state", ("ON",), {}, "sorbctl",
     "set_controller_jbod_sorbctl", "self", [("jbod", "ON")]),
    ("set_controller_time", (), {"adapter_id": "1", "ctl_time": "20211122 19:06:45"}, "storcli64",
     "ctr_set_controll_time_storcli64", "self", [("adapter_id", "1"), ("ctl_time", "20211122 19:06:45")]),
    ("set_controller_time", (), {}, "storcli64",
     "ctr_set_controll_time_storcli64", "self", []),
    ("set_ctl_restart", (), {"adapter_id": "0"}, "storcli64",
     "set_ctl_restart_storcli64", "host", [("adapter_id", "0")]),
    ("set_ctl_restart_switch", ("off",), {"adapter_id": "0"}, "storcli64",
     "set_ctl_restart_switch_storcli64", "host", [("state", "off"), ("adapter_id", "0")]),
    ("set_ctl_auto_rebuild", (), {"state": "on"}, "storcli64",
     "set_ctl_auto_rebuild_storcli64", "host", [("state", "on")]),
    ("set_controller_emergency_hotspare_switch", ("on",), {"adapter_id": "0"}, "storcli64",
     "ctr_set_eghs_cfg_storcli64", "host", [("switch", "on"), ("adapter_id", "0"), ("eug", "on")]),
    ("set_controller_emergency_hotspare_switch", ("off", "smarter"), {}, "storcli64",
     "ctr_set_eghs_cfg_storcli64", "host", [("switch", "off"), ("smarter", "off")]),
    ("set_controller_emergency_hotspare_switch", (), {"switch": "on", "option": "state"}, "storcli64",
     "ctr_set_eghs_cfg_storcli64", "host", [("switch", "on"), ("state", "on")]),
    ("set_controller_emergency_hotspare_switch", ("on", "smarter"), {"adapter_id": "0"}, "sorbctl",
     "set_controller_ehsp_sorbctl", "host", [("switch", "on"), ("adapter_id", "0"), ("state", "on")]),
    ("set_bootwithpinnedcache", ("on",), {"adapter_id": "0"}, "storcli64",
     "ctr_set_bootwithpinnedcache_storcli64", "self", [("state", "on"), ("adapter_id", "0")]),
    ("set_bootwithpinnedcache", ("off",), {"adapter_id": "0"}, "sorbctl",
     "set_controller_bootwithpinnedcache_sorbctl", "self", [("state", "off"), ("adapter_id", "0")]),
    ("set_controller_pdcache", (), {"state": "off", "adapter_id": "0"}, "arcconf",
     "set_controller_pdcache_arcconf", "self",
     [("state", "2"), ("adapter_id", "0"), ("drive_type", "unconfigured")]),
    ("set_controller_pdcache", (), {"state": "on"}, "arcconf",
     "set_controller_pdcache_arcconf", "self", [("state", "1"), ("drive_type", "unconfigured")]),
    ("set_controller_pdcache", (), {"state": "On"}, "arcconf",
     "set_controller_pdcache_arcconf", "self", [("state", None), ("drive_type", "unconfigured")]),
    ("set_controller_foreign_config", (), {"oper": "import", "adapter_id": "0"}, "storcli64",
     "vd_foreign_operate_storcli64", "host", [("oper", "import"), ("adapter_id", "0")]),
    ("set_controller_foreign_config", (), {"oper": "delete", "adapter_id": "0"}, "sorbctl",
     "clear_controller_fncfg_sorbctl", "host", [("oper", "delete"), ("adapter_id", "0")]),
    ("set_controller_foreign_config", (), {"oper": "import"}, "sorbctl",
     "import_controller_fncfg_sorbctl", "host", [("oper", "import")]),
]


@pytest.mark.parametrize("op, args, kwargs, tool, wrapper, route, sent", CHECKED)
@pytest.mark.parametrize("answer, expected", [
    (parser("Set JBOD success"), True),
    (parser("Failed: controller busy"), False),
    ({"rc": 1}, False),
])
def test_checked_settings(rig, op, args, kwargs, tool, wrapper, route, sent, answer, expected):
    raid, host = rig(tool)
    host.on(wrapper, answer)
    assert getattr(raid, op)(*args, **kwargs) is expected
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        (route, wrapper, sent)]


R0 = {"adapter_id": "0"}
REFUSALS = [
    ("set_ctl_mode", ("3",), R0, "storcli64", "LSI卡storcli64工具没有 设置控制卡工作模式 功能"),
    ("set_ctl_mode", ("3",), R0, "sorbctl", "7460卡sorbctl工具没有 设置控制卡工作模式 功能"),
    ("get_ctl_current_time", (), R0, "sorbctl", "7460卡sorbctl工具没有 查询控制卡当前时间信息 功能"),
    ("get_ctl_current_time", (), R0, "arcconf", "PMC卡arcconf工具没有 查询控制卡当前时间信息 功能"),
    ("set_controller_time", (), R0, "sorbctl", "7460卡sorbctl工具没有 设置raid控制器时间 功能"),
    ("set_controller_time", (), R0, "arcconf", "PMC卡arcconf工具没有 设置raid控制器时间 功能"),
    ("set_ctl_restart", (), R0, "sorbctl", "7460卡sorbctl工具没有 设置控制器复位 功能"),
    ("set_ctl_restart", (), R0, "arcconf", "PMC卡arcconf工具没有 设置控制器复位 功能"),
    ("set_ctl_restart_switch", ("on",), R0, "sorbctl", "7460卡sorbctl工具没有 设置控制器复位开关打开或关闭 功能"),
    ("set_ctl_restart_switch", ("on",), R0, "arcconf", "PMC卡arcconf工具没有 设置控制器复位开关打开或关闭 功能"),
    ("set_ctl_auto_rebuild", ("on",), R0, "sorbctl", "7460卡sorbctl工具没有 设置控制器自动重构开关 功能"),
    ("set_ctl_auto_rebuild", ("on",), R0, "arcconf", "PMC卡arcconf工具没有 设置控制器自动重构开关 功能"),
    ("get_controller_ehsp", (), R0, "arcconf", "PMC卡arcconf工具没有 查询紧急热备状态 功能"),
    ("set_controller_emergency_hotspare_switch", ("on",), R0, "arcconf",
     "PMC卡arcconf工具没有 设置控制器的紧急热备开关 功能"),
    ("set_bootwithpinnedcache", ("on",), R0, "arcconf", "PMC卡arcconf工具没有 设置存在脏数据时的控制器启动方式 功能"),
    ("get_bootwithpinnedcache", (), R0, "arcconf", "PMC卡arcconf工具没有 查询存在脏数据时的控制器启动方式 功能"),
    ("set_controller_pdcache", (), {"state": "on"}, "storcli64", "There is no such command in storcli64"),
    ("set_controller_pdcache", (), {"state": "on"}, "sorbctl", "There is no such command in sorbctl"),
    ("set_controller_foreign_config", (), {"oper": "delete"}, "arcconf", "PMC卡arcconf工具没有 设置外部配置操作 功能"),
    ("set_controller_foreign_config", (), {"oper": "merge"}, "sorbctl", "7460卡sorbctl工具不支持[merge]操作"),
    ("set_controller_foreign_config", (), {"oper": "Delete"}, "sorbctl", "7460卡sorbctl工具不支持[Delete]操作"),
]


@pytest.mark.parametrize("op, args, kwargs, tool, message", REFUSALS)
def test_refusals_raise_before_dispatch(rig, op, args, kwargs, tool, message):
    raid, host = rig(tool)
    with pytest.raises(OrvexException) as err:
        getattr(raid, op)(*args, **kwargs)
    assert str(err.value) == message
    assert host.calls == []


# -- JBOD through the arcconf work mode ---------------------------------------

@pytest.mark.parametrize("state, mode", [("on", "5"), ("off", "3"), ("auto", "auto")])
@pytest.mark.parametrize("answer", [parser("Command completed successfully."), parser("Command failed."),
                                    {"stderr": "boom"}])
def test_jbod_arcconf_switches_mode_waits_and_reports_true(rig, sleeps, state, mode, answer):
    raid, host = rig("arcconf")
    sleeps_at_dispatch = []
    host.on("ctr_set_ctrl_mode_arcconf", lambda params: sleeps_at_dispatch.append(len(sleeps)) or answer)
    assert raid.set_jbod_state(state, adapter_id="0") is True
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("self", "ctr_set_ctrl_mode_arcconf", [("adapter_id", "0"), ("mode", mode)])]
    assert sleeps_at_dispatch == [0]  # the wait comes after the mode change
    assert sleeps == [10]


# -- queries ------------------------------------------------------------------

# (operation, tool, wrapper, route, parser entry, result)
QUERIES = [
    ("query_jbod_info", "storcli64", "ctr_get_jbod_storcli64", "self",
     {"Controller Properties": [{"Ctrl_Prop": "JBOD", "Value": "OFF"}]}, "OFF"),
    ("query_jbod_info", "storcli64", "ctr_get_jbod_storcli64", "self",
     {"Controller Properties": [{"Ctrl_Prop": "JBOD", "Value": "on"}]}, "on"),
    ("query_jbod_info", "sorbctl", "get_controller_jbod_sorbctl", "self", {"Jbod": "rawdrive"}, "ON"),
    ("query_jbod_info", "sorbctl", "get_controller_jbod_sorbctl", "self", {"Jbod": "RawDrive"}, "ON"),
    ("query_jbod_info", "sorbctl", "get_controller_jbod_sorbctl", "self", {"Jbod": "off"}, "OFF"),
    ("query_jbod_info", "sorbctl", "get_controller_jbod_sorbctl", "self", {"Jbod": "raid"}, "RAID"),
    ("query_jbod_info", "arcconf", "ctr_get_adpt_cfg_arcconf", "self",
     {"controller_information": {"controller_mode": "RAID (Hide RAW)"}}, "OFF"),
    ("query_jbod_info", "arcconf", "ctr_get_adpt_cfg_arcconf", "self",
     {"controller_information": {"controller_mode": "Mixed"}}, "ON"),
    ("query_jbod_info", "arcconf", "ctr_get_adpt_cfg_arcconf", "self",
     {"controller_information": {"controller_mode": "RAID (Expose RAW)"}}, "RAID (Expose RAW)"),
    ("query_jbod_info", "arcconf", "ctr_get_adpt_cfg_arcconf", "self",
     {"controller_information": {"controller_mode": "mixed"}}, "mixed"),
    ("get_ctl_current_time", "storcli64", "ctr_get_controll_time_storcli64", "self",
     {"Controller": [{"Ctrl_Prop": "Time", "Value": "2021/11/22 19:06:45"},
                     {"Ctrl_Prop": "Time", "Value": "1999/01/01 00:00:00"}]}, "2021/11/22 19:06:45"),
    ("get_controller_ehsp", "storcli64", "ctr_get_eghs_storcli64", "host",
     {"Controller Properties": [{"Ctrl_Prop": "EmergencyGHS", "Value": "off"},
                                {"Ctrl_Prop": "EmergencyUG", "Value": "on"},
                                {"Ctrl_Prop": "EmergencyUG", "Value": "off"}]}, "ON"),
    ("get_controller_ehsp", "storcli64", "ctr_get_eghs_storcli64", "host",
     {"Controller Properties": [{"Ctrl_Prop": "EmergencyGHS", "Value": "on"},
                                {"Ctrl_Prop": "EmergencySMART", "Value": "on"}]}, None),
    ("get_controller_ehsp", "storcli64", "ctr_get_eghs_storcli64", "host",
     {"Controller Properties": []}, None),
    ("get_controller_ehsp", "sorbctl", "get_controller_ehsp_sorbctl", "host", {"Ehsp Switch": "Off"}, "OFF"),
    ("get_bootwithpinnedcache", "storcli64", "ctr_get_bootwithpinnedcache_storcli64", "self",
     {"Controller Properties": [{"Ctrl_Prop": "Boot With Pinned Cache", "Value": "On"},
                                {"Ctrl_Prop": "Other", "Value": "off"}]}, "ON"),
    ("get_bootwithpinnedcache", "sorbctl", "get_controller_bootwithpinnedcache_sorbctl", "self",
     {"Boot With Pinned Cache Switch": "off"}, "OFF"),
]


@pytest.mark.parametrize("op, tool, wrapper, route, parsed, expected", QUERIES)
@pytest.mark.parametrize("kwargs, sent", [({"adapter_id": "1"}, [("adapter_id", "1")]), ({}, [])])
def test_queries(rig, op, tool, wrapper, route, parsed, expected, kwargs, sent):
    raid, host = rig(tool)
    host.on(wrapper, parser(copy.deepcopy(parsed)))  # some variants edit the answer
    assert getattr(raid, op)(**kwargs) == expected
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        (route, wrapper, sent)]


@pytest.mark.parametrize("op, tool, wrapper, parsed, error", [
    ("get_ctl_current_time", "storcli64", "ctr_get_controll_time_storcli64", {"Status": "Failure"}, KeyError),
    ("get_controller_ehsp", "storcli64", "ctr_get_eghs_storcli64", {"Status": "Failure"}, KeyError),
    ("get_bootwithpinnedcache", "storcli64", "ctr_get_bootwithpinnedcache_storcli64",
     {"Controller Properties": [{"Ctrl_Prop": "Boot With Pinned Cache"}]}, KeyError),
    ("query_jbod_info", "arcconf", "ctr_get_adpt_cfg_arcconf", {"controller_information": {}}, KeyError),
    ("query_jbod_info", "sorbctl", "get_controller_jbod_sorbctl", {"JBOD": "on"}, KeyError),
])
def test_missing_entries_propagate(rig, op, tool, wrapper, parsed, error):
    raid, host = rig(tool)
    host.on(wrapper, parser(parsed))
    with pytest.raises(error):
        getattr(raid, op)()
