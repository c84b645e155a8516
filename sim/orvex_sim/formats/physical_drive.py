"""Physical drive shapes: lists, detail records, rebuild, erase, sanitize,
copyback.

The list and detail operations rename the tools' fields by the template
files first; the functions here then bring the values of the three tools to
one vocabulary ("online", "HDD", "5.458TB", "6.0G", "Spin Up", "512B", ...).
"""
import re

from orvex_sim.formats import Template

_STATUS = {
    "onln": "online", "online": "online", "optimal": "online",
    "offln": "offline", "offline": "offline",
    "ugood": "ugood", "ready": "ugood", "free": "ugood", "unconfigured good": "ugood",
    "ubad": "ubad", "unconfigured bad": "ubad",
    "failed": "failed", "fail": "failed",
    "rbld": "reconstructing", "rebuild": "reconstructing", "rebuilding": "reconstructing",
    "reconstructing": "reconstructing",
    "cpybck": "copyback", "copyback": "copyback",
    "jbod": "jbod", "raw (pass through)": "jbod", "rawdrive": "jbod",
    "ghs": "hotspare", "dhs": "hotspare", "hot spare": "hotspare", "hotspare": "hotspare",
}

_UNITS = ("B", "KB", "MB", "GB", "TB", "PB")


def _text(value):
    return "" if value is None else str(value).strip()


def _address(value):
    """'65:0', ' :0' or '0,1(1:0)' -> ('65', '0'), ('', '0'), ('0', '1')."""
    m = re.match(r"^\s*([^:,\s]*)\s*[:,]\s*(\d+)", _text(value))
    return (m.group(1), m.group(2)) if m else None


def _status(value):
    text = _text(value)
    return _STATUS.get(text.lower(), text.lower())


def _drive_type(value, status):
    text = _text(value).lower()
    if text.isdigit() or text in ("member", "data"):
        return "member"
    if status == "hotspare" or text in ("ghs", "dhs", "hotspare", "hot spare", "spare"):
        return "hotspare"
    if status == "jbod" or text in ("jbod", "raw"):
        return "jbod"
    if status in ("online", "offline", "reconstructing", "copyback"):
        return "member"
    return "unconfigured"


def _size(value):
    """'5.458 TB' -> '5.458TB'; '5723166 MB' -> '5.458TB'."""
    text = _text(value)
    m = re.match(r"^([\d.]+)\s*([KMGTP]?)i?B(?:ytes)?$", text, re.I)
    if not m:
        return text.replace(" ", "")
    number, unit = float(m.group(1)), _UNITS.index((m.group(2).upper() or "") + "B")
    if number < 1024 or unit == len(_UNITS) - 1:
        return m.group(1) + _UNITS[unit]
    while number >= 1024 and unit < len(_UNITS) - 1:
        number /= 1024.0
        unit += 1
    return "%.3f%s" % (number, _UNITS[unit])


def _interface(value):
    m = re.search(r"\b(SATA|SAS|NVMe|PCIe)\b", _text(value), re.I)
    return m.group(1).upper().replace("NVME", "NVMe").replace("PCIE", "PCIe") if m else _text(value)


def _media(value):
    text = _text(value)
    known = {"yes": "SSD", "no": "HDD", "hard drive": "HDD", "solid state drive": "SSD",
             "hdd": "HDD", "ssd": "SSD"}
    return known.get(text.lower(), text)


def _link_speed(value):
    m = re.search(r"([\d.]+)\s*G", _text(value))
    return m.group(1) + "G" if m else (_text(value) or "NA")


def _spin(value):
    text = _text(value)
    known = {"u": "Spin Up", "d": "Spin Down", "spin up": "Spin Up", "spin down": "Spin Down",
             "full rpm": "Spin Up", "spun up": "Spin Up", "powered off": "Spin Down",
             "standby": "Spin Down"}
    return known.get(text.lower(), text)


def _sector(value):
    """'512B', '512 Bytes', '4 KB', '4K Bytes' -> bytes with a 'B'."""
    m = re.match(r"^(\d+)\s*(K?)\s*(?:B|Bytes)?$", _text(value), re.I)
    if not m:
        return _text(value)
    return "%dB" % (int(m.group(1)) * (1024 if m.group(2) else 1))


def _write_cache(value):
    text = _text(value).lower()
    if text.startswith(("enabled", "on", "write-back", "write back")):
        return "On"
    if text.startswith(("disabled", "off", "write-through", "write through")):
        return "Off"
    return "NA"


def _ids(record, out):
    eid, sid = record.get("eid"), record.get("sid")
    pair = _address(eid) if eid == sid else None
    if pair:
        out["eid"], out["sid"] = pair
    else:
        out["eid"], out["sid"] = _text(eid), _text(sid)


def _short(record):
    out = dict(record)
    _ids(record, out)
    out["did"] = _text(record.get("did"))
    out["interface"] = _interface(record.get("interface"))
    out["media"] = _media(record.get("media"))
    out["status"] = _status(record.get("status"))
    out["type"] = _drive_type(record.get("type"), out["status"])
    out["size"] = _size(record.get("size"))
    out["model"] = _text(record.get("model"))
    return out


def _slot(value, sid):
    text = _text(value)
    m = re.search(r"slot\s*(\d+)", text, re.I)
    if m:
        return m.group(1)
    pair = _address(text)
    return pair[1] if pair else (text or sid)


def _detail(record):
    out = _short(record)
    out["slot"] = _slot(record.get("slot"), out["sid"])
    out["link_speed"] = _link_speed(record.get("link_speed"))
    out["spin_status"] = _spin(record.get("spin_status"))
    out["sas_address"] = _text(record.get("sas_address")) or "NA"
    name = _text(record.get("disk_name"))
    out["disk_name"] = "NA" if name in ("", "N/A", "-") else name
    out["serial_number"] = _text(record.get("serial_number"))
    out["firmware_version"] = _text(record.get("firmware_version"))
    out["logical_sector_size"] = _sector(record.get("logical_sector_size"))
    out["physical_sector_size"] = _sector(record.get("physical_sector_size"))
    out["write_cache"] = _write_cache(record.get("write_cache"))
    return out


def _percent(value):
    text = _text(value)
    return text if text.endswith("%") or not text else text + "%"


def _erase_task(tasks, eid, sid):
    """The arcconf background task that erases drive (eid, sid), shaped as
    the erase status record; a drive without such a task reads as idle."""
    for task in (tasks or {}).get("physical_device_task", []):
        if (_text(task.get("channel")) == _text(eid) and _text(task.get("device")) == _text(sid)
                and re.search(r"erase|clear", _text(task.get("current_operation")), re.I)):
            fields = _ERASE["arcconf"]
            out = {key: task.get(raw, "") for key, raw in fields.items()}
            out["Drive-ID"] = "c{}:e{}:s{}".format(task.get("controller"), eid, sid)
            out["Progress"] = _percent(out["Progress"])
            out["raw_data"] = task
            return out
    return {"Drive-ID": "c{}:e{}:s{}".format(None, eid, sid), "Progress": "0%",
            "Status": "Not in progress", "Estimated_time_left": "0 min", "raw_data": {}}


_ERASE = {
    "storcli64": {"Drive-ID": "Drive-ID", "Progress": "Progress%", "Status": "Status",
                  "Estimated_time_left": "Estimated Time Left"},
    "sorbctl": {"Drive-ID": "Drive-ID", "Progress": "EraseProgress", "Status": "EraseStatus",
                "Estimated_time_left": "EraseTimeLeft"},
    "arcconf": {"Drive-ID": "Drive-ID", "Progress": "percentage_complete", "Status": "status",
                "Estimated_time_left": "estimated_time_left"},
}


class PhysicalDriveFormats:
    """Drive lists, detail records and per-drive task states."""

    get_pd_rebuild_status_format = Template({
        "storcli64": {"status": "Status", "progress": "Progress%",
                      "estimated_time_left": "Estimated Time Left"},
        "sorbctl": {"status": "RebuildStatus", "progress": "RebuildProgress",
                    "estimated_time_left": "RebuildTimeLeft"},
        "arcconf": {"status": "status", "progress": "percentage_complete",
                    "estimated_time_left": "estimated_time_left"},
    })

    get_pd_sanitize_format = Template({
        "storcli64": {"Status": "Status", "Progress": "Progress%",
                      "Estimated_time_left": "Estimated Time Left"},
        "sorbctl": {"Status": "SanitizeStatus", "Progress": "SanitizeProgress",
                    "Estimated_time_left": "SanitizeTimeLeft"},
    })

    get_controller_pd_erase_raid = Template(_ERASE, _erase_task)

    get_pd_copyback_info_raid = Template({
        "storcli64": {"Drive-ID": "Drive-ID", "Progress": "Progress%", "Status": "Status",
                      "Estimated_time_left": "Estimated Time Left"},
        "sorbctl": {"Drive-ID": "Drive-ID", "Progress": "CopybackProgress",
                    "Status": "CopybackStatus", "Estimated_time_left": "CopybackTimeLeft"},
    })

    def get_physical_drive_list_format(self, records):
        return [_short(r) for r in records]

    def get_one_physical_drive_info_format(self, record):
        return _detail(record)

    def get_all_physical_drive_info_format(self, records):
        return [_detail(r) for r in records]

    def storcli64_get_one_physical_drive_treatments(self, parsed):
        """Layer map over one drive's storcli64 answer: the summary row, each
        section of the detailed information and the first port entry."""
        layers = {}
        for key, value in parsed.items():
            if (key.startswith("Drive ") and isinstance(value, list) and value
                    and not re.match(r"^Drive.*Detailed Information$", key)):
                layers[key + "//$0"] = True
        for key, value in parsed.items():
            if not (re.match(r"^Drive.*Detailed Information$", key) and isinstance(value, dict)):
                continue
            for section, part in value.items():
                if not isinstance(part, dict):
                    continue
                layers[key + "//" + section] = True
                ports = part.get("Port Information")
                if isinstance(ports, list) and ports:
                    layers[key + "//" + section + "//Port Information//$0"] = True
        return layers
