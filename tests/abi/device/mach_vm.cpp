// Another task's memory beside the platform's. mach_vm_read_overwrite() and
// mach_vm_page_range_query() are not in its headers.
#include "host/darwin/mach_vm.h"
#include "same.h"

#define NAMES(EACH)                   \
  EACH(VM_PROT_READ);                 \
  EACH(VM_PROT_WRITE);                \
  EACH(VM_PROT_EXECUTE);              \
  EACH(VM_PAGE_QUERY_PAGE_PRESENT);   \
  EACH(VM_PAGE_QUERY_PAGE_PAGED_OUT); \
  EACH(VM_PAGE_QUERY_PAGE_EXTERNAL);  \
  EACH(VM_REGION_SUBMAP_INFO_COUNT_64)

NAMES(KEEP);

#include <mach/mach.h>
#include <mach/vm_map.h>
#include <mach/vm_region.h>
#include <mach/vm_statistics.h>

NAMES(SAME_VALUE);

SAME_STRUCTURE(vm_region_submap_info_64, protection, max_protection, inheritance, offset, user_tag,
               pages_resident, pages_shared_now_private, pages_swapped_out, pages_dirtied,
               ref_count, shadow_depth, external_pager, share_mode, is_submap, behavior, object_id,
               user_wired_count, flags, pages_reusable, object_id_full);

static_assert(std::is_same_v<::vm_map_t, darwin::vm_map_t>);
static_assert(std::is_same_v<::vm_prot_t, darwin::vm_prot_t>);
static_assert(std::is_same_v<::vm_address_t, darwin::vm_address_t>);
static_assert(std::is_same_v<::vm_size_t, darwin::vm_size_t>);
static_assert(std::is_same_v<::vm_region_recurse_info_t, darwin::vm_region_recurse_info_t>);
static_assert(std::is_same_v<::mach_vm_address_t, darwin::mach_vm_address_t>);
static_assert(std::is_same_v<::mach_vm_size_t, darwin::mach_vm_size_t>);

SAME_FUNCTION(host_page_size);
SAME_FUNCTION(vm_region_recurse_64);
SAME_FUNCTION(vm_deallocate);
