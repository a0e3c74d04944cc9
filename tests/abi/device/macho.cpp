// Core files beside the platform's.
#include "darwin/macho.h"
#include "same.h"

#define NAMES(EACH)            \
  EACH(MH_MAGIC);              \
  EACH(MH_MAGIC_64);           \
  EACH(MH_CORE);               \
  EACH(CPU_TYPE_ARM);          \
  EACH(CPU_TYPE_ARM64);        \
  EACH(CPU_SUBTYPE_ARM_V7);    \
  EACH(CPU_SUBTYPE_ARM64_ALL); \
  EACH(LC_SEGMENT);            \
  EACH(LC_THREAD);             \
  EACH(LC_SEGMENT_64)

NAMES(KEEP);

#include <mach-o/loader.h>
#include <mach/machine.h>

NAMES(SAME_VALUE);

SAME_STRUCTURE(mach_header, magic, cputype, cpusubtype, filetype, ncmds, sizeofcmds, flags);
SAME_STRUCTURE(mach_header_64, magic, cputype, cpusubtype, filetype, ncmds, sizeofcmds, flags,
               reserved);
SAME_STRUCTURE(segment_command, cmd, cmdsize, segname, vmaddr, vmsize, fileoff, filesize, maxprot,
               initprot, nsects, flags);
SAME_STRUCTURE(segment_command_64, cmd, cmdsize, segname, vmaddr, vmsize, fileoff, filesize,
               maxprot, initprot, nsects, flags);
SAME_STRUCTURE(thread_command, cmd, cmdsize);
