"""Virtual drive creation params, listing, details and member drives."""
import logging

import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

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
SEGMENT = "Present (953869MB, %s, HDD, Channel:%d, Device:%d) S1"
ARCCONF_LD = {"logical_device_information": {
    "logical_device_number_0": {
        "logical_device_name": "sys", "raid_level": "1", "status_of_logical_device": "Optimal",
        "group_0,_segment_0": SEGMENT % ("SATA", 0, 0), "group_0,_segment_1": SEGMENT % ("SATA", 0, 1)},
    "logical_device_number_10": {
        "logical_device_name": "big", "raid_level": "5", "status_of_logical_device": "Optimal",
        "device_2": SEGMENT % ("SAS", 1, 4), "Dedicated Hot-Spare 0 : Channel:1, Device:7": "Present"},
    "logical_device_number_3": {"logical_device_name": "empty", "raid_level": "0"},
}}


def run(rig, tool, wrapper, call, answer):
    raid, host = rig(tool)
    host.on(wrapper, answer)
    return call(raid), host


# An empty size is not sent; arcconf sends spans (legs) for RAID50/60 and an
# initialisation method for the parity levels only.
@pytest.mark.parametrize("tool, kwargs, sent", [
    ("storcli64", dict(raid_level="1", drives=["65:1"], size="", name="a", adapter_id="0"),
     [("raid_level", "1"), ("drives", ["65:1"]), ("name", "a"), ("adapter_id", "0")]),
    ("sorbctl", dict(raid_level="5", drives=["0:1"], size=None, init="front"),
     [("raid_level", "5"), ("drives", ["0:1"]), ("init", "front")]),
    ("sorbctl", dict(raid_level="0", drives=["0:1"], size="100GB", strip_size="64"),
     [("raid_level", "0"), ("drives", ["0:1"]), ("size", "100GB"), ("strip_size", "64")]),
    ("arcconf", dict(raid_level="50", drives=list("abcdefgh"), pd_per_array="4", size=""),
     [("raid_level", "50"), ("drives", list("abcdefgh")), ("legs", "2")]),
    ("arcconf", dict(raid_level="60", drives=list("abcdefghi"), pd_per_array=4, init="front"),
     [("raid_level", "60"), ("drives", list("abcdefghi")), ("init", "build"), ("legs", "2")]),
    ("arcconf", dict(raid_level="1", drives=["0 0"], pd_per_array="2", init="front"),
     [("raid_level", "1"), ("drives", ["0 0"]), ("pd_per_array", "2")]),
    ("arcconf", dict(raid_level="5", drives=list("abc"), pd_per_array="", init="background"),
     [("raid_level", "5"), ("drives", list("abc")), ("pd_per_array", ""), ("init", "default")]),
    ("arcconf", dict(raid_level="6", drives=list("abcd"), pd_per_array="", init="quick"),
     [("raid_level", "6"), ("drives", list("abcd")), ("pd_per_array", ""), ("init", None)]),
    ("arcconf", dict(raid_level="1", drives=list("ab"), pd_per_array="", init=""),
     [("raid_level", "1"), ("drives", list("ab")), ("pd_per_array", ""), ("init", "")]),
])
def test_create_params(rig, tool, kwargs, sent):
    raid, host = rig(tool)
    host.on({"storcli64": "ctr_create_vd_storcli64", "arcconf": "ctr_create_vd_arcconf",
             "sorbctl": "create_controller_vd_sorbctl"}[tool], parser("Create VD success"))
    assert raid.create_virtual_drive(**kwargs) is True
    assert [(c.route, list(c.params.items())) for c in host.calls] == [("self", sent)]


def test_create_arcconf_needs_pd_per_array(rig):
    raid, host = rig("arcconf")
    with pytest.raises(KeyError, match="pd_per_array"):
        raid.create_virtual_drive(raid_level="1", drives=["0 0"])
    assert host.calls == []


def test_list_arcconf_numbers_entries_from_their_keys(rig):
    result, host = run(rig, "arcconf", "ctr_get_vd_cfg_arcconf",
                       lambda r: r._get_virtual_drive_list(adapter_id="1"), parser(ARCCONF_LD))
    assert [(e["vd"], e["name"], e["status"]) for e in result] == [
        ("0", "sys", "Optimal"), ("10", "big", "Optimal"), ("3", "empty", "")]
    assert list(host.last().params.items()) == [("adapter_id", "1")]


def test_details_storcli64_regroup_each_drive(rig):
    one, host = run(rig, "storcli64", "ctr_get_vd_cfg_storcli64",
                    lambda r: r.get_one_virtual_drive_info(vid="1"),
                    parser({k: v for k, v in STORCLI_ALL.items() if "1" in k}))
    assert {k: v for k, v in one.items() if k != "raw_data"} == {
        "vd": "1", "name": "data", "raid_level": "RAID5", "status": "Pdgd",
        "write_cache": "AWB", "read_cache": "NoRA", "size": "2.0 TB", "strip_size": "64 KB",
        "os_drive_name": "/dev/sdc", "vdwwn": "600062b3"}
    assert (one["raw_data"]["Emulation type"], one["raw_data"]["PDs for VD 1"]) == (
        "none", [{"EID:Slt": "65:3"}])
    assert list(host.last().params.items()) == [("vid", "1")]
    every, host = run(rig, "storcli64", "ctr_get_vd_cfg_storcli64",
                      lambda r: r.get_all_virtual_drive_info(adapter_id="0"),
                      parser(dict(STORCLI_ALL, **{"Total VD Count": 2})))
    assert [(d["vd"], d["strip_size"], d["os_drive_name"]) for d in every] == [
        ("0", "256 KB", "/dev/sdb"), ("1", "64 KB", "/dev/sdc")]
    assert every[0]["raw_data"]["PDs for VD 0"][1]["EID:Slt"] == "65:2"
    assert "PDs for VD 1" not in every[0]["raw_data"]
    assert list(host.last().params.items()) == [("adapter_id", "0")]


def test_one_sorbctl_merges_information_sections(rig):
    result, _ = run(rig, "sorbctl", "get_controller_vd_info_sorbctl",
                    lambda r: r.get_one_virtual_drive_info(vid="2"), parser({
                        "VirtualDriveInformation": {"ID": "2", "Name": "v2"},
                        "VirtualDriveExtInformation": {"OsDriveName": "/dev/sdd", "WWN": "6a"},
                        "Summary": {"Name": "ignored"}}))
    assert (result["vd"], result["name"], result["os_drive_name"], result["vdwwn"],
            result["strip_size"]) == ("2", "v2", "/dev/sdd", "6a", "")
    assert "Summary" not in result["raw_data"]


def test_one_arcconf_picks_from_list(rig):
    raid, host = rig("arcconf")
    host.on("ctr_get_vd_cfg_arcconf", parser(ARCCONF_LD))
    assert raid.get_one_virtual_drive_info(vid="10")["name"] == "big"
    with pytest.raises(OrvexException) as err:
        raid.get_one_virtual_drive_info(vid="7", adapter_id="1")
    assert str(err.value) == "No such vid:7 or adapter_id!"
    assert list(host.last().params.items()) == [("vid", "7"), ("adapter_id", "1")]


def test_all_sorbctl_asks_each_listed_drive(rig):
    raid, host = rig("sorbctl")
    asked = []
    raid._get_virtual_drive_list = lambda **kw: [{"vd": "0"}, {"vd": "3"}]
    raid.get_one_virtual_drive_info = lambda **kw: asked.append(list(kw.items())) or kw["vid"]
    assert raid.get_all_virtual_drive_info(adapter_id="1") == ["0", "3"]
    assert asked == [[("vid", "0"), ("adapter_id", "1")], [("vid", "3"), ("adapter_id", "1")]]
    assert host.calls == []


# arcconf: group segments and member devices, and dedicated spares by their name
@pytest.mark.parametrize("vid, members", [("0", [("0", "0"), ("0", "1")]), ("10", [("1", "4"), ("1", "7")])])
def test_members_arcconf(rig, caplog, vid, members):
    with caplog.at_level(logging.INFO):
        result, host = run(rig, "arcconf", "ctr_get_vd_cfg_arcconf",
                           lambda r: r.get_virtual_drive_member_drives(vid=vid), parser(ARCCONF_LD))
    assert result == [{"eid": e, "sid": s} for e, s in members]
    assert "获取虚拟盘成员%s信息成功！" % vid in caplog.messages


@pytest.mark.parametrize("tool, wrapper, answer, vid, message", [
    ("sorbctl", "get_controller_vd_pdarray_sorbctl", "fail", "1",
     "get virtual drive's member drives failed"),
    ("arcconf", "ctr_get_vd_cfg_arcconf", ARCCONF_LD, "9", "获取虚拟磁盘成员信息失败，未找到逻辑盘 9"),
    ("arcconf", "ctr_get_vd_cfg_arcconf", ARCCONF_LD, "3",
     "获取虚拟磁盘成员信息失败，逻辑盘 3 没有可读取的成员盘"),
])
def test_members_failures(rig, tool, wrapper, answer, vid, message):
    with pytest.raises(OrvexException) as err:
        run(rig, tool, wrapper, lambda r: r.get_virtual_drive_member_drives(vid=vid),
            parser(answer))
    assert str(err.value) == message
