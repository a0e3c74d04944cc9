// The monitor modes: memory pressure and process events, line by line on standard output.
#pragma once

#include <cstdint>

namespace sondex {

// Runs the monitor that argv[1] names: memory pressure for "vmmon", which never returns, else
// process events. Further arguments are not looked at.
void do_monitor(int argc, char **argv);

// Waits for memory pressure when `wait` is not 0; then puts the pages reclaimed in the last
// `seconds` seconds into `reclaimed` (may be null) and returns the number of pages wanted, or -1
// with errno set.
int vm_pressure_monitor(int wait, int seconds, uint32_t *reclaimed);

// Raises g_VMPressureDetected at every memory-pressure event; prints it too when `verbose` is not
// 0. Never returns. With 0 it is a thread's body, and leaves signals to other threads.
void doVMPressureMonitor(int verbose);

// Prints forks, execs and the exit of process 1, and returns 0 after that. Exits with 2, 3 or 4
// when the events can't be had.
int doProcessMonitor(int argc, char **argv);

}  // namespace sondex
