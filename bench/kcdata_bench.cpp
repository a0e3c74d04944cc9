// How fast stackshots are made and printed: 200 processes with 25 threads each, every thread with a
// name, times, and stacks of 12 and 30 addresses. What is printed is thrown away.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "host/snapshot.h"
#include "kcdata/parser.h"
#include "kcdata/type_names.h"

namespace {

constexpr int kTasks = 200;
constexpr int kThreadsEach = 25;
constexpr uint64_t kFlags = 0x09092006;

const host::Snapshot &snapshot() {
  static const host::Snapshot made = [] {
    host::Snapshot whole;
    whole.kernelVersion = "Darwin Kernel Version 18.7.0";
    whole.pageSize = 16384;
    whole.memory.emplace();
    for (int i = 0; i < kTasks; i++) {
      host::SnapshotTask &task = whole.tasks.emplace_back();
      task.pid = i;
      task.name = "process" + std::to_string(i);
      task.images.resize(60);
      for (int j = 0; j < kThreadsEach; j++) {
        host::SnapshotThread &thread = task.threads.emplace_back();
        thread.id = static_cast<uint64_t>(i * kThreadsEach + j + 1);
        thread.name = "com.apple.worker." + std::to_string(j);
        thread.runnableTime = 1'000'000;
        thread.kernelStack.assign(12, 0xFFFFFFF007B6A1C4);
        thread.userStack.assign(30, 0x1A2B3C4D5);
      }
    }
    return whole;
  }();
  return made;
}

void countBytes(benchmark::State &state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(bytes) * static_cast<int64_t>(state.iterations()));
  state.counters["size"] = static_cast<double>(bytes);
}

void writeStackshot(benchmark::State &state) {
  size_t bytes = 0;
  for (auto _ : state) {
    const std::vector<uint8_t> written = writeSnapshot(snapshot(), kFlags);
    bytes = written.size();
    benchmark::DoNotOptimize(written.data());
  }
  countBytes(state, bytes);
}

void printStackshot(benchmark::State &state, uint32_t flags, uint32_t threadsOnly) {
  const std::vector<uint8_t> written = writeSnapshot(snapshot(), kFlags);
  std::FILE *const terminal = stdout;
  stdout = std::fopen("/dev/null", "we");
  if (stdout == nullptr) std::abort();
  for (auto _ : state) {
    sondex::parse_stackshot(written.data(), written.size(), flags, threadsOnly);
  }
  std::fclose(stdout);
  stdout = terminal;
  countBytes(state, written.size());
}

BENCHMARK(writeStackshot)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(printStackshot, all, 0, 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(printStackshot, numbers, sondex::kPrintNumbers, 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(printStackshot, threads, sondex::kPrintCompact, 1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
