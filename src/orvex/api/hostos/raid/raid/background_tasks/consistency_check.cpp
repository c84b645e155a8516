// Controller-wide consistency check schedule: switch, mode, excluded virtual
// drives, start time, period, rate, repair policy, parallel drive count, and
// the state query.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

constexpr const char* kScheduleStorcli64 = "ctr_set_cc_cfg_storcli64";
constexpr const char* kSetSorbctl = "set_controller_ccheck_sorbctl";
constexpr const char* kQuerySorbctl = "get_controller_ccheck_sorbctl";

// The start of the next full hour on the controller's clock, as
// "%Y/%m/%d %H".  The clock is read from the default controller: no
// adapter_id is passed to get_ctl_current_time.
Ref next_hour_on_controller(Call& c) {
  Ref clock = c.method("get_ctl_current_time", nullptr);
  return shift_time(clock.get(), "%Y/%m/%d %H:%M:%S", "hours", 1, "%Y/%m/%d %H");
}

void schedule_start(Call& c) {
  Ref start = next_hour_on_controller(c);
  c.p_set("start_time", start.get());
}

Ref switch_storcli64(Call& c) {
  c.p_set("cc", c.arg("switch_status"));
  Ref cc = c.p_get("cc");
  if (equals(cc.get(), "on")) c.p_set("cc", "seq");
  // The clock is read for every switch, also for "off".
  Ref start = next_hour_on_controller(c);
  cc = c.p_get("cc");
  if (equals(cc.get(), "seq") || equals(cc.get(), "conc")) c.p_set("start_time", start.get());
  return checked_dispatch(c, kScheduleStorcli64);
}

Ref switch_sorbctl(Call& c) {
  PyObject* state = c.arg("switch_status");
  c.p_set("switch_status", state);
  const char* wrapper = nullptr;
  if (equals(state, "on")) {
    wrapper = "start_controller_ccheck_sorbctl";
  } else if (equals(state, "off")) {
    wrapper = "stop_controller_ccheck_sorbctl";
  } else {
    Ref head = str("请输入正确的switch_status: ");
    Ref tail = str("错误, 应为on或者off.");
    Ref first = Ref::steal(PyNumber_Add(head.get(), state));
    Ref message = Ref::steal(PyNumber_Add(first.get(), tail.get()));
    c.refuse(message.get());
  }
  return checked_dispatch(c, wrapper);
}

Ref ccrate_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_ccrate_storcli64");
  Ref props = index(parser.get(), "Controller Properties");
  Ref value = index(props.get(), "Value");
  return dict({{"Rate", value.get()}});
}

Ref ccrate_sorbctl(Call& c) {
  Ref parser = c.parsed(kQuerySorbctl);
  Ref value = get(parser.get(), "CC Rate");
  return dict({{"Rate", value.get()}});
}

Ref info_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_cc_storcli64");
  Ref flat = flatten_ctrl_props(parser.get());
  return c.format_with(flat.get(), "get_controller_ccheck_format");
}

Ref info_sorbctl(Call& c) {
  Ref parser = c.parsed(kQuerySorbctl);
  return c.format_with(parser.get(), "get_controller_ccheck_format");
}

Ref info_arcconf(Call& c) {
  Ref parser = c.parsed("ctr_get_adpt_cfg_arcconf", Route::host);
  Ref section = index(parser.get(), "controller_information");
  return c.format_with(section.get(), "get_controller_ccheck_format");
}

}  // namespace

void add_consistency_check_ops(OpList& ops) {
  ops.push_back(
      OpDef{"set_ccheck_switch",
            "switch_status:-, **kwargs",
            "打开或关闭控制器的一致性校验（consistency check）计划任务。\n\n"
            "参数:\n"
            "    switch_status (str): \"on\" 或 \"off\"；storcli64 下 on 即顺序模式（seq），"
            "也可直接传 \"seq\"、\"conc\"。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
            "    start_time (str): 开始时间（yyyy/mm/dd hh）；storcli64 "
            "打开时以控制器时钟的下一个整点代替。\n\n"
            "返回:\n"
            "    bool: 设置是否成功。sorbctl 下 switch_status 不是 on/off 时抛出 OrvexException。",
            {custom(Tool::storcli64, switch_storcli64), custom(Tool::sorbctl, switch_sorbctl),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置一致性校验开关 功能")}});
  ops.push_back(
      OpDef{"set_ctl_ccheck_state",
            "*, cc_state:cc, **kwargs",
            "RAID-设置一致性校验功能模式状态（仅 storcli64）。\n\n"
            "参数:\n"
            "    cc_state (str): \"conc\"（并发）或 \"seq\"（顺序），仅限关键字传入。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "开始时间取控制器时钟的下一个整点。\n\n"
            "返回:\n    bool: 设置是否成功。",
            {checked(Tool::storcli64, kScheduleStorcli64, schedule_start),
             refuse(Tool::sorbctl, "7460卡sorbctl工具没有 RAID-设置一致性校验功能模式状态 功能"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 RAID-设置一致性校验功能模式状态 功能")}});
  ops.push_back(
      OpDef{"set_ctl_ccheck_excludevd",
            "*, excludevd, **kwargs",
            "RAID-设置一致性校验功能参数_excludevd(cc任务中排除的逻辑盘)（仅 storcli64）。\n\n"
            "参数:\n"
            "    excludevd (str): 不参与一致性校验的逻辑盘，仅限关键字传入。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "以并发模式（conc）下发，开始时间取控制器时钟的下一个整点。\n\n"
            "返回:\n    bool: 设置是否成功。",
            {checked(Tool::storcli64, kScheduleStorcli64,
                     [](Call& c) {
                       c.p_set("cc", "conc");
                       schedule_start(c);
                     }),
             refuse(Tool::sorbctl,
                    "7460卡sorbctl工具没有 "
                    "RAID-设置一致性校验功能参数_excludevd(cc任务中排除的逻辑盘) 功能"),
             refuse(Tool::arcconf,
                    "PMC卡arcconf工具没有 "
                    "RAID-设置一致性校验功能参数_excludevd(cc任务中排除的逻辑盘) 功能")}});
  ops.push_back(OpDef{
      "set_ctl_ccheck_starttime",
      "*, start_time, **kwargs",
      "RAID-设置一致性校验功能参数_starttime(开始时间)（仅 storcli64）。\n\n"
      "参数:\n"
      "    start_time (str): 开始时间，格式 yyyy/mm/dd hh，如 \"2023/01/01 23\"，仅限关键字传入。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "以并发模式（conc）下发，开始时间按原样传给工具。\n\n"
      "返回:\n    bool: 设置是否成功。",
      {checked(Tool::storcli64, kScheduleStorcli64, [](Call& c) { c.p_set("cc", "conc"); }),
       refuse(Tool::sorbctl,
              "7460卡sorbctl工具没有 RAID-设置一致性校验功能参数_starttime(开始时间) 功能"),
       refuse(Tool::arcconf,
              "PMC卡arcconf工具没有 RAID-设置一致性校验功能参数_starttime(开始时间) 功能")}});
  ops.push_back(OpDef{
      "set_ctl_ccheck_period",
      "*, delay, **kwargs",
      "RAID-设置一致性校验功能参数_period(周期)。\n\n"
      "参数:\n"
      "    delay (str): 校验周期（天），仅限关键字传入；storcli64 换算成小时下发（7 -> 168），"
      "sorbctl 同时以 period_time 下发原值。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "storcli64 以并发模式（conc）下发，开始时间取控制器时钟的下一个整点。\n\n"
      "返回:\n    bool: 设置是否成功。",
      {checked(Tool::storcli64, kScheduleStorcli64,
               [](Call& c) {
                 c.p_set("cc", "conc");
                 Ref delay = c.p_get("delay");
                 c.p_set("delay", days_as_hours(delay.get()).get());
                 schedule_start(c);
               }),
       checked(Tool::sorbctl, kSetSorbctl,
               [](Call& c) { c.p_set("period_time", c.p_get("delay").get()); }),
       refuse(Tool::arcconf,
              "PMC卡arcconf工具没有  RAID-设置一致性校验功能参数_period(周期) 功能")}});
  ops.push_back(OpDef{
      "get_ctl_ccheck_ccrate",
      "**kwargs",
      "查询一致性校验的速率。\n\n"
      "参数:\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n"
      "    dict: {'Rate': 速率}；storcli64 为百分比（如 '40%'），sorbctl 为级别（如 'high'）。",
      {custom(Tool::storcli64, ccrate_storcli64), custom(Tool::sorbctl, ccrate_sorbctl),
       refuse(Tool::arcconf, "There is no such command in arcconf")}});
  ops.push_back(OpDef{
      "set_ctl_ccheck_ccrate",
      "*, ccrate, **kwargs",
      "RAID-设置一致性校验功能参数_ccrate(一致性速率)。\n\n"
      "参数:\n"
      "    ccrate (str): 速率，0 到 100，仅限关键字传入。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    bool: 设置是否成功。",
      {checked(Tool::storcli64, "ctr_set_ccrate_storcli64"), checked(Tool::sorbctl, kSetSorbctl),
       refuse(Tool::arcconf,
              "PMC卡arcconf工具没有 RAID-设置一致性校验功能参数_ccrate(一致性速率) 功能")}});
  ops.push_back(
      OpDef{"set_ctl_ccheck_repair",
            "*, repair, **kwargs",
            "RAID-设置一致性校验功能参数_repair(修复策略)。\n\n"
            "参数:\n"
            "    repair (str): \"on\" 或 \"off\"，仅限关键字传入；sorbctl 以 state 下发，"
            "arcconf 以 repair_state 下发（on -> enable，off -> disable）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    sorbctl: bool，设置是否成功；arcconf: parser_exec_cmd_format 对命令结果的判定。",
            {refuse(Tool::storcli64,
                    "LSI卡storcli64工具没有 RAID-设置一致性校验功能参数_repair(修复策略) 功能"),
             checked(Tool::sorbctl, kSetSorbctl,
                     [](Call& c) {
                       Ref repair = c.p_pop("repair");
                       c.p_set("state", repair.get());
                     }),
             action(Tool::arcconf, "ctl_set_ccrepair_arcconf", Route::host, [](Call& c) {
               Ref repair = c.p_pop("repair");
               c.p_set("repair_state", repair.get());
               if (equals(repair.get(), "on")) {
                 c.p_set("repair_state", "enable");
               } else if (equals(repair.get(), "off")) {
                 c.p_set("repair_state", "disable");
               }
             })}});
  ops.push_back(OpDef{
      "set_ctl_ccheck_parallelcount",
      "*, parallelcount, **kwargs",
      "RAID-设置一致性校验功能参数_parallelcount(并行硬盘数)（仅 arcconf）。\n\n"
      "参数:\n"
      "    parallelcount (str): 同时校验的硬盘数，仅限关键字传入；1 表示关闭一致性校验。"
      "以 pd_count 下发。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    bool: 设置是否成功。",
      {refuse(Tool::storcli64,
              "LSI卡storcli64工具没有 RAID-设置一致性校验功能参数_parallelcount(并行硬盘数) 功能"),
       refuse(Tool::sorbctl,
              "7460卡sorbctl工具没有 RAID-设置一致性校验功能参数_parallelcount(并行硬盘数) 功能"),
       checked(Tool::arcconf, "ctl_set_cc_parallelcount_arcconf", [](Call& c) {
         Ref count = c.p_pop("parallelcount");
         c.p_set("pd_count", count.get());
       })}});
  ops.push_back(
      OpDef{"query_ctl_ccheck_info",
            "**kwargs",
            "查询控制器的一致性校验状态。\n\n"
            "参数:\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    dict: CC Operation Mode（如 'Sequential'）、CC Execution Delay（如 '1 hours'）、"
            "CC Next Starttime（如 '01/01/2023, 22:00:00'）、CC Current State（如 'Stopped'）、"
            "CC Number of iterations（如 '6'）、CC Number of VD completed（如 '0'）、"
            "CC Excluded VDs（如 'None'）和 raw_data（工具的原始输出；arcconf 为控制器信息部分）。",
            {custom(Tool::storcli64, info_storcli64), custom(Tool::sorbctl, info_sorbctl),
             custom(Tool::arcconf, info_arcconf)}});
}

}  // namespace raid
