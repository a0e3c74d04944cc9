#include "host/linux/netlink.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

#include "host/posix.h"

namespace host::linux_machine {

// The kernel makes its messages as large as the reader's buffer, up to this size.
static constexpr size_t kReadSize = 32768;
static constexpr size_t kLongestText = 64;

void NetlinkRequest::appendText(uint16_t type, std::string_view text) {
  text = text.substr(0, kLongestText);
  const size_t length = NLA_HDRLEN + text.size() + 1;
  const nlattr header{static_cast<uint16_t>(length), type};
  memcpy(bytes + size, &header, sizeof(header));
  memcpy(bytes + size + NLA_HDRLEN, text.data(), text.size());
  size += NLA_ALIGN(length);
}

bool NetlinkConnection::open() {
  if (socket_ >= 0) return true;
  socket_ = __real_socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol_);
  if (socket_ < 0) return false;
  const timeval patience = {kPatience.count(), 0};
  if (__real_setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) != 0) {
    close();
    return false;
  }
  buffer_.resize(kReadSize);
  return true;
}

void NetlinkConnection::close() {
  if (socket_ >= 0) ::close(socket_);
  socket_ = -1;
}

bool NetlinkConnection::send(NetlinkRequest &request, uint16_t type, uint16_t flags) {
  nlmsghdr header = {};
  header.nlmsg_len = static_cast<uint32_t>(request.size);
  header.nlmsg_type = type;
  header.nlmsg_flags = NLM_F_REQUEST | flags;
  header.nlmsg_seq = ++sequence_;
  memcpy(request.bytes, &header, sizeof(header));

  sockaddr_nl kernel = {};
  kernel.nl_family = AF_NETLINK;
  const ssize_t sent = sendto(socket_, request.bytes, request.size, MSG_NOSIGNAL,
                              reinterpret_cast<const sockaddr *>(&kernel), sizeof(kernel));
  return sent == static_cast<ssize_t>(request.size);
}

bool NetlinkConnection::receive(Span &received) {
  sockaddr_nl sender = {};
  socklen_t senderSize = sizeof(sender);
  const ssize_t got = recvfrom(socket_, buffer_.data(), buffer_.size(), MSG_TRUNC,
                               reinterpret_cast<sockaddr *>(&sender), &senderSize);
  if (got < 0 && errno == EINTR) return true;
  if (got <= 0) return false;
  // Any process may write to a netlink socket; only the kernel has port 0.
  if (senderSize != sizeof(sender) || sender.nl_pid != 0) return true;
  if (static_cast<size_t>(got) > buffer_.size()) return false;
  received = {buffer_.data(), static_cast<size_t>(got)};
  return true;
}

}  // namespace host::linux_machine
