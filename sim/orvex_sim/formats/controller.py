from orvex_sim.formats import Template  # noqa: F401


class ControllerFormats:
    # -- controller status and information ---------------------------------
    def storcli64_get_controller_status_raid_treatments(self):
        """Layer map cutting the controller record out of `show all`."""
        return {
            "Basics": True,
            "Version": True,
            "Bus": True,
            "Status": True,
            "HwCfg": True,
        }

    def get_controller_status_raid_format(self, data):
        return data

    def get_controller_info_raid_format(self, parsed):
        if isinstance(parsed, dict):
            return [{key: value} for key, value in parsed.items()]
        return parsed
