// Sockets, as far as the device's own kinds go and those that its interfaces are asked through.
#include <arpa/inet.h>
#include <sys/socket.h>

#include <cerrno>

#include "darwin/socket.h"
#include "imports/calls.h"

extern "C" {

int __wrap_socket(int domain, int type, int protocol) noexcept;
int __wrap_connect(int descriptor, const struct sockaddr *address, socklen_t length);
int __wrap_setsockopt(int descriptor, int level, int option, const void *value,
                      socklen_t length) noexcept;

}  // extern "C"

namespace {

int refuse(int error) {
  errno = error;
  return -1;
}

// Types are counted the same.
int openSocket(int domain, int type, int protocol) {
  const bool isKnown = domain == darwin::DARWIN_AF_SYSTEM || domain == AF_INET;
  return isKnown ? __wrap_socket(domain, type, protocol) : refuse(EAFNOSUPPORT);
}

// An address starts with its length, and its family has one byte.
int connectSocket(int descriptor, const uint8_t *address, unsigned int length) {
  if (length < 2 || address[1] != darwin::DARWIN_AF_SYSTEM) return refuse(EAFNOSUPPORT);
  return __wrap_connect(descriptor, reinterpret_cast<const struct sockaddr *>(address), length);
}

const char *printAddress(int family, const void *address, char *text, unsigned int size) {
  const bool isIPv6 = family == darwin::DARWIN_AF_INET6;
  if (!isIPv6 && family != darwin::DARWIN_AF_INET) {
    refuse(EAFNOSUPPORT);
    return nullptr;
  }
  return inet_ntop(isIPv6 ? AF_INET6 : AF_INET, address, text, size);
}

// Numbers of options are the device's, which only its own kind of socket knows.
int setSocketOption(int descriptor, int level, int option, const void *value, unsigned int length) {
  constexpr int kDeviceLevel = 0xFFFF;
  if (level != kDeviceLevel) return refuse(ENOPROTOOPT);
  return __wrap_setsockopt(descriptor, level, option, value, length);
}

}  // namespace

namespace loader {

std::span<const Import> sockets() {
  static const Import table[] = {
      call("connect", &connectSocket),
      call("inet_ntop", &printAddress),
      call("setsockopt", &setSocketOption),
      call("socket", &openSocket),
  };
  return table;
}

}  // namespace loader
