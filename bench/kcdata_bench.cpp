// How fast stackshots are made and printed: 200 processes with 25 threads each, every thread with a
// name, times, and stacks of 12 and 30 addresses; and items that never end. What is printed is
// thrown away.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "darwin/kcdata.h"
#include "darwin/stackshot.h"
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

void print(benchmark::State &state, const std::vector<uint8_t> &written, uint32_t flags,
           uint32_t threadsOnly) {
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

void printStackshot(benchmark::State &state, uint32_t flags, uint32_t threadsOnly) {
  print(state, writeSnapshot(snapshot(), kFlags), flags, threadsOnly);
}

// One item of that many bytes, all of them a letter.
void printBroken(benchmark::State &state, uint32_t type, uint64_t itemFlags) {
  const uint32_t size = static_cast<uint32_t>(state.range(0));
  std::vector<uint8_t> bytes(16);
  const auto append = [&bytes](const auto &word) {
    const auto *start = reinterpret_cast<const uint8_t *>(&word);
    bytes.insert(bytes.end(), start, start + sizeof word);
  };
  append(darwin::kcdata_item{type, size, itemFlags});
  bytes.resize(bytes.size() + size, 'n');
  print(state, bytes, 0, 0);
}

BENCHMARK(writeStackshot)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(printStackshot, all, 0, 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(printStackshot, numbers, sondex::kPrintNumbers, 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(printStackshot, threads, sondex::kPrintCompact, 1)->Unit(benchmark::kMillisecond);

// A version of the system, and an array of threads' names whose count says nothing of their length.
BENCHMARK_CAPTURE(printBroken, text, darwin::STACKSHOT_KCTYPE_OSVERSION, 0)
    ->Arg(256 << 10)
    ->Arg(16 << 20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(printBroken, names, darwin::KCDATA_TYPE_ARRAY_PAD0,
                  uint64_t{darwin::STACKSHOT_KCTYPE_THREAD_NAME} << 32 | UINT32_MAX)
    ->Arg(256 << 10)
    ->Arg(16 << 20)
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
