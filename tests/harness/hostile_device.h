// A device on which all that others may name has a name that would drive a terminal, or pass for
// another one: control characters, of one byte and of two, turns of the direction of text,
// characters without width, and one that is cut in its middle. Besides, a character of which one
// byte is a control where no UTF-8 is read.
#pragma once

#include <string>
#include <string_view>

#include "harness/written_device.h"

namespace test {

inline constexpr int kHostilePid = 60;

inline std::string hostileDevice() {
  static constexpr std::string_view kMark = "NAME";
  static constexpr std::string_view kName =
      "\\u001b[2J\\u009b1m\\u202e\\u200b\\ufeff\\n\\u007f\\u011b";
  // The kernel keeps the first byte of the last character of a process's name.
  std::string text = R"(
gestalt = { marketing-name = "iPhone", ComputerName = "\u001b[2Jname" }
kernel = { host = "NAME" }
wifi = { name = "\u001b[2J\u009b1m\u202e\u011b" }
interface = [{ name = "en0" }]
background = false
[clock]
mode = "stepped"
start = 2024-03-05T14:07:09Z
zone = "UTC"
[[process]]
pid = 1
name = "launchd"
[[process]]
pid = 60
name = "e\u001b[2J\u009b1m\u202e\u011b\u00e9"
path = "/NAME/path"
arguments = ["/NAME/path", "NAME"]
environment = ["NAME=NAME"]
sandbox = true
container = "/NAME/container"
threads = [{ name = "NAME", user-stack = [0x100000010] }]
descriptors = [
  { type = "file", path = "/NAME/file" },
  { type = "unix", path = "/NAME/socket" },
  { type = "unix", peer-path = "/NAME/peer" },
  { type = "control", control = "NAME" },
  { type = "semaphore", name = "/NAME" },
  { type = "shared-memory", name = "/NAME" },
]
regions = [
  { address = 0x100000000, size = "16K", protection = "r-x", path = "/NAME/image" },
  { address = 0x100010000, size = "16K" },
]
[[process]]
pid = 61
parent = 60
name = "\u001b\u009b\u202e\u011b"
)";
  for (size_t at = 0; (at = text.find(kMark, at)) != std::string::npos; at += kName.size()) {
    text.replace(at, kMark.size(), kName);
  }
  return text;
}

// How they are shown; the last character only where UTF-8 is read.
inline constexpr char kSafeName[] =
    "?[2J??1m"
    "???????????";
inline constexpr char kSafeProcess[] = "e?[2J??1m???\u011b?";
inline constexpr char kSafeProcessInASCII[] = "e?[2J??1m??????";

// What of all that is found in `text`; "" when nothing is.
inline std::string hostileIn(std::string_view text) {
  for (const std::string_view sequence :
       {"\x1b[2J", "\xc2\x9b", "\u202e", "\u200b", "\ufeff", "\x7f", "\u011b?\xc3"}) {
    if (text.find(sequence) != std::string_view::npos) return std::string(sequence);
  }
  return "";
}

}  // namespace test
