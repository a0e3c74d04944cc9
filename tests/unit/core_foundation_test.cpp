// The objects behind CoreFoundation's references: who owns them, how they compare, what can be had
// out of them, and the property list that is made of them.
#include "host/entry/core_foundation.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <limits>
#include <string>

namespace darwin {
namespace {

using host::DictionaryEntry;
using host::liveObjects;
using host::makeArray;
using host::makeBoolean;
using host::makeData;
using host::makeDictionary;
using host::makeNumber;
using host::makeString;
using host::ObjectReference;

constexpr CFStringEncoding kASCII = 0x0600;
constexpr CFStringEncoding kUTF8 = 0x08000100;
constexpr CFStringEncoding kUTF16 = 0x0100;

class CoreFoundation : public testing::Test {
 protected:
  ~CoreFoundation() override { EXPECT_EQ(liveObjects(), m_before) << "objects are left"; }

  static CFStringRef string(const ObjectReference &object) {
    return static_cast<CFStringRef>(object.get());
  }
  static CFNumberRef number(const ObjectReference &object) {
    return static_cast<CFNumberRef>(object.get());
  }
  static CFDictionaryRef dictionary(const ObjectReference &object) {
    return static_cast<CFDictionaryRef>(object.get());
  }

  static DictionaryEntry entry(const char *key, ObjectReference value) {
    return {makeString(key), std::move(value)};
  }

 private:
  size_t m_before = liveObjects();
};

TEST_F(CoreFoundation, ObjectsEndWithTheirLastReference) {
  const size_t before = liveObjects();
  const CFStringRef text = CFStringCreateWithCString(nullptr, "text", kCFStringEncodingMacRoman);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(liveObjects(), before + 1);
  EXPECT_EQ(CFRetain(text), text);
  CFRelease(text);
  EXPECT_EQ(liveObjects(), before + 1);
  EXPECT_STREQ(CFStringGetCStringPtr(text, kCFStringEncodingMacRoman), "text");
  CFRelease(text);
  EXPECT_EQ(liveObjects(), before);
}

TEST_F(CoreFoundation, ContainersHoldWhatIsInThem) {
  const size_t before = liveObjects();
  ObjectReference value = makeNumber(int64_t{1});
  ObjectReference array = makeArray({value, makeString("b")});
  EXPECT_EQ(liveObjects(), before + 3);
  const CFTypeRef kept = value.get();
  value = ObjectReference();
  EXPECT_EQ(CFArrayGetValueAtIndex(static_cast<CFArrayRef>(array.get()), 0), kept);
  EXPECT_EQ(liveObjects(), before + 3);
  array = ObjectReference();
  EXPECT_EQ(liveObjects(), before);
}

TEST_F(CoreFoundation, FlagsAreNeverReleased) {
  const size_t before = liveObjects();
  const ObjectReference yes = makeBoolean(true);
  EXPECT_EQ(liveObjects(), before);
  CFRelease(yes.get());
  CFRelease(yes.get());
  EXPECT_EQ(CFBooleanGetValue(static_cast<CFBooleanRef>(yes.get())), 1);
  EXPECT_EQ(CFBooleanGetValue(static_cast<CFBooleanRef>(makeBoolean(false).get())), 0);
  EXPECT_EQ(makeBoolean(true).get(), yes.get());
}

TEST_F(CoreFoundation, TypesAreThePlatforms) {
  EXPECT_EQ(CFGetTypeID(makeString("").get()), 7u);
  EXPECT_EQ(CFGetTypeID(makeDictionary({}).get()), 18u);
  EXPECT_EQ(CFGetTypeID(makeArray({}).get()), 19u);
  EXPECT_EQ(CFGetTypeID(makeData({}).get()), 20u);
  EXPECT_EQ(CFGetTypeID(makeBoolean(true).get()), 21u);
  EXPECT_EQ(CFGetTypeID(makeNumber(int64_t{0}).get()), 22u);
  EXPECT_EQ(CFGetTypeID(makeNumber(0.5).get()), 22u);
  EXPECT_EQ(CFStringGetTypeID(), 7u);
  EXPECT_EQ(CFBooleanGetTypeID(), 21u);
  EXPECT_EQ(CFNumberGetTypeID(), 22u);
}

TEST_F(CoreFoundation, OnlyASCIIHasADirectPointer) {
  const ObjectReference plain = makeString("iPhone \x7f");
  for (const CFStringEncoding encoding : {kCFStringEncodingMacRoman, kASCII, kUTF8}) {
    EXPECT_STREQ(CFStringGetCStringPtr(string(plain), encoding), "iPhone \x7f");
  }
  EXPECT_EQ(CFStringGetCStringPtr(string(plain), kUTF16), nullptr);
  EXPECT_STREQ(CFStringGetCStringPtr(string(makeString("")), kUTF8), "");
  for (const std::string &text : {std::string("Ren\u00e9s iPhone"), std::string("a\0b", 3)}) {
    const ObjectReference other = makeString(text);
    for (const CFStringEncoding encoding : {kCFStringEncodingMacRoman, kASCII, kUTF8}) {
      EXPECT_EQ(CFStringGetCStringPtr(string(other), encoding), nullptr) << text;
    }
  }
}

TEST_F(CoreFoundation, TextsAreMadeOfWhatTheirEncodingHas) {
  EXPECT_EQ(CFStringCreateWithCString(nullptr, nullptr, kUTF8), nullptr);
  EXPECT_EQ(CFStringCreateWithCString(nullptr, "\xc3\xa9", kASCII), nullptr);
  const ObjectReference text(CFStringCreateWithCString(nullptr, "\xc3\xa9", kUTF8));
  EXPECT_NE(text.get(), nullptr);
}

TEST_F(CoreFoundation, NumbersAreGivenWhereTheyFit) {
  int32_t narrow = 7;
  EXPECT_EQ(CFNumberGetValue(number(makeNumber(int64_t{-100})), 3, &narrow), 1);
  EXPECT_EQ(narrow, -100);
  for (const int64_t edge : {int64_t{INT32_MIN}, int64_t{INT32_MAX}}) {
    EXPECT_EQ(CFNumberGetValue(number(makeNumber(edge)), 9, &narrow), 1);
    EXPECT_EQ(narrow, edge);
  }
  narrow = 7;
  for (const int64_t beyond : {int64_t{INT32_MIN} - 1, int64_t{INT32_MAX} + 1, INT64_MAX}) {
    EXPECT_EQ(CFNumberGetValue(number(makeNumber(beyond)), 3, &narrow), 0);
  }
  EXPECT_EQ(CFNumberGetValue(number(makeNumber(0.5)), 3, &narrow), 0);
  EXPECT_EQ(CFNumberGetValue(number(makeNumber(int64_t{5})), 99, &narrow), 0);
  EXPECT_EQ(narrow, 7) << "nothing was written";

  int64_t wide = 0;
  for (const CFNumberType type : {CFNumberType{4}, CFNumberType{10}}) {
    EXPECT_EQ(CFNumberGetValue(number(makeNumber(INT64_MIN)), type, &wide), 1);
    EXPECT_EQ(wide, INT64_MIN);
    EXPECT_EQ(CFNumberGetValue(number(makeNumber(12.0)), type, &wide), 1);
    EXPECT_EQ(wide, 12);
    EXPECT_EQ(CFNumberGetValue(number(makeNumber(1e30)), type, &wide), 0);
    EXPECT_EQ(
        CFNumberGetValue(number(makeNumber(std::numeric_limits<double>::quiet_NaN())), type, &wide),
        0);
  }

  double real = 0;
  EXPECT_EQ(CFNumberGetValue(number(makeNumber(-2.25)), 13, &real), 1);
  EXPECT_EQ(real, -2.25);
  EXPECT_EQ(CFNumberGetValue(number(makeNumber(int64_t{3})), 13, &real), 1);
  EXPECT_EQ(real, 3.0);
  EXPECT_EQ(CFNumberGetValue(number(makeNumber(INT64_MAX)), 13, &real), 0);
}

TEST_F(CoreFoundation, ArraysHaveAnEnd) {
  const ObjectReference held = makeArray({makeString("a"), makeString("b")});
  const CFArrayRef array = host::asArray(held.get());
  ASSERT_NE(array, nullptr);
  EXPECT_EQ(CFArrayGetCount(array), 2);
  EXPECT_NE(CFArrayGetValueAtIndex(array, 1), nullptr);
  EXPECT_EQ(CFArrayGetValueAtIndex(array, 2), nullptr);
  EXPECT_EQ(CFArrayGetValueAtIndex(array, -1), nullptr);
  EXPECT_EQ(host::asArray(makeString("a").get()), nullptr);
  EXPECT_EQ(host::asArray(nullptr), nullptr);
}

TEST_F(CoreFoundation, KeysCompareByContent) {
  const ObjectReference held = makeDictionary({entry("one", makeNumber(int64_t{1})),
                                               {makeNumber(int64_t{7}), makeString("seven")},
                                               entry("one", makeNumber(int64_t{2}))});
  const CFDictionaryRef entries = host::asDictionary(held.get());
  ASSERT_NE(entries, nullptr);
  EXPECT_EQ(CFDictionaryGetCount(entries), 2) << "the first of the same keys";
  const auto found =
      static_cast<CFNumberRef>(CFDictionaryGetValue(entries, makeString("one").get()));
  ASSERT_NE(found, nullptr);
  int32_t value = 0;
  EXPECT_EQ(CFNumberGetValue(found, 3, &value), 1);
  EXPECT_EQ(value, 1);
  EXPECT_NE(CFDictionaryGetValue(entries, makeNumber(int64_t{7}).get()), nullptr);
  EXPECT_EQ(CFDictionaryGetValue(entries, makeNumber(int64_t{8}).get()), nullptr);
  EXPECT_EQ(CFDictionaryGetValue(entries, makeString("7").get()), nullptr);
  EXPECT_EQ(host::asDictionary(makeArray({}).get()), nullptr);
}

TEST_F(CoreFoundation, KeysAndValuesComeInMatchingOrder) {
  const ObjectReference held =
      makeDictionary({entry("a", makeNumber(int64_t{1})), entry("b", makeNumber(int64_t{2}))});
  const void *keys[3] = {};
  const void *values[3] = {};
  CFDictionaryGetKeysAndValues(dictionary(held), keys, values);
  for (int i = 0; i < 2; i++) {
    EXPECT_EQ(CFDictionaryGetValue(dictionary(held), keys[i]), values[i]);
  }
  EXPECT_EQ(keys[2], nullptr);
  EXPECT_EQ(values[2], nullptr);
  const void *again[2] = {};
  CFDictionaryGetKeysAndValues(dictionary(held), again, nullptr);
  EXPECT_EQ(again[1], keys[1]);
  CFDictionaryGetKeysAndValues(dictionary(held), nullptr, again);
  EXPECT_EQ(again[1], values[1]);
}

TEST_F(CoreFoundation, ShowsOnStandardError) {
  const struct {
    ObjectReference object;
    const char *text;
  } kRows[] = {
      {makeString("text"), "text\n"},
      {makeNumber(int64_t{-5}), "-5\n"},
      {makeNumber(0.25), "0.25\n"},
      {makeBoolean(true), "true\n"},
      {makeData({1, 2}), "2 bytes\n"},
      {makeArray({makeString("a"), makeBoolean(false)}), "(a, false)\n"},
      {makeDictionary({entry("a", makeNumber(int64_t{1})), entry("b", makeArray({}))}),
       "{a = 1, b = ()}\n"},
      {ObjectReference(), "(null)\n"},
  };
  for (const auto &row : kRows) {
    testing::internal::CaptureStderr();
    CFShow(row.object.get());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), row.text);
  }
}

std::string listOf(const ObjectReference &object) {
  const ObjectReference data(CFPropertyListCreateXMLData(nullptr, object.get()));
  if (data.get() == nullptr) return "none";
  const auto bytes = static_cast<CFDataRef>(data.get());
  return {reinterpret_cast<const char *>(CFDataGetBytePtr(bytes)),
          static_cast<size_t>(CFDataGetLength(bytes))};
}

constexpr char kFront[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";

TEST_F(CoreFoundation, PropertyListHoldsTextsWholeNumbersAndFlags) {
  const ObjectReference object =
      makeDictionary({entry("text", makeString("a < b & c > d")), entry("off", makeBoolean(false)),
                      entry("<key>", makeNumber(int64_t{-3})), entry("on", makeBoolean(true))});
  EXPECT_EQ(listOf(object), std::string(kFront) +
                                "<dict>\n"
                                "\t<key>&lt;key&gt;</key>\n\t<integer>-3</integer>\n"
                                "\t<key>off</key>\n\t<false/>\n"
                                "\t<key>on</key>\n\t<true/>\n"
                                "\t<key>text</key>\n\t<string>a &lt; b &amp; c &gt; d</string>\n"
                                "</dict>\n</plist>\n");
}

TEST_F(CoreFoundation, PropertyListOfAnythingElseIsNone) {
  EXPECT_EQ(listOf(makeDictionary({{makeNumber(int64_t{1}), makeString("v")}})), "none");
  EXPECT_EQ(listOf(makeDictionary({entry("k", makeNumber(1.5))})), "none");
  EXPECT_EQ(listOf(makeDictionary({entry("k", makeData({1}))})), "none");
  EXPECT_EQ(listOf(makeDictionary({entry("k", makeArray({}))})), "none");
  EXPECT_EQ(listOf(makeDictionary({entry("k", makeDictionary({}))})), "none");
  EXPECT_EQ(listOf(makeArray({})), "none");
  EXPECT_EQ(listOf(ObjectReference()), "none");
}

}  // namespace
}  // namespace darwin
