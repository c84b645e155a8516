"""Virtual drive expansion, migration, SMART pass-through and SSD caching."""
import pytest

from orvex_sim.recorder import parser

OK = parser("Expand VD success")
NO = parser("Expand VD failed")

# (tool, call, wrapper, params as sent)
ACTIONS = [
    ("storcli64", lambda r: r.set_vd_expand_size(vid="0", size="100GB", adapter_id="0"),
     "vd_set_expand_size_storcli64", [("vid", "0"), ("size", "100GB"), ("adapter_id", "0")]),
    ("arcconf", lambda r: r.set_vd_expand_size(vid="1", size="1TB"),
     "vd_set_expand_size_arcconf", [("vid", "1"), ("size", "1TB")]),
    ("sorbctl", lambda r: r.set_vd_expand_size(vid="2", size="10GB"),
     "set_controller_vd_expand_sorbctl", [("vid", "2"), ("size", "10GB")]),
    ("storcli64", lambda r: r.add_pd_expand_array(vid="0", drives=["65:3"], raid_level="5"),
     "vd_add_pd_expand_array_storcli64", [("vid", "0"), ("drives", ["65:3"]), ("raid_level", "5")]),
    ("arcconf", lambda r: r.add_pd_expand_array(vid="0", drives=["0 3"]),
     "vd_add_pd_expand_array_arcconf", [("vid", "0"), ("drives", ["0 3"])]),
    ("sorbctl", lambda r: r.add_pd_expand_array(vid="0", drives=["0:3", "0:4"]),
     "add_controller_vd_pd_sorbctl", [("vid", "0"), ("drives", ["0:3", "0:4"])]),
    ("storcli64", lambda r: r.migrate_raid(vid="0", raid_level="5", drives=["65:3"]),
     "vd_start_migrate_storcli64", [("vid", "0"), ("raid_level", "5"), ("drives", ["65:3"])]),
    ("arcconf", lambda r: r.migrate_raid(vid="1", raid_level="6"),
     "vd_start_migrate_arcconf", [("vid", "1"), ("raid_level", "6")]),
    ("sorbctl", lambda r: r.migrate_raid(vid="1", raid_level="0", adapter_id="1"),
     "migrate_controller_vd_sorbctl", [("vid", "1"), ("raid_level", "0"), ("adapter_id", "1")]),
]


@pytest.mark.parametrize("tool, call, wrapper, sent", ACTIONS)
@pytest.mark.parametrize("answer, expected", [(OK, True), (NO, False)])
def test_actions(rig, tool, call, wrapper, sent, answer, expected):
    raid, host = rig(tool)
    host.on(wrapper, answer)
    assert call(raid) is expected
    assert [(c.route, c.wrapper, list(c.params.items())) for c in host.calls] == [
        ("self", wrapper, sent)]


ROW = {"VD": "0", "Operation": "Migrate", "Progress%": "30", "Status": "In progress",
       "Estimated Time Left": "1 Hours"}
SHAPED = {"vid": "0", "Operation": "Migrate", "Progress": "30", "Status": "In progress",
          "Estimated_time_left": "1 Hours"}


@pytest.mark.parametrize("method, tool, wrapper, answer, expected", [
    ("get_expand_array_info", "storcli64", "vd_get_expand_info_storcli64",
     {"VD Operation Status": [ROW]}, [SHAPED]),
    ("get_migrate_info", "storcli64", "vd_get_migrate_info_storcli64",
     {"VD Operation Status": [ROW]}, [SHAPED]),
    ("get_expand_array_info", "sorbctl", "get_controller_vd_expand_sorbctl",
     {"ID": "0", "ExpandProgress": "5%", "ExpandStatus": "Running"},
     {"vid": "0", "Operation": "", "Progress": "5%", "Status": "Running",
      "Estimated_time_left": ""}),
    ("get_migrate_info", "sorbctl", "get_controller_vd_migrate_sorbctl",
     {"ID": "0", "MigrateProgress": "9%", "MigrateStatus": "Running", "MigrateTimeLeft": "4h"},
     {"vid": "0", "Operation": "", "Progress": "9%", "Status": "Running",
      "Estimated_time_left": "4h"}),
])
def test_progress_queries(rig, method, tool, wrapper, answer, expected):
    raid, host = rig(tool)
    host.on(wrapper, parser(answer))
    result = getattr(raid, method)(vid="0", adapter_id="0")
    strip = (lambda d: {k: v for k, v in d.items() if k != "raw_data"})
    assert (list(map(strip, result)) if isinstance(result, list) else strip(result)) == expected
    assert host.wrappers == [wrapper]
    assert list(host.last().params.items()) == [("vid", "0"), ("adapter_id", "0")]


TASKS = {"logical_device_task": [
    {"logical_device": "0", "current_operation": "Rebuild", "status": "In Progress"},
    {"logical_device": "1", "current_operation": "Reconfiguration (Expand)",
     "status": "In Progress", "percentage_complete": "17", "estimated_time_left": "2h"},
    {"logical_device": "2", "current_operation": "Migration", "status": "In Progress",
     "percentage_complete": "3"},
]}


@pytest.mark.parametrize("method, vid, expected", [
    ("get_expand_array_info", "1", ("1", "Reconfiguration (Expand)", "17", "In Progress")),
    ("get_migrate_info", "2", ("2", "Migration", "3", "In Progress")),
    ("get_migrate_info", "0", ("0", "", "", "Not in progress")),
    ("get_expand_array_info", "2", ("2", "", "", "Not in progress")),
])
def test_arcconf_progress_from_background_tasks(rig, method, vid, expected):
    raid, host = rig("arcconf")
    host.on("ctr_get_controller_bgtask_arcconf", parser(TASKS))
    r = getattr(raid, method)(vid=vid)
    assert (r["vid"], r["Operation"], r["Progress"], r["Status"]) == expected
    assert host.wrappers == ["ctr_get_controller_bgtask_arcconf"]


@pytest.mark.parametrize("tool, wrapper", [
    ("storcli64", "vd_get_smartinfo_smartctl_storcli64"),
    ("arcconf", "vd_get_smartinfo_smartctl_arcconf"),
    ("sorbctl", "get_controller_vd_smartinfo_sorbctl")])
def test_smartinfo_passes_parsed_answer(rig, tool, wrapper):
    raid, host = rig(tool)
    smart = {"SMART overall-health self-assessment test result": "PASSED"}
    host.on(wrapper, parser(smart))
    assert raid.get_vd_smartinfo_smartctl(vid="0", eid="65", sid="1") == smart
    assert list(host.last().params.items()) == [("vid", "0"), ("eid", "65"), ("sid", "1")]


def test_ssd_caching(rig):
    raid, host = rig("storcli64")
    host.on("ctr_get_ssd_caching_storcli64", parser({"VD LIST": [
        {"DG/VD": "2/2", "TYPE": "Cac0", "State": "Optl", "Size": "200 GB", "Name": "cc",
         "Cached VDs": "0,1"}]}))
    r = raid.get_ssd_caching_info(adapter_id="0")
    assert [(e["vd"], e["raid_level"], e["cached_vds"]) for e in r] == [("2/2", "Cac0", "0,1")]
    raid, host = rig("arcconf")
    host.on("ctr_get_maxcache_arcconf", parser({"logical_device_information": {
        "logical_device_number_3": {"logical_device_number": "3", "logical_device_name": "mc",
                                    "maxcache_logical_devices": "0"}}}))
    r = raid.get_ssd_caching_info()
    assert [(e["vd"], e["name"], e["cached_vds"]) for e in r] == [("3", "mc", "0")]
