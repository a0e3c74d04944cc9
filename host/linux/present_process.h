// The process that was asked about last: handles of its files and directory, which stay with this
// process even if its pid gets a new owner, and one reading of them. A reading is made of few
// files, each read when it is first needed, and never again for a process that has not run since
// the last look.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/linux/known_processes.h"
#include "host/linux/procfs.h"
#include "host/linux/task_survey.h"
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
  // `procDirectory` is an open handle of /proc. It, `known` and `survey` outlive this object.
  PresentProcess(int procDirectory, KnownProcesses &known, const TaskSurvey &survey);

  // Makes `pid` the present process. Each answers DARWIN_ESRCH for one that is not there; zombies
  // are. After a failure there is no present process. Takes a new reading: from the files, or once
  // for each survey what was read last, if the survey shows that it still holds.
  Errno read(pid_t pid);
  // Keeps a reading of a moment ago that has not answered `question` yet, else takes a new one.
  Errno readFor(pid_t pid, Question question);
  // Whether the reading has answered it.
  bool hasAnswered(Question question) const {
    return (answered_ & static_cast<uint32_t>(question)) != 0;
  }
  // Keeps a reading of a moment ago, for what is read from its directory anyway.
  Errno hold(pid_t pid);
  // Lets go of it. To be called before `known` forgets processes.
  void release();
  // The same, when another pass over all processes begins.
  void beginPass();

  // Of the present process.
  // An open handle of its directory, for as long as it is the present one.
  Errno directory(int &handle);
  // The same of the directory that tells what its threads have in common: memory, descriptors, and
  // what they see of the system. Of a process whose first thread has ended that is another
  // thread's, of the present reading.
  Errno taskDirectory(int &handle);
  // The thread that this directory belongs to.
  int32_t taskThread() const { return otherThread_ != 0 ? otherThread_ : pid_; }
  // Of a process whose first thread has ended with state, sizes and scheduling of another. A zombie
  // if none of them is left.
  const ProcessStat &stat() const { return stat_; }
  // Numbers of the pass and of the present reading, which no other has.
  uint64_t pass() const { return pass_; }
  uint64_t reading() const { return reading_; }
  KnownProcess &known() { return *known_; }
  // DARWIN_EPERM for another user's process unless the caller is root.
  Errno checkAccess();
  Errno status(ProcessStatus &status);
  // DARWIN_ENOTSUP if this kernel does not count.
  Errno io(ProcessIO &io);
  bool is64Bit();
  // Whether it is in another user namespace than the caller. Of one that the caller may not look
  // into: as far as that shows in how it maps users.
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
  bool hasThread(uint64_t id);

 private:
  Errno open(pid_t pid);
  void resume(pid_t pid);
  bool recall(pid_t pid);
  bool mayRecall(const KnownProcess &known, std::span<const TaskRecord> tasks) const;
  bool mayRecallThreads(const KnownProcess &known, std::span<const TaskRecord> tasks) const;
  void beginReading();
  // Of a process whose files were open anyway it is opened when it is first needed.
  Errno ensureDirectory();
  const KeptFiles &files() const;
  Errno readStat();
  Errno findOut(pid_t pid);
  Errno lookThroughOtherThread();
  bool isFresh(pid_t pid) const;
  Errno readFile(const char *name, std::string_view &text);
  // A file that is missing, or can't be read, is one of a process that is gone.
  Errno readText(const char *name, std::string_view &text);
  Errno readText(const KeptFile &kept, const char *name, std::string_view &text);
  Errno readTaskText(const char *name, std::string_view &text);
  Errno readLink(const char *name, std::string &path);
  Errno mapsUsersOtherwise(bool &otherwise);
  Errno readOnlyThread();
  Errno readAllThreads();
  bool hasOnlyThreadRested();
  bool haveKnownThreadsRested();
  KnownThread takeKnownThread(int32_t id);
  bool takeStat(std::string_view text, KnownThread &thread);
  bool readKnownThread(KnownThread &thread);
  // The same, or else by its name below `tasks`.
  bool readThread(int tasks, int32_t id, KnownThread &thread);
  void addThread(KnownThread &thread);
  void addThread(KnownThread &thread, const ProcessStat &stat, uint64_t userTicks,
                 uint64_t systemTicks);

  int procDirectory_;
  KnownProcesses &all_;
  const TaskSurvey &survey_;
  FileReader reader_;
  DirectoryReader lister_;

  FileHandle directory_;
  int32_t otherThread_ = 0;  // that tells what the first one, which has ended, does not; else 0
  FileHandle otherDirectory_;
  KeptFiles opened_;  // until it is known whose they are
  pid_t pid_ = 0;
  KnownProcess *known_ = nullptr;
  ProcessStat stat_{};
  uint64_t readAt_ = 0;
  uint64_t freshFor_ = 0;
  uint64_t pass_ = 0;
  uint64_t reading_ = 0;
  uint32_t answered_ = 0;
  std::optional<Errno> access_;
  uid_t caller_;                         // as of the beginning of the pass
  std::optional<std::string> ownUsers_;  // our own user namespace, which stays
  std::vector<ThreadReading> threads_;
  bool threadsRead_ = false;
};

}  // namespace host::linux_machine
