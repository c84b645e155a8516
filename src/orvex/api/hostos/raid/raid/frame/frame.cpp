// The Raid object: argument binding, variant registration and selection,
// the four variant forms, and the class built on the framework's base.
#include "frame.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <utility>

#include "strings.hpp"

namespace raid {

using namespace py;

namespace {

// ---------------------------------------------------------------------------
// Compiled operations

}  // namespace

enum class Kind : std::uint8_t { positional, keyword_only };

struct Param {
  Ref name;      // interned parameter name
  Ref key;       // key in params, or null when the argument is not stored
  Ref fallback;  // default value, or null when required
  Kind kind;
};

struct CompiledOp {
  const OpDef* def;
  std::vector<Param> params;
  Py_ssize_t npos = 0;  // positional-or-keyword parameters
  bool varkw = false;   // accepts **kwargs
  bool has_optional_pos = false;
  Ref variant_name;  // interned __name__ of the variants
  std::string doc;   // text signature + documentation
};

namespace {

std::deque<OpDef> g_defs_storage;  // stable addresses for OpDef
// Indexed like the trampolines.  Lives for the process and is never
// destroyed: its references must not be released after the interpreter has
// finalised (exit crashed on 3.12 and later).
std::vector<CompiledOp>& g_ops = *new std::vector<CompiledOp>();
std::vector<PyMethodDef> g_methods;  // never reallocated once built

Ref parse_default(const std::string& text) {
  if (text == "None") return none();
  if (text.size() >= 2 && (text.front() == '\'' || text.front() == '"')) {
    return str(text.substr(1, text.size() - 2).c_str());
  }
  return Ref::steal(PyLong_FromString(text.c_str(), nullptr, 10));
}

std::string trim(const std::string& s) {
  std::size_t b = s.find_first_not_of(' ');
  std::size_t e = s.find_last_not_of(' ');
  return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

CompiledOp compile(const OpDef& def) {
  CompiledOp op;
  op.def = &def;
  op.variant_name = intern(def.variant_name != nullptr ? def.variant_name : def.name);
  std::string text;  // parameters for the text signature
  Kind kind = Kind::positional;
  std::string sig = def.signature;
  std::size_t start = 0;
  while (start < sig.size()) {
    std::size_t comma = sig.find(',', start);
    if (comma == std::string::npos) comma = sig.size();
    std::string tok = trim(sig.substr(start, comma - start));
    start = comma + 1;
    if (tok.empty()) continue;
    std::string shown = tok;
    if (tok == "*") {
      kind = Kind::keyword_only;
    } else if (tok.rfind("**", 0) == 0) {
      op.varkw = true;
    } else {
      std::string name = tok;
      std::string deflt;
      std::size_t eq = name.find('=');
      if (eq != std::string::npos) {
        deflt = trim(name.substr(eq + 1));
        name = trim(name.substr(0, eq));
      }
      std::string key = name;
      std::size_t colon = name.find(':');
      if (colon != std::string::npos) {
        key = name.substr(colon + 1);
        name = name.substr(0, colon);
      }
      Param p;
      p.name = intern(name.c_str());
      if (key != "-") p.key = intern(key.c_str());
      if (!deflt.empty()) p.fallback = parse_default(deflt);
      p.kind = kind;
      if (kind == Kind::positional) {
        ++op.npos;
        if (p.fallback) op.has_optional_pos = true;
      }
      op.params.push_back(std::move(p));
      shown = name;
      if (!deflt.empty()) shown.append("=").append(deflt);
    }
    text += ", " + shown;
  }
  op.doc = std::string(def.name) + "($self, /" + text + ")\n--\n\n" + (def.doc ? def.doc : "");
  return op;
}

// ---------------------------------------------------------------------------
// Argument binding

struct Bound {
  Ref args;    // tuple of declared arguments
  Ref params;  // dict or null
};

[[noreturn]] void too_many_positional(const CompiledOp& op, Py_ssize_t given) {
  Py_ssize_t expected = op.npos + 1;  // the object itself counts
  PyErr_Format(PyExc_TypeError, "%.200s() takes %.8s %zd positional argument%.1s (%zd given)",
               op.def->name, op.has_optional_pos ? "at most" : "exactly", expected,
               expected == 1 ? "" : "s", given + 1);
  fail();
}

Bound bind(const CompiledOp& op, PyObject* args, PyObject* kw) {
  const Py_ssize_t nargs = PyTuple_Size(args);
  const std::size_t n = op.params.size();
  if (nargs > op.npos) too_many_positional(op, nargs);

  PyObject* values_small[16];
  std::vector<PyObject*> values_big;
  PyObject** values = values_small;
  if (n > 16) {
    values_big.assign(n, nullptr);
    values = values_big.data();
  } else {
    std::fill(values_small, values_small + 16, nullptr);
  }
  for (Py_ssize_t i = 0; i < nargs; ++i) values[i] = PyTuple_GetItem(args, i);

  Ref extra;
  Py_ssize_t nkw = (kw != nullptr) ? PyDict_Size(kw) : 0;
  if (nkw > 0) {
    Py_ssize_t used = 0;
    for (std::size_t i = 0; i < n; ++i) {
      PyObject* v = PyDict_GetItemWithError(kw, op.params[i].name.get());
      if (v == nullptr) {
        if (PyErr_Occurred()) fail();
        continue;
      }
      if (static_cast<Py_ssize_t>(i) < nargs) {
        PyErr_Format(PyExc_TypeError, "%.200s() got multiple values for argument '%U'",
                     op.def->name, op.params[i].name.get());
        fail();
      }
      values[i] = v;
      ++used;
    }
    if (used < nkw) {
      extra = Ref::steal(PyDict_New());
      Py_ssize_t pos = 0;
      PyObject* key;
      PyObject* value;
      while (PyDict_Next(kw, &pos, &key, &value)) {
        bool declared = false;
        for (const Param& p : op.params) {
          if (p.name.get() == key ||
              (PyUnicode_Check(key) && PyUnicode_Compare(p.name.get(), key) == 0)) {
            declared = true;
            break;
          }
        }
        if (declared) continue;
        if (!op.varkw) {
          PyErr_Format(PyExc_TypeError, "%s() got an unexpected keyword argument '%U'",
                       op.def->name, key);
          fail();
        }
        set_item(extra.get(), key, value);
      }
    }
  }

  Bound b;
  b.args = Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(n)));
  for (std::size_t i = 0; i < n; ++i) {
    const Param& p = op.params[i];
    PyObject* v = values[i];
    if (v == nullptr) {
      if (p.fallback) {
        v = p.fallback.get();
      } else if (p.kind == Kind::keyword_only) {
        PyErr_Format(PyExc_TypeError, "%s() needs keyword-only argument %U", op.def->name,
                     p.name.get());
        fail();
      } else {
        PyErr_Format(PyExc_TypeError, "%.200s() missing required argument '%U' (pos %zd)",
                     op.def->name, p.name.get(), static_cast<Py_ssize_t>(i) + 1);
        fail();
      }
    }
    Py_INCREF(v);
    PyTuple_SetItem(b.args.get(), static_cast<Py_ssize_t>(i), v);
  }

  if (n == 0 && !op.varkw && op.def->build == nullptr) return b;  // no params at all
  if (op.def->build != nullptr) {
    if (!extra) extra = Ref::steal(PyDict_New());
    b.params = op.def->build(b.args.get(), extra.get());
    return b;
  }
  b.params = Ref::steal(PyDict_New());
  for (std::size_t i = 0; i < n; ++i) {
    if (op.params[i].key) {
      set_item(b.params.get(), op.params[i].key.get(),
               PyTuple_GetItem(b.args.get(), static_cast<Py_ssize_t>(i)));
    }
  }
  if (extra) update(b.params.get(), extra.get());
  return b;
}

// ---------------------------------------------------------------------------
// Variant objects: real callables with the variant's name, holding the
// object, params and the bound arguments for the duration of one call.

struct VariantObject {
  PyObject_HEAD PyObject* self;
  PyObject* params;
  PyObject* args;
  const CompiledOp* op;
  std::size_t index;
};

PyTypeObject* g_variant_type = nullptr;

int variant_traverse(PyObject* o, visitproc visit, void* arg) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  Py_VISIT(v->self);
  Py_VISIT(v->params);
  Py_VISIT(v->args);
  return 0;
}

int variant_clear(PyObject* o) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  Py_CLEAR(v->self);
  Py_CLEAR(v->params);
  Py_CLEAR(v->args);
  return 0;
}

void variant_dealloc(PyObject* o) {
  PyTypeObject* tp = Py_TYPE(o);
  PyObject_GC_UnTrack(o);
  variant_clear(o);
  auto free_fn = reinterpret_cast<freefunc>(PyType_GetSlot(tp, Py_tp_free));
  free_fn(o);
  Py_DECREF(tp);
}

Ref run_variant(VariantObject* v) {
  const VariantDef& def = v->op->def->variants[v->index];
  Call call{v->self, v->params, v->args, *v->op->def, def, v->op};
  switch (def.form) {
    case Form::refusal:
      raise_orvex(def.text);
    case Form::checked: {
      if (def.prep) def.prep(call);
      Ref p = call.parsed(def.text, def.route);
      return boolean(Call::success(p.get()));
    }
    case Form::action: {
      if (def.prep) def.prep(call);
      Ref r = call.raw(def.text, def.route);
      return call.exec_format(r.get());
    }
    case Form::parser:
      if (def.prep) def.prep(call);
      return call.parsed(def.text, def.route);
    case Form::shaped: {
      Ref p = call.parsed(def.text, def.route);
      if (def.section != nullptr) p = get(p.get(), def.section);
      return call.format_with(p.get(), def.tmpl);
    }
    case Form::custom:
      return def.body(call);
  }
  raise(PyExc_SystemError, "unknown variant form");
}

PyObject* variant_call(PyObject* o, PyObject* args, PyObject* kwargs) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  if (PyTuple_Size(args) != 0 || (kwargs != nullptr && PyDict_Size(kwargs) != 0)) {
    PyErr_Format(PyExc_TypeError, "%U() takes no arguments", v->op->variant_name.get());
    return nullptr;
  }
  return guard([&] { return run_variant(v); });
}

PyObject* variant_name_get(PyObject* o, void*) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  PyObject* n = v->op->variant_name.get();
  Py_INCREF(n);
  return n;
}

PyObject* variant_tool_get(PyObject* o, void*) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  PyObject* t = tool_string(v->op->def->variants[v->index].tool);
  Py_INCREF(t);
  return t;
}

PyObject* variant_repr(PyObject* o) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  return PyUnicode_FromFormat("<raid variant %U [%U]>", v->op->variant_name.get(),
                              tool_string(v->op->def->variants[v->index].tool));
}

PyGetSetDef variant_getset[] = {
    {const_cast<char*>("__name__"), variant_name_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("__qualname__"), variant_name_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("raid_tool"), variant_tool_get, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot variant_slots[] = {
    {Py_tp_dealloc, reinterpret_cast<void*>(variant_dealloc)},
    {Py_tp_traverse, reinterpret_cast<void*>(variant_traverse)},
    {Py_tp_clear, reinterpret_cast<void*>(variant_clear)},
    {Py_tp_call, reinterpret_cast<void*>(variant_call)},
    {Py_tp_repr, reinterpret_cast<void*>(variant_repr)},
    {Py_tp_getset, variant_getset},
    {0, nullptr},
};

PyType_Spec variant_spec = {
    "orvex.api.hostos.raid.raid.variant",    sizeof(VariantObject), 0,
    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC, variant_slots,
};

Ref new_variant(PyObject* self, PyObject* params, PyObject* args, const CompiledOp* op,
                std::size_t index) {
  auto alloc = reinterpret_cast<allocfunc>(PyType_GetSlot(g_variant_type, Py_tp_alloc));
  PyObject* o = alloc(g_variant_type, 0);
  if (o == nullptr) fail();
  auto* v = reinterpret_cast<VariantObject*>(o);
  Py_INCREF(self);
  v->self = self;
  Py_XINCREF(params);
  v->params = params;
  Py_INCREF(args);
  v->args = args;
  v->op = op;
  v->index = index;
  return Ref::steal(o);
}

// ---------------------------------------------------------------------------
// Framework names

struct Framework {
  Ref host_os_base;
  Ref hostos_ns;
  Ref host_type;
  Ref obj_attr_decorator;
  Ref load_from_file;
  Ref orvex_exception;
  Ref output_formatter;
  Ref namedtuple;
  Ref module;
  Ref config_dir;  // "<module dir>/config/" once known
};
Framework* g_fw = nullptr;  // lives for the process

Ref import_name(const char* module, const char* name) {
  Ref m = Ref::steal(PyImport_ImportModule(module));
  return getattr(m.get(), name);
}

// ---------------------------------------------------------------------------
// Operation entry

Ref distributor_of(PyObject* self) {
  Ref current = getattr(self, S().u_distributor);
  if (truthy(current.get())) return current;
  Ref fields = Ref::steal(PyList_New(0));
  append(fields.get(), S().raid_tool);
  Ref name = str("Distributor");
  Ref type = call(g_fw->namedtuple.get(), {name.get(), fields.get()});
  Ref dispatcher = getattr(self, S().dispatcher);
  Ref tool = call_method(dispatcher.get(), "get_raid_tool");
  Ref record = call(type.get(), {tool.get()});
  Ref built = call(g_fw->obj_attr_decorator.get(), {record.get()});
  setattr(self, "_distributor", built.get());
  return built;
}

Ref run_op(const CompiledOp& op, PyObject* self, PyObject* args, PyObject* kw) {
  Bound b = bind(op, args, kw);
  const OpDef& def = *op.def;
  if (def.direct != nullptr) return def.direct(self, b.args.get(), b.params.get());

  Ref last;
  Ref empty = Ref::steal(PyTuple_New(0));
  for (std::size_t i = 0; i < def.variants.size(); ++i) {
    Ref dist = getattr(self, S().distributor);
    Ref kwargs = Ref::steal(PyDict_New());
    set_item(kwargs.get(), S().raid_tool, tool_string(def.variants[i].tool));
    Ref decorator = Ref::steal(PyObject_Call(dist.get(), empty.get(), kwargs.get()));
    Ref variant = new_variant(self, b.params.get(), b.args.get(), &op, i);
    last = call(decorator.get(), {variant.get()});
  }
  if (!last) raise(PyExc_SystemError, "operation without variants");
  Ref result = call(last.get());

  if (def.result != ResultType::any && result.get() != Py_None) {
    bool ok = def.result == ResultType::dict ? PyDict_CheckExact(result.get())
                                             : PyList_CheckExact(result.get());
    if (!ok) {
      Ref tname = getattr(reinterpret_cast<PyObject*>(Py_TYPE(result.get())), "__name__");
      PyErr_Format(PyExc_TypeError, "Expected %s, got %U",
                   def.result == ResultType::dict ? "dict" : "list", tname.get());
      fail();
    }
  }
  return result;
}

PyObject* op_entry(std::size_t idx, PyObject* self, PyObject* args, PyObject* kw) {
  return guard([&] { return run_op(g_ops[idx], self, args, kw); });
}

constexpr std::size_t kMaxOps = 192;

template <std::size_t I>
PyObject* trampoline(PyObject* self, PyObject* args, PyObject* kw) {
  return op_entry(I, self, args, kw);
}

template <std::size_t... I>
constexpr std::array<PyCFunctionWithKeywords, sizeof...(I)> make_trampolines(
    std::index_sequence<I...>) {
  return {&trampoline<I>...};
}

const auto g_trampolines = make_trampolines(std::make_index_sequence<kMaxOps>{});

// ---------------------------------------------------------------------------
// Direct operations of the frame

Ref init_direct(PyObject* self, PyObject*, PyObject*) {
  // The base class's constructor, with no arguments besides the object.
  Ref base_init = getattr(g_fw->host_os_base.get(), "__init__");
  call(base_init.get(), {self});
  setattr(self, "_distributor", Py_None);
  Ref formatter = call(g_fw->output_formatter.get(), {self});
  setattr(self, "formatter", formatter.get());
  return none();
}

Ref update_distributor_direct(PyObject* self, PyObject* args, PyObject*) {
  PyObject* raid_tool = PyTuple_GetItem(args, 0);
  if (!PyUnicode_Check(raid_tool)) {
    Ref tname = getattr(reinterpret_cast<PyObject*>(Py_TYPE(raid_tool)), "__name__");
    PyErr_Format(PyExc_TypeError, "update_distributor() argument 'raid_tool' must be str, not %U",
                 tname.get());
    fail();
  }
  Ref fields = Ref::steal(PyList_New(0));
  append(fields.get(), S().raid_tool);
  Ref name = str("Distributor");
  Ref type = call(g_fw->namedtuple.get(), {name.get(), fields.get()});
  Ref record = call(type.get(), {raid_tool});
  Ref built = call(g_fw->obj_attr_decorator.get(), {record.get()});
  setattr(self, "_distributor", built.get());
  return none();
}

PyObject* distributor_get(PyObject* self, void*) {
  return guard([&] { return distributor_of(self); });
}

PyGetSetDef g_distributor_getset = {
    const_cast<char*>("distributor"), distributor_get, nullptr,
    const_cast<char*>("当前工具的注册装饰器（只读）。首次读取时向 dispatcher 查询工具类型并缓存，"
                      "直到 update_distributor 替换它。"),
    nullptr};

const char* kRaidDoc =
    "RAID 控制卡管理接口。\n\n"
    "每个操作按当前主机的 RAID 工具（storcli64 / arcconf / sorbctl，PHY 相关另有 "
    "storelibtest）选择对应实现，调用框架的命令封装并整理返回结果；工具不支持的功能抛出 "
    "OrvexException。";

}  // namespace

// ---------------------------------------------------------------------------
// Frame operations table

void add_frame_ops(OpList& ops) {
  ops.push_back(OpDef{"__init__",
                      "",
                      "构造 Raid 对象：先初始化框架基类，再创建 formatter。",
                      {},
                      ResultType::any,
                      nullptr,
                      nullptr,
                      init_direct});
  ops.push_back(OpDef{"update_distributor",
                      "raid_tool",
                      "切换本对象使用的 RAID 工具。\n\n"
                      "参数:\n    raid_tool (str): 工具类型，storcli64 / arcconf / sorbctl / "
                      "storelibtest。\n\n返回:\n    None。raid_tool 不是字符串时抛出 TypeError，"
                      "且不做任何修改。",
                      {},
                      ResultType::any,
                      nullptr,
                      nullptr,
                      update_distributor_direct});
}

// ---------------------------------------------------------------------------
// Call helpers

PyObject* tool_string(Tool t) { return S().tools[static_cast<int>(t)]; }

PyObject* Call::tool_name() const { return tool_string(variant.tool); }

const char* Call::variant_name() const {
  return op.variant_name != nullptr ? op.variant_name : op.name;
}

PyObject* Call::arg(const char* name) const {
  for (std::size_t i = 0; i < compiled->params.size(); ++i) {
    if (PyUnicode_CompareWithASCIIString(compiled->params[i].name.get(), name) == 0) {
      return PyTuple_GetItem(args, static_cast<Py_ssize_t>(i));
    }
  }
  PyErr_Format(PyExc_SystemError, "%s has no argument %s", op.name, name);
  fail();
}

Ref Call::p_get(const char* key) const { return get(params, key); }

bool Call::p_has(const char* key) const {
  Ref k = str(key);
  int r = PyDict_Contains(params, k.get());
  if (r < 0) fail();
  return r == 1;
}

void Call::p_set(const char* key, PyObject* v) const { set_item(params, key, v); }

void Call::p_set(const char* key, const char* text) const {
  Ref v = str(text);
  set_item(params, key, v.get());
}

Ref Call::p_pop(const char* key) const {
  Ref k = str(key);
  return call_method(params, "pop", {k.get()});
}

void Call::p_del_if(const char* key) const {
  Ref k = str(key);
  if (PyDict_Contains(params, k.get()) == 1 && PyDict_DelItem(params, k.get()) < 0) fail();
}

Ref Call::dispatch_with(const char* wrapper, PyObject* p, Route r) const {
  Ref target;
  switch (r) {
    case Route::self:
      target = Ref::borrow(self);
      break;
    case Route::host:
      target = getattr(self, S().host);
      break;
    case Route::dispatcher:
      target = getattr(self, S().dispatcher);
      break;
  }
  Ref fn = getattr(target.get(), S().dispatch);
  Ref name = str(wrapper);
  if (p == nullptr) return call(fn.get(), {name.get()});
  return call(fn.get(), {name.get(), p});
}

Ref Call::dispatch(const char* wrapper, Route r) const { return dispatch_with(wrapper, params, r); }

Ref Call::raw(const char* wrapper, Route r) const {
  Ref answer = dispatch(wrapper, r);
  return item(answer.get(), 0);
}

Ref Call::parsed(const char* wrapper, Route r) const {
  Ref first = raw(wrapper, r);
  return get(first.get(), S().parser);
}

Ref Call::parsed_index(const char* wrapper, Route r) const {
  Ref first = raw(wrapper, r);
  return index(first.get(), S().parser);
}

bool Call::success(PyObject* parser_entry) {
  if (parser_entry == Py_None) return false;
  return contains(parser_entry, S().success);
}

Ref Call::formatter() const { return getattr(self, S().formatter); }

Ref Call::exec_format(PyObject* raw_output) const {
  Ref f = formatter();
  return call_method(f.get(), "parser_exec_cmd_format", {raw_output, tool_name()});
}

Ref Call::format(PyObject* data) const {
  return format_output(data, tool_name(), nullptr, variant_name());
}

Ref Call::format_with(PyObject* data, const char* formatter_attr) const {
  Ref f = formatter();
  Ref tmpl = getattr(f.get(), formatter_attr);
  return format_output(data, tool_name(), tmpl.get(), variant_name());
}

Ref Call::formatter_call(const char* method_name, std::initializer_list<PyObject*> a,
                         PyObject* kwargs) const {
  Ref f = formatter();
  return call_method(f.get(), method_name, a, kwargs);
}

Ref Call::method(const char* name, PyObject* kwargs) const {
  Ref m = getattr(self, name);
  Ref empty = Ref::steal(PyTuple_New(0));
  return Ref::steal(PyObject_Call(m.get(), empty.get(), kwargs));
}

void Call::log_info(PyObject* msg) const {
  Ref logger = getattr(self, "logger");
  call_method(logger.get(), "info", {msg});
}

void Call::log_error(PyObject* msg) const {
  Ref logger = getattr(self, "logger");
  call_method(logger.get(), "error", {msg});
}

void Call::refuse(const char* message) const { raise_orvex(message); }
void Call::refuse(PyObject* message) const { raise_orvex(message); }

PyObject* orvex_exception() { return g_fw->orvex_exception.get(); }

void raise_orvex(PyObject* message) { raise_obj(g_fw->orvex_exception.get(), message); }

void raise_orvex(const char* message) {
  Ref m = str(message);
  raise_orvex(m.get());
}

Ref load_template(const char* caller) {
  if (!g_fw->config_dir) {
    Ref file = getattr(g_fw->module.get(), "__file__");
    Ref path = Ref::steal(PyImport_ImportModule("os.path"));
    Ref abs = call_method(path.get(), "abspath", {file.get()});
    Ref dir = call_method(path.get(), "dirname", {abs.get()});
    Ref config = str("config");
    Ref empty = str("");
    g_fw->config_dir = call_method(path.get(), "join", {dir.get(), config.get(), empty.get()});
  }
  Ref file = format("%U%s.yaml", g_fw->config_dir.get(), caller);
  Ref kwargs = dict({{"file_type", S().yaml}});
  return call(g_fw->load_from_file.get(), {file.get()}, kwargs.get());
}

// ---------------------------------------------------------------------------
// The class

Ref build_raid_class(PyObject* module) {
  init_strings();
  g_fw = new Framework();
  g_fw->module = Ref::borrow(module);
  g_fw->host_os_base = import_name("orvex.api.hostos.hostos_base", "HostOSBase");
  g_fw->hostos_ns = import_name("orvex.api.hostos.hostos_base", "hostos_ns");
  g_fw->host_type = import_name("orvex.config.enum", "HostType");
  g_fw->obj_attr_decorator = import_name("orvex.utils.decorator", "obj_attr_decorator");
  g_fw->load_from_file = import_name("orvex.utils.file_parser", "load_from_file");
  g_fw->orvex_exception = import_name("orvex.exception.orvex_exception", "OrvexException");
  g_fw->output_formatter = import_name("orvex.api.hostos.raid.output_format", "OutputFormatter");
  g_fw->namedtuple = import_name("collections", "namedtuple");

  g_variant_type = reinterpret_cast<PyTypeObject*>(PyType_FromSpec(&variant_spec));
  if (g_variant_type == nullptr) fail();

  OpList all;
  add_frame_ops(all);
  add_normalise_ops(all);
  add_controller_discovery_ops(all);
  add_controller_settings_ops(all);
  add_firmware_logs_ops(all);
  add_phy_expander_ops(all);
  add_supercap_ops(all);
  add_pd_list_details_ops(all);
  add_pd_state_ops(all);
  add_pd_erase_sanitize_ops(all);
  add_pd_copyback_ops(all);
  add_vd_lifecycle_ops(all);
  add_vd_policies_ops(all);
  add_vd_background_ops(all);
  add_vd_expansion_ops(all);
  add_patrol_read_ops(all);
  add_consistency_check_ops(all);
  add_fault_policies_ops(all);
  if (all.size() > kMaxOps) raise(PyExc_SystemError, "too many Raid operations");

  for (OpDef& d : all) g_defs_storage.push_back(std::move(d));
  g_ops.reserve(g_defs_storage.size());
  g_methods.reserve(g_defs_storage.size() + 1);
  for (std::size_t i = 0; i < g_defs_storage.size(); ++i) {
    g_ops.push_back(compile(g_defs_storage[i]));
    PyMethodDef m;
    m.ml_name = g_defs_storage[i].name;
    m.ml_meth = reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(g_trampolines[i]));
    m.ml_flags = METH_VARARGS | METH_KEYWORDS;
    m.ml_doc = g_ops[i].doc.c_str();
    g_methods.push_back(m);
  }
  g_methods.push_back(PyMethodDef{nullptr, nullptr, 0, nullptr});

  PyObject* base = g_fw->host_os_base.get();
  PyObject* meta = reinterpret_cast<PyObject*>(Py_TYPE(base));
  Ref ns = Ref::steal(PyDict_New());
  Ref modname = str("orvex.api.hostos.raid.raid");
  Ref qualname = str("Raid");
  Ref doc = str(kRaidDoc);
  set_item(ns.get(), "__module__", modname.get());
  set_item(ns.get(), "__qualname__", qualname.get());
  set_item(ns.get(), "__doc__", doc.get());
  Ref bases = tuple({base});
  Ref cls = call(meta, {qualname.get(), bases.get(), ns.get()});
  if (!PyType_Check(cls.get())) raise(PyExc_TypeError, "HostOSBase's metaclass made no type");
  auto* type = reinterpret_cast<PyTypeObject*>(cls.get());

  for (std::size_t i = 0; i + 1 < g_methods.size(); ++i) {
    Ref descr = Ref::steal(PyDescr_NewMethod(type, &g_methods[i]));
    setattr(cls.get(), g_methods[i].ml_name, descr.get());
  }
  Ref prop = Ref::steal(PyDescr_NewGetSet(type, &g_distributor_getset));
  setattr(cls.get(), "distributor", prop.get());

  Ref host_os = getattr(g_fw->host_type.get(), "HostOS");
  Ref decorate = call_method(g_fw->hostos_ns.get(), "dispatchertype", {host_os.get()});
  return call(decorate.get(), {cls.get()});
}

}  // namespace raid
