// The process list of a simulated device over several samples: what delta mode makes of its
// changes, and the mark of memory pressure. The figures are those of devices/kinds.toml.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "columns/comparators.h"
#include "columns/sort.h"
#include "darwin/libproc.h"
#include "darwin/mach_host.h"
#include "host/entry/kernel.h"
#include "host/simulator/device_file.h"
#include "host/simulator/simulated_machine.h"
#include "screens/process_list.h"
#include "tests/harness/list_columns.h"
#include "tests/unit/curses_screen.h"
#include "tests/unit/display_state.h"

namespace {

using namespace sondex;
using host::simulator::Device;
using host::simulator::Mistake;
using host::simulator::SimulatedMachine;
using test::Column;

class SimulatedList : public testing::Test {
 protected:
  SimulatedList() {
    auto read = host::simulator::readDeviceFile(SONDEX_DEVICES_DIR "/kinds.toml");
    if (const auto *mistake = std::get_if<Mistake>(&read)) ADD_FAILURE() << mistake->text();
    machine_.emplace(std::get<Device>(std::move(read)));
    before_ = host::useMachine(&*machine_);
    host_self = darwin::mach_host_self();
    g_r00t = 1;
    g_OsVer = 14;
    proc_pid_rusage_funcptr = darwin::proc_pid_rusage;
    memorystatus_get_level_funcptr = memorystatus_get_level;
  }
  ~SimulatedList() override { host::useMachine(before_); }

  // The next sample; the one before becomes the previous one.
  void sample() {
    g_Prev_Total_Rusage = g_Total_Rusage;
    g_Total_Rusage = {};
    releaseProcessTable(load(g_previous_process_information));
    setPreviousTable(currentTable());
    testing::internal::CaptureStderr();
    setCurrentTable(getPIDList());
    testing::internal::GetCapturedStderr();
    doSort(sort_pid);
  }

  // The frame as plain text.
  std::string frame() {
    testing::internal::CaptureStdout();
    showProcesses(currentTable(), previousTable(), nullptr);
    return testing::internal::GetCapturedStdout();
  }

  // What stands between the separators of a process's row; nothing when there is no such row.
  static std::vector<std::string> cellsOf(const std::string &frame, const std::string &name) {
    std::istringstream lines(frame);
    for (std::string line; std::getline(lines, line);) {
      if (line.find("|" + name + " ") == std::string::npos) continue;
      std::vector<std::string> cells;
      std::istringstream row(line);
      for (std::string cell; std::getline(row, cell, '|');) cells.push_back(cell);
      return cells;
    }
    return {};
  }

  std::string cell(const std::string &frame, const std::string &name, Column column) {
    const std::vector<std::string> cells = cellsOf(frame, name);
    const auto place = static_cast<size_t>(test::placeOf(column));
    return cells.size() > place ? cells[place] : "(no cell)";
  }

 private:
  DisplayStateGuard guard_;
  std::optional<SimulatedMachine> machine_;
  host::Machine *before_ = nullptr;
};

TEST_F(SimulatedList, WithoutDeltaModeShowsTotals) {
  sample();
  sample();
  const std::string second = frame();
  EXPECT_EQ(cell(second, "rss-change", Column::resident), "  12M");
  EXPECT_EQ(cell(second, "rss-grows", Column::resident), "1064K");
  EXPECT_EQ(cell(second, "vss-change", Column::virtualSize), "  11G");
  EXPECT_EQ(cell(second, "disk-change", Column::read), "    3M");
  EXPECT_EQ(cell(second, "disk-change", Column::written), "    5M");
}

// A resident size is cut to five characters.
TEST_F(SimulatedList, DeltaModeShowsWhatWasAddedSinceTheSampleBefore) {
  store(g_Delta, 1);
  sample();
  // Without a sample before it: the totals.
  const std::string first = frame();
  EXPECT_EQ(cell(first, "rss-change", Column::resident), "8192K");
  EXPECT_EQ(cell(first, "vss-change", Column::virtualSize), "  10G");
  EXPECT_EQ(cell(first, "disk-change", Column::read), "    1M");

  sample();
  const std::string second = frame();
  EXPECT_EQ(cell(second, "rss-change", Column::resident), "4096K");
  EXPECT_EQ(cell(second, "rss-grows", Column::resident), "  40K");
  EXPECT_EQ(cell(second, "rss-shrinks", Column::resident), " -40K");
  EXPECT_EQ(cell(second, "rss-10G", Column::resident), "   0K");
  EXPECT_EQ(cell(second, "vss-change", Column::virtualSize), "1024M");
  EXPECT_EQ(cell(second, "disk-change", Column::read), "    2M");
  EXPECT_EQ(cell(second, "disk-change", Column::written), "    4M");
  EXPECT_EQ(cell(second, "disk-grows", Column::read), "   10K");
  EXPECT_EQ(cell(second, "disk-grows", Column::written), "   20K");
  EXPECT_EQ(cell(second, "disk-refused", Column::read), "?????");
  // Not a figure that adds up.
  EXPECT_EQ(cell(second, "threads-more", Column::threads), " 5  ");
  // New in this sample: its totals.
  EXPECT_EQ(cell(second, "newcomer", Column::resident), "  20M");
  EXPECT_EQ(cell(second, "newcomer", Column::read), "    1M");

  sample();
  const std::string third = frame();
  EXPECT_EQ(cell(third, "rss-change", Column::resident), "-8192");
  EXPECT_EQ(cell(third, "vss-change", Column::virtualSize), "-2048M");
  EXPECT_EQ(cell(third, "disk-change", Column::read), "    0B");
  EXPECT_EQ(cell(third, "newcomer", Column::resident), "   0K");
}

TEST_F(SimulatedList, DeltaModeShowsTheGrowthOfCompression) {
  store(g_Delta, 1);
  sample();
  EXPECT_THAT(frame(), testing::HasSubstr("Comp: 1000M , Decomp:  500M  File:   50M"));
  sample();
  EXPECT_THAT(frame(), testing::HasSubstr("Comp:   10M , Decomp:    5M  File:   50M"));
}

TEST_F(SimulatedList, PressureIsMarkedForAsManyFramesAsSaid) {
  sample();
  store(g_VMPressureDetected, 2);
  EXPECT_THAT(frame(), testing::HasSubstr("\n <PRESSURE> Memstatus: 60 "));
  EXPECT_THAT(frame(), testing::HasSubstr("\n <PRESSURE> Memstatus: 60 "));
  EXPECT_THAT(frame(), testing::HasSubstr("\n            Memstatus: 60 "));
}

TEST_F(SimulatedList, PressureIsMarkedInTheColourOfWarnings) {
  const CursesScreen screen(40, 140);
  sample();
  store(g_VMPressureDetected, 1);
  showProcesses(currentTable(), previousTable(), nullptr);
  EXPECT_EQ(CursesScreen::text(3, 0, 12), " <PRESSURE> ");
  EXPECT_EQ(CursesScreen::cell(3, 1).pair, kPairWarning);
  EXPECT_EQ(CursesScreen::cell(3, 12).pair, 0);
}

}  // namespace
