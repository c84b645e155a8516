"""Consistency check schedule: start times from the controller clock, key
renames, wrappers, routes and refusals per tool."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

SCHEDULE = "ctr_set_cc_cfg_storcli64"


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


CHECKED = [
    # storcli64 schedules: complete mode plus a start time on the next hour
    ("storcli64", lambda r: r.set_ccheck_switch("on", adapter_id="1"), SCHEDULE,
     [("adapter_id", "1"), ("cc", "seq"), ("start_time", "2023/01/01 23")], 1),
    ("storcli64", lambda r: r.set_ccheck_switch("conc"), SCHEDULE,
     [("cc", "conc"), ("start_time", "2023/01/01 23")], 1),
    ("storcli64", lambda r: r.set_ccheck_switch("seq", start_time="2030/01/01 01"), SCHEDULE,
     [("start_time", "2023/01/01 23"), ("cc", "seq")], 1),
    # off: the clock is still read, the caller's start time passes unchanged
    ("storcli64", lambda r: r.set_ccheck_switch("off", start_time="2030/01/01 01", adapter_id="0"), SCHEDULE,
     [("start_time", "2030/01/01 01"), ("adapter_id", "0"), ("cc", "off")], 1),
    ("storcli64", lambda r: r.set_ccheck_switch(switch_status="off"), SCHEDULE, [("cc", "off")], 1),
    # only seq and conc are scheduled; other values go to the tool as they stand
    ("storcli64", lambda r: r.set_ccheck_switch("yes"), SCHEDULE, [("cc", "yes")], 1),
    ("sorbctl", lambda r: r.set_ccheck_switch("on", adapter_id="0"), "start_controller_ccheck_sorbctl",
     [("adapter_id", "0"), ("switch_status", "on")], 0),
    ("sorbctl", lambda r: r.set_ccheck_switch("off"), "stop_controller_ccheck_sorbctl",
     [("switch_status", "off")], 0),
    ("storcli64", lambda r: r.set_ctl_ccheck_state(cc_state="seq", adapter_id="0", start_time="x"), SCHEDULE,
     [("cc", "seq"), ("adapter_id", "0"), ("start_time", "2023/01/01 23")], 1),
    ("storcli64", lambda r: r.set_ctl_ccheck_excludevd(excludevd="0,1", adapter_id="0", cc="seq"), SCHEDULE,
     [("excludevd", "0,1"), ("adapter_id", "0"), ("cc", "conc"), ("start_time", "2023/01/01 23")], 1),
    ("storcli64", lambda r: r.set_ctl_ccheck_starttime(start_time="2023/05/06 07", adapter_id="0"), SCHEDULE,
     [("start_time", "2023/05/06 07"), ("adapter_id", "0"), ("cc", "conc")], 0),
    # the period is given in days: storcli64 takes hours, sorbctl a period_time copy
    ("storcli64", lambda r: r.set_ctl_ccheck_period(delay="7", adapter_id="0"), SCHEDULE,
     [("delay", "168"), ("adapter_id", "0"), ("cc", "conc"), ("start_time", "2023/01/01 23")], 1),
    ("sorbctl", lambda r: r.set_ctl_ccheck_period(delay="7", adapter_id="0"), "set_controller_ccheck_sorbctl",
     [("delay", "7"), ("adapter_id", "0"), ("period_time", "7")], 0),
    ("storcli64", lambda r: r.set_ctl_ccheck_ccrate(ccrate="30", adapter_id="0"), "ctr_set_ccrate_storcli64",
     [("ccrate", "30"), ("adapter_id", "0")], 0),
    ("sorbctl", lambda r: r.set_ctl_ccheck_ccrate(ccrate="high"), "set_controller_ccheck_sorbctl",
     [("ccrate", "high")], 0),
    ("sorbctl", lambda r: r.set_ctl_ccheck_repair(repair="on", adapter_id="0"), "set_controller_ccheck_sorbctl",
     [("adapter_id", "0"), ("state", "on")], 0),
    ("arcconf", lambda r: r.set_ctl_ccheck_parallelcount(parallelcount="1", adapter_id="0"),
     "ctl_set_cc_parallelcount_arcconf", [("adapter_id", "0"), ("pd_count", "1")], 0),
]


@pytest.mark.parametrize("answer, expected", [("Set success", True), ("failed", False), (None, False)])
@pytest.mark.parametrize("tool, call, wrapper, params, clock_reads", CHECKED)
def test_set_operations_dispatch_and_test_for_success(cc_rig, tool, call, wrapper, params, clock_reads,
                                                      answer, expected):
    raid, host, clock = cc_rig(tool)
    host.on(wrapper, parser(answer))
    assert call(raid) is expected
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("self", wrapper, params)]
    # the clock comes from the default controller: no arguments at all
    assert clock == [((), {})] * clock_reads


@pytest.mark.parametrize("clock_text, start", [
    ("2023/01/01 22:15:00", "2023/01/01 23"),
    ("2023/12/31 23:40:00", "2024/01/01 00"),
    ("2024/02/28 23:00:00", "2024/02/29 00"),
    ("2023/02/28 23:59:59", "2023/03/01 00"),
    ("2023/04/30 23:00:01", "2023/05/01 00"),
])
@pytest.mark.parametrize("call", [
    lambda r: r.set_ccheck_switch("on"),
    lambda r: r.set_ctl_ccheck_state(cc_state="conc"),
    lambda r: r.set_ctl_ccheck_excludevd(excludevd="1"),
    lambda r: r.set_ctl_ccheck_period(delay="1"),
])
def test_start_time_is_the_next_hour_on_the_controller_clock(cc_rig, call, clock_text, start):
    raid, host, _ = cc_rig("storcli64", clock_text)
    host.on(SCHEDULE, parser("success"))
    assert call(raid) is True
    assert host.last().params["start_time"] == start


@pytest.mark.parametrize("call", [
    lambda r: r.set_ccheck_switch("off"),
    lambda r: r.set_ctl_ccheck_state(cc_state="conc"),
    lambda r: r.set_ctl_ccheck_period(delay="1"),
])
def test_unreadable_clock_fails_before_dispatch(cc_rig, call):
    raid, host, _ = cc_rig("storcli64", "2023-01-01 22:15:00")
    with pytest.raises(ValueError, match="does not match format"):
        call(raid)
    assert host.calls == []


def test_storcli64_period_that_is_no_whole_number_fails_before_clock_and_dispatch(cc_rig):
    raid, host, clock = cc_rig("storcli64")
    with pytest.raises(ValueError, match="invalid literal for int"):
        raid.set_ctl_ccheck_period(delay="week")
    assert host.calls == [] and clock == []


@pytest.mark.parametrize("repair, sent", [("on", "enable"), ("off", "disable"), ("yes", "yes")])
def test_arcconf_repair_goes_through_host_and_returns_the_formatted_result(cc_rig, repair, sent):
    raid, host, _ = cc_rig("arcconf")
    raw = {"parser": "Command completed successfully."}
    host.on("ctl_set_ccrepair_arcconf", raw)
    seen = []
    raid.formatter.parser_exec_cmd_format = lambda r, t: seen.append((r, t)) or ("judged", t)
    assert raid.set_ctl_ccheck_repair(repair=repair, adapter_id="0") == ("judged", "arcconf")
    assert seen == [(raw, "arcconf")]
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("host", "ctl_set_ccrepair_arcconf", [("adapter_id", "0"), ("repair_state", sent)])]


@pytest.mark.parametrize("tool, wrapper, answer, rate", [
    ("storcli64", "ctr_get_ccrate_storcli64", {"Controller Properties": {"Ctrl_Prop": "CC Rate", "Value": "40%"}},
     "40%"),
    ("sorbctl", "get_controller_ccheck_sorbctl", {"CC Mode": "seq", "CC Rate": "high"}, "high"),
    # the rate entry is required
    ("sorbctl", "get_controller_ccheck_sorbctl", {"CC Mode": "seq"}, KeyError),
])
def test_rate_is_a_one_entry_dictionary(cc_rig, tool, wrapper, answer, rate):
    raid, host, _ = cc_rig(tool)
    host.on(wrapper, parser(answer))
    if rate is KeyError:
        with pytest.raises(KeyError, match="CC Rate"):
            raid.get_ctl_ccheck_ccrate(adapter_id="0")
    else:
        assert raid.get_ctl_ccheck_ccrate(adapter_id="0") == {"Rate": rate}
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("self", wrapper, [("adapter_id", "0")])]


STATE_KEYS = ["CC Operation Mode", "CC Execution Delay", "CC Next Starttime", "CC Current State",
              "CC Number of iterations", "CC Number of VD completed", "CC Excluded VDs"]
STORCLI_CC = [("CC Operation Mode", "Sequential"), ("CC Execution Delay", "1 hours"),
              ("CC Next Starttime", "01/01/2023, 22:00:00"), ("CC Current State", "Stopped"),
              ("CC Number of iterations", "6"), ("CC Number of VD completed", "0"),
              ("CC Excluded VDs", "None")]
SORBCTL_CC = {"CC Mode": "Sequential", "CC Period": "1 hours", "CC Next Start Time": "01/01/2023, 22:00:00",
              "CC State": "Stopped", "CC Iterations": "6", "CC Completed VDs": "0", "CC Excluded VDs": "None",
              "CC Rate": "high"}
ARCCONF_INFO = {"controller_status": "Optimal", "background_consistency_check": "Enabled",
                "consistency_check_delay": "3 seconds", "parallel_consistency_check_supported": "Enabled"}


@pytest.mark.parametrize("tool, route, wrapper, answer, values, raw", [
    ("storcli64", "self", "ctr_get_cc_storcli64",
     {"Controller Properties": [{"Ctrl_Prop": k, "Value": v} for k, v in STORCLI_CC]},
     [v for _, v in STORCLI_CC], dict(STORCLI_CC)),
    ("sorbctl", "self", "get_controller_ccheck_sorbctl", SORBCTL_CC,
     ["Sequential", "1 hours", "01/01/2023, 22:00:00", "Stopped", "6", "0", "None"], SORBCTL_CC),
    ("arcconf", "host", "ctr_get_adpt_cfg_arcconf",
     {"controller_information": ARCCONF_INFO, "logical_device_information": [{"logical_device": "0"}]},
     ["Enabled", "3 seconds", "", "", "", "", ""], ARCCONF_INFO),
])
def test_state_query_is_normalised(cc_rig, tool, route, wrapper, answer, values, raw):
    raid, host, _ = cc_rig(tool)
    host.on(wrapper, parser(answer))
    result = raid.query_ctl_ccheck_info(adapter_id="0")
    assert list(result.items()) == list(zip(STATE_KEYS, values)) + [("raw_data", raw)]
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        (route, wrapper, [("adapter_id", "0")])]
