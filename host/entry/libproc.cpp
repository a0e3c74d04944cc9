// Process information: which flavours there are, what buffer each needs, and in which order the
// kernel refuses. What a process looks like is the machine's to say.
#include "host/darwin/libproc.h"

#include <algorithm>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "host/darwin/syscalls.h"
#include "host/entry/answer.h"
#include "host/entry/kernel.h"
#include "host/machine/descriptors.h"
#include "host/machine/kernel.h"
#include "host/machine/processes.h"
#include "host/machine/tasks.h"

namespace host {

namespace {

using darwin::DARWIN_EBADF;
using darwin::DARWIN_EINVAL;
using darwin::DARWIN_ENOMEM;
using darwin::DARWIN_ENOSPC;
using darwin::DARWIN_ENOTSOCK;
using darwin::DARWIN_ENOTSUP;
using darwin::DARWIN_EOPNOTSUPP;
using darwin::DARWIN_EOVERFLOW;
using darwin::DARWIN_EPERM;

// What the kernel adds to a size estimate, for what may start before the list is fetched.
constexpr size_t kSpareEntries = 20;

constexpr int32_t kLongestPathBuffer = 4 * darwin::DARWIN_MAXPATHLEN;

// The first kernels that do so.
constexpr KernelFamily kTellsCoalitions = 2782;
constexpr KernelFamily kTellsBothCoalitions = 3247;
constexpr KernelFamily kTellsEvents = 3247;
constexpr KernelFamily kHasOneWrongTypeError = 7195;
constexpr KernelFamily kHidesItsRegions = 10002;

struct Buffer {
  void *data;
  int32_t size;

  template <typename T>
  size_t room() const {
    return static_cast<size_t>(size) / sizeof(T);
  }
};

template <typename T>
constexpr int32_t sizeOf() {
  return static_cast<int32_t>(sizeof(T));
}

template <typename T>
int bytesOf(size_t entries) {
  return static_cast<int>(entries * sizeof(T));
}

template <typename T>
Errno giveStructure(const T &structure, const Buffer &buffer, int &result) {
  const Errno error = copyOut(&structure, sizeof(T), buffer.data);
  if (error == kAnswered) result = sizeOf<T>();
  return error;
}

// As much of the list as fits.
template <typename T>
Errno giveList(const std::vector<T> &list, const Buffer &buffer, int &result) {
  const size_t entries = std::min(list.size(), buffer.room<T>());
  const Errno error = copyOut(list.data(), entries * sizeof(T), buffer.data);
  if (error == kAnswered) result = bytesOf<T>(entries);
  return error;
}

// One question about a process, with what it needs besides the pid, whose answer is one structure.
template <typename T, typename... Needs, typename Family>
Errno askStructure(Family &family, Errno (Family::*question)(pid_t, Needs..., T &), pid_t pid,
                   Needs... needs, const Buffer &buffer, int &result) {
  T answer{};
  const Errno error = (family.*question)(pid, needs..., answer);
  return error == kAnswered ? giveStructure(answer, buffer, result) : error;
}

template <typename T>
Errno askList(Errno (ProcessQuestions::*question)(pid_t, std::vector<T> &), pid_t pid,
              const Buffer &buffer, int &result) {
  std::vector<T> list;
  const Errno error = (processes().*question)(pid, list);
  return error == kAnswered ? giveList(list, buffer, result) : error;
}

bool isOfKind(const darwin::proc_bsdinfo &process, uint32_t type, uint32_t value) {
  switch (type) {
    case darwin::PROC_PGRP_ONLY:
      return process.pbi_pgid == value;
    case darwin::PROC_TTY_ONLY:
      return (process.pbi_flags & darwin::PROC_FLAG_CONTROLT) != 0 && process.e_tdev == value;
    case darwin::PROC_UID_ONLY:
      return process.pbi_uid == value;
    case darwin::PROC_RUID_ONLY:
      return process.pbi_ruid == value;
    case darwin::PROC_PPID_ONLY:
      return process.pbi_ppid == value;
    default:
      return false;
  }
}

Errno listPids(uint32_t type, uint32_t value, const Buffer &buffer, int &result) {
  if (buffer.data != nullptr) {
    if (buffer.size < sizeOf<int32_t>()) return DARWIN_ENOMEM;
    if (type < darwin::PROC_ALL_PIDS || type > darwin::PROC_PPID_ONLY) return DARWIN_EINVAL;
  }

  // Whoever asks for the size is about to look at all of them.
  if (buffer.data == nullptr && type == darwin::PROC_ALL_PIDS) kernel().beginSample();

  std::vector<int32_t> pids;
  const Errno error = processes().processIDs(pids);
  if (error != kAnswered) return error;

  if (buffer.data == nullptr) {
    result = bytesOf<int32_t>(pids.size() + kSpareEntries);
    return kAnswered;
  }
  if (type != darwin::PROC_ALL_PIDS) {
    std::erase_if(pids, [type, value](int32_t pid) {
      darwin::proc_bsdinfo process{};
      return processes().bsdInfo(pid, true, process) != kAnswered ||
             !isOfKind(process, type, value);
    });
  }
  return giveList(pids, buffer, result);
}

Errno pidListDescriptors(pid_t pid, uint64_t, const Buffer &buffer, int &result) {
  if (buffer.data == nullptr) {
    size_t slots = 0;
    const Errno error = descriptors().descriptorTableSize(pid, slots);
    if (error == kAnswered) result = bytesOf<darwin::proc_fdinfo>(slots + kSpareEntries);
    return error;
  }
  std::vector<darwin::proc_fdinfo> list;
  const Errno error = descriptors().descriptors(pid, buffer.room<darwin::proc_fdinfo>(), list);
  return error == kAnswered ? giveList(list, buffer, result) : error;
}

Errno pidTaskAllInfo(pid_t pid, uint64_t, const Buffer &buffer, int &result) {
  return askStructure(processes(), &ProcessQuestions::taskAllInfo, pid, buffer, result);
}

Errno pidBsdInfo(pid_t pid, uint64_t arg, const Buffer &buffer, int &result) {
  const bool zombies = arg == 1;
  return askStructure<darwin::proc_bsdinfo, bool>(processes(), &ProcessQuestions::bsdInfo, pid,
                                                  zombies, buffer, result);
}

Errno pidTaskInfo(pid_t pid, uint64_t, const Buffer &buffer, int &result) {
  darwin::proc_taskallinfo info{};
  const Errno error = processes().taskAllInfo(pid, info);
  return error == kAnswered ? giveStructure(info.ptinfo, buffer, result) : error;
}

Errno pidThreadInfo(pid_t pid, uint64_t handle, const Buffer &buffer, int &result) {
  return askStructure<darwin::proc_threadinfo, uint64_t>(processes(), &ProcessQuestions::threadInfo,
                                                         pid, handle, buffer, result);
}

Errno pidThreadInfoByID(pid_t pid, uint64_t id, const Buffer &buffer, int &result) {
  return askStructure<darwin::proc_threadinfo, uint64_t>(
      processes(), &ProcessQuestions::threadInfoByID, pid, id, buffer, result);
}

Errno pidListThreads(pid_t pid, uint64_t, const Buffer &buffer, int &result) {
  return askList(&ProcessQuestions::threadHandles, pid, buffer, result);
}

Errno pidListThreadIDs(pid_t pid, uint64_t, const Buffer &buffer, int &result) {
  return askList(&ProcessQuestions::threadIDs, pid, buffer, result);
}

Errno pidRegion(pid_t pid, uint64_t address, const Buffer &buffer, int &result) {
  darwin::proc_regionwithpathinfo info{};
  const Errno error = tasks().region(pid, address, info);
  return error == kAnswered ? giveStructure(info.prp_prinfo, buffer, result) : error;
}

Errno pidRegionPath(pid_t pid, uint64_t address, const Buffer &buffer, int &result) {
  return askStructure<darwin::proc_regionwithpathinfo, uint64_t>(tasks(), &TaskQuestions::region,
                                                                 pid, address, buffer, result);
}

// The system call answers 0 here, not the length.
Errno pidPath(pid_t pid, uint64_t, const Buffer &buffer, int &result) {
  if (buffer.size > kLongestPathBuffer) return DARWIN_EOVERFLOW;
  std::string path;
  Errno error = processes().executablePath(pid, path);
  if (error != kAnswered) return error;
  if (path.size() >= static_cast<size_t>(buffer.size)) return DARWIN_ENOSPC;
  error = copyOut(path.c_str(), path.size() + 1, buffer.data);
  if (error == kAnswered) result = 0;
  return error;
}

Errno pidWorkQueue(pid_t pid, uint64_t, const Buffer &buffer, int &result) {
  return askStructure(processes(), &ProcessQuestions::workQueue, pid, buffer, result);
}

// Answer of PROC_PIDT_SHORTBSDINFO, which the program itself never asks for.
struct ShortBsdInfo {
  uint32_t pid;
  uint32_t parent;
  uint32_t group;
  uint32_t status;
  char command[darwin::DARWIN_MAXCOMLEN];
  uint32_t flags;
  uint32_t uid;
  uint32_t gid;
  uint32_t realUid;
  uint32_t realGid;
  uint32_t savedUid;
  uint32_t savedGid;
  uint32_t reserved;
};
static_assert(sizeof(ShortBsdInfo) == 64);

Errno pidShortBsdInfo(pid_t pid, uint64_t, const Buffer &buffer, int &result) {
  darwin::proc_bsdinfo info{};
  const Errno error = processes().bsdInfo(pid, false, info);
  if (error != kAnswered) return error;
  ShortBsdInfo brief{};
  brief.pid = info.pbi_pid;
  brief.parent = info.pbi_ppid;
  brief.group = info.pbi_pgid;
  brief.status = info.pbi_status;
  std::copy(std::begin(info.pbi_comm), std::end(info.pbi_comm), brief.command);
  brief.flags = info.pbi_flags;
  brief.uid = info.pbi_uid;
  brief.gid = info.pbi_gid;
  brief.realUid = info.pbi_ruid;
  brief.realGid = info.pbi_rgid;
  brief.savedUid = info.pbi_svuid;
  brief.savedGid = info.pbi_svgid;
  return giveStructure(brief, buffer, result);
}

Errno pidCoalition(pid_t pid, uint64_t, const Buffer &buffer, int &result) {
  return askStructure(processes(), &ProcessQuestions::coalition, pid, buffer, result);
}

// The older form of darwin::proc_pidcoalitioninfo.
struct ShortCoalitionInfo {
  uint64_t coalition;
  uint64_t reserved[3];
};
static_assert(sizeof(ShortCoalitionInfo) == 32);

Errno pidShortCoalition(pid_t pid, uint64_t, const Buffer &buffer, int &result) {
  darwin::proc_pidcoalitioninfo info{};
  const Errno error = processes().coalition(pid, info);
  if (error != kAnswered) return error;
  const ShortCoalitionInfo brief{info.coalition_id[darwin::COALITION_TYPE_RESOURCE], {}};
  return giveStructure(brief, buffer, result);
}

struct PidFlavour {
  uint32_t number;
  int32_t smallestBuffer;
  Errno (*answer)(pid_t pid, uint64_t arg, const Buffer &buffer, int &result);
  KernelFamily since = 0;
};

// Flavours that are not here are answered like ones that the kernel does not know. Of those that
// kernels have, that concerns short region paths (22, 23), working directories (9, 10), fileports
// (14), identifiers (17 to 19), exit notes (21, 24, 25), user pointers and dynamic queues (26, 27)
// and fault counts (29): no machine is asked for them.
constexpr PidFlavour kPidFlavours[] = {
    {darwin::PROC_PIDLISTFDS, sizeOf<darwin::proc_fdinfo>(), pidListDescriptors},
    {darwin::PROC_PIDTASKALLINFO, sizeOf<darwin::proc_taskallinfo>(), pidTaskAllInfo},
    {darwin::PROC_PIDTBSDINFO, sizeOf<darwin::proc_bsdinfo>(), pidBsdInfo},
    {darwin::PROC_PIDTASKINFO, sizeOf<darwin::proc_taskinfo>(), pidTaskInfo},
    {darwin::PROC_PIDTHREADINFO, sizeOf<darwin::proc_threadinfo>(), pidThreadInfo},
    {darwin::PROC_PIDLISTTHREADS, sizeOf<uint64_t>(), pidListThreads},
    {darwin::PROC_PIDREGIONINFO, sizeOf<darwin::proc_regioninfo>(), pidRegion},
    {darwin::PROC_PIDREGIONPATHINFO, sizeOf<darwin::proc_regionwithpathinfo>(), pidRegionPath},
    {darwin::PROC_PIDPATHINFO, darwin::DARWIN_MAXPATHLEN, pidPath},
    {darwin::PROC_PIDWORKQUEUEINFO, sizeOf<darwin::proc_workqueueinfo>(), pidWorkQueue},
    {darwin::PROC_PIDT_SHORTBSDINFO, sizeOf<ShortBsdInfo>(), pidShortBsdInfo},
    {darwin::PROC_PIDTHREADID64INFO, sizeOf<darwin::proc_threadinfo>(), pidThreadInfoByID},
    {darwin::PROC_PIDCOALITIONINFO, sizeOf<darwin::proc_pidcoalitioninfo>(), pidCoalition,
     kTellsBothCoalitions},
    {darwin::PROC_PIDCOALITIONINFO, sizeOf<ShortCoalitionInfo>(), pidShortCoalition,
     kTellsCoalitions},
    {darwin::PROC_PIDLISTTHREADIDS, sizeOf<uint64_t>(), pidListThreadIDs},
};

bool isSince(KernelFamily first) {
  return first == 0 || kernel().kernelFamily() >= first;
}

// The first row for that number which the kernel has; null when there is none.
template <typename Flavour, size_t count>
const Flavour *findFlavour(const Flavour (&table)[count], uint32_t number) {
  const Flavour *found = std::find_if(
      std::begin(table), std::end(table),
      [number](const Flavour &row) { return row.number == number && isSince(row.since); });
  return found == std::end(table) ? nullptr : found;
}

// The last three tell a region's path in other forms.
constexpr uint32_t kRegionFlavours[] = {darwin::PROC_PIDREGIONINFO, darwin::PROC_PIDREGIONPATHINFO,
                                        22, 23, 31};

bool asksForRegion(uint32_t flavour) {
  return std::find(std::begin(kRegionFlavours), std::end(kRegionFlavours), flavour) !=
         std::end(kRegionFlavours);
}

Errno pidInfo(pid_t pid, uint32_t number, uint64_t arg, const Buffer &buffer, int &result) {
  // The kernel itself is told apart before anything else is looked at.
  if (pid == 0 && number == darwin::PROC_PIDWORKQUEUEINFO) return DARWIN_EINVAL;
  if (pid == 0 && asksForRegion(number) && isSince(kHidesItsRegions)) return DARWIN_EPERM;
  const PidFlavour *flavour = findFlavour(kPidFlavours, number);
  if (flavour == nullptr) return DARWIN_EINVAL;
  // Without a buffer this one is a question for the size.
  const bool asksForSize = number == darwin::PROC_PIDLISTFDS && buffer.data == nullptr;
  if (!asksForSize && buffer.size < flavour->smallestBuffer) return DARWIN_ENOMEM;
  return flavour->answer(pid, arg, buffer, result);
}

// Tells "not open" from "not a file", which older kernels keep apart.
Errno askVnode(pid_t pid, int fd, darwin::vnode_fdinfowithpath &info) {
  const Errno error = descriptors().vnodeDescriptor(pid, fd, info);
  if (error != DARWIN_EBADF || isSince(kHasOneWrongTypeError)) return error;
  uint32_t type = darwin::PROX_FDTYPE_VNODE;
  const bool isOther =
      descriptors().descriptorType(pid, fd, type) == kAnswered && type != darwin::PROX_FDTYPE_VNODE;
  return isOther ? DARWIN_ENOTSUP : error;
}

Errno fdVnode(pid_t pid, int fd, const Buffer &buffer, int &result) {
  darwin::vnode_fdinfowithpath info{};
  const Errno error = askVnode(pid, fd, info);
  if (error != kAnswered) return error;
  return giveStructure(darwin::vnode_fdinfo{info.pfi, info.pvip.vip_vi}, buffer, result);
}

Errno fdVnodePath(pid_t pid, int fd, const Buffer &buffer, int &result) {
  darwin::vnode_fdinfowithpath info{};
  const Errno error = askVnode(pid, fd, info);
  return error == kAnswered ? giveStructure(info, buffer, result) : error;
}

Errno fdSocket(pid_t pid, int fd, const Buffer &buffer, int &result) {
  const Errno error = askStructure<darwin::socket_fdinfo, int>(
      descriptors(), &DescriptorQuestions::socketDescriptor, pid, fd, buffer, result);
  return error == DARWIN_ENOTSOCK && !isSince(kHasOneWrongTypeError) ? DARWIN_EOPNOTSUPP : error;
}

Errno fdSemaphore(pid_t pid, int fd, const Buffer &buffer, int &result) {
  return askStructure<darwin::psem_fdinfo, int>(
      descriptors(), &DescriptorQuestions::semaphoreDescriptor, pid, fd, buffer, result);
}

Errno fdSharedMemory(pid_t pid, int fd, const Buffer &buffer, int &result) {
  return askStructure<darwin::pshm_fdinfo, int>(
      descriptors(), &DescriptorQuestions::sharedMemoryDescriptor, pid, fd, buffer, result);
}

Errno fdPipe(pid_t pid, int fd, const Buffer &buffer, int &result) {
  return askStructure<darwin::pipe_fdinfo, int>(descriptors(), &DescriptorQuestions::pipeDescriptor,
                                                pid, fd, buffer, result);
}

Errno fdKqueue(pid_t pid, int fd, const Buffer &buffer, int &result) {
  return askStructure<darwin::kqueue_fdinfo, int>(
      descriptors(), &DescriptorQuestions::kqueueDescriptor, pid, fd, buffer, result);
}

// Answers how many events are registered, however few of them fitted.
Errno fdKqueueEvents(pid_t pid, int fd, const Buffer &buffer, int &result) {
  std::vector<darwin::kevent_extinfo> events;
  Errno error = descriptors().kqueueEvents(pid, fd, events);
  if (error != kAnswered) return error;
  int written = 0;
  error = giveList(events, buffer, written);
  if (error == kAnswered) result = static_cast<int>(events.size());
  return error;
}

Errno fdChannel(pid_t pid, int fd, const Buffer &buffer, int &result) {
  return askStructure<darwin::channel_fdinfo, int>(
      descriptors(), &DescriptorQuestions::channelDescriptor, pid, fd, buffer, result);
}

struct DescriptorFlavour {
  uint32_t number;
  int32_t smallestBuffer;
  Errno (*answer)(pid_t pid, int fd, const Buffer &buffer, int &result);
  KernelFamily since = 0;
};

constexpr DescriptorFlavour kDescriptorFlavours[] = {
    {darwin::PROC_PIDFDVNODEINFO, sizeOf<darwin::vnode_fdinfo>(), fdVnode},
    {darwin::PROC_PIDFDVNODEPATHINFO, sizeOf<darwin::vnode_fdinfowithpath>(), fdVnodePath},
    {darwin::PROC_PIDFDSOCKETINFO, sizeOf<darwin::socket_fdinfo>(), fdSocket},
    {darwin::PROC_PIDFDPSEMINFO, sizeOf<darwin::psem_fdinfo>(), fdSemaphore},
    {darwin::PROC_PIDFDPSHMINFO, sizeOf<darwin::pshm_fdinfo>(), fdSharedMemory},
    {darwin::PROC_PIDFDPIPEINFO, sizeOf<darwin::pipe_fdinfo>(), fdPipe},
    {darwin::PROC_PIDFDKQUEUEINFO, sizeOf<darwin::kqueue_fdinfo>(), fdKqueue},
    {darwin::PROC_PIDFDKQUEUE_EXTINFO, sizeOf<darwin::kevent_extinfo>(), fdKqueueEvents,
     kTellsEvents},
    {darwin::PROC_PIDFDCHANNELINFO, sizeOf<darwin::channel_fdinfo>(), fdChannel},
};

Errno pidFdInfo(pid_t pid, int fd, uint32_t number, const Buffer &buffer, int &result) {
  const DescriptorFlavour *flavour = findFlavour(kDescriptorFlavours, number);
  if (flavour == nullptr) return DARWIN_EINVAL;
  if (buffer.size < flavour->smallestBuffer) return DARWIN_ENOMEM;
  return flavour->answer(pid, fd, buffer, result);
}

struct UsageVersion {
  size_t size;
  KernelFamily since = 0;
};

// By number: each is a prefix of the last.
constexpr UsageVersion kUsageVersions[] = {
    {sizeof(darwin::rusage_info_v0)},       {sizeof(darwin::rusage_info_v1)},
    {sizeof(darwin::rusage_info_v2)},       {sizeof(darwin::rusage_info_v3), 2782},
    {sizeof(darwin::rusage_info_v4), 4570},
};

// The process is looked up before the version is looked at.
Errno pidRusage(pid_t pid, uint32_t version, void *buffer, int &result) {
  darwin::rusage_info_v4 usage{};
  Errno error = processes().resourceUsage(pid, usage);
  if (error != kAnswered) return error;
  if (version >= std::size(kUsageVersions) || !isSince(kUsageVersions[version].since)) {
    return DARWIN_EINVAL;
  }
  error = copyOut(&usage, kUsageVersions[version].size, buffer);
  if (error == kAnswered) result = 0;
  return error;
}

// The library's form of the first three calls: a failure is 0.
int bytesOrZero(int32_t call, int32_t pid, uint32_t flavor, uint64_t arg, void *buffer,
                int32_t size) {
  int result = 0;
  const Errno error = procInfo(call, pid, flavor, arg, buffer, size, result);
  return libraryAnswer(error, result, 0);
}

}  // namespace

Errno procInfo(int32_t call, int32_t pid, uint32_t flavor, uint64_t arg, void *buffer, int32_t size,
               int &result) noexcept {
  return guarded([&]() -> Errno {
    const Buffer out{buffer, size};
    switch (call) {
      case darwin::PROC_INFO_CALL_LISTPIDS:
        return listPids(static_cast<uint32_t>(pid), flavor, out, result);
      case darwin::PROC_INFO_CALL_PIDINFO:
        return pidInfo(pid, flavor, arg, out, result);
      case darwin::PROC_INFO_CALL_PIDFDINFO:
        return pidFdInfo(pid, static_cast<int>(arg), flavor, out, result);
      case darwin::PROC_INFO_CALL_PIDRUSAGE:
        return pidRusage(pid, flavor, buffer, result);
      default:
        return DARWIN_EINVAL;
    }
  });
}

}  // namespace host

int darwin::proc_listpids(uint32_t type, uint32_t typeinfo, void *buffer, int buffersize) {
  return host::bytesOrZero(PROC_INFO_CALL_LISTPIDS, static_cast<int32_t>(type), typeinfo, 0, buffer,
                           buffersize);
}

int darwin::proc_pidinfo(int pid, int flavor, uint64_t arg, void *buffer, int buffersize) {
  return host::bytesOrZero(PROC_INFO_CALL_PIDINFO, pid, static_cast<uint32_t>(flavor), arg, buffer,
                           buffersize);
}

int darwin::proc_pidfdinfo(int pid, int fd, int flavor, void *buffer, int buffersize) {
  return host::bytesOrZero(PROC_INFO_CALL_PIDFDINFO, pid, static_cast<uint32_t>(flavor),
                           static_cast<uint64_t>(fd), buffer, buffersize);
}

int darwin::proc_pid_rusage(int pid, int flavor, rusage_info_t *buffer) {
  int result = 0;
  const host::Errno error = host::procInfo(PROC_INFO_CALL_PIDRUSAGE, pid,
                                           static_cast<uint32_t>(flavor), 0, buffer, 0, result);
  return host::libraryAnswer(error, result, -1);
}
