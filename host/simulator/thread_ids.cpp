#include "host/simulator/thread_ids.h"

namespace host::simulator {

bool ThreadIDs::claim(uint64_t id) {
  const bool wasChosen = id > kBeforeFirst && id <= last_;
  return id != 0 && !wasChosen && claimed_.insert(id).second;
}

void ThreadIDs::complete(std::vector<Thread> &threads) {
  for (Thread &thread : threads) {
    if (thread.id != 0) continue;
    do {
      ++last_;
    } while (claimed_.contains(last_));
    thread.id = last_;
  }
}

void ThreadIDs::give(std::vector<Thread> &threads) {
  for (Thread &thread : threads) {
    if (!claim(thread.id)) thread.id = 0;
  }
  complete(threads);
}

}  // namespace host::simulator
