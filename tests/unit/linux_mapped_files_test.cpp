// The lines of /proc/PID/maps. Mappings of real processes are tested with the descriptors that are
// mapped.
#include "host/linux/mapped_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "host/linux/procfs.h"

namespace host::linux_machine {
namespace {

TEST(MappedFile, IsReadFromItsLine) {
  MappedFile file{};
  ASSERT_TRUE(parseMappedFile(
      "7f1234560000-7f1234570000 rw-s 00001000 00:2a 123456789012       /dev/shm/a b\n", file));
  EXPECT_EQ(file.address, 0x7f1234560000u);
  EXPECT_EQ(file.device, makedev(0, 0x2a));
  EXPECT_EQ(file.inode, 123456789012u);
  ASSERT_TRUE(parseMappedFile("ffffffffff600000-ffffffffff601000 --xp 0 103:02 7", file));
  EXPECT_EQ(file.address, 0xffffffffff600000u);
  EXPECT_EQ(file.device, makedev(0x103, 2));
  EXPECT_EQ(file.inode, 7u);
}

TEST(MappedFile, EveryCutUpToTheInodeIsRefused) {
  const std::string line = "7f1234560000-7f1234570000 rw-s 00001000 00:2a 5";
  MappedFile file{};
  ASSERT_TRUE(parseMappedFile(line, file));
  for (size_t length = 0; length < line.size(); length++) {
    EXPECT_FALSE(parseMappedFile(line.substr(0, length), file)) << length;
  }
  EXPECT_EQ(file.inode, 5u) << "left alone";
}

TEST(MappedFile, WhatHasNoFileOrIsMalformedIsRefused) {
  for (const char *line :
       {"7ffd1000-7ffd2000 rw-p 00000000 00:00 0    [stack]\n",
        "7ffd1000-7ffd2000 rw-p 00000000 00:00 \n", "x-7ffd2000 rw-p 00000000 00:01 5\n",
        "7ffd1000 7ffd2000 rw-p 00000000 00:01 5\n", "7ffd1000-7ffd2000 rw-p 00000000 0001 5\n",
        "11112222333344445-7ffd2000 rw-p 00000000 00:01 5\n",
        "7ffd1000-7ffd2000 rw-p 00000000 00:01 -5\n",
        "7ffd1000-7ffd2000 rw-p 00000000 00:01 99999999999999999999\n"}) {
    MappedFile file{};
    EXPECT_FALSE(parseMappedFile(line, file)) << line;
  }
}

// More than one reading takes, beside the mappings that are there anyway.
TEST(MappedFiles, FindsOneAmongMany) {
  constexpr size_t kMany = 2000;
  constexpr size_t kPage = 4096;
  const FileHandle file(memfd_create("many", MFD_CLOEXEC));
  const FileHandle unmapped(memfd_create("none", MFD_CLOEXEC));
  ASSERT_EQ(ftruncate(file.get(), kMany * 2 * kPage), 0);
  std::vector<void *> maps;
  for (size_t i = 0; i < kMany; i++) {
    // Neighbours don't become one: every other page.
    void *map =
        mmap(nullptr, kPage, PROT_READ, MAP_SHARED, file.get(), static_cast<off_t>(i * 2 * kPage));
    ASSERT_NE(map, MAP_FAILED);
    maps.push_back(map);
  }
  const FileHandle self = openStartingPoint(AT_FDCWD, "/proc/self");
  struct stat stat {};
  MappedFiles mapped;
  ASSERT_EQ(fstat(file.get(), &stat), 0);
  EXPECT_EQ(mapped.addressOf(self.get(), stat.st_dev, stat.st_ino),
            reinterpret_cast<uint64_t>(*std::min_element(maps.begin(), maps.end())));
  EXPECT_EQ(mapped.addressOf(self.get(), stat.st_dev + 1, stat.st_ino), 0u);
  ASSERT_EQ(fstat(unmapped.get(), &stat), 0);
  EXPECT_EQ(mapped.addressOf(self.get(), stat.st_dev, stat.st_ino), 0u);
  EXPECT_EQ(mapped.addressOf(-1, stat.st_dev, stat.st_ino), 0u);
  for (void *map : maps) munmap(map, kPage);
}

}  // namespace
}  // namespace host::linux_machine
