// The live machine's answers about children that do known things, beside what the test did itself
// and an independent reading of /proc.
#include "host/linux/linux_machine.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "darwin/file_flags.h"
#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "host/linux/clock.h"
#include "host/posix.h"
#include "host/units.h"
#include "tests/unit/child_process.h"
#include "tests/unit/waiting.h"

namespace host::linux_machine {
namespace {

using testing::Contains;
using testing::Not;

// The value of a line of /proc/PID/status, read apart from what is tested.
std::string statusLine(pid_t pid, const std::string &key) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(file, line)) {
    if (line.rfind(key + ":", 0) != 0) continue;
    std::istringstream words(line.substr(key.size() + 1));
    std::string word;
    words >> word;
    return word;
  }
  return "";
}

class LinuxMachineTest : public testing::Test {
 protected:
  // The state that two looks agree on, once the child has come to rest.
  bool reaches(pid_t pid, uint32_t state) {
    return waitUntil([&] {
      darwin::proc_bsdinfo info{};
      return machine_->bsdInfo(pid, true, info) == kAnswered && info.pbi_status == state;
    });
  }
  std::vector<int32_t> listed() {
    std::vector<int32_t> pids;
    EXPECT_EQ(machine_->processIDs(pids), kAnswered);
    return pids;
  }

  std::unique_ptr<Machine> machine_ = makeLinuxMachine();
};

TEST_F(LinuxMachineTest, PresentsItsKernelAsDarwin) {
  KernelName name;
  ASSERT_EQ(machine_->kernelName(name), kAnswered);
  new_utsname own{};
  ASSERT_EQ(__real_uname(&own), 0);
  EXPECT_EQ(name.system, "Darwin");
  EXPECT_EQ(name.node, own.nodename);
  EXPECT_EQ(name.release, "18.7.0");
  EXPECT_EQ(name.hardware, own.machine);
  EXPECT_NE(name.version.find("xnu-49"), std::string::npos);
  EXPECT_LE(name.version.size(), 64u);
  EXPECT_EQ(name.version.find("ARM64") != std::string::npos, name.hardware == "aarch64");
  EXPECT_EQ(machine_->isPrivileged(), geteuid() == 0);
  EXPECT_TRUE(machine_->hasEntryPoint("memorystatus_get_level"));
  EXPECT_TRUE(machine_->hasEntryPoint("proc_pid_rusage"));
  EXPECT_TRUE(machine_->hasEntryPoint("mach_vm_page_range_query"));
  EXPECT_FALSE(machine_->hasEntryPoint("proc_pid_rusag"));
}

TEST_F(LinuxMachineTest, ListsProcessesNewestFirstZombiesIncluded) {
  Child child(sleeping);
  EXPECT_THAT(listed(), Contains(child.pid()));
  std::vector<int32_t> pids = listed();
  EXPECT_TRUE(std::is_sorted(pids.begin(), pids.end(), std::greater<>()));
  child.signalAndWait(SIGKILL, WEXITED);
  EXPECT_THAT(listed(), Contains(child.pid()));
  pid_t gone = child.pid();
  child.end();
  EXPECT_THAT(listed(), Not(Contains(gone)));
}

TEST_F(LinuxMachineTest, ASleepingChild) {
  Child child([](const std::function<void()> &ready) {
    setpriority(PRIO_PROCESS, 0, 7);
    setsid();
    sleeping(ready);
  });
  ASSERT_TRUE(reaches(child.pid(), darwin::SSLEEP));
  darwin::proc_taskallinfo info;
  // A sanitizer may have a thread of its own in there, which wakes now and then.
  ASSERT_TRUE(waitUntil([&] {
    std::memset(&info, 0xAA, sizeof info);
    return machine_->taskAllInfo(child.pid(), info) == kAnswered && info.ptinfo.pti_numrunning == 0;
  }));
  EXPECT_EQ(info.pbsd.pbi_pid, static_cast<uint32_t>(child.pid()));
  EXPECT_EQ(info.pbsd.pbi_ppid, static_cast<uint32_t>(getpid()));
  EXPECT_EQ(info.pbsd.pbi_pgid, static_cast<uint32_t>(child.pid()));
  EXPECT_EQ(info.pbsd.pbi_uid, geteuid());
  EXPECT_EQ(info.pbsd.pbi_ruid, getuid());
  EXPECT_EQ(info.pbsd.pbi_gid, getegid());
  EXPECT_EQ(info.pbsd.pbi_nice, 7);
  EXPECT_EQ(info.pbsd.e_tdev, UINT32_MAX) << "a new session has no terminal";
  EXPECT_EQ(std::to_string(info.pbsd.pbi_nfiles), statusLine(child.pid(), "FDSize"));
  EXPECT_EQ(info.pbsd.pbi_flags,
            darwin::PROC_FLAG_SLEADER | (sizeof(void *) == 8 ? darwin::PROC_FLAG_LP64 : 0));
  EXPECT_EQ(std::to_string(info.ptinfo.pti_threadnum), statusLine(child.pid(), "Threads"));
  EXPECT_EQ(info.ptinfo.pti_priority, 24);
  EXPECT_EQ(info.ptinfo.pti_policy, darwin::POLICY_TIMESHARE);
  EXPECT_EQ(std::to_string(info.ptinfo.pti_virtual_size / 1024), statusLine(child.pid(), "VmSize"));
  EXPECT_GT(info.ptinfo.pti_resident_size, 0u);
  EXPECT_EQ(std::to_string(info.ptinfo.pti_csw),
            std::to_string(std::stoi(statusLine(child.pid(), "voluntary_ctxt_switches")) +
                           std::stoi(statusLine(child.pid(), "nonvoluntary_ctxt_switches"))));

  // It was started just now, to within the second that start times are counted from.
  WallTime boot = bootMoment();
  uint64_t now = boot.seconds + nanosecondsSinceBoot() / kNanosecondsPerSecond;
  EXPECT_LE(info.pbsd.pbi_start_tvsec, now + 1);
  EXPECT_GE(info.pbsd.pbi_start_tvsec + 30, now);
  EXPECT_LT(info.pbsd.pbi_start_tvusec, 1000000u);

  darwin::proc_pidcoalitioninfo coalition{};
  ASSERT_EQ(machine_->coalition(child.pid(), coalition), kAnswered);
  EXPECT_EQ(coalition.coalition_id[0], static_cast<uint64_t>(child.pid()));
  EXPECT_EQ(coalition.coalition_id[1], static_cast<uint64_t>(child.pid()));
}

TEST_F(LinuxMachineTest, NamesAreTheirBytes) {
  for (const std::string name :
       {"a b", "(", ") S 1 2", "a)b(c", "\x1b[31mred", "\x01\x02\n\x7f", "fifteen-letters"}) {
    Child child([&name](const std::function<void()> &ready) {
      prctl(PR_SET_NAME, name.c_str());
      sleeping(ready);
    });
    darwin::proc_taskallinfo info{};
    ASSERT_EQ(machine_->taskAllInfo(child.pid(), info), kAnswered);
    EXPECT_EQ(info.pbsd.pbi_comm, name);
    EXPECT_EQ(info.pbsd.pbi_name, name);
    EXPECT_EQ(info.pbsd.pbi_ppid, static_cast<uint32_t>(getpid()));
    darwin::proc_threadinfo thread{};
    ASSERT_EQ(machine_->threadInfo(child.pid(), static_cast<uint64_t>(child.pid()), thread),
              kAnswered);
    EXPECT_EQ(thread.pth_name, name);
  }
}

TEST_F(LinuxMachineTest, ABusyChildIsSeenToBeBusyAndThenNot) {
  Child child(busy);
  const uint64_t id = static_cast<uint64_t>(child.pid());
  darwin::proc_threadinfo thread{};
  // The other processor time of this machine is not ours to say: it need only be clearly above
  // nothing.
  ASSERT_TRUE(waitUntil([&] {
    return machine_->threadInfo(child.pid(), id, thread) == kAnswered &&
           thread.pth_user_time > 200'000'000 && thread.pth_cpu_usage > 100;
  }));
  EXPECT_LE(thread.pth_cpu_usage, 1000);
  EXPECT_TRUE(reaches(child.pid(), darwin::SRUN));
  darwin::proc_taskallinfo info{};
  // A sanitizer's own thread may be awake too, for a moment.
  EXPECT_TRUE(waitUntil([&] {
    return machine_->taskAllInfo(child.pid(), info) == kAnswered && info.ptinfo.pti_numrunning == 1;
  }));

  child.signalAndWait(SIGSTOP, WSTOPPED);
  ASSERT_EQ(machine_->taskAllInfo(child.pid(), info), kAnswered);
  EXPECT_EQ(info.pbsd.pbi_status, darwin::SSTOP);
  EXPECT_EQ(info.ptinfo.pti_numrunning, 0);
  ASSERT_EQ(machine_->threadInfo(child.pid(), id, thread), kAnswered);
  EXPECT_EQ(thread.pth_run_state, darwin::TH_STATE_STOPPED);
  const uint64_t used = thread.pth_user_time + thread.pth_system_time;
  EXPECT_TRUE(waitUntil([&] {
    return machine_->threadInfo(child.pid(), id, thread) == kAnswered && thread.pth_cpu_usage == 0;
  })) << "the estimate fades";
  EXPECT_EQ(thread.pth_user_time + thread.pth_system_time, used);

  ASSERT_EQ(__real_kill(child.pid(), SIGCONT), 0);
  EXPECT_TRUE(waitUntil([&] {
    return machine_->threadInfo(child.pid(), id, thread) == kAnswered && thread.pth_cpu_usage > 0;
  }));
}

TEST_F(LinuxMachineTest, OfAZombieItsNameRelativesOwnerAndTimesAreLeft) {
  Child child([](const std::function<void()> &ready) {
    prctl(PR_SET_NAME, "departed");
    busy(ready);
  });
  darwin::proc_taskallinfo info{};
  ASSERT_TRUE(waitUntil([&] {
    return machine_->taskAllInfo(child.pid(), info) == kAnswered && info.ptinfo.pti_total_user > 0;
  }));
  const uint64_t usedBefore = info.ptinfo.pti_total_user;
  EXPECT_GT(info.ptinfo.pti_resident_size, 0u);
  child.signalAndWait(SIGKILL, WEXITED);

  std::memset(&info, 0xAA, sizeof info);
  ASSERT_EQ(machine_->taskAllInfo(child.pid(), info), kAnswered);
  EXPECT_EQ(info.pbsd.pbi_status, darwin::SZOMB);
  EXPECT_STREQ(info.pbsd.pbi_comm, "departed");
  EXPECT_EQ(info.pbsd.pbi_pid, static_cast<uint32_t>(child.pid()));
  EXPECT_EQ(info.pbsd.pbi_ppid, static_cast<uint32_t>(getpid()));
  EXPECT_EQ(info.pbsd.pbi_uid, geteuid());
  EXPECT_EQ(info.pbsd.pbi_nfiles, 0u);
  EXPECT_GE(info.ptinfo.pti_total_user, usedBefore);
  darwin::proc_taskinfo timesAlone{};
  timesAlone.pti_total_user = info.ptinfo.pti_total_user;
  timesAlone.pti_total_system = info.ptinfo.pti_total_system;
  EXPECT_EQ(std::memcmp(&info.ptinfo, &timesAlone, sizeof timesAlone), 0);
  EXPECT_EQ(machine_->sandboxCheck(child.pid()), 0);

  const pid_t gone = child.pid();
  child.end();
  EXPECT_EQ(machine_->taskAllInfo(gone, info), darwin::DARWIN_ESRCH);
}

TEST_F(LinuxMachineTest, AZombieAnswersNothingThatOnlyTheLivingHave) {
  Child child(sleeping);
  child.signalAndWait(SIGKILL, WEXITED);
  pid_t pid = child.pid();
  darwin::proc_bsdinfo info{};
  darwin::rusage_info_v4 usage{};
  darwin::proc_pidcoalitioninfo coalition{};
  std::vector<uint64_t> threads = {77};
  std::vector<darwin::proc_fdinfo> descriptors(3);
  std::string path = "untouched";
  EXPECT_EQ(machine_->bsdInfo(pid, false, info), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine_->threadHandles(pid, threads), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine_->descriptors(pid, 10, descriptors), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine_->coalition(pid, coalition), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine_->executablePath(pid, path), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine_->containerPath(pid, path), darwin::DARWIN_ESRCH);
  ProcessArguments arguments;
  EXPECT_EQ(machine_->arguments(pid, arguments), darwin::DARWIN_ESRCH);
  EXPECT_EQ(threads, std::vector<uint64_t>{77});
  EXPECT_EQ(descriptors.size(), 3u);
  EXPECT_EQ(path, "untouched");
  ASSERT_EQ(machine_->bsdInfo(pid, true, info), kAnswered);
  EXPECT_EQ(info.pbi_status, darwin::SZOMB);
  EXPECT_EQ(info.pbi_ppid, static_cast<uint32_t>(getpid()));
  EXPECT_EQ(machine_->resourceUsage(pid, usage),
            machine_->isPrivileged() ? kAnswered : darwin::DARWIN_EPERM);

  child.end();
  EXPECT_EQ(machine_->bsdInfo(pid, true, info), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine_->resourceUsage(pid, usage), darwin::DARWIN_ESRCH);
}

// What was read of it before stays told for a moment; what is read only now is not there any more.
TEST_F(LinuxMachineTest, AProcessThatEndsInTheMiddleOfASampleHasVanished) {
  using Question = std::function<bool(pid_t)>;
  darwin::rusage_info_v4 usage{};
  darwin::socket_fdinfo socket{};
  std::vector<darwin::proc_fdinfo> descriptors(3);
  ProcessArguments arguments;
  std::string path = "untouched";
  const struct {
    const char *what;
    Question hasVanished;
  } questions[] = {
      {"usage",
       [&](pid_t pid) { return machine_->resourceUsage(pid, usage) == darwin::DARWIN_ESRCH; }},
      {"descriptors",
       [&](pid_t pid) {
         return machine_->descriptors(pid, 10, descriptors) == darwin::DARWIN_ESRCH;
       }},
      {"a descriptor",
       [&](pid_t pid) {
         return machine_->socketDescriptor(pid, 0, socket) == darwin::DARWIN_ESRCH;
       }},
      {"sandbox", [&](pid_t pid) { return machine_->sandboxCheck(pid) < 0; }},
      {"path",
       [&](pid_t pid) { return machine_->executablePath(pid, path) == darwin::DARWIN_ESRCH; }},
      {"arguments",
       [&](pid_t pid) { return machine_->arguments(pid, arguments) == darwin::DARWIN_ESRCH; }},
      {"container",
       [&](pid_t pid) { return machine_->containerPath(pid, path) == darwin::DARWIN_ESRCH; }},
      {"task port", [&](pid_t pid) { return machine_->taskPort(pid) == darwin::DARWIN_ESRCH; }},
  };
  for (const auto &question : questions) {
    Child child(sleeping);
    const pid_t pid = child.pid();
    darwin::proc_taskallinfo info{};
    ASSERT_EQ(machine_->taskAllInfo(pid, info), kAnswered);
    child.end();
    EXPECT_TRUE(question.hasVanished(pid)) << question.what;
    EXPECT_EQ(machine_->taskAllInfo(pid, info), darwin::DARWIN_ESRCH);
  }
  EXPECT_EQ(descriptors.size(), 3u);
  EXPECT_EQ(path, "untouched");
}

TEST_F(LinuxMachineTest, NoProcessHasThesePids) {
  darwin::proc_taskallinfo info{};
  for (pid_t pid : {0, -1, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(machine_->taskAllInfo(pid, info), darwin::DARWIN_ESRCH) << pid;
    EXPECT_LT(machine_->sandboxCheck(pid), 0);
  }
}

constexpr int kThreads = 40;

void *waitForever(void *) {
  sleepForever();
}

TEST_F(LinuxMachineTest, AllThreadsOfAChild) {
  Child child([](const std::function<void()> &ready) {
    for (int i = 1; i < kThreads; i++) {
      pthread_t thread;
      pthread_attr_t attributes;
      pthread_attr_init(&attributes);
      pthread_attr_setstacksize(&attributes, 65536);
      if (pthread_create(&thread, &attributes, waitForever, nullptr) != 0) _exit(1);
    }
    sleeping(ready);
  });
  ASSERT_TRUE(waitUntil([&] {
    darwin::proc_taskallinfo info{};
    return machine_->taskAllInfo(child.pid(), info) == kAnswered &&
           info.ptinfo.pti_threadnum >= kThreads && info.ptinfo.pti_numrunning == 0;
  }));
  std::vector<uint64_t> handles;
  std::vector<uint64_t> ids;
  ASSERT_EQ(machine_->threadHandles(child.pid(), handles), kAnswered);
  ASSERT_EQ(machine_->threadIDs(child.pid(), ids), kAnswered);
  EXPECT_EQ(handles, ids);

  std::vector<int32_t> expected;
  DirectoryReader lister;
  FileHandle task =
      openDirectory(AT_FDCWD, ("/proc/" + std::to_string(child.pid()) + "/task").c_str());
  ASSERT_EQ(lister.readNumbers(task.get(), expected), kAnswered);
  EXPECT_THAT(handles, testing::UnorderedElementsAreArray(expected));
  // Each has gone to sleep by now or soon will: none of them has anything to do.
  for (uint64_t handle : handles) {
    EXPECT_TRUE(waitUntil([&] {
      darwin::proc_threadinfo info{};
      return machine_->threadInfo(child.pid(), handle, info) == kAnswered &&
             info.pth_run_state == darwin::TH_STATE_WAITING;
    })) << handle;
  }
  for (uint64_t handle : handles) {
    for (int again = 0; again < 2; again++) {
      darwin::proc_threadinfo info{};
      ASSERT_EQ(machine_->threadInfo(child.pid(), handle, info), kAnswered);
    }
  }
  darwin::proc_threadinfo info{};
  EXPECT_EQ(machine_->threadInfo(child.pid(), static_cast<uint64_t>(getpid()), info),
            darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine_->threadInfo(child.pid(), UINT64_MAX, info), darwin::DARWIN_ESRCH);

  // The number of a thread that is not the first is in /proc too, but is no process.
  pid_t other = static_cast<pid_t>(handles.back());
  ASSERT_NE(other, child.pid());
  darwin::proc_taskallinfo all{};
  EXPECT_EQ(machine_->taskAllInfo(other, all), darwin::DARWIN_ESRCH);
}

TEST_F(LinuxMachineTest, AThreadYoungerThanTheReadingIsFound) {
  int orders[2];
  int answers[2];
  ASSERT_EQ(pipe2(orders, O_CLOEXEC), 0);
  ASSERT_EQ(pipe2(answers, O_CLOEXEC), 0);
  const FileHandle order(orders[1]);
  const FileHandle answer(answers[0]);
  static int sayWhere;
  sayWhere = answers[1];
  Child child([&](const std::function<void()> &ready) {
    ready();
    char word = 0;
    pthread_t thread;
    const auto sayNumber = [](void *) -> void * {
      const long id = __real_syscall(SYS_gettid);
      if (write(sayWhere, &id, sizeof id) != sizeof id) _exit(1);
      sleepForever();
    };
    if (read(orders[0], &word, 1) != 1 ||
        pthread_create(&thread, nullptr, sayNumber, nullptr) != 0) {
      _exit(1);
    }
    sleepForever();
  });
  close(orders[0]);
  close(answers[1]);
  std::vector<uint64_t> before;
  ASSERT_EQ(machine_->threadIDs(child.pid(), before), kAnswered);
  ASSERT_EQ(write(order.get(), "o", 1), 1);
  long id = 0;
  ASSERT_EQ(read(answer.get(), &id, sizeof id), static_cast<ssize_t>(sizeof id));
  EXPECT_THAT(before, Not(Contains(static_cast<uint64_t>(id))));
  darwin::proc_threadinfo info{};
  EXPECT_EQ(machine_->threadInfoByID(child.pid(), static_cast<uint64_t>(id), info), kAnswered);
}

// Ends the first thread of a process alone.
[[noreturn]] void endFirstThread() {
  __real_syscall(SYS_exit, 0);
  _exit(1);
}

TEST_F(LinuxMachineTest, AProcessOutlivesItsFirstThread) {
  static constexpr size_t kMemory = size_t{64} << 20;
  Child child([](const std::function<void()> &ready) {
    void *memory =
        mmap(nullptr, kMemory, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    pthread_t thread;
    if (memory == MAP_FAILED || dup2(0, 100) != 100 ||
        pthread_create(&thread, nullptr, waitForever, nullptr) != 0) {
      _exit(1);
    }
    std::memset(memory, 1, kMemory);
    ready();
    endFirstThread();
  });
  ASSERT_TRUE(waitUntil([&] { return statusLine(child.pid(), "State") == "Z"; }));
  // The second look is the one at a process that rests.
  for (int look = 0; look < 2; look++) {
    SCOPED_TRACE(look);
    darwin::proc_taskallinfo info{};
    ASSERT_EQ(machine_->taskAllInfo(child.pid(), info), kAnswered);
    EXPECT_EQ(info.pbsd.pbi_status, darwin::SSLEEP);
    EXPECT_EQ(info.pbsd.pbi_flags & darwin::PROC_FLAG_INEXIT, 0u);
    EXPECT_GT(info.pbsd.pbi_nfiles, 100u);
    EXPECT_GE(info.ptinfo.pti_threadnum, 2);  // a sanitizer has some of its own
    EXPECT_GT(info.ptinfo.pti_virtual_size, kMemory);
    EXPECT_GT(info.ptinfo.pti_resident_size, kMemory);
    darwin::rusage_info_v4 usage{};
    ASSERT_EQ(machine_->resourceUsage(child.pid(), usage), kAnswered);
    EXPECT_GT(usage.ri_phys_footprint, kMemory);
    std::vector<darwin::proc_fdinfo> descriptors;
    ASSERT_EQ(machine_->descriptors(child.pid(), 1024, descriptors), kAnswered);
    EXPECT_TRUE(std::any_of(descriptors.begin(), descriptors.end(),
                            [](const auto &entry) { return entry.proc_fd == 100; }));
    darwin::proc_regionwithpathinfo region{};
    EXPECT_EQ(machine_->region(child.pid(), 0, region), kAnswered);
    ProcessArguments arguments;
    ASSERT_EQ(machine_->arguments(child.pid(), arguments), kAnswered);
    EXPECT_FALSE(arguments.path.empty());
    EXPECT_FALSE(arguments.arguments.empty());
    EXPECT_EQ(machine_->sandboxCheck(child.pid()), 0);
  }
  std::vector<darwin::memorystatus_priority_entry> entries;
  if (machine_->isPrivileged()) {
    ASSERT_EQ(machine_->memoryStatusList(entries), kAnswered);
    EXPECT_TRUE(std::any_of(entries.begin(), entries.end(),
                            [&](const auto &entry) { return entry.pid == child.pid(); }));
  }
}

TEST_F(LinuxMachineTest, AProcessThatEndedLeavesTheMemoryStatusListAfterTheNextLook) {
  if (!machine_->isPrivileged()) GTEST_SKIP() << "needs root, to see the list";
  Child child(sleeping);
  auto isListed = [&] {
    std::vector<darwin::memorystatus_priority_entry> entries;
    EXPECT_EQ(machine_->memoryStatusList(entries), kAnswered);
    return std::any_of(entries.begin(), entries.end(),
                       [&](const auto &entry) { return entry.pid == child.pid(); });
  };
  darwin::proc_taskallinfo info{};
  for (int pass = 0; pass < 3; pass++) {
    EXPECT_TRUE(isListed());
    ASSERT_EQ(machine_->taskAllInfo(child.pid(), info), kAnswered);
  }
  child.signalAndWait(SIGKILL, WEXITED);
  EXPECT_EQ(machine_->taskAllInfo(child.pid(), info), kAnswered);
  EXPECT_FALSE(isListed());
}

std::string scoreOf(pid_t pid) {
  std::string score;
  std::ifstream("/proc/" + std::to_string(pid) + "/oom_score_adj") >> score;
  return score;
}

TEST_F(LinuxMachineTest, ABandThatIsSetIsTheOneThatIsRead) {
  if (!machine_->isPrivileged()) GTEST_SKIP() << "needs root, to see the list";
  Child child(sleeping);
  const auto band = [&] { return bandOf(*machine_, child.pid()); };
  EXPECT_EQ(machine_->setMemoryStatusPlace(child.pid(), {0, true, 0}), kAnswered);
  EXPECT_EQ(band(), 0);
  EXPECT_EQ(machine_->setMemoryStatusPlace(child.pid(), {}), kAnswered);
  EXPECT_EQ(scoreOf(child.pid()), "0");
  for (int32_t wanted = 0; wanted <= 21; wanted++) {
    const Errno error = machine_->setMemoryStatusPlace(child.pid(), {wanted, false, 5});
    // A root that lacks the right to protect a process is refused by the kernel.
    if (wanted > 10 && error == darwin::DARWIN_EPERM) {
      EXPECT_EQ(band(), 10);
      return;
    }
    ASSERT_EQ(error, kAnswered) << wanted;
    EXPECT_EQ(band(), wanted);
  }
  EXPECT_EQ(scoreOf(child.pid()), "-1000");
}

TEST_F(LinuxMachineTest, MemoryStatusOfWhatIsNoProcessCantBeChanged) {
  Child child([](const std::function<void()> &ready) {
    pthread_t thread;
    if (pthread_create(&thread, nullptr, waitForever, nullptr) != 0) _exit(1);
    ready();
    sleepForever();
  });
  darwin::memorystatus_memlimit_properties limits{};
  std::vector<uint64_t> threads;
  ASSERT_EQ(machine_->threadIDs(child.pid(), threads), kAnswered);
  ASSERT_GE(threads.size(), 2U);  // a sanitizer has some of its own
  for (const pid_t none : {static_cast<pid_t>(threads.back()), INT32_MAX, 0, -1}) {
    EXPECT_EQ(machine_->setMemoryStatusPlace(none, {3, false, 0}), darwin::DARWIN_ESRCH) << none;
    EXPECT_EQ(machine_->memoryLimits(none, limits), darwin::DARWIN_ESRCH) << none;
    EXPECT_EQ(machine_->setMemoryLimits(none, limits), darwin::DARWIN_ESRCH) << none;
  }
  EXPECT_EQ(scoreOf(child.pid()), scoreOf(getpid()));

  child.signalAndWait(SIGKILL, WEXITED);
  EXPECT_EQ(machine_->setMemoryStatusPlace(child.pid(), {3, false, 0}), darwin::DARWIN_EBUSY);
  EXPECT_EQ(machine_->memoryLimits(child.pid(), limits), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine_->setMemoryLimits(child.pid(), limits), darwin::DARWIN_ESRCH);
}

TEST_F(LinuxMachineTest, LimitsOfAProcessWithoutAGroupOfItsOwn) {
  // It stays in the group of the test.
  Child child(sleeping);
  darwin::memorystatus_memlimit_properties limits = {64, 1, 64, 1};
  EXPECT_EQ(machine_->memoryLimits(child.pid(), limits), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(machine_->setMemoryLimits(child.pid(), limits), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(limits.memlimit_active, 64);
}

TEST_F(LinuxMachineTest, KernelThreadsStayInTheirBand) {
  size_t seen = 0;
  for (const int32_t pid : listed()) {
    darwin::proc_taskallinfo info{};
    if (machine_->taskAllInfo(pid, info) != kAnswered) continue;
    if ((info.pbsd.pbi_flags & darwin::PROC_FLAG_SYSTEM) == 0) continue;
    const std::string before = scoreOf(pid);
    EXPECT_EQ(machine_->setMemoryStatusPlace(pid, {3, false, 0}), darwin::DARWIN_EPERM) << pid;
    EXPECT_EQ(scoreOf(pid), before);
    if (++seen == 5) break;
  }
  if (seen == 0) GTEST_SKIP() << "no kernel thread is to be seen from here";
}

TEST_F(LinuxMachineTest, KernelThreadsHaveNoDescriptors) {
  size_t seen = 0;
  for (int pass = 0; pass < 2; pass++) {
    for (int32_t pid : listed()) {
      darwin::proc_taskallinfo info{};
      std::vector<darwin::proc_fdinfo> list(1);
      if (machine_->taskAllInfo(pid, info) != kAnswered) continue;
      if ((info.pbsd.pbi_flags & darwin::PROC_FLAG_SYSTEM) == 0) continue;
      if (machine_->descriptors(pid, 128, list) != kAnswered) continue;
      EXPECT_TRUE(list.empty()) << pid;
      seen++;
    }
  }
  if (seen == 0) GTEST_SKIP() << "no kernel thread is to be seen from here";
}

TEST_F(LinuxMachineTest, ARestingChildIsReadAgainOnceItRan) {
  int orders[2];
  int answers[2];
  ASSERT_EQ(pipe2(orders, O_CLOEXEC), 0);
  ASSERT_EQ(pipe2(answers, O_CLOEXEC), 0);
  Child child([&](const std::function<void()> &ready) {
    ready();
    char order = 0;
    while (read(orders[0], &order, 1) == 1) {
      if (dup(orders[0]) < 0 || write(answers[1], "d", 1) != 1) _exit(1);
    }
  });
  size_t before = 0;
  for (int round = 0; round < 20; round++) {
    if (round % 5 == 0) listed();
    ASSERT_TRUE(reaches(child.pid(), darwin::SSLEEP));
    std::vector<darwin::proc_fdinfo> list;
    darwin::proc_taskallinfo info{};
    ASSERT_EQ(machine_->descriptors(child.pid(), 1000, list), kAnswered);
    if (round > 0) {
      EXPECT_EQ(list.size(), before + 1) << "it duplicated one since";
    }
    before = list.size();
    // Looks at a child at rest change nothing.
    ASSERT_EQ(machine_->taskAllInfo(child.pid(), info), kAnswered);
    ASSERT_EQ(machine_->descriptors(child.pid(), 1000, list), kAnswered);
    EXPECT_EQ(list.size(), before);
    ASSERT_EQ(machine_->descriptors(child.pid(), 2, list), kAnswered);
    EXPECT_EQ(list.size(), 2u);

    char answer = 0;
    ASSERT_EQ(write(orders[1], "o", 1), 1);
    ASSERT_EQ(read(answers[0], &answer, 1), 1);
  }
  for (int fd : {orders[0], orders[1], answers[0], answers[1]}) close(fd);
}

TEST_F(LinuxMachineTest, AnExecIsNoticed) {
  Child child([](const std::function<void()> &ready) {
    ready();
    execlp("sleep", "sleep", "1000", nullptr);
    _exit(1);
  });
  darwin::proc_bsdinfo info{};
  ASSERT_TRUE(waitUntil([&] {
    return machine_->bsdInfo(child.pid(), false, info) == kAnswered &&
           std::string(info.pbi_comm) == "sleep";
  }));
  EXPECT_NE(info.pbi_flags & darwin::PROC_FLAG_EXEC, 0u);
  std::string path;
  ASSERT_EQ(machine_->executablePath(child.pid(), path), kAnswered);
  char expected[4096];
  ssize_t length = readlink(("/proc/" + std::to_string(child.pid()) + "/exe").c_str(), expected,
                            sizeof expected);
  ASSERT_GT(length, 0);
  EXPECT_EQ(path, std::string(expected, static_cast<size_t>(length)));
}

// What a shell is to do to stay, with arguments of its own and without a child.
constexpr const char *kStopItself = "kill -STOP $$";

TEST_F(LinuxMachineTest, ArgumentsAreThoseOfTheProgramThatRuns) {
  const std::vector<std::string> given = {"a\nname", "-c", kStopItself, "", "\x1b[31m", "\xff"};
  Child child([&given](const std::function<void()> &ready) {
    ready();
    std::vector<char *> words;
    for (const std::string &word : given) words.push_back(const_cast<char *>(word.c_str()));
    words.push_back(nullptr);
    execv("/bin/sh", words.data());
    _exit(1);
  });
  child.signalAndWait(0, WSTOPPED);
  ProcessArguments process;
  ASSERT_EQ(machine_->arguments(child.pid(), process), kAnswered);
  EXPECT_EQ(process.arguments, given);
  char path[4096];
  ASSERT_NE(realpath("/bin/sh", path), nullptr);
  EXPECT_EQ(process.path, path);
  EXPECT_TRUE(process.environment.empty());
  EXPECT_EQ(process.is64Bit, sizeof(void *) == 8);
}

TEST_F(LinuxMachineTest, TheBeginningOfVeryLongArguments) {
  const std::string longWord(100000, 'x');
  Child shell([&longWord](const std::function<void()> &ready) {
    ready();
    execl("/bin/sh", "sh", "-c", kStopItself, longWord.c_str(), longWord.c_str(), longWord.c_str(),
          nullptr);
    _exit(1);
  });
  shell.signalAndWait(0, WSTOPPED);
  ProcessArguments process;
  ASSERT_EQ(machine_->arguments(shell.pid(), process), kAnswered);
  ASSERT_EQ(process.arguments.size(), 6u);
  EXPECT_EQ(process.arguments[4], longWord);
  const size_t before = 3 + 3 + process.arguments[2].size() + 1 + 2 * (longWord.size() + 1);
  EXPECT_EQ(process.arguments[5], longWord.substr(0, 262144 - before));
}

TEST_F(LinuxMachineTest, AProgramWhoseFileIsGoneSaysSo) {
  char path[] = "/tmp/linux_machine_test.XXXXXX";
  const int copy = mkostemp(path, O_CLOEXEC);
  ASSERT_GE(copy, 0);
  {
    std::ifstream original("/bin/sleep", std::ios::binary);
    std::stringstream bytes;
    bytes << original.rdbuf();
    const std::string text = bytes.str();
    ASSERT_EQ(write(copy, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  ASSERT_EQ(fchmod(copy, 0755), 0);
  ASSERT_EQ(close(copy), 0);
  Child child([&path](const std::function<void()> &ready) {
    ready();
    execl(path, "gone", "1000", nullptr);
    _exit(1);
  });
  ProcessArguments process;
  EXPECT_TRUE(waitUntil([&] {
    return machine_->arguments(child.pid(), process) == kAnswered &&
           process.arguments == std::vector<std::string>{"gone", "1000"};
  }));
  ASSERT_EQ(unlink(path), 0);
  ASSERT_EQ(machine_->arguments(child.pid(), process), kAnswered);
  EXPECT_EQ(process.path, path + std::string(" (deleted)"));
}

TEST_F(LinuxMachineTest, AProcessThatGaveUpPrivilegesKeepsItsPathToItself) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to give it up";
  const auto becomeNobody = [] {
    if (setresuid(65534, 65534, 65534) != 0) _exit(1);
  };
  Child target([&](const std::function<void()> &ready) {
    becomeNobody();
    sleeping(ready);
  });
  Child asker([&](const std::function<void()> &ready) {
    becomeNobody();
    std::unique_ptr<Machine> machine = makeLinuxMachine();
    ProcessArguments process;
    process.path = "untouched";
    if (machine->arguments(target.pid(), process) == kAnswered && process.path.empty() &&
        !process.arguments.empty()) {
      ready();
    }
  });
}

TEST_F(LinuxMachineTest, KernelThreadsWereStartedWithNothing) {
  size_t seen = 0;
  for (int32_t pid : listed()) {
    darwin::proc_bsdinfo info{};
    ProcessArguments process;
    if (machine_->bsdInfo(pid, false, info) != kAnswered) continue;
    if ((info.pbi_flags & darwin::PROC_FLAG_SYSTEM) == 0) continue;
    EXPECT_EQ(machine_->arguments(pid, process), darwin::DARWIN_EINVAL) << pid;
    seen++;
  }
  if (seen == 0) GTEST_SKIP() << "no kernel thread is to be seen from here";
}

TEST_F(LinuxMachineTest, AContainerIsARootDirectoryOfItsOwn) {
  std::string path = "untouched";
  EXPECT_EQ(machine_->containerPath(getpid(), path), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(path, "untouched");
  if (geteuid() != 0) GTEST_SKIP() << "needs root to change a root directory";
  char root[] = "/tmp/linux_machine_test.XXXXXX";
  ASSERT_NE(mkdtemp(root), nullptr);
  Child child([&root](const std::function<void()> &ready) {
    if (chroot(root) != 0) _exit(1);
    sleeping(ready);
  });
  EXPECT_EQ(machine_->containerPath(child.pid(), path), kAnswered);
  EXPECT_EQ(path, root);
  EXPECT_EQ(rmdir(root), 0);
}

TEST_F(LinuxMachineTest, ThereAreNoApplications) {
  Child child(sleeping);
  int32_t state = 99;
  EXPECT_EQ(machine_->applicationState(child.pid(), state), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(state, 99);
  child.end();
  Child ended(sleeping);
  ended.signalAndWait(SIGKILL, WEXITED);
  EXPECT_EQ(machine_->applicationState(ended.pid(), state), darwin::DARWIN_ESRCH);
}

TEST_F(LinuxMachineTest, UsageAgreesWithTheTasksTimes) {
  Child child(busy);
  ASSERT_TRUE(waitUntil([&] {
    darwin::rusage_info_v4 usage{};
    return machine_->resourceUsage(child.pid(), usage) == kAnswered &&
           usage.ri_user_time >= 100'000'000;
  }));
  child.signalAndWait(SIGSTOP, WSTOPPED);
  darwin::rusage_info_v4 usage{};
  darwin::proc_taskallinfo info{};
  ASSERT_EQ(machine_->resourceUsage(child.pid(), usage), kAnswered);
  ASSERT_EQ(machine_->taskAllInfo(child.pid(), info), kAnswered);
  EXPECT_EQ(usage.ri_user_time, info.ptinfo.pti_total_user);
  EXPECT_EQ(usage.ri_system_time, info.ptinfo.pti_total_system);
  EXPECT_EQ(usage.ri_resident_size, info.ptinfo.pti_resident_size);
  EXPECT_EQ(std::to_string(usage.ri_resident_size / 1024), statusLine(child.pid(), "VmRSS"));
  EXPECT_EQ(std::to_string(usage.ri_phys_footprint / 1024), statusLine(child.pid(), "RssAnon"));
}

// What is remembered of a process that rests is not its memory.
TEST_F(LinuxMachineTest, MemoryThatIsTakenFromARestingChildIsMissed) {
  constexpr size_t kSize = size_t{64} << 20;
  const FileHandle memory(memfd_create("taken", MFD_CLOEXEC));
  ASSERT_EQ(ftruncate(memory.get(), kSize), 0);
  Child child(sleepingWith(memory, kSize));
  const auto resident = [&] {
    darwin::proc_taskallinfo info{};
    EXPECT_EQ(machine_->taskAllInfo(child.pid(), info), kAnswered);
    return info.ptinfo.pti_resident_size;
  };
  ASSERT_TRUE(waitUntil(
      [&] { return std::to_string(resident() / 1024) == statusLine(child.pid(), "VmRSS"); }));
  const uint64_t before = resident();
  ASSERT_GT(before, kSize);
  ASSERT_EQ(ftruncate(memory.get(), 0), 0);
  EXPECT_LT(resident() + kSize / 2, before);
}

TEST_F(LinuxMachineTest, NothingHereHasWorkQueuesChannelsOrSignatures) {
  Child child(sleeping);
  darwin::proc_workqueueinfo queue{};
  darwin::channel_fdinfo channel{};
  uint32_t flags = 99;
  EXPECT_EQ(machine_->workQueue(child.pid(), queue), darwin::DARWIN_ESRCH);
  EXPECT_EQ(machine_->channelDescriptor(child.pid(), 0, channel), darwin::DARWIN_EBADF);
  EXPECT_EQ(machine_->channelDescriptor(child.pid(), 9999, channel), darwin::DARWIN_EBADF);
  ASSERT_EQ(machine_->codeSigningFlags(child.pid(), flags), kAnswered);
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(machine_->sandboxCheck(child.pid()), statusLine(child.pid(), "Seccomp") == "2" ? 1 : 0);
}

TEST_F(LinuxMachineTest, OtherUsersProcessesAreRefusedToUsers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  Child target(sleeping);
  Child asker([&target](const std::function<void()> &ready) {
    if (setresuid(65534, 65534, 65534) != 0) _exit(1);
    std::unique_ptr<Machine> machine = makeLinuxMachine();
    darwin::proc_taskallinfo info{};
    darwin::proc_pidcoalitioninfo coalition{};
    darwin::rusage_info_v4 usage{};
    std::vector<uint64_t> threads;
    std::vector<darwin::proc_fdinfo> list;
    std::vector<darwin::memorystatus_priority_entry> entries;
    ProcessArguments arguments;
    std::string path;
    int32_t state = 0;
    darwin::memorystatus_memlimit_properties limits{};
    bool asExpected =
        !machine->isPrivileged() &&
        machine->taskAllInfo(target.pid(), info) == darwin::DARWIN_EPERM &&
        machine->bsdInfo(target.pid(), true, info.pbsd) == darwin::DARWIN_EPERM &&
        machine->resourceUsage(target.pid(), usage) == darwin::DARWIN_EPERM &&
        machine->threadHandles(target.pid(), threads) == darwin::DARWIN_EPERM &&
        machine->descriptors(target.pid(), 9, list) == darwin::DARWIN_EPERM &&
        machine->coalition(target.pid(), coalition) == kAnswered &&
        machine->memoryStatusList(entries) == darwin::DARWIN_EPERM &&
        machine->setMemoryStatusPlace(target.pid(), {3, false, 0}) == darwin::DARWIN_EPERM &&
        machine->memoryLimits(target.pid(), limits) == darwin::DARWIN_EPERM &&
        machine->setMemoryLimits(target.pid(), limits) == darwin::DARWIN_EPERM &&
        machine->arguments(target.pid(), arguments) == darwin::DARWIN_EPERM &&
        machine->containerPath(target.pid(), path) == darwin::DARWIN_EPERM &&
        machine->applicationState(target.pid(), state) == darwin::DARWIN_EPERM &&
        machine->taskAllInfo(getpid(), info) == kAnswered && info.pbsd.pbi_uid == 65534;
    if (asExpected) ready();
  });
}

// Though the report of a sample is given what the sample was.
TEST_F(LinuxMachineTest, WhatOthersDoToAFileOfARestingChildIsSeen) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  Child child(sleeping);
  Child other(sleeping);
  ASSERT_TRUE(reaches(child.pid(), darwin::SSLEEP));
  const auto isNonBlocking = [&] {
    darwin::pipe_fdinfo info{};
    EXPECT_EQ(machine_->pipeDescriptor(child.pid(), ends[0], info), kAnswered);
    return (info.pfi.fi_openflags & darwin::DARWIN_O_NONBLOCK) != 0;
  };
  const auto lookAway = [&] {
    darwin::proc_taskallinfo info{};
    EXPECT_EQ(machine_->taskAllInfo(other.pid(), info), kAnswered);
  };
  const auto setNonBlocking = [&](bool on) {
    ASSERT_EQ(fcntl(ends[0], F_SETFL, on ? O_NONBLOCK : 0), 0);
  };
  listed();
  EXPECT_FALSE(isNonBlocking());
  setNonBlocking(true);
  EXPECT_TRUE(isNonBlocking()) << "asked again without another look at the process";
  lookAway();
  setNonBlocking(false);
  listed();
  EXPECT_FALSE(isNonBlocking()) << "another sample";
  lookAway();
  setNonBlocking(true);
  EXPECT_TRUE(waitUntil([&] {
    lookAway();
    return isNonBlocking();
  })) << "who begins no sample sees it too, if later";
  for (const int fd : ends) close(fd);
}

// The process that an open file in /proc belongs to; 0 for another file.
int32_t processOfFile(const std::string &path) {
  int32_t pid = 0;
  return std::sscanf(path.c_str(), "/proc/%d/", &pid) == 1 ? pid : 0;
}

// Other processes and threads come and go meanwhile: what may stay open is told by what it is.
TEST_F(LinuxMachineTest, NothingLeaks) {
  const auto others = [](const std::multiset<std::string> &files) {
    return std::count_if(files.begin(), files.end(),
                         [](const std::string &path) { return processOfFile(path) == 0; });
  };
  const auto before = others(openFiles());
  const auto lookAtAll = [this] {
    std::vector<int32_t> pids = listed();
    for (int32_t pid : pids) {
      darwin::proc_taskallinfo info{};
      std::vector<darwin::proc_fdinfo> list;
      machine_->taskAllInfo(pid, info);
      machine_->descriptors(pid, 128, list);
    }
    return pids;
  };
  for (int round = 0; round < 20; round++) {
    Child child(sleeping);
    lookAtAll();
  }
  const std::vector<int32_t> pids = lookAtAll();
  const std::multiset<std::string> after = openFiles();
  // A directory, the socket that lists sockets, and two descriptors for each of the two looks.
  EXPECT_LE(others(after), before + 6);
  for (const std::string &path : after) {
    const int32_t pid = processOfFile(path);
    if (pid == 0) continue;
    EXPECT_EQ(after.count(path), 1u) << path;
    EXPECT_THAT(pids, Contains(pid)) << path;
  }
}

TEST_F(LinuxMachineTest, MayBeAskedByManyThreads) {
  Child child(sleeping);
  Child other(busy);
  std::atomic<int> failures{0};
  std::vector<std::thread> askers;
  for (int i = 0; i < 4; i++) {
    askers.emplace_back([&, i] {
      pid_t pid = i % 2 == 0 ? child.pid() : other.pid();
      for (int round = 0; round < 200; round++) {
        darwin::proc_taskallinfo info{};
        darwin::proc_threadinfo thread{};
        std::vector<int32_t> pids;
        if (round % 20 == 0 && machine_->processIDs(pids) != kAnswered) failures++;
        if (machine_->taskAllInfo(pid, info) != kAnswered ||
            info.pbsd.pbi_pid != static_cast<uint32_t>(pid) ||
            machine_->threadInfo(pid, static_cast<uint64_t>(pid), thread) != kAnswered) {
          failures++;
        }
      }
    });
  }
  for (std::thread &asker : askers) asker.join();
  EXPECT_EQ(failures, 0);
}

}  // namespace
}  // namespace host::linux_machine
