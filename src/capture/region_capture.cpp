#include "capture/region_capture.h"

#include <string.h>

#include "capture/device_file_writer.h"
#include "capture/memory_capture.h"
#include "capture/stand_ins.h"
#include "darwin/libproc.h"
#include "darwin/mach_task.h"
#include "vm/region_map.h"

namespace sondex {

constexpr uint64_t kRegionUnit = 4096;  // of addresses and sizes in a device file
constexpr int kMostRegionsOfOne = 65536;
constexpr uint32_t kProtectionBits = 7;
constexpr uint32_t kUsualProtection = 3;
constexpr uint32_t kUsualLargest = 7;

static const FlagWord kShareModes[] = {
    {"cow", darwin::SM_COW},
    {"private", darwin::SM_PRIVATE},
    {"empty", darwin::SM_EMPTY},
    {"shared", darwin::SM_SHARED},
    {"true-shared", darwin::SM_TRUESHARED},
    {"private-aliased", darwin::SM_PRIVATE_ALIASED},
    {"shared-aliased", darwin::SM_SHARED_ALIASED},
    {"large-page", darwin::SM_LARGE_PAGE},
};
static const FlagWord kFlags[] = {{"submap", darwin::PROC_REGION_SUBMAP},
                                  {"shared", darwin::PROC_REGION_SHARED}};
constexpr uint32_t kKnownFlags = darwin::PROC_REGION_SUBMAP | darwin::PROC_REGION_SHARED;

static void writeProtection(const char *key, uint32_t bits, uint32_t usual) {
  if ((bits & kProtectionBits) == usual) return;
  char text[sizeof "rwx"];
  protection_bits_to_rwx(bits, text, sizeof text);
  writePlainText(key, text);
}

static void writeRegion(const darwin::proc_regionwithpathinfo *found, darwin::mach_port_t task) {
  const darwin::proc_regioninfo &region = found->prp_prinfo;
  beginInlineTable(nullptr);
  writeNumber("address", static_cast<int64_t>(region.pri_address));
  writeSize("size", region.pri_size);
  writeProtection("protection", region.pri_protection, kUsualProtection);
  writeProtection("largest", region.pri_max_protection, kUsualLargest);
  writeUnless("inheritance", region.pri_inheritance, 1);
  writeUnless("references", region.pri_ref_count, 1);
  writeUnless("tag", region.pri_user_tag, 0);
  writeUnless("depth", region.pri_depth, 0);
  writeUnless("object", region.pri_obj_id, 0);
  writeUnless("behaviour", region.pri_behavior, 0);
  writeUnless("wired", region.pri_user_wired_count, 0);
  writeUnless("shadow", region.pri_shadow_depth, 0);
  if (region.pri_offset > INT64_MAX) {
    writeAddress("offset", region.pri_offset);
  } else if (region.pri_offset != 0) {
    writeSize("offset", region.pri_offset);
  }
  if ((region.pri_flags & kKnownFlags) != 0) {
    writeFlags("flags", region.pri_flags & kKnownFlags, kFlags);
  }
  if (region.pri_share_mode != darwin::SM_PRIVATE && region.pri_share_mode >= darwin::SM_COW &&
      region.pri_share_mode <= darwin::SM_LARGE_PAGE) {
    writeWord("share", region.pri_share_mode, kShareModes);
  }
  writeUnless("resident", region.pri_pages_resident, 0);
  writeUnless("private-resident", region.pri_private_pages_resident, 0);
  writeUnless("shared-resident", region.pri_shared_pages_resident, 0);
  writeUnless("shared-now-private", region.pri_pages_shared_now_private, 0);
  writeUnless("swapped", region.pri_pages_swapped_out, 0);
  writeUnless("dirty", region.pri_pages_dirtied, 0);
  if (found->prp_vip.vip_path[0] != '\0') {
    writePath("path", found->prp_vip.vip_path, sizeof found->prp_vip.vip_path);
  }
  if (task != darwin::DARWIN_MACH_PORT_NULL) writeContents(task, &region);
  endInlineTable();
}

// A region that the one before it leaves room for, as large as a device file can say.
static bool isSound(const darwin::proc_regioninfo *region, uint64_t from) {
  return region->pri_address >= from && region->pri_size > 0 &&
         region->pri_address % kRegionUnit == 0 && region->pri_size % kRegionUnit == 0 &&
         region->pri_size <= UINT64_MAX - region->pri_address &&
         region->pri_address + region->pri_size <= INT64_MAX;
}

void writeRegions(int32_t pid, bool withContents) {
  darwin::mach_port_t task = darwin::DARWIN_MACH_PORT_NULL;
  if (withContents) darwin::task_for_pid(darwin::mach_task_self_, pid, &task);
  bool isOpen = false;
  uint64_t address = 0;
  for (int i = 0; i < kMostRegionsOfOne; i++) {
    darwin::proc_regionwithpathinfo found = {};
    if (darwin::proc_pidinfo(pid, darwin::PROC_PIDREGIONPATHINFO, address, &found, sizeof found) <=
        0) {
      break;
    }
    const darwin::proc_regioninfo &region = found.prp_prinfo;
    if (isSound(&region, address)) {
      if (!isOpen) beginRows("regions");
      isOpen = true;
      writeRegion(&found, task);
    }
    const uint64_t next = region.pri_address + region.pri_size;
    if (next <= address) break;  // the top of the address space, or an answer to another question
    address = next;
  }
  if (isOpen) endArray();
  if (task != darwin::DARWIN_MACH_PORT_NULL) {
    darwin::mach_port_deallocate(darwin::mach_task_self_, task);
  }
}

}  // namespace sondex
