// The C library's own versions of the calls that are caught at link time (--wrap). host/ uses these
// wherever it means Linux: the plain names reach what stands in for the device.
#pragma once

#include <linux/utsname.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>
#include <time.h>

extern "C" {

long __real_syscall(long number, ...) noexcept;
// Linux's own structure: <sys/utsname.h> is the device's here.
int __real_uname(struct new_utsname *name) noexcept;
void *__real_dlopen(const char *path, int mode) noexcept;
void *__real_dlsym(void *handle, const char *name) noexcept;
int __real_kill(pid_t pid, int signal) noexcept;
uid_t __real_geteuid(void) noexcept;
uid_t __real_getuid(void) noexcept;
pid_t __real_getpgid(pid_t pid) noexcept;
time_t __real_time(time_t *seconds) noexcept;
int __real_gettimeofday(struct timeval *time, void *zone) noexcept;
int __real_socket(int domain, int type, int protocol) noexcept;
int __real_connect(int descriptor, const struct sockaddr *address, socklen_t length);
int __real_setsockopt(int descriptor, int level, int option, const void *value,
                      socklen_t length) noexcept;
int __real_ioctl(int descriptor, unsigned long request, ...) noexcept;

}  // extern "C"
