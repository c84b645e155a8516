"""Kick-drive and slow-drive policies: sorbctl only, the two failure tests."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser


@pytest.mark.parametrize("answer, expected", [("success", True), ("fail", False), ("", False)])
@pytest.mark.parametrize("call, wrapper, params", [
    (lambda r: r.set_kickdrive(period="30", sum="1", adapter_id="0"), "set_kickdrive_sorbctl",
     [("period", "30"), ("sum", "1"), ("adapter_id", "0")]),
    (lambda r: r.set_kickdrive(), "set_kickdrive_sorbctl", []),
    (lambda r: r.set_slowdrive("raid", l1="340", media="hdd", susize="64"), "set_slowdrive_sorbctl",
     [("type", "raid"), ("l1", "340"), ("media", "hdd"), ("susize", "64")]),
    (lambda r: r.set_slowdrive(disk_type="rawdrive", l2="1", default="default"), "set_slowdrive_sorbctl",
     [("type", "rawdrive"), ("l2", "1"), ("default", "default")]),
])
def test_sorbctl_settings_pass_values_unchecked(rig, call, wrapper, params, answer, expected):
    raid, host = rig("sorbctl")
    host.on(wrapper, parser(answer))
    assert call(raid) is expected
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("self", wrapper, params)]


def test_kickdrive_state_is_normalised_by_its_template(rig):
    raid, host = rig("sorbctl")
    answer = {"ResetTime": "30 days", "TotalAllowedKicks": "1", "TotalKicked": "0",
              "ResetRemainingTime": "12 days"}
    host.on("get_kickdrive_status_sorbctl", parser(answer))
    assert list(raid.get_kickdrive_status(adapter_id="0").items()) == [
        ("Reset_time", "30 days"), ("Total_allowed_kicks", "1"), ("Total_kicked", "0"),
        ("Reset_remaining_time", "12 days"), ("raw_data", answer)]
    assert list(host.last().params.items()) == [("adapter_id", "0")]


def test_slowdrive_state_is_normalised_by_its_template(rig):
    raid, host = rig("sorbctl")
    config = {"Raid ratio": "8", "Raid Threshold": {"Media": "hdd", "L1": "340"},
              "RawDrive Threshold": {"Media": "hdd", "L2": "810"}}
    answer = {"Switch": {"raid": "on", "rawdrive": "off"}, "CurrConfig": config, "NextConfig": config}
    host.on("get_slowdrive_status_sorbctl", parser(answer))
    assert list(raid.get_slowdrive_status().items()) == [
        ("switch", answer["Switch"]), ("curr_config", config), ("next_config", config), ("raw_data", answer)]
    assert list(host.last().params.items()) == []


def test_kickdrive_query_fails_only_on_the_text_fail(rig):
    raid, host = rig("sorbctl")
    host.on("get_kickdrive_status_sorbctl", parser("fail"))
    with pytest.raises(OrvexException) as err:
        raid.get_kickdrive_status()
    assert str(err.value) == "查询kickdrive失败"
    # an empty answer is not a failure here: it reaches normalisation
    host.on("get_kickdrive_status_sorbctl", parser({}))
    assert raid.get_kickdrive_status() == {"Reset_time": "", "Total_allowed_kicks": "", "Total_kicked": "",
                                           "Reset_remaining_time": "", "raw_data": {}}


@pytest.mark.parametrize("empty", [{}, "", None, []])
def test_slowdrive_query_fails_on_an_empty_answer(rig, empty):
    raid, host = rig("sorbctl")
    host.on("get_slowdrive_status_sorbctl", parser(empty))
    with pytest.raises(OrvexException) as err:
        raid.get_slowdrive_status()
    assert str(err.value) == "查询slowdrive失败"


def test_slowdrive_query_does_not_treat_fail_as_failure(rig):
    raid, host = rig("sorbctl")
    host.on("get_slowdrive_status_sorbctl", parser("fail"))
    with pytest.raises(OrvexException) as err:
        raid.get_slowdrive_status()
    assert str(err.value) == "Unsupported data type [<class 'str'>] found in template."
