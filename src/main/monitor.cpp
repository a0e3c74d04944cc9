#include "main/monitor.h"

namespace sondex {

void do_monitor(int, char **) {}

void doVMPressureMonitor(int) {}

}  // namespace sondex
