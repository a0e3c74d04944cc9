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
#include "tests/unit/display_state.h"

namespace {

using namespace sondex;

struct ColumnRow {
  const ColumnDescriptor *column;
  const char *header;
  int32_t width;
  Renderer print;
  Comparator sort;
  int32_t minOSVersion;
  int32_t rootOnly;
};

const ColumnRow kColumns[] = {
    {&col_pid, "PID  ", 6, print_pid, sort_pid, 0, 0},
    {&col_ppid, "PPID  ", 6, print_ppid, sort_ppid, 0, 0},
    {&col_uid, " UID ", 6, print_uid, sort_uid, 0, 0},
    {&col_coalition, "COAL", 5, print_coalition, sort_coalition, 10, 0},
    {&col_command, "COMMAND        ", 16, print_name, sort_name, 0, 0},
    {&col_priority, "PRI  ", 5, print_priority, sort_priority, 0, 0},
    {&col_threads, "#THR", 5, print_numthreads, sort_numthreads, 0, 0},
    {&col_vsize, " VSS ", 6, print_vsize, sort_vsize, 0, 0},
    {&col_rsize, " RSS ", 6, print_rsize, sort_rsize, 0, 0},
    {&col_status, " S ", 4, print_status, sort_status, 0, 0},
    {&col_memstatus, "MS ", 4, print_memstatus, sort_memstatus, 0, 1},
    {&col_memlimit, "MEML", 5, print_memlimit, sort_memlimit, 0, 1},
    {&col_sandbox, "SB", 3, print_sandbox, sort_sandbox, 0, 0},
    {&col_codesign, "CS", 3, print_cs, sort_cs, 0, 0},
    {&col_stime, "   STIME   ", 12, print_stime, sort_stime, 0, 0},
    {&col_time, "   TIME ", 11, print_time, sort_time, 0, 0},
    {&col_cpu, " CPU  ", 6, print_cpu_usage, sort_cpu_usage, 0, 0},
    {&col_nfds, " FDs ", 5, print_numfds, sort_numfds, 0, 0},
    {&col_dsk_r, " READ ", 7, print_io_rusage_read, sort_io_rusage_read, 9, 0},
    {&col_dsk_w, "WRITE ", 7, print_io_rusage_written, sort_io_rusage_written, 9, 0},
    {&col_net_rx, "Net RX", 7, print_netrx, sort_netrx, 0, 0},
    {&col_net_tx, "Net TX", 7, print_nettx, sort_nettx, 0, 0},
};

TEST(ColumnTable, HasItsTwentyTwoColumns) {
  ASSERT_EQ(std::size(kColumns), 22u);
  for (const ColumnRow &row : kColumns) {
    SCOPED_TRACE(row.header);
    char header[16] = {};
    std::memcpy(header, row.header, std::strlen(row.header));
    EXPECT_EQ(std::memcmp(row.column->header, header, sizeof header), 0);
    EXPECT_EQ(row.column->width, row.width);
    EXPECT_EQ(row.column->print, row.print);
    EXPECT_EQ(row.column->sort, row.sort);
    EXPECT_EQ(row.column->hidden, 0);
    EXPECT_EQ(row.column->minOSVersion, row.minOSVersion);
    EXPECT_EQ(row.column->needsNetStat, 0);
    EXPECT_EQ(row.column->rootOnly, row.rootOnly);
  }
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

TEST_F(PerspectiveTest, DefaultHasTwentyOneColumnsInOrder) {
  const ColumnDescriptor *const kOrder[] = {
      &col_uid,    &col_pid,       &col_ppid,     &col_command, &col_threads, &col_priority,
      &col_rsize,  &col_vsize,     &col_cpu,      &col_dsk_r,   &col_dsk_w,   &col_coalition,
      &col_status, &col_memstatus, &col_memlimit, &col_sandbox, &col_time,    &col_stime,
      &col_nfds,   &col_net_rx,    &col_net_tx};
  const Perspective *perspective = getDefaultPerspective();
  ASSERT_EQ(std::size(kOrder), 21u);
  ASSERT_EQ(perspective->numColumns, 21);
  for (size_t i = 0; i < 21; i++)
    EXPECT_EQ(std::memcmp(load(perspective->columns[i]), kOrder[i], sizeof(ColumnDescriptor)), 0)
        << i;
  for (int i = 21; i < kPerspectiveColumns; i++)
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
  EXPECT_EQ(perspective->selectedColumn, 8);
  EXPECT_EQ(sortOf(perspective), sort_cpu_usage);
}

TEST_F(PerspectiveTest, DefaultLeavesTheCodeSigningColumnOut) {
  EXPECT_FALSE(hasColumn(getDefaultPerspective(), &col_codesign));
  EXPECT_TRUE(hasColumn(getDefaultPerspective(), &col_net_tx));
  hideColumn(getDefaultPerspective(), 20);
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
  EXPECT_EQ(getDefaultPerspective()->selectedColumn, 8);
  EXPECT_EQ(getDefaultPerspective()->numColumns, 21);
}

TEST_F(PerspectiveTest, MovedColumnChangesPlacesWithItsNeighbour) {
  Perspective *perspective = getCurrentPerspective();
  hideColumn(perspective, 2);
  EXPECT_EQ(moveCol(1, 1), 0);
  EXPECT_STREQ(at(perspective, 1).header, "PPID  ");
  EXPECT_EQ(at(perspective, 1).hidden, 1);
  EXPECT_STREQ(at(perspective, 2).header, "PID  ");
  EXPECT_EQ(at(perspective, 2).hidden, 0);
  EXPECT_EQ(perspective->selectedColumn, 8) << "following is the caller's";
  EXPECT_EQ(moveCol(20, -1), 0);
  EXPECT_STREQ(at(perspective, 19).header, "Net TX");
  EXPECT_STREQ(at(perspective, 20).header, "Net RX");
  EXPECT_EQ(load(perspective->columns[21]), nullptr);
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
      for (int32_t i = 0; i < 21; i++) {
        const ColumnDescriptor *column = columnAt(perspective, i);
        const auto row = std::find_if(std::begin(kColumns), std::end(kColumns), [&](auto &known) {
          return std::strcmp(known.header, column->header) == 0;
        });
        if (row == std::end(kColumns) || row->print != column->print || row->sort != column->sort) {
          broken++;
        }
      }
      isColumnVisible(columnAt(perspective, 4));
      if (sortOf(perspective) == nullptr) broken++;
    }
  });
  for (int round = 0; round < 2000; round++) {
    moveCol(round % 20, 1);
    store(perspective->selectedColumn, round % 21);
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
  EXPECT_EQ(hide(20), 19);
}

TEST_F(HideSelected, LastPassesOverHiddenOnes) {
  for (int32_t i = 15; i < 20; i++) hideColumn(perspective, i);
  EXPECT_EQ(hide(20), 14);
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
  for (int32_t i = 0; i < 21; i++) store(at(perspective, i).hidden, i != 12);
  const int32_t selected = hide(12);
  EXPECT_GE(selected, 0);
  EXPECT_LT(selected, 21);
  EXPECT_NE(at(perspective, selected).sort, nullptr);
}

TEST_F(HideSelected, OneAfterTheOtherStaysWithinTheColumns) {
  for (int round = 0; round < 25; round++) {
    hideSelectedCol(perspective);
    ASSERT_GE(perspective->selectedColumn, 0);
    ASSERT_LT(perspective->selectedColumn, 21);
    EXPECT_EQ(sortOf(perspective), at(perspective, perspective->selectedColumn).sort);
  }
  for (int32_t i = 0; i < 21; i++) EXPECT_EQ(at(perspective, i).hidden, 1) << i;
  EXPECT_EQ(load(perspective->columns[21]), nullptr) << "the end mark is no column";
  EXPECT_EQ(perspective->numColumns, 21) << "hidden columns stay";
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
  EXPECT_EQ(perspective->selectedColumn, 8);
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
  hideColumn(getCurrentPerspective(), 3);
  EXPECT_EQ(missing(), (Headers{"COMMAND        "}));
}

TEST_F(Visibility, DoesNotDependOnNetworkStatistics) {
  Perspective own = {};
  ColumnDescriptor *column = appendColumn(&own, &col_pid);
  column->needsNetStat = 1;
  EXPECT_TRUE(isColumnVisible(column));
}

}  // namespace
