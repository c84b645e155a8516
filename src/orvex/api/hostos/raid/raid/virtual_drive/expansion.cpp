// Virtual drive expansion and migration, SMART pass-through, SSD caching.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

namespace {

// arcconf shows expansion and migration only as background tasks of its
// logical devices: the task of this drive whose operation matches, or the
// idle record when none runs.
Ref arcconf_task(Call& c, const char* operation_pattern, const char* template_attr) {
  Ref parser = c.parsed("ctr_get_controller_bgtask_arcconf");
  Ref tasks = get(parser.get(), "logical_device_task");
  Ref vid = c.p_get("vid");
  Ref vid_text = to_str(vid.get());
  Ref re = Ref::steal(PyImport_ImportModule("re"));
  Ref pattern = str(operation_pattern);
  Ref flags = getattr(re.get(), "I");
  Ref found;
  if (truthy(tasks.get())) {
    Ref it = Ref::steal(PyObject_GetIter(tasks.get()));
    for (;;) {
      Ref task = Ref::steal_or_null(PyIter_Next(it.get()));
      if (!task) {
        if (PyErr_Occurred()) fail();
        break;
      }
      Ref number = to_str(get(task.get(), "logical_device").get());
      if (PyUnicode_Compare(number.get(), vid_text.get()) != 0) {
        if (PyErr_Occurred()) fail();
        continue;
      }
      Ref op = to_str(get(task.get(), "current_operation").get());
      Ref m = call_method(re.get(), "search", {pattern.get(), op.get(), flags.get()});
      if (m.get() == Py_None) continue;
      found = task;
      break;
    }
  }
  if (!found) {
    found = Ref::steal(PyDict_New());
    set_item(found.get(), "logical_device", vid.get());
    set_item(found.get(), "status", str("Not in progress").get());
  }
  return c.format_with(found.get(), template_attr);
}

Ref expand_info_arcconf(Call& c) {
  return arcconf_task(c, "expan|reconfig", "get_expand_array_info_format");
}

Ref migrate_info_arcconf(Call& c) {
  return arcconf_task(c, "migrat|reconfig", "get_migrate_info_format");
}

Ref ssd_caching_arcconf(Call& c) {
  Ref parser = c.parsed("ctr_get_maxcache_arcconf");
  Ref section = get(parser.get(), "logical_device_information");
  Ref records = list();
  if (truthy(section.get())) {
    Ref values = call_method(section.get(), "values");
    Ref it = Ref::steal(PyObject_GetIter(values.get()));
    for (;;) {
      Ref record = Ref::steal_or_null(PyIter_Next(it.get()));
      if (!record) {
        if (PyErr_Occurred()) fail();
        break;
      }
      append(records.get(), record.get());
    }
  }
  return c.format_with(records.get(), "get_ssd_caching_info_format");
}

}  // namespace

void add_vd_expansion_ops(OpList& ops) {
  ops.push_back(OpDef{"set_vd_expand_size",
                      "*, vid, size, **kwargs",
                      "在现有成员盘上扩展逻辑盘容量。\n\n"
                      "参数:\n"
                      "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
                      "    size (str): 扩展的容量，如 \"100GB\"、\"1TB\"（仅限关键字传入）。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 扩容命令是否成功。",
                      {checked(Tool::storcli64, "vd_set_expand_size_storcli64"),
                       checked(Tool::arcconf, "vd_set_expand_size_arcconf"),
                       checked(Tool::sorbctl, "set_controller_vd_expand_sorbctl")}});
  ops.push_back(OpDef{"add_pd_expand_array",
                      "*, vid, drives, **kwargs",
                      "向逻辑盘所在阵列加入物理盘以扩容（RAID 级别不变）。\n\n"
                      "参数:\n"
                      "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
                      "    drives (list): 要加入的硬盘，如 [\"65:3\", "
                      "\"65:4\"]（enclosure:slot，仅限关键字传入）。\n"
                      "    raid_level (str): 阵列的 RAID 级别，部分工具需要。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 命令是否成功。",
                      {checked(Tool::storcli64, "vd_add_pd_expand_array_storcli64"),
                       checked(Tool::arcconf, "vd_add_pd_expand_array_arcconf"),
                       checked(Tool::sorbctl, "add_controller_vd_pd_sorbctl")}});
  ops.push_back(
      OpDef{"get_expand_array_info",
            "*, vid, **kwargs",
            "查询逻辑盘扩容进度。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    dict 或 list: 键为 vid, Progress, Status, Estimated_time_left, raw_data；"
            "storcli64 每个逻辑盘一条；没有扩容任务时 Status 为 \"Not in progress\"。",
            {shaped(Tool::storcli64, "vd_get_expand_info_storcli64", "VD Operation Status",
                    "get_expand_array_info_format"),
             custom(Tool::arcconf, expand_info_arcconf),
             shaped(Tool::sorbctl, "get_controller_vd_expand_sorbctl", nullptr,
                    "get_expand_array_info_format")}});
  ops.push_back(OpDef{
      "migrate_raid",
      "*, vid, raid_level, **kwargs",
      "迁移逻辑盘的 RAID 级别（可同时加入硬盘）。\n\n"
      "参数:\n"
      "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
      "    raid_level (str): 目标 RAID 级别，如 \"0\"、\"1\"、\"5\"、\"6\"（仅限关键字传入）。\n"
      "    drives (list): 迁移时加入的硬盘，如 [\"65:3\"]（enclosure:slot）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    bool: 迁移命令是否成功。",
      {checked(Tool::storcli64, "vd_start_migrate_storcli64"),
       checked(Tool::arcconf, "vd_start_migrate_arcconf"),
       checked(Tool::sorbctl, "migrate_controller_vd_sorbctl")}});
  ops.push_back(
      OpDef{"get_migrate_info",
            "*, vid, **kwargs",
            "查询逻辑盘 RAID 级别迁移进度。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    dict 或 list: 键为 vid, Progress, Status, Estimated_time_left, raw_data；"
            "storcli64 每个逻辑盘一条；没有迁移任务时 Status 为 \"Not in progress\"。",
            {shaped(Tool::storcli64, "vd_get_migrate_info_storcli64", "VD Operation Status",
                    "get_migrate_info_format"),
             custom(Tool::arcconf, migrate_info_arcconf),
             shaped(Tool::sorbctl, "get_controller_vd_migrate_sorbctl", nullptr,
                    "get_migrate_info_format")}});
  ops.push_back(OpDef{"get_vd_smartinfo_smartctl",
                      "*, vid, **kwargs",
                      "通过 smartctl 透传读取逻辑盘成员盘的 SMART 信息。\n\n"
                      "参数:\n"
                      "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
                      "    eid (str): 成员盘的 enclosure（通道）编号。\n"
                      "    sid (str): 成员盘的槽位（设备）编号。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    smartctl 回显的解析结果（工具原样给出）。",
                      {parser(Tool::storcli64, "vd_get_smartinfo_smartctl_storcli64"),
                       parser(Tool::arcconf, "vd_get_smartinfo_smartctl_arcconf"),
                       parser(Tool::sorbctl, "get_controller_vd_smartinfo_sorbctl")}});
  ops.push_back(
      OpDef{"get_ssd_caching_info",
            "**kwargs",
            "SSD caching查询（storcli64 CacheCade、arcconf maxCache）。\n\n"
            "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    list: 每个缓存逻辑盘一条，键为 vd, name, raid_level, status, size, "
            "cached_vds（被加速的逻辑盘）, raw_data。\n\n"
            "异常:\n    OrvexException: sorbctl 抛出 \"7460卡不支持SSD caching查询功能\"。",
            {shaped(Tool::storcli64, "ctr_get_ssd_caching_storcli64", "VD LIST",
                    "get_ssd_caching_info_format"),
             custom(Tool::arcconf, ssd_caching_arcconf),
             refuse(Tool::sorbctl, "7460卡不支持SSD caching查询功能")}});
}

}  // namespace raid
