#include "kcdata/parser.h"

#include <string.h>

#include <algorithm>

#include "darwin/kcdata.h"
#include "darwin/stackshot.h"
#include "kcdata/iterator.h"
#include "kcdata/type_names.h"
#include "text/printer.h"

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

// The memory that a kernel has for a thread's name.
constexpr size_t kThreadNameSize = 64;

// Records of older kernels' threads, of which nothing is shown.
constexpr size_t kThreadV2Size = 104;
constexpr size_t kThreadV3Size = 112;

template <typename Record>
static Record readRecord(KcdataElement element) {
  return readRecord<Record>(element.bytes, element.size);
}

static UnsafeText textAt(KcdataElement element) {
  return {reinterpret_cast<const char *>(element.bytes), element.size};
}

static void printTask(Printer &out, KcdataElement element) {
  const auto task = readRecord<darwin::task_snapshot_v2>(element);
  print(out, "\tCOMM: ", UnsafeText{task.ts_p_comm, sizeof task.ts_p_comm}, "\tPID: ", task.ts_pid,
        ", Task Size: ", static_cast<int64_t>(task.ts_task_size), "\n");
}

static void printThreadGroup(Printer &out, KcdataElement element) {
  const auto group = readRecord<darwin::thread_group_snapshot_v3>(element);
  print(out, "ID: 0x", Hexadecimal{group.tgs_id},
        ", Name: ", UnsafeText{group.tgs_name, sizeof group.tgs_name}, ", Flags: 0x",
        Hexadecimal{group.tgs_flags}, "\n");
}

static void printTimes(Printer &out, KcdataElement element) {
  const auto times = readRecord<darwin::stackshot_cpu_times_v2>(element);
  print(out, "User: ", static_cast<int64_t>(times.user_usec),
        " System: ", static_cast<int64_t>(times.system_usec),
        " Runnable: ", static_cast<int64_t>(times.runnable_usec), "\n");
}

static void printCounters(Printer &out, KcdataElement element) {
  const auto counters = readRecord<darwin::instrs_cycles_snapshot_v2>(element);
  print(out, "I: ", static_cast<int64_t>(counters.ics_instructions),
        " C:", static_cast<int64_t>(counters.ics_cycles),
        " PI:", static_cast<int64_t>(counters.ics_p_instructions),
        " PC:", static_cast<int64_t>(counters.ics_p_cycles));
}

static void printCodeSigning(Printer &out, KcdataElement element) {
  const auto signing = readRecord<darwin::stackshot_task_codesigning_info>(element);
  print(out, "\tCode Signing info: Flags: 0x", Hexadecimal{signing.csflags},
        "\tTrust Level: ", static_cast<int32_t>(signing.cs_trust_level), "\n");
}

static size_t printElement(Printer &out, KcdataElement element, uint32_t type) {
  switch (type) {
    case darwin::KCDATA_TYPE_LIBRARY_LOADINFO64:
    case darwin::STACKSHOT_KCTYPE_KERNELCACHE_LOADINFO:
    case darwin::STACKSHOT_KCTYPE_LOADINFO64_TEXT_EXEC: {
      const auto image = readRecord<darwin::dyld_uuid_info_64>(element);
      print(out, "\t\t(UUID not yet)@0x", Hexadecimal{image.imageLoadAddress}, "\n");
      return sizeof image;
    }
    case darwin::STACKSHOT_KCTYPE_TASK_SNAPSHOT:
      printTask(out, element);
      return kWordStep;
    case darwin::STACKSHOT_KCTYPE_THREAD_NAME:
      print(out, "\t", textAt(element));
      return kWordStep;
    case darwin::STACKSHOT_KCTYPE_BOOTARGS:
    case darwin::STACKSHOT_KCTYPE_OSVERSION: {
      const UnsafeText text = textAt(element);
      print(out, text, "\n");
      return text.size == 0 ? 0 : strnlen(text.text, text.size);
    }
    case darwin::STACKSHOT_KCTYPE_KERN_STACKLR64:
    case darwin::STACKSHOT_KCTYPE_USER_STACKLR64:
      print(out, "\t\t0x", Hexadecimal{readRecord<uint64_t>(element)}, "\n");
      return kWordStep;
    case darwin::STACKSHOT_KCTYPE_CPU_TIMES:
      printTimes(out, element);
      return kTimesStep;
    case darwin::STACKSHOT_KCTYPE_THREAD_GROUP_SNAPSHOT:
      printThreadGroup(out, element);
      return sizeof(darwin::thread_group_snapshot_v3);
    case darwin::STACKSHOT_KCTYPE_INSTRS_CYCLES:
      printCounters(out, element);
      return sizeof(darwin::instrs_cycles_snapshot_v2);
    case darwin::STACKSHOT_KCTYPE_CODESIGNING_INFO:
      printCodeSigning(out, element);
      return kWordStep;
    default:
      print(out, "NOT YET!");
      return 0;
  }
}

size_t dumpElem(KcdataElement element, uint32_t type) {
  Printer out;
  const size_t used = printElement(out, element, type);
  handOver(out);
  return used;
}

// How many bytes of an array belong to one element at most: what the header says of the length of
// one, so that a shorter record of an older kernel does not run into its successor; when that makes
// no sense, as many as there are. Not so for names: one starts at every word, and would go on to
// the end.
static size_t longestElement(kcdata_iter_t array) {
  const uint32_t count = kcdata_iter_array_elem_count(array);
  const size_t payload = kcdata_iter_size(array);
  const size_t filler = kcdata_iter_array_filler(array);
  if (count != 0 && filler <= payload && (payload - filler) % count == 0) {
    const size_t recorded = (payload - filler) / count;
    if (recorded >= kShortestElement) return recorded;
  }
  const bool isNames = kcdata_iter_array_elem_type(array) == darwin::STACKSHOT_KCTYPE_THREAD_NAME;
  return isNames ? kThreadNameSize : payload;
}

static KcdataElement payloadOf(kcdata_iter_t iter) {
  const uint8_t *payload = kcdata_iter_payload(iter);
  const size_t inBuffer = static_cast<size_t>(iter.end - payload);
  return {payload, std::min<size_t>(inBuffer, kcdata_iter_size(iter))};
}

static void printArray(Printer &out, kcdata_iter_t array, uint32_t print_flags) {
  const uint32_t type = kcdata_iter_array_elem_type(array);
  const uint32_t count = kcdata_iter_array_elem_count(array);
  print(out, "of ", static_cast<int32_t>(count), " Elements of type ",
        kcdata_type_to_text(type, print_flags), "\n");

  const size_t longest = longestElement(array);
  KcdataElement rest = payloadOf(array);
  for (uint32_t i = 0; i < count && rest.size != 0; i++) {
    const KcdataElement element = {rest.bytes, std::min(rest.size, longest)};
    const size_t used = std::min(rest.size, printElement(out, element, type));
    if (used == 0) break;
    rest.bytes += used;
    rest.size -= used;
  }
}

static void printThread(Printer &out, KcdataElement payload) {
  print(out, "Thread ", static_cast<int64_t>(payload.size), " bytes (",
        static_cast<int64_t>(sizeof(darwin::thread_snapshot_v4)), ")\n");
  switch (payload.size) {
    case kThreadV2Size:
    case kThreadV3Size:
      return;
    case sizeof(darwin::thread_snapshot_v4):
      break;
    default:
      print(out, "What version is this?!\n");
      return;
  }
  const auto thread = readRecord<darwin::thread_snapshot_v4>(payload);
  print(out, "\t\tTID: 0x", Hexadecimal{thread.ths_thread_id});
  if (thread.ths_continuation != 0) {
    print(out, "\tContinuation: 0x", Hexadecimal{thread.ths_continuation});
  }
}

static void printPayload(Printer &out, kcdata_iter_t iter, uint32_t print_flags) {
  const KcdataElement payload = payloadOf(iter);
  const uint32_t type = kcdata_iter_type(iter);
  switch (type) {
    case darwin::KCDATA_TYPE_ARRAY:
      printArray(out, iter, print_flags);
      break;
    case darwin::KCDATA_TYPE_CONTAINER_END:
      break;
    case darwin::STACKSHOT_KCTYPE_THREAD_SNAPSHOT:
      printThread(out, payload);
      break;
    default:
      printElement(out, payload, type);
      break;
  }
}

void kcdata_payload_to_text(const uint8_t *item, const uint8_t *end, uint32_t print_flags) {
  Printer out;
  printPayload(out, kcdata_iter(item, end), print_flags);
  handOver(out);
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

static void printItem(Printer &out, kcdata_iter_t iter, size_t level, uint32_t print_flags) {
  const uint32_t type = kcdata_iter_type(iter);
  print(out, Repeated{'\t', std::min(level, kDeepestIndent)});
  if ((print_flags & kPrintNumbers) != 0) print(out, static_cast<int32_t>(level), ") ");
  print(out, kcdata_type_to_text(type, print_flags), " ");

  const char *container = type == darwin::KCDATA_TYPE_CONTAINER_BEGIN
                              ? containerName(kcdata_iter_container_type(iter))
                              : nullptr;
  if (container != nullptr) {
    print(out, container);
  } else {
    printPayload(out, iter, print_flags);
  }
  print(out, "\n");
}

void parse_stackshot(const void *buffer, size_t size, uint32_t print_flags, uint32_t threads_only) {
  const uint8_t *start = static_cast<const uint8_t *>(buffer);
  size_t depth = 0;
  bool printing = threads_only == 0;
  Printer out;
  kcdata_iter_t iter = kcdata_iter_next(kcdata_iter(start, start + size));
  for (; kcdata_iter_valid(iter); iter = kcdata_iter_next(iter)) {
    const uint32_t type = kcdata_iter_type(iter);
    if (type == darwin::KCDATA_TYPE_BUFFER_END) break;

    // Kept: also for items that are not printed, with no end of line then.
    if ((print_flags & kPrintNumbers) != 0) {
      print(out, "0x", Hexadecimal{static_cast<uint64_t>(kcdata_iter_payload(iter) - start)}, ": ");
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
    if (printing) printItem(out, iter, level, print_flags);
  }
  handOver(out);
}

}  // namespace sondex
