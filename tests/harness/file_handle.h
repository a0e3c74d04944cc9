// An open descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace test {

class FileHandle {
 public:
  FileHandle() = default;
  explicit FileHandle(int fd) : fd_(fd) {}
  FileHandle(FileHandle &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileHandle &operator=(FileHandle &&other) noexcept {
    close();
    fd_ = std::exchange(other.fd_, -1);
    return *this;
  }
  ~FileHandle() { close(); }

  int get() const { return fd_; }
  bool isOpen() const { return fd_ >= 0; }
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

struct Pipe {
  FileHandle readEnd;
  FileHandle writeEnd;
};

// Both ends are closed on exec. Throws std::system_error.
Pipe makePipe();

}  // namespace test
