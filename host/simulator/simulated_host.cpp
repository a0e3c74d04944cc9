#include "host/simulator/simulated_host.h"

#include "host/simulator/host_answers.h"
#include "host/simulator/wide.h"

namespace host::simulator {

Errno SimulatedHost::hostBasicInfo(darwin::host_basic_info &info) {
  return device_.ask(Question::hostBasicInfo,
                     [&](const Moment &at) { fillBasicInfo(at.device().hardware, info); });
}

Errno SimulatedHost::virtualMemory(darwin::vm_statistics64 &statistics) {
  return device_.ask(Question::virtualMemory, [&](const Moment &at) {
    fillVirtualMemory(at.device().memory, at.now, statistics);
  });
}

Errno SimulatedHost::processorCount(unsigned int &count) {
  return device_.ask(Question::processorCount, [&](const Moment &at) {
    count = saturate<unsigned int>(at.device().hardware.processors.size());
  });
}

Errno SimulatedHost::processorLoad(unsigned int processor, darwin::processor_cpu_load_info &load) {
  return device_.ask(Question::processorLoad, [&](const Moment &at) -> Errno {
    const auto &processors = at.device().hardware.processors;
    if (processor >= processors.size()) return darwin::DARWIN_EINVAL;
    fillProcessorLoad(processors[processor], at.now, load);
    return kAnswered;
  });
}

Errno SimulatedHost::bootTime(darwin::timeval &time) {
  return device_.ask(Question::bootTime, [&](const Moment &at) {
    fillBootTime(at.state.clock(), at.device().clock.up, time);
  });
}

Errno SimulatedHost::loadAverage(darwin::loadavg &averages) {
  return device_.ask(Question::loadAverage, [&](const Moment &at) {
    fillLoadAverage(at.device().loadAverages, at.now, averages);
  });
}

// A kernel that does not swap says 0 throughout.
Errno SimulatedHost::swapUsage(darwin::xsw_usage &usage) {
  return device_.ask(Question::swapUsage, [&](const Moment &at) {
    const std::optional<Swap> &swap = at.device().swap;
    usage = {};
    if (swap) fillSwapUsage(*swap, at.now, at.pageSize(), usage);
  });
}

}  // namespace host::simulator
