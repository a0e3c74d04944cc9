#include "inspect/hierarchy.h"

#include <gtest/gtest.h>

#include "proc/process_table.h"
#include "tests/cost/steps.h"
#include "tests/unit/display_state.h"

namespace {

using namespace sondex;

// Of processes in which each has its parent at half its own place.
uint64_t stepsForTreeOf(int32_t count) {
  ProcessRecord *table = allocateProcessTable(static_cast<size_t>(count));
  for (int32_t i = 0; i < count; i++) {
    table[i].taskAllInfo.pbsd.pbi_pid = static_cast<uint32_t>(i + 1);
    table[i].taskAllInfo.pbsd.pbi_ppid = static_cast<uint32_t>((i + 1) / 2);
  }
  const uint64_t steps = cost::stepsOf([&] {
    showProcessHierarchy(&table[0], {table, count}, 0, 0);
  });
  releaseProcessTable(table);
  return steps;
}

// Sixteen times as many processes would cost 256 times as much if each looked at all others. Their
// lines are longer, too, as the tree is deeper.
TEST(Hierarchy, CostsInProportion) {
  const DisplayStateGuard state;
  store(wantCurses, 1);  // discards what is shown: there is no screen
  const uint64_t few = stepsForTreeOf(1000);
  EXPECT_GT(few, 1000u);
  EXPECT_LT(stepsForTreeOf(16000), 32 * few);
}

}  // namespace
