#include "capture/stack_capture.h"

#include <string.h>

#include "darwin/stackshot.h"
#include "kcdata/iterator.h"
#include "kcdata/stackshot.h"

namespace sondex {

static const uint8_t *g_snapshot;
static uint32_t g_size;

// Where the task of which a thread was found last begins: the threads of a process are asked for
// one after another.
static kcdata_iter_t g_task;
static int32_t g_taskPID;

int takeStacks(int32_t pid) {
  int error = 0;
  g_snapshot = static_cast<const uint8_t *>(takeStackshot(pid, &g_size, &error));
  g_task = kcdata_iter(g_snapshot, g_snapshot == nullptr ? nullptr : g_snapshot + g_size);
  g_taskPID = -1;
  return error;
}

static bool begins(kcdata_iter_t item, uint32_t container) {
  return kcdata_iter_type(item) == darwin::KCDATA_TYPE_CONTAINER_BEGIN &&
         kcdata_iter_container_type(item) == container;
}

template <typename Record>
static Record payloadOf(kcdata_iter_t item) {
  return readRecord<Record>(kcdata_iter_payload(item), kcdata_iter_size(item));
}

static bool findTask(int32_t pid) {
  if (g_taskPID == pid) return true;
  kcdata_iter_t item = kcdata_iter(g_snapshot, g_snapshot + g_size);
  for (; kcdata_iter_valid(item); item = kcdata_iter_next(item)) {
    if (kcdata_iter_type(item) != darwin::STACKSHOT_KCTYPE_TASK_SNAPSHOT) continue;
    if (payloadOf<darwin::task_snapshot_v2>(item).ts_pid != pid) continue;
    g_task = kcdata_iter_next(item);
    g_taskPID = pid;
    return true;
  }
  return false;
}

static uint32_t copyFrames(kcdata_iter_t item, uint64_t *to) {
  uint32_t count = kcdata_iter_size(item) / static_cast<uint32_t>(sizeof *to);
  if (count > kcdata_iter_array_elem_count(item)) count = kcdata_iter_array_elem_count(item);
  if (count > kMostFrames) count = kMostFrames;
  memcpy(to, kcdata_iter_payload(item), count * sizeof *to);
  return count;
}

// Reads what follows a thread's own record.
static void readStacks(kcdata_iter_t item, uint64_t *kernel, uint64_t *user, ThreadStacks *stacks) {
  for (; kcdata_iter_valid(item); item = kcdata_iter_next(item)) {
    const uint32_t type = kcdata_iter_type(item);
    if (type == darwin::KCDATA_TYPE_CONTAINER_END) return;
    if (type != darwin::KCDATA_TYPE_ARRAY) continue;
    const uint32_t element = kcdata_iter_array_elem_type(item);
    if (element == darwin::STACKSHOT_KCTYPE_KERN_STACKLR64) {
      stacks->kernelFrames = copyFrames(item, kernel);
    } else if (element == darwin::STACKSHOT_KCTYPE_USER_STACKLR64) {
      stacks->userFrames = copyFrames(item, user);
    }
  }
}

const uint64_t *findStacks(int32_t pid, uint64_t id, ThreadStacks *stacks) {
  static uint64_t frames[2 * kMostFrames];
  static uint64_t user[kMostFrames];
  memset(stacks, 0, sizeof *stacks);
  if (g_snapshot == nullptr || !findTask(pid)) return frames;
  for (kcdata_iter_t item = g_task; kcdata_iter_valid(item); item = kcdata_iter_next(item)) {
    if (begins(item, darwin::STACKSHOT_KCCONTAINER_TASK)) return frames;  // the next one
    if (kcdata_iter_type(item) != darwin::STACKSHOT_KCTYPE_THREAD_SNAPSHOT) continue;
    const auto thread = payloadOf<darwin::thread_snapshot_v4>(item);
    if (thread.ths_thread_id != id) continue;
    stacks->waitEvent = thread.ths_wait_event;
    stacks->continuation = thread.ths_continuation;
    readStacks(kcdata_iter_next(item), frames, user, stacks);
    memcpy(frames + stacks->kernelFrames, user, stacks->userFrames * sizeof *user);
    return frames;
  }
  return frames;
}

}  // namespace sondex
