#include "host/entry/control_socket.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include "darwin/ntstat.h"
#include "darwin/socket.h"
#include "host/darwin/errors.h"
#include "host/entry/answer.h"
#include "host/entry/client_queue.h"
#include "host/entry/network_statistics.h"
#include "host/machine/kernel.h"
#include "host/machine/networks.h"
#include "host/posix.h"

namespace host {

namespace {

// Services have numbers that the kernel makes up; this is the only one here.
constexpr uint32_t kNetworkStatisticsID = 1;

// A client that does not ask is told of changes this often.
constexpr std::chrono::milliseconds kSweepEvery(3000);
// What lies in the socket pair itself can't be counted to the byte, so it is kept small: the
// service's end is ready for more while that takes half of this.
constexpr int kSendBuffer = 4096;
// A client's longest request; longer ones are lost.
constexpr size_t kLongestRequest = 4096;

// SO_RCVBUF of SOL_SOCKET, by the device's numbers, and the most bytes that its kernel grants:
// 8 MiB less what its buffers' own headers take.
constexpr int kSocketLevel = 0xFFFF;
constexpr int kReceiveBuffer = 0x1002;
constexpr int kLargestReceiveBuffer = 8 * 1024 * 1024 / (2048 + 256) * 2048;

// Of the client's queue, in bytes; its thread and the service's share it.
using QueueLimit = std::shared_ptr<std::atomic<size_t>>;

struct ControlSocket {
  ino_t inode;  // tells it from a later descriptor of the same number
  int type;
  QueueLimit limit;  // null until it is connected
};

// Never destroyed: other threads may still ask while the program exits.
struct ControlSockets {
  std::mutex mutex;
  std::map<int, ControlSocket> byDescriptor;
};

ControlSockets &controlSockets() {
  static auto *const sockets = new ControlSockets;
  return *sockets;
}

// The entry of an open control socket, or null. The caller holds the lock.
ControlSocket *findSocket(ControlSockets &sockets, int descriptor) {
  const auto found = sockets.byDescriptor.find(descriptor);
  if (found == sockets.byDescriptor.end()) return nullptr;
  struct stat file {};
  if (fstat(descriptor, &file) != 0 || file.st_ino != found->second.inode) {
    sockets.byDescriptor.erase(found);
    return nullptr;
  }
  return &found->second;
}

// As a program takes it to be from what uname() says: without a number, for one of the oldest.
KernelFamily presentedFamily() {
  return kernel().namesKernelFamily() ? kernel().kernelFamily() : KernelFamily{0};
}

// The kernel's end of a connection.
class Service {
 public:
  Service(int socket, QueueLimit limit, KernelFamily family, uint64_t firstReference)
      : socket_(socket), limit_(std::move(limit)), statistics_(family, firstReference, queue_) {}
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  // Closed last: whoever reads the end of file knows that the machine is not asked any more.
  ~Service() { close(socket_); }

  // Until the client has closed its end.
  void run() {
    while (isOpen_) {
      short wanted = POLLIN | POLLRDHUP;
      if (!queue_.isEmpty()) wanted |= POLLOUT;
      pollfd polled{socket_, wanted, 0};
      const int timeout =
          statistics_.hasSubscriptions() ? static_cast<int>(kSweepEvery.count()) : -1;
      const int ready = poll(&polled, 1, timeout);
      if (ready < 0 && errno != EINTR) return;
      if (ready == 0) sweep();
      if (ready <= 0) continue;
      if ((polled.revents & POLLOUT) != 0) sendNext();
      // A closed end is readable: an empty read.
      if ((polled.revents & (POLLIN | POLLRDHUP | POLLHUP | POLLERR)) != 0) {
        receive((polled.revents & (POLLRDHUP | POLLHUP)) != 0);
      }
    }
  }

 private:
  void sweep() {
    countUnread();
    guarded([this]() -> Errno {
      statistics_.sweep();
      return kAnswered;
    });
  }

  void receive(bool isClosed) {
    const ssize_t size = recv(socket_, request_.data(), request_.size(), MSG_DONTWAIT | MSG_TRUNC);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    // An empty datagram is no end.
    if (size < 0 || (size == 0 && isClosed)) isOpen_ = false;
    if (size <= 0 || static_cast<size_t>(size) > request_.size()) return;
    countUnread();
    // Memory that runs out costs the answer, not the connection.
    guarded([&]() -> Errno {
      statistics_.answer(request_.data(), static_cast<size_t>(size));
      return kAnswered;
    });
  }

  // What was sent is read in the order in which it was sent. Linux tells how much memory it takes,
  // which is more than its length.
  void countUnread() {
    int memory = 0;
    if (__real_ioctl(socket_, SIOCOUTQ, &memory) != 0) memory = 0;
    while (unreadBytes_ > static_cast<size_t>(memory)) {
      unreadBytes_ -= unread_.front();
      unread_.pop_front();
    }
    queue_.setUnread(unreadBytes_);
    queue_.setLimit(limit_->load());
  }

  void sendNext() {
    const ClientQueue::Datagram &next = queue_.front();
    const ssize_t sent = send(socket_, next.data(), next.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) {
      if (errno != EAGAIN && errno != EINTR && errno != ENOBUFS) isOpen_ = false;
      return;
    }
    unread_.push_back(next.size());
    unreadBytes_ += next.size();
    queue_.pop();
  }

  const int socket_;
  const QueueLimit limit_;
  bool isOpen_ = true;
  ClientQueue queue_;  // what is not sent yet
  NetworkStatistics statistics_;
  std::deque<size_t> unread_;  // lengths of what was sent
  size_t unreadBytes_ = 0;
  std::array<uint8_t, kLongestRequest> request_{};
};

void serve(int socket, QueueLimit limit, KernelFamily family, uint64_t firstReference) noexcept {
  guarded([&]() -> Errno {
    Service(socket, std::move(limit), family, firstReference).run();
    return kAnswered;
  });
}

// Signals are for the program's own threads.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked &) = delete;
  AllSignalsBlocked &operator=(const AllSignalsBlocked &) = delete;

 private:
  sigset_t before_{};
};

Errno startService(int descriptor, ControlSocket &entry) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
    return darwin::DARWIN_ENOBUFS;
  }
  // Whatever comes of it: answers are sent all the same.
  __real_setsockopt(ends[1], SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
  struct stat file {};
  // The program's descriptor keeps its number and becomes the other end.
  const bool replaced = fstat(ends[0], &file) == 0 && dup3(ends[0], descriptor, O_CLOEXEC) >= 0;
  close(ends[0]);
  if (!replaced) {
    close(ends[1]);
    return darwin::DARWIN_ENOBUFS;
  }
  entry.inode = file.st_ino;
  try {
    const AllSignalsBlocked blocked;
    auto limit = std::make_shared<std::atomic<size_t>>(ClientQueue::kUsualLimit);
    std::thread(serve, ends[1], limit, presentedFamily(), networks().firstNetworkReference())
        .detach();
    entry.limit = std::move(limit);
  } catch (...) {
    close(ends[1]);
    throw;
  }
  return kAnswered;
}

Errno connectSocket(int descriptor, const void *address, size_t length) {
  darwin::sockaddr_ctl wanted;
  if (length != sizeof wanted) return darwin::DARWIN_EINVAL;
  if (address == nullptr) return darwin::DARWIN_EFAULT;
  std::memcpy(&wanted, address, sizeof wanted);
  if (wanted.sc_len != sizeof wanted) return darwin::DARWIN_EINVAL;

  ControlSockets &sockets = controlSockets();
  const std::lock_guard<std::mutex> lock(sockets.mutex);
  ControlSocket *entry = findSocket(sockets, descriptor);
  if (entry == nullptr) return darwin::DARWIN_EBADF;
  if (entry->limit) return darwin::DARWIN_EISCONN;
  if (wanted.sc_id != kNetworkStatisticsID) return darwin::DARWIN_ENOENT;
  const Errno refusal = networks().networkStatistics();
  if (refusal == darwin::DARWIN_ENOTSUP) return darwin::DARWIN_ENOENT;
  if (refusal != kAnswered) return refusal;
  if (entry->type != darwin::DARWIN_SOCK_DGRAM) return darwin::DARWIN_EPROTOTYPE;
  return startService(descriptor, *entry);
}

}  // namespace

Errno openControlSocket(int type, int &descriptor) noexcept {
  if (type != darwin::DARWIN_SOCK_DGRAM && type != darwin::DARWIN_SOCK_STREAM) {
    return darwin::DARWIN_EPROTOTYPE;
  }
  return guarded([type, &descriptor]() -> Errno {
    // Holds the number until it is connected, and refuses to be read.
    const int opened = __real_socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    struct stat file {};
    if (opened < 0 || fstat(opened, &file) != 0) return darwin::DARWIN_ENOBUFS;
    ControlSockets &sockets = controlSockets();
    const std::lock_guard<std::mutex> lock(sockets.mutex);
    sockets.byDescriptor[opened] = {file.st_ino, type, nullptr};
    descriptor = opened;
    return kAnswered;
  });
}

bool isControlSocket(int descriptor) noexcept {
  return isSo([descriptor] {
    ControlSockets &sockets = controlSockets();
    const std::lock_guard<std::mutex> lock(sockets.mutex);
    return findSocket(sockets, descriptor) != nullptr;
  });
}

Errno controlInfo(darwin::ctl_info *info) noexcept {
  if (info == nullptr) return darwin::DARWIN_EFAULT;
  const std::string_view name(info->ctl_name, strnlen(info->ctl_name, sizeof info->ctl_name));
  if (name.empty()) return darwin::DARWIN_EINVAL;
  if (name != darwin::NET_STAT_CONTROL_NAME) return darwin::DARWIN_ENOENT;
  // Taken or not, it is there.
  const Errno error = guarded([] { return networks().networkStatistics(); });
  if (error == darwin::DARWIN_ENOTSUP) return darwin::DARWIN_ENOENT;
  if (error == darwin::DARWIN_ENOMEM) return error;
  info->ctl_id = kNetworkStatisticsID;
  return kAnswered;
}

Errno setControlSocketOption(int descriptor, int level, int option, const void *value,
                             size_t length) noexcept {
  if (level != kSocketLevel || option != kReceiveBuffer) return darwin::DARWIN_ENOPROTOOPT;
  int bytes = 0;
  if (length < sizeof bytes) return darwin::DARWIN_EINVAL;
  if (value == nullptr) return darwin::DARWIN_EFAULT;
  std::memcpy(&bytes, value, sizeof bytes);
  if (bytes < 1) return darwin::DARWIN_EINVAL;
  if (bytes > kLargestReceiveBuffer) return darwin::DARWIN_ENOBUFS;
  return guarded([descriptor, bytes]() -> Errno {
    ControlSockets &sockets = controlSockets();
    const std::lock_guard<std::mutex> lock(sockets.mutex);
    const ControlSocket *entry = findSocket(sockets, descriptor);
    if (entry == nullptr) return darwin::DARWIN_EBADF;
    // To connect sets it anew.
    if (entry->limit) entry->limit->store(static_cast<size_t>(bytes));
    return kAnswered;
  });
}

Errno connectControlSocket(int descriptor, const void *address, size_t length) noexcept {
  return guarded([=] { return connectSocket(descriptor, address, length); });
}

}  // namespace host
