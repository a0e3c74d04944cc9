// What one entry of `[[process]]`, an event that starts processes, or a template says of each of
// its processes. It is read once, however many processes it stands for.
#pragma once

#include <cstdint>
#include <vector>

#include "host/simulator/descriptor_reader.h"
#include "host/simulator/device.h"
#include "host/simulator/loading.h"
#include "host/simulator/process_entry.h"
#include "host/simulator/region_reader.h"
#include "host/simulator/thread_reader.h"
#include "host/simulator/toml_reader.h"

namespace host::simulator {

// What a path has where none is given.
inline constexpr std::string_view kDefaultPath = "/usr/libexec/{name}";

struct Plan {
  Process process;  // without its threads, descriptors and regions
  Field name;       // where there is one
  Field parent;     // where there is one
  bool hasArguments = false;
  bool hasFootprint = false;
  GivenGrowth given;
  int64_t spread = 0;  // millionths
  Place place;
  std::vector<Pattern<Process>> patterns;
  Items<ThreadEntry> threads;
  Items<DescriptorEntry> descriptors;
  Items<RegionEntry> regions;
};

// A template is checked, and makes no items.
enum class PlanOf { kTemplate, kListed, kStarted };

// `times`: how many processes it is for, which all count towards the limits. The plan refers to
// `reader`, whose unknown keys are left to the caller.
Plan readPlan(Loading &loading, TableReader &reader, PlanOf kind, uint64_t times);

}  // namespace host::simulator
