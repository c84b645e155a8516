#include "py.hpp"

#include <cstdarg>

namespace raid::py {

Ref str(const char* utf8) { return Ref::steal(PyUnicode_FromString(utf8)); }

Ref intern(const char* utf8) { return Ref::steal(PyUnicode_InternFromString(utf8)); }

Ref integer(long v) { return Ref::steal(PyLong_FromLong(v)); }

Ref getattr(PyObject* o, const char* name) { return Ref::steal(PyObject_GetAttrString(o, name)); }

Ref getattr(PyObject* o, PyObject* name) { return Ref::steal(PyObject_GetAttr(o, name)); }

void setattr(PyObject* o, const char* name, PyObject* v) {
  if (PyObject_SetAttrString(o, name, v) < 0) fail();
}

Ref index(PyObject* o, PyObject* key) { return Ref::steal(PyObject_GetItem(o, key)); }

Ref index(PyObject* o, const char* key) {
  Ref k = str(key);
  return index(o, k.get());
}

Ref item(PyObject* seq, Py_ssize_t i) {
  if (PyList_CheckExact(seq) && i >= 0 && i < PyList_Size(seq)) {
    return Ref::borrow(PyList_GetItem(seq, i));
  }
  Ref k = integer(static_cast<long>(i));
  return index(seq, k.get());
}

Ref get(PyObject* o, PyObject* key) {
  if (PyDict_CheckExact(o)) {
    PyObject* v = PyDict_GetItemWithError(o, key);
    if (v != nullptr) return Ref::borrow(v);
    if (PyErr_Occurred()) fail();
    return none();
  }
  return call_method(o, "get", {key});
}

Ref get(PyObject* o, const char* key) {
  Ref k = str(key);
  return get(o, k.get());
}

Ref call(PyObject* f) { return Ref::steal(PyObject_CallObject(f, nullptr)); }

Ref call(PyObject* f, std::initializer_list<PyObject*> args, PyObject* kwargs) {
  Ref t = tuple(args);
  return Ref::steal(PyObject_Call(f, t.get(), kwargs));
}

Ref call_method(PyObject* o, const char* name, std::initializer_list<PyObject*> args,
                PyObject* kwargs) {
  Ref m = getattr(o, name);
  return call(m.get(), args, kwargs);
}

Ref dict(std::initializer_list<KV> items) {
  Ref d = Ref::steal(PyDict_New());
  for (const KV& kv : items) set_item(d.get(), kv.key, kv.value);
  return d;
}

Ref tuple(std::initializer_list<PyObject*> items) {
  Ref t = Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(items.size())));
  Py_ssize_t i = 0;
  for (PyObject* o : items) {
    Py_INCREF(o);
    PyTuple_SetItem(t.get(), i++, o);  // steals; cannot fail on a fresh tuple
  }
  return t;
}

Ref list() { return Ref::steal(PyList_New(0)); }

void append(PyObject* l, PyObject* v) {
  if (PyList_Append(l, v) < 0) fail();
}

void set_item(PyObject* d, PyObject* key, PyObject* v) {
  if (PyDict_CheckExact(d)) {
    if (PyDict_SetItem(d, key, v) < 0) fail();
  } else if (PyObject_SetItem(d, key, v) < 0) {
    fail();
  }
}

void set_item(PyObject* d, const char* key, PyObject* v) {
  Ref k = str(key);
  set_item(d, k.get(), v);
}

void update(PyObject* d, PyObject* other) {
  if (!PyDict_CheckExact(d)) {
    call_method(d, "update", {other});
    return;
  }
  if (PyDict_Check(other)) {
    if (PyDict_Update(d, other) < 0) fail();
    return;
  }
  int has_keys = PyObject_HasAttrString(other, "keys");
  if (has_keys) {
    if (PyDict_Merge(d, other, 1) < 0) fail();
  } else if (PyDict_MergeFromSeq2(d, other, 1) < 0) {
    fail();
  }
}

bool truthy(PyObject* o) {
  int r = PyObject_IsTrue(o);
  if (r < 0) fail();
  return r == 1;
}

bool equals(PyObject* a, const char* text) {
  if (PyUnicode_Check(a)) return PyUnicode_CompareWithASCIIString(a, text) == 0;
  Ref t = str(text);
  int r = PyObject_RichCompareBool(a, t.get(), Py_EQ);
  if (r < 0) fail();
  return r == 1;
}

bool contains(PyObject* container, PyObject* item) {
  int r = PySequence_Contains(container, item);
  if (r < 0) fail();
  return r == 1;
}

Ref to_str(PyObject* o) { return Ref::steal(PyObject_Str(o)); }

Ref upper(PyObject* o) { return call_method(o, "upper"); }

Ref lower(PyObject* o) { return call_method(o, "lower"); }

Ref format(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  PyObject* r = PyUnicode_FromFormatV(fmt, ap);
  va_end(ap);
  return Ref::steal(r);
}

void raise(PyObject* type, const char* msg) {
  Ref m = str(msg);
  raise_obj(type, m.get());
}

void raise_obj(PyObject* type, PyObject* msg) {
  // Build the instance ourselves so that framework exceptions whose
  // constructor takes exactly one message argument are honoured.
  Ref exc = call(type, {msg});
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exc.get())), exc.get());
  fail();
}

}  // namespace raid::py
