#include "host/simulator/thread_reader.h"

#include <chrono>
#include <limits>
#include <string>
#include <unordered_set>
#include <utility>

#include "host/darwin/proc_info.h"
#include "host/simulator/wide.h"

namespace host::simulator {

namespace {

constexpr size_t kLongestThreadName = darwin::DARWIN_MAXTHREADNAMESIZE - 1;
constexpr int64_t kMostThreadsOfOne = 4096;
constexpr size_t kMostFrames = 512;
constexpr size_t kGeneralRegisters64 = 29;  // x0 to x28
constexpr size_t kGeneralRegisters32 = 13;  // r0 to r12

// A tenth of a percent of a processor is a million nanoseconds a second; growth is in millionths.
constexpr int64_t kGrowthPerShare = 1'000'000'000'000;

constexpr Word kStates[] = {{"running", darwin::TH_STATE_RUNNING},
                            {"stopped", darwin::TH_STATE_STOPPED},
                            {"waiting", darwin::TH_STATE_WAITING},
                            {"uninterruptible", darwin::TH_STATE_UNINTERRUPTIBLE},
                            {"halted", darwin::TH_STATE_HALTED}};
constexpr Word kThreadFlags[] = {{"swapped", darwin::TH_FLAGS_SWAPPED},
                                 {"idle", darwin::TH_FLAGS_IDLE}};

void readTime(TableReader &reader, std::string_view key, Figure &figure, bool &isGiven) {
  if (const Field field = reader.find(key)) {
    const ReadFigure read = field.figure(Unit::kTime);
    figure = read.figure;
    isGiven = read.hasGrowth;
  }
}

// A number that no two threads may share.
void readOwnNumber(TableReader &reader, std::string_view key, uint64_t &target, int64_t copies) {
  const Field field = reader.find(key);
  if (!field) return;
  target = field.address();
  if (target != 0 && copies > 1) {
    field.fail("several threads would have the same " + std::string(key), "one thread, or 0");
  }
}

int32_t readAsleep(const Field &field) {
  const auto asleep = std::chrono::duration_cast<std::chrono::seconds>(field.time());
  return static_cast<int32_t>(asleep.count());
}

std::vector<uint64_t> readStack(const Field &field) {
  std::vector<uint64_t> stack;
  for (const Field &frame : field.elementsUpTo(kMostFrames, "addresses")) {
    stack.push_back(frame.address());
  }
  return stack;
}

Registers readRegisters(const Field &field, std::optional<bool> isProcess64Bit) {
  TableReader reader(field);
  const bool is64Bit = isProcess64Bit ? *isProcess64Bit : !reader.find("r");
  const auto word = [is64Bit](const Field &value) -> uint64_t {
    return is64Bit ? value.address() : value.number<uint32_t>();
  };
  Registers registers;
  reader.read("pc", registers.programCounter, word);
  reader.read("sp", registers.stackPointer, word);
  reader.read("lr", registers.link, word);
  if (is64Bit) reader.read("fp", registers.framePointer, word);
  reader.number("cpsr", registers.status);
  if (const Field general = reader.find(is64Bit ? "x" : "r")) {
    const size_t most = is64Bit ? kGeneralRegisters64 : kGeneralRegisters32;
    for (const Field &value : general.elementsUpTo(most, "registers")) {
      registers.general.push_back(word(value));
    }
  }
  reader.finish();
  return registers;
}

ThreadEntry readThread(const Field &field, const ThreadDefaults &defaults) {
  TableReader reader(field);
  ThreadEntry entry = plainThreads(defaults, 1, field.place());
  Thread &thread = entry.item;
  reader.number("copies", entry.copies, 1, kMostThreadsOfOne);
  readText(reader.find("name"), kLongestThreadName, thread, entry.patterns, &Thread::name);
  if (const Field state = reader.find("state")) {
    thread.state =
        static_cast<int32_t>(state.oneOfOrNumber(kStates, std::numeric_limits<int32_t>::max()));
  }
  reader.figure("share", thread.share, Unit::kShare);
  entry.given = readTimes(reader, thread.userTime, thread.systemTime);
  reader.number("priority", thread.priority, 0, kLargestPriority);
  thread.currentPriority = thread.priority;
  reader.number("current-priority", thread.currentPriority, 0, kLargestPriority);
  reader.number("largest-priority", thread.largestPriority, 0, kLargestPriority);
  reader.oneOf("policy", thread.policy, kPolicies);
  reader.severalOf("flags", thread.flags, kThreadFlags);
  reader.read("asleep", thread.sleepTime, readAsleep);
  readOwnNumber(reader, "handle", thread.handle, entry.copies);
  readOwnNumber(reader, "id", thread.id, entry.copies);
  reader.read("wait-event", thread.waitEvent, &Field::address);
  reader.read("continuation", thread.continuation, &Field::address);
  reader.read("kernel-stack", thread.kernelStack, readStack);
  reader.read("user-stack", thread.userStack, readStack);
  if (const Field registers = reader.find("registers")) {
    thread.registers = readRegisters(registers, defaults.is64Bit);
  }
  reader.finish();
  return entry;
}

void checkNumbers(const std::vector<ThreadEntry> &entries, uint64_t Thread::*number,
                  std::string_view called) {
  std::unordered_set<uint64_t> seen;
  for (const ThreadEntry &entry : entries) {
    const uint64_t own = entry.item.*number;
    if (own == 0 || seen.insert(own).second) continue;
    failAt(entry.place,
           "another thread has the " + std::string(called) + " " + std::to_string(own) + " already",
           "one of its own");
  }
}

size_t bytesBeyond(const Thread &thread) {
  const size_t words =
      thread.registers.general.size() + thread.kernelStack.size() + thread.userStack.size();
  return textBytes(thread.name) + words * sizeof(uint64_t);
}

}  // namespace

GivenGrowth readTimes(TableReader &reader, Figure &user, Figure &system) {
  GivenGrowth given;
  readTime(reader, "user-time", user, given.user);
  readTime(reader, "system-time", system, given.system);
  return given;
}

void growTimes(uint64_t share, GivenGrowth given, Figure &user, Figure &system) {
  const Wide growth = Wide{share} * kGrowthPerShare;
  if (!given.user) user.growth = saturate<int64_t>(growth * 4 / 5);
  if (!given.system) system.growth = saturate<int64_t>(growth / 5);
}

ThreadEntry plainThreads(const ThreadDefaults &defaults, int64_t copies, Place place) {
  ThreadEntry entry;
  entry.item.priority = entry.item.currentPriority = defaults.priority;
  entry.item.policy = defaults.policy;
  entry.copies = copies;
  entry.place = std::move(place);
  return entry;
}

void readThreads(const Field &field, const ThreadDefaults &defaults,
                 const std::function<void(ThreadEntry)> &add) {
  if (field.isArray()) {
    for (const Field &element : field.elements()) add(readThread(element, defaults));
    return;
  }
  const int64_t *number = field.as<int64_t>();
  if (number == nullptr || *number < 0 || *number > kMostThreadsOfOne) {
    field.fail("a number from 0 to 4096, or an array of tables");
  }
  add(plainThreads(defaults, *number, field.place()));
}

void addThreads(Loading &loading, uint64_t times, ThreadEntry entry, Items<ThreadEntry> &threads) {
  const size_t copies = static_cast<size_t>(entry.copies);
  loading.take(Limit::kThreads, copies, times, entry.place);
  loading.take(Limit::kBytes, copies * bytesBeyond(entry.item), times, entry.place);
  threads.items.insert(threads.items.end(), copies, entry.item);
  threads.entryOf.insert(threads.entryOf.end(), copies, threads.entries.size());
  threads.entries.push_back(std::move(entry));
}

void checkThreadNumbers(const std::vector<ThreadEntry> &entries) {
  checkNumbers(entries, &Thread::handle, "handle");
  checkNumbers(entries, &Thread::id, "ID");
}

}  // namespace host::simulator
