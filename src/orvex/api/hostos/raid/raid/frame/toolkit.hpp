// Small building blocks shared by the operation bodies.  Like everything in
// the frame they return an empty Ref / -1 with the Python error set, and
// pass a NULL input through.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "frame.hpp"
#include "helpers.hpp"
#include "lookup.hpp"

namespace raid::kit {

using py::Ref;
// The shared walks and the regular expression cache (helpers.hpp).
using py::each;
using py::each_item;
using py::Regex;

// re.match("^" + prefix + ".*" + suffix + "$", text) as a yes or no, with
// the same reading of "." (no newline) and "$" (the end, or before a final
// newline); `pattern` is that expression, used for what is not an exact str.
class Framed {
 public:
  constexpr Framed(const char* prefix, const char* suffix, const char* pattern)
      : prefix_(prefix), suffix_(suffix), regex_(pattern) {}
  int test(PyObject* text) const;  // 1 or 0; -1 on error

 private:
  std::string_view prefix_;
  std::string_view suffix_;
  Regex regex_;
};

// text.split(sep)[0].strip(): the part before the first sep, without the
// whitespace around it.
Ref head_before(PyObject* text, char sep);

// The texts of many bodies: a query and the formatter's template its
// answer goes through.
struct Formatted {
  Wrapper query;
  Text format_name;
};

// A wrapper dispatched (through the variant's route, with params) before
// the variant's own; an Exception it raises is only logged at error level,
// as log_head + str(error), and the variant goes on.
struct FirstTry {
  Wrapper wrapper;
  Text log_head;
};
int try_first(const Call& c, const FirstTry& t);  // a prep: 0, or -1 on error

// storcli64 asks for the boot order by firmware before it sets a boot drive.
inline constexpr FirstTry kOrderByFirmware{{"ctr_set_device_order_by_firmware"},
                                           {"不支持order_by_firmware功能,"}};

// storcli64's property table as one dict:
// {row["Ctrl_Prop"]: row["Value"] for row in parser["Controller Properties"]}.
Ref props_table(PyObject* parser);

// record["Drive-ID"] = "c<adapter_id>:e<eid>:s<sid>", the params values as
// str() writes them (None included): the id sorbctl's drive records are
// given.  0, or -1 on error.
int put_drive_id(const Call& c, PyObject* record);

// str(int(days) * 24): a period in days as the tool's hours.
Ref days_as_hours(PyObject* days);

// datetime.strptime(text, in_form) + timedelta(**{unit: amount}),
// formatted with out_form.
Ref shift_time(PyObject* text, const char* in_form, const char* unit, long amount,
               const char* out_form);

// The first entry of a task list whose id_key reads as vid (both as text)
// and in whose operation_key text the pattern finds a match; None when no
// entry does or the list is empty or None.  Entries without an id are
// skipped.
Ref find_task(PyObject* tasks, PyObject* vid, const char* id_key, const char* operation_key,
              const Regex& operation);

}  // namespace raid::kit
