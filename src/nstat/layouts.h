// Where the messages of the kernel's network-statistics service have their fields. The service has
// no layout that stays: each of five holds for the kernels of some years. A wrong one is answered
// with errors at best, at worst with figures of something else.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sondex {

enum class DescriptorKind : uint8_t { tcp, udp };

// What the sources of a kind of socket are listed under.
struct StatisticsProvider {
  uint32_t number;
  DescriptorKind descriptor;
};

constexpr size_t kMostProviders = 5;

// Where a descriptor names the owner of its source, in bytes from its own start.
struct OwnerFields {
  uint16_t pid;   // int32
  uint16_t name;  // kOwnerNameSize characters, NUL-terminated
};

constexpr size_t kOwnerNameSize = 64;

// Offsets and sizes are bytes, from the start of a message. A source's reference stands behind the
// header in all messages but those that have a field for it here.
struct StatisticsLayout {
  uint32_t firstKernel;  // the number behind "xnu-" of the first kernels that have it

  // Messages tell their own length, a datagram may hold several, and answers come in pages.
  bool tellsLength;
  // References have 64 bits instead of 32, and none is given out twice.
  bool hasWideReferences;

  uint8_t addAllSize;
  uint8_t addAllProvider;
  uint8_t addedProvider;
  uint8_t addedReference;
  uint8_t addedSize;
  uint8_t counts;  // also of an update
  uint8_t descriptionProvider;
  uint8_t descriptionDescriptor;
  uint8_t updateProvider;  // 0: there are no updates
  uint8_t updateDescriptor;

  OwnerFields tcp;
  OwnerFields udp;
  // A TCP descriptor that is shorter is of another layout.
  uint16_t shortestTCP;

  StatisticsProvider providers[kMostProviders];
  uint8_t providerCount;
};

// Ascending by their first kernel.
constexpr size_t kStatisticsLayouts = 5;
extern const StatisticsLayout kStatisticsLayout[kStatisticsLayouts];

// That of the running kernel: at first the oldest.
extern const StatisticsLayout *statisticsLayout;

// Chooses it by the kernel's version text. The oldest for a text that names no kernel; the newest
// for kernels newer than all that are known. Before other threads start.
void chooseStatisticsLayout(const char *version);

// Where a TCP descriptor of `size` bytes has its owner, in the running kernel's messages; null for
// one that is shorter than any.
const OwnerFields *ownerInTCP(size_t size);

}  // namespace sondex
