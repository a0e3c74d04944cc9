// Who is to be told what happens to the processes of a simulated device.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "host/machine/events.h"

namespace host::simulator {

struct ProcessWatch {
  std::unordered_map<int32_t, uint64_t> lives;  // by PID: of the processes that are watched
  std::vector<ProcessEvent> happened;           // not yet told; one for each process

  // Also drops what was to be told of an earlier process with this PID.
  void begin(int32_t pid, uint64_t life);
  void end(int32_t pid);
};

// Not for use by several threads at once.
class ProcessWatches {
 public:
  // A watch that is added stays where it is until it is removed.
  void add(ProcessWatch &watch) { watches_.push_back(&watch); }
  void remove(const ProcessWatch &watch);

  // NOTE_* of darwin/kqueue.h. After NOTE_EXIT nobody watches that process any more.
  void tell(int32_t pid, uint64_t life, uint32_t note);

 private:
  std::vector<ProcessWatch *> watches_;
};

}  // namespace host::simulator
