#include "host/linux/liveness.h"

#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "host/darwin/errors.h"
#include "host/linux/process_text.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

// A zombie has no root directory any more: to ask for that is cheaper than to read its state, which
// says so too.
static bool hasLink(int directory, const char *name) {
  char target[8];
  return readlinkat(directory, name, target, sizeof target) >= 0;
}

bool isAlive(int processDirectory) {
  if (hasLink(processDirectory, "root")) return true;
  // Neither has a process whose first thread has ended, and others' may be kept from the caller.
  FileReader reader;
  std::string_view text;
  ProcessStat stat{};
  const Errno error = reader.readRecord(processDirectory, "stat", text);
  if (error == darwin::DARWIN_ENOENT || error == darwin::DARWIN_ESRCH) return false;
  return error != kAnswered || (parseProcessStat(text, stat) && !stat.isZombie());
}

bool isAlive(int procDirectory, int32_t pid) {
  char name[32];
  snprintf(name, sizeof name, "%d/root", pid);
  if (hasLink(procDirectory, name)) return true;
  const FileHandle process = openStartingPoint(procDirectory, std::to_string(pid).c_str());
  return process.isOpen() && isAlive(process.get());
}

}  // namespace host::linux_machine
