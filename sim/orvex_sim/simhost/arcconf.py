"""arcconf wrappers: the tool's GETCONFIG output parsed into snake_case
sections ("controller_information", "physical_device_information",
"logical_device_information" keyed "logical_device_number_<n>",
"logical_device_task", ...).  Actions answer "Command completed
successfully.", or "Command failed: <reason>"."""

from orvex_sim.simhost.common import ToolView, passthru_bytes, wrappers
from orvex_sim.simhost.model import ERASE_SECONDS, NotFound, Refused, Task

STATE = {"ugood": "Ready", "online": "Online", "offline": "Offline", "failed": "Failed",
         "rebuild": "Rebuilding", "copyback": "Copyback", "hotspare": "Hot Spare",
         "jbod": "Raw (Pass Through)"}
VD_STATE = {"optimal": "Optimal", "degraded": "Degraded", "partially degraded": "Degraded",
            "offline": "Failed"}
MODES = {"2": "HBA", "3": "RAID (Hide RAW)", "5": "Mixed"}
TASKS = {"rebuild": "Rebuild", "init": "Build/Verify", "bgi": "Build/Verify", "cc": "Verify",
         "expand": "Expand", "migrate": "Migrate", "vd_erase": "Clear"}


def mb(gb):
    return "%d MB" % int(gb * 1024)


@wrappers
class Arcconf(ToolView):
    OK = "Command completed successfully."

    def failure(self, reason):
        return "Command failed: %s" % reason

    # -- rendering --------------------------------------------------------------------
    def _boot_text(self, which):
        for vd in self.m.ordered_vds():
            if vd.boot == which:
                return "Logical Device %d" % vd.vid
        for d in self.m.drives:
            if d.boot == which:
                return "Physical Device (Channel %s, Device %s)" % (d.eid, d.sid)
        return "None"

    def _controller(self):
        m = self.m
        running = any(v.task("cc") for v in m.vds.values())
        return {
            "controller_status": "Optimal", "controller_mode": MODES[m.mode],
            "channel_description": "SCSI", "controller_model": "Adaptec SmartRAID 3154-8i",
            "vendor_id": "0x9005", "device_id": "0x028F", "subsystem_vendor_id": "0x9005",
            "subsystem_device_id": "0x1380", "pci_domain": "0", "pci_bus": "94",
            "pci_device": "0", "pci_function": "0", "pcie_link_width": "x8",
            "pcie_link_speed": "8000 MB/s", "controller_serial_number": "8A4820B4A3C",
            "controller_sas_address": "50000D1E002F4C80", "firmware": m.fw_version,
            "driver": "Linux 2.1.20-035", "psoc_part_number": "N/A", "psoc_firmware": "N/A",
            "temperature": "48 C/ 118 F (Normal)", "installed_memory": "4096 MB",
            "physical_devices": str(len(m.drives)), "logical_devices": str(len(m.vds)),
            "global_physical_device_write_cache_policy": "Drive Specific",
            "unconfigured_physical_device_write_cache_policy": {
                "default": "Drive Specific", "on": "Enabled", "off": "Disabled"}[
                m.unconfigured_pdcache],
            "primary_boot_volume": self._boot_text("primary"),
            "secondary_boot_volume": self._boot_text("secondary"),
            "background_consistency_check": {"off": "Disabled", "seq": "Enabled",
                                             "conc": "Enabled"}[m.cc_mode],
            "consistency_check_delay": "%d hours" % m.cc_delay_hours,
            "consistency_check_next_start_time": m.cc_start or "Not Applicable",
            "consistency_check_status": "In Progress" if running else "Idle",
            "consistency_check_iterations": str(m.cc_iterations),
            "consistency_check_completed_logical_devices": str(m.cc_completed),
            "consistency_check_excluded_logical_devices": ",".join(
                str(v) for v in m.cc_excluded) or "None",
            "parallel_consistency_check_supported": "Enabled",
            "consistency_check_parallel_count": str(m.cc_parallel),
            "inconsistency_repair_policy": m.cc_repair.capitalize() + "d",
            "backup_unit_status": "Pack Missing" if m.cap_pack_missing else "Ready",
            "backup_unit_type": "Supercap", "backup_unit_model": "AFM-700",
            "backup_unit_temperature": "%d C" % m.cap_temperature,
            "backup_unit_serial_number": "5A9C3F12", "supercap_serial_number": "N20392",
            "supercap_module_version": "2.1", "supercap_date_of_manufacture": "2019-08-02",
            "backup_unit_date_of_manufacture": "2019-08-02", "supercap_pcb_version": "C",
            "supercap_design_capacity": "5 F", "backup_unit_vendor": "Microsemi",
        }

    def _pd_brief(self, d):
        return {"Device Number": str(d.did), "State": STATE[d.state],
                "Type": "Hard drive" if d.media == "HDD" else "Solid state drive",
                "SSD": "Yes" if d.media == "SSD" else "No",
                "Transfer Speed": "%s %s Gb/s" % (d.interface, d.link_gbps),
                "Total Size": mb(d.size_gb), "Model": d.model, "Serial number": d.serial,
                "Reported Location": "Enclosure 0, Slot %s" % d.sid}

    def _pd_detail(self, d):
        return {
            "device_number": str(d.did), "state": STATE[d.state],
            "reported_channel_device_t_l": "%s,%s(%s:0)" % (d.eid, d.sid, d.sid),
            "reported_location": "Enclosure 0, Slot %s" % d.sid,
            "vendor": "SEAGATE" if d.model.startswith("ST") else "ATA", "model": d.model,
            "firmware": d.fw, "serial_number": d.serial, "sas_address": d.sas_address[2:],
            "transfer_speed": "%s %s Gb/s" % (d.interface, d.link_gbps),
            "total_size": mb(d.size_gb), "ssd": "Yes" if d.media == "SSD" else "No",
            "power_state": "Full rpm" if d.phy_enabled else "Powered off",
            "block_size": "%d Bytes" % d.logical_sector,
            "physical_block_size": "%d Bytes" % d.physical_sector,
            "write_cache": {"on": "Enabled (write-back)", "off": "Disabled (write-through)",
                            "default": "Disabled (write-through)"}[d.write_cache],
            "disk_name": "/dev/sd%s" % "hijklmno"[int(d.sid)] if d.state == "jbod" else "N/A",
            "boot_type": {"off": "None", "primary": "Primary", "secondary": "Secondary"}[d.boot],
        }

    def _ld(self, vd):
        task = None
        for kind in ("init", "bgi", "cc", "expand", "migrate", "vd_erase"):
            if vd.task(kind):
                task = (kind, vd.task(kind))
                break
        out = {
            "logical_device_number": str(vd.vid), "logical_device_name": vd.name or
            "LogicalDrv %d" % vd.vid, "disk_name": vd.os_name, "block_size_of_member_drives":
            "512 Bytes", "array": str(vd.array), "raid_level": vd.level,
            "status_of_logical_device": VD_STATE[vd.state], "size": mb(vd.size_gb),
            "stripe-unit_size": "%d KB" % vd.strip_kb,
            "full_stripe_size": "%d KB" % (vd.strip_kb * max(1, len(vd.drives) // 2)),
            "interface_type": "Serial Attached SCSI",
            "device_type": "Data", "boot_type": {"off": "None", "primary": "Primary",
                                                 "secondary": "Secondary"}[vd.boot],
            "heads": "255", "sectors_per_track": "32", "cylinders": "65535",
            "write-cache_setting": "Enabled (write-back)" if vd.write in ("WB", "AWB")
            else "Disabled (write-through)",
            "read-cache_setting": "Enabled" if vd.read == "RA" else "Disabled",
            "caching": "Enabled", "parity_initialization_status": (
                "In Progress" if vd.task("bgi") or vd.task("init") else
                "Completed" if vd.initialised else "Not Applicable" if vd.level in
                ("0", "1", "10") else "Queued"),
            "background_task": TASKS[task[0]] if task else "None",
            "background_task_progress": "%d%%" % task[1].percent if task else "Not Applicable",
            "background_task_time_left": self.minutes_left(task[1]) if task else "Not Applicable",
        }
        for n, d in enumerate(vd.drives):
            out["device_%d" % n] = "%s (%sMB, %s, %s) Enclosure:0, Slot:%s) Channel:%s, Device:%s %s" % (
                "Present" if d.state == "online" else STATE[d.state], int(d.size_gb * 1024),
                d.interface, d.media, d.sid, d.eid, d.sid, d.serial)
        return out

    def _lds(self):
        return {"logical_device_number_%d" % vd.vid: self._ld(vd) for vd in self.m.ordered_vds()}

    # -- discovery and configuration ------------------------------------------------------
    def get_controller_number_arcconf(self, p):
        return "1"

    def ctr_get_adpt_cfg_arcconf(self, p):
        return {"controller_information": self._controller()}

    def ctr_get_cfg_arcconf(self, p):
        devices = {"%s,%s(%s:0)" % (d.eid, d.sid, d.sid): self._pd_brief(d) for d in self.m.drives}
        devices["Physical 2,0"] = {"Device Number": "8", "State": "Ready",
                                   "Type": "Enclosure Services Device", "Model": "Expander",
                                   "Vendor": "ADAPTEC", "Firmware": "0105",
                                   "[Location]": "Connector 0:CN0"}
        return {"controller_information": self._controller(),
                "logical_device_information": self._lds(),
                "physical_device_information": devices}

    def ctr_get_pd_cfg_arcconf(self, p):
        channel = {"device_%s" % d.sid: self._pd_detail(d) for d in self.m.drives}
        return {"physical_device_information": {
            "channel_0": channel,
            "channel_2": {"device_0": {"device_number": "8", "enclosure_id": "0",
                                       "type": "Enclosure Services Device",
                                       "model": "Expander", "firmware": "0105"}}}}

    def ctr_get_vd_cfg_arcconf(self, p):
        return {"logical_device_information": self._lds()}

    def ctr_get_expander_cfg_arcconf(self, p):
        return [{"expander_id": "0", "reported_channel,device": "2,0(0:0)",
                 "vendor": "ADAPTEC", "model": "Expander", "firmware": "0105",
                 "wwid": "500605B0000272BF"}]

    def get_controller_pd_phyerror_arcconf(self, p):
        return {str(n): {"invalid_dword_count": "0", "running_disparity_error_count": "0",
                         "loss_of_dword_sync_count": "1" if n == 3 else "0",
                         "phy_reset_problem_count": "0", "sata_crc_error_count": "0"}
                for n in range(8)}

    def ctr_get_controller_bgtask_arcconf(self, p):
        lds, pds = [], []
        for vd in self.m.ordered_vds():
            for kind, task in vd.tasks.items():
                lds.append(self._task(task, TASKS[kind], logical_device=str(vd.vid)))
        for d in self.m.drives:
            rebuild = d.task("rebuild")
            if rebuild and d.vd is not None:
                lds.append(self._task(rebuild, "Rebuild", logical_device=str(d.vd.vid)))
            for kind, name in (("erase", "Secure Erase"), ("copyback", "Copyback")):
                if d.task(kind):
                    pds.append(self._task(d.task(kind), name, channel=d.eid, device=d.sid))
        return {"logical_device_task": lds, "physical_device_task": pds}

    def _task(self, task, name, **where):
        out = {"controller": "1"}
        out.update(where)
        out.update({"current_operation": name,
                    "status": "Paused" if task.paused else "In Progress", "priority": "High",
                    "percentage_complete": str(task.percent),
                    "estimated_time_left": self.minutes_left(task)})
        return out

    def ctr_get_maxcache_arcconf(self, p):
        return {"logical_device_information": {}}

    # -- controller settings -----------------------------------------------------------------
    def ctr_set_ctrl_mode_arcconf(self, p):
        mode = str(p.get("mode"))
        if mode not in MODES:
            raise Refused("controller mode %s is unknown (2 HBA, 3 RAID, 5 Mixed)" % mode)
        if mode == "2" and self.m.vds:
            raise Refused("logical devices exist; HBA mode needs none")
        self.m.mode = mode
        self.m.jbod = mode in ("2", "5")
        return self.OK

    def set_controller_pdcache_arcconf(self, p):
        state = p.get("state")
        kind = p.get("drive_type")
        if kind == "configured":
            vd = self.vd(p)
            value = {"0": "default", "1": "on", "2": "off", "3": None}.get(str(state), "bad")
            if value == "bad" or state is None:
                raise Refused("write cache mode %s is unknown" % state)
            if value is not None:
                vd.pdcache = value
                for d in vd.drives:
                    d.write_cache = value
            return self.OK
        if kind != "unconfigured" or str(state) not in ("1", "2"):
            raise Refused("write cache state %s is unknown" % state)
        self.m.unconfigured_pdcache = "on" if str(state) == "1" else "off"
        for d in self.m.drives:
            if d.state == "ugood":
                d.write_cache = self.m.unconfigured_pdcache
        return self.OK

    def ctl_set_ccrepair_arcconf(self, p):
        self.m.cc_repair = self.choice(p, "repair_state", ("enable", "disable"))
        return self.OK

    def ctl_set_cc_parallelcount_arcconf(self, p):
        count = str(self.need(p, "pd_count"))
        if not count.isdigit() or not 1 <= int(count) <= 16:
            raise Refused("parallel count must be 1 to 16")
        self.m.cc_parallel = int(count)
        return self.OK

    # -- logical devices ---------------------------------------------------------------------
    def ctr_create_vd_arcconf(self, p):
        init = p.get("init")
        if init is not None and init not in ("build", "default", "clear", "quick", "skip"):
            raise Refused("initialisation method %s is unknown" % init)
        self.m.create_vd(p.get("raid_level"), p.get("drives"), p.get("size"),
                         p.get("strip_size"), p.get("name"), p.get("legs"),
                         init="full" if init in ("build", "clear") else
                         "none" if init == "skip" else None)
        return self.OK

    def delete_vd_arcconf(self, p):
        self.m.delete_vd(self.vd(p).vid, force=True)
        return self.OK

    def set_vd_wcache_arcconf(self, p):
        vd = self.vd(p)
        policy = self.choice(p, "policy", ("con", "coff"))
        if "rdcache" in p:
            vd.read = "RA" if policy == "con" else "NoRA"
        else:
            wanted = str(p.get("wrcache", "")).lower()
            vd.write = ("AWB" if wanted == "awb" else "WB") if policy == "con" else "WT"
        return self.OK

    def set_vd_boot_arcconf(self, p):
        vd = self.vd(p)
        state = self.choice(p, "state", ("primary", "secondary", "none"))
        if state != "none":
            for other in self.m.vds.values():
                if other.boot == state:
                    other.boot = "off"
            for d in self.m.drives:
                if d.boot == state:
                    d.boot = "off"
        vd.boot = "off" if state == "none" else state
        return self.OK

    def vd_set_expand_size_arcconf(self, p):
        from orvex_sim.simhost.model import data_drives, parse_size_gb
        vd = self.vd(p)
        size = parse_size_gb(self.need(p, "size"))
        room = data_drives(vd.level, len(vd.drives), vd.spans) * min(
            d.size_gb for d in vd.drives)
        if size <= vd.size_gb or size > room + 1e-6:
            raise Refused("new size must lie between %.0f and %.0f GB" % (vd.size_gb, room))

        def done():
            vd.size_gb = size
        self.m.start_vd_task(vd, "expand", on_done=done)
        return self.OK

    def vd_add_pd_expand_array_arcconf(self, p):
        return self.add_vd_drives(p, "the drives to add must be ready")


    def vd_start_migrate_arcconf(self, p):
        return self.migrate_vd(p, str(self.need(p, "raid_level")),
                               "logical device %d cannot migrate to RAID %s")


    def vd_get_smartinfo_smartctl_arcconf(self, p):
        try:
            vd = self.vd(p)
        except Refused as why:
            raise NotFound(str(why))
        return {"%s,%s" % (d.eid, d.sid): {"SMART overall-health self-assessment test result":
                                           "PASSED", "Current Drive Temperature": "31 C"}
                for d in vd.drives}

    # -- physical devices --------------------------------------------------------------------
    def pd_set_state_arcconf(self, p):
        d = self.drive(p)
        state = self.choice(p, "state", ("hsp", "rdy", "ddd", "eed"))
        if state == "ddd":
            if d.state in ("failed", "offline"):
                raise Refused("device %s is already failed" % d.address)
            self.m.fail_drive(d, "forced failed")
        elif state == "rdy":
            if d.vd is not None and d.state != "failed":
                raise Refused("device %s is part of logical device %d" % (d.address, d.vd.vid))
            d.state, d.spare_for = "ugood", None
        elif state == "eed":
            if d.vd is None or d.state not in ("failed", "offline"):
                raise Refused("device %s is not a failed member" % d.address)
            d.state = "online"
        else:
            if d.state != "ugood":
                raise Refused("device %s is not ready" % d.address)
            d.state, d.spare_for = "hotspare", None
        return self.OK

    def set_controller_pd_hotspare_arcconf(self, p):
        d = self.drive(p)
        oper = self.choice(p, "oper", ("hsp", "rdy"))
        if oper == "hsp":
            if d.state != "ugood" or d.foreign:
                raise Refused("device %s is not ready" % d.address)
            array = p.get("ar_id")
            if array not in (None, ""):
                if int(array) not in [v.array for v in self.m.vds.values()]:
                    raise Refused("array %s does not exist" % array)
            d.spare_for = int(array) if array not in (None, "") else None
            d.state = "hotspare"
        else:
            if d.state != "hotspare":
                raise Refused("device %s is not a hot spare" % d.address)
            d.state, d.spare_for = "ugood", None
        return self.OK

    def set_controller_pd_boot_arcconf(self, p):
        d = self.drive(p)
        state = self.choice(p, "state", ("primary", "secondary", "none"))
        raw = d.state == "jbod" or (self.m.mode == "5" and d.state == "ugood")
        if state != "none" and not raw:
            raise Refused("only a raw device (Mixed mode) can be a boot device")
        if state != "none":
            for other in list(self.m.drives) + list(self.m.vds.values()):
                if other.boot == state:
                    other.boot = "off"
        d.boot = "off" if state == "none" else state
        return self.OK

    def set_ctr_pd_erase_arcconf(self, p):
        d = self.drive(p)
        oper = self.choice(p, "oper", ("start", "stop"))
        if oper == "start":
            if d.state != "ugood":
                raise Refused("device %s is not ready" % d.address)
            mode = self.choice(p, "mode", tuple(ERASE_SECONDS))
            if d.task("erase"):
                raise Refused("an erase is already running on device %s" % d.address)
            d.tasks["erase"] = Task("erase", ERASE_SECONDS[mode])
        else:
            if not d.task("erase"):
                raise Refused("no erase in progress on device %s" % d.address)
            d.tasks.pop("erase")
        return self.OK

    # -- firmware, logs, pass-through ----------------------------------------------------------
    def update_controller_fw_arcconf(self, p):
        path = str(self.need(p, "fw_file"))
        if not path.lower().endswith(".bin"):
            raise Refused("%s is not a controller firmware image" % path)
        self.m.fw_version = "4.72"
        self.m.log("firmware flashed from %s" % path)
        return self.OK

    def update_pd_fw_arcconf(self, p):
        d = self.drive(p)
        path = str(self.need(p, "fw_file"))
        if not path.lower().endswith((".bin", ".lod", ".fw")):
            raise Refused("%s is not a drive firmware image" % path)
        d.fw = d.fw + "a"
        return self.OK

    def get_controller_log_arcconf(self, p):
        path = "/var/log/Support/Firmware/Controller_1_Log.txt"
        lines = ["%s %s" % (when.strftime("%Y-%m-%d %H:%M:%S"), text)
                 for when, text in self.m.events] or ["no events"]
        self.host.files[path] = "\n".join(lines) + "\n"
        return "Controller 1 firmware log saved to %s" % path

    def send_controller_pd_passthru_arcconf(self, p):
        d = self.drive(p)
        data = passthru_bytes(d, p.get("command_passthru", ""))
        text = " ".join("%02x" % b for b in data)
        if p.get("data_transfer") == "notransfer":
            return "Command sent to device %s" % d.address
        if p.get("file_path"):
            self.host.files[str(p["file_path"])] = text + "\n"
            return "Data saved to %s" % p["file_path"]
        return text
