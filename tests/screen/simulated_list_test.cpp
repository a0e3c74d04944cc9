// The process list on the screen on each of the device files, cell for cell as it was kept: with
// and without colours, and in the second frame, where changes show.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "harness/kept.h"
#include "harness/screen_text.h"
#include "harness/stepped_device.h"
#include "harness/terminal.h"

namespace test {
namespace {

constexpr char kColours[] = "xterm-256color";
constexpr char kNoColours[] = "vt100";

struct View {
  std::string device;
  std::string terminal;
  int columns;
  int rows;

  std::string name() const {
    return device + "-list-" + std::to_string(columns) + "x" + std::to_string(rows) + "-" +
           terminal;
  }
  KeptFile kept(const std::string &suffix = "") const {
    return KeptFile("screen/" + name() + suffix + ".txt");
  }
};

std::ostream &operator<<(std::ostream &out, const View &view) {
  return out << view.name();
}

std::vector<View> allViews() {
  std::vector<View> views;
  for (const char *device :
       {"iphone", "ipad-16cpu", "old-32bit", "minimal", "locked-down", "kinds", "kernel-6153"}) {
    for (const char *terminal : {kColours, kNoColours}) {
      views.push_back({device, terminal, 80, 24});
      views.push_back({device, terminal, 132, 50});
    }
  }
  // Makes the files known.
  for (const View &view : views) view.kept();
  return views;
}

// With a device of its own.
struct ProgramOnDevice {
  SteppedDevice device;
  Terminal terminal;

  explicit ProgramOnDevice(const View &view)
      : device(view.device, SteppedDevice::Background::silent), terminal(optionsOf(view)) {}

 private:
  TerminalOptions optionsOf(const View &view) const {
    TerminalOptions options;
    options.columns = view.columns;
    options.rows = view.rows;
    options.kind = view.terminal;
    options.environment = device.environment();
    return options;
  }
};

class KeptListScreen : public testing::TestWithParam<View> {};

TEST_P(KeptListScreen, IsDrawn) {
  ProgramOnDevice program(GetParam());
  EXPECT_EQ(complaintAboutScreen(program.terminal, GetParam().kept()), "");
}

INSTANTIATE_TEST_SUITE_P(Device, KeptListScreen, testing::ValuesIn(allViews()),
                         [](const auto &row) {
                           std::string name = row.param.name();
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

// With room for all processes and columns.
const View kKindsView{"kinds", kColours, 140, 90};
const KeptFile kSecondFrame = kKindsView.kept("-second");

TEST(KeptListScreenLater, ShowsWhatChanged) {
  ProgramOnDevice program(kKindsView);
  ASSERT_EQ(awaitWholeFrame(program.terminal), "");
  ASSERT_TRUE(program.terminal.drawAgain()) << program.terminal.text();
  EXPECT_EQ(complaintAboutScreen(program.terminal, kSecondFrame), "");
}

TEST(KeptScreens, AllHaveATest) {
  EXPECT_THAT(keptFilesWithoutTest("screen"), testing::IsEmpty());
}

}  // namespace
}  // namespace test
