// The frame every Raid operation follows.
//
// An operation is a row of data (Op): its name, its parameters (declared
// once, typed), its Chinese documentation, its declared result type and its
// variants in registration order.  The generic entry point binds the call's
// arguments, builds `params`, registers each variant through the framework's
// registration decorator (read afresh from `self.distributor`) and calls the
// last registration.
//
// Errors travel as Python errors (see py.hpp): a body returns an empty Ref
// with the error set; nothing here throws.
//
// A row, for example:
//
//   ops.push_back(Op("set_ctl_mode")
//                     .params({arg("mode"), kwargs()})
//                     .extras({kAdapterId})
//                     .doc("设置控制卡工作模式 ...")
//                     .variants({action(Tool::arcconf, "ctr_set_ctrl_mode_arcconf"),
//                                refuse(Tool::sorbctl, "7460卡sorbctl工具没有 ..."),
//                                refuse(Tool::storcli64, "LSI卡storcli64工具没有 ...")}));
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "py.hpp"
#include "texts.hpp"

namespace raid {

using py::Ref;

enum class Tool : std::uint8_t { storcli64, arcconf, sorbctl, storelibtest };
enum class ResultType : std::uint8_t { any, dict, list };

// ---------------------------------------------------------------------------
// Parameters, declared once per operation.  The binder, `params`, the text
// signature (inspect.signature, help) and the type stub all come from here.
//
// An extra (`extra("adapter_id")`, given to Op::extras) is a keyword the
// operation documents but does not declare: at run time it arrives through
// the catch-all like any other keyword, so it costs nothing per call; the
// type stub and the reference of operations show it as a keyword-only
// parameter.

enum class Kind : std::uint8_t { positional, keyword_only, catch_all, extra };

struct ParamDef {
  const char* name = nullptr;
  const char* fallback = nullptr;  // default as a Python literal: "None", "'eug'", "1"
  const char* key = nullptr;       // key in params when it differs from the name
  const char* type = "str";        // documented type (stub): "str", "bool", "list", "Any", ...
  Kind kind = Kind::positional;
  bool stored = true;  // false: bound, but not put into params

  constexpr ParamDef or_(const char* literal) const {  // with a default
    ParamDef p = *this;
    p.fallback = literal;
    return p;
  }
  constexpr ParamDef as(const char* params_key) const {  // stored under another key
    ParamDef p = *this;
    p.key = params_key;
    return p;
  }
  constexpr ParamDef unstored() const {
    ParamDef p = *this;
    p.stored = false;
    return p;
  }
  constexpr ParamDef typed(const char* t) const {
    ParamDef p = *this;
    p.type = t;
    return p;
  }
};

constexpr ParamDef param(const char* name, Kind kind) {
  ParamDef p{};
  p.name = name;
  p.kind = kind;
  return p;
}
constexpr ParamDef arg(const char* name) { return param(name, Kind::positional); }
constexpr ParamDef kw(const char* name) { return param(name, Kind::keyword_only); }
constexpr ParamDef kwargs() { return param("kwargs", Kind::catch_all).unstored().typed("Any"); }
constexpr ParamDef extra(const char* name) { return param(name, Kind::extra).unstored(); }

// The extras most operations take.
constexpr ParamDef kAdapterId = extra("adapter_id");  // controller number; first when absent
constexpr ParamDef kAdpId = extra("adp_id");          // the same, as some wrappers name it

constexpr bool same_text(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) {
    ++a;
    ++b;
  }
  return *a == *b;
}

// Position of a declared parameter; a name not declared stops the build
// (in a constant expression the throw is a compile error).
template <std::size_t N>
constexpr std::size_t param_index(const ParamDef (&params)[N], const char* name) {
  for (std::size_t i = 0; i < N; ++i) {
    if (same_text(params[i].name, name)) return i;
  }
  throw "no parameter of that name";
}

// RAID_ARG(kParams, "mode"): the bound value's position, checked when the
// module is compiled.
#define RAID_ARG(params, name) \
  (std::integral_constant<std::size_t, ::raid::param_index(params, name)>::value)

// ---------------------------------------------------------------------------
// Variants

struct Call;
struct CompiledOp;
using Body = Ref (*)(const Call&);                                // a variant that computes
using Prep = int (*)(const Call&);                                // edits params; -1 on error
using Builder = Ref (*)(PyObject* const* args, PyObject* extra);  // builds params
// Direct operations (constructor, normalisers, update_distributor) bypass
// the variants: they get self and the bound arguments.
using Direct = Ref (*)(PyObject* self, PyObject* const* args);

struct Pair {  // a translation: caller's value -> value sent to the tool
  const char* from;
  const char* to;
};

// What a typed text of a computed variant is (texts.hpp), for the
// reference of operations.
enum class TextKind : std::uint8_t { text, wrapper, message, call };

// How a variant treats an extra the caller may pass, noted for the
// reference of operations: `.note("adp_id", ExtraUse::reads)` where the
// tool's wrapper takes the controller under that key,
// `.note("adapter_id", ExtraUse::ignores, "...")` where a step runs without it.
enum class ExtraUse : std::uint8_t { reads, ignores };
struct ExtraNote {
  const char* name;
  const char* verb;  // "reads" or "ignores"
  const char* detail = nullptr;
};

// A text of a computed variant (texts.hpp) as the reference lists it.
struct TextNote {
  const char* text;
  TextKind kind;
  Route route;
};

// What a lookup (Edit::Op::lookup) does with a value its table does not list.
enum class Missing : std::uint8_t {
  keep,       // nothing is written: the value stays as given
  none,       // None is written
  key_error,  // the variant fails with KeyError(value)
  fallback,   // the lookup's fallback text is written
};

// One edit of params before the dispatch, applied in the row's order.
struct Edit {
  enum class Op : std::uint8_t {
    put,     // params[key] = text
    rename,  // params[other] = params.pop(key)
    copy,    // params[other] = params.get(key)
    lookup,  // params[other, or key when null] = table[params.get(key)];
             //     a value the table lacks as `missing` says
    fn,      // prep(call)
  };
  Op op;
  const char* key = nullptr;
  const char* other = nullptr;  // put: the text; rename/copy/lookup: the new key
  std::vector<Pair> table;
  Prep prep = nullptr;
  const char* text = nullptr;       // lookup: the fallback
  Missing missing = Missing::keep;  // lookup
};

// One step of shaping a query's answer, applied in the row's order to the
// value at hand (first the parser entry, see VariantDef::from).  A key of
// at/get/wrap may name params values in braces, read as text:
// "logical_device_number_{vid}" is "logical_device_number_" + str(params.get("vid")).
struct Shape {
  enum class Op : std::uint8_t {
    at,         // x = x[key]       (lookup error when missing)
    get,        // x = x.get(key)   (None when missing)
    first,      // x = x[0]
    format,     // x = _format_output(x, tool, template): template = formatter.<name>,
                //     or the file named after the variant when name is null
    post,       // x = formatter.<name>(x)
    method,     // x = x.<name>()   (e.g. "upper")
    wrap,       // x = {key: x}
    lookup,     // x = table[x]; a value the table lacks as `missing` says
    refuse_on,  // x == name (name null: x empty or None): OrvexException(text)
  };
  Op op;
  const char* name = nullptr;
  const char* text = nullptr;  // refuse_on: the message; lookup: the fallback
  std::vector<Pair> table;     // lookup
  Missing missing = Missing::keep;
};

// What a variant does when called.  Every form but refusal first applies the
// row's edits in order;
// checked and action dispatch the wrapper (or the chosen one, see
// checked_by) through the row's route with params.
enum class Form : std::uint8_t {
  refusal,  // raise OrvexException(text); nothing is dispatched and the edits are not applied
  checked,  // True exactly when "success" is in answer[0].get("parser") (None: False)
  action,   // formatter.parser_exec_cmd_format(answer[0], tool)
  query,    // dispatch text; the answer's part named by `from`, shaped by the Shape steps
  custom,   // body(call); a body is required
};

struct VariantDef {
  Tool tool;
  Form form;
  const char* text = nullptr;  // wrapper name, or the refusal message
  Route route = Route::self;
  // query: what the shape steps start from
  enum class From : std::uint8_t {
    parser,         // answer[0].get("parser")
    parser_strict,  // answer[0]["parser"]
  } from = From::parser;
  std::vector<Edit> edits;
  std::vector<Shape> shapes;
  // checked_by: the wrapper by the value of params[choose_key]; any other value
  // refuses with refuse_head + value + refuse_tail (str concatenation); a
  // null refuse_tail makes refuse_head alone the message (a fixed refusal).
  // The value is read after the row's edits.
  const char* choose_key = nullptr;
  std::vector<Pair> choices;  // value -> wrapper
  const char* refuse_head = nullptr;
  const char* refuse_tail = nullptr;
  Body body = nullptr;
  std::vector<ExtraNote> notes;  // for the reference of operations
  std::vector<TextNote> texts;   // the typed texts of the body and preps

  // Modifiers, so a row says only what differs.
  VariantDef via(Route r) &&;
  VariantDef put(const char* key, const char* text) &&;
  VariantDef rename(const char* key, const char* to) &&;
  VariantDef copy(const char* key, const char* to) &&;
  // params[key] looked up in table, written back under key (or `into`); a
  // value the table lacks: see Missing (Missing::fallback writes `fallback`).
  VariantDef lookup(const char* key, std::vector<Pair> table, Missing missing = Missing::keep,
                    const char* into = nullptr, const char* fallback = nullptr) &&;
  VariantDef prep(Prep fn) &&;
  // A prep reading a texts struct: fn(call, texts).
  template <auto fn, const auto& texts>
  VariantDef prep() && {
    note_texts(texts);
    return std::move(*this).prep(+[](const Call& c) -> int { return fn(c, texts); });
  }
  VariantDef note(const char* extra_name, ExtraUse use, const char* detail = nullptr) &&;
  VariantDef strict() &&;  // from answer[0]["parser"]
  VariantDef at(const char* key) &&;
  VariantDef get(const char* key) &&;
  VariantDef first() &&;
  VariantDef format(const char* formatter_attr = nullptr) &&;
  VariantDef post(const char* formatter_method) &&;
  VariantDef method(const char* name) &&;
  VariantDef wrap(const char* key) &&;
  // The answer at hand looked up in table (see Missing).
  VariantDef lookup(std::vector<Pair> table, Missing missing = Missing::keep,
                    const char* fallback = nullptr) &&;
  VariantDef refuse_on(const char* text, const char* message) &&;
  VariantDef refuse_on_empty(const char* message) &&;

  // Lists a texts struct's texts for the reference (custom<>, prep<>).
  template <class T>
  void note_texts(const T& t) {
    each_field(t, [this](const auto& field) { note_text(field); });
  }
  void note_text(const Wrapper& w) { texts.push_back({w.name, TextKind::wrapper, w.route}); }
  void note_text(const Message& m) { texts.push_back({m.text, TextKind::message, Route::self}); }
  void note_text(const Operation& o) { texts.push_back({o.name, TextKind::call, Route::self}); }
  void note_text(const Text& t) { texts.push_back({t.text, TextKind::text, Route::self}); }
  template <class Data>
  void note_text(const Data&) {}  // the body's own data, not a text
};

VariantDef refuse(Tool t, const char* message);
VariantDef checked(Tool t, const char* wrapper);
VariantDef action(Tool t, const char* wrapper);
VariantDef query(Tool t, const char* wrapper);
VariantDef custom(Tool t, Body body);
// A variant computed by body(call, texts), texts a constexpr struct of
// typed texts (texts.hpp).
template <auto body, const auto& texts>
VariantDef custom(Tool t) {
  VariantDef v = custom(
      t, +[](const Call& c) -> Ref { return body(c, texts); });
  v.note_texts(texts);
  return v;
}
// checked whose wrapper is chosen by params[key] (see VariantDef::choose_key)
VariantDef checked_by(Tool t, const char* key, std::vector<Pair> wrappers, const char* head,
                      const char* tail);

// ---------------------------------------------------------------------------
// Operations

struct OpDef {
  const char* name = nullptr;
  std::vector<ParamDef> params;
  std::vector<ParamDef> extras;       // documented keywords beyond params (Kind::extra)
  bool extras_complete = false;       // extras are every keyword the operation takes
  const char* doc = "";               // Chinese documentation shown by help()
  const char* returns_doc = nullptr;  // the stub's result annotation ("bool", "dict", ...)
  ResultType result = ResultType::any;
  const char* variant_name = nullptr;  // function name of the variants; default: name
  std::vector<VariantDef> variants;
  Builder build = nullptr;  // params built by code
  Direct direct = nullptr;  // not a tool operation
};

// Builds an OpDef with named setters.
class Op {
 public:
  explicit Op(const char* name) { def_.name = name; }
  Op& params(std::initializer_list<ParamDef> ps) {
    def_.params.assign(ps);
    return *this;
  }
  template <std::size_t N>
  Op& params(const ParamDef (&ps)[N]) {
    def_.params.assign(ps, ps + N);
    return *this;
  }
  // Every extra keyword the operation takes (the stub then has no **kwargs).
  Op& extras(std::initializer_list<ParamDef> ps) {
    def_.extras.assign(ps);
    def_.extras_complete = true;
    return *this;
  }
  // The extras it documents; others may still be passed.
  Op& some_extras(std::initializer_list<ParamDef> ps) {
    def_.extras.assign(ps);
    def_.extras_complete = false;
    return *this;
  }
  Op& doc(const char* text) {
    def_.doc = text;
    return *this;
  }
  Op& returns(ResultType t) {
    def_.result = t;
    return *this;
  }
  Op& returns_doc(const char* annotation) {
    def_.returns_doc = annotation;
    return *this;
  }
  Op& variant_name(const char* n) {
    def_.variant_name = n;
    return *this;
  }
  Op& build(Builder b) {
    def_.build = b;
    return *this;
  }
  Op& direct(Direct d) {
    def_.direct = d;
    return *this;
  }
  Op& variants(std::vector<VariantDef> vs) {
    def_.variants = std::move(vs);
    return *this;
  }
  operator OpDef() && { return std::move(def_); }  // NOLINT(google-explicit-constructor)
  // A row is written as one chain of setters, which leaves an lvalue.
  operator OpDef() & { return def_; }  // NOLINT(google-explicit-constructor)

 private:
  OpDef def_;
};

using OpList = std::vector<OpDef>;

// What one variant sees: the Raid object, params and the bound declared
// arguments (in declaration order; a catch-all's slot holds the extra
// keywords as a dict).  Every helper returns an empty Ref / -1 on error.
struct Call {
  PyObject* self;
  PyObject* params;  // dict, or nullptr for operations that build none
  PyObject* const* args;
  const OpDef& op;
  const VariantDef& variant;
  const CompiledOp* compiled = nullptr;  // the frame's own view of op

  Tool tool() const { return variant.tool; }
  PyObject* tool_name() const;  // "storcli64", ... (borrowed, interned)
  PyObject* name() const;       // the variants' function name (borrowed, interned)
  PyObject* arg(std::size_t i) const { return args[i]; }  // c.arg(RAID_ARG(kParams, "x"))

  // params helpers; each fails with SystemError in an operation without params
  Ref p_get(const char* key) const;  // params.get(key): value or None
  int p_has(const char* key) const;  // key in params: 1 or 0
  int p_set(const char* key, PyObject* v) const;
  int p_set(const char* key, const char* text) const;
  Ref p_pop(const char* key) const;     // params.pop(key): KeyError when absent
  int p_del_if(const char* key) const;  // del params[key] when present

  // Dispatch through the route with params (or the wrapper name alone when
  // params is nullptr): the whole answer sequence.
  Ref dispatch(const char* wrapper, Route r = Route::self) const;
  Ref dispatch_with(const char* wrapper, PyObject* p, Route r = Route::self) const;
  Ref raw(const char* wrapper, Route r = Route::self) const;           // answer[0]
  Ref parsed(const char* wrapper, Route r = Route::self) const;        // answer[0].get("parser")
  Ref parsed_index(const char* wrapper, Route r = Route::self) const;  // answer[0]["parser"]

  static int success(PyObject* parser_entry);                     // "success" in entry (None: 0)
  Ref checked(const char* wrapper, Route r = Route::self) const;  // the checked-action form
  Ref exec_format(PyObject* raw) const;  // formatter.parser_exec_cmd_format(raw, tool)

  Ref format(PyObject* data) const;  // template file of the variant
  Ref format_with(PyObject* data, const char* formatter_attr) const;
  Ref formatter() const;
  Ref formatter_call(const char* method, std::initializer_list<PyObject*> args,
                     PyObject* kwargs = nullptr) const;
  // Another public operation of the same object: self.<name>(**kwargs).
  Ref method(const char* name, PyObject* kwargs = nullptr) const;
  int log_info(PyObject* msg) const;
  int log_error(PyObject* msg) const;

  // OrvexException(message); returns an empty Ref for `return c.refuse(...)`.
  Ref refuse(const char* message) const;
  Ref refuse(PyObject* message) const;

  // The same with the typed texts of texts.hpp; a wrapper goes through its
  // own route.
  Ref dispatch(const Wrapper& w) const { return dispatch(w.name, w.route); }
  Ref dispatch_with(const Wrapper& w, PyObject* p) const {
    return dispatch_with(w.name, p, w.route);
  }
  Ref raw(const Wrapper& w) const { return raw(w.name, w.route); }
  Ref parsed(const Wrapper& w) const { return parsed(w.name, w.route); }
  Ref parsed_index(const Wrapper& w) const { return parsed_index(w.name, w.route); }
  Ref checked(const Wrapper& w) const { return checked(w.name, w.route); }
  Ref method(const Operation& o, PyObject* kwargs = nullptr) const {
    return method(o.name, kwargs);
  }
  Ref refuse(const Message& m) const { return refuse(m.text); }
  Ref format_with(PyObject* data, const Text& formatter_attr) const {
    return format_with(data, formatter_attr.text);
  }
  // The message with its "{}" places filled by the values in order (str
  // concatenation: a value that is not a str fails with TypeError).
  Ref message(const Message& m, std::initializer_list<PyObject*> values) const;
  Ref message(const Text& t, std::initializer_list<PyObject*> values) const {  // a log line
    return message(Message{t.text}, values);
  }
};

PyObject* tool_string(Tool t);  // the tool kind string (interned, borrowed)

// Normalisers, shared by variants and the public methods.
Ref format_output(PyObject* raw, PyObject* tool, PyObject* tmpl, PyObject* caller);
Ref load_template(PyObject* caller);
Ref merge_output(PyObject* raw, PyObject* res, PyObject* structure);

PyObject* orvex_exception();  // as imported from the framework (borrowed)
Ref raise_orvex(PyObject* message);
Ref raise_orvex(const char* message);

// Operation tables, one function per source file.
void add_frame_ops(OpList&);
void add_normalise_ops(OpList&);
void add_controller_discovery_ops(OpList&);
void add_controller_settings_ops(OpList&);
void add_firmware_logs_ops(OpList&);
void add_phy_expander_ops(OpList&);
void add_supercap_ops(OpList&);
void add_pd_list_details_ops(OpList&);
void add_pd_state_ops(OpList&);
void add_pd_erase_sanitize_ops(OpList&);
void add_pd_copyback_ops(OpList&);
void add_vd_lifecycle_ops(OpList&);
void add_vd_policies_ops(OpList&);
void add_vd_background_ops(OpList&);
void add_vd_expansion_ops(OpList&);
void add_patrol_read_ops(OpList&);
void add_consistency_check_ops(OpList&);
void add_fault_policies_ops(OpList&);

// Builds the class; called once from the module's init.  Empty on error.
Ref build_raid_class(PyObject* module);

}  // namespace raid
