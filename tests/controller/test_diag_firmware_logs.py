"""Firmware update and activation, controller logs and command pass-through."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

TOOLS = ("storcli64", "arcconf", "sorbctl")
FLASH = "/root/raidlog//log-flash.txt"
RAM = "/root/raidlog//log-ram.txt"
ARC_LOG = "/var/log/Support/Firmware/Controller_1_Log.txt"
SCRATCH = "/root/sorbctl_save"


def items(call):
    return list(call.params.items())


# -- logs -------------------------------------------------------------------

@pytest.mark.parametrize("op, wrapper", [
    ("export_fw_logs", "ctr_get_log_storcli64"),
    ("get_controller_detail_log", "ctr_get_alilog_storcli64"),
])
def test_storcli64_logs_return_stdout_as_it_stands(rig, op, wrapper):
    raid, host = rig("storcli64")
    lines = ["line one", "line two"]
    host.on(wrapper, parser("ignored", stdout=lines))
    assert getattr(raid, op)(adapter_id="1") is lines
    (call,) = host.calls
    assert (call.route, call.wrapper, items(call)) == ("self", wrapper, [("adapter_id", "1")])


@pytest.mark.parametrize("tool", ["arcconf", "sorbctl"])
def test_export_fw_logs_has_no_variant_but_storcli64(rig, tool):
    raid, host = rig(tool)
    with pytest.raises(OrvexException):
        raid.export_fw_logs()
    assert host.calls == []


def test_sorbctl_detail_log_reads_flash_then_ram(rig):
    raid, host = rig("sorbctl")
    host.on("get_controller_log_sorbctl",
            parser("export log to %s and %s success" % (FLASH, RAM)))
    host.on("cat", parser(["f1", "f2"]), parser(["r1"]))
    assert raid.get_controller_detail_log(adapter_id="0") == ["f1", "f2", "r1"]
    assert [(c.route, c.wrapper, items(c)) for c in host.calls] == [
        ("self", "get_controller_log_sorbctl", [("adapter_id", "0")]),
        ("self", "cat", [("adapter_id", "0"), ("file_path", FLASH)]),
        ("self", "cat", [("adapter_id", "0"), ("file_path", RAM)]),
    ]


@pytest.mark.parametrize("answer", [
    "export log to %s" % FLASH,           # the RAM log was not written
    "export log to %s" % RAM,             # the flash log was not written
    "export log to /root/raidlog/log-flash.txt /root/raidlog/log-ram.txt",  # single slashes
    "",
    None,
])
def test_sorbctl_detail_log_fails_unless_both_files_reported(rig, answer):
    raid, host = rig("sorbctl")
    host.on("get_controller_log_sorbctl", parser(answer))
    with pytest.raises(OrvexException) as err:
        raid.get_controller_detail_log()
    assert str(err.value) == "导出日志文件失败"
    assert host.wrappers == ["get_controller_log_sorbctl"]


def test_arcconf_detail_log_reads_the_firmware_log(rig):
    raid, host = rig("arcconf")
    host.on("get_controller_log_arcconf", parser(["Command completed successfully."]))
    host.on("cat", parser(["a", "b"]))
    assert raid.get_controller_detail_log(adapter_id="2") == ["a", "b"]
    assert [(c.wrapper, items(c)) for c in host.calls] == [
        ("get_controller_log_arcconf", [("adapter_id", "2")]),
        ("cat", [("adapter_id", "2"), ("file_path", ARC_LOG)]),
    ]


@pytest.mark.parametrize("answer", [[], "", None])
def test_arcconf_detail_log_fails_on_empty_export(rig, answer):
    raid, host = rig("arcconf")
    host.on("get_controller_log_arcconf", parser(answer))
    with pytest.raises(OrvexException, match="^导出日志文件失败$"):
        raid.get_controller_detail_log()
    assert host.wrappers == ["get_controller_log_arcconf"]


# -- firmware ---------------------------------------------------------------

FW_WRAPPERS = {
    "update_controller_fw": {
        "storcli64": "ctr_update_fw_storcli64",
        "sorbctl": "update_controller_fw_sorbctl",
        "arcconf": "update_controller_fw_arcconf",
    },
    "update_pd_fw": {
        "storcli64": "pd_update_fw_storcli64",
        "sorbctl": "update_controller_pd_fw_sorbctl",
        "arcconf": "update_pd_fw_arcconf",
    },
}
FW_CALLS = {
    "update_controller_fw": ((), {"fw_file": "/tmp/fw.rom", "adapter_id": "0"},
                             [("fw_file", "/tmp/fw.rom"), ("adapter_id", "0")]),
    "update_pd_fw": (("252", "3", "/tmp/pd.bin"), {"adapter_id": "0"},
                     [("eid", "252"), ("sid", "3"), ("fw_file", "/tmp/pd.bin"), ("adapter_id", "0")]),
}


@pytest.mark.parametrize("tool", TOOLS)
@pytest.mark.parametrize("op", sorted(FW_WRAPPERS))
@pytest.mark.parametrize("answer, expected", [
    ("Flash success", True),
    (["update", "success"], True),
    ("Flash failed", False),
    (None, False),
])
def test_firmware_updates_are_checked(rig, tool, op, answer, expected):
    raid, host = rig(tool)
    wrapper = FW_WRAPPERS[op][tool]
    host.on(wrapper, parser(answer))
    args, kwargs, sent = FW_CALLS[op]
    assert getattr(raid, op)(*args, **kwargs) is expected
    (call,) = host.calls
    assert (call.route, call.wrapper, items(call)) == ("self", wrapper, sent)


def test_firmware_update_without_parser_entry_is_false(rig):
    raid, host = rig("arcconf")
    host.on("update_controller_fw_arcconf", {"stdout": "success"})
    assert raid.update_controller_fw("/tmp/fw.rom") is False


def test_activate_defaults_to_hot(rig):
    raid, host = rig("sorbctl")
    host.on("active_controller_fw_sorbctl", parser("active success"))
    assert raid.activate_hot_ctl_fw() is True
    assert raid.activate_hot_ctl_fw("cold", adapter_id="1") is True
    assert [(c.wrapper, items(c)) for c in host.calls] == [
        ("active_controller_fw_sorbctl", [("active_type", "hot")]),
        ("active_controller_fw_sorbctl", [("active_type", "cold"), ("adapter_id", "1")]),
    ]


@pytest.mark.parametrize("tool, message", [
    ("storcli64", "LSI卡storcli64工具没有 固件热激活 功能"),
    ("arcconf", "PMC卡arcconf工具没有 固件热激活 功能"),
])
def test_activate_refusals(rig, tool, message):
    raid, host = rig(tool)
    with pytest.raises(OrvexException) as err:
        raid.activate_hot_ctl_fw(active_type="hot", adapter_id="0")
    assert str(err.value) == message
    assert host.calls == []


# -- pass-through -----------------------------------------------------------

class DriveInfo:
    """Stands in for the drive query and records how it was asked."""

    def __init__(self, did="17"):
        self.did = did
        self.seen = []

    def __call__(self, *args, **kwargs):
        self.seen.append((args, kwargs))
        return {"eid": kwargs.get("eid"), "sid": kwargs.get("sid"), "did": self.did}


@pytest.mark.parametrize("kind, code", [
    ("write", "1"), ("read", "2"), ("readwrite", "3"), ("notransfer", "0"),
    ("readwithsense", "readwithsense"), ("notransferwithsense", "notransferwithsense"),
    ("writewithsense", "writewithsense"),
])
def test_storcli64_passthru_maps_transfer_and_sends_did(rig, kind, code):
    raid, host = rig("storcli64")
    drive = DriveInfo("23")
    raid.get_one_physical_drive_info = drive
    host.on("send_ctr_storelibtest_passthru", parser(["status success"]))
    raid.controller_command_passthru("64", "5", "0x12 0 0 0 96 0", data_transfer=kind,
                                     data_length=96, adapter_id="0")
    assert drive.seen == [((), {"eid": "64", "sid": "5"})]
    (call,) = host.calls
    assert (call.route, call.wrapper) == ("self", "send_ctr_storelibtest_passthru")
    assert items(call) == [
        ("eid", "64"), ("sid", "5"), ("command_passthru", "0x12 0 0 0 96 0"), ("checkrc", 0),
        ("data_transfer", code), ("data_length", 96), ("adapter_id", "0"), ("did", "23"),
    ]
    assert type(call.params["checkrc"]) is int


def test_storcli64_passthru_collects_bytes_and_judges_the_answer(rig):
    raid, host = rig("storcli64")
    raid.get_one_physical_drive_info = DriveInfo()
    host.on("send_ctr_storelibtest_passthru", parser([
        "Passthru command success",
        "Data:",
        "0000: 70 00 05 00 00 00 00 0a",
        "0008: 0x24 0X3A",
        "",
    ]))
    assign, data = raid.controller_command_passthru("64", "5", "cdb", data_transfer="read")
    assert assign is True
    assert data == ["70", "00", "05", "00", "00", "00", "00", "0a", "24", "3A"]
    assert host.calls[0].params["data_transfer"] == "2"


@pytest.mark.parametrize("answer", [[], "", None])
def test_storcli64_passthru_empty_answer_gives_no_bytes(rig, answer):
    raid, host = rig("storcli64")
    raid.get_one_physical_drive_info = DriveInfo()
    host.on("send_ctr_storelibtest_passthru", parser(answer))
    assert raid.controller_command_passthru("64", "5", "cdb") == (False, [])
    assert "data_transfer" not in host.calls[0].params


def test_storcli64_passthru_asks_the_drive_query_first(rig):
    raid, host = rig("storcli64")

    def missing(**kwargs):
        raise OrvexException("no drive")

    raid.get_one_physical_drive_info = missing
    with pytest.raises(OrvexException, match="no drive"):
        raid.controller_command_passthru("64", "5", "cdb")
    assert host.calls == []


def test_sorbctl_passthru_notransfer_sends_set_and_reads_nothing(rig):
    raid, host = rig("sorbctl")
    host.on("send_controller_pd_passthru_sorbctl", parser("send success"))
    result = raid.controller_command_passthru("0", "3", "cdb", data_transfer="notransfer",
                                              adapter_id="0")
    assert result == ("send success", [])
    (call,) = host.calls
    assert (call.route, call.wrapper) == ("self", "send_controller_pd_passthru_sorbctl")
    assert items(call) == [("eid", "0"), ("sid", "3"), ("command_passthru", "cdb"),
                           ("checkrc", 0), ("data_transfer", "set"), ("adapter_id", "0")]


def test_sorbctl_passthru_reads_little_endian_words_then_removes_scratch(rig):
    raid, host = rig("sorbctl")
    host.on("send_controller_pd_passthru_sorbctl", parser("send success"))
    host.on("hexdump", parser([
        "0000000 0070 0005 0a00 ff12",
        "0000008 abcd",
        "000000a",
    ]))
    host.on("rm", parser(""))
    assign, data = raid.controller_command_passthru("0", "3", "cdb", data_transfer="read")
    assert assign == "send success"
    assert data == ["70", "00", "05", "00", "00", "0a", "12", "ff", "cd", "ab"]
    assert [(c.route, c.wrapper, items(c)) for c in host.calls] == [
        ("self", "send_controller_pd_passthru_sorbctl",
         [("eid", "0"), ("sid", "3"), ("command_passthru", "cdb"), ("checkrc", 0),
          ("data_transfer", "read"), ("file_path", SCRATCH)]),
        ("self", "hexdump", [("param", "v"), ("file_path", SCRATCH)]),
        ("self", "rm", [("path", SCRATCH)]),
    ]


@pytest.mark.parametrize("dump", [["0000000"], ["00010"], ["000000a", ""], []])
def test_sorbctl_passthru_offset_only_dump_gives_no_bytes(rig, dump):
    raid, host = rig("sorbctl")
    host.on("send_controller_pd_passthru_sorbctl", parser("ok"))
    host.on("hexdump", parser(dump))
    host.on("rm", parser(""))
    assert raid.controller_command_passthru("0", "3", "cdb") == ("ok", [])
    assert host.wrappers == ["send_controller_pd_passthru_sorbctl", "hexdump", "rm"]


def test_sorbctl_passthru_removes_scratch_even_when_dump_fails(rig):
    raid, host = rig("sorbctl")
    host.on("send_controller_pd_passthru_sorbctl", parser("ok"))
    host.on("hexdump", RuntimeError("hexdump broke"))
    host.on("rm", parser(""))
    with pytest.raises(RuntimeError, match="hexdump broke"):
        raid.controller_command_passthru("0", "3", "cdb", data_transfer="read")
    assert host.wrappers == ["send_controller_pd_passthru_sorbctl", "hexdump", "rm"]
    assert items(host.last()) == [("path", SCRATCH)]


@pytest.mark.parametrize("answer, assign", [("Command completed successfully.", True),
                                             ("", False), (None, False)])
def test_arcconf_passthru_notransfer_only_sends(rig, answer, assign):
    raid, host = rig("arcconf")
    host.on("send_controller_pd_passthru_arcconf", parser(answer))
    result = raid.controller_command_passthru("0", "1", "cdb", data_transfer="notransfer",
                                              file_path="/tmp/out.bin")
    assert result == (assign, [])
    (call,) = host.calls
    assert (call.route, call.wrapper) == ("self", "send_controller_pd_passthru_arcconf")
    assert items(call) == [("eid", "0"), ("sid", "1"), ("command_passthru", "cdb"),
                           ("checkrc", 0), ("data_transfer", "notransfer"),
                           ("file_path", "/tmp/out.bin")]


def test_arcconf_passthru_reads_then_removes_its_file(rig):
    raid, host = rig("arcconf")
    host.on("send_controller_pd_passthru_arcconf", parser("done"))
    host.on("cat", parser("70 00  05 00 "))
    host.on("rm", parser(""))
    result = raid.controller_command_passthru("0", "1", "cdb", data_transfer="read",
                                              file_path="/tmp/out.bin")
    assert result == (True, ["70", "00", "05", "00"])
    assert [(c.wrapper, items(c)) for c in host.calls[1:]] == [
        ("cat", [("file_path", "/tmp/out.bin")]),
        ("rm", [("path", "/tmp/out.bin")]),
    ]


def test_arcconf_passthru_without_file_splits_its_own_answer(rig):
    raid, host = rig("arcconf")
    host.on("send_controller_pd_passthru_arcconf", parser("70 00 05"))
    assert raid.controller_command_passthru("0", "1", "cdb", data_transfer="read") == (
        True, ["70", "00", "05"])
    assert host.wrappers == ["send_controller_pd_passthru_arcconf"]


def test_arcconf_passthru_empty_answer_does_not_raise(rig):
    raid, host = rig("arcconf")
    host.on("send_controller_pd_passthru_arcconf", parser(None))
    assert raid.controller_command_passthru("0", "1", "cdb") == (False, [])
