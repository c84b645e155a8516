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
  raid::Ref module = raid::Ref::steal(PyModule_Create(&g_module));
  if (!module) return nullptr;
  raid::Ref cls = raid::build_raid_class(module.get());
  if (!cls || PyModule_AddObject(module.get(), "Raid", cls.get()) < 0) return nullptr;
  cls.release();  // PyModule_AddObject stole it
  return module.release();
}
