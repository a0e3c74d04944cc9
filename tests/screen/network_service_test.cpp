// The full screen on devices whose network statistics are not to be had, or too many.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "harness/terminal.h"
#include "harness/written_device.h"

namespace test {
namespace {

using testing::HasSubstr;

constexpr char kProcesses[] = R"(
[[process]]
pid = 1
name = "launchd"
)";

constexpr char kTaken[] =
    "Apparently some other process is using the system socket. On iOS, this is usually "
    "UserEventAgent. Kill it (-9!) and immediately start this program";

class NetworkService : public testing::Test {
 protected:
  static TerminalOptions optionsOn(const WrittenDevice &device) {
    TerminalOptions options;
    options.columns = 132;
    options.environment = device.environment();
    options.separateError = true;
    return options;
  }

  static void expectEnd(Terminal &terminal) {
    const std::optional<Ending> ending = terminal.waitForEnd();
    ASSERT_TRUE(ending.has_value()) << terminal.text();
    EXPECT_TRUE(ending->exitedWith(0)) << *ending << '\n' << terminal.text();
    EXPECT_TRUE(sameModes(terminal.modes(), terminal.modesBefore()));
    EXPECT_FALSE(terminal.isOnAlternateScreen());
  }
};

TEST_F(NetworkService, ThatAnotherProgramHasIsDoneWithout) {
  const WrittenDevice device(std::string(R"(
event = [{ do = "fail", call = "ntstat", form = "connect", error = "EBUSY" }]
)") + kProcesses);
  Terminal terminal(optionsOn(device));
  EXPECT_EQ(terminal.awaitText("launchd"), "");
  EXPECT_TRUE(terminal.waitFor([&] {
    return terminal.standardError().find("connect(AF_SYS_CONTROL): Device or resource busy\n") !=
               std::string::npos &&
           terminal.written().find(kTaken) != std::string::npos;
  })) << terminal.standardError();
  EXPECT_TRUE(terminal.drawAgain()) << "it goes on";
  EXPECT_EQ(terminal.findRow("Apparently"), -1) << terminal.text();
  EXPECT_EQ(terminal.awaitText("launchd"), "");
  terminal.press("\x03");
  expectEnd(terminal);
}

// Its references are small numbers, of which there are places for 1,024.
TEST_F(NetworkService, OfAnOldKernelWithMoreSourcesThanItCanHoldEndsTheProgram) {
  const WrittenDevice device(std::string(kProcesses) + R"(
[kernel]
version = "Darwin Kernel Version 14.0.0: root:xnu-2782.40.9~1/RELEASE_ARM64_T7000"

[[process]]
pid = 7
name = "server"
descriptors = [{ type = "tcp", local = "10.0.0.1:80", remote = "10.0.0.2:50000", copies = 1025 }]
)");
  Terminal terminal(optionsOn(device));
  expectEnd(terminal);
  EXPECT_THAT(terminal.standardError(),
              HasSubstr("Too many sources/connections! This is not a bug, but something that will "
                        "be handled soon!\n"));
}

}  // namespace
}  // namespace test
