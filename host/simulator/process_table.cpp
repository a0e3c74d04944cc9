#include "host/simulator/process_table.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/simulator/limits.h"
#include "host/simulator/process_texts.h"

namespace host::simulator {

namespace {

// Where PIDs begin again after the largest: those below belong to what started with the system.
constexpr int32_t kPidAfterLargest = 100;

}  // namespace

ProcessTable::ProcessTable(std::vector<Process> processes) {
  // Numbers that are given come first, so that none is chosen that is given further on.
  processes_.reserve(processes.size());
  byPid_.reserve(processes.size());
  for (const Process &process : processes) {
    if (process.pid < -1 || process.pid > kLargestPid) {
      throw std::invalid_argument("no such PID: " + std::to_string(process.pid));
    }
    if (process.pid >= 0 && !byPid_.emplace(process.pid, nullptr).second) {
      throw std::invalid_argument("two processes with PID " + std::to_string(process.pid));
    }
    for (const Thread &thread : process.threads) {
      if (thread.id != 0 && !threadIDs_.claim(thread.id)) {
        throw std::invalid_argument("two threads with ID " + std::to_string(thread.id));
      }
    }
  }
  for (Process &process : processes) {
    if (process.pid < 0) process.pid = choosePid();
    threadIDs_.complete(process.threads);
    add(std::move(process), Nanoseconds{0});
  }
}

ProcessTable::Sizes ProcessTable::sizesOf(const Process &process) {
  return {process.threads.size(), process.descriptors.size(), process.regions.size()};
}

bool ProcessTable::hasRoomFor(const Sizes &more) const {
  return held_.threads + more.threads <= kMostThreads &&
         held_.descriptors + more.descriptors <= kMostDescriptors &&
         held_.regions + more.regions <= kMostRegions;
}

void ProcessTable::include(const Process &process) {
  const Sizes sizes = sizesOf(process);
  held_.threads += sizes.threads;
  held_.descriptors += sizes.descriptors;
  held_.regions += sizes.regions;
}

void ProcessTable::exclude(const Process &process) {
  const Sizes sizes = sizesOf(process);
  held_.threads -= sizes.threads;
  held_.descriptors -= sizes.descriptors;
  held_.regions -= sizes.regions;
}

// There always is one: there are more PIDs than processes can be.
int32_t ProcessTable::choosePid() {
  int32_t pid = lastPid_;
  do {
    pid = pid < kLargestPid ? pid + 1 : kPidAfterLargest;
  } while (byPid_.contains(pid));
  return pid;
}

void ProcessTable::enter(Descriptor &descriptor) {
  peers_.add(descriptor);
  const Socket *socket = std::get_if<Socket>(&descriptor.object);
  const bool hasTraffic = socket != nullptr && socket->traffic;
  if (hasTraffic && descriptor.sourceKey == 0) descriptor.sourceKey = ++lastSourceKey_;
}

RunningProcess &ProcessTable::add(Process description, Nanoseconds startedAt) {
  auto process = std::make_unique<RunningProcess>(std::move(description), lastLife_ + 1, startedAt);
  RunningProcess &added = *process;
  for (Descriptor &descriptor : added.description().descriptors) enter(descriptor);
  if (added.description().traffic) added.description().sourceKey = ++lastSourceKey_;
  processes_.push_back(std::move(process));
  byPid_[added.pid()] = &added;
  include(added.description());
  lastPid_ = std::max(lastPid_, added.pid());
  ++lastLife_;
  return added;
}

RunningProcess *ProcessTable::find(int32_t pid) {
  const auto found = byPid_.find(pid);
  return found == byPid_.end() ? nullptr : found->second;
}

RunningProcess *ProcessTable::find(int32_t pid, uint64_t life) {
  RunningProcess *process = find(pid);
  return process != nullptr && process->life() == life ? process : nullptr;
}

RunningProcess *ProcessTable::start(Process description, Nanoseconds now) {
  const int32_t pid = description.pid;
  if (pid < -1 || pid > kLargestPid || byPid_.contains(pid)) return nullptr;
  if (processes_.size() >= kMostProcesses || !hasRoomFor(sizesOf(description))) return nullptr;
  const bool isChosen = pid == -1;
  if (isChosen) {
    description.pid = choosePid();
    fillInPid(description);
  }
  threadIDs_.give(description.threads);
  try {
    RunningProcess &started = add(std::move(description), now);
    // Once PIDs have begun again from low ones, they go on from there.
    if (isChosen) lastPid_ = started.pid();
    return &started;
  } catch (const std::invalid_argument &) {
    return nullptr;
  }
}

RunningProcess *ProcessTable::fork(const RunningProcess &parent, int32_t child, Nanoseconds now) {
  if (processes_.size() >= kMostProcesses || !hasRoomFor(sizesOf(parent.description()))) {
    return nullptr;
  }
  Process description = parent.forked(now);
  description.pid = child;
  return start(std::move(description), now);
}

void ProcessTable::dropHoldings(RunningProcess &process) {
  for (const Descriptor &descriptor : process.descriptors()) peers_.remove(descriptor);
  exclude(process.description());
}

void ProcessTable::end(RunningProcess &process, uint32_t status, bool staysZombie,
                       Nanoseconds now) {
  const int32_t pid = process.pid();
  if (!process.isZombie()) {
    dropHoldings(process);
    process.end(status, now);
    for (const std::unique_ptr<RunningProcess> &other : processes_) {
      if (other->description().parent == pid) other->description().parent = 1;
    }
  }
  if (staysZombie) return;
  byPid_.erase(pid);
  const auto found = std::lower_bound(processes_.begin(), processes_.end(), process.life(),
                                      [](const std::unique_ptr<RunningProcess> &other,
                                         uint64_t life) { return other->life() < life; });
  processes_.erase(found);
}

void ProcessTable::setThreads(RunningProcess &process, std::vector<Thread> threads,
                              Nanoseconds now) {
  const size_t before = process.threads().size();
  if (held_.threads - before + threads.size() > kMostThreads) return;
  threadIDs_.give(threads);
  try {
    process.setThreads(std::move(threads), now);
  } catch (const std::invalid_argument &) {
    return;
  }
  held_.threads = held_.threads - before + process.threads().size();
}

const Descriptor *ProcessTable::open(RunningProcess &process, Descriptor descriptor,
                                     Nanoseconds now) {
  if (process.isZombie() || !hasRoomFor({0, 1, 0})) return nullptr;
  Descriptor *opened = process.open(std::move(descriptor), now);
  if (opened == nullptr) return nullptr;
  enter(*opened);
  ++held_.descriptors;
  return opened;
}

void ProcessTable::close(RunningProcess &process, int32_t number) {
  const Descriptor *descriptor = process.descriptor(number);
  if (descriptor == nullptr) return;
  peers_.remove(*descriptor);
  process.close(number);
  --held_.descriptors;
}

}  // namespace host::simulator
