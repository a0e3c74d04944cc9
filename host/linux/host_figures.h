// The machine's memory, swap and load as Darwin's structures: plain functions over the texts of
// /proc, and where those texts are read. Processors are not here.
#pragma once

#include <cstdint>
#include <string_view>

#include "darwin/mach_host.h"
#include "darwin/sysctl.h"
#include "host/errno.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

// /proc/meminfo, in KiB. Lines that the kernel leaves out read as 0.
struct MemoryInfo {
  uint64_t total;
  uint64_t free;
  uint64_t available;
  uint64_t buffers;
  uint64_t cached;
  uint64_t active;
  uint64_t inactive;
  uint64_t unevictable;
  uint64_t swapTotal;
  uint64_t swapFree;
  uint64_t compressedPool;  // what zswap takes
  uint64_t compressedData;  // what it holds, before compression
  uint64_t anonymous;
  uint64_t shared;  // part of `cached`, but not of any file
  uint64_t reclaimable;
  uint64_t slabReclaimable;
  uint64_t slabUnreclaimable;
  uint64_t kernelStacks;
  uint64_t pageTables;
  uint64_t secondaryPageTables;
  uint64_t perProcessor;
  uint64_t hugePages;
};

// /proc/vmstat since boot, in pages of the kernel unless named otherwise.
struct MemoryEvents {
  uint64_t readKiB;
  uint64_t writtenKiB;
  uint64_t swappedIn;
  uint64_t swappedOut;
  uint64_t activated;
  uint64_t faults;
  uint64_t decompressed;
  uint64_t compressed;
};

// What all compressed block devices do together.
struct CompressedDevices {
  uint64_t memoryBytes;  // what they take
  uint64_t dataBytes;    // what they hold, before compression
  uint64_t sectorsRead;  // of 512 bytes
  uint64_t sectorsWritten;
};

// Each returns false, and leaves its record alone, for a text that is not whole and well-formed.
bool parseMemoryInfo(std::string_view text, MemoryInfo &info);
bool parseMemoryEvents(std::string_view text, MemoryEvents &events);
bool parseLoadAverage(std::string_view text, darwin::loadavg &averages);
// The texts of a device's mm_stat and stat are added to `devices`.
bool addCompressedDevice(std::string_view memory, std::string_view transfers,
                         CompressedDevices &devices);

// Counts are of 4 KiB pages, whatever the kernel's page size (`pageBytes`) is.
void fillVirtualMemory(const MemoryInfo &info, const MemoryEvents &events,
                       const CompressedDevices &devices, uint64_t pageBytes,
                       darwin::vm_statistics64 &statistics);

class HostFigures {
 public:
  Errno memoryBytes(uint64_t &bytes);
  Errno memoryStatusLevel(unsigned int &percent);
  Errno virtualMemory(darwin::vm_statistics64 &statistics);
  Errno loadAverage(darwin::loadavg &averages);
  Errno swapUsage(darwin::xsw_usage &usage);

 private:
  Errno readMemory(MemoryInfo &info);
  void readCompressedDevices(CompressedDevices &devices);
  bool isSwapEncrypted();

  FileReader reader_;
  FileReader secondReader_;
  DirectoryReader lister_;
  MemoryInfo memory_{};
  uint64_t memoryReadAt_ = 0;  // coarseNanoseconds(); 0 for never
};

}  // namespace host::linux_machine
