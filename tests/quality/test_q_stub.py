"""The user's view of Raid: type stub, declarations, documentation and
signatures agree.

For every operation enumerated from the class: the stub is the one the
declarations make and declares the parameters `inspect.signature` shows;
the declared result type is the one the documentation promises; every
declared parameter is documented; `help(Raid)` shows the Chinese
documentation.  The stub and py.typed are installed beside the module and
shipped in the wheel.
"""
import ast
import importlib.util
import inspect
import os
import pathlib
import pydoc
import re
import zipfile

import pytest

from orvex.api.hostos.raid import raid as raid_module
from orvex.api.hostos.raid.raid import Raid

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


def stub_params(fn):
    """[(name, kind, default)] of a stub function, without self."""
    a = fn.args
    out = []
    pos = getattr(a, "posonlyargs", []) + a.args  # no posonlyargs before 3.8
    defaults = [None] * (len(pos) - len(a.defaults)) + list(a.defaults)
    for arg, d in zip(pos, defaults):
        out.append((arg.arg, "POSITIONAL_OR_KEYWORD",
                    ast.literal_eval(d) if d is not None else inspect.Parameter.empty))
    for arg, d in zip(a.kwonlyargs, a.kw_defaults):
        out.append((arg.arg, "KEYWORD_ONLY",
                    ast.literal_eval(d) if d is not None else inspect.Parameter.empty))
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
def test_stub_parameters_match_the_signature(name):
    assert stub_params(STUB_FUNCS[name]) == real_params(name)


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
    declared = [p[0] for p in vars(Raid)[name].parameters if p[1] != "catch_all"]
    assert not [p for p in declared if p not in documented_names], name


def test_stub_is_current():
    assert STUB.read_text(encoding="utf-8") == gen_stub.render(Raid), \
        "stub out of date: run tools/gen_stub.py"


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
