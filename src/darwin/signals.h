// Signal numbers as the kernel counts them: for signals that are sent to or read from the processes
// watched. Signals of the program itself go by the C library's names.
#pragma once

namespace darwin {

constexpr int DARWIN_SIGKILL = 9;
constexpr int DARWIN_SIGSTOP = 17;
constexpr int DARWIN_SIGCONT = 19;

}  // namespace darwin
