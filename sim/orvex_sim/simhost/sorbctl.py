"""sorbctl wrappers: CamelCase records and sections ("Drives",
"VirtualDrives", "VirtualDriveInformation", "MemberDrives", "Groups",
"BootDrives", "DriveBasicInformation", "DriveDetailInformation") and flat
property records ("CopyBack Rate", "Patrolread Switch", "CC Rate", ...).
Actions answer "success", or "fail: <reason>"; queries of something that
does not exist answer "fail"."""
import datetime

from orvex_sim.simhost.common import ToolView, passthru_bytes
from orvex_sim.simhost.model import Refused

STATE = {"ugood": "Free", "online": "Online", "offline": "Offline", "failed": "Failed",
         "rebuild": "Rebuild", "copyback": "Copyback", "hotspare": "HotSpare", "jbod": "Jbod"}
TYPE = {"ugood": "Free", "hotspare": "HotSpare", "jbod": "Jbod"}
VD_STATE = {"optimal": "Normal", "degraded": "Degraded", "partially degraded": "Degraded",
            "offline": "Failed"}
RATES = ("low", "medium", "high")
ON_OFF = ("on", "off")
TASKS = {"bgi": "BGI", "init": "Init", "cc": "Ccheck", "vd_erase": "Sanitize",
         "expand": "Expand", "migrate": "Migrate"}


def gib(gb):
    return "%.2f TB" % (gb / 1024.0) if gb >= 1024 else "%.2f GB" % gb


class Sorbctl(ToolView):
    OK = "success"

    # -- rendering --------------------------------------------------------------------
    def _status(self, task, prefix, **extra):
        out = dict(extra)
        out[prefix + "Status"] = ("Paused" if task.paused else "Running") if task else "Not Running"
        out[prefix + "Progress"] = "%d%%" % task.percent if task else "None"
        out[prefix + "TimeLeft"] = "%d min" % ((task.seconds_left + 59) // 60) if task else "None"
        return out

    def _pd(self, d):
        return {"EnclosureId": d.eid, "SlotId": d.sid, "DeviceId": str(d.did),
                "Interface": d.interface, "MediaType": d.media,
                "Type": "Member" if d.vd is not None else TYPE.get(d.state, "Free"),
                "Status": STATE[d.state], "Capacity": gib(d.size_bytes / 1024.0 ** 3),
                "Model": d.model}

    def _vd(self, vd):
        return {"ArrayID": str(vd.array), "ID": str(vd.vid), "Status": VD_STATE[vd.state],
                "RaidLevel": "RAID%s" % vd.level, "Name": vd.name, "Capacity": gib(vd.size_gb),
                "StripSize": "%dKB" % vd.strip_kb,
                "WriteCache": {"WB": "WB", "WT": "WT", "AWB": "WBE"}[vd.write],
                "ReadCache": "Ahead" if vd.read == "RA" else "No_Ahead"}

    def _or_fail(self, find, p, render):
        """A query answers "fail" for something that does not exist."""
        try:
            found = find(p)
        except Refused:
            return "fail"
        return render(found)

    def _vd_status(self, p, kind):
        return self._or_fail(self.vd, p, lambda vd: self._status(
            vd.task(kind), TASKS[kind], ID=str(vd.vid), Operation=TASKS[kind]))

    def _pd_info(self, p):
        d = self.known(self.drive, p)
        basic = dict(self._pd(d), PhysicalSlot="Slot %s" % d.sid)
        detail = {"LinkSpeed": "%sGb/s" % d.link_gbps,
                  "SpinStatus": "Spin Up" if d.phy_enabled else "Spin Down",
                  "SasAddress": d.sas_address, "DiskName": "/dev/sd%s" % "hijklmno"[
                      int(d.sid) % 8] if d.state == "jbod" else "NA",
                  "SerialNumber": d.serial, "FirmwareVersion": d.fw,
                  "LogicalSectorSize": "%dB" % d.logical_sector,
                  "PhysicalSectorSize": "%dB" % d.physical_sector,
                  "WriteCache": "Enabled" if d.write_cache == "on" else "Disabled",
                  "Led": d.leds["locate"], "ErrLed": d.leds["err"],
                  "Boot": d.boot, "PhyState": "enable" if d.phy_enabled else "disable",
                  "PhySpeed": d.phy_speed, "MediaErrorCount": str(d.media_errors),
                  "PredictiveFailureCount": str(d.predictive)}
        detail.update(self._status(d.task("rebuild"), "Rebuild"))
        copy = d.task("copyback") or (getattr(d, "copyback_target", None) and
                                      d.copyback_target.task("copyback"))
        detail.update(self._status(copy, "Copyback"))
        return {"DriveBasicInformation": basic, "DriveDetailInformation": detail}

    def _vd_info(self, p):
        vd = self.known(self.vd, p)
        info = self._vd(vd)
        init = vd.task("init")
        info.update({"OsDriveName": "" if vd.hidden else vd.os_name, "WWN": vd.wwn,
                     "Operation": ", ".join(TASKS[k] for k in sorted(vd.tasks)) or "None"})
        info.update(self._status(init, "Init"))
        if not init:
            info["InitStatus"] = "Completed" if vd.initialised else "Not Running"
        policy = {"PdCache": vd.pdcache, "Boot": vd.boot,
                  "BgiSwitch": "on" if vd.autobgi else "off", "MemberNumber": str(len(vd.drives))}
        return {"VirtualDriveInformation": info, "VirtualDrivePolicyInformation": policy}

    def _create(self, p):
        init = p.get("init")
        if init not in (None, "", "front", "background"):
            raise Refused("init must be front or background")
        spans = p.get("pd_per_array") and len(p.get("drives") or []) // int(p["pd_per_array"])
        self.m.create_vd(p.get("raid_level"), p.get("drives"), p.get("size"),
                         p.get("strip_size"), p.get("name"), spans,
                         init="full" if init == "front" else None)

    def _spare(self, p):
        d = self.drive(p)
        if self.choice(p, "oper", ("hotspare", "free")) == "free":
            return self.m.release_spare(d)
        vd = p.get("vd", p.get("ar_id"))
        self.m.make_spare(d, None if vd in (None, "") else self.m.vd(vd).array)

    def _patrol_options(self, p):
        """The patrol read options a start or a setting names."""
        options = {"pr_%s" % name: self.choice(p, key, ON_OFF) for key, name in (
            ("inc_ssd_state", "ssd"), ("uncfg_areas_state", "uncfg")) if p.get(key)}
        if p.get("prrate"):
            options["pr_rate"] = self.choice(p, "prrate", RATES)
        if p.get("mode"):
            options["pr_mode"] = self.choice(p, "mode", ("auto", "manual"))
        days = p.get("period_time") or p.get("period")
        if days and not str(days).isdigit():
            raise Refused("period must be a number of days")
        self.m.set_patrol(int(days) * 24 if days else None, p.get("pd_count") or None,
                          p.get("start_time") or None, **options)

    def _patrol_start(self, p):
        if self.m.pr_running:
            raise Refused("patrolread is already running")
        self._patrol_options(p)
        if self.m.pr_mode == "disable":
            self.m.configure(pr_mode="auto")
        self.m.start_patrol()

    def _patrol_drive(self, p, oper):
        if oper == "start" and p.get("prrate"):
            self.m.configure(pr_rate=self.choice(p, "prrate", RATES))
        self.m.patrol_drive(self.drive(p), oper)

    def _cc_set(self, p):
        days = p.get("period_time") or p.get("delay")
        switches = {}
        if p.get("ccrate"):
            switches["cc_rate"] = self.choice(p, "ccrate", RATES)
        if "state" in p:
            switches["cc_repair"] = "enable" if self.choice(p, "state", ON_OFF) == "on" \
                else "disable"
        if not days and not switches:
            raise Refused("nothing to set")
        if days and not str(days).isdigit():
            raise Refused("period must be a number of days")
        self.m.set_cc_schedule(delay_hours=int(days) * 24 if days else None, **switches)

    def _learn(self, p):
        try:
            start = datetime.datetime.strptime(str(p.get("starttime")), "%Y-%m-%d,%H:%M:%S")
            self.m.learn(start, p.get("cycle", "30"))
        except (ValueError, Refused):
            return "fail"

    def _slowdrive(self, p):
        kind = self.choice(p, "type", ("raid", "rawdrive"))
        self.m.set_slow_thresholds(
            kind, p.get("default") == "default", p.get("sw") and self.choice(p, "sw", ON_OFF),
            p.get("media"), p.get("ratio"), p.get("susize"), p.get("l1"), p.get("l2"),
            p.get("l3"))

    def _log(self, p):
        lines = ["[%s] %s" % (when.strftime("%Y-%m-%d %H:%M:%S"), text)
                 for when, text in self.m.events] or ["no events"]
        half = len(lines) // 2
        self.host.files["/root/raidlog//log-flash.txt"] = "\n".join(lines[:half] or
                                                                    ["flash log empty"])
        self.host.files["/root/raidlog//log-ram.txt"] = "\n".join(lines[half:])
        return "success: log saved to /root/raidlog//log-flash.txt /root/raidlog//log-ram.txt"

    def _passthru(self, p):
        d = self.drive(p)
        if p.get("data_transfer") == "set":
            return
        if not p.get("file_path"):
            raise Refused("file_path is required for a data transfer")
        self.host.files[str(p["file_path"])] = passthru_bytes(d, p.get("command_passthru", ""))

    # -- wrapper name -> handler(view, params) ------------------------------------------------
    WRAPPERS = {
        # discovery and configuration
        "get_controller_controllerid_sorbctl": lambda v, p: {"Controllers": [
            {"ID": str(c.index), "Name": c.card.get("model", "SORB 7460-8i"),
             "SN": "7460A220300%d" % (c.index + 1), "Status": "Normal"}
            for c in v.host.controllers]},
        "get_controller_number_sorbctl": lambda v, p: str(len(v.host.controllers)),
        "get_controller_config_sorbctl": lambda v, p: {
            "CopyBack Rate": v.m.copyback_rate, "Rebuild Rate": v.m.rebuild_rate,
            "Patrolread Rate": v.m.pr_rate, "CC Rate": v.m.cc_rate,
            "Jbod": "rawdrive" if v.m.jbod else "off", "Ehsp Switch": v.m.eghs["eug"],
            "Copyback Switch": v.m.copyback["copyback"], "Precopy Switch": v.m.precopy},
        "get_controller_status_sorbctl": lambda v, p: {
            "SasAddress": "0x5c0f0c0b00a3120%d" % v.m.index, "FwVersion": v.m.fw_version,
            "DriverVersion": "1.2.0.8", "VendorId": "0x1f3f", "PsocPn": "PSOC-7460-01",
            "PsocFwVersion": "2.0.7", "DeviceId": "0x7460", "SubVendorId": "0x1f3f",
            "SubDeviceId": "0x0101", "DomainNumber": "0000",
            "BusNumber": "%02x" % (0x5e + v.m.index * 0x20), "DeviceNumber": "00",
            "FunctionNumber": "0", "SerialNumber": "7460A220300%d" % (v.m.index + 1),
            "PcieWidth": "x8", "PcieSpeed": "16GT/s", "Temperature": "54",
            "PdNumber": str(len(v.m.drives)), "VdNumber": str(len(v.m.vds)),
            "DdrSize": "2.000 GB"},
        "get_controller_info_sorbctl": lambda v, p: {
            "BpSupport": "Yes", "CtrlMod": "HBA" if v.m.hba else "RAID", "DriveSupport": "SCSI",
            "EP_PCIeSpeed": "16GT/s", "EP_PCIeWidth": "x8", "MaxHDDNumberRaid0": "32",
            "MaxHDDNumberRaid1": "2", "MaxHDDNumberRaid5": "32", "MaxHDDNumberRaid6": "32",
            "MaxHDDNumberRaid10": "16", "MaxHDDStripeSize": "16384KB", "MaxSuSize": "1024KB",
            "MaxVdNumber": "64"},
        "get_controller_pdlist_sorbctl": lambda v, p: {"Drives": [v._pd(d) for d in
                                                                  v.m.drives]},
        "get_controller_pd_info_sorbctl": _pd_info,
        # controller settings
        "get_controller_jbod_sorbctl": lambda v, p: {"Jbod": "rawdrive" if v.m.jbod else "off"},
        "set_controller_jbod_sorbctl": lambda v, p: v.m.set_jbod(
            v.choice(p, "jbod", ("rawdrive", "off")) == "rawdrive"),
        "get_controller_ehsp_sorbctl": lambda v, p: {"Ehsp Switch": v.m.eghs["eug"]},
        "set_controller_ehsp_sorbctl": lambda v, p: v.m.configure(
            eghs=dict(v.m.eghs, eug=v.choice(p, "state", ON_OFF))),
        "get_controller_bootwithpinnedcache_sorbctl": lambda v, p: {
            "Boot With Pinned Cache Switch": v.m.pinned_cache_boot},
        "set_controller_bootwithpinnedcache_sorbctl": lambda v, p: v.m.configure(
            pinned_cache_boot=v.choice(p, "state", ON_OFF)),
        "clear_controller_fncfg_sorbctl": lambda v, p: v.m.resolve_foreign(False),
        "import_controller_fncfg_sorbctl": lambda v, p: v.m.resolve_foreign(True),
        # copyback and precopy
        "get_controller_copyback_sorbctl": lambda v, p: {
            "Copyback Switch": v.m.copyback["copyback"]},
        "set_controller_copyback_sorbctl": lambda v, p: v.m.configure(
            copyback=dict(v.m.copyback, copyback=v.choice(p, "state", ON_OFF))),
        "set_controller_bgrate_copyback_sorbctl": lambda v, p: v.m.configure(
            copyback_rate=v.choice(p, "copybackrate", RATES)),
        "get_controller_precopy_sorbctl": lambda v, p: {
            "Precopy Switch": v.m.precopy.capitalize(), "Precopy Threshold": "SMART"},
        "set_controller_precopy_sorbctl": lambda v, p: v.m.configure(
            precopy=v.choice(p, "state", ON_OFF)),
        # drives
        "set_controller_pd_state_sorbctl": lambda v, p: v.m.set_drive_state(
            v.drive(p), v.choice(p, "state", {"online": "online", "offline": "offline",
                                              "free": "ugood", "jbod": "jbod"}), force=True),
        "set_controller_phy_func_sorbctl": lambda v, p: v.m.set_phy(v.drive(p), v.choice(
            p, "oper", {"enable": True, "disable": False, "reset": None})),
        "set_controller_phy_speed_sorbctl": lambda v, p: v.m.set_drive(v.drive(p), phy_speed=str(
            v.need(p, "speed")).upper().rstrip("GB/S").rstrip("G")),
        "set_controller_pd_led_sorbctl": lambda v, p: v.m.set_drive(v.drive(p), leds={
            v.choice(p, "led_type", ("err", "locate")) if p.get("led_type") else "locate":
            v.choice(p, "state", ON_OFF)}),
        "set_controller_pd_hotspare_sorbctl": _spare,
        "set_controller_pd_boot_sorbctl": lambda v, p: v.m.set_boot(
            v.drive(p), v.choice(p, "state", ON_OFF)),
        "set_controller_pdcache_sorbctl": lambda v, p: v.m.set_drive(
            v.drive(p), write_cache=v.choice(p, "state", ON_OFF)),
        "start_controller_pd_sanitize_sorbctl": lambda v, p: v.m.drive_task(
            v.drive(p), "sanitize", mode=v.choice(p, "mode", (
                "cryptoerase", "overwrite", "blockerase"))),
        "get_controller_pd_sanitize_sorbctl": lambda v, p: v._or_fail(
            v.drive, p, lambda d: v._status(d.task("sanitize"), "Sanitize")),
        "start_controller_pd_erase_sorbctl": lambda v, p: v.m.drive_task(
            v.drive(p), "erase", mode=p.get("mode")),
        "stop_controller_pd_erase_sorbctl": lambda v, p: v.m.drive_task(v.drive(p), "erase",
                                                                        "stop"),
        "get_controller_pd_erase_sorbctl": lambda v, p: v._or_fail(
            v.drive, p, lambda d: v._status(d.task("erase"), "Erase")),
        # virtual drives
        "get_controller_vdlist_sorbctl": lambda v, p: {"VirtualDrives": [
            v._vd(vd) for vd in v.m.ordered_vds()]},
        "get_controller_vd_info_sorbctl": _vd_info,
        "get_controller_vd_pdarray_sorbctl": lambda v, p: v._or_fail(v.vd, p, lambda vd: {
            "MemberDrives": [{"Enc": d.eid, "Slot": d.sid, "DeviceId": str(d.did),
                              "Status": STATE[d.state]} for d in vd.drives]}),
        "create_controller_vd_sorbctl": _create,
        "delete_controller_vd_sorbctl": lambda v, p: v.m.delete_vd(v.vd(p).vid, force=True),
        "set_controller_vd_pdcache_sorbctl": lambda v, p: v.m.set_vd(v.vd(p), pdcache=v.choice(
            p, "state", ("on", "off", "default"))),
        "set_controller_vd_wcache_sorbctl": lambda v, p: v.m.set_vd(v.vd(p), write=v.choice(
            p, "policy", {"wt": "WT", "wb": "WB", "wbe": "AWB"})),
        "set_controller_vd_rcache_sorbctl": lambda v, p: v.m.set_vd(v.vd(p), read=v.choice(
            p, "policy", {"ahead": "RA", "no_ahead": "NoRA"})),
        "set_controller_vd_boot_sorbctl": lambda v, p: v.m.set_boot(
            v.vd(p), v.choice(p, "state", ON_OFF)),
        "get_boot_drive_sorbctl": lambda v, p: {"BootDrives": [
            {"Type": "VD", "ID": str(vd.vid), "Enc": "NA", "Slot": "NA", "ActSlot": "NA"}
            for vd in v.m.ordered_vds() if vd.boot == "on"] + [
            {"Type": "PD", "ID": str(d.did), "Enc": d.eid, "Slot": d.sid, "ActSlot": d.sid}
            for d in v.m.drives if d.boot == "on"]},
        "start_controller_vd_ccheck_sorbctl": lambda v, p: v.m.vd_task(v.vd(p), "cc",
                                                                       force=True),
        "stop_controller_vd_ccheck_sorbctl": lambda v, p: v.m.vd_task(v.vd(p), "cc", "stop"),
        "get_controller_vd_ccheck_sorbctl": lambda v, p: v._vd_status(p, "cc"),
        "get_controller_bgtask_sorbctl": lambda v, p: {"Groups": [
            {"Name": TASKS[kind], "ID": str(vd.vid), "Progress": "%d%%" % task.percent,
             "Status": "Paused" if task.paused else "Running",
             "TimeLeft": "%d min" % ((task.seconds_left + 59) // 60)}
            for vd in v.m.ordered_vds() for kind, task in vd.tasks.items()]},
        "start_controller_vd_sanitize_sorbctl": lambda v, p: v.m.vd_task(
            v.vd(p), "vd_erase", mode=p.get("mode")),
        "stop_controller_vd_sanitize_sorbctl": lambda v, p: v.m.vd_task(v.vd(p), "vd_erase",
                                                                        "stop"),
        "get_controller_vd_sanitize_sorbctl": lambda v, p: v._vd_status(p, "vd_erase"),
        "set_controller_vd_expand_sorbctl": lambda v, p: v.m.grow_vd(
            v.vd(p), v.vd(p).size_gb + v.size_gb(p)),
        "add_controller_vd_pd_sorbctl": lambda v, p: v.m.add_vd_drives(v.vd(p), p.get("drives")),
        "get_controller_vd_expand_sorbctl": lambda v, p: v._vd_status(p, "expand"),
        "migrate_controller_vd_sorbctl": lambda v, p: v.m.migrate_vd(v.vd(p),
                                                                     v.need(p, "raid_level")),
        "get_controller_vd_migrate_sorbctl": lambda v, p: v._vd_status(p, "migrate"),
        "get_controller_vd_smartinfo_sorbctl": lambda v, p: v._or_fail(v.vd, p, lambda vd: {
            "%s:%s" % (d.eid, d.sid): {"SmartStatus": "FAILED" if d.predictive else "PASSED",
                                       "Temperature": "31 C"} for d in vd.drives}),
        # patrol read
        "get_controller_patrolread_sorbctl": lambda v, p: {
            "Patrolread Switch": "off" if v.m.pr_mode == "disable" else "on",
            "Patrolread Mode": v.m.pr_mode,
            "Patrolread Period": "%d hours" % v.m.pr_delay_hours,
            "Patrolread Parallel Drives": str(v.m.pr_pd_count),
            "Patrolread Finished Drives": str(v.m.pr_iterations),
            "Patrolread Status": ("Paused" if v.m.pr_paused else "Running")
            if v.m.pr_running else "Stopped", "Patrolread Rate": v.m.pr_rate},
        "start_controller_patrolread_sorbctl": _patrol_start,
        "stop_controller_patrolread_sorbctl": lambda v, p: v.m.stop_patrol() or v.m.configure(
            pr_mode="disable"),
        "set_controller_patrolread_sorbctl": _patrol_options,
        "set_controller_bgrate_patrolread_sorbctl": lambda v, p: v.m.configure(
            pr_rate=v.choice(p, "prrate", RATES)),
        "get_controller_pd_patrolread_sorbctl": lambda v, p: v._or_fail(v.drive, p, lambda d: {
            "Status": ("pause" if d.task("patrol").paused else "run") if d.task("patrol")
            else "stop", "Progress": str(d.task("patrol").percent) if d.task("patrol") else "0",
            "EstimatedTimeLeft": "%d min" % ((d.task("patrol").seconds_left + 59) // 60)
            if d.task("patrol") else "0 min"}),
        "start_controller_pd_patrolread_sorbctl": lambda v, p: v._patrol_drive(p, "start"),
        "stop_controller_pd_patrolread_sorbctl": lambda v, p: v._patrol_drive(p, "stop"),
        # consistency check schedule
        "get_controller_ccheck_sorbctl": lambda v, p: {
            "CC Mode": "off" if v.m.cc_mode == "off" else "on",
            "CC Period": "%d day" % (v.m.cc_delay_hours // 24),
            "CC Next Start Time": v.m.cc_start or "None",
            "CC State": "Running" if any(vd.task("cc") for vd in v.m.vds.values())
            else "Stopped", "CC Iterations": str(v.m.cc_iterations),
            "CC Completed VDs": str(v.m.cc_completed),
            "CC Excluded VDs": ",".join(str(x) for x in v.m.cc_excluded) or "None",
            "CC Rate": v.m.cc_rate, "CC Repair": "on" if v.m.cc_repair == "enable" else "off"},
        "set_controller_ccheck_sorbctl": _cc_set,
        "start_controller_ccheck_sorbctl": lambda v, p: v.m.switch_cc_schedule(True),
        "stop_controller_ccheck_sorbctl": lambda v, p: v.m.switch_cc_schedule(False),
        # supercapacitor
        "get_controller_supercap_sorbctl": lambda v, p: {
            "Status": v.m.cap_status, "Pack Missing": "Yes" if v.m.cap_pack_missing else "No",
            "Device Name": "SCAP-7460", "Model": "SC460",
            "Temperature": "%d C" % v.m.cap_temperature, "SN": "SC4600012",
            "Supercap SN": "CAP0012", "Module Version": "1.0",
            "Supercap Date of Manufacture": "2022-03-01", "Date of Manufacture": "2022-03-01",
            "PCB Version": "A", "Design Capacity": "30 F", "Manufacture Name": "SORB"},
        "set_supercap_self_learn_sorbctl": _learn,
        "get_supercap_self_learn_sorbctl": lambda v, p: "fail" if v.m.cap_pack_missing else {
            "Present": "Yes", "Last Learn Status": "OK" if v.m.learn_last else "None",
            "Last Learn Time": v.m.learn_last.strftime("%Y-%m-%d %H:%M:%S")
            if v.m.learn_last else "None", "Learn Cycle": "%dday" % v.m.learn_cycle_days,
            "Next Learn Time": v.m.learn_next.strftime("%Y-%m-%d %H:%M:%S")},
        # kick drive and slow drive
        "get_kickdrive_status_sorbctl": lambda v, p: {
            "ResetTime": "%d day" % v.m.kick_period, "TotalAllowedKicks": str(v.m.kick_sum),
            "TotalKicked": str(v.m.kicked), "ResetRemainingTime": "%d day" % v.m.kick_period},
        "set_kickdrive_sorbctl": lambda v, p: v.m.set_kick(p.get("period", v.m.kick_period),
                                                           p.get("sum", v.m.kick_sum)),
        "get_slowdrive_status_sorbctl": lambda v, p: {
            "Switch": {"Raid": v.m.slow_switch["raid"], "RawDrive": v.m.slow_switch["rawdrive"]},
            "CurrConfig": v.m.slow_current, "NextConfig": v.m.slow_next},
        "set_slowdrive_sorbctl": _slowdrive,
        # PHYs
        "get_ctl_phyinfo_sorbctl": lambda v, p: [
            {"PhyId": str(n), "InvalidDwordCount": "0", "DisparityErrorCount": "0",
             "LossDwordSyncCount": "1" if n == 3 else "0", "PhyResetProblemCount": "0"}
            for n in range(8)],
        "get_eye_diagram_sorbctl": lambda v, p: {
            "PhyId": str(p.get("sid")), "EyeHeight": "%d mV" % (118 + int(p["sid"])),
            "EyeWidth": "0.62 UI", "Margin": "Pass"} if str(p.get("sid")).isdigit()
        and int(p["sid"]) < 8 else "fail",
        # firmware, logs, pass-through
        "update_controller_fw_sorbctl": lambda v, p: v.m.flash(v.need(p, "fw_file"),
                                                               activate=False),
        "active_controller_fw_sorbctl": lambda v, p: v.m.activate_fw(
            v.choice(p, "active_type", ("hot", "cold"))),
        "update_controller_pd_fw_sorbctl": lambda v, p: v.m.flash(v.need(p, "fw_file"),
                                                                  v.drive(p)),
        "get_controller_log_sorbctl": _log,
        "send_controller_pd_passthru_sorbctl": _passthru,
    }
