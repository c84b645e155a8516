"""`python -m orvex_sim`: one operation from a shell, and a look at a host."""
import io
import json
import os
import pathlib
import shlex
import subprocess
import sys

import pytest

import orvex_sim
from orvex.api.hostos.raid import raid as raid_module
from orvex_sim import cli
from orvex_sim.simhost import SimulatedHost

# The interpreter to start (under qemu, its command line).
PYTHON = shlex.split(os.environ.get("RAID_PYTHON", "")) or [sys.executable]

ROOT = pathlib.Path(__file__).resolve().parents[2]
LAB = str(ROOT / "examples" / "lab_host.yaml")


def run(*argv):
    out, err = io.StringIO(), io.StringIO()
    with orvex_sim.use(None):
        status = cli.main(list(argv), out, err)
    return status, out.getvalue(), err.getvalue()


CALLS = [
    ("created", ["--tool", "arcconf", "call", "create_virtual_drive", "raid_level=1",
                 "drives=0:4,0:5", "pd_per_array="], 0, True, ""),
    ("drives as JSON", ["--tool", "sorbctl", "call", "create_virtual_drive", "raid_level=1",
                        'drives=["65:4", "65:5"]', "pd_per_array=", "name=m1"], 0, True, ""),
    ("a query", ["--host", LAB, "call", "query_controller_number"], 0, "2", ""),
    ("refused by the tool kind", ["--tool", "arcconf", "call", "set_ctl_restart"], 1, None,
     "OrvexException: PMC卡arcconf工具没有 设置控制器复位 功能\n"),
    ("refused by the strict host", ["call", "delete_virtual_drive", "vid=0", "adaptor_id=1"],
     1, None, "UnexpectedParams: the simulated storcli64 host's wrapper "
              "'ctr_delete_vd_storcli64' does not read 'adaptor_id' (it reads adapter_id, "
              "adp_id, oper, vid)\n"),
    ("a query of nothing", ["--tool", "sorbctl", "call", "get_one_physical_drive_info",
                            "eid=65", "sid=42"], 1, None,
     "CommandFailed: get_controller_pd_info_sorbctl: drive 65:42 does not exist\n"),
    ("no such operation", ["call", "set_everything"], 1, None,
     "Raid has no operation named 'set_everything'\n"),
    ("not key=VALUE", ["call", "delete_virtual_drive", "0"], 1, None,
     "'0' is not key=VALUE\n"),
]


@pytest.mark.parametrize("why, argv, status, result, message", CALLS,
                         ids=[c[0] for c in CALLS])
def test_call_prints_the_result_as_json_or_the_message_on_stderr(why, argv, status, result,
                                                                 message):
    got, out, err = run(*argv)
    assert (got, err) == (status, message)
    assert (json.loads(out) if out else None) == result


def test_call_through_python_m_prints_false_with_the_hosts_reason():
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(
        p for p in (os.environ.get("RAID_SITE"), str(ROOT / "sim")) if p))
    env.pop("ORVEX_RAID_HOST", None)
    done = subprocess.run(PYTHON + ["-m", "orvex_sim", "--tool", "storcli64", "call",
                           "create_virtual_drive", "raid_level=7", "drives=252:0,252:1",
                           "pd_per_array="], capture_output=True, text=True, env=env)
    assert (done.returncode, done.stdout) == (1, "false\n")
    assert done.stderr == ("ctr_create_vd_storcli64 answered: failure: RAID level 7 is not "
                           "supported\n")
    for command in ([], ["show"], ["call"]):
        helped = subprocess.run(PYTHON + ["-m", "orvex_sim"] + command + ["--help"],
                                capture_output=True, text=True, env=env)
        assert helped.returncode == 0 and helped.stdout.startswith(
            "usage: python -m orvex_sim " + " ".join(command)), helped


def test_show_tables_through_the_operations(monkeypatch):
    monkeypatch.setattr(cli, "_inventory", lambda: None)
    host = SimulatedHost("storcli64")
    with orvex_sim.use(host):
        raid = raid_module.Raid()
    assert raid.create_virtual_drive(raid_level="5", drives=["252:0", "252:1", "252:2"],
                                     name="data", pd_per_array="") is True
    out, err = io.StringIO(), io.StringIO()
    assert cli.show(raid, out, err) == 0
    sections = out.getvalue().split("\n\n")
    assert [s.split("\n")[0] for s in sections[:4]] == [
        "controllers (1)", "drives (8)", "virtual drives (1)", "tasks (1)"]
    assert sections[2].split("\n")[1:] == [
        "adapter_id  vd  name  raid_level  status  size       write_cache  read_cache",
        "0           0   data  RAID5       Optl    2.183 TiB  WB           RA"]
    assert sections[3].split("\n")[1:] == [
        "adapter_id  vid  Operation  Status       Progress  Estimated_time_left",
        "0           0    BGI        In progress  5         2 Minutes"]
    assert err.getvalue() == ""

    host.raise_wrapper("ctr_get_vd_cfg_storcli64")
    out = io.StringIO()
    assert cli.show(raid, out, err) == 0
    assert "\n\nvirtual drives (0)\n\ntasks (0)\n" in out.getvalue()
    assert err.getvalue() == ("adapter 0: get_all_virtual_drive_info: CommandFailed: "
                              "ctr_get_vd_cfg_storcli64: /opt/raid/storcli64: No such file or "
                              "directory\n")


def test_show_prints_the_inventorys_tables():
    from orvex.api.hostos.raid.inventory import Inventory

    status, out, err = run("--host", LAB, "show")
    with orvex_sim.use(SimulatedHost.from_file(LAB)):
        raid = raid_module.Raid()
    assert (status, out, err) == (0, Inventory(raid).table().rstrip("\n") + "\n", "")
    assert out.startswith("Controllers\n")
