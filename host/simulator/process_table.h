// The processes of a simulated device: which there are, how they come and go, and what belongs to
// the device as a whole: PIDs, thread IDs, and the ends of connections.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "host/simulator/device.h"
#include "host/simulator/peers.h"
#include "host/simulator/running_process.h"
#include "host/simulator/thread_ids.h"

namespace host::simulator {

// Pointers to processes are good until one ends. A process that can't be, or would be one too many,
// is not started.
class ProcessTable {
 public:
  // Throws std::invalid_argument for processes that contradict themselves or each other.
  explicit ProcessTable(std::vector<Process> processes);

  // Zombies too; null for none.
  RunningProcess *find(int32_t pid);
  // The same process as a while ago, not one that has its pid by now.
  RunningProcess *find(int32_t pid, uint64_t life);
  const std::vector<std::unique_ptr<RunningProcess>> &inStartOrder() const { return processes_; }
  const Peers &peers() const { return peers_; }

  // Null where there is none.
  RunningProcess *start(Process description, Nanoseconds now);
  RunningProcess *fork(const RunningProcess &parent, int32_t child, Nanoseconds now);
  // Its children are given to pid 1.
  void end(RunningProcess &process, uint32_t status, bool staysZombie, Nanoseconds now);
  void setThreads(RunningProcess &process, std::vector<Thread> threads, Nanoseconds now);
  // Null for a number in use.
  const Descriptor *open(RunningProcess &process, Descriptor descriptor, Nanoseconds now);
  void close(RunningProcess &process, int32_t number);

 private:
  // What a device may hold over all of its processes.
  struct Sizes {
    size_t threads = 0;
    size_t descriptors = 0;
    size_t regions = 0;
  };

  static Sizes sizesOf(const Process &process);
  bool hasRoomFor(const Sizes &more) const;
  void include(const Process &process);
  void exclude(const Process &process);
  int32_t choosePid();
  RunningProcess &add(Process description, Nanoseconds startedAt);
  void enter(Descriptor &descriptor);
  void dropHoldings(RunningProcess &process);

  std::vector<std::unique_ptr<RunningProcess>> processes_;  // by life
  std::unordered_map<int32_t, RunningProcess *> byPid_;
  int32_t lastPid_ = 0;
  uint64_t lastLife_ = 0;
  ThreadIDs threadIDs_;
  Peers peers_;
  uint64_t lastSourceKey_ = 0;
  Sizes held_;
};

}  // namespace host::simulator
