// Which process owns a socket, by what the samples of all processes hold. The table looked into is
// the one of the last refresh while the display runs, else the current one. An index is built once
// for each table, so that looking up every socket of every process costs linear time.
//
// Only one thread calls these. A record found is good for as long as that thread stays inside the
// tables (process_table.h).
#pragma once

#include <cstdint>

#include "proc/process_record.h"

namespace sondex {

// The first process, in the table's order, with an IPv4 socket whose local port is `port` (network
// order). Null when there is none.
ProcessRecord *ownerOfIPv4Port(uint16_t port);

// The first process with a socket of any family whose kernel address is `address`. Null when there
// is none.
ProcessRecord *ownerOfSocket(uint64_t address);

}  // namespace sondex
