// The monitor modes: memory pressure and process events, line by line.
#pragma once

namespace sondex {

// Runs the monitor that argv[1] names.
void do_monitor(int argc, char **argv);

// Raises g_VMPressureDetected at every memory-pressure event; prints it too when `verbose` is
// non-zero.
void doVMPressureMonitor(int verbose);

}  // namespace sondex
