// Stacks of another process's threads in user space, as its executables' own unwind tables have
// them (libdw). The files and the memory that are read for that belong to others and may hold
// anything: to be used in a child process only, which may come to harm (user_stacks.h).
#pragma once

#include <elfutils/libdwfl.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "host/snapshot.h"

namespace host::linux_machine {

class Unwinder {
 public:
  // More than any stack that is of use to a reader.
  static constexpr size_t kMostFrames = 512;

  explicit Unwinder(pid_t process);

  // Looks at what the process has loaded, and gets ready for stack(). False when that can't be
  // seen.
  bool prepare();
  // Of what it has loaded, by ascending address.
  std::vector<SnapshotImage> images();
  // Of a thread that the caller has stopped by tracing: the program counter and return addresses,
  // as far as they can be followed.
  std::vector<uint64_t> stack(pid_t thread);

 private:
  struct End {
    void operator()(Dwfl *session) const { dwfl_end(session); }
  };

  void readRanges();
  int openFile(const char *path, uint64_t start) const;
  static int findFile(Dwfl_Module *module, void **own, const char *name, Dwarf_Addr start,
                      char **path, Elf **elf);

  pid_t process_;
  // Where the mappings of files that start at an address end.
  std::unordered_map<uint64_t, uint64_t> ranges_;
  Dwfl_Callbacks callbacks_{};
  std::unique_ptr<Dwfl, End> session_;
};

}  // namespace host::linux_machine
