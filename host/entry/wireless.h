// The requests that a Wi-Fi interface answers: ioctl() with SIOCGA80211.
#pragma once

#include "darwin/interfaces.h"
#include "host/errno.h"

namespace host {

// DARWIN_ENXIO for a name that is no Wi-Fi interface's, DARWIN_ENOTCONN while it has no network,
// DARWIN_EINVAL for too little room, DARWIN_EOPNOTSUPP for other requests. Type 0 only asks whether
// the interface answers. Of a longer SSID the room's length is given.
Errno wirelessRequest(darwin::apple80211req *request) noexcept;

}  // namespace host
