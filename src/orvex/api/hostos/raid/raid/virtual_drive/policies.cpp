// Virtual drive cache, I/O, emulation, visibility, access and boot policies.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

// --- member drive cache -----------------------------------------------------

void pdcache_storcli64(Call& c) {
  Ref state = c.p_pop("state");
  c.p_set("pdcache", state.get());
}

// arcconf: 0 default, 1 on, 2 off, 3 unchanged; anything else is sent as None.
void pdcache_arcconf(Call& c) {
  c.p_set("drive_type", "configured");
  Ref state = c.p_pop("state");
  Ref mode = lookup(state.get(), {{"default", "0"}, {"on", "1"}, {"off", "2"}, {"unchanged", "3"}});
  c.p_set("state", mode.get());
}

// --- controller cache ---------------------------------------------------------

void wrcache_sorbctl(Call& c) {
  Ref wrcache = c.p_pop("wrcache");
  Ref policy = upper(wrcache.get());
  c.p_set("policy", policy.get());
  if (equals(policy.get(), "AWB")) c.p_set("policy", "WBE");
}

void wrcache_arcconf(Call& c) {
  Ref wrcache = c.p_get("wrcache");
  bool on = equals(wrcache.get(), "awb") || equals(wrcache.get(), "wb");
  c.p_set("policy", on ? "con" : "coff");
}

void rdcache_sorbctl(Call& c) {
  Ref rdcache = c.p_pop("rdcache");
  c.p_set("policy", rdcache.get());
  translate(c, "policy", {{"ra", "Ahead"}, {"nora", "No_Ahead"}});
}

// arcconf sets read-ahead through its cache wrapper; other values set no policy.
void rdcache_arcconf(Call& c) {
  Ref rdcache = c.p_get("rdcache");
  if (equals(rdcache.get(), "ra")) {
    c.p_set("policy", "con");
  } else if (equals(rdcache.get(), "nora")) {
    c.p_set("policy", "coff");
  }
}

// --- I/O policy and emulation ------------------------------------------------------

// The last letter of storcli64's Cache column: D direct, C cached.
Ref iopolicy_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_vd_cfg_storcli64");
  Ref result = Ref::steal(PyDict_New());
  Ref zero = integer(0);
  Ref minus_one = integer(-1);
  each_item(parser.get(), [&](PyObject* key, PyObject* value) {
    Ref m = re_call("match", "/c(\\w+)/v(\\w+)", key);
    if (m.get() == Py_None) return;
    Ref row = item(value, 0);
    Ref cache = index(row.get(), "Cache");
    Ref cache_upper = upper(cache.get());
    Ref last = index(cache_upper.get(), minus_one.get());
    if (equals(last.get(), "D")) {
      set_item(row.get(), "Cache", str("Direct IO").get());
    } else if (equals(last.get(), "C")) {
      set_item(row.get(), "Cache", str("Cached IO").get());
    }
    Ref whole = call_method(m.get(), "group", {zero.get()});
    Ref policy = index(row.get(), "Cache");
    set_item(result.get(), whole.get(), dict({{"iopolicy", policy.get()}}).get());
  });
  return result;
}

// The controller number of the keys: adapter_id when given, else the one the
// drive tables name, else 0.
Ref emulation_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_vd_cfg_storcli64");
  Ref controller = c.p_get("adapter_id");
  Ref one = integer(1);
  if (controller.get() == Py_None) {
    each_item(parser.get(), [&](PyObject* key, PyObject*) {
      if (controller.get() != Py_None) return;
      Ref m = re_call("match", "/c(\\d+)/v", key);
      if (m.get() != Py_None) controller = call_method(m.get(), "group", {one.get()});
    });
    if (controller.get() == Py_None) controller = str("0");
  }
  Ref controller_text = to_str(controller.get());
  Ref result = Ref::steal(PyDict_New());
  Ref c_head = str("/c");
  Ref v_head = str("/v");
  each_item(parser.get(), [&](PyObject* key, PyObject* value) {
    Ref pattern = str("VD(\\w+) Properties");
    Ref re = Ref::steal(PyImport_ImportModule("re"));
    Ref found = call_method(re.get(), "findall", {pattern.get(), key});
    if (!truthy(found.get())) return;
    Ref number = item(found.get(), 0);
    Ref path = concat({c_head.get(), controller_text.get(), v_head.get(), number.get()});
    Ref emulation = index(value, "Emulation type");
    set_item(result.get(), path.get(), dict({{"Emulation type", emulation.get()}}).get());
  });
  return result;
}

// --- boot drive --------------------------------------------------------------------

Ref bootdrive_storcli64(Call& c) { return boot_drive_storcli64(c, "vd_set_bootdrive_storcli64"); }

Ref boot_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_boot_drive_storcli64");
  Ref section = get(parser.get(), "Controller Properties");
  return c.formatter_call("query_boot_drive_format", {section.get()});
}

Ref boot_sorbctl(Call& c) {
  Ref parser = c.parsed("get_boot_drive_sorbctl");
  Ref section = get(parser.get(), "BootDrives");
  return c.formatter_call("query_boot_drive_format", {section.get()});
}

// arcconf names a primary and a secondary boot volume; "None" stands for
// an unset one.
Ref boot_arcconf(Call& c) {
  Ref parser = c.parsed("ctr_get_adpt_cfg_arcconf");
  Ref info = index(parser.get(), "controller_information");
  Ref out = list();
  for (const char* key : {"primary_boot_volume", "secondary_boot_volume"}) {
    Ref value = get(info.get(), key);
    if (equals(value.get(), "None")) {
      Ref text = str("None");
      Ref placeholder = dict({{"Type", text.get()},
                              {"VID/DID", text.get()},
                              {"Enc", text.get()},
                              {"Slot", text.get()},
                              {"Act_Slot", text.get()}});
      append(out.get(), placeholder.get());
    } else {
      Ref shaped = c.formatter_call("query_boot_drive_format", {value.get()});
      append(out.get(), shaped.get());
    }
  }
  return out;
}

}  // namespace

void add_vd_policies_ops(OpList& ops) {
  ops.push_back(OpDef{"set_virtual_drive_write_cache_mode",
                      "*, vid, state, **kwargs",
                      "设置逻辑盘成员盘自身的写缓存。\n\n"
                      "参数:\n"
                      "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
                      "    state (str): \"on\"、\"off\"、\"default\"，arcconf 另有 "
                      "\"unchanged\"（仅限关键字传入）。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 设置是否成功（arcconf 为 parser_exec_cmd_format 的判定）。",
                      {checked(Tool::storcli64, "vd_set_pdcache_storcli64", pdcache_storcli64),
                       action(Tool::arcconf, "set_controller_pdcache_arcconf", pdcache_arcconf),
                       checked(Tool::sorbctl, "set_controller_vd_pdcache_sorbctl")}});
  ops.push_back(
      OpDef{"set_virtual_drive_wrcache",
            "*, vid, wrcache, **kwargs",
            "设置逻辑盘的写缓存策略。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
            "    wrcache (str): \"wt\"（直写）、\"wb\"（回写）或 "
            "\"awb\"（总是回写）（仅限关键字传入）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 设置是否成功（arcconf、sorbctl 为 parser_exec_cmd_format 的判定）。",
            {checked(Tool::storcli64, "vd_set_cache_storcli64"),
             action(Tool::arcconf, "set_vd_wcache_arcconf", wrcache_arcconf),
             action(Tool::sorbctl, "set_controller_vd_wcache_sorbctl", wrcache_sorbctl)}});
  ops.push_back(
      OpDef{"set_virtual_drive_rdcache",
            "vid, rdcache, **kwargs",
            "设置逻辑盘的读缓存（预读）策略。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号。\n"
            "    rdcache (str): \"ra\"（预读）或 \"nora\"（不预读）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 设置是否成功（arcconf、sorbctl 为 parser_exec_cmd_format 的判定）。",
            {checked(Tool::storcli64, "vd_set_cache_storcli64"),
             action(Tool::arcconf, "set_vd_wcache_arcconf", rdcache_arcconf),
             action(Tool::sorbctl, "set_controller_vd_rcache_sorbctl", rdcache_sorbctl)}});
  ops.push_back(
      OpDef{"set_vd_iopolicy_status",
            "*, vid, iopolicy, **kwargs",
            "设置逻辑磁盘的读写策略（IO 策略，仅 storcli64）。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
            "    iopolicy (str): \"cached\" 或 \"direct\"（仅限关键字传入）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 设置是否成功。",
            {checked(Tool::storcli64, "vd_set_iopolicy_storcli64"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘的读写策略 功能"),
             refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置逻辑磁盘的读写策略 功能")}});
  ops.push_back(
      OpDef{"get_vd_iopolicy_status",
            "*, vid, **kwargs",
            "查询指定逻辑盘的成员盘读写策略（IO 策略，仅 storcli64）。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号，或 \"all\" 表示全部（仅限关键字传入）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    dict: 以逻辑盘路径为键，如 {\"/c0/v0\": {\"iopolicy\": \"Direct IO\"}}，"
            "值为 \"Direct IO\" 或 \"Cached IO\"。",
            {custom(Tool::storcli64, iopolicy_storcli64),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询指定逻辑盘的成员盘读写策略 功能"),
             refuse(Tool::sorbctl, "7460卡sorbctl工具没有 查询指定逻辑盘的成员盘读写策略 功能")}});
  ops.push_back(OpDef{
      "set_vd_emulation",
      "*, vid, emulation_type:emulationType, **kwargs",
      "设置逻辑磁盘的扇区属性（仅 storcli64）。\n\n"
      "参数:\n"
      "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
      "    emulation_type (str): \"0\" 默认、\"1\" 关闭、\"2\" 强制；\"1\" 不能直接切换到 \"2\""
      "（仅限关键字传入，以 emulationType 下发）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    bool: 设置是否成功。",
      {checked(Tool::storcli64, "set_vd_emulation_storcli64"),
       refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘的扇区属性 功能"),
       refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置逻辑磁盘的扇区属性 功能")}});
  ops.push_back(
      OpDef{"get_vd_emulation",
            "*, vid, **kwargs",
            "查询逻辑磁盘的扇区属性（仅 storcli64）。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号，或 \"all\" 表示全部（仅限关键字传入）。\n"
            "    adapter_id (str): 控制器编号；缺省时取工具回显中的控制器编号。\n\n"
            "返回:\n    dict: 如 {\"/c0/v0\": {\"Emulation type\": \"default\"}}。",
            {custom(Tool::storcli64, emulation_storcli64),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询逻辑磁盘的扇区属性 功能"),
             refuse(Tool::sorbctl, "7460卡sorbctl工具没有 查询逻辑磁盘的扇区属性 功能")}});
  ops.push_back(OpDef{
      "set_ctl_vd_hidden",
      "*, vid, state, **kwargs",
      "设置逻辑磁盘的可见属性（仅 storcli64）。\n\n"
      "参数:\n"
      "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
      "    state (str): \"on\" 对操作系统隐藏（不可重复设置），\"off\" 取消隐藏（可重复设置）。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    bool: 设置是否成功。",
      {checked(Tool::storcli64, "set_vd_hidden_storcli64"),
       refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘的可见属性 功能"),
       refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置逻辑磁盘的可见属性 功能")}});
  ops.push_back(
      OpDef{"set_ctl_vd_accesspolicy",
            "*, vid, accesspolicy, **kwargs",
            "设置逻辑磁盘的可访问属性（仅 storcli64）。\n\n"
            "参数:\n"
            "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
            "    accesspolicy (str): \"rw\"、\"ro\" 或 \"blocked\"（仅限关键字传入）。\n"
            "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    bool: 设置是否成功。",
            {checked(Tool::storcli64, "set_vd_access_storcli64"),
             refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘的可访问属性 功能"),
             refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置逻辑磁盘的可访问属性 功能")}});
  ops.push_back(OpDef{
      "vd_set_bootdrive",
      "*, vid, state, **kwargs",
      "设置逻辑盘为启动盘。\n\n"
      "参数:\n"
      "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
      "    state (str): \"primary\"、\"secondary\" 或 \"off\"（仅限关键字传入）；storcli64 与 "
      "sorbctl 把 primary/secondary 下发为 \"on\"，arcconf 把 off 下发为 \"none\"。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n"
      "    bool: 设置是否成功。storcli64 先尝试按固件排序启动设备，失败只记录错误日志。",
      {custom(Tool::storcli64, bootdrive_storcli64),
       checked(Tool::sorbctl, "set_controller_vd_boot_sorbctl",
               [](Call& c) {
                 translate(c, "state", {{"primary", "on"}, {"secondary", "on"}});
               }),
       checked(Tool::arcconf, "set_vd_boot_arcconf", [](Call& c) {
         translate(c, "state", {{"off", "none"}});
       })}});
  ops.push_back(
      OpDef{"query_boot_drive",
            "**kwargs",
            "查询控制器的启动盘。\n\n"
            "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n"
            "    list: 启动盘记录，键为 Type（\"PD\" 或 \"VD\"）, VID/DID, Enc, Slot, Act_Slot；"
            "arcconf 依次给出主、次启动卷，未设置时各键均为 \"None\"。",
            {custom(Tool::storcli64, boot_storcli64), custom(Tool::arcconf, boot_arcconf),
             custom(Tool::sorbctl, boot_sorbctl)}});
}

}  // namespace raid
