// The rest of darwin/socket.h: what only the side that answers names.
#pragma once

#include "darwin/socket.h"

namespace darwin {

constexpr int DARWIN_AF_LINK = 18;
constexpr int DARWIN_AF_VSOCK = 40;
constexpr int DARWIN_SOCK_RAW = 3;

}  // namespace darwin
