#include "harness/core_commands.h"

#include <unistd.h>

#include <sstream>
#include <stdexcept>

#include "harness/run.h"

namespace test {

namespace {

constexpr char kObjectReader[] = "/usr/bin/llvm-objdump-19";
constexpr uint64_t kDataAlignment = 4096;

std::vector<std::string> wordsOf(const std::string &line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

// The line of values below the header's titles.
void readHeader(const std::vector<std::string> &values, CoreCommands &commands) {
  if (values.size() < 7) throw std::runtime_error("a Mach-O header with too few values");
  commands.processor = values[1];
  commands.fileType = values[4];
  commands.count = std::stoull(values[5]);
  commands.size = std::stoull(values[6]);
}

void readSegmentField(const std::string &name, const std::string &value, CoreSegment &segment) {
  if (name == "segname") segment.name = value;
  if (name == "vmaddr") segment.address = std::stoull(value, nullptr, 16);
  if (name == "vmsize") segment.size = std::stoull(value, nullptr, 16);
  if (name == "fileoff") segment.fileOffset = std::stoull(value);
  if (name == "filesize") segment.fileSize = std::stoull(value);
  if (name == "maxprot") segment.mostProtection = value;
  if (name == "initprot") segment.protection = value;
}

bool isWithin(const std::string &protection, const std::string &most) {
  if (protection.size() != 3 || most.size() != 3) return false;
  for (size_t i = 0; i < 3; i++) {
    if (protection[i] != '-' && most[i] == '-') return false;
  }
  return true;
}

}  // namespace

bool hasObjectReader() {
  return access(kObjectReader, X_OK) == 0;
}

CoreCommands readCoreCommands(const std::string &path) {
  Launch launch;
  launch.program = kObjectReader;
  launch.arguments = {"--macho", "--private-headers", path};
  const Outcome outcome = run(launch);
  CoreCommands commands;
  commands.said = outcome.output;
  if (!outcome.exitedWith(0) || !outcome.error.empty()) {
    throw std::runtime_error("llvm-objdump: " + outcome.error + outcome.output);
  }
  bool headerFollows = false;
  bool isSegment = false;
  for (const std::string &line : splitLines(outcome.output)) {
    const std::vector<std::string> words = wordsOf(line);
    if (headerFollows) readHeader(words, commands);
    headerFollows = !words.empty() && words[0] == "magic";
    if (words.size() < 2) continue;
    if (words[0] == "cmd") {
      isSegment = words[1] == "LC_SEGMENT" || words[1] == "LC_SEGMENT_64";
      if (isSegment) commands.segments.emplace_back();
    } else if (words[0] == "cmdsize") {
      const auto size = static_cast<uint32_t>(std::stoul(words[1]));
      if (isSegment) {
        commands.segments.back().commandSize = size;
      } else {
        commands.threads.push_back(size);
      }
    } else if (isSegment) {
      readSegmentField(words[0], words[1], commands.segments.back());
    }
  }
  if (commands.fileType.empty()) throw std::runtime_error("no Mach-O file: " + outcome.output);
  return commands;
}

std::string complaintAboutCore(const CoreCommands &commands, uint64_t fileSize) {
  std::ostringstream complaint;
  if (commands.fileType != "CORE") complaint << "the file type is " << commands.fileType << "\n";
  if (commands.count != commands.segments.size() + commands.threads.size()) {
    complaint << "the header counts " << commands.count << " commands\n";
  }
  const uint64_t header = commands.processor == "ARM64" ? 32 : 28;
  uint64_t size = 0;
  for (const CoreSegment &segment : commands.segments) size += segment.commandSize;
  for (const uint32_t thread : commands.threads) size += thread;
  if (commands.size != size) complaint << "the header says " << commands.size << " bytes\n";
  if (!commands.segments.empty() && commands.segments[0].fileOffset % kDataAlignment != 0) {
    complaint << "the data does not start on a page\n";
  }
  uint64_t end = header + size;
  for (const CoreSegment &segment : commands.segments) {
    if (segment.fileOffset < end) complaint << segment.name << " overlaps what is before it\n";
    if (segment.fileSize > segment.size) complaint << segment.name << " has too much data\n";
    if (!isWithin(segment.protection, segment.mostProtection)) {
      complaint << segment.name << " has more protection than its most\n";
    }
    end = segment.fileOffset + segment.fileSize;
  }
  if (end > fileSize) complaint << "the data goes beyond the file\n";
  return complaint.str();
}

}  // namespace test
