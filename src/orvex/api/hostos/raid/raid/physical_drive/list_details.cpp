// Physical drive list and details: the short list of a controller's drives,
// the detail record of one drive and the detail records of all drives.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

// --- short list ------------------------------------------------------------

Ref list_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_pdlist_sorbctl");
  Ref drives = get(parser.get(), "Drives");
  return c.format(drives.get());
}

Ref list_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_all_cfg_storcli64");
  Ref drives = get(parser.get(), "PD LIST");
  Ref shaped = c.format(drives.get());
  return c.formatter_call("get_physical_drive_list_format", {shaped.get()});
}

Ref list_arcconf(Call& c) {
  Ref parser = c.parsed("ctr_get_cfg_arcconf");
  Ref devices = get(parser.get(), "physical_device_information");
  Ref records = list();
  each(call_method(devices.get(), "items").get(), [&](PyObject* pair) {
    Ref key = item(pair, 0);
    Ref record = item(pair, 1);
    Ref type = get(record.get(), "Type");
    if (equals(type.get(), "Enclosure Services Device")) return;
    Ref copy = Ref::steal(PyDict_New());
    update(copy.get(), record.get());
    set_item(copy.get(), "eid:sid", key.get());
    append(records.get(), copy.get());
  });
  Ref shaped = c.format(records.get());
  return c.formatter_call("get_physical_drive_list_format", {shaped.get()});
}

// --- one drive -------------------------------------------------------------

Ref one_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_pd_cfg_storcli64", Route::host);
  Ref layers = c.formatter_call("storcli64_get_one_physical_drive_treatments", {parser.get()});
  Ref merged = merge_output(parser.get(), nullptr, layers.get());
  Ref shaped = c.format(merged.get());
  return c.formatter_call("get_one_physical_drive_info_format", {shaped.get()});
}

// arcconf answers one drive from the full listing of the first controller.
Ref one_arcconf(Call& c) {
  Ref all = c.method("get_all_physical_drive_info");
  Ref eid = c.p_get("eid");
  Ref sid = c.p_get("sid");
  Ref it = Ref::steal(PyObject_GetIter(all.get()));
  for (;;) {
    Ref record = Ref::steal_or_null(PyIter_Next(it.get()));
    if (!record) {
      if (PyErr_Occurred()) fail();
      break;
    }
    Ref r_eid = get(record.get(), "eid");
    Ref r_sid = get(record.get(), "sid");
    if (same(r_eid.get(), eid.get()) && same(r_sid.get(), sid.get())) return record;
  }
  Ref message = format("Physical drive not found. eid: [%S], sid: [%S]", eid.get(), sid.get());
  raise_orvex(message.get());
}

Ref one_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_pd_info_sorbctl", Route::host);
  Ref merged = merge_output(parser.get(), nullptr, nullptr);
  Ref shaped = c.format(merged.get());
  return c.formatter_call("get_one_physical_drive_info_format", {shaped.get()});
}

// --- all drives ------------------------------------------------------------

// sorbctl has no bulk detail query: one detail request per listed drive.
// The detail requests carry only eid and sid.
Ref all_sorbctl(Call& c) {
  Ref drives = c.method("_get_physical_drive_list", c.params);
  Ref out = list();
  Ref it = Ref::steal(PyObject_GetIter(drives.get()));
  for (;;) {
    Ref record = Ref::steal_or_null(PyIter_Next(it.get()));
    if (!record) {
      if (PyErr_Occurred()) fail();
      break;
    }
    Ref eid = index(record.get(), "eid");
    Ref sid = index(record.get(), "sid");
    Ref kw = dict({{"eid", eid.get()}, {"sid", sid.get()}});
    Ref one = c.method("get_one_physical_drive_info", kw.get());
    append(out.get(), one.get());
  }
  return out;
}

Ref all_storcli64(Call& c) {
  c.p_set("eid", "all");
  c.p_set("sid", "all");
  Ref parser = c.parsed("ctr_get_pd_cfg_storcli64", Route::host);
  Ref re = Ref::steal(PyImport_ImportModule("re"));
  Ref pattern = str("^Drive.*Detailed Information$");
  Ref dash = str("-");
  Ref out = list();
  each(call_method(parser.get(), "items").get(), [&](PyObject* pair) {
    Ref key = item(pair, 0);
    Ref value = item(pair, 1);
    Ref match = call_method(re.get(), "match", {pattern.get(), key.get()});
    if (match.get() == Py_None) return;
    Ref working = Ref::steal(PyDict_New());
    set_item(working.get(), key.get(), value.get());
    Ref parts = call_method(key.get(), "split", {dash.get()});
    Ref head = item(parts.get(), 0);
    Ref summary_key = call_method(head.get(), "strip");
    Ref summary = index(parser.get(), summary_key.get());
    set_item(working.get(), summary_key.get(), summary.get());
    Ref layers = c.formatter_call("storcli64_get_one_physical_drive_treatments", {working.get()});
    Ref merged = merge_output(working.get(), nullptr, layers.get());
    append(out.get(), merged.get());
  });
  Ref shaped = c.format(out.get());
  return c.formatter_call("get_all_physical_drive_info_format", {shaped.get()});
}

// Enclosure records (those carrying enclosure_id) are not drives.
Ref all_arcconf(Call& c) {
  Ref parser = c.parsed("ctr_get_pd_cfg_arcconf", Route::host);
  Ref groups = get(parser.get(), "physical_device_information");
  Ref records = list();
  Ref enclosure = str("enclosure_id");
  each(call_method(groups.get(), "values").get(), [&](PyObject* group) {
    each(call_method(group, "values").get(), [&](PyObject* record) {
      if (contains(record, enclosure.get())) return;
      append(records.get(), record);
    });
  });
  Ref shaped = c.format(records.get());
  return c.formatter_call("get_all_physical_drive_info_format", {shaped.get()});
}

}  // namespace

void add_pd_list_details_ops(OpList& ops) {
  ops.push_back(OpDef{"_get_physical_drive_list",
                      "**kwargs",
                      "查询控制器下的物理盘简要列表（模块内部使用，暂不对外开放）。\n\n"
                      "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n"
                      "    list: 每块硬盘一条记录，键为 eid, sid, did, interface（如 \"SATA\"）, "
                      "media（如 \"HDD\"）, type（如 \"member\"）, status（如 \"online\"）, "
                      "size（如 \"5.458TB\"）, model, raw_data（工具的原始记录）。",
                      {custom(Tool::sorbctl, list_sorbctl), custom(Tool::storcli64, list_storcli64),
                       custom(Tool::arcconf, list_arcconf)},
                      ResultType::list,
                      "get_physical_drive_list_raid"});
  ops.push_back(OpDef{
      "get_one_physical_drive_info",
      "*, eid, sid, **kwargs",
      "查询单块物理盘的详细信息。\n\n"
      "参数:\n"
      "    eid (str): 硬盘所在的 enclosure（通道）编号，如 \"65\"（仅限关键字传入）。\n"
      "    sid (str): 硬盘的槽位（设备）编号，如 \"0\"（仅限关键字传入）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器；arcconf 总是在第一个控制器中查找。\n\n"
      "返回:\n"
      "    dict: eid, sid, did, slot, interface, media, link_speed（如 \"6.0G\"）, size, "
      "spin_status（如 \"Spin Up\"）, model, type, status, sas_address, disk_name（如 \"NA\"）, "
      "serial_number, firmware_version, logical_sector_size（如 \"512B\"）, "
      "physical_sector_size（如 \"4096B\"）, write_cache（如 \"Off\"）, raw_data。\n\n"
      "异常:\n    OrvexException: arcconf 下找不到该硬盘时抛出。",
      {custom(Tool::storcli64, one_storcli64), custom(Tool::arcconf, one_arcconf),
       custom(Tool::sorbctl, one_sorbctl)},
      ResultType::dict,
      "get_one_physical_drive_info_raid"});
  ops.push_back(
      OpDef{"get_all_physical_drive_info",
            "**kwargs",
            "查询控制器下所有物理盘的详细信息。\n\n"
            "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    list: 每块硬盘一条详细记录，键与 get_one_physical_drive_info 的结果相同"
            "（eid, sid, did, slot, interface, media, link_speed, size, spin_status, model, type, "
            "status, sas_address, disk_name, serial_number, firmware_version, logical_sector_size, "
            "physical_sector_size, write_cache, raw_data）。",
            {custom(Tool::sorbctl, all_sorbctl), custom(Tool::storcli64, all_storcli64),
             custom(Tool::arcconf, all_arcconf)},
            ResultType::list,
            "get_all_physical_drive_info_raid"});
}

}  // namespace raid
