#include "main/refresh_loop.h"

#include <cstring>
#include <string>
#include <vector>

#include "columns/column_table.h"
#include "columns/perspective.h"
#include "proc/sampler.h"
#include "state/display.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::errorOutputOf;
using sampled::SampledTest;

class PlainList : public SampledTest {
 protected:
  std::string run() {
    testing::internal::CaptureStdout();
    errorOutputOf([this] { result = runDisplay(); });
    return testing::internal::GetCapturedStdout();
  }

  ProcessRecord *recordOf(int32_t pid) { return findProcessInformationByPid(currentTable(), pid); }

  int result = -1;
};

TEST_F(PlainList, IsDrawnOnce) {
  machine.add(5, "only");
  const std::string list = run();
  EXPECT_EQ(result, 0);
  const size_t row = list.find("|only           |");
  ASSERT_NE(row, std::string::npos) << list;
  EXPECT_EQ(list.find("|only ", row + 1), std::string::npos);
}

TEST_F(PlainList, SampleOfStartUpIsGivenBack) {
  std::vector<ProcessRecord *> all;
  while (hasRoomForTable()) all.push_back(allocateProcessTable(1));
  const size_t room = all.size();
  for (ProcessRecord *table : all) releaseProcessTable(table);

  machine.add(5, "only");
  errorOutputOf([] { setCurrentTable(getPIDList()); });
  run();
  EXPECT_EQ(load(g_process_information), load(g_previous_process_information));
  EXPECT_EQ(load(previous_num_procs), load(num_procs));
  std::vector<ProcessRecord *> others;
  while (hasRoomForTable()) others.push_back(allocateProcessTable(1));
  for (ProcessRecord *table : others) releaseProcessTable(table);
  EXPECT_EQ(others.size(), room - 1) << "only the current table is out";
}

TEST_F(PlainList, IsSampledAgainOnceReadersHaveLeft) {
  machine.add(5, "sampled");
  enterProcessTables();
  while (hasRoomForTable()) retireProcessTable(allocateProcessTable(1));
  EXPECT_EQ(run().find("|sampled "), std::string::npos);
  leaveProcessTables();
  EXPECT_NE(run().find("|sampled "), std::string::npos);
}

TEST_F(PlainList, FrozenOneTakesNoSample) {
  machine.add(5, "before");
  errorOutputOf([] { setCurrentTable(getPIDList()); });
  machine.add(6, "after");
  store(g_updates, 0);
  const std::string list = run();
  EXPECT_NE(list.find("|before "), std::string::npos);
  EXPECT_EQ(list.find("|after "), std::string::npos);
  EXPECT_EQ(load(g_previous_process_information), nullptr);
}

TEST_F(PlainList, VerdictsAreAskedForOnlyWhileTheirColumnIsThere) {
  machine.add(5, "signed").signing = 1;
  machine.add(6, "plain");
  run();
  EXPECT_EQ(machine.timesAsked("codeSigningFlags"), 0u);
  EXPECT_STREQ(recordOf(5)->csStatus, "");

  Perspective perspective = {};
  appendColumn(&perspective, &col_codesign);
  appendColumn(&perspective, &col_pid);
  setDefaultPerspective(&perspective);
  const std::string list = run();
  EXPECT_STREQ(recordOf(5)->csStatus, "OK");
  EXPECT_STREQ(recordOf(6)->csStatus, "NO");
  EXPECT_NE(list.find("\nOK|5    \n"), std::string::npos) << list;
  EXPECT_NE(list.find("\nNO|6    \n"), std::string::npos) << list;
  setDefaultPerspective(nullptr);
}

struct WaitCase {
  int32_t delay;
  int32_t milliseconds;
};

TEST(RefreshWait, IsAThousandMillisecondsTimesTheDelay) {
  const DisplayStateGuard guard;
  EXPECT_EQ(refreshWait(), 10'000);
  const WaitCase cases[] = {
      {0, 0},
      {1, 1'000},
      {5, 5'000},
      {600, 600'000},
      {2'147'483, 2'147'483'000},
      // Beyond what the wait can be told.
      {2'147'484, 2'147'483'000},
      {INT32_MAX, 2'147'483'000},
      // Without end, as the system takes a time below 0.
      {-1, -1},
      {-5, -1},
      {INT32_MIN, -1},
  };
  for (const WaitCase &row : cases) {
    store(g_Delay, row.delay);
    EXPECT_EQ(refreshWait(), row.milliseconds) << row.delay;
  }
}

}  // namespace
