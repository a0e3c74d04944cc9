#include "vm/task_memory.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "darwin/mach_task.h"
#include "darwin/mach_vm.h"

namespace sondex {

// The kernel's own task, which most kernels don't give by its PID.
static darwin::mach_port_t obtainKernelTask() {
  fputs("Unable to get Task port for PID 0 (kernel_task) - trying special port #4 instead...\n",
        stderr);
  darwin::mach_port_t task = darwin::DARWIN_MACH_PORT_NULL;
  const darwin::mach_port_t host = darwin::mach_host_self();
  if (darwin::host_get_special_port(host, darwin::HOST_LOCAL_NODE, darwin::DARWIN_HOST_KERNEL_PORT,
                                    &task) != darwin::KERN_SUCCESS) {
    task = darwin::DARWIN_MACH_PORT_NULL;
  }
  darwin::mach_port_deallocate(darwin::mach_task_self_, host);
  fprintf(stderr, "Task port: 0x%x\n", task);
  return task;
}

darwin::mach_port_t obtainTaskPort(int32_t pid) {
  darwin::mach_port_name_t task = darwin::DARWIN_MACH_PORT_NULL;
  if (darwin::task_for_pid(darwin::mach_task_self_, pid, &task) != darwin::KERN_SUCCESS) {
    task = pid == 0 ? obtainKernelTask() : darwin::DARWIN_MACH_PORT_NULL;
  }
  if (task == darwin::DARWIN_MACH_PORT_NULL) {
    fputs(geteuid() != 0 ? "Unable to get task port (Not root, or possibly due to SIP)\n"
                         : "Unable to get task port (SIP?)\n",
          stderr);
  }
  return task;
}

darwin::kern_return_t copyTaskMemory(darwin::mach_port_t task, uint64_t address, void *to,
                                     uint32_t size, uint32_t *copied) {
  darwin::mach_vm_size_t bytes = 0;
  const darwin::kern_return_t answer = darwin::mach_vm_read_overwrite(
      task, address, size, reinterpret_cast<darwin::mach_vm_address_t>(to), &bytes);
  if (answer != darwin::KERN_SUCCESS) bytes = 0;
  *copied = bytes < size ? static_cast<uint32_t>(bytes) : size;
  return answer;
}

void reportUnreadMemory(uint64_t address, uint32_t size, darwin::kern_return_t answer) {
  fprintf(stderr, "Failed to read %x bytes of memory from %llx - Error %d\n", size,
          static_cast<unsigned long long>(address), answer);
}

void *readProcessMemory(darwin::mach_port_t task, uint64_t address, uint32_t *size) {
  void *memory = calloc(1, *size != 0 ? *size : 1);
  uint32_t copied = 0;
  const darwin::kern_return_t answer = memory != nullptr
                                           ? copyTaskMemory(task, address, memory, *size, &copied)
                                           : darwin::KERN_RESOURCE_SHORTAGE;
  if (answer != darwin::KERN_SUCCESS) {
    reportUnreadMemory(address, *size, answer);
    free(memory);
    memory = nullptr;
  }
  *size = copied;
  return memory;
}

int writeProcessMemory(darwin::mach_port_t, uint64_t, const void *, uint32_t) {
  fputs("Not yet\n", stderr);
  return -1;
}

int listImages(int32_t pid, darwin::mach_port_t task) {
  if (task != darwin::DARWIN_MACH_PORT_NULL) return 0;
  const darwin::mach_port_t obtained = obtainTaskPort(pid);
  if (obtained == darwin::DARWIN_MACH_PORT_NULL) return kNoTaskPort;
  darwin::mach_port_deallocate(darwin::mach_task_self_, obtained);
  return 0;
}

}  // namespace sondex
