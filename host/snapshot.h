// A snapshot of tasks and their threads as a machine describes it, and the stackshot that a kernel
// of the 4903 family would make of it. What is not known is left out of the stackshot.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "darwin/mach_host.h"

namespace host {

// A loaded executable or library.
struct SnapshotImage {
  uint64_t address = 0;
  std::array<uint8_t, 16> uuid{};
};

struct SnapshotThread {
  uint64_t id = 0;
  std::string name;   // empty: it has none
  int32_t state = 0;  // TH_STATE_*
  bool isIdle = false;
  int16_t basePriority = 0;
  int16_t priority = 0;  // that it has just now
  uint64_t waitEvent = 0;
  uint64_t continuation = 0;
  // Nanoseconds. `runnable` is the time for which it was running, or could have been.
  uint64_t userTime = 0;
  uint64_t systemTime = 0;
  std::optional<uint64_t> runnableTime;
  // The program counter, then return addresses, the innermost first.
  std::vector<uint64_t> kernelStack;
  std::vector<uint64_t> userStack;
};

struct SnapshotTask {
  int32_t pid = 0;
  std::string name;
  bool is64Bit = true;
  uint64_t startSeconds = 0;  // since the epoch
  uint64_t residentSize = 0;  // bytes
  uint32_t suspendCount = 0;
  uint32_t faults = 0;
  uint32_t pageIns = 0;
  uint32_t copyOnWriteFaults = 0;
  // Nanoseconds, of threads that have ended.
  uint64_t endedUserTime = 0;
  uint64_t endedSystemTime = 0;
  std::vector<SnapshotImage> images;
  std::vector<int32_t> donatingPids;  // whose importance it was given
  std::vector<SnapshotThread> threads;
};

struct Snapshot {
  // Nanoseconds per mach absolute time unit, as numerator and denominator; neither is 0.
  uint32_t timebaseNumerator = 1;
  uint32_t timebaseDenominator = 1;
  uint64_t sinceBoot = 0;   // nanoseconds
  uint64_t sinceEpoch = 0;  // microseconds
  std::string kernelVersion;
  std::optional<std::string> bootArguments;
  uint32_t pageSize = 0;
  std::optional<darwin::vm_statistics64> memory;  // in such pages
  std::vector<SnapshotTask> tasks;
};

// `flags` are STACKSHOT_*: what they don't ask for is left out too.
std::vector<uint8_t> writeSnapshot(const Snapshot &snapshot, uint64_t flags);

}  // namespace host
