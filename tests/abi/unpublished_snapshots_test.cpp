// Chunked data and stackshots have no public headers in the SDK: their layouts and numbers against
// tables written down here from the kernel's published sources.
#include <gtest/gtest.h>

#include <cstddef>
#include <ostream>
#include <string_view>
#include <type_traits>
#include <vector>

#include "darwin/kcdata.h"
#include "darwin/stackshot.h"

namespace {

struct Field {
  std::string_view name;
  size_t offset;
  size_t size;
  bool operator==(const Field &) const = default;
};

void PrintTo(const Field &field, std::ostream *out) {
  *out << field.name << " at " << field.offset << ", " << field.size << " bytes";
}

#define FIELD(type, field)                                             \
  Field {                                                              \
#field, offsetof(darwin::type, field), sizeof(darwin::type::field) \
  }

template <typename Structure>
void expectLayout(const std::vector<Field> &ours, size_t size, size_t alignment,
                  const std::vector<Field> &kernel) {
  EXPECT_EQ(sizeof(Structure), size);
  EXPECT_EQ(alignof(Structure), alignment);
  EXPECT_EQ(ours, kernel);
}

TEST(SnapshotLayout, Item) {
  expectLayout<darwin::kcdata_item>(
      {FIELD(kcdata_item, type), FIELD(kcdata_item, size), FIELD(kcdata_item, flags)}, 16, 8,
      {{"type", 0, 4}, {"size", 4, 4}, {"flags", 8, 8}});
}

TEST(SnapshotLayout, LoadedImage) {
  expectLayout<darwin::dyld_uuid_info_64>(
      {FIELD(dyld_uuid_info_64, imageLoadAddress), FIELD(dyld_uuid_info_64, imageUUID)}, 24, 8,
      {{"imageLoadAddress", 0, 8}, {"imageUUID", 8, 16}});
}

TEST(SnapshotLayout, Task) {
  expectLayout<darwin::task_snapshot_v2>(
      {FIELD(task_snapshot_v2, ts_unique_pid), FIELD(task_snapshot_v2, ts_ss_flags),
       FIELD(task_snapshot_v2, ts_user_time_in_terminated_threads),
       FIELD(task_snapshot_v2, ts_system_time_in_terminated_threads),
       FIELD(task_snapshot_v2, ts_p_start_sec), FIELD(task_snapshot_v2, ts_task_size),
       FIELD(task_snapshot_v2, ts_max_resident_size), FIELD(task_snapshot_v2, ts_suspend_count),
       FIELD(task_snapshot_v2, ts_faults), FIELD(task_snapshot_v2, ts_pageins),
       FIELD(task_snapshot_v2, ts_cow_faults), FIELD(task_snapshot_v2, ts_was_throttled),
       FIELD(task_snapshot_v2, ts_did_throttle), FIELD(task_snapshot_v2, ts_latency_qos),
       FIELD(task_snapshot_v2, ts_pid), FIELD(task_snapshot_v2, ts_p_comm)},
      120, 1,
      {{"ts_unique_pid", 0, 8},
       {"ts_ss_flags", 8, 8},
       {"ts_user_time_in_terminated_threads", 16, 8},
       {"ts_system_time_in_terminated_threads", 24, 8},
       {"ts_p_start_sec", 32, 8},
       {"ts_task_size", 40, 8},
       {"ts_max_resident_size", 48, 8},
       {"ts_suspend_count", 56, 4},
       {"ts_faults", 60, 4},
       {"ts_pageins", 64, 4},
       {"ts_cow_faults", 68, 4},
       {"ts_was_throttled", 72, 4},
       {"ts_did_throttle", 76, 4},
       {"ts_latency_qos", 80, 4},
       {"ts_pid", 84, 4},
       {"ts_p_comm", 88, 32}});
}

TEST(SnapshotLayout, Thread) {
  expectLayout<darwin::thread_snapshot_v4>({FIELD(thread_snapshot_v4, ths_thread_id),
                                            FIELD(thread_snapshot_v4, ths_wait_event),
                                            FIELD(thread_snapshot_v4, ths_continuation),
                                            FIELD(thread_snapshot_v4, ths_total_syscalls),
                                            FIELD(thread_snapshot_v4, ths_voucher_identifier),
                                            FIELD(thread_snapshot_v4, ths_dqserialnum),
                                            FIELD(thread_snapshot_v4, ths_user_time),
                                            FIELD(thread_snapshot_v4, ths_sys_time),
                                            FIELD(thread_snapshot_v4, ths_ss_flags),
                                            FIELD(thread_snapshot_v4, ths_last_run_time),
                                            FIELD(thread_snapshot_v4, ths_last_made_runnable_time),
                                            FIELD(thread_snapshot_v4, ths_state),
                                            FIELD(thread_snapshot_v4, ths_sched_flags),
                                            FIELD(thread_snapshot_v4, ths_base_priority),
                                            FIELD(thread_snapshot_v4, ths_sched_priority),
                                            FIELD(thread_snapshot_v4, ths_eqos),
                                            FIELD(thread_snapshot_v4, ths_rqos),
                                            FIELD(thread_snapshot_v4, ths_rqos_override),
                                            FIELD(thread_snapshot_v4, ths_io_tier),
                                            FIELD(thread_snapshot_v4, ths_thread_t),
                                            FIELD(thread_snapshot_v4, ths_requested_policy),
                                            FIELD(thread_snapshot_v4, ths_effective_policy)},
                                           128, 1,
                                           {{"ths_thread_id", 0, 8},
                                            {"ths_wait_event", 8, 8},
                                            {"ths_continuation", 16, 8},
                                            {"ths_total_syscalls", 24, 8},
                                            {"ths_voucher_identifier", 32, 8},
                                            {"ths_dqserialnum", 40, 8},
                                            {"ths_user_time", 48, 8},
                                            {"ths_sys_time", 56, 8},
                                            {"ths_ss_flags", 64, 8},
                                            {"ths_last_run_time", 72, 8},
                                            {"ths_last_made_runnable_time", 80, 8},
                                            {"ths_state", 88, 4},
                                            {"ths_sched_flags", 92, 4},
                                            {"ths_base_priority", 96, 2},
                                            {"ths_sched_priority", 98, 2},
                                            {"ths_eqos", 100, 1},
                                            {"ths_rqos", 101, 1},
                                            {"ths_rqos_override", 102, 1},
                                            {"ths_io_tier", 103, 1},
                                            {"ths_thread_t", 104, 8},
                                            {"ths_requested_policy", 112, 8},
                                            {"ths_effective_policy", 120, 8}});
}

TEST(SnapshotLayout, ThreadGroup) {
  expectLayout<darwin::thread_group_snapshot_v3>(
      {FIELD(thread_group_snapshot_v3, tgs_id), FIELD(thread_group_snapshot_v3, tgs_name),
       FIELD(thread_group_snapshot_v3, tgs_flags), FIELD(thread_group_snapshot_v3, tgs_name_cont)},
      48, 1,
      {{"tgs_id", 0, 8}, {"tgs_name", 8, 16}, {"tgs_flags", 24, 8}, {"tgs_name_cont", 32, 16}});
}

TEST(SnapshotLayout, Times) {
  expectLayout<darwin::stackshot_cpu_times_v2>(
      {FIELD(stackshot_cpu_times_v2, user_usec), FIELD(stackshot_cpu_times_v2, system_usec),
       FIELD(stackshot_cpu_times_v2, runnable_usec)},
      24, 1, {{"user_usec", 0, 8}, {"system_usec", 8, 8}, {"runnable_usec", 16, 8}});
}

TEST(SnapshotLayout, Counters) {
  expectLayout<darwin::instrs_cycles_snapshot_v2>(
      {FIELD(instrs_cycles_snapshot_v2, ics_instructions),
       FIELD(instrs_cycles_snapshot_v2, ics_cycles),
       FIELD(instrs_cycles_snapshot_v2, ics_p_instructions),
       FIELD(instrs_cycles_snapshot_v2, ics_p_cycles)},
      32, 1,
      {{"ics_instructions", 0, 8},
       {"ics_cycles", 8, 8},
       {"ics_p_instructions", 16, 8},
       {"ics_p_cycles", 24, 8}});
}

TEST(SnapshotLayout, CodeSigning) {
  expectLayout<darwin::stackshot_task_codesigning_info>(
      {FIELD(stackshot_task_codesigning_info, csflags),
       FIELD(stackshot_task_codesigning_info, cs_trust_level)},
      12, 1, {{"csflags", 0, 8}, {"cs_trust_level", 8, 4}});
}

TEST(SnapshotLayout, SignedFields) {
  EXPECT_TRUE(std::is_signed_v<decltype(darwin::task_snapshot_v2::ts_pid)>);
  EXPECT_TRUE(std::is_signed_v<decltype(darwin::thread_snapshot_v4::ths_base_priority)>);
  EXPECT_TRUE(std::is_signed_v<decltype(darwin::thread_snapshot_v4::ths_sched_priority)>);
}

TEST(SnapshotNumbers, Items) {
  EXPECT_EQ(darwin::KCDATA_TYPE_ARRAY, 17u);
  EXPECT_EQ(darwin::KCDATA_TYPE_ARRAY_PAD0, 32u);
  EXPECT_EQ(darwin::KCDATA_TYPE_ARRAY_PADf, 47u);
  EXPECT_EQ(darwin::KCDATA_TYPE_CONTAINER_BEGIN, 19u);
  EXPECT_EQ(darwin::KCDATA_TYPE_CONTAINER_END, 20u);
  EXPECT_EQ(darwin::KCDATA_TYPE_LIBRARY_LOADINFO64, 49u);
  EXPECT_EQ(darwin::KCDATA_TYPE_BUFFER_END, 0xF19158EDu);
  EXPECT_EQ(darwin::KCDATA_BUFFER_BEGIN_STACKSHOT, 0x59A25807u);
}

TEST(SnapshotNumbers, Types) {
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_IOSTATS, 2305u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_GLOBAL_MEM_STATS, 2306u);
  EXPECT_EQ(darwin::STACKSHOT_KCCONTAINER_TASK, 2307u);
  EXPECT_EQ(darwin::STACKSHOT_KCCONTAINER_THREAD, 2308u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_TASK_SNAPSHOT, 2309u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_THREAD_SNAPSHOT, 2310u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_SHAREDCACHE_LOADINFO, 2312u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_THREAD_NAME, 2313u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_BOOTARGS, 2318u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_OSVERSION, 2319u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_KERN_STACKLR64, 2324u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_USER_STACKLR64, 2326u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_CPU_TIMES, 2329u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_KERNELCACHE_LOADINFO, 2332u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_THREAD_GROUP_SNAPSHOT, 2334u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_INSTRS_CYCLES, 2339u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_LOADINFO64_TEXT_EXEC, 2350u);
  EXPECT_EQ(darwin::STACKSHOT_KCTYPE_CODESIGNING_INFO, 2374u);
}

TEST(SnapshotNumbers, Flags) {
  EXPECT_EQ(darwin::STACKSHOT_SAVE_LOADINFO, 0x2u);
  EXPECT_EQ(darwin::STACKSHOT_GET_GLOBAL_MEM_STATS, 0x4u);
  EXPECT_EQ(darwin::STACKSHOT_SAVE_IMP_DONATION_PIDS, 0x2000u);
  EXPECT_EQ(darwin::STACKSHOT_KCDATA_FORMAT, 0x10000u);
  EXPECT_EQ(darwin::STACKSHOT_COLLECT_SHAREDCACHE_LAYOUT, 0x80000u);
  EXPECT_EQ(darwin::STACKSHOT_THREAD_WAITINFO, 0x1000000u);
  EXPECT_EQ(darwin::STACKSHOT_INSTRS_CYCLES, 0x8000000u);
}

}  // namespace
