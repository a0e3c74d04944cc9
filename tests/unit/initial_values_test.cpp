// The words that threads and screens share, as they are when the program begins.
#include <gtest/gtest.h>

#include "nstat/client.h"
#include "proc/process_table.h"
#include "state/display.h"
#include "state/system.h"

namespace {

using namespace sondex;

struct Word {
  const char *name;
  int32_t atStart;
  int32_t expected;
};

// Taken before any test runs: others change them.
const Word kSharedWords[] = {
    {"wantCurses", load(wantCurses), 0},
    {"cursesFailed", load(cursesFailed), 1},
    {"g_Delay", load(g_Delay), 10},
    {"g_updates", load(g_updates), 1},
    {"g_Color", load(g_Color), 1},
    {"g_wantLines", load(g_wantLines), 1},
    {"g_Delta", load(g_Delta), 0},
    {"g_IrixMode", load(g_IrixMode), 0},
    {"g_reverse", load(g_reverse), 0},
    {"g_filterSockets", load(g_filterSockets), 0},
    {"g_showArgs", load(g_showArgs), 0},
    {"g_Processors", load(g_Processors), 1},
    {"g_EachCPU", load(g_EachCPU), 0},
    {"g_showMemory", load(g_showMemory), 1},
    {"g_Compression", load(g_Compression), 1},
    {"g_Swap", load(g_Swap), 1},
    {"g_selectedProcess", load(g_selectedProcess), 0},
    {"g_firstProcToShow", load(g_firstProcToShow), 0},
    {"g_Row", load(g_Row), 0},
    {"g_procs_viewable", load(g_procs_viewable), 0},
    {"banners", load(banners), 6},
    {"g_Max_Cols", load(g_Max_Cols), 19},
    {"g_lastVisibleCol", load(g_lastVisibleCol), 19},
    {"x", load(x), 1000},
    {"g_VMPressureDetected", load(g_VMPressureDetected), 0},
    {"g_pipe[0]", g_pipe[0], 0},
    {"g_pipe[1]", g_pipe[1], 0},
    {"g_gotGestalt", g_gotGestalt, 0},
    {"g_r00t", g_r00t, 0},
    {"g_isARM64", g_isARM64, 0},
    {"g_OsVer", g_OsVer, 0},
    {"num_procs", load(num_procs), 0},
    {"previous_num_procs", load(previous_num_procs), 0},
    {"nstat_socket", load(nstat_socket), -1},
};

TEST(InitialValues, OfTheSharedWords) {
  for (const Word &word : kSharedWords) EXPECT_EQ(word.atStart, word.expected) << word.name;
}

TEST(InitialValues, OfTheIdentification) {
  EXPECT_STREQ(ver, "@(#) PROJECT: ravel\tPROGRAM: sondex 2 (TLV)");
}

}  // namespace
