// Query bodies shared by the background-task operations, each driven by a
// small description handed to custom(tool, body, &description).
#pragma once

#include "../frame/frame.hpp"
#include "../frame/toolkit.hpp"

namespace raid::bg {

// A storcli64 property/value table ("Controller Properties" rows) flattened
// into {Ctrl_Prop: Value}, then shaped by the formatter template
// `formatter_attr`.
struct PropsQuery {
  const char* wrapper;
  const char* formatter_attr;
};

inline Ref props_query(const Call& c) {
  const auto& q = c.data<PropsQuery>();
  Ref parser = c.parsed(q.wrapper);
  Ref flat = kit::flatten_ctrl_props(parser.get());
  if (!flat) return nullptr;
  return c.format_with(flat.get(), q.formatter_attr);
}

// A one-entry answer {out_key: parser[section][entry]} (parser[entry] when
// there is no section).  A missing entry is a lookup error, or None when
// `lenient`.
struct EntryQuery {
  const char* wrapper;
  const char* section;
  const char* entry;
  const char* out_key;
  bool lenient;
};

inline Ref entry_query(const Call& c) {
  const auto& q = c.data<EntryQuery>();
  Ref at = c.parsed(q.wrapper);
  if (q.section != nullptr) at = py::index(at.get(), q.section);
  Ref value = q.lenient ? py::get(at.get(), q.entry) : py::index(at.get(), q.entry);
  if (!value) return nullptr;
  return py::dict({{q.out_key, value.get()}});
}

// A query whose tool reports failure inside its answer: the text
// `fail_text`, or an empty answer when fail_text is null, refuses with
// `message`.  Any other answer is shaped by the formatter template
// `formatter_attr`, or by the variant's own template file when that is null.
struct GuardedQuery {
  const char* wrapper;
  const char* fail_text;
  const char* message;
  const char* formatter_attr;
};

inline Ref guarded_query(const Call& c) {
  const auto& q = c.data<GuardedQuery>();
  Ref parser = c.parsed(q.wrapper);
  if (!parser) return nullptr;
  int failed = 0;
  if (q.fail_text != nullptr) {
    failed = py::equals(parser.get(), q.fail_text);
  } else {
    const int given = py::truthy(parser.get());
    failed = given < 0 ? -1 : static_cast<int>(given == 0);
  }
  if (failed < 0) return nullptr;
  if (failed == 1) return c.refuse(q.message);
  if (q.formatter_attr == nullptr) return c.format(parser.get());
  return c.format_with(parser.get(), q.formatter_attr);
}

}  // namespace raid::bg
