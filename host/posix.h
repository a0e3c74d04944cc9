// The C library's own versions of the calls that are caught at link time (--wrap). host/ uses these
// wherever it means Linux: the plain names reach what stands in for the device.
#pragma once

#include <sys/types.h>
#include <sys/utsname.h>
#include <time.h>

extern "C" {

long __real_syscall(long number, ...) noexcept;
int __real_uname(struct utsname *name) noexcept;
void *__real_dlsym(void *handle, const char *name) noexcept;
uid_t __real_geteuid(void) noexcept;
uid_t __real_getuid(void) noexcept;
time_t __real_time(time_t *seconds) noexcept;

}  // extern "C"
