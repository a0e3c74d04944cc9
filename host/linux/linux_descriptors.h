// What this machine says of its processes' descriptors.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/darwin/errors.h"
#include "host/linux/shared_processes.h"
#include "host/machine/descriptors.h"

namespace host::linux_machine {

class LinuxDescriptors : public virtual DescriptorQuestions {
 public:
  explicit LinuxDescriptors(SharedProcesses &processes) : shared_(processes) {}

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
  // Of the present process.
  void lookAtFiles(int directory, size_t most);
  void countCost(const std::vector<darwin::proc_fdinfo> &list);
  Errno listPresent(pid_t pid, size_t limit, std::vector<darwin::proc_fdinfo> &list,
                    std::vector<uint64_t> &sockets);
  template <typename T>
  struct Kind {
    Errno (Descriptors::*question)(int, int, T &);
    uint32_t type;
    Errno otherType = darwin::DARWIN_EBADF;  // the answer for a descriptor of another type
  };
  template <typename T>
  Errno ask(const Kind<T> &kind, pid_t pid, int fd, T &answer);
  // The same of a kind that samples ask for.
  template <typename T>
  Errno askOnce(const Kind<T> &kind, pid_t pid, int fd, T &answer);
  template <typename T>
  Errno read(const Kind<T> &kind, int fd, T &answer);

  SharedProcesses &shared_;
  // Under the lock of the processes.
  uint64_t answeredPass_ = 0;
  size_t answersOfPass_ = 0;
  size_t askedOneByOne_ = 0;
  uint64_t lookedAt_ = 0;  // the reading in which there was a look at all files
  std::vector<FileRecord> files_;
};

}  // namespace host::linux_machine
