// Chunked data and stackshots have no public headers in the SDK: their fields, and their numbers
// against tables written down here from the kernel's published sources.
#include <gtest/gtest.h>

#include <type_traits>

#include "darwin/kcdata.h"
#include "darwin/stackshot.h"
#include "layouts.h"

namespace {

TEST(SnapshotLayout, HasNoPadding) {
  EXPECT_NO_PADDING(kcdata_item);
  EXPECT_NO_PADDING(dyld_uuid_info_64);
  EXPECT_NO_PADDING(task_snapshot_v2);
  EXPECT_NO_PADDING(thread_snapshot_v4);
  EXPECT_NO_PADDING(thread_group_snapshot_v3);
  EXPECT_NO_PADDING(stackshot_cpu_times_v2);
  EXPECT_NO_PADDING(instrs_cycles_snapshot_v2);
  EXPECT_NO_PADDING(stackshot_task_codesigning_info);
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
