#include "proc/jetsam.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>

#include "darwin/errors.h"
#include "darwin/syscalls.h"

namespace sondex {

using Entry = darwin::memorystatus_priority_entry;

// Room for processes that start between the question for the size and that for the list.
constexpr size_t kSpareEntries = 20;

int memorystatus_control(uint32_t command, int32_t pid, uint32_t flags, void *buffer,
                         size_t bufferSize) {
  return static_cast<int>(
      syscall(darwin::DARWIN_SYS_memorystatus_control, command, pid, flags, buffer, bufferSize));
}

static size_t countOf(const JetsamList *list) {
  return list->byteCount > 0 ? static_cast<size_t>(list->byteCount) / sizeof(Entry) : 0;
}

static int askListSize() {
  return memorystatus_control(darwin::MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, nullptr, 0);
}

// A block of at most `room` bytes of entries in the kernel's order; null when memory is short.
static JetsamList *takeList(size_t room) {
  JetsamList *list = static_cast<JetsamList *>(calloc(1, sizeof(JetsamList) + room));
  if (list == nullptr) return nullptr;
  list->byteCount =
      memorystatus_control(darwin::MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, list->entries, room);
  // Never believe a count beyond the block that was handed over.
  if (list->byteCount > 0 && static_cast<size_t>(list->byteCount) > room) {
    list->byteCount = static_cast<int32_t>(room);
  }
  return list;
}

JetsamList *getMemoryStatusPriorityList() {
  const int size = askListSize();
  if (size < 0) {
    perror("memorystatus_control");
    return nullptr;
  }
  JetsamList *list = takeList(static_cast<size_t>(size));
  if (list == nullptr) return nullptr;
  qsort(list->entries, countOf(list), sizeof(Entry), compare_jetsam_pids);
  list->isInOrder = 1;
  return list;
}

// The one that a scan from the start finds.
static const Entry *findEntry(int32_t pid, const JetsamList *list) {
  const Entry *end = list->entries + countOf(list);
  const Entry *entry =
      list->isInOrder != 0
          ? std::lower_bound(list->entries, end, pid,
                             [](const Entry &each, int32_t wanted) { return each.pid < wanted; })
          : std::find_if(list->entries, end, [pid](const Entry &each) { return each.pid == pid; });
  return entry != end && entry->pid == pid ? entry : nullptr;
}

const Entry *getJetsamPropertiesOfPID(int32_t pid, const JetsamList *list) {
  if (list == nullptr) return reinterpret_cast<const Entry *>(static_cast<intptr_t>(kNoJetsamList));
  return findEntry(pid, list);
}

int32_t getMemoryStatusPriorityOfPID(int32_t pid, const JetsamList *list) {
  if (list == nullptr) return kNoJetsamList;
  const Entry *entry = findEntry(pid, list);
  return entry == nullptr ? -1 : entry->priority;
}

int getMemoryStatusEntry(int32_t pid, Entry *entry) {
  const int size = askListSize();
  if (size < 0) return errno;
  JetsamList *list = takeList(static_cast<size_t>(size) + kSpareEntries * sizeof(Entry));
  if (list == nullptr) return darwin::DARWIN_ENOMEM;
  int error = list->byteCount < 0 ? errno : 0;
  const Entry *found = findEntry(pid, list);
  if (found != nullptr) {
    *entry = *found;
  } else if (error == 0) {
    error = darwin::DARWIN_ESRCH;
  }
  free(list);
  return error;
}

// Of the commands about one process.
static int controlProcess(uint32_t command, int32_t pid, void *properties, size_t size) {
  return memorystatus_control(command, pid, 0, properties, size) < 0 ? errno : 0;
}

int setMemoryStatusPriority(int32_t pid, int32_t band) {
  Entry entry = {};
  const int error = getMemoryStatusEntry(pid, &entry);
  if (error != 0) return error;
  darwin::memorystatus_priority_properties properties = {band, entry.user_data};
  return controlProcess(darwin::MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES, pid, &properties,
                        sizeof properties);
}

int setMemoryStatusLimit(int32_t pid, int32_t limit) {
  darwin::memorystatus_memlimit_properties limits = {};
  const int error =
      controlProcess(darwin::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES, pid, &limits, sizeof limits);
  if (error != 0) return error;
  limits.memlimit_active = limit;
  limits.memlimit_inactive = limit;
  return controlProcess(darwin::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, pid, &limits,
                        sizeof limits);
}

int compare_jetsam_pids(const void *a, const void *b) {
  return static_cast<const Entry *>(a)->pid > static_cast<const Entry *>(b)->pid ? 1 : -1;
}

int compare_jetsam_priorities(const void *a, const void *b) {
  const int32_t left = static_cast<const Entry *>(a)->priority;
  const int32_t right = static_cast<const Entry *>(b)->priority;
  return left == right ? 0 : left > right ? 1 : -1;
}

}  // namespace sondex
