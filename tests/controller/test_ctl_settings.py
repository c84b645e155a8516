"""Controller information and controller-wide settings: params as edited, routes, and
the computed answers."""
import copy

import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser


# (tool, call, wrapper, route, params as sent): edited params and host routes
SETTERS = [
    ("sorbctl", lambda r: r.set_jbod_state("on", adapter_id="0"), "set_controller_jbod_sorbctl",
     "self", [("adapter_id", "0"), ("jbod", "rawdrive")]),
    ("storcli64", lambda r: r.set_ctl_restart(adapter_id="0"), "set_ctl_restart_storcli64", "host",
     [("adapter_id", "0")]),
    ("storcli64", lambda r: r.set_ctl_restart_switch("off"), "set_ctl_restart_switch_storcli64",
     "host", [("state", "off")]),
    ("storcli64", lambda r: r.set_ctl_auto_rebuild(state="on"), "set_ctl_auto_rebuild_storcli64",
     "host", [("state", "on")]),
    ("storcli64", lambda r: r.set_controller_emergency_hotspare_switch("on", adapter_id="0"),
     "ctr_set_eghs_cfg_storcli64", "host", [("switch", "on"), ("adapter_id", "0"), ("eug", "on")]),
    ("storcli64", lambda r: r.set_controller_emergency_hotspare_switch("off", "smarter"),
     "ctr_set_eghs_cfg_storcli64", "host", [("switch", "off"), ("smarter", "off")]),
    ("sorbctl", lambda r: r.set_controller_emergency_hotspare_switch("on", "smarter"),
     "set_controller_ehsp_sorbctl", "host", [("switch", "on"), ("state", "on")]),
    ("arcconf", lambda r: r.set_controller_pdcache(state="off", adapter_id="0"),
     "set_controller_pdcache_arcconf", "self",
     [("state", "2"), ("adapter_id", "0"), ("drive_type", "unconfigured")]),
    ("arcconf", lambda r: r.set_controller_pdcache(state="on"), "set_controller_pdcache_arcconf",
     "self", [("state", "1"), ("drive_type", "unconfigured")]),
    ("arcconf", lambda r: r.set_controller_pdcache(state="On"), "set_controller_pdcache_arcconf",
     "self", [("state", None), ("drive_type", "unconfigured")]),
    ("storcli64", lambda r: r.set_controller_foreign_config(oper="import", adapter_id="0"),
     "vd_foreign_operate_storcli64", "host", [("oper", "import"), ("adapter_id", "0")]),
    ("sorbctl", lambda r: r.set_controller_foreign_config(oper="delete", adapter_id="0"),
     "clear_controller_fncfg_sorbctl", "host", [("oper", "delete"), ("adapter_id", "0")]),
    ("sorbctl", lambda r: r.set_controller_foreign_config(oper="import"),
     "import_controller_fncfg_sorbctl", "host", [("oper", "import")]),
]


@pytest.mark.parametrize("tool, call, wrapper, route, params", SETTERS)
def test_setters_send_edited_params(rig, tool, call, wrapper, route, params):
    raid, host = rig(tool)
    host.on(wrapper, parser("Set success"))
    assert call(raid) is True
    assert host.sent() == [(route, wrapper, params)]


@pytest.mark.parametrize("oper", ["merge", "Delete"])
def test_sorbctl_foreign_config_names_the_unknown_operation(rig, oper):
    raid, host = rig("sorbctl")
    with pytest.raises(OrvexException) as err:
        raid.set_controller_foreign_config(oper=oper)
    assert str(err.value) == "7460卡sorbctl工具不支持[%s]操作" % oper
    assert host.calls == []


@pytest.mark.parametrize("state, mode, answer", [
    ("on", "5", "Command completed successfully."), ("off", "3", "Command failed."),
    ("auto", "auto", None)])
def test_jbod_arcconf_switches_mode_waits_and_reports_true(rig, sleeps, state, mode, answer):
    raid, host = rig("arcconf")
    sleeps_at_dispatch = []
    host.on("ctr_set_ctrl_mode_arcconf",
            lambda params: sleeps_at_dispatch.append(len(sleeps)) or parser(answer))
    assert raid.set_jbod_state(state, adapter_id="0") is True
    assert host.sent() == [("self", "ctr_set_ctrl_mode_arcconf", [("adapter_id", "0"),
                                                                  ("mode", mode)])]
    assert sleeps_at_dispatch == [0] and sleeps == [10]  # the wait comes after the mode change


def props(*rows):
    return {"Controller Properties": [{"Ctrl_Prop": p, "Value": v} for p, v in rows]}


# (operation, tool, wrapper, route, parser entry, result or the error raised)
QUERIES = [
    ("query_jbod_info", "sorbctl", "get_controller_jbod_sorbctl", "self", {"Jbod": "RawDrive"}, "ON"),
    ("query_jbod_info", "sorbctl", "get_controller_jbod_sorbctl", "self", {"Jbod": "off"}, "OFF"),
    ("query_jbod_info", "sorbctl", "get_controller_jbod_sorbctl", "self", {"Jbod": "raid"}, "RAID"),
    ("query_jbod_info", "sorbctl", "get_controller_jbod_sorbctl", "self", {"JBOD": "on"}, KeyError),
    ("query_jbod_info", "arcconf", "ctr_get_adpt_cfg_arcconf", "self",
     {"controller_information": {"controller_mode": "RAID (Hide RAW)"}}, "OFF"),
    ("query_jbod_info", "arcconf", "ctr_get_adpt_cfg_arcconf", "self",
     {"controller_information": {"controller_mode": "Mixed"}}, "ON"),
    ("query_jbod_info", "arcconf", "ctr_get_adpt_cfg_arcconf", "self",
     {"controller_information": {"controller_mode": "mixed"}}, "mixed"),
    ("query_jbod_info", "arcconf", "ctr_get_adpt_cfg_arcconf", "self",
     {"controller_information": {}}, KeyError),
    ("get_ctl_current_time", "storcli64", "ctr_get_controll_time_storcli64", "self",
     {"Controller": [{"Ctrl_Prop": "Time", "Value": "2021/11/22 19:06:45"},
                     {"Ctrl_Prop": "Time", "Value": "1999/01/01 00:00:00"}]}, "2021/11/22 19:06:45"),
    ("get_controller_ehsp", "storcli64", "ctr_get_eghs_storcli64", "host",
     props(("EmergencyGHS", "off"), ("EmergencyUG", "on"), ("EmergencyUG", "off")), "ON"),
    ("get_controller_ehsp", "storcli64", "ctr_get_eghs_storcli64", "host",
     props(("EmergencyGHS", "on"), ("EmergencySMART", "on")), None),
    ("get_controller_ehsp", "sorbctl", "get_controller_ehsp_sorbctl", "host",
     {"Ehsp Switch": "Off"}, "OFF"),
    ("get_bootwithpinnedcache", "storcli64", "ctr_get_bootwithpinnedcache_storcli64", "self",
     props(("Boot With Pinned Cache", "On"), ("Other", "off")), "ON"),
    ("get_bootwithpinnedcache", "sorbctl", "get_controller_bootwithpinnedcache_sorbctl", "self",
     {"Boot With Pinned Cache Switch": "off"}, "OFF"),
]


@pytest.mark.parametrize("op, tool, wrapper, route, parsed, expected", QUERIES)
def test_queries(rig, op, tool, wrapper, route, parsed, expected):
    raid, host = rig(tool)
    host.on(wrapper, parser(copy.deepcopy(parsed)))  # some variants edit the answer
    if expected is KeyError:
        with pytest.raises(KeyError):
            getattr(raid, op)()
    else:
        assert getattr(raid, op)(adapter_id="1") == expected
        assert host.sent() == [(route, wrapper, [("adapter_id", "1")])]


# -- information --------------------------------------------------------------

def test_driver_info_sorbctl_asks_modinfo_for_its_driver(rig):
    raid, host = rig("sorbctl")
    host.on("modinfo", parser({"filename": "/lib/modules/sorbdrv.ko", "version": "1.2.3.4"}),
            parser({}))
    result = raid.query_controller_driver_info()
    assert list(result.items()) == [("DriverName", "sorbdrv"), ("DriverVersion", "1.2.3.4")]
    assert raid.query_controller_driver_info() == {"DriverName": "sorbdrv", "DriverVersion": None}
    assert host.sent()[0] == ("self", "modinfo", [("modname", "sorbdrv")])


@pytest.mark.parametrize("tool, wrapper", [("sorbctl", "get_controller_config_sorbctl"),
                                           ("arcconf", "ctr_get_adpt_cfg_arcconf")])
def test_raid_config_is_the_parser_entry(rig, tool, wrapper):
    raid, host = rig(tool)
    config = {"CopyBack Rate": "low", "Rebuild Rate": "high"}
    host.on(wrapper, parser(config), {"stdout": "nothing parsed"})
    assert raid.query_raid_config(adp_id="1") is config
    with pytest.raises(KeyError):
        raid.query_raid_config()
    assert host.sent() == [("self", wrapper, [("adp_id", "1")]), ("self", wrapper, [])]


STORCLI_SHOW_ALL = {
    "Basics": {"Controller": "0", "Serial Number": "SK12345", "SAS Address": "500e004aaaaaaa00"},
    "Version": {"Firmware Version": "5.060.00-2262", "Driver Version": "07.714.04.00"},
    "Bus": {"Vendor Id": "0x1000", "Device Id": "0x10E2", "Bus Number": "59"},
    "Status": {"Controller Status": "Optimal"},
    "HwCfg": {"ROC temperature(Degree Celsius)": "54", "On Board Memory Size": "2.000 GB"},
    "Capabilities": {"Supported Drives": "SAS, SATA"},
    "Physical Drives": 8,
    "Virtual Drives": 2,
}
ARCCONF_CFG = {
    "controller_information": {"controller_status": "Optimal", "firmware": "5.060.00-2262",
                               "temperature": "54", "installed_memory": "2.000 GB",
                               "pci_bus": "59", "controller_mode": "Mixed"},
    "logical_device_information": [],
}
SORBCTL_STATUS = {"FwVersion": "5.060.00-2262", "Temperature": "54", "DdrSize": "2.000 GB",
                  "BusNumber": "59", "Status": "Normal"}
STATUS_ANSWERS = [  # (tool, wrapper, route, parser entry)
    ("storcli64", "ctr_get_all_cfg_storcli64", "self", STORCLI_SHOW_ALL),
    ("arcconf", "ctr_get_adpt_cfg_arcconf", "host", ARCCONF_CFG),
    ("sorbctl", "get_controller_status_sorbctl", "self", SORBCTL_STATUS),
]


@pytest.mark.parametrize("tool, wrapper, route, parsed", STATUS_ANSWERS)
def test_controller_status(rig, tool, wrapper, route, parsed):
    raid, host = rig(tool)
    host.on(wrapper, parser(parsed))
    result = raid.get_controller_status_raid(adp_id="0")
    assert type(result) is dict and list(result)[-1] == "raw_data"
    assert [result[k] for k in ("firmware_version", "temperature", "ddr_size", "bus_number",
                                "psoc_pn")] == ["5.060.00-2262", "54", "2.000 GB", "59", ""]
    assert result["raw_data"] == {
        "storcli64": dict({k: v for name in ("Basics", "Version", "Bus", "Status", "HwCfg")
                           for k, v in STORCLI_SHOW_ALL[name].items()},
                          **{"Physical Drives": 8, "Virtual Drives": 2}),
        "arcconf": ARCCONF_CFG["controller_information"], "sorbctl": SORBCTL_STATUS}[tool]
    assert host.sent() == [(route, wrapper, [("adp_id", "0")])]
    if tool == "arcconf":
        host.on(wrapper, parser({"logical_device_information": []}))
        with pytest.raises(KeyError):
            raid.get_controller_status_raid()


def test_controller_status_storcli64_uses_treatments_layer_map(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_all_cfg_storcli64", parser(STORCLI_SHOW_ALL))
    seen = []
    raid.formatter.storcli64_get_controller_status_raid_treatments = lambda: {
        "Version": True, "Status": False}
    raid.formatter.get_controller_status_raid_format = lambda data: seen.append(data) or {
        "shaped": data["firmware_version"]}
    assert raid.get_controller_status_raid() == {"shaped": "5.060.00-2262"}
    assert seen[0]["raw_data"] == {"Firmware Version": "5.060.00-2262",
                                   "Driver Version": "07.714.04.00",
                                   "Status": {"Controller Status": "Optimal"}}
    assert seen[0]["driver_version"] == "07.714.04.00"
