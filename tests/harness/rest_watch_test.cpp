#include "harness/rest_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <optional>
#include <string>
#include <thread>

#include "harness/file_handle.h"
#include "harness/stepped_device.h"
#include "harness/terminal.h"

namespace test {
namespace {

using testing::HasSubstr;

// What never comes is given up, long before the deadline; some of it is told in the complaint.
std::string complaintAboutNothing(Terminal &terminal) {
  const Clock::time_point before = Clock::now();
  const std::string complaint = terminal.awaitText("never shown");
  EXPECT_LT(Clock::now() - before, kPatience / 2);
  EXPECT_THAT(complaint, HasSubstr("no \"never shown\""));
  return complaint;
}

TEST(Await, GivesUpAfterTwoFramesMore) {
  Terminal terminal;
  EXPECT_THAT(complaintAboutNothing(terminal), HasSubstr("COMMAND"));
  EXPECT_EQ(terminal.repaints(), 3u);
}

class AwaitWithoutFrames : public testing::Test {
 protected:
  // The program's own frames are put off for longer than a test waits.
  void SetUp() override {
    TerminalOptions options;
    options.columns = 132;
    options.rows = 50;
    options.environment = device_.environment();
    terminal_.emplace(options);
    ASSERT_EQ(terminal_->awaitText("COMMAND"), "");
    terminal_->press("u");
    ASSERT_EQ(terminal_->awaitText("Enter value for update delay"), "");
    terminal_->press("1000\n");
    ASSERT_EQ(terminal_->awaitText("Setting delay to"), "");
  }
  Terminal &terminal() { return *terminal_; }

 private:
  const SteppedDevice device_{"minimal"};
  std::optional<Terminal> terminal_;
};

TEST_F(AwaitWithoutFrames, GivesUpAtOnce) {
  const size_t frames = terminal().repaints();
  EXPECT_THAT(complaintAboutNothing(terminal()), HasSubstr("COMMAND"));
  EXPECT_EQ(terminal().repaints(), frames);
}

TEST_F(AwaitWithoutFrames, GivesUpInAPrompt) {
  terminal().press("/");
  EXPECT_THAT(complaintAboutNothing(terminal()), HasSubstr("Enter a filter expression"));
}

TEST_F(AwaitWithoutFrames, GivesUpOnAScreenThatLooksForKeysOnceASecond) {
  terminal().press("?");
  EXPECT_THAT(complaintAboutNothing(terminal()), HasSubstr("Scroll through process list"));
}

TEST_F(AwaitWithoutFrames, WaitsForKeysToBeRead) {
  for (int i = 0; i < 50; i++) {
    terminal().press("/none\n");
    ASSERT_EQ(terminal().awaitText("No processes match none"), "") << i;
    terminal().press("/\n");
    ASSERT_EQ(terminal().awaitText("Hello"), "") << i;
  }
}

TEST_F(AwaitWithoutFrames, TakesTheEndForNoneWhereTheProgramRests) {
  const Clock::time_point before = Clock::now();
  EXPECT_FALSE(terminal().waitForEnd().has_value());
  EXPECT_LT(Clock::now() - before, kPatience / 2);
}

TEST(RestWatch, SeesNoRestInAProgramThatDoesNotExist) {
  RestWatch watch(0);
  for (int i = 0; i < 3; i++) EXPECT_FALSE(watch.isAtRest());
}

TEST(RestWatch, SeesTheCallThatAThreadIsBlockedIn) {
  std::atomic<pid_t> running{0};
  std::atomic<bool> stops{false};
  std::thread thread([&] {
    running.store(gettid());
    while (!stops.load()) continue;
  });
  Pipe pipe = makePipe();
  std::atomic<pid_t> reading{0};
  std::thread reader([&] {
    reading.store(gettid());
    char byte = 0;
    EXPECT_EQ(read(pipe.readEnd.get(), &byte, 1), 0);
  });
  EXPECT_TRUE(waitUntil([&] {
    const std::optional<BlockedCall> call = blockedCall(getpid(), reading.load());
    return call && call->number == SYS_read &&
           call->arguments[0] == static_cast<unsigned long long>(pipe.readEnd.get());
  }));
  EXPECT_TRUE(waitUntil([&] { return running.load() != 0; }));
  EXPECT_FALSE(blockedCall(getpid(), running.load()).has_value());
  stops.store(true);
  pipe.writeEnd.close();
  thread.join();
  reader.join();
}

}  // namespace
}  // namespace test
