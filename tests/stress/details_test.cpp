// The details screen stays open while what it shows changes under it: its process ends, opens and
// closes descriptors all the time, or the list beneath is refreshed again and again.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <random>
#include <regex>
#include <string>
#include <string_view>

#include "harness/helper.h"
#include "harness/list_columns.h"
#include "harness/run.h"
#include "harness/stepped_device.h"
#include "harness/terminal.h"

namespace test {
namespace {

std::string identityOf(pid_t pid) {
  return "Process: " + std::to_string(pid) + " ";
}

bool showsText(const Terminal &terminal, std::string_view text) {
  return terminal.findRow(text) >= 0;
}

bool showsList(const Terminal &terminal) {
  return showsText(terminal, "COMMAND") && !showsText(terminal, "Process: ");
}

// Ascending by PID: what comes and goes moves few of the others.
void sortByPid(Terminal &terminal) {
  for (int i = placeOf(Column::pid); i < kSelectedColumn; i++) terminal.press(kLeftKey);
  terminal.press("r");
}

// Waits until all keys have done what they do, and what they changed is drawn.
void settle(Terminal &terminal) {
  EXPECT_TRUE(terminal.waitFor([&] { return terminal.unreadKeys() == 0; }));
  for (int i = 0; i < 2; i++) EXPECT_TRUE(terminal.drawAgain()) << terminal.text();
}

bool highlights(const Terminal &terminal, const std::string &name) {
  for (int row = 0; row < terminal.rows() - 1; row++) {
    if (terminal.cell(row, 0).reverse) return terminal.rowText(row).find(name) != std::string::npos;
  }
  return false;
}

// Selects the only process that the list shows. One that comes or goes before the next frame moves
// the selection: it is tried again, from the other side.
bool selects(Terminal &terminal, const std::string &name) {
  constexpr Duration kBeforeNextKey{2000};
  constexpr int kKeys = 10;
  for (int i = 0; i < kKeys; i++) {
    terminal.press(i % 2 == 0 ? kDownKey : kUpKey);
    settle(terminal);
    if (terminal.waitFor([&] { return highlights(terminal, name); }, kBeforeNextKey)) return true;
  }
  return false;
}

bool opensDetailsOf(Terminal &terminal, pid_t pid, const std::string &name) {
  terminal.press("/" + name + "\n");
  const auto isAlone = [&] {
    return showsText(terminal, std::to_string(pid)) && showsList(terminal);
  };
  EXPECT_TRUE(terminal.waitFor(isAlone)) << terminal.text();
  settle(terminal);
  if (!selects(terminal, name)) return false;
  terminal.press("\n");
  // The screen of one that has ended is gone at once.
  constexpr Duration kBeforeNextTry{5000};
  terminal.waitFor([&] { return showsText(terminal, "Process: "); }, kBeforeNextTry);
  return showsText(terminal, identityOf(pid));
}

// A program that shows the details of a process. If that was moved in the list between its
// selection and the opening, it is another's screen, and it is tried again.
class OpenDetails {
 public:
  OpenDetails(pid_t pid, const std::string &name, const Environment &environment = {}) {
    constexpr int kTries = 10;
    TerminalOptions options;
    options.columns = 160;
    options.rows = 50;
    options.environment = environment;
    for (int i = 0; i < kTries && !isOpen_; i++) {
      terminal_.emplace(options);
      EXPECT_EQ(terminal_->awaitText("COMMAND"), "");
      sortByPid(*terminal_);
      isOpen_ = opensDetailsOf(*terminal_, pid, name);
    }
  }
  bool isOpen() const { return isOpen_; }
  Terminal &terminal() { return *terminal_; }

 private:
  std::optional<Terminal> terminal_;
  bool isOpen_ = false;
};

void expectReturnAndQuit(Terminal &terminal) {
  terminal.press("q");
  ASSERT_TRUE(terminal.waitFor([&] { return showsList(terminal); })) << terminal.text();
  terminal.press("q");
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value()) << terminal.text();
  EXPECT_TRUE(ending->exitedWith(0)) << *ending << '\n' << terminal.written();
  EXPECT_TRUE(sameModes(terminal.modes(), terminal.modesBefore()));
}

TEST(DetailsScreen, ReturnsToTheListOnceItsProcessHasEnded) {
  const std::string name = uniqueName("ends");
  std::optional<Helper> helper(std::in_place, Steps{"name", name, "threads", "5"});
  OpenDetails details(helper->pid(), name);
  ASSERT_TRUE(details.isOpen());
  Terminal &terminal = details.terminal();
  terminal.press("fhr");
  ASSERT_TRUE(terminal.waitFor([&] { return showsText(terminal, "Process Hierarchy:"); }));
  helper.reset();
  ASSERT_TRUE(terminal.waitFor([&] { return showsList(terminal); })) << terminal.text();
  // Not a key of the details any more.
  terminal.press("/\n");
  terminal.press("q");
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value()) << terminal.text();
  EXPECT_TRUE(ending->exitedWith(0)) << *ending << '\n' << terminal.written();
}

TEST(DetailsScreen, KeepsUpWithOneThatOpensAndClosesDescriptors) {
  constexpr size_t kFrames = 60;
  const std::string name = uniqueName("rest");
  const Helper helper({"name", name, "restless"});
  OpenDetails details(helper.pid(), name);
  ASSERT_TRUE(details.isOpen());
  Terminal &terminal = details.terminal();
  for (size_t i = 0; i < kFrames; i++) {
    const size_t before = terminal.repaints();
    // With and without the list of descriptors.
    terminal.press("f");
    ASSERT_TRUE(terminal.drawUntil([&] { return terminal.repaints() > before; }));
    ASSERT_FALSE(terminal.hasEnded()) << "after " << i << " frames\n" << terminal.written();
  }
  ASSERT_TRUE(terminal.waitFor([&] { return showsText(terminal, identityOf(helper.pid())); }))
      << terminal.text();
  ASSERT_NO_FATAL_FAILURE(expectReturnAndQuit(terminal));
}

TEST(DetailsScreen, TakesItsKeysInAnyOrder) {
  constexpr int kKeys = 500;
  constexpr std::string_view kToggles = "aAfFhHrRtT";
  const std::string name = uniqueName("keys");
  const Helper helper({"name", name, "restless"});
  OpenDetails details(helper.pid(), name);
  ASSERT_TRUE(details.isOpen());
  Terminal &terminal = details.terminal();
  std::mt19937 random(20261121);
  const auto number = [&random](size_t below) {
    return std::uniform_int_distribution<size_t>(0, below - 1)(random);
  };
  for (int i = 0; i < kKeys; i++) {
    terminal.press(number(100) == 0 ? "?\n" : std::string(1, kToggles[number(kToggles.size())]));
  }
  ASSERT_TRUE(terminal.waitFor([&] { return terminal.hasEnded() || terminal.unreadKeys() == 0; }));
  ASSERT_FALSE(terminal.hasEnded()) << terminal.written();
  ASSERT_NO_FATAL_FAILURE(expectReturnAndQuit(terminal));
}

// What the details show as the exact resident size.
std::optional<long long> residentBytes(const Terminal &terminal) {
  static const std::regex size("Resident size: .*\\(([0-9]+)\\)");
  const int row = terminal.findRow("Resident size: ");
  std::smatch part;
  const std::string text = row < 0 ? "" : terminal.rowText(row);
  if (!std::regex_search(text, part, size)) return std::nullopt;
  return std::stoll(part[1]);
}

// Every refresh of the list is a step of the device's clock, by which this process grows.
TEST(DetailsScreen, StaysOpenWhileTheListIsRefreshed) {
  constexpr pid_t kHello = 40;
  constexpr long long kBytesPerRefresh = 2 * 65536;
  constexpr int kRefreshes = 50;
  const SteppedDevice device("minimal");
  OpenDetails details(kHello, "Hello", device.environment());
  ASSERT_TRUE(details.isOpen());
  Terminal &terminal = details.terminal();
  ASSERT_TRUE(terminal.waitFor([&] { return residentBytes(terminal).has_value(); }));
  const std::optional<long long> first = residentBytes(terminal);
  ASSERT_TRUE(terminal.drawUntil([&] {
    const std::optional<long long> now = residentBytes(terminal);
    return now && *now - *first >= kRefreshes * kBytesPerRefresh;
  })) << terminal.text();
  EXPECT_TRUE(showsText(terminal, identityOf(kHello)));
  ASSERT_NO_FATAL_FAILURE(expectReturnAndQuit(terminal));
}

}  // namespace
}  // namespace test
