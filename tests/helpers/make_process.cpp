// Makes itself into a process of a kind that a test asks for, says so, and waits until its standard
// input ends. Its arguments are steps, done one after the other:
//
//   name TEXT           the process's name, of any bytes
//   user UID            another user's process
//   identities RUID EUID SVUID RGID EGID SVGID
//   session             a session of its own
//   nice N, oom N       nice value, oom_score_adj
//   scheduler idle|fifo
//   threads N           N threads in all, asleep
//   call-chain PATH     a thread more, named "chain", asleep in three functions; where they return
//                       to is written to a file, the innermost first
//   busy N              N threads that compute (the first one included) and do nothing else
//   fds N               N descriptors in all
//   file r|w|u|path PATH OFFSET
//                       a file, made if it is missing, open for reading, writing, both or neither
//   gone-file PATH, directory PATH, pipe
//   listen WHERE        a socket that listens. WHERE is tcp4 or tcp6 (any port of the loopback
//                       interface), "@name" (an abstract one) or a path
//   accept              the end of a connection to the last one, whose other end is the descriptor
//                       3 of a child
//   accept-end          the same, but the child has shut its direction
//   tcp-socket          one that is not bound
//   datagrams WHERE     a bound socket; WHERE as above, but udp4 or udp6
//   connect-datagrams   one that is connected to it
//   pair, netlink, packet
//                       UNIX stream sockets; netlink:route; a packet socket
//   shared-memory NAME, memfd NAME
//                       of 8 KiB, and mapped. The first one's name is given up at once
//   epoll               one that waits to read from the last descriptor
//   eventfd, timerfd, signalfd, pidfd, inotify
//   lose-first-thread   goes on in another thread than its first, which ends, once all is said
//   restless            opens and closes descriptors all the time, once all is said
//   addresses ADDRESS MIB
//                       memory at an address, each 8 bytes of which hold their own address
//   touched ADDRESS MIB EVERY VALUE
//                       memory at an address, in the first byte of every so many pages of which a
//                       value was written
//   guard ADDRESS BYTES memory without access
//   mappings ADDRESS N  N mappings of a page, every second one of which can be written
//   map ADDRESS BYTES private|shared|reading RIGHTS PATH
//                       a mapping at an address, of a file that is made if it is missing, "-" for
//                       none; "reading" is a shared one of a file that is open only for that.
//                       RIGHTS are letters of "rwx", "-" for none
//   stacks ADDRESS N    N threads more, asleep, on stacks of 64 KiB from an address on
//   remaps              maps and unmaps memory all the time, once all is said
//   memory MIB          memory, each page of it touched
//   reserve GIB         address space without memory
//   write BYTES         bytes written to a file and on to the disk
//   seccomp             a system-call filter, which lets everything through
//   root PATH           another root directory
//   user-namespace      a user namespace of its own
//   deleted             goes on as a copy of this program that is no longer in the file system
//   stop                stopped, once all is said
//   zombies N           N children that ended and are not waited for
//   children N          N children asleep
//   churn RATE SECONDS  starts RATE processes a second, each of which ends at once or a little
//                       later, and ends itself when the time is over
//   run PROGRAM [ARGUMENT...]  starts a program with the same descriptors and ends with its status,
//                       without a word
//
// The word is "ready", its PID, and its children's PIDs.
#include <fcntl.h>
#include <grp.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "call_chain.h"
#include "descriptors.h"
#include "memory.h"
#include "steps.h"

namespace {

using namespace helper;

using Clock = std::chrono::steady_clock;

constexpr size_t kThreadStack = 65536;
constexpr long kComputed = 10'000'000;

void setUser(long user) {
  const uid_t id = static_cast<uid_t>(user);
  require(setgroups(0, nullptr) == 0 && setgid(id) == 0 && setuid(id) == 0, "setuid");
  dieWithParent();  // the change of user took it back
}

uid_t identity(Words &words) {
  return static_cast<uid_t>(words.number());
}

void setIdentities(Words &words) {
  const uid_t users[] = {identity(words), identity(words), identity(words)};
  const gid_t groups[] = {identity(words), identity(words), identity(words)};
  require(setgroups(0, nullptr) == 0 && setresgid(groups[0], groups[1], groups[2]) == 0 &&
              setresuid(users[0], users[1], users[2]) == 0,
          "setresuid");
  dieWithParent();
}

void setOOMScore(long score) {
  const int fd = open("/proc/self/oom_score_adj", O_WRONLY | O_CLOEXEC);
  require(fd >= 0 && dprintf(fd, "%ld", score) > 0 && close(fd) == 0, "oom_score_adj");
}

void setScheduler(const std::string &kind) {
  sched_param parameters{};
  int policy = 0;
  if (kind == "idle") {
    policy = SCHED_IDLE;
  } else if (kind == "fifo") {
    policy = SCHED_FIFO;
    parameters.sched_priority = 1;
  } else {
    misuse(kind);
  }
  require(sched_setscheduler(0, policy, &parameters) == 0, "sched_setscheduler");
}

void *sleepForever(void *) {
  while (true) pause();
}

void compute(long steps) {
  static std::atomic<unsigned> mark{0};  // an effect, or the loop could be left out
  for (long i = 0; i < steps; i++) mark.fetch_add(1, std::memory_order_relaxed);
}

void *computeForever(void *) {
  while (true) compute(kComputed);
}

void startThreads(long count, void *(*body)(void *)) {
  pthread_attr_t attributes;
  require(pthread_attr_init(&attributes) == 0, "pthread_attr_init");
  require(pthread_attr_setstacksize(&attributes, kThreadStack) == 0, "pthread_attr_setstacksize");
  for (long i = 0; i < count; i++) {
    pthread_t thread;
    errno = pthread_create(&thread, &attributes, body, nullptr);
    require(errno == 0, "pthread_create");
  }
  pthread_attr_destroy(&attributes);
}

void openDescriptors(long count) {
  // Only the three standard ones are open so far, so the highest number tells how many there are.
  int last = STDERR_FILENO;
  while (last + 1 < count) {
    last = open("/dev/null", O_RDONLY | O_CLOEXEC);
    require(last >= 0, "open");
  }
}

void *map(size_t bytes, int protection) {
  void *memory =
      mmap(nullptr, bytes, protection, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  require(memory != MAP_FAILED, "mmap");
  return memory;
}

void touchMemory(long mebibytes) {
  const size_t size = static_cast<size_t>(mebibytes) << 20;
  std::memset(map(size, PROT_READ | PROT_WRITE), 1, size);
}

void writeToDisk(long bytes) {
  // Not in /tmp, which may be memory.
  char path[] = "/var/tmp/make_process.XXXXXX";
  const int fd = mkostemp(path, O_CLOEXEC);
  require(fd >= 0 && unlink(path) == 0, "mkostemp");
  const std::string data(65536, 'x');
  long left = bytes;
  while (left > 0) {
    const size_t size = std::min(data.size(), static_cast<size_t>(left));
    const ssize_t written = write(fd, data.data(), size);
    require(written > 0, "write");
    left -= written;
  }
  require(fsync(fd) == 0 && close(fd) == 0, "fsync");
}

void filterSystemCalls() {
  sock_filter allow = {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW};
  const sock_fprog filter = {1, &allow};
  require(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "no_new_privs");
  require(syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &filter) == 0, "seccomp");
}

// Goes on with the remaining steps as a program whose file is gone.
[[noreturn]] void becomeDeleted(std::vector<char *> steps) {
  char path[] = "/tmp/make_process.XXXXXX";
  const int copy = mkostemp(path, O_CLOEXEC);
  const int original = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
  require(copy >= 0 && original >= 0, "deleted");
  std::vector<char> buffer(65536);
  ssize_t length = 0;
  while ((length = read(original, buffer.data(), buffer.size())) > 0) {
    require(write(copy, buffer.data(), static_cast<size_t>(length)) == length, "write");
  }
  require(length == 0 && fchmod(copy, 0755) == 0 && close(copy) == 0, "deleted");
  std::string unlinkStep = "unlink";
  std::vector<char *> arguments = {path, unlinkStep.data(), path};
  arguments.insert(arguments.end(), steps.begin(), steps.end());
  execv(path, arguments.data());
  unlink(path);
  fail("execv");
}

void makeZombies(long count, std::vector<pid_t> &children) {
  for (long i = 0; i < count; i++) {
    const pid_t child = forkOne();
    if (child == 0) _exit(0);
    siginfo_t ended;
    require(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT) == 0, "waitid");
    children.push_back(child);
  }
}

void makeChildren(long count, std::vector<pid_t> &children) {
  for (long i = 0; i < count; i++) {
    const pid_t child = forkOne();
    if (child == 0) sleepForever(nullptr);
    children.push_back(child);
  }
}

void say(const State &state) {
  std::string line = "ready " + std::to_string(getpid());
  for (const pid_t child : state.children) line += " " + std::to_string(child);
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

// One in three ends at once, the others live for up to a third of a second: some are gone before
// they are looked at, some while they are.
void liveShortly(long number) {
  if (number % 3 == 0) _exit(0);
  std::this_thread::sleep_for(std::chrono::milliseconds(5 + number * 37 % 300));
  _exit(0);
}

[[noreturn]] void churn(long rate, long seconds) {
  const Clock::time_point start = Clock::now();
  long started = 0;
  while (true) {
    const std::chrono::duration<double> passed = Clock::now() - start;
    if (passed.count() >= static_cast<double>(seconds) || inputHasEnded(1)) break;
    const long due = static_cast<long>(passed.count() * static_cast<double>(rate));
    for (; started < due; started++) {
      if (forkOne() == 0) liveShortly(started);
    }
    while (waitpid(-1, nullptr, WNOHANG) > 0) continue;
  }
  while (waitpid(-1, nullptr, 0) > 0) continue;
  std::exit(0);
}

[[noreturn]] void runProgram(const std::vector<char *> &arguments) {
  if (arguments.front() == nullptr) misuse("run");
  const pid_t child = forkOne();
  if (child == 0) {
    execv(arguments.front(), arguments.data());
    _exit(127);
  }
  int status = 0;
  require(waitpid(child, &status, 0) == child, "waitpid");
  std::exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

void doStep(const std::string &step, Words &words, State &state) {
  if (step == "name") {
    require(prctl(PR_SET_NAME, words.text().c_str()) == 0, "name");
  } else if (step == "user") {
    setUser(words.number());
  } else if (step == "identities") {
    setIdentities(words);
  } else if (step == "session") {
    require(setsid() >= 0, "setsid");
  } else if (step == "nice") {
    require(setpriority(PRIO_PROCESS, 0, static_cast<int>(words.number())) == 0, "setpriority");
  } else if (step == "oom") {
    setOOMScore(words.number());
  } else if (step == "scheduler") {
    setScheduler(words.text());
  } else if (step == "threads") {
    startThreads(words.number() - 1, sleepForever);
  } else if (step == "busy") {
    state.busyThreads = words.number();
    startThreads(state.busyThreads - 1, computeForever);
  } else if (step == "fds") {
    openDescriptors(words.number());
  } else if (step == "memory") {
    touchMemory(words.number());
  } else if (step == "reserve") {
    map(static_cast<size_t>(words.number()) << 30, PROT_NONE);
  } else if (step == "write") {
    writeToDisk(words.number());
  } else if (step == "seccomp") {
    filterSystemCalls();
  } else if (step == "user-namespace") {
    require(unshare(CLONE_NEWUSER) == 0, "unshare");
  } else if (step == "deleted") {
    becomeDeleted(words.rest());
  } else if (step == "unlink") {
    require(unlink(words.text().c_str()) == 0, "unlink");
  } else if (step == "stop") {
    state.stops = true;
  } else if (step == "zombies") {
    makeZombies(words.number(), state.children);
  } else if (step == "children") {
    makeChildren(words.number(), state.children);
  } else if (step == "churn") {
    const long rate = words.number();
    const long seconds = words.number();
    say(state);
    churn(rate, seconds);
  } else if (step == "run") {
    runProgram(words.rest());
  } else if (step == "root") {
    require(chroot(words.text().c_str()) == 0, "chroot");
  } else if (step == "lose-first-thread") {
    state.losesFirstThread = true;
  } else if (step == "restless") {
    state.isRestless = true;
  } else if (step == "remaps") {
    state.remaps = true;
  } else if (!openDescriptor(step, words, state) && !mapMemoryAt(step, words) &&
             !blockInCallChain(step, words)) {
    misuse(step);
  }
}

}  // namespace

[[noreturn]] void awaitEnd(const State &state) {
  while (!inputHasEnded(-1)) continue;
  for (const pid_t child : state.children) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  // Without the exit handlers: other threads still run.
  _exit(0);
}

int main(int argc, char **argv) {
  dieWithParent();
  Words words(argc - 1, argv + 1);
  State state;
  while (!words.atEnd()) doStep(words.text(), words, state);
  say(state);
  if (state.stops) raise(SIGSTOP);
  if (state.busyThreads > 0) {
    while (!inputHasEnded(0)) compute(kComputed);
  }
  if (state.isRestless) openAndCloseUntilTheEnd();
  if (state.remaps) mapAndUnmapUntilTheEnd();
  if (state.losesFirstThread) {
    std::thread([&state] { awaitEnd(state); }).detach();
    syscall(SYS_exit, 0);
  }
  awaitEnd(state);
}
