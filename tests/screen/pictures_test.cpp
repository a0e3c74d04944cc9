// The pictures in the documents, which scripts/draw-pictures draws anew: each is what the program
// shows now.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "harness/kept.h"
#include "harness/picture.h"
#include "harness/screen_text.h"
#include "harness/stepped_device.h"
#include "harness/terminal.h"

namespace test {
namespace {

constexpr char kList[] = "list.svg";
constexpr char kProcess[] = "process.svg";
constexpr char kStackshot[] = "stackshot.svg";
constexpr size_t kLargest = 60'000;  // bytes: a page has three of them

const KeptFolder &pictures() {
  static const KeptFolder folder{PICTURES_FOLDER, keptFolder().accepts, ""};
  return folder;
}

std::string complaintAboutPicture(const Screen &screen, const std::string &name,
                                  const std::string &title) {
  const std::string picture = asPicture(screen, title);
  if (picture.size() > kLargest) return name + " is " + std::to_string(picture.size()) + " bytes";
  return complaintAgainstKept(pictures(), name, picture);
}

class KeptPicture : public testing::Test {
 protected:
  TerminalOptions options(int columns, int rows, std::vector<std::string> arguments = {}) const {
    TerminalOptions options;
    options.columns = columns;
    options.rows = rows;
    options.arguments = std::move(arguments);
    options.environment = device_.environment();
    options.separateError = true;
    return options;
  }

 private:
  SteppedDevice device_{"iphone", SteppedDevice::Background::silent};
};

// The second frame: what has changed since the first has its colours.
TEST_F(KeptPicture, OfTheList) {
  Terminal terminal(options(120, 34));
  ASSERT_EQ(awaitWholeFrame(terminal), "");
  ASSERT_TRUE(terminal.drawAgain()) << terminal.text();
  ASSERT_EQ(awaitWholeFrame(terminal), "");
  EXPECT_EQ(complaintAboutPicture(screenOf(terminal), kList,
                                  "sondex: the processes of a telephone, the busiest first"),
            "");
}

TEST_F(KeptPicture, OfAProcessWithItsRegions) {
  Terminal terminal(options(110, 80, {"sshd"}));
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending && ending->exitedWith(0)) << terminal.text();
  EXPECT_EQ(complaintAboutPicture(screenOf(terminal), kProcess,
                                  "sondex sshd: one process, its memory, relatives and files"),
            "");
}

// Its first threads.
TEST_F(KeptPicture, OfAStackshot) {
  constexpr int kShown = 34;
  Terminal terminal(options(80, 300, {"Prototype", "threads"}));
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending && ending->exitedWith(0)) << terminal.text();
  Screen screen = screenOf(terminal);
  screen.rows = kShown;
  EXPECT_EQ(complaintAboutPicture(screen, kStackshot,
                                  "sondex Prototype threads: where threads wait, in the kernel "
                                  "and in user space"),
            "");
}

TEST(Pictures, AllHaveATest) {
  EXPECT_THAT(filesWithoutTest(pictures(), "", {kList, kProcess, kStackshot}), testing::IsEmpty());
}

}  // namespace
}  // namespace test
