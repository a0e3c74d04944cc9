// What looks at all tasks tell of processes that rest, and that nothing which others change of one
// meanwhile is missed.
#include "host/linux/task_survey.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/darwin/errors.h"
#include "host/linux/kernel_looks.h"
#include "host/linux/linux_machine.h"
#include "host/linux/memory_status.h"
#include "host/linux/present_process.h"
#include "tests/unit/child_process.h"
#include "tests/unit/waiting.h"

namespace host::linux_machine {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

TaskRecord sleepingTask(int32_t id, int32_t process) {
  TaskRecord task{};
  task.id = id;
  task.process = process;
  task.startTime = 5'000'000'000;
  task.runTime = 1000;
  task.turns = 7;
  task.parent = 2;
  task.group = 3;
  task.session = 4;
  task.terminalMajor = 136;
  task.terminalIndex = 1;
  task.terminalGroup = 9;
  task.state = 1;
  task.priority = 125;
  task.realTimePriority = 0;
  task.policy = 3;
  task.threads = 1;
  task.virtualPages = 1000;
  task.filePages = 10;
  task.anonymousPages = 20;
  task.sharedPages = 30;
  task.score = 100;
  return task;
}

ProcessStat statOf(const TaskRecord &task) {
  ProcessStat stat{};
  stat.id = task.id;
  stat.state = 'S';
  stat.parent = task.parent;
  stat.group = task.group;
  stat.session = task.session;
  stat.terminal = 34817;
  stat.terminalGroup = task.terminalGroup;
  stat.nice = 5;
  stat.policy = task.policy;
  stat.threads = 1;
  stat.virtualSize = 1000 * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  stat.residentPages = 60;
  return stat;
}

TEST(LinuxTaskSurvey, AReadingAgreesOnlyIfNothingOthersCanChangeDiffers) {
  const TaskRecord same = sleepingTask(70, 70);
  EXPECT_TRUE(agrees(same, statOf(same)));
  struct {
    const char *what;
    void (*change)(TaskRecord &task, ProcessStat &stat);
    bool agree;
  } const cases[] = {
      {"another task", [](auto &, auto &stat) { stat.id++; }, false},
      {"not counted when it runs", [](auto &task, auto &) { task.turns = 0; }, false},
      {"on a processor", [](auto &task, auto &stat) { task.state = 0, stat.state = 'R'; }, false},
      {"woken since", [](auto &task, auto &) { task.state = 0; }, false},
      {"stopped since", [](auto &task, auto &) { task.state = 4; }, false},
      {"stopped", [](auto &task, auto &stat) { task.state = 0x104, stat.state = 'T'; }, true},
      {"traced", [](auto &task, auto &stat) { task.state = 8, stat.state = 't'; }, true},
      {"waiting for a disk", [](auto &task, auto &stat) { task.state = 2, stat.state = 'D'; },
       true},
      {"idle", [](auto &task, auto &stat) { task.state = 0x402, stat.state = 'I'; }, true},
      {"parked", [](auto &task, auto &stat) { task.state = 0x40, stat.state = 'P'; }, true},
      {"frozen since", [](auto &task, auto &) { task.state = 0x8000; }, false},
      {"thawed since", [](auto &, auto &stat) { stat.state = 'D'; }, false},
      {"ended since", [](auto &task, auto &) { task.exitState = 0x20; }, false},
      {"a zombie", [](auto &task, auto &stat) { task.exitState = 0x20, stat.state = 'Z'; }, true},
      {"being taken away", [](auto &task, auto &stat) { task.exitState = 0x10, stat.state = 'X'; },
       false},
      {"parent", [](auto &task, auto &) { task.parent = 1; }, false},
      {"group", [](auto &task, auto &) { task.group = 70; }, false},
      {"session", [](auto &task, auto &) { task.session = 70; }, false},
      {"lost its terminal", [](auto &task, auto &) { task.terminalMajor = 0; }, false},
      {"without a terminal",
       [](auto &task, auto &stat) {
         task.terminalMajor = 0;
         stat.terminal = 0;
         stat.terminalGroup = -1;
       },
       true},
      {"group in front", [](auto &task, auto &) { task.terminalGroup = 70; }, false},
      {"nice", [](auto &task, auto &) { task.priority = 120; }, false},
      {"policy", [](auto &task, auto &) { task.policy = 0; }, false},
      {"real-time priority", [](auto &task, auto &) { task.realTimePriority = 1; }, false},
      {"threads", [](auto &task, auto &) { task.threads = 2; }, false},
      {"virtual size", [](auto &task, auto &) { task.virtualPages--; }, false},
      {"pages of files", [](auto &task, auto &) { task.filePages--; }, false},
      {"pages of its own", [](auto &task, auto &) { task.anonymousPages--; }, false},
      {"pages shared", [](auto &task, auto &) { task.sharedPages--; }, false},
      {"a sum that lags behind",
       [](auto &task, auto &stat) {
         task.sharedPages = -4;
         stat.residentPages = 30;
       },
       true},
  };
  for (const auto &one : cases) {
    TaskRecord task = same;
    ProcessStat stat = statOf(same);
    one.change(task, stat);
    EXPECT_EQ(agrees(task, stat), one.agree) << one.what;
  }
}

// A look at made-up tasks.
void take(TaskSurvey &survey, std::vector<TaskRecord> tasks, bool works = true) {
  survey.take([&](std::vector<TaskRecord> &records) {
    records = std::move(tasks);
    return works;
  });
}

TEST(LinuxTaskSurvey, AProcessRestsIfNoneOfItsTasksHasChanged) {
  const std::vector<TaskRecord> tasks = {sleepingTask(70, 70), sleepingTask(71, 71),
                                         sleepingTask(73, 71)};
  TaskSurvey survey;
  EXPECT_FALSE(survey.isFresh());
  EXPECT_EQ(survey.number(), 0u);
  take(survey, tasks);
  EXPECT_EQ(survey.number(), 1u);
  EXPECT_THAT(survey.restingTasks(70), IsEmpty()) << "there was no look before";
  EXPECT_EQ(survey.tasks(71).size(), 2u);
  EXPECT_THAT(survey.tasks(73), IsEmpty()) << "a thread is no process";
  take(survey, tasks);
  EXPECT_EQ(survey.restingTasks(70).size(), 1u);
  EXPECT_EQ(survey.restingTasks(71).size(), 2u);
  EXPECT_THAT(survey.restingTasks(72), IsEmpty());

  struct {
    const char *what;
    void (*change)(std::vector<TaskRecord> &tasks);
  } const cases[] = {
      {"ran", [](auto &now) { now[2].runTime++; }},
      {"had a turn", [](auto &now) { now[1].turns++; }},
      {"its number is another's", [](auto &now) { now[1].startTime++; }},
      {"a thread more", [](auto &now) { now.push_back(sleepingTask(74, 71)); }},
      {"a thread less", [](auto &now) { now.pop_back(); }},
      {"gone", [](auto &now) { now.resize(1); }},
  };
  for (const auto &one : cases) {
    std::vector<TaskRecord> changed = tasks;
    one.change(changed);
    take(survey, tasks);
    take(survey, changed);
    EXPECT_THAT(survey.restingTasks(71), IsEmpty()) << one.what;
    EXPECT_EQ(survey.restingTasks(70).size(), 1u) << one.what;
    take(survey, changed);
    EXPECT_EQ(survey.restingTasks(71).size(), changed.size() - 1) << one.what;
  }
}

TEST(LinuxTaskSurvey, ALookThatFailedTellsNothing) {
  const std::vector<TaskRecord> tasks = {sleepingTask(70, 70)};
  TaskSurvey survey;
  take(survey, tasks);
  take(survey, tasks, false);
  EXPECT_FALSE(survey.isFresh());
  EXPECT_THAT(survey.tasks(70), IsEmpty());
  take(survey, tasks);
  EXPECT_THAT(survey.restingTasks(70), IsEmpty());
  EXPECT_EQ(survey.number(), 3u);
}

TEST(LinuxTaskSurvey, ListsProcessesInDescendingOrder) {
  TaskSurvey survey;
  take(survey,
       {sleepingTask(1, 1), sleepingTask(70, 70), sleepingTask(60, 71), sleepingTask(71, 71)});
  std::vector<int32_t> pids = {5};
  survey.listProcesses(pids);
  EXPECT_THAT(pids, ElementsAre(71, 70, 1));
}

// Of a process's threads, as the kernel's iterator gives them, from the files.
std::vector<TaskRecord> recordsFromFiles(pid_t process) {
  std::vector<TaskRecord> tasks;
  std::vector<int32_t> ids;
  const std::string folder = "/proc/" + std::to_string(process) + "/task/";
  DirectoryReader lister;
  if (lister.readNumbers(openDirectory(AT_FDCWD, folder.c_str()).get(), ids) != kAnswered)
    return {};
  std::ranges::sort(ids);
  for (const int32_t id : ids) {
    FileReader reader;
    std::string_view text;
    ProcessStat stat{};
    SchedulerRecord ran{};
    const FileHandle task = openStartingPoint(AT_FDCWD, (folder + std::to_string(id)).c_str());
    if (reader.readRecord(task.get(), "stat", text) != kAnswered || !parseProcessStat(text, stat) ||
        reader.readRecord(task.get(), "schedstat", text) != kAnswered ||
        !parseSchedulerRecord(text, ran)) {
      continue;
    }
    TaskRecord record{};
    record.id = id;
    record.process = process;
    record.startTime = stat.startTicks;
    record.runTime = ran.runTime;
    record.turns = ran.turns;
    record.parent = stat.parent;
    record.group = stat.group;
    record.session = stat.session;
    record.terminalMajor = stat.terminal;
    record.terminalGroup = stat.terminalGroup;
    record.state = stat.state == 'S' ? 1 : stat.state == 'T' ? 4 : 0;
    record.exitState = stat.state == 'Z' ? 0x20 : 0;
    record.priority = stat.nice + 120;
    record.realTimePriority = stat.realTimePriority;
    record.policy = stat.policy;
    record.threads = static_cast<int32_t>(stat.threads);
    record.virtualPages = stat.virtualSize / static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    record.filePages = stat.residentPages;
    if (reader.readRecord(task.get(), "oom_score_adj", text) == kAnswered) {
      std::ignore = parseNumber(text.substr(0, text.find('\n')), record.score);
    }
    tasks.push_back(record);
  }
  return tasks;
}

// Looks at one process, by surveys from the kernel where it gives them, and else as from the files.
class SurveyedProcess : public testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    if (!GetParam()) return;
    iterator_ = KernelLooks::load(proc_.get()).tasks;
    if (!iterator_) GTEST_SKIP() << "this kernel gives no look at all tasks to this user";
  }

  void survey(pid_t pid) {
    survey_.take([&](std::vector<TaskRecord> &tasks) {
      if (iterator_) return iterator_->read(tasks);
      tasks = recordsFromFiles(pid);
      return true;
    });
  }
  // True if nothing had to be read: the process's directory has not been opened for it. The machine
  // may be too busy for a survey to be fresh.
  bool isRecalled(pid_t pid) {
    present_.beginPass();
    survey(pid);
    const size_t before = openDescriptors();
    EXPECT_EQ(present_.read(pid), kAnswered);
    const bool isClosed = openDescriptors() == before;
    // For what the next survey tells: a process is known with its threads.
    std::vector<ThreadReading> *threads = nullptr;
    EXPECT_EQ(present_.threads(threads), kAnswered);
    if (isClosed) expectTold(pid);
    return isClosed;
  }
  void waitUntilRecalled(pid_t pid) {
    ASSERT_TRUE(waitUntil([&] { return isRecalled(pid); }));
  }
  // That the reading, and that of each thread, is what the files say.
  void expectTold(pid_t pid) {
    const auto textOf = [](const ProcessStat &stat) {
      return std::string(stat.name) + ' ' + stat.state + ' ' + std::to_string(stat.parent) + ' ' +
             std::to_string(stat.group) + ' ' + std::to_string(stat.session) + ' ' +
             std::to_string(stat.terminal) + ' ' + std::to_string(stat.terminalGroup) + ' ' +
             std::to_string(stat.nice) + ' ' + std::to_string(stat.policy) + ' ' +
             std::to_string(stat.realTimePriority) + ' ' + std::to_string(stat.threads) + ' ' +
             std::to_string(stat.userTicks + stat.systemTicks) + ' ' +
             std::to_string(stat.virtualSize) + ' ' + std::to_string(stat.residentPages);
    };
    KnownProcesses known;
    TaskSurvey none;
    PresentProcess fresh(proc_.get(), known, none);
    ASSERT_EQ(fresh.read(pid), kAnswered);
    EXPECT_EQ(textOf(present_.stat()), textOf(fresh.stat()));
    std::vector<ThreadReading> *recalled = nullptr;
    std::vector<ThreadReading> *read = nullptr;
    EXPECT_EQ(present_.threads(recalled), kAnswered);
    EXPECT_EQ(fresh.threads(read), kAnswered);
    ASSERT_EQ(recalled->size(), read->size());
    for (size_t i = 0; i < read->size(); i++) {
      EXPECT_EQ(textOf((*recalled)[i].stat), textOf((*read)[i].stat));
    }
  }

  const FileHandle proc_ = openDirectory(AT_FDCWD, "/proc");
  std::optional<TaskIterator> iterator_;
  KnownProcesses known_;  // without room for files that stay open
  TaskSurvey survey_;
  PresentProcess present_{proc_.get(), known_, survey_};
};

INSTANTIATE_TEST_SUITE_P(Linux, SurveyedProcess, testing::Bool(), [](const auto &source) {
  return std::string(source.param ? "ByTheKernel" : "ByFiles");
});

TEST_P(SurveyedProcess, IsReadAgainWhateverOthersChangeWhileItRests) {
  constexpr size_t kSize = size_t{16} << 20;
  const FileHandle memory(memfd_create("taken", MFD_CLOEXEC));
  ASSERT_EQ(ftruncate(memory.get(), kSize), 0);
  Child child(sleepingWith(memory, kSize));
  const pid_t pid = child.pid();
  const sched_param usual{};
  struct {
    const char *what;
    std::function<bool()> change;
  } const changes[] = {
      {"nice value", [&] { return setpriority(PRIO_PROCESS, static_cast<id_t>(pid), 15) == 0; }},
      {"policy", [&] { return sched_setscheduler(pid, SCHED_BATCH, &usual) == 0; }},
      {"group", [&] { return setpgid(pid, pid) == 0; }},
      {"memory", [&] { return ftruncate(memory.get(), 0) == 0; }},
  };
  for (const auto &[what, change] : changes) {
    ASSERT_NO_FATAL_FAILURE(waitUntilRecalled(pid)) << what;
    ASSERT_TRUE(change()) << what;
    present_.beginPass();
    survey(pid);
    ASSERT_EQ(present_.read(pid), kAnswered);
    expectTold(pid);
  }
  ASSERT_NO_FATAL_FAILURE(waitUntilRecalled(pid));
  EXPECT_EQ(present_.stat().nice, 15);

  child.signalAndWait(SIGSTOP, WSTOPPED);
  survey(pid);
  ASSERT_EQ(present_.read(pid), kAnswered);
  EXPECT_EQ(present_.stat().state, 'T');
  ASSERT_NO_FATAL_FAILURE(waitUntilRecalled(pid));
  EXPECT_EQ(present_.stat().state, 'T');

  child.signalAndWait(SIGKILL, WEXITED);
  survey(pid);
  ASSERT_EQ(present_.read(pid), kAnswered);
  EXPECT_TRUE(present_.stat().isZombie());
  ASSERT_NO_FATAL_FAILURE(waitUntilRecalled(pid));
  EXPECT_TRUE(present_.stat().isZombie());
  child.end();
  survey(pid);
  EXPECT_EQ(present_.read(pid), darwin::DARWIN_ESRCH);
}

bool mayTakeBackNiceValues() {
  Child child(sleeping);
  const auto who = static_cast<id_t>(child.pid());
  const int before = getpriority(PRIO_PROCESS, who);
  return setpriority(PRIO_PROCESS, who, before + 1) == 0 &&
         setpriority(PRIO_PROCESS, who, before) == 0;
}

// What two surveys agree on may have been otherwise between them, when the files were read.
TEST_P(SurveyedProcess, IsNotRecalledAsItWasForAMoment) {
  if (!mayTakeBackNiceValues()) GTEST_SKIP() << "may not take a nice value back";
  Child child(sleeping);
  const pid_t pid = child.pid();
  const auto setNice = [&](int nice) {
    ASSERT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(pid), nice), 0);
  };
  setNice(5);
  waitUntilRecalled(pid);
  survey(pid);
  setNice(9);
  // Twice, as the first may be told by what the survey before has found.
  ASSERT_EQ(present_.read(pid), kAnswered);
  ASSERT_EQ(present_.read(pid), kAnswered);
  EXPECT_EQ(present_.stat().nice, 9);
  setNice(5);
  survey(pid);
  ASSERT_EQ(present_.read(pid), kAnswered);
  EXPECT_EQ(present_.stat().nice, 5);
}

TEST_P(SurveyedProcess, HasNoThreadRecalledAsItWasForAMoment) {
  if (!mayTakeBackNiceValues()) GTEST_SKIP() << "may not take a nice value back";
  Child child([](const std::function<void()> &ready) {
    std::thread(sleepForever).detach();
    sleeping(ready);
  });
  const pid_t pid = child.pid();
  ASSERT_NO_FATAL_FAILURE(waitUntilRecalled(pid));
  std::vector<ThreadReading> *threads = nullptr;
  ASSERT_EQ(present_.threads(threads), kAnswered);
  const auto second = static_cast<id_t>(threads->at(1).stat.id);
  const int before = threads->at(1).stat.nice;
  const auto readAfter = [&](int nice) {
    ASSERT_EQ(setpriority(PRIO_PROCESS, second, nice), 0);
    ASSERT_EQ(present_.read(pid), kAnswered);
    ASSERT_EQ(present_.threads(threads), kAnswered);
  };
  survey(pid);
  readAfter(before + 4);
  readAfter(before + 4);
  EXPECT_EQ(threads->at(1).stat.nice, before + 4);
  ASSERT_EQ(setpriority(PRIO_PROCESS, second, before), 0);
  survey(pid);
  readAfter(before);
  EXPECT_EQ(threads->at(1).stat.nice, before);
}

TEST_P(SurveyedProcess, WhoAsksTwiceIsToldOfNow) {
  Child child(sleeping);
  const pid_t pid = child.pid();
  waitUntilRecalled(pid);
  survey(pid);
  ASSERT_EQ(present_.read(pid), kAnswered);
  ASSERT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(pid), 15), 0);
  ASSERT_EQ(present_.read(pid), kAnswered);
  EXPECT_EQ(present_.stat().nice, 15);
}

TEST_P(SurveyedProcess, OfManyThreadsIsReadAgainOnceOneIsChanged) {
  Child child([](const std::function<void()> &ready) {
    for (int i = 0; i < 5; i++) std::thread(sleepForever).detach();
    sleeping(ready);
  });
  const pid_t pid = child.pid();
  ASSERT_NO_FATAL_FAILURE(waitUntilRecalled(pid));
  std::vector<ThreadReading> *threads = nullptr;
  ASSERT_EQ(present_.threads(threads), kAnswered);
  ASSERT_EQ(threads->size(), 6u);
  const int32_t last = threads->back().stat.id;
  ASSERT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(last), 15), 0);
  survey(pid);
  ASSERT_EQ(present_.read(pid), kAnswered);
  ASSERT_EQ(present_.threads(threads), kAnswered);
  EXPECT_EQ(threads->back().stat.nice, 15);
  expectTold(pid);
  ASSERT_NO_FATAL_FAILURE(waitUntilRecalled(pid));
}

// The group in front of a terminal is changed by others than those that have it.
TEST_P(SurveyedProcess, IsReadAgainOnceAnotherGroupIsInFront) {
  int near = -1;
  int far = -1;
  ASSERT_EQ(openpty(&near, &far, nullptr, nullptr, nullptr), 0);
  int pids[2];
  int orders[2];
  ASSERT_EQ(pipe(pids), 0);
  ASSERT_EQ(pipe(orders), 0);
  Child shell([&](const std::function<void()> &ready) {
    if (setsid() < 0 || ioctl(far, TIOCSCTTY, 0) != 0) _exit(1);
    signal(SIGTTOU, SIG_IGN);
    const pid_t job = fork();
    if (job == 0) sleepForever();
    if (setpgid(job, job) != 0 || write(pids[1], &job, sizeof job) != sizeof job) _exit(1);
    ready();
    for (char order = 0; read(orders[0], &order, 1) == 1;) {
      if (tcsetpgrp(far, order == 'j' ? job : getpid()) != 0) _exit(1);
    }
  });
  pid_t job = 0;
  ASSERT_EQ(read(pids[0], &job, sizeof job), static_cast<ssize_t>(sizeof job));
  for (const auto &[order, group] : {std::pair('j', job), std::pair('s', shell.pid())}) {
    ASSERT_NO_FATAL_FAILURE(waitUntilRecalled(job));
    ASSERT_NE(present_.stat().terminalGroup, group);
    ASSERT_EQ(write(orders[1], &order, 1), 1);
    EXPECT_TRUE(waitUntil([&] {
      survey(job);
      return present_.read(job) == kAnswered && present_.stat().terminalGroup == group;
    }));
    expectTold(job);
  }
  __real_kill(job, SIGKILL);
  for (const int fd : {near, far, pids[0], pids[1], orders[0], orders[1]}) close(fd);
}

TEST_P(SurveyedProcess, HasItsScoreAndEndToldByTheSurvey) {
  Child child(sleeping);
  const pid_t pid = child.pid();
  MemoryStatus status;
  // What the last look at it has found does not count.
  known_.find(pid, 1).isAlive = true;
  const auto bands = [&] {
    std::vector<darwin::memorystatus_priority_entry> entries;
    survey(pid);
    status.list(proc_.get(), {pid}, survey_, known_, entries);
    std::vector<int32_t> found;
    for (const auto &entry : entries) found.push_back(entry.priority);
    return found;
  };
  const auto wait = [&](const std::vector<int32_t> &wanted) {
    return waitUntil([&] { return bands() == wanted; });
  };
  EXPECT_TRUE(wait({10}));
  std::ofstream("/proc/" + std::to_string(pid) + "/oom_score_adj") << 1000;
  EXPECT_TRUE(wait({0}));
  child.signalAndWait(SIGKILL, WEXITED);
  survey(pid);
  EXPECT_TRUE(wait({}));
}

// Of a child that lives, and whose score is another.
TEST(LinuxTaskSurvey, ScoreAndEndAreToldByTheSurvey) {
  Child child(sleeping);
  const FileHandle proc = openDirectory(AT_FDCWD, "/proc");
  KnownProcesses known;
  TaskSurvey survey;
  MemoryStatus status;
  TaskRecord task = sleepingTask(child.pid(), child.pid());
  const auto waitFor = [&](const std::vector<int32_t> &bands) {
    return waitUntil([&] {
      std::vector<darwin::memorystatus_priority_entry> entries;
      take(survey, {task});
      status.list(proc.get(), {child.pid()}, survey, known, entries);
      return std::ranges::equal(entries, bands, {}, &darwin::memorystatus_priority_entry::priority);
    });
  };
  task.score = 1000;
  EXPECT_TRUE(waitFor({0}));
  task.exitState = 0x20;
  EXPECT_TRUE(waitFor({}));
  task.threads = 2;
  EXPECT_TRUE(waitFor({0})) << "others of its threads go on";
}

TEST_P(SurveyedProcess, HasFilesOpenOnlyWhileItIsRead) {
  Child child([](const std::function<void()> &ready) {
    std::thread(sleepForever).detach();
    sleeping(ready);
  });
  const pid_t pid = child.pid();
  KnownProcesses known(100);
  PresentProcess present(proc_.get(), known, survey_);
  const auto look = [&] {
    present.beginPass();
    survey(pid);
    std::vector<ThreadReading> *threads = nullptr;
    EXPECT_EQ(present.read(pid), kAnswered);
    EXPECT_EQ(present.threads(threads), kAnswered);
    return known.budget().open();
  };
  EXPECT_EQ(look(), KeptFiles::kCount + 2 * KeptThreadFiles::kCount);
  EXPECT_TRUE(waitUntil([&] { return look() == 0; }));
  child.signalAndWait(SIGSTOP, WSTOPPED);
  EXPECT_GE(look(), KeptFiles::kCount);
  EXPECT_EQ(present.stat().state, 'T');
  EXPECT_TRUE(waitUntil([&] { return look() == 0; }));
}

// A folder that is opened for what was recalled is the process's own, or none.
TEST_P(SurveyedProcess, HasNoFolderOnceItsNumberIsAnothers) {
  Child child(sleeping);
  const pid_t pid = child.pid();
  waitUntilRecalled(pid);
  int directory = -1;
  EXPECT_EQ(present_.directory(directory), kAnswered);
  present_.beginPass();
  waitUntilRecalled(pid);
  child.end();
  EXPECT_EQ(present_.directory(directory), darwin::DARWIN_ESRCH);
  // Start times are told in hundredths of a second.
  usleep(20'000);
  const pid_t second = startAs(pid);
  if (second == 0) GTEST_SKIP() << "needs the right to choose a pid";
  EXPECT_EQ(present_.directory(directory), darwin::DARWIN_ESRCH);
  __real_kill(second, SIGKILL);
  waitpid(second, nullptr, 0);
}

// Samples of the whole machine, of which later ones are surveyed where the kernel lets one.
TEST(LinuxTaskSurvey, TheMachineTellsTheSameInEverySample) {
  const std::unique_ptr<Machine> machine = makeLinuxMachine();
  Child child(sleeping);
  Child zombie(sleeping);
  zombie.signalAndWait(SIGKILL, WEXITED);
  const int nice = std::min(getpriority(PRIO_PROCESS, 0), 9);
  for (int sample = 1; sample <= 8; sample++) {
    ASSERT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(child.pid()), nice + sample), 0);
    machine->beginSample();
    std::vector<int32_t> pids;
    ASSERT_EQ(machine->processIDs(pids), kAnswered);
    EXPECT_TRUE(std::ranges::is_sorted(pids, std::greater<>())) << sample;
    for (const pid_t present : {child.pid(), zombie.pid(), getpid()}) {
      EXPECT_THAT(pids, Contains(present)) << sample;
    }
    if (machine->isPrivileged()) {
      EXPECT_EQ(bandOf(*machine, child.pid()), 10) << sample;
    }
    darwin::proc_taskallinfo info{};
    ASSERT_EQ(machine->taskAllInfo(child.pid(), info), kAnswered);
    EXPECT_EQ(info.pbsd.pbi_nice, nice + sample);
    EXPECT_EQ(info.pbsd.pbi_ppid, static_cast<uint32_t>(getpid()));
  }
}

}  // namespace
}  // namespace host::linux_machine
