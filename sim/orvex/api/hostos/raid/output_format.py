"""Stand-in for the framework's output formatter.

Judges action results per tool and holds the per-operation templates and
treatments; those live in `orvex_sim.formats`, one mixin per subsystem.
"""
from orvex_sim.formats.background_tasks import BackgroundTaskFormats
from orvex_sim.formats.controller import ControllerFormats
from orvex_sim.formats.diagnostics import DiagnosticsFormats
from orvex_sim.formats.physical_drive import PhysicalDriveFormats
from orvex_sim.formats.virtual_drive import VirtualDriveFormats

import re

# What each tool prints when an action went through, and what it prints when
# it did not (checked first: "unsuccessful" is a failure).
_SUCCESS = {
    "storcli64": re.compile(r"\bsuccess", re.I),
    "arcconf": re.compile(r"command completed successfully", re.I),
    "sorbctl": re.compile(r"^\s*success", re.I),
    "storelibtest": re.compile(r"\bsuccess", re.I),
}
_FAILURE = re.compile(r"\bfail|\berror|\babort|unsuccess", re.I)


def _text(parsed):
    if isinstance(parsed, dict):
        return " ".join("%s %s" % (k, _text(v)) for k, v in parsed.items())
    if isinstance(parsed, (list, tuple)):
        return "\n".join(_text(x) for x in parsed)
    return str(parsed)


class OutputFormatter(ControllerFormats, DiagnosticsFormats, PhysicalDriveFormats,
                      VirtualDriveFormats, BackgroundTaskFormats):
    def __init__(self, raid):
        self.raid = raid

    def parser_exec_cmd_format(self, raw, tool):
        """True when the tool reported that the action went through.

        `raw` is the wrapper's raw answer (its `parser` entry is read) or the
        parsed output itself.  storcli64 and storelibtest: the output names
        success ("success", {"Status": "Success"}); arcconf: "Command completed
        successfully."; sorbctl: the output starts with "success".  Output
        that reports a failure, an error or an abort is False whatever else
        it says, and so is a missing or empty output.
        """
        parsed = raw.get("parser") if isinstance(raw, dict) and "parser" in raw else raw
        if parsed is None or parsed == "" or parsed == [] or parsed == {}:
            return False
        text = _text(parsed)
        if _FAILURE.search(text):
            return False
        pattern = _SUCCESS.get(tool, _SUCCESS["storcli64"])
        return bool(pattern.search(text))
