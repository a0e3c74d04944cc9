// The lines of /proc/PID/maps, well-formed and not, and files of them in pieces.
#include "host/linux/memory_map.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {
namespace {

TEST(Mapping, IsReadFromItsLine) {
  Mapping mapping{};
  ASSERT_TRUE(parseMapping(
      "7f1234560000-7f1234570000 rw-s 00001000 00:2a 123456789012       /dev/shm/a b\n", mapping));
  EXPECT_EQ(mapping.start, 0x7f1234560000u);
  EXPECT_EQ(mapping.end, 0x7f1234570000u);
  EXPECT_EQ(mapping.protection, 3u);
  EXPECT_TRUE(mapping.isShared);
  EXPECT_EQ(mapping.offset, 0x1000u);
  EXPECT_EQ(mapping.majorNumber, 0u);
  EXPECT_EQ(mapping.minorNumber, 0x2au);
  EXPECT_EQ(mapping.inode, 123456789012u);
  EXPECT_EQ(mapping.name, "/dev/shm/a b");
}

TEST(Mapping, OfTheHighestAddressesAndWithoutAName) {
  Mapping mapping{};
  ASSERT_TRUE(parseMapping("ffffffffff600000-ffffffffff601000 --xp 0 103:02 7", mapping));
  EXPECT_EQ(mapping.start, 0xffffffffff600000u);
  EXPECT_EQ(mapping.protection, 4u);
  EXPECT_FALSE(mapping.isShared);
  EXPECT_EQ(mapping.majorNumber, 0x103u);
  EXPECT_EQ(mapping.name, "");
  ASSERT_TRUE(parseMapping("08048000-08049000 ---p 00000000 00:00 0 \n", mapping));
  EXPECT_EQ(mapping.start, 0x8048000u);
  EXPECT_EQ(mapping.protection, 0u);
  EXPECT_EQ(mapping.inode, 0u);
  EXPECT_EQ(mapping.name, "");
}

TEST(Mapping, EveryProtection) {
  for (uint32_t bits = 0; bits < 8; bits++) {
    std::string line = "1000-2000 ---p 00000000 00:00 0";
    if ((bits & 1) != 0) line[10] = 'r';
    if ((bits & 2) != 0) line[11] = 'w';
    if ((bits & 4) != 0) line[12] = 'x';
    Mapping mapping{};
    ASSERT_TRUE(parseMapping(line, mapping)) << line;
    EXPECT_EQ(mapping.protection, bits);
  }
}

TEST(Mapping, NamesHoldAnyByte) {
  Mapping mapping{};
  ASSERT_TRUE(
      parseMapping("1000-2000 r--p 0 08:01 5   /x\\012\x1b[31m\xff\\ (deleted)  \n", mapping));
  EXPECT_EQ(mapping.name, "/x\\012\x1b[31m\xff\\ (deleted)  ");
}

TEST(Mapping, EveryCutUpToTheInodeIsRefused) {
  const std::string line = "7f1234560000-7f1234570000 rw-s 00001000 00:2a 5";
  Mapping mapping{};
  ASSERT_TRUE(parseMapping(line, mapping));
  for (size_t length = 0; length < line.size(); length++) {
    EXPECT_FALSE(parseMapping(std::string_view(line).substr(0, length), mapping)) << length;
  }
  EXPECT_EQ(mapping.inode, 5u) << "left alone";
}

TEST(Mapping, OddLinesAreRefused) {
  for (const char *line : {"",
                           "\n",
                           "7ffd1000-7ffd2000 rw-p 00000000 00:00 \n",
                           "x-7ffd2000 rw-p 00000000 00:01 5\n",
                           "7ffd1000 7ffd2000 rw-p 00000000 00:01 5\n",
                           "7ffd1000-7ffd2000 rw-p 00000000 0001 5\n",
                           "11112222333344445-7ffd2000 rw-p 00000000 00:01 5\n",
                           "7ffd1000-7ffd2000 rw-p 00000000 00:01 -5\n",
                           "7ffd1000-7ffd2000 rw-p 00000000 00:01 5x\n",
                           "7ffd1000-7ffd2000 rw-p 00000000 00:01 99999999999999999999\n",
                           "7ffd1000-7ffd2000 rw-p 11112222333344445 00:01 5\n",
                           "7ffd1000-7ffd2000 rwzp 00000000 00:01 5\n",
                           "7ffd1000-7ffd2000 xrwp 00000000 00:01 5\n",
                           "7ffd1000-7ffd2000 rw-q 00000000 00:01 5\n",
                           "7ffd1000-7ffd2000 rw- 00000000 00:01 5\n",
                           "7ffd1000-7ffd2000 rw-pp 00000000 00:01 5\n",
                           "7ffd2000-7ffd2000 rw-p 0 00:01 5\n",
                           "7ffd3000-7ffd2000 rw-p 0 00:01 5\n",
                           " 7ffd1000-7ffd2000 rw-p 0 00:01 5\n",
                           "-7ffd1000-7ffd2000 rw-p 0 00:01 5\n"}) {
    Mapping mapping{};
    EXPECT_FALSE(parseMapping(line, mapping)) << line;
  }
}

class MemoryMap : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/memory_map_test.XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    path_ = name;
    directory_ = openStartingPoint(AT_FDCWD, name);
  }
  void TearDown() override { std::filesystem::remove_all(path_); }

  std::string path_;
  FileHandle directory_;
};

// More than one reading takes, with a line on each border, and a last one without its end.
TEST_F(MemoryMap, IsReadWholeAndInOrder) {
  constexpr uint64_t kMany = 20'000;
  std::ofstream file(path_ + "/maps");
  file << std::hex;
  for (uint64_t i = 1; i <= kMany; i++) {
    if (i % 1000 == 0) file << "what is this\n";
    file << i * 0x2000 << "-" << i * 0x2000 + 0x1000 << " r--p 0 00:00 0   /" << i << "\n";
  }
  file << "fffff000-fffff";
  file.close();

  uint64_t seen = 0;
  ASSERT_EQ(readMemoryMap(directory_.get(),
                          [&](const Mapping &mapping) {
                            seen++;
                            EXPECT_EQ(mapping.start, seen * 0x2000);
                            char name[32];
                            snprintf(name, sizeof name, "/%lx", static_cast<unsigned long>(seen));
                            EXPECT_EQ(mapping.name, name);
                          }),
            kAnswered);
  EXPECT_EQ(seen, kMany);
}

TEST_F(MemoryMap, WithoutAFileIsAnError) {
  const auto never = [](const Mapping &) { ADD_FAILURE(); };
  EXPECT_EQ(readMemoryMap(directory_.get(), never), darwin::DARWIN_ENOENT);
  EXPECT_EQ(readMemoryMap(-1, never), darwin::DARWIN_EBADF);
  ASSERT_EQ(mkdir((path_ + "/maps").c_str(), 0700), 0);
  EXPECT_EQ(readMemoryMap(directory_.get(), never), darwin::DARWIN_EIO);
}

}  // namespace
}  // namespace host::linux_machine
