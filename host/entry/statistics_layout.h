// The messages of the network-statistics service as each family of kernels lays them out, in bytes
// from the start of a message, and what else differs from family to family.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "host/kernel_family.h"
#include "host/machine/networks.h"

namespace host {

struct DescriptorLayout {
  uint16_t size;
  // In the descriptor.
  uint16_t pid;
  uint16_t name;
  uint16_t effectivePID;
};

struct StatisticsLayout {
  // Requests: the least size, and where their words are.
  uint16_t addAllSize;
  uint16_t addAllProvider;
  uint16_t addAllFilter;  // 0: there is none
  uint16_t sourceRequestSize;

  uint16_t errorSize;
  uint16_t addedSize;
  uint16_t addedProvider;
  uint16_t addedReference;
  uint16_t removedSize;
  uint16_t countsSize;
  uint16_t counts;
  uint16_t descriptionProvider;
  uint16_t descriptor;
  uint16_t updateProvider;  // 0: there are no updates, which have counts and a descriptor
  uint16_t updateDescriptor;
  DescriptorLayout tcp;  // QUIC's too
  DescriptorLayout udp;

  bool hasWideReferences;  // of 64 bits, and none is given out twice
  // The header's length and flags count: answers have them too, answers to requests about all
  // sources can share datagrams and come in pages, and errors repeat the request.
  bool hasFlags;

  // By family.
  std::array<uint8_t, 5> providers;  // numbers in the order of NetworkProvider; 0: it has none
  uint8_t lastProvider;
  uint8_t systemInformation;  // its number
  uint8_t sourcesPerPage;
  bool joinsLastWords;     // counts and description into one update, of sources not told of
  bool tellsOfOpenRounds;  // to a request that is not about the open round of pages
  bool sharesDatagramsUnasked;
  bool tellsOfFullQueue;  // when the sources of a process's own protocols find no room in it
  bool tellsWhyRemoved;   // with flags
  bool asksForRoot;       // of those who subscribe to what it counts a second time
};

// The oldest known one for earlier families, the newest known one for later families.
StatisticsLayout statisticsLayoutOf(KernelFamily family) noexcept;

// Which provider a client means by this number; nothing for one that lists no sockets.
std::optional<NetworkProvider> providerOf(const StatisticsLayout &layout, uint32_t number) noexcept;

// What follows in a description of one of its sources.
const DescriptorLayout &descriptorOf(const StatisticsLayout &layout,
                                     NetworkProvider provider) noexcept;

// 0 for one that the kernel does not have.
uint32_t numberOf(const StatisticsLayout &layout, NetworkProvider provider) noexcept;

}  // namespace host
