// Core files of simulated processes, opened by tools that know nothing of sondex: a debugger finds
// the threads and the memory, an object reader commands that fit together.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "harness/core_commands.h"
#include "harness/core_file.h"
#include "harness/debugger.h"
#include "harness/run.h"
#include "harness/written_device.h"

namespace test {
namespace {

namespace fs = std::filesystem;

constexpr char kWide[] = R"(
regions = [
  { address = 0x100000000, size = "32K", protection = "r-x", largest = "r-x", contents = "cffaedfe 0c000001 00000000 02000000" },
  { address = 0x100008000, size = "16K", protection = "r--", largest = "rw-", contents = "68656c6c 6f" },
  { address = 0x100600000, size = "16K", tag = 1, protection = "---" },
  { address = 0x100604000, size = "5M", tag = 2, contents = "00112233 445566" },
  { address = 0x16f000000, size = "16K", tag = 30, contents = "53544143 4b" },
  { address = 0x16f004000, size = "16K", tag = 30, readable = false },
  { address = 0x16f008000, size = "16K", tag = 30 },
]
threads = [
  { registers = { pc = 0x100000010, sp = 0x16f000100, fp = 0x16f000180, lr = 0x100000420, cpsr = 0x60000000, x = [1, 2, 3] } },
  { registers = { pc = 0x100000020, sp = 0x16f000200 } },
  { copies = 3, registers = { pc = 0x100000030, sp = 0x16f008000 } },
]
)";

constexpr char kNarrow[] = R"(
bits = 32
regions = [
  { address = 0x4000, size = "52K", protection = "r-x", largest = "r-x", contents = "cefaedfe 0c000000 09000000 02000000" },
  { address = 0x15000, size = "4K", tag = 1, protection = "---" },
  { address = 0x14500000, size = "1M", tag = 7, contents = "68656170 21" },
  { address = 0x27c00000, size = "1M", tag = 30, contents = "737461636b" },
]
threads = [
  { registers = { pc = 0x4010, sp = 0x27c00100, lr = 0x4420, cpsr = 0x10, r = [7, 8, 9] } },
  { registers = { pc = 0x4020, sp = 0x27c00200, cpsr = 0x10 } },
]
)";

std::string repeated(const std::string &contents, uint64_t from, size_t size) {
  std::string bytes;
  for (size_t i = 0; i < size; i++) bytes += contents[(from + i) % contents.size()];
  return bytes;
}

class DebuggedProcess : public testing::Test {
 protected:
  void dump(const std::string &keys) {
    const WrittenDevice device(
        std::string(kSteppedClock) +
        "[[process]]\nname = \"dumped\"\npid = " + std::to_string(core.pid()) + "\n" + keys);
    const Outcome outcome = runSondex({std::to_string(core.pid()), "core"}, device.environment());
    ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  }

  void expectSegment(const CoreCommands &commands, size_t index, uint64_t address, uint64_t size,
                     uint64_t fileSize, const char *most, const char *protection) {
    const CoreSegment &segment = commands.segments[index];
    EXPECT_EQ(segment.name, "Segment." + std::to_string(index));
    EXPECT_EQ(segment.address, address) << index;
    EXPECT_EQ(segment.size, size) << index;
    EXPECT_EQ(segment.fileSize, fileSize) << index;
    EXPECT_EQ(segment.mostProtection, most) << index;
    EXPECT_EQ(segment.protection, protection) << index;
  }

  CoreFile core;
};

TEST_F(DebuggedProcess, Of64Bits) {
  if (!hasDebugger()) GTEST_SKIP() << kNoDebugger;
  ASSERT_NO_FATAL_FAILURE(dump(kWide));
  const std::string heap("\x00\x11\x22\x33\x44\x55\x66", 7);
  const DebuggedCore seen = debugCore(core.path(), {{0x100000000, 32},
                                                    {0x100008003, 7000},
                                                    {0x100600000, 64},
                                                    {0x100604000 + (3 << 20) + 5, 100'000},
                                                    {0x16f000100, 16},
                                                    {0x16f00BFFF, 1},
                                                    {0x170000000, 16}});
  EXPECT_EQ(seen.architecture, "arm64") << seen.said;
  const DebuggedThread third = {0x100000030, 0x16f008000};
  EXPECT_EQ(seen.threads,
            (std::vector<DebuggedThread>{
                {0x100000010, 0x16f000100}, {0x100000020, 0x16f000200}, third, third, third}))
      << seen.said;
  ASSERT_EQ(seen.memory.size(), 7u);
  EXPECT_EQ(seen.memory[0],
            repeated(std::string("\xcf\xfa\xed\xfe\x0c\0\0\x01\0\0\0\0\x02\0\0\0", 16), 0, 32));
  EXPECT_TRUE(seen.memory[1] == repeated("hello", 3, 7000));
  EXPECT_EQ(seen.memory[2], std::string(64, '\0'));
  EXPECT_TRUE(seen.memory[3] == repeated(heap, (3 << 20) + 5, 100'000));
  EXPECT_EQ(seen.memory[4], repeated("STACK", 0x100, 16));
  EXPECT_EQ(seen.memory[5], std::string(1, '\0'));
  EXPECT_EQ(seen.memory[6], "") << "nothing is mapped there";
}

TEST_F(DebuggedProcess, Of64BitsHasCommandsThatFit) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  ASSERT_NO_FATAL_FAILURE(dump(kWide));
  const CoreCommands commands = readCoreCommands(core.path());
  EXPECT_EQ(complaintAboutCore(commands, fs::file_size(core.path())), "") << commands.said;
  EXPECT_EQ(commands.processor, "ARM64");
  EXPECT_EQ(commands.threads, std::vector<uint32_t>(5, 288));
  ASSERT_EQ(commands.segments.size(), 7u) << commands.said;
  expectSegment(commands, 0, 0x100000000, 0x8000, 0x8000, "r-x", "r-x");
  expectSegment(commands, 1, 0x100008000, 0x4000, 0x4000, "rw-", "r--");
  expectSegment(commands, 2, 0x100600000, 0x4000, 0x4000, "rwx", "---");
  expectSegment(commands, 3, 0x100604000, 5 << 20, 5 << 20, "rwx", "rw-");
  expectSegment(commands, 4, 0x16f000000, 0x4000, 0x4000, "rwx", "rw-");
  expectSegment(commands, 5, 0x16f004000, 0x4000, 0, "rwx", "rw-");
  expectSegment(commands, 6, 0x16f008000, 0x4000, 0x4000, "rwx", "rw-");
  EXPECT_EQ(commands.segments[0].fileOffset, 4096u);
}

TEST_F(DebuggedProcess, Of32Bits) {
  if (!hasDebugger()) GTEST_SKIP() << kNoDebugger;
  ASSERT_NO_FATAL_FAILURE(dump(kNarrow));
  const DebuggedCore seen =
      debugCore(core.path(), {{0x4000, 4}, {0x14500000 + 500'001, 100'000}, {0x27cfffff, 1}});
  EXPECT_EQ(seen.architecture, "armv7") << seen.said;
  EXPECT_EQ(seen.threads, (std::vector<DebuggedThread>{{0x4010, 0x27c00100}, {0x4020, 0x27c00200}}))
      << seen.said;
  ASSERT_EQ(seen.memory.size(), 3u);
  EXPECT_EQ(seen.memory[0], "\xce\xfa\xed\xfe");
  EXPECT_TRUE(seen.memory[1] == repeated("heap!", 500'001, 100'000));
  EXPECT_EQ(seen.memory[2], repeated("stack", 0xfffff, 1));
}

TEST_F(DebuggedProcess, Of32BitsHasCommandsThatFit) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  ASSERT_NO_FATAL_FAILURE(dump(kNarrow));
  const CoreCommands commands = readCoreCommands(core.path());
  EXPECT_EQ(complaintAboutCore(commands, fs::file_size(core.path())), "") << commands.said;
  EXPECT_EQ(commands.processor, "ARM");
  EXPECT_EQ(commands.threads, std::vector<uint32_t>(2, 84));
  ASSERT_EQ(commands.segments.size(), 4u) << commands.said;
  expectSegment(commands, 0, 0x4000, 52 << 10, 52 << 10, "r-x", "r-x");
  expectSegment(commands, 1, 0x15000, 0x1000, 0x1000, "rwx", "---");
  expectSegment(commands, 2, 0x14500000, 1 << 20, 1 << 20, "rwx", "rw-");
  expectSegment(commands, 3, 0x27c00000, 1 << 20, 1 << 20, "rwx", "rw-");
}

// As many as no buffer of a fixed size holds.
TEST_F(DebuggedProcess, OfManyThreads) {
  if (!hasDebugger()) GTEST_SKIP() << kNoDebugger;
  std::string threads;
  std::vector<DebuggedThread> wanted;
  for (uint64_t i = 0; i < 500; i++) {
    wanted.push_back({0x100000000 + 4 * i, 0x16f000000 + 16 * i});
    threads += "{ registers = { pc = " + std::to_string(wanted.back().programCounter) +
               ", sp = " + std::to_string(wanted.back().stackPointer) + " } },\n";
  }
  ASSERT_NO_FATAL_FAILURE(
      dump("regions = [{ address = 0x100000000, size = \"16K\" }, { address = 0x16f000000, size = "
           "\"16K\" }]\nthreads = [" +
           threads + "]\n"));
  const DebuggedCore seen = debugCore(core.path());
  EXPECT_EQ(seen.threads, wanted);
}

}  // namespace
}  // namespace test
