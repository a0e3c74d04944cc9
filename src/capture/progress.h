// How far a long piece of work is, on a terminal.
#pragma once

#include <stdint.h>

namespace sondex {

// Says on standard error that `done` of `all` are done, once more than a second has passed since
// the first call and not more often than is good to look at. Nothing where that is no terminal.
void showProgress(const char *what, int32_t done, int32_t all);

// Takes the line away.
void endProgress();

}  // namespace sondex
