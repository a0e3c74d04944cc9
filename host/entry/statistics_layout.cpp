#include "host/entry/statistics_layout.h"

#include <algorithm>

namespace host {

namespace {

// First families with another layout, or another rule.
constexpr KernelFamily kFirstFlags = 3247;
constexpr KernelFamily kFirstWideReferences = 3789;
constexpr KernelFamily kFirstAligned = 4570;  // to 8 bytes
constexpr KernelFamily kFirstQUIC = 6153;
constexpr KernelFamily kFirstLongerTCP = 7195;
constexpr KernelFamily kFirstSubflows = 8019;  // as its later kernels have it
constexpr KernelFamily kFirstPrivateSubflows = 8792;
constexpr KernelFamily kFirstLongerStill = 10002;
constexpr KernelFamily kFirstUnaskedSharing = 11215;

constexpr StatisticsLayout kOldest = {
    .addAllSize = 20,
    .addAllProvider = 16,
    .addAllFilter = 0,
    .sourceRequestSize = 20,
    .errorSize = 20,
    .addedSize = 24,
    .addedProvider = 16,
    .addedReference = 20,
    .removedSize = 20,
    .countsSize = 132,
    .counts = 20,
    .descriptionProvider = 20,
    .descriptor = 24,
    .updateProvider = 0,
    .updateDescriptor = 0,
    .tcp = {.size = 252, .pid = 124, .name = 128, .effectivePID = 200},
    .udp = {.size = 208, .pid = 80, .name = 84, .effectivePID = 156},
    .hasWideReferences = false,
    .hasFlags = false,
    .providers = {2, 0, 3, 0, 0},
    .lastProvider = 5,
    .systemInformation = 5,
    .sourcesPerPage = 100,
    .joinsLastWords = false,
    .tellsOfOpenRounds = false,
    .sharesDatagramsUnasked = false,
    .tellsOfFullQueue = false,
    .tellsWhyRemoved = false,
    .asksForRoot = false,
};

constexpr StatisticsLayout withFlags() {
  StatisticsLayout layout = kOldest;
  layout.addAllSize = 28;
  layout.addAllFilter = 20;
  layout.updateProvider = 132;
  layout.updateDescriptor = 136;
  layout.tcp.size = 260;
  layout.udp.size = 212;
  layout.hasFlags = true;
  layout.tellsOfOpenRounds = true;
  return layout;
}

constexpr StatisticsLayout withWideReferences() {
  StatisticsLayout layout = withFlags();
  layout.addAllSize = 56;
  layout.sourceRequestSize = 24;
  layout.addedSize = 28;
  layout.removedSize = 24;
  layout.countsSize = 144;
  layout.counts = 32;
  layout.descriptionProvider = 32;
  layout.descriptor = 36;
  layout.updateProvider = 144;
  layout.updateDescriptor = 148;
  layout.hasWideReferences = true;
  layout.tellsOfOpenRounds = false;
  layout.providers = {2, 3, 4, 5, 0};
  layout.lastProvider = 7;
  layout.systemInformation = 7;
  return layout;
}

constexpr StatisticsLayout aligned() {
  StatisticsLayout layout = withWideReferences();
  layout.addAllProvider = 32;
  layout.addAllFilter = 16;
  layout.errorSize = 24;
  layout.addedSize = 32;
  layout.addedProvider = 24;
  layout.addedReference = 16;
  layout.descriptor = 40;
  layout.updateDescriptor = 152;
  layout.tcp = {.size = 304, .pid = 100, .name = 180, .effectivePID = 104};
  layout.udp = {.size = 256, .pid = 128, .name = 132, .effectivePID = 196};
  layout.sourcesPerPage = 50;
  layout.joinsLastWords = true;
  return layout;
}

constexpr StatisticsLayout withLongerTCP() {
  StatisticsLayout layout = aligned();
  layout.tcp = {.size = 336, .pid = 116, .name = 196, .effectivePID = 120};
  layout.udp.size = 272;
  return layout;
}

constexpr StatisticsLayout setOf(KernelFamily family) {
  if (family < kFirstFlags) return kOldest;
  if (family < kFirstWideReferences) return withFlags();
  if (family < kFirstAligned) return withWideReferences();
  return family < kFirstLongerTCP ? aligned() : withLongerTCP();
}

}  // namespace

StatisticsLayout statisticsLayoutOf(KernelFamily family) noexcept {
  StatisticsLayout layout = setOf(family);
  if (family >= kFirstQUIC) {
    layout.providers.back() = 8;
    layout.lastProvider = family >= kFirstSubflows ? 10 : 8;
  }
  if (family >= kFirstLongerStill) {
    layout.tcp.size = 344;
    layout.udp.size = 280;
  }
  layout.tellsOfFullQueue = layout.tellsWhyRemoved = family >= kFirstSubflows;
  layout.asksForRoot = family >= kFirstPrivateSubflows;
  layout.sharesDatagramsUnasked = family >= kFirstUnaskedSharing;
  return layout;
}

std::optional<NetworkProvider> providerOf(const StatisticsLayout &layout,
                                          uint32_t number) noexcept {
  const auto found = std::find(layout.providers.begin(), layout.providers.end(), number);
  if (number == 0 || found == layout.providers.end()) return std::nullopt;
  return static_cast<NetworkProvider>(found - layout.providers.begin());
}

const DescriptorLayout &descriptorOf(const StatisticsLayout &layout,
                                     NetworkProvider provider) noexcept {
  const bool isUDP = provider == NetworkProvider::udp || provider == NetworkProvider::userlandUDP;
  return isUDP ? layout.udp : layout.tcp;
}

uint32_t numberOf(const StatisticsLayout &layout, NetworkProvider provider) noexcept {
  return layout.providers[static_cast<size_t>(provider)];
}

}  // namespace host
