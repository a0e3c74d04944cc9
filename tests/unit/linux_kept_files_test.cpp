// Files that stay open from one look at a process to the next: whose they are, how many there may
// be, and that what they say is never older than the look.
#include "host/linux/kept_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "host/linux/linux_machine.h"
#include "tests/unit/child_process.h"
#include "tests/unit/waiting.h"

namespace host::linux_machine {
namespace {

constexpr size_t kFiles = KeptFiles::kCount;

std::set<int> descriptorNumbers() {
  std::vector<int32_t> numbers;
  DirectoryReader lister;
  const FileHandle directory = openDirectory(AT_FDCWD, "/proc/self/fd");
  EXPECT_EQ(lister.readNumbers(directory.get(), numbers), kAnswered);
  std::set<int> set(numbers.begin(), numbers.end());
  set.erase(directory.get());
  return set;
}

class LinuxKeptFilesTest : public testing::Test {
 protected:
  darwin::proc_taskallinfo look(const Child &child) {
    darwin::proc_taskallinfo info{};
    EXPECT_EQ(machine_->taskAllInfo(child.pid(), info), kAnswered);
    return info;
  }
  // As between two samples.
  void beginPass() {
    std::vector<int32_t> pids;
    EXPECT_EQ(machine_->processIDs(pids), kAnswered);
  }

  std::unique_ptr<Machine> machine_ = makeLinuxMachine();
};

TEST_F(LinuxKeptFilesTest, StayOpenUntilTheProcessIsGone) {
  Child child(sleeping);
  beginPass();
  const size_t before = openDescriptors();
  look(child);
  EXPECT_EQ(openDescriptors(), before + kFiles + 1) << "and the directory of the present one";
  // One that has run since the last look has its directory opened again.
  ASSERT_TRUE(waitUntil([&] { return look(child).pbsd.pbi_status == darwin::SSLEEP; }));
  for (int round = 0; round < 3; round++) {
    beginPass();
    look(child);
    EXPECT_EQ(openDescriptors(), before + kFiles);
  }
  child.end();
  beginPass();
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LinuxKeptFilesTest, AreNotForProgramsThatAreStartedLater) {
  Child child(sleeping);
  const std::set<int> before = descriptorNumbers();
  look(child);
  size_t opened = 0;
  for (const int fd : descriptorNumbers()) {
    if (before.contains(fd)) continue;
    opened++;
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << fd;
  }
  EXPECT_EQ(opened, kFiles + 1);
}

TEST_F(LinuxKeptFilesTest, AreListedAmongTheProgramsOwnDescriptors) {
  Child child(sleeping);
  look(child);
  std::vector<darwin::proc_fdinfo> list;
  ASSERT_EQ(machine_->descriptors(getpid(), 1000, list), kAnswered);
  size_t kept = 0;
  for (const darwin::proc_fdinfo &entry : list) {
    char link[256];
    const std::string name = "/proc/self/fd/" + std::to_string(entry.proc_fd);
    const ssize_t length = readlink(name.c_str(), link, sizeof link);
    if (length < 0) continue;
    const std::string_view text(link, static_cast<size_t>(length));
    EXPECT_EQ(entry.proc_fdtype, descriptorTypeOfLink(text)) << text;
    if (text.starts_with("/proc/" + std::to_string(child.pid()) + "/")) kept++;
  }
  EXPECT_EQ(kept, kFiles);
}

TEST_F(LinuxKeptFilesTest, AreNotThoseOfTheNextOwnerOfThePid) {
  Child first(sleeping);
  const pid_t pid = first.pid();
  const darwin::proc_taskallinfo before = look(first);
  first.end();
  // Start times are told in hundredths of a second.
  usleep(20'000);
  const pid_t second = startAs(pid);
  if (second == 0) GTEST_SKIP() << "needs the right to choose a pid";
  darwin::proc_taskallinfo info{};
  EXPECT_EQ(machine_->taskAllInfo(pid, info), kAnswered) << "no pass began between the two";
  EXPECT_GT(info.pbsd.pbi_start_tvsec * 1'000'000 + info.pbsd.pbi_start_tvusec,
            before.pbsd.pbi_start_tvsec * 1'000'000 + before.pbsd.pbi_start_tvusec);
  std::vector<darwin::proc_fdinfo> list;
  EXPECT_EQ(machine_->descriptors(pid, 8, list), kAnswered);
  EXPECT_FALSE(list.empty());
  __real_kill(second, SIGKILL);
  waitpid(second, nullptr, 0);
  EXPECT_EQ(machine_->taskAllInfo(pid, info), darwin::DARWIN_ESRCH);
}

TEST_F(LinuxKeptFilesTest, WhatOthersChangeOfASleepingProcessIsSeenAtOnce) {
  Child child(sleeping);
  ASSERT_TRUE(waitUntil([&] { return look(child).pbsd.pbi_status == darwin::SSLEEP; }));
  const int nice = std::min(getpriority(PRIO_PROCESS, 0), 18);
  ASSERT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(child.pid()), nice + 1), 0);
  EXPECT_EQ(look(child).pbsd.pbi_nice, nice + 1);

  child.signalAndWait(SIGSTOP, WSTOPPED);
  EXPECT_EQ(look(child).pbsd.pbi_status, darwin::SSTOP);

  if (!machine_->isPrivileged()) return;
  const auto band = [&] { return bandOf(*machine_, child.pid()); };
  EXPECT_EQ(band(), 10);
  std::ofstream("/proc/" + std::to_string(child.pid()) + "/oom_score_adj") << 1000;
  EXPECT_EQ(band(), 0);
}

TEST_F(LinuxKeptFilesTest, AParentThatEndsIsSeenAtOnce) {
  int pids[2];
  ASSERT_EQ(pipe2(pids, O_CLOEXEC), 0);
  Child parent([&](const std::function<void()> &ready) {
    const pid_t child = fork();
    if (child == 0) sleepForever();
    if (write(pids[1], &child, sizeof child) != sizeof child) _exit(1);
    sleeping(ready);
  });
  pid_t child = 0;
  ASSERT_EQ(read(pids[0], &child, sizeof child), static_cast<ssize_t>(sizeof child));
  for (const int fd : pids) close(fd);
  const auto parentOf = [&] {
    darwin::proc_bsdinfo info{};
    EXPECT_EQ(machine_->bsdInfo(child, false, info), kAnswered);
    return static_cast<pid_t>(info.pbi_ppid);
  };
  EXPECT_EQ(parentOf(), parent.pid());
  const pid_t former = parent.pid();
  parent.end();
  EXPECT_NE(parentOf(), former);
  __real_kill(child, SIGKILL);
}

// A child with `count` threads that sleep, and one more that does what it is told by a byte: 'd'
// opens a descriptor, 't' starts a thread that sleeps, 'e' starts one that ends.
class ThreadedChild {
 public:
  explicit ThreadedChild(int count) {
    EXPECT_EQ(pipe2(orders_, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(answers_, O_CLOEXEC), 0);
    child_.emplace([this, count](const std::function<void()> &ready) {
      for (int i = 0; i < count; i++) std::thread(sleepForever).detach();
      std::thread([this] { obey(); }).detach();
      ready();
      sleepForever();
    });
  }
  ~ThreadedChild() {
    for (const int fd : {orders_[0], orders_[1], answers_[0], answers_[1]}) close(fd);
  }

  pid_t pid() const { return child_->pid(); }
  void order(char what) {
    char done = 0;
    ASSERT_EQ(write(orders_[1], &what, 1), 1);
    ASSERT_EQ(read(answers_[0], &done, 1), 1);
  }

 private:
  void obey() {
    for (char what = 0; read(orders_[0], &what, 1) == 1;) {
      if (what == 'd' && dup(orders_[0]) < 0) _exit(1);
      if (what == 't') std::thread(sleepForever).detach();
      if (what == 'e') std::thread([] {}).join();
      if (write(answers_[1], "d", 1) != 1) _exit(1);
    }
  }

  int orders_[2];
  int answers_[2];
  std::optional<Child> child_;
};

TEST_F(LinuxKeptFilesTest, ThreadsAreReadThroughTheirsUntilOneComesOrGoes) {
  ThreadedChild child(4);
  const auto threads = [&] {
    std::vector<uint64_t> ids;
    beginPass();
    EXPECT_EQ(machine_->threadIDs(child.pid(), ids), kAnswered);
    return ids;
  };
  const auto descriptorCount = [&] {
    std::vector<darwin::proc_fdinfo> list;
    beginPass();
    EXPECT_EQ(machine_->descriptors(child.pid(), 100, list), kAnswered);
    return list.size();
  };
  ASSERT_TRUE(waitUntil([&] { return threads().size() == 6; }));
  const size_t descriptors = descriptorCount();
  child.order('d');
  EXPECT_EQ(descriptorCount(), descriptors + 1) << "a thread but the first one ran";
  EXPECT_EQ(descriptorCount(), descriptors + 1);
  child.order('t');
  EXPECT_EQ(threads().size(), 7u);
  child.order('e');
  const std::vector<uint64_t> ids = threads();
  EXPECT_EQ(ids.size(), 7u);
  for (int round = 0; round < 3; round++) {
    EXPECT_EQ(threads(), ids);
    EXPECT_EQ(descriptorCount(), descriptors + 1);
  }

  ASSERT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(ids.back()), 6), 0);
  beginPass();
  darwin::proc_threadinfo info{};
  ASSERT_EQ(machine_->threadInfoByID(child.pid(), ids.back(), info), kAnswered);
  EXPECT_EQ(info.pth_curpri, 25) << "31 less its nice value";
}

TEST_F(LinuxKeptFilesTest, OfThreadsGoWithTheirProcess) {
  beginPass();
  const size_t before = openDescriptors();
  {
    ThreadedChild child(4);
    std::vector<uint64_t> ids;
    ASSERT_TRUE(waitUntil(
        [&] { return machine_->threadIDs(child.pid(), ids) == kAnswered && ids.size() == 6; }));
    EXPECT_GE(openDescriptors(), before + kFiles + 6 * KeptThreadFiles::kCount);
  }
  beginPass();
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LinuxKeptFilesTest, ArePartOfWhatTheProgramMayOpen) {
  // In a process of its own: a limit that was lowered can't be raised again.
  const pid_t tester = fork();
  if (tester == 0) {
    const size_t before = openDescriptors();
    const rlimit low = {before + 8, before + 12};
    if (setrlimit(RLIMIT_NOFILE, &low) != 0) _exit(2);
    const size_t most = (before + 12) / 4 * 3;
    if (descriptorsToKeep() != most) _exit(3);

    KnownProcesses known(2 * kFiles + 1);
    DescriptorBudget &budget = known.budget();
    const FileHandle self = openStartingPoint(AT_FDCWD, "/proc/self");
    const auto isOpen = [&](size_t files) {
      return openDescriptors() == before + 1 + files && budget.open() == files;
    };
    for (int32_t pid = 1; pid <= 3; pid++) {
      known.find(pid, 1).files = openKeptFiles(budget, self.get());
    }
    if (!isOpen(2 * kFiles) || budget.hasRoomFor(2) || !budget.hasRoomFor(1)) _exit(4);
    known.find(2, 5);  // another process has that pid now
    if (!isOpen(kFiles)) _exit(5);
    known.keepOnly({3});
    if (!isOpen(0)) _exit(6);
    known.find(3, 1).files = openKeptFiles(budget, self.get());
    if (!isOpen(kFiles)) _exit(7);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(tester, &status, 0), tester);
  EXPECT_EQ(status, 0) << "step " << WEXITSTATUS(status);
}

// Beyond the budget everything is as true, only dearer.
TEST_F(LinuxKeptFilesTest, AProcessThatThereIsNoRoomForIsReadAnew) {
  Child child(sleeping);
  const FileHandle proc = openDirectory(AT_FDCWD, "/proc");
  KnownProcesses known(0);
  const TaskSurvey survey;
  PresentProcess present(proc.get(), known, survey);
  const size_t before = openDescriptors();
  for (const int nice : {1, 5, 9}) {
    ASSERT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(child.pid()), nice), 0);
    ASSERT_EQ(present.read(child.pid()), kAnswered);
    EXPECT_EQ(present.stat().nice, nice);
    EXPECT_EQ(openDescriptors(), before + 1) << "its directory";
  }
}

TEST_F(LinuxKeptFilesTest, NoneIsOpenWhereOneIsMissing) {
  DescriptorBudget budget(100);
  const FileHandle folder = openStartingPoint(AT_FDCWD, "/proc/sys");
  EXPECT_FALSE(openKeptFiles(budget, -1).areOpen());
  EXPECT_FALSE(openKeptFiles(budget, folder.get()).areOpen());
  EXPECT_FALSE(openKeptThreadFiles(budget, folder.get(), 1).areOpen());
  EXPECT_EQ(budget.open(), 0u);
}

}  // namespace
}  // namespace host::linux_machine
