// The rest of darwin/signals.h: what only the side that answers names.
#pragma once

#include "darwin/signals.h"

namespace darwin {

constexpr int DARWIN_SIGHUP = 1;
constexpr int DARWIN_SIGEMT = 7;
constexpr int DARWIN_SIGBUS = 10;
constexpr int DARWIN_SIGSYS = 12;
constexpr int DARWIN_SIGTERM = 15;
constexpr int DARWIN_SIGURG = 16;
constexpr int DARWIN_SIGTSTP = 18;
constexpr int DARWIN_SIGCHLD = 20;
constexpr int DARWIN_SIGTTIN = 21;
constexpr int DARWIN_SIGTTOU = 22;
constexpr int DARWIN_SIGIO = 23;
constexpr int DARWIN_SIGWINCH = 28;
constexpr int DARWIN_SIGINFO = 29;
constexpr int DARWIN_SIGUSR1 = 30;
constexpr int DARWIN_SIGUSR2 = 31;

}  // namespace darwin
