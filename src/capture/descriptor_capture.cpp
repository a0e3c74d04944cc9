#include "capture/descriptor_capture.h"

#include <arpa/inet.h>
#include <errno.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "capture/device_file_writer.h"
#include "capture/error_names.h"
#include "capture/stand_ins.h"
#include "darwin/errors.h"
#include "darwin/file_flags.h"
#include "darwin/libproc.h"
#include "proc/descriptor_kinds.h"

namespace sondex {

constexpr int kMostDescriptors = 10000;  // of a process in a device file, numbered from 0
constexpr int kMostEvents = 512;
constexpr int32_t kNoneNext = -1;

constexpr uint32_t kUsualMode = darwin::DARWIN_FREAD | darwin::DARWIN_FWRITE;
constexpr uint32_t kKnownModes = kUsualMode | darwin::DARWIN_O_NONBLOCK | darwin::DARWIN_O_APPEND;

// What a descriptor of some type is asked for: the answers by their flavours.
union Detail {
  darwin::proc_fileinfo file;  // every answer but a kqueue's events begins with it
  darwin::vnode_fdinfowithpath vnode;
  darwin::socket_fdinfo socket;
  darwin::psem_fdinfo semaphore;
  darwin::pshm_fdinfo sharedMemory;
  darwin::pipe_fdinfo pipe;
  darwin::channel_fdinfo channel;
  darwin::kevent_extinfo events[kMostEvents];
};

static const FlagWord kModes[] = {{"read", darwin::DARWIN_FREAD},
                                  {"write", darwin::DARWIN_FWRITE},
                                  {"nonblocking", darwin::DARWIN_O_NONBLOCK},
                                  {"append", darwin::DARWIN_O_APPEND}};
static const FlagWord kStatuses[] = {{"shared", darwin::PROC_FP_SHARED},
                                     {"close-on-exec", darwin::PROC_FP_CLEXEC},
                                     {"guarded", darwin::PROC_FP_GUARDED},
                                     {"close-on-fork", darwin::PROC_FP_CLFORK}};
static const FlagWord kGuards[] = {{"close", darwin::PROC_FI_GUARD_CLOSE},
                                   {"dup", darwin::PROC_FI_GUARD_DUP},
                                   {"socket", darwin::PROC_FI_GUARD_SOCKET_IPC},
                                   {"fileport", darwin::PROC_FI_GUARD_FILEPORT}};
static const FlagWord kFileKinds[] = {{"regular", 1},   {"directory", 2}, {"block", 3},
                                      {"character", 4}, {"link", 5},      {"socket", 6},
                                      {"fifo", 7}};
constexpr int32_t kRegular = 1;
constexpr int32_t kFifo = 7;
constexpr uint16_t kPermissions = 07777;
static const FlagWord kTCPStates[] = {{"closed", 0},       {"listen", 1},      {"syn-sent", 2},
                                      {"syn-received", 3}, {"established", 4}, {"close-wait", 5},
                                      {"fin-wait-1", 6},   {"closing", 7},     {"last-ack", 8},
                                      {"fin-wait-2", 9},   {"time-wait", 10}};
constexpr int32_t kListen = 1;
constexpr int32_t kEstablished = 4;
constexpr int32_t kLastState = 10;

static void writeUnlessZero(const char *key, uint64_t number) {
  if (number != 0) writeWide(key, number);
}

// `next` is the number that the file gives to a descriptor without one: that of the first ones
// only, as long as there are no gaps.
static void writeNumbered(const char *type, const darwin::proc_fdinfo *listed, int32_t *next) {
  writePlainText("type", type);
  if (listed->proc_fd == *next) {
    *next += 1;
  } else {
    writeNumber("number", listed->proc_fd);
    *next = kNoneNext;
  }
}

// Those that the file has words for.
static void writeKnownFlags(const char *key, uint32_t flags, const FlagWord (&words)[4]) {
  uint32_t known = 0;
  for (const FlagWord &word : words) known |= flags & word.bits;
  if (known != 0) writeFlags(key, known, words);
}

static void writeFileInfo(const darwin::proc_fileinfo *file) {
  const uint32_t mode = file->fi_openflags;
  if (mode != kUsualMode && (mode & ~kKnownModes) == 0) {
    writeFlags("mode", mode, kModes);
  } else if (mode != kUsualMode) {
    writeNumber("mode", mode);
  }
  writeKnownFlags("status", file->fi_status, kStatuses);
  writeKnownFlags("guard", file->fi_guardflags, kGuards);
  if (file->fi_offset > 0) writeSize("offset", static_cast<uint64_t>(file->fi_offset));
}

static void writeOwners(const darwin::vinfo_stat *stat, uint16_t usualPermissions) {
  writeUnless("permissions", stat->vst_mode & kPermissions, usualPermissions);
  writeUnless("owner", stat->vst_uid, 0);
  writeUnless("group", stat->vst_gid, 0);
}

static void writeFile(const darwin::vnode_fdinfowithpath *file) {
  const darwin::vnode_info &vnode = file->pvip.vip_vi;
  writePath("path", file->pvip.vip_path, sizeof file->pvip.vip_path);
  if (vnode.vi_type > kRegular && vnode.vi_type <= kFifo) {
    writeWord("kind", static_cast<uint32_t>(vnode.vi_type), kFileKinds);
  }
  writeOwners(&vnode.vi_stat, 0644);
  if (vnode.vi_stat.vst_size > 0) {
    writeSize("size", static_cast<uint64_t>(vnode.vi_stat.vst_size));
  }
  writeUnlessZero("inode", vnode.vi_stat.vst_ino);
  writeUnless("device", vnode.vi_stat.vst_dev, 0);
  writeUnless("device-itself", vnode.vi_stat.vst_rdev, 0);
}

static void writeNamed(const darwin::vinfo_stat *stat, const char *name, size_t size) {
  writePath("name", name, size);
  writeOwners(stat, 0600);
  if (stat->vst_size > 0) writeSize("size", static_cast<uint64_t>(stat->vst_size));
}

// As `local` and `remote` have it, "" for one that is any with port 0.
static void formatEnd(const darwin::in_sockinfo_address *address, bool isIPv6, int32_t port,
                      char *to, size_t size) {
  uint8_t bytes[16] = {};
  memcpy(bytes, address, sizeof bytes);
  uint8_t *start = isIPv6 ? bytes : bytes + 12;  // an IPv4 address fills the last four
  const size_t length = isIPv6 ? 16 : 4;
  bool isAny = true;
  for (size_t i = 0; i < length; i++) isAny = isAny && start[i] == 0;
  const uint16_t hostPort = ntohs(static_cast<uint16_t>(port));
  to[0] = '\0';
  if (isAny && hostPort == 0) return;
  char text[INET6_ADDRSTRLEN] = "*";
  if (!isAny) {
    hideAddress(start, length);
    if (inet_ntop(isIPv6 ? AF_INET6 : AF_INET, start, text, sizeof text) == nullptr) return;
  }
  snprintf(to, size, !isAny && isIPv6 ? "[%s]:%u" : "%s:%u", text, hostPort);
}

// Returns whether it has another end.
static bool writeEnds(const darwin::in_sockinfo *ends, int32_t family) {
  const bool isIPv6 = family == darwin::DARWIN_AF_INET6;
  // A socket for both families tells IPv4 addresses within IPv6 ones.
  const bool hasIPv6Addresses = isIPv6 && (ends->insi_vflag & darwin::INI_IPV6) != 0;
  char local[80];
  char remote[80];
  formatEnd(&ends->insi_laddr, hasIPv6Addresses, ends->insi_lport, local, sizeof local);
  formatEnd(&ends->insi_faddr, hasIPv6Addresses, ends->insi_fport, remote, sizeof remote);
  if (local[0] != '\0') writePlainText("local", local);
  if (remote[0] != '\0') writePlainText("remote", remote);
  const bool showsFamily = local[0] == '[' || remote[0] == '[';
  const uint8_t form = ends->insi_vflag & (darwin::INI_IPV4 | darwin::INI_IPV6);
  if (form == (darwin::INI_IPV4 | darwin::INI_IPV6)) {
    writePlainText("family", "both");
  } else if (isIPv6 && !showsFamily) {
    writePlainText("family", "inet6");
  }
  return remote[0] != '\0';
}

static void writeSocketKind(const darwin::socket_info *socket, int32_t usual) {
  const bool isStream = socket->soi_type == darwin::DARWIN_SOCK_STREAM;
  const bool isKnown = isStream || socket->soi_type == darwin::DARWIN_SOCK_DGRAM;
  if (isKnown && socket->soi_type != usual)
    writePlainText("kind", isStream ? "stream" : "datagram");
}

static void writeTCP(const darwin::socket_info *socket) {
  const darwin::tcp_sockinfo &tcp = socket->soi_proto.pri_tcp;
  const bool isConnected = writeEnds(&tcp.tcpsi_ini, socket->soi_family);
  if (tcp.tcpsi_state != (isConnected ? kEstablished : kListen) && tcp.tcpsi_state >= 0 &&
      tcp.tcpsi_state <= kLastState) {
    writeWord("state", static_cast<uint32_t>(tcp.tcpsi_state), kTCPStates);
  }
}

static void writeUnix(const darwin::socket_info *socket) {
  const darwin::un_sockinfo &ends = socket->soi_proto.pri_un;
  constexpr size_t kStart = offsetof(darwin::sockaddr_un, sun_path);
  const char *path = ends.unsi_addr.ua_dummy + kStart;
  const char *peerPath = ends.unsi_caddr.ua_dummy + kStart;
  constexpr size_t kRoom = sizeof ends.unsi_addr - kStart;
  writeSocketKind(socket, darwin::DARWIN_SOCK_STREAM);
  if (path[0] != '\0') writePath("path", path, kRoom);
  if (peerPath[0] != '\0') writePath("peer-path", peerPath, kRoom);
}

static void writeKernelEvent(const darwin::kern_event_info *event) {
  writeUnless("vendor", event->kesi_vendor_code_filter, 0);
  writeUnless("class", event->kesi_class_filter, 0);
  writeUnless("subclass", event->kesi_subclass_filter, 0);
}

static void writeKernelControl(const darwin::socket_info *socket) {
  const darwin::kern_ctl_info &control = socket->soi_proto.pri_kern_ctl;
  writeText("control", control.kcsi_name, sizeof control.kcsi_name);
  writeUnless("id", control.kcsi_id, 0);
  writeUnless("unit", control.kcsi_unit, 0);
  writeSocketKind(socket, darwin::DARWIN_SOCK_DGRAM);
}

static void writeNetworkDriver(const darwin::ndrv_info *driver) {
  if (driver->ndrvsi_if_name[0] != '\0') {
    writeText("interface", driver->ndrvsi_if_name, sizeof driver->ndrvsi_if_name);
  }
  writeUnless("interface-family", driver->ndrvsi_if_family, 0);
  writeUnless("unit", driver->ndrvsi_if_unit, 0);
}

static void writePair(const char *key, uint32_t first, uint32_t second) {
  if (first == 0 && second == 0) return;
  beginArray(key);
  writeNumber(nullptr, first);
  writeNumber(nullptr, second);
  endArray();
}

static void writeVirtual(const darwin::socket_info *socket) {
  const darwin::vsock_sockinfo &ends = socket->soi_proto.pri_vsock;
  writePair("local", ends.local_cid, ends.local_port);
  writePair("remote", ends.remote_cid, ends.remote_port);
  writeSocketKind(socket, darwin::DARWIN_SOCK_STREAM);
}

static const char *typeOfInternet(const darwin::socket_info *socket) {
  return socket->soi_type == darwin::DARWIN_SOCK_DGRAM &&
                 socket->soi_protocol == darwin::DARWIN_IPPROTO_UDP
             ? "udp"
             : "raw";
}

// Null for one that a device file has no type for.
static const char *typeOf(const darwin::socket_info *socket) {
  switch (socket->soi_kind) {
    case darwin::SOCKINFO_IN:
      return typeOfInternet(socket);
    case darwin::SOCKINFO_TCP:
      return "tcp";
    case darwin::SOCKINFO_UN:
      return "unix";
    case darwin::SOCKINFO_NDRV:
      return "network-driver";
    case darwin::SOCKINFO_KERN_EVENT:
      return "event";
    case darwin::SOCKINFO_KERN_CTL:
      return "control";
    case darwin::SOCKINFO_VSOCK:
      return "vsock";
    default:
      if (socket->soi_family == darwin::DARWIN_AF_ROUTE) return "route";
      return socket->soi_family == darwin::DARWIN_PF_KEY ? "key" : "socket";
  }
}

static void writePlainSocket(const darwin::socket_info *socket) {
  writeUnless("family", socket->soi_family, 0);
  writeUnless("socket-type", socket->soi_type, darwin::DARWIN_SOCK_STREAM);
  writeUnless("protocol", socket->soi_protocol, 0);
}

static void writeSocketDetails(const darwin::socket_info *socket, const char *type) {
  switch (socket->soi_kind) {
    case darwin::SOCKINFO_IN:
      writeEnds(&socket->soi_proto.pri_in, socket->soi_family);
      if (strcmp(type, "raw") == 0) writeUnless("protocol", socket->soi_protocol, 1);
      return;
    case darwin::SOCKINFO_TCP:
      writeTCP(socket);
      return;
    case darwin::SOCKINFO_UN:
      writeUnix(socket);
      return;
    case darwin::SOCKINFO_NDRV:
      writeNetworkDriver(&socket->soi_proto.pri_ndrv);
      return;
    case darwin::SOCKINFO_KERN_EVENT:
      writeKernelEvent(&socket->soi_proto.pri_kern_event);
      return;
    case darwin::SOCKINFO_KERN_CTL:
      writeKernelControl(socket);
      return;
    case darwin::SOCKINFO_VSOCK:
      writeVirtual(socket);
      return;
    default:
      if (strcmp(type, "socket") == 0) writePlainSocket(socket);
      return;
  }
}

static void writeSocket(const darwin::proc_fdinfo *listed, const darwin::socket_fdinfo *info,
                        int32_t *next) {
  const char *type = typeOf(&info->psi);
  writeNumbered(type, listed, next);
  writeFileInfo(&info->pfi);
  // The others are shown by what they are connected to.
  if (info->psi.soi_kind == darwin::SOCKINFO_UN) {
    writeAddress("address", info->psi.soi_so);
    const uint64_t peer = info->psi.soi_proto.pri_un.unsi_conn_so;
    if (peer != 0) writeAddress("peer-address", peer);
  }
  writeSocketDetails(&info->psi, type);
}

static void writePipe(const darwin::pipe_info *pipe) {
  writeAddress("address", pipe->pipe_handle);
  if (pipe->pipe_peerhandle != 0) writeAddress("peer-address", pipe->pipe_peerhandle);
  if (pipe->pipe_stat.vst_size > 0) {
    writeSize("buffered", static_cast<uint64_t>(pipe->pipe_stat.vst_size));
  }
  if (pipe->pipe_status > 0) writeNumber("pipe-status", pipe->pipe_status);
}

static void writeSigned(const char *key, int64_t number) {
  if (number < 0) {
    writeAddress(key, static_cast<uint64_t>(number));
  } else {
    writeUnlessZero(key, static_cast<uint64_t>(number));
  }
}

static void writeEvents(const darwin::kevent_extinfo *events, int count) {
  if (count == 0) return;
  beginArray("events");
  for (int i = 0; i < count; i++) {
    const darwin::kevent_qos_s &event = events[i].kqext_kev;
    beginInlineTable(nullptr);
    writeUnlessZero("ident", event.ident);
    writeNumber("filter", event.filter);
    writeUnless("flags", event.flags, 1);
    writeUnless("fflags", event.fflags, 0);
    writeSigned("data", event.data);
    writeUnlessZero("udata", event.udata);
    writeUnless("status", events[i].kqext_status, 0);
    endInlineTable();
  }
  endArray();
}

static void writeChannel(const darwin::proc_channel_info *channel) {
  beginBytes("instance");
  addBytes(channel->chi_instance, sizeof channel->chi_instance);
  endBytes();
  writeUnless("port", channel->chi_port, 0);
  writeUnless("channel-type", channel->chi_type, 0);
  writeUnless("flags", channel->chi_flags, 0);
}

struct TypeName {
  uint32_t type;
  const char *name;
};

static const TypeName kTypeNames[] = {
    {darwin::PROX_FDTYPE_ATALK, "appletalk"},
    {darwin::PROX_FDTYPE_VNODE, "file"},
    {darwin::PROX_FDTYPE_SOCKET, "socket"},
    {darwin::PROX_FDTYPE_PSHM, "shared-memory"},
    {darwin::PROX_FDTYPE_PSEM, "semaphore"},
    {darwin::PROX_FDTYPE_KQUEUE, "kqueue"},
    {darwin::PROX_FDTYPE_PIPE, "pipe"},
    {darwin::PROX_FDTYPE_FSEVENTS, "file-events"},
    {darwin::PROX_FDTYPE_NETPOLICY, "network-policy"},
    {darwin::PROX_FDTYPE_CHANNEL, "channel"},
    {darwin::PROX_FDTYPE_NEXUS, "nexus"},
};

static const char *nameOf(uint32_t type) {
  for (const TypeName &row : kTypeNames) {
    if (row.type == type) return row.name;
  }
  return nullptr;
}

// What the kernel refuses to say of a descriptor is said to be refused.
static void writeRefused(const darwin::proc_fdinfo *listed, const char *type, int error,
                         int32_t *next) {
  writeNumbered(type, listed, next);
  if (listed->proc_fdtype == darwin::PROX_FDTYPE_VNODE) writePlainText("path", "");
  if (listed->proc_fdtype == darwin::PROX_FDTYPE_PSHM ||
      listed->proc_fdtype == darwin::PROX_FDTYPE_PSEM) {
    writePlainText("name", "");
  }
  writePlainText("error", nameOfError(error));
}

static void writeDetail(const darwin::proc_fdinfo *listed, const Detail *detail, int size,
                        const char *type, int32_t *next) {
  if (listed->proc_fdtype == darwin::PROX_FDTYPE_SOCKET) {
    writeSocket(listed, &detail->socket, next);
    return;
  }
  writeNumbered(type, listed, next);
  switch (listed->proc_fdtype) {
    case darwin::PROX_FDTYPE_VNODE:
      writeFileInfo(&detail->file);
      writeFile(&detail->vnode);
      return;
    case darwin::PROX_FDTYPE_PSEM:
      writeFileInfo(&detail->file);
      writeNamed(&detail->semaphore.pseminfo.psem_stat, detail->semaphore.pseminfo.psem_name,
                 sizeof detail->semaphore.pseminfo.psem_name);
      return;
    case darwin::PROX_FDTYPE_PSHM:
      writeFileInfo(&detail->file);
      writeNamed(&detail->sharedMemory.pshminfo.pshm_stat, detail->sharedMemory.pshminfo.pshm_name,
                 sizeof detail->sharedMemory.pshminfo.pshm_name);
      writeUnlessZero("address", detail->sharedMemory.pshminfo.pshm_mappaddr);
      return;
    case darwin::PROX_FDTYPE_KQUEUE:
      writeEvents(detail->events, size < kMostEvents ? size : kMostEvents);
      return;
    case darwin::PROX_FDTYPE_PIPE:
      writeFileInfo(&detail->file);
      writePipe(&detail->pipe.pipeinfo);
      return;
    case darwin::PROX_FDTYPE_CHANNEL:
      writeFileInfo(&detail->file);
      writeChannel(&detail->channel.channelinfo);
      return;
    default:
      return;
  }
}

// Bytes of the answer about a type; 0 where there is none, or its size says something else.
static int sizeOf(uint32_t type) {
  switch (type) {
    case darwin::PROX_FDTYPE_VNODE:
      return sizeof(darwin::vnode_fdinfowithpath);
    case darwin::PROX_FDTYPE_SOCKET:
      return sizeof(darwin::socket_fdinfo);
    case darwin::PROX_FDTYPE_PSEM:
      return sizeof(darwin::psem_fdinfo);
    case darwin::PROX_FDTYPE_PSHM:
      return sizeof(darwin::pshm_fdinfo);
    case darwin::PROX_FDTYPE_PIPE:
      return sizeof(darwin::pipe_fdinfo);
    case darwin::PROX_FDTYPE_CHANNEL:
      return sizeof(darwin::channel_fdinfo);
    default:
      return 0;
  }
}

// Where in the table of descriptors the writer is.
struct Place {
  bool isOpen;
  int32_t next;  // the number that is taken for granted
};

static void writeDescriptor(int32_t pid, const darwin::proc_fdinfo *listed, Place *place) {
  static Detail detail;
  const char *type = nameOf(listed->proc_fdtype);
  const DescriptorKind *kind = findDescriptorKind(listed->proc_fdtype);
  if (type == nullptr || kind == nullptr) return;
  const int expected = sizeOf(listed->proc_fdtype);
  const bool isAsked = expected != 0 || listed->proc_fdtype == darwin::PROX_FDTYPE_KQUEUE;
  int size = 0;
  errno = 0;
  if (isAsked) {
    memset(&detail, 0, sizeof detail);
    size = darwin::proc_pidfdinfo(pid, listed->proc_fd, kind->flavour, &detail, sizeof detail);
  }
  const int error = errno;
  const bool isRefused = isAsked && (size < expected || (size <= 0 && error != 0));
  // Closed since it was listed.
  if (isRefused && (error == darwin::DARWIN_EBADF || error == darwin::DARWIN_ESRCH)) return;
  if (!place->isOpen) beginRows("descriptors");
  place->isOpen = true;
  beginInlineTable(nullptr);
  if (isRefused) {
    writeRefused(listed, type, error, &place->next);
  } else {
    writeDetail(listed, &detail, size, type, &place->next);
  }
  endInlineTable();
}

void writeDescriptors(int32_t pid) {
  static darwin::proc_fdinfo list[kMostDescriptors];
  const int size = darwin::proc_pidinfo(pid, darwin::PROC_PIDLISTFDS, 0, list, sizeof list);
  if (size < static_cast<int>(sizeof list[0]) || size > static_cast<int>(sizeof list)) return;
  const int count = size / static_cast<int>(sizeof list[0]);
  Place place = {};
  int32_t last = -1;
  for (int i = 0; i < count; i++) {
    if (list[i].proc_fd <= last || list[i].proc_fd >= kMostDescriptors) continue;
    last = list[i].proc_fd;
    writeDescriptor(pid, &list[i], &place);
  }
  if (place.isOpen) endArray();
}

}  // namespace sondex
