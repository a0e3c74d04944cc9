// Core files of processes on this machine's kernel: what a debugger, llvm-objdump and the test
// itself read in them, against what the test made and what /proc says of the processes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <optional>
#include <sstream>
#include <system_error>

#include "harness/core_commands.h"
#include "harness/debugger.h"
#include "harness/file_handle.h"
#include "harness/helper.h"
#include "harness/own_tmp.h"
#include "harness/process_facts.h"
#include "harness/run.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

constexpr uint64_t kMiB = 1 << 20;
constexpr size_t kMostRegions = 4096;
// What the program holds in memory at most, above what it holds for a small process.
constexpr uint64_t kBound = 64 * kMiB;

// Nothing stands at these in a new process.
constexpr uint64_t kWords = 0x200000000000;
constexpr uint64_t kGuard = 0x210000000000;
constexpr uint64_t kStacks = 0x220000000000;
constexpr uint64_t kSparse = 0x230000000000;
constexpr uint64_t kZeros = 0x240000000000;
constexpr uint64_t kPrivateFile = 0x250000000000;
constexpr uint64_t kSharedFile = 0x260000000000;

std::string decimal(uint64_t number) {
  return std::to_string(number);
}

std::string hex(uint64_t number) {
  std::ostringstream text;
  text << std::hex << number;
  return text.str();
}

std::string procFile(pid_t pid, const std::string &name) {
  return "/proc/" + std::to_string(pid) + "/" + name;
}

// The core of a process; it is gone after the test, however that ends.
class LiveCore {
 public:
  explicit LiveCore(pid_t pid) : path_("/tmp/core." + std::to_string(pid)) { remove(); }
  ~LiveCore() { remove(); }
  LiveCore(const LiveCore &) = delete;
  LiveCore &operator=(const LiveCore &) = delete;

  const std::string &path() const { return path_; }
  bool exists() const { return std::filesystem::exists(path_); }
  uint64_t size() const {
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(path_, error);
    return error ? 0 : size;
  }

 private:
  void remove() const {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }

  const OwnTmp tmp_;
  std::string path_;
};

// Bytes of a file at a place, or of memory through such a file; fewer where there are no more.
std::string bytesAt(const FileHandle &file, uint64_t place, size_t size) {
  std::string bytes(size, '\0');
  const ssize_t length = pread(file.get(), bytes.data(), size, static_cast<off_t>(place));
  bytes.resize(length < 0 ? 0 : static_cast<size_t>(length));
  return bytes;
}

FileHandle openToRead(const std::string &path) {
  FileHandle file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file.isOpen()) throw std::system_error(errno, std::generic_category(), path);
  return file;
}

FileHandle openMemory(pid_t pid) {
  return openToRead(procFile(pid, "mem"));
}

struct Mapping {
  uint64_t start = 0;
  uint64_t end = 0;
  std::string protection;      // such as "rw-"
  std::string mostProtection;  // what it can be changed to
  uint64_t size() const { return end - start; }
};

std::vector<Mapping> mappingsOf(pid_t pid) {
  std::vector<Mapping> mappings;
  std::istringstream lines(readFile(procFile(pid, "smaps")));
  for (std::string line; std::getline(lines, line);) {
    Mapping mapping;
    char protection[5] = "";
    if (std::sscanf(line.c_str(), "%" SCNx64 "-%" SCNx64 " %4s", &mapping.start, &mapping.end,
                    protection) == 3) {
      mapping.protection.assign(protection, 3);
      mappings.push_back(mapping);
    } else if (line.starts_with("VmFlags:")) {
      // What it has, it may have, even where that can't be changed.
      std::string &most = mappings.back().mostProtection;
      most = mappings.back().protection;
      if (line.find(" mr") != std::string::npos) most[0] = 'r';
      if (line.find(" mw") != std::string::npos) most[1] = 'w';
      if (line.find(" me") != std::string::npos) most[2] = 'x';
    }
  }
  return mappings;
}

bool isReadable(const Mapping &mapping, const FileHandle &memory) {
  if (mapping.protection[0] != 'r') return false;
  for (uint64_t place = mapping.start; place < mapping.end; place += kMiB) {
    const size_t size = std::min(kMiB, mapping.end - place);
    if (bytesAt(memory, place, size).size() != size) return false;
  }
  return true;
}

// How many bytes of each mapping belong into the file: all, or none of what can't be read.
std::vector<uint64_t> expectedSizes(pid_t pid, const std::vector<Mapping> &mappings) {
  const FileHandle memory = openMemory(pid);
  std::vector<uint64_t> sizes;
  sizes.reserve(mappings.size());
  for (const Mapping &mapping : mappings) {
    const bool isThere = mapping.protection == "---" || isReadable(mapping, memory);
    sizes.push_back(isThere ? mapping.size() : 0);
  }
  return sizes;
}

// What is said of a region of which nothing could be read.
std::string warningOf(const Mapping &mapping) {
  return "Failed to read " + hex(mapping.size()) + " bytes of memory from " + hex(mapping.start) +
         " - Error 1\nWarning: Segment at " + hex(mapping.start) + " only read partially (0/" +
         hex(mapping.size()) + " bytes)\n";
}

std::string expectedWarnings(const std::vector<Mapping> &mappings,
                             const std::vector<uint64_t> &sizes) {
  std::string warnings;
  for (size_t i = 0; i < mappings.size(); i++) {
    if (sizes[i] == 0) warnings += warningOf(mappings[i]);
  }
  return warnings;
}

struct BlockedThread {
  pid_t tid = 0;
  DebuggedThread at;
};

// Where the threads of a process wait; nothing while one of them runs.
std::optional<std::vector<BlockedThread>> blockedThreads(pid_t pid) {
  std::vector<BlockedThread> threads;
  for (const auto &entry : std::filesystem::directory_iterator(procFile(pid, "task"))) {
    std::istringstream words(readFile(entry.path() / "syscall"));
    const std::vector<std::string> word{std::istream_iterator<std::string>(words), {}};
    if (word.size() != 9) return std::nullopt;
    BlockedThread thread;
    thread.tid = std::stoi(entry.path().filename());
    thread.at = {std::stoull(word[8], nullptr, 16), std::stoull(word[7], nullptr, 16)};
    threads.push_back(thread);
  }
  std::sort(threads.begin(), threads.end(),
            [](const BlockedThread &a, const BlockedThread &b) { return a.tid < b.tid; });
  return threads;
}

std::vector<DebuggedThread> placesOfThreads(pid_t pid) {
  std::optional<std::vector<BlockedThread>> threads;
  EXPECT_TRUE(waitUntil([&] {
    threads = blockedThreads(pid);
    return threads.has_value();
  }));
  std::vector<DebuggedThread> places;
  for (const BlockedThread &thread : threads.value_or(std::vector<BlockedThread>{})) {
    places.push_back(thread.at);
  }
  return places;
}

bool isStopped(pid_t pid) {
  const std::optional<ProcessFacts> facts = readFacts(pid);
  return facts && facts->state == 'T';
}

// What stands in memory that the step "addresses" made.
std::string addressesFrom(uint64_t address, size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; i += sizeof address) {
    const uint64_t word = address + i;
    std::memcpy(bytes.data() + i, &word, sizeof word);
  }
  return bytes;
}

std::string sayingDumped(pid_t pid, const std::string &kind) {
  return kind + " core dumped to /tmp/core." + std::to_string(pid) + "\n";
}

std::string errorOf(const Outcome &outcome) {
  return withoutSampling(outcome.error);
}

class Core : public testing::Test {
 protected:
  void SetUp() override {
    const std::string scope = readFile("/proc/sys/kernel/yama/ptrace_scope");
    if (!isRoot() && !scope.empty() && scope[0] != '0') {
      GTEST_SKIP() << "needs root to look into other processes";
    }
  }

  // Writes the core of a process that does nothing meanwhile, and expects exactly the warnings that
  // its map gives reason for.
  static void dumpQuiet(pid_t pid, const Steps &words = {"core"}) {
    const std::vector<Mapping> mappings = mappingsOf(pid);
    const std::string warnings = expectedWarnings(mappings, expectedSizes(pid, mappings));
    Steps arguments = {std::to_string(pid)};
    arguments.insert(arguments.end(), words.begin(), words.end());
    const Outcome outcome = runSondex(arguments);
    EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(errorOf(outcome), warnings + sayingDumped(pid, words.size() > 1 ? "Mini" : "Full"));
  }
};

TEST_F(Core, ShowsADebuggerWhatTheProcessHad) {
  if (!hasDebugger()) GTEST_SKIP() << kNoDebugger;
  constexpr size_t kThreads = 7;
  const Helper helper({"addresses", decimal(kWords), "3", "guard", decimal(kGuard),
                       decimal(2 * kPage), "stacks", decimal(kStacks), decimal(kThreads - 1)});
  const std::vector<DebuggedThread> threads = placesOfThreads(helper.pid());
  ASSERT_EQ(threads.size(), kThreads);
  for (size_t i = 1; i < kThreads; i++) {
    const uint64_t stack = kStacks + (i - 1) * 65536;
    EXPECT_GT(threads[i].stackPointer, stack);
    EXPECT_LT(threads[i].stackPointer, stack + 65536);
  }
  const LiveCore file(helper.pid());
  dumpQuiet(helper.pid());

  constexpr size_t kStackPart = 512;
  const DebuggedCore core = debugCore(
      file.path(),
      {{kWords, 3 * kMiB}, {kGuard, 2 * kPage}, {threads.back().stackPointer, kStackPart}});
  EXPECT_EQ(core.architecture, "arm64") << core.said;
  EXPECT_THAT(core.threads, ElementsAreArray(threads)) << core.said;
  ASSERT_EQ(core.memory.size(), 3u);
  EXPECT_TRUE(core.memory[0] == addressesFrom(kWords, 3 * kMiB)) << core.said;
  EXPECT_EQ(core.memory[1], std::string(2 * kPage, '\0'));
  EXPECT_EQ(core.memory[2],
            bytesAt(openMemory(helper.pid()), threads.back().stackPointer, kStackPart));
}

TEST_F(Core, HasASegmentForEachMapping) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  const Helper helper({"addresses", decimal(kWords), "1", "guard", decimal(kGuard),
                       decimal(16 * kPage), "threads", "3"});
  const LiveCore file(helper.pid());
  dumpQuiet(helper.pid());

  const std::vector<Mapping> mappings = mappingsOf(helper.pid());
  const std::vector<uint64_t> sizes = expectedSizes(helper.pid(), mappings);
  const CoreCommands commands = readCoreCommands(file.path());
  EXPECT_EQ(commands.processor, "ARM64");
  EXPECT_EQ(commands.fileType, "CORE");
  EXPECT_EQ(complaintAboutCore(commands, file.size()), "") << commands.said;
  EXPECT_EQ(commands.threads, std::vector<uint32_t>(3, 288));
  ASSERT_EQ(commands.segments.size(), mappings.size()) << commands.said;
  uint64_t offset = 32 + mappings.size() * 72 + 3 * 288;
  offset += kPage - offset % kPage;
  for (size_t i = 0; i < mappings.size(); i++) {
    const CoreSegment &segment = commands.segments[i];
    const Mapping &mapping = mappings[i];
    SCOPED_TRACE(segment.name);
    EXPECT_EQ(segment.name, "Segment." + std::to_string(i));
    EXPECT_EQ(segment.commandSize, 72u);
    EXPECT_EQ(segment.address, mapping.start);
    EXPECT_EQ(segment.size, mapping.size());
    EXPECT_EQ(segment.protection, mapping.protection);
    EXPECT_EQ(segment.mostProtection, mapping.mostProtection);
    EXPECT_EQ(segment.fileOffset, offset);
    EXPECT_EQ(segment.fileSize, sizes[i]);
    offset += sizes[i];
  }
  EXPECT_EQ(file.size(), offset);
}

// Expects each segment to hold what stands in the memory of the process. Returns how much that is.
uint64_t compareWithMemory(const LiveCore &file, pid_t pid) {
  const CoreCommands commands = readCoreCommands(file.path());
  EXPECT_EQ(complaintAboutCore(commands, file.size()), "") << commands.said;
  const FileHandle core = openToRead(file.path());
  const FileHandle memory = openMemory(pid);
  uint64_t compared = 0;
  for (const CoreSegment &segment : commands.segments) {
    for (uint64_t place = 0; place < segment.fileSize; place += kMiB) {
      const size_t size = std::min(kMiB, segment.fileSize - place);
      // No access: zeros, of which the process itself has none to give.
      const std::string expected = segment.protection == "---"
                                       ? std::string(size, '\0')
                                       : bytesAt(memory, segment.address + place, size);
      EXPECT_TRUE(bytesAt(core, segment.fileOffset + place, size) == expected)
          << segment.name << " from " << std::hex << place << "\n"
          << commands.said;
      compared += size;
    }
  }
  return compared;
}

// Of a stopped process, in whose memory even the kernel changes nothing.
TEST_F(Core, HasAllThatCanBeRead) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  const Helper helper({"addresses", decimal(kWords), "2", "threads", "4", "stop"});
  ASSERT_TRUE(waitUntil([&] { return isStopped(helper.pid()); }));
  const LiveCore file(helper.pid());
  dumpQuiet(helper.pid());
  EXPECT_GT(compareWithMemory(file, helper.pid()), 2 * kMiB);
  EXPECT_TRUE(comesToRest(helper.pid()));
  EXPECT_TRUE(isStopped(helper.pid()));
  for (const auto &entry : std::filesystem::directory_iterator(procFile(helper.pid(), "task"))) {
    EXPECT_THAT(readFile(entry.path() / "status"), HasSubstr("TracerPid:\t0\n"));
    EXPECT_THAT(readFile(entry.path() / "status"), HasSubstr("State:\tT (stopped)\n"));
  }
}

// What the kernel says of the pages of a mapping.
std::string pageMapOf(pid_t pid, uint64_t address, uint64_t size) {
  return bytesAt(openToRead(procFile(pid, "pagemap")), address / kPage * 8, size / kPage * 8);
}

// Of memory that hardly anybody touched, or only to write zeros, and of files with holes.
TEST_F(Core, HasHolesWhereThereIsNothing) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  const std::string file = "/tmp/core_test." + std::to_string(getpid());
  const Helper helper({"touched",
                       decimal(kSparse),
                       "512",
                       "8192",
                       "1",
                       "touched",
                       decimal(kZeros),
                       "32",
                       "1",
                       "0",
                       "map",
                       decimal(kPrivateFile),
                       decimal(16 * kMiB),
                       "private",
                       "rw",
                       file,
                       "map",
                       decimal(kSharedFile),
                       decimal(16 * kMiB),
                       "shared",
                       "rw",
                       file,
                       "addresses",
                       decimal(kWords),
                       "1",
                       "memfd",
                       "core",
                       "stop"});
  std::filesystem::remove(file);
  ASSERT_TRUE(waitUntil([&] { return isStopped(helper.pid()); }));
  const std::string before = pageMapOf(helper.pid(), kSparse, 512 * kMiB);
  const LiveCore core(helper.pid());
  const Outcome outcome = runSondex({std::to_string(helper.pid()), "core"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_TRUE(pageMapOf(helper.pid(), kSparse, 512 * kMiB) == before) << "pages were brought in";
  EXPECT_GT(compareWithMemory(core, helper.pid()), 577 * kMiB);
  struct stat status {};
  ASSERT_EQ(stat(core.path().c_str(), &status), 0);
  EXPECT_LT(static_cast<uint64_t>(status.st_blocks) * 512, 32 * kMiB);
}

void expectFullAndMiniToBeTheSame(const Helper &helper, const std::string &full,
                                  const std::string &mini) {
  ASSERT_GT(full.size(), kMiB);
  EXPECT_TRUE(full == mini) << "the cores of " << helper.pid() << " differ";
}

TEST_F(Core, FullAndMiniOfAStoppedProcessAreIdentical) {
  const Helper helper({"addresses", decimal(kWords), "1", "threads", "5", "stop"});
  ASSERT_TRUE(waitUntil([&] { return isStopped(helper.pid()); }));
  const LiveCore file(helper.pid());
  dumpQuiet(helper.pid());
  const std::string full = readFile(file.path());
  dumpQuiet(helper.pid(), {"core", "mini"});
  expectFullAndMiniToBeTheSame(helper, full, readFile(file.path()));
  // Any other word is none.
  const Outcome outcome = runSondex({std::to_string(helper.pid()), "core", "maxi"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.error, HasSubstr(sayingDumped(helper.pid(), "Full")));
  expectFullAndMiniToBeTheSame(helper, full, readFile(file.path()));
}

// Of one whose threads' memory the kernel leaves alone: without the restartable sequences of the C
// library, in which it writes down what processor a thread is on. The first look at a thread ends
// the call that it waits in, and the kernel begins it again under another number.
TEST_F(Core, FullAndMiniOfASleepingProcessAreIdentical) {
  setenv("GLIBC_TUNABLES", "glibc.pthread.rseq=0", 1);
  const Helper helper({"addresses", decimal(kWords), "1", "threads", "5"});
  unsetenv("GLIBC_TUNABLES");
  const std::vector<DebuggedThread> threads = placesOfThreads(helper.pid());
  const LiveCore file(helper.pid());
  dumpQuiet(helper.pid());
  EXPECT_EQ(placesOfThreads(helper.pid()), threads);
  dumpQuiet(helper.pid());
  const std::string full = readFile(file.path());
  EXPECT_EQ(placesOfThreads(helper.pid()), threads);
  dumpQuiet(helper.pid(), {"core", "mini"});
  expectFullAndMiniToBeTheSame(helper, full, readFile(file.path()));
}

TEST_F(Core, IsForItsOwnerOnly) {
  const Helper helper(Steps{});
  const LiveCore file(helper.pid());
  const mode_t before = umask(0);
  dumpQuiet(helper.pid());
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(file.path().c_str(), &status), 0);
  EXPECT_TRUE(S_ISREG(status.st_mode));
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_EQ(status.st_uid, geteuid());
  EXPECT_EQ(status.st_nlink, 1u);
}

TEST_F(Core, HasMoreThreadsThanTheFirstBuffer) {
  if (!hasDebugger()) GTEST_SKIP() << kNoDebugger;
  constexpr size_t kThreads = 500;
  const Helper helper({"stacks", decimal(kStacks), decimal(kThreads - 1)});
  const std::vector<DebuggedThread> threads = placesOfThreads(helper.pid());
  const LiveCore file(helper.pid());
  dumpQuiet(helper.pid());
  const DebuggedCore core = debugCore(file.path());
  ASSERT_EQ(core.threads.size(), kThreads);
  EXPECT_THAT(core.threads, ElementsAreArray(threads));
}

// A process whose standard input and output the test keeps, so that it can see it answer.
class Conversation {
 public:
  explicit Conversation(const Steps &steps, std::optional<uid_t> user = std::nullopt)
      : child_(launchOf(steps, user, input_, output_)) {
    output_.writeEnd.close();
    const std::string word = "ready " + std::to_string(child_.pid()) + "\n";
    std::string said(word.size(), '\0');
    const ssize_t length = read(output_.readEnd.get(), said.data(), said.size());
    EXPECT_EQ(length, static_cast<ssize_t>(word.size()));
    EXPECT_EQ(said, word);
  }

  pid_t pid() const { return child_.pid(); }
  // Ends its input, and waits for what comes of that.
  std::optional<Ending> end() {
    input_.writeEnd.close();
    return child_.waitForEnd();
  }

 private:
  static Launch launchOf(const Steps &steps, std::optional<uid_t> user, const Pipe &input,
                         const Pipe &output) {
    Launch launch;
    launch.program = makeProcessPath();
    launch.arguments = steps;
    launch.user = user;
    launch.input = input.readEnd.get();
    launch.output = output.writeEnd.get();
    launch.error = STDERR_FILENO;
    return launch;
  }

  Pipe input_ = makePipe();
  Pipe output_ = makePipe();
  Child child_;
};

TEST_F(Core, LeavesASleepingProcessAsItWas) {
  Conversation process({"stacks", decimal(kStacks), "5"});
  const pid_t pid = process.pid();
  const std::vector<DebuggedThread> before = placesOfThreads(pid);
  const LiveCore file(pid);
  for (int turn = 0; turn < 5; turn++) dumpQuiet(pid);
  EXPECT_EQ(placesOfThreads(pid), before);
  EXPECT_THAT(readFile(procFile(pid, "status")), HasSubstr("TracerPid:\t0\n"));
  EXPECT_THAT(readFile(procFile(pid, "status")), HasSubstr("State:\tS (sleeping)\n"));
  const std::optional<Ending> ending = process.end();
  ASSERT_TRUE(ending);
  EXPECT_TRUE(ending->exitedWith(0)) << *ending;
}

TEST_F(Core, LetsAProcessThatComputesGoOn) {
  if (!hasDebugger()) GTEST_SKIP() << kNoDebugger;
  const Helper helper({"addresses", decimal(kWords), "1", "busy", "3"});
  const LiveCore file(helper.pid());
  const Outcome outcome = runSondex({std::to_string(helper.pid()), "core"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  const DebuggedCore core = debugCore(file.path(), {{kWords, kMiB}});
  EXPECT_EQ(core.threads.size(), 3u) << core.said;
  for (const DebuggedThread &thread : core.threads) {
    EXPECT_NE(thread.programCounter, 0u);
    EXPECT_NE(thread.stackPointer, 0u);
  }
  EXPECT_TRUE(core.memory.at(0) == addressesFrom(kWords, kMiB));
  const auto ticks = [&] {
    const std::optional<ProcessFacts> facts = readFacts(helper.pid());
    return facts ? facts->processorTicks : 0;
  };
  const uint64_t now = ticks();
  EXPECT_TRUE(waitUntil([&] { return ticks() >= now + 10; }));
}

TEST_F(Core, OfAProcessThatMapsAndUnmapsAllTheTime) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  const Helper helper({"addresses", decimal(kWords), "1", "remaps"});
  const LiveCore file(helper.pid());
  for (int turn = 0; turn < 10; turn++) {
    const Outcome outcome = runSondex({std::to_string(helper.pid()), "core"});
    ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
    const CoreCommands commands = readCoreCommands(file.path());
    ASSERT_EQ(complaintAboutCore(commands, file.size()), "") << commands.said;
    ASSERT_EQ(commands.threads.size(), 1u);
    ASSERT_EQ(commands.segments.at(0).address, kWords);
    ASSERT_EQ(commands.segments[0].fileSize, kMiB);
    const std::string memory =
        bytesAt(openToRead(file.path()), commands.segments[0].fileOffset, kMiB);
    ASSERT_TRUE(memory == addressesFrom(kWords, kMiB));
  }
}

// Starts a dump and kills the process as soon as the first data are in the file. False when the
// dump was through by then.
bool killMeanwhile(LiveCore &file, std::optional<Helper> &helper, uint64_t size, Outcome &outcome) {
  Pipe error = makePipe();
  Launch launch;
  launch.program = sondexPath();
  launch.arguments = {std::to_string(helper->pid()), "core"};
  launch.error = error.writeEnd.get();
  Child program(launch);
  error.writeEnd.close();
  EXPECT_TRUE(waitUntil([&] { return file.size() > kMiB || program.poll(); }));
  program.signal(SIGSTOP);
  const bool inTime = file.size() < size && !program.poll();
  helper.reset();
  program.signal(SIGCONT);
  char buffer[4096];
  for (ssize_t length = 0; (length = read(error.readEnd.get(), buffer, sizeof buffer)) > 0;) {
    outcome.error.append(buffer, static_cast<size_t>(length));
  }
  outcome.ending = program.waitForEnd();
  return inTime;
}

TEST_F(Core, OfAProcessThatDiesMeanwhile) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  constexpr uint64_t kSize = 512 * kMiB;
  for (int turn = 0; turn < 20; turn++) {
    std::optional<Helper> helper(std::in_place,
                                 Steps{"addresses", decimal(kWords), decimal(kSize / kMiB)});
    LiveCore file(helper->pid());
    const pid_t pid = helper->pid();
    const size_t regions = mappingsOf(pid).size();
    Outcome outcome;
    if (!killMeanwhile(file, helper, kSize, outcome)) continue;

    EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
    EXPECT_THAT(outcome.error, HasSubstr("Failed to read 20000000 bytes of memory from "
                                         "200000000000 - Error "));
    EXPECT_THAT(outcome.error, HasSubstr("Warning: Segment at 200000000000 only read partially "
                                         "(0/20000000 bytes)\n"));
    EXPECT_TRUE(outcome.error.ends_with(sayingDumped(pid, "Full"))) << outcome;
    const CoreCommands commands = readCoreCommands(file.path());
    EXPECT_EQ(complaintAboutCore(commands, file.size()), "") << commands.said;
    EXPECT_EQ(commands.threads.size(), 1u);
    ASSERT_EQ(commands.segments.size(), regions);
    // What could not be read takes no room: all of it but memory without access.
    for (const CoreSegment &segment : commands.segments) {
      EXPECT_EQ(segment.fileSize, segment.protection == "---" ? segment.size : 0) << segment.name;
    }
    return;
  }
  FAIL() << "each dump was through before the process could be killed";
}

TEST_F(Core, OfAProcessThatIsGone) {
  pid_t pid = 0;
  {
    const Helper helper(Steps{});
    pid = helper.pid();
  }
  const LiveCore file(pid);
  const Outcome outcome = runSondex({std::to_string(pid), "core"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(errorOf(outcome), std::to_string(pid) + ": No such process!\n");
  EXPECT_FALSE(file.exists());
}

TEST_F(Core, OfAnotherUsersProcessIsRefused) {
  if (!isRoot()) GTEST_SKIP() << "needs root to be another user";
  const Helper helper(Steps{});
  const LiveCore file(helper.pid());
  const std::string pid = std::to_string(helper.pid());
  for (const Steps &words : {Steps{pid, "core"}, Steps{pid, "core", "mini"}}) {
    const Outcome outcome = runSondex(words, {}, kNobody);
    EXPECT_TRUE(outcome.exitedWith(256 - 5)) << outcome;
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(errorOf(outcome),
              "Unable to get task port (Not root, or possibly due to SIP)\nCore dump of process " +
                  pid + " failed\n");
    EXPECT_FALSE(file.exists());
  }
}

TEST_F(Core, OfAUsersOwnProcess) {
  if (!hasDebugger()) GTEST_SKIP() << kNoDebugger;
  if (!isRoot()) GTEST_SKIP() << "needs root to be another user";
  const std::string scope = readFile("/proc/sys/kernel/yama/ptrace_scope");
  if (!scope.empty() && scope[0] != '0') GTEST_SKIP() << "users may not look into processes here";
  const Conversation process({"addresses", decimal(kWords), "1", "threads", "2"}, kNobody);
  const pid_t pid = process.pid();
  if (!mayLookInto(pid)) GTEST_SKIP() << kMayNotLook;
  const std::vector<DebuggedThread> threads = placesOfThreads(pid);
  const LiveCore file(pid);
  const Outcome outcome = runSondex({std::to_string(pid), "core"}, {}, kNobody);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  struct stat status {};
  ASSERT_EQ(stat(file.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_EQ(status.st_uid, kNobody);
  const DebuggedCore core = debugCore(file.path(), {{kWords, kMiB}});
  EXPECT_THAT(core.threads, ElementsAreArray(threads)) << core.said;
  EXPECT_TRUE(core.memory.at(0) == addressesFrom(kWords, kMiB)) << core.said;
}

TEST_F(Core, HasTheFirst4096OfMoreRegions) {
  if (!hasDebugger()) GTEST_SKIP() << kNoDebugger;
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  const Helper helper({"mappings", decimal(kWords), "5000"});
  const std::vector<Mapping> mappings = mappingsOf(helper.pid());
  ASSERT_GT(mappings.size(), kMostRegions);
  const LiveCore file(helper.pid());
  const Outcome outcome = runSondex({std::to_string(helper.pid()), "core"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  const CoreCommands commands = readCoreCommands(file.path());
  EXPECT_EQ(complaintAboutCore(commands, file.size()), "") << commands.said;
  ASSERT_EQ(commands.segments.size(), kMostRegions);
  std::string warnings = "Warning: More than 4096 regions detected!\n";
  for (size_t i = 0; i < kMostRegions; i++) {
    ASSERT_EQ(commands.segments[i].address, mappings[i].start);
    ASSERT_EQ(commands.segments[i].protection, mappings[i].protection);
    if (commands.segments[i].fileSize == 0) warnings += warningOf(mappings[i]);
  }
  EXPECT_EQ(errorOf(outcome), warnings + sayingDumped(helper.pid(), "Full"));
  EXPECT_EQ(debugCore(file.path()).threads.size(), 1u);
  // The map is read once: for each region, it would take far longer.
  EXPECT_LT(outcome.ending->processorSeconds, 4);
}

#ifdef MAKE_PROCESS_32_PROGRAM
TEST_F(Core, OfA32BitProcess) {
  if (!hasDebugger()) GTEST_SKIP() << kNoDebugger;
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  const Helper helper(MAKE_PROCESS_32_PROGRAM, {});
  const std::vector<DebuggedThread> threads = placesOfThreads(helper.pid());
  ASSERT_EQ(threads.size(), 1u);
  const std::vector<Mapping> mappings = mappingsOf(helper.pid());
  const LiveCore file(helper.pid());
  dumpQuiet(helper.pid());
  const CoreCommands commands = readCoreCommands(file.path());
  EXPECT_EQ(commands.processor, "ARM");
  EXPECT_EQ(complaintAboutCore(commands, file.size()), "") << commands.said;
  EXPECT_EQ(commands.threads, std::vector<uint32_t>{84});
  ASSERT_EQ(commands.segments.size(), mappings.size()) << commands.said;
  for (size_t i = 0; i < mappings.size(); i++) {
    EXPECT_EQ(commands.segments[i].commandSize, 56u);
    EXPECT_EQ(commands.segments[i].address, mappings[i].start);
    EXPECT_EQ(commands.segments[i].size, mappings[i].size());
  }

  const uint64_t stackPointer = threads[0].stackPointer;
  const DebuggedCore core =
      debugCore(file.path(), {{mappings[0].start, kPage}, {stackPointer, 64}});
  EXPECT_EQ(core.architecture, "armv7") << core.said;
  // An odd address is one of Thumb code to LLDB, which leaves that bit out.
  const DebuggedThread expected = {threads[0].programCounter & ~uint64_t{1}, stackPointer};
  EXPECT_THAT(core.threads, ElementsAre(expected)) << core.said;
  const FileHandle memory = openMemory(helper.pid());
  ASSERT_EQ(core.memory.size(), 2u);
  EXPECT_EQ(core.memory[0], bytesAt(openToRead(MAKE_PROCESS_32_PROGRAM), 0, kPage));
  EXPECT_EQ(core.memory[1], bytesAt(memory, stackPointer, 64));
}
#endif

// The most memory that the program held while it dumped a process, in bytes.
uint64_t peakOfDumping(pid_t pid) {
  std::string program = sondexPath();
  std::string number = std::to_string(pid);
  std::string word = "core";
  char *const arguments[] = {program.data(), number.data(), word.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_RDWR, 0);
  }
  pid_t child = -1;
  const int error = posix_spawn(&child, program.c_str(), &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  EXPECT_EQ(error, 0);
  if (error != 0) return 0;
  int status = 0;
  rusage usage{};
  EXPECT_EQ(wait4(child, &status, 0, &usage), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  return static_cast<uint64_t>(usage.ru_maxrss) * 1024;
}

uint64_t availableMemory() {
  std::istringstream words(readFile("/proc/meminfo"));
  uint64_t kilobytes = 0;
  for (std::string word; words >> word;) {
    if (word == "MemAvailable:") words >> kilobytes;
  }
  return kilobytes * 1024;
}

// Pieces of 512 MiB, 2 GiB in all. Less where that would take too long (with a sanitizer) or where
// the machine lacks memory or room on the disk, but never a piece that the bound could hide.
TEST_F(Core, TakesLittleMemoryHoweverLargeTheProcess) {
  if (!hasObjectReader()) GTEST_SKIP() << kNoObjectReader;
  uint64_t piece = 512 * kMiB;
  uint64_t pieces = 4;
  if (sondexIsSanitized()) {
    piece = 256 * kMiB;
    pieces = 2;
  }
  const uint64_t wanted = piece * pieces * 3 / 2;
  if (availableMemory() < 2 * wanted || std::filesystem::space("/tmp").available < wanted) {
    piece = 128 * kMiB;
    pieces = 2;
  }

  uint64_t small = 0;
  {
    const Helper helper(Steps{});
    const LiveCore file(helper.pid());
    small = peakOfDumping(helper.pid());
  }
  ASSERT_GT(small, 0u);
  Steps steps;
  // Apart, or they would be one mapping.
  const auto start = [piece](uint64_t index) { return kWords + index * (piece + kMiB); };
  for (uint64_t i = 0; i < pieces; i++) {
    steps.insert(steps.end(), {"addresses", decimal(start(i)), decimal(piece / kMiB)});
  }
  const Helper helper(steps);
  const LiveCore file(helper.pid());
  const uint64_t large = peakOfDumping(helper.pid());
  EXPECT_LT(large, small + kBound) << small << " for a small process";

  const CoreCommands commands = readCoreCommands(file.path());
  EXPECT_EQ(complaintAboutCore(commands, file.size()), "") << commands.said;
  EXPECT_GT(file.size(), piece * pieces);
  ASSERT_GT(commands.segments.size(), pieces);
  const FileHandle core = openToRead(file.path());
  for (uint64_t i = 0; i < pieces; i++) {
    const CoreSegment &segment = commands.segments[i];
    ASSERT_EQ(segment.address, start(i));
    ASSERT_EQ(segment.fileSize, piece);
    for (uint64_t place = 0; place < piece; place += kMiB) {
      ASSERT_TRUE(bytesAt(core, segment.fileOffset + place, kMiB) ==
                  addressesFrom(start(i) + place, kMiB))
          << std::hex << start(i) + place;
    }
  }
}

}  // namespace
}  // namespace test
