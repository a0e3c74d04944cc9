// The machine's memory, load and processors: texts of /proc over tables, the arithmetic, and the
// live figures beside what the system itself says of them.
#include "host/linux/host_figures.h"

#include <gtest/gtest.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <limits>
#include <string>

#include "darwin/errors.h"
#include "host/linux/clock.h"
#include "host/linux/mount_text.h"
#include "host/linux/processors.h"
#include "host/units.h"

namespace host::linux_machine {
namespace {

TEST(LinuxHostFigures, MemoryInfoIsFoundByItsKeys) {
  MemoryInfo info{};
  ASSERT_TRUE(
      parseMemoryInfo("MemTotal:       8000 kB\nMemFree:        4000 kB\n"
                      "MemAvailable:   5000 kB\nActive:          300 kB\n"
                      "Active(anon):     1 kB\nInactive:        200 kB\n"
                      "HugePages_Total:    9\nHugetlb:          64 kB\n",
                      info));
  EXPECT_EQ(info.total, 8000u);
  EXPECT_EQ(info.free, 4000u);
  EXPECT_EQ(info.available, 5000u);
  EXPECT_EQ(info.active, 300u);
  EXPECT_EQ(info.inactive, 200u);
  EXPECT_EQ(info.hugePages, 64u);
  EXPECT_EQ(info.swapTotal, 0u);
}

TEST(LinuxHostFigures, MemoryInfoWithoutATotalIsRefused) {
  for (const char *text :
       {"", "MemFree: 1 kB\n", "MemTotal: 0 kB\nMemFree: 0 kB\n", "MemTotal: 1 kB\n",
        "MemTotal: x kB\nMemFree: 1 kB\n", "MemTotal: 1 kB\nMemFree: 1 kB\nCached: 1"}) {
    MemoryInfo info{};
    EXPECT_FALSE(parseMemoryInfo(text, info)) << text;
  }
}

TEST(LinuxHostFigures, PagesAre4KiBWhateverTheKernelsPageIs) {
  MemoryInfo info{};
  info.free = 4096;
  info.active = 400;
  info.inactive = 40;
  info.unevictable = 4;
  info.slabUnreclaimable = 8;
  info.kernelStacks = 12;
  info.pageTables = 16;
  info.cached = 1000;
  info.buffers = 200;
  info.shared = 400;
  info.anonymous = 600;
  info.reclaimable = 48;
  info.compressedPool = 8;
  info.compressedData = 32;
  MemoryEvents events{};
  events.readKiB = 44;
  events.writtenKiB = 88;
  events.swappedIn = 3;
  events.swappedOut = 5;
  events.faults = 7;
  events.compressed = 11;
  events.decompressed = 13;
  const CompressedDevices devices{4096, 12288, 8, 16};
  for (uint64_t pageBytes : {4096u, 16384u}) {
    const uint64_t factor = pageBytes / 4096;
    darwin::vm_statistics64 statistics{};
    fillVirtualMemory(info, events, devices, pageBytes, statistics);
    EXPECT_EQ(statistics.free_count, 1024u);
    EXPECT_EQ(statistics.active_count, 100u);
    EXPECT_EQ(statistics.inactive_count, 10u);
    EXPECT_EQ(statistics.wire_count, 10u);
    EXPECT_EQ(statistics.external_page_count, 200u);
    EXPECT_EQ(statistics.internal_page_count, 250u);
    EXPECT_EQ(statistics.purgeable_count, 12u);
    EXPECT_EQ(statistics.throttled_count, 0u);
    EXPECT_EQ(statistics.compressor_page_count, 3u);
    EXPECT_EQ(statistics.total_uncompressed_pages_in_compressor, 11u);
    EXPECT_EQ(statistics.pageins, 11u);
    EXPECT_EQ(statistics.pageouts, 22u);
    EXPECT_EQ(statistics.faults, 7u);
    EXPECT_EQ(statistics.swapins, 3 * factor);
    EXPECT_EQ(statistics.swapouts, 5 * factor);
    EXPECT_EQ(statistics.compressions, 11 * factor + 2);
    EXPECT_EQ(statistics.decompressions, 13 * factor + 1);
  }
}

TEST(LinuxHostFigures, OddMemoryFiguresStayInRange) {
  MemoryInfo info{};
  info.free = std::numeric_limits<uint64_t>::max();
  info.shared = 100;
  info.slabReclaimable = 400;
  darwin::vm_statistics64 statistics{};
  fillVirtualMemory(info, MemoryEvents{}, CompressedDevices{}, 512, statistics);
  EXPECT_EQ(statistics.free_count, UINT32_MAX);
  EXPECT_EQ(statistics.external_page_count, 0u) << "more shared memory than cache";
  EXPECT_EQ(statistics.purgeable_count, 100u) << "an old kernel counts slabs only";
}

TEST(LinuxHostFigures, MemoryEventsMayBeMissing) {
  MemoryEvents events{};
  ASSERT_TRUE(parseMemoryEvents("nr_free_pages 1\npgpgin 44\npgfault 7\npswpin 1\n", events));
  EXPECT_EQ(events.readKiB, 44u);
  EXPECT_EQ(events.faults, 7u);
  EXPECT_EQ(events.compressed, 0u);
  EXPECT_FALSE(parseMemoryEvents("pgfault x\n", events));
  EXPECT_FALSE(parseMemoryEvents("pgfault 7", events));
}

TEST(LinuxHostFigures, LoadAveragesPrintAsTheyWere) {
  for (uint64_t hundredths = 0; hundredths <= 20000; hundredths++) {
    char word[32];
    std::snprintf(word, sizeof word, "%llu.%02llu",
                  static_cast<unsigned long long>(hundredths / 100),
                  static_cast<unsigned long long>(hundredths % 100));
    darwin::loadavg averages{};
    ASSERT_TRUE(parseLoadAverage(std::string(word) + " 0.00 0.00 1/2 3\n", averages));
    char shown[32];
    std::snprintf(shown, sizeof shown, "%0.2f",
                  static_cast<double>(averages.ldavg[0]) / static_cast<double>(averages.fscale));
    ASSERT_STREQ(shown, word);
  }
}

TEST(LinuxHostFigures, LoadAveragesAreCheckedAndBounded) {
  darwin::loadavg averages{};
  for (const char *text : {"", "0.01 0.02", "0.01 0.02 3", "0.01 0.02 0.3 1/2 3\n",
                           "-0.01 0.02 0.03 1/2 3\n", "0.-1 0.02 0.03 1/2 3\n", "a b c\n"}) {
    EXPECT_FALSE(parseLoadAverage(text, averages)) << text;
  }
  ASSERT_TRUE(parseLoadAverage("0.09 1.50 4294967295.99 1/89 4928\n", averages));
  EXPECT_EQ(averages.fscale, 2048);
  EXPECT_EQ(averages.ldavg[1], 3072u);
  EXPECT_EQ(averages.ldavg[2], UINT32_MAX);
}

TEST(LinuxHostFigures, CompressedDevicesAddUp) {
  CompressedDevices devices{};
  const char *memory = "    8192     1000     4096        0     4096        1        0        0\n";
  const char *transfers = "  5 0 40 1  6 0 48 2 0 0 0\n";
  EXPECT_TRUE(addCompressedDevice(memory, transfers, devices));
  EXPECT_TRUE(addCompressedDevice(memory, transfers, devices));
  EXPECT_EQ(devices.memoryBytes, 8192u);
  EXPECT_EQ(devices.dataBytes, 16384u);
  EXPECT_EQ(devices.sectorsRead, 80u);
  EXPECT_EQ(devices.sectorsWritten, 96u);
  EXPECT_FALSE(addCompressedDevice("1 2", transfers, devices));
  EXPECT_FALSE(addCompressedDevice(memory, "1 2 3 4 5 6", devices));
  EXPECT_FALSE(addCompressedDevice("", "", devices));
  EXPECT_EQ(devices.memoryBytes, 8192u);
}

TEST(LinuxHostFigures, MountNamesLoseTheirEscapes) {
  struct {
    const char *text;
    const char *plain;
  } const cases[] = {
      {"", ""},           {"/a/b", "/a/b"},   {"/a\\040b", "/a b"}, {"\\134", "\\"},
      {"\\12", "\\12"},   {"\\128", "\\128"}, {"\\777", "\\777"},   {"x\\011\\012", "x\t\n"},
      {"end\\", "end\\"}, {"\\0400", " 0"},
  };
  for (const auto &one : cases) EXPECT_EQ(unescapeMountName(one.text), one.plain) << one.text;
}

TEST(LinuxProcessors, TicksAreReadPerProcessor) {
  std::vector<ProcessorTicks> processors;
  ASSERT_TRUE(
      parseProcessorTicks("cpu  9 9 9 9 9 9 9 9 9 9\ncpu0 1 2 3 4 5 6 7 8 9 10\n"
                          "cpu3 10 20 30 40\nintr 5\nbtime 7\n",
                          processors));
  ASSERT_EQ(processors.size(), 2u);
  EXPECT_EQ(processors[0].number, 0u);
  EXPECT_EQ(processors[0].user, 1u);
  EXPECT_EQ(processors[0].nice, 2u);
  EXPECT_EQ(processors[0].system, 3u + 6 + 7);
  EXPECT_EQ(processors[0].idle, 4u + 5);
  EXPECT_EQ(processors[1].number, 3u);
  EXPECT_EQ(processors[1].system, 30u);
}

TEST(LinuxProcessors, MalformedTicksAreRefused) {
  for (const char *text : {"", "cpu  1 2 3 4\n", "cpu0 1 2 3\n", "cpu0 1 2 3 x\n", "cpux 1 2 3 4\n",
                           "cpu8192 1 2 3 4\n", "cpu0 1 2 3 4\ncpu1 1 2"}) {
    std::vector<ProcessorTicks> processors(5);
    EXPECT_FALSE(parseProcessorTicks(text, processors)) << text;
    EXPECT_EQ(processors.size(), 5u);
  }
}

TEST(LinuxProcessors, NumberListsAreCounted) {
  struct {
    const char *text;
    uint32_t count;
  } const cases[] = {
      {"0\n", 1},    {"0-1\n", 2}, {"0-3,8\n", 5},   {"0,2,4-7", 6}, {"", 0},
      {"\n", 0},     {"3-1\n", 0}, {"a\n", 0},       {"0-\n", 0},    {"-1\n", 0},
      {"0-9999", 0}, {"0,,1", 0},  {"0-8191", 8192},
  };
  for (const auto &one : cases) EXPECT_EQ(countNumberList(one.text), one.count) << one.text;
}

TEST(LinuxProcessors, TheLiveOnesAreAsTheLibrarySays) {
  Processors processors;
  darwin::host_basic_info info{};
  ASSERT_EQ(processors.basicInfo(info), kAnswered);
  EXPECT_EQ(info.logical_cpu, sysconf(_SC_NPROCESSORS_ONLN));
  EXPECT_GE(info.logical_cpu_max, info.logical_cpu);
  EXPECT_GE(info.physical_cpu, 1);
  EXPECT_LE(info.physical_cpu, info.logical_cpu);
  unsigned int count = 0;
  ASSERT_EQ(processors.count(count), kAnswered);
  EXPECT_EQ(count, static_cast<unsigned int>(info.logical_cpu));
  darwin::processor_cpu_load_info load{};
  EXPECT_EQ(processors.load(count, load), darwin::DARWIN_EINVAL);

  std::vector<darwin::processor_cpu_load_info> before(count);
  for (unsigned int i = 0; i < count; i++) ASSERT_EQ(processors.load(i, before[i]), kAnswered);
  for (int again = 0; again < 20; again++) {
    for (unsigned int i = 0; i < count; i++) {
      ASSERT_EQ(processors.load(i, load), kAnswered);
      for (int kind = 0; kind < darwin::CPU_STATE_MAX; kind++) {
        EXPECT_GE(load.cpu_ticks[kind], before[i].cpu_ticks[kind]) << "counters don't fall";
      }
      before[i] = load;
    }
  }
  uint64_t sum = 0;
  for (uint32_t ticks : before[0].cpu_ticks) sum += ticks;
  EXPECT_GT(sum, 0u);
}

TEST(LinuxHostFigures, TheLiveOnesAreAsTheSystemCallSays) {
  HostFigures figures;
  struct sysinfo system {};
  ASSERT_EQ(sysinfo(&system), 0);
  uint64_t memory = 0;
  ASSERT_EQ(figures.memoryBytes(memory), kAnswered);
  EXPECT_EQ(memory, uint64_t{system.totalram} * system.mem_unit);
  darwin::xsw_usage swap{};
  ASSERT_EQ(figures.swapUsage(swap), kAnswered);
  EXPECT_EQ(swap.xsu_total, uint64_t{system.totalswap} * system.mem_unit);
  EXPECT_EQ(swap.xsu_avail + swap.xsu_used, swap.xsu_total);
  unsigned int level = 101;
  ASSERT_EQ(figures.memoryStatusLevel(level), kAnswered);
  EXPECT_LE(level, 100u);
  darwin::vm_statistics64 statistics{};
  ASSERT_EQ(figures.virtualMemory(statistics), kAnswered);
  EXPECT_GT(statistics.free_count, 0u);
  EXPECT_LT(uint64_t{statistics.free_count} * 4096, memory);
  EXPECT_GT(statistics.faults, 0u);
}

TEST(LinuxClock, BootIsWhatTheKernelSays) {
  std::ifstream stat("/proc/stat");
  std::string key;
  uint64_t value = 0;
  while (stat >> key && key != "btime") {
  }
  ASSERT_TRUE(stat >> value);
  EXPECT_EQ(bootMoment().seconds, value);
  EXPECT_LT(bootMoment().microseconds, 1000000u);
}

TEST(LinuxClock, StartsCountFromTheBootSecond) {
  const WallTime boot{1000, 999999};
  uint64_t second = kNanosecondsPerSecond / nanosecondsPerTick();
  EXPECT_EQ(startMoment(boot, 0).seconds, 1000u);
  EXPECT_EQ(startMoment(boot, 0).microseconds, 0u);
  EXPECT_EQ(startMoment(boot, 2 * second + second / 2).seconds, 1002u);
  EXPECT_EQ(startMoment(boot, 2 * second + second / 2).microseconds, 500000u);
  EXPECT_EQ(ticksToNanoseconds(second), uint64_t{kNanosecondsPerSecond});
  EXPECT_EQ(ticksToNanoseconds(UINT64_MAX), UINT64_MAX);
}

}  // namespace
}  // namespace host::linux_machine
