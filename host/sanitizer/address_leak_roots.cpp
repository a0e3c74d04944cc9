// Built with the address sanitizer only: its leak check does not look into mapped memory by itself,
// and the program's process tables are mapped. Every mapping made by the program's own code is told
// to it.
#include <sanitizer/lsan_interface.h>
#include <sys/mman.h>

extern "C" {

void *__real_mmap(void *address, size_t length, int protection, int flags, int fd, off_t offset);
int __real_munmap(void *address, size_t length);

void *__wrap_mmap(void *address, size_t length, int protection, int flags, int fd, off_t offset) {
  void *memory = __real_mmap(address, length, protection, flags, fd, offset);
  if (memory != MAP_FAILED) __lsan_register_root_region(memory, length);
  return memory;
}

int __wrap_munmap(void *address, size_t length) {
  __lsan_unregister_root_region(address, length);
  return __real_munmap(address, length);
}

}  // extern "C"
