#include "host/linux/kernel_looks.h"

#include <bpf/libbpf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>

#include "host/linux/kernel_types.h"

namespace host::linux_machine {

// The inode of the initial namespace of pids, of which each system has one.
static constexpr ino_t kInitialPids = 0xEFFFFFFC;

// Whether the pids of a /proc are those of the initial namespace.
static bool numbersAllProcesses(int procDirectory) {
  struct stat pids {};
  char self[16];
  const ssize_t length = readlinkat(procDirectory, "self", self, sizeof self);
  int32_t number = 0;
  return fstatat(procDirectory, "self/ns/pid", &pids, 0) == 0 && pids.st_ino == kInitialPids &&
         length > 0 && parseNumber({self, static_cast<size_t>(length)}, number) &&
         number == getpid();
}

static int printNothing(libbpf_print_level, const char *, va_list) {
  return 0;
}

KernelLooks KernelLooks::load(int procDirectory) {
  if (!numbersAllProcesses(procDirectory)) return {};
  // It would say on standard error what the kernel refuses.
  libbpf_set_print(printNothing);
  const KernelTypes types(btf__load_vmlinux_btf());
  return {TaskIterator::load(types), FileIterator::load(types)};
}

}  // namespace host::linux_machine
