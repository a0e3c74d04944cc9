#include "whole_program.h"

#include <dirent.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace bench {

namespace {

// Milliseconds.
constexpr int kQuiet = 60;
constexpr int kPatience = 20000;

// Refreshes in which a program still prepares for those to come.
constexpr int kUncounted = 4;

// The second is for terminals that only clear from the cursor on.
constexpr std::string_view kClears[] = {"\x1b[2J", "\x1b[H\x1b[J"};

size_t countIn(const std::string &text, std::string_view wanted) {
  size_t count = 0;
  for (size_t at = 0; (at = text.find(wanted, at)) != std::string::npos; at += wanted.size()) {
    count++;
  }
  return count;
}

size_t clearsIn(const std::string &text) {
  size_t count = 0;
  for (const std::string_view clear : kClears) count += countIn(text, clear);
  return count;
}

[[noreturn]] void runHere(const std::vector<std::string> &arguments, const std::string &device) {
  std::vector<char *> words;
  for (const std::string &argument : arguments) {
    words.push_back(const_cast<char *>(argument.c_str()));
  }
  words.push_back(nullptr);
  setenv("TERM", "xterm-256color", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  if (!device.empty()) setenv("SONDEX_DEVICE", device.c_str(), 1);
  execvp(words[0], words.data());
  _exit(127);
}

}  // namespace

TerminalProgram::TerminalProgram(const std::vector<std::string> &arguments, TerminalSize size,
                                 const std::string &device) {
  winsize window{};
  window.ws_row = size.rows;
  window.ws_col = size.columns;
  pid_ = forkpty(&terminal_, nullptr, nullptr, &window);
  if (pid_ == 0) runHere(arguments, device);
}

TerminalProgram::~TerminalProgram() {
  if (pid_ < 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  close(terminal_);
}

std::optional<Frame> TerminalProgram::nextFrame(std::string_view keys) {
  if (pid_ < 0) return std::nullopt;
  if (!keys.empty() && write(terminal_, keys.data(), keys.size()) < 0) return std::nullopt;
  return take(kQuiet, !keys.empty());
}

std::optional<Frame> TerminalProgram::take(int quiet, bool mayBeNothing) {
  if (pid_ < 0) return std::nullopt;
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  Clock::time_point drawnAt = start;
  const uint64_t before = writesSeen_;
  const int patience = mayBeNothing ? kLongQuiet : kPatience;
  std::string drawn;
  for (;;) {
    pollfd waited{terminal_, POLLIN, 0};
    const int ready = poll(&waited, 1, drawn.empty() ? patience : quiet);
    if (ready == 0) break;
    std::array<char, 65536> chunk{};
    const ssize_t length = ready < 0 ? -1 : read(terminal_, chunk.data(), chunk.size());
    if (length <= 0) return std::nullopt;
    drawn.append(chunk.data(), static_cast<size_t>(length));
    drawnAt = Clock::now();
  }
  if (drawn.empty() && !mayBeNothing) return std::nullopt;
  writesSeen_ = writes();
  const std::chrono::duration<double> passed = drawnAt - start;
  return Frame{drawn.size(), clearsIn(drawn), writesSeen_ - before, passed.count()};
}

// Calls `visit(folder)` for each thread's folder in /proc. False when the program is gone.
template <typename Visit>
static bool visitThreads(pid_t pid, Visit &&visit) {
  const std::string folder = "/proc/" + std::to_string(pid) + "/task/";
  DIR *threads = opendir(folder.c_str());
  if (threads == nullptr) return false;
  while (const dirent *entry = readdir(threads)) {
    if (entry->d_name[0] != '.') visit(folder + entry->d_name);
  }
  closedir(threads);
  return true;
}

// The number that `format` finds in the first line that it fits; 0 if there is none.
static unsigned long long numberIn(const std::string &path, const char *format) {
  FILE *file = std::fopen(path.c_str(), "re");
  if (file == nullptr) return 0;
  unsigned long long number = 0;
  std::array<char, 256> line{};
  while (std::fgets(line.data(), line.size(), file) != nullptr &&
         std::sscanf(line.data(), format, &number) != 1) {
  }
  std::fclose(file);
  return number;
}

// Of the thread that draws.
uint64_t TerminalProgram::writes() const {
  const std::string id = std::to_string(pid_);
  return numberIn("/proc/" + id + "/task/" + id + "/io", "syscw: %llu");
}

// The first word of a thread's schedstat is what it has run, in nanoseconds.
double TerminalProgram::processorSeconds() const {
  double seconds = 0;
  const bool runs = visitThreads(pid_, [&seconds](const std::string &thread) {
    seconds += static_cast<double>(numberIn(thread + "/schedstat", "%llu")) / 1e9;
  });
  return runs ? seconds : -1;
}

uint64_t TerminalProgram::wakeUps() const {
  uint64_t count = 0;
  visitThreads(pid_, [&count](const std::string &thread) {
    count += numberIn(thread + "/status", "voluntary_ctxt_switches: %llu");
  });
  return count;
}

double secondsPerRefresh(const std::vector<std::string> &arguments, std::string_view keys,
                         int refreshes) {
  TerminalProgram program(arguments, {160, 50});
  bool isDrawing = program.firstFrame().has_value();
  for (int i = 0; isDrawing && i < kUncounted; i++) {
    isDrawing = program.nextFrame(keys).has_value();
  }
  const double before = program.processorSeconds();
  for (int i = 0; isDrawing && i < refreshes; i++) {
    isDrawing = program.nextFrame(keys).has_value();
  }
  const double after = program.processorSeconds();
  return isDrawing && before >= 0 && after >= before ? (after - before) / refreshes : -1;
}

}  // namespace bench
