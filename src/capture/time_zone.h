// The zone in which the machine tells the time of day.
#pragma once

#include <stddef.h>

namespace sondex {

constexpr size_t kZoneSize = 128;

// Writes the zone in the form of the variable TZ without a file, with the rules for its summer time
// where they are known, to `zone` of kZoneSize bytes. Returns it.
const char *findTimeZone(char *zone);

}  // namespace sondex
