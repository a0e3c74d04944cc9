// Jetsam: the priority list, places in it and limits, and the memory level.
#include "host/darwin/memorystatus.h"

#include <chrono>
#include <cstring>
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

constexpr int32_t kDefaultBand = -1;

// What the commands about one process have in common.
template <typename Properties>
bool areAsAsked(int32_t pid, const void *buffer, size_t size) {
  return pid != 0 && buffer != nullptr && size == sizeof(Properties);
}

// False for a band that the kernel does not have.
bool findPlace(const darwin::memorystatus_priority_properties &asked, MemoryStatusPlace &place) {
  const int32_t scale = bandScale(kernel().kernelFamily());
  const int32_t band = asked.priority;
  place.userData = asked.user_data;
  if (band == kDefaultBand) return true;
  place.isFirst = band == darwin::JETSAM_PRIORITY_IDLE_HEAD;
  const bool isAgeing = band == darwin::JETSAM_PRIORITY_AGING_BAND1 * scale ||
                        band == darwin::JETSAM_PRIORITY_AGING_BAND2 * scale;
  place.band = place.isFirst || isAgeing ? darwin::JETSAM_PRIORITY_IDLE : band;
  return *place.band >= darwin::JETSAM_PRIORITY_IDLE &&
         *place.band <= darwin::JETSAM_PRIORITY_MAX * scale;
}

Errno setPlace(int32_t pid, uint32_t flags, const void *buffer, size_t size) {
  using Properties = darwin::memorystatus_priority_properties;
  if (!areAsAsked<Properties>(pid, buffer, size) || flags != 0) return darwin::DARWIN_EINVAL;
  Properties asked{};
  std::memcpy(&asked, buffer, sizeof asked);
  MemoryStatusPlace place;
  if (!findPlace(asked, place)) return darwin::DARWIN_EINVAL;
  return memoryStatus().setMemoryStatusPlace(pid, place);
}

Errno getLimits(int32_t pid, void *buffer, size_t size) {
  using Properties = darwin::memorystatus_memlimit_properties;
  if (!areAsAsked<Properties>(pid, buffer, size)) return darwin::DARWIN_EINVAL;
  Properties limits{};
  const Errno error = memoryStatus().memoryLimits(pid, limits);
  return error == kAnswered ? copyOut(&limits, sizeof limits, buffer) : error;
}

Errno setLimits(int32_t pid, const void *buffer, size_t size) {
  using Properties = darwin::memorystatus_memlimit_properties;
  if (!areAsAsked<Properties>(pid, buffer, size)) return darwin::DARWIN_EINVAL;
  Properties limits{};
  std::memcpy(&limits, buffer, sizeof limits);
  return memoryStatus().setMemoryLimits(pid, limits);
}

}  // namespace

Errno memorystatusControl(uint32_t command, int32_t pid, uint32_t flags, void *buffer, size_t size,
                          int &result) noexcept {
  if (!callerIsPrivileged()) return darwin::DARWIN_EPERM;
  return guarded([&]() -> Errno {
    switch (command) {
      case darwin::MEMORYSTATUS_CMD_GET_PRIORITY_LIST:
        // The kernel presented looks neither at pid nor at flags for it.
        return buffer == nullptr ? listSize(result) : fetchList(buffer, size, result);
      case darwin::MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES:
        return setPlace(pid, flags, buffer, size);
      case darwin::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES:
        return getLimits(pid, buffer, size);
      case darwin::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES:
        return setLimits(pid, buffer, size);
      default:
        return darwin::DARWIN_EINVAL;
    }
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
