#include "proc/process_search.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::errorOutputOf;
using sampled::SampledTest;
using sampled::Variable;

class FindProcess : public SampledTest {
 protected:
  FindProcess() : table(allocateProcessTable(4)) { store(g_process_information, table); }

  void put(int32_t pid, const char *name) {
    ProcessRecord *record = &table[load(num_procs)];
    record->taskAllInfo.pbsd.pbi_pid = static_cast<uint32_t>(pid);
    std::memcpy(record->taskAllInfo.pbsd.pbi_comm, name,
                std::min(std::strlen(name), sizeof record->taskAllInfo.pbsd.pbi_comm));
    store(num_procs, load(num_procs) + 1);
  }

  int32_t find(const char *name) {
    int32_t pid = 0;
    errors = errorOutputOf([&] { pid = findProcess(currentTable(), name); });
    return pid;
  }

  ProcessRecord *table;
  std::string errors;
};

TEST_F(FindProcess, WithoutATableFindsNone) {
  EXPECT_EQ(findProcess({nullptr, 3}, "a"), 0);
}

TEST_F(FindProcess, ComparesWholeNamesWithoutRegardToCase) {
  put(7, "launchd");
  put(42, "SpringBoard");
  EXPECT_EQ(find("SpringBoard"), 42);
  EXPECT_EQ(find("springboard"), 42);
  EXPECT_EQ(find("SPRINGBOARD"), 42);
  EXPECT_EQ(find("Spring"), 0);
  EXPECT_EQ(find("SpringBoardX"), 0);
  EXPECT_EQ(find("nosuch"), 0);
  EXPECT_EQ(errors, "");
}

TEST_F(FindProcess, LooksAtFifteenCharacters) {
  put(7, "abcdefghijklmno");
  EXPECT_EQ(find("abcdefghijklmnopqrst"), 7);
  EXPECT_EQ(find("ABCDEFGHIJKLMNO-other"), 7);
  EXPECT_EQ(find("abcdefghijklmn"), 0);
}

TEST_F(FindProcess, NameWithoutAnEndIsReadNoFurther) {
  put(7, "abcdefghijklmnop");
  EXPECT_EQ(find("abcdefghijklmnoZ"), 7);
}

TEST_F(FindProcess, SeveralMatchesAreAnError) {
  put(5, "twin");
  put(6, "other");
  put(7, "TWIN");
  put(8, "twin");
  EXPECT_EQ(find("twin"), -1);
  EXPECT_EQ(errors, "There are multiple matches for 'twin' - 5, 7\n");
}

TEST_F(FindProcess, PidZeroIsAMatchLikeAnyOther) {
  put(0, "twin");
  EXPECT_EQ(find("twin"), 0);
  EXPECT_EQ(errors, "");
  put(7, "twin");
  EXPECT_EQ(find("twin"), -1);
  EXPECT_EQ(errors, "There are multiple matches for 'twin' - 0, 7\n");
}

TEST_F(FindProcess, LooksOnlyAtTheValidRecords) {
  put(5, "a");
  put(6, "b");
  store(num_procs, 1);
  EXPECT_EQ(find("b"), 0);
}

TEST_F(FindProcess, ListsWhatItLooksAtWhenDebugging) {
  Variable debug("ZDEBUG", "1");
  put(5, "a");
  put(6, "b\x1b[2J");
  put(7, "c");
  EXPECT_EQ(find("c"), 7);
  EXPECT_EQ(errors, "5: a\n6: b?[2J\n7: c\n");
}

TEST_F(FindProcess, LongNameIsSaidWhole) {
  put(5, "aaaaaaaaaaaaaaa");
  put(6, "aaaaaaaaaaaaaaa");
  const std::string name(600, 'a');
  EXPECT_EQ(find(name.c_str()), -1);
  EXPECT_EQ(errors, "There are multiple matches for '" + name + "' - 5, 6\n");
}

}  // namespace
