#include "host/snapshot.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <vector>

#include "darwin/kcdata.h"
#include "darwin/layout.h"
#include "darwin/stackshot.h"
#include "host/copy_text.h"
#include "host/darwin/proc_info.h"
#include "host/kcdata_writer.h"
#include "host/units.h"

namespace host {

namespace {

__extension__ using Wide = __int128;

// Types of items that the program does not look into.
constexpr uint32_t kLibraryLoadInfo = 48;
constexpr uint32_t kTimebase = 50;
constexpr uint32_t kAbsoluteTime = 51;
constexpr uint32_t kMicrosecondsSinceEpoch = 53;
constexpr uint32_t kDonatingPids = 2311;
constexpr uint32_t kPageSize = 2320;
constexpr uint32_t kUserStack32 = 2325;

// ts_ss_flags and ths_ss_flags.
constexpr uint64_t kUser64 = 0x1;
constexpr uint64_t kKernel64 = 0x2;
constexpr uint64_t kStacksOfAddressesOnly = 0x8;

// Bits of ths_state.
constexpr uint32_t kWaiting = 0x1;
constexpr uint32_t kSuspended = 0x2;
constexpr uint32_t kRunning = 0x4;
constexpr uint32_t kUninterruptible = 0x8;
constexpr uint32_t kTerminated = 0x10;
constexpr uint32_t kIdle = 0x80;

constexpr uint32_t kMemoryMagic = 0xBFCABCDE;

struct Timebase {
  uint32_t numerator;
  uint32_t denominator;
};
DARWIN_LAYOUT(Timebase, 8, 4, (numerator, 0), (denominator, 4));

struct Image32 {
  uint32_t address;
  std::array<uint8_t, 16> uuid;
};
DARWIN_LAYOUT(Image32, 20, 4, (address, 0), (uuid, 4));

#pragma pack(push, 1)
struct MemoryRecord {
  uint32_t magic;
  uint32_t free;
  uint32_t active;
  uint32_t inactive;
  uint32_t purgeable;
  uint32_t wired;
  uint32_t speculative;
  uint32_t throttled;
  uint32_t fileBacked;
  uint32_t compressions;
  uint32_t decompressions;
  uint32_t compressor;
  int32_t busyBuffers;
  uint32_t wanted;
  uint32_t reclaimed;
  uint8_t wantedAndReclaimedAreKnown;
};
DARWIN_LAYOUT(MemoryRecord, 61, 1, (magic, 0), (free, 4), (active, 8), (inactive, 12),
              (purgeable, 16), (wired, 20), (speculative, 24), (throttled, 28), (fileBacked, 32),
              (compressions, 36), (decompressions, 40), (compressor, 44), (busyBuffers, 48),
              (wanted, 52), (reclaimed, 56), (wantedAndReclaimedAreKnown, 60));
#pragma pack(pop)

uint32_t saturated(uint64_t value) {
  return static_cast<uint32_t>(std::min<uint64_t>(value, std::numeric_limits<uint32_t>::max()));
}

uint32_t stateBits(const SnapshotThread &thread) {
  const uint32_t idle = thread.isIdle ? kIdle : 0;
  switch (thread.state) {
    case darwin::TH_STATE_RUNNING:
      return idle | kRunning;
    case darwin::TH_STATE_STOPPED:
      return idle | kWaiting | kSuspended;
    case darwin::TH_STATE_UNINTERRUPTIBLE:
      return idle | kWaiting | kUninterruptible;
    case darwin::TH_STATE_HALTED:
      return idle | kTerminated;
    default:
      return idle | kWaiting;
  }
}

class SnapshotWriter {
 public:
  SnapshotWriter(const Snapshot &snapshot, uint64_t flags)
      : snapshot_(snapshot), flags_(flags), writer_(darwin::KCDATA_BUFFER_BEGIN_STACKSHOT) {}

  std::vector<uint8_t> write() {
    writeMachine();
    for (const SnapshotTask &task : snapshot_.tasks) writeTask(task);
    return writer_.finish();
  }

 private:
  bool wants(uint64_t flag) const { return (flags_ & flag) != 0; }

  uint64_t absolute(uint64_t nanoseconds) const {
    const Wide units =
        Wide{nanoseconds} * snapshot_.timebaseDenominator / snapshot_.timebaseNumerator;
    return static_cast<uint64_t>(std::min<Wide>(units, std::numeric_limits<uint64_t>::max()));
  }

  void writeMachine() {
    writer_.text(darwin::STACKSHOT_KCTYPE_OSVERSION, snapshot_.kernelVersion);
    if (snapshot_.bootArguments) {
      writer_.text(darwin::STACKSHOT_KCTYPE_BOOTARGS, *snapshot_.bootArguments);
    }
    writer_.record(kPageSize, snapshot_.pageSize);
    writer_.record(kTimebase, Timebase{snapshot_.timebaseNumerator, snapshot_.timebaseDenominator});
    writer_.record(kAbsoluteTime, absolute(snapshot_.sinceBoot));
    writer_.record(kMicrosecondsSinceEpoch, snapshot_.sinceEpoch);
    if (snapshot_.memory && wants(darwin::STACKSHOT_GET_GLOBAL_MEM_STATS)) {
      writeMemory(*snapshot_.memory);
    }
  }

  void writeMemory(const darwin::vm_statistics64 &from) {
    MemoryRecord memory{};
    memory.magic = kMemoryMagic;
    memory.free = from.free_count;
    memory.active = from.active_count;
    memory.inactive = from.inactive_count;
    memory.purgeable = from.purgeable_count;
    memory.wired = from.wire_count;
    memory.speculative = from.speculative_count;
    memory.throttled = from.throttled_count;
    memory.fileBacked = from.external_page_count;
    memory.compressions = saturated(from.compressions);
    memory.decompressions = saturated(from.decompressions);
    memory.compressor = from.compressor_page_count;
    writer_.record(darwin::STACKSHOT_KCTYPE_GLOBAL_MEM_STATS, memory);
  }

  void writeTask(const SnapshotTask &task) {
    darwin::task_snapshot_v2 record{};
    record.ts_unique_pid = static_cast<uint64_t>(task.pid);
    record.ts_ss_flags = kKernel64 | (task.is64Bit ? kUser64 : 0);
    record.ts_user_time_in_terminated_threads = absolute(task.endedUserTime);
    record.ts_system_time_in_terminated_threads = absolute(task.endedSystemTime);
    record.ts_p_start_sec = task.startSeconds;
    record.ts_task_size = task.residentSize;
    record.ts_suspend_count = task.suspendCount;
    record.ts_faults = task.faults;
    record.ts_pageins = task.pageIns;
    record.ts_cow_faults = task.copyOnWriteFaults;
    record.ts_pid = task.pid;
    copyText(task.name, record.ts_p_comm);

    writer_.beginContainer(darwin::STACKSHOT_KCCONTAINER_TASK, record.ts_unique_pid);
    writer_.record(darwin::STACKSHOT_KCTYPE_TASK_SNAPSHOT, record);
    if (wants(darwin::STACKSHOT_SAVE_LOADINFO)) writeImages(task);
    if (wants(darwin::STACKSHOT_SAVE_IMP_DONATION_PIDS) && !task.donatingPids.empty()) {
      writer_.array(kDonatingPids, task.donatingPids);
    }
    for (const SnapshotThread &thread : task.threads) writeThread(task, thread);
    writer_.endContainer();
  }

  void writeImages(const SnapshotTask &task) {
    if (task.images.empty()) return;
    if (task.is64Bit) {
      std::vector<darwin::dyld_uuid_info_64> images;
      for (const SnapshotImage &image : task.images) {
        darwin::dyld_uuid_info_64 &made = images.emplace_back();
        made.imageLoadAddress = image.address;
        std::copy(image.uuid.begin(), image.uuid.end(), made.imageUUID);
      }
      writer_.array(darwin::KCDATA_TYPE_LIBRARY_LOADINFO64, images);
      return;
    }
    std::vector<Image32> images;
    images.reserve(task.images.size());
    for (const SnapshotImage &image : task.images) {
      images.push_back({static_cast<uint32_t>(image.address), image.uuid});
    }
    writer_.array(kLibraryLoadInfo, images);
  }

  void writeThread(const SnapshotTask &task, const SnapshotThread &thread) {
    darwin::thread_snapshot_v4 record{};
    record.ths_thread_id = thread.id;
    record.ths_wait_event = thread.waitEvent;
    record.ths_continuation = thread.continuation;
    record.ths_user_time = absolute(thread.userTime);
    record.ths_sys_time = absolute(thread.systemTime);
    record.ths_ss_flags = kKernel64 | kStacksOfAddressesOnly | (task.is64Bit ? kUser64 : 0);
    record.ths_state = stateBits(thread);
    record.ths_base_priority = thread.basePriority;
    record.ths_sched_priority = thread.priority;

    writer_.beginContainer(darwin::STACKSHOT_KCCONTAINER_THREAD, thread.id);
    writer_.record(darwin::STACKSHOT_KCTYPE_THREAD_SNAPSHOT, record);
    if (!thread.name.empty()) {
      char name[darwin::DARWIN_MAXTHREADNAMESIZE] = {};
      copyText(thread.name, name);
      writer_.item(darwin::STACKSHOT_KCTYPE_THREAD_NAME, name, sizeof name);
    }
    writeTimes(thread);
    if (!thread.kernelStack.empty()) {
      writer_.array(darwin::STACKSHOT_KCTYPE_KERN_STACKLR64, thread.kernelStack);
    }
    if (!thread.userStack.empty()) writeUserStack(task, thread);
    writer_.endContainer();
  }

  // The oldest form, of user and system time alone, where the third one is not known.
  void writeTimes(const SnapshotThread &thread) {
    darwin::stackshot_cpu_times_v2 times{};
    times.user_usec = thread.userTime / kNanosecondsPerMicrosecond;
    times.system_usec = thread.systemTime / kNanosecondsPerMicrosecond;
    size_t size = offsetof(darwin::stackshot_cpu_times_v2, runnable_usec);
    if (thread.runnableTime) {
      times.runnable_usec = *thread.runnableTime / kNanosecondsPerMicrosecond;
      size = sizeof times;
    }
    writer_.item(darwin::STACKSHOT_KCTYPE_CPU_TIMES, &times, size);
  }

  void writeUserStack(const SnapshotTask &task, const SnapshotThread &thread) {
    if (task.is64Bit) {
      writer_.array(darwin::STACKSHOT_KCTYPE_USER_STACKLR64, thread.userStack);
      return;
    }
    std::vector<uint32_t> addresses;
    addresses.reserve(thread.userStack.size());
    for (const uint64_t address : thread.userStack) {
      addresses.push_back(static_cast<uint32_t>(address));
    }
    writer_.array(kUserStack32, addresses);
  }

  const Snapshot &snapshot_;
  const uint64_t flags_;
  KcdataWriter writer_;
};

}  // namespace

std::vector<uint8_t> writeSnapshot(const Snapshot &snapshot, uint64_t flags) {
  return SnapshotWriter(snapshot, flags).write();
}

}  // namespace host
