#include "host/linux/linux_host.h"

#include "host/linux/clock.h"
#include "host/posix.h"

namespace host::linux_machine {

Errno LinuxHost::hostBasicInfo(darwin::host_basic_info &info) {
  const std::lock_guard lock(shared_.mutex);
  uint64_t memory = 0;
  darwin::host_basic_info read{};
  Errno error = figures_.memoryBytes(memory);
  if (error == kAnswered) error = processors_.basicInfo(read);
  if (error != kAnswered) return error;
  read.memory_size = saturate<uint32_t>(memory);
  read.max_mem = memory;
  info = read;
  return kAnswered;
}

Errno LinuxHost::virtualMemory(darwin::vm_statistics64 &statistics) {
  const std::lock_guard lock(shared_.mutex);
  return figures_.virtualMemory(statistics);
}

Errno LinuxHost::processorCount(unsigned int &count) {
  const std::lock_guard lock(shared_.mutex);
  return processors_.count(count);
}

Errno LinuxHost::processorLoad(unsigned int processor, darwin::processor_cpu_load_info &load) {
  const std::lock_guard lock(shared_.mutex);
  return processors_.load(processor, load);
}

Errno LinuxHost::bootTime(darwin::timeval &time) {
  WallTime boot = bootMoment();
  time.tv_sec = static_cast<int64_t>(boot.seconds);
  time.tv_usec = static_cast<int32_t>(boot.microseconds);
  return kAnswered;
}

Errno LinuxHost::loadAverage(darwin::loadavg &averages) {
  const std::lock_guard lock(shared_.mutex);
  // Who asks about the whole machine has done with its processes: none is held while nobody looks.
  shared_.present.release();
  return figures_.loadAverage(averages);
}

Errno LinuxHost::swapUsage(darwin::xsw_usage &usage) {
  const std::lock_guard lock(shared_.mutex);
  return figures_.swapUsage(usage);
}

Errno LinuxHost::memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &entries) {
  if (__real_geteuid() != 0) return darwin::DARWIN_EPERM;
  const std::lock_guard lock(shared_.mutex);
  std::vector<int32_t> pids;
  Errno error = shared_.list(pids);
  if (error == kAnswered) memoryStatus_.list(shared_.proc.get(), pids, shared_.known, entries);
  return error;
}

Errno LinuxHost::memoryStatusLevel(unsigned int &level) {
  const std::lock_guard lock(shared_.mutex);
  return figures_.memoryStatusLevel(level);
}

Errno LinuxHost::memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted,
                                uint32_t &reclaimed) {
  return pressure_.ask(waits, seconds, wanted, reclaimed);
}

}  // namespace host::linux_machine
