#include "host/linux/sock_diag.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/netlink_diag.h>
#include <linux/packet_diag.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace host::linux_machine {
namespace {

// The kernel makes its messages as large as the reader's buffer, up to this size.
constexpr size_t kReadSize = 32768;
constexpr size_t kMaximumSockets = 1000000;
constexpr size_t kLongestName = 108;
constexpr auto kPatience = std::chrono::seconds(1);

struct Source {
  uint8_t family;
  int protocol;  // of the Internet families
  uint8_t type;  // where the answer does not say it
};

constexpr Source kSources[kSocketSources] = {
    {AF_INET, IPPROTO_MPTCP, SOCK_STREAM},
    {AF_INET6, IPPROTO_MPTCP, SOCK_STREAM},
    {AF_INET, IPPROTO_TCP, SOCK_STREAM},
    {AF_INET6, IPPROTO_TCP, SOCK_STREAM},
    {AF_INET, IPPROTO_UDP, SOCK_DGRAM},
    {AF_INET6, IPPROTO_UDP, SOCK_DGRAM},
    {AF_INET, IPPROTO_RAW, SOCK_RAW},
    {AF_INET6, IPPROTO_RAW, SOCK_RAW},
    {AF_UNIX, 0, 0},
    {AF_NETLINK, 0, 0},
    {AF_PACKET, 0, 0},
};

const Source &sourceOf(SocketSource source) {
  return kSources[static_cast<size_t>(source)];
}

// A piece of a message. The bytes need not be aligned, so values are copied out.
struct Span {
  const uint8_t *bytes;
  size_t size;

  template <typename T>
  bool read(size_t offset, T &value) const {
    if (offset > size || size - offset < sizeof(T)) return false;
    memcpy(&value, bytes + offset, sizeof(T));
    return true;
  }
  Span from(size_t offset) const {
    const size_t start = std::min(offset, size);
    return {bytes + start, size - start};
  }
};

template <typename Visitor>
void eachAttribute(Span attributes, Visitor visit) {
  nlattr header;
  while (attributes.read(0, header)) {
    if (header.nla_len < NLA_HDRLEN || header.nla_len > attributes.size) return;
    visit(header.nla_type & NLA_TYPE_MASK,
          Span{attributes.bytes + NLA_HDRLEN, header.nla_len - size_t{NLA_HDRLEN}});
    attributes = attributes.from(NLA_ALIGN(header.nla_len));
  }
}

void readLimits(Span attribute, DiagSocket &socket) {
  attribute.read(SK_MEMINFO_RCVBUF * sizeof(uint32_t), socket.receiveLimit);
  attribute.read(SK_MEMINFO_SNDBUF * sizeof(uint32_t), socket.sendLimit);
}

bool parseInternet(Span payload, SocketSource source, DiagSocket &socket) {
  inet_diag_msg message;
  if (!payload.read(0, message) || message.idiag_family != sourceOf(source).family) return false;
  socket.inode = message.idiag_inode;
  socket.state = message.idiag_state;
  socket.type = sourceOf(source).type;
  memcpy(socket.localAddress.data(), message.id.idiag_src, socket.localAddress.size());
  memcpy(socket.foreignAddress.data(), message.id.idiag_dst, socket.foreignAddress.size());
  // A raw socket has no ports: its protocol number stands there.
  if (socket.type != SOCK_RAW) {
    socket.localPort = message.id.idiag_sport;
    socket.foreignPort = message.id.idiag_dport;
  }
  socket.receiveQueue = message.idiag_rqueue;
  socket.sendQueue = message.idiag_wqueue;
  eachAttribute(payload.from(NLMSG_ALIGN(sizeof(message))), [&](int type, Span attribute) {
    uint8_t ipv6Only;
    if (type == INET_DIAG_SKMEMINFO) readLimits(attribute, socket);
    if (type == INET_DIAG_PROTOCOL && socket.type == SOCK_RAW) attribute.read(0, socket.protocol);
    if (type == INET_DIAG_SKV6ONLY && attribute.read(0, ipv6Only)) socket.ipv6Only = ipv6Only != 0;
  });
  return true;
}

bool parseUnix(Span payload, DiagSocket &socket, std::string &names) {
  unix_diag_msg message;
  if (!payload.read(0, message) || message.udiag_family != AF_UNIX) return false;
  socket.inode = message.udiag_ino;
  socket.state = message.udiag_state;
  socket.type = message.udiag_type;
  eachAttribute(payload.from(NLMSG_ALIGN(sizeof(message))), [&](int type, Span attribute) {
    unix_diag_rqlen queues;
    switch (type) {
      case UNIX_DIAG_NAME:
        if (socket.nameLength != 0) break;
        socket.nameStart = static_cast<uint32_t>(names.size());
        socket.nameLength = static_cast<uint32_t>(std::min(attribute.size, kLongestName));
        names.append(reinterpret_cast<const char *>(attribute.bytes), socket.nameLength);
        break;
      case UNIX_DIAG_PEER:
        attribute.read(0, socket.peerInode);
        break;
      case UNIX_DIAG_RQLEN:
        if (!attribute.read(0, queues)) break;
        socket.receiveQueue = queues.udiag_rqueue;
        socket.sendQueue = queues.udiag_wqueue;
        break;
      case UNIX_DIAG_MEMINFO:
        readLimits(attribute, socket);
        break;
      default:
        break;
    }
  });
  return true;
}

bool parseNetlink(Span payload, DiagSocket &socket) {
  netlink_diag_msg message;
  if (!payload.read(0, message) || message.ndiag_family != AF_NETLINK) return false;
  socket.inode = message.ndiag_ino;
  socket.state = message.ndiag_state;
  socket.type = message.ndiag_type;
  socket.protocol = message.ndiag_protocol;
  socket.portID = message.ndiag_portid;
  eachAttribute(payload.from(NLMSG_ALIGN(sizeof(message))), [&](int type, Span attribute) {
    if (type == NETLINK_DIAG_MEMINFO) readLimits(attribute, socket);
  });
  return true;
}

bool parsePacket(Span payload, DiagSocket &socket) {
  packet_diag_msg message;
  if (!payload.read(0, message) || message.pdiag_family != AF_PACKET) return false;
  socket.inode = message.pdiag_ino;
  socket.type = message.pdiag_type;
  eachAttribute(payload.from(NLMSG_ALIGN(sizeof(message))), [&](int type, Span attribute) {
    if (type == PACKET_DIAG_MEMINFO) readLimits(attribute, socket);
    if (type == PACKET_DIAG_INFO) {
      attribute.read(offsetof(packet_diag_info, pdi_index), socket.interfaceIndex);
    }
  });
  return true;
}

bool parseSocket(Span payload, SocketSource source, DiagSocket &socket, std::string &names) {
  switch (source) {
    case SocketSource::unixDomain:
      return parseUnix(payload, socket, names);
    case SocketSource::netlink:
      return parseNetlink(payload, socket);
    case SocketSource::packet:
      return parsePacket(payload, socket);
    default:
      return parseInternet(payload, source, socket);
  }
}

// Requests are a netlink header, a request of the family, and for protocols above 255 an attribute.
struct Request {
  size_t size = sizeof(nlmsghdr);
  alignas(nlmsghdr) uint8_t bytes[256] = {};

  template <typename T>
  void append(const T &value) {
    static_assert(sizeof(T) % NLMSG_ALIGNTO == 0);
    memcpy(bytes + size, &value, sizeof(T));
    size += sizeof(T);
  }
};

void appendInternet(Request &request, const Source &source) {
  inet_diag_req_v2 query = {};
  query.sdiag_family = source.family;
  query.sdiag_protocol = static_cast<uint8_t>(std::min(source.protocol, int{IPPROTO_RAW}));
  query.idiag_ext = 1 << (INET_DIAG_SKMEMINFO - 1);
  query.idiag_states = ~0U;
  request.append(query);
  if (source.protocol > UINT8_MAX) {
    request.append(nlattr{NLA_HDRLEN + sizeof(uint32_t), INET_DIAG_REQ_PROTOCOL});
    request.append(static_cast<uint32_t>(source.protocol));
  }
}

void appendQuery(Request &request, SocketSource source) {
  if (source == SocketSource::unixDomain) {
    unix_diag_req query = {};
    query.sdiag_family = AF_UNIX;
    query.udiag_states = ~0U;
    query.udiag_show = UDIAG_SHOW_NAME | UDIAG_SHOW_PEER | UDIAG_SHOW_RQLEN | UDIAG_SHOW_MEMINFO;
    request.append(query);
  } else if (source == SocketSource::netlink) {
    netlink_diag_req query = {};
    query.sdiag_family = AF_NETLINK;
    query.sdiag_protocol = NDIAG_PROTO_ALL;
    query.ndiag_show = NDIAG_SHOW_MEMINFO;
    request.append(query);
  } else if (source == SocketSource::packet) {
    packet_diag_req query = {};
    query.sdiag_family = AF_PACKET;
    query.pdiag_show = PACKET_SHOW_INFO | PACKET_SHOW_MEMINFO;
    request.append(query);
  } else {
    appendInternet(request, sourceOf(source));
  }
}

bool isUnsupported(int error) {
  return error == ENOENT || error == EINVAL || error == EOPNOTSUPP || error == EAFNOSUPPORT ||
         error == EPROTONOSUPPORT;
}

}  // namespace

void parseSockets(const uint8_t *bytes, size_t size, SocketSource source, uint32_t sequence,
                  std::vector<DiagSocket> &sockets, std::string &names, DumpProgress &progress) {
  Span rest{bytes, size};
  while (!progress.done && rest.size > 0) {
    nlmsghdr header;
    if (!rest.read(0, header) || header.nlmsg_len < NLMSG_HDRLEN || header.nlmsg_len > rest.size) {
      progress.malformed = true;
      return;
    }
    const Span payload{rest.bytes + NLMSG_HDRLEN, header.nlmsg_len - size_t{NLMSG_HDRLEN}};
    // As wide as the length field, so that aligning the largest length can't wrap to 0.
    rest = rest.from((size_t{header.nlmsg_len} + NLMSG_ALIGNTO - 1) & ~size_t{NLMSG_ALIGNTO - 1});
    if (header.nlmsg_seq != sequence) continue;
    if ((header.nlmsg_flags & NLM_F_DUMP_INTR) != 0) progress.interrupted = true;
    if (header.nlmsg_type == NLMSG_DONE || header.nlmsg_type == NLMSG_ERROR) {
      int32_t error = 0;
      const bool present = payload.read(0, error);
      progress.done = true;
      progress.malformed = header.nlmsg_type == NLMSG_ERROR && !present;
      progress.error = error < 0 && error > INT32_MIN ? -error : 0;
    } else if (header.nlmsg_type == SOCK_DIAG_BY_FAMILY) {
      DiagSocket socket;
      if (!parseSocket(payload, source, socket, names)) {
        progress.malformed = true;
        return;
      }
      socket.source = source;
      if (socket.inode != 0) sockets.push_back(socket);
    }
  }
}

SockDiag::~SockDiag() {
  disconnect();
}

bool SockDiag::connect() {
  if (socket_ >= 0) return true;
  socket_ = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
  if (socket_ < 0) return false;
  const timeval patience = {std::chrono::seconds(kPatience).count(), 0};
  if (setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) != 0) {
    disconnect();
    return false;
  }
  buffer_.resize(kReadSize);
  return true;
}

void SockDiag::disconnect() {
  if (socket_ >= 0) close(socket_);
  socket_ = -1;
}

bool SockDiag::request(SocketSource source) {
  Request request;
  appendQuery(request, source);
  nlmsghdr header = {};
  header.nlmsg_len = static_cast<uint32_t>(request.size);
  header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  header.nlmsg_seq = ++sequence_;
  memcpy(request.bytes, &header, sizeof(header));

  sockaddr_nl kernel = {};
  kernel.nl_family = AF_NETLINK;
  const ssize_t sent = sendto(socket_, request.bytes, request.size, MSG_NOSIGNAL,
                              reinterpret_cast<const sockaddr *>(&kernel), sizeof(kernel));
  return sent == static_cast<ssize_t>(request.size);
}

DumpProgress SockDiag::receive(SocketSource source, std::vector<DiagSocket> &sockets,
                               std::string &names) {
  DumpProgress progress;
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!progress.done && !progress.malformed) {
    if (std::chrono::steady_clock::now() >= deadline || sockets.size() > kMaximumSockets) {
      progress.malformed = true;
      break;
    }
    sockaddr_nl sender = {};
    socklen_t senderSize = sizeof(sender);
    const ssize_t got = recvfrom(socket_, buffer_.data(), buffer_.size(), MSG_TRUNC,
                                 reinterpret_cast<sockaddr *>(&sender), &senderSize);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0 || static_cast<size_t>(got) > buffer_.size()) {
      progress.malformed = true;
      break;
    }
    // Any process may write to a netlink socket; only the kernel has port 0.
    if (senderSize != sizeof(sender) || sender.nl_pid != 0) continue;
    parseSockets(buffer_.data(), static_cast<size_t>(got), source, sequence_, sockets, names,
                 progress);
  }
  return progress;
}

bool SockDiag::dump(SocketSource source, std::vector<DiagSocket> &sockets, std::string &names) {
  if (missing_[static_cast<size_t>(source)]) return false;
  const size_t socketsBefore = sockets.size();
  const size_t namesBefore = names.size();
  constexpr int kTries = 2;
  for (int attempt = 1; attempt <= kTries; attempt++) {
    sockets.resize(socketsBefore);
    names.resize(namesBefore);
    if (!connect()) return false;
    DumpProgress progress;
    if (request(source)) {
      progress = receive(source, sockets, names);
    } else {
      progress.malformed = true;
    }
    if (progress.malformed) {
      // The rest of that answer may still come: a new connection does not see it.
      disconnect();
      break;
    }
    if (progress.error != 0) {
      missing_[static_cast<size_t>(source)] = isUnsupported(progress.error);
      break;
    }
    if (!progress.interrupted || attempt == kTries) return true;
  }
  sockets.resize(socketsBefore);
  names.resize(namesBefore);
  return false;
}

}  // namespace host::linux_machine
