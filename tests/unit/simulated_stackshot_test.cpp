// Stackshots of simulated devices: what of the description is in them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kcdata_items.h"
#include "simulated_device.h"

namespace {

using namespace simulated_test;
using host::simulator::ForkProcess;
using host::simulator::Region;
using host::simulator::StopProcess;
using kcdata_test::Item;
using kcdata_test::itemOf;
using kcdata_test::itemsOf;
using kcdata_test::kindsOf;
using kcdata_test::textAt;
using kcdata_test::wordAt;
using testing::ElementsAre;
using testing::Not;

constexpr uint64_t kFlags = 0x09092006;

std::vector<Item> snapshotOf(SimulatedMachine &machine, int32_t pid) {
  std::vector<uint8_t> bytes;
  EXPECT_EQ(machine.stackshot(pid, kFlags, bytes), kAnswered);
  return itemsOf(bytes);
}

// Of the tasks in it, in order.
std::vector<int32_t> pidsIn(const std::vector<Item> &items) {
  std::vector<int32_t> pids;
  for (const Item &item : items) {
    if (item.type == 2309) pids.push_back(wordAt<int32_t>(item, 84));
  }
  return pids;
}

Process hello() {
  Process made = process(40, "hello");
  made.longName = "hello, with a longer name";
  made.age = 60s;
  made.residentSize = 3 * kPage + 5;
  made.faults = 11;
  made.pageIns = 12;
  made.copyOnWriteFaults = 13;
  made.userTime = 5'000'000;
  made.systemTime = 1'000'000;
  made.donors = {1};
  Thread worker = thread("worker");
  worker.id = 0x77;
  worker.priority = 31;
  worker.currentPriority = 20;
  worker.userTime = 1'250'000;
  worker.systemTime = 125'000;
  worker.waitEvent = 0xFFFFFFE000000010;
  worker.continuation = 0xFFFFFFF000000020;
  worker.kernelStack = {0xFFFFFFF000000030};
  worker.userStack = {0x100000040, 0x100000050};
  made.threads = {worker};
  return made;
}

Region region(uint64_t address, uint32_t protection, std::string path) {
  Region made;
  made.address = address;
  made.size = 0x4000;
  made.protection = protection;
  made.path = std::move(path);
  return made;
}

TEST(SimulatedStackshot, HoldsWhatTheDeviceSays) {
  Device from = device({process(1), hello()});
  from.memory.free = 77;
  SimulatedMachine machine(from);
  machine.advance(1s);
  const std::vector<Item> items = snapshotOf(machine, 40);
  EXPECT_EQ(textAt(itemOf(items, 2319), 0), from.kernel.version);
  EXPECT_THAT(kindsOf(items), Not(testing::Contains(2318u))) << "boot arguments";
  EXPECT_EQ(wordAt<uint32_t>(itemOf(items, 2320), 0), 16384u);
  EXPECT_EQ(wordAt<uint32_t>(itemOf(items, 50), 0), 125u);
  EXPECT_EQ(wordAt<uint32_t>(itemOf(items, 50), 4), 3u);
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 51), 0), uint64_t{86401} * 24'000'000);
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 53), 0), static_cast<uint64_t>(kStart + 1) * 1'000'000);
  EXPECT_EQ(wordAt<uint32_t>(itemOf(items, 2306), 4), 77u);
}

TEST(SimulatedStackshot, HoldsWhatTheProcessSays) {
  SimulatedMachine machine(device({process(1), hello()}));
  const std::vector<Item> items = snapshotOf(machine, 40);
  EXPECT_THAT(pidsIn(items), ElementsAre(40));
  const Item task = itemOf(items, 2309);
  EXPECT_EQ(textAt(task, 88), "hello, with a longer name");
  // In units of 125/3 ns: what its threads did not take.
  EXPECT_EQ(wordAt<uint64_t>(task, 16), 90'000u);
  EXPECT_EQ(wordAt<uint64_t>(task, 24), 21'000u);
  EXPECT_EQ(wordAt<uint64_t>(task, 32), static_cast<uint64_t>(kStart - 60));
  EXPECT_EQ(wordAt<uint64_t>(task, 40), 3 * kPage);
  EXPECT_EQ(wordAt<uint32_t>(task, 56), 0u);
  EXPECT_EQ(wordAt<uint32_t>(task, 60), 11u);
  EXPECT_EQ(wordAt<uint32_t>(task, 64), 12u);
  EXPECT_EQ(wordAt<uint32_t>(task, 68), 13u);
  EXPECT_EQ(wordAt<int32_t>(itemOf(items, 2311), 0), 1);
}

TEST(SimulatedStackshot, HoldsWhatTheThreadSays) {
  SimulatedMachine machine(device({process(1), hello()}));
  const std::vector<Item> items = snapshotOf(machine, 40);
  const Item thread = itemOf(items, 2310);
  EXPECT_EQ(wordAt<uint64_t>(thread, 0), 0x77u);
  EXPECT_EQ(wordAt<uint64_t>(thread, 8), 0xFFFFFFE000000010u);
  EXPECT_EQ(wordAt<uint64_t>(thread, 16), 0xFFFFFFF000000020u);
  EXPECT_EQ(wordAt<uint64_t>(thread, 48), 30'000u);
  EXPECT_EQ(wordAt<uint64_t>(thread, 56), 3'000u);
  EXPECT_EQ(wordAt<uint32_t>(thread, 88), 1u);
  EXPECT_EQ(wordAt<int16_t>(thread, 96), 31);
  EXPECT_EQ(wordAt<int16_t>(thread, 98), 20);
  EXPECT_EQ(textAt(itemOf(items, 2313), 0), "worker");
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 2329), 0), 1250u);
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 2329), 8), 125u);
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 2324), 0), 0xFFFFFFF000000030u);
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 2326), 8), 0x100000050u);
}

TEST(SimulatedStackshot, ImagesAreCodeThatHasAPath) {
  Process with = process(40);
  with.regions = {region(0x100000000, 5, "/bin/hello"), region(0x100004000, 5, "/bin/hello"),
                  region(0x100008000, 1, "/bin/data"), region(0x10000C000, 5, ""),
                  region(0x180000000, 7, "/usr/lib/dyld")};
  SimulatedMachine machine(device({process(1), with}));
  const std::vector<Item> items = snapshotOf(machine, 40);
  const Item images = itemOf(items, 49);
  EXPECT_EQ(images.flags, uint64_t{49} << 32 | 2);
  EXPECT_EQ(wordAt<uint64_t>(images, 0), 0x100000000u);
  EXPECT_EQ(wordAt<uint64_t>(images, 24), 0x180000000u);
}

TEST(SimulatedStackshot, OfAStoppedProcess) {
  SimulatedMachine machine(device({process(1), hello()}));
  machine.happen(StopProcess{40});
  const std::vector<Item> items = snapshotOf(machine, 40);
  EXPECT_EQ(wordAt<uint32_t>(itemOf(items, 2309), 56), 1u);
  EXPECT_EQ(wordAt<uint32_t>(itemOf(items, 2310), 88), 3u);
}

TEST(SimulatedStackshot, OfA32BitProcess) {
  Process narrow = hello();
  narrow.is64Bit = false;
  SimulatedMachine machine(device({process(1), narrow}));
  const std::vector<Item> items = snapshotOf(machine, 40);
  EXPECT_THAT(kindsOf(items), Not(testing::Contains(2326u)));
  EXPECT_EQ(wordAt<uint32_t>(itemOf(items, 2325), 4), 0x50u);
}

TEST(SimulatedStackshot, OfAllHasThemInTheOrderOfTheirStartWithoutZombies) {
  SimulatedMachine machine(device({process(0), process(1), process(90), zombie(5), process(40)}));
  EXPECT_THAT(pidsIn(snapshotOf(machine, -1)), ElementsAre(0, 1, 90, 40));
  EXPECT_THAT(pidsIn(snapshotOf(machine, 0)), ElementsAre(0));
}

TEST(SimulatedStackshot, OfNoProcessIsRefused) {
  SimulatedMachine machine(device({process(1), zombie(5)}));
  std::vector<uint8_t> bytes = {7};
  for (const int32_t pid : {5, 6, -2}) {
    EXPECT_EQ(machine.stackshot(pid, kFlags, bytes), darwin::DARWIN_EINVAL) << pid;
  }
  EXPECT_THAT(bytes, ElementsAre(7));
}

TEST(SimulatedStackshot, IsForRootOnly) {
  Device from = device({process(1)});
  from.caller = 501;
  SimulatedMachine machine(from);
  std::vector<uint8_t> bytes;
  EXPECT_EQ(machine.stackshot(1, kFlags, bytes), darwin::DARWIN_EPERM);
}

TEST(SimulatedStackshot, IsTheSameEveryTime) {
  SimulatedMachine first(device({process(1), hello()}));
  SimulatedMachine second(device({process(1), hello()}));
  std::vector<uint8_t> one;
  std::vector<uint8_t> other;
  ASSERT_EQ(first.stackshot(-1, kFlags, one), kAnswered);
  ASSERT_EQ(second.stackshot(-1, kFlags, other), kAnswered);
  EXPECT_EQ(one, other);
}

TEST(SimulatedStackshot, OfAForkHasNobodysImportance) {
  SimulatedMachine machine(device({process(1), hello()}));
  machine.happen(ForkProcess{40, 41});
  const std::vector<Item> items = snapshotOf(machine, 41);
  EXPECT_THAT(pidsIn(items), ElementsAre(41));
  EXPECT_THAT(kindsOf(items), Not(testing::Contains(2311u)));
}

}  // namespace
