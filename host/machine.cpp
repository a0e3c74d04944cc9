// The answers of a machine that was not taught a question: not supported.
#include "host/machine.h"

#include "host/posix.h"

namespace host {

using darwin::DARWIN_ENOTSUP;

Errno Machine::kernelName(KernelName &) {
  return DARWIN_ENOTSUP;
}
KernelFamily Machine::kernelFamily() noexcept {
  return kUsualFamily;
}
bool Machine::isPrivileged() {
  return false;
}
bool Machine::hasEntryPoint(std::string_view) {
  return false;
}
uint32_t Machine::callerUser() {
  return __real_geteuid();
}
int64_t Machine::timeOfDay() {
  return __real_time(nullptr);
}
void Machine::wallClock(darwin::timeval &time) {
  time.tv_sec = timeOfDay();
  time.tv_usec = 0;
}
void Machine::beginSample() {}
Errno Machine::processIDs(std::vector<int32_t> &) {
  return DARWIN_ENOTSUP;
}

Errno Machine::taskAllInfo(pid_t, darwin::proc_taskallinfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::bsdInfo(pid_t, bool, darwin::proc_bsdinfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::executablePath(pid_t, std::string &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::workQueue(pid_t, darwin::proc_workqueueinfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::threadHandles(pid_t, std::vector<uint64_t> &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::threadInfo(pid_t, uint64_t, darwin::proc_threadinfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::threadIDs(pid_t, std::vector<uint64_t> &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::threadInfoByID(pid_t, uint64_t, darwin::proc_threadinfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::coalition(pid_t, darwin::proc_pidcoalitioninfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::resourceUsage(pid_t, darwin::rusage_info_v4 &) {
  return DARWIN_ENOTSUP;
}
int Machine::sandboxCheck(pid_t) {
  return -1;
}
Errno Machine::codeSigningFlags(pid_t, uint32_t &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::processGroup(pid_t, pid_t &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::sendSignal(pid_t, int) {
  return DARWIN_ENOTSUP;
}
Errno Machine::codeSignature(pid_t, std::vector<uint8_t> &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::containerPath(pid_t, std::string &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::applicationState(pid_t, int32_t &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::arguments(pid_t, ProcessArguments &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::region(pid_t, uint64_t, darwin::proc_regionwithpathinfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::stackshot(pid_t, uint64_t, std::vector<uint8_t> &) {
  return DARWIN_ENOTSUP;
}

Errno Machine::taskPort(pid_t) {
  return DARWIN_ENOTSUP;
}
Errno Machine::taskNamePort(pid_t) {
  return DARWIN_ENOTSUP;
}
Errno Machine::kernelTaskPort() {
  return DARWIN_ENOTSUP;
}
Errno Machine::threadRegisters(pid_t, uint64_t, ThreadRegisters &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::readMemory(pid_t, uint64_t, size_t, void *) {
  return DARWIN_ENOTSUP;
}

Errno Machine::descriptors(pid_t, size_t, std::vector<darwin::proc_fdinfo> &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::descriptorTableSize(pid_t, size_t &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::descriptorType(pid_t, int, uint32_t &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::vnodeDescriptor(pid_t, int, darwin::vnode_fdinfowithpath &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::socketDescriptor(pid_t, int, darwin::socket_fdinfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::semaphoreDescriptor(pid_t, int, darwin::psem_fdinfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::sharedMemoryDescriptor(pid_t, int, darwin::pshm_fdinfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::pipeDescriptor(pid_t, int, darwin::pipe_fdinfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::kqueueDescriptor(pid_t, int, darwin::kqueue_fdinfo &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::kqueueEvents(pid_t, int, std::vector<darwin::kevent_extinfo> &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::channelDescriptor(pid_t, int, darwin::channel_fdinfo &) {
  return DARWIN_ENOTSUP;
}

Errno Machine::memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::memoryStatusLevel(unsigned int &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::memoryPressure(bool, uint32_t, uint32_t &, uint32_t &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::processEvents(std::unique_ptr<ProcessEvents> &) {
  return DARWIN_ENOTSUP;
}

bool Machine::hasGestalt() {
  return false;
}
Errno Machine::gestaltAnswer(std::string_view, GestaltAnswer &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::powerStatus(PowerStatus &) {
  return DARWIN_ENOTSUP;
}

Errno Machine::kernelExtensions(std::vector<std::string> &) {
  return DARWIN_ENOTSUP;
}

Errno Machine::hostBasicInfo(darwin::host_basic_info &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::virtualMemory(darwin::vm_statistics64 &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::processorCount(unsigned int &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::processorLoad(unsigned int, darwin::processor_cpu_load_info &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::bootTime(darwin::timeval &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::loadAverage(darwin::loadavg &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::swapUsage(darwin::xsw_usage &) {
  return DARWIN_ENOTSUP;
}

Errno Machine::networkStatistics() {
  return DARWIN_ENOTSUP;
}
Errno Machine::networkSources(std::vector<NetworkSource> &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::interfaces(std::vector<NetworkInterface> &) {
  return DARWIN_ENOTSUP;
}
Errno Machine::wirelessNetwork(const std::string &, WirelessNetwork &) {
  return DARWIN_ENOTSUP;
}

}  // namespace host
