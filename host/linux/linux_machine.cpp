#include "host/linux/linux_machine.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <utility>

#include "host/linux/clock.h"
#include "host/linux/process_events.h"
#include "host/linux/process_figures.h"
#include "host/linux/registers.h"
#include "host/linux/signals.h"
#include "host/linux/task_memory.h"
#include "host/posix.h"

namespace host {

namespace linux_machine {

// The kernel that is presented is of the 4903 family. The caller's libc has 64 characters for the
// sentence.
static constexpr std::string_view kRelease = "18.7.0";
static constexpr std::string_view kVersionX86 =
    "Darwin Kernel Version 18.7.0: root:xnu-4903~1/RELEASE_X86_64";
static constexpr std::string_view kVersionArm =
    "Darwin Kernel Version 18.7.0: root:xnu-4903~1/RELEASE_ARM64_HOST";

static constexpr uint64_t kSeccompFilter = 2;

// Of stackshots: the pid that stands for all, the unit of page counts, and how long to look at
// stacks.
static constexpr pid_t kEveryProcess = -1;
static constexpr uint32_t kReportedPageSize = 4096;
static constexpr std::chrono::seconds kStacksPatience{60};
static constexpr uint64_t kMicrosecondsPerSecond = 1000000;

LinuxMachine::LinuxMachine(FileHandle proc)
    : proc_(std::move(proc)), present_(proc_.get(), known_), pressure_(proc_.get()) {}

Errno LinuxMachine::kernelName(KernelName &name) {
  new_utsname own{};
  if (__real_uname(&own) != 0) return darwin::DARWIN_EIO;
  std::string_view hardware(own.machine);
  name.system = "Darwin";
  name.node = own.nodename;
  name.release = kRelease;
  name.version = hardware == "aarch64" ? kVersionArm : kVersionX86;
  name.hardware = hardware;
  return kAnswered;
}

Errno LinuxMachine::sendSignal(pid_t pid, int signal) {
  const int number = linuxSignal(signal);
  if (number == 0 && signal != 0) return darwin::DARWIN_EINVAL;
  if (__real_kill(pid, number) == 0) return kAnswered;
  // The only ones that it fails with, and the same for both.
  return errno == EPERM ? darwin::DARWIN_EPERM : darwin::DARWIN_ESRCH;
}

bool LinuxMachine::isPrivileged() {
  return __real_geteuid() == 0;
}

void LinuxMachine::wallClock(darwin::timeval &time) {
  struct timeval now {};
  __real_gettimeofday(&now, nullptr);
  time.tv_sec = now.tv_sec;
  time.tv_usec = static_cast<int32_t>(now.tv_usec);
}

bool LinuxMachine::hasEntryPoint(std::string_view name) {
  return name == "memorystatus_get_level" || name == "proc_pid_rusage" ||
         name == "MGCopyAnswerWithError";
}

// Newest first, as far as numbers tell: they start again from low ones after the highest.
Errno LinuxMachine::listProcesses(std::vector<int32_t> &pids) {
  std::vector<int32_t> listed;
  Errno error = lister_.readNumbers(proc_.get(), listed);
  if (error != kAnswered) return error;
  std::sort(listed.begin(), listed.end(), std::greater<>());
  pids = std::move(listed);
  return kAnswered;
}

Errno LinuxMachine::processIDs(std::vector<int32_t> &pids) {
  Lock lock(mutex_);
  Errno error = listProcesses(pids);
  if (error != kAnswered) return error;
  present_.release();
  known_.keepOnly(pids);
  descriptors_.beginPass();
  return kAnswered;
}

// Whether the present process is one that the caller may ask about.
Errno LinuxMachine::checkLive() {
  return present_.stat().isZombie() ? darwin::DARWIN_ESRCH : present_.checkAccess();
}

Errno LinuxMachine::readLive(pid_t pid) {
  Errno error = present_.read(pid);
  return error == kAnswered ? checkLive() : error;
}

Errno LinuxMachine::readLiveFor(pid_t pid, Question question) {
  Errno error = present_.readFor(pid, question);
  return error == kAnswered ? checkLive() : error;
}

Errno LinuxMachine::holdLive(pid_t pid) {
  Errno error = present_.hold(pid);
  return error == kAnswered ? checkLive() : error;
}

Errno LinuxMachine::taskAllInfo(pid_t pid, darwin::proc_taskallinfo &info) {
  Lock lock(mutex_);
  ProcessStatus status{};
  std::vector<ThreadReading> *threads = nullptr;
  Errno error = readLive(pid);
  if (error == kAnswered) error = present_.status(status);
  if (error == kAnswered) error = present_.threads(threads);
  if (error != kAnswered) return error;
  fillBsdInfo(present_.stat(), status, present_.is64Bit(), bootMoment(), info.pbsd);
  fillTaskInfo(present_.stat(), status, *threads, info.ptinfo);
  return kAnswered;
}

Errno LinuxMachine::bsdInfo(pid_t pid, bool zombies, darwin::proc_bsdinfo &info) {
  Lock lock(mutex_);
  ProcessStatus status{};
  Errno error = present_.read(pid);
  if (error == kAnswered && !zombies) error = checkLive();
  if (error == kAnswered) error = present_.checkAccess();
  if (error == kAnswered) error = present_.status(status);
  if (error != kAnswered) return error;
  fillBsdInfo(present_.stat(), status, present_.is64Bit(), bootMoment(), info);
  return kAnswered;
}

Errno LinuxMachine::executablePath(pid_t pid, std::string &path) {
  Lock lock(mutex_);
  Errno error = present_.hold(pid);
  if (error != kAnswered) return error;
  return present_.stat().isZombie() ? darwin::DARWIN_ESRCH : present_.executablePath(path);
}

Errno LinuxMachine::workQueue(pid_t pid, darwin::proc_workqueueinfo &) {
  Lock lock(mutex_);
  Errno error = holdLive(pid);
  return error == kAnswered ? darwin::DARWIN_ESRCH : error;
}

Errno LinuxMachine::threadHandles(pid_t pid, std::vector<uint64_t> &handles) {
  return threadIDs(pid, handles);
}

Errno LinuxMachine::threadInfo(pid_t pid, uint64_t handle, darwin::proc_threadinfo &info) {
  return threadInfoByID(pid, handle, info);
}

Errno LinuxMachine::threadIDs(pid_t pid, std::vector<uint64_t> &ids) {
  Lock lock(mutex_);
  std::vector<ThreadReading> *threads = nullptr;
  Errno error = readLiveFor(pid, Question::threads);
  if (error == kAnswered) error = present_.threads(threads);
  if (error != kAnswered) return error;
  ids.clear();
  ids.reserve(threads->size());
  for (const ThreadReading &thread : *threads) {
    ids.push_back(static_cast<uint64_t>(thread.stat.id));
  }
  return kAnswered;
}

// Finds the thread in the reading of a moment ago, or in a new one if `anew`.
Errno LinuxMachine::findThread(pid_t pid, uint64_t id, bool anew, ThreadReading *&thread) {
  std::vector<ThreadReading> *threads = nullptr;
  Errno error = anew ? readLive(pid) : holdLive(pid);
  if (error == kAnswered) error = present_.threads(threads);
  if (error != kAnswered) return error;
  auto found = std::lower_bound(threads->begin(), threads->end(), id,
                                [](const ThreadReading &reading, uint64_t wanted) {
                                  return static_cast<uint64_t>(reading.stat.id) < wanted;
                                });
  if (found == threads->end() || static_cast<uint64_t>(found->stat.id) != id) {
    return darwin::DARWIN_ESRCH;
  }
  thread = &*found;
  return kAnswered;
}

Errno LinuxMachine::threadInfoByID(pid_t pid, uint64_t id, darwin::proc_threadinfo &info) {
  Lock lock(mutex_);
  ThreadReading *thread = nullptr;
  Errno error = findThread(pid, id, false, thread);
  // Another reading is for one that is younger than this one, not for each that has ended since.
  const bool isOld = error == kAnswered ? thread->wasTold
                                        : error == darwin::DARWIN_ESRCH && present_.hasThread(id);
  if (isOld) error = findThread(pid, id, true, thread);
  if (error != kAnswered) return error;
  fillThreadInfo(thread->stat, thread->figures, info);
  thread->wasTold = true;
  return kAnswered;
}

Errno LinuxMachine::coalition(pid_t pid, darwin::proc_pidcoalitioninfo &info) {
  Lock lock(mutex_);
  Errno error = present_.readFor(pid, Question::coalition);
  if (error != kAnswered) return error;
  if (present_.stat().isZombie()) return darwin::DARWIN_ESRCH;
  info = {};
  info.coalition_id[darwin::COALITION_TYPE_RESOURCE] =
      static_cast<uint64_t>(present_.stat().session);
  info.coalition_id[darwin::COALITION_TYPE_JETSAM] = static_cast<uint64_t>(present_.stat().group);
  return kAnswered;
}

Errno LinuxMachine::resourceUsage(pid_t pid, darwin::rusage_info_v4 &usage) {
  Lock lock(mutex_);
  ProcessStatus status{};
  ProcessIO io{};
  Errno error = present_.readFor(pid, Question::usage);
  if (error == kAnswered) error = present_.checkAccess();
  if (error == kAnswered) error = present_.status(status);
  if (error == kAnswered) error = present_.io(io);
  if (error != kAnswered) return error;
  fillResourceUsage(present_.stat(), status, io, usage);
  return kAnswered;
}

int LinuxMachine::sandboxCheck(pid_t pid) {
  Lock lock(mutex_);
  ProcessStatus status{};
  Errno error = readLiveFor(pid, Question::sandbox);
  if (error == kAnswered) error = present_.status(status);
  if (error != kAnswered) return -1;
  if (status.seccomp == kSeccompFilter) return 1;
  bool hasOwnUsers = false;
  if (present_.hasOwnUsers(hasOwnUsers) != kAnswered) return -1;
  return hasOwnUsers ? 1 : 0;
}

// No program here is signed.
Errno LinuxMachine::codeSigningFlags(pid_t pid, uint32_t &flags) {
  Lock lock(mutex_);
  Errno error = present_.hold(pid);
  if (error != kAnswered) return error;
  if (present_.stat().isZombie()) return darwin::DARWIN_ESRCH;
  flags = 0;
  return kAnswered;
}

// What confines a process to a part of the file system is a root directory of its own.
Errno LinuxMachine::containerPath(pid_t pid, std::string &path) {
  Lock lock(mutex_);
  std::string root;
  Errno error = holdLive(pid);
  if (error == kAnswered) error = present_.rootPath(root);
  if (error != kAnswered) return error;
  if (root == "/") return darwin::DARWIN_ENOTSUP;
  path = std::move(root);
  return kAnswered;
}

// As kernels of the presented family have it: who asks is judged, and then there is none.
Errno LinuxMachine::applicationState(pid_t pid, int32_t &) {
  Lock lock(mutex_);
  Errno error = holdLive(pid);
  return error == kAnswered ? darwin::DARWIN_ENOTSUP : error;
}

Errno LinuxMachine::describeForStackshot(pid_t pid, StackshotTask &task) {
  Lock lock(mutex_);
  ProcessStatus status{};
  std::vector<ThreadReading> *threads = nullptr;
  Errno error = readLive(pid);
  if (error == kAnswered) error = present_.status(status);
  if (error == kAnswered) error = present_.threads(threads);
  if (error != kAnswered) return error;
  task = describeTask(present_.stat(), status, *threads, present_.is64Bit(), bootMoment());
  return kAnswered;
}

Errno LinuxMachine::describeForStackshot(Snapshot &snapshot) {
  KernelName name;
  darwin::timeval time{};
  darwin::vm_statistics64 memory{};
  Errno error = kernelName(name);
  if (error != kAnswered) return error;
  wallClock(time);
  snapshot.sinceBoot = nanosecondsSinceBoot();
  snapshot.sinceEpoch = static_cast<uint64_t>(time.tv_sec) * kMicrosecondsPerSecond +
                        static_cast<uint64_t>(time.tv_usec);
  snapshot.kernelVersion = name.version;
  snapshot.pageSize = kReportedPageSize;

  Lock lock(mutex_);
  FileReader reader;
  std::string_view line;
  if (reader.readRecord(proc_.get(), "cmdline", line) == kAnswered) {
    snapshot.bootArguments = line.substr(0, line.find('\n'));
  }
  if (figures_.virtualMemory(memory) == kAnswered) snapshot.memory = memory;
  return kAnswered;
}

// A process that is not there is refused as a bad argument, which callers have a message for.
Errno LinuxMachine::stackshot(pid_t pid, uint64_t flags, std::vector<uint8_t> &snapshot) {
  std::vector<int32_t> pids = {pid};
  Snapshot described;
  Errno error = describeForStackshot(described);
  if (error == kAnswered && pid == kEveryProcess) {
    pids.clear();
    Lock lock(mutex_);
    error = listProcesses(pids);
  }
  if (error != kAnswered) return error;

  std::vector<StackshotTask> tasks;
  for (const int32_t each : pids) {
    StackshotTask task;
    error = describeForStackshot(each, task);
    if (error == kAnswered) {
      tasks.push_back(std::move(task));
    } else if (pid != kEveryProcess) {
      return error == darwin::DARWIN_ESRCH ? darwin::DARWIN_EINVAL : error;
    }
  }
  // Without the lock: other questions need not wait for it.
  addStacks(proc_.get(), tasks, kStacksPatience);
  for (StackshotTask &task : tasks) described.tasks.push_back(std::move(task.task));
  snapshot = writeSnapshot(described, flags);
  return kAnswered;
}

Errno LinuxMachine::arguments(pid_t pid, ProcessArguments &arguments) {
  Lock lock(mutex_);
  Errno error = holdLive(pid);
  return error == kAnswered ? present_.arguments(arguments) : error;
}

Errno LinuxMachine::region(pid_t pid, uint64_t address, darwin::proc_regionwithpathinfo &info) {
  Lock lock(mutex_);
  Errno error = holdLive(pid);
  if (error != kAnswered) return error;
  const ProcessKey process = {pid, present_.stat().startTicks};
  return regions_.find(present_.directory(), process, address, info);
}

// A kernel thread has no task of its own.
Errno LinuxMachine::holdUserProcess(pid_t pid) {
  Errno error = holdLive(pid);
  if (error == kAnswered && present_.stat().isKernelThread()) error = darwin::DARWIN_EPERM;
  return error;
}

Errno LinuxMachine::taskPort(pid_t pid) {
  Lock lock(mutex_);
  Errno error = holdUserProcess(pid);
  return error == kAnswered ? checkMemoryAccess(present_.directory()) : error;
}

Errno LinuxMachine::taskNamePort(pid_t pid) {
  Lock lock(mutex_);
  return holdUserProcess(pid);
}

Errno LinuxMachine::threadRegisters(pid_t pid, uint64_t id, ThreadRegisters &registers) {
  ThreadPlace place;
  {
    Lock lock(mutex_);
    Errno error = holdUserProcess(pid);
    if (error != kAnswered) return error;
    error = findThreadPlace(present_.directory(), id, place);
    if (error != kAnswered) return error;
    place.process = pid;
    place.is64Bit = present_.is64Bit();
  }
  // Not with the lock held: the thread may be slow to stop.
  return readRegisters(place, registers);
}

Errno LinuxMachine::readMemory(pid_t pid, uint64_t address, size_t size, void *to) {
  FileHandle directory;
  {
    Lock lock(mutex_);
    Errno error = holdUserProcess(pid);
    if (error != kAnswered) return error;
    directory = openStartingPoint(present_.directory(), ".");
  }
  if (!directory.isOpen()) return darwin::DARWIN_ESRCH;
  // Not with the lock held: the memory may be slow to come from where it was swapped to.
  return readTaskMemory(directory.get(), pid, address, size, to);
}

Errno LinuxMachine::kernelExtensions(std::vector<std::string> &identifiers) {
  Lock lock(mutex_);
  std::string_view text;
  Errno error = reader_.readList(proc_.get(), "modules", text);
  if (error == darwin::DARWIN_ENOENT) return darwin::DARWIN_ENOTSUP;  // it can load none
  if (error != kAnswered) return error;
  identifiers.clear();
  TextCursor lines(text);
  std::string_view line;
  std::string_view name;
  while (lines.line(line)) {
    if (TextCursor(line).word(name)) identifiers.emplace_back(name);
  }
  return kAnswered;
}

Errno LinuxMachine::descriptors(pid_t pid, size_t limit, std::vector<darwin::proc_fdinfo> &list) {
  Lock lock(mutex_);
  Errno error = readLiveFor(pid, Question::descriptors);
  if (error != kAnswered) return error;
  KnownProcess &process = present_.known();
  // One that was shorter than its limit was whole.
  bool isKnown = process.descriptors && (process.descriptors->size() < process.descriptorLimit ||
                                         process.descriptorLimit >= limit);
  bool isOwn = known_.hasOwnDescriptors(process, present_.stat());
  if (!isKnown || !isOwn) {
    process.descriptors.reset();
    std::vector<darwin::proc_fdinfo> listed;
    error = descriptors_.list(present_.directory(), limit, listed, &process.sockets);
    if (error != kAnswered) return error;
    process.descriptors = std::move(listed);
    process.descriptorLimit = limit;
  }
  auto end = process.descriptors->begin() +
             static_cast<std::ptrdiff_t>(std::min(limit, process.descriptors->size()));
  list.assign(process.descriptors->begin(), end);
  return kAnswered;
}

Errno LinuxMachine::descriptorTableSize(pid_t pid, size_t &slots) {
  Lock lock(mutex_);
  ProcessStatus status{};
  Errno error = readLiveFor(pid, Question::descriptorSlots);
  if (error == kAnswered) error = present_.status(status);
  if (error == kAnswered) slots = static_cast<size_t>(status.descriptorSlots);
  return error;
}

template <typename T>
Errno LinuxMachine::askDescriptor(Errno (Descriptors::*question)(int, int, T &), pid_t pid, int fd,
                                  T &answer) {
  Lock lock(mutex_);
  Errno error = holdLive(pid);
  return error == kAnswered ? (descriptors_.*question)(present_.directory(), fd, answer) : error;
}

Errno LinuxMachine::descriptorType(pid_t pid, int fd, uint32_t &type) {
  return askDescriptor(&Descriptors::type, pid, fd, type);
}

Errno LinuxMachine::vnodeDescriptor(pid_t pid, int fd, darwin::vnode_fdinfowithpath &info) {
  return askDescriptor(&Descriptors::vnode, pid, fd, info);
}

Errno LinuxMachine::socketDescriptor(pid_t pid, int fd, darwin::socket_fdinfo &info) {
  return askDescriptor(&Descriptors::socket, pid, fd, info);
}

Errno LinuxMachine::semaphoreDescriptor(pid_t pid, int fd, darwin::psem_fdinfo &info) {
  return askDescriptor(&Descriptors::semaphore, pid, fd, info);
}

Errno LinuxMachine::sharedMemoryDescriptor(pid_t pid, int fd, darwin::pshm_fdinfo &info) {
  return askDescriptor(&Descriptors::sharedMemory, pid, fd, info);
}

Errno LinuxMachine::pipeDescriptor(pid_t pid, int fd, darwin::pipe_fdinfo &info) {
  return askDescriptor(&Descriptors::pipe, pid, fd, info);
}

Errno LinuxMachine::kqueueDescriptor(pid_t pid, int fd, darwin::kqueue_fdinfo &info) {
  return askDescriptor(&Descriptors::kqueue, pid, fd, info);
}

Errno LinuxMachine::kqueueEvents(pid_t pid, int fd, std::vector<darwin::kevent_extinfo> &events) {
  return askDescriptor(&Descriptors::kqueueEvents, pid, fd, events);
}

// Nothing here is a channel.
Errno LinuxMachine::channelDescriptor(pid_t pid, int fd, darwin::channel_fdinfo &) {
  uint32_t type = 0;
  Errno error = descriptorType(pid, fd, type);
  return error == kAnswered ? darwin::DARWIN_EBADF : error;
}

Errno LinuxMachine::memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &entries) {
  if (!isPrivileged()) return darwin::DARWIN_EPERM;
  Lock lock(mutex_);
  std::vector<int32_t> pids;
  Errno error = listProcesses(pids);
  if (error == kAnswered) memoryStatus_.list(proc_.get(), pids, known_, entries);
  return error;
}

Errno LinuxMachine::memoryStatusLevel(unsigned int &level) {
  Lock lock(mutex_);
  return figures_.memoryStatusLevel(level);
}

Errno LinuxMachine::memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted,
                                   uint32_t &reclaimed) {
  return pressure_.ask(waits, seconds, wanted, reclaimed);
}

Errno LinuxMachine::processEvents(std::unique_ptr<ProcessEvents> &watch) {
  return LinuxProcessEvents::open(watch);
}

bool LinuxMachine::hasGestalt() {
  return true;
}

Errno LinuxMachine::gestaltAnswer(std::string_view key, GestaltAnswer &answer) {
  Lock lock(mutex_);
  std::string text;
  Errno error = identity_.answer(key, text);
  if (error == kAnswered) answer = std::move(text);
  return error;
}

Errno LinuxMachine::powerStatus(PowerStatus &status) {
  Lock lock(mutex_);
  return powerSupply_.read(status);
}

Errno LinuxMachine::hostBasicInfo(darwin::host_basic_info &info) {
  Lock lock(mutex_);
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

Errno LinuxMachine::virtualMemory(darwin::vm_statistics64 &statistics) {
  Lock lock(mutex_);
  return figures_.virtualMemory(statistics);
}

Errno LinuxMachine::processorCount(unsigned int &count) {
  Lock lock(mutex_);
  return processors_.count(count);
}

Errno LinuxMachine::processorLoad(unsigned int processor, darwin::processor_cpu_load_info &load) {
  Lock lock(mutex_);
  return processors_.load(processor, load);
}

Errno LinuxMachine::bootTime(darwin::timeval &time) {
  WallTime boot = bootMoment();
  time.tv_sec = static_cast<int64_t>(boot.seconds);
  time.tv_usec = static_cast<int32_t>(boot.microseconds);
  return kAnswered;
}

Errno LinuxMachine::loadAverage(darwin::loadavg &averages) {
  Lock lock(mutex_);
  // Who asks about the whole machine has done with its processes: none is held while nobody looks.
  present_.release();
  return figures_.loadAverage(averages);
}

Errno LinuxMachine::swapUsage(darwin::xsw_usage &usage) {
  Lock lock(mutex_);
  return figures_.swapUsage(usage);
}

// There is always room for one more client.
Errno LinuxMachine::networkStatistics() {
  return kAnswered;
}

Errno LinuxMachine::networkSources(std::vector<NetworkSource> &sources) {
  SocketOwners owners;
  {
    Lock lock(mutex_);
    owners = known_.socketOwners();
  }
  Lock lock(networkMutex_);
  return tcpTotals_.list(owners, sources);
}

Errno LinuxMachine::interfaces(std::vector<NetworkInterface> &interfaces) {
  Lock lock(networkMutex_);
  return interfaces_.list(interfaces);
}

Errno LinuxMachine::wirelessNetwork(const std::string &interface, WirelessNetwork &network) {
  Lock lock(networkMutex_);
  return wireless_.network(interface, network);
}

}  // namespace linux_machine

std::unique_ptr<Machine> makeLinuxMachine() {
  using linux_machine::FileHandle;
  FileHandle proc = linux_machine::openDirectory(AT_FDCWD, "/proc");
  if (!proc.isOpen()) return nullptr;
  return std::make_unique<linux_machine::LinuxMachine>(std::move(proc));
}

}  // namespace host
