"""The Raid object: construction, tool selection, binding, variant forms."""
import ast
import inspect
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import sysconfig

import pytest

import orvex_sim
from orvex.api.hostos.hostos_base import HostOSBase, hostos_ns
from orvex.config.enum import HostType
from orvex.exception.orvex_exception import OrvexException
from orvex.api.hostos.raid.raid import Raid
from orvex_sim.recorder import RecordingHost, parser


# -- the class --------------------------------------------------------------

def test_raid_is_registered_subclass_of_framework_base():
    assert issubclass(Raid, HostOSBase)
    assert hostos_ns.types[HostType.HostOS] is Raid
    assert Raid.__module__ == "orvex.api.hostos.raid.raid"


def test_construction_sets_distributor_none_and_formatter(rig):
    raid, host = rig("arcconf")
    assert raid._distributor is None
    assert raid.formatter.raid is raid
    assert host.tool_reads == 0  # the tool is read lazily


def test_methods_bind_and_carry_signatures_and_chinese_docs(rig):
    raid, _ = rig()
    bound = raid.set_ctl_mode
    assert bound.__self__ is raid
    assert Raid.__dict__["set_ctl_mode"].__get__(raid, Raid).__self__ is raid
    assert str(inspect.signature(Raid.set_ctl_mode)) == "(self, /, mode, **kwargs)"
    assert str(inspect.signature(raid.set_controller_pdcache)) == "(*, state, **kwargs)"
    assert str(inspect.signature(Raid._format_output)) == "(self, /, raw_data, tool, template=None)"
    assert "控制卡工作模式" in Raid.set_ctl_mode.__doc__
    assert "set_ctl_mode" in Raid.__dict__
    assert all(inspect.signature(getattr(Raid, n)) for n in dir(Raid)
               if not n.startswith("__") and callable(getattr(Raid, n)))


# -- the road of one call ---------------------------------------------------

def test_errors_of_the_framework_pass_through_unchanged(rig):
    raid, host = rig("arcconf")
    boom = ConnectionError("ssh lost")
    host.on("ctr_set_ctrl_mode_arcconf", boom)
    with pytest.raises(ConnectionError) as err:
        raid.set_ctl_mode("2")
    assert err.value is boom


def test_operation_without_params_dispatches_name_only(rig):
    raid, host = rig("arcconf")
    host.on("get_controller_number_arcconf", parser("2"))
    assert raid.query_controller_number() == "2"
    assert host.calls[0].params is None


def test_missing_variant_for_the_tool_is_the_decorators_error(rig):
    raid, host = rig("storcli64")
    with pytest.raises(OrvexException, match=r"storcli64.*_get_all_controllers"):
        raid.get_all_controllers()
    assert host.calls == []


# -- argument errors --------------------------------------------------------

EMERGENCY = "set_controller_emergency_hotspare_switch"  # (switch, option='eug', **kwargs)


@pytest.mark.parametrize("call, message", [
    (lambda r: r.set_ctl_mode(), "set_ctl_mode() takes exactly 2 positional arguments (1 given)"),
    (lambda r: r.set_ctl_mode(adapter_id="0"),
     "set_ctl_mode() takes exactly 2 positional arguments (1 given)"),
    (lambda r: r.set_ctl_mode("3", "0"),
     "set_ctl_mode() takes exactly 2 positional arguments (3 given)"),
    (lambda r: Raid.set_ctl_mode(), "set_ctl_mode() takes exactly 2 positional arguments (0 given)"),
    (lambda r: getattr(r, EMERGENCY)(option="eug", self=1),
     EMERGENCY + "() takes at least 2 positional arguments (1 given)"),
    (lambda r: getattr(r, EMERGENCY)("on", "eug", "x"),
     EMERGENCY + "() takes at most 3 positional arguments (4 given)"),
    (lambda r: r.set_controller_pdcache("on"),
     "set_controller_pdcache() takes exactly 1 positional argument (2 given)"),
    (lambda r: r.get_all_controllers(1), "get_all_controllers() takes exactly one argument (2 given)"),
    (lambda r: Raid(1), "__init__() takes exactly one argument (2 given)"),
    (lambda r: r.get_all_controllers(adapter_id="0"), "get_all_controllers() takes no keyword arguments"),
    (lambda r: r.set_ctl_mode("3", mode="3"),
     "set_ctl_mode() got multiple values for keyword argument 'mode'"),
    (lambda r: r.set_ctl_mode("3", self="x"),
     "set_ctl_mode() got multiple values for keyword argument 'self'"),
    (lambda r: r._format_output({}, "x", raw=1),
     "_format_output() got an unexpected keyword argument 'raw'"),
    (lambda r: r.set_disk_state(eid="1", state="on"),
     "set_disk_state() needs keyword-only argument sid"),
    (lambda r: r.update_distributor(5),
     "Argument 'raid_tool' has incorrect type (expected str, got int)"),
    (lambda r: Raid.set_ctl_mode(1, "3"),
     "descriptor 'set_ctl_mode' for 'Raid' objects doesn't apply to a 'int' object"),
])
def test_argument_errors_are_exact_and_precede_everything(rig, call, message):
    raid, host = rig("arcconf")
    with pytest.raises(TypeError) as err:
        call(raid)
    assert str(err.value) == message
    assert host.calls == [] and host.tool_reads == 0 and raid._distributor is None


def test_caller_kwargs_dict_is_not_modified(rig):
    raid, host = rig("arcconf")
    host.on("set_controller_pdcache_arcconf", parser("success"))
    kwargs = {"state": "off", "adapter_id": "0"}
    assert raid.set_controller_pdcache(**kwargs) is True
    assert kwargs == {"state": "off", "adapter_id": "0"}
    assert list(host.last().params.items()) == [
        ("state", "2"), ("adapter_id", "0"), ("drive_type", "unconfigured")]


# -- the distributor --------------------------------------------------------

def test_tool_is_read_once_and_kept(rig):
    raid, host = rig("arcconf")
    host.on("get_controller_number_arcconf", parser("1"))
    raid.query_controller_number()
    raid.query_controller_number()
    assert host.tool_reads == 1
    assert raid.distributor is raid._distributor


def test_update_distributor_switches_without_asking_the_dispatcher(rig):
    raid, host = rig("storcli64")
    host.on("ctr_set_ctrl_mode_arcconf", parser("success"))
    assert raid.update_distributor("arcconf") is None
    raid.set_ctl_mode("3")
    assert host.tool_reads == 0
    assert host.wrappers == ["ctr_set_ctrl_mode_arcconf"]


def test_failed_tool_read_leaves_distributor_unbuilt_and_is_retried(rig):
    raid, host = rig("arcconf")
    host.tool = RuntimeError("dispatcher down")
    host.on("get_controller_number_arcconf", parser("1"))
    with pytest.raises(RuntimeError, match="dispatcher down"):
        raid.query_controller_number()
    assert raid._distributor is None
    host.tool = "arcconf"
    assert raid.query_controller_number() == "1"


def test_distributor_is_read_only(rig):
    raid, _ = rig()
    with pytest.raises(AttributeError):
        raid.distributor = None


def test_variants_registered_in_order_each_reading_distributor_afresh(rig):
    seen = []

    class Counting(Raid):
        reads = 0

        @property
        def distributor(self):
            Counting.reads += 1
            return Raid.distributor.__get__(self)

    host = RecordingHost("storcli64")
    host.on("get_controller_number_storcli64", parser("1"))
    with orvex_sim.use(host):
        raid = Counting()
    real = raid.distributor
    Counting.reads = 0

    def recording(raid_tool):
        deco = real(raid_tool=raid_tool)

        def apply(func):
            seen.append((raid_tool, func.__name__, callable(func)))
            return deco(func)

        return apply

    raid._distributor = recording
    assert raid.query_controller_number() == "1"
    assert seen == [("sorbctl", "_query_controller_number", True),
                    ("arcconf", "_query_controller_number", True),
                    ("storcli64", "_query_controller_number", True)]
    assert Counting.reads == 3


def test_variant_objects_take_no_arguments(rig):
    raid, host = rig("arcconf")
    host.on("ctr_set_ctrl_mode_arcconf", parser("Command completed successfully."))
    captured = []
    raid._distributor = lambda raid_tool: (lambda f: captured.append(f) or f)
    with pytest.raises(OrvexException, match="LSI卡storcli64工具没有"):
        raid.set_ctl_mode("3")  # this decorator runs whatever came last: storcli64
    assert [(v.raid_tool, v.__name__) for v in captured] == [
        ("arcconf", "set_ctl_mode"), ("sorbctl", "set_ctl_mode"), ("storcli64", "set_ctl_mode")]
    assert captured[0]() is True  # the arcconf variant itself
    assert host.wrappers == ["ctr_set_ctrl_mode_arcconf"]
    with pytest.raises(TypeError, match="takes no arguments"):
        captured[0](1)


# -- declared result types --------------------------------------------------

@pytest.mark.parametrize("value, error", [
    ({"a": 1}, None),
    (None, None),
    ([1], "Expected dict, got list"),
    (__import__("collections").OrderedDict(), "Expected dict, got OrderedDict"),
])
def test_declared_dict_result(rig, value, error):
    raid, host = rig("sorbctl")
    host.on("get_controller_status_sorbctl", parser({"Temperature": "54"}))
    raid.formatter.get_controller_status_raid_format = lambda data: value
    if error is None:
        assert raid.get_controller_status_raid() is value
    else:
        with pytest.raises(TypeError) as err:
            raid.get_controller_status_raid()
        assert str(err.value) == error


# -- declarations are checked: when compiled, and when the class is built --

FRAME = pathlib.Path(__file__).resolve().parents[1] / "src/orvex/api/hostos/raid/raid/frame"
# The compiler for this interpreter's architecture, and the command that
# starts this interpreter in a child process: ./dev names the cross compiler
# and the emulator for the aarch64 run.
CXX = shlex.split(os.environ.get("RAID_CXX", "g++"))
PYTHON = shlex.split(os.environ.get("RAID_PYTHON", "")) or [sys.executable]
GXX = CXX + ["-std=c++17", "-DPy_LIMITED_API=0x03070000", "-I", str(FRAME),
             "-I", sysconfig.get_paths()["include"]]


def compiler(args, tmp):
    if shutil.which(CXX[0]) is None:
        pytest.skip("no %s" % CXX[0])
    env = {k: v for k, v in os.environ.items() if k != "LD_PRELOAD"}  # sanitizer runtimes
    return subprocess.run(GXX + args, capture_output=True, text=True, env=env, cwd=tmp)


@pytest.mark.parametrize("name, compiles", [("mode", True), ("mdoe", False)])
def test_misspelt_parameter_name_fails_compilation(tmp_path, name, compiles):
    (tmp_path / "body.cpp").write_text(
        '#include "frame.hpp"\n'
        'constexpr raid::ParamDef kParams[] = {raid::arg("mode"), raid::kwargs()};\n'
        'PyObject* body(const raid::Call& c) { return c.arg(RAID_ARG(kParams, "%s")); }\n' % name)
    run = compiler(["-fsyntax-only", "body.cpp"], tmp_path)
    assert (run.returncode == 0) is compiles, run.stderr


BAD_ROWS = {
    "duplicate": ('{arg("mode"), arg("mode")}', "Raid.bad: duplicate parameter mode"),
    "order": ('{kw("a"), arg("b")}',
              "Raid.bad: parameters out of order (positional, keyword-only, catch-all) at b"),
    "catch_all": ('{kwargs(), kw("a")}',
                  "Raid.bad: parameters out of order (positional, keyword-only, catch-all) at a"),
    "default": ('{arg("a").or_("None"), arg("b")}',
                "Raid.bad: a required parameter after one with a default: b"),
    "literal": ('{arg("a").or_("eug")}', "Raid.bad: unknown default literal eug"),
    # extras arrive only through a catch-all, under names of their own
    "extra": ('{arg("mode")}).extras({kAdapterId}', "Raid.bad: an extra without a catch-all: adapter_id"),
    "extra_twice": ('{arg("adapter_id"), kwargs()}).extras({kAdapterId}',
                    "Raid.bad: duplicate parameter adapter_id"),
    "note": ('{kwargs()}).extras({kAdapterId}', "Raid.bad: a note on an undeclared extra: adp_id"),
}
# A note on an extra the row does not declare.
BAD_VARIANT = {"note": 'refuse(Tool::arcconf, "x").note("adp_id", ExtraUse::reads)'}

# A body that calls the params accessor named by RAID_PROBE, in an operation
# that builds no params.
PROBE_BODY = r'''
Ref probe(const Call& c) {
  const std::string which = std::getenv("RAID_PROBE");
  if (which == "p_get") return c.p_get("k");
  if (which == "p_pop") return c.p_pop("k");
  const int r = which == "p_has" ? c.p_has("k") : which == "p_set" ? c.p_set("k", "v")
                                                                   : c.p_del_if("k");
  return r < 0 ? nullptr : py::none();
}
Ref echo(const Call& c) { return Ref::borrow(c.params); }
'''
# A lookup of params["v"] in {"a": "x"} per policy, the answer params as edited.
LOOKUPS = {
    "keep": 'lookup("v", {{"a", "x"}})',
    "none": 'lookup("v", {{"a", "x"}}, Missing::none)',
    "key_error": 'lookup("v", {{"a", "x"}}, Missing::key_error)',
    "fallback_into": 'lookup("v", {{"a", "x"}}, Missing::fallback, "w", "z")',
    "keep_into": 'lookup("v", {{"a", "x"}}, Missing::keep, "w")',
}
# Bodies and a prep that read their typed texts, one per kind of text.
TEXT_BODIES = r"""
Ref say(const Call& c, const Message& m) {
  Ref a = c.p_get("a");
  Ref b = c.p_get("b");
  return a && b ? c.message(m, {a.get(), b.get()}) : nullptr;
}
Ref send(const Call& c, const Wrapper& w) { return c.parsed(w); }
Ref deny(const Call& c, const Message& m) { return c.refuse(m); }
Ref ask(const Call& c, const Operation& o) { return c.method(o, c.params); }
struct Tag {
  Text key;
  Text value;
};
int tag(const Call& c, const Tag& t) { return c.p_set(t.key.text, t.value.text); }
constexpr Message kSay{"from {} to {}"};
constexpr Wrapper kSend{"wr_real", Route::host};
constexpr Message kDeny{"not today"};
constexpr Operation kAsk{"_merge_output"};
constexpr Tag kTag{{"k"}, {"tagged"}};
struct Every {
  Wrapper send;
  Wrapper read;
  Message no;
  Operation op;
  Text note;
  int own;
};
Ref every(const Call&, const Every&) { return py::none(); }
constexpr Every kHost{{"wr_a", Route::host}, {"wr_b", Route::host}, {"no {}"}, {"op"}, {"n"}, 7};
constexpr Every kMixed{{"wr_a", Route::host}, {"wr_b"}, {"no"}, {"op"}, {"n"}, 0};
"""


def err(kind, text):
    return ("raise", kind, text)


def sent(wrapper, *items, route="self"):
    return (route, wrapper, list(items))


# One synthetic row per word of the row vocabulary, as the variant of an
# operation `w(u='kept', **kwargs)` on arcconf: (variant, setup lines, calls,
# their results in order or err(...), the dispatches, the log lines).  `echo`
# answers params as edited.
ON = "custom(Tool::arcconf, echo)"
Q = 'query(Tool::arcconf, "wr")'
WORDS = {
    # variant constructors
    "refuse": ('refuse(Tool::arcconf, "no way").put("k", "v")', [], ["r.w(a='1')"],
               [err("OrvexException", "no way")], []),
    "checked": ('checked(Tool::arcconf, "wr")',
                ["host.on('wr', parser('Set success'), parser(['line', 'success']), parser('failed'), {})"],
                ["r.w(a='1')", "r.w()", "r.w()", "r.w()"], [True, True, False, False],
                [sent("wr", ("a", "1"))] + [sent("wr")] * 3),
    "action": ('action(Tool::arcconf, "wr")',
               ["host.on('wr', parser('ok'))",
                "r.formatter.parser_exec_cmd_format = lambda raw, tool: (raw, tool)"],
               ["r.w(a='1')"], [({"parser": "ok"}, "arcconf")], [sent("wr", ("a", "1"))]),
    "query": (Q, ["host.on('wr', parser({'x': 1}))"], ["r.w(a='1')"], [{"x": 1}],
              [sent("wr", ("a", "1"))]),
    "custom": (ON, [], ["r.w('x', a='1')"], [{"a": "1"}], []),
    "checked_by": ('checked_by(Tool::arcconf, "mode", {{"on", "wr_on"}, {"off", "wr_off"}}, "mode ", " unknown")',
                   ["host.on('wr_off', parser('success'))"], ["r.w(mode='off', a='1')", "r.w(mode='x')"],
                   [True, err("OrvexException", "mode x unknown")],
                   [sent("wr_off", ("mode", "off"), ("a", "1"))]),
    "choose_fixed": ('checked_by(Tool::arcconf, "mode", {{"on", "wr_on"}}, "not here", nullptr)', [],
                     ["r.w(mode='x')"], [err("OrvexException", "not here")], []),
    "via": ('query(Tool::arcconf, "wr").via(Route::host)', ["host.on('wr', parser(1))"], ["r.w()"], [1],
            [sent("wr", route="host")]),
    "put": (ON + '.put("k", "v")', [], ["r.w(a='1', k='0')"], [{"a": "1", "k": "v"}], []),
    "rename": (ON + '.rename("a", "b")', [], ["r.w(a='1', c='2')", "r.w()"],
               [{"c": "2", "b": "1"}, err("KeyError", "'a'")], []),
    "copy": (ON + '.copy("a", "b")', [], ["r.w(a='1')", "r.w()"], [{"a": "1", "b": "1"}, {"b": None}], []),
    "prep": (ON + '.put("k", "v").prep([](const Call& c) { return c.p_set("k", "set"); })', [],
             ["r.w(a='1')"], [{"a": "1", "k": "set"}], []),
    # typed texts, for a body and for a prep
    "message": ('custom<say, kSay>(Tool::arcconf)', [], ["r.w(a='1', b='2')", "r.w(a=1, b='2')"],
                ["from 1 to 2", err("TypeError", 'can only concatenate str (not "int") to str')], []),
    "wrapper": ('custom<send, kSend>(Tool::arcconf)', ["host.on('wr_real', parser(5))"], ["r.w(a='1')"],
                [5], [sent("wr_real", ("a", "1"), route="host")]),
    "refusal_text": ('custom<deny, kDeny>(Tool::arcconf)', [], ["r.w()"],
                     [err("OrvexException", "not today")], []),
    "operation": ('custom<ask, kAsk>(Tool::arcconf)', [], ["r.w(raw_output={'a': {'b': 1}})"], [{"b": 1}],
                  []),
    "prep_texts": (ON + '.put("k", "v").prep<tag, kTag>()', [], ["r.w(a='1')"], [{"a": "1", "k": "tagged"}],
                   []),
    # where a query starts
    "strict": (Q + ".strict()", ["host.on('wr', {'stdout': 'x'}, parser(None))"], ["r.w()", "r.w()"],
               [err("KeyError", "'parser'"), None], [sent("wr")] * 2),
    "at": (Q + '.at("k_{a}")', ["host.on('wr', parser({'k_1': 5}))"], ["r.w(a='1')", "r.w(a=2)"],
           [5, err("KeyError", "'k_2'")], [sent("wr", ("a", "1")), sent("wr", ("a", 2))]),
    "get": (Q + '.get("k_{a}")', ["host.on('wr', parser({'k_1': 5}))"], ["r.w(a='1')", "r.w(a='2')"],
            [5, None], [sent("wr", ("a", "1")), sent("wr", ("a", "2"))]),
    "first": (Q + ".first()", ["host.on('wr', parser([7, 8]), parser([]))"], ["r.w()", "r.w()"],
              [7, err("IndexError", "list index out of range")], [sent("wr")] * 2),
    "format": (Q + '.format("tmpl")',
               ["host.on('wr', parser({'Size': '1 GB'}))",
                "r.formatter.tmpl = {'contents': {'arcconf': {'size': 'Size', 'name': 'Name'}}}"],
               ["r.w()"], [{"size": "1 GB", "name": "", "raw_data": {"Size": "1 GB"}}], [sent("wr")]),
    "post": (Q + '.post("after")', ["host.on('wr', parser(1))", "r.formatter.after = lambda x: ('after', x)"],
             ["r.w()"], [("after", 1)], [sent("wr")]),
    "method": (Q + '.method("upper")', ["host.on('wr', parser('on'))"], ["r.w()"], ["ON"], [sent("wr")]),
    "wrap": (Q + '.wrap("/c{a}")', ["host.on('wr', parser(3))"], ["r.w(a='0')"], [{"/c0": 3}],
             [sent("wr", ("a", "0"))]),
    "lookup": (Q + '.lookup({{"RAW", "ON"}, {"HIDE", "OFF"}})', ["host.on('wr', parser('HIDE'), parser('Mixed'))"],
               ["r.w()", "r.w()"], ["OFF", "Mixed"], [sent("wr")] * 2),
    "lookup_fallback": (Q + '.lookup({{"RAW", "ON"}}, Missing::fallback, "OFF")',
                        ["host.on('wr', parser('RAW'), parser('Mixed'))"], ["r.w()", "r.w()"], ["ON", "OFF"],
                        [sent("wr")] * 2),
    "refuse_on": (Q + '.refuse_on("fail", "query failed")', ["host.on('wr', parser('fail'), parser('ok'))"],
                  ["r.w()", "r.w()"], [err("OrvexException", "query failed"), "ok"], [sent("wr")] * 2),
    "refuse_on_empty": (Q + '.refuse_on_empty("nothing")',
                        ["host.on('wr', parser({}), parser(None), parser({'a': 1}))"], ["r.w()"] * 3,
                        [err("OrvexException", "nothing")] * 2 + [{"a": 1}], [sent("wr")] * 3),
}


@pytest.fixture(scope="module")
def bad_module(tmp_path_factory):
    """The frame with one row per BAD_ROWS entry, chosen by RAID_BAD_ROW."""
    tmp = tmp_path_factory.mktemp("bad")
    rows = "".join('  if (std::strcmp(which, "%s") == 0) ops.push_back(Op("bad").params(%s)'
                   '.variants({%s}));\n'
                   % (key, params, BAD_VARIANT.get(key, 'refuse(Tool::arcconf, "x")'))
                   for key, (params, _) in BAD_ROWS.items())
    adders = re.findall(r"void (add_\w+_ops)\(OpList&\);", (FRAME / "frame.hpp").read_text())
    (tmp / "rows.cpp").write_text(
        '#include <cstdlib>\n#include <cstring>\n#include <string>\n#include "frame.hpp"\nnamespace raid {\n'
        + PROBE_BODY + TEXT_BODIES
        + "".join("void %s(OpList&) {}\n" % a for a in adders
                  if a not in ("add_frame_ops", "add_normalise_ops", "add_controller_discovery_ops"))
        + "void add_controller_discovery_ops(OpList& ops) {\n"
          '  const char* which = std::getenv("RAID_BAD_ROW");\n  if (which == nullptr) return;\n'
        + rows + "".join('  if (std::strcmp(which, "word:%s") == 0) ops.push_back(Op("w")'
                         '.params({arg("u").or_("\'kept\'").unstored(), kwargs()}).variants({%s}));\n'
                         % (key, case[0]) for key, case in WORDS.items())
        + "".join('  if (std::strcmp(which, "%s") == 0) ops.push_back(Op("look")'
                         '.params({arg("v")}).variants({custom(Tool::arcconf, echo).%s}));\n'
                         % (key, edit) for key, edit in LOOKUPS.items())
        + '  if (std::strcmp(which, "reference") == 0) ops.push_back(Op("w").params({kwargs()}).variants('
          '{custom<every, kHost>(Tool::arcconf), custom<every, kMixed>(Tool::sorbctl)}));\n'
        + '  if (std::strcmp(which, "probe") == 0)'
                 ' ops.push_back(Op("probe").variants({custom(Tool::arcconf, probe)}));\n'
        + "}\n}\n")
    sources = [str(f) for f in sorted(FRAME.glob("*.cpp")) if f.name != "single_threaded_flag.cpp"]
    run = compiler(["-shared", "-fPIC", "-O0", "-o", str(tmp / "raid.abi3.so"), "rows.cpp"]
                   + sources, tmp)
    assert run.returncode == 0, run.stderr
    return tmp


@pytest.mark.parametrize("row", sorted(BAD_ROWS))
def test_bad_declaration_fails_the_import_naming_the_operation(bad_module, row):
    code = ("import sys, importlib.util as u\n"
            "spec = u.spec_from_file_location('orvex.api.hostos.raid.raid', sys.argv[1])\n"
            "try:\n    spec.loader.exec_module(u.module_from_spec(spec))\n"
            "except SystemError as e:\n    print(e)\n")
    env = dict(os.environ, RAID_BAD_ROW=row, PYTHONPATH=str(pathlib.Path(orvex_sim.__file__).parents[1]))
    env.pop("LD_PRELOAD", None)
    run = subprocess.run(PYTHON + ["-c", code, str(bad_module / "raid.abi3.so")],
                         capture_output=True, text=True, env=env)
    assert run.stdout.strip() == BAD_ROWS[row][1], run.stderr


def run_row(bad_module, row, lines, **env):
    """Prints of `lines` run on an arcconf host, m the module with the synthetic row `row`."""
    code = ("import sys, importlib.util as u, orvex_sim\n"
            "from orvex_sim.recorder import RecordingHost\n"
            "spec = u.spec_from_file_location('orvex.api.hostos.raid.raid', sys.argv[1])\n"
            "m = u.module_from_spec(spec)\nspec.loader.exec_module(m)\n"
            "from orvex_sim.recorder import parser\nhost = RecordingHost('arcconf')\n"
            "with orvex_sim.use(host):\n"
            + "".join("    %s\n" % line for line in lines))
    env = dict(os.environ, RAID_BAD_ROW=row, **env,
               PYTHONPATH=str(pathlib.Path(orvex_sim.__file__).parents[1]))
    env.pop("LD_PRELOAD", None)
    run = subprocess.run(PYTHON + ["-c", code, str(bad_module / "raid.abi3.so")],
                         capture_output=True, text=True, env=env)
    return run.stdout.splitlines(), run.stderr


@pytest.mark.parametrize("accessor", ["p_get", "p_has", "p_set", "p_pop", "p_del_if"])
def test_params_accessors_refuse_an_operation_without_params(bad_module, accessor):
    out, err = run_row(bad_module, "probe", ["try: m.Raid().probe()",
                                             "except SystemError as e: print(e)"],
                       RAID_PROBE=accessor)
    assert out == ["operation without params"], err


@pytest.mark.parametrize("policy, listed, unlisted", [
    ("keep", "{'v': 'x'}", "{'v': 'b'}"),
    ("none", "{'v': 'x'}", "{'v': None}"),
    ("key_error", "{'v': 'x'}", "KeyError('b')"),
    ("fallback_into", "{'v': 'a', 'w': 'x'}", "{'v': 'b', 'w': 'z'}"),
    ("keep_into", "{'v': 'a', 'w': 'x'}", "{'v': 'b'}"),
])
def test_lookup_policy_for_a_value_the_table_lacks(bad_module, policy, listed, unlisted):
    out, err = run_row(bad_module, policy, ["for v in ('a', 'b'):",
                                            "    try: print(m.Raid().look(v))",
                                            "    except KeyError as e: print(repr(e))"])
    assert out == [listed, unlisted], err


def test_typed_texts_listed_by_kind_in_the_reference(bad_module):
    out, err = run_row(bad_module, "reference", ["print(repr(vars(m.Raid)['w'].variants))"])
    # wrappers that all go through the host show that route; the int is the body's own
    assert out == [repr((("arcconf", "custom", ("wr_a", "wr_b"), ("no {}",), "host", ("op",), ()),
                         ("sorbctl", "custom", ("wr_a", "wr_b"), ("no",), "self", ("op",), ())))], err


@pytest.mark.parametrize("word", list(WORDS))
def test_row_word_on_a_synthetic_row(bad_module, word):
    _, setup, calls, results, dispatched, *logged = WORDS[word]
    out, err = run_row(bad_module, "word:" + word, [
        "import logging, types",
        "r, logged = m.Raid(), []",
        "r.logger = types.SimpleNamespace(error=logged.append, info=logged.append)",
        *setup,
        *("try: print(repr(('ok', %s)))\n"
          "    except BaseException as e: print(repr(('raise', type(e).__name__, str(e))))" % call
          for call in calls),
        "print(repr([(c.route, c.wrapper, None if c.params is None else list(c.params.items())) for c in host.calls]))",
        "print(repr(logged))"])
    assert len(out) == len(calls) + 2, err
    seen = [ast.literal_eval(line) for line in out]
    assert seen[:-2] == [r if isinstance(r, tuple) and r[:1] == ("raise",) else ("ok", r)
                         for r in results]
    assert seen[-2] == dispatched
    assert seen[-1] == (logged[0] if logged else [])
