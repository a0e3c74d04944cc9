// Whether debug traces are wanted.
#pragma once

namespace sondex {

// Whether the environment has the variable ZDEBUG, with whatever value. Asked anew each time.
bool isTracing();

}  // namespace sondex
