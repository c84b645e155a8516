// Result normalisers: field renaming by template (_format_output) and
// flattening or picking by layer map (_merge_output).
#include <string>
#include <utility>
#include <vector>

#include "frame.hpp"
#include "strings.hpp"

namespace raid {

using namespace py;

namespace {

// A field map as (output key, raw key) pairs, read once per call.
using FieldMap = std::vector<std::pair<Ref, Ref>>;

FieldMap read_field_map(PyObject* tmpl, PyObject* tool) {
  Ref contents = index(tmpl, S().contents);
  Ref fields = index(contents.get(), tool);
  FieldMap map;
  if (PyDict_Check(fields.get())) {
    map.reserve(static_cast<std::size_t>(PyDict_Size(fields.get())));
    Py_ssize_t pos = 0;
    PyObject* k;
    PyObject* v;
    while (PyDict_Next(fields.get(), &pos, &k, &v)) {
      map.emplace_back(Ref::borrow(k), Ref::borrow(v));
    }
    return map;
  }
  // Any other mapping: go through its items(); None fails here with the
  // attribute error of the missing method.
  Ref items = call_method(fields.get(), "items");
  Ref it = Ref::steal(PyObject_GetIter(items.get()));
  while (Ref pair = Ref::steal_or_null(PyIter_Next(it.get()))) {
    map.emplace_back(item(pair.get(), 0), item(pair.get(), 1));
  }
  if (PyErr_Occurred()) fail();
  return map;
}

Ref format_dict(PyObject* raw, const FieldMap& map) {
  Ref out = Ref::steal(PyDict_New());
  for (const auto& kv : map) {
    PyObject* v = PyDict_GetItemWithError(raw, kv.second.get());
    if (v == nullptr) {
      if (PyErr_Occurred()) fail();
      v = S().empty;
    }
    if (PyDict_SetItem(out.get(), kv.first.get(), v) < 0) fail();
  }
  if (PyDict_SetItem(out.get(), S().raw_data, raw) < 0) fail();
  return out;
}

Ref format_one(PyObject* raw, PyObject* tool, PyObject* tmpl, FieldMap& map, bool& loaded) {
  if (PyDict_Check(raw)) {
    if (!loaded) {
      map = read_field_map(tmpl, tool);
      loaded = true;
    }
    return format_dict(raw, map);
  }
  if (PyList_Check(raw)) {
    const Py_ssize_t n = PyList_Size(raw);
    Ref out = Ref::steal(PyList_New(n));
    for (Py_ssize_t i = 0; i < n; ++i) {
      Ref element = Ref::borrow(PyList_GetItem(raw, i));
      Ref r = format_one(element.get(), tool, tmpl, map, loaded);
      PyList_SetItem(out.get(), i, r.release());
    }
    return out;
  }
  Ref msg = format("Unsupported data type [%S] found in template.",
                   reinterpret_cast<PyObject*>(Py_TYPE(raw)));
  raise_orvex(msg.get());
}

[[noreturn]] void duplicate_key(PyObject* key, PyObject* value, PyObject* existing) {
  Ref msg = format("Existing key [%S] found in res, current value: [%S], existing value: [%S]", key,
                   value, existing);
  PyErr_SetObject(PyExc_Exception, msg.get());
  fail();
}

void merge_flat_pair(PyObject* key, PyObject* value, PyObject* res);

void merge_flat(PyObject* raw, PyObject* res) {
  if (PyDict_Check(raw)) {
    // Iterate over a snapshot when raw is res itself or may change under us.
    if (PyDict_CheckExact(raw) && raw != res) {
      Py_ssize_t pos = 0;
      PyObject* k;
      PyObject* v;
      while (PyDict_Next(raw, &pos, &k, &v)) {
        Ref hk = Ref::borrow(k);
        Ref hv = Ref::borrow(v);
        merge_flat_pair(hk.get(), hv.get(), res);
      }
      return;
    }
  } else if (PyList_Check(raw)) {
    Ref snapshot = Ref::steal(PySequence_List(raw));
    const Py_ssize_t n = PyList_Size(snapshot.get());
    for (Py_ssize_t i = 0; i < n; ++i) merge_flat(PyList_GetItem(snapshot.get(), i), res);
    return;
  }
  // Any other input goes through items(): mappings work, anything else
  // fails with the attribute error of the missing method.
  Ref items = call_method(raw, "items");
  Ref pairs = Ref::steal(PySequence_List(items.get()));
  const Py_ssize_t n = PyList_Size(pairs.get());
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* pair = PyList_GetItem(pairs.get(), i);
    Ref k = item(pair, 0);
    Ref v = item(pair, 1);
    merge_flat_pair(k.get(), v.get(), res);
  }
}

void merge_flat_pair(PyObject* key, PyObject* value, PyObject* res) {
  if (PyDict_Check(value) || PyList_Check(value)) {
    merge_flat(value, res);
    return;
  }
  PyObject* existing = PyDict_GetItemWithError(res, key);
  if (existing != nullptr) {
    Ref hold = Ref::borrow(existing);
    duplicate_key(key, value, hold.get());
  }
  if (PyErr_Occurred()) fail();
  if (PyDict_SetItem(res, key, value) < 0) fail();
}

void merge_layers(PyObject* raw, PyObject* res, PyObject* structure) {
  Ref sep = str("//");
  Ref items = call_method(structure, "items");
  Ref pairs = Ref::steal(PySequence_List(items.get()));
  const Py_ssize_t n = PyList_Size(pairs.get());
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* pair = PyList_GetItem(pairs.get(), i);
    Ref path = item(pair, 0);
    Ref flag = item(pair, 1);
    const bool merge = truthy(flag.get());
    if (!contains(path.get(), sep.get())) {
      if (merge) {
        Ref v = index(raw, path.get());
        update(res, v.get());
      } else {
        Ref v = get(raw, path.get());
        set_item(res, path.get(), v.get());
      }
      continue;
    }
    Ref segments = Ref::steal(PyUnicode_Split(path.get(), sep.get(), -1));
    const Py_ssize_t m = PyList_Size(segments.get());
    Ref node = Ref::borrow(raw);
    bool last_is_position = false;
    PyObject* last = nullptr;
    for (Py_ssize_t j = 0; j < m; ++j) {
      PyObject* seg = PyList_GetItem(segments.get(), j);
      last = seg;
      last_is_position = PyUnicode_GetLength(seg) > 0 && PyUnicode_ReadChar(seg, 0) == '$';
      if (last_is_position) {
        Ref digits = Ref::steal(PyUnicode_Substring(seg, 1, PyUnicode_GetLength(seg)));
        Ref number = Ref::steal(PyNumber_Long(digits.get()));
        node = index(node.get(), number.get());
      } else {
        node = index(node.get(), seg);
      }
    }
    if (last_is_position || merge) {
      update(res, node.get());
    } else {
      set_item(res, last, node.get());
    }
  }
}

// The name of the Python function that called us (for template lookup).
std::string caller_name() {
  PyObject* frame = reinterpret_cast<PyObject*>(PyEval_GetFrame());
  if (frame == nullptr) return std::string();
  Ref code = getattr(frame, "f_code");
  Ref name = getattr(code.get(), "co_name");
  Ref bytes = Ref::steal(PyUnicode_AsUTF8String(name.get()));
  return PyBytes_AsString(bytes.get());
}

Ref format_output_direct(PyObject*, PyObject* args, PyObject*) {
  PyObject* raw = PyTuple_GetItem(args, 0);
  PyObject* tool = PyTuple_GetItem(args, 1);
  PyObject* tmpl = PyTuple_GetItem(args, 2);
  if (tmpl != Py_None) return format_output(raw, tool, tmpl, nullptr);
  std::string name = caller_name();
  return format_output(raw, tool, nullptr, name.c_str());
}

Ref merge_output_direct(PyObject*, PyObject* args, PyObject*) {
  return merge_output(PyTuple_GetItem(args, 0), PyTuple_GetItem(args, 1), PyTuple_GetItem(args, 2));
}

}  // namespace

Ref format_output(PyObject* raw, PyObject* tool, PyObject* tmpl, const char* caller) {
  Ref loaded_tmpl;
  if (tmpl == nullptr || tmpl == Py_None) {
    loaded_tmpl = load_template(caller);
    tmpl = loaded_tmpl.get();
  }
  FieldMap map;
  bool loaded = false;
  return format_one(raw, tool, tmpl, map, loaded);
}

Ref merge_output(PyObject* raw, PyObject* res, PyObject* structure) {
  Ref result = (res == nullptr || res == Py_None) ? Ref::steal(PyDict_New()) : Ref::borrow(res);
  if (structure == nullptr || structure == Py_None) {
    if (!PyDict_Check(result.get())) {
      raise(PyExc_TypeError, "_merge_output() res must be a dict");
    }
    merge_flat(raw, result.get());
  } else {
    merge_layers(raw, result.get(), structure);
  }
  return result;
}

void add_normalise_ops(OpList& ops) {
  ops.push_back(OpDef{
      "_format_output",
      "raw_data, tool, template=None",
      "按模板重命名查询结果的字段。\n\n"
      "参数:\n"
      "    raw_data (dict | list): 工具返回的原始数据；列表逐项处理（可嵌套）。\n"
      "    tool (str): 工具类型，选择模板 contents 下的字段映射。\n"
      "    template (dict): 已加载的模板；为 None 时按调用函数名读取 config/<函数名>.yaml。\n\n"
      "返回:\n"
      "    dict 或 list：每个输出键取原始数据中对应键的值（缺失为 \"\"），并附 raw_data "
      "保存原始字典。其他类型抛出 OrvexException。",
      {},
      ResultType::any,
      nullptr,
      nullptr,
      format_output_direct});
  ops.push_back(
      OpDef{"_merge_output",
            "raw_output, res=None, structure=None",
            "展平嵌套结果，或按层级映射挑选其中部分。\n\n"
            "参数:\n"
            "    raw_output (dict | list): 原始数据。\n"
            "    res (dict): 要填充的结果字典，为 None 时新建。\n"
            "    structure (dict): 层级映射 {路径: 是否合并}，路径以 // 分段，$n 表示列表第 n 项；"
            "为 None 时把所有叶子键合并进 res（重复键抛出 Exception）。\n\n"
            "返回:\n"
            "    dict：就地修改后的 res。",
            {},
            ResultType::any,
            nullptr,
            nullptr,
            merge_output_direct});
}

}  // namespace raid
