// The Call helpers computed variants work with, and raising the
// framework's exception.
#include <cstring>

#include "compiled.hpp"
#include "forms.hpp"
#include "frame_state.hpp"
#include "runtime.hpp"

namespace raid {

using namespace py;

PyObject* tool_string(Tool t) { return names().tools[static_cast<int>(t)]; }

PyObject* Call::tool_name() const { return tool_string(variant.tool); }

PyObject* Call::name() const {
  if (compiled != nullptr) return compiled->variant_name.get();
  for (const CompiledOp& o : fs().ops) {
    if (o.def == &op) return o.variant_name.get();
  }
  return names().empty;
}

namespace {

// Every params accessor refuses an operation that builds no params.
Ref no_params() { return raise(PyExc_SystemError, "operation without params"); }

}  // namespace

Ref Call::p_get(const char* key) const {
  if (params == nullptr) return no_params();
  return get(params, key);
}

int Call::p_has(const char* key) const {
  if (params == nullptr) return no_params(), -1;
  Ref k = text(key);
  if (!k) return -1;
  return PyDict_Contains(params, k.get());
}

int Call::p_set(const char* key, PyObject* v) const {
  if (params == nullptr) return no_params(), -1;
  return set_item(params, key, v);
}

int Call::p_set(const char* key, const char* text) const {
  if (params == nullptr) return no_params(), -1;
  Ref v = py::text(text);
  return set_item(params, key, v.get());
}

Ref Call::p_pop(const char* key) const {
  if (params == nullptr) return no_params();
  Ref k = text(key);
  return call_method(params, names().pop, {k.get()});
}

int Call::p_del_if(const char* key) const {
  if (params == nullptr) return no_params(), -1;
  Ref k = text(key);
  if (!k) return -1;
  const int has = PyDict_Contains(params, k.get());
  if (has <= 0) return has;
  return PyDict_DelItem(params, k.get());
}

Ref Call::dispatch_with(const char* wrapper, PyObject* p, Route r) const {
  Ref name = text(wrapper);
  return dispatch_name(*this, name.get(), p, r);
}

Ref Call::dispatch(const char* wrapper, Route r) const { return dispatch_with(wrapper, params, r); }

Ref Call::raw(const char* wrapper, Route r) const {
  Ref answer = dispatch(wrapper, r);
  return item(answer.get(), 0);
}

Ref Call::parsed(const char* wrapper, Route r) const {
  Ref first = raw(wrapper, r);
  return get(first.get(), names().parser);
}

Ref Call::parsed_index(const char* wrapper, Route r) const {
  Ref first = raw(wrapper, r);
  return index(first.get(), names().parser);
}

int Call::success(PyObject* parser_entry) {
  if (parser_entry == nullptr) return -1;
  if (parser_entry == Py_None) return 0;
  return contains(parser_entry, names().success);
}

Ref Call::checked(const char* wrapper, Route r) const {
  Ref entry = parsed(wrapper, r);
  const int ok = success(entry.get());
  return ok < 0 ? nullptr : boolean(ok == 1);
}

Ref Call::formatter() const { return getattr(self, names().formatter); }

Ref Call::exec_format(PyObject* raw_output) const {
  if (raw_output == nullptr) return nullptr;
  Ref f = formatter();
  return call_method(f.get(), names().parser_exec_cmd_format, {raw_output, tool_name()});
}

Ref Call::format(PyObject* data) const {
  if (data == nullptr) return nullptr;
  return format_output(data, tool_name(), nullptr, name());
}

Ref Call::format_with(PyObject* data, const char* formatter_attr) const {
  if (data == nullptr) return nullptr;
  Ref f = formatter();
  Ref tmpl = getattr(f.get(), formatter_attr);
  if (!tmpl) return nullptr;
  return format_output(data, tool_name(), tmpl.get(), name());
}

Ref Call::formatter_call(const char* method_name, std::initializer_list<PyObject*> a,
                         PyObject* kwargs) const {
  Ref f = formatter();
  return call_method(f.get(), method_name, a, kwargs);
}

Ref Call::method(const char* method_name, PyObject* kwargs) const {
  Ref m = getattr(self, method_name);
  return call(m.get(), {}, kwargs);
}

int Call::log_info(PyObject* msg) const {
  Ref logger = getattr(self, names().logger);
  Ref r = call_method(logger.get(), names().info, {msg});
  return r ? 0 : -1;
}

int Call::log_error(PyObject* msg) const {
  Ref logger = getattr(self, names().logger);
  Ref r = call_method(logger.get(), names().error, {msg});
  return r ? 0 : -1;
}

Ref Call::message(const Message& m, std::initializer_list<PyObject*> values) const {
  const char* text = m.text;
  Ref out = str("");
  for (PyObject* value : values) {
    const char* place = std::strstr(text, "{}");
    if (place == nullptr) break;
    Ref piece = Ref::steal(PyUnicode_FromStringAndSize(text, place - text));
    out = concat({out.get(), piece.get(), value});
    if (!out) return nullptr;
    text = place + 2;
  }
  Ref rest = str(text);
  return concat({out.get(), rest.get()});
}

Ref Call::refuse(const char* message) const { return raise_orvex(message); }
Ref Call::refuse(PyObject* message) const { return raise_orvex(message); }

PyObject* orvex_exception() { return fs().fw.orvex_exception.get(); }

Ref raise_orvex(PyObject* message) { return raise_obj(fs().fw.orvex_exception.get(), message); }

Ref raise_orvex(const char* message) {
  Ref m = text(message);
  return raise_orvex(m.get());
}

}  // namespace raid
