// The per-process texts of /proc over tables of good and bad ones. The bad ones are what a kernel
// would not write, a file cut in the middle, and names chosen to mislead.
#include "host/linux/process_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace host::linux_machine {
namespace {

// Fields 4 to 52, each with a value of its own.
constexpr char kNumbers[] =
    " 11 12 13 34817 15 4194368 17 18 19 20 21 22 23 24 25 -7 3 0 29 30 31 18446744073709551615 "
    "33 34 35 36 37 38 39 40 41 42 43 44 45 46 47 1 0 50 51 52 53 54 55 56 57 58 59\n";

std::string statText(const std::string &name, const std::string &state = "S") {
  return "4711 (" + name + ") " + state + kNumbers;
}

TEST(LinuxProcessText, StatFieldsComeFromTheirPlaces) {
  ProcessStat stat{};
  ASSERT_TRUE(parseProcessStat(statText("sleep"), stat));
  EXPECT_EQ(stat.id, 4711);
  EXPECT_STREQ(stat.name, "sleep");
  EXPECT_EQ(stat.state, 'S');
  EXPECT_EQ(stat.parent, 11);
  EXPECT_EQ(stat.group, 12);
  EXPECT_EQ(stat.session, 13);
  EXPECT_EQ(stat.terminal, 34817);
  EXPECT_EQ(stat.terminalGroup, 15);
  EXPECT_EQ(stat.flags, 4194368u);
  EXPECT_EQ(stat.minorFaults, 17u);
  EXPECT_EQ(stat.majorFaults, 19u);
  EXPECT_EQ(stat.userTicks, 21u);
  EXPECT_EQ(stat.systemTicks, 22u);
  EXPECT_EQ(stat.nice, -7);
  EXPECT_EQ(stat.threads, 3u);
  EXPECT_EQ(stat.startTicks, 29u);
  EXPECT_EQ(stat.virtualSize, 30u);
  EXPECT_EQ(stat.residentPages, 31);
  EXPECT_EQ(stat.startCode, 33u);
  EXPECT_EQ(stat.startStack, 35u);
  EXPECT_EQ(stat.realTimePriority, 47u);
  EXPECT_EQ(stat.policy, 1u);
}

TEST(LinuxProcessText, StatNamesMayHoldAnything) {
  for (const std::string name : {"", " ", "(", ")", "a b", ") R 1 2 3", "((()))", "x) S 1 (y", "\n",
                                 "a\nb", "\x1b[31m", "\xff\xfe"}) {
    ProcessStat stat{};
    EXPECT_TRUE(parseProcessStat(statText(name), stat)) << name;
    EXPECT_EQ(stat.name, name);
    EXPECT_EQ(stat.parent, 11);
  }
  std::string longest(63, 'n');
  ProcessStat stat{};
  ASSERT_TRUE(parseProcessStat(statText(longest), stat));
  EXPECT_EQ(stat.name, longest);
}

TEST(LinuxProcessText, EveryCutOfAStatIsRefused) {
  const std::string whole = statText("a (b) c");
  for (size_t length = 0; length < whole.size(); length++) {
    // Nothing stands behind it.
    const std::vector<char> cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
    ProcessStat stat{};
    stat.id = -5;
    EXPECT_FALSE(parseProcessStat({cut.data(), cut.size()}, stat)) << length;
    EXPECT_EQ(stat.id, -5) << "a refused text must leave the record alone";
  }
}

TEST(LinuxProcessText, MalformedStatsAreRefused) {
  std::string numbers(kNumbers);
  const std::string bad[] = {
      "(sleep) S" + numbers,
      "x (sleep) S" + numbers,
      "99999999999 (sleep) S" + numbers,
      "1 sleep S" + numbers,
      "1 )sleep( S" + numbers,
      "1 (sleep) SS" + numbers,
      "1 (sleep) S x" + numbers,
      "1 (sleep) S 1.5" + numbers,
      "1 (sleep) S 0x10" + numbers,
      "1 (sleep) S" + numbers + "more\n",
      "1 (" + std::string(64, 'n') + ") S" + numbers,
      // A negative number of threads, and a start beyond 64 bits.
      "1 (s) S 1 1 1 0 -1 0 1 1 1 1 1 1 1 1 20 0 -1 0 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 "
      "21 22 0 0 25\n",
      "1 (s) S 1 1 1 0 -1 0 1 1 1 1 1 1 1 1 20 0 1 0 18446744073709551616 6 7 8 9 10 11 12 13 14 "
      "15 16 17 18 19 20 21 22 0 0 25\n",
  };
  for (const std::string &text : bad) {
    ProcessStat stat{};
    EXPECT_FALSE(parseProcessStat(text, stat)) << text;
  }
}

TEST(LinuxProcessText, AZombieHasNoThreadLeft) {
  ProcessStat stat{};
  stat.threads = 1;
  stat.state = 'S';
  EXPECT_FALSE(stat.isZombie());
  stat.state = 'Z';
  EXPECT_TRUE(stat.isZombie());
  stat.state = 'X';
  EXPECT_TRUE(stat.isZombie());
  stat.state = 'Z';
  stat.threads = 2;
  EXPECT_FALSE(stat.isZombie()) << "only the first thread has ended";
}

constexpr char kStatus[] =
    "Name:\tUid: 1 2 3\n"
    "Umask:\t0022\n"
    "State:\tS (sleeping)\n"
    "Tgid:\t4711\n"
    "Ngid:\t0\n"
    "Pid:\t4712\n"
    "TracerPid:\t77\n"
    "Uid:\t1000\t1001\t1002\t1003\n"
    "Gid:\t100\t101\t102\t103\n"
    "FDSize:\t256\n"
    "Groups:\t4 24 \n"
    "VmSize:\t    3060 kB\n"
    "VmRSS:\t    1204 kB\n"
    "RssAnon:\t     116 kB\n"
    "VmSwap:\t      12 kB\n"
    "Seccomp:\t2\n"
    "Seccomp_filters:\t9\n"
    "voluntary_ctxt_switches:\t42\n"
    "nonvoluntary_ctxt_switches:\t7\n";

TEST(LinuxProcessText, StatusLinesAreFoundByTheirKeys) {
  ProcessStatus status{};
  ASSERT_TRUE(parseProcessStatus(kStatus, status));
  EXPECT_EQ(status.process, 4711u);
  EXPECT_EQ(status.tracer, 77u);
  EXPECT_EQ(status.user.real, 1000u);
  EXPECT_EQ(status.user.effective, 1001u);
  EXPECT_EQ(status.user.saved, 1002u);
  EXPECT_EQ(status.group.real, 100u);
  EXPECT_EQ(status.group.effective, 101u);
  EXPECT_EQ(status.group.saved, 102u);
  EXPECT_EQ(status.descriptorSlots, 256u);
  EXPECT_EQ(status.residentKiB, 1204u);
  EXPECT_EQ(status.anonymousKiB, 116u);
  EXPECT_EQ(status.swappedKiB, 12u);
  EXPECT_EQ(status.seccomp, 2u);
  EXPECT_EQ(status.voluntarySwitches, 42u);
  EXPECT_EQ(status.involuntarySwitches, 7u);
}

TEST(LinuxProcessText, AKernelThreadsStatusHasNoMemoryLines) {
  ProcessStatus status{};
  ASSERT_TRUE(parseProcessStatus(
      "Name:\tkthreadd\nUid:\t0\t0\t0\t0\nGid:\t0\t0\t0\t0\nFDSize:\t64\n", status));
  EXPECT_EQ(status.descriptorSlots, 64u);
  EXPECT_EQ(status.residentKiB, 0u);
  EXPECT_EQ(status.anonymousKiB, 0u);
}

TEST(LinuxProcessText, MalformedStatusIsRefused) {
  std::string whole(kStatus);
  const std::string bad[] = {
      "",
      "Uid:\t0\t0\t0\t0\n",
      "Name:\tx\nGid:\t0\t0\t0\t0\n",
      "Name:\tx\nUid:\t0\t0\nGid:\t0\t0\t0\t0\n",
      "Name:\tx\nUid:\t0\t-1\t0\t0\nGid:\t0\t0\t0\t0\n",
      "Name:\tx\nUid:\t0\t0\t0\t0\nGid:\t0\t0\t0\t0\nFDSize:\t\n",
      "Name:\tx\nUid:\t0\t0\t0\t0\nGid:\t0\t0\t0\t0\nFDSize:\tmany\n",
      whole.substr(0, whole.size() - 1),
  };
  for (const std::string &text : bad) {
    ProcessStatus status{};
    status.seccomp = 99;
    EXPECT_FALSE(parseProcessStatus(text, status)) << text;
    EXPECT_EQ(status.seccomp, 99u);
  }
}

TEST(LinuxProcessText, IOCountsStorageBytesOnly) {
  ProcessIO io{};
  ASSERT_TRUE(
      parseProcessIO("rchar: 1\nwchar: 2\nsyscr: 3\nsyscw: 4\nread_bytes: 4096\n"
                     "write_bytes: 18446744073709551615\ncancelled_write_bytes: 7\n",
                     io));
  EXPECT_EQ(io.bytesRead, 4096u);
  EXPECT_EQ(io.bytesWritten, 18446744073709551615u);
}

TEST(LinuxProcessText, MalformedIOIsRefused) {
  for (const char *text :
       {"", "rchar: 1\n", "read_bytes: 1\n", "write_bytes: 1\n", "read_bytes: 1\nwrite_bytes: 2",
        "read_bytes: x\nwrite_bytes: 2\n", "read_bytes: -1\nwrite_bytes: 2\n"}) {
    ProcessIO io{};
    EXPECT_FALSE(parseProcessIO(text, io)) << text;
  }
}

TEST(LinuxProcessText, SchedulerRecordHasRunTimeAndTurns) {
  SchedulerRecord record{};
  ASSERT_TRUE(parseSchedulerRecord("123456789 55 42\n", record));
  EXPECT_EQ(record.runTime, 123456789u);
  EXPECT_EQ(record.turns, 42u);
  for (const char *text : {"", "\n", "1 2\n", "1 2 3", "1 2 x\n", "-1 2 3\n", "1 2 3\n4\n"}) {
    EXPECT_FALSE(parseSchedulerRecord(text, record)) << text;
  }
}

TEST(LinuxProcessText, ArgumentsEndWithTheirNuls) {
  using std::string_literals::operator""s;
  using Arguments = std::vector<std::string>;
  EXPECT_EQ(splitArguments(""), Arguments());
  EXPECT_EQ(splitArguments("a b\0-c\0"s), (Arguments{"a b", "-c"}));
  EXPECT_EQ(splitArguments("\0\0x\0\0"s), (Arguments{"", "", "x", ""}));
  // What a program wrote over its arguments need not end with one, nor does what was cut.
  EXPECT_EQ(splitArguments("server: waiting"), Arguments{"server: waiting"});
  EXPECT_EQ(splitArguments("a\0b"s), (Arguments{"a", "b"}));
}

std::string words(std::initializer_list<uint64_t> values, size_t width) {
  std::string bytes;
  for (uint64_t value : values) {
    for (size_t i = 0; i < width; i++) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
  }
  return bytes;
}

TEST(LinuxProcessText, AnAuxiliaryVectorTellsItsWordSize) {
  EXPECT_TRUE(isAuxiliaryVector64Bit(words({33, 0x7ffd12345000, 16, 1}, 8)));
  EXPECT_FALSE(isAuxiliaryVector64Bit(words({32, 0xf7f01550, 33, 0xf7f01000}, 4)));
  EXPECT_TRUE(isAuxiliaryVector64Bit(""));
  EXPECT_TRUE(isAuxiliaryVector64Bit("short"));
}

}  // namespace
}  // namespace host::linux_machine
