// The text of /proc/PID/maps: what each line says, and all lines of a process. What a mapping is
// used for, and who may look, is not here. File names are chosen by other users' processes and may
// hold any byte.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "host/errno.h"

namespace host::linux_machine {

struct Mapping {
  uint64_t start;
  uint64_t end;         // above `start`
  uint32_t protection;  // VM_PROT_*
  bool isShared;
  uint64_t offset;  // in the file
  uint32_t majorNumber;
  uint32_t minorNumber;
  uint64_t inode;         // 0 without a file
  std::string_view name;  // a path with newlines as "\012", or a word such as "[heap]", or empty
};

// Reads a line, with or without its newline; the name points into it. False, and the mapping is
// left alone, for a line that is not well-formed.
bool parseMapping(std::string_view line, Mapping &mapping);

// Calls `visit` for each line of "maps" or "smaps" of the process whose /proc/PID is open as
// `processDirectory`, without its newline. What was visited before a failure was true nevertheless.
Errno readMapLines(int processDirectory, const char *name,
                   const std::function<void(std::string_view)> &visit);

// Reads the map of the process whose /proc/PID is open as `processDirectory`, once, and calls
// `visit` for each mapping, lowest first; what a name points to holds during that call. What was
// visited before a failure was true nevertheless.
Errno readMemoryMap(int processDirectory, const std::function<void(const Mapping &)> &visit);

}  // namespace host::linux_machine
