// What this machine says of its processes and their threads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/linux/shared_processes.h"
#include "host/linux/stackshot.h"
#include "host/machine/confinement.h"
#include "host/machine/processes.h"
#include "host/snapshot.h"

namespace host::linux_machine {

class LinuxProcesses : public virtual ProcessQuestions, public virtual ConfinementQuestions {
 public:
  // `processes` outlive this, so for all parts of the machine.
  explicit LinuxProcesses(SharedProcesses &processes) : shared_(processes) {}

  // Begins a pass: what may be remembered for one only is dropped, and so are processes that are
  // gone.
  Errno processIDs(std::vector<int32_t> &pids) override;
  // Of zombies, too.
  Errno taskAllInfo(pid_t pid, darwin::proc_taskallinfo &info) override;
  Errno bsdInfo(pid_t pid, bool zombies, darwin::proc_bsdinfo &info) override;
  Errno executablePath(pid_t pid, std::string &path) override;
  Errno arguments(pid_t pid, ProcessArguments &arguments) override;
  Errno coalition(pid_t pid, darwin::proc_pidcoalitioninfo &info) override;
  Errno resourceUsage(pid_t pid, darwin::rusage_info_v4 &usage) override;
  Errno applicationState(pid_t pid, int32_t &state) override;
  Errno workQueue(pid_t pid, darwin::proc_workqueueinfo &info) override;
  // Handles are thread IDs.
  Errno threadHandles(pid_t pid, std::vector<uint64_t> &handles) override;
  Errno threadInfo(pid_t pid, uint64_t handle, darwin::proc_threadinfo &info) override;
  Errno threadIDs(pid_t pid, std::vector<uint64_t> &ids) override;
  Errno threadInfoByID(pid_t pid, uint64_t id, darwin::proc_threadinfo &info) override;
  Errno sendSignal(pid_t pid, int signal) override;
  Errno stackshot(pid_t pid, uint64_t flags, std::vector<uint8_t> &snapshot) override;

  Errno codeSigningFlags(pid_t pid, uint32_t &flags) override;
  int sandboxCheck(pid_t pid) override;
  Errno containerPath(pid_t pid, std::string &path) override;

 private:
  // Of the present process, with its threads, which hold until the next reading. Under the lock.
  Errno readTask(ProcessStatus &status, std::vector<ThreadReading> *&threads);
  Errno describeForStackshot(pid_t pid, StackshotTask &task);
  Errno describeForStackshot(Snapshot &snapshot);
  Errno findThread(pid_t pid, uint64_t id, bool anew, ThreadReading *&thread);

  SharedProcesses &shared_;
};

}  // namespace host::linux_machine
