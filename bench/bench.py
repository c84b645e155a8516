#!/usr/bin/env python3
"""Speed of the Raid module against the same work written in plain Python.

    RAID_SITE=<install prefix of a Release build> python3 bench/bench.py [--quick]
    RAID_SITE=... python3 bench/bench.py --instructions [--quick]

Every path is timed three ways, in one process, in interleaved rounds
(each round times every path and every version once), and reported as the
median per call with the spread (lowest and highest round), in the
process's own CPU time (the wall clock of a shared machine also counts
other processes' turns); the garbage collector is off while timing, as
timeit has it, and collects fully before each round:

- module: the operation of the built module, on a no-op dispatch (answers
  captured once from the simulated host and handed back as they are);
- plain: the same operation written as plain Python on the same framework
  (params, the per-tool variants registered through the framework's
  decorator, the same wrappers, formatter calls and normalisers);
- floor: what any implementation of that path must pay the framework and
  nothing else: the three registrations through its decorator, the final
  call, and the framework calls the path itself makes (dispatch, formatter,
  template file, building and raising the framework's exception); for an
  argument error, raising the TypeError.  The normalisers' floor is
  `dict(zip(...))` building as many entries.

"own" is the time above the floor: the implementation's own work.

Each round starts each path with another version (the first one timed after
another path may find colder caches).  On a shared machine single rounds
still vary by tens of percent: --instructions counts instructions per call
instead (callgrind; Python 3.11+), the same on every run of the same build.
"""
import collections
import gc
import inspect
import os
import re
import statistics
import sys
import time
import timeit

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
if os.environ.get("RAID_SITE"):
    sys.path.insert(0, os.path.abspath(os.environ["RAID_SITE"]))
sys.path.insert(0, os.path.join(ROOT, "sim"))

import orvex_sim  # noqa: E402
from orvex.api.hostos.hostos_base import HostOSBase  # noqa: E402
from orvex.api.hostos.raid.output_format import OutputFormatter  # noqa: E402
from orvex.api.hostos.raid.raid import Raid  # noqa: E402
from orvex.exception.orvex_exception import OrvexException  # noqa: E402
from orvex.utils.decorator import obj_attr_decorator  # noqa: E402
from orvex.utils.file_parser import load_from_file  # noqa: E402
from orvex_sim.simhost import SimulatedHost  # noqa: E402

import orvex.api.hostos.raid.raid as raid_module  # noqa: E402

CONFIG = os.path.join(os.path.dirname(os.path.abspath(raid_module.__file__)), "config")
QUICK = "--quick" in sys.argv
ROUNDS = 5 if QUICK else 101
BATCH = 0.01 if QUICK else 0.02  # seconds per timed batch


# ---------------------------------------------------------------------------
# No-op dispatch

class Canned:
    """Answers each wrapper with one fixed answer (raised when it is an
    exception); does nothing else."""

    def __init__(self, tool, answers):
        self.tool = tool
        self.answers = answers

    def get_raid_tool(self):
        return self.tool

    def dispatch(self, route, wrapper, params=None):
        answer = self.answers[wrapper]
        if isinstance(answer, BaseException):
            # Raised afresh: an instance raised again keeps its traceback
            # and grows it by the frames it passes, call after call.
            raise answer.with_traceback(None)
        return answer


def capture(tool, calls, drives=None):
    host = SimulatedHost(tool)
    if drives:
        host.model.drives = drives
    answers = {}
    real = host.dispatch

    def keep(route, wrapper, params=None):
        answer = real(route, wrapper, params)
        answers.setdefault(wrapper, answer)
        return answer

    host.dispatch = keep
    with orvex_sim.use(host):
        raid = Raid()
    eid = host.model.drives[0].eid
    for call in calls:
        call(raid, eid)
    return answers, eid


# ---------------------------------------------------------------------------
# The same operations as plain Python

class PlainRaid(HostOSBase):
    def __init__(self):
        HostOSBase.__init__(self)
        self._distributor = None
        self.formatter = OutputFormatter(self)

    @property
    def distributor(self):
        if not self._distributor:
            distributor_type = collections.namedtuple("Distributor", ["raid_tool"])
            self._distributor = obj_attr_decorator(
                distributor_type(self.dispatcher.get_raid_tool()))
        return self._distributor

    def _format_output(self, raw_data, tool, template=None):
        if template is None:
            caller = inspect.currentframe().f_back.f_code.co_name
            template = load_from_file(os.path.join(CONFIG, "%s.yaml" % caller), file_type="yaml")
        if isinstance(raw_data, dict):
            res = {}
            for out_key, raw_key in template["contents"][tool].items():
                res[out_key] = raw_data.get(raw_key, "")
            res["raw_data"] = raw_data
            return res
        if isinstance(raw_data, list):
            return [self._format_output(e, tool, template) for e in raw_data]
        raise OrvexException("Unsupported data type [%s] found in template." % type(raw_data))

    def _merge_output(self, raw_output, res=None, structure=None):
        if res is None:
            res = {}
        if structure is None:
            if isinstance(raw_output, dict):
                for key, value in raw_output.items():
                    if isinstance(value, (dict, list)):
                        self._merge_output(value, res)
                    elif key in res:
                        raise Exception("Existing key [%s] found in res, current value: [%s], "
                                        "existing value: [%s]" % (key, value, res[key]))
                    else:
                        res[key] = value
            else:
                for element in raw_output:
                    self._merge_output(element, res)
            return res
        for path, flag in structure.items():
            if "//" not in path:
                res.update(raw_output[path] if flag else {path: raw_output.get(path)})
                continue
            node = raw_output
            last_is_pos = False
            segments = re.split("//", path)
            for seg in segments:
                last_is_pos = seg.startswith("$")
                node = node[int(seg[1:])] if last_is_pos else node[seg]
            res.update(node if (last_is_pos or flag) else {segments[-1]: node})
        return res

    def set_jbod_state(self, state, **kwargs):
        params = {"state": state}
        params.update(kwargs)

        @self.distributor(raid_tool="storcli64")
        def set_jbod_state():
            return "success" in (self.dispatch("ctr_set_jbod_cfg_storcli64", params)[0]
                                 .get("parser") or "")

        @self.distributor(raid_tool="sorbctl")
        def set_jbod_state():  # noqa: F811
            params["jbod"] = params.pop("state")
            if params["jbod"] == "on":
                params["jbod"] = "rawdrive"
            return "success" in (self.dispatch("set_controller_jbod_sorbctl", params)[0]
                                 .get("parser") or "")

        @self.distributor(raid_tool="arcconf")
        def set_jbod_state():  # noqa: F811
            raise NotImplementedError

        return set_jbod_state()

    def set_ctl_mode(self, mode, **kwargs):
        params = {"mode": mode}
        params.update(kwargs)

        @self.distributor(raid_tool="arcconf")
        def set_ctl_mode():
            return self.formatter.parser_exec_cmd_format(
                self.dispatch("ctr_set_ctrl_mode_arcconf", params)[0], "arcconf")

        @self.distributor(raid_tool="sorbctl")
        def set_ctl_mode():  # noqa: F811
            raise OrvexException("7460卡sorbctl工具没有 设置控制卡工作模式 功能")

        @self.distributor(raid_tool="storcli64")
        def set_ctl_mode():  # noqa: F811
            raise OrvexException("LSI卡storcli64工具没有 设置控制卡工作模式 功能")

        return set_ctl_mode()

    def get_capacitance_info(self, information="all", **kwargs):
        params = {"information": information}
        params.update(kwargs)

        @self.distributor(raid_tool="storcli64")
        def get_capacitance_info():
            info = {}
            parser = self.dispatch("ctr_get_cv_all_storcli64", params)[0].get("parser")
            failure = parser.get("fail_Info")
            if failure:
                info.update(failure)
            if information not in ("all", "simple"):
                raise OrvexException("LSI卡查询电容all参数错误: 全部信息all=\"all\" 简要信息all=\"simple\"")
            raise NotImplementedError  # only the refusal is measured

        @self.distributor(raid_tool="sorbctl")
        def get_capacitance_info():  # noqa: F811
            raise NotImplementedError

        @self.distributor(raid_tool="arcconf")
        def get_capacitance_info():  # noqa: F811
            raise NotImplementedError

        result = get_capacitance_info()
        if result is not None and type(result) is not dict:
            raise TypeError("Expected dict, got %.200s" % type(result).__name__)
        return result

    def get_all_physical_drive_info(self, **kwargs):
        params = {}
        params.update(kwargs)

        @self.distributor(raid_tool="sorbctl")
        def get_all_physical_drive_info_raid():
            raise NotImplementedError

        @self.distributor(raid_tool="storcli64")
        def get_all_physical_drive_info_raid():  # noqa: F811
            params["eid"] = "all"
            params["sid"] = "all"
            parser = self.host.dispatch("ctr_get_pd_cfg_storcli64", params)[0].get("parser")
            out = []
            for key, value in parser.items():
                if not re.match(r"^Drive.*Detailed Information$", key):
                    continue
                summary_key = key.split("-")[0].strip()
                working = {key: value, summary_key: parser[summary_key]}
                layers = self.formatter.storcli64_get_one_physical_drive_treatments(working)
                out.append(self._merge_output(working, None, layers))
            shaped = self._format_output(out, "storcli64")
            return self.formatter.get_all_physical_drive_info_format(shaped)

        @self.distributor(raid_tool="arcconf")
        def get_all_physical_drive_info_raid():  # noqa: F811
            raise NotImplementedError

        result = get_all_physical_drive_info_raid()
        if result is not None and type(result) is not list:
            raise TypeError("Expected list, got %.200s" % type(result).__name__)
        return result

    def set_disk_state(self, *, eid, sid, state, **kwargs):
        raise NotImplementedError  # argument errors only

    def get_controller_status_raid(self, **kwargs):
        params = {}
        params.update(kwargs)

        @self.distributor(raid_tool="sorbctl")
        def get_controller_status_raid():
            raise NotImplementedError

        @self.distributor(raid_tool="storcli64")
        def get_controller_status_raid():  # noqa: F811
            parser = self.dispatch("ctr_get_all_cfg_storcli64", params)[0].get("parser")
            layers = self.formatter.storcli64_get_controller_status_raid_treatments()
            merged = self._merge_output(parser, None, layers)
            shaped = self._format_output(merged, "storcli64")
            return self.formatter.get_controller_status_raid_format(shaped)

        @self.distributor(raid_tool="arcconf")
        def get_controller_status_raid():  # noqa: F811
            raise NotImplementedError

        result = get_controller_status_raid()
        if result is not None and type(result) is not dict:
            raise TypeError("Expected dict, got %.200s" % type(result).__name__)
        return result

    def get_one_physical_drive_info(self, *, eid, sid, **kwargs):
        params = {"eid": eid, "sid": sid}
        params.update(kwargs)

        @self.distributor(raid_tool="storcli64")
        def get_one_physical_drive_info_raid():
            parser = self.host.dispatch("ctr_get_pd_cfg_storcli64", params)[0].get("parser")
            layers = self.formatter.storcli64_get_one_physical_drive_treatments(parser)
            merged = self._merge_output(parser, None, layers)
            shaped = self._format_output(merged, "storcli64")
            return self.formatter.get_one_physical_drive_info_format(shaped)

        @self.distributor(raid_tool="arcconf")
        def get_one_physical_drive_info_raid():  # noqa: F811
            raise NotImplementedError

        @self.distributor(raid_tool="sorbctl")
        def get_one_physical_drive_info_raid():  # noqa: F811
            raise NotImplementedError

        result = get_one_physical_drive_info_raid()
        if result is not None and type(result) is not dict:
            raise TypeError("Expected dict, got %.200s" % type(result).__name__)
        return result


# ---------------------------------------------------------------------------
# Measuring

# The process's own CPU time: on a shared machine the wall clock also counts
# the time other processes held the CPU, which has nothing to do with the
# code timed.  timeit switches the garbage collector off while it times (the
# same for every version); each round starts after a full collection.
CLOCK = time.process_time


def timed(func, n):
    return timeit.timeit(func, number=n, timer=CLOCK)


def batch_size(func):
    n = 1
    while timed(func, n) < BATCH / 4 and n < 1 << 22:
        n *= 4
    return n


def rounds(cases):
    """{label: {version: [seconds per call per round]}}, rounds interleaved."""
    sizes = {(label, v): batch_size(f) for label, versions in cases for v, f in versions.items()}
    times = {label: {v: [] for v in versions} for label, versions in cases}
    for r in range(ROUNDS):
        gc.collect()
        for label, versions in cases:
            # Each round starts each path with another version: the first
            # one timed after another path may find colder caches.
            order = list(versions.items())
            order = order[r % len(order):] + order[:r % len(order)]
            for v, f in order:
                n = sizes[(label, v)]
                times[label][v].append(timed(f, n) / n)
    return times


def med(values):
    return statistics.median(values)


def spread(values):
    m = med(values)
    return "%+.0f/%+.0f%%" % ((min(values) / m - 1) * 100, (max(values) / m - 1) * 100)


def catching(call, error):
    def run():
        try:
            call()
        except error:
            pass
        else:
            raise AssertionError("no %s" % error.__name__)
    return run


def registered(obj, selected):
    """The framework's part of one call: three registrations through its
    decorator, then the selected one called; `selected` runs the framework
    calls the path makes."""
    def floor():
        def variant():
            return selected()

        def other():
            raise NotImplementedError

        tools = [t for t in ("storcli64", "arcconf", "sorbctl") if t != obj._distributor_tool]
        obj.distributor(raid_tool=tools[0])(other)
        obj.distributor(raid_tool=tools[1])(other)
        return obj.distributor(raid_tool=obj._distributor_tool)(variant)()
    return floor


def fw(tool, answers):
    """A module object, a plain object and a floor object on one canned host."""
    host = Canned(tool, answers)
    with orvex_sim.use(host):
        module, plain, floor = Raid(), PlainRaid(), PlainRaid()
    floor._distributor_tool = tool
    return module, plain, floor


def twenty_four_drives():
    from orvex_sim.simhost.model import Drive
    drives = []
    for slot in range(24):
        intf, media = ("SAS", "HDD") if slot % 3 else ("SATA", "SSD")
        drives.append(Drive("252", slot, 10 + slot, intf, media, 1117.8, "ST1200MM0009",
                            "WFK%05d" % (31740 + slot * 7), "N003", "12.0",
                            "0x5000c500%08x" % (0xA1B2C300 + slot),
                            physical_sector=512 if media == "SSD" else 4096))
    return drives


def operation_cases():
    answers, eid = capture("storcli64", [
        lambda r, e: r.set_jbod_state("on"),
        lambda r, e: r.get_controller_status_raid(),
        lambda r, e: r.get_one_physical_drive_info(eid=e, sid="0"),
        lambda r, e: r.get_capacitance_info(),
    ])
    arcconf, _ = capture("arcconf", [lambda r, e: r.set_ctl_mode("3")])
    lost = ConnectionError("ssh lost")
    failing = dict(answers, ctr_set_jbod_cfg_storcli64=lost, ctr_get_all_cfg_storcli64=lost)
    cases = []

    def case(label, tool, table, call, error=None, work=None):
        module, plain, floor = fw(tool, table)
        wrap = (lambda o: catching(lambda: call(o), error)) if error else (lambda o: lambda: call(o))
        if error is None:
            assert call(module) == call(plain), label  # the plain version does the same work
        selected = work(floor)
        floor_call = registered(floor, selected)
        if error is TypeError:
            floor_call = selected  # binding fails before anything is registered
        cases.append((label, {"module": wrap(module), "plain": wrap(plain),
                              "floor": catching(floor_call, error) if error else floor_call}))

    def dispatch(o, wrapper, host=False):
        return (o.host if host else o).dispatch(wrapper, {"eid": "0", "sid": "0"})

    def raising(error, message):
        def run():
            raise error(message)
        return run

    case("checked action", "storcli64", answers, lambda o: o.set_jbod_state("on", adapter_id="0"),
         work=lambda o: lambda: dispatch(o, "ctr_set_jbod_cfg_storcli64")[0].get("parser"))
    case("action", "arcconf", arcconf, lambda o: o.set_ctl_mode("3", adapter_id="0"),
         work=lambda o: lambda: o.formatter.parser_exec_cmd_format(
             dispatch(o, "ctr_set_ctrl_mode_arcconf")[0], "arcconf"))
    case("refusal from a row", "storcli64", answers, lambda o: o.set_ctl_mode("3"), OrvexException,
         work=lambda o: raising(OrvexException, "LSI卡storcli64工具没有 设置控制卡工作模式 功能"))

    def cap_refusal(o):
        def run():
            dispatch(o, "ctr_get_cv_all_storcli64")
            raise OrvexException("LSI卡查询电容all参数错误")
        return run

    case("refusal inside a computed variant", "storcli64", answers,
         lambda o: o.get_capacitance_info("bad"), OrvexException, work=cap_refusal)
    case("dispatch error through a checked action", "storcli64", failing,
         lambda o: o.set_jbod_state("on"), ConnectionError,
         work=lambda o: lambda: dispatch(o, "ctr_set_jbod_cfg_storcli64"))
    case("dispatch error through a query", "storcli64", failing,
         lambda o: o.get_controller_status_raid(), ConnectionError,
         work=lambda o: lambda: dispatch(o, "ctr_get_all_cfg_storcli64"))
    case("argument error: missing positional", "storcli64", answers, lambda o: o.set_ctl_mode(),
         TypeError, work=lambda o: raising(TypeError, "set_ctl_mode() takes exactly 2 positional "
                                                      "arguments (1 given)"))
    case("argument error: missing keyword-only", "storcli64", answers,
         lambda o: o.set_disk_state(eid="0", state="on"), TypeError,
         work=lambda o: raising(TypeError, "set_disk_state() needs keyword-only argument sid"))

    def query_work(o, wrapper, treatments, fmt, template_name, host=False, with_parser=False):
        path = os.path.join(CONFIG, "%s.yaml" % template_name)
        parser = dispatch(o, wrapper, host)[0].get("parser")
        layers = getattr(o.formatter, treatments)(*([parser] if with_parser else []))
        shaped = o._format_output(o._merge_output(parser, None, layers), "storcli64",
                                  load_from_file(path, file_type="yaml"))

        def run():
            parser = dispatch(o, wrapper, host)[0].get("parser")
            getattr(o.formatter, treatments)(*([parser] if with_parser else []))
            load_from_file(path, file_type="yaml")
            return getattr(o.formatter, fmt)(shaped)
        return run

    case("query: get_controller_status_raid", "storcli64", answers,
         lambda o: o.get_controller_status_raid(adapter_id="0"),
         work=lambda o: query_work(o, "ctr_get_all_cfg_storcli64",
                                   "storcli64_get_controller_status_raid_treatments",
                                   "get_controller_status_raid_format",
                                   "get_controller_status_raid"))
    case("query: get_one_physical_drive_info", "storcli64", answers,
         lambda o: o.get_one_physical_drive_info(eid=eid, sid="0"),
         work=lambda o: query_work(o, "ctr_get_pd_cfg_storcli64",
                                   "storcli64_get_one_physical_drive_treatments",
                                   "get_one_physical_drive_info_format",
                                   "get_one_physical_drive_info_raid", host=True,
                                   with_parser=True))

    many, _ = capture("storcli64", [lambda r, e: r.get_all_physical_drive_info()],
                      drives=twenty_four_drives())

    def all_work(o):
        path = os.path.join(CONFIG, "get_all_physical_drive_info_raid.yaml")
        parser = dispatch(o, "ctr_get_pd_cfg_storcli64", True)[0].get("parser")
        sections = [{k: v, k.split("-")[0].strip(): parser[k.split("-")[0].strip()]}
                    for k, v in parser.items() if k.endswith("Detailed Information")]
        shaped = o._format_output([o._merge_output(
            w, None, o.formatter.storcli64_get_one_physical_drive_treatments(w))
            for w in sections], "storcli64", load_from_file(path, file_type="yaml"))

        def run():
            dispatch(o, "ctr_get_pd_cfg_storcli64", True)
            for w in sections:
                o.formatter.storcli64_get_one_physical_drive_treatments(w)
            load_from_file(path, file_type="yaml")
            return o.formatter.get_all_physical_drive_info_format(shaped)
        return run

    case("query: get_all_physical_drive_info, 24 drives", "storcli64", many,
         lambda o: o.get_all_physical_drive_info(adapter_id="0"), work=all_work)

    module, plain, _ = fw("storcli64", answers)
    dup = {"x": 0, "a": 1, "b": {"a": 1}}
    cases.append(("_merge_output raising on a duplicate key", {
        "module": catching(lambda: module._merge_output(dup), Exception),
        "plain": catching(lambda: plain._merge_output(dup), Exception),
        "floor": catching(raising(Exception, "Existing key [a] found in res, current value: [1], "
                                             "existing value: [1]"), Exception)}))
    return cases


# ---------------------------------------------------------------------------
# Normalisers on generated controller answers

FIELDS = ["EID:Slt", "DID", "State", "DG", "Size", "Intf", "Med", "SED", "PI", "SeSz",
          "Model", "Sp", "Type", "SN", "Manufacturer Id", "WWN", "Firmware Revision",
          "Link Speed", "Drive Temperature", "Media Error Count"]


def drive_answer(n):
    """storcli64-like `show all` of n drives: a summary row and a detail
    section per drive (unique keys per drive, as the tool prefixes them)."""
    answer = {}
    for i in range(n):
        answer["Drive /c0/e252/s%d" % i] = [{"%s %d" % (f, i): "v%d" % i for f in FIELDS[:10]}]
        answer["Drive /c0/e252/s%d - Detailed Information" % i] = {
            "Drive /c0/e252/s%d State" % i: {"%s %d" % (f, i): "v" for f in FIELDS[10:15]},
            "Drive /c0/e252/s%d Device attributes" % i: {"%s %d" % (f, i): "w"
                                                         for f in FIELDS[15:]},
        }
    return answer


def layer_map(n):
    layers = {}
    for i in range(n):
        layers["Drive /c0/e252/s%d//$0" % i] = True
        layers["Drive /c0/e252/s%d - Detailed Information//Drive /c0/e252/s%d State" % (i, i)] = True
        layers["Drive /c0/e252/s%d - Detailed Information//Drive /c0/e252/s%d Device attributes"
               % (i, i)] = False
    return layers


def drive_rows(n):
    return [{f: "%s-%d" % (f, i) for f in FIELDS} for i in range(n)]


TEMPLATE = {"contents": {"storcli64": {f.lower().replace(" ", "_"): f for f in FIELDS}}}


def normaliser_cases():
    with orvex_sim.use(Canned("storcli64", {})):
        module, plain = Raid(), PlainRaid()
    cases = []
    for n in ((24, 240) if QUICK else (24, 240, 2400)):
        cases += normalisers_at(n, module, plain)
    return cases


def normalisers_at(n, module, plain):
    nested, layers, rows = drive_answer(n), layer_map(n), drive_rows(n)
    entries = n * len(FIELDS)
    keys, values = ["k%d" % i for i in range(entries)], list(range(entries))
    out_keys = list(TEMPLATE["contents"]["storcli64"])
    row_values = [tuple(r.values()) for r in rows]
    assert module._merge_output(nested) == plain._merge_output(nested)
    assert module._merge_output(nested, None, layers) == plain._merge_output(nested, None, layers)
    assert module._format_output(rows, "storcli64", TEMPLATE) == plain._format_output(
        rows, "storcli64", TEMPLATE)

    def floor():
        return dict(zip(keys, values))

    return [
        ("_merge_output flatten, %d drives" % n, {
            "module": lambda: module._merge_output(nested),
            "plain": lambda: plain._merge_output(nested), "floor": floor}),
        ("_merge_output layer map, %d drives" % n, {
            "module": lambda: module._merge_output(nested, None, layers),
            "plain": lambda: plain._merge_output(nested, None, layers), "floor": floor}),
        ("_format_output, %d drives" % n, {
            "module": lambda: module._format_output(rows, "storcli64", TEMPLATE),
            "plain": lambda: plain._format_output(rows, "storcli64", TEMPLATE),
            "floor": lambda: [dict(zip(out_keys, v)) for v in row_values]}),
    ]


def report(cases, times):
    print("%-42s %9s %12s %9s %9s %7s %7s %12s %8s %8s %6s" % (
        "path (us per call, median)", "module", "spread", "plain", "floor", "ratio",
        "paired", "ratio range", "own mod", "own pl", "own"))
    for label, _ in cases:
        t = {v: med(times[label][v]) * 1e6 for v in ("module", "plain", "floor")}
        own_m, own_p = t["module"] - t["floor"], t["plain"] - t["floor"]
        # plain / module within each round: both timed moments apart
        per_round = [p / m for p, m in zip(times[label]["plain"], times[label]["module"])]
        print("%-42s %9.2f %12s %9.2f %9.2f %6.2fx %6.2fx %12s %8.2f %8.2f %5.2f" % (
            label, t["module"], spread(times[label]["module"]), t["plain"], t["floor"],
            t["plain"] / t["module"], med(per_round),
            "%.2f-%.2fx" % (min(per_round), max(per_round)),
            own_m, own_p, own_m / own_p if own_p > 0 else float("nan")))


# ---------------------------------------------------------------------------
# Instructions per call (--instructions): callgrind counts them, the same
# for the same build and inputs whatever else the machine is doing.  One
# valgrind process per version; each path's calls run inside one call of
# the C function behind operator.call, and counting is switched on only
# there (a profile is written as it returns).

COUNTED = "_operator_call"


def count_child(version):
    import operator
    for label, versions in all_cases():
        f = versions[version]
        for _ in range(3):
            f()
        n = batch_size(f)

        def batch():
            for _ in range(n):
                f()
        operator.call(batch)
        print("%s\t%d" % (label, n), flush=True)


def totals(path):
    with open(path) as handle:
        for line in handle:
            if line.startswith(("totals:", "summary:")):
                return int(line.split()[1])
    raise ValueError("no totals in %s" % path)


def count_instructions():
    import subprocess
    import tempfile
    import operator
    if not hasattr(operator, "call"):
        sys.exit("--instructions needs Python 3.11 or later (operator.call)")
    counts = {}
    for version in ("module", "plain", "floor"):
        with tempfile.TemporaryDirectory() as out:
            run = subprocess.run(
                ["valgrind", "--tool=callgrind", "--collect-atstart=no",
                 "--toggle-collect=" + COUNTED, "--dump-after=" + COUNTED,
                 "--callgrind-out-file=" + os.path.join(out, "cg.out"),
                 sys.executable, os.path.abspath(__file__), "--count-child", version],
                stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True)
            dumps = sorted((f for f in os.listdir(out) if f.startswith("cg.out.")),
                           key=lambda f: int(f.rsplit(".", 1)[1]))
            rows = [line.split("\t") for line in run.stdout.splitlines()]
            if len(dumps) != len(rows):
                sys.exit("%s: %d profiles for %d paths" % (version, len(dumps), len(rows)))
            for (label, n), dump in zip(rows, dumps):
                counts.setdefault(label, {})[version] = totals(os.path.join(out, dump)) / int(n)
    print("%-42s %10s %10s %10s %7s %6s" % (
        "path (instructions per call)", "module", "plain", "floor", "ratio", "own"))
    for label, c in counts.items():
        own_m, own_p = c["module"] - c["floor"], c["plain"] - c["floor"]
        print("%-42s %10.0f %10.0f %10.0f %6.2fx %6s" % (
            label, c["module"], c["plain"], c["floor"], c["plain"] / c["module"],
            "%.2f" % (own_m / own_p) if own_m > 0 and own_p > 0 else "-"))


def all_cases():
    return operation_cases() + normaliser_cases()


def main():
    if "--count-child" in sys.argv:
        return count_child(sys.argv[sys.argv.index("--count-child") + 1])
    if "--instructions" in sys.argv:
        return count_instructions()
    print("Python %s, %s, %d interleaved rounds, process CPU time" % (
        sys.version.split()[0], os.path.basename(raid_module.__file__), ROUNDS))
    print("ratio = plain / module (medians); paired = median of the rounds' own ratios; "
          "ratio range = lowest and highest round; own = time above the floor; "
          "last column = own module / own plain")
    print()
    cases = all_cases()
    report(cases, rounds(cases))


if __name__ == "__main__":
    main()
