// The Raid object: operation rows compiled once, argument binding, variant
// registration and selection, the variant forms, and the class built on the
// framework's base.
#include "frame.hpp"

#include <cstring>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "runtime.hpp"
#include "state.hpp"
#include "structmember.h"
#include "toolkit.hpp"

namespace raid {

using namespace py;

// ---------------------------------------------------------------------------
// Compiled rows: every name and text of a row as an interned Python string,
// made once when the class is built.

namespace {

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
  std::size_t arg = 0;  // keep_arg: the parameter's position
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
  CText key;  // at/get/wrap/put
  CText text;
  std::vector<CPair> table;
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

}  // namespace

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

namespace {

struct Framework {
  Ref host_os_base;
  Ref hostos_ns;
  Ref host_type;
  Ref obj_attr_decorator;
  Ref load_from_file;
  Ref orvex_exception;
  Ref output_formatter;
  Ref namedtuple;
  Ref method_type;
  PyObject* module = nullptr;  // borrowed: the state lives inside it
  Ref config_dir;              // "<module dir>/config/" once known
  Ref template_paths;          // caller name -> its template file's path, as made before
};

// Three variant objects are made per call and mostly gone before it
// returns: their memory is kept for the next ones (a few blocks per number
// of bound arguments) rather than handed back and asked for again.
constexpr Py_ssize_t kSpareSizes = 12;
constexpr std::size_t kSparesEach = 4;
struct Spares {
  PyObject* blocks[kSparesEach];
  std::size_t count;
};
}  // namespace

// The frame's part of the module state (state.hpp).
struct FrameState {
  Framework fw;
  std::deque<OpDef> defs;  // stable addresses
  std::deque<CompiledOp> ops;
  PyTypeObject* raid_type = nullptr;  // each holds a reference
  PyTypeObject* variant_type = nullptr;
  PyTypeObject* op_type = nullptr;
  Spares spares[kSpareSizes] = {};

  FrameState() = default;
  FrameState(const FrameState&) = delete;
  FrameState& operator=(const FrameState&) = delete;
  ~FrameState() {
    for (Spares& s : spares) {
      while (s.count > 0) PyObject_GC_Del(s.blocks[--s.count]);
    }
    ops.clear();  // the builtins, then the type of the objects they are bound to
    Py_CLEAR(raid_type);
    Py_CLEAR(op_type);
    Py_CLEAR(variant_type);
  }
};

void FrameStateFree::operator()(FrameState* f) const { delete f; }

int traverse_frame(const FrameState& f, visitproc visit, void* arg) {
  const Framework& w = f.fw;
  for (const Ref* r :
       {&w.host_os_base, &w.hostos_ns, &w.host_type, &w.obj_attr_decorator, &w.load_from_file,
        &w.orvex_exception, &w.output_formatter, &w.namedtuple, &w.method_type}) {
    Py_VISIT(r->get());
  }
  Py_VISIT(reinterpret_cast<PyObject*>(f.raid_type));
  Py_VISIT(reinterpret_cast<PyObject*>(f.op_type));
  Py_VISIT(reinterpret_cast<PyObject*>(f.variant_type));
  return 0;
}

namespace {

// The current interpreter's.
FrameState& fs() { return *g_state->frame; }

Ref import_name(const char* module, const char* name) {
  Ref m = Ref::steal(PyImport_ImportModule(module));
  return getattr(m.get(), name);
}

// ---------------------------------------------------------------------------
// Checking and compiling a row

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

// The row's words are exactly those its body and preps declare, once each.
int check_words(const char* op, const VariantDef& v) {
  if (v.word_kinds.size() != v.word_texts.size())
    return declaration_error(op, "words added other than through words/wrappers/...", nullptr), -1;
  for (const ExtraNote& n : v.notes) {
    if (n.name == nullptr) return declaration_error(op, "a note without its extra", nullptr), -1;
  }
  for (std::size_t i = 0; i < v.word_texts.size(); ++i) {
    const Pair& w = v.word_texts[i];
    if (w.from == nullptr || w.to == nullptr)
      return declaration_error(op, "a word without its name or text", nullptr), -1;
    for (std::size_t j = 0; j < i; ++j) {
      if (std::strcmp(v.word_texts[j].from, w.from) == 0)
        return declaration_error(op, "a second word ", w.from), -1;
    }
    bool read = false;
    for (const WordNames& n : v.word_names) {
      for (std::size_t k = 0; k < n.count; ++k) read = read || std::strcmp(n.names[k], w.from) == 0;
    }
    if (!read) return declaration_error(op, "a word nothing reads: ", w.from), -1;
  }
  for (const WordNames& n : v.word_names) {
    for (std::size_t k = 0; k < n.count; ++k) {
      bool found = false;
      for (const Pair& w : v.word_texts) found = found || std::strcmp(w.from, n.names[k]) == 0;
      if (!found) return declaration_error(op, "a word its row lacks: ", n.names[k]), -1;
    }
  }
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
      case Form::same_as:
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
      if (e.op == Edit::Op::fn) {
        if (e.prep == nullptr)
          return declaration_error(name, "a prep edit without its function", nullptr), -1;
      } else if (e.op == Edit::Op::attempt) {
        if (e.text == nullptr)
          return declaration_error(name, "an attempt without its log text", nullptr), -1;
      } else if (e.key == nullptr) {
        declaration_error(name, "an edit without its key", nullptr);
        return -1;
      } else {
        ce.key = intern(e.key);
        ok = ok && ce.key;
      }
      const bool needs_other = e.op != Edit::Op::drop && e.op != Edit::Op::fn &&
                               e.op != Edit::Op::translate && e.op != Edit::Op::translate_or_none &&
                               e.op != Edit::Op::translate_strict;
      if (needs_other) {
        if (e.other == nullptr)
          return declaration_error(name, "an edit without its text or new key ", e.key), -1;
        ce.other = intern(e.other);
        ok = ok && ce.other;
      }
      if (e.op == Edit::Op::keep_arg) {
        ce.arg = def.params.size();
        for (std::size_t i = 0; i < def.params.size(); ++i) {
          if (std::strcmp(def.params[i].name, e.other) == 0) ce.arg = i;
        }
        if (ce.arg == def.params.size())
          return declaration_error(name, "keep_arg of an undeclared parameter ", e.other), -1;
      }
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
      const bool keyed = s.op == Shape::Op::at || s.op == Shape::Op::get ||
                         s.op == Shape::Op::wrap || s.op == Shape::Op::put;
      const bool needs_name = keyed || s.op == Shape::Op::post || s.op == Shape::Op::method ||
                              s.op == Shape::Op::merge_layers ||
                              s.op == Shape::Op::merge_layers_of || s.op == Shape::Op::stop_on;
      const bool needs_text = s.op == Shape::Op::put || s.op == Shape::Op::refuse_on;
      if ((needs_name && s.name == nullptr) || (needs_text && s.text == nullptr))
        return declaration_error(name, "a shape step without its name or text", nullptr), -1;
      bool closed = true;
      if (keyed) {
        closed = compile_text(s.name, &cs.key, &ok);
      } else if (s.name != nullptr) {
        cs.name = intern(s.name);
        ok = ok && cs.name;
      }
      if (s.op == Shape::Op::put) {
        closed = closed && compile_text(s.text, &cs.text, &ok);
      } else if (s.text != nullptr) {
        cs.text.plain = intern(s.text);
        ok = ok && cs.text.plain;
      }
      if (!closed) return declaration_error(name, "an unclosed brace in ", s.name), -1;
      if ((!cs.key.pieces.empty() || !cs.text.pieces.empty()) && !op.builds_params)
        return declaration_error(name, "params values named in an operation without", nullptr), -1;
      cs.table = compile_pairs(s.table, &ok);
      c.shapes.push_back(std::move(cs));
    }
    if (check_words(name, v) < 0) return -1;
    for (const ExtraNote& n : v.notes) {
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

// ---------------------------------------------------------------------------
// Argument binding

// Keyword arguments as they arrive: names and values (fast calls) or a dict.
struct Keywords {
  PyObject* names = nullptr;  // tuple (fast calls)
  PyObject* const* values = nullptr;
  PyObject* dict = nullptr;  // (tuple calls)

  Py_ssize_t size() const {
    if (names != nullptr) return PyTuple_Size(names);
    return dict != nullptr ? PyDict_Size(dict) : 0;
  }
  // f(key, value) for each; stops at f's first non-zero result.
  template <class F>
  int each(F&& f) const {
    if (names != nullptr) {
      const Py_ssize_t n = PyTuple_Size(names);
      for (Py_ssize_t i = 0; i < n; ++i) {
        const int r = f(PyTuple_GetItem(names, i), values[i]);
        if (r != 0) return r;
      }
    } else if (dict != nullptr) {
      Py_ssize_t pos = 0;
      PyObject* k = nullptr;
      PyObject* v = nullptr;
      while (PyDict_Next(dict, &pos, &k, &v)) {
        const int r = f(k, v);
        if (r != 0) return r;
      }
    }
    return 0;
  }
};

bool same_name(PyObject* a, PyObject* b) {
  if (a == b) return true;
  return PyUnicode_Check(b) && PyUnicode_Compare(a, b) == 0;
}

Ref count_message(const CompiledOp& op, const char* how, Py_ssize_t expected, Py_ssize_t given) {
  return format("%.200s() takes %.8s %zd positional argument%.1s (%zd given)", op.def->name, how,
                expected, expected == 1 ? "" : "s", given);
}

PyObject* count_error(const CompiledOp& op, const char* how, Py_ssize_t expected,
                      Py_ssize_t given) {
  Ref message = count_message(op, how, expected, given);
  if (message) PyErr_SetObject(PyExc_TypeError, message.get());
  return nullptr;
}

// The bound arguments of one call: the declared parameters in order (the
// catch-all's slot holds the extra keywords), and params.
struct Bound {
  PyObject* small[12] = {};
  std::vector<PyObject*> big;
  PyObject** values = small;
  Ref extra;
  Ref params;
  Ref hold;  // keeps the values of a tuple call
};

// self is args[0]; nargs counts it.
int bind(const CompiledOp& op, PyObject* const* args, Py_ssize_t nargs, const Keywords& kw,
         Bound& b) {
  const char* name = op.def->name;
  const Py_ssize_t nkw = kw.size();
  if (op.only_self) {
    if (nkw > 0) {
      PyErr_Format(PyExc_TypeError, "%.200s() takes no keyword arguments", name);
      return -1;
    }
    if (nargs != 1) {
      PyErr_Format(PyExc_TypeError, "%.200s() takes exactly one argument (%zd given)", name, nargs);
      return -1;
    }
  }
  const bool optional = op.npos > op.nrequired;
  if (nargs > op.npos + 1) {
    count_error(op, optional ? "at most" : "exactly", op.npos + 1, nargs);
    return -1;
  }
  const std::size_t n = op.params.size();
  if (n > sizeof(b.small) / sizeof(b.small[0])) {
    b.big.assign(n, nullptr);
    b.values = b.big.data();
  } else {
    for (std::size_t i = 0; i < n; ++i) b.small[i] = nullptr;
  }
  const Py_ssize_t given = nargs > 0 ? nargs - 1 : 0;
  for (Py_ssize_t i = 0; i < given; ++i) b.values[i] = args[i + 1];

  // Keywords: the first misuse is kept and reported after a missing
  // positional argument, which is told first.
  PyObject* twice = nullptr;
  PyObject* unexpected = nullptr;
  if (nkw > 0) {
    if (op.catch_all >= 0) {
      b.extra = Ref::steal(PyDict_New());
      if (!b.extra) return -1;
    }
    const int r = kw.each([&](PyObject* key, PyObject* value) {
      if (PyUnicode_Check(key) && PyUnicode_CompareWithASCIIString(key, "self") == 0) {
        if (twice == nullptr) twice = key;
        return 0;
      }
      for (std::size_t i = 0; i < n; ++i) {
        const CParam& p = op.params[i];
        if (p.kind == Kind::catch_all || !same_name(p.name.get(), key)) continue;
        if (static_cast<Py_ssize_t>(i) < given) {
          if (twice == nullptr) twice = key;
        } else {
          b.values[i] = value;
        }
        return 0;
      }
      if (!b.extra) {
        if (unexpected == nullptr) unexpected = key;
        return 0;
      }
      return PyDict_SetItem(b.extra.get(), key, value) < 0 ? -1 : 0;
    });
    if (r < 0) return -1;
  }
  bool missing = nargs <= 0;  // not even the object
  for (Py_ssize_t i = given; i < op.npos; ++i) {
    missing =
        missing || (b.values[i] == nullptr && !op.params[static_cast<std::size_t>(i)].fallback);
  }
  if (missing) {
    // The same few messages again and again: each made once.
    Ref& message = op.too_few[static_cast<std::size_t>(nargs)];
    if (!message) {
      message = count_message(op, optional ? "at least" : "exactly", op.nrequired + 1, nargs);
      if (!message) return -1;
    }
    PyErr_SetObject(PyExc_TypeError, message.get());
    return -1;
  }
  if (twice != nullptr) {
    PyErr_Format(PyExc_TypeError, "%.200s() got multiple values for keyword argument '%U'", name,
                 twice);
    return -1;
  }
  if (unexpected != nullptr) {
    PyErr_Format(PyExc_TypeError, "%.200s() got an unexpected keyword argument '%U'", name,
                 unexpected);
    return -1;
  }
  if (!PyObject_TypeCheck(args[0], fs().raid_type)) {
    Ref tname = getattr(reinterpret_cast<PyObject*>(Py_TYPE(args[0])), names().name);
    if (tname) {
      PyErr_Format(PyExc_TypeError,
                   "descriptor '%s' for 'Raid' objects doesn't apply to a '%U' object", name,
                   tname.get());
    }
    return -1;
  }
  for (std::size_t i = 0; i < n; ++i) {
    const CParam& p = op.params[i];
    if (b.values[i] != nullptr) continue;
    if (p.kind == Kind::catch_all) {
      if (!b.extra) {
        b.extra = Ref::steal(PyDict_New());
        if (!b.extra) return -1;
      }
      b.values[i] = b.extra.get();
    } else if (p.fallback) {
      b.values[i] = p.fallback.get();
    } else {
      Ref& message = p.missing;
      if (!message) {
        message = format("%s() needs keyword-only argument %U", name, p.name.get());
        if (!message) return -1;
      }
      PyErr_SetObject(PyExc_TypeError, message.get());
      return -1;
    }
  }

  if (!op.builds_params) return 0;  // no params at all
  if (op.def->build != nullptr) {
    if (!b.extra) {
      b.extra = Ref::steal(PyDict_New());
      if (!b.extra) return -1;
    }
    b.params = op.def->build(b.values, b.extra.get());
    return b.params ? 0 : -1;
  }
  b.params = Ref::steal(PyDict_New());
  if (!b.params) return -1;
  for (std::size_t i = 0; i < n; ++i) {
    const CParam& p = op.params[i];
    if (p.key && PyDict_SetItem(b.params.get(), p.key.get(), b.values[i]) < 0) return -1;
  }
  if (b.extra && PyDict_Size(b.extra.get()) > 0 &&
      PyDict_Update(b.params.get(), b.extra.get()) < 0) {
    return -1;
  }
  return 0;
}

// ---------------------------------------------------------------------------
// Variant objects: real callables with the variant's name, holding the
// object, params and the bound arguments for as long as the framework keeps
// them.

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

// value == text (a str compared as text); -1 on error.
int matches(PyObject* value, PyObject* text) {
  if (value == nullptr) return -1;
  if (PyUnicode_CheckExact(value)) return PyUnicode_Compare(value, text) == 0 ? 1 : 0;
  return PyObject_RichCompareBool(value, text, Py_EQ);
}

// table[value], or nullptr (no error) when the table does not list it.
PyObject* listed(const std::vector<CPair>& table, PyObject* value, int* err) {
  for (const CPair& p : table) {
    const int eq = matches(value, p.from.get());
    if (eq < 0) *err = -1;
    if (eq != 0) return eq < 0 ? nullptr : p.to.get();
  }
  return nullptr;
}

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

Ref dispatch_name(const Call& c, PyObject* wrapper, PyObject* p, Route r);

// 0 to go on, 1 when the variant answers True without dispatching, -1 on error.
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
      case Edit::Op::drop: {
        const int has = PyDict_Contains(params, e.key.get());
        if (has < 0 || (has == 1 && PyDict_DelItem(params, e.key.get()) < 0)) return -1;
        break;
      }
      case Edit::Op::translate:
      case Edit::Op::translate_or_none:
      case Edit::Op::translate_strict: {
        Ref value = get(params, e.key.get());
        if (!value) return -1;
        int err = 0;
        PyObject* to = listed(e.table, value.get(), &err);
        if (err < 0) return -1;
        if (to == nullptr) {
          if (e.op == Edit::Op::translate) break;
          if (e.op == Edit::Op::translate_strict) {
            Ref key_args = tuple({value.get()});
            if (key_args) PyErr_SetObject(PyExc_KeyError, key_args.get());
            return -1;
          }
          to = Py_None;
        }
        if (PyDict_SetItem(params, e.key.get(), to) < 0) return -1;
        break;
      }
      case Edit::Op::translate_into: {
        Ref value = get(params, e.key.get());
        if (!value) return -1;
        int err = 0;
        PyObject* to = listed(e.table, value.get(), &err);
        if (err < 0) return -1;
        if (to == nullptr) to = e.text.get();
        if (to != nullptr && PyDict_SetItem(params, e.other.get(), to) < 0) return -1;
        break;
      }
      case Edit::Op::apply: {
        Ref value = get(params, e.key.get());
        Ref done = call_method(value.get(), e.other.get());
        if (!done || PyDict_SetItem(params, e.key.get(), done.get()) < 0) return -1;
        break;
      }
      case Edit::Op::keep_arg:
        if (PyDict_SetItem(params, e.key.get(), c.args[e.arg]) < 0) return -1;
        break;
      case Edit::Op::true_when: {
        Ref value = get(params, e.key.get());
        const int hit = matches(value.get(), e.other.get());
        if (hit != 0) return hit;
        break;
      }
      case Edit::Op::attempt: {
        Ref done = dispatch_name(c, e.other.get(), params, c.variant.route);
        if (done) break;
        // Only logged; anything that is not an Exception (KeyboardInterrupt,
        // ...) goes on up.
        Fetched error;
        if (!error.matches(PyExc_Exception)) {
          error.restore();
          return -1;
        }
        Ref text = to_str(error.value() != nullptr ? error.value() : Py_None);
        Ref message = concat({e.text.get(), text.get()});
        if (!message || c.log_error(message.get()) < 0) return -1;
        break;
      }
      case Edit::Op::fn:
        if (e.prep(c) < 0) return -1;
        break;
    }
  }
  return 0;
}

Ref dispatch_name(const Call& c, PyObject* wrapper, PyObject* p, Route r) {
  if (wrapper == nullptr) return nullptr;
  Ref target = Ref::borrow(c.self);
  if (r == Route::host) target = getattr(c.self, names().host);
  if (r == Route::dispatcher) target = getattr(c.self, names().dispatcher);
  if (p == nullptr) return call_method(target.get(), names().dispatch, {wrapper});
  return call_method(target.get(), names().dispatch, {wrapper, p});
}

// The wrapper of a variant: its own, or the one chosen by a params value.
Ref wrapper_of(const Call& c, const CVariant& v) {
  if (!v.choose_key) return v.text;
  Ref value = index(c.params, v.choose_key.get());
  if (!value) return nullptr;
  for (const CPair& p : v.choices) {
    const int eq = PyObject_RichCompareBool(value.get(), p.from.get(), Py_EQ);
    if (eq < 0) return nullptr;
    if (eq == 0) continue;
    if (v.def->choose_pops && PyDict_DelItem(c.params, v.choose_key.get()) < 0) return nullptr;
    return p.to;
  }
  if (!v.tail) return raise_orvex(v.head.get());
  Ref message = concat({v.head.get(), value.get(), v.tail.get()});
  return raise_orvex(message.get());
}

// x = _merge_output(x, None, layers)
Ref merge_by(PyObject* x, const Ref& layers) {
  if (!layers) return nullptr;
  return merge_output(x, nullptr, layers.get());
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
      case Shape::Op::merge_layers:
      case Shape::Op::merge_layers_of: {
        Ref f = c.formatter();
        if (!f) return nullptr;
        Ref layers = s.op == Shape::Op::merge_layers
                         ? call_method(f.get(), s.name.get())
                         : call_method(f.get(), s.name.get(), {x.get()});
        x = merge_by(x.get(), layers);
        break;
      }
      case Shape::Op::props:
        x = kit::flatten_ctrl_props(x.get());
        break;
      case Shape::Op::wrap: {
        Ref key = expand(c, s.key);
        Ref out = dict();
        if (!key || !out || PyDict_SetItem(out.get(), key.get(), x.get()) < 0) return nullptr;
        x = std::move(out);
        break;
      }
      case Shape::Op::put: {
        Ref key = expand(c, s.key);
        Ref text = expand(c, s.text);
        if (!key || !text || PyObject_SetItem(x.get(), key.get(), text.get()) < 0) return nullptr;
        break;
      }
      case Shape::Op::map: {
        int err = 0;
        PyObject* to = listed(s.table, x.get(), &err);
        if (err < 0) return nullptr;
        if (to != nullptr) x = Ref::borrow(to);
        break;
      }
      case Shape::Op::values: {
        const int any = x.get() == Py_None ? 0 : truthy(x.get());
        if (any < 0) return nullptr;
        Ref listed_values = any == 1 ? call_method(x.get(), "values") : Ref{};
        x = any == 1 ? (listed_values ? Ref::steal(PySequence_List(listed_values.get())) : Ref{})
                     : list();
        break;
      }
      case Shape::Op::refuse_on:
      case Shape::Op::stop_on: {
        int hit = 0;
        if (s.name) {
          hit = matches(x.get(), s.name.get());
        } else {
          const int given = truthy(x.get());
          hit = given < 0 ? -1 : static_cast<int>(given == 0);
        }
        if (hit < 0) return nullptr;
        if (hit == 0) break;
        if (s.op == Shape::Op::stop_on) return x;
        return raise_orvex(s.text.plain.get());
      }
      case Shape::Op::first:
        x = item(x.get(), 0);
        break;
      case Shape::Op::merge:
        x = merge_output(x.get(), nullptr, nullptr);
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

Ref run_variant(VariantObject* vo) {
  const CompiledOp& op = *vo->op;
  const CVariant& v = op.variants[vo->index];
  const VariantDef& def = *v.def;
  const Call c{vo->self, vo->params, vo->args, *op.def, def, &op};
  if (def.form == Form::refusal) return raise_orvex(v.text.get());
  const int edited = apply_edits(c, v);
  if (edited != 0) return edited < 0 ? nullptr : boolean(true);
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
      if (def.from == VariantDef::From::answer) return shape(c, v, std::move(answer));
      Ref first = item(answer.get(), 0);
      if (def.from == VariantDef::From::first) return shape(c, v, std::move(first));
      Ref entry = def.from == VariantDef::From::parser_strict ? index(first.get(), names().parser)
                                                              : get(first.get(), names().parser);
      return shape(c, v, std::move(entry));
    }
    case Form::custom:
      return def.body(c);
    case Form::same_as: {
      Ref m = getattr(c.self, v.text.get());
      return call(m.get(), {}, c.params);
    }
    case Form::refusal:
      break;
  }
  return raise(PyExc_SystemError, "unknown variant form");
}

PyObject* variant_call(PyObject* o, PyObject* args, PyObject* kwargs) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  if (PyTuple_Size(args) != 0 || (kwargs != nullptr && PyDict_Size(kwargs) != 0)) {
    PyErr_Format(PyExc_TypeError, "%U() takes no arguments", v->op->variant_name.get());
    return nullptr;
  }
  return run_variant(v).release();
}

PyObject* variant_vectorcall(PyObject* o, PyObject* const*, std::size_t nargsf, PyObject* kwnames) {
  auto* v = reinterpret_cast<VariantObject*>(o);
  if ((nargsf & ~kVectorcallOffset) != 0 || (kwnames != nullptr && PyTuple_Size(kwnames) != 0)) {
    PyErr_Format(PyExc_TypeError, "%U() takes no arguments", v->op->variant_name.get());
    return nullptr;
  }
  return run_variant(v).release();
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

// ---------------------------------------------------------------------------
// Operation entry

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

Ref checked_result(const OpDef& def, Ref result);

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

// ---------------------------------------------------------------------------
// Operation objects: the class attribute of one operation, a method
// descriptor (signature, documentation, help).  Read from an object it gives
// the operation's builtin function (its self is the operation object) bound
// to that object as a method.

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
// in order (a first attempt, the wrapper, the choices by value, a computed
// variant's wrapper words); messages: what it raises (a message with "{}"
// is completed by a value); calls: other operations of the object it calls;
// notes: ((extra, "reads" or "ignores", detail or None), ...).
Ref variant_record(const VariantDef& v) {
  static const char* const forms[] = {"refusal", "checked", "action", "query", "custom", "same_as"};
  static const char* const routes[] = {"self", "host", "dispatcher"};
  std::vector<const char*> wrappers;
  std::vector<const char*> messages;
  std::vector<const char*> calls;
  std::vector<std::string> composed;  // keeps the composed messages alive
  for (const Edit& e : v.edits) {
    if (e.op == Edit::Op::attempt) wrappers.push_back(e.other);
  }
  if (v.form == Form::refusal) {
    messages.push_back(v.text);
  } else if (v.form == Form::same_as) {
    calls.push_back(v.text);
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
  for (std::size_t i = 0; i < v.word_texts.size(); ++i) {
    const WordKind kind = v.word_kinds[i];
    if (kind == WordKind::wrapper) wrappers.push_back(v.word_texts[i].to);
    if (kind == WordKind::message) messages.push_back(v.word_texts[i].to);
    if (kind == WordKind::call) calls.push_back(v.word_texts[i].to);
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
                                  w.get(), m.get(), routes[static_cast<int>(v.route)], c.get(),
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

// ---------------------------------------------------------------------------
// Direct operations of the frame

Ref init_direct(PyObject* self, PyObject* const*) {
  // The base class's constructor, with no arguments besides the object.
  Ref base_init = getattr(fs().fw.host_os_base.get(), "__init__");
  Ref done = call(base_init.get(), {self});
  if (!done || setattr(self, names().u_distributor, Py_None) < 0) return nullptr;
  Ref formatter = call(fs().fw.output_formatter.get(), {self});
  if (setattr(self, names().formatter, formatter.get()) < 0) return nullptr;
  return none();
}

constexpr ParamDef kUpdateParams[] = {arg("raid_tool").unstored()};

Ref update_distributor_direct(PyObject* self, PyObject* const* args) {
  PyObject* raid_tool = args[RAID_ARG(kUpdateParams, "raid_tool")];
  if (!PyUnicode_Check(raid_tool)) {
    Ref tname = getattr(reinterpret_cast<PyObject*>(Py_TYPE(raid_tool)), names().name);
    if (tname) {
      PyErr_Format(PyExc_TypeError,
                   "Argument 'raid_tool' has incorrect type (expected str, got %U)", tname.get());
    }
    return nullptr;
  }
  Ref built = make_distributor(self, raid_tool);
  return built ? none() : nullptr;
}

PyObject* distributor_get(PyObject* self, void*) { return distributor_of(self).release(); }

PyGetSetDef g_distributor_getset = {
    const_cast<char*>("distributor"), distributor_get, nullptr,
    const_cast<char*>("当前工具的注册装饰器（只读）。首次读取时向 dispatcher 查询工具类型并缓存，"
                      "直到 update_distributor 替换它。"),
    nullptr};

const char* kRaidDoc =
    "RAID 控制卡管理接口。\n\n"
    "每个操作按当前主机的 RAID 工具（storcli64 / arcconf / sorbctl，PHY 相关另有 "
    "storelibtest）选择对应实现，调用框架的命令封装并整理返回结果；工具不支持的功能抛出 "
    "OrvexException。";

// Compiles the rows from `first` on (an earlier, failed import keeps its
// own).
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

}  // namespace

// ---------------------------------------------------------------------------
// Rows

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

VariantDef custom(Tool t, Body body, const void* data) {
  VariantDef v = variant(t, Form::custom, nullptr);
  v.body = body;
  v.data = data;
  return v;
}

VariantDef same_as(Tool t, const char* operation) { return variant(t, Form::same_as, operation); }

VariantDef checked_by(Tool t, const char* key, std::vector<Pair> wrappers, const char* head,
                      const char* tail) {
  return variant(t, Form::checked, nullptr).choose(key, std::move(wrappers), head, tail);
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
VariantDef VariantDef::drop(const char* key) && {
  return with_edit(std::move(*this), Edit{Edit::Op::drop, key, nullptr, {}, nullptr});
}
VariantDef VariantDef::translate(const char* key, std::vector<Pair> table) && {
  return with_edit(std::move(*this),
                   Edit{Edit::Op::translate, key, nullptr, std::move(table), nullptr});
}
VariantDef VariantDef::translate_or_none(const char* key, std::vector<Pair> table) && {
  return with_edit(std::move(*this),
                   Edit{Edit::Op::translate_or_none, key, nullptr, std::move(table), nullptr});
}
VariantDef VariantDef::translate_strict(const char* key, std::vector<Pair> table) && {
  return with_edit(std::move(*this),
                   Edit{Edit::Op::translate_strict, key, nullptr, std::move(table), nullptr});
}
VariantDef VariantDef::translate_into(const char* key, const char* to, std::vector<Pair> table,
                                      const char* otherwise) && {
  return with_edit(std::move(*this),
                   Edit{Edit::Op::translate_into, key, to, std::move(table), nullptr, otherwise});
}
VariantDef VariantDef::apply(const char* key, const char* method) && {
  return with_edit(std::move(*this), Edit{Edit::Op::apply, key, method, {}, nullptr});
}
VariantDef VariantDef::keep_arg(const char* key, const char* param) && {
  return with_edit(std::move(*this), Edit{Edit::Op::keep_arg, key, param, {}, nullptr});
}
VariantDef VariantDef::true_when(const char* key, const char* value) && {
  return with_edit(std::move(*this), Edit{Edit::Op::true_when, key, value, {}, nullptr});
}
VariantDef VariantDef::attempt(const char* wrapper, const char* log_head) && {
  return with_edit(std::move(*this),
                   Edit{Edit::Op::attempt, nullptr, wrapper, {}, nullptr, log_head});
}
VariantDef VariantDef::prep(Prep fn) && {
  return with_edit(std::move(*this), Edit{Edit::Op::fn, nullptr, nullptr, {}, fn});
}
namespace {

VariantDef with_words(VariantDef&& v, const std::vector<Pair>& named, WordKind kind) {
  v.word_texts.insert(v.word_texts.end(), named.begin(), named.end());
  v.word_kinds.insert(v.word_kinds.end(), named.size(), kind);
  return std::move(v);
}

}  // namespace

VariantDef VariantDef::words(const std::vector<Pair>& named) && {
  return with_words(std::move(*this), named, WordKind::text);
}
VariantDef VariantDef::wrappers(const std::vector<Pair>& named) && {
  return with_words(std::move(*this), named, WordKind::wrapper);
}
VariantDef VariantDef::messages(const std::vector<Pair>& named) && {
  return with_words(std::move(*this), named, WordKind::message);
}
VariantDef VariantDef::calls(const std::vector<Pair>& named) && {
  return with_words(std::move(*this), named, WordKind::call);
}
VariantDef VariantDef::reads(const char* extra_name) && {
  notes.push_back(ExtraNote{extra_name, "reads", nullptr});
  return std::move(*this);
}
VariantDef VariantDef::ignores(const char* extra_name, const char* detail) && {
  notes.push_back(ExtraNote{extra_name, "ignores", detail});
  return std::move(*this);
}
VariantDef VariantDef::choose(const char* key, std::vector<Pair> wrappers, const char* head,
                              const char* tail) && {
  choose_key = key;
  choices = std::move(wrappers);
  refuse_head = head;
  refuse_tail = tail;
  return std::move(*this);
}
VariantDef VariantDef::pop_choice() && {
  choose_pops = true;
  return std::move(*this);
}
VariantDef VariantDef::strict() && {
  from = From::parser_strict;
  return std::move(*this);
}
VariantDef VariantDef::raw() && {
  from = From::first;
  return std::move(*this);
}
VariantDef VariantDef::whole() && {
  from = From::answer;
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
VariantDef VariantDef::merge() && {
  return with_shape(std::move(*this), Shape::Op::merge, nullptr);
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
VariantDef VariantDef::merge_layers(const char* formatter_method) && {
  return with_shape(std::move(*this), Shape::Op::merge_layers, formatter_method);
}
VariantDef VariantDef::merge_layers_of(const char* formatter_method) && {
  return with_shape(std::move(*this), Shape::Op::merge_layers_of, formatter_method);
}
VariantDef VariantDef::props() && {
  return with_shape(std::move(*this), Shape::Op::props, nullptr);
}
VariantDef VariantDef::wrap(const char* key) && {
  return with_shape(std::move(*this), Shape::Op::wrap, key);
}
VariantDef VariantDef::put_in(const char* key, const char* text) && {
  return with_shape(std::move(*this), Shape::Op::put, key, text);
}
VariantDef VariantDef::map(std::vector<Pair> table) && {
  return with_shape(std::move(*this), Shape::Op::map, nullptr, nullptr, std::move(table));
}
VariantDef VariantDef::values() && {
  return with_shape(std::move(*this), Shape::Op::values, nullptr);
}
VariantDef VariantDef::refuse_on(const char* text, const char* message) && {
  return with_shape(std::move(*this), Shape::Op::refuse_on, text, message);
}
VariantDef VariantDef::refuse_on_empty(const char* message) && {
  return with_shape(std::move(*this), Shape::Op::refuse_on, nullptr, message);
}
VariantDef VariantDef::stop_on(const char* text) && {
  return with_shape(std::move(*this), Shape::Op::stop_on, text);
}

// ---------------------------------------------------------------------------
// Frame operations table

void add_frame_ops(OpList& ops) {
  ops.push_back(Op("__init__")
                    .doc("构造 Raid 对象：先初始化框架基类，再创建 formatter。")
                    .direct(init_direct));
  ops.push_back(Op("update_distributor")
                    .params(kUpdateParams)
                    .doc("切换本对象使用的 RAID 工具。\n\n"
                         "参数:\n    raid_tool (str): 工具类型，storcli64 / arcconf / sorbctl / "
                         "storelibtest。\n\n返回:\n    None。raid_tool 不是字符串时抛出 TypeError，"
                         "且不做任何修改。")
                    .returns_doc("None")
                    .direct(update_distributor_direct));
}

// ---------------------------------------------------------------------------
// Call helpers

PyObject* tool_string(Tool t) { return names().tools[static_cast<int>(t)]; }

PyObject* Call::tool_name() const { return tool_string(variant.tool); }

PyObject* Call::name() const {
  if (compiled != nullptr) return compiled->variant_name.get();
  for (const CompiledOp& o : fs().ops) {
    if (o.def == &op) return o.variant_name.get();
  }
  return names().empty;
}

Ref Call::p_get(const char* key) const {
  if (params == nullptr) return raise(PyExc_SystemError, "operation without params");
  return get(params, key);
}

int Call::p_has(const char* key) const {
  Ref k = text(key);
  if (!k) return -1;
  return PyDict_Contains(params, k.get());
}

int Call::p_set(const char* key, PyObject* v) const { return set_item(params, key, v); }

int Call::p_set(const char* key, const char* text) const {
  Ref v = py::text(text);
  return set_item(params, key, v.get());
}

Ref Call::p_pop(const char* key) const {
  Ref k = text(key);
  return call_method(params, names().pop, {k.get()});
}

int Call::p_del_if(const char* key) const {
  Ref k = text(key);
  if (!k) return -1;
  const int has = PyDict_Contains(params, k.get());
  if (has <= 0) return has;
  return PyDict_DelItem(params, k.get());
}

Ref Call::dispatch_with(const char* wrapper, PyObject* p, Route r) const {
  Ref name = text(wrapper);
  return dispatch_name(*this, name.get(), p, r);
}

Ref Call::dispatch(const char* wrapper, Route r) const { return dispatch_with(wrapper, params, r); }

Ref Call::raw(const char* wrapper, Route r) const {
  Ref answer = dispatch(wrapper, r);
  return item(answer.get(), 0);
}

Ref Call::parsed(const char* wrapper, Route r) const {
  Ref first = raw(wrapper, r);
  return get(first.get(), names().parser);
}

Ref Call::parsed_index(const char* wrapper, Route r) const {
  Ref first = raw(wrapper, r);
  return index(first.get(), names().parser);
}

int Call::success(PyObject* parser_entry) {
  if (parser_entry == nullptr) return -1;
  if (parser_entry == Py_None) return 0;
  return contains(parser_entry, names().success);
}

Ref Call::checked(const char* wrapper, Route r) const {
  Ref entry = parsed(wrapper, r);
  const int ok = success(entry.get());
  return ok < 0 ? nullptr : boolean(ok == 1);
}

Ref Call::formatter() const { return getattr(self, names().formatter); }

Ref Call::exec_format(PyObject* raw_output) const {
  if (raw_output == nullptr) return nullptr;
  Ref f = formatter();
  return call_method(f.get(), names().parser_exec_cmd_format, {raw_output, tool_name()});
}

Ref Call::format(PyObject* data) const {
  if (data == nullptr) return nullptr;
  return format_output(data, tool_name(), nullptr, name());
}

Ref Call::format_with(PyObject* data, const char* formatter_attr) const {
  if (data == nullptr) return nullptr;
  Ref f = formatter();
  Ref tmpl = getattr(f.get(), formatter_attr);
  if (!tmpl) return nullptr;
  return format_output(data, tool_name(), tmpl.get(), name());
}

Ref Call::formatter_call(const char* method_name, std::initializer_list<PyObject*> a,
                         PyObject* kwargs) const {
  Ref f = formatter();
  return call_method(f.get(), method_name, a, kwargs);
}

Ref Call::method(const char* method_name, PyObject* kwargs) const {
  Ref m = getattr(self, method_name);
  return call(m.get(), {}, kwargs);
}

int Call::log_info(PyObject* msg) const {
  Ref logger = getattr(self, names().logger);
  Ref r = call_method(logger.get(), names().info, {msg});
  return r ? 0 : -1;
}

int Call::log_error(PyObject* msg) const {
  Ref logger = getattr(self, names().logger);
  Ref r = call_method(logger.get(), names().error, {msg});
  return r ? 0 : -1;
}

const char* Call::word(const char* name) const {
  for (const Pair& w : variant.word_texts) {
    if (std::strcmp(w.from, name) == 0) return w.to;
  }
  return "";  // not reached: the import checks the row against the declared names
}

Ref Call::word_with(const char* name, std::initializer_list<PyObject*> values) const {
  const char* text = word(name);
  Ref out = str("");
  for (PyObject* value : values) {
    const char* place = std::strstr(text, "{}");
    if (place == nullptr) break;
    Ref piece = Ref::steal(PyUnicode_FromStringAndSize(text, place - text));
    out = concat({out.get(), piece.get(), value});
    if (!out) return nullptr;
    text = place + 2;
  }
  Ref rest = str(text);
  return concat({out.get(), rest.get()});
}

Ref Call::refuse(const char* message) const { return raise_orvex(message); }
Ref Call::refuse(PyObject* message) const { return raise_orvex(message); }

PyObject* orvex_exception() { return fs().fw.orvex_exception.get(); }

Ref raise_orvex(PyObject* message) { return raise_obj(fs().fw.orvex_exception.get(), message); }

Ref raise_orvex(const char* message) {
  Ref m = text(message);
  return raise_orvex(m.get());
}

Ref load_template(PyObject* caller) {
  if (caller == nullptr) return nullptr;
  if (!fs().fw.config_dir) {
    Ref file = getattr(fs().fw.module, "__file__");
    Ref path = Ref::steal(PyImport_ImportModule("os.path"));
    Ref abs = call_method(path.get(), "abspath", {file.get()});
    Ref dir = call_method(path.get(), "dirname", {abs.get()});
    Ref config = str("config");
    fs().fw.config_dir = call_method(path.get(), "join", {dir.get(), config.get(), names().empty});
    if (!fs().fw.config_dir) return nullptr;
  }
  // The path of a name is made once: the same string object every time
  // (its hash is kept with it); the file itself is loaded on every call.
  if (!fs().fw.template_paths) {
    fs().fw.template_paths = Ref::steal(PyDict_New());
    if (!fs().fw.template_paths) return nullptr;
  }
  PyObject* paths = fs().fw.template_paths.get();
  Ref file =
      PyUnicode_CheckExact(caller) ? Ref::borrow(PyDict_GetItemWithError(paths, caller)) : Ref();
  if (!file) {
    if (PyErr_Occurred() != nullptr) return nullptr;
    file = py::format("%U%U.yaml", fs().fw.config_dir.get(), caller);
    if (!file) return nullptr;
    constexpr Py_ssize_t kKeptPaths = 1024;  // names of functions: a bounded set
    if (PyUnicode_CheckExact(caller) && PyDict_Size(paths) < kKeptPaths &&
        PyDict_SetItem(paths, caller, file.get()) < 0) {
      return nullptr;
    }
  }
  PyObject* stack[3] = {nullptr, file.get(), names().yaml};
  return Ref::steal(vcall(fs().fw.load_from_file.get(), stack + 1, 1, names().file_type_kw));
}

// ---------------------------------------------------------------------------
// The class

Ref build_raid_class(PyObject* module) {
  g_state->frame.reset(new FrameState());
  fs().fw.module = module;
  struct Import {
    Ref* into;
    const char* module;
    const char* name;
  };
  const Import imports[] = {
      {&fs().fw.host_os_base, "orvex.api.hostos.hostos_base", "HostOSBase"},
      {&fs().fw.hostos_ns, "orvex.api.hostos.hostos_base", "hostos_ns"},
      {&fs().fw.host_type, "orvex.config.enum", "HostType"},
      {&fs().fw.obj_attr_decorator, "orvex.utils.decorator", "obj_attr_decorator"},
      {&fs().fw.load_from_file, "orvex.utils.file_parser", "load_from_file"},
      {&fs().fw.orvex_exception, "orvex.exception.orvex_exception", "OrvexException"},
      {&fs().fw.output_formatter, "orvex.api.hostos.raid.output_format", "OutputFormatter"},
      {&fs().fw.namedtuple, "collections", "namedtuple"},
      {&fs().fw.method_type, "types", "MethodType"},
  };
  for (const Import& i : imports) {
    *i.into = import_name(i.module, i.name);
    if (!*i.into) return nullptr;
  }
  if (g_runtime.version >= 0x03090000) variant_spec.flags |= kTypeVectorcall;
  fs().variant_type = reinterpret_cast<PyTypeObject*>(PyType_FromSpec(&variant_spec));
  // From 3.9 the interpreter calls an operation as a method descriptor,
  // through its vectorcall slot, without binding a method first.
  if (g_runtime.version >= 0x03090000) op_spec.flags |= kTypeVectorcall | kTypeMethodDescriptor;
  fs().op_type = reinterpret_cast<PyTypeObject*>(PyType_FromSpec(&op_spec));
  if (fs().variant_type == nullptr || fs().op_type == nullptr) return nullptr;

  OpList all;
  add_frame_ops(all);
  add_normalise_ops(all);
  add_controller_discovery_ops(all);
  add_controller_settings_ops(all);
  add_firmware_logs_ops(all);
  add_phy_expander_ops(all);
  add_supercap_ops(all);
  add_pd_list_details_ops(all);
  add_pd_state_ops(all);
  add_pd_erase_sanitize_ops(all);
  add_pd_copyback_ops(all);
  add_vd_lifecycle_ops(all);
  add_vd_policies_ops(all);
  add_vd_background_ops(all);
  add_vd_expansion_ops(all);
  add_patrol_read_ops(all);
  add_consistency_check_ops(all);
  add_fault_policies_ops(all);
  const std::size_t first = fs().defs.size();
  for (OpDef& d : all) fs().defs.push_back(std::move(d));

  Ref module_name = getattr(module, "__name__");
  Ref ns = compile_all(module_name.get(), first);
  if (!ns) return nullptr;

  PyObject* base = fs().fw.host_os_base.get();
  PyObject* meta = reinterpret_cast<PyObject*>(Py_TYPE(base));
  Ref modname = str("orvex.api.hostos.raid.raid");
  Ref qualname = str("Raid");
  Ref doc = str(kRaidDoc);
  if (set_item(ns.get(), "__module__", modname.get()) < 0 ||
      set_item(ns.get(), "__qualname__", qualname.get()) < 0 ||
      set_item(ns.get(), "__doc__", doc.get()) < 0) {
    return nullptr;
  }
  Ref bases = tuple({base});
  Ref cls = call(meta, {qualname.get(), bases.get(), ns.get()});
  if (!cls) return nullptr;
  if (!PyType_Check(cls.get()))
    return raise(PyExc_TypeError, "HostOSBase's metaclass made no type");
  fs().raid_type = reinterpret_cast<PyTypeObject*>(cls.get());
  Py_INCREF(cls.get());  // kept in the module state: the binder checks against it

  Ref prop = Ref::steal(PyDescr_NewGetSet(fs().raid_type, &g_distributor_getset));
  if (setattr(cls.get(), names().distributor, prop.get()) < 0) return nullptr;

  Ref host_os = getattr(fs().fw.host_type.get(), "HostOS");
  Ref decorate = call_method(fs().fw.hostos_ns.get(), "dispatchertype", {host_os.get()});
  return call(decorate.get(), {cls.get()});
}

}  // namespace raid
