// Owned references and thin wrappers over the CPython C API.
//
// Errors are Python errors and travel as return values, never as C++
// exceptions:
//   - a function returning Ref returns an empty Ref when it fails, with the
//     interpreter's error indicator set;
//   - a function returning int returns -1 when it fails (error set), else 0,
//     or 0/1 for a predicate;
//   - every function here passes a NULL input straight through (empty Ref or
//     -1, nothing called): the step that produced the NULL has set the error.
// So a straight run of steps needs one test at its end; test before
// branching on a value (a predicate's -1 is not "false").
#pragma once

#include <Python.h>

#include <cstddef>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace raid::py {

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

  // Takes over a new reference (NULL allowed: the error is already set).
  static Ref steal(PyObject* p) noexcept { return Ref(p, 0); }
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

// The one place an error is caught: owns the fetched (normalised) error
// until it is restored or dropped.
class Fetched {
 public:
  Fetched() noexcept;  // takes the error currently set (if any)
  Fetched(const Fetched&) = delete;
  Fetched& operator=(const Fetched&) = delete;
  ~Fetched();                                 // drops it
  bool matches(PyObject* type) const;         // isinstance of type (or a tuple of types)
  PyObject* value() const { return value_; }  // the exception object (borrowed)
  std::nullptr_t restore();                   // sets it again; returns nullptr for `return`

 private:
  PyObject* type_ = nullptr;
  PyObject* value_ = nullptr;
  PyObject* trace_ = nullptr;
};

inline Ref none() { return Ref::borrow(Py_None); }
inline Ref boolean(bool b) { return Ref::borrow(b ? Py_True : Py_False); }
Ref str(const char* utf8);
Ref intern(const char* utf8);  // interned
// The str of a text the module's sources name (a literal, a row's text):
// made and interned once per interpreter, then the same object on every
// call.  Kept by address with a copy of the text, so a passing buffer that
// reuses an address gets its own text, never a kept one.
Ref text(const char* utf8);
Ref integer(long v);
// The UTF-8 text of an exact str, straight from the string's own buffer,
// where the interpreter hands it out (3.10+); false otherwise (no error set).
bool text_view(PyObject* o, std::string_view& out);

Ref getattr(PyObject* o, const char* name);
Ref getattr(PyObject* o, PyObject* name);
int setattr(PyObject* o, const char* name, PyObject* v);
int setattr(PyObject* o, PyObject* name, PyObject* v);

// o[key], failing with the lookup error on a missing key or index.
Ref index(PyObject* o, PyObject* key);
Ref index(PyObject* o, const char* key);
Ref item(PyObject* seq, Py_ssize_t i);  // sequence element, negative allowed
// Dictionary-style get: the value, or None when absent.  Works for any
// object with a get method; dicts take the fast path.
Ref get(PyObject* o, PyObject* key);
Ref get(PyObject* o, const char* key);

// Calls build no argument tuple where the limited API of the running
// interpreter allows: vectorcall from 3.12, before that the variadic
// calls (which the interpreter makes without a tuple); a call with keyword
// arguments before 3.12 takes a tuple and a dict.
Ref call(PyObject* f);
Ref call(PyObject* f, std::initializer_list<PyObject*> args, PyObject* kwargs = nullptr);
Ref call_method(PyObject* o, PyObject* name, std::initializer_list<PyObject*> args = {},
                PyObject* kwargs = nullptr);
Ref call_method(PyObject* o, const char* name, std::initializer_list<PyObject*> args = {},
                PyObject* kwargs = nullptr);

struct KV {
  const char* key;
  PyObject* value;
};
Ref dict(std::initializer_list<KV> items = {});  // {key: value, ...} in order
Ref tuple(std::initializer_list<PyObject*> items);
Ref list();
int append(PyObject* list, PyObject* v);
int set_item(PyObject* d, PyObject* key, PyObject* v);
int set_item(PyObject* d, const char* key, PyObject* v);
int update(PyObject* d, PyObject* other);  // dict.update(other), full semantics

int truthy(PyObject* o);  // bool(o)
// a == b as Python compares them; 1 or 0, -1 on error (a NULL input
// included): two exact strs by their text, anything else through __eq__.
inline int equal(PyObject* a, PyObject* b) {
  if (a == nullptr || b == nullptr) return -1;
  if (PyUnicode_CheckExact(a) && PyUnicode_CheckExact(b)) {
    return PyUnicode_Compare(a, b) == 0 ? 1 : 0;
  }
  return PyObject_RichCompareBool(a, b, Py_EQ);
}
int equal(PyObject* a, const char* text);  // a == text
int contains(PyObject* container, PyObject* item);
Ref to_str(PyObject* o);                             // str(o)
Ref upper(PyObject* o);                              // o.upper()
Ref lower(PyObject* o);                              // o.lower()
Ref concat(std::initializer_list<PyObject*> texts);  // texts joined; a non-str fails (TypeError)
Ref format(const char* fmt, ...);                    // PyUnicode_FromFormat

// Set an error and return an empty Ref: `return raise(PyExc_TypeError, "...");`
Ref raise(PyObject* type, const char* msg);
// Builds type(msg) and raises that instance (framework exceptions whose
// constructor takes exactly one message argument are honoured).
Ref raise_obj(PyObject* type, PyObject* msg);

// Recursion guard for walks over nested answers: honours the interpreter's
// recursion limit and raises RecursionError past it, as a Python-level walk
// would; also stops well before the C stack runs out.
class Depth {
 public:
  explicit Depth(const char* where) noexcept;  // sets RecursionError when too deep
  ~Depth();
  Depth(const Depth&) = delete;
  Depth& operator=(const Depth&) = delete;
  bool ok() const noexcept { return ok_; }

 private:
  bool ok_;
};

}  // namespace raid::py
