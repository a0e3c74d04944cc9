#include "host/linux/shared_processes.h"
#include "host/darwin/errors.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace host::linux_machine {

SharedProcesses::SharedProcesses(FileHandle procDirectory)
    : proc(std::move(procDirectory)), present(proc.get(), known) {}

Errno SharedProcesses::list(std::vector<int32_t> &pids) {
  std::vector<int32_t> listed;
  Errno error = lister.readNumbers(proc.get(), listed);
  if (error != kAnswered) return error;
  std::sort(listed.begin(), listed.end(), std::greater<>());
  pids = std::move(listed);
  return kAnswered;
}

void SharedProcesses::beginPass(const std::vector<int32_t> &pids) {
  present.release();
  known.keepOnly(pids);
  descriptors.beginPass();
}

Errno SharedProcesses::checkLive() {
  return present.stat().isZombie() ? darwin::DARWIN_ESRCH : present.checkAccess();
}

Errno SharedProcesses::readLive(pid_t pid) {
  Errno error = present.read(pid);
  return error == kAnswered ? checkLive() : error;
}

Errno SharedProcesses::readLiveFor(pid_t pid, Question question) {
  Errno error = present.readFor(pid, question);
  return error == kAnswered ? checkLive() : error;
}

Errno SharedProcesses::holdLive(pid_t pid) {
  Errno error = present.hold(pid);
  return error == kAnswered ? checkLive() : error;
}

Errno SharedProcesses::holdUserProcess(pid_t pid) {
  Errno error = holdLive(pid);
  if (error == kAnswered && present.stat().isKernelThread()) error = darwin::DARWIN_EPERM;
  return error;
}

}  // namespace host::linux_machine
