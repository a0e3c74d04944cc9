// What the writer of core files asks the kernel for, and what it makes of answers that the machines
// here don't give: an argument area, registers behind a header, less memory than was asked for.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <utility>

#include "darwin/errors.h"
#include "darwin/mach_vm.h"
#include "darwin/sysctl.h"
#include "darwin/thread_state.h"
#include "tests/harness/size_limit.h"
#include "tests/unit/core_dumps.h"
#include "tests/unit/freed.h"
#include "tests/unit/memory_machine.h"
#include "tests/unit/sampled_machine.h"
#include "vm/core_dump.h"
#include "vm/task_memory.h"

namespace {

// In place of the calls of these names while they are set; null lets a call through.
std::function<int(const std::vector<int> &name, char *old, size_t *length)> g_sysctl;
std::function<int(int flavour, uint32_t *state, uint32_t *count)> g_state;
std::function<int(uint64_t address, uint64_t size, uint64_t to, uint64_t *copied)> g_read;
std::function<int(uint64_t *address, uint64_t *size, uint32_t *depth, int *info, uint32_t *count)>
    g_region;
std::function<int(uint64_t address, uint64_t size, int *pages, uint64_t *count)> g_pages;

}  // namespace

// Caught at link time.
extern "C" {

using darwin::mach_port_t;

int __real_sysctl(int *name, unsigned int names, void *old, size_t *length, void *set, size_t size);
int __real_act_get_state(mach_port_t thread, int flavor, uint32_t *state, uint32_t *count);
int __real_mach_vm_read_overwrite(mach_port_t task, uint64_t address, uint64_t size, uint64_t data,
                                  uint64_t *copied);
int __real_vm_region_recurse_64(mach_port_t task, uint64_t *address, uint64_t *size,
                                uint32_t *depth, int *info, uint32_t *count);
int __real_mach_vm_page_range_query(mach_port_t task, uint64_t address, uint64_t size,
                                    uint64_t pages, uint64_t *count);

int __wrap_sysctl(int *name, unsigned int names, void *old, size_t *length, void *set,
                  size_t size) {
  return g_sysctl ? g_sysctl({name, name + names}, static_cast<char *>(old), length)
                  : __real_sysctl(name, names, old, length, set, size);
}

int __wrap_act_get_state(mach_port_t thread, int flavor, uint32_t *state, uint32_t *count) {
  return g_state ? g_state(flavor, state, count)
                 : __real_act_get_state(thread, flavor, state, count);
}

int __wrap_mach_vm_read_overwrite(mach_port_t task, uint64_t address, uint64_t size, uint64_t data,
                                  uint64_t *copied) {
  return g_read ? g_read(address, size, data, copied)
                : __real_mach_vm_read_overwrite(task, address, size, data, copied);
}

int __wrap_vm_region_recurse_64(mach_port_t task, uint64_t *address, uint64_t *size,
                                uint32_t *depth, int *info, uint32_t *count) {
  return g_region ? g_region(address, size, depth, info, count)
                  : __real_vm_region_recurse_64(task, address, size, depth, info, count);
}

int __wrap_mach_vm_page_range_query(mach_port_t task, uint64_t address, uint64_t size,
                                    uint64_t pages, uint64_t *count) {
  return g_pages ? g_pages(address, size, reinterpret_cast<int *>(pages), count)
                 : __real_mach_vm_page_range_query(task, address, size, pages, count);
}

}  // extern "C"

namespace {

namespace fs = std::filesystem;
using namespace sondex;
using memory_test::kBinary;
using memory_test::kFirst;
using memory_test::makeRegion;
using sampled::errorOutputOf;

constexpr size_t kArgumentArea = 8192;

class CoreDumpAnswers : public memory_test::DumpTest {
 protected:
  ~CoreDumpAnswers() override {
    g_sysctl = nullptr;
    g_state = nullptr;
    g_read = nullptr;
    g_region = nullptr;
    g_pages = nullptr;
  }

  uint64_t wordAt(size_t offset, size_t size = sizeof(uint32_t)) const {
    uint64_t value = 0;
    const std::string bytes = contentsOf(path);
    EXPECT_LE(offset + size, bytes.size());
    if (offset + size <= bytes.size()) memcpy(&value, bytes.data() + offset, size);
    return value;
  }
};

struct Step {
  uint64_t address;
  uint64_t size;
  uint32_t depth;
  uint32_t count;

  bool operator==(const Step &) const = default;
};

void PrintTo(const Step &step, std::ostream *out) {
  *out << std::hex << step.address << ' ' << step.size << ' ' << step.depth << ' ' << step.count;
}

// A kernel that fails leaves the size as it was.
TEST_F(CoreDumpAnswers, EachStepAsksPastTheEndOfTheLastRegion) {
  machine.regions = {makeRegion(kFirst, 0x1000), makeRegion(kFirst + 0x4000, 0x2000)};
  std::vector<Step> steps;
  g_region = [&](uint64_t *address, uint64_t *size, uint32_t *depth, int *info, uint32_t *count) {
    steps.push_back({*address, *size, *depth, *count});
    const size_t at = steps.size() - 1;
    if (at >= machine.regions.size()) return 1;
    *address = machine.regions[at].prp_prinfo.pri_address;
    *size = machine.regions[at].prp_prinfo.pri_size;
    *depth = 7;
    *count = 17;
    info[0] = 3;
    return 0;
  };
  ASSERT_EQ(dump(), 0) << errors;
  EXPECT_EQ(steps, (std::vector<Step>{
                       {0, 0, 1, 19}, {kFirst + 0x1001, 0, 1, 19}, {kFirst + 0x6001, 0, 1, 19}}));
  EXPECT_EQ(wordAt(16), 2u);
}

// What the walk says of place and size is what counts.
TEST_F(CoreDumpAnswers, RecordsKeepThePlaceOfTheWalk) {
  machine.regions = {makeRegion(kFirst, 0x8000, 5)};
  bool told = false;
  g_region = [&](uint64_t *address, uint64_t *size, uint32_t *, int *info, uint32_t *) {
    if (std::exchange(told, true)) return 1;
    *address = kFirst + 0x1000;
    *size = 0x2000;
    info[0] = 1;
    info[1] = 1;
    return 0;
  };
  ASSERT_EQ(dump(), 0) << errors;
  EXPECT_EQ(wordAt(32 + 24, 8), kFirst + 0x1000);
  EXPECT_EQ(wordAt(32 + 32, 8), 0x2000u);
  EXPECT_EQ(wordAt(32 + 56), 7u);
  EXPECT_EQ(wordAt(32 + 60), 5u);
}

// Newer kernels tell regions of their own task by the walk alone.
TEST_F(CoreDumpAnswers, RegionsWithoutARecordHaveTheProtectionOfTheWalk) {
  machine.pid = 0;
  machine.givesKernelTask = true;
  machine.family = 10002;
  machine.regions = {makeRegion(kFirst, 0x1000, 5), makeRegion(kFirst + 0x1000, 0x1000, 0)};
  machine.regions[1].prp_prinfo.pri_max_protection = 1;
  path = "/tmp/core.0";
  fs::remove(path);
  ASSERT_EQ(dump(), 0) << errors;
  ASSERT_EQ(wordAt(16), 2u);
  EXPECT_EQ(wordAt(32 + 56), 7u);
  EXPECT_EQ(wordAt(32 + 60), 5u);
  EXPECT_EQ(wordAt(32 + 72 + 56), 1u);
  EXPECT_EQ(wordAt(32 + 72 + 60), 0u);
  EXPECT_EQ(contentsOf(path).substr(4096), memoryOf(kFirst, 0x1000) + std::string(0x1000, '\0'));
}

TEST_F(CoreDumpAnswers, AWalkThatGoesBackEnds) {
  int steps = 0;
  g_region = [&](uint64_t *address, uint64_t *size, uint32_t *, int *, uint32_t *) {
    steps++;
    *address = kFirst;
    *size = 0x1000;
    return 0;
  };
  ASSERT_EQ(dump(), 0) << errors;
  EXPECT_EQ(steps, 2);
}

TEST_F(CoreDumpAnswers, ARegionReadInPartTakesNoRoom) {
  machine.regions = {makeRegion(kFirst, 0x3000), makeRegion(kFirst + 0x3000, 0x1000)};
  g_read = [](uint64_t address, uint64_t size, uint64_t to, uint64_t *copied) {
    *copied = address == kFirst ? 0x1234 : size;
    const std::string bytes = memoryOf(address, *copied);
    memcpy(reinterpret_cast<void *>(to), bytes.data(), bytes.size());
    return 0;
  };
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors, "Warning: Segment at 100000000 only read partially (1234/3000 bytes)\n");
  EXPECT_EQ(wordAt(32 + 32, 8), 0x3000u);
  EXPECT_EQ(wordAt(32 + 40, 8), 4096u);
  EXPECT_EQ(wordAt(32 + 48, 8), 0u);
  EXPECT_EQ(wordAt(32 + 72 + 40, 8), 4096u);
  EXPECT_TRUE(contentsOf(path).substr(4096) == memoryOf(kFirst + 0x3000, 0x1000));
}

TEST_F(CoreDumpAnswers, ALaterPieceReadInPartCountsWithThoseBefore) {
  const uint64_t size = 3 << 20;
  machine.regions = {makeRegion(kFirst, size), makeRegion(kFirst + size, 0x1000, 0)};
  g_read = [](uint64_t address, uint64_t wanted, uint64_t, uint64_t *copied) {
    *copied = address == kFirst ? wanted : 1;
    return 0;
  };
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors, "Warning: Segment at 100000000 only read partially (80001/300000 bytes)\n");
  EXPECT_TRUE(contentsOf(path).substr(4096) == std::string(0x1000, '\0'));
}

// Somebody else's file has the name by the time at which the core turns out not to be whole.
TEST_F(CoreDumpAnswers, OnlyItsOwnFileIsTakenAway) {
  machine.regions = {makeRegion(kFirst, 3 << 20)};
  g_read = [this](uint64_t, uint64_t size, uint64_t, uint64_t *copied) {
    fs::remove(path);
    std::ofstream(path) << "precious";
    *copied = size;
    return 0;
  };
  {
    const test::SizeLimit limit(2 << 20);
    EXPECT_EQ(dump(), -1);
  }
  EXPECT_EQ(errors, path + ": File too large\n");
  EXPECT_EQ(contentsOf(path), "precious");
}

TEST_F(CoreDumpAnswers, ReadProcessMemoryTellsWhatWasRead) {
  uint32_t size = 100;
  g_read = [](uint64_t, uint64_t, uint64_t to, uint64_t *copied) {
    memset(reinterpret_cast<void *>(to), 'r', 40);
    *copied = 40;
    return 0;
  };
  const std::unique_ptr<void, Freed> memory(readProcessMemory(1, kFirst, &size));
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(size, 40u);
  EXPECT_EQ(std::string(static_cast<const char *>(memory.get()), 100),
            std::string(40, 'r') + std::string(60, '\0'));
}

// No more than there is room for is believed, and nothing of what a failure says.
TEST_F(CoreDumpAnswers, ReadProcessMemoryBelievesNoOtherSize) {
  uint32_t size = 100;
  uint64_t said = uint64_t{1} << 32;
  int result = 0;
  g_read = [&](uint64_t, uint64_t, uint64_t, uint64_t *copied) {
    *copied = said;
    return result;
  };
  std::free(readProcessMemory(1, kFirst, &size));
  EXPECT_EQ(size, 100u);

  said = 50;
  result = 2;
  EXPECT_EQ(errorOutputOf([&] { EXPECT_EQ(readProcessMemory(1, 0xABCDEF, &size), nullptr); }),
            "Failed to read 64 bytes of memory from abcdef - Error 2\n");
  EXPECT_EQ(size, 0u);
}

// Everywhere stands what memoryOf() says, also where the kernel says that nobody has been.
class PageMapAnswers : public CoreDumpAnswers {
 protected:
  static constexpr uint64_t kPage = 4096;

  // What the kernel says of the pages of the first region, from the first one on.
  void tell(std::vector<int> pages) {
    machine.tellsPages = [pages = std::move(pages), this](uint64_t address, size_t count, int *to) {
      asked++;
      for (size_t i = 0; i < count; i++) {
        const size_t page = (address - kFirst) / machine.pageBytes + i;
        to[i] = page < pages.size() ? pages[page] : 0;
      }
      return host::kAnswered;
    };
  }
  std::string data() const { return contentsOf(path).substr(4096); }

  int asked = 0;
};

TEST_F(PageMapAnswers, UntouchedMemoryIsAHoleThatIsNotRead) {
  machine.regions = {makeRegion(kFirst, 64 * kPage), makeRegion(kFirst + 64 * kPage, kPage)};
  std::vector<int> pages(65, 1);
  std::fill_n(pages.begin() + 8, 16, 0);
  std::fill_n(pages.begin() + 32, 3, 0);  // too few to be left out
  std::fill_n(pages.begin() + 40, 24, 0);
  tell(pages);
  machine.unreadable = {kFirst + 9 * kPage, kFirst + 63 * kPage};
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors, "");
  EXPECT_TRUE(data() == memoryOf(kFirst, 8 * kPage) + std::string(16 * kPage, '\0') +
                            memoryOf(kFirst + 24 * kPage, 16 * kPage) +
                            std::string(24 * kPage, '\0') + memoryOf(kFirst + 64 * kPage, kPage));
}

// What is not told of is read: of swapped memory, of memory that others fill.
TEST_F(PageMapAnswers, AllOtherMemoryIsRead) {
  machine.regions = {makeRegion(kFirst, 64 * kPage)};
  for (const int known : {0x10, 0x20, 0x80}) {
    tell(std::vector<int>(64, known));
    ASSERT_EQ(dump(), 0);
    EXPECT_TRUE(data() == memoryOf(kFirst, 64 * kPage)) << known;
  }
  EXPECT_EQ(asked, 3);

  asked = 0;
  tell({});
  for (const uint32_t mode : {darwin::SM_SHARED, darwin::SM_TRUESHARED, darwin::SM_PRIVATE_ALIASED,
                              darwin::SM_LARGE_PAGE}) {
    machine.regions[0].prp_prinfo.pri_share_mode = mode;
    ASSERT_EQ(dump(), 0);
    EXPECT_TRUE(data() == memoryOf(kFirst, 64 * kPage)) << mode;
  }
  machine.regions = {makeRegion(kFirst, 64 * kPage, 3, 2, "/a/file")};
  ASSERT_EQ(dump(), 0);
  EXPECT_TRUE(data() == memoryOf(kFirst, 64 * kPage));
  EXPECT_EQ(asked, 0);
}

TEST_F(PageMapAnswers, MemoryThatMayNotBeReadIsRefusedAsEver) {
  machine.regions = {makeRegion(kFirst, 64 * kPage, 2)};
  machine.unreadable = {kFirst};
  tell({});
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors,
            "Failed to read 40000 bytes of memory from 100000000 - Error 1\n"
            "Warning: Segment at 100000000 only read partially (0/40000 bytes)\n");
}

TEST_F(PageMapAnswers, ARefusalOrAnotherCountIsNotBelieved) {
  machine.regions = {makeRegion(kFirst, 64 * kPage)};
  for (const auto &[result, count] :
       {std::pair(5, 64), std::pair(0, 63), std::pair(0, 16), std::pair(0, 0), std::pair(0, 65)}) {
    int told = 0;
    g_pages = [&, answer = std::pair(result, count)](uint64_t address, uint64_t size, int *pages,
                                                     uint64_t *room) {
      told++;
      EXPECT_EQ(address, kFirst);
      EXPECT_EQ(size, 64 * kPage);
      EXPECT_EQ(*room, 64u);
      std::fill_n(pages, 64, 0);
      *room = static_cast<uint64_t>(answer.second);
      return answer.first;
    };
    ASSERT_EQ(dump(), 0);
    EXPECT_TRUE(data() == memoryOf(kFirst, 64 * kPage)) << result << " " << count;
    EXPECT_EQ(told, 1);
  }
}

TEST_F(PageMapAnswers, WhereTheSystemHasNoneAllIsRead) {
  mach_vm_page_range_query_funcptr = nullptr;
  machine.regions = {makeRegion(kFirst, 64 * kPage)};
  tell(std::vector<int>(64, 0));
  ASSERT_EQ(dump(), 0);
  EXPECT_TRUE(data() == memoryOf(kFirst, 64 * kPage));
  EXPECT_EQ(asked, 0);
}

// More pages than are asked about at a time.
TEST_F(PageMapAnswers, OfALargeRegionComeInParts) {
  constexpr size_t kPages = 150'000;
  machine.regions = {makeRegion(kFirst, kPages * kPage),
                     makeRegion(kFirst + kPages * kPage, kPage)};
  std::vector<int> pages(kPages + 1, 0);
  pages[65'535] = pages[65'536] = pages[kPages - 1] = pages[kPages] = 1;
  tell(pages);
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(asked, 4);
  EXPECT_LT(roomOf(path), 64 * kPage);
  ASSERT_EQ(fs::file_size(path), (kPages + 2) * kPage);
  std::ifstream core(path, std::ios::binary);
  const auto pagesAt = [&](size_t page, size_t count) {
    std::string bytes(count * kPage, '?');
    core.seekg(static_cast<std::streamoff>((page + 1) * kPage));
    core.read(bytes.data(), ssize(bytes));
    return bytes;
  };
  const std::string zeros(kPage, '\0');
  const auto there = [](size_t page) { return memoryOf(kFirst + page * kPage, 2 * kPage); };
  EXPECT_TRUE(pagesAt(65'534, 4) == zeros + there(65'535) + zeros);
  EXPECT_TRUE(pagesAt(kPages - 2, 3) == zeros + there(kPages - 1));
}

// Regions need not begin and end where pages do.
TEST_F(PageMapAnswers, PagesMayBeLarger) {
  machine.pageBytes = 16384;
  machine.regions = {makeRegion(kFirst + 0x1000, 0x9000), makeRegion(kFirst + 0xA000, 0x1000)};
  tell({1, 0, 1});
  ASSERT_EQ(dump(), 0);
  EXPECT_TRUE(data() == memoryOf(kFirst + 0x1000, 0x3000) + std::string(0x4000, '\0') +
                            memoryOf(kFirst + 0x8000, 0x3000));
}

TEST_F(PageMapAnswers, ACoreOfNothingButUntouchedMemoryHasItsLength) {
  machine.regions = {makeRegion(kFirst, 64 * kPage)};
  tell({});
  ASSERT_EQ(dump(), 0);
  EXPECT_TRUE(data() == std::string(64 * kPage, '\0'));
  EXPECT_EQ(dump(kBinaryCore), 1);
  EXPECT_TRUE(contentsOf(kBinary) == std::string(64 * kPage, '\0'));
  fs::remove(kBinary);
}

// A kernel of 32-bit processors: with room for a header it gives one.
TEST_F(CoreDumpAnswers, RegistersBehindAHeaderAreTakenFromThere) {
  machine.regions = {makeRegion(0x4000, 0x1000)};
  machine.threads[1] = darwin::arm_thread_state32_t{};
  std::vector<std::pair<int, uint32_t>> asked;
  g_state = [&](int flavour, uint32_t *state, uint32_t *count) {
    asked.emplace_back(flavour, *count);
    state[0] = 9;
    state[1] = 17;
    for (uint32_t i = 2; i < *count; i++) state[i] = 0x100 + i;
    return 0;
  };
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(errors, "");
  EXPECT_EQ(asked, (std::vector<std::pair<int, uint32_t>>{{1, 17}, {1, 19}}));
  constexpr size_t kCommand = 28 + 56;
  EXPECT_EQ(wordAt(kCommand), 4u);
  EXPECT_EQ(wordAt(kCommand + 4), 84u);
  EXPECT_EQ(wordAt(kCommand + 8), 1u);
  EXPECT_EQ(wordAt(kCommand + 12), 17u);
  for (uint32_t i = 0; i < 17; i++) EXPECT_EQ(wordAt(kCommand + 16 + i * 4), 0x102 + i) << i;

  setenv("ZDEBUG", "1", 1);
  sampled::outputOf([&] { ASSERT_EQ(dump(), 0); });
  EXPECT_NE(errors.find("\nWorkaround\n"), std::string::npos) << errors;
}

TEST_F(CoreDumpAnswers, HalfAHeaderIsNone) {
  machine.regions = {makeRegion(0x4000, 0x1000)};
  machine.threads[1] = darwin::arm_thread_state32_t{};
  for (const auto &[first, second] : {std::pair(8u, 17u), std::pair(9u, 16u)}) {
    int asked = 0;
    g_state = [&, words = std::pair(first, second)](int, uint32_t *state, uint32_t *) {
      asked++;
      state[0] = words.first;
      state[1] = words.second;
      return 0;
    };
    ASSERT_EQ(dump(), 0);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(wordAt(28 + 56 + 16), first);
    EXPECT_EQ(wordAt(28 + 56 + 20), second);
  }
}

TEST_F(CoreDumpAnswers, RegistersOf64BitsAreAskedForOnce) {
  machine.regions = {makeRegion(kFirst, 0x1000)};
  machine.threads[1] = darwin::arm_thread_state64_t{};
  std::vector<std::pair<int, uint32_t>> asked;
  g_state = [&](int flavour, uint32_t *state, uint32_t *count) {
    asked.emplace_back(flavour, *count);
    state[0] = 9;
    state[1] = 17;
    return 0;
  };
  ASSERT_EQ(dump(), 0);
  EXPECT_EQ(asked, (std::vector<std::pair<int, uint32_t>>{{6, 68}}));
  EXPECT_EQ(wordAt(32 + 72 + 16), 9u);
  EXPECT_EQ(wordAt(32 + 72 + 20), 17u);
}

class BinaryDumpAnswers : public CoreDumpAnswers {
 protected:
  BinaryDumpAnswers() {
    fs::remove(kBinary);
    machine.regions = {makeRegion(kFirst, 0x3000, 5), makeRegion(kFirst + 0x3000, 0x1000)};
  }
  ~BinaryDumpAnswers() override { fs::remove(kBinary); }

  // The area that the kernel gives; asked for is kept in `name` and `room`.
  void answer(const std::string &area) {
    g_sysctl = [this, area](const std::vector<int> &of, char *old, size_t *length) {
      name = of;
      room = *length;
      *length = area.copy(old, *length);
      return 0;
    };
  }

  std::string said(const std::string &text) const {
    return "PID " + std::to_string(machine.pid) + " is " + text + "..\n";
  }

  std::vector<int> name;
  size_t room = 0;
};

TEST_F(BinaryDumpAnswers, TellsWhatTheProcessWasStartedAs) {
  answer(std::string("/proc/self/exe\0argument\0", 24));
  EXPECT_EQ(dump(kBinaryCore), 0);
  EXPECT_EQ(errors, said("/proc/self/exe"));
  EXPECT_EQ(name, (std::vector<int>{1, 38, machine.pid}));
  EXPECT_EQ(room, kArgumentArea);
  EXPECT_TRUE(contentsOf(kBinary) == memoryOf(kFirst, 0x3000));
}

TEST_F(BinaryDumpAnswers, WithoutThatExecutable) {
  answer(path + ".none");
  EXPECT_EQ(dump(kBinaryCore), 1);
  EXPECT_EQ(errors, said(path + ".none") + "open: No such file or directory\n");
  EXPECT_TRUE(contentsOf(kBinary) == memoryOf(kFirst, 0x3000));
}

TEST_F(BinaryDumpAnswers, OtherCoresDontAskForIt) {
  answer("/proc/self/exe");
  EXPECT_EQ(dump(kFullCore), 0);
  EXPECT_EQ(dump(kMiniCore), 0);
  EXPECT_EQ(errors, "");
  EXPECT_EQ(room, 0u);
}

TEST_F(BinaryDumpAnswers, APathWithoutAnEndIsTheWholeArea) {
  answer(std::string(kArgumentArea + 10, 'p'));
  EXPECT_EQ(dump(kBinaryCore), 1);
  EXPECT_EQ(errors, said(std::string(kArgumentArea, 'p')) + "open: File name too long\n");
}

TEST_F(BinaryDumpAnswers, APathIsMadeSafe) {
  answer("/tmp/\033[2J\n");
  EXPECT_EQ(dump(kBinaryCore), 1);
  EXPECT_EQ(errors, said("/tmp/?[2J?") + "open: No such file or directory\n");
}

TEST_F(BinaryDumpAnswers, ARefusedAreaLeavesNoPath) {
  g_sysctl = [](const std::vector<int> &, char *old, size_t *length) {
    memset(old, 'x', *length);
    errno = darwin::DARWIN_EPERM;
    return -1;
  };
  EXPECT_EQ(dump(kBinaryCore), 1);
  EXPECT_EQ(errors, "open: No such file or directory\n");
}

TEST_F(BinaryDumpAnswers, AreaAndPortAreAskedForInThisOrder) {
  answer("/proc/self/exe");
  machine.givesTask = false;
  EXPECT_EQ(dump(kBinaryCore), -5);
  EXPECT_EQ(errors, said("/proc/self/exe") + "Unable to get task port (SIP?)\n");
  EXPECT_FALSE(fs::exists(kBinary));
}

TEST_F(BinaryDumpAnswers, ARegionReadInPartLeavesNoFile) {
  g_read = [](uint64_t, uint64_t, uint64_t, uint64_t *copied) {
    *copied = 0x2FFF;
    return 0;
  };
  EXPECT_EQ(dump(kBinaryCore), -1);
  EXPECT_EQ(errors, "Warning: Segment at 100000000 only read partially (2fff/3000 bytes)\n");
  EXPECT_FALSE(fs::exists(kBinary));
}

}  // namespace
