// The kernel event queue's structure, filters, flags and calls beside the platform's. The call
// names its structure, so ours goes by another name here: the two are not one function to a
// compiler.
#define kevent our_kevent
#include "host/darwin/kqueue.h"
#undef kevent
#include "same.h"

#define NAMES(EACH)      \
  EACH(EVFILT_READ);     \
  EACH(EVFILT_WRITE);    \
  EACH(EVFILT_AIO);      \
  EACH(EVFILT_VNODE);    \
  EACH(EVFILT_PROC);     \
  EACH(EVFILT_SIGNAL);   \
  EACH(EVFILT_TIMER);    \
  EACH(EVFILT_MACHPORT); \
  EACH(EVFILT_FS);       \
  EACH(EVFILT_USER);     \
  EACH(EVFILT_VM);       \
  EACH(EVFILT_EXCEPT);   \
  EACH(EV_ADD);          \
  EACH(EV_DELETE);       \
  EACH(EV_ENABLE);       \
  EACH(EV_ONESHOT);      \
  EACH(EV_CLEAR);        \
  EACH(EV_ERROR);        \
  EACH(EV_EOF);          \
  EACH(NOTE_EXIT);       \
  EACH(NOTE_FORK);       \
  EACH(NOTE_EXEC)

NAMES(KEEP);

#include <sys/event.h>

NAMES(SAME_VALUE);

using KernelEvent = struct ::kevent;
namespace darwin {
using KernelEvent = struct our_kevent;
}
SAME_STRUCTURE(KernelEvent, ident, filter, flags, fflags, data, udata);

template <typename Event>
using Wait = int(int, const Event *, int, Event *, int, const struct timespec *);
static_assert(std::is_same_v<decltype(::kevent), Wait<::KernelEvent>>);
static_assert(std::is_same_v<decltype(darwin::our_kevent), Wait<darwin::KernelEvent>>);
SAME_FUNCTION(kqueue);
