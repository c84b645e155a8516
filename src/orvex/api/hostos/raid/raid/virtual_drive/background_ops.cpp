// Virtual drive consistency check, initialisation and erase.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

constexpr ParamDef kVidParams[] = {kw("vid"), kwargs()};

// The arcconf status of one drive is its entry logical_device_number_<vid>.
constexpr const char* kArcconfDrives = "logical_device_information";
constexpr const char* kArcconfDrive = "logical_device_number_{vid}";

// A background task named as background initialisation ("BGI",
// "Background Init...").
const Regex kBgiTask("(?i)^\\s*(bgi|back\\s*ground\\s*init)");

// sorbctl lists the background tasks of all drives: the one of this drive
// whose name says background initialisation.
Ref bgi_sorbctl(const Call& c, const Formatted& t) {
  if (c.p_del_if("vid") < 0) return nullptr;
  PyObject* vid = c.arg(RAID_ARG(kVidParams, "vid"));
  Ref parser = c.parsed(t.query);
  Ref groups = get(parser.get(), "Groups");
  Ref found = find_task(groups.get(), vid, "ID", "Name", kBgiTask);
  Ref state = dict();
  if (!found || !state) return nullptr;
  if (found.get() != Py_None) {
    if (update(state.get(), found.get()) < 0) return nullptr;
  } else {
    Ref absent = str("None");
    if (!absent || set_item(state.get(), "ID", vid) < 0 ||
        set_item(state.get(), "Progress", absent.get()) < 0 ||
        set_item(state.get(), "TimeLeft", absent.get()) < 0) {
      return nullptr;
    }
  }
  return c.format_with(state.get(), t.format_name);
}

}  // namespace

void add_vd_background_ops(OpList& ops) {
  ops.push_back(
      Op("set_virtual_drive_cc")
          .params({arg("vid"), arg("state"), kwargs()})
          .extras({extra("force"), extra("delay"), kAdapterId})
          .doc(
              "设置逻辑磁盘一致性校验功能操作。\n\n"
              "参数:\n"
              "    vid (str): 逻辑盘编号。\n"
              "    state (str): \"start\"、\"stop\"、\"resume\" 或 \"pause\"；sorbctl 只支持 start "
              "与 stop。\n"
              "    force (str): \"force\"，仅 storcli64 启动时有效。\n"
              "    delay (str): 延迟启动，仅 sorbctl 启动时有效。\n"
              "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
              "返回:\n    bool: 操作是否成功。")
          .returns_doc("bool")
          .variants(
              {checked(Tool::storcli64, "vd_state_cc_storcli64"),
               refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘一致性校验功能操作 功能"),
               checked_by(Tool::sorbctl, "state",
                          {{"start", "start_controller_vd_ccheck_sorbctl"},
                           {"stop", "stop_controller_vd_ccheck_sorbctl"}},
                          "7460卡sorbctl工具没有 设置逻辑磁盘一致性校验功能操作 功能", nullptr)}));
  ops.push_back(
      Op("query_virtual_drive_cc_status")
          .params({arg("vid"), kwargs()})
          .extras({kAdapterId})
          .doc("查询逻辑磁盘的一致性校验功能状态。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict 或 list: 键为 vid, Operation, Progress, Status, Estimated_time_left, "
               "raw_data；storcli64 每个逻辑盘一条。\n\n"
               "异常:\n    OrvexException: sorbctl 查询失败时抛出。")
          .returns_doc("dict | list")
          .variants(
              {query(Tool::storcli64, "ctr_get_cc_status_storcli64")
                   .get("VD Operation Status")
                   .format("query_virtual_drive_cc_status_format"),
               refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询逻辑磁盘的一致性校验功能状态 功能"),
               query(Tool::sorbctl, "get_controller_vd_ccheck_sorbctl")
                   .refuse_on("fail", "查询逻辑磁盘的一致性校验功能状态失败，请检查回显报错信息")
                   .format("query_virtual_drive_cc_status_format")}));
  ops.push_back(
      Op("set_virtual_drive_init_option")
          .params({kw("vid"), kw("state"), kwargs()})
          .extras({extra("force").typed("bool"), kAdapterId})
          .doc("设置逻辑磁盘初始化功能操作（仅 storcli64）。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
               "    state (str): \"start\" 或 \"stop\"（仅限关键字传入）。\n"
               "    force (bool): 强制执行。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 操作是否成功。")
          .returns_doc("bool")
          .variants(
              {checked(Tool::storcli64, "vd_state_init_storcli64"),
               refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘初始化功能操作 功能"),
               refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置逻辑磁盘初始化功能操作 功能")}));
  static constexpr Formatted kSorbctlBgi{{"get_controller_bgtask_sorbctl"},
                                         {"get_virtual_drive_bgi_state_format"}};
  ops.push_back(
      Op("get_virtual_drive_bgi_state")
          .params(kVidParams)
          .extras({kAdapterId})
          .doc("查询逻辑磁盘的后台初始化状态。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict 或 list: 键为 vid, Progress, Status, Estimated_time_left, raw_data；"
               "storcli64 每个逻辑盘一条；sorbctl 该盘没有后台初始化任务时 Progress 与 "
               "Estimated_time_left 为 \"None\"。")
          .returns_doc("dict | list")
          .variants({query(Tool::storcli64, "get_virtual_drive_bgi_state_storcli64")
                         .get("VD Operation Status")
                         .format("get_virtual_drive_bgi_state_format"),
                     query(Tool::arcconf, "ctr_get_vd_cfg_arcconf")
                         .at(kArcconfDrives)
                         .at(kArcconfDrive)
                         .format("get_virtual_drive_bgi_state_format"),
                     custom<bgi_sorbctl, kSorbctlBgi>(Tool::sorbctl)}));
  ops.push_back(
      Op("set_virtual_drive_autobgi_switch")
          .params({arg("vid"), arg("state"), kwargs()})
          .extras({kAdapterId})
          .doc("设置后台初始化使能开关（仅 storcli64）。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号。\n"
               "    state (str): \"on\" 或 \"off\"。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "ctr_set_bgi_switch_storcli64"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置后台初始化使能开关 功能"),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置后台初始化使能开关 功能")}));
  ops.push_back(
      Op("get_virtual_drive_front_init_status_info")
          .params(kVidParams)
          .extras({kAdapterId})
          .doc(
              "查询逻辑磁盘前台初始化功能状态。\n\n"
              "参数:\n"
              "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
              "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
              "返回:\n"
              "    dict 或 list: 键为 vid, Progress, Status（如 \"In progress\"，未进行时为 "
              "\"Not in progress\"）, Estimated_time_left, raw_data；storcli64 每个逻辑盘一条。\n\n"
              "异常:\n    OrvexException: storcli64 无回显时抛出 "
              "\"查询逻辑磁盘前台初始化功能状态失败\"。")
          .returns_doc("dict | list")
          .variants({query(Tool::storcli64, "ctr_get_init_info_storcli64")
                         .refuse_on_empty("查询逻辑磁盘前台初始化功能状态失败")
                         .get("VD Operation Status")
                         .format("get_virtual_drive_front_init_status_info_format"),
                     query(Tool::arcconf, "ctr_get_vd_cfg_arcconf")
                         .at(kArcconfDrives)
                         .at(kArcconfDrive)
                         .format("get_virtual_drive_front_init_status_info_format"),
                     query(Tool::sorbctl, "get_controller_vd_info_sorbctl")
                         .get("VirtualDriveInformation")
                         .format("get_virtual_drive_front_init_status_info_format")}));
  ops.push_back(
      Op("set_vd_erase")
          .params({arg("vid"), arg("oper"), arg("mode").or_("'simple'"), kwargs()})
          .extras({extra("force").typed("bool"), kAdapterId})
          .doc("设置逻辑盘擦除功能。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号。\n"
               "    oper (str): \"start\" 或 \"stop\"。\n"
               "    mode (str): 擦除模式 \"simple\"、\"normal\" 或 \"thorough\"，缺省 "
               "\"simple\"。\n"
               "    force (bool): 强制执行。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 操作是否成功。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "vd_set_erase_storcli64"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑盘擦除功能 功能"),
                     checked_by(Tool::sorbctl, "oper",
                                {{"start", "start_controller_vd_sanitize_sorbctl"},
                                 {"stop", "stop_controller_vd_sanitize_sorbctl"}},
                                "7460卡sorbctl工具不支持[", "]操作")}));
  ops.push_back(
      Op("get_vd_erase")
          .params({arg("vid"), kwargs()})
          .extras({kAdapterId})
          .doc("查询逻辑盘擦除操作。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict 或 list: 键为 vid, Progress, Status, Estimated_time_left, "
               "raw_data；storcli64 每个逻辑盘一条。")
          .returns_doc("dict | list")
          .variants({query(Tool::storcli64, "vd_get_erase_storcli64")
                         .get("VD Operation Status")
                         .format("get_vd_erase_format"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询逻辑盘擦除操作 功能"),
                     query(Tool::sorbctl, "get_controller_vd_sanitize_sorbctl")
                         .format("get_vd_erase_format")}));
}

}  // namespace raid
