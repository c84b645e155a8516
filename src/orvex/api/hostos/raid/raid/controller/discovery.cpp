// Controller discovery and information: controller list and count, driver,
// configuration, status and capability information.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

namespace {

constexpr ParamDef kKeywordsOnly[] = {kwargs()};

// The driver's name and the version the module query reports for it.
Ref driver_info_sorbctl(const Call& c, const Wrapper& query) {
  Ref modname = str("sorbdrv");
  Ref p = dict({{"modname", modname.get()}});
  if (!p) return nullptr;
  Ref answer = c.dispatch_with(query, p.get());
  Ref first = item(answer.get(), 0);
  Ref parser = get(first.get(), "parser");
  Ref version = get(parser.get(), "version");
  if (!version) return nullptr;
  return dict({{"DriverName", modname.get()}, {"DriverVersion", version.get()}});
}

// storcli64 reports the controller in sections: flattened by the formatter's
// layer map, then formatted and shaped as the other tools' records.
struct StatusTexts {
  Wrapper query;
  Text layers;  // the formatter's method giving the layer map
  Text shape;   // the formatter's method shaping the formatted record
};

Ref status_storcli64(const Call& c, const StatusTexts& t) {
  Ref parser = c.parsed(t.query);
  if (!parser) return nullptr;
  Ref layers = c.formatter_call(t.layers.text, {});
  Ref flat = layers ? merge_output(parser.get(), nullptr, layers.get()) : nullptr;
  Ref formatted = c.format(flat.get());
  if (!formatted) return nullptr;
  return c.formatter_call(t.shape.text, {formatted.get()});
}

// The wrapper's whole answer, as it stands.
Ref whole_answer(const Call& c, const Wrapper& query) { return c.dispatch(query); }

}  // namespace

void add_controller_discovery_ops(OpList& ops) {
  ops.push_back(
      Op("get_all_controllers")
          .doc("查询主机上的所有 RAID 控制器（仅 sorbctl）。\n\n"
               "返回:\n    list: 控制器列表，即工具输出的 Controllers 部分。")
          .returns_doc("list")
          .variant_name("_get_all_controllers")
          .variants(
              {query(Tool::sorbctl, "get_controller_controllerid_sorbctl").get("Controllers")}));
  ops.push_back(Op("query_controller_number")
                    .doc("查询控制器数量。\n\n返回:\n    str: 控制器个数，如 \"1\"。")
                    .returns_doc("str")
                    .variant_name("_query_controller_number")
                    .variants({query(Tool::sorbctl, "get_controller_number_sorbctl"),
                               query(Tool::arcconf, "get_controller_number_arcconf"),
                               query(Tool::storcli64, "get_controller_number_storcli64")}));
  static constexpr Wrapper kModinfo{"modinfo"};
  ops.push_back(
      Op("query_controller_driver_info")
          .doc("查询控制卡驱动信息（仅 sorbctl，驱动 sorbdrv）。\n\n"
               "返回:\n    dict: {\"DriverName\": \"sorbdrv\", \"DriverVersion\": 驱动版本}。")
          .returns_doc("dict")
          .variant_name("_query_controller_driver_info")
          .variants({custom<driver_info_sorbctl, kModinfo>(Tool::sorbctl)}));
  static constexpr Wrapper kDetailConfig{"storcli64_get_lsi_raid_detail_config"};
  ops.push_back(Op("query_raid_config")
                    .params(kKeywordsOnly)
                    .extras({kAdpId, kAdapterId})
                    .doc("查询控制器配置。\n\n"
                         "参数:\n"
                         "    adp_id (str): 控制器编号（arcconf、sorbctl），缺省为第一个控制器。\n"
                         "    adapter_id (str): 控制器编号（storcli64），缺省为第一个控制器。\n\n"
                         "返回:\n    dict: 配置字典，如 {\"CopyBack Rate\": \"low\"}；storcli64 "
                         "返回命令的完整结果。")
                    .returns_doc("dict")
                    .variant_name("get_raid_config_info")
                    .variants({query(Tool::sorbctl, "get_controller_config_sorbctl")
                                   .strict()
                                   .note("adp_id", ExtraUse::reads),
                               // storcli64 hands back the whole answer
                               custom<whole_answer, kDetailConfig>(Tool::storcli64),
                               query(Tool::arcconf, "ctr_get_adpt_cfg_arcconf")
                                   .strict()
                                   .note("adp_id", ExtraUse::reads)}));
  static constexpr StatusTexts kStorcliStatus{{"ctr_get_all_cfg_storcli64"},
                                              {"storcli64_get_controller_status_raid_treatments"},
                                              {"get_controller_status_raid_format"}};
  ops.push_back(
      Op("get_controller_status_raid")
          .params(kKeywordsOnly)
          .extras({kAdpId})
          .doc(
              "查询控制器状态。\n\n"
              "参数:\n    adp_id (str): 控制器编号，缺省为第一个控制器。\n\n"
              "返回:\n    dict: sas_address, firmware_version, driver_version, vendor_id, psoc_pn, "
              "psoc_firmware_version, device_id, sub_vendor_id, sub_device_id, domain_number, "
              "bus_number, device_number, function_number, serial_number, pcie_width, pcie_speed, "
              "temperature, pd_number, vd_number, ddr_size, raw_data（工具的完整控制器记录）。")
          .returns(ResultType::dict)
          .variants({query(Tool::sorbctl, "get_controller_status_sorbctl")
                         .note("adp_id", ExtraUse::reads)
                         .format()
                         .post("get_controller_status_raid_format"),
                     // storcli64 flattens its sections by the formatter's layer map first
                     custom<status_storcli64, kStorcliStatus>(Tool::storcli64)
                         .note("adp_id", ExtraUse::reads),
                     query(Tool::arcconf, "ctr_get_adpt_cfg_arcconf")
                         .via(Route::host)
                         .note("adp_id", ExtraUse::reads)
                         .at("controller_information")
                         .format()
                         .post("get_controller_status_raid_format")}));
  ops.push_back(
      Op("get_controller_info_raid")
          .params(kKeywordsOnly)
          .extras({kAdapterId})
          .doc("查询控制器能力信息（仅 sorbctl 提供）。\n\n"
               "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
               "返回:\n    list: 能力条目，如 BpSupport、CtrlMod、DriveSupport、EP_PCIeSpeed、"
               "EP_PCIeWidth、MaxHDDNumberRaid10、MaxHDDStripeSize、MaxSuSize 等。")
          .returns(ResultType::list)
          .variants({refuse(Tool::storcli64, "博通卡 暂未提供查询控制器信息 功能"),
                     query(Tool::sorbctl, "get_controller_info_sorbctl")
                         .post("get_controller_info_raid_format"),
                     refuse(Tool::arcconf, "PMC卡 暂未提供查询控制器信息 功能")}));
}

}  // namespace raid
