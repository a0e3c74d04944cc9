// One run of a whole program, and what it cost.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

struct ProgramRun {
  int status = -1;              // exit status; -1 when a signal ended it
  double processorSeconds = 0;  // user and system
  double seconds = 0;           // on the clock
  size_t lines = 0;             // on its standard output
  size_t peakResidentBytes = 0;
};

// Runs a program (looked for in PATH) whose standard output is a pipe, and takes in what it writes.
// Ends the benchmark when there can be no process. The status is 127 where there is no such
// program.
ProgramRun runProgram(const std::vector<std::string> &arguments);

}  // namespace bench
