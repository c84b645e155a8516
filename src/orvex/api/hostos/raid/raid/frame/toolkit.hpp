// Small building blocks shared by the operation bodies.  Like everything in
// the frame they return an empty Ref / -1 with the Python error set, and
// pass a NULL input through.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "frame.hpp"

namespace raid::kit {

using py::Ref;

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
  Ref items = py::call_method(mapping, "items");
  return each(items.get(), [&](PyObject* pair) {
    Ref key = py::item(pair, 0);
    Ref value = py::item(pair, 1);
    if (!key || !value) return -1;
    return f(key.get(), value.get());
  });
}

// a == b with Python's equality (-1 on error).
int same(PyObject* a, PyObject* b);

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

// re.match("^" + prefix + ".*" + suffix + "$", text) as a yes or no, with
// the same reading of "." (no newline) and "$" (the end, or before a final
// newline); `pattern` is that expression, used for what is not an exact str.
class Framed {
 public:
  constexpr Framed(const char* prefix, const char* suffix, const char* pattern)
      : prefix_(prefix), suffix_(suffix), regex_(pattern) {}
  int test(PyObject* text) const;  // 1 or 0; -1 on error

 private:
  std::string_view prefix_;
  std::string_view suffix_;
  Regex regex_;
};

// text.split(sep)[0].strip(): the part before the first sep, without the
// whitespace around it.
Ref head_before(PyObject* text, char sep);

// table[value], or None for a value outside the table.
Ref lookup(PyObject* value, std::initializer_list<Pair> table);

// params[key] = table[params[key]] when listed; other values stay as given.
int translate(const Call& c, const char* key, std::initializer_list<Pair> table);

// A storcli64 property/value table flattened into {Ctrl_Prop: Value}.
Ref flatten_ctrl_props(PyObject* parser);

// str(int(days) * 24): a period in days as the tool's hours.
Ref days_as_hours(PyObject* days);

// datetime.strptime(text, in_form) + timedelta(**{unit: amount}),
// formatted with out_form.
Ref shift_time(PyObject* text, const char* in_form, const char* unit, long amount,
               const char* out_form);

// The first entry of a task list whose id_key reads as vid (both as text)
// and in whose operation_key text the pattern finds a match; None when no
// entry does or the list is empty or None.  Entries without an id are
// skipped.
Ref find_task(PyObject* tasks, PyObject* vid, const char* id_key, const char* operation_key,
              const Regex& operation);

}  // namespace raid::kit
