#include "text/format.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>

namespace sondex {

const char *printSize(uint64_t bytes) {
  static char text[80];
  double value = static_cast<double>(bytes);
  char unit = 'B';
  if (value > 9999.0) {
    value /= 1024;
    unit = 'K';
    if (value > 999.0) {
      value /= 1024;
      unit = 'M';
    }
    // Kept: a test of its own, not an else. Exactly 999 units stay in the smaller unit.
    if (value > 999.0) {
      value /= 1024;
      unit = 'G';
    }
  }

  const bool whole = value - static_cast<double>(static_cast<uint64_t>(value)) == 0.0;
  if (whole) {
    snprintf(text, sizeof text, "%5.0f%c", value, unit);
  } else if (value > 100.0) {
    snprintf(text, sizeof text, "%-3.1f%c", value, unit);
  } else if (value > 10.0) {
    snprintf(text, sizeof text, "%-4.2f%c", value, unit);
  } else {
    snprintf(text, sizeof text, "%-4.3f%c", value, unit);
  }
  return text;
}

const char *secsToTimeString(uint64_t seconds, uint64_t fraction, int longForm) {
  static char text[36];
  const uint64_t totalMinutes = seconds / 60;
  const uint64_t days = seconds / 86400;
  const uint64_t hours = totalMinutes / 60 - 24 * days;
  // Below a day each of these fits a byte; the casts only narrow what the arithmetic bounded.
  const int shownDays = days > INT_MAX ? INT_MAX : static_cast<int>(days);
  const int shownHours = static_cast<int>(hours);
  const int minutes = static_cast<int>(totalMinutes % 60);
  const unsigned long long shownSeconds = seconds % 60;
  const int hundredths = static_cast<int>((fraction / 100000) % 100);

  if (days != 0 && longForm == 0) {
    snprintf(text, sizeof text, " >1 day ");
  } else if (days != 0 && hours != 0) {
    snprintf(text, sizeof text, "%2d days, %02d:%02d", shownDays, shownHours, minutes);
  } else if (days != 0) {
    snprintf(text, sizeof text, "%2d days, %02d mins", shownDays, minutes);
  } else if (hours != 0) {
    snprintf(text, sizeof text, "%02d:%02d:%02llu", shownHours, minutes, shownSeconds);
  } else if (minutes != 0) {
    snprintf(text, sizeof text, "%2d:%02llu.%02d", minutes, shownSeconds, hundredths);
  } else {
    snprintf(text, sizeof text, "   %02llu.%02d", shownSeconds, hundredths);
  }
  return text;
}

char *nsecsToTimeString(uint64_t nanoseconds) {
  return strdup(secsToTimeString(nanoseconds / 1000000000, (nanoseconds % 1000000000) / 100, 0));
}

}  // namespace sondex
