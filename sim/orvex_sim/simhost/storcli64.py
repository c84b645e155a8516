"""storcli64 (and storelibtest) wrappers: the parsed JSON sections of the
tool ("Basics", "PD LIST", "VD LIST", "/c0/v0", "PDs for VD 0", "VD0
Properties", "Drive /c0/e252/s0 - Detailed Information", "Controller
Properties" rows of Ctrl_Prop/Value, "VD Operation Status", ...), with the
value forms of the real tool: numbers for DID and DG, blank-padded serial
numbers and firmware revisions, counts and delays as text.  An HBA in IT
mode answers without "VD LIST" and "PD LIST" (its drives are listed per
enclosure) and with "PCI Version" in place of "Bus".  Actions answer
"success", or "failure: <reason>"."""
import datetime

from orvex_sim.simhost.common import ToolView, clock_text, parse_clock, passthru_bytes
from orvex_sim.simhost.model import Refused

STATE = {"ugood": "UGood", "online": "Onln", "offline": "Offln", "failed": "UBad",
         "rebuild": "Rbld", "copyback": "Cpybck", "jbod": "JBOD"}
VD_STATE = {"optimal": "Optl", "degraded": "Dgrd", "partially degraded": "Pdgd",
            "offline": "OfLn"}
OPERATION = {"cc": "CC", "init": "INIT", "bgi": "BGI", "vd_erase": "Erase", "expand": "OCE",
             "migrate": "Migrate"}
EMULATION = {"0": "default", "1": "none", "2": "force"}
WRITE = {"wt": "WT", "wb": "WB", "awb": "AWB"}
ON_OFF = ("on", "off")
OPERS = ("start", "stop", "pause", "resume")
CARDS = {"raid": "AVAGO MegaRAID SAS 9460-8i", "hba": "HBA 9500-16i"}


def _props(rows):
    return {"Controller Properties": [{"Ctrl_Prop": k, "Value": v} for k, v in rows]}


def _rows(pairs):
    return [{"Property": k, "Value": v} for k, v in pairs]


def _rate(p, key):
    value = str(p.get(key) or "").rstrip("%")
    value = {"low": "20", "medium": "30", "high": "50"}.get(value.lower(), value)
    if not value.isdigit() or not 0 <= int(value) <= 100:
        raise Refused("%s must be 0 to 100" % key)
    return value


class Storcli64(ToolView):
    OK = "success"

    def failure(self, reason):
        return "failure: %s" % reason

    @property
    def c(self):
        return "/c%d" % self.m.index

    # -- rendering ------------------------------------------------------------------
    def _size(self, gb):
        unit = "iB" if self.host.version == "new" else "B"
        return "%.3f T%s" % (gb / 1024.0, unit) if gb >= 1024 else "%.3f G%s" % (gb, unit)

    def _drive_size(self, d):
        """The newer tool prints an NVMe drive's size in decimal units
        ("800.00GB"); every other size is binary, named "GiB"/"TiB" by the
        newer tool and "GB"/"TB" by the older one ("1.091 TB")."""
        if d.interface == "NVMe" and self.host.version == "new":
            gb = d.size_bytes / 1e9
            return "%.2fTB" % (gb / 1000.0) if gb >= 1000 else "%.2fGB" % gb
        return self._size(d.size_gb)

    def _raw_size(self, d):
        return "%s [0x%x Sectors]" % (self._drive_size(d), d.sectors)

    def _path(self, d):
        return "%s/e%s/s%s" % (self.c, d.eid, d.sid) if d.eid else "%s/s%s" % (self.c, d.sid)

    def _pd_row(self, d):
        if d.state == "hotspare":
            state = "GHS" if d.spare_for is None else "DHS"
        else:
            state = STATE[d.state]
        return {"EID:Slt": "%s:%s" % (d.eid or " ", d.sid), "DID": d.did, "State": state,
                "DG": d.vd.array if d.vd else "-", "Size": self._drive_size(d),
                "Intf": d.interface, "Med": d.media, "SED": "N", "PI": "N",
                "SeSz": "%dB" % d.logical_sector, "Model": d.model,
                "Sp": "U" if d.phy_enabled else "D", "Type": "-"}

    def _vd_row(self, vd):
        return {"DG/VD": "%d/%d" % (vd.array, vd.vid), "TYPE": "RAID%s" % vd.level,
                "State": VD_STATE[vd.state],
                "Access": {"RW": "RW", "RO": "R", "Blocked": "B"}[vd.access],
                "Consist": "Yes" if vd.initialised else "No",
                "Cache": ("R" if vd.read == "RA" else "NR") + vd.write
                + ("D" if vd.io == "Direct" else "C"),
                "Cac": "-", "sCC": "ON", "Size": self._size(vd.size_gb), "Name": vd.name}

    def _vd_sections(self, vd):
        return {"%s/v%d" % (self.c, vd.vid): [self._vd_row(vd)],
                "PDs for VD %d" % vd.vid: [self._pd_row(d) for d in vd.drives],
                "VD%d Properties" % vd.vid: {
                    "Strip Size": "%d KB" % vd.strip_kb,
                    "Number of Blocks": int(vd.size_gb * 1024 * 1024 * 2), "Sector Size": "512 B",
                    "VD has Emulated PD": "Yes" if vd.emulation == "force" else "No",
                    "Span Depth": vd.spans,
                    "Number of Drives Per Span": len(vd.drives) // vd.spans,
                    "Write Cache(initial setting)": {"WB": "WriteBack", "WT": "WriteThrough",
                                                     "AWB": "AlwaysWriteBack"}[vd.write],
                    "Disk Cache Policy": {"default": "Disk's Default", "on": "Enabled",
                                          "off": "Disabled"}[vd.pdcache],
                    "Encryption": "None", "Data Protection": "Disabled",
                    "Active Operations": ", ".join(OPERATION[k] for k in vd.tasks) or "None",
                    "Exposed to OS": "No" if vd.hidden else "Yes",
                    "OS Drive Name": "" if vd.hidden else vd.os_name,
                    "Creation Date": "20-05-2024", "Creation Time": "09:30:00 AM",
                    "Emulation type": vd.emulation, "Is LD Ready for OS Requests": "Yes",
                    "SCSI NAA Id": vd.wwn, "Unmap Enabled": "No"}}

    def _drive_sections(self, d):
        name = "Drive " + self._path(d)
        cache = "N/A" if self.m.card.get("write_cache") == "N/A" else \
            "Enabled" if d.write_cache == "on" else "Disabled"
        return {
            name: [self._pd_row(d)],
            name + " - Detailed Information": {
                name + " State": {"Shield Counter": 0, "Media Error Count": d.media_errors,
                                  "Other Error Count": 0,
                                  "Drive Temperature": " 31C (87.80 F)",
                                  "Predictive Failure Count": d.predictive,
                                  "S.M.A.R.T alert flagged by drive":
                                      "Yes" if d.predictive else "No"},
                name + " Device attributes": {
                    "SN": d.serial.rjust(20), "Manufacturer Id": (
                        "ATA" if d.interface == "SATA" else "NVMe" if d.interface == "NVMe"
                        else "SEAGATE").ljust(8),
                    "Model Number": d.model, "NAND Vendor": "NA",
                    "WWN": d.sas_address[2:].upper(), "Firmware Revision": d.fw.ljust(8),
                    "Raw size": self._raw_size(d), "Coerced size": self._raw_size(d),
                    "Device Speed": "%sGb/s" % d.link_gbps, "Link Speed": "%sGb/s" % d.link_gbps,
                    "NCQ setting": "Enabled" if d.interface == "SATA" else "N/A",
                    "Write Cache" if self.host.version == "new" else "Write cache": cache,
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

    def _status(self, task, left="Estimated Time Left", **first):
        first.update({"Progress%": task.percent if task else "-",
                      "Status": ("Paused" if task.paused else "In progress") if task
                      else "Not in progress", left: self.minutes_left(task)})
        return first

    def _op_status(self, p, kind):
        vd = self.known(self.vd, p)
        return {"VD Operation Status": [self._status(vd.task(kind), VD=vd.vid,
                                                     Operation=OPERATION[kind])]}

    def _pd_status(self, p, kind, listed=True):
        d = self.known(self.drive, p)
        if kind == "copyback" and getattr(d, "copyback_target", None) \
                and d.copyback_target.task("copyback"):
            d = d.copyback_target
        answer = self._status(d.task(kind), **{"Drive-ID": self._path(d)})
        return [answer] if listed else answer

    def _drives(self, p, render):
        if "all" in (str(p.get("eid")), str(p.get("sid"))):
            drives = self.m.drives
        else:
            drives = [self.known(self.drive, p)]
        return render(drives)

    def _show_all(self, p=None):
        m, card = self.m, self.m.card
        hwcfg = {"ChipRevision": " C0", "BatteryFRU": "N/A", "Front End Port Count": 0,
                 "Backend Port Count": 8, "BBU": "Present", "Alarm": "Absent",
                 "Serial Debugger": "Present", "NVRAM Size": "128KB", "Flash Size": "16MB",
                 "On Board Memory Size": "2048MB", "CacheVault Flash Size": "8.000 GB",
                 "TPM": "Absent", "Upgrade Key": "Absent", "On Board Expander": "Absent",
                 "Temperature Sensor for ROC": "Present" if card.get("roc", True) else "Absent",
                 "Temperature Sensor for Controller": "Absent", "Upgradable CPLD": "Present",
                 "Upgradable PSOC": "Present", "Current Size of CacheCade (GB)": 0,
                 "Current Size of FW Cache (MB)": 1757}
        if card.get("roc", True):
            hwcfg["ROC temperature(Degree Celsius)"] = 54
        if card.get("pcie", True):
            hwcfg.update({"PCIe Link Width": "x8", "PCIe Link Speed": "8.0GT/s"})
        bus = {"Vendor Id": 4096, "Device Id": 230 if m.hba else 20, "SubVendor Id": 4096,
               "SubDevice Id": 16384 if m.hba else 37264, "Host Interface": "PCI-E",
               "Device Interface": "SAS-12G"}
        out = {
            "Basics": {"Controller": m.index, "Model": card.get("model", CARDS[
                "hba" if m.hba else "raid"]), "Serial Number": "SK920312%02d" % (34 + m.index),
                "Current Controller Date/Time": m.now().strftime("%m/%d/%Y, %H:%M:%S"),
                "Current System Date/time": self.host.clock.strftime("%m/%d/%Y, %H:%M:%S"),
                "SAS Address": "500605b00e6d%04x" % (0x1234 + m.index),
                "PCI Address": "00:%02x:00:00" % (0x3b + m.index * 0x20),
                "Mfg Date": "03/12/19", "Rework Date": "00/00/00", "Revision No": "05A"},
            "Version": {"Firmware Package Build": "51.13.0-3485",
                        "Firmware Version": m.fw_version, "CPLD Version": "26781-01",
                        "Bios Version": "7.13.00.0_0x070D0300", "PSOC FW Version": "0x001A",
                        "PSOC Part Number": "15132-270-512", "NVDATA Version": "5.1300.00-0460",
                        "Driver Name": "mpt3sas" if m.hba else "megaraid_sas",
                        "Driver Version": "43.100.00.00" if m.hba else "07.714.04.00-rc1"},
            "PCI Version" if m.hba else "Bus": bus if m.hba else dict(
                bus, **{"Bus Number": 59 + m.index * 32, "Device Number": 0,
                        "Function Number": 0, "Domain ID": 0}),
            "Status": {"Controller Status": "Optimal", "Memory Correctable Errors": 0,
                       "Memory Uncorrectable Errors": 0, "ECC Bucket Count": 0,
                       "Any Offline VD Cache Preserved": "No", "BBU Status": 0,
                       "PD Firmware Download in progress": "No",
                       "Support PD Firmware Download": "Yes", "Lock Key Assigned": "No",
                       "Failed to get lock key on bootup": "No",
                       "Bios was not detected during boot": "No",
                       "Controller must be rebooted to complete security operation": "No",
                       "A rollback operation is in progress": "No",
                       "At least one PFK exists in NVRAM": "No", "SSC Policy is WB": "No",
                       "Controller has booted into safe mode": "No",
                       "Controller shutdown required": "No"},
            "HwCfg": hwcfg,
            "Physical Drives": len(m.drives),
        }
        if m.hba:
            enclosures = {}
            for d in m.drives:
                enclosures.setdefault("Drive %s" % self._path(d).rsplit("/", 1)[0], []).append(
                    self._pd_row(d))
            out["Physical Device Information"] = enclosures
            return out
        out.update({"Virtual Drives": len(m.vds),
                    "VD LIST": [self._vd_row(v) for v in m.ordered_vds()],
                    "PD LIST": [self._pd_row(d) for d in m.drives],
                    "Cachevault_Info": self._cachevault()})
        return out

    def _cachevault(self):
        return [{"Model": "CVPM05", "State": self.m.cap_status,
                 "Temp": "%dC" % self.m.cap_temperature, "Mode": "-", "MfgDate": "2019/03/11"}]

    # -- handlers that are more than a translation ------------------------------------------
    def _create(self, p):
        spans = p.get("pd_per_array") and len(p.get("drives") or []) // int(p["pd_per_array"])
        self.m.create_vd(p.get("raid_level"), p.get("drives"), p.get("size"),
                         p.get("strip_size"), p.get("name"), spans,
                         init="full" if p.get("init") == "front" else None)

    def _delete(self, p):
        if str(p.get("vid")) != "all":
            return self.m.delete_vd(self.vd(p).vid, force=p.get("oper") == "force")
        if not self.m.vds:
            raise Refused("no virtual drive exists")
        for vd in self.m.ordered_vds():
            self.m.delete_vd(vd.vid, force=True)

    def _vd_cache(self, p):
        if "wrcache" in p:
            return self.m.set_vd(self.vd(p), write=self.choice(p, "wrcache", WRITE))
        if "rdcache" not in p:
            raise Refused("wrcache or rdcache is required")
        self.m.set_vd(self.vd(p), read=self.choice(p, "rdcache", {"ra": "RA", "nora": "NoRA"}))

    def _emulation(self, p):
        if str(p.get("emulationType")) not in EMULATION:
            raise Refused("emulationType must be 0, 1 or 2")
        self.m.set_vd(self.vd(p), emulation=EMULATION[str(p["emulationType"])])

    def _boot_drive(self, p):
        value = "-"
        for vd in self.m.ordered_vds():
            value = "VD:%d" % vd.vid if vd.boot == "on" else value
        for d in self.m.drives:
            value = "PD:%s:%s" % (d.eid, d.sid) if d.boot == "on" else value
        return _props([("Boot Drive", value)])

    def _copyback(self, p):
        oper = self.choice(p, "oper", OPERS)
        self.m.copyback_control(self.drive(p), oper, oper == "start" and self.m.find_drive(
            self.need(p, "target")))

    def _copyback_switch(self, p):
        kind = str(p.get("type") or "copyback").lower()
        if kind not in self.m.copyback:
            raise Refused("copyback type %s is unknown (copyback/smartssd/smarthdd)" % kind)
        self.m.configure(copyback=dict(self.m.copyback, **{kind: self.choice(p, "state",
                                                                              ON_OFF)}))

    def _log(self, p, head=()):
        lines = list(head) + ["%s: %s" % (when.strftime("%m/%d/%y %H:%M:%S"), text)
                              for when, text in self.m.events]
        return {"_raw": True, "parser": self.OK, "stdout": lines or ["no events"], "rc": 0}

    def _cv_all(self, p):
        m = self.m
        if p.get("information") == "simple":
            return {"Cachevault_Info": self._cachevault()}
        return {
            "Cachevault_Info": _rows([("Type", "CVPM05"), ("Model", "CVPM05"),
                                      ("Temperature", "%d C" % m.cap_temperature),
                                      ("State", m.cap_status)]),
            "Firmware_Status": _rows([("NVCache State", "OK"), ("Replacement required", "No"),
                                      ("No space to cache offload", "No"),
                                      ("Module microcode update required", "No")]),
            "GasGaugeStatus": _rows([("Pack Energy", "294 J"), ("Capacitance", "110 %"),
                                     ("Remaining Reserve Space", "0")]),
            "Design_Info": _rows([("Date of Manufacture", "11/03/2019"),
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
            "Properties": _rows([("Auto Learn Period", self._learn_period()),
                                 ("Next Learn time", self._learn_next())]),
        }

    def _learn_period(self):
        return "%dd (%d seconds)" % (self.m.learn_cycle_days, self.m.learn_cycle_days * 86400)

    def _learn_next(self):
        return self.m.learn_next.strftime("%Y/%m/%d  %H:%M:%S")

    def _cv_learn(self, p):
        m = self.m
        return {"Cachevault_Learn": _rows([
            ("Present", "Yes"), ("Learn Cycle Requested", "Yes" if m.learn_task else "No"),
            ("Learn Cycle Active", "Yes" if m.learn_task else "No"),
            ("Last Learn Status", "Success" if m.learn_last else "N/A"),
            ("Last Learn time", m.learn_last.strftime("%Y/%m/%d  %H:%M:%S")
             if m.learn_last else "N/A"),
            ("Auto Learn Period", self._learn_period()), ("Next Learn time", self._learn_next())])}

    def _patrol_info(self, p):
        m = self.m
        done = sum(1 for d in m.drives if d.task("patrol") and d.task("patrol").percent >= 100)
        state = ("Paused" if m.pr_paused else "Active %d" % done) if m.pr_running else "Stopped"
        return _props([("PR Mode", {"auto": "Auto", "manual": "Manual",
                                    "disable": "Disable"}[m.pr_mode]),
                       ("PR Execution Delay", "%d hours" % m.pr_delay_hours),
                       ("PR iterations completed", str(m.pr_iterations)),
                       ("PR Next Start time", m.pr_start_time or "-"),
                       ("PR on SSD", "Enabled" if m.pr_ssd == "on" else "Disabled"),
                       ("PR Current State", state), ("PR Excluded VDs", "None"),
                       ("PR MaxConcurrentPd", m.pr_pd_count)])

    def _patrol_set(self, p):
        options = {"pr_%s" % name: self.choice(p, key, ON_OFF) for key, name in (
            ("inc_ssd_state", "ssd"), ("uncfg_areas_state", "uncfg")) if p.get(key)}
        if p.get("prrate"):
            options["pr_rate"] = _rate(p, "prrate")
        self.m.set_patrol(p.get("delay") or None, p.get("pd_count") or None,
                          p.get("start_time") or None, **options)

    def _patrol_switch(self, p):
        if self.choice(p, "switch_status", ON_OFF) == "off":
            self.m.stop_patrol()
            return self.m.configure(pr_mode="disable")
        self.m.configure(pr_mode=self.choice(p, "mode", ("auto", "manual")) if p.get("mode")
                         else "auto")

    def _cc_set(self, p):
        excluded = p.get("excludevd")
        self.m.set_cc_schedule(
            self.choice(p, "cc", ("seq", "conc", "off")), p.get("start_time"),
            None if excluded in (None, "") else str(excluded).replace(" ", "").split(","),
            p.get("delay") or None)

    def _cc_info(self, p):
        m = self.m
        start = "-"
        if m.cc_start and m.cc_mode != "off":
            start = datetime.datetime.strptime(m.cc_start, "%Y/%m/%d %H").strftime(
                "%m/%d/%Y, %H:00:00")
        return _props([("CC Operation Mode", {"seq": "Sequential", "conc": "Concurrent",
                                              "off": "Disabled"}[m.cc_mode]),
                       ("CC Execution Delay", "%d hours" % m.cc_delay_hours),
                       ("CC Next Starttime", start),
                       ("CC Current State", "Active" if any(
                           v.task("cc") for v in m.vds.values()) else "Stopped"),
                       ("CC Number of iterations", str(m.cc_iterations)),
                       ("CC Number of VD completed", str(m.cc_completed)),
                       ("CC Excluded VDs", ",".join(str(v) for v in m.cc_excluded) or "None")])

    def _enclosures(self, p):
        out = {}
        for eid in sorted({d.eid for d in self.m.drives if d.eid}):
            out["Enclosure %s/e%s" % (self.c, eid)] = {
                "Information": {"Device ID": int(eid), "Position": 1,
                                "Connector Name": "C0.0 & C0.1", "Enclosure Type": "SAS3x28",
                                "FRU Part Number": "N/A", "Enclosure Serial Number": "N/A",
                                "ESM Serial Number": "N/A", "Enclosure Zoning Mode": "N/A",
                                "Partner Device ID": 65535},
                "Inquiry Data": {"Vendor Identification": "BROADCOM",
                                 "Product Identification": "Expander",
                                 "Product Revision Level": "0105",
                                 "Vendor Specific": "x36-254.9.1.5"},
                "Properties": [{"EID": int(eid), "State": "OK", "Slots": 8, "PD": len(
                    [d for d in self.m.drives if d.eid == eid]), "PS": 0, "Fans": 0, "TSs": 1,
                    "Alms": 0, "SIM": 0, "ProdID": "Expander"}],
                "EnclSasAddress": [{"Sr.No": 0, "SAS address": "0x500605b0000272bf"}]}
        return out

    def _phy_info(self, p):
        lines = []
        for n in p.get("phy_list") or []:
            if not 0 <= int(n) < len(self.m.drives):
                raise Refused("phy %s does not exist" % n)
            d = self.m.drives[int(n)]
            lines.append("phy %d: link %s, rate %sGb/s, attached %s" % (
                n, "up" if d.phy_enabled else "down", d.link_gbps, d.sas_address))
        return [""] + lines + [""]

    def _phy_reset(self, p):
        kind = str(p.get("reset_type", "")).lower()
        if kind not in ("1", "2", "link", "hard"):
            raise Refused("reset type %s is unknown (1/link, 2/hard)" % kind)
        name = "hard" if kind in ("2", "hard") else "link"
        return [""] + ["phy %d: %s reset done" % (n, name) for n in p.get("phy_list") or []]

    def _passthru(self, p):
        d = self.drive(p)
        if str(p.get("did")) != str(d.did):
            raise Refused("device id %s does not match drive %s" % (p.get("did"), d.address))
        if str(p.get("data_transfer", "2")) in ("0", "notransfer", "notransferwithsense"):
            return "Command status: success"
        data = passthru_bytes(d, p.get("command_passthru", ""))
        return ["Command status: success"] + ["%04x: %s" % (
            offset, " ".join("%02x" % b for b in data[offset:offset + 16]))
            for offset in range(0, len(data), 16)]

    def _smart(self, p):
        return {self._path(d): {
            "SMART overall-health self-assessment test result":
                "FAILED!" if d.predictive else "PASSED",
            "Current Drive Temperature": "31 C", "Accumulated power on time": "8760:00",
            "Elements in grown defect list": d.media_errors}
            for d in self.known(self.vd, p).drives}

    # -- wrapper name -> handler(view, params) ------------------------------------------------
    WRAPPERS = {
        # discovery and information
        "get_controller_number_storcli64": lambda v, p: str(len(v.host.controllers)),
        "ctr_get_all_cfg_storcli64": _show_all,
        "storcli64_get_lsi_raid_detail_config": lambda v, p: [{"parser": v._show_all(),
                                                               "rc": 0}],
        # physical drives
        "ctr_get_pd_cfg_storcli64": lambda v, p: v._drives(p, lambda ds: {
            k: s for d in ds for k, s in v._drive_sections(d).items()}),
        "pd_set_state_storcli64": lambda v, p: v.m.set_drive_state(v.drive(p), v.choice(
            p, "state", {"online": "online", "offline": "offline", "good": "ugood",
                         "jbod": "jbod", "missing": "offline"}), p.get("force")),
        "pd_set_hotspare_drive_storcli64": lambda v, p: v.m.make_spare(
            v.drive(p), p.get("ar_id", p.get("dgs"))) if v.choice(p, "oper", (
                "add", "delete")) == "add" else v.m.release_spare(v.drive(p)),
        "ctr_set_rebuild_storcli64": lambda v, p: v.m.rebuild(v.drive(p),
                                                              v.choice(p, "oper", OPERS)),
        "ctr_get_rebuild_cfg_storcli64": lambda v, p: v._pd_status(p, "rebuild", False),
        "set_pd_insert_storcli64": lambda v, p: v.m.insert_drive(
            v.drive(p), int(v.need(p, "dg")), int(v.need(p, "row"))),
        "pd_set_bootdrive_storcli64": lambda v, p: v.m.set_boot(
            v.drive(p), v.choice(p, "bootdrive", ON_OFF)),
        "ctr_set_device_order_by_firmware": lambda v, p: None,
        "pd_set_erase_storcli64": lambda v, p: v.m.drive_task(
            v.drive(p), "erase", v.choice(p, "oper", ("start", "stop")), p.get("mode")),
        "pd_get_erase_storcli64": lambda v, p: v._pd_status(p, "erase"),
        "start_pd_sanitize_storcli64": lambda v, p: v.m.drive_task(
            v.drive(p), "sanitize", mode=p.get("mode")),
        "get_pd_sanitize_storcli64": lambda v, p: v._pd_status(p, "sanitize"),
        "pd_copyback_func_storcli64": _copyback,
        "pd_copyback_show_storcli64": lambda v, p: v._pd_status(p, "copyback"),
        "pd_update_fw_storcli64": lambda v, p: v.m.flash(v.need(p, "fw_file"), v.drive(p)),
        # virtual drives
        "ctr_create_vd_storcli64": _create,
        "ctr_delete_vd_storcli64": _delete,
        "ctr_get_vd_cfg_storcli64": lambda v, p: {
            k: s for vd in (v.m.ordered_vds() if p.get("vid") in (None, "all")
                            else [v.known(v.vd, p)]) for k, s in v._vd_sections(vd).items()},
        "vd_set_cache_storcli64": _vd_cache,
        "vd_set_iopolicy_storcli64": lambda v, p: v.m.set_vd(v.vd(p), io=v.choice(
            p, "iopolicy", {"direct": "Direct", "cached": "Cached"})),
        "vd_set_pdcache_storcli64": lambda v, p: v.m.set_vd(v.vd(p), pdcache=v.choice(
            p, "pdcache", ("on", "off", "default"))),
        "set_vd_emulation_storcli64": _emulation,
        "set_vd_hidden_storcli64": lambda v, p: v.m.set_vd(
            v.vd(p), hidden=v.choice(p, "state", ON_OFF) == "on"),
        "set_vd_access_storcli64": lambda v, p: v.m.set_vd(v.vd(p), access=v.choice(
            p, "accesspolicy", {"rw": "RW", "ro": "RO", "blocked": "Blocked"})),
        "vd_set_bootdrive_storcli64": lambda v, p: v.m.set_boot(
            v.vd(p), v.choice(p, "bootdrive", ON_OFF)),
        "ctr_get_boot_drive_storcli64": _boot_drive,
        "vd_state_cc_storcli64": lambda v, p: v.m.vd_task(
            v.vd(p), "cc", v.choice(p, "state", OPERS), force=p.get("force") == "force"),
        "ctr_get_cc_status_storcli64": lambda v, p: v._op_status(p, "cc"),
        "vd_state_init_storcli64": lambda v, p: v.m.vd_task(
            v.vd(p), "init", v.choice(p, "state", ("start", "stop"))),
        "ctr_get_init_info_storcli64": lambda v, p: v._op_status(p, "init"),
        "get_virtual_drive_bgi_state_storcli64": lambda v, p: v._op_status(p, "bgi"),
        "ctr_set_bgi_switch_storcli64": lambda v, p: v.m.set_vd(
            v.vd(p), autobgi=v.choice(p, "state", ON_OFF) == "on"),
        "vd_set_erase_storcli64": lambda v, p: v.m.vd_task(
            v.vd(p), "vd_erase", v.choice(p, "oper", ("start", "stop")), mode=p.get("mode")),
        "vd_get_erase_storcli64": lambda v, p: v._op_status(p, "vd_erase"),
        "vd_set_expand_size_storcli64": lambda v, p: v.m.grow_vd(
            v.vd(p), v.vd(p).size_gb + v.size_gb(p)),
        "vd_add_pd_expand_array_storcli64": lambda v, p: v.m.add_vd_drives(v.vd(p),
                                                                           p.get("drives")),
        "vd_get_expand_info_storcli64": lambda v, p: v._op_status(p, "expand"),
        "vd_start_migrate_storcli64": lambda v, p: v.m.migrate_vd(v.vd(p),
                                                                  v.need(p, "raid_level")),
        "vd_get_migrate_info_storcli64": lambda v, p: v._op_status(p, "migrate"),
        "vd_get_smartinfo_smartctl_storcli64": _smart,
        "ctr_get_ssd_caching_storcli64": lambda v, p: {"VD LIST": []},
        "vd_foreign_operate_storcli64": lambda v, p: v.m.resolve_foreign(
            v.choice(p, "oper", ("delete", "import")) == "import"),
        # controller settings
        "ctr_get_jbod_storcli64": lambda v, p: _props([("JBOD", "ON" if v.m.jbod else "OFF")]),
        "ctr_set_jbod_cfg_storcli64": lambda v, p: v.m.set_jbod(
            v.choice(p, "state", ON_OFF) == "on", p.get("force")),
        "ctr_get_controll_time_storcli64": lambda v, p: {"Controller": [
            {"Ctrl_Prop": "Time", "Value": clock_text(v.m.now())}]},
        "ctr_set_controll_time_storcli64": lambda v, p: v.m.set_clock(
            parse_clock(p["ctl_time"]) if p.get("ctl_time") else v.host.clock),
        "set_ctl_restart_storcli64": lambda v, p: v.m.reset(),
        "set_ctl_restart_switch_storcli64": lambda v, p: v.m.configure(
            restart_switch=v.choice(p, "state", ON_OFF)),
        "set_ctl_auto_rebuild_storcli64": lambda v, p: v.m.configure(
            auto_rebuild=v.choice(p, "state", ON_OFF) == "on"),
        "ctr_get_eghs_storcli64": lambda v, p: _props([
            ("EmergencyGHS", v.m.eghs["state"].upper()),
            ("EmergencyUG", v.m.eghs["eug"].upper()),
            ("EmergencySMARTer", v.m.eghs["smarter"].upper())]),
        "ctr_set_eghs_cfg_storcli64": lambda v, p: v.m.configure(eghs=dict(v.m.eghs, **{
            k: v.choice(p, k, ON_OFF) for k in v.some(p, "eug", "state", "smarter")})),
        "ctr_get_bootwithpinnedcache_storcli64": lambda v, p: _props([
            ("Boot With Pinned Cache", v.m.pinned_cache_boot.upper())]),
        "ctr_set_bootwithpinnedcache_storcli64": lambda v, p: v.m.configure(
            pinned_cache_boot=v.choice(p, "state", ON_OFF)),
        "ctr_get_copyback_storcli64": lambda v, p: _props([
            ("Copyback", v.m.copyback["copyback"].upper()),
            ("SMARTer Copyback for SSD", v.m.copyback["smartssd"].upper()),
            ("SMARTer Copyback for HDD", v.m.copyback["smarthdd"].upper())]),
        "ctr_set_copyback_cfg_storcli64": _copyback_switch,
        # firmware and logs
        "ctr_update_fw_storcli64": lambda v, p: v.m.flash(v.need(p, "fw_file")),
        "ctr_get_log_storcli64": _log,
        "ctr_get_alilog_storcli64": lambda v, p: v._log(p, (
            "Controller = %d" % v.m.index, "Status = Success")),
        # supercapacitor
        "ctr_get_cv_all_storcli64": _cv_all,
        "ctr_start_cv_learn_storcli64": lambda v, p: v.m.learn(),
        "ctr_get_cv_learn_storcli64": _cv_learn,
        # patrol read
        "ctr_get_patrolread_storcli64": _patrol_info,
        "ctr_state_pr_storcli64": lambda v, p: v.m.patrol(v.choice(p, "oper", OPERS)),
        "ctr_get_patrolread_cfg_storcli64": lambda v, p: v._drives(p, lambda ds: [
            v._status(d.task("patrol"), "Estimated time left", **{"Drive-ID": v._path(d)})
            for d in ds]),
        "ctr_get_prrate_storcli64": lambda v, p: {"Controller Properties": {
            "Ctrl_Prop": "Patrol Read Rate", "Value": "%s%%" % v.m.pr_rate}},
        "ctr_set_prrate_storcli64": lambda v, p: v.m.configure(pr_rate=_rate(p, "prrate")),
        "ctr_set_patrolread_storcli64": _patrol_set,
        "ctr_set_pr_switch_storcli64": _patrol_switch,
        # consistency check schedule
        "ctr_set_cc_cfg_storcli64": _cc_set,
        "ctr_get_cc_storcli64": _cc_info,
        "ctr_get_ccrate_storcli64": lambda v, p: {"Controller Properties": {
            "Ctrl_Prop": "CC Rate", "Value": "%s%%" % v.m.cc_rate}},
        "ctr_set_ccrate_storcli64": lambda v, p: v.m.configure(cc_rate=_rate(p, "ccrate")),
        # enclosure and PHYs
        "ctr_get_enclosure_storcli64": _enclosures,
        "ctr_get_phy_cfg_storcli64": lambda v, p: {"Phy Error Counters": [
            {"Phy": n, "Invalid DWord Count": 0, "Running Disparity Error Count": 0,
             "Loss of DWord Sync Count": 1 if n == 3 else 0, "Phy Reset Problem Count": 0}
            for n in range(8)]},
        "get_phy_count_storelibtest": lambda v, p: ["", "8", ""],
        "get_phy_info_storelibtest": _phy_info,
        "send_phy_control_storelibtest": _phy_reset,
        "send_ctr_storelibtest_passthru": _passthru,
    }
