// What an ordinary debugger makes of a core file: LLDB is asked for its threads and memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace test {

struct MemoryRange {
  uint64_t address = 0;
  size_t size = 0;  // bytes, not 0
};

struct DebuggedThread {
  uint64_t programCounter = 0;
  uint64_t stackPointer = 0;
  bool operator==(const DebuggedThread &) const = default;
};

std::ostream &operator<<(std::ostream &out, const DebuggedThread &thread);

struct DebuggedCore {
  std::string architecture;  // "arm64" or "armv7"; "" when LLDB did not take the file for a core
  std::vector<DebuggedThread> threads;  // in the order of the file
  std::vector<std::string> memory;      // of each range asked for; "" where it can't be read whole
  std::string said;                     // all that LLDB said, for the message of a failed test
};

// Whether LLDB is there. It is left out where another version of it is installed.
bool hasDebugger();
inline constexpr char kNoDebugger[] = "lldb-19 is not installed";

// Opens a core file, without the executable. Throws std::runtime_error when there is no LLDB or it
// does not come to its end.
DebuggedCore debugCore(const std::string &path, const std::vector<MemoryRange> &ranges = {});

}  // namespace test
