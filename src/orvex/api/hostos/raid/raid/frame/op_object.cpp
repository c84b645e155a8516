// Operation objects: the class attribute of one operation, a method
// descriptor (signature, documentation, help).  Read from an object it gives
// the operation's builtin function (its self is the operation object) bound
// to that object as a method.
#include <string>
#include <vector>

#include "frame_state.hpp"
#include "objects.hpp"
#include "runtime.hpp"
#include "structmember.h"

namespace raid {

using namespace py;

namespace {

struct OpObject {
  PyObject_HEAD const CompiledOp* op;
  py::Vectorcall vectorcall;  // called unbound by the interpreter (3.9+)
};

const CompiledOp& op_of(PyObject* o) { return *reinterpret_cast<OpObject*>(o)->op; }

PyObject* op_fast(PyObject* o, PyObject* const* args, Py_ssize_t nargs, PyObject* kwnames) {
  Keywords kw;
  if (kwnames != nullptr && PyTuple_Size(kwnames) > 0) {
    kw.names = kwnames;
    kw.values = args + nargs;
  }
  return run_op(op_of(o), args, nargs, kw).release();
}

// raid.<operation>(...) from 3.9 on: the interpreter calls the class
// attribute with the object first, without binding a method.
PyObject* op_vectorcall(PyObject* o, PyObject* const* args, std::size_t nargsf, PyObject* kwnames) {
  return op_fast(o, args, static_cast<Py_ssize_t>(nargsf & ~kVectorcallOffset), kwnames);
}

PyObject* op_tuple(PyObject* o, PyObject* args, PyObject* kwargs) {
  const Py_ssize_t nargs = PyTuple_Size(args);
  Keywords kw;
  if (kwargs != nullptr && PyDict_Size(kwargs) > 0) kw.dict = kwargs;
  PyObject* small[12] = {};
  std::vector<PyObject*> big;
  PyObject** stack = small;
  if (nargs > 12) {
    big.resize(static_cast<std::size_t>(nargs));
    stack = big.data();
  }
  for (Py_ssize_t i = 0; i < nargs; ++i) {
    stack[i] = PyTuple_GetItem(args, i);  // borrowed
    if (stack[i] == nullptr) return nullptr;
  }
  return run_op(op_of(o), stack, nargs, kw).release();
}

PyObject* op_descr_get(PyObject* o, PyObject* obj, PyObject*) {
  if (obj == nullptr || obj == Py_None) {
    Py_INCREF(o);
    return o;
  }
  // types.MethodType(f, obj): PyMethod_New is outside the limited API.
  // From 3.9 a call raid.<operation>(...) does not come here (the type is a
  // method descriptor).
  PyObject* f = op_of(o).function;
  return call(fs().fw.method_type.get(), {f, obj}).release();
}

// Raid.<operation>(raid, ...)
PyObject* op_call(PyObject* o, PyObject* args, PyObject* kwargs) {
  return PyObject_Call(op_of(o).function, args, kwargs);
}

// The declaration, for the type stub and the reference of operations:
// ((name, kind, default, type), ...), the declared parameters, then the
// extras (kind "extra", default None).
PyObject* op_parameters_get(PyObject* o, void*) {
  const OpDef& def = *op_of(o).def;
  const std::size_t n = def.params.size() + def.extras.size();
  Ref out = Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(n)));
  if (!out) return nullptr;
  static const char* const kinds[] = {"positional", "keyword_only", "catch_all", "extra"};
  for (std::size_t i = 0; i < n; ++i) {
    const ParamDef& p = i < def.params.size() ? def.params[i] : def.extras[i - def.params.size()];
    PyObject* entry =
        Py_BuildValue("(sszs)", p.name, kinds[static_cast<int>(p.kind)], p.fallback, p.type);
    if (entry == nullptr) return nullptr;
    PyTuple_SetItem(out.get(), static_cast<Py_ssize_t>(i), entry);
  }
  return out.release();
}

// True when the extras are every keyword the operation takes.
PyObject* op_extras_complete_get(PyObject* o, void*) {
  return boolean(op_of(o).def->extras_complete).release();
}

// A tuple of texts (empty strings dropped).
Ref text_tuple(const std::vector<const char*>& texts) {
  Ref out = Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(texts.size())));
  if (!out) return nullptr;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    PyObject* t = PyUnicode_FromString(texts[i]);
    if (t == nullptr) return nullptr;
    PyTuple_SetItem(out.get(), static_cast<Py_ssize_t>(i), t);
  }
  return out;
}

// One variant as the reference of operations reads it: (tool, form,
// wrappers, messages, route, calls, notes).  wrappers: what it dispatches,
// in order (a prep's first try, the wrapper, the choices by value, a computed
// variant's typed wrappers); messages: what it raises (a message with "{}"
// is completed by a value); calls: other operations of the object it calls;
// notes: ((extra, "reads" or "ignores", detail or None), ...).
Ref variant_record(const VariantDef& v) {
  static const char* const forms[] = {"refusal", "checked", "action", "query", "custom"};
  static const char* const routes[] = {"self", "host", "dispatcher"};
  std::vector<const char*> wrappers;
  std::vector<const char*> messages;
  std::vector<const char*> calls;
  std::vector<std::string> composed;  // keeps the composed messages alive
  // The typed texts; a computed variant whose wrappers all go one way
  // shows that route.
  Route route = v.route;
  bool one_route = true;
  for (const TextNote& t : v.texts) {
    if (t.kind == TextKind::wrapper) {
      one_route = one_route && (wrappers.empty() || t.route == route);
      route = t.route;
      wrappers.push_back(t.text);
    }
    if (t.kind == TextKind::message) messages.push_back(t.text);
    if (t.kind == TextKind::call) calls.push_back(t.text);
  }
  if (v.text != nullptr || !one_route) route = v.route;
  if (v.form == Form::refusal) {
    messages.push_back(v.text);
  } else if (v.text != nullptr) {
    wrappers.push_back(v.text);
  }
  for (const Pair& choice : v.choices) wrappers.push_back(choice.to);
  if (v.choose_key != nullptr) {
    composed.emplace_back(v.refuse_head);
    if (v.refuse_tail != nullptr) composed.back().append("{}").append(v.refuse_tail);
  }
  for (const Shape& s : v.shapes) {
    if (s.op == Shape::Op::refuse_on) messages.push_back(s.text);
  }
  for (const std::string& m : composed) messages.push_back(m.c_str());
  Ref notes = Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(v.notes.size())));
  if (!notes) return nullptr;
  for (std::size_t i = 0; i < v.notes.size(); ++i) {
    const ExtraNote& n = v.notes[i];
    PyObject* entry = Py_BuildValue("(ssz)", n.name, n.verb, n.detail);
    if (entry == nullptr) return nullptr;
    PyTuple_SetItem(notes.get(), static_cast<Py_ssize_t>(i), entry);
  }
  Ref w = text_tuple(wrappers);
  Ref m = text_tuple(messages);
  Ref c = text_tuple(calls);
  if (!w || !m || !c) return nullptr;
  return Ref::steal(Py_BuildValue("(OsOOsOO)", tool_string(v.tool), forms[static_cast<int>(v.form)],
                                  w.get(), m.get(), routes[static_cast<int>(route)], c.get(),
                                  notes.get()));
}

// The variants in registration order (see variant_record); () for the
// object's own operations.
PyObject* op_variants_get(PyObject* o, void*) {
  const OpDef& def = *op_of(o).def;
  Ref out = Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(def.variants.size())));
  if (!out) return nullptr;
  for (std::size_t i = 0; i < def.variants.size(); ++i) {
    Ref record = variant_record(def.variants[i]);
    if (!record) return nullptr;
    PyTuple_SetItem(out.get(), static_cast<Py_ssize_t>(i), record.release());
  }
  return out.release();
}

// The result type as declared: the row's annotation, its checked result
// type, or bool when every variant that runs is a checked action.
PyObject* op_returns_get(PyObject* o, void*) {
  const OpDef& def = *op_of(o).def;
  if (def.returns_doc != nullptr) return PyUnicode_FromString(def.returns_doc);
  if (def.result == ResultType::dict) return PyUnicode_FromString("dict");
  if (def.result == ResultType::list) return PyUnicode_FromString("list");
  bool checked_only = def.direct == nullptr;
  bool any_checked = false;
  for (const VariantDef& v : def.variants) {
    any_checked = any_checked || v.form == Form::checked;
    checked_only = checked_only && (v.form == Form::checked || v.form == Form::refusal);
  }
  if (checked_only && any_checked) return PyUnicode_FromString("bool");
  Py_RETURN_NONE;
}

PyObject* op_name_get(PyObject* o, void*) {
  PyObject* n = op_of(o).name.get();
  Py_INCREF(n);
  return n;
}

PyObject* op_doc_get(PyObject* o, void*) {
  const char* doc = op_of(o).def->doc;
  return PyUnicode_FromString(doc == nullptr ? "" : doc);
}

PyObject* op_qualname_get(PyObject* o, void*) {
  return PyUnicode_FromFormat("Raid.%U", op_of(o).name.get());
}

PyObject* op_text_signature_get(PyObject* o, void*) {
  return PyUnicode_FromString(op_of(o).text_signature.c_str());
}

PyObject* op_objclass_get(PyObject*, void*) {
  PyObject* cls = reinterpret_cast<PyObject*>(fs().raid_type);
  if (cls == nullptr) cls = Py_None;
  Py_INCREF(cls);
  return cls;
}

PyObject* op_repr(PyObject* o) {
  return PyUnicode_FromFormat("<method '%U' of 'Raid' objects>", op_of(o).name.get());
}

PyGetSetDef op_getset[] = {
    {const_cast<char*>("__name__"), op_name_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("__qualname__"), op_qualname_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("__doc__"), op_doc_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("__text_signature__"), op_text_signature_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("__objclass__"), op_objclass_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("parameters"), op_parameters_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("returns"), op_returns_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("extras_complete"), op_extras_complete_get, nullptr, nullptr, nullptr},
    {const_cast<char*>("variants"), op_variants_get, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMemberDef op_members[] = {
    {const_cast<char*>("__vectorcalloffset__"), T_PYSSIZET,
     static_cast<Py_ssize_t>(offsetof(OpObject, vectorcall)), READONLY, nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

PyType_Slot op_slots[] = {
    {Py_tp_members, op_members},
    {Py_tp_descr_get, reinterpret_cast<void*>(op_descr_get)},
    {Py_tp_call, reinterpret_cast<void*>(op_call)},
    {Py_tp_getset, op_getset},
    {Py_tp_repr, reinterpret_cast<void*>(op_repr)},
    {0, nullptr},
};

PyType_Spec op_spec = {
    "orvex.api.hostos.raid.raid.operation",
    static_cast<int>(sizeof(OpObject)),
    0,
    Py_TPFLAGS_DEFAULT,
    op_slots,
};

}  // namespace

PyTypeObject* make_op_type() {
  // From 3.9 the interpreter calls an operation as a method descriptor,
  // through its vectorcall slot, without binding a method first.
  if (g_runtime.version >= 0x03090000) op_spec.flags |= kTypeVectorcall | kTypeMethodDescriptor;
  return reinterpret_cast<PyTypeObject*>(PyType_FromSpec(&op_spec));
}

Ref compile_all(PyObject* module_name, std::size_t first) {
  const int flags = (g_runtime.fastcall ? kMethFastcall : METH_VARARGS) | METH_KEYWORDS;
  PyCFunction entry = g_runtime.fastcall
                          ? reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(op_fast))
                          : reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(op_tuple));
  Ref ns = Ref::steal(PyDict_New());
  if (!ns) return nullptr;
  for (std::size_t i = first; i < fs().defs.size(); ++i) {
    fs().ops.emplace_back();
    fs().ops.back().too_few.resize(fs().defs[i].params.size() + 2);
    CompiledOp& op = fs().ops.back();
    op.def = &fs().defs[i];
    op.index = i;
    const OpDef& def = fs().defs[i];
    if (def.name == nullptr || !is_identifier(def.name)) {
      return raise(PyExc_SystemError, "Raid: an operation without a valid name");
    }
    op.name = intern(def.name);
    op.variant_name = intern(def.variant_name != nullptr ? def.variant_name : def.name);
    if (!op.name || !op.variant_name) return nullptr;
    if (PyDict_GetItemWithError(ns.get(), op.name.get()) != nullptr) {
      return declaration_error(def.name, "a second row of that name", nullptr);
    }
    if (compile_params(op) < 0 || compile_variants(op) < 0) return nullptr;
    op.method = PyMethodDef{def.name, entry, flags, op.doc.c_str()};
    PyObject* o = PyType_GenericAlloc(fs().op_type, 0);
    if (o == nullptr) return nullptr;
    Ref holder = Ref::steal(o);
    reinterpret_cast<OpObject*>(o)->op = &op;
    reinterpret_cast<OpObject*>(o)->vectorcall = op_vectorcall;
    // Kept for the process, like the operation itself.
    op.function = PyCFunction_NewEx(&op.method, o, module_name);
    if (op.function == nullptr) return nullptr;
    if (PyDict_SetItem(ns.get(), op.name.get(), o) < 0) return nullptr;
  }
  return ns;
}

}  // namespace raid
