"""Virtual drive policies: translated params, refusals, read-backs, boot drive."""
import logging

import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

OK = parser("Set VD property success")
NO = parser("Set VD property failed")


def run(rig, tool, wrapper, call, answer=OK):
    raid, host = rig(tool)
    host.on(wrapper, answer)
    return call(raid), host


# (tool, call, wrapper, params as sent)
SETTERS = [
    ("storcli64", lambda r: r.set_virtual_drive_write_cache_mode(vid="0", state="on", adapter_id="1"),
     "vd_set_pdcache_storcli64", [("vid", "0"), ("adapter_id", "1"), ("pdcache", "on")]),
    ("arcconf", lambda r: r.set_virtual_drive_write_cache_mode(vid="0", state="unchanged"),
     "set_controller_pdcache_arcconf", [("vid", "0"), ("drive_type", "configured"), ("state", "3")]),
    ("arcconf", lambda r: r.set_virtual_drive_write_cache_mode(vid="1", state="default"),
     "set_controller_pdcache_arcconf", [("vid", "1"), ("drive_type", "configured"), ("state", "0")]),
    ("arcconf", lambda r: r.set_virtual_drive_write_cache_mode(vid="1", state="off"),
     "set_controller_pdcache_arcconf", [("vid", "1"), ("drive_type", "configured"), ("state", "2")]),
    ("arcconf", lambda r: r.set_virtual_drive_write_cache_mode(vid="1", state="ON"),
     "set_controller_pdcache_arcconf", [("vid", "1"), ("drive_type", "configured"), ("state", None)]),
    ("sorbctl", lambda r: r.set_virtual_drive_write_cache_mode(vid="2", state="off"),
     "set_controller_vd_pdcache_sorbctl", [("vid", "2"), ("state", "off")]),
    ("storcli64", lambda r: r.set_virtual_drive_wrcache(vid="0", wrcache="awb"),
     "vd_set_cache_storcli64", [("vid", "0"), ("wrcache", "awb")]),
    ("sorbctl", lambda r: r.set_virtual_drive_wrcache(vid="0", wrcache="awb"),
     "set_controller_vd_wcache_sorbctl", [("vid", "0"), ("policy", "WBE")]),
    ("sorbctl", lambda r: r.set_virtual_drive_wrcache(vid="0", wrcache="wt", adapter_id="0"),
     "set_controller_vd_wcache_sorbctl", [("vid", "0"), ("adapter_id", "0"), ("policy", "WT")]),
    ("arcconf", lambda r: r.set_virtual_drive_wrcache(vid="0", wrcache="awb"),
     "set_vd_wcache_arcconf", [("vid", "0"), ("wrcache", "awb"), ("policy", "con")]),
    ("arcconf", lambda r: r.set_virtual_drive_wrcache(vid="0", wrcache="wb"),
     "set_vd_wcache_arcconf", [("vid", "0"), ("wrcache", "wb"), ("policy", "con")]),
    ("arcconf", lambda r: r.set_virtual_drive_wrcache(vid="0", wrcache="wt"),
     "set_vd_wcache_arcconf", [("vid", "0"), ("wrcache", "wt"), ("policy", "coff")]),
    ("storcli64", lambda r: r.set_virtual_drive_rdcache("0", "nora"),
     "vd_set_cache_storcli64", [("vid", "0"), ("rdcache", "nora")]),
    ("sorbctl", lambda r: r.set_virtual_drive_rdcache("0", "ra"),
     "set_controller_vd_rcache_sorbctl", [("vid", "0"), ("policy", "Ahead")]),
    ("sorbctl", lambda r: r.set_virtual_drive_rdcache(vid="0", rdcache="nora"),
     "set_controller_vd_rcache_sorbctl", [("vid", "0"), ("policy", "No_Ahead")]),
    ("sorbctl", lambda r: r.set_virtual_drive_rdcache("0", "adaptive"),
     "set_controller_vd_rcache_sorbctl", [("vid", "0"), ("policy", "adaptive")]),
    ("arcconf", lambda r: r.set_virtual_drive_rdcache("0", "nora"),
     "set_vd_wcache_arcconf", [("vid", "0"), ("rdcache", "nora"), ("policy", "coff")]),
    ("arcconf", lambda r: r.set_virtual_drive_rdcache("0", "ra"),
     "set_vd_wcache_arcconf", [("vid", "0"), ("rdcache", "ra"), ("policy", "con")]),
    ("arcconf", lambda r: r.set_virtual_drive_rdcache("0", "adaptive"),
     "set_vd_wcache_arcconf", [("vid", "0"), ("rdcache", "adaptive")]),
    ("storcli64", lambda r: r.set_vd_iopolicy_status(vid="0", iopolicy="direct"),
     "vd_set_iopolicy_storcli64", [("vid", "0"), ("iopolicy", "direct")]),
    ("storcli64", lambda r: r.set_vd_emulation(vid="0", emulation_type="2", adapter_id="0"),
     "set_vd_emulation_storcli64", [("vid", "0"), ("emulationType", "2"), ("adapter_id", "0")]),
    ("storcli64", lambda r: r.set_ctl_vd_hidden(vid="0", state="on"),
     "set_vd_hidden_storcli64", [("vid", "0"), ("state", "on")]),
    ("storcli64", lambda r: r.set_ctl_vd_accesspolicy(vid="0", accesspolicy="blocked"),
     "set_vd_access_storcli64", [("vid", "0"), ("accesspolicy", "blocked")]),
    ("sorbctl", lambda r: r.vd_set_bootdrive(vid="1", state="secondary"),
     "set_controller_vd_boot_sorbctl", [("vid", "1"), ("state", "on")]),
    ("sorbctl", lambda r: r.vd_set_bootdrive(vid="1", state="off"),
     "set_controller_vd_boot_sorbctl", [("vid", "1"), ("state", "off")]),
    ("arcconf", lambda r: r.vd_set_bootdrive(vid="1", state="secondary"),
     "set_vd_boot_arcconf", [("vid", "1"), ("state", "secondary")]),
    ("arcconf", lambda r: r.vd_set_bootdrive(vid="1", state="off"),
     "set_vd_boot_arcconf", [("vid", "1"), ("state", "none")]),
]


@pytest.mark.parametrize("answer, expected", [(OK, True), (NO, False)])
@pytest.mark.parametrize("tool, call, wrapper, sent", SETTERS)
def test_setters_send_translated_params(rig, tool, call, wrapper, sent, answer, expected):
    result, host = run(rig, tool, wrapper, call, answer)
    assert result is expected
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("self", wrapper, sent)]


def test_iopolicy_storcli64_reads_last_cache_letter(rig):
    answer = {"/c0/v0": [{"DG/VD": "0/0", "Cache": "RWBD"}],
              "/c0/v1": [{"DG/VD": "1/1", "Cache": "nrwtc"}],
              "/c0/v2": [{"DG/VD": "2/2", "Cache": "-"}],
              "VD0 Properties": {"Strip Size": "256 KB"}}
    result, host = run(rig, "storcli64", "ctr_get_vd_cfg_storcli64",
                       lambda r: r.get_vd_iopolicy_status(vid="all", adapter_id="0"), parser(answer))
    assert result == {"/c0/v0": {"iopolicy": "Direct IO"}, "/c0/v1": {"iopolicy": "Cached IO"},
                      "/c0/v2": {"iopolicy": "-"}}
    assert list(host.last().params.items()) == [("vid", "all"), ("adapter_id", "0")]


@pytest.mark.parametrize("kwargs, prefix", [({"adapter_id": "1"}, "/c1"), ({}, "/c3")])
def test_emulation_storcli64_keys_by_controller_and_drive(rig, kwargs, prefix):
    answer = {"/c3/v0": [{"DG/VD": "0/0"}],
              "VD0 Properties": {"Emulation type": "default", "Strip Size": "64 KB"},
              "VD12 Properties": {"Emulation type": "none"}}
    result, _ = run(rig, "storcli64", "ctr_get_vd_cfg_storcli64",
                    lambda r: r.get_vd_emulation(vid="all", **kwargs), parser(answer))
    assert result == {prefix + "/v0": {"Emulation type": "default"},
                      prefix + "/v12": {"Emulation type": "none"}}


@pytest.mark.parametrize("state", ["primary", "secondary", "off"])
def test_bootdrive_storcli64_orders_by_firmware_first(rig, state):
    raid, host = rig("storcli64")
    host.on("ctr_set_device_order_by_firmware", parser("success"))
    host.on("vd_set_bootdrive_storcli64", OK)
    assert raid.vd_set_bootdrive(vid="0", state=state, adapter_id="0") is True
    sent = "off" if state == "off" else "on"
    assert host.wrappers == ["ctr_set_device_order_by_firmware", "vd_set_bootdrive_storcli64"]
    assert list(host.last().params.items()) == [
        ("vid", "0"), ("adapter_id", "0"), ("bootdrive", sent), ("status", sent)]


def test_bootdrive_storcli64_tolerates_firmware_order_failure(rig, caplog):
    raid, host = rig("storcli64")
    host.on("ctr_set_device_order_by_firmware", OrvexException("unsupported option"))
    host.on("vd_set_bootdrive_storcli64", NO)
    with caplog.at_level(logging.ERROR):
        assert raid.vd_set_bootdrive(vid="0", state="primary") is False
    errors = [r for r in caplog.records if r.levelno == logging.ERROR]
    assert len(errors) == 1 and "unsupported option" in errors[0].getMessage()
    assert host.wrappers == ["ctr_set_device_order_by_firmware", "vd_set_bootdrive_storcli64"]


def test_bootdrive_storcli64_lets_interrupts_through(rig):
    raid, host = rig("storcli64")
    host.on("ctr_set_device_order_by_firmware", KeyboardInterrupt())
    with pytest.raises(KeyboardInterrupt):
        raid.vd_set_bootdrive(vid="0", state="primary")


@pytest.mark.parametrize("tool, wrapper, answer, expected", [
    ("storcli64", "ctr_get_boot_drive_storcli64",
     {"Controller Properties": [{"Ctrl_Prop": "BootDrive", "Value": "VD:2"}]},
     [{"Type": "VD", "VID/DID": "2", "Enc": "NA", "Slot": "NA", "Act_Slot": "NA"}]),
    ("storcli64", "ctr_get_boot_drive_storcli64",
     {"Controller Properties": [{"Ctrl_Prop": "BootDrive", "Value": "PD:65:3"}]},
     [{"Type": "PD", "VID/DID": "NA", "Enc": "65", "Slot": "3", "Act_Slot": "3"}]),
    ("sorbctl", "get_boot_drive_sorbctl",
     {"BootDrives": [{"Type": "vd", "ID": "1", "Enc": "-", "Slot": "-", "ActSlot": "-"}]},
     [{"Type": "VD", "VID/DID": "1", "Enc": "-", "Slot": "-", "Act_Slot": "-"}]),
    ("arcconf", "ctr_get_adpt_cfg_arcconf",
     {"controller_information": {"primary_boot_volume": "None", "secondary_boot_volume": "None"}},
     [dict.fromkeys(["Type", "VID/DID", "Enc", "Slot", "Act_Slot"], "None")] * 2),
    ("arcconf", "ctr_get_adpt_cfg_arcconf",
     {"controller_information": {"primary_boot_volume": "None",
                                 "secondary_boot_volume": "Logical Device 1"}},
     [dict.fromkeys(["Type", "VID/DID", "Enc", "Slot", "Act_Slot"], "None"),
      {"Type": "VD", "VID/DID": "1", "Enc": "NA", "Slot": "NA", "Act_Slot": "NA"}]),
])
def test_query_boot_drive(rig, tool, wrapper, answer, expected):
    result, host = run(rig, tool, wrapper, lambda r: r.query_boot_drive(adapter_id="0"),
                       parser(answer))
    assert result == expected
    assert host.wrappers == [wrapper]
    assert list(host.last().params.items()) == [("adapter_id", "0")]


def test_query_boot_drive_arcconf_order_primary_first(rig):
    raid, host = rig("arcconf")
    seen = []
    raid.formatter.query_boot_drive_format = lambda v: seen.append(v) or v
    host.on("ctr_get_adpt_cfg_arcconf", parser({"controller_information": {
        "secondary_boot_volume": "S", "primary_boot_volume": "P"}}))
    assert raid.query_boot_drive() == ["P", "S"] and seen == ["P", "S"]
