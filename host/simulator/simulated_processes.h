// What a simulated device says of its processes and their threads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/machine/confinement.h"
#include "host/machine/processes.h"
#include "host/simulator/live_device.h"

namespace host::simulator {

class SimulatedProcesses : public virtual ProcessQuestions, public virtual ConfinementQuestions {
 public:
  explicit SimulatedProcesses(LiveDevice &device) : device_(device) {}

  Errno processIDs(std::vector<int32_t> &pids) override;
  Errno taskAllInfo(pid_t pid, darwin::proc_taskallinfo &info) override;
  Errno bsdInfo(pid_t pid, bool zombies, darwin::proc_bsdinfo &info) override;
  Errno executablePath(pid_t pid, std::string &path) override;
  Errno arguments(pid_t pid, ProcessArguments &arguments) override;
  Errno coalition(pid_t pid, darwin::proc_pidcoalitioninfo &info) override;
  Errno resourceUsage(pid_t pid, darwin::rusage_info_v4 &usage) override;
  Errno applicationState(pid_t pid, int32_t &state) override;
  Errno processGroup(pid_t pid, pid_t &group) override;
  Errno workQueue(pid_t pid, darwin::proc_workqueueinfo &info) override;
  Errno threadHandles(pid_t pid, std::vector<uint64_t> &handles) override;
  Errno threadInfo(pid_t pid, uint64_t handle, darwin::proc_threadinfo &info) override;
  Errno threadIDs(pid_t pid, std::vector<uint64_t> &ids) override;
  Errno threadInfoByID(pid_t pid, uint64_t id, darwin::proc_threadinfo &info) override;
  Errno sendSignal(pid_t pid, int signal) override;
  // DARWIN_EINVAL for a process that is not there: callers have a message for that.
  Errno stackshot(pid_t pid, uint64_t flags, std::vector<uint8_t> &snapshot) override;

  Errno codeSigningFlags(pid_t pid, uint32_t &flags) override;
  Errno codeSignature(pid_t pid, std::vector<uint8_t> &blob) override;
  int sandboxCheck(pid_t pid) override;
  Errno containerPath(pid_t pid, std::string &path) override;

 private:
  template <typename T>
  Errno give(Question question, Access access, pid_t pid, T Process::*field, T &to);

  LiveDevice &device_;
};

}  // namespace host::simulator
