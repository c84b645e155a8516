"""Copyback and precopy: switches, rates, per-drive copyback."""
import pytest

from orvex_sim.recorder import parser

PROPS = {"Controller Properties": [{"Ctrl_Prop": "Copyback", "Value": "off"},
                                   {"Ctrl_Prop": "SMARTer", "Value": "On"},
                                   {"Ctrl_Prop": "SMARTer", "Value": "on"}]}


@pytest.mark.parametrize("kwargs, sent, expected", [
    ({}, [("index", 0)], "OFF"),
    ({"index": 2}, [("index", 2)], "ON"),
    ({"adapter_id": "1", "index": 1}, [("adapter_id", "1"), ("index", 1)], "ON"),
])
def test_copyback_status_storcli64_reads_property_row(rig, kwargs, sent, expected):
    raid, host = rig("storcli64")
    host.on("ctr_get_copyback_storcli64", parser(PROPS))
    assert raid.get_copyback_status(**kwargs) == expected
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("self", "ctr_get_copyback_storcli64", sent)]
    with pytest.raises(IndexError):
        raid.get_copyback_status(index=3)


def test_sorbctl_switch_case_differs_between_queries(rig):
    raid, host = rig("sorbctl")
    host.on("get_controller_copyback_sorbctl", parser({"Copyback Switch": "Off", "Other": 1}))
    assert raid.query_copyback_info(adapter_id="0") == "Off"
    assert raid.get_copyback_status(index=2) == "OFF"
    assert [(c.wrapper, c.params) for c in host.calls] == [
        ("get_controller_copyback_sorbctl", {"adapter_id": "0"}),
        ("get_controller_copyback_sorbctl", {"index": 2})]


@pytest.mark.parametrize("call, wrapper, parsed, expected, params", [
    (lambda r: r.get_copyback_rate(adapter_id="0"), "get_controller_config_sorbctl",
     {"CopyBack Rate": "low", "Rebuild Rate": "high"}, {"CopyBack Rate": "low"},
     {"adapter_id": "0"}),
    (lambda r: r.get_precopy_info(), "get_controller_precopy_sorbctl",
     {"Precopy Switch": "Off", "Precopy Threshold": "80"},
     {"Precopy Threshold": "80", "precopy_switch": "off"}, {}),
])
def test_sorbctl_queries(rig, call, wrapper, parsed, expected, params):
    raid, host = rig("sorbctl")
    host.on(wrapper, parser(parsed))
    assert call(raid) == expected
    assert host.calls == [("self", wrapper, params)]


def test_pd_copyback_func_returns_parsed_output(rig):
    raid, host = rig("storcli64")
    parsed = [{"Drive-ID": "/c0/e65/s0", "Status": "Success"}]
    host.on("pd_copyback_func_storcli64", parser(parsed))
    assert raid.set_pd_copyback_func("65", "0", "pause", adapter_id="0") is parsed
    assert list(host.last().params.items()) == [("eid", "65"), ("sid", "0"), ("oper", "pause"),
                                                ("adapter_id", "0")]


@pytest.mark.parametrize("extra, drive_id", [({"adapter_id": "0"}, "c0:e0:s1"),
                                             ({}, "cNone:e0:s1")])
def test_pd_copyback_info_sorbctl(rig, extra, drive_id):
    raid, host = rig("sorbctl")
    detail = {"CopybackProgress": "0%", "CopybackStatus": "In progress",
              "CopybackTimeLeft": "0 min", "Model": "ST6000"}
    host.on("get_controller_pd_info_sorbctl", parser({"DriveDetailInformation": detail}))
    out = raid.get_pd_copyback_info(eid="0", sid="1", **extra)
    assert {k: out[k] for k in ("Drive-ID", "Progress", "Status", "Estimated_time_left")} == {
        "Drive-ID": drive_id, "Progress": "0%", "Status": "In progress",
        "Estimated_time_left": "0 min"}
    assert list(out) == ["Drive-ID", "Progress", "Status", "Estimated_time_left", "raw_data"]
    assert host.calls == [("self", "get_controller_pd_info_sorbctl",
                           dict({"eid": "0", "sid": "1"}, **extra))]


def test_pd_copyback_info_storcli64_first_row(rig):
    raid, host = rig("storcli64")
    row = {"Drive-ID": "/c0/e65/s0", "Progress%": 45, "Status": "In progress",
           "Estimated Time Left": "9 Minutes"}
    host.on("pd_copyback_show_storcli64", parser([row, {}]))
    assert raid.get_pd_copyback_info(eid="65", sid="0") == {
        "Drive-ID": "/c0/e65/s0", "Progress": 45, "Status": "In progress",
        "Estimated_time_left": "9 Minutes", "raw_data": row}
    host.on("pd_copyback_show_storcli64", parser([]))
    with pytest.raises(IndexError):
        raid.get_pd_copyback_info(eid="65", sid="0")


# (tool, call, wrapper, section read from the parser entry)
LOOKUPS = [
    ("sorbctl", lambda r: r.query_copyback_info(), "get_controller_copyback_sorbctl",
     "Copyback Switch"),
    ("sorbctl", lambda r: r.get_copyback_status(), "get_controller_copyback_sorbctl",
     "Copyback Switch"),
    ("storcli64", lambda r: r.get_copyback_status(), "ctr_get_copyback_storcli64",
     "Controller Properties"),
    ("sorbctl", lambda r: r.get_copyback_rate(), "get_controller_config_sorbctl", "CopyBack Rate"),
    ("sorbctl", lambda r: r.get_precopy_info(), "get_controller_precopy_sorbctl", "Precopy Switch"),
    ("sorbctl", lambda r: r.get_pd_copyback_info(eid="0", sid="1"),
     "get_controller_pd_info_sorbctl", "DriveDetailInformation"),
    ("storcli64", lambda r: r.get_pd_copyback_info(eid="0", sid="1"), "pd_copyback_show_storcli64",
     None),
]


@pytest.mark.parametrize("tool, call, wrapper, section", LOOKUPS)
def test_missing_entries_raise_key_error(rig, tool, call, wrapper, section):
    raid, host = rig(tool)
    host.on(wrapper, {"other": 1}, parser({}))
    for missing in [k for k in ("parser", section) if k]:
        with pytest.raises(KeyError) as err:
            call(raid)
        assert err.value.args == (missing,)
