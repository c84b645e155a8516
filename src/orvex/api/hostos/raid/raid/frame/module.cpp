// Module init: builds Raid on the host framework's base class.
#include "frame.hpp"

namespace {

PyModuleDef g_module = {
    PyModuleDef_HEAD_INIT,
    "raid",
    "RAID 控制卡管理接口：类 Raid 按主机的 RAID 工具选择实现并整理结果。",
    -1,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

}  // namespace

PyMODINIT_FUNC PyInit_raid() {
  return raid::py::guard([]() -> raid::Ref {
    raid::Ref module = raid::Ref::steal(PyModule_Create(&g_module));
    raid::Ref cls = raid::build_raid_class(module.get());
    if (PyModule_AddObject(module.get(), "Raid", cls.get()) < 0) raid::py::fail();
    cls.release();  // PyModule_AddObject stole it
    return module;
  });
}
