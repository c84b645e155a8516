"""_format_output and _merge_output."""
import collections

import pytest

from orvex.exception.orvex_exception import OrvexException

TEMPLATE = {"contents": {"storcli64": {"vd": "DG/VD", "size": "Size", "raw_data": "Name"},
                         "arcconf": None}}


@pytest.fixture
def raid(rig):
    return rig("storcli64")[0]


# -- _format_output ---------------------------------------------------------

def test_format_renames_in_template_order_and_appends_raw_data(raid):
    raw = {"Size": "100 GB", "DG/VD": None, "Name": "x"}
    out = raid._format_output(raw, "storcli64", TEMPLATE)
    assert list(out.items()) == [("vd", None), ("size", "100 GB"), ("raw_data", raw)]
    assert out["raw_data"] is raw


def test_format_missing_raw_key_gives_empty_string(raid):
    assert raid._format_output({}, "storcli64", TEMPLATE) == {"vd": "", "size": "", "raw_data": {}}


def test_format_lists_nested_and_dict_subtypes(raid):
    row = collections.OrderedDict([("DG/VD", "0/1")])
    out = raid._format_output([[row], []], "storcli64", TEMPLATE)
    assert out == [[{"vd": "0/1", "size": "", "raw_data": row}], []]
    assert type(out[0][0]) is dict


@pytest.mark.parametrize("data", [5, "text", (1,), None])
def test_format_unsupported_type(raid, data):
    with pytest.raises(OrvexException) as err:
        raid._format_output(data, "storcli64", TEMPLATE)
    assert str(err.value) == "Unsupported data type [%s] found in template." % type(data)


@pytest.mark.parametrize("template, tool, error", [
    ({}, "storcli64", KeyError),
    (TEMPLATE, "sorbctl", KeyError),
    (TEMPLATE, "arcconf", AttributeError),
])
def test_format_broken_templates_fail_uncaught(raid, template, tool, error):
    with pytest.raises(error):
        raid._format_output({"a": 1}, tool, template)


def test_format_loads_template_named_after_the_calling_function(raid):
    def get_controller_status_raid():
        return raid._format_output([{"Temperature": "54"}], "sorbctl")

    (out,) = get_controller_status_raid()
    assert out["temperature"] == "54" and out["sas_address"] == ""
    assert list(out)[-1] == "raw_data"


def test_format_loads_missing_template_before_looking_at_data(raid):
    def no_such_template_here():
        return raid._format_output([], "sorbctl")

    with pytest.raises(FileNotFoundError, match="config/no_such_template_here.yaml"):
        no_such_template_here()


# -- _merge_output ----------------------------------------------------------

def test_merge_flattens_without_layer_map(raid):
    assert raid._merge_output({"a": 1, "b": {"c": 2}}) == {"a": 1, "c": 2}
    assert raid._merge_output([{"a": 1}, [{"b": 2}]]) == {"a": 1, "b": 2}


def test_merge_fills_given_res_in_place(raid):
    res = {"z": 0}
    assert raid._merge_output({"a": 1}, res) is res
    assert res == {"z": 0, "a": 1}


def test_merge_duplicate_leaf_key_is_generic_exception(raid):
    res = {}
    with pytest.raises(Exception) as err:
        raid._merge_output({"x": 0, "a": 1, "b": {"a": 1}}, res)
    assert type(err.value) is Exception
    assert str(err.value) == "Existing key [a] found in res, current value: [1], existing value: [1]"
    assert res == {"x": 0, "a": 1}


def test_merge_bare_list_element_is_attribute_error(raid):
    with pytest.raises(AttributeError):
        raid._merge_output(["loose"])


RAW = {
    "/c0/v239": [{"DG/VD": "0/239"}],
    "VD239 Properties": {"Strip Size": "256 KB"},
    "PDs for VD 239": [{"EID:Slt": "65:1"}, {"EID:Slt": "65:2"}],
    "Other": {"dropped": True},
}


def test_merge_layer_map_worked_example(raid):
    out = raid._merge_output(RAW, None, {"/c0/v239//$0": True, "VD239 Properties": True,
                                         "PDs for VD 239": False})
    assert out == {"DG/VD": "0/239", "Strip Size": "256 KB",
                   "PDs for VD 239": RAW["PDs for VD 239"]}


def test_merge_layer_keep_uses_last_segment(raid):
    raw = {"/c0/v239": {"id": {"A": "B"}}}
    assert raid._merge_output(raw, None, {"/c0/v239//id": False}) == {"id": {"A": "B"}}


def test_merge_list_position_merges_even_with_false_flag(raid):
    assert raid._merge_output(RAW, None, {"/c0/v239//$0": False}) == {"DG/VD": "0/239"}


def test_merge_empty_layer_map_returns_res_unchanged(raid):
    res = {"k": 1}
    assert raid._merge_output(RAW, res, {}) is res and res == {"k": 1}


def test_merge_layer_later_entries_overwrite_and_missing_plain_key_is_none(raid):
    raw = {"a": {"k": 1}, "b": {"k": 2}}
    assert raid._merge_output(raw, None, {"a": True, "b": True, "c": False}) == {"k": 2, "c": None}


class Key(str):
    """A key equal to its text that is not a plain str."""


@pytest.mark.parametrize("node", [
    {"x": 0, "b": {"k": 1}},
    {Key("b"): {"k": 1}},  # found by the dict's own lookup
    {1: 0, "b": {"k": 1}},
    {"盘%d" % i: {"k": i} for i in range(3)},
    dict({"b": {"k": 1}}, **{"f%d" % i: i for i in range(12)}),
])
@pytest.mark.parametrize("flag", [True, False])
def test_merge_layer_path_segments_find_keys_of_every_kind(raid, node, flag):
    segment = next(k for k in node if k in ("b", "盘1"))
    reached = node[segment]
    expected = reached if flag and isinstance(reached, dict) else {str(segment): reached}
    out = raid._merge_output({"a": node}, None, {"a//" + str(segment): flag})
    assert out == expected and all(type(k) is str for k in out)
    with pytest.raises(KeyError, match="'c'"):
        raid._merge_output({"a": node}, None, {"a//c": flag})


@pytest.mark.parametrize("structure, error", [
    ({"missing": True}, KeyError),
    ({"/c0/v239//$5": True}, IndexError),
    ({"/c0/v239//$0//nope": False}, KeyError),
])
def test_merge_missing_paths_fail(raid, structure, error):
    with pytest.raises(error):
        raid._merge_output(RAW, None, structure)


# -- nesting past the recursion limit -----------------------------------------

def nested(depth, make):
    node = {"leaf": 1}
    for _ in range(depth):
        node = make(node)
    return node


@pytest.mark.parametrize("depth", [10 ** 4, 10 ** 5, 10 ** 6])
@pytest.mark.parametrize("walk", [
    lambda raid, rig, data: raid._merge_output(nested(data, lambda n: {"k": n})),
    lambda raid, rig, data: raid._format_output(nested(data, lambda n: [n]), "storcli64", TEMPLATE),
    lambda raid, rig, data: via_operation(rig, nested(data, lambda n: {"k": n})),
])
def test_deep_nesting_raises_recursion_error_like_python(raid, rig, depth, walk):
    with pytest.raises(RecursionError):
        walk(raid, rig, depth)


def via_operation(rig, answer):
    raid, host = rig("sorbctl")
    host.on("get_controller_pd_info_sorbctl", {"parser": answer})
    return raid.get_one_physical_drive_info(eid="0", sid="1")


def test_nesting_within_the_recursion_limit_is_walked(raid):
    assert raid._merge_output(nested(300, lambda n: {"k": n})) == {"leaf": 1}


# -- the caller's own mappings ----------------------------------------------

class Logged(dict):
    """A dict subclass with its own item methods, logging every use."""

    def __init__(self, *args, **kwargs):
        super().__init__(*args, **kwargs)
        self.log = []

    def __setitem__(self, key, value):
        self.log.append(("set", key))
        super().__setitem__(key, value)

    def __getitem__(self, key):
        self.log.append(("getitem", key))
        return super().__getitem__(key)

    def __contains__(self, key):
        self.log.append(("in", key))
        return super().__contains__(key)

    def get(self, key, default=None):
        self.log.append(("get", key, default))
        return super().get(key, default)

    def update(self, *args, **kwargs):
        self.log.append(("update",) + tuple(map(dict, args)))
        super().update(*args, **kwargs)


def plain_format(raw_data, tool, template):
    res = {}
    for out_key, raw_key in template["contents"][tool].items():
        res[out_key] = raw_data.get(raw_key, "")
    res["raw_data"] = raw_data
    return res


def plain_merge(raw_output, res=None, structure=None):
    """The normaliser written in plain Python: what the module must match."""
    if structure is None:
        for key, value in raw_output.items():
            if isinstance(value, (dict, list)):
                for element in (value if isinstance(value, list) else [value]):
                    plain_merge(element, res)
            elif key in res:
                raise Exception("Existing key [%s] found in res, current value: [%s], "
                                "existing value: [%s]" % (key, value, res[key]))
            else:
                res[key] = value
        return res
    for path, flag in structure.items():
        if "//" not in path:
            res.update(raw_output[path] if flag else {path: raw_output.get(path)})
            continue
        node = raw_output
        for seg in path.split("//"):
            node = node[int(seg[1:])] if seg.startswith("$") else node[seg]
        res.update(node if (seg.startswith("$") or flag) else {seg: node})
    return res


ANSWER = {"b": 2, "c": {"d": 3}}
LAYERS = {"x": False, "c": True, "/c0//$0": False, "/c0//$1//e": False, "/c0//$1": True}
LAYERED = {"x": 1, "c": {"d": 3}, "/c0": [{"f": 4}, {"e": {"g": 5}, "h": 6}]}

# (what is called, the module's way, the plain way); each fills or reads
# the caller's object `mine`.
PLACES = {
    "merge flatten": (lambda raid, mine: raid._merge_output(ANSWER, mine),
                      lambda mine: plain_merge(ANSWER, mine)),
    "merge duplicate": (lambda raid, mine: raid._merge_output({"b": {"a": 5}}, mine),
                        lambda mine: plain_merge({"b": {"a": 5}}, mine)),
    "merge layers": (lambda raid, mine: raid._merge_output(LAYERED, mine, LAYERS),
                     lambda mine: plain_merge(LAYERED, mine, LAYERS)),
    "format": (lambda raid, mine: raid._format_output(mine, "storcli64", TEMPLATE),
               lambda mine: plain_format(mine, "storcli64", TEMPLATE)),
}


def outcome(call, mine):
    try:
        result = call(mine)
    except Exception as e:  # noqa: BLE001 - compared with what plain Python raises
        return ("raised", type(e), str(e), list(mine.items()))
    return (result is mine, list(result.items()), list(mine.items()))


@pytest.mark.parametrize("place", sorted(PLACES))
def test_callers_dict_subclass_is_used_through_its_own_methods(raid, place):
    module_way, plain_way = PLACES[place]
    mine, theirs = Logged(a=1, Size="1"), Logged(a=1, Size="1")
    assert outcome(lambda m: module_way(raid, m), mine) == outcome(plain_way, theirs)
    assert mine.log == theirs.log and mine.log


@pytest.mark.parametrize("place, keys", [("merge flatten", ["a", "b", "d"]),
                                         ("merge layers", ["a", "x", "d", "f", "e", "h"])])
def test_callers_ordered_dict_keeps_its_order(raid, place, keys):
    module_way, plain_way = PLACES[place]
    mine, theirs = collections.OrderedDict(a=1), collections.OrderedDict(a=1)
    assert module_way(raid, mine) is mine
    plain_way(theirs)
    assert list(mine) == list(theirs) == keys and len(mine) == len(keys)
    last = list(theirs)[-1]
    mine.move_to_end(last, last=False)
    theirs.move_to_end(last, last=False)
    assert [mine.popitem() for _ in range(len(mine))] == [theirs.popitem() for _ in theirs.copy()]
