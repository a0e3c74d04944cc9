// The monitors as a process sees them: they print, and end with the process only. Each runs in a
// child, on a machine with a script that ends in the child's end.
#include "main/monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "darwin/kqueue.h"
#include "host/darwin/errors.h"
#include "state/display.h"
#include "tests/unit/fake_machine.h"

namespace {

using namespace sondex;
using darwin::DARWIN_EINTR;
using darwin::DARWIN_ENOTSUP;
using darwin::DARWIN_ESRCH;
using darwin::NOTE_EXEC;
using darwin::NOTE_EXIT;
using darwin::NOTE_FORK;

constexpr int kScriptEnded = 42;
constexpr char kFirstLine[] = "Running in Monitor mode; Press CTRL-C to exit\n";

struct Pressure {
  host::Errno error;
  uint32_t wanted;
  uint32_t reclaimed;
};

struct Happening {
  host::Errno error;
  uint32_t notes;
};

class ScriptedEvents : public host::ProcessEvents {
 public:
  ScriptedEvents(std::vector<Happening> script, host::Errno refusal)
      : script_(std::move(script)), refusal_(refusal) {}

  host::Errno watch(pid_t pid) override {
    watched_ = pid;
    return refusal_;
  }
  void unwatch(pid_t) override {}
  host::Errno wait(std::optional<std::chrono::nanoseconds> timeout,
                   std::vector<host::ProcessEvent> &events) override {
    // What was printed must be out by now: nothing is flushed here.
    if (next_ == script_.size() || timeout) _exit(kScriptEnded);
    const Happening &happening = script_[next_++];
    if (happening.error == host::kAnswered) events = {{watched_, happening.notes}};
    return happening.error;
  }

 private:
  std::vector<Happening> script_;
  host::Errno refusal_;
  size_t next_ = 0;
  pid_t watched_ = -1;
};

class ScriptedMachine : public fake_machine::FakeMachine {
 public:
  std::vector<Pressure> pressures;
  std::vector<Happening> happenings;
  host::Errno watching = host::kAnswered;
  // Ends the child with the pressure mark as its status.
  bool tellsMark = false;

  host::Errno memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted,
                             uint32_t &reclaimed) override {
    if (!waits || seconds != 1) _exit(1);
    if (next_ == pressures.size())
      _exit(tellsMark ? sondex::load(g_VMPressureDetected) : kScriptEnded);
    const Pressure &pressure = pressures[next_++];
    if (pressure.error != host::kAnswered) return pressure.error;
    wanted = pressure.wanted;
    reclaimed = pressure.reclaimed;
    return host::kAnswered;
  }
  host::Errno processEvents(std::unique_ptr<host::ProcessEvents> &events) override {
    events = std::make_unique<ScriptedEvents>(happenings, watching);
    return host::kAnswered;
  }

 private:
  size_t next_ = 0;
};

struct Result {
  std::string output;
  std::string error;
  int status = -1;  // exit status; -1 when a signal ended the child
};

std::string readToEnd(int descriptor) {
  std::string all;
  char chunk[4096];
  ssize_t length = 0;
  while ((length = read(descriptor, chunk, sizeof chunk)) > 0) {
    all.append(chunk, static_cast<size_t>(length));
  }
  return all;
}

class Monitor : public fake_machine::MachineTest<ScriptedMachine> {
 protected:
  static Result inChild(const std::function<void()> &body) {
    std::array<int, 2> output{};
    std::array<int, 2> error{};
    EXPECT_EQ(pipe(output.data()), 0);
    EXPECT_EQ(pipe(error.data()), 0);
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
      dup2(output[1], STDOUT_FILENO);
      dup2(error[1], STDERR_FILENO);
      for (const int end : {output[0], output[1], error[0], error[1]}) close(end);
      body();
      _exit(0);
    }
    close(output[1]);
    close(error[1]);
    Result result;
    result.output = readToEnd(output[0]);
    result.error = readToEnd(error[0]);
    close(output[0]);
    close(error[0]);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status)) result.status = WEXITSTATUS(status);
    return result;
  }

  static Result run(std::vector<std::string> words) {
    return inChild([&words] {
      std::vector<char *> arguments;
      for (std::string &word : words) arguments.push_back(word.data());
      arguments.push_back(nullptr);
      do_monitor(static_cast<int>(words.size()), arguments.data());
    });
  }
};

TEST_F(Monitor, OfPressure) {
  machine.pressures = {{0, 123, 45}, {0, 0, 4'000'000'000}};
  const Result result = run({"sondex", "vmmon"});
  EXPECT_EQ(result.output, std::string(kFirstLine) +
                               "Monitoring VM Pressure\n"
                               "Wanted 123 pages, Reclaimed: 45\n"
                               "Wanted 0 pages, Reclaimed: -294967296\n");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.status, kScriptEnded);
}

TEST_F(Monitor, OfPressureWhateverFollows) {
  const Result result = run({"sondex", "vmmon", "process"});
  EXPECT_EQ(result.output, std::string(kFirstLine) + "Monitoring VM Pressure\n");
  EXPECT_EQ(result.status, kScriptEnded);
}

TEST_F(Monitor, FailuresArePrintedAndDoNotEndIt) {
  machine.pressures = {{DARWIN_EINTR, 0, 0}, {0, 7, 8}};
  const auto start = std::chrono::steady_clock::now();
  const Result result = run({"sondex", "vmmon"});
  EXPECT_EQ(result.output, std::string(kFirstLine) +
                               "Monitoring VM Pressure\n"
                               "Wanted -1 pages, Reclaimed: 0\n"
                               "Wanted 7 pages, Reclaimed: 8\n");
  // A call that always fails must not keep a processor busy.
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(Monitor, InTheBackgroundRaisesTheMarkAndPrintsNothing) {
  machine.pressures = {{0, 5, 6}};
  machine.tellsMark = true;
  const Result result = inChild([] { doVMPressureMonitor(0); });
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.status, 2);
}

TEST_F(Monitor, InTheForegroundRaisesTheMarkToo) {
  machine.pressures = {{0, 5, 6}};
  machine.tellsMark = true;
  const Result result = inChild([] { doVMPressureMonitor(1); });
  EXPECT_EQ(result.output, "Wanted 5 pages, Reclaimed: 6\n");
  EXPECT_EQ(result.status, 2);
}

TEST_F(Monitor, OfProcessOne) {
  machine.happenings = {{0, NOTE_FORK}, {0, NOTE_EXEC}, {0, NOTE_EXIT}};
  const Result result = run({"sondex", "monitor"});
  EXPECT_EQ(result.output, std::string(kFirstLine) +
                               "PID 1 fork()ed\n"
                               "pid 1 has exec()ed\n"
                               "pid 1 has exited\n");
  EXPECT_EQ(result.error, "");
  EXPECT_EQ(result.status, 0);
}

TEST_F(Monitor, OfProcessOneWhateverFollows) {
  machine.happenings = {{0, NOTE_EXIT}};
  for (const char *word : {"vm", "process", "vmmon", "7"}) {
    const Result result = run({"sondex", "monitor", word});
    EXPECT_EQ(result.output, std::string(kFirstLine) + "pid 1 has exited\n");
    EXPECT_EQ(result.status, 0);
  }
}

TEST_F(Monitor, NotesThatComeTogetherAreInOrder) {
  machine.happenings = {{0, NOTE_EXIT | NOTE_EXEC | NOTE_FORK}};
  EXPECT_EQ(run({"sondex", "monitor"}).output, std::string(kFirstLine) +
                                                   "PID 1 fork()ed\n"
                                                   "pid 1 has exec()ed\n"
                                                   "pid 1 has exited\n");
}

TEST_F(Monitor, LinesAreSeenAtOnce) {
  machine.happenings = {{0, NOTE_FORK}};
  const Result result = run({"sondex", "monitor"});
  EXPECT_EQ(result.output, std::string(kFirstLine) + "PID 1 fork()ed\n");
  EXPECT_EQ(result.status, kScriptEnded);
}

TEST_F(Monitor, WithoutAQueueEndsWithTwo) {
  const Result result = inChild([] {
    static rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none = {3, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    // Sanitizers need descriptors for what they look at while the child ends.
    std::atexit([] { setrlimit(RLIMIT_NOFILE, &before); });
    doProcessMonitor(0, nullptr);
  });
  EXPECT_EQ(result.output, "");
  EXPECT_EQ(result.error, "kqueue: Too many open files\n");
  EXPECT_EQ(result.status, 2);
}

TEST_F(Monitor, WithoutRegistrationEndsWithThree) {
  machine.watching = DARWIN_ESRCH;
  const Result result = run({"sondex", "monitor"});
  EXPECT_EQ(result.output, kFirstLine);
  EXPECT_EQ(result.error, "kevent: No such process\n");
  EXPECT_EQ(result.status, 3);
}

TEST_F(Monitor, ThatCannotWaitEndsWithFour) {
  machine.happenings = {{0, NOTE_FORK}, {DARWIN_EINTR, 0}};
  const Result result = run({"sondex", "monitor"});
  EXPECT_EQ(result.output, std::string(kFirstLine) + "PID 1 fork()ed\n");
  EXPECT_EQ(result.error, "kevent: Interrupted system call\n");
  EXPECT_EQ(result.status, 4);
}

TEST_F(Monitor, WithoutAReaderSaysSoAndFails) {
  machine.happenings = {{0, NOTE_FORK}};
  const Result result = inChild([] {
    std::signal(SIGPIPE, SIG_IGN);
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) _exit(1);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    doProcessMonitor(0, nullptr);
  });
  EXPECT_EQ(result.error, "standard output: Broken pipe\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(Monitor, WithoutStandardOutputSaysSoAndFails) {
  machine.pressures = {{0, 1, 1}};
  const Result result = inChild([] {
    close(STDOUT_FILENO);
    doVMPressureMonitor(1);
  });
  EXPECT_EQ(result.error, "standard output: Bad file descriptor\n");
  EXPECT_EQ(result.status, 1);
}

TEST_F(Monitor, CallPassesTheKernelsAnswer) {
  machine.pressures = {{0, 9, 11}, {0, 9, 11}, {DARWIN_ENOTSUP, 0, 0}};
  uint32_t reclaimed = 0;
  EXPECT_EQ(vm_pressure_monitor(1, 1, &reclaimed), 9);
  EXPECT_EQ(reclaimed, 11u);
  EXPECT_EQ(vm_pressure_monitor(1, 1, nullptr), 9);
  EXPECT_EQ(vm_pressure_monitor(1, 1, &reclaimed), -1);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
}

}  // namespace
