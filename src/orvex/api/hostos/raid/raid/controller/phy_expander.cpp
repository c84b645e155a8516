// PHY, expander and link diagnostics.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

namespace {

// Values of a mapping, or the elements of a sequence, as a new list.
Ref entries_of(PyObject* o) {
  if (o == Py_None) return list();
  if (PyDict_Check(o)) return Ref::steal(PyDict_Values(o));
  return Ref::steal(PySequence_List(o));
}

// ---------------------------------------------------------------- expander

Ref expander_cfg_storcli64(Call& c) {
  Ref parsed = c.parsed("ctr_get_enclosure_storcli64");
  Ref enclosures = entries_of(parsed.get());
  Ref layers = dict({{"Information//Device ID", Py_False},
                     {"Inquiry Data", Py_True},
                     {"EnclSasAddress//$0//SAS address", Py_False}});
  Ref found = list();
  Py_ssize_t n = PyList_Size(enclosures.get());
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* enclosure = PyList_GetItem(enclosures.get(), i);
    if (!PyDict_Check(enclosure)) continue;
    Ref inquiry = get(enclosure, "Inquiry Data");
    if (!PyDict_Check(inquiry.get())) continue;
    Ref product = get(inquiry.get(), "Product Identification");
    if (!equals(product.get(), "Expander")) continue;
    Ref merged = merge_output(enclosure, nullptr, layers.get());
    append(found.get(), merged.get());
  }
  return c.format_with(found.get(), "get_expander_cfg_format");
}

// The first group of `pattern` searched in `text`, or None.
Ref search_group(PyObject* re, const char* pattern, PyObject* text, long group) {
  if (!PyUnicode_Check(text)) return none();
  Ref pat = str(pattern);
  Ref m = call_method(re, "search", {pat.get(), text});
  if (m.get() == Py_None) return m;
  Ref g = integer(group);
  return call_method(m.get(), "group", {g.get()});
}

// "2,0(0:0)" and "2,0" both name channel 2, device 0.
Ref channel_device_of(PyObject* reported) {
  if (!PyUnicode_Check(reported)) return Ref::borrow(reported);
  Ref open = str("(");
  Ref parts = call_method(reported, "split", {open.get()});
  Ref head = item(parts.get(), 0);
  return call_method(head.get(), "strip");
}

Ref expander_id_for(PyObject* expanders, PyObject* channel_device) {
  Py_ssize_t n = PyList_Size(expanders);
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* e = PyList_GetItem(expanders, i);
    if (!PyDict_Check(e)) continue;
    Ref reported = get(e, "reported_channel,device");
    Ref cd = channel_device_of(reported.get());
    int same = PyObject_RichCompareBool(cd.get(), channel_device, Py_EQ);
    if (same < 0) fail();
    if (same == 1) return get(e, "expander_id");
  }
  return str("");
}

Ref expander_cfg_arcconf(Call& c) {
  Ref expander_answer = c.parsed("ctr_get_expander_cfg_arcconf");
  Ref expanders = entries_of(expander_answer.get());
  Ref cfg = c.parsed("ctr_get_cfg_arcconf");
  Ref devices = get(cfg.get(), "physical_device_information");
  Ref re = Ref::steal(PyImport_ImportModule("re"));

  // Devices come keyed by name, or as records that carry their name.
  Ref names = list();
  Ref records = list();
  if (PyDict_Check(devices.get())) {
    Ref items = call_method(devices.get(), "items");
    Ref seq = Ref::steal(PySequence_List(items.get()));
    for (Py_ssize_t i = 0; i < PyList_Size(seq.get()); ++i) {
      PyObject* kv = PyList_GetItem(seq.get(), i);
      append(names.get(), PyTuple_GetItem(kv, 0));
      append(records.get(), PyTuple_GetItem(kv, 1));
    }
  } else {
    Ref seq = entries_of(devices.get());
    for (Py_ssize_t i = 0; i < PyList_Size(seq.get()); ++i) {
      PyObject* rec = PyList_GetItem(seq.get(), i);
      Ref name = PyDict_Check(rec) ? get(rec, "name") : none();
      append(names.get(), name.get());
      append(records.get(), rec);
    }
  }

  Ref found = list();
  for (Py_ssize_t i = 0; i < PyList_Size(records.get()); ++i) {
    PyObject* rec = PyList_GetItem(records.get(), i);
    if (!PyDict_Check(rec)) continue;
    Ref model = get(rec, "Model");
    if (!equals(model.get(), "Expander")) continue;
    PyObject* name = PyList_GetItem(names.get(), i);
    Ref channel = search_group(re.get(), "Physical (\\d+),(\\d+)", name, 1);
    if (channel.get() == Py_None) continue;
    Ref device = search_group(re.get(), "Physical (\\d+),(\\d+)", name, 2);
    Ref location = get(rec, "[Location]");
    Ref connector = search_group(re.get(), "Connector (\\d+):.*", location.get(), 1);
    if (connector.get() == Py_None) connector = str("");
    Ref cd = format("%U,%U", channel.get(), device.get());
    Ref expander_id = expander_id_for(expanders.get(), cd.get());
    Ref record = dict({{"connector", connector.get()},
                       {"channel_device", cd.get()},
                       {"product_id", model.get()},
                       {"expander_id", expander_id.get()}});
    Ref merged = merge_output(record.get(), nullptr, nullptr);
    append(found.get(), merged.get());
  }
  return c.format_with(found.get(), "get_expander_cfg_format");
}

// ---------------------------------------------------------------- PHY errors

Ref phyerror_storcli64(Call& c) {
  Ref parsed = c.parsed("ctr_get_phy_cfg_storcli64");
  Ref counters = index(parsed.get(), "Phy Error Counters");
  return c.format(counters.get());
}

Ref phyerror_sorbctl(Call& c) {
  Ref parsed = c.parsed("get_ctl_phyinfo_sorbctl");
  return c.format(parsed.get());
}

// arcconf answers {phy number: counters}; each PHY becomes one record that
// starts with its phy_id.
Ref phyerror_arcconf(Call& c) {
  Ref parsed = c.parsed("get_controller_pd_phyerror_arcconf");
  if (!PyDict_Check(parsed.get())) return c.format(parsed.get());
  Ref records = list();
  Ref items = call_method(parsed.get(), "items");
  Ref seq = Ref::steal(PySequence_List(items.get()));
  for (Py_ssize_t i = 0; i < PyList_Size(seq.get()); ++i) {
    PyObject* kv = PyList_GetItem(seq.get(), i);
    PyObject* counters = PyTuple_GetItem(kv, 1);
    Ref record = dict({{"phy_id", PyTuple_GetItem(kv, 0)}});
    if (PyDict_Check(counters)) {
      update(record.get(), counters);
      set_item(record.get(), "phy_id", PyTuple_GetItem(kv, 0));
    }
    append(records.get(), record.get());
  }
  return c.format(records.get());
}

// ---------------------------------------------------------------- storelibtest

// The PHY count out of the get_phy_count answer, empty entries dropped.
long phy_count(PyObject* parsed) {
  Ref value;
  if (PyLong_Check(parsed)) {
    value = Ref::borrow(parsed);
  } else {
    Ref seq = PyUnicode_Check(parsed) ? call_method(parsed, "splitlines") : entries_of(parsed);
    for (Py_ssize_t i = 0; i < PyList_Size(seq.get()); ++i) {
      PyObject* e = PyList_GetItem(seq.get(), i);
      Ref text = to_str(e);
      Ref stripped = call_method(text.get(), "strip");
      if (truthy(stripped.get())) {
        value = Ref::borrow(e);
        break;
      }
    }
    if (!value) return 0;
  }
  Ref n = Ref::steal(PyNumber_Long(value.get()));
  long count = PyLong_AsLong(n.get());
  if (count == -1 && PyErr_Occurred()) fail();
  return count;
}

Ref to_int(PyObject* text) { return Ref::steal(PyNumber_Long(text)); }

// "all", "a-b" (both ends included) or numbers separated by single spaces.
Ref resolve_phys(PyObject* phy_input, long count) {
  Ref phys = list();
  Ref dash = str("-");
  if (contains(phy_input, dash.get())) {
    Ref parts = call_method(phy_input, "split", {dash.get()});
    Py_ssize_t n = PyList_Size(parts.get());
    if (n != 2) {
      if (n < 2) {
        PyErr_Format(PyExc_ValueError, "not enough values to unpack (expected 2, got %zd)", n);
      } else {
        PyErr_SetString(PyExc_ValueError, "too many values to unpack (expected 2)");
      }
      fail();
    }
    Ref a = to_int(PyList_GetItem(parts.get(), 0));
    Ref b = to_int(PyList_GetItem(parts.get(), 1));
    long first = PyLong_AsLong(a.get());
    if (first == -1 && PyErr_Occurred()) fail();
    long last = PyLong_AsLong(b.get());
    if (last == -1 && PyErr_Occurred()) fail();
    for (long i = first; i <= last; ++i) {
      Ref v = integer(i);
      append(phys.get(), v.get());
    }
  } else if (equals(phy_input, "all")) {
    for (long i = 0; i < count; ++i) {
      Ref v = integer(i);
      append(phys.get(), v.get());
    }
  } else {
    Ref space = str(" ");
    Ref parts = call_method(phy_input, "split", {space.get()});
    for (Py_ssize_t i = 0; i < PyList_Size(parts.get()); ++i) {
      Ref v = to_int(PyList_GetItem(parts.get(), i));
      append(phys.get(), v.get());
    }
  }
  return phys;
}

// Every selected PHY must exist: numbers run from 0 to count - 1.
void check_phys(PyObject* phys, long count) {
  Py_ssize_t n = PyList_Size(phys);
  if (n == 0) raise_orvex("输入的phy数目错误, 请重试");
  for (Py_ssize_t i = 0; i < n; ++i) {
    long v = PyLong_AsLong(PyList_GetItem(phys, i));
    if (v == -1 && PyErr_Occurred()) fail();
    if (v >= count) raise_orvex("输入的phy数目错误, 请重试");
  }
}

Ref non_empty_lines(PyObject* parsed) {
  Ref out = list();
  Ref seq = PyUnicode_Check(parsed) ? call_method(parsed, "splitlines") : entries_of(parsed);
  for (Py_ssize_t i = 0; i < PyList_Size(seq.get()); ++i) {
    PyObject* e = PyList_GetItem(seq.get(), i);
    if (truthy(e)) append(out.get(), e);
  }
  return out;
}

Ref storelib_phy_run(Call& c, PyObject* phy_input, const char* no_expander, const char* wrapper) {
  Ref expander = c.method("get_expander_cfg");
  if (!truthy(expander.get())) c.refuse(no_expander);
  Ref counted = c.parsed("get_phy_count_storelibtest");
  long count = phy_count(counted.get());
  Ref phys = resolve_phys(phy_input, count);
  check_phys(phys.get(), count);
  c.p_set("phy_list", phys.get());
  Ref parsed = c.parsed(wrapper);
  return non_empty_lines(parsed.get());
}

Ref phy_info_storelibtest(Call& c) {
  return storelib_phy_run(c, c.arg("phy_input"), "该环境无exp背板, 无法查询所有phy信息",
                          "get_phy_info_storelibtest");
}

Ref phy_control_storelibtest(Call& c) {
  return storelib_phy_run(c, c.arg("phy_input"), "该环境无exp背板, 无法进行phy control操作",
                          "send_phy_control_storelibtest");
}

}  // namespace

void add_phy_expander_ops(OpList& ops) {
  ops.push_back(OpDef{
      "get_expander_cfg",
      "**kwargs",
      "查询expander背板信息。\n\n"
      "参数:\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n"
      "    list: 每个 expander 一个字典，没有 expander 背板时为空列表。\n"
      "        storcli64: expander_id、product_id、vendor_id、firmware_version、sas_address；\n"
      "        arcconf: expander_id、product_id、connector、channel_device；\n"
      "        另有 raw_data（合并后的原始记录）。",
      {custom(Tool::storcli64, expander_cfg_storcli64),
       refuse(Tool::sorbctl, "7460卡sorbctl工具没有 查询expander背板信息 功能"),
       custom(Tool::arcconf, expander_cfg_arcconf)}});
  ops.push_back(
      OpDef{"get_ctl_phyerror",
            "**kwargs",
            "查询控制器 PHY 误码计数。\n\n"
            "参数:\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    list: 每个 PHY 一个字典，键为 phy_id、invalid_dword_count、"
            "running_disparity_error_count、loss_of_dword_sync_count、"
            "phy_reset_problem_count 与 raw_data。",
            {custom(Tool::storcli64, phyerror_storcli64), custom(Tool::sorbctl, phyerror_sorbctl),
             custom(Tool::arcconf, phyerror_arcconf)}});
  ops.push_back(OpDef{"set_ctl_phy_func",
                      "eid, sid, oper, **kwargs",
                      "设置控制器PHY连接状态（仅 sorbctl）。\n\n"
                      "参数:\n"
                      "    eid (str): enclosure / channel 编号。\n"
                      "    sid (str): slot / device 编号。\n"
                      "    oper (str): 对 PHY 连接的操作，由工具定义。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功。",
                      {refuse(Tool::storcli64, "LSI卡storcli64工具没有 设置控制器PHY连接状态 功能"),
                       checked(Tool::sorbctl, "set_controller_phy_func_sorbctl"),
                       refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置控制器PHY连接状态 功能")}});
  ops.push_back(
      OpDef{"ctl_get_phy_info_storelibtest",
            "phy_input, **kwargs",
            "使用 storelibtest 工具查询 phy 信息（博通卡，需 expander 背板）。\n\n"
            "参数:\n"
            "    phy_input (str): \"all\" 表示全部 phy；\"0-3\" 表示 0 到 3（含两端）；"
            "\"1 5 7\" 表示以空格分隔的 phy 编号。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    list: 工具输出中的非空行。\n\n"
            "异常:\n"
            "    OrvexException: 无 expander 背板时为 \"该环境无exp背板, 无法查询所有phy信息\"；"
            "phy 编号超出控制器 phy 数目时为 \"输入的phy数目错误, 请重试\"。",
            {custom(Tool::storcli64, phy_info_storelibtest),
             refuse(Tool::sorbctl, "7460卡不支持使用storelibtest工具查询所有phy信息"),
             refuse(Tool::arcconf, "PMC卡不支持使用storelibtest工具查询所有phy信息")}});
  ops.push_back(OpDef{
      "ctl_phy_control_storelibtest",
      "reset_type, phy_input:-, **kwargs",
      "使用 storelibtest 工具对 phy 进行 phy control（复位）操作（博通卡，需 expander 背板）。\n\n"
      "参数:\n"
      "    reset_type (str): 复位类型，由工具定义。\n"
      "    phy_input (str): \"all\" 表示全部 phy；\"0-3\" 表示 0 到 3（含两端）；"
      "\"1 5 7\" 表示以空格分隔的 phy 编号。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    list: 工具输出中的非空行。\n\n"
      "异常:\n"
      "    OrvexException: 无 expander 背板时为 \"该环境无exp背板, 无法进行phy control操作\"；"
      "phy 编号超出控制器 phy 数目时为 \"输入的phy数目错误, 请重试\"。",
      {custom(Tool::storcli64, phy_control_storelibtest),
       refuse(Tool::sorbctl, "7460卡不支持使用storelibtest工具进行phy control测试"),
       refuse(Tool::arcconf, "PMC卡不支持使用storelibtest工具进行phy control测试")}});
  ops.push_back(OpDef{"set_controller_phy_speed",
                      "*, eid, sid, speed, **kwargs",
                      "设置 phy 链路速率（仅 sorbctl）。\n\n"
                      "参数（仅限关键字传入）:\n"
                      "    eid (str): enclosure / channel 编号。\n"
                      "    sid (str): slot / device 编号。\n"
                      "    speed (str): 链路速率。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功。",
                      {refuse(Tool::storcli64, "博通卡不支持使用storcli64工具设置phy linkspeed"),
                       checked(Tool::sorbctl, "set_controller_phy_speed_sorbctl"),
                       refuse(Tool::arcconf, "PMC卡不支持使用arcconf工具设置phy linkspeed")}});
  ops.push_back(OpDef{"get_eye_diagram",
                      "adapter_id, sid",
                      "查询眼图（仅 sorbctl）。\n\n"
                      "参数:\n"
                      "    adapter_id (str): 控制器编号。\n"
                      "    sid (str): slot / device 编号。\n\n"
                      "返回:\n    工具输出的解析结果。",
                      {parser(Tool::sorbctl, "get_eye_diagram_sorbctl")}});
}

}  // namespace raid
