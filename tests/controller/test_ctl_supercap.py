"""Supercapacitor: capacitor record, self-learn start and self-learn record."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.formats import Template
from orvex_sim.recorder import parser

CAP_KEYS = ["Status", "Device Name", "Temperature", "SN", "Supercap SN", "Module Version",
            "Supercap Date of Manufacture", "Date of Manufacture", "PCB Version"]


def sent(host):
    return [(c.route, c.wrapper, list(c.params.items())) for c in host.calls]


LEARN_KEYS = ["Last_learn_status", "Last_learn_time", "Learn_cycle", "Next_learn_time", "Present"]

# A small template, so that results can be compared whole.
SMALL = Template({
    "storcli64": {"Status": "State", "Temperature": "Temperature", "SN": "Serial Number"},
    "sorbctl": {"Status": "Status", "Temperature": "Temp"},
    "arcconf": {"Status": "backup_unit_status"},
})

CV_ALL = {
    "Cachevault_Info": [{"Property": "Model", "Value": "CVPM05"},
                        {"Property": "State", "Value": "Degraded"},
                        {"Property": "Temperature", "Value": "34 C"}],
    "Firmware_Status": [{"Property": "Replacement required", "Value": "No"}],
    "Design_Info": [{"Property": "Serial Number", "Value": "15231"},
                    {"Property": "State", "Value": "Optimal"}],  # a later equal name wins
}
CV_FLAT = {"Model": "CVPM05", "State": "Optimal", "Temperature": "34 C",
           "Replacement required": "No", "Serial Number": "15231"}

CV_SIMPLE = {
    "Cachevault_Info": [{"Model": "CVPM05", "State": "Optimal", "Temp": "34C", "MfgDate": "2021/03/04"}],
}


# -- capacitor record ---------------------------------------------------------

def test_capacitance_storcli64_all_flattens_property_tables(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_cv_all_storcli64", parser(CV_ALL))
    raid.formatter.get_capacitance_info_format = SMALL
    result = raid.get_capacitance_info(adapter_id="0")
    assert result == {"Status": "Optimal", "Temperature": "34 C", "SN": "15231",
                      "raw_data": CV_FLAT}
    assert list(result) == ["Status", "Temperature", "SN", "raw_data"]
    assert list(result["raw_data"]) == list(CV_FLAT)
    assert sent(host) == [("self", "ctr_get_cv_all_storcli64", [("information", "all"), ("adapter_id", "0")])]


def test_capacitance_storcli64_simple_merges_rows(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_cv_all_storcli64", parser(CV_SIMPLE))
    raid.formatter.get_capacitance_info_format = SMALL
    result = raid.get_capacitance_info("simple")
    assert result == {"Status": "Optimal", "Temperature": "", "SN": "",
                      "raw_data": CV_SIMPLE["Cachevault_Info"][0]}
    assert list(host.last().params.items()) == [("information", "simple")]


@pytest.mark.parametrize("information", ["brief", None])
def test_capacitance_storcli64_bad_information_raises_after_query(rig, information):
    raid, host = rig("storcli64")
    host.on("ctr_get_cv_all_storcli64", parser(CV_ALL))
    with pytest.raises(OrvexException) as err:
        raid.get_capacitance_info(information=information)
    assert str(err.value) == 'LSI卡查询电容all参数错误: 全部信息all="all" 简要信息all="simple"'
    assert host.wrappers == ["ctr_get_cv_all_storcli64"]


@pytest.mark.parametrize("record, status", [
    ({"Status": "OK", "Pack Missing": "Yes", "Temp": "30 C"}, "Pack Missing"),
    ({"Status": "OK", "Pack Missing": "No", "Temp": "30 C"}, "OK"),
    ({"Pack Missing": "Yes"}, "Pack Missing"),
])
@pytest.mark.parametrize("information", ["all", "brief"])
def test_capacitance_sorbctl(rig, record, status, information):
    raid, host = rig("sorbctl")
    host.on("get_controller_supercap_sorbctl", parser(dict(record)))
    raid.formatter.get_capacitance_info_format = SMALL
    result = raid.get_capacitance_info(information, adapter_id="0")
    assert result["Status"] == status
    assert result["Temperature"] == record.get("Temp", "")
    assert result["raw_data"]["Status"] == status
    assert sent(host) == [("self", "get_controller_supercap_sorbctl", [("information", information), ("adapter_id", "0")])]


def test_capacitance_arcconf_reads_controller_section(rig):
    raid, host = rig("arcconf")
    info = {"controller_mode": "RAID (Hide RAW)", "backup_unit_status": "Ready"}
    host.on("ctr_get_adpt_cfg_arcconf", parser({"controller_information": info, "other": {}}))
    raid.formatter.get_capacitance_info_format = SMALL
    assert raid.get_capacitance_info("brief") == {"Status": "Ready", "raw_data": info}
    assert list(host.last().params.items()) == [("information", "brief")]
    host.on("ctr_get_adpt_cfg_arcconf", parser({}))
    with pytest.raises(KeyError):
        raid.get_capacitance_info()


@pytest.mark.parametrize("tool, wrapper, parsed, raw", [
    ("storcli64", "ctr_get_cv_all_storcli64", CV_ALL, CV_FLAT),
    ("sorbctl", "get_controller_supercap_sorbctl", {"Status": "OK", "Temperature": "34 C"},
     {"Status": "OK", "Temperature": "34 C"}),
    ("arcconf", "ctr_get_adpt_cfg_arcconf", {"controller_information": {"backup_unit_status": "Ready"}},
     {"backup_unit_status": "Ready"}),
])
def test_capacitance_record_carries_documented_keys(rig, tool, wrapper, parsed, raw):
    raid, host = rig(tool)
    host.on(wrapper, parser(parsed))
    result = raid.get_capacitance_info()
    assert set(CAP_KEYS) <= set(result)
    assert result["raw_data"] == raw
    assert list(result)[-1] == "raw_data"
    assert result["Status"] in ("Optimal", "OK", "Ready")


# -- self-learn start ---------------------------------------------------------

def clock(raid, text):
    """Stands in for the dispatcher: answers system_clock, insists on the params keyword."""
    seen = []

    def dispatch(name, *, params):
        seen.append((name, list(params.items())))
        return [{"parser": [text, "second line"]}]

    raid.dispatcher.dispatch = dispatch
    return seen


@pytest.mark.parametrize("now, starttime", [
    ("2022-12-09,11:10:15", "2022-12-09,11:10:15"),
    ("2022-1-9,1:2:3", "2022-01-09,01:02:03"),
])
@pytest.mark.parametrize("kwargs, params", [
    ({"adapter_id": "0"}, [("adapter_id", "0"), ("starttime", None), ("cycle", "30")]),
    ({"starttime": "", "cycle": ""}, [("starttime", None), ("cycle", "30")]),
    ({"cycle": "7", "starttime": None}, [("cycle", "7"), ("starttime", None)]),
])
def test_supercap_learn_sorbctl_fills_clock_and_cycle(rig, now, starttime, kwargs, params):
    raid, host = rig("sorbctl")
    seen = clock(raid, now)
    host.on("set_supercap_self_learn_sorbctl", parser("Set supercap self learn success"))
    assert raid.set_supercap_learn(**kwargs) is True
    assert seen == [("system_clock", [("formatter", '"+%Y-%m-%d,%H:%M:%S"')])]
    assert sent(host) == [("self", "set_supercap_self_learn_sorbctl", [(k, starttime if k == "starttime" else v) for k, v in params])]


def test_supercap_learn_sorbctl_keeps_given_start_time(rig):
    raid, host = rig("sorbctl")
    host.on("set_supercap_self_learn_sorbctl", parser("Learn cycle set"))
    assert raid.set_supercap_learn(starttime="2023/01/01 10:00:00", cycle="1") is False
    assert sent(host) == [("self", "set_supercap_self_learn_sorbctl",  # no clock read
                           [("starttime", "2023/01/01 10:00:00"), ("cycle", "1")])]


@pytest.mark.parametrize("answer, expected", [
    (parser("Start CacheVault Learn success"), True),
    (parser("fail"), False),  # storcli64 never raises on the answer
    ({"rc": 1}, False),
])
def test_supercap_learn_storcli64(rig, answer, expected):
    raid, host = rig("storcli64")
    host.on("ctr_start_cv_learn_storcli64", answer)
    assert raid.set_supercap_learn(adapter_id="0", cycle="7") is expected
    assert sent(host) == [("self", "ctr_start_cv_learn_storcli64", [("adapter_id", "0"), ("cycle", "7")])]


@pytest.mark.parametrize("op, message", [
    ("set_supercap_learn", "PMC卡arcconf工具没有 设置超级电容自学习 功能"),
    ("get_supercap_self_learn_info", "PMC卡arcconf工具没有 查询超级电容自学习信息 功能"),
])
def test_arcconf_refuses_self_learn(rig, op, message):
    raid, host = rig("arcconf")
    with pytest.raises(OrvexException) as err:
        getattr(raid, op)(adapter_id="0")
    assert str(err.value) == message
    assert host.calls == []


# -- self-learn record --------------------------------------------------------

CV_LEARN = {
    "Cachevault_Learn": [{"Property": "Last Learn Status", "Value": "OK"},
                         {"Property": "Last Learn time", "Value": "2022-12-09 11:10:15"}],
    "Cachevault_Schedule": [{"Property": "Auto Learn Period", "Value": "30day"},
                            {"Property": "Next Learn time", "Value": "2023-01-08 11:10:15"}],
}


SORB_LEARN = {"Present": "Yes", "Last Learn Status": "OK",
              "Last Learn Time": "2022-12-09 11:10:15", "Learn Cycle": "30day",
              "Next Learn Time": "2023-01-08 11:10:15"}


@pytest.mark.parametrize("tool, wrapper, parsed, present, raw", [
    ("storcli64", "ctr_get_cv_learn_storcli64", CV_LEARN, "",
     {"Last Learn Status": "OK", "Last Learn time": "2022-12-09 11:10:15",
      "Auto Learn Period": "30day", "Next Learn time": "2023-01-08 11:10:15"}),
    ("sorbctl", "get_supercap_self_learn_sorbctl", SORB_LEARN, "Yes", SORB_LEARN),
])
def test_self_learn_record(rig, tool, wrapper, parsed, present, raw):
    raid, host = rig(tool)
    host.on(wrapper, parser(parsed))
    result = raid.get_supercap_self_learn_info(adapter_id="0")
    assert result == {"Last_learn_status": "OK", "Last_learn_time": "2022-12-09 11:10:15",
                      "Learn_cycle": "30day", "Next_learn_time": "2023-01-08 11:10:15",
                      "Present": present, "raw_data": raw}
    assert list(result) == LEARN_KEYS + ["raw_data"]
    assert sent(host) == [("self", wrapper, [("adapter_id", "0")])]


@pytest.mark.parametrize("op, wrapper, message", [
    ("set_supercap_learn", "set_supercap_self_learn_sorbctl", "设置超级电容自学习失败，请检查回显报错信息"),
    ("get_supercap_self_learn_info", "get_supercap_self_learn_sorbctl", "查询超级电容自学习信息失败，请检查回显报错信息"),
])
def test_sorbctl_fail_answer_raises(rig, op, wrapper, message):
    raid, host = rig("sorbctl")
    host.on(wrapper, parser("fail"))
    with pytest.raises(OrvexException) as err:
        getattr(raid, op)(starttime="2022-12-09,11:10:15", cycle="30")
    assert str(err.value) == message
    assert host.wrappers == [wrapper]
