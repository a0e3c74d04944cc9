#include "screens/power_summary.h"

namespace sondex {

const char *getPowerDetails() {
  return "";
}

}  // namespace sondex
