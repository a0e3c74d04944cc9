#include "ui/keys.h"

namespace sondex {

const char *getFilter() {
  return nullptr;
}

}  // namespace sondex
