#include <sys/mman.h>

#include <cstring>

#include "host/darwin/mach_host.h"
#include "host/entry/ports.h"
#include "tests/unit/entry_machine.h"

namespace darwin {
namespace {

using entry_test::EntryTest;
using fake_machine::kNoPort;

constexpr int32_t kFill = 0x5a5a5a5a;

struct Words {
  Words() {
    for (int32_t &word : words) word = kFill;
  }
  bool untouchedFrom(size_t index) const {
    for (size_t i = index; i < std::size(words); ++i) {
      if (words[i] != kFill) return false;
    }
    return true;
  }
  int32_t words[256];
};

class MachHost : public EntryTest {
 protected:
  MachHost() {
    machine.basic.max_cpus = 6;
    machine.basic.cpu_subtype = 2;
    machine.basic.logical_cpu = 4;
    machine.basic.max_mem = 1ull << 34;
    machine.memory.free_count = 1000;
    machine.memory.speculative_count = 17;
    machine.memory.total_uncompressed_pages_in_compressor = 99;
    machine.processors = 3;
  }
  ~MachHost() override {
    if (processors != nullptr) munmap(processors, processorCount * sizeof *processors);
  }

  void openProcessors() {
    ASSERT_EQ(host_processors(mach_host_self(), &processors, &processorCount), KERN_SUCCESS);
  }

  Words out;
  processor_array_t processors = nullptr;
  mach_msg_type_number_t processorCount = 0;
};

TEST_F(MachHost, RootGetsAnotherPortThanOthers) {
  machine.privileged = true;
  EXPECT_EQ(mach_host_self(), host::kPrivilegedHostPort);
  machine.privileged = false;
  EXPECT_EQ(mach_host_self(), host::kHostPort);
  machine.privileged = true;
  machine.throws = true;
  EXPECT_EQ(mach_host_self(), host::kHostPort);
}

struct CountCase {
  mach_msg_type_number_t asked;
  kern_return_t result;
  mach_msg_type_number_t given;
};

TEST_F(MachHost, BasicInfoComesInTwoLengths) {
  constexpr CountCase kCases[] = {{0, KERN_FAILURE, 0},   {4, KERN_FAILURE, 4},
                                  {5, KERN_SUCCESS, 5},   {11, KERN_SUCCESS, 5},
                                  {12, KERN_SUCCESS, 12}, {48, KERN_SUCCESS, 12}};
  for (const CountCase &row : kCases) {
    SCOPED_TRACE(row.asked);
    out = Words();
    mach_msg_type_number_t count = row.asked;
    EXPECT_EQ(host_info(mach_host_self(), HOST_BASIC_INFO, out.words, &count), row.result);
    EXPECT_EQ(count, row.given);
    const size_t written = row.result == KERN_SUCCESS ? row.given : 0;
    EXPECT_EQ(std::memcmp(out.words, &machine.basic, written * 4), 0);
    EXPECT_TRUE(out.untouchedFrom(written));
  }
}

TEST_F(MachHost, MemoryStatisticsComeInTwoLengths) {
  constexpr CountCase kCases[] = {{0, KERN_FAILURE, 0},   {23, KERN_FAILURE, 23},
                                  {24, KERN_SUCCESS, 24}, {37, KERN_SUCCESS, 24},
                                  {38, KERN_SUCCESS, 38}, {152, KERN_SUCCESS, 38}};
  for (const CountCase &row : kCases) {
    SCOPED_TRACE(row.asked);
    out = Words();
    mach_msg_type_number_t count = row.asked;
    EXPECT_EQ(host_statistics64(mach_host_self(), HOST_VM_INFO64, out.words, &count), row.result);
    EXPECT_EQ(count, row.given);
    const size_t written = row.result == KERN_SUCCESS ? row.given : 0;
    EXPECT_EQ(std::memcmp(out.words, &machine.memory, written * 4), 0);
    EXPECT_TRUE(out.untouchedFrom(written));
  }
}

TEST_F(MachHost, OldKernelsKnowTheShortMemoryStatisticsOnly) {
  for (const host::KernelFamily family : {2050u, 2421u, 2422u}) {
    machine.family = family;
    out = Words();
    mach_msg_type_number_t count = 152;
    EXPECT_EQ(host_statistics64(mach_host_self(), HOST_VM_INFO64, out.words, &count), KERN_SUCCESS);
    EXPECT_EQ(count, family < 2422 ? 24u : 38u);
    EXPECT_TRUE(out.untouchedFrom(count));
  }
}

TEST_F(MachHost, UnknownFlavoursAndPortsWriteNothing) {
  mach_msg_type_number_t count = 64;
  const mach_port_t self = mach_host_self();
  EXPECT_EQ(host_info(self, 2, out.words, &count), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(host_statistics64(self, 3, out.words, &count), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(host_info(kNoPort, HOST_BASIC_INFO, out.words, &count), MACH_SEND_INVALID_DEST);
  EXPECT_EQ(host_info(DARWIN_MACH_PORT_NULL, HOST_BASIC_INFO, out.words, &count),
            MACH_SEND_INVALID_DEST);
  EXPECT_EQ(host_statistics64(kNoPort, HOST_VM_INFO64, out.words, &count), MACH_SEND_INVALID_DEST);
  EXPECT_EQ(host_info(host::kProcessorSetPort, HOST_BASIC_INFO, out.words, &count),
            KERN_INVALID_ARGUMENT);
  EXPECT_EQ(count, 64u);
  EXPECT_TRUE(out.untouchedFrom(0));
  EXPECT_EQ(machine.asked, 0);
}

TEST_F(MachHost, NullOutputsAreRefused) {
  mach_msg_type_number_t count = 64;
  const mach_port_t self = mach_host_self();
  EXPECT_EQ(host_info(self, HOST_BASIC_INFO, nullptr, &count), KERN_INVALID_ADDRESS);
  EXPECT_EQ(host_info(self, HOST_BASIC_INFO, out.words, nullptr), KERN_INVALID_ADDRESS);
  EXPECT_EQ(host_statistics64(self, HOST_VM_INFO64, nullptr, &count), KERN_INVALID_ADDRESS);
  EXPECT_EQ(host_statistics64(self, HOST_VM_INFO64, out.words, nullptr), KERN_INVALID_ADDRESS);
  EXPECT_EQ(host_processors(self, nullptr, &count), KERN_INVALID_ADDRESS);
  EXPECT_EQ(host_processors(self, &processors, nullptr), KERN_INVALID_ADDRESS);
  EXPECT_EQ(host_processor_sets(self, nullptr, &count), KERN_INVALID_ADDRESS);
}

TEST_F(MachHost, AMachineThatFailsIsAFailureAndLeavesErrnoAlone) {
  openProcessors();
  const mach_port_t self = mach_host_self();
  for (const bool throws : {false, true}) {
    machine.refusal = DARWIN_ENOTSUP;
    mach_msg_type_number_t count = 64;
    mach_port_t host = kNoPort;
    processor_array_t list = nullptr;
    errno = 7;
    EXPECT_EQ(host_info(host::kHostPort, HOST_BASIC_INFO, out.words, &count), KERN_FAILURE);
    EXPECT_EQ(host_statistics64(host::kHostPort, HOST_VM_INFO64, out.words, &count), KERN_FAILURE);
    EXPECT_EQ(processor_info(processors[0], PROCESSOR_CPU_LOAD_INFO, &host, out.words, &count),
              KERN_FAILURE);
    EXPECT_EQ(host_processors(self, &list, &count), throws ? MACH_SEND_INVALID_DEST : KERN_FAILURE);
    EXPECT_EQ(errno, 7);
    EXPECT_EQ(count, 64u);
    EXPECT_EQ(host, kNoPort);
    EXPECT_EQ(list, nullptr);
    // From here on even the question for the privilege fails.
    machine.throws = true;
  }
  EXPECT_TRUE(out.untouchedFrom(0));
}

TEST_F(MachHost, ProcessorsAreForThePrivilegedPortAlone) {
  processor_set_name_array_t sets = nullptr;
  mach_msg_type_number_t count = 42;
  EXPECT_EQ(host_processors(host::kHostPort, &processors, &count), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(host_processor_sets(host::kHostPort, &sets, &count), KERN_INVALID_ARGUMENT);
  EXPECT_EQ(host_processors(kNoPort, &processors, &count), MACH_SEND_INVALID_DEST);
  machine.privileged = false;
  EXPECT_EQ(host_processors(host::kPrivilegedHostPort, &processors, &count),
            MACH_SEND_INVALID_DEST);
  EXPECT_EQ(processors, nullptr);
  EXPECT_EQ(sets, nullptr);
  EXPECT_EQ(count, 42u);
}

TEST_F(MachHost, ProcessorsAreDistinctPortsThatNameTheirTicks) {
  openProcessors();
  ASSERT_EQ(processorCount, 3u);
  for (unsigned int i = 0; i < 3; ++i) {
    out = Words();
    mach_port_t host = 0;
    mach_msg_type_number_t count = 10;
    EXPECT_EQ(processor_info(processors[i], PROCESSOR_CPU_LOAD_INFO, &host, out.words, &count),
              KERN_SUCCESS);
    EXPECT_EQ(out.words[CPU_STATE_USER], static_cast<int32_t>(i));
    EXPECT_EQ(out.words[CPU_STATE_IDLE], 30);
    EXPECT_TRUE(out.untouchedFrom(4));
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(host, host::kHostPort);
  }
}

TEST_F(MachHost, ProcessorInfoChecksPortFlavourAndRoom) {
  openProcessors();
  mach_port_t host = kNoPort;
  mach_msg_type_number_t count = 4;
  EXPECT_EQ(processor_info(processors[2] + 1, PROCESSOR_CPU_LOAD_INFO, &host, out.words, &count),
            MACH_SEND_INVALID_DEST);
  EXPECT_EQ(
      processor_info(DARWIN_MACH_PORT_NULL, PROCESSOR_CPU_LOAD_INFO, &host, out.words, &count),
      MACH_SEND_INVALID_DEST);
  EXPECT_EQ(processor_info(mach_host_self(), PROCESSOR_CPU_LOAD_INFO, &host, out.words, &count),
            KERN_INVALID_ARGUMENT);
  EXPECT_EQ(processor_info(processors[0], 1, &host, out.words, &count), KERN_INVALID_ARGUMENT);
  count = 3;
  EXPECT_EQ(processor_info(processors[0], PROCESSOR_CPU_LOAD_INFO, &host, out.words, &count),
            KERN_FAILURE);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(host, kNoPort);
  EXPECT_TRUE(out.untouchedFrom(0));
}

TEST_F(MachHost, ThereIsOneProcessorSet) {
  processor_set_name_array_t sets = nullptr;
  mach_msg_type_number_t count = 0;
  ASSERT_EQ(host_processor_sets(mach_host_self(), &sets, &count), KERN_SUCCESS);
  ASSERT_EQ(count, 1u);
  EXPECT_NE(sets[0], DARWIN_MACH_PORT_NULL);
  EXPECT_EQ(munmap(sets, sizeof *sets), 0);
}

TEST_F(MachHost, NoProcessorsOrAbsurdlyManyIsAFailure) {
  for (const unsigned int absurd : {0u, 0xffffffffu}) {
    machine.processors = absurd;
    EXPECT_EQ(host_processors(mach_host_self(), &processors, &processorCount), KERN_FAILURE);
    EXPECT_EQ(processors, nullptr);
  }
}

}  // namespace
}  // namespace darwin
