"""The parameter keys each wrapper of the simulated host reads.

A real command wrapper takes the options it knows; a key it does not know
is a script's mistake (``adaptor_id=`` for ``adapter_id=``) that hardware
would not forgive quietly.  A strict host (the default) checks every
dispatch against the table below before the handler runs: a key that no
handler of the wrapper reads raises `UnexpectedParams` naming the wrapper,
the key and the keys it reads, and nothing changes.

`READS` lists, per view, each wrapper's keys: the keys its handler reads,
and the options the wrapper takes that the simulation does not model
(``checkrc``, ``ssdiobypass``, ``ause``, ...).  Every wrapper also takes
``adapter_id`` and ``adp_id``: the host reads them to pick the controller
(a host command such as ``cat`` receives the operation's params, which may
name one).
While a strict host runs a handler, its params are a `TrackedParams`: a
handler reading a key its entry lacks raises `UndeclaredRead`, so the table
cannot fall behind the handlers unnoticed.
"""
from __future__ import annotations

from typing import Any, Dict, FrozenSet, Iterable, Mapping, Optional, Set

# Keys the host reads for every wrapper (the controller a call names).
HOST_KEYS = frozenset(("adapter_id", "adp_id"))


class UnexpectedParams(TypeError):
    """A wrapper was given a key that none of its handlers reads."""

    def __init__(self, tool: str, wrapper: str, unexpected: Iterable[str],
                 reads: Iterable[str]) -> None:
        self.tool = tool
        self.wrapper = wrapper
        self.unexpected = sorted(unexpected)
        self.reads = sorted(reads)
        super().__init__("the simulated %s host's wrapper %r does not read %s (it reads %s)" % (
            tool, wrapper, ", ".join(repr(k) for k in self.unexpected),
            ", ".join(self.reads) or "no keys"))


class UndeclaredRead(AssertionError):
    """A handler read a key its wrapper's entry in `READS` lacks."""


class TrackedParams(Dict[str, Any]):
    """A wrapper's params that refuse reads of keys outside `allowed`."""

    def __init__(self, wrapper: str, params: Mapping[str, Any],
                 allowed: FrozenSet[str]) -> None:
        super().__init__(params)
        self.wrapper = wrapper
        self.allowed = allowed

    def _read(self, key: object) -> None:
        if key not in self.allowed:
            raise UndeclaredRead("the handler of %r read %r, which its entry in "
                                 "orvex_sim/simhost/reads.py lacks (%s)"
                                 % (self.wrapper, key, " ".join(sorted(self.allowed))))

    def get(self, key: str, default: Any = None) -> Any:
        self._read(key)
        return super().get(key, default)

    def __getitem__(self, key: str) -> Any:
        self._read(key)
        return super().__getitem__(key)

    def __contains__(self, key: object) -> bool:
        self._read(key)
        return super().__contains__(key)


def keys_of(view: str, wrapper: str) -> Optional[FrozenSet[str]]:
    """The keys `wrapper` of `view` ("common" or a tool) reads; None when the
    table has no entry for it."""
    entry = READS.get(view, {}).get(wrapper)
    if entry is None:
        return None
    return frozenset(entry.split()) | HOST_KEYS


def unexpected(params: Optional[Mapping[str, Any]], keys: FrozenSet[str]) -> Set[str]:
    return {k for k in params or {} if k not in keys}


# view -> wrapper -> the keys it reads, separated by blanks.
READS: Dict[str, Dict[str, str]] = {
    "common": {
        "cat": "file_path",
        "hexdump": "file_path param",
        "rm": "path",
        "modinfo": "modname",
        "system_clock": "formatter",
    },
    "storcli64": {
        "get_controller_number_storcli64": "",
        "ctr_get_all_cfg_storcli64": "",
        "storcli64_get_lsi_raid_detail_config": "",
        "ctr_get_pd_cfg_storcli64": "eid sid",
        "pd_set_state_storcli64": "eid sid state force",
        "pd_set_hotspare_drive_storcli64": "eid sid oper ar_id dgs type",
        "ctr_set_rebuild_storcli64": "eid sid oper",
        "ctr_get_rebuild_cfg_storcli64": "eid sid",
        "set_pd_insert_storcli64": "eid sid dg arr row",
        "pd_set_bootdrive_storcli64": "eid sid bootdrive status",
        "ctr_set_device_order_by_firmware": "eid sid vid bootdrive status",
        "pd_set_erase_storcli64": "eid sid mode oper",
        "pd_get_erase_storcli64": "eid sid",
        "start_pd_sanitize_storcli64": "eid sid mode ause",
        "get_pd_sanitize_storcli64": "eid sid",
        "pd_copyback_func_storcli64": "eid sid oper target",
        "pd_copyback_show_storcli64": "eid sid",
        "pd_update_fw_storcli64": "eid sid fw_file",
        "ctr_create_vd_storcli64":
            "raid_level drives name size strip_size pd_per_array ssdiobypass init",
        "ctr_delete_vd_storcli64": "vid oper",
        "ctr_get_vd_cfg_storcli64": "vid",
        "vd_set_cache_storcli64": "vid wrcache rdcache",
        "vd_set_iopolicy_storcli64": "vid iopolicy",
        "vd_set_pdcache_storcli64": "vid pdcache",
        "set_vd_emulation_storcli64": "vid emulationType",
        "set_vd_hidden_storcli64": "vid state",
        "set_vd_access_storcli64": "vid accesspolicy",
        "vd_set_bootdrive_storcli64": "vid bootdrive status",
        "ctr_get_boot_drive_storcli64": "",
        "vd_state_cc_storcli64": "vid state force delay",
        "ctr_get_cc_status_storcli64": "vid",
        "vd_state_init_storcli64": "vid state force",
        "ctr_get_init_info_storcli64": "vid",
        "get_virtual_drive_bgi_state_storcli64": "vid",
        "ctr_set_bgi_switch_storcli64": "vid state",
        "vd_set_erase_storcli64": "vid oper mode force",
        "vd_get_erase_storcli64": "vid",
        "vd_set_expand_size_storcli64": "vid size",
        "vd_add_pd_expand_array_storcli64": "vid drives",
        "vd_get_expand_info_storcli64": "vid",
        "vd_start_migrate_storcli64": "vid raid_level",
        "vd_get_migrate_info_storcli64": "vid",
        "vd_get_smartinfo_smartctl_storcli64": "vid",
        "ctr_get_ssd_caching_storcli64": "",
        "vd_foreign_operate_storcli64": "oper",
        "ctr_get_jbod_storcli64": "",
        "ctr_set_jbod_cfg_storcli64": "state force",
        "ctr_get_controll_time_storcli64": "",
        "ctr_set_controll_time_storcli64": "ctl_time",
        "set_ctl_restart_storcli64": "",
        "set_ctl_restart_switch_storcli64": "state",
        "set_ctl_auto_rebuild_storcli64": "state",
        "ctr_get_eghs_storcli64": "",
        "ctr_set_eghs_cfg_storcli64": "switch eug state smarter",
        "ctr_get_bootwithpinnedcache_storcli64": "",
        "ctr_set_bootwithpinnedcache_storcli64": "state",
        "ctr_get_copyback_storcli64": "index",
        "ctr_set_copyback_cfg_storcli64": "state type",
        "ctr_update_fw_storcli64": "fw_file",
        "ctr_get_log_storcli64": "",
        "ctr_get_alilog_storcli64": "",
        "ctr_get_cv_all_storcli64": "information",
        "ctr_start_cv_learn_storcli64": "cycle starttime",
        "ctr_get_cv_learn_storcli64": "",
        "ctr_get_patrolread_storcli64": "",
        "ctr_state_pr_storcli64": "oper delay period prrate pd_count",
        "ctr_get_patrolread_cfg_storcli64": "eid sid",
        "ctr_get_prrate_storcli64": "",
        "ctr_set_prrate_storcli64": "prrate",
        "ctr_set_patrolread_storcli64":
            "pd_count delay start_time inc_ssd_state uncfg_areas_state prrate",
        "ctr_set_pr_switch_storcli64": "switch_status mode",
        "ctr_set_cc_cfg_storcli64": "cc delay excludevd start_time",
        "ctr_get_cc_storcli64": "",
        "ctr_get_ccrate_storcli64": "",
        "ctr_set_ccrate_storcli64": "ccrate",
        "ctr_get_enclosure_storcli64": "",
        "ctr_get_phy_cfg_storcli64": "",
        "get_phy_count_storelibtest": "phy_input reset_type",
        "get_phy_info_storelibtest": "phy_input phy_list",
        "send_phy_control_storelibtest": "phy_list reset_type",
        "send_ctr_storelibtest_passthru":
            "eid sid did command_passthru checkrc data_length data_transfer",
    },
    "arcconf": {
        "get_controller_number_arcconf": "",
        "ctr_get_adpt_cfg_arcconf": "information",
        "ctr_get_cfg_arcconf": "",
        "ctr_get_pd_cfg_arcconf": "",
        "ctr_get_vd_cfg_arcconf": "vid",
        "ctr_get_expander_cfg_arcconf": "",
        "get_controller_pd_phyerror_arcconf": "",
        "ctr_get_controller_bgtask_arcconf": "eid sid vid",
        "ctr_get_maxcache_arcconf": "",
        "ctr_set_ctrl_mode_arcconf": "mode force",
        "set_controller_pdcache_arcconf": "vid state drive_type",
        "ctl_set_ccrepair_arcconf": "repair_state",
        "ctl_set_cc_parallelcount_arcconf": "pd_count",
        "ctr_create_vd_arcconf":
            "raid_level drives name size strip_size pd_per_array legs ssdiobypass init",
        "delete_vd_arcconf": "vid oper",
        "set_vd_wcache_arcconf": "vid policy wrcache rdcache",
        "set_vd_boot_arcconf": "vid state",
        "vd_set_expand_size_arcconf": "vid size",
        "vd_add_pd_expand_array_arcconf": "vid drives",
        "vd_start_migrate_arcconf": "vid raid_level",
        "vd_get_smartinfo_smartctl_arcconf": "vid",
        "pd_set_state_arcconf": "eid sid state force",
        "set_controller_pd_hotspare_arcconf": "eid sid oper ar_id type",
        "set_controller_pd_boot_arcconf": "eid sid state",
        "set_ctr_pd_erase_arcconf": "eid sid mode oper",
        "update_controller_fw_arcconf": "fw_file",
        "update_pd_fw_arcconf": "eid sid fw_file",
        "get_controller_log_arcconf": "",
        "send_controller_pd_passthru_arcconf":
            "eid sid command_passthru checkrc data_length data_transfer file_path",
    },
    "sorbctl": {
        "get_controller_controllerid_sorbctl": "",
        "get_controller_number_sorbctl": "",
        "get_controller_config_sorbctl": "",
        "get_controller_status_sorbctl": "",
        "get_controller_info_sorbctl": "",
        "get_controller_pdlist_sorbctl": "",
        "get_controller_pd_info_sorbctl": "eid sid",
        "get_controller_jbod_sorbctl": "",
        "set_controller_jbod_sorbctl": "jbod force",
        "get_controller_ehsp_sorbctl": "",
        "set_controller_ehsp_sorbctl": "switch state",
        "get_controller_bootwithpinnedcache_sorbctl": "",
        "set_controller_bootwithpinnedcache_sorbctl": "state",
        "clear_controller_fncfg_sorbctl": "oper",
        "import_controller_fncfg_sorbctl": "oper",
        "get_controller_copyback_sorbctl": "index",
        "set_controller_copyback_sorbctl": "state type",
        "set_controller_bgrate_copyback_sorbctl": "copybackrate",
        "get_controller_precopy_sorbctl": "",
        "set_controller_precopy_sorbctl": "state",
        "set_controller_pd_state_sorbctl": "eid sid state force",
        "set_controller_phy_func_sorbctl": "eid sid oper",
        "set_controller_phy_speed_sorbctl": "eid sid speed",
        "set_controller_pd_led_sorbctl": "eid sid state led_type",
        "set_controller_pd_hotspare_sorbctl": "eid sid oper ar_id vd type",
        "set_controller_pd_boot_sorbctl": "eid sid state",
        "set_controller_pdcache_sorbctl": "eid sid state",
        "start_controller_pd_sanitize_sorbctl": "eid sid mode ause",
        "get_controller_pd_sanitize_sorbctl": "eid sid",
        "start_controller_pd_erase_sorbctl": "eid sid mode oper",
        "stop_controller_pd_erase_sorbctl": "eid sid oper",
        "get_controller_pd_erase_sorbctl": "eid sid",
        "get_controller_vdlist_sorbctl": "",
        "get_controller_vd_info_sorbctl": "vid",
        "get_controller_vd_pdarray_sorbctl": "vid",
        "create_controller_vd_sorbctl":
            "raid_level drives name size strip_size pd_per_array ssdiobypass init",
        "delete_controller_vd_sorbctl": "vid oper",
        "set_controller_vd_pdcache_sorbctl": "vid state",
        "set_controller_vd_wcache_sorbctl": "vid policy",
        "set_controller_vd_rcache_sorbctl": "vid policy",
        "set_controller_vd_boot_sorbctl": "vid state",
        "get_boot_drive_sorbctl": "",
        "start_controller_vd_ccheck_sorbctl": "vid state force delay",
        "stop_controller_vd_ccheck_sorbctl": "vid state force delay",
        "get_controller_vd_ccheck_sorbctl": "vid",
        "get_controller_bgtask_sorbctl": "",
        "start_controller_vd_sanitize_sorbctl": "vid oper mode force",
        "stop_controller_vd_sanitize_sorbctl": "vid oper mode force",
        "get_controller_vd_sanitize_sorbctl": "vid",
        "set_controller_vd_expand_sorbctl": "vid size",
        "add_controller_vd_pd_sorbctl": "vid drives",
        "get_controller_vd_expand_sorbctl": "vid",
        "migrate_controller_vd_sorbctl": "vid raid_level",
        "get_controller_vd_migrate_sorbctl": "vid",
        "get_controller_vd_smartinfo_sorbctl": "vid",
        "get_controller_patrolread_sorbctl": "",
        "start_controller_patrolread_sorbctl": "oper mode delay period period_time prrate "
                                               "pd_count start_time inc_ssd_state "
                                               "uncfg_areas_state",
        "stop_controller_patrolread_sorbctl": "oper mode delay period prrate pd_count",
        "set_controller_patrolread_sorbctl": "mode delay period period_time prrate pd_count "
                                             "start_time inc_ssd_state uncfg_areas_state",
        "set_controller_bgrate_patrolread_sorbctl": "prrate",
        "get_controller_pd_patrolread_sorbctl": "eid sid",
        "start_controller_pd_patrolread_sorbctl": "eid sid oper prrate delay",
        "stop_controller_pd_patrolread_sorbctl": "eid sid oper prrate delay",
        "get_controller_ccheck_sorbctl": "",
        "set_controller_ccheck_sorbctl": "state ccrate delay period_time",
        "start_controller_ccheck_sorbctl": "switch_status start_time",
        "stop_controller_ccheck_sorbctl": "switch_status start_time",
        "get_controller_supercap_sorbctl": "information",
        "set_supercap_self_learn_sorbctl": "cycle starttime",
        "get_supercap_self_learn_sorbctl": "",
        "get_kickdrive_status_sorbctl": "",
        "set_kickdrive_sorbctl": "period sum",
        "get_slowdrive_status_sorbctl": "",
        "set_slowdrive_sorbctl": "type sw ratio media susize l1 l2 l3 default",
        "get_ctl_phyinfo_sorbctl": "",
        "get_eye_diagram_sorbctl": "sid",
        "update_controller_fw_sorbctl": "fw_file",
        "active_controller_fw_sorbctl": "active_type",
        "update_controller_pd_fw_sorbctl": "eid sid fw_file",
        "get_controller_log_sorbctl": "",
        "send_controller_pd_passthru_sorbctl":
            "eid sid command_passthru checkrc data_length data_transfer file_path",
    },
}
