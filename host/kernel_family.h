// Which kernel is presented: what kernels refuse and how long their answers are changed over the
// years, from one build family to another.
#pragma once

#include <cstdint>
#include <string_view>

namespace host {

// The number behind "xnu-" in a kernel's version. Later kernels have larger ones.
using KernelFamily = unsigned int;

// That of this Linux system, and of versions that name none.
inline constexpr KernelFamily kUsualFamily = 4903;

// kUsualFamily for a version without a number that can be told.
KernelFamily kernelFamilyOf(std::string_view version) noexcept;
bool namesKernelFamily(std::string_view version) noexcept;

// By what a kernel multiplies jetsam bands: darwin/memorystatus.h has those of kernels with 1.
constexpr int32_t bandScale(KernelFamily family) {
  constexpr KernelFamily kFirstWithWideBands = 8792;
  return family >= kFirstWithWideBands ? 10 : 1;
}

}  // namespace host
