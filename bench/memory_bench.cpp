// What looking at the memory of a process costs: the core of one with 2 GiB, all of it touched or
// half, beside gcore's and beside copying a file of that size; that of one with 100 GiB, hardly
// touched, beside one that has no more than was touched there; and the region map of one with 6,000
// and with 60,000 mappings, beside pmap's. All rows of a table come from one run.
#include <benchmark/benchmark.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "crowd.h"
#include "program_run.h"
#include "require.h"

namespace {

using bench::require;
using Words = std::vector<std::string>;

// Below the size from which on a region is left out of a core.
constexpr size_t kPieces = 4;
constexpr size_t kPieceSize = size_t{512} << 20;
constexpr size_t kTouchedPiece = size_t{10} << 20;
constexpr double kMebibyte = 1 << 20;
constexpr double kGibibyte = 1 << 30;
constexpr int kRounds = 4;

char *map(size_t size, int protection) {
  void *memory =
      mmap(nullptr, size, protection, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  require(memory != MAP_FAILED, "mmap");
  return static_cast<char *>(memory);
}

// A page without access keeps the pieces from being one mapping. Of each only the beginning is
// touched.
template <size_t pieces, size_t size, size_t touched>
void fillMemory() {
  const size_t distance = size + static_cast<size_t>(getpagesize());
  char *memory = map(pieces * distance, PROT_NONE);
  for (size_t piece = 0; piece < pieces; piece++) {
    char *start = memory + piece * distance;
    require(mprotect(start, size, PROT_READ | PROT_WRITE) == 0, "mprotect");
    auto *words = reinterpret_cast<uint64_t *>(start);
    for (size_t i = 0; i < touched / sizeof *words; i++) words[i] = (i + 1) * 0x9e3779b97f4a7c15;
  }
}
constexpr auto kAllTouched = fillMemory<kPieces, kPieceSize, kPieceSize>;
constexpr auto kHalfTouched = fillMemory<kPieces, kPieceSize, kPieceSize / 2>;
constexpr auto kHardlyTouched = fillMemory<100, size_t{1} << 30, kTouchedPiece>;
constexpr auto kNoMoreThanThat = fillMemory<100, kTouchedPiece, kTouchedPiece>;

template <size_t count>
void mapAlternately() {
  const auto page = static_cast<size_t>(getpagesize());
  char *memory = map(count * page, PROT_READ);
  for (size_t i = 1; i < count; i += 2) {
    require(mprotect(memory + i * page, page, PROT_READ | PROT_WRITE) == 0, "mprotect");
  }
}

// The process with that memory, which is there until the end.
pid_t ensureProcess(void (*fill)()) {
  static std::map<void (*)(), bench::Crowd> processes;
  return processes.try_emplace(fill, 1, fill).first->second.pids().front();
}

// A file that is gone when the measurement is over.
class Scratch {
 public:
  explicit Scratch(std::string path) : path_(std::move(path)) {}
  ~Scratch() { remove(); }
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;

  const std::string &path() const { return path_; }
  uint64_t size() const {
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(path_, error);
    return error ? 0 : size;
  }
  // Of the disk.
  uint64_t room() const {
    struct stat found {};
    return stat(path_.c_str(), &found) == 0 ? static_cast<uint64_t>(found.st_blocks) * 512 : 0;
  }
  void remove() const {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }

 private:
  std::string path_;
};

void count(benchmark::State &state, const bench::ProgramRun &run) {
  state.counters["processor_s"] =
      benchmark::Counter(run.processorSeconds, benchmark::Counter::kAvgIterations);
  state.counters["peak_MiB"] = static_cast<double>(run.peakResidentBytes >> 20);
}

// Runs what leaves a file of at least that size behind, on a disk that has nothing left to write.
void writeFile(benchmark::State &state, const Words &arguments, const Scratch &file, size_t size) {
  bench::ProgramRun all;
  for (auto _ : state) {
    file.remove();
    sync();
    const bench::ProgramRun run = bench::runProgram(arguments);
    if (run.status == 127) {
      state.SkipWithError("no such program");
      return;
    }
    if (run.status != 0 || file.size() < size) {
      state.SkipWithError("did not write all");
      return;
    }
    state.SetIterationTime(run.seconds);
    all.processorSeconds += run.processorSeconds;
    all.peakResidentBytes = std::max(all.peakResidentBytes, run.peakResidentBytes);
  }
  count(state, all);
  state.counters["disk_MiB"] = static_cast<double>(file.room()) / kMebibyte;
  state.counters["GiB/s"] = benchmark::Counter(static_cast<double>(file.size()) / kGibibyte,
                                               benchmark::Counter::kIsIterationInvariantRate);
}

template <void (*fill)(), size_t size>
void dumpCore(benchmark::State &state) {
  const std::string pid = std::to_string(ensureProcess(fill));
  writeFile(state, {SONDEX_PROGRAM, pid, "core"}, Scratch("/tmp/core." + pid), size);
}

template <void (*fill)()>
void runGcore(benchmark::State &state) {
  const std::string pid = std::to_string(ensureProcess(fill));
  writeFile(state, {"gcore", "-o", "/tmp/memory_bench", pid}, Scratch("/tmp/memory_bench." + pid),
            kPieces * kPieceSize);
}

// Of a file that is in memory, as the process is.
void copyFile(benchmark::State &state) {
  const std::string pid = std::to_string(ensureProcess(kAllTouched));
  const Scratch original("/tmp/core." + pid);
  bench::runProgram({SONDEX_PROGRAM, pid, "core"});
  writeFile(state, {"cp", "--reflink=never", original.path(), "/tmp/memory_bench.copy"},
            Scratch("/tmp/memory_bench.copy"), kPieces * kPieceSize);
}

void listRegions(benchmark::State &state, void (*fill)(), Words arguments) {
  arguments.push_back(std::to_string(ensureProcess(fill)));
  if (arguments.front() == SONDEX_PROGRAM) arguments.emplace_back("regions");
  const auto mappings = static_cast<size_t>(state.range(0));
  bench::ProgramRun all;
  for (auto _ : state) {
    const bench::ProgramRun run = bench::runProgram(arguments);
    if (run.status != 0 || run.lines < mappings) {
      state.SkipWithError("did not list all");
      return;
    }
    state.SetIterationTime(run.seconds);
    all.processorSeconds += run.processorSeconds;
    all.peakResidentBytes = std::max(all.peakResidentBytes, run.peakResidentBytes);
    all.lines = run.lines;
  }
  count(state, all);
  state.counters["per_line"] = benchmark::Counter(
      static_cast<double>(all.lines),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void registerOne(const char *name, void (*measure)(benchmark::State &)) {
  benchmark::RegisterBenchmark(name, measure)
      ->UseManualTime()
      ->Iterations(1)
      ->Repetitions(kRounds)
      ->ReportAggregatesOnly()
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  registerOne("sondex core", dumpCore<kAllTouched, kPieces * kPieceSize>);
  registerOne("gcore", runGcore<kAllTouched>);
  registerOne("cp", copyFile);
  registerOne("sondex core, half touched", dumpCore<kHalfTouched, kPieces * kPieceSize>);
  registerOne("gcore, half touched", runGcore<kHalfTouched>);
  registerOne("sondex core, 1 GiB of 100", dumpCore<kHardlyTouched, size_t{100} << 30>);
  registerOne("sondex core, 1 GiB", dumpCore<kNoMoreThanThat, 100 * kTouchedPiece>);
  const struct {
    int64_t mappings;
    void (*fill)();
  } kMaps[] = {{6'000, mapAlternately<6'000>}, {60'000, mapAlternately<60'000>}};
  const std::vector<std::pair<const char *, Words>> programs = {
      {"sondex regions", {SONDEX_PROGRAM}},
      {"pmap -X", {"pmap", "-X"}},
  };
  for (const auto &[mappings, fill] : kMaps) {
    for (const auto &[name, arguments] : programs) {
      benchmark::RegisterBenchmark(name,
                                   [fill = fill, arguments = arguments](benchmark::State &state) {
                                     listRegions(state, fill, arguments);
                                   })
          ->Arg(mappings)
          ->UseManualTime()
          ->Iterations(kRounds)
          ->Unit(benchmark::kMillisecond);
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
