// Controller-wide settings: work mode, JBOD, clock, reset, rebuild, emergency
// hot spare, pinned-cache boot, drive cache, foreign configuration.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

namespace {

// arcconf switches pass-through through the work mode and needs time to
// settle before the next command; the result is True whatever the tool said.
Ref jbod_arcconf(Call& c) {
  Ref state = c.p_pop("state");
  c.p_set("mode", state.get());
  if (equals(state.get(), "on")) {
    c.p_set("mode", "5");
  } else if (equals(state.get(), "off")) {
    c.p_set("mode", "3");
  }
  c.parsed("ctr_set_ctrl_mode_arcconf");
  Ref time = Ref::steal(PyImport_ImportModule("time"));
  Ref seconds = integer(10);
  call_method(time.get(), "sleep", {seconds.get()});
  return boolean(true);
}

}  // namespace

void add_controller_settings_ops(OpList& ops) {
  ops.push_back(OpDef{
      "set_ctl_mode", "mode, **kwargs",
      "设置控制卡工作模式（仅 arcconf）。\n\n"
      "参数:\n"
      "    mode (str): 工作模式，\"2\"、\"3\" 或 \"5\"。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    parser_exec_cmd_format 对命令结果的判定。",
      {refuse(Tool::storcli64, "LSI卡storcli64工具没有 设置控制卡工作模式 功能"),
       refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置控制卡工作模式 功能"),
       action(Tool::arcconf, "ctr_set_ctrl_mode_arcconf")}});
  ops.push_back(OpDef{
      "set_jbod_state", "state, **kwargs",
      "打开或关闭控制器的直通（JBOD）功能。\n\n"
      "参数:\n"
      "    state (str): \"on\" 或 \"off\"。\n"
      "    force (bool): 强制执行（storcli64）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    bool: 设置是否成功；arcconf 通过切换工作模式实现，等待 10 秒后总是返回 True。",
      {checked(Tool::storcli64, "ctr_set_jbod_cfg_storcli64"),
       checked(Tool::sorbctl, "set_controller_jbod_sorbctl",
               [](Call& c) {
                 Ref state = c.p_pop("state");
                 c.p_set("jbod", state.get());
                 if (equals(state.get(), "on")) c.p_set("jbod", "rawdrive");
               }),
       custom(Tool::arcconf, jbod_arcconf)}});
  ops.push_back(OpDef{
      "set_controller_pdcache", "*, state, **kwargs",
      "设置控制器下未配置硬盘的硬盘缓存（仅 arcconf）。\n\n"
      "参数:\n"
      "    state (str): \"on\" 或 \"off\"（仅限关键字传入）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    bool: 设置是否成功。",
      {refuse(Tool::storcli64, "There is no such command in storcli64"),
       refuse(Tool::sorbctl, "There is no such command in sorbctl"),
       checked(Tool::arcconf, "set_controller_pdcache_arcconf", [](Call& c) {
         Ref state = c.p_get("state");
         const char* sent = equals(state.get(), "on") ? "1" : equals(state.get(), "off") ? "2" : nullptr;
         if (sent != nullptr) {
           c.p_set("state", sent);
         } else {
           c.p_set("state", Py_None);
         }
         c.p_set("drive_type", "unconfigured");
       })}});
}

}  // namespace raid
