// Stackshots of processes that the test made itself: what their threads are called, how many there
// are, where they stand, and that they go on as before.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

#include "harness/file_handle.h"
#include "harness/helper.h"
#include "harness/process_facts.h"
#include "harness/run.h"

namespace test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

struct ShownThread {
  unsigned long id = 0;
  std::string name;
  Steps kernelStack;
  Steps userStack;
  bool hasTimes = false;
};

// The threads of a report, one container after the other.
std::vector<ShownThread> threadsIn(const std::string &report) {
  std::vector<ShownThread> threads;
  Steps *stack = nullptr;
  for (const std::string &line : splitLines(report)) {
    if (line == "\t  Thread container") {
      threads.emplace_back();
      continue;
    }
    if (threads.empty()) continue;
    ShownThread &thread = threads.back();
    if (line.starts_with("\t\tTID: 0x")) {
      thread.id = std::stoul(line.substr(7), nullptr, 16);
    } else if (line.starts_with("\t\tName:  \t")) {
      thread.name = line.substr(10);
    } else if (line.starts_with("\t\t_CPU_TIMES  User: ")) {
      thread.hasTimes = true;
    } else if (line.ends_with("Elements of type _KERN_STACKLR64 ")) {
      stack = &thread.kernelStack;
    } else if (line.ends_with("Elements of type _USER_STACKLR64 ")) {
      stack = &thread.userStack;
    } else if (line.starts_with("\t\t0x") && stack != nullptr) {
      stack->push_back(line.substr(2));
    }
  }
  return threads;
}

Outcome takeOf(pid_t pid, std::optional<uid_t> user = std::nullopt) {
  return runSondex({std::to_string(pid), "threads"}, {}, user);
}

std::vector<ShownThread> threadsOf(pid_t pid) {
  const Outcome outcome = takeOf(pid);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(withoutSampling(outcome.error), "");
  return threadsIn(outcome.output);
}

int tracerOf(pid_t pid) {
  std::istringstream status(readFile("/proc/" + std::to_string(pid) + "/status"));
  std::string word;
  int tracer = -1;
  while (status >> word) {
    if (word == "TracerPid:") status >> tracer;
  }
  return tracer;
}

bool isAsBefore(pid_t pid, char state) {
  return waitUntil([&] {
    const std::optional<ProcessFacts> facts = readFacts(pid);
    return facts && facts->state == state && tracerOf(pid) == 0;
  });
}

// Where a call chain returns to, as the process itself says.
class ChainFile {
 public:
  ChainFile() : path_(testing::TempDir() + uniqueName("cc")) {}
  ~ChainFile() { std::remove(path_.c_str()); }
  const std::string &path() const { return path_; }
  Steps addresses() const { return splitLines(readFile(path_)); }

 private:
  std::string path_;
};

class Stackshot : public testing::Test {
 protected:
  void SetUp() override {
    if (!isRoot()) GTEST_SKIP() << "needs root, as it does on a device";
  }
};

void expectChain(const ShownThread &thread, const Steps &addresses) {
  ASSERT_THAT(addresses, SizeIs(3));
  EXPECT_EQ(thread.name, "chain");
  const Steps &stack = thread.userStack;
  const auto found = std::search(stack.begin(), stack.end(), addresses.begin(), addresses.end());
  EXPECT_NE(found, stack.end()) << testing::PrintToString(stack) << " without "
                                << testing::PrintToString(addresses);
  // The place in the system's library, and the function itself, are further in.
  EXPECT_GE(found - stack.begin(), 2);
}

void expectChain(const Helper &helper, const Steps &addresses) {
  const std::vector<ShownThread> threads = threadsOf(helper.pid());
  ASSERT_THAT(threads, SizeIs(2));
  expectChain(threads[1], addresses);
  EXPECT_TRUE(isAsBefore(helper.pid(), 'S'));
}

TEST_F(Stackshot, ShowsWhereAThreadStands) {
  const ChainFile file;
  const Helper helper({"call-chain", file.path()});
  expectChain(helper, file.addresses());
}

// The file that it runs has no name any more.
TEST_F(Stackshot, ShowsWhereAThreadOfADeletedProgramStands) {
  const ChainFile file;
  const Helper helper({"deleted", "call-chain", file.path()});
  expectChain(helper, file.addresses());
}

// What is mapped is not told under the process's own number any more.
TEST_F(Stackshot, ShowsWhereAThreadStandsWhenTheFirstHasEnded) {
  const ChainFile file;
  const Helper helper({"call-chain", file.path(), "lose-first-thread"});
  const auto hasLostIt = [&] {
    return readFacts(helper.pid()).value_or(ProcessFacts{}).isZombie();
  };
  ASSERT_TRUE(waitUntil(hasLostIt));
  const std::vector<ShownThread> threads = threadsOf(helper.pid());
  ASSERT_THAT(threads, SizeIs(3));
  expectChain(threads[1], file.addresses());
}

// What a process has mapped can be opened without a path to it, where the kernel lets the caller.
bool mayOpenMappedFiles() {
  const std::filesystem::directory_iterator any("/proc/self/map_files");
  return FileHandle(open(any->path().c_str(), O_RDONLY | O_CLOEXEC)).isOpen();
}

// Its files are not where their names say, for others.
TEST_F(Stackshot, ShowsWhereAThreadUnderAnotherRootStands) {
  if (!mayOpenMappedFiles()) {
    GTEST_SKIP() << "needs CAP_CHECKPOINT_RESTORE to open what is mapped under another root";
  }
  const ChainFile file;
  const Helper helper({"call-chain", file.path(), "root", "/proc"});
  expectChain(helper, file.addresses());
}

TEST_F(Stackshot, IsPartOfTheFullReport) {
  const ChainFile file;
  const Helper helper({"call-chain", file.path()});
  const Outcome outcome = runSondex({std::to_string(helper.pid())});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  for (const std::string &address : file.addresses()) {
    EXPECT_THAT(outcome.output, HasSubstr("\t\t" + address + "\n"));
  }
}

TEST_F(Stackshot, HasEachThread) {
  const std::string name = uniqueName("ss");
  const Helper helper({"name", name, "threads", "5"});
  const std::vector<ShownThread> threads = threadsOf(helper.pid());
  std::set<unsigned long> ids;
  for (const ShownThread &thread : threads) {
    EXPECT_EQ(thread.name, name);
    EXPECT_TRUE(thread.hasTimes);
    EXPECT_THAT(thread.userStack, Not(IsEmpty()));
    EXPECT_EQ(
        access(("/proc/" + std::to_string(helper.pid()) + "/task/" + std::to_string(thread.id))
                   .c_str(),
               F_OK),
        0);
    ids.insert(thread.id);
  }
  EXPECT_EQ(ids.size(), 5u);
  EXPECT_THAT(threads, SizeIs(5));
  EXPECT_TRUE(isAsBefore(helper.pid(), 'S'));
}

TEST_F(Stackshot, HasEachOf600Threads) {
  const Helper helper({"threads", "600"});
  const std::vector<ShownThread> threads = threadsOf(helper.pid());
  std::set<unsigned long> ids;
  size_t stacks = 0;
  for (const ShownThread &thread : threads) {
    ids.insert(thread.id);
    if (!thread.userStack.empty()) stacks++;
  }
  EXPECT_EQ(ids.size(), 600u);
  EXPECT_EQ(stacks, 600u);
  EXPECT_TRUE(isAsBefore(helper.pid(), 'S'));
}

// A kernel may keep its stacks or its addresses to itself.
TEST_F(Stackshot, HasTheKernelsSide) {
  const Helper helper(Steps{});
  ASSERT_TRUE(isAsBefore(helper.pid(), 'S')) << "it waits in one place, once it is there";
  std::ifstream symbols("/proc/kallsyms");
  std::string address;
  symbols >> address;
  const std::string folder = "/proc/" + std::to_string(helper.pid());
  const Steps lines = splitLines(readFile(folder + "/stack"));
  if (lines.empty() || address.find_first_not_of('0') == std::string::npos) {
    GTEST_SKIP() << "the kernel does not tell";
  }
  const std::vector<ShownThread> threads = threadsOf(helper.pid());
  ASSERT_THAT(threads, SizeIs(1));
  EXPECT_EQ(threads[0].kernelStack.size(), lines.size());
  // The last line is the entry from user space: by the table, at its offset from that symbol.
  const std::string last = lines.back();
  const size_t start = last.find("] ") + 2;
  const size_t plus = last.find('+');
  const std::string function = last.substr(start, plus - start);
  const unsigned long offset = std::stoul(last.substr(plus + 1), nullptr, 16);
  std::string type;
  std::string name;
  std::set<std::string> possible;
  symbols.seekg(0);
  while (symbols >> address >> type >> name) {
    std::string rest;
    std::getline(symbols, rest);
    if (name != function) continue;
    char text[32];
    std::snprintf(text, sizeof text, "0x%lx", std::stoul(address, nullptr, 16) + offset);
    possible.insert(text);
  }
  EXPECT_THAT(possible, Contains(threads[0].kernelStack.back()));
}

TEST_F(Stackshot, OfAKernelThreadHasNoUserSide) {
  const std::optional<ProcessFacts> facts = readFacts(2);
  if (!facts || facts->name != "kthreadd") GTEST_SKIP() << "none is to be seen from here";
  const std::vector<ShownThread> threads = threadsOf(2);
  ASSERT_THAT(threads, SizeIs(1));
  EXPECT_EQ(threads[0].name, "kthreadd");
  EXPECT_THAT(threads[0].userStack, IsEmpty());
}

TEST_F(Stackshot, LeavesAStoppedProcessStopped) {
  const Helper helper({"stop"});
  ASSERT_TRUE(isAsBefore(helper.pid(), 'T'));
  const std::vector<ShownThread> threads = threadsOf(helper.pid());
  ASSERT_THAT(threads, SizeIs(1));
  EXPECT_THAT(threads[0].userStack, Not(IsEmpty()));
  EXPECT_TRUE(isAsBefore(helper.pid(), 'T'));
}

TEST_F(Stackshot, LeavesABusyProcessBusy) {
  const Helper helper({"busy", "2"});
  EXPECT_THAT(threadsOf(helper.pid()), SizeIs(2));
  const auto ticks = [&] { return readFacts(helper.pid())->processorTicks; };
  const uint64_t before = ticks();
  EXPECT_TRUE(waitUntil([&] { return ticks() > before; }));
  EXPECT_EQ(tracerOf(helper.pid()), 0);
}

Launch sondexOn(pid_t pid) {
  Launch launch;
  launch.program = sondexPath();
  launch.arguments = {std::to_string(pid), "threads"};
  return launch;
}

// Whether it is being traced by now; false once the program has ended.
bool comesToBeTraced(pid_t pid, Child &sondex) {
  bool isTraced = false;
  waitUntil(
      [&] {
        isTraced = tracerOf(pid) > 0;
        return isTraced || sondex.poll().has_value();
      },
      kPatience);
  return isTraced;
}

TEST_F(Stackshot, OfAProcessThatDiesMeanwhile) {
  const Helper helper({"threads", "600"});
  std::atomic<bool> isDone{false};
  std::thread killer([&] {
    waitUntil([&] { return isDone || tracerOf(helper.pid()) > 0; });
    kill(helper.pid(), SIGKILL);
  });
  const Outcome outcome = takeOf(helper.pid());
  isDone = true;
  killer.join();
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
}

// The program is killed while it looks: what stood still goes on.
TEST_F(Stackshot, OfAProgramThatIsKilledLeavesNothingStopped) {
  const Helper helper({"threads", "600"});
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  Launch launch = sondexOn(helper.pid());
  launch.output = nowhere;
  launch.error = nowhere;
  {
    Child sondex(launch);
    comesToBeTraced(helper.pid(), sondex);
    sondex.signal(SIGKILL);
    EXPECT_TRUE(sondex.waitForEnd());
  }
  close(nowhere);
  EXPECT_TRUE(isAsBefore(helper.pid(), 'S'));
}

TEST_F(Stackshot, IsRefusedToUsers) {
  const Helper helper({"user", std::to_string(kNobody)});
  const Outcome outcome = takeOf(helper.pid(), kNobody);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "RC: 1\n");
  EXPECT_THAT(outcome.error, HasSubstr("sswc: Operation not permitted\n"));
}

#ifdef MAKE_PROCESS_32_PROGRAM
TEST_F(Stackshot, Of32BitsHasThoseAddresses) {
  std::unique_ptr<Helper> helper;
  try {
    helper = std::make_unique<Helper>(MAKE_PROCESS_32_PROGRAM, Steps{});
  } catch (const std::runtime_error &error) {
    GTEST_SKIP() << "this kernel runs no 32-bit programs: " << error.what();
  }
  const Outcome outcome = takeOf(helper->pid());
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output, HasSubstr(" Elements of type _USER_STACKLR \n"));
  EXPECT_THAT(outcome.output, Not(HasSubstr("_USER_STACKLR64")));
}
#endif

}  // namespace
}  // namespace test
