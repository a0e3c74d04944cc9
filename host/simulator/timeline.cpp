#include "host/simulator/timeline.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace host::simulator {

// How often one event happens at most between two questions.
static constexpr int64_t kMostAtOnce = 1000;

bool Timeline::IsLater::operator()(const Entry &a, const Entry &b) const {
  return std::tie(a.at, a.isEvent, a.order) > std::tie(b.at, b.isEvent, b.order);
}

Timeline::Timeline(std::vector<Event> events) : events_(std::move(events)) {
  for (size_t i = 0; i < events_.size(); ++i) {
    addEvent(i, std::max(events_[i].at, Nanoseconds{0}));
  }
}

void Timeline::addEvent(size_t index, Nanoseconds at) {
  Entry entry;
  entry.at = at;
  entry.isEvent = true;
  entry.order = index;
  entries_.push(entry);
}

void Timeline::endLater(const Ending &ending, Nanoseconds at) {
  Entry entry;
  entry.at = at;
  entry.order = ++lastEnding_;
  entry.ending = ending;
  entries_.push(entry);
}

std::optional<Nanoseconds> Timeline::nextDue() const {
  if (entries_.empty()) return std::nullopt;
  return entries_.top().at;
}

bool Timeline::takeDue(Nanoseconds now, Due &due) {
  while (!entries_.empty() && entries_.top().at <= now) {
    const Entry entry = entries_.top();
    entries_.pop();
    if (!entry.isEvent) {
      due = {entry.at, nullptr, entry.ending};
      return true;
    }
    const Event &event = events_[entry.order];
    const Nanoseconds every = event.every.value_or(Nanoseconds{0});
    if (every.count() > 0) {
      const int64_t missed = (now - entry.at) / every;
      if (missed >= kMostAtOnce) {
        addEvent(entry.order, entry.at + (missed - kMostAtOnce + 1) * every);
        continue;
      }
      // One that would come after the end of time does not come again.
      const Nanoseconds next = addSaturating(entry.at, every);
      if (next != Nanoseconds::max()) addEvent(entry.order, next);
    }
    due = {entry.at, &event, {}};
    return true;
  }
  return false;
}

}  // namespace host::simulator
