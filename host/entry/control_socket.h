// Kernel control sockets on Linux: one end of a socket pair, on whose other end a thread speaks for
// the kernel. The program reads, writes and closes its end like any descriptor.
#pragma once

#include <cstddef>

#include "darwin/kernel_control.h"
#include "host/errno.h"

namespace host {

// socket() of the family DARWIN_AF_SYSTEM and SYSPROTO_CONTROL. DARWIN_EPROTOTYPE for a `type` that
// is neither datagram nor stream.
Errno openControlSocket(int type, int &descriptor) noexcept;

// Whether the descriptor came from openControlSocket() and is still the same socket.
bool isControlSocket(int descriptor) noexcept;

// ioctl() with CTLIOCGINFO.
Errno controlInfo(darwin::ctl_info *info) noexcept;

// setsockopt() of a control socket: SOL_SOCKET's SO_RCVBUF, by the device's numbers, sets how many
// bytes the kernel holds for a client that does not read. It counts from the connection on.
Errno setControlSocketOption(int descriptor, int level, int option, const void *value,
                             size_t length) noexcept;

// connect() of a control socket.
Errno connectControlSocket(int descriptor, const void *address, size_t length) noexcept;

}  // namespace host
