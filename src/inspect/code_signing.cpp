#include "inspect/code_signing.h"

#include <string.h>

#include "darwin/code_signing.h"
#include "text/append.h"

namespace sondex {

const char kNotSigned[] = "No flags! (Not code signed *and* allowed execution)\n";

struct SigningText {
  uint32_t flag;
  const char *text;
};

static const SigningText kSigningFlags[] = {
    {darwin::CS_VALID, "valid,"},
    {darwin::CS_ADHOC, "adhoc,"},
    {darwin::CS_GET_TASK_ALLOW, "get-task-allow,"},
    {darwin::CS_INSTALLER, "installer,"},
    {darwin::CS_HARD, "refuse invalid pages,"},
    {darwin::CS_KILL, "kill if invalidated,"},
    {darwin::CS_CHECK_EXPIRATION, "check expiration,"},
    {darwin::CS_ENFORCEMENT, "require enforcement,"},
    {darwin::CS_REQUIRE_LV, "require library validation,"},
    {darwin::CS_EXEC_SET_HARD, "set hard on exec,"},
    {darwin::CS_EXEC_SET_KILL, "set kill on exec,"},
};

static bool readFlags(int32_t pid, uint32_t *flags) {
  *flags = 0;
  return darwin::csops(pid, darwin::CS_OPS_STATUS, flags, sizeof *flags) == 0;
}

const char *csFlagsToText(int32_t pid) {
  static char text[120];
  text[0] = '\0';
  uint32_t flags = 0;
  const bool known = readFlags(pid, &flags);
  if (pid == 0) return "--";  // csops takes 0 for the caller itself
  if (!known) return "Error getting code signing flags from csops";
  for (const SigningText &row : kSigningFlags) {
    // What doesn't fit whole is left out.
    if ((flags & row.flag) != 0 && strlen(text) + strlen(row.text) < sizeof text)
      append(text, sizeof text, "%s", row.text);
  }
  const size_t length = strlen(text);
  if (length == 0) return kNotSigned;
  text[length - 1] = '\0';
  return text;
}

const char *isPidSigned(int32_t pid) {
  uint32_t flags = 0;
  const bool known = readFlags(pid, &flags);
  if (pid == 0) return "--";
  if (!known) return "??";
  if ((flags & darwin::CS_ADHOC) != 0) return "AH";
  return (flags & darwin::CS_VALID) != 0 ? "OK" : "NO";
}

int32_t getCSBlob(int32_t pid, void *blob, const size_t *size) {
  return darwin::csops(pid, darwin::CS_OPS_BLOB, blob, *size);
}

}  // namespace sondex
