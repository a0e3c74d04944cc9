#include "capture/device_file_writer.h"

#include <inttypes.h>
#include <string.h>

#include "text/utf8.h"

namespace sondex {

static FILE *g_deviceFile;
static int g_nesting;     // arrays and inline tables that are open
static bool g_needComma;  // before what is next in the innermost of them

void beginDeviceFile(FILE *to) {
  g_deviceFile = to;
  g_nesting = 0;
  g_needComma = false;
}

void writeTable(const char *name) {
  fprintf(g_deviceFile, "\n[%s]\n", name);
}

void writeEntry(const char *name) {
  fprintf(g_deviceFile, "\n[[%s]]\n", name);
}

static void beginValue(const char *key) {
  if (g_needComma) fputs(", ", g_deviceFile);
  if (key != nullptr) fprintf(g_deviceFile, "%s = ", key);
}

static void endValue() {
  g_needComma = g_nesting > 0;
  if (g_nesting == 0) fputc('\n', g_deviceFile);
}

static void beginNested(const char *key, const char *bracket) {
  beginValue(key);
  fputs(bracket, g_deviceFile);
  g_nesting++;
  g_needComma = false;
}

static void endNested(const char *bracket) {
  fputs(bracket, g_deviceFile);
  g_nesting--;
  endValue();
}

void beginArray(const char *key) {
  beginNested(key, "[");
}

void endArray() {
  endNested("]");
}

void beginInlineTable(const char *key) {
  beginNested(key, "{ ");
}

void endInlineTable() {
  endNested(" }");
}

static bool isControl(uint32_t code) {
  return code < 0x20 || code == 0x7F;
}

void writeText(const char *key, const char *text, size_t size) {
  beginValue(key);
  fputc('"', g_deviceFile);
  const size_t length = strnlen(text, size);
  for (size_t at = 0; at < length;) {
    uint32_t code = 0;
    const size_t bytes = decodeUTF8(text + at, length - at, &code);
    if (bytes == 0) {
      fputc('?', g_deviceFile);
      at++;
      continue;
    }
    if (isControl(code)) {
      fprintf(g_deviceFile, "\\u%04" PRIX32, code);
    } else {
      if (code == '"' || code == '\\') fputc('\\', g_deviceFile);
      fwrite(text + at, 1, bytes, g_deviceFile);
    }
    at += bytes;
  }
  fputc('"', g_deviceFile);
  endValue();
}

void writeNumber(const char *key, int64_t number) {
  beginValue(key);
  fprintf(g_deviceFile, "%" PRId64, number);
  endValue();
}

void writeFlag(const char *key, bool flag) {
  beginValue(key);
  fputs(flag ? "true" : "false", g_deviceFile);
  endValue();
}

void writeAddress(const char *key, uint64_t address) {
  beginValue(key);
  fprintf(g_deviceFile, "\"0x%" PRIx64 "\"", address);
  endValue();
}

}  // namespace sondex
