// Python helpers shared by the frame, the normalisers and the operation
// bodies' toolkit: walks over iterables and mappings, and regular
// expressions compiled once per interpreter.  Same error protocol as py.hpp.
#pragma once

#include <Python.h>

#include <cstdint>

#include "py.hpp"

namespace raid::py {

// Calls f(element) for every element of an iterable, in order.  f returns
// 0 to go on, 1 to stop early, -1 on error.  Returns -1 on error, 1 when f
// stopped early, else 0.
template <class F>
int each(PyObject* iterable, F&& f) {
  if (iterable == nullptr) return -1;
  Ref it = Ref::steal(PyObject_GetIter(iterable));
  if (!it) return -1;
  while (Ref element = Ref::steal(PyIter_Next(it.get()))) {
    const int r = f(element.get());
    if (r != 0) return r;
  }
  return PyErr_Occurred() != nullptr ? -1 : 0;
}

// Calls f(key, value) for every entry of mapping.items(), in order (same
// protocol as each).
template <class F>
int each_item(PyObject* mapping, F&& f) {
  if (mapping != nullptr && PyDict_CheckExact(mapping)) {
    // A plain dict is walked in place; a change of its size stops the walk
    // as it stops iterating its items().
    const Py_ssize_t size = PyDict_Size(mapping);
    Py_ssize_t pos = 0;
    PyObject* k = nullptr;
    PyObject* v = nullptr;
    while (PyDict_Next(mapping, &pos, &k, &v)) {
      Ref key = Ref::borrow(k);
      Ref value = Ref::borrow(v);
      const int r = f(key.get(), value.get());
      if (r != 0) return r;
      if (PyDict_Size(mapping) != size) {
        PyErr_SetString(PyExc_RuntimeError, "dictionary changed size during iteration");
        return -1;
      }
    }
    return 0;
  }
  Ref items = call_method(mapping, "items");
  return each(items.get(), [&](PyObject* pair) {
    Ref key = item(pair, 0);
    Ref value = item(pair, 1);
    if (!key || !value) return -1;
    return f(key.get(), value.get());
  });
}

// A regular expression compiled once per interpreter; re.<fn>(pattern,
// text) as pattern.<fn>(text): fn is "match" or "search".  The compiled
// pattern is owned by the module state (py::Kept::patterns); the instance
// remembers it with the generation of the state it belongs to, so a later
// interpreter compiles its own.
class Regex {
 public:
  explicit constexpr Regex(const char* pattern) : pattern_(pattern) {}
  Ref match(PyObject* text) const { return run("match", text); }
  Ref search(PyObject* text) const { return run("search", text); }

 private:
  Ref run(const char* fn, PyObject* text) const;
  const char* pattern_;
  mutable PyObject* compiled_ = nullptr;  // borrowed from the state of generation_
  mutable std::uint64_t generation_ = 0;
};

}  // namespace raid::py
