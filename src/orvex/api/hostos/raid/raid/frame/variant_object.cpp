// Variant objects: real callables with the variant's name, holding the
// object, params and the bound arguments for as long as the framework keeps
// them.
#include <cstddef>

#include "forms.hpp"
#include "frame_state.hpp"
#include "objects.hpp"
#include "runtime.hpp"
#include "structmember.h"

namespace raid {

using namespace py;

namespace {

struct VariantObject {
  PyObject_VAR_HEAD PyObject* self;
  PyObject* params;
  const CompiledOp* op;
  std::size_t index;
  py::Vectorcall vectorcall;  // called without an argument tuple (3.9+)
  PyObject* args[1];          // Py_SIZE(o) bound arguments
};

int variant_traverse(PyObject* o, visitproc visit, void* arg) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  // Heap types made by PyType_FromSpec are visited by their instances from
  // 3.9 on, and must not be before.
  if (g_runtime.version >= 0x03090000) Py_VISIT(reinterpret_cast<PyObject*>(Py_TYPE(o)));
  Py_VISIT(v->self);
  Py_VISIT(v->params);
  for (Py_ssize_t i = 0; i < Py_SIZE(o); ++i) Py_VISIT(v->args[i]);
  return 0;
}

int variant_clear(PyObject* o) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  Py_CLEAR(v->self);
  Py_CLEAR(v->params);
  for (Py_ssize_t i = 0; i < Py_SIZE(o); ++i) Py_CLEAR(v->args[i]);
  return 0;
}

void variant_dealloc(PyObject* o) {
  PyTypeObject* tp = Py_TYPE(o);
  PyObject_GC_UnTrack(o);
  variant_clear(o);
  const Py_ssize_t n = Py_SIZE(o);
  // While the module state is released, its spares are no place to go.
  FrameState* f = g_state != nullptr ? g_state->frame.get() : nullptr;
  if (f != nullptr && tp == f->variant_type && n < kSpareSizes &&
      f->spares[n].count < kSparesEach) {
    f->spares[n].blocks[f->spares[n].count++] = o;  // untracked, no references held
  } else {
    auto free_fn = reinterpret_cast<freefunc>(PyType_GetSlot(tp, Py_tp_free));
    free_fn(o);
  }
  Py_DECREF(tp);  // every instance holds one, a kept block none
}

PyObject* variant_call(PyObject* o, PyObject* args, PyObject* kwargs) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  if (PyTuple_Size(args) != 0 || (kwargs != nullptr && PyDict_Size(kwargs) != 0)) {
    PyErr_Format(PyExc_TypeError, "%U() takes no arguments", v->op->variant_name.get());
    return nullptr;
  }
  return run_variant(*v->op, v->index, v->self, v->params, v->args).release();
}

PyObject* variant_vectorcall(PyObject* o, PyObject* const*, std::size_t nargsf, PyObject* kwnames) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  if ((nargsf & ~kVectorcallOffset) != 0 || (kwnames != nullptr && PyTuple_Size(kwnames) != 0)) {
    PyErr_Format(PyExc_TypeError, "%U() takes no arguments", v->op->variant_name.get());
    return nullptr;
  }
  return run_variant(*v->op, v->index, v->self, v->params, v->args).release();
}

PyObject* variant_name_get(PyObject* o, void*) {
  PyObject* n = reinterpret_cast<VariantObject*>(o)->op->variant_name.get();
  Py_INCREF(n);
  return n;
}

PyObject* variant_tool_get(PyObject* o, void*) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  PyObject* t = tool_string(v->op->def->variants[v->index].tool);
  Py_INCREF(t);
  return t;
}

PyObject* variant_repr(PyObject* o) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  return PyUnicode_FromFormat("<raid variant %U [%U]>", v->op->variant_name.get(),
                              tool_string(v->op->def->variants[v->index].tool));
}

PyGetSetDef variant_getset[] = {
    {const_cast<char*>("__name__"), variant_name_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("__qualname__"), variant_name_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("raid_tool"), variant_tool_get, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMemberDef variant_members[] = {
    {const_cast<char*>("__vectorcalloffset__"), T_PYSSIZET,
     static_cast<Py_ssize_t>(offsetof(VariantObject, vectorcall)), READONLY, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

PyType_Slot variant_slots[] = {
    {Py_tp_dealloc, reinterpret_cast<void*>(variant_dealloc)},
    {Py_tp_members, variant_members},
    {Py_tp_traverse, reinterpret_cast<void*>(variant_traverse)},
    {Py_tp_clear, reinterpret_cast<void*>(variant_clear)},
    {Py_tp_call, reinterpret_cast<void*>(variant_call)},
    {Py_tp_repr, reinterpret_cast<void*>(variant_repr)},
    {Py_tp_getset, variant_getset},
    {0, nullptr},
};

PyType_Spec variant_spec = {
    "orvex.api.hostos.raid.raid.variant",
    static_cast<int>(offsetof(VariantObject, args)),
    static_cast<int>(sizeof(PyObject*)),
    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC,
    variant_slots,
};

}  // namespace

PyTypeObject* make_variant_type() {
  if (g_runtime.version >= 0x03090000) variant_spec.flags |= kTypeVectorcall;
  return reinterpret_cast<PyTypeObject*>(PyType_FromSpec(&variant_spec));
}

Ref new_variant(PyObject* self, const Bound& b, const CompiledOp& op, std::size_t index) {
  const Py_ssize_t n = static_cast<Py_ssize_t>(op.params.size());
  PyObject* o = nullptr;
  const bool spare = n < kSpareSizes && fs().spares[n].count > 0;
  if (spare) {
    o = fs().spares[n].blocks[--fs().spares[n].count];
    // A new reference to the type: PyObject_InitVar takes it for a heap
    // type from 3.8 on; on 3.7 the allocator took it, so it is taken here.
    PyObject_InitVar(reinterpret_cast<PyVarObject*>(o), fs().variant_type, n);
    if (g_runtime.version < 0x03080000) Py_INCREF(fs().variant_type);
  } else {
    auto alloc = reinterpret_cast<allocfunc>(PyType_GetSlot(fs().variant_type, Py_tp_alloc));
    o = alloc(fs().variant_type, n);  // zeroed and tracked
    if (o == nullptr) return nullptr;
  }
  auto* v = reinterpret_cast<VariantObject*>(o);
  Py_INCREF(self);
  v->self = self;
  Py_XINCREF(b.params.get());
  v->params = b.params.get();
  v->op = &op;
  v->index = index;
  v->vectorcall = variant_vectorcall;
  for (Py_ssize_t i = 0; i < n; ++i) {
    Py_INCREF(b.values[i]);
    v->args[i] = b.values[i];
  }
  if (spare) PyObject_GC_Track(o);
  return Ref::steal(o);
}

}  // namespace raid
