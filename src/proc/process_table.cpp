#include "proc/process_table.h"

#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>

#include "proc/hash_index.h"

namespace sondex {

std::atomic<ProcessRecord *> g_process_information{nullptr};
SharedInt num_procs{0};
std::atomic<ProcessRecord *> g_previous_process_information{nullptr};
SharedInt previous_num_procs{0};

// Tables are mapped in steps of this many records, so that one fits the next sample too.
constexpr size_t kCapacityStep = 256;

struct Index {
  Index *older;       // one that this table had before
  int32_t indexed;    // how many records it covers
  HashIndex *places;  // of the first record of each PID
};

// A table is mapped, not taken from the heap: the heap would clear reused memory and so touch all
// of a record's unused slots. What belongs to a table beside its records stands in one of these.
struct Table {
  std::atomic<ProcessRecord *> records;
  size_t mapped;  // records that there is memory for
  size_t used;    // those that may hold something
  bool retired;
  std::atomic<uint64_t> version;
  std::atomic<Index *> index;  // null: not indexed
  Index *outdated;             // indexes that a reader may still be in
};

// The current, the previous and the drawn table, one being filled, and some that wait for a reader
// to leave.
static Table tables[8];

// A released table, cleared: the next one takes its pages, which cost more to get than to fill.
static ProcessRecord *spareRecords = nullptr;
static size_t spareMapped = 0;

static SharedInt readers{0};

static uint64_t lastVersion = 0;

// The question of reclamation by counting readers. A reader counts itself in before it takes an
// address, and that address was replaced before this is asked. All four are sequentially
// consistent, so they have one order for all threads: a reader that is not seen here comes after
// the replacement, and can't have the former address.
static bool areRead() {
  return readers.load(std::memory_order_seq_cst) != 0;
}

static Table *tableOf(const ProcessRecord *table) {
  if (table == nullptr) return nullptr;
  for (Table &entry : tables) {
    if (load(entry.records) == table) return &entry;
  }
  return nullptr;
}

static Table *unusedEntry() {
  for (Table &entry : tables) {
    if (load(entry.records) == nullptr) return &entry;
  }
  return nullptr;
}

bool hasRoomForTable() {
  return unusedEntry() != nullptr;
}

static ProcessRecord *mapRecords(size_t count, size_t *mapped) {
  if (count > SIZE_MAX / sizeof(ProcessRecord) - kCapacityStep) return nullptr;
  *mapped = (count + kCapacityStep - 1) / kCapacityStep * kCapacityStep;
  void *memory = mmap(nullptr, *mapped * sizeof(ProcessRecord), PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANON, -1, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<ProcessRecord *>(memory);
}

static void dropSpare() {
  if (spareRecords == nullptr) return;
  munmap(spareRecords, spareMapped * sizeof(ProcessRecord));
  spareRecords = nullptr;
}

ProcessRecord *allocateProcessTable(size_t count) {
  Table *entry = unusedEntry();
  if (entry == nullptr) return nullptr;
  // A spare one of several times the size is from a time of more processes: it goes back.
  if (spareRecords != nullptr && (spareMapped < count || spareMapped / 4 > count + kCapacityStep)) {
    dropSpare();
  }
  ProcessRecord *table = spareRecords;
  if (table != nullptr) {
    entry->mapped = spareMapped;
    spareRecords = nullptr;
  } else {
    table = mapRecords(count, &entry->mapped);
    if (table == nullptr) return nullptr;
  }
  entry->used = count;
  entry->retired = false;
  store(entry->version, ++lastVersion);
  store(entry->records, table);
  return table;
}

void limitProcessTable(ProcessRecord *table, size_t count) {
  Table *entry = tableOf(table);
  if (entry != nullptr && count < entry->used) entry->used = count;
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

// Zeroes a record without touching the slots that it does not use: most of its pages.
static void clearRecord(ProcessRecord *record) {
  memset(record->fds, 0, usedFDs(record) * sizeof record->fds[0]);
  memset(record->threadIDs, 0, usedThreads(record) * sizeof record->threadIDs[0]);
  memset(record->threads, 0, usedThreads(record) * sizeof record->threads[0]);

  const auto clearBytes = [record](size_t begin, size_t end) {
    memset(reinterpret_cast<char *>(record) + begin, 0, end - begin);
  };
  clearBytes(0, offsetof(ProcessRecord, fds));
  clearBytes(offsetof(ProcessRecord, numThreads), offsetof(ProcessRecord, threadIDs));
  clearBytes(offsetof(ProcessRecord, totalCPU), sizeof(ProcessRecord));
}

void releaseRecord(ProcessRecord *record) {
  free(record->fdDetails);
  record->fdDetails = nullptr;
}

static void freeOutdated(Table *entry) {
  while (Index *index = entry->outdated) {
    entry->outdated = index->older;
    releaseHashIndex(index->places);
    free(index);
  }
}

static void dropIndex(Table *entry) {
  Index *index = load(entry->index);
  if (index == nullptr) return;
  store(entry->index, nullptr);
  index->older = entry->outdated;
  entry->outdated = index;
  if (!areRead()) freeOutdated(entry);
}

void releaseProcessTable(ProcessRecord *table) {
  Table *entry = tableOf(table);
  if (entry == nullptr) return;
  dropIndex(entry);
  freeOutdated(entry);
  for (size_t i = 0; i < entry->used; i++) {
    releaseRecord(&table[i]);
    clearRecord(&table[i]);
  }
  dropSpare();
  spareRecords = table;
  spareMapped = entry->mapped;
  store(entry->records, nullptr);
}

void retireProcessTable(ProcessRecord *table) {
  Table *retiring = tableOf(table);
  if (retiring != nullptr) retiring->retired = true;
  if (areRead()) return;
  for (Table &entry : tables) {
    if (entry.retired) releaseProcessTable(load(entry.records));
  }
}

void enterProcessTables() {
  readers.fetch_add(1, std::memory_order_seq_cst);
}

void leaveProcessTables() {
  readers.fetch_sub(1, std::memory_order_seq_cst);
}

TableView currentTable() {
  return {load(g_process_information), load(num_procs)};
}

void setCurrentTable(TableView table) {
  store(num_procs, table.count);
  store(g_process_information, table.records);
}

// A reader takes the address and the count one after the other: the count fits both tables for as
// long as either may be the one that it got.
void setPreviousTable(TableView table) {
  const int32_t smaller = std::min(table.count, load(previous_num_procs));
  previous_num_procs.store(smaller, std::memory_order_seq_cst);
  store(g_previous_process_information, table.records);
  previous_num_procs.store(table.count, std::memory_order_seq_cst);
}

TableView previousTable() {
  // Around a change of the address the count is never more than either table has: taken between two
  // looks at the same address it fits.
  TableView table = {load(g_previous_process_information), 0};
  for (;;) {
    table.count = table.records != nullptr ? previous_num_procs.load(std::memory_order_seq_cst) : 0;
    ProcessRecord *again = load(g_previous_process_information);
    if (again == table.records) return table;
    table.records = again;
  }
}

static TableView drawn = {};

TableView drawnTable() {
  return drawn;
}

void setDrawnTable(TableView table) {
  drawn = table;
}

uint64_t versionOf(const ProcessRecord *table) {
  const Table *entry = tableOf(table);
  return entry != nullptr ? load(entry->version) : 0;
}

// Null when memory is short.
static Index *makeIndex(TableView table) {
  Index *index = static_cast<Index *>(malloc(sizeof(Index)));
  if (index == nullptr) return nullptr;
  *index = {nullptr, table.count, makeHashIndex(static_cast<size_t>(table.count))};
  if (index->places == nullptr) {
    free(index);
    return nullptr;
  }
  for (int32_t i = 0; i < table.count; i++) {
    enterPlace(index->places, static_cast<uint64_t>(pidOf(&table.records[i])), i);
  }
  return index;
}

void indexProcessTable(TableView table) {
  Table *entry = tableOf(table.records);
  if (entry == nullptr || table.count <= 0) return;
  dropIndex(entry);
  store(entry->index, makeIndex(table));
}

ProcessRecord *findProcessInformationByPid(TableView table, int32_t pid) {
  if (table.records == nullptr) return nullptr;
  const Table *entry = tableOf(table.records);
  const Index *index = entry != nullptr ? load(entry->index) : nullptr;
  if (index != nullptr && index->indexed == table.count) {
    const int32_t place = placeOf(index->places, static_cast<uint64_t>(pid));
    return place != kNoPlace ? &table.records[place] : nullptr;
  }
  for (int32_t i = 0; i < table.count; i++) {
    if (pidOf(&table.records[i]) == pid) return &table.records[i];
  }
  return nullptr;
}

template <typename T>
static void moveSlots(T *to, size_t usedTo, const T *from, size_t usedFrom) {
  memcpy(to, from, usedFrom * sizeof(T));
  if (usedTo > usedFrom) memset(to + usedFrom, 0, (usedTo - usedFrom) * sizeof(T));
}

// Copies a record without touching the slots that neither of the two uses.
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

void reorderProcessTable(TableView table, ProcessRecord **order) {
  static ProcessRecord displaced;
  ProcessRecord *records = table.records;
  if (Table *entry = tableOf(records)) {
    dropIndex(entry);
    store(entry->version, ++lastVersion);
  }
  for (int32_t start = 0; start < table.count; start++) {
    if (order[start] == nullptr || order[start] == &records[start]) continue;
    // One round of the permutation: the hole at `hole` is filled from where its record stands.
    moveRecord(&displaced, &records[start]);
    int32_t hole = start;
    while (order[hole] != &records[start]) {
      ProcessRecord *source = order[hole];
      moveRecord(&records[hole], source);
      order[hole] = nullptr;
      hole = static_cast<int32_t>(source - records);
    }
    moveRecord(&records[hole], &displaced);
    order[hole] = nullptr;
  }
}

}  // namespace sondex
