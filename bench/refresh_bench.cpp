// What a refresh costs with 100 to 10,000 sleeping processes on this machine: its stages, the
// whole program on a terminal, and htop and top beside it in the same run.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "columns/comparators.h"
#include "columns/sort.h"
#include "crowd.h"
#include "darwin/libproc.h"
#include "nstat/accounting.h"
#include "proc/sampler.h"
#include "screens/process_list.h"
#include "state/display.h"
#include "state/system.h"
#include "whole_program.h"

namespace {

using namespace sondex;

constexpr int kRefreshes = 20;

// The processes are shared by all measurements at one size: benchmarks run in order of
// registration.
void ensureCrowd(size_t count) {
  static std::unique_ptr<bench::Crowd> crowd;
  static size_t present = 0;
  if (present == count) return;
  crowd.reset();
  crowd = std::make_unique<bench::Crowd>(count);
  present = count;
}

void takeSample() {
  ProcessRecord *before = previousTable().records;
  indexProcessTable(currentTable());
  setPreviousTable(currentTable());
  setCurrentTable(getPIDList());
  releaseProcessTable(before);
}

void reportPerProcess(benchmark::State &state) {
  const int32_t processes = currentTable().count;
  state.counters["processes"] = processes;
  state.counters["per_process"] = benchmark::Counter(
      processes, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void sample(benchmark::State &state) {
  ensureCrowd(static_cast<size_t>(state.range(0)));
  takeSample();
  for (auto _ : state) takeSample();
  reportPerProcess(state);
}

void sort(benchmark::State &state, Comparator comparator) {
  ensureCrowd(static_cast<size_t>(state.range(0)));
  takeSample();
  takeSample();
  // The order is turned round every time: the sort never finds its work done.
  for (auto _ : state) {
    store(g_reverse, load(g_reverse) ^ 1);
    doSort(comparator);
  }
  reportPerProcess(state);
}

// By what each process received, of a thousand sources that belong to a third as many of them.
void sortByNetwork(benchmark::State &state) {
  constexpr int kSources = 1000;
  ensureCrowd(static_cast<size_t>(state.range(0)));
  takeSample();
  for (int source = 0; source < kSources; source++) {
    const TableView table = currentTable();
    store(process_pid_info[source], pidOf(&table.records[source / 3 % table.count]));
    store(process_ntstat_info[source].received, static_cast<uint64_t>(source) * 7919 % 10007);
  }
  sort(state, sort_netrx);
  for (int source = 0; source < kSources; source++) store(process_pid_info[source], 0);
}

void frame(benchmark::State &state) {
  ensureCrowd(static_cast<size_t>(state.range(0)));
  takeSample();
  takeSample();
  fflush(stdout);
  const int kept = dup(STDOUT_FILENO);
  const int null = open("/dev/null", O_WRONLY);
  dup2(null, STDOUT_FILENO);
  for (auto _ : state) {
    showProcesses(currentTable(), previousTable(), nullptr);
    fflush(stdout);
  }
  dup2(kept, STDOUT_FILENO);
  close(null);
  close(kept);
  reportPerProcess(state);
}

void wholeProgram(benchmark::State &state, double (*refresh)()) {
  ensureCrowd(static_cast<size_t>(state.range(0)));
  takeSample();
  for (auto _ : state) {
    const double seconds = refresh();
    if (seconds < 0) {
      state.SkipWithError("could not be run");
      return;
    }
    state.SetIterationTime(seconds);
  }
  reportPerProcess(state);
}

using bench::secondsPerRefresh;

double refreshOfSondex() {
  return secondsPerRefresh({SONDEX_PROGRAM}, bench::kSondexRefresh, kRefreshes);
}
double refreshOfHtop() {
  return secondsPerRefresh({"htop", "-d", "5"}, "", kRefreshes);
}
double refreshOfTop() {
  return secondsPerRefresh({"top", "-d", "0.5"}, "", kRefreshes);
}

using Arguments = std::vector<std::string>;

// From the start of a program to the end of its first frame, on the clock.
void firstFrame(benchmark::State &state, const Arguments &arguments) {
  ensureCrowd(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    bench::TerminalProgram program(arguments, {160, 50});
    const std::optional<bench::Frame> frame = program.firstFrame();
    if (!frame) {
      state.SkipWithError("could not be run");
      return;
    }
    state.SetIterationTime(frame->seconds);
  }
}

// From a key to the end of the frame that it asks for, on the clock.
void answerToKey(benchmark::State &state) {
  ensureCrowd(static_cast<size_t>(state.range(0)));
  bench::TerminalProgram program({SONDEX_PROGRAM}, {160, 50});
  program.firstFrame();
  for (auto _ : state) {
    const std::optional<bench::Frame> frame = program.nextFrame(bench::kSondexRefresh);
    if (!frame) {
      state.SkipWithError("could not be run");
      return;
    }
    state.SetIterationTime(frame->seconds);
  }
}

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  g_r00t = geteuid() == 0 ? 1 : 0;
  g_OsVer = 14;
  proc_pid_rusage_funcptr = darwin::proc_pid_rusage;

  const std::vector<std::pair<const char *, double (*)()>> programs = {
      {"sondex", refreshOfSondex}, {"htop", refreshOfHtop}, {"top", refreshOfTop}};
  for (const int64_t processes : {100, 500, 1000, 2000, 10000}) {
    benchmark::RegisterBenchmark("sample", sample)->Arg(processes)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("sort", sort, sort_pid)
        ->Arg(processes)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("sort by network", sortByNetwork)
        ->Arg(processes)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("frame", frame)->Arg(processes)->Unit(benchmark::kMillisecond);
    for (const auto &[name, refresh] : programs) {
      benchmark::RegisterBenchmark(
          name, [refresh = refresh](benchmark::State &state) { wholeProgram(state, refresh); })
          ->Arg(processes)
          ->UseManualTime()
          ->Iterations(1)
          ->Unit(benchmark::kMillisecond);
    }
  }
  const std::vector<std::pair<const char *, Arguments>> starts = {
      {"sondex first frame", {SONDEX_PROGRAM}},
      {"htop first frame", {"htop"}},
      {"top first frame", {"top"}}};
  for (const auto &[name, arguments] : starts) {
    benchmark::RegisterBenchmark(name, firstFrame, arguments)
        ->Arg(1000)
        ->UseManualTime()
        ->Iterations(5)
        ->Unit(benchmark::kMillisecond);
  }
  benchmark::RegisterBenchmark("sondex answer to a key", answerToKey)
      ->Arg(1000)
      ->UseManualTime()
      ->Iterations(20)
      ->Unit(benchmark::kMillisecond);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
