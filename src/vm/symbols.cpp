#include "vm/symbols.h"

namespace sondex {

int loadKernelSymbols() {
  return 0;
}

void loadBinarySymbols() {}

}  // namespace sondex
