#include "harness/stepped_device.h"

#include <stdlib.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <regex>
#include <system_error>

namespace test {

namespace fs = std::filesystem;

std::string withSteppedClock(std::string_view text) {
  static const std::regex mode(R"re(^[ \t]*mode[ \t]*=[ \t]*"(wall|stepped)"[ \t]*(#.*)?$)re",
                               std::regex::multiline);
  std::string copy(text);
  const std::sregex_iterator first(copy.begin(), copy.end(), mode);
  const auto lines = std::distance(first, std::sregex_iterator());
  if (lines != 1) {
    throw std::runtime_error("a device file with " + std::to_string(lines) +
                             " lines that say the clock's mode, not 1");
  }
  const auto place = static_cast<size_t>(first->position(1));
  return copy.replace(place, static_cast<size_t>(first->length(1)), "stepped");
}

std::vector<std::string> shippedDevices() {
  std::vector<std::string> names;
  for (const auto &entry : fs::directory_iterator(DEVICES_FOLDER)) {
    if (entry.path().extension() == ".toml") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string steppedDeviceText(const std::string &name) {
  const fs::path original = fs::path(DEVICES_FOLDER) / (name + ".toml");
  std::ifstream input(original, std::ios::binary);
  if (!input) throw std::system_error(errno, std::generic_category(), original.string());
  return withSteppedClock(std::string(std::istreambuf_iterator<char>(input), {}));
}

SteppedDevice::SteppedDevice(const std::string &name, Background background) {
  const std::string stepped = steppedDeviceText(name);
  std::string folder = (fs::temp_directory_path() / "sondex-device-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), folder);
  }
  folder_ = folder;
  file_ = folder_ / (name + ".toml");
  std::ofstream copy(file_, std::ios::binary);
  if (background == Background::silent) copy << "background = false\n";
  copy << stepped;
  copy.close();
  if (!copy) throw std::system_error(errno, std::generic_category(), file_.string());
}

SteppedDevice::~SteppedDevice() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

}  // namespace test
