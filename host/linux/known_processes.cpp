#include "host/linux/known_processes.h"

#include <linux/kcmp.h>
#include <sys/syscall.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "host/posix.h"

namespace host::linux_machine {

void KnownProcess::forgetAnswers() {
  status.reset();
  ioResult.reset();
  hasOwnUsers.reset();
  descriptors.reset();
  details.reset();
  hasThreads = false;
}

bool hasRunSince(const std::optional<SchedulerRecord> &before,
                 const std::optional<SchedulerRecord> &now, const ProcessStat &stat) {
  if (stat.state == 'R' || !before || !now) return true;
  // A kernel that keeps no such records writes zeros.
  return now->turns == 0 || *before != *now;
}

KnownProcess &KnownProcesses::find(int32_t pid, uint64_t startTicks) {
  auto [entry, isNew] = processes_.try_emplace(pid);
  KnownProcess &process = entry->second;
  if (isNew || process.startTicks != startTicks) {
    process = KnownProcess{};
    process.startTicks = startTicks;
  }
  return process;
}

KnownProcess *KnownProcesses::look(int32_t pid) {
  auto found = processes_.find(pid);
  return found != processes_.end() ? &found->second : nullptr;
}

void KnownProcesses::keepOnly(const std::vector<int32_t> &pids) {
  std::erase_if(processes_, [&pids](const auto &entry) {
    return !std::binary_search(pids.begin(), pids.end(), entry.first, std::greater<>());
  });
  std::erase_if(sharers_, [&pids](int32_t pid) {
    return !std::binary_search(pids.begin(), pids.end(), pid, std::greater<>());
  });
}

TableSharing compareDescriptorTables(int32_t pid, int32_t other) {
  switch (__real_syscall(SYS_kcmp, pid, other, KCMP_FILES, 0UL, 0UL)) {
    case -1:
      return TableSharing::unknown;
    case 0:
      return TableSharing::shared;
    default:
      return TableSharing::none;
  }
}

bool KnownProcesses::takeLife(int32_t pid) {
  KnownProcess *process = look(pid);
  return process != nullptr && std::exchange(process->isAlive, false);
}

std::unordered_map<uint64_t, int32_t> KnownProcesses::socketOwners() const {
  std::unordered_map<uint64_t, int32_t> owners;
  for (const auto &[pid, process] : processes_) {
    for (const uint64_t inode : process.sockets) {
      const auto [entry, isFirst] = owners.try_emplace(inode, pid);
      if (isFirst) continue;
      const uint64_t otherStart = processes_.at(entry->second).startTicks;
      const bool isNewer =
          process.startTicks != otherStart ? process.startTicks > otherStart : pid > entry->second;
      if (isNewer) entry->second = pid;
    }
  }
  return owners;
}

bool KnownProcesses::hasOwnDescriptors(KnownProcess &process, const ProcessStat &stat) {
  // Kernel threads share one table, in which the kernel opens nothing.
  if (stat.isKernelThread()) return true;
  if (!process.sharing) {
    // Only a process's creation can make it share its parent's table.
    process.sharing =
        stat.parent > 0 ? compareDescriptorTables(stat.id, stat.parent) : TableSharing::none;
    if (process.sharing == TableSharing::shared) sharers_.insert(stat.parent);
  }
  return process.sharing == TableSharing::none && !sharers_.contains(stat.id);
}

}  // namespace host::linux_machine
