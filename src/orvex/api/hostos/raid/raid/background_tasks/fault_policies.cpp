// Kick-drive and slow-drive policies: how many slow drives the controller
// may eject per period, and the latency thresholds that mark a drive slow.
// Only sorbctl manages them.
#include "../frame/frame.hpp"

namespace raid {

void add_fault_policies_ops(OpList& ops) {
  ops.push_back(
      Op("get_kickdrive_status")
          .params({kwargs()})
          .extras({kAdapterId})
          .doc("查询慢盘踢盘（kickdrive）策略状态（仅 sorbctl）。\n\n"
               "参数:\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict: Reset_time（踢盘计数清零周期）、"
               "Total_allowed_kicks（每个周期最多踢盘数）、"
               "Total_kicked（已踢出的慢盘数）、Reset_remaining_time（距计数清零的剩余时间）、"
               "raw_data（工具的原始输出）。查询失败时抛出 OrvexException。")
          .returns_doc("dict")
          .variants({refuse(Tool::storcli64, "LSI卡storcli64工具没有 kickdrive 功能"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 kickdrive 功能"),
                     // failure is reported as the text "fail"
                     query(Tool::sorbctl, "get_kickdrive_status_sorbctl")
                         .refuse_on("fail", "查询kickdrive失败")
                         .format()}));
  ops.push_back(Op("set_kickdrive")
                    .params({kwargs()})
                    .extras({kAdapterId, extra("period"), extra("sum")})
                    .doc("设置慢盘踢盘（kickdrive）策略（仅 sorbctl）。\n\n"
                         "参数:\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
                         "    period (str): 踢盘计数清零周期（天），工具缺省 30，范围 1~90。\n"
                         "    sum (str): 每个周期最多踢盘数，工具缺省 1，范围 1~8。\n\n"
                         "取值不做检查，原样交给工具。\n\n"
                         "返回:\n    bool: 设置是否成功。")
                    .returns_doc("bool")
                    .variants({refuse(Tool::storcli64, "LSI卡storcli64工具没有 kickdrive 功能"),
                               refuse(Tool::arcconf, "PMC卡arcconf工具没有 kickdrive 功能"),
                               checked(Tool::sorbctl, "set_kickdrive_sorbctl")}));
  ops.push_back(
      Op("get_slowdrive_status")
          .params({kwargs()})
          .extras({kAdapterId})
          .doc(
              "查询慢盘检测（slowdrive）配置（仅 sorbctl）。\n\n"
              "参数:\n"
              "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
              "返回:\n"
              "    dict: switch（各检测类型及其开关）、curr_config（当前生效的配置）、"
              "next_config（重启后生效的配置）、raw_data（工具的原始输出）；两份配置各含 "
              "Raid ratio、Raid Threshold、RawDrive Threshold。查询结果为空时抛出 OrvexException。")
          .returns_doc("dict")
          .variants({refuse(Tool::storcli64, "LSI卡storcli64工具没有 kickdrive 功能"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 kickdrive 功能"),
                     // failure is reported as an empty answer
                     query(Tool::sorbctl, "get_slowdrive_status_sorbctl")
                         .refuse_on_empty("查询slowdrive失败")
                         .format()}));
  ops.push_back(
      Op("set_slowdrive")
          .params({arg("disk_type").as("type"), kwargs()})
          .extras({kAdapterId, extra("sw"), extra("ratio"), extra("media"), extra("susize"),
                   extra("l1"), extra("l2"), extra("l3"), extra("default")})
          .doc("设置慢盘检测（slowdrive）参数（仅 sorbctl）。\n\n"
               "参数:\n"
               "    disk_type (str): \"raid\" 或 \"rawdrive\"，以 type 下发。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
               "    sw (str): 检测开关，\"on\" 或 \"off\"。\n"
               "    ratio (str): 三级慢盘时延倍数（相对同 RAID 组其他成员盘），4~64。\n"
               "    media (str): \"ssd\" 或 \"hdd\"。\n"
               "    susize (str): 条带大小（KB），32/64/128/256/512/1024；仅 raid 且 hdd，"
               "且须同时给出 l1。\n"
               "    l1 (str): 一级阈值（ms），仅 raid；hdd 条带 32~256 时 340 至 l2，512/1024 时 "
               "410 至 l2；ssd 为 110 至 l2。\n"
               "    l2 (str): 二级阈值（ms）；raid hdd 为 l1 至 l3，rawdrive hdd 为 810~20000。\n"
               "    l3 (str): 三级阈值（ms），仅 raid，大于 l2，至多 20000。\n"
               "    default (str): 传 \"default\" 恢复缺省配置。\n\n"
               "取值不做检查，原样交给工具。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants({refuse(Tool::storcli64, "LSI卡storcli64工具没有 slowdrive 功能"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 slowdrive 功能"),
                     checked(Tool::sorbctl, "set_slowdrive_sorbctl")}));
}

}  // namespace raid
