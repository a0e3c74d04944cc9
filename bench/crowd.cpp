#include "crowd.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace bench {

// Keeps of what is open here no more than a daemon has.
static void becomeQuiet() {
  const int null = open("/dev/null", O_RDWR);
  for (int descriptor = 0; descriptor <= 2; descriptor++) dup2(null, descriptor);
  close_range(3, ~0U, 0);
}

Crowd::Crowd(size_t count) {
  pids_.reserve(count);
  for (size_t i = 0; i < count; i++) {
    const pid_t pid = fork();
    if (pid < 0) {
      std::perror("fork");
      std::exit(1);
    }
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      becomeQuiet();
      for (;;) pause();
    }
    pids_.push_back(pid);
  }
}

Crowd::~Crowd() {
  for (const pid_t pid : pids_) kill(pid, SIGKILL);
  for (const pid_t pid : pids_) waitpid(pid, nullptr, 0);
}

}  // namespace bench
