#include "helpers.hpp"

#include "runtime.hpp"

namespace raid::py {

Ref Regex::run(const char* fn, PyObject* text) const {
  if (text == nullptr) return nullptr;
  Kept& kept = *g_kept;
  if (generation_ != kept.generation) {
    Ref re = Ref::steal(PyImport_ImportModule("re"));
    Ref pattern = str(pattern_);
    Ref compiled = call_method(re.get(), "compile", {pattern.get()});
    if (!compiled) return nullptr;  // tried again on the next call
    kept.patterns.push_back(compiled);
    compiled_ = compiled.get();
    generation_ = kept.generation;
  }
  return call_method(compiled_, fn, {text});
}

}  // namespace raid::py
