// The zone of a captured machine: what TZ says, or the file that it or the system names.
#include "capture/time_zone.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

class TimeZone : public testing::Test {
 protected:
  ~TimeZone() override {
    unsetenv("TZ");
    tzset();
    std::filesystem::remove(file_);
  }

  std::string zoneFor(const std::string &variable) {
    setenv("TZ", variable.c_str(), 1);
    tzset();
    char zone[sondex::kZoneSize];
    return sondex::findTimeZone(zone);
  }

  // A file of a zone's history that ends like this.
  std::string fileEndingWith(const std::string &end) {
    std::ofstream(file_, std::ios::binary) << std::string(1000, '\0') << end;
    return file_;
  }

 private:
  std::string file_ =
      std::filesystem::temp_directory_path() / ("sondex-zone." + std::to_string(getpid()));
};

TEST_F(TimeZone, IsWhatTheVariableSays) {
  for (const char *zone : {"UTC", "JST-9", "CET-1CEST,M3.5.0,M10.5.0/3", "<+0530>-5:30"}) {
    EXPECT_EQ(zoneFor(zone), zone);
    EXPECT_EQ(zoneFor(std::string(":") + zone), zone);
  }
  EXPECT_EQ(zoneFor(""), "UTC");
}

TEST_F(TimeZone, IsAtTheEndOfTheFileThatItNames) {
  EXPECT_EQ(zoneFor(fileEndingWith("\nCET-1CEST,M3.5.0,M10.5.0/3\n")),
            "CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(zoneFor(":" + fileEndingWith("\nJST-9\n")), "JST-9");
  EXPECT_EQ(zoneFor(fileEndingWith("\nUTC0\n")), "UTC");
}

TEST_F(TimeZone, IsUTCWhereNothingIsToBeFound) {
  EXPECT_EQ(zoneFor(fileEndingWith("\nJST")), "UTC");         // without its end
  EXPECT_EQ(zoneFor(fileEndingWith("\n\n")), "UTC");          // no rule
  EXPECT_EQ(zoneFor(fileEndingWith("\n\x1b[2J9\n")), "UTC");  // none that could be one
  EXPECT_EQ(zoneFor(fileEndingWith("\nA" + std::string(300, 'B') + "1\n")), "UTC");
  EXPECT_EQ(zoneFor("/nowhere/at/all"), "UTC");
}

}  // namespace
