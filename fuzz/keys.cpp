// Keys on the full screen, with a device that changes between them. Each step of the input is a
// byte: below 128 a key, then those keys that are more than a byte, then what happens on the
// device, another size of the screen, a sample that is not drawn, and the next frame. What a key
// opens is answered from the bytes behind it.
#include <curses.h>
#include <fcntl.h>
#include <unistd.h>

#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "columns/perspective.h"
#include "columns/sort.h"
#include "control/keys.h"
#include "device/kernel.h"
#include "fuzz/input.h"
#include "fuzz/printed.h"
#include "host/simulator/device_file.h"
#include "host/simulator/simulated_machine.h"
#include "proc/sampler.h"
#include "screens/process_list.h"
#include "state/display.h"
#include "state/system.h"
#include "terminal/drawing_lock.h"
#include "terminal/ending.h"
#include "terminal/key_codes.h"
#include "terminal/lost_screen.h"
#include "terminal/output.h"
#include "tests/unit/display_state.h"

using namespace sondex;
using fuzz::check;
using host::simulator::Device;
using host::simulator::SimulatedMachine;

namespace {

// Names that drive a terminal, break its rows or are no text. No process gives its memory: a core
// would be a file in /tmp.
constexpr char kDevice[] = R"(
interface = [{ name = "en0", received = { growth = "10K" } }]
process = [
  { pid = 1, name = "launchd", threads = 600 },
  { pid = 50, name = "\u001B[2J\u001B[H", user = 501, arguments = ["\u001B]0;a\u0007", "\n\n"] },
  { pid = 51, name = "\u65E5\u672C\u8A9E\u65E5\u672C", descriptors = [
    { type = "tcp", local = "10.0.0.1:4000", remote = "10.0.0.2:443", received = "1M", sent = "2K" },
    { type = "file", path = "/a\u202Eb\tc" } ] },
  { pid = 52, name = "a\nb%s%n", sandbox = true },
  { pid = 53, parent = 52, name = "", status = "stop" },
  { pid = 54, parent = 53, name = "child" },
]
event = [
  { at = 0, do = "fail", call = "task_for_pid", error = "EPERM" },
  { at = 2, every = 3, do = "fork", process = 54 },
]

[kernel]
version = "Darwin Kernel Version 18.7.0: root:xnu-4903.272.1~1/RELEASE_ARM64_T8020"

[clock]
mode = "stepped"
step = 1
start = 2024-03-05T14:07:09Z
zone = "UTC"

[hardware]
processor = [{ copies = 3, user = { growth = 30 } }]

[gestalt]
marketing-name = "iPhone\u001B[31m"

[power]
)";

constexpr int kKeys[] = {kUp,           kDown, kLeft, kRight,  kShiftedLeft,
                         kShiftedRight, kHome, kEnd,  kPageUp, kPageDown};
enum Step : uint8_t {
  kFirstKey = 128,
  kFirstChange = kFirstKey + std::size(kKeys),
  kExit = kFirstChange,
  kZombie,
  kStart,
  kFork,
  kResize,
  kSample,
  kFrame,  // and all others
};

constexpr int kRows = 24;
constexpr int kColumns = 80;
constexpr int kMostRows = 100;

Device g_device;
int g_typing = -1;  // where keys are typed

const Device &readDevice() {
  auto read = host::simulator::parseDevice(kDevice, "keys");
  if (const auto *mistake = std::get_if<host::simulator::Mistake>(&read)) {
    std::fprintf(stderr, "%s\n", mistake->text().c_str());
    std::abort();
  }
  return g_device = std::get<Device>(std::move(read));
}

void openScreenWithoutTerminal() {
  int ends[2];
  check(pipe2(ends, O_NONBLOCK | O_CLOEXEC) == 0 && dup2(ends[0], STDIN_FILENO) >= 0);
  g_typing = ends[1];
  // Nobody is to see what is drawn or said, and no terminal's size is to count.
  const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
  check(nowhere >= 0 && dup2(nowhere, STDOUT_FILENO) >= 0);
  stderr = fdopen(dup(nowhere), "w");
  setenv("LINES", "24", 1);
  setenv("COLUMNS", "80", 1);
  setlocale(LC_CTYPE, "C.UTF-8");
  check(newterm("xterm-256color", fdopen(nowhere, "w"), stdin) != nullptr);
  start_color();
  nodelay(stdscr, TRUE);
  keypad(stdscr, TRUE);
}

// A key of the list that opens nothing is done at once. What others open, three questions or a page
// with help in front, is left at the latest when the keys behind it have been typed.
void press(int key, std::string_view typed) {
  constexpr std::string_view kLeave = "\n\n\nq";
  const std::string keys = std::string(typed).append(kLeave);
  check(write(g_typing, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size()));
  handleKey(key);
  char left[512];
  flushinp();
  while (read(STDIN_FILENO, left, sizeof left) > 0) continue;
}

void pressKey(int key, fuzz::Input &input) {
  // These leave the program, and a file in /tmp.
  if (key == 'q' || key == 'Q' || key == '!') return;
  constexpr std::string_view kOpening = "/UuJKTtG?\n";
  const bool opens = key < 128 && kOpening.find(static_cast<char>(key)) != std::string_view::npos;
  press(key, opens ? input.take(input.byte() % 80) : std::string_view());
}

int32_t shownRows() {
  const TableView table = drawnTable();
  int32_t rows = 0;
  for (int32_t i = 0; i < table.count; i++) rows += table.records[i].displayed;
  return rows;
}

void sample() {
  g_Prev_Total_Rusage = g_Total_Rusage;
  g_Total_Rusage = {};
  setCurrentTable(getPIDList());
  doSort(sortOf(getCurrentPerspective()));
}

void drawFrame() {
  beginList();
  showProcesses(currentTable(), previousTable(), getFilter());
  sendFrame();
  noteKeysAreSeen();
}

void keepAsPrevious() {
  ProcessRecord *retired = previousTable().records;
  indexProcessTable(currentTable());
  setPreviousTable(currentTable());
  if (retired != drawnTable().records) retireProcessTable(retired);
}

void keepAsDrawn() {
  ProcessRecord *retired = drawnTable().records;
  setDrawnTable(currentTable());
  if (retired != currentTable().records) retireProcessTable(retired);
}

// As the refresh loop does, which leaves frames out while it does not have the screen.
void refresh(bool draws) {
  const bool updating = load(g_updates) != 0;
  if (updating) sample();
  if (draws) drawFrame();
  if (updating) keepAsPrevious();
  if (draws) keepAsDrawn();
}

void checkDisplay() {
  const Perspective *perspective = getCurrentPerspective();
  const int32_t selected = load(perspective->selectedColumn);
  check(selected >= 0 && selected < perspective->numColumns);
  check(load(g_firstProcToShow) >= 0 && load(g_Row) >= -1);
  check(load(g_selectedProcess) >= -1);
  check(reasonToEnd() == 0 && holdsDrawingLock() && hasRoomForTable());
  check(shownRows() <= kMostRows);
}

void change(Step step, fuzz::Input &input, SimulatedMachine &machine) {
  const uint8_t pid = input.byte();
  if (step == kStart) {
    host::simulator::Process process;
    process.name = input.take(pid % 32);
    machine.happen(host::simulator::StartProcess{process});
  } else if (step == kFork) {
    machine.happen(host::simulator::ForkProcess{pid, -1});
  } else {
    machine.happen(host::simulator::ExitProcess{pid, 0, step == kZombie});
  }
}

void takeStep(fuzz::Input &input, SimulatedMachine &machine) {
  const uint8_t step = input.byte();
  if (step < kFirstKey) {
    pressKey(step, input);
  } else if (step < kFirstChange) {
    pressKey(kKeys[step - kFirstKey], input);
  } else if (step < kResize) {
    change(static_cast<Step>(step), input, machine);
  } else if (step == kResize) {
    const int rows = 1 + input.byte() % kMostRows;
    const int columns = 1 + input.byte();
    resizeterm(rows, columns);
  } else {
    refresh(step != kSample);
  }
}

// The names on the screen went through curses; here they can be seen as they are written.
void checkPlainList() {
  constexpr size_t kRoom = 1 << 20;
  store(wantCurses, 0);
  const fuzz::Printed list(stdout, kRoom);
  showProcesses(currentTable(), previousTable(), nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  readDevice();
  openScreenWithoutTerminal();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  SimulatedMachine machine(g_device);
  host::Machine *const before = host::useMachine(&machine);
  {
    const DisplayStateGuard guard;
    store(wantCurses, 1);
    store(cursesFailed, 0);
    g_gotGestalt = 1;
    g_r00t = 1;
    host_self = darwin::mach_host_self();
    noteKernelVersion(g_device.kernel.version.c_str());
    resizeterm(kRows, kColumns);
    // So that keys find the screen at once, and don't wait for frames.
    check(tryLockDrawing());
    fuzz::Input input(data, size);
    refresh(true);
    while (!input.isEmpty()) {
      takeStep(input, machine);
      checkDisplay();
    }
    refresh(true);
    checkPlainList();
    unlockDrawing();
    applyFilter(nullptr);
  }
  host::useMachine(before);
  return 0;
}
