#include "harness/written_device.h"

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <system_error>

namespace test {

namespace fs = std::filesystem;

WrittenDevice::WrittenDevice(const std::string &text) {
  std::string name = (fs::temp_directory_path() / "device.XXXXXX.toml").string();
  const int file = mkstemps(name.data(), 5);
  if (file < 0) throw std::runtime_error("no device file can be made");
  close(file);
  file_ = name;
  // For a test that becomes someone else.
  fs::permissions(file_, fs::perms::others_read, fs::perm_options::add);
  std::ofstream stream(file_);
  if (!(stream << text << std::flush)) throw std::runtime_error("the device can't be written");
}

WrittenDevice::~WrittenDevice() {
  std::error_code ignored;
  fs::remove(file_, ignored);
}

Environment WrittenDevice::environment(Environment more) const {
  more.emplace_back("SONDEX_DEVICE", file_.string());
  return more;
}

}  // namespace test
