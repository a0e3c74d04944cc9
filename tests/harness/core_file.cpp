#include "harness/core_file.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace test {

namespace {

namespace fs = std::filesystem;

// Where the own one is too large for a simulated process.
constexpr int kSmallestPid = 20'000;
constexpr int kPids = 80'000;

// Holds the number until it is closed, however the test ends: a name without a file.
FileHandle lockNumber(int number) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string name = "sondex-core-test-" + std::to_string(number);
  name.copy(address.sun_path + 1, sizeof address.sun_path - 1);
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  FileHandle handle(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (bind(handle.get(), reinterpret_cast<const sockaddr *>(&address), length) != 0) {
    handle.close();
  }
  return handle;
}

bool isFree(int pid, const std::string &path) {
  const bool isOthers = pid != getpid() && kill(pid, 0) == 0;
  return !isOthers && !fs::exists(fs::symlink_status(path));
}

}  // namespace

// Best is the test's own PID: while the test runs, no other process can have it.
CoreFile::CoreFile() {
  for (int i = 0; i <= kPids; i++) {
    const int pid = i == 0 ? getpid() : kSmallestPid + (getpid() + i) % kPids;
    if (pid >= kSmallestPid + kPids) continue;
    path_ = "/tmp/core." + std::to_string(pid);
    if (!isFree(pid, path_)) continue;
    lock_ = lockNumber(pid);
    if (!lock_.isOpen()) continue;
    pid_ = pid;
    return;
  }
  throw std::runtime_error("no PID is free");
}

CoreFile::~CoreFile() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

bool CoreFile::exists() const {
  return fs::exists(fs::symlink_status(path_));
}

std::string CoreFile::bytes() const {
  return bytesOfFile(path_);
}

std::string bytesOfFile(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace test
