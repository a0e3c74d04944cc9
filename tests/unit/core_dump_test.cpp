#include "vm/core_dump.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "darwin/macho.h"
#include "tests/harness/size_limit.h"
#include "tests/unit/core_dumps.h"
#include "tests/unit/freed.h"
#include "tests/unit/memory_machine.h"
#include "tests/unit/pseudo_terminal.h"
#include "tests/unit/sampled_machine.h"
#include "vm/task_memory.h"

namespace {

namespace fs = std::filesystem;
using namespace sondex;
using memory_test::kBinary;
using memory_test::kFirst;
using memory_test::makeRegion;
using sampled::errorOutputOf;
using sampled::outputOf;

class CoreDumpTest : public memory_test::DumpTest {
 protected:
  std::string core() const { return contentsOf(path); }

  template <typename T>
  static T at(const std::string &bytes, size_t offset) {
    T value{};
    EXPECT_LE(offset + sizeof value, bytes.size());
    if (offset + sizeof value <= bytes.size()) memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
  }

  static darwin::arm_thread_state64_t registers64(uint64_t from) {
    darwin::arm_thread_state64_t state{};
    for (uint64_t i = 0; i < 29; i++) state.__x[i] = from + i;
    state.__fp = from + 29;
    state.__lr = from + 30;
    state.__sp = from + 31;
    state.__pc = from + 32;
    state.__cpsr = 0x60000000;
    return state;
  }

  static darwin::arm_thread_state32_t registers32(uint32_t from) {
    darwin::arm_thread_state32_t state{};
    for (uint32_t i = 0; i < 13; i++) state.__r[i] = from + i;
    state.__sp = from + 13;
    state.__lr = from + 14;
    state.__pc = from + 15;
    state.__cpsr = 0x10;
    return state;
  }
};

std::string le32(uint32_t value) {
  return {reinterpret_cast<const char *>(&value), sizeof value};
}
std::string le64(uint64_t value) {
  return {reinterpret_cast<const char *>(&value), sizeof value};
}
std::string padded(std::string text, size_t size) {
  text.resize(size);
  return text;
}

TEST_F(CoreDumpTest, A64BitCoreByteByByte) {
  machine.regions = {makeRegion(kFirst, 0x4000, 5), makeRegion(kFirst + 0x8000, 0x1000, 1)};
  machine.regions[1].prp_prinfo.pri_max_protection = 3;
  const darwin::arm_thread_state64_t registers = registers64(0x1000);
  machine.threads[7] = registers;
  ASSERT_EQ(dump(), 0) << errors;
  EXPECT_EQ(errors, "");

  std::string wanted = le32(0xFEEDFACF) + le32(0x0100000C) + le32(0) + le32(4) + le32(3) +
                       le32(2 * 72 + 288) + le32(0) + le32(0);
  wanted += le32(25) + le32(72) + padded("Segment.0", 16) + le64(kFirst) + le64(0x4000) +
            le64(4096) + le64(0x4000) + le32(7) + le32(5) + le32(0) + le32(0);
  wanted += le32(25) + le32(72) + padded("Segment.1", 16) + le64(kFirst + 0x8000) + le64(0x1000) +
            le64(4096 + 0x4000) + le64(0x1000) + le32(3) + le32(1) + le32(0) + le32(0);
  wanted += le32(4) + le32(288) + le32(6) + le32(68);
  wanted.append(reinterpret_cast<const char *>(&registers), 272);
  wanted.resize(4096);
  wanted += memoryOf(kFirst, 0x4000) + memoryOf(kFirst + 0x8000, 0x1000);
  EXPECT_TRUE(core() == wanted);
}

TEST_F(CoreDumpTest, A32BitCoreByteByByte) {
  machine.regions = {makeRegion(0x4000, 0x1000, 5), makeRegion(0xFFFFE000, 0x1000, 1)};
  machine.regions[1].prp_prinfo.pri_max_protection = 3;
  const darwin::arm_thread_state32_t registers = registers32(0x50);
  machine.threads[7] = registers;
  ASSERT_EQ(dump(), 0) << errors;
  EXPECT_EQ(errors, "");

  std::string wanted =
      le32(0xFEEDFACE) + le32(12) + le32(9) + le32(4) + le32(3) + le32(2 * 56 + 84) + le32(0);
  wanted += le32(1) + le32(56) + padded("Segment.0", 16) + le32(0x4000) + le32(0x1000) +
            le32(4096) + le32(0x1000) + le32(7) + le32(5) + le32(0) + le32(0);
  wanted += le32(1) + le32(56) + padded("Segment.1", 16) + le32(0xFFFFE000) + le32(0x1000) +
            le32(8192) + le32(0x1000) + le32(3) + le32(1) + le32(0) + le32(0);
  wanted += le32(4) + le32(84) + le32(1) + le32(17);
  wanted.append(reinterpret_cast<const char *>(&registers), 68);
  wanted.resize(4096);
  wanted += memoryOf(0x4000, 0x1000) + memoryOf(0xFFFFE000, 0x1000);
  EXPECT_TRUE(core() == wanted);
}

// As many segments as take a page in the wider form, and less in their own.
TEST_F(CoreDumpTest, A32BitCoreKeepsTheRoomOfTheWiderSegments) {
  constexpr size_t kRegions = 57;
  static_assert(28 + kRegions * 56 + 84 < 4096 && 32 + kRegions * 72 + 84 > 4096);
  for (size_t i = 0; i < kRegions; i++) {
    machine.regions.push_back(makeRegion(0x4000 + i * 0x2000, 0x1000));
  }
  machine.threads[1] = registers32(1);
  ASSERT_EQ(dump(), 0);
  const std::string bytes = core();
  ASSERT_EQ(bytes.size(), 8192 + kRegions * 0x1000);
  EXPECT_EQ(at<uint32_t>(bytes, 20), kRegions * 56 + 84);
  for (size_t i = 0; i < kRegions; i++) {
    EXPECT_EQ(at<uint32_t>(bytes, 28 + i * 56 + 32), 8192 + i * 0x1000) << i;
  }
  const size_t commands = 28 + kRegions * 56 + 84;
  EXPECT_EQ(bytes.substr(commands, 8192 - commands), std::string(8192 - commands, '\0'));
  EXPECT_EQ(bytes.substr(8192, 0x1000), memoryOf(0x4000, 0x1000));
}

TEST_F(CoreDumpTest, TheLastRegionDecidesTheWordSize) {
  machine.regions = {makeRegion(0x4000, 0x1000), makeRegion(0xFFFFF000, 0x1000),
                     makeRegion(0x100000000, 0x1000)};
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(at<uint32_t>(core(), 0), 0xFEEDFACFu);
  machine.regions.pop_back();
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(at<uint32_t>(core(), 0), 0xFEEDFACEu);
}

TEST_F(CoreDumpTest, NoRegionsIsA64BitCoreWithoutSegments) {
  machine.threads[1] = registers64(1);
  ASSERT_EQ(dump(), 0);
  const std::string bytes = core();
  ASSERT_EQ(bytes.size(), 4096u);
  EXPECT_EQ(at<uint32_t>(bytes, 0), 0xFEEDFACFu);
  EXPECT_EQ(at<uint32_t>(bytes, 16), 1u);
  EXPECT_EQ(at<uint32_t>(bytes, 20), 288u);
  EXPECT_EQ(at<uint32_t>(bytes, 32), 4u);
}

TEST_F(CoreDumpTest, CommandsThatEndOnTheBoundaryGetAWholePageOfPadding) {
  size_t regions = 0;
  size_t threads = 0;
  for (size_t t = 0; t < 600 && regions == 0; t++) {
    for (size_t r = 1; r < 600; r++) {
      if ((32 + 72 * r + 288 * t) % 4096 != 0) continue;
      regions = r;
      threads = t;
      break;
    }
  }
  ASSERT_NE(regions, 0u);
  for (size_t i = 0; i < regions; i++) {
    machine.regions.push_back(makeRegion(kFirst + i * 0x2000, 0x1000));
  }
  for (size_t i = 0; i < threads; i++) machine.threads[i + 1] = registers64(i);
  ASSERT_EQ(dump(), 0);
  const size_t commands = 32 + 72 * regions + 288 * threads;
  EXPECT_EQ(at<uint64_t>(core(), 32 + 40), commands + 4096);
  EXPECT_EQ(core().substr(commands, 4096), std::string(4096, '\0'));
  EXPECT_EQ(core().substr(commands + 4096, 0x1000), memoryOf(kFirst, 0x1000));
}

TEST_F(CoreDumpTest, FullAndMiniAreIdentical) {
  machine.regions = {makeRegion(kFirst, 0x4000, 5), makeRegion(kFirst + 0x4000, 0x4000, 0)};
  machine.threads[3] = registers64(9);
  ASSERT_EQ(dump(kFullCore), 0);
  const std::string full = core();
  ASSERT_EQ(dump(kMiniCore), 0);
  EXPECT_TRUE(core() == full);
}

TEST_F(CoreDumpTest, ARegionWithoutAccessIsZeros) {
  machine.regions = {makeRegion(kFirst, 0x3000, 0), makeRegion(kFirst + 0x3000, 0x1000)};
  machine.unreadable = {kFirst};
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors, "");
  const std::string bytes = core();
  EXPECT_EQ(at<uint64_t>(bytes, 32 + 48), 0x3000u);
  EXPECT_EQ(bytes.substr(4096), std::string(0x3000, '\0') + memoryOf(kFirst + 0x3000, 0x1000));
}

TEST_F(CoreDumpTest, ARegionThatCantBeReadTakesNoRoom) {
  machine.regions = {makeRegion(kFirst, 0x1000), makeRegion(kFirst + 0x1000, 0x2000),
                     makeRegion(kFirst + 0x3000, 0x1000)};
  machine.unreadable = {kFirst + 0x2000};
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors,
            "Failed to read 2000 bytes of memory from 100001000 - Error 1\n"
            "Warning: Segment at 100001000 only read partially (0/2000 bytes)\n");
  const std::string bytes = core();
  EXPECT_EQ(at<uint64_t>(bytes, 32 + 72 + 32), 0x2000u);
  EXPECT_EQ(at<uint64_t>(bytes, 32 + 72 + 40), 4096u + 0x1000);
  EXPECT_EQ(at<uint64_t>(bytes, 32 + 72 + 48), 0u);
  EXPECT_EQ(at<uint64_t>(bytes, 32 + 144 + 40), 4096u + 0x1000);
  EXPECT_EQ(bytes.substr(4096), memoryOf(kFirst, 0x1000) + memoryOf(kFirst + 0x3000, 0x1000));
}

// What was written of a large region before the part that can't be read leaves nothing, not even
// where a region without access follows.
TEST_F(CoreDumpTest, LargeRegionsGoInPieces) {
  const uint64_t size = 5 << 20;
  machine.regions = {makeRegion(kFirst, size), makeRegion(kFirst + size, 0x2000, 0)};
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors, "");
  EXPECT_LE(machine.largestRead, size_t{512} << 10);
  EXPECT_TRUE(core().substr(4096) == memoryOf(kFirst, size) + std::string(0x2000, '\0'));

  machine.unreadable = {kFirst + size - 1};
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors,
            "Failed to read 500000 bytes of memory from 100000000 - Error 1\n"
            "Warning: Segment at 100000000 only read partially (0/500000 bytes)\n");
  EXPECT_TRUE(core().substr(4096) == std::string(0x2000, '\0'));
}

// The second region's last bytes and all of the third are zeros; one byte of the first's are not.
TEST_F(CoreDumpTest, ZerosThatAreReadAreHoles) {
  constexpr uint64_t kSize = 3 << 20;
  machine.regions = {makeRegion(kFirst, kSize), makeRegion(kFirst + kSize, 0x6000),
                     makeRegion(kFirst + kSize + 0x6000, 0x5001)};
  machine.contents[kFirst] = std::string(kSize, '\0');
  machine.contents[kFirst + kSize - 0x4001] = "x";
  machine.contents[kFirst + kSize + 0x1000] = std::string(0xB000, '\0');
  ASSERT_EQ(dump(), 0);
  std::string wanted(kSize + 0xB001, '\0');
  wanted[kSize - 0x4001] = 'x';
  wanted.replace(kSize, 0x1000, memoryOf(kFirst + kSize, 0x1000));
  EXPECT_TRUE(core().substr(4096) == wanted);
  EXPECT_LE(roomOf(path), 4096u + 0x4000 + 0x4000);
}

TEST_F(CoreDumpTest, ARegionOfTwoGigabytesIsLeftOut) {
  machine.regions = {makeRegion(kFirst, 0x80000000), makeRegion(kFirst + 0x100000000, 0x1000),
                     makeRegion(kFirst + 0x200000000, 1ull << 40, 0)};
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors, "Warning: Segment at 100000000 only read partially (0/80000000 bytes)\n");
  EXPECT_EQ(core().size(), 4096u + 0x1000);
}

// A 32-bit command has no room for more; what is without access is a hole in the file.
TEST_F(CoreDumpTest, DataBeyondFourGigabytesIsLeftOutOfA32BitCore) {
  machine.regions = {makeRegion(0x1000, 0x7FFFF000, 0), makeRegion(0x80000000, 0x7FFFE000, 0),
                     makeRegion(0xFFFFE000, 0x1000), makeRegion(0xFFFFF000, 0x1000)};
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors, "Warning: Segment at fffff000 only read partially (0/1000 bytes)\n");
  EXPECT_EQ(fs::file_size(path), 0xFFFFF000u);
  std::string commands(28 + 4 * 56, '\0');
  std::ifstream(path, std::ios::binary).read(commands.data(), ssize(commands));
  const uint32_t offsets[] = {0x1000, 0x80000000, 0xFFFFE000, 0xFFFFF000};
  const uint32_t sizes[] = {0x7FFFF000, 0x7FFFE000, 0x1000, 0};
  for (size_t i = 0; i < 4; i++) {
    EXPECT_EQ(at<uint32_t>(commands, 28 + i * 56 + 32), offsets[i]) << i;
    EXPECT_EQ(at<uint32_t>(commands, 28 + i * 56 + 36), sizes[i]) << i;
  }
}

TEST_F(CoreDumpTest, RegionsOffAPageAreNotRecorded) {
  machine.regions = {makeRegion(kFirst, 0x1000), makeRegion(kFirst + 0x1800, 0x800)};
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(at<uint32_t>(core(), 16), 1u);
}

TEST_F(CoreDumpTest, NoMoreThan4096Regions) {
  for (uint64_t i = 0; i < 4096; i++) {
    machine.regions.push_back(makeRegion(kFirst + i * 0x2000, 0x1000, 0));
  }
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors, "");
  machine.regions.push_back(makeRegion(kFirst + 4096 * 0x2000, 0x1000, 0));
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors, "Warning: More than 4096 regions detected!\n");
  const std::string bytes = core();
  EXPECT_EQ(at<uint32_t>(bytes, 16), 4096u);
  EXPECT_EQ(bytes.size(), 32u + 4096 * 72 + (4096 - 32) + 4096 * 0x1000);
  EXPECT_EQ(bytes.substr(32 + 4095 * 72 + 8, 16), padded("Segment.4095", 16));
}

TEST_F(CoreDumpTest, EndsAtTheTopOfTheAddressSpace) {
  machine.regions = {makeRegion(kFirst, 0x1000), makeRegion(0xFFFFFFFFFFFFF000, 0xFFF)};
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(at<uint32_t>(core(), 16), 2u);
}

TEST_F(CoreDumpTest, ThreadsThatCantBeListed) {
  machine.regions = {makeRegion(kFirst, 0x1000)};
  machine.listsThreads = false;
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors, "Unable to obtain task thread ports\n");
  EXPECT_EQ(at<uint32_t>(core(), 16), 1u);
  EXPECT_EQ(at<uint32_t>(core(), 20), 72u);
  EXPECT_EQ(core().size(), 4096u + 0x1000);
}

// 355 commands fill the usual buffer.
TEST_F(CoreDumpTest, AnyNumberOfThreads) {
  for (uint64_t id = 1; id <= 1000; id++) machine.threads[id] = registers64(id << 16);
  ASSERT_EQ(dump(), 0);
  const std::string bytes = core();
  EXPECT_EQ(at<uint32_t>(bytes, 16), 1000u);
  EXPECT_EQ(at<uint32_t>(bytes, 20), 1000u * 288);
  for (uint64_t id = 1; id <= 1000; id++) {
    const size_t command = 32 + (id - 1) * 288;
    ASSERT_EQ(at<uint32_t>(bytes, command), 4u);
    ASSERT_EQ(at<uint64_t>(bytes, command + 16 + 256), (id << 16) + 32);
  }
}

TEST_F(CoreDumpTest, ThreadsOfTheOtherWordSizeHaveZeros) {
  machine.threads[1] = registers32(1);
  machine.threads[2] = registers64(2);
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(core().substr(32 + 16, 272), std::string(272, '\0'));
  EXPECT_EQ(at<uint64_t>(core(), 32 + 288 + 16), 2u);
}

TEST_F(CoreDumpTest, RegistersThatLookLikeAHeaderStay) {
  darwin::arm_thread_state32_t registers = registers32(0x50);
  registers.__r[0] = 9;
  registers.__r[1] = 17;
  machine.threads[1] = registers;
  machine.regions = {makeRegion(0x4000, 0x1000)};
  setenv("ZDEBUG", "1", 1);
  outputOf([&] { ASSERT_EQ(dump(), 0); });
  EXPECT_NE(errors.find("Workaround\n"), std::string::npos);
  EXPECT_EQ(at<uint32_t>(core(), 28 + 56 + 8), 1u);
  EXPECT_EQ(at<uint32_t>(core(), 28 + 56 + 12), 17u);
  EXPECT_EQ(core().substr(28 + 56 + 16, 68),
            std::string(reinterpret_cast<const char *>(&registers), 68));
}

TEST_F(CoreDumpTest, WithoutATaskPort) {
  machine.givesTask = false;
  EXPECT_EQ(dump(), -5);
  EXPECT_EQ(errors, "Unable to get task port (SIP?)\n");
  machine.user = 501;
  EXPECT_EQ(dump(), -5);
  EXPECT_EQ(errors, "Unable to get task port (Not root, or possibly due to SIP)\n");
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(errorOutputOf([] { EXPECT_EQ(dumpCore(-1, 0, kFullCore), -5); }),
            "Unable to get task port (Not root, or possibly due to SIP)\n");
}

TEST_F(CoreDumpTest, TheKernelsTaskIsAskedForAsASpecialPort) {
  const std::string attempt =
      "Unable to get Task port for PID 0 (kernel_task) - trying special port #4 instead...\n";
  EXPECT_EQ(errorOutputOf([] { EXPECT_EQ(dumpCore(0, 0, kFullCore), -5); }),
            attempt + "Task port: 0x0\nUnable to get task port (SIP?)\n");
  machine.privileged = false;
  machine.givesKernelTask = true;
  EXPECT_EQ(errorOutputOf([] { EXPECT_EQ(dumpCore(0, 0, kFullCore), -5); }),
            attempt + "Task port: 0x0\nUnable to get task port (SIP?)\n");
}

TEST_F(CoreDumpTest, TheKernelsTaskIsDumpedThroughItsSpecialPort) {
  machine.givesKernelTask = true;
  machine.pid = 0;
  machine.regions = {makeRegion(kFirst, 0x1000)};
  const std::string kernelCore = "/tmp/core.0";
  fs::remove(kernelCore);
  const std::string said = errorOutputOf([] { EXPECT_EQ(dumpCore(0, 0, kFullCore), 0); });
  unsigned int port = 0;
  EXPECT_EQ(sscanf(said.c_str(),
                   "Unable to get Task port for PID 0 (kernel_task) - trying special port #4 "
                   "instead...\nTask port: 0x%x\n",
                   &port),
            1);
  EXPECT_NE(port, 0u);
  EXPECT_EQ(contentsOf(kernelCore).size(), 8192u);
  fs::remove(kernelCore);
}

TEST_F(CoreDumpTest, TheFileIsForItsOwnerOnly) {
  const mode_t before = umask(0);
  EXPECT_EQ(dump(), 0);
  umask(before);
  struct stat found {};
  ASSERT_EQ(stat(path.c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 07777, 0600u);
}

TEST_F(CoreDumpTest, AnOlderCoreIsReplacedWhole) {
  machine.regions = {makeRegion(kFirst, 0x10000)};
  ASSERT_EQ(dump(), 0);
  ASSERT_EQ(chmod(path.c_str(), 0644), 0);
  machine.regions = {makeRegion(kFirst, 0x1000)};
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(core().size(), 4096u + 0x1000);
  struct stat found {};
  ASSERT_EQ(stat(path.c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 07777, 0600u);
}

TEST_F(CoreDumpTest, ALinkUnderItsNameIsLeftAlone) {
  const std::string target = path + ".target";
  std::ofstream(target) << "precious";
  fs::create_symlink(target, path);
  EXPECT_EQ(dump(), -1);
  EXPECT_EQ(errors.substr(0, path.size() + 2), path + ": ");
  EXPECT_EQ(contentsOf(target), "precious");
  EXPECT_TRUE(fs::is_symlink(path));
  fs::remove(target);
}

TEST_F(CoreDumpTest, AFailedWriteLeavesNoFile) {
  machine.regions = {makeRegion(kFirst, 3 << 20)};
  machine.threads[1] = registers64(1);
  {
    const test::SizeLimit limit(2 << 20);
    EXPECT_EQ(dump(), -1);
  }
  EXPECT_EQ(errors, path + ": File too large\n");
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(dump(), 0);
}

TEST_F(CoreDumpTest, DebugLines) {
  machine.family = 6153;  // among the first that have all words of a region
  machine.regions = {makeRegion(kFirst, 0x1000, 5), makeRegion(kFirst + 0x1000, 0x1000, 3)};
  machine.contents[kFirst] = "\xcf\xfa\xed\xfe";
  machine.threads[1] = registers64(1);
  setenv("ZDEBUG", "1", 1);
  const std::string printed = outputOf([&] { ASSERT_EQ(dump(), 0); });
  EXPECT_EQ(printed,
            "KR: 0 ADDR: 100000000 Size: 1000 infoCnt : 19, Submap: 0\n"
            "KR: 0 ADDR: 100001000 Size: 1000 infoCnt : 19, Submap: 0\n");
  const size_t line = errors.find('\n');
  ASSERT_NE(line, std::string::npos);
  EXPECT_EQ(errors.substr(0, 10), "Thread 0 (");
  EXPECT_NE(errors.substr(0, line).find("), LC @0x"), std::string::npos);
  EXPECT_EQ(errors.substr(line + 1),
            "OVERALL SIZE OF HEADER: 1000\n"
            "Segment 0 - 100000000 - File Position is now 1000 -- Mach-O Sig @0x100000000\n"
            "Segment 1 - 100001000 - File Position is now 2000 -- ");
}

TEST_F(CoreDumpTest, ASignatureIsAtTheBeginning) {
  machine.regions = {makeRegion(kFirst, 2 << 20)};
  machine.contents[kFirst + (1 << 20)] = "\xcf\xfa\xed\xfe";
  setenv("ZDEBUG", "1", 1);
  outputOf([&] { ASSERT_EQ(dump(), 0); });
  EXPECT_EQ(errors.find("Mach-O Sig"), std::string::npos) << errors;
}

// Reads what is beyond the first mebibyte as slowly as it takes for a second to pass.
class SlowMachine : public memory_test::MemoryMachine {
 public:
  host::Errno readMemory(pid_t of, uint64_t address, size_t size, void *to) override {
    const bool isSlow = address >= kFirst + (1 << 20);
    while (isSlow && std::chrono::steady_clock::now() < fastFrom) std::this_thread::yield();
    return MemoryMachine::readMemory(of, address, size, to);
  }
  std::chrono::steady_clock::time_point fastFrom;
};

// Standard error is a terminal while this lives.
class TerminalErrors {
 public:
  explicit TerminalErrors(const PseudoTerminal &terminal) : before_(dup(STDERR_FILENO)) {
    dup2(terminal.programEnd(), STDERR_FILENO);
  }
  TerminalErrors(const TerminalErrors &) = delete;
  TerminalErrors &operator=(const TerminalErrors &) = delete;
  ~TerminalErrors() {
    dup2(before_, STDERR_FILENO);
    close(before_);
  }

 private:
  int before_;
};

TEST_F(CoreDumpTest, ALongDumpTellsATerminalHowFarItIs) {
  SlowMachine slow;
  slow.pid = machine.pid;
  slow.regions = {makeRegion(kFirst, 2 << 20)};
  host::useMachine(&slow);
  PseudoTerminal terminal(24, 80);
  terminal.passOutputThrough();
  {
    const TerminalErrors errorsThere(terminal);
    slow.fastFrom = std::chrono::steady_clock::now() + std::chrono::milliseconds(1100);
    EXPECT_EQ(dumpCore(slow.pid, 0, kFullCore), 0);
  }
  host::useMachine(&machine);
  terminal.closeProgramEnd();
  const std::string told = terminal.readToEnd();
  const std::string first = "\r" + path + ": 1 of 2 MB";
  EXPECT_EQ(told.substr(0, first.size()), first);
  const std::string last = "\r\033[K";
  ASSERT_GE(told.size(), first.size() + last.size());
  EXPECT_EQ(told.substr(told.size() - last.size()), last);
}

TEST_F(CoreDumpTest, AShortDumpTellsNothing) {
  machine.regions = {makeRegion(kFirst, 0x4000)};
  PseudoTerminal terminal(24, 80);
  {
    const TerminalErrors errorsThere(terminal);
    EXPECT_EQ(dumpCore(machine.pid, 0, kFullCore), 0);
  }
  terminal.closeProgramEnd();
  EXPECT_EQ(terminal.readToEnd(), "");
}

TEST_F(CoreDumpTest, GivesBackOnlyAPortOfItsOwn) {
  const darwin::mach_port_t task = host::openPort({host::PortKind::kTask, machine.pid, 0});
  EXPECT_EQ(dumpCore(machine.pid, task, kFullCore), 0);
  EXPECT_TRUE(host::findPort(task).has_value());
  EXPECT_EQ(listImages(machine.pid, task), 0);
  EXPECT_TRUE(host::closePort(task));
  EXPECT_EQ(listImages(machine.pid, 0), 0);
  machine.givesTask = false;
  EXPECT_EQ(errorOutputOf([&] { EXPECT_EQ(listImages(machine.pid, 0), -5); }),
            "Unable to get task port (SIP?)\n");
}

TEST_F(CoreDumpTest, ReadProcessMemory) {
  const darwin::mach_port_t task = host::openPort({host::PortKind::kTask, machine.pid, 0});
  uint32_t size = 100;
  const std::unique_ptr<void, Freed> memory(readProcessMemory(task, kFirst, &size));
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(size, 100u);
  EXPECT_EQ(std::string(static_cast<const char *>(memory.get()), size), memoryOf(kFirst, 100));

  machine.unreadable = {kFirst + 99};
  EXPECT_EQ(errorOutputOf([&] { EXPECT_EQ(readProcessMemory(task, kFirst, &size), nullptr); }),
            "Failed to read 64 bytes of memory from 100000000 - Error 1\n");
  EXPECT_EQ(size, 0u);
  host::closePort(task);
}

TEST_F(CoreDumpTest, WriteProcessMemoryIsNotOffered) {
  EXPECT_EQ(errorOutputOf([] { EXPECT_EQ(writeProcessMemory(1, 0, nullptr, 0), -1); }),
            "Not yet\n");
}

class BinaryDumpTest : public CoreDumpTest {
 protected:
  BinaryDumpTest() { fs::remove(kBinary); }
  ~BinaryDumpTest() override { fs::remove(kBinary); }
};

TEST_F(BinaryDumpTest, TheFirstRegionAlone) {
  machine.regions = {makeRegion(kFirst, 0x3000, 5), makeRegion(kFirst + 0x3000, 0x1000)};
  // Devices have no such argument area: the executable's path stays unknown.
  EXPECT_EQ(dump(kBinaryCore), 1);
  EXPECT_EQ(errors, "open: No such file or directory\n");
  EXPECT_TRUE(contentsOf(kBinary) == memoryOf(kFirst, 0x3000));
  struct stat found {};
  ASSERT_EQ(stat(kBinary, &found), 0);
  EXPECT_EQ(found.st_mode & 07777, 0600u);
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(BinaryDumpTest, EndsWithZerosToo) {
  machine.regions = {makeRegion(kFirst, 0x8000, 5)};
  machine.contents[kFirst + 0x1000] = std::string(0x7000, '\0');
  EXPECT_EQ(dump(kBinaryCore), 1);
  EXPECT_TRUE(contentsOf(kBinary) == memoryOf(kFirst, 0x1000) + std::string(0x7000, '\0'));
}

TEST_F(BinaryDumpTest, ARegionThatCantBeReadLeavesNoFile) {
  machine.regions = {makeRegion(kFirst, 0x3000, 5)};
  machine.unreadable = {kFirst + 0x2000};
  EXPECT_EQ(dump(kBinaryCore), -1);
  EXPECT_EQ(errors,
            "Failed to read 3000 bytes of memory from 100000000 - Error 1\n"
            "Warning: Segment at 100000000 only read partially (0/3000 bytes)\n");
  EXPECT_FALSE(fs::exists(kBinary));
}

TEST_F(BinaryDumpTest, NothingToDump) {
  EXPECT_EQ(dump(kBinaryCore), -1);
  EXPECT_EQ(errors, "No region to dump\n");
  EXPECT_FALSE(fs::exists(kBinary));
}

TEST_F(BinaryDumpTest, AFailedWriteLeavesNoFile) {
  machine.regions = {makeRegion(kFirst, 3 << 20, 5)};
  {
    const test::SizeLimit limit(2 << 20);
    EXPECT_EQ(dump(kBinaryCore), -1);
  }
  EXPECT_EQ(errors, std::string(kBinary) + ": File too large\n");
  EXPECT_FALSE(fs::exists(kBinary));
}

TEST_F(BinaryDumpTest, WithoutATaskPort) {
  machine.givesTask = false;
  EXPECT_EQ(dump(kBinaryCore), -5);
  EXPECT_FALSE(fs::exists(kBinary));
}

}  // namespace
