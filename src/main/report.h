// The one-shot reports of one process or of all.
#pragma once

#include <cstdint>

namespace sondex {

// Prints the report that argv[2] names (the full one without it) about `pid`, or about every
// process when argv[1] is "all", and ends the program.
[[noreturn]] void runReport(int32_t pid, int argc, char **argv);

}  // namespace sondex
