// The forms at run time: a variant's edits, its dispatch and the shaping of
// its answer, as the row's declaration (frame.hpp) describes them.
#pragma once

#include <Python.h>

#include <cstddef>

#include "compiled.hpp"

namespace raid {

// Runs variant `at` of op for self with params and the bound arguments.
Ref run_variant(const CompiledOp& op, std::size_t at, PyObject* self, PyObject* params,
                PyObject* const* args);

// wrapper dispatched through route r with p (the name alone when p is null).
Ref dispatch_name(const Call& c, PyObject* wrapper, PyObject* p, Route r);

}  // namespace raid
