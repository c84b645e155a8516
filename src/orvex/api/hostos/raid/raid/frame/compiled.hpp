// Compiled rows: every name and text of a row as an interned Python string,
// made once when the class is built (compile.cpp), read on every call.
#pragma once

#include <Python.h>

#include <cstddef>
#include <string>
#include <vector>

#include "frame.hpp"

namespace raid {

using py::Ref;

struct CParam {
  Ref name;      // interned
  Ref key;       // key in params; null when not stored
  Ref fallback;  // default value; null when required
  Kind kind;
  mutable Ref missing;  // "needs keyword-only argument" message, made on first use
};

struct CPair {
  Ref from;
  Ref to;
};

struct CEdit {
  Edit::Op op;
  Ref key;
  Ref other;
  Ref text;
  std::vector<CPair> table;
  Prep prep;
  Missing missing;
};

// A text that may name params values in braces: literal pieces and params
// keys, alternating as written.  Without braces it is `plain` alone.
struct CText {
  Ref plain;
  struct Piece {
    Ref literal;  // or
    Ref key;      // params.get(key), as text
  };
  std::vector<Piece> pieces;
};

struct CShape {
  Shape::Op op;
  Ref name;
  CText key;  // at/get/wrap
  Ref text;   // refuse_on: the message; lookup: the fallback
  std::vector<CPair> table;
  Missing missing;
};

struct CVariant {
  const VariantDef* def;
  Ref text;  // wrapper name or refusal message
  std::vector<CEdit> edits;
  std::vector<CShape> shapes;
  Ref choose_key;
  std::vector<CPair> choices;
  Ref head;
  Ref tail;
};

struct CompiledOp {
  const OpDef* def = nullptr;
  std::size_t index = 0;
  std::vector<CParam> params;
  Py_ssize_t npos = 0;        // positional-or-keyword parameters
  Py_ssize_t nrequired = 0;   // ... of which without a default
  Py_ssize_t catch_all = -1;  // slot of **kwargs, or -1
  bool only_self = false;     // no parameters at all
  bool builds_params = false;
  Ref name;                    // interned operation name
  Ref variant_name;            // interned __name__ of the variants
  std::string doc;             // the builtin's text signature + documentation
  std::string text_signature;  // "($self, /, ...)" of the class attribute
  PyMethodDef method{};
  std::vector<CVariant> variants;
  PyObject* function = nullptr;      // the builtin bound to the operation object
  mutable std::vector<Ref> too_few;  // count messages by arguments given, made on first use
  mutable Ref registration;          // the registrations as Python (before 3.12), on first use
};

// A declaration the frame cannot run: SystemError("Raid.<op>: <what><detail>").
Ref declaration_error(const char* op, const char* what, const char* detail);
bool is_identifier(const char* s);
// The binder's view of the parameters, the text signature and documentation.
int compile_params(CompiledOp& op);
// The variants with their edits, shape steps and choices; -1 on a row the
// frame cannot run.
int compile_variants(CompiledOp& op);

}  // namespace raid
