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

// How long a reading may answer further questions about the process: as long as it took when that
// was longer, or of a process with thousands of threads each question would read them all.
static constexpr uint64_t kFreshAtLeast = 100'000'000;

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

PresentProcess::PresentProcess(int procDirectory, KnownProcesses &known, const TaskSurvey &survey)
    : procDirectory_(procDirectory), all_(known), survey_(survey), caller_(__real_geteuid()) {}

void PresentProcess::beginPass() {
  release();
  pass_++;
  caller_ = __real_geteuid();
}

void PresentProcess::release() {
  directory_.close();
  otherDirectory_.close();
  opened_ = {};
  pid_ = 0;
  known_ = nullptr;
}

Errno PresentProcess::open(pid_t pid) {
  release();
  if (pid <= 0) return darwin::DARWIN_ESRCH;
  directory_ = openStartingPoint(procDirectory_, NumberedName("", pid, "").text());
  if (!directory_.isOpen()) return processError(darwinError(errno));
  opened_ = openKeptFiles(all_.budget(), directory_.get());
  pid_ = pid;
  return kAnswered;
}

// Makes a process whose files are still open the present one.
void PresentProcess::resume(pid_t pid) {
  release();
  KnownProcess *known = all_.look(pid);
  if (known == nullptr || !known->files.areOpen()) return;
  pid_ = pid;
  known_ = known;
}

Errno PresentProcess::ensureDirectory() {
  if (directory_.isOpen()) return kAnswered;
  directory_ = openStartingPoint(procDirectory_, NumberedName("", pid_, "").text());
  if (!directory_.isOpen()) return processError(darwinError(errno));
  // The pid was its own all the while if it is still there.
  std::string_view text;
  ProcessStat stat{};
  Errno error = kAnswered;
  if (files().areOpen()) {
    error = processError(reader_.readRecord(files().score.handle(), text));
  } else {
    error = processError(reader_.readRecord(directory_.get(), "stat", text));
    const bool isSame = parseProcessStat(text, stat) && stat.startTicks == known_->startTicks;
    if (error == kAnswered && !isSame) error = darwin::DARWIN_ESRCH;
  }
  if (error != kAnswered) directory_.close();
  return error;
}

Errno PresentProcess::directory(int &handle) {
  const Errno error = ensureDirectory();
  if (error == kAnswered) handle = directory_.get();
  return error;
}

Errno PresentProcess::taskDirectory(int &handle) {
  if (otherThread_ == 0) return directory(handle);
  Errno error = ensureDirectory();
  if (error == kAnswered && !otherDirectory_.isOpen()) {
    otherDirectory_ =
        openStartingPoint(directory_.get(), NumberedName("task/", otherThread_, "").text());
    if (!otherDirectory_.isOpen()) error = processError(darwinError(errno));
  }
  if (error == kAnswered) handle = otherDirectory_.get();
  return error;
}

const KeptFiles &PresentProcess::files() const {
  return known_ != nullptr && known_->files.areOpen() ? known_->files : opened_;
}

Errno PresentProcess::readFile(const char *name, std::string_view &text) {
  const Errno error = ensureDirectory();
  return error == kAnswered ? reader_.readRecord(directory_.get(), name, text) : error;
}

Errno PresentProcess::readText(const char *name, std::string_view &text) {
  return processError(readFile(name, text));
}

Errno PresentProcess::readText(const KeptFile &kept, const char *name, std::string_view &text) {
  return kept.isOpen() ? processError(reader_.readRecord(kept.handle(), text))
                       : readText(name, text);
}

Errno PresentProcess::readTaskText(const char *name, std::string_view &text) {
  int directory = -1;
  const Errno error = taskDirectory(directory);
  return error == kAnswered ? processError(reader_.readRecord(directory, name, text)) : error;
}

Errno PresentProcess::readStat() {
  std::string_view text;
  Errno error = readText(files().stat, "stat", text);
  if (error != kAnswered) return error;
  return parseProcessStat(text, stat_) ? kAnswered : darwin::DARWIN_EIO;
}

// Whether what was read of a process last, after the survey before this one, is all still true.
bool PresentProcess::mayRecall(const KnownProcess &known, std::span<const TaskRecord> tasks) const {
  const ProcessStat &stat = known.stat;
  const auto leader = std::ranges::find(tasks, stat.id, &TaskRecord::id);
  if (known.survey + 1 != survey_.number() || leader == tasks.end() || !agrees(*leader, stat) ||
      tasks.size() != stat.threads || stat.hasLostFirstThread() || known.isProcess != true) {
    return false;
  }
  return tasks.size() == 1 ? known.record.has_value() : mayRecallThreads(known, tasks);
}

bool PresentProcess::mayRecallThreads(const KnownProcess &known,
                                      std::span<const TaskRecord> tasks) const {
  return std::ranges::equal(
      tasks, known.threads, [this](const TaskRecord &task, const KnownThread &thread) {
        return thread.survey + 1 == survey_.number() && agrees(task, thread.stat);
      });
}

bool PresentProcess::recall(pid_t pid) {
  if (!survey_.isFresh()) return false;
  KnownProcess *known = all_.look(pid);
  if (known == nullptr || !mayRecall(*known, survey_.restingTasks(pid))) return false;
  if (pid_ != pid) release();
  pid_ = pid;
  known_ = known;
  stat_ = known->stat;
  known_->survey = survey_.number();
  known_->isAlive = !stat_.isZombie();
  // Only what is read has them open: this program lists its own descriptors, too.
  if (known_->files.areOpen()) known_->files = {};
  beginReading();
  if (stat_.threads > 1) {
    for (KnownThread &thread : known_->threads) {
      if (thread.files.areOpen()) thread.files = {};
      thread.survey = survey_.number();
      addThread(thread);
    }
    threadsRead_ = true;
    known_->tellsRest = true;
  }
  readAt_ = coarseNanoseconds();
  freshFor_ = kFreshAtLeast;
  return true;
}

Errno PresentProcess::read(pid_t pid) {
  if (recall(pid)) return kAnswered;
  if (pid_ != pid) resume(pid);
  const uint64_t began = coarseNanoseconds();
  Errno error = pid_ == pid ? readStat() : darwin::DARWIN_ESRCH;
  if (error == darwin::DARWIN_ESRCH) {
    error = open(pid);
    if (error == kAnswered) error = readStat();
  }
  if (error == kAnswered) error = findOut(pid);
  if (error != kAnswered) release();
  readAt_ = coarseNanoseconds();
  freshFor_ = std::max(kFreshAtLeast, readAt_ - began);
  return error;
}

void PresentProcess::beginReading() {
  reading_++;
  answered_ = 0;
  access_.reset();
  threads_.clear();
  threadsRead_ = false;
  otherThread_ = 0;
  otherDirectory_.close();
}

// Joins a fresh stat with what is known of the process, and drops what may have changed.
Errno PresentProcess::findOut(pid_t pid) {
  beginReading();
  known_ = &all_.find(pid, stat_.startTicks);
  known_->stat = stat_;
  known_->survey = survey_.number();
  if (!known_->files.areOpen()) known_->files = std::move(opened_);
  const bool hasRested = stat_.threads == 1 ? hasOnlyThreadRested() : haveKnownThreadsRested();
  if (!hasRested) known_->forgetAnswers();
  if (stat_.hasLostFirstThread()) {
    const Errno error = lookThroughOtherThread();
    if (error != kAnswered) return error;
  }
  known_->isAlive = !stat_.isZombie();

  if (!known_->isProcess) {
    ProcessStatus first{};
    Errno error = status(first);
    if (error != kAnswered) return error;
    known_->isProcess = first.process == 0 || first.process == static_cast<uint64_t>(pid);
  }
  return *known_->isProcess ? kAnswered : darwin::DARWIN_ESRCH;
}

// With its first thread a process's own files lose what the threads have in common. Times, names
// and relatives stay.
Errno PresentProcess::lookThroughOtherThread() {
  std::vector<ThreadReading> *all = nullptr;
  const Errno error = threads(all);
  if (error != kAnswered) return error;
  const auto living = std::find_if(all->begin(), all->end(), [](const ThreadReading &thread) {
    return !thread.stat.hasEnded();
  });
  if (living == all->end()) {
    stat_.threads = 1;
    return kAnswered;
  }
  const ProcessStat &other = living->stat;
  otherThread_ = other.id;
  stat_.state = other.state;
  stat_.flags = other.flags;
  stat_.virtualSize = other.virtualSize;
  stat_.residentPages = other.residentPages;
  stat_.startCode = other.startCode;
  stat_.startStack = other.startStack;
  stat_.nice = other.nice;
  stat_.policy = other.policy;
  stat_.realTimePriority = other.realTimePriority;
  return kAnswered;
}

bool PresentProcess::hasOnlyThreadRested() {
  std::string_view text;
  SchedulerRecord read{};
  const bool isRead = readText(files().schedule, "schedstat", text) == kAnswered &&
                      parseSchedulerRecord(text, read);
  const std::optional<SchedulerRecord> record = isRead ? std::optional(read) : std::nullopt;
  const bool hasRested = !hasRunSince(known_->record, record, stat_);
  known_->record = record;
  known_->tellsRest = isRead;
  return hasRested;
}

// The answer is no, and no thread is read, where not all are known.
bool PresentProcess::haveKnownThreadsRested() {
  known_->record.reset();
  known_->tellsRest = false;
  if (known_->threads.size() != stat_.threads) return false;
  bool hasRested = true;
  for (KnownThread &thread : known_->threads) {
    const std::optional<SchedulerRecord> before = thread.record;
    if (!thread.files.areOpen() || !readKnownThread(thread)) {
      threads_.clear();
      return false;
    }
    if (hasRunSince(before, thread.record, thread.stat)) hasRested = false;
    addThread(thread);
  }
  // Each of as many as there are is one that was there before.
  threadsRead_ = true;
  known_->tellsRest = true;
  return hasRested;
}

bool PresentProcess::isFresh(pid_t pid) const {
  return known_ != nullptr && pid_ == pid && coarseNanoseconds() - readAt_ < freshFor_;
}

Errno PresentProcess::readFor(pid_t pid, Question question) {
  if (!isFresh(pid) || hasAnswered(question)) {
    Errno error = read(pid);
    if (error != kAnswered) return error;
  }
  answered_ |= static_cast<uint32_t>(question);
  return kAnswered;
}

Errno PresentProcess::hold(pid_t pid) {
  return isFresh(pid) ? kAnswered : read(pid);
}

Errno PresentProcess::checkAccess() {
  if (!access_) {
    ProcessStatus owner{};
    Errno error = caller_ == 0 ? kAnswered : status(owner);
    if (error != kAnswered) return error;
    access_ = caller_ == 0 || owner.user.effective == caller_ ? kAnswered : darwin::DARWIN_EPERM;
  }
  return *access_;
}

Errno PresentProcess::status(ProcessStatus &status) {
  // Memory is taken from a process, and shared with it, while it rests.
  if (!known_->status || known_->residentPages != stat_.residentPages) {
    std::string_view text;
    ProcessStatus parsed{};
    Errno error = readTaskText("status", text);
    if (error != kAnswered) return error;
    if (!parseProcessStatus(text, parsed)) return darwin::DARWIN_EIO;
    known_->status = parsed;
    known_->residentPages = stat_.residentPages;
  }
  status = *known_->status;
  return kAnswered;
}

Errno PresentProcess::io(ProcessIO &io) {
  if (!known_->ioResult) {
    std::string_view text;
    Errno error = readFile("io", text);
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
  // No 32-bit program has its stack up there.
  if (stat_.startStack > UINT32_MAX) return true;
  ExecutableImage image{stat_.startCode, stat_.startStack};
  std::string_view bytes;
  if (known_->image != image && readTaskText("auxv", bytes) == kAnswered) {
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

// For a process whose namespace may not be known: one in which users are other ones than in ours
// shows. One that has the same counts as ours.
Errno PresentProcess::mapsUsersOtherwise(bool &otherwise) {
  std::string_view text;
  otherwise = false;
  if (reader_.readRecord(procDirectory_, "self/uid_map", text) != kAnswered) return kAnswered;
  const std::string own(text);
  const Errno error = readTaskText("uid_map", text);
  otherwise = text != own;
  return error;
}

Errno PresentProcess::hasOwnUsers(bool &own) {
  if (!known_->hasOwnUsers) {
    std::string text;
    Errno error = kAnswered;
    if (!ownUsers_) {
      error = readUserNamespace(procDirectory_, "self/ns/user", text);
      if (error == kAnswered) ownUsers_ = text;
    }
    int directory = -1;
    if (error == kAnswered) error = taskDirectory(directory);
    if (error == kAnswered) error = readUserNamespace(directory, "ns/user", text);
    if (error == darwin::DARWIN_EPERM) return mapsUsersOtherwise(own);
    if (error != kAnswered) return error;
    // Only a process that is gone has none where others have one.
    if (text.empty() && !ownUsers_->empty()) return darwin::DARWIN_ESRCH;
    known_->hasOwnUsers = text != *ownUsers_;
  }
  own = *known_->hasOwnUsers;
  return kAnswered;
}

Errno PresentProcess::readLink(const char *name, std::string &path) {
  int directory = -1;
  const Errno error = taskDirectory(directory);
  if (error != kAnswered) return error;
  char text[4096];
  ssize_t length = readlinkat(directory, name, text, sizeof text);
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
  int directory = -1;
  if (error == kAnswered) error = taskDirectory(directory);
  if (error == kAnswered) {
    error = processError(reader_.readBeginning(directory, "cmdline", kLargestArguments, text));
  }
  if (error != kAnswered) return error;
  arguments.arguments = splitArguments(text);
  arguments.environment.clear();
  arguments.path = path;
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

bool PresentProcess::hasThread(uint64_t id) {
  const std::string name = std::string("task/").append(std::to_string(id));
  return ensureDirectory() == kAnswered && faccessat(directory_.get(), name.c_str(), F_OK, 0) == 0;
}

// Files a thread's reading. Its times may be had from elsewhere than its stat.
void PresentProcess::addThread(KnownThread &thread, const ProcessStat &stat, uint64_t userTicks,
                               uint64_t systemTicks) {
  if (thread.id != stat.id || thread.startTicks != stat.startTicks) thread.estimate = {};
  thread.id = stat.id;
  thread.startTicks = stat.startTicks;
  thread.figures.userTicks = userTicks;
  thread.figures.systemTicks = systemTicks;
  const uint64_t used = ticksToNanoseconds(userTicks + systemTicks);
  thread.figures.usage =
      thread.estimate.look(used, ticksToNanoseconds(stat.startTicks), nanosecondsSinceBoot());
  threads_.push_back({stat, thread.figures, false});
}

void PresentProcess::addThread(KnownThread &thread) {
  addThread(thread, thread.stat, thread.stat.userTicks, thread.stat.systemTicks);
}

// What is known of a thread, to be filed again if it is still there.
KnownThread PresentProcess::takeKnownThread(int32_t id) {
  std::vector<KnownThread> &known = known_->threads;
  auto found = std::lower_bound(
      known.begin(), known.end(), id,
      [](const KnownThread &thread, int32_t wanted) { return thread.id < wanted; });
  return found != known.end() && found->id == id ? std::move(*found) : KnownThread{};
}

bool PresentProcess::takeStat(std::string_view text, KnownThread &thread) {
  thread.survey = survey_.number();
  return parseProcessStat(text, thread.stat);
}

// By the files that are kept open for it.
bool PresentProcess::readKnownThread(KnownThread &thread) {
  std::string_view text;
  if (reader_.readRecord(thread.files.stat.handle(), text) != kAnswered ||
      !takeStat(text, thread)) {
    return false;
  }
  SchedulerRecord record{};
  const bool hasRecord = reader_.readRecord(thread.files.schedule.handle(), text) == kAnswered &&
                         parseSchedulerRecord(text, record);
  thread.record = hasRecord ? std::optional(record) : std::nullopt;
  return true;
}

bool PresentProcess::readThread(int tasks, int32_t id, KnownThread &thread) {
  if (thread.files.areOpen() && readKnownThread(thread)) return true;
  thread.files = openKeptThreadFiles(all_.budget(), tasks, id);
  if (thread.files.areOpen()) return readKnownThread(thread);
  thread.record.reset();
  std::string_view text;
  return reader_.readRecord(tasks, NumberedName("", id, "/stat").text(), text) == kAnswered &&
         takeStat(text, thread);
}

Errno PresentProcess::readOnlyThread() {
  KnownThread thread;
  if (known_->hasThreads) {
    // The process's own stat tells the rest; its times are also those of threads that ended.
    thread = std::move(known_->threads.front());
    addThread(thread, stat_, thread.figures.userTicks, thread.figures.systemTicks);
  } else if (stat_.isKernelThread()) {
    thread = takeKnownThread(stat_.id);
    addThread(thread, stat_, stat_.userTicks, stat_.systemTicks);
  } else {
    std::string_view text;
    ProcessStat stat{};
    Errno error = readText(NumberedName("task/", pid_, "/stat").text(), text);
    if (error != kAnswered) return error;
    if (!parseProcessStat(text, stat)) return darwin::DARWIN_EIO;
    thread = takeKnownThread(stat.id);
    thread.files = {};
    addThread(thread, stat, stat.userTicks, stat.systemTicks);
  }
  known_->threads.clear();
  known_->threads.push_back(std::move(thread));
  known_->hasThreads = known_->record.has_value();
  return kAnswered;
}

Errno PresentProcess::readAllThreads() {
  Errno error = ensureDirectory();
  if (error != kAnswered) return error;
  FileHandle task = openDirectory(directory_.get(), "task");
  if (!task.isOpen()) return processError(darwinError(errno));
  std::vector<int32_t> ids;
  error = lister_.readNumbers(task.get(), ids);
  if (error != kAnswered) return processError(error);
  std::sort(ids.begin(), ids.end());

  std::vector<KnownThread> seen;
  seen.reserve(ids.size());
  threads_.reserve(ids.size());
  for (int32_t id : ids) {
    KnownThread thread = takeKnownThread(id);
    // Threads end while the others are read.
    if (!readThread(task.get(), id, thread)) continue;
    addThread(thread);
    seen.push_back(std::move(thread));
  }
  known_->threads = std::move(seen);
  // The next look compares with the records that were taken now: what was read before them may be
  // of an earlier time.
  known_->forgetAnswers();
  return kAnswered;
}

}  // namespace host::linux_machine
