// The dialogue in which a process's jetsam band and memory limit are changed.
#pragma once

#include <stdint.h>

namespace sondex {

// Asks for the band and the memory limit of `pid` (not 0), with the present ones in the questions,
// sets those that were answered, and says in the status bar what then holds, or what was refused
// and why. An answer that is no number leaves both as they are. The calling thread is the one that
// draws.
void controlJetsam(int32_t pid);

}  // namespace sondex
