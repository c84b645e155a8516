from orvex_sim.formats import Template  # noqa: F401


class DiagnosticsFormats:
    """Firmware, logs, pass-through, PHY and expander shapes."""

    # One record per expander backplane.  storcli64 records are the merged
    # enclosure sections (Device ID from Information, the Inquiry Data
    # fields, the SAS address of the first EnclSasAddress row); arcconf
    # records are built from the expander list and the device list.
    get_expander_cfg_format = Template({
        "storcli64": {
            "expander_id": "Device ID",
            "product_id": "Product Identification",
            "vendor_id": "Vendor Identification",
            "firmware_version": "Product Revision Level",
            "sas_address": "SAS address",
        },
        "arcconf": {
            "expander_id": "expander_id",
            "product_id": "product_id",
            "connector": "connector",
            "channel_device": "channel_device",
        },
    })
