// CoreFoundation: reference-counted texts, numbers, flags, bytes, lists and dictionaries, and
// property lists made of them.
#include "host/entry/core_foundation.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>
#include <concepts>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "host/entry/answer.h"

namespace host {

namespace {

using Text = std::string;
using Number = std::variant<int64_t, double>;
using Flag = bool;
using Bytes = std::vector<uint8_t>;
using List = std::vector<ObjectReference>;
using Dictionary = std::vector<DictionaryEntry>;

// In the order of the types below.
using Content = std::variant<Text, Number, Flag, Bytes, List, Dictionary>;

constexpr darwin::CFTypeID kStringType = 7;
constexpr darwin::CFTypeID kDictionaryType = 18;
constexpr darwin::CFTypeID kArrayType = 19;
constexpr darwin::CFTypeID kDataType = 20;
constexpr darwin::CFTypeID kBooleanType = 21;
constexpr darwin::CFTypeID kNumberType = 22;
constexpr darwin::CFTypeID kTypes[] = {kStringType, kNumberType, kBooleanType,
                                       kDataType,   kArrayType,  kDictionaryType};

constexpr darwin::CFNumberType kSInt64Type = 4;
constexpr darwin::CFNumberType kFloat64Type = 6;
constexpr darwin::CFNumberType kIntType = 9;
constexpr darwin::CFNumberType kLongType = 10;
constexpr darwin::CFNumberType kDoubleType = 13;

constexpr darwin::CFStringEncoding kASCII = 0x0600;
constexpr darwin::CFStringEncoding kUTF8 = 0x08000100;

std::atomic<size_t> g_liveObjects{0};

struct Object {
  template <typename T>
  requires(!std::same_as<std::decay_t<T>, Object>) explicit Object(T &&with)
      : content(std::in_place_type<std::decay_t<T>>, std::forward<T>(with)) {
    g_liveObjects++;
  }
  Object(const Object &) = delete;
  Object &operator=(const Object &) = delete;
  ~Object() { g_liveObjects--; }

  std::atomic<size_t> references{1};
  bool isPermanent = false;
  const Content content;
};

const Object *objectOf(const void *reference) {
  return static_cast<const Object *>(reference);
}

// Null for an object of another type. No object at all is a fault, as it is on a device.
template <typename T>
const T *contentOf(const void *reference) {
  return std::get_if<T>(&objectOf(reference)->content);
}

template <typename T>
ObjectReference makeObject(T &&content) {
  return ObjectReference(new Object(std::forward<T>(content)));
}

// The two flags stay for the whole run and don't count as live.
const Object &flagObject(bool flag) {
  const auto make = [](bool value) {
    Object *object = new Object(Flag{value});
    object->isPermanent = true;
    g_liveObjects--;
    return object;
  };
  static const Object *const kFalse = make(false);
  static const Object *const kTrue = make(true);
  return flag ? *kTrue : *kFalse;
}

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > 0; });
}

bool isSame(const void *one, const void *other) {
  if (one == other) return true;
  const Content &left = objectOf(one)->content;
  const Content &right = objectOf(other)->content;
  if (const Text *text = std::get_if<Text>(&left)) {
    const Text *against = std::get_if<Text>(&right);
    return against != nullptr && *text == *against;
  }
  if (const Number *number = std::get_if<Number>(&left)) {
    const Number *against = std::get_if<Number>(&right);
    return against != nullptr && *number == *against;
  }
  return false;
}

std::string textOf(double number) {
  char text[32];
  const std::to_chars_result end = std::to_chars(text, text + sizeof text, number);
  return {text, end.ptr};
}

std::string textOf(const Number &number) {
  if (const int64_t *whole = std::get_if<int64_t>(&number)) return std::to_string(*whole);
  return textOf(std::get<double>(number));
}

std::string describe(const void *reference) {
  const Content &content = objectOf(reference)->content;
  if (const Text *text = std::get_if<Text>(&content)) return *text;
  if (const Number *number = std::get_if<Number>(&content)) return textOf(*number);
  if (const Flag *flag = std::get_if<Flag>(&content)) return *flag ? "true" : "false";
  if (const Bytes *bytes = std::get_if<Bytes>(&content)) {
    return std::to_string(bytes->size()) + " bytes";
  }
  std::string all;
  if (const List *list = std::get_if<List>(&content)) {
    for (const ObjectReference &value : *list) {
      all += (all.empty() ? "" : ", ") + describe(value.get());
    }
    return "(" + all + ")";
  }
  for (const DictionaryEntry &entry : std::get<Dictionary>(content)) {
    all += (all.empty() ? "" : ", ") + describe(entry.first.get()) + " = " +
           describe(entry.second.get());
  }
  return "{" + all + "}";
}

void addEscaped(std::string_view text, std::string &xml) {
  for (const char c : text) {
    switch (c) {
      case '&':
        xml += "&amp;";
        break;
      case '<':
        xml += "&lt;";
        break;
      case '>':
        xml += "&gt;";
        break;
      default:
        xml += c;
    }
  }
}

// A value as a property list has it. False for what dictionaries of power sources don't hold: other
// values than texts, whole numbers and flags.
bool addValue(const void *reference, std::string &xml) {
  const Content &content = objectOf(reference)->content;
  if (const Text *text = std::get_if<Text>(&content)) {
    xml += "<string>";
    addEscaped(*text, xml);
    xml += "</string>";
    return true;
  }
  if (const Flag *flag = std::get_if<Flag>(&content)) {
    xml += *flag ? "<true/>" : "<false/>";
    return true;
  }
  const Number *number = std::get_if<Number>(&content);
  if (number == nullptr || !std::holds_alternative<int64_t>(*number)) return false;
  xml += "<integer>" + textOf(*number) + "</integer>";
  return true;
}

// Keys come in their order, and have to be texts.
bool addDictionary(const Dictionary &dictionary, std::string &xml) {
  std::vector<std::pair<std::string_view, const void *>> sorted;
  for (const DictionaryEntry &entry : dictionary) {
    const Text *key = contentOf<Text>(entry.first.get());
    if (key == nullptr) return false;
    sorted.emplace_back(*key, entry.second.get());
  }
  std::sort(sorted.begin(), sorted.end());
  xml += "<dict>\n";
  for (const auto &[key, value] : sorted) {
    xml += "\t<key>";
    addEscaped(key, xml);
    xml += "</key>\n\t";
    if (!addValue(value, xml)) return false;
    xml += "\n";
  }
  xml += "</dict>\n";
  return true;
}

// The number as a whole one; false when it has a fraction or does not fit.
bool wholeNumber(const Number &number, int64_t &whole) {
  if (const int64_t *value = std::get_if<int64_t>(&number)) {
    whole = *value;
    return true;
  }
  const double value = std::get<double>(number);
  constexpr double kLimit = 9223372036854775808.0;
  if (!(value >= -kLimit && value < kLimit) || std::trunc(value) != value) return false;
  whole = static_cast<int64_t>(value);
  return true;
}

template <typename T>
bool copyWhole(const Number &number, void *to) {
  int64_t whole = 0;
  if (!wholeNumber(number, whole)) return false;
  if (whole < std::numeric_limits<T>::min() || whole > std::numeric_limits<T>::max()) return false;
  const T value = static_cast<T>(whole);
  std::memcpy(to, &value, sizeof value);
  return true;
}

bool copyDouble(const Number &number, void *to) {
  const int64_t *whole = std::get_if<int64_t>(&number);
  const double value = whole != nullptr ? static_cast<double>(*whole) : std::get<double>(number);
  if (whole != nullptr && (value >= 9223372036854775808.0 || static_cast<int64_t>(value) != *whole))
    return false;
  std::memcpy(to, &value, sizeof value);
  return true;
}

// A reference to a new object, or null when `make` made none or memory ran out.
template <typename Reference, typename Make>
Reference created(Make &&make) noexcept {
  ObjectReference object;
  guarded([&]() -> Errno {
    object = make();
    return kAnswered;
  });
  return object.release<Reference>();
}

}  // namespace

ObjectReference::ObjectReference(const ObjectReference &other)
    : object_(other.object_ == nullptr ? nullptr : darwin::CFRetain(other.object_)) {}

ObjectReference::~ObjectReference() {
  if (object_ != nullptr) darwin::CFRelease(object_);
}

ObjectReference makeString(std::string text) {
  return makeObject(std::move(text));
}
ObjectReference makeNumber(int64_t number) {
  return makeObject(Number(number));
}
ObjectReference makeNumber(double number) {
  return makeObject(Number(number));
}
ObjectReference makeBoolean(bool flag) {
  return ObjectReference(&flagObject(flag));
}
ObjectReference makeData(std::vector<uint8_t> bytes) {
  return makeObject(std::move(bytes));
}
ObjectReference makeArray(std::vector<ObjectReference> values) {
  return makeObject(std::move(values));
}

ObjectReference makeDictionary(std::vector<DictionaryEntry> entries) {
  Dictionary dictionary;
  for (DictionaryEntry &entry : entries) {
    const bool isThere = std::any_of(
        dictionary.begin(), dictionary.end(),
        [&](const DictionaryEntry &other) { return isSame(other.first.get(), entry.first.get()); });
    if (!isThere) dictionary.push_back(std::move(entry));
  }
  return makeObject(std::move(dictionary));
}

darwin::CFArrayRef asArray(darwin::CFTypeRef object) {
  const bool isArray = object != nullptr && contentOf<List>(object) != nullptr;
  return isArray ? static_cast<darwin::CFArrayRef>(object) : nullptr;
}
darwin::CFDictionaryRef asDictionary(darwin::CFTypeRef object) {
  const bool isDictionary = object != nullptr && contentOf<Dictionary>(object) != nullptr;
  return isDictionary ? static_cast<darwin::CFDictionaryRef>(object) : nullptr;
}

size_t liveObjects() {
  return g_liveObjects;
}

}  // namespace host

namespace darwin {

CFTypeRef CFRetain(CFTypeRef object) {
  const_cast<host::Object *>(host::objectOf(object))->references++;
  return object;
}

void CFRelease(CFTypeRef object) {
  host::Object *released = const_cast<host::Object *>(host::objectOf(object));
  if (released->isPermanent) return;
  if (--released->references == 0) delete released;
}

void CFShow(CFTypeRef object) {
  host::guarded([object]() -> host::Errno {
    const std::string text = object == nullptr ? "(null)" : host::describe(object);
    std::fprintf(stderr, "%s\n", text.c_str());
    return host::kAnswered;
  });
}

CFTypeID CFGetTypeID(CFTypeRef object) {
  return host::kTypes[host::objectOf(object)->content.index()];
}
CFTypeID CFStringGetTypeID(void) {
  return host::kStringType;
}
CFTypeID CFNumberGetTypeID(void) {
  return host::kNumberType;
}
CFTypeID CFBooleanGetTypeID(void) {
  return host::kBooleanType;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char *text, CFStringEncoding encoding) {
  if (text == nullptr) return nullptr;
  // Beyond ASCII only UTF-8 is understood here.
  if (encoding != host::kUTF8 && !host::isASCII(text)) return nullptr;
  return host::created<CFStringRef>([text] { return host::makeString(text); });
}

const char *CFStringGetCStringPtr(CFStringRef string, CFStringEncoding encoding) {
  const host::Text *text = host::contentOf<host::Text>(string);
  const bool isKnown =
      encoding == kCFStringEncodingMacRoman || encoding == host::kASCII || encoding == host::kUTF8;
  return text != nullptr && isKnown && host::isASCII(*text) ? text->c_str() : nullptr;
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void *value) {
  const host::Number *held = host::contentOf<host::Number>(number);
  if (held == nullptr || value == nullptr) return 0;
  switch (type) {
    case kCFNumberSInt32Type:
    case host::kIntType:
      return host::copyWhole<int32_t>(*held, value) ? 1 : 0;
    case host::kSInt64Type:
    case host::kLongType:
      return host::copyWhole<int64_t>(*held, value) ? 1 : 0;
    case host::kFloat64Type:
    case host::kDoubleType:
      return host::copyDouble(*held, value) ? 1 : 0;
    default:
      return 0;
  }
}

Boolean CFBooleanGetValue(CFBooleanRef flag) {
  const host::Flag *held = host::contentOf<host::Flag>(flag);
  return held != nullptr && *held ? 1 : 0;
}

CFIndex CFArrayGetCount(CFArrayRef array) {
  const host::List *list = host::contentOf<host::List>(array);
  return list == nullptr ? 0 : static_cast<CFIndex>(list->size());
}

const void *CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  if (index < 0 || index >= CFArrayGetCount(array)) return nullptr;
  return (*host::contentOf<host::List>(array))[static_cast<size_t>(index)].get();
}

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary) {
  const host::Dictionary *entries = host::contentOf<host::Dictionary>(dictionary);
  return entries == nullptr ? 0 : static_cast<CFIndex>(entries->size());
}

const void *CFDictionaryGetValue(CFDictionaryRef dictionary, const void *key) {
  const host::Dictionary *entries = host::contentOf<host::Dictionary>(dictionary);
  if (entries == nullptr || key == nullptr) return nullptr;
  for (const host::DictionaryEntry &entry : *entries) {
    if (host::isSame(entry.first.get(), key)) return entry.second.get();
  }
  return nullptr;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void **keys,
                                  const void **values) {
  const host::Dictionary *entries = host::contentOf<host::Dictionary>(dictionary);
  if (entries == nullptr) return;
  for (const host::DictionaryEntry &entry : *entries) {
    if (keys != nullptr) *keys++ = entry.first.get();
    if (values != nullptr) *values++ = entry.second.get();
  }
}

CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef, CFPropertyListRef object) {
  if (object == nullptr) return nullptr;
  const host::Dictionary *dictionary = host::contentOf<host::Dictionary>(object);
  if (dictionary == nullptr) return nullptr;
  return host::created<CFDataRef>([dictionary] {
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        "<plist version=\"1.0\">\n";
    if (!host::addDictionary(*dictionary, xml)) return host::ObjectReference();
    xml += "</plist>\n";
    return host::makeData(std::vector<uint8_t>(xml.begin(), xml.end()));
  });
}

const UInt8 *CFDataGetBytePtr(CFDataRef data) {
  const host::Bytes *bytes = host::contentOf<host::Bytes>(data);
  return bytes == nullptr ? nullptr : bytes->data();
}

CFIndex CFDataGetLength(CFDataRef data) {
  const host::Bytes *bytes = host::contentOf<host::Bytes>(data);
  return bytes == nullptr ? 0 : static_cast<CFIndex>(bytes->size());
}

}  // namespace darwin
