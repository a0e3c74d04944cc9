#include "host/entry/control_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include "darwin/ntstat.h"
#include "darwin/socket.h"
#include "host/darwin/errors.h"
#include "host/entry/answer.h"
#include "host/entry/network_statistics.h"
#include "host/machine/networks.h"
#include "host/posix.h"

namespace host {

namespace {

// Services have numbers that the kernel makes up; this is the only one here.
constexpr uint32_t kNetworkStatisticsID = 1;

// A client that does not ask is told of changes this often.
constexpr std::chrono::milliseconds kSweepEvery(3000);
// More than this is not kept for a client that does not read: its requests are lost, as they are
// when a device's socket buffer is full.
constexpr size_t kMostWaiting = 16384;

struct ControlSocket {
  ino_t inode;  // tells it from a later descriptor of the same number
  int type;
  bool connected;
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

// The kernel's end of a connection.
class Service {
 public:
  explicit Service(int socket) : socket_(socket) {}
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;
  // Closed last: whoever reads the end of file knows that the machine is not asked any more.
  ~Service() { close(socket_); }

  // Until the client has closed its end.
  void run() {
    while (isOpen_) {
      short wanted = POLLIN | POLLRDHUP;
      if (!waiting_.empty()) wanted |= POLLOUT;
      pollfd polled{socket_, wanted, 0};
      const int timeout =
          statistics_.hasSubscriptions() ? static_cast<int>(kSweepEvery.count()) : -1;
      const int ready = poll(&polled, 1, timeout);
      if (ready < 0 && errno != EINTR) return;
      if (ready == 0) sweep();
      if (ready <= 0) continue;
      if ((polled.revents & POLLOUT) != 0) sendWaiting();
      // A closed end is readable: an empty read.
      if ((polled.revents & (POLLIN | POLLRDHUP | POLLHUP | POLLERR)) != 0) {
        receive((polled.revents & (POLLRDHUP | POLLHUP)) != 0);
      }
    }
  }

 private:
  bool isBehind() const { return waiting_.size() > kMostWaiting; }

  void sweep() {
    if (isBehind()) return;
    guarded([this]() -> Errno {
      statistics_.sweep(waiting_);
      return kAnswered;
    });
    sendWaiting();
  }

  void receive(bool isClosed) {
    const ssize_t size = recv(socket_, request_.data(), request_.size(), MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    // An empty datagram is no end.
    if (size < 0 || (size == 0 && isClosed)) isOpen_ = false;
    if (size <= 0 || isBehind()) return;
    // Memory that runs out costs the answer, not the connection.
    guarded([&]() -> Errno {
      statistics_.answer(request_.data(), static_cast<size_t>(size), waiting_);
      return kAnswered;
    });
    sendWaiting();
  }

  void sendWaiting() {
    while (!waiting_.empty()) {
      const NetworkStatistics::Datagram &next = waiting_.front();
      const ssize_t sent = send(socket_, next.data(), next.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
      if (sent < 0) {
        if (errno != EAGAIN && errno != EINTR && errno != ENOBUFS) isOpen_ = false;
        return;
      }
      waiting_.pop_front();
    }
  }

  const int socket_;
  bool isOpen_ = true;
  NetworkStatistics statistics_;
  std::deque<NetworkStatistics::Datagram> waiting_;
  std::array<uint8_t, 4096> request_{};
};

void serve(int socket) noexcept {
  guarded([socket]() -> Errno {
    Service(socket).run();
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
    std::thread(serve, ends[1]).detach();
  } catch (...) {
    close(ends[1]);
    throw;
  }
  entry.connected = true;
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
  if (entry->connected) return darwin::DARWIN_EISCONN;
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
    sockets.byDescriptor[opened] = {file.st_ino, type, false};
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

Errno connectControlSocket(int descriptor, const void *address, size_t length) noexcept {
  return guarded([=] { return connectSocket(descriptor, address, length); });
}

}  // namespace host
