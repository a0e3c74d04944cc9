// What the Linux kernel writes in /proc and /sys, names that processes chose among it. The first
// letter chooses the reader, the rest is the text.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "fuzz/input.h"
#include "host/linux/blocked_call.h"
#include "host/linux/cgroup_limits.h"
#include "host/linux/descriptors.h"
#include "host/linux/host_figures.h"
#include "host/linux/identity.h"
#include "host/linux/interfaces.h"
#include "host/linux/kernel_stacks.h"
#include "host/linux/memory_map.h"
#include "host/linux/mount_text.h"
#include "host/linux/pages.h"
#include "host/linux/pressure.h"
#include "host/linux/process_text.h"
#include "host/linux/processors.h"
#include "host/linux/socket_table.h"

using namespace host::linux_machine;
using fuzz::check;

namespace {

// Whether a reader that refuses a text leaves the record alone. True for a text that it takes.
template <typename Record>
bool reads(std::string_view text, bool (*parse)(std::string_view, Record &), Record &record) {
  static_assert(std::is_trivially_copyable_v<Record>);
  std::memset(&record, 0xA5, sizeof record);
  char before[sizeof record];
  std::memcpy(before, &record, sizeof record);
  if (parse(text, record)) return true;
  check(std::memcmp(before, &record, sizeof record) == 0);
  return false;
}

template <typename Record>
void readRecord(std::string_view text, bool (*parse)(std::string_view, Record &)) {
  Record record;
  reads(text, parse, record);
}

void readStat(std::string_view text) {
  ProcessStat stat;
  if (!reads(text, parseProcessStat, stat)) return;
  check(fuzz::isTerminated(stat.name));
  stat.isZombie();
}

// Whatever a process is called, its figures are found behind the name.
void readStatOf(std::string_view name) {
  const std::string kept(name.substr(0, sizeof ProcessStat::name - 1));
  const std::string text = "4711 (" + kept +
                           ") S 1 2 3 34816 5 4194304 7 0 8 0 9 10 0 0 20 -5 6 0 12 13 14 0 15 0 16"
                           " 0 0 0 0 0 0 0 0 17 3 0 18 2 0 0 0 0 0 0 0 0 0 0 0\n";
  ProcessStat stat;
  check(reads(std::string_view(text), parseProcessStat, stat));
  check(stat.id == 4711 && std::memcmp(stat.name, kept.c_str(), kept.size() + 1) == 0);
  check(stat.state == 'S' && stat.parent == 1 && stat.nice == -5 && stat.threads == 6 &&
        stat.residentPages == 14 && stat.policy == 2);
}

void splitAndJoin(std::string_view text) {
  std::string joined;
  for (const std::string &argument : splitArguments(text)) joined += argument + '\0';
  check(joined.size() - text.size() <= 1 && joined.compare(0, text.size(), text) == 0);
}

bool isWithin(std::string_view part, std::string_view text) {
  return part.empty() ||
         (part.data() >= text.data() && part.data() + part.size() <= text.data() + text.size());
}

void readMaps(std::string_view text) {
  TextCursor lines(text);
  for (std::string_view line; lines.line(line);) {
    Mapping mapping;
    if (!reads(line, parseMapping, mapping)) continue;
    check(mapping.start < mapping.end && isWithin(mapping.name, line));
  }
}

void readPages(std::string_view text) {
  ZeroFilled zeroFilled;
  TextCursor lines(text);
  for (std::string_view line; lines.line(line);) {
    zeroFilled.take(line);
    Mapping mapping{};
    if (!parseMapping(line, mapping)) continue;
    const uint64_t end = zeroFilled.endAt(mapping.start);
    check(end == 0 || end > mapping.start);
  }
}

void readMounts(std::string_view text) {
  for (const CgroupMount &mount : parseCgroupMounts(text)) {
    check(!mount.path.empty() && mount.path.size() <= text.size());
  }
}

// As the kernel writes them.
void escapeAndBack(std::string_view name) {
  std::string escaped;
  for (const char letter : name) {
    if (letter == ' ' || letter == '\t' || letter == '\n' || letter == '\\') {
      char octal[5];
      std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned char>(letter));
      escaped += octal;
    } else {
      escaped += letter;
    }
  }
  check(unescapeMountName(escaped) == name);
  check(unescapeMountName(name).size() <= name.size());
}

void readMemory(std::string_view text) {
  MemoryInfo info;
  if (!reads(text, parseMemoryInfo, info)) return;
  darwin::vm_statistics64 statistics = {};
  fillVirtualMemory(info, MemoryEvents{}, CompressedDevices{}, 4096, statistics);
}

void readCompressed(std::string_view text) {
  CompressedDevices devices{};
  const size_t half = std::min(text.find('\n'), text.size());
  const bool isRead = addCompressedDevice(text.substr(0, half), text.substr(half), devices);
  check(isRead || (devices.memoryBytes == 0 && devices.dataBytes == 0 && devices.sectorsRead == 0 &&
                   devices.sectorsWritten == 0));
}

void readKernelStack(std::string_view text) {
  const std::vector<KernelFrame> frames = parseKernelStack(text);
  check(frames.size() <= text.size());
  KernelSymbols symbols;
  symbols.want(frames);
  const size_t lastEnd = text.rfind('\n');
  if (lastEnd != std::string_view::npos) symbols.add(text.substr(0, lastEnd + 1));
  symbols.finish();
  check(symbols.addressesOf(frames).size() <= frames.size());
}

void readProcessors(std::string_view text) {
  std::vector<ProcessorTicks> processors;
  check(parseProcessorTicks(text, processors) == !processors.empty());
  check(processors.size() <= kMostProcessors);
  for (const ProcessorTicks &processor : processors) check(processor.number < kMostProcessors);
}

void readRelease(std::string_view text) {
  std::string value;
  if (findRelease(text, "NAME", value)) check(!value.empty() && value.size() < text.size());
}

void readWords(std::string_view text) {
  parseMemoryLimit(text);
  countNumberList(text);
  interfaceSpeed(text);
  descriptorTypeOfLink(text);
  countsSockets(text, "MPTCP");
  darwin::socket_info info = {};
  describeUnlisted(text, info);
  isAuxiliaryVector64Bit(text);
}

using Reader = void (*)(std::string_view);
constexpr Reader kReaders[] = {
    readStat,
    readStatOf,
    [](std::string_view text) { readRecord(text, parseProcessStatus); },
    [](std::string_view text) { readRecord(text, parseProcessIO); },
    [](std::string_view text) { readRecord(text, parseSchedulerRecord); },
    splitAndJoin,
    readMaps,
    readPages,
    readMounts,
    escapeAndBack,
    readMemory,
    [](std::string_view text) { readRecord(text, parseMemoryEvents); },
    [](std::string_view text) { readRecord(text, parseLoadAverage); },
    readCompressed,
    [](std::string_view text) { readRecord(text, parseBlockedCall); },
    readKernelStack,
    [](std::string_view text) { readRecord(text, parseWatermarks); },
    [](std::string_view text) { readRecord(text, parseReclaimedPages); },
    [](std::string_view text) { readRecord(text, parseStalledTime); },
    readProcessors,
    readRelease,
    readWords,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Input input(data, size);
  const Reader read = kReaders[static_cast<uint8_t>(input.byte() - 'a') % std::size(kReaders)];
  const fuzz::Copy text(input.rest());
  read(text.text());
  return 0;
}
