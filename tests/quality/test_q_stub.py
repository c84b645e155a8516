"""The user's view of Raid: type stub, reference of operations,
declarations, documentation and signatures agree.

For every operation enumerated from the class: the stub and
docs/operations.md are the ones the declarations make; the stub declares
the parameters `inspect.signature` shows, then the documented extras as
keyword-only parameters, and keeps `**kwargs` only where those extras are
not all the operation takes, so mypy rejects a misspelt keyword the run
time passes on; the declared result type is the one the documentation
promises; every declared parameter and extra is documented; `help(Raid)`
shows the Chinese documentation.  The stub and py.typed are installed
beside the module and shipped in the wheel.
"""
import ast
import importlib.util
import inspect
import os
import pathlib
import pydoc
import re
import subprocess
import sys
import zipfile

import pytest

from orvex.api.hostos.raid import raid as raid_module
from orvex.api.hostos.raid.raid import Raid
from orvex_sim.recorder import parser

ROOT = pathlib.Path(__file__).resolve().parents[2]
STUB = ROOT / "src" / "orvex" / "api" / "hostos" / "raid" / "raid.pyi"

spec = importlib.util.spec_from_file_location("gen_stub", ROOT / "tools" / "gen_stub.py")
gen_stub = importlib.util.module_from_spec(spec)
spec.loader.exec_module(gen_stub)

OPERATIONS = [n for n in gen_stub.operations(Raid) if n != "__init__"]


def stub_functions():
    tree = ast.parse(STUB.read_text(encoding="utf-8"))
    cls = next(n for n in tree.body if isinstance(n, ast.ClassDef) and n.name == "Raid")
    return {n.name: n for n in cls.body if isinstance(n, ast.FunctionDef)}


STUB_FUNCS = stub_functions()


def literal(node):
    """The default's value; `...` too (before 3.8 it is not a literal to ast)."""
    return ... if type(node).__name__ == "Ellipsis" else ast.literal_eval(node)


def stub_params(fn):
    """[(name, kind, default)] of a stub function, without self."""
    a = fn.args
    out = []
    pos = getattr(a, "posonlyargs", []) + a.args  # no posonlyargs before 3.8
    defaults = [None] * (len(pos) - len(a.defaults)) + list(a.defaults)
    for arg, d in zip(pos, defaults):
        out.append((arg.arg, "POSITIONAL_OR_KEYWORD",
                    literal(d) if d is not None else inspect.Parameter.empty))
    for arg, d in zip(a.kwonlyargs, a.kw_defaults):
        out.append((arg.arg, "KEYWORD_ONLY",
                    literal(d) if d is not None else inspect.Parameter.empty))
    if a.kwarg is not None:
        out.append((a.kwarg.arg, "VAR_KEYWORD", inspect.Parameter.empty))
    return out[1:]


def real_params(name):
    sig = inspect.signature(getattr(Raid, name))
    params = list(sig.parameters.values())
    assert params[0].name == "self" and params[0].kind is params[0].POSITIONAL_ONLY
    return [(p.name, "POSITIONAL_OR_KEYWORD" if p.kind is p.POSITIONAL_ONLY else p.kind.name,
             p.default) for p in params[1:]]


def test_every_operation_has_a_stub_and_nothing_else_does():
    assert sorted(STUB_FUNCS) == sorted(OPERATIONS + ["__init__", "distributor"])


@pytest.mark.parametrize("name", OPERATIONS)
def test_stub_parameters_are_the_signature_then_the_extras(name):
    declaration = vars(Raid)[name]
    real = real_params(name)
    extras = [(n, "KEYWORD_ONLY", Ellipsis) for n, kind, _, _ in declaration.parameters
              if kind == "extra"]
    catch_all = [p for p in real if p[1] == "VAR_KEYWORD" and not declaration.extras_complete]
    assert stub_params(STUB_FUNCS[name]) == \
        [p for p in real if p[1] != "VAR_KEYWORD"] + extras + catch_all


# A script's calls, checked by mypy against the installed stub: its error,
# or None.  get_controller_status_raid takes adp_id, not adapter_id;
# migrate_raid documents only some of its keywords.
MYPY_CASES = [
    ('raid.delete_virtual_drive(vid="0", adaptor_id="1")',
     'Unexpected keyword argument "adaptor_id" for "delete_virtual_drive" of "Raid"; '
     'did you mean "adapter_id"?'),
    ('raid.delete_virtual_drive(vid="0", adapter_id="1")', None),
    ('raid.get_controller_status_raid(adapter_id="0")',
     'Unexpected keyword argument "adapter_id" for "get_controller_status_raid" of "Raid"'),
    ('raid.get_controller_status_raid(adp_id="0")', None),
    ('raid.set_disk_state(eid="252", sid="0", state="online", force="yes")',
     'Argument "force" to "set_disk_state" of "Raid" has incompatible type "str"; '
     'expected "bool"'),
    ('raid.stop_pd_erase(eid="252", sid="0", adapter_id="0")',
     'Unexpected keyword argument "adapter_id" for "stop_pd_erase" of "Raid"'),
    ('raid.migrate_raid(vid="0", raid_level="5", legs="2")', None),
]


@pytest.fixture(scope="module")
def mypy_errors(tmp_path_factory):
    """{line: message} of one mypy run over a script of every case, one a line."""
    pytest.importorskip("mypy", reason="mypy is installed in .venv only")
    tmp = tmp_path_factory.mktemp("mypy")
    head = ["from orvex.api.hostos.raid.raid import Raid", "raid = Raid()"]
    (tmp / "script.py").write_text("\n".join(head + [c for c, _ in MYPY_CASES]) + "\n")
    # The framework's stand-in; the stub is found beside the installed module.
    path = [str(ROOT / "sim")] + ([os.environ["RAID_SITE"]] if os.environ.get("RAID_SITE") else [])
    env = dict(os.environ, MYPYPATH=os.pathsep.join(path))
    env.pop("LD_PRELOAD", None)
    run = subprocess.run([sys.executable, "-m", "mypy", "--follow-imports=silent",
                          "--no-error-summary", "--cache-dir", str(tmp / "cache"), "script.py"],
                         capture_output=True, text=True, env=env, cwd=tmp)
    errors = {}
    for line in run.stdout.splitlines():
        if ": note: " in line:
            continue
        m = re.match(r"script\.py:(\d+): error: (.*?)(?:  \[[\w-]+\])?$", line)
        assert m, run.stdout + run.stderr
        errors[int(m.group(1)) - len(head)] = m.group(2)
    return errors


@pytest.mark.parametrize("index", range(len(MYPY_CASES)), ids=[c for c, _ in MYPY_CASES])
def test_mypy_rejects_a_keyword_the_operation_does_not_take(mypy_errors, index):
    assert mypy_errors.get(index + 1) == MYPY_CASES[index][1]


# What the reference of operations reads from a row: (tool, form, wrappers
# in dispatch order, messages, route, operations called, notes on extras).
@pytest.mark.parametrize("name, index, expected", [
    ("set_ctl_mode", 0, ("arcconf", "action", ("ctr_set_ctrl_mode_arcconf",), (), "self", (), ())),
    ("set_ctl_mode", 2, ("storcli64", "refusal", (), ("LSI卡storcli64工具没有 设置控制卡工作模式 功能",),
                         "self", (), ())),
    ("set_controller_foreign_config", 1, (
        "sorbctl", "checked", ("clear_controller_fncfg_sorbctl", "import_controller_fncfg_sorbctl"),
        ("7460卡sorbctl工具不支持[{}]操作",), "host", (), ())),
    ("set_virtual_drive_cc", 2, (
        "sorbctl", "checked", ("start_controller_vd_ccheck_sorbctl", "stop_controller_vd_ccheck_sorbctl"),
        ("7460卡sorbctl工具没有 设置逻辑磁盘一致性校验功能操作 功能",), "self", (), ())),
    ("pd_set_bootdrive", 0, ("storcli64", "checked", ("ctr_set_device_order_by_firmware",
                                                      "pd_set_bootdrive_storcli64"), (), "self", (), ())),
    ("get_supercap_self_learn_info", 1, ("sorbctl", "query", ("get_supercap_self_learn_sorbctl",),
                                         ("查询超级电容自学习信息失败，请检查回显报错信息",), "self", (), ())),
    ("get_one_physical_drive_info", 1, (
        "arcconf", "custom", (), ("Physical drive not found. eid: [{}], sid: [{}]",), "self",
        ("get_all_physical_drive_info",), (("adapter_id", "ignores", "总是在第一个控制器的硬盘中查找"),))),
    ("get_all_physical_drive_info", 1, ("storcli64", "custom", ("ctr_get_pd_cfg_storcli64",), (),
                                        "host", (), ())),
    ("controller_command_passthru", 1, ("sorbctl", "custom", (
        "send_controller_pd_passthru_sorbctl", "hexdump", "rm"), (), "self", (), ())),
    ("query_raid_config", 2, ("arcconf", "query", ("ctr_get_adpt_cfg_arcconf",), (), "self", (),
                              (("adp_id", "reads", None),))),
    ("get_controller_ehsp", 0, ("storcli64", "custom", ("ctr_get_eghs_storcli64",), (), "host", (),
                                ())),
])
def test_variants_as_the_reference_reads_them(name, index, expected):
    assert vars(Raid)[name].variants[index] == expected


# The run time binds and sends as before: declared parameters, then every
# keyword as given, in call order, the misspelt one too.
@pytest.mark.parametrize("name, args, kwargs, signature, wrapper", [
    ("delete_virtual_drive", (), {"vid": "0", "adaptor_id": "1"}, "(self, /, *, vid, **kwargs)",
     "ctr_delete_vd_storcli64"),
    ("set_jbod_state", ("on",), {"force": True, "adaptor_id": "1"}, "(self, /, state, **kwargs)",
     "ctr_set_jbod_cfg_storcli64"),
])
def test_run_time_passes_on_what_the_stub_rejects(rig, name, args, kwargs, signature, wrapper):
    raid, host = rig("storcli64")
    host.on(wrapper, parser("success"))
    assert getattr(raid, name)(*args, **kwargs) is True
    declared = [p for p in inspect.signature(getattr(Raid, name)).parameters][1:-1]
    assert host.sent() == [("self", wrapper, list(zip(declared, args)) + list(kwargs.items()))]
    assert str(inspect.signature(getattr(Raid, name))) == signature


def documented(doc, section):
    """The lines of a documentation section ("参数" or "返回"), heading remark allowed."""
    m = re.search(r"^%s(?:[（(][^)）]*[)）])?[:：][^\n]*\n((?:(?: .*)?\n)*)" % section, doc + "\n", re.M)
    return m.group(1).splitlines() if m else []


@pytest.mark.parametrize("name", OPERATIONS)
def test_declared_result_type_is_the_documented_one(name):
    lines = [l.strip() for l in documented(inspect.getdoc(getattr(Raid, name)), "返回") if l.strip()]
    assert lines, name  # the documentation names a result
    word = r"(?:str|bool|int|dict|list|tuple|None)\b"
    m = re.match(r"^(%s(?:\s*(?:或|\|)\s*%s)*)\s*[:：,，。]" % (word, word), lines[0])
    promised = re.sub(r"\s*或\s*", " | ", m.group(1)) if m else None
    assert vars(Raid)[name].returns == promised, name


@pytest.mark.parametrize("name", OPERATIONS)
def test_every_declared_parameter_is_documented(name):
    documented_names = {re.match(r"^    (\w+)", l).group(1)
                        for l in documented(inspect.getdoc(getattr(Raid, name)), "参数")
                        if re.match(r"^    \w", l)}
    declaration = vars(Raid)[name]
    declared = [p[0] for p in declaration.parameters if p[1] != "catch_all"]
    assert not [p for p in declared if p not in documented_names], name
    if declaration.extras_complete:  # the stub takes every keyword the documentation names
        assert not documented_names - set(declared), name


@pytest.mark.parametrize("path, render", [(STUB, gen_stub.render),
                                          (gen_stub.REFERENCE, gen_stub.render_reference)],
                         ids=["stub", "reference"])
def test_generated_file_is_current(path, render):
    assert path.read_text(encoding="utf-8") == render(Raid), \
        "%s out of date: run tools/gen_stub.py" % path.name


def test_help_shows_the_chinese_documentation_of_every_operation():
    # Compared without blanks at line ends (pydoc leaves none from 3.12 on).
    text = "".join(line.rstrip() + "\n"
                   for line in pydoc.render_doc(Raid, renderer=pydoc.plaintext).splitlines())
    for name in OPERATIONS:
        doc = inspect.getdoc(getattr(Raid, name))
        assert re.search(r"[\u4e00-\u9fff]", doc.splitlines()[0]), name
        if name.startswith("_"):
            continue  # help() lists public names only
        # The signature line, then the whole documentation indented under it.
        # From 3.13 help() wraps a long signature, a parameter a line.
        sig = inspect.signature(getattr(Raid, name))
        sig_text = sig.format(max_width=80 - len(name)) if hasattr(sig, "format") else str(sig)
        shown = "".join(" |  %s\n" % line for line in (name + sig_text).splitlines())
        body = "".join((" |      %s" % line).rstrip() + "\n" for line in doc.splitlines())
        assert shown + body in text, name


def test_stub_and_marker_are_installed_beside_the_module():
    here = pathlib.Path(raid_module.__file__).resolve().parent
    assert (here / "raid.pyi").read_text(encoding="utf-8") == STUB.read_text(encoding="utf-8")
    assert (here / "py.typed").is_file()


def test_stub_and_marker_are_in_the_wheel():
    wheel = os.environ.get("RAID_WHEEL")
    if not wheel:
        pytest.skip("RAID_WHEEL not set (./dev test builds the wheel)")
    with zipfile.ZipFile(wheel) as zf:
        names = zf.namelist()
        assert "orvex/api/hostos/raid/py.typed" in names
        assert zf.read("orvex/api/hostos/raid/raid.pyi").decode("utf-8") == \
            STUB.read_text(encoding="utf-8")
