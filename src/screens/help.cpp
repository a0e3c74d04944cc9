#include "screens/help.h"

#include <curses.h>

#include "columns/perspective.h"
#include "state/display.h"
#include "state/system.h"
#include "terminal/output.h"
#include "terminal/page.h"

namespace sondex {

struct Modifier {
  const char *indentation;
  const char *text;
  bool isOn;
};

static void showIn(uint32_t attributes, const char *text) {
  switchOn(attributes);
  output(text, 0);
  switchOff(attributes);
}

static void showHeading(const char *heading) {
  output("\n\t", 0);
  showIn(A_UNDERLINE, heading);
}

static void showHeader() {
  output("\nThis is Z's Sondex v2 (TLV)\n\n", 0);
  showIn(A_REVERSE, "inverse");
  output(" indicates currently selected configuration options\n\n", 0);
  output("   ", 0);
  showIn(A_UNDERLINE, "Key");
  output("       \t", 0);
  showIn(A_UNDERLINE, "Function\n");
}

static void showModifiers() {
  const Perspective *perspective = getCurrentPerspective();
  const Modifier modifiers[] = {
      // Kept: the next line's indentation belongs to this one, and is inverse with it.
      {"   ", "1         \tToggle display of logical CPUs (CPUs/cores/hyperthreads)\n   ",
       load(g_EachCPU) != 0},
      {"", "C         \tToggle color output\n", load(g_Color) != 0},
      {"   ", "D         \tToggle delta mode (per-sample, rather than cumulative statistics)\n",
       false},
      {"   ", "M         \tToggle Memory (RAM + Compression) details\n", load(g_showMemory) != 0},
      {"   ", "N         \tToggle Network details\n", load(perspective->ShowNetworks) != 0},
      {"   ", "S         \tToggle display of processes with network sockets only\n",
       load(g_filterSockets) != 0},
      {"   ", "P         \tToggle Power (battery) details\n", load(perspective->ShowPower) != 0},
      {"   ", "r         \tReverse sort order\n", load(g_reverse) != 0},
      {"   ", "/         \tSet process name filter (type name and hit <enter>)\n", false},
  };
  for (const Modifier &modifier : modifiers) {
    output(modifier.indentation, 0);
    if (modifier.isOn) {
      showIn(A_REVERSE, modifier.text);
    } else {
      output(modifier.text, 0);
    }
  }
}

static void showListKeys() {
  output("   Up/Down   \tScroll through process list, highlighting process for selection\n", 0);
  output("   <enter>   \tSelect highlighted process for more detailed information\n", 0);
  output("   <space>/b \tAdvance/Retreat process list by one full screen\n", 0);
  output("   Left/Right\tSelect column for sorting or move column (with <shift>)\n", 0);
  output("   -         \tRemove selected column\n", 0);
  output("   +         \tAdd column(s) - (well, not yet)\n", 0);
  showHeading("Display modifiers\n");
  showModifiers();
  showHeading("Process Control\n");
  output("   J         \tJetsam Control\n", 0);
  output("   K/T       \tSend KILL/(STOP/CONT) to highlighted process\n", 0);
  output("   Q         \tQuit sondex (can also CTRL-C)\n", 0);
  output("   U \t   \tChange update delay\n", 0);
  showHeading("Alternate Views\n");
  if (g_gotGestalt != 0) {
    output("   G         \tShow Gestalt Details screen (try sondex gestalt from command line)\n",
           0);
  }
  output("   F\t      \tFreeze/Thaw updates\n", 0);
  output("   !         \tSave configuration (colors, columns) to /tmp/.sdrc\n", 0);
  output("   ?         \tHelp (but you knew this already)\n", 0);
  showIn(A_UNDERLINE | A_BOLD, "\nCLI usage:");
  output(" sondex [all|_pid_] [fds|ports|threads|net|all]\n", 0);
}

static void showDetailsKeys() {
  output("   C        \tGenerate Core Dump (to /tmp/core.$pid)\n", 0);
  output("   F        \tShow all open file descriptors and sockets\n", 0);
  output("   H        \tShow process hierarchy (tree) if any\n", 0);
  output("   T        \tShow all threads in process\n", 0);
}

static void writeHelp(int32_t mode) {
  showHeader();
  if (mode == 1) showListKeys();
  if (mode == 2) showDetailsKeys();
}

void showHelp(int mode) {
  showPage(writeHelp, mode);
}

}  // namespace sondex
