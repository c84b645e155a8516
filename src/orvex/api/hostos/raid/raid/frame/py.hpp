// Owned references and thin, throwing wrappers over the CPython C API.
//
// Every function here either returns a valid owned reference or throws
// PyError with the Python exception already set.  Entry points from Python
// (method trampolines, tp_call slots, getters) catch PyError and return NULL,
// so no C++ exception ever crosses into the interpreter.
#pragma once

#include <Python.h>

#include <cstddef>
#include <initializer_list>
#include <utility>

namespace raid::py {

// Thrown when a Python exception is set; carries nothing else.
struct PyError {};

[[noreturn]] inline void fail() { throw PyError{}; }

// Owned reference.  Moves transfer ownership; copies add a reference.
class Ref {
 public:
  Ref() noexcept = default;
  Ref(std::nullptr_t) noexcept {}
  Ref(const Ref& o) noexcept : p_(o.p_) { Py_XINCREF(p_); }
  Ref(Ref&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
  ~Ref() { Py_XDECREF(p_); }
  Ref& operator=(Ref o) noexcept {
    std::swap(p_, o.p_);
    return *this;
  }

  // Takes over a new reference; throws if it is NULL (error already set).
  static Ref steal(PyObject* p) {
    if (p == nullptr) fail();
    return Ref(p, 0);
  }
  // Takes over a new reference that may legitimately be NULL.
  static Ref steal_or_null(PyObject* p) noexcept { return Ref(p, 0); }
  // Adds a reference to a borrowed pointer (NULL allowed).
  static Ref borrow(PyObject* p) noexcept {
    Py_XINCREF(p);
    return Ref(p, 0);
  }

  PyObject* get() const noexcept { return p_; }
  PyObject* release() noexcept {
    PyObject* p = p_;
    p_ = nullptr;
    return p;
  }
  explicit operator bool() const noexcept { return p_ != nullptr; }

 private:
  Ref(PyObject* p, int) noexcept : p_(p) {}
  PyObject* p_ = nullptr;
};

// Runs f() and converts a PyError into a NULL return for the interpreter.
template <class F>
PyObject* guard(F&& f) noexcept {
  try {
    return f().release();
  } catch (const PyError&) {
    return nullptr;
  } catch (...) {
    PyErr_SetString(PyExc_SystemError, "unexpected C++ exception in raid");
    return nullptr;
  }
}

inline Ref none() { return Ref::borrow(Py_None); }
inline Ref boolean(bool b) { return Ref::borrow(b ? Py_True : Py_False); }
Ref str(const char* utf8);
Ref intern(const char* utf8);  // interned, lives for the process
Ref integer(long v);

Ref getattr(PyObject* o, const char* name);
Ref getattr(PyObject* o, PyObject* name);
void setattr(PyObject* o, const char* name, PyObject* v);

// o[key], raising on a missing key or index.
Ref index(PyObject* o, PyObject* key);
Ref index(PyObject* o, const char* key);
Ref item(PyObject* seq, Py_ssize_t i);  // sequence element, negative allowed
// Dictionary-style get: the value, or None when absent.  Works for any
// object with a get method; dicts take the fast path.
Ref get(PyObject* o, PyObject* key);
Ref get(PyObject* o, const char* key);

Ref call(PyObject* f);
Ref call(PyObject* f, std::initializer_list<PyObject*> args, PyObject* kwargs = nullptr);
Ref call_method(PyObject* o, const char* name, std::initializer_list<PyObject*> args = {},
                PyObject* kwargs = nullptr);

// Keyword dictionary helper: kw({{"raid_tool", obj}, ...})
struct KV {
  const char* key;
  PyObject* value;
};
Ref dict(std::initializer_list<KV> items = {});
Ref tuple(std::initializer_list<PyObject*> items);
Ref list();
void append(PyObject* list, PyObject* v);
void set_item(PyObject* d, PyObject* key, PyObject* v);
void set_item(PyObject* d, const char* key, PyObject* v);
// dict.update(other) with the full semantics of the Python method.
void update(PyObject* d, PyObject* other);

bool truthy(PyObject* o);
bool equals(PyObject* a, const char* text);  // a == text (str comparison)
bool contains(PyObject* container, PyObject* item);
Ref to_str(PyObject* o);           // str(o)
Ref upper(PyObject* o);            // o.upper()
Ref lower(PyObject* o);            // o.lower()
Ref format(const char* fmt, ...);  // PyUnicode_FromFormat

// Raise helpers (they always throw).
[[noreturn]] void raise(PyObject* type, const char* msg);
[[noreturn]] void raise_obj(PyObject* type, PyObject* msg);

}  // namespace raid::py
