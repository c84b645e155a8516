"""Expander configuration, PHY error counters, PHY link settings and the
storelibtest PHY operations."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

TOOLS = ("storcli64", "arcconf", "sorbctl")
NO_PHY = "输入的phy数目错误, 请重试"


def items(call):
    return list(call.params.items())


# -- expander configuration -------------------------------------------------

def storcli64_enclosure(device_id, product, sas):
    return {
        "Information": {"Device ID": device_id, "Position": 1, "Status": "OK"},
        "Inquiry Data": {
            "Vendor Identification": "BROADCOM",
            "Product Identification": product,
            "Product Revision Level": "0600",
        },
        "EnclSasAddress": [{"Index": 0, "SAS address": sas}],
    }


def test_storcli64_expander_cfg_keeps_only_expanders(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_enclosure_storcli64", parser({
        "Enclosure /c0/e252": storcli64_enclosure(252, "VirtualSES", "0x0"),
        "Enclosure /c0/e65": storcli64_enclosure(65, "Expander", "0x500e004aaaaaaa3e"),
    }))
    merged = {
        "Device ID": 65,
        "Vendor Identification": "BROADCOM",
        "Product Identification": "Expander",
        "Product Revision Level": "0600",
        "SAS address": "0x500e004aaaaaaa3e",
    }
    result = raid.get_expander_cfg(adapter_id="0")
    assert result == [{
        "expander_id": 65, "product_id": "Expander", "vendor_id": "BROADCOM",
        "firmware_version": "0600", "sas_address": "0x500e004aaaaaaa3e", "raw_data": merged,
    }]
    assert list(result[0]) == ["expander_id", "product_id", "vendor_id", "firmware_version",
                               "sas_address", "raw_data"]
    (call,) = host.calls
    assert (call.route, call.wrapper, items(call)) == (
        "self", "ctr_get_enclosure_storcli64", [("adapter_id", "0")])


def test_storcli64_expander_cfg_without_expander_is_empty(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_enclosure_storcli64", parser([
        storcli64_enclosure(252, "VirtualSES", "0x0"),
        storcli64_enclosure(253, "Expander 12G", "0x1"),
    ]))
    assert raid.get_expander_cfg() == []


ARC_DEVICES = {
    "physical_device_information": [
        {"name": "Physical 0,0", "Model": "ST4000NM", "[Location]": "Connector 0:Device 0"},
        {"name": "Physical 2,0", "Model": "Expander", "[Location]": "Connector 1:Enclosure 0"},
        {"name": "Physical 2,1", "Model": "Expander", "[Location]": "Enclosure 1"},
    ],
}
ARC_EXPANDERS = [
    {"expander_id": "1", "reported_channel,device": "2,1(1:0)"},
    {"expander_id": "0", "reported_channel,device": "2,0(0:0)"},
]


def test_arcconf_expander_cfg_builds_one_record_per_expander(rig):
    raid, host = rig("arcconf")
    host.on("ctr_get_expander_cfg_arcconf", parser(ARC_EXPANDERS))
    host.on("ctr_get_cfg_arcconf", parser(ARC_DEVICES))
    first = {"connector": "1", "channel_device": "2,0", "product_id": "Expander",
             "expander_id": "0"}
    second = {"connector": "", "channel_device": "2,1", "product_id": "Expander",
              "expander_id": "1"}
    result = raid.get_expander_cfg(adapter_id="1")
    assert result == [
        {"expander_id": "0", "product_id": "Expander", "connector": "1",
         "channel_device": "2,0", "raw_data": first},
        {"expander_id": "1", "product_id": "Expander", "connector": "",
         "channel_device": "2,1", "raw_data": second},
    ]
    assert list(result[0]) == ["expander_id", "product_id", "connector", "channel_device",
                               "raw_data"]
    assert [(c.route, c.wrapper, items(c)) for c in host.calls] == [
        ("self", "ctr_get_expander_cfg_arcconf", [("adapter_id", "1")]),
        ("self", "ctr_get_cfg_arcconf", [("adapter_id", "1")]),
    ]


def test_arcconf_expander_cfg_reads_devices_keyed_by_name(rig):
    raid, host = rig("arcconf")
    host.on("ctr_get_expander_cfg_arcconf", parser([]))
    host.on("ctr_get_cfg_arcconf", parser({"physical_device_information": {
        "Physical 3,4": {"Model": "Expander", "[Location]": "Connector 2:x"},
        "Physical 0,1": {"Model": "HDD", "[Location]": "Connector 0:x"},
    }}))
    (record,) = raid.get_expander_cfg()
    assert record["channel_device"] == "3,4"
    assert record["connector"] == "2"
    assert record["expander_id"] == ""


def test_sorbctl_has_no_expander_query(rig):
    raid, host = rig("sorbctl")
    with pytest.raises(OrvexException) as err:
        raid.get_expander_cfg(adapter_id="0")
    assert str(err.value) == "7460卡sorbctl工具没有 查询expander背板信息 功能"
    assert host.calls == []


# -- PHY error counters -----------------------------------------------------

def test_storcli64_phyerror_takes_the_counter_table(rig):
    raid, host = rig("storcli64")
    row = {"Phy": 0, "Invalid DWord Count": 3, "Running Disparity Error Count": 4,
           "Loss of DWord Sync Count": 1, "Phy Reset Problem Count": 0}
    host.on("ctr_get_phy_cfg_storcli64", parser({"Phy Error Counters": [row],
                                                 "Other": "x"}))
    result = raid.get_ctl_phyerror(adapter_id="0")
    assert result == [{"phy_id": 0, "invalid_dword_count": 3,
                       "running_disparity_error_count": 4, "loss_of_dword_sync_count": 1,
                       "phy_reset_problem_count": 0, "raw_data": row}]
    (call,) = host.calls
    assert (call.route, call.wrapper, items(call)) == (
        "self", "ctr_get_phy_cfg_storcli64", [("adapter_id", "0")])


def test_storcli64_phyerror_without_table_fails(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_phy_cfg_storcli64", parser({"Other": "x"}))
    with pytest.raises(KeyError):
        raid.get_ctl_phyerror()


def test_sorbctl_phyerror_normalises_the_answer(rig):
    raid, host = rig("sorbctl")
    row = {"PhyId": 2, "InvalidDwordCount": 0, "DisparityErrorCount": 7,
           "LossDwordSyncCount": 0}
    host.on("get_ctl_phyinfo_sorbctl", parser([row]))
    assert raid.get_ctl_phyerror() == [{
        "phy_id": 2, "invalid_dword_count": 0, "running_disparity_error_count": 7,
        "loss_of_dword_sync_count": 0, "phy_reset_problem_count": "", "raw_data": row}]
    assert host.wrappers == ["get_ctl_phyinfo_sorbctl"]


def test_arcconf_phyerror_keys_each_phy_by_its_id(rig):
    raid, host = rig("arcconf")
    host.on("get_controller_pd_phyerror_arcconf", parser({
        "0": {"invalid_dword_count": "1", "running_disparity_error_count": "2",
              "loss_of_dword_sync_count": "3", "phy_reset_problem_count": "4"},
        "1": {"invalid_dword_count": "0", "phy_id": "stale"},
    }))
    result = raid.get_ctl_phyerror(adapter_id="1")
    assert [(r["phy_id"], r["invalid_dword_count"], r["phy_reset_problem_count"])
            for r in result] == [("0", "1", "4"), ("1", "0", "")]
    assert list(result[0]["raw_data"]) == [
        "phy_id", "invalid_dword_count", "running_disparity_error_count",
        "loss_of_dword_sync_count", "phy_reset_problem_count"]
    assert result[1]["raw_data"] == {"phy_id": "1", "invalid_dword_count": "0"}
    assert items(host.last()) == [("adapter_id", "1")]


# -- PHY link settings ------------------------------------------------------

@pytest.mark.parametrize("answer, expected", [("set success", True), ("failed", False),
                                               (None, False)])
def test_sorbctl_phy_func_is_checked(rig, answer, expected):
    raid, host = rig("sorbctl")
    host.on("set_controller_phy_func_sorbctl", parser(answer))
    assert raid.set_ctl_phy_func("0", "4", "off", adapter_id="0") is expected
    (call,) = host.calls
    assert (call.route, call.wrapper, items(call)) == (
        "self", "set_controller_phy_func_sorbctl",
        [("eid", "0"), ("sid", "4"), ("oper", "off"), ("adapter_id", "0")])


@pytest.mark.parametrize("answer, expected", [("set success", True), ("failed", False)])
def test_sorbctl_phy_speed_is_checked(rig, answer, expected):
    raid, host = rig("sorbctl")
    host.on("set_controller_phy_speed_sorbctl", parser(answer))
    assert raid.set_controller_phy_speed(speed="6G", sid="4", eid="0", adapter_id="0") is expected
    (call,) = host.calls
    assert (call.route, call.wrapper, items(call)) == (
        "self", "set_controller_phy_speed_sorbctl",
        [("eid", "0"), ("sid", "4"), ("speed", "6G"), ("adapter_id", "0")])


def test_phy_speed_takes_keywords_only(rig):
    raid, host = rig("sorbctl")
    with pytest.raises(TypeError):
        raid.set_controller_phy_speed("0", "4", "6G")
    assert host.calls == []


REFUSALS = [
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
]


@pytest.mark.parametrize("tool, op, args, kwargs, message", REFUSALS)
def test_refusals_raise_before_any_dispatch(rig, tool, op, args, kwargs, message):
    raid, host = rig(tool)
    called = []
    raid.get_expander_cfg = lambda **kw: called.append(kw) or [{"expander_id": "0"}]
    with pytest.raises(OrvexException) as err:
        getattr(raid, op)(*args, adapter_id="0", **kwargs)
    assert str(err.value) == message
    assert host.calls == [] and called == []


# -- eye diagram ------------------------------------------------------------

def test_sorbctl_eye_diagram_returns_the_parser_value(rig):
    raid, host = rig("sorbctl")
    eye = {"Lane0": {"Height": "80", "Width": "0.45"}}
    host.on("get_eye_diagram_sorbctl", parser(eye))
    assert raid.get_eye_diagram("0", "7") is eye
    (call,) = host.calls
    assert (call.route, call.wrapper, items(call)) == (
        "self", "get_eye_diagram_sorbctl", [("adapter_id", "0"), ("sid", "7")])


def test_eye_diagram_takes_no_other_keywords(rig):
    raid, host = rig("sorbctl")
    with pytest.raises(TypeError):
        raid.get_eye_diagram("0", "7", eid="1")
    with pytest.raises(TypeError):
        raid.get_eye_diagram("0")
    assert host.calls == []


@pytest.mark.parametrize("tool", ["storcli64", "arcconf"])
def test_eye_diagram_only_under_sorbctl(rig, tool):
    raid, host = rig(tool)
    with pytest.raises(OrvexException):
        raid.get_eye_diagram("0", "7")
    assert host.calls == []


# -- storelibtest PHY operations --------------------------------------------

STORELIB = {
    "info": ("ctl_get_phy_info_storelibtest", (), "get_phy_info_storelibtest",
             "该环境无exp背板, 无法查询所有phy信息"),
    "control": ("ctl_phy_control_storelibtest", ("hard",), "send_phy_control_storelibtest",
                "该环境无exp背板, 无法进行phy control操作"),
}


class ExpanderCfg:
    def __init__(self, answer):
        self.answer = answer
        self.seen = []

    def __call__(self, *args, **kwargs):
        self.seen.append((args, kwargs))
        return self.answer


def storelib_rig(rig, expander=({"expander_id": "0"},), count=("", "8", "")):
    raid, host = rig("storcli64")
    raid.get_expander_cfg = ExpanderCfg(list(expander))
    host.on("get_phy_count_storelibtest", parser(list(count)))
    host.on("get_phy_info_storelibtest", parser(["phy 0 up", "", "phy 1 down", ""]))
    host.on("send_phy_control_storelibtest", parser(["", "reset done"]))
    return raid, host


def run_storelib(raid, kind, phy_input, **kwargs):
    op, lead, _, _ = STORELIB[kind]
    return getattr(raid, op)(*lead, phy_input, **kwargs)


@pytest.mark.parametrize("kind", sorted(STORELIB))
@pytest.mark.parametrize("phy_input, phys", [
    ("0-3", [0, 1, 2, 3]),
    ("all", [0, 1, 2, 3, 4, 5, 6, 7]),
    ("1 5 7", [1, 5, 7]),
    ("7", [7]),
    ("6-7", [6, 7]),
])
def test_storelib_phy_selection(rig, kind, phy_input, phys):
    raid, host = storelib_rig(rig)
    _, _, wrapper, _ = STORELIB[kind]
    expected = {"info": ["phy 0 up", "phy 1 down"], "control": ["reset done"]}[kind]
    assert run_storelib(raid, kind, phy_input) == expected
    assert raid.get_expander_cfg.seen == [((), {})]
    assert host.wrappers == ["get_phy_count_storelibtest", wrapper]
    assert host.calls[-1].params["phy_list"] == phys
    assert all(c.route == "self" for c in host.calls)


def test_storelib_info_params_in_order(rig):
    raid, host = storelib_rig(rig)
    raid.ctl_get_phy_info_storelibtest("0-1", adapter_id="0")
    count, info = host.calls
    assert items(count) == [("phy_input", "0-1"), ("adapter_id", "0")]
    assert items(info) == [("phy_input", "0-1"), ("adapter_id", "0"), ("phy_list", [0, 1])]


def test_storelib_control_sends_reset_type_but_not_the_selection_text(rig):
    raid, host = storelib_rig(rig)
    raid.ctl_phy_control_storelibtest("hard", "1 2", adapter_id="0")
    count, control = host.calls
    assert items(count) == [("reset_type", "hard"), ("adapter_id", "0")]
    assert items(control) == [("reset_type", "hard"), ("adapter_id", "0"), ("phy_list", [1, 2])]


@pytest.mark.parametrize("kind", sorted(STORELIB))
@pytest.mark.parametrize("phy_input", ["0-8", "1 8", "8", "12-13", "5-3"])
def test_storelib_rejects_phys_beyond_the_count(rig, kind, phy_input):
    raid, host = storelib_rig(rig)
    with pytest.raises(OrvexException) as err:
        run_storelib(raid, kind, phy_input)
    assert str(err.value) == NO_PHY
    assert host.wrappers == ["get_phy_count_storelibtest"]


@pytest.mark.parametrize("kind", sorted(STORELIB))
@pytest.mark.parametrize("expander", [[], {}, None, ""])
def test_storelib_without_expander_runs_no_storelib_command(rig, kind, expander):
    raid, host = storelib_rig(rig)
    raid.get_expander_cfg = ExpanderCfg(expander)
    _, _, _, message = STORELIB[kind]
    with pytest.raises(OrvexException) as err:
        run_storelib(raid, kind, "all")
    assert str(err.value) == message
    assert host.calls == []


@pytest.mark.parametrize("kind", sorted(STORELIB))
@pytest.mark.parametrize("phy_input", ["a-b", "1  2", "x", "1-2-3"])
def test_storelib_bad_selection_text_fails_in_conversion(rig, kind, phy_input):
    raid, host = storelib_rig(rig)
    with pytest.raises(ValueError):
        run_storelib(raid, kind, phy_input)
    assert host.wrappers == ["get_phy_count_storelibtest"]


@pytest.mark.parametrize("count, ok, bad", [
    (["4"], "3", "4"),
    ("16\n", "15", "16"),
    (12, "11", "12"),
])
def test_storelib_phy_count_shapes(rig, count, ok, bad):
    raid, host = storelib_rig(rig)
    host.on("get_phy_count_storelibtest", parser(count))
    assert raid.ctl_get_phy_info_storelibtest(ok) == ["phy 0 up", "phy 1 down"]
    with pytest.raises(OrvexException, match=NO_PHY):
        raid.ctl_get_phy_info_storelibtest(bad)


def test_storelib_uses_the_real_expander_query(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_enclosure_storcli64", parser({"e": storcli64_enclosure(7, "Expander", "0x5")}))
    host.on("get_phy_count_storelibtest", parser(["8"]))
    host.on("get_phy_info_storelibtest", parser("phy 2 up\n\nphy 3 up\n"))
    assert raid.ctl_get_phy_info_storelibtest("2-3", adapter_id="0") == ["phy 2 up", "phy 3 up"]
    assert host.wrappers == ["ctr_get_enclosure_storcli64", "get_phy_count_storelibtest",
                             "get_phy_info_storelibtest"]
    assert host.calls[0].params == {}

    host.calls.clear()
    host.on("ctr_get_enclosure_storcli64", parser({"e": storcli64_enclosure(7, "SES", "0x5")}))
    with pytest.raises(OrvexException, match="^该环境无exp背板, 无法查询所有phy信息$"):
        raid.ctl_get_phy_info_storelibtest("all")
    assert host.wrappers == ["ctr_get_enclosure_storcli64"]
