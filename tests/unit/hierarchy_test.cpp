#include "inspect/hierarchy.h"

// Curses first, with wide characters.
#include "tests/unit/curses_screen.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "proc/process_table.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::outputOf;

struct FamilyMember {
  int32_t pid;
  int32_t parent;
  const char *name = "p";
};

class Hierarchy : public testing::Test {
 protected:
  ~Hierarchy() override { releaseProcessTable(table_); }

  void setTable(const std::vector<FamilyMember> &processes) {
    releaseProcessTable(table_);
    table_ = allocateProcessTable(processes.size() + 1);
    count_ = static_cast<int32_t>(processes.size());
    for (size_t i = 0; i < processes.size(); i++) table_[i] = recordOf(processes[i]);
  }

  void setChain(int32_t count) {
    releaseProcessTable(table_);
    table_ = allocateProcessTable(static_cast<size_t>(count));
    count_ = count;
    for (int32_t i = 0; i < count; i++) setPIDs(&table_[i], i + 1, i);
  }

  std::string plain(const ProcessRecord &root) const {
    return outputOf([&] { show(root); });
  }
  std::string plain(size_t place) const { return plain(table_[place]); }

  void show(const ProcessRecord &root) const {
    showProcessHierarchy(&root, {table_, count_}, 0, 0);
  }

  static ProcessRecord recordOf(const FamilyMember &process) {
    ProcessRecord record = {};
    setPIDs(&record, process.pid, process.parent);
    std::strncpy(record.taskAllInfo.pbsd.pbi_comm, process.name,
                 sizeof record.taskAllInfo.pbsd.pbi_comm);
    return record;
  }

  static void setPIDs(ProcessRecord *record, int32_t pid, int32_t parent) {
    record->taskAllInfo.pbsd.pbi_pid = static_cast<uint32_t>(pid);
    record->taskAllInfo.pbsd.pbi_ppid = static_cast<uint32_t>(parent);
  }

  DisplayStateGuard state_;
  ProcessRecord *table_ = nullptr;
  int32_t count_ = 0;
};

TEST_F(Hierarchy, OfALeafIsOneLine) {
  setTable({{1, 0, "launchd"}, {52, 1, "leaf"}});
  EXPECT_EQ(plain(1), " 52    leaf  has no children\n");
}

TEST_F(Hierarchy, WithoutATableIsNothing) {
  const ProcessRecord root = recordOf({52, 1, "leaf"});
  EXPECT_EQ(outputOf([&] { showProcessHierarchy(&root, {nullptr, 5}, 0, 0); }), "");
}

TEST_F(Hierarchy, OfAnEmptyTableHasNoChildren) {
  setTable({});
  EXPECT_EQ(plain(recordOf({52, 1, "leaf"})), " 52    leaf  has no children\n");
  count_ = -1;
  EXPECT_EQ(plain(recordOf({52, 1, "leaf"})), " 52    leaf  has no children\n");
}

TEST_F(Hierarchy, OfOneChildBreaksTheLineBeforeIt) {
  setTable({{1, 0, "launchd"}, {52, 1, "child"}});
  EXPECT_EQ(plain(0),
            " 1     launchd \n"
            " +- 52    child\n");
}

TEST_F(Hierarchy, HasSiblingsInTheOrderOfTheTable) {
  setTable({{30, 1, "third"}, {1, 0, "launchd"}, {10, 1, "first"}, {20, 1, "second"}});
  EXPECT_EQ(plain(1),
            " 1     launchd \n"
            " +- 30    third\n"
            "+- 10    first\n"
            "+- 20    second\n");
}

// The families of a device, the parents before their children and after them.
const std::vector<FamilyMember> kFamilies = {
    {1, 0, "launchd"}, {100001, 10, "wide"}, {10, 1, "sshd"},    {11, 10, "sh"},    {12, 11, "vi"},
    {13, 11, "make"},  {20, 1, "daemon"},    {21, 20, "worker"}, {22, 21, "helper"}};

TEST_F(Hierarchy, DrawsALineForEveryLevelInPlainText) {
  setTable(kFamilies);
  EXPECT_EQ(plain(0),
            " 1     launchd \n"
            " +- 10    sshd\n"
            "|   +- 100001 wide\n"
            "|   +- 11    sh\n"
            "|   |   +- 12    vi\n"
            "|   |   +- 13    make\n"
            "+- 20    daemon\n"
            "|   +- 21    worker\n"
            "|   |   +- 22    helper\n");
}

TEST_F(Hierarchy, OfAProcessInTheMiddleHasItsDescendantsOnly) {
  setTable(kFamilies);
  EXPECT_EQ(plain(3),
            " 11    sh \n"
            " +- 12    vi\n"
            "+- 13    make\n");
}

TEST_F(Hierarchy, NeedsNoRecordOfTheRootInTheTable) {
  setTable({{12, 11, "vi"}, {13, 12, "sort"}});
  EXPECT_EQ(plain(recordOf({11, 10, "sh"})),
            " 11    sh \n"
            " +- 12    vi\n"
            "|   +- 13    sort\n");
}

TEST_F(Hierarchy, BelowTheTopHasNoLineOfItsRoot) {
  setTable(kFamilies);
  EXPECT_EQ(outputOf([&] {
              showProcessHierarchy(&table_[3], {table_, count_}, 2, 0);
            }),
            "|   |   +- 12    vi\n"
            "|   |   +- 13    make\n");
  EXPECT_EQ(outputOf([&] { showProcessHierarchy(&table_[4], {table_, count_}, 2, 0); }), "");
}

TEST_F(Hierarchy, MakesNamesSafe) {
  setTable({{1, 0, "root\n"}, {2, 1, "\x1b[2J"}, {3, 1, "sixteen bytes...without end"}});
  EXPECT_EQ(plain(0),
            " 1     root? \n"
            " +- 2     ?[2J\n"
            "+- 3     sixteen bytes...\n");
}

TEST_F(Hierarchy, EndsForAProcessThatIsItsOwnParent) {
  setTable({{0, 0, "kernel_task"}, {1, 0, "launchd"}});
  EXPECT_EQ(plain(0),
            " 0     kernel_task \n"
            " +- 1     launchd\n");
}

TEST_F(Hierarchy, EndsWhereParentsGoRoundInACircle) {
  setTable({{10, 12, "a"}, {11, 10, "b"}, {12, 11, "c"}});
  EXPECT_EQ(plain(0),
            " 10    a \n"
            " +- 11    b\n"
            "|   +- 12    c\n");
  // The circle may lie below the root as well.
  EXPECT_EQ(plain(recordOf({12, 1, "copy"})),
            " 12    copy \n"
            " +- 10    a\n"
            "|   +- 11    b\n");
}

TEST_F(Hierarchy, HasEachRecordOfAPidOnce) {
  setTable({{1, 0, "launchd"}, {7, 1, "one"}, {7, 1, "other"}, {8, 7, "child"}, {1, 7, "again"}});
  EXPECT_EQ(plain(0),
            " 1     launchd \n"
            " +- 7     one\n"
            "|   +- 8     child\n"
            "|   +- 1     again\n"
            "+- 7     other\n");
}

TEST_F(Hierarchy, TakesAnyPid) {
  constexpr int32_t kLargest = std::numeric_limits<int32_t>::max();
  setTable({{-1, kLargest, "none"}, {kLargest, -1, "large"}});
  EXPECT_EQ(plain(0),
            " -1    none \n"
            " +- 2147483647 large\n");
}

// Discards what is shown: there is no screen.
class LargeHierarchy : public Hierarchy {
 protected:
  LargeHierarchy() { store(wantCurses, 1); }

  static void *showFirst(void *self) {
    const auto *test = static_cast<LargeHierarchy *>(self);
    test->show(test->table_[0]);
    return nullptr;
  }
};

// Deeper than a call for each level would bear on the stack of the device's other threads.
TEST_F(LargeHierarchy, NeedsNoStackForItsDepth) {
  setChain(6000);
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, size_t{256} * 1024), 0);
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attributes, showFirst, this), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
}

class HierarchyScreen : public Hierarchy {
 protected:
  static std::string row(int number) {
    std::string text;
    for (int column = 0; column < CursesScreen::columns(); column++) text += cell(number, column);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
  }

  // Line-drawing characters stand there as letters of another character set.
  static std::string cell(int row, int column) {
    const CursesScreen::Cell cell = CursesScreen::cell(row, column);
    if ((cell.attributes & A_ALTCHARSET) == 0) return cell.text;
    if (cell.text == "x") return "│";
    if (cell.text == "t") return "├";
    return cell.text == "m" ? "└" : "?";
  }

  CursesScreen screen_{24, 80};
};

TEST_F(HierarchyScreen, HasLineDrawingCharacters) {
  setTable(kFamilies);
  show(table_[0]);
  const std::vector<std::string> rows = {
      " 1     launchd",
      " ├ 10    sshd",
      "│   ├ 100001 wide",
      "│   └ 11    sh",
      "│       ├ 12    vi",
      "│       └ 13    make",
      "└ 20    daemon",
      "    └ 21    worker",
      // Kept: the line of an ancestor goes on even below its last child.
      "│       └ 22    helper",
  };
  for (size_t i = 0; i < rows.size(); i++) {
    EXPECT_EQ(row(static_cast<int>(i)), rows[i]) << "row " << i;
  }
  EXPECT_EQ(row(static_cast<int>(rows.size())), "");
}

TEST_F(HierarchyScreen, OfALastChildHasNoLineAtItsInnermostLevel) {
  setTable(kFamilies);
  showProcessHierarchy(&table_[3], {table_, count_}, 2, 1);
  EXPECT_EQ(row(0), "│       ├ 12    vi");
  EXPECT_EQ(row(1), "│       └ 13    make");
  CursesScreen::empty();
  showProcessHierarchy(&table_[3], {table_, count_}, 2, 0);
  EXPECT_EQ(row(0), "│   │   ├ 12    vi");
}

}  // namespace
