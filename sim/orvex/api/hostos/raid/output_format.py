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

# Every tool names success in its action output ("success", {"Status":
# "Success"}, arcconf's "Command completed successfully."); a failure, an
# error or an abort outweighs it ("unsuccessful" is a failure too).
_SUCCESS = re.compile(r"success", re.I)
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

        `raw` is the wrapper's raw answer, whose `parser` entry is read (a
        text, a list of lines or a dictionary, whose keys and values are
        read); anything but a dictionary is taken as that entry itself.  Output that reports a failure, an error or
        an abort is False whatever else it says, and so is a missing or empty
        output; otherwise the action went through when the output names
        success.  `tool` is the variant's tool kind; all of them word success
        and failure alike.
        """
        parsed = raw.get("parser") if isinstance(raw, dict) else raw
        if parsed is None or parsed == "" or parsed == [] or parsed == {}:
            return False
        text = _text(parsed)
        if _FAILURE.search(text):
            return False
        return bool(_SUCCESS.search(text))
