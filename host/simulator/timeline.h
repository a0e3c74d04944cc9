// When what happens on a simulated device: its events, when those that come again come again, and
// when what they did ends by itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <queue>
#include <vector>

#include "host/simulator/device.h"

namespace host::simulator {

// The end of something that an event began. It names what it ends so that nothing else is ended
// that has the same number by then.
struct Ending {
  enum class Of : uint8_t { process, stop, descriptor };

  Of of = Of::process;
  int32_t pid = 0;
  uint64_t life = 0;      // of the process
  int32_t number = 0;     // of the descriptor
  uint64_t instance = 0;  // of the stop, or of the opening
};

// What happens next: an event, or else an ending.
struct Due {
  Nanoseconds at{0};
  const Event *event = nullptr;  // the timeline's
  Ending ending;
};

class Timeline {
 public:
  explicit Timeline(std::vector<Event> events);

  // The next of what is to have happened by `now`; false when all of that has. In order of time. At
  // one moment endings come first, then events in the order in which they were given.
  //
  // When a clock has jumped far ahead, of the occurrences of an event only the last thousand
  // happen: those before are passed over.
  bool takeDue(Nanoseconds now, Due &due);

  void endLater(const Ending &ending, Nanoseconds at);

  // When something happens next; nothing if that is never.
  std::optional<Nanoseconds> nextDue() const;

 private:
  struct Entry {
    Nanoseconds at{0};
    bool isEvent = false;
    size_t order = 0;  // of an event: its index
    Ending ending;
  };
  struct IsLater {
    bool operator()(const Entry &a, const Entry &b) const;
  };

  void addEvent(size_t index, Nanoseconds at);

  std::vector<Event> events_;
  std::priority_queue<Entry, std::vector<Entry>, IsLater> entries_;
  size_t lastEnding_ = 0;
};

}  // namespace host::simulator
