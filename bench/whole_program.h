// Full-screen programs on terminals of their own: what a refresh costs them, and what they send.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

struct TerminalSize {
  unsigned short columns;
  unsigned short rows;
};

// What came for one refresh.
struct Frame {
  size_t bytes = 0;
  size_t clears = 0;  // of the whole screen
  uint64_t writes = 0;
  double seconds = 0;  // until the last of it came, on the clock
};

class TerminalProgram {
 public:
  // Starts it, found by PATH. `device` is the simulated device for sondex; "" is this machine.
  TerminalProgram(const std::vector<std::string> &arguments, TerminalSize size,
                  const std::string &device = "");
  TerminalProgram(const TerminalProgram &) = delete;
  TerminalProgram &operator=(const TerminalProgram &) = delete;
  ~TerminalProgram();

  // Takes in the first frame, which comes in pieces.
  std::optional<Frame> firstFrame() { return take(kLongQuiet, false); }
  // Types keys, if any, and takes in what is drawn until nothing came for a while; nothing at all
  // for as long is a frame too where keys were typed. Nothing once the program is gone.
  std::optional<Frame> nextFrame(std::string_view keys = "");
  // Of all its threads so far; negative when it is gone.
  double processorSeconds() const;
  // How often its threads have waited for something so far.
  uint64_t wakeUps() const;

 private:
  static constexpr int kLongQuiet = 400;  // milliseconds

  std::optional<Frame> take(int quiet, bool mayBeNothing);
  uint64_t writes() const;

  int terminal_ = -1;
  pid_t pid_ = -1;
  uint64_t writesSeen_ = 0;
};

// Has sondex draw a frame and does nothing else.
inline constexpr std::string_view kSondexRefresh = "\x04";

// Processor time of one refresh on a terminal of 160 x 50, over so many. Programs refresh by
// themselves, or for keys. Negative when the program could not be run.
double secondsPerRefresh(const std::vector<std::string> &arguments, std::string_view keys,
                         int refreshes);

}  // namespace bench
