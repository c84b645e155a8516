"""Controller discovery and information: list, count, driver, config, status, capabilities."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

TOOLS = ("storcli64", "arcconf", "sorbctl")


def sent(host):
    return [(c.route, c.wrapper, list(c.params.items())) for c in host.calls]

STATUS_KEYS = ["sas_address", "firmware_version", "driver_version", "vendor_id", "psoc_pn",
               "psoc_firmware_version", "device_id", "sub_vendor_id", "sub_device_id", "domain_number",
               "bus_number", "device_number", "function_number", "serial_number", "pcie_width",
               "pcie_speed", "temperature", "pd_number", "vd_number", "ddr_size"]


# -- list, count, driver ------------------------------------------------------

def test_all_controllers_sorbctl_dispatches_by_name_alone(rig):
    raid, host = rig("sorbctl")
    controllers = [{"ControllerId": "0"}, {"ControllerId": "1"}]
    host.on("get_controller_controllerid_sorbctl", parser({"Controllers": controllers, "Count": 2}))
    assert raid.get_all_controllers() is controllers
    assert host.calls == [("self", "get_controller_controllerid_sorbctl", None)]


REFUSALS = [(t, op, {}, "工具[%s]没有操作[_%s]的实现" % (t, op)) for t in ("storcli64", "arcconf")
            for op in ("get_all_controllers", "query_controller_driver_info")] + [
    ("storcli64", "get_controller_info_raid", {"adapter_id": "0"}, "博通卡 暂未提供查询控制器信息 功能"),
    ("arcconf", "get_controller_info_raid", {"adapter_id": "0"}, "PMC卡 暂未提供查询控制器信息 功能"),
]


@pytest.mark.parametrize("tool, op, kwargs, message", REFUSALS)
def test_refusals_raise_before_any_dispatch(rig, tool, op, kwargs, message):
    raid, host = rig(tool)
    with pytest.raises(OrvexException) as err:
        getattr(raid, op)(**kwargs)
    assert str(err.value) == message
    assert host.calls == []


@pytest.mark.parametrize("op", ["get_all_controllers", "query_controller_number",
                                "query_controller_driver_info"])
@pytest.mark.parametrize("tool", TOOLS)
def test_operations_without_parameters_reject_keywords(rig, op, tool):
    raid, host = rig(tool)
    with pytest.raises(TypeError):
        getattr(raid, op)(adapter_id="0")
    assert host.calls == []


@pytest.mark.parametrize("tool", TOOLS)
def test_controller_number(rig, tool):
    raid, host = rig(tool)
    host.on("get_controller_number_%s" % tool, parser("2"))
    assert raid.query_controller_number() == "2"
    assert host.calls == [("self", "get_controller_number_%s" % tool, None)]


def test_driver_info_sorbctl(rig):
    raid, host = rig("sorbctl")
    host.on("modinfo", parser({"filename": "/lib/modules/sorbdrv.ko", "version": "1.2.3.4"}))
    result = raid.query_controller_driver_info()
    assert list(result.items()) == [("DriverName", "sorbdrv"), ("DriverVersion", "1.2.3.4")]
    assert sent(host) == [("self", "modinfo", [("modname", "sorbdrv")])]
    host.on("modinfo", parser({}))
    assert raid.query_controller_driver_info() == {"DriverName": "sorbdrv", "DriverVersion": None}


# -- configuration --------------------------------------------------------------

@pytest.mark.parametrize("tool, wrapper, kwargs", [
    ("sorbctl", "get_controller_config_sorbctl", {"adp_id": "1"}),
    ("arcconf", "ctr_get_adpt_cfg_arcconf", {"adp_id": "1"}),
])
def test_raid_config_indexes_parser(rig, tool, wrapper, kwargs):
    raid, host = rig(tool)
    config = {"CopyBack Rate": "low", "Rebuild Rate": "high"}
    host.on(wrapper, parser(config), {"stdout": "nothing parsed"})
    assert raid.query_raid_config(**kwargs) is config
    assert sent(host) == [("self", wrapper, list(kwargs.items()))]
    with pytest.raises(KeyError):
        raid.query_raid_config()
    assert host.calls[-1].params == {}


def test_raid_config_storcli64_returns_whole_answer(rig):
    raid, host = rig("storcli64")
    answer = [{"parser": {"CopyBack Rate": "low"}}, "exit 0"]
    host.on("storcli64_get_lsi_raid_detail_config", answer)
    assert raid.query_raid_config(adapter_id="0") is answer
    assert sent(host) == [("self", "storcli64_get_lsi_raid_detail_config", [("adapter_id", "0")])]


# -- status -------------------------------------------------------------------

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


@pytest.mark.parametrize("tool, wrapper, route, parsed, record", [
    ("storcli64", "ctr_get_all_cfg_storcli64", "self", STORCLI_SHOW_ALL,
     dict({k: v for name in ("Basics", "Version", "Bus", "Status", "HwCfg")
           for k, v in STORCLI_SHOW_ALL[name].items()}, **{"Physical Drives": 8, "Virtual Drives": 2})),
    ("arcconf", "ctr_get_adpt_cfg_arcconf", "host", ARCCONF_CFG, ARCCONF_CFG["controller_information"]),
    ("sorbctl", "get_controller_status_sorbctl", "self", SORBCTL_STATUS, SORBCTL_STATUS),
])
def test_controller_status(rig, tool, wrapper, route, parsed, record):
    raid, host = rig(tool)
    host.on(wrapper, parser(parsed))
    result = raid.get_controller_status_raid(adp_id="0")
    assert type(result) is dict and list(result) == STATUS_KEYS + ["raw_data"]
    assert [result[k] for k in ("firmware_version", "temperature", "ddr_size", "bus_number",
                                "psoc_pn")] == ["5.060.00-2262", "54", "2.000 GB", "59", ""]
    assert result["raw_data"] == record
    assert sent(host) == [(route, wrapper, [("adp_id", "0")])]


def test_controller_status_storcli64_uses_treatments_layer_map(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_all_cfg_storcli64", parser(STORCLI_SHOW_ALL))
    seen = []

    def fake_format(data):
        seen.append(data)
        return {"shaped": data["firmware_version"]}

    raid.formatter.storcli64_get_controller_status_raid_treatments = lambda: {"Version": True, "Status": False}
    raid.formatter.get_controller_status_raid_format = fake_format
    assert raid.get_controller_status_raid() == {"shaped": "5.060.00-2262"}
    merged = {"Firmware Version": "5.060.00-2262", "Driver Version": "07.714.04.00",
              "Status": {"Controller Status": "Optimal"}}
    assert seen[0]["raw_data"] == merged
    assert seen[0]["driver_version"] == "07.714.04.00"


@pytest.mark.parametrize("tool, wrapper, parsed", [
    ("storcli64", "ctr_get_all_cfg_storcli64", STORCLI_SHOW_ALL),
    ("arcconf", "ctr_get_adpt_cfg_arcconf", ARCCONF_CFG),
    ("sorbctl", "get_controller_status_sorbctl", SORBCTL_STATUS),
])
def test_controller_status_must_be_a_dict(rig, tool, wrapper, parsed):
    raid, host = rig(tool)
    host.on(wrapper, parser(parsed))
    raid.formatter.get_controller_status_raid_format = lambda data: ["not", "a", "dict"]
    with pytest.raises(TypeError) as err:
        raid.get_controller_status_raid()
    assert str(err.value) == "Expected dict, got list"
    assert len(host.calls) == 1  # the variant ran before the check
    raid.formatter.get_controller_status_raid_format = lambda data: None
    assert raid.get_controller_status_raid() is None


def test_controller_status_arcconf_needs_controller_section(rig):
    raid, host = rig("arcconf")
    host.on("ctr_get_adpt_cfg_arcconf", parser({"logical_device_information": []}))
    with pytest.raises(KeyError):
        raid.get_controller_status_raid()
    assert host.calls[0].route == "host"


# -- capability information -------------------------------------------------------

def test_controller_info_sorbctl(rig):
    raid, host = rig("sorbctl")
    caps = {"BpSupport": "Yes", "CtrlMod": "RAID", "EP_PCIeWidth": "x8", "MaxSuSize": "1024KB"}
    host.on("get_controller_info_sorbctl", parser(caps))
    result = raid.get_controller_info_raid(adapter_id="0")
    assert result == [{"BpSupport": "Yes"}, {"CtrlMod": "RAID"}, {"EP_PCIeWidth": "x8"}, {"MaxSuSize": "1024KB"}]
    assert sent(host) == [("self", "get_controller_info_sorbctl", [("adapter_id", "0")])]


class Rows(list):
    pass


@pytest.mark.parametrize("shaped, error", [
    ({"BpSupport": "Yes"}, "Expected list, got dict"),
    (Rows([{"BpSupport": "Yes"}]), "Expected list, got Rows"),
])
def test_controller_info_must_be_exactly_a_list(rig, shaped, error):
    raid, host = rig("sorbctl")
    host.on("get_controller_info_sorbctl", parser({"BpSupport": "Yes"}))
    raid.formatter.get_controller_info_raid_format = lambda parsed: shaped
    with pytest.raises(TypeError) as err:
        raid.get_controller_info_raid()
    assert str(err.value) == error
    rows = [{"BpSupport": "Yes"}]
    raid.formatter.get_controller_info_raid_format = lambda parsed: rows
    assert raid.get_controller_info_raid() is rows
