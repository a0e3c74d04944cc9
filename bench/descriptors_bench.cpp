// What listing the descriptors of all processes costs, with 100 and 500 processes that hold 40 each
// on this machine, sockets among them: `sondex all fds`, and lsof of the same in the same run.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "crowd.h"

namespace {

constexpr size_t kDescriptors = 40;

void require(bool succeeded, const char *what) {
  if (succeeded) return;
  std::perror(what);
  std::exit(1);
}

// Fills the numbers from 3 on with a mixture of what daemons have open.
void openDescriptors() {
  for (int fd = STDERR_FILENO; fd + 1 < static_cast<int>(kDescriptors);) {
    std::array<int, 2> ends = {-1, -1};
    switch (fd % 6) {
      case 0:
        ends[0] = open("/etc/passwd", O_RDONLY);
        break;
      case 1:
        require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0, "socketpair");
        break;
      case 2:
        ends[0] = socket(AF_INET, SOCK_STREAM, 0);
        require(listen(ends[0], 1) == 0, "listen");
        break;
      case 3:
        ends[0] = epoll_create1(0);
        break;
      case 4:
        ends[0] = memfd_create("bench", 0);
        break;
      default:
        require(pipe(ends.data()) == 0, "pipe");
        break;
    }
    require(ends[0] >= 0, "descriptor");
    fd = std::max(ends[0], ends[1]);
  }
}

// The processes are shared by all measurements at one size: benchmarks run in order of
// registration.
void ensureCrowd(size_t count) {
  static std::unique_ptr<bench::Crowd> crowd;
  static size_t present = 0;
  if (present == count) return;
  crowd.reset();
  crowd = std::make_unique<bench::Crowd>(count, openDescriptors);
  present = count;
}

double secondsOf(const timeval &time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

struct Run {
  double seconds = -1;  // of processor time, user and system; negative when it failed
  size_t lines = 0;
};

// Runs a program whose standard output is a pipe, and takes in what it writes.
Run runProgram(const std::vector<std::string> &arguments) {
  std::vector<char *> words;
  for (const std::string &argument : arguments)
    words.push_back(const_cast<char *>(argument.c_str()));
  words.push_back(nullptr);
  std::array<int, 2> output{};
  require(pipe2(output.data(), O_CLOEXEC) == 0, "pipe2");
  const pid_t pid = fork();
  require(pid >= 0, "fork");
  if (pid == 0) {
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDERR_FILENO);
    dup2(output[1], STDOUT_FILENO);
    execvp(words[0], words.data());
    _exit(127);
  }
  close(output[1]);
  Run run;
  std::vector<char> buffer(65536);
  ssize_t length = 0;
  while ((length = read(output[0], buffer.data(), buffer.size())) > 0) {
    run.lines += static_cast<size_t>(std::count(buffer.begin(), buffer.begin() + length, '\n'));
  }
  close(output[0]);
  int status = 0;
  rusage usage{};
  require(wait4(pid, &status, 0, &usage) == pid, "wait4");
  // lsof's status only says whether it found all that it was asked for.
  if (WIFEXITED(status) && WEXITSTATUS(status) <= 1) {
    run.seconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
  }
  return run;
}

void listAll(benchmark::State &state, const std::vector<std::string> &arguments) {
  const auto processes = static_cast<size_t>(state.range(0));
  ensureCrowd(processes);
  Run run;
  for (auto _ : state) {
    run = runProgram(arguments);
    if (run.seconds < 0 || run.lines < processes * kDescriptors) {
      state.SkipWithError("did not list all");
      return;
    }
    state.SetIterationTime(run.seconds);
  }
  state.counters["lines"] = static_cast<double>(run.lines);
  state.counters["per_line"] = benchmark::Counter(
      static_cast<double>(run.lines),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  const std::vector<std::pair<const char *, std::vector<std::string>>> programs = {
      {"sondex all fds", {SONDEX_PROGRAM, "all", "fds"}},
      {"lsof -nP", {"lsof", "-nP", "-d", "0-9999"}},
  };
  for (const int64_t processes : {100, 500}) {
    for (const auto &[name, arguments] : programs) {
      benchmark::RegisterBenchmark(
          name, [arguments = arguments](benchmark::State &state) { listAll(state, arguments); })
          ->Arg(processes)
          ->UseManualTime()
          ->Iterations(5)
          ->Unit(benchmark::kMillisecond);
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
