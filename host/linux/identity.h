// What this machine says of itself: names and numbers of the firmware's tables, of the system's
// release file, of the processor and of the network interfaces, as answers to the keys of a
// device's identity service.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/errno.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

// The value of `key` in a text of lines KEY=value (os-release); quotes and backslashes taken off.
// False when it has none, or an empty one.
bool findRelease(std::string_view text, std::string_view key, std::string &value);

class Identity {
 public:
  // `root` stands before every path that is read: empty for this system.
  explicit Identity(std::string root = "");

  // DARWIN_ENOENT for an unknown key, and where there is nothing true to say; the file's error
  // where the caller may not read it.
  Errno answer(std::string_view key, std::string &answer);

 private:
  using Source = Errno (Identity::*)(std::string &answer);
  struct Row;
  static const Row kRows[];

  Errno computerName(std::string &answer);
  Errno marketingName(std::string &answer);
  Errno modelName(std::string &answer);
  Errno productName(std::string &answer);
  Errno productVersion(std::string &answer);
  Errno buildVersion(std::string &answer);
  Errno serialNumber(std::string &answer);
  Errno uniqueID(std::string &answer);
  Errno platform(std::string &answer);
  Errno architecture(std::string &answer);
  Errno wifiAddress(std::string &answer);
  Errno ethernetAddress(std::string &answer);
  Errno bluetoothAddress(std::string &answer);

  // Text of a file up to its first newline or NUL, without blanks around it. DARWIN_ENOENT when
  // that is empty.
  Errno readText(const std::string &path, std::string &text);
  // The same for what a vendor was to fill in: DARWIN_ENOENT when nobody did.
  Errno readVendorText(const std::string &path, std::string &text);
  Errno firstAddress(bool isWireless, std::string &address);
  bool exists(const std::string &path) const;
  Errno sortedNames(const std::string &path, std::vector<std::string> &names);

  std::string root_;
  FileReader reader_;
  DirectoryReader lister_;
};

}  // namespace host::linux_machine
