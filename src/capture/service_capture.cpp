#include "capture/service_capture.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "capture/device_file_writer.h"
#include "capture/stand_ins.h"
#include "darwin/gestalt.h"
#include "darwin/interfaces.h"
#include "darwin/kext.h"
#include "darwin/power_sources.h"
#include "device/gestalt.h"
#include "screens/gestalt.h"

namespace sondex {

constexpr int32_t kUnknownKey = 2;  // what the identity service refuses a key with that it lacks
static const char kWiFiInterface[] = "en0";
static const char kAssertionName[] = "AssertName";

// Null for what is no text, or not stored as plain characters.
static const char *textOf(darwin::CFTypeRef object) {
  if (object == nullptr || darwin::CFGetTypeID(object) != darwin::CFStringGetTypeID()) {
    return nullptr;
  }
  return darwin::CFStringGetCStringPtr(static_cast<darwin::CFStringRef>(object),
                                       darwin::kCFStringEncodingMacRoman);
}

static bool readNumber(darwin::CFTypeRef object, int32_t *number) {
  return object != nullptr && darwin::CFGetTypeID(object) == darwin::CFNumberGetTypeID() &&
         darwin::CFNumberGetValue(static_cast<darwin::CFNumberRef>(object),
                                  darwin::kCFNumberSInt32Type, number) != 0;
}

static darwin::CFTypeRef valueOf(darwin::CFDictionaryRef dictionary, const char *key) {
  const darwin::CFStringRef name =
      darwin::CFStringCreateWithCString(nullptr, key, darwin::kCFStringEncodingMacRoman);
  if (name == nullptr) return nullptr;
  const darwin::CFTypeRef value = darwin::CFDictionaryGetValue(dictionary, name);
  darwin::CFRelease(name);
  return value;
}

// What a dictionary holds, in two arrays on the heap.
struct Pairs {
  const void **keys;
  const void **values;
  size_t count;
};

static Pairs pairsOf(darwin::CFDictionaryRef dictionary) {
  const darwin::CFIndex count = darwin::CFDictionaryGetCount(dictionary);
  Pairs pairs = {nullptr, nullptr, count > 0 ? static_cast<size_t>(count) : 0};
  pairs.keys = static_cast<const void **>(calloc(pairs.count + 1, sizeof *pairs.keys));
  pairs.values = static_cast<const void **>(calloc(pairs.count + 1, sizeof *pairs.values));
  if (pairs.keys == nullptr || pairs.values == nullptr) {
    pairs.count = 0;
  } else {
    darwin::CFDictionaryGetKeysAndValues(dictionary, pairs.keys, pairs.values);
  }
  return pairs;
}

static void release(const Pairs *pairs) {
  free(pairs->keys);
  free(pairs->values);
}

void writeExtensions() {
  const darwin::CFDictionaryRef loaded = darwin::OSKextCopyLoadedKextInfo(nullptr, nullptr);
  if (loaded == nullptr) return;
  const Pairs pairs = pairsOf(loaded);
  beginArray("extensions");
  for (size_t i = 0; i < pairs.count; i++) {
    const char *identifier = textOf(pairs.keys[i]);
    if (identifier != nullptr) writePlainText(nullptr, identifier);
  }
  endArray();
  release(&pairs);
  darwin::CFRelease(loaded);
}

static bool askWiFi(int asked, uint32_t type, void *reply, uint32_t length) {
  darwin::apple80211req request = {};
  snprintf(request.req_if_name, sizeof request.req_if_name, "%s", kWiFiInterface);
  request.req_type = type;
  request.req_len = length;
  request.req_data = reply;
  return ioctl(asked, darwin::SIOCGA80211, &request) == 0;
}

static void writeRadios(const darwin::apple80211_rssi_data *signal) {
  const uint32_t count = signal->num_radios;
  if (count == 0 || count > darwin::APPLE80211_MAX_RADIO) return;
  writeNumber("signal", count == 1 ? signal->rssi[0] : signal->aggregate_rssi);
  if (count == 1) return;
  beginArray("radios");
  for (uint32_t i = 0; i < count; i++) writeNumber(nullptr, signal->rssi[i]);
  endArray();
}

static void writeWiFiAnswers(int asked) {
  char name[darwin::APPLE80211_MAX_SSID_LEN + 1] = {};
  darwin::apple80211_channel_data channel = {};
  darwin::apple80211_rssi_data signal = {};
  const bool isNamed = askWiFi(asked, darwin::APPLE80211_IOC_SSID, name, sizeof name - 1);
  const bool hasChannel = askWiFi(asked, darwin::APPLE80211_IOC_CHANNEL, &channel, sizeof channel);
  const bool hasSignal = askWiFi(asked, darwin::APPLE80211_IOC_RSSI, &signal, sizeof signal);
  if (!isNamed && !hasChannel && !hasSignal) return;
  writeTable("wifi");
  if (isNamed) writeName("name", name, sizeof name);
  if (hasChannel && channel.channel != 0) writeNumber("channel", channel.channel);
  if (hasChannel && channel.flags != 0) writeNumber("channel-flags", channel.flags);
  if (hasSignal) writeRadios(&signal);
}

void writeWiFi() {
  const int asked = socket(AF_INET, SOCK_DGRAM, 0);
  if (asked < 0) return;
  writeWiFiAnswers(asked);
  close(asked);
}

static void writeSource(darwin::CFDictionaryRef description) {
  int32_t capacity = 0;
  beginInlineTable(nullptr);
  if (readNumber(valueOf(description, darwin::kIOPSCurrentCapacityKey), &capacity) &&
      capacity >= 0 && capacity <= 100) {
    writeNumber("capacity", capacity);
  }
  const char *state = textOf(valueOf(description, darwin::kIOPSPowerSourceStateKey));
  if (state != nullptr) writePlainText("state", state);
  const darwin::CFTypeRef charging = valueOf(description, darwin::kIOPSIsChargingKey);
  if (charging != nullptr && darwin::CFGetTypeID(charging) == darwin::CFBooleanGetTypeID()) {
    writeFlag("charging",
              darwin::CFBooleanGetValue(static_cast<darwin::CFBooleanRef>(charging)) != 0);
  }
  endInlineTable();
}

static void writeSources(darwin::CFTypeRef info) {
  const darwin::CFArrayRef sources = darwin::IOPSCopyPowerSourcesList(info);
  if (sources == nullptr) return;
  beginArray("source");
  const darwin::CFIndex count = darwin::CFArrayGetCount(sources);
  for (darwin::CFIndex i = 0; i < count; i++) {
    const darwin::CFTypeRef source = darwin::CFArrayGetValueAtIndex(sources, i);
    // The description belongs to `info` and is not released.
    const darwin::CFDictionaryRef description =
        source == nullptr ? nullptr : darwin::IOPSGetPowerSourceDescription(info, source);
    if (description != nullptr) writeSource(description);
  }
  endArray();
  darwin::CFRelease(sources);
}

static void writeHolder(darwin::CFTypeRef pid, darwin::CFArrayRef assertions) {
  int32_t number = 0;
  if (assertions == nullptr || !readNumber(pid, &number) || number < 0) return;
  beginInlineTable(nullptr);
  writeNumber("process", number);
  beginArray("names");
  const darwin::CFIndex count = darwin::CFArrayGetCount(assertions);
  for (darwin::CFIndex i = 0; i < count; i++) {
    const auto assertion =
        static_cast<darwin::CFDictionaryRef>(darwin::CFArrayGetValueAtIndex(assertions, i));
    const char *name = assertion != nullptr ? textOf(valueOf(assertion, kAssertionName)) : nullptr;
    writePlainText(nullptr, name != nullptr ? name : "");
  }
  endArray();
  endInlineTable();
}

static void writeAssertions() {
  darwin::CFDictionaryRef assertions = nullptr;
  darwin::IOPMCopyAssertionsByProcess(&assertions);
  if (assertions == nullptr) return;
  const Pairs pairs = pairsOf(assertions);
  beginRows("assertions");
  for (size_t i = 0; i < pairs.count; i++) {
    writeHolder(pairs.keys[i], static_cast<darwin::CFArrayRef>(pairs.values[i]));
  }
  endArray();
  release(&pairs);
  darwin::CFRelease(assertions);
}

void writePower() {
  const darwin::CFTypeRef info = darwin::IOPSCopyPowerSourcesInfo();
  if (info == nullptr) return;
  writeTable("power");
  const double remaining = darwin::IOPSGetTimeRemainingEstimate();
  if (remaining == darwin::kIOPSTimeRemainingUnlimited) {
    writePlainText("remaining", "unlimited");
  } else if (remaining >= 0 && remaining <= 1e9) {
    writeDecimal("remaining", static_cast<int64_t>(remaining * 1e6), 6);
  }
  writeSources(info);
  writeAssertions();
  darwin::CFRelease(info);
}

static bool isHardwareAddress(const char *key) {
  return strstr(key, "Address") != nullptr;
}

// What tells one device from another.
static bool isOwn(const char *key) {
  return strcmp(key, "ComputerName") == 0 || strcmp(key, "SerialNumber") == 0 ||
         strcmp(key, "UniqueDeviceID") == 0;
}

static void writeAnswerText(const char *key, const char *text) {
  if (isHardwareAddress(key)) {
    writeHardwareAddress(key, text, strlen(text));
  } else if (isOwn(key)) {
    writeName(key, text, strlen(text));
  } else {
    writePlainText(key, text);
  }
}

static void writeAnswer(const char *key, darwin::CFTypeRef answer, int32_t error) {
  if (answer == nullptr) {
    if (error == kUnknownKey || error == 0) return;
    beginInlineTable(key);
    writeNumber("error", error);
    endInlineTable();
    return;
  }
  int32_t number = 0;
  const char *text = textOf(answer);
  if (text != nullptr) {
    writeAnswerText(key, text);
  } else if (darwin::CFGetTypeID(answer) == darwin::CFBooleanGetTypeID()) {
    writeFlag(key, darwin::CFBooleanGetValue(static_cast<darwin::CFBooleanRef>(answer)) != 0);
  } else if (readNumber(answer, &number)) {
    writeNumber(key, number);
  }
}

static void ask(darwin::MGCopyAnswerWithError_function service, const char *key) {
  const darwin::CFStringRef name =
      darwin::CFStringCreateWithCString(nullptr, key, darwin::kCFStringEncodingMacRoman);
  if (name == nullptr) return;
  int error = 0;
  const darwin::CFTypeRef answer = service(name, &error);
  writeAnswer(key, answer, error);
  if (answer != nullptr) darwin::CFRelease(answer);
  darwin::CFRelease(name);
}

void writeGestalt() {
  const darwin::MGCopyAnswerWithError_function service = findGestalt(nullptr);
  if (service == nullptr) return;
  writeTable("gestalt");
  for (size_t i = 0; gestaltKeyAt(i) != nullptr; i++) ask(service, gestaltKeyAt(i));
}

}  // namespace sondex
