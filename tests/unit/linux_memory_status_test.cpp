// Jetsam bands and limits from Linux's figures, over tables and a made-up tree of control groups.
#include "host/darwin/errors.h"
#include "host/linux/memory_status.h"
#include "host/posix.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace host::linux_machine {
namespace {

using testing::ElementsAre;

TEST(LinuxMemoryStatus, BandsFallAsTheScoreRises) {
  EXPECT_EQ(jetsamBand(0), 10);
  EXPECT_EQ(jetsamBand(1000), 0);
  EXPECT_EQ(jetsamBand(-1000), 21);
  EXPECT_EQ(jetsamBand(500), 5);
  EXPECT_EQ(jetsamBand(5000), 0);
  EXPECT_EQ(jetsamBand(INT32_MIN), 21);
  for (int32_t score = -999; score <= 1000; score++) {
    EXPECT_LE(jetsamBand(score), jetsamBand(score - 1));
  }
}

TEST(LinuxMemoryStatus, EveryBandHasAScoreThatReadsAsThatBand) {
  for (int32_t band = 0; band <= 21; band++) {
    const int32_t score = scoreAdjustment(band);
    EXPECT_GE(score, -1000) << band;
    EXPECT_LE(score, 1000) << band;
    EXPECT_EQ(jetsamBand(score), band);
  }
  EXPECT_EQ(scoreAdjustment(10), 0) << "the usual one";
  EXPECT_EQ(scoreAdjustment(21), -1000) << "never ended";
}

TEST(LinuxMemoryStatus, LimitsAreMegabytes) {
  EXPECT_EQ(jetsamLimit(kNoMemoryLimit), -1);
  EXPECT_EQ(jetsamLimit(0), 0);
  EXPECT_EQ(jetsamLimit((uint64_t{1} << 20) - 1), 0);
  EXPECT_EQ(jetsamLimit(uint64_t{512} << 20), 512);
  EXPECT_EQ(jetsamLimit(uint64_t{1} << 60), INT32_MAX);
}

TEST(LinuxCgroupLimits, LimitTexts) {
  EXPECT_EQ(parseMemoryLimit("max\n"), kNoMemoryLimit);
  EXPECT_EQ(parseMemoryLimit("0\n"), 0u);
  EXPECT_EQ(parseMemoryLimit("1073741824\n"), 1073741824u);
  EXPECT_EQ(parseMemoryLimit("9223372036854771712\n"), kNoMemoryLimit) << "4 KiB pages";
  EXPECT_EQ(parseMemoryLimit("9223372036854710272\n"), kNoMemoryLimit) << "64 KiB pages";
  EXPECT_EQ(parseMemoryLimit(""), kNoMemoryLimit);
  EXPECT_EQ(parseMemoryLimit("-1\n"), kNoMemoryLimit);
}

TEST(LinuxCgroupLimits, MountsThatMayLimitMemory) {
  EXPECT_THAT(
      parseCgroupMounts(
          "31 23 0:28 / /sys/fs/cgroup rw,relatime - tmpfs tmpfs rw,mode=755\n"
          "32 31 0:29 / /sys/fs/cgroup/cpu rw,relatime - cgroup cgroup rw,cpu\n"
          "35 31 0:32 / /sys/fs/cgroup/mem\\040ory rw shared:9 master:3 - cgroup cgroup rw,memory\n"
          "36 31 0:33 / /x rw - cgroup cgroup rw,memoryless\n"
          "40 31 0:37 / /sys/fs/cgroup/systemd rw - cgroup cgroup rw,name=memory\n"
          "41 31 0:38 / /sys/fs/cgroup/unified rw,relatime - cgroup2 cgroup2 rw\n"
          "42 31 0:39 / /cut rw - cgroup2\n"
          "43 31 0:39 / /no/dash rw cgroup2 cgroup2 rw\n"
          "44 31 0:38 / /unfinished rw - cgroup2 cgroup2 rw"),
      ElementsAre(CgroupMount{"/sys/fs/cgroup/mem ory", true},
                  CgroupMount{"/sys/fs/cgroup/unified", false}));
}

// In a child with mounts of its own: what is mounted there is gone with it.
TEST(LinuxCgroupLimits, MountsAreReadAnewWhenOneComesOrGoes) {
  constexpr int kMayNotMount = 77;
  constexpr char kPlace[] = "/sys/fs";
  const pid_t tester = fork();
  if (tester == 0) {
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
      _exit(kMayNotMount);
    }
    CgroupMounts mounts;
    const std::vector<CgroupMount> before = mounts.read();
    if (before != readCgroupMounts() || mounts.read() != before) _exit(1);
    if (mount("none", kPlace, "cgroup2", 0, nullptr) != 0) _exit(kMayNotMount);
    for (int round = 0; round < 2; round++) {
      const std::vector<CgroupMount> &now = mounts.read();
      if (std::count(now.begin(), now.end(), CgroupMount{kPlace, false}) != 1) _exit(2);
    }
    if (umount(kPlace) != 0 || mounts.read() != before) _exit(3);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(tester, &status, 0), tester);
  ASSERT_TRUE(WIFEXITED(status));
  if (WEXITSTATUS(status) == kMayNotMount) GTEST_SKIP() << "may not mount";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

class CgroupTree : public testing::Test {
 protected:
  CgroupTree() : root_(std::filesystem::path("/tmp/linux_cgroup_test.XXXXXX")) {
    std::string name = root_.string();
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    root_ = name;
  }
  ~CgroupTree() override { std::filesystem::remove_all(root_); }

  void put(const std::string &file, const std::string &text) {
    std::filesystem::create_directories((root_ / file).parent_path());
    std::ofstream(root_ / file) << text;
  }
  std::vector<CgroupMount> mounted(bool isVersion1) const { return {{root_.string(), isVersion1}}; }

  std::filesystem::path root_;
  CgroupLimits limits_;
};

TEST_F(CgroupTree, ALimitHoldsForAllBelow) {
  put("cgroup.controllers", "cpu memory pids\n");
  put("cgroup.procs", "1\n2\n");
  put("free/memory.max", "max\n");
  put("free/cgroup.procs", "3\n");
  put("tight/memory.max", "1000000\n");
  put("tight/cgroup.procs", "4\n5\n");
  put("tight/looser/memory.max", "2000000\n");
  put("tight/looser/cgroup.procs", "6\n");
  put("tight/tighter/memory.max", "500000\n");
  put("tight/tighter/none/memory.max", "max\n");
  put("tight/tighter/none/cgroup.procs", "7\n");
  limits_.read(mounted(false));
  EXPECT_EQ(limits_.of(1), kNoMemoryLimit);
  EXPECT_EQ(limits_.of(3), kNoMemoryLimit);
  EXPECT_EQ(limits_.of(4), 1000000u);
  EXPECT_EQ(limits_.of(5), 1000000u);
  EXPECT_EQ(limits_.of(6), 1000000u);
  EXPECT_EQ(limits_.of(7), 500000u);
  EXPECT_EQ(limits_.of(8), kNoMemoryLimit);
  limits_.read({});
  EXPECT_EQ(limits_.of(4), kNoMemoryLimit) << "each reading starts anew";
}

TEST_F(CgroupTree, Version1HasItsOwnNames) {
  put("memory.limit_in_bytes", "9223372036854771712\n");
  put("cgroup.procs", "1\n");
  put("a/memory.limit_in_bytes", "4096\n");
  put("a/cgroup.procs", "2\nnonsense\n3\n99999999999\n4");
  limits_.read(mounted(true));
  EXPECT_EQ(limits_.of(1), kNoMemoryLimit);
  EXPECT_EQ(limits_.of(2), 4096u);
  EXPECT_EQ(limits_.of(3), 4096u);
  EXPECT_EQ(limits_.of(4), kNoMemoryLimit) << "a line that is cut is not read";
}

TEST_F(CgroupTree, Version2WithoutTheControllerHasNoLimits) {
  put("cgroup.controllers", "hugetlb\n");
  put("a/memory.max", "4096\n");
  put("a/cgroup.procs", "2\n");
  limits_.read(mounted(false));
  EXPECT_EQ(limits_.of(2), kNoMemoryLimit);
}

TEST_F(CgroupTree, AMountThatIsGoneHasNoLimits) {
  limits_.read({{(root_ / "gone").string(), true}, {(root_ / "gone").string(), false}});
  EXPECT_EQ(limits_.of(2), kNoMemoryLimit);
}

TEST_F(CgroupTree, AVeryDeepTreeEnds) {
  std::string path = "memory.limit_in_bytes";
  put(path, "4096\n");
  std::filesystem::path deep = root_;
  for (int depth = 0; depth < 200; depth++) deep /= "d";
  std::filesystem::create_directories(deep);
  std::ofstream(root_ / "d" / "cgroup.procs") << "2\n";
  std::ofstream(deep / "cgroup.procs") << "3\n";
  limits_.read(mounted(true));
  EXPECT_EQ(limits_.of(2), 4096u);
  EXPECT_EQ(limits_.of(3), kNoMemoryLimit);
}

// A group that a child has to itself, in a made-up tree.
class OwnGroup : public CgroupTree {
 protected:
  OwnGroup() : pid_(fork()) {
    if (pid_ == 0) {
      for (;;) pause();
    }
    process_ = openStartingPoint(AT_FDCWD, ("/proc/" + std::to_string(pid_)).c_str());
    EXPECT_TRUE(process_.isOpen());
  }
  ~OwnGroup() override { end(); }

  void end() {
    if (pid_ <= 0) return;
    __real_kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

  void putVersion2() {
    put("cgroup.controllers", "memory\n");
    put("cgroup.procs", "1\n");
    put("others/memory.max", "1048576\n");
    put("others/cgroup.procs", "1\n" + member());
    put("slice/memory.max", "1073741824\n");
    put("slice/cgroup.procs", "");
    put("slice/own/memory.max", "104857600\n");
    put("slice/own/cgroup.procs", member());
  }
  std::string member() const { return std::to_string(pid_) + "\n"; }
  std::string text(const std::string &file) const {
    std::ifstream in(root_ / file);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  Errno read(darwin::memorystatus_memlimit_properties &limits, bool isVersion1 = false) const {
    return readOwnLimits(process_.get(), pid_, mounted(isVersion1), limits);
  }
  Errno write(const darwin::memorystatus_memlimit_properties &limits,
              bool isVersion1 = false) const {
    return writeOwnLimits(process_.get(), pid_, mounted(isVersion1), limits);
  }
  Errno write(int32_t limit, bool isVersion1 = false) const {
    return write({limit, 1, limit, 1}, isVersion1);
  }

  pid_t pid_;
  FileHandle process_;
};

TEST_F(OwnGroup, LimitOfVersion2IsReadAndWritten) {
  putVersion2();
  darwin::memorystatus_memlimit_properties limits{};
  ASSERT_EQ(read(limits), kAnswered);
  EXPECT_EQ(limits.memlimit_active, 100);
  EXPECT_EQ(limits.memlimit_inactive, 100);
  EXPECT_EQ(limits.memlimit_active_attr, 1u);
  EXPECT_EQ(limits.memlimit_inactive_attr, 1u);

  EXPECT_EQ(write(64), kAnswered);
  EXPECT_EQ(text("slice/own/memory.max"), "67108864\n");
  EXPECT_EQ(write(INT32_MAX), kAnswered);
  EXPECT_EQ(text("slice/own/memory.max"), "2251799812636672\n");
  for (const int32_t none : {0, -1, INT32_MIN}) {
    EXPECT_EQ(write(64), kAnswered);
    EXPECT_EQ(write(none), kAnswered);
    EXPECT_EQ(text("slice/own/memory.max"), "max\n");
  }
  ASSERT_EQ(read(limits), kAnswered);
  EXPECT_EQ(limits.memlimit_active, -1);
  EXPECT_EQ(text("others/memory.max"), "1048576\n");
  EXPECT_EQ(text("slice/memory.max"), "1073741824\n");
}

TEST_F(OwnGroup, LimitOfVersion1IsReadAndWritten) {
  put("memory.limit_in_bytes", "9223372036854771712\n");
  put("cgroup.procs", "1\n");
  put("own/memory.limit_in_bytes", "9223372036854771712\n");
  put("own/cgroup.procs", member());
  darwin::memorystatus_memlimit_properties limits{};
  ASSERT_EQ(read(limits, true), kAnswered);
  EXPECT_EQ(limits.memlimit_active, -1);
  EXPECT_EQ(write(2, true), kAnswered);
  EXPECT_EQ(text("own/memory.limit_in_bytes"), "2097152\n");
  EXPECT_EQ(write(-1, true), kAnswered);
  EXPECT_EQ(text("own/memory.limit_in_bytes"), "-1\n");
}

TEST_F(OwnGroup, AGroupWithOthersIsNotItsOwn) {
  put("cgroup.controllers", "memory\n");
  put("shared/memory.max", "1048576\n");
  darwin::memorystatus_memlimit_properties limits{};
  for (const std::string &members :
       {member() + "1\n", "1\n" + member(), std::string("1\n"), std::string(), "1" + member()}) {
    put("shared/cgroup.procs", members);
    EXPECT_EQ(read(limits), darwin::DARWIN_ENOTSUP) << members;
    EXPECT_EQ(write(64), darwin::DARWIN_ENOTSUP) << members;
  }
  // What is set there would hold for the groups below it too.
  put("shared/cgroup.procs", member());
  put("shared/below/cgroup.procs", "");
  EXPECT_EQ(write(64), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(text("shared/memory.max"), "1048576\n");
}

TEST_F(OwnGroup, HierarchiesWithoutLimitsHaveNone) {
  put("cgroup.controllers", "cpu\n");
  put("own/memory.max", "1048576\n");
  put("own/cgroup.procs", member());
  EXPECT_EQ(write(64), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(text("own/memory.max"), "1048576\n");
  EXPECT_EQ(writeOwnLimits(process_.get(), pid_, {}, {64, 1, 64, 1}), darwin::DARWIN_ENOTSUP);
}

TEST_F(OwnGroup, LimitsThatAGroupCantHaveAreRefused) {
  putVersion2();
  EXPECT_EQ(write({64, 1, 32, 1}), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(write({64, 0, 64, 1}), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(write({64, 1, 64, 0}), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(text("slice/own/memory.max"), "104857600\n");
}

TEST_F(OwnGroup, APidThatHasAnotherOwnerByNowIsLeftAlone) {
  putVersion2();
  end();
  pid_ = getpid();
  put("slice/own/cgroup.procs", member());
  darwin::memorystatus_memlimit_properties limits{};
  EXPECT_EQ(read(limits), darwin::DARWIN_ESRCH);
  EXPECT_EQ(write(64), darwin::DARWIN_ESRCH);
  EXPECT_EQ(text("slice/own/memory.max"), "104857600\n");
  pid_ = -1;
}

TEST_F(OwnGroup, ALinkInPlaceOfTheLimitIsNotFollowed) {
  putVersion2();
  put("elsewhere", "precious\n");
  std::filesystem::remove(root_ / "slice/own/memory.max");
  std::filesystem::create_symlink(root_ / "elsewhere", root_ / "slice/own/memory.max");
  EXPECT_EQ(write(64), darwin::DARWIN_EIO);
  EXPECT_EQ(text("elsewhere"), "precious\n");
}

TEST_F(OwnGroup, WithoutTheFileThereIsNoLimit) {
  putVersion2();
  std::filesystem::remove(root_ / "slice/own/memory.max");
  darwin::memorystatus_memlimit_properties limits{};
  EXPECT_EQ(read(limits), darwin::DARWIN_ENOENT);
  EXPECT_EQ(write(64), darwin::DARWIN_ENOENT);
}

pid_t startWaiting(const char *score) {
  int ready[2];
  EXPECT_EQ(pipe(ready), 0);
  pid_t pid = fork();
  if (pid == 0) {
    int file = open("/proc/self/oom_score_adj", O_WRONLY);
    char told = file >= 0 && write(file, score, strlen(score)) > 0 ? 'y' : 'n';
    if (write(ready[1], &told, 1) != 1) _exit(1);
    for (;;) pause();
  }
  char told = 'n';
  EXPECT_EQ(read(ready[0], &told, 1), 1);
  EXPECT_EQ(told, 'y');
  close(ready[0]);
  close(ready[1]);
  return pid;
}

TEST(LinuxMemoryStatus, ListsTheLivingLowestBandFirst) {
  pid_t first = startWaiting("1000");
  pid_t second = startWaiting("300");
  pid_t zombie = fork();
  if (zombie == 0) _exit(0);
  siginfo_t ended{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(zombie), &ended, WEXITED | WNOWAIT), 0);

  MemoryStatus status;
  FileHandle proc = openDirectory(AT_FDCWD, "/proc");
  std::vector<darwin::memorystatus_priority_entry> entries;
  KnownProcesses known;
  status.list(proc.get(), {zombie, second, first, getpid(), INT32_MAX}, TaskSurvey(), known,
              entries);
  std::vector<int32_t> pids;
  std::vector<int32_t> bands;
  for (const auto &entry : entries) {
    pids.push_back(entry.pid);
    bands.push_back(entry.priority);
  }
  EXPECT_EQ(pids.front(), first);
  EXPECT_THAT(pids, testing::UnorderedElementsAre(first, second, getpid()));
  EXPECT_EQ(bands.front(), 0);
  EXPECT_TRUE(std::is_sorted(bands.begin(), bands.end()));
  for (const auto &entry : entries) {
    if (entry.pid == second) {
      EXPECT_EQ(entry.priority, 7);
    }
  }
  for (pid_t pid : {first, second}) __real_kill(pid, SIGKILL);
  for (pid_t pid : {first, second, zombie}) waitpid(pid, nullptr, 0);
}

TEST(LinuxMemoryStatus, OneThatEndedSinceTheLastLookIsInOneMoreList) {
  pid_t pid = startWaiting("300");
  KnownProcesses known;
  known.find(pid, 1).isAlive = true;
  __real_kill(pid, SIGKILL);
  siginfo_t ended{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOWAIT), 0);

  MemoryStatus status;
  FileHandle proc = openDirectory(AT_FDCWD, "/proc");
  std::vector<darwin::memorystatus_priority_entry> entries;
  status.list(proc.get(), {pid, getpid()}, TaskSurvey(), known, entries);
  EXPECT_EQ(entries.size(), 2u);
  status.list(proc.get(), {pid, getpid()}, TaskSurvey(), known, entries);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries.front().pid, getpid());

  // Once it is reaped there is nothing left to list.
  known.find(pid, 1).isAlive = true;
  waitpid(pid, nullptr, 0);
  status.list(proc.get(), {pid, getpid()}, TaskSurvey(), known, entries);
  EXPECT_EQ(entries.size(), 1u);
}

}  // namespace
}  // namespace host::linux_machine
