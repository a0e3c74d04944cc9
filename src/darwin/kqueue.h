// The kernel event queue: its call, its filters and flags, and the notes about processes.
#pragma once

#include <time.h>

#include <cstdint>

#include "darwin/layout.h"

namespace darwin {

// Filters; -11 is not used.
constexpr int16_t EVFILT_READ = -1;
constexpr int16_t EVFILT_WRITE = -2;
constexpr int16_t EVFILT_AIO = -3;
constexpr int16_t EVFILT_VNODE = -4;
constexpr int16_t EVFILT_PROC = -5;
constexpr int16_t EVFILT_SIGNAL = -6;
constexpr int16_t EVFILT_TIMER = -7;
constexpr int16_t EVFILT_MACHPORT = -8;
constexpr int16_t EVFILT_FS = -9;
constexpr int16_t EVFILT_USER = -10;
constexpr int16_t EVFILT_VM = -12;
constexpr int16_t EVFILT_EXCEPT = -15;
constexpr int16_t EVFILT_WORKLOOP = -17;

constexpr uint16_t EV_ADD = 0x1;

// Notes of EVFILT_PROC, whose ident is a pid. One event carries all that happened since the last.
constexpr uint32_t NOTE_EXIT = 0x80000000;
constexpr uint32_t NOTE_FORK = 0x40000000;
constexpr uint32_t NOTE_EXEC = 0x20000000;

#pragma pack(push, 4)
struct kevent {
  uint64_t ident;
  int16_t filter;
  uint16_t flags;
  uint32_t fflags;
  int64_t data;
  void *udata;
};
DARWIN_LAYOUT(kevent, 32, 4, (ident, 0), (filter, 8), (flags, 10), (fflags, 12), (data, 16),
              (udata, 24));
#pragma pack(pop)

extern "C" {

// A new queue's descriptor, which the caller closes, or -1 with errno set.
int kqueue(void);

// Applies nchanges changes and waits for up to nevents events; a null timeout waits without end.
// With nevents 0 it does not wait. Returns the number of events, or -1 with errno set. A change
// that fails comes back as an event with EV_ERROR and the error in data while there is room, else
// as -1 (ESRCH: no process with that identifier). The call has the structure's name, which a
// compiler may report as shadowing.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
int kevent(int queue, const struct kevent *changes, int nchanges, struct kevent *events,
           int nevents, const struct ::timespec *timeout);
#pragma GCC diagnostic pop

}  // extern "C"

}  // namespace darwin
