// Small simulated devices for tests: a device with a stepped clock that says 1,600,000,000 seconds
// since the epoch at its start, and processes with little in them.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/darwin/proc_info.h"
#include "host/simulator/device.h"
#include "host/simulator/simulated_machine.h"

namespace simulated_test {

using namespace std::chrono_literals;

using host::Errno;
using host::kAnswered;
using host::simulator::Descriptor;
using host::simulator::Device;
using host::simulator::Event;
using host::simulator::Figure;
using host::simulator::Nanoseconds;
using host::simulator::Process;
using host::simulator::SimulatedMachine;
using host::simulator::Thread;

inline constexpr int64_t kStart = 1'600'000'000;

// A resting thread.
inline Thread thread(std::string name = "") {
  Thread made;
  made.name = std::move(name);
  return made;
}

// A thread that runs, with a share of a processor in tenths of a percent.
inline Thread busyThread(uint64_t share) {
  Thread made;
  made.state = darwin::TH_STATE_RUNNING;
  made.share = share;
  return made;
}

// A process of root's with one resting thread, as old as the device is up.
inline Process process(int32_t pid, std::string name = "process") {
  Process made;
  made.pid = pid;
  made.parent = pid > 1 ? 1 : 0;
  made.path = "/usr/libexec/" + name;
  made.name = std::move(name);
  made.age = 86400s;
  made.threads.push_back(thread());
  return made;
}

inline Process zombie(int32_t pid, uint32_t exitStatus = 0) {
  Process made = process(pid, "zombie");
  made.status = darwin::SZOMB;
  made.exitStatus = exitStatus;
  return made;
}

template <typename Object>
Descriptor descriptor(int32_t number, Object object) {
  Descriptor made;
  made.number = number;
  made.object.emplace<Object>(std::move(object));
  return made;
}

// Of a device that says nothing else.
inline constexpr uint64_t kPage = 16384;

// Steps of a second, for one up for a day.
inline Device device(std::vector<Process> processes = {}) {
  Device made;
  made.clock.isStepped = true;
  made.clock.step = 1s;
  made.clock.start = kStart;
  made.clock.zone = "UTC";
  made.clock.up = 86400s;
  made.processes = std::move(processes);
  return made;
}

inline Event at(Nanoseconds time, host::simulator::Action action,
                std::optional<Nanoseconds> lasts = std::nullopt,
                std::optional<Nanoseconds> every = std::nullopt) {
  return {time, std::move(action), lasts, every};
}

inline std::vector<int32_t> pidsOf(SimulatedMachine &machine) {
  std::vector<int32_t> pids;
  return machine.processIDs(pids) == kAnswered ? pids : std::vector<int32_t>{-1};
}

// What a question answers in its last argument, and all of that 0 if it is refused.
inline darwin::proc_bsdinfo bsdOf(SimulatedMachine &machine, int32_t pid) {
  darwin::proc_bsdinfo info{};
  machine.bsdInfo(pid, true, info);
  return info;
}

inline darwin::proc_taskinfo taskOf(SimulatedMachine &machine, int32_t pid) {
  darwin::proc_taskallinfo info{};
  machine.taskAllInfo(pid, info);
  return info.ptinfo;
}

inline darwin::rusage_info_v4 usageOf(SimulatedMachine &machine, int32_t pid) {
  darwin::rusage_info_v4 usage{};
  machine.resourceUsage(pid, usage);
  return usage;
}

inline std::vector<uint64_t> threadIDsOf(SimulatedMachine &machine, int32_t pid) {
  std::vector<uint64_t> ids;
  machine.threadIDs(pid, ids);
  return ids;
}

// Of the thread at a place in the list; all 0 where there is none.
inline darwin::proc_threadinfo threadOf(SimulatedMachine &machine, int32_t pid, size_t place = 0) {
  darwin::proc_threadinfo info{};
  const std::vector<uint64_t> ids = threadIDsOf(machine, pid);
  if (place < ids.size()) machine.threadInfoByID(pid, ids[place], info);
  return info;
}

inline std::vector<int32_t> descriptorNumbersOf(SimulatedMachine &machine, int32_t pid) {
  std::vector<darwin::proc_fdinfo> list;
  machine.descriptors(pid, SIZE_MAX, list);
  std::vector<int32_t> numbers;
  for (const darwin::proc_fdinfo &entry : list) numbers.push_back(entry.proc_fd);
  return numbers;
}

}  // namespace simulated_test
