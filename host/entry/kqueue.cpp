// Kernel queues: registrations and what is reported of them, as the kernel keeps them. Only process
// events can be waited for.
#include "host/darwin/kqueue.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "host/darwin/errors.h"
#include "host/entry/answer.h"
#include "host/machine/events.h"

namespace host {

namespace {

using Event = struct darwin::kevent;
using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::nanoseconds;

constexpr uint32_t kNotes = darwin::NOTE_EXIT | darwin::NOTE_FORK | darwin::NOTE_EXEC;
constexpr uint16_t kFlags =
    darwin::EV_ADD | darwin::EV_DELETE | darwin::EV_ENABLE | darwin::EV_ONESHOT | darwin::EV_CLEAR;
constexpr int64_t kLongestTimeout = 100'000'000;  // seconds

struct Registration {
  Event asked;
  uint32_t happened = 0;
  bool exited = false;

  pid_t pid() const { return static_cast<pid_t>(asked.ident); }
};

// The caller's descriptor is the read end of a pipe: its inode names the queue, under all numbers
// that the descriptor may be duplicated to, and the write end tells when the last one is closed.
class Queue {
 public:
  explicit Queue(int writeEnd) : writeEnd_(writeEnd) {}
  Queue(const Queue &) = delete;
  Queue &operator=(const Queue &) = delete;
  ~Queue() { close(writeEnd_); }

  bool isClosed() const {
    pollfd end = {writeEnd_, 0, 0};
    return poll(&end, 1, 0) > 0 && (end.revents & POLLERR) != 0;
  }

  Errno change(const Event &change);
  // Waits until at least one event is in `events`, or the time is up.
  Errno collect(Event *events, int room, std::optional<Clock::time_point> deadline, int &count);

 private:
  using Registrations = std::list<Registration>;

  Registrations::iterator find(pid_t pid) {
    return std::find_if(registrations_.begin(), registrations_.end(),
                        [pid](const Registration &known) { return known.pid() == pid; });
  }
  Errno openEvents();
  Errno add(const Event &change);
  Errno remove(pid_t pid);
  bool hasNews();
  void note(const std::vector<ProcessEvent> &events);
  int deliver(Event *events, int room);

  const int writeEnd_;
  std::mutex mutex_;
  // Made with the first registration or wait.
  std::shared_ptr<ProcessEvents> events_;
  Registrations registrations_;
};

Errno Queue::openEvents() {
  if (events_) return kAnswered;
  std::unique_ptr<ProcessEvents> opened;
  const Errno error = events().processEvents(opened);
  if (error == kAnswered) events_ = std::move(opened);
  return error;
}

Errno Queue::change(const Event &change) {
  if (change.filter >= 0 || change.filter < darwin::EVFILT_WORKLOOP) return darwin::DARWIN_EINVAL;
  if (change.filter != darwin::EVFILT_PROC || (change.flags & ~kFlags) != 0 ||
      (change.fflags & ~kNotes) != 0) {
    return darwin::DARWIN_ENOTSUP;
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  const pid_t pid = static_cast<pid_t>(change.ident);
  if ((change.flags & darwin::EV_DELETE) != 0) return remove(pid);
  const auto known = find(pid);
  if (known != registrations_.end()) {
    known->asked.fflags = change.fflags;
    known->asked.udata = change.udata;
    return kAnswered;
  }
  return (change.flags & darwin::EV_ADD) != 0 ? add(change) : darwin::DARWIN_ENOENT;
}

Errno Queue::add(const Event &change) {
  Errno error = openEvents();
  if (error != kAnswered) return error;
  const auto added = registrations_.insert(registrations_.end(), {change, 0, false});
  error = events_->watch(added->pid());
  if (error != kAnswered) registrations_.erase(added);
  return error;
}

Errno Queue::remove(pid_t pid) {
  const auto known = find(pid);
  if (known == registrations_.end()) return darwin::DARWIN_ENOENT;
  events_->unwatch(pid);
  registrations_.erase(known);
  return kAnswered;
}

bool Queue::hasNews() {
  return std::any_of(registrations_.begin(), registrations_.end(),
                     [](const Registration &known) { return known.happened != 0; });
}

void Queue::note(const std::vector<ProcessEvent> &events) {
  for (const ProcessEvent &event : events) {
    const auto known = find(event.pid);
    if (known == registrations_.end()) continue;
    known->happened |= event.notes & known->asked.fflags;
    known->exited = known->exited || (event.notes & darwin::NOTE_EXIT) != 0;
    if (known->exited && known->happened == 0) registrations_.erase(known);
  }
}

int Queue::deliver(Event *events, int room) {
  int count = 0;
  for (auto next = registrations_.begin(); next != registrations_.end() && count < room;) {
    const auto known = next++;
    if (known->happened == 0) continue;
    Event &event = events[count++];
    event = known->asked;
    event.flags |= darwin::EV_CLEAR;
    if (known->exited) event.flags |= darwin::EV_EOF | darwin::EV_ONESHOT;
    event.fflags = std::exchange(known->happened, 0);
    event.data = 0;
    if ((event.flags & darwin::EV_ONESHOT) == 0) continue;
    if (!known->exited) events_->unwatch(known->pid());
    registrations_.erase(known);
  }
  return count;
}

Errno Queue::collect(Event *events, int room, std::optional<Clock::time_point> deadline,
                     int &count) {
  std::vector<ProcessEvent> happened;
  for (;;) {
    std::shared_ptr<ProcessEvents> source;
    std::optional<Nanoseconds> timeout;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      const Errno error = openEvents();
      if (error != kAnswered) return error;
      source = events_;
      // What happened since belongs to the same report.
      if (hasNews()) timeout = Nanoseconds::zero();
    }
    if (!timeout && deadline) {
      timeout = std::max<Nanoseconds>(*deadline - Clock::now(), Nanoseconds::zero());
    }
    // Other threads may change the queue meanwhile.
    happened.clear();
    const Errno error = source->wait(timeout, happened);
    if (error != kAnswered) return error;
    const std::lock_guard<std::mutex> lock(mutex_);
    note(happened);
    count = deliver(events, room);
    if (count > 0 || (deadline && Clock::now() >= *deadline)) return kAnswered;
  }
}

struct QueueName {
  dev_t device;
  ino_t inode;

  bool operator==(const QueueName &other) const = default;
};

struct NamedQueue {
  QueueName name;
  std::shared_ptr<Queue> queue;
};

struct OpenQueues {
  std::mutex mutex;
  std::vector<NamedQueue> list;
};

// Never destroyed: threads may wait on a queue while the program ends.
OpenQueues &openQueues() {
  static OpenQueues &queues = *new OpenQueues;
  return queues;
}

bool getName(int descriptor, QueueName &name) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return false;
  name = {status.st_dev, status.st_ino};
  return true;
}

std::shared_ptr<Queue> findQueue(int descriptor) {
  QueueName name{};
  if (!getName(descriptor, name)) return nullptr;
  OpenQueues &queues = openQueues();
  const std::lock_guard<std::mutex> lock(queues.mutex);
  for (const NamedQueue &known : queues.list) {
    if (known.name == name) return known.queue;
  }
  return nullptr;
}

Errno openQueue(int &descriptor) {
  OpenQueues &queues = openQueues();
  const std::lock_guard<std::mutex> lock(queues.mutex);
  // Here the queues that were closed meanwhile come to their end.
  std::erase_if(queues.list, [](const NamedQueue &known) { return known.queue->isClosed(); });
  queues.list.reserve(queues.list.size() + 1);

  int ends[2];
  // EMFILE and ENFILE, which have the same numbers on both systems.
  if (pipe2(ends, O_CLOEXEC) != 0) return errno;
  const auto queue = std::make_shared<Queue>(ends[1]);
  QueueName name{};
  if (!getName(ends[0], name)) {
    close(ends[0]);
    return darwin::DARWIN_ENOMEM;
  }
  queues.list.push_back({name, queue});
  descriptor = ends[0];
  return kAnswered;
}

Errno readTimeout(const timespec *timeout, std::optional<Clock::time_point> &deadline) {
  if (timeout == nullptr) return kAnswered;
  if (timeout->tv_sec < 0 || timeout->tv_sec > kLongestTimeout || timeout->tv_nsec < 0 ||
      timeout->tv_nsec >= 1'000'000'000) {
    return darwin::DARWIN_EINVAL;
  }
  deadline = Clock::now() + std::chrono::seconds(timeout->tv_sec) + Nanoseconds(timeout->tv_nsec);
  return kAnswered;
}

Errno applyAndWait(int descriptor, const Event *changes, int changeCount, Event *events, int room,
                   const timespec *timeout, int &count) {
  std::optional<Clock::time_point> deadline;
  Errno error = readTimeout(timeout, deadline);
  if (error != kAnswered) return error;
  const std::shared_ptr<Queue> queue = findQueue(descriptor);
  if (!queue) return darwin::DARWIN_EBADF;

  int failed = 0;
  for (int i = 0; i < changeCount; i++) {
    if (changes == nullptr) return darwin::DARWIN_EFAULT;
    error = queue->change(changes[i]);
    if (error == kAnswered) continue;
    if (failed >= room) return error;
    Event answer = changes[i];
    answer.flags |= darwin::EV_ERROR;
    answer.data = error;
    error = copyOut(&answer, sizeof answer, events == nullptr ? nullptr : events + failed);
    if (error != kAnswered) return error;
    failed++;
  }
  count = failed;
  if (failed > 0 || room <= 0) return kAnswered;
  if (events == nullptr) return darwin::DARWIN_EFAULT;
  return queue->collect(events, room, deadline, count);
}

}  // namespace

}  // namespace host

int darwin::kqueue(void) {
  int descriptor = -1;
  const host::Errno error = host::guarded([&] { return host::openQueue(descriptor); });
  return host::libraryAnswer(error, descriptor, -1);
}

int darwin::kevent(int queue, const struct kevent *changes, int nchanges, struct kevent *events,
                   int nevents, const struct ::timespec *timeout) {
  int count = 0;
  const host::Errno error = host::guarded([&] {
    return host::applyAndWait(queue, changes, nchanges, events, nevents, timeout, count);
  });
  return host::libraryAnswer(error, count, -1);
}
