// What full-screen programs cost between refreshes: how often their threads wake up, and processor
// time, a minute. All of them at once, each on a terminal of its own.
#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "whole_program.h"

namespace {

struct Subject {
  const char *name;
  std::vector<std::string> arguments;
  std::string_view keys;  // typed first
};

void measure(const Subject &subject) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::seconds kMeasured{60};
  bench::TerminalProgram program(subject.arguments, {160, 50});
  bool runs = program.firstFrame().has_value();
  if (runs) runs = program.nextFrame(subject.keys).has_value() || subject.keys.empty();
  std::this_thread::sleep_for(std::chrono::seconds(2));
  const uint64_t wakeUpsBefore = program.wakeUps();
  const double secondsBefore = program.processorSeconds();
  const Clock::time_point end = Clock::now() + kMeasured;
  // Somebody has to read what is drawn.
  while (Clock::now() < end) {
    program.nextFrame();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  const double seconds = program.processorSeconds() - secondsBefore;
  if (!runs || seconds < 0) {
    std::printf("| %s | could not be run | |\n", subject.name);
  } else {
    std::printf("| %s | %llu | %.0f ms |\n", subject.name,
                static_cast<unsigned long long>(program.wakeUps() - wakeUpsBefore), seconds * 1e3);
  }
}

}  // namespace

int main() {
  const std::vector<Subject> subjects = {
      {"sondex, frozen", {SONDEX_PROGRAM}, "F"},
      {"sondex, every 10 seconds", {SONDEX_PROGRAM}, ""},
      {"htop, every 10 seconds", {"htop", "-d", "100"}, ""},
      {"top, every 10 seconds", {"top", "-d", "10"}, ""},
  };
  std::printf("| | Wake-ups a minute | Processor time a minute |\n|---|---|---|\n");
  std::vector<std::thread> threads;
  for (const Subject &subject : subjects) threads.emplace_back([&subject] { measure(subject); });
  for (std::thread &thread : threads) thread.join();
  return 0;
}
