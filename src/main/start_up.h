// The probes of start-up, and what the arguments choose: the display, a monitor mode, the identity
// screen or a report.
#pragma once

namespace sondex {

// The whole program. Returns the exit status of the plain list; every other way ends in exit().
int runProgram(int argc, char **argv);

}  // namespace sondex
