// Chunked data and stackshots have no public headers in the SDK: their layouts and numbers against
// tables written down here from the kernel's published sources.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "darwin/kcdata.h"
#include "darwin/stackshot.h"
#include "layouts.h"

namespace {

TEST(SnapshotLayout, Item) {
  expectLayout<darwin::kcdata_item>(
      16, 8,
      {ROW(kcdata_item, type, 0, 4), ROW(kcdata_item, size, 4, 4), ROW(kcdata_item, flags, 8, 8)});
}

TEST(SnapshotLayout, LoadedImage) {
  expectLayout<darwin::dyld_uuid_info_64>(
      24, 8,
      {ROW(dyld_uuid_info_64, imageLoadAddress, 0, 8), ROW(dyld_uuid_info_64, imageUUID, 8, 16)});
}

TEST(SnapshotLayout, Task) {
  expectLayout<darwin::task_snapshot_v2>(
      120, 1,
      {ROW(task_snapshot_v2, ts_unique_pid, 0, 8), ROW(task_snapshot_v2, ts_ss_flags, 8, 8),
       ROW(task_snapshot_v2, ts_user_time_in_terminated_threads, 16, 8),
       ROW(task_snapshot_v2, ts_system_time_in_terminated_threads, 24, 8),
       ROW(task_snapshot_v2, ts_p_start_sec, 32, 8), ROW(task_snapshot_v2, ts_task_size, 40, 8),
       ROW(task_snapshot_v2, ts_max_resident_size, 48, 8),
       ROW(task_snapshot_v2, ts_suspend_count, 56, 4), ROW(task_snapshot_v2, ts_faults, 60, 4),
       ROW(task_snapshot_v2, ts_pageins, 64, 4), ROW(task_snapshot_v2, ts_cow_faults, 68, 4),
       ROW(task_snapshot_v2, ts_was_throttled, 72, 4),
       ROW(task_snapshot_v2, ts_did_throttle, 76, 4), ROW(task_snapshot_v2, ts_latency_qos, 80, 4),
       ROW(task_snapshot_v2, ts_pid, 84, 4), ROW(task_snapshot_v2, ts_p_comm, 88, 32)});
}

TEST(SnapshotLayout, Thread) {
  expectLayout<darwin::thread_snapshot_v4>(
      128, 1,
      {ROW(thread_snapshot_v4, ths_thread_id, 0, 8),
       ROW(thread_snapshot_v4, ths_wait_event, 8, 8),
       ROW(thread_snapshot_v4, ths_continuation, 16, 8),
       ROW(thread_snapshot_v4, ths_total_syscalls, 24, 8),
       ROW(thread_snapshot_v4, ths_voucher_identifier, 32, 8),
       ROW(thread_snapshot_v4, ths_dqserialnum, 40, 8),
       ROW(thread_snapshot_v4, ths_user_time, 48, 8),
       ROW(thread_snapshot_v4, ths_sys_time, 56, 8),
       ROW(thread_snapshot_v4, ths_ss_flags, 64, 8),
       ROW(thread_snapshot_v4, ths_last_run_time, 72, 8),
       ROW(thread_snapshot_v4, ths_last_made_runnable_time, 80, 8),
       ROW(thread_snapshot_v4, ths_state, 88, 4),
       ROW(thread_snapshot_v4, ths_sched_flags, 92, 4),
       ROW(thread_snapshot_v4, ths_base_priority, 96, 2),
       ROW(thread_snapshot_v4, ths_sched_priority, 98, 2),
       ROW(thread_snapshot_v4, ths_eqos, 100, 1),
       ROW(thread_snapshot_v4, ths_rqos, 101, 1),
       ROW(thread_snapshot_v4, ths_rqos_override, 102, 1),
       ROW(thread_snapshot_v4, ths_io_tier, 103, 1),
       ROW(thread_snapshot_v4, ths_thread_t, 104, 8),
       ROW(thread_snapshot_v4, ths_requested_policy, 112, 8),
       ROW(thread_snapshot_v4, ths_effective_policy, 120, 8)});
}

TEST(SnapshotLayout, ThreadGroup) {
  expectLayout<darwin::thread_group_snapshot_v3>(
      48, 1,
      {ROW(thread_group_snapshot_v3, tgs_id, 0, 8), ROW(thread_group_snapshot_v3, tgs_name, 8, 16),
       ROW(thread_group_snapshot_v3, tgs_flags, 24, 8),
       ROW(thread_group_snapshot_v3, tgs_name_cont, 32, 16)});
}

TEST(SnapshotLayout, Times) {
  expectLayout<darwin::stackshot_cpu_times_v2>(
      24, 1,
      {ROW(stackshot_cpu_times_v2, user_usec, 0, 8), ROW(stackshot_cpu_times_v2, system_usec, 8, 8),
       ROW(stackshot_cpu_times_v2, runnable_usec, 16, 8)});
}

TEST(SnapshotLayout, Counters) {
  expectLayout<darwin::instrs_cycles_snapshot_v2>(
      32, 1,
      {ROW(instrs_cycles_snapshot_v2, ics_instructions, 0, 8),
       ROW(instrs_cycles_snapshot_v2, ics_cycles, 8, 8),
       ROW(instrs_cycles_snapshot_v2, ics_p_instructions, 16, 8),
       ROW(instrs_cycles_snapshot_v2, ics_p_cycles, 24, 8)});
}

TEST(SnapshotLayout, CodeSigning) {
  expectLayout<darwin::stackshot_task_codesigning_info>(
      12, 1,
      {ROW(stackshot_task_codesigning_info, csflags, 0, 8),
       ROW(stackshot_task_codesigning_info, cs_trust_level, 8, 4)});
}

TEST(SnapshotLayout, SignedFields) {
  EXPECT_TRUE(std::is_signed_v<decltype(darwin::task_snapshot_v2::ts_pid)>);
  EXPECT_TRUE(std::is_signed_v<decltype(darwin::thread_snapshot_v4::ths_base_priority)>);
  EXPECT_TRUE(std::is_signed_v<decltype(darwin::thread_snapshot_v4::ths_sched_priority)>);
}

TEST(SnapshotNumbers, Items) {
  expectNumbers({NUMBER(KCDATA_TYPE_ARRAY, 17), NUMBER(KCDATA_TYPE_ARRAY_PAD0, 32),
                 NUMBER(KCDATA_TYPE_ARRAY_PADf, 47), NUMBER(KCDATA_TYPE_CONTAINER_BEGIN, 19),
                 NUMBER(KCDATA_TYPE_CONTAINER_END, 20), NUMBER(KCDATA_TYPE_LIBRARY_LOADINFO64, 49),
                 NUMBER(KCDATA_TYPE_BUFFER_END, 0xF19158ED),
                 NUMBER(KCDATA_BUFFER_BEGIN_STACKSHOT, 0x59A25807)});
}

TEST(SnapshotNumbers, Types) {
  expectNumbers(
      {NUMBER(STACKSHOT_KCTYPE_IOSTATS, 2305), NUMBER(STACKSHOT_KCTYPE_GLOBAL_MEM_STATS, 2306),
       NUMBER(STACKSHOT_KCCONTAINER_TASK, 2307), NUMBER(STACKSHOT_KCCONTAINER_THREAD, 2308),
       NUMBER(STACKSHOT_KCTYPE_TASK_SNAPSHOT, 2309), NUMBER(STACKSHOT_KCTYPE_THREAD_SNAPSHOT, 2310),
       NUMBER(STACKSHOT_KCTYPE_SHAREDCACHE_LOADINFO, 2312),
       NUMBER(STACKSHOT_KCTYPE_THREAD_NAME, 2313), NUMBER(STACKSHOT_KCTYPE_BOOTARGS, 2318),
       NUMBER(STACKSHOT_KCTYPE_OSVERSION, 2319), NUMBER(STACKSHOT_KCTYPE_KERN_STACKLR64, 2324),
       NUMBER(STACKSHOT_KCTYPE_USER_STACKLR64, 2326), NUMBER(STACKSHOT_KCTYPE_CPU_TIMES, 2329),
       NUMBER(STACKSHOT_KCTYPE_KERNELCACHE_LOADINFO, 2332),
       NUMBER(STACKSHOT_KCTYPE_THREAD_GROUP_SNAPSHOT, 2334),
       NUMBER(STACKSHOT_KCTYPE_INSTRS_CYCLES, 2339),
       NUMBER(STACKSHOT_KCTYPE_LOADINFO64_TEXT_EXEC, 2350),
       NUMBER(STACKSHOT_KCTYPE_CODESIGNING_INFO, 2374)});
}

TEST(SnapshotNumbers, Flags) {
  expectNumbers(
      {NUMBER(STACKSHOT_SAVE_LOADINFO, 0x2), NUMBER(STACKSHOT_GET_GLOBAL_MEM_STATS, 0x4),
       NUMBER(STACKSHOT_SAVE_IMP_DONATION_PIDS, 0x2000), NUMBER(STACKSHOT_KCDATA_FORMAT, 0x10000),
       NUMBER(STACKSHOT_COLLECT_SHAREDCACHE_LAYOUT, 0x80000),
       NUMBER(STACKSHOT_THREAD_WAITINFO, 0x1000000), NUMBER(STACKSHOT_INSTRS_CYCLES, 0x8000000)});
}

TEST(SnapshotPrototypes, ArgumentsAndResults) {
  using Config = darwin::stackshot_config_t;
  EXPECT_PROTOTYPE(stackshot_config_create, Config * ());
  EXPECT_PROTOTYPE(stackshot_config_set_pid, int(Config *, int));
  EXPECT_PROTOTYPE(stackshot_config_set_flags, int(Config *, uint64_t));
  EXPECT_PROTOTYPE(stackshot_capture_with_config, int(Config *));
  EXPECT_PROTOTYPE(stackshot_config_get_stackshot_buffer, void *(Config *));
  EXPECT_PROTOTYPE(stackshot_config_get_stackshot_size, uint32_t(Config *));
}

}  // namespace
