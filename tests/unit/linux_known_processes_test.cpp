// What is remembered of processes, and the rule that tells whether one has run.
#include "host/linux/known_processes.h"
#include "host/posix.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>

namespace host::linux_machine {
namespace {

TEST(LinuxKnownProcesses, OnlyARestingThreadHasNotRun) {
  const SchedulerRecord record{1000, 5};
  struct {
    const char *what;
    std::optional<SchedulerRecord> before;
    std::optional<SchedulerRecord> now;
    char state;
    bool hasRun;
  } const cases[] = {
      {"same record, asleep", record, record, 'S', false},
      {"same record, stopped", record, record, 'T', false},
      {"first look", std::nullopt, record, 'S', true},
      {"no record now", record, std::nullopt, 'S', true},
      {"ran longer", record, SchedulerRecord{1001, 5}, 'S', true},
      {"had a turn", record, SchedulerRecord{1000, 6}, 'S', true},
      {"on a processor", record, record, 'R', true},
      {"a kernel without records", SchedulerRecord{0, 0}, SchedulerRecord{0, 0}, 'S', true},
  };
  for (const auto &one : cases) {
    ProcessStat stat{};
    stat.state = one.state;
    EXPECT_EQ(hasRunSince(one.before, one.now, stat), one.hasRun) << one.what;
  }
}

TEST(LinuxKnownProcesses, AReusedNumberIsANewProcess) {
  KnownProcesses processes;
  processes.find(7, 100).is64Bit = false;
  EXPECT_FALSE(processes.find(7, 100).is64Bit);
  EXPECT_TRUE(processes.find(7, 101).is64Bit);
  EXPECT_EQ(processes.size(), 1u);
}

TEST(LinuxKnownProcesses, ThoseNotListedAreForgotten) {
  KnownProcesses processes;
  for (int32_t pid : {3, 5, 9}) processes.find(pid, 1).is64Bit = false;
  processes.keepOnly({9, 4, 3});
  EXPECT_EQ(processes.size(), 2u);
  EXPECT_FALSE(processes.find(3, 1).is64Bit);
  EXPECT_FALSE(processes.find(9, 1).is64Bit);
  EXPECT_TRUE(processes.find(5, 1).is64Bit);
  processes.keepOnly({});
  EXPECT_EQ(processes.size(), 0u);
}

TEST(LinuxKnownProcesses, ALookTellsOnceThatAProcessIsAlive) {
  KnownProcesses processes;
  EXPECT_FALSE(processes.takeLife(7)) << "nobody looked at it";
  EXPECT_EQ(processes.size(), 0u);
  processes.find(7, 100).isAlive = true;
  EXPECT_TRUE(processes.takeLife(7));
  EXPECT_FALSE(processes.takeLife(7)) << "that was one look";
  processes.find(7, 100).isAlive = true;
  processes.find(7, 101);
  EXPECT_FALSE(processes.takeLife(7)) << "the number has another owner";
}

TEST(LinuxKnownProcesses, ForgettingAnswersKeepsWhatOutlastsRunning) {
  KnownProcess process;
  process.status = ProcessStatus{};
  process.ioResult = kAnswered;
  process.hasOwnUsers = true;
  process.descriptors.emplace();
  process.hasThreads = true;
  process.threads.resize(1);
  process.isProcess = true;
  process.forgetAnswers();
  EXPECT_FALSE(process.status || process.ioResult || process.hasOwnUsers || process.descriptors ||
               process.hasThreads);
  EXPECT_EQ(process.threads.size(), 1u);
  EXPECT_TRUE(process.isProcess);
}

int waitForEnd(void *) {
  for (;;) pause();
}

// A child that is ended with the test; `flags` go to clone().
class ClonedChild {
 public:
  explicit ClonedChild(int flags)
      : pid_(clone(waitForEnd, stack_ + sizeof stack_, flags | SIGCHLD, nullptr)) {}
  ~ClonedChild() {
    if (pid_ <= 0) return;
    __real_kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  pid_t pid() const { return pid_; }

 private:
  alignas(16) char stack_[16384];
  pid_t pid_;
};

TEST(LinuxKnownProcesses, DescriptorsOfASharedTableAreNotOwn) {
  ClonedChild separate(0);
  ClonedChild sharing(CLONE_FILES);
  ASSERT_GT(separate.pid(), 0);
  ASSERT_GT(sharing.pid(), 0);
  if (compareDescriptorTables(getpid(), getpid()) == TableSharing::unknown) {
    GTEST_SKIP() << "this kernel does not compare descriptor tables";
  }
  EXPECT_EQ(compareDescriptorTables(separate.pid(), getpid()), TableSharing::none);
  EXPECT_EQ(compareDescriptorTables(sharing.pid(), getpid()), TableSharing::shared);

  KnownProcesses processes;
  pid_t self = getpid();
  auto hasOwn = [&processes](pid_t pid, pid_t parent, uint32_t flags) {
    ProcessStat stat{};
    stat.id = pid;
    stat.parent = parent;
    stat.flags = flags;
    return processes.hasOwnDescriptors(processes.find(pid, 1), stat);
  };
  constexpr uint32_t kKernelThread = 0x200000;
  EXPECT_TRUE(hasOwn(separate.pid(), self, 0));
  EXPECT_TRUE(hasOwn(self, 0, 0));
  EXPECT_TRUE(hasOwn(sharing.pid(), self, kKernelThread)) << "nothing is opened in a shared table";
  EXPECT_TRUE(hasOwn(self, 0, 0)) << "no kernel thread changes it";
  EXPECT_FALSE(hasOwn(sharing.pid(), self, 0));
  EXPECT_FALSE(hasOwn(self, 0, 0)) << "its child can change them now";
}

}  // namespace
}  // namespace host::linux_machine
