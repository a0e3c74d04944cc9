#include "capture/time_zone.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

namespace sondex {

constexpr long kMostRules =
    256;  // bytes at the end of a file in which a zone's rules are looked for

static bool isLetter(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
}

// Whether it begins with a name and the distance to UTC, as a text of its own does.
static bool saysAll(const char *text) {
  if (strcmp(text, "UTC") == 0) return true;
  const char *at = text;
  if (*at == '<') {
    while (*at != '\0' && *at != '>') at++;
    if (*at == '>') at++;
  } else {
    while (isLetter(*at)) at++;
    if (at - text < 3) return false;
  }
  if (*at == '+' || *at == '-') at++;
  return *at >= '0' && *at <= '9' && strlen(text) < kZoneSize;
}

// The last line of a file of the zone's history is what holds from now on.
static bool readRules(const char *path, char *zone) {
  FILE *file = fopen(path, "r");
  if (file == nullptr) return false;
  char end[kMostRules + 1] = {};
  size_t length = 0;
  if (fseek(file, 0, SEEK_END) == 0) {
    const long size = ftell(file);
    const long start = size > kMostRules ? size - kMostRules : 0;
    if (size > 0 && fseek(file, start, SEEK_SET) == 0) {
      length = fread(end, 1, static_cast<size_t>(kMostRules), file);
    }
  }
  fclose(file);
  if (length < 2 || end[length - 1] != '\n') return false;
  end[length - 1] = '\0';
  const char *line = end + length - 1;
  while (line > end && line[-1] != '\n') line--;
  if (!saysAll(line)) return false;
  memcpy(zone, line, strlen(line) + 1);
  if (strcmp(zone, "UTC0") == 0) zone[3] = '\0';
  return true;
}

// As far as it is known: the distance that holds now.
static void nameDistance(char *zone) {
  const time_t now = time(nullptr);
  tm parts = {};
  localtime_r(&now, &parts);
  const long west = -parts.tm_gmtoff;
  if (west == 0) {
    snprintf(zone, kZoneSize, "UTC");
    return;
  }
  const long size = west < 0 ? -west : west;
  // The name has the sign that clocks show.
  snprintf(zone, kZoneSize, "<%s%02ld%02ld>%s%ld:%02ld", west < 0 ? "+" : "-", size / 3600,
           size / 60 % 60, west < 0 ? "-" : "", size / 3600, size / 60 % 60);
}

const char *findTimeZone(char *zone) {
  const char *named = getenv("TZ");
  if (named != nullptr && *named == ':') named++;
  if (named != nullptr && *named == '\0') named = "UTC";
  if (named != nullptr && saysAll(named)) {
    snprintf(zone, kZoneSize, "%s", named);
    return zone;
  }
  char path[256] = "/etc/localtime";
  if (named != nullptr) {
    snprintf(path, sizeof path, "%s%s", *named == '/' ? "" : "/usr/share/zoneinfo/", named);
  }
  if (!readRules(path, zone)) nameDistance(zone);
  return zone;
}

}  // namespace sondex
