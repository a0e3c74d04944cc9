// The load commands of a core file as llvm-objdump reads them, for a test to compare with what the
// process had.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test {

struct CoreSegment {
  uint32_t commandSize = 0;
  std::string name;
  uint64_t address = 0;
  uint64_t size = 0;
  uint64_t fileOffset = 0;
  uint64_t fileSize = 0;
  std::string mostProtection;  // such as "rw-"
  std::string protection;
};

struct CoreCommands {
  std::string processor;  // "ARM64" or "ARM"
  std::string fileType;   // "CORE"
  uint64_t count = 0;     // as the header has it
  uint64_t size = 0;      // bytes, as the header has it
  std::vector<CoreSegment> segments;
  std::vector<uint32_t> threads;  // the size of each thread command
  std::string said;               // the whole listing
};

// Whether this machine has what readCoreCommands runs, and what a test that is skipped for it says.
bool hasObjectReader();
inline constexpr char kNoObjectReader[] = "llvm-objdump-19 is not installed";

// Throws std::runtime_error when there is no llvm-objdump or it complains about the file.
CoreCommands readCoreCommands(const std::string &path);

// What does not fit together: the header's figures, file offsets that are not in order or lie
// outside the file, data that overlaps, more protection than the most. "" when all does.
std::string complaintAboutCore(const CoreCommands &commands, uint64_t fileSize);

}  // namespace test
