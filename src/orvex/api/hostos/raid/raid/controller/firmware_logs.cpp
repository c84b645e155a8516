// Firmware update and activation, controller logs, command pass-through.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

namespace {

constexpr const char* kFlashLog = "/root/raidlog//log-flash.txt";
constexpr const char* kRamLog = "/root/raidlog//log-ram.txt";
constexpr const char* kArcconfLog = "/var/log/Support/Firmware/Controller_1_Log.txt";
constexpr const char* kSorbctlScratch = "/root/sorbctl_save";
constexpr const char* kLogExportFailed = "导出日志文件失败";

// The stdout entry of a wrapper's raw answer, as it stands.
Ref stdout_of(Call& c, const char* wrapper) {
  Ref raw = c.raw(wrapper);
  return get(raw.get(), "stdout");
}

// Lines of a parser value: a list stays as it is, a text is split into lines,
// None gives no lines.
Ref lines_of(PyObject* value) {
  if (value == Py_None) return list();
  if (PyUnicode_Check(value)) return call_method(value, "splitlines");
  return Ref::steal(PySequence_List(value));
}

// Splits `text` at single spaces (str.split(" ")).
Ref split_spaces(PyObject* text) {
  Ref space = str(" ");
  return call_method(text, "split", {space.get()});
}

// Dispatches a generic host command with a dictionary of its own.
Ref host_parsed(Call& c, const char* command, PyObject* p) {
  Ref answer = c.dispatch_with(command, p);
  Ref first = item(answer.get(), 0);
  return get(first.get(), "parser");
}

Ref cat_file(Call& c, PyObject* path) {
  Ref p = dict({{"file_path", path}});
  return host_parsed(c, "cat", p.get());
}

void remove_file(Call& c, PyObject* path) {
  Ref p = dict({{"path", path}});
  c.dispatch_with("rm", p.get());
}

Ref pair(PyObject* assign, PyObject* bytes) { return tuple({assign, bytes}); }

// ---------------------------------------------------------------- logs

Ref detail_log_sorbctl(Call& c) {
  Ref reported = c.parsed("get_controller_log_sorbctl");
  Ref flash_path = str(kFlashLog);
  Ref ram_path = str(kRamLog);
  if (!truthy(reported.get()) || !contains(reported.get(), flash_path.get()) ||
      !contains(reported.get(), ram_path.get())) {
    c.refuse(kLogExportFailed);
  }
  c.p_set("file_path", flash_path.get());
  Ref flash = c.parsed("cat");
  c.p_set("file_path", ram_path.get());
  Ref ram = c.parsed("cat");
  Ref lines = lines_of(flash.get());
  Ref more = lines_of(ram.get());
  Ref all = Ref::steal(PySequence_Concat(lines.get(), more.get()));
  return all;
}

Ref detail_log_arcconf(Call& c) {
  Ref reported = c.parsed("get_controller_log_arcconf");
  if (!truthy(reported.get())) c.refuse(kLogExportFailed);
  c.p_set("file_path", kArcconfLog);
  return c.parsed("cat");
}

// ---------------------------------------------------------------- pass-through

bool is_hex_byte(PyObject* piece) {
  if (PyUnicode_GetLength(piece) != 2) return false;
  for (Py_ssize_t i = 0; i < 2; ++i) {
    Py_UCS4 ch = PyUnicode_ReadChar(piece, i);
    bool hex = (ch >= '0' && ch <= '9') || (ch >= 'a' && ch <= 'f') || (ch >= 'A' && ch <= 'F');
    if (!hex) return false;
  }
  return true;
}

// storelibtest prints the returned data as rows of two-digit hex bytes,
// possibly behind an offset or a label ("0000: 70 00 05 ..."); every
// whitespace-separated piece that is one byte (optionally written 0x70)
// is taken, in order, everything else is skipped.
void collect_storelib_bytes(PyObject* parsed, PyObject* out) {
  Ref lines = lines_of(parsed);
  Ref prefix = str("0x");
  Py_ssize_t n = PyList_Size(lines.get());
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* line = PyList_GetItem(lines.get(), i);
    if (!PyUnicode_Check(line)) continue;
    Ref pieces = call_method(line, "split");
    Py_ssize_t m = PyList_Size(pieces.get());
    for (Py_ssize_t j = 0; j < m; ++j) {
      Ref piece = Ref::borrow(PyList_GetItem(pieces.get(), j));
      Ref low = lower(piece.get());
      Ref starts = call_method(low.get(), "startswith", {prefix.get()});
      if (truthy(starts.get())) {
        piece = Ref::steal(PyUnicode_Substring(piece.get(), 2, PyUnicode_GetLength(piece.get())));
      }
      if (is_hex_byte(piece.get())) append(out, piece.get());
    }
  }
}

Ref passthru_storcli64(Call& c) {
  Ref bytes = list();
  Ref eid = c.p_get("eid");
  Ref sid = c.p_get("sid");
  Ref kw = dict({{"eid", eid.get()}, {"sid", sid.get()}});
  Ref drive = c.method("get_one_physical_drive_info", kw.get());
  if (c.p_has("data_transfer")) {
    Ref kind = c.p_get("data_transfer");
    static const char* const kCodes[][2] = {
        {"write", "1"}, {"read", "2"}, {"readwrite", "3"}, {"notransfer", "0"}};
    for (const auto& code : kCodes) {
      if (equals(kind.get(), code[0])) {
        c.p_set("data_transfer", code[1]);
        break;
      }
    }
  }
  Ref did = index(drive.get(), "did");
  c.p_set("did", did.get());
  Ref raw = c.raw("send_ctr_storelibtest_passthru");
  Ref parsed = get(raw.get(), "parser");
  Ref assign = c.exec_format(raw.get());
  if (truthy(parsed.get())) collect_storelib_bytes(parsed.get(), bytes.get());
  return pair(assign.get(), bytes.get());
}

// hexdump -v prints an offset column, then 16-bit words of four hex digits
// in host (little-endian) order: "0070" holds the bytes 70 then 00.
void collect_hexdump_words(PyObject* dump, PyObject* out) {
  Ref lines = lines_of(dump);
  Py_ssize_t n = PyList_Size(lines.get());
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* line = PyList_GetItem(lines.get(), i);
    Ref pieces = split_spaces(line);
    Py_ssize_t m = PyList_Size(pieces.get());
    for (Py_ssize_t j = 0; j < m; ++j) {
      PyObject* piece = PyList_GetItem(pieces.get(), j);
      Py_ssize_t len = PyUnicode_GetLength(piece);
      if (len < 0) fail();
      if (len == 0 || len > 4) continue;  // empty, or the offset column
      Py_ssize_t half = len / 2;
      Ref high = Ref::steal(PyUnicode_Substring(piece, 0, half));
      Ref low = Ref::steal(PyUnicode_Substring(piece, half, len));
      append(out, low.get());
      append(out, high.get());
    }
  }
}

Ref passthru_sorbctl(Call& c) {
  Ref bytes = list();
  Ref kind = c.p_get("data_transfer");
  if (equals(kind.get(), "notransfer")) {
    c.p_set("data_transfer", "set");
    Ref assign = c.parsed("send_controller_pd_passthru_sorbctl");
    return pair(assign.get(), bytes.get());
  }
  Ref scratch = str(kSorbctlScratch);
  c.p_set("file_path", scratch.get());
  Ref assign = c.parsed("send_controller_pd_passthru_sorbctl");
  // The scratch file goes away whatever happens while it is read.
  try {
    Ref v = str("v");
    Ref p = dict({{"param", v.get()}, {"file_path", scratch.get()}});
    Ref dump = host_parsed(c, "hexdump", p.get());
    collect_hexdump_words(dump.get(), bytes.get());
  } catch (const PyError&) {
    PyObject *type, *value, *trace;
    PyErr_Fetch(&type, &value, &trace);
    try {
      remove_file(c, scratch.get());
    } catch (const PyError&) {
      PyErr_Clear();
    }
    PyErr_Restore(type, value, trace);
    throw;
  }
  remove_file(c, scratch.get());
  return pair(assign.get(), bytes.get());
}

// Every non-empty piece of the text, split at single spaces, line by line.
void collect_words(PyObject* text, PyObject* out) {
  Ref lines = lines_of(text);
  Py_ssize_t n = PyList_Size(lines.get());
  for (Py_ssize_t i = 0; i < n; ++i) {
    PyObject* line = PyList_GetItem(lines.get(), i);
    Ref pieces = split_spaces(line);
    Py_ssize_t m = PyList_Size(pieces.get());
    for (Py_ssize_t j = 0; j < m; ++j) {
      PyObject* piece = PyList_GetItem(pieces.get(), j);
      if (PyUnicode_GetLength(piece) > 0) append(out, piece);
    }
  }
}

Ref passthru_arcconf(Call& c) {
  Ref bytes = list();
  Ref answer = c.parsed("send_controller_pd_passthru_arcconf");
  Ref assign = boolean(truthy(answer.get()));
  Ref kind = c.p_get("data_transfer");
  if (equals(kind.get(), "notransfer")) return pair(assign.get(), bytes.get());
  Ref file = c.p_get("file_path");
  if (truthy(file.get())) {
    Ref text = cat_file(c, file.get());
    collect_words(text.get(), bytes.get());
    remove_file(c, file.get());
  } else {
    collect_words(answer.get(), bytes.get());
  }
  return pair(assign.get(), bytes.get());
}

// eid, sid, command_passthru, the fixed checkrc 0, then the keywords.
Ref passthru_params(PyObject* args, PyObject* extra) {
  Ref p = dict({{"eid", PyTuple_GetItem(args, 0)},
                {"sid", PyTuple_GetItem(args, 1)},
                {"command_passthru", PyTuple_GetItem(args, 2)}});
  Ref zero = integer(0);
  set_item(p.get(), "checkrc", zero.get());
  update(p.get(), extra);
  return p;
}

}  // namespace

void add_firmware_logs_ops(OpList& ops) {
  ops.push_back(OpDef{
      "export_fw_logs",
      "**kwargs",
      "导出控制器固件日志（仅 storcli64）。\n\n"
      "参数:\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    工具输出的日志（命令结果的 stdout 部分，逐行）。",
      {custom(Tool::storcli64, [](Call& c) { return stdout_of(c, "ctr_get_log_storcli64"); })}});
  ops.push_back(OpDef{
      "get_controller_detail_log",
      "**kwargs",
      "查询控制器详细日志。\n\n"
      "sorbctl 先导出 flash 与 ram 两份日志（/root/raidlog//log-flash.txt、"
      "/root/raidlog//log-ram.txt）再读取；arcconf 导出后读取 "
      "/var/log/Support/Firmware/Controller_1_Log.txt。\n\n"
      "参数:\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n    list: 日志行；sorbctl 为 flash 日志行在前、ram 日志行在后。\n\n"
      "异常:\n    OrvexException: 工具未导出日志文件时抛出 \"导出日志文件失败\"。",
      {custom(Tool::storcli64, [](Call& c) { return stdout_of(c, "ctr_get_alilog_storcli64"); }),
       custom(Tool::sorbctl, detail_log_sorbctl), custom(Tool::arcconf, detail_log_arcconf)}});
  ops.push_back(OpDef{"update_controller_fw",
                      "fw_file, **kwargs",
                      "升级控制器固件。\n\n"
                      "参数:\n"
                      "    fw_file (str): 固件文件路径。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 升级是否成功。",
                      {checked(Tool::storcli64, "ctr_update_fw_storcli64"),
                       checked(Tool::sorbctl, "update_controller_fw_sorbctl"),
                       checked(Tool::arcconf, "update_controller_fw_arcconf")}});
  ops.push_back(OpDef{"update_pd_fw",
                      "eid, sid, fw_file, **kwargs",
                      "通过控制器升级直通硬盘的固件。\n\n"
                      "参数:\n"
                      "    eid (str): 硬盘所在的 enclosure / channel 编号。\n"
                      "    sid (str): 硬盘的 slot / device 编号。\n"
                      "    fw_file (str): 固件文件路径。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 升级是否成功。",
                      {checked(Tool::storcli64, "pd_update_fw_storcli64"),
                       checked(Tool::sorbctl, "update_controller_pd_fw_sorbctl"),
                       checked(Tool::arcconf, "update_pd_fw_arcconf")}});
  ops.push_back(OpDef{"activate_hot_ctl_fw",
                      "active_type='hot', **kwargs",
                      "固件热激活：不重启主机激活新加载的控制器固件（仅 sorbctl）。\n\n"
                      "参数:\n"
                      "    active_type (str): \"hot\"（缺省）或 \"cold\"。\n"
                      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                      "返回:\n    bool: 激活是否成功。",
                      {refuse(Tool::storcli64, "LSI卡storcli64工具没有 固件热激活 功能"),
                       checked(Tool::sorbctl, "active_controller_fw_sorbctl"),
                       refuse(Tool::arcconf, "PMC卡arcconf工具没有 固件热激活 功能")}});
  ops.push_back(OpDef{
      "controller_command_passthru",
      "eid, sid, command_passthru, **kwargs",
      "通过 RAID 工具向物理硬盘透传命令，返回硬盘的应答数据。\n\n"
      "参数:\n"
      "    eid (str): 硬盘所在的 enclosure / channel 编号。\n"
      "    sid (str): 硬盘的 slot / device 编号。\n"
      "    command_passthru (str): 要透传的命令。\n"
      "    data_length (int): 传输的字节数（工具层缺省 1024）。\n"
      "    data_transfer (str): read、write、readwrite、notransfer、readwithsense、"
      "notransferwithsense、writewithsense；暂不支持写类传输。\n"
      "    file_path (str): arcconf 保存数据的文件。\n"
      "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
      "返回:\n"
      "    tuple: (下发结果, 数据字节列表)，字节为两位十六进制文本，如 [\"70\", \"00\", \"05\"]；"
      "无数据传输时列表为空。",
      {custom(Tool::storcli64, passthru_storcli64), custom(Tool::sorbctl, passthru_sorbctl),
       custom(Tool::arcconf, passthru_arcconf)},
      ResultType::any,
      nullptr,
      passthru_params});
}

}  // namespace raid
