// Physical drive erase and sanitize: start, stop and status.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

constexpr ParamDef kModeParams[] = {kw("eid"), kw("sid"), kw("mode"), kwargs()};
constexpr ParamDef kPositionalParams[] = {arg("eid"), arg("sid"), kwargs()};
// No catch-all: stop_pd_erase takes no other keywords.
constexpr ParamDef kStopParams[] = {kw("eid"), kw("sid")};
constexpr ParamDef kDriveParams[] = {kw("eid"), kw("sid"), kwargs()};

// start_pd_erase: {eid, sid, mode, oper: "start"}, then the caller's extra keywords.
Ref start_erase_params(PyObject* const* args, PyObject* extra) {
  Ref oper = str("start");
  Ref p = dict({{"eid", args[RAID_ARG(kModeParams, "eid")]},
                {"sid", args[RAID_ARG(kModeParams, "sid")]},
                {"mode", args[RAID_ARG(kModeParams, "mode")]},
                {"oper", oper.get()}});
  if (!p || (extra != nullptr && update(p.get(), extra) < 0)) return nullptr;
  return p;
}

// arcconf lists erases among the controller's background tasks; the
// formatter picks this drive's task.
Ref erase_arcconf(const Call& c, const Wrapper& query) {
  Ref p = c.parsed(query);
  Ref kw = dict({{"eid", c.arg(RAID_ARG(kDriveParams, "eid"))},
                 {"sid", c.arg(RAID_ARG(kDriveParams, "sid"))}});
  if (!p || !kw) return nullptr;
  return c.formatter_call("get_controller_pd_erase_raid", {p.get()}, kw.get());
}

// The erase query, the tool's answer when it knows no erase and the
// formatter template of a record.
struct EraseTexts {
  Wrapper query;
  Text failed;
  Text format_name;
};

// sorbctl answers "fail" when it knows no erase of the drive: that text is
// the result.  Else its record gains the drive's id and is formatted.
Ref erase_sorbctl(const Call& c, const EraseTexts& t) {
  Ref record = c.parsed(t.query);
  if (!record) return nullptr;
  const int failed = equal(record.get(), t.failed.text);
  if (failed != 0) return failed < 0 ? nullptr : record;
  if (put_drive_id(c, record.get()) < 0) return nullptr;
  return c.format_with(record.get(), t.format_name);
}

}  // namespace

void add_pd_erase_sanitize_ops(OpList& ops) {
  ops.push_back(
      Op("start_pd_sanitize")
          .params(kModeParams)
          .extras({extra("ause").typed("bool"), kAdapterId})
          .doc("启动硬盘 sanitize 擦除。\n\n"
               "参数:\n"
               "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
               "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
               "    mode (str): \"cryptoerase\"、\"overwrite\" 或 \"blockerase\"。\n"
               "    ause (bool): sanitize 因未知原因失败时将硬盘置为 unconfigured good。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 启动是否成功。")
          .variants({checked(Tool::storcli64, "start_pd_sanitize_storcli64"),
                     checked(Tool::sorbctl, "start_controller_pd_sanitize_sorbctl"),
                     refuse(Tool::arcconf, "There is no such command in arcconf")}));
  ops.push_back(Op("get_pd_sanitize")
                    .params(kPositionalParams)
                    .extras({kAdapterId})
                    .doc("查询硬盘 sanitize 进度。\n\n"
                         "参数:\n"
                         "    eid (str): enclosure（通道）编号。\n"
                         "    sid (str): 槽位（设备）编号。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n"
                         "    dict: Status（如 \"run\"）, Progress（如 \"18\"）, "
                         "Estimated_time_left（如 \"80 min\"）, raw_data。")
                    .returns_doc("dict")
                    .variants({query(Tool::storcli64, "get_pd_sanitize_storcli64")
                                   .first()
                                   .format("get_pd_sanitize_format"),
                               query(Tool::sorbctl, "get_controller_pd_sanitize_sorbctl")
                                   .format("get_pd_sanitize_format"),
                               refuse(Tool::arcconf, "There is no such command in arcconf")}));
  ops.push_back(Op("start_pd_erase")
                    .params(kModeParams)
                    .extras({kAdapterId})
                    .build(start_erase_params)
                    .doc("启动硬盘擦除。\n\n"
                         "参数:\n"
                         "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                         "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                         "    mode (str): \"normal\"、\"simple\" 或 \"thorough\"。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 启动是否成功。")
                    .variants({checked(Tool::storcli64, "pd_set_erase_storcli64"),
                               checked(Tool::sorbctl, "start_controller_pd_erase_sorbctl"),
                               checked(Tool::arcconf, "set_ctr_pd_erase_arcconf")}));
  ops.push_back(
      Op("stop_pd_erase")
          .params(kStopParams)
          .doc("停止硬盘擦除。\n\n"
               "参数:\n"
               "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
               "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
               "    不接受其他关键字参数。\n\n"
               "返回:\n    bool: 停止是否成功。")
          .variants({checked(Tool::storcli64, "pd_set_erase_storcli64").put("oper", "stop"),
                     checked(Tool::sorbctl, "stop_controller_pd_erase_sorbctl").put("oper", "stop"),
                     checked(Tool::arcconf, "set_ctr_pd_erase_arcconf").put("oper", "stop")}));
  static constexpr EraseTexts kSorbctlErase{
      {"get_controller_pd_erase_sorbctl"}, {"fail"}, {"get_controller_pd_erase_raid"}};
  static constexpr Wrapper kArcconfErase{"ctr_get_controller_bgtask_arcconf"};
  ops.push_back(
      Op("get_pd_erase")
          .params(kDriveParams)
          .extras({kAdapterId})
          .doc("查询硬盘擦除进度。\n\n"
               "参数:\n"
               "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
               "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict: Drive-ID（如 \"c0:e0:s0\"）, Progress（如 \"0%\"）, "
               "Status（如 \"In progress\"）, Estimated_time_left（如 \"0 min\"）, "
               "raw_data；sorbctl 查询失败时返回文本 \"fail\"。")
          .returns_doc("dict")
          .variants({query(Tool::storcli64, "pd_get_erase_storcli64")
                         .first()
                         .format("get_controller_pd_erase_raid"),
                     // sorbctl answers "fail" when no erase is known; that text is the result
                     custom<erase_sorbctl, kSorbctlErase>(Tool::sorbctl),
                     custom<erase_arcconf, kArcconfErase>(Tool::arcconf)}));
}

}  // namespace raid
