// Another task's memory: where its regions are and what is in them. The regions' files and tags are
// told by proc_info.h.
#pragma once

#include "darwin/layout.h"
#include "darwin/mach_host.h"

namespace darwin {

using vm_map_t = mach_port_t;
using vm_prot_t = int32_t;
using vm_address_t = unsigned long;
using vm_size_t = unsigned long;
using mach_vm_address_t = uint64_t;
using mach_vm_size_t = uint64_t;
using vm_region_recurse_info_t = int *;

// Pages are the kernel's. Kernels before the 6153 family end with pages_reusable.
#pragma pack(push, 4)
struct vm_region_submap_info_64 {
  vm_prot_t protection;
  vm_prot_t max_protection;
  uint32_t inheritance;
  uint64_t offset;
  uint32_t user_tag;
  uint32_t pages_resident;
  uint32_t pages_shared_now_private;
  uint32_t pages_swapped_out;
  uint32_t pages_dirtied;
  uint32_t ref_count;
  uint16_t shadow_depth;
  uint8_t external_pager;
  uint8_t share_mode;
  boolean_t is_submap;
  int32_t behavior;
  uint32_t object_id;
  uint16_t user_wired_count;
  uint16_t flags;
  uint32_t pages_reusable;
  uint64_t object_id_full;
};
DARWIN_LAYOUT(vm_region_submap_info_64, 76, 4, (protection, 0), (max_protection, 4),
              (inheritance, 8), (offset, 12), (user_tag, 20), (pages_resident, 24),
              (pages_shared_now_private, 28), (pages_swapped_out, 32), (pages_dirtied, 36),
              (ref_count, 40), (shadow_depth, 44), (external_pager, 46), (share_mode, 47),
              (is_submap, 48), (behavior, 52), (object_id, 56), (user_wired_count, 60), (flags, 62),
              (pages_reusable, 64), (object_id_full, 68));
#pragma pack(pop)

// In 32-bit words, as the call counts it.
constexpr mach_msg_type_number_t VM_REGION_SUBMAP_INFO_COUNT_64 =
    sizeof(vm_region_submap_info_64) / sizeof(natural_t);

constexpr vm_prot_t VM_PROT_READ = 1;

// Bits of what is known of a page; none of them is set for one that nobody has touched, in memory
// that the kernel itself fills with zeros.
constexpr int VM_PAGE_QUERY_PAGE_PRESENT = 0x1;
constexpr int VM_PAGE_QUERY_PAGE_PAGED_OUT = 0x10;
constexpr int VM_PAGE_QUERY_PAGE_EXTERNAL = 0x80;

extern "C" {

// The size of the kernel's pages in bytes.
kern_return_t host_page_size(host_t host, vm_size_t *size);

// Tells the region that contains *address, or the next one above it: *address comes back as its
// start, *size as its bytes. *depth says how deep to go into submaps and comes back as the depth
// found; *count is the room at info in 32-bit words and comes back as the words written.
// KERN_INVALID_ADDRESS past the last region; nothing is written on failure.
kern_return_t vm_region_recurse_64(vm_map_t task, vm_address_t *address, vm_size_t *size,
                                   natural_t *depth, vm_region_recurse_info_t info,
                                   mach_msg_type_number_t *count);

// Copies size bytes at the task's address to data, an address in the caller; *outsize becomes the
// bytes copied. All or nothing: KERN_INVALID_ADDRESS or KERN_PROTECTION_FAILURE where a page is
// missing or may not be read.
kern_return_t mach_vm_read_overwrite(vm_map_t task, mach_vm_address_t address, mach_vm_size_t size,
                                     mach_vm_address_t data, mach_vm_size_t *outsize);

// Tells of each of the task's pages from `address` on, of `size` bytes widened to whole pages, what
// is known of it: VM_PAGE_QUERY_*, one int for each, at dispositions, an address in the caller.
// *count is the room in ints and comes back as the pages told of. No page is brought in.
kern_return_t mach_vm_page_range_query(vm_map_t task, mach_vm_address_t address,
                                       mach_vm_size_t size, mach_vm_address_t dispositions,
                                       mach_vm_size_t *count);
using mach_vm_page_range_query_function = decltype(&mach_vm_page_range_query);

// Gives back memory of the task's, such as what a call has mapped into the caller.
kern_return_t vm_deallocate(vm_map_t task, vm_address_t address, vm_size_t size);

}  // extern "C"

}  // namespace darwin
