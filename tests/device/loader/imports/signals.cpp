// Signals of the program itself, by their numbers on the device.
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <cerrno>

#include "host/linux/signals.h"
#include "imports/calls.h"
#include "imports/error_numbers.h"

namespace {

using host::linux_machine::darwinSignal;
using host::linux_machine::linuxSignal;

constexpr int kSignals = 32;
using Handler = void (*)(int);

// What the program has set for a signal, by its number there.
std::atomic<Handler> g_handlers[kSignals];

bool isFunction(Handler handler) {
  return handler != SIG_DFL && handler != SIG_IGN;
}

void passOn(int native) {
  const int number = darwinSignal(native);
  const Handler handler = g_handlers[number].load();
  if (handler != nullptr) handler(number);
}

// The two ways that are no function have the same numbers.
Handler setHandler(int number, Handler handler) {
  const int native = number > 0 && number < kSignals ? linuxSignal(number) : 0;
  if (native == 0) {
    errno = EINVAL;
    return SIG_ERR;
  }
  const Handler before = g_handlers[number].load();
  // The function first: the signal may come at once.
  if (isFunction(handler)) g_handlers[number].store(handler);
  const Handler nativeBefore = signal(native, isFunction(handler) ? &passOn : handler);
  if (!isFunction(handler)) g_handlers[number].store(nullptr);
  return nativeBefore == &passOn ? before : nativeBefore;
}

constexpr int kBlock = 1;
constexpr int kUnblock = 2;
constexpr int kSetMask = 3;

int nativeHow(int how) {
  switch (how) {
    case kBlock:
      return SIG_BLOCK;
    case kUnblock:
      return SIG_UNBLOCK;
    case kSetMask:
      return SIG_SETMASK;
    default:
      return -1;
  }
}

// A set is a bit for each signal there, from the first on.
sigset_t nativeSet(uint32_t set) {
  sigset_t native;
  sigemptyset(&native);
  for (int number = 1; number < kSignals; number++) {
    const int counterpart = linuxSignal(number);
    if ((set >> (number - 1) & 1) != 0 && counterpart != 0) sigaddset(&native, counterpart);
  }
  return native;
}

uint32_t darwinSet(const sigset_t &native) {
  uint32_t set = 0;
  for (int number = 1; number < kSignals; number++) {
    const int counterpart = linuxSignal(number);
    if (counterpart != 0 && sigismember(&native, counterpart) == 1) set |= 1u << (number - 1);
  }
  return set;
}

int setMask(int how, const uint32_t *wanted, uint32_t *before) {
  sigset_t native;
  sigset_t nativeBefore;
  if (wanted != nullptr) native = nativeSet(*wanted);
  const int error =
      pthread_sigmask(nativeHow(how), wanted == nullptr ? nullptr : &native, &nativeBefore);
  if (error != 0) return loader::darwinErrno(error);
  if (before != nullptr) *before = darwinSet(nativeBefore);
  return 0;
}

int sendToThread(pthread_t thread, int number) {
  const int native = number > 0 && number < kSignals ? linuxSignal(number) : 0;
  return loader::darwinErrno(native == 0 ? EINVAL : pthread_kill(thread, native));
}

}  // namespace

namespace loader {

std::span<const Import> signals() {
  static const Import table[] = {
      call("pthread_kill", &sendToThread),
      call("pthread_sigmask", &setMask),
      call("signal", &setHandler),
  };
  return table;
}

}  // namespace loader
