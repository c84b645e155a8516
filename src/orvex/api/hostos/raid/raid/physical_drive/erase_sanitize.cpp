// Physical drive erase and sanitize: start, stop and status.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

// {eid, sid, mode, oper: "start"}, then the caller's extra keywords.
Ref start_erase_params(PyObject* args, PyObject* extra) {
  Ref oper = str("start");
  Ref p = dict({{"eid", PyTuple_GetItem(args, 0)},
                {"sid", PyTuple_GetItem(args, 1)},
                {"mode", PyTuple_GetItem(args, 2)},
                {"oper", oper.get()}});
  update(p.get(), extra);
  return p;
}

// {eid, sid, oper: "stop"}; the signature takes no other keywords.
Ref stop_erase_params(PyObject* args, PyObject* extra) {
  Ref p = dict({{"eid", PyTuple_GetItem(args, 0)}, {"sid", PyTuple_GetItem(args, 1)}});
  update(p.get(), extra);
  Ref oper = str("stop");
  Ref more = dict({{"oper", oper.get()}});
  update(p.get(), more.get());
  return p;
}

Ref sanitize_storcli64(Call& c) {
  Ref p = c.parsed("get_pd_sanitize_storcli64");
  Ref first = item(p.get(), 0);
  return c.format_with(first.get(), "get_pd_sanitize_format");
}

// sorbctl answers "fail" when no erase is known; that text is the result.
Ref erase_sorbctl(Call& c) {
  Ref p = c.parsed("get_controller_pd_erase_sorbctl");
  if (PyUnicode_Check(p.get()) && equals(p.get(), "fail")) return p;
  Ref id = drive_id(c);
  set_item(p.get(), "Drive-ID", id.get());
  return c.format_with(p.get(), "get_controller_pd_erase_raid");
}

Ref erase_storcli64(Call& c) {
  Ref p = c.parsed("pd_get_erase_storcli64");
  Ref first = item(p.get(), 0);
  return c.format_with(first.get(), "get_controller_pd_erase_raid");
}

// arcconf lists erases among the controller's background tasks; the
// formatter picks this drive's task.
Ref erase_arcconf(Call& c) {
  Ref p = c.parsed("ctr_get_controller_bgtask_arcconf");
  Ref eid = c.p_get("eid");
  Ref sid = c.p_get("sid");
  Ref kw = dict({{"eid", eid.get()}, {"sid", sid.get()}});
  return c.formatter_call("get_controller_pd_erase_raid", {p.get()}, kw.get());
}

}  // namespace

void add_pd_erase_sanitize_ops(OpList& ops) {
  ops.push_back(OpDef{"start_pd_sanitize",
                      "*, eid, sid, mode, **kwargs",
                      "启动硬盘 sanitize 擦除。\n\n"
                      "参数:\n"
                      "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                      "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                      "    mode (str): \"cryptoerase\"、\"overwrite\" 或 \"blockerase\"。\n"
                      "    ause (bool): sanitize 因未知原因失败时将硬盘置为 unconfigured good。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 启动是否成功。",
                      {checked(Tool::storcli64, "start_pd_sanitize_storcli64"),
                       checked(Tool::sorbctl, "start_controller_pd_sanitize_sorbctl"),
                       refuse(Tool::arcconf, "There is no such command in arcconf")}});
  ops.push_back(
      OpDef{"get_pd_sanitize",
            "eid, sid, **kwargs",
            "查询硬盘 sanitize 进度。\n\n"
            "参数:\n"
            "    eid (str): enclosure（通道）编号。\n"
            "    sid (str): 槽位（设备）编号。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    dict: Status（如 \"run\"）, Progress（如 \"18\"）, Estimated_time_left（如 \"80 "
            "min\"）, raw_data。",
            {custom(Tool::storcli64, sanitize_storcli64),
             shaped(Tool::sorbctl, "get_controller_pd_sanitize_sorbctl", nullptr,
                    "get_pd_sanitize_format"),
             refuse(Tool::arcconf, "There is no such command in arcconf")}});
  ops.push_back(OpDef{"start_pd_erase",
                      "*, eid, sid, mode, **kwargs",
                      "启动硬盘擦除。\n\n"
                      "参数:\n"
                      "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                      "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                      "    mode (str): \"normal\"、\"simple\" 或 \"thorough\"。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 启动是否成功。",
                      {checked(Tool::storcli64, "pd_set_erase_storcli64"),
                       checked(Tool::sorbctl, "start_controller_pd_erase_sorbctl"),
                       checked(Tool::arcconf, "set_ctr_pd_erase_arcconf")},
                      ResultType::any,
                      nullptr,
                      start_erase_params});
  ops.push_back(OpDef{"stop_pd_erase",
                      "*, eid, sid",
                      "停止硬盘擦除。\n\n"
                      "参数:\n"
                      "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
                      "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
                      "    不接受其他关键字参数。\n\n"
                      "返回:\n    bool: 停止是否成功。",
                      {checked(Tool::storcli64, "pd_set_erase_storcli64"),
                       checked(Tool::sorbctl, "stop_controller_pd_erase_sorbctl"),
                       checked(Tool::arcconf, "set_ctr_pd_erase_arcconf")},
                      ResultType::any,
                      nullptr,
                      stop_erase_params});
  ops.push_back(OpDef{
      "get_pd_erase",
      "*, eid, sid, **kwargs",
      "查询硬盘擦除进度。\n\n"
      "参数:\n"
      "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
      "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n"
      "    dict: Drive-ID（如 \"c0:e0:s0\"）, Progress（如 \"0%\"）, Status（如 \"In progress\"）, "
      "Estimated_time_left（如 \"0 min\"）, raw_data；sorbctl 查询失败时返回文本 \"fail\"。",
      {custom(Tool::storcli64, erase_storcli64), custom(Tool::sorbctl, erase_sorbctl),
       custom(Tool::arcconf, erase_arcconf)}});
}

}  // namespace raid
