// The objects in which the platform's power and identity services answer: reference-counted texts,
// numbers, flags, lists and dictionaries. Functions with Create or Copy in their name give a
// reference that the caller releases, others one that holds as long as the object asked. Only
// CFRetain, CFRelease, CFShow and CFGetTypeID take an object of any type; none takes null, except
// where it says so.
#pragma once

#include <cstdint>

namespace darwin {

using CFIndex = long;
using CFTypeID = unsigned long;
using CFNumberType = CFIndex;
using CFStringEncoding = uint32_t;
using Boolean = uint8_t;
using UInt8 = uint8_t;

using CFTypeRef = const void *;
using CFPropertyListRef = CFTypeRef;
using CFAllocatorRef = const struct __CFAllocator *;
using CFStringRef = const struct __CFString *;
using CFNumberRef = const struct __CFNumber *;
using CFBooleanRef = const struct __CFBoolean *;
using CFArrayRef = const struct __CFArray *;
using CFDictionaryRef = const struct __CFDictionary *;
using CFDataRef = const struct __CFData *;

constexpr CFStringEncoding kCFStringEncodingMacRoman = 0;

constexpr CFNumberType kCFNumberSInt32Type = 3;

extern "C" {

CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);

// A description in one or more lines, to standard error.
void CFShow(CFTypeRef object);

// Types are numbers to compare with those below.
CFTypeID CFGetTypeID(CFTypeRef object);
CFTypeID CFStringGetTypeID(void);
CFTypeID CFNumberGetTypeID(void);
CFTypeID CFBooleanGetTypeID(void);

// A null allocator is the usual one. Null when the text is not one of that encoding.
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char *text,
                                      CFStringEncoding encoding);
// The text as the object stores it; null when it stores it in another form.
const char *CFStringGetCStringPtr(CFStringRef string, CFStringEncoding encoding);

// Writes the number in the C type that `type` names; 0 when it does not fit.
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void *value);

Boolean CFBooleanGetValue(CFBooleanRef flag);

CFIndex CFArrayGetCount(CFArrayRef array);
const void *CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
// Null when there is no such key. Keys are the same when their contents are.
const void *CFDictionaryGetValue(CFDictionaryRef dictionary, const void *key);
// Writes as many of each as the dictionary counts, in matching order. Either may be null.
void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void **keys,
                                  const void **values);

// The object as a property list in XML; null when it holds what a property list can't.
CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator, CFPropertyListRef object);
const UInt8 *CFDataGetBytePtr(CFDataRef data);
CFIndex CFDataGetLength(CFDataRef data);

}  // extern "C"

}  // namespace darwin
