// Tasks of a simulated device: who gets their ports, and what their threads and memory hold.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

#include "host/darwin/errors.h"
#include "simulated_device.h"

namespace simulated_test {
namespace {

using host::simulator::FailCall;
using host::simulator::Region;
using host::simulator::Registers;
using testing::ElementsAre;

constexpr uint32_t kUser = 501;

Region regionAt(uint64_t address, uint64_t size, std::vector<uint8_t> contents = {}) {
  Region made;
  made.address = address;
  made.size = size;
  made.contents = std::move(contents);
  return made;
}

Process ownedBy(uint32_t user, int32_t pid) {
  Process made = process(pid);
  made.user = made.realUser = made.savedUser = user;
  return made;
}

// What a read gives, or "error N".
std::string memoryOf(SimulatedMachine &machine, int32_t pid, uint64_t address, size_t size) {
  std::string memory(size, '?');
  const Errno error = machine.readMemory(pid, address, size, memory.data());
  if (error == kAnswered) return memory;
  EXPECT_EQ(memory, std::string(size, '?'));  // all or nothing
  return "error " + std::to_string(error);
}

const std::string kFault = "error " + std::to_string(darwin::DARWIN_EFAULT);

TEST(SimulatedTaskTest, RootGetsAllPorts) {
  SimulatedMachine machine(device({ownedBy(kUser, 9), ownedBy(0, 10), zombie(11)}));
  for (const int32_t pid : {9, 10}) {
    EXPECT_EQ(machine.taskPort(pid), kAnswered);
    EXPECT_EQ(machine.taskNamePort(pid), kAnswered);
  }
  for (const int32_t pid : {11, 12, -1}) {
    EXPECT_EQ(machine.taskPort(pid), darwin::DARWIN_ESRCH);
    EXPECT_EQ(machine.taskNamePort(pid), darwin::DARWIN_ESRCH);
  }
}

TEST(SimulatedTaskTest, AUserGetsThoseOfHisOwn) {
  Device given = device({ownedBy(kUser, 9), ownedBy(0, 10)});
  given.caller = kUser;
  given.processes[1].regions = {regionAt(0x1000, 0x1000)};
  given.processes[1].threads[0].id = 77;
  SimulatedMachine machine(given);
  EXPECT_EQ(machine.taskPort(9), kAnswered);
  EXPECT_EQ(machine.taskNamePort(9), kAnswered);
  EXPECT_EQ(machine.taskPort(10), darwin::DARWIN_EPERM);
  EXPECT_EQ(machine.taskNamePort(10), darwin::DARWIN_EPERM);
  host::ThreadRegisters registers;
  EXPECT_EQ(machine.threadRegisters(10, 77, registers), darwin::DARWIN_EPERM);
  EXPECT_EQ(memoryOf(machine, 10, 0x1000, 4), "error " + std::to_string(darwin::DARWIN_EPERM));
}

TEST(SimulatedTaskTest, TheKernelsOwnOnAChangedKernelAlone) {
  Device given = device({process(0, "kernel_task")});
  SimulatedMachine stock(given);
  EXPECT_EQ(stock.kernelTaskPort(), darwin::DARWIN_ENOTSUP);
  given.kernel.givesTask = true;
  SimulatedMachine changed(given);
  EXPECT_EQ(changed.kernelTaskPort(), kAnswered);
}

TEST(SimulatedTaskTest, KernelExtensions) {
  Device given = device({process(9)});
  SimulatedMachine without(given);
  std::vector<std::string> identifiers = {"as it was"};
  EXPECT_EQ(without.kernelExtensions(identifiers), darwin::DARWIN_ENOTSUP);
  EXPECT_THAT(identifiers, ElementsAre("as it was"));
  given.kernel.extensions = {"com.example.driver.a", "com.example.driver.b"};
  SimulatedMachine with(given);
  EXPECT_EQ(with.kernelExtensions(identifiers), kAnswered);
  EXPECT_THAT(identifiers, ElementsAre("com.example.driver.a", "com.example.driver.b"));
  given.kernel.extensions->clear();
  SimulatedMachine none(given);
  EXPECT_EQ(none.kernelExtensions(identifiers), kAnswered);
  EXPECT_THAT(identifiers, ElementsAre());
}

Registers someRegisters() {
  Registers registers;
  registers.programCounter = 0x100004000;
  registers.stackPointer = 0x16f000000;
  registers.framePointer = 0x16f000010;
  registers.link = 0x100004100;
  registers.status = 0x60000000;
  for (uint64_t i = 0; i < 29; i++) registers.general.push_back(0x700000000 + i);
  return registers;
}

TEST(SimulatedRegistersTest, Of64Bits) {
  Process given = process(9);
  given.threads = {thread(), thread()};
  given.threads[0].id = 21;
  given.threads[1].id = 22;
  given.threads[1].registers = someRegisters();
  SimulatedMachine machine(device({given}));
  host::ThreadRegisters registers;
  ASSERT_EQ(machine.threadRegisters(9, 22, registers), kAnswered);
  const auto &wide = std::get<darwin::arm_thread_state64_t>(registers);
  for (uint64_t i = 0; i < 29; i++) EXPECT_EQ(wide.__x[i], 0x700000000 + i);
  EXPECT_EQ(wide.__fp, 0x16f000010U);
  EXPECT_EQ(wide.__lr, 0x100004100U);
  EXPECT_EQ(wide.__sp, 0x16f000000U);
  EXPECT_EQ(wide.__pc, 0x100004000U);
  EXPECT_EQ(wide.__cpsr, 0x60000000U);
  EXPECT_EQ(wide.__pad, 0U);

  // Nothing was said of the other's.
  ASSERT_EQ(machine.threadRegisters(9, 21, registers), kAnswered);
  const auto &none = std::get<darwin::arm_thread_state64_t>(registers);
  EXPECT_EQ(none.__x[0], 0U);
  EXPECT_EQ(none.__pc, 0U);
  EXPECT_EQ(none.__sp, 0U);
}

TEST(SimulatedRegistersTest, Of32Bits) {
  Process given = process(9);
  given.is64Bit = false;
  given.threads[0].id = 21;
  given.threads[0].registers = someRegisters();
  SimulatedMachine machine(device({given}));
  host::ThreadRegisters registers;
  ASSERT_EQ(machine.threadRegisters(9, 21, registers), kAnswered);
  const auto &narrow = std::get<darwin::arm_thread_state32_t>(registers);
  for (uint32_t i = 0; i < 13; i++) EXPECT_EQ(narrow.__r[i], i);
  EXPECT_EQ(narrow.__lr, 0x4100U);
  EXPECT_EQ(narrow.__sp, 0x6f000000U);
  EXPECT_EQ(narrow.__pc, 0x4000U);
  EXPECT_EQ(narrow.__cpsr, 0x60000000U);
}

TEST(SimulatedRegistersTest, AreInTheInnermostCallUnlessTheySayWhere) {
  for (const bool is64Bit : {true, false}) {
    Process given = process(9);
    given.is64Bit = is64Bit;
    given.threads = {thread(), thread()};
    given.threads[0].id = 21;
    given.threads[0].userStack = {0x4a20, 0x3f10};
    given.threads[1] = given.threads[0];
    given.threads[1].id = 22;
    given.threads[1].registers.programCounter = 0x4000;
    SimulatedMachine machine(device({given}));
    const auto programCounter = [&](uint64_t id) -> uint64_t {
      host::ThreadRegisters registers;
      EXPECT_EQ(machine.threadRegisters(9, id, registers), kAnswered);
      if (is64Bit) return std::get<darwin::arm_thread_state64_t>(registers).__pc;
      return std::get<darwin::arm_thread_state32_t>(registers).__pc;
    };
    EXPECT_EQ(programCounter(21), 0x4a20U);
    EXPECT_EQ(programCounter(22), 0x4000U);
  }
}

TEST(SimulatedRegistersTest, OfNoSuchThread) {
  SimulatedMachine machine(device({process(9), zombie(10)}));
  host::ThreadRegisters registers;
  EXPECT_EQ(machine.threadRegisters(9, 99, registers), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine.threadRegisters(10, 99, registers), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine.threadRegisters(11, 99, registers), darwin::DARWIN_ESRCH);
}

// abcabc..., then zeroes, then a hole, then xxx...
class SimulatedMemoryTest : public testing::Test {
 protected:
  static Device withRegions() {
    Process given = process(9);
    given.regions = {regionAt(0x1000, 0x1000, {'a', 'b', 'c'}), regionAt(0x2000, 0x1000),
                     regionAt(0x5000, 0x1000, {'x'})};
    return device({given});
  }
};

TEST_F(SimulatedMemoryTest, ContentsAreRepeatedToTheEnd) {
  SimulatedMachine machine(withRegions());
  EXPECT_EQ(memoryOf(machine, 9, 0x1000, 7), "abcabca");
  EXPECT_EQ(memoryOf(machine, 9, 0x1001, 3), "bca");
  // 4096 is one more than a multiple of three.
  EXPECT_EQ(memoryOf(machine, 9, 0x1FFD, 3), "bca");
  EXPECT_EQ(memoryOf(machine, 9, 0x2800, 3), std::string(3, '\0'));
  EXPECT_EQ(memoryOf(machine, 9, 0x5FFF, 1), "x");
}

TEST_F(SimulatedMemoryTest, ARegionThatFollowsIsReadOn) {
  SimulatedMachine machine(withRegions());
  EXPECT_EQ(memoryOf(machine, 9, 0x1FFE, 4), std::string("ca\0\0", 4));
  std::string both;
  for (size_t i = 0; i < 0x1000; i++) both += "abc"[i % 3];
  both.append(0x1000, '\0');
  EXPECT_EQ(memoryOf(machine, 9, 0x1000, 0x2000), both);
}

TEST_F(SimulatedMemoryTest, HolesCantBeRead) {
  SimulatedMachine machine(withRegions());
  EXPECT_EQ(memoryOf(machine, 9, 0x1000, 0x2001), kFault);
  EXPECT_EQ(memoryOf(machine, 9, 0xFFF, 2), kFault);
  EXPECT_EQ(memoryOf(machine, 9, 0x3000, 1), kFault);
  EXPECT_EQ(memoryOf(machine, 9, 0x4FFF, 2), kFault);
  EXPECT_EQ(memoryOf(machine, 9, 0x6000, 1), kFault);
  EXPECT_EQ(memoryOf(machine, 9, 0, 1), kFault);
  EXPECT_EQ(memoryOf(machine, 9, UINT64_MAX, 1), kFault);
  EXPECT_EQ(memoryOf(machine, 9, UINT64_MAX - 1, 4), kFault);
  EXPECT_EQ(memoryOf(machine, 9, 0x3000, 0), "");
}

TEST_F(SimulatedMemoryTest, NeitherCanWhatIsNotReadable) {
  Device given = withRegions();
  for (const uint32_t protection : {0U, 2U, 4U, 6U}) {
    given.processes[0].regions[1].protection = protection;
    SimulatedMachine machine(given);
    EXPECT_EQ(memoryOf(machine, 9, 0x2000, 1), kFault) << protection;
    EXPECT_EQ(memoryOf(machine, 9, 0x1FFF, 2), kFault) << protection;
    EXPECT_EQ(memoryOf(machine, 9, 0x1FFF, 1), "a") << protection;
  }
  given.processes[0].regions[1].protection = 5;
  SimulatedMachine fine(given);
  EXPECT_EQ(memoryOf(fine, 9, 0x2000, 1), std::string(1, '\0'));
  given.processes[0].regions[1].isReadable = false;
  SimulatedMachine refused(given);
  EXPECT_EQ(memoryOf(refused, 9, 0x2000, 1), kFault);
}

// A page may hold the end of one region and the start of another.
TEST_F(SimulatedMemoryTest, PagesOfRegionsWithoutContentsAreUntouched) {
  Device given = withRegions();
  given.kernel.pageSize = 4096;
  given.processes[0].regions.push_back(regionAt(0x6000, 0x1000));
  given.processes[0].regions.back().path = "/a/file";
  given.processes[0].regions.push_back(regionAt(0x7000, 0x1000));
  given.processes[0].regions.back().isReadable = false;
  std::vector<int> pages(8);
  SimulatedMachine small(given);
  ASSERT_EQ(small.pages(9, 0x1000, 8, pages.data()), kAnswered);
  EXPECT_THAT(pages, ElementsAre(1, 0, 0, 0, 1, 0x80, 1, 0));
  given.kernel.pageSize = 16384;
  SimulatedMachine large(given);
  ASSERT_EQ(large.pages(9, 0, 3, pages.data()), kAnswered);
  pages.resize(3);
  EXPECT_THAT(pages, ElementsAre(1, 0x81, 0));
  EXPECT_EQ(large.pages(8, 0, 3, pages.data()), darwin::DARWIN_ESRCH);
}

TEST_F(SimulatedMemoryTest, OfNoSuchProcess) {
  SimulatedMachine machine(device({zombie(10)}));
  const std::string gone = "error " + std::to_string(darwin::DARWIN_ESRCH);
  EXPECT_EQ(memoryOf(machine, 9, 0x1000, 1), gone);
  EXPECT_EQ(memoryOf(machine, 10, 0x1000, 1), gone);
}

TEST_F(SimulatedMemoryTest, FailsForAWhile) {
  SimulatedMachine machine(withRegions());
  machine.happen(FailCall{"mach_vm_read_overwrite", "", 9, darwin::DARWIN_EIO}, 1s);
  EXPECT_EQ(memoryOf(machine, 9, 0x1000, 3), "error " + std::to_string(darwin::DARWIN_EIO));
  machine.advance(1s);
  EXPECT_EQ(memoryOf(machine, 9, 0x1000, 3), "abc");
  EXPECT_EQ(machine.callsOf("mach_vm_read_overwrite"), 2U);
}

}  // namespace
}  // namespace simulated_test
