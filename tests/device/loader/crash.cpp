#include "crash.h"

#include <signal.h>
#include <ucontext.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>

namespace loader {

namespace {

const Mapping *g_mapping = nullptr;

alignas(16) char g_stack[64 * 1024];

constexpr int kCrashes[] = {SIGSEGV, SIGBUS, SIGILL, SIGTRAP, SIGFPE, SIGABRT};

void sayWhere(const char *what, uint64_t address) {
  if (g_mapping->contains(address)) {
    dprintf(STDERR_FILENO, "  %s 0x%" PRIx64 "\n", what, g_mapping->unslid(address));
  } else {
    dprintf(STDERR_FILENO, "  %s outside of the executable\n", what);
  }
}

// The signal's first action is back by now, and it comes again on return.
void report(int signal, siginfo_t *, void *context) {
  const mcontext_t &registers = static_cast<ucontext_t *>(context)->uc_mcontext;
  dprintf(STDERR_FILENO, "device-loader: signal %d\n", signal);
  sayWhere("at", registers.pc);
  sayWhere("called from", registers.regs[30]);
  raise(signal);
}

}  // namespace

void reportCrashes(const Mapping &mapping) {
  g_mapping = &mapping;
  const stack_t stack = {g_stack, 0, sizeof g_stack};
  sigaltstack(&stack, nullptr);
  struct sigaction action {};
  action.sa_sigaction = report;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | static_cast<int>(SA_RESETHAND);
  for (const int signal : kCrashes) sigaction(signal, &action, nullptr);
}

}  // namespace loader
