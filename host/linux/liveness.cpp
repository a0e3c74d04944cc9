#include "host/linux/liveness.h"

#include <unistd.h>

#include <string_view>

#include "host/darwin/errors.h"
#include "host/linux/process_text.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

bool isAlive(int processDirectory) {
  // A zombie has no root directory any more: to ask for that is cheaper than to read its state,
  // which says so too.
  char root[8];
  if (readlinkat(processDirectory, "root", root, sizeof root) >= 0) return true;
  // Neither has a process whose first thread has ended, and others' may be kept from the caller.
  FileReader reader;
  std::string_view text;
  ProcessStat stat{};
  const Errno error = reader.readRecord(processDirectory, "stat", text);
  if (error == darwin::DARWIN_ENOENT || error == darwin::DARWIN_ESRCH) return false;
  return error != kAnswered || (parseProcessStat(text, stat) && !stat.isZombie());
}

}  // namespace host::linux_machine
