// Supercapacitor information and self-learn.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

// The date-command format of the host clock and of the sorbctl start time.
constexpr const char* kClockFormat = "%Y-%m-%d,%H:%M:%S";

// Adds row["Property"] -> row["Value"] for every row of every section.
void add_properties(PyObject* sections, PyObject* info) {
  Ref values = call_method(sections, "values");
  each(values.get(), [&](PyObject* rows) {
    each(rows, [&](PyObject* row) {
      Ref prop = index(row, "Property");
      Ref value = index(row, "Value");
      set_item(info, prop.get(), value.get());
    });
  });
}

Ref capacitance_storcli64(Call& c) {
  Ref info = dict();
  Ref parser = c.parsed("ctr_get_cv_all_storcli64");
  Ref failure = get(parser.get(), "fail_Info");
  if (truthy(failure.get())) update(info.get(), failure.get());
  Ref information = index(c.params, "information");
  if (equals(information.get(), "all")) {
    add_properties(parser.get(), info.get());
  } else if (equals(information.get(), "simple")) {
    Ref values = call_method(parser.get(), "values");
    each(values.get(),
         [&](PyObject* rows) { each(rows, [&](PyObject* row) { update(info.get(), row); }); });
  } else {
    c.refuse("LSI卡查询电容all参数错误: 全部信息all=\"all\" 简要信息all=\"simple\"");
  }
  return c.format_with(info.get(), "get_capacitance_info_format");
}

// A missing pack is reported as the status, whatever the tool's own status.
Ref capacitance_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_supercap_sorbctl");
  Ref missing = get(parser.get(), "Pack Missing");
  if (equals(missing.get(), "Yes")) {
    Ref status = str("Pack Missing");
    set_item(parser.get(), "Status", status.get());
  }
  return c.format_with(parser.get(), "get_capacitance_info_format");
}

Ref capacitance_arcconf(Call& c) {
  Ref parser = c.parsed("ctr_get_adpt_cfg_arcconf");
  Ref info = index(parser.get(), "controller_information");
  return c.format_with(info.get(), "get_capacitance_info_format");
}

// The host clock, read through the dispatcher, in the comma form.
Ref host_clock(Call& c) {
  Ref dispatcher = getattr(c.self, "dispatcher");
  Ref dispatch = getattr(dispatcher.get(), "dispatch");
  Ref date_format = str("\"+%Y-%m-%d,%H:%M:%S\"");
  Ref clock_params = dict({{"formatter", date_format.get()}});
  Ref kwargs = dict({{"params", clock_params.get()}});
  Ref name = str("system_clock");
  Ref answer = call(dispatch.get(), {name.get()}, kwargs.get());
  Ref first = item(answer.get(), 0);
  Ref lines = get(first.get(), "parser");
  Ref text = item(lines.get(), 0);

  // Re-formatted after a shift of zero seconds: the start time is "now".
  return shift_time(text.get(), kClockFormat, "seconds", 0, kClockFormat);
}

Ref supercap_learn_sorbctl(Call& c) {
  Ref starttime = c.p_get("starttime");
  if (!truthy(starttime.get())) {
    Ref clock = host_clock(c);
    c.p_set("starttime", clock.get());
  }
  Ref cycle = c.p_get("cycle");
  if (!truthy(cycle.get())) c.p_set("cycle", "30");
  Ref parser = c.parsed("set_supercap_self_learn_sorbctl");
  if (equals(parser.get(), "fail")) c.refuse("设置超级电容自学习失败，请检查回显报错信息");
  return boolean(Call::success(parser.get()));
}

Ref self_learn_storcli64(Call& c) {
  Ref info = dict();
  Ref parser = c.parsed("ctr_get_cv_learn_storcli64");
  add_properties(parser.get(), info.get());
  return c.format_with(info.get(), "get_supercap_self_learn_info_format");
}

Ref self_learn_sorbctl(Call& c) {
  Ref parser = c.parsed("get_supercap_self_learn_sorbctl");
  if (equals(parser.get(), "fail")) c.refuse("查询超级电容自学习信息失败，请检查回显报错信息");
  return c.format_with(parser.get(), "get_supercap_self_learn_info_format");
}

}  // namespace

void add_supercap_ops(OpList& ops) {
  ops.push_back(OpDef{
      "get_capacitance_info",
      "information='all', **kwargs",
      "查询超级电容信息。\n\n"
      "参数:\n"
      "    information (str): \"all\" 全部信息（缺省）或 \"simple\" 简要信息；仅 storcli64 使用。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n"
      "    dict: 电容信息，如 Status（\"OK\"，sorbctl 缺少电容模块时为 \"Pack Missing\"）、"
      "Device Name、Temperature（\"34 C\"）、SN、Supercap SN、Module Version、"
      "Supercap Date of Manufacture、Date of Manufacture、PCB Version 等，以及 raw_data。",
      {custom(Tool::storcli64, capacitance_storcli64), custom(Tool::sorbctl, capacitance_sorbctl),
       custom(Tool::arcconf, capacitance_arcconf)}});
  ops.push_back(
      OpDef{"set_supercap_learn",
            "**kwargs",
            "设置超级电容自学习（storcli64、sorbctl）。\n\n"
            "参数:\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
            "    cycle (str): 自学习周期（天），最小 1，缺省 \"30\"；仅 sorbctl 使用。\n"
            "    starttime (str): 开始时间，格式 \"%Y-%m-%d,%H:%M:%S\"，缺省为主机当前时间；"
            "仅 sorbctl 使用。\n\n"
            "返回:\n    bool: 设置是否成功；sorbctl 回显 fail 时抛出异常。",
            {checked(Tool::storcli64, "ctr_start_cv_learn_storcli64"),
             custom(Tool::sorbctl, supercap_learn_sorbctl),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置超级电容自学习 功能")}});
  ops.push_back(OpDef{
      "get_supercap_self_learn_info",
      "**kwargs",
      "查询超级电容自学习信息（storcli64、sorbctl）。\n\n"
      "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n"
      "    dict: 自学习信息，如 Last_learn_status（\"OK\"）、Last_learn_time"
      "（\"2022-12-09 11:10:15\"）、Learn_cycle（\"30day\"）、Next_learn_time、Present（\"Yes\"）"
      "以及 raw_data；sorbctl 回显 fail 时抛出异常。",
      {custom(Tool::storcli64, self_learn_storcli64), custom(Tool::sorbctl, self_learn_sorbctl),
       refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询超级电容自学习信息 功能")}});
}

}  // namespace raid
