#include "host/linux/process_text.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>

#include "host/linux/procfs.h"

namespace host::linux_machine {

// The numbers of a stat, each after one blank. It is the longest text of a sample, and read for
// every process.
class StatFields {
 public:
  explicit StatFields(std::string_view text) : at_(text.data()), end_(at_ + text.size()) {}

  template <typename Number>
  bool number(Number &value) {
    if (at_ == end_ || *at_ != ' ') return false;
    const auto [stop, error] = std::from_chars(at_ + 1, end_, value);
    if (error != std::errc() || (stop != end_ && *stop != ' ')) return false;
    at_ = stop;
    return true;
  }
  bool skip(int count) {
    for (; count > 0; count--) {
      if (at_ == end_) return false;
      at_ = std::find(at_ + 1, end_, ' ');
    }
    return true;
  }

 private:
  const char *at_;
  const char *const end_;
};

bool parseProcessStat(std::string_view text, ProcessStat &stat) {
  // The name may hold blanks and parentheses, the numbers after it can't: its end is the last ")".
  size_t open = text.find(" (");
  size_t close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open + 2) {
    return false;
  }
  ProcessStat parsed{};
  std::string_view name = text.substr(open + 2, close - open - 2);
  if (name.size() >= sizeof parsed.name || !parseNumber(text.substr(0, open), parsed.id)) {
    return false;
  }
  std::copy(name.begin(), name.end(), parsed.name);

  std::string_view line = text.substr(close + 1);
  if (line.empty() || line.find('\n') != line.size() - 1) return false;
  line.remove_suffix(1);
  if (line.size() < 2 || line[0] != ' ') return false;
  parsed.state = line[1];
  StatFields fields(line.substr(2));
  bool whole =
      fields.number(parsed.parent) && fields.number(parsed.group) &&
      fields.number(parsed.session) && fields.number(parsed.terminal) &&
      fields.number(parsed.terminalGroup) && fields.number(parsed.flags) &&
      fields.number(parsed.minorFaults) && fields.skip(1) && fields.number(parsed.majorFaults) &&
      fields.skip(1) && fields.number(parsed.userTicks) && fields.number(parsed.systemTicks) &&
      fields.skip(3) && fields.number(parsed.nice) && fields.number(parsed.threads) &&
      fields.skip(1) && fields.number(parsed.startTicks) && fields.number(parsed.virtualSize) &&
      fields.number(parsed.residentPages) && fields.skip(1) && fields.number(parsed.startCode) &&
      fields.skip(1) && fields.number(parsed.startStack) && fields.skip(11) &&
      fields.number(parsed.realTimePriority) && fields.number(parsed.policy);
  if (whole) stat = parsed;
  return whole;
}

static bool parseIdentities(std::string_view text, ProcessStatus::Identities &identities) {
  TextCursor numbers(text);
  return numbers.number(identities.real) && numbers.number(identities.effective) &&
         numbers.number(identities.saved);
}

// The line of `key`, which may not be the first one.
static bool findLine(std::string_view text, std::string_view key, std::string_view &line) {
  size_t start = text.find(key);
  if (start == std::string_view::npos) return false;
  return TextCursor(text.substr(start + key.size())).line(line);
}

bool parseProcessStatus(std::string_view text, ProcessStatus &status) {
  static constexpr NumberRow<ProcessStatus> kRows[] = {
      {"Tgid", &ProcessStatus::process},
      {"TracerPid", &ProcessStatus::tracer},
      {"FDSize", &ProcessStatus::descriptorSlots},
      {"VmRSS", &ProcessStatus::residentKiB},
      {"RssAnon", &ProcessStatus::anonymousKiB},
      {"VmSwap", &ProcessStatus::swappedKiB},
      {"Seccomp", &ProcessStatus::seccomp},
      {"voluntary_ctxt_switches", &ProcessStatus::voluntarySwitches},
      {"nonvoluntary_ctxt_switches", &ProcessStatus::involuntarySwitches},
  };
  ProcessStatus parsed{};
  std::string_view line;
  uint64_t seen = 0;
  bool whole = findLine(text, "\nUid:", line) && parseIdentities(line, parsed.user) &&
               findLine(text, "\nGid:", line) && parseIdentities(line, parsed.group) &&
               readNumberRows(text, kRows, parsed, seen);
  if (whole) status = parsed;
  return whole;
}

bool parseProcessIO(std::string_view text, ProcessIO &io) {
  static constexpr NumberRow<ProcessIO> kRows[] = {
      {"read_bytes", &ProcessIO::bytesRead},
      {"write_bytes", &ProcessIO::bytesWritten},
  };
  ProcessIO parsed{};
  uint64_t seen = 0;
  if (!readNumberRows(text, kRows, parsed, seen) || seen != 3) return false;
  io = parsed;
  return true;
}

bool parseSchedulerRecord(std::string_view text, SchedulerRecord &record) {
  SchedulerRecord parsed{};
  TextCursor fields(text);
  if (text.find('\n') != text.size() - 1 || !fields.number(parsed.runTime) ||
      !fields.skipWords(1) || !fields.number(parsed.turns)) {
    return false;
  }
  record = parsed;
  return true;
}

std::vector<std::string> splitArguments(std::string_view text) {
  std::vector<std::string> arguments;
  while (!text.empty()) {
    const size_t length = std::min(text.find('\0'), text.size());
    arguments.emplace_back(text.substr(0, length));
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return arguments;
}

bool isAuxiliaryVector64Bit(std::string_view bytes) {
  // It starts with a small key, as wide as the program's pointers, and a value that is not 0. Of a
  // 32-bit program both are in the first 8 bytes.
  uint64_t first = 0;
  if (bytes.size() < sizeof first) return true;
  std::memcpy(&first, bytes.data(), sizeof first);
  return first <= UINT32_MAX;
}

}  // namespace host::linux_machine
