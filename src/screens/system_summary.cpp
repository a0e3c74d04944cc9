#include "screens/system_summary.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "columns/perspective.h"
#include "darwin/mach_host.h"
#include "darwin/sysctl.h"
#include "device/gestalt.h"
#include "proc/sampler.h"
#include "screens/cpu_summary.h"
#include "screens/gestalt.h"
#include "screens/network_summary.h"
#include "screens/power_summary.h"
#include "screens/wifi_summary.h"
#include "state/display.h"
#include "state/system.h"
#include "terminal/output.h"
#include "terminal/screen.h"
#include "text/format.h"
#include "text/safe_text.h"

namespace sondex {

constexpr int kShownHostName = 80;
constexpr darwin::mach_msg_type_number_t kStatisticsWords =
    152;                                // more than the kernel needs; it takes up to 256
constexpr int kPagesPerMegabyte = 256;  // of a fixed page size of 4 KiB
// Bytes. More is a total that fell, as processes went away.
constexpr uint64_t kImplausibleGrowth = 1073741824;

static void showIdentity() {
  if (gestaltAnswer("marketing-name") != nullptr) {
    outputGestaltAnswer("marketing-name");
    outputGestaltAnswer("ProductName");
    outputGestaltAnswer("ProductVersion");
    output(", ", 0);
    outputGestaltAnswer("BuildVersion");
    output(") ", 0);
  }
  if (g_hostName != nullptr) {
    char name[kShownHostName + 1];
    output(makeSafe(name, sizeof name, g_hostName, kShownHostName), 0);
  }
  const time_t now = time(nullptr);
  tm local = {};
  char clock[16];
  if (localtime_r(&now, &local) != nullptr &&
      strftime(clock, sizeof clock, " %H:%M:%S ", &local) > 0) {
    output(clock, 0);
  }
}

static void showUptime() {
  output(" Up ", 0);
  darwin::timeval booted = {};
  size_t size = sizeof booted;
  const bool known =
      darwin::sysctlbyname("kern.boottime", &booted, &size, nullptr, 0) == 0 && booted.tv_sec != 0;
  int64_t up = 0;
  if (__builtin_sub_overflow(static_cast<int64_t>(time(nullptr)), booted.tv_sec, &up) || up < 0)
    up = 0;
  output(known ? secsToTimeString(static_cast<uint64_t>(up), 0, 1) : "<unknown>", 0);
}

static void showLoad(int32_t processes) {
  darwin::loadavg load_average = {};
  size_t size = sizeof load_average;
  if (darwin::sysctlbyname("vm.loadavg", &load_average, &size, nullptr, 0) != 0) {
    outputFormatted(0, "Load Avg: %s\n", strerror(errno));
    return;
  }
  const double scale = static_cast<double>(load_average.fscale != 0 ? load_average.fscale : 1);
  outputFormatted(0, " Load Avg:  %0.2f %0.2f %0.2f\t%d processes\n", load_average.ldavg[0] / scale,
                  load_average.ldavg[1] / scale, load_average.ldavg[2] / scale, processes);
}

static int megabytes(uint64_t pages) {
  return static_cast<int>(pages / kPagesPerMegabyte);
}

static void showRAM(const darwin::vm_statistics64 &memory) {
  const uint64_t used = uint64_t{memory.active_count} + memory.inactive_count + memory.wire_count;
  const int free = megabytes(memory.free_count);
  const int active = megabytes(memory.active_count);
  const int inactive = megabytes(memory.inactive_count);
  const int wired = megabytes(memory.wire_count);
  const int purgeable = megabytes(memory.purgeable_count);
  if (load(g_Compression) != 0) {
    outputFormatted(
        0,
        "RAM:  %4dM Free + %4dM Used (Active: %4dM + Inactive: %4dM + Wired: %4dM Comp: %4dM) %4dM "
        "purgeable\n",
        free, megabytes(used + memory.compressor_page_count), active, inactive, wired,
        megabytes(memory.compressor_page_count), purgeable);
  } else {
    outputFormatted(
        0,
        "RAM:  %4dM Free + %4dM Used (Active: %4dM + Inactive: %4dM + Wired: %4dM) %4dM "
        "purgeable\n",
        free, megabytes(used), active, inactive, wired, purgeable);
  }
}

static void showPressure() {
  const int32_t left = load(g_VMPressureDetected);
  if (left == 0) {
    output("            ", 0);
    return;
  }
  store(g_VMPressureDetected, left - 1);
  const uint32_t attribute = colorPair(kPairWarning);
  switchOn(attribute);
  output(" <PRESSURE> ", 0);
  switchOff(attribute);
}

static void showMemoryStatus() {
  static char text[32];  // a failed call shows what was known last
  if (memorystatus_get_level_funcptr == nullptr) return;
  unsigned int level = 0;
  if (memorystatus_get_level_funcptr(&level) == 0) {
    snprintf(text, sizeof text, "Memstatus: %2d ", static_cast<int>(level));
  }
  output(text, 0);
}

struct CompressorCounters {
  uint32_t compressed;
  uint32_t decompressed;
};

static CompressorCounters compressorCounters(const darwin::vm_statistics64 &memory) {
  return {static_cast<uint32_t>(memory.compressions / kPagesPerMegabyte),
          static_cast<uint32_t>(memory.decompressions / kPagesPerMegabyte)};
}

static void showCompressor(const darwin::vm_statistics64 &memory, const ProcessRecord *previous) {
  const CompressorCounters now = compressorCounters(memory);
  CompressorCounters before = {};
  if (load(g_Delta) != 0 && previous != nullptr) {
    before = {previous->compressionsStash, previous->decompressionsStash};
  }
  outputFormatted(0, "Comp: %4dM , Decomp: %4dM  File: %4dM  Anon: %4dM Throttled: %4dM\n",
                  static_cast<int>(now.compressed - before.compressed),
                  static_cast<int>(now.decompressed - before.decompressed),
                  megabytes(memory.external_page_count), megabytes(memory.internal_page_count),
                  megabytes(memory.throttled_count));
}

static void noteCompressor(ProcessRecord *first, const darwin::vm_statistics64 &memory) {
  const CompressorCounters now = compressorCounters(memory);
  first->compressionsStash = now.compressed;
  first->decompressionsStash = now.decompressed;
}

static void showSwap(const darwin::xsw_usage &swap) {
  if (swap.xsu_total == 0 || load(g_Swap) == 0) return;
  const uint64_t free = swap.xsu_total > swap.xsu_used ? swap.xsu_total - swap.xsu_used : 0;
  outputFormatted(0, "Swap: %4lldM Free + %4lldM Used %s\n", static_cast<long long>(free >> 20),
                  static_cast<long long>(swap.xsu_used >> 20),
                  swap.xsu_encrypted != 0 ? "(enc) " : "");
}

static void showMemory(ProcessRecord *current, const ProcessRecord *previous) {
  darwin::xsw_usage swap = {};
  size_t size = sizeof swap;
  if (darwin::sysctlbyname("vm.swapusage", &swap, &size, nullptr, 0) != 0) swap = {};

  union {
    darwin::vm_statistics64 memory;
    darwin::integer_t words[kStatisticsWords];
  } host = {};
  darwin::mach_msg_type_number_t words = kStatisticsWords;
  if (darwin::host_statistics64(host_self, darwin::HOST_VM_INFO64, host.words, &words) !=
      darwin::KERN_SUCCESS) {
    return;
  }
  showRAM(host.memory);
  showPressure();
  showMemoryStatus();
  if (load(g_Compression) != 0) {
    showCompressor(host.memory, previous);
    noteCompressor(current, host.memory);  // last: while updates are frozen, both are one record
  }
  showSwap(swap);
}

static uint64_t plausibleGrowth(uint64_t before, uint64_t now) {
  const uint64_t growth = now - before;
  return growth > kImplausibleGrowth ? 0 : growth;
}

static void showDisks() {
  if (proc_pid_rusage_funcptr == nullptr) {
    output("Disks: Unsupported on this version ", 0);
    return;
  }
  const darwin::rusage_info_v3 &now = g_Total_Rusage;
  const darwin::rusage_info_v3 &before = g_Prev_Total_Rusage;
  output("Disks: ", 0);
  outputFormatted(0, "Read: %s/sec",
                  printSize(plausibleGrowth(before.ri_diskio_bytesread, now.ri_diskio_bytesread)));
  outputFormatted(
      0, " Written: %s/sec\t",
      printSize(plausibleGrowth(before.ri_diskio_byteswritten, now.ri_diskio_byteswritten)));
}

static void showNetworks() {
  const NetworkSample *sample = sample_networks();
  if (sample == nullptr) {
    output("Error sampling network information\n", 0);
    return;
  }
  outputFormatted(0, "Pkts: RX: %lld/%s (%llu bytes/sec) ",
                  static_cast<long long>(sample->receivedPackets), printSize(sample->receivedBytes),
                  static_cast<unsigned long long>(sample->receivedBytesPerSecond));
  outputFormatted(0, "TX: %lld/%s (%lld bytes/sec) ", static_cast<long long>(sample->sentPackets),
                  printSize(sample->sentBytes), static_cast<long long>(sample->sentBytesPerSecond));
}

void showSystemSummary(TableView current, TableView previous) {
  const Perspective *perspective = getCurrentPerspective();
  showIdentity();
  showUptime();
  showLoad(current.count);
  if (load(g_Processors) != 0) output(showProcessorInfo(), 0);
  if (load(g_showMemory) != 0) showMemory(current.records, previous.records);
  if (perspective->ShowDisks != 0) showDisks();
  if (perspective->ShowNetworks != 0) showNetworks();
  output("\n", 0);
  if (perspective->ShowWiFi != 0) showWiFiDetails();
  if (perspective->ShowPower != 0) {
    output(getPowerDetails(), 0);
    output("\n", 0);
  }
}

}  // namespace sondex
