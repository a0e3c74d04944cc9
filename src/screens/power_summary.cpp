#include "screens/power_summary.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <limits>

#include "darwin/power_sources.h"
#include "text/append.h"
#include "text/format.h"

namespace sondex {

static char returned[128];

// The value behind `key`; null when there is none, or when it is not of that type.
static darwin::CFTypeRef valueOf(darwin::CFDictionaryRef description, const char *key,
                                 darwin::CFTypeID type) {
  if (description == nullptr) return nullptr;
  const darwin::CFStringRef name =
      darwin::CFStringCreateWithCString(nullptr, key, darwin::kCFStringEncodingMacRoman);
  if (name == nullptr) return nullptr;
  const darwin::CFTypeRef value = darwin::CFDictionaryGetValue(description, name);
  darwin::CFRelease(name);
  return value != nullptr && darwin::CFGetTypeID(value) == type ? value : nullptr;
}

static void appendCapacity(darwin::CFDictionaryRef description) {
  const darwin::CFTypeRef capacity =
      valueOf(description, darwin::kIOPSCurrentCapacityKey, darwin::CFNumberGetTypeID());
  int32_t percent = 0;
  if (capacity != nullptr && darwin::CFNumberGetValue(static_cast<darwin::CFNumberRef>(capacity),
                                                      darwin::kCFNumberSInt32Type, &percent) != 0) {
    // Kept: two blanks here and one below.
    append(returned, sizeof returned, "Batt:  %d%%", percent);
  } else {
    append(returned, sizeof returned, "Batt: Unknown");
  }
}

static void appendState(darwin::CFDictionaryRef description) {
  const darwin::CFTypeRef value =
      valueOf(description, darwin::kIOPSPowerSourceStateKey, darwin::CFStringGetTypeID());
  const char *state = value == nullptr
                          ? nullptr
                          : darwin::CFStringGetCStringPtr(static_cast<darwin::CFStringRef>(value),
                                                          darwin::kCFStringEncodingMacRoman);
  if (state == nullptr) {
    append(returned, sizeof returned, " <unknown> ");
    return;
  }
  append(returned, sizeof returned, " (on ");
  appendSafe(returned, sizeof returned, state, strlen(state));
  append(returned, sizeof returned, ",");
}

static void appendCharging(darwin::CFDictionaryRef description) {
  const darwin::CFTypeRef value =
      valueOf(description, darwin::kIOPSIsChargingKey, darwin::CFBooleanGetTypeID());
  const bool charging =
      value != nullptr && darwin::CFBooleanGetValue(static_cast<darwin::CFBooleanRef>(value)) != 0;
  append(returned, sizeof returned, "%sCharging", charging ? "" : " Not ");
}

static uint32_t wholeSeconds(double estimate) {
  constexpr uint32_t kMost = std::numeric_limits<uint32_t>::max();
  if (!(estimate > 0)) return 0;
  return estimate < kMost ? static_cast<uint32_t>(estimate) : kMost;
}

static void appendTimeRemaining() {
  const double estimate = darwin::IOPSGetTimeRemainingEstimate();
  if (estimate == darwin::kIOPSTimeRemainingUnlimited) {
    append(returned, sizeof returned, ")");
  } else if (estimate == darwin::kIOPSTimeRemainingUnknown) {
    append(returned, sizeof returned, "(calculating))");
  } else {
    append(returned, sizeof returned, " - %s remaining)",
           secsToTimeString(wholeSeconds(estimate), 0, 1));
  }
}

static void showHolders(darwin::CFDictionaryRef assertions, size_t count) {
  const void **keys = static_cast<const void **>(calloc(count, sizeof *keys));
  const void **values = static_cast<const void **>(calloc(count, sizeof *values));
  if (keys != nullptr && values != nullptr) {
    darwin::CFDictionaryGetKeysAndValues(assertions, keys, values);
    for (size_t i = 0; i < count; i++) {
      if (keys[i] != nullptr) darwin::CFShow(keys[i]);
    }
  }
  free(keys);
  free(values);
}

static void appendAssertions() {
  darwin::CFDictionaryRef assertions = nullptr;
  darwin::IOPMCopyAssertionsByProcess(&assertions);
  if (assertions == nullptr) {
    append(returned, sizeof returned, " No assertions");
    return;
  }
  const darwin::CFIndex count = darwin::CFDictionaryGetCount(assertions);
  if (count > 0) {
    append(returned, sizeof returned, " %d assertions (", static_cast<int>(count));
    showHolders(assertions, static_cast<size_t>(count));
  }
  append(returned, sizeof returned, ")");
  darwin::CFRelease(assertions);
}

static void describeFirstSource(darwin::CFTypeRef info, darwin::CFArrayRef sources) {
  returned[0] = '\0';
  if (darwin::CFArrayGetCount(sources) <= 0) {
    append(returned, sizeof returned, "Unable to get Power Source information");
    return;
  }
  // The description belongs to `info` and is not released.
  const darwin::CFTypeRef source = darwin::CFArrayGetValueAtIndex(sources, 0);
  const darwin::CFDictionaryRef description =
      source == nullptr ? nullptr : darwin::IOPSGetPowerSourceDescription(info, source);
  appendCapacity(description);
  appendState(description);
  appendCharging(description);
  appendTimeRemaining();
  appendAssertions();
}

const char *getPowerDetails() {
  const darwin::CFTypeRef info = darwin::IOPSCopyPowerSourcesInfo();
  // Kept: the lower-case s.
  if (info == nullptr) return "Error: IOPsCopyPowerSourcesInfo()";
  const darwin::CFArrayRef sources = darwin::IOPSCopyPowerSourcesList(info);
  if (sources == nullptr) {
    darwin::CFRelease(info);
    return "Error: IOPSCopyPowerSourcesList()";
  }
  describeFirstSource(info, sources);
  darwin::CFRelease(info);
  darwin::CFRelease(sources);
  return returned;
}

void dumpDict(darwin::CFDictionaryRef dictionary) {
  if (dictionary == nullptr) return;
  const darwin::CFDataRef data = darwin::CFPropertyListCreateXMLData(nullptr, dictionary);
  if (data == nullptr) return;
  [[maybe_unused]] const ssize_t written =
      write(STDOUT_FILENO, darwin::CFDataGetBytePtr(data),
            static_cast<size_t>(darwin::CFDataGetLength(data)));
  darwin::CFRelease(data);
}

}  // namespace sondex
