// What becomes of a device file before a test uses it.
#include "harness/stepped_device.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

namespace test {
namespace {

TEST(SteppedClock, IsTheOnlyChange) {
  EXPECT_EQ(withSteppedClock("[clock]\nmode = \"wall\"\nstep = 1\n"),
            "[clock]\nmode = \"stepped\"\nstep = 1\n");
  EXPECT_EQ(withSteppedClock("  mode=\"wall\" # as it is\n"), "  mode=\"stepped\" # as it is\n");
  EXPECT_EQ(withSteppedClock("mode = \"wall\""), "mode = \"stepped\"");
  EXPECT_EQ(withSteppedClock("mode = \"stepped\"\n"), "mode = \"stepped\"\n");
}

TEST(SteppedClock, WantsOneLineOnTheMode) {
  EXPECT_THROW(withSteppedClock(""), std::runtime_error);
  EXPECT_THROW(withSteppedClock("mode = \"stepped\"\nmode = \"wall\"\n"), std::runtime_error);
  EXPECT_THROW(withSteppedClock("mode = \"other\"\n"), std::runtime_error);
  EXPECT_THROW(withSteppedClock("# mode = \"wall\"\n"), std::runtime_error);
  EXPECT_THROW(withSteppedClock("mode = \"wall\"\nmode = \"wall\"\n"), std::runtime_error);
  EXPECT_THROW(withSteppedClock("host = \"mode = wall\"\n"), std::runtime_error);
}

TEST(SteppedDevice, OfAnUnknownNameIsRefused) {
  EXPECT_THROW(SteppedDevice("no such device"), std::system_error);
}

}  // namespace
}  // namespace test
