#include "host/simulator/process_answers.h"

#include <algorithm>

#include "host/copy_text.h"
#include "host/darwin/proc_info.h"
#include "host/units.h"

namespace host::simulator {

namespace {

// The kernel's counters stay at the largest number that they hold.
int32_t count(const Figure &figure, Nanoseconds own) {
  return saturate<int32_t>(figure.at(own));
}

uint64_t sinceBoot(Nanoseconds moment, Nanoseconds up, const TimeBase &timeBase) {
  return timeBase.absolute(saturate<uint64_t>(Wide{up.count()} + moment.count()));
}

}  // namespace

uint64_t sizeOf(const Figure &figure, Nanoseconds own, uint64_t pageSize) {
  const uint64_t bytes = figure.at(own);
  return bytes - bytes % pageSize;
}

void fillBsdInfo(const RunningProcess &process, const MachineClock &clock,
                 darwin::proc_bsdinfo &info) {
  const Process &from = process.description();
  info = {};
  info.pbi_flags =
      (from.flags & ~darwin::PROC_FLAG_LP64) | (from.is64Bit ? darwin::PROC_FLAG_LP64 : 0);
  info.pbi_status = from.status;
  info.pbi_xstatus = from.exitStatus;
  info.pbi_pid = static_cast<uint32_t>(from.pid);
  info.pbi_ppid = static_cast<uint32_t>(from.parent);
  info.pbi_uid = from.user;
  info.pbi_gid = from.groupID;
  info.pbi_ruid = from.realUser;
  info.pbi_rgid = from.realGroupID;
  info.pbi_svuid = from.savedUser;
  info.pbi_svgid = from.savedGroupID;
  copyText(from.name, info.pbi_comm);
  copyText(from.longName.empty() ? from.name : from.longName, info.pbi_name);
  if (!process.isZombie()) info.pbi_nfiles = saturate<uint32_t>(process.descriptorSlots());
  info.pbi_pgid = static_cast<uint32_t>(from.group.value_or(from.pid));
  info.pbi_pjobc = from.jobs;
  info.e_tdev = from.terminal;
  info.e_tpgid = from.terminalGroup;
  info.pbi_nice = from.nice;
  const Wide start =
      std::max<Wide>(clock.sinceEpoch(process.started()) / kNanosecondsPerMicrosecond, 0);
  info.pbi_start_tvsec = saturate<uint64_t>(start / kMicrosecondsPerSecond);
  info.pbi_start_tvusec = static_cast<uint64_t>(start % kMicrosecondsPerSecond);
}

void fillTaskInfo(const RunningProcess &process, Nanoseconds now, const TimeBase &timeBase,
                  uint64_t pageSize, darwin::proc_taskinfo &info) {
  const Process &from = process.description();
  const Nanoseconds own = process.ownTime(now);
  info = {};
  info.pti_virtual_size = sizeOf(from.virtualSize, own, pageSize);
  info.pti_resident_size = sizeOf(from.residentSize, own, pageSize);
  info.pti_total_user = timeBase.absolute(from.userTime.at(own));
  info.pti_total_system = timeBase.absolute(from.systemTime.at(own));
  Wide user = 0;
  Wide system = 0;
  for (const Thread &thread : process.threads()) {
    user += thread.userTime.at(own);
    system += thread.systemTime.at(own);
    if (thread.state == darwin::TH_STATE_RUNNING && !process.isStopped()) ++info.pti_numrunning;
  }
  info.pti_threads_user = timeBase.absolute(saturate<uint64_t>(user));
  info.pti_threads_system = timeBase.absolute(saturate<uint64_t>(system));
  info.pti_policy = from.policy;
  info.pti_faults = count(from.faults, own);
  info.pti_pageins = count(from.pageIns, own);
  info.pti_cow_faults = count(from.copyOnWriteFaults, own);
  info.pti_messages_sent = count(from.messagesSent, own);
  info.pti_messages_received = count(from.messagesReceived, own);
  info.pti_syscalls_mach = count(from.machCalls, own);
  info.pti_syscalls_unix = count(from.unixCalls, own);
  info.pti_csw = count(from.contextSwitches, own);
  info.pti_threadnum = saturate<int32_t>(process.threads().size());
  info.pti_priority = from.priority;
}

void fillThreadInfo(const RunningProcess &process, const Thread &thread, Nanoseconds now,
                    darwin::proc_threadinfo &info) {
  const Nanoseconds own = process.ownTime(now);
  info = {};
  info.pth_user_time = thread.userTime.at(own);
  info.pth_system_time = thread.systemTime.at(own);
  info.pth_run_state = process.isStopped() ? darwin::TH_STATE_STOPPED : thread.state;
  info.pth_cpu_usage = process.shareOf(thread, now);
  info.pth_policy = thread.policy;
  info.pth_flags = thread.flags;
  info.pth_sleep_time = thread.sleepTime;
  info.pth_curpri = thread.currentPriority;
  info.pth_priority = thread.priority;
  info.pth_maxpriority = thread.largestPriority;
  copyText(thread.name, info.pth_name);
}

void fillResourceUsage(const RunningProcess &process, const ResourceUsage &more, Nanoseconds now,
                       const TimeBase &timeBase, Nanoseconds up, uint64_t pageSize,
                       darwin::rusage_info_v4 &usage) {
  const Process &from = process.description();
  const Nanoseconds own = process.ownTime(now);
  usage = {};
  usage.ri_user_time = timeBase.absolute(from.userTime.at(own));
  usage.ri_system_time = timeBase.absolute(from.systemTime.at(own));
  usage.ri_pkg_idle_wkups = more.idleWakeups.at(own);
  usage.ri_interrupt_wkups = more.interruptWakeups.at(own);
  usage.ri_pageins = from.pageIns.at(own);
  usage.ri_wired_size = sizeOf(from.wiredSize, own, pageSize);
  usage.ri_resident_size = sizeOf(from.residentSize, own, pageSize);
  usage.ri_phys_footprint = sizeOf(from.footprint, own, pageSize);
  usage.ri_proc_start_abstime = sinceBoot(process.started(), up, timeBase);
  if (process.isZombie()) usage.ri_proc_exit_abstime = sinceBoot(process.ended(), up, timeBase);
  usage.ri_diskio_bytesread = more.diskRead.at(own);
  usage.ri_diskio_byteswritten = more.diskWritten.at(own);
  usage.ri_billed_system_time = timeBase.absolute(more.billedSystemTime.at(own));
  usage.ri_serviced_system_time = timeBase.absolute(more.servicedSystemTime.at(own));
  usage.ri_logical_writes = more.logicalWrites.at(own);
  usage.ri_lifetime_max_phys_footprint = usage.ri_phys_footprint;
  usage.ri_instructions = more.instructions.at(own);
  usage.ri_cycles = more.cycles.at(own);
  usage.ri_billed_energy = more.billedEnergy.at(own);
  usage.ri_serviced_energy = more.servicedEnergy.at(own);
  usage.ri_interval_max_phys_footprint = usage.ri_phys_footprint;
}

void fillRegion(const RunningProcess &process, const Region &region, Nanoseconds now,
                uint64_t pageSize, darwin::proc_regionwithpathinfo &info) {
  const Nanoseconds own = process.ownTime(now);
  const auto pages = [&](const Figure &figure) {
    return saturate<uint32_t>(std::min(figure.at(own), region.size / pageSize));
  };
  info = {};
  darwin::proc_regioninfo &to = info.prp_prinfo;
  to.pri_protection = region.protection;
  to.pri_max_protection = region.largestProtection;
  to.pri_inheritance = region.inheritance;
  to.pri_flags = region.flags;
  to.pri_offset = region.offset;
  to.pri_behavior = region.behaviour;
  to.pri_user_wired_count = region.wiredCount;
  to.pri_user_tag = region.tag;
  to.pri_pages_resident = pages(region.resident);
  to.pri_pages_shared_now_private = pages(region.sharedNowPrivate);
  to.pri_pages_swapped_out = pages(region.swappedOut);
  to.pri_pages_dirtied = pages(region.dirty);
  to.pri_ref_count = region.references;
  to.pri_shadow_depth = region.shadowDepth;
  to.pri_share_mode = region.shareMode;
  to.pri_private_pages_resident = pages(region.privateResident);
  to.pri_shared_pages_resident = pages(region.sharedResident);
  to.pri_obj_id = region.object;
  to.pri_depth = region.depth;
  to.pri_address = region.address;
  to.pri_size = region.size;
  copyText(region.path, info.prp_vip.vip_path);
}

}  // namespace host::simulator
