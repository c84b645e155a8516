// Controller-wide consistency check schedule: switch, mode, excluded virtual
// drives, start time, period, rate, repair policy, parallel drive count, and
// the state query.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

// switch_status goes into params under a key of each variant's own.
constexpr ParamDef kSwitchParams[] = {arg("switch_status").unstored(), kwargs()};

// The start of the next full hour on the controller's clock, as
// "%Y/%m/%d %H".  The clock is read from the default controller: no
// adapter_id is passed to the clock's operation.
Ref next_hour_on_controller(const Call& c, const Operation& clock) {
  Ref now = c.method(clock);
  return shift_time(now.get(), "%Y/%m/%d %H:%M:%S", "hours", 1, "%Y/%m/%d %H");
}

int schedule_start(const Call& c, const Operation& clock) {
  Ref start = next_hour_on_controller(c, clock);
  return start ? c.p_set("start_time", start.get()) : -1;
}

// The schedule's command, and the operation reading the controller's clock.
struct ScheduleTexts {
  Wrapper schedule;
  Operation clock;
};

// The mode is the switch, put in params as cc by the row ("on" meaning
// sequential); only the modes seq and conc are scheduled, but the clock is read for every switch,
// "off" too.
Ref switch_storcli64(const Call& c, const ScheduleTexts& t) {
  Ref start = next_hour_on_controller(c, t.clock);
  Ref cc = c.p_get("cc");
  if (!start || !cc) return nullptr;
  for (const char* mode : {"seq", "conc"}) {
    const int hit = equal(cc.get(), mode);
    if (hit < 0) return nullptr;
    if (hit == 1) {
      if (c.p_set("start_time", start.get()) < 0) return nullptr;
      break;
    }
  }
  return c.checked(t.schedule);
}

// storcli64 takes the period in hours; it is given in days.
int period_in_hours(const Call& c) {
  Ref delay = c.p_get("delay");
  Ref hours = days_as_hours(delay.get());
  return hours ? c.p_set("delay", hours.get()) : -1;
}

// The switch is bound but not stored: storcli64 sends it as "cc", sorbctl
// chooses its command by it under its own name.
int switch_as_cc(const Call& c) {
  return c.p_set("cc", c.arg(RAID_ARG(kSwitchParams, "switch_status")));
}
int switch_kept(const Call& c) {
  return c.p_set("switch_status", c.arg(RAID_ARG(kSwitchParams, "switch_status")));
}

// storcli64's property table as one dict, formatted.
Ref props_storcli64(const Call& c, const Formatted& t) {
  Ref parser = c.parsed(t.query);
  Ref table = parser ? props_table(parser.get()) : nullptr;
  return c.format_with(table.get(), t.format_name);
}

}  // namespace

void add_consistency_check_ops(OpList& ops) {
  static constexpr ScheduleTexts kSchedule{{"ctr_set_cc_cfg_storcli64"}, {"get_ctl_current_time"}};
  ops.push_back(
      Op("set_ccheck_switch")
          .params(kSwitchParams)
          .extras({kAdapterId, extra("start_time")})
          .doc("打开或关闭控制器的一致性校验（consistency check）计划任务。\n\n"
               "参数:\n"
               "    switch_status (str): \"on\" 或 \"off\"；storcli64 下 on 即顺序模式（seq），"
               "也可直接传 \"seq\"、\"conc\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
               "    start_time (str): 开始时间（yyyy/mm/dd hh）；storcli64 "
               "打开时以控制器时钟的下一个整点代替。\n\n"
               "返回:\n"
               "    bool: 设置是否成功。sorbctl 下 switch_status 不是 on/off 时抛出 "
               "OrvexException。")
          .returns_doc("bool")
          .variants({custom<switch_storcli64, kSchedule>(Tool::storcli64)
                         .prep(switch_as_cc)
                         .lookup("cc", {{"on", "seq"}})
                         .note("adapter_id", ExtraUse::ignores,
                               "读取控制器时钟时不传 adapter_id，时钟取自第一个控制器"),
                     checked_by(Tool::sorbctl, "switch_status",
                                {{"on", "start_controller_ccheck_sorbctl"},
                                 {"off", "stop_controller_ccheck_sorbctl"}},
                                "请输入正确的switch_status: ", "错误, 应为on或者off.")
                         .prep(switch_kept),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置一致性校验开关 功能")}));
  static constexpr Operation kClock{"get_ctl_current_time"};
  ops.push_back(
      Op("set_ctl_ccheck_state")
          .params({kw("cc_state").as("cc"), kwargs()})
          .extras({kAdapterId})
          .doc("RAID-设置一致性校验功能模式状态（仅 storcli64）。\n\n"
               "参数:\n"
               "    cc_state (str): \"conc\"（并发）或 \"seq\"（顺序），仅限关键字传入。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "开始时间取控制器时钟的下一个整点。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants(
              {checked(Tool::storcli64, "ctr_set_cc_cfg_storcli64")
                   .prep<schedule_start, kClock>()
                   .note("adapter_id", ExtraUse::ignores,
                         "读取控制器时钟时不传 adapter_id，时钟取自第一个控制器"),
               refuse(Tool::sorbctl, "7460卡sorbctl工具没有 RAID-设置一致性校验功能模式状态 功能"),
               refuse(Tool::arcconf,
                      "PMC卡arcconf工具没有 RAID-设置一致性校验功能模式状态 功能")}));
  ops.push_back(
      Op("set_ctl_ccheck_excludevd")
          .params({kw("excludevd"), kwargs()})
          .extras({kAdapterId})
          .doc("RAID-设置一致性校验功能参数_excludevd(cc任务中排除的逻辑盘)（仅 storcli64）。\n\n"
               "参数:\n"
               "    excludevd (str): 不参与一致性校验的逻辑盘，仅限关键字传入。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "以并发模式（conc）下发，开始时间取控制器时钟的下一个整点。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "ctr_set_cc_cfg_storcli64")
                         .put("cc", "conc")
                         .prep<schedule_start, kClock>()
                         .note("adapter_id", ExtraUse::ignores,
                               "读取控制器时钟时不传 adapter_id，时钟取自第一个控制器"),
                     refuse(Tool::sorbctl,
                            "7460卡sorbctl工具没有 "
                            "RAID-设置一致性校验功能参数_excludevd(cc任务中排除的逻辑盘) 功能"),
                     refuse(Tool::arcconf,
                            "PMC卡arcconf工具没有 "
                            "RAID-设置一致性校验功能参数_excludevd(cc任务中排除的逻辑盘) 功能")}));
  ops.push_back(
      Op("set_ctl_ccheck_starttime")
          .params({kw("start_time"), kwargs()})
          .extras({kAdapterId})
          .doc("RAID-设置一致性校验功能参数_starttime(开始时间)（仅 storcli64）。\n\n"
               "参数:\n"
               "    start_time (str): 开始时间，格式 yyyy/mm/dd hh，如 \"2023/01/01 23\"，"
               "仅限关键字传入。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "以并发模式（conc）下发，开始时间按原样传给工具。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "ctr_set_cc_cfg_storcli64").put("cc", "conc"),
                     refuse(Tool::sorbctl,
                            "7460卡sorbctl工具没有 RAID-设置一致性校验功能参数_starttime(开始时间) "
                            "功能"),
                     refuse(Tool::arcconf,
                            "PMC卡arcconf工具没有 RAID-设置一致性校验功能参数_starttime(开始时间) "
                            "功能")}));
  ops.push_back(
      Op("set_ctl_ccheck_period")
          .params({kw("delay"), kwargs()})
          .extras({kAdapterId})
          .doc("RAID-设置一致性校验功能参数_period(周期)。\n\n"
               "参数:\n"
               "    delay (str): 校验周期（天），仅限关键字传入；storcli64 换算成小时下发（7 -> "
               "168），sorbctl 同时以 period_time 下发原值。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "storcli64 以并发模式（conc）下发，开始时间取控制器时钟的下一个整点。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants(
              {checked(Tool::storcli64, "ctr_set_cc_cfg_storcli64")
                   .put("cc", "conc")
                   .prep(period_in_hours)
                   .prep<schedule_start, kClock>()
                   .note("adapter_id", ExtraUse::ignores,
                         "读取控制器时钟时不传 adapter_id，时钟取自第一个控制器"),
               checked(Tool::sorbctl, "set_controller_ccheck_sorbctl").copy("delay", "period_time"),
               refuse(Tool::arcconf,
                      "PMC卡arcconf工具没有  RAID-设置一致性校验功能参数_period(周期) 功能")}));
  ops.push_back(
      Op("get_ctl_ccheck_ccrate")
          .params({kwargs()})
          .extras({kAdapterId})
          .doc("查询一致性校验的速率。\n\n"
               "参数:\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict: {'Rate': 速率}；storcli64 为百分比（如 '40%'），sorbctl 为级别（如 "
               "'high'）。")
          .returns_doc("dict")
          // storcli64 answers the rate as one property row, sorbctl within its state.
          .variants(
              {query(Tool::storcli64, "ctr_get_ccrate_storcli64")
                   .at("Controller Properties")
                   .at("Value")
                   .wrap("Rate"),
               query(Tool::sorbctl, "get_controller_ccheck_sorbctl").at("CC Rate").wrap("Rate"),
               refuse(Tool::arcconf, "There is no such command in arcconf")}));
  ops.push_back(
      Op("set_ctl_ccheck_ccrate")
          .params({kw("ccrate"), kwargs()})
          .extras({kAdapterId})
          .doc("RAID-设置一致性校验功能参数_ccrate(一致性速率)。\n\n"
               "参数:\n"
               "    ccrate (str): 速率，0 到 100，仅限关键字传入。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "ctr_set_ccrate_storcli64"),
                     checked(Tool::sorbctl, "set_controller_ccheck_sorbctl"),
                     refuse(Tool::arcconf,
                            "PMC卡arcconf工具没有 RAID-设置一致性校验功能参数_ccrate(一致性速率) "
                            "功能")}));
  ops.push_back(
      Op("set_ctl_ccheck_repair")
          .params({kw("repair"), kwargs()})
          .extras({kAdapterId})
          .doc(
              "RAID-设置一致性校验功能参数_repair(修复策略)。\n\n"
              "参数:\n"
              "    repair (str): \"on\" 或 \"off\"，仅限关键字传入；sorbctl 以 state 下发，"
              "arcconf 以 repair_state 下发（on -> enable，off -> disable）。\n"
              "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
              "返回:\n"
              "    sorbctl: bool，设置是否成功；arcconf: parser_exec_cmd_format 对命令结果的判定。")
          .variants(
              {refuse(Tool::storcli64,
                      "LSI卡storcli64工具没有 RAID-设置一致性校验功能参数_repair(修复策略) "
                      "功能"),
               checked(Tool::sorbctl, "set_controller_ccheck_sorbctl").rename("repair", "state"),
               action(Tool::arcconf, "ctl_set_ccrepair_arcconf")
                   .via(Route::host)
                   .rename("repair", "repair_state")
                   .lookup("repair_state", {{"on", "enable"}, {"off", "disable"}})}));
  ops.push_back(
      Op("set_ctl_ccheck_parallelcount")
          .params({kw("parallelcount"), kwargs()})
          .extras({kAdapterId})
          .doc("RAID-设置一致性校验功能参数_parallelcount(并行硬盘数)（仅 arcconf）。\n\n"
               "参数:\n"
               "    parallelcount (str): 同时校验的硬盘数，仅限关键字传入；1 表示关闭一致性校验。"
               "以 pd_count 下发。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants({refuse(Tool::storcli64,
                            "LSI卡storcli64工具没有 "
                            "RAID-设置一致性校验功能参数_parallelcount(并行硬盘数) 功能"),
                     refuse(Tool::sorbctl,
                            "7460卡sorbctl工具没有 "
                            "RAID-设置一致性校验功能参数_parallelcount(并行硬盘数) 功能"),
                     checked(Tool::arcconf, "ctl_set_cc_parallelcount_arcconf")
                         .rename("parallelcount", "pd_count")}));
  static constexpr Formatted kInfo{{"ctr_get_cc_storcli64"}, {"get_controller_ccheck_format"}};
  ops.push_back(
      Op("query_ctl_ccheck_info")
          .params({kwargs()})
          .extras({kAdapterId})
          .doc("查询控制器的一致性校验状态。\n\n"
               "参数:\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict: CC Operation Mode（如 'Sequential'）、CC Execution Delay（如 '1 "
               "hours'）、CC Next Starttime（如 '01/01/2023, 22:00:00'）、CC Current State（如 "
               "'Stopped'）、CC Number of iterations（如 '6'）、CC Number of VD completed（如 "
               "'0'）、CC Excluded VDs（如 'None'）和 raw_data（工具的原始输出；arcconf "
               "为控制器信息部分）。")
          .returns_doc("dict")
          .variants({custom<props_storcli64, kInfo>(Tool::storcli64),
                     query(Tool::sorbctl, "get_controller_ccheck_sorbctl")
                         .format("get_controller_ccheck_format"),
                     query(Tool::arcconf, "ctr_get_adpt_cfg_arcconf")
                         .via(Route::host)
                         .at("controller_information")
                         .format("get_controller_ccheck_format")}));
}

}  // namespace raid
