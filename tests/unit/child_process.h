// Children of a test, and what the test itself has open.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <linux/sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "darwin/memorystatus.h"
#include "host/errno.h"
#include "host/linux/procfs.h"
#include "host/machine.h"
#include "host/posix.h"

namespace host::linux_machine {

// A child that runs `work` and is ended with the test. The constructor returns when the child said
// that it is ready.
class Child {
 public:
  using Work = std::function<void(const std::function<void()> &ready)>;

  explicit Child(const Work &work) {
    int ready[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ == 0) {
      close(ready[0]);
      work([&ready] {
        if (write(ready[1], "r", 1) != 1) _exit(1);
      });
      _exit(0);
    }
    close(ready[1]);
    char word = 0;
    EXPECT_EQ(read(ready[0], &word, 1), 1) << "the child ended too early";
    close(ready[0]);
  }
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;
  ~Child() { end(); }

  void end() {
    if (pid_ <= 0) return;
    __real_kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }
  void signalAndWait(int number, int options) {
    ASSERT_EQ(__real_kill(pid_, number), 0);
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid_), &info, options | WNOWAIT), 0);
  }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

[[noreturn]] inline void sleepForever() {
  for (;;) pause();
}

inline void sleeping(const std::function<void()> &ready) {
  ready();
  sleepForever();
}

// Of a child that has all of `memory` mapped, and touched.
inline Child::Work sleepingWith(const FileHandle &memory, size_t size) {
  return [&memory, size](const std::function<void()> &ready) {
    const void *map =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, memory.get(), 0);
    if (map == MAP_FAILED) _exit(1);
    sleeping(ready);
  };
}

inline void busy(const std::function<void()> &ready) {
  ready();
  for (std::atomic<uint64_t> count = 0;; count++) {
  }
}

// A child with this pid; 0 where the kernel does not let one choose.
inline pid_t startAs(pid_t pid) {
  clone_args arguments{};
  arguments.exit_signal = SIGCHLD;
  arguments.set_tid = reinterpret_cast<uintptr_t>(&pid);
  arguments.set_tid_size = 1;
  const long started = __real_syscall(SYS_clone3, &arguments, sizeof arguments, 0L, 0L, 0L);
  if (started == 0) sleepForever();
  return started < 0 ? 0 : static_cast<pid_t>(started);
}

// The jetsam band of a process that is listed; -1 for another.
inline int32_t bandOf(Machine &machine, pid_t pid) {
  std::vector<darwin::memorystatus_priority_entry> entries;
  EXPECT_EQ(machine.memoryStatusList(entries), kAnswered);
  for (const auto &entry : entries) {
    if (entry.pid == pid) return entry.priority;
  }
  return -1;
}

// How many descriptors this process has, one for the look at them included.
inline size_t openDescriptors() {
  DirectoryReader lister;
  FileHandle directory = openDirectory(AT_FDCWD, "/proc/self/fd");
  size_t count = 0;
  EXPECT_EQ(lister.readNames(directory.get(), [&count](const char *, bool) { count++; }),
            kAnswered);
  return count;
}

// What this process has open, by its links.
inline std::multiset<std::string> openFiles() {
  DirectoryReader lister;
  FileHandle directory = openDirectory(AT_FDCWD, "/proc/self/fd");
  std::multiset<std::string> files;
  const auto add = [&](const char *name, bool) {
    char link[PATH_MAX];
    const ssize_t length = readlinkat(directory.get(), name, link, sizeof link);
    if (length > 0) files.emplace(link, static_cast<size_t>(length));
  };
  EXPECT_EQ(lister.readNames(directory.get(), add), kAnswered);
  return files;
}

}  // namespace host::linux_machine
