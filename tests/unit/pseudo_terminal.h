// A pseudo-terminal of a test's own: one end is what a program sees as its terminal, from the other
// the test reads what was written there.
#pragma once

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <system_error>

namespace sondex {

class PseudoTerminal {
 public:
  PseudoTerminal(int rows, int columns) {
    m_testEnd = checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
    checked(grantpt(m_testEnd), "grantpt");
    checked(unlockpt(m_testEnd), "unlockpt");
    char name[128];
    if (ptsname_r(m_testEnd, name, sizeof name) != 0) checked(-1, "ptsname_r");
    m_programEnd = checked(open(name, O_RDWR | O_NOCTTY | O_CLOEXEC), name);
    setSize(rows, columns);
  }
  ~PseudoTerminal() {
    closeProgramEnd();
    close(m_testEnd);
  }
  PseudoTerminal(const PseudoTerminal &) = delete;
  PseudoTerminal &operator=(const PseudoTerminal &) = delete;

  int programEnd() const { return m_programEnd; }

  void closeProgramEnd() {
    if (m_programEnd >= 0) close(m_programEnd);
    m_programEnd = -1;
  }

  void setSize(int rows, int columns) const {
    winsize size = {};
    size.ws_row = static_cast<unsigned short>(rows);
    size.ws_col = static_cast<unsigned short>(columns);
    checked(ioctl(m_programEnd, TIOCSWINSZ, &size), "TIOCSWINSZ");
  }

  termios modes() const {
    termios modes = {};
    checked(tcgetattr(m_programEnd, &modes), "tcgetattr");
    return modes;
  }

  // What is written comes out byte for byte, without carriage returns put in.
  void passOutputThrough() const {
    termios now = modes();
    now.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    checked(tcsetattr(m_programEnd, TCSANOW, &now), "tcsetattr");
  }

  // As if it were typed there.
  void type(std::string_view keys) const {
    checked(static_cast<int>(write(m_testEnd, keys.data(), keys.size())), "write");
  }

  // Everything that comes until the last descriptor of the program's end is closed.
  std::string readToEnd() const {
    std::string all;
    char chunk[4096];
    for (;;) {
      const ssize_t length = read(m_testEnd, chunk, sizeof chunk);
      if (length < 0 && errno == EINTR) continue;
      if (length <= 0) return all;
      all.append(chunk, static_cast<size_t>(length));
    }
  }

 private:
  static int checked(int result, const char *what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
  }

  int m_testEnd = -1;
  int m_programEnd = -1;
};

}  // namespace sondex
