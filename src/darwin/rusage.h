// Resource usage of one process since it started. Each version of the structure begins with the one
// before it; the kernel writes exactly the size of the flavour it was asked for.
#pragma once

#include <cstdint>

#include "darwin/layout.h"

namespace darwin {

// Times are in mach absolute time units, sizes in bytes.
struct rusage_info_v0 {
  uint8_t ri_uuid[16];
  uint64_t ri_user_time;
  uint64_t ri_system_time;
  uint64_t ri_pkg_idle_wkups;
  uint64_t ri_interrupt_wkups;
  uint64_t ri_pageins;
  uint64_t ri_wired_size;
  uint64_t ri_resident_size;
  uint64_t ri_phys_footprint;
  uint64_t ri_proc_start_abstime;
  uint64_t ri_proc_exit_abstime;
};
DARWIN_LAYOUT(rusage_info_v0, 96, 8, (ri_uuid, 0), (ri_user_time, 16), (ri_system_time, 24),
              (ri_pkg_idle_wkups, 32), (ri_interrupt_wkups, 40), (ri_pageins, 48),
              (ri_wired_size, 56), (ri_resident_size, 64), (ri_phys_footprint, 72),
              (ri_proc_start_abstime, 80), (ri_proc_exit_abstime, 88));

struct rusage_info_v1 {
  uint8_t ri_uuid[16];
  uint64_t ri_user_time;
  uint64_t ri_system_time;
  uint64_t ri_pkg_idle_wkups;
  uint64_t ri_interrupt_wkups;
  uint64_t ri_pageins;
  uint64_t ri_wired_size;
  uint64_t ri_resident_size;
  uint64_t ri_phys_footprint;
  uint64_t ri_proc_start_abstime;
  uint64_t ri_proc_exit_abstime;
  uint64_t ri_child_user_time;
  uint64_t ri_child_system_time;
  uint64_t ri_child_pkg_idle_wkups;
  uint64_t ri_child_interrupt_wkups;
  uint64_t ri_child_pageins;
  uint64_t ri_child_elapsed_abstime;
};
DARWIN_LAYOUT(rusage_info_v1, 144, 8, (ri_uuid, 0), (ri_user_time, 16), (ri_system_time, 24),
              (ri_pkg_idle_wkups, 32), (ri_interrupt_wkups, 40), (ri_pageins, 48),
              (ri_wired_size, 56), (ri_resident_size, 64), (ri_phys_footprint, 72),
              (ri_proc_start_abstime, 80), (ri_proc_exit_abstime, 88), (ri_child_user_time, 96),
              (ri_child_system_time, 104), (ri_child_pkg_idle_wkups, 112),
              (ri_child_interrupt_wkups, 120), (ri_child_pageins, 128),
              (ri_child_elapsed_abstime, 136));

struct rusage_info_v2 {
  uint8_t ri_uuid[16];
  uint64_t ri_user_time;
  uint64_t ri_system_time;
  uint64_t ri_pkg_idle_wkups;
  uint64_t ri_interrupt_wkups;
  uint64_t ri_pageins;
  uint64_t ri_wired_size;
  uint64_t ri_resident_size;
  uint64_t ri_phys_footprint;
  uint64_t ri_proc_start_abstime;
  uint64_t ri_proc_exit_abstime;
  uint64_t ri_child_user_time;
  uint64_t ri_child_system_time;
  uint64_t ri_child_pkg_idle_wkups;
  uint64_t ri_child_interrupt_wkups;
  uint64_t ri_child_pageins;
  uint64_t ri_child_elapsed_abstime;
  uint64_t ri_diskio_bytesread;
  uint64_t ri_diskio_byteswritten;
};
DARWIN_LAYOUT(rusage_info_v2, 160, 8, (ri_uuid, 0), (ri_user_time, 16), (ri_system_time, 24),
              (ri_pkg_idle_wkups, 32), (ri_interrupt_wkups, 40), (ri_pageins, 48),
              (ri_wired_size, 56), (ri_resident_size, 64), (ri_phys_footprint, 72),
              (ri_proc_start_abstime, 80), (ri_proc_exit_abstime, 88), (ri_child_user_time, 96),
              (ri_child_system_time, 104), (ri_child_pkg_idle_wkups, 112),
              (ri_child_interrupt_wkups, 120), (ri_child_pageins, 128),
              (ri_child_elapsed_abstime, 136), (ri_diskio_bytesread, 144),
              (ri_diskio_byteswritten, 152));

struct rusage_info_v3 {
  uint8_t ri_uuid[16];
  uint64_t ri_user_time;
  uint64_t ri_system_time;
  uint64_t ri_pkg_idle_wkups;
  uint64_t ri_interrupt_wkups;
  uint64_t ri_pageins;
  uint64_t ri_wired_size;
  uint64_t ri_resident_size;
  uint64_t ri_phys_footprint;
  uint64_t ri_proc_start_abstime;
  uint64_t ri_proc_exit_abstime;
  uint64_t ri_child_user_time;
  uint64_t ri_child_system_time;
  uint64_t ri_child_pkg_idle_wkups;
  uint64_t ri_child_interrupt_wkups;
  uint64_t ri_child_pageins;
  uint64_t ri_child_elapsed_abstime;
  uint64_t ri_diskio_bytesread;
  uint64_t ri_diskio_byteswritten;
  uint64_t ri_cpu_time_qos_default;
  uint64_t ri_cpu_time_qos_maintenance;
  uint64_t ri_cpu_time_qos_background;
  uint64_t ri_cpu_time_qos_utility;
  uint64_t ri_cpu_time_qos_legacy;
  uint64_t ri_cpu_time_qos_user_initiated;
  uint64_t ri_cpu_time_qos_user_interactive;
  uint64_t ri_billed_system_time;
  uint64_t ri_serviced_system_time;
};
DARWIN_LAYOUT(rusage_info_v3, 232, 8, (ri_uuid, 0), (ri_user_time, 16), (ri_system_time, 24),
              (ri_pkg_idle_wkups, 32), (ri_interrupt_wkups, 40), (ri_pageins, 48),
              (ri_wired_size, 56), (ri_resident_size, 64), (ri_phys_footprint, 72),
              (ri_proc_start_abstime, 80), (ri_proc_exit_abstime, 88), (ri_child_user_time, 96),
              (ri_child_system_time, 104), (ri_child_pkg_idle_wkups, 112),
              (ri_child_interrupt_wkups, 120), (ri_child_pageins, 128),
              (ri_child_elapsed_abstime, 136), (ri_diskio_bytesread, 144),
              (ri_diskio_byteswritten, 152), (ri_cpu_time_qos_default, 160),
              (ri_cpu_time_qos_maintenance, 168), (ri_cpu_time_qos_background, 176),
              (ri_cpu_time_qos_utility, 184), (ri_cpu_time_qos_legacy, 192),
              (ri_cpu_time_qos_user_initiated, 200), (ri_cpu_time_qos_user_interactive, 208),
              (ri_billed_system_time, 216), (ri_serviced_system_time, 224));

struct rusage_info_v4 {
  uint8_t ri_uuid[16];
  uint64_t ri_user_time;
  uint64_t ri_system_time;
  uint64_t ri_pkg_idle_wkups;
  uint64_t ri_interrupt_wkups;
  uint64_t ri_pageins;
  uint64_t ri_wired_size;
  uint64_t ri_resident_size;
  uint64_t ri_phys_footprint;
  uint64_t ri_proc_start_abstime;
  uint64_t ri_proc_exit_abstime;
  uint64_t ri_child_user_time;
  uint64_t ri_child_system_time;
  uint64_t ri_child_pkg_idle_wkups;
  uint64_t ri_child_interrupt_wkups;
  uint64_t ri_child_pageins;
  uint64_t ri_child_elapsed_abstime;
  uint64_t ri_diskio_bytesread;
  uint64_t ri_diskio_byteswritten;
  uint64_t ri_cpu_time_qos_default;
  uint64_t ri_cpu_time_qos_maintenance;
  uint64_t ri_cpu_time_qos_background;
  uint64_t ri_cpu_time_qos_utility;
  uint64_t ri_cpu_time_qos_legacy;
  uint64_t ri_cpu_time_qos_user_initiated;
  uint64_t ri_cpu_time_qos_user_interactive;
  uint64_t ri_billed_system_time;
  uint64_t ri_serviced_system_time;
  uint64_t ri_logical_writes;
  uint64_t ri_lifetime_max_phys_footprint;
  uint64_t ri_instructions;
  uint64_t ri_cycles;
  uint64_t ri_billed_energy;
  uint64_t ri_serviced_energy;
  uint64_t ri_interval_max_phys_footprint;
  uint64_t ri_runnable_time;
};
DARWIN_LAYOUT(rusage_info_v4, 296, 8, (ri_uuid, 0), (ri_user_time, 16), (ri_system_time, 24),
              (ri_pkg_idle_wkups, 32), (ri_interrupt_wkups, 40), (ri_pageins, 48),
              (ri_wired_size, 56), (ri_resident_size, 64), (ri_phys_footprint, 72),
              (ri_proc_start_abstime, 80), (ri_proc_exit_abstime, 88), (ri_child_user_time, 96),
              (ri_child_system_time, 104), (ri_child_pkg_idle_wkups, 112),
              (ri_child_interrupt_wkups, 120), (ri_child_pageins, 128),
              (ri_child_elapsed_abstime, 136), (ri_diskio_bytesread, 144),
              (ri_diskio_byteswritten, 152), (ri_cpu_time_qos_default, 160),
              (ri_cpu_time_qos_maintenance, 168), (ri_cpu_time_qos_background, 176),
              (ri_cpu_time_qos_utility, 184), (ri_cpu_time_qos_legacy, 192),
              (ri_cpu_time_qos_user_initiated, 200), (ri_cpu_time_qos_user_interactive, 208),
              (ri_billed_system_time, 216), (ri_serviced_system_time, 224),
              (ri_logical_writes, 232), (ri_lifetime_max_phys_footprint, 240),
              (ri_instructions, 248), (ri_cycles, 256), (ri_billed_energy, 264),
              (ri_serviced_energy, 272), (ri_interval_max_phys_footprint, 280),
              (ri_runnable_time, 288));

using rusage_info_t = void *;

// Flavours of proc_pid_rusage().
constexpr int DARWIN_RUSAGE_INFO_V2 = 2;
constexpr int DARWIN_RUSAGE_INFO_V3 = 3;

// proc_pid_rusage() as looked up by name: the oldest kernels' library lacks it.
using proc_pid_rusage_function = int (*)(int pid, int flavor, rusage_info_t *buffer);

}  // namespace darwin
