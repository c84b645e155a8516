from orvex_sim.formats import Template  # noqa: F401


class ControllerFormats:
    # -- controller status and information ---------------------------------
    def storcli64_get_controller_status_raid_treatments(self):
        """Layer map cutting the controller record out of `show all`; the
        drive counts are top-level entries of that answer."""
        return {
            "Basics": True,
            "Version": True,
            "Bus": True,
            "Status": True,
            "HwCfg": True,
            "Physical Drives": False,
            "Virtual Drives": False,
        }

    def get_controller_status_raid_format(self, data):
        return data

    def get_controller_info_raid_format(self, parsed):
        if isinstance(parsed, dict):
            return [{key: value} for key, value in parsed.items()]
        return parsed

    # -- supercapacitor ----------------------------------------------------
    # storcli64 `show cv all` answers property tables (Property/Value rows),
    # flattened by the operation; the brief view (`simple`) answers whole
    # rows, whose State/Temp/MfgDate keys are taken where the full view has
    # none of its own.  arcconf lists the backup unit inside the controller
    # section of `getconfig ad`; sorbctl answers one flat record.
    get_capacitance_info_format = Template({
        "storcli64": {
            "Status": "State",
            "Device Name": "Device Name",
            "Model": "Model",
            "Temperature": "Temperature",
            "SN": "Serial Number",
            "Supercap SN": "Pack Serial Number",
            "Module Version": "Module Version",
            "Supercap Date of Manufacture": "Pack Date of Manufacture",
            "Date of Manufacture": "Date of Manufacture",
            "PCB Version": "PCB Version",
            "Design Capacity": "Design Capacity",
            "Manufacture Name": "Manufacture Name",
        },
        "arcconf": {
            "Status": "backup_unit_status",
            "Device Name": "backup_unit_type",
            "Model": "backup_unit_model",
            "Temperature": "backup_unit_temperature",
            "SN": "backup_unit_serial_number",
            "Supercap SN": "supercap_serial_number",
            "Module Version": "supercap_module_version",
            "Supercap Date of Manufacture": "supercap_date_of_manufacture",
            "Date of Manufacture": "backup_unit_date_of_manufacture",
            "PCB Version": "supercap_pcb_version",
            "Design Capacity": "supercap_design_capacity",
            "Manufacture Name": "backup_unit_vendor",
        },
        "sorbctl": {
            "Status": "Status",
            "Device Name": "Device Name",
            "Model": "Model",
            "Temperature": "Temperature",
            "SN": "SN",
            "Supercap SN": "Supercap SN",
            "Module Version": "Module Version",
            "Supercap Date of Manufacture": "Supercap Date of Manufacture",
            "Date of Manufacture": "Date of Manufacture",
            "PCB Version": "PCB Version",
            "Design Capacity": "Design Capacity",
            "Manufacture Name": "Manufacture Name",
        },
    })

    # storcli64 `show cv learn` (Property/Value rows, flattened by the
    # operation); sorbctl answers one flat record.
    get_supercap_self_learn_info_format = Template({
        "storcli64": {
            "Last_learn_status": "Last Learn Status",
            "Last_learn_time": "Last Learn time",
            "Learn_cycle": "Auto Learn Period",
            "Next_learn_time": "Next Learn time",
            "Present": "Present",
        },
        "sorbctl": {
            "Last_learn_status": "Last Learn Status",
            "Last_learn_time": "Last Learn Time",
            "Learn_cycle": "Learn Cycle",
            "Next_learn_time": "Next Learn Time",
            "Present": "Present",
        },
    })
