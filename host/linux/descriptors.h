// The open descriptors of a process from /proc/PID/fd and fdinfo, in Darwin's structures. What is
// known of sockets comes from socket_table.h. Which process, and whether the caller may ask about
// it, is the business of whoever opened its directory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "darwin/proc_info.h"
#include "host/errno.h"
#include "host/linux/file_iterator.h"
#include "host/linux/kept_files.h"
#include "host/linux/mapped_files.h"
#include "host/linux/other_networks.h"
#include "host/linux/socket_table.h"

namespace host::linux_machine {

// The type (PROX_FDTYPE_*) of a descriptor from what its link in /proc/PID/fd says.
uint32_t descriptorTypeOfLink(std::string_view link);

// Every question takes an open directory descriptor of /proc/PID. Its answers: kAnswered;
// DARWIN_EBADF if `fd` is not open or of another type (socket(): DARWIN_ENOTSOCK); DARWIN_ESRCH if
// the process is gone or a zombie; DARWIN_EPERM if it may not be looked at. Not thread-safe.
class Descriptors {
 public:
  Descriptors();
  Descriptors(const Descriptors &) = delete;
  Descriptors &operator=(const Descriptors &) = delete;
  ~Descriptors();

  // A new sample begins: the socket tables are read anew when next needed.
  void beginPass();

  // Takes over what the kernel told just now of all that a task has open, or of as many as come
  // first: the next list(), and the next question about each, are answered by that. To be taken
  // back, for none, before another task is asked about.
  void useFiles(std::vector<FileRecord> &files) { files_.swap(files); }

  // The descriptors in ascending order, at most `limit`, and the inodes of the sockets among them
  // where `sockets` is not null. Work and memory are bounded by the limit. `ownFiles` are known to
  // be files where this program itself is listed; null for another. Those whose links the caller
  // may not read count as files. Where it may not even list them, as many as there are have the
  // number -1, of which vnode() is refused; DARWIN_EPERM on kernels that don't count them.
  Errno list(int processDirectory, size_t limit, std::vector<darwin::proc_fdinfo> &list,
             std::vector<uint64_t> *sockets = nullptr, const DescriptorBudget *ownFiles = nullptr);

  // PROX_FDTYPE_*.
  Errno type(int processDirectory, int fd, uint32_t &type);

  // A file without a name left has the one it had and " (deleted)" behind it, one whose link may
  // not be read "(permission denied)" and how it is open. The offset is in bytes; an O_PATH
  // descriptor has neither FREAD nor FWRITE.
  Errno vnode(int processDirectory, int fd, darwin::vnode_fdinfowithpath &info);
  // A socket of a protocol that the kernel has no list of is a control socket with its name. One
  // that it does not list to the caller, in another network namespace, has kind and family 0.
  Errno socket(int processDirectory, int fd, darwin::socket_fdinfo &info);
  Errno semaphore(int processDirectory, int fd, darwin::psem_fdinfo &info);
  // "/name" of a file in /dev/shm, as of other files, or a memfd's own name, and the lowest address
  // that the process has it mapped at; 0 for none.
  Errno sharedMemory(int processDirectory, int fd, darwin::pshm_fdinfo &info);
  // Both ends of a pipe have one inode here; its writing end's handle is the odd one.
  Errno pipe(int processDirectory, int fd, darwin::pipe_fdinfo &info);
  Errno kqueue(int processDirectory, int fd, darwin::kqueue_fdinfo &info);
  // One event per filter: what an epoll watches, or what a timerfd, eventfd, signalfd or pidfd is.
  // At most some 10,000 registrations are read.
  Errno kqueueEvents(int processDirectory, int fd, std::vector<darwin::kevent_extinfo> &events);

 private:
  struct Link;
  // What tells sockets, or pipes, from everything else.
  struct NamelessKind {
    uint32_t type;
    Errno otherType;
    uint64_t device;  // of the file system that has nothing else in it; 0 if not known
  };

  const FileRecord *takeFile(int fd);
  Errno listFiles(int processDirectory, size_t limit, const DescriptorBudget *ownFiles);
  Errno listDirectory(int directory, int processDirectory, size_t limit,
                      const DescriptorBudget *ownFiles);
  Errno count(int processDirectory, size_t limit, std::vector<darwin::proc_fdinfo> &list,
              std::vector<uint64_t> *sockets);
  Errno readAccess(int processDirectory, int fd, darwin::proc_fileinfo &info);
  Errno readLink(int processDirectory, int fd, Link &link);
  Errno findLink(int processDirectory, int fd, const FileRecord *file, Link &link);
  Errno readFileInfo(int processDirectory, int fd, size_t limit);
  Errno open(int processDirectory, int fd, uint32_t type, Link &link, darwin::proc_fileinfo &info);
  Errno openNameless(int processDirectory, int fd, const NamelessKind &kind, uint64_t &inode,
                     darwin::proc_fileinfo &info, darwin::vinfo_stat &stat);
  void describeUnlisted(int processDirectory, int fd, uint64_t inode, darwin::socket_info &info);

  const NamelessKind socketKind_;
  const NamelessKind pipeKind_;
  const uint64_t queueDevice_;  // of event queues and their like; 0 if not known
  const NetworkKey ownNetwork_;
  SocketTable sockets_;
  OtherNetworks otherNetworks_;
  MappedFiles mappedFiles_;
  std::vector<FileRecord> files_;          // ascending by descriptor
  std::string text_;                       // the last fdinfo read
  std::vector<darwin::proc_fdinfo> list_;  // reused from one listing to the next
  std::vector<uint64_t> inodes_;
  std::vector<darwin::kevent_extinfo> events_;
};

}  // namespace host::linux_machine
