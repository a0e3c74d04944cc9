#include "kcdata/parser.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "darwin/kcdata.h"
#include "darwin/stackshot.h"
#include "kcdata/iterator.h"
#include "kcdata/type_names.h"
#include "text/safe_text.h"

namespace sondex {

// No snapshot nests deeper. Indentation stops here: that of a buffer of nothing but begins would
// grow as the square of its size.
constexpr size_t kDeepestIndent = 256;

// Every element that is decoded starts with a word of this size.
constexpr size_t kShortestElement = 8;

// Sizes by which elements follow one another. Kept: some are not the size of what is read, so that
// arrays of such records leave elements out or end early.
constexpr size_t kWordStep = 8;
constexpr size_t kTimesStep = 32;

// Records of older kernels' threads, of which nothing is shown.
constexpr size_t kThreadV2Size = 104;
constexpr size_t kThreadV3Size = 112;

// The record at the start of `element`, with zeroes for what is missing.
template <typename Record>
static Record readRecord(KcdataElement element) {
  Record record = {};
  const size_t present = std::min(element.size, sizeof record);
  if (present != 0) memcpy(&record, element.bytes, present);
  return record;
}

// Prints the text at the start of `element`, whole however long it is. Returns its length.
static size_t printText(KcdataElement element) {
  if (element.size == 0) return 0;
  const char *text = reinterpret_cast<const char *>(element.bytes);
  const size_t length = strnlen(text, element.size);
  size_t done = 0;
  while (done < length) {
    char piece[256];
    fputs(makeSafe(piece, sizeof piece, text + done, length - done), stdout);
    done += strlen(piece);  // a text made safe keeps its length
  }
  return length;
}

static void printTask(KcdataElement element) {
  const auto task = readRecord<darwin::task_snapshot_v2>(element);
  char name[sizeof task.ts_p_comm + 1];
  makeSafe(name, sizeof name, task.ts_p_comm, sizeof task.ts_p_comm);
  printf("\tCOMM: %s\tPID: %d, Task Size: %lld\n", name, task.ts_pid,
         static_cast<long long>(task.ts_task_size));
}

static void printThreadGroup(KcdataElement element) {
  const auto group = readRecord<darwin::thread_group_snapshot_v3>(element);
  char name[sizeof group.tgs_name + 1];
  makeSafe(name, sizeof name, group.tgs_name, sizeof group.tgs_name);
  printf("ID: 0x%llx, Name: %s, Flags: 0x%llx\n", static_cast<unsigned long long>(group.tgs_id),
         name, static_cast<unsigned long long>(group.tgs_flags));
}

static void printTimes(KcdataElement element) {
  const auto times = readRecord<darwin::stackshot_cpu_times_v2>(element);
  printf("User: %lld System: %lld Runnable: %lld\n", static_cast<long long>(times.user_usec),
         static_cast<long long>(times.system_usec), static_cast<long long>(times.runnable_usec));
}

static void printCounters(KcdataElement element) {
  const auto counters = readRecord<darwin::instrs_cycles_snapshot_v2>(element);
  printf("I: %lld C:%lld PI:%lld PC:%lld", static_cast<long long>(counters.ics_instructions),
         static_cast<long long>(counters.ics_cycles),
         static_cast<long long>(counters.ics_p_instructions),
         static_cast<long long>(counters.ics_p_cycles));
}

static void printCodeSigning(KcdataElement element) {
  const auto signing = readRecord<darwin::stackshot_task_codesigning_info>(element);
  printf("\tCode Signing info: Flags: 0x%llx\tTrust Level: %d\n",
         static_cast<unsigned long long>(signing.csflags),
         static_cast<int>(signing.cs_trust_level));
}

size_t dumpElem(KcdataElement element, uint32_t type) {
  switch (type) {
    case darwin::KCDATA_TYPE_LIBRARY_LOADINFO64:
    case darwin::STACKSHOT_KCTYPE_KERNELCACHE_LOADINFO:
    case darwin::STACKSHOT_KCTYPE_LOADINFO64_TEXT_EXEC: {
      const auto image = readRecord<darwin::dyld_uuid_info_64>(element);
      printf("\t\t(UUID not yet)@0x%llx\n",
             static_cast<unsigned long long>(image.imageLoadAddress));
      return sizeof image;
    }
    case darwin::STACKSHOT_KCTYPE_TASK_SNAPSHOT:
      printTask(element);
      return kWordStep;
    case darwin::STACKSHOT_KCTYPE_THREAD_NAME:
      putchar('\t');
      printText(element);
      return kWordStep;
    case darwin::STACKSHOT_KCTYPE_BOOTARGS:
    case darwin::STACKSHOT_KCTYPE_OSVERSION: {
      const size_t length = printText(element);
      putchar('\n');
      return length;
    }
    case darwin::STACKSHOT_KCTYPE_KERN_STACKLR64:
    case darwin::STACKSHOT_KCTYPE_USER_STACKLR64:
      printf("\t\t0x%llx\n", static_cast<unsigned long long>(readRecord<uint64_t>(element)));
      return kWordStep;
    case darwin::STACKSHOT_KCTYPE_CPU_TIMES:
      printTimes(element);
      return kTimesStep;
    case darwin::STACKSHOT_KCTYPE_THREAD_GROUP_SNAPSHOT:
      printThreadGroup(element);
      return sizeof(darwin::thread_group_snapshot_v3);
    case darwin::STACKSHOT_KCTYPE_INSTRS_CYCLES:
      printCounters(element);
      return sizeof(darwin::instrs_cycles_snapshot_v2);
    case darwin::STACKSHOT_KCTYPE_CODESIGNING_INFO:
      printCodeSigning(element);
      return kWordStep;
    default:
      fputs("NOT YET!", stdout);
      return 0;
  }
}

// How many of the `left` bytes of an array belong to the next element: what the header says of the
// length of one, so that a shorter record of an older kernel does not run into its successor; all
// of them when that makes no sense.
static size_t elementSize(kcdata_iter_t array, size_t left) {
  const uint32_t count = kcdata_iter_array_elem_count(array);
  const size_t payload = kcdata_iter_size(array);
  const size_t filler = kcdata_iter_array_filler(array);
  if (count == 0 || filler > payload || (payload - filler) % count != 0) return left;
  const size_t recorded = (payload - filler) / count;
  return recorded < kShortestElement ? left : std::min(left, recorded);
}

static KcdataElement payloadOf(kcdata_iter_t iter) {
  const uint8_t *payload = kcdata_iter_payload(iter);
  const size_t inBuffer = static_cast<size_t>(iter.end - payload);
  return {payload, std::min<size_t>(inBuffer, kcdata_iter_size(iter))};
}

static void printArray(kcdata_iter_t array, uint32_t print_flags) {
  const uint32_t type = kcdata_iter_array_elem_type(array);
  const uint32_t count = kcdata_iter_array_elem_count(array);
  printf("of %d Elements of type %s\n", static_cast<int>(count),
         kcdata_type_to_text(type, print_flags));

  KcdataElement rest = payloadOf(array);
  for (uint32_t i = 0; i < count && rest.size != 0; i++) {
    const KcdataElement element = {rest.bytes, elementSize(array, rest.size)};
    const size_t used = std::min(rest.size, dumpElem(element, type));
    if (used == 0) break;
    rest.bytes += used;
    rest.size -= used;
  }
}

static void printThread(KcdataElement payload) {
  printf("Thread %u bytes (%ld)\n", static_cast<unsigned int>(payload.size),
         static_cast<long>(sizeof(darwin::thread_snapshot_v4)));
  switch (payload.size) {
    case kThreadV2Size:
    case kThreadV3Size:
      return;
    case sizeof(darwin::thread_snapshot_v4):
      break;
    default:
      fputs("What version is this?!\n", stdout);
      return;
  }
  const auto thread = readRecord<darwin::thread_snapshot_v4>(payload);
  printf("\t\tTID: 0x%llx", static_cast<unsigned long long>(thread.ths_thread_id));
  if (thread.ths_continuation != 0) {
    printf("\tContinuation: 0x%llx", static_cast<unsigned long long>(thread.ths_continuation));
  }
}

void kcdata_payload_to_text(const uint8_t *item, const uint8_t *end, uint32_t print_flags) {
  const kcdata_iter_t iter = kcdata_iter(item, end);
  const KcdataElement payload = payloadOf(iter);
  const uint32_t type = kcdata_iter_type(iter);
  switch (type) {
    case darwin::KCDATA_TYPE_ARRAY:
      printArray(iter, print_flags);
      break;
    case darwin::KCDATA_TYPE_CONTAINER_END:
      break;
    case darwin::STACKSHOT_KCTYPE_THREAD_SNAPSHOT:
      printThread(payload);
      break;
    default:
      dumpElem(payload, type);
      break;
  }
}

// Null for a container without one.
static const char *containerName(uint32_t type) {
  switch (type) {
    case darwin::STACKSHOT_KCCONTAINER_TASK:
      return "Task container";
    case darwin::STACKSHOT_KCCONTAINER_THREAD:
      return "Thread container";
    default:
      return nullptr;
  }
}

static void printItem(kcdata_iter_t iter, size_t level, uint32_t print_flags) {
  const uint32_t type = kcdata_iter_type(iter);
  for (size_t i = 0; i < std::min(level, kDeepestIndent); i++) putchar('\t');
  if ((print_flags & kPrintNumbers) != 0) printf("%d) ", static_cast<int>(level));
  printf("%s ", kcdata_type_to_text(type, print_flags));

  const char *container = type == darwin::KCDATA_TYPE_CONTAINER_BEGIN
                              ? containerName(kcdata_iter_container_type(iter))
                              : nullptr;
  if (container != nullptr) {
    fputs(container, stdout);
  } else {
    kcdata_payload_to_text(iter.item, iter.end, print_flags);
  }
  putchar('\n');
}

void parse_stackshot(const void *buffer, size_t size, uint32_t print_flags, uint32_t threads_only) {
  const uint8_t *start = static_cast<const uint8_t *>(buffer);
  size_t depth = 0;
  bool printing = threads_only == 0;
  kcdata_iter_t iter = kcdata_iter_next(kcdata_iter(start, start + size));
  for (; kcdata_iter_valid(iter); iter = kcdata_iter_next(iter)) {
    const uint32_t type = kcdata_iter_type(iter);
    if (type == darwin::KCDATA_TYPE_BUFFER_END) break;

    // Kept: also for items that are not printed, with no end of line then.
    if ((print_flags & kPrintNumbers) != 0) {
      printf("0x%lx: ", static_cast<unsigned long>(kcdata_iter_payload(iter) - start));
    }
    size_t level = depth;
    if (type == darwin::KCDATA_TYPE_CONTAINER_BEGIN) {
      depth++;
      const bool isThread =
          kcdata_iter_container_type(iter) == darwin::STACKSHOT_KCCONTAINER_THREAD;
      if (threads_only != 0 && isThread) printing = true;
    } else if (type == darwin::KCDATA_TYPE_CONTAINER_END) {
      if (depth > 0) depth--;
      level = depth;
      if (threads_only != 0) printing = false;
    }
    if (printing) printItem(iter, level, print_flags);
  }
}

}  // namespace sondex
