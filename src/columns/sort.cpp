#include "columns/sort.h"

#include <stdlib.h>

#include "columns/comparators.h"
#include "proc/process_table.h"
#include "state/display.h"

namespace sondex {

// What compareAddresses goes by: qsort has no portable way to hand it an argument.
static Comparator sortComparator = nullptr;
static int32_t sortReverse = 0;

static int compareAddresses(const void *left, const void *right) {
  const ProcessRecord *a = *static_cast<const ProcessRecord *const *>(left);
  const ProcessRecord *b = *static_cast<const ProcessRecord *const *>(right);
  const int order = sortComparator(sortReverse, a, b);
  const int opposite = sortComparator(sortReverse, b, a);
  // For equal keys a comparator gives the same answer either way round, in place of "equal". qsort
  // would make some order of its own from such a contradiction: the records stay as they stand.
  if ((order < 0) == (opposite < 0)) return a < b ? -1 : a > b ? 1 : 0;
  return order;
}

void doSort(Comparator comparator) {
  const TableView table = currentTable();
  if (table.records == nullptr || comparator == nullptr || table.count < 2) return;
  // Records are large: their addresses are sorted, then each record is moved once.
  const size_t count = static_cast<size_t>(table.count);
  ProcessRecord **order = static_cast<ProcessRecord **>(malloc(count * sizeof(ProcessRecord *)));
  if (order == nullptr) return;
  for (size_t i = 0; i < count; i++) order[i] = &table.records[i];
  sortComparator = comparator;
  sortReverse = load(g_reverse);
  const bool isByNetwork = comparator == sort_netrx || comparator == sort_nettx;
  SourceSums *sums = isByNetwork ? takeSourceSums() : nullptr;
  sortBySums(sums);
  qsort(order, count, sizeof order[0], compareAddresses);
  sortBySums(nullptr);
  releaseSourceSums(sums);
  reorderProcessTable(table, order);
  free(order);
}

}  // namespace sondex
