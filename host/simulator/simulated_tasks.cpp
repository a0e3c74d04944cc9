#include "host/simulator/simulated_tasks.h"

#include "host/darwin/errors.h"
#include "host/simulator/memory_answers.h"
#include "host/simulator/process_answers.h"

namespace host::simulator {

Errno SimulatedTasks::taskPort(pid_t pid) {
  return device_.askProcess(Question::taskPort, Access::own, pid, [](const ProcessMoment &) {});
}

Errno SimulatedTasks::taskNamePort(pid_t pid) {
  return device_.askProcess(Question::taskNamePort, Access::own, pid, [](const ProcessMoment &) {});
}

Errno SimulatedTasks::kernelTaskPort() {
  return device_.ask(Question::kernelTaskPort, [](const Moment &at) -> Errno {
    return at.device().kernel.givesTask ? kAnswered : darwin::DARWIN_ENOTSUP;
  });
}

Errno SimulatedTasks::region(pid_t pid, uint64_t address, darwin::proc_regionwithpathinfo &info) {
  return device_.askProcess(Question::region, Access::own, pid,
                            [&](const ProcessMoment &at) -> Errno {
                              const Region *region = at.process.region(address);
                              if (region == nullptr) return darwin::DARWIN_EINVAL;
                              fillRegion(at.process, *region, at.now, at.pageSize(), info);
                              return kAnswered;
                            });
}

Errno SimulatedTasks::readMemory(pid_t pid, uint64_t address, size_t size, void *to) {
  return device_.askProcess(Question::readMemory, Access::own, pid, [&](const ProcessMoment &at) {
    return copyMemory(at.process, address, size, to);
  });
}

Errno SimulatedTasks::pages(pid_t pid, uint64_t address, size_t count, int *to) {
  return device_.askProcess(Question::pages, Access::own, pid, [&](const ProcessMoment &at) {
    tellPages(at.process, address, count, at.pageSize(), to);
    return kAnswered;
  });
}

Errno SimulatedTasks::threadRegisters(pid_t pid, uint64_t id, ThreadRegisters &registers) {
  return device_.askProcess(Question::threadRegisters, Access::own, pid,
                            [&](const ProcessMoment &at) -> Errno {
                              const Thread *thread = at.process.threadByID(id);
                              if (thread == nullptr) return darwin::DARWIN_ESRCH;
                              registers = registersOf(at.process, *thread);
                              return kAnswered;
                            });
}

}  // namespace host::simulator
