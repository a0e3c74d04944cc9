// Asks the kernel everything about one process that the program asks about processes, and holds the
// answers against what the program is built on.
#pragma once

#include <stdint.h>

namespace sondex {

// A verdict for each call about `pid`. What others may not be asked is refused, which is one too.
void checkProcess(int32_t pid);

}  // namespace sondex
