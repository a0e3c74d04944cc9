// What the kernel says of a process, read by the test itself: nothing here is shared with the
// program that is tested.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace test {

// Bytes of a page of memory.
inline constexpr uint64_t kPage = 4096;

struct ThreadFacts {
  uint64_t runNanoseconds = 0;  // on a processor, since its start
  uint64_t startTicks = 0;      // since boot
};

struct ProcessFacts {
  pid_t pid = 0;
  std::string name;
  char state = '?';
  pid_t parent = 0;
  pid_t session = 0;
  uint32_t user = 0;  // effective
  int threads = 0;
  int runningThreads = 0;
  int nice = 0;
  int realTimePriority = 0;
  int policy = 0;  // SCHED_*
  uint64_t processorTicks = 0;
  uint64_t startTicks = 0;  // since boot
  std::vector<ThreadFacts> allThreads;
  uint64_t virtualBytes = 0;
  uint64_t residentBytes = 0;
  std::optional<uint64_t> readBytes;  // nothing where the caller may not know
  std::optional<uint64_t> writtenBytes;
  size_t descriptors = 0;
  int oomScore = 0;
  bool hasSystemCallFilter = false;
  bool hasOwnUsers = false;             // a user namespace other than the test's
  std::optional<uint64_t> memoryLimit;  // bytes, of the control groups that it is in

  bool isZombie() const { return state == 'Z' || state == 'X'; }
};

// Nothing for a process that is gone.
std::optional<ProcessFacts> readFacts(pid_t pid);

// Waits until no thread of the process runs. One that says that it is ready, or that was looked at
// by a debugger, has not come to rest yet. False when it has not by the deadline, or is gone.
bool comesToRest(pid_t pid);

// Whether the test may see a process's memory map, descriptors and executable: root needs
// CAP_SYS_PTRACE for that of other users' processes.
bool mayLookInto(pid_t pid);
inline constexpr char kMayNotLook[] = "needs CAP_SYS_PTRACE to look into other users' processes";

// All processes, zombies included, ascending.
std::vector<pid_t> allProcesses();

// Text of a file, empty when it can't be read.
std::string readFile(const std::string &path);

// The words after "key:" in a text of such lines, as /proc has them; the first of them as a number.
std::vector<std::string> fieldWords(const std::string &text, const std::string &key);
std::optional<uint64_t> fieldNumber(const std::string &text, const std::string &key);

}  // namespace test
