"""Stand-in for the framework's output formatter.

Judges action results per tool and holds the per-operation templates and
treatments; those live in `orvex_sim.formats`, one mixin per subsystem.
"""
from orvex_sim.formats.background_tasks import BackgroundTaskFormats
from orvex_sim.formats.controller import ControllerFormats
from orvex_sim.formats.diagnostics import DiagnosticsFormats
from orvex_sim.formats.physical_drive import PhysicalDriveFormats
from orvex_sim.formats.virtual_drive import VirtualDriveFormats

_SUCCESS_WORDS = {
    "storcli64": ("success",),
    "arcconf": ("success", "command completed successfully"),
    "sorbctl": ("success",),
    "storelibtest": ("success",),
}


class OutputFormatter(ControllerFormats, DiagnosticsFormats, PhysicalDriveFormats,
                      VirtualDriveFormats, BackgroundTaskFormats):
    def __init__(self, raid):
        self.raid = raid

    def parser_exec_cmd_format(self, raw, tool):
        """True when the tool reported success in its parsed output."""
        parsed = raw.get("parser") if isinstance(raw, dict) else raw
        if parsed is None:
            return False
        if isinstance(parsed, (list, tuple)):
            text = " ".join(str(x) for x in parsed)
        else:
            text = str(parsed)
        text = text.lower()
        return any(word in text for word in _SUCCESS_WORDS.get(tool, ("success",)))
