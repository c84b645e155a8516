// Small building blocks shared by the operation bodies.
#pragma once

#include <initializer_list>
#include <utility>

#include "frame.hpp"

namespace raid::kit {

using py::Ref;

// Calls f(element) for every element of an iterable, in order.
template <class F>
void each(PyObject* iterable, F&& f) {
  Ref it = Ref::steal(PyObject_GetIter(iterable));
  while (Ref element = Ref::steal_or_null(PyIter_Next(it.get()))) f(element.get());
  if (PyErr_Occurred()) py::fail();
}

// Calls f(key, value) for every entry of mapping.items(), in order.
template <class F>
void each_item(PyObject* mapping, F&& f) {
  Ref items = py::call_method(mapping, "items");
  each(items.get(), [&](PyObject* pair) {
    Ref key = py::item(pair, 0);
    Ref value = py::item(pair, 1);
    f(key.get(), value.get());
  });
}

// a == b with Python's equality.
inline bool same(PyObject* a, PyObject* b) {
  int r = PyObject_RichCompareBool(a, b, Py_EQ);
  if (r < 0) py::fail();
  return r == 1;
}

// The texts joined, in order.
inline Ref concat(std::initializer_list<PyObject*> parts) {
  Ref out = py::str("");
  for (PyObject* part : parts) out = Ref::steal(PyUnicode_Concat(out.get(), part));
  return out;
}

// re.<fn>(pattern, text)
inline Ref re_call(const char* fn, const char* pattern, PyObject* text) {
  Ref re = Ref::steal(PyImport_ImportModule("re"));
  Ref pat = py::str(pattern);
  return py::call_method(re.get(), fn, {pat.get(), text});
}

// A translation table row: caller's value -> value sent to the tool.
struct Pair {
  const char* from;
  const char* to;
};

// table[value], or None for a value outside the table.
inline Ref lookup(PyObject* value, std::initializer_list<Pair> table) {
  for (const Pair& p : table) {
    if (py::equals(value, p.from)) return py::str(p.to);
  }
  return py::none();
}

// params[key] = table[params[key]] when listed; other values stay as given.
inline void translate(const Call& c, const char* key, std::initializer_list<Pair> table) {
  Ref v = c.p_get(key);
  for (const Pair& p : table) {
    if (py::equals(v.get(), p.from)) {
      c.p_set(key, p.to);
      return;
    }
  }
}

// The checked-action test on one wrapper's answer.
inline Ref checked_dispatch(const Call& c, const char* wrapper, Route r = Route::self) {
  Ref p = c.parsed(wrapper, r);
  return py::boolean(Call::success(p.get()));
}

// A storcli64 property/value table flattened into {Ctrl_Prop: Value}.
inline Ref flatten_ctrl_props(PyObject* parser) {
  Ref rows = py::index(parser, "Controller Properties");
  Ref flat = py::dict();
  each(rows.get(), [&](PyObject* row) {
    Ref prop = py::index(row, "Ctrl_Prop");
    Ref value = py::index(row, "Value");
    py::set_item(flat.get(), prop.get(), value.get());
  });
  return flat;
}

// str(int(days) * 24): a period in days as the tool's hours.
inline Ref days_as_hours(PyObject* days) {
  Ref whole = Ref::steal(PyNumber_Long(days));
  Ref factor = py::integer(24);
  Ref hours = Ref::steal(PyNumber_Multiply(whole.get(), factor.get()));
  return py::to_str(hours.get());
}

// "c{adapter}:e{eid}:s{sid}" from params; a missing entry prints as None.
inline Ref drive_id(const Call& c) {
  Ref a = c.p_get("adapter_id");
  Ref e = c.p_get("eid");
  Ref s = c.p_get("sid");
  return py::format("c%S:e%S:s%S", a.get(), e.get(), s.get());
}

// datetime.strptime(text, in_form) + timedelta(**{unit: amount}), formatted
// with out_form.
inline Ref shift_time(PyObject* text, const char* in_form, const char* unit, long amount,
                      const char* out_form) {
  Ref datetime = Ref::steal(PyImport_ImportModule("datetime"));
  Ref datetime_type = py::getattr(datetime.get(), "datetime");
  Ref timedelta_type = py::getattr(datetime.get(), "timedelta");
  Ref in = py::str(in_form);
  Ref when = py::call_method(datetime_type.get(), "strptime", {text, in.get()});
  Ref n = py::integer(amount);
  Ref span_kwargs = py::dict({{unit, n.get()}});
  Ref span = py::call(timedelta_type.get(), {}, span_kwargs.get());
  Ref later = Ref::steal(PyNumber_Add(when.get(), span.get()));
  Ref out = py::str(out_form);
  return py::call_method(later.get(), "strftime", {out.get()});
}

// storcli64 boot-drive setting (physical or virtual drive): "primary" and
// "secondary" become "on" under `bootdrive` and `status`; the boot order by
// firmware is asked for first, and a controller that refuses it is only
// logged at error level.
inline Ref boot_drive_storcli64(const Call& c, const char* wrapper) {
  translate(c, "state", {{"primary", "on"}, {"secondary", "on"}});
  Ref state = c.p_pop("state");
  c.p_set("bootdrive", state.get());
  Ref status = c.p_get("bootdrive");
  c.p_set("status", status.get());
  try {
    c.dispatch("ctr_set_device_order_by_firmware");
  } catch (const py::PyError&) {
    if (!PyErr_ExceptionMatches(PyExc_Exception)) throw;
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    PyErr_NormalizeException(&type, &value, &trace);
    Ref t = Ref::steal_or_null(type);
    Ref v = Ref::steal_or_null(value);
    Ref tb = Ref::steal_or_null(trace);
    Ref text = py::to_str(v ? v.get() : Py_None);
    Ref head = py::str("不支持order_by_firmware功能,");
    c.log_error(concat({head.get(), text.get()}).get());
  }
  return checked_dispatch(c, wrapper);
}

}  // namespace raid::kit
