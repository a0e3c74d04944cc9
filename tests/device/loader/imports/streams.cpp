// Standard streams and formatted output. A stream is this machine's: the program only hands it on.
#include <stdio.h>

#include "imports/calls.h"
#include "imports/print_format.h"

using loader::PrintFormat;

extern "C" {

void device_printf();
void device_fprintf();
void device_snprintf();

int on_fprintf(FILE *stream, const char *format, const uint64_t *arguments) {
  PrintFormat print(format, arguments);
  return vfprintf(stream, print.text(), print.arguments());
}

int on_printf(const char *format, const uint64_t *arguments) {
  return on_fprintf(stdout, format, arguments);
}

int on_snprintf(char *buffer, size_t size, const char *format, const uint64_t *arguments) {
  PrintFormat print(format, arguments);
  return vsnprintf(buffer, size, print.text(), print.arguments());
}

}  // extern "C"

// Ways to count from, and modes of files, are the same.
static_assert(SEEK_SET == 0 && SEEK_CUR == 1 && SEEK_END == 2);

#define SAME(name) call(#name, &::name)

namespace loader {

// A list of arguments is there just the address of the next.
std::span<const Import> streams() {
  static const Import table[] = {
      place("__stderrp", &stderr),
      place("__stdoutp", &stdout),
      SAME(fclose),
      SAME(fdopen),
      SAME(ferror),
      SAME(fflush),
      SAME(fileno),
      SAME(fopen),
      LOADER_VARIADIC(fprintf),
      SAME(fputs),
      SAME(fread),
      SAME(fseek),
      SAME(ftell),
      SAME(fwrite),
      LOADER_VARIADIC(printf),
      SAME(puts),
      LOADER_VARIADIC(snprintf),
      SAME(tmpfile),
      call("vfprintf", &on_fprintf),
      call("vprintf", &on_printf),
      call("vsnprintf", &on_snprintf),
  };
  return table;
}

}  // namespace loader
