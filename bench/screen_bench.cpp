// What full screens send to their terminals: this program's on this machine and on a simulated
// device, and those of htop and top beside it in the same run.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "whole_program.h"

namespace {

using bench::Frame;
using bench::kSondexRefresh;
using bench::TerminalProgram;
using bench::TerminalSize;

constexpr int kFrames = 15;

// Between two refreshes of the peers. As long is waited before a key has sondex refresh: figures
// change less in a shorter time.
constexpr std::chrono::seconds kInterval{1};

struct Program {
  std::string name;
  std::vector<std::string> arguments;
  std::string device;
  std::string_view refresh;  // keys that have it draw a frame; "" when it does by itself
  std::string_view freeze;   // keys after which nothing changes any more; "" when there are none
  std::string_view down = "\x1b[B";
};

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void report(benchmark::State &state, const std::vector<Frame> &frames) {
  const auto medianOf = [&](const std::function<double(const Frame &)> &figure) {
    std::vector<double> values;
    for (const Frame &frame : frames) values.push_back(figure(frame));
    return median(values);
  };
  state.counters["bytes"] = medianOf([](const Frame &f) { return static_cast<double>(f.bytes); });
  state.counters["most_bytes"] = static_cast<double>(
      std::max_element(frames.begin(), frames.end(), [](const Frame &a, const Frame &b) {
        return a.bytes < b.bytes;
      })->bytes);
  state.counters["writes"] = medianOf([](const Frame &f) { return static_cast<double>(f.writes); });
  // A median would hide a single one.
  double clears = 0;
  for (const Frame &frame : frames) clears += static_cast<double>(frame.clears);
  state.counters["clears"] = clears;
}

// The first frame alone, or those that the keys bring, each after a pause, once `before` was typed.
void measure(benchmark::State &state, const Program &program, TerminalSize size,
             std::optional<std::string_view> keys, std::string_view before,
             std::chrono::seconds pause) {
  for (auto _ : state) {
    TerminalProgram running(program.arguments, size, program.device);
    const std::optional<Frame> first = running.firstFrame();
    std::vector<Frame> frames;
    if (first && !keys) frames.push_back(*first);
    if (first && !before.empty()) {
      // What the key itself changes is over after a few frames.
      running.nextFrame(before);
      for (int i = 0; i < 3; i++) running.nextFrame(program.refresh);
    }
    for (int i = 0; first && keys && i < kFrames; i++) {
      std::this_thread::sleep_for(pause);
      const std::optional<Frame> frame = running.nextFrame(*keys);
      if (frame) frames.push_back(*frame);
    }
    if (frames.empty()) {
      state.SkipWithError("could not be run");
      return;
    }
    report(state, frames);
  }
}

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;

  const Program programs[] = {
      {"sondex", {SONDEX_PROGRAM}, "", kSondexRefresh, "F"},
      {"sondex-iphone", {SONDEX_PROGRAM}, SONDEX_DEVICES_DIR "/iphone.toml", kSondexRefresh, "F"},
      {"htop", {"htop", "-d", "10"}, "", "", ""},
      // It only knows the form that it has the terminal send.
      {"top", {"top", "-d", "1"}, "", "", "", "\x1bOB"},
  };
  for (const TerminalSize size : {TerminalSize{80, 24}, {160, 50}}) {
    for (const Program &program : programs) {
      const std::string start =
          program.name + "/" + std::to_string(size.columns) + "x" + std::to_string(size.rows) + "/";
      const auto add = [&](const char *what, std::optional<std::string_view> keys,
                           std::string_view before, std::chrono::seconds pause) {
        benchmark::RegisterBenchmark(
            (start + what).c_str(),
            [=](benchmark::State &state) { measure(state, program, size, keys, before, pause); })
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
      };
      constexpr std::chrono::seconds none{0};
      add("first", std::nullopt, "", none);
      add("refresh", program.refresh, "", program.refresh.empty() ? none : kInterval);
      if (!program.freeze.empty()) add("unchanged", program.refresh, program.freeze, none);
      add("down", program.down, "", none);
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
