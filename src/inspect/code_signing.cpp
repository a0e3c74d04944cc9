#include "inspect/code_signing.h"

#include "darwin/code_signing.h"

namespace sondex {

const char *isPidSigned(int32_t pid) {
  uint32_t flags = 0;
  const int result = darwin::csops(pid, darwin::CS_OPS_STATUS, &flags, sizeof flags);
  if (pid == 0) return "--";  // to csops the caller itself
  if (result != 0) return "??";
  if ((flags & darwin::CS_ADHOC) != 0) return "AH";
  return (flags & darwin::CS_VALID) != 0 ? "OK" : "NO";
}

}  // namespace sondex
