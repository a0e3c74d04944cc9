#include "screens/details.h"

// Curses first, with wide characters.
#include "tests/unit/curses_screen.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "control/keys.h"
#include "darwin/libproc.h"
#include "host/darwin/errors.h"
#include "host/darwin/syscalls.h"
#include "inspect/code_signing.h"
#include "inspect/details_report.h"
#include "terminal/drawing_lock.h"
#include "terminal/ending.h"
#include "terminal/status_bar.h"
#include "tests/unit/sampled_machine.h"
#include "tests/unit/typed_keys.h"

namespace {

using namespace sondex;
using sampled::errorOutputOf;
using sampled::outputOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr int32_t kHello = 40;
constexpr char kDashes[] = "-----------------\n";
constexpr char kWarning[] = "Warning: Unable to get task port - Statistics will be limited\n";
constexpr char kIdentity[] =
    "Process: 40\tName: Hello           \tParent:     1\tStatus: sleeping\n";

// Answers what only the details ask, and lets a test act in the middle of a report.
class InspectedMachine : public sampled::SampledMachine {
 public:
  std::string path = "/Applications/Hello.app/Hello";
  host::Errno argumentsRefusal = host::kAnswered;
  std::optional<std::string> container;
  std::optional<int32_t> state;
  std::function<void()> whenAskedForArguments;

  host::Errno arguments(pid_t pid, host::ProcessArguments &out) override {
    asked.push_back({"arguments", pid, 0});
    if (whenAskedForArguments) whenAskedForArguments();
    out.path = path;
    return argumentsRefusal;
  }
  host::Errno containerPath(pid_t pid, std::string &out) override {
    asked.push_back({"containerPath", pid, 0});
    if (!container) return darwin::DARWIN_ENOTSUP;
    out = *container;
    return host::kAnswered;
  }
  host::Errno applicationState(pid_t, int32_t &out) override {
    if (!state) return darwin::DARWIN_ENOTSUP;
    out = *state;
    return host::kAnswered;
  }
};

class Details : public fake_machine::MachineTest<InspectedMachine> {
 protected:
  Details() {
    darwin::proc_bsdinfo &process = machine.add(kHello, "Hello").info.pbsd;
    process.pbi_ppid = 1;
    process.pbi_status = darwin::SSLEEP;
    process.pbi_flags = darwin::PROC_FLAG_LP64;
    record_ = static_cast<ProcessRecord *>(std::calloc(1, sizeof(ProcessRecord)));
    record_->taskAllInfo = machine.processes[kHello].info;
  }
  ~Details() override {
    releaseRecord(record_);
    std::free(record_);
    applyFilter(nullptr);
  }

  // The report in plain text, and what it returned.
  std::string plain(TableView table = {}) {
    return outputOf([&] { result_ = showProcessDetails(record_, table); });
  }

  // The lines of the report that begin so.
  std::vector<std::string> linesOf(const std::string &start) {
    std::vector<std::string> lines;
    const std::string all = plain();
    for (size_t at = 0; at < all.size();) {
      const size_t end = std::min(all.find('\n', at), all.size());
      if (all.compare(at, start.size(), start) == 0) lines.push_back(all.substr(at, end - at));
      at = end + 1;
    }
    return lines;
  }

  void setTraffic(uint64_t received, uint64_t sent) {
    store(process_pid_info[3], kHello);
    store(process_ntstat_info[3].received, received);
    store(process_ntstat_info[3].sent, sent);
  }

  DisplayStateGuard state_;
  ProcessRecord *record_ = nullptr;
  int result_ = 7;
};

TEST_F(Details, PrintEverySection) {
  darwin::proc_bsdinfo &process = record_->taskAllInfo.pbsd;
  process.pbi_uid = 501;
  process.pbi_ruid = 502;
  process.pbi_svuid = static_cast<uint32_t>(-2);
  process.pbi_gid = 20;
  process.pbi_rgid = 21;
  process.pbi_svgid = 123456;
  darwin::proc_taskinfo &task = record_->taskAllInfo.ptinfo;
  task.pti_virtual_size = uint64_t{1890} << 20;
  task.pti_resident_size = 49807361;
  task.pti_total_user = 61'250'000'000;
  task.pti_total_system = 3'500'000'000;
  task.pti_syscalls_unix = 1234;
  task.pti_syscalls_mach = 12345678;
  task.pti_threadnum = 5;
  task.pti_numrunning = 2;
  record_->workqueueInfo = {4, 1, 3, 2};
  record_->rusage.ri_diskio_bytesread = 1024 * 1024 + 1023;
  record_->rusage.ri_diskio_byteswritten = 2047;
  record_->sandboxed = 1;
  machine.container = "/private/var/mobile/Containers/Data/Hello";
  machine.state = darwin::PROC_APPSTATE_ACTIVE;
  setTraffic(25'000'000, 900);
  ProcessRecord *table = allocateProcessTable(3);
  table[0].taskAllInfo.pbsd.pbi_pid = 41;
  table[0].taskAllInfo.pbsd.pbi_ppid = kHello;
  std::strcpy(table[0].taskAllInfo.pbsd.pbi_comm, "child");

  EXPECT_EQ(plain({table, 1}),
            std::string(kDashes) + kWarning + kIdentity +
                "Container: /private/var/mobile/Containers/Data/Hello\n"
                "Flags:   64-bit\n"
                "State: Active\n" +
                kIdentity +
                "\n"
                "UID:      501\tRUID:   502\tSVUID:    -2\n"
                "GID:       20\tRGID:    21\tSVGID: 123456\n"
                "\n"
                "Virtual size:      \t1890M (1981808640)\t"
                "Resident size:          47M (49807361)\n"
                "Time:   1:04.75   =  1:01.25 (User)    +    03.50 (System)\n"
                "Syscalls:        1234\tMach Traps: 12345678\n"
                "Disk I/O:       1024K Read\t          1K Written\n"
                "Network I/O: RX 25 M\tTX 900 bytes\t\n"
                "#Threads:  5/2 Workqueues:4 threads (1 running, 3 blocked) State: 2\n"
                "Thread Info:\n"
                "\n"
                "\n"
                "Process Hierarchy:\n"
                " 40    Hello \n"
                " +- 41    child\n"
                "\n"
                "0 File descriptors: ");
  EXPECT_EQ(result_, 0);
  releaseProcessTable(table);
}

TEST_F(Details, OfAProcessThatWasNeverSampledAreZeros) {
  *record_ = {};
  EXPECT_THAT(plain(), StartsWith(std::string(kDashes) + kWarning +
                                  "Process: 0\tName:                 \tParent:     0\tStatus: "
                                  "unknown\n"));
}

// Whatever else happened: the second identity is that of the line before.
TEST_F(Details, ShowTheIdentityTwice) {
  machine.state = darwin::PROC_APPSTATE_NONUI;
  EXPECT_THAT(plain(), HasSubstr(std::string("State: Non-UI\n") + kIdentity + "\nUID:"));
}

TEST_F(Details, MakeNamesSafe) {
  std::memcpy(record_->taskAllInfo.pbsd.pbi_comm, "\x1b[31mno end here", 16);
  EXPECT_THAT(
      linesOf("Process: "),
      testing::Each("Process: 40\tName: ?[31mno end here\tParent:     1\tStatus: sleeping"));
}

TEST_F(Details, EndBehindTheIdentityWithoutArguments) {
  machine.argumentsRefusal = darwin::DARWIN_EINVAL;
  std::string text;
  EXPECT_EQ(errorOutputOf([&] { text = plain(); }), "sysctl:PROCARGS: Invalid argument\n");
  EXPECT_EQ(text, std::string(kDashes) + kWarning + kIdentity);
  EXPECT_EQ(result_, -1);
}

TEST_F(Details, ShowTheProgramWhenWanted) {
  EXPECT_THAT(plain(), Not(HasSubstr("argv")));
  store(g_showArgs, 1);
  EXPECT_THAT(plain(), HasSubstr(std::string(kIdentity) +
                                 "argv[0]: /Applications/Hello.app/Hello\nFlags:   "));
  machine.path = "/bin/\x1b]0;title\x07";
  EXPECT_THAT(linesOf("argv"), testing::ElementsAre("argv[0]: /bin/?]0;title?"));
}

TEST_F(Details, KeepThePathAsItIs) {
  machine.path = "/bin/\x1b[2J\xff";
  plain();
  EXPECT_STREQ(record_->path, "/bin/\x1b[2J\xff");
  machine.path = "/bin/a";  // a shorter one leaves nothing of it
  plain();
  EXPECT_STREQ(record_->path, "/bin/a");
}

TEST_F(Details, CutThePathTo256Bytes) {
  for (const size_t length : {255, 256, 257, 1000}) {
    std::memset(record_->path, 'x', sizeof record_->path);
    machine.path = std::string(length, 'p');
    plain();
    EXPECT_EQ(std::string(record_->path), std::string(std::min<size_t>(length, 256), 'p'));
  }
}

// The kernel then gives the end of an area that is too long, and here that has no NUL at all.
TEST_F(Details, EndATextThatFillsTheArgumentArea) {
  machine.path = std::string(300000, 'p');
  store(g_showArgs, 1);
  EXPECT_THAT(linesOf("argv"), testing::ElementsAre("argv[0]: " + std::string(8188, 'p')));
  EXPECT_EQ(std::string(record_->path), std::string(256, 'p'));
}

TEST_F(Details, TakeAnEmptyPath) {
  machine.path = "";
  store(g_showArgs, 1);
  EXPECT_THAT(linesOf("argv"), testing::ElementsAre("argv[0]: "));
  EXPECT_STREQ(record_->path, "");
}

TEST_F(Details, ShowTheContainerOfAConfinedProcessOnly) {
  machine.container = "/con\ntainer";
  EXPECT_THAT(plain(), Not(HasSubstr("Container")));
  EXPECT_EQ(machine.timesAsked("containerPath"), 0u);
  for (const int32_t sandboxed : {1, -1}) {
    record_->sandboxed = sandboxed;
    EXPECT_THAT(plain(), HasSubstr("\nContainer: /con?tainer\nFlags:   "));
  }
  machine.container.reset();
  EXPECT_THAT(plain(), Not(HasSubstr("Container")));
}

TEST_F(Details, TakeTheLongestContainerPath) {
  record_->sandboxed = 1;
  machine.container = "/" + std::string(1022, 'c');
  EXPECT_THAT(linesOf("Container"),
              testing::ElementsAre(std::string("Container: ").append(*machine.container)));
  machine.container = "/" + std::string(1023, 'c');  // without room for its NUL
  EXPECT_THAT(linesOf("Container"), testing::IsEmpty());
}

TEST_F(Details, ShowTheFlags) {
  record_->taskAllInfo.pbsd.pbi_flags = 0;
  EXPECT_THAT(linesOf("Flags"), testing::ElementsAre("Flags:   32-bit"));
  record_->taskAllInfo.pbsd.pbi_flags = 0x11;
  EXPECT_THAT(linesOf("Flags"), testing::ElementsAre("Flags:   64-bit,system"));
}

TEST_F(Details, ShowTheStateOfApplications) {
  const struct {
    int32_t state;
    const char *text;
  } kRows[] = {
      {0, "State: None"},       {1, "State: Active"},
      {2, "State: Background"}, {3, "State: Non-UI"},
      {4, "State: Inactive"},   {5, "State: Unknown"},
      {-1, "State: Unknown"},   {std::numeric_limits<int32_t>::max(), "State: Unknown"},
  };
  for (const auto &row : kRows) {
    machine.state = row.state;
    EXPECT_THAT(linesOf("State"), testing::ElementsAre(row.text));
  }
  machine.state.reset();
  EXPECT_THAT(linesOf("State"), testing::IsEmpty());
}

TEST_F(Details, ShowSizesInTheFormOfTheList) {
  record_->taskAllInfo.ptinfo.pti_virtual_size = uint64_t{387} << 30;
  record_->taskAllInfo.ptinfo.pti_resident_size = 9 * 1024 * 1024;
  for (const int32_t delta : {0, 1}) {
    store(g_Delta, delta);
    EXPECT_THAT(linesOf("Virtual"),
                testing::ElementsAre("Virtual size:      \t 387G (415538085888)\t"
                                     "Resident size:        9216K (9437184)"));
  }
}

TEST_F(Details, ShowTimesBeyondAnyRange) {
  record_->taskAllInfo.ptinfo.pti_total_user = std::numeric_limits<uint64_t>::max();
  record_->taskAllInfo.ptinfo.pti_total_system = 1;
  EXPECT_THAT(linesOf("Time"),
              testing::ElementsAre("Time:   >1 day    =  >1 day  (User)    +    00.00 (System)"));
}

TEST_F(Details, ShowNoDiskUseWithoutFigures) {
  record_->rusage.ri_diskio_bytesread = kUsageUnknown;
  EXPECT_THAT(linesOf("Disk"), testing::IsEmpty());
  record_->rusage.ri_diskio_bytesread = 0;
  EXPECT_THAT(linesOf("Disk"),
              testing::ElementsAre("Disk I/O:          0K Read\t          0K Written"));
  store(g_Compression, 0);
  EXPECT_THAT(linesOf("Disk"), testing::IsEmpty());
}

TEST_F(Details, ShowLargeDiskUseUnsigned) {
  record_->rusage.ri_diskio_bytesread = kUsageUnknown - 1;
  record_->rusage.ri_diskio_byteswritten = kUsageUnknown;
  EXPECT_THAT(linesOf("Disk"), testing::ElementsAre("Disk I/O:     18014398509481983K Read\t  "
                                                    "18014398509481983K Written"));
}

TEST_F(Details, ShowTrafficInUnitsOfAThousand) {
  const struct {
    uint64_t bytes;
    const char *text;
  } kRows[] = {
      {0, "0 bytes"},
      {10'000, "10000 bytes"},
      {10'001, "10 K"},
      {10'000'999, "10000 K"},
      {10'001'000, "10 M"},
      {25'000'000, "25 M"},
      {2'147'483'647, "2147 M"},
      {3'000'000'000, "-1294967296 bytes"},
      {(uint64_t{1} << 32) + 5, "5 bytes"},
  };
  for (const auto &row : kRows) {
    setTraffic(row.bytes, 7);
    EXPECT_THAT(linesOf("Network"), testing::ElementsAre(std::string("Network I/O: RX ") +
                                                         row.text + "\tTX 7 bytes\t"));
    setTraffic(7, row.bytes);
    EXPECT_THAT(
        linesOf("Network"),
        testing::ElementsAre(std::string("Network I/O: RX 7 bytes\tTX ") + row.text + "\t"));
  }
}

TEST_F(Details, ShowThatThereWasNoTraffic) {
  EXPECT_THAT(plain(), HasSubstr("No Network I/O detected for this process\n\n#Threads:  0  "));
}

TEST_F(Details, OfThreadsHaveTheWorkQueues) {
  record_->taskAllInfo.ptinfo.pti_threadnum = 3;
  EXPECT_THAT(plain(), HasSubstr("\n#Threads:  3   (Process has no workqueues)\nThread Info:\n\n"));
}

// The kernel was started without arguments, and is its own parent.
TEST_F(Details, OfTheKernelHaveNoHierarchy) {
  record_->taskAllInfo.pbsd.pbi_pid = 0;
  std::string text;
  EXPECT_EQ(errorOutputOf([&] { text = plain(); }), "sysctl:PROCARGS: Invalid argument\n");
  EXPECT_THAT(text, Not(HasSubstr("Hierarchy")));
  // Nor has it one where the kernel does tell what it was started with.
  record_->taskAllInfo.pbsd.pbi_pid = kHello;
  machine.whenAskedForArguments = [this] { record_->taskAllInfo.pbsd.pbi_pid = 0; };
  EXPECT_THAT(plain(), HasSubstr("\nThread Info:\n\n\n0 File descriptors: "));
}

TEST_F(Details, HaveTheRelativesOfTheLastRefreshWithoutATable) {
  ProcessRecord *shown = allocateProcessTable(2);
  shown[0].taskAllInfo.pbsd.pbi_pid = 90;
  shown[0].taskAllInfo.pbsd.pbi_ppid = kHello;
  store(g_previous_process_information, shown);
  store(previous_num_procs, 1);
  EXPECT_THAT(plain(), HasSubstr("Hierarchy:\n 40    Hello \n +- 90    \n"));
}

TEST_F(Details, CountTheDescriptors) {
  record_->numFDs = 2;
  record_->fds[0] = {3, darwin::PROX_FDTYPE_VNODE};
  record_->fds[1] = {4, darwin::PROX_FDTYPE_VNODE};
  EXPECT_THAT(plain(), HasSubstr("\n\n2 File descriptors: Can't get info (2) - Error "));
}

TEST_F(Details, WarnOfPortsThatAreNone) {
  DetailsReport report = openDetailsReport(record_, {});
  EXPECT_EQ(report.task, 0u);
  for (const darwin::mach_port_t task : {0x0u, 0xFFFFF0u, 0xFFFFFFFFu, 0xFFFFFFu}) {
    report.task = task;
    EXPECT_THAT(outputOf([&] { printDetails(&report); }), HasSubstr(kWarning)) << task;
  }
  for (const darwin::mach_port_t task : {0x1203u, 0xFFFFE0u}) {
    report.task = task;
    const std::string text = outputOf([&] { printDetails(&report); });
    EXPECT_THAT(text, StartsWith(std::string(kDashes) + kIdentity)) << task;
    EXPECT_THAT(text, Not(HasSubstr("Extmods"))) << "no task has this port";
  }
}

std::string extmods(const darwin::vm_extmod_statistics &counts) {
  char line[240];
  extmodsToText(&counts, line, sizeof line);
  return line;
}

TEST(Extmods, TellWhetherATaskWasTamperedWith) {
  const std::string clean =
      "\nExtmods: Task shows no signs of external modification or tampering\n";
  const std::string lookedUp = "\nExtmods: Task was looked up, but I'm not certain!\n";
  EXPECT_EQ(extmods({0, 5, 0, 6, 0, 7}), clean);
  EXPECT_EQ(extmods({1, 0, 0, 0, 0, 0}), lookedUp);
  EXPECT_EQ(
      extmods({1, 2, 3, 4, 5, 6}),
      "\nExtmods:  Looked up 1 times, Looked up others 2. 3 foreign threads, 5 foreign thread "
      "state settings\n");
  EXPECT_THAT(extmods({0, 0, 0, 0, 1, 0}), StartsWith("\nExtmods:  Looked up 0 times"));
  EXPECT_THAT(extmods({0, 0, 1, 0, 0, 0}), StartsWith("\nExtmods:  Looked up 0 times"));
}

TEST(Extmods, OfAnySizeFitTheLine) {
  constexpr int64_t kMost = std::numeric_limits<int64_t>::min();
  EXPECT_THAT(extmods({kMost, kMost, kMost, kMost, kMost, kMost}), EndsWith("settings\n"));
}

// The keyboard is a terminal of the test's own; keys come from curses' own queue. Every test types
// a key that leaves the screen.
class DetailsScreen : public Details {
 protected:
  DetailsScreen() : keyboard_(std::make_unique<PseudoTerminal>(24, 80)) {
    standardInput_ = dup(STDIN_FILENO);
    EXPECT_EQ(dup2(keyboard_->programEnd(), STDIN_FILENO), STDIN_FILENO);
    nodelay(stdscr, TRUE);
  }
  ~DetailsScreen() override {
    dup2(standardInput_, STDIN_FILENO);
    close(standardInput_);
  }

  // What stands on the screen once the keys, and then Q, were typed.
  std::string afterKeys(const std::string &keys) {
    screen_.dropSent();
    typeKeys(keysOf(keys + "q"));
    result_ = showProcessDetails(record_, {});
    return allText();
  }

  static std::string allText() {
    std::string text;
    for (int row = 0; row < CursesScreen::rows(); row++) {
      std::string line = CursesScreen::text(row);
      text += line.erase(line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
  }

  static int rowOf(const std::string &start) {
    for (int row = 0; row < CursesScreen::rows(); row++) {
      if (CursesScreen::text(row).find(start) == 0) return row;
    }
    ADD_FAILURE() << "no row begins with '" << start << "'";
    return 0;
  }

  std::unique_ptr<PseudoTerminal> keyboard_;
  CursesScreen screen_{40, 100};
  int standardInput_ = -1;
};

TEST_F(DetailsScreen, ShowsHintsInPlaceOfSections) {
  waddstr(stdscr, "what was there before");
  const std::string text = afterKeys("");
  EXPECT_THAT(text, StartsWith(kWarning));
  EXPECT_THAT(text, HasSubstr("\n#Threads:  0   (Process has no workqueues)\n"
                              "(press T to display Thread Information)\n"
                              "\n"
                              "Process Hierarchy: press H to display process hierarchy\n"
                              "\n"
                              "0 File descriptors: 0 files (press F for detailed information)\n"));
  EXPECT_EQ(result_, 0);
  EXPECT_TRUE(is_scrollok(stdscr));
  EXPECT_TRUE(is_idlok(stdscr));
}

struct Section {
  const char *keys;  // each of which shows it and hides it again
  const char *shown;
  const char *hidden;
};

const Section kSections[] = {
    {"Tt", "\nThread Info:\n", "\n(press T to display Thread Information)\n"},
    {"Hh", "\nProcess Hierarchy:\n", "\nProcess Hierarchy: press H to display process hierarchy\n"},
    {"Ff", "\n0 File descriptors:\n", "\n0 File descriptors: 0 files (press F"},
    {"Aa", "\nargv[0]: /Applications/Hello.app/Hello\n", nullptr},
    // A map without regions is a blank line, before the one above the hierarchy.
    {"Rr", "Thread Information)\n\n\nProcess Hierarchy",
     "Thread Information)\n\nProcess Hierarchy"},
};

TEST_F(DetailsScreen, HasAKeyForEachSection) {
  for (const Section &section : kSections) {
    for (const char *key = section.keys; *key != '\0'; key++) {
      SCOPED_TRACE(*key);
      store(g_showArgs, 0);
      const std::string shown = afterKeys(std::string(1, *key));
      EXPECT_THAT(shown, HasSubstr(section.shown));
      if (section.hidden != nullptr) {
        EXPECT_THAT(shown, Not(HasSubstr(section.hidden)));
      }
      store(g_showArgs, 0);
      const std::string hidden = afterKeys(std::string(2, *key));
      EXPECT_THAT(hidden, Not(HasSubstr(section.shown)));
      if (section.hidden != nullptr) {
        EXPECT_THAT(hidden, HasSubstr(section.hidden));
      }
    }
  }
}

TEST_F(DetailsScreen, HasNoHierarchyToShowOfTheKernel) {
  machine.whenAskedForArguments = [this] { record_->taskAllInfo.pbsd.pbi_pid = 0; };
  typeKeys(keysOf("q"));
  EXPECT_EQ(showProcessDetails(record_, {}), 0);
  EXPECT_THAT(allText(), HasSubstr("Thread Information)\n\n0 File descriptors: "));
}

TEST_F(DetailsScreen, BeginsTheDescriptorsOnALineOfTheirOwn) {
  sampled::SampledMachine::addDescriptor(machine.processes[kHello], darwin::PROX_FDTYPE_PIPE);
  EXPECT_THAT(afterKeys("f"), ContainsRegex("\n1 File descriptors:\n +0. +pipe"));
}

TEST_F(DetailsScreen, OpensWithItsSectionsHiddenButTheArguments) {
  const std::string all = afterKeys("tHfRa");
  for (const Section &section : kSections)
    EXPECT_THAT(all, Not(HasSubstr("press"))) << section.keys;
  const std::string next = afterKeys("");
  for (const Section &section : kSections) {
    if (section.hidden != nullptr) {
      EXPECT_THAT(next, HasSubstr(section.hidden));
    }
  }
  EXPECT_THAT(next, HasSubstr("argv[0]: "));
}

TEST_F(DetailsScreen, IsLeftByTwoKeysAlone) {
  for (const char key : {'q', 'Q'}) {
    typeKeys({key, 'z'});
    EXPECT_EQ(showProcessDetails(record_, {}), 0);
    EXPECT_EQ(wgetch(stdscr), 'z') << key;
  }
}

TEST_F(DetailsScreen, WaitsAfterAnyOtherKey) {
  const auto start = std::chrono::steady_clock::now();
  afterKeys("\n");
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_EQ(machine.timesAsked("arguments"), 2u);
}

TEST_F(DetailsScreen, NotesOfNewSizesAreNoKeys) {
  typeKeys({KEY_RESIZE, KEY_RESIZE, 'q'});
  EXPECT_EQ(showProcessDetails(record_, {}), 0);
  EXPECT_EQ(machine.timesAsked("arguments"), 1u);
}

// A key that paused would be the last one here, as the program is to end.
TEST_F(DetailsScreen, ActsOnItsOwnKeysWithoutAPause) {
  EXPECT_EXIT(
      {
        askForEnd(kEndByKey);
        typeKeys(keysOf("aAcCfFhHrRtT?\nxq"));
        showProcessDetails(record_, {});
        _exit(wgetch(stdscr) == 'q' ? 7 : 1);
      },
      ExitedWithCode(7), "");
}

// Enter leaves the help; to the details it would be a key like any other.
TEST_F(DetailsScreen, HasAHelpScreenOfItsOwn) {
  afterKeys("?\n");
  EXPECT_EQ(machine.timesAsked("arguments"), 2u);
}

TEST_F(DetailsScreen, WarnsInColour) {
  for (const int32_t coloured : {1, 0}) {
    store(g_Color, coloured);
    afterKeys("");
    EXPECT_EQ(CursesScreen::cell(0, 0).pair, coloured != 0 ? kPairWarning : 0);
    EXPECT_EQ(CursesScreen::cell(0, 60).pair, coloured != 0 ? kPairWarning : 0);
    EXPECT_EQ(CursesScreen::cell(1, 0).pair, 0);
  }
}

TEST_F(DetailsScreen, MarksAProcessThatIsNotSigned) {
  for (const int32_t coloured : {1, 0}) {
    store(g_Color, coloured);
    DetailsReport report = openDetailsReport(record_, {});
    printDetails(&report);
    EXPECT_EQ(CursesScreen::cell(3, 0).pair, 0);
    report.signing = kNotSigned;
    printDetails(&report);
    EXPECT_THAT(CursesScreen::text(3), StartsWith("Process: 40"));
    EXPECT_EQ(CursesScreen::cell(1, 0).pair, 0);
    EXPECT_EQ(CursesScreen::cell(3, 0).pair, coloured != 0 ? kPairWarning : 0);
  }
}

TEST_F(DetailsScreen, SaysThatThereIsNoCore) {
  for (const char *key : {"c", "C"}) {
    clearStatusBar();
    errorOutputOf([&] { afterKeys(key); });
    EXPECT_STREQ(getStatusBar(), "No core of process 40: no task port");
    // Once on the details.
    printStatusBar();
    printStatusBar();
    EXPECT_STRNE(getStatusBar(), "");
    printStatusBar();
    EXPECT_STREQ(getStatusBar(), "");
  }
}

TEST_F(DetailsScreen, ScrollsToTheEndOfALongReport) {
  ASSERT_EQ(wresize(stdscr, 10, CursesScreen::columns()), OK);
  const std::string text = afterKeys("");
  EXPECT_THAT(text, Not(HasSubstr("Warning")));
  EXPECT_EQ(rowOf("0 File descriptors: 0 files"), CursesScreen::rows() - 2);
}

TEST_F(DetailsScreen, FitsAnyTerminal) {
  for (const int rows : {1, 2, 5}) {
    for (const int columns : {1, 2, 3, 30}) {
      ASSERT_EQ(wresize(stdscr, rows, columns), OK);
      afterKeys("fhrta");
      EXPECT_EQ(result_, 0) << rows << "x" << columns;
    }
  }
}

TEST_F(DetailsScreen, AsksAnewAfterEachKey) {
  sampled::Process &process = machine.processes[kHello];
  process.info.ptinfo.pti_threadnum = 12;
  process.queue = {2, 1, 0, 0};
  process.sandboxed = 1;
  machine.container = "/container";
  sampled::SampledMachine::addDescriptor(process, darwin::PROX_FDTYPE_VNODE);
  process.usage.ri_diskio_bytesread = 4096;
  proc_pid_rusage_funcptr = darwin::proc_pid_rusage;
  const std::string text = afterKeys("ff");
  EXPECT_THAT(text, HasSubstr("\n#Threads: 12   Workqueues:2 threads (1 running, 0 blocked)"));
  EXPECT_THAT(text, HasSubstr("\nContainer: /container\n"));
  EXPECT_THAT(text, HasSubstr("\nDisk I/O:          4K Read"));
  EXPECT_THAT(text, HasSubstr("\n1 File descriptors: 1 files"));
  EXPECT_NE(record_->fdDetails, nullptr);
  // What sampling counts stays its own.
  EXPECT_EQ(g_Total_Rusage.ri_diskio_bytesread, 0u);
}

TEST_F(DetailsScreen, HasTheUsageThatTheKernelKnows) {
  proc_pid_rusage_funcptr = darwin::proc_pid_rusage;
  for (const int32_t version : {9, 10}) {
    g_OsVer = version;
    EXPECT_THAT(afterKeys("f"), HasSubstr("\nDisk I/O:"));
  }
  machine.refusals["resourceUsage"] = darwin::DARWIN_EPERM;
  EXPECT_THAT(afterKeys("f"), Not(HasSubstr("\nDisk I/O:")));
  machine.refusals.clear();
  proc_pid_rusage_funcptr = nullptr;
  EXPECT_THAT(afterKeys("f"), Not(HasSubstr("\nDisk I/O:")));
}

TEST_F(DetailsScreen, KeepsWhatTheKernelNoLongerTells) {
  record_->taskAllInfo.ptinfo.pti_threadnum = 3;
  machine.refusals["taskAllInfo"] = darwin::DARWIN_ESRCH;
  std::string text;
  EXPECT_EQ(errorOutputOf([&] { text = afterKeys("f"); }), "proc_pidinfo: No such process\n");
  EXPECT_THAT(text, HasSubstr("\nProcess: 40     Name: Hello"));
  EXPECT_THAT(text, HasSubstr("\n#Threads:  3   "));
}

TEST_F(DetailsScreen, IsLeftWhenTheProcessIsGone) {
  machine.whenAskedForArguments = [this] {
    if (machine.timesAsked("arguments") == 2) machine.argumentsRefusal = darwin::DARWIN_EINVAL;
  };
  std::string text;
  EXPECT_EQ(errorOutputOf([&] { text = afterKeys("f"); }), "sysctl:PROCARGS: Invalid argument\n");
  EXPECT_EQ(result_, -1);
  EXPECT_THAT(text, StartsWith(std::string(kWarning) + "Process: 40     Name: Hello"));
  EXPECT_THAT(text, Not(HasSubstr("Flags")));
  EXPECT_EQ(wgetch(stdscr), 'q') << "the report ends at once";
}

TEST_F(DetailsScreen, IsLeftWhenTheTerminalIsGone) {
  keyboard_.reset();
  EXPECT_EQ(showProcessDetails(record_, {}), 0);
  EXPECT_THAT(allText(), StartsWith(kWarning));
}

TEST_F(DetailsScreen, IsLeftWhenTheProgramIsToEnd) {
  EXPECT_EXIT(
      {
        askForEnd(kEndByKey);
        showProcessDetails(record_, {});
        _exit(7);
      },
      ExitedWithCode(7), "");
}

class DetailsFromTheList : public DetailsScreen {
 protected:
  DetailsFromTheList() { refresh(); }

  // As the refresh loop does: a new table takes the place of the one that was shown.
  static void refresh() {
    ProcessRecord *retired = load(g_previous_process_information);
    ProcessRecord *table = allocateProcessTable(2);
    ASSERT_NE(table, nullptr);
    table[0].taskAllInfo.pbsd.pbi_pid = kHello;
    table[0].taskAllInfo.pbsd.pbi_status = darwin::SSLEEP;
    std::strcpy(table[0].taskAllInfo.pbsd.pbi_comm, "Hello");
    table[0].numFDs = 1;
    table[0].displayed = 1;
    table[0].fds[0] = {0, darwin::PROX_FDTYPE_VNODE};
    table[0].fdDetails = static_cast<uint8_t *>(std::calloc(1, kFDDetailSize));
    table[1].taskAllInfo.pbsd.pbi_pid = 41;
    table[1].taskAllInfo.pbsd.pbi_ppid = kHello;
    std::strcpy(table[1].taskAllInfo.pbsd.pbi_comm, "child");
    setCurrentTable({table, 2});
    setPreviousTable({table, 2});
    setDrawnTable({table, 2});
    retireProcessTable(retired);
  }

  void openWith(const std::string &keys) {
    typeKeys(keysOf(keys));
    noteKeysAreSeen();
    handleKey('\n');
  }
};

TEST_F(DetailsFromTheList, OpenTheSelectedProcess) {
  openWith("q");
  EXPECT_THAT(allText(), HasSubstr("\nProcess: 40     Name: Hello"));
  EXPECT_THAT(allText(), HasSubstr("\n1 File descriptors: 1 files"));
  EXPECT_FALSE(holdsDrawingLock());
  openWith("hq");
  EXPECT_THAT(allText(), ContainsRegex("Process Hierarchy:\n 40    Hello\n . 41    child\n"));
}

TEST_F(DetailsFromTheList, OpenNothingWithoutASelection) {
  store(g_Row, -1);
  openWith("q");
  store(g_Row, 0);
  for (const int32_t selected : {-1, 2, 1000}) {
    store(g_selectedProcess, selected);
    noteKeysAreSeen();
    handleKey('\n');
  }
  EXPECT_EQ(machine.timesAsked("arguments"), 0u);
  EXPECT_EQ(wgetch(stdscr), 'q');
}

// The screen may stay open for hours: no table is kept from being released, and what it shows does
// not go with one.
TEST_F(DetailsFromTheList, BearAnyNumberOfRefreshes) {
  machine.whenAskedForArguments = [] {
    for (int i = 0; i < 50; i++) {
      ASSERT_TRUE(hasRoomForTable());
      refresh();
    }
  };
  openWith("fhrtaFHq");
  EXPECT_EQ(machine.timesAsked("arguments"), 8u);
  EXPECT_THAT(allText(), HasSubstr("\nProcess: 40     Name: Hello"));
}

TEST_F(DetailsFromTheList, LeaveTheListsRecordAsItWas) {
  const ProcessRecord *shown = load(g_previous_process_information);
  const uint8_t *details = shown->fdDetails;
  openWith("ffq");
  EXPECT_EQ(shown->fdDetails, details);
  EXPECT_STREQ(shown->path, "");
}

}  // namespace
