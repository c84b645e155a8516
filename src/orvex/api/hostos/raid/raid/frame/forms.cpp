#include "forms.hpp"

#include <utility>
#include <vector>

#include "helpers.hpp"
#include "lookup.hpp"
#include "runtime.hpp"

namespace raid {

using namespace py;

Ref dispatch_name(const Call& c, PyObject* wrapper, PyObject* p, Route r) {
  if (wrapper == nullptr) return nullptr;
  Ref target = Ref::borrow(c.self);
  if (r == Route::host) target = getattr(c.self, names().host);
  if (r == Route::dispatcher) target = getattr(c.self, names().dispatcher);
  if (p == nullptr) return call_method(target.get(), names().dispatch, {wrapper});
  return call_method(target.get(), names().dispatch, {wrapper, p});
}

namespace {

// The text with the params values it names filled in.
Ref expand(const Call& c, const CText& t) {
  if (t.pieces.empty()) return t.plain;
  Ref out = Ref::borrow(names().empty);
  for (const CText::Piece& piece : t.pieces) {
    Ref part = piece.literal;
    if (!part) {
      Ref value = get(c.params, piece.key.get());
      part = to_str(value.get());
    }
    out = concat({out.get(), part.get()});
    if (!out) return nullptr;
  }
  return out;
}

// Applies the edits: 0, or -1 on error.
int apply_edits(const Call& c, const CVariant& v) {
  for (const CEdit& e : v.edits) {
    PyObject* params = c.params;
    switch (e.op) {
      case Edit::Op::put:
        if (PyDict_SetItem(params, e.key.get(), e.other.get()) < 0) return -1;
        break;
      case Edit::Op::rename: {
        Ref value = call_method(params, names().pop, {e.key.get()});
        if (!value || PyDict_SetItem(params, e.other.get(), value.get()) < 0) return -1;
        break;
      }
      case Edit::Op::copy: {
        Ref value = get(params, e.key.get());
        if (!value || PyDict_SetItem(params, e.other.get(), value.get()) < 0) return -1;
        break;
      }
      case Edit::Op::lookup: {
        Ref value = get(params, e.key.get());
        bool listed = false;
        Ref to = lookup(value.get(), e.table, e.missing, e.text.get(), &listed);
        if (!to) return -1;
        if (!listed && e.missing == Missing::keep) break;
        PyObject* target = e.other ? e.other.get() : e.key.get();
        if (PyDict_SetItem(params, target, to.get()) < 0) return -1;
        break;
      }
      case Edit::Op::fn:
        if (e.prep(c) < 0) return -1;
        break;
    }
  }
  return 0;
}

// The wrapper of a variant: its own, or the one chosen by a params value.
Ref wrapper_of(const Call& c, const CVariant& v) {
  if (!v.choose_key) return v.text;
  Ref value = index(c.params, v.choose_key.get());
  if (!value) return nullptr;
  for (const CPair& p : v.choices) {
    const int eq = equal(value.get(), p.from.get());
    if (eq < 0) return nullptr;
    if (eq == 0) continue;
    return p.to;
  }
  if (!v.tail) return raise_orvex(v.head.get());
  Ref message = concat({v.head.get(), value.get(), v.tail.get()});
  return raise_orvex(message.get());
}

Ref shape(const Call& c, const CVariant& v, Ref x) {
  for (const CShape& s : v.shapes) {
    if (!x) return nullptr;
    switch (s.op) {
      case Shape::Op::at: {
        Ref key = expand(c, s.key);
        x = key ? index(x.get(), key.get()) : nullptr;
        break;
      }
      case Shape::Op::get: {
        Ref key = expand(c, s.key);
        x = key ? get(x.get(), key.get()) : nullptr;
        break;
      }
      case Shape::Op::wrap: {
        Ref key = expand(c, s.key);
        Ref out = dict();
        if (!key || !out || PyDict_SetItem(out.get(), key.get(), x.get()) < 0) return nullptr;
        x = std::move(out);
        break;
      }
      case Shape::Op::lookup:
        x = lookup(x.get(), s.table, s.missing, s.text.get());
        break;
      case Shape::Op::refuse_on: {
        int hit = 0;
        if (s.name) {
          hit = equal(x.get(), s.name.get());
        } else {
          const int given = truthy(x.get());
          hit = given < 0 ? -1 : static_cast<int>(given == 0);
        }
        if (hit < 0) return nullptr;
        if (hit == 0) break;
        return raise_orvex(s.text.get());
      }
      case Shape::Op::first:
        x = item(x.get(), 0);
        break;
      case Shape::Op::format:
        if (!s.name) {
          x = format_output(x.get(), c.tool_name(), nullptr, c.name());
        } else {
          Ref f = c.formatter();
          Ref tmpl = getattr(f.get(), s.name.get());
          if (!tmpl) return nullptr;
          x = format_output(x.get(), c.tool_name(), tmpl.get(), c.name());
        }
        break;
      case Shape::Op::post: {
        Ref f = c.formatter();
        x = call_method(f.get(), s.name.get(), {x.get()});
        break;
      }
      case Shape::Op::method:
        x = call_method(x.get(), s.name.get());
        break;
    }
  }
  return x;
}

}  // namespace

Ref run_variant(const CompiledOp& op, std::size_t at, PyObject* self, PyObject* params,
                PyObject* const* args) {
  const CVariant& v = op.variants[at];
  const VariantDef& def = *v.def;
  const Call c{self, params, args, *op.def, def, &op};
  if (def.form == Form::refusal) return raise_orvex(v.text.get());
  if (apply_edits(c, v) < 0) return nullptr;
  switch (def.form) {
    case Form::checked: {
      Ref wrapper = wrapper_of(c, v);
      Ref answer = dispatch_name(c, wrapper.get(), c.params, def.route);
      Ref first = item(answer.get(), 0);
      Ref entry = get(first.get(), names().parser);
      if (!entry) return nullptr;
      const int ok = Call::success(entry.get());
      return ok < 0 ? nullptr : boolean(ok == 1);
    }
    case Form::action: {
      Ref wrapper = wrapper_of(c, v);
      Ref answer = dispatch_name(c, wrapper.get(), c.params, def.route);
      Ref first = item(answer.get(), 0);
      return c.exec_format(first.get());
    }
    case Form::query: {
      Ref answer = dispatch_name(c, v.text.get(), c.params, def.route);
      Ref first = item(answer.get(), 0);
      Ref entry = def.from == VariantDef::From::parser_strict ? index(first.get(), names().parser)
                                                              : get(first.get(), names().parser);
      return shape(c, v, std::move(entry));
    }
    case Form::custom:
      return def.body(c);
    case Form::refusal:
      break;
  }
  return raise(PyExc_SystemError, "unknown variant form");
}

}  // namespace raid
