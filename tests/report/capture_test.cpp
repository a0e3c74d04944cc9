// Machines as sondex-capture writes them: what is shown of a captured one is what was shown of the
// machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "harness/hostile_device.h"
#include "harness/run.h"
#include "harness/size_limit.h"
#include "harness/stepped_device.h"
#include "harness/wait.h"
#include "harness/written_device.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace fs = std::filesystem;

// A file that is written by a capture, in a folder of its own for as long as this lives.
class CapturedFile {
 public:
  CapturedFile() {
    std::string name = (fs::temp_directory_path() / "sondex-capture-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder");
    folder_ = name;
  }
  CapturedFile(const CapturedFile &) = delete;
  CapturedFile &operator=(const CapturedFile &) = delete;
  ~CapturedFile() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }

  std::string path() const { return folder_ / "captured.toml"; }
  Environment environment() const { return {{"SONDEX_DEVICE", path()}}; }
  std::vector<std::string> neighbours() const {
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder_)) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }
  std::string text() const {
    std::ifstream input(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(input), {}};
  }

  // Fails the test where there is a message, or no file.
  void capture(const Environment &of, std::vector<std::string> arguments = {}) const {
    arguments.insert(arguments.end(), {"-o", path()});
    const Outcome outcome = runCapture(arguments, of);
    ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.error, "");
  }

 private:
  fs::path folder_;
};

// A stackshot is for root.
std::vector<std::string> optionsFor(const std::string &device) {
  if (device == "locked-down") return {};
  return {"--stacks"};
}

// What happens to a device between two samples is no figure: without that, but with what is refused
// from the beginning.
std::string withoutLaterEvents(const std::string &text) {
  static const std::regex later(R"((^|\n) *\{ at = [^\n]*\},(?=\n))");
  return std::regex_replace(text, later, "$1");
}

// A tenth of the processes of a crowd shows as much, in less time.
std::string withFewerCopies(const std::string &text) {
  static const std::regex thousands(R"(copies = (\d+)\d\d\d\b)");
  return std::regex_replace(text, thousands,
                            "copies = $01"
                            "00");
}

std::string firstDifference(const std::string &before, const std::string &after) {
  const std::vector<std::string> a = splitLines(before);
  const std::vector<std::string> b = splitLines(after);
  for (size_t i = 0; i < std::max(a.size(), b.size()); i++) {
    const std::string first = i < a.size() ? a[i] : "nothing";
    const std::string second = i < b.size() ? b[i] : "nothing";
    if (first != second) return first + "\n" + second;
  }
  return "";
}

class RoundTrip : public testing::TestWithParam<std::string> {
 protected:
  RoundTrip() : device_(withFewerCopies(withoutLaterEvents(steppedDeviceText(GetParam())))) {
    captured_.capture(device_.environment(), optionsFor(GetParam()));
  }

  void showsTheSame(const std::vector<std::string> &arguments, const Environment &more = {}) const {
    Environment environment = captured_.environment();
    environment.insert(environment.end(), more.begin(), more.end());
    const Outcome before = runSondex(arguments, device_.environment(more));
    const Outcome after = runSondex(arguments, environment);
    ASSERT_TRUE(before.exitedWith(0)) << before;
    EXPECT_TRUE(after.exitedWith(0)) << after;
    EXPECT_TRUE(after.output == before.output)
        << "of " << testing::PrintToString(arguments) << ":\n"
        << firstDifference(before.output, after.output);
    EXPECT_EQ(after.error, before.error);
  }

  std::vector<std::string> pids() const {
    std::vector<std::string> found;
    const std::string text = captured_.text();
    static const std::regex pid(R"(\npid = (\d+)\n)");
    for (std::sregex_iterator at(text.begin(), text.end(), pid), end; at != end; ++at) {
      found.push_back((*at)[1]);
    }
    return found;
  }

  WrittenDevice device_;
  CapturedFile captured_;
};

TEST_P(RoundTrip, CapturedAgainTheFileIsTheSame) {
  const CapturedFile again;
  again.capture(captured_.environment(), optionsFor(GetParam()));
  EXPECT_TRUE(again.text() == captured_.text()) << firstDifference(captured_.text(), again.text());
}

TEST_P(RoundTrip, TheListIsTheSame) {
  showsTheSame({}, {{"nc", "1"}});
}

TEST_P(RoundTrip, ReportsOnAllAreTheSame) {
  for (const char *word : {"fds", "net", "regions"}) showsTheSame({"all", word});
}

TEST_P(RoundTrip, FullReportsAreTheSame) {
  const std::vector<std::string> all = pids();
  ASSERT_FALSE(all.empty());
  constexpr size_t kMost = 6;  // spread over all of them
  const size_t step = std::max<size_t>(1, all.size() / kMost);
  for (size_t i = 0; i < all.size(); i += step) showsTheSame({all[i]});
}

INSTANTIATE_TEST_SUITE_P(OfShippedDevices, RoundTrip, testing::ValuesIn(shippedDevices()),
                         [](const auto &device) {
                           std::string name = device.param;
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

constexpr char kPhone[] = R"(
background = false
gestalt = { ComputerName = "Ada's phone", SerialNumber = "X0123", WifiAddress = "00:1b:44:11:3a:b7" }
load = [1.25, 0, { start = 2, growth = 0.5 }]
[kernel]
host = "adas-phone"
[clock]
mode = "stepped"
step = 2
start = 2024-03-05T14:07:09.5Z
zone = "CET-1CEST,M3.5.0,M10.5.0/3"
up = 100
[[interface]]
name = "en0"
received = { start = "1M", growth = 1.5 }
[wifi]
name = "Ada's network"
channel = 44
signal = -57
[[process]]
pid = 1
name = "launchd"
path = "/sbin/launchd"
resident = { start = "15M", growth = 16384 }
[[process]]
pid = 40
name = "Hello"
path = "/private/var/mobile/Hello.app/Hello"
arguments = ["/private/var/mobile/Hello.app/Hello", "--key=Secret7"]
user = 501
age = 2.5
user-time = 0.25
threads = [{ name = "main", state = "running", share = 20 }, { copies = 3 }]
descriptors = [
  { type = "file", path = "/private/var/mobile/a{brace}pid}.txt", mode = ["read"] },
  { type = "tcp", number = 5, local = "10.0.0.5:50001", remote = "93.184.216.34:443" },
]
regions = [
  { address = 0x100000000, size = "32K", contents = "cffaedfe 0c000001", path = "/private/var/mobile/Hello.app/Hello", protection = "r-x" },
  { address = 0x200000000, size = "1M", tag = 2, pieces = [{ at = "64K", bytes = "0102" }] },
]
)";

// From the process on.
std::string processOf(const std::string &text, const std::string &pid) {
  const size_t start = text.find("[[process]]\npid = " + pid + "\n");
  if (start == std::string::npos) return "";
  const size_t end = text.find("\n[[", start + 1);
  return text.substr(start, end == std::string::npos ? end : end - start);
}

TEST(Capture, IsReadable) {
  const WrittenDevice device(kPhone);
  const CapturedFile captured;
  captured.capture(device.environment());
  const std::string text = captured.text();
  EXPECT_THAT(text, HasSubstr("load = [1.25, 0, { start = 2, growth = 0.5 }]\n"));
  EXPECT_THAT(text, HasSubstr("timebase = [125, 3]\n"));
  EXPECT_THAT(text, HasSubstr("[clock]\n"
                              "mode = \"stepped\"\n"
                              "step = 2\n"
                              "start = 2024-03-05T14:07:09.500000Z\n"
                              "zone = \"CET-1CEST,M3.5.0,M10.5.0/3\"\n"
                              "up = 100\n"));
  EXPECT_THAT(text, HasSubstr("[[interface]]\n"
                              "name = \"en0\"\n"
                              "received = { start = \"1M\", growth = 1.5 }\n"));
  EXPECT_THAT(text, HasSubstr("[wifi]\n"
                              "name = \"Ada's network\"\n"
                              "channel = 44\n"
                              "signal = -57\n"));
  EXPECT_EQ(processOf(text, "1"),
            "[[process]]\n"
            "pid = 1\n"
            "name = \"launchd\"\n"
            "path = \"/sbin/launchd\"\n"
            "resident = { start = \"15M\", growth = 16384 }\n");
  EXPECT_EQ(processOf(text, "40"),
            "[[process]]\n"
            "pid = 40\n"
            "name = \"Hello\"\n"
            "path = \"/private/var/mobile/Hello.app/Hello\"\n"
            "arguments = [\"/private/var/mobile/Hello.app/Hello\", \"--key=Secret7\"]\n"
            "user = 501\n"
            "age = 2.5\n"
            "user-time = 0.25\n"
            "threads = [\n"
            "  { name = \"main\", state = \"running\", share = 20 },\n"
            "  { copies = 3 },\n"
            "]\n"
            "descriptors = [\n"
            "  { type = \"file\", mode = [\"read\"], path = "
            "\"/private/var/mobile/a{brace}pid}.txt\" },\n"
            "  { type = \"tcp\", number = 5, local = \"10.0.0.5:50001\", remote = "
            "\"93.184.216.34:443\" },\n"
            "]\n"
            "regions = [\n"
            "  { address = 4294967296, size = \"32K\", protection = \"r-x\", path = "
            "\"/private/var/mobile/Hello.app/Hello\" },\n"
            "  { address = 8589934592, size = \"1M\", tag = 2 },\n"
            "]\n");
}

TEST(Capture, IsItsOwnersAlone) {
  const WrittenDevice device(kPhone);
  const CapturedFile captured;
  captured.capture(device.environment());
  struct stat status = {};
  ASSERT_EQ(stat(captured.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  EXPECT_THAT(captured.neighbours(), ElementsAre("captured.toml"));
}

TEST(Capture, GoesToStandardOutputToo) {
  const WrittenDevice device(kPhone);
  const CapturedFile captured;
  captured.capture(device.environment());
  for (const std::vector<std::string> &arguments :
       std::vector<std::vector<std::string>>{{}, {"-o", "-"}}) {
    const Outcome outcome = runCapture(arguments, device.environment());
    EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
    EXPECT_EQ(outcome.output, captured.text());
  }
}

TEST(Capture, OfSomeProcessesHasNoOthers) {
  const WrittenDevice device(kPhone);
  const CapturedFile captured;
  captured.capture(device.environment(), {"40"});
  EXPECT_EQ(processOf(captured.text(), "1"), "");
  EXPECT_THAT(processOf(captured.text(), "40"), HasSubstr("name = \"Hello\"\n"));
}

TEST(Capture, OfNoSuchProcessWritesNothing) {
  const WrittenDevice device(kPhone);
  const CapturedFile captured;
  for (const std::vector<std::string> &arguments :
       std::vector<std::vector<std::string>>{{"1", "41"}, {"--memory", "41"}}) {
    std::vector<std::string> all = {"-o", captured.path()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const Outcome outcome = runCapture(all, device.environment());
    EXPECT_TRUE(outcome.exitedWith(1)) << outcome;
    EXPECT_EQ(outcome.error, "sondex-capture: 41: No such process!\n");
    EXPECT_THAT(captured.neighbours(), IsEmpty());
  }
}

TEST(Capture, TakesMemoryAlong) {
  const WrittenDevice device(kPhone);
  const CapturedFile captured;
  captured.capture(device.environment(), {"--memory", "40"});
  const std::string process = processOf(captured.text(), "40");
  EXPECT_THAT(process, HasSubstr("pieces = [{ bytes = \"cffaedfe0c000001cffaedfe"));
  EXPECT_THAT(process, HasSubstr("pieces = [{ at = 65536, bytes = \"0102"));
  EXPECT_THAT(process, HasSubstr("share = 20, registers = { x = ["));
  const CapturedFile again;
  again.capture(captured.environment(), {"--memory", "40"});
  EXPECT_EQ(again.text(), captured.text());
}

TEST(Capture, OfMoreMemoryThanAFileHoldsSaysSo) {
  const WrittenDevice device(std::string(kSteppedClock) +
                             "[[process]]\npid = 1\nname = \"launchd\"\nregions = [{ address = "
                             "4096, size = \"65M\", contents = \"01\" }]\n");
  const CapturedFile captured;
  const Outcome outcome =
      runCapture({"--memory", "1", "-o", captured.path()}, device.environment());
  EXPECT_TRUE(outcome.exitedWith(1)) << outcome;
  EXPECT_EQ(outcome.error, "sondex-capture: " + captured.path() +
                               ": a device file has at most 128 MiB: name fewer processes\n");
  EXPECT_THAT(captured.neighbours(), IsEmpty());
}

TEST(Capture, OfAMachineThatSaysNothingSaysSo) {
  const Outcome outcome = runCapture({}, {{"SONDEX_DEVICE", "none"}});
  EXPECT_TRUE(outcome.exitedWith(1)) << outcome;
  EXPECT_EQ(outcome.error, "uname: Operation not supported\n");
  EXPECT_EQ(outcome.output, "");
}

TEST(Capture, AsJSONIsTheSameTree) {
  const WrittenDevice device(kPhone);
  const Outcome outcome = runCapture({"--json", "40"}, device.environment());
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output, HasSubstr("\"start\": \"2024-03-05T14:07:09.500000Z\""));
  const size_t start = outcome.output.find("  \"process\": ");
  ASSERT_NE(start, std::string::npos);
  EXPECT_EQ(outcome.output.substr(start),
            R"(  "process": [{
    "pid": 40,
    "name": "Hello",
    "path": "/private/var/mobile/Hello.app/Hello",
    "arguments": ["/private/var/mobile/Hello.app/Hello", "--key=Secret7"],
    "user": 501,
    "age": 2.5,
    "user-time": 0.25,
    "threads": [
  {"name": "main", "state": "running", "share": 20, "id": 258},
  {"id": 259},
  {"id": 260},
  {"id": 261}
],
    "descriptors": [
  {"type": "file", "mode": ["read"], "path": "/private/var/mobile/a{pid}.txt"},
  {"type": "tcp", "number": 5, "local": "10.0.0.5:50001", "remote": "93.184.216.34:443"}
],
    "regions": [
  {"address": 4294967296, "size": 32768, "protection": "r-x", "path": "/private/var/mobile/Hello.app/Hello"},
  {"address": 8589934592, "size": 1048576, "tag": 2}
]}]
}
)");
}

TEST(Capture, AnonymousHasNothingOfItsOwner) {
  const WrittenDevice device(kPhone);
  const CapturedFile captured;
  captured.capture(device.environment(), {"--anonymous"});
  const std::string text = captured.text();
  for (const char *own : {"Ada", "adas", "phone", "X0123", "00:1b", "Hello.app", "Secret",
                          "10.0.0.5", "93.184", ".txt"}) {
    EXPECT_THAT(text, Not(HasSubstr(own)));
  }
  // Of the same length and kind.
  EXPECT_THAT(text, testing::ContainsRegex("host = \"[a-z]{4}-[a-z]{5}\"\n"));
  EXPECT_THAT(text, testing::ContainsRegex("ComputerName = \"[A-Z][a-z][a-z]'[a-z] [a-z]{5}\"\n"));
  EXPECT_THAT(text, testing::ContainsRegex("SerialNumber = \"[A-Z][0-9]{4}\"\n"));
  EXPECT_THAT(text,
              testing::ContainsRegex("WifiAddress = \"[0-9]{2}(:[0-9a-f]{2}){4}:[a-f][0-9]\"\n"));
  EXPECT_THAT(text, testing::ContainsRegex("name = \"[A-Z][a-z][a-z]'[a-z] [a-z]{7}\"\n"));
  EXPECT_THAT(text, testing::ContainsRegex(
                        "path = \"/private/var/mobile/[A-Z][a-z]{4}\\.[a-z]{3}/[A-Z][a-z]{4}\"\n"));
  EXPECT_THAT(text, testing::ContainsRegex("--[a-z]{3}=[A-Z][a-z]{5}[0-9]\""));
  EXPECT_THAT(text,
              testing::ContainsRegex("local = \"10\\.[0-9]\\.[0-9]\\.[0-9]:50001\", "
                                     "remote = \"[0-9]{2}\\.[0-9]{3}\\.[0-9]{3}\\.[0-9]{2}:443\""));
  // The same text has the same stand-in.
  std::smatch path;
  ASSERT_TRUE(std::regex_search(text, path, std::regex("\npath = (\"/private[^\"]*\")\n")));
  EXPECT_THAT(text, HasSubstr("arguments = [" + path[1].str()));
  EXPECT_THAT(text, HasSubstr("protection = \"r-x\", path = " + path[1].str()));
  // Another file has others.
  const CapturedFile again;
  again.capture(device.environment(), {"--anonymous"});
  EXPECT_NE(again.text(), text);
}

TEST(Capture, ThatDoesNotFitLeavesWhatWasThere) {
  const WrittenDevice device(kPhone);
  const CapturedFile captured;
  std::ofstream(captured.path()) << "before";
  const Outcome outcome = [&] {
    const SizeLimit limit(1024);
    return runCapture({"-o", captured.path()}, device.environment());
  }();
  EXPECT_TRUE(outcome.exitedWith(1)) << outcome;
  EXPECT_EQ(outcome.error,
            "sondex-capture: the temporary file: " + std::string(std::strerror(EFBIG)) + "\n");
  EXPECT_EQ(captured.text(), "before");
  EXPECT_THAT(captured.neighbours(), ElementsAre("captured.toml"));
}

TEST(Capture, WhereNothingCanBeWrittenSaysSoAtOnce) {
  const WrittenDevice device(kPhone);
  const Outcome outcome = runCapture({"-o", "/nowhere/phone.toml"}, device.environment());
  EXPECT_TRUE(outcome.exitedWith(1)) << outcome;
  EXPECT_EQ(outcome.error, "sondex-capture: /nowhere/phone.toml: No such file or directory\n");
}

TEST(Capture, IntoWhatIsNoFileLeavesThatWhatItIs) {
  const WrittenDevice device(kPhone);
  const Outcome full = runCapture({"-o", "/dev/full"}, device.environment());
  EXPECT_TRUE(full.exitedWith(1)) << full;
  EXPECT_EQ(full.error, "sondex-capture: /dev/full: No space left on device\n");
  EXPECT_TRUE(fs::is_character_file("/dev/full"));
  const Outcome null = runCapture({"-o", "/dev/null"}, device.environment());
  EXPECT_TRUE(null.exitedWith(0)) << null;
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST(Capture, ThroughALinkLeavesTheLink) {
  const WrittenDevice device(kPhone);
  const CapturedFile captured;
  captured.capture(device.environment());
  const CapturedFile other;
  fs::create_symlink(captured.path(), other.path());
  std::ofstream(captured.path()) << "before";
  other.capture(device.environment());
  EXPECT_TRUE(fs::is_symlink(other.path()));
  EXPECT_THAT(captured.text(), HasSubstr("[kernel]"));
}

TEST(Capture, EndedByASignalLeavesNothing) {
  const WrittenDevice device(kPhone);
  const CapturedFile captured;
  Launch launch;
  launch.program = fs::path(sondexPath()).replace_filename("sondex-capture");
  launch.arguments = {"-o", captured.path()};
  launch.environment = device.environment();
  Child child(launch);
  ASSERT_TRUE(waitUntil([&] { return !captured.neighbours().empty(); }));
  child.signal(SIGTERM);
  const std::optional<Ending> ending = child.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_EQ(ending->signal, SIGTERM);
  EXPECT_THAT(captured.neighbours(), IsEmpty());
}

TEST(Capture, OfHostileNamesIsSafeToLookAtAndTheSameAgain) {
  const WrittenDevice device(hostileDevice());
  const CapturedFile captured;
  captured.capture(device.environment(), {"--stacks"});
  const std::string text = captured.text();
  EXPECT_THAT(text, Not(testing::ContainsRegex("[\x01-\x09\x0b-\x1f\x7f]")));
  for (const char *driving : {"\u009b", "\u202e", "\u200b", "\ufeff"}) {
    EXPECT_THAT(text, Not(HasSubstr(driving)));
  }
  const CapturedFile again;
  again.capture(captured.environment(), {"--stacks"});
  EXPECT_EQ(again.text(), text);
  for (const std::vector<std::string> &arguments :
       std::vector<std::vector<std::string>>{{"gestalt"}, {"60"}, {"all", "fds"}}) {
    EXPECT_EQ(runSondex(arguments, captured.environment()).output,
              runSondex(arguments, device.environment()).output);
  }
}

// Of other users' processes it is told little more than that they are there.
TEST(Capture, BySomebodyElseThanRootIsTheSameAgain) {
  if (!isRoot()) GTEST_SKIP() << "needs root to be somebody else";
  const Outcome first = runCapture({}, {}, kNobody);
  ASSERT_TRUE(first.exitedWith(0)) << first.error;
  EXPECT_THAT(first.output, HasSubstr("caller = 65534\n"));
  const WrittenDevice device(first.output);
  const Outcome again = runCapture({}, device.environment());
  EXPECT_TRUE(again.output == first.output) << firstDifference(first.output, again.output);
}

// Processes that come and go meanwhile are there whole or not at all.
TEST(Capture, OfAMachineWithComingsAndGoingsLoads) {
  std::atomic<bool> isOver = false;
  std::thread churn([&] {
    while (!isOver) {
      const pid_t child = fork();
      if (child == 0) _exit(0);
      if (child > 0) waitpid(child, nullptr, 0);
    }
  });
  for (int i = 0; i < 3; i++) {
    const CapturedFile captured;
    captured.capture({});
    const Outcome list = runSondex({}, [&] {
      Environment environment = captured.environment();
      environment.emplace_back("nc", "1");
      return environment;
    }());
    EXPECT_TRUE(list.exitedWith(0)) << list;
  }
  isOver = true;
  churn.join();
}

TEST(Capture, Of5000ProcessesIsTheSameAgain) {
  if (sondexIsSanitized()) GTEST_SKIP() << "takes minutes with a sanitizer";
  const SteppedDevice crowd("crowd");
  const CapturedFile captured;
  captured.capture(crowd.environment());
  const CapturedFile again;
  again.capture(captured.environment());
  EXPECT_TRUE(again.text() == captured.text());
}

// This machine, as far as it stays the same: once captured, it stands still. A zombie is told of.
TEST(Capture, OfThisMachineIsTheSameAgain) {
  const pid_t zombie = fork();
  if (zombie == 0) _exit(0);
  siginfo_t ended = {};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(zombie), &ended, WEXITED | WNOWAIT), 0);
  const CapturedFile captured;
  captured.capture({});
  const std::vector<std::string> ofZombie = {std::to_string(zombie)};
  const Outcome live = runSondex(ofZombie);
  waitpid(zombie, nullptr, 0);
  const CapturedFile again;
  again.capture(captured.environment());
  EXPECT_TRUE(again.text() == captured.text()) << firstDifference(captured.text(), again.text());
  EXPECT_THAT(captured.text(), HasSubstr("\npid = " + std::to_string(zombie) + "\nname = \""));
  EXPECT_EQ(runSondex(ofZombie, captured.environment()).output, live.output);
}

TEST(Capture, OfDescriptorsThatAreClosedMeanwhileHasNone) {
  const WrittenDevice device(
      "[[process]]\npid = 1\nname = \"a\"\ndescriptors = [{ type = \"pipe\" }]\n"
      "[[event]]\ndo = \"fail\"\ncall = \"proc_pidfdinfo\"\nerror = \"EBADF\"\n");
  const CapturedFile captured;
  captured.capture(device.environment());
  EXPECT_THAT(captured.text(), Not(HasSubstr("descriptors")));
}

// One that the kernel does not list has neither a family nor a type.
TEST(Capture, OfASocketOfNoTypeKeepsThat) {
  const WrittenDevice device(
      "[[process]]\npid = 1\nname = \"a\"\n"
      "descriptors = [{ type = \"socket\", socket-type = 0 }, { type = \"socket\" }]\n");
  const CapturedFile captured;
  captured.capture(device.environment());
  EXPECT_THAT(captured.text(),
              HasSubstr("  { type = \"socket\", socket-type = 0 },\n  { type = \"socket\" },\n"));
}

// What it took of a processor before has not faded yet.
TEST(Capture, OfAStoppedProcessIsTheSameAgain) {
  const WrittenDevice device(
      "[[process]]\npid = 1\nname = \"a\"\nstatus = \"stop\"\n"
      "threads = [{ share = { start = 30.6, growth = -29 } }]\n"
      "[clock]\nmode = \"stepped\"\nstart = 2026-01-01T00:00:00Z\nzone = \"UTC\"\n");
  const CapturedFile captured;
  captured.capture(device.environment());
  EXPECT_THAT(captured.text(),
              HasSubstr("state = \"stopped\", share = { start = 30.6, growth = -29 }"));
  const CapturedFile again;
  again.capture(captured.environment());
  EXPECT_EQ(again.text(), captured.text());
}

// Whenever that happens: in the file it is stopped, and stands still.
TEST(Capture, OfAProcessThatIsStoppedAndGoesOnIsTheSameAgain) {
  const pid_t parent = getpid();
  const pid_t process = fork();
  if (process == 0) {
    raise(SIGSTOP);
    while (getppid() == parent) continue;
    _exit(0);
  }
  siginfo_t change = {};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(process), &change, WSTOPPED | WNOWAIT), 0);
  const CapturedFile captured;
  std::thread later([process] {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    kill(process, SIGCONT);
  });
  captured.capture({}, {std::to_string(process)});
  later.join();
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
  const CapturedFile again;
  again.capture(captured.environment());
  EXPECT_TRUE(again.text() == captured.text()) << firstDifference(captured.text(), again.text());
}

// It was listed among the others.
TEST(Capture, OfAProcessThatBecomesAZombieIsTheSameAgain) {
  const WrittenDevice device(
      "[[process]]\npid = 1\nname = \"a\"\n[[process]]\npid = 20\nname = \"b\"\nusage = true\n"
      "band = 10\nsandbox = \"unknown\"\n[[process]]\npid = 30\nname = \"c\"\n"
      "[[event]]\ndo = \"fail\"\ncall = \"proc_pidinfo\"\nprocess = 20\nerror = \"ESRCH\"\n"
      "[[event]]\ndo = \"fail\"\ncall = \"csops\"\nprocess = 20\nerror = \"ESRCH\"\n"
      "[clock]\nmode = \"stepped\"\nstart = 2026-01-01T00:00:00Z\nzone = \"UTC\"\n");
  const CapturedFile captured;
  captured.capture(device.environment());
  const CapturedFile again;
  again.capture(captured.environment());
  EXPECT_EQ(again.text(), captured.text());
  EXPECT_THAT(captured.text(),
              HasSubstr("pid = 20\nname = \"\"\npath = \"\"\nstatus = \"zombie\"\n"));
}

}  // namespace
}  // namespace test
