#include "host/simulator/snapshot_answers.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "host/simulator/host_answers.h"
#include "host/simulator/process_answers.h"
#include "host/simulator/wide.h"
#include "host/units.h"

namespace host::simulator {

namespace {

constexpr uint32_t kExecute = 4;  // of a region's protection

SnapshotThread describeThread(const RunningProcess &process, const Thread &thread,
                              Nanoseconds now) {
  darwin::proc_threadinfo info{};
  fillThreadInfo(process, thread, now, info);
  SnapshotThread described;
  described.id = thread.id;
  described.name = thread.name;
  described.state = info.pth_run_state;
  described.isIdle = (thread.flags & darwin::TH_FLAGS_IDLE) != 0;
  described.basePriority = static_cast<int16_t>(thread.priority);
  described.priority = static_cast<int16_t>(thread.currentPriority);
  described.waitEvent = thread.waitEvent;
  described.continuation = thread.continuation;
  described.userTime = info.pth_user_time;
  described.systemTime = info.pth_system_time;
  described.kernelStack = thread.kernelStack;
  described.userStack = thread.userStack;
  return described;
}

std::vector<SnapshotImage> imagesOf(const Process &process) {
  std::vector<SnapshotImage> images;
  std::unordered_set<std::string_view> seen;
  for (const Region &region : process.regions) {
    const bool isCode = (region.protection & kExecute) != 0 && !region.path.empty();
    if (isCode && seen.insert(region.path).second) images.push_back({region.address, {}});
  }
  return images;
}

}  // namespace

Snapshot describeDevice(const Device &device, const MachineClock &clock, Nanoseconds now) {
  Snapshot snapshot;
  snapshot.timebaseNumerator = device.kernel.timebaseNumerator;
  snapshot.timebaseDenominator = device.kernel.timebaseDenominator;
  snapshot.sinceBoot = saturate<uint64_t>(Wide{device.clock.up.count()} + now.count());
  snapshot.sinceEpoch = saturate<uint64_t>(clock.sinceEpoch(now) / kNanosecondsPerMicrosecond);
  snapshot.kernelVersion = device.kernel.version;
  snapshot.pageSize = saturate<uint32_t>(device.kernel.pageSize);
  fillVirtualMemory(device.memory, now, snapshot.memory.emplace());
  return snapshot;
}

SnapshotTask describeTask(const RunningProcess &process, const MachineClock &clock, Nanoseconds now,
                          uint64_t pageSize) {
  const Process &from = process.description();
  const Nanoseconds own = process.ownTime(now);
  SnapshotTask task;
  task.pid = process.pid();
  task.name = from.longName.empty() ? from.name : from.longName;
  task.is64Bit = from.is64Bit;
  task.startSeconds =
      saturate<uint64_t>(clock.sinceEpoch(process.started()) / kNanosecondsPerSecond);
  task.residentSize = sizeOf(from.residentSize, own, pageSize);
  task.suspendCount = process.isStopped() ? 1 : 0;
  task.faults = saturate<uint32_t>(from.faults.at(own));
  task.pageIns = saturate<uint32_t>(from.pageIns.at(own));
  task.copyOnWriteFaults = saturate<uint32_t>(from.copyOnWriteFaults.at(own));
  Wide user = from.userTime.at(own);
  Wide system = from.systemTime.at(own);
  for (const Thread &thread : process.threads()) {
    task.threads.push_back(describeThread(process, thread, now));
    user -= task.threads.back().userTime;
    system -= task.threads.back().systemTime;
  }
  task.endedUserTime = saturate<uint64_t>(user);
  task.endedSystemTime = saturate<uint64_t>(system);
  task.images = imagesOf(from);
  task.donatingPids = from.donors;
  return task;
}

}  // namespace host::simulator
