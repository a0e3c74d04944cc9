// The core files that `sondex` writes of processes of a simulated device, and what it says of them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "harness/core_commands.h"
#include "harness/core_file.h"
#include "harness/own_tmp.h"
#include "harness/run.h"
#include "harness/size_limit.h"
#include "harness/terminal.h"
#include "harness/written_device.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

// What the exit status keeps of -5 and of -1.
constexpr int kNoTaskPort = 251;
constexpr int kFailed = 255;

constexpr char kNoPort[] = "Unable to get task port (SIP?)\n";
constexpr char kNoPortOfAUser[] = "Unable to get task port (Not root, or possibly due to SIP)\n";
constexpr char kSpecialPort[] =
    "Unable to get Task port for PID 0 (kernel_task) - trying special port #4 instead...\n";

// Three regions: an executable's, a guard, and one in pieces of which ends in the middle.
constexpr char kRegions[] = R"(
regions = [
  { address = 0x100000000, size = "8K", protection = "r-x", largest = "r-x", contents = "cffaedfe 01020304" },
  { address = 0x100002000, size = "4K", protection = "---" },
  { address = 0x16f000000, size = "4K", contents = "616263" },
]
threads = [
  { registers = { pc = 0x100000010, sp = 0x16f000100 } },
  { registers = { pc = 0x100000020, sp = 0x16f000200 } },
]
)";

std::string processText(int pid, const std::string &keys) {
  return "[[process]]\nname = \"dumped\"\npid = " + std::to_string(pid) + "\n" + keys;
}

std::string full(int pid) {
  return "Full core dumped to /tmp/core." + std::to_string(pid) + "\n";
}

std::string failed(int pid) {
  return "Core dump of process " + std::to_string(pid) + " failed\n";
}

std::string repeated(const std::string &contents, size_t size) {
  std::string bytes;
  while (bytes.size() < size) bytes += contents;
  bytes.resize(size);
  return bytes;
}

void put32(std::string &bytes, uint32_t value) {
  bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
}
void put64(std::string &bytes, uint64_t value) {
  bytes.append(reinterpret_cast<const char *>(&value), sizeof value);
}

void putSegment(std::string &bytes, const char *name, uint64_t address, uint64_t size,
                uint64_t offset, uint64_t fileSize, uint32_t most, uint32_t protection) {
  put32(bytes, 25);
  put32(bytes, 72);
  std::string padded = name;
  padded.resize(16);
  bytes += padded;
  for (const uint64_t value : {address, size, offset, fileSize}) put64(bytes, value);
  for (const uint32_t value : {most, protection, 0U, 0U}) put32(bytes, value);
}

void putThread(std::string &bytes, uint64_t programCounter, uint64_t stackPointer) {
  for (const uint32_t value : {4U, 288U, 6U, 68U}) put32(bytes, value);
  bytes.append(31 * 8, '\0');
  put64(bytes, stackPointer);
  put64(bytes, programCounter);
  put64(bytes, 0);
}

// What the core of such a process holds, byte by byte.
std::string wantedCore() {
  std::string core;
  for (const uint32_t word : {0xFEEDFACFU, 0x0100000CU, 0U, 4U, 5U, 3U * 72 + 2 * 288, 0U, 0U}) {
    put32(core, word);
  }
  putSegment(core, "Segment.0", 0x100000000, 0x2000, 0x1000, 0x2000, 5, 5);
  putSegment(core, "Segment.1", 0x100002000, 0x1000, 0x3000, 0x1000, 7, 0);
  putSegment(core, "Segment.2", 0x16f000000, 0x1000, 0x4000, 0x1000, 7, 3);
  putThread(core, 0x100000010, 0x16f000100);
  putThread(core, 0x100000020, 0x16f000200);
  core.resize(0x1000);
  core += repeated("\xcf\xfa\xed\xfe\x01\x02\x03\x04", 0x2000);
  core.append(0x1000, '\0');
  return core + repeated("abc", 0x1000);
}

// Where /tmp is everybody's, somebody else's file may have a name already.
std::string whatIsAt(const std::string &path) {
  struct stat found {};
  if (lstat(path.c_str(), &found) != 0) return "nothing";
  return std::to_string(found.st_ino) + ", changed " + std::to_string(found.st_ctim.tv_sec) + "." +
         std::to_string(found.st_ctim.tv_nsec);
}

// On a device with one process that has the file's PID.
class Core : public testing::Test {
 protected:
  Outcome run(const std::vector<std::string> &words, const std::string &keys = kRegions,
              const std::string &end = "", const Environment &environment = {},
              const std::string &top = "") const {
    const WrittenDevice device(top + kSteppedClock + processText(core.pid(), keys) + end);
    std::vector<std::string> arguments = {std::to_string(core.pid())};
    arguments.insert(arguments.end(), words.begin(), words.end());
    return runSondex(arguments, device.environment(environment));
  }

  static void expect(const Outcome &outcome, int status, const std::string &error) {
    EXPECT_TRUE(outcome.exitedWith(status)) << outcome;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(withoutSampling(outcome.error), error);
  }

  CoreFile core;
};

TEST_F(Core, HoldsTheWholeProcess) {
  expect(run({"core"}), 0, full(core.pid()));
  EXPECT_TRUE(core.bytes() == wantedCore());
  struct stat found {};
  ASSERT_EQ(stat(core.path().c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 07777, 0600u);
}

TEST_F(Core, IsTheSameWhenItIsMini) {
  expect(run({"core", "mini"}), 0,
         "Mini core dumped to /tmp/core." + std::to_string(core.pid()) + "\n");
  EXPECT_TRUE(core.bytes() == wantedCore());
  // Another word makes it none.
  expect(run({"core", "tiny"}), 0, full(core.pid()));
  EXPECT_TRUE(core.bytes() == wantedCore());
}

TEST_F(Core, OfAProcessByItsName) {
  const WrittenDevice device(kSteppedClock + processText(core.pid(), kRegions));
  expect(runSondex({"dumped", "core"}, device.environment()), 0, full(core.pid()));
  EXPECT_TRUE(core.bytes() == wantedCore());
}

TEST_F(Core, TakesTheOwnersRights) {
  const std::string user = "caller = 501\n";
  expect(run({"core"}, std::string("user = 501\n").append(kRegions), "", {}, user), 0,
         full(core.pid()));
  EXPECT_TRUE(core.bytes() == wantedCore());
  fs::remove(core.path());
  expect(run({"core"}, kRegions, "", {}, user), kNoTaskPort, kNoPortOfAUser + failed(core.pid()));
  EXPECT_FALSE(core.exists());
  expect(run({"binary"}, kRegions, "", {}, user), kNoTaskPort, kNoPortOfAUser);
}

TEST_F(Core, TakesATaskPort) {
  const std::string refused = "[[event]]\ndo = \"fail\"\ncall = \"task_for_pid\"\n";
  expect(run({"core"}, kRegions, refused), kNoTaskPort, kNoPort + failed(core.pid()));
  expect(run({"core", "mini"}, kRegions, refused), kNoTaskPort, kNoPort + failed(core.pid()));
  expect(run({"binary"}, kRegions, refused), kNoTaskPort, kNoPort);
  EXPECT_FALSE(core.exists());
}

TEST_F(Core, OfNoProcess) {
  const OwnTmp tmp;
  const std::string none = kNoPid;
  const std::string before = whatIsAt("/tmp/core." + none);
  const WrittenDevice device(kSteppedClock + processText(core.pid(), kRegions));
  for (const char *word : {"core", "binary"}) {
    expect(runSondex({none, word}, device.environment()), 0, none + ": No such process!\n");
  }
  EXPECT_EQ(whatIsAt("/tmp/core." + none), before);
}

TEST_F(Core, OfAllIsRefused) {
  const OwnTmp tmp;
  const std::string before = whatIsAt("/tmp/core.-1");
  const WrittenDevice device(kSteppedClock + processText(core.pid(), kRegions));
  expect(runSondex({"all", "core"}, device.environment()), kNoTaskPort, kNoPort + failed(-1));
  expect(runSondex({"all", "core", "mini"}, device.environment()), kNoTaskPort,
         kNoPort + failed(-1));
  expect(runSondex({"all", "binary"}, device.environment()), kNoTaskPort, kNoPort);
  EXPECT_EQ(whatIsAt("/tmp/core.-1"), before);
  EXPECT_FALSE(core.exists());
}

TEST_F(Core, HasAWarningForWhatCantBeRead) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  const Outcome outcome = run({"core"}, R"(
regions = [
  { address = 0x100000000, size = "8K", contents = "61" },
  { address = 0x100002000, size = "20K", readable = false },
  { address = 0x100010000, size = "4K", protection = "-w-" },
  { address = 0x100020000, size = "4K", contents = "62" },
]
)");
  expect(outcome, 0,
         "Failed to read 5000 bytes of memory from 100002000 - Error 1\n"
         "Warning: Segment at 100002000 only read partially (0/5000 bytes)\n"
         "Failed to read 1000 bytes of memory from 100010000 - Error 1\n"
         "Warning: Segment at 100010000 only read partially (0/1000 bytes)\n" +
             full(core.pid()));
  const CoreCommands commands = readCoreCommands(core.path());
  ASSERT_EQ(commands.segments.size(), 4u) << commands.said;
  const std::vector<uint64_t> sizes = {0x2000, 0, 0, 0x1000};
  for (size_t i = 0; i < 4; i++) EXPECT_EQ(commands.segments[i].fileSize, sizes[i]) << i;
  EXPECT_EQ(commands.segments[1].size, 0x5000u);
  EXPECT_TRUE(core.bytes().substr(0x1000) == std::string(0x2000, 'a') + std::string(0x1000, 'b'));
}

// Of regions that hold zeros or nothing, the last one too, whether the kernel tells or not.
TEST_F(Core, HasItsLengthWhereThereIsNothing) {
  const std::string regions = R"(
regions = [
  { address = 0x100000000, size = "1M" },
  { address = 0x100100000, size = "4K", contents = "61" },
  { address = 0x100101000, size = "1M", contents = "00" },
  { address = 0x100201000, size = "1M", path = "/a/file" },
  { address = 0x100301000, size = "60K" },
]
)";
  const std::string wanted = std::string(1 << 20, '\0') + std::string(4096, 'a') +
                             std::string((2 << 20) + 60 * 1024, '\0');
  for (const char *event :
       {"", "[[event]]\ndo = \"fail\"\ncall = \"mach_vm_page_range_query\"\n"}) {
    expect(run({"core"}, regions, event), 0, full(core.pid()));
    EXPECT_TRUE(core.bytes().substr(4096) == wanted) << event;
    struct stat found {};
    ASSERT_EQ(stat(core.path().c_str(), &found), 0);
    EXPECT_LE(found.st_blocks * 512, 64 * 1024);
  }
}

TEST_F(Core, EndsAtItsLargestNumberOfRegions) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  const Outcome outcome = run({"core"},
                              "regions = [{ address = 0x100000000, size = \"4K\", gap = \"4K\", "
                              "copies = 4097, contents = \"61\" }]\n");
  expect(outcome, 0, "Warning: More than 4096 regions detected!\n" + full(core.pid()));
  const CoreCommands commands = readCoreCommands(core.path());
  ASSERT_EQ(commands.segments.size(), 4096u);
  EXPECT_EQ(complaintAboutCore(commands, core.bytes().size()), "");
  EXPECT_EQ(commands.segments.back().name, "Segment.4095");
  EXPECT_EQ(commands.segments.back().address, 0x100000000u + 4095 * 0x2000);
}

TEST_F(Core, HasAnyNumberOfThreads) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  const std::string region = "regions = [{ address = 0x100000000, size = \"4K\" }]\n";
  // The last that fit the buffer of the usual size, one more, and as many as a process may have.
  for (const size_t count : {355u, 356u, 4096u}) {
    expect(run({"core"}, region + "threads = " + std::to_string(count) + "\n"), 0,
           full(core.pid()));
    const CoreCommands commands = readCoreCommands(core.path());
    EXPECT_EQ(commands.threads, std::vector<uint32_t>(count, 288));
    EXPECT_EQ(complaintAboutCore(commands, core.bytes().size()), "");
  }
}

TEST_F(Core, OfThreadsThatAreNotTold) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  const std::string refused =
      "[[event]]\ndo = \"fail\"\ncall = \"proc_pidinfo\"\nform = \"PROC_PIDLISTTHREADIDS\"\n";
  expect(run({"core"}, kRegions, refused), 0,
         "Unable to obtain task thread ports\n" + full(core.pid()));
  const CoreCommands commands = readCoreCommands(core.path());
  EXPECT_EQ(commands.segments.size(), 3u);
  EXPECT_TRUE(commands.threads.empty());
}

TEST_F(Core, SaysMoreWithDebugOutput) {
  const Outcome outcome = run({"core"}, kRegions, "", {{"ZDEBUG", "1"}});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output,
            "KR: 0 ADDR: 100000000 Size: 2000 infoCnt : 17, Submap: 0\n"
            "KR: 0 ADDR: 100002000 Size: 1000 infoCnt : 17, Submap: 0\n"
            "KR: 0 ADDR: 16f000000 Size: 1000 infoCnt : 17, Submap: 0\n");
  EXPECT_THAT(outcome.error, HasSubstr("\nThread 0 ("));
  EXPECT_THAT(outcome.error, HasSubstr("\nThread 1 ("));
  EXPECT_THAT(outcome.error,
              testing::EndsWith(
                  "OVERALL SIZE OF HEADER: 1000\n"
                  "Segment 0 - 100000000 - File Position is now 1000 -- Mach-O Sig @0x100000000\n"
                  "Segment 1 - 100002000 - File Position is now 3000 -- "
                  "Segment 2 - 16f000000 - File Position is now 4000 -- " +
                  full(core.pid())));
}

constexpr char kKernel[] = R"(
[[process]]
pid = 0
name = "kernel_task"
threads = [{ handle = 0, registers = { pc = 0x7ff007004000 } }]
regions = [{ address = 0x7ff007004000, size = "16K", protection = "r-x", contents = "cffaedfe" }]
)";

class KernelCore : public testing::Test {
 protected:
  KernelCore() { fs::remove(kPath); }
  ~KernelCore() override { fs::remove(kPath); }

  static Outcome run(const std::string &word, const std::string &top) {
    const WrittenDevice device(top + kSteppedClock + kKernel);
    return runSondex({"0", word}, device.environment());
  }

  static constexpr char kPath[] = "/tmp/core.0";
  const OwnTmp tmp;
};

TEST_F(KernelCore, IsRefusedByStockKernels) {
  const Outcome outcome = run("core", "");
  EXPECT_TRUE(outcome.exitedWith(kNoTaskPort)) << outcome;
  EXPECT_EQ(outcome.output, "");
  const std::string said = std::string(kSpecialPort) + "Task port: 0x0\n" + kNoPort;
  EXPECT_EQ(withoutSampling(outcome.error), said + failed(0));
  EXPECT_FALSE(fs::exists(kPath));
  const Outcome binary = run("binary", "");
  EXPECT_TRUE(binary.exitedWith(kNoTaskPort)) << binary;
  EXPECT_EQ(withoutSampling(binary.error), said);
}

TEST_F(KernelCore, IsWrittenThroughTheSpecialPort) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  const Outcome outcome = run("core", "kernel.kernel-task = true\n");
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(withoutSampling(outcome.error),
              testing::MatchesRegex(
                  "Unable to get Task port for PID 0 \\(kernel_task\\) - trying special port #4 "
                  "instead\\.\\.\\.\nTask port: 0x[1-9a-f][0-9a-f]*\nFull core dumped to "
                  "/tmp/core\\.0\n"));
  const CoreCommands commands = readCoreCommands(kPath);
  EXPECT_EQ(complaintAboutCore(commands, fs::file_size(kPath)), "");
  ASSERT_EQ(commands.segments.size(), 1u);
  EXPECT_EQ(commands.segments[0].address, 0x7ff007004000u);
  EXPECT_EQ(commands.threads.size(), 1u);
  EXPECT_TRUE(bytesOfFile(kPath).substr(0x1000) == repeated("\xcf\xfa\xed\xfe", 0x4000));
}

TEST_F(KernelCore, IsForRootAlone) {
  const Outcome outcome = run("core", "caller = 501\nkernel.kernel-task = true\n");
  EXPECT_TRUE(outcome.exitedWith(kNoTaskPort)) << outcome;
  EXPECT_EQ(withoutSampling(outcome.error),
            std::string(kSpecialPort) + "Task port: 0x0\n" + kNoPortOfAUser + failed(0));
}

class Binary : public Core {
 protected:
  Binary() { fs::remove(kPath); }
  ~Binary() override { fs::remove(kPath); }

  static constexpr char kPath[] = "/tmp/CORE";
  const OwnTmp tmp;
};

// Devices don't tell what was started, so that the executable can't be opened either.
TEST_F(Binary, IsTheFirstRegion) {
  expect(run({"binary"}), 1, "open: No such file or directory\n");
  EXPECT_TRUE(bytesOfFile(kPath) == repeated("\xcf\xfa\xed\xfe\x01\x02\x03\x04", 0x2000));
  EXPECT_EQ(fs::status(kPath).permissions(), fs::perms(0600));
  EXPECT_FALSE(core.exists());
}

TEST_F(Binary, LeavesWhatIsNotItsOwn) {
  const std::string precious = core.path() + ".precious";
  std::ofstream(precious) << "precious";
  fs::create_symlink(precious, kPath);
  expect(run({"binary"}), kFailed, "/tmp/CORE: Too many levels of symbolic links\n");
  EXPECT_EQ(bytesOfFile(precious), "precious");
  fs::remove(precious);
}

// What has the file's name already.
struct Obstacle {
  const char *name;
  void (*make)(const std::string &path, const std::string &precious);
  const char *error;
};

void changeOwner(const std::string &path) {
  if (chown(path.c_str(), kNobody, kNobody) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
}

const Obstacle kObstacles[] = {
    {"Link",
     [](const std::string &path, const std::string &precious) {
       fs::create_symlink(precious, path);
     },
     "Too many levels of symbolic links"},
    {"DanglingLink",
     [](const std::string &path, const std::string &) {
       fs::create_symlink(path + ".nothing", path);
     },
     "Too many levels of symbolic links"},
    {"SecondName",
     [](const std::string &path, const std::string &precious) {
       fs::create_hard_link(precious, path);
     },
     "File exists"},
    {"Folder", [](const std::string &path, const std::string &) { fs::create_directory(path); },
     "Is a directory"},
    {"Pipe",
     [](const std::string &path, const std::string &) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); },
     "No such device or address"},
};

class CoreInTheWay : public Core, public testing::WithParamInterface<Obstacle> {};

TEST_P(CoreInTheWay, IsNotReplaced) {
  const std::string precious = core.path() + ".precious";
  std::ofstream(precious) << "precious";
  GetParam().make(core.path(), precious);
  const fs::file_type type = fs::symlink_status(core.path()).type();
  expect(run({"core"}), kFailed, core.path() + ": " + GetParam().error + "\n" + failed(core.pid()));
  EXPECT_EQ(bytesOfFile(precious), "precious");
  EXPECT_EQ(fs::symlink_status(core.path()).type(), type);
  EXPECT_FALSE(fs::exists(core.path() + ".nothing"));
  fs::remove(precious);
}

INSTANTIATE_TEST_SUITE_P(By, CoreInTheWay, testing::ValuesIn(kObstacles),
                         [](const auto &row) { return row.param.name; });

// A kernel may protect files of others in /tmp itself.
TEST_F(Core, OfAnotherOwnerIsNotReplaced) {
  if (!isRoot()) GTEST_SKIP() << "needs root, to give a file away";
  std::ofstream(core.path()) << "precious";
  changeOwner(core.path());
  const Outcome outcome = run({"core"});
  EXPECT_TRUE(outcome.exitedWith(kFailed)) << outcome;
  EXPECT_THAT(withoutSampling(outcome.error),
              AnyOf(core.path() + ": File exists\n" + failed(core.pid()),
                    core.path() + ": Permission denied\n" + failed(core.pid())));
  EXPECT_EQ(core.bytes(), "precious");
}

TEST_F(Core, ThatIsOlderIsReplacedWhole) {
  std::ofstream(core.path()) << std::string(100'000, 'x');
  expect(run({"core"}), 0, full(core.pid()));
  EXPECT_TRUE(core.bytes() == wantedCore());
}

// As a full disk: the data goes beyond the limit in one case, what is only its zeros in the other.
TEST_F(Core, ThatCantBeWrittenIsTakenAway) {
  for (const char *protection : {"rw-", "---"}) {
    const WrittenDevice device(
        kSteppedClock +
        processText(core.pid(),
                    std::string("regions = [{ address = 0x100000000, size = \"3M\", protection = "
                                "\"")
                        .append(protection)
                        .append("\" }]\n")));
    Launch launch;
    launch.program = sondexPath();
    launch.arguments = {std::to_string(core.pid()), "core"};
    launch.environment = device.environment();
    launch.ignoredSignals = {SIGXFSZ};
    Outcome outcome;
    {
      const SizeLimit limit(2 << 20);
      outcome = test::run(launch);
    }
    expect(outcome, kFailed, core.path() + ": File too large\n" + failed(core.pid()));
    EXPECT_FALSE(core.exists()) << protection;
  }
}

// The signal that comes with the limit ends a program that does not ignore it.
TEST_F(Core, BeyondALimitOnFilesIsTakenAwayAndEndsAsItsSignalDoes) {
  const OwnTmp tmp;
  const WrittenDevice device(
      kSteppedClock +
      processText(core.pid(),
                  "regions = [{ address = 0x100000000, size = \"3M\", contents = \"61\" }]\n"));
  Launch launch;
  launch.program = sondexPath();
  launch.environment = device.environment();
  const std::string failure = ": File too large\n";
  for (const bool whole : {true, false}) {
    launch.arguments = {std::to_string(core.pid()), whole ? "core" : "binary"};
    Outcome outcome;
    {
      const SizeLimit limit(2 << 20);
      std::signal(SIGXFSZ, SIG_DFL);
      outcome = test::run(launch);
    }
    ASSERT_TRUE(outcome.ending.has_value()) << outcome;
    EXPECT_EQ(outcome.ending->signal, SIGXFSZ) << outcome;
    EXPECT_EQ(withoutSampling(outcome.error),
              whole ? core.path() + failure + failed(core.pid()) : "/tmp/CORE" + failure);
    EXPECT_FALSE(fs::exists(whole ? core.path() : "/tmp/CORE"));
  }
}

class CoreEndedBy : public Core, public testing::WithParamInterface<int> {};

// A core that takes its time: no part of it stays behind.
TEST_P(CoreEndedBy, ASignalIsTakenAway) {
  const WrittenDevice device(
      kSteppedClock +
      processText(core.pid(),
                  "regions = [{ address = 0x100000000, size = \"1900M\", contents = \"61\" }]\n"));
  Launch launch;
  launch.program = sondexPath();
  launch.environment = device.environment();
  launch.arguments = {std::to_string(core.pid()), "core"};
  Child child(launch);
  ASSERT_TRUE(waitUntil([&] {
    std::error_code notThere;
    const uintmax_t size = fs::file_size(core.path(), notThere);
    return (!notThere && size > 0) || child.poll().has_value();
  }));
  child.signal(GetParam());
  const std::optional<Ending> ending = child.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_EQ(ending->signal, GetParam()) << *ending;
  EXPECT_FALSE(core.exists());
}

INSTANTIATE_TEST_SUITE_P(Program, CoreEndedBy,
                         testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE),
                         [](const auto &row) { return sigabbrev_np(row.param); });

// As of a program that goes on after its user has logged out.
TEST_F(Core, OutlivesASignalThatIsIgnored) {
  const WrittenDevice device(
      kSteppedClock +
      processText(core.pid(),
                  "regions = [{ address = 0x100000000, size = \"400M\", contents = \"61\" }]\n"));
  Launch launch;
  launch.program = sondexPath();
  launch.environment = device.environment();
  launch.arguments = {std::to_string(core.pid()), "core"};
  launch.ignoredSignals = {SIGHUP};
  Child child(launch);
  ASSERT_TRUE(waitUntil([&] { return core.exists() || child.poll().has_value(); }));
  child.signal(SIGHUP);
  const std::optional<Ending> ending = child.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_TRUE(ending->exitedWith(0)) << *ending;
  EXPECT_EQ(fs::file_size(core.path()), (400u << 20) + 0x1000);
}

constexpr auto kQuietTime = std::chrono::milliseconds(1'000);

// The program is held up for longer than it keeps quiet: by a terminal that takes no more messages.
TEST_F(Core, ThatTakesLongTellsATerminalHowFarItIs) {
  const WrittenDevice device(kSteppedClock + processText(core.pid(), R"(
regions = [
  { address = 0x100000000, size = "1M" },
  { address = 0x110000000, size = "4K", copies = 2048, gap = "4K", readable = false },
  { address = 0x120000000, size = "1M" },
]
)"));
  TerminalOptions options;
  options.arguments = {std::to_string(core.pid()), "core"};
  options.environment = device.environment();
  Terminal terminal(options);
  constexpr size_t kRegionSize = 1 << 20;
  ASSERT_TRUE(waitUntil([&] {
    std::error_code notThere;
    const uintmax_t size = fs::file_size(core.path(), notThere);
    return (!notThere && size >= kRegionSize) || terminal.hasEnded();
  }));
  const auto held = Clock::now();
  ASSERT_TRUE(waitUntil([&] { return Clock::now() >= held + kQuietTime; }));
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_TRUE(ending->exitedWith(0)) << *ending;
  // Its line is free for what is said in the end.
  const std::string wanted =
      "\nWarning: Segment at 110ffe000 only read partially (0/1000 bytes)\r\n"
      "\r" +
      core.path() +
      ": 2 of 10 MB"
      "\r\033[KFull core dumped to " +
      core.path() + "\r\n";
  const std::string &told = terminal.written();
  EXPECT_EQ(told.substr(told.size() - std::min(told.size(), wanted.size())), wanted);
  // After the commands for 2,050 regions, those that could be read.
  EXPECT_EQ(fs::file_size(core.path()), 0x25000 + 2 * kRegionSize);
}

TEST_F(Core, ThatIsWrittenAtOnceTellsATerminalNothingOnTheWay) {
  const WrittenDevice device(kSteppedClock + processText(core.pid(), kRegions));
  TerminalOptions options;
  options.arguments = {std::to_string(core.pid()), "core"};
  options.environment = device.environment();
  Terminal terminal(options);
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_TRUE(ending->exitedWith(0)) << *ending;
  EXPECT_THAT(terminal.written(), HasSubstr("Full core dumped to " + core.path()));
  EXPECT_THAT(terminal.written(), Not(HasSubstr(" MB")));
}

}  // namespace
}  // namespace test
