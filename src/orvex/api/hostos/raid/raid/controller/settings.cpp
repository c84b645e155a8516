// Controller-wide settings: work mode, JBOD, clock, reset, rebuild, emergency
// hot spare, pinned-cache boot, drive cache, foreign configuration.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;

namespace {

constexpr ParamDef kKeywordsOnly[] = {kwargs()};
constexpr ParamDef kStateParams[] = {arg("state"), kwargs()};
constexpr ParamDef kEhspSwitchParams[] = {arg("switch"), arg("option").or_("'eug'").unstored(),
                                          kwargs()};

// arcconf switches pass-through through the work mode (the row makes the
// state that mode) and needs time to settle before the next command; the
// result is True whatever the tool said.
Ref jbod_arcconf(const Call& c, const Wrapper& set_mode) {
  if (!c.parsed(set_mode)) return nullptr;
  Ref time = Ref::steal(PyImport_ImportModule("time"));
  Ref seconds = integer(10);
  if (!seconds || !call_method(time.get(), "sleep", {seconds.get()})) return nullptr;
  return boolean(true);
}

// The first EmergencyUG row of the controller properties; nothing when absent.
Ref ehsp_storcli64(const Call& c, const Wrapper& query) {
  Ref parser = c.parsed(query);
  Ref rows = index(parser.get(), "Controller Properties");
  Ref found = none();
  const int walked = kit::each(rows.get(), [&](PyObject* row) {
    Ref prop = index(row, "Ctrl_Prop");
    const int match = equal(prop.get(), "EmergencyUG");
    if (match != 1) return match;
    Ref value = index(row, "Value");
    found = upper(value.get());
    return found ? 1 : -1;
  });
  return walked < 0 ? nullptr : found;
}

// storcli64 names the switch by its option: eug=on, state=off, ...
int ehsp_switch_storcli64(const Call& c) {
  Ref sw = c.p_get("switch");
  if (!sw) return -1;
  return set_item(c.params, c.arg(RAID_ARG(kEhspSwitchParams, "option")), sw.get());
}

// storcli64 reports JBOD as a property among sections: the answer
// flattened, its "Value".
Ref jbod_storcli64(const Call& c, const Wrapper& query) {
  Ref parser = c.parsed(query);
  Ref flat = parser ? merge_output(parser.get(), nullptr, nullptr) : nullptr;
  return index(flat.get(), "Value");
}

}  // namespace

void add_controller_settings_ops(OpList& ops) {
  ops.push_back(
      Op("set_ctl_mode")
          .params({arg("mode"), kwargs()})
          .extras({kAdapterId})
          .doc("设置控制卡工作模式（仅 arcconf）。\n\n"
               "参数:\n"
               "    mode (str): 工作模式，\"2\"、\"3\" 或 \"5\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    parser_exec_cmd_format 对命令结果的判定。")
          .variants({action(Tool::arcconf, "ctr_set_ctrl_mode_arcconf"),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置控制卡工作模式 功能"),
                     refuse(Tool::storcli64, "LSI卡storcli64工具没有 设置控制卡工作模式 功能")}));
  static constexpr Wrapper kSetMode{"ctr_set_ctrl_mode_arcconf"};
  ops.push_back(
      Op("set_jbod_state")
          .params(kStateParams)
          .extras({extra("force").typed("bool"), kAdapterId})
          .doc("打开或关闭控制器的直通（JBOD）功能。\n\n"
               "参数:\n"
               "    state (str): \"on\" 或 \"off\"。\n"
               "    force (bool): 强制执行（storcli64）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功；arcconf 通过切换工作模式实现，等待 10 秒后总是返回 "
               "True。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "ctr_set_jbod_cfg_storcli64"),
                     checked(Tool::sorbctl, "set_controller_jbod_sorbctl")
                         .rename("state", "jbod")
                         .lookup("jbod", {{"on", "rawdrive"}}),
                     custom<jbod_arcconf, kSetMode>(Tool::arcconf)
                         .rename("state", "mode")
                         .lookup("mode", {{"on", "5"}, {"off", "3"}})}));
  static constexpr Wrapper kJbodQuery{"ctr_get_jbod_storcli64"};
  ops.push_back(
      Op("query_jbod_info")
          .params(kKeywordsOnly)
          .extras({kAdapterId})
          .doc("查询控制器直通（JBOD）状态。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    str: 直通状态，如 \"ON\" 或 \"OFF\"；arcconf 的其他工作模式原样返回。")
          .returns_doc("str")
          .variants({custom<jbod_storcli64, kJbodQuery>(Tool::storcli64),
                     // as "ON"/"OFF" where the tools' words allow
                     query(Tool::sorbctl, "get_controller_jbod_sorbctl")
                         .at("Jbod")
                         .method("upper")
                         .lookup({{"RAWDRIVE", "ON"}}),
                     query(Tool::arcconf, "ctr_get_adpt_cfg_arcconf")
                         .at("controller_information")
                         .at("controller_mode")
                         .lookup({{"RAID (Hide RAW)", "OFF"}, {"Mixed", "ON"}})}));
  ops.push_back(
      Op("get_ctl_current_time")
          .params(kKeywordsOnly)
          .extras({kAdapterId})
          .doc("查询控制卡当前时间信息（仅 storcli64）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    str: 控制器时间，格式 \"%Y/%m/%d %H:%M:%S\"，如 \"2021/11/22 "
               "19:06:45\"。")
          .returns_doc("str")
          .variants({query(Tool::storcli64, "ctr_get_controll_time_storcli64")
                         .at("Controller")
                         .first()
                         .at("Value"),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 查询控制卡当前时间信息 功能"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询控制卡当前时间信息 功能")}));
  ops.push_back(
      Op("set_controller_time")
          .params(kKeywordsOnly)
          .extras({kAdapterId, extra("ctl_time")})
          .doc("设置raid控制器时间（仅 storcli64）。\n\n"
               "参数:\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
               "    ctl_time (str): 要设置的时间，格式 yyyymmdd hh:mm:ss；不传则使用系统时间。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants({checked(Tool::storcli64, "ctr_set_controll_time_storcli64"),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置raid控制器时间 功能"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置raid控制器时间 功能")}));
  ops.push_back(
      Op("set_ctl_restart")
          .params(kKeywordsOnly)
          .extras({kAdapterId})
          .doc("设置控制器复位（仅 storcli64）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 复位命令是否成功。")
          .variants({checked(Tool::storcli64, "set_ctl_restart_storcli64").via(Route::host),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置控制器复位 功能"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置控制器复位 功能")}));
  ops.push_back(
      Op("set_ctl_restart_switch")
          .params(kStateParams)
          .extras({kAdapterId})
          .doc("设置控制器复位开关打开或关闭（仅 storcli64）。\n\n"
               "参数:\n"
               "    state (str): \"on\" 或 \"off\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants(
              {checked(Tool::storcli64, "set_ctl_restart_switch_storcli64").via(Route::host),
               refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置控制器复位开关打开或关闭 功能"),
               refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置控制器复位开关打开或关闭 功能")}));
  ops.push_back(
      Op("set_ctl_auto_rebuild")
          .params(kStateParams)
          .extras({kAdapterId})
          .doc("设置控制器自动重构开关（仅 storcli64）。\n\n"
               "参数:\n"
               "    state (str): \"on\" 或 \"off\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants({checked(Tool::storcli64, "set_ctl_auto_rebuild_storcli64").via(Route::host),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置控制器自动重构开关 功能"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置控制器自动重构开关 功能")}));
  static constexpr Wrapper kEhspQuery{"ctr_get_eghs_storcli64", Route::host};
  ops.push_back(
      Op("get_controller_ehsp")
          .params(kKeywordsOnly)
          .extras({kAdapterId})
          .doc("查询紧急热备状态（storcli64、sorbctl）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    str: \"ON\" 或 \"OFF\"（大写）；storcli64 未报告 EmergencyUG 时返回 "
               "None。")
          .returns_doc("str")
          .variants({custom<ehsp_storcli64, kEhspQuery>(Tool::storcli64),
                     query(Tool::sorbctl, "get_controller_ehsp_sorbctl")
                         .via(Route::host)
                         .at("Ehsp Switch")
                         .method("upper"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询紧急热备状态 功能")}));
  ops.push_back(
      Op("set_controller_emergency_hotspare_switch")
          .params(kEhspSwitchParams)
          .extras({kAdapterId})
          .doc("设置控制器的紧急热备开关（storcli64、sorbctl）。\n\n"
               "参数:\n"
               "    switch (str): \"on\" 或 \"off\"。\n"
               "    option (str): 紧急热备类型，\"state\"、\"smarter\" 或 \"eug\"，缺省 \"eug\"；"
               "仅 storcli64 使用，以 option=switch 的形式下发。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants({checked(Tool::storcli64, "ctr_set_eghs_cfg_storcli64")
                         .via(Route::host)
                         .prep(ehsp_switch_storcli64),
                     checked(Tool::sorbctl, "set_controller_ehsp_sorbctl")
                         .via(Route::host)
                         .copy("switch", "state"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置控制器的紧急热备开关 功能")}));
  ops.push_back(
      Op("set_bootwithpinnedcache")
          .params(kStateParams)
          .extras({kAdapterId})
          .doc("设置存在脏数据时的控制器启动方式（storcli64、sorbctl）。\n\n"
               "参数:\n"
               "    state (str): \"on\" 或 \"off\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants({checked(Tool::storcli64, "ctr_set_bootwithpinnedcache_storcli64"),
                     checked(Tool::sorbctl, "set_controller_bootwithpinnedcache_sorbctl"),
                     refuse(Tool::arcconf,
                            "PMC卡arcconf工具没有 设置存在脏数据时的控制器启动方式 功能")}));
  ops.push_back(
      Op("get_bootwithpinnedcache")
          .params(kKeywordsOnly)
          .extras({kAdapterId})
          .doc("查询存在脏数据时的控制器启动方式（storcli64、sorbctl）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    str: 大写的开关状态，如 \"ON\"、\"OFF\"。")
          .returns_doc("str")
          .variants({query(Tool::storcli64, "ctr_get_bootwithpinnedcache_storcli64")
                         .at("Controller Properties")
                         .first()
                         .at("Value")
                         .method("upper"),
                     query(Tool::sorbctl, "get_controller_bootwithpinnedcache_sorbctl")
                         .at("Boot With Pinned Cache Switch")
                         .method("upper"),
                     refuse(Tool::arcconf,
                            "PMC卡arcconf工具没有 查询存在脏数据时的控制器启动方式 功能")}));
  // arcconf takes the drive cache switch as 1 (on) / 2 (off); anything else
  // is sent as nothing.
  ops.push_back(Op("set_controller_pdcache")
                    .params({kw("state"), kwargs()})
                    .extras({kAdapterId})
                    .doc("设置控制器下未配置硬盘的硬盘缓存（仅 arcconf）。\n\n"
                         "参数:\n"
                         "    state (str): \"on\" 或 \"off\"（仅限关键字传入）。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 设置是否成功。")
                    .variants({refuse(Tool::storcli64, "There is no such command in storcli64"),
                               refuse(Tool::sorbctl, "There is no such command in sorbctl"),
                               checked(Tool::arcconf, "set_controller_pdcache_arcconf")
                                   .lookup("state", {{"on", "1"}, {"off", "2"}}, Missing::none)
                                   .put("drive_type", "unconfigured")}));
  ops.push_back(
      Op("set_controller_foreign_config")
          .params({kw("oper"), kwargs()})
          .extras({kAdapterId})
          .doc("设置外部配置操作：删除或导入控制器上的外部配置（storcli64、sorbctl）。\n\n"
               "参数:\n"
               "    oper (str): \"delete\"（删除）或 \"import\"（导入），仅限关键字传入。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 操作是否成功。")
          .variants({checked(Tool::storcli64, "vd_foreign_operate_storcli64").via(Route::host),
                     checked_by(Tool::sorbctl, "oper",
                                {{"delete", "clear_controller_fncfg_sorbctl"},
                                 {"import", "import_controller_fncfg_sorbctl"}},
                                "7460卡sorbctl工具不支持[", "]操作")
                         .via(Route::host),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置外部配置操作 功能")}));
}

}  // namespace raid
