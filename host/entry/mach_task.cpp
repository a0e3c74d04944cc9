// Mach calls about tasks: their ports, what is known of them, their threads and memory.
#include "darwin/mach_task.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <type_traits>
#include <variant>
#include <vector>

#include "darwin/mach_vm.h"
#include "host/darwin/errors.h"
#include "host/darwin/mach_host.h"
#include "host/darwin/thread_state.h"
#include "host/entry/answer.h"
#include "host/entry/ports.h"
#include "host/machine/kernel.h"
#include "host/machine/processes.h"
#include "host/machine/tasks.h"

darwin::mach_port_t darwin::mach_task_self_ = 0x403;

namespace host {

namespace {

using darwin::KERN_FAILURE;
using darwin::KERN_INVALID_ADDRESS;
using darwin::KERN_INVALID_ARGUMENT;
using darwin::KERN_RESOURCE_SHORTAGE;
using darwin::kern_return_t;
using darwin::KERN_SUCCESS;
using darwin::mach_msg_type_number_t;
using darwin::mach_port_name_t;
using darwin::mach_port_t;
using darwin::MACH_SEND_INVALID_DEST;

constexpr kern_return_t kInvalidName = 15;
// Words of the older forms of a region, which a caller with less room is given.
constexpr mach_msg_type_number_t kOldRegionCount = 16;
constexpr mach_msg_type_number_t kReusableRegionCount = 17;
// The first kernels that have more words than those.
constexpr KernelFamily kHasFullObjectIDs = 6153;

// As guarded(), for a call that answers in Mach's numbers; an exception means that memory ran out.
template <typename Call>
kern_return_t answered(Call &&call) noexcept {
  kern_return_t result = KERN_RESOURCE_SHORTAGE;
  guarded([&]() -> Errno {
    result = call();
    return kAnswered;
  });
  return result;
}

// The process behind a port of the wanted kind.
kern_return_t checkPort(mach_port_t name, PortKind kind, ProcessPort &port) {
  const std::optional<ProcessPort> found = findPort(name);
  if (!found) return MACH_SEND_INVALID_DEST;
  if (found->kind != kind) return KERN_INVALID_ARGUMENT;
  port = *found;
  return KERN_SUCCESS;
}

kern_return_t givePort(Errno error, const ProcessPort &port, mach_port_name_t *name) {
  if (error != kAnswered) return KERN_FAILURE;
  *name = openPort(port);
  return KERN_SUCCESS;
}

// Puts the ports into memory of the caller's own, as a message from the kernel arrives.
kern_return_t giveThreads(pid_t pid, const std::vector<uint64_t> &threads,
                          darwin::thread_act_array_t *list, mach_msg_type_number_t *count) {
  *list = nullptr;
  *count = 0;
  if (threads.empty()) return KERN_SUCCESS;
  const size_t bytes = threads.size() * sizeof(darwin::thread_act_t);
  void *memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return KERN_RESOURCE_SHORTAGE;
  auto *ports = static_cast<darwin::thread_act_t *>(memory);
  for (const uint64_t thread : threads) *ports++ = openPort({PortKind::kThread, pid, thread});
  *list = static_cast<darwin::thread_act_array_t>(memory);
  *count = static_cast<mach_msg_type_number_t>(threads.size());
  return KERN_SUCCESS;
}

kern_return_t giveState(const void *state, mach_msg_type_number_t words, darwin::thread_state_t out,
                        mach_msg_type_number_t *count) {
  if (*count < words) return KERN_INVALID_ARGUMENT;
  std::memcpy(out, state, words * sizeof *out);
  *count = words;
  return KERN_SUCCESS;
}

// Either word size, behind two words that say which one it is.
template <typename State>
kern_return_t giveUnifiedState(int flavour, const State &state, darwin::thread_state_t out,
                               mach_msg_type_number_t *count) {
  darwin::natural_t unified[darwin::ARM_UNIFIED_THREAD_STATE_COUNT] = {};
  unified[0] = static_cast<darwin::natural_t>(flavour);
  unified[1] = sizeof state / sizeof *out;
  std::memcpy(unified + 2, &state, sizeof state);
  return giveState(unified, darwin::ARM_UNIFIED_THREAD_STATE_COUNT, out, count);
}

kern_return_t giveRegisters(const ThreadRegisters &registers, int flavour,
                            darwin::thread_state_t out, mach_msg_type_number_t *count) {
  const auto *wide = std::get_if<darwin::arm_thread_state64_t>(&registers);
  const auto *narrow = std::get_if<darwin::arm_thread_state32_t>(&registers);
  if (flavour == darwin::ARM_THREAD_STATE && *count >= darwin::ARM_UNIFIED_THREAD_STATE_COUNT) {
    return wide != nullptr ? giveUnifiedState(darwin::ARM_THREAD_STATE64, *wide, out, count)
                           : giveUnifiedState(darwin::ARM_THREAD_STATE32, *narrow, out, count);
  }
  if (flavour == darwin::ARM_THREAD_STATE64 && wide != nullptr) {
    return giveState(wide, darwin::ARM_THREAD_STATE64_COUNT, out, count);
  }
  const bool is32Bit = flavour == darwin::ARM_THREAD_STATE || flavour == darwin::ARM_THREAD_STATE32;
  if (is32Bit && narrow != nullptr) {
    return giveState(narrow, darwin::ARM_THREAD_STATE32_COUNT, out, count);
  }
  return KERN_INVALID_ARGUMENT;
}

darwin::vm_region_submap_info_64 submapInfo(const darwin::proc_regionwithpathinfo &found) {
  const darwin::proc_regioninfo &region = found.prp_prinfo;
  darwin::vm_region_submap_info_64 info{};
  info.protection = static_cast<darwin::vm_prot_t>(region.pri_protection);
  info.max_protection = static_cast<darwin::vm_prot_t>(region.pri_max_protection);
  info.inheritance = region.pri_inheritance;
  info.offset = region.pri_offset;
  info.user_tag = region.pri_user_tag;
  info.pages_resident = region.pri_pages_resident;
  info.pages_shared_now_private = region.pri_pages_shared_now_private;
  info.pages_swapped_out = region.pri_pages_swapped_out;
  info.pages_dirtied = region.pri_pages_dirtied;
  info.ref_count = region.pri_ref_count;
  info.shadow_depth = static_cast<uint16_t>(region.pri_shadow_depth);
  info.external_pager = found.prp_vip.vip_path[0] != '\0' ? 1 : 0;
  info.share_mode = static_cast<uint8_t>(region.pri_share_mode);
  info.behavior = static_cast<int32_t>(region.pri_behavior);
  info.object_id = region.pri_obj_id;
  info.user_wired_count = static_cast<uint16_t>(region.pri_user_wired_count);
  info.object_id_full = region.pri_obj_id;
  return info;
}

// How many words of a region a caller with that room is given; 0 for too little.
mach_msg_type_number_t regionWords(mach_msg_type_number_t room) {
  if (room >= darwin::VM_REGION_SUBMAP_INFO_COUNT_64 &&
      kernel().kernelFamily() >= kHasFullObjectIDs) {
    return darwin::VM_REGION_SUBMAP_INFO_COUNT_64;
  }
  if (room >= kReusableRegionCount) return kReusableRegionCount;
  return room >= kOldRegionCount ? kOldRegionCount : 0;
}

}  // namespace

}  // namespace host

darwin::kern_return_t darwin::task_for_pid(mach_port_name_t, int pid, mach_port_name_t *task) {
  *task = DARWIN_MACH_PORT_NULL;
  if (pid == 0) return KERN_FAILURE;
  return host::answered([&] {
    return host::givePort(host::tasks().taskPort(pid), {host::PortKind::kTask, pid, 0}, task);
  });
}

darwin::kern_return_t darwin::task_name_for_pid(mach_port_name_t, int pid, mach_port_name_t *name) {
  *name = DARWIN_MACH_PORT_NULL;
  return host::answered([&] {
    return host::givePort(host::tasks().taskNamePort(pid), {host::PortKind::kTaskName, pid, 0},
                          name);
  });
}

// Nothing is known of what other tasks did to one.
darwin::kern_return_t darwin::task_info(
    task_name_t task, task_flavor_t flavor, task_info_t,
    mach_msg_type_number_t *count) {  // NOLINT(readability-non-const-parameter)
  return host::answered([&] {
    const std::optional<host::ProcessPort> port = host::findPort(task);
    if (!port) return host::MACH_SEND_INVALID_DEST;
    const bool isAnswerable = port->kind != host::PortKind::kThread && flavor == TASK_EXTMOD_INFO &&
                              *count >= sizeof(task_extmod_info) / sizeof(natural_t);
    return isAnswerable ? host::KERN_FAILURE : host::KERN_INVALID_ARGUMENT;
  });
}

darwin::kern_return_t darwin::task_threads(task_t task, thread_act_array_t *list,
                                           mach_msg_type_number_t *n) {
  return host::answered([&] {
    host::ProcessPort port;
    const kern_return_t known = host::checkPort(task, host::PortKind::kTask, port);
    if (known != KERN_SUCCESS) return known;
    std::vector<uint64_t> threads;
    if (host::processes().threadIDs(port.pid, threads) != host::kAnswered) return KERN_FAILURE;
    return host::giveThreads(port.pid, threads, list, n);
  });
}

darwin::kern_return_t darwin::act_get_state(thread_act_t thread, int flavor, thread_state_t out,
                                            mach_msg_type_number_t *count) {
  return host::answered([&] {
    host::ProcessPort port;
    const kern_return_t known = host::checkPort(thread, host::PortKind::kThread, port);
    if (known != KERN_SUCCESS) return known;
    host::ThreadRegisters registers;
    if (host::tasks().threadRegisters(port.pid, port.thread, registers) != host::kAnswered) {
      return KERN_FAILURE;
    }
    return host::giveRegisters(registers, flavor, out, count);
  });
}

darwin::kern_return_t darwin::mach_port_deallocate(task_t, mach_port_name_t name) {
  return host::answered(
      [&] { return host::closePort(name) ? host::KERN_SUCCESS : host::kInvalidName; });
}

darwin::kern_return_t darwin::vm_region_recurse_64(vm_map_t task, vm_address_t *address,
                                                   vm_size_t *size, natural_t *depth,
                                                   vm_region_recurse_info_t info,
                                                   mach_msg_type_number_t *count) {
  return host::answered([&] {
    host::ProcessPort port;
    const kern_return_t known = host::checkPort(task, host::PortKind::kTask, port);
    if (known != KERN_SUCCESS) return known;
    const mach_msg_type_number_t words = host::regionWords(*count);
    if (words == 0) return KERN_INVALID_ARGUMENT;
    proc_regionwithpathinfo found{};
    if (host::tasks().region(port.pid, *address, found) != host::kAnswered) {
      return KERN_INVALID_ADDRESS;
    }
    const vm_region_submap_info_64 region = host::submapInfo(found);
    std::memcpy(info, &region, words * sizeof *info);
    *count = words;
    *address = found.prp_prinfo.pri_address;
    *size = found.prp_prinfo.pri_size;
    *depth = std::min(*depth, found.prp_prinfo.pri_depth);
    return KERN_SUCCESS;
  });
}

darwin::kern_return_t darwin::mach_vm_read_overwrite(vm_map_t task, mach_vm_address_t address,
                                                     mach_vm_size_t size, mach_vm_address_t data,
                                                     mach_vm_size_t *outsize) {
  return host::answered([&] {
    host::ProcessPort port;
    const kern_return_t known = host::checkPort(task, host::PortKind::kTask, port);
    if (known != KERN_SUCCESS) return known;
    if (size > std::numeric_limits<uint64_t>::max() - address) return KERN_INVALID_ADDRESS;
    const host::Errno error =
        host::tasks().readMemory(port.pid, address, size, reinterpret_cast<void *>(data));
    if (error == DARWIN_EFAULT) return KERN_INVALID_ADDRESS;
    if (error != host::kAnswered) return KERN_FAILURE;
    *outsize = size;
    return KERN_SUCCESS;
  });
}

darwin::kern_return_t darwin::host_page_size(host_t, vm_size_t *size) {
  *size = host::kernel().pageSize();
  return host::KERN_SUCCESS;
}

darwin::kern_return_t darwin::mach_vm_page_range_query(vm_map_t task, mach_vm_address_t address,
                                                       mach_vm_size_t size,
                                                       mach_vm_address_t dispositions,
                                                       mach_vm_size_t *count) {
  return host::answered([&] {
    host::ProcessPort port;
    const kern_return_t known = host::checkPort(task, host::PortKind::kTask, port);
    if (known != KERN_SUCCESS) return known;
    const uint64_t page = host::kernel().pageSize();
    const uint64_t start = address & ~(page - 1);
    const uint64_t end = (address + size + page - 1) & ~(page - 1);
    if (end < start || end - start < size) return KERN_INVALID_ARGUMENT;
    const uint64_t pages = std::min((end - start) / page, *count);
    const host::Errno error =
        host::tasks().pages(port.pid, start, pages, reinterpret_cast<int *>(dispositions));
    if (error != host::kAnswered) return KERN_FAILURE;
    *count = pages;
    return KERN_SUCCESS;
  });
}

darwin::kern_return_t darwin::vm_deallocate(vm_map_t, vm_address_t address, vm_size_t size) {
  return host::answered([&] {
    return size == 0 || munmap(reinterpret_cast<void *>(address), size) == 0
               ? host::KERN_SUCCESS
               : host::KERN_INVALID_ADDRESS;
  });
}
