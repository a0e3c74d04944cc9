#include "capture/error_names.h"

#include "darwin/errors.h"

namespace sondex {

struct ErrorName {
  int error;
  const char *name;
};

static const ErrorName kNames[] = {
    {darwin::DARWIN_EPERM, "EPERM"},         {darwin::DARWIN_ESRCH, "ESRCH"},
    {darwin::DARWIN_EBADF, "EBADF"},         {darwin::DARWIN_ENOMEM, "ENOMEM"},
    {darwin::DARWIN_EBUSY, "EBUSY"},         {darwin::DARWIN_EINVAL, "EINVAL"},
    {darwin::DARWIN_EAGAIN, "EAGAIN"},       {darwin::DARWIN_ENOTSUP, "ENOTSUP"},
    {darwin::DARWIN_ETIMEDOUT, "ETIMEDOUT"},
};

const char *nameOfError(int error) {
  for (const ErrorName &row : kNames) {
    if (row.error == error) return row.name;
  }
  return "EIO";
}

}  // namespace sondex
