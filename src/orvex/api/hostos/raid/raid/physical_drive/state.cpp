// Physical drive state operations: drive state, offline, pass-through, LED,
// hot spare, rebuild control and status, re-insertion, boot drive, drive cache.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

// "eed" is a placeholder state that the tools do not know: accept it
// without running anything.
template <const char* Wrapper>
Ref state_skipping_eed(Call& c) {
  Ref state = c.p_get("state");
  if (equals(state.get(), "eed")) return boolean(true);
  Ref p = c.parsed(Wrapper);
  return boolean(Call::success(p.get()));
}

constexpr char kPdSetStateStorcli64[] = "pd_set_state_storcli64";
constexpr char kPdStateSorbctl[] = "set_controller_pd_state_sorbctl";

// Like translate, but a value outside the table becomes None (sorbctl) or
// fails with the lookup error (arcconf).
void map_strict(Call& c, const char* key, std::initializer_list<Pair> table, bool lenient) {
  Ref v = c.p_get(key);
  for (const Pair& p : table) {
    if (equals(v.get(), p.from)) {
      c.p_set(key, p.to);
      return;
    }
  }
  if (lenient) {
    c.p_set(key, Py_None);
    return;
  }
  PyErr_SetObject(PyExc_KeyError, v.get());
  fail();
}

// Releasing a spare needs its array: the caller's ar_id, else the array of
// the first logical drive.
Ref hotspare_arcconf(Call& c) {
  map_strict(c, "oper", {{"add", "hsp"}, {"delete", "rdy"}}, false);
  Ref oper = c.p_get("oper");
  Ref ar_id = c.p_get("ar_id");
  if (equals(oper.get(), "rdy") && !truthy(ar_id.get())) {
    Ref drives = c.method("get_all_virtual_drive_info");
    if (!truthy(drives.get())) c.refuse("当前环境不存在逻辑盘");
    Ref first = item(drives.get(), 0);
    Ref array = index(first.get(), "array");
    c.p_set("ar_id", array.get());
  }
  Ref p = c.parsed("set_controller_pd_hotspare_arcconf", Route::host);
  return boolean(Call::success(p.get()));
}

Ref rebuild_status_storcli64(Call& c) {
  Ref p = c.parsed("ctr_get_rebuild_cfg_storcli64");
  if (!truthy(p.get())) {
    Ref eid = c.p_get("eid");
    Ref sid = c.p_get("sid");
    Ref a = str("获取[eid:");
    Ref b = str(", sid:");
    Ref d = str("]硬盘重构功能状态失败");
    c.refuse(concat({a.get(), eid.get(), b.get(), sid.get(), d.get()}).get());
  }
  return c.format_with(p.get(), "get_pd_rebuild_status_format");
}

Ref rebuild_status_sorbctl(Call& c) {
  Ref p = c.parsed("get_controller_pd_info_sorbctl");
  Ref detail = index(p.get(), "DriveDetailInformation");
  return c.format_with(detail.get(), "get_pd_rebuild_status_format");
}

// arcconf shows rebuilds only as background tasks of logical devices: find
// the rebuild task whose logical device has this drive as a member.
Ref rebuild_status_arcconf(Call& c) {
  Ref eid = c.p_get("eid");
  Ref sid = c.p_get("sid");
  Ref address = dict({{"eid", eid.get()}, {"sid", sid.get()}});
  Ref drive = c.method("get_one_physical_drive_info", address.get());
  Ref data = Ref::steal(PyDict_New());
  Ref status = get(drive.get(), "status");
  if (equals(status.get(), "reconstructing")) {
    Ref p = c.parsed("ctr_get_controller_bgtask_arcconf");
    Ref tasks = index(p.get(), "logical_device_task");
    Ref it = Ref::steal(PyObject_GetIter(tasks.get()));
    for (;;) {
      Ref task = Ref::steal_or_null(PyIter_Next(it.get()));
      if (!task) {
        if (PyErr_Occurred()) fail();
        break;
      }
      Ref op = get(task.get(), "current_operation");
      if (!equals(op.get(), "Rebuild")) continue;
      Ref vid = index(task.get(), "logical_device");
      Ref kw = dict({{"vid", vid.get()}});
      Ref members = c.method("get_virtual_drive_member_drives", kw.get());
      if (contains(members.get(), address.get())) {
        data = task;
        break;
      }
    }
  }
  return c.format_with(data.get(), "get_pd_rebuild_status_format");
}

Ref bootdrive_storcli64(Call& c) { return boot_drive_storcli64(c, "pd_set_bootdrive_storcli64"); }

}  // namespace

void add_pd_state_ops(OpList& ops) {
  ops.push_back(OpDef{"set_disk_state",
                      "*, eid, sid, state, **kwargs",
                      "设置物理盘状态。\n\n"
                      "参数:\n"
                      "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                      "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                      "    state (str): 目标状态，按工具取值；\"eed\" 在 storcli64、sorbctl "
                      "下不执行任何命令，直接返回 True。\n"
                      "    force (bool): 强制执行。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功。",
                      {custom(Tool::storcli64, state_skipping_eed<kPdSetStateStorcli64>),
                       custom(Tool::sorbctl, state_skipping_eed<kPdStateSorbctl>),
                       checked(Tool::arcconf, "pd_set_state_arcconf")}});
  ops.push_back(OpDef{
      "set_disk_offline",
      "*, eid, sid, **kwargs",
      "将物理盘设置为离线（sorbctl 通过关闭硬盘的 PHY 实现）。\n\n"
      "参数:\n"
      "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
      "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    bool: 设置是否成功。",
      {checked(Tool::storcli64, "pd_set_state_storcli64",
               [](Call& c) { c.p_set("state", "offline"); }),
       checked(Tool::sorbctl, "set_controller_phy_func_sorbctl",
               [](Call& c) { c.p_set("oper", "disable"); }),
       checked(Tool::arcconf, "pd_set_state_arcconf", [](Call& c) { c.p_set("state", "ddd"); })}});
  ops.push_back(
      OpDef{"set_disk_jbod_state",
            "*, eid, sid, state, **kwargs",
            "RAID-设置或取消硬盘直通状态。\n\n"
            "参数:\n"
            "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
            "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
            "    state (str): \"on\" 设为直通，\"off\" 取消直通（storcli64 取消时强制执行）。\n"
            "    force (bool): 强制执行（storcli64）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 设置是否成功。",
            {checked(Tool::storcli64, "pd_set_state_storcli64",
                     [](Call& c) {
                       Ref state = c.p_get("state");
                       if (equals(state.get(), "on")) {
                         c.p_set("state", "jbod");
                       } else if (equals(state.get(), "off")) {
                         c.p_set("state", "good");
                         c.p_set("force", Py_True);
                       }
                     }),
             checked(Tool::sorbctl, "set_controller_pd_state_sorbctl",
                     [](Call& c) {
                       translate(c, "state", {{"on", "jbod"}, {"off", "free"}});
                     }),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 RAID-设置或取消硬盘直通状态 功能")}});
  ops.push_back(OpDef{"set_disk_led_state",
                      "eid, sid, state, **kwargs",
                      "设置硬盘定位灯（仅 sorbctl）。\n\n"
                      "参数:\n"
                      "    eid (str): enclosure（通道）编号。\n"
                      "    sid (str): 槽位（设备）编号。\n"
                      "    state (str): \"on\" 或 \"off\"。\n"
                      "    led_type (str): \"err\"（故障灯）或 \"locate\"（定位灯）。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功。",
                      {refuse(Tool::storcli64, "博通卡 暂未提供设置硬盘定位灯 功能"),
                       checked(Tool::sorbctl, "set_controller_pd_led_sorbctl"),
                       refuse(Tool::arcconf, "PMC卡 暂未提供设置硬盘定位灯 功能")}});
  ops.push_back(
      OpDef{"set_pd_hotspare_drive",
            "eid, sid, oper, **kwargs",
            "设置或取消热备盘。\n\n"
            "参数:\n"
            "    eid (str): enclosure（通道）编号。\n"
            "    sid (str): 槽位（设备）编号。\n"
            "    oper (str): \"add\" 设为热备，\"delete\" 取消热备。\n"
            "    ar_id (str): 阵列编号；arcconf 取消热备时缺省取第一个逻辑盘的阵列。\n"
            "    type (str): \"1\" 局部热备，\"2\" 全局热备（仅 arcconf）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 设置是否成功。\n\n"
            "异常:\n    OrvexException: arcconf 取消热备而环境中没有逻辑盘时抛出。",
            {checked(Tool::storcli64, "pd_set_hotspare_drive_storcli64", Route::host),
             checked(Tool::sorbctl, "set_controller_pd_hotspare_sorbctl", Route::host,
                     [](Call& c) {
                       map_strict(c, "oper", {{"add", "hotspare"}, {"delete", "free"}}, true);
                     }),
             custom(Tool::arcconf, hotspare_arcconf)}});
  ops.push_back(OpDef{"set_disk_rebuild",
                      "*, eid, sid, oper, **kwargs",
                      "设置硬盘重构功能操作（仅 storcli64）。\n\n"
                      "参数:\n"
                      "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                      "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                      "    oper (str): \"start\"、\"stop\"、\"pause\" 或 \"resume\"。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功。",
                      {checked(Tool::storcli64, "ctr_set_rebuild_storcli64"),
                       refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置硬盘重构功能操作 功能"),
                       refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置硬盘重构功能操作 功能")}});
  ops.push_back(OpDef{"get_pd_rebuild_status",
                      "*, eid, sid, **kwargs",
                      "查询硬盘重构状态。\n\n"
                      "参数:\n"
                      "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                      "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n"
                      "    dict: status, progress, estimated_time_left, raw_data；arcconf "
                      "下硬盘不在重构时各项为空。\n\n"
                      "异常:\n    OrvexException: storcli64 查询结果为空时抛出。",
                      {custom(Tool::storcli64, rebuild_status_storcli64),
                       custom(Tool::sorbctl, rebuild_status_sorbctl),
                       custom(Tool::arcconf, rebuild_status_arcconf)}});
  ops.push_back(
      OpDef{"set_pd_insert",
            "*, eid, sid, dg, arr, row, **kwargs",
            "将发生故障的硬盘加入RAID组（仅 storcli64）。\n\n"
            "参数:\n"
            "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
            "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
            "    dg (str): 故障所在的磁盘组。\n"
            "    arr (str): 阵列编号。\n"
            "    row (str): 硬盘在阵列中的行号。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    命令的解析结果，原样返回。",
            {parser(Tool::storcli64, "set_pd_insert_storcli64"),
             refuse(Tool::sorbctl, "7460卡sorbctl工具没有 将发生故障的硬盘加入RAID组 功能"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 将发生故障的硬盘加入RAID组 功能")}});
  ops.push_back(OpDef{"pd_set_bootdrive",
                      "*, eid, sid, state, **kwargs",
                      "设置硬盘为启动盘。\n\n"
                      "参数:\n"
                      "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                      "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                      "    state (str): \"primary\"（第一启动盘）、\"secondary\"（第二启动盘）或 "
                      "\"off\"（取消）。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功（storcli64 不支持按固件排序时只记录日志）。",
                      {custom(Tool::storcli64, bootdrive_storcli64),
                       checked(Tool::sorbctl, "set_controller_pd_boot_sorbctl",
                               [](Call& c) {
                                 translate(c, "state", {{"primary", "on"}, {"secondary", "on"}});
                               }),
                       checked(Tool::arcconf, "set_controller_pd_boot_arcconf", [](Call& c) {
                         translate(c, "state", {{"off", "none"}});
                       })}});
  ops.push_back(OpDef{"set_pd_pdcache",
                      "*, eid, sid, state, **kwargs",
                      "设置单块硬盘的硬盘缓存（仅 sorbctl）。\n\n"
                      "参数:\n"
                      "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                      "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                      "    state (str): \"on\" 或 \"off\"。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功。",
                      {refuse(Tool::storcli64, "There is no such command in storcli64"),
                       checked(Tool::sorbctl, "set_controller_pdcache_sorbctl"),
                       refuse(Tool::arcconf, "There is no such command in arcconf")}});
}

}  // namespace raid
