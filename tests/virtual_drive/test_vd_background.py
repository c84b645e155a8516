"""Virtual drive background operations: consistency check, initialisation,
background initialisation and erase."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

OK = parser("Start CC success")
NO = parser("Start CC failed")

STATUS_ROW = {"VD": "0", "Operation": "CC", "Progress%": "12", "Status": "In progress",
              "Estimated Time Left": "5 Minutes"}


def run(rig, tool, wrapper, call, answer=OK):
    raid, host = rig(tool)
    host.on(wrapper, answer)
    return call(raid), host


# (tool, call, wrapper, params as sent)
ACTIONS = [
    ("storcli64", lambda r: r.set_virtual_drive_cc("0", "pause"),
     "vd_state_cc_storcli64", [("vid", "0"), ("state", "pause")]),
    ("storcli64", lambda r: r.set_virtual_drive_cc("0", "start", force="force", adapter_id="1"),
     "vd_state_cc_storcli64", [("vid", "0"), ("state", "start"), ("force", "force"),
                               ("adapter_id", "1")]),
    ("sorbctl", lambda r: r.set_virtual_drive_cc(vid="1", state="start", delay="10"),
     "start_controller_vd_ccheck_sorbctl", [("vid", "1"), ("state", "start"), ("delay", "10")]),
    ("sorbctl", lambda r: r.set_virtual_drive_cc("1", "stop"),
     "stop_controller_vd_ccheck_sorbctl", [("vid", "1"), ("state", "stop")]),
    ("storcli64", lambda r: r.set_virtual_drive_init_option(vid="0", state="start", force=True),
     "vd_state_init_storcli64", [("vid", "0"), ("state", "start"), ("force", True)]),
    ("storcli64", lambda r: r.set_virtual_drive_autobgi_switch("2", "off"),
     "ctr_set_bgi_switch_storcli64", [("vid", "2"), ("state", "off")]),
    ("storcli64", lambda r: r.set_vd_erase("0", "start"),
     "vd_set_erase_storcli64", [("vid", "0"), ("oper", "start"), ("mode", "simple")]),
    ("storcli64", lambda r: r.set_vd_erase("0", "start", "thorough", force=True),
     "vd_set_erase_storcli64", [("vid", "0"), ("oper", "start"), ("mode", "thorough"),
                                ("force", True)]),
    ("sorbctl", lambda r: r.set_vd_erase(vid="3", oper="start"),
     "start_controller_vd_sanitize_sorbctl", [("vid", "3"), ("oper", "start"), ("mode", "simple")]),
    ("sorbctl", lambda r: r.set_vd_erase("3", "stop", mode="normal"),
     "stop_controller_vd_sanitize_sorbctl", [("vid", "3"), ("oper", "stop"), ("mode", "normal")]),
]


@pytest.mark.parametrize("answer, expected", [(OK, True), (NO, False)])
@pytest.mark.parametrize("tool, call, wrapper, sent", ACTIONS)
def test_actions_choose_wrapper_and_send_params(rig, tool, call, wrapper, sent, answer, expected):
    result, host = run(rig, tool, wrapper, call, answer)
    assert result is expected
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("self", wrapper, sent)]


# refusals the sorbctl variants compute from the requested operation
REFUSALS = [
    ("sorbctl", lambda r: r.set_virtual_drive_cc("0", "pause"),
     "7460卡sorbctl工具没有 设置逻辑磁盘一致性校验功能操作 功能"),
    ("sorbctl", lambda r: r.set_virtual_drive_cc("0", "resume"),
     "7460卡sorbctl工具没有 设置逻辑磁盘一致性校验功能操作 功能"),
    ("sorbctl", lambda r: r.set_vd_erase("0", "pause"), "7460卡sorbctl工具不支持[pause]操作"),
]


@pytest.mark.parametrize("tool, call, message", REFUSALS)
def test_refusals_raise_before_dispatch(rig, tool, call, message):
    raid, host = rig(tool)
    with pytest.raises(OrvexException) as err:
        call(raid)
    assert str(err.value) == message
    assert host.calls == []


STORCLI_SHAPED = [{"vid": "0", "Operation": "CC", "Progress": "12", "Status": "In progress",
                   "Estimated_time_left": "5 Minutes", "raw_data": STATUS_ROW}]

# (tool, call, wrapper, answer, expected result, params as sent)
QUERIES = [
    ("storcli64", lambda r: r.query_virtual_drive_cc_status("0", adapter_id="0"),
     "ctr_get_cc_status_storcli64", {"VD Operation Status": [STATUS_ROW]}, STORCLI_SHAPED,
     [("vid", "0"), ("adapter_id", "0")]),
    ("sorbctl", lambda r: r.query_virtual_drive_cc_status("1"),
     "get_controller_vd_ccheck_sorbctl",
     {"ID": "1", "CcheckProgress": "40%", "CcheckStatus": "Running", "CcheckTimeLeft": "2m"},
     {"vid": "1", "Operation": "", "Progress": "40%", "Status": "Running",
      "Estimated_time_left": "2m",
      "raw_data": {"ID": "1", "CcheckProgress": "40%", "CcheckStatus": "Running",
                   "CcheckTimeLeft": "2m"}},
     [("vid", "1")]),
    ("storcli64", lambda r: r.get_virtual_drive_bgi_state(vid="0"),
     "get_virtual_drive_bgi_state_storcli64", {"VD Operation Status": [STATUS_ROW]},
     STORCLI_SHAPED, [("vid", "0")]),
    ("storcli64", lambda r: r.get_virtual_drive_front_init_status_info(vid="0"),
     "ctr_get_init_info_storcli64", {"VD Operation Status": [STATUS_ROW]}, STORCLI_SHAPED,
     [("vid", "0")]),
    ("sorbctl", lambda r: r.get_virtual_drive_front_init_status_info(vid="2"),
     "get_controller_vd_info_sorbctl",
     {"VirtualDriveInformation": {"ID": "2", "InitStatus": "Not in progress"}},
     {"vid": "2", "Operation": "", "Progress": "", "Status": "Not in progress",
      "Estimated_time_left": "", "raw_data": {"ID": "2", "InitStatus": "Not in progress"}},
     [("vid", "2")]),
    ("storcli64", lambda r: r.get_vd_erase("0"), "vd_get_erase_storcli64",
     {"VD Operation Status": [STATUS_ROW]}, STORCLI_SHAPED, [("vid", "0")]),
    ("sorbctl", lambda r: r.get_vd_erase("4", adapter_id="0"), "get_controller_vd_sanitize_sorbctl",
     {"ID": "4", "SanitizeProgress": "3%", "SanitizeStatus": "In progress"},
     {"vid": "4", "Operation": "", "Progress": "3%", "Status": "In progress",
      "Estimated_time_left": "",
      "raw_data": {"ID": "4", "SanitizeProgress": "3%", "SanitizeStatus": "In progress"}},
     [("vid", "4"), ("adapter_id", "0")]),
]


@pytest.mark.parametrize("tool, call, wrapper, answer, expected, sent", QUERIES)
def test_queries_shape_the_status_table(rig, tool, call, wrapper, answer, expected, sent):
    result, host = run(rig, tool, wrapper, call, parser(answer))
    assert result == expected
    assert host.wrappers == [wrapper]
    assert list(host.last().params.items()) == sent


ARCCONF_LD = {"logical_device_information": {
    "logical_device_number_0": {"logical_device_name": "a"},
    "logical_device_number_1": {"logical_device_number": "1",
                                "status_of_logical_device": "Optimal",
                                "parity_initialization_status": "Completed"}}}


@pytest.mark.parametrize("method, status", [
    ("get_virtual_drive_bgi_state", "Completed"),
    ("get_virtual_drive_front_init_status_info", "Optimal")])
def test_arcconf_status_reads_drive_entry(rig, method, status):
    result, host = run(rig, "arcconf", "ctr_get_vd_cfg_arcconf",
                       lambda r: getattr(r, method)(vid="1"), parser(ARCCONF_LD))
    assert (result["vid"], result["Status"]) == ("1", status)
    assert result["raw_data"] is not None and result["raw_data"]["logical_device_number"] == "1"
    with pytest.raises(KeyError):
        run(rig, "arcconf", "ctr_get_vd_cfg_arcconf", lambda r: getattr(r, method)(vid="5"),
            parser(ARCCONF_LD))


CC_FAILED = "查询逻辑磁盘的一致性校验功能状态失败，请检查回显报错信息"
INIT_FAILED = "查询逻辑磁盘前台初始化功能状态失败"


@pytest.mark.parametrize("tool, wrapper, call, answer, message", [
    ("sorbctl", "get_controller_vd_ccheck_sorbctl", lambda r: r.query_virtual_drive_cc_status("0"),
     "fail", CC_FAILED)] + [
    ("storcli64", "ctr_get_init_info_storcli64",
     lambda r: r.get_virtual_drive_front_init_status_info(vid="0"), answer, INIT_FAILED)
    for answer in ({}, None, "")])
def test_failed_status_queries_raise(rig, tool, wrapper, call, answer, message):
    with pytest.raises(OrvexException) as err:
        run(rig, tool, wrapper, call, parser(answer))
    assert str(err.value) == message


GROUPS = {"Groups": [
    {"Name": "CCheck", "ID": "3", "Progress": "50%", "TimeLeft": "1m"},
    {"Name": "BGI", "ID": "1", "Progress": "20%", "TimeLeft": "9m", "Status": "Running"},
    {"Name": "Background Init", "ID": "30", "Progress": "70%", "TimeLeft": "3m"},
]}


@pytest.mark.parametrize("vid, expected", [
    ("1", {"vid": "1", "Operation": "BGI", "Progress": "20%", "Status": "Running",
           "Estimated_time_left": "9m"}),
    ("30", {"vid": "30", "Operation": "Background Init", "Progress": "70%", "Status": "",
            "Estimated_time_left": "3m"}),
    ("3", {"vid": "3", "Operation": "", "Progress": "None", "Status": "",
           "Estimated_time_left": "None"}),
])
def test_bgi_sorbctl_searches_groups_without_vid(rig, vid, expected):
    result, host = run(rig, "sorbctl", "get_controller_bgtask_sorbctl",
                       lambda r: r.get_virtual_drive_bgi_state(vid=vid, adapter_id="0"),
                       parser(GROUPS))
    assert {k: v for k, v in result.items() if k != "raw_data"} == expected
    assert list(host.last().params.items()) == [("adapter_id", "0")]


def test_bgi_sorbctl_without_groups(rig):
    result, host = run(rig, "sorbctl", "get_controller_bgtask_sorbctl",
                       lambda r: r.get_virtual_drive_bgi_state(vid="3"), parser({"Groups": []}))
    assert result["raw_data"] == {"ID": "3", "Progress": "None", "TimeLeft": "None"}
    assert host.last().params == {}
