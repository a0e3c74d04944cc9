#include "host/simulator/process_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>
#include <system_error>
#include <unordered_set>
#include <utility>
#include <variant>

#include "darwin/code_signing.h"
#include "darwin/syscalls.h"
#include "host/simulator/descriptor_reader.h"
#include "host/simulator/process_texts.h"
#include "host/simulator/spread.h"
#include "host/simulator/wide.h"

namespace host::simulator {

namespace {

constexpr size_t kLongestPath = darwin::DARWIN_MAXPATHLEN - 1;
constexpr size_t kLongestArgument = 262'144;
constexpr size_t kLongestThreadName = darwin::DARWIN_MAXTHREADNAMESIZE - 1;
constexpr int64_t kMostCopies = 20'000;
constexpr int64_t kMostThreads = 4096;
constexpr int64_t kMostRegions = 65'536;
constexpr double kLargestSpread = 0.9;
constexpr uint64_t kRegionUnit = 4096;

// How deep templates may take others, and how many a process may take over in all.
constexpr size_t kMostInside = 32;
constexpr size_t kMostLayers = 64;

// A tenth of a percent of a processor is a million nanoseconds a second; growth is in millionths.
constexpr int64_t kGrowthPerShare = 1'000'000'000'000;

constexpr Word kStatuses[] = {{"idle", darwin::SIDL},
                              {"run", darwin::SRUN},
                              {"sleep", darwin::SSLEEP},
                              {"stop", darwin::SSTOP},
                              {"zombie", darwin::SZOMB}};
constexpr Word kFlags[] = {{"system", darwin::PROC_FLAG_SYSTEM},
                           {"traced", darwin::PROC_FLAG_TRACED},
                           {"exiting", darwin::PROC_FLAG_INEXIT},
                           {"session-leader", darwin::PROC_FLAG_SLEADER},
                           {"terminal-leader", darwin::PROC_FLAG_CTTY},
                           {"controls-terminal", darwin::PROC_FLAG_CONTROLT},
                           {"changed-user", darwin::PROC_FLAG_PSUGID},
                           {"exec", darwin::PROC_FLAG_EXEC},
                           {"background", darwin::PROC_FLAG_DARWINBG},
                           {"daemon", darwin::PROC_FLAG_IOS_APPLEDAEMON},
                           {"delay-idle-sleep", darwin::PROC_FLAG_DELAYIDLESLEEP},
                           {"promotion", darwin::PROC_FLAG_IOS_IMPPROMOTION},
                           {"adaptive", darwin::PROC_FLAG_ADAPTIVE},
                           {"adaptive-important", darwin::PROC_FLAG_ADAPTIVE_IMPORTANT},
                           {"donor", darwin::PROC_FLAG_IMPORTANCE_DONOR},
                           {"suppressed", darwin::PROC_FLAG_SUPPRESSED},
                           {"application", darwin::PROC_FLAG_APPLICATION},
                           {"suspended", darwin::PROC_FLAG_PA_SUSP},
                           {"throttled", darwin::PROC_FLAG_PA_THROTTLE}};
constexpr Word kPolicies[] = {{"timeshare", darwin::POLICY_TIMESHARE},
                              {"round-robin", darwin::POLICY_RR},
                              {"fifo", darwin::POLICY_FIFO}};
constexpr Word kSigningWords[] = {{"valid", darwin::CS_VALID},
                                  {"ad-hoc", darwin::CS_ADHOC},
                                  {"get-task-allow", darwin::CS_GET_TASK_ALLOW},
                                  {"installer", darwin::CS_INSTALLER},
                                  {"hard", darwin::CS_HARD},
                                  {"kill", darwin::CS_KILL},
                                  {"expires", darwin::CS_CHECK_EXPIRATION},
                                  {"restrict", darwin::CS_RESTRICT},
                                  {"enforce", darwin::CS_ENFORCEMENT},
                                  {"library-validation", darwin::CS_REQUIRE_LV},
                                  {"entitlements", darwin::CS_ENTITLEMENTS_VALIDATED},
                                  {"runtime", darwin::CS_RUNTIME},
                                  {"linker", darwin::CS_LINKER_SIGNED},
                                  {"killed", darwin::CS_KILLED},
                                  {"platform", darwin::CS_PLATFORM_BINARY},
                                  {"debugged", darwin::CS_DEBUGGED},
                                  {"signed", darwin::CS_SIGNED}};
constexpr Word kStates[] = {{"none", darwin::PROC_APPSTATE_NONE},
                            {"active", darwin::PROC_APPSTATE_ACTIVE},
                            {"background", darwin::PROC_APPSTATE_BACKGROUND},
                            {"no-ui", darwin::PROC_APPSTATE_NONUI},
                            {"inactive", darwin::PROC_APPSTATE_INACTIVE}};
constexpr Word kThreadStates[] = {{"running", darwin::TH_STATE_RUNNING},
                                  {"stopped", darwin::TH_STATE_STOPPED},
                                  {"waiting", darwin::TH_STATE_WAITING},
                                  {"uninterruptible", darwin::TH_STATE_UNINTERRUPTIBLE},
                                  {"halted", darwin::TH_STATE_HALTED}};
constexpr Word kThreadFlags[] = {{"swapped", darwin::TH_FLAGS_SWAPPED},
                                 {"idle", darwin::TH_FLAGS_IDLE}};
constexpr size_t kMostDonors = 64;
constexpr size_t kMostFrames = 512;
constexpr size_t kGeneralRegisters64 = 29;  // x0 to x28
constexpr size_t kGeneralRegisters32 = 13;  // r0 to r12
constexpr Word kRegionFlags[] = {{"submap", darwin::PROC_REGION_SUBMAP},
                                 {"shared", darwin::PROC_REGION_SHARED}};
constexpr Word kShareModes[] = {{"cow", darwin::SM_COW},
                                {"private", darwin::SM_PRIVATE},
                                {"empty", darwin::SM_EMPTY},
                                {"shared", darwin::SM_SHARED},
                                {"true-shared", darwin::SM_TRUESHARED},
                                {"private-aliased", darwin::SM_PRIVATE_ALIASED},
                                {"shared-aliased", darwin::SM_SHARED_ALIASED},
                                {"large-page", darwin::SM_LARGE_PAGE}};

template <typename Owner>
struct FigureKey {
  std::string_view key;
  Figure Owner::*figure;
  Unit unit;
};
constexpr FigureKey<Process> kProcessFigures[] = {
    {"virtual", &Process::virtualSize, Unit::kSize},
    {"resident", &Process::residentSize, Unit::kSize},
    {"wired", &Process::wiredSize, Unit::kSize},
    {"faults", &Process::faults, Unit::kCount},
    {"page-ins", &Process::pageIns, Unit::kCount},
    {"copy-on-write-faults", &Process::copyOnWriteFaults, Unit::kCount},
    {"messages-sent", &Process::messagesSent, Unit::kCount},
    {"messages-received", &Process::messagesReceived, Unit::kCount},
    {"mach-calls", &Process::machCalls, Unit::kCount},
    {"unix-calls", &Process::unixCalls, Unit::kCount},
    {"context-switches", &Process::contextSwitches, Unit::kCount},
};
constexpr FigureKey<ResourceUsage> kUsageFigures[] = {
    {"disk-read", &ResourceUsage::diskRead, Unit::kSize},
    {"disk-written", &ResourceUsage::diskWritten, Unit::kSize},
    {"logical-writes", &ResourceUsage::logicalWrites, Unit::kSize},
    {"idle-wakeups", &ResourceUsage::idleWakeups, Unit::kCount},
    {"interrupt-wakeups", &ResourceUsage::interruptWakeups, Unit::kCount},
    {"instructions", &ResourceUsage::instructions, Unit::kCount},
    {"cycles", &ResourceUsage::cycles, Unit::kCount},
    {"billed-energy", &ResourceUsage::billedEnergy, Unit::kCount},
    {"serviced-energy", &ResourceUsage::servicedEnergy, Unit::kCount},
    {"billed-time", &ResourceUsage::billedSystemTime, Unit::kTime},
    {"serviced-time", &ResourceUsage::servicedSystemTime, Unit::kTime},
};
constexpr FigureKey<Region> kRegionFigures[] = {
    {"resident", &Region::resident, Unit::kCount},
    {"private-resident", &Region::privateResident, Unit::kCount},
    {"shared-resident", &Region::sharedResident, Unit::kCount},
    {"shared-now-private", &Region::sharedNowPrivate, Unit::kCount},
    {"swapped", &Region::swappedOut, Unit::kCount},
    {"dirty", &Region::dirty, Unit::kCount},
};

enum class Kind { kTemplate, kListed, kStarted };

// Entries of one kind, and the items that they make. An entry with something left to do for each
// process is named beside the item.
template <typename Entry>
struct Entries {
  struct Late {
    size_t item;
    size_t entry;
  };
  std::vector<Entry> entries;
  std::vector<Late> late;
};

struct ReadThread {
  Thread thread;
  bool growsUserTime = false;  // the file says how it grows
  bool growsSystemTime = false;
  int64_t copies = 1;
  Place place;
  std::vector<Pattern<Thread>> patterns;
};

struct ReadRegion {
  Region region;
  int64_t copies = 1;
  uint64_t gap = 0;
  Place place;
  std::vector<Pattern<Region>> patterns;
};

// What an entry says of each of its processes.
struct Plan {
  Process process;
  bool hasName = false;
  bool hasArguments = false;
  bool hasFootprint = false;
  bool growsUserTime = false;
  bool growsSystemTime = false;
  std::vector<bool> threadsGrowUserTime;  // by thread
  std::vector<bool> threadsGrowSystemTime;
  int64_t spread = 0;  // millionths
  Field parent;
  Place namePlace;
  Place place;
  std::vector<Pattern<Process>> patterns;
  Entries<ReadThread> threads;
  Entries<ReadDescriptor> descriptors;
  Entries<ReadRegion> regions;
};

// Of the default growth of times by the share of the processor.
enum class TimeOf { kUser, kSystem };

int64_t growthBy(uint64_t share, TimeOf time) {
  const int64_t parts = time == TimeOf::kUser ? 4 : 1;
  return saturate<int64_t>(Wide{share} * kGrowthPerShare * parts / 5);
}

uint32_t readProtection(const Field &field) {
  constexpr std::string_view kLetters = "rwx";
  const std::string *text = field.as<std::string>();
  uint32_t protection = 0;
  bool isFine = text != nullptr && text->size() == kLetters.size();
  for (size_t i = 0; isFine && i < kLetters.size(); i++) {
    if ((*text)[i] == kLetters[i]) {
      protection |= 1u << i;
    } else if ((*text)[i] != '-') {
      isFine = false;
    }
  }
  if (!isFine) field.fail("a text such as \"r-x\"");
  return protection;
}

// The kernel's own addresses are beyond the numbers of the file.
uint64_t readAddress(const Field &field) {
  constexpr std::string_view kPrefix = "0x";
  if (const std::string *text = field.as<std::string>()) {
    const char *end = text->data() + text->size();
    uint64_t address = 0;
    if (text->starts_with(kPrefix)) {
      const auto [stop, error] = std::from_chars(text->data() + kPrefix.size(), end, address, 16);
      if (error == std::errc() && stop == end) return address;
    }
  } else if (const int64_t *number = field.as<int64_t>(); number != nullptr && *number >= 0) {
    return static_cast<uint64_t>(*number);
  }
  field.fail("an address: a number, or a text such as \"0xfffffff007b6a1c4\"");
}

std::vector<uint64_t> readStack(const Field &field) {
  if (field.count() > kMostFrames) {
    field.fail("found " + std::to_string(field.count()) + " addresses",
               "at most " + std::to_string(kMostFrames));
  }
  std::vector<uint64_t> stack;
  stack.reserve(field.count());
  for (size_t i = 0; i < field.count(); i++) stack.push_back(readAddress(field.element(i)));
  return stack;
}

// `isProcess64Bit` is nothing where the process is not known: there the keys tell.
Registers readRegisters(const Field &field, std::optional<bool> isProcess64Bit) {
  TableReader reader(field);
  const bool is64Bit = isProcess64Bit ? *isProcess64Bit : !reader.find("r");
  const auto read = [is64Bit](const Field &value) -> uint64_t {
    return is64Bit ? readAddress(value) : value.number<uint32_t>();
  };
  Registers registers;
  if (const Field value = reader.find("pc")) registers.programCounter = read(value);
  if (const Field value = reader.find("sp")) registers.stackPointer = read(value);
  if (const Field value = reader.find("lr")) registers.link = read(value);
  if (is64Bit) {
    if (const Field value = reader.find("fp")) registers.framePointer = read(value);
  }
  reader.number("cpsr", registers.status);
  if (const Field general = reader.find(is64Bit ? "x" : "r")) {
    const size_t most = is64Bit ? kGeneralRegisters64 : kGeneralRegisters32;
    if (general.count() > most) {
      general.fail("found " + std::to_string(general.count()) + " registers",
                   "at most " + std::to_string(most));
    }
    for (size_t i = 0; i < general.count(); i++) {
      registers.general.push_back(read(general.element(i)));
    }
  }
  reader.finish();
  return registers;
}

class PlanReader {
 public:
  // `times`: how many processes it is for, which all count.
  PlanReader(Loading &loading, TableReader &reader, Kind kind, uint64_t times)
      : loading_(loading),
        reader_(reader),
        kind_(kind),
        times_(times),
        knowsProcess_(kind != Kind::kTemplate) {}

  Plan read() {
    plan_.place = reader_.place();
    readIdentity();
    readState();
    readFigures();
    readAccounts();
    readThreads();
    readDescriptors();
    readRegions();
    if (const Field field = reader_.find("spread")) {
      plan_.spread =
          std::llround(field.fraction(0, kLargestSpread) * static_cast<double>(kMillion));
    }
    if (kind_ != Kind::kTemplate) takeBytes(textBytes(plan_.process), plan_.place);
    return std::move(plan_);
  }

 private:
  static size_t textBytes(const Process &process) {
    size_t bytes = host::simulator::textBytes(process.name) +
                   host::simulator::textBytes(process.longName) +
                   host::simulator::textBytes(process.path) +
                   host::simulator::textBytes(process.container) + process.codeSignature.size();
    for (const std::string &text : process.arguments) bytes += host::simulator::textBytes(text);
    for (const std::string &text : process.environment) bytes += host::simulator::textBytes(text);
    return bytes;
  }

  void takeBytes(size_t bytes, const Place &place) {
    loading_.take(Limit::kBytes, bytes, times_, place);
  }

  // A text into what `where` answers for the process, at once or when its pattern is filled in.
  template <typename Where>
  void text(const Field &field, size_t most, Where where) {
    if (!field) return;
    const std::string &text = field.text(most);
    where(plan_.process) = text;
    if (!hasPattern(text)) return;
    plan_.patterns.push_back({field.place(), text, most,
                              [where](Process &process, const Place &, const std::string &filled) {
                                where(process) = filled;
                              }});
  }

  void texts(std::string_view key, std::vector<std::string> Process::*list) {
    const Field field = reader_.find(key);
    if (!field) return;
    if (list == &Process::arguments) plan_.hasArguments = true;
    (plan_.process.*list).resize(field.count());
    for (size_t i = 0; i < field.count(); i++) {
      text(field.element(i), kLongestArgument,
           [list, i](Process &process) -> std::string & { return (process.*list)[i]; });
    }
  }

  void readIdentity() {
    Process &process = plan_.process;
    if (const Field field = reader_.find("name")) {
      process.name = field.text(kLongestName);
      plan_.hasName = true;
      plan_.namePlace = field.place();
    }
    text(reader_.find("long-name"), kLongestName,
         [](Process &p) -> std::string & { return p.longName; });
    if (const Field field = reader_.find("path")) {
      text(field, kLongestPath, [](Process &p) -> std::string & { return p.path; });
    } else {
      plan_.patterns.push_back(
          {plan_.place, std::string(kDefaultPath), kLongestPath,
           [](Process &p, const Place &, const std::string &filled) { p.path = filled; }});
    }
    texts("arguments", &Process::arguments);
    texts("environment", &Process::environment);
    text(reader_.find("container"), kLongestPath,
         [](Process &p) -> std::string & { return p.container; });
    plan_.parent = reader_.find("parent");
    if (const Field field = reader_.find("group")) {
      process.group = static_cast<int32_t>(field.number(0, kLargestPid));
    }
    reader_.number("user", process.user);
    reader_.number("group-id", process.groupID);
    process.realUser = process.savedUser = process.user;
    process.realGroupID = process.savedGroupID = process.groupID;
    reader_.number("real-user", process.realUser);
    reader_.number("saved-user", process.savedUser);
    reader_.number("real-group-id", process.realGroupID);
    reader_.number("saved-group-id", process.savedGroupID);
  }

  void readState() {
    Process &process = plan_.process;
    if (const Field field = reader_.find("bits")) {
      const int64_t *bits = field.as<int64_t>();
      if (bits == nullptr || (*bits != 32 && *bits != 64)) field.fail("32 or 64");
      process.is64Bit = *bits == 64;
    }
    if (const Field field = reader_.find("status")) {
      process.status = static_cast<uint32_t>(
          field.oneOfOrNumber(kStatuses, std::numeric_limits<uint32_t>::max()));
    }
    reader_.number("exit-status", process.exitStatus);
    for (const Field &field : reader_.findAll("flags")) {
      process.flags |= field.severalOfOrNumber(kFlags) & ~darwin::PROC_FLAG_LP64;
    }
    if (const Field donors = reader_.find("donors")) {
      if (donors.count() > kMostDonors) {
        donors.fail("found " + std::to_string(donors.count()) + " processes",
                    "at most " + std::to_string(kMostDonors));
      }
      for (size_t i = 0; i < donors.count(); i++) {
        process.donors.push_back(static_cast<int32_t>(donors.element(i).number(0, kLargestPid)));
      }
    }
    reader_.number("terminal", process.terminal);
    reader_.number("terminal-group", process.terminalGroup);
    reader_.number("jobs", process.jobs);
    reader_.number("nice", process.nice, -20, 20);
    if (kind_ == Kind::kListed) process.age = loading_.device.clock.up;
    if (const Field field = reader_.find("age")) {
      process.age = field.time();
      if (process.age > loading_.device.clock.up) {
        field.fail("found a process that is older than the device", "at most `clock.up`");
      }
    }
    reader_.number("priority", process.priority, 0, kLargestPriority);
    reader_.oneOf("policy", process.policy, kPolicies);
  }

  void readFigures() {
    Process &process = plan_.process;
    for (const FigureKey<Process> &row : kProcessFigures) {
      reader_.figure(row.key, process.*row.figure, row.unit);
    }
    if (const Field field = reader_.find("footprint")) {
      process.footprint = field.figure(Unit::kSize).figure;
      plan_.hasFootprint = true;
    }
    readTime(reader_, "user-time", process.userTime, plan_.growsUserTime);
    readTime(reader_, "system-time", process.systemTime, plan_.growsSystemTime);
    ResourceUsage usage;
    for (const FigureKey<ResourceUsage> &row : kUsageFigures) {
      reader_.figure(row.key, usage.*row.figure, row.unit);
    }
    bool isAnswered = true;
    reader_.flag("usage", isAnswered);
    process.usage.reset();
    if (isAnswered) process.usage = usage;
  }

  static void readTime(TableReader &reader, std::string_view key, Figure &figure, bool &grows) {
    if (const Field field = reader.find(key)) {
      const ReadFigure read = field.figure(Unit::kTime);
      figure = read.figure;
      grows = read.hasGrowth;
    }
  }

  void readAccounts() {
    Process &process = plan_.process;
    if (const Field field = reader_.find("work-queue")) {
      TableReader reader(field);
      WorkQueue &queue = process.workQueue.emplace();
      reader.number("threads", queue.threads);
      reader.number("running", queue.running);
      reader.number("blocked", queue.blocked);
      reader.number("state", queue.state);
      reader.finish();
    }
    if (const Field field = reader_.find("coalition")) {
      auto &coalitions = process.coalitions.emplace();
      if (field.as<TomlArray>() == nullptr) {
        coalitions.fill(field.number<uint64_t>());
      } else {
        if (field.count() != 2) field.fail("a number, or an array of two");
        for (size_t i = 0; i < 2; i++) coalitions[i] = field.element(i).number<uint64_t>();
      }
    }
    bool isInList = true;
    Jetsam jetsam;
    reader_.flag("jetsam", isInList);
    reader_.number("band", jetsam.band);
    reader_.number("limit", jetsam.limit, -1);
    reader_.number("jetsam-state", jetsam.state);
    if (isInList) process.jetsam = jetsam;
    if (const Field field = reader_.find("sandbox")) process.sandboxed = readSandbox(field);
    process.codeSigningFlags = darwin::CS_VALID | darwin::CS_PLATFORM_BINARY;
    if (const Field field = reader_.find("signing")) {
      process.codeSigningFlags = field.severalOfOrNumber(kSigningWords);
    }
    if (const Field field = reader_.find("signature")) process.codeSignature = field.bytes();
    if (const Field field = reader_.find("application-state")) {
      process.applicationState = static_cast<int32_t>(field.oneOf(kStates));
    }
  }

 public:
  ReadThread readThread(const Field &field, bool takesPatterns) {
    TableReader reader(field);
    ReadThread result;
    Thread &thread = result.thread;
    result.place = field.place();
    reader.number("copies", result.copies, 1, kMostThreads);
    if (const Field name = reader.find("name")) {
      thread.name = name.text(kLongestThreadName);
      if (takesPatterns && hasPattern(thread.name)) {
        result.patterns.push_back(
            {name.place(), thread.name, kLongestThreadName,
             [](Thread &t, const Place &, const std::string &filled) { t.name = filled; }});
      }
    }
    if (const Field state = reader.find("state")) {
      thread.state = static_cast<int32_t>(
          state.oneOfOrNumber(kThreadStates, std::numeric_limits<int32_t>::max()));
    }
    reader.figure("share", thread.share, Unit::kShare);
    readTime(reader, "user-time", thread.userTime, result.growsUserTime);
    readTime(reader, "system-time", thread.systemTime, result.growsSystemTime);
    thread.priority = plan_.process.priority;
    reader.number("priority", thread.priority, 0, kLargestPriority);
    thread.currentPriority = thread.priority;
    reader.number("current-priority", thread.currentPriority, 0, kLargestPriority);
    reader.number("largest-priority", thread.largestPriority, 0, kLargestPriority);
    thread.policy = plan_.process.policy;
    reader.oneOf("policy", thread.policy, kPolicies);
    if (const Field flags = reader.find("flags")) {
      thread.flags = static_cast<int32_t>(flags.severalOf(kThreadFlags));
    }
    Nanoseconds asleep{0};
    reader.time("asleep", asleep);
    thread.sleepTime =
        static_cast<int32_t>(std::chrono::duration_cast<std::chrono::seconds>(asleep).count());
    readOwnNumber(reader, "handle", thread.handle, result.copies);
    readOwnNumber(reader, "id", thread.id, result.copies);
    if (const Field event = reader.find("wait-event")) thread.waitEvent = readAddress(event);
    if (const Field continuation = reader.find("continuation")) {
      thread.continuation = readAddress(continuation);
    }
    if (const Field stack = reader.find("kernel-stack")) thread.kernelStack = readStack(stack);
    if (const Field stack = reader.find("user-stack")) thread.userStack = readStack(stack);
    if (const Field registers = reader.find("registers")) {
      std::optional<bool> is64Bit;
      if (knowsProcess_) is64Bit = plan_.process.is64Bit;
      thread.registers = readRegisters(registers, is64Bit);
    }
    reader.finish();
    return result;
  }

 private:
  // A number that no two threads may share.
  static void readOwnNumber(TableReader &reader, std::string_view key, uint64_t &target,
                            int64_t copies) {
    const Field field = reader.find(key);
    if (!field) return;
    target = field.number<uint64_t>();
    if (target != 0 && copies > 1) {
      field.fail("several threads would have the same " + std::string(key), "one thread, or 0");
    }
  }

  void readThreads() {
    const std::vector<Field> fields = reader_.findAll("threads");
    for (const Field &field : fields) addThreads(field, true);
    if (fields.empty()) {
      ReadThread one;
      one.thread.priority = one.thread.currentPriority = plan_.process.priority;
      one.thread.policy = plan_.process.policy;
      one.place = plan_.place;
      addThread(std::move(one));
    }
    checkThreadNumbers(&Thread::handle, "handle");
    checkThreadNumbers(&Thread::id, "ID");
  }

 public:
  void addThreads(const Field &field, bool takesPatterns) {
    if (field.as<TomlArray>() == nullptr) {
      const int64_t *number = field.as<int64_t>();
      if (number == nullptr || *number < 0 || *number > kMostThreads) {
        field.fail("a number from 0 to 4096, or an array of tables");
      }
      ReadThread alike;
      alike.thread.priority = alike.thread.currentPriority = plan_.process.priority;
      alike.thread.policy = plan_.process.policy;
      alike.copies = *number;
      alike.place = field.place();
      addThread(std::move(alike));
      return;
    }
    for (size_t i = 0; i < field.count(); i++) {
      addThread(readThread(field.element(i), takesPatterns));
    }
  }

  // As of a process with this priority and policy.
  std::vector<Thread> threadsAlone(const Field &field, int32_t priority, int32_t policy) {
    plan_.process.priority = priority;
    plan_.process.policy = policy;
    knowsProcess_ = false;
    addThreads(field, false);
    checkThreadNumbers(&Thread::handle, "handle");
    checkThreadNumbers(&Thread::id, "ID");
    for (size_t i = 0; i < plan_.process.threads.size(); i++) {
      Thread &thread = plan_.process.threads[i];
      if (!plan_.threadsGrowUserTime[i]) {
        thread.userTime.growth = growthBy(thread.share.start, TimeOf::kUser);
      }
      if (!plan_.threadsGrowSystemTime[i]) {
        thread.systemTime.growth = growthBy(thread.share.start, TimeOf::kSystem);
      }
    }
    return std::move(plan_.process.threads);
  }

 private:
  void addThread(ReadThread entry) {
    if (kind_ == Kind::kTemplate) return;
    const size_t copies = static_cast<size_t>(entry.copies);
    loading_.take(Limit::kThreads, copies, times_, entry.place);
    takeBytes(copies * (host::simulator::textBytes(entry.thread.name) +
                        (entry.thread.registers.general.size() + entry.thread.kernelStack.size() +
                         entry.thread.userStack.size()) *
                            sizeof(uint64_t)),
              entry.place);
    for (size_t i = 0; i < copies; i++) {
      if (!entry.patterns.empty()) {
        plan_.threads.late.push_back({plan_.process.threads.size(), plan_.threads.entries.size()});
      }
      plan_.process.threads.push_back(entry.thread);
      plan_.threadsGrowUserTime.push_back(entry.growsUserTime);
      plan_.threadsGrowSystemTime.push_back(entry.growsSystemTime);
    }
    plan_.threads.entries.push_back(std::move(entry));
  }

  void checkThreadNumbers(uint64_t Thread::*number, std::string_view called) const {
    std::unordered_set<uint64_t> seen;
    for (const ReadThread &entry : plan_.threads.entries) {
      const uint64_t own = entry.thread.*number;
      if (own == 0 || seen.insert(own).second) continue;
      failAt(
          entry.place,
          "another thread has the " + std::string(called) + " " + std::to_string(own) + " already",
          "one of its own");
    }
  }

  void readDescriptors() {
    std::vector<ReadDescriptor> &entries = plan_.descriptors.entries;
    for (const Field &field : reader_.findAll("descriptors")) {
      for (size_t i = 0; i < field.count(); i++) {
        ReadDescriptor entry = readDescriptor(field.element(i), true);
        if (kind_ == Kind::kTemplate) continue;
        const size_t copies = static_cast<size_t>(entry.copies);
        loading_.take(Limit::kDescriptors, copies, times_, entry.place);
        takeBytes(copies * (host::simulator::textBytes(entry.descriptor) + entry.label.size() +
                            entry.peer.size()),
                  entry.place);
        entries.push_back(std::move(entry));
      }
    }
    makeDescriptors();
  }

  // Those with a number have it whatever comes before them.
  void makeDescriptors() {
    std::unordered_set<int32_t> taken;
    for (const ReadDescriptor &entry : plan_.descriptors.entries) {
      if (entry.descriptor.number < 0) continue;
      for (int32_t i = 0; i < entry.copies; i++) {
        const int32_t number = entry.descriptor.number + i;
        if (taken.insert(number).second) continue;
        failAt(entry.numberPlace,
               "another descriptor has the number " + std::to_string(number) + " already",
               "one of its own");
      }
    }
    int32_t lowest = 0;
    for (size_t e = 0; e < plan_.descriptors.entries.size(); e++) {
      const ReadDescriptor &entry = plan_.descriptors.entries[e];
      const bool isLate = !entry.patterns.empty() || !entry.label.empty() || !entry.peer.empty();
      for (int32_t i = 0; i < entry.copies; i++) {
        if (isLate) {
          plan_.descriptors.late.push_back({plan_.process.descriptors.size(), e});
        }
        Descriptor &made = plan_.process.descriptors.emplace_back(entry.descriptor);
        if (made.number >= 0) {
          made.number += i;
        } else {
          while (taken.contains(lowest)) lowest++;
          made.number = lowest++;
        }
      }
    }
  }

  ReadRegion readRegion(const Field &field) {
    TableReader reader(field);
    ReadRegion result;
    Region &region = result.region;
    result.place = field.place();
    const Field address = reader.require("address", "a number");
    region.address = address.number<uint64_t>();
    if (region.address % kRegionUnit != 0) address.fail("a multiple of 4096");
    const Field size = reader.require("size", "a size");
    region.size = size.size();
    if (region.size == 0 || region.size % kRegionUnit != 0) {
      size.fail("a multiple of 4096, above 0");
    }
    reader.number("copies", result.copies, 1, kMostRegions);
    if (const Field gap = reader.find("gap")) {
      result.gap = gap.size();
      if (result.gap % kRegionUnit != 0) gap.fail("a multiple of 4096");
    }
    const Wide end = Wide{region.address} + (Wide{region.size} + result.gap) * result.copies;
    if (end > Wide{kLargestNumber}) {
      address.fail("found a region that ends beyond 2 to 63", "one below");
    }
    if (const Field protection = reader.find("protection")) {
      region.protection = readProtection(protection);
    }
    if (const Field largest = reader.find("largest")) {
      region.largestProtection = readProtection(largest);
    }
    reader.number("inheritance", region.inheritance);
    reader.number("tag", region.tag);
    reader.number("references", region.references);
    reader.number("depth", region.depth);
    reader.number("object", region.object);
    reader.number("behaviour", region.behaviour);
    reader.number("wired", region.wiredCount);
    reader.number("shadow", region.shadowDepth);
    reader.size("offset", region.offset);
    if (const Field flags = reader.find("flags")) region.flags = flags.severalOf(kRegionFlags);
    reader.oneOf("share", region.shareMode, kShareModes);
    for (const FigureKey<Region> &row : kRegionFigures) {
      reader.figure(row.key, region.*row.figure, row.unit);
    }
    if (const Field path = reader.find("path")) {
      region.path = path.text(kLongestPath);
      if (hasPattern(region.path)) {
        result.patterns.push_back(
            {path.place(), region.path, kLongestPath,
             [](Region &r, const Place &, const std::string &filled) { r.path = filled; }});
      }
    }
    if (const Field contents = reader.find("contents")) {
      region.contents = contents.bytes();
      if (region.contents.size() > region.size) {
        contents.fail("found more bytes than the region has", "at most its size");
      }
    }
    reader.flag("readable", region.isReadable);
    reader.finish();
    return result;
  }

  void readRegions() {
    struct Item {
      uint64_t address;
      size_t entry;
    };
    std::vector<Item> items;
    std::vector<ReadRegion> &entries = plan_.regions.entries;
    for (const Field &field : reader_.findAll("regions")) {
      for (size_t i = 0; i < field.count(); i++) {
        ReadRegion entry = readRegion(field.element(i));
        if (kind_ == Kind::kTemplate) continue;
        const size_t copies = static_cast<size_t>(entry.copies);
        loading_.take(Limit::kRegions, copies, times_, entry.place);
        takeBytes(
            copies * (host::simulator::textBytes(entry.region.path) + entry.region.contents.size()),
            entry.place);
        for (size_t copy = 0; copy < copies; copy++) {
          items.push_back(
              {entry.region.address + copy * (entry.region.size + entry.gap), entries.size()});
        }
        entries.push_back(std::move(entry));
      }
    }
    std::sort(items.begin(), items.end(), [](const Item &a, const Item &b) {
      return a.address != b.address ? a.address < b.address : a.entry < b.entry;
    });
    for (size_t i = 0; i < items.size(); i++) {
      const ReadRegion &entry = entries[items[i].entry];
      if (i > 0)
        checkApart(entries[items[i - 1].entry], items[i - 1].address, entry, items[i].address);
      if (!entry.patterns.empty()) plan_.regions.late.push_back({i, items[i].entry});
      plan_.process.regions.push_back(entry.region);
      plan_.process.regions.back().address = items[i].address;
    }
  }

  static void checkApart(const ReadRegion &lower, uint64_t lowerAddress, const ReadRegion &upper,
                         uint64_t upperAddress) {
    if (lowerAddress + lower.region.size <= upperAddress) return;
    // The one that the reader of the file comes upon last.
    const bool isUpper = upper.place.line >= lower.place.line;
    failAt(isUpper ? upper.place : lower.place, "overlaps another region",
           "regions apart from one another");
  }

  Loading &loading_;
  TableReader &reader_;
  Kind kind_;
  uint64_t times_;
  bool knowsProcess_;  // whether the threads are those of `plan_.process`
  Plan plan_;
};

// Where a process that was made has gone.
struct Spot {
  bool isEvent;
  size_t index;

  Process &in(Device &device) const {
    if (!isEvent) return device.processes[index];
    return std::get<StartProcess>(device.events[index].action).process;
  }
};

// Makes the processes of a plan, one after the other.
class Maker {
 public:
  Maker(Loading &loading, const Plan &plan) : loading_(loading), plan_(plan) {
    for (const ReadDescriptor &entry : plan.descriptors.entries) {
      labelPlaces_.push_back(std::make_shared<const Place>(entry.labelPlace));
      peerPlaces_.push_back(std::make_shared<const Place>(entry.peerPlace));
    }
  }

  // `pid`: nothing when it is known only later.
  Process make(const std::string &name, const Place &namePlace, std::optional<int32_t> pid,
               size_t index, int64_t seed) {
    Process process = plan_.process;
    process.pid = pid.value_or(-1);
    values_ = {std::nullopt, pid, index};
    process.name = fill(name, kLongestName, namePlace);
    name_ = process.name;
    values_.name = name_;
    fillAll(process, plan_.patterns);
    fillLate(process.threads, plan_.threads);
    fillLate(process.descriptors, plan_.descriptors);
    fillLate(process.regions, plan_.regions);
    if (!plan_.hasArguments) {
      loading_.take(Limit::kBytes, textBytes(process.path), 1, plan_.place);
      process.arguments = {process.path};
    }
    process.parent = process.pid == 0 || process.pid == 1 ? 0 : 1;
    spreadFigures(process, plan_.spread, seed);
    if (!plan_.hasFootprint) process.footprint = process.residentSize;
    setGrowth(process);
    return process;
  }

  // What it has to do with others. The name's values are those of the process made last.
  void connect(Spot spot) {
    if (plan_.parent) {
      loading_.withProcess(plan_.parent,
                           [spot](Device &device, int32_t pid) { spot.in(device).parent = pid; });
    }
    for (const auto &late : plan_.descriptors.late) {
      const ReadDescriptor &entry = plan_.descriptors.entries[late.entry];
      if (entry.label.empty() && entry.peer.empty()) continue;
      loading_.addEnd({fill(entry.label, kLongestName, entry.labelPlace),
                       fill(entry.peer, kLongestName, entry.peerPlace), labelPlaces_[late.entry],
                       peerPlaces_[late.entry],
                       [spot, item = late.item](Device &device) -> Descriptor & {
                         return spot.in(device).descriptors[item];
                       }});
    }
  }

 private:
  std::string fill(const std::string &text, size_t most, const Place &place) {
    if (!hasPattern(text)) return text;
    std::string filled = filledIn(text, values_);
    if (filled.size() > most) {
      failAt(place,
             "found a text of " + std::to_string(filled.size()) +
                 " bytes once its patterns are filled in",
             "a text of at most " + std::to_string(most) + " bytes");
    }
    loading_.take(Limit::kBytes, filled.size(), 1, place);
    return filled;
  }

  template <typename Owner>
  void fillAll(Owner &owner, const std::vector<Pattern<Owner>> &patterns) {
    for (const Pattern<Owner> &pattern : patterns) {
      pattern.put(owner, pattern.place, fill(pattern.text, pattern.most, pattern.place));
    }
  }

  template <typename Owner, typename Entry>
  void fillLate(std::vector<Owner> &items, const Entries<Entry> &entries) {
    for (const auto &late : entries.late) {
      fillAll(items[late.item], entries.entries[late.entry].patterns);
    }
  }

  void setGrowth(Process &process) const {
    uint64_t shares = 0;
    for (size_t i = 0; i < process.threads.size(); i++) {
      Thread &thread = process.threads[i];
      shares += thread.share.start;
      if (!plan_.threadsGrowUserTime[i]) {
        thread.userTime.growth = growthBy(thread.share.start, TimeOf::kUser);
      }
      if (!plan_.threadsGrowSystemTime[i]) {
        thread.systemTime.growth = growthBy(thread.share.start, TimeOf::kSystem);
      }
    }
    if (!plan_.growsUserTime) process.userTime.growth = growthBy(shares, TimeOf::kUser);
    if (!plan_.growsSystemTime) process.systemTime.growth = growthBy(shares, TimeOf::kSystem);
  }

  Loading &loading_;
  const Plan &plan_;
  PatternValues values_;
  std::string name_;
  std::vector<std::shared_ptr<const Place>> labelPlaces_;
  std::vector<std::shared_ptr<const Place>> peerPlaces_;
};

// What says which processes an entry is about. The fields are of its own table.
struct Numbering {
  Field pid;
  Field names;
  size_t count = 1;
};

Numbering readNumbering(TableReader &reader) {
  Numbering numbering;
  numbering.pid = reader.findOwn("pid");
  numbering.names = reader.findOwn("names");
  const Field copies = reader.findOwn("copies");
  if (copies) numbering.count = static_cast<size_t>(copies.number(1, kMostCopies));
  if (!numbering.names) return numbering;
  if (copies) copies.fail("found `copies` beside `names`", "one of them");
  if (const Field name = reader.findOwn("name")) {
    name.fail("found `name` beside `names`", "one of them");
  }
  numbering.count = numbering.names.count();
  if (numbering.count == 0) numbering.names.fail("found no name", "at least one");
  for (size_t i = 0; i < numbering.count; i++) numbering.names.element(i).text(kLongestName);
  return numbering;
}

void requireName(const Plan &plan, const Numbering &numbering) {
  if (plan.hasName || numbering.names) return;
  failAt(plan.place, "has neither `name` nor `names`", "one of them");
}

std::string nameOf(const Plan &plan, const Numbering &numbering, size_t index) {
  return numbering.names ? numbering.names.element(index).text(kLongestName) : plan.process.name;
}

Place namePlaceOf(const Plan &plan, const Numbering &numbering, size_t index) {
  return numbering.names ? numbering.names.element(index).place() : plan.namePlace;
}

// Gives numbers to the processes that are listed.
class Pids {
 public:
  // Of an entry's first process.
  int32_t first(const Field &field, const Place &place, const Loading &loading) {
    if (!field) return next(place);
    last_ = static_cast<int32_t>(field.number(0, kLargestPid));
    if (const Process *other = loading.findListed(last_)) {
      field.fail("found " + std::to_string(last_) + ", which is the PID of " + quoted(other->name) +
                     " already",
                 "a PID of its own");
    }
    return taken();
  }
  // Of the further ones.
  int32_t further(const Place &place, const Loading &loading) {
    do {
      last_++;
      checkLast(place);
    } while (loading.findListed(last_) != nullptr);
    return taken();
  }

 private:
  int32_t next(const Place &place) {
    last_ = largest_ + 1;
    checkLast(place);
    return taken();
  }
  int32_t taken() {
    largest_ = std::max(largest_, last_);
    return last_;
  }
  void checkLast(const Place &place) const {
    if (last_ > kLargestPid) {
      failAt(place, "there is no PID above 99999 left for it", "a smaller `pid`");
    }
  }

  int32_t last_ = 0;
  int32_t largest_ = 0;
};

}  // namespace

constinit const std::span<const Word> kApplicationStates = kStates;
constinit const std::span<const Word> kSigningFlags = kSigningWords;

int32_t readSandbox(const Field &field) {
  if (const bool *isSandboxed = field.as<bool>()) return *isSandboxed ? 1 : 0;
  const std::string *text = field.as<std::string>();
  if (text == nullptr || *text != "unknown") field.fail("true, false or \"unknown\"");
  return -1;
}

Templates::Templates(Loading &loading, const Field &field) {
  if (!field) return;
  table_ = field.as<TomlTable>();
  if (table_ == nullptr) field.fail("a table of tables");
  path_ = field.path();
  for (const TomlMember &member : table_->members) {
    TableReader reader(Field(member.value, Path{&path_, member.key, std::nullopt}));
    layersOf(reader);
    PlanReader(loading, reader, Kind::kTemplate, 1).read();
    reader.finish();
  }
}

std::vector<std::unique_ptr<TableReader>> Templates::layersOf(TableReader &own) const {
  std::vector<std::unique_ptr<TableReader>> layers;
  std::vector<std::string_view> inside;
  addLayers(own.findOwn("template"), inside, layers);
  return layers;
}

void Templates::addLayers(const Field &field, std::vector<std::string_view> &inside,
                          std::vector<std::unique_ptr<TableReader>> &layers) const {
  if (!field) return;
  const bool isArray = field.as<TomlArray>() != nullptr;
  for (size_t i = 0; i < (isArray ? field.count() : 1); i++) {
    const Field named = isArray ? field.element(i) : field;
    const std::string *name = named.as<std::string>();
    if (name == nullptr) named.fail("the name of a template, or an array of names");
    const TomlMember *member = table_ != nullptr ? table_->find(*name) : nullptr;
    if (member == nullptr) {
      named.fail("no template is called " + quoted(*name), "one that the file has");
    }
    if (std::find(inside.begin(), inside.end(), *name) != inside.end()) {
      named.fail("the template " + quoted(*name) + " takes over itself", "another template");
    }
    if (inside.size() == kMostInside || layers.size() == kMostLayers) {
      named.fail("takes over too many templates", "at most 64, and 32 within one another");
    }
    auto layer = std::make_unique<TableReader>(
        Field(member->value, Path{&path_, member->key, std::nullopt}));
    inside.push_back(member->key);
    addLayers(layer->findOwn("template"), inside, layers);
    inside.pop_back();
    layers.push_back(std::move(layer));
  }
}

void readProcesses(Loading &loading, const Templates &templates, const Field &field) {
  Pids pids;
  std::unordered_set<uint64_t> threadIDs;
  for (size_t entry = 0; entry < field.count(); entry++) {
    TableReader reader(field.element(entry));
    const std::vector<std::unique_ptr<TableReader>> layers = templates.layersOf(reader);
    reader.putOnTopOf(layers);
    const Numbering numbering = readNumbering(reader);
    loading.take(Limit::kProcesses, numbering.count, 1, reader.place());
    const Plan plan = PlanReader(loading, reader, Kind::kListed, numbering.count).read();
    reader.finish();
    requireName(plan, numbering);

    Maker maker(loading, plan);
    for (size_t i = 0; i < numbering.count; i++) {
      const int32_t pid = i == 0 ? pids.first(numbering.pid, plan.place, loading)
                                 : pids.further(plan.place, loading);
      Process process =
          maker.make(nameOf(plan, numbering, i), namePlaceOf(plan, numbering, i), pid, i, pid);
      for (const Thread &thread : process.threads) {
        if (thread.id == 0 || threadIDs.insert(thread.id).second) continue;
        failAt(plan.place,
               "a thread of another process has the ID " + std::to_string(thread.id) + " already",
               "one of its own");
      }
      loading.addListed(std::move(process));
      maker.connect({false, loading.device.processes.size() - 1});
    }
  }
}

void readStartedProcesses(Loading &loading, const Templates &templates, TableReader &reader,
                          const Event &event) {
  const std::vector<std::unique_ptr<TableReader>> layers = templates.layersOf(reader);
  reader.putOnTopOf(layers);
  const Numbering numbering = readNumbering(reader);
  loading.take(Limit::kProcesses, numbering.count, 1, reader.place());
  const Plan plan = PlanReader(loading, reader, Kind::kStarted, numbering.count).read();
  reader.finish();
  requireName(plan, numbering);

  std::optional<int32_t> pid;
  if (numbering.pid) pid = static_cast<int32_t>(numbering.pid.number(0, kLargestPid));
  Maker maker(loading, plan);
  for (size_t i = 0; i < numbering.count; i++) {
    if (pid && *pid > kLargestPid) {
      failAt(plan.place, "there is no PID above 99999 left for it", "a smaller `pid`");
    }
    // Where the PID is not known, the place in the file is what makes it different from others.
    const int64_t seed =
        pid ? int64_t{*pid} : -1 - static_cast<int64_t>(loading.device.events.size());
    Event made = event;
    made.action = StartProcess{
        maker.make(nameOf(plan, numbering, i), namePlaceOf(plan, numbering, i), pid, i, seed)};
    loading.addName(std::get<StartProcess>(made.action).process.name, pid);
    loading.device.events.push_back(std::move(made));
    maker.connect({true, loading.device.events.size() - 1});
    if (pid) ++*pid;
  }
}

std::vector<Thread> readThreads(Loading &loading, const Field &field, int32_t priority,
                                int32_t policy) {
  const TomlTable none;
  TableReader reader(none, field.line());
  return PlanReader(loading, reader, Kind::kStarted, 1).threadsAlone(field, priority, policy);
}

}  // namespace host::simulator
