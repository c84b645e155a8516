"""Virtual drive consistency check, initialisation and erase: the branches
chosen by the operation asked for, and the status read-backs."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser


def run(rig, tool, wrapper, call, answer):
    raid, host = rig(tool)
    host.on(wrapper, answer)
    return call(raid), host


@pytest.mark.parametrize("tool, call, wrapper, sent", [
    ("sorbctl", lambda r: r.set_virtual_drive_cc("1", "stop", adapter_id="0"),
     "stop_controller_vd_ccheck_sorbctl", [("vid", "1"), ("state", "stop"), ("adapter_id", "0")]),
    ("sorbctl", lambda r: r.set_vd_erase("3", "stop", mode="normal"),
     "stop_controller_vd_sanitize_sorbctl", [("vid", "3"), ("oper", "stop"), ("mode", "normal")]),
    ("storcli64", lambda r: r.set_vd_erase("0", "start", force=True),
     "vd_set_erase_storcli64", [("vid", "0"), ("oper", "start"), ("mode", "simple"),
                                ("force", True)]),
])
def test_branch_and_params(rig, tool, call, wrapper, sent):
    result, host = run(rig, tool, wrapper, call, parser("success"))
    assert result is True
    assert host.sent() == [
        ("self", wrapper, sent)]


@pytest.mark.parametrize("call, message", [
    (lambda r: r.set_virtual_drive_cc("0", "pause"),
     "7460卡sorbctl工具没有 设置逻辑磁盘一致性校验功能操作 功能"),
    (lambda r: r.set_vd_erase("0", "pause"), "7460卡sorbctl工具不支持[pause]操作"),
])
def test_sorbctl_refuses_other_operations(rig, call, message):
    raid, host = rig("sorbctl")
    with pytest.raises(OrvexException) as err:
        call(raid)
    assert str(err.value) == message
    assert host.calls == []


@pytest.mark.parametrize("tool, wrapper, call, answer, message", [
    ("sorbctl", "get_controller_vd_ccheck_sorbctl", lambda r: r.query_virtual_drive_cc_status("0"),
     "fail", "查询逻辑磁盘的一致性校验功能状态失败，请检查回显报错信息")] + [
    ("storcli64", "ctr_get_init_info_storcli64",
     lambda r: r.get_virtual_drive_front_init_status_info(vid="0"), answer,
     "查询逻辑磁盘前台初始化功能状态失败") for answer in ({}, None, "")])
def test_failed_status_queries_raise(rig, tool, wrapper, call, answer, message):
    with pytest.raises(OrvexException) as err:
        run(rig, tool, wrapper, call, parser(answer))
    assert str(err.value) == message


ARCCONF_LD = {"logical_device_information": {
    "logical_device_number_0": {"logical_device_name": "a"},
    "logical_device_number_1": {"logical_device_number": "1",
                                "status_of_logical_device": "Optimal",
                                "parity_initialization_status": "Completed"}}}


@pytest.mark.parametrize("method, status", [
    ("get_virtual_drive_bgi_state", "Completed"),
    ("get_virtual_drive_front_init_status_info", "Optimal")])
def test_arcconf_status_reads_the_drives_entry(rig, method, status):
    result, host = run(rig, "arcconf", "ctr_get_vd_cfg_arcconf",
                       lambda r: getattr(r, method)(vid="1"), parser(ARCCONF_LD))
    assert (result["vid"], result["Status"], result["raw_data"]["logical_device_number"]) == (
        "1", status, "1")
    with pytest.raises(KeyError):
        run(rig, "arcconf", "ctr_get_vd_cfg_arcconf", lambda r: getattr(r, method)(vid="5"),
            parser(ARCCONF_LD))


GROUPS = {"Groups": [
    {"Name": "CCheck", "ID": "3", "Progress": "50%", "TimeLeft": "1m"},
    {"Name": "BGI", "ID": "1", "Progress": "20%", "TimeLeft": "9m", "Status": "Running"},
    {"Name": "Background Init", "ID": "30", "Progress": "70%", "TimeLeft": "3m"},
]}


@pytest.mark.parametrize("groups, vid, expected", [
    (GROUPS, "1", ("BGI", "20%", "Running", "9m")),
    (GROUPS, "30", ("Background Init", "70%", "", "3m")),
    (GROUPS, "3", ("", "None", "", "None")),
    ({"Groups": []}, "3", ("", "None", "", "None")),
])
def test_bgi_sorbctl_finds_the_drives_task(rig, groups, vid, expected):
    result, host = run(rig, "sorbctl", "get_controller_bgtask_sorbctl",
                       lambda r: r.get_virtual_drive_bgi_state(vid=vid, adapter_id="0"),
                       parser(groups))
    assert (result["Operation"], result["Progress"], result["Status"],
            result["Estimated_time_left"]) == expected
    assert result["vid"] == vid
    assert list(host.last().params.items()) == [("adapter_id", "0")]
