"""Consistency check schedule: start times from the controller clock, the
params each tool is sent, routes and the read-backs."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

SCHEDULE = "ctr_set_cc_cfg_storcli64"
NEXT = ("start_time", "2023/01/01 23")


@pytest.fixture
def cc_rig(rig):
    """(raid, host, clock calls) with get_ctl_current_time answering `clock_text`."""
    def make(tool, clock_text="2023/01/01 22:15:00"):
        raid, host = rig(tool)
        calls = []
        raid.get_ctl_current_time = lambda *a, **kw: calls.append((a, kw)) or clock_text
        return raid, host, calls

    return make


def test_sorbctl_switch_other_than_on_or_off_refuses_before_dispatch_or_clock(cc_rig):
    raid, host, clock = cc_rig("sorbctl")
    with pytest.raises(OrvexException) as err:
        raid.set_ccheck_switch("yes")
    assert str(err.value) == "请输入正确的switch_status: yes错误, 应为on或者off."
    assert host.calls == [] and clock == []


# (tool, call, wrapper, params as sent, clock reads)
@pytest.mark.parametrize("tool, call, wrapper, params, clock_reads", [
    # storcli64 schedules: complete mode plus a start time on the next hour
    ("storcli64", lambda r: r.set_ccheck_switch("on", adapter_id="1"), SCHEDULE,
     [("adapter_id", "1"), ("cc", "seq"), NEXT], 1),
    ("storcli64", lambda r: r.set_ccheck_switch("conc"), SCHEDULE, [("cc", "conc"), NEXT], 1),
    ("storcli64", lambda r: r.set_ccheck_switch("seq", start_time="2030/01/01 01"), SCHEDULE,
     [NEXT, ("cc", "seq")], 1),
    # off and other values: the clock is still read, the caller's start time passes unchanged
    ("storcli64", lambda r: r.set_ccheck_switch("off", start_time="2030/01/01 01", adapter_id="0"),
     SCHEDULE, [("start_time", "2030/01/01 01"), ("adapter_id", "0"), ("cc", "off")], 1),
    ("storcli64", lambda r: r.set_ccheck_switch("yes"), SCHEDULE, [("cc", "yes")], 1),
    ("sorbctl", lambda r: r.set_ccheck_switch("on", adapter_id="0"),
     "start_controller_ccheck_sorbctl", [("adapter_id", "0"), ("switch_status", "on")], 0),
    ("sorbctl", lambda r: r.set_ccheck_switch("off"), "stop_controller_ccheck_sorbctl",
     [("switch_status", "off")], 0),
    ("storcli64", lambda r: r.set_ctl_ccheck_state(cc_state="seq", adapter_id="0", start_time="x"),
     SCHEDULE, [("cc", "seq"), ("adapter_id", "0"), NEXT], 1),
    ("storcli64", lambda r: r.set_ctl_ccheck_excludevd(excludevd="0,1", adapter_id="0", cc="seq"),
     SCHEDULE, [("excludevd", "0,1"), ("adapter_id", "0"), ("cc", "conc"), NEXT], 1),
    ("storcli64", lambda r: r.set_ctl_ccheck_starttime(start_time="2023/05/06 07", adapter_id="0"),
     SCHEDULE, [("start_time", "2023/05/06 07"), ("adapter_id", "0"), ("cc", "conc")], 0),
    # the period is given in days: storcli64 takes hours, sorbctl a period_time copy
    ("storcli64", lambda r: r.set_ctl_ccheck_period(delay="7", adapter_id="0"), SCHEDULE,
     [("delay", "168"), ("adapter_id", "0"), ("cc", "conc"), NEXT], 1),
    ("sorbctl", lambda r: r.set_ctl_ccheck_period(delay="7", adapter_id="0"),
     "set_controller_ccheck_sorbctl", [("delay", "7"), ("adapter_id", "0"), ("period_time", "7")], 0),
])
def test_set_operations_send_their_params(cc_rig, tool, call, wrapper, params, clock_reads):
    raid, host, clock = cc_rig(tool)
    host.on(wrapper, parser("Set success"))
    assert call(raid) is True
    assert host.sent() == [
        ("self", wrapper, params)]
    # the clock comes from the default controller: no arguments at all
    assert clock == [((), {})] * clock_reads


@pytest.mark.parametrize("call, clock_text, start", [
    (lambda r: r.set_ccheck_switch("on"), "2023/12/31 23:40:00", "2024/01/01 00"),
    (lambda r: r.set_ctl_ccheck_state(cc_state="conc"), "2024/02/28 23:00:00", "2024/02/29 00"),
    (lambda r: r.set_ctl_ccheck_excludevd(excludevd="1"), "2023/02/28 23:59:59", "2023/03/01 00"),
    (lambda r: r.set_ctl_ccheck_period(delay="1"), "2023/04/30 23:00:01", "2023/05/01 00"),
])
def test_start_time_is_the_next_hour_on_the_controller_clock(cc_rig, call, clock_text, start):
    raid, host, _ = cc_rig("storcli64", clock_text)
    host.on(SCHEDULE, parser("success"))
    assert call(raid) is True
    assert host.last().params["start_time"] == start


@pytest.mark.parametrize("call, clock_text, error", [
    (lambda r: r.set_ccheck_switch("off"), "2023-01-01 22:15:00", "does not match format"),
    (lambda r: r.set_ctl_ccheck_period(delay="1"), "2023-01-01 22:15:00", "does not match format"),
    # a period that is no whole number fails before the clock is read
    (lambda r: r.set_ctl_ccheck_period(delay="week"), None, "invalid literal for int"),
])
def test_unreadable_clock_or_period_fails_before_dispatch(cc_rig, call, clock_text, error):
    raid, host, clock = cc_rig("storcli64", clock_text)
    with pytest.raises(ValueError, match=error):
        call(raid)
    assert host.calls == [] and len(clock) == (clock_text is not None)


@pytest.mark.parametrize("repair, sent", [("on", "enable"), ("off", "disable"), ("yes", "yes")])
def test_arcconf_repair_goes_through_host_and_returns_the_formatted_result(cc_rig, repair, sent):
    raid, host, _ = cc_rig("arcconf")
    raw = {"parser": "Command completed successfully."}
    host.on("ctl_set_ccrepair_arcconf", raw)
    seen = []
    raid.formatter.parser_exec_cmd_format = lambda r, t: seen.append((r, t)) or ("judged", t)
    assert raid.set_ctl_ccheck_repair(repair=repair, adapter_id="0") == ("judged", "arcconf")
    assert seen == [(raw, "arcconf")]
    assert host.sent() == [
        ("host", "ctl_set_ccrepair_arcconf", [("adapter_id", "0"), ("repair_state", sent)])]


def test_sorbctl_rate_entry_is_required(cc_rig):
    raid, host, _ = cc_rig("sorbctl")
    host.on("get_controller_ccheck_sorbctl", parser({"CC Mode": "seq"}))
    with pytest.raises(KeyError, match="CC Rate"):
        raid.get_ctl_ccheck_ccrate(adapter_id="0")


def test_arcconf_state_comes_through_host_from_the_controller_information(cc_rig):
    raid, host, _ = cc_rig("arcconf")
    info = {"controller_status": "Optimal", "background_consistency_check": "Enabled",
            "consistency_check_delay": "3 seconds"}
    host.on("ctr_get_adpt_cfg_arcconf", parser({"controller_information": info,
                                                 "logical_device_information": [{"logical_device": "0"}]}))
    assert list(raid.query_ctl_ccheck_info(adapter_id="0").items()) == [
        ("CC Operation Mode", "Enabled"), ("CC Execution Delay", "3 seconds"), ("CC Next Starttime", ""),
        ("CC Current State", ""), ("CC Number of iterations", ""), ("CC Number of VD completed", ""),
        ("CC Excluded VDs", ""), ("raw_data", info)]
    assert host.sent() == [
        ("host", "ctr_get_adpt_cfg_arcconf", [("adapter_id", "0")])]
