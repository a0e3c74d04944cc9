// Memory pressure: when it is there, how many pages the kernel would like to have free, and how
// many it took back. It is waited for with a trigger of the kernel's stall accounting where the
// caller may set one; else once a second the accounting, or where there is none the memory that is
// left, is looked at.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string_view>

#include "host/errno.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

// Sums over all zones of /proc/zoneinfo, in pages of the kernel.
struct Watermarks {
  uint64_t free;
  uint64_t low;
  uint64_t high;
};

// Each returns false, and leaves its answer alone, for a text that is not whole and well-formed.
bool parseWatermarks(std::string_view text, Watermarks &marks);
// Pages taken back since boot, of /proc/vmstat.
bool parseReclaimedPages(std::string_view text, uint64_t &pages);
// Since boot, in which some task waited for memory, in microseconds, of /proc/pressure/memory.
bool parseStalledTime(std::string_view text, uint64_t &stalled);

// Counts of `pages` pages of `pageBytes` bytes in pages of 4 KiB, saturating.
uint32_t inPresentedPages(uint64_t pages, uint64_t pageBytes);

class MemoryPressure {
 public:
  using Clock = std::chrono::steady_clock;

  // `procDirectory` is an open handle of /proc, that stays open.
  explicit MemoryPressure(int procDirectory) : proc_(procDirectory) {}

  // As MemoryStatusQuestions::memoryPressure. Any thread may ask while another waits. What was
  // reclaimed is known for at most three seconds back, and to the second.
  Errno ask(bool waits, uint32_t seconds, uint32_t &wanted, uint32_t &reclaimed);

 private:
  struct Sample {
    Clock::time_point taken;
    uint64_t reclaimed;
  };

  Errno wait();
  Errno figures(uint32_t seconds, uint32_t &wanted, uint32_t &reclaimed);
  int trigger();
  void dropTrigger();
  bool look(bool judges);
  bool isPressed(Clock::time_point now);
  bool getStalledTime(uint64_t &stalled);
  bool isMemoryShort();
  void takeSample(Clock::time_point now);

  const int proc_;
  std::mutex mutex_;
  FileReader reader_;
  FileHandle trigger_;
  bool triggerTried_ = false;
  std::deque<Sample> samples_;  // oldest first
  bool stallKnown_ = false;
  uint64_t stalled_ = 0;  // microseconds, at `stallRead_`
  Clock::time_point stallRead_;
};

}  // namespace host::linux_machine
