#include "host/linux/pressure.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "host/darwin/errors.h"
#include "host/linux/host_figures.h"

namespace host::linux_machine {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

static constexpr uint64_t kPresentedPage = 4096;
static constexpr milliseconds kBetweenLooks{1000};
static constexpr uint32_t kSecondsKept = 3;
// Microseconds of waiting in a window of microseconds. The kernel gives all but the privileged only
// windows of two seconds.
static constexpr std::string_view kTriggers[] = {"some 150000 1000000", "some 300000 2000000"};
// The same share of the time, to be judged here.
static constexpr uint64_t kStallPercent = 15;

bool parseWatermarks(std::string_view text, Watermarks &marks) {
  Watermarks sums{};
  bool seen = false;
  TextCursor lines(text);
  std::string_view line;
  while (lines.line(line)) {
    TextCursor words(line);
    std::string_view key;
    if (!words.word(key)) continue;
    uint64_t *sum = nullptr;
    if (key == "pages") {
      if (!words.word(key) || key != "free") return false;
      sum = &sums.free;
      seen = true;
    } else if (key == "low") {
      sum = &sums.low;
    } else if (key == "high") {
      sum = &sums.high;
    } else {
      continue;
    }
    uint64_t pages = 0;
    if (!words.number(pages) || __builtin_add_overflow(*sum, pages, sum)) return false;
  }
  if (!seen || !lines.rest().empty()) return false;
  marks = sums;
  return true;
}

namespace {

struct Reclaim {
  uint64_t background;
  uint64_t direct;
  uint64_t hugePages;
  uint64_t requested;
};

}  // namespace

bool parseReclaimedPages(std::string_view text, uint64_t &pages) {
  static constexpr NumberRow<Reclaim> kRows[] = {{"pgsteal_kswapd", &Reclaim::background},
                                                 {"pgsteal_direct", &Reclaim::direct},
                                                 {"pgsteal_khugepaged", &Reclaim::hugePages},
                                                 {"pgsteal_proactive", &Reclaim::requested}};
  Reclaim reclaim{};
  uint64_t seen = 0;
  // The last two came later.
  if (!readNumberRows(text, kRows, reclaim, seen) || (seen & 3) != 3) return false;
  pages = reclaim.background + reclaim.direct + reclaim.hugePages + reclaim.requested;
  return true;
}

bool parseStalledTime(std::string_view text, uint64_t &stalled) {
  static constexpr std::string_view kTotal = "total=";
  TextCursor lines(text);
  std::string_view line;
  while (lines.line(line)) {
    TextCursor words(line);
    std::string_view word;
    if (!words.word(word) || word != "some") continue;
    while (words.word(word)) {
      if (word.substr(0, kTotal.size()) == kTotal) {
        return parseNumber(word.substr(kTotal.size()), stalled);
      }
    }
  }
  return false;
}

uint32_t inPresentedPages(uint64_t pages, uint64_t pageBytes) {
  const uint64_t each = std::max<uint64_t>(pageBytes / kPresentedPage, 1);
  uint64_t all = 0;
  if (__builtin_mul_overflow(pages, each, &all)) all = UINT64_MAX;
  return saturate<uint32_t>(all);
}

static uint64_t pageBytes() {
  return static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

// Only /proc takes a trigger: anything else would be overwritten by it.
static bool isProcFile(int descriptor) {
  struct statfs system {};
  return fstatfs(descriptor, &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

static FileHandle openTrigger(int proc) {
  for (std::string_view trigger : kTriggers) {
    FileHandle file(openat(proc, "pressure/memory", O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!file.isOpen() || !isProcFile(file.get())) break;
    // The kernel wants its terminator too.
    const std::string text(trigger);
    if (write(file.get(), text.c_str(), text.size() + 1) > 0) return file;
  }
  return FileHandle();
}

// Kept from wait to wait, so that what happens in between is not missed.
int MemoryPressure::trigger() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!triggerTried_) trigger_ = openTrigger(proc_);
  triggerTried_ = true;
  return trigger_.get();
}

void MemoryPressure::dropTrigger() {
  const std::lock_guard<std::mutex> lock(mutex_);
  trigger_.close();
}

Errno MemoryPressure::wait() {
  look(true);
  for (;;) {
    // Unlike others, this call goes on by itself after the program was stopped and continued.
    pollfd waited = {trigger(), POLLPRI, 0};
    const int result = poll(&waited, 1, static_cast<int>(kBetweenLooks.count()));
    if (result < 0) return errno == EINTR ? darwin::DARWIN_EINTR : darwinError(errno);
    const bool pressed = look(waited.fd < 0);
    if ((waited.revents & (POLLERR | POLLNVAL)) != 0) {
      dropTrigger();
    } else if (result > 0 || pressed) {
      return kAnswered;
    }
  }
}

// Returns whether there was pressure since the last look, where that is for this program to judge.
bool MemoryPressure::look(bool judges) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Clock::time_point now = Clock::now();
  takeSample(now);
  return judges && isPressed(now);
}

bool MemoryPressure::isPressed(Clock::time_point now) {
  uint64_t stalled = 0;
  if (!getStalledTime(stalled)) return isMemoryShort();
  const bool wasKnown = stallKnown_;
  const uint64_t waited = stalled > stalled_ ? stalled - stalled_ : 0;
  const auto passed = std::chrono::duration_cast<microseconds>(now - stallRead_).count();
  stallKnown_ = true;
  stalled_ = stalled;
  stallRead_ = now;
  return wasKnown && waited > 0 && waited * 100 >= static_cast<uint64_t>(passed) * kStallPercent;
}

bool MemoryPressure::getStalledTime(uint64_t &stalled) {
  std::string_view text;
  return reader_.readRecord(proc_, "pressure/memory", text) == kAnswered &&
         parseStalledTime(text, stalled);
}

bool MemoryPressure::isMemoryShort() {
  std::string_view text;
  MemoryInfo info{};
  Watermarks marks{};
  if (reader_.readRecord(proc_, "meminfo", text) != kAnswered || !parseMemoryInfo(text, info) ||
      reader_.readList(proc_, "zoneinfo", text) != kAnswered || !parseWatermarks(text, marks)) {
    return false;
  }
  return info.available / (pageBytes() >> 10) < marks.low;
}

void MemoryPressure::takeSample(Clock::time_point now) {
  std::string_view text;
  uint64_t reclaimed = 0;
  if (reader_.readList(proc_, "vmstat", text) != kAnswered || !parseReclaimedPages(text, reclaimed))
    return;
  samples_.push_back({now, reclaimed});
  const auto oldest = now - seconds(kSecondsKept) - 2 * kBetweenLooks;
  while (samples_.front().taken < oldest) samples_.pop_front();
}

Errno MemoryPressure::figures(uint32_t secondsBack, uint32_t &wanted, uint32_t &reclaimed) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::string_view text;
  Watermarks marks{};
  Errno error = reader_.readList(proc_, "zoneinfo", text);
  if (error != kAnswered) return error;
  if (!parseWatermarks(text, marks)) return darwin::DARWIN_EIO;
  const Clock::time_point now = Clock::now();
  takeSample(now);

  wanted = inPresentedPages(marks.high > marks.free ? marks.high - marks.free : 0, pageBytes());
  reclaimed = 0;
  if (samples_.empty()) return kAnswered;
  const Clock::time_point from = now - seconds(std::min(secondsBack, kSecondsKept));
  // The youngest one that is old enough, or the oldest.
  auto first = samples_.begin();
  for (auto sample = first; sample != samples_.end() && sample->taken <= from; ++sample) {
    first = sample;
  }
  if (samples_.back().reclaimed > first->reclaimed) {
    reclaimed = inPresentedPages(samples_.back().reclaimed - first->reclaimed, pageBytes());
  }
  return kAnswered;
}

Errno MemoryPressure::ask(bool waits, uint32_t secondsBack, uint32_t &wanted, uint32_t &reclaimed) {
  const Errno error = waits ? wait() : kAnswered;
  return error == kAnswered ? figures(secondsBack, wanted, reclaimed) : error;
}

}  // namespace host::linux_machine
