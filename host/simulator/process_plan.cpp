#include "host/simulator/process_plan.h"

#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "darwin/syscalls.h"
#include "host/darwin/proc_info.h"
#include "host/simulator/limits.h"
#include "host/simulator/standing_reader.h"

namespace host::simulator {

namespace {

constexpr size_t kMostDonors = 64;
constexpr double kLargestSpread = 0.9;

constexpr Word kProcessStatuses[] = {{"idle", darwin::SIDL},
                                     {"run", darwin::SRUN},
                                     {"sleep", darwin::SSLEEP},
                                     {"stop", darwin::SSTOP},
                                     {"zombie", darwin::SZOMB}};
constexpr Word kProcessFlags[] = {{"system", darwin::PROC_FLAG_SYSTEM},
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

size_t textBytes(const Process &process) {
  size_t bytes = process.codeSignature.size();
  for (const std::string *text :
       {&process.name, &process.longName, &process.path, &process.container}) {
    bytes += simulator::textBytes(*text);
  }
  for (const std::string &text : process.arguments) bytes += simulator::textBytes(text);
  for (const std::string &text : process.environment) bytes += simulator::textBytes(text);
  return bytes;
}

class PlanReader {
 public:
  PlanReader(Loading &loading, TableReader &reader, PlanOf kind, uint64_t times)
      : loading_(loading), reader_(reader), kind_(kind), times_(times) {}

  Plan read() {
    plan_.place = reader_.place();
    readNames();
    readUsers();
    readState();
    readFigures();
    readStanding(reader_, process_);
    readThreads();
    readDescriptors();
    readRegions();
    if (const Field field = reader_.find("spread")) {
      plan_.spread =
          std::llround(field.fraction(0, kLargestSpread) * static_cast<double>(kMillion));
    }
    if (makesItems()) loading_.take(Limit::kBytes, textBytes(process_), times_, plan_.place);
    return std::move(plan_);
  }

 private:
  bool makesItems() const { return kind_ != PlanOf::kTemplate; }

  template <typename Where>
  void text(const Field &field, size_t most, Where where) {
    readText(field, most, process_, plan_.patterns, where);
  }

  void texts(const Field &field, std::vector<std::string> Process::*list) {
    if (!field) return;
    const std::vector<Field> elements = field.elements();
    (process_.*list).resize(elements.size());
    for (size_t i = 0; i < elements.size(); i++) {
      text(elements[i], kLongestArgument,
           [list, i](Process &process) -> std::string & { return (process.*list)[i]; });
    }
  }

  void readNames() {
    plan_.name = reader_.find("name");
    if (plan_.name) process_.name = plan_.name.text(kLongestName);
    text(reader_.find("long-name"), kLongestName, &Process::longName);
    if (const Field field = reader_.find("path")) {
      text(field, kLongestPath, &Process::path);
    } else {
      plan_.patterns.push_back(
          {plan_.place, std::string(kDefaultPath), kLongestPath,
           [](Process &p, const Place &, const std::string &filled) { p.path = filled; }});
    }
    const Field arguments = reader_.find("arguments");
    plan_.hasArguments = bool{arguments};
    texts(arguments, &Process::arguments);
    texts(reader_.find("environment"), &Process::environment);
    text(reader_.find("container"), kLongestPath, &Process::container);
  }

  void readUsers() {
    plan_.parent = reader_.find("parent");
    reader_.number("group", process_.group, 0, kLargestPid);
    reader_.number("user", process_.user);
    reader_.number("group-id", process_.groupID);
    process_.realUser = process_.savedUser = process_.user;
    process_.realGroupID = process_.savedGroupID = process_.groupID;
    reader_.number("real-user", process_.realUser);
    reader_.number("saved-user", process_.savedUser);
    reader_.number("real-group-id", process_.realGroupID);
    reader_.number("saved-group-id", process_.savedGroupID);
  }

  static bool readIs64Bit(const Field &field) {
    const int64_t *bits = field.as<int64_t>();
    if (bits == nullptr || (*bits != 32 && *bits != 64)) field.fail("32 or 64");
    return *bits == 64;
  }

  static uint32_t readStatus(const Field &field) {
    return static_cast<uint32_t>(
        field.oneOfOrNumber(kProcessStatuses, std::numeric_limits<uint32_t>::max()));
  }

  static std::vector<int32_t> readDonors(const Field &field) {
    std::vector<int32_t> donors;
    for (const Field &donor : field.elementsUpTo(kMostDonors, "processes")) {
      donors.push_back(static_cast<int32_t>(donor.number(0, kLargestPid)));
    }
    return donors;
  }

  Nanoseconds readAge(const Field &field) const {
    const Nanoseconds age = field.time();
    if (age > loading_.device.clock.up) {
      field.fail("found a process that is older than the device", "at most `clock.up`");
    }
    return age;
  }

  void readState() {
    reader_.read("bits", process_.is64Bit, readIs64Bit);
    reader_.read("status", process_.status, readStatus);
    reader_.number("exit-status", process_.exitStatus);
    for (const Field &field : reader_.findAll("flags")) {
      process_.flags |= field.severalOfOrNumber(kProcessFlags) & ~darwin::PROC_FLAG_LP64;
    }
    reader_.read("donors", process_.donors, readDonors);
    reader_.number("terminal", process_.terminal);
    reader_.number("terminal-group", process_.terminalGroup);
    reader_.number("jobs", process_.jobs);
    reader_.number("nice", process_.nice, -20, 20);
    if (kind_ == PlanOf::kListed) process_.age = loading_.device.clock.up;
    reader_.read("age", process_.age, [this](const Field &field) { return readAge(field); });
    reader_.number("priority", process_.priority, 0, kLargestPriority);
    reader_.oneOf("policy", process_.policy, kPolicies);
  }

  void readFigures() {
    reader_.figures(kProcessFigures, process_);
    if (const Field field = reader_.find("footprint")) {
      process_.footprint = field.figure(Unit::kSize).figure;
      plan_.hasFootprint = true;
    }
    plan_.given = readTimes(reader_, process_.userTime, process_.systemTime);
    ResourceUsage usage;
    reader_.figures(kUsageFigures, usage);
    readTraffic();
    bool isAnswered = true;
    reader_.flag("usage", isAnswered);
    process_.usage.reset();
    if (isAnswered) process_.usage = usage;
  }

  void readTraffic() {
    if (!reader_.find("network-received") && !reader_.find("network-sent")) return;
    TrafficCounters traffic;
    reader_.figure("network-received", traffic.receivedBytes, Unit::kSize);
    reader_.figure("network-sent", traffic.sentBytes, Unit::kSize);
    process_.traffic = traffic;
  }

  void readThreads() {
    ThreadDefaults defaults{process_.priority, process_.policy, std::nullopt};
    if (makesItems()) defaults.is64Bit = process_.is64Bit;
    const auto add = [this](ThreadEntry entry) {
      if (makesItems()) addThreads(loading_, times_, std::move(entry), plan_.threads);
    };
    const std::vector<Field> fields = reader_.findAll("threads");
    for (const Field &field : fields) simulator::readThreads(field, defaults, add);
    if (fields.empty()) add(plainThreads(defaults, 1, plan_.place));
    checkThreadNumbers(plan_.threads.entries);
  }

  // Those of all templates, and of the process. `bytes` of each beyond the item itself count, too.
  template <typename EntryOfItem, typename Make, typename Bytes>
  void readEntries(std::string_view key, Limit limit, Items<EntryOfItem> &items, Make make,
                   Bytes bytes) {
    for (const Field &field : reader_.findAll(key)) {
      for (const Field &element : field.elements()) {
        EntryOfItem entry = make(element);
        if (!makesItems()) continue;
        const size_t copies = static_cast<size_t>(entry.copies);
        loading_.take(limit, copies, times_, entry.place);
        loading_.take(Limit::kBytes, copies * bytes(entry), times_, entry.place);
        items.entries.push_back(std::move(entry));
      }
    }
  }

  void readDescriptors() {
    readEntries(
        "descriptors", Limit::kDescriptors, plan_.descriptors,
        [](const Field &field) { return readDescriptor(field, true); },
        [](const DescriptorEntry &entry) {
          return simulator::textBytes(entry.item) + entry.label.text.size() +
                 entry.peer.text.size();
        });
    makeDescriptors(plan_.descriptors);
  }

  void readRegions() {
    readEntries("regions", Limit::kRegions, plan_.regions, readRegion,
                [](const RegionEntry &entry) { return simulator::textBytes(entry.item); });
    makeRegions(plan_.regions);
  }

  Loading &loading_;
  TableReader &reader_;
  PlanOf kind_;
  uint64_t times_;
  Plan plan_;
  Process &process_ = plan_.process;
};

}  // namespace

Plan readPlan(Loading &loading, TableReader &reader, PlanOf kind, uint64_t times) {
  return PlanReader(loading, reader, kind, times).read();
}

}  // namespace host::simulator
