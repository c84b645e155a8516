"""One abi3 binary per architecture: stable-ABI symbols only, nothing newer
than glibc 2.17 and no C++ runtime from the host, a cp37-abi3 manylinux2014
wheel for x86-64 and one for aarch64.  (./dev test runs this whole suite on
every CPython from 3.7 and on aarch64 under emulation.)

`./dev test` names the wheel installed for this run in RAID_WHEEL and every
wheel it built, one per architecture, in RAID_WHEELS (os.pathsep between);
without them the wheel checks skip.  The checks read the wheels' files, so
each run checks every architecture's wheel, whatever its own.
"""
import io
import os
import pathlib
import shlex
import shutil
import subprocess
import sys
import zipfile

import pytest

from orvex.api.hostos.raid import raid as raid_module

BINARY = pathlib.Path(raid_module.__file__).resolve()
ROOT = pathlib.Path(__file__).resolve().parents[2]
WHEEL = os.environ.get("RAID_WHEEL")
WHEELS = [w for w in os.environ.get("RAID_WHEELS", "").split(os.pathsep) if w]
MEMBER = "orvex/api/hostos/raid/raid.abi3.so"

# Per architecture: the ELF machine, and the symbol version its glibc starts
# with (aarch64 support began at 2.17, so that is its oldest version too).
ARCHES = {"x86_64": ("EM_X86_64", "GLIBC_2.2.5"), "aarch64": ("EM_AARCH64", "GLIBC_2.17")}

# The sanitizer run preloads its runtimes into every child process (other
# interpreters, the compiler); the binary's ABI is checked in the normal run.
pytestmark = pytest.mark.skipif(bool(os.environ.get("RAID_SANITIZED")),
                                reason="ABI checks run against the release build")


def wheel(arch):
    if not WHEELS:
        pytest.skip("RAID_WHEELS not set (./dev test builds the wheels)")
    found = [w for w in WHEELS if w.endswith("_%s.whl" % arch)]
    assert len(found) == 1, "one %s wheel expected in RAID_WHEELS: %s" % (arch, WHEELS)
    return pathlib.Path(found[0])


def test_binary_carries_the_abi3_suffix():
    assert BINARY.name == "raid.abi3.so"


def test_installed_binary_is_the_one_in_its_wheel():
    if not WHEEL:
        pytest.skip("RAID_WHEEL not set (./dev test builds the wheel)")
    with zipfile.ZipFile(WHEEL) as zf:
        assert zf.read(MEMBER) == BINARY.read_bytes()


@pytest.mark.parametrize("arch", sorted(ARCHES))
def test_wheel_is_tagged_cp37_abi3_manylinux2014(arch):
    path = wheel(arch)
    assert path.name.endswith("-cp37-abi3-manylinux2014_%s.manylinux_2_17_%s.whl" % (arch, arch))
    with zipfile.ZipFile(path) as zf:
        names = zf.namelist()
        meta = next(n for n in names if n.endswith(".dist-info/WHEEL"))
        tags = [line.split(":", 1)[1].strip() for line in zf.read(meta).decode().splitlines()
                if line.startswith("Tag:")]
    assert sorted(tags) == ["cp37-abi3-manylinux2014_" + arch, "cp37-abi3-manylinux_2_17_" + arch]
    assert MEMBER in names
    # No package markers: the module installs into the framework's own tree.
    assert not [n for n in names if n.endswith("__init__.py")]


def _abi3audit():
    tool = shutil.which("abi3audit") or shutil.which("abi3audit", path=os.path.dirname(sys.executable))
    if tool is None:
        pytest.skip("abi3audit not installed (./dev test installs it in .venv only)")
    return tool


def _audit(target):
    run = subprocess.run([_abi3audit(), "--strict", "--assume-minimum-abi3", "3.7", "-v",
                          str(target)], capture_output=True, text=True)
    return run.returncode, run.stdout + run.stderr


@pytest.mark.parametrize("arch", sorted(ARCHES))
def test_wheel_uses_only_the_37_stable_abi(arch):
    code, out = _audit(wheel(arch))
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


@pytest.mark.parametrize("arch", sorted(ARCHES))
def test_binary_needs_nothing_newer_than_glibc_217_and_no_cxx_runtime(arch):
    elffile = pytest.importorskip("elftools.elf.elffile")
    with zipfile.ZipFile(wheel(arch)) as zf:
        elf = elffile.ELFFile(io.BytesIO(zf.read(MEMBER)))
    needed = [t.needed for t in elf.get_section_by_name(".dynamic").iter_tags()
              if t.entry.d_tag == "DT_NEEDED"]
    versions = {(lib.name, aux.name)
                for lib, auxes in elf.get_section_by_name(".gnu.version_r").iter_versions()
                for aux in auxes}
    exported = [s.name for s in elf.get_section_by_name(".dynsym").iter_symbols()
                if s.name and s["st_shndx"] != "SHN_UNDEF"]
    machine, base = ARCHES[arch]
    assert elf["e_machine"] == machine
    assert ("libc.so.6", base) in versions
    assert [v for v in sorted(versions) if _too_new(v[1])] == []
    assert not [n for n in needed if "libstdc++" in n or "libc++" in n], needed
    assert exported == ["PyInit_raid"]


def test_audit_rejects_a_symbol_outside_the_stable_abi(tmp_path):
    # The checker itself must see a violation: a tiny extension that calls
    # a private API function.
    _abi3audit()
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


def test_later_functions_are_found_without_ctypes():
    # The interpreter's later entry points (vectorcall, UTF-8 views) are
    # looked up without importing ctypes, on whichever version runs this.
    python = shlex.split(os.environ.get("RAID_PYTHON", "")) or [sys.executable]
    probe = ("import sys; sys.path[:0] = [sys.argv[1], sys.argv[2]]\n"
             "import orvex_sim\n"
             "from orvex_sim.recorder import RecordingHost, parser\n"
             "from orvex.api.hostos.raid import raid\n"
             "host = RecordingHost('arcconf')\n"
             "host.on('ctr_set_ctrl_mode_arcconf', parser('success'))\n"
             "with orvex_sim.use(host):\n"
             "    r = raid.Raid()\n"
             "assert r.set_ctl_mode('3', adapter_id='0') is True\n"
             "print('ctypes' in sys.modules)\n")
    run = subprocess.run(python + ["-c", probe, str(BINARY.parents[4]), str(ROOT / "sim")],
                         capture_output=True, text=True, timeout=300)
    assert run.returncode == 0, run.stderr
    assert run.stdout.strip() == "False"
