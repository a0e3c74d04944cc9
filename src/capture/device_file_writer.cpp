#include "capture/device_file_writer.h"

#include <errno.h>
#include <inttypes.h>
#include <string.h>
#include <time.h>

#include <initializer_list>

#include "text/safe_text.h"
#include "text/utf8.h"

namespace sondex {

static FILE *g_file;
static FileForm g_form;
static int g_nesting;         // arrays and inline tables that are open
static bool g_needComma;      // before what is next in the innermost of them, or in a JSON object
static bool g_hasRows;        // the outermost has an element per line
static const char *g_table;   // the table or entry that is open; null at the top
static const char *g_array;   // the array of tables at the top that is open
static const char *g_within;  // that within the table that is open

static FILE *g_fileAround;  // of which a fragment is written; null while none is
static size_t g_fragment;   // bytes of it
static int g_error;         // of the first write that failed
static uint64_t g_size;     // bytes of the file

static bool isJSON() {
  return g_form == FileForm::kJSON;
}

static void put(const char *bytes, size_t size) {
  if (fwrite(bytes, 1, size, g_file) != size && g_error == 0) g_error = errno;
  g_fragment += size;
  if (g_fileAround == nullptr) g_size += size;
}

static void put(const char *text) {
  put(text, strlen(text));
}

static void putNumber(int64_t number) {
  char text[24];
  put(text, static_cast<size_t>(snprintf(text, sizeof text, "%" PRId64, number)));
}

static void putLine(const char *open, const char *name, const char *close) {
  put(open);
  put(name);
  put(close);
}

// Of JSON, in which each block is within an object.
static void putIndent() {
  put("\n");
  const int depth = 1 + (g_table != nullptr ? 1 : 0) + (g_within != nullptr ? 1 : 0);
  for (int i = 0; i < depth; i++) put("  ");
}

void useFileForm(FileForm form) {
  g_form = form;
}

void beginDeviceFile(FILE *to) {
  g_file = to;
  g_nesting = 0;
  g_needComma = false;
  g_hasRows = false;
  g_table = g_array = g_within = nullptr;
  g_fragment = 0;
  g_size = 0;
  if (isJSON()) put("{");
}

static bool isSame(const char *a, const char *b) {
  return a != nullptr && b != nullptr && strcmp(a, b) == 0;
}

static void closeWithin() {
  if (g_within == nullptr) return;
  put("}]");
  g_within = nullptr;
}

// Closes what is open in JSON, an array only where its next entry does not follow.
static void closeTable(const char *nextArray) {
  closeWithin();
  if (g_table != nullptr) {
    put("}");
    g_table = nullptr;
    g_needComma = true;
  }
  if (g_array != nullptr && !isSame(g_array, nextArray)) {
    put("]");
    g_array = nullptr;
  }
}

int deviceFileError() {
  return g_error;
}

uint64_t deviceFileSize() {
  return g_size;
}

void endDeviceFile() {
  if (!isJSON()) return;
  closeTable(nullptr);
  put("\n}\n");
}

void writeTable(const char *name) {
  if (!isJSON()) {
    putLine("\n[", name, "]\n");
    g_table = name;
    return;
  }
  closeTable(nullptr);
  if (g_needComma) put(",");
  putIndent();
  putLine("\"", name, "\": {");
  g_table = name;
  g_needComma = false;
}

void writeEntry(const char *name) {
  if (!isJSON()) {
    putLine("\n[[", name, "]]\n");
    g_table = name;
    return;
  }
  closeTable(name);
  if (g_array != nullptr) {
    put(", {");
  } else {
    if (g_needComma) put(",");
    putIndent();
    putLine("\"", name, "\": [{");
  }
  g_array = g_table = name;
  g_needComma = false;
}

void writeEntryWithin(const char *name) {
  if (!isJSON()) {
    putLine("\n[[", g_table, ".");
    put(name);
    put("]]\n");
    return;
  }
  if (g_within != nullptr) {
    put("}, {");
  } else {
    if (g_needComma) put(",");
    putIndent();
    putLine("\"", name, "\": [{");
  }
  g_within = name;
  g_needComma = false;
}

void beginFragment(FILE *to) {
  g_fileAround = g_file != nullptr ? g_file : to;
  g_file = to;
  g_fragment = 0;
  g_needComma = false;
  g_table = "";
}

size_t endFragment() {
  g_file = g_fileAround;
  g_fileAround = nullptr;
  g_needComma = false;
  g_table = nullptr;
  return g_fragment;
}

bool writeFragment(FILE *from, size_t size) {
  if (size == 0) return true;
  if (isJSON() && g_needComma) put(",");
  char piece[8192];
  while (size > 0) {
    const size_t wanted = size < sizeof piece ? size : sizeof piece;
    if (fread(piece, 1, wanted, from) != wanted) return false;
    put(piece, wanted);
    size -= wanted;
  }
  g_needComma = true;
  return true;
}

static void beginValue(const char *key) {
  if (g_needComma && (g_nesting > 0 || isJSON())) put(g_nesting > 0 && !g_hasRows ? ", " : ",");
  if (g_nesting == 0 && isJSON()) putIndent();
  if (g_nesting == 1 && g_hasRows) put("\n  ");
  if (g_nesting > 1 && g_hasRows && g_needComma) put(" ");
  if (key == nullptr) return;
  if (isJSON()) {
    putLine("\"", key, "\": ");
  } else {
    putLine("", key, " = ");
  }
}

static void endValue() {
  g_needComma = g_nesting > 0 || isJSON();
  if (g_nesting == 0 && !isJSON()) put("\n");
}

static void beginNested(const char *key, const char *bracket) {
  beginValue(key);
  put(bracket);
  g_nesting++;
  g_needComma = false;
}

static void endNested(const char *bracket) {
  put(bracket);
  g_nesting--;
  endValue();
}

void beginArray(const char *key) {
  beginNested(key, "[");
}

void beginRows(const char *key) {
  beginNested(key, "[");
  g_hasRows = true;
}

void endArray() {
  if (g_nesting == 1 && g_hasRows) {
    put(g_needComma && !isJSON() ? ",\n" : "\n");
    g_hasRows = false;
  }
  endNested("]");
}

void beginInlineTable(const char *key) {
  beginNested(key, isJSON() ? "{" : "{ ");
}

void endInlineTable() {
  endNested(isJSON() ? "}" : " }");
}

// Whether a pattern stands at the start of the text.
static bool beginsPattern(const char *text, size_t length) {
  for (const char *pattern : {"{name}", "{pid}", "{index}", "{brace}"}) {
    const size_t size = strlen(pattern);
    if (length >= size && memcmp(text, pattern, size) == 0) return true;
  }
  return false;
}

static void writeQuoted(const char *key, const char *text, size_t length, bool mayHavePatterns) {
  beginValue(key);
  put("\"");
  for (size_t at = 0; at < length;) {
    uint32_t code = 0;
    const size_t bytes = decodeUTF8(text + at, length - at, &code);
    if (bytes == 0) {
      put("?");
      at++;
      continue;
    }
    if (isUnsafe(code)) {
      char escape[8];
      put(escape, static_cast<size_t>(snprintf(escape, sizeof escape, "\\u%04" PRIX32, code)));
    } else if (code == '{' && mayHavePatterns && beginsPattern(text + at, length - at)) {
      put("{brace}");
    } else {
      if (code == '"' || code == '\\') put("\\");
      put(text + at, bytes);
    }
    at += bytes;
  }
  put("\"");
  endValue();
}

void writeText(const char *key, const char *text, size_t size) {
  writeQuoted(key, text, strnlen(text, size), !isJSON());
}

void writePlainText(const char *key, const char *text) {
  writeQuoted(key, text, strlen(text), false);
}

void writeNumber(const char *key, int64_t number) {
  beginValue(key);
  putNumber(number);
  endValue();
}

void writeUnless(const char *key, int64_t number, int64_t usual) {
  if (number != usual) writeNumber(key, number);
}

void writeFlag(const char *key, bool flag) {
  beginValue(key);
  put(flag ? "true" : "false");
  endValue();
}

void writeAddress(const char *key, uint64_t address) {
  char text[24];
  snprintf(text, sizeof text, "0x%" PRIx64, address);
  writePlainText(key, text);
}

void writeWide(const char *key, uint64_t number) {
  if (number > INT64_MAX) {
    writeAddress(key, number);
  } else {
    writeNumber(key, static_cast<int64_t>(number));
  }
}

void writeSize(const char *key, uint64_t size) {
  static const char kUnits[] = {'T', 'G', 'M', 'K'};
  uint64_t unit = uint64_t{1} << 40;
  for (const char letter : kUnits) {
    if (!isJSON() && size != 0 && size % unit == 0) {
      char text[32];
      snprintf(text, sizeof text, "%" PRIu64 "%c", size / unit, letter);
      writePlainText(key, text);
      return;
    }
    unit >>= 10;
  }
  writeNumber(key, static_cast<int64_t>(size < INT64_MAX ? size : INT64_MAX));
}

void writeDecimal(const char *key, int64_t number, int decimals) {
  beginValue(key);
  uint64_t rest = number < 0 ? 0 - static_cast<uint64_t>(number) : static_cast<uint64_t>(number);
  for (; decimals > 0 && rest % 10 == 0; decimals--) rest /= 10;
  uint64_t whole = rest;
  uint64_t unit = 1;
  for (int i = 0; i < decimals; i++) {
    whole /= 10;
    unit *= 10;
  }
  char text[64];
  int length = snprintf(text, sizeof text, "%s%" PRIu64, number < 0 ? "-" : "", whole);
  if (decimals > 0) {
    length += snprintf(text + length, sizeof text - static_cast<size_t>(length), ".%0*" PRIu64,
                       decimals, rest - whole * unit);
  }
  put(text, static_cast<size_t>(length));
  endValue();
}

void writeMoment(const char *key, int64_t seconds, int32_t microseconds) {
  const time_t moment = static_cast<time_t>(seconds);
  tm parts = {};
  gmtime_r(&moment, &parts);
  char text[64];
  size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  if (microseconds != 0) {
    length += static_cast<size_t>(
        snprintf(text + length, sizeof text - length, ".%06" PRId32, microseconds));
  }
  snprintf(text + length, sizeof text - length, "Z");
  if (isJSON()) {
    writePlainText(key, text);
    return;
  }
  beginValue(key);
  put(text);
  endValue();
}

void beginBytes(const char *key) {
  beginValue(key);
  put("\"");
}

void addBytes(const uint8_t *bytes, size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  char text[512];
  while (size > 0) {
    const size_t count = size < sizeof text / 2 ? size : sizeof text / 2;
    for (size_t i = 0; i < count; i++) {
      text[2 * i] = kDigits[bytes[i] >> 4];
      text[2 * i + 1] = kDigits[bytes[i] & 15];
    }
    put(text, 2 * count);
    bytes += count;
    size -= count;
  }
}

void endBytes() {
  put("\"");
  endValue();
}

void writeFlags(const char *key, uint32_t flags, const FlagWord *words, size_t count) {
  beginArray(key);
  for (size_t i = 0; i < count; i++) {
    if ((flags & words[i].bits) != words[i].bits) continue;
    writePlainText(nullptr, words[i].word);
    flags &= ~words[i].bits;
  }
  if (flags != 0) writeNumber(nullptr, flags);
  endArray();
}

void writeWord(const char *key, uint32_t value, const FlagWord *words, size_t count) {
  for (size_t i = 0; i < count; i++) {
    if (words[i].bits != value) continue;
    writePlainText(key, words[i].word);
    return;
  }
  writeNumber(key, value);
}

}  // namespace sondex
