#include "columns/sort.h"

#include <stdlib.h>

#include "proc/process_table.h"
#include "state/display.h"

namespace sondex {

// What the order is by, for compareAddresses: the C library's sort has no portable way to hand it
// through.
static Comparator sortComparator = nullptr;
static int32_t sortReverse = 0;

static int compareAddresses(const void *left, const void *right) {
  const ProcessRecord *a = *static_cast<const ProcessRecord *const *>(left);
  const ProcessRecord *b = *static_cast<const ProcessRecord *const *>(right);
  const int order = sortComparator(sortReverse, a, b);
  const int opposite = sortComparator(sortReverse, b, a);
  // A comparator never says "equal": it gives itself away by the same answer either way round. Left
  // to the sort, such answers contradict each other and the order would be the C library's.
  if ((order < 0) == (opposite < 0)) return a < b ? -1 : a > b ? 1 : 0;
  return order;
}

void doSort(Comparator comparator) {
  ProcessRecord *table = load(g_process_information);
  const int32_t count = load(num_procs);
  if (table == nullptr || comparator == nullptr || count < 2) return;
  // Records are large: their addresses are sorted, then each record is moved once.
  ProcessRecord **order =
      static_cast<ProcessRecord **>(malloc(static_cast<size_t>(count) * sizeof(ProcessRecord *)));
  if (order == nullptr) return;
  for (int32_t i = 0; i < count; i++) order[i] = &table[i];
  sortComparator = comparator;
  sortReverse = load(g_reverse);
  qsort(order, static_cast<size_t>(count), sizeof order[0], compareAddresses);
  reorderProcessTable(table, order, count);
  free(order);
}

}  // namespace sondex
