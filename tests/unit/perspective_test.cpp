#include "columns/perspective.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "columns/column_table.h"
#include "columns/comparators.h"
#include "columns/renderers.h"
#include "tests/harness/list_columns.h"
#include "tests/unit/display_state.h"

namespace {

using namespace sondex;
using test::Column;
using test::kColumnCount;
using test::kLastColumn;
using test::kListColumns;
using test::kSelectedColumn;
using test::placeOf;

// What draws a column and what sorts by it.
struct Behaviour {
  const ColumnDescriptor *column;
  Renderer print;
  Comparator sort;
};

const Behaviour kBehaviours[] = {
    {&col_uid, print_uid, sort_uid},
    {&col_pid, print_pid, sort_pid},
    {&col_ppid, print_ppid, sort_ppid},
    {&col_command, print_name, sort_name},
    {&col_threads, print_numthreads, sort_numthreads},
    {&col_priority, print_priority, sort_priority},
    {&col_rsize, print_rsize, sort_rsize},
    {&col_vsize, print_vsize, sort_vsize},
    {&col_cpu, print_cpu_usage, sort_cpu_usage},
    {&col_dsk_r, print_io_rusage_read, sort_io_rusage_read},
    {&col_dsk_w, print_io_rusage_written, sort_io_rusage_written},
    {&col_coalition, print_coalition, sort_coalition},
    {&col_status, print_status, sort_status},
    {&col_memstatus, print_memstatus, sort_memstatus},
    {&col_memlimit, print_memlimit, sort_memlimit},
    {&col_sandbox, print_sandbox, sort_sandbox},
    {&col_time, print_time, sort_time},
    {&col_stime, print_stime, sort_stime},
    {&col_nfds, print_numfds, sort_numfds},
    {&col_net_rx, print_netrx, sort_netrx},
    {&col_net_tx, print_nettx, sort_nettx},
};

void expectColumn(const Behaviour &expected, const char *header, int width, int generation,
                  bool isForRoot) {
  SCOPED_TRACE(header);
  const ColumnDescriptor &column = *expected.column;
  char padded[16] = {};
  std::memcpy(padded, header, std::strlen(header));
  EXPECT_EQ(std::memcmp(column.header, padded, sizeof padded), 0);
  EXPECT_EQ(column.width, width);
  EXPECT_EQ(column.print, expected.print);
  EXPECT_EQ(column.sort, expected.sort);
  EXPECT_EQ(column.hidden, 0);
  EXPECT_EQ(column.minOSVersion, generation);
  EXPECT_EQ(column.needsNetStat, 0);
  EXPECT_EQ(column.rootOnly, isForRoot ? 1 : 0);
}

TEST(ColumnTable, HasTheColumnsOfTheList) {
  ASSERT_EQ(std::size(kBehaviours), std::size(kListColumns));
  for (int i = 0; i < kColumnCount; i++) {
    const test::ListColumn &row = kListColumns[i];
    expectColumn(kBehaviours[i], row.header, row.width, row.firstGeneration, row.isForRoot);
  }
}

TEST(ColumnTable, HasTheCodeSigningColumn) {
  expectColumn({&col_codesign, print_cs, sort_cs}, "CS", 3, 0, false);
}

class PerspectiveTest : public testing::Test {
 protected:
  static std::vector<std::string> headers(const Perspective *perspective) {
    std::vector<std::string> all;
    for (int32_t i = 0; i < perspective->numColumns; i++)
      all.emplace_back(load(perspective->columns[i])->header);
    return all;
  }

  static ColumnDescriptor &at(Perspective *perspective, int32_t index) {
    return *load(perspective->columns[index]);
  }

  static void hideColumn(Perspective *perspective, int32_t index) {
    store(at(perspective, index).hidden, 1);
  }

  static void append(Perspective *to, const Perspective *from) {
    for (int32_t i = 0; i < from->numColumns; i++) appendColumn(to, load(from->columns[i]));
  }

  DisplayStateGuard guard;
};

TEST_F(PerspectiveTest, DefaultHasTheColumnsOfTheListInOrder) {
  const Perspective *perspective = getDefaultPerspective();
  ASSERT_EQ(perspective->numColumns, kColumnCount);
  for (int i = 0; i < kColumnCount; i++)
    EXPECT_EQ(
        std::memcmp(load(perspective->columns[i]), kBehaviours[i].column, sizeof(ColumnDescriptor)),
        0)
        << i;
  for (int i = kColumnCount; i < kPerspectiveColumns; i++)
    EXPECT_EQ(load(perspective->columns[i]), nullptr) << i;
  EXPECT_EQ(kPerspectiveColumns, 32);
}

TEST_F(PerspectiveTest, DefaultHasItsNameSectionsAndSelection) {
  const Perspective *perspective = getDefaultPerspective();
  EXPECT_STREQ(perspective->name, "Default");
  EXPECT_EQ(sizeof perspective->name, 64u);
  EXPECT_EQ(perspective->ShowWiFi, 1);
  EXPECT_EQ(perspective->ShowDisks, 1);
  EXPECT_EQ(perspective->ShowNetworks, 0);
  EXPECT_EQ(perspective->ShowPower, 0);
  EXPECT_EQ(perspective->selectedColumn, placeOf(Column::processor));
  EXPECT_EQ(sortOf(perspective), sort_cpu_usage);
}

TEST_F(PerspectiveTest, DefaultLeavesTheCodeSigningColumnOut) {
  EXPECT_FALSE(hasColumn(getDefaultPerspective(), &col_codesign));
  EXPECT_TRUE(hasColumn(getDefaultPerspective(), &col_net_tx));
  hideColumn(getDefaultPerspective(), placeOf(Column::sent));
  EXPECT_TRUE(hasColumn(getDefaultPerspective(), &col_net_tx));
}

TEST_F(PerspectiveTest, IsBuiltOnce) {
  Perspective *perspective = getDefaultPerspective();
  perspective->selectedColumn = 3;
  EXPECT_EQ(getDefaultPerspective(), perspective);
  EXPECT_EQ(getCurrentPerspective(), perspective);
  EXPECT_EQ(getCurrentPerspective()->selectedColumn, 3);
}

TEST_F(PerspectiveTest, CanBeReplaced) {
  Perspective own = {};
  setDefaultPerspective(&own);
  EXPECT_EQ(getDefaultPerspective(), &own);
  EXPECT_EQ(getCurrentPerspective(), &own);
  EXPECT_EQ(own.numColumns, 0) << "a given one is taken as it is";
}

TEST_F(PerspectiveTest, ReplacedByNoneIsBuiltAnew) {
  hideColumn(getDefaultPerspective(), 0);
  getDefaultPerspective()->selectedColumn = 2;
  setDefaultPerspective(nullptr);
  EXPECT_EQ(at(getDefaultPerspective(), 0).hidden, 0);
  EXPECT_EQ(getDefaultPerspective()->selectedColumn, kSelectedColumn);
  EXPECT_EQ(getDefaultPerspective()->numColumns, kColumnCount);
}

TEST_F(PerspectiveTest, MovedColumnChangesPlacesWithItsNeighbour) {
  Perspective *perspective = getCurrentPerspective();
  hideColumn(perspective, 2);
  EXPECT_EQ(moveCol(1, 1), 0);
  EXPECT_STREQ(at(perspective, 1).header, kListColumns[2].header);
  EXPECT_EQ(at(perspective, 1).hidden, 1);
  EXPECT_STREQ(at(perspective, 2).header, kListColumns[1].header);
  EXPECT_EQ(at(perspective, 2).hidden, 0);
  EXPECT_EQ(perspective->selectedColumn, kSelectedColumn) << "following is the caller's";
  EXPECT_EQ(moveCol(kLastColumn, -1), 0);
  EXPECT_STREQ(at(perspective, kLastColumn - 1).header, kListColumns[kLastColumn].header);
  EXPECT_STREQ(at(perspective, kLastColumn).header, kListColumns[kLastColumn - 1].header);
  EXPECT_EQ(load(perspective->columns[kColumnCount]), nullptr);
}

TEST_F(PerspectiveTest, ColumnMovedThereAndBackIsWhereItWas) {
  Perspective *perspective = getCurrentPerspective();
  const std::vector<std::string> before = headers(perspective);
  moveCol(5, 1);
  EXPECT_NE(headers(perspective), before);
  moveCol(6, -1);
  EXPECT_EQ(headers(perspective), before);
}

TEST_F(PerspectiveTest, SortsByItsSelectedColumn) {
  Perspective own = {};
  EXPECT_EQ(sortOf(&own), nullptr);
  appendColumn(&own, &col_pid);
  appendColumn(&own, &col_command);
  EXPECT_EQ(sortOf(&own), sort_pid);
  own.selectedColumn = 1;
  EXPECT_EQ(sortOf(&own), sort_name);
  for (const int32_t beyond : {-1, 2, 31, 32, INT32_MAX, INT32_MIN}) {
    own.selectedColumn = beyond;
    EXPECT_EQ(sortOf(&own), beyond < 0 ? sort_pid : sort_name) << beyond;
  }
}

TEST_F(PerspectiveTest, WalkEndsAfterTheLastColumn) {
  Perspective full = {};
  EXPECT_EQ(columnAt(&full, 0), nullptr);
  while (appendColumn(&full, &col_pid) != nullptr) continue;
  EXPECT_EQ(columnAt(&full, kPerspectiveColumns - 2), load(full.columns[kPerspectiveColumns - 2]));
  EXPECT_EQ(columnAt(&full, kPerspectiveColumns - 1), nullptr);
  EXPECT_EQ(columnAt(&full, kPerspectiveColumns), nullptr);
  load(full.columns[3])->print = nullptr;
  EXPECT_EQ(columnAt(&full, 3), nullptr);
}

// What is drawn by one thread while keys move columns on another: each column whole.
TEST_F(PerspectiveTest, MovingColumnsIsSeenWhole) {
  Perspective *perspective = getCurrentPerspective();
  std::atomic<bool> done{false};
  int broken = 0;
  std::thread drawing([&] {
    while (!done.load()) {
      for (int32_t i = 0; i < kColumnCount; i++) {
        const ColumnDescriptor *column = columnAt(perspective, i);
        const auto row = std::find_if(
            std::begin(kListColumns), std::end(kListColumns),
            [&](auto &known) { return std::strcmp(known.header, column->header) == 0; });
        const auto place = row - std::begin(kListColumns);
        if (row == std::end(kListColumns) || kBehaviours[place].print != column->print ||
            kBehaviours[place].sort != column->sort) {
          broken++;
        }
      }
      isColumnVisible(columnAt(perspective, 4));
      if (sortOf(perspective) == nullptr) broken++;
    }
  });
  for (int round = 0; round < 2000; round++) {
    moveCol(round % kLastColumn, 1);
    store(perspective->selectedColumn, round % kColumnCount);
    if (round == 1000) hideSelectedCol(perspective);
  }
  done.store(true);
  drawing.join();
  EXPECT_EQ(broken, 0);
}

class HideSelected : public PerspectiveTest {
 protected:
  Perspective *perspective = getCurrentPerspective();

  // Hides the column at `index` and answers which one is selected then.
  int32_t hide(int32_t index) {
    perspective->selectedColumn = index;
    hideSelectedCol(perspective);
    EXPECT_EQ(at(perspective, index).hidden, 1);
    return perspective->selectedColumn;
  }
};

TEST_F(HideSelected, FirstGoesToTheSecond) {
  EXPECT_EQ(hide(0), 1);
}

TEST_F(HideSelected, FirstPassesOverHiddenOnes) {
  hideColumn(perspective, 1);
  hideColumn(perspective, 2);
  EXPECT_EQ(hide(0), 3);
}

TEST_F(HideSelected, LastGoesToTheLeft) {
  EXPECT_EQ(hide(kLastColumn), kLastColumn - 1);
}

TEST_F(HideSelected, LastPassesOverHiddenOnes) {
  for (int32_t i = 15; i < kLastColumn; i++) hideColumn(perspective, i);
  EXPECT_EQ(hide(kLastColumn), 14);
}

TEST_F(HideSelected, MiddleGoesToTheLeftFirst) {
  EXPECT_EQ(hide(8), 7);
  EXPECT_EQ(hide(7), 6);
}

TEST_F(HideSelected, GoesRightOnlyWhenAllToTheLeftIsHidden) {
  for (int32_t i = 0; i < 8; i++) hideColumn(perspective, i);
  hideColumn(perspective, 9);
  EXPECT_EQ(hide(8), 10);
  store(at(perspective, 0).hidden, 0);
  EXPECT_EQ(hide(10), 0);
}

TEST_F(HideSelected, OnlyOneLeftStaysWithinTheColumns) {
  for (int32_t i = 0; i < kColumnCount; i++) store(at(perspective, i).hidden, i != 12);
  const int32_t selected = hide(12);
  EXPECT_GE(selected, 0);
  EXPECT_LT(selected, kColumnCount);
  EXPECT_NE(at(perspective, selected).sort, nullptr);
}

TEST_F(HideSelected, OneAfterTheOtherStaysWithinTheColumns) {
  for (int round = 0; round < kColumnCount + 4; round++) {
    hideSelectedCol(perspective);
    ASSERT_GE(perspective->selectedColumn, 0);
    ASSERT_LT(perspective->selectedColumn, kColumnCount);
    EXPECT_EQ(sortOf(perspective), at(perspective, perspective->selectedColumn).sort);
  }
  for (int32_t i = 0; i < kColumnCount; i++) EXPECT_EQ(at(perspective, i).hidden, 1) << i;
  EXPECT_EQ(load(perspective->columns[kColumnCount]), nullptr) << "the end mark is no column";
  EXPECT_EQ(perspective->numColumns, kColumnCount) << "hidden columns stay";
}

TEST_F(HideSelected, OfAFullPerspectiveStaysWithinTheArray) {
  Perspective full = {};
  append(&full, perspective);
  while (appendColumn(&full, &col_codesign) != nullptr) continue;
  EXPECT_EQ(full.numColumns, kPerspectiveColumns - 1);
  for (int round = 0; round < 40; round++) {
    hideSelectedCol(&full);
    ASSERT_LT(full.selectedColumn, kPerspectiveColumns);
  }
}

TEST_F(HideSelected, IsOfTheGivenPerspective) {
  Perspective own = {};
  append(&own, perspective);
  own.selectedColumn = 4;
  hideSelectedCol(&own);
  EXPECT_EQ(at(&own, 4).hidden, 1);
  EXPECT_EQ(at(perspective, 4).hidden, 0);
  EXPECT_EQ(perspective->selectedColumn, kSelectedColumn);
}

class Visibility : public PerspectiveTest {
 protected:
  static std::vector<std::string> missing() {
    std::vector<std::string> headers;
    const Perspective *perspective = getCurrentPerspective();
    for (int32_t i = 0; i < perspective->numColumns; i++)
      if (!isColumnVisible(load(perspective->columns[i])))
        headers.emplace_back(load(perspective->columns[i])->header);
    return headers;
  }
};

using Headers = std::vector<std::string>;

TEST_F(Visibility, OfRootFollowsTheKernelGeneration) {
  g_r00t = 1;
  const struct {
    int32_t generation;
    Headers missing;
  } kRows[] = {{0, {" READ ", "WRITE ", "COAL"}},
               {8, {" READ ", "WRITE ", "COAL"}},
               {9, {"COAL"}},
               {10, {}},
               {11, {}},
               {15, {}}};
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.generation);
    g_OsVer = row.generation;
    EXPECT_EQ(missing(), row.missing);
  }
}

TEST_F(Visibility, OfOthersLeavesTheMemoryStatusOut) {
  g_OsVer = 10;
  EXPECT_EQ(missing(), (Headers{"MS ", "MEML"}));
  g_OsVer = 9;
  EXPECT_EQ(missing(), (Headers{"COAL", "MS ", "MEML"}));
}

TEST_F(Visibility, OfHiddenColumnsIsNone) {
  g_r00t = 1;
  g_OsVer = 15;
  hideColumn(getCurrentPerspective(), placeOf(Column::command));
  EXPECT_EQ(missing(), (Headers{"COMMAND        "}));
}

TEST_F(Visibility, DoesNotDependOnNetworkStatistics) {
  Perspective own = {};
  ColumnDescriptor *column = appendColumn(&own, &col_pid);
  column->needsNetStat = 1;
  EXPECT_TRUE(isColumnVisible(column));
}

}  // namespace
