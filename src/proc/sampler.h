// Samples every process into a table of records, as the kernel's process-information calls give
// them. The figures are not interpreted here.
#pragma once

#include <cstdint>

#include "darwin/rusage.h"
#include "proc/jetsam.h"
#include "proc/process_table.h"

namespace sondex {

// System-wide accumulators of which the two disk counters are used: of this sample and of the one
// before.
extern darwin::rusage_info_v3 g_Total_Rusage;
extern darwin::rusage_info_v3 g_Prev_Total_Rusage;

// The memory-status list of the last sample, or null.
extern JetsamList *g_jetsam_list;

// Samples all processes into a new table, in the kernel's order. The caller owns the table. Ends
// the program with status 10 when the kernel lists no process or there is no memory for the table.
TableView getPIDList();

// The byte size that the kernel proposes for a list of all processes (proc_listpids without a
// buffer).
int getArrayOfPIDs();

// Fills a zeroed record of `pid`; `jetsamList` may be null. A query that fails leaves its field as
// it was, but no descriptors and an unknown usage. Returns 0.
int getProcInfo(int32_t pid, ProcessRecord *record, const JetsamList *jetsamList);

// Asks the kernel anew about the process of a filled record. Of no sample: the totals, the previous
// sample and the memory-status list are left alone, so any thread may call this with a record of
// its own. A query that fails does to the record what it does in getProcInfo.
void refreshProcInfo(ProcessRecord *record);

// Fills the descriptor list and details, in place of those before. Returns 0, or -1 when it stopped
// at a type without details; without memory there are none at all. Ends the program with status 0
// when a detail's query answers a negative number.
int getProcFDInfo(int32_t pid, ProcessRecord *record);

// Asks proc_pid_rusage() for what this kernel generation knows of the structure. False when there
// is no usage to be had; what is not known stays as it was.
bool getProcUsage(int32_t pid, darwin::rusage_info_v3 *usage);

// Bytes of this kernel generation's answer about coalitions: the shorter one has one identifier.
int coalitionInfoSize();

// Fills the coalition identifiers. Returns 0.
int getProcCoalitionInfo(int32_t pid, ProcessRecord *record);

}  // namespace sondex
