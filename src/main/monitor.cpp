#include "main/monitor.h"

#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "darwin/kqueue.h"
#include "darwin/syscalls.h"
#include "state/display.h"
#include "terminal/output.h"

namespace sondex {

constexpr uint64_t kWatchedProcess = 1;
constexpr int kSecondsMonitored = 1;
constexpr int32_t kFramesWithMark = 2;
// The kernel counts pages eight times a second: to ask more often tells nothing new.
constexpr useconds_t kBetweenEvents = 125'000;
// A kernel that can't tell refuses at once, every time.
constexpr useconds_t kAfterFailure = 1'000'000;

// A monitor's line is seen at once, also through a pipe. When it can't be written any more, there
// is nothing left to do.
__attribute__((format(printf, 1, 2))) static void say(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vprintf(format, arguments);
  va_end(arguments);
  flushOutput();
}

int vm_pressure_monitor(int wait, int seconds, uint32_t *reclaimed) {
  return static_cast<int>(
      syscall(darwin::DARWIN_SYS_vm_pressure_monitor, wait, seconds, reclaimed));
}

static void leaveSignalsToOthers() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

// Kept: a failure too counts as an event, and its -1 as the pages wanted.
void doVMPressureMonitor(int verbose) {
  if (verbose == 0) leaveSignalsToOthers();
  for (;;) {
    uint32_t reclaimed = 0;
    const int wanted = vm_pressure_monitor(1, kSecondsMonitored, &reclaimed);
    if (verbose != 0) say("Wanted %d pages, Reclaimed: %d\n", wanted, static_cast<int>(reclaimed));
    store(g_VMPressureDetected, kFramesWithMark);
    usleep(wanted < 0 ? kAfterFailure : kBetweenEvents);
  }
}

[[noreturn]] static void failWith(const char *call, int status) {
  perror(call);
  exit(status);
}

int doProcessMonitor(int, char **) {
  const int queue = darwin::kqueue();
  if (queue < 0) failWith("kqueue", 2);
  struct darwin::kevent watched = {};
  watched.ident = kWatchedProcess;
  watched.filter = darwin::EVFILT_PROC;
  watched.flags = darwin::EV_ADD;
  watched.fflags = darwin::NOTE_EXIT | darwin::NOTE_FORK | darwin::NOTE_EXEC;
  if (darwin::kevent(queue, &watched, 1, nullptr, 0, nullptr) < 0) failWith("kevent", 3);

  for (bool exited = false; !exited;) {
    struct darwin::kevent event = {};
    if (darwin::kevent(queue, nullptr, 0, &event, 1, nullptr) < 0) failWith("kevent", 4);
    const int pid = static_cast<int>(event.ident);
    // Kept: one capital "PID".
    if ((event.fflags & darwin::NOTE_FORK) != 0) say("PID %d fork()ed\n", pid);
    if ((event.fflags & darwin::NOTE_EXEC) != 0) say("pid %d has exec()ed\n", pid);
    exited = (event.fflags & darwin::NOTE_EXIT) != 0;
    if (exited) say("pid %d has exited\n", pid);
  }
  close(queue);
  return 0;
}

void do_monitor(int argc, char **argv) {
  const bool wantsPressure = argc > 1 && strcmp(argv[1], "vmmon") == 0;
  say("Running in Monitor mode; Press CTRL-C to exit\n");
  if (wantsPressure) {
    say("Monitoring VM Pressure\n");
    doVMPressureMonitor(1);
  } else {
    // Kept: also when the word behind "monitor" is "vm".
    doProcessMonitor(argc, argv);
  }
}

}  // namespace sondex
