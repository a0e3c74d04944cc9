#include "columns/configuration.h"

#include <string.h>
#include <unistd.h>

#include "files/safe_file.h"
#include "terminal/status_bar.h"

namespace sondex {

static const char kConfigFile[] = "/tmp/.sdrc";
// A top-level domain that nobody can own.
static const char kWebAddress[] = "https://sondex.invalid/";

static void saveToggle(int32_t shown, const char *name, FILE *stream) {
  if (shown != 0) fprintf(stream, "\t%s\n", name);
}

static void saveColumn(const ColumnDescriptor *column, FILE *stream) {
  const int length = static_cast<int>(strnlen(column->header, sizeof column->header));
  int blanks = 0;
  while (blanks < length && column->header[blanks] == ' ') blanks++;
  fprintf(stream, "\t\tColumn\t%.*s\n", length - blanks, column->header + blanks);
}

void savePerspectiveToFile(const Perspective *perspective, FILE *stream) {
  if (perspective == nullptr) return;
  fprintf(stream, "Perspective %s\n", perspective->name);
  saveToggle(load(perspective->ShowWiFi), "ShowWiFi", stream);
  saveToggle(load(perspective->ShowDisks), "ShowDisks", stream);
  saveToggle(load(perspective->ShowNetworks), "ShowNetworks", stream);
  saveToggle(load(perspective->ShowPower), "ShowPower", stream);
  fputs("\tColumns\n", stream);
  for (int32_t i = 0; i < perspective->numColumns; i++) {
    const ColumnDescriptor *column = load(perspective->columns[i]);
    if (load(column->hidden) == 0) saveColumn(column, stream);
  }
}

// Kept: the name is not looked at.
void saveConfigToFile(const char *) {
  const int descriptor = openToRewrite(kConfigFile);
  FILE *stream = descriptor >= 0 ? fdopen(descriptor, "w") : nullptr;
  if (stream == nullptr) {
    if (descriptor >= 0) close(descriptor);
    setStatusBar("Unable to open file for output", 3);
    return;
  }
  fprintf(stream, "## Config File for Z's Sondex, %s\n", kWebAddress);
  savePerspectiveToFile(getDefaultPerspective(), stream);
  const bool written = fflush(stream) == 0 && ferror(stream) == 0;
  if (!written) perror(kConfigFile);
  if (fclose(stream) != 0 && written) perror(kConfigFile);
}

}  // namespace sondex
