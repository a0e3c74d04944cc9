// Built with the thread sanitizer only: it sets up what it knows of a thread's signals in the
// thread's first blocking call, and loses a signal that arrives in the middle of that. The main
// thread makes that call here, before any handler is there.
#include <poll.h>

extern "C" {

// Named to the linker, which would leave this file out otherwise.
extern const int sondex_first_wait;
const int sondex_first_wait = poll(nullptr, 0, 0);
}
