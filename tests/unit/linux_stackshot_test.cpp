// Stackshots of live processes: what is described of them, and the machine's answers about this
// test and its children. Stacks are compared with what a process knows of itself in the tests of
// the whole program.
#include "host/linux/stackshot.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "host/linux/linux_machine.h"
#include "host/posix.h"
#include "host/units.h"
#include "tests/unit/kcdata_items.h"

namespace host::linux_machine {
namespace {

using kcdata_test::Item;
using kcdata_test::itemOf;
using kcdata_test::itemsOf;
using kcdata_test::kindsOf;
using kcdata_test::textAt;
using kcdata_test::wordAt;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;

constexpr uint64_t kFlags = 0x09092006;

ProcessStat statOf(int32_t id, char state, uint64_t userTicks, uint64_t systemTicks) {
  ProcessStat stat{};
  stat.id = id;
  std::strcpy(stat.name, "hello");
  stat.state = state;
  stat.userTicks = userTicks;
  stat.systemTicks = systemTicks;
  stat.startTicks = 500;
  stat.minorFaults = 7;
  stat.majorFaults = 3;
  stat.threads = 1;
  return stat;
}

ThreadReading readingOf(int32_t id, char state, uint64_t userTicks, uint64_t systemTicks) {
  return {statOf(id, state, userTicks, systemTicks), {userTicks, systemTicks, 0}, false};
}

TEST(LinuxStackshot, DescribesATask) {
  ProcessStatus status{};
  status.residentKiB = 12;
  const uint64_t ticksPerSecond = kNanosecondsPerSecond / nanosecondsPerTick();
  ProcessStat stat = statOf(40, 'S', 90, 50);
  stat.startTicks = 5 * ticksPerSecond;
  const StackshotTask described = describeTask(
      stat, status, {readingOf(40, 'S', 60, 20), readingOf(41, 'R', 10, 5)}, true, {1000, 999999});
  EXPECT_EQ(described.startTicks, stat.startTicks);
  EXPECT_TRUE(described.hasUserSide);
  const SnapshotTask &task = described.task;
  EXPECT_EQ(task.pid, 40);
  EXPECT_EQ(task.name, "hello");
  EXPECT_TRUE(task.is64Bit);
  EXPECT_EQ(task.startSeconds, 1005u);
  EXPECT_EQ(task.residentSize, 12u * 1024);
  EXPECT_EQ(task.suspendCount, 0u);
  EXPECT_EQ(task.faults, 10u);
  EXPECT_EQ(task.pageIns, 3u);
  EXPECT_EQ(task.endedUserTime, 20 * nanosecondsPerTick());
  EXPECT_EQ(task.endedSystemTime, 25 * nanosecondsPerTick());
  ASSERT_EQ(task.threads.size(), 2u);
  EXPECT_EQ(task.threads[0].id, 40u);
  EXPECT_EQ(task.threads[0].state, darwin::TH_STATE_WAITING);
  EXPECT_EQ(task.threads[1].id, 41u);
  EXPECT_EQ(task.threads[1].state, darwin::TH_STATE_RUNNING);
  EXPECT_EQ(task.threads[1].name, "hello");
  EXPECT_EQ(task.threads[1].basePriority, 31);
  EXPECT_EQ(task.threads[1].priority, 31);
  EXPECT_EQ(task.threads[1].userTime, 10 * nanosecondsPerTick());
  EXPECT_EQ(task.threads[1].systemTime, 5 * nanosecondsPerTick());
}

// Its threads' times are read later than its own.
TEST(LinuxStackshot, TimesOfThreadsMayBeAhead) {
  const StackshotTask described =
      describeTask(statOf(40, 'R', 5, 5), {}, {readingOf(40, 'R', 6, 7)}, true, {});
  EXPECT_EQ(described.task.endedUserTime, 0u);
  EXPECT_EQ(described.task.endedSystemTime, 0u);
}

TEST(LinuxStackshot, DescribesStoppedAndKernelTasks) {
  EXPECT_EQ(describeTask(statOf(40, 'T', 0, 0), {}, {}, false, {}).task.suspendCount, 1u);
  ProcessStat kernel = statOf(2, 'S', 0, 0);
  kernel.flags = 0x200000;
  EXPECT_FALSE(describeTask(kernel, {}, {}, true, {}).hasUserSide);
}

// The pid has another owner by now.
TEST(LinuxStackshot, StacksAreOfTheSameProcess) {
  const FileHandle proc = openDirectory(AT_FDCWD, "/proc");
  std::vector<StackshotTask> tasks = {
      describeTask(statOf(getpid(), 'S', 0, 0), {}, {readingOf(getpid(), 'S', 0, 0)}, true, {})};
  addStacks(proc.get(), tasks, std::chrono::seconds(30));
  EXPECT_THAT(tasks[0].task.images, IsEmpty());
  EXPECT_THAT(tasks[0].task.threads[0].userStack, IsEmpty());
  EXPECT_THAT(tasks[0].task.threads[0].kernelStack, IsEmpty());
  EXPECT_EQ(tasks[0].task.threads[0].runnableTime, std::nullopt);
}

class LinuxStackshotTest : public testing::Test {
 protected:
  LinuxStackshotTest() : machine_(makeLinuxMachine()) {}

  std::vector<Item> taken(pid_t pid, uint64_t flags = kFlags) {
    std::vector<uint8_t> bytes;
    EXPECT_EQ(machine_->stackshot(pid, flags, bytes), kAnswered);
    return itemsOf(bytes);
  }

  std::unique_ptr<Machine> machine_;
};

// A child that sleeps; ended with the test.
class Sleeping {
 public:
  Sleeping() : pid_(fork()) {
    if (pid_ != 0) return;
    while (true) pause();
  }
  ~Sleeping() { end(); }
  void end() {
    if (pid_ <= 0) return;
    __real_kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

TEST_F(LinuxStackshotTest, SaysWhatTheMachineIs) {
  const Sleeping child;
  const std::vector<Item> items = taken(child.pid());
  KernelName name;
  ASSERT_EQ(machine_->kernelName(name), kAnswered);
  EXPECT_EQ(textAt(itemOf(items, 2319), 0), name.version);
  std::ifstream file("/proc/cmdline");
  std::string line;
  std::getline(file, line);
  EXPECT_EQ(textAt(itemOf(items, 2318), 0), line);
  EXPECT_EQ(wordAt<uint32_t>(itemOf(items, 2320), 0), 4096u);
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 50), 0), 0x100000001u);
  const uint64_t now = static_cast<uint64_t>(__real_time(nullptr));
  EXPECT_NEAR(static_cast<double>(wordAt<uint64_t>(itemOf(items, 53), 0)) / 1e6,
              static_cast<double>(now), 60);
  EXPECT_GT(wordAt<uint32_t>(itemOf(items, 2306), 4), 0u);
}

TEST_F(LinuxStackshotTest, LeavesOutWhatIsNotAskedFor) {
  const Sleeping child;
  const std::vector<uint32_t> kinds = kindsOf(taken(child.pid(), 0x10000));
  EXPECT_THAT(kinds, Not(Contains(2306u)));
  EXPECT_THAT(kinds, Not(Contains(49u)));
}

TEST_F(LinuxStackshotTest, OfAChild) {
  const Sleeping child;
  const std::vector<Item> items = taken(child.pid());
  EXPECT_EQ(wordAt<int32_t>(itemOf(items, 2309), 84), child.pid());
  char name[16] = "";
  ASSERT_EQ(prctl(PR_GET_NAME, name), 0);
  EXPECT_EQ(textAt(itemOf(items, 2309), 88), name);
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 2310), 0), static_cast<uint64_t>(child.pid()));
  EXPECT_EQ(textAt(itemOf(items, 2313), 0), name);
  EXPECT_THAT(kindsOf(items), Contains(2329u));
}

// Even of the program that takes it, whose thread stands still meanwhile.
TEST_F(LinuxStackshotTest, OfTheTestItself) {
  const std::vector<Item> items = taken(getpid());
  EXPECT_EQ(wordAt<int32_t>(itemOf(items, 2309), 84), getpid());
  EXPECT_EQ(wordAt<uint64_t>(itemOf(items, 2310), 0), static_cast<uint64_t>(getpid()));
}

TEST_F(LinuxStackshotTest, OfAProcessThatIsNotThere) {
  Sleeping child;
  const pid_t gone = child.pid();
  child.end();
  std::vector<uint8_t> bytes = {7};
  for (const pid_t pid : {gone, 0, -2, 99999999}) {
    EXPECT_EQ(machine_->stackshot(pid, kFlags, bytes), darwin::DARWIN_EINVAL) << pid;
  }
  EXPECT_EQ(bytes, std::vector<uint8_t>{7});
}

using StackshotOfAll = LinuxStackshotTest;

TEST_F(StackshotOfAll, HasThemAll) {
  const Sleeping one;
  const Sleeping two;
  std::vector<int32_t> pids;
  for (const Item &item : taken(-1, 0x10000)) {
    if (item.type == 2309) pids.push_back(wordAt<int32_t>(item, 84));
  }
  EXPECT_THAT(pids, Contains(one.pid()));
  EXPECT_THAT(pids, Contains(two.pid()));
  EXPECT_THAT(pids, Contains(getpid()));
}

}  // namespace
}  // namespace host::linux_machine
