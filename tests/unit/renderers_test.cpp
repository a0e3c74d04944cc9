#include "columns/renderers.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "nstat/accounting.h"
#include "state/display.h"
#include "terminal/output.h"
#include "terminal/screen.h"
#include "tests/unit/curses_screen.h"
#include "tests/unit/display_state.h"
#include "tests/unit/size_units.h"
#include "text/safe_text.h"

namespace {

using namespace sondex;

constexpr int32_t kRecordPid = 321;

class Renderers : public testing::Test {
 protected:
  Renderers() {
    current->taskAllInfo.pbsd.pbi_pid = kRecordPid;
    previous->taskAllInfo.pbsd.pbi_pid = kRecordPid;
  }

  static void file(int source, uint64_t received, uint64_t sent) {
    store(process_pid_info[source], kRecordPid);
    store(process_ntstat_info[source].received, received);
    store(process_ntstat_info[source].sent, sent);
  }
  static void setName(ProcessRecord &record, std::string_view name) {
    char(&field)[16] = record.taskAllInfo.pbsd.pbi_comm;
    std::memset(field, 0, sizeof field);
    std::memcpy(field, name.data(), name.size());
  }

  DisplayStateGuard guard;
  std::unique_ptr<ProcessRecord> current = std::make_unique<ProcessRecord>();
  std::unique_ptr<ProcessRecord> previous = std::make_unique<ProcessRecord>();
  darwin::proc_bsdinfo &bsd = current->taskAllInfo.pbsd;
  darwin::proc_bsdinfo &bsdBefore = previous->taskAllInfo.pbsd;
  darwin::proc_taskinfo &task = current->taskAllInfo.ptinfo;
  darwin::proc_taskinfo &taskBefore = previous->taskAllInfo.ptinfo;
};

// Plain mode: what is written to standard output.
class RendererTexts : public Renderers {
 protected:
  std::string text(Renderer print, ProcessRecord *before) const {
    testing::internal::CaptureStdout();
    const int result = print(current.get(), before);
    std::string written = testing::internal::GetCapturedStdout();
    EXPECT_GE(result, 0);
    return written;
  }
  // Of a process that is new in this sample.
  std::string text(Renderer print) const { return text(print, nullptr); }
  std::string textAfter(Renderer print) const { return text(print, previous.get()); }
};

TEST_F(RendererTexts, Pid) {
  const std::pair<uint32_t, const char *> cases[] = {{0, "0    "},
                                                     {1, "1    "},
                                                     {4321, "4321 "},
                                                     {99999, "99999"},
                                                     // Never another number, however wide.
                                                     {123456, "123456"},
                                                     {INT_MAX, "2147483647"},
                                                     {UINT32_MAX, "-1   "}};
  for (const auto &[pid, expected] : cases) {
    bsd.pbi_pid = pid;
    EXPECT_EQ(text(print_pid), expected);
    bsd.pbi_ppid = pid;
    EXPECT_EQ(text(print_ppid), expected);
  }
}

TEST_F(RendererTexts, PpidIsNotThePid) {
  bsd.pbi_ppid = 1;
  EXPECT_EQ(text(print_ppid), "1    ");
  EXPECT_EQ(text(print_pid), "321  ");
}

TEST_F(RendererTexts, Uid) {
  const std::pair<uint32_t, const char *> cases[] = {
      {0, "    0"},          {501, "  501"},
      {99999, "99999"},      {100000, "100000"},
      {165537, "165537"},  // not what is left of 65536
      {4294967294, "   -2"}, {2147483648, "-2147483648"}};
  for (const auto &[uid, expected] : cases) {
    bsd.pbi_uid = uid;
    EXPECT_EQ(text(print_uid), expected) << uid;
  }
}

TEST_F(RendererTexts, Coalition) {
  const std::pair<uint64_t, const char *> cases[] = {{0, "   0"},
                                                     {7, "   7"},
                                                     {1234, "1234"},
                                                     {123456, "123456"},
                                                     {UINT64_MAX, "18446744073709551615"}};
  for (const auto &[coalition, expected] : cases) {
    current->coalitionInfo.coalition_id[0] = coalition;
    current->coalitionInfo.coalition_id[1] = 99;
    EXPECT_EQ(text(print_coalition), expected);
  }
}

TEST_F(RendererTexts, Name) {
  const std::pair<std::string_view, const char *> cases[] = {
      {"", "               "},
      {"launchd", "launchd        "},
      {"fourteen-chars", "fourteen-chars "},
      {"fifteen-letters", "fifteen-letters"},
      {"sixteen-letters!", "sixteen-letters"},  // without a terminator
      {"%s%n", "%s%n           "},
      {"a\x1b[31mb\n", "a?[31mb?       "},
      {"x\x80y", "x?y            "},
  };
  for (const auto &[name, expected] : cases) {
    for (const uint32_t flags : {0x10u, 0u}) {
      setName(*current, name);
      bsd.pbi_flags = flags;
      EXPECT_EQ(text(print_name), expected);
    }
  }
}

TEST_F(RendererTexts, NamesAreCutBetweenCharacters) {
  setName(*current, "fourteen-chars\xC3\xA9");
  EXPECT_EQ(text(print_name), "fourteen-chars ");
  allowUTF8(false);
  EXPECT_EQ(text(print_name), "fourteen-chars?");
}

TEST_F(RendererTexts, Priority) {
  const std::pair<int32_t, const char *> cases[] = {{0, "  0 "},   {4, "  4 "},  {31, " 31 "},
                                                    {127, "127 "}, {-5, " -5 "}, {1000, "1000"}};
  for (const auto &[priority, expected] : cases) {
    task.pti_priority = priority;
    EXPECT_EQ(text(print_priority), expected);
  }
}

struct ThreadCase {
  int32_t threads;
  int32_t running;
  const char *text;
};

TEST_F(RendererTexts, NumThreads) {
  const ThreadCase cases[] = {
      {0, 0, " 0  "},   {1, 0, " 1  "},   {3, 0, " 3  "},    {42, 0, "42  "},    {99, 0, "99  "},
      {100, 0, "100 "}, {999, 0, "999 "}, {1000, 0, "1000"}, {12345, 0, "1234"}, {3, 1, " 3/1"},
      {12, 3, "12/3"},  {12, 34, "12/3"}, {100, 1, "100/"},  {-1, 0, "-1  "}};
  for (const ThreadCase &row : cases) {
    task.pti_threadnum = row.threads;
    task.pti_numrunning = row.running;
    EXPECT_EQ(text(print_numthreads), row.text) << row.threads << '/' << row.running;
    EXPECT_EQ(textAfter(print_numthreads), row.text);
  }
}

struct SizeCase {
  uint64_t size;
  const char *text;
};

TEST_F(RendererTexts, VirtualSize) {
  const SizeCase cases[] = {{0, "   0M"},
                            {kMega - 1, "   0M"},
                            {kMega, "   1M"},
                            {6 * kMega - 1, "   5M"},
                            {999 * kMega, " 999M"},
                            {9 * kGiga, "9216M"},
                            {10000 * kMega - 1, "9999M"},
                            {10 * kGiga - 1, "10239M"},
                            {10 * kGiga, "  10G"},
                            {11 * kGiga - 1, "  10G"},
                            {123 * kGiga, " 123G"},
                            {400000 * kGiga, "400000G"},
                            {UINT64_MAX, "2147483647G"}};
  for (const SizeCase &row : cases) {
    task.pti_virtual_size = row.size;
    EXPECT_EQ(text(print_vsize), row.text);
    taskBefore.pti_virtual_size = 5 * kMega;
    EXPECT_EQ(textAfter(print_vsize), row.text);
  }
}

struct GrowthCase {
  uint64_t before;
  uint64_t now;
  const char *text;
};

TEST_F(RendererTexts, VirtualSizeInDeltaMode) {
  store(g_Delta, 1);
  const GrowthCase cases[] = {{5 * kMega, 5 * kMega, "   0M"},
                              {5 * kMega, 17 * kMega, "  12M"},
                              {0, 17 * kMega, "  17M"},
                              // Each size is cut to megabytes first.
                              {2 * kMega - 1, 2 * kMega, "   1M"},
                              {2 * kMega, 3 * kMega - 1, "   0M"},
                              {9 * kGiga, 20 * kGiga, "  11G"},
                              {kGiga, 11 * kGiga - kMega, "10239M"},
                              // Shrunk.
                              {17 * kMega, 12 * kMega, "  -5M"},
                              {3 * kMega, 3 * kMega - 1, "  -1M"},
                              {30 * kGiga, 10 * kGiga, "-20480M"},
                              {UINT64_MAX, 0, "-2147483648M"}};
  for (const GrowthCase &row : cases) {
    taskBefore.pti_virtual_size = row.before;
    task.pti_virtual_size = row.now;
    EXPECT_EQ(textAfter(print_vsize), row.text);
  }
  // New in this sample: the total.
  task.pti_virtual_size = 12 * kGiga;
  EXPECT_EQ(text(print_vsize), "  12G");
}

TEST_F(RendererTexts, ResidentSize) {
  const SizeCase cases[] = {{0, "   0K"},
                            {kKilo - 1, "   0K"},
                            {kKilo, "   1K"},
                            {999 * kKilo, " 999K"},
                            {kMega, "1024K"},
                            {9 * kMega, "9216K"},
                            {10000 * kKilo - 1, "9999K"},
                            // One letter more than the field has.
                            {10000 * kKilo, "10000"},
                            {10 * kMega - 1, "10239"},
                            {10 * kMega, "  10M"},
                            {11 * kMega - 1, "  10M"},
                            {9999 * kMega, "9999M"},
                            {10000 * kMega, "10000"},
                            {INT64_MAX, "21474"},
                            {UINT64_MAX, "21474"}};
  for (const SizeCase &row : cases) {
    task.pti_resident_size = row.size;
    EXPECT_EQ(text(print_rsize), row.text);
    taskBefore.pti_resident_size = 5 * kMega;
    EXPECT_EQ(textAfter(print_rsize), row.text);
  }
}

TEST_F(RendererTexts, ResidentSizeInDeltaMode) {
  store(g_Delta, 1);
  const GrowthCase cases[] = {{5 * kMega, 5 * kMega, "   0K"},
                              {5 * kMega, 5 * kMega + 16 * kKilo, "  16K"},
                              {5 * kMega, 15 * kMega, "  10M"},
                              {5 * kMega, 14 * kMega, "9216K"},
                              {0, 14 * kMega, "  14M"},
                              {5 * kMega, 5 * kMega - 12 * kKilo, " -12K"},
                              {5 * kMega, 5 * kMega - 1, "  -1K"},
                              {999 * kKilo, 0, "-999K"},
                              // A loss is never in megabytes.
                              {30 * kMega, 10 * kMega, "-2048"},
                              {10 * kMega, 0, "-1024"},
                              {UINT64_MAX, 0, "-9007"}};
  for (const GrowthCase &row : cases) {
    taskBefore.pti_resident_size = row.before;
    task.pti_resident_size = row.now;
    EXPECT_EQ(textAfter(print_rsize), row.text);
  }
  // New in this sample: the total.
  task.pti_resident_size = 14 * kMega;
  EXPECT_EQ(text(print_rsize), "  14M");
}

TEST_F(RendererTexts, Status) {
  const std::pair<uint32_t, const char *> cases[] = {{0, ""},    {1, " F "}, {2, " S "},
                                                     {3, " S "}, {4, " T "}, {5, " Z "},
                                                     {6, " ? "}, {7, " ? "}, {UINT32_MAX, " ? "}};
  for (const auto &[status, expected] : cases) {
    bsd.pbi_status = status;
    task.pti_numrunning = 0;
    EXPECT_EQ(text(print_status), expected) << status;
    EXPECT_EQ(textAfter(print_status), expected) << status;
    task.pti_numrunning = 2;
    EXPECT_EQ(text(print_status), " R ") << status;
  }
}

TEST_F(RendererTexts, MemoryStatus) {
  const std::pair<int32_t, const char *> cases[] = {{0, "0  "},
                                                    {5, "5  "},
                                                    {17, "17 "},
                                                    {100, "100"},
                                                    {1000, "1000"},
                                                    {-1, "??"},
                                                    {INT_MAX, "2147483647"},
                                                    {INT_MIN, "??"}};
  for (const auto &[priority, expected] : cases) {
    current->jetsamPriority = priority;
    EXPECT_EQ(text(print_memstatus), expected);
  }
}

TEST_F(RendererTexts, MemoryLimit) {
  const std::pair<int32_t, const char *> cases[] = {
      {0, "   0"},  {6, "   6"},      {2048, "2048"}, {65536, "65536"}, {INT_MAX, "2147483647"},
      {-1, " ?? "}, {INT_MIN, " ?? "}};
  for (const auto &[limit, expected] : cases) {
    current->jetsamLimit = limit;
    EXPECT_EQ(text(print_memlimit), expected);
  }
}

TEST_F(RendererTexts, Sandbox) {
  const std::pair<int32_t, const char *> cases[] = {{0, "NO"}, {1, "SB"}, {-1, "SB"}, {256, "SB"}};
  for (const auto &[sandboxed, expected] : cases) {
    current->sandboxed = sandboxed;
    EXPECT_EQ(text(print_sandbox), expected);
  }
}

TEST_F(RendererTexts, CodeSigning) {
  const std::pair<std::string_view, const char *> cases[] = {
      {"", ""},         {"NO", "NO"},   {"OK", "OK"},
      {"N", "N"},       {"ABC", "ABC"}, {"ABCD", "ABC"},  // without a terminator
      {"\x1b[m", "?[m"}};
  for (const auto &[verdict, expected] : cases) {
    std::memset(current->csStatus, 0, sizeof current->csStatus);
    std::memcpy(current->csStatus, verdict.data(), verdict.size());
    EXPECT_EQ(text(print_cs), expected);
  }
}

TEST_F(RendererTexts, Time) {
  const std::pair<uint64_t, const char *> cases[] = {
      {0, "   00.00 "},
      {1500000000, "   01.50 "},
      {61230000000, " 1:01.23 "},
      {3600000000000, "01:00:00 "},
      {86399999999999, "23:59:59 "},
      {86400000000000, " >1 day  "},
      {UINT64_MAX, " >1 day  "},
  };
  for (const auto &[nanoseconds, expected] : cases) {
    task.pti_total_user = nanoseconds;
    task.pti_total_system = 0;
    EXPECT_EQ(text(print_time), expected);
    task.pti_total_user = nanoseconds / 3;
    task.pti_total_system = nanoseconds - nanoseconds / 3;
    EXPECT_EQ(text(print_time), expected);
    // Delta mode is not for times.
    store(g_Delta, 1);
    taskBefore.pti_total_user = 500000000;
    EXPECT_EQ(textAfter(print_time), expected);
    store(g_Delta, 0);
  }
}

TEST_F(RendererTexts, TimesThatDontFitSaturate) {
  task.pti_total_user = UINT64_MAX;
  task.pti_total_system = 2;
  EXPECT_EQ(text(print_time), " >1 day  ");
}

TEST_F(RendererTexts, CpuUsage) {
  const std::pair<int32_t, const char *> cases[] = {
      {0, "  0.0"},    {5, "  0.5"},      {10, "  1.0"},           {999, " 99.9"},
      {1000, "100.0"}, {12345, "1234.5"}, {INT_MAX, "214748364.7"}};
  for (const auto &[usage, expected] : cases) {
    current->totalCPU = usage;
    EXPECT_EQ(text(print_cpu_usage), expected);
  }
}

TEST_F(RendererTexts, NumFDs) {
  const std::pair<int32_t, const char *> cases[] = {{0, "   0"},      {3, "   3"},
                                                    {128, " 128"},    {1024, "1024"},
                                                    {12345, "12345"}, {INT_MAX, "2147483647"}};
  for (const auto &[count, expected] : cases) {
    current->numFDs = count;
    EXPECT_EQ(text(print_numfds), expected);
  }
}

TEST_F(RendererTexts, DiskCounters) {
  current->rusage.ri_diskio_bytesread = 512;
  current->rusage.ri_diskio_byteswritten = 15000;
  EXPECT_EQ(text(print_io_rusage_read), "  512B");
  EXPECT_EQ(text(print_io_rusage_written), "14.65K");
  previous->rusage.ri_diskio_bytesread = 12;
  previous->rusage.ri_diskio_byteswritten = 5000;
  EXPECT_EQ(textAfter(print_io_rusage_read), "  512B");
  EXPECT_EQ(textAfter(print_io_rusage_written), "14.65K");
}

TEST_F(RendererTexts, DiskCountersInDeltaMode) {
  store(g_Delta, 1);
  current->rusage.ri_diskio_bytesread = 512;
  current->rusage.ri_diskio_byteswritten = 15000;
  previous->rusage.ri_diskio_bytesread = 12;
  previous->rusage.ri_diskio_byteswritten = 5000;
  // The record's own copy of the sample before is for sorting only.
  current->previousRusage.ri_diskio_bytesread = 100;
  current->previousRusage.ri_diskio_byteswritten = 100;
  EXPECT_EQ(textAfter(print_io_rusage_read), "  500B");
  EXPECT_EQ(textAfter(print_io_rusage_written), "9.766K");
  // New in this sample: the totals.
  EXPECT_EQ(text(print_io_rusage_read), "  512B");
  EXPECT_EQ(text(print_io_rusage_written), "14.65K");
  // Unsigned.
  previous->rusage.ri_diskio_bytesread = 513;
  EXPECT_EQ(textAfter(print_io_rusage_read), "17179869184G");
}

TEST_F(RendererTexts, DiskCountersThatWereNotAvailableBefore) {
  store(g_Delta, 1);
  current->rusage.ri_diskio_bytesread = 512;
  current->rusage.ri_diskio_byteswritten = 15000;
  std::memset(&previous->rusage, 0xFF, sizeof previous->rusage);
  // Unsigned too: the all-ones value is taken off like any other.
  EXPECT_EQ(textAfter(print_io_rusage_read), "  513B");
  EXPECT_EQ(textAfter(print_io_rusage_written), "14.65K");
}

TEST_F(RendererTexts, DiskCountersThatAreNotAvailable) {
  std::memset(&current->rusage, 0xFF, sizeof current->rusage);
  for (const int delta : {0, 1}) {
    store(g_Delta, delta);
    EXPECT_EQ(text(print_io_rusage_read), "?????");
    EXPECT_EQ(text(print_io_rusage_written), "?????");
    EXPECT_EQ(text(print_io_rusage), "?????");
    EXPECT_EQ(textAfter(print_io_rusage_read), "?????");
    EXPECT_EQ(textAfter(print_io_rusage_written), "?????");
  }
}

TEST_F(RendererTexts, ReadCounterTellsForTheWrittenOne) {
  current->rusage.ri_diskio_bytesread = UINT64_MAX;
  current->rusage.ri_diskio_byteswritten = 512;
  EXPECT_EQ(text(print_io_rusage_written), "?????");
  current->rusage.ri_diskio_bytesread = 0;
  current->rusage.ri_diskio_byteswritten = UINT64_MAX;
  EXPECT_EQ(text(print_io_rusage_written), "17179869184G");
}

TEST_F(RendererTexts, NetworkCounters) {
  EXPECT_EQ(text(print_netrx), " ---- ");
  EXPECT_EQ(textAfter(print_nettx), " ---- ");
  file(3, 400, 15000);
  file(9, 112, 0);
  EXPECT_EQ(text(print_netrx), "  512B");
  EXPECT_EQ(text(print_nettx), "14.65K");
  EXPECT_EQ(textAfter(print_netrx), "  512B");
  EXPECT_EQ(textAfter(print_nettx), "14.65K");
  file(3, 0, 0);
  file(9, 0, 0);
  EXPECT_EQ(text(print_netrx), "    0B");
  EXPECT_EQ(text(print_nettx), "    0B");
}

TEST_F(RendererTexts, NetworkCountersOfTheKernelTaskAreNotShown) {
  bsd.pbi_pid = 0;
  store(process_ntstat_info[1].received, 10);
  EXPECT_EQ(text(print_netrx), " ---- ");
  EXPECT_EQ(text(print_nettx), " ---- ");
}

TEST_F(RendererTexts, NetworkCountersInDeltaMode) {
  store(g_Delta, 1);
  file(3, 1000, 2000);
  previous->lastNetRX = 400;
  previous->lastNetTX = 500;
  EXPECT_EQ(textAfter(print_netrx), "  600B");
  EXPECT_EQ(textAfter(print_nettx), " 1500B");
  // New in this sample: the totals.
  EXPECT_EQ(text(print_netrx), " 1000B");
  EXPECT_EQ(text(print_nettx), " 2000B");
  // A connection was closed.
  previous->lastNetRX = 1001;
  previous->lastNetTX = 900000;
  EXPECT_EQ(textAfter(print_netrx), "    0B");
  EXPECT_EQ(textAfter(print_nettx), "    0B");
}

TEST_F(RendererTexts, NetworkCountersAreRemembered) {
  file(3, 1000, 2000);
  previous->lastNetRX = 1;
  previous->lastNetTX = 2;
  textAfter(print_netrx);
  textAfter(print_nettx);
  EXPECT_EQ(current->lastNetRX, 1000u);
  EXPECT_EQ(current->lastNetTX, 2000u);
  EXPECT_EQ(previous->lastNetRX, 1000u);
  EXPECT_EQ(previous->lastNetTX, 2u);

  // Drawn again in delta mode, nothing has been received since, but all that was sent still counts.
  store(g_Delta, 1);
  EXPECT_EQ(textAfter(print_netrx), "    0B");
  EXPECT_EQ(textAfter(print_nettx), " 1998B");

  file(3, 1500, 2500);
  text(print_netrx);
  text(print_nettx);
  EXPECT_EQ(current->lastNetRX, 1500u);
  EXPECT_EQ(current->lastNetTX, 2500u);
}

TEST_F(RendererTexts, WithoutNetworkCountersNothingIsRemembered) {
  current->lastNetRX = 11;
  current->lastNetTX = 12;
  previous->lastNetRX = 13;
  previous->lastNetTX = 14;
  textAfter(print_netrx);
  textAfter(print_nettx);
  EXPECT_EQ(current->lastNetRX, 11u);
  EXPECT_EQ(current->lastNetTX, 12u);
  EXPECT_EQ(previous->lastNetRX, 13u);
  EXPECT_EQ(previous->lastNetTX, 14u);
}

TEST_F(RendererTexts, Tty) {
  const std::pair<uint32_t, const char *> cases[] = {{UINT32_MAX, " none "},
                                                     {0, "0     "},
                                                     {12345, "12345 "},
                                                     {123456, "123456"},
                                                     {0x10000003, "268435"}};
  for (const auto &[device, expected] : cases) {
    bsd.e_tdev = device;
    EXPECT_EQ(text(print_tty), expected);
  }
}

TEST_F(RendererTexts, SentAndReceived) {
  EXPECT_EQ(text(print_rx_tx), "    0/    0");
  file(3, 15000, 7);
  EXPECT_EQ(text(print_rx_tx), "    7/15000");
  file(4, UINT64_MAX - 15000, 123456);
  EXPECT_EQ(text(print_rx_tx), "123463/18446744073709551615");
}

TEST_F(RendererTexts, DiskTotal) {
  const SizeCase cases[] = {{0, "    0K"},
                            {1023, "    0K"},
                            {1024, "    1K"},
                            {kMega, " 1024K"},
                            {kMega + kKilo - 1, " 1024K"},
                            {kMega + kKilo, "    1M"},
                            {999 * kMega, "  999M"},
                            {100000 * kMega, "100000M"}};
  for (const SizeCase &row : cases) {
    current->rusage.ri_diskio_bytesread = row.size / 3;
    current->rusage.ri_diskio_byteswritten = row.size - row.size / 3;
    EXPECT_EQ(text(print_io_rusage), row.text);
  }
}

TEST_F(RendererTexts, ContextSwitches) {
  const std::pair<int32_t, const char *> cases[] = {
      {0, "       0"}, {1234, "    1234"}, {INT_MAX, "2147483647"}, {-1, "      -1"}};
  for (const auto &[count, expected] : cases) {
    task.pti_csw = count;
    EXPECT_EQ(text(print_csw), expected);
  }
}

TEST_F(RendererTexts, Bitness) {
  const std::pair<uint32_t, const char *> cases[] = {
      {0x10, "64"}, {0x11, "64"}, {0xFFFFFFFF, "64"}, {0, "32"}, {0xFFFFFFEF, "32"}};
  for (const auto &[flags, expected] : cases) {
    bsd.pbi_flags = flags;
    EXPECT_EQ(text(print_bitness), expected);
  }
}

TEST_F(Renderers, AnswerWhatTheOutputAnswers) {
  // A screen that is not there: nothing can be written.
  ASSERT_EQ(stdscr, nullptr);
  store(wantCurses, 1);
  bsd.pbi_status = 3;
  std::memcpy(current->csStatus, "NO", 3);
  const Renderer all[] = {print_pid,
                          print_ppid,
                          print_uid,
                          print_coalition,
                          print_name,
                          print_priority,
                          print_numthreads,
                          print_vsize,
                          print_rsize,
                          print_status,
                          print_memstatus,
                          print_memlimit,
                          print_sandbox,
                          print_cs,
                          print_stime,
                          print_time,
                          print_cpu_usage,
                          print_numfds,
                          print_io_rusage_read,
                          print_io_rusage_written,
                          print_netrx,
                          print_nettx,
                          print_tty,
                          print_rx_tx,
                          print_io_rusage,
                          print_csw,
                          print_bitness};
  for (const bool counted : {false, true}) {
    if (counted) file(3, 1000, 2000);
    for (size_t i = 0; i < std::size(all); i++) {
      EXPECT_LT(all[i](current.get(), previous.get()), 0) << i;
    }
  }
}

class StartTimes : public RendererTexts {
 protected:
  StartTimes() {
    const char *zone = getenv("TZ");
    if (zone != nullptr) m_zone = zone;
  }
  ~StartTimes() override {
    if (m_zone) {
      setenv("TZ", m_zone->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

  static void useZone(const char *zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
  static tm local(time_t time) {
    tm parts = {};
    localtime_r(&time, &parts);
    return parts;
  }
  std::string started(time_t time) {
    bsd.pbi_start_tvsec = static_cast<uint64_t>(time);
    return text(print_stime);
  }
  static std::string clockText(const tm &parts) {
    char expected[32];
    snprintf(expected, sizeof expected, "  %02d:%02d:%02d ", parts.tm_hour, parts.tm_min,
             parts.tm_sec);
    return expected;
  }

  // Calls `body` with the time; again if a new day began meanwhile.
  template <typename Body>
  static void today(const Body &body) {
    for (;;) {
      const time_t now = time(nullptr);
      const std::pair<std::string, std::string> shownAndExpected = body(now);
      const time_t after = time(nullptr);
      if (local(now).tm_yday != local(after).tm_yday) continue;
      EXPECT_EQ(shownAndExpected.first, shownAndExpected.second);
      return;
    }
  }

 private:
  std::optional<std::string> m_zone;
};

constexpr const char *kZones[] = {"UTC0", "AAA-9", "BBB+11:30"};

TEST_F(StartTimes, Today) {
  for (const char *zone : kZones) {
    useZone(zone);
    today([&](time_t now) { return std::pair{started(now), clockText(local(now))}; });
    today([&](time_t now) {
      tm midnight = local(now);
      midnight.tm_hour = midnight.tm_min = midnight.tm_sec = 0;
      midnight.tm_isdst = -1;
      return std::pair{started(mktime(&midnight)), std::string("  00:00:00 ")};
    });
    today([&](time_t now) {
      tm evening = local(now);
      evening.tm_hour = 23;
      evening.tm_min = evening.tm_sec = 59;
      evening.tm_isdst = -1;
      return std::pair{started(mktime(&evening)), std::string("  23:59:59 ")};
    });
  }
}

TEST_F(StartTimes, YesterdayAndTomorrow) {
  for (const char *zone : kZones) {
    useZone(zone);
    for (const int days : {-1, 1, -40}) {
      today([&](time_t now) {
        tm other = local(now);
        other.tm_mday += days;
        other.tm_hour = 9;
        other.tm_min = 5;
        other.tm_sec = 7;
        other.tm_isdst = -1;
        const time_t start = mktime(&other);
        char expected[32];
        snprintf(expected, sizeof expected, "%02d/%02d 09:05", other.tm_mday, other.tm_mon);
        return std::pair{started(start), std::string(expected)};
      });
    }
  }
}

TEST_F(StartTimes, FifthOfMarch) {
  useZone("UTC0");
  // 2023-03-05 14:07:33 and 2024-03-05 14:07:33: days 63 and 64 of their years, of which today
  // is at most one.
  const time_t start = local(time(nullptr)).tm_yday == 63 ? 1709647653 : 1678025253;
  EXPECT_EQ(started(start), "05/02 14:07");
}

TEST_F(StartTimes, SameDayOfAnotherYearCountsAsToday) {
  for (const char *zone : kZones) {
    useZone(zone);
    today([&](time_t now) {
      const int day = local(now).tm_yday;
      // The last day of a leap year comes again after four years, or eight at a century's turn.
      time_t start = now - 300 * 86400;
      while (local(start).tm_yday != day) start -= 86400;
      EXPECT_LT(local(start).tm_year, local(now).tm_year);
      return std::pair{started(start), clockText(local(start))};
    });
  }
}

TEST_F(StartTimes, ZoneDecides) {
  // 1 January 1970, and a day of the year that differs from it.
  useZone("UTC0");
  const bool newYear = local(time(nullptr)).tm_yday <= 1;
  const time_t start = newYear ? 86400 * 100 : 0;
  EXPECT_EQ(started(start), newYear ? "11/03 00:00" : "01/00 00:00");
  useZone("AAA-9");
  EXPECT_EQ(started(start), newYear ? "11/03 09:00" : "01/00 09:00");
}

TEST_F(StartTimes, ImpossibleTimes) {
  useZone("UTC0");
  bsd.pbi_start_tvsec = INT64_MAX;
  EXPECT_EQ(text(print_stime), "   ?????   ");
  bsd.pbi_start_tvsec = uint64_t{1} << 63;
  EXPECT_EQ(text(print_stime), "   ?????   ");
}

// Full-screen mode: texts and attributes of the cells.
class RendererCells : public Renderers {
 protected:
  struct Drawn {
    std::string text;
    int pair = 0;
    attr_t attributes = 0;
  };

  // Draws one cell; all of it must look alike, and what comes after it must look plain.
  Drawn draw(Renderer print, ProcessRecord *before) const {
    screen.empty();
    testing::internal::CaptureStdout();
    EXPECT_GE(print(current.get(), before), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    Drawn drawn = {screen.textBeforeCursor()};
    const int end = getcurx(stdscr);
    for (int column = 0; column < end; column++) {
      const CursesScreen::Cell cell = screen.cell(0, column);
      if (column == 0) {
        drawn.pair = cell.pair;
        drawn.attributes = cell.attributes;
      }
      EXPECT_EQ(cell.pair, drawn.pair) << drawn.text << " at " << column;
      EXPECT_EQ(cell.attributes, drawn.attributes) << drawn.text << " at " << column;
    }
    waddnstr(stdscr, "|", -1);
    EXPECT_EQ(screen.cell(0, end).pair, 0) << drawn.text;
    EXPECT_EQ(screen.cell(0, end).attributes, 0u) << drawn.text;
    return drawn;
  }

  void expectCell(Renderer print, ProcessRecord *before, const char *text, int pair,
                  attr_t attributes = 0) const {
    const Drawn drawn = draw(print, before);
    EXPECT_EQ(drawn.text, text);
    EXPECT_EQ(drawn.pair, pair) << text;
    EXPECT_EQ(drawn.attributes, attributes) << text;
  }

  // The cell after a previous record; its colour only where colours are on.
  void expectColored(Renderer print, const char *text, int pair) const {
    expectCell(print, previous.get(), text, pair);
    store(g_Color, 0);
    expectCell(print, previous.get(), text, 0);
    store(g_Color, 1);
  }

  CursesScreen screen{4, 80};
};

TEST_F(RendererCells, CellsThatAreAlwaysPlain) {
  struct PlainCase {
    Renderer print;
    const char *text;
  };
  bsd.pbi_ppid = 1;
  bsd.pbi_uid = 501;
  bsd.pbi_start_tvsec = INT64_MAX;
  bsd.e_tdev = UINT32_MAX;
  current->coalitionInfo.coalition_id[0] = 7;
  task.pti_priority = 31;
  task.pti_virtual_size = 9 * kGiga;
  task.pti_csw = 12;
  current->jetsamPriority = -1;
  current->jetsamLimit = -1;
  current->sandboxed = 1;
  current->totalCPU = 123;
  current->numFDs = 128;
  current->rusage.ri_diskio_bytesread = 512;
  current->rusage.ri_diskio_byteswritten = 15000;
  const PlainCase cases[] = {
      {print_pid, "321  "},
      {print_ppid, "1    "},
      {print_uid, "  501"},
      {print_coalition, "   7"},
      {print_priority, " 31 "},
      {print_vsize, "9216M"},
      {print_memstatus, "??"},
      {print_memlimit, " ?? "},
      {print_sandbox, "SB"},
      {print_stime, "   ?????   "},
      {print_cpu_usage, " 12.3"},
      {print_numfds, " 128"},
      {print_io_rusage_read, "  512B"},
      {print_io_rusage_written, "14.65K"},
      {print_netrx, " ---- "},
      {print_nettx, " ---- "},
      {print_tty, " none "},
      {print_rx_tx, "    0/    0"},
      {print_io_rusage, "   15K"},
      {print_csw, "      12"},
      {print_bitness, "32"},
  };
  for (const PlainCase &row : cases) {
    expectCell(row.print, nullptr, row.text, 0);
    // Everything differs from a previous record of zeros.
    expectCell(row.print, previous.get(), row.text, 0);
  }
}

TEST_F(RendererCells, NamesOf32BitProcessesAreUnderlined) {
  setName(*current, "launchd");
  bsd.pbi_flags = 0x10;
  expectCell(print_name, nullptr, "launchd        ", 0, 0);
  bsd.pbi_flags = 0x4000;
  expectCell(print_name, nullptr, "launchd        ", 0, A_UNDERLINE);
  store(g_Color, 0);
  expectCell(print_name, previous.get(), "launchd        ", 0, A_UNDERLINE);
  bsd.pbi_flags = 0x4010;
  expectCell(print_name, previous.get(), "launchd        ", 0, 0);
}

TEST_F(RendererCells, NamesStandAmongOtherAttributes) {
  setName(*current, "launchd");
  setAttributes(A_REVERSE);
  print_name(current.get(), nullptr);
  output("|", 0);
  setAttributes(A_NORMAL);
  EXPECT_EQ(screen.cell(0, 0).attributes, A_REVERSE | A_UNDERLINE);
  EXPECT_EQ(screen.cell(0, 15).text, "|");
  EXPECT_EQ(screen.cell(0, 15).attributes, A_REVERSE);
}

TEST_F(RendererCells, NumThreads) {
  task.pti_threadnum = 12;
  task.pti_numrunning = 3;
  expectCell(print_numthreads, nullptr, "12/3", 0);
  taskBefore.pti_threadnum = 12;
  expectColored(print_numthreads, "12/3", 0);
  taskBefore.pti_threadnum = 11;
  expectColored(print_numthreads, "12/3", kPairGrown);
  taskBefore.pti_threadnum = 13;
  expectColored(print_numthreads, "12/3", kPairShrunk);
  // The count of the sample before was not known.
  taskBefore.pti_threadnum = 0;
  expectColored(print_numthreads, "12/3", 0);
  task.pti_numrunning = 0;
  taskBefore.pti_threadnum = 11;
  expectColored(print_numthreads, "12  ", kPairGrown);
  task.pti_threadnum = 0;
  expectColored(print_numthreads, " 0  ", kPairShrunk);
}

TEST_F(RendererCells, ResidentSize) {
  task.pti_resident_size = 9 * kMega;
  expectCell(print_rsize, nullptr, "9216K", 0);
  taskBefore.pti_resident_size = 9 * kMega;
  expectColored(print_rsize, "9216K", 0);
  taskBefore.pti_resident_size = 9 * kMega - 1;
  expectColored(print_rsize, "9216K", kPairGrown);
  taskBefore.pti_resident_size = 9 * kMega + 1;
  expectColored(print_rsize, "9216K", kPairShrunk);
  taskBefore.pti_resident_size = 0;
  expectColored(print_rsize, "9216K", 0);

  store(g_Delta, 1);
  expectCell(print_rsize, nullptr, "9216K", 0);
  expectColored(print_rsize, "9216K", 0);
  taskBefore.pti_resident_size = kMega;
  expectColored(print_rsize, "8192K", kPairGrown);
  taskBefore.pti_resident_size = 9 * kMega + 12 * kKilo;
  expectColored(print_rsize, " -12K", kPairShrunk);
}

TEST_F(RendererCells, StatusThatChangedIsMarkedAlsoWithoutColours) {
  for (const int color : {1, 0}) {
    store(g_Color, color);
    bsd.pbi_status = 4;
    expectCell(print_status, nullptr, " T ", 0);
    bsdBefore.pbi_status = 4;
    expectCell(print_status, previous.get(), " T ", 0);
    for (const uint32_t before : {0u, 1u, 3u, 5u}) {
      bsdBefore.pbi_status = before;
      expectCell(print_status, previous.get(), " T ", kPairGrown);
    }
    bsdBefore.pbi_status = 3;
    bsd.pbi_status = 2;  // another status of the same letter
    expectCell(print_status, previous.get(), " S ", kPairGrown);
    bsd.pbi_status = 9;
    expectCell(print_status, previous.get(), " ? ", kPairGrown);
    bsd.pbi_status = 0;
    expectCell(print_status, previous.get(), "", 0);
    // Running processes are never marked.
    bsd.pbi_status = 2;
    task.pti_numrunning = 1;
    expectCell(print_status, previous.get(), " R ", 0);
    task.pti_numrunning = 0;
  }
}

TEST_F(RendererCells, UnsignedCode) {
  std::memcpy(current->csStatus, "NO", 3);
  expectCell(print_cs, nullptr, "NO", kPairWarning);
  expectColored(print_cs, "NO", kPairWarning);
  std::memcpy(current->csStatus, "N", 2);
  expectColored(print_cs, "N", kPairWarning);
  std::memcpy(current->csStatus, "OK", 3);
  expectColored(print_cs, "OK", 0);
  std::memcpy(current->csStatus, "ON", 3);
  expectColored(print_cs, "ON", 0);
  std::memcpy(current->csStatus, "n", 2);
  expectColored(print_cs, "n", 0);
  std::memcpy(current->csStatus, "", 1);
  expectColored(print_cs, "", 0);
}

TEST_F(RendererCells, Time) {
  task.pti_total_user = 1000000000;
  task.pti_total_system = 500000000;
  expectCell(print_time, nullptr, "   01.50 ", 0);
  expectColored(print_time, "   01.50 ", 0);  // none before
  taskBefore.pti_total_user = 1500000000;
  expectColored(print_time, "   01.50 ", 0);  // the same sum
  taskBefore.pti_total_user = 1499999999;
  expectColored(print_time, "   01.50 ", kPairGrown);
  taskBefore.pti_total_user = 0;
  taskBefore.pti_total_system = 7;
  expectColored(print_time, "   01.50 ", kPairGrown);
  // Any difference counts as growth.
  taskBefore.pti_total_system = 90000000000;
  expectColored(print_time, "   01.50 ", kPairGrown);
}

TEST_F(RendererCells, NetworkCounters) {
  file(3, 1000, 1000);
  for (const Renderer print : {print_netrx, print_nettx}) {
    // Nothing was shown before: grown from 0.
    expectCell(print, nullptr, " 1000B", kPairGrown);
    const auto shown = [&](uint64_t bytes) {
      previous->lastNetRX = bytes;
      previous->lastNetTX = bytes;
    };
    shown(1000);
    expectCell(print, previous.get(), " 1000B", 0);
    shown(999);
    expectCell(print, previous.get(), " 1000B", kPairGrown);
    shown(1001);
    expectCell(print, previous.get(), " 1000B", kPairShrunk);
    store(g_Delta, 1);
    shown(1001);
    expectCell(print, previous.get(), "    0B", kPairShrunk);
    shown(400);
    expectCell(print, previous.get(), "  600B", kPairGrown);
    shown(1000);
    expectCell(print, previous.get(), "    0B", 0);
    store(g_Delta, 0);
    store(g_Color, 0);
    shown(999);
    expectCell(print, previous.get(), " 1000B", 0);
    expectCell(print, nullptr, " 1000B", 0);
    store(g_Color, 1);
  }
}

TEST_F(RendererCells, NetworkCountersOfZeroAreNotMarked) {
  file(3, 0, 0);
  expectCell(print_netrx, nullptr, "    0B", 0);
  expectCell(print_nettx, nullptr, "    0B", 0);
}

TEST_F(RendererCells, NewProcessesShowTotalsWithoutMarksInDeltaMode) {
  store(g_Delta, 1);
  task.pti_threadnum = 5;
  task.pti_virtual_size = 9 * kGiga;
  task.pti_resident_size = 10 * kMega;
  task.pti_total_user = 1500000000;
  bsd.pbi_status = 3;
  current->rusage.ri_diskio_bytesread = 512;
  current->rusage.ri_diskio_byteswritten = 10240;
  expectCell(print_numthreads, nullptr, " 5  ", 0);
  expectCell(print_vsize, nullptr, "9216M", 0);
  expectCell(print_rsize, nullptr, "  10M", 0);
  expectCell(print_time, nullptr, "   01.50 ", 0);
  expectCell(print_status, nullptr, " S ", 0);
  expectCell(print_io_rusage_read, nullptr, "  512B", 0);
  expectCell(print_io_rusage_written, nullptr, "   10K", 0);
}

}  // namespace
