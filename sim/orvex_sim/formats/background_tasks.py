from orvex_sim.formats import Template


class BackgroundTaskFormats:
    """Patrol read and consistency check shapes.

    Each template maps the documented output keys to the keys each tool's
    wrapper answers with:

    * storcli64 controller queries answer with a `Controller Properties`
      table of `Ctrl_Prop`/`Value` rows, which the module flattens first, so
      the raw keys are the tool's property names;
    * storcli64 drive patrol-read rows are keyed by the table's column heads
      (`Drive-ID`, `Progress%`, `Status`, `Estimated time left`);
    * sorbctl answers with one flat record per query (its patrol-read and
      check records carry the rates as `Patrolread Rate` and `CC Rate`);
    * arcconf's adapter configuration is parsed into snake_case sections, the
      check state coming from `controller_information`.
    """

    get_ctl_patrolread_status_format = Template({
        "storcli64": {
            "PR_switch": "PR Mode",
            "PR_period": "PR Execution Delay",
            "drive_parall_num": "PR MaxConcurrentPd",
            "finish_drive_sum": "PR iterations completed",
            "run_status": "PR Current State",
        },
        "sorbctl": {
            "PR_switch": "Patrolread Switch",
            "PR_period": "Patrolread Period",
            "drive_parall_num": "Patrolread Parallel Drives",
            "finish_drive_sum": "Patrolread Finished Drives",
            "run_status": "Patrolread Status",
        },
    })

    get_pd_patrolread_status_format = Template({
        "storcli64": {
            "Status": "Status",
            "Estimated_time_left": "Estimated time left",
            "Progress": "Progress%",
        },
        "sorbctl": {
            "Status": "Status",
            "Estimated_time_left": "EstimatedTimeLeft",
            "Progress": "Progress",
        },
    })

    get_controller_ccheck_format = Template({
        "storcli64": {
            "CC Operation Mode": "CC Operation Mode",
            "CC Execution Delay": "CC Execution Delay",
            "CC Next Starttime": "CC Next Starttime",
            "CC Current State": "CC Current State",
            "CC Number of iterations": "CC Number of iterations",
            "CC Number of VD completed": "CC Number of VD completed",
            "CC Excluded VDs": "CC Excluded VDs",
        },
        "sorbctl": {
            "CC Operation Mode": "CC Mode",
            "CC Execution Delay": "CC Period",
            "CC Next Starttime": "CC Next Start Time",
            "CC Current State": "CC State",
            "CC Number of iterations": "CC Iterations",
            "CC Number of VD completed": "CC Completed VDs",
            "CC Excluded VDs": "CC Excluded VDs",
        },
        "arcconf": {
            "CC Operation Mode": "background_consistency_check",
            "CC Execution Delay": "consistency_check_delay",
            "CC Next Starttime": "consistency_check_next_start_time",
            "CC Current State": "consistency_check_status",
            "CC Number of iterations": "consistency_check_iterations",
            "CC Number of VD completed": "consistency_check_completed_logical_devices",
            "CC Excluded VDs": "consistency_check_excluded_logical_devices",
        },
    })
