// Entry points for loading symbols; none are loaded.
#pragma once

namespace sondex {

// Returns 0. Nothing calls it yet.
int loadKernelSymbols();

// Nothing calls it yet.
void loadBinarySymbols();

}  // namespace sondex
