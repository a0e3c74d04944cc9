#include "vm/core_dump.h"

namespace sondex {

int dumpCore(int32_t, darwin::mach_port_t, int) {
  return -5;
}

}  // namespace sondex
