// The details report of one process, section by section. Its screen and keys are not here.
#pragma once

#include <cstddef>
#include <cstdint>

#include "darwin/mach_host.h"
#include "darwin/mach_task.h"
#include "proc/process_table.h"
#include "terminal/page.h"

namespace sondex {

struct DetailsReport {
  ProcessRecord *record;
  TableView table;  // for the process's relatives; without records the last refresh's is taken
  darwin::mach_port_t task;  // Kept: never obtained
  const char *signing;       // an answer of csFlagsToText. Kept: nothing asks it, so always empty

  // What the screen shows whole rather than by a hint; plain output shows everything.
  int32_t showsDescriptors;
  int32_t showsThreads;
  int32_t showsRegions;
  int32_t showsHierarchy;

  Page page;  // on the screen
};

// A report as it is when it is opened.
DetailsReport openDetailsReport(ProcessRecord *record, TableView table);

// Writes the report to standard output, or as a page, which it begins and its caller ends, and
// keeps the process's path in the record. Returns 0; -1, after a message, when the arguments of the
// process are not to be had: the report then ends behind its first line.
int printDetails(const DetailsReport *report);

// Writes into `to` what the kernel's counts say about tampering with a task.
void extmodsToText(const darwin::vm_extmod_statistics *counts, char *to, size_t size);

}  // namespace sondex
