// The details report of one process.
#pragma once

#include "proc/process_record.h"

namespace sondex {

// Writes the report of `record`; `table` is the current table, for its relatives.
void showProcessDetails(ProcessRecord *record, ProcessRecord *table);

}  // namespace sondex
