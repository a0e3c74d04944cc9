// The stackshot made of a snapshot: which items are in it, byte by byte, and what the program's own
// parser prints of it.
#include "host/snapshot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "darwin/stackshot.h"
#include "host/darwin/proc_info.h"
#include "kcdata/parser.h"
#include "tests/unit/kcdata_items.h"
#include "tests/unit/sampled_machine.h"

namespace {

using host::Snapshot;
using host::SnapshotTask;
using host::SnapshotThread;
using kcdata_test::Item;
using kcdata_test::itemOf;
using kcdata_test::itemsOf;
using kcdata_test::kindsOf;
using kcdata_test::textAt;
using kcdata_test::wordAt;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr uint64_t kAll = 0x09092006;

SnapshotThread thread() {
  SnapshotThread made;
  made.id = 0x1A2;
  made.name = "worker";
  made.state = darwin::TH_STATE_WAITING;
  made.basePriority = 31;
  made.priority = 47;
  made.waitEvent = 0xFFFFFFE0011AA3C8;
  made.continuation = 0xFFFFFFF007B6A1C4;
  made.userTime = 1'500'000;
  made.systemTime = 250'999;
  made.runnableTime = 2'000'000;
  made.kernelStack = {0xFFFFFFF007B6A1C4, 0xFFFFFFF007C00010};
  made.userStack = {0x1A2B3C4D5, 0x100004A10, 0x100004B20};
  return made;
}

SnapshotTask task() {
  SnapshotTask made;
  made.pid = 40;
  made.name = "Hello";
  made.startSeconds = 1709647629;
  made.residentSize = 50331648;
  made.suspendCount = 1;
  made.faults = 3;
  made.pageIns = 4;
  made.copyOnWriteFaults = 5;
  made.endedUserTime = 6000;
  made.endedSystemTime = 7000;
  made.images = {{0x100000000, {1, 2, 3}}, {0x180000000, {0xFF}}};
  made.donatingPids = {1, 77};
  made.threads = {thread()};
  return made;
}

Snapshot snapshot() {
  Snapshot made;
  made.timebaseNumerator = 125;
  made.timebaseDenominator = 3;
  made.sinceBoot = 125'000;
  made.sinceEpoch = 1'709'647'629'000'001;
  made.kernelVersion = "Darwin Kernel";
  made.bootArguments = "-v";
  made.pageSize = 16384;
  made.memory.emplace();
  made.memory->free_count = 1;
  made.memory->active_count = 2;
  made.memory->inactive_count = 3;
  made.memory->purgeable_count = 4;
  made.memory->wire_count = 5;
  made.memory->speculative_count = 6;
  made.memory->throttled_count = 7;
  made.memory->external_page_count = 8;
  made.memory->compressions = uint64_t{1} << 40;
  made.memory->decompressions = 10;
  made.memory->compressor_page_count = 11;
  made.tasks = {task()};
  return made;
}

std::vector<Item> written(const Snapshot &from, uint64_t flags = kAll) {
  return itemsOf(writeSnapshot(from, flags));
}

// With only this thread, and with only this task.
std::vector<Item> written(const SnapshotThread &from, bool is64Bit = true) {
  Snapshot whole = snapshot();
  whole.tasks.at(0).threads = {from};
  whole.tasks.at(0).is64Bit = is64Bit;
  return written(whole);
}

TEST(SnapshotItems, ComeInTheKernelsOrder) {
  EXPECT_THAT(kindsOf(written(snapshot())),
              ElementsAre(0x59A25807, 2319, 2318, 2320, 50, 51, 53, 2306, 19, 2309, 49, 2311, 19,
                          2310, 2313, 2329, 2324, 2326, 20, 20, 0xF19158ED));
}

TEST(SnapshotItems, OfNoTasksAreThoseOfTheMachine) {
  Snapshot empty;
  empty.kernelVersion = "x";
  EXPECT_THAT(kindsOf(written(empty)), ElementsAre(0x59A25807, 2319, 2320, 50, 51, 53, 0xF19158ED));
}

TEST(SnapshotItems, AreLeftOutWhereNobodyAskedForThem) {
  const std::vector<uint32_t> all = kindsOf(written(snapshot()));
  const std::pair<uint64_t, uint32_t> rows[] = {{0x2, 49}, {0x4, 2306}, {0x2000, 2311}};
  for (const auto &[flag, kind] : rows) {
    std::vector<uint32_t> rest = all;
    std::erase(rest, kind);
    ASSERT_EQ(rest.size(), all.size() - 1);
    EXPECT_THAT(kindsOf(written(snapshot(), kAll & ~flag)), ElementsAreArray(rest)) << kind;
    EXPECT_THAT(kindsOf(written(snapshot(), 0x10000 | flag)), testing::Contains(kind));
  }
}

TEST(SnapshotItems, AreLeftOutWhereNothingIsKnown) {
  SnapshotThread bare;
  bare.id = 5;
  Snapshot whole = snapshot();
  whole.bootArguments.reset();
  whole.memory.reset();
  whole.tasks.at(0).images.clear();
  whole.tasks.at(0).donatingPids.clear();
  whole.tasks.at(0).threads = {bare};
  EXPECT_THAT(kindsOf(written(whole)), ElementsAre(0x59A25807, 2319, 2320, 50, 51, 53, 19, 2309, 19,
                                                   2310, 2329, 20, 20, 0xF19158ED));
}

TEST(SnapshotItems, OfTheMachine) {
  const std::vector<Item> items = written(snapshot());
  EXPECT_EQ(textAt(itemOf(items, 2319), 0), "Darwin Kernel");
  EXPECT_EQ(textAt(itemOf(items, 2318), 0), "-v");
  EXPECT_EQ(wordAt<uint32_t>(itemOf(items, 2320), 0), 16384u);
  EXPECT_EQ(wordAt<uint32_t>(itemOf(items, 50), 0), 125u);
  EXPECT_EQ(wordAt<uint32_t>(itemOf(items, 50), 4), 3u);
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 51), 0), 3000u);
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 53), 0), 1'709'647'629'000'001u);
}

TEST(SnapshotItems, OfMemory) {
  const Item item = itemOf(written(snapshot()), 2306);
  EXPECT_EQ(item.flags, 0x83u) << "61 bytes";
  const uint32_t words[] = {0xBFCABCDE, 1, 2, 3, 4, 5, 6, 7, 8, 0xFFFFFFFF, 10, 11, 0, 0, 0};
  for (size_t i = 0; i < std::size(words); i++) {
    EXPECT_EQ(wordAt<uint32_t>(item, i * 4), words[i]) << i;
  }
  EXPECT_EQ(wordAt<uint8_t>(item, 60), 0);
}

TEST(SnapshotItems, OfATask) {
  const std::vector<Item> items = written(snapshot());
  EXPECT_EQ(items[8].flags, 40u) << "the container's identifier";
  EXPECT_EQ(wordAt<uint32_t>(items[8], 0), 2307u);
  const Item item = itemOf(items, 2309);
  EXPECT_EQ(item.payload.size(), 128u);
  EXPECT_EQ(item.flags, 0x88u) << "120 bytes";
  const uint64_t longWords[] = {40, 3, 144, 168, 1709647629, 50331648, 0};
  for (size_t i = 0; i < std::size(longWords); i++) {
    EXPECT_EQ(wordAt<uint64_t>(item, i * 8), longWords[i]) << i;
  }
  const uint32_t words[] = {1, 3, 4, 5, 0, 0, 0, 40};
  for (size_t i = 0; i < std::size(words); i++) {
    EXPECT_EQ(wordAt<uint32_t>(item, 56 + i * 4), words[i]) << i;
  }
  EXPECT_EQ(textAt(item, 88), "Hello");
}

TEST(SnapshotItems, OfATaskWithALongName) {
  Snapshot whole = snapshot();
  whole.tasks.at(0).name = std::string(40, 'n');
  EXPECT_EQ(textAt(itemOf(written(whole), 2309), 88), std::string(31, 'n'));
}

TEST(SnapshotItems, OfImages) {
  const Item item = itemOf(written(snapshot()), 49);
  EXPECT_EQ(item.type, 0x20u);
  EXPECT_EQ(item.flags, uint64_t{49} << 32 | 2);
  EXPECT_EQ(item.payload.size(), 48u);
  EXPECT_EQ(wordAt<uint64_t>(item, 0), 0x100000000u);
  EXPECT_EQ(wordAt<uint32_t>(item, 8), 0x030201u);
  EXPECT_EQ(wordAt<uint64_t>(item, 24), 0x180000000u);
  EXPECT_EQ(wordAt<uint64_t>(item, 32), 0xFFu);
}

TEST(SnapshotItems, OfImagesOf32Bits) {
  Snapshot whole = snapshot();
  whole.tasks.at(0).is64Bit = false;
  whole.tasks.at(0).images = {{0x8000, {1, 2}}, {0x9000, {3}}};
  const Item item = itemOf(written(whole), 48);
  EXPECT_EQ(item.type, 0x28u);
  EXPECT_EQ(item.flags, uint64_t{48} << 32 | 2);
  EXPECT_EQ(wordAt<uint32_t>(item, 0), 0x8000u);
  EXPECT_EQ(wordAt<uint16_t>(item, 4), 0x0201u);
  EXPECT_EQ(wordAt<uint32_t>(item, 20), 0x9000u);
  EXPECT_EQ(wordAt<uint8_t>(item, 24), 3u);
}

TEST(SnapshotItems, OfDonatingProcesses) {
  const Item item = itemOf(written(snapshot()), 2311);
  EXPECT_EQ(item.flags, uint64_t{2311} << 32 | 2);
  EXPECT_EQ(item.type, 0x28u);
  EXPECT_EQ(wordAt<int32_t>(item, 0), 1);
  EXPECT_EQ(wordAt<int32_t>(item, 4), 77);
}

TEST(SnapshotItems, OfAThread) {
  const std::vector<Item> items = written(snapshot());
  EXPECT_EQ(items[12].flags, 0x1A2u) << "the container's identifier";
  EXPECT_EQ(wordAt<uint32_t>(items[12], 0), 2308u);
  const Item item = itemOf(items, 2310);
  EXPECT_EQ(item.payload.size(), 128u);
  EXPECT_EQ(item.flags, 0x80u);
  // Times in units of 125/3 ns.
  const uint64_t longWords[] = {
      0x1A2, 0xFFFFFFE0011AA3C8, 0xFFFFFFF007B6A1C4, 0, 0, 0, 36000, 6023, 0xB, 0, 0};
  for (size_t i = 0; i < std::size(longWords); i++) {
    EXPECT_EQ(wordAt<uint64_t>(item, i * 8), longWords[i]) << i;
  }
  EXPECT_EQ(wordAt<uint32_t>(item, 88), 1u);
  EXPECT_EQ(wordAt<uint32_t>(item, 92), 0u);
  EXPECT_EQ(wordAt<int16_t>(item, 96), 31);
  EXPECT_EQ(wordAt<int16_t>(item, 98), 47);
  for (size_t i = 100; i < 128; i++) EXPECT_EQ(item.payload[i], 0) << i;
}

TEST(SnapshotItems, StatesAreThoseOfTheScheduler) {
  const std::pair<int32_t, uint32_t> rows[] = {{darwin::TH_STATE_RUNNING, 0x4},
                                               {darwin::TH_STATE_STOPPED, 0x3},
                                               {darwin::TH_STATE_WAITING, 0x1},
                                               {darwin::TH_STATE_UNINTERRUPTIBLE, 0x9},
                                               {darwin::TH_STATE_HALTED, 0x10},
                                               {0, 0x1},
                                               {99, 0x1}};
  for (const auto &[state, bits] : rows) {
    SnapshotThread one = thread();
    one.state = state;
    EXPECT_EQ(wordAt<uint32_t>(itemOf(written(one), 2310), 88), bits) << state;
    one.isIdle = true;
    EXPECT_EQ(wordAt<uint32_t>(itemOf(written(one), 2310), 88), bits | 0x80) << state;
  }
}

TEST(SnapshotItems, OfAThreadName) {
  Item item = itemOf(written(thread()), 2313);
  EXPECT_EQ(item.payload.size(), 64u);
  EXPECT_EQ(textAt(item, 0), "worker");
  SnapshotThread one = thread();
  one.name = std::string(70, 'n');
  item = itemOf(written(one), 2313);
  EXPECT_EQ(item.payload.size(), 64u);
  EXPECT_EQ(textAt(item, 0), std::string(63, 'n'));
}

TEST(SnapshotItems, OfTimes) {
  Item item = itemOf(written(thread()), 2329);
  EXPECT_EQ(item.flags, 0x88u) << "24 bytes";
  EXPECT_EQ(wordAt<uint64_t>(item, 0), 1500u);
  EXPECT_EQ(wordAt<uint64_t>(item, 8), 250u);
  EXPECT_EQ(wordAt<uint64_t>(item, 16), 2000u);
  SnapshotThread one = thread();
  one.runnableTime.reset();
  item = itemOf(written(one), 2329);
  EXPECT_EQ(item.flags, 0x80u);
  EXPECT_EQ(item.payload.size(), 16u);
  EXPECT_EQ(wordAt<uint64_t>(item, 8), 250u);
}

TEST(SnapshotItems, OfStacks) {
  const std::vector<Item> items = written(thread());
  const Item kernel = itemOf(items, 2324);
  EXPECT_EQ(kernel.type, 0x20u);
  EXPECT_EQ(kernel.flags, uint64_t{2324} << 32 | 2);
  EXPECT_EQ(wordAt<uint64_t>(kernel, 0), 0xFFFFFFF007B6A1C4u);
  EXPECT_EQ(wordAt<uint64_t>(kernel, 8), 0xFFFFFFF007C00010u);
  const Item user = itemOf(items, 2326);
  EXPECT_EQ(user.type, 0x28u);
  EXPECT_EQ(user.flags, uint64_t{2326} << 32 | 3);
  EXPECT_EQ(wordAt<uint64_t>(user, 16), 0x100004B20u);
}

TEST(SnapshotItems, UserStackOf32Bits) {
  SnapshotThread one = thread();
  one.userStack = {0x8010, 0x100008020, 0xFFFFFFFF};
  const std::vector<Item> items = written(one, false);
  EXPECT_THAT(kindsOf(items), testing::Not(testing::Contains(2326u)));
  const Item user = itemOf(items, 2325);
  EXPECT_EQ(user.type, 0x24u);
  EXPECT_EQ(user.flags, uint64_t{2325} << 32 | 3);
  EXPECT_EQ(wordAt<uint32_t>(user, 0), 0x8010u);
  EXPECT_EQ(wordAt<uint32_t>(user, 4), 0x8020u);
  EXPECT_EQ(wordAt<uint32_t>(user, 8), 0xFFFFFFFFu);
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 2310), 64), 0xAu) << "not of 64 bits";
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 2309), 8), 0x2u);
}

TEST(SnapshotItems, TimesNeverOverflow) {
  SnapshotThread one = thread();
  one.userTime = UINT64_MAX;
  Snapshot whole = snapshot();
  whole.timebaseNumerator = 1;
  whole.timebaseDenominator = 1000;
  whole.tasks.at(0).threads = {one};
  EXPECT_EQ(wordAt<uint64_t>(itemOf(written(whole), 2310), 48), UINT64_MAX);
}

std::string printed(const Snapshot &from, uint32_t threadsOnly) {
  const std::vector<uint8_t> bytes = writeSnapshot(from, kAll);
  return sampled::outputOf(
      [&] { sondex::parse_stackshot(bytes.data(), bytes.size(), 0, threadsOnly); });
}

TEST(SnapshotItems, ReadWithTheProgramsParser) {
  EXPECT_EQ(printed(snapshot(), 0),
            "_OSVERSION Darwin Kernel\n\n"
            "_BOOTARGS -v\n\n"
            "_KERN_PAGE_SIZE  NOT YET!\n"
            "TIMEBASE  NOT YET!\n"
            "MACH_ABSOLUTE_TIME  NOT YET!\n"
            "USECS_SINCE_EPOCH  NOT YET!\n"
            "_GLOBAL_MEM_STATS NOT YET!\n"
            "CONTAINER_BEGIN  Task container\n"
            "\t_TASK_SNAPSHOT  \tCOMM: Hello\tPID: 40, Task Size: 50331648\n\n"
            "\tARRAY  of 2 Elements of type LIBRARY_LOADINFO64 \n"
            "\t\t(UUID not yet)@0x100000000\n"
            "\t\t(UUID not yet)@0x180000000\n\n"
            "\tARRAY  of 2 Elements of type _DONATING_PIDS \nNOT YET!\n"
            "\tCONTAINER_BEGIN  Thread container\n"
            "\t\t_THREAD_SNAPSHOT  Thread 128 bytes (128)\n"
            "\t\tTID: 0x1a2\tContinuation: 0xfffffff007b6a1c4\n"
            "\t\t_THREAD_NAME \tworker\n"
            "\t\t_CPU_TIMES  User: 1500 System: 250 Runnable: 2000\n\n"
            "\t\tARRAY  of 2 Elements of type _KERN_STACKLR64 \n"
            "\t\t0xfffffff007b6a1c4\n"
            "\t\t0xfffffff007c00010\n\n"
            "\t\tARRAY  of 3 Elements of type _USER_STACKLR64 \n"
            "\t\t0x1a2b3c4d5\n"
            "\t\t0x100004a10\n"
            "\t\t0x100004b20\n\n"
            "\tCONTAINER_END  \n"
            "CONTAINER_END  \n");
}

TEST(SnapshotItems, OfThreadsReadWithTheProgramsParser) {
  Snapshot whole = snapshot();
  SnapshotThread second;
  second.id = 0x1A3;
  second.userTime = 1000;
  whole.tasks.at(0).threads.push_back(second);
  const std::string text = printed(whole, 1);
  EXPECT_EQ(text.substr(text.find("\tCONTAINER_BEGIN", 1)),
            "\tCONTAINER_BEGIN  Thread container\n"
            "\t\t_THREAD_SNAPSHOT  Thread 128 bytes (128)\n"
            "\t\tTID: 0x1a3\n"
            "\t\t_CPU_TIMES  User: 1 System: 0 Runnable: 0\n\n");
}

}  // namespace
