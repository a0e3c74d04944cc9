#include "screens/gestalt.h"

#include <stdio.h>
#include <stdlib.h>

#include "device/gestalt.h"
#include "state/display.h"
#include "state/system.h"
#include "terminal/ending.h"
#include "terminal/output.h"
#include "terminal/page.h"
#include "text/safe_text.h"

namespace sondex {

void outputGestaltAnswer(const char *key) {
  const char *answer = gestaltAnswer(key);
  char *safe = answer != nullptr ? copySafe(answer) : nullptr;
  output(safe != nullptr ? safe : "?", 0);
  free(safe);
}

struct Row {
  const char *label;
  const char *key;
};

static const Row kRows[] = {
    {"\n\tName:         \t", "ComputerName"},
    {"\n\tDevice Type:   \t", "marketing-name"},
    {"(", "HWModelStr"},
    {")\n\tOS version:\t", "ProductName"},
    {" ", "ProductVersion"},
    {"(", "BuildVersion"},
    {")\n\tSerial Number:  ", "SerialNumber"},
    {"\n\tUDID:           ", "UniqueDeviceID"},
    {"\n\tChipset:        ", "HardwarePlatform"},
    {"(", "CPUArchitecture"},
    {")\n\nMAC Addresses:\n\tWi-Fi MAC:    \t", "WifiAddress"},
    {"\n\tEthernet MAC:\t", "EthernetMacAddress"},
    {"\n\tBlueTooth MAC:\t", "BluetoothAddress"},
};

const char *gestaltKeyAt(size_t index) {
  return index < sizeof kRows / sizeof *kRows ? kRows[index].key : nullptr;
}

[[noreturn]] static void endUnsupported() {
  store(wantCurses, 0);
  endProgram(1, stdout, "Gestalt is only supported on *OS (Blame AAPL for this, not Z)\n");
}

static void writeAnswers(int32_t) {
  output("Gestalt Details for this OS:\n", 0);
  for (const Row &row : kRows) {
    output(row.label, 0);
    outputGestaltAnswer(row.key);
  }
  output("\n", 0);
}

void showGestalt() {
  if (g_gotGestalt == 0) endUnsupported();
  showPage(writeAnswers, 0);
}

}  // namespace sondex
