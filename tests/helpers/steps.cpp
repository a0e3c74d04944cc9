#include "steps.h"

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace helper {

void fail(const std::string &what) {
  const int error = errno;
  std::fprintf(stderr, "make_process: %s: %s\n", what.c_str(), std::strerror(error));
  std::exit(error == EPERM || error == EACCES ? kRefused : 1);
}

void require(bool succeeded, const char *what) {
  if (!succeeded) fail(what);
}

void misuse(std::string_view word) {
  std::fprintf(stderr, "make_process: what is \"%.*s\"?\n", static_cast<int>(word.size()),
               word.data());
  std::exit(2);
}

std::string Words::text() {
  if (atEnd()) misuse("(end)");
  return words_[next_++];
}

long Words::number() {
  const std::string word = text();
  long value = 0;
  const char *end = word.data() + word.size();
  if (std::from_chars(word.data(), end, value).ptr != end || word.empty()) misuse(word);
  return value;
}

std::vector<char *> Words::rest() {
  std::vector<char *> left(words_.begin() + static_cast<std::ptrdiff_t>(next_), words_.end());
  left.push_back(nullptr);
  next_ = words_.size();
  return left;
}

void dieWithParent() {
  require(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "prctl");
}

pid_t forkOne() {
  const pid_t parent = getpid();
  const pid_t child = fork();
  require(child >= 0, "fork");
  if (child == 0) {
    dieWithParent();
    if (getppid() != parent) _exit(0);
  }
  return child;
}

bool inputHasEnded(int patience) {
  pollfd waited = {STDIN_FILENO, POLLIN, 0};
  char byte = 0;
  return poll(&waited, 1, patience) > 0 && read(STDIN_FILENO, &byte, 1) <= 0;
}

}  // namespace helper
