// The wake-up pipe of the refresh loop, and a standard input, of a test's own.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>

#include "state/system.h"

namespace sondex {

// In place of g_pipe while it lives; it never blocks, as the program's own.
class WakePipe {
 public:
  WakePipe() {
    if (pipe2(g_pipe, O_NONBLOCK | O_CLOEXEC) != 0) {
      throw std::system_error(errno, std::generic_category(), "pipe2");
    }
  }
  ~WakePipe() {
    close(g_pipe[0]);
    close(g_pipe[1]);
    g_pipe[0] = g_pipe[1] = 0;
  }
  WakePipe(const WakePipe &) = delete;
  WakePipe &operator=(const WakePipe &) = delete;

  // What was written since the last call.
  std::string taken() const {
    std::string all;
    char chunk[4096];
    ssize_t length = 0;
    while ((length = read(g_pipe[0], chunk, sizeof chunk)) > 0) {
      all.append(chunk, static_cast<size_t>(length));
    }
    return all;
  }
};

// Standard input gives these bytes and then ends, while it lives.
class TypedInput {
 public:
  explicit TypedInput(std::string_view bytes) : m_before(dup(STDIN_FILENO)) {
    int ends[2];
    if (m_before < 0 || pipe2(ends, O_CLOEXEC) != 0) {
      throw std::system_error(errno, std::generic_category(), "standard input");
    }
    const ssize_t written = write(ends[1], bytes.data(), bytes.size());
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    close(ends[1]);
    if (written != static_cast<ssize_t>(bytes.size())) {
      throw std::system_error(errno, std::generic_category(), "standard input");
    }
  }
  ~TypedInput() {
    dup2(m_before, STDIN_FILENO);
    close(m_before);
  }
  TypedInput(const TypedInput &) = delete;
  TypedInput &operator=(const TypedInput &) = delete;

  // What nobody has read yet.
  static std::string left() {
    std::string all;
    char byte = 0;
    while (read(STDIN_FILENO, &byte, 1) == 1) all += byte;
    return all;
  }

 private:
  int m_before;
};

}  // namespace sondex
