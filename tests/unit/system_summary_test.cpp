#include "screens/system_summary.h"

#include <gmock/gmock.h>

#include <climits>
#include <string>
#include <vector>

#include "host/darwin/interfaces.h"
#include "screens/power_summary.h"
#include "tests/unit/list_screen.h"

namespace {

using namespace sondex;
using sampled::ListScreenTest;
using sampled::outputOf;
using testing::ExitedWithCode;
using testing::StartsWith;

constexpr char kUptime[] = " Up  1 days, 01:01";
constexpr char kLoad[] = " Load Avg:  0.50 1.00 2.25\t3 processes\n";

// What the stand-in for memorystatus_get_level answers.
unsigned int g_level = 0;
int g_levelResult = 0;

int answerLevel(unsigned int *level) {
  *level = g_level;
  return g_levelResult;
}

class SystemSummary : public ListScreenTest {
 protected:
  SystemSummary() : table(current({"a", "b", "c"})) {}

  std::string show(ProcessRecord *previous = nullptr) {
    return outputOf([&] {
      showSystemSummary(currentTable(), {previous, previous != nullptr ? 1 : 0});
    });
  }

  // The sections after the load line.
  std::string sections(ProcessRecord *previous = nullptr) {
    const std::string rest = afterIdentity(show(previous));
    const std::string front = std::string(kUptime) + kLoad;
    EXPECT_EQ(rest.substr(0, front.size()), front);
    return rest.substr(std::min(rest.size(), front.size()));
  }

  ProcessRecord *table;
};

TEST_F(SystemSummary, AtLeastSaysWhoHowLongAndHowBusy) {
  EXPECT_EQ(afterIdentity(show()), std::string(kUptime) + kLoad + "\n");
}

TEST_F(SystemSummary, HostNameIsCutToEightyCharacters) {
  std::free(g_hostName);
  g_hostName = strdup((std::string(80, 'n') + "more").c_str());
  EXPECT_EQ(afterIdentity(show(), std::string(80, 'n')), std::string(kUptime) + kLoad + "\n");
}

TEST_F(SystemSummary, HostNameCannotDriveTheTerminal) {
  std::free(g_hostName);
  g_hostName = strdup("a\x1b[2J\nb");
  EXPECT_EQ(afterIdentity(show(), "a?[2J?b"), std::string(kUptime) + kLoad + "\n");
}

TEST_F(SystemSummary, UnknownHostNameIsEmpty) {
  std::free(g_hostName);
  g_hostName = nullptr;
  EXPECT_EQ(afterIdentity(show(), ""), std::string(kUptime) + kLoad + "\n");
}

TEST_F(SystemSummary, UptimeIsUnknownWithoutABootTime) {
  machine.boot.tv_sec = 0;
  EXPECT_EQ(afterIdentity(show()), std::string(" Up <unknown>") + kLoad + "\n");
  machine.boot.tv_sec = 100;
  machine.refusals["bootTime"] = darwin::DARWIN_EPERM;
  EXPECT_EQ(afterIdentity(show()), std::string(" Up <unknown>") + kLoad + "\n");
}

TEST_F(SystemSummary, UptimeOfAFutureBootIsNone) {
  machine.boot.tv_sec = std::time(nullptr) + 10000;
  EXPECT_EQ(afterIdentity(show()), std::string(" Up    00.00") + kLoad + "\n");
}

TEST_F(SystemSummary, UptimeSinceNoPossibleTimeIsNone) {
  machine.boot.tv_sec = INT64_MIN;
  EXPECT_EQ(afterIdentity(show()), std::string(" Up    00.00") + kLoad + "\n");
}

TEST_F(SystemSummary, LoadThatIsRefusedShowsTheReason) {
  machine.refusals["loadAverage"] = darwin::DARWIN_EPERM;
  EXPECT_EQ(afterIdentity(show()), std::string(kUptime) + "Load Avg: Operation not permitted\n\n");
}

TEST_F(SystemSummary, LoadIsDividedByItsScale) {
  machine.load = {{150, 275, 99999}, 100};
  EXPECT_EQ(afterIdentity(show()),
            std::string(kUptime) + " Load Avg:  1.50 2.75 999.99\t3 processes\n\n");
  machine.load.fscale = 0;
  EXPECT_EQ(afterIdentity(show()),
            std::string(kUptime) + " Load Avg:  150.00 275.00 99999.00\t3 processes\n\n");
}

TEST_F(SystemSummary, ProcessorsStandAfterTheLoad) {
  machine.basic.logical_cpu = 4;
  machine.basic.logical_cpu_max = 6;
  store(g_Processors, 1);
  EXPECT_THAT(sections(), StartsWith("CPU:   4/6 active "));
  EXPECT_EQ(machine.timesAsked("hostBasicInfo"), 1u);
  store(g_Processors, 0);
  EXPECT_EQ(sections(), "\n");
  EXPECT_EQ(machine.timesAsked("hostBasicInfo"), 1u);
}

class MemorySummary : public SystemSummary {
 protected:
  MemorySummary() {
    store(g_showMemory, 1);
    machine.memory.free_count = 100 * 256 + 255;
    machine.memory.active_count = 200 * 256 + 200;
    machine.memory.inactive_count = 300 * 256 + 200;
    machine.memory.wire_count = 50 * 256;
    machine.memory.compressor_page_count = 70 * 256 + 128;
    machine.memory.purgeable_count = 10 * 256;
    machine.memory.compressions = 900 * 256 + 1;
    machine.memory.decompressions = 400 * 256;
    machine.memory.external_page_count = 33 * 256;
    machine.memory.internal_page_count = 44 * 256;
    machine.memory.throttled_count = 5 * 256;
  }

  static constexpr char kRAM[] =
      "RAM:   100M Free +  551M Used (Active:  200M + Inactive:  300M + Wired:   50M)   10M "
      "purgeable\n";
  static constexpr char kCompressedRAM[] =
      "RAM:   100M Free +  622M Used (Active:  200M + Inactive:  300M + Wired:   50M Comp:   70M) "
      "  10M purgeable\n";
  static constexpr char kNoPressure[] = "            ";
};

TEST_F(MemorySummary, WithoutCompressionIsOneLineAndTheMark) {
  EXPECT_EQ(sections(), std::string(kRAM) + kNoPressure + "\n");
  EXPECT_EQ(table->compressionsStash, 0u);
}

TEST_F(MemorySummary, WithCompressionHasItsCounters) {
  store(g_Compression, 1);
  EXPECT_EQ(sections(),
            std::string(kCompressedRAM) + kNoPressure +
                "Comp:  900M , Decomp:  400M  File:   33M  Anon:   44M Throttled:    5M\n\n");
}

TEST_F(MemorySummary, IsLeftOutWhenTheHostRefuses) {
  store(g_Compression, 1);
  store(g_Swap, 1);
  machine.swap = {1 << 20, 0, 0, 4096, 0};
  g_levelResult = 0;
  memorystatus_get_level_funcptr = answerLevel;
  store(g_VMPressureDetected, 2);
  machine.refusals["virtualMemory"] = darwin::DARWIN_EPERM;
  EXPECT_EQ(sections(), "\n");
  EXPECT_EQ(load(g_VMPressureDetected), 2) << "no frame showed the mark";
}

TEST_F(MemorySummary, IsLeftOutWhenSwitchedOff) {
  store(g_showMemory, 0);
  store(g_Compression, 1);
  store(g_Swap, 1);
  EXPECT_EQ(sections(), "\n");
  EXPECT_EQ(machine.timesAsked("virtualMemory"), 0u);
}

TEST_F(MemorySummary, PressureMarkCountsDown) {
  store(g_VMPressureDetected, 2);
  EXPECT_EQ(sections(), std::string(kRAM) + " <PRESSURE> \n");
  EXPECT_EQ(load(g_VMPressureDetected), 1);
  EXPECT_EQ(sections(), std::string(kRAM) + " <PRESSURE> \n");
  EXPECT_EQ(sections(), std::string(kRAM) + kNoPressure + "\n");
  EXPECT_EQ(load(g_VMPressureDetected), 0);
}

TEST_F(MemorySummary, LevelStandsAfterTheMark) {
  memorystatus_get_level_funcptr = answerLevel;
  g_levelResult = 0;
  g_level = 7;
  EXPECT_EQ(sections(), std::string(kRAM) + kNoPressure + "Memstatus:  7 \n");
  g_level = 100;
  EXPECT_EQ(sections(), std::string(kRAM) + kNoPressure + "Memstatus: 100 \n");
}

TEST_F(MemorySummary, FailedLevelShowsWhatWasKnownLast) {
  memorystatus_get_level_funcptr = answerLevel;
  g_levelResult = 0;
  g_level = 42;
  sections();
  g_levelResult = -1;
  g_level = 13;
  EXPECT_EQ(sections(), std::string(kRAM) + kNoPressure + "Memstatus: 42 \n");
  memorystatus_get_level_funcptr = nullptr;
  EXPECT_EQ(sections(), std::string(kRAM) + kNoPressure + "\n");
}

class MemorySummaryDeathTest : public MemorySummary {
 protected:
  MemorySummaryDeathTest() : m_style(GTEST_FLAG_GET(death_test_style)) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
  }
  ~MemorySummaryDeathTest() override { GTEST_FLAG_SET(death_test_style, m_style); }

 private:
  std::string m_style;
};

// Seen in a fresh process, which never knew a level.
TEST_F(MemorySummaryDeathTest, LevelThatNeverWasKnownIsEmpty) {
  memorystatus_get_level_funcptr = answerLevel;
  g_levelResult = -1;
  EXPECT_EXIT(
      {
        std::fputs(sections().c_str(), stderr);
        std::exit(0);
      },
      ExitedWithCode(0), testing::Eq(std::string(kRAM) + kNoPressure + "\n"));
}

class CompressorSummary : public MemorySummary {
 protected:
  CompressorSummary() { store(g_Compression, 1); }

  // The two counters as shown.
  std::string counters(ProcessRecord *before) {
    const std::string shown = sections(before);
    const size_t begin = shown.find("\n            Comp:");
    EXPECT_NE(begin, std::string::npos);
    return shown.substr(begin + 13, shown.find("  File:") - begin - 13);
  }

  ProcessRecord previous{};
};

TEST_F(CompressorSummary, KeepsItsCountersInTheFirstRecord) {
  EXPECT_EQ(counters(nullptr), "Comp:  900M , Decomp:  400M");
  EXPECT_EQ(table[0].compressionsStash, 900u);
  EXPECT_EQ(table[0].decompressionsStash, 400u);
  EXPECT_EQ(table[1].compressionsStash, 0u);
}

TEST_F(CompressorSummary, ShowsGrowthInDeltaModeOnly) {
  previous.compressionsStash = 850;
  previous.decompressionsStash = 390;
  EXPECT_EQ(counters(&previous), "Comp:  900M , Decomp:  400M");
  store(g_Delta, 1);
  EXPECT_EQ(counters(&previous), "Comp:   50M , Decomp:   10M");
  EXPECT_EQ(table[0].compressionsStash, 900u) << "the whole counter is kept";
  EXPECT_EQ(counters(nullptr), "Comp:  900M , Decomp:  400M");
}

TEST_F(CompressorSummary, GrowthFollowsTheFramesStash) {
  store(g_Delta, 1);
  sections();
  previous = table[0];
  machine.memory.compressions += 7 * 256;
  EXPECT_EQ(counters(&previous), "Comp:    7M , Decomp:    0M");
}

TEST_F(CompressorSummary, CountersOfAnySizeDoNotOverflow) {
  store(g_Delta, 1);
  previous.compressionsStash = 0x80000000;
  machine.memory.compressions = uint64_t{0x7fffffff} * 256;
  previous.decompressionsStash = UINT32_MAX;
  machine.memory.decompressions = UINT64_MAX;
  EXPECT_THAT(counters(&previous), StartsWith("Comp:   -1M , Decomp: "));
}

class SwapSummary : public MemorySummary {
 protected:
  SwapSummary() {
    store(g_Swap, 1);
    machine.swap = {uint64_t{2048} << 20, uint64_t{1536} << 20, uint64_t{512} << 20, 4096, 0};
  }

  static std::string after(const char *line) {
    return std::string(kRAM) + kNoPressure + line + "\n";
  }
};

TEST_F(SwapSummary, ShowsFreeAndUsed) {
  EXPECT_EQ(sections(), after("Swap: 1536M Free +  512M Used \n"));
}

TEST_F(SwapSummary, SaysWhenEncrypted) {
  machine.swap.xsu_encrypted = 1;
  EXPECT_EQ(sections(), after("Swap: 1536M Free +  512M Used (enc) \n"));
}

TEST_F(SwapSummary, CutsToMegabytes) {
  machine.swap.xsu_total = (uint64_t{3} << 20) - 1;
  machine.swap.xsu_used = (uint64_t{1} << 20) - 1;
  EXPECT_EQ(sections(), after("Swap:    2M Free +    0M Used \n"));
}

TEST_F(SwapSummary, IsLeftOutWithoutSwapOrWhenSwitchedOff) {
  store(g_Swap, 0);
  EXPECT_EQ(sections(), after(""));
  store(g_Swap, 1);
  machine.swap.xsu_total = 0;
  EXPECT_EQ(sections(), after(""));
}

TEST_F(SwapSummary, IsLeftOutWhenItCantBeRead) {
  machine.refusals["swapUsage"] = darwin::DARWIN_EPERM;
  EXPECT_EQ(sections(), after(""));
}

TEST_F(SwapSummary, StandsAfterTheCompressor) {
  store(g_Compression, 1);
  EXPECT_EQ(sections(),
            std::string(kCompressedRAM) + kNoPressure +
                "Comp:  900M , Decomp:  400M  File:   33M  Anon:   44M Throttled:    5M\n"
                "Swap: 1536M Free +  512M Used \n\n");
}

class DiskSummary : public SystemSummary {
 protected:
  DiskSummary() {
    perspective.ShowDisks = 1;
    proc_pid_rusage_funcptr = [](int, int, darwin::rusage_info_t *) { return 0; };
  }

  static void totals(uint64_t readBefore, uint64_t readNow, uint64_t writtenBefore,
                     uint64_t writtenNow) {
    g_Prev_Total_Rusage.ri_diskio_bytesread = readBefore;
    g_Total_Rusage.ri_diskio_bytesread = readNow;
    g_Prev_Total_Rusage.ri_diskio_byteswritten = writtenBefore;
    g_Total_Rusage.ri_diskio_byteswritten = writtenNow;
  }
};

TEST_F(DiskSummary, ShowsTheGrowthSinceTheSampleBefore) {
  totals(1000, 1512, 70, 70);
  EXPECT_EQ(sections(), "Disks: Read:   512B/sec Written:     0B/sec\t\n");
  store(g_Delay, 1);
  store(g_Delta, 1);
  EXPECT_EQ(sections(), "Disks: Read:   512B/sec Written:     0B/sec\t\n");
}

TEST_F(DiskSummary, GrowthOfOneGibibyteIsTheLargest) {
  totals(5, 5 + 1073741824, 9, 9 + 1073741824);
  EXPECT_EQ(sections(), "Disks: Read:     1G/sec Written:     1G/sec\t\n");
  totals(5, 5 + 1073741825, 9, 9 + 1073741825);
  EXPECT_EQ(sections(), "Disks: Read:     0B/sec Written:     0B/sec\t\n");
}

TEST_F(DiskSummary, TotalsThatFellHaveNotGrown) {
  totals(5000, 4999, UINT64_MAX, 0);
  EXPECT_EQ(sections(), "Disks: Read:     0B/sec Written:     1B/sec\t\n");
}

TEST_F(DiskSummary, IsUnsupportedWithoutTheCall) {
  proc_pid_rusage_funcptr = nullptr;
  EXPECT_EQ(sections(), "Disks: Unsupported on this version \n");
}

TEST_F(SystemSummary, InterfacesThatCantBeReadAreSaid) {
  perspective.ShowNetworks = 1;
  EXPECT_EQ(sections(), "Error sampling network information\n\n");
}

class LinkedMachine : public sampled::SampledMachine {
 public:
  host::Errno interfaces(std::vector<host::NetworkInterface> &out) override {
    host::NetworkInterface link;
    link.name = "en0";
    link.type = darwin::IFT_ETHER;
    link.receivedPackets = 12;
    link.receivedBytes = 10240;
    link.sentPackets = 7;
    link.sentBytes = 512;
    out = {link};
    return host::kAnswered;
  }
};

TEST_F(SystemSummary, InterfacesHaveTheirTotalsAndRates) {
  LinkedMachine linked;
  linked.boot = machine.boot;
  linked.load = machine.load;
  host::Machine *before = host::useMachine(&linked);
  perspective.ShowNetworks = 1;
  show();
  // Nothing was received or sent since.
  EXPECT_EQ(sections(), "Pkts: RX: 12/   10K (0 bytes/sec) TX: 7/  512B (0 bytes/sec) \n");
  host::useMachine(before);
}

TEST_F(SystemSummary, BatteryStandsLast) {
  perspective.ShowPower = 1;
  EXPECT_EQ(sections(), std::string("\n") + getPowerDetails() + "\n");
}

TEST_F(MemorySummary, SectionsStandInOrder) {
  machine.basic.logical_cpu = 4;
  machine.basic.logical_cpu_max = 6;
  store(g_Processors, 1);
  store(g_Compression, 1);
  store(g_Swap, 1);
  machine.swap = {uint64_t{8} << 20, 0, 0, 4096, 1};
  memorystatus_get_level_funcptr = answerLevel;
  g_levelResult = 0;
  g_level = 61;
  perspective.ShowDisks = 1;
  const std::string shown = sections();
  EXPECT_THAT(shown, StartsWith("CPU:   4/6 active "));
  EXPECT_EQ(shown.substr(shown.find('\n') + 1),
            std::string(kCompressedRAM) + kNoPressure +
                "Memstatus: 61 "
                "Comp:  900M , Decomp:  400M  File:   33M  Anon:   44M Throttled:    5M\n"
                "Swap:    8M Free +    0M Used (enc) \n"
                "Disks: Unsupported on this version \n");
}

}  // namespace
