// Mach's base types, result codes, host structures and host calls beside the platform's.
// The two functions have a name in common, and take structures of their own.
#define mach_timebase_info our_mach_timebase_info
#include "host/darwin/mach_host.h"
#undef mach_timebase_info
#include "same.h"

#define NAMES(EACH)              \
  EACH(KERN_SUCCESS);            \
  EACH(KERN_INVALID_ADDRESS);    \
  EACH(KERN_INVALID_ARGUMENT);   \
  EACH(KERN_FAILURE);            \
  EACH(KERN_RESOURCE_SHORTAGE);  \
  EACH(MACH_SEND_INVALID_DEST);  \
  EACH(HOST_BASIC_INFO);         \
  EACH(HOST_VM_INFO64);          \
  EACH(HOST_LOCAL_NODE);         \
  EACH(PROCESSOR_CPU_LOAD_INFO); \
  EACH(CPU_STATE_MAX);           \
  EACH(CPU_STATE_USER);          \
  EACH(CPU_STATE_SYSTEM);        \
  EACH(CPU_STATE_IDLE);          \
  EACH(CPU_STATE_NICE);          \
  EACH(HOST_BASIC_INFO_COUNT);   \
  EACH(PROCESSOR_CPU_LOAD_INFO_COUNT)
#define PREFIXED_NAMES(EACH) EACH(MACH_PORT_NULL)

NAMES(KEEP);
PREFIXED_NAMES(KEEP_PREFIXED);

#include <mach/host_info.h>
#include <mach/kern_return.h>
#include <mach/mach.h>
#include <mach/mach_host.h>
#include <mach/mach_time.h>
#include <mach/message.h>
#include <mach/mig_errors.h>
#include <mach/processor_info.h>
#include <mach/vm_statistics.h>

NAMES(SAME_VALUE);
PREFIXED_NAMES(SAME_VALUE);

SAME_STRUCTURE(host_basic_info, max_cpus, avail_cpus, memory_size, cpu_type, cpu_subtype,
               cpu_threadtype, physical_cpu, physical_cpu_max, logical_cpu, logical_cpu_max,
               max_mem);
SAME_STRUCTURE(processor_cpu_load_info, cpu_ticks);
SAME_STRUCTURE(mach_timebase_info_data_t, numer, denom);

// Newer platforms count swapped pages behind what we ask for.
SAME_START(vm_statistics64, free_count, active_count, inactive_count, wire_count, zero_fill_count,
           reactivations, pageins, pageouts, faults, cow_faults, lookups, hits, purges,
           purgeable_count, speculative_count, decompressions, compressions, swapins, swapouts,
           compressor_page_count, throttled_count, external_page_count, internal_page_count,
           total_uncompressed_pages_in_compressor);
static_assert(offsetof(::vm_statistics64, swapped_count) == sizeof(darwin::vm_statistics64));

static_assert(std::is_same_v<::kern_return_t, darwin::kern_return_t>);
static_assert(std::is_same_v<::boolean_t, darwin::boolean_t>);
static_assert(std::is_same_v<::natural_t, darwin::natural_t>);
static_assert(std::is_same_v<::integer_t, darwin::integer_t>);
static_assert(std::is_same_v<::mach_msg_type_number_t, darwin::mach_msg_type_number_t>);
static_assert(std::is_same_v<::mach_port_t, darwin::mach_port_t>);
static_assert(std::is_same_v<::mach_port_name_t, darwin::mach_port_name_t>);
static_assert(std::is_same_v<::host_t, darwin::host_t>);
static_assert(std::is_same_v<::processor_t, darwin::processor_t>);
static_assert(std::is_same_v<::processor_set_name_t, darwin::processor_set_name_t>);
static_assert(std::is_same_v<::processor_array_t, darwin::processor_array_t>);
static_assert(std::is_same_v<::processor_set_name_array_t, darwin::processor_set_name_array_t>);
static_assert(std::is_same_v<::host_flavor_t, darwin::host_flavor_t>);
static_assert(std::is_same_v<::processor_flavor_t, darwin::processor_flavor_t>);
static_assert(std::is_same_v<::host_info_t, darwin::host_info_t>);
static_assert(std::is_same_v<::host_info64_t, darwin::host_info64_t>);
static_assert(std::is_same_v<::processor_info_t, darwin::processor_info_t>);
static_assert(std::is_same_v<::cpu_type_t, darwin::cpu_type_t>);
static_assert(std::is_same_v<::cpu_subtype_t, darwin::cpu_subtype_t>);
static_assert(std::is_same_v<::cpu_threadtype_t, darwin::cpu_threadtype_t>);

SAME_FUNCTION(mach_host_self);

template <typename Info>
using TellTimebase = darwin::kern_return_t(Info *);
static_assert(
    std::is_same_v<decltype(::mach_timebase_info), TellTimebase<::mach_timebase_info_data_t>>);
static_assert(std::is_same_v<decltype(darwin::our_mach_timebase_info),
                             TellTimebase<darwin::mach_timebase_info_data_t>>);
SAME_FUNCTION(host_info);
SAME_FUNCTION(host_statistics64);
SAME_FUNCTION(host_get_special_port);
SAME_FUNCTION(host_processors);
SAME_FUNCTION(host_processor_sets);
SAME_FUNCTION(processor_info);