#include "host/simulator/error_names.h"

#include "host/darwin/errors.h"

namespace host::simulator {

static constexpr Word kErrors[] = {
    {"EPERM", darwin::DARWIN_EPERM},
    {"ENOENT", darwin::DARWIN_ENOENT},
    {"ESRCH", darwin::DARWIN_ESRCH},
    {"EINTR", darwin::DARWIN_EINTR},
    {"EIO", darwin::DARWIN_EIO},
    {"E2BIG", darwin::DARWIN_E2BIG},
    {"EBADF", darwin::DARWIN_EBADF},
    {"EDEADLK", darwin::DARWIN_EDEADLK},
    {"ENOMEM", darwin::DARWIN_ENOMEM},
    {"EACCES", darwin::DARWIN_EACCES},
    {"EFAULT", darwin::DARWIN_EFAULT},
    {"EBUSY", darwin::DARWIN_EBUSY},
    {"EEXIST", darwin::DARWIN_EEXIST},
    {"EINVAL", darwin::DARWIN_EINVAL},
    {"ENOTTY", darwin::DARWIN_ENOTTY},
    {"ENOSPC", darwin::DARWIN_ENOSPC},
    {"ERANGE", darwin::DARWIN_ERANGE},
    {"EAGAIN", darwin::DARWIN_EAGAIN},
    {"EINPROGRESS", darwin::DARWIN_EINPROGRESS},
    {"EALREADY", darwin::DARWIN_EALREADY},
    {"ENOTSOCK", darwin::DARWIN_ENOTSOCK},
    {"EPROTOTYPE", darwin::DARWIN_EPROTOTYPE},
    {"ENOTSUP", darwin::DARWIN_ENOTSUP},
    {"ENOBUFS", darwin::DARWIN_ENOBUFS},
    {"ENOTCONN", darwin::DARWIN_ENOTCONN},
    {"ETIMEDOUT", darwin::DARWIN_ETIMEDOUT},
    {"ECONNREFUSED", darwin::DARWIN_ECONNREFUSED},
    {"ENAMETOOLONG", darwin::DARWIN_ENAMETOOLONG},
    {"ENOSYS", darwin::DARWIN_ENOSYS},
    {"EOVERFLOW", darwin::DARWIN_EOVERFLOW},
    {"EOPNOTSUPP", darwin::DARWIN_EOPNOTSUPP},
};

int32_t readError(const Field &field) {
  return static_cast<int32_t>(field.oneOf(kErrors));
}

}  // namespace host::simulator
