// Operation entry: the binding, then the variants registered through the
// framework's decorator (read afresh from self.distributor) and the last
// registration called.
#include "frame_state.hpp"
#include "objects.hpp"
#include "runtime.hpp"

namespace raid {

using namespace py;

namespace {

// Before 3.12 an operation's registrations and its final call run as one
// Python function, made on its first call:
//
//   def register(s, v0, v1, v2):
//       s.distributor(raid_tool='arcconf')(v0)
//       s.distributor(raid_tool='sorbctl')(v1)
//       return s.distributor(raid_tool='storcli64')(v2)()
//
// That limited API has no call with keyword names: a call from C would take
// a dict that the interpreter unpacks again, and each call from C starts
// the evaluation loop anew.  Python code passes the keyword on without a
// dict and makes all the calls in one frame.  Up to four variants (the
// object and four arguments stay on the interpreter's stack); more register
// one by one from C.
constexpr std::size_t kRegisteredInPython = 4;

Ref make_registration(const CompiledOp& op) {
  Ref source = format("def register(s%s):\n", op.variants.size() == 1   ? ", v0"
                                              : op.variants.size() == 2 ? ", v0, v1"
                                              : op.variants.size() == 3 ? ", v0, v1, v2"
                                                                        : ", v0, v1, v2, v3");
  for (std::size_t i = 0; i < op.variants.size() && source; ++i) {
    const bool last = i + 1 == op.variants.size();
    Ref line = format("    %ss.distributor(raid_tool=%R)(v%d)%s\n", last ? "return " : "",
                      tool_string(op.def->variants[i].tool), static_cast<int>(i), last ? "()" : "");
    source = concat({source.get(), line.get()});
  }
  Ref builtins = Ref::steal(PyImport_ImportModule("builtins"));
  Ref file = str("<raid registration>");
  Ref mode = str("exec");
  Ref code = call_method(builtins.get(), "compile", {source.get(), file.get(), mode.get()});
  Ref space = dict();
  Ref done = call_method(builtins.get(), "exec", {code.get(), space.get()});
  return done ? index(space.get(), "register") : nullptr;
}

// The answer, when the operation declares its type: exactly that type or None.
Ref checked_result(const OpDef& def, Ref result) {
  if (!result || def.result == ResultType::any || result.get() == Py_None) return result;
  const bool ok = def.result == ResultType::dict ? PyDict_CheckExact(result.get())
                                                 : PyList_CheckExact(result.get());
  if (ok) return result;
  Ref tname = getattr(reinterpret_cast<PyObject*>(Py_TYPE(result.get())), names().name);
  if (tname) {
    PyErr_Format(PyExc_TypeError, "Expected %s, got %U",
                 def.result == ResultType::dict ? "dict" : "list", tname.get());
  }
  return nullptr;
}

}  // namespace

Ref make_distributor(PyObject* self, PyObject* tool) {
  Ref fields = Ref::steal(PyList_New(0));
  if (append(fields.get(), names().raid_tool) < 0) return nullptr;
  Ref name = str("Distributor");
  Ref type = call(fs().fw.namedtuple.get(), {name.get(), fields.get()});
  Ref record = call(type.get(), {tool});
  Ref built = call(fs().fw.obj_attr_decorator.get(), {record.get()});
  if (setattr(self, names().u_distributor, built.get()) < 0) return nullptr;
  return built;
}

Ref distributor_of(PyObject* self) {
  Ref current = getattr(self, names().u_distributor);
  const int set = truthy(current.get());
  if (set < 0) return nullptr;
  if (set == 1) return current;
  Ref dispatcher = getattr(self, names().dispatcher);
  Ref tool = call_method(dispatcher.get(), "get_raid_tool");
  if (!tool) return nullptr;
  return make_distributor(self, tool.get());
}

Ref run_op(const CompiledOp& op, PyObject* const* args, Py_ssize_t nargs, const Keywords& kw) {
  Bound b;
  if (bind(op, args, nargs, kw, b) < 0) return nullptr;
  PyObject* self = args[0];
  const OpDef& def = *op.def;
  if (def.direct != nullptr) return def.direct(self, b.values);

  const std::size_t n = op.variants.size();
  if (g_runtime.vectorcall == nullptr && n >= 1 && n <= kRegisteredInPython) {
    if (!op.registration) op.registration = make_registration(op);
    if (!op.registration) return nullptr;
    PyObject* stack[1 + 1 + kRegisteredInPython];  // a free slot, self, the variants
    Ref made[kRegisteredInPython];
    stack[1] = self;
    for (std::size_t i = 0; i < n; ++i) {
      made[i] = new_variant(self, b, op, i);
      if (!made[i]) return nullptr;
      stack[2 + i] = made[i].get();
    }
    Ref result = Ref::steal(vcall(op.registration.get(), stack + 1, 1 + n, nullptr));
    return checked_result(def, std::move(result));
  }
  Ref last;
  for (std::size_t i = 0; i < n; ++i) {
    Ref dist = getattr(self, names().distributor);
    if (!dist) return nullptr;
    PyObject* stack[2] = {nullptr, tool_string(def.variants[i].tool)};
    Ref decorator = Ref::steal(vcall(dist.get(), stack + 1, 0, names().raid_tool_kw));
    if (!decorator) return nullptr;
    Ref variant = new_variant(self, b, op, i);
    if (!variant) return nullptr;
    PyObject* vstack[2] = {nullptr, variant.get()};
    last = Ref::steal(vcall(decorator.get(), vstack + 1, 1, nullptr));
    if (!last) return nullptr;
  }
  return checked_result(def, call(last.get()));
}

}  // namespace raid
