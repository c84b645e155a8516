// The frame's Python object types: variant objects (what the framework
// registers and calls) and operation objects (the class attributes), with
// the entry of an operation call.
#pragma once

#include <Python.h>

#include <cstddef>

#include "binding.hpp"

namespace raid {

// The type of the variant objects (variant_object.cpp).
PyTypeObject* make_variant_type();
// A variant object for variant `index` of op, holding self, params and the
// bound arguments.
Ref new_variant(PyObject* self, const Bound& b, const CompiledOp& op, std::size_t index);

// The type of the operation objects (op_object.cpp).
PyTypeObject* make_op_type();
// The operation objects of the rows from `first` on, by name (an earlier,
// failed import keeps its own).
Ref compile_all(PyObject* module_name, std::size_t first);

// One call of an operation (entry.cpp): binding, then the direct function or
// the variants' registration and the final call.
Ref run_op(const CompiledOp& op, PyObject* const* args, Py_ssize_t nargs, const Keywords& kw);
// The registration decorator of self's current tool, made and kept on self.
Ref make_distributor(PyObject* self, PyObject* tool);
Ref distributor_of(PyObject* self);

}  // namespace raid
