#include "darwin/mach_task.h"

#include "darwin/kext.h"
#include "darwin/mach_vm.h"
#include "host/darwin/mach_host.h"
#include "host/entry/core_foundation.h"
#include "tests/unit/memory_machine.h"

namespace darwin {
namespace {

using fake_machine::kNoPort;
using memory_test::kMappedPid;
using memory_test::makeRegion;

class MachTaskTest : public memory_test::MemoryTest {
 protected:
  // Given back at the end of the test.
  mach_port_t openTask() {
    mach_port_t task = 0;
    EXPECT_EQ(task_for_pid(mach_task_self_, kMappedPid, &task), KERN_SUCCESS);
    opened_.push_back(task);
    return task;
  }
  mach_port_t openThread(uint64_t id) {
    opened_.push_back(host::openPort({host::PortKind::kThread, kMappedPid, id}));
    return opened_.back();
  }
  void TearDown() override {
    for (const mach_port_t port : opened_) {
      EXPECT_EQ(mach_port_deallocate(mach_task_self_, port), KERN_SUCCESS);
    }
  }

 private:
  std::vector<mach_port_t> opened_;
};

TEST_F(MachTaskTest, TaskPortsAreForThoseWhoMay) {
  mach_port_t port = kNoPort;
  machine.pid = 0;
  EXPECT_EQ(task_for_pid(mach_task_self_, 0, &port), KERN_FAILURE);
  EXPECT_EQ(port, 0u);
  machine.pid = kMappedPid;
  port = kNoPort;
  EXPECT_EQ(task_for_pid(mach_task_self_, kMappedPid + 1, &port), KERN_FAILURE);
  EXPECT_EQ(port, 0u);
  machine.givesTask = false;
  EXPECT_EQ(task_for_pid(mach_task_self_, kMappedPid, &port), KERN_FAILURE);
  EXPECT_EQ(task_name_for_pid(mach_task_self_, kMappedPid, &port), KERN_SUCCESS);
  EXPECT_EQ(mach_port_deallocate(mach_task_self_, port), KERN_SUCCESS);
  EXPECT_EQ(mach_port_deallocate(mach_task_self_, port), 15);
}

TEST_F(MachTaskTest, APortHasOneNameAndCountsItsReferences) {
  const mach_port_t task = openTask();
  const size_t before = host::openPorts();
  EXPECT_EQ(openTask(), task);
  EXPECT_EQ(host::openPorts(), before + 1);
  mach_port_t name = 0;
  EXPECT_EQ(task_name_for_pid(mach_task_self_, kMappedPid, &name), KERN_SUCCESS);
  EXPECT_NE(name, task);
  mach_port_deallocate(mach_task_self_, name);
}

TEST_F(MachTaskTest, CallsNeedAPortOfTheirKind) {
  machine.threads[5] = arm_thread_state64_t{};
  const mach_port_t thread = openThread(5);
  thread_act_array_t list = nullptr;
  mach_msg_type_number_t count = 0;
  EXPECT_EQ(task_threads(kNoPort, &list, &count), MACH_SEND_INVALID_DEST);
  EXPECT_EQ(task_threads(thread, &list, &count), KERN_INVALID_ARGUMENT);
  natural_t state[70] = {};
  EXPECT_EQ(act_get_state(openTask(), ARM_THREAD_STATE64, state, &count), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(act_get_state(kNoPort, ARM_THREAD_STATE64, state, &count), MACH_SEND_INVALID_DEST);
  mach_vm_size_t size = 0;
  EXPECT_EQ(
      mach_vm_read_overwrite(kNoPort, 0, 4, reinterpret_cast<mach_vm_address_t>(state), &size),
      MACH_SEND_INVALID_DEST);
  EXPECT_EQ(task_info(kNoPort, TASK_EXTMOD_INFO, nullptr, &count), MACH_SEND_INVALID_DEST);
}

TEST_F(MachTaskTest, ThreadsComeAsPorts) {
  machine.threads[5] = arm_thread_state64_t{};
  machine.threads[8] = arm_thread_state64_t{};
  thread_act_array_t list = nullptr;
  mach_msg_type_number_t count = 0;
  ASSERT_EQ(task_threads(openTask(), &list, &count), KERN_SUCCESS);
  ASSERT_EQ(count, 2u);
  EXPECT_EQ(host::findPort(list[1])->thread, 8u);
  for (uint32_t i = 0; i < count; i++) mach_port_deallocate(mach_task_self_, list[i]);
  EXPECT_EQ(
      vm_deallocate(mach_task_self_, reinterpret_cast<vm_address_t>(list), count * sizeof *list),
      KERN_SUCCESS);
  machine.threads.clear();
  EXPECT_EQ(task_threads(openTask(), &list, &count), KERN_SUCCESS);
  EXPECT_EQ(count, 0u);
}

TEST_F(MachTaskTest, RegistersInTheFormOfTheirWordSize) {
  arm_thread_state64_t wide{};
  wide.__pc = 0x1122334455667788;
  arm_thread_state32_t narrow{};
  narrow.__r[0] = 0xAA;
  machine.threads[1] = wide;
  machine.threads[2] = narrow;
  const struct {
    uint64_t thread;
    int flavour;
    mach_msg_type_number_t room;
    kern_return_t result;
    mach_msg_type_number_t words;
    natural_t first;
  } rows[] = {
      {1, ARM_THREAD_STATE64, 68, KERN_SUCCESS, 68, 0},
      {1, ARM_THREAD_STATE64, 67, KERN_INVALID_ARGUMENT, 67, 0},
      {1, ARM_THREAD_STATE32, 68, KERN_INVALID_ARGUMENT, 68, 0},
      {1, ARM_THREAD_STATE, 69, KERN_INVALID_ARGUMENT, 69, 0},
      {1, ARM_THREAD_STATE, 70, KERN_SUCCESS, 70, ARM_THREAD_STATE64},
      {2, ARM_THREAD_STATE, 17, KERN_SUCCESS, 17, 0xAA},
      {2, ARM_THREAD_STATE, 19, KERN_SUCCESS, 17, 0xAA},
      {2, ARM_THREAD_STATE, 70, KERN_SUCCESS, 70, ARM_THREAD_STATE32},
      {2, ARM_THREAD_STATE32, 17, KERN_SUCCESS, 17, 0xAA},
      {2, ARM_THREAD_STATE32, 16, KERN_INVALID_ARGUMENT, 16, 0},
      {2, ARM_THREAD_STATE64, 68, KERN_INVALID_ARGUMENT, 68, 0},
      {1, 77, 70, KERN_INVALID_ARGUMENT, 70, 0},
  };
  for (const auto &row : rows) {
    natural_t state[70] = {};
    mach_msg_type_number_t count = row.room;
    EXPECT_EQ(act_get_state(openThread(row.thread), row.flavour, state, &count), row.result);
    EXPECT_EQ(count, row.words);
    EXPECT_EQ(state[0], row.first);
  }
}

TEST_F(MachTaskTest, RegionsUpToTheLast) {
  machine.regions = {makeRegion(0x4000, 0x1000, 5, 33)};
  const mach_port_t task = openTask();
  vm_region_submap_info_64 info{};
  const auto out = reinterpret_cast<vm_region_recurse_info_t>(&info);
  for (const mach_msg_type_number_t room : {16u, 17u, 40u}) {
    vm_address_t address = 0;
    vm_size_t size = 0;
    natural_t depth = 1;
    mach_msg_type_number_t count = room;
    EXPECT_EQ(vm_region_recurse_64(task, &address, &size, &depth, out, &count), KERN_SUCCESS);
    EXPECT_EQ(address, 0x4000u);
    EXPECT_EQ(size, 0x1000u);
    EXPECT_EQ(info.protection, 5);
    EXPECT_EQ(info.max_protection, 7);
    EXPECT_EQ(info.user_tag, 33u);
  }
  vm_address_t address = 0x5000;
  vm_size_t size = 99;
  natural_t depth = 1;
  mach_msg_type_number_t count = 19;
  EXPECT_EQ(vm_region_recurse_64(task, &address, &size, &depth, out, &count), KERN_INVALID_ADDRESS);
  EXPECT_EQ(address, 0x5000u);
  EXPECT_EQ(size, 99u);
}

TEST_F(MachTaskTest, RegionsHaveAsManyWordsAsKernelAndCallerKnow) {
  machine.regions = {makeRegion(0x4000, 0x1000)};
  const mach_port_t task = openTask();
  const struct {
    host::KernelFamily family;
    mach_msg_type_number_t room;
    mach_msg_type_number_t words;  // 0: refused
  } rows[] = {
      {4903, 15, 0},  {4903, 16, 16}, {4903, 17, 17}, {4903, 19, 17}, {6152, 40, 17}, {6153, 15, 0},
      {6153, 16, 16}, {6153, 17, 17}, {6153, 18, 17}, {6153, 19, 19}, {6153, 40, 19},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.room);
    machine.family = row.family;
    int words[40];
    std::fill(std::begin(words), std::end(words), -1);
    vm_address_t address = 0;
    vm_size_t size = 0;
    natural_t depth = 1;
    mach_msg_type_number_t count = row.room;
    EXPECT_EQ(vm_region_recurse_64(task, &address, &size, &depth, words, &count),
              row.words != 0 ? KERN_SUCCESS : KERN_INVALID_ARGUMENT);
    EXPECT_EQ(count, row.words != 0 ? row.words : row.room);
    EXPECT_EQ(std::count(std::begin(words) + row.words, std::end(words), -1),
              40 - static_cast<int>(row.words));
    if (row.words == 19) {
      EXPECT_EQ(words[17], 0xabcd) << "the object";
    }
  }
}

TEST_F(MachTaskTest, NothingIsKnownOfWhatOthersDid) {
  machine.threads[5] = arm_thread_state64_t{};
  mach_port_t name = 0;
  ASSERT_EQ(task_name_for_pid(mach_task_self_, kMappedPid, &name), KERN_SUCCESS);
  integer_t info[16] = {};
  for (mach_msg_type_number_t count : {16u, 64u}) {
    EXPECT_EQ(task_info(openTask(), TASK_EXTMOD_INFO, info, &count), KERN_FAILURE);
    EXPECT_EQ(task_info(name, TASK_EXTMOD_INFO, info, &count), KERN_FAILURE);
  }
  mach_msg_type_number_t count = 15;
  EXPECT_EQ(task_info(openTask(), TASK_EXTMOD_INFO, info, &count), KERN_INVALID_ARGUMENT);
  count = 64;
  EXPECT_EQ(task_info(openTask(), 1, info, &count), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(task_info(openThread(5), TASK_EXTMOD_INFO, info, &count), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(count, 64u);
  mach_port_deallocate(mach_task_self_, name);
}

TEST_F(MachTaskTest, MemoryIsReadWholeOrNotAtAll) {
  const mach_port_t task = openTask();
  uint8_t bytes[8] = {};
  const auto to = reinterpret_cast<mach_vm_address_t>(bytes);
  mach_vm_size_t size = 0;
  ASSERT_EQ(mach_vm_read_overwrite(task, 0x5000, sizeof bytes, to, &size), KERN_SUCCESS);
  EXPECT_EQ(size, sizeof bytes);
  EXPECT_EQ(bytes[7], memory_test::byteAt(0x5007));
  machine.unreadable = {0x5007};
  EXPECT_EQ(mach_vm_read_overwrite(task, 0x5000, sizeof bytes, to, &size), KERN_INVALID_ADDRESS);
  EXPECT_EQ(mach_vm_read_overwrite(task, ~uint64_t{0}, 2, to, &size), KERN_INVALID_ADDRESS);
}

TEST_F(MachTaskTest, PagesAreToldWholeAndAsFarAsThereIsRoom) {
  machine.pageBytes = 16384;
  vm_size_t pageSize = 0;
  EXPECT_EQ(host_page_size(mach_host_self(), &pageSize), KERN_SUCCESS);
  EXPECT_EQ(pageSize, 16384u);
  uint64_t from = 0;
  machine.tellsPages = [&](uint64_t address, size_t count, int *to) {
    from = address;
    std::fill_n(to, count, 7);
    return host::kAnswered;
  };
  const mach_port_t task = openTask();
  int pages[4] = {};
  const auto to = reinterpret_cast<mach_vm_address_t>(pages);
  mach_vm_size_t count = 4;
  ASSERT_EQ(mach_vm_page_range_query(task, 0x7fff, 0x4002, to, &count), KERN_SUCCESS);
  EXPECT_EQ(from, 0x4000u);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(pages[2], 7);
  EXPECT_EQ(pages[3], 0);
  count = 1;
  pages[1] = 0;
  ASSERT_EQ(mach_vm_page_range_query(task, 0x8000, 0x10000, to, &count), KERN_SUCCESS);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(pages[1], 0);
  EXPECT_EQ(mach_vm_page_range_query(task, ~uint64_t{0}, 2, to, &count), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(mach_vm_page_range_query(task, 0x8000, ~uint64_t{0}, to, &count),
            KERN_INVALID_ARGUMENT);
  EXPECT_EQ(mach_vm_page_range_query(kNoPort, 0, 1, to, &count), MACH_SEND_INVALID_DEST);
  machine.tellsPages = nullptr;
  EXPECT_EQ(mach_vm_page_range_query(task, 0x8000, 1, to, &count), KERN_FAILURE);
  EXPECT_EQ(count, 1u);
}

TEST_F(MachTaskTest, OfAProcessThatIsGoneNothingIsWritten) {
  machine.threads[5] = arm_thread_state64_t{};
  machine.regions = {makeRegion(0x4000, 0x1000)};
  const mach_port_t task = openTask();
  const mach_port_t thread = openThread(5);
  machine.pid = kMappedPid + 1;
  machine.threads.clear();

  auto *const untouched = reinterpret_cast<thread_act_t *>(8);
  thread_act_array_t list = untouched;
  mach_msg_type_number_t count = 70;
  EXPECT_EQ(task_threads(task, &list, &count), KERN_FAILURE);
  EXPECT_EQ(list, untouched);
  natural_t state[70] = {7};
  EXPECT_EQ(act_get_state(thread, ARM_THREAD_STATE64, state, &count), KERN_FAILURE);
  EXPECT_EQ(state[0], 7u);
  EXPECT_EQ(count, 70u);
  vm_address_t address = 0;
  vm_size_t size = 0;
  natural_t depth = 1;
  EXPECT_NE(vm_region_recurse_64(task, &address, &size, &depth,
                                 reinterpret_cast<vm_region_recurse_info_t>(state), &count),
            KERN_SUCCESS);
  EXPECT_EQ(size, 0u);
  mach_vm_size_t read = 99;
  EXPECT_EQ(
      mach_vm_read_overwrite(task, 0x4000, 4, reinterpret_cast<mach_vm_address_t>(state), &read),
      KERN_FAILURE);
  EXPECT_EQ(read, 99u);
}

TEST_F(MachTaskTest, TheKernelsTaskIsAmongTheSpecialPorts) {
  mach_port_t port = kNoPort;
  EXPECT_EQ(host_get_special_port(mach_host_self(), HOST_LOCAL_NODE, 4, &port), KERN_SUCCESS);
  EXPECT_EQ(port, 0u);
  machine.givesKernelTask = true;
  EXPECT_EQ(host_get_special_port(mach_host_self(), HOST_LOCAL_NODE, 4, &port), KERN_SUCCESS);
  ASSERT_TRUE(host::findPort(port).has_value());
  EXPECT_EQ(host::findPort(port)->pid, 0);
  mach_port_deallocate(mach_task_self_, port);
  machine.privileged = false;
  EXPECT_EQ(host_get_special_port(mach_host_self(), HOST_LOCAL_NODE, 4, &port),
            KERN_INVALID_ARGUMENT);
}

TEST_F(MachTaskTest, KernelExtensionsByIdentifier) {
  const size_t before = host::liveObjects();
  EXPECT_EQ(OSKextCopyLoadedKextInfo(nullptr, nullptr), nullptr);
  machine.extensions = {"com.example.one", "com.example.two"};
  const CFDictionaryRef list = OSKextCopyLoadedKextInfo(nullptr, nullptr);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(CFDictionaryGetCount(list), 2);
  CFRelease(list);
  EXPECT_EQ(host::liveObjects(), before);
}

}  // namespace
}  // namespace darwin
