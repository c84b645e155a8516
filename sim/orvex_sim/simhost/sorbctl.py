"""sorbctl wrappers: CamelCase records and sections ("Drives",
"VirtualDrives", "VirtualDriveInformation", "MemberDrives", "Groups",
"BootDrives", "DriveBasicInformation", "DriveDetailInformation") and flat
property records ("CopyBack Rate", "Patrolread Switch", "CC Rate", ...).
Actions answer "success", or "fail: <reason>"; queries of something that
does not exist answer "fail"."""
import datetime

from orvex_sim.simhost.common import ToolView, passthru_bytes, wrappers
from orvex_sim.simhost.model import DURATIONS, ERASE_SECONDS, NotFound, Refused, Task

STATE = {"ugood": "Free", "online": "Online", "offline": "Offline", "failed": "Failed",
         "rebuild": "Rebuild", "copyback": "Copyback", "hotspare": "HotSpare", "jbod": "Jbod"}
TYPE = {"ugood": "Free", "hotspare": "HotSpare", "jbod": "Jbod"}
VD_STATE = {"optimal": "Normal", "degraded": "Degraded", "partially degraded": "Degraded",
            "offline": "Failed"}
RATES = ("low", "medium", "high")


def gib(gb):
    return "%.2f TB" % (gb / 1024.0) if gb >= 1024 else "%.2f GB" % gb


@wrappers
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
                "Status": STATE[d.state], "Capacity": gib(d.size_gb), "Model": d.model}

    def _vd(self, vd):
        return {"ArrayID": str(vd.array), "ID": str(vd.vid), "Status": VD_STATE[vd.state],
                "RaidLevel": "RAID%s" % vd.level, "Name": vd.name, "Capacity": gib(vd.size_gb),
                "StripSize": "%dKB" % vd.strip_kb,
                "WriteCache": {"WB": "WB", "WT": "WT", "AWB": "WBE"}[vd.write],
                "ReadCache": "Ahead" if vd.read == "RA" else "No_Ahead"}

    def _known_drive(self, p):
        try:
            return self.drive(p)
        except Refused:
            return None

    def _known_vd(self, p):
        try:
            return self.vd(p)
        except Refused:
            return None

    # -- discovery and configuration ---------------------------------------------------
    def get_controller_controllerid_sorbctl(self, p):
        return {"Controllers": [{"ID": "0", "Name": "SORB 7460-8i", "SN": "7460A2203001",
                                 "Status": "Normal"}]}

    def get_controller_number_sorbctl(self, p):
        return "1"

    def get_controller_config_sorbctl(self, p):
        m = self.m
        return {"CopyBack Rate": m.copyback_rate, "Rebuild Rate": m.rebuild_rate,
                "Patrolread Rate": m.pr_rate, "CC Rate": m.cc_rate,
                "Jbod": "rawdrive" if m.jbod else "off", "Ehsp Switch": m.eghs["eug"],
                "Copyback Switch": m.copyback["copyback"], "Precopy Switch": m.precopy}

    def get_controller_status_sorbctl(self, p):
        m = self.m
        return {"SasAddress": "0x5c0f0c0b00a31200", "FwVersion": m.fw_version,
                "DriverVersion": "1.2.0.8", "VendorId": "0x1f3f", "PsocPn": "PSOC-7460-01",
                "PsocFwVersion": "2.0.7", "DeviceId": "0x7460", "SubVendorId": "0x1f3f",
                "SubDeviceId": "0x0101", "DomainNumber": "0000", "BusNumber": "5e",
                "DeviceNumber": "00", "FunctionNumber": "0", "SerialNumber": "7460A2203001",
                "PcieWidth": "x8", "PcieSpeed": "16GT/s", "Temperature": "54",
                "PdNumber": str(len(m.drives)), "VdNumber": str(len(m.vds)),
                "DdrSize": "2.000 GB"}

    def get_controller_info_sorbctl(self, p):
        return {"BpSupport": "Yes", "CtrlMod": "RAID", "DriveSupport": "SCSI",
                "EP_PCIeSpeed": "16GT/s", "EP_PCIeWidth": "x8", "MaxHDDNumberRaid0": "32",
                "MaxHDDNumberRaid1": "2", "MaxHDDNumberRaid5": "32", "MaxHDDNumberRaid6": "32",
                "MaxHDDNumberRaid10": "16", "MaxHDDStripeSize": "16384KB", "MaxSuSize": "1024KB",
                "MaxVdNumber": "64"}

    def get_controller_pdlist_sorbctl(self, p):
        return {"Drives": [self._pd(d) for d in self.m.drives]}

    def get_controller_pd_info_sorbctl(self, p):
        d = self._known_drive(p)
        if d is None:
            raise NotFound("drive %s:%s does not exist" % (p.get("eid"), p.get("sid")))
        basic = self._pd(d)
        basic["PhysicalSlot"] = "Slot %s" % d.sid
        detail = {"LinkSpeed": "%sGb/s" % d.link_gbps,
                  "SpinStatus": "Spin Up" if d.phy_enabled else "Spin Down",
                  "SasAddress": d.sas_address, "DiskName": "/dev/sd%s" % "hijklmno"[int(d.sid)]
                  if d.state == "jbod" else "NA", "SerialNumber": d.serial,
                  "FirmwareVersion": d.fw, "LogicalSectorSize": "%dB" % d.logical_sector,
                  "PhysicalSectorSize": "%dB" % d.physical_sector,
                  "WriteCache": {"on": "Enabled", "off": "Disabled", "default": "Disabled"}[
                      d.write_cache],
                  "Led": d.leds["locate"], "ErrLed": d.leds["err"],
                  "Boot": d.boot, "PhyState": "enable" if d.phy_enabled else "disable",
                  "PhySpeed": d.phy_speed}
        detail.update(self._status(d.task("rebuild"), "Rebuild"))
        copy = d.task("copyback") or (getattr(d, "copyback_target", None) and
                                      d.copyback_target.task("copyback"))
        detail.update(self._status(copy, "Copyback"))
        return {"DriveBasicInformation": basic, "DriveDetailInformation": detail}

    # -- controller settings -------------------------------------------------------------------
    def get_controller_jbod_sorbctl(self, p):
        return {"Jbod": "rawdrive" if self.m.jbod else "off"}

    def set_controller_jbod_sorbctl(self, p):
        state = self.choice(p, "jbod", ("rawdrive", "off"))
        if state == "off" and any(d.state == "jbod" for d in self.m.drives):
            raise Refused("jbod drives exist")
        self.m.jbod = state == "rawdrive"
        return self.OK

    def get_controller_ehsp_sorbctl(self, p):
        return {"Ehsp Switch": self.m.eghs["eug"]}

    def set_controller_ehsp_sorbctl(self, p):
        self.m.eghs["eug"] = self.choice(p, "state", ("on", "off"))
        return self.OK

    def get_controller_bootwithpinnedcache_sorbctl(self, p):
        return {"Boot With Pinned Cache Switch": self.m.pinned_cache_boot}

    def set_controller_bootwithpinnedcache_sorbctl(self, p):
        self.m.pinned_cache_boot = self.choice(p, "state", ("on", "off"))
        return self.OK

    def _foreign(self, importing):
        foreign = [d for d in self.m.drives if d.foreign]
        if not foreign:
            raise Refused("no foreign configuration")
        for d in foreign:
            d.foreign = False
        self.m.foreign_groups = 0
        if importing:
            self.m.create_vd("0", [d.address for d in foreign], name="imported")
        return self.OK

    def clear_controller_fncfg_sorbctl(self, p):
        return self._foreign(False)

    def import_controller_fncfg_sorbctl(self, p):
        return self._foreign(True)

    # -- copyback and precopy ------------------------------------------------------------------
    def get_controller_copyback_sorbctl(self, p):
        return {"Copyback Switch": self.m.copyback["copyback"]}

    def set_controller_copyback_sorbctl(self, p):
        self.m.copyback["copyback"] = self.choice(p, "state", ("on", "off"))
        return self.OK

    def set_controller_bgrate_copyback_sorbctl(self, p):
        self.m.copyback_rate = self.choice(p, "copybackrate", RATES)
        return self.OK

    def get_controller_precopy_sorbctl(self, p):
        return {"Precopy Switch": self.m.precopy.capitalize(), "Precopy Threshold": "SMART"}

    def set_controller_precopy_sorbctl(self, p):
        state = p.get("state")
        if state not in ("on", "off"):
            raise Refused("state must be on or off")
        self.m.precopy = state
        return self.OK

    # -- drives ------------------------------------------------------------------------------
    def set_controller_pd_state_sorbctl(self, p):
        d = self.drive(p)
        state = self.choice(p, "state", ("online", "offline", "free", "jbod"))
        if state == "online":
            if d.vd is None or d.state != "offline":
                raise Refused("drive %s is not an offline member" % d.address)
            d.state = "online"
        elif state == "offline":
            if d.vd is None or d.state != "online":
                raise Refused("drive %s is not an online member" % d.address)
            d.state = "offline"
        elif state == "free":
            if d.state not in ("jbod", "failed", "ugood"):
                raise Refused("drive %s is %s" % (d.address, STATE[d.state]))
            d.state = "ugood"
        else:
            if not self.m.jbod:
                raise Refused("controller jbod mode is off")
            if d.state != "ugood":
                raise Refused("drive %s is not free" % d.address)
            d.state = "jbod"
        return self.OK

    def set_controller_phy_func_sorbctl(self, p):
        d = self.drive(p)
        oper = self.choice(p, "oper", ("enable", "disable", "reset"))
        if oper == "disable":
            if not d.phy_enabled:
                raise Refused("phy of drive %s is already disabled" % d.address)
            d.phy_enabled = False
            if d.vd is not None and d.state in ("online", "rebuild"):
                self.m.fail_drive(d, "offline")
        elif oper == "enable":
            if d.phy_enabled:
                raise Refused("phy of drive %s is already enabled" % d.address)
            d.phy_enabled = True
            if d.vd is not None and d.state == "offline":
                self.m.start_rebuild(d)
            elif d.state == "failed":
                d.state = "ugood"
        return self.OK

    def set_controller_phy_speed_sorbctl(self, p):
        d = self.drive(p)
        speed = str(self.need(p, "speed")).upper().rstrip("GB/S").rstrip("G")
        if speed not in ("1.5", "3", "6", "12"):
            raise Refused("link speed %s is not supported" % p.get("speed"))
        if float(speed) > float(d.link_gbps):
            raise Refused("drive %s supports at most %sG" % (d.address, d.link_gbps))
        d.phy_speed = speed + "G"
        return self.OK

    def set_controller_pd_led_sorbctl(self, p):
        d = self.drive(p)
        kind = str(p.get("led_type") or "locate")
        if kind not in d.leds:
            raise Refused("led type %s is unknown (err/locate)" % kind)
        d.leds[kind] = self.choice(p, "state", ("on", "off"))
        return self.OK

    def set_controller_pd_hotspare_sorbctl(self, p):
        d = self.drive(p)
        oper = self.choice(p, "oper", ("hotspare", "free"))
        if oper == "hotspare":
            if d.state != "ugood" or d.foreign:
                raise Refused("drive %s is not free" % d.address)
            vd = p.get("vd", p.get("ar_id"))
            d.spare_for = self.m.vd(vd).array if vd not in (None, "") else None
            d.state = "hotspare"
        else:
            if d.state != "hotspare":
                raise Refused("drive %s is not a hot spare" % d.address)
            d.state, d.spare_for = "ugood", None
        return self.OK

    def set_controller_pd_boot_sorbctl(self, p):
        d = self.drive(p)
        state = self.choice(p, "state", ("on", "off"))
        if state == "on":
            if d.state != "jbod":
                raise Refused("only a jbod drive can be a boot drive")
            for other in list(self.m.drives) + list(self.m.vds.values()):
                other.boot = "off"
        d.boot = state
        return self.OK

    def set_controller_pdcache_sorbctl(self, p):
        d = self.drive(p)
        d.write_cache = self.choice(p, "state", ("on", "off"))
        return self.OK

    def start_controller_pd_sanitize_sorbctl(self, p):
        d = self.drive(p)
        mode = self.choice(p, "mode", ("cryptoerase", "overwrite", "blockerase"))
        if d.state != "ugood":
            raise Refused("drive %s is not free" % d.address)
        if mode in ("cryptoerase", "blockerase") and d.media != "SSD":
            raise Refused("drive %s does not support %s" % (d.address, mode))
        if d.task("sanitize"):
            raise Refused("sanitize already running on drive %s" % d.address)
        d.tasks["sanitize"] = Task("sanitize", DURATIONS["sanitize"])
        return self.OK

    def get_controller_pd_sanitize_sorbctl(self, p):
        d = self._known_drive(p)
        if d is None:
            return "fail"
        return self._status(d.task("sanitize"), "Sanitize")

    def start_controller_pd_erase_sorbctl(self, p):
        d = self.drive(p)
        mode = self.choice(p, "mode", tuple(ERASE_SECONDS))
        if d.state != "ugood":
            raise Refused("drive %s is not free" % d.address)
        if d.task("erase"):
            raise Refused("erase already running on drive %s" % d.address)
        d.tasks["erase"] = Task("erase", ERASE_SECONDS[mode])
        return self.OK

    def stop_controller_pd_erase_sorbctl(self, p):
        d = self.drive(p)
        if not d.task("erase"):
            raise Refused("no erase running on drive %s" % d.address)
        d.tasks.pop("erase")
        return self.OK

    def get_controller_pd_erase_sorbctl(self, p):
        d = self._known_drive(p)
        if d is None:
            return "fail"
        return self._status(d.task("erase"), "Erase")

    # -- virtual drives ----------------------------------------------------------------------
    def get_controller_vdlist_sorbctl(self, p):
        return {"VirtualDrives": [self._vd(vd) for vd in self.m.ordered_vds()]}

    def get_controller_vd_info_sorbctl(self, p):
        vd = self._known_vd(p)
        if vd is None:
            raise NotFound("virtual drive %s does not exist" % p.get("vid"))
        info = self._vd(vd)
        init = vd.task("init")
        info.update({"OsDriveName": "" if vd.hidden else vd.os_name, "WWN": vd.wwn,
                     "Operation": ", ".join(sorted(vd.tasks)) or "None"})
        info.update(self._status(init, "Init"))
        if not init:
            info["InitStatus"] = "Completed" if vd.initialised else "Not Running"
        policy = {"PdCache": vd.pdcache, "Boot": vd.boot, "BgiSwitch": "on" if vd.autobgi
                  else "off", "MemberNumber": str(len(vd.drives))}
        return {"VirtualDriveInformation": info, "VirtualDrivePolicyInformation": policy}

    def get_controller_vd_pdarray_sorbctl(self, p):
        vd = self._known_vd(p)
        if vd is None:
            return "fail"
        return {"MemberDrives": [{"Enc": d.eid, "Slot": d.sid, "DeviceId": str(d.did),
                                  "Status": STATE[d.state]} for d in vd.drives]}

    def create_controller_vd_sorbctl(self, p):
        init = p.get("init")
        if init not in (None, "", "front", "background"):
            raise Refused("init must be front or background")
        spans = None
        if p.get("pd_per_array"):
            spans = len(p.get("drives") or []) // int(p["pd_per_array"])
        self.m.create_vd(p.get("raid_level"), p.get("drives"), p.get("size"),
                         p.get("strip_size"), p.get("name"), spans,
                         init="full" if init == "front" else None)
        return self.OK

    def delete_controller_vd_sorbctl(self, p):
        self.m.delete_vd(self.vd(p).vid, force=True)
        return self.OK

    def set_controller_vd_pdcache_sorbctl(self, p):
        vd = self.vd(p)
        vd.pdcache = self.choice(p, "state", ("on", "off", "default"))
        return self.OK

    def set_controller_vd_wcache_sorbctl(self, p):
        vd = self.vd(p)
        vd.write = {"WT": "WT", "WB": "WB", "WBE": "AWB"}[
            self.choice(p, "policy", ("wt", "wb", "wbe")).upper()]
        return self.OK

    def set_controller_vd_rcache_sorbctl(self, p):
        vd = self.vd(p)
        policy = p.get("policy")
        if policy not in ("Ahead", "No_Ahead"):
            raise Refused("read cache policy %s is unknown (Ahead/No_Ahead)" % policy)
        vd.read = "RA" if policy == "Ahead" else "NoRA"
        return self.OK

    def set_controller_vd_boot_sorbctl(self, p):
        vd = self.vd(p)
        state = self.choice(p, "state", ("on", "off"))
        if state == "on":
            for other in list(self.m.drives) + list(self.m.vds.values()):
                other.boot = "off"
        vd.boot = state
        return self.OK

    def get_boot_drive_sorbctl(self, p):
        boots = [{"Type": "VD", "ID": str(vd.vid), "Enc": "NA", "Slot": "NA", "ActSlot": "NA"}
                 for vd in self.m.ordered_vds() if vd.boot == "on"]
        boots += [{"Type": "PD", "ID": str(d.did), "Enc": d.eid, "Slot": d.sid,
                   "ActSlot": d.sid} for d in self.m.drives if d.boot == "on"]
        return {"BootDrives": boots}

    def start_controller_vd_ccheck_sorbctl(self, p):
        vd = self.vd(p)
        if vd.level == "0":
            raise Refused("RAID0 has no redundancy to check")
        if vd.state != "optimal":
            raise Refused("virtual drive %d is %s" % (vd.vid, VD_STATE[vd.state]))
        if vd.task("cc"):
            raise Refused("ccheck already running on virtual drive %d" % vd.vid)
        self.m.start_vd_task(vd, "cc")
        return self.OK

    def stop_controller_vd_ccheck_sorbctl(self, p):
        vd = self.vd(p)
        if not vd.task("cc"):
            raise Refused("no ccheck running on virtual drive %d" % vd.vid)
        vd.tasks.pop("cc")
        return self.OK

    def get_controller_vd_ccheck_sorbctl(self, p):
        vd = self._known_vd(p)
        if vd is None:
            return "fail"
        return self._status(vd.task("cc"), "Ccheck", ID=str(vd.vid), Operation="Ccheck")

    def get_controller_bgtask_sorbctl(self, p):
        names = {"bgi": "BGI", "init": "Init", "cc": "Ccheck", "vd_erase": "Sanitize",
                 "expand": "Expand", "migrate": "Migrate"}
        groups = []
        for vd in self.m.ordered_vds():
            for kind, task in vd.tasks.items():
                groups.append({"Name": names[kind], "ID": str(vd.vid),
                               "Progress": "%d%%" % task.percent,
                               "Status": "Paused" if task.paused else "Running",
                               "TimeLeft": "%d min" % ((task.seconds_left + 59) // 60)})
        return {"Groups": groups}

    def start_controller_vd_sanitize_sorbctl(self, p):
        vd = self.vd(p)
        mode = self.choice(p, "mode", tuple(ERASE_SECONDS))
        if vd.task("vd_erase"):
            raise Refused("sanitize already running on virtual drive %d" % vd.vid)
        self.m.start_vd_task(vd, "vd_erase", ERASE_SECONDS[mode] * 2)
        return self.OK

    def stop_controller_vd_sanitize_sorbctl(self, p):
        vd = self.vd(p)
        if not vd.task("vd_erase"):
            raise Refused("no sanitize running on virtual drive %d" % vd.vid)
        vd.tasks.pop("vd_erase")
        return self.OK

    def get_controller_vd_sanitize_sorbctl(self, p):
        vd = self._known_vd(p)
        if vd is None:
            return "fail"
        return self._status(vd.task("vd_erase"), "Sanitize", ID=str(vd.vid), Operation="Sanitize")

    def set_controller_vd_expand_sorbctl(self, p):
        return self.grow_vd(p, "only %.0f GB left in array %d")


    def add_controller_vd_pd_sorbctl(self, p):
        return self.add_vd_drives(p, "the drives to add must be free")


    def get_controller_vd_expand_sorbctl(self, p):
        vd = self._known_vd(p)
        if vd is None:
            return "fail"
        return self._status(vd.task("expand"), "Expand", ID=str(vd.vid), Operation="Expand")

    def migrate_controller_vd_sorbctl(self, p):
        level = str(self.need(p, "raid_level")).upper().replace("RAID", "")
        return self.migrate_vd(p, level, "virtual drive %d cannot migrate to RAID%s")


    def get_controller_vd_migrate_sorbctl(self, p):
        vd = self._known_vd(p)
        if vd is None:
            return "fail"
        return self._status(vd.task("migrate"), "Migrate", ID=str(vd.vid), Operation="Migrate")

    def get_controller_vd_smartinfo_sorbctl(self, p):
        vd = self._known_vd(p)
        if vd is None:
            return "fail"
        return {"%s:%s" % (d.eid, d.sid): {"SmartStatus": "PASSED", "Temperature": "31 C"}
                for d in vd.drives}

    # -- patrol read -----------------------------------------------------------------------
    def get_controller_patrolread_sorbctl(self, p):
        m = self.m
        return {"Patrolread Switch": "off" if m.pr_mode == "disable" else "on",
                "Patrolread Mode": m.pr_mode,
                "Patrolread Period": "%d hours" % m.pr_delay_hours,
                "Patrolread Parallel Drives": str(m.pr_pd_count),
                "Patrolread Finished Drives": str(m.pr_iterations),
                "Patrolread Status": ("Paused" if m.pr_paused else "Running") if m.pr_running
                else "Stopped",
                "Patrolread Rate": m.pr_rate}

    def _pr_options(self, p):
        changes = {}
        if p.get("prrate"):
            changes["pr_rate"] = self.choice(p, "prrate", RATES)
        if p.get("pd_count"):
            if not str(p["pd_count"]).isdigit() or not 1 <= int(p["pd_count"]) <= 32:
                raise Refused("pd_count must be 1 to 32")
            changes["pr_pd_count"] = int(p["pd_count"])
        for key in ("period_time", "period"):
            if p.get(key):
                if not str(p[key]).isdigit():
                    raise Refused("%s must be a number of days" % key)
                changes["pr_delay_hours"] = int(p[key]) * 24
        if p.get("mode"):
            changes["pr_mode"] = self.choice(p, "mode", ("auto", "manual"))
        return changes

    def start_controller_patrolread_sorbctl(self, p):
        changes = self._pr_options(p)
        if self.m.pr_running:
            raise Refused("patrolread is already running")
        for attr, value in changes.items():
            setattr(self.m, attr, value)
        if self.m.pr_mode == "disable":
            self.m.pr_mode = "auto"
        self.m.start_patrol()
        return self.OK

    def stop_controller_patrolread_sorbctl(self, p):
        self.m.stop_patrol()
        self.m.pr_mode = "disable"
        return self.OK

    def set_controller_patrolread_sorbctl(self, p):
        changes = self._pr_options(p)
        for key, attr in (("inc_ssd_state", "pr_ssd"), ("uncfg_areas_state", "pr_uncfg")):
            if p.get(key):
                changes[attr] = self.choice(p, key, ("on", "off"))
        if p.get("start_time"):
            try:
                datetime.datetime.strptime(str(p["start_time"]), "%Y/%m/%d %H")
            except ValueError:
                raise Refused("start_time must read yyyy/mm/dd hh")
            changes["pr_start_time"] = str(p["start_time"])
        for attr, value in changes.items():
            setattr(self.m, attr, value)
        return self.OK

    def set_controller_bgrate_patrolread_sorbctl(self, p):
        self.m.pr_rate = self.choice(p, "prrate", RATES)
        return self.OK

    def get_controller_pd_patrolread_sorbctl(self, p):
        d = self._known_drive(p)
        if d is None:
            return "fail"
        task = d.task("patrol")
        return {"Status": ("pause" if task.paused else "run") if task else "stop",
                "Progress": str(task.percent) if task else "0",
                "EstimatedTimeLeft": "%d min" % ((task.seconds_left + 59) // 60) if task
                else "0 min"}

    def start_controller_pd_patrolread_sorbctl(self, p):
        d = self.drive(p)
        if d.state not in ("online", "ugood", "hotspare"):
            raise Refused("drive %s cannot be patrolled (%s)" % (d.address, STATE[d.state]))
        if d.task("patrol"):
            raise Refused("patrolread already running on drive %s" % d.address)
        if p.get("prrate"):
            self.m.pr_rate = self.choice(p, "prrate", RATES)
        self.m.start_patrol([d])
        return self.OK

    def stop_controller_pd_patrolread_sorbctl(self, p):
        d = self.drive(p)
        if not d.task("patrol"):
            raise Refused("no patrolread running on drive %s" % d.address)
        self.m.stop_patrol([d])
        return self.OK

    # -- consistency check schedule ------------------------------------------------------------
    def get_controller_ccheck_sorbctl(self, p):
        m = self.m
        return {"CC Mode": "off" if m.cc_mode == "off" else "on",
                "CC Period": "%d day" % (m.cc_delay_hours // 24),
                "CC Next Start Time": m.cc_start or "None",
                "CC State": "Running" if any(v.task("cc") for v in m.vds.values()) else "Stopped",
                "CC Iterations": str(m.cc_iterations), "CC Completed VDs": str(m.cc_completed),
                "CC Excluded VDs": ",".join(str(v) for v in m.cc_excluded) or "None",
                "CC Rate": m.cc_rate, "CC Repair": "on" if m.cc_repair == "enable" else "off"}

    def set_controller_ccheck_sorbctl(self, p):
        changes = {}
        if p.get("period_time") or p.get("delay"):
            days = str(p.get("period_time") or p.get("delay"))
            if not days.isdigit() or not 1 <= int(days) <= 365:
                raise Refused("period must be 1 to 365 days")
            changes["cc_delay_hours"] = int(days) * 24
        if p.get("ccrate"):
            changes["cc_rate"] = self.choice(p, "ccrate", RATES)
        if "state" in p:
            changes["cc_repair"] = "enable" if self.choice(p, "state", ("on", "off")) == "on" \
                else "disable"
        if not changes:
            raise Refused("nothing to set")
        for attr, value in changes.items():
            setattr(self.m, attr, value)
        return self.OK

    def start_controller_ccheck_sorbctl(self, p):
        if self.m.cc_mode != "off":
            raise Refused("ccheck is already on")
        self.m.cc_mode = "seq"
        self.m.cc_start = (self.m.now() + datetime.timedelta(hours=1)).strftime("%Y/%m/%d %H")
        return self.OK

    def stop_controller_ccheck_sorbctl(self, p):
        if self.m.cc_mode == "off":
            raise Refused("ccheck is already off")
        self.m.cc_mode = "off"
        return self.OK

    # -- supercapacitor -----------------------------------------------------------------------
    def get_controller_supercap_sorbctl(self, p):
        m = self.m
        return {"Status": m.cap_status, "Pack Missing": "Yes" if m.cap_pack_missing else "No",
                "Device Name": "SCAP-7460", "Model": "SC460", "Temperature": "%d C" %
                m.cap_temperature, "SN": "SC4600012", "Supercap SN": "CAP0012",
                "Module Version": "1.0", "Supercap Date of Manufacture": "2022-03-01",
                "Date of Manufacture": "2022-03-01", "PCB Version": "A",
                "Design Capacity": "30 F", "Manufacture Name": "SORB"}

    def set_supercap_self_learn_sorbctl(self, p):
        try:
            start = datetime.datetime.strptime(str(p.get("starttime")), "%Y-%m-%d,%H:%M:%S")
        except ValueError:
            return "fail"
        cycle = str(p.get("cycle", "30"))
        if not cycle.isdigit() or int(cycle) < 1 or self.m.cap_pack_missing:
            return "fail"
        self.m.learn_cycle_days = int(cycle)
        self.m.learn_next = start
        return self.OK

    def get_supercap_self_learn_sorbctl(self, p):
        m = self.m
        if m.cap_pack_missing:
            return "fail"
        return {"Present": "Yes", "Last Learn Status": "OK" if m.learn_last else "None",
                "Last Learn Time": m.learn_last.strftime("%Y-%m-%d %H:%M:%S")
                if m.learn_last else "None",
                "Learn Cycle": "%dday" % m.learn_cycle_days,
                "Next Learn Time": m.learn_next.strftime("%Y-%m-%d %H:%M:%S")}

    # -- kick drive and slow drive ------------------------------------------------------------
    def get_kickdrive_status_sorbctl(self, p):
        m = self.m
        return {"ResetTime": "%d day" % m.kick_period, "TotalAllowedKicks": str(m.kick_sum),
                "TotalKicked": str(m.kicked), "ResetRemainingTime": "%d day" % m.kick_period}

    def set_kickdrive_sorbctl(self, p):
        period = str(p.get("period", self.m.kick_period))
        total = str(p.get("sum", self.m.kick_sum))
        if not period.isdigit() or not 1 <= int(period) <= 90:
            raise Refused("period must be 1 to 90 days")
        if not total.isdigit() or not 1 <= int(total) <= 8:
            raise Refused("sum must be 1 to 8")
        self.m.kick_period, self.m.kick_sum = int(period), int(total)
        return self.OK

    def get_slowdrive_status_sorbctl(self, p):
        m = self.m
        return {"Switch": {"Raid": m.slow_switch["raid"], "RawDrive": m.slow_switch["rawdrive"]},
                "CurrConfig": m.slow_current, "NextConfig": m.slow_next}

    def set_slowdrive_sorbctl(self, p):
        kind = self.choice(p, "type", ("raid", "rawdrive"))
        nxt = {k: (dict(v) if isinstance(v, dict) else v) for k, v in self.m.slow_next.items()}
        switch = None
        if p.get("default") == "default":
            from orvex_sim.simhost.model import _slow_defaults
            self.m.slow_next = _slow_defaults()
            return self.OK
        if p.get("sw"):
            switch = self.choice(p, "sw", ("on", "off"))
        section = nxt["Raid Threshold" if kind == "raid" else "RawDrive Threshold"]
        media = str(p.get("media") or section["Media"]).lower()
        if media not in ("ssd", "hdd"):
            raise Refused("media must be ssd or hdd")
        section["Media"] = media
        if p.get("ratio"):
            if kind != "raid" or not 4 <= int(p["ratio"]) <= 64:
                raise Refused("ratio 4 to 64 applies to raid only")
            nxt["Raid ratio"] = str(p["ratio"])
        ms = lambda key: int(str(section[key]).rstrip("ms"))  # noqa: E731
        if kind == "raid":
            if p.get("susize"):
                if media != "hdd" or not p.get("l1"):
                    raise Refused("susize needs media hdd and l1")
                if str(p["susize"]) not in ("32", "64", "128", "256", "512", "1024"):
                    raise Refused("susize must be 32, 64, 128, 256, 512 or 1024")
                section["SuSize"] = "%sKB" % p["susize"]
            l1 = int(p.get("l1") or ms("L1"))
            l2 = int(p.get("l2") or ms("L2"))
            l3 = int(p.get("l3") or ms("L3"))
            low = 110 if media == "ssd" else (
                410 if section["SuSize"] in ("512KB", "1024KB") else 340)
            if not low <= l1 < l2:
                raise Refused("l1 must run from %d up to l2 (%d)" % (low, l2))
            if not l1 < l2 <= l3 or l3 > 20000:
                raise Refused("thresholds must keep l1 < l2 <= l3 <= 20000")
            section.update({"L1": "%dms" % l1, "L2": "%dms" % l2, "L3": "%dms" % l3})
        else:
            if p.get("l1") or p.get("l3") or p.get("susize"):
                raise Refused("rawdrive takes l2 only")
            l2 = int(p.get("l2") or ms("L2"))
            if not 810 <= l2 <= 20000:
                raise Refused("l2 must be 810 to 20000")
            section["L2"] = "%dms" % l2
        self.m.slow_next = nxt
        if switch:
            self.m.slow_switch[kind] = switch
        return self.OK

    # -- PHYs ------------------------------------------------------------------------------
    def get_ctl_phyinfo_sorbctl(self, p):
        return [{"PhyId": str(n), "InvalidDwordCount": "0", "DisparityErrorCount": "0",
                 "LossDwordSyncCount": "1" if n == 3 else "0", "PhyResetProblemCount": "0"}
                for n in range(8)]

    def get_eye_diagram_sorbctl(self, p):
        phy = str(p.get("sid"))
        if not phy.isdigit() or int(phy) >= 8:
            return "fail"
        return {"PhyId": phy, "EyeHeight": "%d mV" % (118 + int(phy)), "EyeWidth": "0.62 UI",
                "Margin": "Pass"}

    # -- firmware, logs, pass-through -------------------------------------------------------------
    def update_controller_fw_sorbctl(self, p):
        path = str(self.need(p, "fw_file"))
        if not path.lower().endswith((".bin", ".img")):
            raise Refused("%s is not a controller firmware image" % path)
        self.m.pending_fw = "1.2.4.0"
        self.m.log("firmware %s loaded, activation pending" % path)
        return self.OK

    def active_controller_fw_sorbctl(self, p):
        kind = self.choice(p, "active_type", ("hot", "cold"))
        if not self.m.pending_fw:
            raise Refused("no new firmware to activate")
        self.m.fw_version, self.m.pending_fw = self.m.pending_fw, None
        self.m.log("firmware activated (%s)" % kind)
        return self.OK

    def update_controller_pd_fw_sorbctl(self, p):
        d = self.drive(p)
        path = str(self.need(p, "fw_file"))
        if not path.lower().endswith((".bin", ".lod", ".fw")):
            raise Refused("%s is not a drive firmware image" % path)
        d.fw = d.fw + "a"
        return self.OK

    def get_controller_log_sorbctl(self, p):
        lines = ["[%s] %s" % (when.strftime("%Y-%m-%d %H:%M:%S"), text)
                 for when, text in self.m.events] or ["no events"]
        half = len(lines) // 2
        self.host.files["/root/raidlog//log-flash.txt"] = "\n".join(lines[:half] or
                                                                    ["flash log empty"])
        self.host.files["/root/raidlog//log-ram.txt"] = "\n".join(lines[half:])
        return "success: log saved to /root/raidlog//log-flash.txt /root/raidlog//log-ram.txt"

    def send_controller_pd_passthru_sorbctl(self, p):
        d = self.drive(p)
        kind = p.get("data_transfer")
        if kind == "set":
            return self.OK
        if not p.get("file_path"):
            raise Refused("file_path is required for a data transfer")
        self.host.files[str(p["file_path"])] = passthru_bytes(d, p.get("command_passthru", ""))
        return self.OK
