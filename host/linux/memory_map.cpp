#include "host/linux/memory_map.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <string>
#include <system_error>

#include "host/darwin/mach_vm.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

static constexpr size_t kPiece = 65536;

// Takes a number and the character after it off the front.
template <typename Number>
static bool takeNumber(std::string_view &text, int base, char after, Number &number) {
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || stop == end || *stop != after) return false;
  text.remove_prefix(static_cast<size_t>(stop - text.data()) + 1);
  return true;
}

// Takes "rwxp" and the blank after it off the front.
static bool takeRights(std::string_view &text, Mapping &mapping) {
  static constexpr struct {
    char letter;
    uint32_t bit;
  } kRights[] = {
      {'r', darwin::VM_PROT_READ}, {'w', darwin::VM_PROT_WRITE}, {'x', darwin::VM_PROT_EXECUTE}};
  if (text.size() < 5 || text[4] != ' ') return false;
  mapping.protection = 0;
  for (size_t i = 0; i < 3; i++) {
    if (text[i] == kRights[i].letter) {
      mapping.protection |= kRights[i].bit;
    } else if (text[i] != '-') {
      return false;
    }
  }
  if (text[3] != 's' && text[3] != 'p') return false;
  mapping.isShared = text[3] == 's';
  text.remove_prefix(5);
  return true;
}

// Takes the last number, which may end the line, and the blanks before the name.
static bool takeInode(std::string_view &text, uint64_t &inode) {
  const char *end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, inode);
  if (error != std::errc() || (stop != end && *stop != ' ')) return false;
  text.remove_prefix(static_cast<size_t>(stop - text.data()));
  const size_t name = text.find_first_not_of(' ');
  text.remove_prefix(name == std::string_view::npos ? text.size() : name);
  return true;
}

// "7f0000000000-7f0000001000 rw-s 00000000 00:01 1234   /memfd:name (deleted)"
bool parseMapping(std::string_view line, Mapping &mapping) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  Mapping read{};
  if (!takeNumber(line, 16, '-', read.start) || !takeNumber(line, 16, ' ', read.end) ||
      read.start >= read.end || !takeRights(line, read) ||
      !takeNumber(line, 16, ' ', read.offset) || !takeNumber(line, 16, ':', read.majorNumber) ||
      !takeNumber(line, 16, ' ', read.minorNumber) || !takeInode(line, read.inode)) {
    return false;
  }
  read.name = line;
  mapping = read;
  return true;
}

static void visitLines(std::string_view text, const std::function<void(std::string_view)> &visit) {
  TextCursor lines(text);
  std::string_view line;
  while (lines.line(line)) visit(line);
}

Errno readMapLines(int processDirectory, const char *name,
                   const std::function<void(std::string_view)> &visit) {
  const FileHandle maps(openat(processDirectory, name, O_RDONLY | O_CLOEXEC));
  if (!maps.isOpen()) return darwinError(errno);
  std::string text;
  size_t kept = 0;  // the beginning of a line whose end is still to come
  for (;;) {
    text.resize(kept + kPiece);
    const ssize_t taken = ::read(maps.get(), text.data() + kept, kPiece);
    if (taken < 0 && errno == EINTR) continue;
    if (taken < 0) return darwinError(errno);
    if (taken == 0) return kAnswered;
    text.resize(kept + static_cast<size_t>(taken));
    const size_t lastEnd = text.rfind('\n');
    const size_t whole = lastEnd == std::string::npos ? 0 : lastEnd + 1;
    visitLines(std::string_view(text).substr(0, whole), visit);
    text.erase(0, whole);
    kept = text.size();
  }
}

Errno readMemoryMap(int processDirectory, const std::function<void(const Mapping &)> &visit) {
  Mapping mapping{};
  return readMapLines(processDirectory, "maps", [&](std::string_view line) {
    if (parseMapping(line, mapping)) visit(mapping);
  });
}

}  // namespace host::linux_machine
