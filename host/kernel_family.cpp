#include "host/kernel_family.h"

#include <charconv>
#include <optional>

namespace host {

static std::optional<KernelFamily> familyIn(std::string_view version) noexcept {
  constexpr std::string_view kMark = "xnu-";
  const size_t mark = version.find(kMark);
  if (mark == std::string_view::npos) return std::nullopt;
  const std::string_view number = version.substr(mark + kMark.size());
  KernelFamily family = 0;
  const auto read = std::from_chars(number.data(), number.data() + number.size(), family);
  return read.ec == std::errc{} ? std::optional(family) : std::nullopt;
}

KernelFamily kernelFamilyOf(std::string_view version) noexcept {
  return familyIn(version).value_or(kUsualFamily);
}

bool namesKernelFamily(std::string_view version) noexcept {
  return familyIn(version).has_value();
}

}  // namespace host
