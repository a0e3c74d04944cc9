#include "host/linux/own_thread.h"

#include <pthread.h>
#include <signal.h>

#include <exception>
#include <thread>

namespace host::linux_machine {

namespace {

// While it lives, signals are not for the calling thread, and never for a thread started then.
class NoSignals {
 public:
  NoSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  NoSignals(const NoSignals &) = delete;
  NoSignals &operator=(const NoSignals &) = delete;
  ~NoSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_;
};

}  // namespace

void runInOwnThread(const std::function<void()> &work) {
  std::exception_ptr thrown;
  std::thread thread;
  {
    const NoSignals blocked;
    thread = std::thread([&] {
      try {
        work();
      } catch (...) {
        thrown = std::current_exception();
      }
    });
  }
  thread.join();
  if (thrown) std::rethrow_exception(thrown);
}

}  // namespace host::linux_machine
