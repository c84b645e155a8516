// Virtual drive consistency check, initialisation and erase.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

namespace {

Ref concat(std::initializer_list<PyObject*> parts) {
  Ref out = str("");
  for (PyObject* p : parts) out = Ref::steal(PyUnicode_Concat(out.get(), p));
  return out;
}

// The arcconf entry of one drive: logical_device_number_<vid>.
Ref arcconf_drive_entry(Call& c) {
  Ref parser = c.parsed("ctr_get_vd_cfg_arcconf");
  Ref devices = index(parser.get(), "logical_device_information");
  Ref head = str("logical_device_number_");
  Ref vid = c.p_get("vid");
  Ref key = concat({head.get(), to_str(vid.get()).get()});
  return index(devices.get(), key.get());
}

// --- consistency check ---------------------------------------------------------

Ref cc_sorbctl(Call& c) {
  Ref state = c.p_get("state");
  const char* wrapper = nullptr;
  if (equals(state.get(), "start")) {
    wrapper = "start_controller_vd_ccheck_sorbctl";
  } else if (equals(state.get(), "stop")) {
    wrapper = "stop_controller_vd_ccheck_sorbctl";
  } else {
    c.refuse("7460卡sorbctl工具没有 设置逻辑磁盘一致性校验功能操作 功能");
  }
  Ref p = c.parsed(wrapper);
  return boolean(Call::success(p.get()));
}

Ref cc_status_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_vd_ccheck_sorbctl");
  if (equals(parser.get(), "fail")) {
    c.refuse("查询逻辑磁盘的一致性校验功能状态失败，请检查回显报错信息");
  }
  return c.format_with(parser.get(), "query_virtual_drive_cc_status_format");
}

// --- background initialisation --------------------------------------------------

Ref bgi_arcconf(Call& c) {
  Ref entry = arcconf_drive_entry(c);
  return c.format_with(entry.get(), "get_virtual_drive_bgi_state_format");
}

// sorbctl lists the background tasks of all drives: the one of this drive
// whose name says background initialisation ("BGI", "Background Init...").
Ref bgi_sorbctl(Call& c) {
  c.p_del_if("vid");
  Ref vid = Ref::borrow(c.arg("vid"));
  Ref parser = c.parsed("get_controller_bgtask_sorbctl");
  Ref groups = get(parser.get(), "Groups");
  Ref re = Ref::steal(PyImport_ImportModule("re"));
  Ref pattern = str("^\\s*(bgi|back\\s*ground\\s*init)");
  Ref flags = getattr(re.get(), "I");
  Ref vid_text = to_str(vid.get());
  Ref found;
  if (truthy(groups.get())) {
    Ref it = Ref::steal(PyObject_GetIter(groups.get()));
    for (;;) {
      Ref entry = Ref::steal_or_null(PyIter_Next(it.get()));
      if (!entry) {
        if (PyErr_Occurred()) fail();
        break;
      }
      Ref id = get(entry.get(), "ID");
      if (id.get() == Py_None) continue;
      Ref id_text = to_str(id.get());
      if (PyUnicode_Compare(id_text.get(), vid_text.get()) != 0) {
        if (PyErr_Occurred()) fail();
        continue;
      }
      Ref name = get(entry.get(), "Name");
      Ref name_text = to_str(name.get());
      Ref m = call_method(re.get(), "match", {pattern.get(), name_text.get(), flags.get()});
      if (m.get() == Py_None) continue;
      found = entry;
      break;
    }
  }
  Ref state = Ref::steal(PyDict_New());
  if (found) {
    update(state.get(), found.get());
  } else {
    Ref absent = str("None");
    set_item(state.get(), "ID", vid.get());
    set_item(state.get(), "Progress", absent.get());
    set_item(state.get(), "TimeLeft", absent.get());
  }
  return c.format_with(state.get(), "get_virtual_drive_bgi_state_format");
}

// --- foreground initialisation ---------------------------------------------------

Ref front_init_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_init_info_storcli64");
  if (!truthy(parser.get())) c.refuse("查询逻辑磁盘前台初始化功能状态失败");
  Ref section = get(parser.get(), "VD Operation Status");
  return c.format_with(section.get(), "get_virtual_drive_front_init_status_info_format");
}

Ref front_init_arcconf(Call& c) {
  Ref entry = arcconf_drive_entry(c);
  return c.format_with(entry.get(), "get_virtual_drive_front_init_status_info_format");
}

// --- erase -----------------------------------------------------------------------------

Ref erase_sorbctl(Call& c) {
  Ref oper = c.p_get("oper");
  const char* wrapper = nullptr;
  if (equals(oper.get(), "start")) {
    wrapper = "start_controller_vd_sanitize_sorbctl";
  } else if (equals(oper.get(), "stop")) {
    wrapper = "stop_controller_vd_sanitize_sorbctl";
  } else {
    Ref head = str("7460卡sorbctl工具不支持[");
    Ref tail = str("]操作");
    c.refuse(concat({head.get(), to_str(oper.get()).get(), tail.get()}).get());
  }
  Ref p = c.parsed(wrapper);
  return boolean(Call::success(p.get()));
}

}  // namespace

void add_vd_background_ops(OpList& ops) {
  ops.push_back(
      OpDef{"set_virtual_drive_cc",
            "vid, state, **kwargs",
            "设置逻辑磁盘一致性校验功能操作。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号。\n"
            "    state (str): \"start\"、\"stop\"、\"resume\" 或 \"pause\"；sorbctl 只支持 start "
            "与 stop。\n"
            "    force (str): \"force\"，仅 storcli64 启动时有效。\n"
            "    delay (str): 延迟启动，仅 sorbctl 启动时有效。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 操作是否成功。",
            {checked(Tool::storcli64, "vd_state_cc_storcli64"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘一致性校验功能操作 功能"),
             custom(Tool::sorbctl, cc_sorbctl)}});
  ops.push_back(OpDef{
      "query_virtual_drive_cc_status",
      "vid, **kwargs",
      "查询逻辑磁盘的一致性校验功能状态。\n\n"
      "参数:\n"
      "    vid (str): 逻辑盘编号。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n"
      "    dict 或 list: 键为 vid, Operation, Progress, Status, Estimated_time_left, raw_data；"
      "storcli64 每个逻辑盘一条。\n\n"
      "异常:\n    OrvexException: sorbctl 查询失败时抛出。",
      {shaped(Tool::storcli64, "ctr_get_cc_status_storcli64", "VD Operation Status",
              "query_virtual_drive_cc_status_format"),
       refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询逻辑磁盘的一致性校验功能状态 功能"),
       custom(Tool::sorbctl, cc_status_sorbctl)}});
  ops.push_back(
      OpDef{"set_virtual_drive_init_option",
            "*, vid, state, **kwargs",
            "设置逻辑磁盘初始化功能操作（仅 storcli64）。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
            "    state (str): \"start\" 或 \"stop\"（仅限关键字传入）。\n"
            "    force (bool): 强制执行。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 操作是否成功。",
            {checked(Tool::storcli64, "vd_state_init_storcli64"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘初始化功能操作 功能"),
             refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置逻辑磁盘初始化功能操作 功能")}});
  ops.push_back(
      OpDef{"get_virtual_drive_bgi_state",
            "*, vid, **kwargs",
            "查询逻辑磁盘的后台初始化状态。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    dict 或 list: 键为 vid, Progress, Status, Estimated_time_left, raw_data；"
            "storcli64 每个逻辑盘一条；sorbctl 该盘没有后台初始化任务时 Progress 与 "
            "Estimated_time_left 为 \"None\"。",
            {shaped(Tool::storcli64, "get_virtual_drive_bgi_state_storcli64", "VD Operation Status",
                    "get_virtual_drive_bgi_state_format"),
             custom(Tool::arcconf, bgi_arcconf), custom(Tool::sorbctl, bgi_sorbctl)}});
  ops.push_back(
      OpDef{"set_virtual_drive_autobgi_switch",
            "vid, state, **kwargs",
            "设置后台初始化使能开关（仅 storcli64）。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号。\n"
            "    state (str): \"on\" 或 \"off\"。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 设置是否成功。",
            {checked(Tool::storcli64, "ctr_set_bgi_switch_storcli64"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置后台初始化使能开关 功能"),
             refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置后台初始化使能开关 功能")}});
  ops.push_back(OpDef{
      "get_virtual_drive_front_init_status_info",
      "*, vid, **kwargs",
      "查询逻辑磁盘前台初始化功能状态。\n\n"
      "参数:\n"
      "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n"
      "    dict 或 list: 键为 vid, Progress, Status（如 \"In progress\"，未进行时为 "
      "\"Not in progress\"）, Estimated_time_left, raw_data；storcli64 每个逻辑盘一条。\n\n"
      "异常:\n    OrvexException: storcli64 无回显时抛出 \"查询逻辑磁盘前台初始化功能状态失败\"。",
      {custom(Tool::storcli64, front_init_storcli64), custom(Tool::arcconf, front_init_arcconf),
       shaped(Tool::sorbctl, "get_controller_vd_info_sorbctl", "VirtualDriveInformation",
              "get_virtual_drive_front_init_status_info_format")}});
  ops.push_back(
      OpDef{"set_vd_erase",
            "vid, oper, mode='simple', **kwargs",
            "设置逻辑盘擦除功能。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号。\n"
            "    oper (str): \"start\" 或 \"stop\"。\n"
            "    mode (str): 擦除模式 \"simple\"、\"normal\" 或 \"thorough\"，缺省 \"simple\"。\n"
            "    force (bool): 强制执行。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 操作是否成功。",
            {checked(Tool::storcli64, "vd_set_erase_storcli64"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑盘擦除功能 功能"),
             custom(Tool::sorbctl, erase_sorbctl)}});
  ops.push_back(
      OpDef{"get_vd_erase",
            "vid, **kwargs",
            "查询逻辑盘擦除操作。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    dict 或 list: 键为 vid, Progress, Status, Estimated_time_left, raw_data；"
            "storcli64 每个逻辑盘一条。",
            {shaped(Tool::storcli64, "vd_get_erase_storcli64", "VD Operation Status",
                    "get_vd_erase_format"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询逻辑盘擦除操作 功能"),
             shaped(Tool::sorbctl, "get_controller_vd_sanitize_sorbctl", nullptr,
                    "get_vd_erase_format")}});
}

}  // namespace raid
