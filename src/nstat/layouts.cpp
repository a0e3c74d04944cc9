#include "nstat/layouts.h"

#include <stddef.h>
#include <string.h>

#include <charconv>

#include "darwin/ntstat.h"

namespace sondex {

using darwin::nstat_msg_add_all_srcs;
using darwin::nstat_msg_src_added;
using darwin::nstat_msg_src_counts;
using darwin::nstat_msg_src_description;
using darwin::nstat_tcp_descriptor;
using darwin::nstat_udp_descriptor;

constexpr DescriptorKind kTCP = DescriptorKind::tcp;
constexpr DescriptorKind kUDP = DescriptorKind::udp;

// Up to revision 8 the owner stays where it is within a descriptor.
constexpr OwnerFields kEarlyTCP = {offsetof(nstat_tcp_descriptor, pid),
                                   offsetof(nstat_tcp_descriptor, pname)};
constexpr OwnerFields kEarlyUDP = {offsetof(nstat_udp_descriptor, pid),
                                   offsetof(nstat_udp_descriptor, pname)};
constexpr OwnerFields kLateUDP = {128, 132};

const StatisticsLayout kStatisticsLayout[kStatisticsLayouts] = {
    {.firstKernel = 0,
     .tellsLength = false,
     .hasWideReferences = false,
     .addAllSize = sizeof(nstat_msg_add_all_srcs),
     .addAllProvider = offsetof(nstat_msg_add_all_srcs, provider),
     .addedProvider = offsetof(nstat_msg_src_added, provider),
     .addedReference = offsetof(nstat_msg_src_added, srcref),
     .addedSize = sizeof(nstat_msg_src_added),
     .counts = offsetof(nstat_msg_src_counts, counts),
     .descriptionProvider = offsetof(nstat_msg_src_description, provider),
     .descriptionDescriptor = sizeof(nstat_msg_src_description),
     .updateProvider = 0,
     .updateDescriptor = 0,
     .tcp = kEarlyTCP,
     .udp = kEarlyUDP,
     .shortestTCP = kEarlyTCP.name,
     .providers = {{darwin::NSTAT_PROVIDER_TCP, kTCP}, {darwin::NSTAT_PROVIDER_UDP, kUDP}},
     .providerCount = 2},
    {.firstKernel = 3247,
     .tellsLength = true,
     .hasWideReferences = false,
     .addAllSize = 28,
     .addAllProvider = 16,
     .addedProvider = 16,
     .addedReference = 20,
     .addedSize = 24,
     .counts = 20,
     .descriptionProvider = 20,
     .descriptionDescriptor = 24,
     .updateProvider = 132,
     .updateDescriptor = 136,
     .tcp = kEarlyTCP,
     .udp = kEarlyUDP,
     .shortestTCP = kEarlyTCP.name,
     .providers = {{2, kTCP}, {3, kUDP}},
     .providerCount = 2},
    // From here on sockets of the stacks that programs bring along have providers of their own.
    {.firstKernel = 3789,
     .tellsLength = true,
     .hasWideReferences = true,
     .addAllSize = 56,
     .addAllProvider = 16,
     .addedProvider = 16,
     .addedReference = 20,
     .addedSize = 28,
     .counts = 32,
     .descriptionProvider = 32,
     .descriptionDescriptor = 36,
     .updateProvider = 144,
     .updateDescriptor = 148,
     .tcp = kEarlyTCP,
     .udp = kEarlyUDP,
     .shortestTCP = kEarlyTCP.name,
     .providers = {{2, kTCP}, {3, kTCP}, {4, kUDP}, {5, kUDP}},
     .providerCount = 4},
    {.firstKernel = 4570,
     .tellsLength = true,
     .hasWideReferences = true,
     .addAllSize = 56,
     .addAllProvider = 32,
     .addedProvider = 24,
     .addedReference = 16,
     .addedSize = 32,
     .counts = 32,
     .descriptionProvider = 32,
     .descriptionDescriptor = 40,
     .updateProvider = 144,
     .updateDescriptor = 152,
     .tcp = {100, 180},
     .udp = kLateUDP,
     .shortestTCP = 304,
     .providers = {{2, kTCP}, {3, kTCP}, {4, kUDP}, {5, kUDP}, {8, kTCP}},
     .providerCount = 5},
    {.firstKernel = 7195,
     .tellsLength = true,
     .hasWideReferences = true,
     .addAllSize = 56,
     .addAllProvider = 32,
     .addedProvider = 24,
     .addedReference = 16,
     .addedSize = 32,
     .counts = 32,
     .descriptionProvider = 32,
     .descriptionDescriptor = 40,
     .updateProvider = 144,
     .updateDescriptor = 152,
     .tcp = {116, 196},
     .udp = kLateUDP,
     .shortestTCP = 336,
     .providers = {{2, kTCP}, {3, kTCP}, {4, kUDP}, {5, kUDP}, {8, kTCP}},
     .providerCount = 5},
};

const StatisticsLayout *statisticsLayout = &kStatisticsLayout[0];

// The number behind "xnu-"; 0 for a text without.
static uint32_t kernelOf(const char *version) {
  constexpr char kMark[] = "xnu-";
  const char *mark = strstr(version, kMark);
  uint32_t kernel = 0;
  if (mark != nullptr) {
    const char *number = mark + strlen(kMark);
    std::from_chars(number, number + strlen(number), kernel);
  }
  return kernel;
}

void chooseStatisticsLayout(const char *version) {
  const uint32_t kernel = kernelOf(version);
  for (const StatisticsLayout &layout : kStatisticsLayout) {
    if (layout.firstKernel <= kernel) statisticsLayout = &layout;
  }
}

// The last two layouts have the same number of revision, and some builds between their first
// published kernels may have either: the size tells.
const OwnerFields *ownerInTCP(size_t size) {
  for (size_t i = kStatisticsLayouts; i-- > 0;) {
    const StatisticsLayout &layout = kStatisticsLayout[i];
    if (layout.descriptionDescriptor == statisticsLayout->descriptionDescriptor &&
        size >= layout.shortestTCP) {
      return &layout.tcp;
    }
  }
  return nullptr;
}

}  // namespace sondex
