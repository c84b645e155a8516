"""Virtual drive shapes: lists, detail records, member drives, boot drives and
the status tables of the background operations (consistency check,
initialisation, erase, expansion, migration).

storcli64 answers with its JSON tables ("VD LIST", "/c0/v0", "VD0 Properties",
"PDs for VD 0", "VD Operation Status"); arcconf with snake_case sections
("logical_device_information" keyed "logical_device_number_<n>",
"controller_information", "logical_device_task"); sorbctl with CamelCase
sections ("VirtualDrives", "VirtualDriveInformation", "MemberDrives", "Groups").
"""
import re

from orvex_sim.formats import Template

# -- templates of the status tables ------------------------------------------

_STORCLI_STATUS = {"vid": "VD", "Operation": "Operation", "Progress": "Progress%",
                   "Status": "Status", "Estimated_time_left": "Estimated Time Left"}


def _sorbctl_status(prefix):
    return {"vid": "ID", "Operation": "Operation", "Progress": prefix + "Progress",
            "Status": prefix + "Status", "Estimated_time_left": prefix + "TimeLeft"}


_ARCCONF_TASK = {"vid": "logical_device", "Operation": "current_operation",
                 "Progress": "percentage_complete", "Status": "status",
                 "Estimated_time_left": "estimated_time_left"}

# -- storcli64 cache column ----------------------------------------------------

_CACHE = re.compile(r"^(NR|R)?(AWB|WB|WT)?(C|D)?$")
_READ = {"R": "RA", "NR": "NoRA"}
_WRITE = {"AWB": "AWB", "WB": "WB", "WT": "WT"}


def _cache_parts(value):
    """'RWBD' -> ('RA', 'WB'); 'NRWTC' -> ('NoRA', 'WT'); unknown -> ('', '')."""
    m = _CACHE.match(str(value or "").strip().upper())
    if not m:
        return "", ""
    return _READ.get(m.group(1) or "", ""), _WRITE.get(m.group(2) or "", "")


def _drive_row(row):
    """A copy of a storcli64 drive row with DG and VD split out of 'DG/VD' and
    the read and write cache policies spelt out of 'Cache'."""
    out = dict(row)
    dg, _, vd = str(row.get("DG/VD", "")).partition("/")
    out["DG"], out["VD"] = dg, vd
    out["Read Cache"], out["Write Cache"] = _cache_parts(row.get("Cache"))
    return out


# -- boot drives -------------------------------------------------------------------

_NONE_BOOT = ("Type", "VID/DID", "Enc", "Slot", "Act_Slot")


def _boot(kind, number, enc="NA", slot="NA", act_slot="NA"):
    return {"Type": kind, "VID/DID": number, "Enc": enc, "Slot": slot, "Act_Slot": act_slot}


def _boot_text(text):
    """'VD:0', 'PD:252:1' (storcli64) or 'Logical Device 0',
    'Physical Device (Channel 0, Device 3)' (arcconf) -> a boot record."""
    text = str(text or "").strip()
    m = re.match(r"^VD\s*:?\s*(\d+)$", text, re.I) or re.search(r"logical\D*(\d+)", text, re.I)
    if m:
        return _boot("VD", m.group(1))
    m = (re.match(r"^PD\s*:?\s*(\d+)\s*:\s*(\d+)$", text, re.I)
         or re.search(r"channel\D*(\d+)\D+device\D*(\d+)", text, re.I))
    if m:
        return _boot("PD", "NA", m.group(1), m.group(2), m.group(2))
    return None


def _boot_sorbctl(entry):
    kind = str(entry.get("Type", "")).upper()
    return _boot(kind, str(entry.get("ID", "NA")), str(entry.get("Enc", "NA")),
                 str(entry.get("Slot", "NA")), str(entry.get("ActSlot", entry.get("Slot", "NA"))))


def _query_boot_drive(section):
    """storcli64: the 'Controller Properties' rows -> list of boot records;
    sorbctl: the 'BootDrives' entries (a list, or one dict) -> list;
    arcconf: one boot volume text -> one record."""
    if isinstance(section, str):
        return _boot_text(section) or {key: "None" for key in _NONE_BOOT}
    if isinstance(section, dict):
        section = [section]
    out = []
    for entry in section or []:
        if "Ctrl_Prop" in entry:
            if re.match(r"^boot\s*drive", str(entry.get("Ctrl_Prop")), re.I):
                record = _boot_text(entry.get("Value"))
                if record:
                    out.append(record)
        else:
            out.append(_boot_sorbctl(entry))
    return out


def _member_drives(positions):
    """arcconf segment positions {'Channel': '0', 'Device': '1'} -> members."""
    return [{"eid": p.get("Channel"), "sid": p.get("Device")} for p in positions]


class VirtualDriveFormats:
    """Virtual drive lists, details and per-drive task states."""

    get_virtual_drive_list_format = Template({
        # storcli64 names a drive by its "DG/VD" pair only (e.g. "0/0").
        "storcli64": {"array": "DG/VD", "vd": "DG/VD", "status": "State", "raid_level": "TYPE",
                      "name": "Name", "size": "Size", "strip_unit_size": "Strip",
                      "write_cache": "Cache", "read_cache": "Cache"},
        "arcconf": {"array": "array", "vd": "vd", "status": "status_of_logical_device",
                    "raid_level": "raid_level", "name": "logical_device_name", "size": "size",
                    "strip_unit_size": "stripe-unit_size",
                    "write_cache": "write-cache_setting", "read_cache": "read-cache_setting"},
        "sorbctl": {"array": "ArrayID", "vd": "ID", "status": "Status", "raid_level": "RaidLevel",
                    "name": "Name", "size": "Capacity", "strip_unit_size": "StripSize",
                    "write_cache": "WriteCache", "read_cache": "ReadCache"},
    })

    get_one_virtual_drive_info_format = Template({
        "storcli64": {"vd": "VD", "name": "Name", "raid_level": "TYPE", "status": "State",
                      "write_cache": "Write Cache", "read_cache": "Read Cache", "size": "Size",
                      "strip_size": "Strip Size", "os_drive_name": "OS Drive Name",
                      "vdwwn": "SCSI NAA Id"},
        "sorbctl": {"vd": "ID", "name": "Name", "raid_level": "RaidLevel", "status": "Status",
                    "write_cache": "WriteCache", "read_cache": "ReadCache", "size": "Capacity",
                    "strip_size": "StripSize", "os_drive_name": "OsDriveName", "vdwwn": "WWN"},
    })

    get_virtual_drive_member_drives_raid_format = Template(
        {"arcconf": {"eid": "Channel", "sid": "Device"}}, _member_drives)

    query_boot_drive_format = Template({
        "storcli64": {"Type": "Type", "VID/DID": "VID/DID", "Enc": "Enc", "Slot": "Slot",
                      "Act_Slot": "Act_Slot"},
        "sorbctl": {"Type": "Type", "VID/DID": "ID", "Enc": "Enc", "Slot": "Slot",
                    "Act_Slot": "ActSlot"},
    }, _query_boot_drive)

    query_virtual_drive_cc_status_format = Template({
        "storcli64": _STORCLI_STATUS,
        "sorbctl": _sorbctl_status("Ccheck"),
    })

    get_virtual_drive_bgi_state_format = Template({
        "storcli64": _STORCLI_STATUS,
        "arcconf": {"vid": "logical_device_number", "Operation": "background_task",
                    "Progress": "background_task_progress",
                    "Status": "parity_initialization_status",
                    "Estimated_time_left": "background_task_time_left"},
        "sorbctl": {"vid": "ID", "Operation": "Name", "Progress": "Progress", "Status": "Status",
                    "Estimated_time_left": "TimeLeft"},
    })

    get_virtual_drive_front_init_status_info_format = Template({
        "storcli64": _STORCLI_STATUS,
        "arcconf": {"vid": "logical_device_number", "Operation": "background_task",
                    "Progress": "background_task_progress",
                    "Status": "status_of_logical_device",
                    "Estimated_time_left": "background_task_time_left"},
        "sorbctl": _sorbctl_status("Init"),
    })

    get_vd_erase_format = Template({
        "storcli64": _STORCLI_STATUS,
        "sorbctl": _sorbctl_status("Sanitize"),
    })

    get_expand_array_info_format = Template({
        "storcli64": _STORCLI_STATUS,
        "arcconf": _ARCCONF_TASK,
        "sorbctl": _sorbctl_status("Expand"),
    })

    get_migrate_info_format = Template({
        "storcli64": _STORCLI_STATUS,
        "arcconf": _ARCCONF_TASK,
        "sorbctl": _sorbctl_status("Migrate"),
    })

    get_ssd_caching_info_format = Template({
        "storcli64": {"vd": "DG/VD", "name": "Name", "raid_level": "TYPE", "status": "State",
                      "size": "Size", "cached_vds": "Cached VDs"},
        "arcconf": {"vd": "logical_device_number", "name": "logical_device_name",
                    "raid_level": "raid_level", "status": "status_of_logical_device",
                    "size": "size", "cached_vds": "maxcache_logical_devices"},
    })

    def storcli64_get_one_virtual_drive_treatments(self, parsed):
        """One drive's sections out of a storcli64 answer: the drive's own
        table (first row with DG, VD, Read Cache and Write Cache spelt out),
        its property table and its member table, in that order."""
        out = {}
        number = None
        for key, value in parsed.items():
            m = re.match(r"/c(\d+)/v(\d+)", key)
            if m and isinstance(value, list) and number is None:
                number = m.group(2)
                out[key] = [_drive_row(value[0])] + list(value[1:]) if value else []
        if number is None:
            return out
        for key, value in parsed.items():
            if re.match(r"VD%s Properties$" % number, key):
                out[key] = value
        for key, value in parsed.items():
            if re.match(r"PDs for VD %s$" % number, key):
                out[key] = value
        return out
