// What the tables of a device file other than processes and events say.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/unit/device_file_text.h"

namespace {

using namespace device_file_test;
using namespace host::simulator;
using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::chrono_literals;

Device withTable(const std::string &text) {
  return deviceOf(text + "\n[[process]]\nname = \"launchd\"\n");
}

TEST(DeviceFile, HasDefaultsForEverythingButProcesses) {
  const Device device = withTable("");
  EXPECT_EQ(device.name, "mine");
  EXPECT_EQ(device.caller, 0u);
  EXPECT_TRUE(device.tellsInBackground);
  EXPECT_EQ(device.kernel.release, "18.7.0");
  EXPECT_EQ(device.kernel.node, "device");
  EXPECT_EQ(device.kernel.hardware, "iPhone11,2");
  EXPECT_EQ(device.kernel.pageSize, 16384u);
  EXPECT_EQ(device.kernel.timebaseNumerator, 125u);
  EXPECT_EQ(device.kernel.timebaseDenominator, 3u);
  EXPECT_THAT(device.kernel.version, HasSubstr("xnu-4903"));
  EXPECT_TRUE(device.kernel.missing.empty());
  EXPECT_FALSE(device.clock.isStepped);
  EXPECT_EQ(device.clock.step, 1s);
  EXPECT_FALSE(device.clock.start.has_value());
  EXPECT_EQ(device.clock.zone, "");
  EXPECT_EQ(device.clock.up, 86400s);
  EXPECT_EQ(device.hardware.memory, uint64_t{4} << 30);
  EXPECT_EQ(device.hardware.processorType, 0x0100000C);
  EXPECT_EQ(device.hardware.processorSubtype, 2);
  ASSERT_EQ(device.hardware.processors.size(), 1u);
  EXPECT_TRUE(device.hardware.processors[0].idle == Figure::growing(0, 100));
  EXPECT_TRUE(device.hardware.processors[0].user == Figure(0));
  EXPECT_FALSE(device.swap.has_value());
  EXPECT_FALSE(device.memoryLevel.has_value());
  EXPECT_FALSE(device.wifi.has_value());
  EXPECT_FALSE(device.power.has_value());
  EXPECT_FALSE(device.gestalt.has_value());
  EXPECT_TRUE(device.interfaces.empty());
  EXPECT_TRUE(device.events.empty());
  for (const Figure &average : device.loadAverages) EXPECT_TRUE(average == Figure());
}

TEST(DeviceFile, TopLevel) {
  const Device device = withTable(
      "name = \"pad\"\ncaller = 501\nbackground = false\nload = [1, 0.5, { start = 0.25, growth = "
      "0.001 }]\n"
      "memory-level = { start = 46, swing = 5 }\n");
  EXPECT_EQ(device.name, "pad");
  EXPECT_EQ(device.caller, 501u);
  EXPECT_FALSE(device.tellsInBackground);
  EXPECT_TRUE(device.loadAverages[0] == Figure(1'000'000));
  EXPECT_TRUE(device.loadAverages[1] == Figure(500'000));
  EXPECT_TRUE(device.loadAverages[2] == Figure::growing(250'000, 1000));
  ASSERT_TRUE(device.memoryLevel.has_value());
  EXPECT_EQ(device.memoryLevel->start, 46u);
  EXPECT_EQ(device.memoryLevel->swing, 5u);
  EXPECT_EQ(device.memoryLevel->period, 10s);
}

TEST(DeviceFile, Kernel) {
  const Kernel kernel = withTable(
                            "[kernel]\nversion = \"V\"\nrelease = \"19.0.0\"\nhost = \"h\"\n"
                            "hardware = \"iPad8,1\"\npage-size = \"4K\"\ntimebase = [1, 2]\n"
                            "missing = [\"proc_pid_rusage\", \"memorystatus_get_level\", "
                            "\"MGCopyAnswerWithError\"]\n")
                            .kernel;
  EXPECT_EQ(kernel.version, "V");
  EXPECT_EQ(kernel.release, "19.0.0");
  EXPECT_EQ(kernel.node, "h");
  EXPECT_EQ(kernel.hardware, "iPad8,1");
  EXPECT_EQ(kernel.pageSize, 4096u);
  EXPECT_EQ(kernel.timebaseNumerator, 1u);
  EXPECT_EQ(kernel.timebaseDenominator, 2u);
  EXPECT_THAT(kernel.missing,
              testing::UnorderedElementsAre("proc_pid_rusage", "memorystatus_get_level",
                                            "MGCopyAnswerWithError"));
}

TEST(DeviceFile, Clock) {
  const DeviceClock clock =
      withTable(
          "[clock]\nmode = \"stepped\"\nstep = 0.5\n"
          "start = 2024-03-05T15:07:09+01:00\nzone = \"CET-1CEST,M3.5.0,M10.5.0/3\"\n"
          "up = 1000\n")
          .clock;
  EXPECT_TRUE(clock.isStepped);
  EXPECT_EQ(clock.step, 500ms);
  EXPECT_EQ(clock.start, 1709647629);  // 2024-03-05 14:07:09 UTC
  EXPECT_EQ(clock.zone, "CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(clock.up, 1000s);
}

TEST(DeviceFile, Hardware) {
  const Hardware hardware =
      withTable(
          "[hardware]\nmemory = \"1.5G\"\nlogical = 2\nlogical-most = 3\n"
          "physical = 4\nphysical-most = 5\ntype = 12\nsubtype = 9\n"
          "[[hardware.processor]]\ncopies = 2\nuser = { start = 5, growth = 20.5 }\n"
          "system = { growth = 4 }\nnice = { growth = 0.5 }\n"
          "[[hardware.processor]]\nidle = { start = 8, growth = 1 }\n"
          "[[hardware.processor]]\nidle = 9\nuser = { growth = 101 }\n")
          .hardware;
  EXPECT_EQ(hardware.memory, uint64_t{3} << 29);
  EXPECT_EQ(hardware.logicalProcessors, 2);
  EXPECT_EQ(hardware.logicalProcessorsMost, 3);
  EXPECT_EQ(hardware.physicalProcessors, 4);
  EXPECT_EQ(hardware.physicalProcessorsMost, 5);
  EXPECT_EQ(hardware.processorType, 12);
  EXPECT_EQ(hardware.processorSubtype, 9);
  ASSERT_EQ(hardware.processors.size(), 4u);
  EXPECT_EQ(hardware.processors[1].user.start, 5u);
  EXPECT_EQ(hardware.processors[1].user.growth, 20'500'000);
  EXPECT_EQ(hardware.processors[1].system.growth, 4'000'000);
  EXPECT_EQ(hardware.processors[1].nice.growth, 500'000);
  EXPECT_EQ(hardware.processors[1].idle.growth, 75'000'000);
  EXPECT_EQ(hardware.processors[2].idle.growth, 1'000'000);
  EXPECT_EQ(hardware.processors[3].idle.start, 9u);
  EXPECT_EQ(hardware.processors[3].idle.growth, 0);  // the others have it all
}

TEST(DeviceFile, MemoryFigures) {
  const std::pair<const char *, Figure Memory::*> rows[] = {
      {"free", &Memory::free},
      {"active", &Memory::active},
      {"inactive", &Memory::inactive},
      {"wired", &Memory::wired},
      {"purgeable", &Memory::purgeable},
      {"speculative", &Memory::speculative},
      {"throttled", &Memory::throttled},
      {"external", &Memory::external},
      {"internal", &Memory::internal},
      {"compressor", &Memory::compressor},
      {"uncompressed", &Memory::uncompressed},
      {"compressions", &Memory::compressions},
      {"decompressions", &Memory::decompressions},
      {"page-ins", &Memory::pageIns},
      {"page-outs", &Memory::pageOuts},
      {"swap-ins", &Memory::swapIns},
      {"swap-outs", &Memory::swapOuts},
      {"faults", &Memory::faults},
      {"copy-on-write-faults", &Memory::copyOnWriteFaults},
      {"zero-fills", &Memory::zeroFills},
      {"reactivations", &Memory::reactivations},
      {"purges", &Memory::purges},
      {"lookups", &Memory::lookups},
      {"hits", &Memory::hits},
  };
  std::string text = "[memory]\n";
  uint64_t number = 0;
  for (const auto &row : rows)
    text += std::string(row.first) + " = " + std::to_string(++number) + "\n";
  const Memory memory = withTable(text).memory;
  number = 0;
  for (const auto &[key, figure] : rows) EXPECT_EQ((memory.*figure).start, ++number) << key;
}

TEST(DeviceFile, Swap) {
  const Device device = withTable(
      "[swap]\ntotal = \"2G\"\nused = { start = \"1K\", growth = \"-0.5K\" }\nencrypted = true\n");
  ASSERT_TRUE(device.swap.has_value());
  EXPECT_EQ(device.swap->total, uint64_t{2} << 30);
  EXPECT_EQ(device.swap->used.start, 1024u);
  EXPECT_EQ(device.swap->used.growth, -512'000'000);
  EXPECT_TRUE(device.swap->isEncrypted);
}

TEST(DeviceFile, Interfaces) {
  const Device device = withTable(
      "[[interface]]\nname = \"en0\"\n"
      "[[interface]]\nname = \"pdp_ip0\"\ntype = \"cellular\"\nflags = 0x8051\nmtu = 1450\n"
      "speed = 5000000000\nreceived-packets = 1\nsent-packets = 2\nreceived = \"3K\"\nsent = 4\n"
      "[[interface]]\nname = \"lo0\"\ntype = \"loopback\"\n"
      "[[interface]]\nname = \"utun0\"\ntype = \"point-to-point\"\n");
  ASSERT_EQ(device.interfaces.size(), 4u);
  EXPECT_EQ(device.interfaces[0].type, 6);
  EXPECT_EQ(device.interfaces[0].flags, 0x8863u);
  EXPECT_EQ(device.interfaces[0].mtu, 1500u);
  EXPECT_EQ(device.interfaces[0].speed, 0u);
  const Interface &cellular = device.interfaces[1];
  EXPECT_EQ(cellular.name, "pdp_ip0");
  EXPECT_EQ(cellular.type, 255);
  EXPECT_EQ(cellular.flags, 0x8051u);
  EXPECT_EQ(cellular.mtu, 1450u);
  EXPECT_EQ(cellular.speed, 5'000'000'000u);
  EXPECT_EQ(cellular.receivedPackets.start, 1u);
  EXPECT_EQ(cellular.sentPackets.start, 2u);
  EXPECT_EQ(cellular.receivedBytes.start, 3072u);
  EXPECT_EQ(cellular.sentBytes.start, 4u);
  EXPECT_EQ(device.interfaces[2].type, 24);
  EXPECT_EQ(device.interfaces[3].type, 23);
}

TEST(DeviceFile, WiFi) {
  const WiFi plain = *withTable("[wifi]\n").wifi;
  EXPECT_EQ(plain.interface, "en0");
  EXPECT_FALSE(plain.name.has_value());
  const WiFi wifi = *withTable(
                         "[wifi]\ninterface = \"en1\"\nname = \"home\"\nchannel = 36\n"
                         "channel-flags = 18\nsignal = -61\nradios = [-60, -62]\n")
                         .wifi;
  EXPECT_EQ(wifi.interface, "en1");
  EXPECT_EQ(wifi.name, "home");
  EXPECT_EQ(wifi.channel, 36u);
  EXPECT_EQ(wifi.channelFlags, 18u);
  EXPECT_EQ(wifi.signal, -61);
  EXPECT_THAT(wifi.perRadio, ElementsAre(-60, -62));
}

TEST(DeviceFile, Power) {
  const Power none = *withTable("[power]\n").power;
  EXPECT_EQ(none.secondsRemaining, -1);
  EXPECT_TRUE(none.sources.empty());
  EXPECT_FALSE(none.assertions.has_value());
  EXPECT_EQ(withTable("[power]\nremaining = \"unlimited\"\n").power->secondsRemaining, -2);
  EXPECT_EQ(withTable("[power]\nremaining = \"unknown\"\n").power->secondsRemaining, -1);
  EXPECT_TRUE(withTable("[power]\nassertions = []\n").power->assertions->empty());

  const Power power =
      *withTable(
           "[power]\nremaining = 90.5\n"
           "source = [{ capacity = 72, state = \"AC Power\", charging = true }, {}]\n"
           "assertions = [{ process = \"launchd\", names = [\"a\", \"b\"] },\n"
           "{ process = 9, names = [\"c\"] }, { process = 1, names = [\"d\"] }]\n")
           .power;
  EXPECT_EQ(power.secondsRemaining, 90.5);
  ASSERT_EQ(power.sources.size(), 2u);
  EXPECT_EQ(power.sources[0].capacity, 72);
  EXPECT_EQ(power.sources[0].state, "AC Power");
  EXPECT_EQ(power.sources[0].isCharging, true);
  EXPECT_FALSE(power.sources[1].capacity.has_value());
  EXPECT_FALSE(power.sources[1].state.has_value());
  EXPECT_FALSE(power.sources[1].isCharging.has_value());
  ASSERT_EQ(power.assertions->size(), 2u);
  EXPECT_THAT(power.assertions->at(1), testing::UnorderedElementsAre("a", "b", "d"));
  EXPECT_THAT(power.assertions->at(9), ElementsAre("c"));
}

TEST(DeviceFile, Gestalt) {
  const Device device = withTable(
      "[gestalt]\nUniqueDeviceID = \"00008020\"\n\"a b\" = 5\nHasBaseband = true\n"
      "SerialNumber = { error = 5 }\n");
  const auto &answers = *device.gestalt;
  ASSERT_EQ(answers.size(), 4u);
  EXPECT_EQ(std::get<std::string>(answers.at("UniqueDeviceID")), "00008020");
  EXPECT_EQ(std::get<int64_t>(answers.at("a b")), 5);
  EXPECT_TRUE(std::get<bool>(answers.at("HasBaseband")));
  EXPECT_EQ(std::get<Refusal>(answers.at("SerialNumber")).error, 5);
  EXPECT_TRUE(withTable("[gestalt]\n").gestalt->empty());
}

// Figures, by one of each unit.

Figure pages(const std::string &value) {
  return withTable("[memory]\nfree = " + value + "\n").memory.free;
}

TEST(DeviceFileFigure, PlainOrATable) {
  EXPECT_TRUE(pages("12") == Figure(12));
  EXPECT_TRUE(pages("0x10") == Figure(16));
  EXPECT_TRUE(pages("{}") == Figure(0));
  EXPECT_TRUE(pages("{ start = 3, growth = -2.5 }").growth == -2'500'000);
  const Figure swinging = pages("{ start = 30, swing = 4, period = 2.5 }");
  EXPECT_EQ(swinging.swing, 4u);
  EXPECT_EQ(swinging.period, 2500ms);
  EXPECT_EQ(swinging.from, 0s);
  // Without a swing there is no period.
  EXPECT_EQ(pages("{ period = 5 }").period, 0s);
}

TEST(DeviceFileFigure, GrowthIsRoundedToAMillionth) {
  EXPECT_EQ(pages("{ growth = 0.0000004 }").growth, 0);
  EXPECT_EQ(pages("{ growth = 0.0000006 }").growth, 1);
  EXPECT_EQ(pages("{ growth = -0.3333333 }").growth, -333'333);
}

TEST(DeviceFileFigure, SizesHaveUnitsOf1024) {
  const auto size = [](const std::string &value) {
    return withTable("[swap]\nused = " + value + "\n").swap->used.start;
  };
  EXPECT_EQ(size("\"7\""), 7u);
  EXPECT_EQ(size("\"4K\""), 4096u);
  EXPECT_EQ(size("\"1.5M\""), 1'572'864u);
  EXPECT_EQ(size("\"2G\""), 2'147'483'648u);
  EXPECT_EQ(size("\"1T\""), 1'099'511'627'776u);
  EXPECT_EQ(size("9223372036854775807"), 9'223'372'036'854'775'807u);
}

TEST(DeviceFileFigure, TimesAreNanoseconds) {
  const Figure time = processOf("user-time = { start = 1.5, growth = 0.25, swing = 2 }").userTime;
  EXPECT_EQ(time.start, 1'500'000'000u);
  EXPECT_EQ(time.growth, 250'000'000'000'000);
  EXPECT_EQ(time.swing, 2'000'000'000u);
}

TEST(DeviceFileFigure, SharesAreTenthsOfAPercent) {
  const Figure share = threadOf("share = { start = 12.5, growth = 0.1, swing = 3 }").share;
  EXPECT_EQ(share.start, 125u);
  EXPECT_EQ(share.growth, 1'000'000);
  EXPECT_EQ(share.swing, 30u);
}

TEST(DeviceFileFigure, PhaseMovesTheSwingAloneWhateverTheGrowth) {
  for (const std::string growth : {"0", "3", "-3", "0.7"}) {
    SCOPED_TRACE(growth);
    const std::string common = "start = 1000, growth = " + growth + ", swing = 100, period = 8";
    const Figure plain = pages("{ " + common + " }");
    const Figure moved = pages("{ " + common + ", phase = 0.25 }");
    EXPECT_EQ(plain.at(0s), 1000u);
    EXPECT_EQ(moved.at(0s), 1100u);
    // A quarter of the period later, less what grew meanwhile.
    const Figure still = pages("{ start = 1000, growth = " + growth + " }");
    EXPECT_NEAR(static_cast<double>(moved.at(2s)) - static_cast<double>(still.at(2s)), 0, 1);
    EXPECT_NEAR(static_cast<double>(moved.at(4s)) - static_cast<double>(still.at(4s)), -100, 1);
  }
}

TEST(DeviceFile, OneThatCanNotBeReadIsAMistake) {
  const auto missing = readDeviceFile("/nonexistent/device.toml");
  EXPECT_EQ(std::get<Mistake>(missing).text(),
            "/nonexistent/device.toml: can't be read: No such file or directory");
  const auto folder = readDeviceFile("/tmp");
  EXPECT_EQ(std::get<Mistake>(folder).text(), "/tmp: can't be read: Is a directory");
}

TEST(DeviceFile, IsReadFromDisk) {
  const std::filesystem::path path = std::filesystem::path(testing::TempDir()) / "mine-own.toml";
  // More than is read at once.
  std::ofstream(path) << "# " << std::string(5'000'000, 'x')
                      << "\n[[process]]\nname = \"launchd\"\n";
  const auto device = readDeviceFile(path.string());
  std::filesystem::remove(path);
  ASSERT_TRUE(std::holds_alternative<Device>(device));
  EXPECT_EQ(std::get<Device>(device).name, "mine-own");
  EXPECT_EQ(std::get<Device>(device).processes.at(0).name, "launchd");
}

}  // namespace
