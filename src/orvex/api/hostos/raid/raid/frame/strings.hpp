// Interned strings used on every call.
#pragma once

#include <Python.h>

namespace raid {

struct Strings {
  PyObject* u_distributor;  // "_distributor"
  PyObject* distributor;
  PyObject* raid_tool;
  PyObject* dispatcher;
  PyObject* host;
  PyObject* dispatch;
  PyObject* parser;
  PyObject* success;
  PyObject* formatter;
  PyObject* yaml;
  PyObject* contents;
  PyObject* raw_data;
  PyObject* items;
  PyObject* empty;
  PyObject* tools[4];  // indexed by Tool
};

void init_strings();
const Strings& S();

}  // namespace raid
