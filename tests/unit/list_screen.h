// What tests of the list screen share: a machine with known figures, all sections switched off, and
// the texts that change from run to run taken out of what was shown.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "columns/perspective.h"
#include "darwin/mach_host.h"
#include "device/gestalt.h"
#include "tests/unit/sampled_machine.h"

namespace sampled {

class ListScreenTest : public SampledTest {
 protected:
  ListScreenTest() {
    using namespace sondex;
    host_self = darwin::mach_host_self();
    g_hostName = strdup("iPhone");
    // Half a minute from where the shown minutes change.
    machine.boot.tv_sec = std::time(nullptr) - (86400 + 3600 + 60 + 30);
    machine.load = {{1024, 2048, 4608}, 2048};
    store(g_Processors, 0);
    store(g_showMemory, 0);
    store(g_Compression, 0);
    store(g_Swap, 0);
    perspective.numColumns = 0;
    setDefaultPerspective(&perspective);
  }

  // A current table with these short names; their PIDs count from 101.
  sondex::ProcessRecord *current(const std::vector<std::string> &names) {
    using namespace sondex;
    releaseProcessTable(load(g_process_information));
    ProcessRecord *table = allocateProcessTable(names.size() + 1);
    for (size_t i = 0; i < names.size(); i++) {
      table[i].taskAllInfo.pbsd.pbi_pid = static_cast<uint32_t>(101 + i);
      std::strncpy(table[i].taskAllInfo.pbsd.pbi_comm, names[i].c_str(), 15);
    }
    store(g_process_information, table);
    store(num_procs, static_cast<int32_t>(names.size()));
    return table;
  }

  // What stands before the uptime, checked and taken off: the device's answers, the host's name,
  // the time of day.
  static std::string afterIdentity(const std::string &shown, const std::string &host = "iPhone") {
    const std::string front = deviceAnswers() + host;
    EXPECT_EQ(shown.substr(0, front.size()), front);
    constexpr size_t kClockLength = sizeof " 12:34:56 " - 1;
    if (shown.size() < front.size() + kClockLength) return shown;
    const std::string clock = shown.substr(front.size(), kClockLength);
    EXPECT_TRUE(isClockOfTheLastSeconds(clock)) << clock;
    return shown.substr(front.size() + kClockLength);
  }

  sondex::Perspective perspective{};

 private:
  static std::string answer(const char *key) {
    const char *text = sondex::gestaltAnswer(key);
    return text == nullptr ? "?" : text;
  }

  static std::string deviceAnswers() {
    if (sondex::gestaltAnswer("marketing-name") == nullptr) return "";
    return answer("marketing-name") + answer("ProductName") + answer("ProductVersion") + ", " +
           answer("BuildVersion") + ") ";
  }

  static bool isClockOfTheLastSeconds(const std::string &clock) {
    const std::time_t now = std::time(nullptr);
    for (std::time_t then = now - 60; then <= now; then++) {
      std::tm local{};
      char text[16];
      std::strftime(text, sizeof text, " %H:%M:%S ", localtime_r(&then, &local));
      if (clock == text) return true;
    }
    return false;
  }
};

}  // namespace sampled
