#include "descriptors.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace helper {

namespace {

constexpr size_t kMapped = 8192;

// What later steps refer to.
int lastOpened = -1;
int lastListening = -1;

int opened(int fd, const char *what) {
  require(fd >= 0, what);
  lastOpened = fd;
  return fd;
}

struct Address {
  sockaddr_storage storage{};
  socklen_t length = 0;

  sockaddr *get() { return reinterpret_cast<sockaddr *>(&storage); }
  int family() const { return storage.ss_family; }
};

// "tcp4" and "udp4" are 127.0.0.1, "tcp6" and "udp6" ::1, with any port; "@name" is an abstract
// name, anything else a path.
Address addressOf(const std::string &word) {
  Address address;
  if (word == "tcp4" || word == "udp4") {
    sockaddr_in internet{};
    internet.sin_family = AF_INET;
    internet.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.length = sizeof internet;
    std::memcpy(&address.storage, &internet, sizeof internet);
  } else if (word == "tcp6" || word == "udp6") {
    sockaddr_in6 internet{};
    internet.sin6_family = AF_INET6;
    internet.sin6_addr = in6addr_loopback;
    address.length = sizeof internet;
    std::memcpy(&address.storage, &internet, sizeof internet);
  } else {
    sockaddr_un local{};
    local.sun_family = AF_UNIX;
    if (word.size() > sizeof local.sun_path) misuse(word);
    std::memcpy(local.sun_path, word.data(), word.size());
    if (word[0] == '@') local.sun_path[0] = '\0';
    address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + word.size());
    std::memcpy(&address.storage, &local, sizeof local);
  }
  return address;
}

Address addressOf(int fd) {
  Address address;
  address.length = sizeof address.storage;
  require(getsockname(fd, address.get(), &address.length) == 0, "getsockname");
  return address;
}

int openSocket(int family, int type) {
  return opened(socket(family, type | SOCK_CLOEXEC, 0), "socket");
}

int flagsOf(const std::string &access) {
  if (access == "r") return O_RDONLY;
  if (access == "w") return O_WRONLY | O_CREAT;
  if (access == "u") return O_RDWR | O_CREAT;
  if (access == "path") return O_PATH;
  misuse(access);
}

void openFile(const std::string &access, const std::string &path, long offset) {
  const int fd = opened(open(path.c_str(), flagsOf(access) | O_CLOEXEC, 0600), path.c_str());
  require(offset == 0 || lseek(fd, offset, SEEK_SET) == offset, "lseek");
}

void listenAt(const std::string &word) {
  Address address = addressOf(word);
  lastListening = openSocket(address.family(), SOCK_STREAM);
  require(bind(lastListening, address.get(), address.length) == 0, "bind");
  require(listen(lastListening, 5) == 0, "listen");
}

enum class Child { stays, hasSaidAll };

// The child keeps of what is open here only the standard ones, and its end is the next.
void acceptFrom(Child kind, State &state) {
  Address address = addressOf(lastListening);
  const pid_t child = forkOne();
  if (child == 0) {
    close_range(STDERR_FILENO + 1, ~0U, 0);
    const int fd = openSocket(address.family(), SOCK_STREAM);
    require(connect(fd, address.get(), address.length) == 0, "connect");
    if (kind == Child::hasSaidAll) require(shutdown(fd, SHUT_WR) == 0, "shutdown");
    for (;;) pause();
  }
  state.children.push_back(child);
  const int fd = opened(accept4(lastListening, nullptr, nullptr, SOCK_CLOEXEC), "accept");
  char byte = 0;
  if (kind == Child::hasSaidAll) require(recv(fd, &byte, 1, MSG_PEEK) == 0, "recv");
}

void bindDatagrams(const std::string &word) {
  Address address = addressOf(word);
  const int fd = openSocket(address.family(), SOCK_DGRAM);
  require(bind(fd, address.get(), address.length) == 0, "bind");
}

void connectDatagrams() {
  Address address = addressOf(lastOpened);
  const int fd = openSocket(address.family(), SOCK_DGRAM);
  require(connect(fd, address.get(), address.length) == 0, "connect");
}

void openNetlink() {
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  const int fd = openSocket(AF_NETLINK, SOCK_RAW);
  require(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0, "bind");
}

void mapMemory(int fd) {
  require(ftruncate(fd, kMapped) == 0, "ftruncate");
  void *map = mmap(nullptr, kMapped, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  require(map != MAP_FAILED, "mmap");
}

// Its name is free again at once, so that nothing stays behind however the test ends.
void openSharedMemory(const std::string &name) {
  const int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
  mapMemory(opened(fd, "shm_open"));
  require(shm_unlink(name.c_str()) == 0, "shm_unlink");
}

void openEpoll() {
  const int watched = lastOpened;
  const int epoll = opened(epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
  epoll_event event{};
  event.events = EPOLLIN;
  require(epoll_ctl(epoll, EPOLL_CTL_ADD, watched, &event) == 0, "epoll_ctl");
}

int signalQueue() {
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGHUP);
  sigaddset(&mask, SIGUSR1);
  return signalfd(-1, &mask, SFD_CLOEXEC);
}

void openPair(int (*make)(int ends[2]), const char *what) {
  int ends[2];
  require(make(ends) == 0, what);
  lastOpened = ends[1];
}

struct Kind {
  const char *step;
  int (*open)();
};

// Those that need nothing else.
constexpr Kind kKinds[] = {
    {"tcp-socket", [] { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }},
    {"packet", [] { return socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0); }},
    {"eventfd", [] { return eventfd(3, EFD_CLOEXEC); }},
    {"timerfd", [] { return timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC); }},
    {"signalfd", signalQueue},
    {"pidfd", [] { return static_cast<int>(syscall(SYS_pidfd_open, getpid(), 0)); }},
    {"inotify", [] { return inotify_init1(IN_CLOEXEC); }},
};

}  // namespace

bool openDescriptor(const std::string &step, Words &words, State &state) {
  const Kind *kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                  [&](const Kind &candidate) { return step == candidate.step; });
  if (kind != std::end(kKinds)) {
    opened(kind->open(), kind->step);
  } else if (step == "file") {
    const std::string access = words.text();
    const std::string path = words.text();
    openFile(access, path, words.number());
  } else if (step == "gone-file") {
    const std::string path = words.text();
    openFile("u", path, 0);
    require(unlink(path.c_str()) == 0, "unlink");
  } else if (step == "directory") {
    const std::string path = words.text();
    opened(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), path.c_str());
  } else if (step == "pipe") {
    openPair([](int ends[2]) { return pipe2(ends, O_CLOEXEC); }, "pipe");
  } else if (step == "pair") {
    openPair([](int ends[2]) { return socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends); },
             "socketpair");
  } else if (step == "listen") {
    listenAt(words.text());
  } else if (step == "accept") {
    acceptFrom(Child::stays, state);
  } else if (step == "accept-end") {
    acceptFrom(Child::hasSaidAll, state);
  } else if (step == "datagrams") {
    bindDatagrams(words.text());
  } else if (step == "connect-datagrams") {
    connectDatagrams();
  } else if (step == "netlink") {
    openNetlink();
  } else if (step == "shared-memory") {
    openSharedMemory(words.text());
  } else if (step == "memfd") {
    const std::string name = words.text();
    mapMemory(opened(memfd_create(name.c_str(), MFD_CLOEXEC), "memfd_create"));
  } else if (step == "epoll") {
    openEpoll();
  } else {
    return false;
  }
  return true;
}

void openAndCloseUntilTheEnd() {
  constexpr size_t kAtOnce = 30;
  std::array<int, kAtOnce> open;
  open.fill(-1);
  for (size_t turn = 0; turn % 256 != 0 || !inputHasEnded(0); turn++) {
    int &place = open[turn * 7 % kAtOnce];
    if (place >= 0) close(place);
    const size_t kind = turn % (std::size(kKinds) + 3);
    if (kind < std::size(kKinds)) {
      place = kKinds[kind].open();
    } else if (kind == std::size(kKinds)) {
      place = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    } else {
      place = socket(kind % 2 == 0 ? AF_UNIX : AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    }
  }
}

}  // namespace helper
