// The process that was asked about last: a handle of its directory, which stays with this process
// even if its pid gets a new owner, and one reading of its files. A reading is made of few files,
// each read when it is first needed, and never again for a process that has not run since the last
// look.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/linux/known_processes.h"
#include "host/linux/procfs.h"
#include "host/machine/processes.h"

namespace host::linux_machine {

// Questions that a reading answers once. The sampler asks them one after the other for each
// process; whoever repeats one wants the state of now.
enum class Question : uint32_t {
  usage = 1,
  threads = 2,
  descriptors = 4,
  descriptorSlots = 8,
  coalition = 16,
  sandbox = 32,
};

struct ThreadReading {
  ProcessStat stat;
  ThreadFigures figures;
  bool wasTold;
};

class PresentProcess {
 public:
  // `procDirectory` is an open handle of /proc. It and `known` outlive this object.
  PresentProcess(int procDirectory, KnownProcesses &known);

  // Makes `pid` the present process. Each answers DARWIN_ESRCH for one that is not there; zombies
  // are. After a failure there is no present process. Takes a new reading.
  Errno read(pid_t pid);
  // Keeps a reading of a moment ago that has not answered `question` yet, else takes a new one.
  Errno readFor(pid_t pid, Question question);
  // Keeps a reading of a moment ago, for what is read from directory() anyway.
  Errno hold(pid_t pid);
  // Lets go of it. To be called before `known` forgets processes.
  void release();

  // Of the present process.
  int directory() const { return directory_.get(); }
  const ProcessStat &stat() const { return stat_; }
  KnownProcess &known() { return *known_; }
  // DARWIN_EPERM for another user's process unless the caller is root.
  Errno checkAccess();
  Errno status(ProcessStatus &status);
  // DARWIN_ENOTSUP if this kernel does not count.
  Errno io(ProcessIO &io);
  bool is64Bit();
  Errno hasOwnUsers(bool &own);
  // What it was started with, but for its environment. DARWIN_EINVAL for a kernel thread. The path
  // is empty if the caller may not know it, as of a process that gave up privileges.
  Errno arguments(ProcessArguments &arguments);
  // As /proc/PID/exe has it. DARWIN_ESRCH for a kernel thread, which has none.
  Errno executablePath(std::string &path);
  // Of its root directory; "/" for the caller's own, and for one that the caller can't reach.
  Errno rootPath(std::string &path);
  // Ascending by ID.
  Errno threads(std::vector<ThreadReading> *&threads);
  // Whether it has the thread now, whatever threads() says.
  bool hasThread(uint64_t id) const;

 private:
  Errno open(pid_t pid);
  Errno readStat();
  Errno findOut(pid_t pid);
  bool isFresh(pid_t pid) const;
  Errno readText(const char *name, std::string_view &text);
  Errno readLink(const char *name, std::string &path);
  Errno readOnlyThread();
  Errno readAllThreads();
  KnownThread addThread(const ProcessStat &stat, const ThreadFigures *unchanged);

  int procDirectory_;
  KnownProcesses &all_;
  FileReader reader_;
  DirectoryReader lister_;

  FileHandle directory_;
  pid_t pid_ = 0;
  KnownProcess *known_ = nullptr;
  ProcessStat stat_{};
  uint64_t readAt_ = 0;
  uint32_t answered_ = 0;
  std::optional<Errno> access_;
  std::optional<std::string> ownUsers_;  // our own user namespace, which stays
  std::vector<ThreadReading> threads_;
  bool threadsRead_ = false;
};

}  // namespace host::linux_machine
