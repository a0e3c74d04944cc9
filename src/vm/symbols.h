// Entry points for loading symbols; none are loaded.
#pragma once

namespace sondex {

// Returns 0.
int loadKernelSymbols();

void loadBinarySymbols();

}  // namespace sondex
