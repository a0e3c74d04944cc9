// What keys toggle and screens read: the display's switches, scroll position and geometry. No
// logic.
#pragma once

#include "state/word.h"

namespace sondex {

extern SharedInt wantCurses;    // 1: full screen, 0: plain standard output
extern SharedInt cursesFailed;  // 1 until the full screen was started

extern SharedInt g_Delay;      // refresh period: the loop waits this many times 1000 milliseconds
extern SharedInt g_updates;    // 0 while the display is frozen
extern SharedInt g_Color;      // colours on
extern SharedInt g_wantLines;  // separators between columns
extern SharedInt g_Delta;      // cumulative figures as growth since the sample before
extern SharedInt g_IrixMode;   // toggled by a key; changes no figure
extern SharedInt g_reverse;    // sort order reversed
extern SharedInt g_filterSockets;  // only processes with network counters
extern SharedInt g_showArgs;       // arguments in the details

// Header sections.
extern SharedInt g_Processors;
extern SharedInt g_EachCPU;
extern SharedInt g_showMemory;
extern SharedInt g_Compression;
extern SharedInt g_Swap;

extern SharedInt g_selectedProcess;  // index of the highlighted record in the table; negative: none
extern SharedInt g_firstProcToShow;  // index of the first record that may be drawn
extern SharedInt g_Row;  // row of the highlight, counted from g_firstProcToShow; may be -1
extern SharedInt g_procs_viewable;  // how many records pass the filters
extern SharedInt banners;           // rows taken by the header above the list
extern SharedInt g_Max_Cols;        // columns still shown
extern SharedInt g_lastVisibleCol;  // index of the last column that fitted
extern SharedInt y;                 // screen rows; 1000 in plain mode
extern SharedInt x;                 // screen columns

extern SharedInt g_VMPressureDetected;  // frames that still show the pressure mark

}  // namespace sondex
