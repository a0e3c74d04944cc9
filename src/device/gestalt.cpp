#include "device/gestalt.h"

namespace sondex {

const char *gestaltAnswer(const char *) {
  return nullptr;
}

void showGestalt() {}

}  // namespace sondex
