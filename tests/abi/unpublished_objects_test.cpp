// CoreFoundation, power sources and the identity service have no public headers in the SDK: their
// types and numbers against those written down here.
#include <gtest/gtest.h>

#include <string_view>
#include <type_traits>

#include "darwin/core_foundation.h"
#include "darwin/gestalt.h"
#include "darwin/kext.h"
#include "darwin/power_sources.h"
#include "layouts.h"

namespace {

TEST(UnpublishedObjects, TypesHaveThePlatformsWidth) {
  EXPECT_EQ(sizeof(darwin::CFIndex), 8u);
  EXPECT_TRUE(std::is_signed_v<darwin::CFIndex>);
  EXPECT_EQ(sizeof(darwin::CFTypeID), 8u);
  EXPECT_TRUE(std::is_unsigned_v<darwin::CFTypeID>);
  EXPECT_EQ(sizeof(darwin::CFNumberType), 8u);
  EXPECT_EQ(sizeof(darwin::CFStringEncoding), 4u);
  EXPECT_EQ(sizeof(darwin::Boolean), 1u);
  EXPECT_EQ(sizeof(darwin::UInt8), 1u);
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

TEST(UnpublishedObjects, PrototypesOfObjects) {
  using namespace darwin;
  EXPECT_TRUE((std::is_same_v<CFTypeRef, const void *>));
  EXPECT_TRUE((std::is_same_v<CFPropertyListRef, CFTypeRef>));
  EXPECT_PROTOTYPE(CFRetain, CFTypeRef(CFTypeRef));
  EXPECT_PROTOTYPE(CFRelease, void(CFTypeRef));
  EXPECT_PROTOTYPE(CFShow, void(CFTypeRef));
  EXPECT_PROTOTYPE(CFGetTypeID, CFTypeID(CFTypeRef));
  EXPECT_PROTOTYPE(CFStringGetTypeID, CFTypeID());
  EXPECT_PROTOTYPE(CFNumberGetTypeID, CFTypeID());
  EXPECT_PROTOTYPE(CFBooleanGetTypeID, CFTypeID());
  EXPECT_PROTOTYPE(CFStringCreateWithCString,
                   CFStringRef(CFAllocatorRef, const char *, CFStringEncoding));
  EXPECT_PROTOTYPE(CFStringGetCStringPtr, const char *(CFStringRef, CFStringEncoding));
  EXPECT_PROTOTYPE(CFNumberGetValue, Boolean(CFNumberRef, CFNumberType, void *));
  EXPECT_PROTOTYPE(CFBooleanGetValue, Boolean(CFBooleanRef));
  EXPECT_PROTOTYPE(CFArrayGetCount, CFIndex(CFArrayRef));
  EXPECT_PROTOTYPE(CFArrayGetValueAtIndex, const void *(CFArrayRef, CFIndex));
  EXPECT_PROTOTYPE(CFDictionaryGetCount, CFIndex(CFDictionaryRef));
  EXPECT_PROTOTYPE(CFDictionaryGetValue, const void *(CFDictionaryRef, const void *));
  EXPECT_PROTOTYPE(CFDictionaryGetKeysAndValues,
                   void(CFDictionaryRef, const void **, const void **));
  EXPECT_PROTOTYPE(CFPropertyListCreateXMLData, CFDataRef(CFAllocatorRef, CFPropertyListRef));
  EXPECT_PROTOTYPE(CFDataGetBytePtr, const UInt8 *(CFDataRef));
  EXPECT_PROTOTYPE(CFDataGetLength, CFIndex(CFDataRef));
}

TEST(UnpublishedObjects, PrototypesOfServices) {
  using namespace darwin;
  EXPECT_PROTOTYPE(IOPSCopyPowerSourcesInfo, CFTypeRef());
  EXPECT_PROTOTYPE(IOPSCopyPowerSourcesList, CFArrayRef(CFTypeRef));
  EXPECT_PROTOTYPE(IOPSGetPowerSourceDescription, CFDictionaryRef(CFTypeRef, CFTypeRef));
  EXPECT_PROTOTYPE(IOPSGetTimeRemainingEstimate, CFTimeInterval());
  EXPECT_PROTOTYPE(IOPMCopyAssertionsByProcess, IOReturn(CFDictionaryRef *));
  EXPECT_PROTOTYPE(OSKextCopyLoadedKextInfo, CFDictionaryRef(CFArrayRef, CFArrayRef));
}

}  // namespace
