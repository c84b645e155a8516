"""What a script learns from the simulated host beyond True and False: a
misspelt key stops the call, and every answer is logged and kept."""
import logging

import pytest

import orvex_sim
from orvex.api.hostos.raid import raid as raid_module
from orvex_sim.simhost import SimulatedHost, UndeclaredRead, UnexpectedParams, reads
from orvex_sim.simhost.common import HostCommands
from conftest import TOOLS

DELETE = {"storcli64": "ctr_delete_vd_storcli64", "arcconf": "delete_vd_arcconf",
          "sorbctl": "delete_controller_vd_sorbctl"}
CREATE = {"storcli64": ("ctr_create_vd_storcli64", "failure: "),
          "arcconf": ("ctr_create_vd_arcconf", "Command failed: "),
          "sorbctl": ("create_controller_vd_sorbctl", "fail: ")}


def with_mirror(host):
    with orvex_sim.use(host):
        raid = raid_module.Raid()
    e = host.model.drives[0].eid
    assert raid.create_virtual_drive(raid_level="1", drives=["%s:0" % e, "%s:1" % e],
                                     pd_per_array="") is True
    return raid


@pytest.mark.parametrize("tool", TOOLS)
def test_a_misspelt_key_is_refused_unless_the_host_is_lenient(tool, tmp_path, caplog):
    host = SimulatedHost(tool)
    raid = with_mirror(host)
    wrapper = DELETE[tool]
    message = ("the simulated %s host's wrapper %r does not read 'adaptor_id' (it reads "
               "adapter_id, adp_id, oper, vid)" % (tool, wrapper))
    with caplog.at_level(logging.DEBUG, logger="orvex_sim"):
        with pytest.raises(UnexpectedParams) as caught:
            raid.delete_virtual_drive(vid="0", adaptor_id="1")
    assert str(caught.value) == message and isinstance(caught.value, TypeError)
    assert host.calls[-1] == ("self", wrapper, {"vid": "0", "adaptor_id": "1"})
    assert host.calls[-1].error is caught.value and host.calls[-1].answer is None
    assert caplog.messages[-1] == "%s {'vid': '0', 'adaptor_id': '1'} -> raised " \
                                  "UnexpectedParams: %s" % (wrapper, message)
    assert len(host.model.vds) == 1

    path = tmp_path / "lenient.yaml"
    path.write_text("tool: %s\nstrict: false\n" % tool)
    for lenient in (SimulatedHost(tool, strict=False), SimulatedHost.from_file(str(path))):
        assert with_mirror(lenient).delete_virtual_drive(vid="0", adaptor_id="1") is True
        assert not lenient.model.vds


@pytest.mark.parametrize("tool", TOOLS)
def test_the_reason_for_false_is_logged_and_kept(tool, caplog):
    host = SimulatedHost(tool)
    with orvex_sim.use(host):
        raid = raid_module.Raid()
    e = host.model.drives[0].eid
    wrapper, failure = CREATE[tool]
    with caplog.at_level(logging.DEBUG, logger="orvex_sim"):
        assert raid.create_virtual_drive(raid_level="7", drives=["%s:0" % e, "%s:1" % e],
                                         pd_per_array="") is False
    reason = failure + "RAID level 7 is not supported"
    [logged] = [r for r in caplog.records if r.name == "orvex_sim"]
    assert (logged.levelno, logged.getMessage()) == (
        logging.DEBUG, "%s {'raid_level': '7', 'drives': ['%s:0', '%s:1'], "
                       "'pd_per_array': ''} -> %s" % (wrapper, e, e, reason))
    assert host.calls[-1].outcome == reason
    assert host.calls[-1].answer == [{"parser": reason}]


def test_the_table_of_keys_holds_every_wrapper_and_keeps_up_with_the_handlers(monkeypatch):
    for tool in TOOLS:
        view = SimulatedHost(tool)._view_class
        assert set(reads.READS[tool]) == set(view.WRAPPERS), tool
    assert set(reads.READS["common"]) == set(HostCommands.WRAPPERS)

    monkeypatch.setitem(reads.READS["storcli64"], "ctr_delete_vd_storcli64", "vid")
    raid = with_mirror(SimulatedHost("storcli64"))
    with pytest.raises(UndeclaredRead, match=r"^the handler of 'ctr_delete_vd_storcli64' read "
                                             r"'oper', which its entry in orvex_sim/simhost/"
                                             r"reads.py lacks \(adapter_id adp_id vid\)$"):
        raid.delete_virtual_drive(vid="0")
