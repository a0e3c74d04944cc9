// Stackshots: what is asked for is kept in a configuration, and so is the snapshot. What stands in
// one is the machine's business.
#include "darwin/stackshot.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstring>
#include <list>
#include <mutex>
#include <utility>
#include <vector>

#include "darwin/layout.h"
#include "host/darwin/errors.h"
#include "host/entry/answer.h"
#include "host/entry/kernel.h"
#include "host/machine/processes.h"

struct darwin::stackshot_config_t {
  int pid = -1;
  uint64_t flags = 0;
  std::vector<uint8_t> snapshot;
};

namespace {

// UINT32_MAX as a size says that there is no snapshot.
constexpr size_t kLongestSnapshot = UINT32_MAX - 1;

std::mutex configurationsMutex;

// All there ever were: nobody has a call to release one.
std::list<darwin::stackshot_config_t> &configurations() {
  static auto *all = new std::list<darwin::stackshot_config_t>;
  return *all;
}

// `taken` is left alone unless there is a snapshot.
host::Errno takeSnapshot(int pid, uint64_t flags, std::vector<uint8_t> &taken) {
  if (!host::callerIsPrivileged()) return darwin::DARWIN_EPERM;
  if ((flags & darwin::STACKSHOT_KCDATA_FORMAT) == 0) return darwin::DARWIN_ENOTSUP;
  std::vector<uint8_t> snapshot;
  const host::Errno refusal = host::processes().stackshot(pid, flags, snapshot);
  if (refusal != host::kAnswered) return refusal;
  if (snapshot.empty()) return darwin::DARWIN_EINTR;
  if (snapshot.size() > kLongestSnapshot) return darwin::DARWIN_ENOSPC;
  taken = std::move(snapshot);
  return host::kAnswered;
}

// What the system call takes, in the form of the 4903 family.
struct RawConfiguration {
  int32_t pid;
  uint32_t flags;
  uint64_t deltaTimestamp;
  uint64_t buffer;
  uint32_t size;
  uint64_t outBufferAddress;  // where the caller wants the snapshot's address
  uint64_t outSizeAddress;    // and its size, a 32-bit word
};
DARWIN_LAYOUT(RawConfiguration, 48, 8, (pid, 0), (flags, 4), (deltaTimestamp, 8), (buffer, 16),
              (size, 24), (outBufferAddress, 32), (outSizeAddress, 40));
constexpr int kRawVersion = 1;

host::Errno mapSnapshot(const std::vector<uint8_t> &snapshot, const RawConfiguration &config) {
  void *mapped =
      mmap(nullptr, snapshot.size(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return darwin::DARWIN_ENOMEM;
  std::memcpy(mapped, snapshot.data(), snapshot.size());
  const uint64_t address = reinterpret_cast<uintptr_t>(mapped);
  const uint32_t size = static_cast<uint32_t>(snapshot.size());
  std::memcpy(reinterpret_cast<void *>(config.outBufferAddress), &address, sizeof address);
  std::memcpy(reinterpret_cast<void *>(config.outSizeAddress), &size, sizeof size);
  return host::kAnswered;
}

host::Errno rawSnapshot(int version, const void *config, size_t size) {
  if (!host::callerIsPrivileged()) return darwin::DARWIN_EPERM;
  if (config == nullptr) return darwin::DARWIN_EINVAL;
  if (version != kRawVersion) return darwin::DARWIN_ENOTSUP;
  RawConfiguration from{};
  if (size != sizeof from) return darwin::DARWIN_EINVAL;
  std::memcpy(&from, config, sizeof from);
  if (from.outBufferAddress == 0 || from.outSizeAddress == 0) return darwin::DARWIN_EINVAL;
  std::vector<uint8_t> snapshot;
  const host::Errno error = takeSnapshot(from.pid, from.flags, snapshot);
  return error == host::kAnswered ? mapSnapshot(snapshot, from) : error;
}

}  // namespace

host::Errno host::stackSnapshot(int version, const void *config, size_t size) noexcept {
  return guarded([&] { return rawSnapshot(version, config, size); });
}

darwin::stackshot_config_t *darwin::stackshot_config_create() {
  stackshot_config_t *made = nullptr;
  const host::Errno error = host::guarded([&]() -> host::Errno {
    const std::lock_guard<std::mutex> lock(configurationsMutex);
    made = &configurations().emplace_back();
    return host::kAnswered;
  });
  host::libraryAnswer(error, 0, 0);
  return made;
}

int darwin::stackshot_config_set_pid(stackshot_config_t *config, int pid) {
  if (config == nullptr) return DARWIN_EINVAL;
  config->pid = pid;
  return 0;
}

int darwin::stackshot_config_set_flags(stackshot_config_t *config, uint64_t flags) {
  if (config == nullptr) return DARWIN_EINVAL;
  config->flags = flags;
  return 0;
}

int darwin::stackshot_capture_with_config(stackshot_config_t *config) {
  if (config == nullptr || !config->snapshot.empty()) return DARWIN_EINVAL;
  const host::Errno error =
      host::guarded([&] { return takeSnapshot(config->pid, config->flags, config->snapshot); });
  host::libraryAnswer(error, 0, -1);
  return error;
}

void *darwin::stackshot_config_get_stackshot_buffer(stackshot_config_t *config) {
  if (config == nullptr || config->snapshot.empty()) return nullptr;
  return config->snapshot.data();
}

uint32_t darwin::stackshot_config_get_stackshot_size(stackshot_config_t *config) {
  if (config == nullptr || config->snapshot.empty()) return UINT32_MAX;
  return static_cast<uint32_t>(config->snapshot.size());
}
