// Mach calls about the host: which ports they take, how many words each flavour needs and gives.
#include "host/darwin/mach_host.h"

#include <sys/mman.h>

#include <atomic>
#include <cstring>

#include "host/entry/answer.h"
#include "host/entry/ports.h"
#include "host/machine/host_figures.h"
#include "host/machine/kernel.h"
#include "host/machine/tasks.h"

namespace host {

namespace {

using darwin::KERN_FAILURE;
using darwin::KERN_INVALID_ARGUMENT;
using darwin::KERN_RESOURCE_SHORTAGE;
using darwin::kern_return_t;
using darwin::KERN_SUCCESS;
using darwin::mach_msg_type_number_t;
using darwin::mach_port_t;
using darwin::MACH_SEND_INVALID_DEST;

// Words of the older, shorter forms, which the kernel still gives to a caller with less room.
constexpr mach_msg_type_number_t kOldBasicInfoCount = 5;
constexpr mach_msg_type_number_t kOldVirtualMemoryCount = 24;
// The first kernels that have the longer form of the latter.
constexpr KernelFamily kCountsCompression = 2422;

// How many processor ports were given out: a number beyond them names no port.
std::atomic<unsigned int> g_processorPorts{0};

bool isProcessorPort(mach_port_t port) {
  return port >= kFirstProcessorPort &&
         port - kFirstProcessorPort < g_processorPorts.load(std::memory_order_relaxed);
}

// Only a privileged caller holds the privileged port, so that for others its number is no port.
bool isHostPort(mach_port_t port) {
  return port == kHostPort || (port == kPrivilegedHostPort && callerIsPrivileged());
}

bool isPort(mach_port_t port) {
  return isHostPort(port) || port == kProcessorSetPort || isProcessorPort(port);
}

kern_return_t checkHostPort(mach_port_t port) {
  if (!isPort(port)) return MACH_SEND_INVALID_DEST;
  return isHostPort(port) ? KERN_SUCCESS : KERN_INVALID_ARGUMENT;
}

kern_return_t checkPrivilegedPort(mach_port_t port) {
  if (!isPort(port)) return MACH_SEND_INVALID_DEST;
  return port == kPrivilegedHostPort ? KERN_SUCCESS : KERN_INVALID_ARGUMENT;
}

// Asks for the whole structure and gives its first `words` words.
template <typename T, typename... Needs>
kern_return_t giveWords(Errno (HostQuestions::*question)(Needs..., T &), Needs... needs,
                        mach_msg_type_number_t words, darwin::integer_t *out,
                        mach_msg_type_number_t *count) {
  T answer{};
  const Errno error = guarded([&] { return (hostFigures().*question)(needs..., answer); });
  if (error != kAnswered) return KERN_FAILURE;
  std::memcpy(out, &answer, words * sizeof(darwin::integer_t));
  *count = words;
  return KERN_SUCCESS;
}

// Gives `count` consecutive port names in memory of the caller's own, as the kernel maps it.
kern_return_t givePorts(mach_port_t first, unsigned int count, mach_port_t **list,
                        mach_msg_type_number_t *n) {
  const size_t bytes = count * sizeof(mach_port_t);
  void *memory = MAP_FAILED;
  const Errno error = guarded([&]() -> Errno {
    memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return kAnswered;
  });
  if (error != kAnswered || memory == MAP_FAILED) return KERN_RESOURCE_SHORTAGE;
  mach_port_t *ports = static_cast<mach_port_t *>(memory);
  for (unsigned int i = 0; i < count; ++i) ports[i] = first + i;
  *list = ports;
  *n = count;
  return KERN_SUCCESS;
}

}  // namespace

}  // namespace host

darwin::mach_port_t darwin::mach_host_self(void) {
  return host::callerIsPrivileged() ? host::kPrivilegedHostPort : host::kHostPort;
}

darwin::kern_return_t darwin::mach_timebase_info(mach_timebase_info_data_t *info) {
  *info = host::kernel().timebase();
  return KERN_SUCCESS;
}

darwin::kern_return_t darwin::host_info(host_t host, host_flavor_t flavor, host_info_t out,
                                        mach_msg_type_number_t *count) {
  const kern_return_t refused = host::checkHostPort(host);
  if (refused != KERN_SUCCESS) return refused;
  if (flavor != HOST_BASIC_INFO) return KERN_INVALID_ARGUMENT;
  if (out == nullptr || count == nullptr) return KERN_INVALID_ADDRESS;
  if (*count < host::kOldBasicInfoCount) return KERN_FAILURE;
  return host::giveWords(
      &host::HostQuestions::hostBasicInfo,
      *count < HOST_BASIC_INFO_COUNT ? host::kOldBasicInfoCount : HOST_BASIC_INFO_COUNT, out,
      count);
}

darwin::kern_return_t darwin::host_statistics64(host_t host, host_flavor_t flavor,
                                                host_info64_t out, mach_msg_type_number_t *count) {
  const kern_return_t refused = host::checkHostPort(host);
  if (refused != KERN_SUCCESS) return refused;
  if (flavor != HOST_VM_INFO64) return KERN_INVALID_ARGUMENT;
  if (out == nullptr || count == nullptr) return KERN_INVALID_ADDRESS;
  if (*count < host::kOldVirtualMemoryCount) return KERN_FAILURE;
  const bool isLong =
      *count >= HOST_VM_INFO64_COUNT && host::kernel().kernelFamily() >= host::kCountsCompression;
  return host::giveWords(&host::HostQuestions::virtualMemory,
                         isLong ? HOST_VM_INFO64_COUNT : host::kOldVirtualMemoryCount, out, count);
}

// Only the port that leads to the kernel's task is asked for; the other slots are empty here.
darwin::kern_return_t darwin::host_get_special_port(host_t host, int node, int which,
                                                    mach_port_t *port) {
  const kern_return_t known = host::checkPrivilegedPort(host);
  if (known != KERN_SUCCESS) return known;
  if (node != HOST_LOCAL_NODE || which <= 0) return KERN_INVALID_ARGUMENT;
  *port = DARWIN_MACH_PORT_NULL;
  if (which != DARWIN_HOST_KERNEL_PORT) return KERN_SUCCESS;
  host::guarded([&]() -> host::Errno {
    const host::Errno error = host::tasks().kernelTaskPort();
    if (error == host::kAnswered) *port = host::openPort({host::PortKind::kTask, 0, 0});
    return error;
  });
  return KERN_SUCCESS;
}

darwin::kern_return_t darwin::host_processors(host_t host, processor_array_t *list,
                                              mach_msg_type_number_t *n) {
  const kern_return_t refused = host::checkPrivilegedPort(host);
  if (refused != KERN_SUCCESS) return refused;
  if (list == nullptr || n == nullptr) return KERN_INVALID_ADDRESS;
  unsigned int count = 0;
  const host::Errno error =
      host::guarded([&] { return host::hostFigures().processorCount(count); });
  if (error != host::kAnswered || count == 0 || count > host::kMostProcessors) return KERN_FAILURE;
  const kern_return_t given = host::givePorts(host::kFirstProcessorPort, count, list, n);
  if (given == KERN_SUCCESS) host::g_processorPorts.store(count, std::memory_order_relaxed);
  return given;
}

darwin::kern_return_t darwin::host_processor_sets(host_t host, processor_set_name_array_t *list,
                                                  mach_msg_type_number_t *n) {
  const kern_return_t refused = host::checkPrivilegedPort(host);
  if (refused != KERN_SUCCESS) return refused;
  if (list == nullptr || n == nullptr) return KERN_INVALID_ADDRESS;
  return host::givePorts(host::kProcessorSetPort, 1, list, n);
}

darwin::kern_return_t darwin::processor_info(processor_t processor, processor_flavor_t flavor,
                                             host_t *host, processor_info_t out,
                                             mach_msg_type_number_t *count) {
  if (!host::isPort(processor)) return MACH_SEND_INVALID_DEST;
  if (!host::isProcessorPort(processor)) return KERN_INVALID_ARGUMENT;
  if (flavor != PROCESSOR_CPU_LOAD_INFO) return KERN_INVALID_ARGUMENT;
  if (host == nullptr || out == nullptr || count == nullptr) return KERN_INVALID_ADDRESS;
  if (*count < PROCESSOR_CPU_LOAD_INFO_COUNT) return KERN_FAILURE;
  const kern_return_t given = host::giveWords<processor_cpu_load_info, unsigned int>(
      &host::HostQuestions::processorLoad, processor - host::kFirstProcessorPort,
      PROCESSOR_CPU_LOAD_INFO_COUNT, out, count);
  if (given == KERN_SUCCESS) *host = host::kHostPort;
  return given;
}
