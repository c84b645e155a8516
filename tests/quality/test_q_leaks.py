"""Every operation of Raid (the normalisers too), under every tool kind, on
success and error paths, called a few thousand times: memory stays flat.

The operations are enumerated from the class, so an operation added later is
covered without touching this file.  Three backends answer:

* `Null`: every wrapper answers ``[{"parser": "success"}]`` (checked and
  action variants succeed, queries mostly fail on the odd shape);
* `Failing`: every dispatch raises (errors travel through every variant);
* `Replay`: answers captured once from the simulated host, so queries run
  their real shaping code on realistic data.

On top of that every operation is called with one positional argument too
many and, where it declares any, without its required arguments (the binding
error paths).  Growth is measured with tracemalloc (Python-level objects,
which is where a lost reference shows) and with the process RSS.
"""
import gc
import inspect
import logging
import os
import pickle
import time
import tracemalloc

import pytest

import conftest

import orvex_sim
from orvex.api.hostos.raid.raid import Raid
from orvex_sim.simhost import SimulatedHost

TOOLS = conftest.TOOLS + ("storelibtest",)
NOT_OPERATIONS = {"distributor"}
# Sanitizer runs are ~10x slower; they only need the paths walked, not the
# statistics, so they scale the rounds down.
SCALE = float(os.environ.get("RAID_LEAK_SCALE", "1"))

# Argument values by parameter name, valid on the simulated host where the
# name allows it.
VALUES = {
    "vid": "0", "sid": "3", "state": "on", "mode": "3", "oper": "start",
    "raid_level": "1", "size": "100GB", "speed": "12", "switch": "on",
    "switch_status": "on", "information": "all", "disk_type": "hdd",
    "phy_input": "0", "reset_type": "hard", "adapter_id": "0", "fw_file": "/tmp/fw.bin",
    "command_passthru": "12 00 00 00 24 00", "copybackrate": "low", "prrate": "30",
    "ccrate": "30", "repair": "on", "parallelcount": "4", "excludevd": "0",
    "start_time": "2030/01/01 10", "delay": "168", "cc_state": "seq", "iopolicy": "direct",
    "emulation_type": "default", "wrcache": "wb", "rdcache": "ra", "accesspolicy": "rw",
    "dg": "0", "arr": "0", "row": "0", "active_type": "hot",
}


def operations():
    return sorted(name for name, value in vars(Raid).items()
                  if callable(value) and not name.startswith("__") and name not in NOT_OPERATIONS)


def declared(name):
    params = list(inspect.signature(getattr(Raid, name)).parameters.values())[1:]
    return [p for p in params if p.kind not in (p.VAR_POSITIONAL, p.VAR_KEYWORD)]


def call_plans(name, tool, eid):
    """[(positional args, keyword args), ...]: plausible calls of `name`."""
    if name == "update_distributor":
        return [((tool,), {})]
    if name == "_format_output":
        tmpl = {"contents": {tool: {"a": "A", "b": "B"}}}
        return [(([{"A": 1}, {"B": "x"}], tool, tmpl), {}), ((1, tool, tmpl), {})]
    if name == "_merge_output":
        return [(({"x": [{"y": {"z": 1}}], "w": {"v": 2}},), {}),
                (({"a": 1, "b": {"a": 2}},), {}),  # duplicate key
                (({"x": [{"y": {"z": 1}}]}, None, {"x//$0//y": False, "x//$0": True}), {})]
    kwargs = {}
    for p in declared(name):
        if p.default is not p.empty:
            continue
        if p.name == "eid":
            kwargs[p.name] = eid
        elif p.name == "drives":
            kwargs[p.name] = ["%s:3" % eid, "%s:4" % eid]
        else:
            kwargs[p.name] = VALUES.get(p.name, "0")
    return [((), kwargs)]


class Null:
    def __init__(self, tool, answer=None):
        self.tool = tool
        self.answer = answer if answer is not None else [{"parser": "success"}]

    def get_raid_tool(self):
        return self.tool

    def dispatch(self, route, wrapper, params=None):
        return self.answer


class Failing(Null):
    def dispatch(self, route, wrapper, params=None):
        raise RuntimeError("host down")


class Replay(Null):
    """Answers what the simulated host answered to the same wrapper."""

    def __init__(self, tool, answers):
        super().__init__(tool)
        self.answers = answers

    def dispatch(self, route, wrapper, params=None):
        answer = self.answers.get(wrapper)
        if answer is None:
            raise LookupError(wrapper)
        return pickle.loads(answer)  # a fresh copy: variants may edit answers


class Capture(SimulatedHost):
    def __init__(self, tool):
        super().__init__(tool)
        self.answers = {}

    def dispatch(self, route, wrapper, params=None):
        answer = super().dispatch(route, wrapper, params)
        self.answers.setdefault(wrapper, pickle.dumps(answer))
        return answer


def build(backend):
    with orvex_sim.use(backend):
        return Raid()


class Sweep:
    """One pass: every operation on every backend, plus binding errors."""

    def __init__(self, tool):
        self.tool = tool
        sim_tool = "storcli64" if tool == "storelibtest" else tool
        capture = Capture(sim_tool)
        self.eid = capture.model.drives[0].eid
        captured = build(capture)
        # A RAID 5 as virtual drive 0, so that virtual-drive queries have data.
        drives = ["%s:%d" % (self.eid, slot) for slot in (0, 1, 2)]
        assert captured.create_virtual_drive(raid_level="5", drives=drives, pd_per_array="")
        capture.advance(5)
        captured.update_distributor(tool)
        self.ops = operations()
        self.plans = {name: call_plans(name, tool, self.eid) for name in self.ops}
        self.arity = {name: len(declared(name)) for name in self.ops}
        self.required = {name: any(p.default is p.empty for p in declared(name))
                         for name in self.ops}
        for name in self.ops:  # fills capture.answers
            self._one(captured, name)
        capture.calls.clear()
        self.objects = [build(Null(tool)), build(Failing(tool)),
                        build(Replay(tool, capture.answers))]
        self.outcomes = {}

    def _one(self, raid, name):
        outcomes = set()
        for args, kwargs in self.plans[name]:
            try:
                getattr(raid, name)(*args, **kwargs)
            except Exception as exc:  # noqa: BLE001 - every outcome is a path to walk
                outcomes.add(type(exc).__name__)
            else:
                outcomes.add("ok")
        return outcomes

    def run(self):
        for raid in self.objects:
            for name in self.ops:
                self.outcomes.setdefault(name, set()).update(self._one(raid, name))
                method = getattr(raid, name)
                try:
                    method(*range(self.arity[name] + 1))  # one positional too many
                except TypeError:
                    pass
                else:
                    raise AssertionError("%s accepted too many positional arguments" % name)
                if self.required[name]:
                    try:
                        method()
                    except TypeError:
                        pass
                    else:
                        raise AssertionError("%s ran without its required arguments" % name)


@pytest.fixture(autouse=True)
def quiet(monkeypatch):
    monkeypatch.setattr(time, "sleep", lambda seconds: None)
    logger = logging.getLogger("orvex.hostos.raid")
    monkeypatch.setattr(logger, "disabled", True)


def traced_growth(func, rounds, warmup=10):
    for _ in range(warmup):
        func()
    gc.collect()
    tracemalloc.start()
    try:
        func()
        gc.collect()
        before = tracemalloc.get_traced_memory()[0]
        for _ in range(rounds):
            func()
        gc.collect()
        after = tracemalloc.get_traced_memory()[0]
    finally:
        tracemalloc.stop()
    return after - before


def rss_bytes():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def rss_growth(func, rounds, warmup=5):
    for _ in range(warmup):
        func()
    gc.collect()
    before = rss_bytes()
    for _ in range(rounds):
        func()
    gc.collect()
    return rss_bytes() - before


@pytest.fixture(scope="module")
def sweeps():
    return {}


def sweep_for(sweeps, tool):
    if tool not in sweeps:
        sweeps[tool] = Sweep(tool)
    return sweeps[tool]


@pytest.mark.parametrize("tool", TOOLS)
def test_every_operation_walks_success_and_error_paths(sweeps, tool):
    sweep = sweep_for(sweeps, tool)
    sweep.run()
    assert set(sweep.outcomes) == set(operations())
    # The failing backend's error reaches the caller of every operation that
    # dispatches; refusals raise OrvexException first.
    for name, outcomes in sweep.outcomes.items():
        assert outcomes, name
    served = [n for n, o in sweep.outcomes.items() if o != {"OrvexException"}]
    if tool == "storelibtest":
        # Only the frame's own operations and the PHY pair serve this kind.
        assert len(served) < 10, served
        return
    # Nearly every served operation returns a value on some backend, so the
    # success paths are walked, not only the errors.
    failed = sorted(n for n in served if "ok" not in sweep.outcomes[n])
    assert len(failed) <= len(served) // 10, failed
    # The failing host's error reaches the caller unchanged.
    assert sum("RuntimeError" in sweep.outcomes[n] for n in served) >= len(served) // 2


@pytest.mark.parametrize("tool", TOOLS)
def test_no_growth_under_tracemalloc(sweeps, tool):
    sweep = sweep_for(sweeps, tool)
    rounds = max(2, int(10 * SCALE))
    growth = traced_growth(sweep.run, rounds, warmup=max(2, int(20 * SCALE)))
    calls = rounds * len(sweep.objects) * len(sweep.ops)
    # Caches of the standard library (strptime, regular expressions, type
    # caches) fill during the warm-up and settle near 10 KB per ten rounds;
    # one lost object per call would add about 180 KB here.
    assert growth < 48 * 1024, "%d bytes over %d calls" % (growth, calls)


@pytest.mark.parametrize("tool", TOOLS)
def test_no_rss_growth(sweeps, tool):
    if os.environ.get("RAID_SANITIZED"):
        pytest.skip("AddressSanitizer keeps freed memory resident (quarantine)")
    sweep = sweep_for(sweeps, tool)
    rounds = max(2, int(200 * SCALE))
    growth = rss_growth(sweep.run, rounds)
    calls = rounds * len(sweep.objects) * len(sweep.ops)
    assert growth < 1024 * 1024, "%d bytes over %d calls" % (growth, calls)


def test_growth_measures_see_a_lost_object_per_call():
    kept = []

    def leaky():
        for _ in range(1000):
            kept.append(object())

    assert traced_growth(leaky, 60) > 64 * 1024

    kept_big = []

    def leaky_big():
        kept_big.append(b"x" * (1 << 20))

    assert rss_growth(leaky_big, 8) > 4 * 1024 * 1024
