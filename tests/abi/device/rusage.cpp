// The resource-usage structures beside the platform's.
#include "darwin/rusage.h"
#include "same.h"

#define PREFIXED_NAMES(EACH) \
  EACH(RUSAGE_INFO_V2);      \
  EACH(RUSAGE_INFO_V3)

PREFIXED_NAMES(KEEP_PREFIXED);

#include <libproc.h>
#include <sys/resource.h>

PREFIXED_NAMES(SAME_VALUE);

SAME_STRUCTURE(rusage_info_v0, ri_uuid, ri_user_time, ri_system_time, ri_pkg_idle_wkups,
               ri_interrupt_wkups, ri_pageins, ri_wired_size, ri_resident_size, ri_phys_footprint,
               ri_proc_start_abstime, ri_proc_exit_abstime);
SAME_STRUCTURE(rusage_info_v1, ri_uuid, ri_user_time, ri_system_time, ri_pkg_idle_wkups,
               ri_interrupt_wkups, ri_pageins, ri_wired_size, ri_resident_size, ri_phys_footprint,
               ri_proc_start_abstime, ri_proc_exit_abstime, ri_child_user_time,
               ri_child_system_time, ri_child_pkg_idle_wkups, ri_child_interrupt_wkups,
               ri_child_pageins, ri_child_elapsed_abstime);
SAME_STRUCTURE(rusage_info_v2, ri_uuid, ri_user_time, ri_system_time, ri_pkg_idle_wkups,
               ri_interrupt_wkups, ri_pageins, ri_wired_size, ri_resident_size, ri_phys_footprint,
               ri_proc_start_abstime, ri_proc_exit_abstime, ri_child_user_time,
               ri_child_system_time, ri_child_pkg_idle_wkups, ri_child_interrupt_wkups,
               ri_child_pageins, ri_child_elapsed_abstime, ri_diskio_bytesread,
               ri_diskio_byteswritten);
SAME_STRUCTURE(rusage_info_v3, ri_uuid, ri_user_time, ri_system_time, ri_pkg_idle_wkups,
               ri_interrupt_wkups, ri_pageins, ri_wired_size, ri_resident_size, ri_phys_footprint,
               ri_proc_start_abstime, ri_proc_exit_abstime, ri_child_user_time,
               ri_child_system_time, ri_child_pkg_idle_wkups, ri_child_interrupt_wkups,
               ri_child_pageins, ri_child_elapsed_abstime, ri_diskio_bytesread,
               ri_diskio_byteswritten, ri_cpu_time_qos_default, ri_cpu_time_qos_maintenance,
               ri_cpu_time_qos_background, ri_cpu_time_qos_utility, ri_cpu_time_qos_legacy,
               ri_cpu_time_qos_user_initiated, ri_cpu_time_qos_user_interactive,
               ri_billed_system_time, ri_serviced_system_time);
SAME_STRUCTURE(rusage_info_v4, ri_uuid, ri_user_time, ri_system_time, ri_pkg_idle_wkups,
               ri_interrupt_wkups, ri_pageins, ri_wired_size, ri_resident_size, ri_phys_footprint,
               ri_proc_start_abstime, ri_proc_exit_abstime, ri_child_user_time,
               ri_child_system_time, ri_child_pkg_idle_wkups, ri_child_interrupt_wkups,
               ri_child_pageins, ri_child_elapsed_abstime, ri_diskio_bytesread,
               ri_diskio_byteswritten, ri_cpu_time_qos_default, ri_cpu_time_qos_maintenance,
               ri_cpu_time_qos_background, ri_cpu_time_qos_utility, ri_cpu_time_qos_legacy,
               ri_cpu_time_qos_user_initiated, ri_cpu_time_qos_user_interactive,
               ri_billed_system_time, ri_serviced_system_time, ri_logical_writes,
               ri_lifetime_max_phys_footprint, ri_instructions, ri_cycles, ri_billed_energy,
               ri_serviced_energy, ri_interval_max_phys_footprint, ri_runnable_time);

static_assert(std::is_same_v<::rusage_info_t, darwin::rusage_info_t>);
static_assert(std::is_same_v<decltype(&::proc_pid_rusage), darwin::proc_pid_rusage_function>);
