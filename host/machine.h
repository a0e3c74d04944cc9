// The questions that a machine answers on behalf of a Darwin kernel. The C entry points
// (host/entry/) check arguments and buffers as the kernel does and then ask here; an answer is in
// Darwin's own structures and units. Machines: the live Linux system (host/linux/), and one that
// supports nothing (host/none/).
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "darwin/errors.h"
#include "darwin/mach_host.h"
#include "darwin/memorystatus.h"
#include "darwin/proc_info.h"
#include "darwin/rusage.h"
#include "darwin/sysctl.h"

namespace host {

// A Darwin errno value; kAnswered (0) says that the output argument was filled. On any other value
// it was not touched.
using Errno = int;
inline constexpr Errno kAnswered = 0;

// What uname() reports. The texts are cut to the fields of the caller's libc.
struct KernelName {
  std::string system;
  std::string node;
  std::string release;
  std::string version;
  std::string hardware;
};

// What a process was started with.
struct ProcessArguments {
  std::string path;  // of the executable
  std::vector<std::string> arguments;
  std::vector<std::string> environment;
  bool is64Bit = true;
};

// Every question may be asked from any thread. The defaults answer "not supported"
// (DARWIN_ENOTSUP). A process question answers DARWIN_ESRCH for a process that is gone or a zombie,
// and DARWIN_EPERM where the caller may not look at it.
class Machine {
 public:
  Machine() = default;
  Machine(const Machine &) = delete;
  Machine &operator=(const Machine &) = delete;
  virtual ~Machine() = default;

  // The machine itself.
  virtual Errno kernelName(KernelName &name);
  // Whether the caller holds the privileged host port, as root does.
  virtual bool isPrivileged();
  // Whether the C library has an entry point that only some releases have, such as
  // "memorystatus_get_level".
  virtual bool hasEntryPoint(std::string_view name);
  // Effective user of the program; 0 is root. By default the one that it has on this system.
  virtual uint32_t callerUser();
  // The time of day in seconds since the epoch. By default that of this system.
  virtual int64_t timeOfDay();
  // The program begins to sample all processes. A machine with a stepped clock moves on.
  virtual void beginSample();

  // All processes, zombies included, newest first.
  virtual Errno processIDs(std::vector<int32_t> &pids);

  // One process.
  virtual Errno taskAllInfo(pid_t pid, darwin::proc_taskallinfo &info);
  // Answers for a zombie too when `zombies` is set.
  virtual Errno bsdInfo(pid_t pid, bool zombies, darwin::proc_bsdinfo &info);
  virtual Errno executablePath(pid_t pid, std::string &path);
  // DARWIN_ESRCH for a process without a work queue.
  virtual Errno workQueue(pid_t pid, darwin::proc_workqueueinfo &info);
  // Handles that name threads to threadInfo: the thread's user-space pointer on a device.
  virtual Errno threadHandles(pid_t pid, std::vector<uint64_t> &handles);
  virtual Errno threadInfo(pid_t pid, uint64_t handle, darwin::proc_threadinfo &info);
  // The same by system-wide thread ID.
  virtual Errno threadIDs(pid_t pid, std::vector<uint64_t> &ids);
  virtual Errno threadInfoByID(pid_t pid, uint64_t id, darwin::proc_threadinfo &info);
  virtual Errno coalition(pid_t pid, darwin::proc_pidcoalitioninfo &info);
  // Answers for a zombie too. `flavour` is a DARWIN_RUSAGE_INFO_V* number; older layouts are
  // prefixes of this one.
  virtual Errno resourceUsage(pid_t pid, darwin::rusage_info_v4 &usage);
  // 1 sandboxed, 0 not, negative when that can't be said.
  virtual int sandboxCheck(pid_t pid);
  virtual Errno codeSigningFlags(pid_t pid, uint32_t &flags);
  // Empty for a process without a signature.
  virtual Errno codeSignature(pid_t pid, std::vector<uint8_t> &blob);
  virtual Errno containerPath(pid_t pid, std::string &path);
  // PROC_APPSTATE_* of an application.
  virtual Errno applicationState(pid_t pid, int32_t &state);
  virtual Errno arguments(pid_t pid, ProcessArguments &arguments);
  // The region that contains `address`, or the next one above it; DARWIN_EINVAL past the last.
  virtual Errno region(pid_t pid, uint64_t address, darwin::proc_regionwithpathinfo &info);

  // Descriptors of one process, ascending. `limit` is how many the caller has room for: a machine
  // need not look further.
  virtual Errno descriptors(pid_t pid, size_t limit, std::vector<darwin::proc_fdinfo> &list);
  // How many slots the process's descriptor table has.
  virtual Errno descriptorTableSize(pid_t pid, size_t &slots);
  // PROX_FDTYPE_* of an open descriptor; DARWIN_EBADF for a number that is not open. Asked only to
  // tell the two apart after vnodeDescriptor answered DARWIN_EBADF; a machine that leaves it out is
  // taken to mean "not open".
  virtual Errno descriptorType(pid_t pid, int fd, uint32_t &type);
  // DARWIN_EBADF for a number that is not open or of another type; DARWIN_ENOTSOCK from
  // socketDescriptor for another type.
  virtual Errno vnodeDescriptor(pid_t pid, int fd, darwin::vnode_fdinfowithpath &info);
  virtual Errno socketDescriptor(pid_t pid, int fd, darwin::socket_fdinfo &info);
  virtual Errno semaphoreDescriptor(pid_t pid, int fd, darwin::psem_fdinfo &info);
  virtual Errno sharedMemoryDescriptor(pid_t pid, int fd, darwin::pshm_fdinfo &info);
  virtual Errno pipeDescriptor(pid_t pid, int fd, darwin::pipe_fdinfo &info);
  virtual Errno kqueueDescriptor(pid_t pid, int fd, darwin::kqueue_fdinfo &info);
  virtual Errno kqueueEvents(pid_t pid, int fd, std::vector<darwin::kevent_extinfo> &events);
  virtual Errno channelDescriptor(pid_t pid, int fd, darwin::channel_fdinfo &info);

  // Memory status (jetsam). Entries come lowest band first.
  virtual Errno memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &entries);
  // Percentage of memory still available.
  virtual Errno memoryStatusLevel(unsigned int &level);

  // Host figures.
  virtual Errno hostBasicInfo(darwin::host_basic_info &info);
  virtual Errno virtualMemory(darwin::vm_statistics64 &statistics);
  virtual Errno processorCount(unsigned int &count);
  virtual Errno processorLoad(unsigned int processor, darwin::processor_cpu_load_info &load);
  virtual Errno bootTime(darwin::timeval &time);
  virtual Errno loadAverage(darwin::loadavg &averages);
  virtual Errno swapUsage(darwin::xsw_usage &usage);
};

// The machine that the entry points ask. Chosen once, before main, from SONDEX_DEVICE: unset or
// empty is this Linux system, "none" the machine that supports nothing; another word ends the
// program with a message.
Machine &machine();

// Replaces the machine (null: back to the one chosen at start) and returns the one replaced, or
// null if it was that one. The caller keeps `replacement` alive. For tests, before other threads
// ask.
Machine *useMachine(Machine *replacement);

}  // namespace host
