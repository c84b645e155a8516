// Module init: builds Raid on the host framework's base class, and owns
// the module state (state.hpp) for the interpreter that imported it.
#include "frame.hpp"
#include "runtime.hpp"
#include "state.hpp"

namespace raid {

State* g_state = nullptr;

namespace {

// The module state's memory holds a pointer to the State.
State*& state_of(PyObject* module) { return *static_cast<State**>(PyModule_GetState(module)); }

int module_traverse(PyObject* module, visitproc visit, void* arg) {
  State* s = state_of(module);
  if (s != nullptr && s->frame) return traverse_frame(*s->frame, visit, arg);
  return 0;
}

// Releases every object the state holds while it is still the current one
// (what a release sets off may call back into the module), then the state.
void release(PyObject* module) {
  State* s = state_of(module);
  if (s == nullptr) return;
  s->frame.reset();
  s->kept = py::Kept{};
  if (g_state == s) {
    g_state = nullptr;
    py::g_kept = nullptr;
  }
  state_of(module) = nullptr;
  delete s;
}

// The module is cyclic garbage: what it holds goes.
int module_clear(PyObject* module) {
  release(module);
  return 0;
}

void module_free(void* module) { release(static_cast<PyObject*>(module)); }

PyModuleDef g_module = {
    PyModuleDef_HEAD_INIT,
    "raid",
    "RAID 控制卡管理接口：类 Raid 按主机的 RAID 工具选择实现并整理结果。",
    sizeof(void*),  // a State*
    nullptr,
    nullptr,
    module_traverse,
    module_clear,
    module_free,
};

}  // namespace

}  // namespace raid

PyMODINIT_FUNC PyInit_raid() {
  using raid::g_state;
  // Imported again in the same interpreter (after leaving sys.modules): the
  // same module, with its state.
  PyObject* existing = PyState_FindModule(&raid::g_module);
  if (existing != nullptr) {
    Py_INCREF(existing);
    return existing;
  }
  if (g_state != nullptr) {
    PyErr_SetString(PyExc_ImportError,
                    "raid: the module serves one interpreter at a time, and another "
                    "interpreter of this process has it");
    return nullptr;
  }
  if (raid::py::init_runtime() < 0) return nullptr;
  raid::Ref module = raid::Ref::steal(PyModule_Create(&raid::g_module));
  if (!module) return nullptr;
  // Owned by the module from here: a failure below releases it with the
  // module, and the next import starts afresh.
  g_state = new raid::State();
  raid::state_of(module.get()) = g_state;
  if (raid::py::init_kept(g_state->kept) < 0) return nullptr;
  raid::Ref cls = raid::build_raid_class(module.get());
  if (!cls || PyModule_AddObject(module.get(), "Raid", cls.get()) < 0) return nullptr;
  cls.release();  // PyModule_AddObject stole it
  return module.release();
}
