// Whether the kernel answers as the program is built on: every call that the program makes, made
// once, and a verdict on what comes back.
#pragma once

namespace sondex {

// Makes the calls about the system, and those about processes for a few: this one, the first, one
// of another user, and the one with the most descriptors. Prints a line for each and one that
// counts them. True when nothing is different from what is expected.
bool checkCalls();

}  // namespace sondex
