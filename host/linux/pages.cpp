#include "host/linux/pages.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <span>

#include "host/darwin/errors.h"
#include "host/darwin/mach_vm.h"
#include "host/linux/memory_map.h"
#include "host/linux/procfs.h"
#include "host/posix.h"

namespace host::linux_machine {

static constexpr uint64_t kPresent = uint64_t{1} << 63;
// Says nothing of the page: mappings have it whose pages were all given back.
static constexpr uint64_t kSoftDirty = uint64_t{1} << 55;

static constexpr std::chrono::seconds kKept{5};

int dispositionOf(uint64_t entry) {
  if ((entry & kPresent) != 0) return darwin::VM_PAGE_QUERY_PAGE_PRESENT;
  // What is swapped out, on its way elsewhere, or marked in any way.
  return (entry & ~kSoftDirty) != 0 ? darwin::VM_PAGE_QUERY_PAGE_PAGED_OUT : 0;
}

static bool isAnonymous(const Mapping &mapping) {
  const std::string_view name = mapping.name;
  return !mapping.isShared && mapping.inode == 0 && mapping.majorNumber == 0 &&
         mapping.minorNumber == 0 &&
         (name.empty() || name == "[heap]" || name == "[stack]" || name.starts_with("[anon:"));
}

// Pages that userfaultfd() brings, and such as are no memory.
static bool hasOtherPages(std::string_view flags) {
  static constexpr std::string_view kOthers[] = {"um", "uw", "ui", "pf", "io", "mm", "ht"};
  TextCursor words(flags);
  for (std::string_view word; words.word(word);) {
    if (std::find(std::begin(kOthers), std::end(kOthers), word) != std::end(kOthers)) return true;
  }
  return false;
}

void ZeroFilled::take(std::string_view line) {
  static constexpr std::string_view kFlags = "VmFlags:";
  Mapping mapping{};
  if (line.starts_with(kFlags)) {
    const bool isKept = candidate_.end != 0 && !hasOtherPages(line.substr(kFlags.size()));
    if (isKept) ranges_.push_back(candidate_);
    candidate_ = {};
  } else if (parseMapping(line, mapping)) {
    candidate_ = {};
    if (isAnonymous(mapping)) candidate_ = {mapping.start, mapping.end};
  }
}

uint64_t ZeroFilled::endAt(uint64_t address) const {
  const auto found = std::upper_bound(
      ranges_.begin(), ranges_.end(), address,
      [](uint64_t wanted, const AddressRange &range) { return wanted < range.end; });
  return found != ranges_.end() && address >= found->start ? found->end : 0;
}

// What there is of the page map from a page on, at most `count` entries: fewer past its end.
static Errno readEntries(const FileHandle &map, uint64_t page, uint64_t *entries, size_t count,
                         size_t &got) {
  const ssize_t length = pread(map.get(), entries, count * sizeof *entries,
                               static_cast<off_t>(page * sizeof *entries));
  if (length < 0) return darwinError(errno);
  got = static_cast<size_t>(length) / sizeof *entries;
  return kAnswered;
}

static Errno readDispositions(const FileHandle &map, uint64_t page, size_t count, int *to) {
  std::array<uint64_t, 8192> entries;
  for (size_t done = 0; done < count;) {
    size_t got = 0;
    const size_t wanted = std::min(count - done, entries.size());
    const Errno error = readEntries(map, page + done, entries.data(), wanted, got);
    if (error != kAnswered) return error;
    if (got == 0) return darwin::DARWIN_EFAULT;
    std::transform(entries.begin(), entries.begin() + static_cast<ptrdiff_t>(got), to + done,
                   dispositionOf);
    done += got;
  }
  return kAnswered;
}

// What PAGEMAP_SCAN takes and gives, in kernels from 6.7 on.
struct ScannedRange {
  uint64_t start;
  uint64_t end;
  uint64_t categories;
};
struct ScanRequest {
  uint64_t size;
  uint64_t flags;
  uint64_t start;
  uint64_t end;
  uint64_t scannedTo;
  uint64_t ranges;
  uint64_t rangeCount;
  uint64_t mostPages;
  uint64_t inverted;
  uint64_t all;
  uint64_t any;
  uint64_t told;
};
static constexpr unsigned long kScan = _IOWR('f', 16, ScanRequest);
static constexpr uint64_t kIsPresent = 1 << 3;
static constexpr uint64_t kIsSwapped = 1 << 4;

// Costs what is there, not what could be. False where the kernel can't do that.
static bool scanDispositions(const FileHandle &map, uint64_t start, uint64_t end, uint64_t pageSize,
                             int *to) {
  std::array<ScannedRange, 256> ranges;
  ScanRequest request{};
  request.size = sizeof request;
  request.ranges = reinterpret_cast<uint64_t>(ranges.data());
  request.rangeCount = ranges.size();
  request.any = request.told = kIsPresent | kIsSwapped;
  request.end = end;
  std::fill(to, to + (end - start) / pageSize, 0);
  for (request.start = start; request.start < end; request.start = request.scannedTo) {
    const int found = __real_ioctl(map.get(), kScan, &request);
    if (found < 0 || static_cast<size_t>(found) > ranges.size() ||
        request.scannedTo <= request.start) {
      return false;
    }
    for (const ScannedRange &range : std::span(ranges).first(static_cast<size_t>(found))) {
      if (range.start < start || range.start > range.end || range.end > end) return false;
      std::fill(to + (range.start - start) / pageSize, to + (range.end - start) / pageSize,
                (range.categories & kIsPresent) != 0 ? darwin::VM_PAGE_QUERY_PAGE_PRESENT
                                                     : darwin::VM_PAGE_QUERY_PAGE_PAGED_OUT);
    }
  }
  return true;
}

Errno Pages::tell(int processDirectory, const ProcessKey &process, uint64_t address, size_t count,
                  int *to) {
  const auto pageSize = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  const FileHandle map(openat(processDirectory, "pagemap", O_RDONLY | O_CLOEXEC));
  if (!map.isOpen()) return darwinError(errno);
  Errno error = kAnswered;
  if (!scanDispositions(map, address, address + count * pageSize, pageSize, to)) {
    error = readDispositions(map, address / pageSize, count, to);
  }
  if (error != kAnswered || std::find(to, to + count, 0) == to + count) return error;
  error = findZeroFilled(processDirectory, process, address);
  if (error != kAnswered) return error;
  for (size_t i = 0; i < count;) {
    const uint64_t end = to[i] == 0 ? zeroFilled_.endAt(address + i * pageSize) : 0;
    if (end == 0 && to[i] == 0) to[i] = darwin::VM_PAGE_QUERY_PAGE_EXTERNAL;
    i = end == 0 ? i + 1 : static_cast<size_t>((end - address) / pageSize);
  }
  return kAnswered;
}

Errno Pages::findZeroFilled(int processDirectory, const ProcessKey &process, uint64_t address) {
  const Clock::time_point now = Clock::now();
  const bool isKept = process_ == process && address >= asked_ && now - askedAt_ < kKept;
  asked_ = address;
  askedAt_ = now;
  if (isKept) return kAnswered;
  process_ = process;
  zeroFilled_ = {};
  const Errno error = readMapLines(processDirectory, "smaps",
                                   [this](std::string_view line) { zeroFilled_.take(line); });
  if (error != kAnswered) process_ = {};
  return error;
}

}  // namespace host::linux_machine
