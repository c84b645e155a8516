"""The simulated host, the framework stand-in and the replay tools as their
own wheel: installed with pip into a fresh venv beside the module's wheel,
the README's offline examples run without the source tree.

`./dev test` names the wheels in RAID_WHEEL and RAID_SIM_WHEEL; PyYAML, the
sim wheel's one dependency, comes from the package index.
"""
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
WHEEL = os.environ.get("RAID_WHEEL")
SIM_WHEEL = os.environ.get("RAID_SIM_WHEEL")
PYTHON = shlex.split(os.environ.get("RAID_PYTHON", "")) or [sys.executable]


@pytest.fixture(scope="module")
def fresh(tmp_path_factory):
    """(python of a fresh venv holding both wheels, a directory outside the tree)"""
    if not (WHEEL and SIM_WHEEL):
        pytest.skip("RAID_WHEEL and RAID_SIM_WHEEL not set (./dev test builds the wheels)")
    try:
        import ensurepip  # noqa: F401
    except ImportError:
        pytest.skip("this interpreter has no ensurepip (Debian's minimal CPython): no venv with pip")
    tmp = tmp_path_factory.mktemp("fresh")
    env = outside_env()
    subprocess.run(PYTHON + ["-m", "venv", str(tmp / "venv")], check=True, env=env)
    python = tmp / "venv" / "bin" / "python"
    run = subprocess.run([str(python), "-m", "pip", "install", "-q", "--disable-pip-version-check",
                          WHEEL, SIM_WHEEL], capture_output=True, text=True, env=env)
    assert run.returncode == 0, run.stderr
    work = tmp / "work"
    work.mkdir()
    return python, work


def outside_env():
    # Nothing of the source tree or of this run's own installs on the path.
    return {k: v for k, v in os.environ.items()
            if k not in ("PYTHONPATH", "RAID_SITE", "LD_PRELOAD", "PYTHONHOME")}


def run_in(fresh, args):
    python, work = fresh
    run = subprocess.run([str(python)] + args, capture_output=True, text=True, cwd=str(work),
                         env=outside_env(), timeout=300)
    assert run.returncode == 0, run.stdout + run.stderr
    return run.stdout


def readme_block(heading):
    """The first python block of the README section under `heading`."""
    text = (ROOT / "README.md").read_text(encoding="utf-8")
    section = text[text.index("\n" + heading + "\n"):]
    return re.search(r"```python\n(.*?)```", section, re.S).group(1)


def test_simulated_host_example_runs_from_the_installed_wheels(fresh):
    code = readme_block("## Simulated host") + (
        "import orvex.api.hostos.raid.raid as module, orvex_sim, yaml\n"
        "print(module.__file__, orvex_sim.__file__, yaml.__file__, sep='\\n')\n")
    files = run_in(fresh, ["-c", code]).split()
    venv = str(fresh[0].parents[1])
    assert [f.startswith(venv) for f in files] == [True, True, True], files


def test_demo_and_replay_examples_run_from_the_installed_wheels(fresh):
    for name in ("demo.py", "demo_replay.py", "lab_host.yaml"):
        shutil.copy(str(ROOT / "examples" / name), str(fresh[1]))
    out = run_in(fresh, ["demo.py"])
    assert re.search(r"^[1-9]\d* checks, 0 failed$", out, re.M), out[-2000:]


@pytest.mark.skipif(not (ROOT / "sim" / "orvex_sim" / "__main__.py").exists(),
                    reason="orvex_sim has no command line in this tree")
def test_sim_command_line_runs_from_the_installed_wheel(fresh):
    assert run_in(fresh, ["-m", "orvex_sim", "--help"]).startswith("usage:")
