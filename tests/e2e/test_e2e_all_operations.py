"""Every operation of Raid, under every tool kind, on the simulated host.

The table below names, for each operation, the call a test script makes,
the tool kinds that serve it, the shape of a served result and the query
through which a change shows.  Tool kinds outside an entry's set must refuse
with OrvexException before anything reaches the host.  The operations are
enumerated from the class: one missing from the table fails.
"""
import datetime
import re

import pytest

import orvex_sim
from orvex.api.hostos.raid import raid as raid_module
from orvex.exception.orvex_exception import OrvexException
from orvex_sim.simhost import SimulatedHost
from conftest import TOOLS

ALL = frozenset(TOOLS)
NOT_OPERATIONS = {"update_distributor", "_format_output", "_merge_output", "distributor"}

STATUS_KEYS = ("sas_address", "firmware_version", "driver_version", "vendor_id", "psoc_pn",
               "psoc_firmware_version", "device_id", "sub_vendor_id", "sub_device_id",
               "domain_number", "bus_number", "device_number", "function_number",
               "serial_number", "pcie_width", "pcie_speed", "temperature", "pd_number",
               "vd_number", "ddr_size", "raw_data")
SHORT_KEYS = ("eid", "sid", "did", "interface", "media", "type", "status", "size", "model",
              "raw_data")
DETAIL_KEYS = ("eid", "sid", "did", "slot", "interface", "media", "link_speed", "size",
               "spin_status", "model", "type", "status", "sas_address", "disk_name",
               "serial_number", "firmware_version", "logical_sector_size",
               "physical_sector_size", "write_cache", "raw_data")
VD_LIST_KEYS = ("array", "vd", "status", "raid_level", "name", "size", "strip_unit_size",
                "write_cache", "read_cache", "raw_data")
VD_DETAIL_KEYS = ("vd", "name", "raid_level", "status", "write_cache", "read_cache", "size",
                  "strip_size", "os_drive_name", "vdwwn", "raw_data")
TASK_KEYS = ("vid", "Operation", "Progress", "Status", "Estimated_time_left", "raw_data")
PD_TASK_KEYS = ("Drive-ID", "Progress", "Status", "Estimated_time_left")
CAP_KEYS = ("Status", "Device Name", "Temperature", "SN", "Supercap SN", "Module Version",
            "Supercap Date of Manufacture", "Date of Manufacture", "PCB Version", "raw_data")
LEARN_KEYS = ("Last_learn_status", "Last_learn_time", "Learn_cycle", "Next_learn_time",
              "Present", "raw_data")
PR_KEYS = ("PR_switch", "PR_period", "drive_parall_num", "finish_drive_sum", "run_status",
           "raw_data")
CC_KEYS = ("CC Operation Mode", "CC Execution Delay", "CC Next Starttime", "CC Current State",
           "CC Number of iterations", "CC Number of VD completed", "CC Excluded VDs", "raw_data")
PHY_KEYS = ("phy_id", "invalid_dword_count", "running_disparity_error_count",
            "loss_of_dword_sync_count", "phy_reset_problem_count", "raw_data")
BOOT_KEYS = ("Type", "VID/DID", "Enc", "Slot", "Act_Slot")


# What each tool kind outside an operation's set raises, word for word.
REFUSALS = {
    ('activate_hot_ctl_fw', 'arcconf'): "PMC卡arcconf工具没有 固件热激活 功能",
    ('activate_hot_ctl_fw', 'storcli64'): "LSI卡storcli64工具没有 固件热激活 功能",
    ('ctl_get_phy_info_storelibtest', 'arcconf'): "PMC卡不支持使用storelibtest工具查询所有phy信息",
    ('ctl_get_phy_info_storelibtest', 'sorbctl'): "7460卡不支持使用storelibtest工具查询所有phy信息",
    ('ctl_phy_control_storelibtest', 'arcconf'): "PMC卡不支持使用storelibtest工具进行phy control测试",
    ('ctl_phy_control_storelibtest', 'sorbctl'): "7460卡不支持使用storelibtest工具进行phy control测试",
    ('export_fw_logs', 'arcconf'): "工具[arcconf]没有操作[export_fw_logs]的实现",
    ('export_fw_logs', 'sorbctl'): "工具[sorbctl]没有操作[export_fw_logs]的实现",
    ('get_all_controllers', 'arcconf'): "工具[arcconf]没有操作[_get_all_controllers]的实现",
    ('get_all_controllers', 'storcli64'): "工具[storcli64]没有操作[_get_all_controllers]的实现",
    ('get_bootwithpinnedcache', 'arcconf'): "PMC卡arcconf工具没有 查询存在脏数据时的控制器启动方式 功能",
    ('get_controller_ehsp', 'arcconf'): "PMC卡arcconf工具没有 查询紧急热备状态 功能",
    ('get_controller_info_raid', 'arcconf'): "PMC卡 暂未提供查询控制器信息 功能",
    ('get_controller_info_raid', 'storcli64'): "博通卡 暂未提供查询控制器信息 功能",
    ('get_copyback_rate', 'arcconf'): "PMC卡arcconf工具没有 查询回拷功能后台速率 功能",
    ('get_copyback_rate', 'storcli64'): "LSI卡storcli64工具没有 查询回拷功能后台速率 功能",
    ('get_copyback_status', 'arcconf'): "PMC卡arcconf工具没有 查询硬盘回拷功能状态 功能",
    ('get_ctl_ccheck_ccrate', 'arcconf'): "There is no such command in arcconf",
    ('get_ctl_current_time', 'arcconf'): "PMC卡arcconf工具没有 查询控制卡当前时间信息 功能",
    ('get_ctl_current_time', 'sorbctl'): "7460卡sorbctl工具没有 查询控制卡当前时间信息 功能",
    ('get_ctl_patrolread_status', 'arcconf'): "PMC卡arcconf工具没有 查询巡读功能状态 功能",
    ('get_expander_cfg', 'sorbctl'): "7460卡sorbctl工具没有 查询expander背板信息 功能",
    ('get_eye_diagram', 'arcconf'): "工具[arcconf]没有操作[get_eye_diagram]的实现",
    ('get_eye_diagram', 'storcli64'): "工具[storcli64]没有操作[get_eye_diagram]的实现",
    ('get_kickdrive_status', 'arcconf'): "PMC卡arcconf工具没有 kickdrive 功能",
    ('get_kickdrive_status', 'storcli64'): "LSI卡storcli64工具没有 kickdrive 功能",
    ('get_patrolread_rate', 'arcconf'): "PMC卡arcconf工具没有 查询巡读功能后台速率 功能",
    ('get_pd_copyback_info', 'arcconf'): "There is no such command in arcconf",
    ('get_pd_patrolread_status', 'arcconf'): "PMC卡arcconf工具没有 查询硬盘巡读功能状态 功能",
    ('get_pd_sanitize', 'arcconf'): "There is no such command in arcconf",
    ('get_precopy_info', 'arcconf'): "PMC卡arcconf工具没有 获取raid控制器预拷贝配置信息 功能",
    ('get_precopy_info', 'storcli64'): "LSI卡storcli64工具没有 获取raid控制器预拷贝配置信息 功能",
    ('get_slowdrive_status', 'arcconf'): "PMC卡arcconf工具没有 kickdrive 功能",
    ('get_slowdrive_status', 'storcli64'): "LSI卡storcli64工具没有 kickdrive 功能",
    ('get_ssd_caching_info', 'sorbctl'): "7460卡不支持SSD caching查询功能",
    ('get_supercap_self_learn_info', 'arcconf'): "PMC卡arcconf工具没有 查询超级电容自学习信息 功能",
    ('get_vd_emulation', 'arcconf'): "PMC卡arcconf工具没有 查询逻辑磁盘的扇区属性 功能",
    ('get_vd_emulation', 'sorbctl'): "7460卡sorbctl工具没有 查询逻辑磁盘的扇区属性 功能",
    ('get_vd_erase', 'arcconf'): "PMC卡arcconf工具没有 查询逻辑盘擦除操作 功能",
    ('get_vd_iopolicy_status', 'arcconf'): "PMC卡arcconf工具没有 查询指定逻辑盘的成员盘读写策略 功能",
    ('get_vd_iopolicy_status', 'sorbctl'): "7460卡sorbctl工具没有 查询指定逻辑盘的成员盘读写策略 功能",
    ('query_controller_driver_info', 'arcconf'): "工具[arcconf]没有操作[_query_controller_driver_info]的实现",
    ('query_controller_driver_info', 'storcli64'): "工具[storcli64]没有操作[_query_controller_driver_info]的实现",
    ('query_copyback_info', 'arcconf'): "PMC卡arcconf工具没有 RAID-查询回拷功能状态 功能",
    ('query_copyback_info', 'storcli64'): "博通卡 暂时未实现查询回拷功能状态 功能",
    ('query_virtual_drive_cc_status', 'arcconf'): "PMC卡arcconf工具没有 查询逻辑磁盘的一致性校验功能状态 功能",
    ('set_bootwithpinnedcache', 'arcconf'): "PMC卡arcconf工具没有 设置存在脏数据时的控制器启动方式 功能",
    ('set_ccheck_switch', 'arcconf'): "PMC卡arcconf工具没有 设置一致性校验开关 功能",
    ('set_controller_emergency_hotspare_switch', 'arcconf'): "PMC卡arcconf工具没有 设置控制器的紧急热备开关 功能",
    ('set_controller_foreign_config', 'arcconf'): "PMC卡arcconf工具没有 设置外部配置操作 功能",
    ('set_controller_pdcache', 'sorbctl'): "There is no such command in sorbctl",
    ('set_controller_pdcache', 'storcli64'): "There is no such command in storcli64",
    ('set_controller_phy_speed', 'arcconf'): "PMC卡不支持使用arcconf工具设置phy linkspeed",
    ('set_controller_phy_speed', 'storcli64'): "博通卡不支持使用storcli64工具设置phy linkspeed",
    ('set_controller_time', 'arcconf'): "PMC卡arcconf工具没有 设置raid控制器时间 功能",
    ('set_controller_time', 'sorbctl'): "7460卡sorbctl工具没有 设置raid控制器时间 功能",
    ('set_copyback_cfg', 'arcconf'): "PMC卡arcconf工具没有 设置回拷功能参数 功能",
    ('set_copyback_rate', 'arcconf'): "PMC卡arcconf工具没有 设置回拷功能后台速率 功能",
    ('set_copyback_rate', 'storcli64'): "LSI卡storcli64工具没有 设置回拷功能后台速率 功能",
    ('set_ctl_auto_rebuild', 'arcconf'): "PMC卡arcconf工具没有 设置控制器自动重构开关 功能",
    ('set_ctl_auto_rebuild', 'sorbctl'): "7460卡sorbctl工具没有 设置控制器自动重构开关 功能",
    ('set_ctl_ccheck_ccrate', 'arcconf'): "PMC卡arcconf工具没有 RAID-设置一致性校验功能参数_ccrate(一致性速率) 功能",
    ('set_ctl_ccheck_excludevd', 'arcconf'): "PMC卡arcconf工具没有 RAID-设置一致性校验功能参数_excludevd(cc任务中排除的逻辑盘) 功能",
    ('set_ctl_ccheck_excludevd', 'sorbctl'): "7460卡sorbctl工具没有 RAID-设置一致性校验功能参数_excludevd(cc任务中排除的逻辑盘) 功能",
    ('set_ctl_ccheck_parallelcount', 'sorbctl'): "7460卡sorbctl工具没有 RAID-设置一致性校验功能参数_parallelcount(并行硬盘数) 功能",
    ('set_ctl_ccheck_parallelcount', 'storcli64'): "LSI卡storcli64工具没有 RAID-设置一致性校验功能参数_parallelcount(并行硬盘数) 功能",
    ('set_ctl_ccheck_period', 'arcconf'): "PMC卡arcconf工具没有  RAID-设置一致性校验功能参数_period(周期) 功能",
    ('set_ctl_ccheck_repair', 'storcli64'): "LSI卡storcli64工具没有 RAID-设置一致性校验功能参数_repair(修复策略) 功能",
    ('set_ctl_ccheck_starttime', 'arcconf'): "PMC卡arcconf工具没有 RAID-设置一致性校验功能参数_starttime(开始时间) 功能",
    ('set_ctl_ccheck_starttime', 'sorbctl'): "7460卡sorbctl工具没有 RAID-设置一致性校验功能参数_starttime(开始时间) 功能",
    ('set_ctl_ccheck_state', 'arcconf'): "PMC卡arcconf工具没有 RAID-设置一致性校验功能模式状态 功能",
    ('set_ctl_ccheck_state', 'sorbctl'): "7460卡sorbctl工具没有 RAID-设置一致性校验功能模式状态 功能",
    ('set_ctl_mode', 'sorbctl'): "7460卡sorbctl工具没有 设置控制卡工作模式 功能",
    ('set_ctl_mode', 'storcli64'): "LSI卡storcli64工具没有 设置控制卡工作模式 功能",
    ('set_ctl_phy_func', 'arcconf'): "PMC卡arcconf工具没有 设置控制器PHY连接状态 功能",
    ('set_ctl_phy_func', 'storcli64'): "LSI卡storcli64工具没有 设置控制器PHY连接状态 功能",
    ('set_ctl_restart', 'arcconf'): "PMC卡arcconf工具没有 设置控制器复位 功能",
    ('set_ctl_restart', 'sorbctl'): "7460卡sorbctl工具没有 设置控制器复位 功能",
    ('set_ctl_restart_switch', 'arcconf'): "PMC卡arcconf工具没有 设置控制器复位开关打开或关闭 功能",
    ('set_ctl_restart_switch', 'sorbctl'): "7460卡sorbctl工具没有 设置控制器复位开关打开或关闭 功能",
    ('set_ctl_vd_accesspolicy', 'arcconf'): "PMC卡arcconf工具没有 设置逻辑磁盘的可访问属性 功能",
    ('set_ctl_vd_accesspolicy', 'sorbctl'): "7460卡sorbctl工具没有 设置逻辑磁盘的可访问属性 功能",
    ('set_ctl_vd_hidden', 'arcconf'): "PMC卡arcconf工具没有 设置逻辑磁盘的可见属性 功能",
    ('set_ctl_vd_hidden', 'sorbctl'): "7460卡sorbctl工具没有 设置逻辑磁盘的可见属性 功能",
    ('set_disk_jbod_state', 'arcconf'): "PMC卡arcconf工具没有 RAID-设置或取消硬盘直通状态 功能",
    ('set_disk_led_state', 'arcconf'): "PMC卡 暂未提供设置硬盘定位灯 功能",
    ('set_disk_led_state', 'storcli64'): "博通卡 暂未提供设置硬盘定位灯 功能",
    ('set_disk_rebuild', 'arcconf'): "PMC卡arcconf工具没有 设置硬盘重构功能操作 功能",
    ('set_disk_rebuild', 'sorbctl'): "7460卡sorbctl工具没有 设置硬盘重构功能操作 功能",
    ('set_kickdrive', 'arcconf'): "PMC卡arcconf工具没有 kickdrive 功能",
    ('set_kickdrive', 'storcli64'): "LSI卡storcli64工具没有 kickdrive 功能",
    ('set_patrolread_oper', 'arcconf'): "PMC卡arcconf工具没有 设置巡读功能操作 功能",
    ('set_patrolread_param', 'arcconf'): "PMC卡arcconf工具没有 设置巡读功能参数 功能",
    ('set_patrolread_rate', 'arcconf'): "PMC卡arcconf工具没有 设置巡读功能后台速率 功能",
    ('set_patrolread_switch', 'arcconf'): "PMC卡arcconf工具没有 设置巡读功能开关 功能",
    ('set_pd_copyback_func', 'arcconf'): "There is no such command in arcconf",
    ('set_pd_copyback_func', 'sorbctl'): "There is no such command in sorbctl",
    ('set_pd_insert', 'arcconf'): "PMC卡arcconf工具没有 将发生故障的硬盘加入RAID组 功能",
    ('set_pd_insert', 'sorbctl'): "7460卡sorbctl工具没有 将发生故障的硬盘加入RAID组 功能",
    ('set_pd_patrolread_oper', 'arcconf'): "PMC卡arcconf工具没有 设置硬盘巡读功能操作 功能",
    ('set_pd_patrolread_oper', 'storcli64'): "LSI卡storcli64工具没有 设置硬盘巡读功能操作 功能",
    ('set_pd_pdcache', 'arcconf'): "There is no such command in arcconf",
    ('set_pd_pdcache', 'storcli64'): "There is no such command in storcli64",
    ('set_precopy', 'arcconf'): "PMC卡arcconf工具没有 设置raid控制器预拷贝参数功能",
    ('set_precopy', 'storcli64'): "LSI卡storcli64工具没有 设置raid控制器预拷贝参数 功能",
    ('set_slowdrive', 'arcconf'): "PMC卡arcconf工具没有 slowdrive 功能",
    ('set_slowdrive', 'storcli64'): "LSI卡storcli64工具没有 slowdrive 功能",
    ('set_supercap_learn', 'arcconf'): "PMC卡arcconf工具没有 设置超级电容自学习 功能",
    ('set_vd_emulation', 'arcconf'): "PMC卡arcconf工具没有 设置逻辑磁盘的扇区属性 功能",
    ('set_vd_emulation', 'sorbctl'): "7460卡sorbctl工具没有 设置逻辑磁盘的扇区属性 功能",
    ('set_vd_erase', 'arcconf'): "PMC卡arcconf工具没有 设置逻辑盘擦除功能 功能",
    ('set_vd_iopolicy_status', 'arcconf'): "PMC卡arcconf工具没有 设置逻辑磁盘的读写策略 功能",
    ('set_vd_iopolicy_status', 'sorbctl'): "7460卡sorbctl工具没有 设置逻辑磁盘的读写策略 功能",
    ('set_virtual_drive_autobgi_switch', 'arcconf'): "PMC卡arcconf工具没有 设置后台初始化使能开关 功能",
    ('set_virtual_drive_autobgi_switch', 'sorbctl'): "7460卡sorbctl工具没有 设置后台初始化使能开关 功能",
    ('set_virtual_drive_cc', 'arcconf'): "PMC卡arcconf工具没有 设置逻辑磁盘一致性校验功能操作 功能",
    ('set_virtual_drive_init_option', 'arcconf'): "PMC卡arcconf工具没有 设置逻辑磁盘初始化功能操作 功能",
    ('set_virtual_drive_init_option', 'sorbctl'): "7460卡sorbctl工具没有 设置逻辑磁盘初始化功能操作 功能",
    ('start_pd_sanitize', 'arcconf'): "There is no such command in arcconf",
}


class World:
    """A host with VD 0 = RAID 5 on slots 0-2 (SAS HDD, initialised) and
    VD 1 = RAID 1 of 2000 GB on slots 6-7 (SATA HDD); slots 3 (SAS HDD),
    4 and 5 (SAS SSD) are free."""

    def __init__(self, tool):
        self.tool = tool
        self.host = SimulatedHost(tool)
        with orvex_sim.use(self.host):
            self.raid = raid_module.Raid()
        self.e = self.host.model.drives[0].eid
        assert self.raid.create_virtual_drive(raid_level="5", drives=self.d(0, 1, 2),
                                              pd_per_array="") is True
        assert self.raid.create_virtual_drive(raid_level="1", drives=self.d(6, 7),
                                              size="2000GB", pd_per_array="") is True
        self.host.advance(200)
        self.host.calls.clear()

    def d(self, *slots):
        return ["%s:%d" % (self.e, s) for s in slots]

    def pick(self, **per_tool):
        """The value for this tool; tools that refuse get the first one."""
        return per_tool.get(self.tool, next(iter(per_tool.values())))

    def drive(self, sid):
        return self.raid.get_one_physical_drive_info(eid=self.e, sid=str(sid))

    def vd_list(self):
        return self.raid._get_virtual_drive_list()


# -- result shapes ---------------------------------------------------------------

def true(r, w):
    assert r is True


def equal(expected):
    def check(r, w):
        want = expected(w) if callable(expected) else expected
        assert r == want
    return check


def keys(*names):
    def check(r, w):
        assert isinstance(r, dict), r
        missing = [k for k in names if k not in r]
        assert not missing, "missing %s in %r" % (missing, sorted(r))
    return check


def rows(*names, count=None):
    def check(r, w):
        assert isinstance(r, list), r
        if count is not None:
            assert len(r) == (count(w) if callable(count) else count)
        assert r, "empty list"
        for row in r:
            keys(*names)(row, w)
    return check


def per_tool(**checks):
    def check(r, w):
        checks[w.tool](r, w)
    return check


def task_shape(r, w):
    """storcli64 answers its status table (a list of rows), the others one record."""
    if w.tool == "storcli64":
        rows(*TASK_KEYS, count=1)(r, w)
    else:
        keys(*TASK_KEYS)(r, w)


def lines(count=None):
    def check(r, w):
        assert isinstance(r, list) and r and all(isinstance(x, str) and x for x in r), r
        if count is not None:
            assert len(r) == count
    return check


def clock_text(r, w):
    assert re.match(r"^\d{4}/\d\d/\d\d \d\d:\d\d:\d\d$", r), r


def in_progress(text):
    return str(text).lower() in ("in progress", "running", "run", "active")


# -- the table ---------------------------------------------------------------------

class Case:
    def __init__(self, call, shape, tools=ALL, setup=None, after=None):
        self.call, self.shape, self.tools = call, shape, frozenset(tools)
        self.setup, self.after = setup, after


def seconds_ago(w, text):
    """How long before the host clock `text` ("%Y-%m-%d %H:%M:%S") lies."""
    when = datetime.datetime.strptime(text, "%Y-%m-%d %H:%M:%S")
    return (w.host.clock - when).total_seconds()


def future_hour(w):
    return (w.host.model.now() + datetime.timedelta(days=1)).strftime("%Y/%m/%d %H")


def spare_then_fail(w):
    assert w.raid.set_pd_hotspare_drive(w.e, "3", "add") is True
    w.host.fail_drive(w.e, "0")


def jbod_drive(w):
    if w.tool == "arcconf":
        assert w.raid.set_ctl_mode("5") is True
    else:
        assert w.raid.set_jbod_state("on") is True
        assert w.raid.set_disk_jbod_state(eid=w.e, sid="3", state="on") is True


def first_row(r):
    return r[0] if isinstance(r, list) else r


CASES = {
    # controller discovery and information
    "get_all_controllers": Case(lambda w: w.raid.get_all_controllers(), rows("ID", "Name"),
                                {"sorbctl"}),
    "query_controller_number": Case(lambda w: w.raid.query_controller_number(), equal("1")),
    "query_controller_driver_info": Case(
        lambda w: w.raid.query_controller_driver_info(),
        equal({"DriverName": "sorbdrv", "DriverVersion": "1.2.0.8"}), {"sorbctl"}),
    "query_raid_config": Case(lambda w: w.raid.query_raid_config(), per_tool(
        storcli64=lambda r, w: keys("Basics", "VD LIST", "PD LIST")(r[0]["parser"], w),
        arcconf=keys("controller_information"), sorbctl=keys("CopyBack Rate"))),
    "get_controller_status_raid": Case(
        lambda w: w.raid.get_controller_status_raid(),
        lambda r, w: keys(*STATUS_KEYS)(r, w) or (str(r["pd_number"]), str(r["vd_number"]))
        == ("8", "2")
        or pytest.fail(repr(r))),
    "get_controller_info_raid": Case(lambda w: w.raid.get_controller_info_raid(),
                                     lambda r, w: {"CtrlMod": "RAID"} in r, {"sorbctl"}),
    # controller settings
    "set_ctl_mode": Case(lambda w: w.raid.set_ctl_mode("5"), true, {"arcconf"},
                         after=lambda w: w.raid.query_jbod_info() == "ON"),
    "set_jbod_state": Case(lambda w: w.raid.set_jbod_state("on"), true,
                           after=lambda w: w.raid.query_jbod_info() == "ON"),
    "query_jbod_info": Case(lambda w: w.raid.query_jbod_info(), equal("OFF")),
    "get_ctl_current_time": Case(lambda w: w.raid.get_ctl_current_time(), clock_text,
                                 {"storcli64"}),
    "set_controller_time": Case(
        lambda w: w.raid.set_controller_time(ctl_time="20250101 10:00:00"), true, {"storcli64"},
        after=lambda w: w.raid.get_ctl_current_time().startswith("2025/01/01 10:00")),
    "set_ctl_restart": Case(lambda w: w.raid.set_ctl_restart(), true, {"storcli64"},
                            after=lambda w: w.host.model.restarts == 1),
    "set_ctl_restart_switch": Case(lambda w: w.raid.set_ctl_restart_switch("off"), true,
                                   {"storcli64"},
                                   after=lambda w: w.host.model.restart_switch == "off"),
    "set_ctl_auto_rebuild": Case(lambda w: w.raid.set_ctl_auto_rebuild("off"), true,
                                 {"storcli64"},
                                 after=lambda w: w.host.model.auto_rebuild is False),
    "get_controller_ehsp": Case(lambda w: w.raid.get_controller_ehsp(), equal("OFF"),
                                {"storcli64", "sorbctl"}),
    "set_controller_emergency_hotspare_switch": Case(
        lambda w: w.raid.set_controller_emergency_hotspare_switch("on"), true,
        {"storcli64", "sorbctl"}, after=lambda w: w.raid.get_controller_ehsp() == "ON"),
    "set_bootwithpinnedcache": Case(
        lambda w: w.raid.set_bootwithpinnedcache("on"), true, {"storcli64", "sorbctl"},
        after=lambda w: w.raid.get_bootwithpinnedcache() == "ON"),
    "get_bootwithpinnedcache": Case(lambda w: w.raid.get_bootwithpinnedcache(), equal("OFF"),
                                    {"storcli64", "sorbctl"}),
    "set_controller_pdcache": Case(
        lambda w: w.raid.set_controller_pdcache(state="on"), true, {"arcconf"},
        after=lambda w: w.drive(3)["write_cache"] == "On"),
    "set_controller_foreign_config": Case(
        lambda w: w.raid.set_controller_foreign_config(oper="import"), true,
        {"storcli64", "sorbctl"}, setup=lambda w: w.host.add_foreign_config("3"),
        after=lambda w: len(w.vd_list()) == 3 and w.drive(3)["status"] == "online"),
    # firmware, logs, pass-through
    "export_fw_logs": Case(lambda w: w.raid.export_fw_logs(), lines(), {"storcli64"}),
    "get_controller_detail_log": Case(lambda w: w.raid.get_controller_detail_log(), lines()),
    "update_controller_fw": Case(
        lambda w: w.raid.update_controller_fw("/root/fw/controller.bin"), true,
        # sorbctl loads the image and runs it only once activated
        after=lambda w: w.raid.get_controller_status_raid()["firmware_version"] == w.pick(
            storcli64="5.060.01-2270", arcconf="4.72", sorbctl="1.2.3.0")),
    "update_pd_fw": Case(lambda w: w.raid.update_pd_fw(w.e, "3", "/root/fw/drive.lod"), true,
                         after=lambda w: w.drive(3)["firmware_version"] != "N003"),
    "activate_hot_ctl_fw": Case(
        lambda w: w.raid.activate_hot_ctl_fw(), true, {"sorbctl"},
        setup=lambda w: w.raid.update_controller_fw("/root/fw/controller.bin"),
        after=lambda w: w.raid.get_controller_status_raid()["firmware_version"] == "1.2.4.0"),
    "controller_command_passthru": Case(
        lambda w: w.raid.controller_command_passthru(w.e, "3", "12 00 00 00 24 00",
                                                     data_transfer="read"),
        lambda r, w: (isinstance(r, tuple) and len(r) == 2 and r[0]
                      and r[1][:8] == ["00", "00", "06", "12", "5b", "00", "10", "02"])
        or pytest.fail(repr(r))),
    # PHY and expander
    "get_expander_cfg": Case(lambda w: w.raid.get_expander_cfg(),
                             rows("expander_id", "product_id", count=1),
                             {"storcli64", "arcconf"}),
    "get_ctl_phyerror": Case(lambda w: w.raid.get_ctl_phyerror(), per_tool(
        storcli64=rows(*PHY_KEYS, count=8), sorbctl=rows(*PHY_KEYS, count=8),
        arcconf=keys(*"01234567", "raw_data"))),
    "set_ctl_phy_func": Case(lambda w: w.raid.set_ctl_phy_func(w.e, "3", "disable"), true,
                             {"sorbctl"},
                             after=lambda w: w.drive(3)["spin_status"] == "Spin Down"),
    "ctl_get_phy_info_storelibtest": Case(lambda w: w.raid.ctl_get_phy_info_storelibtest("0-3"),
                                          lines(4), {"storcli64"}),
    "ctl_phy_control_storelibtest": Case(
        lambda w: w.raid.ctl_phy_control_storelibtest("1", "all"), lines(8), {"storcli64"}),
    "set_controller_phy_speed": Case(
        lambda w: w.raid.set_controller_phy_speed(eid=w.e, sid="3", speed="6G"), true,
        {"sorbctl"}, after=lambda w: w.drive(3)["raw_data"]["PhySpeed"] == "6G"),
    "get_eye_diagram": Case(lambda w: w.raid.get_eye_diagram("0", "1"),
                            keys("PhyId", "EyeHeight", "EyeWidth"), {"sorbctl"}),
    # supercapacitor
    "get_capacitance_info": Case(lambda w: w.raid.get_capacitance_info(), keys(*CAP_KEYS)),
    "set_supercap_learn": Case(
        lambda w: w.raid.set_supercap_learn(), true, {"storcli64", "sorbctl"},
        after=lambda w: w.host.model.learn_task is not None if w.tool == "storcli64"
        else seconds_ago(w, w.raid.get_supercap_self_learn_info()["Next_learn_time"]) < 5),
    "get_supercap_self_learn_info": Case(lambda w: w.raid.get_supercap_self_learn_info(),
                                         keys(*LEARN_KEYS), {"storcli64", "sorbctl"}),
    # physical drives
    "_get_physical_drive_list": Case(lambda w: w.raid._get_physical_drive_list(),
                                     rows(*SHORT_KEYS, count=8)),
    "get_one_physical_drive_info": Case(
        lambda w: w.drive(3),
        lambda r, w: keys(*DETAIL_KEYS)(r, w) or (r["status"], r["sid"]) == ("ugood", "3")
        or pytest.fail(repr(r))),
    "get_all_physical_drive_info": Case(lambda w: w.raid.get_all_physical_drive_info(),
                                        rows(*DETAIL_KEYS, count=8)),
    "set_disk_state": Case(
        lambda w: w.raid.set_disk_state(eid=w.e, sid="0", state=w.pick(
            storcli64="offline", sorbctl="offline", arcconf="ddd")), true,
        after=lambda w: w.drive(0)["status"] in ("offline", "failed")),
    "set_disk_offline": Case(lambda w: w.raid.set_disk_offline(eid=w.e, sid="0"), true,
                             after=lambda w: w.drive(0)["status"] in ("offline", "failed")),
    "set_disk_jbod_state": Case(
        lambda w: w.raid.set_disk_jbod_state(eid=w.e, sid="3", state="on"), true,
        {"storcli64", "sorbctl"}, setup=lambda w: w.raid.set_jbod_state("on"),
        after=lambda w: w.drive(3)["status"] == "jbod"),
    "set_disk_led_state": Case(
        lambda w: w.raid.set_disk_led_state(w.e, "3", "on", led_type="locate"), true,
        {"sorbctl"}, after=lambda w: w.drive(3)["raw_data"]["Led"] == "on"),
    "set_pd_hotspare_drive": Case(lambda w: w.raid.set_pd_hotspare_drive(w.e, "3", "add"), true,
                                  after=lambda w: w.drive(3)["status"] == "hotspare"),
    "set_disk_rebuild": Case(
        lambda w: w.raid.set_disk_rebuild(eid=w.e, sid="0", oper="start"), true, {"storcli64"},
        setup=lambda w: w.raid.set_disk_offline(eid=w.e, sid="0"),
        after=lambda w: w.drive(0)["status"] == "reconstructing"),
    "get_pd_rebuild_status": Case(
        lambda w: w.raid.get_pd_rebuild_status(eid=w.e, sid="3"),
        lambda r, w: keys("status", "progress", "estimated_time_left")(r, w)
        or in_progress(r["status"]) or pytest.fail(repr(r)), setup=spare_then_fail),
    "set_pd_insert": Case(
        lambda w: w.raid.set_pd_insert(eid=w.e, sid="3", dg="0", arr="0", row="0"),
        equal("success"), {"storcli64"}, setup=lambda w: w.host.fail_drive(w.e, "0"),
        after=lambda w: {"eid": w.e, "sid": "3"} in w.raid.get_virtual_drive_member_drives(
            vid="0")),
    "pd_set_bootdrive": Case(
        lambda w: w.raid.pd_set_bootdrive(eid=w.e, sid="3", state="primary"), true,
        setup=jbod_drive,
        after=lambda w: any(b["Type"] == "PD" and b["Slot"] == "3"
                            for b in w.raid.query_boot_drive())),
    "set_pd_pdcache": Case(lambda w: w.raid.set_pd_pdcache(eid=w.e, sid="3", state="on"), true,
                           {"sorbctl"}, after=lambda w: w.drive(3)["write_cache"] == "On"),
    # erase and sanitize
    "start_pd_sanitize": Case(
        lambda w: w.raid.start_pd_sanitize(eid=w.e, sid="4", mode="cryptoerase"), true,
        {"storcli64", "sorbctl"},
        after=lambda w: in_progress(w.raid.get_pd_sanitize(w.e, "4")["Status"])),
    "get_pd_sanitize": Case(lambda w: w.raid.get_pd_sanitize(w.e, "4"),
                            keys("Status", "Progress", "Estimated_time_left", "raw_data"),
                            {"storcli64", "sorbctl"}),
    "start_pd_erase": Case(
        lambda w: w.raid.start_pd_erase(eid=w.e, sid="3", mode="simple"), true,
        after=lambda w: in_progress(w.raid.get_pd_erase(eid=w.e, sid="3")["Status"])),
    "stop_pd_erase": Case(
        lambda w: w.raid.stop_pd_erase(eid=w.e, sid="3"), true,
        setup=lambda w: w.raid.start_pd_erase(eid=w.e, sid="3", mode="normal"),
        after=lambda w: not in_progress(w.raid.get_pd_erase(eid=w.e, sid="3")["Status"])),
    "get_pd_erase": Case(lambda w: w.raid.get_pd_erase(eid=w.e, sid="3", adapter_id="0"),
                         keys(*PD_TASK_KEYS)),
    # copyback and precopy
    "query_copyback_info": Case(lambda w: w.raid.query_copyback_info(), equal("on"),
                                {"sorbctl"}),
    "get_copyback_status": Case(lambda w: w.raid.get_copyback_status(), equal("ON"),
                                {"storcli64", "sorbctl"}),
    "set_copyback_cfg": Case(lambda w: w.raid.set_copyback_cfg("off"), true,
                             {"storcli64", "sorbctl"},
                             after=lambda w: w.raid.get_copyback_status() == "OFF"),
    "set_copyback_rate": Case(
        lambda w: w.raid.set_copyback_rate("high"), true, {"sorbctl"},
        after=lambda w: w.raid.get_copyback_rate() == {"CopyBack Rate": "high"}),
    "get_copyback_rate": Case(lambda w: w.raid.get_copyback_rate(),
                              equal({"CopyBack Rate": "low"}), {"sorbctl"}),
    "get_precopy_info": Case(lambda w: w.raid.get_precopy_info(),
                             lambda r, w: r["precopy_switch"] == "off" and "Precopy Switch"
                             not in r or pytest.fail(repr(r)), {"sorbctl"}),
    "set_precopy": Case(lambda w: w.raid.set_precopy(state="on"), true, {"sorbctl"},
                        after=lambda w: w.raid.get_precopy_info()["precopy_switch"] == "on"),
    "set_pd_copyback_func": Case(
        lambda w: w.raid.set_pd_copyback_func(w.e, "0", "start", target=w.e + ":3"),
        equal("success"), {"storcli64"},
        after=lambda w: in_progress(w.raid.get_pd_copyback_info(eid=w.e, sid="3")["Status"])),
    "get_pd_copyback_info": Case(lambda w: w.raid.get_pd_copyback_info(eid=w.e, sid="0"),
                                 keys(*PD_TASK_KEYS), {"storcli64", "sorbctl"}),
    # virtual drives
    "create_virtual_drive": Case(
        lambda w: w.raid.create_virtual_drive(raid_level="1", drives=w.d(4, 5),
                                              pd_per_array=""), true,
        after=lambda w: len(w.vd_list()) == 3
        and w.raid.get_virtual_drive_member_drives(vid="2") == [
            {"eid": w.e, "sid": "4"}, {"eid": w.e, "sid": "5"}]),
    "delete_virtual_drive": Case(
        lambda w: w.raid.delete_virtual_drive(vid="1"), true,
        after=lambda w: len(w.vd_list()) == 1 and w.drive(6)["status"] == "ugood"),
    "_get_virtual_drive_list": Case(lambda w: w.vd_list(), rows(*VD_LIST_KEYS, count=2)),
    "get_one_virtual_drive_info": Case(
        lambda w: w.raid.get_one_virtual_drive_info(vid="0"),
        per_tool(storcli64=keys(*VD_DETAIL_KEYS), sorbctl=keys(*VD_DETAIL_KEYS),
                 arcconf=keys(*VD_LIST_KEYS))),
    "get_all_virtual_drive_info": Case(
        lambda w: w.raid.get_all_virtual_drive_info(),
        per_tool(storcli64=rows(*VD_DETAIL_KEYS, count=2), sorbctl=rows(*VD_DETAIL_KEYS, count=2),
                 arcconf=rows(*VD_LIST_KEYS, count=2))),
    "get_virtual_drive_member_drives": Case(
        lambda w: w.raid.get_virtual_drive_member_drives(vid="0"),
        equal(lambda w: [{"eid": w.e, "sid": s} for s in ("0", "1", "2")])),
    "set_virtual_drive_write_cache_mode": Case(
        lambda w: w.raid.set_virtual_drive_write_cache_mode(vid="0", state="on"), true,
        after=lambda w: w.host.model.vds[0].pdcache == "on"),
    "set_virtual_drive_wrcache": Case(
        lambda w: w.raid.set_virtual_drive_wrcache(vid="0", wrcache="wt"), true,
        after=lambda w: w.raid.get_one_virtual_drive_info(vid="0")["write_cache"] == w.pick(
            storcli64="WT", sorbctl="WT", arcconf="Disabled (write-through)")),
    "set_virtual_drive_rdcache": Case(
        lambda w: w.raid.set_virtual_drive_rdcache("0", "nora"), true,
        after=lambda w: w.raid.get_one_virtual_drive_info(vid="0")["read_cache"] == w.pick(
            storcli64="NoRA", sorbctl="No_Ahead", arcconf="Disabled")),
    "set_vd_iopolicy_status": Case(
        lambda w: w.raid.set_vd_iopolicy_status(vid="0", iopolicy="cached"), true,
        {"storcli64"}, after=lambda w: w.raid.get_vd_iopolicy_status(vid="0") == {
            "/c0/v0": {"iopolicy": "Cached IO"}}),
    "get_vd_iopolicy_status": Case(lambda w: w.raid.get_vd_iopolicy_status(vid="0"),
                                   equal({"/c0/v0": {"iopolicy": "Direct IO"}}), {"storcli64"}),
    "set_vd_emulation": Case(
        lambda w: w.raid.set_vd_emulation(vid="0", emulation_type="2"), true, {"storcli64"},
        after=lambda w: w.raid.get_vd_emulation(vid="0") == {
            "/c0/v0": {"Emulation type": "force"}}),
    "get_vd_emulation": Case(lambda w: w.raid.get_vd_emulation(vid="all"),
                             equal({"/c0/v0": {"Emulation type": "default"},
                                    "/c0/v1": {"Emulation type": "default"}}), {"storcli64"}),
    "set_ctl_vd_hidden": Case(
        lambda w: w.raid.set_ctl_vd_hidden(vid="0", state="on"), true, {"storcli64"},
        after=lambda w: w.raid.get_one_virtual_drive_info(vid="0")["os_drive_name"] == ""),
    "set_ctl_vd_accesspolicy": Case(
        lambda w: w.raid.set_ctl_vd_accesspolicy(vid="0", accesspolicy="ro"), true,
        {"storcli64"},
        after=lambda w: w.raid.get_one_virtual_drive_info(vid="0")["raw_data"]["Access"] == "R"),
    "vd_set_bootdrive": Case(
        lambda w: w.raid.vd_set_bootdrive(vid="1", state="primary"), true,
        after=lambda w: w.raid.query_boot_drive()[0]["Type"] == "VD"
        and w.raid.query_boot_drive()[0]["VID/DID"] == "1"),
    "query_boot_drive": Case(lambda w: w.raid.query_boot_drive(), per_tool(
        storcli64=equal([]), sorbctl=equal([]),
        arcconf=equal([{k: "None" for k in BOOT_KEYS}] * 2))),
    # virtual drive background operations
    "set_virtual_drive_cc": Case(
        lambda w: w.raid.set_virtual_drive_cc("0", "start"), true, {"storcli64", "sorbctl"},
        after=lambda w: in_progress(first_row(w.raid.query_virtual_drive_cc_status("0"))["Status"])),
    "query_virtual_drive_cc_status": Case(
        lambda w: w.raid.query_virtual_drive_cc_status("0"),
        per_tool(storcli64=rows(*TASK_KEYS, count=1), sorbctl=keys(*TASK_KEYS)),
        {"storcli64", "sorbctl"}),
    "set_virtual_drive_init_option": Case(
        lambda w: w.raid.set_virtual_drive_init_option(vid="0", state="start"), true,
        {"storcli64"}, after=lambda w: in_progress(first_row(
            w.raid.get_virtual_drive_front_init_status_info(vid="0"))["Status"])),
    "get_virtual_drive_bgi_state": Case(lambda w: w.raid.get_virtual_drive_bgi_state(vid="0"),
                                        task_shape),
    "set_virtual_drive_autobgi_switch": Case(
        lambda w: w.raid.set_virtual_drive_autobgi_switch("0", "off"), true, {"storcli64"},
        after=lambda w: w.host.model.vds[0].autobgi is False),
    "get_virtual_drive_front_init_status_info": Case(
        lambda w: w.raid.get_virtual_drive_front_init_status_info(vid="0"), task_shape),
    "set_vd_erase": Case(
        lambda w: w.raid.set_vd_erase("1", "start"), true, {"storcli64", "sorbctl"},
        after=lambda w: in_progress(first_row(w.raid.get_vd_erase("1"))["Status"])),
    "get_vd_erase": Case(lambda w: w.raid.get_vd_erase("1"), task_shape,
                         {"storcli64", "sorbctl"}),
    "set_vd_expand_size": Case(
        lambda w: w.raid.set_vd_expand_size(vid="1", size=w.pick(
            storcli64="100GB", sorbctl="100GB", arcconf="2100GB")), true,
        after=lambda w: in_progress(first_row(w.raid.get_expand_array_info(vid="1"))["Status"])),
    "add_pd_expand_array": Case(
        lambda w: w.raid.add_pd_expand_array(vid="0", drives=w.d(3)), true,
        after=lambda w: in_progress(first_row(w.raid.get_expand_array_info(vid="0"))["Status"])),
    "get_expand_array_info": Case(lambda w: w.raid.get_expand_array_info(vid="0"), task_shape),
    "migrate_raid": Case(
        lambda w: w.raid.migrate_raid(vid="1", raid_level="0"), true,
        after=lambda w: in_progress(first_row(w.raid.get_migrate_info(vid="1"))["Status"])),
    "get_migrate_info": Case(lambda w: w.raid.get_migrate_info(vid="1"), task_shape),
    "get_vd_smartinfo_smartctl": Case(
        lambda w: w.raid.get_vd_smartinfo_smartctl(vid="1"),
        lambda r, w: isinstance(r, dict) and len(r) == 2 or pytest.fail(repr(r))),
    "get_ssd_caching_info": Case(lambda w: w.raid.get_ssd_caching_info(), equal([]),
                                 {"storcli64", "arcconf"}),
    # patrol read
    "get_ctl_patrolread_status": Case(lambda w: w.raid.get_ctl_patrolread_status(),
                                      keys(*PR_KEYS), {"storcli64", "sorbctl"}),
    "set_pd_patrolread_oper": Case(
        lambda w: w.raid.set_pd_patrolread_oper("start", w.e, "3"), true, {"sorbctl"},
        after=lambda w: w.raid.get_pd_patrolread_status(w.e, "3", adapter_id="0")[
            "/c0/e65/s3"]["Status"] == "run"),
    "set_patrolread_oper": Case(
        lambda w: w.raid.set_patrolread_oper("start"), true, {"storcli64", "sorbctl"},
        after=lambda w: w.raid.get_ctl_patrolread_status()["run_status"] in ("Active 0",
                                                                            "Running")),
    "get_pd_patrolread_status": Case(
        lambda w: w.raid.get_pd_patrolread_status(w.e, "0", adapter_id="0"),
        lambda r, w: keys("Status", "Progress", "Estimated_time_left", "raw_data")(
            r["/c0/e%s/s0" % w.e], w), {"storcli64", "sorbctl"}),
    "get_patrolread_rate": Case(lambda w: w.raid.get_patrolread_rate(), per_tool(
        storcli64=equal({"Patrolread Rate": "30%"}),
        sorbctl=equal({"Patrolread Rate": "medium"})), {"storcli64", "sorbctl"}),
    "set_patrolread_rate": Case(
        lambda w: w.raid.set_patrolread_rate(w.pick(storcli64="40", sorbctl="high")), true,
        {"storcli64", "sorbctl"}, after=lambda w: w.raid.get_patrolread_rate() == {
            "Patrolread Rate": w.pick(storcli64="40%", sorbctl="high")}),
    "set_patrolread_param": Case(
        lambda w: w.raid.set_patrolread_param(delay="2", pd_count="4"), true,
        {"storcli64", "sorbctl"},
        after=lambda w: (w.raid.get_ctl_patrolread_status()["PR_period"], str(
            w.raid.get_ctl_patrolread_status()["drive_parall_num"])) == ("48 hours", "4")),
    "set_patrolread_switch": Case(
        lambda w: w.raid.set_patrolread_switch("off"), true, {"storcli64", "sorbctl"},
        after=lambda w: w.raid.get_ctl_patrolread_status()["PR_switch"] in ("Disable", "off")),
    # consistency check schedule
    "set_ccheck_switch": Case(
        lambda w: w.raid.set_ccheck_switch("on"), true, {"storcli64", "sorbctl"},
        after=lambda w: w.raid.query_ctl_ccheck_info()["CC Operation Mode"] in ("Sequential",
                                                                                "on")),
    "set_ctl_ccheck_state": Case(
        lambda w: w.raid.set_ctl_ccheck_state(cc_state="conc"), true, {"storcli64"},
        after=lambda w: w.raid.query_ctl_ccheck_info()["CC Operation Mode"] == "Concurrent"),
    "set_ctl_ccheck_excludevd": Case(
        lambda w: w.raid.set_ctl_ccheck_excludevd(excludevd="1"), true, {"storcli64"},
        after=lambda w: w.raid.query_ctl_ccheck_info()["CC Excluded VDs"] == "1"),
    "set_ctl_ccheck_starttime": Case(
        lambda w: w.raid.set_ctl_ccheck_starttime(start_time=future_hour(w)), true,
        {"storcli64"}, after=lambda w: w.raid.query_ctl_ccheck_info()["CC Next Starttime"]
        == datetime.datetime.strptime(future_hour(w), "%Y/%m/%d %H").strftime(
            "%m/%d/%Y, %H:00:00")),
    "set_ctl_ccheck_period": Case(
        lambda w: w.raid.set_ctl_ccheck_period(delay="7"), true, {"storcli64", "sorbctl"},
        after=lambda w: w.raid.query_ctl_ccheck_info()["CC Execution Delay"] == w.pick(
            storcli64="168 hours", sorbctl="7 day")),
    "get_ctl_ccheck_ccrate": Case(lambda w: w.raid.get_ctl_ccheck_ccrate(), per_tool(
        storcli64=equal({"Rate": "30%"}), sorbctl=equal({"Rate": "medium"})),
        {"storcli64", "sorbctl"}),
    "set_ctl_ccheck_ccrate": Case(
        lambda w: w.raid.set_ctl_ccheck_ccrate(ccrate=w.pick(storcli64="50", sorbctl="high")),
        true, {"storcli64", "sorbctl"}, after=lambda w: w.raid.get_ctl_ccheck_ccrate() == {
            "Rate": w.pick(storcli64="50%", sorbctl="high")}),
    "set_ctl_ccheck_repair": Case(
        lambda w: w.raid.set_ctl_ccheck_repair(repair="off"), true, {"arcconf", "sorbctl"},
        after=lambda w: w.raid.query_ctl_ccheck_info()["raw_data"][w.pick(
            arcconf="inconsistency_repair_policy", sorbctl="CC Repair")] == w.pick(
            arcconf="Disabled", sorbctl="off")),
    "set_ctl_ccheck_parallelcount": Case(
        lambda w: w.raid.set_ctl_ccheck_parallelcount(parallelcount="4"), true, {"arcconf"},
        after=lambda w: w.raid.query_ctl_ccheck_info()["raw_data"][
            "consistency_check_parallel_count"] == "4"),
    "query_ctl_ccheck_info": Case(lambda w: w.raid.query_ctl_ccheck_info(), keys(*CC_KEYS)),
    # drive fault policies
    "get_kickdrive_status": Case(
        lambda w: w.raid.get_kickdrive_status(),
        keys("Reset_time", "Total_allowed_kicks", "Total_kicked", "Reset_remaining_time"),
        {"sorbctl"}),
    "set_kickdrive": Case(
        lambda w: w.raid.set_kickdrive(period="10", sum="2"), true, {"sorbctl"},
        after=lambda w: w.raid.get_kickdrive_status()["Total_allowed_kicks"] == "2"),
    "get_slowdrive_status": Case(lambda w: w.raid.get_slowdrive_status(),
                                 keys("switch", "curr_config", "next_config"), {"sorbctl"}),
    "set_slowdrive": Case(
        lambda w: w.raid.set_slowdrive("raid", l1="400", l2="900", l3="5000"), true,
        {"sorbctl"}, after=lambda w: w.raid.get_slowdrive_status()["next_config"][
            "Raid Threshold"]["L1"] == "400ms"),
}


def listed_wrappers(name, tool, callers=()):
    """The wrappers docs/operations.md gives for the operation under the
    tool (its `variants`), with those of the operations it calls."""
    out = set()
    for v_tool, _, wrappers, _, _, calls, _ in vars(raid_module.Raid)[name].variants:
        if v_tool == tool:
            out.update(wrappers)
            for other in set(calls) - set(callers):
                out |= listed_wrappers(other, tool, callers + (name,))
    return out


def operations():
    return sorted(n for n in vars(raid_module.Raid) if n not in NOT_OPERATIONS
                  and not n.startswith("__"))


def test_the_table_names_only_operations_of_the_class():
    assert sorted(set(CASES) - set(operations())) == []


@pytest.mark.parametrize("tool", TOOLS)
@pytest.mark.parametrize("name", operations())
def test_operation_on_simulated_host(name, tool, sleeps):
    assert name in CASES, "operation %s has no end-to-end case" % name
    case = CASES[name]
    w = World(tool)
    if tool not in case.tools:
        with pytest.raises(OrvexException) as refused:
            case.call(w)
        assert str(refused.value) == REFUSALS[name, tool]
        # docs/operations.md lists the message (a tool without a variant
        # gets the framework's)
        variants = [v for v in vars(raid_module.Raid)[name].variants if v[0] == tool]
        listed = [re.escape(m).replace(r"\{\}", ".*") for v in variants for m in v[3]]
        assert not variants or any(re.fullmatch(m, REFUSALS[name, tool]) for m in listed), listed
        assert w.host.calls == [], "a refusal dispatched %s" % w.host.wrappers
        return
    if case.setup:
        case.setup(w)
    before = len(w.host.calls)
    result = case.call(w)
    unlisted = set(w.host.wrappers[before:]) - listed_wrappers(name, tool)
    assert not unlisted, "%s under %s dispatched %s, not in its variants" % (name, tool, unlisted)
    assert case.shape(result, w) is not False, "%s under %s gave %r" % (name, tool, result)
    if case.after:
        assert case.after(w), "%s under %s: the change does not show" % (name, tool)
