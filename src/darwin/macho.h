// The parts of a core file: a header, then load commands that say where each segment and each
// thread's registers are.
#pragma once

#include "darwin/layout.h"
#include "darwin/mach_host.h"
#include "darwin/mach_vm.h"

namespace darwin {

constexpr uint32_t MH_MAGIC = 0xFEEDFACE;
constexpr uint32_t MH_MAGIC_64 = 0xFEEDFACF;
constexpr uint32_t MH_CORE = 4;

constexpr cpu_type_t CPU_TYPE_ARM = 12;
constexpr cpu_type_t CPU_TYPE_ARM64 = 0x0100000C;
constexpr cpu_subtype_t CPU_SUBTYPE_ARM_V7 = 9;
constexpr cpu_subtype_t CPU_SUBTYPE_ARM64_ALL = 0;

constexpr uint32_t LC_SEGMENT = 0x1;
constexpr uint32_t LC_THREAD = 0x4;
constexpr uint32_t LC_SEGMENT_64 = 0x19;

struct mach_header {
  uint32_t magic;
  cpu_type_t cputype;
  cpu_subtype_t cpusubtype;
  uint32_t filetype;
  uint32_t ncmds;
  uint32_t sizeofcmds;
  uint32_t flags;
};
DARWIN_LAYOUT(mach_header, 28, 4, (magic, 0), (cputype, 4), (cpusubtype, 8), (filetype, 12),
              (ncmds, 16), (sizeofcmds, 20), (flags, 24));

struct mach_header_64 {
  uint32_t magic;
  cpu_type_t cputype;
  cpu_subtype_t cpusubtype;
  uint32_t filetype;
  uint32_t ncmds;
  uint32_t sizeofcmds;
  uint32_t flags;
  uint32_t reserved;
};
DARWIN_LAYOUT(mach_header_64, 32, 4, (magic, 0), (cputype, 4), (cpusubtype, 8), (filetype, 12),
              (ncmds, 16), (sizeofcmds, 20), (flags, 24), (reserved, 28));

// segname need not end in NUL.
struct segment_command {
  uint32_t cmd;
  uint32_t cmdsize;
  char segname[16];
  uint32_t vmaddr;
  uint32_t vmsize;
  uint32_t fileoff;
  uint32_t filesize;
  vm_prot_t maxprot;
  vm_prot_t initprot;
  uint32_t nsects;
  uint32_t flags;
};
DARWIN_LAYOUT(segment_command, 56, 4, (cmd, 0), (cmdsize, 4), (segname, 8), (vmaddr, 24),
              (vmsize, 28), (fileoff, 32), (filesize, 36), (maxprot, 40), (initprot, 44),
              (nsects, 48), (flags, 52));

struct segment_command_64 {
  uint32_t cmd;
  uint32_t cmdsize;
  char segname[16];
  uint64_t vmaddr;
  uint64_t vmsize;
  uint64_t fileoff;
  uint64_t filesize;
  vm_prot_t maxprot;
  vm_prot_t initprot;
  uint32_t nsects;
  uint32_t flags;
};
DARWIN_LAYOUT(segment_command_64, 72, 8, (cmd, 0), (cmdsize, 4), (segname, 8), (vmaddr, 24),
              (vmsize, 32), (fileoff, 40), (filesize, 48), (maxprot, 56), (initprot, 60),
              (nsects, 64), (flags, 68));

// Followed by a flavour, a count, and that many 32-bit words of registers.
struct thread_command {
  uint32_t cmd;
  uint32_t cmdsize;
};
DARWIN_LAYOUT(thread_command, 8, 4, (cmd, 0), (cmdsize, 4));

}  // namespace darwin
