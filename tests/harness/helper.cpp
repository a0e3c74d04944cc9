#include "harness/helper.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <sstream>

#include "harness/wait.h"

namespace test {

namespace {

// make_process's status when it may not do what it is asked for.
constexpr int kRefused = 77;

Launch launchOf(const std::string &program, const std::vector<std::string> &arguments, int input,
                int output) {
  Launch launch;
  launch.program = program;
  launch.arguments = arguments;
  launch.input = input;
  launch.output = output;
  launch.error = STDERR_FILENO;
  return launch;
}

std::string readLine(int fd) {
  std::string line;
  char byte = 0;
  pollfd waited = {fd, POLLIN, 0};
  while (poll(&waited, 1, static_cast<int>(kPatience.count())) > 0 && read(fd, &byte, 1) == 1) {
    if (byte == '\n') break;
    line += byte;
  }
  return line;
}

}  // namespace

Helper::Helper(const Steps &steps) : Helper(makeProcessPath(), steps) {}

Helper::Helper(const std::string &program, const std::vector<std::string> &arguments)
    : Helper(program, arguments, makePipe(), makePipe()) {}

Helper::Helper(const std::string &program, const std::vector<std::string> &arguments, Pipe input,
               Pipe output)
    : input_(std::move(input.writeEnd)),
      child_(launchOf(program, arguments, input.readEnd.get(), output.writeEnd.get())) {
  output.writeEnd.close();
  const std::string line = readLine(output.readEnd.get());
  std::istringstream words(line);
  std::string ready;
  if (!(words >> ready >> pid_) || ready != "ready" || pid_ != child_.pid()) {
    const std::optional<Ending> ending = child_.waitForEnd();
    if (ending && ending->exitedWith(kRefused)) throw Refused(program + " was refused");
    throw std::runtime_error(program + " said \"" + line + "\"");
  }
  pid_t child = 0;
  while (words >> child) children_.push_back(child);
}

Helper::~Helper() {
  input_.close();
  // A stopped process does not see that its input ended.
  child_.signal(SIGCONT);
  child_.waitForEnd(Duration{10'000});
}

std::string makeProcessPath() {
  return MAKE_PROCESS_PROGRAM;
}

std::string uniqueName(const std::string &suffix) {
  return "sx" + std::to_string(getpid()) + suffix;
}

}  // namespace test
