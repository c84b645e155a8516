// The frame every Raid operation follows.
//
// An operation is declared as data (OpDef): its name, its signature in a
// small text form, its Chinese documentation, its declared result type and
// its variants in registration order.  The generic entry point binds the
// call's arguments, builds `params`, registers each variant through the
// framework's registration decorator (read afresh from `self.distributor`)
// and calls the last registration.
//
// Signature text, as in Python but with two additions:
//   "mode, **kwargs"                 positional-or-keyword `mode`, catch-all
//   "*, eid, sid, state, **kwargs"   keyword-only required parameters
//   "information='all', **kwargs"    a default (string literals or None)
//   "*, cc_state:cc, **kwargs"       stored in params under the key `cc`
//   "reset_type, phy_input:-"        `phy_input` is bound but not put in params
// Without "**kwargs" unknown keywords are rejected.  An operation with no
// parameters and no catch-all builds no params at all (variants dispatch with
// the wrapper name alone).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "py.hpp"

namespace raid {

using py::Ref;

enum class Tool : std::uint8_t { storcli64, arcconf, sorbctl, storelibtest };
enum class Route : std::uint8_t { self, host, dispatcher };
enum class ResultType : std::uint8_t { any, dict, list };

struct Call;
struct CompiledOp;
using Prep = void (*)(Call&);  // edits params before a mechanical dispatch
using Body = Ref (*)(Call&);   // a variant that computes its own result
// Direct operations (constructor, normalisers, update_distributor) bypass the
// variant machinery: they get self and the bound declared arguments.
using Direct = Ref (*)(PyObject* self, PyObject* args, PyObject* params);
// Builds params from the bound arguments when the standard rule does not fit.
using Builder = Ref (*)(PyObject* args, PyObject* extra);

enum class Form : std::uint8_t {
  refusal,  // raise OrvexException(message) before anything is dispatched
  checked,  // True exactly when "success" is in the answer's parser entry
  action,   // formatter.parser_exec_cmd_format(answer, tool)
  parser,   // the answer's parser entry, as it stands
  shaped,   // a section of the parser entry through a formatter template
  custom,   // body(call)
};

struct VariantDef {
  Tool tool;
  Form form;
  const char* text;  // wrapper name, or the refusal message
  Route route = Route::self;
  Prep prep = nullptr;
  Body body = nullptr;
  const char* section = nullptr;  // shaped: parser.get(section), or the whole entry
  const char* tmpl = nullptr;     // shaped: formatter attribute used as template
};

// Variant constructors, to keep operation tables short.
inline VariantDef refuse(Tool t, const char* message) { return {t, Form::refusal, message}; }
inline VariantDef checked(Tool t, const char* wrapper, Route r = Route::self, Prep p = nullptr) {
  return {t, Form::checked, wrapper, r, p};
}
inline VariantDef checked(Tool t, const char* wrapper, Prep p) {
  return {t, Form::checked, wrapper, Route::self, p};
}
inline VariantDef action(Tool t, const char* wrapper, Route r = Route::self, Prep p = nullptr) {
  return {t, Form::action, wrapper, r, p};
}
inline VariantDef action(Tool t, const char* wrapper, Prep p) {
  return {t, Form::action, wrapper, Route::self, p};
}
inline VariantDef parser(Tool t, const char* wrapper, Route r = Route::self, Prep p = nullptr) {
  return {t, Form::parser, wrapper, r, p};
}
inline VariantDef parser(Tool t, const char* wrapper, Prep p) {
  return {t, Form::parser, wrapper, Route::self, p};
}
// _format_output(parser.get(section) or parser, tool, formatter.<tmpl>)
inline VariantDef shaped(Tool t, const char* wrapper, const char* section, const char* tmpl) {
  return {t, Form::shaped, wrapper, Route::self, nullptr, nullptr, section, tmpl};
}
inline VariantDef custom(Tool t, Body b) {
  return {t, Form::custom, nullptr, Route::self, nullptr, b};
}

struct OpDef {
  const char* name;
  const char* signature;  // see the header comment
  const char* doc;        // Chinese documentation shown by help()
  std::vector<VariantDef> variants;
  ResultType result = ResultType::any;
  const char* variant_name = nullptr;  // function name of the variants; default: name
  Builder build = nullptr;             // custom params construction
  Direct direct = nullptr;             // not a tool operation (see Direct)
};

using OpList = std::vector<OpDef>;

// The state one variant sees: the Raid object, params and the bound
// declared arguments (in signature order).  Helpers throw py::PyError.
struct Call {
  PyObject* self;
  PyObject* params;  // dict, or nullptr for operations that build none
  PyObject* args;    // tuple of the declared arguments
  const OpDef& op;
  const VariantDef& variant;
  const CompiledOp* compiled;

  Tool tool() const { return variant.tool; }
  PyObject* tool_name() const;       // "storcli64", ... (borrowed, interned)
  const char* variant_name() const;  // the name templates are looked up by

  // Declared argument by name (borrowed); throws on an unknown name.
  PyObject* arg(const char* name) const;

  // params helpers
  Ref p_get(const char* key) const;  // params.get(key): value or None
  bool p_has(const char* key) const;
  void p_set(const char* key, PyObject* v) const;
  void p_set(const char* key, const char* text) const;
  Ref p_pop(const char* key) const;  // params.pop(key): KeyError when absent
  void p_del_if(const char* key) const;

  // Dispatch through the given route with params (or the wrapper name alone
  // when params is nullptr); the whole answer sequence.
  Ref dispatch(const char* wrapper, Route r = Route::self) const;
  Ref dispatch_with(const char* wrapper, PyObject* p, Route r = Route::self) const;
  // The first element of the answer (the raw output).
  Ref raw(const char* wrapper, Route r = Route::self) const;
  // raw(...).get("parser")
  Ref parsed(const char* wrapper, Route r = Route::self) const;
  // raw(...)["parser"]
  Ref parsed_index(const char* wrapper, Route r = Route::self) const;

  // The checked-action test on a parser entry.
  static bool success(PyObject* parser_entry);
  // formatter.parser_exec_cmd_format(raw, tool)
  Ref exec_format(PyObject* raw) const;

  // _format_output with the template file named after this variant.
  Ref format(PyObject* data) const;
  // _format_output with the formatter attribute `attr` as template.
  Ref format_with(PyObject* data, const char* formatter_attr) const;
  Ref formatter() const;
  Ref formatter_call(const char* method, std::initializer_list<PyObject*> args,
                     PyObject* kwargs = nullptr) const;
  // Calls another public operation of the same object: self.<name>(**kwargs).
  Ref method(const char* name, PyObject* kwargs = nullptr) const;
  void log_info(PyObject* msg) const;
  void log_error(PyObject* msg) const;

  [[noreturn]] void refuse(const char* message) const;
  [[noreturn]] void refuse(PyObject* message) const;
};

// The tool kind string (interned).
PyObject* tool_string(Tool t);

// Normalisers, shared by variants and the public methods.
Ref format_output(PyObject* raw, PyObject* tool, PyObject* tmpl, const char* caller);
Ref load_template(const char* caller);
Ref merge_output(PyObject* raw, PyObject* res, PyObject* structure);

// OrvexException as imported from the framework (borrowed).
PyObject* orvex_exception();
[[noreturn]] void raise_orvex(PyObject* message);
[[noreturn]] void raise_orvex(const char* message);

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

// Builds the class; called once from the module's init.
Ref build_raid_class(PyObject* module);

}  // namespace raid
