// What is shown of a socket: its kind, addresses, state, and who is at the other end. Texts in a
// buffer stand until the next call of the same function.
#pragma once

#include <cstdint>

#include "darwin/proc_info.h"
#include "proc/process_record.h"

namespace sondex {

// Writes a socket's details, without a newline. `pid` and `unused` are not used. Returns what
// output returned.
int print_socket_fdinfo(const darwin::socket_fdinfo *info, int32_t pid, int32_t unused);

// The kind of a socket, at least six characters wide where it is a protocol. An unknown family gets
// a text with its number and a newline.
const char *socket_type_to_txt(int32_t family, int32_t type, int32_t protocol);

// The word for a TCP state; "?!?" for one that has none. Constant text.
const char *tcpStateToText(int32_t state);

// An IPv4 address with dots; "*" for the one that is all zero.
const char *print_ipv4addr(const darwin::in_addr *address);

// The filters of a kernel event socket.
const char *event_codes_to_txt(int32_t vendor, int32_t kind, int32_t subclass);

// The first process, in the table's order, with an IPv4 socket whose local port is `port` (network
// order), null when there is none. Kept: `address` is not compared. Looked for in the table that
// socket_owners.h names; the record is good for as long as the caller stays inside the tables.
ProcessRecord *lookupIPv4Socket(const darwin::in_addr *address, uint16_t port);

// Likewise the first process with the socket whose kernel address is `address`.
ProcessRecord *lookupUnixSocket(uint64_t address);

}  // namespace sondex
