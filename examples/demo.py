"""A test script run against the simulated host, once per RAID tool.

Runs with `./dev demo` (PYTHONPATH=sim).  For storcli64, arcconf and sorbctl
in turn: list the controller and its drives, build a RAID 1 and a RAID 5,
set cache and I/O policies, run a consistency check and a patrol read and
watch them, make a hot spare, fail a member and watch the rebuild, delete
the virtual drives.  Functions a tool lacks show as that tool's refusal;
a request the controller refuses shows as False.  Then a lab host from
`lab_host.yaml` (a RAID card and an HBA in IT mode): its two controllers and
their drives, a mirror of NVMe drives, and the faults a script meets.  Last,
the lab host on each tool through the inventory: the same tables of
controllers, drives, virtual drives and tasks whatever the tool.
"""
import os
import sys

import orvex_sim
from orvex.api.hostos.raid.inventory import Inventory, format_tables
from orvex.api.hostos.raid.raid import Raid
from orvex.exception.orvex_exception import OrvexException
from orvex_sim.simhost import CommandFailed, SimulatedHost

import demo_replay

TOOLS = ("storcli64", "arcconf", "sorbctl")


class Log:
    """Prints steps the way a test log reads: host clock, tool, text."""

    def __init__(self, host):
        self.host = host
        self.checks = 0
        self.failures = 0

    def __call__(self, text=""):
        print("%s [%-9s] %s" % (self.host.clock.strftime("%H:%M:%S"), self.host.tool, text))

    def step(self, title):
        print()
        self("== " + title)

    def expect(self, what, result, wanted=True):
        self.checks += 1
        ok = result == wanted
        self.failures += not ok
        self("  %-58s -> %-6r %s" % (what, result, "PASS" if ok else "FAIL (wanted %r)" % wanted))
        return result

    def attempt(self, what, call):
        """Runs an operation the tool may lack and shows its refusal."""
        try:
            result = call()
        except OrvexException as refusal:
            self("  %-58s -> refused: %s" % (what, refusal))
            return None
        self("  %-58s -> %r" % (what, result))
        return result


def table(log, rows, columns):
    widths = [max(len(title), *(len(str(r.get(key, ""))) for r in rows)) for title, key in columns]
    log("  " + "  ".join(t.ljust(w) for (t, _), w in zip(columns, widths)))
    for r in rows:
        log("  " + "  ".join(str(r.get(k, "")).ljust(w) for (_, k), w in zip(columns, widths)))


def pct(value):
    """Progress as the tools print it (12, "12%", "-", "None") -> "12%" or "-"."""
    text = str(value if value not in (None, "") else "-").strip()
    return text + "%" if text.isdigit() else ("-" if text in ("None", "") else text)


def first(answer):
    return answer[0] if isinstance(answer, list) else answer


def run(tool):
    host = SimulatedHost(tool)
    orvex_sim.use(host)
    raid = Raid()
    log = Log(host)
    e = host.model.drives[0].eid
    drives = lambda *slots: ["%s:%d" % (e, s) for s in slots]  # noqa: E731

    log.step("controller and drives")
    log.attempt("controller list", raid.get_all_controllers)
    status = raid.get_controller_status_raid()
    log("  controllers: %s, firmware %s, temperature %s, cache memory %s" % (
        raid.query_controller_number(), status["firmware_version"], status["temperature"],
        status["ddr_size"]))
    table(log, raid.get_all_physical_drive_info(),
          [("EID", "eid"), ("SLT", "sid"), ("INTF", "interface"), ("MEDIA", "media"),
           ("SIZE", "size"), ("LINK", "link_speed"), ("STATUS", "status"), ("MODEL", "model")])

    log.step("create a RAID 1 (SSD 4-5) and a RAID 5 (SAS HDD 0-2)")
    log.expect("create RAID 1 on %s" % drives(4, 5), raid.create_virtual_drive(
        raid_level="1", drives=drives(4, 5), name="mirror", pd_per_array=""))
    log.expect("create RAID 5 on %s" % drives(0, 1, 2), raid.create_virtual_drive(
        raid_level="5", drives=drives(0, 1, 2), name="parity", strip_size="256",
        pd_per_array=""))
    log.expect("create RAID 1 of the single drive %s" % drives(3), raid.create_virtual_drive(
        raid_level="1", drives=drives(3), pd_per_array=""), False)
    log.expect("create RAID 1 mixing HDD %s and SSD" % drives(3), raid.create_virtual_drive(
        raid_level="1", drives=drives(3, 5), pd_per_array=""), False)
    table(log, raid._get_virtual_drive_list(),
          [("VD", "vd"), ("LEVEL", "raid_level"), ("STATUS", "status"), ("SIZE", "size"),
           ("WRITE", "write_cache"), ("READ", "read_cache")])
    for vid in ("0", "1"):
        log("  VD %s members: %s" % (vid, ", ".join(
            "%(eid)s:%(sid)s" % m for m in raid.get_virtual_drive_member_drives(vid=vid))))

    log.step("cache and I/O policies of VD 0")
    log.expect("write cache write-through", raid.set_virtual_drive_wrcache(vid="0", wrcache="wt"))
    log.expect("no read-ahead", raid.set_virtual_drive_rdcache("0", "nora"))
    log.attempt("I/O policy cached", lambda: raid.set_vd_iopolicy_status(vid="0",
                                                                          iopolicy="cached"))
    log.attempt("I/O policy read back", lambda: raid.get_vd_iopolicy_status(vid="0"))
    details = raid.get_one_virtual_drive_info(vid="0")
    log("  VD 0 now: write cache %r, read cache %r" % (details["write_cache"],
                                                      details["read_cache"]))
    log.expect("write cache of a missing VD 7", raid.set_virtual_drive_wrcache(
        vid="7", wrcache="wb"), False)

    log.step("background initialisation of VD 1, then a consistency check")
    for _ in range(3):
        bgi = first(raid.get_virtual_drive_bgi_state(vid="1"))
        log("  VD 1 background init: %s %s (left %s)" % (bgi["Status"], pct(bgi["Progress"]),
                                                         bgi["Estimated_time_left"]))
        host.advance(50)
    if log.attempt("start consistency check on VD 1",
                   lambda: raid.set_virtual_drive_cc("1", "start")):
        for _ in range(4):
            cc = first(raid.query_virtual_drive_cc_status("1"))
            log("  VD 1 consistency check: %s %s (left %s)" % (cc["Status"], pct(cc["Progress"]),
                                                              cc["Estimated_time_left"]))
            host.advance(30)
    log.attempt("consistency check schedule on", lambda: raid.set_ccheck_switch("on"))
    info = raid.query_ctl_ccheck_info()
    log("  schedule: mode %r, next start %r" % (info["CC Operation Mode"],
                                                info["CC Next Starttime"]))

    log.step("patrol read")
    if log.attempt("start patrol read", lambda: raid.set_patrolread_oper("start")):
        for _ in range(3):
            pr = raid.get_ctl_patrolread_status()
            drive = raid.get_pd_patrolread_status(e, "0", adapter_id="0")
            state = list(drive.values())[0]
            log("  patrol read %s; drive %s:0 %s %s" % (pr["run_status"], e, state["Status"],
                                                        pct(state["Progress"])))
            host.advance(40)
        log.expect("stop patrol read", raid.set_patrolread_oper("stop"))

    log.step("hot spare, drive failure and rebuild")
    log.expect("hot spare %s" % drives(3), raid.set_pd_hotspare_drive(e, "3", "add"))
    log.expect("hot spare on missing drive %s:42" % e, raid.set_pd_hotspare_drive(e, "42", "add"),
               False)
    log("  pulling member %s:1 of VD 1 ..." % e)
    host.fail_drive(e, "1")
    log("  VD 1 %s; drive %s:1 %s; drive %s:3 %s" % (
        raid._get_virtual_drive_list()[1]["status"], e,
        raid.get_one_physical_drive_info(eid=e, sid="1")["status"], e,
        raid.get_one_physical_drive_info(eid=e, sid="3")["status"]))
    for _ in range(4):
        rb = raid.get_pd_rebuild_status(eid=e, sid="3")
        log("  rebuild on %s:3: %s %s (left %s)" % (
            e, rb["status"] or "no rebuild task", pct(rb["progress"]),
            rb["estimated_time_left"] or "-"))
        host.advance(30)
    log("  VD 1 %s, members %s" % (raid._get_virtual_drive_list()[1]["status"], ", ".join(
        "%(eid)s:%(sid)s" % m for m in raid.get_virtual_drive_member_drives(vid="1"))))
    log.attempt("rebuild control on %s:3" % e,
                lambda: raid.set_disk_rebuild(eid=e, sid="3", oper="stop"))

    log.step("clean up")
    log.expect("delete VD 1", raid.delete_virtual_drive(vid="1"))
    log.expect("delete VD 0", raid.delete_virtual_drive(vid="0"))
    log.expect("delete VD 0 again", raid.delete_virtual_drive(vid="0"), False)
    log.attempt("controller work mode 3", lambda: raid.set_ctl_mode("3"))
    log.attempt("kick-drive policy", lambda: raid.get_kickdrive_status())
    log("  virtual drives left: %d" % len(raid._get_virtual_drive_list()))
    return log


def run_lab(path=os.path.join(os.path.dirname(os.path.abspath(__file__)), "lab_host.yaml")):
    host = SimulatedHost.from_file(path)
    orvex_sim.use(host)
    raid = Raid()
    log = Log(host)

    log.step("a lab host: %s" % os.path.basename(path))
    log.expect("controllers", raid.query_controller_number(), "2")
    for adapter in ("0", "1"):
        log("  adapter %s (%s):" % (adapter, "HBA in IT mode" if host.controller(adapter).hba
                                    else "RAID"))
        table(log, raid.get_all_physical_drive_info(adapter_id=adapter),
              [("EID", "eid"), ("SLT", "sid"), ("INTF", "interface"), ("MEDIA", "media"),
               ("SIZE", "size"), ("STATUS", "status"), ("SERIAL", "serial_number"),
               ("WCACHE", "write_cache")])
    log.expect("RAID 1 of the NVMe drives 252:4-5", raid.create_virtual_drive(
        raid_level="1", drives=["252:4", "252:5"], name="nvme", pd_per_array=""))
    log.expect("RAID 1 on the HBA", raid.create_virtual_drive(
        raid_level="1", drives=[" :0", " :1"], pd_per_array="", adapter_id="1"), False)
    log.attempt("drive list of the HBA (its answer has no PD LIST)",
                lambda: raid._get_physical_drive_list(adapter_id="1"))

    log.step("faults")
    host.drive_errors("252", "2", media=12, predictive=1)
    details = raid.get_one_physical_drive_info(eid="252", sid="2")["raw_data"]
    log("  drive 252:2 reports %s media errors, predictive failures %s, S.M.A.R.T. alert %s" % (
        details["Media Error Count"], details["Predictive Failure Count"],
        details["S.M.A.R.T alert flagged by drive"]))
    host.fail_wrapper("pd_set_hotspare_drive_storcli64", "controller is busy")
    log.expect("hot spare 252:3 while the tool fails", raid.set_pd_hotspare_drive(
        "252", "3", "add"), False)
    host.clear_faults()
    log.expect("hot spare 252:3 once it works again", raid.set_pd_hotspare_drive(
        "252", "3", "add"))
    host.raise_wrapper("ctr_get_all_cfg_storcli64")
    log.attempt("virtual drives while the tool cannot run", lambda: _raises(
        raid._get_virtual_drive_list))
    host.clear_faults()
    host.remove_controller(1)
    log.expect("controllers after the HBA dropped off", raid.query_controller_number(), "1")
    log.attempt("drives of the HBA that is gone", lambda: _raises(
        lambda: raid.get_all_physical_drive_info(adapter_id="1")))
    return log


def run_inventory(tool, path=os.path.join(os.path.dirname(os.path.abspath(__file__)),
                                          "lab_host.yaml")):
    """The lab host on `tool`: a mirror whose member fails onto a hot spare,
    seen through the inventory, the same table whatever the tool."""
    host = SimulatedHost.from_file(path, tool=tool)
    orvex_sim.use(host)
    raid = Raid()
    e = host.model.drives[0].eid
    raid.create_virtual_drive(raid_level="1", drives=["%s:0" % e, "%s:1" % e], pd_per_array="")
    host.model.make_spare(host.model.drive(e, "2"))
    host.fail_drive(e, "0")
    host.advance(30)
    print(format_tables(Inventory(raid)))


def _raises(call):
    try:
        call()
    except CommandFailed as error:
        return "CommandFailed: %s" % error
    return "no error"


def main():
    checks = failures = 0
    for tool in TOOLS:
        print("\n######## %s host ########" % tool)
        log = run(tool)
        checks += log.checks
        failures += log.failures
    print("\n######## lab host ########")
    log = run_lab()
    checks += log.checks
    failures += log.failures
    failures += demo_replay.show()
    for tool in TOOLS:
        print("\n######## inventory of the lab host, %s ########\n" % tool)
        run_inventory(tool)

    print("\n%d checks, %d failed" % (checks, failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
