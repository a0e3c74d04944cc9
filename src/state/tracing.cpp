#include "state/tracing.h"

#include <stdlib.h>

namespace sondex {

bool isTracing() {
  return getenv("ZDEBUG") != nullptr;
}

}  // namespace sondex
