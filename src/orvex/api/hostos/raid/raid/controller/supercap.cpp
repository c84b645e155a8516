// Supercapacitor information and self-learn.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;

namespace {

// The date-command format of the host clock and of the sorbctl start time.
constexpr const char* kClockFormat = "%Y-%m-%d,%H:%M:%S";

constexpr ParamDef kKeywordsOnly[] = {kwargs()};
constexpr ParamDef kCapacitanceParams[] = {arg("information").or_("'all'"), kwargs()};

// Calls f(row) for every row of every section (the parse's values).
template <class F>
int each_row(PyObject* sections, F&& f) {
  Ref values = call_method(sections, "values");
  return kit::each(values.get(), [&](PyObject* rows) { return kit::each(rows, f); });
}

// Adds row["Property"] -> row["Value"] for every row of every section.
int add_properties(PyObject* sections, PyObject* info) {
  return each_row(sections, [&](PyObject* row) {
    Ref prop = index(row, "Property");
    if (!prop) return -1;
    Ref value = index(row, "Value");
    return set_item(info, prop.get(), value.get());
  });
}

// storcli64 also refuses an information kind it does not know.
struct CapacitanceTexts {
  Wrapper query;
  Text format_name;
  Message bad_information;
};

// storcli64 flattens its property tables ("all") or merges its rows
// ("simple") into one record.
Ref capacitance_storcli64(const Call& c, const CapacitanceTexts& t) {
  Ref info = dict();
  Ref parser = c.parsed(t.query);
  if (!info || !parser) return nullptr;
  Ref failure = get(parser.get(), "fail_Info");
  const int failed = truthy(failure.get());
  if (failed < 0 || (failed == 1 && update(info.get(), failure.get()) < 0)) return nullptr;
  PyObject* information = c.arg(RAID_ARG(kCapacitanceParams, "information"));
  const int all = equal(information, "all");
  if (all < 0) return nullptr;
  int walked = 0;
  if (all == 1) {
    walked = add_properties(parser.get(), info.get());
  } else {
    const int simple = equal(information, "simple");
    if (simple < 0) return nullptr;
    if (simple == 0) return c.refuse(t.bad_information);
    walked = each_row(parser.get(), [&](PyObject* row) { return update(info.get(), row); });
  }
  if (walked < 0) return nullptr;
  return c.format_with(info.get(), t.format_name);
}

// A missing pack is reported as the status, whatever the tool's own status.
Ref capacitance_sorbctl(const Call& c, const kit::Formatted& t) {
  Ref parser = c.parsed(t.query);
  Ref missing = get(parser.get(), "Pack Missing");
  const int gone = equal(missing.get(), "Yes");
  if (gone < 0) return nullptr;
  if (gone == 1) {
    Ref status = str("Pack Missing");
    if (!status || set_item(parser.get(), "Status", status.get()) < 0) return nullptr;
  }
  return c.format_with(parser.get(), t.format_name);
}

// The host clock, read through the dispatcher (its params given by keyword),
// in the comma form.
Ref host_clock(const Call& c, const Wrapper& clock) {
  Ref dispatcher = getattr(c.self, "dispatcher");
  Ref dispatch = getattr(dispatcher.get(), "dispatch");
  if (!dispatch) return nullptr;
  Ref date_format = str("\"+%Y-%m-%d,%H:%M:%S\"");
  Ref name = str(clock.name);
  if (!date_format || !name) return nullptr;
  Ref clock_params = dict({{"formatter", date_format.get()}});
  Ref kwargs = dict({{"params", clock_params.get()}});
  if (!clock_params || !kwargs) return nullptr;
  Ref answer = call(dispatch.get(), {name.get()}, kwargs.get());
  Ref first = item(answer.get(), 0);
  Ref lines = get(first.get(), "parser");
  Ref text = item(lines.get(), 0);

  // Re-formatted after a shift of zero seconds: the start time is "now".
  return kit::shift_time(text.get(), kClockFormat, "seconds", 0, kClockFormat);
}

// The host clock, the self-learn command and the refusal of its "fail".
struct LearnTexts {
  Wrapper clock;  // through the dispatcher
  Wrapper learn;
  Message failed;
};

// Fills the start time (now) and the cycle (30 days) when not given; the
// tool's plain "fail" is raised.
Ref supercap_learn_sorbctl(const Call& c, const LearnTexts& t) {
  Ref starttime = c.p_get("starttime");
  const int given = truthy(starttime.get());
  if (given < 0) return nullptr;
  if (given == 0) {
    Ref clock = host_clock(c, t.clock);
    if (!clock || c.p_set("starttime", clock.get()) < 0) return nullptr;
  }
  Ref cycle = c.p_get("cycle");
  const int cycled = truthy(cycle.get());
  if (cycled < 0 || (cycled == 0 && c.p_set("cycle", "30") < 0)) return nullptr;
  Ref parser = c.parsed(t.learn);
  const int failed = equal(parser.get(), "fail");
  if (failed < 0) return nullptr;
  if (failed == 1) return c.refuse(t.failed);
  const int done = Call::success(parser.get());
  return done < 0 ? nullptr : boolean(done == 1);
}

Ref self_learn_storcli64(const Call& c, const kit::Formatted& t) {
  Ref info = dict();
  Ref parser = c.parsed(t.query);
  if (!info || !parser || add_properties(parser.get(), info.get()) < 0) return nullptr;
  return c.format_with(info.get(), t.format_name);
}

}  // namespace

void add_supercap_ops(OpList& ops) {
  static constexpr CapacitanceTexts kStorcliCapacitance{
      {"ctr_get_cv_all_storcli64"},
      {"get_capacitance_info_format"},
      {"LSI卡查询电容all参数错误: 全部信息all=\"all\" 简要信息all=\"simple\""}};
  static constexpr kit::Formatted kSorbctlCapacitance{{"get_controller_supercap_sorbctl"},
                                                      {"get_capacitance_info_format"}};
  ops.push_back(
      Op("get_capacitance_info")
          .params(kCapacitanceParams)
          .extras({kAdapterId})
          .doc(
              "查询超级电容信息。\n\n"
              "参数:\n"
              "    information (str): \"all\" 全部信息（缺省）或 \"simple\" 简要信息；仅 storcli64 "
              "使用。\n"
              "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
              "返回:\n"
              "    dict: 电容信息，如 Status（\"OK\"，sorbctl 缺少电容模块时为 \"Pack Missing\"）、"
              "Device Name、Temperature（\"34 C\"）、SN、Supercap SN、Module Version、"
              "Supercap Date of Manufacture、Date of Manufacture、PCB Version 等，以及 raw_data。")
          .returns_doc("dict")
          .variants({custom<capacitance_storcli64, kStorcliCapacitance>(Tool::storcli64),
                     custom<capacitance_sorbctl, kSorbctlCapacitance>(Tool::sorbctl),
                     query(Tool::arcconf, "ctr_get_adpt_cfg_arcconf")
                         .at("controller_information")
                         .format("get_capacitance_info_format")}));
  static constexpr LearnTexts kSorbctlLearn{{"system_clock", Route::dispatcher},
                                            {"set_supercap_self_learn_sorbctl"},
                                            {"设置超级电容自学习失败，请检查回显报错信息"}};
  ops.push_back(
      Op("set_supercap_learn")
          .params(kKeywordsOnly)
          .extras({kAdapterId, extra("cycle"), extra("starttime")})
          .doc("设置超级电容自学习（storcli64、sorbctl）。\n\n"
               "参数:\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
               "    cycle (str): 自学习周期（天），最小 1，缺省 \"30\"；仅 sorbctl 使用。\n"
               "    starttime (str): 开始时间，格式 \"%Y-%m-%d,%H:%M:%S\"，缺省为主机当前时间；"
               "仅 sorbctl 使用。\n\n"
               "返回:\n    bool: 设置是否成功；sorbctl 回显 fail 时抛出异常。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "ctr_start_cv_learn_storcli64"),
                     custom<supercap_learn_sorbctl, kSorbctlLearn>(Tool::sorbctl),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置超级电容自学习 功能")}));
  static constexpr kit::Formatted kStorcliSelfLearn{{"ctr_get_cv_learn_storcli64"},
                                                    {"get_supercap_self_learn_info_format"}};
  ops.push_back(
      Op("get_supercap_self_learn_info")
          .params(kKeywordsOnly)
          .extras({kAdapterId})
          .doc("查询超级电容自学习信息（storcli64、sorbctl）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict: 自学习信息，如 Last_learn_status（\"OK\"）、Last_learn_time"
               "（\"2022-12-09 "
               "11:10:15\"）、Learn_cycle（\"30day\"）、Next_learn_time、Present（\"Yes\"）"
               "以及 raw_data；sorbctl 回显 fail 时抛出异常。")
          .returns_doc("dict")
          .variants({custom<self_learn_storcli64, kStorcliSelfLearn>(Tool::storcli64),
                     query(Tool::sorbctl, "get_supercap_self_learn_sorbctl")
                         .refuse_on("fail", "查询超级电容自学习信息失败，请检查回显报错信息")
                         .format("get_supercap_self_learn_info_format"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询超级电容自学习信息 功能")}));
}

}  // namespace raid
