"""arcconf wrappers: the tool's GETCONFIG output parsed into snake_case
sections ("controller_information", "physical_device_information",
"logical_device_information" keyed "logical_device_number_<n>",
"logical_device_task", ...).  A logical device lists its members as
"Present (286102MB, SAS, HDD, Channel:0, Device:0) SERIAL", or with the
newer tool version "Present (457862MB, SATA, SSD, Connector:0, Device:0)
SERIAL".  Actions answer "Command completed successfully.", or "Command
failed: <reason>"."""

from orvex_sim.simhost.common import ToolView, passthru_bytes
from orvex_sim.simhost.model import Refused

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


BOOT = {"primary": "primary", "secondary": "secondary", "none": "off"}


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
            "channel_description": "SCSI", "controller_model": m.card.get("model", "Adaptec HBA 1100-8i" if m.hba
                                            else "Adaptec SmartRAID 3154-8i"),
            "vendor_id": "0x9005", "device_id": "0x028F", "subsystem_vendor_id": "0x9005",
            "subsystem_device_id": "0x1380", "pci_domain": "0", "pci_bus": "94",
            "pci_device": "0", "pci_function": "0", "pcie_link_width": "x8",
            "pcie_link_speed": "8000 MB/s", "controller_serial_number": "8A4820B4A3%X" % (0xC + m.index),
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
            "s.m.a.r.t.": "Yes" if d.predictive else "No",
            "s.m.a.r.t._warnings": str(d.predictive), "media_failures": str(d.media_errors),
        }

    def _ld(self, vd):
        task = None
        for kind in ("init", "bgi", "cc", "expand", "migrate", "vd_erase"):
            if vd.task(kind):
                task = (kind, vd.task(kind))
                break
        for d in vd.drives if task is None else ():     # a member's rebuild
            if d.task("rebuild"):
                task = ("rebuild", d.task("rebuild"))
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
        where = "Channel" if self.host.version == "old" else "Connector"
        for n, d in enumerate(vd.drives):
            out["device_%d" % n] = "%s (%dMB, %s, %s, %s:%s, Device:%s) %s" % (
                "Present" if d.state == "online" else STATE[d.state], int(d.size_gb * 1024),
                d.interface, d.media, where, d.eid, d.sid, d.serial)
        return out

    def _lds(self):
        return {"logical_device_number_%d" % vd.vid: self._ld(vd) for vd in self.m.ordered_vds()}

    # -- discovery and configuration ------------------------------------------------------
    def _devices(self, p):
        devices = {"%s,%s(%s:0)" % (d.eid, d.sid, d.sid): self._pd_brief(d) for d in self.m.drives}
        devices["Physical 2,0"] = {"Device Number": "8", "State": "Ready",
                                   "Type": "Enclosure Services Device", "Model": "Expander",
                                   "Vendor": "ADAPTEC", "Firmware": "0105",
                                   "[Location]": "Connector 0:CN0"}
        return {"controller_information": self._controller(),
                "logical_device_information": self._lds(),
                "physical_device_information": devices}

    def _tasks(self, p):
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
        out = {"controller": str(self.m.index + 1)}
        out.update(where)
        out.update({"current_operation": name,
                    "status": "Paused" if task.paused else "In Progress", "priority": "High",
                    "percentage_complete": str(task.percent),
                    "estimated_time_left": self.minutes_left(task)})
        return out

    def _pdcache(self, p):
        state = str(p.get("state"))
        if p.get("drive_type") == "configured":
            value = {"0": "default", "1": "on", "2": "off", "3": None}.get(state, "bad")
            if value == "bad":
                raise Refused("write cache mode %s is unknown" % state)
            return value and self.m.set_vd(self.vd(p), pdcache=value)
        if p.get("drive_type") != "unconfigured" or state not in ("1", "2"):
            raise Refused("write cache state %s is unknown" % state)
        self.m.set_unconfigured_cache("on" if state == "1" else "off")

    def _create(self, p):
        init = p.get("init")
        if init is not None and init not in ("build", "default", "clear", "quick", "skip"):
            raise Refused("initialisation method %s is unknown" % init)
        self.m.create_vd(p.get("raid_level"), p.get("drives"), p.get("size"),
                         p.get("strip_size"), p.get("name"), p.get("legs"),
                         init="full" if init in ("build", "clear") else
                         "none" if init == "skip" else None)

    def _wcache(self, p):
        on = self.choice(p, "policy", ("con", "coff")) == "con"
        if "rdcache" in p:
            return self.m.set_vd(self.vd(p), read="RA" if on else "NoRA")
        wanted = "AWB" if str(p.get("wrcache", "")).lower() == "awb" else "WB"
        self.m.set_vd(self.vd(p), write=wanted if on else "WT")

    def _pd_state(self, p):
        d = self.drive(p)
        state = self.choice(p, "state", ("hsp", "rdy", "ddd", "eed"))
        if state == "hsp":
            return self.m.make_spare(d)
        if state == "rdy":
            return self.m.release_spare(d) if d.state == "hotspare" else \
                self.m.set_drive_state(d, "ugood", force=True)
        if state == "eed":
            return self.m.set_drive_state(d, "online")
        if d.state in ("failed", "offline"):
            raise Refused("device %s is already failed" % d.address)
        self.m.fail_drive(d, "forced failed")

    def _log(self, p):
        path = "/var/log/Support/Firmware/Controller_%d_Log.txt" % (self.m.index + 1)
        lines = ["%s %s" % (when.strftime("%Y-%m-%d %H:%M:%S"), text)
                 for when, text in self.m.events] or ["no events"]
        self.host.files[path] = "\n".join(lines) + "\n"
        return "Controller %d firmware log saved to %s" % (self.m.index + 1, path)

    def _passthru(self, p):
        d = self.drive(p)
        text = " ".join("%02x" % b for b in passthru_bytes(d, p.get("command_passthru", "")))
        if p.get("data_transfer") == "notransfer":
            return "Command sent to device %s" % d.address
        if p.get("file_path"):
            self.host.files[str(p["file_path"])] = text + "\n"
            return "Data saved to %s" % p["file_path"]
        return text

    # -- wrapper name -> handler(view, params) ------------------------------------------------
    WRAPPERS = {
        # discovery and configuration
        "get_controller_number_arcconf": lambda v, p: str(len(v.host.controllers)),
        "ctr_get_adpt_cfg_arcconf": lambda v, p: {"controller_information": v._controller()},
        "ctr_get_cfg_arcconf": _devices,
        "ctr_get_pd_cfg_arcconf": lambda v, p: {"physical_device_information": {
            "channel_0": {"device_%s" % d.sid: v._pd_detail(d) for d in v.m.drives},
            "channel_2": {"device_0": {"device_number": "8", "enclosure_id": "0",
                                       "type": "Enclosure Services Device",
                                       "model": "Expander", "firmware": "0105"}}}},
        "ctr_get_vd_cfg_arcconf": lambda v, p: {"logical_device_information": v._lds()},
        "ctr_get_expander_cfg_arcconf": lambda v, p: [{
            "expander_id": "0", "reported_channel,device": "2,0(0:0)", "vendor": "ADAPTEC",
            "model": "Expander", "firmware": "0105", "wwid": "500605B0000272BF"}],
        "get_controller_pd_phyerror_arcconf": lambda v, p: [{
            "phy_id": str(n), "invalid_dword_count": "0", "running_disparity_error_count": "0",
            "loss_of_dword_sync_count": "1" if n == 3 else "0",
            "phy_reset_problem_count": "0", "sata_crc_error_count": "0"} for n in range(8)],
        "ctr_get_controller_bgtask_arcconf": _tasks,
        "ctr_get_maxcache_arcconf": lambda v, p: {"logical_device_information": {}},
        # controller settings
        "ctr_set_ctrl_mode_arcconf": lambda v, p: v.m.set_mode(str(p.get("mode"))),
        "set_controller_pdcache_arcconf": _pdcache,
        "ctl_set_ccrepair_arcconf": lambda v, p: v.m.configure(cc_repair=v.choice(
            p, "repair_state", ("enable", "disable"))),
        "ctl_set_cc_parallelcount_arcconf": lambda v, p: v.m.configure(
            cc_parallel=int(v.choice(p, "pd_count", [str(n) for n in range(1, 17)]))),
        # logical devices
        "ctr_create_vd_arcconf": _create,
        "delete_vd_arcconf": lambda v, p: v.m.delete_vd(v.vd(p).vid, force=True),
        "set_vd_wcache_arcconf": _wcache,
        "set_vd_boot_arcconf": lambda v, p: v.m.set_boot(v.vd(p), v.choice(p, "state", BOOT)),
        "vd_set_expand_size_arcconf": lambda v, p: v.m.grow_vd(v.vd(p), v.size_gb(p)),
        "vd_add_pd_expand_array_arcconf": lambda v, p: v.m.add_vd_drives(v.vd(p),
                                                                         p.get("drives")),
        "vd_start_migrate_arcconf": lambda v, p: v.m.migrate_vd(v.vd(p),
                                                                v.need(p, "raid_level")),
        "vd_get_smartinfo_smartctl_arcconf": lambda v, p: {"%s,%s" % (d.eid, d.sid): {
            "SMART overall-health self-assessment test result":
                "FAILED!" if d.predictive else "PASSED",
            "Current Drive Temperature": "31 C"} for d in v.known(v.vd, p).drives},
        # physical devices
        "pd_set_state_arcconf": _pd_state,
        "set_controller_pd_hotspare_arcconf": lambda v, p: v.m.make_spare(
            v.drive(p), p.get("ar_id")) if v.choice(p, "oper", ("hsp", "rdy")) == "hsp"
        else v.m.release_spare(v.drive(p)),
        "set_controller_pd_boot_arcconf": lambda v, p: v.m.set_boot(
            v.drive(p), v.choice(p, "state", BOOT)),
        "set_ctr_pd_erase_arcconf": lambda v, p: v.m.drive_task(
            v.drive(p), "erase", v.choice(p, "oper", ("start", "stop")), p.get("mode")),
        # firmware, logs, pass-through
        "update_controller_fw_arcconf": lambda v, p: v.m.flash(v.need(p, "fw_file")),
        "update_pd_fw_arcconf": lambda v, p: v.m.flash(v.need(p, "fw_file"), v.drive(p)),
        "get_controller_log_arcconf": _log,
        "send_controller_pd_passthru_arcconf": _passthru,
    }
