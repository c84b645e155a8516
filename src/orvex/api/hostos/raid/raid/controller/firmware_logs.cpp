// Firmware update and activation, controller logs, command pass-through.
#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid {

using namespace py;

namespace {

constexpr const char* kFlashLog = "/root/raidlog//log-flash.txt";
constexpr const char* kRamLog = "/root/raidlog//log-ram.txt";
constexpr const char* kArcconfLog = "/var/log/Support/Firmware/Controller_1_Log.txt";
constexpr const char* kSorbctlScratch = "/root/sorbctl_save";

constexpr ParamDef kKeywordsOnly[] = {kwargs()};
constexpr ParamDef kPassthruParams[] = {arg("eid"), arg("sid"), arg("command_passthru"), kwargs()};

// Lines of a parser value: a list stays as it is, a text is split into lines,
// None gives no lines.
Ref lines_of(PyObject* value) {
  if (value == nullptr) return nullptr;
  if (value == Py_None) return list();
  if (PyUnicode_Check(value)) return call_method(value, "splitlines");
  return Ref::steal(PySequence_List(value));
}

// Calls f(piece) for every piece of every line of `text` split at single
// spaces (str.split(" "), so runs of spaces give empty pieces); the
// protocol of kit::each.
template <class F>
int each_piece(PyObject* text, F&& f) {
  Ref lines = lines_of(text);
  if (!lines) return -1;
  Ref space = str(" ");
  if (!space) return -1;
  return kit::each(lines.get(), [&](PyObject* line) {
    Ref pieces = call_method(line, "split", {space.get()});
    return kit::each(pieces.get(), f);
  });
}

// The parser value of a generic host command run with its own arguments.
Ref command_parsed(const Call& c, const Wrapper& command, PyObject* p) {
  if (p == nullptr) return nullptr;
  Ref answer = c.dispatch_with(command, p);
  Ref first = item(answer.get(), 0);
  return get(first.get(), "parser");
}

int remove_file(const Call& c, const Wrapper& remove, PyObject* path) {
  Ref p = dict({{"path", path}});
  if (!p) return -1;
  return c.dispatch_with(remove, p.get()) ? 0 : -1;
}

// ---------------------------------------------------------------- logs

// The export, the reading of a file and the refusal when nothing was written.
struct LogTexts {
  Wrapper export_log;
  Wrapper read;
  Message failed;
};

// The tool names the two files it wrote; both are read back, flash first.
Ref detail_log_sorbctl(const Call& c, const LogTexts& t) {
  Ref reported = c.parsed(t.export_log);
  if (!reported) return nullptr;
  Ref flash_path = str(kFlashLog);
  Ref ram_path = str(kRamLog);
  if (!flash_path || !ram_path) return nullptr;
  int written = truthy(reported.get());
  if (written == 1) written = contains(reported.get(), flash_path.get());
  if (written == 1) written = contains(reported.get(), ram_path.get());
  if (written < 0) return nullptr;
  if (written == 0) return c.refuse(t.failed);
  if (c.p_set("file_path", flash_path.get()) < 0) return nullptr;
  Ref flash = c.parsed(t.read);
  if (!flash || c.p_set("file_path", ram_path.get()) < 0) return nullptr;
  Ref ram = c.parsed(t.read);
  Ref lines = lines_of(flash.get());
  Ref more = lines_of(ram.get());
  if (!lines || !more) return nullptr;
  return Ref::steal(PySequence_Concat(lines.get(), more.get()));
}

Ref detail_log_arcconf(const Call& c, const LogTexts& t) {
  Ref reported = c.parsed(t.export_log);
  const int written = truthy(reported.get());
  if (written < 0) return nullptr;
  if (written == 0) return c.refuse(t.failed);
  if (c.p_set("file_path", kArcconfLog) < 0) return nullptr;
  return c.parsed(t.read);
}

// ---------------------------------------------------------------- pass-through

int is_hex_byte(PyObject* piece) {
  if (piece == nullptr) return -1;
  const Py_ssize_t len = PyUnicode_GetLength(piece);
  if (len < 0) return -1;
  if (len != 2) return 0;
  for (Py_ssize_t i = 0; i < 2; ++i) {
    const Py_UCS4 ch = PyUnicode_ReadChar(piece, i);
    const bool hex =
        (ch >= '0' && ch <= '9') || (ch >= 'a' && ch <= 'f') || (ch >= 'A' && ch <= 'F');
    if (!hex) return 0;
  }
  return 1;
}

// storelibtest prints the returned data as rows of two-digit hex bytes,
// possibly behind an offset or a label ("0000: 70 00 05 ..."); every
// whitespace-separated piece that is one byte (optionally written 0x70)
// is taken, in order, everything else is skipped.
int collect_storelib_bytes(PyObject* parsed, PyObject* out) {
  Ref lines = lines_of(parsed);
  if (!lines) return -1;
  Ref prefix = str("0x");
  if (!prefix) return -1;
  return kit::each(lines.get(), [&](PyObject* line) {
    if (!PyUnicode_Check(line)) return 0;
    Ref pieces = call_method(line, "split");
    return kit::each(pieces.get(), [&](PyObject* word) {
      Ref piece = Ref::borrow(word);
      Ref low = lower(word);
      Ref starts = call_method(low.get(), "startswith", {prefix.get()});
      const int prefixed = truthy(starts.get());
      if (prefixed < 0) return -1;
      if (prefixed == 1)
        piece = Ref::steal(PyUnicode_Substring(word, 2, PyUnicode_GetLength(word)));
      const int byte = is_hex_byte(piece.get());
      if (byte != 1) return byte;
      return append(out, piece.get());
    });
  });
}

// The command sent; storcli64 first reads the drive's device id, sorbctl
// and arcconf then read the data back from a file and remove it.
struct SendTexts {
  Wrapper send;
  Operation drive;
};
struct SendReadTexts {
  Wrapper send;
  Wrapper read;
  Wrapper remove;
};

Ref passthru_storcli64(const Call& c, const SendTexts& t) {
  Ref bytes = list();
  if (!bytes) return nullptr;
  Ref eid = c.p_get("eid");
  Ref sid = c.p_get("sid");
  if (!eid || !sid) return nullptr;
  Ref kw = dict({{"eid", eid.get()}, {"sid", sid.get()}});
  if (!kw) return nullptr;
  Ref drive = c.method(t.drive, kw.get());
  if (!drive) return nullptr;
  // the tool's code of the transfer; other values go as given
  Ref transfer = c.p_get("data_transfer");
  bool listed = false;
  Ref code = lookup(transfer.get(),
                    {{"write", "1"}, {"read", "2"}, {"readwrite", "3"}, {"notransfer", "0"}},
                    Missing::keep, nullptr, &listed);
  if (!code || (listed && c.p_set("data_transfer", code.get()) < 0)) return nullptr;
  Ref did = index(drive.get(), "did");
  if (!did || c.p_set("did", did.get()) < 0) return nullptr;
  Ref raw = c.raw(t.send);
  Ref parsed = get(raw.get(), "parser");
  if (!parsed) return nullptr;
  Ref assign = c.exec_format(raw.get());
  const int answered = truthy(parsed.get());
  if (!assign || answered < 0) return nullptr;
  if (answered == 1 && collect_storelib_bytes(parsed.get(), bytes.get()) < 0) return nullptr;
  return tuple({assign.get(), bytes.get()});
}

// hexdump -v prints an offset column, then 16-bit words of four hex digits
// in host (little-endian) order: "0070" holds the bytes 70 then 00.
int collect_hexdump_words(PyObject* dump, PyObject* out) {
  return each_piece(dump, [&](PyObject* piece) {
    const Py_ssize_t len = PyUnicode_GetLength(piece);
    if (len < 0) return -1;
    if (len == 0 || len > 4) return 0;  // empty, or the offset column
    Ref high = Ref::steal(PyUnicode_Substring(piece, 0, len / 2));
    Ref low = Ref::steal(PyUnicode_Substring(piece, len / 2, len));
    if (!high || !low || append(out, low.get()) < 0) return -1;
    return append(out, high.get());
  });
}

Ref passthru_sorbctl(const Call& c, const SendReadTexts& t) {
  Ref bytes = list();
  Ref kind = c.p_get("data_transfer");
  const int only_send = equal(kind.get(), "notransfer");
  if (!bytes || only_send < 0) return nullptr;
  if (only_send == 1) {
    if (c.p_set("data_transfer", "set") < 0) return nullptr;
    Ref assign = c.parsed(t.send);
    if (!assign) return nullptr;
    return tuple({assign.get(), bytes.get()});
  }
  Ref scratch = str(kSorbctlScratch);
  if (!scratch || c.p_set("file_path", scratch.get()) < 0) return nullptr;
  Ref assign = c.parsed(t.send);
  if (!assign) return nullptr;
  Ref v = str("v");
  Ref p = dict({{"param", v.get()}, {"file_path", scratch.get()}});
  Ref dump = command_parsed(c, t.read, p.get());
  if (collect_hexdump_words(dump.get(), bytes.get()) < 0) {
    // The scratch file goes away whatever happened while it was read; the
    // reading's error is the one reported.
    Fetched error;
    if (remove_file(c, t.remove, scratch.get()) < 0) PyErr_Clear();
    return error.restore();
  }
  if (remove_file(c, t.remove, scratch.get()) < 0) return nullptr;
  return tuple({assign.get(), bytes.get()});
}

// Every non-empty piece of the text, split at single spaces, line by line.
int collect_words(PyObject* text, PyObject* out) {
  return each_piece(text, [&](PyObject* piece) {
    const Py_ssize_t len = PyUnicode_GetLength(piece);
    if (len < 0) return -1;
    return len == 0 ? 0 : append(out, piece);
  });
}

Ref passthru_arcconf(const Call& c, const SendReadTexts& t) {
  Ref bytes = list();
  Ref answer = c.parsed(t.send);
  const int sent = truthy(answer.get());
  if (!bytes || sent < 0) return nullptr;
  Ref assign = boolean(sent == 1);
  Ref kind = c.p_get("data_transfer");
  const int only_send = equal(kind.get(), "notransfer");
  if (only_send < 0) return nullptr;
  if (only_send == 1) return tuple({assign.get(), bytes.get()});
  Ref file = c.p_get("file_path");
  const int named = truthy(file.get());
  if (named < 0) return nullptr;
  if (named == 1) {
    Ref p = dict({{"file_path", file.get()}});
    Ref text = command_parsed(c, t.read, p.get());
    if (collect_words(text.get(), bytes.get()) < 0 || remove_file(c, t.remove, file.get()) < 0) {
      return nullptr;
    }
  } else if (collect_words(answer.get(), bytes.get()) < 0) {
    return nullptr;
  }
  return tuple({assign.get(), bytes.get()});
}

// eid, sid, command_passthru, the fixed checkrc 0, then the keywords.
Ref passthru_params(PyObject* const* args, PyObject* extra) {
  Ref zero = integer(0);
  if (!zero) return nullptr;
  Ref p = dict({{"eid", args[RAID_ARG(kPassthruParams, "eid")]},
                {"sid", args[RAID_ARG(kPassthruParams, "sid")]},
                {"command_passthru", args[RAID_ARG(kPassthruParams, "command_passthru")]},
                {"checkrc", zero.get()}});
  if (!p || (extra != nullptr && update(p.get(), extra) < 0)) return nullptr;
  return p;
}

// The tool's output as the command wrapper read it: answer[0].get("stdout").
Ref stdout_of(const Call& c, const Wrapper& query) {
  Ref first = c.raw(query);
  return get(first.get(), "stdout");
}

}  // namespace

void add_firmware_logs_ops(OpList& ops) {
  static constexpr Wrapper kFwLog{"ctr_get_log_storcli64"};
  ops.push_back(Op("export_fw_logs")
                    .params(kKeywordsOnly)
                    .extras({kAdapterId})
                    .doc("导出控制器固件日志（仅 storcli64）。\n\n"
                         "参数:\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    工具输出的日志（命令结果的 stdout 部分，逐行）。")
                    .variants({custom<stdout_of, kFwLog>(Tool::storcli64)}));
  static constexpr Wrapper kAliLog{"ctr_get_alilog_storcli64"};
  static constexpr LogTexts kSorbctlDetailLog{
      {"get_controller_log_sorbctl"}, {"cat"}, {"导出日志文件失败"}};
  static constexpr LogTexts kArcconfDetailLog{
      {"get_controller_log_arcconf"}, {"cat"}, {"导出日志文件失败"}};
  ops.push_back(
      Op("get_controller_detail_log")
          .params(kKeywordsOnly)
          .extras({kAdapterId})
          .doc("查询控制器详细日志。\n\n"
               "sorbctl 先导出 flash 与 ram 两份日志（/root/raidlog//log-flash.txt、"
               "/root/raidlog//log-ram.txt）再读取；arcconf 导出后读取 "
               "/var/log/Support/Firmware/Controller_1_Log.txt。\n\n"
               "参数:\n"
               "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    list: 日志行；sorbctl 为 flash 日志行在前、ram 日志行在后。\n\n"
               "异常:\n    OrvexException: 工具未导出日志文件时抛出 \"导出日志文件失败\"。")
          .returns_doc("list")
          .variants({custom<stdout_of, kAliLog>(Tool::storcli64),
                     custom<detail_log_sorbctl, kSorbctlDetailLog>(Tool::sorbctl),
                     custom<detail_log_arcconf, kArcconfDetailLog>(Tool::arcconf)}));
  ops.push_back(Op("update_controller_fw")
                    .params({arg("fw_file"), kwargs()})
                    .extras({kAdapterId})
                    .doc("升级控制器固件。\n\n"
                         "参数:\n"
                         "    fw_file (str): 固件文件路径。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 升级是否成功。")
                    .variants({checked(Tool::storcli64, "ctr_update_fw_storcli64"),
                               checked(Tool::sorbctl, "update_controller_fw_sorbctl"),
                               checked(Tool::arcconf, "update_controller_fw_arcconf")}));
  ops.push_back(Op("update_pd_fw")
                    .params({arg("eid"), arg("sid"), arg("fw_file"), kwargs()})
                    .extras({kAdapterId})
                    .doc("通过控制器升级直通硬盘的固件。\n\n"
                         "参数:\n"
                         "    eid (str): 硬盘所在的 enclosure / channel 编号。\n"
                         "    sid (str): 硬盘的 slot / device 编号。\n"
                         "    fw_file (str): 固件文件路径。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 升级是否成功。")
                    .variants({checked(Tool::storcli64, "pd_update_fw_storcli64"),
                               checked(Tool::sorbctl, "update_controller_pd_fw_sorbctl"),
                               checked(Tool::arcconf, "update_pd_fw_arcconf")}));
  ops.push_back(Op("activate_hot_ctl_fw")
                    .params({arg("active_type").or_("'hot'"), kwargs()})
                    .extras({kAdapterId})
                    .doc("固件热激活：不重启主机激活新加载的控制器固件（仅 sorbctl）。\n\n"
                         "参数:\n"
                         "    active_type (str): \"hot\"（缺省）或 \"cold\"。\n"
                         "    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
                         "返回:\n    bool: 激活是否成功。")
                    .variants({refuse(Tool::storcli64, "LSI卡storcli64工具没有 固件热激活 功能"),
                               checked(Tool::sorbctl, "active_controller_fw_sorbctl"),
                               refuse(Tool::arcconf, "PMC卡arcconf工具没有 固件热激活 功能")}));
  static constexpr SendTexts kStorcliSend{{"send_ctr_storelibtest_passthru"},
                                          {"get_one_physical_drive_info"}};
  static constexpr SendReadTexts kSorbctlSend{
      {"send_controller_pd_passthru_sorbctl"}, {"hexdump"}, {"rm"}};
  static constexpr SendReadTexts kArcconfSend{
      {"send_controller_pd_passthru_arcconf"}, {"cat"}, {"rm"}};
  ops.push_back(
      Op("controller_command_passthru")
          .params(kPassthruParams)
          .extras({extra("data_length").typed("int"), extra("data_transfer"), extra("file_path"),
                   kAdapterId})
          .doc("通过 RAID 工具向物理硬盘透传命令，返回硬盘的应答数据。\n\n"
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
               "    tuple: (下发结果, 数据字节列表)，字节为两位十六进制文本，如 [\"70\", \"00\", "
               "\"05\"]；无数据传输时列表为空。")
          .returns_doc("tuple")
          .build(passthru_params)
          .variants({custom<passthru_storcli64, kStorcliSend>(Tool::storcli64)
                         .note("adapter_id", ExtraUse::ignores, "读取硬盘 did 时不传 adapter_id"),
                     custom<passthru_sorbctl, kSorbctlSend>(Tool::sorbctl),
                     custom<passthru_arcconf, kArcconfSend>(Tool::arcconf)}));
}

}  // namespace raid
