// Reading /proc and /sys: small files relative to an open directory handle, into one buffer that is
// kept from file to file; directories of numbers; and the few words of text scanning that their
// formats need. The few files that are written, too. What a file's text means is not here.
#pragma once

#include <charconv>
#include <cstdint>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "host/errno.h"

namespace host::linux_machine {

// The Darwin number of an errno value that a file call of this system left.
Errno darwinError(int linuxErrno);

// An open descriptor, closed with its owner.
class FileHandle {
 public:
  FileHandle() = default;
  explicit FileHandle(int descriptor) : descriptor_(descriptor) {}
  FileHandle(FileHandle &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileHandle &operator=(FileHandle &&other) noexcept;
  ~FileHandle() { close(); }

  bool isOpen() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }
  void close();

 private:
  int descriptor_ = -1;
};

// Opens the directory `name` below `directory` (AT_FDCWD for a full path), to be listed or only to
// be a starting point. On failure the handle is not open and errno says why.
FileHandle openDirectory(int directory, const char *name);
FileHandle openStartingPoint(int directory, const char *name);

// Writes the whole of `text`, in one piece, in place of what is in the file `name`. A link is not
// followed.
Errno writeFile(int directory, const char *name, std::string_view text);

// Reads files. The text of a read holds until the next one.
class FileReader {
 public:
  // A file beyond this many bytes is refused with DARWIN_EOVERFLOW.
  static constexpr size_t kLargest = size_t{4} << 20;

  // A file that the kernel makes in one piece, as nearly all are: a read that leaves room has
  // reached its end.
  Errno readRecord(int directory, const char *name, std::string_view &text);
  // The same of one that stays open: its text is made anew for each read from the start.
  Errno readRecord(const FileHandle &file, std::string_view &text);
  // A file that may come in pieces.
  Errno readList(int directory, const char *name, std::string_view &text);
  // The first `most` bytes of a file, or all of one that is shorter.
  Errno readBeginning(int directory, const char *name, size_t most, std::string_view &text);

 private:
  Errno read(int directory, const char *name, bool pieces, std::string_view &text);

  std::vector<char> buffer_;
};

// Lists a directory whose handle was opened by openDirectory(), from its start.
class DirectoryReader {
 public:
  // Entries whose names are numbers above 0, in the kernel's order, appended to `numbers`.
  Errno readNumbers(int directory, std::vector<int32_t> &numbers);
  // Calls `visit(name, isDirectory)` for each entry but "." and "..". A file system that doesn't
  // say what is a directory has none.
  template <typename Visit>
  Errno readNames(int directory, Visit &&visit);

 private:
  struct Entry {
    const char *name;
    bool isDirectory;
  };
  Errno rewind(int directory);
  // Takes the next entry; `end` is set after the last one.
  Errno next(int directory, Entry &entry, bool &end);

  std::vector<char> buffer_;
  size_t filled_ = 0;
  size_t position_ = 0;
};

template <typename Visit>
Errno DirectoryReader::readNames(int directory, Visit &&visit) {
  Entry entry{};
  bool end = false;
  Errno error = rewind(directory);
  while (error == kAnswered) {
    error = next(directory, entry, end);
    if (error != kAnswered || end) break;
    std::string_view name(entry.name);
    if (name != "." && name != "..") visit(entry.name, entry.isDirectory);
  }
  return error;
}

// The whole of `text` as a number; false when it is anything else or doesn't fit.
template <typename Number>
bool parseNumber(std::string_view text, Number &value, int base = 10) {
  Number number{};
  const char *end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || stop != end || text.empty()) return false;
  value = number;
  return true;
}

// The same for "0x1f".
bool parseAddress(std::string_view text, uint64_t &value);

// Takes words and lines from the front of a text.
class TextCursor {
 public:
  explicit TextCursor(std::string_view text) : rest_(text) {}

  std::string_view rest() const { return rest_; }
  // The next line without its newline; false at the end, and for a last line that has none.
  bool line(std::string_view &line);
  // The next word between blanks; false when there is none.
  bool word(std::string_view &word);
  bool skipWords(int count);
  template <typename Number>
  bool number(Number &value, int base = 10) {
    std::string_view text;
    return word(text) && parseNumber(text, value, base);
  }

 private:
  std::string_view rest_;
};

// One line "key: number" or "key number" that is wanted, and the member that takes the number. A
// unit after it is left alone.
template <typename Record>
struct NumberRow {
  std::string_view key;
  uint64_t Record::*value;
};

// Fills the members that have a line in `text` and sets bit i of `seen` for row i; the first line
// of a key counts. False when a wanted line has no number or the text does not end with a line's
// end.
template <typename Record, size_t count>
bool readNumberRows(std::string_view text, const NumberRow<Record> (&rows)[count], Record &record,
                    uint64_t &seen) {
  static_assert(count <= 64);
  TextCursor lines(text);
  std::string_view line;
  seen = 0;
  size_t likely = 0;
  while (lines.line(line)) {
    for (size_t tried = 0; tried < count; tried++) {
      // Files have a fixed order and tables follow it: the next row is nearly always the one.
      size_t row = (likely + tried) % count;
      const std::string_view key = rows[row].key;
      const bool hasKey = line.size() > key.size() &&
                          (line[key.size()] == ':' || line[key.size()] == ' ') &&
                          line.starts_with(key);
      if (!hasKey) continue;
      likely = row + 1;
      if ((seen >> row & 1) != 0) break;
      if (!TextCursor(line.substr(key.size() + 1)).number(record.*rows[row].value)) return false;
      seen |= uint64_t{1} << row;
      break;
    }
  }
  return lines.rest().empty();
}

// `value`, or the nearest number that fits.
template <typename To>
constexpr To saturate(uint64_t value) {
  constexpr uint64_t most = static_cast<uint64_t>(std::numeric_limits<To>::max());
  return static_cast<To>(value < most ? value : most);
}

}  // namespace host::linux_machine
