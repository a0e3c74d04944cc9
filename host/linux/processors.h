// The machine's processors: how many there are and what they spent their time on.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "darwin/mach_host.h"
#include "host/errno.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

// More processors than this in one text are not believed.
inline constexpr uint32_t kMostProcessors = 8192;

// The time of one processor since boot, in clock ticks.
struct ProcessorTicks {
  uint32_t number;  // Linux's
  uint64_t user;
  uint64_t nice;
  uint64_t system;  // with interrupts
  uint64_t idle;    // with waiting for storage
};

// The processors in /proc/stat, in its order. False, with nothing changed, for a text that is not
// whole and well-formed.
bool parseProcessorTicks(std::string_view text, std::vector<ProcessorTicks> &processors);

// How many numbers a list such as "0-3,8" has; 0 for a text that isn't one.
uint32_t countNumberList(std::string_view text);

class Processors {
 public:
  // Online ones.
  Errno count(unsigned int &count);
  // Of the `index`th online processor: DARWIN_EINVAL beyond the last. All are read when the first
  // is asked.
  Errno load(unsigned int index, darwin::processor_cpu_load_info &load);
  // Fills all but the memory.
  Errno basicInfo(darwin::host_basic_info &info);

 private:
  Errno read();
  uint32_t physicalCount(uint32_t logical);

  FileReader reader_;
  std::vector<ProcessorTicks> now_;
  std::vector<ProcessorTicks> highest_;  // by Linux's number
  uint32_t physicalOf_ = 0;  // the number of logical ones that `physical_` was counted for
  uint32_t physical_ = 0;
};

}  // namespace host::linux_machine
