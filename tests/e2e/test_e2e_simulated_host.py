"""The simulated host as a test engineer meets it: refusals where hardware
refuses (and nothing changes), tasks that progress with time, failures and
rebuilds, the choice of host, and the judgment of action output."""
import os

import pytest

import orvex_sim
from orvex.api.hostos.raid import raid as raid_module
from orvex.api.hostos.raid.output_format import OutputFormatter
from orvex.exception.orvex_exception import OrvexException
from orvex_sim.simhost import CommandFailed, SimulatedHost, UnknownWrapper
from conftest import TOOLS

OPTIMAL = {"storcli64": "Optl", "arcconf": "Optimal", "sorbctl": "Normal"}
FAILED = {"storcli64": "ubad", "arcconf": "failed", "sorbctl": "failed"}
DEGRADED = {"storcli64": "Dgrd", "arcconf": "Degraded", "sorbctl": "Degraded"}


def make(tool, **options):
    host = SimulatedHost(tool, **options)
    with orvex_sim.use(host):
        raid = raid_module.Raid()
    return raid, host, host.model.drives[0].eid


def create(raid, e, level, *slots, **extra):
    extra.setdefault("pd_per_array", "")
    return raid.create_virtual_drive(raid_level=level, drives=["%s:%s" % (e, s) for s in slots],
                                     **extra)


def snapshot(raid):
    return ([v["raw_data"] for v in raid._get_virtual_drive_list()],
            [d["raw_data"] for d in raid._get_physical_drive_list()])


REFUSED = [
    ("RAID 1 of one drive", lambda r, e: create(r, e, "1", 0)),
    ("RAID 1 of three drives", lambda r, e: create(r, e, "1", 0, 1, 2)),
    ("RAID 5 of two drives", lambda r, e: create(r, e, "5", 0, 1)),
    ("SAS and SATA mixed", lambda r, e: create(r, e, "5", 0, 1, 6)),
    ("HDD and SSD mixed", lambda r, e: create(r, e, "1", 3, 4)),
    ("a drive already in use", lambda r, e: create(r, e, "1", 1, 2)),
    ("a drive that does not exist", lambda r, e: create(r, e, "1", 2, 42)),
    ("a size beyond the drives", lambda r, e: create(r, e, "1", 2, 3, size="5TB")),
    ("an unknown RAID level", lambda r, e: create(r, e, "7", 2, 3)),
    ("deleting a missing virtual drive", lambda r, e: r.delete_virtual_drive(vid="9")),
    ("a spare that does not exist", lambda r, e: r.set_pd_hotspare_drive(e, "99", "add")),
    ("a member as hot spare", lambda r, e: r.set_pd_hotspare_drive(e, "0", "add")),
    ("releasing a drive that is no spare", lambda r, e: r.set_pd_hotspare_drive(e, "3",
                                                                                "delete")),
    ("erasing a member", lambda r, e: r.start_pd_erase(eid=e, sid="0", mode="simple")),
    ("stopping an erase that never ran", lambda r, e: r.stop_pd_erase(eid=e, sid="3")),
    ("an unknown erase mode", lambda r, e: r.start_pd_erase(eid=e, sid="3", mode="deep")),
    ("a cache policy for a missing virtual drive", lambda r, e: r.set_virtual_drive_wrcache(
        vid="5", wrcache="wt")),
    ("an expansion beyond the drives", lambda r, e: r.add_pd_expand_array(
        vid="0", drives=["%s:0" % e])),
]


@pytest.mark.parametrize("tool", TOOLS)
@pytest.mark.parametrize("why, call", REFUSED, ids=[r[0] for r in REFUSED])
def test_refused_requests_answer_false_and_change_nothing(tool, why, call):
    raid, host, e = make(tool)
    assert create(raid, e, "1", 0, 1) is True
    before = snapshot(raid)
    assert call(raid, e) is False
    assert snapshot(raid) == before


@pytest.mark.parametrize("tool", TOOLS)
def test_hot_spare_takes_over_a_failed_member_and_rebuilds_it(tool):
    raid, host, e = make(tool)
    assert create(raid, e, "1", 0, 1) is True
    assert raid.set_pd_hotspare_drive(e, "3", "add") is True
    host.fail_drive(e, "1")
    assert raid.get_one_physical_drive_info(eid=e, sid="1")["status"] == FAILED[tool]
    assert raid.get_one_physical_drive_info(eid=e, sid="3")["status"] == "reconstructing"
    assert raid._get_virtual_drive_list()[0]["status"] == DEGRADED[tool]
    assert raid.get_virtual_drive_member_drives(vid="0") == [{"eid": e, "sid": "0"},
                                                             {"eid": e, "sid": "3"}]
    first = int(str(raid.get_pd_rebuild_status(eid=e, sid="3")["progress"]).rstrip("%"))
    host.advance(30)
    later = int(str(raid.get_pd_rebuild_status(eid=e, sid="3")["progress"]).rstrip("%"))
    assert 0 <= first < later < 100
    host.advance(80)
    assert raid.get_one_physical_drive_info(eid=e, sid="3")["status"] == "online"
    assert raid._get_virtual_drive_list()[0]["status"] == OPTIMAL[tool]


def test_without_a_spare_an_offline_member_is_rebuilt_on_request():
    raid, host, e = make("storcli64")
    assert create(raid, e, "5", 0, 1, 2) is True
    assert raid.set_disk_rebuild(eid=e, sid="1", oper="start") is False   # still online
    assert raid.set_disk_offline(eid=e, sid="1") is True
    assert raid._get_virtual_drive_list()[0]["status"] == "Dgrd"
    assert raid.set_disk_rebuild(eid=e, sid="1", oper="start") is True
    assert raid.set_disk_rebuild(eid=e, sid="1", oper="pause") is True
    paused = raid.get_pd_rebuild_status(eid=e, sid="1")
    host.advance(50)
    assert raid.get_pd_rebuild_status(eid=e, sid="1")["progress"] == paused["progress"]
    assert raid.get_pd_rebuild_status(eid=e, sid="1")["status"] == "Paused"
    assert raid.set_disk_rebuild(eid=e, sid="1", oper="resume") is True
    host.advance(100)
    assert raid.get_pd_rebuild_status(eid=e, sid="1")["status"] == "Not in progress"
    assert raid._get_virtual_drive_list()[0]["status"] == "Optl"


@pytest.mark.parametrize("tool", ("storcli64", "sorbctl"))
def test_consistency_check_progresses_with_time_and_ends(tool):
    raid, host, e = make(tool)
    assert create(raid, e, "5", 0, 1, 2) is True
    host.advance(200)                                  # background initialisation ends
    assert raid.set_virtual_drive_cc("0", "start") is True
    assert raid.set_virtual_drive_cc("0", "start") is False   # already running

    def status():
        answer = raid.query_virtual_drive_cc_status("0")
        return answer[0] if isinstance(answer, list) else answer

    first = status()
    assert first["Status"] in ("In progress", "Running")
    host.advance(30)
    assert int(str(status()["Progress"]).rstrip("%")) > int(str(first["Progress"]).rstrip("%"))
    host.advance(100)
    assert status()["Status"] in ("Not in progress", "Not Running")


def test_consistency_check_of_raid_0_and_of_uninitialised_drives_is_refused():
    raid, host, e = make("storcli64")
    assert create(raid, e, "0", 3) is True
    assert create(raid, e, "5", 0, 1, 2) is True
    assert raid.set_virtual_drive_cc("0", "start") is False
    assert raid.set_virtual_drive_cc("1", "start") is False    # still initialising
    assert raid.set_virtual_drive_cc("1", "start", force="force") is True


def test_background_initialisation_starts_on_parity_drives_only_while_switched_on():
    raid, host, e = make("storcli64")
    assert create(raid, e, "5", 0, 1, 2) is True
    assert raid.get_virtual_drive_bgi_state(vid="0")[0]["Status"] == "In progress"
    host.advance(150)
    assert raid.get_virtual_drive_bgi_state(vid="0")[0]["Status"] == "Not in progress"
    assert create(raid, e, "1", 6, 7) is True
    assert raid.get_virtual_drive_bgi_state(vid="1")[0]["Status"] == "Not in progress"


@pytest.mark.parametrize("tool", TOOLS)
def test_delete_frees_members_and_spares_of_the_array(tool):
    raid, host, e = make(tool)
    assert create(raid, e, "1", 0, 1) is True
    spare = {"storcli64": dict(ar_id="0"), "arcconf": dict(ar_id="0"),
             "sorbctl": dict(vd="0")}[tool]
    assert raid.set_pd_hotspare_drive(e, "3", "add", **spare) is True
    assert raid.delete_virtual_drive(vid="0") is True
    assert [d["status"] for d in raid.get_all_physical_drive_info()][:4] == ["ugood"] * 4
    assert raid._get_virtual_drive_list() == []


# (tool, VD 0 = RAID 1 on slots 0-1 first, [(call, expected answer)]) in order
SEQUENCES = {
    "JBOD needs the controller switch and a free drive": ("storcli64", False, [
        (lambda r, e: r.set_disk_jbod_state(eid=e, sid="3", state="on"), False),
        (lambda r, e: r.set_jbod_state("on"), True),
        (lambda r, e: r.set_disk_jbod_state(eid=e, sid="3", state="on"), True),
        (lambda r, e: r.set_jbod_state("off"), False),          # a JBOD drive exists
        (lambda r, e: r.set_jbod_state("off", force=True), True),
        (lambda r, e: r.get_one_physical_drive_info(eid=e, sid="3")["status"], "ugood")]),
    "emulation once disabled cannot be forced": ("storcli64", True, [
        (lambda r, e: r.set_vd_emulation(vid="0", emulation_type="1"), True),
        (lambda r, e: r.set_vd_emulation(vid="0", emulation_type="2"), False),
        (lambda r, e: r.get_vd_emulation(vid="0"), {"/c0/v0": {"Emulation type": "none"}})]),
    "hiding twice is refused, showing twice is not": ("storcli64", True, [
        (lambda r, e: r.set_ctl_vd_hidden(vid="0", state="on"), True),
        (lambda r, e: r.set_ctl_vd_hidden(vid="0", state="on"), False),
        (lambda r, e: r.set_ctl_vd_hidden(vid="0", state="off"), True),
        (lambda r, e: r.set_ctl_vd_hidden(vid="0", state="off"), True)]),
    "sorbctl schedule switch refuses what is already so": ("sorbctl", False, [
        (lambda r, e: r.set_ccheck_switch("off"), False),
        (lambda r, e: r.set_ccheck_switch("on"), True),
        (lambda r, e: r.set_ccheck_switch("on"), False),
        (lambda r, e: r.set_ccheck_switch("off"), True),
        (lambda r, e: r.query_ctl_ccheck_info()["CC Operation Mode"], "off")]),
    "slow drive thresholds are checked and apply after a reboot": ("sorbctl", False, [
        (lambda r, e: r.set_slowdrive("raid", l1="300", l2="900"), False),      # below 340 ms
        (lambda r, e: r.set_slowdrive("rawdrive", l2="800"), False),            # below 810 ms
        (lambda r, e: r.set_slowdrive("raid", susize="512", l1="400"), False),  # 410 ms at 512 KB
        (lambda r, e: r.set_slowdrive("raid", susize="512", l1="420"), True),
        (lambda r, e: r.get_slowdrive_status()["next_config"]["Raid Threshold"]["L1"], "420ms"),
        (lambda r, e: r.get_slowdrive_status()["curr_config"]["Raid Threshold"]["L1"], "340ms")]),
    "auto rebuild off leaves the spare alone": ("storcli64", True, [
        (lambda r, e: r.set_pd_hotspare_drive(e, "3", "add"), True),
        (lambda r, e: r.set_ctl_auto_rebuild("off"), True),
        (lambda r, e: r.backend.fail_drive(e, "0"), None),
        (lambda r, e: r.get_one_physical_drive_info(eid=e, sid="3")["status"], "hotspare"),
        (lambda r, e: r._get_virtual_drive_list()[0]["status"], "Dgrd")]),
    "values the tool cannot read are refused": ("storcli64", False, [
        (lambda r, e: r.set_pd_insert(eid=e, sid="3", dg="zero", arr="0", row="0"),
         "failure: invalid value: invalid literal for int() with base 10: 'zero'"),
        (lambda r, e: r._get_virtual_drive_list(), [])]),
    "a sorbctl kick period that is no number is refused": ("sorbctl", False, [
        (lambda r, e: r.set_kickdrive(period="ten"), False),
        (lambda r, e: r._get_virtual_drive_list(), [])]),
}


@pytest.mark.parametrize("what", sorted(SEQUENCES))
def test_step_by_step(what):
    tool, with_vd, steps = SEQUENCES[what]
    raid, host, e = make(tool)
    if with_vd:
        assert create(raid, e, "1", 0, 1) is True
    for number, (call, expected) in enumerate(steps):
        assert call(raid, e) == expected, "step %d" % number


def test_controller_clock_is_set_and_reads_back_moving_on():
    raid, host, e = make("storcli64")
    assert raid.set_controller_time(ctl_time="2030-01-01 00:00") is False
    assert raid.set_controller_time(ctl_time="20300101 08:00:00") is True
    host.advance(65)
    assert raid.get_ctl_current_time() == "2030/01/01 08:01:06"


@pytest.mark.parametrize("tool, error, message", [
    ("storcli64", CommandFailed, "does not exist"), ("sorbctl", CommandFailed, "does not exist"),
    ("arcconf", OrvexException, r"eid: \[0\], sid: \[42\]")])
def test_queries_of_a_missing_drive_fail_like_the_tool(tool, error, message):
    raid, host, e = make(tool)
    with pytest.raises(error, match=message):
        raid.get_one_physical_drive_info(eid=e, sid="42")


@pytest.mark.parametrize("tool", TOOLS)
def test_every_name_that_is_no_wrapper_of_the_tool_is_unknown(tool):
    host = SimulatedHost(tool)
    names = set().union(*(SimulatedHost(t).wrapper_names for t in TOOLS), dir(host.model),
                        dir(host._view_class), ["no_such_wrapper"])
    for name in sorted(names - set(host.wrapper_names)):
        with pytest.raises(UnknownWrapper) as error:
            host.dispatch("self", name, {})
        assert str(error.value) == "the simulated %s host has no wrapper named %r" % (tool, name)


LAB = os.path.join(os.path.dirname(__file__), "..", "..", "examples", "lab_host.yaml")


def test_a_lab_host_gives_raid_each_controller_with_its_drives():
    host = SimulatedHost.from_file(LAB)
    with orvex_sim.use(host):
        raid = raid_module.Raid()
    assert raid.query_controller_number() == "2"
    drives = {a: [(d["eid"], d["sid"], d["interface"], d["media"], d["status"])
                  for d in raid.get_all_physical_drive_info(adapter_id=a)] for a in "01"}
    assert drives["0"][3:] == [("252", "3", "SAS", "SSD", "ugood"),
                               ("252", "4", "NVMe", "SSD", "ugood"),
                               ("252", "5", "NVMe", "SSD", "ugood")]
    assert drives["1"] == [("", "0", "SATA", "HDD", "jbod"), ("", "1", "SATA", "SSD", "jbod")]
    assert raid.create_virtual_drive(raid_level="1", drives=["252:4", "252:5"],
                                     pd_per_array="") is True
    assert raid.create_virtual_drive(raid_level="1", drives=[" :0", " :1"], pd_per_array="",
                                     adapter_id="1") is False
    hba = host.dispatch("self", "ctr_get_all_cfg_storcli64", {"adapter_id": "1"})[0]["parser"]
    assert {"VD LIST", "PD LIST", "Bus"} & set(hba) == set()
    assert hba["PCI Version"]["Device Id"] == 230 and "PCIe Link Width" not in hba["HwCfg"]
    assert [(r["EID:Slt"], r["DID"], r["DG"]) for r in hba["Physical Device Information"][
        "Drive /c1"]] == [(" :0", 10, "-"), (" :1", 11, "-")]


# (tool, version, wrapper, params, path to a value in the answer, value)
VALUE_FORMS = [
    ("storcli64", "new", "ctr_get_pd_cfg_storcli64", {"eid": "252", "sid": "4"},
     ("Drive /c0/e252/s4 - Detailed Information", "Drive /c0/e252/s4 Device attributes"),
     {"SN": "            WFK31768", "Firmware Revision": "0104    ", "NCQ setting": "N/A",
      "Write Cache": "Disabled", "Raw size": "893.750 GiB [0x6fb80000 Sectors]"}),
    ("storcli64", "old", "ctr_get_pd_cfg_storcli64", {"eid": "252", "sid": "6"},
     ("Drive /c0/e252/s6 - Detailed Information", "Drive /c0/e252/s6 Device attributes"),
     {"NCQ setting": "Enabled", "Write cache": "Disabled", "Raw size": "3.639 TB [0x1d1c00000 Sectors]"}),
    ("storcli64", "new", "ctr_get_all_cfg_storcli64", {}, ("PD LIST", 0),
     {"EID:Slt": "252:0", "DID": 10, "DG": 0}),
    ("storcli64", "new", "ctr_get_patrolread_storcli64", {}, ("Controller Properties",),
     [{"Ctrl_Prop": "PR iterations completed", "Value": "0"},
      {"Ctrl_Prop": "PR MaxConcurrentPd", "Value": 255}]),
    ("storcli64", "new", "ctr_get_cc_storcli64", {}, ("Controller Properties",),
     [{"Ctrl_Prop": "CC Execution Delay", "Value": "168 hours"}]),
    ("arcconf", "old", "ctr_get_vd_cfg_arcconf", {},
     ("logical_device_information", "logical_device_number_0"),
     {"device_0": "Present (1144627MB, SAS, HDD, Channel:0, Device:0) WFK31740"}),
    ("arcconf", "new", "ctr_get_vd_cfg_arcconf", {},
     ("logical_device_information", "logical_device_number_0"),
     {"device_1": "Present (1144627MB, SAS, HDD, Connector:0, Device:1) WFK31747"}),
]


@pytest.mark.parametrize("tool, version, wrapper, params, path, expected", VALUE_FORMS)
def test_answers_carry_the_value_forms_of_the_tool_version(tool, version, wrapper, params, path,
                                                          expected):
    host = SimulatedHost(tool, version=version)
    e = host.model.drives[0].eid
    host.dispatch("self", {"storcli64": "ctr_create_vd_storcli64", "arcconf":
                           "ctr_create_vd_arcconf"}[tool], {"raid_level": "1",
                                                            "drives": [e + ":0", e + ":1"]})
    answer = host.dispatch("self", wrapper, params)[0]["parser"]
    for step in path:
        answer = answer[step]
    if isinstance(expected, list):
        assert [row for row in answer if row in expected] == expected
    else:
        assert {k: answer[k] for k in expected} == expected


SPARE = {"storcli64": "pd_set_hotspare_drive_storcli64",
         "arcconf": "set_controller_pd_hotspare_arcconf",
         "sorbctl": "set_controller_pd_hotspare_sorbctl"}
ERROR_KEYS = {"storcli64": ("Media Error Count", "Predictive Failure Count", 3, 1),
              "arcconf": ("media_failures", "s.m.a.r.t._warnings", "3", "1"),
              "sorbctl": ("MediaErrorCount", "PredictiveFailureCount", "3", "1")}
FAULTS = {
    "media errors and a predictive failure": (
        lambda h, e: h.drive_errors(e, "3", media=3, predictive=1),
        lambda r, e, t: tuple(r.get_one_physical_drive_info(eid=e, sid="3")["raw_data"][k]
                              for k in ERROR_KEYS[t][:2]) == ERROR_KEYS[t][2:]),
    "a wrapper that fails": (
        lambda h, e: h.fail_wrapper(SPARE[h.tool], "controller busy"),
        lambda r, e, t: r.set_pd_hotspare_drive(e, "3", "add") is False
        and r.get_one_physical_drive_info(eid=e, sid="3")["status"] == "ugood"),
    "a wrapper that cannot run": (
        lambda h, e: h.raise_wrapper(SPARE[h.tool]),
        lambda r, e, t: pytest.raises(CommandFailed, r.set_pd_hotspare_drive, e, "3", "add")
        .match("%s: /opt/raid/%s: No such file or directory" % (SPARE[t], t))),
}


@pytest.mark.parametrize("tool", TOOLS)
@pytest.mark.parametrize("fault", sorted(FAULTS))
def test_faults_a_script_meets(tool, fault):
    raid, host, e = make(tool)
    inject, check = FAULTS[fault]
    inject(host, e)
    assert check(raid, e, tool)


def test_a_controller_that_disappears_is_no_longer_counted_and_fails_when_named():
    host = SimulatedHost.from_file(LAB)
    with orvex_sim.use(host):
        raid = raid_module.Raid()
    host.remove_controller(1)
    assert raid.query_controller_number() == "1"
    with pytest.raises(CommandFailed, match="ctr_get_pd_cfg_storcli64: controller 1 not found"):
        raid.get_all_physical_drive_info(adapter_id="1")


def test_every_dispatch_moves_the_clock_by_the_step():
    raid, host, e = make("storcli64", step=0)
    start = host.clock
    raid.get_ctl_current_time()
    assert host.clock == start
    raid, host, e = make("storcli64", step=2.5)
    start = host.clock
    raid.query_jbod_info()
    raid.query_jbod_info()
    assert (host.clock - start).total_seconds() == 5


def test_host_commands():
    host = SimulatedHost("sorbctl")
    clock = host.dispatch("dispatcher", "system_clock",
                          {"formatter": '"+%Y-%m-%d,%H:%M:%S"'})[0]["parser"]
    assert clock == [host.clock.strftime("%Y-%m-%d,%H:%M:%S")]
    host.files["/root/x"] = bytes([0x70, 0x00, 0x05, 0x00, 0x0a])
    assert host.dispatch("self", "hexdump", {"param": "v", "file_path": "/root/x"})[0][
        "parser"] == ["0000000 0070 0005 000a", "0000006"]
    assert host.dispatch("self", "rm", {"path": "/root/x"})[0]["parser"] == ""
    with pytest.raises(CommandFailed, match="No such file"):
        host.dispatch("self", "cat", {"file_path": "/root/x"})
    assert host.dispatch("self", "modinfo", {"modname": "sorbdrv"})[0]["parser"][
        "version"] == "1.2.0.8"


@pytest.mark.parametrize("env, tool, count", [
    ({}, "storcli64", "1"), ({"ORVEX_RAID_TOOL": "arcconf"}, "arcconf", "1"),
    ({"ORVEX_RAID_TOOL": "sorbctl"}, "sorbctl", "1"),
    ({"ORVEX_RAID_TOOL": "sorbctl", "ORVEX_RAID_HOST": LAB}, "storcli64", "2")])
def test_raid_defaults_to_a_simulated_host_of_the_named_tool(monkeypatch, env, tool, count):
    monkeypatch.setattr(orvex_sim, "_active", None)
    for name in ("ORVEX_RAID_TOOL", "ORVEX_RAID_HOST"):
        monkeypatch.delenv(name, raising=False)
    for name, value in env.items():
        monkeypatch.setenv(name, value)
    raid = raid_module.Raid()
    assert isinstance(raid.backend, SimulatedHost) and raid.backend.tool == tool
    assert raid.query_controller_number() == count
    assert raid.backend.wrappers == ["get_controller_number_" + tool]


def test_an_unknown_tool_has_no_simulated_host():
    with pytest.raises(ValueError, match="no simulated controller for tool 'megacli'"):
        SimulatedHost("megacli")


@pytest.mark.parametrize("parsed, verdict", [
    ("success", True),
    ("Command completed successfully.", True),
    ({"Status": "Success", "Description": "None"}, True),
    (["Command status: success", "0000: 70 00"], True),
    ("failure: drive 252:9 does not exist", False),
    ("Command failed: logical devices exist", False),
    ("fail", False),
    ("Unsuccessful", False),
    ("error: success not reached", False),
    ("done", False),
    ("", False),
    ([], False),
    (None, False),
])
@pytest.mark.parametrize("tool", TOOLS)
def test_action_output_is_judged_by_what_the_tool_reported(tool, parsed, verdict):
    formatter = OutputFormatter(None)
    assert formatter.parser_exec_cmd_format({"parser": parsed}, tool) is verdict
    assert formatter.parser_exec_cmd_format({"stdout": "success"}, tool) is False


STOPS = [
    ("consistency check", ("storcli64", "sorbctl"),
     lambda r, e: r.set_virtual_drive_cc("0", "start", force="force"),
     lambda r, e: r.set_virtual_drive_cc("0", "stop"),
     lambda r, e: first(r.query_virtual_drive_cc_status("0"))["Status"]),
    ("virtual drive erase", ("storcli64", "sorbctl"),
     lambda r, e: r.set_vd_erase("0", "start", mode="normal"),
     lambda r, e: r.set_vd_erase("0", "stop"),
     lambda r, e: first(r.get_vd_erase("0"))["Status"]),
    ("drive patrol read", ("sorbctl",),
     lambda r, e: r.set_pd_patrolread_oper("start", e, "3"),
     lambda r, e: r.set_pd_patrolread_oper("stop", e, "3"),
     lambda r, e: r.get_pd_patrolread_status(e, "3", adapter_id="0")["/c0/e65/s3"]["Status"]),
    ("drive erase", TOOLS,
     lambda r, e: r.start_pd_erase(eid=e, sid="3", mode="thorough"),
     lambda r, e: r.stop_pd_erase(eid=e, sid="3"),
     lambda r, e: r.get_pd_erase(eid=e, sid="3", adapter_id="0")["Status"]),
]


def first(answer):
    return answer[0] if isinstance(answer, list) else answer


@pytest.mark.parametrize("tool, what, start, stop, state", [
    (tool, what, start, stop, state) for what, tools, start, stop, state in STOPS
    for tool in tools], ids=["%s-%s" % (t, s[0]) for s in STOPS for t in s[1]])
def test_stopping_needs_a_running_task_and_ends_it(tool, what, start, stop, state):
    raid, host, e = make(tool)
    assert create(raid, e, "5", 0, 1, 2) is True
    assert stop(raid, e) is False
    idle = state(raid, e)
    assert start(raid, e) is True
    assert state(raid, e) != idle
    assert stop(raid, e) is True
    assert state(raid, e) == idle


@pytest.mark.parametrize("tool", ("storcli64", "sorbctl"))
def test_foreign_configuration_cleared_frees_the_drive(tool):
    raid, host, e = make(tool)
    assert raid.set_controller_foreign_config(oper="delete") is False
    host.add_foreign_config("3")
    assert create(raid, e, "0", 3) is False
    assert raid.set_controller_foreign_config(oper="delete") is True
    assert raid._get_virtual_drive_list() == []
    assert create(raid, e, "0", 3) is True
