// CoreFoundation, power sources and the identity service have no public headers in the SDK: their
// types and numbers against those written down here.
#include <gtest/gtest.h>

#include <string_view>
#include <type_traits>

#include "darwin/core_foundation.h"
#include "darwin/gestalt.h"
#include "darwin/power_sources.h"

namespace {

TEST(UnpublishedObjects, TypesHaveThePlatformsWidth) {
  EXPECT_EQ(sizeof(darwin::CFIndex), 8u);
  EXPECT_TRUE(std::is_signed_v<darwin::CFIndex>);
  EXPECT_EQ(sizeof(darwin::CFTypeID), 8u);
  EXPECT_TRUE(std::is_unsigned_v<darwin::CFTypeID>);
  EXPECT_EQ(sizeof(darwin::CFNumberType), 8u);
  EXPECT_EQ(sizeof(darwin::CFStringEncoding), 4u);
  EXPECT_EQ(sizeof(darwin::Boolean), 1u);
  EXPECT_EQ(sizeof(darwin::IOReturn), 4u);
  EXPECT_TRUE((std::is_same_v<darwin::CFTimeInterval, double>));
}

TEST(UnpublishedObjects, NumbersAndNames) {
  EXPECT_EQ(darwin::kCFStringEncodingMacRoman, 0u);
  EXPECT_EQ(darwin::kCFNumberSInt32Type, 3);
  EXPECT_EQ(darwin::kIOPSTimeRemainingUnknown, -1.0);
  EXPECT_EQ(darwin::kIOPSTimeRemainingUnlimited, -2.0);
  EXPECT_EQ(std::string_view(darwin::kIOPSCurrentCapacityKey), "Current Capacity");
  EXPECT_EQ(std::string_view(darwin::kIOPSPowerSourceStateKey), "Power Source State");
  EXPECT_EQ(std::string_view(darwin::kIOPSIsChargingKey), "Is Charging");
  EXPECT_EQ(std::string_view(darwin::kGestaltLibrary), "/usr/lib/libMobileGestalt.dylib");
  EXPECT_EQ(std::string_view(darwin::kGestaltEntryPoint), "MGCopyAnswerWithError");
  EXPECT_TRUE((std::is_same_v<darwin::MGCopyAnswerWithError_function,
                              darwin::CFTypeRef (*)(darwin::CFStringRef, int *, ...)>));
}

}  // namespace
