#include "whole_program.h"

#include <dirent.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace bench {

namespace {

struct Child {
  pid_t pid;
  int terminal;
};

Child startOnTerminal(const std::vector<std::string> &arguments) {
  winsize size{};
  size.ws_row = 50;
  size.ws_col = 160;
  Child child{};
  child.pid = forkpty(&child.terminal, nullptr, nullptr, &size);
  if (child.pid != 0) return child;
  std::vector<char *> words;
  for (const std::string &argument : arguments)
    words.push_back(const_cast<char *>(argument.c_str()));
  words.push_back(nullptr);
  setenv("TERM", "xterm-256color", 1);
  execvp(words[0], words.data());
  _exit(127);
}

// Reads what the program draws until it has drawn something and then been quiet for a while. False
// when it is gone.
bool drainFrame(int terminal) {
  constexpr int kQuiet = 60;
  constexpr int kPatience = 20000;
  bool drawn = false;
  for (;;) {
    pollfd waited{terminal, POLLIN, 0};
    const int ready = poll(&waited, 1, drawn ? kQuiet : kPatience);
    if (ready == 0) return drawn;
    char chunk[65536];
    if (ready < 0 || read(terminal, chunk, sizeof chunk) <= 0) return false;
    drawn = true;
  }
}

// Processor time of all threads; the first word of a thread's schedstat is what it has run, in
// nanoseconds.
double processorSeconds(pid_t pid) {
  const std::string folder = "/proc/" + std::to_string(pid) + "/task/";
  DIR *threads = opendir(folder.c_str());
  if (threads == nullptr) return -1;
  double seconds = 0;
  while (const dirent *entry = readdir(threads)) {
    if (entry->d_name[0] == '.') continue;
    FILE *file = fopen((folder + entry->d_name + "/schedstat").c_str(), "re");
    unsigned long long nanoseconds = 0;
    if (file != nullptr && fscanf(file, "%llu", &nanoseconds) == 1) {
      seconds += static_cast<double>(nanoseconds) / 1e9;
    }
    if (file != nullptr) fclose(file);
  }
  closedir(threads);
  return seconds;
}

}  // namespace

double secondsPerRefresh(const std::vector<std::string> &arguments, Pace pace, int refreshes) {
  const Child child = startOnTerminal(arguments);
  if (child.pid < 0) return -1;
  bool drawing = drainFrame(child.terminal);
  const double before = processorSeconds(child.pid);
  for (int i = 0; drawing && i < refreshes; i++) {
    if (pace == Pace::kOnResize) kill(child.pid, SIGWINCH);
    drawing = drainFrame(child.terminal);
  }
  const double after = processorSeconds(child.pid);
  kill(child.pid, SIGKILL);
  waitpid(child.pid, nullptr, 0);
  close(child.terminal);
  return drawing && before >= 0 && after >= before ? (after - before) / refreshes : -1;
}

}  // namespace bench
