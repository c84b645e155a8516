// Patrol read: controller-wide state, rate, parameters and switch, and the
// per-drive scan and its progress.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

// The wrapper of each operation, and the refusal of any other; the message
// names the operation given, whatever its type.
struct OperTexts {
  Wrapper start;
  Wrapper stop;
  Message unknown;
};

// An accepted value and the wrapper it picks.
struct Choice {
  const char* value;
  const Wrapper& wrapper;
};

Ref pd_oper_sorbctl(const Call& c, const OperTexts& t) {
  Ref oper = c.p_get("oper");
  const Choice choices[] = {{"start", t.start}, {"stop", t.stop}};
  for (const Choice& choice : choices) {
    const int hit = equal(oper.get(), choice.value);
    if (hit < 0) return nullptr;
    if (hit == 1) return c.checked(choice.wrapper);
  }
  Ref text = to_str(oper.get());
  if (!text) return nullptr;
  Ref message = c.message(t.unknown, {text.get()});
  if (!message) return nullptr;
  return c.refuse(message.get());
}

// The switch leaves params and picks the command: start for "on", stop for
// "off"; any other value refuses.
struct SwitchTexts {
  Wrapper on;
  Wrapper off;
  Message other;
};

Ref switch_sorbctl(const Call& c, const SwitchTexts& t) {
  Ref state = c.p_pop("switch_status");
  if (!state) return nullptr;
  const Choice choices[] = {{"on", t.on}, {"off", t.off}};
  for (const Choice& choice : choices) {
    const int hit = equal(state.get(), choice.value);
    if (hit < 0) return nullptr;
    if (hit == 1) return c.checked(choice.wrapper);
  }
  return c.refuse(t.other);
}

// One entry per drive, keyed by the drive's path ("all" lists them all).
Ref pd_status_storcli64(const Call& c, const Formatted& t) {
  Ref parser = c.parsed(t.query);
  Ref result = dict();
  if (!parser || !result) return nullptr;
  const int r = each(parser.get(), [&](PyObject* entry) {
    Ref shaped = c.format_with(entry, t.format_name);
    if (!shaped) return -1;
    Ref drive = index(entry, "Drive-ID");
    return set_item(result.get(), drive.get(), shaped.get());
  });
  if (r < 0) return nullptr;
  return result;
}

// storcli64 takes the start delay in hours; it is given in days.
int delay_in_hours(const Call& c) {
  Ref delay = c.p_get("delay");
  const int given = truthy(delay.get());
  if (given <= 0) return given;
  Ref hours = days_as_hours(delay.get());
  return hours ? c.p_set("delay", hours.get()) : -1;
}

// sorbctl takes the delay, in days as given, also as period_time.
int delay_as_period(const Call& c) {
  Ref delay = c.p_get("delay");
  const int given = truthy(delay.get());
  if (given <= 0) return given;
  return c.p_set("period_time", delay.get());
}

// storcli64's property table as one dict, formatted.
Ref props_storcli64(const Call& c, const Formatted& t) {
  Ref parser = c.parsed(t.query);
  Ref table = parser ? props_table(parser.get()) : nullptr;
  return c.format_with(table.get(), t.format_name);
}

}  // namespace

void add_patrol_read_ops(OpList& ops) {
  static constexpr Formatted kStatus{{"ctr_get_patrolread_storcli64"},
                                     {"get_ctl_patrolread_status_format"}};
  ops.push_back(
      Op("get_ctl_patrolread_status")
          .params({kwargs()})
          .extras({kAdapterId})
          .doc("查询控制器的巡读（patrol read）功能状态。\n\n"
               "参数:\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict: PR_switch（巡读开关，如 'off'）、PR_period（巡读周期，如 '168 hours'）、"
               "drive_parall_num（并行巡读硬盘数，如 "
               "'2'）、finish_drive_sum（已完成巡读的次数/硬盘数）、"
               "run_status（运行状态，如 'Stopped'）、raw_data（工具的原始输出）。\n"
               "    sorbctl 无任何输出时抛出 OrvexException；arcconf 不支持。")
          .returns(ResultType::dict)
          .variants({custom<props_storcli64, kStatus>(Tool::storcli64),
                     query(Tool::sorbctl, "get_controller_patrolread_sorbctl")
                         .refuse_on_empty("Command execution failed, nothing returned.")
                         .format("get_ctl_patrolread_status_format"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询巡读功能状态 功能")}));
  static constexpr OperTexts kPdOper{{"start_controller_pd_patrolread_sorbctl"},
                                     {"stop_controller_pd_patrolread_sorbctl"},
                                     {"传入的{}操作不存在, 请输入合法操作: start/stop"}};
  ops.push_back(
      Op("set_pd_patrolread_oper")
          .params({arg("oper"), arg("eid"), arg("sid"), kwargs()})
          .extras({kAdapterId, extra("prrate"), extra("delay")})
          .doc(
              "对单块硬盘开始或停止巡读（仅 sorbctl）。\n\n"
              "参数:\n"
              "    oper (str): \"start\" 或 \"stop\"。\n"
              "    eid (str): 硬盘所在的 enclosure/通道编号。\n"
              "    sid (str): 硬盘的槽位/设备编号。\n"
              "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
              "    prrate (str): 巡读速率，\"low\"、\"medium\" 或 \"high\"。\n"
              "    delay (str): 开始巡读前的延迟（小时）。\n\n"
              "返回:\n"
              "    bool: 设置是否成功。oper 不是 start/stop 时抛出 OrvexException 并指出传入的值。")
          .returns_doc("bool")
          .variants({refuse(Tool::storcli64, "LSI卡storcli64工具没有 设置硬盘巡读功能操作 功能"),
                     custom<pd_oper_sorbctl, kPdOper>(Tool::sorbctl),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置硬盘巡读功能操作 功能")}));
  ops.push_back(
      Op("set_patrolread_oper")
          .params({arg("oper"), kwargs()})
          .extras({kAdapterId, extra("delay"), extra("period"), extra("prrate"), extra("pd_count")})
          .doc("对整个控制器开始、停止、暂停或恢复巡读。\n\n"
               "参数:\n"
               "    oper (str): \"start\" 或 \"stop\"；storcli64 另支持 \"pause\"、\"resume\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
               "    delay (str): 开始巡读前的延迟（小时）。\n"
               "    period (str): 巡读周期（天）。\n"
               "    prrate (str): 巡读速率，\"low\"、\"medium\" 或 \"high\"。\n"
               "    pd_count (str): 同时巡读的硬盘数。\n\n"
               "返回:\n"
               "    bool: 设置是否成功。sorbctl 下 oper 不是 start/stop 时抛出 OrvexException。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "ctr_state_pr_storcli64"),
                     checked_by(Tool::sorbctl, "oper",
                                {{"start", "start_controller_patrolread_sorbctl"},
                                 {"stop", "stop_controller_patrolread_sorbctl"}},
                                "7460卡sorbctl工具没有 设置巡读功能操作 功能", nullptr),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置巡读功能操作 功能")}));
  static constexpr Formatted kPdStatus{{"ctr_get_patrolread_cfg_storcli64"},
                                       {"get_pd_patrolread_status_format"}};
  ops.push_back(
      Op("get_pd_patrolread_status")
          .params({arg("eid"), arg("sid"), kwargs()})
          .extras({kAdapterId})
          .doc("查询硬盘的巡读进度。\n\n"
               "参数:\n"
               "    eid (str): 硬盘所在的 enclosure/通道编号；storcli64 可传 \"all\"。\n"
               "    sid (str): 硬盘的槽位/设备编号；storcli64 可传 \"all\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict: 以硬盘路径（如 '/c0/e0/s0'）为键，值为 Status（如 'run'）、"
               "Estimated_time_left（如 '32 min'）、Progress（如 '2'）和 raw_data。"
               "storcli64 每块硬盘一项；sorbctl 只有一项，键为 /c<adapter_id>/e<eid>/s<sid>。")
          .returns_doc("dict")
          .variants({custom<pd_status_storcli64, kPdStatus>(Tool::storcli64),
                     // sorbctl answers for the one drive asked for, keyed by the caller's ids
                     query(Tool::sorbctl, "get_controller_pd_patrolread_sorbctl")
                         .format("get_pd_patrolread_status_format")
                         .wrap("/c{adapter_id}/e{eid}/s{sid}"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询硬盘巡读功能状态 功能")}));
  ops.push_back(
      Op("get_patrolread_rate")
          .params({kwargs()})
          .extras({kAdapterId})
          .doc("查询巡读功能的后台速率。\n\n"
               "参数:\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict: {'Patrolread Rate': 速率}；storcli64 为百分比（如 '40%'），"
               "sorbctl 为级别（如 'high'）。")
          .returns_doc("dict")
          // storcli64 answers the rate as one property row, sorbctl within its state.
          .variants({query(Tool::storcli64, "ctr_get_prrate_storcli64")
                         .at("Controller Properties")
                         .at("Value")
                         .wrap("Patrolread Rate"),
                     query(Tool::sorbctl, "get_controller_patrolread_sorbctl")
                         .get("Patrolread Rate")
                         .wrap("Patrolread Rate"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询巡读功能后台速率 功能")}));
  ops.push_back(
      Op("set_patrolread_rate")
          .params({arg("prrate"), kwargs()})
          .extras({kAdapterId})
          .doc("设置巡读功能的后台速率。\n\n"
               "参数:\n"
               "    prrate (str): storcli64 为百分比，如 \"20\"、\"30\"、\"40\"、\"50\"；"
               "sorbctl 为 \"high\"、\"low\" 或 \"medium\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "ctr_set_prrate_storcli64"),
                     checked(Tool::sorbctl, "set_controller_bgrate_patrolread_sorbctl"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置巡读功能后台速率 功能")}));
  ops.push_back(
      Op("set_patrolread_param")
          .params({kwargs()})
          .extras({kAdapterId, extra("pd_count"), extra("delay"), extra("start_time"),
                   extra("inc_ssd_state"), extra("uncfg_areas_state"), extra("prrate")})
          .doc("设置巡读功能参数（全部以关键字传入）。\n\n"
               "参数:\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
               "    pd_count (str): 同时巡读的硬盘数。\n"
               "    delay (str): 巡读启动延迟（天）；storcli64 换算成小时下发（2 -> 48），"
               "sorbctl 同时以 period_time 下发原值。\n"
               "    start_time (str): 开始时间，如 \"2022/10/5 23\"。\n"
               "    inc_ssd_state (str): 是否巡读 SSD，\"on\" 或 \"off\"。\n"
               "    uncfg_areas_state (str): 是否巡读未配置区域，\"on\" 或 \"off\"。\n"
               "    prrate (str): 巡读速率，\"low\"、\"medium\" 或 \"high\"。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants(
              {checked(Tool::storcli64, "ctr_set_patrolread_storcli64").prep(delay_in_hours),
               checked(Tool::sorbctl, "set_controller_patrolread_sorbctl").prep(delay_as_period),
               refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置巡读功能参数 功能")}));
  static constexpr SwitchTexts kSwitch{{"start_controller_patrolread_sorbctl"},
                                       {"stop_controller_patrolread_sorbctl"},
                                       {"7460卡sorbctl工具没有 设置巡读功能开关 功能"}};
  ops.push_back(
      Op("set_patrolread_switch")
          .params({arg("switch_status"), kwargs()})
          .extras({kAdapterId, extra("mode")})
          .doc("打开或关闭巡读功能。\n\n"
               "参数:\n"
               "    switch_status (str): \"on\" 或 \"off\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
               "    mode (str): 巡读模式，\"auto\" 或 \"manual\"。\n\n"
               "返回:\n"
               "    bool: 设置是否成功。sorbctl 通过开始/停止巡读实现，switch_status 不是 on/off 时"
               "抛出 OrvexException。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "ctr_set_pr_switch_storcli64"),
                     // sorbctl has no switch of its own: start and stop stand for on
                     // and off, and switch_status is not passed on
                     custom<switch_sorbctl, kSwitch>(Tool::sorbctl),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置巡读功能开关 功能")}));
}

}  // namespace raid
