"""`python -m orvex_sim`: a quick look at a simulated host from a shell.

    python -m orvex_sim --tool arcconf show
    python -m orvex_sim --host examples/lab_host.yaml call get_controller_status_raid adp_id=1
    python -m orvex_sim call create_virtual_drive raid_level=1 drives=252:4,252:5 pd_per_array=

Each run starts the host afresh, as its host file (or tool) describes it.
"""
from __future__ import annotations

import argparse
import importlib
import json
import sys
from typing import Any, Callable, Dict, Iterable, List, Optional, Sequence, TextIO

import orvex_sim
from orvex_sim.simhost import TOOLS, SimulatedHost

VALUES = """\
values: key=VALUE passes VALUE as text, as the operations take it (vid=0,
state=on, size=100GB); a VALUE written as a JSON list or object ([...],
{...}) or as true, false or null is decoded from JSON; drives=252:0,252:1
is the list ["252:0", "252:1"] (drives= is the empty list)."""

CALL_HELP = """\
Runs one operation of Raid on the host and prints its result as JSON.
A refusal (OrvexException) or an error prints its message on stderr and
exits with status 1; so does a result of False, with the host's answer
that explains it.

""" + VALUES


def parse_value(key: str, text: str) -> Any:
    """One key=VALUE of the command line as the operation takes it."""
    if text[:1] in ("[", "{") or text in ("true", "false", "null"):
        try:
            return json.loads(text)
        except ValueError as why:
            raise ValueError("%s: %s is not JSON (%s)" % (key, text, why)) from None
    if key == "drives":
        return [d for d in text.split(",") if d]
    return text


def parse_arguments(pairs: Iterable[str]) -> Dict[str, Any]:
    arguments: Dict[str, Any] = {}
    for pair in pairs:
        key, equals, text = pair.partition("=")
        if not equals or not key:
            raise ValueError("%r is not key=VALUE" % pair)
        arguments[key] = parse_value(key, text)
    return arguments


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="python -m orvex_sim",
        description="A simulated host from a shell: show its controllers, drives, virtual "
                    "drives and tasks, or run one operation of Raid on it.",
        epilog="Without --host or --tool: the host file named by ORVEX_RAID_HOST, else the "
               "tool named by ORVEX_RAID_TOOL (storcli64 when unset).")
    where = parser.add_mutually_exclusive_group()
    where.add_argument("--host", metavar="FILE", help="a host file (YAML, see the README)")
    where.add_argument("--tool", choices=TOOLS,
                       help="one RAID controller of this tool with the default drives")
    commands = parser.add_subparsers(dest="command", metavar="COMMAND")
    commands.required = True
    commands.add_parser("show", help="the controllers, drives, virtual drives and tasks",
                        description="Prints the host's controllers, drives, virtual drives and "
                                    "running tasks as tables.")
    call = commands.add_parser("call", help="run one operation, print its result as JSON",
                               description=CALL_HELP,
                               formatter_class=argparse.RawDescriptionHelpFormatter)
    call.add_argument("operation", metavar="OPERATION", help="a method of Raid")
    call.add_argument("arguments", metavar="key=VALUE", nargs="*",
                      help="its arguments (see values above)")
    return parser


def _host(options: argparse.Namespace) -> Any:
    if options.host:
        return SimulatedHost.from_file(options.host)
    if options.tool:
        return SimulatedHost(options.tool)
    return orvex_sim.current()


def main(argv: Optional[Sequence[str]] = None, out: TextIO = sys.stdout,
         err: TextIO = sys.stderr) -> int:
    options = _parser().parse_args(argv)
    try:
        host = _host(options)
    except (OSError, ValueError) as why:
        err.write("cannot build the host: %s\n" % why)
        return 1
    from orvex.api.hostos.raid.raid import Raid

    with orvex_sim.use(host):
        raid = Raid()
    if options.command == "show":
        return show(raid, out, err)
    return call(raid, host, options.operation, options.arguments, out, err)


# -- call -------------------------------------------------------------------------------
def call(raid: Any, host: Any, name: str, pairs: Sequence[str], out: TextIO,
         err: TextIO) -> int:
    operation = getattr(raid, name, None) if not name.startswith("__") else None
    if not callable(operation):
        err.write("Raid has no operation named %r\n" % name)
        return 1
    try:
        arguments = parse_arguments(pairs)
    except ValueError as why:
        err.write("%s\n" % why)
        return 1
    before = len(host.calls) if hasattr(host, "calls") else 0
    try:
        result = operation(**arguments)
    except Exception as error:
        err.write("%s: %s\n" % (type(error).__name__, error))
        return 1
    out.write(json.dumps(result, ensure_ascii=False, indent=2, default=repr) + "\n")
    if result is False:
        for made in getattr(host, "calls", [])[before:]:
            err.write("%s answered: %s\n" % (made.wrapper, made.outcome))
        return 1
    return 0


# -- show -------------------------------------------------------------------------------
Rows = List[Dict[str, Any]]

CONTROLLER_COLUMNS = ("adapter_id", "firmware_version", "serial_number", "sas_address",
                      "temperature", "pd_number", "vd_number", "ddr_size")
DRIVE_COLUMNS = ("adapter_id", "eid", "sid", "interface", "media", "type", "status", "size",
                 "model", "serial_number")
VD_COLUMNS = ("adapter_id", "vd", "name", "raid_level", "status", "size", "write_cache",
              "read_cache")
TASK_COLUMNS = ("adapter_id", "vid", "Operation", "Status", "Progress", "Estimated_time_left")
RUNNING = ("in progress", "running", "run", "active", "paused")


def show(raid: Any, out: TextIO, err: TextIO) -> int:
    inventory = _inventory()
    if inventory is not None:
        out.write(inventory(raid).table().rstrip("\n") + "\n")
        return 0
    notes: List[str] = []
    for title, rows, columns in _through_operations(raid, notes):
        out.write("\n".join(table(title, rows, columns)) + "\n\n")
    for note in notes:
        err.write(note + "\n")
    return 0


def _inventory() -> Optional[Any]:
    """The inventory's class, when the module installed has one."""
    try:
        module = importlib.import_module("orvex.api.hostos.raid.inventory")
    except ImportError:
        return None
    return getattr(module, "Inventory", None)


def _through_operations(raid: Any, notes: List[str]) -> List[Any]:
    """The sections as the public operations of Raid give them; an operation
    that fails leaves its rows out and a line in `notes`."""
    controllers: Rows = []
    drives: Rows = []
    vds: Rows = []
    tasks: Rows = []

    def rows(adapter: str, name: str, **arguments: Any) -> Rows:
        try:
            answer = getattr(raid, name)(**arguments)
        except Exception as error:
            notes.append("adapter %s: %s: %s: %s" % (adapter, name, type(error).__name__, error))
            return []
        return [dict(r, adapter_id=adapter) for r in (
            answer if isinstance(answer, list) else [answer])]

    for n in range(int(raid.query_controller_number())):
        adapter = str(n)
        controllers += rows(adapter, "get_controller_status_raid", adp_id=adapter)
        drives += rows(adapter, "get_all_physical_drive_info", adapter_id=adapter)
        listed = rows(adapter, "get_all_virtual_drive_info", adapter_id=adapter)
        vds += listed
        for vd in listed:
            for query in (raid.query_virtual_drive_cc_status, raid.get_virtual_drive_bgi_state):
                tasks += [dict(t, adapter_id=adapter)
                          for t in _running(query, str(vd["vd"]), adapter)]
    return [("controllers", controllers, CONTROLLER_COLUMNS), ("drives", drives, DRIVE_COLUMNS),
            ("virtual drives", vds, VD_COLUMNS), ("tasks", tasks, TASK_COLUMNS)]


def _running(query: Callable[..., Any], vid: str, adapter: str) -> Rows:
    """The records of a task query that report a task running; none when the
    tool lacks the query."""
    try:
        answer = query(vid=vid, adapter_id=adapter)
    except Exception:
        return []
    records = answer if isinstance(answer, list) else [answer]
    return [r for r in records if isinstance(r, dict)
            and str(r.get("Status", "")).lower() in RUNNING]


def table(title: str, rows: Sequence[Dict[str, Any]], columns: Sequence[str]) -> List[str]:
    """`rows` under `title` as a text table of `columns`."""
    lines = ["%s (%d)" % (title, len(rows))]
    if not rows:
        return lines
    cells = [[_cell(row.get(c)) for c in columns] for row in rows]
    widths = [max([len(c)] + [len(r[i]) for r in cells]) for i, c in enumerate(columns)]
    for line in [list(columns)] + cells:
        lines.append("  ".join(v.ljust(w) for v, w in zip(line, widths)).rstrip())
    return lines


def _cell(value: Any) -> str:
    if value is None:
        return ""
    if isinstance(value, (dict, list, tuple)):
        return json.dumps(value, ensure_ascii=False, default=str)
    return str(value).strip()
