#include "harness/debugger.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "harness/run.h"

namespace test {

namespace {

constexpr char kDebugger[] = "/usr/bin/lldb-19";

// For the script and the memory that it writes out.
class Folder {
 public:
  Folder() : path_((std::filesystem::temp_directory_path() / "debugger.XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) {
      throw std::system_error(errno, std::generic_category(), path_);
    }
  }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string fileOf(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string contentsOf(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string memoryFile(const Folder &folder, size_t index) {
  return folder.fileOf("memory" + std::to_string(index));
}

// LLDB takes the lowest bit of an address in a 32-bit process for a mark of code: memory is read
// from an even one on.
size_t skippedOf(const MemoryRange &range) {
  return range.address % 2;
}

void writeScript(const Folder &folder, const std::vector<MemoryRange> &ranges) {
  std::ofstream script(folder.fileOf("script"));
  script << "settings set use-color false\n"
            "settings set thread-format \"core thread ${frame.pc} ${frame.sp}\\n\"\n"
            "thread list\n";
  for (size_t i = 0; i < ranges.size(); i++) {
    script << "memory read --force --binary --outfile " << memoryFile(folder, i) << " --size 1"
           << " --count " << ranges[i].size + skippedOf(ranges[i]) << " "
           << ranges[i].address - skippedOf(ranges[i]) << "\n";
  }
}

// "Core file '/tmp/core.1' (arm64) was loaded."
std::string architectureIn(const std::string &line) {
  const size_t end = line.rfind(") was loaded.");
  if (!line.starts_with("Core file '") || end == std::string::npos) return "";
  const size_t start = line.rfind('(', end);
  return start == std::string::npos ? "" : line.substr(start + 1, end - start - 1);
}

}  // namespace

std::ostream &operator<<(std::ostream &out, const DebuggedThread &thread) {
  return out << std::hex << "pc 0x" << thread.programCounter << " sp 0x" << thread.stackPointer
             << std::dec;
}

bool hasDebugger() {
  return access(kDebugger, X_OK) == 0;
}

DebuggedCore debugCore(const std::string &path, const std::vector<MemoryRange> &ranges) {
  const Folder folder;
  writeScript(folder, ranges);
  Launch launch;
  launch.program = kDebugger;
  launch.arguments = {"--no-lldbinit",
                      "--batch",
                      "-o",
                      std::string("command source -e false ").append(folder.fileOf("script")),
                      "--core",
                      path};
  const Outcome outcome = run(launch);
  DebuggedCore core;
  core.said = outcome.output + outcome.error;
  if (!outcome.ending || outcome.ending->signal != 0 || outcome.ending->exitedWith(127)) {
    throw std::runtime_error("LLDB did not end well:\n" + core.said);
  }
  for (const std::string &line : splitLines(core.said)) {
    if (core.architecture.empty()) core.architecture = architectureIn(line);
    DebuggedThread thread;
    // The selected thread's line begins with an asterisk.
    if (std::sscanf(line.c_str(), "%*1[* ] core thread 0x%" SCNx64 " 0x%" SCNx64,
                    &thread.programCounter, &thread.stackPointer) == 2) {
      core.threads.push_back(thread);
    }
  }
  for (size_t i = 0; i < ranges.size(); i++) {
    std::string memory = contentsOf(memoryFile(folder, i));
    const size_t skipped = skippedOf(ranges[i]);
    const bool isWhole = memory.size() == ranges[i].size + skipped;
    core.memory.push_back(isWhole ? memory.substr(skipped) : "");
  }
  return core;
}

}  // namespace test
