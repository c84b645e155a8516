// Virtual drive cache, I/O, emulation, visibility, access and boot policies.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;
using namespace kit;

namespace {

const Regex kDrivePath("/c(\\w+)/v(\\w+)");
const Regex kController("/c(\\d+)/v");
const Regex kDriveProperties("VD(\\w+) Properties");

// sorbctl spells its cache policies in capitals: params["policy"].upper().
int upper_policy(const Call& c) {
  Ref policy = c.p_get("policy");
  Ref upper = py::upper(policy.get());
  return upper ? c.p_set("policy", upper.get()) : -1;
}

// --- I/O policy and emulation ------------------------------------------------------

// The last letter of storcli64's Cache column: D direct, C cached.
Ref iopolicy_storcli64(const Call& c, const Wrapper& query) {
  Ref parser = c.parsed(query);
  Ref result = dict();
  Ref zero = integer(0);
  Ref last_index = integer(-1);
  if (!parser || !result || !zero || !last_index) return nullptr;
  const int r = each_item(parser.get(), [&](PyObject* key, PyObject* value) {
    Ref m = kDrivePath.match(key);
    if (!m) return -1;
    if (m.get() == Py_None) return 0;
    Ref row = item(value, 0);
    Ref cache = index(row.get(), "Cache");
    Ref cache_upper = upper(cache.get());
    Ref last = index(cache_upper.get(), last_index.get());
    Ref label = lookup(last.get(), {{"D", "Direct IO"}, {"C", "Cached IO"}}, Missing::none);
    if (!label) return -1;
    if (label.get() != Py_None && set_item(row.get(), "Cache", label.get()) < 0) return -1;
    Ref whole = call_method(m.get(), "group", {zero.get()});
    Ref policy = index(row.get(), "Cache");
    if (!whole || !policy) return -1;
    Ref entry = dict({{"iopolicy", policy.get()}});
    return entry ? set_item(result.get(), whole.get(), entry.get()) : -1;
  });
  if (r < 0) return nullptr;
  return result;
}

// The controller number of the keys: adapter_id when given, else the one the
// drive tables name, else 0.
Ref emulation_storcli64(const Call& c, const Wrapper& query) {
  Ref parser = c.parsed(query);
  Ref controller = c.p_get("adapter_id");
  Ref one = integer(1);
  if (!parser || !controller || !one) return nullptr;
  if (controller.get() == Py_None) {
    if (each_item(parser.get(), [&](PyObject* key, PyObject*) {
          Ref m = kController.match(key);
          if (!m) return -1;
          if (m.get() == Py_None) return 0;
          controller = call_method(m.get(), "group", {one.get()});
          return controller ? 1 : -1;
        }) < 0) {
      return nullptr;
    }
    if (controller.get() == Py_None) controller = str("0");
  }
  Ref controller_text = to_str(controller.get());
  Ref result = dict();
  Ref c_head = str("/c");
  Ref v_head = str("/v");
  if (!controller_text || !result || !c_head || !v_head) return nullptr;
  const int r = each_item(parser.get(), [&](PyObject* key, PyObject* value) {
    Ref found = kDriveProperties.search(key);
    if (!found) return -1;
    if (found.get() == Py_None) return 0;
    Ref number = call_method(found.get(), "group", {one.get()});
    if (!number) return -1;
    Ref path = concat({c_head.get(), controller_text.get(), v_head.get(), number.get()});
    Ref emulation = index(value, "Emulation type");
    if (!path || !emulation) return -1;
    Ref entry = dict({{"Emulation type", emulation.get()}});
    return entry ? set_item(result.get(), path.get(), entry.get()) : -1;
  });
  if (r < 0) return nullptr;
  return result;
}

// --- boot drive --------------------------------------------------------------------

// arcconf names a primary and a secondary boot volume; "None" stands for
// an unset one; a set one goes through the formatter's method.
struct BootTexts {
  Wrapper query;
  Text shape;
};

Ref boot_arcconf(const Call& c, const BootTexts& t) {
  Ref parser = c.parsed(t.query);
  Ref info = index(parser.get(), "controller_information");
  Ref out = list();
  Ref unset = str("None");
  if (!info || !out || !unset) return nullptr;
  for (const char* key : {"primary_boot_volume", "secondary_boot_volume"}) {
    Ref value = get(info.get(), key);
    const int none_set = equal(value.get(), "None");
    if (none_set < 0) return nullptr;
    Ref shaped = none_set == 1 ? dict({{"Type", unset.get()},
                                       {"VID/DID", unset.get()},
                                       {"Enc", unset.get()},
                                       {"Slot", unset.get()},
                                       {"Act_Slot", unset.get()}})
                               : c.formatter_call(t.shape.text, {value.get()});
    if (!shaped || append(out.get(), shaped.get()) < 0) return nullptr;
  }
  return out;
}

constexpr ParamDef kVidState[] = {kw("vid"), kw("state"), kwargs()};

}  // namespace

void add_vd_policies_ops(OpList& ops) {
  ops.push_back(
      Op("set_virtual_drive_write_cache_mode")
          .params(kVidState)
          .extras({kAdapterId})
          .doc("设置逻辑盘成员盘自身的写缓存。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
               "    state (str): \"on\"、\"off\"、\"default\"，arcconf 另有 "
               "\"unchanged\"（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功（arcconf 为 parser_exec_cmd_format 的判定）。")
          .returns_doc("bool")
          .variants(
              {checked(Tool::storcli64, "vd_set_pdcache_storcli64").rename("state", "pdcache"),
               // arcconf: 0 default, 1 on, 2 off, 3 unchanged, sent behind drive_type
               action(Tool::arcconf, "set_controller_pdcache_arcconf")
                   .put("drive_type", "configured")
                   .rename("state", "state")
                   .lookup("state",
                           {{"default", "0"}, {"on", "1"}, {"off", "2"}, {"unchanged", "3"}},
                           Missing::none),
               checked(Tool::sorbctl, "set_controller_vd_pdcache_sorbctl")}));
  ops.push_back(Op("set_virtual_drive_wrcache")
                    .params({kw("vid"), kw("wrcache"), kwargs()})
                    .extras({kAdapterId})
                    .doc("设置逻辑盘的写缓存策略。\n\n"
                         "参数:\n"
                         "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
                         "    wrcache (str): \"wt\"（直写）、\"wb\"（回写）或 "
                         "\"awb\"（总是回写）（仅限关键字传入）。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 设置是否成功（arcconf、sorbctl 为 "
                         "parser_exec_cmd_format 的判定）。")
                    .returns_doc("bool")
                    .variants({checked(Tool::storcli64, "vd_set_cache_storcli64"),
                               // arcconf: its controller cache on for write back, off otherwise
                               action(Tool::arcconf, "set_vd_wcache_arcconf")
                                   .lookup("wrcache", {{"awb", "con"}, {"wb", "con"}},
                                           Missing::fallback, "policy", "coff"),
                               action(Tool::sorbctl, "set_controller_vd_wcache_sorbctl")
                                   .rename("wrcache", "policy")
                                   .prep(upper_policy)
                                   .lookup("policy", {{"AWB", "WBE"}})}));
  ops.push_back(Op("set_virtual_drive_rdcache")
                    .params({arg("vid"), arg("rdcache"), kwargs()})
                    .extras({kAdapterId})
                    .doc("设置逻辑盘的读缓存（预读）策略。\n\n"
                         "参数:\n"
                         "    vid (str): 逻辑盘编号。\n"
                         "    rdcache (str): \"ra\"（预读）或 \"nora\"（不预读）。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 设置是否成功（arcconf、sorbctl 为 "
                         "parser_exec_cmd_format 的判定）。")
                    .returns_doc("bool")
                    .variants({checked(Tool::storcli64, "vd_set_cache_storcli64"),
                               // arcconf: read-ahead through its cache wrapper; other values
                               // set no policy
                               action(Tool::arcconf, "set_vd_wcache_arcconf")
                                   .lookup("rdcache", {{"ra", "con"}, {"nora", "coff"}},
                                           Missing::keep, "policy"),
                               action(Tool::sorbctl, "set_controller_vd_rcache_sorbctl")
                                   .rename("rdcache", "policy")
                                   .lookup("policy", {{"ra", "Ahead"}, {"nora", "No_Ahead"}})}));
  ops.push_back(
      Op("set_vd_iopolicy_status")
          .params({kw("vid"), kw("iopolicy"), kwargs()})
          .extras({kAdapterId})
          .doc("设置逻辑磁盘的读写策略（IO 策略，仅 storcli64）。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
               "    iopolicy (str): \"cached\" 或 \"direct\"（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "vd_set_iopolicy_storcli64"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘的读写策略 功能"),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置逻辑磁盘的读写策略 功能")}));
  static constexpr Wrapper kDriveConfig{"ctr_get_vd_cfg_storcli64"};
  ops.push_back(
      Op("get_vd_iopolicy_status")
          .params({kw("vid"), kwargs()})
          .extras({kAdapterId})
          .doc("查询指定逻辑盘的成员盘读写策略（IO 策略，仅 storcli64）。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号，或 \"all\" 表示全部（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n"
               "    dict: 以逻辑盘路径为键，如 {\"/c0/v0\": {\"iopolicy\": \"Direct IO\"}}，"
               "值为 \"Direct IO\" 或 \"Cached IO\"。")
          .returns_doc("dict")
          .variants(
              {custom<iopolicy_storcli64, kDriveConfig>(Tool::storcli64),
               refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询指定逻辑盘的成员盘读写策略 功能"),
               refuse(Tool::sorbctl,
                      "7460卡sorbctl工具没有 查询指定逻辑盘的成员盘读写策略 功能")}));
  ops.push_back(
      Op("set_vd_emulation")
          .params({kw("vid"), kw("emulation_type").as("emulationType"), kwargs()})
          .extras({kAdapterId})
          .doc("设置逻辑磁盘的扇区属性（仅 storcli64）。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
               "    emulation_type (str): \"0\" 默认、\"1\" 关闭、\"2\" 强制；\"1\" 不能直接切换到 "
               "\"2\"（仅限关键字传入，以 emulationType 下发）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "set_vd_emulation_storcli64"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘的扇区属性 功能"),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置逻辑磁盘的扇区属性 功能")}));
  ops.push_back(
      Op("get_vd_emulation")
          .params({kw("vid"), kwargs()})
          .extras({kAdapterId})
          .doc("查询逻辑磁盘的扇区属性（仅 storcli64）。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号，或 \"all\" 表示全部（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号；缺省时取工具回显中的控制器编号。\n\n"
               "返回:\n    dict: 如 {\"/c0/v0\": {\"Emulation type\": \"default\"}}。")
          .returns_doc("dict")
          .variants({custom<emulation_storcli64, kDriveConfig>(Tool::storcli64),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 查询逻辑磁盘的扇区属性 功能"),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 查询逻辑磁盘的扇区属性 功能")}));
  ops.push_back(
      Op("set_ctl_vd_hidden")
          .params(kVidState)
          .extras({kAdapterId})
          .doc("设置逻辑磁盘的可见属性（仅 storcli64）。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
               "    state (str): \"on\" 对操作系统隐藏（不可重复设置），\"off\" "
               "取消隐藏（可重复设置）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants({checked(Tool::storcli64, "set_vd_hidden_storcli64"),
                     refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘的可见属性 功能"),
                     refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置逻辑磁盘的可见属性 功能")}));
  ops.push_back(
      Op("set_ctl_vd_accesspolicy")
          .params({kw("vid"), kw("accesspolicy"), kwargs()})
          .extras({kAdapterId})
          .doc("设置逻辑磁盘的可访问属性（仅 storcli64）。\n\n"
               "参数:\n"
               "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
               "    accesspolicy (str): \"rw\"、\"ro\" 或 \"blocked\"（仅限关键字传入）。\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    bool: 设置是否成功。")
          .returns_doc("bool")
          .variants(
              {checked(Tool::storcli64, "set_vd_access_storcli64"),
               refuse(Tool::arcconf, "PMC卡arcconf工具没有 设置逻辑磁盘的可访问属性 功能"),
               refuse(Tool::sorbctl, "7460卡sorbctl工具没有 设置逻辑磁盘的可访问属性 功能")}));
  ops.push_back(
      Op("vd_set_bootdrive")
          .params(kVidState)
          .extras({kAdapterId})
          .doc(
              "设置逻辑盘为启动盘。\n\n"
              "参数:\n"
              "    vid (str): 逻辑盘编号（仅限关键字传入）。\n"
              "    state (str): \"primary\"、\"secondary\" 或 \"off\"（仅限关键字传入）；storcli64 "
              "与 sorbctl 把 primary/secondary 下发为 \"on\"，arcconf 把 off 下发为 \"none\"。\n"
              "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
              "返回:\n"
              "    bool: 设置是否成功。storcli64 先尝试按固件排序启动设备，失败只记录错误日志。")
          .returns_doc("bool")
          .variants(
              {checked(Tool::storcli64, "vd_set_bootdrive_storcli64")
                   .lookup("state", {{"primary", "on"}, {"secondary", "on"}})
                   .rename("state", "bootdrive")
                   .copy("bootdrive", "status")
                   .prep<try_first, kOrderByFirmware>(),
               checked(Tool::sorbctl, "set_controller_vd_boot_sorbctl")
                   .lookup("state", {{"primary", "on"}, {"secondary", "on"}}),
               checked(Tool::arcconf, "set_vd_boot_arcconf").lookup("state", {{"off", "none"}})}));
  static constexpr BootTexts kArcconfBoot{{"ctr_get_adpt_cfg_arcconf"},
                                          {"query_boot_drive_format"}};
  ops.push_back(Op("query_boot_drive")
                    .params({kwargs()})
                    .extras({kAdapterId})
                    .doc("查询控制器的启动盘。\n\n"
                         "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n"
                         "    list: 启动盘记录，键为 Type（\"PD\" 或 \"VD\"）, VID/DID, Enc, Slot, "
                         "Act_Slot；arcconf 依次给出主、次启动卷，未设置时各键均为 \"None\"。")
                    .returns_doc("list")
                    .variants({query(Tool::storcli64, "ctr_get_boot_drive_storcli64")
                                   .get("Controller Properties")
                                   .post("query_boot_drive_format"),
                               custom<boot_arcconf, kArcconfBoot>(Tool::arcconf),
                               query(Tool::sorbctl, "get_boot_drive_sorbctl")
                                   .get("BootDrives")
                                   .post("query_boot_drive_format")}));
}

}  // namespace raid
