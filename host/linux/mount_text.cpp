#include "host/linux/mount_text.h"

#include <cstdint>

namespace host::linux_machine {

std::string unescapeMountName(std::string_view text) {
  std::string plain;
  while (!text.empty()) {
    uint32_t byte = 0;
    bool isEscape = text.size() > 3 && text[0] == '\\';
    for (size_t i = 1; isEscape && i <= 3; i++) {
      isEscape = text[i] >= '0' && text[i] <= '7';
      byte = byte * 8 + static_cast<uint32_t>(text[i] - '0');
    }
    isEscape = isEscape && byte <= UINT8_MAX;
    plain += isEscape ? static_cast<char>(byte) : text[0];
    text.remove_prefix(isEscape ? 4 : 1);
  }
  return plain;
}

}  // namespace host::linux_machine
