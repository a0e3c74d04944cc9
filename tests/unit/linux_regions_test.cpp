// The regions of processes: those of a made-up one, whose directory the test writes, for each kind
// of mapping; and those of this one.
#include "host/linux/regions.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"

namespace host::linux_machine {
namespace {

using darwin::proc_regionwithpathinfo;

constexpr ProcessKey kProcess = {4242, 7};

// Counts how often a file was opened.
class OpenCounter {
 public:
  explicit OpenCounter(const std::string &path) : events_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    // With the closing between them, two openings are never told as one.
    EXPECT_GE(inotify_add_watch(events_.get(), path.c_str(), IN_OPEN | IN_CLOSE), 0);
  }
  int count() {
    alignas(inotify_event) char buffer[4096];
    ssize_t length = 0;
    while ((length = read(events_.get(), buffer, sizeof buffer)) > 0) {
      for (ssize_t at = 0; at < length;) {
        const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
        if ((event->mask & IN_OPEN) != 0) opened_++;
        at += static_cast<ssize_t>(sizeof *event + event->len);
      }
    }
    return opened_;
  }

 private:
  FileHandle events_;
  int opened_ = 0;
};

class LinuxRegions : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/regions_test.XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    path_ = name;
    directory_ = openStartingPoint(AT_FDCWD, name);
    ASSERT_EQ(mkdir((path_ + "/task").c_str(), 0700), 0);
    ASSERT_EQ(mkdir((path_ + "/map_files").c_str(), 0700), 0);
    ASSERT_EQ(symlink("/usr/bin/program", (path_ + "/exe").c_str()), 0);
  }
  void TearDown() override { std::filesystem::remove_all(path_); }

  void writeFile(const std::string &name, const std::string &text) {
    std::ofstream(path_ + "/" + name) << text;
  }
  void writeMap(const std::string &text) { writeFile("maps", text); }
  void addThread(int id, const std::string &call) {
    const std::string place = std::string("task/").append(std::to_string(id));
    ASSERT_EQ(mkdir((path_ + "/" + place).c_str(), 0700), 0);
    writeFile(place + "/syscall", call);
  }
  // As the kernel shows what a mapping's file was opened for.
  void addMappedFile(const std::string &range, mode_t mode) {
    const std::string file = path_ + "/map_files/" + range;
    std::ofstream(file).close();
    ASSERT_EQ(chmod(file.c_str(), mode), 0);
  }

  Errno find(uint64_t address, proc_regionwithpathinfo &info, ProcessKey process = kProcess) {
    return regions_.find(directory_.get(), process, address, info);
  }
  proc_regionwithpathinfo found(uint64_t address) {
    proc_regionwithpathinfo info{};
    EXPECT_EQ(find(address, info), kAnswered) << std::hex << address;
    return info;
  }
  // As a region map walks.
  std::vector<proc_regionwithpathinfo> walk() {
    std::vector<proc_regionwithpathinfo> all;
    proc_regionwithpathinfo info{};
    uint64_t address = 0;
    while (find(address, info) == kAnswered) {
      all.push_back(info);
      address = info.prp_prinfo.pri_address + info.prp_prinfo.pri_size + 1;
    }
    return all;
  }
  // Of a map with only that line.
  proc_regionwithpathinfo regionOf(const std::string &line) {
    writeMap(line + "\n");
    return found(0);
  }

  std::string path_;
  FileHandle directory_;
  Regions regions_;
};

TEST_F(LinuxRegions, TellWhatTheMapSays) {
  const proc_regionwithpathinfo info =
      regionOf("7f1234560000-7f1234570000 rw-p 00003000 08:02 4660      /var/data file");
  EXPECT_EQ(info.prp_prinfo.pri_address, 0x7f1234560000u);
  EXPECT_EQ(info.prp_prinfo.pri_size, 0x10000u);
  EXPECT_EQ(info.prp_prinfo.pri_protection, 3u);
  EXPECT_EQ(info.prp_prinfo.pri_offset, 0x3000u);
  EXPECT_EQ(info.prp_prinfo.pri_inheritance, 1u);
  EXPECT_EQ(info.prp_prinfo.pri_flags, 0u);
  EXPECT_EQ(info.prp_prinfo.pri_pages_resident, 0u);
  EXPECT_EQ(info.prp_vip.vip_vi.vi_stat.vst_ino, 4660u);
  EXPECT_STREQ(info.prp_vip.vip_path, "/var/data file");
}

TEST_F(LinuxRegions, TheOneThatContainsAnAddressOrFollowsIt) {
  writeMap("1000-3000 r--p 0 00:00 0\n5000-6000 rw-p 0 00:00 0\n6000-7000 r--p 0 00:00 0\n");
  const std::map<uint64_t, uint64_t> starts = {
      {0, 0x1000},      {0xfff, 0x1000},  {0x1000, 0x1000}, {0x2fff, 0x1000}, {0x3000, 0x5000},
      {0x3001, 0x5000}, {0x5fff, 0x5000}, {0x6000, 0x6000}, {0x6fff, 0x6000}};
  for (const auto &[address, start] : starts) {
    EXPECT_EQ(found(address).prp_prinfo.pri_address, start) << std::hex << address;
  }
  proc_regionwithpathinfo info{};
  info.prp_prinfo.pri_size = 99;
  EXPECT_EQ(find(0x7000, info), darwin::DARWIN_EINVAL);
  EXPECT_EQ(find(UINT64_MAX, info), darwin::DARWIN_EINVAL);
  EXPECT_EQ(info.prp_prinfo.pri_size, 99u) << "left alone";
}

TEST_F(LinuxRegions, UpToTheTopOfTheAddressSpace) {
  writeMap(
      "1000-2000 r--p 0 00:00 0\nffffffffff600000-ffffffffff601000 --xp 0 00:00 0 [vsyscall]\n");
  EXPECT_EQ(found(0x2001).prp_prinfo.pri_address, 0xffffffffff600000u);
  EXPECT_EQ(walk().size(), 2u);
}

TEST_F(LinuxRegions, AMapWithoutMappingsHasNone) {
  writeMap("");
  proc_regionwithpathinfo info{};
  EXPECT_EQ(find(0, info), darwin::DARWIN_EINVAL);
  EXPECT_EQ(find(5, info), darwin::DARWIN_EINVAL);
}

TEST_F(LinuxRegions, OfAProcessThatIsGone) {
  proc_regionwithpathinfo info{};
  EXPECT_EQ(find(0, info), darwin::DARWIN_ESRCH);
}

TEST_F(LinuxRegions, TagsByTheKernelsWords) {
  const std::vector<std::pair<std::string, uint32_t>> tags = {
      {"[heap]", 2},
      {"[stack]", 30},
      {"[stack:1234]", 30},
      {"[vdso]", 32},
      {"[vvar]", 32},
      {"[vvar_vclock]", 32},
      {"[vsyscall]", 32},
      {"[vectors]", 32},
      {"[sigpage]", 32},
      {"[uprobes]", 32},
      {"[anon:stack_and_tls:99]", 30},
      {"[anon: glibc: pthread stack: 99]", 30},
      {"[anon: glibc: malloc arena]", 2},
      {"[anon:scudo:primary]", 2},
      {"[anon:other]", 0},
      {"[anon_shmem:stack]", 0},
      {"[new word]", 0},
      {"", 0},
  };
  for (const auto &[word, tag] : tags) {
    const proc_regionwithpathinfo info =
        regionOf(std::string("1000-2000 rw-p 00000000 00:00 0      ").append(word));
    EXPECT_EQ(info.prp_prinfo.pri_user_tag, tag) << word;
    EXPECT_STREQ(info.prp_vip.vip_path, "") << word;
    EXPECT_EQ(info.prp_prinfo.pri_obj_id, 0u) << word;
  }
}

TEST_F(LinuxRegions, TagsMemoryThatIsShared) {
  const std::vector<std::pair<std::string, uint32_t>> tags = {
      {"rw-s 0 00:01 7 /dev/zero (deleted)", 32},
      {"rw-s 0 00:01 7 /SYSV00000000 (deleted)", 32},
      {"---s 0 00:01 7 /memfd:x (deleted)", 32},
      {"r--s 0 00:19 7 /dev/shm/x", 32},
      {"rw-s 0 00:01 7 [anon_shmem:x]", 32},
      {"rw-p 0 00:01 7 /memfd:x (deleted)", 0},
      {"rw-s 0 08:01 7 /var/file", 0},
      {"rw-s 0 08:01 7 /dev/shmx", 0},
  };
  for (const auto &[rest, tag] : tags) {
    const proc_regionwithpathinfo info = regionOf(std::string("1000-2000 ").append(rest));
    EXPECT_EQ(info.prp_prinfo.pri_user_tag, tag) << rest;
  }
}

TEST_F(LinuxRegions, FilesAreNoWords) {
  EXPECT_STREQ(regionOf("1000-2000 rw-s 0 00:01 5 /[heap]").prp_vip.vip_path, "/[heap]");
  EXPECT_EQ(found(0).prp_prinfo.pri_user_tag, 0u);
  EXPECT_STREQ(regionOf("1000-2000 rw-s 0 00:0f 5 anon_inode:[io_uring]").prp_vip.vip_path,
               "anon_inode:[io_uring]");
}

TEST_F(LinuxRegions, ShareModes) {
  const std::vector<std::pair<std::string, uint32_t>> modes = {
      {"rw-p 0 00:00 0", darwin::SM_PRIVATE},
      {"rwxp 0 00:00 0", darwin::SM_PRIVATE},
      {"---p 0 00:00 0", darwin::SM_EMPTY},
      {"rw-p 0 00:00 0 [heap]", darwin::SM_PRIVATE},
      {"rw-p 0 00:00 0 [stack]", darwin::SM_PRIVATE},
      {"r-xp 0 08:01 7 /lib/libx.so", darwin::SM_COW},
      {"---p 0 08:01 7 /lib/libx.so", darwin::SM_COW},
      {"rw-p 0 00:01 7 /memfd:x (deleted)", darwin::SM_COW},
      {"rw-p 0 00:0e 7 /anon_hugepage (deleted)", darwin::SM_LARGE_PAGE},
      {"rw-s 0 08:01 7 /var/file", darwin::SM_SHARED},
      {"---s 0 08:01 7 /var/file", darwin::SM_SHARED},
      {"rw-s 0 00:01 7 /dev/zero (deleted)", darwin::SM_SHARED},
      {"rw-s 0 00:01 7 /SYSV00000000 (deleted)", darwin::SM_SHARED},
      {"rw-s 0 00:01 7 [anon_shmem:x]", darwin::SM_SHARED},
      {"r-xp 0 00:00 0 [vdso]", darwin::SM_TRUESHARED},
      {"r--p 0 00:00 0 [vvar]", darwin::SM_TRUESHARED},
  };
  for (const auto &[rest, mode] : modes) {
    const proc_regionwithpathinfo info = regionOf(std::string("1000-2000 ").append(rest));
    EXPECT_EQ(info.prp_prinfo.pri_share_mode, mode) << rest;
    const bool isShared = rest[3] == 's';
    EXPECT_EQ(info.prp_prinfo.pri_inheritance, isShared ? 0u : 1u) << rest;
    EXPECT_EQ(info.prp_prinfo.pri_flags, isShared ? darwin::PROC_REGION_SHARED : 0) << rest;
  }
}

TEST_F(LinuxRegions, ProtectionsThatTheyMayBeRaisedTo) {
  const std::vector<std::pair<std::string, uint32_t>> most = {
      {"r--p 0 00:00 0", 7},
      {"---p 0 00:00 0", 7},
      {"r--p 0 08:01 7 /lib/libx.so", 7},
      {"rw-s 0 08:01 7 /var/file", 7},
      {"r--s 0 08:01 7 /var/file", 5},
      {"---s 0 08:01 7 /var/file", 5},
      {"r-xp 0 00:00 0 [vdso]", 7},
      {"r--p 0 00:00 0 [vvar]", 1},
      {"--xp 0 00:00 0 [vsyscall]", 4},
  };
  for (const auto &[rest, bits] : most) {
    EXPECT_EQ(regionOf(std::string("1000-2000 ").append(rest)).prp_prinfo.pri_max_protection, bits)
        << rest;
  }
  addMappedFile("1000-2000", 0400);
  EXPECT_EQ(regionOf("1000-2000 r--s 0 08:01 7 /var/file").prp_prinfo.pri_max_protection, 5u);
  addMappedFile("3000-4000", 0600);
  EXPECT_EQ(regionOf("3000-4000 r--s 0 08:01 7 /var/file").prp_prinfo.pri_max_protection, 7u);
}

TEST_F(LinuxRegions, PathsAreTheFilesOwn) {
  const std::map<std::string, std::string> paths = {{"/a\\012b", "/a\nb"},
                                                    {"/\\012\\012", "/\n\n"},
                                                    {"/a\\101\\", "/a\\101\\"},
                                                    {"/a (deleted)", "/a (deleted)"},
                                                    {"/\x1b[2J\xff", "/\x1b[2J\xff"},
                                                    {"/a  b ", "/a  b "}};
  for (const auto &[written, path] : paths) {
    EXPECT_EQ(regionOf("1000-2000 r--p 0 08:01 7   " + written).prp_vip.vip_path, path) << written;
  }
}

TEST_F(LinuxRegions, LongPathsAreCut) {
  const std::string path = std::string("/").append(std::string(3000, 'x'));
  writeMap("1000-2000 r--p 0 08:01 7 " + path + "\n2000-3000 rw-p 0 08:01 7 " + path + "\n");
  const std::vector<proc_regionwithpathinfo> all = walk();
  ASSERT_EQ(all.size(), 2u);
  for (const proc_regionwithpathinfo &info : all) {
    EXPECT_EQ(std::string(info.prp_vip.vip_path), path.substr(0, 1023));
  }
}

TEST_F(LinuxRegions, ObjectsAreTheSameForOneFileOnly) {
  writeMap(
      "1000-2000 r--p 0 08:01 7 /a\n2000-3000 rw-p 0 08:01 7 /a\n3000-4000 r--p 0 08:01 8 /b\n"
      "4000-5000 r--p 0 08:02 7 /c\n5000-6000 r--s 0 08:01 7 /a\n6000-7000 rw-p 0 00:00 0\n"
      "7000-8000 r--p 0 08:01 100000007 /d\n");
  std::vector<uint32_t> ids;
  for (const proc_regionwithpathinfo &info : walk()) ids.push_back(info.prp_prinfo.pri_obj_id);
  ASSERT_EQ(ids.size(), 7u);
  EXPECT_EQ(ids[0], ids[1]);
  EXPECT_EQ(ids[0], ids[4]);
  EXPECT_EQ(ids[5], 0u);
  EXPECT_EQ((std::set<uint32_t>{ids[0], ids[2], ids[3], ids[5], ids[6]}).size(), 5u);
}

TEST_F(LinuxRegions, LibrariesAreFilesMappedToBeExecuted) {
  writeMap(
      "1000-2000 r--p 0 08:01 1 /usr/bin/program\n2000-3000 r-xp 0 08:01 1 /usr/bin/program\n"
      "3000-4000 r--p 0 08:01 2 /lib/libx.so.6\n4000-5000 r-xp 0 08:01 2 /lib/libx.so.6\n"
      "5000-6000 ---p 0 08:01 2 /lib/libx.so.6\n6000-7000 rw-p 0 08:01 2 /lib/libx.so.6\n"
      "7000-8000 r--p 0 08:01 3 /lib/locale\n8000-9000 r--p 0 08:01 4 /lib64/ld-linux.so.2\n"
      "9000-a000 r-xp 0 08:01 4 /lib64/ld-linux.so.2\na000-b000 rwxs 0 08:01 5 /jit\n"
      "b000-c000 r-xp 0 08:01 6 /lib/ld-musl-x86_64.so.1\nc000-d000 r-xp 0 08:01 7 /lib/ld64.so.2\n"
      "d000-e000 r-xp 0 08:01 8 /lib/libldap.so.2\ne000-f000 r-xp 0 08:01 9 /lib/ldap\n"
      "f000-10000 r-xp 0 08:01 10 /lib/ld\n10000-11000 r-xp 0 08:01 11 /lib/ldx.so.1\n");
  const std::vector<uint32_t> tags = {0, 0, 33, 33, 33, 33, 0, 60, 60, 0, 60, 60, 33, 33, 33, 33};
  const std::vector<proc_regionwithpathinfo> all = walk();
  ASSERT_EQ(all.size(), tags.size());
  for (size_t i = 0; i < tags.size(); i++) {
    EXPECT_EQ(all[i].prp_prinfo.pri_user_tag, tags[i]) << all[i].prp_vip.vip_path;
  }
}

TEST_F(LinuxRegions, StacksAreWhereThreadsWait) {
  addThread(11, "35 0x1 0x2 0x3 0x4 0x5 0x6 0x27f0 0x1500\n");  // in the first one
  addThread(12, "-1 0x5000 0x1500\n");                          // at the very start of one
  addThread(13, "running\n");
  addThread(14, "-1 0x7800 0x1500\n");                      // in a library's data
  addThread(15, "-1 0x9800 0x1500\n");                      // in shared memory
  addThread(16, "-1 0xf0000 0x1500\n");                     // nowhere
  addThread(17, "-1 0xb800 0x1500\n");                      // in memory that can't be written
  addThread(18, "-1 0x3500 0x1500\n");                      // between two
  ASSERT_EQ(mkdir((path_ + "/task/19").c_str(), 0700), 0);  // gone meanwhile
  writeMap(
      "1000-2000 ---p 0 00:00 0\n2000-3000 rw-p 0 00:00 0\n4000-5000 rw-p 0 00:00 0\n"
      "5000-6000 rwxp 0 00:00 0\n7000-8000 rw-p 0 08:01 2 /lib/libx.so\n"
      "9000-a000 rw-s 0 00:01 5 /dev/zero (deleted)\nb000-c000 r--p 0 00:00 0\n");
  std::map<uint64_t, uint32_t> tags;
  for (const proc_regionwithpathinfo &info : walk()) {
    tags[info.prp_prinfo.pri_address] = info.prp_prinfo.pri_user_tag;
  }
  EXPECT_EQ(tags, (std::map<uint64_t, uint32_t>{{0x1000, 30},
                                                {0x2000, 30},
                                                {0x4000, 0},
                                                {0x5000, 30},
                                                {0x7000, 0},
                                                {0x9000, 32},
                                                {0xb000, 0}}));
}

TEST_F(LinuxRegions, MemoryWithoutAccessIsAGuard) {
  writeMap(
      "1000-2000 ---p 0 00:00 0\n2000-3000 rw-p 0 00:00 0\n3000-4000 ---p 0 00:00 0\n"
      "5000-6000 rw-p 0 00:00 0 [stack]\n6000-7000 ---p 0 00:00 0\n7000-8000 rw-p 0 00:00 0 "
      "[stack]\n"
      "9000-a000 ---p 0 00:00 0 [anon:x]\nb000-c000 ---p 0 08:01 2 /lib/libx.so\n"
      "d000-e000 ---s 0 00:01 5 /dev/zero (deleted)\nf000-10000 ---p 0 00:00 0 [heap]\n");
  const std::vector<uint32_t> tags = {31, 0, 31, 30, 30, 30, 31, 0, 32, 2};
  const std::vector<proc_regionwithpathinfo> all = walk();
  ASSERT_EQ(all.size(), tags.size());
  for (size_t i = 0; i < tags.size(); i++) EXPECT_EQ(all[i].prp_prinfo.pri_user_tag, tags[i]) << i;
}

// A map is read in pieces, between which its process goes on.
TEST_F(LinuxRegions, OverlappingLinesGiveNoOverlap) {
  writeMap(
      "1000-3000 r--p 1000 08:01 7 /a\n2000-5000 rw-p 3000 08:01 7 /a\n4000-5000 r--p 0 00:00 0\n"
      "what is this\n1000-2000 r--p 0 00:00 0\n6000-7000 r--p 0 00:00 0\n");
  const std::vector<proc_regionwithpathinfo> all = walk();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[1].prp_prinfo.pri_address, 0x3000u);
  EXPECT_EQ(all[1].prp_prinfo.pri_size, 0x2000u);
  EXPECT_EQ(all[1].prp_prinfo.pri_offset, 0x4000u);
  EXPECT_EQ(all[2].prp_prinfo.pri_address, 0x6000u);
}

std::string manyMappings(uint64_t count) {
  std::ostringstream text;
  text << std::hex;
  for (uint64_t i = 1; i <= count; i++) {
    text << i * 0x1000 << "-" << (i + 1) * 0x1000 << (i % 2 == 0 ? " r--p" : " rw-p")
         << " 00000000 00:00 0 \n";
  }
  return text.str();
}

TEST_F(LinuxRegions, AWalkReadsTheMapOnce) {
  constexpr size_t kMany = 60'000;
  writeMap(manyMappings(kMany));
  OpenCounter maps(path_ + "/maps");
  const std::vector<proc_regionwithpathinfo> all = walk();
  ASSERT_EQ(all.size(), kMany);
  for (size_t i = 0; i < kMany; i++) {
    ASSERT_EQ(all[i].prp_prinfo.pri_address, (i + 1) * 0x1000);
    ASSERT_EQ(all[i].prp_prinfo.pri_protection, (i + 1) % 2 == 0 ? 1u : 3u);
  }
  EXPECT_EQ(maps.count(), 1);
  walk();
  EXPECT_EQ(maps.count(), 2) << "the next one sees what is there by then";
}

// As a core file's walk asks: each region twice, by any address in it and by its start.
TEST_F(LinuxRegions, AWalkMayAskTwice) {
  constexpr uint64_t kMany = 1000;
  writeMap(manyMappings(kMany));
  OpenCounter maps(path_ + "/maps");
  uint64_t address = 0;
  proc_regionwithpathinfo info{};
  size_t seen = 0;
  while (find(address, info) == kAnswered) {
    seen++;
    const uint64_t start = info.prp_prinfo.pri_address;
    ASSERT_EQ(found(std::max(start, address)).prp_prinfo.pri_address, start);
    address = start + info.prp_prinfo.pri_size + 1;
  }
  EXPECT_EQ(seen, kMany);
  EXPECT_EQ(maps.count(), 1);
}

TEST_F(LinuxRegions, AWalkSeesOnePicture) {
  writeMap("1000-2000 rw-p 0 00:00 0\n3000-4000 rw-p 0 00:00 0\n");
  found(0);
  writeMap("2800-2900 rw-p 0 00:00 0\n");
  EXPECT_EQ(found(0x2001).prp_prinfo.pri_address, 0x3000u);
  EXPECT_EQ(found(0x2000).prp_prinfo.pri_address, 0x2800u) << "a lower address begins a new one";
}

TEST_F(LinuxRegions, AnotherProcessIsNeverAnsweredFor) {
  writeMap("1000-2000 rw-p 0 00:00 0\n3000-4000 rw-p 0 00:00 0\n");
  found(0);
  writeMap("2800-2900 rw-p 0 00:00 0\n");
  proc_regionwithpathinfo info{};
  ASSERT_EQ(find(0x2001, info, {kProcess.pid, kProcess.startTicks + 1}), kAnswered);
  EXPECT_EQ(info.prp_prinfo.pri_address, 0x2800u) << "a later one with its pid";
  writeMap("2a00-2b00 rw-p 0 00:00 0\n");
  ASSERT_EQ(find(0x2002, info, {kProcess.pid + 1, kProcess.startTicks + 1}), kAnswered);
  EXPECT_EQ(info.prp_prinfo.pri_address, 0x2a00u);
}

TEST_F(LinuxRegions, AnOldReadingIsNotUsedAgain) {
  writeMap("1000-2000 rw-p 0 00:00 0\n3000-4000 rw-p 0 00:00 0\n");
  Regions forgetful(std::chrono::milliseconds(0));
  proc_regionwithpathinfo info{};
  ASSERT_EQ(forgetful.find(directory_.get(), kProcess, 0, info), kAnswered);
  writeMap("2800-2900 rw-p 0 00:00 0\n");
  ASSERT_EQ(forgetful.find(directory_.get(), kProcess, 0x2001, info), kAnswered);
  EXPECT_EQ(info.prp_prinfo.pri_address, 0x2800u);
}

TEST_F(LinuxRegions, AFailureIsNotKept) {
  proc_regionwithpathinfo info{};
  EXPECT_EQ(find(5, info), darwin::DARWIN_ESRCH);
  writeMap("1000-2000 rw-p 0 00:00 0\n");
  EXPECT_EQ(found(6).prp_prinfo.pri_address, 0x1000u);
}

// A page that this process maps, between two without access.
class OwnMapping {
 public:
  OwnMapping(int protection, int flags, int file = -1) {
    area_ = static_cast<char *>(
        mmap(nullptr, 3 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    EXPECT_NE(area_, MAP_FAILED);
    EXPECT_NE(mmap(area_ + kPage, kPage, protection, flags | MAP_FIXED, file, 0), MAP_FAILED);
  }
  OwnMapping(const OwnMapping &) = delete;
  OwnMapping &operator=(const OwnMapping &) = delete;
  ~OwnMapping() { munmap(area_, 3 * kPage); }
  uint64_t address() const { return reinterpret_cast<uint64_t>(area_ + kPage); }

  static constexpr size_t kPage = 4096;

 private:
  char *area_;
};

proc_regionwithpathinfo ownRegion(uint64_t address) {
  const FileHandle self = openStartingPoint(AT_FDCWD, "/proc/self");
  Regions regions;
  proc_regionwithpathinfo info{};
  EXPECT_EQ(regions.find(self.get(), {getpid(), 1}, address, info), kAnswered);
  return info;
}

TEST(OwnRegions, OfAFileAreRaisedToWhatItWasOpenedFor) {
  char path[] = "/tmp/own_regions_test.XXXXXX";
  const FileHandle writable(mkostemp(path, O_CLOEXEC));
  ASSERT_EQ(ftruncate(writable.get(), OwnMapping::kPage), 0);
  const FileHandle readable(open(path, O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(unlink(path), 0);
  const OwnMapping first(PROT_READ, MAP_SHARED, writable.get());
  const OwnMapping second(PROT_READ, MAP_SHARED, readable.get());
  const OwnMapping third(PROT_READ, MAP_PRIVATE, readable.get());
  EXPECT_EQ(ownRegion(first.address()).prp_prinfo.pri_max_protection, 7u);
  EXPECT_EQ(ownRegion(second.address()).prp_prinfo.pri_max_protection, 5u);
  const proc_regionwithpathinfo copied = ownRegion(third.address());
  EXPECT_EQ(copied.prp_prinfo.pri_max_protection, 7u);
  EXPECT_EQ(copied.prp_prinfo.pri_share_mode, darwin::SM_COW);
  EXPECT_EQ(std::string(copied.prp_vip.vip_path), std::string(path).append(" (deleted)"));
}

TEST(OwnRegions, OfTheStackTheHeapAndTheProgram) {
  // Not a variable's address: a sanitizer may keep variables elsewhere.
  const auto onStack = reinterpret_cast<uint64_t>(__builtin_frame_address(0));
  EXPECT_EQ(ownRegion(onStack).prp_prinfo.pri_user_tag, 30u);
  const proc_regionwithpathinfo code = ownRegion(reinterpret_cast<uint64_t>(&ownRegion));
  EXPECT_EQ(code.prp_prinfo.pri_protection, 5u);
  EXPECT_EQ(code.prp_prinfo.pri_user_tag, 0u);
  EXPECT_EQ(std::string(code.prp_vip.vip_path),
            std::filesystem::read_symlink("/proc/self/exe").string());
  const proc_regionwithpathinfo library = ownRegion(reinterpret_cast<uint64_t>(&getpid));
  EXPECT_EQ(library.prp_prinfo.pri_share_mode, darwin::SM_COW) << library.prp_vip.vip_path;
}

}  // namespace
}  // namespace host::linux_machine
