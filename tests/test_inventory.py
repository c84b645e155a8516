"""The inventory on simulated two-controller hosts (a RAID card and an HBA
behind the same enclosure number), on every tool and tool version."""
import json
import warnings

import pytest
import yaml

import orvex_sim
from orvex_sim.simhost import SimulatedHost
from orvex.api.hostos.raid.raid import Raid
from orvex.api.hostos.raid.inventory import (
    DriveState, Inventory, InventoryWarning, ReadCache, TaskKind, TaskState, VirtualDriveState,
    WriteCache, format_tables, parse_size)

# (slot, interface, media, size in the vendor's decimal units)
CARD = [(0, "SAS", "HDD", "1.2TB"), (1, "SAS", "HDD", "1.2TB"), (2, "SAS", "HDD", "1.2TB"),
        (3, "SATA", "SSD", "480GB"), (4, "NVMe", "SSD", "800GB"), (5, "SAS", "SSD", "1.92TB")]
HBA = [(0, "SATA", "HDD", "4TB"), (1, "SATA", "SSD", "960GB"), (3, "NVMe", "SSD", "3.84TB")]
VERSIONS = [("storcli64", "new"), ("storcli64", "old"), ("arcconf", "old"), ("arcconf", "new"),
            ("sorbctl", "new")]
# The word a drive that failed out of its array shows.
FAILED = {"storcli64": DriveState.UNCONFIGURED_BAD, "arcconf": DriveState.FAILED,
          "sorbctl": DriveState.FAILED}
# The tool's state word of a free drive, and the view module that prints it.
FREE_WORD = {"storcli64": "UGood", "arcconf": "Ready", "sorbctl": "Free"}


def decimal(size):
    return int(float(size[:-2]) * 1000 ** {"GB": 3, "TB": 4}[size[-2:]])


def near(tool, got, wanted):
    """Within what the tool prints: storcli64 counts sectors, arcconf MiB,
    sorbctl two decimals of GiB or TiB (virtual drives add the MiB the
    controller rounds an array to)."""
    unit = 2 ** 40 if wanted >= 2 ** 40 else 2 ** 30
    slack = {"storcli64": 2 ** 20, "arcconf": 2 ** 21, "sorbctl": 0.005 * unit}[tool]
    return abs(got - wanted) <= slack


@pytest.fixture
def lab(tmp_path):
    """lab(tool, version) -> (host, Inventory) of the two-controller host."""
    active = []

    def make(tool, version="new"):
        spec = {"tool": tool, "version": version, "controllers": [
            {"mode": "raid", "enclosure": 252, "model": "Lab RAID 9000", "drives": [
                {"slot": s, "interface": i, "media": m, "size": z} for s, i, m, z in CARD]},
            {"mode": "hba", "enclosure": 252, "drives": [
                {"slot": s, "interface": i, "media": m, "size": z} for s, i, m, z in HBA]}]}
        path = tmp_path / ("%s-%s.yaml" % (tool, version))
        path.write_text(yaml.safe_dump(spec))
        host = SimulatedHost.from_file(str(path), step=0)     # time moves by advance() only
        use = orvex_sim.use(host)
        use.__enter__()
        active.append(use)
        return host, Inventory(Raid())

    yield make
    for use in active:
        use.__exit__(None, None, None)


def eid_of(tool):
    return "0" if tool == "arcconf" else "252"


@pytest.mark.parametrize("tool, version", VERSIONS)
def test_every_drive_and_virtual_drive_comes_back_as_the_file_describes(lab, tool, version):
    host, inv = lab(tool, version)
    e = eid_of(tool)
    raid = inv.raid
    assert raid.create_virtual_drive(raid_level="1", drives=["%s:0" % e, "%s:1" % e],
                                     strip_size="64", name="mirror", pd_per_array="") is True
    assert raid.create_virtual_drive(raid_level="0", drives=["%s:4" % e], pd_per_array="")

    with warnings.catch_warnings():
        warnings.simplefilter("error")
        controllers, drives, vds = inv.controllers(), inv.drives(), inv.virtual_drives()

    assert [(c.adapter_id, c.mode) for c in controllers] == [("0", "raid"), ("1", "hba")]
    assert controllers[0].model == "Lab RAID 9000" and controllers[1].model
    assert controllers[0].serial != controllers[1].serial      # each asked with its adapter
    assert all(c.firmware and isinstance(c.temperature_c, int) for c in controllers)
    described = [("0", s, i, m, z) for s, i, m, z in CARD] + [("1", s, i, m, z) for s, i, m, z in HBA]
    assert [(d.adapter_id, d.eid, d.sid, d.interface, d.media) for d in drives] == [
        (a, e, str(s), i, m) for a, s, i, m, _ in described]
    for d, (_, _, _, _, size) in zip(drives, described):
        assert near(tool, d.size_bytes, decimal(size)), (d, d.size_bytes, size)
        assert (d.media_errors, d.predictive_failures) == (0, 0)
        assert d.serial and d.firmware and d.model and d.raw
    assert [d.state for d in drives] == [DriveState.ONLINE, DriveState.ONLINE] + [
        DriveState.UNCONFIGURED_GOOD, DriveState.UNCONFIGURED_GOOD, DriveState.ONLINE,
        DriveState.UNCONFIGURED_GOOD] + [DriveState.JBOD] * 3
    assert [d.other_errors for d in drives[:1]] == [0 if tool == "storcli64" else None]
    # the HBA's drives are its own, although both controllers number enclosure 252
    assert [d.serial for d in inv.drives("1")] == [
        c.drives[i].serial for c in host.controllers[1:] for i in range(3)]

    mirror, single = vds
    assert (mirror.adapter_id, mirror.vid, mirror.raid_level, mirror.state, mirror.strip_size_bytes,
            mirror.write_cache, mirror.read_cache, mirror.members) == (
        "0", "0", 1, VirtualDriveState.OPTIMAL, 64 * 1024, WriteCache.WRITE_BACK,
        ReadCache.READ_AHEAD, [(e, "0"), (e, "1")])
    assert (single.vid, single.raid_level, single.members) == ("1", 0, [(e, "4")])
    assert near(tool, mirror.size_bytes, decimal("1.2TB"))
    assert near(tool, single.size_bytes, decimal("800GB"))
    assert inv.virtual_drives("1") == [] and inv.tasks() == []


# The wrappers (and their params, in order) that read the HBA's drives: each
# asks with the adapter, where the tool's own full listing would not.
HBA_DRIVE_CALLS = {
    "storcli64": [("ctr_get_pd_cfg_storcli64", [("adapter_id", "1"), ("eid", "all"),
                                                ("sid", "all")])],
    "arcconf": [("ctr_get_pd_cfg_arcconf", [("adapter_id", "1")])],
    "sorbctl": [("get_controller_pdlist_sorbctl", [("adapter_id", "1")])] + [
        ("get_controller_pd_info_sorbctl", [("eid", "252"), ("sid", s), ("adapter_id", "1")])
        for s in ("0", "1", "3")],
}


@pytest.mark.parametrize("tool", sorted(HBA_DRIVE_CALLS))
def test_a_controllers_drives_are_asked_with_its_adapter(lab, tool):
    host, inv = lab(tool)
    del host.calls[:]
    inv.drives("1")
    assert [(c.wrapper, list(c.params.items())) for c in host.calls] == HBA_DRIVE_CALLS[tool]


@pytest.mark.parametrize("tool", ["storcli64", "arcconf", "sorbctl"])
def test_a_failed_member_rebuilds_onto_the_hot_spare(lab, tool):
    host, inv = lab(tool)
    e = eid_of(tool)
    assert inv.raid.create_virtual_drive(raid_level="1", drives=["%s:0" % e, "%s:1" % e],
                                         pd_per_array="")
    card = host.controller(0)
    card.make_spare(card.drive(e, "2"))
    host.fail_drive(e, "0")

    def state():
        vd, = inv.virtual_drives()
        drives = {d.sid: d.state for d in inv.drives("0")}
        return vd, drives, inv.tasks()

    vd, drives, tasks = state()
    assert vd.state == VirtualDriveState.DEGRADED and vd.members == [(e, "2"), (e, "1")]
    assert (drives["0"], drives["2"]) == (FAILED[tool], DriveState.REBUILDING)
    assert [(t.adapter_id, t.kind, t.target, t.state) for t in tasks] == [
        ("0", TaskKind.REBUILD, (e, "2"), TaskState.RUNNING)]
    host.advance(30)
    _, _, later = state()
    assert [t.kind for t in later] == [TaskKind.REBUILD]
    assert 0 <= tasks[0].progress_percent < later[0].progress_percent < 100
    host.advance(80)
    vd, drives, tasks = state()
    assert (vd.state, drives["2"], tasks) == (VirtualDriveState.OPTIMAL, DriveState.ONLINE, [])


@pytest.mark.parametrize("tool", ["storcli64", "arcconf", "sorbctl"])
def test_an_unknown_word_leaves_the_field_unknown_with_a_warning(lab, tool, monkeypatch):
    view = __import__("orvex_sim.simhost." + tool, fromlist=["STATE"])
    monkeypatch.setitem(view.STATE, "ugood", "Spinning Weird")
    host, inv = lab(tool)
    with pytest.warns(InventoryWarning, match="drive state has an unknown value 'Spinning Weird'"):
        drives = inv.drives("0")
    free = drives[3]
    assert free.state == DriveState.UNKNOWN and free.size_bytes and free.interface == "SATA"
    assert "Spinning Weird" in json.dumps(free.raw)
    assert drives[0].state == DriveState.UNKNOWN


def test_snapshot_and_tables_are_plain(lab):
    host, inv = lab("sorbctl")
    inv.raid.create_virtual_drive(raid_level="1", drives=["252:0", "252:1"], pd_per_array="")
    host.fail_drive("252", "0")
    snap = json.loads(json.dumps(inv.snapshot()))
    assert [c["mode"] for c in snap["controllers"]] == ["raid", "hba"]
    assert snap["drives"][0]["state"] == "failed" and snap["drives"][1]["eid"] == "252"
    assert (snap["virtual_drives"][0]["state"], snap["virtual_drives"][0]["members"]) == (
        "degraded", [["252", "0"], ["252", "1"]])
    lines = format_tables(inv).splitlines()
    assert lines[0] == "Controllers" and "Virtual drives" in lines and "Tasks" in lines
    assert [line.split()[:6] for line in lines if line.split()[:2] == ["0", "252:3"]] == [
        ["0", "252:3", "SATA", "SSD", "480.0", "GB"]]


@pytest.mark.parametrize("text, tool, wanted", [
    ("1.091 TB", "storcli64", 1.091 * 2 ** 40),          # older tool: binary under "TB"
    ("1.091 TiB [0x8bba0cb0 Sectors]", "storcli64", 1.091 * 2 ** 40),
    ("800.00GB", "storcli64", 800e9),                    # newer tool, NVMe: decimal
    ("457763 MB", "arcconf", 457763 * 2 ** 20),
    ("1.09 TB", "sorbctl", 1.09 * 2 ** 40),
    ("256KB", "sorbctl", 256 * 1024),
])
def test_printed_sizes_read_as_the_tool_means_them(text, tool, wanted):
    assert parse_size(text, tool) == int(round(wanted))
    assert parse_size("Unknown", tool) is None


def _seen(e, tool):
    """The tasks each tool lets the inventory see: arcconf reports one task
    per logical device and has no sanitize or patrol read queries."""
    drive_tasks = [(TaskKind.ERASE, (e, "3"))]
    if tool == "arcconf":
        return drive_tasks + [(TaskKind.INITIALIZATION, "0")]
    return drive_tasks + [(TaskKind.SANITIZE, (e, "5")), (TaskKind.INITIALIZATION, "0"),
                          (TaskKind.CONSISTENCY_CHECK, "0")] + [
        (TaskKind.PATROL_READ, (e, s)) for s in ("0", "1", "2")]


@pytest.mark.parametrize("tool", ["storcli64", "arcconf", "sorbctl"])
def test_running_tasks_of_drives_and_virtual_drives(lab, tool):
    host, inv = lab(tool)
    e = eid_of(tool)
    assert inv.raid.create_virtual_drive(raid_level="5", drives=["%s:%d" % (e, s) for s in range(3)],
                                         pd_per_array="")
    card = host.controller(0)
    vd = card.vds[0]
    vd.initialised = True               # a check may run beside the background initialisation
    card.vd_task(vd, "cc")
    card.drive_task(card.drive(e, "3"), "erase", mode="normal")
    card.drive_task(card.drive(e, "5"), "sanitize", mode="cryptoerase")
    card.patrol("start")
    host.advance(12)
    card.control(card.drive(e, "3"), "erase", "pause")
    tasks = inv.tasks()
    assert [(t.kind, t.target) for t in tasks] == _seen(e, tool)
    assert [t.state for t in tasks] == [TaskState.PAUSED] + [TaskState.RUNNING] * (len(tasks) - 1)
    assert all(t.adapter_id == "0" and 5 <= t.progress_percent <= 20 for t in tasks), tasks
    assert inv.tasks("1") == []
