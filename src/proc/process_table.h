// The tables of process records: where they come from and go to, the current, the previous and the
// drawn one, finding a process in one, and putting one in order.
//
// Current and previous are double buffering: the main thread fills and sorts the one while other
// threads read the other, which stays as it was drawn. What was replaced, table or index, goes by
// reclamation by counting readers: threads count themselves in and out of all tables at once, and
// while the count is not zero the main thread puts the freeing off. Nobody waits.
#pragma once

#include "proc/process_record.h"
#include "state/word.h"

namespace sondex {

extern std::atomic<ProcessRecord *> g_process_information;           // current table
extern SharedInt num_procs;                                          // its records
extern std::atomic<ProcessRecord *> g_previous_process_information;  // the refresh before, or null
extern SharedInt previous_num_procs;                                 // its records

// A table and how many records it holds.
struct TableView {
  ProcessRecord *records;  // null: there is no table
  int32_t count;
};

// The table that the main thread fills and sorts.
TableView currentTable();

// Makes `table` the current one; the one before it may be retired afterwards. Main thread only.
void setCurrentTable(TableView table);

// The table that the last refresh left: it stays as it was drawn, while the main thread fills and
// sorts the current one. Another thread than the main one stands inside the tables meanwhile.
TableView previousTable();

// Makes `table` the previous one, as other threads see it: none of them gets the address of a table
// with the count of a larger one. The one before it may be retired afterwards. Main thread only.
void setPreviousTable(TableView table);

// The table of the last frame: what is seen, and what keys act on. Frames that are left out leave
// it behind the previous one. Guarded by the drawing lock.
TableView drawnTable();

// Makes `table` the drawn one; the one before it may be retired afterwards. Main thread only, while
// it has the drawing lock.
void setDrawnTable(TableView table);

// A table of `count` zeroed records whose pages stay untouched until written; `count` is at
// least 1. Null when there is no memory or too many tables are still out. The caller owns it until
// releaseProcessTable or retireProcessTable.
ProcessRecord *allocateProcessTable(size_t count);

// Says that the records of `table` beyond the first `count` stay as they were handed out: releasing
// the table then leaves their pages untouched too.
void limitProcessTable(ProcessRecord *table, size_t count);

// Whether allocateProcessTable has a place left: not while a reader keeps too many retired tables.
bool hasRoomForTable();

// Frees a record's descriptor details.
void releaseRecord(ProcessRecord *record);

// Frees a table from allocateProcessTable with what its records own. Null is ignored.
void releaseProcessTable(ProcessRecord *table);

// Takes a table out of use: it is released as soon as no thread is inside one, at the latest by a
// later call. Null only looks at the tables that still wait.
void retireProcessTable(ProcessRecord *table);

// Makes the lookup of a PID cost the same for any table size. Without it, or when memory is short,
// the lookup scans; so it does when it is given another count. Sorting the table afterwards drops
// the index.
void indexProcessTable(TableView table);

// The first record with that PID; null when there is none.
ProcessRecord *findProcessInformationByPid(TableView table, int32_t pid);

// Moves the records of `table` so that the one at order[i] comes to stand at i. `order` holds the
// address of each record once, and is used up.
void reorderProcessTable(TableView table, ProcessRecord **order);

// A number that changes with every table and with the order of its records: what was noted about
// where a record stands holds for as long as this is the same. 0 for a table made elsewhere.
uint64_t versionOf(const ProcessRecord *table);

// A thread other than the main one stands between these while it reads a table.
void enterProcessTables();
void leaveProcessTables();

}  // namespace sondex
