// The live Linux system as a machine: what is read where for each question, and who may ask. Every
// answer comes from the kernel; host/DIFFERENCES.md says where it is not quite what a device would
// answer.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/linux/descriptors.h"
#include "host/linux/host_figures.h"
#include "host/linux/identity.h"
#include "host/linux/interfaces.h"
#include "host/linux/known_processes.h"
#include "host/linux/memory_status.h"
#include "host/linux/power_supply.h"
#include "host/linux/present_process.h"
#include "host/linux/pressure.h"
#include "host/linux/processors.h"
#include "host/linux/procfs.h"
#include "host/linux/regions.h"
#include "host/linux/stackshot.h"
#include "host/linux/tcp_totals.h"
#include "host/linux/wireless.h"
#include "host/machine.h"
#include "host/snapshot.h"

namespace host {

namespace linux_machine {

// Holds one directory handle of /proc, and at most one of a process.
class LinuxMachine final : public Machine {
 public:
  // `proc` is an open handle of /proc.
  explicit LinuxMachine(FileHandle proc);

  Errno kernelName(KernelName &name) override;
  bool isPrivileged() override;
  void wallClock(darwin::timeval &time) override;
  Errno sendSignal(pid_t pid, int signal) override;
  bool hasEntryPoint(std::string_view name) override;

  // Begins a pass: what may be remembered for one only is dropped, and so are processes that are
  // gone.
  Errno processIDs(std::vector<int32_t> &pids) override;

  Errno taskAllInfo(pid_t pid, darwin::proc_taskallinfo &info) override;
  Errno bsdInfo(pid_t pid, bool zombies, darwin::proc_bsdinfo &info) override;
  Errno executablePath(pid_t pid, std::string &path) override;
  Errno workQueue(pid_t pid, darwin::proc_workqueueinfo &info) override;
  // Handles are thread IDs.
  Errno threadHandles(pid_t pid, std::vector<uint64_t> &handles) override;
  Errno threadInfo(pid_t pid, uint64_t handle, darwin::proc_threadinfo &info) override;
  Errno threadIDs(pid_t pid, std::vector<uint64_t> &ids) override;
  Errno threadInfoByID(pid_t pid, uint64_t id, darwin::proc_threadinfo &info) override;
  Errno coalition(pid_t pid, darwin::proc_pidcoalitioninfo &info) override;
  Errno resourceUsage(pid_t pid, darwin::rusage_info_v4 &usage) override;
  int sandboxCheck(pid_t pid) override;
  Errno codeSigningFlags(pid_t pid, uint32_t &flags) override;
  Errno containerPath(pid_t pid, std::string &path) override;
  Errno applicationState(pid_t pid, int32_t &state) override;
  Errno stackshot(pid_t pid, uint64_t flags, std::vector<uint8_t> &snapshot) override;
  Errno arguments(pid_t pid, ProcessArguments &arguments) override;

  // A walk upward sees one picture of the process.
  Errno region(pid_t pid, uint64_t address, darwin::proc_regionwithpathinfo &info) override;
  Errno taskPort(pid_t pid) override;
  Errno taskNamePort(pid_t pid) override;
  // Stops the thread for that moment. May take half a second.
  Errno threadRegisters(pid_t pid, uint64_t id, ThreadRegisters &registers) override;
  Errno readMemory(pid_t pid, uint64_t address, size_t size, void *to) override;
  Errno kernelExtensions(std::vector<std::string> &identifiers) override;

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
  Errno memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted,
                       uint32_t &reclaimed) override;

  Errno processEvents(std::unique_ptr<ProcessEvents> &watch) override;

  bool hasGestalt() override;
  Errno gestaltAnswer(std::string_view key, GestaltAnswer &answer) override;
  Errno powerStatus(PowerStatus &status) override;

  Errno hostBasicInfo(darwin::host_basic_info &info) override;
  Errno virtualMemory(darwin::vm_statistics64 &statistics) override;
  Errno processorCount(unsigned int &count) override;
  Errno processorLoad(unsigned int processor, darwin::processor_cpu_load_info &load) override;
  Errno bootTime(darwin::timeval &time) override;
  Errno loadAverage(darwin::loadavg &averages) override;
  Errno swapUsage(darwin::xsw_usage &usage) override;

  // TCP sockets with an owner that the caller may look at.
  Errno networkStatistics() override;
  Errno networkSources(std::vector<NetworkSource> &sources) override;
  Errno interfaces(std::vector<NetworkInterface> &interfaces) override;
  Errno wirelessNetwork(const std::string &interface, WirelessNetwork &network) override;

 private:
  using Lock = std::lock_guard<std::mutex>;

  Errno listProcesses(std::vector<int32_t> &pids);
  Errno checkLive();
  Errno readLive(pid_t pid);
  Errno readLiveFor(pid_t pid, Question question);
  Errno holdLive(pid_t pid);
  Errno holdUserProcess(pid_t pid);
  Errno describeForStackshot(pid_t pid, StackshotTask &task);
  Errno describeForStackshot(Snapshot &snapshot);
  Errno findThread(pid_t pid, uint64_t id, bool anew, ThreadReading *&thread);
  template <typename T>
  Errno askDescriptor(Errno (Descriptors::*question)(int, int, T &), pid_t pid, int fd, T &answer);

  std::mutex mutex_;
  FileHandle proc_;
  DirectoryReader lister_;
  KnownProcesses known_;
  PresentProcess present_;
  Descriptors descriptors_;
  Regions regions_;
  FileReader reader_;
  MemoryStatus memoryStatus_;
  Identity identity_;
  PowerSupply powerSupply_;
  HostFigures figures_;
  MemoryPressure pressure_;  // has a lock of its own: it is waited in
  Processors processors_;

  // Asked about while a sample is taken: apart, so that neither waits for the other.
  std::mutex networkMutex_;
  TcpTotals tcpTotals_;
  Interfaces interfaces_;
  Wireless wireless_;
};

}  // namespace linux_machine

// The machine that this program runs on; null when /proc can't be opened.
std::unique_ptr<Machine> makeLinuxMachine();

}  // namespace host
