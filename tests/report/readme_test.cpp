// The recipes of README.md: each command in a block marked `console` prints what stands below it.
// A line "..." stands for any number of lines; blanks and tabs in a row count as one blank.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "harness/process_facts.h"
#include "harness/run.h"
#include "harness/stepped_device.h"

namespace test {
namespace {

namespace fs = std::filesystem;

constexpr char kLeftOut[] = "...";

struct Recipe {
  std::string command;
  std::vector<std::string> output;
};

// Without what does not show: kinds of blanks, and those at the end.
std::string withSingleBlanks(const std::string &line) {
  std::string result;
  for (const char byte : line) {
    const bool isBlank = byte == ' ' || byte == '\t';
    if (!isBlank) {
      result += byte;
    } else if (!result.ends_with(' ')) {
      result += ' ';
    }
  }
  result.erase(result.find_last_not_of(' ') + 1);
  return result;
}

std::vector<Recipe> recipes() {
  std::vector<Recipe> found;
  bool inBlock = false;
  for (const std::string &line : splitLines(readFile(README_FILE))) {
    if (line.starts_with("```")) {
      inBlock = line == "```console";
    } else if (inBlock && line.starts_with("$ ")) {
      found.push_back({line.substr(2), {}});
    } else if (inBlock && !found.empty()) {
      found.back().output.push_back(withSingleBlanks(line));
    }
  }
  return found;
}

// "" when `shown` is what the recipe says, from its first line to its last.
std::string complaintAbout(const Recipe &recipe, const std::vector<std::string> &shown) {
  size_t at = 0;
  bool leftOut = false;
  for (const std::string &line : recipe.output) {
    if (line == kLeftOut) {
      leftOut = true;
      continue;
    }
    while (leftOut && at < shown.size() && withSingleBlanks(shown[at]) != line) at++;
    if (at == shown.size() || withSingleBlanks(shown[at]) != line) return "not there: " + line;
    leftOut = false;
    at++;
  }
  return leftOut || at == shown.size() ? "" : "more than that: " + shown[at];
}

// A folder with the program in it, called as in the recipes.
class ProgramFolder {
 public:
  ProgramFolder() : path_((fs::temp_directory_path() / "readme-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder " + path_);
    const std::string program = path_ + "/sondex";
    std::ofstream(program) << "#!/bin/sh\nexec '" << sondexPath() << "' \"$@\"\n";
    chmod(program.c_str(), 0755);
  }
  ProgramFolder(const ProgramFolder &) = delete;
  ProgramFolder &operator=(const ProgramFolder &) = delete;
  ~ProgramFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  std::string searchPath() const { return path_ + ":/usr/bin:/bin"; }

 private:
  std::string path_;
};

TEST(Readme, RecipesPrintWhatTheySay) {
  const SteppedDevice device("iphone", SteppedDevice::Background::silent);
  const ProgramFolder folder;
  const std::vector<Recipe> all = recipes();
  EXPECT_GE(all.size(), 7U);
  for (const Recipe &recipe : all) {
    Launch launch;
    launch.program = "/bin/sh";
    launch.arguments = {"-c", recipe.command};
    launch.environment = device.environment();
    launch.environment.emplace_back("PATH", folder.searchPath());
    const Outcome outcome = run(launch);
    EXPECT_TRUE(outcome.exitedWith(0)) << recipe.command << "\n" << outcome;
    EXPECT_EQ(complaintAbout(recipe, splitLines(outcome.output)), "") << recipe.command << "\n"
                                                                      << outcome;
  }
}

TEST(Recipe, IsHeldAgainstEveryLine) {
  const Recipe recipe{"", {"a b", "...", "c"}};
  EXPECT_EQ(complaintAbout(recipe, {"a\t b ", "x", "c"}), "");
  EXPECT_EQ(complaintAbout(recipe, {"a b", "c"}), "");
  EXPECT_EQ(complaintAbout(recipe, {"a b", "x"}), "not there: c");
  EXPECT_EQ(complaintAbout(recipe, {"x", "a b", "c"}), "not there: a b");
  EXPECT_EQ(complaintAbout(recipe, {"a b", "c", "d"}), "more than that: d");
}

}  // namespace
}  // namespace test
