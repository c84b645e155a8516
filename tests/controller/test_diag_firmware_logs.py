"""Controller logs read back and command pass-through."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

FLASH = "/root/raidlog//log-flash.txt"
RAM = "/root/raidlog//log-ram.txt"
ARC_LOG = "/var/log/Support/Firmware/Controller_1_Log.txt"
SCRATCH = "/root/sorbctl_save"


# -- logs -------------------------------------------------------------------

def test_detail_log_export_then_read_back(rig):
    raid, host = rig("sorbctl")
    host.on("get_controller_log_sorbctl", parser("export log to %s and %s success" % (FLASH, RAM)))
    host.on("cat", parser(["f1", "f2"]), parser("r1\nr2"))
    assert raid.get_controller_detail_log(adapter_id="0") == ["f1", "f2", "r1", "r2"]
    assert host.sent() == [("self", "get_controller_log_sorbctl", [("adapter_id", "0")]),
                           ("self", "cat", [("adapter_id", "0"), ("file_path", FLASH)]),
                           ("self", "cat", [("adapter_id", "0"), ("file_path", RAM)])]
    raid, host = rig("arcconf")
    host.on("get_controller_log_arcconf", parser(["Command completed successfully."]))
    host.on("cat", parser(["a", "b"]))
    assert raid.get_controller_detail_log(adapter_id="2") == ["a", "b"]
    assert host.sent() == [("self", "get_controller_log_arcconf", [("adapter_id", "2")]),
                           ("self", "cat", [("adapter_id", "2"), ("file_path", ARC_LOG)])]


@pytest.mark.parametrize("tool, answer", [
    ("sorbctl", "export log to %s" % FLASH),       # the RAM log was not written
    ("sorbctl", "export log to %s" % RAM),         # the flash log was not written
    ("sorbctl", "export log to /root/raidlog/log-flash.txt /root/raidlog/log-ram.txt"),
    ("sorbctl", None), ("arcconf", []),
])
def test_detail_log_fails_when_the_export_is_not_reported(rig, tool, answer):
    raid, host = rig(tool)
    host.on("get_controller_log_" + tool, parser(answer))
    with pytest.raises(OrvexException) as err:
        raid.get_controller_detail_log()
    assert str(err.value) == "导出日志文件失败"
    assert host.wrappers == ["get_controller_log_" + tool]


# -- pass-through -----------------------------------------------------------

def head(eid="0", sid="3", transfer=None):
    return [("eid", eid), ("sid", sid), ("command_passthru", "cdb"), ("checkrc", 0)] + (
        [("data_transfer", transfer)] if transfer else [])


@pytest.mark.parametrize("kind, code", [
    ("write", "1"), ("read", "2"), ("readwrite", "3"), ("notransfer", "0"),
    ("readwithsense", "readwithsense")])
def test_storcli64_passthru_maps_transfer_and_sends_did(rig, kind, code):
    raid, host = rig("storcli64")
    seen = []
    raid.get_one_physical_drive_info = lambda *a, **kw: seen.append((a, kw)) or {"did": "23"}
    host.on("send_ctr_storelibtest_passthru", parser(["status success"]))
    raid.controller_command_passthru("64", "5", "cdb", data_transfer=kind, data_length=96,
                                     adapter_id="0")
    assert seen == [((), {"eid": "64", "sid": "5"})]
    assert host.sent() == [("self", "send_ctr_storelibtest_passthru", head("64", "5", code) + [
        ("data_length", 96), ("adapter_id", "0"), ("did", "23")])]
    assert type(host.calls[0].params["checkrc"]) is int


@pytest.mark.parametrize("answer, expected", [
    (["Passthru command success", "Data:", "0000: 70 00 05 00 00 00 00 0a", "0008: 0x24 0X3A",
      ""], (True, ["70", "00", "05", "00", "00", "00", "00", "0a", "24", "3A"])),
    ([], (False, [])), (None, (False, []))])
def test_storcli64_passthru_collects_bytes_and_judges_the_answer(rig, answer, expected):
    raid, host = rig("storcli64")
    raid.get_one_physical_drive_info = lambda **kw: {"did": "17"}
    host.on("send_ctr_storelibtest_passthru", parser(answer))
    assert raid.controller_command_passthru("64", "5", "cdb") == expected
    assert "data_transfer" not in host.calls[0].params


@pytest.mark.parametrize("tool, answer, extra, expected, transfer", [
    ("sorbctl", "send success", {"adapter_id": "0"}, ("send success", []), "set"),
    ("arcconf", "Command completed successfully.", {"file_path": "/tmp/out.bin"}, (True, []),
     "notransfer")])
def test_passthru_notransfer_only_sends(rig, tool, answer, extra, expected, transfer):
    raid, host = rig(tool)
    host.on("send_controller_pd_passthru_" + tool, parser(answer))
    assert raid.controller_command_passthru("0", "3", "cdb", data_transfer="notransfer",
                                            **extra) == expected
    assert host.sent() == [("self", "send_controller_pd_passthru_" + tool,
                           head(transfer=transfer) + list(extra.items()))]


def test_sorbctl_passthru_reads_little_endian_words_then_removes_scratch(rig):
    raid, host = rig("sorbctl")
    host.on("send_controller_pd_passthru_sorbctl", parser("send success"))
    host.on("hexdump", parser(["0000000 0070 0005 0a00 ff12", "0000008 abcd", "000000a"]))
    host.on("rm", parser(""))
    assert raid.controller_command_passthru("0", "3", "cdb", data_transfer="read") == (
        "send success", ["70", "00", "05", "00", "00", "0a", "12", "ff", "cd", "ab"])
    assert host.sent() == [
        ("self", "send_controller_pd_passthru_sorbctl",
         head(transfer="read") + [("file_path", SCRATCH)]),
        ("self", "hexdump", [("param", "v"), ("file_path", SCRATCH)]),
        ("self", "rm", [("path", SCRATCH)])]


@pytest.mark.parametrize("dump", [["0000000"], ["00010"], ["000000a", ""], [],
                                  RuntimeError("hexdump broke")])
def test_sorbctl_passthru_without_data_still_removes_scratch(rig, dump):
    raid, host = rig("sorbctl")
    host.on("send_controller_pd_passthru_sorbctl", parser("ok"))
    host.on("hexdump", dump if isinstance(dump, Exception) else parser(dump))
    host.on("rm", parser(""))
    if isinstance(dump, Exception):
        with pytest.raises(RuntimeError, match="hexdump broke"):
            raid.controller_command_passthru("0", "3", "cdb", data_transfer="read")
    else:
        assert raid.controller_command_passthru("0", "3", "cdb") == ("ok", [])
    assert host.wrappers == ["send_controller_pd_passthru_sorbctl", "hexdump", "rm"]
    assert list(host.last().params.items()) == [("path", SCRATCH)]


@pytest.mark.parametrize("answer, file_path, expected, after", [
    ("done", "/tmp/out.bin", (True, ["70", "00", "05", "00"]),
     [("self", "cat", [("file_path", "/tmp/out.bin")]), ("self", "rm", [("path", "/tmp/out.bin")])]),
    ("70 00 05", None, (True, ["70", "00", "05"]), []),
    (None, None, (False, []), [])])
def test_arcconf_passthru_reads_its_file_or_its_own_answer(rig, answer, file_path, expected,
                                                          after):
    raid, host = rig("arcconf")
    host.on("send_controller_pd_passthru_arcconf", parser(answer))
    host.on("cat", parser("70 00  05 00 "))
    host.on("rm", parser(""))
    extra = {} if file_path is None else {"file_path": file_path}
    assert raid.controller_command_passthru("0", "1", "cdb", data_transfer="read",
                                            **extra) == expected
    assert host.sent()[1:] == after
