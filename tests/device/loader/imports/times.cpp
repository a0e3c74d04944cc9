// Clocks and the calendar.
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "imports/calls.h"

extern "C" {

time_t __wrap_time(time_t *seconds) noexcept;
int __wrap_gettimeofday(struct timeval *time, void *zone) noexcept;

}  // extern "C"

namespace {

struct Clock {
  int darwin;
  clockid_t native;
};

constexpr Clock kClocks[] = {
    {0, CLOCK_REALTIME},           {4, CLOCK_MONOTONIC_RAW},
    {6, CLOCK_MONOTONIC},          {12, CLOCK_PROCESS_CPUTIME_ID},
    {16, CLOCK_THREAD_CPUTIME_ID},
};

int readClock(int number, struct timespec *time) {
  for (const Clock &clock : kClocks) {
    if (clock.darwin == number) return clock_gettime(clock.native, time);
  }
  errno = EINVAL;
  return -1;
}

struct DeviceTimeval {
  int64_t seconds;
  int32_t microseconds;
};

int timeOfDay(DeviceTimeval *told, void *zone) {
  struct timeval time {};
  const int result = __wrap_gettimeofday(told == nullptr ? nullptr : &time, zone);
  if (result == 0 && told != nullptr) *told = {time.tv_sec, static_cast<int32_t>(time.tv_usec)};
  return result;
}

// Of these the two sides think the same.
static_assert(sizeof(struct timespec) == 16);
static_assert(sizeof(struct tm) == 56 && offsetof(struct tm, tm_isdst) == 32 &&
              offsetof(struct tm, tm_gmtoff) == 40 && offsetof(struct tm, tm_zone) == 48);

}  // namespace

#define SAME(name) call(#name, &::name)

namespace loader {

std::span<const Import> times() {
  static const Import table[] = {
      call("clock_gettime", &readClock),
      call("gettimeofday", &timeOfDay),
      SAME(gmtime_r),
      SAME(localtime_r),
      SAME(nanosleep),
      SAME(sleep),
      SAME(strftime),
      call("time", &__wrap_time),
      SAME(usleep),
  };
  return table;
}

}  // namespace loader
