#include "crowd.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "require.h"

namespace bench {

// Out of the way of what a process of the crowd opens.
static constexpr int kReadyEnd = 1000;

// Keeps of what is open here no more than a daemon has.
static void becomeQuiet() {
  const int null = open("/dev/null", O_RDWR);
  for (int descriptor = 0; descriptor <= 2; descriptor++) dup2(null, descriptor);
  close_range(3, kReadyEnd - 1, 0);
  close_range(kReadyEnd + 1, ~0U, 0);
}

Crowd::Crowd(size_t count, void (*open)()) {
  // The end comes when every process has given its writing end up.
  int ready[2];
  require(pipe(ready) == 0 && dup2(ready[1], kReadyEnd) == kReadyEnd, "pipe");
  close(ready[1]);
  pids_.reserve(count);
  for (size_t i = 0; i < count; i++) {
    const pid_t pid = fork();
    require(pid >= 0, "fork");
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      becomeQuiet();
      if (open != nullptr) open();
      close(kReadyEnd);
      for (;;) pause();
    }
    pids_.push_back(pid);
  }
  close(kReadyEnd);
  char byte = 0;
  while (read(ready[0], &byte, 1) < 0 && errno == EINTR) continue;
  close(ready[0]);
}

Crowd::~Crowd() {
  for (const pid_t pid : pids_) kill(pid, SIGKILL);
  for (const pid_t pid : pids_) waitpid(pid, nullptr, 0);
}

}  // namespace bench
