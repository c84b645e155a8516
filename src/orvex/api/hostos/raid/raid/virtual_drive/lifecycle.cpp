// Virtual drive creation, deletion and listing: the list of a controller's
// virtual drives, the details of one or all of them and their member drives.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

bool same(PyObject* a, PyObject* b) {
  int r = PyObject_RichCompareBool(a, b, Py_EQ);
  if (r < 0) fail();
  return r == 1;
}

bool is_one_of(PyObject* v, std::initializer_list<const char*> texts) {
  for (const char* t : texts) {
    if (equals(v, t)) return true;
  }
  return false;
}

Ref concat(std::initializer_list<PyObject*> parts) {
  Ref out = str("");
  for (PyObject* p : parts) out = Ref::steal(PyUnicode_Concat(out.get(), p));
  return out;
}

// re.<fn>(pattern, text): the match object or None.
Ref re_call(const char* fn, const char* pattern, PyObject* text) {
  Ref re = Ref::steal(PyImport_ImportModule("re"));
  Ref pat = str(pattern);
  return call_method(re.get(), fn, {pat.get(), text});
}

// --- create ----------------------------------------------------------------

// params: raid_level, drives, then the keywords; an empty size is dropped so
// that the tool takes the largest size it can.
Ref create_params(PyObject* args, PyObject* extra) {
  Ref params = Ref::steal(PyDict_New());
  set_item(params.get(), "raid_level", PyTuple_GetItem(args, 0));
  set_item(params.get(), "drives", PyTuple_GetItem(args, 1));
  update(params.get(), extra);
  Ref key = str("size");
  if (contains(params.get(), key.get())) {
    Ref size = index(params.get(), key.get());
    if (!truthy(size.get())) {
      if (PyDict_DelItem(params.get(), key.get()) < 0) fail();
    }
  }
  return params;
}

// arcconf counts spans (legs) instead of drives per span, and only knows an
// initialisation method for the parity levels.
void create_arcconf(Call& c) {
  Ref level = index(c.params, "raid_level");
  Ref per_array = index(c.params, "pd_per_array");
  if (truthy(per_array.get()) && is_one_of(level.get(), {"50", "60"})) {
    c.p_pop("pd_per_array");
    Ref drives = index(c.params, "drives");
    Py_ssize_t count = PyObject_Size(drives.get());
    if (count < 0) fail();
    Ref total = integer(static_cast<long>(count));
    Ref per = Ref::steal(PyNumber_Long(per_array.get()));
    Ref legs = Ref::steal(PyNumber_FloorDivide(total.get(), per.get()));
    c.p_set("legs", to_str(legs.get()).get());
  }
  Ref init = c.p_get("init");
  if (truthy(init.get())) {
    if (is_one_of(level.get(), {"5", "6", "50", "60"})) {
      Ref build = str("build");
      Ref background = str("default");
      Ref map = dict({{"front", build.get()}, {"background", background.get()}});
      c.p_set("init", get(map.get(), init.get()).get());
    } else {
      c.p_del_if("init");
    }
  }
}

// --- list --------------------------------------------------------------------

// arcconf keys each drive as logical_device_number_<n>; the number becomes
// the entry's vd.
Ref list_arcconf(Call& c) {
  Ref parser = c.parsed("ctr_get_vd_cfg_arcconf");
  Ref devices = get(parser.get(), "logical_device_information");
  Ref records = list();
  Ref sep = str("_");
  each_item(devices.get(), [&](PyObject* key, PyObject* value) {
    Ref parts = call_method(key, "split", {sep.get()});
    Ref number = item(parts.get(), 3);
    set_item(value, "vd", number.get());
    append(records.get(), value);
  });
  return c.format_with(records.get(), "get_virtual_drive_list_format");
}

// --- details -------------------------------------------------------------------

// One drive's storcli64 sections -> the details record.  The formatter
// regroups the sections; the drive's own table contributes its first row,
// the property table its entries, and the member table is kept whole.
Ref details_storcli64(Call& c, PyObject* sections) {
  Ref treated = c.formatter_call("storcli64_get_one_virtual_drive_treatments", {sections});
  Ref wrapped = dict({{"vd_info", treated.get()}});
  Ref structure = Ref::steal(PyDict_New());
  Ref prefix = str("vd_info//");
  Ref first_row = str("//$0");
  each_item(treated.get(), [&](PyObject* key, PyObject* value) {
    (void)value;
    Ref path = concat({prefix.get(), key});
    Ref drive_table = re_call("match", "/c(\\d+)/v(\\d+)", key);
    Ref properties = re_call("match", "VD.*Properties", key);
    if (drive_table.get() != Py_None) {
      set_item(structure.get(), concat({path.get(), first_row.get()}).get(), Py_True);
    } else if (properties.get() != Py_None) {
      set_item(structure.get(), path.get(), Py_True);
    } else {
      set_item(structure.get(), path.get(), Py_False);
    }
  });
  Ref merged = merge_output(wrapped.get(), nullptr, structure.get());
  return c.format_with(merged.get(), "get_one_virtual_drive_info_format");
}

Ref one_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_vd_cfg_storcli64");
  return details_storcli64(c, parser.get());
}

Ref one_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_vd_info_sorbctl");
  Ref sections = Ref::steal(PyDict_New());
  each_item(parser.get(), [&](PyObject* key, PyObject* value) {
    Ref m = re_call("match", "Virtual.+Information", key);
    if (m.get() != Py_None) set_item(sections.get(), key, value);
  });
  Ref merged = merge_output(sections.get(), nullptr, nullptr);
  return c.format_with(merged.get(), "get_one_virtual_drive_info_format");
}

Ref one_arcconf(Call& c) {
  Ref drives = c.method("_get_virtual_drive_list", c.params);
  Ref vid = c.p_get("vid");
  Ref found;
  each(drives.get(), [&](PyObject* entry) {
    if (found) return;
    Ref vd = get(entry, "vd");
    if (same(vd.get(), vid.get())) found = Ref::borrow(entry);
  });
  if (found) return found;
  raise_orvex(format("No such vid:%S or adapter_id!", vid.get()).get());
}

// storcli64 answers all drives at once: a drive's own table (/c<n>/v<m>)
// opens its group, its member and property tables follow it.
Ref all_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_vd_cfg_storcli64");
  Ref groups = Ref::steal(PyDict_New());
  Ref current;
  each_item(parser.get(), [&](PyObject* key, PyObject* value) {
    Ref opens = re_call("match", "/.*", key);
    if (opens.get() != Py_None) {
      Ref m = re_call("match", "/c(\\d+)/v(\\d+)", key);
      if (m.get() == Py_None) return;
      Ref two = integer(2);
      current = call_method(m.get(), "group", {two.get()});
      Ref group = Ref::steal(PyDict_New());
      set_item(group.get(), key, value);
      set_item(groups.get(), current.get(), group.get());
      return;
    }
    if (!current) return;
    Ref members = re_call("match", "PDs for VD.*", key);
    Ref properties = re_call("match", "VD.*Properties", key);
    if (members.get() == Py_None && properties.get() == Py_None) return;
    Ref group = index(groups.get(), current.get());
    set_item(group.get(), key, value);
  });
  Ref out = list();
  Ref values = call_method(groups.get(), "values");
  each(values.get(), [&](PyObject* group) {
    Ref details = details_storcli64(c, group);
    append(out.get(), details.get());
  });
  return out;
}

Ref all_arcconf(Call& c) { return c.method("_get_virtual_drive_list", c.params); }

// sorbctl has no bulk detail query: one detail request per listed drive.
Ref all_sorbctl(Call& c) {
  Ref drives = c.method("_get_virtual_drive_list", c.params);
  Ref out = list();
  each(drives.get(), [&](PyObject* entry) {
    Ref vd = index(entry, "vd");
    Ref kw = dict({{"vid", vd.get()}});
    update(kw.get(), c.params);
    Ref one = c.method("get_one_virtual_drive_info", kw.get());
    append(out.get(), one.get());
  });
  return out;
}

// --- member drives ------------------------------------------------------------

Ref member(PyObject* eid, PyObject* sid) { return dict({{"eid", eid}, {"sid", sid}}); }

Ref members_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_vd_cfg_storcli64");
  Ref vid = c.p_get("vid");
  Ref head = str("PDs for VD ");
  Ref key = concat({head.get(), to_str(vid.get()).get()});
  Ref rows = get(parser.get(), key.get());
  Ref out = list();
  Ref colon = str(":");
  each(rows.get(), [&](PyObject* row) {
    Ref address = index(row, "EID:Slt");
    Ref parts = call_method(address.get(), "split", {colon.get()});
    Ref eid = item(parts.get(), 0);
    Ref sid = item(parts.get(), 1);
    append(out.get(), member(eid.get(), sid.get()).get());
  });
  return out;
}

Ref members_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_vd_pdarray_sorbctl");
  if (equals(parser.get(), "fail")) raise_orvex("get virtual drive's member drives failed");
  Ref drives = index(parser.get(), "MemberDrives");
  Ref out = list();
  each(drives.get(), [&](PyObject* entry) {
    Ref eid = index(entry, "Enc");
    Ref sid = index(entry, "Slot");
    append(out.get(), member(eid.get(), sid.get()).get());
  });
  return out;
}

// arcconf lists a drive's segments (device_<n>, group_<g>,_segment_<s>) with
// their position text "... Channel:0, Device:1 ..."; a dedicated hot spare
// carries its position in the entry's name.  Members are channel/device.
Ref members_arcconf(Call& c) {
  Ref vid = c.p_get("vid");
  Ref vid_text = to_str(vid.get());
  Ref parser = c.parsed("ctr_get_vd_cfg_arcconf");
  Ref devices =
      PyDict_Check(parser.get()) ? get(parser.get(), "logical_device_information") : none();
  Ref head = str("logical_device_number_");
  Ref key = concat({head.get(), vid_text.get()});
  Ref drive = PyDict_Check(devices.get()) ? get(devices.get(), key.get()) : none();
  if (!PyDict_Check(drive.get())) {
    Ref head_missing = str("获取虚拟磁盘成员信息失败，未找到逻辑盘 ");
    raise_orvex(concat({head_missing.get(), vid_text.get()}).get());
  }
  Ref positions = list();
  Ref one = integer(1), two = integer(2), three = integer(3), four = integer(4);
  auto add = [&](PyObject* m) {
    Ref k1 = call_method(m, "group", {one.get()});
    Ref v1 = call_method(m, "group", {two.get()});
    Ref k2 = call_method(m, "group", {three.get()});
    Ref v2 = call_method(m, "group", {four.get()});
    Ref position = Ref::steal(PyDict_New());
    set_item(position.get(), k1.get(), v1.get());
    set_item(position.get(), k2.get(), v2.get());
    append(positions.get(), position.get());
  };
  each_item(drive.get(), [&](PyObject* name, PyObject* value) {
    Ref name_text = to_str(name);
    Ref segment = re_call("match", "(device_\\d+)|(group_*\\d+,_*segment_*\\d+)", name_text.get());
    if (segment.get() != Py_None) {
      Ref text = to_str(value);
      Ref m = re_call("search", "(Channel):(\\d+), (Device):(\\d+)", text.get());
      if (m.get() != Py_None) add(m.get());
      return;
    }
    Ref spare = re_call("match", "^Dedicated Hot-Spare.*(Channel):(\\d+), (Device):(\\d+)",
                        name_text.get());
    if (spare.get() != Py_None) add(spare.get());
  });
  if (PyObject_Size(positions.get()) == 0) {
    Ref head_empty = str("获取虚拟磁盘成员信息失败，逻辑盘 ");
    Ref tail_empty = str(" 没有可读取的成员盘");
    raise_orvex(concat({head_empty.get(), vid_text.get(), tail_empty.get()}).get());
  }
  Ref members = c.formatter_call("get_virtual_drive_member_drives_raid_format", {positions.get()});
  Ref head_ok = str("获取虚拟盘成员");
  Ref tail_ok = str("信息成功！");
  c.log_info(concat({head_ok.get(), vid_text.get(), tail_ok.get()}).get());
  return members;
}

}  // namespace

void add_vd_lifecycle_ops(OpList& ops) {
  ops.push_back(OpDef{
      "create_virtual_drive",
      "*, raid_level, drives, **kwargs",
      "创建逻辑盘（虚拟盘）。\n\n"
      "参数:\n"
      "    raid_level (str): RAID 级别，如 "
      "\"0\"、\"1\"、\"5\"、\"6\"、\"10\"、\"50\"、\"60\"（仅限关键字传入）。\n"
      "    drives (list): 成员硬盘编号列表（仅限关键字传入）。\n"
      "    name (str): 逻辑盘名称。\n"
      "    size (str): 容量，如 \"100GB\"、\"100MB\"、\"100TB\"；为空时不下发，由工具取最大容量。\n"
      "    strip_size (str): 条带大小。\n"
      "    pd_per_array (str): 每个子组（span）的硬盘数；arcconf 必须传入（可为空），"
      "RAID50/60 时换算为子组个数 legs 下发。\n"
      "    ssdiobypass (str): SSD IO bypass 开关。\n"
      "    init (str): 初始化方式，\"front\"（前台）或 \"background\"（后台）；arcconf 仅对 "
      "RAID5/6/50/60 下发（分别为 \"build\" 与 \"default\"），其他级别不下发。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    bool: 创建是否成功。",
      {checked(Tool::storcli64, "ctr_create_vd_storcli64"),
       checked(Tool::arcconf, "ctr_create_vd_arcconf", create_arcconf),
       checked(Tool::sorbctl, "create_controller_vd_sorbctl")},
      ResultType::any,
      nullptr,
      create_params});
  ops.push_back(OpDef{"delete_virtual_drive",
                      "*, vid, **kwargs",
                      "删除逻辑盘。\n\n"
                      "参数:\n"
                      "    vid (str): 逻辑盘编号，如 \"0\"（仅限关键字传入）。\n"
                      "    oper (str): 仅 storcli64 有效，\"cachecade\" 或 \"force\"。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 删除是否成功。",
                      {checked(Tool::storcli64, "ctr_delete_vd_storcli64"),
                       checked(Tool::arcconf, "delete_vd_arcconf"),
                       checked(Tool::sorbctl, "delete_controller_vd_sorbctl")}});
  ops.push_back(
      OpDef{"_get_virtual_drive_list",
            "**kwargs",
            "查询控制器下的逻辑盘列表（模块内部使用）。\n\n"
            "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    list: 每个逻辑盘一条记录，键为 array, vd, status, raid_level, name, size, "
            "strip_unit_size, write_cache, read_cache, raw_data（工具的原始记录）。",
            {shaped(Tool::storcli64, "ctr_get_all_cfg_storcli64", "VD LIST",
                    "get_virtual_drive_list_format"),
             custom(Tool::arcconf, list_arcconf),
             shaped(Tool::sorbctl, "get_controller_vdlist_sorbctl", "VirtualDrives",
                    "get_virtual_drive_list_format")}});
  ops.push_back(
      OpDef{"get_one_virtual_drive_info",
            "*, vid, **kwargs",
            "查询单个逻辑盘的详细信息。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号，如 \"0\"（仅限关键字传入）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    dict: vd, name, raid_level, status, write_cache, read_cache, size, strip_size, "
            "os_drive_name, vdwwn, raw_data；arcconf 返回逻辑盘列表中的对应记录。\n\n"
            "异常:\n    OrvexException: arcconf 下找不到该逻辑盘时抛出 \"No such vid:<vid> or "
            "adapter_id!\"。",
            {custom(Tool::storcli64, one_storcli64), custom(Tool::arcconf, one_arcconf),
             custom(Tool::sorbctl, one_sorbctl)}});
  ops.push_back(OpDef{"get_all_virtual_drive_info",
                      "**kwargs",
                      "查询控制器下所有逻辑盘的详细信息。\n\n"
                      "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n"
                      "    list: 每个逻辑盘一条详细记录（键同 "
                      "get_one_virtual_drive_info）；arcconf 返回逻辑盘列表记录。",
                      {custom(Tool::storcli64, all_storcli64), custom(Tool::arcconf, all_arcconf),
                       custom(Tool::sorbctl, all_sorbctl)}});
  ops.push_back(OpDef{
      "get_virtual_drive_member_drives",
      "*, vid, **kwargs",
      "查询逻辑盘的成员盘。\n\n"
      "参数:\n"
      "    vid (str): 逻辑盘编号，如 \"0\"（仅限关键字传入）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n"
      "    list: 成员盘列表，每项为 {\"eid\": enclosure（通道）编号, \"sid\": "
      "槽位（设备）编号}。\n\n"
      "异常:\n"
      "    OrvexException: sorbctl 查询失败时为 \"get virtual drive's member drives failed\"；"
      "arcconf 找不到逻辑盘或读不到成员盘时以 \"获取虚拟磁盘成员\" 开头。",
      {custom(Tool::storcli64, members_storcli64), custom(Tool::arcconf, members_arcconf),
       custom(Tool::sorbctl, members_sorbctl)}});
}

}  // namespace raid
