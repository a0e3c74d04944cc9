#include "host/linux/linux_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "host/darwin/errors.h"
#include "host/linux/clock.h"

namespace host::linux_machine {

// To look at files one by one costs as much for so many as it does to prepare looks at all of a
// process's.
static constexpr size_t kWorthPreparing = 1000;
// How many a process has at least for one look to be cheaper.
static constexpr size_t kWorthLooking = 4;

// What has no name is dearest, and a look at all spares most of that.
void LinuxDescriptors::countCost(const std::vector<darwin::proc_fdinfo> &list) {
  if (askedOneByOne_ >= kWorthPreparing) return;
  askedOneByOne_ +=
      static_cast<size_t>(std::ranges::count_if(list, [](const darwin::proc_fdinfo &entry) {
        return entry.proc_fdtype != darwin::PROX_FDTYPE_VNODE;
      }));
  if (askedOneByOne_ >= kWorthPreparing) shared_.preparedLooks();
}

// Answers the questions of this reading by one look at all files, if there can be one.
void LinuxDescriptors::lookAtFiles(int directory, size_t most) {
  const int32_t task = shared_.present.taskThread();
  files_.clear();
  const std::optional<FileIterator> &iterator = shared_.looks().files;
  if (iterator && most > 0) {
    iterator->read(task, most, files_);
    // The number was the task's own if that is still there.
    if (faccessat(directory, "stat", F_OK, 0) != 0) files_.clear();
  }
  shared_.descriptors.useFiles(files_);
  lookedAt_ = shared_.present.reading();
}

Errno LinuxDescriptors::listPresent(pid_t pid, size_t limit, std::vector<darwin::proc_fdinfo> &list,
                                    std::vector<uint64_t> &sockets) {
  // The kernel opens nothing in the table that its threads share.
  if (shared_.present.stat().isKernelThread()) return kAnswered;
  int directory = -1;
  const Errno error = shared_.present.taskDirectory(directory);
  if (error != kAnswered) return error;
  lookAtFiles(directory, limit);
  const DescriptorBudget *own = pid == getpid() ? &shared_.known.budget() : nullptr;
  return shared_.descriptors.list(directory, limit, list, &sockets, own);
}

Errno LinuxDescriptors::descriptors(pid_t pid, size_t limit,
                                    std::vector<darwin::proc_fdinfo> &list) {
  const std::lock_guard lock(shared_.mutex);
  Errno error = shared_.readLiveFor(pid, Question::descriptors);
  if (error != kAnswered) return error;
  KnownProcess &process = shared_.present.known();
  // One that was shorter than its limit was whole.
  bool isKnown = process.descriptors && (process.descriptors->size() < process.descriptorLimit ||
                                         process.descriptorLimit >= limit);
  bool isOwn = shared_.known.hasOwnDescriptors(process, shared_.present.stat());
  if (!isKnown || !isOwn) {
    process.descriptors.reset();
    std::vector<darwin::proc_fdinfo> listed;
    error = listPresent(pid, limit, listed, process.sockets);
    if (error != kAnswered) return error;
    countCost(listed);
    process.descriptors = std::move(listed);
    process.descriptorLimit = limit;
  }
  auto end = process.descriptors->begin() +
             static_cast<std::ptrdiff_t>(std::min(limit, process.descriptors->size()));
  list.assign(process.descriptors->begin(), end);
  return kAnswered;
}

Errno LinuxDescriptors::descriptorTableSize(pid_t pid, size_t &slots) {
  const std::lock_guard lock(shared_.mutex);
  ProcessStatus status{};
  Errno error = shared_.readLiveFor(pid, Question::descriptorSlots);
  if (error == kAnswered) error = shared_.present.status(status);
  if (error == kAnswered) slots = static_cast<size_t>(status.descriptorSlots);
  return error;
}

// The type of a descriptor by the listing that is part of the present reading: kNotOpen for one
// that it should have and has not, kUnlisted where there is no such listing.
static constexpr uint32_t kNotOpen = UINT32_MAX;
static constexpr uint32_t kUnlisted = UINT32_MAX - 1;

static uint32_t listedType(const std::vector<darwin::proc_fdinfo> &list, size_t limit, int fd) {
  const auto found = std::lower_bound(
      list.begin(), list.end(), fd,
      [](const darwin::proc_fdinfo &entry, int wanted) { return entry.proc_fd < wanted; });
  if (found != list.end()) return found->proc_fd == fd ? found->proc_fdtype : kNotOpen;
  return list.size() < limit ? kNotOpen : kUnlisted;
}

// How long the answers of a sample serve: who asks every second gets new ones each time.
static constexpr uint64_t kAnswersFor = 900'000'000;
// What a sample asks of one process, of one kind; and how many are kept of all.
static constexpr size_t kMostAnswers = 128;
static constexpr size_t kMostAnswersOfPass = 32768;

template <typename T>
Errno LinuxDescriptors::read(const Kind<T> &kind, int fd, T &answer) {
  const KnownProcess &process = shared_.present.known();
  if (shared_.present.hasAnswered(Question::descriptors) && process.descriptors) {
    const uint32_t type = listedType(*process.descriptors, process.descriptorLimit, fd);
    if (type == kNotOpen) return darwin::DARWIN_EBADF;
    if (type != kUnlisted && type != kind.type) return kind.otherType;
  }
  int directory = -1;
  const Errno error = shared_.present.taskDirectory(directory);
  if (error != kAnswered) return error;
  if (lookedAt_ != shared_.present.reading()) {
    const bool isWorth = process.descriptors && process.descriptors->size() >= kWorthLooking;
    lookAtFiles(directory, isWorth ? process.descriptorLimit : 0);
  }
  return (shared_.descriptors.*kind.question)(directory, fd, answer);
}

template <typename T>
Errno LinuxDescriptors::ask(const Kind<T> &kind, pid_t pid, int fd, T &answer) {
  const std::lock_guard lock(shared_.mutex);
  const Errno error = shared_.holdLive(pid);
  return error == kAnswered ? read(kind, fd, answer) : error;
}

template <typename T>
Errno LinuxDescriptors::askOnce(const Kind<T> &kind, pid_t pid, int fd, T &answer) {
  const std::lock_guard lock(shared_.mutex);
  Errno error = shared_.holdLive(pid);
  if (error != kAnswered) return error;
  KnownProcess &process = shared_.present.known();
  const uint64_t reading = shared_.present.reading();
  const uint64_t now = coarseNanoseconds();
  std::optional<KnownDescriptors> &details = process.details;
  const uint64_t pass = shared_.present.pass();
  if (details && (details->pass != pass || now - details->since >= kAnswersFor)) details.reset();
  // Of the same reading it may have run since.
  if (details && details->reading != reading) {
    const DescriptorAnswers<T> &answers = std::get<DescriptorAnswers<T>>(details->answers);
    const auto found =
        std::lower_bound(answers.begin(), answers.end(), fd,
                         [](const auto &entry, int wanted) { return entry.first < wanted; });
    if (found != answers.end() && found->first == fd) {
      answer = found->second;
      return kAnswered;
    }
  }
  error = read(kind, fd, answer);
  if (answeredPass_ != pass) answersOfPass_ = 0;
  answeredPass_ = pass;
  const bool mayKeep = error == kAnswered && process.tellsRest &&
                       answersOfPass_ < kMostAnswersOfPass &&
                       shared_.known.hasOwnDescriptors(process, shared_.present.stat());
  if (!mayKeep) return error;
  if (!details) details = KnownDescriptors{{}, pass, reading, now};
  DescriptorAnswers<T> &answers = std::get<DescriptorAnswers<T>>(details->answers);
  const bool isNext = answers.empty() || answers.back().first < fd;
  if (isNext && details->reading == reading && answers.size() < kMostAnswers) {
    answers.emplace_back(fd, answer);
    answersOfPass_++;
  }
  return kAnswered;
}

Errno LinuxDescriptors::descriptorType(pid_t pid, int fd, uint32_t &type) {
  const std::lock_guard lock(shared_.mutex);
  int directory = -1;
  Errno error = shared_.holdLive(pid);
  if (error == kAnswered) error = shared_.present.taskDirectory(directory);
  return error == kAnswered ? shared_.descriptors.type(directory, fd, type) : error;
}

Errno LinuxDescriptors::vnodeDescriptor(pid_t pid, int fd, darwin::vnode_fdinfowithpath &info) {
  return ask({&Descriptors::vnode, darwin::PROX_FDTYPE_VNODE}, pid, fd, info);
}

Errno LinuxDescriptors::socketDescriptor(pid_t pid, int fd, darwin::socket_fdinfo &info) {
  return askOnce({&Descriptors::socket, darwin::PROX_FDTYPE_SOCKET, darwin::DARWIN_ENOTSOCK}, pid,
                 fd, info);
}

Errno LinuxDescriptors::semaphoreDescriptor(pid_t pid, int fd, darwin::psem_fdinfo &info) {
  return ask({&Descriptors::semaphore, darwin::PROX_FDTYPE_PSEM}, pid, fd, info);
}

Errno LinuxDescriptors::sharedMemoryDescriptor(pid_t pid, int fd, darwin::pshm_fdinfo &info) {
  return ask({&Descriptors::sharedMemory, darwin::PROX_FDTYPE_PSHM}, pid, fd, info);
}

Errno LinuxDescriptors::pipeDescriptor(pid_t pid, int fd, darwin::pipe_fdinfo &info) {
  return askOnce({&Descriptors::pipe, darwin::PROX_FDTYPE_PIPE}, pid, fd, info);
}

Errno LinuxDescriptors::kqueueDescriptor(pid_t pid, int fd, darwin::kqueue_fdinfo &info) {
  return ask({&Descriptors::kqueue, darwin::PROX_FDTYPE_KQUEUE}, pid, fd, info);
}

Errno LinuxDescriptors::kqueueEvents(pid_t pid, int fd,
                                     std::vector<darwin::kevent_extinfo> &events) {
  return askOnce({&Descriptors::kqueueEvents, darwin::PROX_FDTYPE_KQUEUE}, pid, fd, events);
}

// Nothing here is a channel.
Errno LinuxDescriptors::channelDescriptor(pid_t pid, int fd, darwin::channel_fdinfo &) {
  uint32_t type = 0;
  Errno error = descriptorType(pid, fd, type);
  return error == kAnswered ? darwin::DARWIN_EBADF : error;
}

}  // namespace host::linux_machine
