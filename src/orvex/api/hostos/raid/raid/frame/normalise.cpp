// Result normalisers: field renaming by template (_format_output) and
// flattening or picking by layer map (_merge_output).  Both walk nested
// answers under py::Depth: past the recursion limit they raise
// RecursionError, as the same walk written in Python would.
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "frame.hpp"
#include "frame_state.hpp"
#include "helpers.hpp"
#include "runtime.hpp"

namespace raid {

using namespace py;

namespace {

constexpr const char* kWhile = " while normalising an answer";

// A field map that is not a plain dictionary, as (output key, raw key)
// pairs read once per call.
using FieldMap = std::vector<std::pair<Ref, Ref>>;

struct Formatting {
  PyObject* tool;
  PyObject* tmpl;
  Ref fields;    // template["contents"][tool]: walked in place for a single record
  FieldMap map;  // its pairs, read once for the records of a list (or another mapping)
  Ref shape;     // the first record made: every later one has its keys, in its order
  Py_ssize_t size = 0;
};

int read_fields(Formatting& f) {
  Ref contents = index(f.tmpl, names().contents);
  Ref fields = index(contents.get(), f.tool);
  if (!fields) return -1;
  if (!PyDict_CheckExact(fields.get())) {
    // Any other mapping: go through its items(); None fails here with the
    // attribute error of the missing method.
    const int r = each_item(fields.get(), [&](PyObject* k, PyObject* v) {
      f.map.emplace_back(Ref::borrow(k), Ref::borrow(v));
      return 0;
    });
    if (r < 0) return -1;
  }
  f.fields = std::move(fields);
  return 0;
}

// out[output key] = raw.get(raw key, ""): a plain dict read directly, the
// caller's own kind of dict through its get().
int put_field(PyObject* out, PyObject* raw, PyObject* out_key, PyObject* raw_key) {
  if (!PyDict_CheckExact(raw)) {
    Ref v = call_method(raw, names().get, {raw_key, names().empty});
    return v ? PyDict_SetItem(out, out_key, v.get()) : -1;
  }
  PyObject* v = PyDict_GetItemWithError(raw, raw_key);
  if (v == nullptr) {
    if (PyErr_Occurred() != nullptr) return -1;
    v = names().empty;
  }
  return PyDict_SetItem(out, out_key, v);
}

// Records after the first start as a copy of it (cheaper than growing a
// new dictionary key by key), whose values are then all replaced.
Ref format_dict(PyObject* raw, Formatting& f) {
  if (!f.fields && read_fields(f) < 0) return nullptr;
  Ref out;
  if (f.shape) {
    out = Ref::steal(PyDict_Copy(f.shape.get()));
    if (out && PyDict_Size(out.get()) != f.size) out = Ref::steal(PyDict_New());  // changed since
  } else {
    out = Ref::steal(PyDict_New());
  }
  if (!out) return nullptr;
  const bool first = !f.shape;
  if (!first && f.map.empty() && PyDict_CheckExact(f.fields.get())) {
    // Records of a list: the pairs are read once, then walked as an array.
    Py_ssize_t pos = 0;
    PyObject* k = nullptr;
    PyObject* v = nullptr;
    while (PyDict_Next(f.fields.get(), &pos, &k, &v)) {
      f.map.emplace_back(Ref::borrow(k), Ref::borrow(v));
    }
  }
  if (f.map.empty() && PyDict_CheckExact(f.fields.get())) {
    Py_ssize_t pos = 0;
    PyObject* k = nullptr;
    PyObject* v = nullptr;
    while (PyDict_Next(f.fields.get(), &pos, &k, &v)) {
      if (put_field(out.get(), raw, k, v) < 0) return nullptr;
    }
  } else {
    for (const auto& kv : f.map) {
      if (put_field(out.get(), raw, kv.first.get(), kv.second.get()) < 0) return nullptr;
    }
  }
  if (PyDict_SetItem(out.get(), names().raw_data, raw) < 0) return nullptr;
  if (first) {
    f.shape = out;
    f.size = PyDict_Size(out.get());
  }
  return out;
}

Ref format_one(PyObject* raw, Formatting& f) {
  if (PyDict_Check(raw)) return format_dict(raw, f);
  if (PyList_Check(raw)) {
    const Depth depth(kWhile);
    if (!depth.ok()) return nullptr;
    const Py_ssize_t n = PyList_Size(raw);
    Ref out = Ref::steal(PyList_New(n));
    if (!out) return nullptr;
    for (Py_ssize_t i = 0; i < n && i < PyList_Size(raw); ++i) {
      Ref element = Ref::borrow(PyList_GetItem(raw, i));
      Ref r = format_one(element.get(), f);
      if (!r) return nullptr;
      PyList_SetItem(out.get(), i, r.release());
    }
    return out;
  }
  Ref msg = format("Unsupported data type [%S] found in template.",
                   reinterpret_cast<PyObject*>(Py_TYPE(raw)));
  return raise_orvex(msg.get());
}

// The message joined from its pieces (made at module init) and the three
// values' str(): cheaper than formatting it anew each time.
Ref duplicate_key(PyObject* key, PyObject* value, PyObject* existing) {
  PyObject* const* pieces = names().duplicate;
  Ref parts[] = {to_str(key), to_str(value), to_str(existing)};
  for (const Ref& p : parts) {
    if (!p) return nullptr;
  }
  Ref all = tuple(
      {pieces[0], parts[0].get(), pieces[1], parts[1].get(), pieces[2], parts[2].get(), pieces[3]});
  Ref msg = Ref::steal(all ? PyUnicode_Join(names().empty, all.get()) : nullptr);
  if (msg) PyErr_SetObject(PyExc_Exception, msg.get());
  return nullptr;
}

int merge_flat(PyObject* raw, PyObject* res);

int merge_flat_pair(PyObject* key, PyObject* value, PyObject* res) {
  if (PyDict_Check(value) || PyList_Check(value)) return merge_flat(value, res);
  if (PyDict_CheckExact(res)) {
    PyObject* existing = PyDict_GetItemWithError(res, key);
    if (existing == nullptr) {
      if (PyErr_Occurred() != nullptr) return -1;
      return PyDict_SetItem(res, key, value);
    }
    Ref hold = Ref::borrow(existing);
    duplicate_key(key, value, hold.get());
    return -1;
  }
  // The caller's own kind of mapping: `key in res`, `res[key]` and
  // `res[key] = value` as it defines them.
  const int found = PySequence_Contains(res, key);
  if (found < 0) return -1;
  if (found == 0) return PyObject_SetItem(res, key, value);
  Ref existing = Ref::steal(PyObject_GetItem(res, key));
  if (existing) duplicate_key(key, value, existing.get());
  return -1;
}

int merge_flat(PyObject* raw, PyObject* res) {
  const Depth depth(kWhile);
  if (!depth.ok()) return -1;
  if (PyDict_CheckExact(raw) && raw != res) {
    return each_item(raw, [&](PyObject* k, PyObject* v) { return merge_flat_pair(k, v, res); });
  }
  if (PyList_Check(raw)) {
    // A snapshot: the walk may change what it walks.
    Ref snapshot = Ref::steal(PySequence_List(raw));
    if (!snapshot) return -1;
    const Py_ssize_t n = PyList_Size(snapshot.get());
    for (Py_ssize_t i = 0; i < n; ++i) {
      if (merge_flat(PyList_GetItem(snapshot.get(), i), res) < 0) return -1;
    }
    return 0;
  }
  // Any other input goes through items(): mappings work, anything else
  // fails with the attribute error of the missing method.
  Ref items = call_method(raw, names().items);
  Ref pairs = Ref::steal(items ? PySequence_List(items.get()) : nullptr);
  if (!pairs) return -1;
  const Py_ssize_t n = PyList_Size(pairs.get());
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* pair = PyList_GetItem(pairs.get(), i);
    Ref k = item(pair, 0);
    Ref v = item(pair, 1);
    if (!k || !v || merge_flat_pair(k.get(), v.get(), res) < 0) return -1;
  }
  return 0;
}

// Where a layer path leads: the last segment's value, whether that segment
// was a list position, and the segment itself (a key) for keeping.
struct Reached {
  Ref node;
  bool position = false;
  Ref last;
};

// node[n] for a list position.
Ref at_position(PyObject* node, Py_ssize_t n) {
  if (PyList_CheckExact(node) && n < PyList_Size(node)) return Ref::borrow(PyList_GetItem(node, n));
  Ref number = Ref::steal(PyLong_FromSsize_t(n));
  return index(node, number.get());
}

// node[int(digits)] for a "$..." segment given as text.
Ref at_position_text(PyObject* node, PyObject* segment) {
  Ref digits = Ref::steal(PyUnicode_Substring(segment, 1, PyUnicode_GetLength(segment)));
  Ref number = Ref::steal(digits ? PyNumber_Long(digits.get()) : nullptr);
  return index(node, number.get());
}

// A position written as plain ASCII digits (short enough for a Py_ssize_t),
// or -1: anything else goes through int().
Py_ssize_t plain_position(std::string_view digits) {
  if (digits.empty() || digits.size() > 18) return -1;
  Py_ssize_t n = 0;
  for (const char ch : digits) {
    if (ch < '0' || ch > '9') return -1;
    n = n * 10 + (ch - '0');
  }
  return n;
}

// node[segment] for a small exact dict whose keys are all exact str, found
// by comparing texts, so no str is made (and hashed) for the segment.  The
// key found is the segment's str from then on.  False when the dict is of
// another kind or size, holds another kind of key, or lacks the key: the
// segment is then looked up as a str of its own.
bool find_by_text(PyObject* node, std::string_view segment, Reached& r) {
  constexpr Py_ssize_t kScanned = 8;  // beyond that, hashing is cheaper
  if (!PyDict_CheckExact(node) || PyDict_Size(node) > kScanned) return false;
  Py_ssize_t pos = 0;
  PyObject* k = nullptr;
  PyObject* v = nullptr;
  PyObject* found_key = nullptr;
  PyObject* found = nullptr;
  while (PyDict_Next(node, &pos, &k, &v)) {
    std::string_view key;
    if (!text_view(k, key)) return false;
    if (found == nullptr && key == segment) {
      found_key = k;
      found = v;
    }
  }
  if (found == nullptr) return false;
  r.last = Ref::borrow(found_key);
  r.node = Ref::borrow(found);
  return true;
}

// Walks a path that holds "//" through its UTF-8 text (the string's own
// buffer): segments are cut at every "//", left to right, as re.split cuts
// them; positions in plain digits need no text of their own.
int walk_text(PyObject* raw, std::string_view path, std::size_t sep, Reached& r) {
  r.node = Ref::borrow(raw);
  std::size_t start = 0;
  for (;;) {
    const std::size_t stop = sep == std::string_view::npos ? path.size() : sep;
    const std::string_view seg = path.substr(start, stop - start);
    r.position = !seg.empty() && seg[0] == '$';
    const Py_ssize_t n = r.position ? plain_position(seg.substr(1)) : -1;
    if (n >= 0) {
      r.node = at_position(r.node.get(), n);
    } else if (!r.position && find_by_text(r.node.get(), seg, r)) {
      // found without a str of its own
    } else {
      r.last = Ref::steal(
          PyUnicode_DecodeUTF8(seg.data(), static_cast<Py_ssize_t>(seg.size()), nullptr));
      if (!r.last) return -1;
      r.node = r.position ? at_position_text(r.node.get(), r.last.get())
                          : index(r.node.get(), r.last.get());
    }
    if (!r.node) return -1;
    if (sep == std::string_view::npos) return 0;
    start = sep + 2;
    sep = path.find("//", start);
  }
}

// The same walk for any other path object: split by the str method.
int walk_split(PyObject* raw, PyObject* path, Reached& r) {
  Ref segments = Ref::steal(PyUnicode_Split(path, names().sep, -1));
  if (!segments) return -1;
  const Py_ssize_t m = PyList_Size(segments.get());
  r.node = Ref::borrow(raw);
  for (Py_ssize_t j = 0; j < m; ++j) {
    PyObject* seg = PyList_GetItem(segments.get(), j);
    r.last = Ref::borrow(seg);
    const Py_ssize_t len = PyUnicode_GetLength(seg);
    r.position = len > 0 && PyUnicode_ReadChar(seg, 0) == '$';
    r.node = r.position ? at_position_text(r.node.get(), seg) : index(r.node.get(), seg);
    if (!r.node) return -1;
  }
  return 0;
}

// res.update({key: value}): a plain dict takes the entry directly, the
// caller's own kind of mapping through its update().
int keep(PyObject* res, PyObject* key, PyObject* value) {
  if (value == nullptr) return -1;
  if (PyDict_CheckExact(res)) return PyDict_SetItem(res, key, value);
  Ref one = Ref::steal(PyDict_New());
  if (!one || PyDict_SetItem(one.get(), key, value) < 0) return -1;
  return update(res, one.get());
}

int merge_layer(PyObject* raw, PyObject* res, PyObject* path, PyObject* flag) {
  const int merge = truthy(flag);
  if (merge < 0) return -1;
  std::string_view text;
  const bool fast = text_view(path, text);
  std::size_t sep = std::string_view::npos;
  int nested = 0;
  if (fast) {
    sep = text.find("//");
    nested = sep != std::string_view::npos ? 1 : 0;
  } else {
    nested = contains(path, names().sep);
    if (nested < 0) return -1;
  }
  if (nested == 0) {
    if (merge == 1) {
      Ref v = index(raw, path);
      return update(res, v.get());
    }
    Ref v = get(raw, path);
    return keep(res, path, v.get());
  }
  Reached r;
  if ((fast ? walk_text(raw, text, sep, r) : walk_split(raw, path, r)) < 0) return -1;
  if (r.position || merge == 1) return update(res, r.node.get());
  return keep(res, r.last.get(), r.node.get());
}

Ref merge_layers(PyObject* raw, PyObject* res, PyObject* structure) {
  const int r = each_item(structure, [&](PyObject* path, PyObject* flag) {
    return merge_layer(raw, res, path, flag) < 0 ? -1 : 0;
  });
  return r < 0 ? nullptr : Ref::borrow(res);
}

// The name of the Python function that called us (for template lookup).
Ref caller_name() {
  PyObject* frame = reinterpret_cast<PyObject*>(PyEval_GetFrame());
  if (frame == nullptr) return Ref::borrow(names().empty);
  Ref code = getattr(frame, "f_code");
  return getattr(code.get(), "co_name");
}

constexpr ParamDef kFormatParams[] = {
    arg("raw_data").typed("dict | list"),
    arg("tool"),
    arg("template").or_("None").typed("dict"),
};

constexpr ParamDef kMergeParams[] = {
    arg("raw_output").typed("dict | list"),
    arg("res").or_("None").typed("dict"),
    arg("structure").or_("None").typed("dict"),
};

Ref format_output_direct(PyObject*, PyObject* const* args) {
  PyObject* raw = args[RAID_ARG(kFormatParams, "raw_data")];
  PyObject* tool = args[RAID_ARG(kFormatParams, "tool")];
  PyObject* tmpl = args[RAID_ARG(kFormatParams, "template")];
  if (tmpl != Py_None) return format_output(raw, tool, tmpl, nullptr);
  Ref name = caller_name();
  return format_output(raw, tool, nullptr, name.get());
}

Ref merge_output_direct(PyObject*, PyObject* const* args) {
  return merge_output(args[RAID_ARG(kMergeParams, "raw_output")],
                      args[RAID_ARG(kMergeParams, "res")],
                      args[RAID_ARG(kMergeParams, "structure")]);
}

}  // namespace

Ref format_output(PyObject* raw, PyObject* tool, PyObject* tmpl, PyObject* caller) {
  if (raw == nullptr || tool == nullptr) return nullptr;
  Ref loaded;
  if (tmpl == nullptr || tmpl == Py_None) {
    loaded = load_template(caller);
    if (!loaded) return nullptr;
    tmpl = loaded.get();
  }
  Formatting f{tool, tmpl, {}, {}, {}, 0};
  return format_one(raw, f);
}

Ref merge_output(PyObject* raw, PyObject* res, PyObject* structure) {
  if (raw == nullptr) return nullptr;
  Ref result = (res == nullptr || res == Py_None) ? Ref::steal(PyDict_New()) : Ref::borrow(res);
  if (!result) return nullptr;
  if (structure != nullptr && structure != Py_None) {
    return merge_layers(raw, result.get(), structure);
  }
  if (merge_flat(raw, result.get()) < 0) return nullptr;
  return result;
}

void add_normalise_ops(OpList& ops) {
  ops.push_back(
      Op("_format_output")
          .params(kFormatParams)
          .doc("按模板重命名查询结果的字段。\n\n"
               "参数:\n"
               "    raw_data (dict | list): 工具返回的原始数据；列表逐项处理（可嵌套）。\n"
               "    tool (str): 工具类型，选择模板 contents 下的字段映射。\n"
               "    template (dict): 已加载的模板；为 None 时按调用函数名读取 "
               "config/<函数名>.yaml。\n\n"
               "返回:\n"
               "    dict 或 list：每个输出键取原始数据中对应键的值（缺失为 \"\"），并附 raw_data "
               "保存原始字典。其他类型抛出 OrvexException。")
          .returns_doc("dict | list")
          .direct(format_output_direct));
  ops.push_back(
      Op("_merge_output")
          .params(kMergeParams)
          .doc("展平嵌套结果，或按层级映射挑选其中部分。\n\n"
               "参数:\n"
               "    raw_output (dict | list): 原始数据。\n"
               "    res (dict): 要填充的结果字典，为 None 时新建。\n"
               "    structure (dict): 层级映射 {路径: 是否合并}，路径以 // 分段，$n 表示列表第 n "
               "项；为 None 时把所有叶子键合并进 res（重复键抛出 Exception）。\n\n"
               "返回:\n"
               "    dict：就地修改后的 res。")
          .returns_doc("dict")
          .direct(merge_output_direct));
}

// Template files: "<module dir>/config/<caller>.yaml", read with the
// framework's loader.
Ref load_template(PyObject* caller) {
  if (caller == nullptr) return nullptr;
  if (!fs().fw.config_dir) {
    Ref file = getattr(fs().fw.module, "__file__");
    Ref path = Ref::steal(PyImport_ImportModule("os.path"));
    Ref abs = call_method(path.get(), "abspath", {file.get()});
    Ref dir = call_method(path.get(), "dirname", {abs.get()});
    Ref config = str("config");
    fs().fw.config_dir = call_method(path.get(), "join", {dir.get(), config.get(), names().empty});
    if (!fs().fw.config_dir) return nullptr;
  }
  // The path of a name is made once: the same string object every time
  // (its hash is kept with it); the file itself is loaded on every call.
  if (!fs().fw.template_paths) {
    fs().fw.template_paths = Ref::steal(PyDict_New());
    if (!fs().fw.template_paths) return nullptr;
  }
  PyObject* paths = fs().fw.template_paths.get();
  Ref file =
      PyUnicode_CheckExact(caller) ? Ref::borrow(PyDict_GetItemWithError(paths, caller)) : nullptr;
  if (!file) {
    if (PyErr_Occurred() != nullptr) return nullptr;
    file = py::format("%U%U.yaml", fs().fw.config_dir.get(), caller);
    if (!file) return nullptr;
    constexpr Py_ssize_t kKeptPaths = 1024;  // names of functions: a bounded set
    if (PyUnicode_CheckExact(caller) && PyDict_Size(paths) < kKeptPaths &&
        PyDict_SetItem(paths, caller, file.get()) < 0) {
      return nullptr;
    }
  }
  PyObject* stack[3] = {nullptr, file.get(), names().yaml};
  return Ref::steal(vcall(fs().fw.load_from_file.get(), stack + 1, 1, names().file_type_kw));
}

}  // namespace raid
