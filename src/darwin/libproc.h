// The calls that ask about other processes. Their structures and flavours are in proc_info.h and
// rusage.h.
#pragma once

#include <cstdint>

#include "darwin/proc_info.h"
#include "darwin/rusage.h"

namespace darwin {

// Types of proc_listpids().
constexpr uint32_t PROC_ALL_PIDS = 1;

extern "C" {

// Writes the 32-bit identifiers of the processes of a kind, newest first, pid 0 last, then zombies.
// type is one of the constants above, typeinfo the group, terminal, user or parent (not used for
// PROC_ALL_PIDS); buffersize is in bytes. Returns the bytes written, or, with a null buffer, the
// bytes to provide: every process and 20 to spare. 0 on failure with errno set (ENOMEM for a buffer
// that holds no identifier).
int proc_listpids(uint32_t type, uint32_t typeinfo, void *buffer, int buffersize);

// Writes what flavor asks about pid into buffer; arg is a thread handle, an address or 0, as the
// flavour needs. Returns the bytes written. 0 on failure with errno set: EINVAL for an unknown
// flavour, ENOMEM for a buffer below the flavour's size, ESRCH for no such process (or a zombie),
// EPERM for another user's process when the caller is not root, and on late kernels for the regions
// of pid 0. Never negative.
int proc_pidinfo(int pid, int flavor, uint64_t arg, void *buffer, int buffersize);

// Writes what flavor asks about descriptor fd of pid into buffer. Returns the bytes written, except
// for PROC_PIDFDKQUEUE_EXTINFO: the number of events registered, even when fewer fitted. 0 on
// failure with errno set: as proc_pidinfo(), EBADF for a descriptor that is not open, and EBADF,
// ENOTSOCK, ENOTSUP or EOPNOTSUPP for one of another type than the flavour is for. Never negative.
int proc_pidfdinfo(int pid, int fd, int flavor, void *buffer, int buffersize);

// Writes the rusage_info structure of the given version; buffer is the structure's address, cast.
// The caller provides the version's size: the kernel does not ask for it. Returns 0, or -1 with
// errno set: ESRCH for no such process (zombies do answer), EPERM for another user's process when
// the caller is not root, EINVAL for a version that this kernel does not know.
int proc_pid_rusage(int pid, int flavor, rusage_info_t *buffer);

}  // extern "C"

}  // namespace darwin
