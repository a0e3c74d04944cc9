// What the Linux kernel answers over netlink. The first byte chooses what was asked; the rest is
// what one read gave, for Wi-Fi one piece for each question.
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "host/darwin/proc_info.h"
#include "host/linux/interfaces.h"
#include "host/linux/netlink.h"
#include "host/linux/process_events.h"
#include "host/linux/sock_diag.h"
#include "host/linux/socket_table.h"
#include "host/linux/tcp_totals.h"
#include "host/linux/wireless.h"

using namespace host::linux_machine;
using fuzz::check;

namespace {

constexpr uint32_t kSequence = 1;
constexpr size_t kLongestSocketName = 108;
constexpr size_t kLongestNetworkName = 32;
constexpr uint32_t kHighestChannel = 233;

enum Asked : uint8_t {
  kTcpTotals = kSocketSources,
  kInterfaces,
  kWireless,
  kConnector,
  kEnd,
};

Span spanOf(const fuzz::Copy &copy) {
  return {copy.bytes(), copy.size()};
}

void checkDescribed(SocketTable &table, uint64_t inode) {
  darwin::socket_info info = {};
  check(table.describe(inode, info));
  check(info.soi_so == inode);
  if (info.soi_kind == darwin::SOCKINFO_UN) {
    const darwin::sockaddr_un &name = info.soi_proto.pri_un.unsi_addr.ua_sun;
    check(name.sun_len <= sizeof name);
  } else if (info.soi_kind == darwin::SOCKINFO_KERN_CTL) {
    check(fuzz::isTerminated(info.soi_proto.pri_kern_ctl.kcsi_name));
  } else if (info.soi_kind == darwin::SOCKINFO_NDRV) {
    check(fuzz::isTerminated(info.soi_proto.pri_ndrv.ndrvsi_if_name));
  }
}

void readSockets(SocketSource source, const fuzz::Copy &answer) {
  std::vector<DiagSocket> sockets;
  std::string names;
  DumpProgress progress;
  parseSockets(answer.bytes(), answer.size(), source, kSequence, sockets, names, progress);
  check(names.size() <= answer.size() && sockets.size() * NLMSG_HDRLEN <= answer.size());
  check(progress.error >= 0);
  for (const DiagSocket &socket : sockets) {
    check(socket.inode != 0 && socket.source == source);
    check(socket.nameLength <= kLongestSocketName && socket.nameStart <= names.size() &&
          socket.nameLength <= names.size() - socket.nameStart);
  }
  const auto list = [&](std::vector<DiagSocket> &listed, std::string &pool) {
    listed = sockets;
    pool = names;
  };
  SocketTable table({list}, [] { return std::chrono::steady_clock::time_point{}; });
  for (const DiagSocket &socket : sockets) checkDescribed(table, socket.inode);
}

void readTcpTotals(Span answer) {
  DumpProgress progress;
  readMessages(answer, kSequence, progress, [](uint16_t, Span payload) {
    TcpSocket socket;
    if (!parseTcpSocket(payload, socket)) return false;
    tcpState(socket.state);
    return true;
  });
}

void readInterfaces(Span answer) {
  DumpProgress progress;
  readMessages(answer, kSequence, progress, [](uint16_t, Span payload) {
    host::NetworkInterface interface;
    const bool isWhole = parseInterface(payload, interface);
    check(isWhole == !interface.name.empty());
    check(interface.name.find('\0') == std::string::npos && interface.name.size() <= payload.size);
    return isWhole;
  });
}

// As many questions are answered as there are pieces, and the others not.
void readWireless(fuzz::Input &input) {
  Wireless wireless(
      [&](const NetlinkRequest &, uint16_t, uint16_t, const Wireless::Visitor &visit) {
        DumpProgress progress;
        const fuzz::Copy answer(input.piece());
        readMessages(spanOf(answer), kSequence, progress, visit);
        if (!progress.done) progress.malformed = true;
        return progress;
      });
  host::WirelessNetwork network;
  const host::Errno error = wireless.network("en0", network);
  const bool isEmpty = network.name.empty() && network.radios.empty() && network.channel == 0;
  check(network.connected ? error == host::kAnswered && !network.name.empty() : isEmpty);
  check(network.name.size() <= kLongestNetworkName && network.radios.size() <= 4 &&
        network.channel <= kHighestChannel);
}

void readConnector(const fuzz::Copy &message) {
  host::ProcessEvent event = {};
  parseConnectorMessage(message.bytes(), message.size(), event);
  int error = 0;
  parseConnectorAnswer(message.bytes(), message.size(), kSequence, error);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Input input(data, size);
  const uint8_t asked = input.byte() % kEnd;
  if (asked == kWireless) {
    readWireless(input);
    return 0;
  }
  const fuzz::Copy answer(input.rest());
  if (asked < kSocketSources) {
    readSockets(static_cast<SocketSource>(asked), answer);
  } else if (asked == kTcpTotals) {
    readTcpTotals(spanOf(answer));
  } else if (asked == kInterfaces) {
    readInterfaces(spanOf(answer));
  } else {
    readConnector(answer);
  }
  return 0;
}
