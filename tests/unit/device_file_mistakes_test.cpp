// Mistakes in device files: each is told with its line, the keys that lead there, what is wrong and
// what was expected; and what would be too much is refused before it is made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "tests/unit/device_file_text.h"

namespace {

using namespace device_file_test;
using namespace host::simulator;
using testing::HasSubstr;
using testing::StartsWith;

struct MistakeCase {
  const char *name;
  const char *text;
  const char *mistake;  // after the file's name
};

std::string nameOf(const testing::TestParamInfo<MistakeCase> &info) {
  return info.param.name;
}

class DeviceFileMistake : public testing::TestWithParam<MistakeCase> {};

TEST_P(DeviceFileMistake, IsToldInFull) {
  EXPECT_EQ(mistakeIn(GetParam().text), std::string(kFile) + GetParam().mistake);
}

#define TOP_LEVEL                                                                                  \
  "one of \"kernel\", \"clock\", \"hardware\", \"memory\", \"swap\", \"load\", \"memory-level\", " \
  "\"interface\", \"wifi\", \"power\", \"gestalt\", \"template\", \"process\", \"event\", "        \
  "\"name\", "                                                                                     \
  "\"caller\", \"background\", \"counted-sockets\", \"told-zombies\""

#define A_ZONE "a time zone such as \"UTC\" or \"CET-1CEST,M3.5.0,M10.5.0/3\""

const MistakeCase kTables[] = {
    {"NotToml", "name = \"a\"\n\nname = 3\n",
     ":3: Error while parsing key-value pair: cannot redefine existing string 'name'"},
    {"NoProcess", "name = \"a\"\n", ": process: is missing; expected an array of tables"},
    {"UnknownKey", "nam = \"a\"\n", ":1: nam: unknown key; expected \"name\""},
    {"UnknownTable", "[[process]]\nname = \"a\"\n[colour]\nx = 1\n",
     ":3: colour: unknown key; expected " TOP_LEVEL},
    {"FirstUnknownKeyOfTheFile", "[kernel]\nzeta = 1\nalpha = 2\n",
     ":2: kernel.zeta: unknown key; expected one of \"version\", \"release\", \"host\", "
     "\"hardware\", \"page-size\", \"timebase\", \"missing\", \"kernel-task\", "
     "\"first-source\", \"extensions\""},
    {"ProcessIsATable", "[process]\nname = \"a\"\n",
     ":1: process: found a table; expected an array"},
    {"KernelIsANumber", "kernel = 5\n", ":1: kernel: found 5; expected a table"},
    {"Caller", "caller = -1\n", ":1: caller: found -1; expected a number from 0 to 4294967295"},
    {"PageSize", "[kernel]\n\npage-size = \"8K\"\n",
     ":3: kernel.page-size: found \"8K\"; expected 4096 or 16384"},
    {"Timebase", "[kernel]\ntimebase = [1, 0]\n",
     ":2: kernel.timebase[1]: found 0; expected a number from 1 to 4294967295"},
    {"Missing", "[kernel]\nmissing = [\"proc_listpids\"]\n",
     ":2: kernel.missing[0]: found \"proc_listpids\"; expected several of "
     "\"memorystatus_get_level\", \"proc_pid_rusage\", \"MGCopyAnswerWithError\", "
     "\"mach_vm_page_range_query\""},
    {"ClockMode", "[clock]\nmode = \"fast\"\n",
     ":2: clock.mode: found \"fast\"; expected one of \"wall\", \"stepped\""},
    {"SteppedClockAlone", "\n[clock]\nmode = \"stepped\"\nzone = \"UTC\"\n",
     ":2: clock: a stepped clock without `start` or `zone`; expected both of them"},
    {"StartWithoutOffset", "[clock]\nstart = 2024-03-05T14:07:09\n",
     ":2: clock.start: found a time of day without an offset; expected a time of day from 1970 on "
     "such as 2024-03-05T14:07:09Z"},
    {"StepOfZero", "[clock]\nstep = 0\n", ":2: clock.step: found 0; expected a time above 0"},
    {"TimeTooLong", "[clock]\nup = 1e300\n",
     ":2: clock.up: found 1e+300; expected a time in seconds from 0 to 1000000000"},
    {"TimeIsNoNumber", "[clock]\nup = nan\n",
     ":2: clock.up: found nan; expected a time in seconds from 0 to 1000000000"},
    {"Zone", "[clock]\nzone = \"U C\"\n", ":2: clock.zone: found \"U C\"; expected " A_ZONE},
    {"ZoneOfAFile", "[clock]\nzone = \":/etc/localtime\"\n",
     ":2: clock.zone: found \":/etc/localtime\"; expected " A_ZONE},
    {"ZoneByName", "[clock]\nzone = \"Europe/Berlin\"\n",
     ":2: clock.zone: found \"Europe/Berlin\"; expected " A_ZONE},
    {"ZoneWithoutRules", "[clock]\nzone = \"CET-1CEST\"\n",
     ":2: clock.zone: found \"CET-1CEST\"; expected " A_ZONE},
    {"NoZone", "[clock]\nzone = \"\"\n", ":2: clock.zone: found \"\"; expected " A_ZONE},
    {"Size", "[hardware]\nmemory = \"4 G\"\n",
     ":2: hardware.memory: found \"4 G\"; expected a size such as 4096 or \"1.5M\""},
    {"SizeTooLarge", "[hardware]\nmemory = \"9000000P\"\n",
     ":2: hardware.memory: found \"9000000P\"; expected a size such as 4096 or \"1.5M\""},
    {"TooManyProcessors",
     "[[hardware.processor]]\ncopies = 200\n[[hardware.processor]]\ncopies = 57\n",
     ":3: hardware.processor[1]: makes more than 256 processors; expected at most that many"},
    {"Figure", "[memory]\nfree = \"a\"\n",
     ":2: memory.free: found \"a\"; expected a number, or a table"},
    {"FigureBelowZero", "[memory]\nfree = { start = -1 }\n",
     ":2: memory.free.start: found -1; expected a number"},
    {"FigureWithUnknownKey", "[memory]\nfree = { strat = 1 }\n",
     ":2: memory.free.strat: unknown key; expected one of \"start\", \"growth\", \"swing\", "
     "\"period\", \"phase\""},
    {"Growth", "[memory]\nfree = { growth = inf }\n",
     ":2: memory.free.growth: found inf; expected a number from -9000000000000 to 9000000000000, "
     "for each second"},
    {"Phase", "[memory]\nfree = { swing = 1, phase = 1.5 }\n",
     ":2: memory.free.phase: found 1.5; expected a number from 0 to 1"},
    {"Period", "[memory]\nfree = { swing = 1, period = 0 }\n",
     ":2: memory.free.period: found 0; expected a time above 0"},
    {"MemoryLevel", "memory-level = 101\n",
     ":1: memory-level: found 101; expected a number from 0 to 100, or a table"},
    {"Load", "load = [1, 2]\n", ":1: load: found an array; expected an array of three figures"},
    {"LoadOfOneProcessor", "load = [1, 2, 1000001]\n",
     ":1: load[2]: found 1000001; expected a load average from 0 to 1000000, or a table"},
    {"InterfaceWithoutName", "[[interface]]\nmtu = 5\n",
     ":1: interface[0].name: is missing; expected a text"},
    {"InterfaceNameTooLong", "[[interface]]\nname = \"0123456789abcdef\"\n",
     ":2: interface[0].name: found a text of 16 bytes; expected a text of at most 15 bytes"},
    {"InterfaceTwice", "[[interface]]\nname = \"en0\"\n[[interface]]\nname = \"en0\"\n",
     ":4: interface[1].name: another interface is called \"en0\" already; expected a name of its "
     "own"},
    {"Radios", "[wifi]\nradios = []\n",
     ":2: wifi.radios: found an array; expected an array of one to four numbers"},
    {"Remaining", "[power]\nremaining = \"long\"\n",
     ":2: power.remaining: found \"long\"; expected one of \"unknown\", \"unlimited\""},
    {"Charging", "[power]\nsource = [{ charging = 1 }]\n",
     ":2: power.source[0].charging: found 1; expected true or false"},
    {"AssertionOfNobody",
     "[[process]]\nname = \"a\"\n[power]\nassertions = [{ process = \"b\", names = [] }]\n",
     ":4: power.assertions[0].process: no process is called \"b\"; expected a PID, or the name of "
     "one process alone"},
    {"GestaltRefusedByNothing", "[gestalt]\na = { error = 0 }\n",
     ":2: gestalt.a.error: found 0; expected a number other than 0"},
    {"Gestalt", "[gestalt]\na = 1.5\n",
     ":2: gestalt.a: found 1.5; expected a text, a number, a flag or { error = NUMBER }"},
    {"ZeroByte", "name = \"a\\u0000b\"\n",
     ":1: name: found a text with a zero byte; expected a text of at most 1023 bytes"},
};
INSTANTIATE_TEST_SUITE_P(Tables, DeviceFileMistake, testing::ValuesIn(kTables), nameOf);

#define A_PROCESS "[[process]]\nname = \"a\"\n"

const MistakeCase kProcesses[] = {
    {"NoName", "[[process]]\npid = 1\n",
     ":1: process[0]: has neither `name` nor `names`; expected one of them"},
    {"NameBesideNames", "[[process]]\nname = \"a\"\nnames = [\"b\"]\n",
     ":2: process[0].name: found `name` beside `names`; expected one of them"},
    {"CopiesBesideNames", "[[process]]\nnames = [\"b\"]\ncopies = 2\n",
     ":3: process[0].copies: found `copies` beside `names`; expected one of them"},
    {"NoNames", "[[process]]\nnames = []\n",
     ":2: process[0].names: found no name; expected at least one"},
    {"Pid", A_PROCESS "pid = 100000\n",
     ":3: process[0].pid: found 100000; expected a number from 0 to 99999"},
    {"PidTwice", A_PROCESS "pid = 4\n[[process]]\nname = \"b\"\npid = 4\n",
     ":6: process[1].pid: found 4, which is the PID of \"a\" already; expected a PID of its own"},
    {"NoPidLeft", A_PROCESS "pid = 99999\n[[process]]\nname = \"b\"\n",
     ":4: process[1]: there is no PID above 99999 left for it; expected a smaller `pid`"},
    {"Copies", A_PROCESS "copies = 0\n",
     ":3: process[0].copies: found 0; expected a number from 1 to 20000"},
    {"PathTooLongWithPattern",
     "[[process]]\nname = \"0123456789012345678901234567890123456789\"\npath = \""
     "{name}{name}{name}"
     "{name}{name}{name}{name}{name}{name}{name}{name}{name}{name}{name}{name}{name}{name}{name}"
     "{name}{name}{name}{name}{name}{name}{name}{name}\"\n",
     ":3: process[0].path: found a text of 1040 bytes once its patterns are filled in; expected a "
     "text of at most 1023 bytes"},
    {"ParentUnknown", A_PROCESS "parent = \"b\"\n",
     ":3: process[0].parent: no process is called \"b\"; expected a PID, or the name of one "
     "process alone"},
    {"ParentAmbiguous", "[[process]]\nnames = [\"b\", \"b\"]\n" A_PROCESS "parent = \"b\"\n",
     ":5: process[1].parent: several processes are called \"b\"; expected a PID, or the name of "
     "one process alone"},
    {"Bits", A_PROCESS "bits = 16\n", ":3: process[0].bits: found 16; expected 32 or 64"},
    {"OlderThanTheDevice", "[clock]\nup = 10\n" A_PROCESS "age = 11\n",
     ":5: process[0].age: found a process that is older than the device; expected at most "
     "`clock.up`"},
    {"Sandbox", A_PROCESS "sandbox = \"yes\"\n",
     ":3: process[0].sandbox: found \"yes\"; expected true, false or \"unknown\""},
    {"Signature", A_PROCESS "signature = \"abc\"\n",
     ":3: process[0].signature: found \"abc\"; expected pairs of hexadecimal digits"},
    {"Coalition", A_PROCESS "coalition = [1]\n",
     ":3: process[0].coalition: found an array; expected a number, or an array of two"},
    {"WorkQueue", A_PROCESS "work-queue = { thread = 1 }\n",
     ":3: process[0].work-queue.thread: unknown key; expected \"threads\""},
    {"Spread", A_PROCESS "spread = 1\n",
     ":3: process[0].spread: found 1; expected a number from 0 to 0.9"},
    {"Share", A_PROCESS "threads = [{}, { share = 101 }]\n",
     ":3: process[0].threads[1].share: found 101; expected a share in percent from 0 to 100, or a "
     "table"},
    {"Threads", A_PROCESS "threads = 5000\n",
     ":3: process[0].threads: found 5000; expected a number from 0 to 4096, or an array of tables"},
    {"ThreadIdTwice", A_PROCESS "threads = [{ id = 3 },\n{ id = 3 }]\n",
     ":4: process[0].threads[1]: another thread has the ID 3 already; expected one of its own"},
    {"ThreadIdWithCopies", A_PROCESS "threads = [{ id = 3, copies = 2 }]\n",
     ":3: process[0].threads[0].id: several threads would have the same id; expected one thread, "
     "or 0"},
    {"ThreadIdInTwoProcesses", A_PROCESS "copies = 2\nthreads = [{ id = 3 }]\n",
     ":1: process[0]: a thread of another process has the ID 3 already; expected one of its own"},
    {"ThreadHandle", A_PROCESS "threads = [{ handle = \"12\" }]\n",
     ":3: process[0].threads[0].handle: found \"12\"; expected an address: a number, or a text "
     "such as \"0xfffffff007b6a1c4\""},
    {"CoalitionNumber", A_PROCESS "coalition = -1\n",
     ":3: process[0].coalition: found -1; expected an address: a number, or a text such as "
     "\"0xfffffff007b6a1c4\""},
    {"SharedMemoryAddress",
     A_PROCESS "descriptors = [{ type = \"shared-memory\", name = \"m\", address = -1 }]\n",
     ":3: process[0].descriptors[0].address: found -1; expected an address: a number, or a text "
     "such as \"0xfffffff007b6a1c4\""},
    {"QueuedEventIdent",
     A_PROCESS "descriptors = [{ type = \"kqueue\", events = [{ filter = 1, ident = -1 }] }]\n",
     ":3: process[0].descriptors[0].events[0].ident: found -1; expected an address: a number, or a "
     "text such as \"0xfffffff007b6a1c4\""},
    {"QueuedEventData",
     A_PROCESS "descriptors = [{ type = \"kqueue\", events = [{ filter = 1, data = \"-1\" }] }]\n",
     ":3: process[0].descriptors[0].events[0].data: found \"-1\"; expected an address: a number, "
     "or a text such as \"0xfffffff007b6a1c4\""},
    {"QueuedEventUserData",
     A_PROCESS "descriptors = [{ type = \"kqueue\", events = [{ filter = 1, udata = 0.5 }] }]\n",
     ":3: process[0].descriptors[0].events[0].udata: found 0.5; expected an address: a number, or "
     "a text such as \"0xfffffff007b6a1c4\""},
    {"RegionOffset", A_PROCESS "regions = [{ address = 0, size = 4096, offset = \"0xg\" }]\n",
     ":3: process[0].regions[0].offset: found \"0xg\"; expected an address: a number, or a text "
     "such as \"0xfffffff007b6a1c4\""},
    {"KernelExtensions", "[kernel]\nextensions = [3]\n" A_PROCESS,
     ":2: kernel.extensions[0]: found 3; expected a text of at most 255 bytes"},
    {"KernelTask", "[kernel]\nkernel-task = 4\n" A_PROCESS,
     ":2: kernel.kernel-task: found 4; expected true or false"},
    {"Registers", A_PROCESS "threads = [{ registers = [1] }]\n",
     ":3: process[0].threads[0].registers: found an array; expected a table"},
    {"RegisterOfAnotherWordSize", A_PROCESS "threads = [{ registers = { r = [1] } }]\n",
     ":3: process[0].threads[0].registers.r: unknown key; expected one of \"pc\", \"sp\", \"lr\", "
     "\"fp\", \"cpsr\", \"x\""},
    {"WideRegisterOf32Bits", A_PROCESS "bits = 32\nthreads = [{ registers = { x = [1] } }]\n",
     ":4: process[0].threads[0].registers.x: unknown key; expected one of \"pc\", \"sp\", \"lr\", "
     "\"cpsr\", \"r\""},
    {"FramePointerOf32Bits", A_PROCESS "bits = 32\nthreads = [{ registers = { fp = 1 } }]\n",
     ":4: process[0].threads[0].registers.fp: unknown key; expected one of \"pc\", \"sp\", \"lr\", "
     "\"cpsr\", \"r\""},
    {"TooLargeFor32Bits", A_PROCESS "bits = 32\nthreads = [{ registers = { pc = 0x100000000 } }]\n",
     ":4: process[0].threads[0].registers.pc: found 4294967296; expected a number from 0 to "
     "4294967295"},
    {"Register", A_PROCESS "threads = [{ registers = { pc = -1 } }]\n",
     ":3: process[0].threads[0].registers.pc: found -1; expected an address: a number, or a text "
     "such as \"0xfffffff007b6a1c4\""},
    {"StatusRegister", A_PROCESS "threads = [{ registers = { cpsr = 0x100000000 } }]\n",
     ":3: process[0].threads[0].registers.cpsr: found 4294967296; expected a number from 0 to "
     "4294967295"},
    {"TooManyRegisters",
     A_PROCESS "bits = 32\nthreads = [{ registers = { r = [0,0,0,0,0,0,0,0,0,0,0,0,0,0] } }]\n",
     ":4: process[0].threads[0].registers.r: found 14 registers; expected at most 13"},
    {"RegistersAreNoArray", A_PROCESS "threads = [{ registers = { x = 1 } }]\n",
     ":3: process[0].threads[0].registers.x: found 1; expected an array"},
    {"RegistersInATemplate",
     "[template.t]\nthreads = [{ registers = { r = [1], pc = 0x100000000 } }]\n" A_PROCESS,
     ":2: template.t.threads[0].registers.pc: found 4294967296; expected a number from 0 to "
     "4294967295"},
    {"WaitEvent", A_PROCESS "threads = [{ wait-event = -1 }]\n",
     ":3: process[0].threads[0].wait-event: found -1; expected an address: a number, or a text "
     "such "
     "as \"0xfffffff007b6a1c4\""},
    {"Continuation", A_PROCESS "threads = [{ continuation = \"fffffff007b6a1c4\" }]\n",
     ":3: process[0].threads[0].continuation: found \"fffffff007b6a1c4\"; expected an address: a "
     "number, or a text such as \"0xfffffff007b6a1c4\""},
    {"KernelStack", A_PROCESS "threads = [{ kernel-stack = [1,\n\"0x1ffffffffffffffff\"] }]\n",
     ":4: process[0].threads[0].kernel-stack[1]: found \"0x1ffffffffffffffff\"; expected an "
     "address: "
     "a number, or a text such as \"0xfffffff007b6a1c4\""},
    {"UserStack", A_PROCESS "threads = [{ user-stack = 0x1000 }]\n",
     ":3: process[0].threads[0].user-stack: found 4096; expected an array"},
    {"AddressWithoutDigits", A_PROCESS "threads = [{ user-stack = [\"0x\"] }]\n",
     ":3: process[0].threads[0].user-stack[0]: found \"0x\"; expected an address: a number, or a "
     "text such as \"0xfffffff007b6a1c4\""},
    {"Donors", A_PROCESS "donors = [1, 100000]\n",
     ":3: process[0].donors[1]: found 100000; expected a number from 0 to 99999"},
    {"DescriptorWithoutType", A_PROCESS "descriptors = [\n{ number = 1 }]\n",
     ":4: process[0].descriptors[0].type: is missing; expected the descriptor's type"},
    {"DescriptorNumberTwice",
     A_PROCESS "descriptors = [{ type = \"nexus\", number = 1, copies = 3 },\n"
               "{ type = \"nexus\", number = 3 }]\n",
     ":4: process[0].descriptors[1].number: another descriptor has the number 3 already; expected "
     "one of its own"},
    {"KeyOfAnotherType", A_PROCESS "descriptors = [{ type = \"route\", path = \"/\" }]\n",
     ":3: process[0].descriptors[0].path: unknown key; expected one of \"type\", \"number\", "
     "\"copies\", \"mode\", \"status\", \"guard\", \"offset\", \"error\", \"label\", \"peer\", "
     "\"address\", \"peer-address\""},
    {"PeerAddressBesidePeer",
     A_PROCESS
     "descriptors = [{ type = \"pipe\", label = \"a\", peer = \"a\", peer-address = 1 }]\n",
     ":3: process[0].descriptors[0].peer-address: found `peer-address` beside `peer`; expected one "
     "of the two"},
    {"AddressOfWords", A_PROCESS "descriptors = [{ type = \"unix\", address = \"here\" }]\n",
     ":3: process[0].descriptors[0].address: found \"here\"; expected an address: a number, or a "
     "text such as \"0xfffffff007b6a1c4\""},
    {"PieceBeyondTheRegion",
     A_PROCESS
     "regions = [{ address = 4096, size = 4096, pieces = [{ at = 4095, bytes = \"0102\" }] "
     "}]\n",
     ":3: process[0].regions[0].pieces[0].bytes: found more bytes than the region has; expected at "
     "most its size"},
    {"PiecesOutOfOrder",
     A_PROCESS
     "regions = [{ address = 4096, size = 4096, pieces = [{ bytes = \"0102\" }, { at = 1, "
     "bytes = \"03\" }] }]\n",
     ":3: process[0].regions[0].pieces[1]: begins before the end of the one before it; expected "
     "one "
     "behind"},
    {"PiecesBesideContents",
     A_PROCESS "regions = [{ address = 4096, size = 4096, contents = \"01\", pieces = [] }]\n",
     ":3: process[0].regions[0].pieces: found `pieces` beside `contents`; expected one of the two"},
    {"FileWithoutPath", A_PROCESS "descriptors = [{ type = \"file\" }]\n",
     ":3: process[0].descriptors[0].path: is missing; expected the file's path"},
    {"Address", A_PROCESS "descriptors = [{ type = \"tcp\", local = \"10.0.0:80\" }]\n",
     ":3: process[0].descriptors[0].local: found \"10.0.0:80\"; expected an address and a port "
     "such "
     "as \"10.0.0.5:443\", \"[fe80::1]:443\" or \"*:443\""},
    {"AddressFilledIn",
     A_PROCESS "pid = 70000\ndescriptors = [{ type = \"tcp\", local = \"*:{pid}\" }]\n",
     ":4: process[0].descriptors[0].local: found \"*:70000\" once its patterns are filled in; "
     "expected an address and a port such as \"10.0.0.5:443\", \"[fe80::1]:443\" or \"*:443\""},
    {"TwoFamilies",
     A_PROCESS
     "descriptors = [{ type = \"tcp\", local = \"10.0.0.1:80\", remote = \"[::1]:1\" }]\n",
     ":3: process[0].descriptors[0].remote: found \"[::1]:1\" beside an address of the other "
     "family; expected two addresses of one family"},
    {"FamilyOfTheOther",
     A_PROCESS "descriptors = [{ type = \"tcp\", local = \"[::1]:80\", family = \"inet\" }]\n",
     ":3: process[0].descriptors[0].family: found \"inet\"; expected the family of its IPv6 "
     "addresses"},
    {"Channel", A_PROCESS "descriptors = [{ type = \"channel\", instance = \"00\" }]\n",
     ":3: process[0].descriptors[0].instance: found 1 bytes; expected 16 bytes"},
    {"QueuedEvent", A_PROCESS "descriptors = [{ type = \"kqueue\", events = [{ ident = 1 }] }]\n",
     ":3: process[0].descriptors[0].events[0].filter: is missing; expected the number of the "
     "filter"},
    {"PeerUnknown", A_PROCESS "descriptors = [{ type = \"unix\", peer = \"x\" }]\n",
     ":3: process[0].descriptors[0].peer: nothing has the label \"x\"; expected the label of its "
     "peer"},
    {"LabelTwice",
     A_PROCESS "descriptors = [{ type = \"unix\", label = \"x\" },\n{ type = \"pipe\", label = "
               "\"x\" }]\n",
     ":4: process[0].descriptors[1].label: \"x\" is the label of another descriptor already; "
     "expected a label of its own"},
    {"PeerOfAnotherType",
     A_PROCESS "descriptors = [{ type = \"unix\", label = \"x\" },\n{ type = \"pipe\", peer = "
               "\"x\" }]\n",
     ":4: process[0].descriptors[1].peer: \"x\" is the label of another type; expected a socket as "
     "the peer of a socket, a pipe of a pipe"},
    {"RegionAddress", A_PROCESS "regions = [{ address = 4097, size = 4096 }]\n",
     ":3: process[0].regions[0].address: found 4097; expected a multiple of 4096"},
    {"RegionSize", A_PROCESS "regions = [{ address = 4096, size = 0 }]\n",
     ":3: process[0].regions[0].size: found 0; expected a multiple of 4096, above 0"},
    {"RegionBeyondTheEnd", A_PROCESS "regions = [{ address = 0x7FFFFFFFFFFFF000, size = 4096 }]\n",
     ":3: process[0].regions[0].address: found a region that ends beyond 2 to 63; expected one "
     "below"},
    {"Protection", A_PROCESS "regions = [{ address = 4096, size = 4096, protection = \"xr-\" }]\n",
     ":3: process[0].regions[0].protection: found \"xr-\"; expected a text such as \"r-x\""},
    {"RegionsOverlap",
     A_PROCESS "regions = [{ address = 0x2000, size = 0x2000 },\n"
               "{ address = 0x1000, size = 0x1000, copies = 2 }]\n",
     ":4: process[0].regions[1]: overlaps another region; expected regions apart from one another"},
    {"Contents", A_PROCESS "regions = [{ address = 4096, size = 4096, contents = \"0g\" }]\n",
     ":3: process[0].regions[0].contents: found \"0g\"; expected pairs of hexadecimal digits"},
    {"InATemplate", "[template.t]\nuser = -1\n" A_PROCESS,
     ":2: template.t.user: found -1; expected a number from 0 to 4294967295"},
    {"DeepInATemplate",
     "[template.t]\nthreads = [\n{ name = \"x\" },\n{ state = \"asleep\" }]\n" A_PROCESS
     "template = \"t\"\n",
     ":4: template.t.threads[1].state: found \"asleep\"; expected one of \"running\", \"stopped\", "
     "\"waiting\", \"uninterruptible\", \"halted\", or a number from 0 to 2147483647"},
    {"TemplateUnknown", A_PROCESS "template = [\n\"t\"]\n",
     ":4: process[0].template[0]: no template is called \"t\"; expected one that the file has"},
    {"TemplateOfItself",
     "[template.a]\ntemplate = \"b\"\n[template.b]\ntemplate = \"a\"\n" A_PROCESS,
     ":2: template.a.template: the template \"b\" takes over itself; expected another template"},
};
INSTANTIATE_TEST_SUITE_P(Processes, DeviceFileMistake, testing::ValuesIn(kProcesses), nameOf);

TEST(DeviceFileMistakes, KeysOfListedProcessesAreUnknownInTemplates) {
  EXPECT_THAT(
      mistakeIn("[template.t]\npid = 4\n" A_PROCESS),
      StartsWith(std::string(kFile) +
                 ":2: template.t.pid: unknown key; expected one of \"template\", \"name\", "));
}

TEST(DeviceFileMistakes, UnknownKeysMuchLikeSeveralNameThose) {
  EXPECT_EQ(mistakeIn("[memory]\npage-ons = 3\n" A_PROCESS),
            std::string(kFile) + ":2: memory.page-ons: unknown key; expected \"page-ins\"");
  EXPECT_EQ(mistakeIn("[memory]\nswap-uts = 3\n" A_PROCESS),
            std::string(kFile) + ":2: memory.swap-uts: unknown key; expected \"swap-outs\"");
  EXPECT_EQ(mistakeIn("[memory]\npage-us = 3\n" A_PROCESS),
            std::string(kFile) +
                ":2: memory.page-us: unknown key; expected one of \"page-ins\", \"page-outs\"");
}

#define AN_EVENT A_PROCESS "[[event]]\n"

const MistakeCase kEvents[] = {
    {"WithoutDo", AN_EVENT "at = 3\n", ":3: event[0].do: is missing; expected what happens"},
    {"Do", AN_EVENT "do = \"jump\"\n",
     ":4: event[0].do: found \"jump\"; expected one of \"start\", \"exit\", \"fork\", \"exec\", "
     "\"stop\", \"continue\", \"change\", \"open\", \"close\", \"pressure\", \"power\", \"fail\""},
    {"ForWhereNothingIsUndone", AN_EVENT "do = \"pressure\"\nfor = 5\n",
     ":5: event[0].for: found `for` where nothing is undone; expected it with \"start\", \"stop\", "
     "\"open\" or \"fail\" alone"},
    {"Every", AN_EVENT "do = \"pressure\"\nevery = 0.05\n",
     ":5: event[0].every: found 0.05; expected a time of at least 0.1"},
    {"WithoutProcess", AN_EVENT "do = \"exit\"\n",
     ":3: event[0].process: is missing; expected a PID or a process's name"},
    {"ProcessUnknown", AN_EVENT "do = \"exit\"\nprocess = \"b\"\n",
     ":5: event[0].process: no process is called \"b\"; expected a PID, or the name of one process "
     "alone"},
    {"ProcessStartsTwice",
     AN_EVENT "do = \"start\"\nname = \"a\"\npid = 9\n[[event]]\ndo = \"exit\"\nprocess = \"a\"\n",
     ":9: event[1].process: several processes are called \"a\"; expected a PID, or the name of one "
     "process alone"},
    {"PidNotKnownYet",
     AN_EVENT "do = \"start\"\nname = \"b\"\n[[event]]\ndo = \"exit\"\nprocess = \"b\"\n",
     ":8: event[1].process: \"b\" gets its PID only when it starts, as the event names none; "
     "expected a process whose PID is known"},
    {"StartWithoutName", AN_EVENT "do = \"start\"\n",
     ":3: event[0]: has neither `name` nor `names`; expected one of them"},
    {"KeyOfAnotherEvent", AN_EVENT "do = \"stop\"\nprocess = 1\nzombie = true\n",
     ":6: event[0].zombie: unknown key; expected one of \"do\", \"at\", \"for\", \"every\", "
     "\"process\""},
    {"CopiesOfAnOpenedDescriptor",
     AN_EVENT "do = \"open\"\nprocess = 1\ndescriptor = { type = \"nexus\", copies = 2 }\n",
     ":6: event[0].descriptor.copies: unknown key; expected one of \"type\", \"number\", \"mode\", "
     "\"status\", \"guard\", \"offset\", \"error\""},
    {"PowerSource", "[power]\nsource = [{}]\n" AN_EVENT "do = \"power\"\nsource = 1\n",
     ":7: event[0].source: there is no power source 1; expected one that [power] has, counted from "
     "0"},
    {"Call", AN_EVENT "do = \"fail\"\ncall = \"sysctl\"\nform = \"vm.load\"\n",
     ":6: event[0].form: found \"vm.load\"; expected one of \"kern.boottime\", \"vm.loadavg\", "
     "\"vm.swapusage\", \"kern.procargs2\", \"net.route.iflist2\""},
    {"FormOfACallWithOne", AN_EVENT "do = \"fail\"\ncall = \"uname\"\nform = \"a\"\n",
     ":6: event[0].form: found \"a\"; expected none, as there is one form of this call"},
};
INSTANTIATE_TEST_SUITE_P(Events, DeviceFileMistake, testing::ValuesIn(kEvents), nameOf);

const MistakeCase kKinds[] = {
    {"NoKey", "= 3\n",
     ":1: Error while parsing root table: expected keys, tables, whitespace or comments, saw '='"},
    {"HeadNotClosed", "\n[[process]\n",
     ":2: Error while parsing table header: expected ']', saw '\\n'"},
    {"NoSuchMonth", "[clock]\nstart = 2024-13-05T14:07:09Z\n",
     ":2: Error while parsing date: expected month between 1 and 12 (inclusive), saw 13"},
    {"FractionOfAByte", "[kernel]\npage-size = 4096.0\n",
     ":2: kernel.page-size: found 4096.0; expected a size such as 4096 or \"1.5M\""},
    {"WordWithoutArray", "[kernel]\nmissing = \"proc_pid_rusage\"\n",
     ":2: kernel.missing: found \"proc_pid_rusage\"; expected an array with several of "
     "\"memorystatus_get_level\", \"proc_pid_rusage\", \"MGCopyAnswerWithError\", "
     "\"mach_vm_page_range_query\""},
    {"StartBefore1970", "[clock]\nstart = 1969-12-31T23:59:59Z\n",
     ":2: clock.start: found a time of day; expected a time of day from 1970 on such as "
     "2024-03-05T14:07:09Z"},
    {"StartAsText", "[clock]\nstart = \"now\"\n",
     ":2: clock.start: found \"now\"; expected a time of day from 1970 on such as "
     "2024-03-05T14:07:09Z"},
    {"NoProcessors", "[hardware]\nlogical = 0\n",
     ":2: hardware.logical: found 0; expected a number from 1 to 256"},
    {"SignalTooStrong", "[wifi]\nsignal = 3000000000\n",
     ":2: wifi.signal: found 3000000000; expected a number from -2147483648 to 2147483647"},
    {"TemplateIsANumber", "[template]\na = 3\n" A_PROCESS,
     ":2: template.a: found 3; expected a table"},
    {"ProcessIsANumber", "process = 3\n", ":1: process: found 3; expected an array"},
    {"ThreadIsANumber", A_PROCESS "threads = [3]\n",
     ":3: process[0].threads[0]: found 3; expected a table"},
    {"ThreadNameTooLong",
     "[[process]]\n[[process.threads]]\nname = "
     "\"0123456789012345678901234567890123456789012345678901234567890123\"\n",
     ":3: process[0].threads[0].name: found a text of 64 bytes; expected a text of at most 63 "
     "bytes"},
    {"DescriptorsAreATable", A_PROCESS "descriptors = { type = \"tcp\" }\n",
     ":3: process[0].descriptors: found a table; expected an array"},
    {"QuicStream", A_PROCESS "descriptors = [{ type = \"tcp\", stack = \"quic\" }]\n",
     ":3: process[0].descriptors[0].stack: found \"quic\"; expected one of \"kernel\", "
     "\"userland\""},
    {"StackOfWhatIsNotCounted",
     A_PROCESS "descriptors = [{ type = \"udp\", counted = false, stack = \"quic\" }]\n",
     ":3: process[0].descriptors[0].stack: says who counts a socket that is not counted; expected "
     "no such key, or `counted = true`"},
    {"FirstSource", "[kernel]\nfirst-source = 0\n",
     ":2: kernel.first-source: found 0; expected a number from 1"},
    {"PortTooLarge", A_PROCESS "descriptors = [{ type = \"udp\", local = \"10.0.0.1:65536\" }]\n",
     ":3: process[0].descriptors[0].local: found \"10.0.0.1:65536\"; expected an address and a "
     "port such as \"10.0.0.5:443\", \"[fe80::1]:443\" or \"*:443\""},
    {"AddressWithZone", A_PROCESS "descriptors = [{ type = \"tcp\", remote = \"[::1%lo0]:7\" }]\n",
     ":3: process[0].descriptors[0].remote: found \"[::1%lo0]:7\"; expected an address and a port "
     "such as \"10.0.0.5:443\", \"[fe80::1]:443\" or \"*:443\""},
    {"RegionAddressAsText", A_PROCESS "regions = [{ address = \"0x1000\", size = 4096 }]\n",
     ":3: process[0].regions[0].address: found \"0x1000\"; expected a number from 0"},
    {"SizeOfPartOfAByte", A_PROCESS "regions = [{ address = 0, size = \"1.0001K\" }]\n",
     ":3: process[0].regions[0].size: found \"1.0001K\"; expected a multiple of 4096, above 0"},
    {"TimeThatGrowsByASize", A_PROCESS "user-time = { growth = \"1K\" }\n",
     ":3: process[0].user-time.growth: found \"1K\"; expected a time in seconds from -9000 to "
     "9000, for each second"},
    {"TimeBelowZero", A_PROCESS "user-time = -1\n",
     ":3: process[0].user-time: found -1; expected a time in seconds from 0 to 1000000000, or a "
     "table"},
    {"SizeBelowZero", A_PROCESS "resident = \"-1K\"\n",
     ":3: process[0].resident: found \"-1K\"; expected a size such as 4096 or \"1.5M\", or a "
     "table"},
    {"ParentIsAFraction", A_PROCESS "parent = 1.0\n",
     ":3: process[0].parent: found 1.0; expected a PID from 0 to 99999, or a process's name"},
    {"DonorsAreANumber", A_PROCESS "donors = 3\n",
     ":3: process[0].donors: found 3; expected an array"},
    {"FigureWhereNothingGrows",
     A_PROCESS "[[event]]\ndo = \"change\"\nprocess = \"a\"\nresident = { start = 3 }\n",
     ":6: event[0].resident: found a table; expected a size such as 4096 or \"1.5M\""},
    {"PatternInAnEvent",
     A_PROCESS "[[event]]\ndo = \"open\"\nprocess = \"a\"\n"
               "descriptor = { type = \"tcp\", local = \"*:{pid}\" }\n",
     ":6: event[0].descriptor.local: found \"*:{pid}\"; expected an address and a port such as "
     "\"10.0.0.5:443\", \"[fe80::1]:443\" or \"*:443\""},
    {"EventBeforeTheStart", A_PROCESS "[[event]]\nat = -1\ndo = \"stop\"\nprocess = \"a\"\n",
     ":4: event[0].at: found -1; expected a time in seconds from 0 to 1000000000"},
    {"LinesEndInBothCharacters", "[[process]]\r\nname = \"a\"\r\nbits = 33\r\n",
     ":3: process[0].bits: found 33; expected 32 or 64"},
};
INSTANTIATE_TEST_SUITE_P(Kinds, DeviceFileMistake, testing::ValuesIn(kKinds), nameOf);

TEST(DeviceFileMistakes, UnknownCallAndErrorNameTheKnownOnes) {
  EXPECT_THAT(mistakeIn(AN_EVENT "do = \"fail\"\ncall = \"open\"\n"),
              StartsWith(std::string(kFile) + ":5: event[0].call: found \"open\"; expected one of "
                                              "\"uname\", \"proc_listpids\", \"proc_pidinfo\""));
  EXPECT_THAT(mistakeIn(AN_EVENT "do = \"fail\"\ncall = \"uname\"\nerror = 5\n"),
              StartsWith(std::string(kFile) +
                         ":6: event[0].error: found 5; expected one of \"EPERM\", \"ENOENT\""));
}

TEST(DeviceFileMistakes, AreSafeForATerminal) {
  EXPECT_EQ(mistakeIn("\"a\\u001b[2J\\u0085\" = 1\n"),
            std::string(kFile) + ":1: a?[2J??: unknown key; expected " TOP_LEVEL);
  Mistake mistake{"a\x1b\xff\n.toml", 3, "caf\xc3\xa9 \xc3 \xed\xa0\x80 \xf0\x9f\x98\x80", "\x7f"};
  EXPECT_EQ(mistake.text(), "a???.toml:3: caf\xc3\xa9 ? ??? \xf0\x9f\x98\x80; expected ?");
}

TEST(DeviceFileMistakes, AreBounded) {
  const std::string key(5000, 'k');
  EXPECT_EQ(mistakeIn(key + " = 1\n"), std::string(kFile) + ":1: " + key.substr(0, 40) +
                                           "...: unknown key; expected " TOP_LEVEL);
  EXPECT_EQ(mistakeIn("caller = \"" + key + "\"\n"),
            std::string(kFile) + ":1: caller: found \"" + key.substr(0, 40) +
                "...\"; expected a number from 0 to 4294967295");
  Mistake mistake{std::string(5000, 'f'), 3, "w", "e"};
  EXPECT_EQ(mistake.text(), std::string(1500, 'f') + "...");
}

// Limits: what would be more is refused at once.

std::string manyProcesses(const std::string &keys) {
  return "[[process]]\nname = \"a\"\ncopies = 20000\n" + keys;
}

TEST(DeviceFileLimit, Processes) {
  EXPECT_EQ(deviceOf(manyProcesses("")).processes.size(), 20000u);
  EXPECT_EQ(mistakeIn(manyProcesses("[[process]]\nname = \"b\"\n")),
            std::string(kFile) +
                ":4: process[1]: makes more than 20000 processes; expected at most that many in "
                "all");
}

TEST(DeviceFileLimit, Holdings) {
  EXPECT_EQ(mistakeIn(manyProcesses("threads = 13\n")),
            std::string(kFile) +
                ":4: process[0].threads: makes more than 250000 threads; expected at most that "
                "many in all");
  EXPECT_EQ(mistakeIn(manyProcesses("descriptors = [{ type = \"nexus\", copies = 13 }]\n")),
            std::string(kFile) +
                ":4: process[0].descriptors[0]: makes more than 250000 descriptors; expected at "
                "most that many in all");
  EXPECT_EQ(
      mistakeIn(manyProcesses("regions = [{ address = 0, size = 4096, copies = 65536 }]\n")),
      std::string(kFile) +
          ":4: process[0].regions[0]: makes more than 500000 regions; expected at most that many "
          "in all");
  EXPECT_EQ(deviceOf(manyProcesses("threads = 12\n")).processes.back().threads.size(), 12u);
}

TEST(DeviceFileLimit, TextsThatMultiply) {
  const std::string argument(20000, 'a');
  EXPECT_EQ(mistakeIn(manyProcesses("arguments = [\"" + argument + "\"]\n")),
            std::string(kFile) +
                ":1: process[0]: makes more than 134217728 bytes of texts, contents and queued "
                "events; expected at most that many in all");
  std::string patterns;
  for (int i = 0; i < 200; i++) patterns += "{name}";
  EXPECT_THAT(mistakeIn("[[process]]\nname = \"" + std::string(250, 'n') +
                        "\"\ncopies = 20000\narguments = [\"" + patterns + "\"]\n"),
              HasSubstr("makes more than 134217728 bytes"));
}

TEST(DeviceFileLimit, NestingAndKeyParts) {
  EXPECT_EQ(mistakeIn("a.b.c.d.e.f.g.h.i.j.k.l.m.n.o.p.q = 1\n"),
            std::string(kFile) + ":1: a key of more than 16 parts");
  // Points in strings, comments and long strings are no such parts.
  const std::string points(100, '.');
  EXPECT_EQ(
      mistakeIn("# " + points + "\nname = \"\\\"" + points + "\"\n" + "[kernel]\nhost = '''\n" +
                points + "''''\nrelease = '" + points + "'\n" + A_PROCESS),
      "none");
  const std::string deep(10000, '[');
  EXPECT_THAT(mistakeIn("a = " + deep), HasSubstr("exceeded maximum nested value depth of 32"));
}

TEST(DeviceFileLimit, CharactersThatOnlyTextsMayHold) {
  EXPECT_EQ(mistakeIn("name = \"caf\xc3\xa9\"\ncaf\xc3\xa9 = 1\n"),
            std::string(kFile) + ":2: a character that only strings and comments may hold");
  EXPECT_EQ(mistakeIn("\xef\xbb\xbfname = \"caf\xc3\xa9\" # \xc3\xa9\n" A_PROCESS), "none");
}

TEST(DeviceFileLimit, Templates) {
  std::string chain = "[template.t0]\nuser = 1\n";
  for (int i = 1; i <= 33; i++) {
    chain +=
        "[template.t" + std::to_string(i) + "]\ntemplate = \"t" + std::to_string(i - 1) + "\"\n";
  }
  EXPECT_THAT(mistakeIn(chain + A_PROCESS), HasSubstr("takes over too many templates"));
  // Each takes the one before it twice.
  std::string doubling = "[template.t0]\nuser = 1\n";
  for (int i = 1; i <= 20; i++) {
    const std::string before = "\"t" + std::to_string(i - 1) + "\"";
    doubling +=
        "[template.t" + std::to_string(i) + "]\ntemplate = [" + before + ", " + before + "]\n";
  }
  EXPECT_THAT(mistakeIn(doubling + A_PROCESS), HasSubstr("takes over too many templates"));
}

// What is no TOML from its start is soon refused.
TEST(DeviceFileLimit, FileSize) {
  constexpr size_t kMost = size_t{128} << 20;
  std::string text = "= # ";
  text.resize(kMost + 1, 'x');
  EXPECT_THAT(mistakeIn(std::string_view(text).substr(0, kMost)),
              StartsWith(std::string(kFile) + ":1: Error while parsing"));
  EXPECT_EQ(mistakeIn(text),
            std::string(kFile) + ": more than 128 MiB; expected at most that much");
}

// Points count twice, and those in texts and comments don't.
TEST(DeviceFileLimit, Marks) {
  std::string text = "# =,.[{\n\"=,.[{\" ";
  for (int i = 0; i < 1'333'333; i++) text += "=,.[{";
  text += "==";
  EXPECT_THAT(mistakeIn(text), StartsWith(std::string(kFile) + ":2: Error while parsing"));
  EXPECT_EQ(mistakeIn(text + ","),
            std::string(kFile) + ":2: more than 8000000 of the characters = , . [ {");
}

TEST(DeviceFileLimit, Events) {
  std::string text = "event = [";
  for (int i = 0; i < 100'000; i++) text += "{ do = \"pressure\" },";
  EXPECT_EQ(deviceOf(text + "]\n" A_PROCESS).events.size(), 100'000u);
  EXPECT_EQ(mistakeIn(text + "\n{ do = \"pressure\" }]\n" A_PROCESS),
            std::string(kFile) +
                ":2: event[100000]: makes more than 100000 events; expected at most that many in "
                "all");
}

}  // namespace
