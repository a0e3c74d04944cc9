#include "host/linux/process_events.h"

#include <arpa/inet.h>
#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/filter.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <utility>

#include "darwin/kqueue.h"
#include "host/darwin/errors.h"
#include "host/posix.h"

namespace host::linux_machine {

using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::nanoseconds;
using Milliseconds = std::chrono::milliseconds;

// A message is a netlink header, a connector header and an event, without gaps.
static constexpr size_t kConnectorOffset = sizeof(nlmsghdr);
static constexpr size_t kEventOffset = kConnectorOffset + sizeof(cn_msg);
static constexpr size_t kDataOffset = kEventOffset + offsetof(proc_event, event_data);
static_assert(kEventOffset == 36 && kDataOffset == 52);
using ForkData = decltype(proc_event::event_data.fork);
using ExecData = decltype(proc_event::event_data.exec);
// Kinds of events. The kernel's own names for them are in one scope or another.
static constexpr uint32_t kNoEvent = 0;
static constexpr uint32_t kForkEvent = 1;
static constexpr uint32_t kExecEvent = 2;
// In the data of both.
static constexpr size_t kProcessOffset = kDataOffset + sizeof(uint32_t);
static_assert(offsetof(ForkData, parent_tgid) == 4 && offsetof(ExecData, process_tgid) == 4);

// The answer comes before the request's call has returned, unless the kernel does not answer.
static constexpr Milliseconds kAnswerPatience{200};
// Beyond this many processes the kernel does not choose among them.
static constexpr size_t kMostInFilter = 100;

template <typename T>
static bool readAt(const void *message, size_t size, size_t offset, T &value) {
  if (offset > size || size - offset < sizeof value) return false;
  std::memcpy(&value, static_cast<const uint8_t *>(message) + offset, sizeof value);
  return true;
}

// The event's kind; false for what is no event.
static bool readKind(const void *message, size_t size, cn_msg &connector, uint32_t &kind) {
  return readAt(message, size, kConnectorOffset, connector) && connector.id.idx == CN_IDX_PROC &&
         connector.id.val == CN_VAL_PROC && readAt(message, size, kEventOffset, kind);
}

bool parseConnectorMessage(const void *message, size_t size, ProcessEvent &event) {
  cn_msg connector{};
  uint32_t kind = 0;
  if (!readKind(message, size, connector, kind)) return false;
  if (kind == kForkEvent) {
    ForkData data{};
    if (!readAt(message, size, kDataOffset, data) || data.child_pid != data.child_tgid) {
      return false;
    }
    event = {data.parent_tgid, darwin::NOTE_FORK};
    return true;
  }
  ExecData data{};
  if (kind != kExecEvent || !readAt(message, size, kDataOffset, data)) return false;
  event = {data.process_tgid, darwin::NOTE_EXEC};
  return true;
}

std::vector<uint8_t> makeConnectorRequest(bool listens, uint32_t number) {
  const proc_cn_mcast_op operation = listens ? PROC_CN_MCAST_LISTEN : PROC_CN_MCAST_IGNORE;
  nlmsghdr header{};
  header.nlmsg_len = static_cast<uint32_t>(kEventOffset + sizeof operation);
  header.nlmsg_type = NLMSG_DONE;
  cn_msg connector{};
  connector.id = {CN_IDX_PROC, CN_VAL_PROC};
  // Of the two numbers of a message it is this one that the answer has, plus one.
  connector.ack = number;
  connector.len = sizeof operation;
  std::vector<uint8_t> request(header.nlmsg_len);
  std::memcpy(request.data(), &header, sizeof header);
  std::memcpy(request.data() + kConnectorOffset, &connector, sizeof connector);
  std::memcpy(request.data() + kEventOffset, &operation, sizeof operation);
  return request;
}

bool parseConnectorAnswer(const void *message, size_t size, uint32_t number, int &error) {
  cn_msg connector{};
  uint32_t kind = 0;
  uint32_t answered = 0;
  if (!readKind(message, size, connector, kind) || kind != kNoEvent ||
      connector.ack != number + 1 || !readAt(message, size, kDataOffset, answered)) {
    return false;
  }
  error = static_cast<int>(answered);
  return true;
}

// The next message of the kernel; others may send to the socket as well. False when there is none.
static bool receive(int socket, uint8_t (&buffer)[1024], size_t &size) {
  for (;;) {
    sockaddr_nl sender{};
    socklen_t length = sizeof sender;
    const ssize_t received = recvfrom(socket, buffer, sizeof buffer, MSG_DONTWAIT,
                                      reinterpret_cast<sockaddr *>(&sender), &length);
    if (received < 0 && (errno == EINTR || errno == ENOBUFS)) continue;
    if (received < 0) return false;
    if (sender.nl_pid != 0) continue;
    size = static_cast<size_t>(received);
    return true;
  }
}

static bool isGranted(int socket, uint32_t number) {
  const Clock::time_point deadline = Clock::now() + kAnswerPatience;
  for (;;) {
    uint8_t buffer[1024];
    size_t size = 0;
    int error = 0;
    while (receive(socket, buffer, size)) {
      if (parseConnectorAnswer(buffer, size, number, error)) return error == 0;
    }
    const auto left = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now()).count();
    pollfd waited = {socket, POLLIN, 0};
    if (left <= 0) return false;
    if (poll(&waited, 1, static_cast<int>(left)) < 0 && errno != EINTR) return false;
  }
}

static bool sendRequest(int socket, bool listens, uint32_t number) {
  const std::vector<uint8_t> request = makeConnectorRequest(listens, number);
  return send(socket, request.data(), request.size(), 0) == static_cast<ssize_t>(request.size());
}

static uint32_t nextRequest() {
  static std::atomic<uint32_t> next{static_cast<uint32_t>(getpid()) << 8};
  return next++;
}

// Not open where the caller may not listen: some kernels refuse the group, some answer with an
// error, and to other namespaces they do not answer.
static FileHandle openConnector() {
  FileHandle socket(
      ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_CONNECTOR));
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = CN_IDX_PROC;
  const uint32_t number = nextRequest();
  if (socket.isOpen() &&
      bind(socket.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
      sendRequest(socket.get(), true, number) && isGranted(socket.get(), number)) {
    return socket;
  }
  return FileHandle();
}

static bool addTo(int epoll, int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  return epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

Errno LinuxProcessEvents::open(std::unique_ptr<ProcessEvents> &events, bool usesConnector) {
  FileHandle ready(epoll_create1(EPOLL_CLOEXEC));
  if (!ready.isOpen()) return darwinError(errno);
  FileHandle connector = usesConnector ? openConnector() : FileHandle();
  if (connector.isOpen() && !addTo(ready.get(), connector.get())) return darwinError(errno);
  events = std::make_unique<LinuxProcessEvents>(std::move(ready), std::move(connector));
  return kAnswered;
}

LinuxProcessEvents::LinuxProcessEvents(FileHandle ready, FileHandle connector)
    : ready_(std::move(ready)), connector_(std::move(connector)) {
  narrow();
}

// The kernel counts its listeners: without this it would go on making messages for nobody.
LinuxProcessEvents::~LinuxProcessEvents() {
  if (connector_.isOpen()) sendRequest(connector_.get(), false, nextRequest());
}

// Has the kernel drop what does not concern a watched process, so that a busy machine does not wake
// this program for each of its forks.
void LinuxProcessEvents::narrow() {
  if (!connector_.isOpen()) return;
  const auto load = [](size_t offset) {
    return sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset));
  };
  // Words are compared in network order.
  const auto skipUnless = [](uint32_t value, uint8_t ifEqual, uint8_t otherwise) {
    return sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, htonl(value), ifEqual, otherwise);
  };
  const sock_filter drop = BPF_STMT(BPF_RET | BPF_K, 0);
  const sock_filter keep = BPF_STMT(BPF_RET | BPF_K, UINT32_MAX);
  std::vector<sock_filter> program = {load(kEventOffset), skipUnless(kForkEvent, 2, 0),
                                      skipUnless(kExecEvent, 1, 0), drop};
  if (processes_.size() <= kMostInFilter) {
    program.push_back(load(kProcessOffset));
    for (const auto &process : processes_) {
      program.push_back(skipUnless(static_cast<uint32_t>(process.first), 0, 1));
      program.push_back(keep);
    }
    program.push_back(drop);
  } else {
    program.push_back(keep);
  }
  sock_fprog filter{};
  filter.len = static_cast<unsigned short>(program.size());
  filter.filter = program.data();
  // Without one there are only more messages.
  [[maybe_unused]] const int result =
      __real_setsockopt(connector_.get(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

Errno LinuxProcessEvents::watch(pid_t pid) {
  if (pid <= 0) return darwin::DARWIN_ESRCH;
  FileHandle process(static_cast<int>(__real_syscall(SYS_pidfd_open, pid, 0)));
  // Some kernels have an error of their own for a thread's number.
  if (!process.isOpen()) {
    return errno == EINVAL || errno == ENOENT ? darwin::DARWIN_ESRCH : darwinError(errno);
  }
  pollfd exited = {process.get(), POLLIN, 0};
  if (poll(&exited, 1, 0) > 0) return darwin::DARWIN_ESRCH;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!addTo(ready_.get(), process.get())) return darwinError(errno);
  processes_.insert_or_assign(pid, std::move(process));
  narrow();
  return kAnswered;
}

void LinuxProcessEvents::unwatch(pid_t pid) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (processes_.erase(pid) > 0) narrow();
}

void LinuxProcessEvents::takeMessages(std::vector<ProcessEvent> &events) {
  uint8_t buffer[1024];
  size_t size = 0;
  ProcessEvent event{};
  while (connector_.isOpen() && receive(connector_.get(), buffer, size)) {
    if (parseConnectorMessage(buffer, size, event) && processes_.count(event.pid) != 0) {
      events.push_back(event);
    }
  }
}

void LinuxProcessEvents::takeExits(std::vector<ProcessEvent> &events) {
  std::vector<pollfd> waited;
  std::vector<pid_t> pids;
  for (const auto &[pid, process] : processes_) {
    waited.push_back({process.get(), POLLIN, 0});
    pids.push_back(pid);
  }
  if (poll(waited.data(), waited.size(), 0) <= 0) return;
  for (size_t i = 0; i < waited.size(); i++) {
    if (waited[i].revents != 0) events.push_back({pids[i], darwin::NOTE_EXIT});
  }
}

void LinuxProcessEvents::take(std::vector<ProcessEvent> &events) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<ProcessEvent> exits;
  takeExits(exits);
  // Afterwards: what a process did before it exited comes before its exit.
  takeMessages(events);
  events.insert(events.end(), exits.begin(), exits.end());
  for (const ProcessEvent &exit : exits) processes_.erase(exit.pid);
  if (!exits.empty()) narrow();
}

// In milliseconds as poll has them, rounded up; -1 is without end.
static int pollTime(std::optional<Clock::time_point> deadline) {
  if (!deadline) return -1;
  const auto left = std::chrono::ceil<Milliseconds>(*deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<Milliseconds::rep>(left, 0, INT_MAX));
}

Errno LinuxProcessEvents::wait(std::optional<Nanoseconds> timeout,
                               std::vector<ProcessEvent> &events) {
  std::optional<Clock::time_point> deadline;
  if (timeout) deadline = Clock::now() + *timeout;
  events.clear();
  for (;;) {
    // Unlike epoll_wait, this call goes on by itself after the program was stopped and continued.
    pollfd waited = {ready_.get(), POLLIN, 0};
    const int result = poll(&waited, 1, pollTime(deadline));
    if (result < 0) return errno == EINTR ? darwin::DARWIN_EINTR : darwinError(errno);
    if (result > 0) take(events);
    if (!events.empty() || (deadline && Clock::now() >= *deadline)) return kAnswered;
  }
}

}  // namespace host::linux_machine
