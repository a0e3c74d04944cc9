#include "columns/renderers.h"

#include <curses.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "nstat/accounting.h"
#include "state/display.h"
#include "terminal/output.h"
#include "terminal/screen.h"
#include "text/format.h"
#include "text/safe_text.h"
#include "text/utf8.h"

namespace sondex {

constexpr int32_t kNameCells = 15;

static bool wantsDelta(const ProcessRecord *previous) {
  return load(g_Delta) != 0 && previous != nullptr;
}

static int toInt(int64_t value) {
  return value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : static_cast<int>(value);
}

static int64_t toSigned(uint64_t value) {
  return value > INT64_MAX ? INT64_MAX : static_cast<int64_t>(value);
}

// The attribute that marks a value as changed, 0 where colours are off.
static uint32_t changeAttribute(int pair) {
  return load(wantCurses) != 0 ? colorPair(pair) : 0;
}

static uint32_t changeAttribute(uint64_t before, uint64_t now) {
  if (before == now) return 0;
  return changeAttribute(now > before ? kPairGrown : kPairShrunk);
}

// A number that is too wide moves the rest of its row: cut, it would be another process's.
static int outputIdentifier(const char *text) {
  constexpr int kWidth = 6;
  return output(text, strlen(text) < kWidth ? kWidth : 0);
}

static int outputPid(int32_t pid) {
  char text[16];
  snprintf(text, sizeof text, "%-5d", pid);
  return outputIdentifier(text);
}

int print_pid(ProcessRecord *current, ProcessRecord *) {
  return outputPid(pidOf(current));
}

int print_ppid(ProcessRecord *current, ProcessRecord *) {
  return outputPid(static_cast<int32_t>(current->taskAllInfo.pbsd.pbi_ppid));
}

int print_uid(ProcessRecord *current, ProcessRecord *) {
  char text[16];
  snprintf(text, sizeof text, "%5d", static_cast<int>(current->taskAllInfo.pbsd.pbi_uid));
  return outputIdentifier(text);
}

int print_coalition(ProcessRecord *current, ProcessRecord *) {
  return outputFormatted(0, "%4llu",
                         static_cast<unsigned long long>(current->coalitionInfo.coalition_id[0]));
}

int print_name(ProcessRecord *current, ProcessRecord *) {
  const darwin::proc_bsdinfo &process = current->taskAllInfo.pbsd;
  const bool underlined = load(wantCurses) != 0 && !is64Bit(current);
  char name[sizeof process.pbi_comm];
  makeSafe(name, sizeof name, process.pbi_comm, sizeof process.pbi_comm);
  int32_t cells = 0;
  fitCells(name, strlen(name), kNameCells, &cells);
  if (underlined) switchOn(static_cast<uint32_t>(A_UNDERLINE));
  const int result = output(name, 0);
  outputBlanks(kNameCells - cells);
  if (underlined) switchOff(static_cast<uint32_t>(A_UNDERLINE));
  return result;
}

int print_priority(ProcessRecord *current, ProcessRecord *) {
  return outputFormatted(5, "%3d ", current->taskAllInfo.ptinfo.pti_priority);
}

int print_numthreads(ProcessRecord *current, ProcessRecord *previous) {
  const darwin::proc_taskinfo &task = current->taskAllInfo.ptinfo;
  uint32_t attribute = 0;
  if (previous != nullptr) {
    const int32_t before = previous->taskAllInfo.ptinfo.pti_threadnum;
    if (before != 0 && before != task.pti_threadnum) {
      attribute = changeAttribute(task.pti_threadnum > before ? kPairGrown : kPairShrunk);
    }
  }
  switchOn(attribute);
  int result = 0;
  if (task.pti_numrunning != 0) {
    result = outputFormatted(5, "%2d/%d", task.pti_threadnum, task.pti_numrunning);
  } else {
    result = outputFormatted(5, "%2d%s", task.pti_threadnum, task.pti_threadnum < 100 ? " " : "");
  }
  switchOff(attribute);
  return result;
}

int print_vsize(ProcessRecord *current, ProcessRecord *previous) {
  int64_t megabytes = static_cast<int64_t>(current->taskAllInfo.ptinfo.pti_virtual_size >> 20);
  if (wantsDelta(previous)) {
    megabytes -= static_cast<int64_t>(previous->taskAllInfo.ptinfo.pti_virtual_size >> 20);
  }
  const int64_t gigabytes = megabytes / 1024;
  return gigabytes >= 10 ? outputFormatted(0, "%4d%s", toInt(gigabytes), "G")
                         : outputFormatted(0, "%4d%s", toInt(megabytes), "M");
}

int print_rsize(ProcessRecord *current, ProcessRecord *previous) {
  const uint64_t now = current->taskAllInfo.ptinfo.pti_resident_size;
  const uint64_t before = previous != nullptr ? previous->taskAllInfo.ptinfo.pti_resident_size : 0;
  const int64_t value = toSigned(now) - (load(g_Delta) != 0 ? toSigned(before) : 0);
  const uint32_t attribute = before != 0 ? changeAttribute(before, now) : 0;
  switchOn(attribute);
  const int64_t megabytes = value >> 20;
  const int result = megabytes >= 10
                         ? outputFormatted(6, "%4dM", toInt(megabytes))
                         : outputFormatted(6, "%4lldK", static_cast<long long>(value >> 10));
  switchOff(attribute);
  return result;
}

static const char *statusText(uint32_t status) {
  switch (status) {
    case darwin::SIDL:
      return " F ";
    case darwin::SRUN:
    case darwin::SSLEEP:
      return " S ";
    case darwin::SSTOP:
      return " T ";
    case darwin::SZOMB:
      return " Z ";
    default:
      return " ? ";
  }
}

int print_status(ProcessRecord *current, ProcessRecord *previous) {
  if (current->taskAllInfo.ptinfo.pti_numrunning != 0) return output(" R ", 0);
  const uint32_t status = current->taskAllInfo.pbsd.pbi_status;
  if (status == 0) return 0;
  // Kept: marked whenever there is a screen, also with colours off.
  const bool changed = load(wantCurses) != 0 && previous != nullptr &&
                       previous->taskAllInfo.pbsd.pbi_status != status;
  const uint32_t attribute = changed ? static_cast<uint32_t>(COLOR_PAIR(kPairGrown)) : 0;
  switchOn(attribute);
  const int result = output(statusText(status), 0);
  switchOff(attribute);
  return result;
}

int print_memstatus(ProcessRecord *current, ProcessRecord *) {
  return current->jetsamPriority < 0 ? output("??", 0)
                                     : outputFormatted(0, "%-3d", current->jetsamPriority);
}

int print_memlimit(ProcessRecord *current, ProcessRecord *) {
  return current->jetsamLimit < 0 ? output(" ?? ", 0)
                                  : outputFormatted(0, "%4d", current->jetsamLimit);
}

int print_sandbox(ProcessRecord *current, ProcessRecord *) {
  return output(current->sandboxed == 0 ? "NO" : "SB", 0);
}

int print_cs(ProcessRecord *current, ProcessRecord *) {
  char text[sizeof current->csStatus];
  makeSafe(text, sizeof text, current->csStatus, sizeof current->csStatus);
  const uint32_t attribute = text[0] == 'N' ? colorPair(kPairWarning) : 0;
  switchOn(attribute);
  const int result = output(text, 0);
  switchOff(attribute);
  return result;
}

int print_stime(ProcessRecord *current, ProcessRecord *) {
  const time_t started = static_cast<time_t>(current->taskAllInfo.pbsd.pbi_start_tvsec);
  const time_t now = time(nullptr);
  tm start = {};
  tm today = {};
  if (localtime_r(&started, &start) == nullptr || localtime_r(&now, &today) == nullptr) {
    return output("   ?????   ", 0);  // a start time beyond any calendar
  }
  // Kept: only the day of the year is compared, and the month counts from 0.
  if (start.tm_yday == today.tm_yday) {
    return outputFormatted(0, "  %02d:%02d:%02d ", start.tm_hour, start.tm_min, start.tm_sec);
  }
  return outputFormatted(0, "%02d/%02d %02d:%02d", start.tm_mday, start.tm_mon, start.tm_hour,
                         start.tm_min);
}

int print_time(ProcessRecord *current, ProcessRecord *previous) {
  const uint64_t now = cpuTime(current);
  const uint64_t before = previous != nullptr ? cpuTime(previous) : 0;
  const uint32_t attribute = before != 0 && before != now ? changeAttribute(kPairGrown) : 0;
  char *text = nsecsToTimeString(now);
  if (text == nullptr) return -1;
  switchOn(attribute);
  const int result = output(text, 12);
  switchOff(attribute);
  free(text);
  return result;
}

int print_cpu_usage(ProcessRecord *current, ProcessRecord *) {
  return outputFormatted(0, "%3d.%1d", current->totalCPU / 10, current->totalCPU % 10);
}

int print_numfds(ProcessRecord *current, ProcessRecord *) {
  return outputFormatted(0, "%4d", current->numFDs);
}

int print_io_rusage_read(ProcessRecord *current, ProcessRecord *previous) {
  uint64_t value = current->rusage.ri_diskio_bytesread;
  if (value == kUsageUnknown) return output("?????", 0);
  if (wantsDelta(previous)) value -= previous->rusage.ri_diskio_bytesread;
  return output(printSize(value), 0);
}

int print_io_rusage_written(ProcessRecord *current, ProcessRecord *previous) {
  // Kept: the read counter tells whether there are figures.
  if (current->rusage.ri_diskio_bytesread == kUsageUnknown) return output("?????", 0);
  uint64_t value = current->rusage.ri_diskio_byteswritten;
  if (wantsDelta(previous)) value -= previous->rusage.ri_diskio_byteswritten;
  return output(printSize(value), 0);
}

// A network total, of which `shown` was on display before. A total that fell (a connection closed)
// has not grown.
static int outputNetworkTotal(uint64_t total, uint64_t shown) {
  const uint64_t growth = total > shown ? total - shown : 0;
  const uint32_t attribute = changeAttribute(shown, total);
  switchOn(attribute);
  const int result = output(printSize(load(g_Delta) != 0 ? growth : total), 0);
  switchOff(attribute);
  return result;
}

// What the network cells write into the records. Kept: in the previous record the received total
// only.
static void noteShownReceived(ProcessRecord *current, ProcessRecord *previous, uint64_t total) {
  if (previous != nullptr) previous->lastNetRX = total;
  current->lastNetRX = total;
}

static void noteShownSent(ProcessRecord *current, uint64_t total) {
  current->lastNetTX = total;
}

int print_netrx(ProcessRecord *current, ProcessRecord *previous) {
  const NetworkTotals *totals = getNTStatInfo(pidOf(current));
  if (totals == nullptr) return output(" ---- ", 0);
  const int result =
      outputNetworkTotal(totals->received, previous != nullptr ? previous->lastNetRX : 0);
  noteShownReceived(current, previous, totals->received);
  return result;
}

int print_nettx(ProcessRecord *current, ProcessRecord *previous) {
  const NetworkTotals *totals = getNTStatInfo(pidOf(current));
  if (totals == nullptr) return output(" ---- ", 0);
  const int result =
      outputNetworkTotal(totals->sent, previous != nullptr ? previous->lastNetTX : 0);
  noteShownSent(current, totals->sent);
  return result;
}

int print_tty(ProcessRecord *current, ProcessRecord *) {
  const int32_t device = static_cast<int32_t>(current->taskAllInfo.pbsd.e_tdev);
  return device == -1 ? output(" none ", 7) : outputFormatted(7, "%-10d ", device);
}

int print_rx_tx(ProcessRecord *current, ProcessRecord *) {
  const NetworkTotals *totals = getNTStatInfo(pidOf(current));
  const unsigned long long sent = totals != nullptr ? totals->sent : 0;
  const unsigned long long received = totals != nullptr ? totals->received : 0;
  return outputFormatted(0, "%5llu/%5llu", sent, received);
}

int print_io_rusage(ProcessRecord *current, ProcessRecord *) {
  const uint64_t read = current->rusage.ri_diskio_bytesread;
  if (read == kUsageUnknown) return output("?????", 0);
  const uint64_t total = read + current->rusage.ri_diskio_byteswritten;
  const bool inMegabytes = total >> 10 > 1024;
  return outputFormatted(0, "%5lld%c", static_cast<long long>(total >> (inMegabytes ? 20 : 10)),
                         inMegabytes ? 'M' : 'K');
}

int print_csw(ProcessRecord *current, ProcessRecord *) {
  return outputFormatted(0, "%8d", current->taskAllInfo.ptinfo.pti_csw);
}

int print_bitness(ProcessRecord *current, ProcessRecord *) {
  return output(is64Bit(current) ? "64" : "32", 0);
}

}  // namespace sondex
