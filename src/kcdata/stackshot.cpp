#include "kcdata/stackshot.h"

namespace sondex {

int stackshot_wrapper(int32_t, uint32_t, uint32_t) {
  return 0;
}

}  // namespace sondex
