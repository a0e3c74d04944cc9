#include "host/linux/sock_diag.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/netlink_diag.h>
#include <linux/packet_diag.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace host::linux_machine {
namespace {

constexpr size_t kMaximumSockets = 1000000;
constexpr size_t kLongestSocketName = 108;

constexpr uint8_t kMemoryFigures = 1 << (INET_DIAG_SKMEMINFO - 1);

// But for what is no socket any more, or not yet.
constexpr uint32_t kStatesWithInode =
    ~(1U << kTcpTimeWait | 1U << kTcpSynReceived | 1U << kTcpNewSynReceived);

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

void readLimits(Span attribute, DiagSocket &socket) {
  attribute.read(SK_MEMINFO_RCVBUF * sizeof(uint32_t), socket.receiveLimit);
  attribute.read(SK_MEMINFO_SNDBUF * sizeof(uint32_t), socket.sendLimit);
}

bool parseInternet(Span payload, SocketSource source, DiagSocket &socket) {
  inet_diag_msg message;
  if (!payload.read(0, message) || message.idiag_family != sourceOf(source).family) return false;
  socket.source = source;
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
        socket.nameLength = static_cast<uint32_t>(std::min(attribute.size, kLongestSocketName));
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

// Requests have an attribute for protocols above 255.
void appendInternet(NetlinkRequest &request, const Source &source, uint8_t extensions) {
  inet_diag_req_v2 query = {};
  query.sdiag_family = source.family;
  query.sdiag_protocol = static_cast<uint8_t>(std::min(source.protocol, int{IPPROTO_RAW}));
  query.idiag_ext = extensions;
  query.idiag_states = kStatesWithInode;
  request.append(query);
  if (source.protocol > UINT8_MAX) {
    request.append(nlattr{NLA_HDRLEN + sizeof(uint32_t), INET_DIAG_REQ_PROTOCOL});
    request.append(static_cast<uint32_t>(source.protocol));
  }
}

void appendQuery(NetlinkRequest &request, SocketSource source) {
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
    appendInternet(request, sourceOf(source), kMemoryFigures);
  }
}

// False for a malformed one.
bool addSocket(uint16_t type, Span payload, SocketSource source, std::vector<DiagSocket> &sockets,
               std::string &names) {
  if (type != SOCK_DIAG_BY_FAMILY) return true;
  DiagSocket socket;
  if (!parseSocket(payload, source, socket, names)) return false;
  socket.source = source;
  if (socket.inode != 0) sockets.push_back(socket);
  return true;
}

bool isUnsupported(int error) {
  return error == ENOENT || error == EINVAL || error == EOPNOTSUPP || error == EAFNOSUPPORT ||
         error == EPROTONOSUPPORT;
}

}  // namespace

void parseSockets(const uint8_t *bytes, size_t size, SocketSource source, uint32_t sequence,
                  std::vector<DiagSocket> &sockets, std::string &names, DumpProgress &progress) {
  readMessages(Span{bytes, size}, sequence, progress, [&](uint16_t type, Span payload) {
    return addSocket(type, payload, source, sockets, names);
  });
}

bool isIPv4Mapped(const std::array<uint8_t, 16> &address) {
  constexpr uint8_t kPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
  return memcmp(address.data(), kPrefix, sizeof(kPrefix)) == 0;
}

bool listTcpSockets(NetlinkConnection &kernel, uint8_t extensions,
                    const std::function<bool(Span payload)> &visit,
                    const std::function<void()> &forget) {
  const auto ask = [&](const NetlinkRequest &request, uint16_t requestType) {
    return kernel.ask(request, requestType, NLM_F_DUMP, [&](uint16_t type, Span payload) {
      return type != requestType || visit(payload);
    });
  };
  const auto isListed = [](const DumpProgress &progress) {
    return !progress.malformed && progress.error == 0;
  };
  // The older form names no family. For each request the kernel goes through a table that is large
  // and nearly empty.
  inet_diag_req both = {};
  both.idiag_ext = extensions;
  both.idiag_states = kStatesWithInode;
  NetlinkRequest request;
  request.append(both);
  if (isListed(listWhole([&] { return ask(request, TCPDIAG_GETSOCK); }, forget))) return true;
  forget();
  for (const SocketSource source : {SocketSource::tcp4, SocketSource::tcp6}) {
    NetlinkRequest each;
    appendInternet(each, sourceOf(source), extensions);
    if (!isListed(ask(each, SOCK_DIAG_BY_FAMILY))) return false;
  }
  return true;
}

bool SockDiag::dumpTcp(std::vector<DiagSocket> &sockets) {
  const size_t before = sockets.size();
  const auto forget = [&] { sockets.resize(before); };
  const bool isListed = listTcpSockets(
      kernel_, kMemoryFigures,
      [&](Span payload) {
        DiagSocket socket;
        const bool isTcp = parseInternet(payload, SocketSource::tcp4, socket) ||
                           parseInternet(payload, SocketSource::tcp6, socket);
        if (!isTcp || sockets.size() > kMaximumSockets) return false;
        if (socket.inode != 0) sockets.push_back(socket);
        return true;
      },
      forget);
  if (!isListed) forget();
  return isListed;
}

bool SockDiag::dump(SocketSource source, std::vector<DiagSocket> &sockets, std::string &names) {
  if (missing_[static_cast<size_t>(source)]) return false;
  const size_t socketsBefore = sockets.size();
  const size_t namesBefore = names.size();
  NetlinkRequest request;
  appendQuery(request, source);
  const auto add = [&](uint16_t type, Span payload) {
    return sockets.size() <= kMaximumSockets && addSocket(type, payload, source, sockets, names);
  };
  const auto forget = [&] {
    sockets.resize(socketsBefore);
    names.resize(namesBefore);
  };
  const DumpProgress progress =
      listWhole([&] { return kernel_.ask(request, SOCK_DIAG_BY_FAMILY, NLM_F_DUMP, add); }, forget);
  if (!progress.malformed && progress.error == 0) return true;
  missing_[static_cast<size_t>(source)] = !progress.malformed && isUnsupported(progress.error);
  forget();
  return false;
}

}  // namespace host::linux_machine
