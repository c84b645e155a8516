#include "py.hpp"

#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "runtime.hpp"

namespace raid::py {

// ---------------------------------------------------------------------------
// What the running interpreter offers beyond the 3.7 stable ABI, looked up
// once at module init.

Runtime g_runtime;

namespace {

// The address of an exported function of the running interpreter, or
// nullptr.  Looked up through ctypes' handle on the process rather than
// dlsym, whose symbol version moved in glibc 2.34 (the module needs nothing
// newer than glibc 2.17).
void* exported(PyObject* ctypes, const char* name) {
  Ref api = Ref::steal(PyObject_GetAttrString(ctypes, "pythonapi"));
  Ref fn = api ? Ref::steal(PyObject_GetAttrString(api.get(), name)) : Ref();
  Ref cast = fn ? Ref::steal(PyObject_GetAttrString(ctypes, "cast")) : Ref();
  Ref c_void_p = cast ? Ref::steal(PyObject_GetAttrString(ctypes, "c_void_p")) : Ref();
  Ref pointer =
      c_void_p
          ? Ref::steal(PyObject_CallFunctionObjArgs(cast.get(), fn.get(), c_void_p.get(), nullptr))
          : Ref();
  Ref value = pointer ? Ref::steal(PyObject_GetAttrString(pointer.get(), "value")) : Ref();
  void* address = value && value.get() != Py_None ? PyLong_AsVoidPtr(value.get()) : nullptr;
  if (PyErr_Occurred() != nullptr) {
    PyErr_Clear();
    return nullptr;
  }
  return address;
}

}  // namespace

void init_runtime() {
  Runtime& rt = g_runtime;
  Ref sys = Ref::steal(PyImport_ImportModule("sys"));
  Ref hex = getattr(sys.get(), "hexversion");
  rt.version = hex ? PyLong_AsLong(hex.get()) : 0x03070000;
  if (PyErr_Occurred() != nullptr) PyErr_Clear();
  // Exported functions only; versions that lack one (or an interpreter
  // without ctypes) take the tuple path.
  Ref ctypes = Ref::steal(PyImport_ImportModule("ctypes"));
  if (ctypes) {
    rt.vectorcall = reinterpret_cast<Vectorcall>(exported(ctypes.get(), "PyObject_Vectorcall"));
    rt.vectorcall_dict =
        reinterpret_cast<VectorcallDict>(exported(ctypes.get(), "PyObject_VectorcallDict"));
    rt.vectorcall_method =
        reinterpret_cast<Vectorcall>(exported(ctypes.get(), "PyObject_VectorcallMethod"));
    rt.method_new = reinterpret_cast<MethodNew>(exported(ctypes.get(), "PyMethod_New"));
    rt.dict_setdefault =
        reinterpret_cast<DictSetDefault>(exported(ctypes.get(), "PyDict_SetDefault"));
    rt.utf8 = reinterpret_cast<Utf8AndSize>(exported(ctypes.get(), "PyUnicode_AsUTF8AndSize"));
  } else {
    PyErr_Clear();
  }
  // Arguments arrive as a C array (METH_FASTCALL) where the stable ABI has
  // it (3.10 and later); before, as a tuple and a dict.
  rt.fastcall = rt.version >= 0x030A0000;
}

// Calls with the arguments in a C array and keyword names in kwnames.  The
// array has one free slot before args[0] (PY_VECTORCALL_ARGUMENTS_OFFSET).
PyObject* vcall(PyObject* f, PyObject* const* args, std::size_t nargs, PyObject* kwnames) {
  const Runtime& rt = g_runtime;
  if (rt.vectorcall != nullptr) return rt.vectorcall(f, args, nargs | kVectorcallOffset, kwnames);
  const Py_ssize_t npos = static_cast<Py_ssize_t>(nargs);
  const Py_ssize_t nkw = kwnames != nullptr ? PyTuple_Size(kwnames) : 0;
  Ref kw;
  if (nkw > 0) {
    kw = Ref::steal(PyDict_New());
    if (!kw) return nullptr;
    for (Py_ssize_t i = 0; i < nkw; ++i) {
      if (PyDict_SetItem(kw.get(), PyTuple_GetItem(kwnames, i), args[npos + i]) < 0) {
        return nullptr;
      }
    }
  }
  if (rt.vectorcall_dict != nullptr) return rt.vectorcall_dict(f, args, nargs, kw.get());
  Ref t = Ref::steal(PyTuple_New(npos));
  if (!t) return nullptr;
  for (Py_ssize_t i = 0; i < npos; ++i) {
    Py_INCREF(args[i]);
    PyTuple_SetItem(t.get(), i, args[i]);
  }
  return PyObject_Call(f, t.get(), kw.get());
}

// ---------------------------------------------------------------------------
// Names

namespace {
Names g_names;
}

const Names& names() { return g_names; }

int init_names() {
  bool ok = true;
  auto in = [&ok](const char* s) {
    PyObject* o = PyUnicode_InternFromString(s);  // kept for the process
    ok = ok && o != nullptr;
    return o;
  };
  Names& n = g_names;
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
  if (!ok) return -1;
  forget_texts();
  n.raid_tool_kw = PyTuple_Pack(1, n.raid_tool);
  n.file_type_kw = PyTuple_Pack(1, n.file_type);
  return n.raid_tool_kw != nullptr && n.file_type_kw != nullptr ? 0 : -1;
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

namespace {

struct KeptText {
  const char* at;  // the caller's address
  char* copy;      // its text when kept
  PyObject* str;   // interned, held for the process
};

constexpr std::size_t kKeptSlots = 1024;  // a power of two; the sources name a few hundred
constexpr std::size_t kKeptProbes = 8;
constexpr std::size_t kKeptLength = 512;  // longer texts are made each time
KeptText g_kept[kKeptSlots];

}  // namespace

Ref text(const char* utf8) {
  const auto at = reinterpret_cast<std::uintptr_t>(utf8);
  const std::size_t home = static_cast<std::size_t>((at >> 3) ^ (at >> 13));
  for (std::size_t i = 0; i < kKeptProbes; ++i) {
    KeptText& k = g_kept[(home + i) & (kKeptSlots - 1)];
    if (k.at == utf8) {
      if (std::strcmp(k.copy, utf8) == 0) return Ref::borrow(k.str);
      return str(utf8);  // a buffer that now holds another text
    }
    if (k.at != nullptr) continue;
    const std::size_t n = std::strlen(utf8);
    if (n > kKeptLength) break;
    Ref made = intern(utf8);
    if (!made) return nullptr;
    k.copy = new char[n + 1];
    std::memcpy(k.copy, utf8, n + 1);
    k.at = utf8;
    k.str = Ref(made).release();
    return made;
  }
  return str(utf8);
}

void forget_texts() {
  for (KeptText& k : g_kept) {
    delete[] k.copy;
    k = KeptText{};  // the objects went with the interpreter that made them
  }
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

// Up to this many arguments go on the stack.
constexpr std::size_t kSmall = 8;

PyObject* call_array(PyObject* f, std::initializer_list<PyObject*> args, PyObject* kwargs) {
  if (args.size() > kSmall) {
    Ref t = tuple(args);
    return t ? PyObject_Call(f, t.get(), kwargs) : nullptr;
  }
  PyObject* stack[kSmall + 1];
  std::size_t n = 0;
  for (PyObject* a : args) {
    if (a == nullptr) return nullptr;
    stack[1 + n++] = a;
  }
  const Runtime& rt = g_runtime;
  if (rt.vectorcall_dict != nullptr) {
    return rt.vectorcall_dict(f, stack + 1, n | kVectorcallOffset, kwargs);
  }
  Ref t = tuple(args);
  return t ? PyObject_Call(f, t.get(), kwargs) : nullptr;
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
  const Runtime& rt = g_runtime;
  if (kwargs == nullptr && rt.vectorcall_method != nullptr && args.size() <= kSmall) {
    PyObject* stack[kSmall + 1];
    stack[0] = o;
    std::size_t n = 1;
    for (PyObject* a : args) {
      if (a == nullptr) return nullptr;
      stack[n++] = a;
    }
    return Ref::steal(rt.vectorcall_method(name, stack, n | kVectorcallOffset, nullptr));
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

int equals(PyObject* a, const char* text) {
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
