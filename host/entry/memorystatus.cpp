// Jetsam: the priority list and the memory level.
#include "darwin/memorystatus.h"

#include <chrono>
#include <utility>
#include <vector>

#include "host/entry/answer.h"
#include "host/entry/kernel.h"
#include "host/machine/memory_status.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

// The list of a size question, kept for the thread's next fetch: the two then agree, and the
// machine is asked once.
struct KeptList {
  const MemoryStatusQuestions *asked = nullptr;
  Clock::time_point taken;
  std::vector<darwin::memorystatus_priority_entry> entries;
};

constexpr std::chrono::seconds kKeptFor{1};

thread_local KeptList t_kept;

Errno listSize(int &result) {
  KeptList fresh;
  const Errno error = memoryStatus().memoryStatusList(fresh.entries);
  if (error != kAnswered) return error;
  fresh.asked = &memoryStatus();
  fresh.taken = Clock::now();
  result = static_cast<int>(fresh.entries.size() * sizeof(darwin::memorystatus_priority_entry));
  t_kept = std::move(fresh);
  return kAnswered;
}

Errno fetchList(void *buffer, size_t size, int &result) {
  KeptList list = std::exchange(t_kept, {});
  if (list.asked != &memoryStatus() || Clock::now() - list.taken >= kKeptFor) {
    list.entries.clear();
    const Errno error = memoryStatus().memoryStatusList(list.entries);
    if (error != kAnswered) return error;
  }
  const size_t bytes = list.entries.size() * sizeof(darwin::memorystatus_priority_entry);
  if (size < bytes) return darwin::DARWIN_EINVAL;
  const Errno error = copyOut(list.entries.data(), bytes, buffer);
  if (error == kAnswered) result = static_cast<int>(bytes);
  return error;
}

}  // namespace

// The kernel presented looks neither at pid nor at flags for this command.
Errno memorystatusControl(uint32_t command, int32_t, uint32_t, void *buffer, size_t size,
                          int &result) noexcept {
  if (!callerIsPrivileged()) return darwin::DARWIN_EPERM;
  if (command != darwin::MEMORYSTATUS_CMD_GET_PRIORITY_LIST) return darwin::DARWIN_EINVAL;
  return guarded([&]() -> Errno {
    return buffer == nullptr ? listSize(result) : fetchList(buffer, size, result);
  });
}

}  // namespace host

extern "C" int memorystatus_get_level(unsigned int *level) noexcept {
  const host::Errno error = host::guarded([level]() -> host::Errno {
    unsigned int percent = 0;
    const host::Errno refused = host::memoryStatus().memoryStatusLevel(percent);
    return refused == host::kAnswered ? host::copyOut(&percent, sizeof percent, level) : refused;
  });
  return host::libraryAnswer(error, 0, -1);
}
