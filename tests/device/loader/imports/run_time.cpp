// What compiled code asks of the run time, and the locale.
#include <langinfo.h>
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

constexpr int kCodeset = 0;

char *languageInformation(int item) {
  static char nothing[] = "";
  return item == kCodeset ? nl_langinfo(CODESET) : nothing;
}

}  // namespace

namespace loader {

std::span<const Import> runTime() {
  static const Import table[] = {
      call("__stack_chk_fail", &smashedStack), place("__stack_chk_guard", &g_stackGuard),
      call("dyld_stub_binder", &bindLate),     call("nl_langinfo", &languageInformation),
      call("setlocale", &chooseLocale),
  };
  return table;
}

}  // namespace loader
