// The one table lookup of the module: the lookup edit and shape step of the
// rows (forms.cpp, on the compiled tables) and the bodies (on their own
// tables of texts) all read a table through it.
#pragma once

#include <initializer_list>

#include "frame.hpp"
#include "py.hpp"

namespace raid {

namespace lookup_detail {
inline Ref as_ref(const Ref& r) { return r; }
inline Ref as_ref(const char* t) { return py::text(t); }
inline PyObject* as_key(const Ref& r) { return r.get(); }
inline const char* as_key(const char* t) { return t; }
}  // namespace lookup_detail

// table[value], the first entry whose `from` equals value; for a value the
// table lacks, as `missing` says: keep gives the value itself, none gives
// None, key_error raises KeyError(value), fallback gives `fallback`.
// *listed, when asked for, tells whether the table listed the value.
// Entries have `from` and `to`, each a text or a Ref.
template <class Table>
Ref lookup(PyObject* value, const Table& table, Missing missing, PyObject* fallback = nullptr,
           bool* listed = nullptr) {
  if (value == nullptr) return nullptr;
  if (listed != nullptr) *listed = false;
  for (const auto& entry : table) {
    const int eq = py::equal(value, lookup_detail::as_key(entry.from));
    if (eq < 0) return nullptr;
    if (eq == 1) {
      if (listed != nullptr) *listed = true;
      return lookup_detail::as_ref(entry.to);
    }
  }
  switch (missing) {
    case Missing::keep:
      return Ref::borrow(value);
    case Missing::none:
      return py::none();
    case Missing::key_error: {
      Ref args = py::tuple({value});
      if (args) PyErr_SetObject(PyExc_KeyError, args.get());
      return nullptr;
    }
    case Missing::fallback:
      return Ref::borrow(fallback);
  }
  return nullptr;
}

// The same on a body's own table: lookup(value, {{"D", "Direct IO"}}, Missing::none).
inline Ref lookup(PyObject* value, std::initializer_list<Pair> table, Missing missing,
                  const char* fallback = nullptr, bool* listed = nullptr) {
  Ref alternative = fallback != nullptr ? py::text(fallback) : Ref{};
  if (fallback != nullptr && !alternative) return nullptr;
  return lookup<std::initializer_list<Pair>>(value, table, missing, alternative.get(), listed);
}

}  // namespace raid
