// What the processes of a device file say: their keys, what they hold, templates, patterns, and
// what is different between several that are described alike.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "darwin/syscalls.h"
#include "host/darwin/code_signing.h"
#include "host/darwin/proc_info.h"
#include "host/simulator/process_texts.h"
#include "tests/unit/device_file_text.h"

namespace {

using namespace device_file_test;
using namespace host::simulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

constexpr int64_t kPercent = 10'000'000'000'000;  // of a processor, as growth of a time

TEST(DeviceFileProcess, Defaults) {
  const Process process = processOf("");
  EXPECT_EQ(process.pid, 7);
  EXPECT_EQ(process.parent, 1);
  EXPECT_FALSE(process.group.has_value());
  EXPECT_EQ(process.name, "one");
  EXPECT_EQ(process.path, "/usr/libexec/one");
  EXPECT_THAT(process.arguments, ElementsAre("/usr/libexec/one"));
  EXPECT_THAT(process.environment, IsEmpty());
  EXPECT_TRUE(process.is64Bit);
  EXPECT_EQ(process.status, darwin::SRUN);
  EXPECT_EQ(process.flags, 0u);
  EXPECT_EQ(process.terminal, 0xFFFFFFFF);
  EXPECT_EQ(process.age, 86400s);
  EXPECT_EQ(process.priority, 31);
  EXPECT_EQ(process.policy, darwin::POLICY_TIMESHARE);
  ASSERT_EQ(process.threads.size(), 1u);
  EXPECT_EQ(process.threads[0].priority, 31);
  EXPECT_EQ(process.threads[0].currentPriority, 31);
  EXPECT_EQ(process.threads[0].largestPriority, 63);
  EXPECT_EQ(process.threads[0].state, darwin::TH_STATE_WAITING);
  EXPECT_THAT(process.descriptors, IsEmpty());
  EXPECT_THAT(process.regions, IsEmpty());
  EXPECT_FALSE(process.workQueue.has_value());
  EXPECT_TRUE(process.usage.has_value());
  EXPECT_EQ(process.coalitions, std::nullopt);
  ASSERT_TRUE(process.jetsam.has_value());
  EXPECT_EQ(process.jetsam->band, 0);
  EXPECT_EQ(process.jetsam->limit, -1);
  EXPECT_EQ(process.jetsam->state, 0u);
  EXPECT_EQ(process.sandboxed, 0);
  EXPECT_EQ(process.container, "");
  EXPECT_EQ(process.codeSigningFlags, darwin::CS_VALID | darwin::CS_PLATFORM_BINARY);
  EXPECT_THAT(process.codeSignature, IsEmpty());
  EXPECT_FALSE(process.applicationState.has_value());
}

TEST(DeviceFileProcess, Identity) {
  const Process process = processOf(
      "long-name = \"the long one\"\npath = \"/bin/one\"\narguments = [\"one\", \"-v\"]\n"
      "environment = [\"A=1\"]\nparent = 3\ngroup = 5\nuser = 501\ngroup-id = 20\n"
      "container = \"/private/var/c\"");
  EXPECT_EQ(process.longName, "the long one");
  EXPECT_EQ(process.path, "/bin/one");
  EXPECT_THAT(process.arguments, ElementsAre("one", "-v"));
  EXPECT_THAT(process.environment, ElementsAre("A=1"));
  EXPECT_EQ(process.parent, 3);
  EXPECT_EQ(process.group, 5);
  EXPECT_EQ(process.user, 501u);
  EXPECT_EQ(process.realUser, 501u);
  EXPECT_EQ(process.savedUser, 501u);
  EXPECT_EQ(process.groupID, 20u);
  EXPECT_EQ(process.realGroupID, 20u);
  EXPECT_EQ(process.savedGroupID, 20u);
  EXPECT_EQ(process.container, "/private/var/c");
}

TEST(DeviceFileProcess, UsersOneByOne) {
  const Process process = processOf(
      "user = 1\nreal-user = 2\nsaved-user = 3\ngroup-id = 4\nreal-group-id = 5\n"
      "saved-group-id = 6");
  EXPECT_EQ(process.realUser, 2u);
  EXPECT_EQ(process.savedUser, 3u);
  EXPECT_EQ(process.realGroupID, 5u);
  EXPECT_EQ(process.savedGroupID, 6u);
}

TEST(DeviceFileProcess, State) {
  const Process process = processOf(
      "bits = 32\nstatus = \"zombie\"\nexit-status = 9\nterminal = 0x4000001\n"
      "terminal-group = 6\njobs = 2\nnice = -5\nage = 2.5\npriority = 47\npolicy = \"fifo\"");
  EXPECT_FALSE(process.is64Bit);
  EXPECT_EQ(process.status, darwin::SZOMB);
  EXPECT_EQ(process.exitStatus, 9u);
  EXPECT_EQ(process.terminal, 0x4000001u);
  EXPECT_EQ(process.terminalGroup, 6u);
  EXPECT_EQ(process.jobs, 2u);
  EXPECT_EQ(process.nice, -5);
  EXPECT_EQ(process.age, 2500ms);
  EXPECT_EQ(process.priority, 47);
  EXPECT_EQ(process.policy, darwin::POLICY_FIFO);
  EXPECT_EQ(process.threads[0].priority, 47);
  EXPECT_EQ(process.threads[0].policy, darwin::POLICY_FIFO);
  EXPECT_EQ(processOf("status = 77").status, 77u);
  EXPECT_EQ(processOf("policy = \"round-robin\"").policy, darwin::POLICY_RR);
  const std::pair<const char *, uint32_t> statuses[] = {
      {"idle", 1}, {"run", 2}, {"sleep", 3}, {"stop", 4}, {"zombie", 5}};
  for (const auto &[word, number] : statuses) {
    EXPECT_EQ(processOf("status = \"" + std::string(word) + "\"").status, number) << word;
  }
}

TEST(DeviceFileProcess, Flags) {
  const std::pair<const char *, uint32_t> words[] = {{"system", 0x1},
                                                     {"traced", 0x2},
                                                     {"exiting", 0x4},
                                                     {"session-leader", 0x20},
                                                     {"terminal-leader", 0x40},
                                                     {"controls-terminal", 0x80},
                                                     {"throttled", 0x800},
                                                     {"suspended", 0x1000},
                                                     {"changed-user", 0x2000},
                                                     {"exec", 0x4000},
                                                     {"background", 0x8000},
                                                     {"daemon", 0x20000},
                                                     {"delay-idle-sleep", 0x40000},
                                                     {"promotion", 0x80000},
                                                     {"adaptive", 0x100000},
                                                     {"adaptive-important", 0x200000},
                                                     {"donor", 0x400000},
                                                     {"suppressed", 0x800000},
                                                     {"application", 0x1000000}};
  for (const auto &[word, number] : words) {
    EXPECT_EQ(processOf("flags = [\"" + std::string(word) + "\"]").flags, number) << word;
  }
  EXPECT_EQ(processOf("flags = [\"system\", 0x10000, \"exec\"]").flags, 0x14001u);
  // Whether it is one of 64 bits is told by `bits` alone.
  EXPECT_EQ(processOf("flags = [0x4010]").flags, 0x4000u);
}

TEST(DeviceFileProcess, SigningAndSandbox) {
  const std::pair<const char *, uint32_t> words[] = {
      {"valid", 0x1},           {"ad-hoc", 0x2},
      {"get-task-allow", 0x4},  {"installer", 0x8},
      {"hard", 0x100},          {"kill", 0x200},
      {"expires", 0x400},       {"restrict", 0x800},
      {"enforce", 0x1000},      {"library-validation", 0x2000},
      {"entitlements", 0x4000}, {"runtime", 0x10000},
      {"linker", 0x20000},      {"killed", 0x1000000},
      {"platform", 0x4000000},  {"debugged", 0x10000000},
      {"signed", 0x20000000}};
  for (const auto &[word, number] : words) {
    EXPECT_EQ(processOf("signing = [\"" + std::string(word) + "\"]").codeSigningFlags, number)
        << word;
  }
  EXPECT_EQ(processOf("signing = []").codeSigningFlags, 0u);
  EXPECT_THAT(processOf("signature = \"fade0CC0 00\"").codeSignature,
              ElementsAre(0xfa, 0xde, 0x0c, 0xc0, 0));
  EXPECT_EQ(processOf("sandbox = true").sandboxed, 1);
  EXPECT_EQ(processOf("sandbox = false").sandboxed, 0);
  EXPECT_EQ(processOf("sandbox = \"unknown\"").sandboxed, -1);
}

TEST(DeviceFileProcess, ApplicationState) {
  const std::pair<const char *, int32_t> words[] = {
      {"none", 0}, {"active", 1}, {"background", 2}, {"no-ui", 3}, {"inactive", 4}};
  for (const auto &[word, number] : words) {
    EXPECT_EQ(processOf("application-state = \"" + std::string(word) + "\"").applicationState,
              number)
        << word;
  }
}

TEST(DeviceFileProcess, Figures) {
  const Process process = processOf(
      "virtual = \"1K\"\nresident = 2\nfootprint = 3\nwired = 4\nfaults = 5\npage-ins = 6\n"
      "copy-on-write-faults = 7\nmessages-sent = 8\nmessages-received = 9\nmach-calls = 10\n"
      "unix-calls = 11\ncontext-switches = 12");
  EXPECT_EQ(process.virtualSize.start, 1024u);
  EXPECT_EQ(process.residentSize.start, 2u);
  EXPECT_EQ(process.footprint.start, 3u);
  EXPECT_EQ(process.wiredSize.start, 4u);
  EXPECT_EQ(process.faults.start, 5u);
  EXPECT_EQ(process.pageIns.start, 6u);
  EXPECT_EQ(process.copyOnWriteFaults.start, 7u);
  EXPECT_EQ(process.messagesSent.start, 8u);
  EXPECT_EQ(process.messagesReceived.start, 9u);
  EXPECT_EQ(process.machCalls.start, 10u);
  EXPECT_EQ(process.unixCalls.start, 11u);
  EXPECT_EQ(process.contextSwitches.start, 12u);
  const Process moving = processOf("resident = { start = \"1M\", growth = \"1K\", swing = 4 }");
  EXPECT_TRUE(moving.footprint == moving.residentSize);
  EXPECT_EQ(moving.footprint.growth, 1'024'000'000);
}

TEST(DeviceFileProcess, Usage) {
  const ResourceUsage usage = *processOf(
                                   "disk-read = 1\ndisk-written = 2\nlogical-writes = 3\n"
                                   "idle-wakeups = 4\ninterrupt-wakeups = 5\ninstructions = 6\n"
                                   "cycles = 7\nbilled-energy = 8\nserviced-energy = 9\n"
                                   "billed-time = 0.5\nserviced-time = 2")
                                   .usage;
  EXPECT_EQ(usage.diskRead.start, 1u);
  EXPECT_EQ(usage.diskWritten.start, 2u);
  EXPECT_EQ(usage.logicalWrites.start, 3u);
  EXPECT_EQ(usage.idleWakeups.start, 4u);
  EXPECT_EQ(usage.interruptWakeups.start, 5u);
  EXPECT_EQ(usage.instructions.start, 6u);
  EXPECT_EQ(usage.cycles.start, 7u);
  EXPECT_EQ(usage.billedEnergy.start, 8u);
  EXPECT_EQ(usage.servicedEnergy.start, 9u);
  EXPECT_EQ(usage.billedSystemTime.start, 500'000'000u);
  EXPECT_EQ(usage.servicedSystemTime.start, 2'000'000'000u);
  EXPECT_FALSE(processOf("usage = false").usage.has_value());
}

TEST(DeviceFileProcess, Accounts) {
  const Process process = processOf(
      "work-queue = { threads = 4, running = 1, blocked = 2, state = 16 }\n"
      "coalition = [9, 10]\nband = 10\nlimit = 1400\njetsam-state = 3");
  ASSERT_TRUE(process.workQueue.has_value());
  EXPECT_EQ(process.workQueue->threads, 4u);
  EXPECT_EQ(process.workQueue->running, 1u);
  EXPECT_EQ(process.workQueue->blocked, 2u);
  EXPECT_EQ(process.workQueue->state, 16u);
  EXPECT_THAT(process.coalitions, Optional(ElementsAre(9, 10)));
  EXPECT_EQ(process.jetsam->band, 10);
  EXPECT_EQ(process.jetsam->limit, 1400);
  EXPECT_EQ(process.jetsam->inactiveLimit, 1400);
  EXPECT_EQ(process.jetsam->state, 3u);
  EXPECT_THAT(processOf("coalition = 4").coalitions, Optional(ElementsAre(4, 4)));
  EXPECT_THAT(processOf("coalition = [1, \"0xfffffff007b6a1c4\"]").coalitions,
              Optional(ElementsAre(1, 0xfffffff007b6a1c4)));
  EXPECT_FALSE(processOf("jetsam = false").jetsam.has_value());
}

TEST(DeviceFileProcess, TimesGrowByTheSharesOfItsThreads) {
  const std::string threads =
      "threads = [{ copies = 2, share = 10 }, { share = { start = 5, swing = 5 } }]\n";
  const Process process = processOf(threads);
  EXPECT_EQ(process.userTime.growth, 25 * kPercent / 5 * 4);
  EXPECT_EQ(process.systemTime.growth, 25 * kPercent / 5);
  EXPECT_EQ(process.threads[2].userTime.growth, 5 * kPercent / 5 * 4);
  EXPECT_EQ(process.threads[2].systemTime.growth, 5 * kPercent / 5);

  const Process plain = processOf(threads + "user-time = 8\nsystem-time = { start = 2 }");
  EXPECT_EQ(plain.userTime.start, 8'000'000'000u);
  EXPECT_EQ(plain.userTime.growth, 25 * kPercent / 5 * 4);
  EXPECT_EQ(plain.systemTime.growth, 25 * kPercent / 5);

  const Process own = processOf(threads + "user-time = { growth = 0 }");
  EXPECT_EQ(own.userTime.growth, 0);
  EXPECT_EQ(own.systemTime.growth, 25 * kPercent / 5);
}

// Which process is which.

std::vector<int32_t> pidsOf(const Device &device) {
  std::vector<int32_t> pids;
  for (const Process &process : device.processes) pids.push_back(process.pid);
  return pids;
}

TEST(DeviceFileProcess, PidsGoUpFromTheLargest) {
  const Device device = deviceOf(
      "[[process]]\nname = \"a\"\n[[process]]\nname = \"b\"\npid = 30\n"
      "[[process]]\nname = \"c\"\n[[process]]\nname = \"d\"\npid = 28\ncopies = 4\n"
      "[[process]]\nname = \"e\"\n[[process]]\nname = \"k\"\npid = 0\n");
  // Copies pass over what is taken.
  EXPECT_THAT(pidsOf(device), ElementsAre(1, 30, 31, 28, 29, 32, 33, 34, 0));
  EXPECT_EQ(device.processes[0].parent, 0);
  EXPECT_EQ(device.processes[1].parent, 1);
  EXPECT_EQ(device.processes[8].parent, 0);
}

TEST(DeviceFileProcess, NamesMakeOneEach) {
  const Device device = deviceOf("[[process]]\nnames = [\"a\", \"b{index}\", \"\"]\npid = 5\n");
  ASSERT_THAT(pidsOf(device), ElementsAre(5, 6, 7));
  EXPECT_EQ(device.processes[0].name, "a");
  EXPECT_EQ(device.processes[1].name, "b1");
  EXPECT_EQ(device.processes[1].path, "/usr/libexec/b1");
  EXPECT_EQ(device.processes[2].name, "");
}

TEST(DeviceFileProcess, ParentByName) {
  const Device device = deviceOf(
      "[[process]]\nname = \"child\"\ncopies = 2\nparent = \"later\"\n"
      "[[process]]\nname = \"later\"\npid = 50\n");
  EXPECT_EQ(device.processes[0].parent, 50);
  EXPECT_EQ(device.processes[1].parent, 50);
}

TEST(DeviceFileProcess, Patterns) {
  const Device device = deviceOf(
      "[[process]]\nname = \"w{index}-{pid}\"\npid = 20\ncopies = 2\nlong-name = \"long {name}\"\n"
      "path = \"/p/{name}\"\narguments = [\"{name}\", \"{pid}\", \"{index}\", \"{other}\"]\n"
      "environment = [\"P={pid}\"]\ncontainer = \"/c/{index}\"\n"
      "threads = [{ name = \"t{index}\" }, { name = \"plain\" }]\n"
      "descriptors = [{ type = \"file\", path = \"/f/{pid}\", copies = 2 },\n"
      "{ type = \"unix\", path = \"/u/{pid}\", peer-path = \"/v/{name}\" },\n"
      "{ type = \"control\", control = \"c{index}\" }, { type = \"semaphore\", name = \"s{pid}\" "
      "},\n"
      "{ type = \"shared-memory\", name = \"m{pid}\" },\n"
      "{ type = \"network-driver\", interface = \"en{index}\" },\n"
      "{ type = \"tcp\", local = \"10.0.{index}.1:5{pid}\" }]\n"
      "regions = [{ address = 0x1000, size = 0x1000, path = \"/r/{name}\" }]\n");
  const Process &second = device.processes[1];
  EXPECT_EQ(second.name, "w1-21");
  EXPECT_EQ(second.longName, "long w1-21");
  EXPECT_EQ(second.path, "/p/w1-21");
  EXPECT_THAT(second.arguments, ElementsAre("w1-21", "21", "1", "{other}"));
  EXPECT_THAT(second.environment, ElementsAre("P=21"));
  EXPECT_EQ(second.container, "/c/1");
  EXPECT_EQ(second.threads[0].name, "t1");
  EXPECT_EQ(second.threads[1].name, "plain");
  EXPECT_EQ(std::get<File>(second.descriptors[0].object).path, "/f/21");
  EXPECT_EQ(std::get<File>(second.descriptors[1].object).path, "/f/21");
  EXPECT_EQ(std::get<Socket>(second.descriptors[2].object).path, "/u/21");
  EXPECT_EQ(std::get<Socket>(second.descriptors[2].object).peerPath, "/v/w1-21");
  EXPECT_EQ(std::get<Socket>(second.descriptors[3].object).controlName, "c1");
  EXPECT_EQ(std::get<NamedSemaphore>(second.descriptors[4].object).name, "s21");
  EXPECT_EQ(std::get<SharedMemory>(second.descriptors[5].object).name, "m21");
  EXPECT_EQ(std::get<Socket>(second.descriptors[6].object).interface, "en1");
  const Socket &tcp = std::get<Socket>(second.descriptors[7].object);
  EXPECT_THAT(tcp.local.address, ElementsAre(10, 0, 1, 1));
  EXPECT_EQ(tcp.local.port, 521);
  EXPECT_EQ(second.regions[0].path, "/r/w1-21");
  EXPECT_EQ(device.processes[0].path, "/p/w0-20");
}

TEST(DeviceFileProcess, PidOfAStartedProcessIsFilledInLater) {
  const Device device = deviceOf(
      "[[process]]\nname = \"launchd\"\n[[event]]\ndo = \"start\"\nname = \"n{index}\"\n"
      "container = \"/c/{name}/{pid}\"\n"
      "descriptors = [{ type = \"file\", path = \"/f/{pid}\" }]\n");
  Process process = std::get<StartProcess>(device.events.at(0).action).process;
  EXPECT_EQ(process.pid, -1);
  EXPECT_EQ(process.name, "n0");
  EXPECT_EQ(process.container, "/c/n0/{pid}");
  process.pid = 12;
  fillInPid(process);
  EXPECT_EQ(process.container, "/c/n0/12");
  EXPECT_EQ(std::get<File>(process.descriptors[0].object).path, "/f/12");
}

// Templates.

TEST(DeviceFileTemplate, LaterKeysReplaceAndListsAreAdded) {
  const Device device = deviceOf(
      "[template.base]\nuser = 1\npriority = 4\npath = \"/base/{name}\"\nflags = [\"system\"]\n"
      "threads = 2\ndescriptors = [{ type = \"nexus\" }]\nsigning = [\"hard\"]\n"
      "regions = [{ address = 0x9000, size = 0x1000 }]\n"
      "[template.middle]\ntemplate = \"base\"\nuser = 2\nflags = [\"exec\"]\n"
      "threads = [{ name = \"m\" }]\ndescriptors = [{ type = \"route\" }]\nsigning = [\"kill\"]\n"
      "[template.side]\nuser = 3\n"
      "[[process]]\nname = \"p\"\ntemplate = [\"middle\", \"side\"]\nflags = [\"traced\"]\n"
      "threads = 1\nregions = [{ address = 0x1000, size = 0x1000 }]\n");
  const Process &process = device.processes.at(0);
  EXPECT_EQ(process.user, 3u);
  EXPECT_EQ(process.path, "/base/p");
  EXPECT_EQ(process.flags, 0x4003u);
  EXPECT_EQ(process.codeSigningFlags, 0x200u);
  ASSERT_EQ(process.threads.size(), 4u);
  EXPECT_EQ(process.threads[2].name, "m");
  EXPECT_EQ(process.threads[0].priority, 4);  // the process's, wherever that stands
  ASSERT_EQ(process.descriptors.size(), 2u);
  EXPECT_TRUE(std::holds_alternative<Opaque>(process.descriptors[0].object));
  ASSERT_EQ(process.regions.size(), 2u);
  EXPECT_EQ(process.regions[0].address, 0x1000u);
  EXPECT_EQ(process.regions[1].address, 0x9000u);
}

TEST(DeviceFileTemplate, MayGiveTheName) {
  const Device device = deviceOf(
      "[template.t]\nname = \"t{index}\"\n[[process]]\ntemplate = \"t\"\ncopies = 2\n"
      "[[process]]\ntemplate = \"t\"\nnames = [\"own\"]\n");
  EXPECT_EQ(device.processes[1].name, "t1");
  EXPECT_EQ(device.processes[2].name, "own");
}

// Threads.

TEST(DeviceFileThread, Keys) {
  const Thread thread = threadOf(
      "name = \"t\", state = \"running\", share = 1, user-time = 3, system-time = { start = 1, "
      "growth = 0 }, priority = 5, current-priority = 6, largest-priority = 7, "
      "policy = \"round-robin\", flags = [\"swapped\", \"idle\"], asleep = 2.9, handle = 8, id = "
      "9");
  EXPECT_EQ(thread.name, "t");
  EXPECT_EQ(thread.state, darwin::TH_STATE_RUNNING);
  EXPECT_EQ(thread.share.start, 10u);
  EXPECT_EQ(thread.userTime.start, 3'000'000'000u);
  EXPECT_EQ(thread.userTime.growth, kPercent / 5 * 4);
  EXPECT_EQ(thread.systemTime.growth, 0);
  EXPECT_EQ(thread.priority, 5);
  EXPECT_EQ(thread.currentPriority, 6);
  EXPECT_EQ(thread.largestPriority, 7);
  EXPECT_EQ(thread.policy, darwin::POLICY_RR);
  EXPECT_EQ(thread.flags, 3);
  EXPECT_EQ(thread.sleepTime, 2);
  EXPECT_EQ(thread.handle, 8u);
  EXPECT_EQ(thread.id, 9u);
  const std::pair<const char *, int32_t> states[] = {
      {"running", 1}, {"stopped", 2}, {"waiting", 3}, {"uninterruptible", 4}, {"halted", 5}};
  for (const auto &[word, number] : states) {
    EXPECT_EQ(threadOf("state = \"" + std::string(word) + "\"").state, number) << word;
  }
  EXPECT_EQ(threadOf("state = 99").state, 99);
  EXPECT_EQ(threadOf("priority = 5").currentPriority, 5);
}

TEST(DeviceFileThread, Numbers) {
  EXPECT_EQ(processOf("threads = 0").threads.size(), 0u);
  EXPECT_EQ(processOf("threads = 4096").threads.size(), 4096u);
  EXPECT_EQ(processOf("threads = [{ copies = 3 }, {}]").threads.size(), 4u);
}

TEST(DeviceFileThread, NumbersMayHaveAll64Bits) {
  const Thread thread = threadOf("handle = \"0xffffffffffffffff\", id = \"0x8000000000000000\"");
  EXPECT_EQ(thread.handle, 0xffffffffffffffffu);
  EXPECT_EQ(thread.id, 0x8000000000000000u);
}

TEST(DeviceFileThread, Registers) {
  const Registers none = threadOf("").registers;
  EXPECT_EQ(none.programCounter, 0u);
  EXPECT_EQ(none.stackPointer, 0u);
  EXPECT_EQ(none.framePointer, 0u);
  EXPECT_EQ(none.link, 0u);
  EXPECT_EQ(none.status, 0u);
  EXPECT_THAT(none.general, IsEmpty());

  const Registers wide =
      threadOf(
          "registers = { pc = 0x100004000, sp = 0x16f000000, fp = 0x16f000010, "
          "lr = 0x100004100, cpsr = 0x60000000, x = [1, 0x200000000, \"0xfffffff007b6a1c4\"] }")
          .registers;
  EXPECT_EQ(wide.programCounter, 0x100004000u);
  EXPECT_EQ(wide.stackPointer, 0x16f000000u);
  EXPECT_EQ(wide.framePointer, 0x16f000010u);
  EXPECT_EQ(wide.link, 0x100004100u);
  EXPECT_EQ(wide.status, 0x60000000u);
  EXPECT_THAT(wide.general, ElementsAre(1u, 0x200000000u, 0xfffffff007b6a1c4u));

  const Registers narrow =
      processOf("bits = 32\nthreads = [{ registers = { pc = 0xFFFFFFFF, r = [1, 2] } }]")
          .threads.at(0)
          .registers;
  EXPECT_EQ(narrow.programCounter, 0xFFFFFFFFu);
  EXPECT_THAT(narrow.general, ElementsAre(1u, 2u));
}

TEST(DeviceFileThread, RegistersOfATemplateAreOfEitherWordSize) {
  const Device device = deviceOf(
      "[template.wide]\nthreads = [{ registers = { fp = 5, x = [1] } }]\n"
      "[template.narrow]\nthreads = [{ registers = { r = [2] } }]\n"
      "[[process]]\nname = \"w\"\ntemplate = \"wide\"\n"
      "[[process]]\nname = \"n\"\nbits = 32\ntemplate = \"narrow\"\n"
      "[[event]]\ndo = \"change\"\nprocess = \"n\"\nthreads = [{ registers = { r = [3] } }]\n");
  EXPECT_THAT(device.processes.at(0).threads.at(0).registers.general, ElementsAre(1u));
  EXPECT_THAT(device.processes.at(1).threads.at(0).registers.general, ElementsAre(2u));
  const auto &change = std::get<ChangeProcess>(device.events.at(0).action);
  EXPECT_THAT(change.threads->at(0).registers.general, ElementsAre(3u));
}

TEST(DeviceFileThread, Stacks) {
  const Thread none = threadOf("");
  EXPECT_EQ(none.waitEvent, 0u);
  EXPECT_EQ(none.continuation, 0u);
  EXPECT_THAT(none.kernelStack, IsEmpty());
  EXPECT_THAT(none.userStack, IsEmpty());

  const Thread thread = threadOf(
      "wait-event = \"0xffffffe0011aa3c8\", continuation = 0x7b6a1c4, "
      "kernel-stack = [\"0xfffffff007b6a1c4\", 0x10, \"0xFFFFFFFFFFFFFFFF\"], "
      "user-stack = [0x1a2b3c4d5, \"0x100004a10\"]");
  EXPECT_EQ(thread.waitEvent, 0xffffffe0011aa3c8u);
  EXPECT_EQ(thread.continuation, 0x7b6a1c4u);
  EXPECT_THAT(thread.kernelStack, ElementsAre(0xfffffff007b6a1c4u, 0x10u, 0xFFFFFFFFFFFFFFFFu));
  EXPECT_THAT(thread.userStack, ElementsAre(0x1a2b3c4d5u, 0x100004a10u));
}

TEST(DeviceFileThread, StacksHaveABound) {
  const auto stackOf = [](int frames) {
    std::string keys = "user-stack = [";
    for (int i = 0; i < frames; i++) keys += "1, ";
    return keys + "]";
  };
  EXPECT_EQ(threadOf(stackOf(512)).userStack.size(), 512u);
  EXPECT_EQ(mistakeIn("[[process]]\nname = \"a\"\nthreads = [{ " + stackOf(513) + " }]\n"),
            "devices/mine.toml:3: process[0].threads[0].user-stack: found 513 addresses; expected "
            "at most 512");
}

TEST(DeviceFileProcess, Donors) {
  EXPECT_THAT(processOf("").donors, IsEmpty());
  EXPECT_THAT(processOf("donors = [1, 40]").donors, ElementsAre(1, 40));
  std::string many = "donors = [";
  for (int i = 0; i < 65; i++) many += "1, ";
  EXPECT_EQ(mistakeIn("[[process]]\nname = \"a\"\n" + many + "]\n"),
            "devices/mine.toml:3: process[0].donors: found 65 processes; expected at most 64");
}

// Regions.

TEST(DeviceFileRegion, Keys) {
  const Region plain = processOf("regions = [{ address = 0x4000, size = \"16K\" }]").regions.at(0);
  EXPECT_EQ(plain.address, 0x4000u);
  EXPECT_EQ(plain.size, 16384u);
  EXPECT_EQ(plain.protection, 3u);
  EXPECT_EQ(plain.largestProtection, 7u);
  EXPECT_EQ(plain.inheritance, 1u);
  EXPECT_EQ(plain.references, 1u);
  EXPECT_EQ(plain.shareMode, 2u);
  EXPECT_TRUE(plain.isReadable);
  const Region region = regionOf(
      "protection = \"r-x\", largest = \"-w-\", inheritance = 2, tag = 3, references = 4, "
      "depth = 5, object = 6, behaviour = 7, wired = 8, shadow = 9, offset = \"4K\", "
      "flags = [\"submap\", \"shared\"], share = \"cow\", resident = 10, private-resident = 11, "
      "shared-resident = 12, shared-now-private = 13, swapped = 14, dirty = 15, "
      "path = \"/lib\", contents = \"cf fa\", readable = false");
  EXPECT_EQ(region.protection, 5u);
  EXPECT_EQ(region.largestProtection, 2u);
  EXPECT_EQ(region.inheritance, 2u);
  EXPECT_EQ(region.tag, 3u);
  EXPECT_EQ(region.references, 4u);
  EXPECT_EQ(region.depth, 5u);
  EXPECT_EQ(region.object, 6u);
  EXPECT_EQ(region.behaviour, 7u);
  EXPECT_EQ(region.wiredCount, 8u);
  EXPECT_EQ(region.shadowDepth, 9u);
  EXPECT_EQ(region.offset, 4096u);
  EXPECT_EQ(region.flags, 3u);
  EXPECT_EQ(region.shareMode, 1u);
  EXPECT_EQ(region.resident.start, 10u);
  EXPECT_EQ(region.privateResident.start, 11u);
  EXPECT_EQ(region.sharedResident.start, 12u);
  EXPECT_EQ(region.sharedNowPrivate.start, 13u);
  EXPECT_EQ(region.swappedOut.start, 14u);
  EXPECT_EQ(region.dirty.start, 15u);
  EXPECT_EQ(region.path, "/lib");
  EXPECT_THAT(region.contents, ElementsAre(0xcf, 0xfa));
  EXPECT_FALSE(region.isReadable);
  const std::pair<const char *, uint32_t> modes[] = {
      {"cow", 1},         {"private", 2},         {"empty", 3},          {"shared", 4},
      {"true-shared", 5}, {"private-aliased", 6}, {"shared-aliased", 7}, {"large-page", 8}};
  for (const auto &[word, number] : modes) {
    EXPECT_EQ(regionOf("share = \"" + std::string(word) + "\"").shareMode, number) << word;
  }
}

TEST(DeviceFileRegion, OffsetsHave64Bits) {
  EXPECT_EQ(regionOf("offset = \"0x8000000000001000\"").offset, 0x8000000000001000u);
}

TEST(DeviceFileRegion, CopiesAndGap) {
  const Process process =
      processOf("regions = [{ address = 0x10000, size = 0x2000, copies = 3, gap = 0x1000 }]");
  ASSERT_EQ(process.regions.size(), 3u);
  EXPECT_EQ(process.regions[1].address, 0x13000u);
  EXPECT_EQ(process.regions[2].address, 0x16000u);
}

// Spread.

TEST(DeviceFileSpread, IsAlwaysTheSameAndWithinItsPart) {
  const std::string text =
      "[[process]]\nname = \"w\"\ncopies = 50\npid = 100\nspread = 0.5\n"
      "resident = { start = 1000000, growth = 1000, swing = 1000 }\n"
      "threads = [{ share = 20 }]\n"
      "descriptors = [{ type = \"tcp\", received = 1000000 }]\n";
  const Device device = deviceOf(text);
  const Device again = deviceOf(text);
  std::set<uint64_t> residents;
  for (size_t i = 0; i < device.processes.size(); i++) {
    const Process &process = device.processes[i];
    EXPECT_TRUE(process.residentSize == again.processes[i].residentSize);
    EXPECT_TRUE(process.footprint == process.residentSize);
    EXPECT_GE(process.residentSize.start, 500'000u);
    EXPECT_LE(process.residentSize.start, 1'500'000u);
    // One factor for all of a figure.
    EXPECT_NEAR(static_cast<double>(process.residentSize.growth) / 1000,
                static_cast<double>(process.residentSize.start), 1);
    EXPECT_EQ(process.residentSize.swing, process.residentSize.start / 1000);
    residents.insert(process.residentSize.start);

    const uint64_t share = process.threads[0].share.start;
    EXPECT_GE(share, 100u);
    EXPECT_LE(share, 300u);
    EXPECT_EQ(process.userTime.growth, static_cast<int64_t>(share) * kPercent / 50 * 4);
    EXPECT_EQ(process.threads[0].userTime.growth, process.userTime.growth);
    const Socket &socket = std::get<Socket>(process.descriptors[0].object);
    EXPECT_NE(socket.traffic->receivedBytes.start, 1'000'000u);
  }
  EXPECT_GT(residents.size(), 45u);
}

TEST(DeviceFileSpread, DependsOnThePidAlone) {
  const auto resident = [](const std::string &before) {
    return deviceOf(before +
                    "[[process]]\nname = \"w\"\npid = 60\nspread = 0.9\nresident = 1000000\n")
        .processes.back()
        .residentSize.start;
  };
  EXPECT_EQ(resident(""), resident("[[process]]\nname = \"other\"\npid = 3\n"));
  // Computed apart from the program: other numbers would change every kept report.
  EXPECT_EQ(resident(""), 1450938u);
}

TEST(DeviceFileSpread, LeavesInTheVirtualSizeWhatIsMapped) {
  const Device device = deviceOf(
      "[[process]]\nname = \"w\"\ncopies = 20\nspread = 0.9\nvirtual = 2000000\n"
      "regions = [{ address = 0, size = 901120, copies = 2, gap = 4096 }]\n"
      "[[process]]\nname = \"said too small\"\nspread = 0.9\nvirtual = 4096\n"
      "regions = [{ address = 0, size = 8192 }]\n");
  std::set<uint64_t> sizes;
  for (size_t i = 0; i < 20; i++) {
    const uint64_t size = device.processes[i].virtualSize.start;
    EXPECT_GE(size, 1'802'240u + 19'776);
    EXPECT_LE(size, 1'802'240u + 375'744);
    sizes.insert(size);
  }
  EXPECT_GT(sizes.size(), 15u);
  EXPECT_EQ(device.processes.back().virtualSize.start, 4096u);
}

TEST(DeviceFileSpread, NoShareIsMoreThanAProcessor) {
  const Device device = deviceOf(
      "[[process]]\nname = \"w\"\ncopies = 20\nspread = 0.9\nthreads = [{ share = 100 }]\n");
  for (const Process &process : device.processes) {
    EXPECT_LE(process.threads[0].share.start, 1000u);
  }
}

}  // namespace
