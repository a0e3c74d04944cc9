#include "host/simulator/simulated_descriptors.h"
#include "host/darwin/errors.h"

#include <algorithm>
#include <utility>

namespace host::simulator {

Errno SimulatedDescriptors::descriptors(pid_t pid, size_t limit,
                                        std::vector<darwin::proc_fdinfo> &list) {
  return device_.askProcess(Question::descriptors, Access::own, pid, [&](const ProcessMoment &at) {
    const std::vector<Descriptor> &all = at.process.descriptors();
    const size_t count = std::min(limit, all.size());
    std::vector<darwin::proc_fdinfo> open;
    open.reserve(count);
    for (size_t i = 0; i < count; ++i) open.push_back({all[i].number, typeOf(all[i])});
    list = std::move(open);
  });
}

Errno SimulatedDescriptors::descriptorTableSize(pid_t pid, size_t &slots) {
  return device_.askProcess(Question::descriptors, Access::own, pid,
                            [&](const ProcessMoment &at) { slots = at.process.descriptorSlots(); });
}

// Part of the question before it, which neither fails nor counts once more.
Errno SimulatedDescriptors::descriptorType(pid_t pid, int fd, uint32_t &type) {
  return device_.look([&](const Moment &at) -> Errno {
    const RunningProcess *process = at.state.processes().find(pid);
    const Descriptor *descriptor = process != nullptr ? process->descriptor(fd) : nullptr;
    if (descriptor == nullptr) return darwin::DARWIN_EBADF;
    type = typeOf(*descriptor);
    return kAnswered;
  });
}

template <typename T>
Errno SimulatedDescriptors::ask(Question question, pid_t pid, int fd, T &answer,
                                Errno (*fill)(const DescriptorView &, T &)) {
  return device_.askProcess(question, Access::own, pid, [&](const ProcessMoment &at) {
    const Descriptor *descriptor = at.process.descriptor(fd);
    if (descriptor == nullptr) return darwin::DARWIN_EBADF;
    if (descriptor->refusal) return *descriptor->refusal;
    return fill({at.process, *descriptor, at.state.processes().peers(), at.now}, answer);
  });
}

Errno SimulatedDescriptors::vnodeDescriptor(pid_t pid, int fd, darwin::vnode_fdinfowithpath &info) {
  return ask(Question::vnodeDescriptor, pid, fd, info, fillVnode);
}

Errno SimulatedDescriptors::socketDescriptor(pid_t pid, int fd, darwin::socket_fdinfo &info) {
  return ask(Question::socketDescriptor, pid, fd, info, fillSocket);
}

Errno SimulatedDescriptors::semaphoreDescriptor(pid_t pid, int fd, darwin::psem_fdinfo &info) {
  return ask(Question::semaphoreDescriptor, pid, fd, info, fillSemaphore);
}

Errno SimulatedDescriptors::sharedMemoryDescriptor(pid_t pid, int fd, darwin::pshm_fdinfo &info) {
  return ask(Question::sharedMemoryDescriptor, pid, fd, info, fillSharedMemory);
}

Errno SimulatedDescriptors::pipeDescriptor(pid_t pid, int fd, darwin::pipe_fdinfo &info) {
  return ask(Question::pipeDescriptor, pid, fd, info, fillPipe);
}

Errno SimulatedDescriptors::kqueueDescriptor(pid_t pid, int fd, darwin::kqueue_fdinfo &info) {
  return ask(Question::kqueueDescriptor, pid, fd, info, fillKqueue);
}

Errno SimulatedDescriptors::kqueueEvents(pid_t pid, int fd,
                                         std::vector<darwin::kevent_extinfo> &events) {
  return ask(Question::kqueueEvents, pid, fd, events, fillKqueueEvents);
}

Errno SimulatedDescriptors::channelDescriptor(pid_t pid, int fd, darwin::channel_fdinfo &info) {
  return ask(Question::channelDescriptor, pid, fd, info, fillChannel);
}

}  // namespace host::simulator
