// A process of a simulated device while it is there: its description, its own clock, and its
// threads, descriptors and regions as they are looked up.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "host/simulator/device.h"

namespace host::simulator {

class RunningProcess {
 public:
  // The description has a pid, and its threads have IDs. `life` is larger for one that started
  // later. Throws std::invalid_argument for a description that contradicts itself.
  RunningProcess(Process description, uint64_t life, Nanoseconds startedAt);

  const Process &description() const { return description_; }
  // For what can be changed at any time: all but threads, descriptors, regions and status.
  Process &description() { return description_; }

  int32_t pid() const { return description_.pid; }
  uint64_t life() const { return life_; }
  // Its own unless it was put into others.
  std::array<uint64_t, 2> coalitions() const;
  bool isZombie() const { return description_.status == darwin::SZOMB; }
  bool isStopped() const { return description_.status == darwin::SSTOP; }

  // When it started, by the device's clock: before that clock's start for most.
  Nanoseconds started() const { return started_; }
  // Of a zombie.
  Nanoseconds ended() const { return ended_; }
  // What its figures count: since its start or that of the device's clock, without the time for
  // which it was stopped.
  Nanoseconds ownTime(Nanoseconds now) const;
  // What one of its threads takes of a processor now, in tenths of a percent: nothing once it was
  // stopped. What a process that was stopped before had left goes on falling, or growing.
  int32_t shareOf(const Thread &thread, Nanoseconds now) const;

  // Both leave a zombie alone. `stop` tells one stop from the next, and answers 0 for a process
  // that is stopped already.
  uint64_t stop(Nanoseconds now);
  void resume(Nanoseconds now);
  uint64_t stops() const { return stops_; }
  // A signal that it gets once it goes on; 0 for none.
  void keepSignal(int signal) { keptSignal_ = signal; }
  int keptSignal() const { return keptSignal_; }
  // It becomes a zombie, and holds nothing any more.
  void end(uint32_t status, Nanoseconds now);

  // What another process is that this one forks now, but for its pid: sizes go on from here, what
  // was counted or spent starts again. Its threads have no IDs yet.
  Process forked(Nanoseconds now) const;

  const std::vector<Thread> &threads() const { return description_.threads; }
  // They have IDs. Throws std::invalid_argument for two with the same number.
  void setThreads(std::vector<Thread> threads, Nanoseconds now);
  // Null for one that it does not have. All of the kernel's threads have handle 0, which finds the
  // first.
  const Thread *threadByHandle(uint64_t handle) const;
  const Thread *threadByID(uint64_t id) const;

  // Ascending.
  const std::vector<Descriptor> &descriptors() const { return description_.descriptors; }
  const Descriptor *descriptor(int32_t number) const;
  // How many descriptors the table has room for now: it doubles when it is full.
  size_t descriptorSlots() const;
  // Null for a number in use.
  Descriptor *open(Descriptor descriptor, Nanoseconds now);
  // What tells an opening from others of the same number; 0 for a descriptor that was there from
  // the process's start.
  uint64_t openingOf(int32_t number) const;
  void close(int32_t number);

  // The region that contains `address`, or the next one above; null past the last.
  const Region *region(uint64_t address) const;

 private:
  struct ThreadKey {
    uint64_t number;
    size_t index;
  };

  static std::vector<ThreadKey> keysOf(const std::vector<Thread> &threads,
                                       uint64_t Thread::*number);
  const Thread *findThread(const std::vector<ThreadKey> &keys, uint64_t number) const;
  void takeThreads(std::vector<Thread> threads);
  void chooseHandles(std::vector<Thread> &threads) const;
  void numberDescriptors();
  void sortRegions();

  Process description_;
  uint64_t life_;
  Nanoseconds started_;
  Nanoseconds ended_{0};
  Nanoseconds origin_;                 // when its own clock, had it never stood still, was 0
  std::optional<Nanoseconds> stands_;  // what its own clock shows while that stands still
  uint32_t statusBeforeStop_ = darwin::SRUN;
  uint64_t stops_ = 0;
  int keptSignal_ = 0;

  // Ascending; all but the kernel's handles are unique.
  std::vector<ThreadKey> handles_;
  std::vector<ThreadKey> ids_;

  std::unordered_map<int32_t, uint64_t> openings_;
  uint64_t lastOpening_ = 0;
};

}  // namespace host::simulator
