#include "host/linux/kernel_stacks.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "host/linux/procfs.h"

namespace host::linux_machine {

static constexpr size_t kBytesAtOnce = 65536;

// An address that ends a stack of old kernels.
static constexpr uint64_t kNowhere = UINT64_MAX;

// "[module]" as its name.
static std::string moduleIn(std::string_view word) {
  if (word.size() < 2 || word.front() != '[' || word.back() != ']') return "";
  return std::string(word.substr(1, word.size() - 2));
}

// "[<0>] function+0xoffset/0xsize [module]", where newer kernels never tell the address.
static bool parseFrame(std::string_view line, KernelFrame &frame) {
  TextCursor words(line);
  std::string_view word;
  if (!words.word(word) || !word.starts_with("[<") || !words.word(word)) return false;
  const size_t slash = word.rfind('/');
  const size_t plus = word.rfind('+', slash);
  if (slash == std::string_view::npos || plus == std::string_view::npos) {
    return parseAddress(word, frame.offset) && frame.offset != 0 && frame.offset != kNowhere;
  }
  if (!parseAddress(word.substr(plus + 1, slash - plus - 1), frame.offset) ||
      !parseAddress(word.substr(slash + 1), frame.size)) {
    return false;
  }
  frame.function = word.substr(0, plus);
  if (words.word(word)) frame.module = moduleIn(word);
  return !frame.function.empty();
}

std::vector<KernelFrame> parseKernelStack(std::string_view text) {
  std::vector<KernelFrame> frames;
  TextCursor lines(text);
  std::string_view line;
  while (lines.line(line)) {
    KernelFrame frame;
    if (parseFrame(line, frame)) frames.push_back(std::move(frame));
  }
  return frames;
}

void KernelSymbols::want(const std::vector<KernelFrame> &stack) {
  for (const KernelFrame &frame : stack) {
    if (!frame.function.empty()) wanted_.try_emplace(frame.function);
  }
}

// "address type name" and, of a module's, "[module]".
void KernelSymbols::add(std::string_view text) {
  TextCursor lines(text);
  std::string_view line;
  std::string name;
  while (lines.line(line)) {
    TextCursor words(line);
    std::string_view word;
    uint64_t address = 0;
    if (!words.number(address, 16) || address == 0) continue;
    if (!words.skipWords(1) || !words.word(word)) continue;
    all_.push_back(address);
    name = word;
    const auto found = wanted_.find(name);
    if (found == wanted_.end()) continue;
    std::string_view module;
    found->second.push_back({address, words.word(module) ? moduleIn(module) : ""});
  }
}

void KernelSymbols::finish() {
  std::sort(all_.begin(), all_.end());
}

void KernelSymbols::read(int procDirectory) {
  if (wanted_.empty()) return;
  const FileHandle file(openat(procDirectory, "kallsyms", O_RDONLY | O_CLOEXEC));
  std::vector<char> buffer;
  size_t filled = 0;
  while (file.isOpen()) {
    buffer.resize(filled + kBytesAtOnce);
    const ssize_t got = ::read(file.get(), buffer.data() + filled, kBytesAtOnce);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    filled += static_cast<size_t>(got);
    const std::string_view text(buffer.data(), filled);
    const size_t whole = text.rfind('\n') + 1;
    add(text.substr(0, whole));
    buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(whole));
    filled -= whole;
  }
  finish();
}

// As the kernel reckons it: up to the next symbol.
uint64_t KernelSymbols::sizeAt(uint64_t address) const {
  const auto next = std::upper_bound(all_.begin(), all_.end(), address);
  return next == all_.end() ? 0 : *next - address;
}

std::optional<uint64_t> KernelSymbols::addressOf(const KernelFrame &frame) const {
  if (frame.function.empty()) return frame.offset;
  const auto found = wanted_.find(frame.function);
  if (found == wanted_.end()) return std::nullopt;
  std::optional<uint64_t> address;
  const bool isOnly = found->second.size() == 1;
  for (const Place &place : found->second) {
    if (place.module != frame.module) continue;
    if (!isOnly && sizeAt(place.address) != frame.size) continue;
    if (address) return std::nullopt;
    address = place.address + frame.offset;
  }
  return address;
}

std::vector<uint64_t> KernelSymbols::addressesOf(const std::vector<KernelFrame> &stack) const {
  std::vector<uint64_t> addresses;
  for (const KernelFrame &frame : stack) {
    if (const std::optional<uint64_t> address = addressOf(frame)) addresses.push_back(*address);
  }
  return addresses;
}

}  // namespace host::linux_machine
