#include "capture/figures.h"

#include "capture/device_file_writer.h"
#include "darwin/mach_host.h"

namespace sondex {

constexpr int kMillionths = 6;
constexpr uint64_t kMillion = 1'000'000;
constexpr uint64_t kFastest = 9'000'000;  // a microsecond: the most that a file can say

static int64_t g_distance;

void setSampleDistance(int64_t microseconds) {
  g_distance = microseconds > 0 ? microseconds : 0;
}

int64_t sampleDistance() {
  return g_distance;
}

// Millionths a second. Not less than it was: what is cut off where a figure is reckoned must not be
// missing there.
static int64_t growthOf(uint64_t first, uint64_t second) {
  if (g_distance == 0 || first == second) return 0;
  const uint64_t distance = static_cast<uint64_t>(g_distance);
  uint64_t rest = second > first ? second - first : first - second;
  uint64_t growth = 0;
  if (rest / distance >= kFastest) {
    growth = kFastest * kMillion * kMillion;
  } else {
    growth = rest / distance;
    for (int i = 0; i < 2; i++) {
      rest = rest % distance * kMillion;
      growth = growth * kMillion + rest / distance;
    }
    if (rest % distance != 0) growth++;
  }
  return second > first ? static_cast<int64_t>(growth) : -static_cast<int64_t>(growth);
}

static void writeStart(const char *key, uint64_t start, int decimals, bool isSize) {
  if (isSize) {
    writeSize(key, start);
  } else {
    writeDecimal(key, static_cast<int64_t>(start < INT64_MAX ? start : INT64_MAX), decimals);
  }
}

// `decimals` of the file's unit are in one of the figure's.
static void writeGrowing(const char *key, uint64_t first, int64_t growth, int decimals,
                         bool isSize) {
  beginInlineTable(key);
  if (first != 0) writeStart("start", first, decimals, isSize);
  writeDecimal("growth", growth, decimals + kMillionths);
  endInlineTable();
}

static void writeFigure(const char *key, uint64_t first, uint64_t second, uint64_t standard,
                        int decimals, bool isSize) {
  const int64_t growth = growthOf(first, second);
  if (growth != 0) {
    writeGrowing(key, first, growth, decimals, isSize);
  } else if (first != standard) {
    writeStart(key, first, decimals, isSize);
  }
}

void writeCount(const char *key, uint64_t first, uint64_t second, uint64_t standard) {
  writeFigure(key, first, second, standard, 0, false);
}

void writeBytes(const char *key, uint64_t first, uint64_t second, uint64_t standard) {
  writeFigure(key, first, second, standard, 0, true);
}

void writeTime(const char *key, uint64_t first, uint64_t second, uint64_t usual) {
  constexpr int kNanoseconds = 9;
  if (second != usual) {
    writeGrowing(key, first, growthOf(first, second), kNanoseconds, false);
  } else if (first != 0) {
    writeStart(key, first, kNanoseconds, false);
  }
}

void writeMillionths(const char *key, uint64_t first, uint64_t second) {
  writeFigure(key, first, second, UINT64_MAX, kMillionths, false);
}

void writeShare(const char *key, int32_t first, int32_t second) {
  constexpr int kTenths = 1;
  const uint64_t before = first > 0 ? static_cast<uint64_t>(first) : 0;
  const uint64_t after = second > 0 ? static_cast<uint64_t>(second) : 0;
  writeFigure(key, before, after, 0, kTenths, false);
}

// Asked once: it stays.
static const darwin::mach_timebase_info_data_t *timebase() {
  static darwin::mach_timebase_info_data_t info = {};
  if (info.denom == 0 && (darwin::mach_timebase_info(&info) != darwin::KERN_SUCCESS ||
                          info.denom == 0 || info.numer == 0)) {
    info = {1, 1};
  }
  return &info;
}

// `value` times `numerator` divided by `denominator`, rounded down, or up to where it is reached.
static uint64_t scale(uint64_t value, uint64_t numerator, uint64_t denominator, bool up) {
  const uint64_t whole = value / denominator;
  const uint64_t part = value % denominator * numerator;  // both are below 2 to the power of 32
  uint64_t result = 0;
  if (__builtin_mul_overflow(whole, numerator, &result)) return UINT64_MAX;
  const uint64_t more = part / denominator + (up && part % denominator != 0 ? 1 : 0);
  return __builtin_add_overflow(result, more, &result) ? UINT64_MAX : result;
}

uint64_t nanosecondsOf(uint64_t units) {
  return scale(units, timebase()->numer, timebase()->denom, true);
}

uint64_t unitsOf(uint64_t nanoseconds) {
  return scale(nanoseconds, timebase()->denom, timebase()->numer, false);
}

}  // namespace sondex
