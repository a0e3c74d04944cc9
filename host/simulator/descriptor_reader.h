// One entry of `descriptors` in a device file. Which number it gets, who its peer is and what its
// patterns stand for is decided where its process is known (process_reader.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/simulator/device.h"
#include "host/simulator/toml_reader.h"

namespace host::simulator {

// soi_state of a socket that has a peer.
inline constexpr int32_t kSocketConnected = 0x2;

// A text with a pattern in it: what it is when it is filled in goes where it belongs.
template <typename Owner>
struct Pattern {
  Place place;
  std::string text;
  size_t most = 0;  // bytes, once it is filled in
  std::function<void(Owner &, const Place &, const std::string &filled)> put;
};

struct ReadDescriptor {
  Descriptor descriptor;  // `number` as it was given, else -1
  int64_t copies = 1;
  Place place;
  Place numberPlace;  // where there is a number
  std::string label;
  std::string peer;
  Place labelPlace;  // where there is a label
  Place peerPlace;   // where there is a peer
  std::vector<Pattern<Descriptor>> patterns;
};

// A descriptor that an event opens is no part of a process yet: it has no copies, and its texts no
// patterns.
ReadDescriptor readDescriptor(const Field &field, bool isPartOfProcess);

// Bytes of memory beyond the descriptor itself.
size_t textBytes(const Descriptor &descriptor);
inline size_t textBytes(const std::string &text) {
  return text.size() + sizeof(std::string);
}

}  // namespace host::simulator
