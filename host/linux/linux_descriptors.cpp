#include "host/linux/linux_descriptors.h"
#include "host/darwin/errors.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace host::linux_machine {

Errno LinuxDescriptors::descriptors(pid_t pid, size_t limit,
                                    std::vector<darwin::proc_fdinfo> &list) {
  const std::lock_guard lock(shared_.mutex);
  Errno error = shared_.readLiveFor(pid, Question::descriptors);
  if (error != kAnswered) return error;
  KnownProcess &process = shared_.present.known();
  // One that was shorter than its limit was whole.
  bool isKnown = process.descriptors && (process.descriptors->size() < process.descriptorLimit ||
                                         process.descriptorLimit >= limit);
  bool isOwn = shared_.known.hasOwnDescriptors(process, shared_.present.stat());
  if (!isKnown || !isOwn) {
    process.descriptors.reset();
    std::vector<darwin::proc_fdinfo> listed;
    error = shared_.descriptors.list(shared_.present.directory(), limit, listed, &process.sockets);
    if (error != kAnswered) return error;
    process.descriptors = std::move(listed);
    process.descriptorLimit = limit;
  }
  auto end = process.descriptors->begin() +
             static_cast<std::ptrdiff_t>(std::min(limit, process.descriptors->size()));
  list.assign(process.descriptors->begin(), end);
  return kAnswered;
}

Errno LinuxDescriptors::descriptorTableSize(pid_t pid, size_t &slots) {
  const std::lock_guard lock(shared_.mutex);
  ProcessStatus status{};
  Errno error = shared_.readLiveFor(pid, Question::descriptorSlots);
  if (error == kAnswered) error = shared_.present.status(status);
  if (error == kAnswered) slots = static_cast<size_t>(status.descriptorSlots);
  return error;
}

template <typename T>
Errno LinuxDescriptors::ask(Errno (Descriptors::*question)(int, int, T &), pid_t pid, int fd,
                            T &answer) {
  const std::lock_guard lock(shared_.mutex);
  Errno error = shared_.holdLive(pid);
  return error == kAnswered
             ? (shared_.descriptors.*question)(shared_.present.directory(), fd, answer)
             : error;
}

Errno LinuxDescriptors::descriptorType(pid_t pid, int fd, uint32_t &type) {
  return ask(&Descriptors::type, pid, fd, type);
}

Errno LinuxDescriptors::vnodeDescriptor(pid_t pid, int fd, darwin::vnode_fdinfowithpath &info) {
  return ask(&Descriptors::vnode, pid, fd, info);
}

Errno LinuxDescriptors::socketDescriptor(pid_t pid, int fd, darwin::socket_fdinfo &info) {
  return ask(&Descriptors::socket, pid, fd, info);
}

Errno LinuxDescriptors::semaphoreDescriptor(pid_t pid, int fd, darwin::psem_fdinfo &info) {
  return ask(&Descriptors::semaphore, pid, fd, info);
}

Errno LinuxDescriptors::sharedMemoryDescriptor(pid_t pid, int fd, darwin::pshm_fdinfo &info) {
  return ask(&Descriptors::sharedMemory, pid, fd, info);
}

Errno LinuxDescriptors::pipeDescriptor(pid_t pid, int fd, darwin::pipe_fdinfo &info) {
  return ask(&Descriptors::pipe, pid, fd, info);
}

Errno LinuxDescriptors::kqueueDescriptor(pid_t pid, int fd, darwin::kqueue_fdinfo &info) {
  return ask(&Descriptors::kqueue, pid, fd, info);
}

Errno LinuxDescriptors::kqueueEvents(pid_t pid, int fd,
                                     std::vector<darwin::kevent_extinfo> &events) {
  return ask(&Descriptors::kqueueEvents, pid, fd, events);
}

// Nothing here is a channel.
Errno LinuxDescriptors::channelDescriptor(pid_t pid, int fd, darwin::channel_fdinfo &) {
  uint32_t type = 0;
  Errno error = descriptorType(pid, fd, type);
  return error == kAnswered ? darwin::DARWIN_EBADF : error;
}

}  // namespace host::linux_machine
