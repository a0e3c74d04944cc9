#include "capture/refusals.h"

#include <stdlib.h>

#include "capture/device_file_writer.h"
#include "capture/error_names.h"

namespace sondex {

struct Refusal {
  int32_t pid;
  int32_t error;
  const char *call;
  const char *form;
};

static Refusal *g_refusals;
static int32_t g_count;
static int32_t g_room;

void noteRefusal(int32_t pid, const char *call, const char *form, int error) {
  if (g_count == g_room) {
    const int32_t room = g_room == 0 ? 64 : 2 * g_room;
    void *larger = realloc(g_refusals, static_cast<size_t>(room) * sizeof *g_refusals);
    if (larger == nullptr) return;
    g_refusals = static_cast<Refusal *>(larger);
    g_room = room;
  }
  g_refusals[g_count++] = {pid, error, call, form};
}

int32_t refusalsNoted() {
  return g_count;
}

void forgetRefusals(int32_t noted) {
  g_count = noted;
}

void writeRefusals() {
  for (int32_t i = 0; i < g_count; i++) {
    const Refusal &refusal = g_refusals[i];
    writeEntry("event");
    writePlainText("do", "fail");
    writePlainText("call", refusal.call);
    if (refusal.form != nullptr) writePlainText("form", refusal.form);
    if (refusal.pid != kEveryProcess) writeNumber("process", refusal.pid);
    writePlainText("error", nameOfError(refusal.error));
  }
}

void releaseRefusals() {
  free(g_refusals);
  g_refusals = nullptr;
  g_count = g_room = 0;
}

}  // namespace sondex
