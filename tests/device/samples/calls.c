// Calls whose numbers, structures or ways of passing differ between the device and this machine.
// Built for both: what it prints is the same.
#include <errno.h>
#include <fcntl.h>
#include <locale.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

__attribute__((format(printf, 1, 2))) static void say(const char *format, ...) {
  char text[200];
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  va_start(arguments, format);
  vprintf(format, arguments);
  va_end(arguments);
  printf("  (%d)\n[%s]\n", length, text);
}

static void formats(void) {
  char few[6];
  const char *volatile tooMany = "abcdefg";
  say("integers %d %hhd %hd %ld %lld %zu %jd", -1, (signed char)-2, (short)-3, -4l, -5ll, (size_t)6,
      (intmax_t)-7);
  say("unsigned %u %x %#lX %o", 4000000000u, 0xBEEFu, 0xFEDCBA9876543210ul, 8u);
  say("floats %f %.3e %g %a", 1.5, -2.25e100, 1e-5, 0.5);
  say("widths %5d|%-5d|%05d|%+d|% d|%*d|%.*s|%-*s|", 1, 2, 3, 4, 5, 6, 7, 2, "cut", 5, "pad");
  say("many %d %s %c %g %d %s %c %g %d %s %c %g", 1, "a", 'x', 0.5, 2, "b", 'y', 1.5, 3, "c", 'z',
      2.5);
  say("percent %% and text %s", "last");
  printf("%d [%s]\n", snprintf(few, sizeof few, "%s-%d", tooMany, 42), few);
  fprintf(stderr, "%s %d %.1Lf\n", "to the other stream", 17, 1.5L);
  fputs("put ", stdout);
  fwrite("written\n", 1, 8, stdout);
}

#define ERRORS(each)                                                                              \
  each(EPERM) each(ENOENT) each(EINTR) each(EBADF) each(EEXIST) each(EAGAIN) each(EDEADLK) each(  \
      ENOMEM) each(EACCES) each(EINVAL) each(ENOTTY) each(EPIPE) each(ERANGE) each(EINPROGRESS)   \
      each(EALREADY) each(ENOTSOCK) each(EDESTADDRREQ) each(EMSGSIZE) each(EPROTOTYPE)            \
          each(ENOPROTOOPT) each(EPROTONOSUPPORT) each(ESOCKTNOSUPPORT) each(ENOTSUP)             \
              each(EPFNOSUPPORT) each(EAFNOSUPPORT) each(EADDRINUSE) each(EADDRNOTAVAIL)          \
                  each(ENETDOWN) each(ENETUNREACH) each(ENETRESET) each(ECONNABORTED)             \
                      each(ECONNRESET) each(ENOBUFS) each(EISCONN) each(ENOTCONN) each(ESHUTDOWN) \
                          each(ETOOMANYREFS) each(ETIMEDOUT) each(ECONNREFUSED) each(ELOOP)       \
                              each(ENAMETOOLONG) each(EHOSTDOWN) each(EHOSTUNREACH)               \
                                  each(ENOTEMPTY) each(EUSERS) each(EDQUOT) each(ESTALE)          \
                                      each(EREMOTE) each(ENOLCK) each(ENOSYS) each(EOVERFLOW)     \
                                          each(ECANCELED) each(EIDRM) each(ENOMSG) each(EILSEQ)   \
                                              each(EBADMSG) each(EMULTIHOP) each(ENODATA)         \
                                                  each(ENOLINK) each(ENOSR) each(ENOSTR)          \
                                                      each(EPROTO) each(ETIME) each(EOPNOTSUPP)   \
                                                          each(ENOTRECOVERABLE) each(EOWNERDEAD)
#define SAY_ERROR(name) printf("%s: %s\n", #name, strerror(name));

static void sayError(const char *what, int result) {
  const char *name = "another";
#define NAME_ERROR(known) \
  if (errno == known) name = #known;
  ERRORS(NAME_ERROR)
  printf("%s: %d, %s\n", what, result, result < 0 ? name : "none");
}

static void errors(void) {
  ERRORS(SAY_ERROR)
  char path[600];
  memset(path, 'x', sizeof path);
  path[sizeof path - 1] = '\0';
  sayError("open of nothing", open("/nowhere/nothing", O_RDONLY));
  sayError("open of too long a name", open(path, O_RDONLY));
  sayError("open of a link", open("/dev/fd", O_RDONLY | O_NOFOLLOW));
  sayError("read of a bad descriptor", (int)read(99, path, 1));
  sayError("lseek of a bad descriptor", (int)lseek(99, 0, SEEK_SET));
  errno = 0;
  close(0);
  printf("untouched: %d\n", errno);
  // One that stays unread until another is written over it.
  close(99);
  errno = ENAMETOOLONG;
  perror("written");
}

static void streams(void) {
  int ends[2];
  char buffer[64] = "";
  if (pipe(ends) != 0) return;
  printf("flags %d\n", fcntl(ends[0], F_GETFL) == O_RDONLY);
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  printf("flags %d %d\n", (fcntl(ends[0], F_GETFL) & O_NONBLOCK) != 0,
         (fcntl(ends[0], F_GETFL) & O_APPEND) != 0);
  sayError("read of an empty pipe", (int)read(ends[0], buffer, 1));
  fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  const int copy = fcntl(ends[1], F_DUPFD_CLOEXEC, 50);
  printf("%d %d %d\n", fcntl(ends[0], F_GETFD), copy, fcntl(copy, F_GETFD));
  struct pollfd polled[2] = {{ends[0], POLLIN, 0}, {copy, POLLOUT, 0}};
  printf("polled %d", poll(polled, 2, 0));
  printf(" %d %d\n", polled[0].revents == 0, polled[1].revents == POLLOUT);
  FILE *stream = fdopen(copy, "w");
  fprintf(stream, "%s %lu", "through", 4000000000000ul);
  fflush(stream);
  printf("%d [%s]\n", (int)read(ends[0], buffer, sizeof buffer - 1), buffer);
  fclose(stream);
  close(ends[1]);
  printf("ended %d", poll(polled, 1, 1000));
  printf(" %d\n", (polled[0].revents & POLLHUP) != 0);
  struct winsize size = {0, 0, 0, 0};
  sayError("size of a pipe", ioctl(ends[0], TIOCGWINSZ, &size));
  sayError("a socket of no kind", socket(9999, SOCK_STREAM, 0));
}

static void files(const char *path) {
  struct stat made, linked;
  const int descriptor = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0640);
  sayError("once more", open(path, O_WRONLY | O_CREAT | O_EXCL, 0640));
  fchmod(descriptor, 0604);
  printf("%d %d\n", (int)write(descriptor, "content", 7), (int)pwrite(descriptor, "C", 1, 0));
  printf("%d\n", (int)lseek(descriptor, -3, SEEK_CUR));
  ftruncate(descriptor, 5);
  fstat(descriptor, &made);
  lstat(path, &linked);
  printf("%o %d %d %d %d\n", (unsigned)made.st_mode, (int)made.st_nlink, (int)made.st_size,
         made.st_ino == linked.st_ino && made.st_dev == linked.st_dev, S_ISREG(linked.st_mode));
  printf("%d %d\n", made.st_uid == geteuid(), (int)(time(0) - made.st_mtime) < 60);
  fstat(open("/dev/null", O_RDWR), &made);
  printf("%d\n", S_ISCHR(made.st_mode) && made.st_rdev != 0);
  unlink(path);
  sayError("gone", lstat(path, &made));
  char *memory = mmap(0, 65536, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  memory[65535] = 1;
  printf("%d %d", memory[0], memory[65535]);
  printf(" %d\n", munmap(memory, 65536));
}

static volatile int g_caught;

static void catch (int number) {
  g_caught = number;
}

static void *threadMain(void *argument) {
  errno = ERANGE;
  *(int *)argument = pthread_self() != 0;
  return 0;
}

static void signalsAndThreads(void) {
  printf("%d\n", signal(SIGPIPE, catch) == SIG_DFL);
  int ends[2];
  if (pipe(ends) != 0) return;
  close(ends[0]);
  sayError("write for nobody", (int)write(ends[1], "x", 1));
  printf("%d %d\n", g_caught == SIGPIPE, signal(SIGPIPE, SIG_IGN) == catch);
  printf("%d\n", signal(SIGUSR1, SIG_DFL) == SIG_DFL && signal(SIGCHLD, catch) == SIG_DFL);
  sayError("a signal of no number", signal(77, catch) == SIG_ERR ? -1 : 0);
  sigset_t wanted, before;
  sigemptyset(&wanted);
  sigaddset(&wanted, SIGUSR1);
  sigaddset(&wanted, SIGCHLD);
  pthread_sigmask(SIG_BLOCK, &wanted, 0);
  sigemptyset(&wanted);
  sigaddset(&wanted, SIGCHLD);
  pthread_sigmask(SIG_UNBLOCK, &wanted, &before);
  printf("%d %d", sigismember(&before, SIGUSR1), sigismember(&before, SIGCHLD));
  pthread_sigmask(SIG_SETMASK, 0, &before);
  printf(" %d %d\n", sigismember(&before, SIGUSR1), sigismember(&before, SIGCHLD));
  pthread_t thread;
  volatile int seen = 0;
  errno = EINPROGRESS;
  if (pthread_create(&thread, 0, threadMain, (void *)&seen) != 0) return;
  pthread_detach(thread);
  const struct timespec moment = {0, 1000000};
  for (int i = 0; i < 10000 && !seen; i++) nanosleep(&moment, 0);
  printf("%d %d\n", seen, errno == EINPROGRESS);
}

static void times(void) {
  struct timespec first, second;
  struct timeval day;
  clock_gettime(CLOCK_MONOTONIC, &first);
  usleep(2000);
  clock_gettime(CLOCK_MONOTONIC, &second);
  const int64_t passed =
      (second.tv_sec - first.tv_sec) * 1000000000ll + second.tv_nsec - first.tv_nsec;
  gettimeofday(&day, 0);
  clock_gettime(CLOCK_REALTIME, &first);
  printf("%d %d\n", passed >= 2000000 && passed < 60000000000ll,
         (int)(first.tv_sec - day.tv_sec) <= 1 && day.tv_usec >= 0 && day.tv_usec < 1000000);
  sayError("a clock of no number", clock_gettime((clockid_t)15000, &first));
  const time_t moment = 1700000000;
  struct tm local;
  char text[64];
  localtime_r(&moment, &local);
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %Z", &local);
  printf("%s %d %ld\n", text, local.tm_yday, local.tm_gmtoff);
}

static int compare(const void *one, const void *other) {
  return *(const short *)one - *(const short *)other;
}

static void library(void) {
  short numbers[] = {5, -3, 9, 0};
  qsort(numbers, 4, sizeof numbers[0], compare);
  printf("%d %d %d %d\n", numbers[0], numbers[1], numbers[2], numbers[3]);
  char *rest;
  const long number = strtol("0x1fz", &rest, 0);
  printf("%ld %s\n", number, rest);
  char *copy = strdup("copied");
  printf("%s %d %d\n", copy, strncasecmp(copy, "COPY", 3), (int)strcspn(copy, "i"));
  free(copy);
  printf("%d\n", setlocale(LC_CTYPE, "C.UTF-8") != 0);
  printf("%d\n", setlocale(LC_ALL, "no such locale") == 0);
  printf("%d\n", getenv("nothing of this name") == 0 && getenv("LC_ALL") != 0);
}

static void lastWord(void) {
  puts("at exit");
}

// The argument is a file to make.
int main(int argc, char **argv) {
  if (argc < 2) return 1;
  formats();
  errors();
  streams();
  files(argv[1]);
  signalsAndThreads();
  times();
  library();
  atexit(lastWord);
  exit(3);
}
