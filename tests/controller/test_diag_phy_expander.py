"""Expander configuration, PHY error counters and the storelibtest PHY operations."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

NO_PHY = "输入的phy数目错误, 请重试"


def enclosure(device_id, product, sas):
    return {"Information": {"Device ID": device_id, "Position": 1, "Status": "OK"},
            "Inquiry Data": {"Vendor Identification": "BROADCOM",
                             "Product Identification": product,
                             "Product Revision Level": "0600"},
            "EnclSasAddress": [{"Index": 0, "SAS address": sas}]}


def test_storcli64_expander_cfg_keeps_only_expanders(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_enclosure_storcli64", parser({
        "Enclosure /c0/e252": enclosure(252, "VirtualSES", "0x0"),
        "Enclosure /c0/e65": enclosure(65, "Expander", "0x500e004aaaaaaa3e")}),
        parser([enclosure(253, "Expander 12G", "0x1")]))
    result = raid.get_expander_cfg(adapter_id="0")
    assert [list(r.items()) for r in result] == [[
        ("expander_id", 65), ("product_id", "Expander"), ("vendor_id", "BROADCOM"),
        ("firmware_version", "0600"), ("sas_address", "0x500e004aaaaaaa3e"),
        ("raw_data", {"Device ID": 65, "Vendor Identification": "BROADCOM",
                      "Product Identification": "Expander", "Product Revision Level": "0600",
                      "SAS address": "0x500e004aaaaaaa3e"})]]
    assert host.sent() == [("self", "ctr_get_enclosure_storcli64", [("adapter_id", "0")])]
    assert raid.get_expander_cfg() == []


def test_arcconf_expander_cfg_builds_one_record_per_expander(rig):
    raid, host = rig("arcconf")
    host.on("ctr_get_expander_cfg_arcconf", parser([
        {"expander_id": "1", "reported_channel,device": "2,1(1:0)"},
        {"expander_id": "0", "reported_channel,device": "2,0(0:0)"}]), parser([]))
    host.on("ctr_get_cfg_arcconf", parser({"physical_device_information": [
        {"name": "Physical 0,0", "Model": "ST4000NM", "[Location]": "Connector 0:Device 0"},
        {"name": "Physical 2,0", "Model": "Expander", "[Location]": "Connector 1:Enclosure 0"},
        {"name": "Physical 2,1", "Model": "Expander", "[Location]": "Enclosure 1"}]}),
        parser({"physical_device_information": {  # devices keyed by name instead of listed
            "Physical 3,4": {"Model": "Expander", "[Location]": "Connector 2:x"},
            "Physical 0,1": {"Model": "HDD", "[Location]": "Connector 0:x"}}}))
    first = {"connector": "1", "channel_device": "2,0", "product_id": "Expander",
             "expander_id": "0"}
    second = {"connector": "", "channel_device": "2,1", "product_id": "Expander",
              "expander_id": "1"}
    result = raid.get_expander_cfg(adapter_id="1")
    assert result == [dict(first, raw_data=first), dict(second, raw_data=second)]
    assert list(result[0]) == ["expander_id", "product_id", "connector", "channel_device",
                               "raw_data"]
    assert host.sent() == [("self", "ctr_get_expander_cfg_arcconf", [("adapter_id", "1")]),
                           ("self", "ctr_get_cfg_arcconf", [("adapter_id", "1")])]
    (record,) = raid.get_expander_cfg()
    assert (record["channel_device"], record["connector"], record["expander_id"]) == (
        "3,4", "2", "")


ARC_PHY0 = {"phy_id": "0", "invalid_dword_count": "1", "phy_reset_problem_count": "4"}
ARC_PHY3 = {"phy_id": "3", "invalid_dword_count": "0"}


@pytest.mark.parametrize("answer", [[ARC_PHY3, ARC_PHY0], {"phy 3": ARC_PHY3, "phy 0": ARC_PHY0}])
def test_arcconf_phyerror_keys_each_phy_by_its_id(rig, answer):
    raid, host = rig("arcconf")
    host.on("get_controller_pd_phyerror_arcconf", parser(answer),
            parser([ARC_PHY0, {"invalid_dword_count": "2"}]))
    result = raid.get_ctl_phyerror(adapter_id="1")
    assert list(result.items()) == [("0", ARC_PHY0), ("1", ""), ("2", ""), ("3", ARC_PHY3),
                                    ("4", ""), ("5", ""), ("6", ""), ("7", ""),
                                    ("raw_data", {"3": ARC_PHY3, "0": ARC_PHY0})]
    assert list(result["raw_data"]) == ["3", "0"]
    with pytest.raises(KeyError):
        raid.get_ctl_phyerror()


# -- storelibtest PHY operations --------------------------------------------

STORELIB = {  # kind: (operation, leading args, wrapper, answer, no-expander message)
    "info": ("ctl_get_phy_info_storelibtest", (), "get_phy_info_storelibtest",
             ["phy 0 up", "phy 1 down"], "该环境无exp背板, 无法查询所有phy信息"),
    "control": ("ctl_phy_control_storelibtest", ("hard",), "send_phy_control_storelibtest",
                ["reset done"], "该环境无exp背板, 无法进行phy control操作"),
}


def storelib_rig(rig, expander=({"expander_id": "0"},)):
    raid, host = rig("storcli64")
    seen = []
    raid.get_expander_cfg = lambda *a, **kw: seen.append((a, kw)) or expander
    host.on("get_phy_count_storelibtest", parser(["", "8", ""]))
    host.on("get_phy_info_storelibtest", parser(["phy 0 up", "", "phy 1 down", ""]))
    host.on("send_phy_control_storelibtest", parser(["", "reset done"]))
    return raid, host, seen


def run_storelib(raid, kind, phy_input, **kwargs):
    return getattr(raid, STORELIB[kind][0])(*STORELIB[kind][1], phy_input, **kwargs)


@pytest.mark.parametrize("kind", sorted(STORELIB))
@pytest.mark.parametrize("phy_input, phys", [
    ("0-3", [0, 1, 2, 3]), ("all", [0, 1, 2, 3, 4, 5, 6, 7]), ("1 5 7", [1, 5, 7]), ("7", [7])])
def test_storelib_phy_selection(rig, kind, phy_input, phys):
    raid, host, seen = storelib_rig(rig)
    assert run_storelib(raid, kind, phy_input) == STORELIB[kind][3]
    assert seen == [((), {})]
    assert host.wrappers == ["get_phy_count_storelibtest", STORELIB[kind][2]]
    assert host.calls[-1].params["phy_list"] == phys


def test_storelib_params_in_order_without_the_selection_text_for_control(rig):
    raid, host, seen = storelib_rig(rig)
    host.on("get_phy_info_storelibtest", parser("phy 0 up\n\nphy 1 up\n"))
    assert raid.ctl_get_phy_info_storelibtest("0-1", adapter_id="0") == ["phy 0 up", "phy 1 up"]
    raid.ctl_phy_control_storelibtest("hard", "1 2", adapter_id="0")
    assert seen == [((), {}), ((), {})]  # the expander query is asked without the keywords
    assert [list(c.params.items()) for c in host.calls] == [
        [("phy_input", "0-1"), ("adapter_id", "0")],
        [("phy_input", "0-1"), ("adapter_id", "0"), ("phy_list", [0, 1])],
        [("reset_type", "hard"), ("adapter_id", "0")],
        [("reset_type", "hard"), ("adapter_id", "0"), ("phy_list", [1, 2])]]


@pytest.mark.parametrize("kind", sorted(STORELIB))
@pytest.mark.parametrize("phy_input, error", [
    ("0-8", OrvexException), ("1 8", OrvexException), ("8", OrvexException),
    ("5-3", OrvexException), ("a-b", ValueError), ("1  2", ValueError), ("1-2-3", ValueError)])
def test_storelib_bad_selections_stop_after_the_count(rig, kind, phy_input, error):
    raid, host, _ = storelib_rig(rig)
    with pytest.raises(error) as err:
        run_storelib(raid, kind, phy_input)
    if error is OrvexException:
        assert str(err.value) == NO_PHY
    assert host.wrappers == ["get_phy_count_storelibtest"]


@pytest.mark.parametrize("kind", sorted(STORELIB))
@pytest.mark.parametrize("expander", [[], None])
def test_storelib_without_expander_runs_no_storelib_command(rig, kind, expander):
    raid, host, _ = storelib_rig(rig, expander=expander)
    with pytest.raises(OrvexException) as err:
        run_storelib(raid, kind, "all")
    assert str(err.value) == STORELIB[kind][4]
    assert host.calls == []


@pytest.mark.parametrize("count, ok, bad", [(["4"], "3", "4"), ("16\n", "15", "16"),
                                            (12, "11", "12")])
def test_storelib_phy_count_shapes(rig, count, ok, bad):
    raid, host, _ = storelib_rig(rig)
    host.on("get_phy_count_storelibtest", parser(count))
    assert raid.ctl_get_phy_info_storelibtest(ok) == ["phy 0 up", "phy 1 down"]
    with pytest.raises(OrvexException, match=NO_PHY):
        raid.ctl_get_phy_info_storelibtest(bad)
