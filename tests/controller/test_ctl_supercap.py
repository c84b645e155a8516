"""Supercapacitor: capacitor record, self-learn start and self-learn record."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.formats import Template
from orvex_sim.recorder import parser


# A small template, so that results can be compared whole.
SMALL = Template({
    "storcli64": {"Status": "State", "Temperature": "Temperature", "SN": "Serial Number"},
    "sorbctl": {"Status": "Status", "Temperature": "Temp"},
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
CV_SIMPLE = {"Cachevault_Info": [{"Model": "CVPM05", "State": "Optimal", "Temp": "34C"}]}


@pytest.mark.parametrize("tool, wrapper, parsed, args, result", [
    ("storcli64", "ctr_get_cv_all_storcli64", CV_ALL, ("all",),
     {"Status": "Optimal", "Temperature": "34 C", "SN": "15231", "raw_data": CV_FLAT}),
    ("storcli64", "ctr_get_cv_all_storcli64", CV_SIMPLE, ("simple",),
     {"Status": "Optimal", "Temperature": "", "SN": "", "raw_data": CV_SIMPLE["Cachevault_Info"][0]}),
    ("sorbctl", "get_controller_supercap_sorbctl", {"Status": "OK", "Pack Missing": "Yes", "Temp": "30 C"},
     ("brief",), {"Status": "Pack Missing", "Temperature": "30 C",
                  "raw_data": {"Status": "Pack Missing", "Pack Missing": "Yes", "Temp": "30 C"}}),
    ("sorbctl", "get_controller_supercap_sorbctl", {"Pack Missing": "Yes"}, ("all",),
     {"Status": "Pack Missing", "Temperature": "",
      "raw_data": {"Pack Missing": "Yes", "Status": "Pack Missing"}}),
])
def test_capacitance_record(rig, tool, wrapper, parsed, args, result):
    raid, host = rig(tool)
    host.on(wrapper, parser(parsed))
    raid.formatter.get_capacitance_info_format = SMALL
    out = raid.get_capacitance_info(*args, adapter_id="0")
    assert out == result and list(out) == list(result)
    assert list(out["raw_data"]) == list(result["raw_data"])
    assert host.sent() == [("self", wrapper, [("information", args[0]), ("adapter_id", "0")])]


@pytest.mark.parametrize("information", ["brief", None])
def test_capacitance_storcli64_bad_information_raises_after_query(rig, information):
    raid, host = rig("storcli64")
    host.on("ctr_get_cv_all_storcli64", parser(CV_ALL))
    with pytest.raises(OrvexException) as err:
        raid.get_capacitance_info(information=information)
    assert str(err.value) == 'LSI卡查询电容all参数错误: 全部信息all="all" 简要信息all="simple"'
    assert host.wrappers == ["ctr_get_cv_all_storcli64"]


# -- self-learn start ---------------------------------------------------------

def clock(raid, text):
    """Stands in for the dispatcher: answers system_clock, insists on the params keyword."""
    seen = []

    def dispatch(name, *, params):
        seen.append((name, list(params.items())))
        return [{"parser": [text, "second line"]}]

    raid.dispatcher.dispatch = dispatch
    return seen


@pytest.mark.parametrize("now, starttime", [("2022-12-09,11:10:15", "2022-12-09,11:10:15"),
                                            ("2022-1-9,1:2:3", "2022-01-09,01:02:03")])
@pytest.mark.parametrize("kwargs, params", [
    ({"adapter_id": "0"}, [("adapter_id", "0"), ("starttime", "NOW"), ("cycle", "30")]),
    ({"starttime": "", "cycle": ""}, [("starttime", "NOW"), ("cycle", "30")]),
    ({"cycle": "7", "starttime": None}, [("cycle", "7"), ("starttime", "NOW")]),
    ({"starttime": "2023/01/01 10:00:00", "cycle": "1"},  # no clock read
     [("starttime", "2023/01/01 10:00:00"), ("cycle", "1")]),
])
def test_supercap_learn_sorbctl_fills_clock_and_cycle(rig, now, starttime, kwargs, params):
    raid, host = rig("sorbctl")
    seen = clock(raid, now)
    host.on("set_supercap_self_learn_sorbctl", parser("Set supercap self learn success"),
            parser("Learn cycle set"))
    assert raid.set_supercap_learn(**kwargs) is True
    read = [("system_clock", [("formatter", '"+%Y-%m-%d,%H:%M:%S"')])]
    assert seen == (read if ("starttime", "NOW") in params else [])
    assert host.sent() == [("self", "set_supercap_self_learn_sorbctl",
                           [(k, starttime if v == "NOW" else v) for k, v in params])]
    assert raid.set_supercap_learn(**kwargs) is False  # an answer without "success"


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
    assert list(result.items()) == [
        ("Last_learn_status", "OK"), ("Last_learn_time", "2022-12-09 11:10:15"),
        ("Learn_cycle", "30day"), ("Next_learn_time", "2023-01-08 11:10:15"),
        ("Present", present), ("raw_data", raw)]
    assert host.sent() == [("self", wrapper, [("adapter_id", "0")])]


@pytest.mark.parametrize("op, wrapper, message", [
    ("set_supercap_learn", "set_supercap_self_learn_sorbctl",
     "设置超级电容自学习失败，请检查回显报错信息"),
    ("get_supercap_self_learn_info", "get_supercap_self_learn_sorbctl",
     "查询超级电容自学习信息失败，请检查回显报错信息"),
])
def test_sorbctl_fail_answer_raises(rig, op, wrapper, message):
    raid, host = rig("sorbctl")
    host.on(wrapper, parser("fail"))
    with pytest.raises(OrvexException) as err:
        getattr(raid, op)(starttime="2022-12-09,11:10:15", cycle="30")
    assert str(err.value) == message
    assert host.wrappers == [wrapper]
