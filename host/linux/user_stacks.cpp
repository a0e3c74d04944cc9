#include "host/linux/user_stacks.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "host/linux/child_answer.h"
#include "host/linux/stopped_threads.h"
#include "host/linux/unwinder.h"

namespace host::linux_machine {

// For threads that wait for a processor, or are about to wake from a sleep that can't be disturbed.
static constexpr std::chrono::seconds kUntilStopped{1};

static constexpr size_t kMemory = size_t{2} << 30;
static constexpr size_t kMostWords = size_t{16} << 20;

// Words of one image: its address, and its UUID.
static constexpr size_t kImageWords = 3;

std::vector<uint64_t> packUserStacks(const UserStacks &stacks) {
  std::vector<uint64_t> words = {stacks.images.size()};
  for (const SnapshotImage &image : stacks.images) {
    uint64_t uuid[2];
    static_assert(sizeof uuid == sizeof image.uuid);
    std::memcpy(uuid, image.uuid.data(), sizeof uuid);
    words.insert(words.end(), {image.address, uuid[0], uuid[1]});
  }
  for (const auto &[thread, frames] : stacks.stacks) {
    words.insert(words.end(), {static_cast<uint64_t>(thread), frames.size()});
    words.insert(words.end(), frames.begin(), frames.end());
  }
  return words;
}

UserStacks unpackUserStacks(const std::vector<uint64_t> &words) {
  UserStacks stacks;
  auto next = words.begin();
  const auto left = [&] { return static_cast<uint64_t>(words.end() - next); };
  if (left() == 0) return stacks;
  const uint64_t images = *next++;
  if (images > left() / kImageWords) return stacks;
  for (uint64_t i = 0; i < images; i++) {
    SnapshotImage &image = stacks.images.emplace_back();
    image.address = *next++;
    std::memcpy(image.uuid.data(), &*next, image.uuid.size());
    next += 2;
  }
  while (left() >= 2) {
    const uint64_t thread = *next++;
    const uint64_t frames = *next++;
    if (frames > left() || frames == 0 || frames > Unwinder::kMostFrames) break;
    const auto end = next + static_cast<std::ptrdiff_t>(frames);
    stacks.stacks[static_cast<pid_t>(thread)].assign(next, end);
    next = end;
  }
  return stacks;
}

static std::vector<uint64_t> readInChild(pid_t process, const std::vector<pid_t> &threads) {
  UserStacks found;
  // The files of a process whose first thread has ended tell nothing, those of its others do.
  Unwinder unwinder(threads.empty() ? process : threads.front());
  if (!unwinder.prepare()) return packUserStacks(found);
  found.images = unwinder.images();
  {
    const StoppedThreads halt(threads, kUntilStopped);
    for (const pid_t thread : halt.stopped()) {
      std::vector<uint64_t> frames = unwinder.stack(thread);
      if (!frames.empty()) found.stacks[thread] = std::move(frames);
    }
  }
  return packUserStacks(found);
}

UserStacks readUserStacks(pid_t process, const std::vector<pid_t> &threads,
                          std::chrono::seconds patience) {
  const ChildLimits limits = {patience, kMemory, kMostWords};
  const std::optional<std::vector<uint64_t>> words =
      answerOfChild([&] { return readInChild(process, threads); }, limits);
  return words ? unpackUserStacks(*words) : UserStacks{};
}

}  // namespace host::linux_machine
