#!/usr/bin/env python3
"""Speed of the Raid module against the same work written in plain Python.

    RAID_SITE=build/<dir>-site python3 bench/bench.py [--quick]

1. Per-call time of representative operations on a no-op dispatch (answers
   captured once from the simulated host and handed back as they are), next
   to a plain-Python version of the same operation (the same frame steps:
   params, per-tool variants registered through the framework's decorator,
   the same wrapper, formatter calls and normalisers), and next to the
   framework's share alone: the per-tool registrations through its Python
   decorator and the dispatch, which both versions must run.
2. `_merge_output` and `_format_output` on a generated answer of a
   240-drive controller, in ns per entry, against `dict(zip(...))` building
   the same number of entries (the floor), and how both grow over 24, 240
   and 2400 drives.
"""
import collections
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

import yaml  # noqa: E402

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


# ---------------------------------------------------------------------------
# No-op dispatch

class Canned:
    """Answers each wrapper with one fixed answer; does nothing else."""

    def __init__(self, tool, answers):
        self.tool = tool
        self.answers = answers

    def get_raid_tool(self):
        return self.tool

    def dispatch(self, route, wrapper, params=None):
        return self.answers[wrapper]


def capture(tool, calls):
    host = SimulatedHost(tool)
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

def per_call(func, target=0.25):
    """Best per-call seconds over a few repeats."""
    n = 1
    while True:
        t = timeit.timeit(func, number=n)
        if t >= target / 5 or n >= 1 << 22:
            break
        n *= 4
    repeats = 3 if QUICK else 5
    return min(timeit.repeat(func, number=n, repeat=repeats)) / n


def operations_table():
    answers, eid = capture("storcli64", [
        lambda r, e: r.set_jbod_state("on"),
        lambda r, e: r.get_controller_status_raid(),
        lambda r, e: r.get_one_physical_drive_info(eid=e, sid="0"),
    ])
    host = Canned("storcli64", answers)
    with orvex_sim.use(host):
        module, plain = Raid(), PlainRaid()
    cases = [
        ("set_jbod_state (checked action)", lambda o: o.set_jbod_state("on", adapter_id="0")),
        ("get_controller_status_raid (merge + format)",
         lambda o: o.get_controller_status_raid(adapter_id="0")),
        ("get_one_physical_drive_info (merge-heavy)",
         lambda o: o.get_one_physical_drive_info(eid=eid, sid="0")),
    ]
    shares = {
        "set_jbod_state (checked action)": framework_share(plain, "ctr_set_jbod_cfg_storcli64"),
        "get_controller_status_raid (merge + format)":
            framework_share(plain, "ctr_get_all_cfg_storcli64"),
        "get_one_physical_drive_info (merge-heavy)":
            framework_share(plain, "ctr_get_pd_cfg_storcli64", host=True),
    }
    rows = []
    for label, call in cases:
        a, b = call(module), call(plain)
        assert a == b, (label, a, b)  # the plain version does the same work
        rows.append((label, per_call(lambda: call(module)), per_call(lambda: call(plain)),
                     per_call(shares[label])))
    print("Per call on a no-op dispatch (us); ratio = plain Python / module;")
    print("framework = its decorator registrations and dispatch alone (both versions run it);")
    print("rest = module - framework (formatter calls, template lookup, the module's own work)")
    print("%-46s %9s %9s %6s %10s %9s" % ("operation", "module", "plain", "ratio", "framework",
                                         "rest"))
    for label, tm, tp, tf in rows:
        print("%-46s %9.2f %9.2f %5.2fx %10.2f %9.2f" % (
            label, tm * 1e6, tp * 1e6, tp / tm, tf * 1e6, (tm - tf) * 1e6))
    return rows


def framework_share(obj, wrapper, host=False):
    """What any implementation pays the framework per call: three variant
    registrations through the decorator, the selected call, one dispatch."""
    target = obj.host if host else obj

    def share():
        params = {"eid": "0", "sid": "0"}

        @obj.distributor(raid_tool="storcli64")
        def op():
            return target.dispatch(wrapper, params)[0].get("parser")

        @obj.distributor(raid_tool="arcconf")
        def op():  # noqa: F811
            raise NotImplementedError

        @obj.distributor(raid_tool="sorbctl")
        def op():  # noqa: F811
            raise NotImplementedError

        return op()

    return share


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


def normaliser_table():
    with orvex_sim.use(Canned("storcli64", {})):
        module, plain = Raid(), PlainRaid()
    sizes = (24, 240) if QUICK else (24, 240, 2400)
    out = collections.OrderedDict()
    for n in sizes:
        nested = drive_answer(n)
        layers = layer_map(n)
        rows = drive_rows(n)
        entries = n * len(FIELDS)
        keys = ["k%d" % i for i in range(entries)]
        values = list(range(entries))
        out_keys = list(TEMPLATE["contents"]["storcli64"])
        row_values = [tuple(r.values()) for r in rows]
        assert module._merge_output(nested) == plain._merge_output(nested)
        assert module._merge_output(nested, None, layers) == plain._merge_output(nested, None,
                                                                                  layers)
        assert module._format_output(rows, "storcli64", TEMPLATE) == plain._format_output(
            rows, "storcli64", TEMPLATE)
        measures = {
            "floor: dict(zip(...))": lambda: dict(zip(keys, values)),
            "floor: dict(zip(...)) per row": lambda: [dict(zip(out_keys, v)) for v in row_values],
            "_merge_output flatten": lambda: module._merge_output(nested),
            "_merge_output layer map": lambda: module._merge_output(nested, None, layers),
            "_format_output list": lambda: module._format_output(rows, "storcli64", TEMPLATE),
            "plain _merge_output flatten": lambda: plain._merge_output(nested),
            "plain _merge_output layer map": lambda: plain._merge_output(nested, None, layers),
            "plain _format_output list": lambda: plain._format_output(rows, "storcli64",
                                                                      TEMPLATE),
        }
        out[n] = {k: per_call(f) / entries * 1e9 for k, f in measures.items()}
    print()
    print("Normalisers, ns per entry (entries = drives x %d fields)" % len(FIELDS))
    print("%-34s" % "" + "".join("%12s" % ("%d drives" % n) for n in sizes))
    for key in out[sizes[0]]:
        print("%-34s" % key + "".join("%12.1f" % out[n][key] for n in sizes))
    n = 240
    if n in out:
        r = out[n]
        print()
        print("At 240 drives: merge flatten %.1fx floor, merge layer map %.1fx floor, "
              "format %.1fx floor (per-row floor)" % (
                  r["_merge_output flatten"] / r["floor: dict(zip(...))"],
                  r["_merge_output layer map"] / r["floor: dict(zip(...))"],
                  r["_format_output list"] / r["floor: dict(zip(...)) per row"]))
    return out


def main():
    print("Python %s, %s" % (sys.version.split()[0], os.path.basename(raid_module.__file__)))
    print()
    operations_table()
    normaliser_table()


if __name__ == "__main__":
    main()
