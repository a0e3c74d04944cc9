#include "capture/stand_ins.h"

#include <fcntl.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "capture/device_file_writer.h"

namespace sondex {

constexpr size_t kLongest = 262144;  // bytes of a text: as many as all arguments of a process have

// Folders of users: the first name below them is a user's, and all below that its own.
static const char *const kHomes[] = {
    "/home/",     "/Users/",           "/root/", "/var/mobile/", "/private/var/mobile/",
    "/var/root/", "/private/var/root/"};

static bool g_isHiding;
static uint64_t g_secret;

static uint64_t mix(uint64_t value) {
  value ^= value >> 31;
  value *= 0xBF58476D1CE4E5B9;
  return value ^ value >> 29;
}

// Another one for each file: what stands for a text can't be looked up by trying texts out.
void useStandIns() {
  g_isHiding = true;
  const int source = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (source < 0 || read(source, &g_secret, sizeof g_secret) != sizeof g_secret) {
    g_secret = mix(static_cast<uint64_t>(time(nullptr)) << 20 ^ static_cast<uint64_t>(getpid()));
  }
  if (source >= 0) close(source);
}

// Each character is turned within its own kind, by a number that depends on those before it: texts
// that differ have stand-ins that differ, and where they begin alike so do these.
static char turn(char letter, char first, uint64_t count, uint64_t by) {
  const uint64_t place = static_cast<unsigned char>(letter - first);
  return static_cast<char>(static_cast<uint64_t>(first) + (place + by) % count);
}

static bool isBetween(char letter, char first, char last) {
  return letter >= first && letter <= last;
}

static char hideLetter(char letter, uint64_t by) {
  if (isBetween(letter, '0', '9')) return turn(letter, '0', 10, by % 10);
  if (isBetween(letter, 'a', 'z')) return turn(letter, 'a', 26, by % 26);
  if (isBetween(letter, 'A', 'Z')) return turn(letter, 'A', 26, by % 26);
  return letter;
}

// The last byte of a character beyond ASCII says which one of a few that are much alike it is.
static bool endsCharacter(const char *text, size_t at, size_t length) {
  const auto isWithin = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; };
  return isWithin(text[at]) && (at + 1 == length || !isWithin(text[at + 1]));
}

static void hide(char *text, size_t length, char (*hideOne)(char, uint64_t)) {
  uint64_t state = mix(g_secret);
  for (size_t i = 0; i < length; i++) {
    const char plain = text[i];
    text[i] =
        endsCharacter(text, i, length)
            ? static_cast<char>((plain & ~15) | ((plain + static_cast<char>(state & 15)) & 15))
            : hideOne(plain, state);
    state = mix(state ^ static_cast<unsigned char>(plain));
    if (plain == '/') state = mix(g_secret);
  }
}

static void hideBelowHome(char *path, size_t length) {
  for (const char *home : kHomes) {
    const size_t start = strlen(home);
    if (length > start && memcmp(path, home, start) == 0) {
      hide(path + start, length - start, hideLetter);
      return;
    }
  }
}

// A copy that may be changed, until the next one.
static char *copyOf(const char *text, size_t size, size_t *length) {
  static char copy[kLongest];
  *length = strnlen(text, size < kLongest ? size : kLongest);
  memcpy(copy, text, *length);
  return copy;
}

void writePath(const char *key, const char *path, size_t size) {
  size_t length = 0;
  char *copy = copyOf(path, size, &length);
  if (g_isHiding) hideBelowHome(copy, length);
  writeText(key, copy, length);
}

void writeArgument(const char *key, const char *text, size_t size) {
  size_t length = 0;
  char *copy = copyOf(text, size, &length);
  if (g_isHiding && length > 0 && copy[0] == '/') {
    hideBelowHome(copy, length);
  } else if (g_isHiding) {
    hide(copy, length, hideLetter);
  }
  writeText(key, copy, length);
}

static void writeHidden(const char *key, const char *text, size_t size,
                        char (*hideOne)(char, uint64_t)) {
  size_t length = 0;
  char *copy = copyOf(text, size < kLongest ? size : kLongest - 1, &length);
  if (g_isHiding) hide(copy, length, hideOne);
  copy[length] = '\0';
  writePlainText(key, copy);
}

void writeName(const char *key, const char *text, size_t size) {
  writeHidden(key, text, size, hideLetter);
}

static char hideHexadecimal(char letter, uint64_t by) {
  if (isBetween(letter, '0', '9')) return turn(letter, '0', 10, by % 10);
  if (isBetween(letter, 'a', 'f')) return turn(letter, 'a', 6, by % 6);
  if (isBetween(letter, 'A', 'F')) return turn(letter, 'A', 6, by % 6);
  return letter;
}

void writeHardwareAddress(const char *key, const char *text, size_t size) {
  writeHidden(key, text, size, hideHexadecimal);
}

// A number from `least` up to `end`.
static uint32_t turnNumber(uint32_t number, uint32_t least, uint32_t end, uint64_t by) {
  return least + static_cast<uint32_t>((number - least + by % (end - least)) % (end - least));
}

// Among those with as many digits.
static uint8_t hideByte(uint8_t byte, uint64_t by) {
  if (byte < 10) return static_cast<uint8_t>(turnNumber(byte, 0, 10, by));
  if (byte < 100) return static_cast<uint8_t>(turnNumber(byte, 10, 100, by));
  return static_cast<uint8_t>(turnNumber(byte, 100, 256, by));
}

static uint32_t hideGroup(uint32_t group, uint64_t by) {
  if (group == 0) return 0;
  uint32_t least = 1;
  while (group >= least * 16) least *= 16;
  return turnNumber(group, least, least * 16, by);
}

// Bytes at the start that say what kind of address it is, and stay.
static size_t kindOfIPv4(const uint8_t *address) {
  if (address[0] == 0 || address[0] == 127 || address[0] >= 224) return 4;
  if (address[0] == 10) return 1;
  const bool isPrivate = (address[0] == 172 && (address[1] & 0xF0) == 16) ||
                         (address[0] == 192 && address[1] == 168) ||
                         (address[0] == 169 && address[1] == 254);
  return isPrivate ? 2 : 0;
}

// Addresses that begin with these may be of two kinds, as the next byte says.
static bool mayBePrivate(uint8_t first) {
  return first == 169 || first == 172 || first == 192;
}

// Whether an address is as public as before with that byte in its first place, or in its second.
static bool staysPublic(const uint8_t *address, size_t place, uint8_t byte) {
  const uint8_t first = place == 0 ? byte : address[0];
  const uint8_t changed[4] = {first, place == 1 ? byte : uint8_t{0}, 0, 0};
  return place == 0 ? !mayBePrivate(first) && kindOfIPv4(changed) == 0 : kindOfIPv4(changed) == 0;
}

// Turned on until the kind is right: at the latest that is where it began.
static uint8_t hidePublic(const uint8_t *address, size_t place, uint64_t by) {
  uint8_t byte = address[place];
  if (place == 0 && mayBePrivate(byte)) return byte;
  do {
    byte = hideByte(byte, by);
  } while (!staysPublic(address, place, byte));
  return byte;
}

static void hideIPv4(uint8_t *address) {
  uint64_t state = mix(g_secret ^ 4);
  const size_t kept = kindOfIPv4(address);
  for (size_t i = 0; i < 4; i++) {
    const uint8_t plain = address[i];
    if (kept == 0 && i < 2) {
      address[i] = hidePublic(address, i, state);
    } else if (i >= kept) {
      address[i] = hideByte(plain, state);
    }
    state = mix(state ^ plain);
  }
}

static bool isLocalIPv6(const uint8_t *address) {
  for (size_t i = 0; i < 15; i++) {
    if (address[i] != 0) return false;
  }
  return address[15] <= 1;
}

static void hideIPv6(uint8_t *address) {
  static const uint8_t kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  if (isLocalIPv6(address) || address[0] == 0xFF) return;
  if (memcmp(address, kMapped, sizeof kMapped) == 0) {
    hideIPv4(address + sizeof kMapped);
    return;
  }
  uint64_t state = mix(g_secret ^ 6);
  for (size_t i = 0; i < 16; i += 2) {
    const uint32_t plain = static_cast<uint32_t>(address[i] << 8 | address[i + 1]);
    // Addresses of a link and of a site begin like this; of the others the first four bits say what
    // they are for.
    const bool isLocal = i == 0 && (address[0] == 0xFE || (address[0] & 0xFE) == 0xFC);
    const uint32_t first = plain & 0xF000;
    const uint32_t hidden = isLocal                ? plain
                            : i == 0 && first != 0 ? turnNumber(plain, first, first + 0x1000, state)
                                                   : hideGroup(plain, state);
    address[i] = static_cast<uint8_t>(hidden >> 8);
    address[i + 1] = static_cast<uint8_t>(hidden);
    state = mix(state ^ plain);
  }
}

void hideAddress(uint8_t *address, size_t size) {
  if (!g_isHiding) return;
  if (size == 4) {
    hideIPv4(address);
  } else {
    hideIPv6(address);
  }
}

}  // namespace sondex
