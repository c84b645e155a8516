from orvex_sim.formats import Template  # noqa: F401


class PhysicalDriveFormats:
    pass
