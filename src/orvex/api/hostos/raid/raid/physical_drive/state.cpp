// Physical drive state operations: drive state, offline, pass-through, LED,
// hot spare, rebuild control and status, re-insertion, boot drive, drive cache.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

constexpr ParamDef kDriveParams[] = {kw("eid"), kw("sid"), kwargs()};
constexpr ParamDef kStateParams[] = {kw("eid"), kw("sid"), kw("state"), kwargs()};
constexpr ParamDef kOperParams[] = {kw("eid"), kw("sid"), kw("oper"), kwargs()};

// Leaving pass-through forces the drive back to good.
int jbod_storcli64(const Call& c) {
  Ref state = c.p_get("state");
  const int on = equal(state.get(), "on");
  if (on != 0) return on < 0 ? -1 : c.p_set("state", "jbod");
  const int off = equal(state.get(), "off");
  if (off != 1) return off;
  if (c.p_set("state", "good") < 0) return -1;
  return c.p_set("force", Py_True);
}

// The refusal when there is no logical drive, and the logical drives.
struct NoDriveTexts {
  Message no_drive;
  Operation drives;
};

// Releasing a spare needs its array: the caller's ar_id, else the array of
// the first logical drive.
int hotspare_array_arcconf(const Call& c, const NoDriveTexts& t) {
  Ref oper = c.p_get("oper");
  const int release = equal(oper.get(), "rdy");
  if (release != 1) return release;
  Ref ar_id = c.p_get("ar_id");
  const int given = truthy(ar_id.get());
  if (given != 0) return given < 0 ? -1 : 0;
  Ref drives = c.method(t.drives);
  const int any = truthy(drives.get());
  if (any < 0) return -1;
  if (any == 0) {
    c.refuse(t.no_drive);
    return -1;
  }
  Ref first = item(drives.get(), 0);
  Ref array = index(first.get(), "array");
  return c.p_set("ar_id", array.get());
}

// The rebuild query, the refusal when it finds nothing and the formatter
// template of the result.
struct RebuildTexts {
  Wrapper query;
  Message failed;
  Text format_name;
};

Ref rebuild_status_storcli64(const Call& c, const RebuildTexts& t) {
  Ref p = c.parsed(t.query);
  const int found = truthy(p.get());
  if (found < 0) return nullptr;
  if (found == 0) {
    Ref message = c.message(
        t.failed, {c.arg(RAID_ARG(kDriveParams, "eid")), c.arg(RAID_ARG(kDriveParams, "sid"))});
    if (!message) return nullptr;
    return c.refuse(message.get());
  }
  return c.format_with(p.get(), t.format_name);
}

// The background tasks, the formatter template of the result, the drive's
// detail and the members of a logical drive.
struct RebuildTaskTexts {
  Wrapper tasks;
  Text format_name;
  Operation drive;
  Operation members;
};

// arcconf shows rebuilds only as background tasks of logical devices: find
// the rebuild task whose logical device has this drive as a member.
Ref rebuild_status_arcconf(const Call& c, const RebuildTaskTexts& t) {
  Ref address = dict({{"eid", c.arg(RAID_ARG(kDriveParams, "eid"))},
                      {"sid", c.arg(RAID_ARG(kDriveParams, "sid"))}});
  if (!address) return nullptr;
  Ref drive = c.method(t.drive, address.get());
  Ref data = dict();
  Ref status = get(drive.get(), "status");
  const int rebuilding = equal(status.get(), "reconstructing");
  if (rebuilding < 0 || !data) return nullptr;
  if (rebuilding == 1) {
    Ref p = c.parsed(t.tasks);
    Ref tasks = index(p.get(), "logical_device_task");
    const int r = each(tasks.get(), [&](PyObject* task) {
      Ref op = get(task, "current_operation");
      const int rebuild = equal(op.get(), "Rebuild");
      if (rebuild != 1) return rebuild;
      Ref vid = index(task, "logical_device");
      if (!vid) return -1;
      Ref kw = dict({{"vid", vid.get()}});
      if (!kw) return -1;
      Ref members = c.method(t.members, kw.get());
      const int member = contains(members.get(), address.get());
      if (member == 1) data = Ref::borrow(task);
      return member;
    });
    if (r < 0) return nullptr;
  }
  return c.format_with(data.get(), t.format_name);
}

// "eed" is a placeholder state the tools do not know: True, and nothing
// runs.  Any other state is set by the checked command.
Ref state_or_eed(const Call& c, const Wrapper& set) {
  Ref state = c.p_get("state");
  const int eed = equal(state.get(), "eed");
  if (eed != 0) return eed < 0 ? nullptr : boolean(true);
  return c.checked(set);
}

}  // namespace

void add_pd_state_ops(OpList& ops) {
  static constexpr Wrapper kStorcliState{"pd_set_state_storcli64"};
  static constexpr Wrapper kSorbctlState{"set_controller_pd_state_sorbctl"};
  ops.push_back(Op("set_disk_state")
                    .params(kStateParams)
                    .extras({extra("force").typed("bool"), kAdapterId})
                    .doc("设置物理盘状态。\n\n"
                         "参数:\n"
                         "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                         "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                         "    state (str): 目标状态，按工具取值；\"eed\" 在 storcli64、sorbctl "
                         "下不执行任何命令，直接返回 True。\n"
                         "    force (bool): 强制执行。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 设置是否成功。")
                    .returns_doc("bool")
                    // "eed" is a placeholder state that the tools do not know: it
                    // is accepted without running anything.
                    .variants({custom<state_or_eed, kStorcliState>(Tool::storcli64),
                               custom<state_or_eed, kSorbctlState>(Tool::sorbctl),
                               checked(Tool::arcconf, "pd_set_state_arcconf")}));
  ops.push_back(
      Op("set_disk_offline")
          .params(kDriveParams)
          .extras({kAdapterId})
          .doc("将物理盘设置为离线（sorbctl 通过关闭硬盘的 PHY 实现）。\n\n"
               "参数:\n"
               "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
               "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants(
              {checked(Tool::storcli64, "pd_set_state_storcli64").put("state", "offline"),
               checked(Tool::sorbctl, "set_controller_phy_func_sorbctl").put("oper", "disable"),
               checked(Tool::arcconf, "pd_set_state_arcconf").put("state", "ddd")}));
  ops.push_back(
      Op("set_disk_jbod_state")
          .params(kStateParams)
          .extras({extra("force").typed("bool"), kAdapterId})
          .doc("RAID-设置或取消硬盘直通状态。\n\n"
               "参数:\n"
               "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
               "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
               "    state (str): \"on\" 设为直通，\"off\" 取消直通（storcli64 取消时强制执行）。\n"
               "    force (bool): 强制执行（storcli64）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants(
              {checked(Tool::storcli64, "pd_set_state_storcli64").prep(jbod_storcli64),
               checked(Tool::sorbctl, "set_controller_pd_state_sorbctl")
                   .lookup("state", {{"on", "jbod"}, {"off", "free"}}),
               refuse(Tool::arcconf, "PMC卡arcconf工具没有 RAID-设置或取消硬盘直通状态 功能")}));
  ops.push_back(Op("set_disk_led_state")
                    .params({arg("eid"), arg("sid"), arg("state"), kwargs()})
                    .extras({extra("led_type"), kAdapterId})
                    .doc("设置硬盘定位灯（仅 sorbctl）。\n\n"
                         "参数:\n"
                         "    eid (str): enclosure（通道）编号。\n"
                         "    sid (str): 槽位（设备）编号。\n"
                         "    state (str): \"on\" 或 \"off\"。\n"
                         "    led_type (str): \"err\"（故障灯）或 \"locate\"（定位灯）。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 设置是否成功。")
                    .variants({refuse(Tool::storcli64, "博通卡 暂未提供设置硬盘定位灯 功能"),
                               checked(Tool::sorbctl, "set_controller_pd_led_sorbctl"),
                               refuse(Tool::arcconf, "PMC卡 暂未提供设置硬盘定位灯 功能")}));
  static constexpr NoDriveTexts kNoLogicalDrive{{"当前环境不存在逻辑盘"},
                                                {"get_all_virtual_drive_info"}};
  ops.push_back(
      Op("set_pd_hotspare_drive")
          .params({arg("eid"), arg("sid"), arg("oper"), kwargs()})
          .extras({extra("ar_id"), extra("type"), kAdapterId})
          .doc("设置或取消热备盘。\n\n"
               "参数:\n"
               "    eid (str): enclosure（通道）编号。\n"
               "    sid (str): 槽位（设备）编号。\n"
               "    oper (str): \"add\" 设为热备，\"delete\" 取消热备。\n"
               "    ar_id (str): 阵列编号；arcconf 取消热备时缺省取第一个逻辑盘的阵列。\n"
               "    type (str): \"1\" 局部热备，\"2\" 全局热备（仅 arcconf）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。\n\n"
               "异常:\n    OrvexException: arcconf 取消热备而环境中没有逻辑盘时抛出。")
          .variants({checked(Tool::storcli64, "pd_set_hotspare_drive_storcli64").via(Route::host),
                     checked(Tool::sorbctl, "set_controller_pd_hotspare_sorbctl")
                         .via(Route::host)
                         .lookup("oper", {{"add", "hotspare"}, {"delete", "free"}}, Missing::none),
                     checked(Tool::arcconf, "set_controller_pd_hotspare_arcconf")
                         .via(Route::host)
                         .lookup("oper", {{"add", "hsp"}, {"delete", "rdy"}}, Missing::key_error)
                         .prep<hotspare_array_arcconf, kNoLogicalDrive>()
                         .note("adapter_id", ExtraUse::ignores,
                               "未传 ar_id 时在第一个控制器的逻辑盘中取阵列")}));
  ops.push_back(
      Op("set_disk_rebuild")
          .params(kOperParams)
          .extras({kAdapterId})
          .doc("设置硬盘重构功能操作（仅 storcli64）。\n\n"
               "参数:\n"
               "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
               "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
               "    oper (str): \"start\"、\"stop\"、\"pause\" 或 \"resume\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants({checked(Tool::storcli64, "ctr_set_rebuild_storcli64"),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置硬盘重构功能操作 功能"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置硬盘重构功能操作 功能")}));
  static constexpr RebuildTexts kStorcliRebuild{{"ctr_get_rebuild_cfg_storcli64"},
                                                {"获取[eid:{}, sid:{}]硬盘重构功能状态失败"},
                                                {"get_pd_rebuild_status_format"}};
  static constexpr RebuildTaskTexts kArcconfRebuild{{"ctr_get_controller_bgtask_arcconf"},
                                                    {"get_pd_rebuild_status_format"},
                                                    {"get_one_physical_drive_info"},
                                                    {"get_virtual_drive_member_drives"}};
  ops.push_back(Op("get_pd_rebuild_status")
                    .params(kDriveParams)
                    .extras({kAdapterId})
                    .doc("查询硬盘重构状态。\n\n"
                         "参数:\n"
                         "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                         "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n"
                         "    dict: status, progress, estimated_time_left, raw_data；arcconf "
                         "下硬盘不在重构时各项为空。\n\n"
                         "异常:\n    OrvexException: storcli64 查询结果为空时抛出。")
                    .returns_doc("dict")
                    .variants({custom<rebuild_status_storcli64, kStorcliRebuild>(Tool::storcli64),
                               query(Tool::sorbctl, "get_controller_pd_info_sorbctl")
                                   .at("DriveDetailInformation")
                                   .format("get_pd_rebuild_status_format"),
                               custom<rebuild_status_arcconf, kArcconfRebuild>(Tool::arcconf)
                                   .note("adapter_id", ExtraUse::ignores,
                                         "硬盘与逻辑盘成员总是在第一个控制器中查找")}));
  ops.push_back(
      Op("set_pd_insert")
          .params({kw("eid"), kw("sid"), kw("dg"), kw("arr"), kw("row"), kwargs()})
          .extras({kAdapterId})
          .doc("将发生故障的硬盘加入RAID组（仅 storcli64）。\n\n"
               "参数:\n"
               "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
               "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
               "    dg (str): 故障所在的磁盘组。\n"
               "    arr (str): 阵列编号。\n"
               "    row (str): 硬盘在阵列中的行号。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    命令的解析结果，原样返回。")
          .variants(
              {query(Tool::storcli64, "set_pd_insert_storcli64"),
               refuse(Tool::sorbctl, "7460卡sorbctl工具没有 将发生故障的硬盘加入RAID组 功能"),
               refuse(Tool::arcconf, "PMC卡arcconf工具没有 将发生故障的硬盘加入RAID组 功能")}));
  ops.push_back(
      Op("pd_set_bootdrive")
          .params(kStateParams)
          .extras({kAdapterId})
          .doc("设置硬盘为启动盘。\n\n"
               "参数:\n"
               "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
               "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
               "    state (str): \"primary\"（第一启动盘）、\"secondary\"（第二启动盘）或 "
               "\"off\"（取消）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功（storcli64 不支持按固件排序时只记录日志）。")
          .returns_doc("bool")
          // storcli64 asks for the boot order by firmware first; a controller
          // that refuses it is only logged
          .variants({checked(Tool::storcli64, "pd_set_bootdrive_storcli64")
                         .lookup("state", {{"primary", "on"}, {"secondary", "on"}})
                         .rename("state", "bootdrive")
                         .copy("bootdrive", "status")
                         .prep<try_first, kOrderByFirmware>(),
                     checked(Tool::sorbctl, "set_controller_pd_boot_sorbctl")
                         .lookup("state", {{"primary", "on"}, {"secondary", "on"}}),
                     checked(Tool::arcconf, "set_controller_pd_boot_arcconf")
                         .lookup("state", {{"off", "none"}})}));
  ops.push_back(Op("set_pd_pdcache")
                    .params(kStateParams)
                    .extras({kAdapterId})
                    .doc("设置单块硬盘的硬盘缓存（仅 sorbctl）。\n\n"
                         "参数:\n"
                         "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                         "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                         "    state (str): \"on\" 或 \"off\"。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 设置是否成功。")
                    .variants({refuse(Tool::storcli64, "There is no such command in storcli64"),
                               checked(Tool::sorbctl, "set_controller_pdcache_sorbctl"),
                               refuse(Tool::arcconf, "There is no such command in arcconf")}));
}

}  // namespace raid
