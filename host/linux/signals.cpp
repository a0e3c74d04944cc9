#include "host/linux/signals.h"

#include <algorithm>
#include <csignal>
#include <iterator>

#include "host/darwin/signals.h"

namespace host::linux_machine {

namespace {

struct Numbers {
  int darwin;
  int linuxNumber;
};

// Those that differ.
constexpr Numbers kNumbers[] = {
    {darwin::DARWIN_SIGBUS, SIGBUS},   {darwin::DARWIN_SIGSYS, SIGSYS},
    {darwin::DARWIN_SIGURG, SIGURG},   {darwin::DARWIN_SIGSTOP, SIGSTOP},
    {darwin::DARWIN_SIGTSTP, SIGTSTP}, {darwin::DARWIN_SIGCONT, SIGCONT},
    {darwin::DARWIN_SIGCHLD, SIGCHLD}, {darwin::DARWIN_SIGIO, SIGIO},
    {darwin::DARWIN_SIGUSR1, SIGUSR1}, {darwin::DARWIN_SIGUSR2, SIGUSR2},
};

// Of those that have no counterpart.
constexpr int kOnlyLinux[] = {SIGSTKFLT, SIGPWR};
constexpr int kOnlyDarwin[] = {darwin::DARWIN_SIGEMT, darwin::DARWIN_SIGINFO};

constexpr int kMostSignals = 31;

template <size_t size>
bool holds(const int (&list)[size], int signal) {
  return std::find(std::begin(list), std::end(list), signal) != std::end(list);
}

int convert(int signal, int Numbers::*from, int Numbers::*to) {
  if (signal < 1 || signal > kMostSignals) return 0;
  const Numbers *row =
      std::find_if(std::begin(kNumbers), std::end(kNumbers),
                   [signal, from](const Numbers &numbers) { return numbers.*from == signal; });
  return row == std::end(kNumbers) ? signal : row->*to;
}

}  // namespace

int darwinSignal(int signal) {
  return holds(kOnlyLinux, signal) ? 0 : convert(signal, &Numbers::linuxNumber, &Numbers::darwin);
}

int linuxSignal(int signal) {
  return holds(kOnlyDarwin, signal) ? 0 : convert(signal, &Numbers::darwin, &Numbers::linuxNumber);
}

}  // namespace host::linux_machine
