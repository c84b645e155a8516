// The module's state: every Python object the module keeps between calls,
// for the interpreter that imported it.  Made at module init and released
// at module free (that interpreter's end, module.cpp); a later interpreter
// of the process imports the module afresh and never meets an object of an
// earlier one.
#pragma once

#include <Python.h>

#include <memory>

#include "runtime.hpp"

namespace raid {

// The frame's part (frame_state.hpp): the framework's objects, the types, the
// compiled operations and the variant objects' spare memory.
struct FrameState;
struct FrameStateFree {
  void operator()(FrameState* f) const;
};
// Visits the references that can lead back to the module (m_traverse).
int traverse_frame(const FrameState& f, visitproc visit, void* arg);

struct State {
  py::Kept kept;  // names, texts, compiled patterns
  std::unique_ptr<FrameState, FrameStateFree> frame;
};

// The current interpreter's state; nullptr while no module is alive.
extern State* g_state;

}  // namespace raid
