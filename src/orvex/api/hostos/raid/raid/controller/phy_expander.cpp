// PHY, expander and link diagnostics.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;

namespace {

constexpr ParamDef kKeywordsOnly[] = {kwargs()};
constexpr ParamDef kPhyInfoParams[] = {arg("phy_input"), kwargs()};
constexpr ParamDef kPhyControlParams[] = {arg("reset_type"), arg("phy_input").unstored(), kwargs()};

// Values of a mapping, or the elements of a sequence, as a new list.
Ref entries_of(PyObject* o) {
  if (o == nullptr) return nullptr;
  if (o == Py_None) return list();
  if (PyDict_Check(o)) return Ref::steal(PyDict_Values(o));
  return Ref::steal(PySequence_List(o));
}

// ---------------------------------------------------------------- expander

// The two queries, and the formatter's template of the records found.
struct ExpanderTexts {
  Wrapper expanders;
  Wrapper devices;
  Text format_name;
};

Ref expander_cfg_storcli64(const Call& c, const kit::Formatted& t) {
  Ref parsed = c.parsed(t.query);
  Ref enclosures = entries_of(parsed.get());
  if (!enclosures) return nullptr;
  Ref layers = dict({{"Information//Device ID", Py_False},
                     {"Inquiry Data", Py_True},
                     {"EnclSasAddress//$0//SAS address", Py_False}});
  Ref found = list();
  if (!layers || !found) return nullptr;
  const int walked = kit::each(enclosures.get(), [&](PyObject* enclosure) {
    if (!PyDict_Check(enclosure)) return 0;
    Ref inquiry = get(enclosure, "Inquiry Data");
    if (!inquiry) return -1;
    if (!PyDict_Check(inquiry.get())) return 0;
    Ref product = get(inquiry.get(), "Product Identification");
    const int expander = equal(product.get(), "Expander");
    if (expander != 1) return expander;
    Ref merged = merge_output(enclosure, nullptr, layers.get());
    return append(found.get(), merged.get());
  });
  if (walked < 0) return nullptr;
  return c.format_with(found.get(), t.format_name);
}

// Group `group` of the pattern's first finding in `text`, or None.
Ref found_group(const kit::Regex& re, PyObject* text, long group) {
  if (text == nullptr) return nullptr;
  if (!PyUnicode_Check(text)) return none();
  Ref m = re.search(text);
  if (!m || m.get() == Py_None) return m;
  Ref g = integer(group);
  if (!g) return nullptr;
  return call_method(m.get(), "group", {g.get()});
}

// "2,0(0:0)" and "2,0" both name channel 2, device 0.
Ref channel_device_of(PyObject* reported) {
  if (reported == nullptr || !PyUnicode_Check(reported)) return Ref::borrow(reported);
  Ref open = str("(");
  if (!open) return nullptr;
  Ref parts = call_method(reported, "split", {open.get()});
  Ref head = item(parts.get(), 0);
  return call_method(head.get(), "strip");
}

// The expander_id of the expander reported at `channel_device`, or "".
Ref expander_id_for(PyObject* expanders, PyObject* channel_device) {
  Ref id = str("");
  if (!id) return nullptr;
  const int walked = kit::each(expanders, [&](PyObject* e) {
    if (!PyDict_Check(e)) return 0;
    Ref reported = get(e, "reported_channel,device");
    Ref cd = channel_device_of(reported.get());
    if (!cd) return -1;
    const int same = equal(cd.get(), channel_device);
    if (same != 1) return same;
    id = get(e, "expander_id");
    return id ? 1 : -1;
  });
  return walked < 0 ? nullptr : id;
}

Ref expander_cfg_arcconf(const Call& c, const ExpanderTexts& t) {
  static const kit::Regex kPhysical("Physical (\\d+),(\\d+)");
  static const kit::Regex kConnector("Connector (\\d+):.*");
  Ref expander_answer = c.parsed(t.expanders);
  Ref expanders = entries_of(expander_answer.get());
  if (!expanders) return nullptr;
  Ref cfg = c.parsed(t.devices);
  Ref devices = get(cfg.get(), "physical_device_information");
  if (!devices) return nullptr;
  Ref found = list();
  if (!found) return nullptr;

  // One record per expander among the devices: its connector, its
  // "channel,device" and the expander id reported there.
  auto record = [&](PyObject* name, PyObject* device) {
    if (!PyDict_Check(device)) return 0;
    Ref model = get(device, "Model");
    const int expander = equal(model.get(), "Expander");
    if (expander != 1) return expander;
    Ref channel = found_group(kPhysical, name, 1);
    if (!channel) return -1;
    if (channel.get() == Py_None) return 0;
    Ref number = found_group(kPhysical, name, 2);
    if (!number) return -1;
    Ref location = get(device, "[Location]");
    Ref connector = found_group(kConnector, location.get(), 1);
    if (connector && connector.get() == Py_None) connector = str("");
    Ref cd = format("%U,%U", channel.get(), number.get());
    if (!connector || !cd) return -1;
    Ref expander_id = expander_id_for(expanders.get(), cd.get());
    if (!expander_id) return -1;
    Ref fields = dict({{"connector", connector.get()},
                       {"channel_device", cd.get()},
                       {"product_id", model.get()},
                       {"expander_id", expander_id.get()}});
    if (!fields) return -1;
    Ref merged = merge_output(fields.get(), nullptr, nullptr);
    return append(found.get(), merged.get());
  };
  // Devices come keyed by name, or as records that carry their name.
  int walked = 0;
  if (PyDict_Check(devices.get())) {
    walked = kit::each_item(devices.get(), record);
  } else {
    Ref listed = entries_of(devices.get());
    walked = kit::each(listed.get(), [&](PyObject* device) {
      Ref name = PyDict_Check(device) ? get(device, "name") : none();
      return name ? record(name.get(), device) : -1;
    });
  }
  if (walked < 0) return nullptr;
  return c.format_with(found.get(), t.format_name);
}

// ---------------------------------------------------------------- PHY errors

// arcconf reports one record per PHY; the records are keyed by their
// phy_id, and the template picks the PHYs by id.
Ref phyerror_arcconf(const Call& c, const Wrapper& query) {
  Ref parsed = c.parsed(query);
  Ref phys = entries_of(parsed.get());
  if (!phys) return nullptr;
  Ref by_id = dict();
  if (!by_id) return nullptr;
  const int walked = kit::each(phys.get(), [&](PyObject* phy) {
    Ref id = index(phy, "phy_id");
    return id ? set_item(by_id.get(), id.get(), phy) : -1;
  });
  if (walked < 0) return nullptr;
  return c.format(by_id.get());
}

// ---------------------------------------------------------------- storelibtest

// The PHY count out of the get_phy_count answer, empty entries dropped
// (none at all: no PHYs).
int phy_count(PyObject* parsed, long* count) {
  *count = 0;
  Ref value;
  if (PyLong_Check(parsed)) {
    value = Ref::borrow(parsed);
  } else {
    Ref entries = PyUnicode_Check(parsed) ? call_method(parsed, "splitlines") : entries_of(parsed);
    const int walked = kit::each(entries.get(), [&](PyObject* e) {
      Ref text = to_str(e);
      Ref stripped = call_method(text.get(), "strip");
      const int filled = truthy(stripped.get());
      if (filled == 1) value = Ref::borrow(e);
      return filled;
    });
    if (walked < 0) return -1;
    if (!value) return 0;
  }
  Ref n = Ref::steal(PyNumber_Long(value.get()));
  if (!n) return -1;
  *count = PyLong_AsLong(n.get());
  return *count == -1 && PyErr_Occurred() != nullptr ? -1 : 0;
}

// int(text) appended to `phys` (-1 on error).
int append_int(PyObject* phys, PyObject* text) {
  Ref v = Ref::steal(PyNumber_Long(text));
  return append(phys, v.get());
}

int append_range(PyObject* phys, long first, long last) {
  for (long i = first; i <= last; ++i) {
    Ref v = integer(i);
    if (append(phys, v.get()) < 0) return -1;
  }
  return 0;
}

// "all", "a-b" (both ends included) or numbers separated by single spaces.
Ref resolve_phys(PyObject* phy_input, long count) {
  Ref phys = list();
  Ref dash = str("-");
  if (!phys || !dash) return nullptr;
  const int ranged = contains(phy_input, dash.get());
  if (ranged < 0) return nullptr;
  if (ranged == 1) {
    Ref parts = call_method(phy_input, "split", {dash.get()});
    if (!parts) return nullptr;
    const Py_ssize_t n = PyList_Size(parts.get());
    if (n < 2) {
      PyErr_Format(PyExc_ValueError, "not enough values to unpack (expected 2, got %zd)", n);
      return nullptr;
    }
    if (n > 2) return raise(PyExc_ValueError, "too many values to unpack (expected 2)");
    Ref ends = list();
    if (append_int(ends.get(), PyList_GetItem(parts.get(), 0)) < 0 ||
        append_int(ends.get(), PyList_GetItem(parts.get(), 1)) < 0) {
      return nullptr;
    }
    const long first = PyLong_AsLong(PyList_GetItem(ends.get(), 0));
    const long last = PyLong_AsLong(PyList_GetItem(ends.get(), 1));
    if (PyErr_Occurred() != nullptr || append_range(phys.get(), first, last) < 0) return nullptr;
    return phys;
  }
  const int all = equal(phy_input, "all");
  if (all < 0) return nullptr;
  if (all == 1) return append_range(phys.get(), 0, count - 1) < 0 ? nullptr : phys;
  Ref space = str(" ");
  Ref parts = call_method(phy_input, "split", {space.get()});
  const int walked =
      kit::each(parts.get(), [&](PyObject* piece) { return append_int(phys.get(), piece); });
  return walked < 0 ? nullptr : phys;
}

// Every selected PHY must exist: numbers run from 0 to count - 1; else
// OrvexException(no_such_phy).
int check_phys(PyObject* phys, long count, const Message& no_such_phy) {
  auto refuse = [&] { return raise_orvex(no_such_phy.text), -1; };
  if (PyList_Size(phys) == 0) return refuse();
  return kit::each(phys, [&](PyObject* phy) {
    const long v = PyLong_AsLong(phy);
    if (v == -1 && PyErr_Occurred() != nullptr) return -1;
    return v >= count ? refuse() : 0;
  });
}

// The non-empty answer lines (a text is split into lines first).
Ref non_empty_lines(PyObject* parsed) {
  if (parsed == nullptr) return nullptr;
  Ref out = list();
  Ref entries = PyUnicode_Check(parsed) ? call_method(parsed, "splitlines") : entries_of(parsed);
  if (!out) return nullptr;
  const int walked = kit::each(entries.get(), [&](PyObject* e) {
    const int filled = truthy(e);
    return filled == 1 ? append(out.get(), e) : filled;
  });
  return walked < 0 ? nullptr : out;
}

// storelibtest PHY work: only behind an expander backplane (else the
// refusal no_expander), and only on PHYs the controller has (counted by
// count; else the refusal no_such_phy); then run.
struct StorelibTexts {
  Operation expander;
  Message no_expander;
  Wrapper count;
  Message no_such_phy;
  Wrapper run;
  std::size_t phy_input;  // the position of the selection text among the arguments
};

Ref storelib_phys(const Call& c, const StorelibTexts& t) {
  Ref expander = c.method(t.expander);
  const int present = truthy(expander.get());
  if (present < 0) return nullptr;
  if (present == 0) return c.refuse(t.no_expander);
  Ref counted = c.parsed(t.count);
  long count = 0;
  if (!counted || phy_count(counted.get(), &count) < 0) return nullptr;
  Ref phys = resolve_phys(c.arg(t.phy_input), count);
  if (!phys || check_phys(phys.get(), count, t.no_such_phy) < 0 ||
      c.p_set("phy_list", phys.get()) < 0) {
    return nullptr;
  }
  Ref parsed = c.parsed(t.run);
  return non_empty_lines(parsed.get());
}

}  // namespace

void add_phy_expander_ops(OpList& ops) {
  static constexpr kit::Formatted kStorcliExpanders{{"ctr_get_enclosure_storcli64"},
                                                    {"get_expander_cfg_format"}};
  static constexpr ExpanderTexts kArcconfExpanders{
      {"ctr_get_expander_cfg_arcconf"}, {"ctr_get_cfg_arcconf"}, {"get_expander_cfg_format"}};
  ops.push_back(
      Op("get_expander_cfg")
          .params(kKeywordsOnly)
          .extras({kAdapterId})
          .doc("查询expander背板信息。\n\n"
               "参数:\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    list: 每个 expander 一个字典，没有 expander 背板时为空列表。\n"
               "        storcli64: "
               "expander_id、product_id、vendor_id、firmware_version、sas_address；\n"
               "        arcconf: expander_id、product_id、connector、channel_device；\n"
               "        另有 raw_data（合并后的原始记录）。")
          .returns_doc("list")
          .variants({custom<expander_cfg_storcli64, kStorcliExpanders>(Tool::storcli64),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 查询expander背板信息 功能"),
                     custom<expander_cfg_arcconf, kArcconfExpanders>(Tool::arcconf)}));
  static constexpr Wrapper kPhyErrors{"get_controller_pd_phyerror_arcconf"};
  ops.push_back(Op("get_ctl_phyerror")
                    .params(kKeywordsOnly)
                    .extras({kAdapterId})
                    .doc("查询控制器 PHY 误码计数。\n\n"
                         "参数:\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n"
                         "    dict 或 list: arcconf 为一个字典，以 PHY 的 phy_id 为键，"
                         "每个 PHY 一项；storcli64、sorbctl 为列表，每个 PHY 一个字典。"
                         "各项的键为 phy_id、invalid_dword_count、"
                         "running_disparity_error_count、loss_of_dword_sync_count、"
                         "phy_reset_problem_count 与 raw_data。")
                    .returns_doc("dict | list")
                    .variants({query(Tool::storcli64, "ctr_get_phy_cfg_storcli64")
                                   .at("Phy Error Counters")
                                   .format(),
                               query(Tool::sorbctl, "get_ctl_phyinfo_sorbctl").format(),
                               custom<phyerror_arcconf, kPhyErrors>(Tool::arcconf)}));
  ops.push_back(
      Op("set_ctl_phy_func")
          .params({arg("eid"), arg("sid"), arg("oper"), kwargs()})
          .extras({kAdapterId})
          .doc("设置控制器PHY连接状态（仅 sorbctl）。\n\n"
               "参数:\n"
               "    eid (str): enclosure / channel 编号。\n"
               "    sid (str): slot / device 编号。\n"
               "    oper (str): 对 PHY 连接的操作，由工具定义。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants({refuse(Tool::storcli64, "LSI卡storcli64工具没有 设置控制器PHY连接状态 功能"),
                     checked(Tool::sorbctl, "set_controller_phy_func_sorbctl"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置控制器PHY连接状态 功能")}));
  static constexpr StorelibTexts kPhyInfo{
      {"get_expander_cfg"},           {"该环境无exp背板, 无法查询所有phy信息"},
      {"get_phy_count_storelibtest"}, {"输入的phy数目错误, 请重试"},
      {"get_phy_info_storelibtest"},  RAID_ARG(kPhyInfoParams, "phy_input")};
  ops.push_back(
      Op("ctl_get_phy_info_storelibtest")
          .params(kPhyInfoParams)
          .extras({kAdapterId})
          .doc("使用 storelibtest 工具查询 phy 信息（博通卡，需 expander 背板）。\n\n"
               "参数:\n"
               "    phy_input (str): \"all\" 表示全部 phy；\"0-3\" 表示 0 到 3（含两端）；"
               "\"1 5 7\" 表示以空格分隔的 phy 编号。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    list: 工具输出中的非空行。\n\n"
               "异常:\n"
               "    OrvexException: 无 expander 背板时为 \"该环境无exp背板, 无法查询所有phy信息\"；"
               "phy 编号超出控制器 phy 数目时为 \"输入的phy数目错误, 请重试\"。")
          .returns_doc("list")
          .variants(
              {custom<storelib_phys, kPhyInfo>(Tool::storcli64)
                   .note("adapter_id", ExtraUse::ignores, "检查expander背板时不传 adapter_id"),
               refuse(Tool::sorbctl, "7460卡不支持使用storelibtest工具查询所有phy信息"),
               refuse(Tool::arcconf, "PMC卡不支持使用storelibtest工具查询所有phy信息")}));
  static constexpr StorelibTexts kPhyControl{{"get_expander_cfg"},
                                             {"该环境无exp背板, 无法进行phy control操作"},
                                             {"get_phy_count_storelibtest"},
                                             {"输入的phy数目错误, 请重试"},
                                             {"send_phy_control_storelibtest"},
                                             RAID_ARG(kPhyControlParams, "phy_input")};
  ops.push_back(
      Op("ctl_phy_control_storelibtest")
          .params(kPhyControlParams)
          .extras({kAdapterId})
          .doc("使用 storelibtest 工具对 phy 进行 phy control（复位）操作（博通卡，需 expander "
               "背板）。\n\n"
               "参数:\n"
               "    reset_type (str): 复位类型，由工具定义。\n"
               "    phy_input (str): \"all\" 表示全部 phy；\"0-3\" 表示 0 到 3（含两端）；"
               "\"1 5 7\" 表示以空格分隔的 phy 编号。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    list: 工具输出中的非空行。\n\n"
               "异常:\n"
               "    OrvexException: 无 expander 背板时为 \"该环境无exp背板, 无法进行phy "
               "control操作\"；"
               "phy 编号超出控制器 phy 数目时为 \"输入的phy数目错误, 请重试\"。")
          .returns_doc("list")
          .variants(
              {custom<storelib_phys, kPhyControl>(Tool::storcli64)
                   .note("adapter_id", ExtraUse::ignores, "检查expander背板时不传 adapter_id"),
               refuse(Tool::sorbctl, "7460卡不支持使用storelibtest工具进行phy control测试"),
               refuse(Tool::arcconf, "PMC卡不支持使用storelibtest工具进行phy control测试")}));
  ops.push_back(
      Op("set_controller_phy_speed")
          .params({kw("eid"), kw("sid"), kw("speed"), kwargs()})
          .extras({kAdapterId})
          .doc("设置 phy 链路速率（仅 sorbctl）。\n\n"
               "参数（仅限关键字传入）:\n"
               "    eid (str): enclosure / channel 编号。\n"
               "    sid (str): slot / device 编号。\n"
               "    speed (str): 链路速率。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants({refuse(Tool::storcli64, "博通卡不支持使用storcli64工具设置phy linkspeed"),
                     checked(Tool::sorbctl, "set_controller_phy_speed_sorbctl"),
                     refuse(Tool::arcconf, "PMC卡不支持使用arcconf工具设置phy linkspeed")}));
  ops.push_back(Op("get_eye_diagram")
                    .params({arg("adapter_id"), arg("sid")})
                    .doc("查询眼图（仅 sorbctl）。\n\n"
                         "参数:\n"
                         "    adapter_id (str): 控制器编号。\n"
                         "    sid (str): slot / device 编号。\n\n"
                         "返回:\n    工具输出的解析结果。")
                    .variants({query(Tool::sorbctl, "get_eye_diagram_sorbctl")}));
}

}  // namespace raid
