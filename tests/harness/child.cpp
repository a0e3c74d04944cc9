#include "harness/child.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "harness/file_handle.h"

namespace test {

namespace {

constexpr int kCanNotExecute = 127;

// What would change what the program does, or how curses sees the terminal.
constexpr const char *kNotInherited[] = {
    "nc",    "ZCOLOR",  "ZDEBUG",        "INCLUDE_LOOPBACK", "TERM",
    "LINES", "COLUMNS", "SONDEX_DEVICE", "SONDEX_DEVICES",   "LC_ALL"};

std::vector<std::string> environmentOf(const Launch &launch) {
  std::vector<std::string> variables;
  for (char **variable = environ; *variable != nullptr; variable++)
    variables.emplace_back(*variable);
  const auto drop = [&variables](const std::string &name) {
    std::erase_if(variables,
                  [&name](const std::string &line) { return line.starts_with(name + "="); });
  };
  for (const char *name : kNotInherited) drop(name);
  variables.emplace_back("LC_ALL=C.UTF-8");
  for (const auto &[name, value] : launch.environment) {
    drop(name);
    if (value) variables.push_back(name + "=" + *value);
  }
  return variables;
}

std::vector<char *> pointersTo(std::vector<std::string> &texts) {
  std::vector<char *> pointers;
  for (std::string &text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

bool becomeUser(uid_t user) {
  return setgroups(0, nullptr) == 0 && setgid(user) == 0 && setuid(user) == 0;
}

// Duplicates stay open over exec.
bool takeDescriptors(const int (&wanted)[3]) {
  int taken[3];
  for (int i = 0; i < 3; i++) {
    taken[i] = fcntl(wanted[i], F_DUPFD_CLOEXEC, 3);
    if (taken[i] < 0) return false;
  }
  for (int i = 0; i < 3; i++) {
    if (dup2(taken[i], i) < 0) return false;
  }
  return true;
}

[[noreturn]] void becomeProgram(const Launch &launch, pid_t parent, int program, char *const *argv,
                                char *const *envp, const int (&descriptors)[3]) {
  bool isReady = takeDescriptors(descriptors);
  // Whatever the test itself was given.
  isReady = isReady && close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0;
  if (launch.ownsTerminal) {
    isReady = isReady && setsid() >= 0 && ioctl(STDIN_FILENO, TIOCSCTTY, 0) == 0;
  }
  for (const int number : launch.ignoredSignals) signal(number, SIG_IGN);
  if (launch.user) isReady = isReady && becomeUser(*launch.user);
  // After the change of user, which takes this back.
  isReady = isReady && prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent;
  if (isReady && !launch.user) execve(argv[0], argv, envp);
  // Another user may not be able to reach the folder that the program is in.
  if (isReady && launch.user) fexecve(program, argv, envp);
  dprintf(STDERR_FILENO, "%s: %s\n", argv[0], strerror(errno));
  _exit(kCanNotExecute);
}

}  // namespace

bool isRoot() {
  return geteuid() == 0;
}

Pipe makePipe() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  return {FileHandle(ends[0]), FileHandle(ends[1])};
}

std::ostream &operator<<(std::ostream &out, const Ending &ending) {
  if (ending.signal != 0) return out << "signal " << ending.signal;
  return out << "exit status " << ending.status;
}

Child::Child(const Launch &launch) {
  std::vector<std::string> arguments = {launch.program};
  arguments.insert(arguments.end(), launch.arguments.begin(), launch.arguments.end());
  std::vector<std::string> variables = environmentOf(launch);
  const std::vector<char *> argv = pointersTo(arguments);
  const std::vector<char *> envp = pointersTo(variables);
  const FileHandle nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  const FileHandle program(open(launch.program.c_str(), O_RDONLY | O_CLOEXEC));
  const auto orNothing = [&nothing](int fd) { return fd < 0 ? nothing.get() : fd; };
  const int descriptors[3] = {orNothing(launch.input), orNothing(launch.output),
                              orNothing(launch.error)};
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid_ == 0) {
    becomeProgram(launch, parent, program.get(), argv.data(), envp.data(), descriptors);
  }
}

Child::~Child() {
  if (ending_) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void Child::signal(int number) const {
  if (!ending_) kill(pid_, number);
}

std::optional<Ending> Child::poll() {
  if (ending_) return ending_;
  int status = 0;
  rusage usage{};
  if (wait4(pid_, &status, WNOHANG, &usage) != pid_) return std::nullopt;
  const auto seconds = [](const timeval &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  Ending ending;
  ending.processorSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  if (WIFSIGNALED(status)) {
    ending.signal = WTERMSIG(status);
  } else {
    ending.status = WEXITSTATUS(status);
  }
  ending_ = ending;
  return ending_;
}

std::optional<Ending> Child::waitForEnd(Duration patience) {
  waitUntil([this] { return poll().has_value(); }, patience);
  return ending_;
}

}  // namespace test
