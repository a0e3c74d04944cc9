#include "host/linux/linux_host.h"

#include <string>

#include "host/darwin/errors.h"
#include "host/linux/clock.h"
#include "host/posix.h"

namespace host::linux_machine {

// The oom_score_adj of who has set none.
static constexpr int32_t kUsualScore = 0;

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
  if (error == kAnswered) {
    memoryStatus_.list(shared_.proc.get(), pids, shared_.survey, shared_.known, entries);
  }
  return error;
}

// There is no order among those of one band, and nothing that keeps user data.
Errno LinuxHost::setMemoryStatusPlace(pid_t pid, const MemoryStatusPlace &place) {
  const std::lock_guard lock(shared_.mutex);
  int process = -1;
  Errno error = shared_.present.read(pid);
  if (error == kAnswered) error = shared_.present.directory(process);
  if (error != kAnswered) return error;
  if (shared_.present.stat().isKernelThread()) return darwin::DARWIN_EPERM;
  if (shared_.present.stat().isZombie()) return darwin::DARWIN_EBUSY;
  const int32_t score = place.band ? scoreAdjustment(*place.band) : kUsualScore;
  const Errno written = writeFile(process, "oom_score_adj", std::to_string(score) + "\n");
  return written == darwin::DARWIN_ENOENT ? darwin::DARWIN_ESRCH : written;
}

Errno LinuxHost::openLimited(pid_t pid, FileHandle &process) {
  const std::lock_guard lock(shared_.mutex);
  int directory = -1;
  Errno error = shared_.readLive(pid);
  if (error == kAnswered) error = shared_.present.directory(directory);
  if (error != kAnswered) return error;
  process = openStartingPoint(directory, ".");
  return process.isOpen() ? kAnswered : darwin::DARWIN_ESRCH;
}

// Both without the lock: other questions need not wait until a limit is set.
Errno LinuxHost::memoryLimits(pid_t pid, darwin::memorystatus_memlimit_properties &limits) {
  FileHandle process;
  const Errno error = openLimited(pid, process);
  if (error != kAnswered) return error;
  return readOwnLimits(process.get(), pid, readCgroupMounts(), limits);
}

Errno LinuxHost::setMemoryLimits(pid_t pid,
                                 const darwin::memorystatus_memlimit_properties &limits) {
  FileHandle process;
  const Errno error = openLimited(pid, process);
  if (error != kAnswered) return error;
  return writeOwnLimits(process.get(), pid, readCgroupMounts(), limits);
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
