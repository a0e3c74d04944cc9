#include "host/linux/blocked_call.h"

#include "host/linux/procfs.h"

namespace host::linux_machine {

static constexpr int64_t kNoCall = -1;

static bool takeAddress(TextCursor &words, uint64_t &value) {
  std::string_view word;
  return words.word(word) && parseAddress(word, value);
}

// "0 0x3 0x7f68a038f000 0x20000 0x0 0xffffffff 0x0 0x7ffe94cf0a68 0x7f68a05092ad": number,
// arguments, stack pointer, program counter; "-1" and the last two; or "running".
bool parseBlockedCall(std::string_view text, BlockedCall &call) {
  TextCursor words(text);
  BlockedCall read{};
  if (!words.number(read.number)) return false;
  read.isInCall = read.number != kNoCall;
  if (read.isInCall) {
    for (uint64_t &argument : read.arguments) {
      if (!takeAddress(words, argument)) return false;
    }
  } else {
    read.number = 0;
  }
  std::string_view more;
  if (!takeAddress(words, read.stackPointer) || !takeAddress(words, read.programCounter) ||
      words.word(more)) {
    return false;
  }
  call = read;
  return true;
}

}  // namespace host::linux_machine
