// What listing the descriptors of all processes costs, with 100 and 500 processes that hold 40 each
// on this machine, sockets among them: `sondex all fds`, and lsof of the same in the same run.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "crowd.h"
#include "program_run.h"
#include "require.h"

namespace {

using bench::require;

constexpr size_t kDescriptors = 40;

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

void listAll(benchmark::State &state, const std::vector<std::string> &arguments) {
  const auto processes = static_cast<size_t>(state.range(0));
  ensureCrowd(processes);
  bench::ProgramRun run;
  for (auto _ : state) {
    run = bench::runProgram(arguments);
    // lsof's status only says whether it found all that it was asked for.
    if (run.status < 0 || run.status > 1 || run.lines < processes * kDescriptors) {
      state.SkipWithError("did not list all");
      return;
    }
    state.SetIterationTime(run.processorSeconds);
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
