// A column of the process list: how its cells are drawn and how records are ordered by it.
#pragma once

#include <cstdint>

#include "proc/process_record.h"
#include "state/word.h"

namespace sondex {

// Draws one cell of `current` and returns what output() returned. `previous` is the same process's
// record in the previous table, or null.
using Renderer = int (*)(ProcessRecord *current, ProcessRecord *previous);

// Orders two records: negative when `a` comes first, positive when `b` does. A non-zero `reverse`
// turns the order round.
using Comparator = int (*)(int32_t reverse, const ProcessRecord *a, const ProcessRecord *b);

struct ColumnDescriptor {
  char header[16];
  int32_t width;  // columns claimed on the line, one of them for the separator
  Renderer print;
  Comparator sort;
  SharedInt hidden;      // 1 once the user hid it
  int32_t minOSVersion;  // shown from this g_OsVer on
  int32_t needsNetStat;  // header shown only while network statistics are ready
  int32_t rootOnly;      // shown only to root
};

}  // namespace sondex
