#include "host/linux/processors.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>

#include "host/darwin/errors.h"
#include "host/linux/clock.h"
#include "host/posix.h"
#include "host/units.h"

namespace host::linux_machine {

bool parseProcessorTicks(std::string_view text, std::vector<ProcessorTicks> &processors) {
  std::vector<ProcessorTicks> parsed;
  TextCursor lines(text);
  std::string_view line;
  while (lines.line(line)) {
    // The first line, "cpu " without a number, has their sum.
    if (!line.starts_with("cpu") || line.starts_with("cpu ")) continue;
    ProcessorTicks processor{};
    uint64_t waiting = 0;
    uint64_t interrupts = 0;
    uint64_t softInterrupts = 0;
    TextCursor fields(line.substr(3));
    if (!fields.number(processor.number) || processor.number >= kMostProcessors ||
        !fields.number(processor.user) || !fields.number(processor.nice) ||
        !fields.number(processor.system) || !fields.number(processor.idle)) {
      return false;
    }
    // Old kernels have no more.
    if (fields.number(waiting) && fields.number(interrupts) && fields.number(softInterrupts)) {
      processor.system += interrupts + softInterrupts;
      processor.idle += waiting;
    }
    parsed.push_back(processor);
  }
  if (parsed.empty() || parsed.size() > kMostProcessors || !lines.rest().empty()) return false;
  processors = std::move(parsed);
  return true;
}

uint32_t countNumberList(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  uint32_t count = 0;
  while (!text.empty()) {
    size_t end = std::min(text.find(','), text.size());
    std::string_view range = text.substr(0, end);
    size_t dash = std::min(range.find('-'), range.size());
    uint32_t first = 0;
    uint32_t last = 0;
    if (!parseNumber(range.substr(0, dash), first)) return 0;
    if (dash == range.size()) {
      last = first;
    } else if (!parseNumber(range.substr(dash + 1), last)) {
      return 0;
    }
    if (last < first || last >= kMostProcessors) return 0;
    count += last - first + 1;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return count;
}

Errno Processors::read() {
  std::string_view text;
  Errno error = reader_.readRecord(AT_FDCWD, "/proc/stat", text);
  if (error != kAnswered) return error;
  if (!parseProcessorTicks(text, now_)) return darwin::DARWIN_EIO;
  // Linux takes back some idle and waiting time now and then; a counter that falls would show as
  // one that wrapped.
  for (ProcessorTicks &processor : now_) {
    if (processor.number >= highest_.size()) highest_.resize(processor.number + 1);
    ProcessorTicks &highest = highest_[processor.number];
    highest.number = processor.number;
    for (auto member : {&ProcessorTicks::user, &ProcessorTicks::nice, &ProcessorTicks::system,
                        &ProcessorTicks::idle}) {
      highest.*member = std::max(highest.*member, processor.*member);
    }
    processor = highest;
  }
  return kAnswered;
}

Errno Processors::count(unsigned int &count) {
  Errno error = read();
  if (error == kAnswered) count = static_cast<unsigned int>(now_.size());
  return error;
}

// Ticks as the hundredths of a second that Darwin counts, which wrap.
static uint32_t hundredths(uint64_t ticks) {
  constexpr uint64_t kHundredth = kNanosecondsPerSecond / 100;
  return static_cast<uint32_t>(
      nanosecondsPerTick() == kHundredth ? ticks : ticksToNanoseconds(ticks) / kHundredth);
}

Errno Processors::load(unsigned int index, darwin::processor_cpu_load_info &load) {
  if (index == 0 || now_.empty()) {
    Errno error = read();
    if (error != kAnswered) return error;
  }
  if (index >= now_.size()) return darwin::DARWIN_EINVAL;
  const ProcessorTicks &processor = now_[index];
  load.cpu_ticks[darwin::CPU_STATE_USER] = hundredths(processor.user);
  load.cpu_ticks[darwin::CPU_STATE_SYSTEM] = hundredths(processor.system);
  load.cpu_ticks[darwin::CPU_STATE_IDLE] = hundredths(processor.idle);
  load.cpu_ticks[darwin::CPU_STATE_NICE] = hundredths(processor.nice);
  return kAnswered;
}

// Cores: of the processors of one core, the one with the lowest number leads the list of its
// siblings.
uint32_t Processors::physicalCount(uint32_t logical) {
  if (physicalOf_ == logical) return physical_;
  uint32_t cores = 0;
  for (uint32_t number = 0, found = 0; number < kMostProcessors && found < logical; number++) {
    char name[96];
    std::snprintf(name, sizeof name, "/sys/devices/system/cpu/cpu%u/topology/thread_siblings_list",
                  number);
    std::string_view siblings;
    if (reader_.readRecord(AT_FDCWD, name, siblings) != kAnswered) continue;
    found++;
    uint32_t first = 0;
    size_t end = std::min(siblings.find_first_of(",-\n"), siblings.size());
    if (parseNumber(siblings.substr(0, end), first) && first == number) cores++;
  }
  physicalOf_ = logical;
  physical_ = cores > 0 ? cores : logical;
  return physical_;
}

static darwin::cpu_type_t processorType() {
  constexpr darwin::cpu_type_t kX86_64 = 0x01000007;
  constexpr darwin::cpu_type_t kArm64 = 0x0100000C;
  new_utsname name{};
  __real_uname(&name);
  std::string_view machine(name.machine);
  if (machine == "x86_64") return kX86_64;
  return machine == "aarch64" ? kArm64 : 0;
}

Errno Processors::basicInfo(darwin::host_basic_info &info) {
  static const darwin::cpu_type_t type = processorType();
  uint32_t online = 0;
  uint32_t present = 0;
  std::string_view text;
  if (reader_.readRecord(AT_FDCWD, "/sys/devices/system/cpu/online", text) == kAnswered) {
    online = countNumberList(text);
  }
  if (reader_.readRecord(AT_FDCWD, "/sys/devices/system/cpu/present", text) == kAnswered) {
    present = countNumberList(text);
  }
  if (online == 0) {
    Errno error = count(online);
    if (error != kAnswered) return error;
  }
  present = std::max(present, online);
  info = {};
  info.max_cpus = static_cast<int32_t>(present);
  info.avail_cpus = static_cast<int32_t>(online);
  info.cpu_type = type;
  info.logical_cpu = info.avail_cpus;
  info.logical_cpu_max = info.max_cpus;
  info.physical_cpu = static_cast<int32_t>(physicalCount(online));
  info.physical_cpu_max =
      std::max(info.physical_cpu, static_cast<int32_t>(uint64_t{present} * physical_ / online));
  return kAnswered;
}

}  // namespace host::linux_machine
