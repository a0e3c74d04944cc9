// What a process's threads are at in user space, and what it has loaded. The work is done in a
// child process: what a strange file can do to an unwinder, it does to that.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <vector>

#include "host/snapshot.h"

namespace host::linux_machine {

struct UserStacks {
  std::vector<SnapshotImage> images;
  std::map<pid_t, std::vector<uint64_t>> stacks;  // by thread; none is empty
};

// Stops `threads` of `process` for a moment. Those that can't be looked at have no stack; nothing
// at all is known of a process whose files are beyond what can be read within `patience`.
UserStacks readUserStacks(pid_t process, const std::vector<pid_t> &threads,
                          std::chrono::seconds patience);

// The same as words, as the child hands it over, and back: what makes no sense there is left out.
std::vector<uint64_t> packUserStacks(const UserStacks &stacks);
UserStacks unpackUserStacks(const std::vector<uint64_t> &words);

}  // namespace host::linux_machine
