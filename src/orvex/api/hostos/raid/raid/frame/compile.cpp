// Checking and compiling a row: its parameters (binder, text signature)
// and its variants (edits, shape steps, choices), once per interpreter.
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "compiled.hpp"

namespace raid {

using namespace py;

Ref declaration_error(const char* op, const char* what, const char* detail) {
  PyErr_Format(PyExc_SystemError, "Raid.%s: %s%s", op, what, detail == nullptr ? "" : detail);
  return nullptr;
}

bool is_identifier(const char* s) {
  if (s == nullptr || *s == '\0' || (*s >= '0' && *s <= '9')) return false;
  for (; *s != '\0'; ++s) {
    const char ch = *s;
    const bool ok = (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') ||
                    (ch >= '0' && ch <= '9') || ch == '_';
    if (!ok) return false;
  }
  return true;
}

namespace {

// A default literal: None, True, False, an integer or a quoted string
// without escapes.  Empty Ref (no error set) for anything else.
Ref parse_literal(const char* text) {
  const std::size_t n = std::strlen(text);
  if (std::strcmp(text, "None") == 0) return none();
  if (std::strcmp(text, "True") == 0) return boolean(true);
  if (std::strcmp(text, "False") == 0) return boolean(false);
  if (n >= 2 && (text[0] == '\'' || text[0] == '"') && text[n - 1] == text[0]) {
    const std::string body(text + 1, n - 2);
    if (body.find(text[0]) != std::string::npos || body.find('\\') != std::string::npos) {
      return nullptr;
    }
    return Ref::steal(PyUnicode_FromStringAndSize(body.data(), static_cast<Py_ssize_t>(n - 2)));
  }
  std::size_t i = (text[0] == '-') ? 1 : 0;
  if (i == n) return nullptr;
  for (; i < n; ++i) {
    if (text[i] < '0' || text[i] > '9') return nullptr;
  }
  return Ref::steal(PyLong_FromString(text, nullptr, 10));
}

std::vector<CPair> compile_pairs(const std::vector<Pair>& pairs, bool* ok) {
  std::vector<CPair> out;
  for (const Pair& p : pairs) {
    CPair c{intern(p.from), intern(p.to)};
    if (!c.from || !c.to) *ok = false;
    out.push_back(std::move(c));
  }
  return out;
}

// "a{k}b" -> pieces "a", params key k, "b"; false (no error set) for an
// unclosed brace.
bool compile_text(const char* text, CText* out, bool* ok) {
  out->plain = intern(text);
  *ok = *ok && out->plain;
  if (std::strchr(text, '{') == nullptr) return true;
  const std::string all(text);
  std::size_t at = 0;
  while (at < all.size()) {
    const std::size_t open = all.find('{', at);
    const std::size_t end = open == std::string::npos ? all.size() : open;
    if (end > at) {
      CText::Piece piece{str(all.substr(at, end - at).c_str()), nullptr};
      *ok = *ok && piece.literal;
      out->pieces.push_back(std::move(piece));
    }
    if (open == std::string::npos) break;
    const std::size_t close = all.find('}', open);
    if (close == std::string::npos) return false;
    CText::Piece piece{nullptr, intern(all.substr(open + 1, close - open - 1).c_str())};
    *ok = *ok && piece.key;
    out->pieces.push_back(std::move(piece));
    at = close + 1;
  }
  return true;
}

}  // namespace

int compile_params(CompiledOp& op) {
  const OpDef& def = *op.def;
  const char* name = def.name;
  std::string sig = std::string(name) + "($operation, self, /";
  Kind last = Kind::positional;
  bool seen_default = false;
  bool star_written = false;
  for (std::size_t i = 0; i < def.params.size(); ++i) {
    const ParamDef& p = def.params[i];
    if (!is_identifier(p.name)) {
      declaration_error(name, "bad parameter name ", p.name == nullptr ? "(null)" : p.name);
      return -1;
    }
    if (std::strcmp(p.name, "self") == 0) {
      declaration_error(name, "a parameter named self", nullptr);
      return -1;
    }
    for (std::size_t j = 0; j < i; ++j) {
      if (std::strcmp(def.params[j].name, p.name) == 0) {
        declaration_error(name, "duplicate parameter ", p.name);
        return -1;
      }
    }
    if (static_cast<int>(p.kind) < static_cast<int>(last) || last == Kind::catch_all) {
      declaration_error(name, "parameters out of order (positional, keyword-only, catch-all) at ",
                        p.name);
      return -1;
    }
    last = p.kind;
    CParam c;
    c.kind = p.kind;
    c.name = intern(p.name);
    if (!c.name) return -1;
    if (p.kind == Kind::catch_all) {
      if (p.fallback != nullptr || p.key != nullptr) {
        declaration_error(name, "a catch-all with a default or a key: ", p.name);
        return -1;
      }
      op.catch_all = static_cast<Py_ssize_t>(i);
      sig.append(", **").append(p.name);
      op.params.push_back(std::move(c));
      continue;
    }
    if (p.stored) {
      c.key = intern(p.key != nullptr ? p.key : p.name);
      if (!c.key) return -1;
    }
    if (p.fallback != nullptr) {
      c.fallback = parse_literal(p.fallback);
      if (!c.fallback) {
        if (PyErr_Occurred() == nullptr) {
          declaration_error(name, "unknown default literal ", p.fallback);
        }
        return -1;
      }
    }
    if (p.kind == Kind::positional) {
      if (p.fallback != nullptr) {
        seen_default = true;
      } else if (seen_default) {
        declaration_error(name, "a required parameter after one with a default: ", p.name);
        return -1;
      } else {
        ++op.nrequired;
      }
      ++op.npos;
    } else if (!star_written) {
      sig.append(", *");
      star_written = true;
    }
    sig.append(", ").append(p.name);
    if (p.fallback != nullptr) sig.append("=").append(p.fallback);
    op.params.push_back(std::move(c));
  }
  // Extras come only through a catch-all and never repeat a name.
  for (std::size_t i = 0; i < def.extras.size(); ++i) {
    const ParamDef& e = def.extras[i];
    if (!is_identifier(e.name) || e.kind != Kind::extra || e.fallback != nullptr ||
        e.key != nullptr) {
      declaration_error(name, "not an extra: ", e.name == nullptr ? "(null)" : e.name);
      return -1;
    }
    if (op.catch_all < 0) {
      declaration_error(name, "an extra without a catch-all: ", e.name);
      return -1;
    }
    for (const ParamDef& p : def.params) {
      if (std::strcmp(p.name, e.name) == 0)
        return declaration_error(name, "duplicate parameter ", e.name), -1;
    }
    for (std::size_t j = 0; j < i; ++j) {
      if (std::strcmp(def.extras[j].name, e.name) == 0)
        return declaration_error(name, "duplicate parameter ", e.name), -1;
    }
  }
  for (const ParamDef& p : def.params) {
    if (p.kind == Kind::extra)
      return declaration_error(name, "an extra among the parameters: ", p.name), -1;
  }
  op.only_self = def.params.empty();
  op.builds_params = def.build != nullptr || !def.params.empty();
  sig.append(")");
  op.text_signature = "($self" + sig.substr(sig.find(", self") + 6);
  sig.append("\n--\n\n").append(def.doc == nullptr ? "" : def.doc);
  op.doc = std::move(sig);
  return 0;
}

int compile_variants(CompiledOp& op) {
  const OpDef& def = *op.def;
  const char* name = def.name;
  if (def.direct != nullptr) {
    if (!def.variants.empty()) {
      declaration_error(name, "a direct operation with variants", nullptr);
      return -1;
    }
    return 0;
  }
  if (def.variants.empty()) {
    declaration_error(name, "no variants", nullptr);
    return -1;
  }
  for (const VariantDef& v : def.variants) {
    CVariant c;
    c.def = &v;
    bool ok = true;
    const bool chosen = v.choose_key != nullptr;
    switch (v.form) {
      case Form::custom:
        if (v.body == nullptr)
          return declaration_error(name, "a custom variant without a body", nullptr), -1;
        break;
      case Form::refusal:
      case Form::query:
      case Form::checked:
      case Form::action:
        if (v.text == nullptr && !(chosen && (v.form == Form::checked || v.form == Form::action))) {
          declaration_error(name, "a variant without its wrapper or message", nullptr);
          return -1;
        }
        break;
    }
    if (v.text != nullptr) {
      c.text = intern(v.text);
      ok = ok && c.text;
    }
    if ((!v.edits.empty() || chosen) && !op.builds_params) {
      declaration_error(name, "edits of params in an operation that builds none", nullptr);
      return -1;
    }
    for (const Edit& e : v.edits) {
      CEdit ce;
      ce.op = e.op;
      ce.prep = e.prep;
      ce.missing = e.missing;
      if (e.op == Edit::Op::fn) {
        if (e.prep == nullptr)
          return declaration_error(name, "a prep edit without its function", nullptr), -1;
      } else if (e.key == nullptr) {
        declaration_error(name, "an edit without its key", nullptr);
        return -1;
      } else {
        ce.key = intern(e.key);
        ok = ok && ce.key;
      }
      const bool needs_other = e.op != Edit::Op::fn && e.op != Edit::Op::lookup;
      if (needs_other && e.other == nullptr)
        return declaration_error(name, "an edit without its text or new key ", e.key), -1;
      if (e.other != nullptr) {
        ce.other = intern(e.other);
        ok = ok && ce.other;
      }
      if (e.op == Edit::Op::lookup && (e.missing == Missing::fallback) != (e.text != nullptr))
        return declaration_error(name, "a lookup's fallback without Missing::fallback ", e.key), -1;
      if (e.text != nullptr) {
        ce.text = intern(e.text);
        ok = ok && ce.text;
      }
      ce.table = compile_pairs(e.table, &ok);
      c.edits.push_back(std::move(ce));
    }
    if (!v.shapes.empty() && v.form != Form::query) {
      declaration_error(name, "shape steps on a variant that is not a query", nullptr);
      return -1;
    }
    for (const Shape& s : v.shapes) {
      CShape cs;
      cs.op = s.op;
      const bool keyed = s.op == Shape::Op::at || s.op == Shape::Op::get || s.op == Shape::Op::wrap;
      const bool needs_name = keyed || s.op == Shape::Op::post || s.op == Shape::Op::method;
      const bool needs_text = s.op == Shape::Op::refuse_on;
      if ((needs_name && s.name == nullptr) || (needs_text && s.text == nullptr))
        return declaration_error(name, "a shape step without its name or text", nullptr), -1;
      bool closed = true;
      if (keyed) {
        closed = compile_text(s.name, &cs.key, &ok);
      } else if (s.name != nullptr) {
        cs.name = intern(s.name);
        ok = ok && cs.name;
      }
      if (s.text != nullptr) {
        cs.text = intern(s.text);
        ok = ok && cs.text;
      }
      if (!closed) return declaration_error(name, "an unclosed brace in ", s.name), -1;
      if (!cs.key.pieces.empty() && !op.builds_params)
        return declaration_error(name, "params values named in an operation without", nullptr), -1;
      if (s.op == Shape::Op::lookup && (s.missing == Missing::fallback) != (s.text != nullptr))
        return declaration_error(name, "a lookup's fallback without Missing::fallback", nullptr),
               -1;
      cs.missing = s.missing;
      cs.table = compile_pairs(s.table, &ok);
      c.shapes.push_back(std::move(cs));
    }
    for (const ExtraNote& n : v.notes) {
      if (n.name == nullptr)
        return declaration_error(name, "a note without its extra", nullptr), -1;
      bool known = false;
      for (const ParamDef& p : def.params) known = known || std::strcmp(p.name, n.name) == 0;
      for (const ParamDef& p : def.extras) known = known || std::strcmp(p.name, n.name) == 0;
      if (!known) return declaration_error(name, "a note on an undeclared extra: ", n.name), -1;
    }
    if (chosen) {
      if (v.refuse_head == nullptr || v.choices.empty()) {
        declaration_error(name, "a choice without its wrappers or refusal", nullptr);
        return -1;
      }
      c.choose_key = intern(v.choose_key);
      c.head = intern(v.refuse_head);
      ok = ok && c.choose_key && c.head;
      if (v.refuse_tail != nullptr) {
        c.tail = intern(v.refuse_tail);
        ok = ok && c.tail;
      }
      c.choices = compile_pairs(v.choices, &ok);
    }
    if (!ok) return -1;
    op.variants.push_back(std::move(c));
  }
  return 0;
}

}  // namespace raid
