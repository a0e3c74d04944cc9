// Devices from the text of a device file, for tests of what each key does.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

#include "host/simulator/device_file.h"

namespace device_file_test {

inline constexpr std::string_view kFile = "devices/mine.toml";

// Throws for a mistake, which fails the test with its text.
inline host::simulator::Device deviceOf(std::string_view text) {
  auto read = host::simulator::parseDevice(text, kFile);
  if (const auto *mistake = std::get_if<host::simulator::Mistake>(&read)) {
    throw std::runtime_error(mistake->text());
  }
  return std::get<host::simulator::Device>(std::move(read));
}

// The mistake's text, or "none".
inline std::string mistakeIn(std::string_view text) {
  const auto read = host::simulator::parseDevice(text, kFile);
  const auto *mistake = std::get_if<host::simulator::Mistake>(&read);
  return mistake != nullptr ? mistake->text() : "none";
}

// A device with one process, of which these are the further keys.
inline host::simulator::Process processOf(const std::string &keys) {
  return deviceOf("[[process]]\nname = \"one\"\npid = 7\n" + keys + "\n").processes.at(0);
}

// The same with one thread, descriptor or region.
inline host::simulator::Thread threadOf(const std::string &keys) {
  return processOf("threads = [{ " + keys + " }]").threads.at(0);
}
inline host::simulator::Descriptor descriptorOf(const std::string &keys) {
  return processOf("descriptors = [{ " + keys + " }]").descriptors.at(0);
}
inline host::simulator::Region regionOf(const std::string &keys) {
  return processOf("regions = [{ address = 0x4000, size = \"16K\", " + keys + " }]").regions.at(0);
}

// A device with some processes and one event, of which these are the keys.
inline host::simulator::Event eventOf(const std::string &keys) {
  return deviceOf(
             "power = { source = [{}, {}] }\n"
             "[[process]]\nname = \"launchd\"\npid = 1\n"
             "[[process]]\nname = \"twin\"\npriority = 20\npolicy = \"fifo\"\npid = 40\n"
             "[[event]]\n" +
             keys + "\n")
      .events.at(0);
}

inline bool operator==(const host::simulator::Figure &a, const host::simulator::Figure &b) {
  return a.start == b.start && a.growth == b.growth && a.swing == b.swing && a.period == b.period &&
         a.from == b.from;
}

}  // namespace device_file_test
