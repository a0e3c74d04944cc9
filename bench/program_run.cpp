#include "program_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>

#include "require.h"

namespace bench {

static double secondsOf(const timeval &time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// A child made by fork() would begin with this process's memory, and show that as its own peak.
static pid_t start(const std::vector<std::string> &arguments, int output) {
  std::vector<char *> words;
  words.reserve(arguments.size() + 1);
  for (const std::string &argument : arguments)
    words.push_back(const_cast<char *>(argument.c_str()));
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDWR, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_RDWR, 0);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  pid_t pid = -1;
  const int error = posix_spawnp(&pid, words[0], &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? pid : -1;
}

ProgramRun runProgram(const std::vector<std::string> &arguments) {
  using Clock = std::chrono::steady_clock;
  ProgramRun run;
  std::array<int, 2> output{};
  require(pipe2(output.data(), O_CLOEXEC) == 0, "pipe2");
  const Clock::time_point before = Clock::now();
  const pid_t pid = start(arguments, output[1]);
  close(output[1]);
  if (pid < 0) {
    close(output[0]);
    run.status = 127;
    return run;
  }
  std::vector<char> buffer(65536);
  ssize_t length = 0;
  while ((length = read(output[0], buffer.data(), buffer.size())) > 0) {
    run.lines += static_cast<size_t>(std::count(buffer.begin(), buffer.begin() + length, '\n'));
  }
  close(output[0]);
  int status = 0;
  rusage usage{};
  require(wait4(pid, &status, 0, &usage) == pid, "wait4");
  run.seconds = std::chrono::duration<double>(Clock::now() - before).count();
  if (WIFEXITED(status)) run.status = WEXITSTATUS(status);
  run.processorSeconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
  run.peakResidentBytes = static_cast<size_t>(usage.ru_maxrss) * 1024;
  return run;
}

}  // namespace bench
