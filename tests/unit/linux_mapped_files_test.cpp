// Where this process has a file mapped. Mappings of other processes are tested with the descriptors
// that are mapped.
#include "host/linux/mapped_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "host/linux/procfs.h"

namespace host::linux_machine {
namespace {

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
