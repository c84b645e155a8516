#include "toolkit.hpp"

#include "runtime.hpp"

namespace raid::kit {

using namespace py;

int same(PyObject* a, PyObject* b) {
  if (a == nullptr || b == nullptr) return -1;
  return PyObject_RichCompareBool(a, b, Py_EQ);
}

Ref Regex::run(const char* fn, PyObject* text) const {
  if (text == nullptr) return nullptr;
  if (compiled_ == nullptr) {
    Ref re = Ref::steal(PyImport_ImportModule("re"));
    Ref pattern = str(pattern_);
    Ref compiled = call_method(re.get(), "compile", {pattern.get()});
    if (!compiled) return nullptr;
    compiled_ = compiled.release();  // kept for the process
  }
  return call_method(compiled_, fn, {text});
}

Ref lookup(PyObject* value, std::initializer_list<Pair> table) {
  if (value == nullptr) return nullptr;
  for (const Pair& p : table) {
    const int eq = equals(value, p.from);
    if (eq < 0) return nullptr;
    if (eq == 1) return str(p.to);
  }
  return none();
}

int translate(const Call& c, const char* key, std::initializer_list<Pair> table) {
  Ref v = c.p_get(key);
  if (!v) return -1;
  for (const Pair& p : table) {
    const int eq = equals(v.get(), p.from);
    if (eq < 0) return -1;
    if (eq == 1) return c.p_set(key, p.to);
  }
  return 0;
}

Ref flatten_ctrl_props(PyObject* parser) {
  Ref rows = index(parser, "Controller Properties");
  Ref flat = dict();
  if (!rows || !flat) return nullptr;
  Ref prop_key = str("Ctrl_Prop");
  Ref value_key = str("Value");
  const int r = each(rows.get(), [&](PyObject* row) {
    Ref prop = index(row, prop_key.get());
    Ref value = index(row, value_key.get());
    return set_item(flat.get(), prop.get(), value.get()) < 0 ? -1 : 0;
  });
  return r < 0 ? nullptr : flat;
}

Ref days_as_hours(PyObject* days) {
  if (days == nullptr) return nullptr;
  Ref whole = Ref::steal(PyNumber_Long(days));
  Ref factor = integer(24);
  if (!whole || !factor) return nullptr;
  Ref hours = Ref::steal(PyNumber_Multiply(whole.get(), factor.get()));
  return to_str(hours.get());
}

Ref shift_time(PyObject* text, const char* in_form, const char* unit, long amount,
               const char* out_form) {
  if (text == nullptr) return nullptr;
  Ref datetime = Ref::steal(PyImport_ImportModule("datetime"));
  Ref datetime_type = getattr(datetime.get(), "datetime");
  Ref timedelta_type = getattr(datetime.get(), "timedelta");
  Ref in = str(in_form);
  Ref when = call_method(datetime_type.get(), "strptime", {text, in.get()});
  Ref n = integer(amount);
  if (!when || !n) return nullptr;
  Ref span_kwargs = dict({{unit, n.get()}});
  if (!span_kwargs || !timedelta_type) return nullptr;
  Ref span = call(timedelta_type.get(), {}, span_kwargs.get());
  if (!span) return nullptr;
  Ref later = Ref::steal(PyNumber_Add(when.get(), span.get()));
  Ref out = str(out_form);
  return call_method(later.get(), "strftime", {out.get()});
}

Ref find_task(PyObject* tasks, PyObject* vid, const char* id_key, const char* operation_key,
              const Regex& operation) {
  Ref vid_text = to_str(vid);
  const int any = truthy(tasks);
  if (!vid_text || any < 0) return nullptr;
  Ref found = none();
  if (any == 0) return found;
  const int r = each(tasks, [&](PyObject* task) {
    Ref id = get(task, id_key);
    if (!id) return -1;
    if (id.get() == Py_None) return 0;
    Ref id_text = to_str(id.get());
    const int this_one = same(id_text.get(), vid_text.get());
    if (this_one <= 0) return this_one;
    Ref op = get(task, operation_key);
    Ref op_text = to_str(op.get());
    Ref m = operation.search(op_text.get());
    if (!m) return -1;
    if (m.get() == Py_None) return 0;
    found = Ref::borrow(task);
    return 1;
  });
  return r < 0 ? nullptr : found;
}

}  // namespace raid::kit
