// Argument binding: a call's arguments against an operation's declared
// parameters, with CPython's own messages for a misuse, and its params.
#pragma once

#include <Python.h>

#include <vector>

#include "compiled.hpp"

namespace raid {

// Keyword arguments as they arrive: names and values (fast calls) or a dict.
struct Keywords {
  PyObject* names = nullptr;  // tuple (fast calls)
  PyObject* const* values = nullptr;
  PyObject* dict = nullptr;  // (tuple calls)

  Py_ssize_t size() const {
    if (names != nullptr) return PyTuple_Size(names);
    return dict != nullptr ? PyDict_Size(dict) : 0;
  }
  // f(key, value) for each; stops at f's first non-zero result.
  template <class F>
  int each(F&& f) const {
    if (names != nullptr) {
      const Py_ssize_t n = PyTuple_Size(names);
      for (Py_ssize_t i = 0; i < n; ++i) {
        const int r = f(PyTuple_GetItem(names, i), values[i]);
        if (r != 0) return r;
      }
    } else if (dict != nullptr) {
      Py_ssize_t pos = 0;
      PyObject* k = nullptr;
      PyObject* v = nullptr;
      while (PyDict_Next(dict, &pos, &k, &v)) {
        const int r = f(k, v);
        if (r != 0) return r;
      }
    }
    return 0;
  }
};

// The bound arguments of one call: the declared parameters in order (the
// catch-all's slot holds the extra keywords), and params.
struct Bound {
  PyObject* small[12] = {};
  std::vector<PyObject*> big;
  PyObject** values = small;
  Ref extra;
  Ref params;
  Ref hold;  // keeps the values of a tuple call
};

// self is args[0]; nargs counts it.  -1 on error (TypeError for a misuse).
int bind(const CompiledOp& op, PyObject* const* args, Py_ssize_t nargs, const Keywords& kw,
         Bound& b);

}  // namespace raid
