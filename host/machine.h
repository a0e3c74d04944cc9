// The questions that a machine answers on behalf of a Darwin kernel. The C entry points
// (host/entry/) check arguments and buffers as the kernel does and then ask here; an answer is in
// Darwin's own structures and units. Machines: the live Linux system (host/linux/), a simulated
// device (host/simulator/), and one that supports nothing (host/none/).
#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "darwin/errors.h"
#include "darwin/mach_host.h"
#include "darwin/memorystatus.h"
#include "darwin/proc_info.h"
#include "darwin/rusage.h"
#include "darwin/sysctl.h"
#include "darwin/thread_state.h"
#include "host/kernel_family.h"

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

// What happened to a watched process since it was last told of: NOTE_FORK, NOTE_EXEC and NOTE_EXIT
// of darwin/kqueue.h. After NOTE_EXIT the process is no longer watched.
struct ProcessEvent {
  pid_t pid;
  uint32_t notes;
};

// Watches processes for one kernel queue. Every function may be called while another thread waits.
class ProcessEvents {
 public:
  ProcessEvents() = default;
  ProcessEvents(const ProcessEvents &) = delete;
  ProcessEvents &operator=(const ProcessEvents &) = delete;
  virtual ~ProcessEvents() = default;

  // DARWIN_ESRCH for a process that is gone or a zombie.
  virtual Errno watch(pid_t pid) = 0;
  virtual void unwatch(pid_t pid) = 0;
  // Waits until something happens to a watched process, without end if there is no timeout, and
  // puts that in place of `events`: none when the time was up. DARWIN_EINTR when a signal handler
  // ran meanwhile.
  virtual Errno wait(std::optional<std::chrono::nanoseconds> timeout,
                     std::vector<ProcessEvent> &events) = 0;
};

// One end of a connection. An IPv4 address fills the first four bytes.
struct NetworkEndpoint {
  int family = 0;  // DARWIN_AF_INET or DARWIN_AF_INET6
  std::array<uint8_t, 16> address{};
  uint16_t port = 0;   // host order
  uint32_t scope = 0;  // of an IPv6 address
};

// A socket whose traffic the kernel counts. The totals run since the socket appeared.
struct NetworkSource {
  uint64_t key = 0;       // stays the same while the socket lives, and is not used again
  uint32_t provider = 0;  // NSTAT_PROVIDER_TCP or NSTAT_PROVIDER_UDP
  int32_t pid = 0;        // its owner; 0 if not known
  std::string process;    // the owner's name
  NetworkEndpoint local;
  NetworkEndpoint remote;
  uint32_t interfaceIndex = 0;
  int32_t state = 0;  // TSI_S_* of TCP
  uint64_t receivedPackets = 0;
  uint64_t receivedBytes = 0;
  uint64_t sentPackets = 0;
  uint64_t sentBytes = 0;
};

// A network interface and its traffic since it appeared.
struct NetworkInterface {
  std::string name;
  uint16_t index = 0;
  uint8_t type = 0;    // IFT_*
  uint32_t flags = 0;  // with Darwin's numbers
  uint32_t mtu = 0;
  uint64_t speed = 0;  // bits per second; 0 if not known
  uint64_t receivedPackets = 0;
  uint64_t receivedErrors = 0;
  uint64_t receivedBytes = 0;
  uint64_t receivedMulticasts = 0;
  uint64_t droppedOnInput = 0;
  uint64_t sentPackets = 0;
  uint64_t sentErrors = 0;
  uint64_t sentBytes = 0;
  uint64_t collisions = 0;
};

// What a Wi-Fi interface is connected to.
struct WirelessNetwork {
  bool connected = false;
  std::string name;  // at most 32 bytes, of any kind
  uint32_t channel = 0;
  uint32_t channelFlags = 0;
  std::vector<int32_t> radios;  // dBm of each, at most 4
  int32_t signal = 0;           // dBm over all radios
};

// What the identity service says to a key.
using GestaltAnswer = std::variant<std::string, int64_t, bool>;

// What a thread has in its registers, in the form of its word size.
using ThreadRegisters = std::variant<darwin::arm_thread_state64_t, darwin::arm_thread_state32_t>;

// What feeds the machine. What is not known is left out.
struct PowerSource {
  std::optional<int32_t> capacity;   // percent
  std::optional<std::string> state;  // "AC Power", "Battery Power"
  std::optional<bool> isCharging;
};

struct PowerStatus {
  // Empty for a machine without a battery; nothing when the service can't list them.
  std::optional<std::vector<PowerSource>> sources;
  double secondsRemaining = -1;  // -1 unknown, -2 unlimited
  // Names of the assertions of each process that holds some; nothing when the service gives none.
  std::optional<std::map<int32_t, std::vector<std::string>>> assertions;
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
  // Where kernels differ, entry points do as this one does. By default the usual one.
  virtual KernelFamily kernelFamily() noexcept;
  // Whether the caller holds the privileged host port, as root does.
  virtual bool isPrivileged();
  // Whether the C library has an entry point that only some releases have, such as
  // "memorystatus_get_level".
  virtual bool hasEntryPoint(std::string_view name);
  // Effective user of the program; 0 is root. By default the one that it has on this system.
  virtual uint32_t callerUser();
  // The time of day in seconds since the epoch. By default that of this system.
  virtual int64_t timeOfDay();
  // The same with microseconds. By default there are none.
  virtual void wallClock(darwin::timeval &time);
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
  // The snapshot of one process, or of all for pid -1, as chunked data. `flags` are STACKSHOT_*.
  virtual Errno stackshot(pid_t pid, uint64_t flags, std::vector<uint8_t> &snapshot);

  // Tasks. Whether the caller may have the port that opens the process's task, or the one that only
  // names it.
  virtual Errno taskPort(pid_t pid);
  virtual Errno taskNamePort(pid_t pid);
  // Whether the host keeps the kernel's task among its special ports, as some changed kernels do.
  virtual Errno kernelTaskPort();
  // Of a thread by its system-wide ID.
  virtual Errno threadRegisters(pid_t pid, uint64_t id, ThreadRegisters &registers);
  // All `size` bytes or none: DARWIN_EFAULT where a page is missing or may not be read.
  virtual Errno readMemory(pid_t pid, uint64_t address, size_t size, void *to);

  // The process group, which everybody is told, of a zombie too. By default this system knows the
  // process.
  virtual Errno processGroup(pid_t pid, pid_t &group);

  // Sends a signal, with Darwin's number; 0 only looks whether it could be sent. `pid` as in
  // kill(): 0 and negative numbers mean process groups.
  virtual Errno sendSignal(pid_t pid, int signal);

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
  // Waits for memory pressure if `waits` is set (DARWIN_EINTR when a signal handler ran meanwhile).
  // Then: pages wanted now, and pages reclaimed in the last `seconds`, or as far back as is known.
  virtual Errno memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted, uint32_t &reclaimed);

  // Process events. Each answer is a watch of its own.
  virtual Errno processEvents(std::unique_ptr<ProcessEvents> &watch);

  // Identity and power. Whether there is an identity library; hasEntryPoint is asked whether that
  // has "MGCopyAnswerWithError".
  virtual bool hasGestalt();
  // An error number of the service's own for a key that it refuses.
  virtual Errno gestaltAnswer(std::string_view key, GestaltAnswer &answer);
  virtual Errno powerStatus(PowerStatus &status);

  // Identifiers of the loaded kernel extensions.
  virtual Errno kernelExtensions(std::vector<std::string> &identifiers);

  // Host figures.
  virtual Errno hostBasicInfo(darwin::host_basic_info &info);
  virtual Errno virtualMemory(darwin::vm_statistics64 &statistics);
  virtual Errno processorCount(unsigned int &count);
  virtual Errno processorLoad(unsigned int processor, darwin::processor_cpu_load_info &load);
  virtual Errno bootTime(darwin::timeval &time);
  virtual Errno loadAverage(darwin::loadavg &averages);
  virtual Errno swapUsage(darwin::xsw_usage &usage);

  // Network. Whether the statistics service takes one more client: DARWIN_EBUSY when another
  // program holds it, DARWIN_EPERM when the caller may not, DARWIN_ENOTSUP from a kernel without.
  virtual Errno networkStatistics();
  // All sources that the caller may know of, in any order.
  virtual Errno networkSources(std::vector<NetworkSource> &sources);
  virtual Errno interfaces(std::vector<NetworkInterface> &interfaces);
  // DARWIN_ENXIO for a name that is no Wi-Fi interface's.
  virtual Errno wirelessNetwork(const std::string &interface, WirelessNetwork &network);
};

// The machine that the entry points ask. Chosen once, before main, from SONDEX_DEVICE
// (host/selection.h says how).
Machine &machine();

// Replaces the machine (null: back to the one chosen at start) and returns the one replaced, or
// null if it was that one. The caller keeps `replacement` alive. For tests, before other threads
// ask.
Machine *useMachine(Machine *replacement);

}  // namespace host
