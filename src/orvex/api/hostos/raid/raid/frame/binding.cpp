#include "binding.hpp"

#include "frame_state.hpp"
#include "runtime.hpp"

namespace raid {

using namespace py;

namespace {

// A keyword names a parameter as CPython matches one: the same object, or
// a str of the same text (a str subclass's __eq__ is not asked).
bool names_param(PyObject* key, const CParam& p) {
  if (key == p.name.get()) return true;
  return PyUnicode_Check(key) && PyUnicode_Compare(p.name.get(), key) == 0;
}

Ref count_message(const CompiledOp& op, const char* how, Py_ssize_t expected, Py_ssize_t given) {
  return format("%.200s() takes %.8s %zd positional argument%.1s (%zd given)", op.def->name, how,
                expected, expected == 1 ? "" : "s", given);
}

Ref count_error(const CompiledOp& op, const char* how, Py_ssize_t expected, Py_ssize_t given) {
  Ref message = count_message(op, how, expected, given);
  if (message) PyErr_SetObject(PyExc_TypeError, message.get());
  return nullptr;
}

}  // namespace

// self is args[0]; nargs counts it.
int bind(const CompiledOp& op, PyObject* const* args, Py_ssize_t nargs, const Keywords& kw,
         Bound& b) {
  const char* name = op.def->name;
  const Py_ssize_t nkw = kw.size();
  if (op.only_self) {
    if (nkw > 0) {
      PyErr_Format(PyExc_TypeError, "%.200s() takes no keyword arguments", name);
      return -1;
    }
    if (nargs != 1) {
      PyErr_Format(PyExc_TypeError, "%.200s() takes exactly one argument (%zd given)", name, nargs);
      return -1;
    }
  }
  const bool optional = op.npos > op.nrequired;
  if (nargs > op.npos + 1) {
    count_error(op, optional ? "at most" : "exactly", op.npos + 1, nargs);
    return -1;
  }
  const std::size_t n = op.params.size();
  if (n > sizeof(b.small) / sizeof(b.small[0])) {
    b.big.assign(n, nullptr);
    b.values = b.big.data();
  } else {
    for (std::size_t i = 0; i < n; ++i) b.small[i] = nullptr;
  }
  const Py_ssize_t given = nargs > 0 ? nargs - 1 : 0;
  for (Py_ssize_t i = 0; i < given; ++i) b.values[i] = args[i + 1];

  // Keywords: the first misuse is kept and reported after a missing
  // positional argument, which is told first.
  PyObject* twice = nullptr;
  PyObject* unexpected = nullptr;
  if (nkw > 0) {
    if (op.catch_all >= 0) {
      b.extra = Ref::steal(PyDict_New());
      if (!b.extra) return -1;
    }
    const int r = kw.each([&](PyObject* key, PyObject* value) {
      if (PyUnicode_Check(key) && PyUnicode_CompareWithASCIIString(key, "self") == 0) {
        if (twice == nullptr) twice = key;
        return 0;
      }
      for (std::size_t i = 0; i < n; ++i) {
        const CParam& p = op.params[i];
        if (p.kind == Kind::catch_all || !names_param(key, p)) continue;
        if (static_cast<Py_ssize_t>(i) < given) {
          if (twice == nullptr) twice = key;
        } else {
          b.values[i] = value;
        }
        return 0;
      }
      if (!b.extra) {
        if (unexpected == nullptr) unexpected = key;
        return 0;
      }
      return PyDict_SetItem(b.extra.get(), key, value) < 0 ? -1 : 0;
    });
    if (r < 0) return -1;
  }
  bool missing = nargs <= 0;  // not even the object
  for (Py_ssize_t i = given; i < op.npos; ++i) {
    missing =
        missing || (b.values[i] == nullptr && !op.params[static_cast<std::size_t>(i)].fallback);
  }
  if (missing) {
    // The same few messages again and again: each made once.
    Ref& message = op.too_few[static_cast<std::size_t>(nargs)];
    if (!message) {
      message = count_message(op, optional ? "at least" : "exactly", op.nrequired + 1, nargs);
      if (!message) return -1;
    }
    PyErr_SetObject(PyExc_TypeError, message.get());
    return -1;
  }
  if (twice != nullptr) {
    PyErr_Format(PyExc_TypeError, "%.200s() got multiple values for keyword argument '%U'", name,
                 twice);
    return -1;
  }
  if (unexpected != nullptr) {
    PyErr_Format(PyExc_TypeError, "%.200s() got an unexpected keyword argument '%U'", name,
                 unexpected);
    return -1;
  }
  if (!PyObject_TypeCheck(args[0], fs().raid_type)) {
    Ref tname = getattr(reinterpret_cast<PyObject*>(Py_TYPE(args[0])), names().name);
    if (tname) {
      PyErr_Format(PyExc_TypeError,
                   "descriptor '%s' for 'Raid' objects doesn't apply to a '%U' object", name,
                   tname.get());
    }
    return -1;
  }
  for (std::size_t i = 0; i < n; ++i) {
    const CParam& p = op.params[i];
    if (b.values[i] != nullptr) continue;
    if (p.kind == Kind::catch_all) {
      if (!b.extra) {
        b.extra = Ref::steal(PyDict_New());
        if (!b.extra) return -1;
      }
      b.values[i] = b.extra.get();
    } else if (p.fallback) {
      b.values[i] = p.fallback.get();
    } else {
      Ref& message = p.missing;
      if (!message) {
        message = format("%s() needs keyword-only argument %U", name, p.name.get());
        if (!message) return -1;
      }
      PyErr_SetObject(PyExc_TypeError, message.get());
      return -1;
    }
  }

  if (!op.builds_params) return 0;  // no params at all
  if (op.def->build != nullptr) {
    if (!b.extra) {
      b.extra = Ref::steal(PyDict_New());
      if (!b.extra) return -1;
    }
    b.params = op.def->build(b.values, b.extra.get());
    return b.params ? 0 : -1;
  }
  b.params = Ref::steal(PyDict_New());
  if (!b.params) return -1;
  for (std::size_t i = 0; i < n; ++i) {
    const CParam& p = op.params[i];
    if (p.key && PyDict_SetItem(b.params.get(), p.key.get(), b.values[i]) < 0) return -1;
  }
  if (b.extra && PyDict_Size(b.extra.get()) > 0 &&
      PyDict_Update(b.params.get(), b.extra.get()) < 0) {
    return -1;
  }
  return 0;
}

}  // namespace raid
