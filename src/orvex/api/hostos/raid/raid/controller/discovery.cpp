// Controller discovery and information: controller list and count, driver,
// configuration, status and capability information.
#include "../frame/frame.hpp"

namespace raid {

using namespace py;

namespace {

Ref all_controllers_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_controllerid_sorbctl");
  return get(parser.get(), "Controllers");
}

Ref driver_info_sorbctl(Call& c) {
  Ref modname = str("sorbdrv");
  Ref p = dict({{"modname", modname.get()}});
  Ref answer = c.dispatch_with("modinfo", p.get());
  Ref first = item(answer.get(), 0);
  Ref parser = get(first.get(), "parser");
  Ref version = get(parser.get(), "version");
  return dict({{"DriverName", modname.get()}, {"DriverVersion", version.get()}});
}

Ref raid_config_storcli64(Call& c) { return c.dispatch("storcli64_get_lsi_raid_detail_config"); }

Ref status_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_status_sorbctl");
  Ref shaped = c.format(parser.get());
  return c.formatter_call("get_controller_status_raid_format", {shaped.get()});
}

Ref status_storcli64(Call& c) {
  Ref parser = c.parsed("ctr_get_all_cfg_storcli64");
  Ref layers = c.formatter_call("storcli64_get_controller_status_raid_treatments", {});
  Ref merged = merge_output(parser.get(), nullptr, layers.get());
  Ref shaped = c.format(merged.get());
  return c.formatter_call("get_controller_status_raid_format", {shaped.get()});
}

Ref status_arcconf(Call& c) {
  Ref parser = c.parsed("ctr_get_adpt_cfg_arcconf", Route::host);
  Ref info = index(parser.get(), "controller_information");
  Ref shaped = c.format(info.get());
  return c.formatter_call("get_controller_status_raid_format", {shaped.get()});
}

Ref info_sorbctl(Call& c) {
  Ref parser = c.parsed("get_controller_info_sorbctl");
  return c.formatter_call("get_controller_info_raid_format", {parser.get()});
}

}  // namespace

void add_controller_discovery_ops(OpList& ops) {
  ops.push_back(OpDef{"get_all_controllers",
                      "",
                      "查询主机上的所有 RAID 控制器（仅 sorbctl）。\n\n"
                      "返回:\n    list: 控制器列表，即工具输出的 Controllers 部分。",
                      {custom(Tool::sorbctl, all_controllers_sorbctl)},
                      ResultType::any,
                      "_get_all_controllers"});
  ops.push_back(OpDef{"query_controller_number",
                      "",
                      "查询控制器数量。\n\n返回:\n    str: 控制器个数，如 \"1\"。",
                      {parser(Tool::sorbctl, "get_controller_number_sorbctl"),
                       parser(Tool::arcconf, "get_controller_number_arcconf"),
                       parser(Tool::storcli64, "get_controller_number_storcli64")},
                      ResultType::any,
                      "_query_controller_number"});
  ops.push_back(
      OpDef{"query_controller_driver_info",
            "",
            "查询控制卡驱动信息（仅 sorbctl，驱动 sorbdrv）。\n\n"
            "返回:\n    dict: {\"DriverName\": \"sorbdrv\", \"DriverVersion\": 驱动版本}。",
            {custom(Tool::sorbctl, driver_info_sorbctl)},
            ResultType::any,
            "_query_controller_driver_info"});
  ops.push_back(OpDef{
      "query_raid_config",
      "**kwargs",
      "查询控制器配置。\n\n"
      "参数:\n"
      "    adp_id (str): 控制器编号（arcconf、sorbctl），缺省为第一个控制器。\n"
      "    adapter_id (str): 控制器编号（storcli64），缺省为第一个控制器。\n\n"
      "返回:\n    dict: 配置字典，如 {\"CopyBack Rate\": \"low\"}；storcli64 返回命令的完整结果。",
      {custom(Tool::sorbctl,
              [](Call& c) { return c.parsed_index("get_controller_config_sorbctl"); }),
       custom(Tool::storcli64, raid_config_storcli64),
       custom(Tool::arcconf, [](Call& c) { return c.parsed_index("ctr_get_adpt_cfg_arcconf"); })},
      ResultType::any,
      "get_raid_config_info"});
  ops.push_back(
      OpDef{"get_controller_status_raid",
            "**kwargs",
            "查询控制器状态。\n\n"
            "参数:\n    adp_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    dict: sas_address, firmware_version, driver_version, vendor_id, psoc_pn, "
            "psoc_firmware_version, device_id, sub_vendor_id, sub_device_id, domain_number, "
            "bus_number, device_number, function_number, serial_number, pcie_width, pcie_speed, "
            "temperature, pd_number, vd_number, ddr_size, raw_data（工具的完整控制器记录）。",
            {custom(Tool::sorbctl, status_sorbctl), custom(Tool::storcli64, status_storcli64),
             custom(Tool::arcconf, status_arcconf)},
            ResultType::dict});
  ops.push_back(
      OpDef{"get_controller_info_raid",
            "**kwargs",
            "查询控制器能力信息（仅 sorbctl 提供）。\n\n"
            "参数:\n    adapter_id (str): 控制器编号，缺省为第一个控制器。\n\n"
            "返回:\n    list: 能力条目，如 BpSupport、CtrlMod、DriveSupport、EP_PCIeSpeed、"
            "EP_PCIeWidth、MaxHDDNumberRaid10、MaxHDDStripeSize、MaxSuSize 等。",
            {refuse(Tool::storcli64, "博通卡 暂未提供查询控制器信息 功能"),
             custom(Tool::sorbctl, info_sorbctl),
             refuse(Tool::arcconf, "PMC卡 暂未提供查询控制器信息 功能")},
            ResultType::list});
}

}  // namespace raid
