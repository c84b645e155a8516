// Controller-wide settings: work mode, JBOD, clock, reset, rebuild, emergency
// hot spare, pinned-cache boot, drive cache, foreign configuration.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

namespace {

// arcconf switches pass-through through the work mode and needs time to
// settle before the next command; the result is True whatever the tool said.
Ref jbod_arcconf(Call& c) {
  Ref state = c.p_pop("state");
  c.p_set("mode", state.get());
  if (equals(state.get(), "on")) {
    c.p_set("mode", "5");
  } else if (equals(state.get(), "off")) {
    c.p_set("mode", "3");
  }
  c.parsed("ctr_set_ctrl_mode_arcconf");
  Ref time = Ref::steal(PyImport_ImportModule("time"));
  Ref seconds = integer(10);
  call_method(time.get(), "sleep", {seconds.get()});
  return boolean(true);
}

// Pass-through state as the tools report it, as "ON"/"OFF" where they can.
Ref jbod_info_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_jbod_storcli64");
  Ref merged = merge_output(parser.get(), nullptr, nullptr);
  return index(merged.get(), "Value");
}

Ref jbod_info_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_jbod_sorbctl");
  Ref reported = call_method(parser.get(), "pop", {str("Jbod").get()});
  Ref state = upper(reported.get());
  if (equals(state.get(), "RAWDRIVE")) state = str("ON");
  set_item(parser.get(), "JBOD", state.get());
  return index(parser.get(), "JBOD");
}

Ref jbod_info_arcconf(Call& c) {
  Ref parser = c.parsed("ctr_get_adpt_cfg_arcconf");
  Ref info = index(parser.get(), "controller_information");
  Ref mode = index(info.get(), "controller_mode");
  if (equals(mode.get(), "RAID (Hide RAW)")) return str("OFF");
  if (equals(mode.get(), "Mixed")) return str("ON");
  return mode;
}

Ref current_time_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_controll_time_storcli64");
  Ref rows = index(parser.get(), "Controller");
  Ref first = index(rows.get(), integer(0).get());
  return index(first.get(), "Value");
}

// The EmergencyUG row of the controller properties; nothing when absent.
Ref ehsp_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_eghs_storcli64", Route::host);
  Ref rows = index(parser.get(), "Controller Properties");
  Ref it = Ref::steal(PyObject_GetIter(rows.get()));
  while (Ref row = Ref::steal_or_null(PyIter_Next(it.get()))) {
    Ref prop = index(row.get(), "Ctrl_Prop");
    if (equals(prop.get(), "EmergencyUG")) {
      Ref value = index(row.get(), "Value");
      return upper(value.get());
    }
  }
  if (PyErr_Occurred()) fail();
  return none();
}

Ref ehsp_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_ehsp_sorbctl", Route::host);
  Ref value = index(parser.get(), "Ehsp Switch");
  return upper(value.get());
}

// storcli64 names the switch by its option: eug=on, state=off, ...
void ehsp_switch_storcli64(Call& c) {
  Ref sw = c.p_get("switch");
  set_item(c.params, c.arg("option"), sw.get());
}

void ehsp_switch_sorbctl(Call& c) {
  Ref sw = c.p_get("switch");
  c.p_set("state", sw.get());
}

Ref pinned_cache_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_bootwithpinnedcache_storcli64");
  Ref rows = index(parser.get(), "Controller Properties");
  Ref first = index(rows.get(), integer(0).get());
  Ref value = index(first.get(), "Value");
  return upper(value.get());
}

Ref pinned_cache_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_bootwithpinnedcache_sorbctl");
  Ref value = index(parser.get(), "Boot With Pinned Cache Switch");
  return upper(value.get());
}

// arcconf takes the drive cache switch as 1 (on) / 2 (off); anything else
// is sent as nothing.
void pdcache_arcconf(Call& c) {
  Ref on = str("1");
  Ref off = str("2");
  Ref map = dict({{"on", on.get()}, {"off", off.get()}});
  Ref state = index(c.params, "state");
  c.p_set("state", get(map.get(), state.get()).get());
  c.p_set("drive_type", "unconfigured");
}

Ref foreign_config_sorbctl(Call& c) {
  Ref oper = index(c.params, "oper");
  const char* wrapper = nullptr;
  if (equals(oper.get(), "delete")) {
    wrapper = "clear_controller_fncfg_sorbctl";
  } else if (equals(oper.get(), "import")) {
    wrapper = "import_controller_fncfg_sorbctl";
  } else {
    Ref head = str("7460卡sorbctl工具不支持[");
    Ref tail = str("]操作");
    Ref part = Ref::steal(PyUnicode_Concat(head.get(), oper.get()));
    Ref message = Ref::steal(PyUnicode_Concat(part.get(), tail.get()));
    c.refuse(message.get());
  }
  Ref parser = c.parsed(wrapper, Route::host);
  return boolean(Call::success(parser.get()));
}

}  // namespace

void add_controller_settings_ops(OpList& ops) {
  ops.push_back(OpDef{"set_ctl_mode",
                      "mode, **kwargs",
                      "设置控制卡工作模式（仅 arcconf）。\n\n"
                      "参数:\n"
                      "    mode (str): 工作模式，\"2\"、\"3\" 或 \"5\"。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    parser_exec_cmd_format 对命令结果的判定。",
                      {action(Tool::arcconf, "ctr_set_ctrl_mode_arcconf"),
                       refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置控制卡工作模式 功能"),
                       refuse(Tool::storcli64, "LSI卡storcli64工具没有 设置控制卡工作模式 功能")}});
  ops.push_back(OpDef{
      "set_jbod_state",
      "state, **kwargs",
      "打开或关闭控制器的直通（JBOD）功能。\n\n"
      "参数:\n"
      "    state (str): \"on\" 或 \"off\"。\n"
      "    force (bool): 强制执行（storcli64）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    bool: 设置是否成功；arcconf 通过切换工作模式实现，等待 10 秒后总是返回 True。",
      {checked(Tool::storcli64, "ctr_set_jbod_cfg_storcli64"),
       checked(Tool::sorbctl, "set_controller_jbod_sorbctl",
               [](Call& c) {
                 Ref state = c.p_pop("state");
                 c.p_set("jbod", state.get());
                 if (equals(state.get(), "on")) c.p_set("jbod", "rawdrive");
               }),
       custom(Tool::arcconf, jbod_arcconf)}});

  ops.push_back(
      OpDef{"query_jbod_info",
            "**kwargs",
            "查询控制器直通（JBOD）状态。\n\n"
            "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    str: 直通状态，如 \"ON\" 或 \"OFF\"；arcconf 的其他工作模式原样返回。",
            {custom(Tool::storcli64, jbod_info_storcli64), custom(Tool::sorbctl, jbod_info_sorbctl),
             custom(Tool::arcconf, jbod_info_arcconf)}});
  ops.push_back(
      OpDef{"get_ctl_current_time",
            "**kwargs",
            "查询控制卡当前时间信息（仅 storcli64）。\n\n"
            "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    str: 控制器时间，格式 \"%Y/%m/%d %H:%M:%S\"，如 \"2021/11/22 19:06:45\"。",
            {custom(Tool::storcli64, current_time_storcli64),
             refuse(Tool::sorbctl, "7460卡sorbctl工具没有 查询控制卡当前时间信息 功能"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询控制卡当前时间信息 功能")}});
  ops.push_back(
      OpDef{"set_controller_time",
            "**kwargs",
            "设置raid控制器时间（仅 storcli64）。\n\n"
            "参数:\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
            "    ctl_time (str): 要设置的时间，格式 yyyymmdd hh:mm:ss；不传则使用系统时间。\n\n"
            "返回:\n    bool: 设置是否成功。",
            {checked(Tool::storcli64, "ctr_set_controll_time_storcli64"),
             refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置raid控制器时间 功能"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置raid控制器时间 功能")}});
  ops.push_back(OpDef{"set_ctl_restart",
                      "**kwargs",
                      "设置控制器复位（仅 storcli64）。\n\n"
                      "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 复位命令是否成功。",
                      {checked(Tool::storcli64, "set_ctl_restart_storcli64", Route::host),
                       refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置控制器复位 功能"),
                       refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置控制器复位 功能")}});
  ops.push_back(
      OpDef{"set_ctl_restart_switch",
            "state, **kwargs",
            "设置控制器复位开关打开或关闭（仅 storcli64）。\n\n"
            "参数:\n"
            "    state (str): \"on\" 或 \"off\"。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 设置是否成功。",
            {checked(Tool::storcli64, "set_ctl_restart_switch_storcli64", Route::host),
             refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置控制器复位开关打开或关闭 功能"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置控制器复位开关打开或关闭 功能")}});
  ops.push_back(OpDef{"set_ctl_auto_rebuild",
                      "state, **kwargs",
                      "设置控制器自动重构开关（仅 storcli64）。\n\n"
                      "参数:\n"
                      "    state (str): \"on\" 或 \"off\"。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功。",
                      {checked(Tool::storcli64, "set_ctl_auto_rebuild_storcli64", Route::host),
                       refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置控制器自动重构开关 功能"),
                       refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置控制器自动重构开关 功能")}});
  ops.push_back(
      OpDef{"get_controller_ehsp",
            "**kwargs",
            "查询紧急热备状态（storcli64、sorbctl）。\n\n"
            "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    str: \"ON\" 或 \"OFF\"（大写）；storcli64 未报告 EmergencyUG 时返回 None。",
            {custom(Tool::storcli64, ehsp_storcli64), custom(Tool::sorbctl, ehsp_sorbctl),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询紧急热备状态 功能")}});
  ops.push_back(OpDef{
      "set_controller_emergency_hotspare_switch",
      "switch, option:-='eug', **kwargs",
      "设置控制器的紧急热备开关（storcli64、sorbctl）。\n\n"
      "参数:\n"
      "    switch (str): \"on\" 或 \"off\"。\n"
      "    option (str): 紧急热备类型，\"state\"、\"smarter\" 或 \"eug\"，缺省 \"eug\"；"
      "仅 storcli64 使用，以 option=switch 的形式下发。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    bool: 设置是否成功。",
      {checked(Tool::storcli64, "ctr_set_eghs_cfg_storcli64", Route::host, ehsp_switch_storcli64),
       checked(Tool::sorbctl, "set_controller_ehsp_sorbctl", Route::host, ehsp_switch_sorbctl),
       refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置控制器的紧急热备开关 功能")}});
  ops.push_back(
      OpDef{"set_bootwithpinnedcache",
            "state, **kwargs",
            "设置存在脏数据时的控制器启动方式（storcli64、sorbctl）。\n\n"
            "参数:\n"
            "    state (str): \"on\" 或 \"off\"。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 设置是否成功。",
            {checked(Tool::storcli64, "ctr_set_bootwithpinnedcache_storcli64"),
             checked(Tool::sorbctl, "set_controller_bootwithpinnedcache_sorbctl"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置存在脏数据时的控制器启动方式 功能")}});
  ops.push_back(OpDef{
      "get_bootwithpinnedcache",
      "**kwargs",
      "查询存在脏数据时的控制器启动方式（storcli64、sorbctl）。\n\n"
      "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    str: 大写的开关状态，如 \"ON\"、\"OFF\"。",
      {custom(Tool::storcli64, pinned_cache_storcli64), custom(Tool::sorbctl, pinned_cache_sorbctl),
       refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询存在脏数据时的控制器启动方式 功能")}});
  ops.push_back(OpDef{"set_controller_pdcache",
                      "*, state, **kwargs",
                      "设置控制器下未配置硬盘的硬盘缓存（仅 arcconf）。\n\n"
                      "参数:\n"
                      "    state (str): \"on\" 或 \"off\"（仅限关键字传入）。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功。",
                      {refuse(Tool::storcli64, "There is no such command in storcli64"),
                       refuse(Tool::sorbctl, "There is no such command in sorbctl"),
                       checked(Tool::arcconf, "set_controller_pdcache_arcconf", pdcache_arcconf)}});
  ops.push_back(OpDef{"set_controller_foreign_config",
                      "*, oper, **kwargs",
                      "设置外部配置操作：删除或导入控制器上的外部配置（storcli64、sorbctl）。\n\n"
                      "参数:\n"
                      "    oper (str): \"delete\"（删除）或 \"import\"（导入），仅限关键字传入。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 操作是否成功。",
                      {checked(Tool::storcli64, "vd_foreign_operate_storcli64", Route::host),
                       custom(Tool::sorbctl, foreign_config_sorbctl),
                       refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置外部配置操作 功能")}});
}

}  // namespace raid
