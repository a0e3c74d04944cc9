#include "host/linux/socket_table.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>

#include "darwin/socket.h"
#include "host/copy_text.h"
#include "host/darwin/proc_info.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {
namespace {

using std::chrono::milliseconds;

// How old a reading must be before an unknown socket makes it worth another.
constexpr milliseconds kRereadAfter(30);
// A caller that never begins a pass still sees changes after this time.
constexpr milliseconds kLongestUse(250);
// A reading takes longer the more sockets there are. Within a pass it is used for at least so many
// times its own duration: readings then are a fixed share of the work, and never the most of it.
constexpr int kUseForDurations = 10;

// SO_ACCEPTCONN: the socket listens.
constexpr int16_t kListens = 0x2;

struct NetlinkName {
  uint8_t protocol;
  const char *name;
};

constexpr NetlinkName kNetlinkNames[] = {
    {NETLINK_ROUTE, "route"},         {NETLINK_USERSOCK, "usersock"},
    {NETLINK_FIREWALL, "firewall"},   {NETLINK_SOCK_DIAG, "sock_diag"},
    {NETLINK_NFLOG, "nflog"},         {NETLINK_XFRM, "xfrm"},
    {NETLINK_SELINUX, "selinux"},     {NETLINK_ISCSI, "iscsi"},
    {NETLINK_AUDIT, "audit"},         {NETLINK_FIB_LOOKUP, "fib_lookup"},
    {NETLINK_CONNECTOR, "connector"}, {NETLINK_NETFILTER, "netfilter"},
    {NETLINK_IP6_FW, "ip6_fw"},       {NETLINK_KOBJECT_UEVENT, "kobject_uevent"},
    {NETLINK_GENERIC, "generic"},     {NETLINK_SCSITRANSPORT, "scsitransport"},
    {NETLINK_ECRYPTFS, "ecryptfs"},   {NETLINK_RDMA, "rdma"},
    {NETLINK_CRYPTO, "crypto"},       {NETLINK_SMC, "smc"},
};

// What the sockets of a source are on Darwin.
struct Family {
  SocketSource source;
  int32_t family;
  int32_t protocol;
  int32_t kind;
};

// Multipath TCP is an ordinary stream to its user, and is shown as one.
constexpr Family kFamilies[kSocketSources] = {
    {SocketSource::mptcp4, darwin::DARWIN_AF_INET, darwin::DARWIN_IPPROTO_TCP,
     darwin::SOCKINFO_TCP},
    {SocketSource::mptcp6, darwin::DARWIN_AF_INET6, darwin::DARWIN_IPPROTO_TCP,
     darwin::SOCKINFO_TCP},
    {SocketSource::tcp4, darwin::DARWIN_AF_INET, darwin::DARWIN_IPPROTO_TCP, darwin::SOCKINFO_TCP},
    {SocketSource::tcp6, darwin::DARWIN_AF_INET6, darwin::DARWIN_IPPROTO_TCP, darwin::SOCKINFO_TCP},
    {SocketSource::udp4, darwin::DARWIN_AF_INET, darwin::DARWIN_IPPROTO_UDP, darwin::SOCKINFO_IN},
    {SocketSource::udp6, darwin::DARWIN_AF_INET6, darwin::DARWIN_IPPROTO_UDP, darwin::SOCKINFO_IN},
    {SocketSource::raw4, darwin::DARWIN_AF_INET, 0, darwin::SOCKINFO_IN},
    {SocketSource::raw6, darwin::DARWIN_AF_INET6, 0, darwin::SOCKINFO_IN},
    {SocketSource::unixDomain, darwin::DARWIN_AF_UNIX, 0, darwin::SOCKINFO_UN},
    {SocketSource::netlink, darwin::DARWIN_AF_SYSTEM, darwin::SYSPROTO_CONTROL,
     darwin::SOCKINFO_KERN_CTL},
    {SocketSource::packet, darwin::DARWIN_AF_NDRV, 0, darwin::SOCKINFO_NDRV},
};

struct ProtocolName {
  std::string_view name;
  SocketSource source;
  uint8_t type;
};

// "UNIX" covers datagrams and sequenced packets alike, "NETLINK" and "PACKET" two types each.
constexpr ProtocolName kProtocolNames[] = {
    {"MPTCP", SocketSource::mptcp4, SOCK_STREAM},
    {"MPTCPv6", SocketSource::mptcp6, SOCK_STREAM},
    {"NETLINK", SocketSource::netlink, 0},
    {"PACKET", SocketSource::packet, 0},
    {"RAW", SocketSource::raw4, SOCK_RAW},
    {"RAWv6", SocketSource::raw6, SOCK_RAW},
    {"TCP", SocketSource::tcp4, SOCK_STREAM},
    {"TCPv6", SocketSource::tcp6, SOCK_STREAM},
    {"UDP", SocketSource::udp4, SOCK_DGRAM},
    {"UDPv6", SocketSource::udp6, SOCK_DGRAM},
    {"UNIX", SocketSource::unixDomain, 0},
    {"UNIX-STREAM", SocketSource::unixDomain, SOCK_STREAM},
};

const Family &familyOf(SocketSource source) {
  return kFamilies[static_cast<size_t>(source)];
}

void fillAddress(const uint8_t *bytes, bool ipv4, darwin::in_sockinfo_address &address) {
  if (ipv4) {
    memcpy(&address.ina_46.i46a_addr4, bytes, sizeof(address.ina_46.i46a_addr4));
  } else {
    memcpy(&address.ina_6, bytes, sizeof(address.ina_6));
  }
}

void fillInternet(const DiagSocket &socket, darwin::in_sockinfo &info) {
  const bool inet4 = familyOf(socket.source).family == darwin::DARWIN_AF_INET;
  // An IPv6 socket in use with IPv4 addresses is an IPv4 one to Darwin, too.
  const bool mapped = !inet4 && isIPv4Mapped(socket.localAddress);
  const bool ipv4 = inet4 || mapped;
  const size_t start = mapped ? 12 : 0;
  info.insi_lport = socket.localPort;
  info.insi_fport = socket.foreignPort;
  fillAddress(socket.localAddress.data() + start, ipv4, info.insi_laddr);
  // A mapped socket that is not connected has an all-zero foreign address, which reads the same.
  fillAddress(socket.foreignAddress.data() + start, ipv4, info.insi_faddr);
  if (ipv4) {
    info.insi_vflag = darwin::INI_IPV4;
  } else {
    const bool any = socket.localAddress == std::array<uint8_t, 16>{};
    info.insi_vflag =
        any && !socket.ipv6Only ? darwin::INI_IPV4 | darwin::INI_IPV6 : darwin::INI_IPV6;
  }
}

// Abstract names, which begin with a NUL, are shown the way the system's own tools write them.
void fillUnixName(std::string_view name, darwin::un_sockinfo_address &address) {
  if (name.empty()) return;
  const bool abstract = name[0] == '\0';
  if (!abstract) name = name.substr(0, name.find('\0'));
  darwin::sockaddr_un &local = address.ua_sun;
  const size_t length = std::min(name.size(), sizeof(local.sun_path));
  memcpy(local.sun_path, name.data(), length);
  if (abstract) std::replace(local.sun_path, local.sun_path + length, '\0', '@');
  local.sun_len = static_cast<uint8_t>(offsetof(darwin::sockaddr_un, sun_path) + length);
  local.sun_family = darwin::DARWIN_AF_UNIX;
}

void fillNetlink(const DiagSocket &socket, darwin::kern_ctl_info &info) {
  const auto *known = std::find_if(
      std::begin(kNetlinkNames), std::end(kNetlinkNames),
      [&](const NetlinkName &candidate) { return candidate.protocol == socket.protocol; });
  if (known != std::end(kNetlinkNames)) {
    snprintf(info.kcsi_name, sizeof(info.kcsi_name), "netlink:%s", known->name);
  } else {
    snprintf(info.kcsi_name, sizeof(info.kcsi_name), "netlink:%u", unsigned{socket.protocol});
  }
  info.kcsi_id = socket.protocol;
  info.kcsi_unit = socket.portID;
  info.kcsi_recvbufsize = socket.receiveLimit;
  info.kcsi_sendbufsize = socket.sendLimit;
}

// "eth0" has the name and the unit number apart on Darwin.
void fillPacket(const DiagSocket &socket, darwin::ndrv_info &info) {
  static_assert(sizeof(info.ndrvsi_if_name) >= IF_NAMESIZE);
  char name[IF_NAMESIZE] = "";
  if (socket.interfaceIndex == 0 || if_indextoname(socket.interfaceIndex, name) == nullptr) return;
  memcpy(info.ndrvsi_if_name, name, sizeof(name));
}

int16_t clampShort(uint32_t value) {
  return static_cast<int16_t>(std::min<uint32_t>(value, std::numeric_limits<int16_t>::max()));
}

void fillQueues(const DiagSocket &socket, darwin::socket_info &info) {
  info.soi_rcv.sbi_hiwat = socket.receiveLimit;
  info.soi_snd.sbi_hiwat = socket.sendLimit;
  // The kernel numbers the states of unix sockets as those of TCP.
  const bool canListen = info.soi_kind == darwin::SOCKINFO_TCP ||
                         (info.soi_kind == darwin::SOCKINFO_UN && socket.type != SOCK_DGRAM);
  if (canListen && socket.state == kTcpListen) {
    info.soi_options = kListens;
    info.soi_qlen = clampShort(socket.receiveQueue);
    info.soi_qlimit = clampShort(socket.sendQueue);
  } else {
    info.soi_rcv.sbi_cc = socket.receiveQueue;
    info.soi_snd.sbi_cc = socket.sendQueue;
  }
}

void fillFamily(SocketSource source, int32_t type, int32_t protocol, darwin::socket_info &info) {
  const Family &family = familyOf(source);
  info.soi_family = family.family;
  info.soi_kind = family.kind;
  info.soi_type = type;
  const bool raw = source == SocketSource::raw4 || source == SocketSource::raw6;
  info.soi_protocol = raw ? protocol : family.protocol;
}

}  // namespace

int32_t tcpState(uint8_t state) {
  switch (state) {
    case kTcpEstablished:
      return darwin::TSI_S_ESTABLISHED;
    case kTcpSynSent:
      return darwin::TSI_S_SYN_SENT;
    case kTcpSynReceived:
    case kTcpNewSynReceived:
      return darwin::TSI_S_SYN_RECEIVED;
    case kTcpFinWait1:
      return darwin::TSI_S_FIN_WAIT_1;
    case kTcpFinWait2:
      return darwin::TSI_S_FIN_WAIT_2;
    case kTcpTimeWait:
      return darwin::TSI_S_TIME_WAIT;
    case kTcpCloseWait:
      return darwin::TSI_S__CLOSE_WAIT;
    case kTcpLastAck:
      return darwin::TSI_S_LAST_ACK;
    case kTcpListen:
      return darwin::TSI_S_LISTEN;
    case kTcpClosing:
      return darwin::TSI_S_CLOSING;
    default:  // closed, or bound and idle
      return darwin::TSI_S_CLOSED;
  }
}

static void dumpIf(bool (*isWanted)(const Family &family), SockDiag &kernel,
                   std::vector<DiagSocket> &sockets, std::string &names) {
  for (const Family &family : kFamilies) {
    if (isWanted(family)) kernel.dump(family.source, sockets, names);
  }
}

static bool isLocal(const Family &family) {
  return family.family != darwin::DARWIN_AF_INET && family.family != darwin::DARWIN_AF_INET6;
}

void dumpLocalSockets(SockDiag &kernel, std::vector<DiagSocket> &sockets, std::string &names) {
  dumpIf(isLocal, kernel, sockets, names);
}

// The kernel walks its table for multipath connections whether there are any or not: the counts of
// protocols are had for a hundredth of that.
static void dumpMultipath(SockDiag &kernel, std::vector<DiagSocket> &sockets, std::string &names) {
  FileReader reader;
  std::string_view protocols;
  const bool isTold =
      reader.readList(AT_FDCWD, "/proc/thread-self/net/protocols", protocols) == kAnswered;
  if (!isTold || countsSockets(protocols, "MPTCP")) {
    kernel.dump(SocketSource::mptcp4, sockets, names);
  }
  if (!isTold || countsSockets(protocols, "MPTCPv6")) {
    kernel.dump(SocketSource::mptcp6, sockets, names);
  }
}

void dumpInternetSockets(SockDiag &kernel, std::vector<DiagSocket> &sockets, std::string &names) {
  kernel.dumpTcp(sockets);
  dumpMultipath(kernel, sockets, names);
  dumpIf([](const Family &family) { return family.kind == darwin::SOCKINFO_IN; }, kernel, sockets,
         names);
}

SocketTable::SocketTable() : SocketTable({}, std::chrono::steady_clock::now) {
  const auto kernel = std::make_shared<SockDiag>();
  const auto add = [&](decltype(dumpLocalSockets) *dump) {
    Reading &reading = readings_.emplace_back();
    reading.dump = [kernel, dump](std::vector<DiagSocket> &sockets, std::string &names) {
      dump(*kernel, sockets, names);
    };
  };
  add(dumpLocalSockets);
  add(dumpInternetSockets);
}

SocketTable::SocketTable(std::vector<Dump> dumps, Clock clock) : clock_(std::move(clock)) {
  for (Dump &dump : dumps) readings_.emplace_back().dump = std::move(dump);
}

void SocketTable::beginPass() {
  for (Reading &reading : readings_) reading.isCurrent = false;
}

void SocketTable::read(Reading &reading) {
  const auto start = clock_();
  reading.sockets.clear();
  reading.names.clear();
  reading.dump(reading.sockets, reading.names);
  // A subflow of multipath TCP carries the inode of its owner, which comes first by its source.
  std::sort(reading.sockets.begin(), reading.sockets.end(),
            [](const DiagSocket &a, const DiagSocket &b) {
              return a.inode != b.inode ? a.inode < b.inode : a.source < b.source;
            });
  reading.readAt = clock_();
  reading.duration = reading.readAt - start;
  reading.isCurrent = true;
}

bool SocketTable::isOlderThan(const Reading &reading,
                              std::chrono::steady_clock::duration age) const {
  return clock_() - reading.readAt >= std::max(age, reading.duration * kUseForDurations);
}

const DiagSocket *SocketTable::Reading::find(uint64_t inode) const {
  const auto found =
      std::lower_bound(sockets.begin(), sockets.end(), inode,
                       [](const DiagSocket &socket, uint64_t key) { return socket.inode < key; });
  return found != sockets.end() && found->inode == inode ? &*found : nullptr;
}

std::string_view SocketTable::Reading::nameOf(const DiagSocket &socket) const {
  if (socket.nameStart > names.size()) return {};
  return std::string_view(names).substr(socket.nameStart, socket.nameLength);
}

bool SocketTable::describe(uint64_t inode, darwin::socket_info &info) {
  info.soi_so = inode;
  const auto isFoundIn = [&](const Reading &reading) {
    const DiagSocket *socket = reading.find(inode);
    if (socket != nullptr) fill(reading, *socket, info);
    return socket != nullptr;
  };
  for (Reading &reading : readings_) {
    if (!reading.isCurrent || isOlderThan(reading, kLongestUse)) read(reading);
    if (isFoundIn(reading)) return true;
  }
  for (Reading &reading : readings_) {
    if (!isOlderThan(reading, kRereadAfter)) continue;
    read(reading);
    if (isFoundIn(reading)) return true;
  }
  return false;
}

void SocketTable::fill(const Reading &reading, const DiagSocket &socket,
                       darwin::socket_info &info) {
  fillFamily(socket.source, socket.type, socket.protocol, info);
  fillQueues(socket, info);
  switch (info.soi_kind) {
    case darwin::SOCKINFO_TCP:
      fillInternet(socket, info.soi_proto.pri_tcp.tcpsi_ini);
      info.soi_proto.pri_tcp.tcpsi_state = tcpState(socket.state);
      break;
    case darwin::SOCKINFO_IN:
      fillInternet(socket, info.soi_proto.pri_in);
      break;
    case darwin::SOCKINFO_UN:
      info.soi_proto.pri_un.unsi_conn_so = socket.peerInode;
      fillUnixName(reading.nameOf(socket), info.soi_proto.pri_un.unsi_addr);
      if (socket.peerInode == 0) break;
      if (const DiagSocket *peer = reading.find(socket.peerInode); peer != nullptr) {
        fillUnixName(reading.nameOf(*peer), info.soi_proto.pri_un.unsi_caddr);
      }
      break;
    case darwin::SOCKINFO_KERN_CTL:
      fillNetlink(socket, info.soi_proto.pri_kern_ctl);
      break;
    case darwin::SOCKINFO_NDRV:
      fillPacket(socket, info.soi_proto.pri_ndrv);
      break;
    default:
      break;
  }
}

bool countsSockets(std::string_view protocols, std::string_view name) {
  const auto nextWord = [](std::string_view &line) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(word.size());
    return word;
  };
  bool isTable = false;
  while (!protocols.empty()) {
    std::string_view line = protocols.substr(0, protocols.find('\n'));
    protocols.remove_prefix(std::min(line.size() + 1, protocols.size()));
    const std::string_view protocol = nextWord(line);
    const std::string_view size = nextWord(line);
    const std::string_view sockets = nextWord(line);
    if (protocol == "protocol" && size == "size" && sockets == "sockets") isTable = true;
    if (protocol == name) return sockets != "0";
  }
  return !isTable;
}

static const ProtocolName *findProtocol(std::string_view name) {
  const auto *found =
      std::find_if(std::begin(kProtocolNames), std::end(kProtocolNames),
                   [name](const ProtocolName &candidate) { return candidate.name == name; });
  return found != std::end(kProtocolNames) ? found : nullptr;
}

bool isListedProtocol(std::string_view name) {
  return findProtocol(name) != nullptr;
}

void describeUnlisted(std::string_view protocolName, darwin::socket_info &info) {
  const ProtocolName *known = findProtocol(protocolName);
  fillFamily(known != nullptr ? known->source : SocketSource::netlink,
             known != nullptr ? known->type : 0, 0, info);
  if (info.soi_family == darwin::DARWIN_AF_INET) {
    info.soi_proto.pri_in.insi_vflag = darwin::INI_IPV4;
  } else if (info.soi_family == darwin::DARWIN_AF_INET6) {
    info.soi_proto.pri_in.insi_vflag = darwin::INI_IPV6;
  } else if (info.soi_kind == darwin::SOCKINFO_KERN_CTL) {
    copyText(known != nullptr ? "netlink" : protocolName, info.soi_proto.pri_kern_ctl.kcsi_name);
  }
}

}  // namespace host::linux_machine
