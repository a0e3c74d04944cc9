#include "host/simulator/process_watches.h"

#include <algorithm>

#include "darwin/kqueue.h"

namespace host::simulator {

void ProcessWatch::begin(int32_t pid, uint64_t life) {
  const auto known = lives.find(pid);
  if (known != lives.end() && known->second == life) return;
  end(pid);
  lives[pid] = life;
}

void ProcessWatch::end(int32_t pid) {
  lives.erase(pid);
  std::erase_if(happened, [pid](const ProcessEvent &event) { return event.pid == pid; });
}

void ProcessWatches::remove(const ProcessWatch &watch) {
  std::erase(watches_, &watch);
}

void ProcessWatches::tell(int32_t pid, uint64_t life, uint32_t note) {
  for (ProcessWatch *watch : watches_) {
    const auto watched = watch->lives.find(pid);
    if (watched == watch->lives.end() || watched->second != life) continue;
    std::vector<ProcessEvent> &happened = watch->happened;
    const auto known = std::find_if(happened.begin(), happened.end(),
                                    [pid](const ProcessEvent &event) { return event.pid == pid; });
    if (known != happened.end()) {
      known->notes |= note;
    } else {
      happened.push_back({pid, note});
    }
    if ((note & darwin::NOTE_EXIT) != 0) watch->lives.erase(watched);
  }
}

}  // namespace host::simulator
