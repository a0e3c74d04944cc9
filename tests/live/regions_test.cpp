// The region map on this machine's kernel, for processes whose mappings the test chose: against
// what was chosen, and line for line against /proc/PID/maps.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "harness/helper.h"
#include "harness/process_facts.h"
#include "harness/run.h"

namespace test {
namespace {

// Where nothing stands on its own.
constexpr uint64_t kArea = 0x200000000000;
constexpr uint64_t kApart = 0x10000000;  // from one chosen mapping to the next
constexpr uint64_t kMany = 60'000;

struct Line {
  std::string tag;
  std::string object;
  uint64_t start = 0;
  uint64_t end = 0;
  std::string size;
  std::string rights;
  std::string most;
  std::string sharing;
  std::string path;
};

std::optional<Line> parseLine(const std::string &text) {
  Line line;
  if (text.size() < 23 || text[22] != ' ') return std::nullopt;
  line.tag = text.substr(0, text.find_last_not_of(' ', 21) + 1);
  std::istringstream rest(text.substr(23));
  std::string range;
  if (!(rest >> line.object >> range)) return std::nullopt;
  const size_t dash = range.find('-');
  if (dash == std::string::npos || dash < 12 || range.size() - dash - 1 < 12) return std::nullopt;
  line.start = std::stoull(range.substr(0, dash), nullptr, 16);
  line.end = std::stoull(range.substr(dash + 1), nullptr, 16);
  const std::string after = text.substr(23 + static_cast<size_t>(rest.tellg()));
  const size_t close = after.find(']');
  if (!after.starts_with(" [") || close == std::string::npos || after.size() < close + 14) {
    return std::nullopt;
  }
  line.size = after.substr(2, close - 2);
  line.rights = after.substr(close + 2, 3);
  line.most = after.substr(close + 6, 3);
  line.sharing = after.substr(close + 10, 3);
  line.path = after.substr(close + 14);
  return line;
}

// Without the empty line that ends a report.
std::vector<Line> parseReport(const std::string &report) {
  std::vector<Line> lines;
  for (const std::string &text : splitLines(report)) {
    if (text.empty()) continue;
    const std::optional<Line> line = parseLine(text);
    EXPECT_TRUE(line) << text;
    if (line) lines.push_back(*line);
  }
  return lines;
}

std::vector<Line> regionsOf(pid_t pid) {
  const Outcome outcome = runSondex({std::to_string(pid), "regions"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(withoutSampling(outcome.error), "");
  EXPECT_TRUE(outcome.output.ends_with("\n\n"));
  return parseReport(outcome.output);
}

std::string scaled(uint64_t bytes) {
  const std::vector<std::string> units = {"??", "K", "M", "G"};
  size_t unit = 0;
  for (; unit < 3 && bytes > 1024; unit++) bytes /= 1024;
  const std::string number = std::to_string(bytes);
  return std::string(number.size() < 4 ? 4 - number.size() : 0, ' ') + number + units[unit];
}

// As a terminal may show it: the kernel's "\012" is a newline, and no control byte gets through.
std::string shownPath(std::string path) {
  for (size_t at = 0; (at = path.find("\\012")) != std::string::npos;) path.replace(at, 4, "?");
  for (char &byte : path) {
    if (static_cast<unsigned char>(byte) < ' ' || byte == 0x7f) byte = '?';
  }
  return path;
}

// A line of /proc/PID/maps as the report has it, without what the kernel doesn't say there.
Line expectedOf(const std::string &text) {
  std::istringstream words(text);
  std::string rights;
  std::string ignored;
  char dash = '?';
  Line line;
  words >> std::hex >> line.start >> dash >> line.end >> rights >> ignored >> ignored >> ignored;
  if (words.fail() || dash != '-' || rights.size() != 4) {
    ADD_FAILURE() << text;
    return line;
  }
  std::string name;
  std::getline(words >> std::ws, name);
  line.size = scaled(line.end - line.start);
  line.rights = rights.substr(0, 3);
  if (name.starts_with("/")) line.path = shownPath(name);
  if (name.starts_with("[v")) {
    line.sharing = "TRU";
  } else if (rights[3] == 's') {
    line.sharing = "SHM";
  } else if (!line.path.empty()) {
    line.sharing = "COW";
  } else {
    line.sharing = line.rights == "---" ? "NUL" : "PRV";
  }
  return line;
}

void expectMapToAgree(pid_t pid, const std::vector<Line> &lines) {
  const std::vector<std::string> maps =
      splitLines(readFile("/proc/" + std::to_string(pid) + "/maps"));
  ASSERT_EQ(lines.size(), maps.size());
  for (size_t i = 0; i < maps.size(); i++) {
    const Line expected = expectedOf(maps[i]);
    ASSERT_EQ(lines[i].start, expected.start) << maps[i];
    ASSERT_EQ(lines[i].end, expected.end) << maps[i];
    ASSERT_EQ(lines[i].size, expected.size) << maps[i];
    ASSERT_EQ(lines[i].rights, expected.rights) << maps[i];
    ASSERT_EQ(lines[i].sharing, expected.sharing) << maps[i];
    ASSERT_EQ(lines[i].path, expected.path) << maps[i];
  }
}

class RegionMap : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(mkdtemp(directory_.data()), nullptr); }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  std::string file(const std::string &name) const { return directory_ + "/" + name; }
  // A place of its own for each.
  static std::string place(uint64_t number) { return std::to_string(kArea + number * kApart); }
  static Steps map(uint64_t number, uint64_t bytes, const std::string &kind,
                   const std::string &rights, const std::string &path) {
    return {"map", place(number), std::to_string(bytes), kind, rights, path};
  }
  static Line at(const std::vector<Line> &lines, uint64_t address) {
    for (const Line &line : lines) {
      if (line.start == address) return line;
    }
    ADD_FAILURE() << "nothing at " << std::hex << address;
    return {};
  }
  static Line atPlace(const std::vector<Line> &lines, uint64_t number) {
    return at(lines, kArea + number * kApart);
  }
  static void expectRegion(const Line &line, const std::string &tag, const std::string &size,
                           const std::string &rest) {
    EXPECT_EQ(line.tag, tag);
    EXPECT_EQ(line.size, size);
    EXPECT_EQ(line.rights + "/" + line.most + " " + line.sharing + " " + line.path, rest);
  }

  std::string directory_ = "/tmp/regions_test.XXXXXX";
};

Steps joined(const std::vector<Steps> &parts) {
  Steps all;
  for (const Steps &part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

TEST_F(RegionMap, OfKnownMappings) {
  const std::string hostile = file("a\n\x1b[31mb\x7f c");
  const std::string shared = "/dev/shm/" + uniqueName("rm");
  std::ofstream(file("gone")) << "x";
  const Helper helper(joined({
      map(1, 16384, "private", "rw", "-"),
      map(2, uint64_t{1} << 20, "private", "rwx", "-"),
      map(3, (uint64_t{1} << 20) + kPage, "private", "r", "-"),
      map(100, uint64_t{3} << 30, "private", "-", "-"),
      map(5, 8192, "private", "r", file("data")),
      map(6, 8192, "private", "rw", file("data")),
      map(7, 8192, "shared", "rw", file("data")),
      map(8, 8192, "shared", "r", file("data")),
      map(9, 8192, "reading", "r", file("data")),
      map(10, kPage, "shared", "rw", "-"),
      map(11, kPage, "shared", "rw", shared),
      map(12, kPage, "private", "r", hostile),
      map(13, kPage, "private", "r", file("gone")),
      {"unlink", file("gone")},
      map(14, kPage, "private", "rx", file("code.so")),
      {"guard", std::to_string(kArea + 30 * kApart - kPage), std::to_string(kPage)},
      {"stacks", place(30), "3"},
      {"memfd", "of memory"},
  }));
  // A stack is known by the thread that waits on it.
  ASSERT_TRUE(comesToRest(helper.pid()));
  const std::vector<Line> lines = regionsOf(helper.pid());
  expectMapToAgree(helper.pid(), lines);
  EXPECT_EQ(unlink(shared.c_str()), 0);

  expectRegion(atPlace(lines, 1), "", "  16K", "rw-/rwx PRV ");
  expectRegion(atPlace(lines, 2), "", "1024K", "rwx/rwx PRV ");
  expectRegion(atPlace(lines, 3), "", "   1M", "r--/rwx PRV ");
  expectRegion(atPlace(lines, 100), "GUARD", "   3G", "---/rwx NUL ");
  expectRegion(atPlace(lines, 5), "", "   8K", "r--/rwx COW " + file("data"));
  expectRegion(atPlace(lines, 6), "", "   8K", "rw-/rwx COW " + file("data"));
  expectRegion(atPlace(lines, 7), "", "   8K", "rw-/rwx SHM " + file("data"));
  expectRegion(atPlace(lines, 8), "", "   8K", "r--/rwx SHM " + file("data"));
  expectRegion(atPlace(lines, 9), "", "   8K", "r--/r-x SHM " + file("data"));
  expectRegion(atPlace(lines, 10), "Shared PMAP", "   4K", "rw-/rwx SHM /dev/zero (deleted)");
  expectRegion(atPlace(lines, 11), "Shared PMAP", "   4K", "rw-/rwx SHM " + shared);
  expectRegion(atPlace(lines, 12), "", "   4K", "r--/rwx COW " + file("a??[31mb? c"));
  expectRegion(atPlace(lines, 13), "", "   4K", "r--/rwx COW " + file("gone") + " (deleted)");
  expectRegion(atPlace(lines, 14), "Dylib", "   4K", "r-x/rwx COW " + file("code.so"));
  expectRegion(at(lines, kArea + 30 * kApart - kPage), "STACK_GUARD", "   4K", "---/rwx NUL ");
  expectRegion(atPlace(lines, 30), "Stack", " 192K", "rw-/rwx PRV ");

  const std::string object = atPlace(lines, 5).object;
  EXPECT_NE(object, "0x00000000");
  for (const uint64_t same : {6, 7, 8, 9}) EXPECT_EQ(atPlace(lines, same).object, object);
  for (const uint64_t other : {11, 12, 13, 14}) EXPECT_NE(atPlace(lines, other).object, object);
  EXPECT_EQ(atPlace(lines, 1).object, "0x00000000");
}

TEST_F(RegionMap, OfWhatEveryProcessHas) {
  const Helper helper(Steps{});
  const std::vector<Line> lines = regionsOf(helper.pid());
  expectMapToAgree(helper.pid(), lines);
  std::map<std::string, size_t> tags;
  for (const Line &line : lines) {
    tags[line.tag]++;
    const bool isProgram = line.path == std::filesystem::canonical(makeProcessPath());
    const bool isLibrary = line.path.find("/libc.so") != std::string::npos;
    if (isProgram || isLibrary) {
      EXPECT_EQ(line.tag, isProgram ? "" : "Dylib") << line.path;
    }
  }
  EXPECT_EQ(tags["MALLOC_SMALL"], 1u);
  EXPECT_EQ(tags["Stack"], 1u);
  EXPECT_GT(tags["Dylib"], 3u);
  EXPECT_GT(tags["DYLD"], 1u);
  EXPECT_GT(tags["Shared PMAP"], 0u);
}

// A helper with that many mappings, but only where the system lets it have them.
Steps manyMappings() {
  return {"mappings", std::to_string(kArea), std::to_string(kMany)};
}
bool mayHaveMany() {
  return std::strtoul(readFile("/proc/sys/vm/max_map_count").c_str(), nullptr, 10) > kMany + 1000;
}

TEST_F(RegionMap, OfManyMappings) {
  if (!mayHaveMany()) GTEST_SKIP() << "a process may not have so many mappings";
  const Helper helper(manyMappings());
  const std::vector<Line> lines = regionsOf(helper.pid());
  expectMapToAgree(helper.pid(), lines);
  uint64_t next = kArea;
  for (const Line &line : lines) {
    if (line.start != next || next == kArea + kMany * kPage) continue;
    const bool isOdd = (next - kArea) / kPage % 2 != 0;
    EXPECT_EQ(line.rights, isOdd ? "rw-" : "r--");
    next += kPage;
  }
  EXPECT_EQ(next, kArea + kMany * kPage) << "complete and in order";
}

// The map is longer than what is printed at a time, and the pipe takes little: it has only begun
// when the process is ended.
TEST_F(RegionMap, OfAProcessThatEndsMeanwhile) {
  if (!mayHaveMany()) GTEST_SKIP() << "a process may not have so many mappings";
  Helper helper(manyMappings());
  const std::vector<std::string> maps =
      splitLines(readFile("/proc/" + std::to_string(helper.pid()) + "/maps"));
  Pipe output = makePipe();
  Launch launch;
  launch.program = sondexPath();
  launch.arguments = {std::to_string(helper.pid()), "regions"};
  launch.output = output.writeEnd.get();
  Child child(launch);
  output.writeEnd.close();

  char piece[4096];
  ssize_t length = read(output.readEnd.get(), piece, sizeof piece);
  ASSERT_GT(length, 0);
  std::string report(piece, static_cast<size_t>(length));
  ASSERT_EQ(kill(helper.pid(), SIGKILL), 0);
  ASSERT_TRUE(helper.waitForEnd());
  while ((length = read(output.readEnd.get(), piece, sizeof piece)) > 0) {
    report.append(piece, static_cast<size_t>(length));
  }
  const std::optional<Ending> ending = child.waitForEnd();
  ASSERT_TRUE(ending);
  EXPECT_TRUE(ending->exitedWith(0)) << *ending;

  EXPECT_TRUE(report.ends_with("\n\n"));
  const std::vector<Line> lines = parseReport(report);
  EXPECT_GT(report.size(), size_t{2} << 20);
  ASSERT_LE(lines.size(), maps.size());
  for (size_t i = 0; i < lines.size(); i++) {
    ASSERT_EQ(lines[i].start, expectedOf(maps[i]).start) << "nothing is missing before the end";
  }
}

TEST_F(RegionMap, OfAnothersProcessThereIsNone) {
  if (!isRoot()) GTEST_SKIP() << "needs root to be another user";
  const Helper helper(Steps{});
  const Outcome outcome = runSondex({std::to_string(helper.pid()), "regions"}, {}, kNobody);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "\n");
}

TEST_F(RegionMap, OfTheUsersOwnProcess) {
  if (!isRoot()) GTEST_SKIP() << "needs root to be another user";
  // One that gave up being root keeps itself to itself until it is another program.
  const Helper helper({"user", std::to_string(kNobody), "deleted"});
  if (!mayLookInto(helper.pid())) GTEST_SKIP() << kMayNotLook;
  const Outcome outcome = runSondex({std::to_string(helper.pid()), "regions"}, {}, kNobody);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  expectMapToAgree(helper.pid(), parseReport(outcome.output));
}

TEST_F(RegionMap, OfAZombieThereIsNone) {
  const Helper helper({"zombies", "1"});
  const Outcome outcome = runSondex({std::to_string(helper.children().at(0)), "regions"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "\n");
}

TEST_F(RegionMap, OfAKernelThreadThereIsNone) {
  const std::optional<ProcessFacts> facts = readFacts(2);
  if (!facts || facts->name != "kthreadd") GTEST_SKIP() << "none is to be seen from here";
  const Outcome outcome = runSondex({"2", "regions"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "\n");
}

}  // namespace
}  // namespace test
