"""Virtual drive policies: translated params, computed read-backs, boot drive."""
import logging

import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

OK = parser("Set VD property success")
WRAPPERS = {
    ("set_virtual_drive_write_cache_mode", "storcli64"): "vd_set_pdcache_storcli64",
    ("set_virtual_drive_write_cache_mode", "arcconf"): "set_controller_pdcache_arcconf",
    ("set_virtual_drive_wrcache", "sorbctl"): "set_controller_vd_wcache_sorbctl",
    ("set_virtual_drive_wrcache", "arcconf"): "set_vd_wcache_arcconf",
    ("set_virtual_drive_rdcache", "sorbctl"): "set_controller_vd_rcache_sorbctl",
    ("set_virtual_drive_rdcache", "arcconf"): "set_vd_wcache_arcconf",
    ("vd_set_bootdrive", "sorbctl"): "set_controller_vd_boot_sorbctl",
    ("vd_set_bootdrive", "arcconf"): "set_vd_boot_arcconf",
}
CONFIGURED = ("drive_type", "configured")


def run(rig, tool, wrapper, call, answer=OK):
    raid, host = rig(tool)
    host.on(wrapper, answer)
    return call(raid), host


# (tool, operation, its keywords after vid="0", params sent after ("vid", "0"))
@pytest.mark.parametrize("tool, name, kwargs, sent", [
    ("storcli64", "set_virtual_drive_write_cache_mode", dict(state="on", adapter_id="1"),
     [("adapter_id", "1"), ("pdcache", "on")]),
    ("arcconf", "set_virtual_drive_write_cache_mode", dict(state="default"), [CONFIGURED, ("state", "0")]),
    ("arcconf", "set_virtual_drive_write_cache_mode", dict(state="off"), [CONFIGURED, ("state", "2")]),
    ("arcconf", "set_virtual_drive_write_cache_mode", dict(state="unchanged"), [CONFIGURED, ("state", "3")]),
    ("arcconf", "set_virtual_drive_write_cache_mode", dict(state="ON"), [CONFIGURED, ("state", None)]),
    ("sorbctl", "set_virtual_drive_wrcache", dict(wrcache="awb"), [("policy", "WBE")]),
    ("sorbctl", "set_virtual_drive_wrcache", dict(wrcache="wt", adapter_id="0"),
     [("adapter_id", "0"), ("policy", "WT")]),
    ("arcconf", "set_virtual_drive_wrcache", dict(wrcache="awb"), [("wrcache", "awb"), ("policy", "con")]),
    ("arcconf", "set_virtual_drive_wrcache", dict(wrcache="wb"), [("wrcache", "wb"), ("policy", "con")]),
    ("arcconf", "set_virtual_drive_wrcache", dict(wrcache="wt"), [("wrcache", "wt"), ("policy", "coff")]),
    ("sorbctl", "set_virtual_drive_rdcache", dict(rdcache="ra"), [("policy", "Ahead")]),
    ("sorbctl", "set_virtual_drive_rdcache", dict(rdcache="nora"), [("policy", "No_Ahead")]),
    ("sorbctl", "set_virtual_drive_rdcache", dict(rdcache="adaptive"), [("policy", "adaptive")]),
    ("arcconf", "set_virtual_drive_rdcache", dict(rdcache="ra"), [("rdcache", "ra"), ("policy", "con")]),
    ("arcconf", "set_virtual_drive_rdcache", dict(rdcache="nora"), [("rdcache", "nora"), ("policy", "coff")]),
    ("arcconf", "set_virtual_drive_rdcache", dict(rdcache="adaptive"), [("rdcache", "adaptive")]),
    ("sorbctl", "vd_set_bootdrive", dict(state="primary"), [("state", "on")]),
    ("sorbctl", "vd_set_bootdrive", dict(state="secondary"), [("state", "on")]),
    ("sorbctl", "vd_set_bootdrive", dict(state="off"), [("state", "off")]),
    ("arcconf", "vd_set_bootdrive", dict(state="secondary"), [("state", "secondary")]),
    ("arcconf", "vd_set_bootdrive", dict(state="off"), [("state", "none")]),
])
def test_setters_send_translated_params(rig, tool, name, kwargs, sent):
    wrapper = WRAPPERS[name, tool]
    result, host = run(rig, tool, wrapper, lambda r: getattr(r, name)(vid="0", **kwargs))
    assert result is True
    assert host.sent() == [
        ("self", wrapper, [("vid", "0")] + sent)]


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


@pytest.mark.parametrize("kwargs, tables, prefix", [
    ({"adapter_id": "1"}, {"/c3/v0": []}, "/c1"), ({}, {"/c3/v0": []}, "/c3"), ({}, {}, "/c0")])
def test_emulation_storcli64_keys_by_controller_and_drive(rig, kwargs, tables, prefix):
    answer = dict(tables, **{"VD0 Properties": {"Emulation type": "default", "Strip Size": "64 KB"},
                             "VD12 Properties": {"Emulation type": "none"}})
    result, _ = run(rig, "storcli64", "ctr_get_vd_cfg_storcli64",
                    lambda r: r.get_vd_emulation(vid="all", **kwargs), parser(answer))
    assert result == {prefix + "/v0": {"Emulation type": "default"},
                      prefix + "/v12": {"Emulation type": "none"}}


@pytest.mark.parametrize("state, first, result", [
    ("primary", parser("success"), True), ("secondary", OrvexException("unsupported option"), True),
    ("off", OrvexException("unsupported option"), False)])
def test_bootdrive_storcli64_orders_by_firmware_first(rig, caplog, state, first, result):
    raid, host = rig("storcli64")
    host.on("ctr_set_device_order_by_firmware", first)
    host.on("vd_set_bootdrive_storcli64", OK if result else parser("failed"))
    with caplog.at_level(logging.ERROR):
        assert raid.vd_set_bootdrive(vid="0", state=state, adapter_id="0") is result
    # a failed ordering is only logged
    errors = [r.getMessage() for r in caplog.records if r.levelno == logging.ERROR]
    assert len(errors) == isinstance(first, Exception) and all("unsupported" in e for e in errors)
    sent = "off" if state == "off" else "on"
    assert host.wrappers == ["ctr_set_device_order_by_firmware", "vd_set_bootdrive_storcli64"]
    assert list(host.last().params.items()) == [
        ("vid", "0"), ("adapter_id", "0"), ("bootdrive", sent), ("status", sent)]


def test_bootdrive_storcli64_lets_interrupts_through(rig):
    raid, host = rig("storcli64")
    host.on("ctr_set_device_order_by_firmware", KeyboardInterrupt())
    with pytest.raises(KeyboardInterrupt):
        raid.vd_set_bootdrive(vid="0", state="primary")


UNSET = dict.fromkeys(["Type", "VID/DID", "Enc", "Slot", "Act_Slot"], "None")


@pytest.mark.parametrize("info, expected", [
    ({"primary_boot_volume": "None", "secondary_boot_volume": "None"}, [UNSET, UNSET]),
    # primary first whatever the order of the answer
    ({"secondary_boot_volume": "Logical Device 1", "primary_boot_volume": "None"},
     [UNSET, {"Type": "VD", "VID/DID": "1", "Enc": "NA", "Slot": "NA", "Act_Slot": "NA"}]),
])
def test_query_boot_drive_arcconf_primary_then_secondary(rig, info, expected):
    result, host = run(rig, "arcconf", "ctr_get_adpt_cfg_arcconf",
                       lambda r: r.query_boot_drive(adapter_id="0"),
                       parser({"controller_information": info}))
    assert result == expected
    assert list(host.last().params.items()) == [("adapter_id", "0")]
