"""Expander configuration, PHY error counters, PHY link settings and the
storelibtest PHY operations."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

NO_PHY = "输入的phy数目错误, 请重试"


def sent(host):
    return [(c.route, c.wrapper, list(c.params.items())) for c in host.calls]


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
        "Enclosure /c0/e65": enclosure(65, "Expander", "0x500e004aaaaaaa3e")}))
    result = raid.get_expander_cfg(adapter_id="0")
    assert result == [{
        "expander_id": 65, "product_id": "Expander", "vendor_id": "BROADCOM",
        "firmware_version": "0600", "sas_address": "0x500e004aaaaaaa3e",
        "raw_data": {"Device ID": 65, "Vendor Identification": "BROADCOM",
                     "Product Identification": "Expander", "Product Revision Level": "0600",
                     "SAS address": "0x500e004aaaaaaa3e"}}]
    assert list(result[0]) == ["expander_id", "product_id", "vendor_id", "firmware_version",
                               "sas_address", "raw_data"]
    assert sent(host) == [("self", "ctr_get_enclosure_storcli64", [("adapter_id", "0")])]
    host.on("ctr_get_enclosure_storcli64", parser([enclosure(253, "Expander 12G", "0x1")]))
    assert raid.get_expander_cfg() == []


def test_arcconf_expander_cfg_builds_one_record_per_expander(rig):
    raid, host = rig("arcconf")
    host.on("ctr_get_expander_cfg_arcconf", parser([
        {"expander_id": "1", "reported_channel,device": "2,1(1:0)"},
        {"expander_id": "0", "reported_channel,device": "2,0(0:0)"}]))
    host.on("ctr_get_cfg_arcconf", parser({"physical_device_information": [
        {"name": "Physical 0,0", "Model": "ST4000NM", "[Location]": "Connector 0:Device 0"},
        {"name": "Physical 2,0", "Model": "Expander", "[Location]": "Connector 1:Enclosure 0"},
        {"name": "Physical 2,1", "Model": "Expander", "[Location]": "Enclosure 1"}]}))
    result = raid.get_expander_cfg(adapter_id="1")
    first = {"connector": "1", "channel_device": "2,0", "product_id": "Expander",
             "expander_id": "0"}
    second = {"connector": "", "channel_device": "2,1", "product_id": "Expander",
              "expander_id": "1"}
    assert result == [dict(first, raw_data=first), dict(second, raw_data=second)]
    assert list(result[0]) == ["expander_id", "product_id", "connector", "channel_device",
                               "raw_data"]
    assert sent(host) == [("self", "ctr_get_expander_cfg_arcconf", [("adapter_id", "1")]),
                          ("self", "ctr_get_cfg_arcconf", [("adapter_id", "1")])]
    # devices keyed by name instead of listed
    host.on("ctr_get_expander_cfg_arcconf", parser([]))
    host.on("ctr_get_cfg_arcconf", parser({"physical_device_information": {
        "Physical 3,4": {"Model": "Expander", "[Location]": "Connector 2:x"},
        "Physical 0,1": {"Model": "HDD", "[Location]": "Connector 0:x"}}}))
    (record,) = raid.get_expander_cfg()
    assert (record["channel_device"], record["connector"], record["expander_id"]) == (
        "3,4", "2", "")


PHY_ROW = {"Phy": 0, "Invalid DWord Count": 3, "Running Disparity Error Count": 4,
           "Loss of DWord Sync Count": 1, "Phy Reset Problem Count": 0}
SORB_ROW = {"PhyId": 2, "InvalidDwordCount": 0, "DisparityErrorCount": 7,
            "LossDwordSyncCount": 0}


@pytest.mark.parametrize("tool, wrapper, answer, expected", [
    ("storcli64", "ctr_get_phy_cfg_storcli64", {"Phy Error Counters": [PHY_ROW], "Other": "x"},
     [{"phy_id": 0, "invalid_dword_count": 3, "running_disparity_error_count": 4,
       "loss_of_dword_sync_count": 1, "phy_reset_problem_count": 0, "raw_data": PHY_ROW}]),
    ("sorbctl", "get_ctl_phyinfo_sorbctl", [SORB_ROW],
     [{"phy_id": 2, "invalid_dword_count": 0, "running_disparity_error_count": 7,
       "loss_of_dword_sync_count": 0, "phy_reset_problem_count": "", "raw_data": SORB_ROW}]),
])
def test_phyerror_counter_rows(rig, tool, wrapper, answer, expected):
    raid, host = rig(tool)
    host.on(wrapper, parser(answer))
    assert raid.get_ctl_phyerror(adapter_id="0") == expected
    assert sent(host) == [("self", wrapper, [("adapter_id", "0")])]


def test_storcli64_phyerror_without_table_fails(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_phy_cfg_storcli64", parser({"Other": "x"}))
    with pytest.raises(KeyError):
        raid.get_ctl_phyerror()


ARC_PHY0 = {"phy_id": "0", "invalid_dword_count": "1", "phy_reset_problem_count": "4"}
ARC_PHY3 = {"phy_id": "3", "invalid_dword_count": "0"}


@pytest.mark.parametrize("answer", [[ARC_PHY3, ARC_PHY0], {"phy 3": ARC_PHY3, "phy 0": ARC_PHY0}])
def test_arcconf_phyerror_keys_each_phy_by_its_id(rig, answer):
    raid, host = rig("arcconf")
    host.on("get_controller_pd_phyerror_arcconf", parser(answer))
    result = raid.get_ctl_phyerror(adapter_id="1")
    assert result == {"0": ARC_PHY0, "1": "", "2": "", "3": ARC_PHY3, "4": "", "5": "", "6": "",
                      "7": "", "raw_data": {"3": ARC_PHY3, "0": ARC_PHY0}}
    assert list(result) == ["0", "1", "2", "3", "4", "5", "6", "7", "raw_data"]
    assert list(result["raw_data"]) == ["3", "0"]
    assert sent(host) == [("self", "get_controller_pd_phyerror_arcconf", [("adapter_id", "1")])]
    host.on("get_controller_pd_phyerror_arcconf", parser([ARC_PHY0, {"invalid_dword_count": "2"}]))
    with pytest.raises(KeyError):
        raid.get_ctl_phyerror()


@pytest.mark.parametrize("answer, expected", [("set success", True), ("failed", False),
                                               (None, False)])
@pytest.mark.parametrize("op, args, kwargs, wrapper, last", [
    ("set_ctl_phy_func", ("0", "4", "off"), {}, "set_controller_phy_func_sorbctl",
     ("oper", "off")),
    ("set_controller_phy_speed", (), {"speed": "6G", "sid": "4", "eid": "0"},
     "set_controller_phy_speed_sorbctl", ("speed", "6G")),
])
def test_sorbctl_phy_link_settings_are_checked(rig, op, args, kwargs, wrapper, last, answer,
                                                expected):
    raid, host = rig("sorbctl")
    host.on(wrapper, parser(answer))
    assert getattr(raid, op)(*args, adapter_id="0", **kwargs) is expected
    assert sent(host) == [("self", wrapper, [("eid", "0"), ("sid", "4"), last,
                                             ("adapter_id", "0")])]


@pytest.mark.parametrize("call", [
    lambda r: r.set_controller_phy_speed("0", "4", "6G"),
    lambda r: r.get_eye_diagram("0", "7", eid="1"),
    lambda r: r.get_eye_diagram("0"),
])
def test_argument_errors(rig, call):
    raid, host = rig("sorbctl")
    with pytest.raises(TypeError):
        call(raid)
    assert host.calls == []


REFUSALS = [
    ("sorbctl", "get_expander_cfg", (), {}, "7460卡sorbctl工具没有 查询expander背板信息 功能"),
    ("storcli64", "set_ctl_phy_func", ("0", "4", "off"), {},
     "LSI卡storcli64工具没有 设置控制器PHY连接状态 功能"),
    ("arcconf", "set_ctl_phy_func", ("0", "4", "off"), {},
     "PMC卡arcconf工具没有 设置控制器PHY连接状态 功能"),
    ("storcli64", "set_controller_phy_speed", (), {"eid": "0", "sid": "4", "speed": "6G"},
     "博通卡不支持使用storcli64工具设置phy linkspeed"),
    ("arcconf", "set_controller_phy_speed", (), {"eid": "0", "sid": "4", "speed": "6G"},
     "PMC卡不支持使用arcconf工具设置phy linkspeed"),
    ("sorbctl", "ctl_get_phy_info_storelibtest", ("all",), {},
     "7460卡不支持使用storelibtest工具查询所有phy信息"),
    ("arcconf", "ctl_get_phy_info_storelibtest", ("all",), {},
     "PMC卡不支持使用storelibtest工具查询所有phy信息"),
    ("sorbctl", "ctl_phy_control_storelibtest", ("hard", "all"), {},
     "7460卡不支持使用storelibtest工具进行phy control测试"),
    ("arcconf", "ctl_phy_control_storelibtest", ("hard", "all"), {},
     "PMC卡不支持使用storelibtest工具进行phy control测试"),
    ("storcli64", "get_eye_diagram", ("0", "7"), {}, "工具[storcli64]没有操作[get_eye_diagram]的实现"),
    ("arcconf", "get_eye_diagram", ("0", "7"), {}, "工具[arcconf]没有操作[get_eye_diagram]的实现"),
]


@pytest.mark.parametrize("tool, op, args, kwargs, message", REFUSALS)
def test_refusals_raise_before_any_dispatch(rig, tool, op, args, kwargs, message):
    raid, host = rig(tool)
    called = []
    if "storelibtest" in op:
        raid.get_expander_cfg = lambda **kw: called.append(kw) or [{"expander_id": "0"}]
    if op != "get_eye_diagram":
        kwargs = dict(kwargs, adapter_id="0")
    with pytest.raises(OrvexException) as err:
        getattr(raid, op)(*args, **kwargs)
    assert str(err.value) == message
    assert host.calls == [] and called == []


def test_sorbctl_eye_diagram_returns_the_parser_value(rig):
    raid, host = rig("sorbctl")
    eye = {"Lane0": {"Height": "80", "Width": "0.45"}}
    host.on("get_eye_diagram_sorbctl", parser(eye))
    assert raid.get_eye_diagram("0", "7") is eye
    assert sent(host) == [("self", "get_eye_diagram_sorbctl", [("adapter_id", "0"), ("sid", "7")])]


# -- storelibtest PHY operations --------------------------------------------

STORELIB = {  # kind: (operation, leading args, wrapper, answer, no-expander message)
    "info": ("ctl_get_phy_info_storelibtest", (), "get_phy_info_storelibtest",
             ["phy 0 up", "phy 1 down"], "该环境无exp背板, 无法查询所有phy信息"),
    "control": ("ctl_phy_control_storelibtest", ("hard",), "send_phy_control_storelibtest",
                ["reset done"], "该环境无exp背板, 无法进行phy control操作"),
}


def storelib_rig(rig, expander=({"expander_id": "0"},), count=("", "8", "")):
    raid, host = rig("storcli64")
    seen = []
    raid.get_expander_cfg = lambda *a, **kw: seen.append((a, kw)) or expander
    host.on("get_phy_count_storelibtest", parser(list(count)))
    host.on("get_phy_info_storelibtest", parser(["phy 0 up", "", "phy 1 down", ""]))
    host.on("send_phy_control_storelibtest", parser(["", "reset done"]))
    return raid, host, seen


def run_storelib(raid, kind, phy_input, **kwargs):
    return getattr(raid, STORELIB[kind][0])(*STORELIB[kind][1], phy_input, **kwargs)


@pytest.mark.parametrize("kind", sorted(STORELIB))
@pytest.mark.parametrize("phy_input, phys", [
    ("0-3", [0, 1, 2, 3]), ("all", [0, 1, 2, 3, 4, 5, 6, 7]), ("1 5 7", [1, 5, 7]),
    ("7", [7]), ("6-7", [6, 7])])
def test_storelib_phy_selection(rig, kind, phy_input, phys):
    raid, host, seen = storelib_rig(rig)
    assert run_storelib(raid, kind, phy_input) == STORELIB[kind][3]
    assert seen == [((), {})]
    assert host.wrappers == ["get_phy_count_storelibtest", STORELIB[kind][2]]
    assert host.calls[-1].params["phy_list"] == phys
    assert all(c.route == "self" for c in host.calls)


def test_storelib_params_in_order_without_the_selection_text_for_control(rig):
    raid, host, _ = storelib_rig(rig)
    raid.ctl_get_phy_info_storelibtest("0-1", adapter_id="0")
    raid.ctl_phy_control_storelibtest("hard", "1 2", adapter_id="0")
    assert [list(c.params.items()) for c in host.calls] == [
        [("phy_input", "0-1"), ("adapter_id", "0")],
        [("phy_input", "0-1"), ("adapter_id", "0"), ("phy_list", [0, 1])],
        [("reset_type", "hard"), ("adapter_id", "0")],
        [("reset_type", "hard"), ("adapter_id", "0"), ("phy_list", [1, 2])]]


@pytest.mark.parametrize("kind", sorted(STORELIB))
@pytest.mark.parametrize("phy_input, error", [
    ("0-8", OrvexException), ("1 8", OrvexException), ("8", OrvexException),
    ("12-13", OrvexException), ("5-3", OrvexException),
    ("a-b", ValueError), ("1  2", ValueError), ("x", ValueError), ("1-2-3", ValueError)])
def test_storelib_bad_selections_stop_after_the_count(rig, kind, phy_input, error):
    raid, host, _ = storelib_rig(rig)
    with pytest.raises(error) as err:
        run_storelib(raid, kind, phy_input)
    if error is OrvexException:
        assert str(err.value) == NO_PHY
    assert host.wrappers == ["get_phy_count_storelibtest"]


@pytest.mark.parametrize("kind", sorted(STORELIB))
@pytest.mark.parametrize("expander", [[], {}, None, ""])
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


def test_storelib_uses_the_real_expander_query(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_enclosure_storcli64", parser({"e": enclosure(7, "Expander", "0x5")}))
    host.on("get_phy_count_storelibtest", parser(["8"]))
    host.on("get_phy_info_storelibtest", parser("phy 2 up\n\nphy 3 up\n"))
    assert raid.ctl_get_phy_info_storelibtest("2-3", adapter_id="0") == ["phy 2 up", "phy 3 up"]
    assert host.wrappers == ["ctr_get_enclosure_storcli64", "get_phy_count_storelibtest",
                             "get_phy_info_storelibtest"]
    assert host.calls[0].params == {}
    host.calls.clear()
    host.on("ctr_get_enclosure_storcli64", parser({"e": enclosure(7, "SES", "0x5")}))
    with pytest.raises(OrvexException, match="^该环境无exp背板, 无法查询所有phy信息$"):
        raid.ctl_get_phy_info_storelibtest("all")
    assert host.wrappers == ["ctr_get_enclosure_storcli64"]
