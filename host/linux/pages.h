// What the kernel tells of a process's pages without bringing one in: whether there is anything at
// all, from /proc/PID/pagemap, and which mappings read as zeros where there is nothing. Who may ask
// is not judged here.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "host/errno.h"
#include "host/linux/regions.h"

namespace host::linux_machine {

// What an entry of a page map says, as VM_PAGE_QUERY_*; 0 when there is nothing.
int dispositionOf(uint64_t entry);

// Ranges of addresses, ascending.
struct AddressRange {
  uint64_t start;
  uint64_t end;
};

// Takes the lines of /proc/PID/smaps one by one, and keeps the mappings that the kernel fills with
// zeros: private anonymous ones, unless a program of its own is asked for what a page holds.
class ZeroFilled {
 public:
  void take(std::string_view line);
  // The end of the one that contains an address; 0 when none does.
  uint64_t endAt(uint64_t address) const;

 private:
  std::vector<AddressRange> ranges_;
  AddressRange candidate_{};  // empty: the mapping whose lines are taken is none
};

// Keeps the mappings of the process that was asked about last, while it is walked upward. Not
// thread-safe.
class Pages {
 public:
  // Tells of `count` pages from `address` on, the start of one, as VM_PAGE_QUERY_*. Those where
  // there is nothing, and that don't read as zeros for that, are external. `processDirectory` is an
  // open descriptor of the process's /proc/PID.
  Errno tell(int processDirectory, const ProcessKey &process, uint64_t address, size_t count,
             int *to);

 private:
  using Clock = std::chrono::steady_clock;

  Errno findZeroFilled(int processDirectory, const ProcessKey &process, uint64_t address);

  ProcessKey process_{};  // pid 0: nothing is kept
  uint64_t asked_ = 0;
  Clock::time_point askedAt_;
  ZeroFilled zeroFilled_;
};

}  // namespace host::linux_machine
