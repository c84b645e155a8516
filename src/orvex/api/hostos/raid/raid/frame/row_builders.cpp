// The row builders: the variant constructors and the modifiers a row is
// written with (frame.hpp says what each one means).
#include <utility>
#include <vector>

#include "frame.hpp"

namespace raid {

namespace {

VariantDef variant(Tool t, Form f, const char* text) {
  VariantDef v{};
  v.tool = t;
  v.form = f;
  v.text = text;
  return v;
}

}  // namespace

VariantDef refuse(Tool t, const char* message) { return variant(t, Form::refusal, message); }
VariantDef checked(Tool t, const char* wrapper) { return variant(t, Form::checked, wrapper); }
VariantDef action(Tool t, const char* wrapper) { return variant(t, Form::action, wrapper); }
VariantDef query(Tool t, const char* wrapper) { return variant(t, Form::query, wrapper); }

VariantDef custom(Tool t, Body body) {
  VariantDef v = variant(t, Form::custom, nullptr);
  v.body = body;
  return v;
}

VariantDef checked_by(Tool t, const char* key, std::vector<Pair> wrappers, const char* head,
                      const char* tail) {
  VariantDef v = variant(t, Form::checked, nullptr);
  v.choose_key = key;
  v.choices = std::move(wrappers);
  v.refuse_head = head;
  v.refuse_tail = tail;
  return v;
}

namespace {

VariantDef with_edit(VariantDef&& v, Edit e) {
  v.edits.push_back(std::move(e));
  return std::move(v);
}

VariantDef with_shape(VariantDef&& v, Shape::Op op, const char* name, const char* text = nullptr,
                      std::vector<Pair> table = {}) {
  v.shapes.push_back(Shape{op, name, text, std::move(table)});
  return std::move(v);
}

}  // namespace

VariantDef VariantDef::via(Route r) && {
  route = r;
  return std::move(*this);
}
VariantDef VariantDef::put(const char* key, const char* text) && {
  return with_edit(std::move(*this), Edit{Edit::Op::put, key, text, {}, nullptr});
}
VariantDef VariantDef::rename(const char* key, const char* to) && {
  return with_edit(std::move(*this), Edit{Edit::Op::rename, key, to, {}, nullptr});
}
VariantDef VariantDef::copy(const char* key, const char* to) && {
  return with_edit(std::move(*this), Edit{Edit::Op::copy, key, to, {}, nullptr});
}
VariantDef VariantDef::lookup(const char* key, std::vector<Pair> table, Missing missing,
                              const char* into, const char* fallback) && {
  Edit e{Edit::Op::lookup, key, into, std::move(table), nullptr, fallback};
  e.missing = missing;
  return with_edit(std::move(*this), std::move(e));
}
VariantDef VariantDef::prep(Prep fn) && {
  return with_edit(std::move(*this), Edit{Edit::Op::fn, nullptr, nullptr, {}, fn});
}
VariantDef VariantDef::note(const char* extra_name, ExtraUse use, const char* detail) && {
  notes.push_back(ExtraNote{extra_name, use == ExtraUse::reads ? "reads" : "ignores", detail});
  return std::move(*this);
}
VariantDef VariantDef::strict() && {
  from = From::parser_strict;
  return std::move(*this);
}
VariantDef VariantDef::at(const char* key) && {
  return with_shape(std::move(*this), Shape::Op::at, key);
}
VariantDef VariantDef::get(const char* key) && {
  return with_shape(std::move(*this), Shape::Op::get, key);
}
VariantDef VariantDef::first() && {
  return with_shape(std::move(*this), Shape::Op::first, nullptr);
}
VariantDef VariantDef::format(const char* formatter_attr) && {
  return with_shape(std::move(*this), Shape::Op::format, formatter_attr);
}
VariantDef VariantDef::post(const char* formatter_method) && {
  return with_shape(std::move(*this), Shape::Op::post, formatter_method);
}
VariantDef VariantDef::method(const char* name) && {
  return with_shape(std::move(*this), Shape::Op::method, name);
}
VariantDef VariantDef::wrap(const char* key) && {
  return with_shape(std::move(*this), Shape::Op::wrap, key);
}
VariantDef VariantDef::lookup(std::vector<Pair> table, Missing missing, const char* fallback) && {
  VariantDef v =
      with_shape(std::move(*this), Shape::Op::lookup, nullptr, fallback, std::move(table));
  v.shapes.back().missing = missing;
  return v;
}
VariantDef VariantDef::refuse_on(const char* text, const char* message) && {
  return with_shape(std::move(*this), Shape::Op::refuse_on, text, message);
}
VariantDef VariantDef::refuse_on_empty(const char* message) && {
  return with_shape(std::move(*this), Shape::Op::refuse_on, nullptr, message);
}

}  // namespace raid
