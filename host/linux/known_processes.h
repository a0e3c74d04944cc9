// What is remembered of processes from one look to the next: figures that need two looks, and
// answers that stay true while a process has not run.
#pragma once

#include <cstdint>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "darwin/proc_info.h"
#include "host/errno.h"
#include "host/linux/kept_files.h"
#include "host/linux/process_text.h"
#include "host/linux/threads.h"

namespace host::linux_machine {

// A thread's figures at the last look.
struct KnownThread {
  int32_t id = 0;
  uint64_t startTicks = 0;
  // Of a process that has several: the last reading, and the survey before it.
  ProcessStat stat{};
  uint64_t survey = 0;
  ThreadFigures figures{};
  UsageEstimate estimate;
  // Of a process that has several.
  KeptThreadFiles files;
  std::optional<SchedulerRecord> record;
};

// Which run of which executable a process is at: an exec changes it.
struct ExecutableImage {
  uint64_t startCode;
  uint64_t startStack;
  bool operator==(const ExecutableImage &) const = default;
};

// Ascending by descriptor.
template <typename T>
using DescriptorAnswers = std::vector<std::pair<int, T>>;

// Answers about descriptors that a sample asks for and a report of the same sample asks for again.
// Each is true while the process does not run, but for what others do to what it has open: so for a
// moment only.
struct KnownDescriptors {
  std::tuple<DescriptorAnswers<darwin::socket_fdinfo>, DescriptorAnswers<darwin::pipe_fdinfo>,
             DescriptorAnswers<std::vector<darwin::kevent_extinfo>>>
      answers;
  uint64_t pass;
  uint64_t reading;  // of the process, in which they were asked for
  uint64_t since;    // coarseNanoseconds()
};

// Whether two processes use one descriptor table.
enum class TableSharing { none, shared, unknown };
TableSharing compareDescriptorTables(int32_t pid, int32_t other);

struct KnownProcess {
  uint64_t startTicks = 0;
  // The last reading, and the number of the survey before it.
  ProcessStat stat{};
  uint64_t survey = 0;
  // It was alive at the last look, and takeLife() was not asked since.
  bool isAlive = false;

  // The scheduler's record at the last look; absent where it can't tell whether the process ran.
  // Those of several threads stand with them.
  std::optional<SchedulerRecord> record;
  // The next look will tell whether it has run since the last one.
  bool tellsRest = false;

  // Answers that only the process's own running can change, and how reading `io` ended.
  std::optional<ProcessStatus> status;
  int64_t residentPages = 0;  // by the stat, when the status was read
  std::optional<Errno> ioResult;
  ProcessIO io{};
  std::optional<bool> hasOwnUsers;  // a user namespace of its own
  std::optional<std::vector<darwin::proc_fdinfo>> descriptors;
  size_t descriptorLimit = 0;  // how many were asked for
  std::optional<KnownDescriptors> details;
  bool hasThreads = false;  // `threads` holds them all

  // What outlasts running.
  std::vector<uint64_t> sockets;     // inodes, as of the last listing of descriptors
  std::vector<KnownThread> threads;  // ascending by ID
  std::optional<ExecutableImage> image;
  bool is64Bit = true;
  // Whether the descriptor table is that of its parent too.
  std::optional<TableSharing> sharing;
  // A number in /proc may also be a thread's, which is no process.
  std::optional<bool> isProcess;
  KeptFiles files;

  // Drops the answers above: the process ran.
  void forgetAnswers();
};

// Whether a thread may have run between two looks. `before` is the scheduler's record of the
// earlier look, taken before anything else was then read; `now` is today's, read after `stat`,
// which is the thread's. A process has rested if all its threads have: those it had then are those
// it has now.
bool hasRunSince(const std::optional<SchedulerRecord> &before,
                 const std::optional<SchedulerRecord> &now, const ProcessStat &stat);

class KnownProcesses {
 public:
  // `descriptors` may be kept open for processes.
  explicit KnownProcesses(size_t descriptors = 0) : budget_(descriptors) {}

  // The process with this pid and start time: a new one if the pid has another owner now. Holds
  // until it is forgotten.
  KnownProcess &find(int32_t pid, uint64_t startTicks);
  // The process that had this pid at the last look; null for one that was not looked at. Holds as
  // long.
  KnownProcess *look(int32_t pid);
  // Of the files that are open until their process is forgotten.
  DescriptorBudget &budget() { return budget_; }
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
  DescriptorBudget budget_;
  std::unordered_map<int32_t, KnownProcess> processes_;
  // Processes whose children use their table. A pid that has another owner by now only costs a
  // listing.
  std::unordered_set<int32_t> sharers_;
};

}  // namespace host::linux_machine
