// Error, signal, socket and file-flag numbers beside the platform's.
#include "darwin/file_flags.h"
#include "host/darwin/errors.h"
#include "host/darwin/signals.h"
#include "host/darwin/socket.h"
#include "same.h"

#define ERRORS(EACH)  \
  EACH(EPERM);        \
  EACH(ENOENT);       \
  EACH(ESRCH);        \
  EACH(EINTR);        \
  EACH(EIO);          \
  EACH(ENXIO);        \
  EACH(E2BIG);        \
  EACH(EBADF);        \
  EACH(EDEADLK);      \
  EACH(ENOMEM);       \
  EACH(EACCES);       \
  EACH(EFAULT);       \
  EACH(EBUSY);        \
  EACH(EEXIST);       \
  EACH(EINVAL);       \
  EACH(ENOTTY);       \
  EACH(ENOSPC);       \
  EACH(EROFS);        \
  EACH(ERANGE);       \
  EACH(EAGAIN);       \
  EACH(EINPROGRESS);  \
  EACH(EALREADY);     \
  EACH(ENOTSOCK);     \
  EACH(EPROTOTYPE);   \
  EACH(ENOPROTOOPT);  \
  EACH(ENOTSUP);      \
  EACH(ENOBUFS);      \
  EACH(EISCONN);      \
  EACH(ENOTCONN);     \
  EACH(ETIMEDOUT);    \
  EACH(ECONNREFUSED); \
  EACH(ENAMETOOLONG); \
  EACH(ENOSYS);       \
  EACH(EOVERFLOW);    \
  EACH(EOPNOTSUPP)
#define SIGNALS(EACH) \
  EACH(SIGHUP);       \
  EACH(SIGEMT);       \
  EACH(SIGKILL);      \
  EACH(SIGBUS);       \
  EACH(SIGSYS);       \
  EACH(SIGTERM);      \
  EACH(SIGURG);       \
  EACH(SIGSTOP);      \
  EACH(SIGTSTP);      \
  EACH(SIGCONT);      \
  EACH(SIGCHLD);      \
  EACH(SIGTTIN);      \
  EACH(SIGTTOU);      \
  EACH(SIGIO);        \
  EACH(SIGWINCH);     \
  EACH(SIGINFO);      \
  EACH(SIGUSR1);      \
  EACH(SIGUSR2)
#define FILE_FLAGS(EACH) \
  EACH(FREAD);           \
  EACH(FWRITE);          \
  EACH(O_NONBLOCK);      \
  EACH(O_APPEND)
#define SOCKETS(EACH) \
  EACH(AF_UNIX);      \
  EACH(AF_INET);      \
  EACH(AF_ROUTE);     \
  EACH(AF_LINK);      \
  EACH(AF_NDRV);      \
  EACH(AF_INET6);     \
  EACH(AF_SYSTEM);    \
  EACH(AF_VSOCK);     \
  EACH(PF_KEY);       \
  EACH(SOCK_STREAM);  \
  EACH(SOCK_DGRAM);   \
  EACH(SOCK_RAW);     \
  EACH(SOL_SOCKET);   \
  EACH(SO_RCVBUF);    \
  EACH(IPPROTO_TCP);  \
  EACH(IPPROTO_UDP)

ERRORS(KEEP_PREFIXED);
SIGNALS(KEEP_PREFIXED);
FILE_FLAGS(KEEP_PREFIXED);
SOCKETS(KEEP_PREFIXED);

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>

ERRORS(SAME_VALUE);
SIGNALS(SAME_VALUE);
FILE_FLAGS(SAME_VALUE);
SOCKETS(SAME_VALUE);

SAME_STRUCTURE(sockaddr_un, sun_len, sun_family, sun_path);
SAME_STRUCTURE(in_addr, s_addr);
static_assert(sizeof(::in6_addr) == sizeof(darwin::in6_addr));
static_assert(alignof(::in6_addr) == alignof(darwin::in6_addr));
