// The texts of a computed variant, typed.
//
// A body (or prep) that dispatches wrappers, raises messages or calls other
// operations reads those texts from one constexpr struct beside its row,
// handed to it as a typed argument:
//
//   struct LogTexts {
//     Wrapper export_log;
//     Wrapper read;
//     Message failed;
//   };
//   Ref detail_log(const Call& c, const LogTexts& t) { ... c.parsed(t.read) ... }
//
//   constexpr LogTexts kArcconfLog{{"get_controller_log_arcconf"}, {"cat"},
//                                  {"导出日志文件失败"}};
//   ... .variants({custom<detail_log, kArcconfLog>(Tool::arcconf), ...})
//
// A misspelt field, a text of the wrong kind or a body registered with
// another struct stops the compilation.  The frame reads the fields in
// declaration order (each_field below) to list them in the reference of
// operations; a field of another type (a pattern, a parameter's position)
// is the body's own data and is not listed.  A texts struct is a plain
// aggregate of up to eight fields, none of them an array.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace raid {

// How a wrapper is dispatched: self.dispatch, self.host.dispatch or
// self.dispatcher.dispatch.
enum class Route : std::uint8_t { self, host, dispatcher };

struct Wrapper {  // a command wrapper, dispatched through `route`
  const char* name;
  Route route = Route::self;
};
struct Message {  // raised as OrvexException; "{}" places take values (Call::message)
  const char* text;
};
struct Operation {  // another public operation of Raid, called on the same object
  const char* name;
};
struct Text {  // any other text: a template or formatter name, a log line
  const char* text;
};

// One of the four kinds of text above.
template <class T>
constexpr bool is_text = std::is_same_v<T, Wrapper> || std::is_same_v<T, Message> ||
                         std::is_same_v<T, Operation> || std::is_same_v<T, Text>;

namespace fields {

// Stands for any field in an unevaluated initialiser.
struct Any {
  template <class T>
  operator T() const noexcept;  // NOLINT(google-explicit-constructor): never defined
};

template <class T, class... F>
auto braces(int) -> decltype(void(T{std::declval<F>()...}), std::true_type{});
template <class T, class... F>
std::false_type braces(...);

template <class T, std::size_t... I>
constexpr bool takes(std::index_sequence<I...>) {
  return decltype(braces<T, decltype(static_cast<void>(I), Any{})...>(0))::value;
}

// The number of fields of the aggregate T: the most initialisers (up to N)
// its braces take.  Each initialiser sets one field, never a field's own
// fields, since an Any converts to the field's type; and counting down
// counts a struct whose fields cannot be left out (references) too.
template <class T, std::size_t N = 8>
constexpr std::size_t count() {
  if constexpr (N == 0 || takes<T>(std::make_index_sequence<N>{})) {
    return N;
  } else {
    return count<T, N - 1>();
  }
}

}  // namespace fields

// f(field) for each field of the texts struct t, in declaration order; a
// body reading a single text has that text alone in place of the struct.
template <class T, class F>
void each_field(const T& t, F&& f) {
  if constexpr (is_text<T>) {
    f(t);
    return;
  }
  static_assert(std::is_aggregate_v<T>, "a texts struct is a plain aggregate");
  constexpr std::size_t n = fields::count<T>();
  static_assert(n >= 1 && n <= 8, "a texts struct has one to eight fields");
  if constexpr (n == 1) {
    const auto& [a] = t;
    f(a);
  } else if constexpr (n == 2) {
    const auto& [a, b] = t;
    (f(a), f(b));
  } else if constexpr (n == 3) {
    const auto& [a, b, c] = t;
    (f(a), f(b), f(c));
  } else if constexpr (n == 4) {
    const auto& [a, b, c, d] = t;
    (f(a), f(b), f(c), f(d));
  } else if constexpr (n == 5) {
    const auto& [a, b, c, d, e] = t;
    (f(a), f(b), f(c), f(d), f(e));
  } else if constexpr (n == 6) {
    const auto& [a, b, c, d, e, g] = t;
    (f(a), f(b), f(c), f(d), f(e), f(g));
  } else if constexpr (n == 7) {
    const auto& [a, b, c, d, e, g, h] = t;
    (f(a), f(b), f(c), f(d), f(e), f(g), f(h));
  } else {
    const auto& [a, b, c, d, e, g, h, i] = t;
    (f(a), f(b), f(c), f(d), f(e), f(g), f(h), f(i));
  }
}

}  // namespace raid
