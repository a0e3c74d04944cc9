#include "vm/region_map.h"

namespace sondex {

const char *showProcRegions(int32_t, darwin::mach_port_t) {
  return "";
}

}  // namespace sondex
