"""Kick-drive and slow-drive state queries: what each takes for a failure."""
import pytest

from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import parser

KICK, SLOW = "get_kickdrive_status", "get_slowdrive_status"


@pytest.mark.parametrize("name, answer, message", [
    (KICK, "fail", "查询kickdrive失败"),
    (SLOW, {}, "查询slowdrive失败"), (SLOW, "", "查询slowdrive失败"),
    (SLOW, None, "查询slowdrive失败"), (SLOW, [], "查询slowdrive失败"),
    # "fail" is no failure to the slow-drive query: its template cannot take a text
    (SLOW, "fail", "Unsupported data type [<class 'str'>] found in template."),
])
def test_failed_queries_raise(rig, name, answer, message):
    raid, host = rig("sorbctl")
    host.on(name + "_sorbctl", parser(answer))
    with pytest.raises(OrvexException) as err:
        getattr(raid, name)()
    assert str(err.value) == message


def test_empty_kickdrive_answer_is_no_failure(rig):
    raid, host = rig("sorbctl")
    host.on("get_kickdrive_status_sorbctl", parser({}))
    assert raid.get_kickdrive_status(adapter_id="0") == {
        "Reset_time": "", "Total_allowed_kicks": "", "Total_kicked": "", "Reset_remaining_time": "",
        "raw_data": {}}
    assert list(host.last().params.items()) == [("adapter_id", "0")]
