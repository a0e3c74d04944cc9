// What threads are at in the kernel: the stacks that it tells in names and offsets, and the
// addresses that these stand for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace host::linux_machine {

// A line of /proc/PID/stack, the innermost first.
struct KernelFrame {
  std::string function;  // empty: the kernel has no name for the address
  std::string module;    // empty: of the kernel itself
  uint64_t offset = 0;   // in the function, or the address itself
  uint64_t size = 0;     // of the function
};

// Lines that are no frames are passed over.
std::vector<KernelFrame> parseKernelStack(std::string_view text);

// The addresses of those functions of the kernel that were asked for.
class KernelSymbols {
 public:
  void want(const std::vector<KernelFrame> &stack);
  // Takes in a part of /proc/kallsyms that ends with a line's end.
  void add(std::string_view text);
  // Nothing may be added any more.
  void finish();
  // Reads /proc/kallsyms, whose directory is open; nothing is known where that can't be done, or
  // where the kernel keeps its addresses to itself.
  void read(int procDirectory);

  // Nothing for a function that is not known, or of which there are several that look alike.
  std::optional<uint64_t> addressOf(const KernelFrame &frame) const;
  // Those that are known, in order.
  std::vector<uint64_t> addressesOf(const std::vector<KernelFrame> &stack) const;

 private:
  struct Place {
    uint64_t address;
    std::string module;
  };

  uint64_t sizeAt(uint64_t address) const;

  std::unordered_map<std::string, std::vector<Place>> wanted_;
  std::vector<uint64_t> all_;  // addresses, ascending once finished
};

}  // namespace host::linux_machine
