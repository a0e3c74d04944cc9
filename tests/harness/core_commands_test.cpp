// A core file of known bytes, as the debugger and the object reader see it.
#include "harness/core_commands.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "harness/debugger.h"

namespace {

template <typename Value>
void put(std::string &bytes, Value value) {
  bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
}

// One region of 4096 bytes at 0x100000000, and two threads.
std::string makeCore() {
  std::string core;
  for (const uint32_t word : {0xFEEDFACFU, 0x0100000CU, 0U, 4U, 3U, 72U + 2 * 288, 0U, 0U}) {
    put(core, word);
  }
  for (const uint32_t word : {25U, 72U}) put(core, word);
  core += std::string("Segment.0") + std::string(7, '\0');
  for (const uint64_t value : {0x100000000ULL, 0x1000ULL, 4096ULL, 4096ULL}) put(core, value);
  for (const uint32_t word : {7U, 3U, 0U, 0U}) put(core, word);
  for (const unsigned long long thread : {1ULL, 2ULL}) {
    for (const uint32_t word : {4U, 288U, 6U, 68U}) put(core, word);
    for (uint64_t i = 0; i < 31; i++) put(core, i);
    for (const unsigned long long value :
         {0x16f000000ULL + thread, 0x100000800ULL + thread, 0ULL}) {
      put(core, value);
    }
  }
  core.resize(4096);
  for (int i = 0; i < 4096; i++) core += static_cast<char>(i * 7);
  return core;
}

class CoreFileTest : public testing::Test {
 protected:
  CoreFileTest()
      : path_(std::filesystem::temp_directory_path() /
              ("core_commands_test." + std::to_string(getpid()))) {}
  ~CoreFileTest() override { std::filesystem::remove(path_); }

  const std::string &write(const std::string &bytes) {
    std::ofstream(path_, std::ios::binary) << bytes;
    return path_;
  }

 private:
  std::string path_;
};

TEST_F(CoreFileTest, TheDebuggerShowsThreadsAndMemory) {
  if (!test::hasDebugger()) GTEST_SKIP() << test::kNoDebugger;
  const std::string core = makeCore();
  const test::DebuggedCore seen =
      test::debugCore(write(core), {{0x100000010, 2000}, {0x200000000, 16}, {0x100000000, 1}});
  EXPECT_EQ(seen.architecture, "arm64") << seen.said;
  EXPECT_EQ(seen.threads, (std::vector<test::DebuggedThread>{{0x100000801, 0x16f000001},
                                                             {0x100000802, 0x16f000002}}))
      << seen.said;
  ASSERT_EQ(seen.memory.size(), 3u);
  EXPECT_TRUE(seen.memory[0] == core.substr(4096 + 16, 2000)) << seen.said;
  EXPECT_EQ(seen.memory[1], "");
  EXPECT_EQ(seen.memory[2], std::string(1, '\0'));
}

TEST_F(CoreFileTest, TheDebuggerRefusesAnotherFile) {
  if (!test::hasDebugger()) GTEST_SKIP() << test::kNoDebugger;
  const test::DebuggedCore seen = test::debugCore(write("no core"));
  EXPECT_EQ(seen.architecture, "");
  EXPECT_TRUE(seen.threads.empty()) << seen.said;
}

TEST_F(CoreFileTest, Commands) {
  if (!test::hasObjectReader()) GTEST_SKIP() << test::kNoObjectReader;
  const test::CoreCommands commands = test::readCoreCommands(write(makeCore()));
  EXPECT_EQ(commands.processor, "ARM64");
  EXPECT_EQ(commands.fileType, "CORE");
  EXPECT_EQ(commands.count, 3u);
  EXPECT_EQ(commands.size, 72u + 2 * 288);
  ASSERT_EQ(commands.segments.size(), 1u);
  const test::CoreSegment &segment = commands.segments[0];
  EXPECT_EQ(segment.commandSize, 72u);
  EXPECT_EQ(segment.name, "Segment.0");
  EXPECT_EQ(segment.address, 0x100000000u);
  EXPECT_EQ(segment.size, 0x1000u);
  EXPECT_EQ(segment.fileOffset, 4096u);
  EXPECT_EQ(segment.fileSize, 4096u);
  EXPECT_EQ(segment.mostProtection, "rwx");
  EXPECT_EQ(segment.protection, "rw-");
  EXPECT_EQ(commands.threads, (std::vector<uint32_t>{288, 288}));
  EXPECT_EQ(test::complaintAboutCore(commands, 8192), "");
}

TEST_F(CoreFileTest, AFileThatIsNoObjectIsRefused) {
  if (!test::hasObjectReader()) GTEST_SKIP() << test::kNoObjectReader;
  EXPECT_THROW(test::readCoreCommands(write("no core")), std::runtime_error);
}

TEST(CoreComplaintTest, WhatDoesNotFit) {
  test::CoreCommands commands;
  commands.processor = "ARM64";
  commands.fileType = "CORE";
  commands.count = 2;
  commands.size = 144;
  commands.segments = {{72, "Segment.0", 0x1000, 0x1000, 4096, 4096, "rwx", "rw-"},
                       {72, "Segment.1", 0x2000, 0x1000, 8192, 0, "r--", "r--"}};
  EXPECT_EQ(test::complaintAboutCore(commands, 8192), "");
  EXPECT_EQ(test::complaintAboutCore(commands, 8191), "the data goes beyond the file\n");

  test::CoreCommands bad = commands;
  bad.fileType = "EXECUTE";
  EXPECT_EQ(test::complaintAboutCore(bad, 8192), "the file type is EXECUTE\n");
  bad = commands;
  bad.threads = {288};
  EXPECT_EQ(test::complaintAboutCore(bad, 8192),
            "the header counts 2 commands\nthe header says 144 bytes\n");
  bad = commands;
  bad.segments[1].fileOffset = 8191;
  EXPECT_EQ(test::complaintAboutCore(bad, 8192), "Segment.1 overlaps what is before it\n");
  bad = commands;
  bad.segments[0].fileOffset = 4000;
  EXPECT_EQ(test::complaintAboutCore(bad, 8192), "the data does not start on a page\n");
  bad = commands;
  bad.segments[0].size = 4095;
  EXPECT_EQ(test::complaintAboutCore(bad, 8192), "Segment.0 has too much data\n");
  bad = commands;
  bad.segments[1].protection = "rw-";
  EXPECT_EQ(test::complaintAboutCore(bad, 8192), "Segment.1 has more protection than its most\n");
}

}  // namespace
