// A machine that exists only as a description (device.h): it answers as a Darwin kernel on such a
// device would, as of the device's own clock, and lets its events happen when their time comes.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/machine.h"
#include "host/simulator/device.h"
#include "host/simulator/pressure.h"

namespace host::simulator {

// Every question may be asked from any thread; an answer is as of one moment. When memory runs out,
// a question throws std::bad_alloc.
class SimulatedMachine final : public Machine {
 public:
  // Throws std::invalid_argument for a description that contradicts itself: two processes, two
  // threads or two descriptors of a process with the same number, regions that overlap, a number
  // out of its range, a time base or pages of nothing. The same goes for processes that are to
  // start later. A device that has no processors is given one that is idle.
  explicit SimulatedMachine(Device device);
  // Nobody may begin to ask any more. Who waits is told at once: for memory pressure by
  // DARWIN_EINTR, for processes by DARWIN_EBADF. A watch may live longer.
  ~SimulatedMachine() override;

  // Since the start of the device's clock.
  Nanoseconds now() const;
  // Moves a stepped clock on by hand. What was to happen meanwhile has happened. A wall clock
  // stays.
  void advance(Nanoseconds by);
  // Lets something happen at once; `lasts` as in Event. What can't happen does not.
  void happen(const Action &action, std::optional<Nanoseconds> lasts = std::nullopt);
  // How often a call was asked for, by its name as in FailCall.
  size_t callsOf(std::string_view call) const;
  // Nothing as long as there was none.
  std::optional<LastPressure> lastPressure();
  // As it is by now; nothing where there is no such service.
  std::optional<Power> power();

  Errno kernelName(KernelName &name) override;
  KernelFamily kernelFamily() noexcept override;
  bool isPrivileged() override;
  bool hasEntryPoint(std::string_view name) override;
  uint32_t callerUser() override;
  int64_t timeOfDay() override;
  void wallClock(darwin::timeval &time) override;
  void beginSample() override;

  Errno processIDs(std::vector<int32_t> &pids) override;
  Errno taskAllInfo(pid_t pid, darwin::proc_taskallinfo &info) override;
  Errno bsdInfo(pid_t pid, bool zombies, darwin::proc_bsdinfo &info) override;
  Errno executablePath(pid_t pid, std::string &path) override;
  Errno workQueue(pid_t pid, darwin::proc_workqueueinfo &info) override;
  Errno threadHandles(pid_t pid, std::vector<uint64_t> &handles) override;
  Errno threadInfo(pid_t pid, uint64_t handle, darwin::proc_threadinfo &info) override;
  Errno threadIDs(pid_t pid, std::vector<uint64_t> &ids) override;
  Errno threadInfoByID(pid_t pid, uint64_t id, darwin::proc_threadinfo &info) override;
  Errno coalition(pid_t pid, darwin::proc_pidcoalitioninfo &info) override;
  Errno resourceUsage(pid_t pid, darwin::rusage_info_v4 &usage) override;
  int sandboxCheck(pid_t pid) override;
  Errno codeSigningFlags(pid_t pid, uint32_t &flags) override;
  Errno codeSignature(pid_t pid, std::vector<uint8_t> &blob) override;
  Errno containerPath(pid_t pid, std::string &path) override;
  Errno applicationState(pid_t pid, int32_t &state) override;
  Errno arguments(pid_t pid, ProcessArguments &arguments) override;
  Errno region(pid_t pid, uint64_t address, darwin::proc_regionwithpathinfo &info) override;

  // DARWIN_EINVAL for a process that is not there: callers have a message for that.
  Errno stackshot(pid_t pid, uint64_t flags, std::vector<uint8_t> &snapshot) override;

  // As for all that a process holds: root's, and each user's of his own.
  Errno taskPort(pid_t pid) override;
  Errno taskNamePort(pid_t pid) override;
  Errno kernelTaskPort() override;
  Errno threadRegisters(pid_t pid, uint64_t id, ThreadRegisters &registers) override;
  Errno readMemory(pid_t pid, uint64_t address, size_t size, void *to) override;

  Errno processGroup(pid_t pid, pid_t &group) override;
  Errno sendSignal(pid_t pid, int signal) override;

  Errno descriptors(pid_t pid, size_t limit, std::vector<darwin::proc_fdinfo> &list) override;
  Errno descriptorTableSize(pid_t pid, size_t &slots) override;
  Errno descriptorType(pid_t pid, int fd, uint32_t &type) override;
  Errno vnodeDescriptor(pid_t pid, int fd, darwin::vnode_fdinfowithpath &info) override;
  Errno socketDescriptor(pid_t pid, int fd, darwin::socket_fdinfo &info) override;
  Errno semaphoreDescriptor(pid_t pid, int fd, darwin::psem_fdinfo &info) override;
  Errno sharedMemoryDescriptor(pid_t pid, int fd, darwin::pshm_fdinfo &info) override;
  Errno pipeDescriptor(pid_t pid, int fd, darwin::pipe_fdinfo &info) override;
  Errno kqueueDescriptor(pid_t pid, int fd, darwin::kqueue_fdinfo &info) override;
  Errno kqueueEvents(pid_t pid, int fd, std::vector<darwin::kevent_extinfo> &events) override;
  Errno channelDescriptor(pid_t pid, int fd, darwin::channel_fdinfo &info) override;

  Errno memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &entries) override;
  Errno memoryStatusLevel(unsigned int &level) override;
  // Waits until there was pressure that no wait has told of yet, and answers as of that moment.
  Errno memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted,
                       uint32_t &reclaimed) override;

  Errno processEvents(std::unique_ptr<ProcessEvents> &watch) override;

  bool hasGestalt() override;
  // DARWIN_ENOENT for a key that the device does not have.
  Errno gestaltAnswer(std::string_view key, GestaltAnswer &answer) override;
  Errno powerStatus(PowerStatus &status) override;
  Errno kernelExtensions(std::vector<std::string> &identifiers) override;

  Errno hostBasicInfo(darwin::host_basic_info &info) override;
  Errno virtualMemory(darwin::vm_statistics64 &statistics) override;
  Errno processorCount(unsigned int &count) override;
  Errno processorLoad(unsigned int processor, darwin::processor_cpu_load_info &load) override;
  Errno bootTime(darwin::timeval &time) override;
  Errno loadAverage(darwin::loadavg &averages) override;
  Errno swapUsage(darwin::xsw_usage &usage) override;

  Errno networkStatistics() override;
  Errno networkSources(std::vector<NetworkSource> &sources) override;
  Errno interfaces(std::vector<NetworkInterface> &interfaces) override;
  Errno wirelessNetwork(const std::string &interface, WirelessNetwork &network) override;

 private:
  class State;
  class Watch;
  std::shared_ptr<State> state_;
};

}  // namespace host::simulator
