#include "toolkit.hpp"

#include "runtime.hpp"

namespace raid::kit {

using namespace py;

Ref props_table(PyObject* parser) {
  Ref rows = index(parser, "Controller Properties");
  Ref flat = dict();
  if (!rows || !flat) return nullptr;
  Ref prop_key = str("Ctrl_Prop");
  Ref value_key = str("Value");
  const int r = each(rows.get(), [&](PyObject* row) {
    Ref prop = index(row, prop_key.get());
    Ref value = index(row, value_key.get());
    return set_item(flat.get(), prop.get(), value.get()) < 0 ? -1 : 0;
  });
  return r < 0 ? nullptr : flat;
}

int put_drive_id(const Call& c, PyObject* record) {
  Ref adapter = c.p_get("adapter_id");
  Ref eid = c.p_get("eid");
  Ref sid = c.p_get("sid");
  if (record == nullptr || !adapter || !eid || !sid) return -1;
  Ref id = format("c%S:e%S:s%S", adapter.get(), eid.get(), sid.get());
  Ref key = str("Drive-ID");
  return id && key ? PyObject_SetItem(record, key.get(), id.get()) : -1;
}

int Framed::test(PyObject* text) const {
  std::string_view t;
  if (!text_view(text, t)) {
    Ref match = regex_.match(text);
    return match ? (match.get() != Py_None ? 1 : 0) : -1;
  }
  // The suffix never ends in a newline, so "$" can only match at the end
  // or before one final newline.
  if (!t.empty() && t.back() == '\n') t.remove_suffix(1);
  if (t.size() < prefix_.size() + suffix_.size() || t.substr(0, prefix_.size()) != prefix_ ||
      t.substr(t.size() - suffix_.size()) != suffix_) {
    return 0;
  }
  const std::string_view between =
      t.substr(prefix_.size(), t.size() - prefix_.size() - suffix_.size());
  return between.find('\n') == std::string_view::npos ? 1 : 0;
}

namespace {

// What str.strip() takes away from ASCII text.
bool ascii_space(char ch) { return (ch >= '\t' && ch <= '\r') || (ch >= 0x1c && ch <= ' '); }

}  // namespace

Ref head_before(PyObject* text, char sep) {
  if (text == nullptr) return nullptr;
  std::string_view t;
  if (text_view(text, t) && static_cast<Py_ssize_t>(t.size()) == PyUnicode_GetLength(text)) {
    t = t.substr(0, t.find(sep));  // ASCII: bytes are characters
    while (!t.empty() && ascii_space(t.front())) t.remove_prefix(1);
    while (!t.empty() && ascii_space(t.back())) t.remove_suffix(1);
    return Ref::steal(PyUnicode_FromStringAndSize(t.data(), static_cast<Py_ssize_t>(t.size())));
  }
  const char mark[2] = {sep, '\0'};
  Ref separator = str(mark);
  Ref parts = call_method(text, "split", {separator.get()});
  Ref head = item(parts.get(), 0);
  return call_method(head.get(), "strip");
}

int try_first(const Call& c, const FirstTry& t) {
  if (c.dispatch_with(t.wrapper.name, c.params, c.variant.route)) return 0;
  Fetched error;
  if (!error.matches(PyExc_Exception)) {
    error.restore();
    return -1;
  }
  Ref text = to_str(error.value() != nullptr ? error.value() : Py_None);
  Ref message = concat({py::text(t.log_head.text).get(), text.get()});
  return message ? c.log_error(message.get()) : -1;
}

Ref days_as_hours(PyObject* days) {
  if (days == nullptr) return nullptr;
  Ref whole = Ref::steal(PyNumber_Long(days));
  Ref factor = integer(24);
  if (!whole || !factor) return nullptr;
  Ref hours = Ref::steal(PyNumber_Multiply(whole.get(), factor.get()));
  return to_str(hours.get());
}

Ref shift_time(PyObject* text, const char* in_form, const char* unit, long amount,
               const char* out_form) {
  if (text == nullptr) return nullptr;
  Ref datetime = Ref::steal(PyImport_ImportModule("datetime"));
  Ref datetime_type = getattr(datetime.get(), "datetime");
  Ref timedelta_type = getattr(datetime.get(), "timedelta");
  Ref in = str(in_form);
  Ref when = call_method(datetime_type.get(), "strptime", {text, in.get()});
  Ref n = integer(amount);
  if (!when || !n) return nullptr;
  Ref span_kwargs = dict({{unit, n.get()}});
  if (!span_kwargs || !timedelta_type) return nullptr;
  Ref span = call(timedelta_type.get(), {}, span_kwargs.get());
  if (!span) return nullptr;
  Ref later = Ref::steal(PyNumber_Add(when.get(), span.get()));
  Ref out = str(out_form);
  return call_method(later.get(), "strftime", {out.get()});
}

Ref find_task(PyObject* tasks, PyObject* vid, const char* id_key, const char* operation_key,
              const Regex& operation) {
  Ref vid_text = to_str(vid);
  const int any = truthy(tasks);
  if (!vid_text || any < 0) return nullptr;
  Ref found = none();
  if (any == 0) return found;
  const int r = each(tasks, [&](PyObject* task) {
    Ref id = get(task, id_key);
    if (!id) return -1;
    if (id.get() == Py_None) return 0;
    Ref id_text = to_str(id.get());
    const int this_one = equal(id_text.get(), vid_text.get());
    if (this_one <= 0) return this_one;
    Ref op = get(task, operation_key);
    Ref op_text = to_str(op.get());
    Ref m = operation.search(op_text.get());
    if (!m) return -1;
    if (m.get() == Py_None) return 0;
    found = Ref::borrow(task);
    return 1;
  });
  return r < 0 ? nullptr : found;
}

}  // namespace raid::kit
