#include "py.hpp"

#include <dlfcn.h>

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <utility>

#include "runtime.hpp"

namespace raid::py {

// ---------------------------------------------------------------------------
// What the running interpreter offers beyond the 3.7 limited API, looked up
// once at module init: functions that joined the limited API later, each
// used only from the version whose limited API has it.

Runtime g_runtime;

namespace {

// The address of a function the interpreter exports, or nullptr.  Looked up
// by name in the process's global scope (RTLD_DEFAULT): that is where the
// interpreter's functions are, since the module's own references to them
// were bound there when it was loaded.  No ctypes: importing it at init
// costs time, and an interpreter may be built without it.
//
// dlsym is bound to the version glibc 2.17 has (GLIBC_2.2.5 on x86-64,
// GLIBC_2.17 on aarch64): glibc 2.34 moved it into libc under a new version,
// and a reference to that one would keep the module off older hosts (the
// wheel is manylinux2014).  Newer glibc still exports the old version; on
// older ones libdl does, which every Python process has loaded (the
// interpreter loads extension modules through it).
#if defined(__GLIBC__) && defined(__x86_64__)
__asm__(".symver dlsym, dlsym@GLIBC_2.2.5");
#elif defined(__GLIBC__) && defined(__aarch64__)
__asm__(".symver dlsym, dlsym@GLIBC_2.17");
#endif

void* exported(const char* name) { return dlsym(RTLD_DEFAULT, name); }

}  // namespace

int init_runtime() {
  Runtime rt;
  // The running version, as sys has it (Py_Version only exists from 3.11).
  Ref sys = Ref::steal(PyImport_ImportModule("sys"));
  Ref hex = Ref::steal(sys ? PyObject_GetAttrString(sys.get(), "hexversion") : nullptr);
  if (!hex) return -1;
  rt.version = PyLong_AsLong(hex.get());
  if (rt.version == -1 && PyErr_Occurred() != nullptr) return -1;
  if (rt.version >= 0x030A0000) {
    // Arguments arrive as a C array (METH_FASTCALL) where the limited API
    // has it; before, as a tuple and a dict.
    rt.fastcall = true;
    rt.utf8 = reinterpret_cast<Utf8AndSize>(exported("PyUnicode_AsUTF8AndSize"));
  }
  if (rt.version >= 0x030C0000) {
    rt.vectorcall = reinterpret_cast<Vectorcall>(exported("PyObject_Vectorcall"));
    rt.vectorcall_method = reinterpret_cast<Vectorcall>(exported("PyObject_VectorcallMethod"));
  }
  g_runtime = rt;
  return 0;
}

namespace {

// Up to this many arguments go on the stack.
constexpr std::size_t kSmall = 8;

// f(*a[:n]) through the variadic call, which the interpreter makes without
// an argument tuple (and without binding a method for call_spread_method).
PyObject* call_spread(PyObject* f, PyObject* const* a, std::size_t n) {
  switch (n) {
    case 0:
      return PyObject_CallFunctionObjArgs(f, nullptr);
    case 1:
      return PyObject_CallFunctionObjArgs(f, a[0], nullptr);
    case 2:
      return PyObject_CallFunctionObjArgs(f, a[0], a[1], nullptr);
    case 3:
      return PyObject_CallFunctionObjArgs(f, a[0], a[1], a[2], nullptr);
    case 4:
      return PyObject_CallFunctionObjArgs(f, a[0], a[1], a[2], a[3], nullptr);
    case 5:
      return PyObject_CallFunctionObjArgs(f, a[0], a[1], a[2], a[3], a[4], nullptr);
    case 6:
      return PyObject_CallFunctionObjArgs(f, a[0], a[1], a[2], a[3], a[4], a[5], nullptr);
    case 7:
      return PyObject_CallFunctionObjArgs(f, a[0], a[1], a[2], a[3], a[4], a[5], a[6], nullptr);
    default:
      return PyObject_CallFunctionObjArgs(f, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7],
                                          nullptr);
  }
}

PyObject* call_spread_method(PyObject* o, PyObject* name, PyObject* const* a, std::size_t n) {
  switch (n) {
    case 0:
      return PyObject_CallMethodObjArgs(o, name, nullptr);
    case 1:
      return PyObject_CallMethodObjArgs(o, name, a[0], nullptr);
    case 2:
      return PyObject_CallMethodObjArgs(o, name, a[0], a[1], nullptr);
    case 3:
      return PyObject_CallMethodObjArgs(o, name, a[0], a[1], a[2], nullptr);
    case 4:
      return PyObject_CallMethodObjArgs(o, name, a[0], a[1], a[2], a[3], nullptr);
    case 5:
      return PyObject_CallMethodObjArgs(o, name, a[0], a[1], a[2], a[3], a[4], nullptr);
    case 6:
      return PyObject_CallMethodObjArgs(o, name, a[0], a[1], a[2], a[3], a[4], a[5], nullptr);
    case 7:
      return PyObject_CallMethodObjArgs(o, name, a[0], a[1], a[2], a[3], a[4], a[5], a[6], nullptr);
    default:
      return PyObject_CallMethodObjArgs(o, name, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7],
                                        nullptr);
  }
}

// f(*a[:n], **kwargs) through a tuple.
PyObject* call_tuple(PyObject* f, PyObject* const* a, std::size_t n, PyObject* kwargs) {
  Ref t = Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(n)));
  if (!t) return nullptr;
  for (std::size_t i = 0; i < n; ++i) {
    Py_INCREF(a[i]);
    PyTuple_SetItem(t.get(), static_cast<Py_ssize_t>(i), a[i]);  // steals; cannot fail here
  }
  return PyObject_Call(f, t.get(), kwargs);
}

}  // namespace

// Calls with the arguments in a C array and keyword names in kwnames.  The
// array has one free slot before args[0] (PY_VECTORCALL_ARGUMENTS_OFFSET).
PyObject* vcall(PyObject* f, PyObject* const* args, std::size_t nargs, PyObject* kwnames) {
  const Runtime& rt = g_runtime;
  if (rt.vectorcall != nullptr) return rt.vectorcall(f, args, nargs | kVectorcallOffset, kwnames);
  const Py_ssize_t nkw = kwnames != nullptr ? PyTuple_Size(kwnames) : 0;
  if (nkw == 0 && nargs <= kSmall) return call_spread(f, args, nargs);
  // Keyword arguments go in a dict before 3.12.  The dict of the last such
  // call is filled again when nothing but the state kept it (the callee
  // unpacks it and keeps no reference): no new dict per call.
  Kept& k = *g_kept;
  Ref kw;
  if (k.kwargs && Py_REFCNT(k.kwargs.get()) == 1) kw = std::move(k.kwargs);
  if (!kw) kw = Ref::steal(PyDict_New());
  if (!kw) return nullptr;
  for (Py_ssize_t i = 0; i < nkw; ++i) {
    if (PyDict_SetItem(kw.get(), PyTuple_GetItem(kwnames, i),
                       args[nargs + static_cast<std::size_t>(i)]) < 0) {
      return nullptr;
    }
  }
  if (PyDict_Size(kw.get()) != nkw) {  // it held other names: only this call's
    PyDict_Clear(kw.get());
    return vcall(f, args, nargs, kwnames);
  }
  PyObject* result = call_tuple(f, args, nargs, kw.get());
  if (Py_REFCNT(kw.get()) == 1) k.kwargs = std::move(kw);
  return result;
}

// ---------------------------------------------------------------------------
// Names

Kept* g_kept = nullptr;

namespace {

std::uint64_t g_generations = 0;

// py::text's table: open addressing by the text's address.
constexpr std::size_t kKeptSlots = 1024;  // a power of two; the sources name a few hundred
constexpr std::size_t kKeptProbes = 8;
constexpr std::size_t kKeptLength = 512;  // longer texts are made each time

}  // namespace

int init_kept(Kept& k) {
  g_kept = &k;
  k.generation = ++g_generations;
  k.texts.resize(kKeptSlots);
  bool ok = true;
  auto in = [&](const char* s) {
    Ref o = intern(s);
    ok = ok && o;
    k.owned.push_back(o);
    return o.get();
  };
  Names& n = k.names;
  n.u_distributor = in("_distributor");
  n.distributor = in("distributor");
  n.raid_tool = in("raid_tool");
  n.dispatcher = in("dispatcher");
  n.host = in("host");
  n.dispatch = in("dispatch");
  n.parser = in("parser");
  n.success = in("success");
  n.formatter = in("formatter");
  n.yaml = in("yaml");
  n.file_type = in("file_type");
  n.contents = in("contents");
  n.raw_data = in("raw_data");
  n.items = in("items");
  n.get = in("get");
  n.pop = in("pop");
  n.update = in("update");
  n.upper = in("upper");
  n.lower = in("lower");
  n.logger = in("logger");
  n.info = in("info");
  n.error = in("error");
  n.name = in("__name__");
  n.parser_exec_cmd_format = in("parser_exec_cmd_format");
  n.empty = in("");
  n.sep = in("//");
  n.tools[0] = in("storcli64");
  n.tools[1] = in("arcconf");
  n.tools[2] = in("sorbctl");
  n.tools[3] = in("storelibtest");
  n.duplicate[0] = in("Existing key [");
  n.duplicate[1] = in("] found in res, current value: [");
  n.duplicate[2] = in("], existing value: [");
  n.duplicate[3] = in("]");
  if (!ok) return -1;
  Ref raid_tool_kw = Ref::steal(PyTuple_Pack(1, n.raid_tool));
  Ref file_type_kw = Ref::steal(PyTuple_Pack(1, n.file_type));
  if (!raid_tool_kw || !file_type_kw) return -1;
  n.raid_tool_kw = raid_tool_kw.get();
  n.file_type_kw = file_type_kw.get();
  k.owned.push_back(std::move(raid_tool_kw));
  k.owned.push_back(std::move(file_type_kw));
  return 0;
}

// ---------------------------------------------------------------------------
// Fetched

Fetched::Fetched() noexcept {
  PyErr_Fetch(&type_, &value_, &trace_);
  if (type_ != nullptr) {
    PyErr_NormalizeException(&type_, &value_, &trace_);
    if (trace_ != nullptr && value_ != nullptr) PyException_SetTraceback(value_, trace_);
  }
}

Fetched::~Fetched() {
  Py_XDECREF(type_);
  Py_XDECREF(value_);
  Py_XDECREF(trace_);
}

bool Fetched::matches(PyObject* type) const {
  return type_ != nullptr && PyErr_GivenExceptionMatches(type_, type) != 0;
}

std::nullptr_t Fetched::restore() {
  PyErr_Restore(type_, value_, trace_);
  type_ = value_ = trace_ = nullptr;
  return nullptr;
}

// ---------------------------------------------------------------------------
// Objects

Ref str(const char* utf8) { return Ref::steal(PyUnicode_FromString(utf8)); }

Ref intern(const char* utf8) { return Ref::steal(PyUnicode_InternFromString(utf8)); }

Ref text(const char* utf8) {
  std::vector<KeptText>& kept = g_kept->texts;
  const auto at = reinterpret_cast<std::uintptr_t>(utf8);
  const std::size_t home = static_cast<std::size_t>((at >> 3) ^ (at >> 13));
  for (std::size_t i = 0; i < kKeptProbes; ++i) {
    KeptText& k = kept[(home + i) & (kKeptSlots - 1)];
    if (k.at == utf8) {
      if (k.copy == utf8) return k.str;
      return str(utf8);  // a buffer that now holds another text
    }
    if (k.at != nullptr) continue;
    const std::size_t n = std::strlen(utf8);
    if (n > kKeptLength) break;
    Ref made = intern(utf8);
    if (!made) return nullptr;
    k.copy.assign(utf8, n);
    k.at = utf8;
    k.str = made;
    return made;
  }
  return str(utf8);
}

Ref integer(long v) { return Ref::steal(PyLong_FromLong(v)); }

bool text_view(PyObject* o, std::string_view& out) {
  if (g_runtime.utf8 == nullptr || !PyUnicode_CheckExact(o)) return false;
  Py_ssize_t size = 0;
  const char* data = g_runtime.utf8(o, &size);
  if (data == nullptr) {  // lone surrogates have no UTF-8
    PyErr_Clear();
    return false;
  }
  out = std::string_view(data, static_cast<std::size_t>(size));
  return true;
}

Ref getattr(PyObject* o, const char* name) {
  if (o == nullptr) return nullptr;
  Ref n = text(name);
  return getattr(o, n.get());
}

Ref getattr(PyObject* o, PyObject* name) {
  if (o == nullptr || name == nullptr) return nullptr;
  return Ref::steal(PyObject_GetAttr(o, name));
}

int setattr(PyObject* o, const char* name, PyObject* v) {
  if (o == nullptr || v == nullptr) return -1;
  return PyObject_SetAttrString(o, name, v);
}

int setattr(PyObject* o, PyObject* name, PyObject* v) {
  if (o == nullptr || name == nullptr || v == nullptr) return -1;
  return PyObject_SetAttr(o, name, v);
}

Ref index(PyObject* o, PyObject* key) {
  if (o == nullptr || key == nullptr) return nullptr;
  if (PyDict_CheckExact(o)) {
    PyObject* v = PyDict_GetItemWithError(o, key);
    if (v != nullptr) return Ref::borrow(v);
    if (PyErr_Occurred() != nullptr) return nullptr;
    // The lookup error as dict[key] raises it: KeyError(key).
    Ref args = tuple({key});
    if (args) PyErr_SetObject(PyExc_KeyError, args.get());
    return nullptr;
  }
  return Ref::steal(PyObject_GetItem(o, key));
}

Ref index(PyObject* o, const char* key) {
  if (o == nullptr) return nullptr;
  Ref k = text(key);
  return index(o, k.get());
}

Ref item(PyObject* seq, Py_ssize_t i) {
  if (seq == nullptr) return nullptr;
  if (PyList_CheckExact(seq) && i >= 0 && i < PyList_Size(seq)) {
    return Ref::borrow(PyList_GetItem(seq, i));
  }
  if (PyTuple_CheckExact(seq) && i >= 0 && i < PyTuple_Size(seq)) {
    return Ref::borrow(PyTuple_GetItem(seq, i));
  }
  Ref k = integer(static_cast<long>(i));
  return index(seq, k.get());
}

Ref get(PyObject* o, PyObject* key) {
  if (o == nullptr || key == nullptr) return nullptr;
  if (PyDict_CheckExact(o)) {
    PyObject* v = PyDict_GetItemWithError(o, key);
    if (v != nullptr) return Ref::borrow(v);
    if (PyErr_Occurred() != nullptr) return nullptr;
    return none();
  }
  return call_method(o, names().get, {key});
}

Ref get(PyObject* o, const char* key) {
  if (o == nullptr) return nullptr;
  Ref k = text(key);
  return get(o, k.get());
}

// ---------------------------------------------------------------------------
// Calls

namespace {

PyObject* call_array(PyObject* f, std::initializer_list<PyObject*> args, PyObject* kwargs) {
  PyObject* stack[kSmall + 1];
  std::size_t n = 0;
  for (PyObject* a : args) {
    if (a == nullptr) return nullptr;
    if (n < kSmall) stack[1 + n] = a;
    ++n;
  }
  if (n > kSmall) {
    Ref t = tuple(args);
    return t ? PyObject_Call(f, t.get(), kwargs) : nullptr;
  }
  if (g_runtime.vectorcall != nullptr && kwargs == nullptr) {
    return g_runtime.vectorcall(f, stack + 1, n | kVectorcallOffset, nullptr);
  }
  if (kwargs == nullptr) return call_spread(f, stack + 1, n);
  return call_tuple(f, stack + 1, n, kwargs);
}

}  // namespace

Ref call(PyObject* f) {
  if (f == nullptr) return nullptr;
  PyObject* stack[1] = {nullptr};
  return Ref::steal(vcall(f, stack + 1, 0, nullptr));
}

Ref call(PyObject* f, std::initializer_list<PyObject*> args, PyObject* kwargs) {
  if (f == nullptr) return nullptr;
  return Ref::steal(call_array(f, args, kwargs));
}

Ref call_method(PyObject* o, PyObject* name, std::initializer_list<PyObject*> args,
                PyObject* kwargs) {
  if (o == nullptr || name == nullptr) return nullptr;
  if (kwargs == nullptr && args.size() <= kSmall) {
    PyObject* stack[kSmall + 1];
    stack[0] = o;
    std::size_t n = 1;
    for (PyObject* a : args) {
      if (a == nullptr) return nullptr;
      stack[n++] = a;
    }
    const Runtime& rt = g_runtime;
    if (rt.vectorcall_method != nullptr) {
      return Ref::steal(rt.vectorcall_method(name, stack, n | kVectorcallOffset, nullptr));
    }
    return Ref::steal(call_spread_method(o, name, stack + 1, n - 1));
  }
  Ref m = getattr(o, name);
  return call(m.get(), args, kwargs);
}

Ref call_method(PyObject* o, const char* name, std::initializer_list<PyObject*> args,
                PyObject* kwargs) {
  if (o == nullptr) return nullptr;
  Ref n = text(name);
  return call_method(o, n.get(), args, kwargs);
}

// ---------------------------------------------------------------------------
// Containers

Ref dict(std::initializer_list<KV> items) {
  Ref d = Ref::steal(PyDict_New());
  for (const KV& kv : items) {
    if (set_item(d.get(), kv.key, kv.value) < 0) return nullptr;
  }
  return d;
}

Ref tuple(std::initializer_list<PyObject*> items) {
  for (PyObject* o : items) {
    if (o == nullptr) return nullptr;
  }
  Ref t = Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(items.size())));
  if (!t) return nullptr;
  Py_ssize_t i = 0;
  for (PyObject* o : items) {
    Py_INCREF(o);
    PyTuple_SetItem(t.get(), i++, o);  // steals; cannot fail on a fresh tuple
  }
  return t;
}

Ref list() { return Ref::steal(PyList_New(0)); }

int append(PyObject* l, PyObject* v) {
  if (l == nullptr || v == nullptr) return -1;
  return PyList_Append(l, v);
}

int set_item(PyObject* d, PyObject* key, PyObject* v) {
  if (d == nullptr || key == nullptr || v == nullptr) return -1;
  if (PyDict_CheckExact(d)) return PyDict_SetItem(d, key, v);
  return PyObject_SetItem(d, key, v);
}

int set_item(PyObject* d, const char* key, PyObject* v) {
  if (d == nullptr || v == nullptr) return -1;
  Ref k = text(key);
  return set_item(d, k.get(), v);
}

int update(PyObject* d, PyObject* other) {
  if (d == nullptr || other == nullptr) return -1;
  if (!PyDict_CheckExact(d)) {
    Ref r = call_method(d, names().update, {other});
    return r ? 0 : -1;
  }
  if (PyDict_Check(other)) return PyDict_Update(d, other);
  const int has_keys = PyObject_HasAttrString(other, "keys");
  if (has_keys != 0) return PyDict_Merge(d, other, 1);
  return PyDict_MergeFromSeq2(d, other, 1);
}

int truthy(PyObject* o) {
  if (o == nullptr) return -1;
  return PyObject_IsTrue(o);
}

int equal(PyObject* a, const char* text) {
  if (a == nullptr) return -1;
  if (PyUnicode_CheckExact(a)) return PyUnicode_CompareWithASCIIString(a, text) == 0 ? 1 : 0;
  Ref t = py::text(text);
  if (!t) return -1;
  return PyObject_RichCompareBool(a, t.get(), Py_EQ);
}

int contains(PyObject* container, PyObject* item) {
  if (container == nullptr || item == nullptr) return -1;
  return PySequence_Contains(container, item);
}

Ref to_str(PyObject* o) {
  if (o == nullptr) return nullptr;
  return Ref::steal(PyObject_Str(o));
}

Ref upper(PyObject* o) { return call_method(o, names().upper); }

Ref lower(PyObject* o) { return call_method(o, names().lower); }

Ref concat(std::initializer_list<PyObject*> texts) {
  Ref out;
  for (PyObject* t : texts) {
    if (t == nullptr) return nullptr;
    if (!PyUnicode_Check(t)) {
      // As "a" + b raises it.
      Ref type_name = getattr(reinterpret_cast<PyObject*>(Py_TYPE(t)), names().name);
      if (type_name) {
        PyErr_Format(PyExc_TypeError, "can only concatenate str (not \"%U\") to str",
                     type_name.get());
      }
      return nullptr;
    }
    out = out ? Ref::steal(PyUnicode_Concat(out.get(), t)) : Ref::borrow(t);
    if (!out) return nullptr;
  }
  return out ? out : str("");
}

Ref format(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  PyObject* r = PyUnicode_FromFormatV(fmt, ap);
  va_end(ap);
  return Ref::steal(r);
}

Ref raise(PyObject* type, const char* msg) {
  PyErr_SetString(type, msg);
  return nullptr;
}

Ref raise_obj(PyObject* type, PyObject* msg) {
  if (type == nullptr || msg == nullptr) return nullptr;
  // Build the instance ourselves so that framework exceptions whose
  // constructor takes exactly one message argument are honoured.
  Ref exc = call(type, {msg});
  if (!exc) return nullptr;
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exc.get())), exc.get());
  return nullptr;
}

// ---------------------------------------------------------------------------
// Depth

namespace {

// Levels of nesting a walk may enter, whatever the recursion limit says:
// well below what the C stack holds, sanitizer frames included.
constexpr int kStackCap = 6000;

thread_local int t_depth = 0;

}  // namespace

Depth::Depth(const char* where) noexcept {
  int limit = Py_GetRecursionLimit();
  if (limit > kStackCap) limit = kStackCap;
  ok_ = ++t_depth <= limit;
  if (!ok_) PyErr_Format(PyExc_RecursionError, "maximum recursion depth exceeded%s", where);
}

Depth::~Depth() { --t_depth; }

}  // namespace raid::py
