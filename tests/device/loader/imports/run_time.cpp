// What compiled code asks of the run time, and the locale.
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>

#include "imports/calls.h"

namespace {

// Any value will do that is not found on a stack by chance.
uint64_t g_stackGuard = 0x00C3'5A96'7B1E'D284;

[[noreturn]] void smashedStack() {
  dprintf(STDERR_FILENO, "the program's stack is smashed\n");
  abort();
}

// Every pointer is bound before the program starts.
[[noreturn]] void bindLate() {
  dprintf(STDERR_FILENO, "the program binds a pointer late\n");
  abort();
}

int longestCharacter() {
  return static_cast<int>(MB_CUR_MAX);
}

// By their numbers on the device.
constexpr int kCategories[] = {LC_ALL,     LC_COLLATE, LC_CTYPE,   LC_MONETARY,
                               LC_NUMERIC, LC_TIME,    LC_MESSAGES};

char *chooseLocale(int category, const char *name) {
  if (category < 0 || category >= static_cast<int>(std::size(kCategories))) {
    errno = EINVAL;
    return nullptr;
  }
  return setlocale(kCategories[category], name);
}

}  // namespace

namespace loader {

std::span<const Import> runTime() {
  static const Import table[] = {
      call("___mb_cur_max", &longestCharacter),  call("__stack_chk_fail", &smashedStack),
      place("__stack_chk_guard", &g_stackGuard), call("dyld_stub_binder", &bindLate),
      call("setlocale", &chooseLocale),
  };
  return table;
}

}  // namespace loader
