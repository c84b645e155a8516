"""Drive short list and detail records across the three tools."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

S64_ROW = {"EID:Slt": "65:0", "DID": 8, "State": "Onln", "DG": 0, "Size": "5.458 TB",
           "Intf": "SATA", "Med": "HDD", "SED": "N", "PI": "N", "SeSz": "512B",
           "Model": "HUS726T6TALE6L4", "Sp": "U", "Type": "-"}
S64_DETAIL = {
    "Drive /c0/e65/s0 State": {"Media Error Count": 0, "Drive Temperature": " 33C"},
    "Drive /c0/e65/s0 Device attributes": {
        "SN": "V9H1ABCD", "Firmware Revision": "VKGNW40H", "Link Speed": "6.0Gb/s",
        "Write Cache": "Disabled", "Logical Sector Size": "512B", "Physical Sector Size": "4 KB"},
    "Drive /c0/e65/s0 Policies/Settings": {
        "Drive position": "DriveGroup:0, Span:0, Row:0",
        "Port Information": [{"Port": 0, "Status": "Active", "Linkspeed": "6.0Gb/s",
                              "SAS address": "0x500e004aaaaaaa00"}]},
}
DETAIL = {"eid": "65", "sid": "0", "did": "8", "slot": "0", "interface": "SATA",
          "media": "HDD", "link_speed": "6.0G", "size": "5.458TB", "spin_status": "Spin Up",
          "model": "HUS726T6TALE6L4", "type": "member", "status": "online",
          "sas_address": "0x500e004aaaaaaa00", "disk_name": "NA", "serial_number": "V9H1ABCD",
          "firmware_version": "VKGNW40H", "logical_sector_size": "512B",
          "physical_sector_size": "4096B", "write_cache": "Off"}


def ids(records):
    return [(r["eid"], r["sid"]) for r in records]


# -- short list ---------------------------------------------------------------

def test_list_arcconf_skips_enclosure_and_tags_device_key(rig):
    raid, host = rig("arcconf")
    devices = {
        "0,0": {"Type": "Hard Drive", "State": "Online", "Transfer Speed": "SATA 6.0 Gb/s",
                "SSD": "No", "Total Size": "5723166 MB", "Model": "ST6000", "Device Number": "0"},
        "2,0": {"Type": "Enclosure Services Device", "Model": "SES"},
        "0,1": {"Type": "Solid State Drive", "State": "Ready", "Transfer Speed": "SAS 12.0 Gb/s",
                "SSD": "Yes", "Total Size": "915715 MB", "Model": "PM1643", "Device Number": "1"},
    }
    host.on("ctr_get_cfg_arcconf", parser({"physical_device_information": devices}))
    out = raid._get_physical_drive_list()
    assert host.sent() == [("self", "ctr_get_cfg_arcconf", [])]
    assert ids(out) == [("0", "0"), ("0", "1")]
    assert [r["raw_data"]["eid:sid"] for r in out] == ["0,0", "0,1"]
    assert "eid:sid" not in devices["0,0"]  # the tool's record is copied, not changed
    assert [(r["interface"], r["media"], r["size"], r["status"], r["type"]) for r in out] == [
        ("SATA", "HDD", "5.458TB", "online", "member"),
        ("SAS", "SSD", "894.253GB", "ugood", "unconfigured")]


def test_list_arcconf_answer_changed_while_read_fails_as_iteration_does(rig):
    raid, host = rig("arcconf")
    devices = {}

    class Shrinking(str):
        def __eq__(self, other):
            devices.pop("0,1", None)
            return False

        __hash__ = str.__hash__

    devices.update({"0,0": {"Type": Shrinking("Hard Drive")}, "0,1": {"Type": "Hard Drive"}})
    host.on("ctr_get_cfg_arcconf", parser({"physical_device_information": devices}))
    with pytest.raises(RuntimeError, match="^dictionary changed size during iteration$"):
        raid._get_physical_drive_list()


# -- one drive ----------------------------------------------------------------

def test_one_storcli64_flattens_by_treatments_through_host(rig):
    raid, host = rig("storcli64")
    answer = {"Drive /c0/e65/s0": [S64_ROW], "Drive /c0/e65/s0 - Detailed Information": S64_DETAIL}
    host.on("ctr_get_pd_cfg_storcli64", parser(answer))
    out = raid.get_one_physical_drive_info(eid="65", sid="0", adapter_id="0")
    assert host.sent() == [("host", "ctr_get_pd_cfg_storcli64",
                           [("eid", "65"), ("sid", "0"), ("adapter_id", "0")])]
    assert type(out) is dict and list(out)[:20] == list(DETAIL) + ["raw_data"]
    assert {k: out[k] for k in DETAIL} == DETAIL
    assert out["raw_data"]["Drive position"] == "DriveGroup:0, Span:0, Row:0"


@pytest.mark.parametrize("eid, sid", [("65", "0"), ("65", 0)])
def test_one_arcconf_searches_the_full_listing(rig, eid, sid):
    raid, host = rig("arcconf")
    seen = []
    records = [{"eid": "0", "sid": "1", "n": 1}, {"eid": "65", "sid": "0", "n": 2},
               {"eid": "65", "sid": "0", "n": 3}]
    raid.get_all_physical_drive_info = lambda *a, **kw: seen.append((a, kw)) or records
    assert raid.get_one_physical_drive_info(eid="65", sid="0", adapter_id="3") is records[1]
    assert seen == [((), {})] and host.calls == []
    raid.get_all_physical_drive_info = lambda: [{"eid": "65", "sid": "0"}] if sid == 0 else []
    with pytest.raises(OrvexException) as err:
        raid.get_one_physical_drive_info(eid=eid, sid=sid)
    assert str(err.value) == "Physical drive not found. eid: [65], sid: [0]"


# -- all drives ---------------------------------------------------------------

def test_all_storcli64_keeps_detailed_sections_with_their_summaries(rig):
    raid, host = rig("storcli64")
    row1 = dict(S64_ROW, **{"EID:Slt": "65:1", "DID": 9, "State": "JBOD", "DG": "-"})
    answer = {"Controller": "0", "Drive /c0/e65/s0": [S64_ROW],
              "Drive /c0/e65/s0 - Detailed Information": S64_DETAIL,
              "Drive /c0/e65/s1": [row1],
              "Drive /c0/e65/s1 - Detailed Information": {},
              "Drive /c0/e65/s9 Detailed Information X": {}}
    host.on("ctr_get_pd_cfg_storcli64", parser(answer),
            parser({"Drive /c0/e65/s0 - Detailed Information": S64_DETAIL}))
    out = raid.get_all_physical_drive_info(adapter_id="0", eid="1", sid="2")
    assert host.sent() == [("host", "ctr_get_pd_cfg_storcli64",
                           [("adapter_id", "0"), ("eid", "all"), ("sid", "all")])]
    assert ids(out) == [("65", "0"), ("65", "1")]
    assert {k: out[0][k] for k in DETAIL} == DETAIL
    assert (out[1]["type"], out[1]["status"], out[1]["link_speed"]) == ("jbod", "jbod", "NA")
    with pytest.raises(KeyError, match="Drive /c0/e65/s0"):  # a section without its summary
        raid.get_all_physical_drive_info()


@pytest.mark.parametrize("section, summary", [
    ("Drive /c0/e65/s0 - Detailed Information\n", "Drive /c0/e65/s0"),  # "$" before a last newline
    ("Drive /c0/e65/s0\x1c- Detailed Information", "Drive /c0/e65/s0"),  # str.strip()'s whitespace
    ("Drive /c0/e65/s0\xa0- Detailed Information", "Drive /c0/e65/s0"),
    ("Drive /c0/é65 - Detailed Information", "Drive /c0/é65"),
    ("Drive /c0/e65\n/s0 - Detailed Information", None),  # "." stops at a newline
    ("Drive /c0/e65/s0 - Detailed Information\n\n", None),
    ("Drive /c0/e65/s0 - Detailed Information ", None),
])
@pytest.mark.parametrize("kind", [str, type("Text", (str,), {})])
def test_all_storcli64_section_keys_read_as_the_tool_writes_them(rig, section, summary, kind):
    raid, host = rig("storcli64")
    answer = {kind(section): S64_DETAIL}
    if summary is not None:
        answer[summary] = [S64_ROW]
    host.on("ctr_get_pd_cfg_storcli64", parser(answer))
    out = raid.get_all_physical_drive_info()
    assert ids(out) == ([("65", "0")] if summary else [])
    if summary:
        assert out[0]["raw_data"]["Drive position"] == "DriveGroup:0, Span:0, Row:0"


def test_all_arcconf_leaves_out_enclosures(rig):
    raid, host = rig("arcconf")
    d0 = {"reported_channel_device_t_l": "0,0(0:0)", "state": "Reconstructing",
          "reported_location": "Enclosure 0, Slot 4", "total_size": "5723166 MB",
          "transfer_speed": "SATA 6.0 Gb/s", "ssd": "No", "block_size": "512 Bytes",
          "physical_block_size": "4K Bytes", "write_cache": "Enabled (write-back)",
          "power_state": "Full rpm"}
    groups = {"physical_devices_on_controller": {"device_0": d0,
                                                 "device_2": {"enclosure_id": "0"}},
              "more": {"device_1": dict(d0, reported_channel_device_t_l="0,1(1:0)")}}
    host.on("ctr_get_pd_cfg_arcconf", parser({"physical_device_information": groups}))
    out = raid.get_all_physical_drive_info(adapter_id="1")
    assert host.sent() == [("host", "ctr_get_pd_cfg_arcconf", [("adapter_id", "1")])]
    assert ids(out) == [("0", "0"), ("0", "1")]
    assert [out[0][k] for k in ("slot", "status", "type", "size", "logical_sector_size",
                                "physical_sector_size", "write_cache", "spin_status")] == [
        "4", "reconstructing", "member", "5.458TB", "512B", "4096B", "On", "Spin Up"]


def test_all_sorbctl_asks_each_listed_drive_with_ids_only(rig):
    raid, host = rig("sorbctl")
    calls = []
    raid._get_physical_drive_list = lambda **kw: calls.append(("list", kw)) or [
        {"eid": "0", "sid": "2"}, {"eid": "0", "sid": "1"}]
    raid.get_one_physical_drive_info = lambda **kw: calls.append(("one", kw)) or kw["sid"]
    assert raid.get_all_physical_drive_info(adapter_id="1") == ["2", "1"]
    assert calls == [("list", {"adapter_id": "1"}), ("one", {"eid": "0", "sid": "2"}),
                     ("one", {"eid": "0", "sid": "1"})]
    assert host.calls == []
