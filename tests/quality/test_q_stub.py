"""The user's view of Raid: type stub, documentation and signatures agree.

For every operation enumerated from the class: `inspect.signature` works;
the stub declares the same parameters (names, kinds, defaults, order) and
the result type the documentation promises; every declared parameter is
documented; `help(Raid)` shows the Chinese documentation.  The stub and
py.typed are installed beside the module and shipped in the wheel.
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
    pos = a.posonlyargs + a.args
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


@pytest.mark.parametrize("name", OPERATIONS)
def test_stub_result_type_is_the_documented_one(name):
    doc = inspect.getdoc(getattr(Raid, name))
    returns = ast.unparse(STUB_FUNCS[name].returns)
    assert returns == gen_stub.result_annotation(doc)
    # The documentation names a result.
    assert gen_stub.sections(doc).get("返回"), name


@pytest.mark.parametrize("name", OPERATIONS)
def test_every_declared_parameter_is_documented(name):
    func = getattr(Raid, name)
    documented = gen_stub.documented_params(inspect.getdoc(func))
    params = list(inspect.signature(func).parameters.values())[1:]
    declared = [p.name for p in params if p.kind is not p.VAR_KEYWORD]
    missing = [p for p in declared if p not in documented]
    assert not missing, "%s: undocumented %s" % (name, missing)
    # Documented extras can only travel through **kwargs.
    if not any(p.kind is p.VAR_KEYWORD for p in params):
        assert set(documented) <= set(declared), name


@pytest.mark.parametrize("name", OPERATIONS)
def test_stub_docstring_is_the_module_documentation(name):
    assert ast.get_docstring(STUB_FUNCS[name]) == inspect.getdoc(getattr(Raid, name))


def test_stub_is_current():
    assert STUB.read_text(encoding="utf-8") == gen_stub.render(Raid), \
        "stub out of date: run tools/gen_stub.py"


def test_help_shows_the_chinese_documentation_of_every_operation():
    text = pydoc.render_doc(Raid, renderer=pydoc.plaintext)
    for name in OPERATIONS:
        doc = inspect.getdoc(getattr(Raid, name))
        assert re.search(r"[\u4e00-\u9fff]", doc.splitlines()[0]), name
        if name.startswith("_"):
            continue  # help() lists public names only
        # The signature line, then the whole documentation indented under it.
        shown = " |  %s%s\n" % (name, inspect.signature(getattr(Raid, name)))
        body = "".join(" |      %s\n" % line if line else " |      \n"
                       for line in doc.splitlines())
        assert shown + body in text, name


@pytest.mark.parametrize("text, expected", [
    ("str", "str"),
    ("dict 或 list", "Union[Dict[str, Any], List[Any]]"),
    ("list[str]", "List[Any]"),
    ("OrvexException", "Any"),
    (None, "Any"),
])
def test_annotation_of_documented_types(text, expected):
    assert gen_stub.annotation(text) == expected


@pytest.mark.parametrize("doc, expected", [
    ("标题。\n\n返回:\n    bool: 设置是否成功。", "bool"),
    ("标题。\n\n返回:\n    dict 或 list: 键为 vid。", "Union[Dict[str, Any], List[Any]]"),
    ("标题。\n\n返回:\n    None。", "None"),
    ("标题。\n\n返回:\n    工具输出的解析结果。", "Any"),
    ("标题。", "Any"),
])
def test_result_annotation_reads_the_first_result_line(doc, expected):
    assert gen_stub.result_annotation(doc) == expected


def test_sections_accept_a_remark_in_the_heading():
    doc = "标题。\n\n参数（仅限关键字传入）:\n    eid (str): 编号。\n\n返回:\n    bool: 是否成功。"
    assert gen_stub.documented_params(doc) == {"eid": "str"}
    assert gen_stub.result_annotation(doc) == "bool"


def test_documented_params_reads_names_and_types():
    doc = ("标题。\n\n参数:\n    eid (str): 硬盘所在 enclosure。\n    drives（list）: 成员盘。\n"
           "        续行 x (int): 不是参数。\n    adapter_id: 控制器编号。\n\n返回:\n    bool: 是否成功。")
    assert gen_stub.documented_params(doc) == {"eid": "str", "drives": "list", "adapter_id": None}


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
