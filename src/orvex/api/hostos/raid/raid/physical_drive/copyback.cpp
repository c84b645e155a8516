// Copyback and precopy: controller switches and rates, per-drive copyback.
// The queries read the answer's parser entry and its sections strictly: a
// missing entry fails with the lookup error.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

// The controller property rows: 0 Copy Back, 1 SSD SMARTer, 2 SMARTer.
Ref status_storcli64(const Call& c, const Wrapper& query) {
  const int has = c.p_has("index");
  if (has < 0) return nullptr;
  if (has == 0 && c.p_set("index", integer(0).get()) < 0) return nullptr;
  Ref p = c.parsed_index(query);
  Ref rows = index(p.get(), "Controller Properties");
  Ref at = c.p_get("index");
  Ref row = index(rows.get(), at.get());
  Ref value = index(row.get(), "Value");
  return upper(value.get());
}

// "Precopy Switch" becomes the lower-case "precopy_switch"; the rest stays.
Ref precopy_sorbctl(const Call& c, const Wrapper& query) {
  Ref p = c.parsed_index(query);
  Ref key = str("Precopy Switch");
  Ref value = call_method(p.get(), "pop", {key.get()});
  Ref low = lower(value.get());
  if (set_item(p.get(), "precopy_switch", low.get()) < 0) return nullptr;
  return p;
}

constexpr ParamDef kNoParams[] = {kwargs()};
constexpr ParamDef kStateParams[] = {arg("state"), kwargs()};
constexpr ParamDef kRateParams[] = {arg("copybackrate"), kwargs()};
constexpr ParamDef kPrecopyParams[] = {kw("state"), kwargs()};
constexpr ParamDef kDriveOperParams[] = {arg("eid"), arg("sid"), arg("oper"), kwargs()};
constexpr ParamDef kDriveParams[] = {kw("eid"), kw("sid"), kwargs()};

// sorbctl: the drive's details, with its id, formatted.
Ref copyback_sorbctl(const Call& c, const Formatted& t) {
  Ref parser = c.parsed_index(t.query);
  Ref record = index(parser.get(), "DriveDetailInformation");
  if (!record || put_drive_id(c, record.get()) < 0) return nullptr;
  return c.format_with(record.get(), t.format_name);
}

}  // namespace

void add_pd_copyback_ops(OpList& ops) {
  ops.push_back(
      Op("query_copyback_info")
          .params(kNoParams)
          .extras({kAdapterId})
          .doc("RAID-查询回拷功能状态（仅 sorbctl）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    str: 回拷开关，按工具原样返回，如 \"ON\" 或 \"OFF\"。")
          .returns_doc("str")
          .variants({refuse(Tool::storcli64, "博通卡 暂时未实现查询回拷功能状态 功能"),
                     query(Tool::sorbctl, "get_controller_copyback_sorbctl")
                         .strict()
                         .at("Copyback Switch"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 RAID-查询回拷功能状态 功能")}));
  static constexpr Wrapper kStorcliCopyback{"ctr_get_copyback_storcli64"};
  ops.push_back(
      Op("get_copyback_status")
          .params(kNoParams)
          .extras({kAdapterId, extra("index").typed("int")})
          .doc("查询硬盘回拷功能状态。\n\n"
               "参数:\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n"
               "    index (int): storcli64 的开关类型，0 Copy Back（缺省）、1 SSD "
               "SMARTer、2 SMARTer；sorbctl 忽略。\n\n"
               "返回:\n    str: 大写的开关状态，如 \"OFF\"。")
          .returns_doc("str")
          .variants({custom<status_storcli64, kStorcliCopyback>(Tool::storcli64),
                     query(Tool::sorbctl, "get_controller_copyback_sorbctl")
                         .strict()
                         .at("Copyback Switch")
                         .method("upper"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询硬盘回拷功能状态 功能")}));
  ops.push_back(
      Op("set_copyback_cfg")
          .params(kStateParams)
          .extras({extra("type"), kAdapterId})
          .doc("设置回拷功能参数。\n\n"
               "参数:\n"
               "    state (str): \"on\" 或 \"off\"。\n"
               "    type (str): storcli64 的开关类型。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants({checked(Tool::storcli64, "ctr_set_copyback_cfg_storcli64"),
                     checked(Tool::sorbctl, "set_controller_copyback_sorbctl"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置回拷功能参数 功能")}));
  ops.push_back(
      Op("set_copyback_rate")
          .params(kRateParams)
          .extras({kAdapterId})
          .doc("设置回拷功能后台速率（仅 sorbctl）。\n\n"
               "参数:\n"
               "    copybackrate (str): 后台速率，如 \"low\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants({refuse(Tool::storcli64, "LSI卡storcli64工具没有 设置回拷功能后台速率 功能"),
                     checked(Tool::sorbctl, "set_controller_bgrate_copyback_sorbctl"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置回拷功能后台速率 功能")}));
  ops.push_back(
      Op("get_copyback_rate")
          .params(kNoParams)
          .extras({kAdapterId})
          .doc("查询回拷功能后台速率（仅 sorbctl）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    dict: {\"CopyBack Rate\": 速率}，如 {\"CopyBack Rate\": \"low\"}。")
          .returns_doc("dict")
          .variants({refuse(Tool::storcli64, "LSI卡storcli64工具没有 查询回拷功能后台速率 功能"),
                     query(Tool::sorbctl, "get_controller_config_sorbctl")
                         .strict()
                         .at("CopyBack Rate")
                         .wrap("CopyBack Rate"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询回拷功能后台速率 功能")}));
  static constexpr Wrapper kSorbctlPrecopy{"get_controller_precopy_sorbctl"};
  ops.push_back(
      Op("get_precopy_info")
          .params(kNoParams)
          .extras({kAdapterId})
          .doc("获取raid控制器预拷贝配置信息（仅 sorbctl）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    dict: 预拷贝配置，其中 precopy_switch 为小写的开关状态（如 \"off\"）。")
          .returns_doc("dict")
          .variants(
              {refuse(Tool::storcli64, "LSI卡storcli64工具没有 获取raid控制器预拷贝配置信息 功能"),
               custom<precopy_sorbctl, kSorbctlPrecopy>(Tool::sorbctl),
               refuse(Tool::arcconf, "PMC卡arcconf工具没有 获取raid控制器预拷贝配置信息 功能")}));
  ops.push_back(
      Op("set_precopy")
          .params(kPrecopyParams)
          .extras({kAdapterId})
          .doc("设置raid控制器预拷贝参数（仅 sorbctl）。\n\n"
               "参数:\n"
               "    state (str): \"on\" 或 \"off\"（小写，仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .variants(
              {refuse(Tool::storcli64, "LSI卡storcli64工具没有 设置raid控制器预拷贝参数 功能"),
               checked(Tool::sorbctl, "set_controller_precopy_sorbctl"),
               refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置raid控制器预拷贝参数功能")}));
  ops.push_back(Op("set_pd_copyback_func")
                    .params(kDriveOperParams)
                    .extras({kAdapterId})
                    .doc("控制单块硬盘的回拷（仅 storcli64）。\n\n"
                         "参数:\n"
                         "    eid (str): enclosure（通道）编号。\n"
                         "    sid (str): 槽位（设备）编号。\n"
                         "    oper (str): \"pause\"、\"resume\"、\"start\" 或 \"stop\"。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    命令的解析结果，原样返回。")
                    .variants({query(Tool::storcli64, "pd_copyback_func_storcli64"),
                               refuse(Tool::sorbctl, "There is no such command in sorbctl"),
                               refuse(Tool::arcconf, "There is no such command in arcconf")}));
  static constexpr Formatted kSorbctlPdCopyback{{"get_controller_pd_info_sorbctl"},
                                                {"get_pd_copyback_info_raid"}};
  ops.push_back(
      Op("get_pd_copyback_info")
          .params(kDriveParams)
          .extras({kAdapterId})
          .doc("查询单块硬盘的回拷进度。\n\n"
               "参数:\n"
               "    eid (str): enclosure（通道）编号（仅限关键字传入）。\n"
               "    sid (str): 槽位（设备）编号（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict: Drive-ID（如 \"c0:e0:s0\"）, Progress（如 \"0%\"）, Status（如 \"In "
               "progress\"）, Estimated_time_left（如 \"0 min\"）, raw_data。")
          .returns_doc("dict")
          .variants({query(Tool::storcli64, "pd_copyback_show_storcli64")
                         .strict()
                         .first()
                         .format("get_pd_copyback_info_raid"),
                     custom<copyback_sorbctl, kSorbctlPdCopyback>(Tool::sorbctl),
                     refuse(Tool::arcconf, "There is no such command in arcconf")}));
}

}  // namespace raid
