#include "host/darwin/errors.h"
#include "host/entry/errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace darwin {
namespace {

TEST(Errno, DarwinsNumbersAreNamedByTheirMeaning) {
  host::setErrno(DARWIN_ENOTSUP);
  EXPECT_EQ(errno, 45);
  EXPECT_STREQ(std::strerror(errno), "Operation not supported");
  host::setErrno(DARWIN_ESRCH);
  EXPECT_STREQ(std::strerror(errno), "No such process");
  host::setErrno(DARWIN_ENOSYS);
  EXPECT_STREQ(std::strerror(errno), "Function not implemented");
  host::setErrno(DARWIN_ENOTSOCK);
  EXPECT_STREQ(std::strerror(errno), "Socket operation on non-socket");
}

TEST(Errno, AnErrorOfTheMachinesOwnLibraryKeepsItsName) {
  host::setErrno(DARWIN_EPERM);
  errno = ENAMETOOLONG;  // 36: another error on a device
  EXPECT_STREQ(std::strerror(errno), "File name too long");
}

TEST(Errno, PerrorNamesItToo) {
  testing::internal::CaptureStderr();
  host::setErrno(DARWIN_EAGAIN);
  std::perror("memorystatus_control");
  EXPECT_EQ(errno, 35);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "memorystatus_control: Resource temporarily unavailable\n");
}

TEST(Errno, NumbersThatAgreeStay) {
  EXPECT_EQ(host::nativeErrno(DARWIN_EINVAL), EINVAL);
  EXPECT_EQ(host::nativeErrno(DARWIN_ESRCH), ESRCH);
  EXPECT_EQ(host::nativeErrno(DARWIN_ENAMETOOLONG), ENAMETOOLONG);
  EXPECT_EQ(host::nativeErrno(DARWIN_EDEADLK), EDEADLK);
}

}  // namespace
}  // namespace darwin
