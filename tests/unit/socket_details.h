// Socket details as proc_pidfdinfo gives them, and records of processes that hold some, for tests
// of what shows sockets and finds their owners.
#pragma once

#include <arpa/inet.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "proc/process_record.h"

namespace socket_details {

// A port as the kernel gives it: in network order.
inline int32_t portOf(uint16_t port) {
  return htons(port);
}

inline darwin::in_addr address(const char *text) {
  return {inet_addr(text)};
}

inline darwin::socket_fdinfo ofKind(int32_t family, int32_t type, int32_t protocol) {
  darwin::socket_fdinfo info{};
  info.psi.soi_family = family;
  info.psi.soi_type = type;
  info.psi.soi_protocol = protocol;
  return info;
}

inline darwin::socket_fdinfo tcp4(const char *local, uint16_t localPort, const char *foreign,
                                  uint16_t foreignPort, int32_t state) {
  darwin::socket_fdinfo info = ofKind(2, 1, 6);
  darwin::tcp_sockinfo &tcp = info.psi.soi_proto.pri_tcp;
  tcp.tcpsi_ini.insi_laddr.ina_46.i46a_addr4 = address(local);
  tcp.tcpsi_ini.insi_lport = portOf(localPort);
  tcp.tcpsi_ini.insi_faddr.ina_46.i46a_addr4 = address(foreign);
  tcp.tcpsi_ini.insi_fport = portOf(foreignPort);
  tcp.tcpsi_state = state;
  return info;
}

// An IPv4 socket that only has a local port.
inline darwin::socket_fdinfo onPort(uint16_t port) {
  return tcp4("0.0.0.0", port, "0.0.0.0", 0, 1);
}

// A UNIX stream socket with its kernel address and its peer's (0: it has none).
inline darwin::socket_fdinfo local(uint64_t address, uint64_t peer = 0) {
  darwin::socket_fdinfo info = ofKind(1, 1, 0);
  info.psi.soi_so = address;
  info.psi.soi_proto.pri_un.unsi_conn_so = peer;
  return info;
}

// Without a NUL when the path fills the whole address.
inline void setPath(darwin::un_sockinfo_address &address, std::string_view path) {
  std::memcpy(address.ua_dummy + 2, path.data(), std::min(path.size(), sizeof address - 2));
}

// Gives the record one more descriptor, whose slot holds the details.
inline void addDescriptor(sondex::ProcessRecord &record, uint32_t type,
                          const darwin::socket_fdinfo &info) {
  const size_t place = static_cast<size_t>(record.numFDs++);
  record.fds[place] = {static_cast<int32_t>(place), type};
  record.fdDetails =
      static_cast<uint8_t *>(std::realloc(record.fdDetails, (place + 1) * sondex::kFDDetailSize));
  std::memset(record.fdDetails + place * sondex::kFDDetailSize, 0, sondex::kFDDetailSize);
  std::memcpy(record.fdDetails + place * sondex::kFDDetailSize, &info, sizeof info);
}

inline void addSocket(sondex::ProcessRecord &record, const darwin::socket_fdinfo &info) {
  addDescriptor(record, darwin::PROX_FDTYPE_SOCKET, info);
}

// The short name has no NUL when it fills its field.
inline void setProcess(sondex::ProcessRecord &record, int32_t pid, std::string_view command) {
  record.taskAllInfo.pbsd.pbi_pid = static_cast<uint32_t>(pid);
  char(&name)[darwin::DARWIN_MAXCOMLEN] = record.taskAllInfo.pbsd.pbi_comm;
  std::memset(name, 0, sizeof name);
  std::memcpy(name, command.data(), std::min(command.size(), sizeof name));
}

}  // namespace socket_details
