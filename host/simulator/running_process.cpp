#include "host/simulator/running_process.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "host/darwin/proc_info.h"
#include "host/simulator/wide.h"

namespace host::simulator {

namespace {

// Where the handles that are chosen begin, and how far they are apart: like pointers into stacks.
constexpr uint64_t kFirstThreadHandle = 0x16D0E3000;
constexpr uint64_t kThreadHandleDistance = 0x8C000;

// Slots of a new descriptor table.
constexpr size_t kFirstSlots = 25;

constexpr Figure Process::*kSizes[] = {&Process::virtualSize, &Process::residentSize,
                                       &Process::footprint, &Process::wiredSize};
constexpr Figure Process::*kCounts[] = {
    &Process::userTime,         &Process::systemTime,        &Process::faults,
    &Process::pageIns,          &Process::copyOnWriteFaults, &Process::messagesSent,
    &Process::messagesReceived, &Process::machCalls,         &Process::unixCalls,
    &Process::contextSwitches};
constexpr Figure ResourceUsage::*kUsageCounts[] = {&ResourceUsage::diskRead,
                                                   &ResourceUsage::diskWritten,
                                                   &ResourceUsage::idleWakeups,
                                                   &ResourceUsage::interruptWakeups,
                                                   &ResourceUsage::logicalWrites,
                                                   &ResourceUsage::instructions,
                                                   &ResourceUsage::cycles,
                                                   &ResourceUsage::billedEnergy,
                                                   &ResourceUsage::servicedEnergy,
                                                   &ResourceUsage::billedSystemTime,
                                                   &ResourceUsage::servicedSystemTime};

[[noreturn]] void refuse(int32_t pid, const std::string &what) {
  throw std::invalid_argument("process " + std::to_string(pid) + ": " + what);
}

void delay(Thread &thread, Nanoseconds by) {
  for (Figure *figure : {&thread.userTime, &thread.systemTime, &thread.share}) {
    *figure = figure->later(by);
  }
}

void delay(Region &region, Nanoseconds by) {
  for (Figure *figure : {&region.resident, &region.privateResident, &region.sharedResident,
                         &region.sharedNowPrivate, &region.swappedOut, &region.dirty}) {
    *figure = figure->later(by);
  }
}

void delay(Descriptor &descriptor, Nanoseconds by) {
  descriptor.offset = descriptor.offset.later(by);
  std::visit(
      [by](auto &object) {
        using Object = std::decay_t<decltype(object)>;
        if constexpr (std::is_same_v<Object, File> || std::is_base_of_v<NamedObject, Object>) {
          object.size = object.size.later(by);
        } else if constexpr (std::is_same_v<Object, PipeEnd>) {
          object.buffered = object.buffered.later(by);
        } else if constexpr (std::is_same_v<Object, Socket>) {
          if (!object.traffic) return;
          TrafficCounters &traffic = *object.traffic;
          for (Figure *figure : {&traffic.receivedPackets, &traffic.receivedBytes,
                                 &traffic.sentPackets, &traffic.sentBytes}) {
            *figure = figure->later(by);
          }
        }
      },
      descriptor.object);
}

bool isBelow(const Descriptor &descriptor, int32_t number) {
  return descriptor.number < number;
}

// The lowest number that none of `descriptors` has, which are ascending: the first of them that is
// not at the place that its number says comes after it.
int32_t lowestFree(const std::vector<Descriptor> &descriptors) {
  size_t low = 0;
  size_t high = descriptors.size();
  while (low < high) {
    const size_t middle = low + (high - low) / 2;
    if (static_cast<size_t>(descriptors[middle].number) == middle) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return static_cast<int32_t>(low);
}

}  // namespace

RunningProcess::RunningProcess(Process description, uint64_t life, Nanoseconds startedAt)
    : description_(std::move(description)),
      life_(life),
      started_(startedAt - std::max(description_.age, Nanoseconds{0})),
      origin_(startedAt) {
  if (isStopped() || isZombie()) stands_ = Nanoseconds{0};
  if (isZombie()) {
    end(description_.exitStatus, startedAt);
    return;
  }
  takeThreads(std::move(description_.threads));
  numberDescriptors();
  sortRegions();
}

std::array<uint64_t, 2> RunningProcess::coalitions() const {
  const uint64_t own = static_cast<uint64_t>(pid());
  return description_.coalitions.value_or(std::array{own, own});
}

Nanoseconds RunningProcess::ownTime(Nanoseconds now) const {
  return stands_ ? *stands_ : now - origin_;
}

int32_t RunningProcess::shareOf(const Thread &thread, Nanoseconds now) const {
  if (isStopped() && stops_ > 0) return 0;
  const uint64_t share = thread.share.at(isStopped() ? now - origin_ : ownTime(now));
  return std::min(saturate<int32_t>(share), darwin::TH_USAGE_SCALE);
}

uint64_t RunningProcess::stop(Nanoseconds now) {
  if (isStopped() || isZombie()) return 0;
  stands_ = ownTime(now);
  statusBeforeStop_ = std::exchange(description_.status, darwin::SSTOP);
  return ++stops_;
}

void RunningProcess::resume(Nanoseconds now) {
  if (!isStopped() || !stands_) return;
  origin_ = now - *stands_;
  stands_.reset();
  description_.status = statusBeforeStop_;
}

void RunningProcess::end(uint32_t status, Nanoseconds now) {
  stands_ = ownTime(now);
  ended_ = now;
  description_.status = darwin::SZOMB;
  description_.exitStatus = status;
  takeThreads({});
  description_.descriptors.clear();
  description_.regions.clear();
  description_.traffic.reset();
  openings_.clear();
}

Process RunningProcess::forked(Nanoseconds now) const {
  const Nanoseconds own = ownTime(now);
  Process child = description_;
  child.parent = pid();
  child.group = description_.group.value_or(pid());
  child.age = Nanoseconds{0};
  child.coalitions = coalitions();
  if (isStopped()) child.status = statusBeforeStop_;
  child.donors.clear();
  child.traffic.reset();
  for (Figure Process::*size : kSizes) child.*size = (child.*size).setTo((child.*size).at(own), {});
  for (Figure Process::*count : kCounts) child.*count = (child.*count).setTo(0, {});
  if (child.usage) {
    for (Figure ResourceUsage::*count : kUsageCounts) {
      (*child.usage).*count = ((*child.usage).*count).setTo(0, {});
    }
  }
  for (Thread &thread : child.threads) {
    thread.id = 0;
    thread.userTime = thread.userTime.setTo(0, {});
    thread.systemTime = thread.systemTime.setTo(0, {});
    thread.share = thread.share.later(-own);
  }
  for (Descriptor &descriptor : child.descriptors) delay(descriptor, -own);
  for (Region &region : child.regions) delay(region, -own);
  return child;
}

void RunningProcess::setThreads(std::vector<Thread> threads, Nanoseconds now) {
  for (Thread &thread : threads) delay(thread, ownTime(now));
  takeThreads(std::move(threads));
}

void RunningProcess::takeThreads(std::vector<Thread> threads) {
  chooseHandles(threads);
  std::vector<ThreadKey> handles = keysOf(threads, &Thread::handle);
  std::vector<ThreadKey> ids = keysOf(threads, &Thread::id);
  const auto isSame = [](const ThreadKey &a, const ThreadKey &b) { return a.number == b.number; };
  if (std::adjacent_find(ids.begin(), ids.end(), isSame) != ids.end()) {
    refuse(pid(), "two threads with the same ID");
  }
  if (pid() != 0 && std::adjacent_find(handles.begin(), handles.end(), isSame) != handles.end()) {
    refuse(pid(), "two threads with the same handle");
  }
  description_.threads = std::move(threads);
  handles_ = std::move(handles);
  ids_ = std::move(ids);
}

// The kernel's own threads have no memory of a user's to point to.
void RunningProcess::chooseHandles(std::vector<Thread> &threads) const {
  std::vector<uint64_t> given;
  for (Thread &thread : threads) {
    if (pid() == 0) thread.handle = 0;
    if (thread.handle != 0) given.push_back(thread.handle);
  }
  if (pid() == 0) return;
  std::sort(given.begin(), given.end());
  uint64_t next = kFirstThreadHandle;
  for (Thread &thread : threads) {
    if (thread.handle != 0) continue;
    while (std::binary_search(given.begin(), given.end(), next)) next += kThreadHandleDistance;
    thread.handle = next;
    next += kThreadHandleDistance;
  }
}

std::vector<RunningProcess::ThreadKey> RunningProcess::keysOf(const std::vector<Thread> &threads,
                                                              uint64_t Thread::*number) {
  std::vector<ThreadKey> keys;
  keys.reserve(threads.size());
  for (const Thread &thread : threads) keys.push_back({thread.*number, keys.size()});
  const auto isBefore = [](const ThreadKey &a, const ThreadKey &b) {
    return a.number != b.number ? a.number < b.number : a.index < b.index;
  };
  if (!std::is_sorted(keys.begin(), keys.end(), isBefore)) {
    std::sort(keys.begin(), keys.end(), isBefore);
  }
  return keys;
}

const Thread *RunningProcess::findThread(const std::vector<ThreadKey> &keys,
                                         uint64_t number) const {
  const auto found =
      std::lower_bound(keys.begin(), keys.end(), number,
                       [](const ThreadKey &key, uint64_t wanted) { return key.number < wanted; });
  if (found == keys.end() || found->number != number) return nullptr;
  return &description_.threads[found->index];
}

const Thread *RunningProcess::threadByHandle(uint64_t handle) const {
  return findThread(handles_, handle);
}

const Thread *RunningProcess::threadByID(uint64_t id) const {
  return findThread(ids_, id);
}

void RunningProcess::numberDescriptors() {
  std::vector<Descriptor> &all = description_.descriptors;
  std::vector<int32_t> given;
  for (const Descriptor &descriptor : all) {
    if (descriptor.number < -1) refuse(pid(), "a negative descriptor");
    if (descriptor.number >= 0) given.push_back(descriptor.number);
  }
  std::sort(given.begin(), given.end());
  if (std::adjacent_find(given.begin(), given.end()) != given.end()) {
    refuse(pid(), "two descriptors with the same number");
  }
  int32_t next = 0;
  auto taken = given.begin();
  for (Descriptor &descriptor : all) {
    if (descriptor.number >= 0) continue;
    for (; taken != given.end() && *taken == next; ++taken) ++next;
    descriptor.number = next++;
  }
  const auto isBefore = [](const Descriptor &a, const Descriptor &b) {
    return a.number < b.number;
  };
  if (!std::is_sorted(all.begin(), all.end(), isBefore)) {
    std::sort(all.begin(), all.end(), isBefore);
  }
}

const Descriptor *RunningProcess::descriptor(int32_t number) const {
  const std::vector<Descriptor> &all = description_.descriptors;
  if (number < 0) return nullptr;
  // Where none is free below it.
  const size_t place = static_cast<size_t>(number);
  if (place < all.size() && all[place].number == number) return &all[place];
  const auto found = std::lower_bound(all.begin(), all.end(), number, isBelow);
  return found != all.end() && found->number == number ? &*found : nullptr;
}

size_t RunningProcess::descriptorSlots() const {
  const std::vector<Descriptor> &all = description_.descriptors;
  const size_t needed = all.empty() ? 0 : static_cast<size_t>(all.back().number) + 1;
  size_t slots = kFirstSlots;
  while (slots < needed) slots *= 2;
  return slots;
}

Descriptor *RunningProcess::open(Descriptor descriptor, Nanoseconds now) {
  std::vector<Descriptor> &all = description_.descriptors;
  if (descriptor.number < 0) descriptor.number = lowestFree(all);
  const auto place = std::lower_bound(all.begin(), all.end(), descriptor.number, isBelow);
  if (place != all.end() && place->number == descriptor.number) return nullptr;
  delay(descriptor, ownTime(now));
  openings_[descriptor.number] = ++lastOpening_;
  return &*all.insert(place, std::move(descriptor));
}

uint64_t RunningProcess::openingOf(int32_t number) const {
  const auto found = openings_.find(number);
  return found == openings_.end() ? 0 : found->second;
}

void RunningProcess::close(int32_t number) {
  std::vector<Descriptor> &all = description_.descriptors;
  const auto found = std::lower_bound(all.begin(), all.end(), number, isBelow);
  if (found == all.end() || found->number != number) return;
  all.erase(found);
  openings_.erase(number);
}

void RunningProcess::sortRegions() {
  std::vector<Region> &all = description_.regions;
  const auto isBefore = [](const Region &a, const Region &b) { return a.address < b.address; };
  if (!std::is_sorted(all.begin(), all.end(), isBefore)) {
    std::sort(all.begin(), all.end(), isBefore);
  }
  for (size_t i = 0; i < all.size(); ++i) {
    const uint64_t room = (i + 1 < all.size() ? all[i + 1].address : UINT64_MAX) - all[i].address;
    if (all[i].size == 0) refuse(pid(), "an empty region");
    if (all[i].size > room) refuse(pid(), "regions that overlap");
  }
}

const Region *RunningProcess::region(uint64_t address) const {
  const std::vector<Region> &all = description_.regions;
  // The first that does not end at or below the address.
  const auto found = std::partition_point(all.begin(), all.end(), [address](const Region &region) {
    return region.address + region.size <= address;
  });
  return found == all.end() ? nullptr : &*found;
}

}  // namespace host::simulator
