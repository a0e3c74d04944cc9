// What is collected while a device file is read, and what can only be settled once all of it is
// known: who is meant by a name, who is whose peer, and whether it is too much.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/simulator/device.h"
#include "host/simulator/toml_reader.h"

namespace host::simulator {

enum class Limit { kProcesses, kThreads, kDescriptors, kRegions, kEvents, kBytes };

inline constexpr size_t kLongestName = 255;
// The kernel's limits less the closing NUL.
inline constexpr size_t kLongestInterface = sizeof(darwin::ndrv_info::ndrvsi_if_name) - 1;
inline constexpr size_t kLongestPath = darwin::DARWIN_MAXPATHLEN - 1;
inline constexpr size_t kLongestArgument = 262'144;
inline constexpr int64_t kLargestPriority = 127;

// What a descriptor is called where it is the peer of another; empty for none.
struct Label {
  std::string text;
  std::shared_ptr<const Place> place;  // of many descriptors; null where there is none
};

class Loading {
 public:
  Device device;

  // Counts `count` times `times` more towards a limit, before they are made.
  void take(Limit limit, uint64_t count, uint64_t times, const Place &place);

  // A process that was listed, or that an event starts (with its PID if that is known).
  void addName(const std::string &name, std::optional<int32_t> pid);
  // Calls `put` with the PID that `field` says, at once or at the end.
  void withProcess(const Field &field, std::function<void(Device &, int32_t)> put);
  // Of those listed so far; null for none.
  const Process *findListed(const Field &field) const;
  void addListed(Process process);
  const Process *findListed(int32_t pid) const;

  // A descriptor with a label or a peer.
  struct End {
    Label label;
    Label peer;
    std::function<Descriptor &(Device &)> reach;  // finds it in the device
  };
  void addEnd(End end) { ends_.push_back(std::move(end)); }

  // Nothing may be added any more.
  void settle();

 private:
  struct Named {
    std::optional<int32_t> pid;
    bool isAmbiguous = false;
  };
  struct Reference {
    std::string name;
    Place place;
    std::function<void(Device &, int32_t)> put;
  };

  int32_t pidOf(const Reference &reference) const;
  void settlePeers();

  std::array<uint64_t, 6> taken_{};
  std::unordered_map<std::string, Named> names_;
  std::unordered_map<int32_t, size_t> listed_;
  std::vector<Reference> references_;
  std::vector<End> ends_;
};

}  // namespace host::simulator
