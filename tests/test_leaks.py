"""Repeated calls on success and error paths leave memory flat."""
import gc
import tracemalloc

import pytest

import orvex_sim
from orvex.api.hostos.raid.raid import Raid
from orvex.exception.orvex_exception import OrvexException

ANSWER = [{"parser": "success"}]


class NullHost:
    """Answers every dispatch at once and records nothing."""

    def __init__(self, tool):
        self.tool = tool

    def get_raid_tool(self):
        return self.tool

    def dispatch(self, route, wrapper, params=None):
        return ANSWER


def grows(func, rounds):
    for _ in range(2000):
        func()
    gc.collect()
    tracemalloc.start()
    before = tracemalloc.get_traced_memory()[0]
    for _ in range(rounds):
        func()
    gc.collect()
    after = tracemalloc.get_traced_memory()[0]
    tracemalloc.stop()
    return after - before


_objects = {}


def make(tool):
    """One Raid per tool, built once: construction is not what is measured."""
    if tool not in _objects:
        with orvex_sim.use(NullHost(tool)):
            _objects[tool] = Raid()
    return _objects[tool]


def swallow(call, *errors):
    def run():
        try:
            call()
        except errors:
            pass

    return run


TEMPLATE = {"contents": {"storcli64": {"a": "A", "b": "B"}}}
ROWS = [{"A": i, "B": str(i)} for i in range(8)]


@pytest.mark.parametrize("name, func", [
    ("action", lambda: make("arcconf").set_ctl_mode("3", adapter_id="0")),
    ("checked", lambda: make("sorbctl").set_jbod_state("on")),
    ("refusal", swallow(lambda: make("storcli64").set_ctl_mode("3"), OrvexException)),
    ("argument error", swallow(lambda: make("arcconf").set_ctl_mode(x=1), TypeError)),
    ("format", lambda: make("storcli64")._format_output(ROWS, "storcli64", TEMPLATE)),
    ("format error", swallow(lambda: make("storcli64")._format_output(1, "x", TEMPLATE),
                             OrvexException)),
    ("merge", lambda: make("storcli64")._merge_output({"a": {"b": [{"c": 1}]}})),
    ("merge error", swallow(lambda: make("storcli64")._merge_output({"a": 1, "b": {"a": 2}}),
                            Exception)),
    ("merge layers", lambda: make("storcli64")._merge_output(
        {"x": [{"y": {"z": 1}}]}, None, {"x//$0//y": False, "x//$0": True})),
])
def test_no_growth(name, func):
    assert grows(func, 30_000) < 16 * 1024, name
