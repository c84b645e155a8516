from orvex_sim.formats import Template  # noqa: F401


class DiagnosticsFormats:
    """Firmware, logs, pass-through, PHY and expander shapes."""
