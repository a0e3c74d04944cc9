#include "host/linux/present_process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <iterator>
#include <string>
#include <utility>

#include "host/darwin/errors.h"
#include "host/linux/clock.h"
#include "host/posix.h"

namespace host::linux_machine {

// How long a reading may answer further questions about the process.
static constexpr uint64_t kFreshFor = 100'000'000;

// What a device lets a program be started with: no reader takes more.
static constexpr size_t kLargestArguments = 262144;

// A file name with a number in it.
class NumberedName {
 public:
  NumberedName(std::string_view before, int32_t number, std::string_view after) {
    char *end = std::copy(before.begin(), before.end(), text_);
    end = std::to_chars(end, std::end(text_), number).ptr;
    end = std::copy(after.begin(), after.end(), end);
    *end = '\0';
  }
  const char *text() const { return text_; }

 private:
  char text_[32];
};

// The files of a process that is gone are missing, or can't be read.
static Errno processError(Errno error) {
  return error == darwin::DARWIN_ENOENT ? darwin::DARWIN_ESRCH : error;
}

PresentProcess::PresentProcess(int procDirectory, KnownProcesses &known)
    : procDirectory_(procDirectory), all_(known) {}

void PresentProcess::release() {
  directory_.close();
  pid_ = 0;
  known_ = nullptr;
}

Errno PresentProcess::open(pid_t pid) {
  release();
  if (pid <= 0) return darwin::DARWIN_ESRCH;
  directory_ = openStartingPoint(procDirectory_, NumberedName("", pid, "").text());
  if (!directory_.isOpen()) return processError(darwinError(errno));
  pid_ = pid;
  return kAnswered;
}

Errno PresentProcess::readText(const char *name, std::string_view &text) {
  return processError(reader_.readRecord(directory_.get(), name, text));
}

Errno PresentProcess::readStat() {
  std::string_view text;
  Errno error = readText("stat", text);
  if (error != kAnswered) return error;
  return parseProcessStat(text, stat_) ? kAnswered : darwin::DARWIN_EIO;
}

Errno PresentProcess::read(pid_t pid) {
  Errno error = darwin::DARWIN_ESRCH;
  if (directory_.isOpen() && pid_ == pid) error = readStat();
  if (error == darwin::DARWIN_ESRCH) {
    error = open(pid);
    if (error == kAnswered) error = readStat();
  }
  if (error == kAnswered) error = findOut(pid);
  if (error != kAnswered) release();
  return error;
}

// Joins a fresh stat with what is known of the process, and drops what may have changed.
Errno PresentProcess::findOut(pid_t pid) {
  readAt_ = coarseNanoseconds();
  answered_ = 0;
  access_.reset();
  threadsRead_ = false;
  known_ = &all_.find(pid, stat_.startTicks);
  known_->isAlive = !stat_.isZombie();

  std::optional<SchedulerRecord> record;
  std::string_view text;
  SchedulerRecord read{};
  if (stat_.threads == 1 && readText("schedstat", text) == kAnswered &&
      parseSchedulerRecord(text, read)) {
    record = read;
  }
  if (hasRunSince(known_->record, record, stat_)) known_->forgetAnswers();
  known_->record = record;

  if (!known_->isProcess) {
    ProcessStatus first{};
    Errno error = status(first);
    if (error != kAnswered) return error;
    known_->isProcess = first.process == 0 || first.process == static_cast<uint64_t>(pid);
  }
  return *known_->isProcess ? kAnswered : darwin::DARWIN_ESRCH;
}

bool PresentProcess::isFresh(pid_t pid) const {
  return known_ != nullptr && pid_ == pid && coarseNanoseconds() - readAt_ < kFreshFor;
}

Errno PresentProcess::readFor(pid_t pid, Question question) {
  uint32_t bit = static_cast<uint32_t>(question);
  if (!isFresh(pid) || (answered_ & bit) != 0) {
    Errno error = read(pid);
    if (error != kAnswered) return error;
  }
  answered_ |= bit;
  return kAnswered;
}

Errno PresentProcess::hold(pid_t pid) {
  return isFresh(pid) ? kAnswered : read(pid);
}

Errno PresentProcess::checkAccess() {
  if (!access_) {
    uid_t caller = __real_geteuid();
    ProcessStatus owner{};
    Errno error = caller == 0 ? kAnswered : status(owner);
    if (error != kAnswered) return error;
    access_ = caller == 0 || owner.user.effective == caller ? kAnswered : darwin::DARWIN_EPERM;
  }
  return *access_;
}

// Memory is taken from a process, and shared with it, while it rests.
static uint64_t movedBy(int64_t pages, uint64_t residentKiB) {
  static const int64_t kPageKiB = sysconf(_SC_PAGESIZE) / 1024;
  const int64_t moved = saturate<int64_t>(residentKiB) + pages * kPageKiB;
  return static_cast<uint64_t>(std::max<int64_t>(moved, 0));
}

Errno PresentProcess::status(ProcessStatus &status) {
  if (!known_->status) {
    std::string_view text;
    ProcessStatus parsed{};
    Errno error = readText("status", text);
    if (error != kAnswered) return error;
    if (!parseProcessStatus(text, parsed)) return darwin::DARWIN_EIO;
    known_->status = parsed;
    known_->residentPages = stat_.residentPages;
  }
  status = *known_->status;
  status.residentKiB = movedBy(stat_.residentPages - known_->residentPages, status.residentKiB);
  return kAnswered;
}

Errno PresentProcess::io(ProcessIO &io) {
  if (!known_->ioResult) {
    std::string_view text;
    Errno error = reader_.readRecord(directory_.get(), "io", text);
    if (error == darwin::DARWIN_ENOENT) {
      bool isGone = faccessat(directory_.get(), "stat", F_OK, 0) != 0;
      error = isGone ? darwin::DARWIN_ESRCH : darwin::DARWIN_ENOTSUP;
    }
    if (error == kAnswered && !parseProcessIO(text, known_->io)) error = darwin::DARWIN_EIO;
    bool isLasting =
        error == kAnswered || error == darwin::DARWIN_EPERM || error == darwin::DARWIN_ENOTSUP;
    if (!isLasting) return error;
    known_->ioResult = error;
  }
  if (*known_->ioResult == kAnswered) io = known_->io;
  return *known_->ioResult;
}

bool PresentProcess::is64Bit() {
  if (stat_.isKernelThread()) return sizeof(void *) == 8;
  ExecutableImage image{stat_.startCode, stat_.startStack};
  std::string_view bytes;
  if (known_->image != image && readText("auxv", bytes) == kAnswered) {
    known_->is64Bit = isAuxiliaryVector64Bit(bytes);
    known_->image = image;
  }
  return known_->is64Bit;
}

// The user namespace that a name such as "/proc/PID/ns/user" stands for, as text. Empty without
// such namespaces.
static Errno readUserNamespace(int directory, const char *name, std::string &text) {
  char buffer[64];
  ssize_t length = readlinkat(directory, name, buffer, sizeof buffer);
  if (length < 0 && errno != ENOENT) return darwinError(errno);
  text.assign(buffer, length < 0 ? 0 : static_cast<size_t>(length));
  return kAnswered;
}

Errno PresentProcess::hasOwnUsers(bool &own) {
  if (!known_->hasOwnUsers) {
    std::string text;
    Errno error = kAnswered;
    if (!ownUsers_) {
      error = readUserNamespace(procDirectory_, "self/ns/user", text);
      if (error == kAnswered) ownUsers_ = text;
    }
    if (error == kAnswered) error = readUserNamespace(directory_.get(), "ns/user", text);
    if (error != kAnswered) return error;
    // Only a process that is gone has none where others have one.
    if (text.empty() && !ownUsers_->empty()) return darwin::DARWIN_ESRCH;
    known_->hasOwnUsers = text != *ownUsers_;
  }
  own = *known_->hasOwnUsers;
  return kAnswered;
}

Errno PresentProcess::readLink(const char *name, std::string &path) {
  char text[4096];
  ssize_t length = readlinkat(directory_.get(), name, text, sizeof text);
  if (length < 0) return processError(darwinError(errno));
  path.assign(text, static_cast<size_t>(length));
  return kAnswered;
}

Errno PresentProcess::executablePath(std::string &path) {
  return readLink("exe", path);
}

Errno PresentProcess::arguments(ProcessArguments &arguments) {
  if (stat_.isKernelThread()) return darwin::DARWIN_EINVAL;
  std::string path;
  Errno error = executablePath(path);
  if (error == darwin::DARWIN_EPERM) error = kAnswered;
  std::string_view text;
  if (error == kAnswered) {
    error =
        processError(reader_.readBeginning(directory_.get(), "cmdline", kLargestArguments, text));
  }
  if (error != kAnswered) return error;
  arguments.arguments = splitArguments(text);
  arguments.environment.clear();
  struct stat file {};
  bool isGone = fstatat(directory_.get(), "exe", &file, 0) == 0 && file.st_nlink == 0;
  arguments.path = withoutDeletedMark(path, isGone);
  arguments.is64Bit = is64Bit();
  return kAnswered;
}

Errno PresentProcess::rootPath(std::string &path) {
  std::string text;
  Errno error = readLink("root", text);
  if (error == kAnswered) path = text[0] == '/' ? text : "/";
  return error;
}

Errno PresentProcess::threads(std::vector<ThreadReading> *&threads) {
  if (!threadsRead_) {
    threads_.clear();
    Errno error = stat_.threads == 1 ? readOnlyThread() : readAllThreads();
    if (error != kAnswered) return error;
    threadsRead_ = true;
  }
  threads = &threads_;
  return kAnswered;
}

bool PresentProcess::hasThread(uint64_t id) const {
  const std::string name = std::string("task/").append(std::to_string(id));
  return faccessat(directory_.get(), name.c_str(), F_OK, 0) == 0;
}

// Files a thread's reading, and returns what is to be known of it next time. `unchanged` are its
// times if it has not run.
KnownThread PresentProcess::addThread(const ProcessStat &stat, const ThreadFigures *unchanged) {
  const std::vector<KnownThread> &before = known_->threads;
  auto old = std::lower_bound(before.begin(), before.end(), stat.id,
                              [](const KnownThread &thread, int32_t id) { return thread.id < id; });
  KnownThread thread{};
  if (old != before.end() && old->id == stat.id && old->startTicks == stat.startTicks) {
    thread = *old;
  }
  thread.id = stat.id;
  thread.startTicks = stat.startTicks;
  thread.figures.userTicks = unchanged != nullptr ? unchanged->userTicks : stat.userTicks;
  thread.figures.systemTicks = unchanged != nullptr ? unchanged->systemTicks : stat.systemTicks;
  uint64_t used = ticksToNanoseconds(thread.figures.userTicks + thread.figures.systemTicks);
  thread.figures.usage =
      thread.estimate.look(used, ticksToNanoseconds(stat.startTicks), nanosecondsSinceBoot());
  threads_.push_back({stat, thread.figures, false});
  return thread;
}

Errno PresentProcess::readOnlyThread() {
  KnownThread thread{};
  if (known_->hasThreads) {
    // The process's own stat tells the rest; its times are also those of threads that ended.
    ThreadFigures unchanged = known_->threads.front().figures;
    thread = addThread(stat_, &unchanged);
  } else {
    std::string_view text;
    ProcessStat stat{};
    Errno error = readText(NumberedName("task/", pid_, "/stat").text(), text);
    if (error != kAnswered) return error;
    if (!parseProcessStat(text, stat)) return darwin::DARWIN_EIO;
    thread = addThread(stat, nullptr);
  }
  known_->threads.assign(1, thread);
  known_->hasThreads = known_->record.has_value();
  return kAnswered;
}

Errno PresentProcess::readAllThreads() {
  FileHandle task = openDirectory(directory_.get(), "task");
  if (!task.isOpen()) return processError(darwinError(errno));
  std::vector<int32_t> ids;
  Errno error = lister_.readNumbers(task.get(), ids);
  if (error != kAnswered) return processError(error);
  std::sort(ids.begin(), ids.end());

  std::vector<KnownThread> seen;
  seen.reserve(ids.size());
  threads_.reserve(ids.size());
  for (int32_t id : ids) {
    std::string_view text;
    ProcessStat stat{};
    error = reader_.readRecord(task.get(), NumberedName("", id, "/stat").text(), text);
    // Threads end while the others are read.
    if (error != kAnswered) continue;
    if (parseProcessStat(text, stat)) seen.push_back(addThread(stat, nullptr));
  }
  known_->threads = std::move(seen);
  known_->hasThreads = false;
  return kAnswered;
}

}  // namespace host::linux_machine
