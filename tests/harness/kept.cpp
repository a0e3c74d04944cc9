#include "harness/kept.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>
#include <system_error>

namespace test {

namespace fs = std::filesystem;

namespace {

constexpr size_t kShownLines = 12;  // of either side of a difference

// Of the printable character at this place, in bytes. 0 when there is none: a control byte, or not
// UTF-8.
size_t printableLength(std::string_view text, size_t at) {
  const auto byte = [&](size_t place) {
    return place < text.size() ? static_cast<unsigned char>(text[place]) : 0u;
  };
  const unsigned first = byte(at);
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  const size_t length = first >= 0xF5   ? 0
                        : first >= 0xF0 ? 4
                        : first >= 0xE0 ? 3
                        : first >= 0xC2 ? 2
                                        : 0;
  uint32_t code = length == 0 ? 0 : first & (0xFFu >> (length + 1));
  for (size_t i = 1; i < length; i++) {
    if ((byte(at + i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte(at + i) & 0x3F);
  }
  constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = code >= 0xD800 && code < 0xE000;
  const bool isControl = code < 0xA0;
  return code < kSmallest[length] || code > 0x10FFFF || isSurrogate || isControl ? 0 : length;
}

std::string hexadecimal(char byte) {
  std::ostringstream text;
  text << std::hex << std::uppercase << std::setfill('0') << std::setw(2)
       << static_cast<unsigned>(static_cast<unsigned char>(byte));
  return text.str();
}

std::string escaped(std::string_view text) {
  std::string result;
  for (size_t at = 0; at < text.size();) {
    const size_t length = printableLength(text, at);
    if (text[at] == '\\') {
      result += "\\\\";
    } else if (length > 0) {
      result += text.substr(at, length);
    } else if (text[at] == '\t') {
      result += "\\t";
    } else {
      result += "\\x" + hexadecimal(text[at]);
    }
    at += std::max<size_t>(length, 1);
  }
  return result;
}

// Each with the newline at its end. The last one may have none.
std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    const size_t length = end == std::string_view::npos ? text.size() : end + 1;
    lines.push_back(text.substr(0, length));
    text.remove_prefix(length);
  }
  return lines;
}

std::string linesAsText(std::string_view prefix, std::string_view output) {
  std::string text;
  for (std::string_view line : linesOf(output)) {
    const bool isWhole = line.back() == '\n';
    if (isWhole) line.remove_suffix(1);
    text.append(prefix).append("|").append(escaped(line)).append("|");
    text += isWhole ? "\n" : "(no newline)\n";
  }
  return text;
}

// What a kept file holds is escaped already: only what no test would have written is marked.
std::string shown(std::string_view line) {
  const bool isWhole = line.ends_with('\n');
  if (isWhole) line.remove_suffix(1);
  std::string text;
  for (size_t at = 0; at < line.size();) {
    const size_t length = printableLength(line, at);
    text += length > 0 ? std::string(line.substr(at, length)) : "<" + hexadecimal(line[at]) + ">";
    at += std::max<size_t>(length, 1);
  }
  return isWhole ? text : text + " <no newline>";
}

std::string sideOf(const std::string &side, const std::vector<std::string_view> &lines,
                   size_t start, size_t end) {
  std::string text;
  for (size_t i = start; i < std::min(end, start + kShownLines); i++) {
    text += side + " " + std::to_string(i + 1) + ": " + shown(lines[i]) + "\n";
  }
  if (end > start + kShownLines) {
    text += side + ": " + std::to_string(end - start - kShownLines) + " more\n";
  }
  return text;
}

std::optional<std::string> contentsOf(const fs::path &path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

bool isUnfinished(const fs::path &path) {
  return path.filename().string().starts_with(".");
}

// Whole or not at all: another test may read it meanwhile.
void write(const fs::path &path, const std::string &text) {
  fs::create_directories(path.parent_path());
  const fs::path unfinished =
      path.parent_path() / ("." + path.filename().string() + "." + std::to_string(getpid()));
  std::ofstream file(unfinished, std::ios::binary);
  file << text;
  file.close();
  if (!file) {
    throw std::system_error(errno, std::generic_category(), unfinished.string());
  }
  fs::rename(unfinished, path);
}

void accept(const KeptFolder &folder, const std::string &name, const std::string &text) {
  const std::optional<std::string> kept = contentsOf(folder.path / name);
  const std::string how = !kept ? "new" : *kept == text ? "same" : "changed";
  if (how != "same") {
    write(folder.path / name, text);
    std::cout << "accepted: " << name << " (" << how << ")\n";
  }
  if (folder.record.empty()) return;
  // At once: tests that run at the same time share the record.
  std::ofstream record(folder.record, std::ios::app);
  record << how + " " + name + "\n" << std::flush;
  if (!record) throw std::system_error(errno, std::generic_category(), folder.record.string());
}

std::set<std::string> &namesWithTest() {
  static std::set<std::string> names;
  return names;
}

}  // namespace

const KeptFolder &keptFolder() {
  static const KeptFolder folder = [] {
    const char *accepts = std::getenv("SONDEX_ACCEPT");
    const char *record = std::getenv("SONDEX_ACCEPT_RECORD");
    return KeptFolder{KEPT_FOLDER, accepts != nullptr && std::string_view(accepts) == "1",
                      record != nullptr ? record : ""};
  }();
  return folder;
}

std::string complaintAgainstKept(const KeptFolder &folder, const std::string &name,
                                 const std::string &text) {
  if (folder.accepts) {
    accept(folder, name, text);
    return "";
  }
  const std::optional<std::string> kept = contentsOf(folder.path / name);
  if (kept && *kept == text) return "";
  const std::string complaint = (kept ? "not as in " : "no file ") + (folder.path / name).string() +
                                "; scripts/test --accept writes it, for review\n";
  return complaint + difference(kept.value_or(""), text);
}

std::vector<std::string> filesWithoutTest(const KeptFolder &folder, const std::string &part,
                                          const std::set<std::string> &known) {
  std::vector<std::string> names;
  const fs::path start = folder.path / part;
  if (!fs::exists(start)) return names;
  for (const fs::directory_entry &entry : fs::recursive_directory_iterator(start)) {
    if (entry.is_directory() || isUnfinished(entry.path())) continue;
    const std::string name = entry.path().lexically_relative(folder.path).string();
    if (known.count(name) == 0) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

KeptFile::KeptFile(std::string name) : name_(std::move(name)) {
  namesWithTest().insert(name_);
}

std::string KeptFile::complaintAbout(const std::string &text) const {
  return complaintAgainstKept(keptFolder(), name_, text);
}

std::vector<std::string> keptFilesWithoutTest(const std::string &part) {
  return filesWithoutTest(keptFolder(), part, namesWithTest());
}

std::string asText(const Outcome &outcome) {
  std::ostringstream ending;
  if (outcome.ending) {
    ending << *outcome.ending;
  } else {
    ending << "still running at the deadline";
  }
  return ending.str() + "\n" + linesAsText("out", outcome.output) +
         linesAsText("err", outcome.error);
}

std::string difference(std::string_view kept, std::string_view now) {
  const std::vector<std::string_view> before = linesOf(kept);
  const std::vector<std::string_view> after = linesOf(now);
  const size_t shorter = std::min(before.size(), after.size());
  size_t first = 0;
  while (first < shorter && before[first] == after[first]) first++;
  size_t last = 0;
  while (last < shorter - first &&
         before[before.size() - 1 - last] == after[after.size() - 1 - last]) {
    last++;
  }
  const size_t beforeEnd = before.size() - last;
  const size_t afterEnd = after.size() - last;
  if (first == beforeEnd && first == afterEnd) return "";

  std::string text;
  if (first < beforeEnd && first < afterEnd) {
    const auto [one, other] = std::mismatch(before[first].begin(), before[first].end(),
                                            after[first].begin(), after[first].end());
    text += "line " + std::to_string(first + 1) + " differs from byte " +
            std::to_string(one - before[first].begin() + 1) + " on\n";
  } else {
    text += "line " + std::to_string(first + 1) + ": " +
            (first < beforeEnd ? "lines are missing\n" : "lines are too many\n");
  }
  return text + sideOf("kept", before, first, beforeEnd) + sideOf("now ", after, first, afterEnd);
}

}  // namespace test
