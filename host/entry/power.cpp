// Power sources and assertions, as objects made from what the machine says at that moment.
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "darwin/power_sources.h"
#include "host/entry/answer.h"
#include "host/entry/core_foundation.h"
#include "host/machine/power.h"

namespace {

using host::DictionaryEntry;
using host::ObjectReference;

// Where the information has its list.
constexpr char kSources[] = "Sources";
constexpr char kAssertionName[] = "AssertName";

constexpr darwin::IOReturn kBadArgument = static_cast<darwin::IOReturn>(0xE00002C2);
constexpr darwin::IOReturn kUnsupported = static_cast<darwin::IOReturn>(0xE00002C7);

ObjectReference describe(const host::PowerSource &source) {
  std::vector<DictionaryEntry> entries;
  const auto add = [&entries](const char *key, ObjectReference value) {
    entries.emplace_back(host::makeString(key), std::move(value));
  };
  if (source.capacity) {
    add(darwin::kIOPSCurrentCapacityKey, host::makeNumber(int64_t{*source.capacity}));
  }
  if (source.state) add(darwin::kIOPSPowerSourceStateKey, host::makeString(*source.state));
  if (source.isCharging) add(darwin::kIOPSIsChargingKey, host::makeBoolean(*source.isCharging));
  return host::makeDictionary(std::move(entries));
}

ObjectReference listOf(const std::vector<host::PowerSource> &sources) {
  std::vector<ObjectReference> descriptions;
  descriptions.reserve(sources.size());
  for (const host::PowerSource &source : sources) descriptions.push_back(describe(source));
  return host::makeArray(std::move(descriptions));
}

ObjectReference assertionsOf(const std::map<int32_t, std::vector<std::string>> &holders) {
  std::vector<DictionaryEntry> entries;
  for (const auto &[pid, names] : holders) {
    std::vector<ObjectReference> assertions;
    assertions.reserve(names.size());
    for (const std::string &name : names) {
      std::vector<DictionaryEntry> properties;
      properties.emplace_back(host::makeString(kAssertionName), host::makeString(name));
      assertions.push_back(host::makeDictionary(std::move(properties)));
    }
    entries.emplace_back(host::makeNumber(int64_t{pid}), host::makeArray(std::move(assertions)));
  }
  return host::makeDictionary(std::move(entries));
}

// What the information holds under that name; null when it is none, or has no list.
darwin::CFArrayRef sourcesIn(darwin::CFTypeRef info) {
  const darwin::CFDictionaryRef dictionary = host::asDictionary(info);
  if (dictionary == nullptr) return nullptr;
  const ObjectReference key = host::makeString(kSources);
  return host::asArray(darwin::CFDictionaryGetValue(dictionary, key.get()));
}

}  // namespace

namespace darwin {

CFTypeRef IOPSCopyPowerSourcesInfo(void) {
  ObjectReference info;
  host::guarded([&info]() -> host::Errno {
    host::PowerStatus status;
    const host::Errno error = host::power().powerStatus(status);
    if (error != host::kAnswered) return error;
    std::vector<DictionaryEntry> entries;
    if (status.sources) entries.emplace_back(host::makeString(kSources), listOf(*status.sources));
    info = host::makeDictionary(std::move(entries));
    return host::kAnswered;
  });
  return info.release<CFTypeRef>();
}

CFArrayRef IOPSCopyPowerSourcesList(CFTypeRef info) {
  CFArrayRef list = nullptr;
  host::guarded([&]() -> host::Errno {
    list = sourcesIn(info);
    if (list != nullptr) CFRetain(list);
    return host::kAnswered;
  });
  return list;
}

CFDictionaryRef IOPSGetPowerSourceDescription(CFTypeRef info, CFTypeRef source) {
  CFDictionaryRef description = nullptr;
  host::guarded([&]() -> host::Errno {
    const CFArrayRef list = sourcesIn(info);
    const CFIndex count = list == nullptr ? 0 : CFArrayGetCount(list);
    for (CFIndex i = 0; i < count; i++) {
      if (CFArrayGetValueAtIndex(list, i) == source) description = host::asDictionary(source);
    }
    return host::kAnswered;
  });
  return description;
}

CFTimeInterval IOPSGetTimeRemainingEstimate(void) {
  CFTimeInterval seconds = kIOPSTimeRemainingUnknown;
  host::guarded([&seconds]() -> host::Errno {
    host::PowerStatus status;
    const host::Errno error = host::power().powerStatus(status);
    if (error == host::kAnswered) seconds = status.secondsRemaining;
    return error;
  });
  return seconds;
}

IOReturn IOPMCopyAssertionsByProcess(CFDictionaryRef *assertions) {
  if (assertions == nullptr) return kBadArgument;
  const host::Errno error = host::guarded([assertions]() -> host::Errno {
    host::PowerStatus status;
    const host::Errno refused = host::power().powerStatus(status);
    if (refused != host::kAnswered || !status.assertions) return refused;
    *assertions = assertionsOf(*status.assertions).release<CFDictionaryRef>();
    return host::kAnswered;
  });
  return error == host::kAnswered ? 0 : kUnsupported;
}

}  // namespace darwin
