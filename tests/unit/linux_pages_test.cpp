// What is told of the pages of a process: from files that a test writes, and of pages of its own.
#include "host/linux/pages.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/userfaultfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/mach_vm.h"
#include "host/linux/procfs.h"
#include "host/posix.h"

namespace host::linux_machine {
namespace {

constexpr int kUntouched = 0;
constexpr int kThere = darwin::VM_PAGE_QUERY_PAGE_PRESENT;
constexpr int kAway = darwin::VM_PAGE_QUERY_PAGE_PAGED_OUT;
constexpr int kElsewhere = darwin::VM_PAGE_QUERY_PAGE_EXTERNAL;

const auto kPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));

TEST(PageEntry, OnlyOneWithNothingIsUntouched) {
  EXPECT_EQ(dispositionOf(0), kUntouched);
  EXPECT_EQ(dispositionOf(uint64_t{1} << 55), kUntouched) << "says nothing of the page";
  EXPECT_EQ(dispositionOf(uint64_t{1} << 63), kThere);
  for (const int bit : {0, 54, 56, 57, 58, 61, 62}) {
    EXPECT_EQ(dispositionOf(uint64_t{1} << bit), kAway) << bit;
    EXPECT_EQ(dispositionOf(uint64_t{1} << bit | uint64_t{1} << 63), kThere) << bit;
  }
}

TEST(ZeroFilledMappings, AreAnonymousAndNobodyElsesToFill) {
  const struct {
    const char *mapping;
    const char *flags;
    bool isZeroFilled;
  } rows[] = {
      {"1000-2000 rw-p 00000000 00:00 0 ", "VmFlags: rd wr mr mw me ac sd ", true},
      {"1000-2000 rw-p 00000000 00:00 0       [heap]", "VmFlags: rd", true},
      {"1000-2000 rw-p 00000000 00:00 0       [stack]", "VmFlags: rd gd", true},
      {"1000-2000 rw-p 00000000 00:00 0       [anon:name]", "VmFlags: rd", true},
      {"1000-2000 rw-p 00000000 00:00 0 ", "VmFlags: rd um ", false},
      {"1000-2000 rw-p 00000000 00:00 0 ", "VmFlags: rd ui", false},
      {"1000-2000 rw-p 00000000 00:00 0 ", "VmFlags: uw rd", false},
      {"1000-2000 rw-p 00000000 00:00 0 ", "VmFlags: pf io", false},
      {"1000-2000 rw-p 00000000 00:00 0 ", "VmFlags: mm", false},
      {"1000-2000 rw-p 00000000 00:00 0 ", "VmFlags: ht", false},
      {"1000-2000 rw-p 00000000 00:00 0 ", "Size: 4 kB", false},
      {"1000-2000 rw-s 00000000 00:00 0 ", "VmFlags: rd", false},
      {"1000-2000 rw-p 00000000 00:00 0       [vvar]", "VmFlags: rd", false},
      {"1000-2000 rw-p 00000000 00:01 0 ", "VmFlags: rd", false},
      {"1000-2000 rw-p 00000000 08:00 0 ", "VmFlags: rd", false},
      {"1000-2000 rw-p 00000000 00:00 7 ", "VmFlags: rd", false},
      {"1000-2000 rw-p 00000000 00:00 0       /anon_hugepage (deleted)", "VmFlags: rd", false},
  };
  for (const auto &row : rows) {
    ZeroFilled mappings;
    mappings.take("500-600 rw-p 00000000 00:00 0 ");
    mappings.take("VmFlags: rd");
    mappings.take(row.mapping);
    mappings.take("Rss:                   4 kB");
    mappings.take(row.flags);
    mappings.take("3000-4000 rw-p 00000000 00:00 0 ");
    mappings.take("VmFlags: rd");
    EXPECT_EQ(mappings.endAt(0x1000), row.isZeroFilled ? 0x2000u : 0u)
        << row.mapping << " " << row.flags;
    EXPECT_EQ(mappings.endAt(0x1fff), row.isZeroFilled ? 0x2000u : 0u);
    EXPECT_EQ(mappings.endAt(0x2000), 0u);
    EXPECT_EQ(mappings.endAt(0x5ff), 0x600u);
    EXPECT_EQ(mappings.endAt(0x3000), 0x4000u);
    EXPECT_EQ(mappings.endAt(0x4000), 0u);
  }
}

// A directory like that of a process.
class WrittenPages : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/pages_test.XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    path_ = name;
    directory_ = openStartingPoint(AT_FDCWD, name);
  }
  void TearDown() override { std::filesystem::remove_all(path_); }

  void writeMap(const std::vector<uint64_t> &entries) const {
    std::ofstream(path_ + "/pagemap", std::ios::binary)
        .write(reinterpret_cast<const char *>(entries.data()),
               static_cast<std::streamsize>(entries.size() * sizeof entries[0]));
  }
  void writeMappings(uint64_t fromPage, uint64_t toPage) const {
    std::ofstream(path_ + "/smaps") << std::hex << fromPage * kPage << "-" << toPage * kPage
                                    << " rw-p 00000000 00:00 0 \nVmFlags: rd wr \n";
  }
  Errno tell(uint64_t page, size_t count) {
    told_.assign(count, -1);
    return pages_.tell(directory_.get(), {1, 1}, page * kPage, count, told_.data());
  }

  std::string path_;
  FileHandle directory_;
  Pages pages_;
  std::vector<int> told_;
};

TEST_F(WrittenPages, WithNothingInThemDependOnTheirMapping) {
  writeMap({0, 0, uint64_t{1} << 63, uint64_t{1} << 62, 0, 0});
  writeMappings(1, 5);
  ASSERT_EQ(tell(0, 6), kAnswered);
  EXPECT_EQ(told_,
            (std::vector<int>{kElsewhere, kUntouched, kThere, kAway, kUntouched, kElsewhere}));
}

TEST_F(WrittenPages, BeyondTheMapAreAnError) {
  writeMap({0, 0, 0});
  writeMappings(0, 9);
  EXPECT_EQ(tell(1, 2), kAnswered);
  EXPECT_EQ(tell(1, 3), darwin::DARWIN_EFAULT);
  EXPECT_EQ(tell(3, 1), darwin::DARWIN_EFAULT);
}

TEST_F(WrittenPages, AreNotGuessedWhereAFileIsMissing) {
  EXPECT_EQ(tell(0, 1), darwin::DARWIN_ENOENT);
  writeMap({0, uint64_t{1} << 63});
  EXPECT_EQ(tell(0, 2), darwin::DARWIN_ENOENT);
  EXPECT_EQ(tell(1, 1), kAnswered) << "needs no mappings";
  writeMappings(0, 2);
  EXPECT_EQ(tell(0, 2), kAnswered);
}

// Mappings are read again for another process, and for who begins below.
TEST_F(WrittenPages, GoByTheMappingsOfAWalk) {
  writeMap({0, 0, 0, 0});
  writeMappings(0, 4);
  ASSERT_EQ(tell(1, 1), kAnswered);
  writeMappings(9, 10);
  ASSERT_EQ(tell(2, 1), kAnswered);
  EXPECT_EQ(told_, std::vector<int>{kUntouched});
  ASSERT_EQ(tell(0, 1), kAnswered);
  EXPECT_EQ(told_, std::vector<int>{kElsewhere});
  writeMappings(0, 4);
  ASSERT_EQ(pages_.tell(directory_.get(), {1, 2}, 3 * kPage, 1, told_.data()), kAnswered);
  EXPECT_EQ(told_, std::vector<int>{kUntouched});
}

// Eight pages of this program.
class OwnPages : public testing::Test {
 protected:
  static constexpr size_t kCount = 8;

  ~OwnPages() override {
    if (memory_ != nullptr) munmap(memory_, kCount * kPage);
  }
  void map(int flags, int file = -1) {
    void *memory = mmap(nullptr, kCount * kPage, PROT_READ | PROT_WRITE, flags, file, 0);
    ASSERT_NE(memory, MAP_FAILED);
    memory_ = static_cast<char *>(memory);
    madvise(memory_, kCount * kPage, MADV_NOHUGEPAGE);
  }
  std::vector<int> told() const {
    const FileHandle directory = openStartingPoint(AT_FDCWD, "/proc/self");
    std::vector<int> pages(kCount, -1);
    EXPECT_EQ(Pages().tell(directory.get(), {getpid(), 1}, reinterpret_cast<uint64_t>(memory_),
                           kCount, pages.data()),
              kAnswered);
    return pages;
  }

  char *memory_ = nullptr;
};

TEST_F(OwnPages, AreUntouchedUntilTheyAreTouched) {
  map(MAP_PRIVATE | MAP_ANONYMOUS);
  EXPECT_EQ(told(), std::vector<int>(kCount, kUntouched));
  EXPECT_EQ(told(), std::vector<int>(kCount, kUntouched)) << "asking has brought none in";
  memory_[2 * kPage] = 1;
  memory_[5 * kPage] = 0;
  std::vector<int> expected(kCount, kUntouched);
  expected[2] = expected[5] = kThere;
  EXPECT_EQ(told(), expected);
  ASSERT_EQ(madvise(memory_, kCount * kPage, MADV_DONTNEED), 0);
  EXPECT_EQ(told(), std::vector<int>(kCount, kUntouched));
}

TEST_F(OwnPages, OfAFileAreElsewhere) {
  for (const int flags : {MAP_PRIVATE, MAP_SHARED}) {
    const FileHandle file(memfd_create("pages", MFD_CLOEXEC));
    ASSERT_EQ(ftruncate(file.get(), static_cast<off_t>(kCount * kPage)), 0);
    map(flags, file.get());
    EXPECT_EQ(told(), std::vector<int>(kCount, kElsewhere));
    munmap(memory_, kCount * kPage);
    memory_ = nullptr;
  }
}

TEST_F(OwnPages, SharedWithChildrenAreElsewhere) {
  map(MAP_SHARED | MAP_ANONYMOUS);
  EXPECT_EQ(told(), std::vector<int>(kCount, kElsewhere));
}

TEST_F(OwnPages, ThatAProgramBringsAreElsewhere) {
  const FileHandle faults(
      static_cast<int>(__real_syscall(SYS_userfaultfd, O_CLOEXEC | UFFD_USER_MODE_ONLY)));
  if (!faults.isOpen()) GTEST_SKIP() << "this kernel does not let programs bring pages";
  uffdio_api api{};
  api.api = UFFD_API;
  ASSERT_EQ(__real_ioctl(faults.get(), UFFDIO_API, &api), 0);
  map(MAP_PRIVATE | MAP_ANONYMOUS);
  uffdio_register range{};
  range.range = {reinterpret_cast<uint64_t>(memory_), kCount * kPage};
  range.mode = UFFDIO_REGISTER_MODE_MISSING;
  ASSERT_EQ(__real_ioctl(faults.get(), UFFDIO_REGISTER, &range), 0);
  EXPECT_EQ(told(), std::vector<int>(kCount, kElsewhere));
}

}  // namespace
}  // namespace host::linux_machine
