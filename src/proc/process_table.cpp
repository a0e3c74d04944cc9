#include "proc/process_table.h"

#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

namespace sondex {

std::atomic<ProcessRecord *> g_process_information{nullptr};
SharedInt num_procs{0};
std::atomic<ProcessRecord *> g_previous_process_information{nullptr};
SharedInt previous_num_procs{0};

// A table is mapped, not taken from the heap: the heap would clear reused memory and so touch all
// of a record's unused slots. What belongs to a table beside its records stands in one of these.
struct Table {
  ProcessRecord *records;
  size_t capacity;
  bool retired;
  // Index of the PIDs of the first `indexed` records: open addressing, -1 in a free slot. Null: not
  // indexed.
  int32_t *index;
  uint32_t indexMask;
  int32_t indexed;
};

// The current and the previous table, one being filled, and some that wait for a reader to leave.
static Table tables[8];
static SharedInt readers{0};

static Table *tableOf(const ProcessRecord *table) {
  if (table == nullptr) return nullptr;
  for (Table &entry : tables) {
    if (entry.records == table) return &entry;
  }
  return nullptr;
}

ProcessRecord *allocateProcessTable(size_t count) {
  Table *entry = nullptr;
  for (Table &candidate : tables) {
    if (candidate.records == nullptr) entry = &candidate;
  }
  size_t bytes = 0;
  if (entry == nullptr || __builtin_mul_overflow(count, sizeof(ProcessRecord), &bytes))
    return nullptr;
  void *memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  *entry = {};
  entry->records = static_cast<ProcessRecord *>(memory);
  entry->capacity = count;
  return entry->records;
}

void releaseRecord(ProcessRecord *record) {
  free(record->fdDetails);
  record->fdDetails = nullptr;
}

static void dropIndex(Table *entry) {
  free(entry->index);
  entry->index = nullptr;
  entry->indexed = 0;
}

void releaseProcessTable(ProcessRecord *table) {
  Table *entry = tableOf(table);
  if (entry == nullptr) return;
  for (size_t i = 0; i < entry->capacity; i++) releaseRecord(&table[i]);
  dropIndex(entry);
  munmap(table, entry->capacity * sizeof(ProcessRecord));
  *entry = {};
}

void retireProcessTable(ProcessRecord *table) {
  Table *retiring = tableOf(table);
  if (retiring != nullptr) retiring->retired = true;
  // Ordered against enterProcessTables: a reader seen as gone can no longer hold a table that was
  // current before.
  if (readers.load(std::memory_order_seq_cst) != 0) return;
  for (Table &entry : tables) {
    if (entry.retired) releaseProcessTable(entry.records);
  }
}

void enterProcessTables() {
  readers.fetch_add(1, std::memory_order_seq_cst);
}

void leaveProcessTables() {
  readers.fetch_sub(1, std::memory_order_seq_cst);
}

static uint32_t slotOf(int32_t pid, uint32_t mask) {
  // Fibonacci hashing: neighbouring PIDs spread over the slots.
  return static_cast<uint32_t>(pid) * 2654435769u & mask;
}

void indexProcessTable(ProcessRecord *table, int32_t count) {
  Table *entry = tableOf(table);
  if (entry == nullptr || count <= 0) return;
  dropIndex(entry);
  size_t slots = 64;
  while (slots < static_cast<size_t>(count) * 2) slots *= 2;
  int32_t *index = static_cast<int32_t *>(malloc(slots * sizeof(int32_t)));
  if (index == nullptr) return;
  memset(index, 0xFF, slots * sizeof(int32_t));
  const uint32_t mask = static_cast<uint32_t>(slots - 1);
  for (int32_t i = 0; i < count; i++) {
    uint32_t slot = slotOf(pidOf(&table[i]), mask);
    while (index[slot] >= 0 && pidOf(&table[index[slot]]) != pidOf(&table[i]))
      slot = (slot + 1) & mask;
    if (index[slot] < 0) index[slot] = i;  // the first record of a PID wins
  }
  entry->index = index;
  entry->indexMask = mask;
  entry->indexed = count;
}

ProcessRecord *findProcessInformationByPid(ProcessRecord *table, int32_t pid, int32_t count) {
  const Table *entry = tableOf(table);
  if (table == nullptr) return nullptr;
  if (entry != nullptr && entry->index != nullptr && entry->indexed == count) {
    uint32_t slot = slotOf(pid, entry->indexMask);
    for (; entry->index[slot] >= 0; slot = (slot + 1) & entry->indexMask) {
      ProcessRecord *record = &table[entry->index[slot]];
      if (pidOf(record) == pid) return record;
    }
    return nullptr;
  }
  for (int32_t i = 0; i < count; i++) {
    if (pidOf(&table[i]) == pid) return &table[i];
  }
  return nullptr;
}

static size_t usedThreads(const ProcessRecord *record) {
  return record->numThreads > 0 && record->numThreads <= kThreadSlots
             ? static_cast<size_t>(record->numThreads)
             : 0;
}

static size_t usedFDs(const ProcessRecord *record) {
  if (record->numFDs <= 0) return 0;
  return static_cast<size_t>(record->numFDs < kFDSlots ? record->numFDs : kFDSlots);
}

template <typename T>
static void moveSlots(T *to, size_t usedTo, const T *from, size_t usedFrom) {
  memcpy(to, from, usedFrom * sizeof(T));
  if (usedTo > usedFrom) memset(to + usedFrom, 0, (usedTo - usedFrom) * sizeof(T));
}

// Copies a record without touching the slots that neither of the two uses: most of its pages.
static void moveRecord(ProcessRecord *to, const ProcessRecord *from) {
  moveSlots(to->fds, usedFDs(to), from->fds, usedFDs(from));
  moveSlots(to->threadIDs, usedThreads(to), from->threadIDs, usedThreads(from));
  moveSlots(to->threads, usedThreads(to), from->threads, usedThreads(from));

  const auto copyBytes = [to, from](size_t begin, size_t end) {
    memcpy(reinterpret_cast<char *>(to) + begin, reinterpret_cast<const char *>(from) + begin,
           end - begin);
  };
  copyBytes(0, offsetof(ProcessRecord, fds));
  copyBytes(offsetof(ProcessRecord, numThreads), offsetof(ProcessRecord, threadIDs));
  copyBytes(offsetof(ProcessRecord, totalCPU), sizeof(ProcessRecord));
}

void reorderProcessTable(ProcessRecord *table, ProcessRecord **order, int32_t count) {
  static ProcessRecord displaced;
  if (Table *entry = tableOf(table)) dropIndex(entry);
  for (int32_t start = 0; start < count; start++) {
    if (order[start] == nullptr || order[start] == &table[start]) continue;
    // One round of the permutation: the hole at `hole` is filled from where its record stands.
    moveRecord(&displaced, &table[start]);
    int32_t hole = start;
    while (order[hole] != &table[start]) {
      ProcessRecord *source = order[hole];
      moveRecord(&table[hole], source);
      order[hole] = nullptr;
      hole = static_cast<int32_t>(source - table);
    }
    moveRecord(&table[hole], &displaced);
    order[hole] = nullptr;
  }
}

}  // namespace sondex
