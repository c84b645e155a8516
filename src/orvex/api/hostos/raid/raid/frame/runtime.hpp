// What the frame's own sources share: the interpreter's optional entry
// points, looked up once at module init, and the names used on every call,
// interned once.
#pragma once

#include <Python.h>

#include <cstddef>
#include <cstdint>

namespace raid::py {

using Vectorcall = PyObject* (*)(PyObject*, PyObject* const*, std::size_t, PyObject*);
using VectorcallDict = PyObject* (*)(PyObject*, PyObject* const*, std::size_t, PyObject*);
using MethodNew = PyObject* (*)(PyObject*, PyObject*);
using DictSetDefault = PyObject* (*)(PyObject*, PyObject*, PyObject*);
using Utf8AndSize = const char* (*)(PyObject*, Py_ssize_t*);

// Arguments as a C array; in the stable ABI from 3.10, understood by every
// interpreter this module runs on.
constexpr int kMethFastcall = 0x0080;

// Type flags of later interpreters, set only where they are understood.
constexpr unsigned long kTypeVectorcall = 1UL << 11;        // 3.8+
constexpr unsigned long kTypeMethodDescriptor = 1UL << 17;  // 3.8+

// The caller's array has a free slot before args[0].
constexpr std::size_t kVectorcallOffset = std::size_t{1} << (8 * sizeof(std::size_t) - 1);

struct Runtime {
  long version = 0;                          // sys.hexversion
  bool fastcall = false;                     // methods take METH_FASTCALL
  Vectorcall vectorcall = nullptr;           // PyObject_Vectorcall (3.11+)
  VectorcallDict vectorcall_dict = nullptr;  // PyObject_VectorcallDict (3.9+)
  Vectorcall vectorcall_method = nullptr;    // PyObject_VectorcallMethod (3.9+)
  MethodNew method_new = nullptr;            // PyMethod_New
  DictSetDefault dict_setdefault = nullptr;  // PyDict_SetDefault (borrowed result)
  Utf8AndSize utf8 = nullptr;                // PyUnicode_AsUTF8AndSize (the text's own buffer)
};

extern Runtime g_runtime;
void init_runtime();  // errors are cleared: every entry point has a fallback

// f(*args, **dict(zip(kwnames, args[nargs:]))); args[-1] must be writable.
PyObject* vcall(PyObject* f, PyObject* const* args, std::size_t nargs, PyObject* kwnames);

// Names used on every call (interned, kept for the process).
struct Names {
  PyObject* u_distributor;  // "_distributor"
  PyObject* distributor;
  PyObject* raid_tool;
  PyObject* raid_tool_kw;  // ("raid_tool",)
  PyObject* dispatcher;
  PyObject* host;
  PyObject* dispatch;
  PyObject* parser;
  PyObject* success;
  PyObject* formatter;
  PyObject* yaml;
  PyObject* file_type;
  PyObject* file_type_kw;  // ("file_type",)
  PyObject* contents;
  PyObject* raw_data;
  PyObject* items;
  PyObject* get;
  PyObject* pop;
  PyObject* update;
  PyObject* upper;
  PyObject* lower;
  PyObject* logger;
  PyObject* info;
  PyObject* error;
  PyObject* name;  // "__name__"
  PyObject* parser_exec_cmd_format;
  PyObject* empty;
  PyObject* sep;       // "//"
  PyObject* tools[4];  // indexed by Tool
};

int init_names();  // -1 on error
const Names& names();

}  // namespace raid::py
