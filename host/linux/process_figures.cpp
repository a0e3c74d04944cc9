#include "host/linux/process_figures.h"

#include <algorithm>
#include <cstring>

#include "host/linux/procfs.h"
#include "host/linux/threads.h"

namespace host::linux_machine {

// Bits of the flags in stat.
static constexpr uint32_t kFlagExiting = 0x4;
static constexpr uint32_t kFlagForkedOnly = 0x40;  // no exec since the fork

uint32_t processState(const ProcessStat &stat) {
  switch (stat.state) {
    case 'R':
      return darwin::SRUN;
    case 'T':
    case 't':
      return darwin::SSTOP;
    case 'Z':
    case 'X':
    case 'x':
      return darwin::SZOMB;
    default:
      return darwin::SSLEEP;
  }
}

uint32_t terminalDevice(int32_t terminal) {
  if (terminal == 0) return UINT32_MAX;
  uint32_t number = static_cast<uint32_t>(terminal);
  uint32_t major = number >> 8 & 0xFFF;
  uint32_t minor = (number & 0xFF) | (number >> 12 & 0xFFF00);
  return major << 24 | minor;
}

static uint32_t processFlags(const ProcessStat &stat, const ProcessStatus &status, bool is64Bit) {
  uint32_t flags = 0;
  if (stat.isKernelThread()) flags |= darwin::PROC_FLAG_SYSTEM;
  if (status.tracer != 0) flags |= darwin::PROC_FLAG_TRACED;
  if ((stat.flags & kFlagExiting) != 0) flags |= darwin::PROC_FLAG_INEXIT;
  if (is64Bit) flags |= darwin::PROC_FLAG_LP64;
  if (stat.session == stat.id) flags |= darwin::PROC_FLAG_SLEADER;
  if (stat.terminal != 0) flags |= darwin::PROC_FLAG_CTTY | darwin::PROC_FLAG_CONTROLT;
  if ((stat.flags & kFlagForkedOnly) == 0) flags |= darwin::PROC_FLAG_EXEC;
  return flags;
}

// As much of `name` as fits, with its NUL; the rest of `field` is 0 already.
template <size_t size>
static void copyName(const char *name, char (&field)[size]) {
  std::memcpy(field, name, std::min(std::strlen(name), size - 1));
}

void fillBsdInfo(const ProcessStat &stat, const ProcessStatus &status, bool is64Bit,
                 const WallTime &boot, darwin::proc_bsdinfo &info) {
  info = {};
  info.pbi_flags = processFlags(stat, status, is64Bit);
  info.pbi_status = processState(stat);
  info.pbi_pid = static_cast<uint32_t>(stat.id);
  info.pbi_ppid = static_cast<uint32_t>(stat.parent);
  info.pbi_uid = status.user.effective;
  info.pbi_gid = status.group.effective;
  info.pbi_ruid = status.user.real;
  info.pbi_rgid = status.group.real;
  info.pbi_svuid = status.user.saved;
  info.pbi_svgid = status.group.saved;
  copyName(stat.name, info.pbi_comm);
  copyName(stat.name, info.pbi_name);
  info.pbi_nfiles = saturate<uint32_t>(status.descriptorSlots);
  info.pbi_pgid = static_cast<uint32_t>(stat.group);
  info.e_tdev = terminalDevice(stat.terminal);
  info.e_tpgid = static_cast<uint32_t>(stat.terminalGroup);
  info.pbi_nice = stat.nice;
  WallTime start = startMoment(boot, stat.startTicks);
  info.pbi_start_tvsec = start.seconds;
  info.pbi_start_tvusec = start.microseconds;
}

void fillTaskInfo(const ProcessStat &stat, const ProcessStatus &status,
                  const std::vector<ThreadReading> &threads, darwin::proc_taskinfo &info) {
  info = {};
  info.pti_total_user = ticksToNanoseconds(stat.userTicks);
  info.pti_total_system = ticksToNanoseconds(stat.systemTicks);
  if (stat.isZombie()) return;  // nothing else is left of its task
  info.pti_virtual_size = stat.virtualSize;
  info.pti_resident_size = status.residentKiB * 1024;
  for (const ThreadReading &thread : threads) {
    info.pti_threads_user += ticksToNanoseconds(thread.figures.userTicks);
    info.pti_threads_system += ticksToNanoseconds(thread.figures.systemTicks);
    if (thread.stat.state == 'R') info.pti_numrunning++;
  }
  info.pti_policy = threadPolicy(stat.policy);
  info.pti_faults = saturate<int32_t>(stat.minorFaults + stat.majorFaults);
  info.pti_pageins = saturate<int32_t>(stat.majorFaults);
  info.pti_csw = saturate<int32_t>(status.voluntarySwitches + status.involuntarySwitches);
  info.pti_threadnum = saturate<int32_t>(stat.threads);
  info.pti_priority = threadPriority(stat);
}

void fillResourceUsage(const ProcessStat &stat, const ProcessStatus &status, const ProcessIO &io,
                       darwin::rusage_info_v4 &usage) {
  usage = {};
  usage.ri_user_time = ticksToNanoseconds(stat.userTicks);
  usage.ri_system_time = ticksToNanoseconds(stat.systemTicks);
  usage.ri_pageins = stat.majorFaults;
  usage.ri_resident_size = status.residentKiB * 1024;
  usage.ri_phys_footprint = (status.anonymousKiB + status.swappedKiB) * 1024;
  usage.ri_proc_start_abstime = ticksToNanoseconds(stat.startTicks);
  usage.ri_diskio_bytesread = io.bytesRead;
  usage.ri_diskio_byteswritten = io.bytesWritten;
}

}  // namespace host::linux_machine
