"""arcconf expansion and migration progress from its background tasks, and
its maxCache drives."""
import pytest

from orvex_sim.recorder import parser

TASKS = {"logical_device_task": [
    {"logical_device": "0", "current_operation": "Rebuild", "status": "In Progress"},
    {"logical_device": "1", "current_operation": "Reconfiguration (Expand)",
     "status": "In Progress", "percentage_complete": "17", "estimated_time_left": "2h"},
    {"logical_device": "2", "current_operation": "Migration", "status": "In Progress",
     "percentage_complete": "3"},
]}


@pytest.mark.parametrize("method, vid, expected", [
    ("get_expand_array_info", "1", ("1", "Reconfiguration (Expand)", "17", "In Progress")),
    ("get_migrate_info", "1", ("1", "Reconfiguration (Expand)", "17", "In Progress")),
    ("get_migrate_info", "2", ("2", "Migration", "3", "In Progress")),
    ("get_migrate_info", "0", ("0", "", "", "Not in progress")),
    ("get_expand_array_info", "2", ("2", "", "", "Not in progress")),
])
def test_arcconf_progress_from_background_tasks(rig, method, vid, expected):
    raid, host = rig("arcconf")
    host.on("ctr_get_controller_bgtask_arcconf", parser(TASKS))
    r = getattr(raid, method)(vid=vid, adapter_id="0")
    assert (r["vid"], r["Operation"], r["Progress"], r["Status"]) == expected
    assert list(host.last().params.items()) == [("vid", vid), ("adapter_id", "0")]


def test_ssd_caching_arcconf_lists_maxcache_drives(rig):
    raid, host = rig("arcconf")
    host.on("ctr_get_maxcache_arcconf", parser({"logical_device_information": {
        "logical_device_number_3": {"logical_device_number": "3", "logical_device_name": "mc",
                                    "maxcache_logical_devices": "0"}}}))
    assert [(e["vd"], e["name"], e["cached_vds"]) for e in raid.get_ssd_caching_info()] == [
        ("3", "mc", "0")]
