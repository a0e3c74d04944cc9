// What a device of 5,000 processes with 10 threads and 20 descriptors each (devices/crowd.toml)
// costs: reading its file, building the machine, one sample of all of it, and the whole program
// from its start to the end of a plain list.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <variant>

#include "darwin/libproc.h"
#include "host/machine.h"
#include "host/simulator/device_file.h"
#include "host/simulator/simulated_machine.h"
#include "proc/sampler.h"
#include "state/system.h"

namespace {

using namespace sondex;
using host::simulator::Device;
using host::simulator::SimulatedMachine;

constexpr char kFile[] = SONDEX_DEVICES_DIR "/crowd.toml";

std::string fileText() {
  std::ostringstream text;
  text << std::ifstream(kFile).rdbuf();
  return text.str();
}

Device device() {
  return std::get<Device>(host::simulator::parseDevice(fileText(), kFile));
}

void readFile(benchmark::State &state) {
  const std::string text = fileText();
  for (auto _ : state) {
    auto read = host::simulator::parseDevice(text, kFile);
    benchmark::DoNotOptimize(read);
  }
}

void buildMachine(benchmark::State &state) {
  const Device described = device();
  for (auto _ : state) {
    state.PauseTiming();
    Device copy = described;
    state.ResumeTiming();
    const SimulatedMachine machine(std::move(copy));
    benchmark::DoNotOptimize(&machine);
  }
}

void sample(benchmark::State &state) {
  SimulatedMachine machine(device());
  host::Machine *before = host::useMachine(&machine);
  int32_t processes = 0;
  for (auto _ : state) {
    const TableView table = getPIDList();
    processes = table.count;
    releaseProcessTable(table.records);
  }
  state.counters["processes"] = processes;
  host::useMachine(before);
}

void wholeProgram(benchmark::State &state) {
  setenv("SONDEX_DEVICE", kFile, 1);
  setenv("nc", "1", 1);
  for (auto _ : state) {
    // Standard output must not be a character device: the program would take it for a screen.
    char name[] = "/tmp/simulated_bench.XXXXXX";
    const int output = mkstemp(name);
    unlink(name);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    char program[] = SONDEX_PROGRAM;
    char *arguments[] = {program, nullptr};
    pid_t pid = -1;
    int status = -1;
    const bool ran = posix_spawn(&pid, program, &actions, nullptr, arguments, environ) == 0 &&
                     waitpid(pid, &status, 0) == pid && status == 0;
    posix_spawn_file_actions_destroy(&actions);
    close(output);
    if (!ran) state.SkipWithError("could not be run");
  }
}

BENCHMARK(readFile)->Unit(benchmark::kMillisecond);
BENCHMARK(buildMachine)->Unit(benchmark::kMillisecond);
BENCHMARK(sample)->Unit(benchmark::kMillisecond);
BENCHMARK(wholeProgram)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  g_r00t = 1;
  g_OsVer = 14;
  proc_pid_rusage_funcptr = darwin::proc_pid_rusage;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
