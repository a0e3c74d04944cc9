// What is remembered of processes from one look to the next: figures that need two looks, and
// answers that stay true while a process has not run.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "darwin/proc_info.h"
#include "host/errno.h"
#include "host/linux/process_text.h"
#include "host/linux/threads.h"

namespace host::linux_machine {

// A thread's figures at the last look.
struct KnownThread {
  int32_t id;
  uint64_t startTicks;
  ThreadFigures figures;
  UsageEstimate estimate;
};

// Which run of which executable a process is at: an exec changes it.
struct ExecutableImage {
  uint64_t startCode;
  uint64_t startStack;
  bool operator==(const ExecutableImage &) const = default;
};

// Whether two processes use one descriptor table.
enum class TableSharing { none, shared, unknown };
TableSharing compareDescriptorTables(int32_t pid, int32_t other);

struct KnownProcess {
  uint64_t startTicks = 0;
  // It was alive at the last look, and takeLife() was not asked since.
  bool isAlive = false;

  // The scheduler's record at the last look; absent where it can't tell whether the process ran.
  std::optional<SchedulerRecord> record;

  // Answers that only the process's own running can change, and how reading `io` ended.
  std::optional<ProcessStatus> status;
  int64_t residentPages = 0;  // by the stat, when the status was read
  std::optional<Errno> ioResult;
  ProcessIO io{};
  std::optional<bool> hasOwnUsers;  // a user namespace of its own
  std::optional<std::vector<darwin::proc_fdinfo>> descriptors;
  size_t descriptorLimit = 0;  // how many were asked for
  bool hasThreads = false;     // `threads` holds them all

  // What outlasts running.
  std::vector<uint64_t> sockets;     // inodes, as of the last listing of descriptors
  std::vector<KnownThread> threads;  // ascending by ID
  std::optional<ExecutableImage> image;
  bool is64Bit = true;
  // Whether the descriptor table is that of its parent too.
  std::optional<TableSharing> sharing;
  // A number in /proc may also be a thread's, which is no process.
  std::optional<bool> isProcess;

  // Drops the answers above: the process ran.
  void forgetAnswers();
};

// Whether a process may have run between two looks. `before` is the scheduler's record of the
// earlier look, taken before anything else was then read; `now` is today's, read after `stat`. Only
// a process with one thread can be known to have rested: the record is of its first thread alone.
bool hasRunSince(const std::optional<SchedulerRecord> &before,
                 const std::optional<SchedulerRecord> &now, const ProcessStat &stat);

class KnownProcesses {
 public:
  // The process with this pid and start time: a new one if the pid has another owner now. Holds
  // until it is forgotten.
  KnownProcess &find(int32_t pid, uint64_t startTicks);
  // Forgets all processes but these, which are in descending order.
  void keepOnly(const std::vector<int32_t> &pids);
  size_t size() const { return processes_.size(); }

  // Whether `pid` was alive at the last look. True once for each look: a caller that asks again
  // without having looked must find out by itself.
  bool takeLife(int32_t pid);

  // The process that holds each socket, by inode; of several the newest.
  std::unordered_map<uint64_t, int32_t> socketOwners() const;

  // Whether no other process can have changed the descriptors of `process`, as far as its parent
  // and children go.
  bool hasOwnDescriptors(KnownProcess &process, const ProcessStat &stat);

 private:
  std::unordered_map<int32_t, KnownProcess> processes_;
  // Processes whose children use their table. A pid that has another owner by now only costs a
  // listing.
  std::unordered_set<int32_t> sharers_;
};

}  // namespace host::linux_machine
