#include "harness/run.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "harness/file_handle.h"

namespace test {

// False at the end of what comes through the pipe.
static bool readSome(const FileHandle &pipe, std::string &text) {
  char buffer[65536];
  const ssize_t length = read(pipe.get(), buffer, sizeof buffer);
  if (length > 0) text.append(buffer, static_cast<size_t>(length));
  return length > 0;
}

std::ostream &operator<<(std::ostream &out, const Outcome &outcome) {
  if (outcome.ending) {
    out << *outcome.ending;
  } else {
    out << "still running at the deadline";
  }
  return out << "\n--- standard output ---\n"
             << outcome.output << "\n--- standard error ---\n"
             << outcome.error << "\n---\n";
}

Outcome run(Launch launch, Duration patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  const auto left = [deadline] {
    return std::max(std::chrono::duration_cast<Duration>(deadline - Clock::now()), Duration{0});
  };
  Pipe output = makePipe();
  Pipe error = makePipe();
  launch.input = -1;
  launch.output = output.writeEnd.get();
  launch.error = error.writeEnd.get();
  Child child(launch);
  output.writeEnd.close();
  error.writeEnd.close();

  Outcome outcome;
  while (output.readEnd.isOpen() || error.readEnd.isOpen()) {
    pollfd waited[2] = {{output.readEnd.get(), POLLIN, 0}, {error.readEnd.get(), POLLIN, 0}};
    if (poll(waited, 2, static_cast<int>(left().count())) <= 0) break;
    if (waited[0].revents != 0 && !readSome(output.readEnd, outcome.output)) output.readEnd.close();
    if (waited[1].revents != 0 && !readSome(error.readEnd, outcome.error)) error.readEnd.close();
  }
  outcome.ending = child.waitForEnd(left());
  return outcome;
}

std::string sondexPath() {
  const char *other = std::getenv("SONDEX_PROGRAM");
  return other != nullptr ? other : SONDEX_PROGRAM;
}

bool sondexIsSanitized() {
  std::ifstream file(sondexPath(), std::ios::binary);
  const std::string program{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  return program.find("__asan_init") != std::string::npos ||
         program.find("__tsan_init") != std::string::npos;
}

Outcome runSondex(const std::vector<std::string> &arguments, const Environment &environment,
                  std::optional<uid_t> user) {
  Launch launch;
  launch.program = sondexPath();
  launch.arguments = arguments;
  launch.environment = environment;
  launch.user = user;
  return run(launch);
}

Outcome runCapture(const std::vector<std::string> &arguments, const Environment &environment,
                   std::optional<uid_t> user) {
  Launch launch;
  launch.program = std::filesystem::path(sondexPath()).replace_filename("sondex-capture");
  launch.arguments = arguments;
  launch.environment = {{"TERM", "xterm"}};
  launch.environment.insert(launch.environment.end(), environment.begin(), environment.end());
  launch.user = user;
  return run(launch);
}

Environment withoutLeakDetection(Environment environment) {
  const char *options = std::getenv("ASAN_OPTIONS");
  environment.emplace_back(
      "ASAN_OPTIONS",
      (options != nullptr ? std::string(options) + ":" : std::string()) + "detect_leaks=0");
  return environment;
}

Outcome listProcesses(std::optional<uid_t> user) {
  return runSondex({}, {{"nc", "1"}}, user);
}

std::vector<std::string> splitLines(const std::string &text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

static std::string withoutCount(const std::string &line) {
  static const std::regex count(" \\([0-9]+ times\\)$");
  return std::regex_replace(line, count, "");
}

size_t timesSaid(const std::string &error, const std::string &message) {
  size_t times = 0;
  for (const std::string &line : splitLines(error)) {
    if (line == message) {
      times++;
    } else if (withoutCount(line) == message) {
      times += std::stoul(line.substr(message.size() + 2));
    }
  }
  return times;
}

std::string withoutSampling(const std::string &error) {
  static const std::regex threads("PID [0-9]+ has more [0-9]+ threads\\. Crazzzzy");
  std::string rest;
  for (const std::string &line : splitLines(error)) {
    const std::string message = withoutCount(line);
    if (message == kNoSuchProcess || message == kNotPermitted || message == kWirelessAttempt ||
        std::regex_match(message, threads)) {
      continue;
    }
    rest += line + "\n";
  }
  return rest;
}

std::string withoutNetworkService(std::string error) {
  static const std::string said = "ioctl(CTLIOCGINFO): No such file or directory";
  const size_t place = error.find(said);
  if (place != std::string::npos) error.erase(place, said.size());
  return error;
}

}  // namespace test
