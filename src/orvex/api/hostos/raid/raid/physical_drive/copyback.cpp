// Copyback and precopy: controller switches and rates, per-drive copyback.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

Ref switch_sorbctl(Call& c) {
  Ref p = c.parsed("get_controller_copyback_sorbctl");
  return index(p.get(), "Copyback Switch");
}

Ref status_sorbctl(Call& c) {
  Ref v = switch_sorbctl(c);
  return upper(v.get());
}

// The controller property rows: 0 Copy Back, 1 SSD SMARTer, 2 SMARTer.
Ref status_storcli64(Call& c) {
  if (!c.p_has("index")) {
    Ref zero = integer(0);
    c.p_set("index", zero.get());
  }
  Ref p = c.parsed("ctr_get_copyback_storcli64");
  Ref rows = index(p.get(), "Controller Properties");
  Ref at = c.p_get("index");
  Ref row = index(rows.get(), at.get());
  Ref value = index(row.get(), "Value");
  return upper(value.get());
}

Ref rate_sorbctl(Call& c) {
  Ref p = c.parsed("get_controller_config_sorbctl");
  Ref rate = index(p.get(), "CopyBack Rate");
  return dict({{"CopyBack Rate", rate.get()}});
}

Ref precopy_sorbctl(Call& c) {
  Ref p = c.parsed("get_controller_precopy_sorbctl");
  Ref key = str("Precopy Switch");
  Ref value = call_method(p.get(), "pop", {key.get()});
  Ref low = lower(value.get());
  set_item(p.get(), "precopy_switch", low.get());
  return p;
}

Ref pd_copyback_sorbctl(Call& c) {
  Ref p = c.parsed("get_controller_pd_info_sorbctl");
  Ref detail = index(p.get(), "DriveDetailInformation");
  Ref id = drive_id(c);
  set_item(detail.get(), "Drive-ID", id.get());
  return c.format_with(detail.get(), "get_pd_copyback_info_raid");
}

Ref pd_copyback_storcli64(Call& c) {
  Ref p = c.parsed("pd_copyback_show_storcli64");
  Ref first = item(p.get(), 0);
  return c.format_with(first.get(), "get_pd_copyback_info_raid");
}

}  // namespace

void add_pd_copyback_ops(OpList& ops) {
  ops.push_back(OpDef{"query_copyback_info",
                      "**kwargs",
                      "RAID-查询回拷功能状态（仅 sorbctl）。\n\n"
                      "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    str: 回拷开关，按工具原样返回，如 \"ON\" 或 \"OFF\"。",
                      {refuse(Tool::storcli64, "博通卡 暂时未实现查询回拷功能状态 功能"),
                       custom(Tool::sorbctl, switch_sorbctl),
                       refuse(Tool::arcconf, "PMC卡arcconf工具没有 RAID-查询回拷功能状态 功能")}});
  ops.push_back(
      OpDef{"get_copyback_status",
            "**kwargs",
            "查询硬盘回拷功能状态。\n\n"
            "参数:\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
            "    index (int): storcli64 的开关类型，0 Copy Back（缺省）、1 SSD SMARTer、2 "
            "SMARTer；sorbctl 忽略。\n\n"
            "返回:\n    str: 大写的开关状态，如 \"OFF\"。",
            {custom(Tool::storcli64, status_storcli64), custom(Tool::sorbctl, status_sorbctl),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询硬盘回拷功能状态 功能")}});
  ops.push_back(OpDef{"set_copyback_cfg",
                      "state, **kwargs",
                      "设置回拷功能参数。\n\n"
                      "参数:\n"
                      "    state (str): \"on\" 或 \"off\"。\n"
                      "    type (str): storcli64 的开关类型。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功。",
                      {checked(Tool::storcli64, "ctr_set_copyback_cfg_storcli64"),
                       checked(Tool::sorbctl, "set_controller_copyback_sorbctl"),
                       refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置回拷功能参数 功能")}});
  ops.push_back(OpDef{"set_copyback_rate",
                      "copybackrate, **kwargs",
                      "设置回拷功能后台速率（仅 sorbctl）。\n\n"
                      "参数:\n"
                      "    copybackrate (str): 后台速率，如 \"low\"。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功。",
                      {refuse(Tool::storcli64, "LSI卡storcli64工具没有 设置回拷功能后台速率 功能"),
                       checked(Tool::sorbctl, "set_controller_bgrate_copyback_sorbctl"),
                       refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置回拷功能后台速率 功能")}});
  ops.push_back(
      OpDef{"get_copyback_rate",
            "**kwargs",
            "查询回拷功能后台速率（仅 sorbctl）。\n\n"
            "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    dict: {\"CopyBack Rate\": 速率}，如 {\"CopyBack Rate\": \"low\"}。",
            {refuse(Tool::storcli64, "LSI卡storcli64工具没有 查询回拷功能后台速率 功能"),
             custom(Tool::sorbctl, rate_sorbctl),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询回拷功能后台速率 功能")}});
  ops.push_back(
      OpDef{"get_precopy_info",
            "**kwargs",
            "获取raid控制器预拷贝配置信息（仅 sorbctl）。\n\n"
            "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    dict: 预拷贝配置，其中 precopy_switch 为小写的开关状态（如 \"off\"）。",
            {refuse(Tool::storcli64, "LSI卡storcli64工具没有 获取raid控制器预拷贝配置信息 功能"),
             custom(Tool::sorbctl, precopy_sorbctl),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 获取raid控制器预拷贝配置信息 功能")}});
  ops.push_back(
      OpDef{"set_precopy",
            "*, state, **kwargs",
            "设置raid控制器预拷贝参数（仅 sorbctl）。\n\n"
            "参数:\n"
            "    state (str): \"on\" 或 \"off\"（小写，仅限关键字传入）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 设置是否成功。",
            {refuse(Tool::storcli64, "LSI卡storcli64工具没有 设置raid控制器预拷贝参数 功能"),
             checked(Tool::sorbctl, "set_controller_precopy_sorbctl"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置raid控制器预拷贝参数功能")}});
  ops.push_back(OpDef{"set_pd_copyback_func",
                      "eid, sid, oper, **kwargs",
                      "控制单块硬盘的回拷（仅 storcli64）。\n\n"
                      "参数:\n"
                      "    eid (str): enclosure（通道）编号。\n"
                      "    sid (str): 槽位（设备）编号。\n"
                      "    oper (str): \"pause\"、\"resume\"、\"start\" 或 \"stop\"。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    命令的解析结果，原样返回。",
                      {parser(Tool::storcli64, "pd_copyback_func_storcli64"),
                       refuse(Tool::sorbctl, "There is no such command in sorbctl"),
                       refuse(Tool::arcconf, "There is no such command in arcconf")}});
  ops.push_back(OpDef{
      "get_pd_copyback_info",
      "*, eid, sid, **kwargs",
      "查询单块硬盘的回拷进度。\n\n"
      "参数:\n"
      "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
      "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n"
      "    dict: Drive-ID（如 \"c0:e0:s0\"）, Progress（如 \"0%\"）, Status（如 \"In progress\"）, "
      "Estimated_time_left（如 \"0 min\"）, raw_data。",
      {custom(Tool::storcli64, pd_copyback_storcli64), custom(Tool::sorbctl, pd_copyback_sorbctl),
       refuse(Tool::arcconf, "There is no such command in arcconf")}});
}

}  // namespace raid
