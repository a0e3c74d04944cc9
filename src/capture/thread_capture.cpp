#include "capture/thread_capture.h"

#include <stdlib.h>
#include <string.h>

#include "capture/device_file_writer.h"
#include "capture/figures.h"
#include "capture/stack_capture.h"
#include "darwin/libproc.h"
#include "darwin/mach_task.h"
#include "darwin/macho.h"
#include "vm/task_memory.h"
#include "vm/thread_commands.h"

namespace sondex {

constexpr uint64_t kFirstChosenID = 0x101;  // that the file gives to a thread without one
constexpr int32_t kUsualLargestPriority = 63;

static const FlagWord kStates[] = {{"running", darwin::TH_STATE_RUNNING},
                                   {"stopped", darwin::TH_STATE_STOPPED},
                                   {"waiting", darwin::TH_STATE_WAITING},
                                   {"uninterruptible", darwin::TH_STATE_UNINTERRUPTIBLE},
                                   {"halted", darwin::TH_STATE_HALTED}};
static const FlagWord kFlags[] = {{"swapped", darwin::TH_FLAGS_SWAPPED},
                                  {"idle", darwin::TH_FLAGS_IDLE}};
constexpr uint32_t kKnownFlags = darwin::TH_FLAGS_SWAPPED | darwin::TH_FLAGS_IDLE;

enum class RegisterKind : uint32_t { kNone, k32, k64 };

// As it is spooled; the frames follow.
struct SpooledThread {
  uint64_t handle;
  uint64_t id;  // 0: not known
  uint64_t hasEnded;
  darwin::proc_threadinfo info;
  ThreadStacks stacks;
  RegisterKind kind;
  darwin::natural_t registers[darwin::ARM_THREAD_STATE64_COUNT];
};

static uint64_t g_nextID;  // 0 once a thread has had another one than the file would choose

void beginThreadIDs() {
  g_nextID = kFirstChosenID;
}

// A list of 64-bit words: handles or IDs.
static int32_t listWords(int32_t pid, int flavour, uint64_t *words) {
  constexpr int kRoom = kMostThreads * static_cast<int>(sizeof *words);
  const int size = darwin::proc_pidinfo(pid, flavour, 0, words, kRoom);
  return size > 0 && size <= kRoom ? size / static_cast<int>(sizeof *words) : 0;
}

// Their IDs or, where the kernel does not tell those, their handles: the others are 0. Not both,
// as threads may come and go in between.
static int32_t listThreads(int32_t pid, uint64_t *handles, uint64_t *ids) {
  int32_t count = listWords(pid, darwin::PROC_PIDLISTTHREADIDS, ids);
  uint64_t *unknown = handles;
  if (count == 0) {
    count = listWords(pid, darwin::PROC_PIDLISTTHREADS, handles);
    unknown = ids;
  }
  memset(unknown, 0, static_cast<size_t>(count) * sizeof *unknown);
  return count;
}

// By its ID where that is known: the kernel's own threads have no handles to tell them apart.
static bool askThread(int32_t pid, uint64_t handle, uint64_t id, darwin::proc_threadinfo *info) {
  const int flavour = id != 0 ? darwin::PROC_PIDTHREADID64INFO : darwin::PROC_PIDTHREADINFO;
  memset(info, 0, sizeof *info);
  return darwin::proc_pidinfo(pid, flavour, id != 0 ? id : handle, info, sizeof *info) ==
         static_cast<int>(sizeof *info);
}

// Those of a task's threads, in their order, as a core has them.
struct TaskRegisters {
  char *commands;  // on the heap; null: there are none
  uint32_t count;
  uint32_t size;  // of each
};

static TaskRegisters readRegisters(int32_t pid, bool is32Bit) {
  TaskRegisters read = {};
  const darwin::mach_port_t task = obtainTaskPort(pid);
  if (task == darwin::DARWIN_MACH_PORT_NULL) return read;
  uint32_t total = 0;
  read.commands = makeThreadCommands(task, &read.count, &total, is32Bit);
  if (read.count > 0) read.size = total / read.count;
  darwin::mach_port_deallocate(darwin::mach_task_self_, task);
  return read;
}

// The registers follow the command, its flavour and its count.
static void takeRegisters(const TaskRegisters *from, int32_t index, bool is32Bit,
                          SpooledThread *thread) {
  constexpr size_t kHeader = sizeof(darwin::thread_command) + 2 * sizeof(darwin::natural_t);
  const size_t size =
      is32Bit ? sizeof(darwin::arm_thread_state32_t) : sizeof(darwin::arm_thread_state64_t);
  if (from->commands == nullptr || from->size < kHeader + size) return;
  thread->kind = is32Bit ? RegisterKind::k32 : RegisterKind::k64;
  memcpy(thread->registers, from->commands + static_cast<size_t>(index) * from->size + kHeader,
         size);
}

static void spoolThread(int32_t pid, const SpooledThread *thread, FILE *to) {
  SpooledThread spooled = *thread;
  const uint64_t *frames = findStacks(pid, spooled.id, &spooled.stacks);
  fwrite(&spooled, sizeof spooled, 1, to);
  fwrite(frames, sizeof *frames, framesOf(&spooled.stacks), to);
}

int64_t spoolThreads(int32_t pid, bool withRegisters, bool is32Bit, FILE *to) {
  static uint64_t handles[kMostThreads];
  static uint64_t ids[kMostThreads];
  const int32_t count = listThreads(pid, handles, ids);
  TaskRegisters registers = {};
  if (withRegisters) registers = readRegisters(pid, is32Bit);
  const bool areRead = registers.count == static_cast<uint32_t>(count);
  int64_t share = 0;
  fwrite(&count, sizeof count, 1, to);
  for (int32_t i = 0; i < count; i++) {
    SpooledThread thread;
    memset(&thread, 0, sizeof thread);
    thread.handle = handles[i];
    thread.id = ids[i];
    thread.hasEnded = !askThread(pid, handles[i], thread.id, &thread.info) ? 1 : 0;
    share += thread.info.pth_cpu_usage > 0 ? thread.info.pth_cpu_usage : 0;
    if (areRead) takeRegisters(&registers, i, is32Bit, &thread);
    spoolThread(pid, &thread, to);
  }
  free(registers.commands);
  return share;
}

int32_t listShares(int32_t pid, ThreadShare *list) {
  static uint64_t handles[kMostThreads];
  static uint64_t ids[kMostThreads];
  const int32_t count = listThreads(pid, handles, ids);
  for (int32_t i = 0; i < count; i++) {
    darwin::proc_threadinfo info;
    askThread(pid, handles[i], ids[i], &info);
    list[i] = {ids[i] != 0 ? ids[i] : handles[i], info.pth_cpu_usage};
  }
  return count;
}

// The list mostly has the threads in the same order: the search goes on where the last one ended.
static int32_t secondShare(const ThreadSource *source, const SpooledThread *thread, int32_t *at) {
  const uint64_t name = thread->id != 0 ? thread->id : thread->handle;
  for (int32_t i = 0; i < source->secondCount; i++) {
    const int32_t place = (*at + i) % source->secondCount;
    if (source->second[place].name != name) continue;
    *at = place + 1;
    return source->second[place].share;
  }
  return thread->info.pth_cpu_usage;
}

// What is written of a thread.
struct WrittenThread {
  SpooledThread spooled;
  int32_t secondShare;
  bool needsID;
  uint64_t frames[2 * kMostFrames];
};

static bool readThread(FILE *from, WrittenThread *thread) {
  if (fread(&thread->spooled, sizeof thread->spooled, 1, from) != 1) return false;
  const size_t frames = framesOf(&thread->spooled.stacks);
  return fread(thread->frames, sizeof thread->frames[0], frames, from) == frames;
}

static bool takeID(uint64_t id) {
  if (id == 0 || g_nextID == id) {
    if (g_nextID != 0) g_nextID++;
    return false;
  }
  g_nextID = 0;
  return true;
}

// Whether `b` is written as `a` is, so that the two can stand for one another.
static bool isAlike(const WrittenThread *a, const WrittenThread *b) {
  return !a->needsID && !b->needsID && a->secondShare == b->secondShare &&
         a->spooled.kind == RegisterKind::kNone && framesOf(&a->spooled.stacks) == 0 &&
         b->spooled.kind == RegisterKind::kNone && framesOf(&b->spooled.stacks) == 0 &&
         memcmp(&a->spooled.info, &b->spooled.info, sizeof a->spooled.info) == 0 &&
         memcmp(&a->spooled.stacks, &b->spooled.stacks, sizeof a->spooled.stacks) == 0;
}

static void writeFrames(const char *key, const uint64_t *frames, uint32_t count) {
  if (count == 0) return;
  beginArray(key);
  for (uint32_t i = 0; i < count; i++) writeAddress(nullptr, frames[i]);
  endArray();
}

static void writeRegister(const char *key, uint64_t value) {
  if (value != 0) writeAddress(key, value);
}

static void writeWide(const darwin::arm_thread_state64_t *state) {
  writeRegister("pc", state->__pc);
  writeRegister("sp", state->__sp);
  writeRegister("lr", state->__lr);
  writeRegister("fp", state->__fp);
  if (state->__cpsr != 0) writeNumber("cpsr", state->__cpsr);
  beginArray("x");
  for (const uint64_t general : state->__x) writeAddress(nullptr, general);
  endArray();
}

static void writeNarrow(const darwin::arm_thread_state32_t *state) {
  if (state->__pc != 0) writeNumber("pc", state->__pc);
  if (state->__sp != 0) writeNumber("sp", state->__sp);
  if (state->__lr != 0) writeNumber("lr", state->__lr);
  if (state->__cpsr != 0) writeNumber("cpsr", state->__cpsr);
  beginArray("r");
  for (const uint32_t general : state->__r) writeNumber(nullptr, general);
  endArray();
}

static void writeRegisters(const SpooledThread *thread) {
  if (thread->kind == RegisterKind::kNone) return;
  beginInlineTable("registers");
  if (thread->kind == RegisterKind::k64) {
    darwin::arm_thread_state64_t state;
    memcpy(&state, thread->registers, sizeof state);
    writeWide(&state);
  } else {
    darwin::arm_thread_state32_t state;
    memcpy(&state, thread->registers, sizeof state);
    writeNarrow(&state);
  }
  endInlineTable();
}

void writePolicy(int32_t policy) {
  static const FlagWord kPolicies[] = {{"timeshare", darwin::POLICY_TIMESHARE},
                                       {"round-robin", darwin::POLICY_RR},
                                       {"fifo", darwin::POLICY_FIFO}};
  for (const FlagWord &row : kPolicies) {
    if (row.bits == static_cast<uint32_t>(policy)) writePlainText("policy", row.word);
  }
}

static void writeThread(const WrittenThread *thread, int32_t copies,
                        const ThreadDefaults *defaults) {
  const darwin::proc_threadinfo &info = thread->spooled.info;
  beginInlineTable(nullptr);
  if (copies > 1) writeNumber("copies", copies);
  if (info.pth_name[0] != '\0') writeText("name", info.pth_name, sizeof info.pth_name);
  const auto state = static_cast<uint32_t>(info.pth_run_state > 0 ? info.pth_run_state : 0);
  if (state != darwin::TH_STATE_WAITING) writeWord("state", state, kStates);
  writeShare("share", info.pth_cpu_usage, thread->secondShare);
  // Their growth is what the shares say.
  writeTime("user-time", info.pth_user_time, info.pth_user_time, info.pth_user_time);
  writeTime("system-time", info.pth_system_time, info.pth_system_time, info.pth_system_time);
  if (info.pth_priority != defaults->priority) writeNumber("priority", info.pth_priority);
  if (info.pth_curpri != info.pth_priority) writeNumber("current-priority", info.pth_curpri);
  if (info.pth_maxpriority != kUsualLargestPriority) {
    writeNumber("largest-priority", info.pth_maxpriority);
  }
  if (info.pth_policy != defaults->policy) {
    writePolicy(info.pth_policy);
  }
  const uint32_t flags = static_cast<uint32_t>(info.pth_flags) & kKnownFlags;
  if (flags != 0) writeFlags("flags", flags, kFlags);
  if (info.pth_sleep_time > 0) writeNumber("asleep", info.pth_sleep_time);
  const ThreadStacks &stacks = thread->spooled.stacks;
  if (thread->needsID) writeNumber("id", static_cast<int64_t>(thread->spooled.id));
  if (stacks.waitEvent != 0) writeAddress("wait-event", stacks.waitEvent);
  if (stacks.continuation != 0) writeAddress("continuation", stacks.continuation);
  writeFrames("kernel-stack", thread->frames, stacks.kernelFrames);
  writeFrames("user-stack", thread->frames + stacks.kernelFrames, stacks.userFrames);
  writeRegisters(&thread->spooled);
  endInlineTable();
}

// As the file takes it for granted where nothing is said.
static bool isPlain(const WrittenThread *thread, const ThreadDefaults *defaults) {
  static const ThreadStacks kNone = {};
  darwin::proc_threadinfo plain = {};
  plain.pth_run_state = darwin::TH_STATE_WAITING;
  plain.pth_priority = plain.pth_curpri = defaults->priority;
  plain.pth_maxpriority = kUsualLargestPriority;
  plain.pth_policy = defaults->policy;
  return !thread->needsID && thread->secondShare == 0 &&
         thread->spooled.kind == RegisterKind::kNone &&
         memcmp(&thread->spooled.info, &plain, sizeof plain) == 0 &&
         memcmp(&thread->spooled.stacks, &kNone, sizeof kNone) == 0;
}

// Writes what is alike at once: `next` is read ahead of `current`.
bool writeThreads(const ThreadSource *source, const ThreadDefaults *defaults) {
  static WrittenThread threads[2];
  WrittenThread *current = &threads[0];
  WrittenThread *next = &threads[1];
  int32_t count = 0;
  if (fread(&count, sizeof count, 1, source->from) != 1) return false;
  int32_t at = 0;
  int32_t copies = 0;
  bool isOpen = false;
  for (int32_t i = 0; i < count; i++) {
    if (!readThread(source->from, next)) return false;
    if (next->spooled.hasEnded != 0) continue;
    if (defaults->areStopped) next->spooled.info.pth_run_state = darwin::TH_STATE_STOPPED;
    next->secondShare = secondShare(source, &next->spooled, &at);
    next->needsID = takeID(next->spooled.id);
    if (copies > 0 && isAlike(current, next)) {
      copies++;
      continue;
    }
    if (copies > 0) {
      if (!isOpen) beginRows("threads");
      isOpen = true;
      writeThread(current, copies, defaults);
    }
    WrittenThread *written = current;
    current = next;
    next = written;
    copies = 1;
  }
  if (!isOpen && (copies == 0 || isPlain(current, defaults))) {
    if (copies != 1) writeNumber("threads", copies);
    return true;
  }
  if (!isOpen) beginRows("threads");
  writeThread(current, copies, defaults);
  endArray();
  return true;
}

}  // namespace sondex
