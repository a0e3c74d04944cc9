#include "fds/listing.h"

namespace sondex {

int showProcessFDs(int32_t, const darwin::proc_fdinfo *, int32_t, int32_t, int32_t, const char *) {
  return 0;
}

}  // namespace sondex
