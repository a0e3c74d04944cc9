// What a simulated device says of its processes' descriptors.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/machine/descriptors.h"
#include "host/simulator/descriptor_answers.h"
#include "host/simulator/live_device.h"

namespace host::simulator {

class SimulatedDescriptors : public virtual DescriptorQuestions {
 public:
  explicit SimulatedDescriptors(LiveDevice &device) : device_(device) {}

  Errno descriptors(pid_t pid, size_t limit, std::vector<darwin::proc_fdinfo> &list) override;
  Errno descriptorTableSize(pid_t pid, size_t &slots) override;
  Errno descriptorType(pid_t pid, int fd, uint32_t &type) override;
  Errno vnodeDescriptor(pid_t pid, int fd, darwin::vnode_fdinfowithpath &info) override;
  Errno socketDescriptor(pid_t pid, int fd, darwin::socket_fdinfo &info) override;
  Errno semaphoreDescriptor(pid_t pid, int fd, darwin::psem_fdinfo &info) override;
  Errno sharedMemoryDescriptor(pid_t pid, int fd, darwin::pshm_fdinfo &info) override;
  Errno pipeDescriptor(pid_t pid, int fd, darwin::pipe_fdinfo &info) override;
  Errno kqueueDescriptor(pid_t pid, int fd, darwin::kqueue_fdinfo &info) override;
  Errno kqueueEvents(pid_t pid, int fd, std::vector<darwin::kevent_extinfo> &events) override;
  Errno channelDescriptor(pid_t pid, int fd, darwin::channel_fdinfo &info) override;

 private:
  template <typename T>
  Errno ask(Question question, pid_t pid, int fd, T &answer,
            Errno (*fill)(const DescriptorView &, T &));

  LiveDevice &device_;
};

}  // namespace host::simulator
