"""One abi3 binary: stable-ABI symbols only, nothing newer than glibc 2.17
and no C++ runtime from the host, a cp37-abi3 manylinux2014 wheel, and the
same file imports and works on the oldest and newest interpreters.

`./dev test` builds the wheel and names it in RAID_WHEEL; without it the
wheel checks skip.  Interpreters are looked up under pyenv (RAID_PYENV or
~/.pyenv/versions) and skip when missing.
"""
import glob
import os
import pathlib
import platform
import shutil
import subprocess
import sys
import zipfile

import pytest

from orvex.api.hostos.raid import raid as raid_module

ROOT = pathlib.Path(__file__).resolve().parents[2]
PYENV = pathlib.Path(os.environ.get("RAID_PYENV", os.path.expanduser("~/.pyenv/versions")))
BINARY = pathlib.Path(raid_module.__file__).resolve()
WHEEL = os.environ.get("RAID_WHEEL")

# The sanitizer run preloads its runtimes into every child process (other
# interpreters, the compiler); the binary's ABI is checked in the normal run.
pytestmark = pytest.mark.skipif(bool(os.environ.get("RAID_SANITIZED")),
                                reason="ABI checks run against the release build")


def interpreter(minor):
    found = sorted(glob.glob(str(PYENV / ("3.%d.*" % minor) / "bin" / ("python3.%d" % minor))))
    return found[-1] if found else None


def wheel():
    if not WHEEL:
        pytest.skip("RAID_WHEEL not set (./dev test builds the wheel)")
    return pathlib.Path(WHEEL)


def test_binary_carries_the_abi3_suffix():
    assert BINARY.name == "raid.abi3.so"


def test_wheel_is_tagged_cp37_abi3_manylinux2014():
    path = wheel()
    arch = platform.machine()
    assert path.name.endswith("-cp37-abi3-manylinux2014_%s.manylinux_2_17_%s.whl" % (arch, arch)), path.name
    with zipfile.ZipFile(path) as zf:
        names = zf.namelist()
        meta = next(n for n in names if n.endswith(".dist-info/WHEEL"))
        tags = [line.split(":", 1)[1].strip() for line in zf.read(meta).decode().splitlines()
                if line.startswith("Tag:")]
    assert sorted(tags) == ["cp37-abi3-manylinux2014_" + arch, "cp37-abi3-manylinux_2_17_" + arch]
    assert "orvex/api/hostos/raid/raid.abi3.so" in names
    # No package markers: the module installs into the framework's own tree.
    assert not [n for n in names if n.endswith("__init__.py")]


def _abi3audit():
    tool = shutil.which("abi3audit") or shutil.which("abi3audit", path=os.path.dirname(sys.executable))
    if tool is None:
        pytest.skip("abi3audit not installed")
    return tool


def _audit(target):
    run = subprocess.run([_abi3audit(), "--strict", "--assume-minimum-abi3", "3.7", "-v",
                          str(target)], capture_output=True, text=True)
    return run.returncode, run.stdout + run.stderr


def test_wheel_uses_only_the_37_stable_abi():
    code, out = _audit(wheel())
    assert code == 0, out
    assert "0 ABI version mismatches and 0 ABI violations" in " ".join(out.split())


def test_installed_binary_uses_only_the_37_stable_abi():
    code, out = _audit(BINARY)
    assert code == 0, out
    assert "0 ABI violations" in " ".join(out.split())


# Newest symbol version the binary may need from each family (manylinux2014:
# glibc 2.17, the unwinder of GCC 4.8).  The C++ runtime is linked in, so any
# GLIBCXX_/CXXABI_ version (or other family) is a failure.
NEWEST = {"GLIBC": (2, 17), "GCC": (4, 8, 0)}


def _too_new(version):
    family, _, number = version.partition("_")
    limit = NEWEST.get(family)
    return limit is None or not number.replace(".", "").isdigit() or \
        tuple(int(n) for n in number.split(".")) > limit


def test_binary_needs_nothing_newer_than_glibc_217_and_no_cxx_runtime():
    elffile = pytest.importorskip("elftools.elf.elffile")
    with open(BINARY, "rb") as f:
        elf = elffile.ELFFile(f)
        needed = [t.needed for t in elf.get_section_by_name(".dynamic").iter_tags()
                  if t.entry.d_tag == "DT_NEEDED"]
        versions = {(lib.name, aux.name)
                    for lib, auxes in elf.get_section_by_name(".gnu.version_r").iter_versions()
                    for aux in auxes}
        exported = [s.name for s in elf.get_section_by_name(".dynsym").iter_symbols()
                    if s.name and s["st_shndx"] != "SHN_UNDEF"]
    assert ("libc.so.6", "GLIBC_2.2.5") in versions
    assert [v for v in sorted(versions) if _too_new(v[1])] == []
    assert not [n for n in needed if "libstdc++" in n or "libc++" in n], needed
    assert exported == ["PyInit_raid"]


def test_audit_rejects_a_symbol_outside_the_stable_abi(tmp_path):
    # The checker itself must see a violation: a tiny extension that calls
    # a private API function.
    cc = shutil.which("cc") or shutil.which("gcc")
    if cc is None:
        pytest.skip("no C compiler")
    import sysconfig
    src = tmp_path / "bad.c"
    src.write_text('#include <Python.h>\n'
                   'PyObject* f(PyObject* o) { return _PyObject_GetAttrId(o, 0); }\n'
                   'PyMODINIT_FUNC PyInit_bad(void) { return 0; }\n')
    out = tmp_path / "bad.abi3.so"
    subprocess.run([cc, "-shared", "-fPIC", "-w", "-I", sysconfig.get_paths()["include"],
                    str(src), "-o", str(out)], check=True)
    code, text = _audit(out)
    assert code != 0
    assert "_PyObject_GetAttrId" in text


PROBE = r"""
import sys, types
sys.path[:0] = [sys.argv[1], sys.argv[2]]
sys.modules.setdefault("yaml", types.ModuleType("yaml"))  # templates are not read here
import inspect
import orvex_sim
from orvex_sim.recorder import RecordingHost, parser
from orvex.api.hostos.raid import raid
from orvex.exception.orvex_exception import OrvexException
host = RecordingHost("arcconf")
host.on("ctr_set_ctrl_mode_arcconf", parser("success"))
with orvex_sim.use(host):
    r = raid.Raid()
assert r.set_ctl_mode("3", adapter_id="0") is True
assert [(c.wrapper, list(c.params.items())) for c in host.calls] == [
    ("ctr_set_ctrl_mode_arcconf", [("mode", "3"), ("adapter_id", "0")])]
r.update_distributor("storcli64")
try:
    r.set_ctl_mode("3")
except OrvexException as e:
    assert str(e) == "LSI卡storcli64工具没有 设置控制卡工作模式 功能", str(e)
else:
    raise AssertionError("no refusal")
assert r._merge_output({"a": 1, "b": {"c": 2}}) == {"a": 1, "c": 2}
assert str(inspect.signature(raid.Raid.set_ctl_mode)) == "(self, /, mode, **kwargs)"
# The interpreter's later functions are found without ctypes.
assert "ctypes" not in sys.modules
print(raid.__file__)
"""


@pytest.mark.parametrize("minor", [7, 10, 13])
def test_same_binary_runs_on_other_interpreters(minor):
    python = interpreter(minor)
    if python is None:
        pytest.skip("no Python 3.%d interpreter here" % minor)
    site = str(BINARY.parents[4])
    run = subprocess.run([python, "-c", PROBE, site, str(ROOT / "sim")],
                         capture_output=True, text=True, timeout=120)
    # A clean exit matters too: a crash while the interpreter shuts down
    # shows only in the return code.
    assert run.returncode == 0, run.stderr
    assert pathlib.Path(run.stdout.strip()).resolve() == BINARY
