"""A short test script against the stand-in host.

Runs with `./dev demo`.  Builds a Raid object, shows how an operation's
answer is shaped, and how a tool that lacks a function refuses.
"""
import orvex_sim
from orvex.api.hostos.raid.raid import Raid
from orvex.exception.orvex_exception import OrvexException
from orvex_sim.recorder import RecordingHost, parser


def main():
    host = RecordingHost("sorbctl")
    host.on("get_controller_status_sorbctl", parser({
        "SasAddress": "0x500062b2035a4f40", "FwVersion": "5.060.00-2262",
        "Temperature": "54", "DdrSize": "2.000 GB"}))
    orvex_sim.use(host)
    raid = Raid()
    status = raid.get_controller_status_raid(adp_id="0")
    print("controller status (sorbctl):")
    for key in ("sas_address", "firmware_version", "temperature", "ddr_size", "pd_number"):
        print("  %-18s %r" % (key, status[key]))
    print("dispatched:", host.calls[-1])

    raid.update_distributor("storcli64")
    try:
        raid.set_ctl_mode("3")
    except OrvexException as err:
        print("storcli64 refuses set_ctl_mode:", err)


if __name__ == "__main__":
    main()
