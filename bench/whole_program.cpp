#include "whole_program.h"

#include <dirent.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace bench {

namespace {

// Milliseconds.
constexpr int kQuiet = 60;
constexpr int kPatience = 20000;

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
  }
  if (drawn.empty() && !mayBeNothing) return std::nullopt;
  writesSeen_ = writes();
  return Frame{drawn.size(), clearsIn(drawn), writesSeen_ - before};
}

// Of the thread that draws.
uint64_t TerminalProgram::writes() const {
  const std::string id = std::to_string(pid_);
  FILE *file = std::fopen(("/proc/" + id + "/task/" + id + "/io").c_str(), "re");
  if (file == nullptr) return 0;
  unsigned long long count = 0;
  std::array<char, 80> line{};
  while (std::fgets(line.data(), line.size(), file) != nullptr &&
         std::sscanf(line.data(), "syscw: %llu", &count) != 1) {
  }
  std::fclose(file);
  return count;
}

// The first word of a thread's schedstat is what it has run, in nanoseconds.
double TerminalProgram::processorSeconds() const {
  const std::string folder = "/proc/" + std::to_string(pid_) + "/task/";
  DIR *threads = opendir(folder.c_str());
  if (threads == nullptr) return -1;
  double seconds = 0;
  while (const dirent *entry = readdir(threads)) {
    if (entry->d_name[0] == '.') continue;
    FILE *file = std::fopen((folder + entry->d_name + "/schedstat").c_str(), "re");
    unsigned long long nanoseconds = 0;
    if (file != nullptr && std::fscanf(file, "%llu", &nanoseconds) == 1) {
      seconds += static_cast<double>(nanoseconds) / 1e9;
    }
    if (file != nullptr) std::fclose(file);
  }
  closedir(threads);
  return seconds;
}

double secondsPerRefresh(const std::vector<std::string> &arguments, std::string_view keys,
                         int refreshes) {
  TerminalProgram program(arguments, {160, 50});
  bool isDrawing = program.firstFrame().has_value();
  const double before = program.processorSeconds();
  for (int i = 0; isDrawing && i < refreshes; i++) {
    isDrawing = program.nextFrame(keys).has_value();
  }
  const double after = program.processorSeconds();
  return isDrawing && before >= 0 && after >= before ? (after - before) / refreshes : -1;
}

}  // namespace bench
