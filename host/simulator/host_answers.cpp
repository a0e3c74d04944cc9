#include "host/simulator/host_answers.h"

#include <algorithm>

#include "host/simulator/wide.h"
#include "host/units.h"

namespace host::simulator {

namespace {

constexpr int64_t kLoadScale = 2048;

uint32_t pages(Wide count) {
  return saturate<uint32_t>(count);
}

int32_t orCount(int32_t number, const Hardware &hardware) {
  return number != 0 ? number : saturate<int32_t>(hardware.processors.size());
}

}  // namespace

void fillBasicInfo(const Hardware &hardware, darwin::host_basic_info &info) {
  info = {};
  info.logical_cpu = orCount(hardware.logicalProcessors, hardware);
  info.logical_cpu_max = orCount(hardware.logicalProcessorsMost, hardware);
  info.physical_cpu = orCount(hardware.physicalProcessors, hardware);
  info.physical_cpu_max = orCount(hardware.physicalProcessorsMost, hardware);
  info.max_cpus = info.logical_cpu_max;
  info.avail_cpus = info.logical_cpu;
  info.memory_size = saturate<uint32_t>(hardware.memory);
  info.cpu_type = hardware.processorType;
  info.cpu_subtype = hardware.processorSubtype;
  info.max_mem = hardware.memory;
}

void fillVirtualMemory(const Memory &memory, Nanoseconds now, darwin::vm_statistics64 &statistics) {
  statistics = {};
  statistics.free_count = pages(memory.free.at(now));
  statistics.active_count = pages(memory.active.at(now));
  statistics.inactive_count = pages(memory.inactive.at(now));
  statistics.wire_count = pages(memory.wired.at(now));
  statistics.zero_fill_count = memory.zeroFills.at(now);
  statistics.reactivations = memory.reactivations.at(now);
  statistics.pageins = memory.pageIns.at(now);
  statistics.pageouts = memory.pageOuts.at(now);
  statistics.faults = memory.faults.at(now);
  statistics.cow_faults = memory.copyOnWriteFaults.at(now);
  statistics.lookups = memory.lookups.at(now);
  statistics.hits = memory.hits.at(now);
  statistics.purges = memory.purges.at(now);
  statistics.purgeable_count = pages(memory.purgeable.at(now));
  statistics.speculative_count = pages(memory.speculative.at(now));
  statistics.decompressions = memory.decompressions.at(now);
  statistics.compressions = memory.compressions.at(now);
  statistics.swapins = memory.swapIns.at(now);
  statistics.swapouts = memory.swapOuts.at(now);
  statistics.compressor_page_count = pages(memory.compressor.at(now));
  statistics.throttled_count = pages(memory.throttled.at(now));
  statistics.external_page_count = pages(memory.external.at(now));
  statistics.internal_page_count = pages(memory.internal.at(now));
  statistics.total_uncompressed_pages_in_compressor = memory.uncompressed.at(now);
}

// The kernel's counts have 32 bits and start again.
void fillProcessorLoad(const Processor &processor, Nanoseconds now,
                       darwin::processor_cpu_load_info &load) {
  load.cpu_ticks[darwin::CPU_STATE_USER] = static_cast<uint32_t>(processor.user.at(now));
  load.cpu_ticks[darwin::CPU_STATE_SYSTEM] = static_cast<uint32_t>(processor.system.at(now));
  load.cpu_ticks[darwin::CPU_STATE_IDLE] = static_cast<uint32_t>(processor.idle.at(now));
  load.cpu_ticks[darwin::CPU_STATE_NICE] = static_cast<uint32_t>(processor.nice.at(now));
}

void fillBootTime(const MachineClock &clock, Nanoseconds up, darwin::timeval &time) {
  const Wide boot = clock.sinceEpoch(Nanoseconds{0}) - up.count();
  const Wide microseconds = std::max<Wide>(boot / kNanosecondsPerMicrosecond, 0);
  time = {};
  time.tv_sec = saturate<int64_t>(microseconds / kMicrosecondsPerSecond);
  time.tv_usec = static_cast<int32_t>(microseconds % kMicrosecondsPerSecond);
}

void fillLoadAverage(const std::array<Figure, 3> &averages, Nanoseconds now, darwin::loadavg &to) {
  to = {};
  for (size_t i = 0; i < averages.size(); ++i) {
    const Wide scaled = Wide{averages[i].at(now)} * kLoadScale;
    to.ldavg[i] = saturate<uint32_t>((scaled + kMillion / 2) / kMillion);
  }
  to.fscale = kLoadScale;
}

void fillSwapUsage(const Swap &swap, Nanoseconds now, uint64_t pageSize, darwin::xsw_usage &usage) {
  usage = {};
  usage.xsu_total = swap.total;
  usage.xsu_used = std::min(swap.used.at(now), swap.total);
  usage.xsu_avail = usage.xsu_total - usage.xsu_used;
  usage.xsu_pagesize = saturate<uint32_t>(pageSize);
  usage.xsu_encrypted = swap.isEncrypted ? 1 : 0;
}

}  // namespace host::simulator
