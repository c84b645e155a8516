// Physical drive list and details: the short list of a controller's drives,
// the detail record of one drive and the detail records of all drives.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

constexpr ParamDef kNoParams[] = {kwargs()};
constexpr ParamDef kDriveParams[] = {kw("eid"), kw("sid"), kwargs()};

const Framed kDetailedSection("Drive", "Detailed Information", "^Drive.*Detailed Information$");

// The drive's detail query and the formatter method that shapes the
// formatted record.
struct OneTexts {
  Wrapper query;
  Text shape;
};

// sorbctl (through host): the drive's sections flattened, then formatted
// and shaped.
Ref one_sorbctl(const Call& c, const OneTexts& t) {
  Ref parser = c.parsed(t.query);
  Ref flat = parser ? merge_output(parser.get(), nullptr, nullptr) : nullptr;
  Ref formatted = c.format(flat.get());
  if (!formatted) return nullptr;
  return c.formatter_call(t.shape.text, {formatted.get()});
}

// The same, with the formatter method that draws the layer map.
struct OneLayeredTexts {
  Wrapper query;
  Text layers;
  Text shape;
};

// storcli64 (through host): the drive's sections flattened by the layer map
// the formatter draws for this answer, then formatted and shaped.
Ref one_storcli64(const Call& c, const OneLayeredTexts& t) {
  Ref parser = c.parsed(t.query);
  if (!parser) return nullptr;
  Ref layers = c.formatter_call(t.layers.text, {parser.get()});
  Ref flat = layers ? merge_output(parser.get(), nullptr, layers.get()) : nullptr;
  Ref formatted = c.format(flat.get());
  if (!formatted) return nullptr;
  return c.formatter_call(t.shape.text, {formatted.get()});
}

// arcconf lists enclosure services devices among the drives: leave them out
// and keep each drive's key as its "eid:sid".
Ref list_arcconf(const Call& c, const Wrapper& query) {
  Ref parser = c.parsed(query);
  Ref devices = get(parser.get(), "physical_device_information");
  Ref records = list();
  if (!records) return nullptr;
  const int r = each_item(devices.get(), [&](PyObject* key, PyObject* record) {
    Ref type = get(record, "Type");
    const int enclosure = equal(type.get(), "Enclosure Services Device");
    if (enclosure != 0) return enclosure < 0 ? -1 : 0;
    Ref copy = dict();
    if (update(copy.get(), record) < 0 || set_item(copy.get(), "eid:sid", key) < 0) return -1;
    return append(records.get(), copy.get());
  });
  if (r < 0) return nullptr;
  Ref shaped = c.format(records.get());
  return c.formatter_call("get_physical_drive_list_format", {shaped.get()});
}

// storcli64 drive sections flattened by the formatter's layer map.
Ref treated_storcli64(const Call& c, PyObject* sections) {
  Ref layers = c.formatter_call("storcli64_get_one_physical_drive_treatments", {sections});
  if (!layers) return nullptr;
  return merge_output(sections, nullptr, layers.get());
}

// The refusal when the listing lacks the drive, and the listing.
struct NotFoundTexts {
  Message not_found;
  Operation all;
};

// arcconf answers one drive from the full listing of the first controller.
Ref one_arcconf(const Call& c, const NotFoundTexts& t) {
  PyObject* eid = c.arg(RAID_ARG(kDriveParams, "eid"));
  PyObject* sid = c.arg(RAID_ARG(kDriveParams, "sid"));
  Ref all = c.method(t.all);
  Ref found;
  const int r = each(all.get(), [&](PyObject* record) {
    Ref r_eid = get(record, "eid");
    const int same_eid = equal(r_eid.get(), eid);
    if (same_eid <= 0) return same_eid;
    Ref r_sid = get(record, "sid");
    const int same_sid = equal(r_sid.get(), sid);
    if (same_sid <= 0) return same_sid;
    found = Ref::borrow(record);
    return 1;
  });
  if (r < 0) return nullptr;
  if (found) return found;
  Ref eid_text = to_str(eid);
  Ref sid_text = to_str(sid);
  if (!eid_text || !sid_text) return nullptr;
  Ref message = c.message(t.not_found, {eid_text.get(), sid_text.get()});
  if (!message) return nullptr;
  return c.refuse(message.get());
}

// The short list of drives and the detail of one.
struct EachDriveTexts {
  Operation list;
  Operation one;
};

// sorbctl has no bulk detail query: one detail request per listed drive.
// The detail requests carry only eid and sid.
Ref all_sorbctl(const Call& c, const EachDriveTexts& t) {
  Ref drives = c.method(t.list, c.params);
  Ref out = list();
  if (!out) return nullptr;
  const int r = each(drives.get(), [&](PyObject* record) {
    Ref eid = index(record, "eid");
    Ref sid = index(record, "sid");
    if (!eid || !sid) return -1;
    Ref address = dict({{"eid", eid.get()}, {"sid", sid.get()}});
    if (!address) return -1;
    Ref one = c.method(t.one, address.get());
    return append(out.get(), one.get());
  });
  if (r < 0) return nullptr;
  return out;
}

// Each "Drive ... Detailed Information" section goes with its summary
// section, named by the part of its key before the dash.
Ref all_storcli64(const Call& c, const Wrapper& query) {
  if (c.p_set("eid", "all") < 0 || c.p_set("sid", "all") < 0) return nullptr;
  Ref parser = c.parsed(query);
  Ref out = list();
  if (!parser || !out) return nullptr;
  const int r = each_item(parser.get(), [&](PyObject* key, PyObject* value) {
    const int detailed = kDetailedSection.test(key);
    if (detailed <= 0) return detailed;
    Ref summary_key = head_before(key, '-');
    Ref summary = index(parser.get(), summary_key.get());
    Ref working = dict();
    if (!summary || set_item(working.get(), key, value) < 0 ||
        set_item(working.get(), summary_key.get(), summary.get()) < 0) {
      return -1;
    }
    Ref merged = treated_storcli64(c, working.get());
    return append(out.get(), merged.get());
  });
  if (r < 0) return nullptr;
  Ref shaped = c.format(out.get());
  return c.formatter_call("get_all_physical_drive_info_format", {shaped.get()});
}

// Enclosure records (those carrying enclosure_id) are not drives.
Ref all_arcconf(const Call& c, const Wrapper& query) {
  Ref parser = c.parsed(query);
  Ref groups = get(parser.get(), "physical_device_information");
  Ref group_list = call_method(groups.get(), "values");
  Ref enclosure = str("enclosure_id");
  Ref records = list();
  if (!enclosure || !records) return nullptr;
  const int r = each(group_list.get(), [&](PyObject* group) {
    Ref members = call_method(group, "values");
    return each(members.get(), [&](PyObject* record) {
      const int skip = contains(record, enclosure.get());
      if (skip != 0) return skip < 0 ? -1 : 0;
      return append(records.get(), record);
    });
  });
  if (r < 0) return nullptr;
  Ref shaped = c.format(records.get());
  return c.formatter_call("get_all_physical_drive_info_format", {shaped.get()});
}

}  // namespace

void add_pd_list_details_ops(OpList& ops) {
  static constexpr Wrapper kArcconfList{"ctr_get_cfg_arcconf"};
  ops.push_back(
      Op("_get_physical_drive_list")
          .params(kNoParams)
          .extras({kAdapterId})
          .doc("查询控制器下的物理盘简要列表（模块内部使用，暂不对外开放）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    list: 每块硬盘一条记录，键为 eid, sid, did, interface（如 \"SATA\"）, "
               "media（如 \"HDD\"）, type（如 \"member\"）, status（如 \"online\"）, "
               "size（如 \"5.458TB\"）, model, raw_data（工具的原始记录）。")
          .returns(ResultType::list)
          .variant_name("get_physical_drive_list_raid")
          .variants({query(Tool::sorbctl, "get_controller_pdlist_sorbctl").get("Drives").format(),
                     query(Tool::storcli64, "ctr_get_all_cfg_storcli64")
                         .get("PD LIST")
                         .format()
                         .post("get_physical_drive_list_format"),
                     custom<list_arcconf, kArcconfList>(Tool::arcconf)}));
  static constexpr OneLayeredTexts kStorcliOne{{"ctr_get_pd_cfg_storcli64", Route::host},
                                               {"storcli64_get_one_physical_drive_treatments"},
                                               {"get_one_physical_drive_info_format"}};
  static constexpr NotFoundTexts kArcconfOne{{"Physical drive not found. eid: [{}], sid: [{}]"},
                                             {"get_all_physical_drive_info"}};
  static constexpr OneTexts kSorbctlOne{{"get_controller_pd_info_sorbctl", Route::host},
                                        {"get_one_physical_drive_info_format"}};
  ops.push_back(
      Op("get_one_physical_drive_info")
          .params(kDriveParams)
          .extras({kAdapterId})
          .doc("查询单块物理盘的详细信息。\n\n"
               "参数:\n"
               "    eid (str): 硬盘所在的 enclosure（通道）编号，如 \"65\"（仅限关键字传入）。\n"
               "    sid (str): 硬盘的槽位（设备）编号，如 \"0\"（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器；arcconf "
               "总是在第一个控制器中查找。\n\n"
               "返回:\n"
               "    dict: eid, sid, did, slot, interface, media, link_speed（如 \"6.0G\"）, size, "
               "spin_status（如 \"Spin Up\"）, model, type, status, sas_address, disk_name（如 "
               "\"NA\"）, serial_number, firmware_version, logical_sector_size（如 \"512B\"）, "
               "physical_sector_size（如 \"4096B\"）, write_cache（如 \"Off\"）, raw_data。\n\n"
               "异常:\n    OrvexException: arcconf 下找不到该硬盘时抛出。")
          .returns(ResultType::dict)
          .variant_name("get_one_physical_drive_info_raid")
          .variants({custom<one_storcli64, kStorcliOne>(Tool::storcli64),
                     custom<one_arcconf, kArcconfOne>(Tool::arcconf)
                         .note("adapter_id", ExtraUse::ignores, "总是在第一个控制器的硬盘中查找"),
                     custom<one_sorbctl, kSorbctlOne>(Tool::sorbctl)}));
  static constexpr EachDriveTexts kSorbctlAll{{"_get_physical_drive_list"},
                                              {"get_one_physical_drive_info"}};
  static constexpr Wrapper kStorcliAll{"ctr_get_pd_cfg_storcli64", Route::host};
  static constexpr Wrapper kArcconfAll{"ctr_get_pd_cfg_arcconf", Route::host};
  ops.push_back(
      Op("get_all_physical_drive_info")
          .params(kNoParams)
          .extras({kAdapterId})
          .doc("查询控制器下所有物理盘的详细信息。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    list: 每块硬盘一条详细记录，键与 get_one_physical_drive_info 的结果相同"
               "（eid, sid, did, slot, interface, media, link_speed, size, spin_status, model, "
               "type, status, sas_address, disk_name, serial_number, firmware_version, "
               "logical_sector_size, physical_sector_size, write_cache, raw_data）。")
          .returns(ResultType::list)
          .variant_name("get_all_physical_drive_info_raid")
          .variants(
              {custom<all_sorbctl, kSorbctlAll>(Tool::sorbctl)
                   .note("adapter_id", ExtraUse::ignores, "逐盘查询详细信息时不传 adapter_id"),
               custom<all_storcli64, kStorcliAll>(Tool::storcli64),
               custom<all_arcconf, kArcconfAll>(Tool::arcconf)}));
}

}  // namespace raid
