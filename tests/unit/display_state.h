// Puts the words that threads, screens and probes share back to what they are before start-up, so
// that tests don't see each other's. Owns no words of its own.
#pragma once

#include <cstdlib>

#include "columns/perspective.h"
#include "control/keys.h"
#include "device/gestalt.h"
#include "nstat/accounting.h"
#include "nstat/layouts.h"
#include "nstat/places.h"
#include "proc/process_table.h"
#include "proc/sampler.h"
#include "screens/cpu_summary.h"
#include "state/display.h"
#include "state/system.h"
#include "terminal/status_bar.h"
#include "text/safe_text.h"

namespace sondex {

// Everything is at its initial value after construction and again after destruction. Tables that a
// test left as current or previous are released, so is the memory-status list.
class DisplayStateGuard {
 public:
  DisplayStateGuard() { reset(); }
  ~DisplayStateGuard() { reset(); }
  DisplayStateGuard(const DisplayStateGuard &) = delete;
  DisplayStateGuard &operator=(const DisplayStateGuard &) = delete;

  static void reset() {
    resetDisplay();
    resetSystem();
    resetTables();
    resetAccounting();
    setDefaultPerspective(nullptr);
    clearStatusBar();
    noteKeysAreSeen();
    allowUTF8(true);
  }

 private:
  static void resetDisplay() {
    store(wantCurses, 0);
    store(cursesFailed, 1);
    store(g_Delay, 10);
    store(g_updates, 1);
    store(g_Color, 1);
    store(g_wantLines, 1);
    store(g_Delta, 0);
    store(g_IrixMode, 0);
    store(g_reverse, 0);
    store(g_filterSockets, 0);
    store(g_showArgs, 0);
    store(g_Processors, 1);
    store(g_EachCPU, 0);
    store(g_showMemory, 1);
    store(g_Compression, 1);
    store(g_Swap, 1);
    store(g_selectedProcess, 0);
    store(g_firstProcToShow, 0);
    store(g_Row, 0);
    store(g_procs_viewable, 0);
    store(banners, 6);
    store(g_Max_Cols, 19);
    store(g_lastVisibleCol, 19);
    store(y, 1000);
    store(x, 1000);
    store(g_VMPressureDetected, 0);
  }

  static void resetSystem() {
    g_pipe[0] = 0;
    g_pipe[1] = 0;
    g_gotGestalt = 0;
    g_r00t = 0;
    g_isARM64 = 0;
    g_OsVer = 0;
    host_self = 0;
    std::free(g_hostName);
    g_hostName = nullptr;
    memorystatus_get_level_funcptr = nullptr;
    proc_pid_rusage_funcptr = nullptr;
    mach_vm_page_range_query_funcptr = nullptr;
    store(MGCopyAnswerWithError_func, nullptr);
    g_num_cpus = 0;
    g_totalTicksThisSample = 0;
  }

  static void resetTables() {
    ProcessRecord *current = load(g_process_information);
    ProcessRecord *previous = load(g_previous_process_information);
    store(g_process_information, nullptr);
    store(g_previous_process_information, nullptr);
    setDrawnTable({});
    store(num_procs, 0);
    store(previous_num_procs, 0);
    releaseProcessTable(current);
    if (previous != current) releaseProcessTable(previous);
    std::free(g_jetsam_list);
    g_jetsam_list = nullptr;
    g_Total_Rusage = {};
    g_Prev_Total_Rusage = {};
  }

  static void resetAccounting() {
    for (int source = 0; source <= kLastSource; source++) {
      store(process_pid_info[source], 0);
      store(process_ntstat_info[source].received, 0);
      store(process_ntstat_info[source].sent, 0);
    }
    store(g_nstat_ok, 0);
    freeSourcePlaces();
    chooseStatisticsLayout("");
  }
};

}  // namespace sondex
