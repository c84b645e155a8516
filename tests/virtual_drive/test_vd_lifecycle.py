"""Virtual drive creation, deletion, listing, details and member drives."""
import logging

import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

OK = parser("Create VD success")
NO = parser("Create VD failed")

STORCLI_ALL = {
    "/c0/v0": [{"DG/VD": "0/0", "TYPE": "RAID1", "State": "Optl", "Cache": "RWBD",
                "Size": "893.750 GB", "Name": "sys"}],
    "PDs for VD 0": [{"EID:Slt": "65:1", "DID": 9}, {"EID:Slt": "65:2", "DID": 10}],
    "VD0 Properties": {"Strip Size": "256 KB", "OS Drive Name": "/dev/sdb",
                       "SCSI NAA Id": "600062b2", "Emulation type": "default"},
    "/c0/v1": [{"DG/VD": "1/1", "TYPE": "RAID5", "State": "Pdgd", "Cache": "NRAWBC",
                "Size": "2.0 TB", "Name": "data"}],
    "PDs for VD 1": [{"EID:Slt": "65:3"}],
    "VD1 Properties": {"Strip Size": "64 KB", "OS Drive Name": "/dev/sdc",
                       "SCSI NAA Id": "600062b3", "Emulation type": "none"},
}

ARCCONF_LD = {"logical_device_information": {
    "logical_device_number_0": {
        "logical_device_name": "sys", "raid_level": "1", "status_of_logical_device": "Optimal",
        "size": "100 GB", "group_0,_segment_0": "Present (953869MB, SATA, HDD, Channel:0, Device:0) S1",
        "group_0,_segment_1": "Present (953869MB, SATA, HDD, Channel:0, Device:1) S2"},
    "logical_device_number_10": {
        "logical_device_name": "big", "raid_level": "5", "status_of_logical_device": "Optimal",
        "device_2": "Present (953869MB, SAS, HDD, Channel:1, Device:4) S3",
        "Dedicated Hot-Spare 0 : Channel:1, Device:7": "Present"},
    "logical_device_number_3": {"logical_device_name": "empty", "raid_level": "0"},
}}


def run(rig, tool, wrapper, call, answer=OK):
    raid, host = rig(tool)
    host.on(wrapper, answer)
    return call(raid), host


# -- creation ---------------------------------------------------------------------
CREATE = [
    ("storcli64", "ctr_create_vd_storcli64",
     dict(raid_level="1", drives=["65:1", "65:2"], size="", name="a", adapter_id="0"),
     [("raid_level", "1"), ("drives", ["65:1", "65:2"]), ("name", "a"), ("adapter_id", "0")]),
    ("sorbctl", "create_controller_vd_sorbctl",
     dict(raid_level="5", drives=["0:1", "0:2", "0:3"], size=None, init="front"),
     [("raid_level", "5"), ("drives", ["0:1", "0:2", "0:3"]), ("init", "front")]),
    ("sorbctl", "create_controller_vd_sorbctl",
     dict(raid_level="0", drives=["0:1"], size="100GB", strip_size="64"),
     [("raid_level", "0"), ("drives", ["0:1"]), ("size", "100GB"), ("strip_size", "64")]),
    ("arcconf", "ctr_create_vd_arcconf",
     dict(raid_level="50", drives=list("abcdefgh"), pd_per_array="4", size=""),
     [("raid_level", "50"), ("drives", list("abcdefgh")), ("legs", "2")]),
    ("arcconf", "ctr_create_vd_arcconf",
     dict(raid_level="60", drives=list("abcdefghi"), pd_per_array=4, init="front"),
     [("raid_level", "60"), ("drives", list("abcdefghi")), ("init", "build"), ("legs", "2")]),
    ("arcconf", "ctr_create_vd_arcconf",
     dict(raid_level="1", drives=["0 0", "0 1"], pd_per_array="2", init="front"),
     [("raid_level", "1"), ("drives", ["0 0", "0 1"]), ("pd_per_array", "2")]),
    ("arcconf", "ctr_create_vd_arcconf",
     dict(raid_level="5", drives=list("abc"), pd_per_array="", init="background"),
     [("raid_level", "5"), ("drives", list("abc")), ("pd_per_array", ""), ("init", "default")]),
    ("arcconf", "ctr_create_vd_arcconf",
     dict(raid_level="6", drives=list("abcd"), pd_per_array="", init="quick"),
     [("raid_level", "6"), ("drives", list("abcd")), ("pd_per_array", ""), ("init", None)]),
    ("arcconf", "ctr_create_vd_arcconf",
     dict(raid_level="1", drives=list("ab"), pd_per_array="", init=""),
     [("raid_level", "1"), ("drives", list("ab")), ("pd_per_array", ""), ("init", "")]),
]


@pytest.mark.parametrize("tool, wrapper, kwargs, sent", CREATE)
def test_create_sends_translated_params(rig, tool, wrapper, kwargs, sent):
    result, host = run(rig, tool, wrapper, lambda r: r.create_virtual_drive(**kwargs))
    assert result is True
    assert host.wrappers == [wrapper]
    assert host.last().route == "self"
    assert list(host.last().params.items()) == sent


def test_create_arcconf_needs_pd_per_array(rig):
    raid, host = rig("arcconf")
    with pytest.raises(KeyError, match="pd_per_array"):
        raid.create_virtual_drive(raid_level="1", drives=["0 0"])
    assert host.calls == []


@pytest.mark.parametrize("tool, wrapper", [
    ("storcli64", "ctr_delete_vd_storcli64"), ("arcconf", "delete_vd_arcconf"),
    ("sorbctl", "delete_controller_vd_sorbctl")])
@pytest.mark.parametrize("answer, expected", [(OK, True), (NO, False), (parser(None), False)])
def test_delete(rig, tool, wrapper, answer, expected):
    result, host = run(rig, tool, wrapper,
                       lambda r: r.delete_virtual_drive(vid="2", oper="force", adapter_id="1"),
                       answer)
    assert result is expected
    assert host.calls[0].wrapper == wrapper
    assert list(host.calls[0].params.items()) == [("vid", "2"), ("oper", "force"),
                                                  ("adapter_id", "1")]


# -- listing -------------------------------------------------------------------------
def test_list_arcconf_numbers_entries_from_their_keys(rig):
    result, host = run(rig, "arcconf", "ctr_get_vd_cfg_arcconf",
                       lambda r: r._get_virtual_drive_list(adapter_id="1"), parser(ARCCONF_LD))
    assert [e["vd"] for e in result] == ["0", "10", "3"]
    assert [e["name"] for e in result] == ["sys", "big", "empty"]
    assert result[1]["status"] == "Optimal" and result[1]["raid_level"] == "5"
    assert result[2]["status"] == ""
    assert result[0]["raw_data"]["group_0,_segment_1"].startswith("Present")
    assert list(host.last().params.items()) == [("adapter_id", "1")]


@pytest.mark.parametrize("tool, wrapper, answer, first", [
    ("storcli64", "ctr_get_all_cfg_storcli64",
     {"VD LIST": [{"DG/VD": "0/0", "TYPE": "RAID1", "State": "Optl", "Cache": "RWBD",
                   "Size": "1 TB", "Name": "x"}], "PD LIST": []},
     {"status": "Optl", "raid_level": "RAID1", "name": "x", "size": "1 TB",
      "write_cache": "RWBD", "strip_unit_size": ""}),
    ("sorbctl", "get_controller_vdlist_sorbctl",
     {"VirtualDrives": [{"ArrayID": "0", "ID": "4", "Status": "Normal", "RaidLevel": "RAID5",
                         "Name": "v4", "Capacity": "2TB", "StripSize": "256KB",
                         "WriteCache": "WB", "ReadCache": "Ahead"}]},
     {"array": "0", "vd": "4", "status": "Normal", "raid_level": "RAID5", "size": "2TB",
      "strip_unit_size": "256KB", "write_cache": "WB", "read_cache": "Ahead"}),
])
def test_list_reads_its_section(rig, tool, wrapper, answer, first):
    result, host = run(rig, tool, wrapper, lambda r: r._get_virtual_drive_list(), parser(answer))
    assert len(result) == 1
    assert {k: result[0][k] for k in first} == first
    assert list(result[0])[-1] == "raw_data"
    assert host.wrappers == [wrapper]


# -- details ---------------------------------------------------------------------------
def test_one_storcli64_regroups_one_drive(rig):
    result, host = run(rig, "storcli64", "ctr_get_vd_cfg_storcli64",
                       lambda r: r.get_one_virtual_drive_info(vid="1"),
                       parser({k: v for k, v in STORCLI_ALL.items() if "1" in k}))
    assert {k: v for k, v in result.items() if k != "raw_data"} == {
        "vd": "1", "name": "data", "raid_level": "RAID5", "status": "Pdgd",
        "write_cache": "AWB", "read_cache": "NoRA", "size": "2.0 TB", "strip_size": "64 KB",
        "os_drive_name": "/dev/sdc", "vdwwn": "600062b3"}
    assert result["raw_data"]["Emulation type"] == "none"
    assert result["raw_data"]["PDs for VD 1"] == [{"EID:Slt": "65:3"}]
    assert list(host.last().params.items()) == [("vid", "1")]


def test_all_storcli64_groups_sections_per_drive(rig):
    result, host = run(rig, "storcli64", "ctr_get_vd_cfg_storcli64",
                       lambda r: r.get_all_virtual_drive_info(adapter_id="0"),
                       parser(dict(STORCLI_ALL, **{"Total VD Count": 2})))
    assert [(d["vd"], d["strip_size"], d["os_drive_name"]) for d in result] == [
        ("0", "256 KB", "/dev/sdb"), ("1", "64 KB", "/dev/sdc")]
    assert result[0]["raw_data"]["PDs for VD 0"][1]["EID:Slt"] == "65:2"
    assert "PDs for VD 1" not in result[0]["raw_data"]
    assert host.wrappers == ["ctr_get_vd_cfg_storcli64"]
    assert list(host.last().params.items()) == [("adapter_id", "0")]


def test_one_sorbctl_merges_information_sections(rig):
    answer = {"VirtualDriveInformation": {"ID": "2", "Name": "v2", "RaidLevel": "RAID10",
                                          "Status": "Normal", "Capacity": "1TB"},
              "VirtualDriveExtInformation": {"OsDriveName": "/dev/sdd", "WWN": "6a"},
              "Summary": {"Name": "ignored"}}
    result, host = run(rig, "sorbctl", "get_controller_vd_info_sorbctl",
                       lambda r: r.get_one_virtual_drive_info(vid="2"), parser(answer))
    assert (result["vd"], result["name"], result["os_drive_name"], result["vdwwn"],
            result["strip_size"]) == ("2", "v2", "/dev/sdd", "6a", "")
    assert "Summary" not in result["raw_data"]


def test_one_arcconf_picks_from_list(rig):
    raid, host = rig("arcconf")
    host.on("ctr_get_vd_cfg_arcconf", parser(ARCCONF_LD))
    assert raid.get_one_virtual_drive_info(vid="10")["name"] == "big"
    with pytest.raises(OrvexException, match=r"^No such vid:7 or adapter_id!$"):
        raid.get_one_virtual_drive_info(vid="7", adapter_id="1")
    assert list(host.last().params.items()) == [("vid", "7"), ("adapter_id", "1")]


def test_all_arcconf_returns_list_entries(rig):
    raid, _ = rig("arcconf")
    raid._get_virtual_drive_list = lambda **kw: [{"vd": "0", "kw": kw}]
    assert raid.get_all_virtual_drive_info(adapter_id="2") == [{"vd": "0",
                                                                "kw": {"adapter_id": "2"}}]


def test_all_sorbctl_asks_each_listed_drive(rig):
    raid, host = rig("sorbctl")
    asked = []
    raid._get_virtual_drive_list = lambda **kw: [{"vd": "0"}, {"vd": "3"}]
    raid.get_one_virtual_drive_info = lambda **kw: asked.append(list(kw.items())) or kw["vid"]
    assert raid.get_all_virtual_drive_info(adapter_id="1") == ["0", "3"]
    assert asked == [[("vid", "0"), ("adapter_id", "1")], [("vid", "3"), ("adapter_id", "1")]]
    raid._get_virtual_drive_list = lambda **kw: []
    asked.clear()
    assert raid.get_all_virtual_drive_info() == [] and asked == []
    assert host.calls == []


# -- member drives ------------------------------------------------------------------------
def test_members_storcli64(rig):
    result, host = run(rig, "storcli64", "ctr_get_vd_cfg_storcli64",
                       lambda r: r.get_virtual_drive_member_drives(vid="0"), parser(STORCLI_ALL))
    assert result == [{"eid": "65", "sid": "1"}, {"eid": "65", "sid": "2"}]
    assert list(host.last().params.items()) == [("vid", "0")]


def test_members_sorbctl(rig):
    raid, host = rig("sorbctl")
    host.on("get_controller_vd_pdarray_sorbctl",
            parser({"MemberDrives": [{"Enc": "0", "Slot": "4"}, {"Enc": "1", "Slot": "0"}]}))
    assert raid.get_virtual_drive_member_drives(vid="1") == [{"eid": "0", "sid": "4"},
                                                             {"eid": "1", "sid": "0"}]
    host.on("get_controller_vd_pdarray_sorbctl", parser("fail"))
    with pytest.raises(OrvexException, match=r"^get virtual drive's member drives failed$"):
        raid.get_virtual_drive_member_drives(vid="1")


def test_members_arcconf_reads_segments_and_dedicated_spares(rig, caplog):
    raid, host = rig("arcconf")
    host.on("ctr_get_vd_cfg_arcconf", parser(ARCCONF_LD))
    with caplog.at_level(logging.INFO):
        assert raid.get_virtual_drive_member_drives(vid="0") == [
            {"eid": "0", "sid": "0"}, {"eid": "0", "sid": "1"}]
        assert raid.get_virtual_drive_member_drives(vid="10") == [
            {"eid": "1", "sid": "4"}, {"eid": "1", "sid": "7"}]
    assert "获取虚拟盘成员0信息成功！" in caplog.messages
    assert "获取虚拟盘成员10信息成功！" in caplog.messages


@pytest.mark.parametrize("vid", ["3", "9"])
def test_members_arcconf_failures(rig, vid):
    raid, host = rig("arcconf")
    host.on("ctr_get_vd_cfg_arcconf", parser(ARCCONF_LD))
    with pytest.raises(OrvexException, match=r"^获取虚拟磁盘成员"):
        raid.get_virtual_drive_member_drives(vid=vid)
