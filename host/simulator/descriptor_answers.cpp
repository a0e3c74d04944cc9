#include "host/simulator/descriptor_answers.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <variant>

#include "host/copy_text.h"
#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "host/simulator/wide.h"

namespace host::simulator {

namespace {

constexpr uint16_t kFifoMode = 0010600;
constexpr uint16_t kSocketMode = 0140666;
constexpr int64_t kBlock = 512;
constexpr int32_t kFileBlock = 4096;
constexpr int32_t kPipeBuffer = 16384;
// How far the address of a socket is from that of its protocol's part.
constexpr uint64_t kProtocolPart = 0x80;

struct TypeOf {
  uint32_t operator()(const File &) const { return darwin::PROX_FDTYPE_VNODE; }
  uint32_t operator()(const Socket &) const { return darwin::PROX_FDTYPE_SOCKET; }
  uint32_t operator()(const NamedSemaphore &) const { return darwin::PROX_FDTYPE_PSEM; }
  uint32_t operator()(const SharedMemory &) const { return darwin::PROX_FDTYPE_PSHM; }
  uint32_t operator()(const PipeEnd &) const { return darwin::PROX_FDTYPE_PIPE; }
  uint32_t operator()(const EventQueue &) const { return darwin::PROX_FDTYPE_KQUEUE; }
  uint32_t operator()(const Channel &) const { return darwin::PROX_FDTYPE_CHANNEL; }
  uint32_t operator()(const Opaque &opaque) const { return opaque.type; }
};

Nanoseconds ownTime(const DescriptorView &view) {
  return view.process.ownTime(view.now);
}

darwin::proc_fileinfo fileInfo(const DescriptorView &view) {
  const Descriptor &descriptor = view.descriptor;
  darwin::proc_fileinfo info{};
  info.fi_openflags = descriptor.openFlags;
  info.fi_status = descriptor.status;
  info.fi_offset = saturate<int64_t>(descriptor.offset.at(ownTime(view)));
  info.fi_type = static_cast<int32_t>(typeOf(descriptor));
  info.fi_guardflags = descriptor.guard;
  return info;
}

int64_t blocksOf(int64_t size, int64_t block) {
  return size / block + (size % block != 0 ? 1 : 0);
}

// What belongs to whoever opened it.
darwin::vinfo_stat ownStat(const DescriptorView &view, uint16_t mode) {
  darwin::vinfo_stat stat{};
  stat.vst_mode = mode;
  stat.vst_uid = view.process.description().user;
  stat.vst_gid = view.process.description().groupID;
  return stat;
}

// The kernel sets no more than these.
darwin::vinfo_stat namedStat(const NamedObject &object, Nanoseconds own) {
  darwin::vinfo_stat stat{};
  stat.vst_mode = object.mode;
  stat.vst_uid = object.user;
  stat.vst_gid = object.group;
  stat.vst_size = saturate<int64_t>(object.size.at(own));
  return stat;
}

int32_t networkOrder(uint16_t port) {
  uint8_t bytes[2] = {static_cast<uint8_t>(port >> 8), static_cast<uint8_t>(port)};
  uint16_t value = 0;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

void fillAddress(const std::vector<uint8_t> &address, darwin::in_sockinfo_address &to) {
  if (address.size() == sizeof to.ina_46.i46a_addr4) {
    std::memcpy(&to.ina_46.i46a_addr4, address.data(), address.size());
  } else {
    std::copy_n(address.begin(), std::min(address.size(), sizeof to.ina_6.octets), to.ina_6.octets);
  }
}

void fillInternet(const Socket &socket, darwin::in_sockinfo &to) {
  to.insi_fport = networkOrder(socket.remote.port);
  to.insi_lport = networkOrder(socket.local.port);
  if (socket.isIPv4) to.insi_vflag |= darwin::INI_IPV4;
  if (socket.isIPv6) to.insi_vflag |= darwin::INI_IPV6;
  fillAddress(socket.remote.address, to.insi_faddr);
  fillAddress(socket.local.address, to.insi_laddr);
}

void fillUnixAddress(const std::string &path, darwin::un_sockinfo_address &to) {
  if (path.empty()) return;
  darwin::sockaddr_un &address = to.ua_sun;
  const size_t length = std::min(path.size(), sizeof address.sun_path);
  address.sun_len = static_cast<uint8_t>(offsetof(darwin::sockaddr_un, sun_path) + length);
  address.sun_family = darwin::DARWIN_AF_UNIX;
  std::memcpy(address.sun_path, path.data(), length);
}

void fillUnix(const DescriptorView &view, const Socket &socket, darwin::un_sockinfo &to) {
  const uint64_t peer = view.peers.peerOf(view.descriptor);
  if (peer != 0) {
    to.unsi_conn_so = peer;
    to.unsi_conn_pcb = peer + kProtocolPart;
  }
  fillUnixAddress(socket.path, to.unsi_addr);
  fillUnixAddress(socket.peerPath.empty() ? view.peers.pathOf(peer) : socket.peerPath,
                  to.unsi_caddr);
}

void fillProtocol(const DescriptorView &view, const Socket &socket, darwin::socket_info &to) {
  switch (socket.kind) {
    case darwin::SOCKINFO_IN:
      fillInternet(socket, to.soi_proto.pri_in);
      break;
    case darwin::SOCKINFO_TCP:
      fillInternet(socket, to.soi_proto.pri_tcp.tcpsi_ini);
      to.soi_proto.pri_tcp.tcpsi_state = socket.tcpState;
      break;
    case darwin::SOCKINFO_UN:
      fillUnix(view, socket, to.soi_proto.pri_un);
      break;
    case darwin::SOCKINFO_NDRV:
      to.soi_proto.pri_ndrv.ndrvsi_if_family = socket.interfaceFamily;
      to.soi_proto.pri_ndrv.ndrvsi_if_unit = socket.interfaceUnit;
      copyText(socket.interface, to.soi_proto.pri_ndrv.ndrvsi_if_name);
      break;
    case darwin::SOCKINFO_KERN_EVENT:
      to.soi_proto.pri_kern_event.kesi_vendor_code_filter = socket.eventFilter[0];
      to.soi_proto.pri_kern_event.kesi_class_filter = socket.eventFilter[1];
      to.soi_proto.pri_kern_event.kesi_subclass_filter = socket.eventFilter[2];
      break;
    case darwin::SOCKINFO_KERN_CTL:
      to.soi_proto.pri_kern_ctl.kcsi_id = socket.controlID;
      to.soi_proto.pri_kern_ctl.kcsi_unit = socket.controlUnit;
      copyText(socket.controlName, to.soi_proto.pri_kern_ctl.kcsi_name);
      break;
    case darwin::SOCKINFO_VSOCK:
      to.soi_proto.pri_vsock.local_cid = socket.virtualAddress[0];
      to.soi_proto.pri_vsock.local_port = socket.virtualAddress[1];
      to.soi_proto.pri_vsock.remote_cid = socket.virtualAddress[2];
      to.soi_proto.pri_vsock.remote_port = socket.virtualAddress[3];
      break;
    default:
      break;
  }
}

darwin::kevent_extinfo eventInfo(const QueuedEvent &event) {
  darwin::kevent_extinfo info{};
  info.kqext_kev.ident = event.identifier;
  info.kqext_kev.filter = event.filter;
  info.kqext_kev.flags = event.flags;
  info.kqext_kev.udata = event.userData;
  info.kqext_kev.fflags = event.filterFlags;
  info.kqext_kev.data = event.data;
  info.kqext_status = event.status;
  return info;
}

}  // namespace

uint32_t typeOf(const Descriptor &descriptor) {
  return std::visit(TypeOf{}, descriptor.object);
}

Errno fillVnode(const DescriptorView &view, darwin::vnode_fdinfowithpath &info) {
  const File *file = std::get_if<File>(&view.descriptor.object);
  if (file == nullptr) return darwin::DARWIN_EBADF;
  info = {};
  info.pfi = fileInfo(view);
  darwin::vnode_info &vnode = info.pvip.vip_vi;
  vnode.vi_stat.vst_dev = file->device;
  vnode.vi_stat.vst_mode = file->mode;
  vnode.vi_stat.vst_nlink = 1;
  vnode.vi_stat.vst_ino = file->inode;
  vnode.vi_stat.vst_uid = file->user;
  vnode.vi_stat.vst_gid = file->group;
  vnode.vi_stat.vst_size = saturate<int64_t>(file->size.at(ownTime(view)));
  vnode.vi_stat.vst_blocks = blocksOf(vnode.vi_stat.vst_size, kBlock);
  vnode.vi_stat.vst_blksize = kFileBlock;
  vnode.vi_stat.vst_rdev = file->deviceItself;
  vnode.vi_type = file->type;
  vnode.vi_fsid.val[0] = static_cast<int32_t>(file->device);
  copyText(file->path, info.pvip.vip_path);
  return kAnswered;
}

Errno fillSocket(const DescriptorView &view, darwin::socket_fdinfo &info) {
  const Socket *socket = std::get_if<Socket>(&view.descriptor.object);
  if (socket == nullptr) return darwin::DARWIN_ENOTSOCK;
  // All of the union, not only its first member.
  std::memset(&info, 0, sizeof info);
  info.pfi = fileInfo(view);
  darwin::socket_info &to = info.psi;
  to.soi_stat = ownStat(view, kSocketMode);
  to.soi_so = view.descriptor.handle;
  to.soi_pcb = view.descriptor.handle + kProtocolPart;
  to.soi_type = socket->type;
  to.soi_protocol = socket->protocol;
  to.soi_family = socket->family;
  to.soi_state = static_cast<int16_t>(socket->state);
  to.soi_kind = socket->kind;
  fillProtocol(view, *socket, to);
  return kAnswered;
}

Errno fillSemaphore(const DescriptorView &view, darwin::psem_fdinfo &info) {
  const NamedSemaphore *semaphore = std::get_if<NamedSemaphore>(&view.descriptor.object);
  if (semaphore == nullptr) return darwin::DARWIN_EBADF;
  info = {};
  info.pfi = fileInfo(view);
  info.pseminfo.psem_stat = namedStat(*semaphore, ownTime(view));
  copyText(semaphore->name, info.pseminfo.psem_name);
  return kAnswered;
}

Errno fillSharedMemory(const DescriptorView &view, darwin::pshm_fdinfo &info) {
  const SharedMemory *memory = std::get_if<SharedMemory>(&view.descriptor.object);
  if (memory == nullptr) return darwin::DARWIN_EBADF;
  info = {};
  info.pfi = fileInfo(view);
  info.pshminfo.pshm_stat = namedStat(*memory, ownTime(view));
  info.pshminfo.pshm_mappaddr = memory->address;
  copyText(memory->name, info.pshminfo.pshm_name);
  return kAnswered;
}

Errno fillPipe(const DescriptorView &view, darwin::pipe_fdinfo &info) {
  const PipeEnd *pipe = std::get_if<PipeEnd>(&view.descriptor.object);
  if (pipe == nullptr) return darwin::DARWIN_EBADF;
  info = {};
  info.pfi = fileInfo(view);
  darwin::vinfo_stat &stat = info.pipeinfo.pipe_stat;
  stat = ownStat(view, kFifoMode);
  stat.vst_size = saturate<int64_t>(pipe->buffered.at(ownTime(view)));
  stat.vst_blksize = kPipeBuffer;
  stat.vst_blocks = blocksOf(stat.vst_size, kPipeBuffer);
  info.pipeinfo.pipe_handle = view.descriptor.handle;
  info.pipeinfo.pipe_peerhandle = view.peers.peerOf(view.descriptor);
  info.pipeinfo.pipe_status = pipe->status;
  return kAnswered;
}

Errno fillKqueue(const DescriptorView &view, darwin::kqueue_fdinfo &info) {
  const EventQueue *queue = std::get_if<EventQueue>(&view.descriptor.object);
  if (queue == nullptr) return darwin::DARWIN_EBADF;
  info = {};
  info.pfi = fileInfo(view);
  info.kqueueinfo.kq_stat = ownStat(view, kFifoMode);
  info.kqueueinfo.kq_stat.vst_size = saturate<int64_t>(queue->events.size());
  info.kqueueinfo.kq_state = queue->state;
  return kAnswered;
}

Errno fillKqueueEvents(const DescriptorView &view, std::vector<darwin::kevent_extinfo> &events) {
  const EventQueue *queue = std::get_if<EventQueue>(&view.descriptor.object);
  if (queue == nullptr) return darwin::DARWIN_EBADF;
  std::vector<darwin::kevent_extinfo> list;
  list.reserve(queue->events.size());
  for (const QueuedEvent &event : queue->events) list.push_back(eventInfo(event));
  events = std::move(list);
  return kAnswered;
}

Errno fillChannel(const DescriptorView &view, darwin::channel_fdinfo &info) {
  const Channel *channel = std::get_if<Channel>(&view.descriptor.object);
  if (channel == nullptr) return darwin::DARWIN_EBADF;
  info = {};
  info.pfi = fileInfo(view);
  std::copy(channel->instance.begin(), channel->instance.end(), info.channelinfo.chi_instance);
  info.channelinfo.chi_port = channel->port;
  info.channelinfo.chi_type = channel->type;
  info.channelinfo.chi_flags = channel->flags;
  return kAnswered;
}

}  // namespace host::simulator
