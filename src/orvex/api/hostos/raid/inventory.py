"""One typed view of a host's RAID controllers, whatever tool manages them.

``Inventory(raid)`` reads a host through the public operations of a
``Raid`` object and answers with the same records on ``storcli64``,
``arcconf`` and ``sorbctl``::

    from orvex.api.hostos.raid.raid import Raid
    from orvex.api.hostos.raid.inventory import Inventory, format_tables

    inv = Inventory(Raid())
    for d in inv.drives():
        print(d.adapter_id, "%s:%s" % (d.eid, d.sid), d.state.value, d.size_bytes)
    print(format_tables(inv))

Every list runs over the controllers in adapter order (``adapter_id=None``)
or over the one named.  Each record keeps what the operations answered in
``raw``.  A value in a form this module does not know never stops a
script: the field is None (an enum field ``unknown``), the value stays in
``raw``, and an ``InventoryWarning`` names the field and the value.

Which operations are asked, so that every controller is read right:

- controllers: ``query_controller_number``; storcli64
  ``query_raid_config(adapter_id=...)`` (the whole controller answer, which
  an HBA gives too); arcconf and sorbctl ``get_controller_status_raid(adp_id=...)``,
  on sorbctl with ``get_all_controllers`` (card name) and
  ``get_controller_info_raid(adapter_id=...)`` (mode).
- drives: storcli64 and arcconf ``get_all_physical_drive_info(adapter_id=...)``
  (both list the adapter's own drives, an HBA's included); sorbctl lists
  the adapter's drives with ``_get_physical_drive_list(adapter_id=...)``
  and reads each with ``get_one_physical_drive_info(eid, sid, adapter_id)``,
  because its ``get_all_physical_drive_info`` reads the details without
  the adapter (the first controller's drives).
- virtual drives: ``get_all_virtual_drive_info(adapter_id=...)`` and
  ``get_virtual_drive_member_drives(vid, adapter_id)``; on arcconf the
  members are read from the listing's "device_<n>" entries, which the
  newer tool writes with "Connector:" where the older wrote "Channel:".
  An HBA has none.
- tasks: the drives' and virtual drives' own answers say what runs; the
  progress comes from the task's query with the adapter (rebuild,
  copyback, erase, sanitize, initialisation, consistency check, erase of
  a virtual drive, expansion, migration, patrol read).  arcconf reports a
  logical device's task (rebuild included) in its listing and a drive's
  erase in ``get_pd_erase``; it has no copyback progress, sanitize or
  patrol read queries, so those are not listed there.

Sizes in bytes, as each tool means its numbers:

- storcli64 drives: the sector count of "Raw size"
  ("1.091 TiB [0x8bba0cb0 Sectors]") times "Logical Sector Size" ("512B").
  Without a count, the printed size: "GiB"/"TiB" are binary (newer tool,
  "1.091 TiB"); "GB"/"TB" with two decimals and no blank are decimal (the
  newer tool's NVMe drives, "800.00GB" for an 800 GB drive); other
  "GB"/"TB" are binary (the older tool, "1.091 TB" for a 1.2 TB drive).
- storcli64 virtual drives: "Number of Blocks" times "Sector Size"
  (512 bytes when absent); else the printed size by the rules above.
- arcconf: "MB" is MiB ("457763 MB" for a 480 GB SSD, "1144627 MB" for a
  RAID 1 of 1.2 TB drives).
- sorbctl: "GB"/"TB" are binary with two decimals ("1.09 TB" for a 1.2 TB
  drive).
- Strip sizes: "KB" is KiB on every tool ("256 KB", "256KB").
"""
from __future__ import annotations

import enum
import re
import warnings
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, Iterable, List, Mapping, Optional, Sequence, Tuple, \
    TypeVar, Union

__all__ = [
    "Controller", "ControllerMode", "Drive", "DriveState", "Inventory", "InventoryWarning",
    "ReadCache", "Task", "TaskKind", "TaskState", "VirtualDrive", "VirtualDriveState",
    "WriteCache", "format_tables", "parse_size",
]

TOOLS = ("storcli64", "arcconf", "sorbctl")
Json = Union[None, bool, int, float, str, List[Any], Dict[str, Any]]


class InventoryWarning(UserWarning):
    """A value in a form the inventory does not know (the field stays empty)."""


class ControllerMode(enum.Enum):
    RAID = "raid"
    HBA = "hba"
    UNKNOWN = "unknown"


class DriveState(enum.Enum):
    ONLINE = "online"
    OFFLINE = "offline"
    FAILED = "failed"
    REBUILDING = "rebuilding"
    HOTSPARE = "hotspare"
    UNCONFIGURED_GOOD = "unconfigured_good"
    UNCONFIGURED_BAD = "unconfigured_bad"
    JBOD = "jbod"
    COPYBACK = "copyback"
    MISSING = "missing"
    UNKNOWN = "unknown"


class VirtualDriveState(enum.Enum):
    OPTIMAL = "optimal"
    DEGRADED = "degraded"
    PARTIALLY_DEGRADED = "partially_degraded"
    OFFLINE = "offline"
    REBUILDING = "rebuilding"
    INITIALIZING = "initializing"
    UNKNOWN = "unknown"


class WriteCache(enum.Enum):
    WRITE_BACK = "write_back"
    WRITE_THROUGH = "write_through"
    ALWAYS_WRITE_BACK = "always_write_back"
    UNKNOWN = "unknown"


class ReadCache(enum.Enum):
    READ_AHEAD = "read_ahead"
    NO_READ_AHEAD = "no_read_ahead"
    UNKNOWN = "unknown"


class TaskKind(enum.Enum):
    REBUILD = "rebuild"
    COPYBACK = "copyback"
    INITIALIZATION = "initialization"
    CONSISTENCY_CHECK = "consistency_check"
    PATROL_READ = "patrol_read"
    ERASE = "erase"
    SANITIZE = "sanitize"
    EXPANSION = "expansion"
    MIGRATION = "migration"


class TaskState(enum.Enum):
    RUNNING = "running"
    PAUSED = "paused"
    STOPPED = "stopped"
    DONE = "done"


@dataclass(frozen=True)
class Controller:
    adapter_id: str
    mode: str                       # "raid" or "hba" ("unknown" when the answer does not say)
    model: Optional[str]
    firmware: Optional[str]
    serial: Optional[str]
    temperature_c: Optional[int]
    raw: Mapping[str, Any] = field(default_factory=dict, repr=False, compare=False)


@dataclass(frozen=True)
class Drive:
    adapter_id: str
    eid: str
    sid: str
    interface: Optional[str]        # "SAS", "SATA", "NVMe"
    media: Optional[str]            # "HDD", "SSD"
    size_bytes: Optional[int]
    model: Optional[str]
    serial: Optional[str]
    firmware: Optional[str]
    state: DriveState
    media_errors: Optional[int]
    other_errors: Optional[int]
    predictive_failures: Optional[int]
    raw: Mapping[str, Any] = field(default_factory=dict, repr=False, compare=False)

    @property
    def address(self) -> Tuple[str, str]:
        return (self.eid, self.sid)


@dataclass(frozen=True)
class VirtualDrive:
    adapter_id: str
    vid: str
    name: Optional[str]
    raid_level: Optional[int]
    state: VirtualDriveState
    size_bytes: Optional[int]
    strip_size_bytes: Optional[int]
    write_cache: WriteCache
    read_cache: ReadCache
    members: List[Tuple[str, str]]
    raw: Mapping[str, Any] = field(default_factory=dict, repr=False, compare=False)


@dataclass(frozen=True)
class Task:
    adapter_id: str
    kind: TaskKind
    target: Union[Tuple[str, str], str]     # a drive's (eid, sid) or a virtual drive's vid
    progress_percent: int
    state: TaskState
    raw: Mapping[str, Any] = field(default_factory=dict, repr=False, compare=False)


# -- the tools' words --------------------------------------------------------------------
# Drive states: the word each tool prints (storcli64 "State", arcconf "state",
# sorbctl "Status" of the drive's answer).
DRIVE_STATES: Dict[str, Dict[str, DriveState]] = {
    "storcli64": {
        "Onln": DriveState.ONLINE, "Offln": DriveState.OFFLINE, "Rbld": DriveState.REBUILDING,
        "UGood": DriveState.UNCONFIGURED_GOOD, "UBad": DriveState.UNCONFIGURED_BAD,
        "GHS": DriveState.HOTSPARE, "DHS": DriveState.HOTSPARE, "JBOD": DriveState.JBOD,
        "Cpybck": DriveState.COPYBACK, "Msng": DriveState.MISSING,
    },
    "arcconf": {
        "Online": DriveState.ONLINE, "Offline": DriveState.OFFLINE,
        "Failed": DriveState.FAILED, "Rebuilding": DriveState.REBUILDING,
        "Ready": DriveState.UNCONFIGURED_GOOD, "Hot Spare": DriveState.HOTSPARE,
        "Raw (Pass Through)": DriveState.JBOD, "Copyback": DriveState.COPYBACK,
    },
    "sorbctl": {
        "Online": DriveState.ONLINE, "Offline": DriveState.OFFLINE,
        "Failed": DriveState.FAILED, "Rebuild": DriveState.REBUILDING,
        "Free": DriveState.UNCONFIGURED_GOOD, "HotSpare": DriveState.HOTSPARE,
        "Jbod": DriveState.JBOD, "Copyback": DriveState.COPYBACK,
    },
}
DRIVE_STATE_KEY = {"storcli64": "State", "arcconf": "state", "sorbctl": "Status"}

# Virtual drive states: the word of the listing's `status`.
VD_STATES: Dict[str, Dict[str, VirtualDriveState]] = {
    "storcli64": {
        "Optl": VirtualDriveState.OPTIMAL, "Dgrd": VirtualDriveState.DEGRADED,
        "Pdgd": VirtualDriveState.PARTIALLY_DEGRADED, "OfLn": VirtualDriveState.OFFLINE,
        "Rec": VirtualDriveState.REBUILDING,
    },
    "arcconf": {
        "Optimal": VirtualDriveState.OPTIMAL, "Degraded": VirtualDriveState.DEGRADED,
        "Failed": VirtualDriveState.OFFLINE,
    },
    "sorbctl": {
        "Normal": VirtualDriveState.OPTIMAL, "Degraded": VirtualDriveState.DEGRADED,
        "Failed": VirtualDriveState.OFFLINE,
    },
}

WRITE_CACHES: Dict[str, WriteCache] = {
    "WB": WriteCache.WRITE_BACK, "WT": WriteCache.WRITE_THROUGH,
    "AWB": WriteCache.ALWAYS_WRITE_BACK, "WBE": WriteCache.ALWAYS_WRITE_BACK,
    "Enabled (write-back)": WriteCache.WRITE_BACK,
    "Disabled (write-through)": WriteCache.WRITE_THROUGH,
}
READ_CACHES: Dict[str, ReadCache] = {
    "RA": ReadCache.READ_AHEAD, "R": ReadCache.READ_AHEAD, "Ahead": ReadCache.READ_AHEAD,
    "Enabled": ReadCache.READ_AHEAD, "NoRA": ReadCache.NO_READ_AHEAD,
    "NR": ReadCache.NO_READ_AHEAD, "No_Ahead": ReadCache.NO_READ_AHEAD,
    "Disabled": ReadCache.NO_READ_AHEAD,
}
# A task's status word; a task whose status is not here (or is idle) is not running.
TASK_STATES: Dict[str, TaskState] = {
    "In progress": TaskState.RUNNING, "In Progress": TaskState.RUNNING,
    "Running": TaskState.RUNNING, "Active": TaskState.RUNNING, "run": TaskState.RUNNING,
    "Paused": TaskState.PAUSED, "pause": TaskState.PAUSED,
}
IDLE = ("Not in progress", "Not Running", "Stopped", "stop", "None", "", "-", "Not Applicable",
        "Completed")

# storcli64 "Active Operations" and sorbctl "Operation" words, and arcconf's
# "background_task", to the kind and the operation that reads its progress.
VD_TASKS: Dict[str, Dict[str, Tuple[TaskKind, Optional[str]]]] = {
    "storcli64": {
        "CC": (TaskKind.CONSISTENCY_CHECK, "query_virtual_drive_cc_status"),
        "INIT": (TaskKind.INITIALIZATION, "get_virtual_drive_front_init_status_info"),
        "BGI": (TaskKind.INITIALIZATION, "get_virtual_drive_bgi_state"),
        "Erase": (TaskKind.ERASE, "get_vd_erase"),
        "OCE": (TaskKind.EXPANSION, "get_expand_array_info"),
        "Migrate": (TaskKind.MIGRATION, "get_migrate_info"),
    },
    "sorbctl": {
        "Ccheck": (TaskKind.CONSISTENCY_CHECK, "query_virtual_drive_cc_status"),
        "Init": (TaskKind.INITIALIZATION, None),      # the details' own InitProgress
        "BGI": (TaskKind.INITIALIZATION, "get_virtual_drive_bgi_state"),
        "Sanitize": (TaskKind.ERASE, "get_vd_erase"),
        "Expand": (TaskKind.EXPANSION, "get_expand_array_info"),
        "Migrate": (TaskKind.MIGRATION, "get_migrate_info"),
    },
    "arcconf": {
        "Build/Verify": (TaskKind.INITIALIZATION, None),
        "Verify": (TaskKind.CONSISTENCY_CHECK, None), "Clear": (TaskKind.ERASE, None),
        "Expand": (TaskKind.EXPANSION, None), "Migrate": (TaskKind.MIGRATION, None),
        "Rebuild": (TaskKind.REBUILD, None),
    },
}
# Operations whose vid is positional.
POSITIONAL_VID = ("query_virtual_drive_cc_status", "get_vd_erase")

INTERFACES = {"SAS": "SAS", "SATA": "SATA", "NVME": "NVMe"}
MEDIA = {"HDD": "HDD", "SSD": "SSD"}
RAID_LEVELS = (0, 1, 5, 6, 10, 50, 60)

_BINARY = {"K": 1024, "M": 1024 ** 2, "G": 1024 ** 3, "T": 1024 ** 4, "P": 1024 ** 5}
_DECIMAL = {"K": 1000, "M": 1000 ** 2, "G": 1000 ** 3, "T": 1000 ** 4, "P": 1000 ** 5}
_SIZE = re.compile(r"^\s*(\d+(?:\.(\d+))?)\s*([KMGTP])(i?)B\s*$", re.I)
_SECTORS = re.compile(r"\[\s*(0x[0-9a-fA-F]+|\d+)\s+Sectors\s*\]")

_ARCCONF_MEMBER = re.compile(r"\b(?:Channel|Connector):\s*(\d+),\s*Device:\s*(\d+)\)")

E = TypeVar("E", bound=enum.Enum)


def _warn(field_name: str, value: Any) -> None:
    warnings.warn("inventory: %s has an unknown value %r" % (field_name, value),
                  InventoryWarning, stacklevel=4)


def _text(value: Any) -> Optional[str]:
    if value is None:
        return None
    text = str(value).strip()
    return text or None


def _word(table: Mapping[str, E], value: Any, unknown: E, field_name: str) -> E:
    text = _text(value)
    if text is not None and text in table:
        return table[text]
    _warn(field_name, value)
    return unknown


def _count(value: Any, field_name: str) -> Optional[int]:
    """A counter the tool prints as a number or digits; None when absent."""
    if value is None:
        return None
    if isinstance(value, int) and not isinstance(value, bool):
        return value
    text = str(value).strip()
    if text.isdigit():
        return int(text)
    _warn(field_name, value)
    return None


def parse_size(text: Any, tool: str) -> Optional[int]:
    """Bytes of a size the tool printed (see the module's rules); None when
    the text is no size."""
    if text is None:
        return None
    shown = _SECTORS.sub("", str(text)).strip()
    m = _SIZE.match(shown)
    if m is None:
        return None
    number, decimals, prefix, binary = m.group(1), m.group(2) or "", m.group(3).upper(), m.group(4)
    if tool == "storcli64" and not binary and len(decimals) == 2 and " " not in shown:
        scale = _DECIMAL[prefix]        # the newer tool's NVMe sizes, "800.00GB"
    else:
        scale = _BINARY[prefix]         # "GiB", arcconf's "MB", the older storcli64's "TB"
    return int(round(float(number) * scale))


def _sectors(text: Any) -> Optional[int]:
    found = _SECTORS.search(str(text)) if text is not None else None
    return int(found.group(1), 0) if found else None


def _sector_size(text: Any) -> Optional[int]:
    found = re.match(r"^\s*(\d+)\s*B", str(text)) if text is not None else None
    return int(found.group(1)) if found else None


def _size_field(text: Any, tool: str, field_name: str) -> Optional[int]:
    size = parse_size(text, tool)
    if size is None:
        _warn(field_name, text)
    return size


def _percent(value: Any) -> Optional[int]:
    if isinstance(value, int) and not isinstance(value, bool):
        return value if 0 <= value <= 100 else None
    m = re.match(r"^\s*(\d{1,3})\s*%?\s*$", str(value))
    return int(m.group(1)) if m and int(m.group(1)) <= 100 else None


def _first_line(value: Any) -> Any:
    return value[0] if isinstance(value, list) and value else value


class Inventory:
    """The controllers, drives, virtual drives and running tasks of the host
    behind `raid` (a ``Raid`` object), read afresh on every call."""

    def __init__(self, raid: Any) -> None:
        self.raid = raid
        self.tool = str(raid.dispatcher.get_raid_tool())
        if self.tool not in TOOLS:
            raise ValueError("the inventory reads storcli64, arcconf and sorbctl hosts, not %r"
                             % self.tool)

    # -- the contract -------------------------------------------------------------------
    def controllers(self) -> List[Controller]:
        return [self._controller(a) for a in self._adapters(None)]

    def drives(self, adapter_id: Optional[str] = None) -> List[Drive]:
        return [d for a in self._adapters(adapter_id) for d in self._drives(a)]

    def virtual_drives(self, adapter_id: Optional[str] = None) -> List[VirtualDrive]:
        out: List[VirtualDrive] = []
        for a in self._adapters(adapter_id):
            if self._mode(a) != ControllerMode.HBA.value:
                out.extend(self._virtual_drives(a))
        return out

    def tasks(self, adapter_id: Optional[str] = None) -> List[Task]:
        out: List[Task] = []
        for a in self._adapters(adapter_id):
            drives = self._drives(a)
            vds = self._virtual_drives(a) if self._mode(a) != ControllerMode.HBA.value else []
            out.extend(self._tasks(a, drives, vds))
        return out

    def snapshot(self) -> Dict[str, List[Dict[str, Json]]]:
        """All four lists as plain dicts and lists (what ``json.dumps`` takes)."""
        return {"controllers": [_plain(c) for c in self.controllers()],
                "drives": [_plain(d) for d in self.drives()],
                "virtual_drives": [_plain(v) for v in self.virtual_drives()],
                "tasks": [_plain(t) for t in self.tasks()]}

    def table(self) -> str:
        return format_tables(self)

    # -- controllers ----------------------------------------------------------------------
    def _adapters(self, adapter_id: Optional[str]) -> List[str]:
        if adapter_id is not None:
            return [str(adapter_id)]
        count = _count(_first_line(self.raid.query_controller_number()), "controller count")
        return [str(n) for n in range(count or 0)]

    def _mode(self, adapter: str) -> str:
        return self._controller(adapter).mode

    def _controller(self, adapter: str) -> Controller:
        if self.tool == "storcli64":
            return self._storcli64_controller(adapter)
        status = self.raid.get_controller_status_raid(adp_id=adapter)
        raw: Dict[str, Any] = dict(status.get("raw_data") or {})
        temperature = status.get("temperature")
        if self.tool == "arcconf":
            mode_word = _text(raw.get("controller_mode")) or ""
            mode = "hba" if mode_word.startswith("HBA") else \
                "raid" if mode_word.startswith(("RAID", "Mixed")) else None
            model = _text(raw.get("controller_model"))
        else:
            info = self.raid.get_controller_info_raid(adapter_id=adapter)
            for entry in info or []:
                raw.update(entry)
            mode = {"HBA": "hba", "RAID": "raid"}.get(str(raw.get("CtrlMod")))
            model = None
            for c in self.raid.get_all_controllers() or []:
                if str(c.get("ID")) == adapter:
                    model = _text(c.get("Name"))
                    raw["Controller"] = c
        if mode is None:
            _warn("controller mode", raw.get("controller_mode", raw.get("CtrlMod")))
        return Controller(adapter, mode or ControllerMode.UNKNOWN.value, model,
                          _text(status.get("firmware_version")),
                          _text(status.get("serial_number")),
                          _temperature(temperature), raw)

    def _storcli64_controller(self, adapter: str) -> Controller:
        answer = _first_line(self.raid.query_raid_config(adapter_id=adapter))
        parsed = answer.get("parser") if isinstance(answer, dict) else None
        if not isinstance(parsed, dict):
            _warn("controller answer", parsed)
            parsed = {}
        basics, version = parsed.get("Basics") or {}, parsed.get("Version") or {}
        hwcfg = parsed.get("HwCfg") or {}
        # An HBA in IT mode counts no virtual drives.
        mode = "raid" if "Virtual Drives" in parsed or "VD LIST" in parsed else "hba"
        temperature = hwcfg.get("ROC temperature(Degree Celsius)")
        return Controller(adapter, mode, _text(basics.get("Model")),
                          _text(version.get("Firmware Version")),
                          _text(basics.get("Serial Number")), _temperature(temperature), parsed)

    # -- drives -----------------------------------------------------------------------------
    def _drive_records(self, adapter: str) -> List[Dict[str, Any]]:
        if self.tool != "sorbctl":
            return list(self.raid.get_all_physical_drive_info(adapter_id=adapter) or [])
        listed = self.raid._get_physical_drive_list(adapter_id=adapter) or []
        return [self.raid.get_one_physical_drive_info(eid=str(r.get("eid")),
                                                      sid=str(r.get("sid")), adapter_id=adapter)
                for r in listed]

    def _drives(self, adapter: str) -> List[Drive]:
        return [self._drive(adapter, r) for r in self._drive_records(adapter)]

    def _drive(self, adapter: str, record: Mapping[str, Any]) -> Drive:
        raw: Mapping[str, Any] = record.get("raw_data") or {}
        tool = self.tool
        state = _word(DRIVE_STATES[tool], raw.get(DRIVE_STATE_KEY[tool]), DriveState.UNKNOWN,
                      "drive state")
        interface = _choose(INTERFACES, record.get("interface"), "drive interface")
        media = _choose(MEDIA, record.get("media"), "drive media")
        if tool == "storcli64":
            sectors = _sectors(raw.get("Raw size"))
            unit = _sector_size(raw.get("Logical Sector Size") or raw.get("SeSz")) or 512
            size = sectors * unit if sectors is not None else \
                _size_field(raw.get("Raw size") or raw.get("Size"), tool, "drive size")
            errors = (raw.get("Media Error Count"), raw.get("Other Error Count"),
                      raw.get("Predictive Failure Count"))
        elif tool == "arcconf":
            size = _size_field(raw.get("total_size"), tool, "drive size")
            errors = (raw.get("media_failures"), None, raw.get("s.m.a.r.t._warnings"))
        else:
            size = _size_field(raw.get("Capacity"), tool, "drive size")
            errors = (raw.get("MediaErrorCount"), None, raw.get("PredictiveFailureCount"))
        return Drive(adapter, str(record.get("eid", "")).strip(), str(record.get("sid", "")),
                     interface, media, size, _text(record.get("model")),
                     _text(record.get("serial_number")), _text(record.get("firmware_version")),
                     state, _count(errors[0], "media errors"), _count(errors[1], "other errors"),
                     _count(errors[2], "predictive failures"), dict(record))

    # -- virtual drives ---------------------------------------------------------------------------
    def _virtual_drives(self, adapter: str) -> List[VirtualDrive]:
        records = self.raid.get_all_virtual_drive_info(adapter_id=adapter) or []
        return [self._virtual_drive(adapter, r) for r in records]

    def _virtual_drive(self, adapter: str, record: Mapping[str, Any]) -> VirtualDrive:
        raw: Mapping[str, Any] = record.get("raw_data") or {}
        tool, vid = self.tool, str(record.get("vd"))
        level_text = str(record.get("raid_level", "")).upper().replace("RAID", "").strip()
        level: Optional[int] = int(level_text) if level_text.isdigit() else None
        if level not in RAID_LEVELS:
            _warn("raid level", record.get("raid_level"))
            level = None
        size: Optional[int] = None
        if tool == "storcli64" and _count(raw.get("Number of Blocks"), "blocks") is not None:
            blocks = int(raw["Number of Blocks"])
            size = blocks * (_sector_size(raw.get("Sector Size")) or 512)
        else:
            size = _size_field(record.get("size"), tool, "virtual drive size")
        strip_text = record.get("strip_unit_size" if tool == "arcconf" else "strip_size")
        strip = parse_size(strip_text, "any")
        if strip is None:
            _warn("strip size", strip_text)
        if tool == "arcconf":
            members = _arcconf_members(raw)
        else:
            members = [(str(m.get("eid")), str(m.get("sid"))) for m in
                       self.raid.get_virtual_drive_member_drives(vid=vid, adapter_id=adapter)]
        name = _text(record.get("name"))
        return VirtualDrive(
            adapter, vid, name, level,
            _word(VD_STATES[tool], record.get("status"), VirtualDriveState.UNKNOWN,
                  "virtual drive state"),
            size, strip,
            _word(WRITE_CACHES, record.get("write_cache"), WriteCache.UNKNOWN, "write cache"),
            _word(READ_CACHES, record.get("read_cache"), ReadCache.UNKNOWN, "read cache"),
            members, dict(record))

    # -- tasks -------------------------------------------------------------------------------
    def _tasks(self, adapter: str, drives: Sequence[Drive],
               vds: Sequence[VirtualDrive]) -> List[Task]:
        out: List[Task] = []
        raid, tool = self.raid, self.tool
        for d in drives:
            where = {"eid": d.eid, "sid": d.sid, "adapter_id": adapter}
            if d.state == DriveState.REBUILDING and tool != "arcconf":
                answer = raid.get_pd_rebuild_status(**where)
                _add(out, adapter, TaskKind.REBUILD, d.address, answer, "progress", "status")
            if d.state == DriveState.COPYBACK and tool != "arcconf":
                answer = raid.get_pd_copyback_info(**where)
                _add(out, adapter, TaskKind.COPYBACK, d.address, answer, "Progress", "Status")
            if d.state == DriveState.UNCONFIGURED_GOOD:
                answer = raid.get_pd_erase(**where)
                if isinstance(answer, dict):
                    _add(out, adapter, TaskKind.ERASE, d.address, answer, "Progress", "Status")
                if tool != "arcconf":
                    answer = raid.get_pd_sanitize(d.eid, d.sid, adapter_id=adapter)
                    _add(out, adapter, TaskKind.SANITIZE, d.address, answer, "Progress",
                         "Status")
        for vd in vds:
            out.extend(self._vd_tasks(adapter, vd, drives))
        out.extend(self._patrol(adapter, drives))
        return out

    def _vd_tasks(self, adapter: str, vd: VirtualDrive, drives: Sequence[Drive]) -> List[Task]:
        raw: Mapping[str, Any] = vd.raw.get("raw_data") or {}
        out: List[Task] = []
        if self.tool == "arcconf":
            word = _text(raw.get("background_task"))
            if word in (None, "None"):
                return out
            kind = _known_task(VD_TASKS["arcconf"], word)
            if kind is None:
                return out
            target: Union[Tuple[str, str], str] = vd.vid
            if kind[0] == TaskKind.REBUILD:
                rebuilding = [d.address for d in drives if d.state == DriveState.REBUILDING
                              and d.address in vd.members]
                target = rebuilding[0] if rebuilding else vd.vid
            answer = {"Progress": raw.get("background_task_progress"), "Status": "In Progress",
                      "raw_data": raw}
            _add(out, adapter, kind[0], target, answer, "Progress", "Status")
            return out
        key = "Active Operations" if self.tool == "storcli64" else "Operation"
        for word in str(raw.get(key) or "None").split(","):
            word = word.strip()
            if word in ("None", ""):
                continue
            kind = _known_task(VD_TASKS[self.tool], word)
            if kind is None:
                continue
            if kind[1] is None:         # sorbctl's initialisation: in the details
                answer = {"Progress": raw.get("InitProgress"), "Status": raw.get("InitStatus"),
                          "raw_data": raw}
            elif kind[1] in POSITIONAL_VID:
                answer = getattr(self.raid, kind[1])(vd.vid, adapter_id=adapter)
            else:
                answer = getattr(self.raid, kind[1])(vid=vd.vid, adapter_id=adapter)
            _add(out, adapter, kind[0], vd.vid, answer, "Progress", "Status")
        return out

    def _patrol(self, adapter: str, drives: Sequence[Drive]) -> List[Task]:
        out: List[Task] = []
        if self.tool == "arcconf":
            return out
        status = self.raid.get_ctl_patrolread_status(adapter_id=adapter)
        if str(status.get("run_status", "Stopped")).strip() in IDLE:
            return out
        if self.tool == "storcli64":
            answers = self.raid.get_pd_patrolread_status("all", "all", adapter_id=adapter)
            for path, answer in (answers or {}).items():
                m = re.search(r"/e(\w*)/s(\w+)$", str(path)) or re.search(r"/()s(\w+)$", path)
                if m is not None:
                    _add(out, adapter, TaskKind.PATROL_READ, (m.group(1), m.group(2)), answer,
                         "Progress", "Status")
            return out
        for d in drives:
            if d.state in (DriveState.ONLINE, DriveState.UNCONFIGURED_GOOD,
                           DriveState.HOTSPARE):
                answers = self.raid.get_pd_patrolread_status(d.eid, d.sid, adapter_id=adapter)
                for answer in (answers or {}).values():
                    _add(out, adapter, TaskKind.PATROL_READ, d.address, answer, "Progress",
                         "Status")
        return out


def _arcconf_members(raw: Mapping[str, Any]) -> List[Tuple[str, str]]:
    """A logical device's "device_<n>" entries, "Present (286102MB, SAS, HDD,
    Channel:0, Device:0) SERIAL" (the newer tool: "Connector:0")."""
    members: List[Tuple[str, str]] = []
    for key, value in raw.items():
        if re.match(r"^device_\d+$", str(key)):
            m = _ARCCONF_MEMBER.search(str(value))
            if m is None:
                _warn("member drive", value)
            else:
                members.append((m.group(1), m.group(2)))
    return members


def _choose(table: Mapping[str, str], value: Any, field_name: str) -> Optional[str]:
    text = _text(value)
    if text is not None and text.upper() in table:
        return table[text.upper()]
    _warn(field_name, value)
    return None


def _temperature(value: Any) -> Optional[int]:
    """54, "54" or arcconf's "48 C/ 118 F (Normal)"; None when not reported."""
    if value is None or _text(value) in (None, "N/A", "-"):
        return None
    if isinstance(value, int) and not isinstance(value, bool):
        return value
    m = re.match(r"^\s*(-?\d+)\s*(?:C\b|$)", str(value))
    if m is None:
        _warn("temperature", value)
        return None
    return int(m.group(1))


def _known_task(table: Mapping[str, Tuple[TaskKind, Optional[str]]],
                word: str) -> Optional[Tuple[TaskKind, Optional[str]]]:
    if word in table:
        return table[word]
    _warn("task", word)
    return None


def _add(out: List[Task], adapter: str, kind: TaskKind, target: Union[Tuple[str, str], str],
         answer: Any, progress_key: str, status_key: str) -> None:
    """Adds the task an answer reports, unless it reports none running."""
    if isinstance(answer, list) and len(answer) == 1:      # a status table of one row
        answer = answer[0]
    if not isinstance(answer, Mapping):
        _warn("%s status" % kind.value, answer)
        return
    status = _text(answer.get(status_key))
    if status is None or status in IDLE:
        return
    state = TASK_STATES.get(status)
    if state is None:
        _warn("%s status" % kind.value, answer.get(status_key))
        return
    progress = _percent(answer.get(progress_key))
    if progress is None:
        _warn("%s progress" % kind.value, answer.get(progress_key))
        progress = 0
    out.append(Task(adapter, kind, target, progress, state, dict(answer)))


def _plain(record: Any) -> Dict[str, Json]:
    out: Dict[str, Json] = {}
    for name in record.__dataclass_fields__:
        out[name] = _plain_value(getattr(record, name))
    return out


def _plain_value(value: Any) -> Json:
    if isinstance(value, enum.Enum):
        return _plain_value(value.value)
    if isinstance(value, Mapping):
        return {str(k): _plain_value(v) for k, v in value.items()}
    if isinstance(value, (list, tuple)):
        return [_plain_value(v) for v in value]
    if value is None or isinstance(value, (bool, int, float, str)):
        return value
    if isinstance(value, bytes):
        return value.decode("utf-8", "replace")
    return str(value)


# -- the plain-text tables ---------------------------------------------------------------------
def _gb(size: Optional[int]) -> str:
    return "-" if size is None else "%.1f GB" % (size / 1e9)


def _cell(value: Any) -> str:
    if value is None:
        return "-"
    if isinstance(value, enum.Enum):
        return str(value.value)
    if isinstance(value, tuple):
        return ":".join(value)
    return str(value)


def _render(title: str, columns: Sequence[str], rows: Iterable[Sequence[Any]]) -> List[str]:
    cells = [[_cell(v) for v in row] for row in rows]
    widths = [max([len(c)] + [len(r[i]) for r in cells]) for i, c in enumerate(columns)]
    lines = [title, "  ".join(c.ljust(w) for c, w in zip(columns, widths)).rstrip()]
    lines += ["  ".join(v.ljust(w) for v, w in zip(r, widths)).rstrip() for r in cells]
    if not cells:
        lines.append("(none)")
    return lines


def format_tables(inventory: Inventory,
                  parts: Sequence[str] = ("controllers", "drives", "virtual_drives", "tasks"),
                  ) -> str:
    """The inventory as plain-text tables (sizes in decimal GB), one per part."""
    sections: Dict[str, Callable[[], List[str]]] = {
        "controllers": lambda: _render(
            "Controllers", ("adapter", "mode", "model", "firmware", "serial", "temp C"),
            [(c.adapter_id, c.mode, c.model, c.firmware, c.serial, c.temperature_c)
             for c in inventory.controllers()]),
        "drives": lambda: _render(
            "Drives", ("adapter", "drive", "interface", "media", "size", "state", "model",
                       "serial", "media err", "pred fail"),
            [(d.adapter_id, d.address, d.interface, d.media, _gb(d.size_bytes), d.state,
              d.model, d.serial, d.media_errors, d.predictive_failures)
             for d in inventory.drives()]),
        "virtual_drives": lambda: _render(
            "Virtual drives", ("adapter", "vid", "raid", "state", "size", "strip KiB", "write",
                               "read", "members"),
            [(v.adapter_id, v.vid, v.raid_level, v.state, _gb(v.size_bytes),
              None if v.strip_size_bytes is None else v.strip_size_bytes // 1024,
              v.write_cache, v.read_cache, " ".join(":".join(m) for m in v.members))
             for v in inventory.virtual_drives()]),
        "tasks": lambda: _render(
            "Tasks", ("adapter", "kind", "target", "progress", "state"),
            [(t.adapter_id, t.kind, t.target, "%d%%" % t.progress_percent, t.state)
             for t in inventory.tasks()]),
    }
    blocks = ["\n".join(sections[p]()) for p in parts]
    return "\n\n".join(blocks) + "\n"
