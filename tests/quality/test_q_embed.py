"""The module in an embedding program that finalises its interpreter and
starts another: a small C program initialises Python, imports the module
(the one this suite runs against), runs operations on the simulated host,
finalises, and does it all again.  The second interpreter must get the same
answers and nothing may crash; under the sanitizer suite the program runs
with the same runtimes preloaded, so a use of the first interpreter's
objects after its end is reported.
"""
import os
import pathlib
import shutil
import subprocess
import sys
import sysconfig
import textwrap

import pytest
import yaml

from orvex.api.hostos.raid import raid as raid_module

ROOT = pathlib.Path(__file__).resolve().parents[2]
# <site>/orvex/api/hostos/raid/raid.abi3.so
SITE = pathlib.Path(raid_module.__file__).resolve().parents[4]

PROGRAM = r"""
#include <Python.h>
#include <stdio.h>
#include <stdlib.h>

/* argv[1]: rounds; argv[2]: the script each interpreter runs. */
int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int rounds = atoi(argv[1]);
  for (int i = 0; i < rounds; ++i) {
    Py_Initialize();
    const int failed = PyRun_SimpleString(argv[2]);
    fflush(stdout);
    if (Py_FinalizeEx() < 0 || failed != 0) return 1;
    printf("-- finalised\n");
    fflush(stdout);
  }
  return 0;
}
"""

# Operations that reach every piece of kept state: the class and its
# registration, templates (_format_output), the flatten with its duplicate
# key message, regular expressions, refusals and argument errors.
SCRIPT = """
import sys
sys.path[:0] = {paths!r}
sys.modules["yaml._yaml"] = None  # libyaml's binding does not survive a second interpreter
import orvex_sim
from orvex_sim.simhost import SimulatedHost
from orvex.api.hostos.raid.raid import Raid
from orvex.exception.orvex_exception import OrvexException

def outcome(call):
    try:
        return repr(call())
    except Exception as e:
        return "%s: %s" % (type(e).__name__, e)

for tool in ("storcli64", "arcconf", "sorbctl"):
    host = SimulatedHost(tool)
    with orvex_sim.use(host):
        raid = Raid()
    print(tool, outcome(raid.get_controller_status_raid))
    print(tool, outcome(lambda: raid.create_virtual_drive(raid_level="1", drives=["252:0", "252:1"]
                                                          if tool == "storcli64" else ["0:0", "0:1"],
                                                          pd_per_array="")))
    print(tool, outcome(raid.get_all_virtual_drive_info))
    print(tool, outcome(lambda: raid.get_one_physical_drive_info(eid="252", sid="3")))
    print(tool, outcome(lambda: raid.set_ctl_mode(mode="3")))
    print(tool, outcome(lambda: raid.set_disk_state(eid="252")))
    print(tool, outcome(lambda: raid._merge_output({{"a": 1, "b": {{"a": 2}}}})))
    print(tool, outcome(lambda: raid._format_output([{{"x": 1}}], tool, {{"contents": {{tool: {{"X": "x"}}}}}})))

# Imported again in the same interpreter: the same module and class.
import importlib
del sys.modules["orvex.api.hostos.raid.raid"]
print("imported again:", importlib.import_module("orvex.api.hostos.raid.raid").Raid is Raid)
"""


def compile_program(tmp_path):
    compiler = shutil.which("cc") or shutil.which("gcc") or shutil.which("g++")
    if compiler is None:
        pytest.skip("no C compiler")
    config = sysconfig.get_config_vars()
    if not config.get("Py_ENABLE_SHARED"):
        pytest.skip("this interpreter has no shared libpython to embed")
    source = tmp_path / "embed.c"
    source.write_text(PROGRAM)
    binary = tmp_path / "embed"
    libdir = config["LIBDIR"]
    command = [compiler, "-o", str(binary), str(source), "-I", sysconfig.get_paths()["include"],
               "-L", libdir, "-Wl,-rpath," + libdir, "-lpython" + config["LDVERSION"]]
    command += config.get("LIBS", "").split() + config.get("SYSLIBS", "").split()
    # The sanitizer runtimes preloaded into this suite stay out of the compiler.
    env = {k: v for k, v in os.environ.items() if k != "LD_PRELOAD"}
    run = subprocess.run(command, capture_output=True, text=True, env=env)
    assert run.returncode == 0, run.stderr
    return binary


def test_a_second_interpreter_gets_the_same_answers(tmp_path):
    binary = compile_program(tmp_path)
    paths = [str(SITE), str(ROOT / "sim"), str(pathlib.Path(yaml.__file__).parents[1])]
    script = SCRIPT.format(paths=paths)
    env = dict(os.environ, PYTHONHOME=sys.base_prefix, PYTHONDONTWRITEBYTECODE="1")
    env.pop("PYTHONPATH", None)
    run = subprocess.run([str(binary), "3", script], capture_output=True, text=True, env=env,
                         timeout=600)
    assert run.returncode == 0, run.stdout + run.stderr
    rounds = run.stdout.split("-- finalised\n")
    assert rounds[-1] == ""
    first = rounds[0].splitlines()
    assert len(first) == 25 and first[-1] == "imported again: True", rounds[0]
    assert first[4] == "storcli64 OrvexException: LSI卡storcli64工具没有 设置控制卡工作模式 功能"
    assert rounds[1:-1] == [rounds[0]] * 2
