"""storcli64 (and storelibtest) wrappers: the parsed JSON sections of the
tool ("Basics", "PD LIST", "VD LIST", "/c0/v0", "PDs for VD 0", "VD0
Properties", "Drive /c0/e252/s0 - Detailed Information", "Controller
Properties" rows of Ctrl_Prop/Value, "VD Operation Status", ...).  Actions
answer "success", or "failure: <reason>"."""
import datetime

from orvex_sim.simhost.common import (ToolView, clock_text, parse_clock, passthru_bytes,
                                      wrappers)
from orvex_sim.simhost.model import ERASE_SECONDS, DURATIONS, NotFound, Refused, Task

STATE = {"ugood": "UGood", "online": "Onln", "offline": "Offln", "failed": "UBad",
         "rebuild": "Rbld", "copyback": "Cpybck", "jbod": "JBOD"}
VD_STATE = {"optimal": "Optl", "degraded": "Dgrd", "partially degraded": "Pdgd",
            "offline": "OfLn"}
OPERATION = {"cc": "CC", "init": "INIT", "bgi": "BGI", "vd_erase": "Erase", "expand": "OCE",
             "migrate": "Migrate"}
EMULATION = {"0": "default", "1": "none", "2": "force"}


def size_text(gb):
    return "%.3f TB" % (gb / 1024.0) if gb >= 1024 else "%.3f GB" % gb


def _props(rows):
    return {"Controller Properties": [{"Ctrl_Prop": k, "Value": v} for k, v in rows]}


@wrappers
class Storcli64(ToolView):
    OK = "success"

    def failure(self, reason):
        return "failure: %s" % reason

    @property
    def c(self):
        return "/c%d" % self.m.index

    # -- rendering ------------------------------------------------------------------
    def _pd_state(self, d):
        if d.state == "hotspare":
            return "GHS" if d.spare_for is None else "DHS"
        return STATE[d.state]

    def _pd_row(self, d):
        return {"EID:Slt": d.address, "DID": d.did, "State": self._pd_state(d),
                "DG": d.vd.array if d.vd else "-", "Size": size_text(d.size_gb),
                "Intf": d.interface, "Med": d.media, "SED": "N", "PI": "N",
                "SeSz": "%dB" % d.logical_sector, "Model": d.model,
                "Sp": "U" if d.phy_enabled else "D", "Type": "-"}

    def _cache(self, vd):
        return ("R" if vd.read == "RA" else "NR") + vd.write + ("D" if vd.io == "Direct" else "C")

    def _vd_row(self, vd):
        return {"DG/VD": "%d/%d" % (vd.array, vd.vid), "TYPE": "RAID%s" % vd.level,
                "State": VD_STATE[vd.state],
                "Access": {"RW": "RW", "RO": "R", "Blocked": "B"}[vd.access],
                "Consist": "Yes" if vd.initialised else "No", "Cache": self._cache(vd),
                "Cac": "-", "sCC": "ON", "Size": size_text(vd.size_gb), "Name": vd.name}

    def _vd_properties(self, vd):
        ops = ", ".join(OPERATION[k] for k in vd.tasks) or "None"
        return {
            "Strip Size": "%d KB" % vd.strip_kb,
            "Number of Blocks": int(vd.size_gb * 1024 * 1024 * 2),
            "VD has Emulated PD": "Yes" if vd.emulation == "force" else "No",
            "Span Depth": vd.spans, "Number of Drives Per Span": len(vd.drives) // vd.spans,
            "Write Cache(initial setting)": {"WB": "WriteBack", "WT": "WriteThrough",
                                             "AWB": "AlwaysWriteBack"}[vd.write],
            "Disk Cache Policy": {"default": "Disk's Default", "on": "Enabled",
                                  "off": "Disabled"}[vd.pdcache],
            "Encryption": "None", "Data Protection": "Disabled", "Active Operations": ops,
            "Exposed to OS": "No" if vd.hidden else "Yes",
            "OS Drive Name": "" if vd.hidden else vd.os_name,
            "Creation Date": "20-05-2024", "Creation Time": "09:30:00 AM",
            "Emulation type": vd.emulation, "Is LD Ready for OS Requests": "Yes",
            "SCSI NAA Id": vd.wwn, "Unmap Enabled": "No",
        }

    def _vd_sections(self, vd):
        return {"%s/v%d" % (self.c, vd.vid): [self._vd_row(vd)],
                "PDs for VD %d" % vd.vid: [self._pd_row(d) for d in vd.drives],
                "VD%d Properties" % vd.vid: self._vd_properties(vd)}

    def _drive_sections(self, d):
        name = "Drive %s/e%s/s%s" % (self.c, d.eid, d.sid)
        return {
            name: [self._pd_row(d)],
            name + " - Detailed Information": {
                name + " State": {"Shield Counter": 0, "Media Error Count": 0,
                                  "Other Error Count": 0,
                                  "Drive Temperature": " 31C (87.80 F)",
                                  "Predictive Failure Count": 0,
                                  "S.M.A.R.T alert flagged by drive": "No"},
                name + " Device attributes": {
                    "SN": d.serial, "Manufacturer Id": "ATA     " if d.interface == "SATA"
                    else "SEAGATE ", "Model Number": d.model, "NAND Vendor": "NA",
                    "WWN": d.sas_address[2:].upper(), "Firmware Revision": d.fw,
                    "Raw size": size_text(d.size_gb), "Coerced size": size_text(d.size_gb),
                    "Device Speed": "%sGb/s" % d.link_gbps, "Link Speed": "%sGb/s" % d.link_gbps,
                    "NCQ": "Yes", "Write Cache": {"on": "Enabled", "off": "Disabled",
                                                  "default": "Disabled"}[d.write_cache],
                    "Logical Sector Size": "%dB" % d.logical_sector,
                    "Physical Sector Size": "%dB" % d.physical_sector,
                    "Connector Name": "C0.0 & C0.1 "},
                name + " Policies/Settings": {
                    "Drive position": ("DriveGroup:%d, Span:0, Row:%d" % (
                        d.vd.array, d.vd.drives.index(d)) if d.vd else "-"),
                    "Enclosure position": 1, "Connected Port Number": "0(path0) ",
                    "Sequence Number": 2, "Commissioned Spare": "No",
                    "Emergency Spare": "No", "SED Capable": "No", "SED Enabled": "No",
                    "Secured": "No", "Locked": "No", "Needs EKM Attention": "No",
                    "PI Eligible": "No", "Certified": "No", "Wide Port Capable": "No",
                    "Port Information": [{"Port": 0, "Status": "Active",
                                          "Linkspeed": "%sGb/s" % d.link_gbps,
                                          "SAS address": d.sas_address}]},
                "Inquiry Data": "%s %s" % (d.model, d.fw)},
        }

    def _op_status(self, vd, kind):
        task = vd.task(kind)
        return {"VD Operation Status": [{
            "VD": vd.vid, "Operation": OPERATION[kind],
            "Progress%": task.percent if task else "-",
            "Status": ("Paused" if task.paused else "In progress") if task else "Not in progress",
            "Estimated Time Left": self.minutes_left(task)}]}

    def _pd_status(self, d, kind):
        task = d.task(kind)
        return {"Drive-ID": "%s/e%s/s%s" % (self.c, d.eid, d.sid),
                "Progress%": task.percent if task else "-",
                "Status": ("Paused" if task.paused else "In progress") if task else "Not in progress",
                "Estimated Time Left": self.minutes_left(task)}

    def _drive_or_missing(self, p):
        try:
            return self.drive(p)
        except Refused as why:
            raise NotFound(str(why))

    def _vd_or_missing(self, p):
        try:
            return self.vd(p)
        except Refused as why:
            raise NotFound(str(why))

    def _show_all(self):
        m = self.m
        out = {
            "Basics": {"Controller": m.index, "Model": "AVAGO MegaRAID SAS 9460-8i",
                       "Serial Number": "SK92031234", "Current Controller Date/Time":
                       m.now().strftime("%m/%d/%Y, %H:%M:%S"), "Current System Date/time":
                       self.host.clock.strftime("%m/%d/%Y, %H:%M:%S"),
                       "SAS Address": "500605b00e6d1234", "PCI Address": "00:3b:00:00",
                       "Mfg Date": "03/12/19", "Rework Date": "00/00/00",
                       "Revision No": "05A"},
            "Version": {"Firmware Package Build": "51.13.0-3485",
                        "Firmware Version": m.fw_version, "CPLD Version": "26781-01",
                        "Bios Version": "7.13.00.0_0x070D0300", "PSOC FW Version": "0x001A",
                        "PSOC Part Number": "15132-270-512", "NVDATA Version": "5.1300.00-0460",
                        "Driver Name": "megaraid_sas", "Driver Version": "07.714.04.00-rc1"},
            "Bus": {"Vendor Id": 4096, "Device Id": 20, "SubVendor Id": 4096,
                    "SubDevice Id": 37264, "Host Interface": "PCI-E",
                    "Device Interface": "SAS-12G", "Bus Number": 59, "Device Number": 0,
                    "Function Number": 0, "Domain ID": 0},
            "Status": {"Controller Status": "Optimal", "Memory Correctable Errors": 0,
                       "Memory Uncorrectable Errors": 0, "ECC Bucket Count": 0,
                       "Any Offline VD Cache Preserved": "No", "BBU Status": 0,
                       "PD Firmware Download in progress": "No",
                       "Support PD Firmware Download": "Yes", "Lock Key Assigned": "No",
                       "Failed to get lock key on bootup": "No", "Bios was not detected "
                       "during boot": "No", "Controller must be rebooted to complete security "
                       "operation": "No", "A rollback operation is in progress": "No",
                       "At least one PFK exists in NVRAM": "No", "SSC Policy is WB": "No",
                       "Controller has booted into safe mode": "No",
                       "Controller shutdown required": "No"},
            "HwCfg": {"ChipRevision": " C0", "BatteryFRU": "N/A", "Front End Port Count": 0,
                      "Backend Port Count": 8, "BBU": "Present", "Alarm": "Absent",
                      "Serial Debugger": "Present", "NVRAM Size": "128KB",
                      "Flash Size": "16MB", "On Board Memory Size": "2048MB",
                      "CacheVault Flash Size": "8.000 GB", "TPM": "Absent",
                      "Upgrade Key": "Absent", "On Board Expander": "Absent",
                      "Temperature Sensor for ROC": "Present",
                      "Temperature Sensor for Controller": "Absent",
                      "Upgradable CPLD": "Present", "Upgradable PSOC": "Present",
                      "Current Size of CacheCade (GB)": 0,
                      "Current Size of FW Cache (MB)": 1757,
                      "ROC temperature(Degree Celsius)": 54,
                      "PCIe Link Width": "x8", "PCIe Link Speed": "8.0GT/s"},
            "Virtual Drives": len(m.vds),
            "VD LIST": [self._vd_row(v) for v in m.ordered_vds()],
            "Physical Drives": len(m.drives),
            "PD LIST": [self._pd_row(d) for d in m.drives],
            "Cachevault_Info": [{"Model": "CVPM05", "State": m.cap_status,
                                 "Temp": "%dC" % m.cap_temperature, "Mode": "-",
                                 "MfgDate": "2019/03/11"}],
        }
        return out

    # -- discovery and information --------------------------------------------------------
    def get_controller_number_storcli64(self, p):
        return "1"

    def ctr_get_all_cfg_storcli64(self, p):
        return self._show_all()

    def storcli64_get_lsi_raid_detail_config(self, p):
        return [{"parser": self._show_all(), "rc": 0}]

    # -- physical drives --------------------------------------------------------------
    def ctr_get_pd_cfg_storcli64(self, p):
        if str(p.get("eid")) == "all" or str(p.get("sid")) == "all":
            out = {}
            for d in self.m.drives:
                out.update(self._drive_sections(d))
            return out
        return self._drive_sections(self._drive_or_missing(p))

    def pd_set_state_storcli64(self, p):
        d = self.drive(p)
        state = self.choice(p, "state", ("online", "offline", "good", "jbod", "missing"))
        if state == "online":
            if d.vd is None or d.state not in ("offline",):
                raise Refused("drive %s is not an offline member" % d.address)
            d.state = "online"
        elif state in ("offline", "missing"):
            if d.vd is None or d.state != "online":
                raise Refused("drive %s is not an online member" % d.address)
            d.state = "offline"
        elif state == "good":
            if d.state in ("online", "offline", "rebuild", "copyback"):
                raise Refused("drive %s belongs to VD %d" % (d.address, d.vd.vid if d.vd else -1))
            if d.state == "hotspare":
                raise Refused("drive %s is a hot spare" % d.address)
            if d.state in ("jbod", "failed") and not p.get("force"):
                raise Refused("drive %s is %s; force is needed" % (d.address, d.state))
            d.state = "ugood"
        elif state == "jbod":
            if not self.m.jbod:
                raise Refused("JBOD mode is disabled on the controller")
            if d.state != "ugood":
                raise Refused("drive %s is not unconfigured good" % d.address)
            d.state = "jbod"
        self.m.log("PD %s set %s" % (d.address, state))
        return self.OK

    def pd_set_hotspare_drive_storcli64(self, p):
        d = self.drive(p)
        oper = self.choice(p, "oper", ("add", "delete"))
        if oper == "add":
            if d.state != "ugood" or d.foreign:
                raise Refused("drive %s is not unconfigured good" % d.address)
            array = p.get("ar_id", p.get("dgs"))
            if array not in (None, ""):
                arrays = [v.array for v in self.m.vds.values()]
                if int(array) not in arrays:
                    raise Refused("drive group %s does not exist" % array)
                d.spare_for = int(array)
            else:
                d.spare_for = None
            d.state = "hotspare"
        else:
            if d.state != "hotspare":
                raise Refused("drive %s is not a hot spare" % d.address)
            d.state, d.spare_for = "ugood", None
        return self.OK

    def ctr_set_rebuild_storcli64(self, p):
        d = self.drive(p)
        oper = self.choice(p, "oper", ("start", "stop", "pause", "resume"))
        task = d.task("rebuild")
        if oper == "start":
            if d.vd is None or d.state not in ("offline",):
                raise Refused("drive %s is not an offline member" % d.address)
            self.m.start_rebuild(d)
        elif task is None:
            raise Refused("no rebuild in progress on drive %s" % d.address)
        elif oper == "stop":
            d.tasks.pop("rebuild")
            d.state = "offline"
        elif oper == "pause":
            if task.paused:
                raise Refused("rebuild on drive %s is already paused" % d.address)
            task.paused = True
        else:
            if not task.paused:
                raise Refused("rebuild on drive %s is not paused" % d.address)
            task.paused = False
        return self.OK

    def ctr_get_rebuild_cfg_storcli64(self, p):
        return self._pd_status(self._drive_or_missing(p), "rebuild")

    def set_pd_insert_storcli64(self, p):
        d = self.drive(p)
        if d.state != "ugood" or d.foreign:
            raise Refused("drive %s is not unconfigured good" % d.address)
        dg = int(self.need(p, "dg"))
        row = int(self.need(p, "row"))
        vds = [v for v in self.m.vds.values() if v.array == dg]
        if not vds:
            raise Refused("drive group %d does not exist" % dg)
        vd = vds[0]
        if not 0 <= row < len(vd.drives):
            raise Refused("row %d does not exist in drive group %d" % (row, dg))
        old = vd.drives[row]
        if old.state != "failed" and old.vd is vd:
            raise Refused("row %d of drive group %d is not missing" % (row, dg))
        vd.drives[row] = d
        d.vd, d.state = vd, "offline"
        return self.OK

    def pd_set_bootdrive_storcli64(self, p):
        d = self.drive(p)
        state = self.choice(p, "bootdrive", ("on", "off"))
        if state == "on":
            if d.state != "jbod":
                raise Refused("only a JBOD drive can be the boot drive")
            for other in self.m.drives:
                other.boot = "off"
            for vd in self.m.vds.values():
                vd.boot = "off"
        d.boot = state
        return self.OK

    def ctr_set_device_order_by_firmware(self, p):
        return self.OK

    def _free_drive(self, p, action):
        d = self.drive(p)
        if d.state != "ugood":
            raise Refused("cannot %s drive %s: it is %s" % (action, d.address, d.state))
        return d

    def pd_set_erase_storcli64(self, p):
        oper = self.choice(p, "oper", ("start", "stop"))
        if oper == "start":
            d = self._free_drive(p, "erase")
            mode = self.choice(p, "mode", tuple(ERASE_SECONDS))
            if d.task("erase"):
                raise Refused("an erase is already running on drive %s" % d.address)
            d.tasks["erase"] = Task("erase", ERASE_SECONDS[mode])
        else:
            d = self.drive(p)
            if not d.task("erase"):
                raise Refused("no erase in progress on drive %s" % d.address)
            d.tasks.pop("erase")
        return self.OK

    def pd_get_erase_storcli64(self, p):
        return [self._pd_status(self._drive_or_missing(p), "erase")]

    def start_pd_sanitize_storcli64(self, p):
        d = self._free_drive(p, "sanitize")
        mode = self.choice(p, "mode", ("cryptoerase", "overwrite", "blockerase"))
        if mode in ("cryptoerase", "blockerase") and d.media != "SSD":
            raise Refused("drive %s does not support %s" % (d.address, mode))
        if d.task("sanitize"):
            raise Refused("a sanitize is already running on drive %s" % d.address)
        d.tasks["sanitize"] = Task("sanitize", DURATIONS["sanitize"])
        return self.OK

    def get_pd_sanitize_storcli64(self, p):
        return [self._pd_status(self._drive_or_missing(p), "sanitize")]

    def pd_copyback_func_storcli64(self, p):
        d = self.drive(p)
        oper = self.choice(p, "oper", ("start", "stop", "pause", "resume"))
        if oper == "start":
            if not self.m.copyback["copyback"] == "on":
                raise Refused("copyback is disabled on the controller")
            target = self.m.find_drive(self.need(p, "target"))
            self.m.start_copyback(d, target)
            return self.OK
        target = getattr(d, "copyback_target", None) or d
        task = target.task("copyback")
        if task is None:
            raise Refused("no copyback in progress on drive %s" % d.address)
        if oper == "stop":
            target.tasks.pop("copyback")
            target.state = "ugood"
        else:
            task.paused = oper == "pause"
        return self.OK

    def pd_copyback_show_storcli64(self, p):
        d = self._drive_or_missing(p)
        target = getattr(d, "copyback_target", None)
        if target is not None and target.task("copyback"):
            d = target
        return [self._pd_status(d, "copyback")]

    def pd_update_fw_storcli64(self, p):
        d = self.drive(p)
        path = str(self.need(p, "fw_file"))
        if not path.lower().endswith((".bin", ".lod", ".fw")):
            raise Refused("%s is not a drive firmware image" % path)
        d.fw = "N%03d" % (int(d.fw[1:]) + 1) if d.fw[1:].isdigit() else d.fw + "a"
        return self.OK

    # -- virtual drives --------------------------------------------------------------------
    def ctr_create_vd_storcli64(self, p):
        init = p.get("init")
        self.m.create_vd(p.get("raid_level"), p.get("drives"), p.get("size"),
                         p.get("strip_size"), p.get("name"), p.get("pd_per_array") and
                         len(p.get("drives") or []) // int(p["pd_per_array"]),
                         init="full" if init == "front" else None)
        return self.OK

    def ctr_delete_vd_storcli64(self, p):
        if str(p.get("vid")) == "all":
            if not self.m.vds:
                raise Refused("no virtual drive exists")
            for vd in self.m.ordered_vds():
                self.m.delete_vd(vd.vid, force=True)
            return self.OK
        self.m.delete_vd(self.vd(p).vid, force=p.get("oper") == "force")
        return self.OK

    def ctr_get_vd_cfg_storcli64(self, p):
        if p.get("vid") in (None, "all"):
            out = {}
            for vd in self.m.ordered_vds():
                out.update(self._vd_sections(vd))
            return out
        return self._vd_sections(self._vd_or_missing(p))

    def vd_set_cache_storcli64(self, p):
        vd = self.vd(p)
        if "wrcache" in p:
            vd.write = {"wt": "WT", "wb": "WB", "awb": "AWB"}[
                self.choice(p, "wrcache", ("wt", "wb", "awb"))]
        elif "rdcache" in p:
            vd.read = {"ra": "RA", "nora": "NoRA"}[self.choice(p, "rdcache", ("ra", "nora"))]
        else:
            raise Refused("wrcache or rdcache is required")
        return self.OK

    def vd_set_iopolicy_storcli64(self, p):
        vd = self.vd(p)
        vd.io = {"direct": "Direct", "cached": "Cached"}[
            self.choice(p, "iopolicy", ("direct", "cached"))]
        return self.OK

    def vd_set_pdcache_storcli64(self, p):
        vd = self.vd(p)
        vd.pdcache = self.choice(p, "pdcache", ("on", "off", "default"))
        return self.OK

    def set_vd_emulation_storcli64(self, p):
        vd = self.vd(p)
        wanted = EMULATION.get(str(p.get("emulationType")))
        if wanted is None:
            raise Refused("emulationType must be 0, 1 or 2")
        if vd.emulation == "none" and wanted == "force":
            raise Refused("emulation cannot be forced once it is disabled")
        vd.emulation = wanted
        return self.OK

    def set_vd_hidden_storcli64(self, p):
        vd = self.vd(p)
        state = self.choice(p, "state", ("on", "off"))
        if state == "on" and vd.hidden:
            raise Refused("virtual drive %d is already hidden" % vd.vid)
        vd.hidden = state == "on"
        return self.OK

    def set_vd_access_storcli64(self, p):
        vd = self.vd(p)
        vd.access = {"rw": "RW", "ro": "RO", "blocked": "Blocked"}[
            self.choice(p, "accesspolicy", ("rw", "ro", "blocked"))]
        return self.OK

    def vd_set_bootdrive_storcli64(self, p):
        vd = self.vd(p)
        state = self.choice(p, "bootdrive", ("on", "off"))
        if state == "on":
            for other in self.m.vds.values():
                other.boot = "off"
            for d in self.m.drives:
                d.boot = "off"
        vd.boot = state
        return self.OK

    def ctr_get_boot_drive_storcli64(self, p):
        value = "-"
        for vd in self.m.ordered_vds():
            if vd.boot == "on":
                value = "VD:%d" % vd.vid
        for d in self.m.drives:
            if d.boot == "on":
                value = "PD:%s:%s" % (d.eid, d.sid)
        return _props([("Boot Drive", value)])

    def vd_state_cc_storcli64(self, p):
        vd = self.vd(p)
        state = self.choice(p, "state", ("start", "stop", "pause", "resume"))
        task = vd.task("cc")
        if state == "start":
            if vd.level == "0":
                raise Refused("consistency check is not possible on RAID 0")
            if vd.state != "optimal":
                raise Refused("virtual drive %d is %s" % (vd.vid, vd.state))
            if not vd.initialised and p.get("force") != "force":
                raise Refused("virtual drive %d is not initialised; use force" % vd.vid)
            if task:
                raise Refused("a consistency check is already running on VD %d" % vd.vid)
            self.m.start_vd_task(vd, "cc")
        elif task is None:
            raise Refused("no consistency check in progress on VD %d" % vd.vid)
        elif state == "stop":
            vd.tasks.pop("cc")
        else:
            task.paused = state == "pause"
        return self.OK

    def ctr_get_cc_status_storcli64(self, p):
        return self._op_status(self._vd_or_missing(p), "cc")

    def vd_state_init_storcli64(self, p):
        vd = self.vd(p)
        state = self.choice(p, "state", ("start", "stop"))
        if state == "start":
            if vd.task("init"):
                raise Refused("initialisation already running on VD %d" % vd.vid)
            vd.tasks.pop("bgi", None)
            vd.initialised = False
            self.m.start_vd_task(vd, "init")
        else:
            if not vd.task("init"):
                raise Refused("no initialisation in progress on VD %d" % vd.vid)
            vd.tasks.pop("init")
        return self.OK

    def ctr_get_init_info_storcli64(self, p):
        return self._op_status(self._vd_or_missing(p), "init")

    def get_virtual_drive_bgi_state_storcli64(self, p):
        return self._op_status(self._vd_or_missing(p), "bgi")

    def ctr_set_bgi_switch_storcli64(self, p):
        vd = self.vd(p)
        vd.autobgi = self.choice(p, "state", ("on", "off")) == "on"
        return self.OK

    def vd_set_erase_storcli64(self, p):
        vd = self.vd(p)
        oper = self.choice(p, "oper", ("start", "stop"))
        if oper == "start":
            mode = self.choice(p, "mode", tuple(ERASE_SECONDS))
            if vd.task("vd_erase"):
                raise Refused("an erase is already running on VD %d" % vd.vid)
            self.m.start_vd_task(vd, "vd_erase", ERASE_SECONDS[mode] * 2)
        else:
            if not vd.task("vd_erase"):
                raise Refused("no erase in progress on VD %d" % vd.vid)
            vd.tasks.pop("vd_erase")
        return self.OK

    def vd_get_erase_storcli64(self, p):
        return self._op_status(self._vd_or_missing(p), "vd_erase")

    def vd_set_expand_size_storcli64(self, p):
        return self.grow_vd(p, "only %.0f GB are free in drive group %d")


    def vd_add_pd_expand_array_storcli64(self, p):
        return self.add_vd_drives(p, "the drives to add must be unconfigured good")


    def vd_get_expand_info_storcli64(self, p):
        return self._op_status(self._vd_or_missing(p), "expand")

    def vd_start_migrate_storcli64(self, p):
        level = str(self.need(p, "raid_level")).upper().replace("RAID", "")
        return self.migrate_vd(p, level, "VD %d cannot migrate to RAID %s")


    def vd_get_migrate_info_storcli64(self, p):
        return self._op_status(self._vd_or_missing(p), "migrate")

    def vd_get_smartinfo_smartctl_storcli64(self, p):
        vd = self._vd_or_missing(p)
        return {"%s/e%s/s%s" % (self.c, d.eid, d.sid): {
            "SMART overall-health self-assessment test result": "PASSED",
            "Current Drive Temperature": "31 C", "Accumulated power on time": "8760:00",
            "Elements in grown defect list": 0} for d in vd.drives}

    def ctr_get_ssd_caching_storcli64(self, p):
        return {"VD LIST": []}

    def vd_foreign_operate_storcli64(self, p):
        oper = self.choice(p, "oper", ("delete", "import"))
        foreign = [d for d in self.m.drives if d.foreign]
        if not foreign:
            raise Refused("no foreign configuration found")
        for d in foreign:
            d.foreign = False
        self.m.foreign_groups = 0
        if oper == "import":
            self.m.create_vd("0", [d.address for d in foreign], name="imported")
        return self.OK

    # -- controller settings ---------------------------------------------------------------
    def ctr_get_jbod_storcli64(self, p):
        return _props([("JBOD", "ON" if self.m.jbod else "OFF")])

    def ctr_set_jbod_cfg_storcli64(self, p):
        state = self.choice(p, "state", ("on", "off"))
        if state == "off" and any(d.state == "jbod" for d in self.m.drives) \
                and not p.get("force"):
            raise Refused("JBOD drives exist; force is needed")
        if state == "off":
            for d in self.m.drives:
                if d.state == "jbod":
                    d.state = "ugood"
        self.m.jbod = state == "on"
        return self.OK

    def ctr_get_controll_time_storcli64(self, p):
        return {"Controller": [{"Ctrl_Prop": "Time", "Value": clock_text(self.m.now())}]}

    def ctr_set_controll_time_storcli64(self, p):
        when = p.get("ctl_time")
        self.m.set_clock(parse_clock(when) if when else self.host.clock)
        return self.OK

    def set_ctl_restart_storcli64(self, p):
        self.m.restarts += 1
        self.m.log("controller reset")
        self.m.slow_current = dict(self.m.slow_next)
        return self.OK

    def set_ctl_restart_switch_storcli64(self, p):
        self.m.restart_switch = self.choice(p, "state", ("on", "off"))
        return self.OK

    def set_ctl_auto_rebuild_storcli64(self, p):
        self.m.auto_rebuild = self.choice(p, "state", ("on", "off")) == "on"
        return self.OK

    def ctr_get_eghs_storcli64(self, p):
        e = self.m.eghs
        return _props([("EmergencyGHS", e["state"].upper()), ("EmergencyUG", e["eug"].upper()),
                       ("EmergencySMARTer", e["smarter"].upper())])

    def ctr_set_eghs_cfg_storcli64(self, p):
        keys = [k for k in ("eug", "state", "smarter") if k in p]
        if not keys:
            raise Refused("eug, state or smarter is required")
        values = {k: self.choice(p, k, ("on", "off")) for k in keys}
        self.m.eghs.update(values)
        return self.OK

    def ctr_get_bootwithpinnedcache_storcli64(self, p):
        return _props([("Boot With Pinned Cache", self.m.pinned_cache_boot.upper())])

    def ctr_set_bootwithpinnedcache_storcli64(self, p):
        self.m.pinned_cache_boot = self.choice(p, "state", ("on", "off"))
        return self.OK

    def ctr_get_copyback_storcli64(self, p):
        cb = self.m.copyback
        return _props([("Copyback", cb["copyback"].upper()),
                       ("SMARTer Copyback for SSD", cb["smartssd"].upper()),
                       ("SMARTer Copyback for HDD", cb["smarthdd"].upper())])

    def ctr_set_copyback_cfg_storcli64(self, p):
        kind = str(p.get("type") or "copyback").lower()
        if kind not in self.m.copyback:
            raise Refused("copyback type %s is unknown (copyback/smartssd/smarthdd)" % kind)
        self.m.copyback[kind] = self.choice(p, "state", ("on", "off"))
        return self.OK

    # -- firmware and logs -----------------------------------------------------------------
    def ctr_update_fw_storcli64(self, p):
        path = str(self.need(p, "fw_file"))
        if not path.lower().endswith((".rom", ".bin")):
            raise Refused("%s is not a controller firmware image" % path)
        self.m.fw_version = "5.060.01-2270"
        self.m.log("firmware flashed from %s" % path)
        return self.OK

    def _log_lines(self):
        return ["%s: %s" % (when.strftime("%m/%d/%y %H:%M:%S"), text)
                for when, text in self.m.events] or ["no events"]

    def ctr_get_log_storcli64(self, p):
        lines = self._log_lines()
        return {"_raw": True, "parser": self.OK, "stdout": lines, "rc": 0}

    def ctr_get_alilog_storcli64(self, p):
        lines = ["Controller = %d" % self.m.index, "Status = Success"] + self._log_lines()
        return {"_raw": True, "parser": self.OK, "stdout": lines, "rc": 0}

    # -- supercapacitor ------------------------------------------------------------------------
    def ctr_get_cv_all_storcli64(self, p):
        m = self.m
        if p.get("information") == "simple":
            return {"Cachevault_Info": [{"Model": "CVPM05", "State": m.cap_status,
                                         "Temp": "%dC" % m.cap_temperature, "Mode": "-",
                                         "MfgDate": "2019/03/11"}]}
        rows = lambda pairs: [{"Property": k, "Value": v} for k, v in pairs]  # noqa: E731
        return {
            "Cachevault_Info": rows([("Type", "CVPM05"), ("Model", "CVPM05"),
                                     ("Temperature", "%d C" % m.cap_temperature),
                                     ("State", m.cap_status)]),
            "Firmware_Status": rows([("NVCache State", "OK"), ("Replacement required", "No"),
                                     ("No space to cache offload", "No"),
                                     ("Module microcode update required", "No")]),
            "GasGaugeStatus": rows([("Pack Energy", "294 J"), ("Capacitance", "110 %"),
                                    ("Remaining Reserve Space", "0")]),
            "Design_Info": rows([("Date of Manufacture", "11/03/2019"),
                                 ("Serial Number", "21270"), ("Manufacture Name", "LSI"),
                                 ("Design Capacity", "288 J"), ("Device Name", "CVPM05"),
                                 ("tmmFru", "N/A"), ("CacheVault Flash Size", "8.0 GB"),
                                 ("scapBatversionNo", "0x00"), ("scapSerialNo", "0x5310"),
                                 ("scap Date of Manufacture", "11/03/2019"),
                                 ("scapPcbAssmNo", "1700054483"), ("scapPCBversionNo", " B"),
                                 ("scapBatPackAssmNo", "49571-13A"),
                                 ("Module Version", "6635-02A"),
                                 ("Pack Serial Number", "0x5310"),
                                 ("Pack Date of Manufacture", "11/03/2019"),
                                 ("PCB Version", "B")]),
            "Properties": rows([("Auto Learn Period", "%dd (%d seconds)" % (
                m.learn_cycle_days, m.learn_cycle_days * 86400)),
                ("Next Learn time", m.learn_next.strftime("%Y/%m/%d  %H:%M:%S"))]),
        }

    def ctr_start_cv_learn_storcli64(self, p):
        if self.m.learn_task:
            raise Refused("a learn cycle is already running")
        if self.m.cap_pack_missing:
            raise Refused("no CacheVault module present")
        self.m.learn_task = Task("learn", 300)
        return self.OK

    def ctr_get_cv_learn_storcli64(self, p):
        m = self.m
        last = m.learn_last.strftime("%Y/%m/%d  %H:%M:%S") if m.learn_last else "N/A"
        return {"Cachevault_Learn": [{"Property": k, "Value": v} for k, v in [
            ("Present", "Yes"), ("Learn Cycle Requested", "Yes" if m.learn_task else "No"),
            ("Learn Cycle Active", "Yes" if m.learn_task else "No"),
            ("Last Learn Status", "Success" if m.learn_last else "N/A"),
            ("Last Learn time", last),
            ("Auto Learn Period", "%dd (%d seconds)" % (m.learn_cycle_days,
                                                        m.learn_cycle_days * 86400)),
            ("Next Learn time", m.learn_next.strftime("%Y/%m/%d  %H:%M:%S"))]]}

    # -- patrol read -------------------------------------------------------------------
    def ctr_get_patrolread_storcli64(self, p):
        m = self.m
        state = ("Paused" if m.pr_paused else "Active") if m.pr_running else "Stopped"
        return _props([("PR Mode", {"auto": "Auto", "manual": "Manual",
                                    "disable": "Disable"}[m.pr_mode]),
                       ("PR Execution Delay", "%d hours" % m.pr_delay_hours),
                       ("PR iterations completed", m.pr_iterations),
                       ("PR Next Start time", m.pr_start_time or "-"),
                       ("PR on SSD", "Enabled" if m.pr_ssd == "on" else "Disabled"),
                       ("PR Current State", state),
                       ("PR Excluded VDs", "None"),
                       ("PR MaxConcurrentPd", m.pr_pd_count)])

    def ctr_state_pr_storcli64(self, p):
        m = self.m
        oper = self.choice(p, "oper", ("start", "stop", "pause", "resume"))
        if oper == "start":
            if m.pr_mode == "disable":
                raise Refused("patrol read is disabled")
            if m.pr_running:
                raise Refused("patrol read is already running")
            if not m.start_patrol():
                raise Refused("no drive to patrol")
        elif oper == "stop":
            m.stop_patrol()
        elif not m.pr_running:
            raise Refused("patrol read is not running")
        else:
            m.pr_paused = oper == "pause"
            for d in m.drives:
                if d.task("patrol"):
                    d.task("patrol").paused = m.pr_paused
        return self.OK

    def ctr_get_patrolread_cfg_storcli64(self, p):
        if str(p.get("eid")) == "all" or str(p.get("sid")) == "all":
            drives = self.m.drives
        else:
            drives = [self._drive_or_missing(p)]
        rows = []
        for d in drives:
            task = d.task("patrol")
            rows.append({"Drive-ID": "%s/e%s/s%s" % (self.c, d.eid, d.sid),
                         "Progress%": task.percent if task else "-",
                         "Status": ("Paused" if task.paused else "In progress") if task
                         else "Not in progress",
                         "Estimated time left": self.minutes_left(task)})
        return rows

    def ctr_get_prrate_storcli64(self, p):
        return {"Controller Properties": {"Ctrl_Prop": "Patrol Read Rate",
                                          "Value": "%s%%" % self.m.pr_rate}}

    def _rate(self, p, key):
        value = str(self.need(p, key)).rstrip("%")
        words = {"low": "20", "medium": "30", "high": "50"}
        value = words.get(value.lower(), value)
        if not value.isdigit() or not 0 <= int(value) <= 100:
            raise Refused("%s must be 0 to 100" % key)
        return value

    def ctr_set_prrate_storcli64(self, p):
        self.m.pr_rate = self._rate(p, "prrate")
        return self.OK

    def ctr_set_patrolread_storcli64(self, p):
        m = self.m
        changes = {}
        if p.get("delay"):
            if not str(p["delay"]).isdigit():
                raise Refused("delay must be a number of hours")
            changes["pr_delay_hours"] = int(p["delay"])
        if p.get("pd_count"):
            if not str(p["pd_count"]).isdigit() or not 1 <= int(p["pd_count"]) <= 255:
                raise Refused("pd_count must be 1 to 255")
            changes["pr_pd_count"] = int(p["pd_count"])
        if p.get("start_time"):
            try:
                datetime.datetime.strptime(str(p["start_time"]), "%Y/%m/%d %H")
            except ValueError:
                raise Refused("start_time must read yyyy/mm/dd hh")
            changes["pr_start_time"] = str(p["start_time"])
        for key, attr in (("inc_ssd_state", "pr_ssd"), ("uncfg_areas_state", "pr_uncfg")):
            if p.get(key):
                changes[attr] = self.choice(p, key, ("on", "off"))
        if p.get("prrate"):
            changes["pr_rate"] = self._rate(p, "prrate")
        for attr, value in changes.items():
            setattr(m, attr, value)
        return self.OK

    def ctr_set_pr_switch_storcli64(self, p):
        m = self.m
        state = self.choice(p, "switch_status", ("on", "off"))
        if state == "on":
            m.pr_mode = self.choice(p, "mode", ("auto", "manual")) if p.get("mode") else "auto"
        else:
            m.pr_mode = "disable"
            m.stop_patrol()
        return self.OK

    # -- consistency check schedule ----------------------------------------------------------
    def ctr_set_cc_cfg_storcli64(self, p):
        m = self.m
        mode = self.choice(p, "cc", ("seq", "conc", "off"))
        start = p.get("start_time")
        if mode != "off" and start:
            try:
                when = datetime.datetime.strptime(str(start), "%Y/%m/%d %H")
            except ValueError:
                raise Refused("start_time must read yyyy/mm/dd hh")
            if when < m.now() - datetime.timedelta(hours=1):
                raise Refused("start_time %s lies in the past" % start)
        excluded = None
        if p.get("excludevd") not in (None, ""):
            excluded = []
            for v in str(p["excludevd"]).replace(" ", "").split(","):
                excluded.append(self.m.vd(v).vid)
        delay = None
        if p.get("delay"):
            if not str(p["delay"]).isdigit():
                raise Refused("delay must be a number of hours")
            delay = int(p["delay"])
        m.cc_mode = mode
        if start:
            m.cc_start = str(start)
        if excluded is not None:
            m.cc_excluded = excluded
        if delay is not None:
            m.cc_delay_hours = delay
        return self.OK

    def ctr_get_cc_storcli64(self, p):
        m = self.m
        start = "-"
        if m.cc_start and m.cc_mode != "off":
            start = datetime.datetime.strptime(m.cc_start, "%Y/%m/%d %H").strftime(
                "%m/%d/%Y, %H:00:00")
        running = any(v.task("cc") for v in m.vds.values())
        return _props([("CC Operation Mode", {"seq": "Sequential", "conc": "Concurrent",
                                              "off": "Disabled"}[m.cc_mode]),
                       ("CC Execution Delay", m.cc_delay_hours),
                       ("CC Next Starttime", start),
                       ("CC Current State", "Active" if running else "Stopped"),
                       ("CC Number of iterations", m.cc_iterations),
                       ("CC Number of VD completed", m.cc_completed),
                       ("CC Excluded VDs", ",".join(str(v) for v in m.cc_excluded) or "None")])

    def ctr_get_ccrate_storcli64(self, p):
        return {"Controller Properties": {"Ctrl_Prop": "CC Rate", "Value": "%s%%" % self.m.cc_rate}}

    def ctr_set_ccrate_storcli64(self, p):
        self.m.cc_rate = self._rate(p, "ccrate")
        return self.OK

    # -- enclosure and PHYs ------------------------------------------------------------------
    def ctr_get_enclosure_storcli64(self, p):
        return {"Enclosure %s/e252" % self.c: {
            "Information": {"Device ID": 252, "Position": 1, "Connector Name": "C0.0 & C0.1",
                            "Enclosure Type": "SAS3x28", "FRU Part Number": "N/A",
                            "Enclosure Serial Number": "N/A", "ESM Serial Number": "N/A",
                            "Enclosure Zoning Mode": "N/A", "Partner Device ID": 65535},
            "Inquiry Data": {"Vendor Identification": "BROADCOM",
                             "Product Identification": "Expander",
                             "Product Revision Level": "0105",
                             "Vendor Specific": "x36-254.9.1.5"},
            "Properties": [{"EID": 252, "State": "OK", "Slots": 8, "PD": len(self.m.drives),
                            "PS": 0, "Fans": 0, "TSs": 1, "Alms": 0, "SIM": 0, "ProdID":
                            "Expander"}],
            "EnclSasAddress": [{"Sr.No": 0, "SAS address": "0x500605b0000272bf"}],
        }}

    def ctr_get_phy_cfg_storcli64(self, p):
        return {"Phy Error Counters": [
            {"Phy": n, "Invalid DWord Count": 0, "Running Disparity Error Count": 0,
             "Loss of DWord Sync Count": 1 if n == 3 else 0, "Phy Reset Problem Count": 0}
            for n in range(8)]}

    def get_phy_count_storelibtest(self, p):
        return ["", "8", ""]

    def get_phy_info_storelibtest(self, p):
        lines = []
        for n in p.get("phy_list") or []:
            if not 0 <= int(n) < 8:
                raise Refused("phy %s does not exist" % n)
            d = self.m.drives[int(n)]
            lines.append("phy %d: link %s, rate %sGb/s, attached %s" % (
                n, "up" if d.phy_enabled else "down", d.link_gbps, d.sas_address))
        return [""] + lines + [""]

    def send_phy_control_storelibtest(self, p):
        kind = str(p.get("reset_type", "")).lower()
        if kind not in ("1", "2", "link", "hard"):
            raise Refused("reset type %s is unknown (1/link, 2/hard)" % kind)
        name = "hard" if kind in ("2", "hard") else "link"
        return [""] + ["phy %d: %s reset done" % (n, name) for n in p.get("phy_list") or []]

    def send_ctr_storelibtest_passthru(self, p):
        d = self.drive(p)
        if str(p.get("did")) != str(d.did):
            raise Refused("device id %s does not match drive %s" % (p.get("did"), d.address))
        if str(p.get("data_transfer", "2")) in ("0", "notransfer", "notransferwithsense"):
            return "Command status: success"
        data = passthru_bytes(d, p.get("command_passthru", ""))
        lines = ["Command status: success"]
        for offset in range(0, len(data), 16):
            lines.append("%04x: %s" % (offset, " ".join("%02x" % b for b in data[offset:offset + 16])))
        return lines
