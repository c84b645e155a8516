#include "strings.hpp"

#include "py.hpp"

namespace raid {

namespace {
Strings g_strings;
}

void init_strings() {
  auto in = [](const char* s) { return py::intern(s).release(); };  // kept for the process
  g_strings.u_distributor = in("_distributor");
  g_strings.distributor = in("distributor");
  g_strings.raid_tool = in("raid_tool");
  g_strings.dispatcher = in("dispatcher");
  g_strings.host = in("host");
  g_strings.dispatch = in("dispatch");
  g_strings.parser = in("parser");
  g_strings.success = in("success");
  g_strings.formatter = in("formatter");
  g_strings.yaml = in("yaml");
  g_strings.contents = in("contents");
  g_strings.raw_data = in("raw_data");
  g_strings.items = in("items");
  g_strings.empty = in("");
  g_strings.tools[0] = in("storcli64");
  g_strings.tools[1] = in("arcconf");
  g_strings.tools[2] = in("sorbctl");
  g_strings.tools[3] = in("storelibtest");
}

const Strings& S() { return g_strings; }

}  // namespace raid
