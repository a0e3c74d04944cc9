// What the kernel's per-process and per-thread files say: plain functions over a text. Names in
// these texts are chosen by other users' processes and may hold any byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host::linux_machine {

// /proc/PID/stat and /proc/PID/task/TID/stat, which have one format. Times are clock ticks, sizes
// bytes unless named otherwise.
struct ProcessStat {
  int32_t id;
  char name[64];  // ends with a NUL
  char state;
  int32_t parent;
  int32_t group;
  int32_t session;
  int32_t terminal;  // 0 for none
  int32_t terminalGroup;
  uint32_t flags;
  uint64_t minorFaults;
  uint64_t majorFaults;
  uint64_t userTicks;
  uint64_t systemTicks;
  int32_t nice;
  uint32_t threads;
  uint64_t startTicks;  // since boot
  uint64_t virtualSize;
  int64_t residentPages;
  uint64_t startCode;   // this and the next are 0 or 1 where the caller may not look
  uint64_t startStack;  // where this run of an executable has its stack
  uint32_t realTimePriority;
  uint32_t policy;

  // Of a thread: it has ended.
  bool hasEnded() const { return state == 'Z' || state == 'X' || state == 'x'; }
  // Gone but not yet reaped. A process goes on after its first thread ended, as long as it has
  // others.
  bool isZombie() const { return hasEnded() && threads <= 1; }
  bool hasLostFirstThread() const { return hasEnded() && threads > 1; }
  bool isKernelThread() const { return (flags & 0x200000) != 0; }
};

// Kinds of `policy`.
constexpr uint32_t kPolicyFifo = 1;
constexpr uint32_t kPolicyRoundRobin = 2;
constexpr uint32_t kPolicyIdle = 5;
constexpr uint32_t kPolicyDeadline = 6;

// /proc/PID/status; sizes are KiB. Lines that the kernel leaves out read as 0.
struct ProcessStatus {
  struct Identities {
    uint32_t real;
    uint32_t effective;
    uint32_t saved;
  };
  Identities user;
  Identities group;
  uint64_t process;  // the process that this is a thread of
  uint64_t tracer;   // 0 for none
  uint64_t descriptorSlots;
  uint64_t residentKiB;  // exact, where the stat has an estimate
  uint64_t anonymousKiB;
  uint64_t swappedKiB;
  uint64_t seccomp;  // 2 with a filter
  uint64_t voluntarySwitches;
  uint64_t involuntarySwitches;
};

// /proc/PID/io: bytes that went to and came from storage.
struct ProcessIO {
  uint64_t bytesRead;
  uint64_t bytesWritten;
};

// /proc/PID/schedstat: nanoseconds on a processor, and how often it was put on one.
struct SchedulerRecord {
  uint64_t runTime;
  uint64_t turns;
  bool operator==(const SchedulerRecord &) const = default;
};

// Each returns false, and leaves the record alone, for a text that is not whole and well-formed.
bool parseProcessStat(std::string_view text, ProcessStat &stat);
bool parseProcessStatus(std::string_view text, ProcessStatus &status);
bool parseProcessIO(std::string_view text, ProcessIO &io);
bool parseSchedulerRecord(std::string_view text, SchedulerRecord &record);

// The texts of /proc/PID/cmdline, each of which ends with a NUL; a last one need not.
std::vector<std::string> splitArguments(std::string_view text);

// Whether /proc/PID/auxv, which is binary, is that of a 64-bit program. True for an empty one.
bool isAuxiliaryVector64Bit(std::string_view bytes);

}  // namespace host::linux_machine
