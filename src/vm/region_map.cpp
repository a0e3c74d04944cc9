#include "vm/region_map.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "darwin/libproc.h"
#include "darwin/mach_task.h"
#include "state/display.h"
#include "state/tracing.h"
#include "state/word.h"
#include "terminal/output.h"
#include "text/safe_text.h"
#include "vm/tags.h"

namespace sondex {

constexpr size_t kMapSize = 4 << 20;
constexpr size_t kPieceSize = 2 << 20;  // a text that is longer goes out before the next line
constexpr size_t kProtectionSize = sizeof "rwx";
constexpr uint32_t kProtectionBits = 7;

// By current protection bits.
static const char *const kProtectionColors[] = {
    "\033[0;37m",  // grey
    "\033[0;32m",  // green
    "\033[0;36m",  // cyan
    "\033[0;34m",  // blue
    "\033[0;32m",  // green
    "\033[0;0m",   // plain
    "\033[0;31m",  // red
    "\033[0;31m",  // red
};
static const char kColorReset[] = "\033[0;0m";

void protection_bits_to_rwx(uint32_t bits, char *out, size_t size) {
  if (out == nullptr || size != kProtectionSize) return;
  out[0] = (bits & 1) != 0 ? 'r' : '-';
  out[1] = (bits & 2) != 0 ? 'w' : '-';
  out[2] = (bits & 4) != 0 ? 'x' : '-';
  out[3] = '\0';
}

const char *share_mode_to_text(uint32_t mode) {
  switch (mode) {
    case darwin::SM_COW:
      return "COW";
    case darwin::SM_PRIVATE:
      return "PRV";
    case darwin::SM_EMPTY:
      return "NUL";
    case darwin::SM_SHARED:
      return "SHM";
    case darwin::SM_TRUESHARED:
      return "TRU";
    case darwin::SM_PRIVATE_ALIASED:
      return "ALI";
    case darwin::SM_SHARED_ALIASED:
      return "S/A";
    case darwin::SM_LARGE_PAGE:
      return "LRG";
    default:
      return "???";
  }
}

// Divides a size in bytes down to a number of at most four digits, where its unit allows, and
// returns the unit. 1024 of a unit stay what they are.
static const char *scaleSize(uint64_t *size) {
  static const char *const kUnits[] = {"??", "K", "M", "G"};
  size_t unit = 0;
  while (unit < 3 && *size > 1024) {
    *size /= 1024;
    unit++;
  }
  return kUnits[unit];
}

// Looks a port up for the sake of the line that says how that went.
static void reportTaskPort(int32_t pid) {
  darwin::mach_port_name_t port = darwin::DARWIN_MACH_PORT_NULL;
  const darwin::kern_return_t result =
      darwin::task_name_for_pid(darwin::mach_task_self_, pid, &port);
  if (isTracing()) printf(" KR : %d GOT TASK %x\n", result, port);
  if (port != darwin::DARWIN_MACH_PORT_NULL) {
    darwin::mach_port_deallocate(darwin::mach_task_self_, port);
  }
}

// Writes one region's line at `to` and returns its length; `size` is far more than a line needs.
static size_t writeLine(const darwin::proc_regionwithpathinfo *found, bool isKernel, bool colored,
                        char *to, size_t size) {
  const darwin::proc_regioninfo &region = found->prp_prinfo;
  char current[kProtectionSize];
  char maximum[kProtectionSize];
  protection_bits_to_rwx(region.pri_protection, current, sizeof current);
  protection_bits_to_rwx(region.pri_max_protection, maximum, sizeof maximum);
  uint64_t scaled = region.pri_size;
  const char *unit = scaleSize(&scaled);
  const char *name = tag_to_text(region.pri_user_tag, region.pri_protection, isKernel);
  char path[sizeof found->prp_vip.vip_path];
  makeSafe(path, sizeof path, found->prp_vip.vip_path, sizeof path);

  const unsigned long long start = region.pri_address;
  const unsigned long long end = start + region.pri_size;

  const int length =
      snprintf(to, size, "%s%-22s 0x%08x %012llx-%012llx [%4ld%s] %s/%s %s %s%s\n",
               colored ? kProtectionColors[region.pri_protection & kProtectionBits] : "",
               name[0] != '\0' ? name : " ", region.pri_obj_id, start, end,
               static_cast<long>(scaled), unit, current, maximum,
               share_mode_to_text(region.pri_share_mode), path, colored ? kColorReset : "");
  return length < 0 ? 0 : static_cast<size_t>(length);
}

const char *showProcRegions(int32_t pid, darwin::mach_port_t task) {
  static char buffer[kMapSize];

  if (task == darwin::DARWIN_MACH_PORT_NULL) reportTaskPort(pid);
  // curses would show the sequences as letters.
  const bool colored = load(g_Color) != 0 && load(wantCurses) == 0;
  size_t length = 0;
  buffer[0] = '\0';
  uint64_t address = 0;
  for (;;) {
    darwin::proc_regionwithpathinfo found = {};
    if (darwin::proc_pidinfo(pid, darwin::PROC_PIDREGIONPATHINFO, address, &found, sizeof found) ==
        0) {
      break;
    }
    if (length > kPieceSize) {
      output(buffer, 0);
      length = 0;
    }
    length += writeLine(&found, pid == 0, colored, buffer + length, sizeof buffer - length);

    // Kept: one past the end, as the kernel tells the region that contains an address.
    const uint64_t next = found.prp_prinfo.pri_address + found.prp_prinfo.pri_size + 1;
    if (next <= address) break;  // the top of the address space, or an answer to another question
    address = next;
  }
  return buffer;
}

}  // namespace sondex
