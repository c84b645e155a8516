// What the frame's own sources share: the interpreter's optional entry
// points, looked up once at module init, and the names used on every call,
// interned once per interpreter.
#pragma once

#include <Python.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "py.hpp"

namespace raid::py {

using Vectorcall = PyObject* (*)(PyObject*, PyObject* const*, std::size_t, PyObject*);
using Utf8AndSize = const char* (*)(PyObject*, Py_ssize_t*);

// Arguments as a C array; in the stable ABI from 3.10, understood by every
// interpreter this module runs on.
constexpr int kMethFastcall = 0x0080;

// Type flags of later interpreters, set only where they are understood.
constexpr unsigned long kTypeVectorcall = 1UL << 11;        // 3.8+
constexpr unsigned long kTypeMethodDescriptor = 1UL << 17;  // 3.8+

// The caller's array has a free slot before args[0].
constexpr std::size_t kVectorcallOffset = std::size_t{1} << (8 * sizeof(std::size_t) - 1);

// What the running interpreter offers beyond the 3.7 limited API: only
// functions of a later version's limited API, used from that version on.
// Facts of the process (the interpreter's library), not Python objects.
struct Runtime {
  long version = 0;                        // sys.hexversion
  bool fastcall = false;                   // methods take METH_FASTCALL (3.10+)
  Vectorcall vectorcall = nullptr;         // PyObject_Vectorcall (3.12+)
  Vectorcall vectorcall_method = nullptr;  // PyObject_VectorcallMethod (3.12+)
  Utf8AndSize utf8 = nullptr;              // PyUnicode_AsUTF8AndSize (3.10+)
};

extern Runtime g_runtime;
int init_runtime();  // -1 on error (sys unreadable); a missing entry point has a fallback

// f(*args, **dict(zip(kwnames, args[nargs:]))); args[-1] must be writable.
PyObject* vcall(PyObject* f, PyObject* const* args, std::size_t nargs, PyObject* kwnames);

// Names used on every call (interned; borrowed from Kept::owned).
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
  PyObject* sep;           // "//"
  PyObject* tools[4];      // indexed by Tool
  PyObject* duplicate[4];  // the pieces of the duplicate key message
};

// The str of a text the sources name, kept by the text's address (py::text).
struct KeptText {
  const char* at = nullptr;  // the caller's address
  std::string copy;          // its text when kept
  Ref str;                   // interned
};

// What the helpers keep for one interpreter: its interned names, the strs
// of the sources' texts and the compiled regular expressions.  Part of the
// module's state (state.hpp): made at module init, released at module free,
// so a later interpreter of the process never meets one of these objects.
struct Kept {
  Names names{};
  std::vector<Ref> owned;        // the references behind names
  std::vector<KeptText> texts;   // py::text's table
  std::vector<Ref> patterns;     // kit::Regex's compiled patterns
  Ref kwargs;                    // the dict of the last call with keywords (py::vcall)
  std::uint64_t generation = 0;  // distinct for every Kept of the process
};

// The current interpreter's (null outside the module's life).
extern Kept* g_kept;
// Makes k the current one and fills its names; -1 on error (k stays
// current, for the module state to release).
int init_kept(Kept& k);
inline const Names& names() { return g_kept->names; }

}  // namespace raid::py
