#include "host/simulator/simulated_kernel.h"

#include <algorithm>
#include <iterator>

namespace host::simulator {

namespace {

constexpr std::string_view kGestalt = "MGCopyAnswerWithError";
constexpr std::string_view kOptionalEntryPoints[] = {"memorystatus_get_level", "proc_pid_rusage",
                                                     "mach_vm_page_range_query", kGestalt};

}  // namespace

Errno SimulatedKernel::kernelName(KernelName &name) {
  return device_.ask(Question::kernelName, [&](const Moment &at) {
    const Kernel &kernel = at.device().kernel;
    name = {"Darwin", kernel.node, kernel.release, kernel.version, kernel.hardware};
  });
}

KernelFamily SimulatedKernel::kernelFamily() noexcept {
  return kernelFamilyOf(device_.description().kernel.version);
}

bool SimulatedKernel::namesKernelFamily() noexcept {
  return host::namesKernelFamily(device_.description().kernel.version);
}

uint64_t SimulatedKernel::pageSize() noexcept {
  return device_.description().kernel.pageSize;
}

darwin::mach_timebase_info_data_t SimulatedKernel::timebase() noexcept {
  const Kernel &kernel = device_.description().kernel;
  return {kernel.timebaseNumerator, kernel.timebaseDenominator};
}

bool SimulatedKernel::hasEntryPoint(std::string_view name) {
  const std::vector<std::string> &missing = device_.description().kernel.missing;
  if (name == kGestalt && !device_.description().gestalt) return false;
  const auto *known =
      std::find(std::begin(kOptionalEntryPoints), std::end(kOptionalEntryPoints), name);
  return known != std::end(kOptionalEntryPoints) &&
         std::find(missing.begin(), missing.end(), name) == missing.end();
}

Errno SimulatedKernel::kernelExtensions(std::vector<std::string> &identifiers) {
  return device_.ask(Question::kernelExtensions, [&](const Moment &at) {
    return giveIfThere(at.device().kernel.extensions, identifiers);
  });
}

bool SimulatedKernel::isPrivileged() {
  return callerUser() == kRoot;
}

uint32_t SimulatedKernel::callerUser() {
  return device_.description().caller;
}

int64_t SimulatedKernel::timeOfDay() {
  return device_.look([](const Moment &at) { return at.state.clock().timeOfDay(); });
}

void SimulatedKernel::wallClock(darwin::timeval &time) {
  time = device_.look([](const Moment &at) { return at.state.clock().wallTime(at.now); });
}

void SimulatedKernel::beginSample() {
  device_.beginSample();
}

}  // namespace host::simulator
