// Mach's base types and result codes, and the calls that ask the host about itself: processors,
// memory statistics, processor ticks. Calls on tasks and their memory are not here.
#pragma once

#include <cstdint>

#include "darwin/layout.h"

namespace darwin {

using kern_return_t = int32_t;
using boolean_t = int32_t;
using natural_t = uint32_t;
using integer_t = int32_t;
using mach_msg_type_number_t = natural_t;

using mach_port_t = uint32_t;
using mach_port_name_t = uint32_t;
using host_t = mach_port_t;
using processor_t = mach_port_t;
using processor_set_name_t = mach_port_t;
using processor_array_t = processor_t *;
using processor_set_name_array_t = processor_set_name_t *;

using host_flavor_t = integer_t;
using processor_flavor_t = integer_t;
using host_info_t = integer_t *;
using host_info64_t = integer_t *;
using processor_info_t = integer_t *;
using cpu_type_t = integer_t;
using cpu_subtype_t = integer_t;
using cpu_threadtype_t = integer_t;

constexpr mach_port_t DARWIN_MACH_PORT_NULL = 0;

constexpr kern_return_t KERN_SUCCESS = 0;
constexpr kern_return_t KERN_RESOURCE_SHORTAGE = 6;

constexpr host_flavor_t HOST_BASIC_INFO = 1;
constexpr host_flavor_t HOST_VM_INFO64 = 4;
constexpr processor_flavor_t PROCESSOR_CPU_LOAD_INFO = 2;

// Memory is in bytes; memory_size has no room for what machines have today, max_mem does.
#pragma pack(push, 4)
struct host_basic_info {
  int32_t max_cpus;
  int32_t avail_cpus;
  uint32_t memory_size;
  int32_t cpu_type;
  int32_t cpu_subtype;
  int32_t cpu_threadtype;
  int32_t physical_cpu;
  int32_t physical_cpu_max;
  int32_t logical_cpu;
  int32_t logical_cpu_max;
  uint64_t max_mem;
};
DARWIN_LAYOUT(host_basic_info, 48, 4, (max_cpus, 0), (avail_cpus, 4), (memory_size, 8),
              (cpu_type, 12), (cpu_subtype, 16), (cpu_threadtype, 20), (physical_cpu, 24),
              (physical_cpu_max, 28), (logical_cpu, 32), (logical_cpu_max, 36), (max_mem, 40));
#pragma pack(pop)

// Gauges and counters in pages of the kernel's page size; free_count includes speculative_count.
// Later kernels know more words at the end and write them only when asked for them.
struct vm_statistics64 {
  uint32_t free_count;
  uint32_t active_count;
  uint32_t inactive_count;
  uint32_t wire_count;
  uint64_t zero_fill_count;
  uint64_t reactivations;
  uint64_t pageins;
  uint64_t pageouts;
  uint64_t faults;
  uint64_t cow_faults;
  uint64_t lookups;
  uint64_t hits;
  uint64_t purges;
  uint32_t purgeable_count;
  uint32_t speculative_count;
  uint64_t decompressions;
  uint64_t compressions;
  uint64_t swapins;
  uint64_t swapouts;
  uint32_t compressor_page_count;
  uint32_t throttled_count;
  uint32_t external_page_count;
  uint32_t internal_page_count;
  uint64_t total_uncompressed_pages_in_compressor;
};
DARWIN_LAYOUT(vm_statistics64, 152, 8, (free_count, 0), (active_count, 4), (inactive_count, 8),
              (wire_count, 12), (zero_fill_count, 16), (reactivations, 24), (pageins, 32),
              (pageouts, 40), (faults, 48), (cow_faults, 56), (lookups, 64), (hits, 72),
              (purges, 80), (purgeable_count, 88), (speculative_count, 92), (decompressions, 96),
              (compressions, 104), (swapins, 112), (swapouts, 120), (compressor_page_count, 128),
              (throttled_count, 132), (external_page_count, 136), (internal_page_count, 140),
              (total_uncompressed_pages_in_compressor, 144));

constexpr int CPU_STATE_MAX = 4;

// Indices of cpu_ticks.
constexpr int CPU_STATE_USER = 0;
constexpr int CPU_STATE_SYSTEM = 1;
constexpr int CPU_STATE_IDLE = 2;
constexpr int CPU_STATE_NICE = 3;

// Nodes and numbers of host_get_special_port().
constexpr int HOST_LOCAL_NODE = -1;
constexpr int DARWIN_HOST_KERNEL_PORT = 4;  // a slot that stock kernels leave empty

// Nanoseconds per unit of the kernel's absolute time, as a fraction.
struct mach_timebase_info_data_t {
  uint32_t numer;
  uint32_t denom;
};
DARWIN_LAYOUT(mach_timebase_info_data_t, 8, 4, (numer, 0), (denom, 4));

// Ticks of 10 ms per state, wrapping at 2^32.
struct processor_cpu_load_info {
  uint32_t cpu_ticks[CPU_STATE_MAX];
};
DARWIN_LAYOUT(processor_cpu_load_info, 16, 4, (cpu_ticks, 0));

extern "C" {

// The caller's port for the host: the privileged one for root, else the plain one.
mach_port_t mach_host_self(void);

// Writes the fraction. Nothing can fail but the pointer.
kern_return_t mach_timebase_info(mach_timebase_info_data_t *info);

// Writes the flavour's words to out. *count is the room in 32-bit words (at most 68) and comes back
// as the words written. KERN_FAILURE when the room is too small, KERN_INVALID_ARGUMENT for an
// unknown flavour; nothing is written on failure.
kern_return_t host_info(host_t host, host_flavor_t flavor, host_info_t out,
                        mach_msg_type_number_t *count);

// Gives a port that the host keeps for a purpose; an empty slot gives port 0 and success.
// KERN_INVALID_ARGUMENT on the plain host port.
kern_return_t host_get_special_port(host_t host, int node, int which, mach_port_t *port);

// As host_info(), with room for at most 256 words.
kern_return_t host_statistics64(host_t host, host_flavor_t flavor, host_info64_t out,
                                mach_msg_type_number_t *count);

// Gives the ports of the processors in memory mapped into the caller, who owns both. *n is the
// number of ports. KERN_INVALID_ARGUMENT on the plain host port.
kern_return_t host_processors(host_t host, processor_array_t *list, mach_msg_type_number_t *n);

// Gives the ports of the processor sets (one), under the rules of host_processors().
kern_return_t host_processor_sets(host_t host, processor_set_name_array_t *list,
                                  mach_msg_type_number_t *n);

// As host_info(), about one processor; *host comes back as the port of its host.
kern_return_t processor_info(processor_t processor, processor_flavor_t flavor, host_t *host,
                             processor_info_t out, mach_msg_type_number_t *count);

}  // extern "C"

}  // namespace darwin
