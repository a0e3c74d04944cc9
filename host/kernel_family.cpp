#include "host/kernel_family.h"

#include <charconv>

namespace host {

KernelFamily kernelFamilyOf(std::string_view version) noexcept {
  constexpr std::string_view kMark = "xnu-";
  const size_t mark = version.find(kMark);
  if (mark == std::string_view::npos) return kUsualFamily;
  const std::string_view number = version.substr(mark + kMark.size());
  KernelFamily family = kUsualFamily;
  // Writes nothing unless there is a number that fits.
  std::from_chars(number.data(), number.data() + number.size(), family);
  return family;
}

}  // namespace host
