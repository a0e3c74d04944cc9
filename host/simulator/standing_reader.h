// How the system treats a process, as a device file says it: its place in the order of jetsam, its
// coalitions, what it is signed with, how an application stands.
#pragma once

#include <cstdint>

#include "host/simulator/device.h"
#include "host/simulator/toml_reader.h"

namespace host::simulator {

// The keys of a process that say so. Those that are missing have their defaults.
void readStanding(TableReader &reader, Process &process);

// A flag, or "unknown": 1, 0, or -1.
int32_t readSandbox(const Field &field);
// CS_*.
uint32_t readSigning(const Field &field);
// PROC_APPSTATE_*.
int32_t readApplicationState(const Field &field);

}  // namespace host::simulator
