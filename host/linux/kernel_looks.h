// The looks at many of the kernel's objects at once that this kernel gives this user.
#pragma once

#include <optional>

#include "host/linux/file_iterator.h"
#include "host/linux/task_iterator.h"

namespace host::linux_machine {

struct KernelLooks {
  std::optional<TaskIterator> tasks;
  std::optional<FileIterator> files;

  // Puts their programs into the kernel, which takes some 15 ms. None is there where the kernel has
  // no such iterators or does not describe itself, where the caller may not use them (it takes
  // CAP_BPF and CAP_PERFMON), and where /proc, of which `procDirectory` is an open handle, does not
  // number all processes of the system as the kernel does.
  static KernelLooks load(int procDirectory);
};

}  // namespace host::linux_machine
