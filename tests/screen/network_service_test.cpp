// The full screen on devices with network statistics of all forms, with none, and with too many.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "harness/terminal.h"
#include "harness/traffic_device.h"
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

TEST_F(NetworkService, OfEverySystemTellsEachProcesssTraffic) {
  for (const char *kernel : kKernels) {
    const WrittenDevice device(deviceWithTraffic(kernel));
    TerminalOptions options = optionsOn(device);
    options.columns = 160;
    Terminal terminal(options);
    EXPECT_TRUE(terminal.waitFor([&] {
      terminal.drawAgain();
      return terminal.text().find("│20.01K│  309B") != std::string::npos;
    })) << kernel
        << terminal.text();
    // Of 4903 and before, QUIC is nobody's.
    const bool hasQuic = kernel != std::string("4903.272.1");
    EXPECT_THAT(terminal.text(), HasSubstr(hasQuic ? "│ 4096B│  105B" : "│ 4090B│  100B"))
        << kernel;
    terminal.press("\x03");
    expectEnd(terminal);
  }
}

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
