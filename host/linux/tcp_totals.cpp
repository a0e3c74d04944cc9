#include "host/linux/tcp_totals.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "darwin/socket.h"
#include "host/linux/sock_diag.h"
#include "host/linux/socket_table.h"

namespace host::linux_machine {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// A reading serves questions for nearly a second: who asks every second gets a new one each time.
constexpr milliseconds kReadAgainAfter(900);
// A pass over all processes shows who holds a socket; a search is for what passes don't show.
constexpr seconds kSearchAfter(2);
constexpr seconds kSearchAgainAfter(10);
constexpr seconds kLongestWait(300);
constexpr size_t kMostSockets = 1000000;

bool dumpTcp(NetlinkConnection &kernel, std::vector<TcpSocket> &sockets) {
  const auto add = [&](Span payload) {
    TcpSocket socket;
    if (sockets.size() > kMostSockets || !parseTcpSocket(payload, socket)) return false;
    if (socket.inode != 0) sockets.push_back(socket);
    return true;
  };
  return listTcpSockets(kernel, 1 << (INET_DIAG_INFO - 1), add, [&] { sockets.clear(); });
}

NetworkEndpoint endpoint(const std::array<uint8_t, 16> &address, uint16_t port, bool isIPv4,
                         bool mapped) {
  NetworkEndpoint made;
  made.family = isIPv4 ? darwin::DARWIN_AF_INET : darwin::DARWIN_AF_INET6;
  made.port = port;
  if (mapped) {
    std::copy(address.begin() + 12, address.end(), made.address.begin());
  } else {
    made.address = address;
  }
  return made;
}

NetworkSource sourceOf(const TcpSocket &socket, int32_t pid, const std::string &name) {
  const bool mapped = socket.family == AF_INET6 && isIPv4Mapped(socket.localAddress);
  const bool isIPv4 = socket.family == AF_INET || mapped;
  NetworkSource source;
  source.key = socket.cookie;
  source.provider = NetworkProvider::tcp;
  source.pid = pid;
  source.process = name;
  source.local = endpoint(socket.localAddress, socket.localPort, isIPv4, mapped);
  source.remote = endpoint(socket.remoteAddress, socket.remotePort, isIPv4, mapped);
  source.interfaceIndex = socket.interfaceIndex;
  source.state = tcpState(socket.state);
  source.receivedPackets = socket.receivedPackets;
  source.receivedBytes = socket.receivedBytes;
  source.sentPackets = socket.sentPackets;
  source.sentBytes = socket.sentBytes;
  return source;
}

// The inode in "socket:[123]"; false for anything else.
bool parseSocketLink(std::string_view link, uint64_t &inode) {
  constexpr std::string_view kStart = "socket:[";
  return link.starts_with(kStart) && link.ends_with(']') &&
         parseNumber(link.substr(kStart.size(), link.size() - kStart.size() - 1), inode);
}

void searchProcess(int proc, int32_t pid, SocketOwners &wanted, SocketOwners &found) {
  const std::string path = std::to_string(pid) + "/fd";
  const FileHandle directory = openDirectory(proc, path.c_str());
  if (!directory.isOpen()) return;
  DirectoryReader lister;
  lister.readNames(directory.get(), [&](const char *name, bool) {
    char link[64];
    const ssize_t length = readlinkat(directory.get(), name, link, sizeof link);
    uint64_t inode = 0;
    if (length <= 0 || !parseSocketLink({link, static_cast<size_t>(length)}, inode)) return;
    if (wanted.contains(inode)) found.try_emplace(inode, pid);
  });
}

}  // namespace

bool parseTcpSocket(Span payload, TcpSocket &socket) {
  inet_diag_msg message;
  if (!payload.read(0, message)) return false;
  if (message.idiag_family != AF_INET && message.idiag_family != AF_INET6) return false;
  socket.cookie = uint64_t{message.id.idiag_cookie[1]} << 32 | message.id.idiag_cookie[0];
  socket.inode = message.idiag_inode;
  socket.family = message.idiag_family;
  socket.state = message.idiag_state;
  socket.localPort = ntohs(message.id.idiag_sport);
  socket.remotePort = ntohs(message.id.idiag_dport);
  std::memcpy(socket.localAddress.data(), message.id.idiag_src, socket.localAddress.size());
  std::memcpy(socket.remoteAddress.data(), message.id.idiag_dst, socket.remoteAddress.size());
  socket.interfaceIndex = message.id.idiag_if;
  eachAttribute(payload.from(NLMSG_ALIGN(sizeof(message))), [&](int type, Span attribute) {
    if (type != INET_DIAG_INFO) return;
    // Each kernel has more of it than the one before.
    tcp_info info = {};
    std::memcpy(&info, attribute.bytes, std::min(attribute.size, sizeof(info)));
    socket.receivedPackets = info.tcpi_segs_in;
    socket.receivedBytes = info.tcpi_bytes_received;
    socket.sentPackets = info.tcpi_segs_out;
    // What is sent again counts once. Kernels before 4.19 tell only what has arrived.
    const bool hasSent =
        attribute.size >= offsetof(tcp_info, tcpi_bytes_retrans) + sizeof(info.tcpi_bytes_retrans);
    socket.sentBytes = !hasSent ? info.tcpi_bytes_acked
                       : info.tcpi_bytes_sent > info.tcpi_bytes_retrans
                           ? info.tcpi_bytes_sent - info.tcpi_bytes_retrans
                           : 0;
  });
  return true;
}

void searchOwners(SocketOwners &wanted, const HasKnownSockets &isKnown) {
  const FileHandle proc = openDirectory(AT_FDCWD, "/proc");
  DirectoryReader lister;
  std::vector<int32_t> pids;
  if (!proc.isOpen() || lister.readNumbers(proc.get(), pids) != kAnswered) return;
  std::sort(pids.begin(), pids.end(), std::greater<>());
  SocketOwners found;
  for (const int32_t pid : pids) {
    if (found.size() == wanted.size()) break;
    if (!isKnown(pid)) searchProcess(proc.get(), pid, wanted, found);
  }
  for (const auto &[inode, pid] : found) wanted[inode] = pid;
}

std::string processName(int32_t pid) {
  FileReader reader;
  std::string_view text;
  const std::string path = "/proc/" + std::to_string(pid) + "/comm";
  if (reader.readRecord(AT_FDCWD, path.c_str(), text) != kAnswered) return {};
  return std::string(text.substr(0, text.find('\n')));
}

TcpTotals::TcpTotals()
    : TcpTotals(Kernel{[kernel = std::make_shared<NetlinkConnection>(NETLINK_SOCK_DIAG)](
                           std::vector<TcpSocket> &sockets) { return dumpTcp(*kernel, sockets); },
                       searchOwners, processName, std::chrono::steady_clock::now}) {}

TcpTotals::TcpTotals(Kernel kernel) : kernel_(std::move(kernel)) {}

bool TcpTotals::read(Time now) {
  if (hasRead_ && now - readAt_ < kReadAgainAfter) return true;
  sockets_.clear();
  hasRead_ = kernel_.dump(sockets_);
  readAt_ = now;
  return hasRead_;
}

// Leaves in unowned_ what `owners` does not have, with what searches found.
void TcpTotals::findOwners(const SocketOwners &owners, const HasKnownSockets &isKnown, Time now) {
  std::unordered_map<uint64_t, Unowned> unowned;
  SocketOwners wanted;
  for (const TcpSocket &socket : sockets_) {
    if (owners.contains(socket.inode)) continue;
    const auto before = unowned_.find(socket.inode);
    Unowned &entry = unowned[socket.inode];
    entry = before != unowned_.end() ? before->second : Unowned{now + kSearchAfter};
    if (entry.dueAt <= now) wanted[socket.inode] = 0;
  }
  unowned_ = std::move(unowned);
  if (wanted.empty()) return;
  kernel_.search(wanted, isKnown);
  for (const auto &[inode, pid] : wanted) {
    const bool isInVain = pid == 0 && unowned_[inode].wait > seconds(0);
    const seconds wait =
        isInVain ? std::min(2 * unowned_[inode].wait, kLongestWait) : kSearchAgainAfter;
    unowned_[inode] = {now + wait, pid, wait};
  }
}

const std::string &TcpTotals::nameOf(int32_t pid, std::unordered_map<int32_t, std::string> &names) {
  const auto known = names.find(pid);
  if (known != names.end()) return known->second;
  const auto before = names_.find(pid);
  return names[pid] = before != names_.end() ? before->second : kernel_.name(pid);
}

Errno TcpTotals::list(const SocketOwners &owners, const HasKnownSockets &isKnown,
                      std::vector<NetworkSource> &sources) {
  const Time now = kernel_.clock();
  if (!read(now)) return darwin::DARWIN_ENOTSUP;
  findOwners(owners, isKnown, now);
  std::vector<NetworkSource> listed;
  std::unordered_map<int32_t, std::string> names;
  for (const TcpSocket &socket : sockets_) {
    const auto owner = owners.find(socket.inode);
    const int32_t pid = owner != owners.end() ? owner->second : unowned_[socket.inode].pid;
    if (pid != 0) listed.push_back(sourceOf(socket, pid, nameOf(pid, names)));
  }
  names_ = std::move(names);
  sources = std::move(listed);
  return kAnswered;
}

}  // namespace host::linux_machine
