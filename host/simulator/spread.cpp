#include "host/simulator/spread.h"

#include <algorithm>
#include <variant>

#include "host/darwin/proc_info.h"
#include "host/simulator/wide.h"

namespace host::simulator {

namespace {

// Every bit of the result depends on every bit of the number.
uint64_t mixed(uint64_t number) {
  number += 0x9E3779B97F4A7C15;
  number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9;
  number = (number ^ (number >> 27)) * 0x94D049BB133111EB;
  return number ^ (number >> 31);
}

class Spread {
 public:
  Spread(int64_t millionths, int64_t seed)
      : millionths_(millionths), seed_(mixed(static_cast<uint64_t>(seed))) {}

  void change(Figure &figure) {
    const uint64_t steps = 2 * static_cast<uint64_t>(millionths_) + 1;
    const Wide factor =
        kMillion - millionths_ + static_cast<int64_t>(mixed(seed_ + number_++) % steps);
    figure.start = saturate<uint64_t>(Wide{figure.start} * factor / kMillion);
    figure.growth = saturate<int64_t>(Wide{figure.growth} * factor / kMillion);
    figure.swing = saturate<uint64_t>(Wide{figure.swing} * factor / kMillion);
  }

  // What there is of a figure beyond a part of it that stays.
  void changeBeyond(uint64_t part, Figure &figure) {
    part = std::min(part, figure.start);
    figure.start -= part;
    change(figure);
    figure.start = saturate<uint64_t>(Wide{figure.start} + part);
  }

  template <typename... Figures>
  void changeAll(Figures &...figures) {
    (change(figures), ...);
  }

  void changeObject(Descriptor &descriptor) {
    if (File *file = std::get_if<File>(&descriptor.object)) change(file->size);
    if (auto *semaphore = std::get_if<NamedSemaphore>(&descriptor.object)) change(semaphore->size);
    if (auto *memory = std::get_if<SharedMemory>(&descriptor.object)) change(memory->size);
    if (PipeEnd *pipe = std::get_if<PipeEnd>(&descriptor.object)) change(pipe->buffered);
    Socket *socket = std::get_if<Socket>(&descriptor.object);
    if (socket == nullptr || !socket->traffic) return;
    TrafficCounters &traffic = *socket->traffic;
    changeAll(traffic.receivedPackets, traffic.receivedBytes, traffic.sentPackets,
              traffic.sentBytes);
  }

 private:
  int64_t millionths_;
  uint64_t seed_;
  uint64_t number_ = 0;
};

uint64_t mappedSize(const Process &process) {
  Wide size = 0;
  for (const Region &region : process.regions) size += region.size;
  return saturate<uint64_t>(size);
}

}  // namespace

void spreadFigures(Process &process, int64_t millionths, int64_t seed) {
  if (millionths == 0) return;
  Spread spread(millionths, seed);
  spread.changeBeyond(mappedSize(process), process.virtualSize);
  spread.changeAll(process.residentSize, process.footprint, process.wiredSize, process.userTime,
                   process.systemTime, process.faults, process.pageIns, process.copyOnWriteFaults,
                   process.messagesSent, process.messagesReceived, process.machCalls,
                   process.unixCalls, process.contextSwitches);
  if (process.usage) {
    ResourceUsage &usage = *process.usage;
    spread.changeAll(usage.diskRead, usage.diskWritten, usage.idleWakeups, usage.interruptWakeups,
                     usage.logicalWrites, usage.instructions, usage.cycles, usage.billedEnergy,
                     usage.servicedEnergy, usage.billedSystemTime, usage.servicedSystemTime);
  }
  if (process.traffic) {
    spread.changeAll(process.traffic->receivedBytes, process.traffic->sentBytes);
  }
  for (Thread &thread : process.threads) {
    spread.changeAll(thread.userTime, thread.systemTime, thread.share);
    // A thread fills one processor at most.
    thread.share.start = std::min<uint64_t>(thread.share.start, darwin::TH_USAGE_SCALE);
  }
  for (Descriptor &descriptor : process.descriptors) {
    spread.change(descriptor.offset);
    spread.changeObject(descriptor);
  }
  for (Region &region : process.regions) {
    spread.changeAll(region.resident, region.privateResident, region.sharedResident,
                     region.sharedNowPrivate, region.swappedOut, region.dirty);
  }
}

}  // namespace host::simulator
