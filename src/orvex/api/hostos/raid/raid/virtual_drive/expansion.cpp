// Virtual drive expansion and migration, SMART pass-through, SSD caching.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

// arcconf shows expansion and migration only as background tasks of its
// logical devices: the task of this drive whose operation matches, or the
// idle record when none runs.
const Regex kExpansion("(?i)expan|reconfig");
const Regex kMigration("(?i)migrat|reconfig");

struct TaskTexts {
  Wrapper tasks;
  Text format_name;
  const Regex& operation;  // matches the task's current operation
};

Ref task_arcconf(const Call& c, const TaskTexts& t) {
  Ref parser = c.parsed(t.tasks);
  Ref tasks = get(parser.get(), "logical_device_task");
  Ref vid = c.p_get("vid");
  Ref found = find_task(tasks.get(), vid.get(), "logical_device", "current_operation", t.operation);
  if (!found) return nullptr;
  if (found.get() == Py_None) {
    Ref idle = str("Not in progress");
    if (!idle) return nullptr;
    found = dict({{"logical_device", vid.get()}, {"status", idle.get()}});
    if (!found) return nullptr;
  }
  return c.format_with(found.get(), t.format_name);
}

// arcconf's maxCache drives: the entries of its logical device information
// as a list ([] when it has none), formatted.
Ref maxcache_arcconf(const Call& c, const Formatted& t) {
  Ref parser = c.parsed(t.query);
  Ref drives = get(parser.get(), "logical_device_information");
  if (!drives) return nullptr;
  const int any = drives.get() == Py_None ? 0 : truthy(drives.get());
  if (any < 0) return nullptr;
  Ref listed = list();
  if (any == 1) {
    Ref entries = call_method(drives.get(), "values");
    listed = entries ? Ref::steal(PySequence_List(entries.get())) : nullptr;
  }
  return c.format_with(listed.get(), t.format_name);
}

constexpr ParamDef kVidParams[] = {kw("vid"), kwargs()};

}  // namespace

void add_vd_expansion_ops(OpList& ops) {
  ops.push_back(Op("set_vd_expand_size")
                    .params({kw("vid"), kw("size"), kwargs()})
                    .some_extras({kAdapterId})
                    .doc("在现有成员盘上扩展逻辑盘容量。\n\n"
                         "参数:\n"
                         "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
                         "    size (str): 扩展的容量，如 \"100GB\"、\"1TB\"（仅限关键字传入）。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 扩容命令是否成功。")
                    .returns_doc("bool")
                    .variants({checked(Tool::storcli64, "vd_set_expand_size_storcli64"),
                               checked(Tool::arcconf, "vd_set_expand_size_arcconf"),
                               checked(Tool::sorbctl, "set_controller_vd_expand_sorbctl")}));
  ops.push_back(Op("add_pd_expand_array")
                    .params({kw("vid"), kw("drives").typed("list"), kwargs()})
                    .some_extras({extra("raid_level"), kAdapterId})
                    .doc("向逻辑盘所在阵列加入物理盘以扩容（RAID 级别不变）。\n\n"
                         "参数:\n"
                         "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
                         "    drives (list): 要加入的硬盘，如 [\"65:3\", "
                         "\"65:4\"]（enclosure:slot，仅限关键字传入）。\n"
                         "    raid_level (str): 阵列的 RAID 级别，部分工具需要。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 命令是否成功。")
                    .returns_doc("bool")
                    .variants({checked(Tool::storcli64, "vd_add_pd_expand_array_storcli64"),
                               checked(Tool::arcconf, "vd_add_pd_expand_array_arcconf"),
                               checked(Tool::sorbctl, "add_controller_vd_pd_sorbctl")}));
  static constexpr TaskTexts kArcconfExpansion{
      {"ctr_get_controller_bgtask_arcconf"}, {"get_expand_array_info_format"}, kExpansion};
  ops.push_back(
      Op("get_expand_array_info")
          .params(kVidParams)
          .some_extras({kAdapterId})
          .doc("查询逻辑盘扩容进度。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict 或 list: 键为 vid, Progress, Status, Estimated_time_left, raw_data；"
               "storcli64 每个逻辑盘一条；没有扩容任务时 Status 为 \"Not in progress\"。")
          .returns_doc("dict | list")
          .variants({query(Tool::storcli64, "vd_get_expand_info_storcli64")
                         .get("VD Operation Status")
                         .format("get_expand_array_info_format"),
                     custom<task_arcconf, kArcconfExpansion>(Tool::arcconf),
                     query(Tool::sorbctl, "get_controller_vd_expand_sorbctl")
                         .format("get_expand_array_info_format")}));
  ops.push_back(Op("migrate_raid")
                    .params({kw("vid"), kw("raid_level"), kwargs()})
                    .some_extras({extra("drives").typed("list"), kAdapterId})
                    .doc("迁移逻辑盘的 RAID 级别（可同时加入硬盘）。\n\n"
                         "参数:\n"
                         "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
                         "    raid_level (str): 目标 RAID 级别，如 "
                         "\"0\"、\"1\"、\"5\"、\"6\"（仅限关键字传入）。\n"
                         "    drives (list): 迁移时加入的硬盘，如 [\"65:3\"]（enclosure:slot）。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 迁移命令是否成功。")
                    .returns_doc("bool")
                    .variants({checked(Tool::storcli64, "vd_start_migrate_storcli64"),
                               checked(Tool::arcconf, "vd_start_migrate_arcconf"),
                               checked(Tool::sorbctl, "migrate_controller_vd_sorbctl")}));
  static constexpr TaskTexts kArcconfMigration{
      {"ctr_get_controller_bgtask_arcconf"}, {"get_migrate_info_format"}, kMigration};
  ops.push_back(
      Op("get_migrate_info")
          .params(kVidParams)
          .some_extras({kAdapterId})
          .doc("查询逻辑盘 RAID 级别迁移进度。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict 或 list: 键为 vid, Progress, Status, Estimated_time_left, raw_data；"
               "storcli64 每个逻辑盘一条；没有迁移任务时 Status 为 \"Not in progress\"。")
          .returns_doc("dict | list")
          .variants({query(Tool::storcli64, "vd_get_migrate_info_storcli64")
                         .get("VD Operation Status")
                         .format("get_migrate_info_format"),
                     custom<task_arcconf, kArcconfMigration>(Tool::arcconf),
                     query(Tool::sorbctl, "get_controller_vd_migrate_sorbctl")
                         .format("get_migrate_info_format")}));
  ops.push_back(Op("get_vd_smartinfo_smartctl")
                    .params(kVidParams)
                    .some_extras({extra("eid"), extra("sid"), kAdapterId})
                    .doc("通过 smartctl 透传读取逻辑盘成员盘的 SMART 信息。\n\n"
                         "参数:\n"
                         "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
                         "    eid (str): 成员盘的 enclosure（通道）编号。\n"
                         "    sid (str): 成员盘的槽位（设备）编号。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    smartctl 回显的解析结果（工具原样给出）。")
                    .variants({query(Tool::storcli64, "vd_get_smartinfo_smartctl_storcli64"),
                               query(Tool::arcconf, "vd_get_smartinfo_smartctl_arcconf"),
                               query(Tool::sorbctl, "get_controller_vd_smartinfo_sorbctl")}));
  static constexpr Formatted kArcconfMaxCache{{"ctr_get_maxcache_arcconf"},
                                              {"get_ssd_caching_info_format"}};
  ops.push_back(
      Op("get_ssd_caching_info")
          .params({kwargs()})
          .some_extras({kAdapterId})
          .doc("SSD caching查询（storcli64 CacheCade、arcconf maxCache）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    list: 每个缓存逻辑盘一条，键为 vd, name, raid_level, status, size, "
               "cached_vds（被加速的逻辑盘）, raw_data。\n\n"
               "异常:\n    OrvexException: sorbctl 抛出 \"7460卡不支持SSD caching查询功能\"。")
          .returns_doc("list")
          .variants({query(Tool::storcli64, "ctr_get_ssd_caching_storcli64")
                         .get("VD LIST")
                         .format("get_ssd_caching_info_format"),
                     custom<maxcache_arcconf, kArcconfMaxCache>(Tool::arcconf),
                     refuse(Tool::sorbctl, "7460卡不支持SSD caching查询功能")}));
}

}  // namespace raid
