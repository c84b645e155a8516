// The frame's part of the module state (state.hpp): the framework's
// objects, the types, the compiled operations and the variant objects'
// spare memory, for the interpreter that imported the module.
#pragma once

#include <Python.h>

#include <cstddef>
#include <deque>

#include "compiled.hpp"
#include "state.hpp"

namespace raid {

struct Framework {
  Ref host_os_base;
  Ref hostos_ns;
  Ref host_type;
  Ref obj_attr_decorator;
  Ref load_from_file;
  Ref orvex_exception;
  Ref output_formatter;
  Ref namedtuple;
  Ref method_type;
  PyObject* module = nullptr;  // borrowed: the state lives inside it
  Ref config_dir;              // "<module dir>/config/" once known
  Ref template_paths;          // caller name -> its template file's path, as made before
};

// Three variant objects are made per call and mostly gone before it
// returns: their memory is kept for the next ones (a few blocks per number
// of bound arguments) rather than handed back and asked for again.
constexpr Py_ssize_t kSpareSizes = 12;
constexpr std::size_t kSparesEach = 4;
struct Spares {
  PyObject* blocks[kSparesEach];
  std::size_t count;
};

// The frame's part of the module state (state.hpp).
struct FrameState {
  Framework fw;
  std::deque<OpDef> defs;  // stable addresses
  std::deque<CompiledOp> ops;
  PyTypeObject* raid_type = nullptr;  // each holds a reference
  PyTypeObject* variant_type = nullptr;
  PyTypeObject* op_type = nullptr;
  Spares spares[kSpareSizes] = {};

  FrameState() = default;
  FrameState(const FrameState&) = delete;
  FrameState& operator=(const FrameState&) = delete;
  ~FrameState() {
    for (Spares& s : spares) {
      while (s.count > 0) PyObject_GC_Del(s.blocks[--s.count]);
    }
    ops.clear();  // the builtins, then the type of the objects they are bound to
    Py_CLEAR(raid_type);
    Py_CLEAR(op_type);
    Py_CLEAR(variant_type);
  }
};

// The current interpreter's.
inline FrameState& fs() { return *g_state->frame; }

}  // namespace raid
