// Asks the kernel and the services everything about the system that the program asks, and holds the
// answers against what the program is built on.
#pragma once

namespace sondex {

// A verdict for each call. Those to the statistics service and for a stackshot take some moments.
void checkSystem();

}  // namespace sondex
