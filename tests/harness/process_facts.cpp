#include "harness/process_facts.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "harness/wait.h"

namespace test {

namespace fs = std::filesystem;

// Places in /proc/PID/stat, counted from the state, which follows the name.
enum StatField : size_t {
  kState = 0,
  kParent = 1,
  kSession = 3,
  kUserTicks = 11,
  kSystemTicks = 12,
  kNice = 16,
  kThreads = 17,
  kStartTicks = 19,
  kVirtualSize = 20,
  kRealTimePriority = 37,
  kPolicy = 38,
};

// Above it, a limit of the first version of control groups means "none".
constexpr uint64_t kUnlimited = uint64_t{1} << 62;

std::string readFile(const std::string &path) {
  const std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  // Not all that can be opened can be read: this leaves no text then.
  text << file.rdbuf();
  return text.str();
}

static std::vector<std::string> statFields(const std::string &path) {
  const std::string text = readFile(path);
  const size_t nameEnd = text.rfind(')');
  if (nameEnd == std::string::npos) return {};
  std::istringstream words(text.substr(nameEnd + 1));
  return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

template <typename Number>
static Number toNumber(const std::string &text) {
  Number value{};
  std::from_chars(text.data(), text.data() + text.size(), value);
  return value;
}

std::vector<std::string> fieldWords(const std::string &text, const std::string &key) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(key + ":")) continue;
    std::istringstream words(line.substr(key.size() + 1));
    return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
  }
  return {};
}

std::optional<uint64_t> fieldNumber(const std::string &text, const std::string &key) {
  const std::vector<std::string> words = fieldWords(text, key);
  if (words.empty()) return std::nullopt;
  return toNumber<uint64_t>(words.front());
}

static size_t countEntries(const std::string &folder) {
  std::error_code error;
  return static_cast<size_t>(
      std::distance(fs::directory_iterator(folder, error), fs::directory_iterator()));
}

static void readThreads(const std::string &tasks, ProcessFacts &facts) {
  std::error_code error;
  for (const auto &task : fs::directory_iterator(tasks, error)) {
    const std::vector<std::string> fields = statFields(task.path().string() + "/stat");
    if (fields.size() <= kStartTicks) continue;
    if (fields[kState] == "R") facts.runningThreads++;
    const std::string schedule = readFile(task.path().string() + "/schedstat");
    facts.allThreads.push_back(
        {toNumber<uint64_t>(schedule), toNumber<uint64_t>(fields[kStartTicks])});
  }
}

static std::string linkText(const std::string &path) {
  std::error_code error;
  return fs::read_symlink(path, error).string();
}

// The smallest limit of a group and of those that it is in. `mount` is where they are found.
static std::optional<uint64_t> limitOf(const fs::path &mount, const std::string &group,
                                       const char *file) {
  std::optional<uint64_t> smallest;
  for (fs::path path = mount / fs::path(group).relative_path();; path = path.parent_path()) {
    const std::string text = readFile(path / file);
    const bool isNumber = !text.empty() && text[0] >= '0' && text[0] <= '9';
    const uint64_t limit = isNumber ? toNumber<uint64_t>(text) : kUnlimited;
    if (limit < kUnlimited) smallest = std::min(limit, smallest.value_or(limit));
    if (path == mount || !path.has_relative_path()) return smallest;
  }
}

static std::optional<uint64_t> readMemoryLimit(const std::string &groups) {
  std::optional<uint64_t> smallest;
  std::istringstream mounts(readFile("/proc/self/mounts"));
  for (std::string line; std::getline(mounts, line);) {
    std::istringstream words(line);
    std::string source;
    std::string path;
    std::string type;
    std::string options;
    words >> source >> path >> type >> options;
    const bool isFirstVersion =
        type == "cgroup" && ("," + options + ",").find(",memory,") != std::string::npos;
    if (!isFirstVersion && type != "cgroup2") continue;
    // Lines are "number:controllers:path", with 0 and nothing for the second version.
    std::istringstream lines(groups);
    for (std::string group; std::getline(lines, group);) {
      const size_t name = group.find(':', group.find(':') + 1) + 1;
      const std::string controllers = group.substr(group.find(':'), name - group.find(':'));
      if (controllers != (isFirstVersion ? ":memory:" : "::")) continue;
      const auto limit = limitOf(path, group.substr(name),
                                 isFirstVersion ? "memory.limit_in_bytes" : "memory.max");
      if (limit) smallest = std::min(*limit, smallest.value_or(*limit));
    }
  }
  return smallest;
}

bool mayLookInto(pid_t pid) {
  char target[1];
  return readlink(("/proc/" + std::to_string(pid) + "/exe").c_str(), target, sizeof target) >= 0;
}

std::optional<ProcessFacts> readFacts(pid_t pid) {
  const std::string folder = "/proc/" + std::to_string(pid);
  const std::vector<std::string> stat = statFields(folder + "/stat");
  const std::string status = readFile(folder + "/status");
  const std::vector<std::string> users = fieldWords(status, "Uid");
  if (stat.size() <= kPolicy || users.size() < 2) return std::nullopt;

  ProcessFacts facts;
  facts.pid = pid;
  facts.name = readFile(folder + "/comm");
  if (!facts.name.empty()) facts.name.pop_back();
  facts.state = stat[kState][0];
  facts.parent = toNumber<pid_t>(stat[kParent]);
  facts.session = toNumber<pid_t>(stat[kSession]);
  facts.user = toNumber<uint32_t>(users[1]);
  facts.threads = toNumber<int>(stat[kThreads]);
  readThreads(folder + "/task", facts);
  facts.nice = toNumber<int>(stat[kNice]);
  facts.realTimePriority = toNumber<int>(stat[kRealTimePriority]);
  facts.policy = toNumber<int>(stat[kPolicy]);
  facts.processorTicks =
      toNumber<uint64_t>(stat[kUserTicks]) + toNumber<uint64_t>(stat[kSystemTicks]);
  facts.startTicks = toNumber<uint64_t>(stat[kStartTicks]);
  facts.virtualBytes = toNumber<uint64_t>(stat[kVirtualSize]);
  facts.residentBytes = fieldNumber(status, "VmRSS").value_or(0) * 1024;
  const std::string io = readFile(folder + "/io");
  facts.readBytes = fieldNumber(io, "read_bytes");
  facts.writtenBytes = fieldNumber(io, "write_bytes");
  facts.descriptors = countEntries(folder + "/fd");
  facts.oomScore = toNumber<int>(readFile(folder + "/oom_score_adj"));
  facts.hasSystemCallFilter = fieldNumber(status, "Seccomp") == 2u;
  const std::string userNamespace = linkText(folder + "/ns/user");
  facts.hasOwnUsers = !userNamespace.empty() && userNamespace != linkText("/proc/self/ns/user");
  facts.memoryLimit = readMemoryLimit(readFile(folder + "/cgroup"));
  return facts;
}

bool comesToRest(pid_t pid) {
  return waitUntil([pid] {
    const std::optional<ProcessFacts> facts = readFacts(pid);
    return facts && facts->state != 'R' && facts->runningThreads == 0;
  });
}

std::vector<pid_t> allProcesses() {
  std::vector<pid_t> pids;
  for (const auto &entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    const bool isNumber = std::all_of(name.begin(), name.end(),
                                      [](char letter) { return letter >= '0' && letter <= '9'; });
    if (isNumber) pids.push_back(toNumber<pid_t>(name));
  }
  std::sort(pids.begin(), pids.end());
  return pids;
}

}  // namespace test
