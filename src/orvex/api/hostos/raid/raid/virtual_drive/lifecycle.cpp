// Virtual drive creation, deletion and listing: the list of a controller's
// virtual drives, the details of one or all of them and their member drives.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

// storcli64 tables: a drive's own table (/c<n>/v<m>), its properties and its
// member drives.
const Regex kAnyTable("/.*");
const Regex kDriveTable("/c(\\d+)/v(\\d+)");
const Regex kProperties("VD.*Properties");
const Regex kMembers("PDs for VD.*");
// sorbctl detail sections.
const Regex kInformation("Virtual.+Information");
// arcconf: entries naming a member device or a group segment, the position
// text of such an entry, and a dedicated hot spare with its position.
const Regex kSegment("(device_\\d+)|(group_*\\d+,_*segment_*\\d+)");
const Regex kPosition("(Channel):(\\d+), (Device):(\\d+)");
const Regex kDedicatedSpare("^Dedicated Hot-Spare.*(Channel):(\\d+), (Device):(\\d+)");

// 1 when v equals one of the texts, 0 when none, -1 on error.
int is_one_of(PyObject* v, std::initializer_list<const char*> texts) {
  for (const char* t : texts) {
    const int r = equal(v, t);
    if (r != 0) return r;
  }
  return 0;
}

// OrvexException(the message with vid in its place).
Ref refuse_about(const Call& c, const Message& m, PyObject* vid) {
  Ref message = c.message(m, {vid});
  return message ? c.refuse(message.get()) : nullptr;
}

// --- create ----------------------------------------------------------------

constexpr ParamDef kCreateParams[] = {kw("raid_level"), kw("drives").typed("list"), kwargs()};

// params: raid_level, drives, then the keywords; an empty size is dropped so
// that the tool takes the largest size it can.
Ref create_params(PyObject* const* args, PyObject* extra) {
  Ref params = dict({{"raid_level", args[RAID_ARG(kCreateParams, "raid_level")]},
                     {"drives", args[RAID_ARG(kCreateParams, "drives")]}});
  if (!params || (extra != nullptr && update(params.get(), extra) < 0)) return nullptr;
  PyObject* size = PyDict_GetItemString(params.get(), "size");  // borrowed
  if (size == nullptr) return params;
  const int given = truthy(size);
  if (given < 0 || (given == 0 && PyDict_DelItemString(params.get(), "size") < 0)) return nullptr;
  return params;
}

// arcconf counts spans (legs) instead of drives per span, and only knows an
// initialisation method for the parity levels.
int create_arcconf(const Call& c) {
  Ref level = index(c.params, "raid_level");
  Ref per_array = index(c.params, "pd_per_array");
  if (!level || !per_array) return -1;
  int spans = truthy(per_array.get());
  if (spans == 1) spans = is_one_of(level.get(), {"50", "60"});
  if (spans < 0) return -1;
  if (spans == 1) {
    if (!c.p_pop("pd_per_array")) return -1;
    Ref drives = index(c.params, "drives");
    if (!drives) return -1;
    const Py_ssize_t count = PyObject_Size(drives.get());
    if (count < 0) return -1;
    Ref total = integer(static_cast<long>(count));
    Ref per = Ref::steal(PyNumber_Long(per_array.get()));
    if (!total || !per) return -1;
    Ref legs = Ref::steal(PyNumber_FloorDivide(total.get(), per.get()));
    Ref text = to_str(legs.get());
    if (c.p_set("legs", text.get()) < 0) return -1;
  }
  Ref init = c.p_get("init");
  const int given = truthy(init.get());
  if (given <= 0) return given;
  const int parity = is_one_of(level.get(), {"5", "6", "50", "60"});
  if (parity <= 0) return parity < 0 ? -1 : c.p_del_if("init");
  Ref method = lookup(init.get(), {{"front", "build"}, {"background", "default"}}, Missing::none);
  return c.p_set("init", method.get());
}

// --- list --------------------------------------------------------------------

// arcconf keys each drive as logical_device_number_<n>; the number becomes
// the entry's vd.
Ref list_arcconf(const Call& c, const Formatted& t) {
  Ref parser = c.parsed(t.query);
  Ref devices = get(parser.get(), "logical_device_information");
  Ref records = list();
  Ref sep = str("_");
  if (!devices || !records || !sep) return nullptr;
  const int r = each_item(devices.get(), [&](PyObject* key, PyObject* value) {
    Ref parts = call_method(key, "split", {sep.get()});
    Ref number = item(parts.get(), 3);
    if (!number || set_item(value, "vd", number.get()) < 0) return -1;
    return append(records.get(), value);
  });
  if (r < 0) return nullptr;
  return c.format_with(records.get(), t.format_name);
}

// --- details -------------------------------------------------------------------

// One drive's storcli64 sections -> the details record.  The formatter
// regroups the sections; the drive's own table contributes its first row,
// the property table its entries, and the member table is kept whole.
Ref details_storcli64(const Call& c, const Text& format_name, PyObject* sections) {
  Ref treated = c.formatter_call("storcli64_get_one_virtual_drive_treatments", {sections});
  if (!treated) return nullptr;
  Ref wrapped = dict({{"vd_info", treated.get()}});
  Ref structure = dict();
  Ref prefix = str("vd_info//");
  Ref first_row = str("//$0");
  if (!wrapped || !structure || !prefix || !first_row) return nullptr;
  const int r = each_item(treated.get(), [&](PyObject* key, PyObject*) {
    Ref path = concat({prefix.get(), key});
    Ref drive_table = kDriveTable.match(key);
    Ref properties = kProperties.match(key);
    if (!path || !drive_table || !properties) return -1;
    if (drive_table.get() != Py_None) {
      Ref row = concat({path.get(), first_row.get()});
      return row ? set_item(structure.get(), row.get(), Py_True) : -1;
    }
    return set_item(structure.get(), path.get(), properties.get() != Py_None ? Py_True : Py_False);
  });
  if (r < 0) return nullptr;
  Ref merged = merge_output(wrapped.get(), nullptr, structure.get());
  if (!merged) return nullptr;
  return c.format_with(merged.get(), format_name);
}

Ref one_storcli64(const Call& c, const Formatted& t) {
  Ref parser = c.parsed(t.query);
  return parser ? details_storcli64(c, t.format_name, parser.get()) : nullptr;
}

Ref one_sorbctl(const Call& c, const Formatted& t) {
  Ref parser = c.parsed(t.query);
  Ref sections = dict();
  if (!parser || !sections) return nullptr;
  const int r = each_item(parser.get(), [&](PyObject* key, PyObject* value) {
    Ref m = kInformation.match(key);
    if (!m) return -1;
    return m.get() == Py_None ? 0 : set_item(sections.get(), key, value);
  });
  if (r < 0) return nullptr;
  Ref merged = merge_output(sections.get(), nullptr, nullptr);
  if (!merged) return nullptr;
  return c.format_with(merged.get(), t.format_name);
}

// arcconf's listing holds the drive's record; a vid it lacks is refused.
struct ListedTexts {
  Operation listing;
  Message not_listed;
};

Ref one_arcconf(const Call& c, const ListedTexts& t) {
  Ref drives = c.method(t.listing, c.params);
  Ref vid = c.p_get("vid");
  if (!drives || !vid) return nullptr;
  Ref found;
  const int r = each(drives.get(), [&](PyObject* entry) {
    Ref vd = get(entry, "vd");
    const int hit = equal(vd.get(), vid.get());
    if (hit == 1) found = Ref::borrow(entry);
    return hit;
  });
  if (r < 0) return nullptr;
  if (found) return found;
  Ref vid_text = to_str(vid.get());
  if (!vid_text) return nullptr;
  return refuse_about(c, t.not_listed, vid_text.get());
}

// storcli64 answers all drives at once: a drive's own table (/c<n>/v<m>)
// opens its group, its member and property tables follow it.
Ref all_storcli64(const Call& c, const Formatted& t) {
  Ref parser = c.parsed(t.query);
  Ref groups = dict();
  Ref two = integer(2);
  if (!parser || !groups || !two) return nullptr;
  Ref current;
  const int r = each_item(parser.get(), [&](PyObject* key, PyObject* value) {
    Ref opens = kAnyTable.match(key);
    if (!opens) return -1;
    if (opens.get() != Py_None) {
      Ref m = kDriveTable.match(key);
      if (!m) return -1;
      if (m.get() == Py_None) return 0;
      current = call_method(m.get(), "group", {two.get()});
      Ref group = dict();
      if (!current || set_item(group.get(), key, value) < 0) return -1;
      return set_item(groups.get(), current.get(), group.get());
    }
    if (!current) return 0;
    Ref members = kMembers.match(key);
    Ref properties = kProperties.match(key);
    if (!members || !properties) return -1;
    if (members.get() == Py_None && properties.get() == Py_None) return 0;
    Ref group = index(groups.get(), current.get());
    return set_item(group.get(), key, value);
  });
  if (r < 0) return nullptr;
  Ref out = list();
  Ref values = call_method(groups.get(), "values");
  if (!out) return nullptr;
  if (each(values.get(), [&](PyObject* group) {
        Ref details = details_storcli64(c, t.format_name, group);
        return details ? append(out.get(), details.get()) : -1;
      }) < 0) {
    return nullptr;
  }
  return out;
}

// arcconf's listing already holds every detail it reports: the list is the answer.
Ref all_arcconf(const Call& c, const Operation& listing) { return c.method(listing, c.params); }

// sorbctl has no bulk detail query: one detail request per listed drive.
struct EachDriveTexts {
  Operation listing;
  Operation details;
};

Ref all_sorbctl(const Call& c, const EachDriveTexts& t) {
  Ref drives = c.method(t.listing, c.params);
  Ref out = list();
  if (!drives || !out) return nullptr;
  if (each(drives.get(), [&](PyObject* entry) {
        Ref vd = index(entry, "vd");
        if (!vd) return -1;
        Ref kw = dict({{"vid", vd.get()}});
        if (!kw || update(kw.get(), c.params) < 0) return -1;
        Ref one = c.method(t.details, kw.get());
        return one ? append(out.get(), one.get()) : -1;
      }) < 0) {
    return nullptr;
  }
  return out;
}

// --- member drives ------------------------------------------------------------

// Appends {"eid": eid, "sid": sid} to out.
int add_member(PyObject* out, PyObject* eid, PyObject* sid) {
  if (eid == nullptr || sid == nullptr) return -1;
  Ref member = dict({{"eid", eid}, {"sid", sid}});
  return member ? append(out, member.get()) : -1;
}

Ref members_storcli64(const Call& c, const Wrapper& query) {
  Ref parser = c.parsed(query);
  Ref vid = c.p_get("vid");
  Ref vid_text = to_str(vid.get());
  Ref head = str("PDs for VD ");
  if (!parser || !vid_text || !head) return nullptr;
  Ref key = concat({head.get(), vid_text.get()});
  Ref rows = get(parser.get(), key.get());
  Ref out = list();
  Ref colon = str(":");
  if (!rows || !out || !colon) return nullptr;
  if (each(rows.get(), [&](PyObject* row) {
        Ref address = index(row, "EID:Slt");
        Ref parts = call_method(address.get(), "split", {colon.get()});
        Ref eid = item(parts.get(), 0);
        Ref sid = item(parts.get(), 1);
        return add_member(out.get(), eid.get(), sid.get());
      }) < 0) {
    return nullptr;
  }
  return out;
}

// The query and the refusal when the tool answers "fail".
struct MembersTexts {
  Wrapper query;
  Message failed;
};

Ref members_sorbctl(const Call& c, const MembersTexts& t) {
  Ref parser = c.parsed(t.query);
  const int failed = equal(parser.get(), "fail");
  if (failed < 0) return nullptr;
  if (failed == 1) return c.refuse(t.failed);
  Ref drives = index(parser.get(), "MemberDrives");
  Ref out = list();
  if (!drives || !out) return nullptr;
  if (each(drives.get(), [&](PyObject* entry) {
        Ref eid = index(entry, "Enc");
        Ref sid = index(entry, "Slot");
        return add_member(out.get(), eid.get(), sid.get());
      }) < 0) {
    return nullptr;
  }
  return out;
}

// arcconf lists a drive's segments (device_<n>, group_<g>,_segment_<s>) with
// their position text "... Channel:0, Device:1 ..."; a dedicated hot spare
// carries its position in the entry's name.  Members are channel/device.
// The refusals and the log line take the vid.
struct ArcconfMembersTexts {
  Wrapper query;
  Message not_found;
  Message no_members;
  Text found;
};

Ref members_arcconf(const Call& c, const ArcconfMembersTexts& t) {
  Ref vid = c.p_get("vid");
  Ref vid_text = to_str(vid.get());
  Ref parser = c.parsed(t.query);
  if (!vid_text || !parser) return nullptr;
  Ref devices =
      PyDict_Check(parser.get()) ? get(parser.get(), "logical_device_information") : none();
  Ref head = str("logical_device_number_");
  if (!devices || !head) return nullptr;
  Ref key = concat({head.get(), vid_text.get()});
  if (!key) return nullptr;
  Ref drive = PyDict_Check(devices.get()) ? get(devices.get(), key.get()) : none();
  if (!drive) return nullptr;
  if (!PyDict_Check(drive.get())) {
    return refuse_about(c, t.not_found, vid_text.get());
  }
  Ref positions = list();
  Ref one = integer(1);
  Ref two = integer(2);
  Ref three = integer(3);
  Ref four = integer(4);
  if (!positions || !one || !two || !three || !four) return nullptr;
  // {group 1: group 2, group 3: group 4} of a position match.
  auto add = [&](PyObject* m) {
    Ref k1 = call_method(m, "group", {one.get()});
    Ref v1 = call_method(m, "group", {two.get()});
    Ref k2 = call_method(m, "group", {three.get()});
    Ref v2 = call_method(m, "group", {four.get()});
    Ref position = dict();
    if (!k1 || !v1 || !k2 || !v2 || !position) return -1;
    if (set_item(position.get(), k1.get(), v1.get()) < 0 ||
        set_item(position.get(), k2.get(), v2.get()) < 0) {
      return -1;
    }
    return append(positions.get(), position.get());
  };
  const int r = each_item(drive.get(), [&](PyObject* name, PyObject* value) {
    Ref name_text = to_str(name);
    if (!name_text) return -1;
    Ref segment = kSegment.match(name_text.get());
    if (!segment) return -1;
    if (segment.get() != Py_None) {
      Ref text = to_str(value);
      Ref m = kPosition.search(text.get());
      if (!m) return -1;
      return m.get() != Py_None ? add(m.get()) : 0;
    }
    Ref spare = kDedicatedSpare.match(name_text.get());
    if (!spare) return -1;
    return spare.get() != Py_None ? add(spare.get()) : 0;
  });
  if (r < 0) return nullptr;
  if (PyObject_Size(positions.get()) == 0) {
    return refuse_about(c, t.no_members, vid_text.get());
  }
  Ref members = c.formatter_call("get_virtual_drive_member_drives_raid_format", {positions.get()});
  if (!members) return nullptr;
  Ref logged = c.message(t.found, {vid_text.get()});
  if (!logged || c.log_info(logged.get()) < 0) return nullptr;
  return members;
}

constexpr ParamDef kVidParams[] = {kw("vid"), kwargs()};
constexpr ParamDef kAdapterParams[] = {kwargs()};

}  // namespace

void add_vd_lifecycle_ops(OpList& ops) {
  ops.push_back(
      Op("create_virtual_drive")
          .params(kCreateParams)
          .extras({extra("name"), extra("size"), extra("strip_size"), extra("pd_per_array"),
                   extra("ssdiobypass"), extra("init"), kAdapterId})
          .doc(
              "创建逻辑盘（虚拟盘）。\n\n"
              "参数:\n"
              "    raid_level (str): RAID 级别，如 "
              "\"0\"、\"1\"、\"5\"、\"6\"、\"10\"、\"50\"、\"60\"（仅限关键字传入）。\n"
              "    drives (list): 成员硬盘编号列表（仅限关键字传入）。\n"
              "    name (str): 逻辑盘名称。\n"
              "    size (str): 容量，如 \"100GB\"、\"100MB\"、\"100TB\"；为空时不下发，由工具取最大"
              "容量。\n"
              "    strip_size (str): 条带大小。\n"
              "    pd_per_array (str): 每个子组（span）的硬盘数；arcconf 必须传入（可为空），"
              "RAID50/60 时换算为子组个数 legs 下发。\n"
              "    ssdiobypass (str): SSD IO bypass 开关。\n"
              "    init (str): 初始化方式，\"front\"（前台）或 \"background\"（后台）；arcconf "
              "仅对 "
              "RAID5/6/50/60 下发（分别为 \"build\" 与 \"default\"），其他级别不下发。\n"
              "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
              "返回:\n    bool: 创建是否成功。")
          .returns_doc("bool")
          .build(create_params)
          .variants({checked(Tool::storcli64, "ctr_create_vd_storcli64"),
                     checked(Tool::arcconf, "ctr_create_vd_arcconf").prep(create_arcconf),
                     checked(Tool::sorbctl, "create_controller_vd_sorbctl")}));
  ops.push_back(Op("delete_virtual_drive")
                    .params(kVidParams)
                    .extras({extra("oper"), kAdapterId})
                    .doc("删除逻辑盘。\n\n"
                         "参数:\n"
                         "    vid (str): 逻辑盘编号，如 \"0\"（仅限关键字传入）。\n"
                         "    oper (str): 仅 storcli64 有效，\"cachecade\" 或 \"force\"。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 删除是否成功。")
                    .returns_doc("bool")
                    .variants({checked(Tool::storcli64, "ctr_delete_vd_storcli64"),
                               checked(Tool::arcconf, "delete_vd_arcconf"),
                               checked(Tool::sorbctl, "delete_controller_vd_sorbctl")}));
  static constexpr Formatted kArcconfList{{"ctr_get_vd_cfg_arcconf"},
                                          {"get_virtual_drive_list_format"}};
  ops.push_back(
      Op("_get_virtual_drive_list")
          .params(kAdapterParams)
          .extras({kAdapterId})
          .doc("查询控制器下的逻辑盘列表（模块内部使用）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    list: 每个逻辑盘一条记录，键为 array, vd, status, raid_level, name, size, "
               "strip_unit_size, write_cache, read_cache, raw_data（工具的原始记录）。")
          .returns_doc("list")
          .variants({query(Tool::storcli64, "ctr_get_all_cfg_storcli64")
                         .get("VD LIST")
                         .format("get_virtual_drive_list_format"),
                     custom<list_arcconf, kArcconfList>(Tool::arcconf),
                     query(Tool::sorbctl, "get_controller_vdlist_sorbctl")
                         .get("VirtualDrives")
                         .format("get_virtual_drive_list_format")}));
  static constexpr Formatted kStorcliDetails{{"ctr_get_vd_cfg_storcli64"},
                                             {"get_one_virtual_drive_info_format"}};
  static constexpr ListedTexts kArcconfListed{{"_get_virtual_drive_list"},
                                              {"No such vid:{} or adapter_id!"}};
  static constexpr Formatted kSorbctlDetails{{"get_controller_vd_info_sorbctl"},
                                             {"get_one_virtual_drive_info_format"}};
  ops.push_back(
      Op("get_one_virtual_drive_info")
          .params(kVidParams)
          .extras({kAdapterId})
          .doc("查询单个逻辑盘的详细信息。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号，如 \"0\"（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict: vd, name, raid_level, status, write_cache, read_cache, size, strip_size, "
               "os_drive_name, vdwwn, raw_data；arcconf 返回逻辑盘列表中的对应记录。\n\n"
               "异常:\n    OrvexException: arcconf 下找不到该逻辑盘时抛出 \"No such vid:<vid> or "
               "adapter_id!\"。")
          .returns_doc("dict")
          .variants({custom<one_storcli64, kStorcliDetails>(Tool::storcli64),
                     custom<one_arcconf, kArcconfListed>(Tool::arcconf),
                     custom<one_sorbctl, kSorbctlDetails>(Tool::sorbctl)}));
  static constexpr Operation kDriveList{"_get_virtual_drive_list"};
  static constexpr EachDriveTexts kEachDrive{{"_get_virtual_drive_list"},
                                             {"get_one_virtual_drive_info"}};
  ops.push_back(Op("get_all_virtual_drive_info")
                    .params(kAdapterParams)
                    .extras({kAdapterId})
                    .doc("查询控制器下所有逻辑盘的详细信息。\n\n"
                         "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n"
                         "    list: 每个逻辑盘一条详细记录（键同 "
                         "get_one_virtual_drive_info）；arcconf 返回逻辑盘列表记录。")
                    .returns_doc("list")
                    .variants({custom<all_storcli64, kStorcliDetails>(Tool::storcli64),
                               custom<all_arcconf, kDriveList>(Tool::arcconf),
                               custom<all_sorbctl, kEachDrive>(Tool::sorbctl)}));
  static constexpr Wrapper kStorcliMembers{"ctr_get_vd_cfg_storcli64"};
  static constexpr ArcconfMembersTexts kArcconfMembers{
      {"ctr_get_vd_cfg_arcconf"},
      {"获取虚拟磁盘成员信息失败，未找到逻辑盘 {}"},
      {"获取虚拟磁盘成员信息失败，逻辑盘 {} 没有可读取的成员盘"},
      {"获取虚拟盘成员{}信息成功！"}};
  static constexpr MembersTexts kSorbctlMembers{{"get_controller_vd_pdarray_sorbctl"},
                                                {"get virtual drive's member drives failed"}};
  ops.push_back(
      Op("get_virtual_drive_member_drives")
          .params(kVidParams)
          .extras({kAdapterId})
          .doc("查询逻辑盘的成员盘。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号，如 \"0\"（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    list: 成员盘列表，每项为 {\"eid\": enclosure（通道）编号, \"sid\": "
               "槽位（设备）编号}。\n\n"
               "异常:\n"
               "    OrvexException: sorbctl 查询失败时为 \"get virtual drive's member drives "
               "failed\"；arcconf 找不到逻辑盘或读不到成员盘时以 \"获取虚拟磁盘成员\" 开头。")
          .returns_doc("list")
          .variants({custom<members_storcli64, kStorcliMembers>(Tool::storcli64),
                     custom<members_arcconf, kArcconfMembers>(Tool::arcconf),
                     custom<members_sorbctl, kSorbctlMembers>(Tool::sorbctl)}));
}

}  // namespace raid
