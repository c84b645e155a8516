// The class: Raid built on the framework's base from the compiled rows,
// its own operations (constructor, update_distributor, the distributor
// property) and the frame's part of the module state.
#include "frame_state.hpp"
#include "objects.hpp"
#include "runtime.hpp"

namespace raid {

using namespace py;

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

Ref import_name(const char* module, const char* name) {
  Ref m = Ref::steal(PyImport_ImportModule(module));
  return getattr(m.get(), name);
}

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

}  // namespace

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
  fs().variant_type = make_variant_type();
  fs().op_type = make_op_type();
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
