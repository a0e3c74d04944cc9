#include "fds/sockets.h"

#include <libkern/OSByteOrder.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "fds/socket_owners.h"
#include "proc/process_table.h"
#include "terminal/output.h"
#include "text/append.h"

namespace sondex {

constexpr size_t kLineSize = 256;

// Kept: an IPv6 address is never shown.
constexpr char kAnyIPv6[] = "[::]";

constexpr int32_t kNoSubclass = -1;  // of a filter that takes every subclass

struct SubclassName {
  int32_t subclass;
  const char *name;
};

static const SubclassName kNetworkSubclasses[] = {
    {0, "ANY"}, {1, "INET"}, {2, "DL"},       {3, "NETPOLICY"}, {4, "SOCKET"},    {6, "INET6"},
    {7, "ND6"}, {8, "NECP"}, {9, "NETAGENT"}, {10, "LOG"},      {11, "NETEVENT"}, {12, "MPTCP"},
};
static const SubclassName kSystemSubclasses[] = {{0, "ANY"}, {3, "MEMORYSTATUS"}};
static const SubclassName kAppleShareSubclasses[] = {{0, "ANY"}};

struct EventClass {
  int32_t kind;
  const char *prefix;
  const SubclassName *names;  // of some of its subclasses; the others are shown as numbers
  size_t nameCount;
};

template <size_t count>
static constexpr EventClass named(uint32_t kind, const char *prefix,
                                  const SubclassName (&names)[count]) {
  return {static_cast<int32_t>(kind), prefix, names, count};
}

static constexpr EventClass numbered(uint32_t kind, const char *prefix) {
  return {static_cast<int32_t>(kind), prefix, nullptr, 0};
}

static const EventClass kEventClasses[] = {
    numbered(darwin::KEV_ANY_CLASS, "ANY:"),
    named(darwin::KEV_NETWORK_CLASS, "NETWORK:", kNetworkSubclasses),
    numbered(darwin::KEV_IOKIT_CLASS, "IOKIT:"),
    named(darwin::KEV_SYSTEM_CLASS, "SYSTEM:", kSystemSubclasses),
    named(darwin::KEV_APPLESHARE_CLASS, "APPLESHARE:", kAppleShareSubclasses),
    numbered(darwin::KEV_FIREWALL_CLASS, "FIREWALL:"),
    numbered(darwin::KEV_IEEE80211_CLASS, "IEEE80211:"),
};

static const char *const kTCPStates[] = {"CLOSED",      "LISTEN",     "SYN_SENT",   "SYN_RCVD",
                                         "ESTABLISHED", "CLOSE_WAIT", "FIN_WAIT_1", "CLOSING",
                                         "LAST_ACK",    "FIN_WAIT_2", "TIME_WAIT",  "RESERVED"};

static const char *kindOfUnix(int32_t type) {
  if (type == darwin::DARWIN_SOCK_STREAM) return "stream";
  if (type == darwin::DARWIN_SOCK_DGRAM) return "dgram ";
  return "UNIX";
}

const char *socket_type_to_txt(int32_t family, int32_t type, int32_t protocol) {
  static char unknown[100];
  const bool isIPv6 = family == darwin::DARWIN_AF_INET6;
  switch (family) {
    case darwin::DARWIN_AF_UNIX:
      return kindOfUnix(type);
    case darwin::DARWIN_AF_INET:
    case darwin::DARWIN_AF_INET6:
      if (protocol == darwin::DARWIN_IPPROTO_TCP) return isIPv6 ? "tcp6  " : "tcp4  ";
      if (protocol == darwin::DARWIN_IPPROTO_UDP) return isIPv6 ? "udp6  " : "udp4  ";
      return kindOfUnix(type);  // Kept: raw sockets are named like local ones
    case darwin::DARWIN_AF_NDRV:
      return "NDRV";
    case darwin::DARWIN_PF_KEY:
      return "KEY";
    case darwin::DARWIN_AF_SYSTEM:
      return "system";
    default:
      snprintf(unknown, sizeof unknown, "Unknown type %d\n", family);
      return unknown;
  }
}

const char *tcpStateToText(int32_t state) {
  constexpr int32_t kEnd = sizeof kTCPStates / sizeof kTCPStates[0];
  return state >= 0 && state < kEnd ? kTCPStates[state] : "?!?";
}

const char *print_ipv4addr(const darwin::in_addr *address) {
  static char text[16];
  uint8_t bytes[sizeof address->s_addr];
  memcpy(bytes, &address->s_addr, sizeof bytes);
  if (address->s_addr == 0) return "*";
  snprintf(text, sizeof text, "%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
  return text;
}

static const EventClass *findEventClass(int32_t kind) {
  for (const EventClass &row : kEventClasses) {
    if (row.kind == kind) return &row;
  }
  return nullptr;
}

static const char *nameOfSubclass(const EventClass *eventClass, int32_t subclass) {
  for (size_t i = 0; i < eventClass->nameCount; i++) {
    if (eventClass->names[i].subclass == subclass) return eventClass->names[i].name;
  }
  return nullptr;
}

const char *event_codes_to_txt(int32_t vendor, int32_t kind, int32_t subclass) {
  static char text[80];
  if (vendor != static_cast<int32_t>(darwin::KEV_VENDOR_APPLE)) {
    snprintf(text, sizeof text, "%d:%d:%d", vendor, kind, subclass);
    return text;
  }
  const EventClass *eventClass = findEventClass(kind);
  const char *name = eventClass != nullptr ? nameOfSubclass(eventClass, subclass) : nullptr;
  snprintf(text, sizeof text, "APPLE:%s", eventClass != nullptr ? eventClass->prefix : "");
  if (name != nullptr) {
    append(text, sizeof text, "%s", name);
  } else if (subclass != kNoSubclass) {
    append(text, sizeof text, "%d", subclass);
  }
  return text;
}

ProcessRecord *lookupIPv4Socket(const darwin::in_addr *, uint16_t port) {
  return ownerOfIPv4Port(port);
}

ProcessRecord *lookupUnixSocket(uint64_t address) {
  return ownerOfSocket(address);
}

static void appendOwner(char *line, const ProcessRecord *owner) {
  const char *command = owner->taskAllInfo.pbsd.pbi_comm;
  appendSafe(line, kLineSize, command, sizeof owner->taskAllInfo.pbsd.pbi_comm);
  append(line, kLineSize, " (PID: %d)", pidOf(owner));
}

// The path fills the address behind length and family: more than the platform's own sockaddr_un
// has room for.
static const char *pathOf(const darwin::un_sockinfo_address *address) {
  return address->ua_dummy + offsetof(darwin::sockaddr_un, sun_path);
}
constexpr size_t kUnixPathSize =
    sizeof(darwin::un_sockinfo_address) - offsetof(darwin::sockaddr_un, sun_path);

static void describeUnix(char *line, const darwin::socket_info *socket) {
  const darwin::un_sockinfo *local = &socket->soi_proto.pri_un;
  append(line, kLineSize, "%8llx", static_cast<unsigned long long>(socket->soi_so));
  if (local->unsi_conn_so != 0) {
    append(line, kLineSize, "->%8llx ", static_cast<unsigned long long>(local->unsi_conn_so));
    const ProcessRecord *owner = lookupUnixSocket(local->unsi_conn_so);
    if (owner != nullptr) appendOwner(line, owner);
  } else {
    append(line, kLineSize, "   (LISTENING)  ");
  }
  const char *peerPath = pathOf(&local->unsi_caddr);
  const char *ownPath = pathOf(&local->unsi_addr);
  if (peerPath[0] != '\0') {
    append(line, kLineSize, "\tclient: ");
    appendSafe(line, kLineSize, peerPath, kUnixPathSize);
  } else if (ownPath[0] != '\0') {
    append(line, kLineSize, "\t");
    appendSafe(line, kLineSize, ownPath, kUnixPathSize);
  }
}

static const char *addressText(int32_t family, const darwin::in_sockinfo_address *address) {
  if (family == darwin::DARWIN_AF_INET6) return kAnyIPv6;
  return print_ipv4addr(&address->ina_46.i46a_addr4);
}

static int hostPort(int32_t port) {
  return _OSSwapInt16(static_cast<uint16_t>(port));
}

static void describeInternet(char *line, const darwin::socket_info *socket) {
  const int32_t family = socket->soi_family;
  const darwin::in_sockinfo *ends = &socket->soi_proto.pri_in;
  append(line, kLineSize, "%s:%d", addressText(family, &ends->insi_laddr),
         hostPort(ends->insi_lport));
  const char *foreign = addressText(family, &ends->insi_faddr);
  if (foreign[0] == '*') return;
  append(line, kLineSize, "->%16s:%-5d", foreign, hostPort(ends->insi_fport));
  if (strcmp(foreign, "127.0.0.1") == 0) {
    const ProcessRecord *owner = lookupIPv4Socket(&ends->insi_faddr.ina_46.i46a_addr4,
                                                  static_cast<uint16_t>(ends->insi_fport));
    if (owner != nullptr) {
      append(line, kLineSize, " ");
      appendOwner(line, owner);
    }
  }
  if (socket->soi_protocol == darwin::DARWIN_IPPROTO_TCP) {
    append(line, kLineSize, " %s", tcpStateToText(socket->soi_proto.pri_tcp.tcpsi_state));
  }
}

static void describeSystem(char *line, const darwin::socket_info *socket) {
  if (socket->soi_protocol == darwin::SYSPROTO_EVENT) {
    const darwin::kern_event_info *filters = &socket->soi_proto.pri_kern_event;
    append(line, kLineSize, "Event:   %s",
           event_codes_to_txt(static_cast<int32_t>(filters->kesi_vendor_code_filter),
                              static_cast<int32_t>(filters->kesi_class_filter),
                              static_cast<int32_t>(filters->kesi_subclass_filter)));
  } else if (socket->soi_protocol == darwin::SYSPROTO_CONTROL) {
    const darwin::kern_ctl_info *control = &socket->soi_proto.pri_kern_ctl;
    append(line, kLineSize, "Control: ");
    appendSafe(line, kLineSize, control->kcsi_name, sizeof control->kcsi_name);
    append(line, kLineSize, " ");
  }
}

int print_socket_fdinfo(const darwin::socket_fdinfo *info, int32_t, int32_t) {
  const darwin::socket_info *socket = &info->psi;
  char line[kLineSize];
  snprintf(line, sizeof line, "%s ",
           socket_type_to_txt(socket->soi_family, socket->soi_type, socket->soi_protocol));
  enterProcessTables();  // for as long as a peer's record is looked at
  switch (socket->soi_family) {
    case darwin::DARWIN_AF_UNIX:
      describeUnix(line, socket);
      break;
    case darwin::DARWIN_AF_INET:
    case darwin::DARWIN_AF_INET6:
      describeInternet(line, socket);
      break;
    case darwin::DARWIN_AF_SYSTEM:
      describeSystem(line, socket);
      break;
    default:
      break;
  }
  leaveProcessTables();
  return output(line, 0);
}

}  // namespace sondex
