#include "proc/jetsam.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "darwin/syscalls.h"

namespace sondex {

using Entry = darwin::memorystatus_priority_entry;

int memorystatus_control(uint32_t command, int32_t pid, uint32_t flags, void *buffer,
                         size_t bufferSize) {
  return static_cast<int>(
      syscall(darwin::DARWIN_SYS_memorystatus_control, command, pid, flags, buffer, bufferSize));
}

static size_t countOf(const JetsamList *list) {
  return list->byteCount > 0 ? static_cast<size_t>(list->byteCount) / sizeof(Entry) : 0;
}

JetsamList *getMemoryStatusPriorityList() {
  const int size =
      memorystatus_control(darwin::MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, nullptr, 0);
  if (size < 0) {
    perror("memorystatus_control");
    return nullptr;
  }
  const size_t room = static_cast<size_t>(size);
  JetsamList *list = static_cast<JetsamList *>(calloc(1, sizeof(JetsamList) + room));
  if (list == nullptr) return nullptr;
  list->byteCount =
      memorystatus_control(darwin::MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, list->entries, room);
  // Never believe a count beyond the block that was handed over.
  if (list->byteCount > size) list->byteCount = size;
  qsort(list->entries, countOf(list), sizeof(Entry), compare_jetsam_pids);
  return list;
}

// Kept: a scan, though the list is in order. It holds a few hundred entries.
static const Entry *findEntry(int32_t pid, const JetsamList *list) {
  const Entry *end = list->entries + countOf(list);
  for (const Entry *entry = list->entries; entry != end; entry++) {
    if (entry->pid == pid) return entry;
  }
  return nullptr;
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

int compare_jetsam_pids(const void *a, const void *b) {
  return static_cast<const Entry *>(a)->pid > static_cast<const Entry *>(b)->pid ? 1 : -1;
}

int compare_jetsam_priorities(const void *a, const void *b) {
  const int32_t left = static_cast<const Entry *>(a)->priority;
  const int32_t right = static_cast<const Entry *>(b)->priority;
  return left == right ? 0 : left > right ? 1 : -1;
}

}  // namespace sondex
