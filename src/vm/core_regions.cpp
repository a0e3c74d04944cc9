#include "vm/core_regions.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "darwin/libproc.h"
#include "darwin/mach_vm.h"
#include "state/tracing.h"

namespace sondex {

// What starts before it belongs to a 32-bit process.
constexpr uint64_t kFirst64BitAddress = 0xFFFFFFFF;

// A step of the walk through a map.
struct Step {
  darwin::kern_return_t answer;
  darwin::vm_address_t address;
  darwin::vm_size_t size;  // 0: no region is left
  darwin::vm_region_submap_info_64 info;
  darwin::mach_msg_type_number_t words;  // of `info`
};

// To the first region that contains `address` or comes after it.
static Step stepTo(darwin::mach_port_t task, darwin::vm_address_t address) {
  Step step = {};
  step.address = address;
  step.words = darwin::VM_REGION_SUBMAP_INFO_COUNT_64;
  darwin::natural_t depth = 1;
  step.answer = darwin::vm_region_recurse_64(
      task, &step.address, &step.size, &depth,
      reinterpret_cast<darwin::vm_region_recurse_info_t>(&step.info), &step.words);
  return step;
}

static void traceStep(const Step *step) {
  printf("KR: %d ADDR: %llx Size: %x infoCnt : %d, Submap: %d\n", step->answer,
         static_cast<unsigned long long>(step->address), static_cast<unsigned int>(step->size),
         static_cast<int>(step->words), step->info.is_submap);
}

static void recordRegion(int32_t pid, const Step *step, darwin::proc_regionwithpathinfo *region) {
  if (darwin::proc_pidinfo(pid, darwin::PROC_PIDREGIONPATHINFO, step->address, region,
                           sizeof *region) == 0) {
    region->prp_prinfo.pri_protection = static_cast<uint32_t>(step->info.protection);
    region->prp_prinfo.pri_max_protection = static_cast<uint32_t>(step->info.max_protection);
  }
  region->prp_prinfo.pri_address = step->address;
  region->prp_prinfo.pri_size = step->size;
}

bool listRegions(int32_t pid, darwin::mach_port_t task, RegionTable *table) {
  table->count = 0;
  table->regions = static_cast<darwin::proc_regionwithpathinfo *>(
      calloc(kMostRegions, sizeof(darwin::proc_regionwithpathinfo)));
  if (table->regions == nullptr) return false;
  darwin::vm_address_t next = 0;
  for (;;) {
    const Step step = stepTo(task, next);
    if (step.size == 0) return true;
    if (step.address % kCorePage == 0) {
      if (table->count == kMostRegions) {
        fprintf(stderr, "Warning: More than %d regions detected!\n", kMostRegions);
        return true;
      }
      if (isTracing()) traceStep(&step);
      table->hasPager[table->count] = step.info.external_pager != 0;
      recordRegion(pid, &step, &table->regions[table->count++]);
    }
    // Kept: one past the end, as the kernel tells the region that contains an address.
    const darwin::vm_address_t pastEnd = step.address + step.size + 1;
    if (pastEnd <= next) return true;
    next = pastEnd;
  }
}

bool areFor32Bit(const RegionTable *table) {
  return table->count > 0 &&
         table->regions[table->count - 1].prp_prinfo.pri_address < kFirst64BitAddress;
}

uint64_t readableBytes(const RegionTable *table) {
  uint64_t bytes = 0;
  for (int i = 0; i < table->count; i++) {
    const darwin::proc_regioninfo *region = &table->regions[i].prp_prinfo;
    if (region->pri_protection != 0 && region->pri_size <= INT32_MAX) bytes += region->pri_size;
  }
  return bytes;
}

darwin::segment_command_64 makeSegment(const darwin::proc_regioninfo *region, int index,
                                       uint64_t offset, uint32_t written, bool is32Bit) {
  darwin::segment_command_64 segment = {};
  segment.cmd = is32Bit ? darwin::LC_SEGMENT : darwin::LC_SEGMENT_64;
  segment.cmdsize = is32Bit ? sizeof(darwin::segment_command) : sizeof segment;
  char name[32] = "";
  snprintf(name, sizeof name, "Segment.%d", index);
  memcpy(segment.segname, name, sizeof segment.segname);
  segment.vmaddr = region->pri_address;
  segment.vmsize = region->pri_size;
  segment.fileoff = offset;
  segment.filesize = written;
  segment.maxprot = static_cast<darwin::vm_prot_t>(region->pri_max_protection);
  segment.initprot = static_cast<darwin::vm_prot_t>(region->pri_protection);
  return segment;
}

static uint32_t narrowed(uint64_t value) {
  return value > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(value);
}

darwin::segment_command narrowSegment(const darwin::segment_command_64 *wide) {
  darwin::segment_command segment = {};
  segment.cmd = wide->cmd;
  segment.cmdsize = wide->cmdsize;
  memcpy(segment.segname, wide->segname, sizeof segment.segname);
  segment.vmaddr = narrowed(wide->vmaddr);
  segment.vmsize = narrowed(wide->vmsize);
  segment.fileoff = narrowed(wide->fileoff);
  segment.filesize = narrowed(wide->filesize);
  segment.maxprot = wide->maxprot;
  segment.initprot = wide->initprot;
  return segment;
}

}  // namespace sondex
