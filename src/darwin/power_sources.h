// The power-source and power-assertion services: what feeds the device, for how long, and which
// processes keep it awake.
#pragma once

#include <cstdint>

#include "darwin/core_foundation.h"

namespace darwin {

using CFTimeInterval = double;
using IOReturn = int32_t;

// Answers of IOPSGetTimeRemainingEstimate() that are no seconds.
constexpr CFTimeInterval kIOPSTimeRemainingUnknown = -1.0;
constexpr CFTimeInterval kIOPSTimeRemainingUnlimited = -2.0;

// Keys of a power source's description.
constexpr char kIOPSCurrentCapacityKey[] = "Current Capacity";     // number, percent
constexpr char kIOPSPowerSourceStateKey[] = "Power Source State";  // text, such as "AC Power"
constexpr char kIOPSIsChargingKey[] = "Is Charging";               // flag

extern "C" {

// All that is known now, to be asked with the calls below. Released by the caller; null on failure.
CFTypeRef IOPSCopyPowerSourcesInfo(void);
// The sources. Released by the caller; null on failure, empty on a device without any.
CFArrayRef IOPSCopyPowerSourcesList(CFTypeRef info);
// Belongs to `info`; null for what is not one of its sources.
CFDictionaryRef IOPSGetPowerSourceDescription(CFTypeRef info, CFTypeRef source);

// Seconds until all sources are empty, or one of the constants above.
CFTimeInterval IOPSGetTimeRemainingEstimate(void);

// The assertions that processes hold: PID to list. Returns 0 on success; `assertions` may stay as
// it was even then. Released by the caller.
IOReturn IOPMCopyAssertionsByProcess(CFDictionaryRef *assertions);

}  // extern "C"

}  // namespace darwin
