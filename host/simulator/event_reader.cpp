#include "host/simulator/event_reader.h"

#include <string>
#include <utility>
#include <variant>

#include "host/simulator/calls.h"
#include "host/simulator/descriptor_reader.h"
#include "host/simulator/error_names.h"
#include "host/simulator/limits.h"
#include "host/simulator/process_plan.h"
#include "host/simulator/process_reader.h"
#include "host/simulator/process_texts.h"
#include "host/simulator/standing_reader.h"
#include "host/simulator/thread_reader.h"

namespace host::simulator {

namespace {

constexpr size_t kLongestState = 255;
constexpr int64_t kLargestCopy = 19'998;  // the last copy of the one with the largest number
constexpr int64_t kMostSources = 1000;
constexpr Nanoseconds kShortestRepetition{100'000'000};

// The calls, or the forms of one call.
std::string listOfCalls(std::string_view call) {
  std::vector<std::string_view> names;
  for (const CallForm &row : kCallForms) {
    if (!call.empty() && row.call != call) continue;
    const std::string_view name = call.empty() ? row.call : row.form;
    if (!name.empty()) names.push_back(name);
  }
  return quotedList(names);
}

constexpr std::string_view kProcessExpected = "a PID or a process's name";

class EventReader {
 public:
  EventReader(Loading &loading, const Templates &templates, const Field &field)
      : loading_(loading), templates_(templates), reader_(field) {}

  void read() {
    loading_.take(Limit::kEvents, 1, 1, reader_.place());
    const ActionRow &row = reader_.require("do", "what happens").rowIn(actions());
    reader_.time("at", event_.at);
    if (const Field field = reader_.find("for")) {
      if (!row.isUndone) {
        field.fail("found `for` where nothing is undone",
                   "it with \"start\", \"stop\", \"open\" or \"fail\" alone");
      }
      event_.lasts = field.timeAboveZero();
    }
    if (const Field field = reader_.find("every")) {
      event_.every = field.time();
      if (*event_.every < kShortestRepetition) field.fail("a time of at least 0.1");
    }
    (this->*row.read)();
    reader_.finish();
  }

 private:
  struct ActionRow {
    std::string_view text;
    void (EventReader::*read)();
    bool isUndone = false;  // when its time is over
  };

  static std::span<const ActionRow> actions() {
    using Reader = EventReader;
    static constexpr ActionRow kRows[] = {
        {"start", &Reader::readStart, true},
        {"exit", &Reader::readExit},
        {"fork", &Reader::readFork},
        {"exec", &Reader::readExec},
        {"stop", &Reader::addAboutAlone<StopProcess>, true},
        {"continue", &Reader::addAboutAlone<ContinueProcess>},
        {"change", &Reader::readChange},
        {"open", &Reader::readOpen, true},
        {"close", &Reader::readClose},
        {"pressure", &Reader::readPressure},
        {"power", &Reader::readPower},
        {"fail", &Reader::readFail, true},
    };
    return kRows;
  }

  size_t add(Action action) {
    event_.action = std::move(action);
    loading_.device.events.push_back(std::move(event_));
    return loading_.device.events.size() - 1;
  }

  // With the PID of the event's process, which may be known only later.
  template <typename Change>
  size_t addAbout(Change action) {
    const Field process = reader_.require("process", kProcessExpected);
    const size_t index = add(std::move(action));
    loading_.withProcess(process, [index](Device &device, int32_t pid) {
      std::get<Change>(device.events[index].action).pid = pid;
    });
    return index;
  }

  template <typename Change>
  void addAboutAlone() {
    addAbout(Change{});
  }

  void readStart() { readStartedProcesses(loading_, templates_, reader_, event_); }

  void readExit() {
    ExitProcess exit;
    reader_.number("exit-status", exit.status);
    reader_.flag("zombie", exit.staysZombie);
    addAbout(exit);
  }

  void readFork() {
    ForkProcess fork;
    reader_.number("child", fork.child, 0, kLargestPid);
    addAbout(fork);
  }

  void readExec() {
    ExecProcess exec;
    exec.name = reader_.require("name", "a text").text(kLongestName);
    PatternValues values;
    values.name = exec.name;
    exec.path = filledIn(kDefaultPath, values);
    reader_.text("path", exec.path, kLongestPath);
    exec.arguments = {exec.path};
    reader_.texts("arguments", exec.arguments, kLongestArgument);
    addAbout(std::move(exec));
  }

  std::vector<Thread> readChangedThreads(const Field &field, const ThreadDefaults &defaults) {
    Items<ThreadEntry> threads;
    readThreads(field, defaults,
                [&](ThreadEntry entry) { addThreads(loading_, 1, std::move(entry), threads); });
    checkThreadNumbers(threads.entries);
    for (size_t i = 0; i < threads.items.size(); i++) {
      Thread &thread = threads.items[i];
      growTimes(thread.share.start, threads.entryAt(i).given, thread.userTime, thread.systemTime);
    }
    return std::move(threads.items);
  }

  void readChange() {
    ChangeProcess change;
    reader_.size("virtual", change.virtualSize);
    reader_.size("resident", change.residentSize);
    reader_.size("disk-read", change.diskRead);
    reader_.size("disk-written", change.diskWritten);
    reader_.number("priority", change.priority, 0, kLargestPriority);
    reader_.number("band", change.band);
    reader_.number("limit", change.limit, -1);
    reader_.number("jetsam-state", change.jetsamState);
    reader_.read("sandbox", change.sandboxed, readSandbox);
    reader_.read("signing", change.codeSigningFlags, readSigning);
    reader_.read("application-state", change.applicationState, readApplicationState);
    if (const Field field = reader_.find("threads")) {
      // As of a process of which nothing is said, unless it is there from the start.
      const Process *process = loading_.findListed(reader_.require("process", kProcessExpected));
      ThreadDefaults defaults;
      if (process != nullptr) defaults = {process->priority, process->policy, std::nullopt};
      if (change.priority) defaults.priority = *change.priority;
      change.threads = readChangedThreads(field, defaults);
    }
    addAbout(std::move(change));
  }

  void readOpen() {
    DescriptorEntry entry =
        readDescriptor(reader_.require("descriptor", "a table of a descriptor"), false);
    loading_.take(Limit::kDescriptors, 1, 1, entry.place);
    OpenDescriptor open;
    open.descriptor = std::move(entry.item);
    const size_t index = addAbout(std::move(open));
    if (entry.label.text.empty() && entry.peer.text.empty()) return;
    loading_.addEnd({entry.label, entry.peer, [index](Device &device) -> Descriptor & {
                       return std::get<OpenDescriptor>(device.events[index].action).descriptor;
                     }});
  }

  void readClose() {
    CloseDescriptor close;
    const Field number = reader_.require("number", "the descriptor's number");
    close.number = static_cast<int32_t>(number.number(0, kLargestCopy));
    addAbout(close);
  }

  void readPressure() {
    RaisePressure pressure;
    reader_.number("wanted", pressure.wantedPages);
    reader_.number("reclaimed", pressure.reclaimedPages);
    reader_.number("level", pressure.level, 0, 100);
    add(pressure);
  }

  void readPower() {
    ChangePower change;
    reader_.number("capacity", change.capacity, 0, 100);
    reader_.text("state", change.state, kLongestState);
    reader_.flag("charging", change.isCharging);
    reader_.read("remaining", change.secondsRemaining, readRemaining);
    const Field source = reader_.find("source");
    if (source) change.source = static_cast<size_t>(source.number(0, kMostSources));
    const std::optional<Power> &power = loading_.device.power;
    const bool isOfSource = source || change.capacity || change.state || change.isCharging;
    if (!power || (isOfSource && change.source >= power->sources.size())) {
      failAt(source ? source.place() : reader_.place(),
             "there is no power source " + std::to_string(change.source),
             "one that [power] has, counted from 0");
    }
    add(change);
  }

  void readFail() {
    FailCall fail;
    const Field call = reader_.require("call", "the name of a call");
    fail.call = call.text(kLongestName);
    if (questionsOf(fail.call) == 0) call.fail("one of " + listOfCalls(""));
    if (const Field form = reader_.find("form")) {
      fail.form = form.text(kLongestName);
      if (questionsOf(fail.call, fail.form) == 0) {
        const std::string forms = listOfCalls(fail.call);
        form.fail(forms.empty() ? "none, as there is one form of this call" : "one of " + forms);
      }
    }
    reader_.read("error", fail.error, readError);
    const Field process = reader_.find("process");
    const size_t index = add(std::move(fail));
    if (!process) return;
    loading_.withProcess(process, [index](Device &device, int32_t pid) {
      std::get<FailCall>(device.events[index].action).pid = pid;
    });
  }

  Loading &loading_;
  const Templates &templates_;
  TableReader reader_;
  Event event_;
};

}  // namespace

double readRemaining(const Field &field) {
  static constexpr Word kWords[] = {{"unknown", -1}, {"unlimited", -2}};
  if (field.as<std::string>() != nullptr) return static_cast<double>(field.oneOf(kWords));
  return field.fraction(0, static_cast<double>(kLongestTime));
}

void readEvents(Loading &loading, const Templates &templates, const Field &field) {
  for (const Field &element : field.elements()) EventReader(loading, templates, element).read();
}

}  // namespace host::simulator
