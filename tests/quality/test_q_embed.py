"""A C program embeds the interpreter, imports the module this suite runs
against, runs operations on the simulated host, finalises, and does it all
again three times: no crash and the same answers each time.  Under the
sanitizer suite the program runs with the same runtimes preloaded, so a use
of a finalised interpreter's objects, or a state never released, is
reported."""
import os
import pathlib
import shutil
import subprocess
import sys
import sysconfig

import pytest
import yaml

from orvex.api.hostos.raid import raid as raid_module

ROOT = pathlib.Path(__file__).resolve().parents[2]
SITE = pathlib.Path(raid_module.__file__).resolve().parents[4]  # <site>/orvex/api/hostos/raid/

PROGRAM = r"""
#include <Python.h>
#include <stdio.h>
int main(int argc, char** argv) {  /* argv[1]: the script each interpreter runs */
  for (int i = 0; argc == 2 && i < 3; ++i) {
    Py_Initialize();
    const int failed = PyRun_SimpleString(argv[1]);
    if (Py_FinalizeEx() < 0 || failed != 0) return 1;
    printf("-- finalised\n");
    fflush(stdout);
  }
  return argc == 2 ? 0 : 2;
}
"""

# Every kind of kept state: the class and its registrations, templates,
# the duplicate key message, regular expressions, refusals, binding errors.
SCRIPT = """
import importlib, sys
sys.path[:0] = {paths!r}
sys.modules["yaml._yaml"] = None  # libyaml's binding does not survive a second interpreter
import orvex_sim
from orvex_sim.simhost import SimulatedHost
from orvex.api.hostos.raid.raid import Raid

def outcome(call):
    try:
        return repr(call())
    except Exception as e:
        return "%s: %s" % (type(e).__name__, e)

for tool, drives in (("storcli64", ["252:0", "252:1"]), ("arcconf", ["0:0", "0:1"]),
                     ("sorbctl", ["0:0", "0:1"])):
    with orvex_sim.use(SimulatedHost(tool)):
        raid = Raid()
    for call in (raid.get_controller_status_raid,
                 lambda: raid.create_virtual_drive(raid_level="1", drives=drives, pd_per_array=""),
                 raid.get_all_virtual_drive_info,
                 lambda: raid.get_one_physical_drive_info(eid="252", sid="3"),
                 lambda: raid.set_ctl_mode(mode="3"),
                 lambda: raid.set_disk_state(eid="252"),
                 lambda: raid._merge_output({{"a": 1, "b": {{"a": 2}}}})):
        print(tool, outcome(call))
# Imported again in the same interpreter: the same module and class.
del sys.modules["orvex.api.hostos.raid.raid"]
print("imported again:", importlib.import_module("orvex.api.hostos.raid.raid").Raid is Raid)
"""


def test_a_second_interpreter_gets_the_same_answers(tmp_path):
    compiler = shutil.which("cc") or shutil.which("gcc")
    config = sysconfig.get_config_vars()
    if compiler is None or not config.get("Py_ENABLE_SHARED"):
        pytest.skip("no C compiler, or no shared libpython to embed")
    if os.environ.get("RAID_PYTHON"):
        pytest.skip("the interpreter runs through another command (qemu): a program built "
                    "here would embed this machine's own")
    (tmp_path / "embed.c").write_text(PROGRAM)
    command = [compiler, "-o", str(tmp_path / "embed"), str(tmp_path / "embed.c"),
               "-I", sysconfig.get_paths()["include"], "-L", config["LIBDIR"],
               "-Wl,-rpath," + config["LIBDIR"], "-lpython" + config["LDVERSION"]]
    # The sanitizer runtimes preloaded into this suite stay out of the compiler.
    env = {k: v for k, v in os.environ.items() if k != "LD_PRELOAD"}
    built = subprocess.run(command + config["LIBS"].split(), capture_output=True, text=True, env=env)
    assert built.returncode == 0, built.stderr
    paths = [str(SITE), str(ROOT / "sim"), str(pathlib.Path(yaml.__file__).parents[1])]
    env = dict(os.environ, PYTHONHOME=sys.base_prefix, PYTHONDONTWRITEBYTECODE="1")
    env.pop("PYTHONPATH", None)
    # Some interpreters (CPython 3.12.1) crash when initialised again after
    # their own datetime module was imported: nothing of this module then.
    control = subprocess.run([str(tmp_path / "embed"), "import datetime"],
                             capture_output=True, text=True, env=env, timeout=600)
    if control.returncode != 0:
        pytest.skip("this CPython cannot initialise again after importing datetime")
    run = subprocess.run([str(tmp_path / "embed"), SCRIPT.format(paths=paths)],
                         capture_output=True, text=True, env=env, timeout=600)
    assert run.returncode == 0, run.stdout + run.stderr
    rounds = run.stdout.split("-- finalised\n")
    first = rounds[0].splitlines()
    assert len(first) == 22 and first[-1] == "imported again: True", rounds[0]
    assert first[4] == "storcli64 OrvexException: LSI卡storcli64工具没有 设置控制卡工作模式 功能"
    assert rounds == [rounds[0]] * 3 + [""]
