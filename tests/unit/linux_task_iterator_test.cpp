// The kernel's records of all tasks, beside what its files say.
#include "host/linux/task_iterator.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "host/linux/kernel_looks.h"
#include "host/linux/task_survey.h"
#include "tests/unit/child_process.h"
#include "tests/unit/waiting.h"

namespace host::linux_machine {
namespace {

class LinuxTaskIteratorTest : public testing::Test {
 protected:
  void SetUp() override {
    tasks_ = KernelLooks::load(proc_.get()).tasks;
    if (!tasks_) GTEST_SKIP() << "this kernel gives no look at all tasks to this user";
  }
  std::vector<TaskRecord> look() {
    std::vector<TaskRecord> records;
    EXPECT_TRUE(tasks_->read(records));
    return records;
  }
  std::vector<TaskRecord> lookAt(pid_t process) {
    std::vector<TaskRecord> records = look();
    std::erase_if(records, [process](const auto &task) { return task.process != process; });
    return records;
  }
  ProcessStat statOf(const std::string &name) {
    FileReader reader;
    std::string_view text;
    ProcessStat stat{};
    EXPECT_EQ(reader.readRecord(proc_.get(), (name + "/stat").c_str(), text), kAnswered);
    EXPECT_TRUE(parseProcessStat(text, stat));
    return stat;
  }

  const FileHandle proc_ = openDirectory(AT_FDCWD, "/proc");
  std::optional<TaskIterator> tasks_;
};

TEST_F(LinuxTaskIteratorTest, RecordsOfASleepingChildAreWhatItsFilesSay) {
  Child child([](const std::function<void()> &ready) {
    const sched_param parameters{};
    if (sched_setscheduler(0, SCHED_BATCH, &parameters) != 0 || setpgid(0, 0) != 0) _exit(1);
    if (setpriority(PRIO_PROCESS, 0, 17) != 0) _exit(1);
    std::ofstream("/proc/self/oom_score_adj") << 321;
    sleeping(ready);
  });
  const std::string folder = "/proc/" + std::to_string(child.pid());
  std::vector<TaskRecord> records;
  ASSERT_TRUE(waitUntil([&] {
    records = lookAt(child.pid());
    return records.size() == 1 && agrees(records[0], statOf(std::to_string(child.pid())));
  }));
  const TaskRecord &task = records[0];
  const ProcessStat stat = statOf(std::to_string(child.pid()));
  EXPECT_EQ(task.id, child.pid());
  EXPECT_EQ(task.parent, getpid());
  EXPECT_EQ(task.group, child.pid());
  EXPECT_EQ(task.session, getsid(0));
  EXPECT_EQ(task.priority, 137);
  EXPECT_EQ(task.policy, static_cast<uint32_t>(SCHED_BATCH));
  EXPECT_EQ(task.score, 321);
  EXPECT_EQ(task.threads, 1);
  EXPECT_EQ(task.startTime / 10'000'000, stat.startTicks);
  SchedulerRecord ran{};
  std::ifstream file(folder + "/schedstat");
  uint64_t waited = 0;
  file >> ran.runTime >> waited >> ran.turns;
  EXPECT_EQ(task.runTime, ran.runTime);
  EXPECT_EQ(task.turns, ran.turns);
  for (const int16_t unused : task.unused) EXPECT_EQ(unused, 0);
}

TEST_F(LinuxTaskIteratorTest, AreOfAllThreadsInTheirOrder) {
  Child child([](const std::function<void()> &ready) {
    for (int i = 0; i < 700; i++) std::thread(sleepForever).detach();
    sleeping(ready);
  });
  std::vector<TaskRecord> records = look();
  const auto place = [](const TaskRecord &task) { return std::tuple(task.process, task.id); };
  EXPECT_TRUE(std::ranges::is_sorted(records, {}, place));
  records = lookAt(child.pid());
  ASSERT_EQ(records.size(), 701u) << "more than the kernel gives at a time";
  for (const TaskRecord &task : records) EXPECT_EQ(task.threads, 701) << task.id;
  std::vector<int32_t> ids;
  DirectoryReader lister;
  const std::string folder = std::to_string(child.pid()) + "/task";
  ASSERT_EQ(lister.readNumbers(openDirectory(proc_.get(), folder.c_str()).get(), ids), kAnswered);
  std::ranges::sort(ids);
  EXPECT_TRUE(std::ranges::equal(records, ids, {}, &TaskRecord::id));
}

TEST_F(LinuxTaskIteratorTest, AZombieHasEndedAndTheReapedIsGone) {
  Child child(sleeping);
  EXPECT_FALSE(lookAt(child.pid()).at(0).hasEnded());
  child.signalAndWait(SIGKILL, WEXITED);
  EXPECT_TRUE(lookAt(child.pid()).at(0).hasEnded());
  const pid_t pid = child.pid();
  child.end();
  EXPECT_TRUE(lookAt(pid).empty());
}

TEST_F(LinuxTaskIteratorTest, NothingIsLeftOpenForProgramsThatAreStartedLater) {
  const std::multiset<std::string> before = openFiles();
  look();
  EXPECT_EQ(openFiles(), before);
  tasks_ = KernelLooks::load(proc_.get()).tasks;
  EXPECT_EQ(openFiles(), before);
  size_t seen = 0;
  for (int fd = 3; fd < 256; fd++) {
    char link[256];
    const ssize_t length =
        readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), link, sizeof link);
    const std::string_view text(link, length > 0 ? static_cast<size_t>(length) : 0);
    if (text.find("bpf") == std::string_view::npos) continue;
    seen++;
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << text;
  }
  EXPECT_EQ(seen, 2u) << "the program, and what it is attached by";
}

constexpr int kMayNot = 77;

bool isRefusedInSilence() {
  int error[2];
  if (pipe(error) != 0 || dup2(error[1], STDERR_FILENO) < 0) _exit(90);
  const FileHandle proc = openDirectory(AT_FDCWD, "/proc");
  const bool isThere = KernelLooks::load(proc.get()).tasks.has_value();
  char said = 0;
  fcntl(error[0], F_SETFL, O_NONBLOCK);
  return !isThere && read(error[0], &said, 1) < 0;
}

TEST(LinuxTaskIterator, IsNotForUsersWithoutTheRight) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  const pid_t pid = fork();
  if (pid == 0) {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(kMayNot);
    _exit(isRefusedInSilence() ? 0 : 92);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  if (WEXITSTATUS(status) == kMayNot) GTEST_SKIP() << "may not become another user";
  EXPECT_EQ(status, 0) << "step " << WEXITSTATUS(status);
}

TEST(LinuxTaskIterator, IsNotWhereProcessesHaveOtherNumbers) {
  const pid_t outside = fork();
  if (outside == 0) {
    if (unshare(CLONE_NEWPID) != 0) _exit(kMayNot);
    const pid_t inside = fork();
    if (inside == 0) _exit(isRefusedInSilence() ? 0 : 92);
    int status = 0;
    waitpid(inside, &status, 0);
    _exit(WEXITSTATUS(status));
  }
  int status = 0;
  ASSERT_EQ(waitpid(outside, &status, 0), outside);
  if (WEXITSTATUS(status) == kMayNot) GTEST_SKIP() << "may not have a namespace of its own";
  EXPECT_EQ(status, 0) << "step " << WEXITSTATUS(status);
}

TEST(LinuxTaskIterator, IsNotBesideAnotherTreeThanProc) {
  const FileHandle other = openDirectory(AT_FDCWD, "/sys");
  EXPECT_FALSE(KernelLooks::load(other.get()).tasks.has_value());
}

}  // namespace
}  // namespace host::linux_machine
