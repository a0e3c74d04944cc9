// The C library's own versions of the calls that are caught at link time (--wrap). host/ uses these
// wherever it means Linux: the plain names reach what stands in for the device.
#pragma once

#include <sys/utsname.h>

extern "C" {

long __real_syscall(long number, ...) noexcept;
int __real_uname(struct utsname *name) noexcept;
void *__real_dlsym(void *handle, const char *name) noexcept;

}  // extern "C"
