#include "fds/socket_owners.h"

#include <string.h>

#include <algorithm>

#include "proc/hash_index.h"
#include "proc/process_table.h"

namespace sondex {

static_assert(sizeof(darwin::socket_fdinfo) <= kFDDetailSize);

constexpr size_t kPorts = UINT16_MAX + 1;

// What one table holds. Places are those of the first record that owns the socket.
static struct {
  uint64_t version;  // of the table; 0 while there is none
  int32_t count;     // records that were looked at
  int32_t ports[kPorts];
  HashIndex *addresses;  // in the kernel; null when memory was short
} owners;

static TableView tableToSearch() {
  const TableView previous = previousTable();
  return previous.records != nullptr ? previous : currentTable();
}

static int32_t detailCount(const ProcessRecord *record) {
  return record->fdDetails != nullptr ? std::min(record->numFDs, kFDSlots) : 0;
}

// The socket behind an entry of the record's list, null when the entry is of another type.
static const darwin::socket_info *socketAt(const ProcessRecord *record, int32_t entry) {
  if (record->fds[entry].proc_fdtype != darwin::PROX_FDTYPE_SOCKET) return nullptr;
  const uint8_t *slot = record->fdDetails + static_cast<size_t>(entry) * kFDDetailSize;
  return &reinterpret_cast<const darwin::socket_fdinfo *>(slot)->psi;
}

static bool hasIPv4Port(const darwin::socket_info *socket) {
  return socket->soi_family == darwin::DARWIN_AF_INET;
}

static uint16_t portOf(const darwin::socket_info *socket) {
  return static_cast<uint16_t>(socket->soi_proto.pri_in.insi_lport);
}

// Hands each socket of the table to `visit`, with the place of the record that owns it, until that
// says true. The record it stopped at, null when it was shown all.
template <typename Visit>
static ProcessRecord *visitSockets(const TableView &table, Visit visit) {
  for (int32_t i = 0; i < table.count; i++) {
    ProcessRecord *record = &table.records[i];
    for (int32_t entry = 0; entry < detailCount(record); entry++) {
      const darwin::socket_info *socket = socketAt(record, entry);
      if (socket != nullptr && visit(socket, i)) return record;
    }
  }
  return nullptr;
}

static size_t countSockets(const TableView &table) {
  size_t sockets = 0;
  visitSockets(table, [&sockets](const darwin::socket_info *, int32_t) {
    sockets++;
    return false;
  });
  return sockets;
}

// Forgets the former table. False when memory is short.
static bool clearOwners(size_t sockets) {
  owners.version = 0;
  releaseHashIndex(owners.addresses);
  owners.addresses = makeHashIndex(sockets);
  memset(owners.ports, 0xFF, sizeof owners.ports);
  return owners.addresses != nullptr;
}

static void addSocket(const darwin::socket_info *socket, int32_t place) {
  if (hasIPv4Port(socket)) {
    int32_t *port = &owners.ports[portOf(socket)];
    if (*port == kNoPlace) *port = place;
  }
  enterPlace(owners.addresses, socket->soi_so, place);
}

// Whether there is an index of the table; makes it if it was of another one.
static bool isIndexed(const TableView &table) {
  const uint64_t version = versionOf(table.records);
  if (version == 0) return false;
  if (owners.version == version && owners.count == table.count) return true;
  if (!clearOwners(countSockets(table))) return false;
  visitSockets(table, [](const darwin::socket_info *socket, int32_t place) {
    addSocket(socket, place);
    return false;
  });
  owners.version = version;
  owners.count = table.count;
  return true;
}

static ProcessRecord *recordAt(const TableView &table, int32_t place) {
  return place != kNoPlace ? &table.records[place] : nullptr;
}

ProcessRecord *ownerOfIPv4Port(uint16_t port) {
  const TableView table = tableToSearch();
  if (table.records == nullptr) return nullptr;
  if (isIndexed(table)) return recordAt(table, owners.ports[port]);
  return visitSockets(table, [port](const darwin::socket_info *socket, int32_t) {
    return hasIPv4Port(socket) && portOf(socket) == port;
  });
}

ProcessRecord *ownerOfSocket(uint64_t address) {
  const TableView table = tableToSearch();
  if (table.records == nullptr) return nullptr;
  if (isIndexed(table)) return recordAt(table, placeOf(owners.addresses, address));
  return visitSockets(table, [address](const darwin::socket_info *socket, int32_t) {
    return socket->soi_so == address;
  });
}

}  // namespace sondex
