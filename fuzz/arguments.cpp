// The argument areas of a process as the kernel answers them, in the details report and for a core
// file of the first region. Bits of the first byte say: 1 whether the report shows the arguments; 4
// whether the kernel tells of more than it gave, as for an area that is cut; 8 whether it fails.
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "darwin/sysctl.h"
#include "fuzz/input.h"
#include "fuzz/printed.h"
#include "host/none/no_machine.h"
#include "inspect/details_report.h"
#include "proc/process_record.h"
#include "state/display.h"
#include "vm/core_dump.h"

using namespace sondex;
using fuzz::check;

namespace {

constexpr int32_t kPID = 77;
constexpr darwin::mach_port_t kPort = 1;
// Of what is printed besides the path.
constexpr size_t kOthers = 4096;

std::string_view g_area;
bool g_tellsMore = false;
bool g_fails = false;

void checkPath(const ProcessRecord &record) {
  check(fuzz::isTerminated(record.path));
  std::string_view path = g_area.substr(std::min(g_area.size(), sizeof(int32_t)));
  path = path.substr(0, path.find('\0'));
  check(path.substr(0, sizeof record.path - 1) == record.path);
}

}  // namespace

extern "C" int __wrap_sysctl(int *name, unsigned int count, void *old, size_t *size, void *,
                             size_t) {
  const bool isArea = count == 3 && name[2] == kPID && old != nullptr;
  if (!isArea || g_fails) {
    errno = isArea ? EINVAL : ENOENT;
    return -1;
  }
  const std::string_view given = g_area.substr(0, *size);
  std::memcpy(old, given.data(), given.size());
  *size = g_tellsMore ? g_area.size() + *size : given.size();
  return 0;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  static host::NoMachine machine;
  host::useMachine(&machine);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Input input(data, size);
  const uint8_t how = input.byte();
  g_area = input.rest();
  g_tellsMore = (how & 4) != 0;
  g_fails = (how & 8) != 0;
  store(g_showArgs, how & 1);

  const fuzz::Printed report(stdout, size + kOthers);
  const fuzz::Printed messages(stderr, size + kOthers);
  static ProcessRecord record;
  record = {};
  record.taskAllInfo.pbsd.pbi_pid = kPID;
  const DetailsReport details = openDetailsReport(&record, {});
  check((printDetails(&details) == 0) == !g_fails);
  if (!g_fails) checkPath(record);
  dumpCore(kPID, kPort, kBinaryCore);
  return 0;
}
