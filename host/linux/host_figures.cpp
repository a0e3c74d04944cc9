#include "host/linux/host_figures.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "host/linux/clock.h"
#include "host/linux/mount_text.h"

namespace host::linux_machine {

// What the figures' readers take a page for, and Darwin's smallest one.
static constexpr uint64_t kPageKiB = 4;
static constexpr uint64_t kPageBytes = kPageKiB * 1024;
static constexpr uint64_t kSectorsPerPage = kPageBytes / 512;

bool parseMemoryInfo(std::string_view text, MemoryInfo &info) {
  static constexpr NumberRow<MemoryInfo> kRows[] = {
      {"MemTotal", &MemoryInfo::total},
      {"MemFree", &MemoryInfo::free},
      {"MemAvailable", &MemoryInfo::available},
      {"Buffers", &MemoryInfo::buffers},
      {"Cached", &MemoryInfo::cached},
      {"Active", &MemoryInfo::active},
      {"Inactive", &MemoryInfo::inactive},
      {"Unevictable", &MemoryInfo::unevictable},
      {"SwapTotal", &MemoryInfo::swapTotal},
      {"SwapFree", &MemoryInfo::swapFree},
      {"Zswap", &MemoryInfo::compressedPool},
      {"Zswapped", &MemoryInfo::compressedData},
      {"AnonPages", &MemoryInfo::anonymous},
      {"Shmem", &MemoryInfo::shared},
      {"KReclaimable", &MemoryInfo::reclaimable},
      {"SReclaimable", &MemoryInfo::slabReclaimable},
      {"SUnreclaim", &MemoryInfo::slabUnreclaimable},
      {"KernelStack", &MemoryInfo::kernelStacks},
      {"PageTables", &MemoryInfo::pageTables},
      {"SecPageTables", &MemoryInfo::secondaryPageTables},
      {"Percpu", &MemoryInfo::perProcessor},
      {"Hugetlb", &MemoryInfo::hugePages},
  };
  constexpr uint64_t kNeeded = 3;  // MemTotal, MemFree
  MemoryInfo parsed{};
  uint64_t seen = 0;
  if (!readNumberRows(text, kRows, parsed, seen) || (seen & kNeeded) != kNeeded ||
      parsed.total == 0) {
    return false;
  }
  info = parsed;
  return true;
}

bool parseMemoryEvents(std::string_view text, MemoryEvents &events) {
  static constexpr NumberRow<MemoryEvents> kRows[] = {
      {"pgpgin", &MemoryEvents::readKiB},       {"pgpgout", &MemoryEvents::writtenKiB},
      {"pswpin", &MemoryEvents::swappedIn},     {"pswpout", &MemoryEvents::swappedOut},
      {"pgactivate", &MemoryEvents::activated}, {"pgfault", &MemoryEvents::faults},
      {"zswpin", &MemoryEvents::decompressed},  {"zswpout", &MemoryEvents::compressed},
  };
  MemoryEvents parsed{};
  uint64_t seen = 0;
  if (!readNumberRows(text, kRows, parsed, seen)) return false;
  events = parsed;
  return true;
}

// "12.34" as hundredths.
static bool parseHundredths(std::string_view text, uint64_t &hundredths) {
  uint32_t whole = 0;
  uint32_t fraction = 0;
  size_t point = text.find('.');
  if (point == std::string_view::npos || text.size() != point + 3 ||
      !parseNumber(text.substr(0, point), whole) ||
      !parseNumber(text.substr(point + 1), fraction)) {
    return false;
  }
  hundredths = uint64_t{whole} * 100 + fraction;
  return true;
}

bool parseLoadAverage(std::string_view text, darwin::loadavg &averages) {
  constexpr uint64_t kScale = 2048;
  darwin::loadavg parsed{};
  TextCursor fields(text);
  for (uint32_t &average : parsed.ldavg) {
    std::string_view word;
    uint64_t hundredths = 0;
    if (!fields.word(word) || !parseHundredths(word, hundredths)) return false;
    // Rounded: 1/2048 is fine enough for the two digits to come out again.
    average = saturate<uint32_t>((hundredths * kScale + 50) / 100);
  }
  parsed.fscale = kScale;
  averages = parsed;
  return true;
}

bool addCompressedDevice(std::string_view memory, std::string_view transfers,
                         CompressedDevices &devices) {
  TextCursor memoryFields(memory);
  TextCursor transferFields(transfers);
  CompressedDevices device{};
  bool whole = memoryFields.number(device.dataBytes) && memoryFields.skipWords(1) &&
               memoryFields.number(device.memoryBytes) && transferFields.skipWords(2) &&
               transferFields.number(device.sectorsRead) && transferFields.skipWords(3) &&
               transferFields.number(device.sectorsWritten);
  if (!whole) return false;
  devices.memoryBytes += device.memoryBytes;
  devices.dataBytes += device.dataBytes;
  devices.sectorsRead += device.sectorsRead;
  devices.sectorsWritten += device.sectorsWritten;
  return true;
}

static uint32_t pages(uint64_t kib) {
  return saturate<uint32_t>(kib / kPageKiB);
}

void fillVirtualMemory(const MemoryInfo &info, const MemoryEvents &events,
                       const CompressedDevices &devices, uint64_t pageBytes,
                       darwin::vm_statistics64 &statistics) {
  const uint64_t pagesPerPage = std::max<uint64_t>(pageBytes / kPageBytes, 1);
  const uint64_t fileKiB = info.cached + info.buffers;
  statistics = {};
  statistics.free_count = pages(info.free);
  statistics.active_count = pages(info.active);
  statistics.inactive_count = pages(info.inactive);
  // What can neither be taken from its owner nor moved to swap.
  statistics.wire_count =
      pages(info.unevictable + info.slabUnreclaimable + info.kernelStacks + info.pageTables +
            info.secondaryPageTables + info.perProcessor + info.hugePages);
  statistics.reactivations = events.activated * pagesPerPage;
  statistics.pageins = events.readKiB / kPageKiB;
  statistics.pageouts = events.writtenKiB / kPageKiB;
  statistics.faults = events.faults;
  statistics.purgeable_count =
      pages(info.reclaimable != 0 ? info.reclaimable : info.slabReclaimable);
  statistics.decompressions =
      events.decompressed * pagesPerPage + devices.sectorsRead / kSectorsPerPage;
  statistics.compressions =
      events.compressed * pagesPerPage + devices.sectorsWritten / kSectorsPerPage;
  statistics.swapins = events.swappedIn * pagesPerPage;
  statistics.swapouts = events.swappedOut * pagesPerPage;
  statistics.compressor_page_count = pages(info.compressedPool + devices.memoryBytes / 1024);
  // Shared memory is in the cache, but swap stands behind it, not a file.
  statistics.external_page_count = pages(fileKiB > info.shared ? fileKiB - info.shared : 0);
  statistics.internal_page_count = pages(info.anonymous + info.shared);
  statistics.total_uncompressed_pages_in_compressor =
      info.compressedData / kPageKiB + devices.dataBytes / kPageBytes;
}

// One reading serves the questions of a moment: each frame has several.
Errno HostFigures::readMemory(MemoryInfo &info) {
  constexpr uint64_t kMoment = 10'000'000;
  const uint64_t now = coarseNanoseconds();
  if (memoryReadAt_ == 0 || now - memoryReadAt_ >= kMoment) {
    std::string_view text;
    const Errno error = reader_.readRecord(AT_FDCWD, "/proc/meminfo", text);
    if (error != kAnswered) return error;
    if (!parseMemoryInfo(text, memory_)) return darwin::DARWIN_EIO;
    memoryReadAt_ = now;
  }
  info = memory_;
  return kAnswered;
}

Errno HostFigures::memoryBytes(uint64_t &bytes) {
  MemoryInfo info{};
  Errno error = readMemory(info);
  if (error == kAnswered) bytes = info.total * 1024;
  return error;
}

Errno HostFigures::memoryStatusLevel(unsigned int &percent) {
  MemoryInfo info{};
  Errno error = readMemory(info);
  if (error == kAnswered) {
    percent = static_cast<unsigned int>(std::min(info.available, info.total) * 100 / info.total);
  }
  return error;
}

void HostFigures::readCompressedDevices(CompressedDevices &devices) {
  // Of the driver, without which there is none.
  if (faccessat(AT_FDCWD, "/sys/class/zram-control", F_OK, 0) != 0) return;
  FileHandle blocks = openDirectory(AT_FDCWD, "/sys/block");
  if (!blocks.isOpen()) return;
  lister_.readNames(blocks.get(), [&](std::string_view name, bool) {
    if (!name.starts_with("zram")) return;
    std::string_view memory;
    std::string_view transfers;
    std::string device(name);
    if (reader_.readRecord(blocks.get(), (device + "/mm_stat").c_str(), memory) == kAnswered &&
        secondReader_.readRecord(blocks.get(), (device + "/stat").c_str(), transfers) ==
            kAnswered) {
      addCompressedDevice(memory, transfers, devices);
    }
  });
}

Errno HostFigures::virtualMemory(darwin::vm_statistics64 &statistics) {
  MemoryInfo info{};
  MemoryEvents events{};
  CompressedDevices devices{};
  std::string_view text;
  Errno error = readMemory(info);
  if (error == kAnswered) error = reader_.readList(AT_FDCWD, "/proc/vmstat", text);
  if (error != kAnswered) return error;
  if (!parseMemoryEvents(text, events)) return darwin::DARWIN_EIO;
  readCompressedDevices(devices);
  fillVirtualMemory(info, events, devices, static_cast<uint64_t>(sysconf(_SC_PAGESIZE)),
                    statistics);
  return kAnswered;
}

Errno HostFigures::loadAverage(darwin::loadavg &averages) {
  std::string_view text;
  Errno error = reader_.readRecord(AT_FDCWD, "/proc/loadavg", text);
  if (error != kAnswered) return error;
  return parseLoadAverage(text, averages) ? kAnswered : darwin::DARWIN_EIO;
}

// Only what is swapped to encrypted devices throughout is encrypted. An encrypted device below
// another one isn't seen.
bool HostFigures::isSwapEncrypted() {
  std::string_view text;
  if (reader_.readList(AT_FDCWD, "/proc/swaps", text) != kAnswered) return false;
  TextCursor lines(text);
  std::string_view line;
  if (!lines.line(line)) return false;
  bool any = false;
  while (lines.line(line)) {
    std::string_view name;
    std::string_view uuid;
    struct stat device {};
    if (!TextCursor(line).word(name)) return false;
    if (::stat(unescapeMountName(name).c_str(), &device) != 0 || !S_ISBLK(device.st_mode)) {
      return false;
    }
    std::array<char, 64> file;
    std::snprintf(file.data(), file.size(), "/sys/dev/block/%u:%u/dm/uuid", major(device.st_rdev),
                  minor(device.st_rdev));
    if (secondReader_.readRecord(AT_FDCWD, file.data(), uuid) != kAnswered ||
        !uuid.starts_with("CRYPT-")) {
      return false;
    }
    any = true;
  }
  return any;
}

Errno HostFigures::swapUsage(darwin::xsw_usage &usage) {
  MemoryInfo info{};
  Errno error = readMemory(info);
  if (error != kAnswered) return error;
  usage = {};
  if (info.swapTotal == 0) return kAnswered;
  usage.xsu_total = info.swapTotal * 1024;
  usage.xsu_avail = std::min(info.swapFree, info.swapTotal) * 1024;
  usage.xsu_used = usage.xsu_total - usage.xsu_avail;
  usage.xsu_pagesize = static_cast<uint32_t>(sysconf(_SC_PAGESIZE));
  usage.xsu_encrypted = isSwapEncrypted() ? 1 : 0;
  return kAnswered;
}

}  // namespace host::linux_machine
