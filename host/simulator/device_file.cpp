#include "host/simulator/device_file.h"

#include <regex.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <new>
#include <utility>

#include "host/simulator/event_reader.h"
#include "host/simulator/loading.h"
#include "host/simulator/process_reader.h"
#include "host/simulator/templates.h"
#include "host/simulator/toml_parser.h"
#include "host/simulator/toml_reader.h"
#include "host/simulator/wide.h"

namespace host::simulator {

namespace {

constexpr size_t kLongestFile = size_t{128} << 20;
constexpr size_t kLongestKernelText = 255;
constexpr size_t kLongestDeviceText = 1023;
constexpr size_t kLongestNetwork = 32;
constexpr size_t kMostRadios = 4;
constexpr size_t kMostInterfaces = 1000;
constexpr size_t kMostProcessors = 256;
constexpr uint64_t kLargestLoad = 1'000'000'000'000;  // millionths
// Of an idle processor, in millionths of a tick each second.
constexpr int64_t kIdleGrowth = 100 * kMillion;

constexpr Word kEntryPoints[] = {{"memorystatus_get_level", 1},
                                 {"proc_pid_rusage", 2},
                                 {"MGCopyAnswerWithError", 4},
                                 {"mach_vm_page_range_query", 8}};
constexpr Word kClockModes[] = {{"wall", 0}, {"stepped", 1}};
constexpr Word kInterfaceTypes[] = {
    {"ethernet", 6}, {"point-to-point", 23}, {"loopback", 24}, {"cellular", 255}};

constexpr FigureKey<Memory> kMemoryFigures[] = {
    {"free", &Memory::free, Unit::kCount},
    {"active", &Memory::active, Unit::kCount},
    {"inactive", &Memory::inactive, Unit::kCount},
    {"wired", &Memory::wired, Unit::kCount},
    {"purgeable", &Memory::purgeable, Unit::kCount},
    {"speculative", &Memory::speculative, Unit::kCount},
    {"throttled", &Memory::throttled, Unit::kCount},
    {"external", &Memory::external, Unit::kCount},
    {"internal", &Memory::internal, Unit::kCount},
    {"compressor", &Memory::compressor, Unit::kCount},
    {"uncompressed", &Memory::uncompressed, Unit::kCount},
    {"compressions", &Memory::compressions, Unit::kCount},
    {"decompressions", &Memory::decompressions, Unit::kCount},
    {"page-ins", &Memory::pageIns, Unit::kCount},
    {"page-outs", &Memory::pageOuts, Unit::kCount},
    {"swap-ins", &Memory::swapIns, Unit::kCount},
    {"swap-outs", &Memory::swapOuts, Unit::kCount},
    {"faults", &Memory::faults, Unit::kCount},
    {"copy-on-write-faults", &Memory::copyOnWriteFaults, Unit::kCount},
    {"zero-fills", &Memory::zeroFills, Unit::kCount},
    {"reactivations", &Memory::reactivations, Unit::kCount},
    {"purges", &Memory::purges, Unit::kCount},
    {"lookups", &Memory::lookups, Unit::kCount},
    {"hits", &Memory::hits, Unit::kCount},
};
constexpr FigureKey<Processor> kProcessorFigures[] = {
    {"user", &Processor::user, Unit::kCount},
    {"system", &Processor::system, Unit::kCount},
    {"nice", &Processor::nice, Unit::kCount},
};
constexpr FigureKey<Interface> kInterfaceFigures[] = {
    {"received-packets", &Interface::receivedPackets, Unit::kCount},
    {"sent-packets", &Interface::sentPackets, Unit::kCount},
    {"received", &Interface::receivedBytes, Unit::kSize},
    {"sent", &Interface::sentBytes, Unit::kSize},
};

void readKernel(const Field &field, Kernel &kernel) {
  TableReader reader(field);
  reader.text("version", kernel.version, kLongestKernelText);
  reader.text("release", kernel.release, kLongestKernelText);
  reader.text("host", kernel.node, kLongestKernelText);
  reader.text("hardware", kernel.hardware, kLongestKernelText);
  if (const Field size = reader.find("page-size")) {
    kernel.pageSize = size.size();
    if (kernel.pageSize != 4096 && kernel.pageSize != 16384) size.fail("4096 or 16384");
  }
  if (const Field timebase = reader.find("timebase")) {
    const std::vector<Field> parts = timebase.elementsOf(2, 2, "an array of two numbers");
    constexpr int64_t kMost = Field::mostOf<uint32_t>();
    kernel.timebaseNumerator = static_cast<uint32_t>(parts[0].number(1, kMost));
    kernel.timebaseDenominator = static_cast<uint32_t>(parts[1].number(1, kMost));
  }
  uint32_t missing = 0;
  reader.severalOf("missing", missing, kEntryPoints);
  for (const Word &word : kEntryPoints) {
    if ((missing & word.value) != 0) kernel.missing.emplace_back(word.text);
  }
  reader.flag("kernel-task", kernel.givesTask);
  reader.number("first-source", kernel.firstSource, 1);
  reader.texts("extensions", kernel.extensions, kLongestKernelText);
  reader.finish();
}

// Whether the whole text is as the extended regular expression has it.
bool matches(const std::string &text, const std::string &expression) {
  regex_t compiled{};
  const std::string whole = "^(" + expression + ")$";
  if (regcomp(&compiled, whole.c_str(), REG_EXTENDED | REG_NOSUB) != 0) throw std::bad_alloc();
  const bool found = regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
  regfree(&compiled);
  return found;
}

// UTC, or a zone that says all of itself: names are looked up in files that not every machine has,
// and what is not found there is taken for UTC.
bool isZone(const std::string &text) {
  static const std::string kName = "([A-Za-z]{3,}|<[A-Za-z0-9+-]{3,}>)";
  static const std::string kTime = "[+-]?[0-9]{1,3}(:[0-9]{2}){0,2}";
  static const std::string kRule = "(J?[0-9]{1,3}|M[0-9]{1,2}[.][1-5][.][0-6])(/" + kTime + ")?";
  return matches(text, "UTC|" + kName + kTime + "(" + kName + "(" + kTime + ")?," + kRule + "," +
                           kRule + ")?");
}

std::string readZone(const Field &field) {
  const std::string &zone = field.text(kLongestKernelText);
  if (!isZone(zone)) {
    field.fail("a time zone such as \"UTC\" or \"CET-1CEST,M3.5.0,M10.5.0/3\"");
  }
  return zone;
}

void readClock(const Field &field, DeviceClock &clock) {
  TableReader reader(field);
  reader.oneOf("mode", clock.isStepped, kClockModes);
  reader.read("step", clock.step, &Field::timeAboveZero);
  if (const Field start = reader.find("start")) {
    const Field::Moment moment = start.moment();
    clock.start = moment.seconds;
    clock.startFraction = moment.fraction;
  }
  reader.read("zone", clock.zone, readZone);
  reader.time("up", clock.up);
  reader.finish();
  if (clock.isStepped && (!reader.peek("start") || !reader.peek("zone"))) {
    failAt(reader.place(), "a stepped clock without `start` or `zone`", "both of them");
  }
}

// The processor that does what the others leave.
int64_t idleGrowth(const Processor &processor) {
  const Wide left =
      Wide{kIdleGrowth} - processor.user.growth - processor.system.growth - processor.nice.growth;
  return saturate<int64_t>(std::max<Wide>(left, 0));
}

void readProcessors(const Field &field, std::vector<Processor> &processors) {
  for (const Field &element : field.elements()) {
    TableReader reader(element);
    size_t copies = 1;
    reader.number("copies", copies, 1, kMostProcessors);
    Processor processor;
    reader.figures(kProcessorFigures, processor);
    ReadFigure idle;
    reader.read("idle", idle, [](const Field &given) { return given.figure(Unit::kCount); });
    if (!idle.hasGrowth) idle.figure.growth = idleGrowth(processor);
    processor.idle = idle.figure;
    reader.finish();
    if (processors.size() + copies > kMostProcessors) {
      failAt(reader.place(), "makes more than 256 processors", "at most that many");
    }
    processors.insert(processors.end(), copies, processor);
  }
}

void readHardware(const Field &field, Hardware &hardware) {
  TableReader reader(field);
  reader.size("memory", hardware.memory);
  reader.number("logical", hardware.logicalProcessors, 1, kMostProcessors);
  reader.number("logical-most", hardware.logicalProcessorsMost, 1, kMostProcessors);
  reader.number("physical", hardware.physicalProcessors, 1, kMostProcessors);
  reader.number("physical-most", hardware.physicalProcessorsMost, 1, kMostProcessors);
  reader.number("type", hardware.processorType);
  reader.number("subtype", hardware.processorSubtype);
  if (const Field processors = reader.find("processor")) {
    readProcessors(processors, hardware.processors);
  }
  reader.finish();
}

void readMemory(const Field &field, Memory &memory) {
  TableReader reader(field);
  reader.figures(kMemoryFigures, memory);
  reader.finish();
}

Swap readSwap(const Field &field) {
  TableReader reader(field);
  Swap swap;
  reader.size("total", swap.total);
  reader.figure("used", swap.used, Unit::kSize);
  reader.flag("encrypted", swap.isEncrypted);
  reader.finish();
  return swap;
}

void readLoad(const Field &field, std::array<Figure, 3> &averages) {
  const std::vector<Field> figures =
      field.elementsOf(averages.size(), averages.size(), "an array of three figures");
  for (size_t i = 0; i < averages.size(); i++) {
    averages[i] = figures[i].figure(Unit::kLoad, kLargestLoad).figure;
  }
}

void readInterfaces(const Field &field, std::vector<Interface> &interfaces) {
  for (const Field &element : field.elements()) {
    TableReader reader(element);
    Interface interface;
    const Field name = reader.require("name", "a text");
    interface.name = name.text(kLongestInterface);
    if (interface.name.empty()) name.fail("a text of 1 to 15 bytes");
    for (const Interface &other : interfaces) {
      if (other.name != interface.name) continue;
      name.fail("another interface is called " + quoted(other.name) + " already",
                "a name of its own");
    }
    reader.oneOf("type", interface.type, kInterfaceTypes);
    reader.number("flags", interface.flags);
    reader.number("mtu", interface.mtu);
    reader.number("speed", interface.speed);
    reader.figures(kInterfaceFigures, interface);
    reader.finish();
    if (interfaces.size() == kMostInterfaces) {
      failAt(reader.place(), "makes more than 1000 interfaces", "at most that many");
    }
    interfaces.push_back(std::move(interface));
  }
}

WiFi readWiFi(const Field &field) {
  TableReader reader(field);
  WiFi wifi;
  reader.text("interface", wifi.interface, kLongestInterface);
  reader.text("name", wifi.name, kLongestNetwork);
  reader.number("channel", wifi.channel);
  reader.number("channel-flags", wifi.channelFlags);
  reader.number("signal", wifi.signal);
  if (const Field radios = reader.find("radios")) {
    for (const Field &radio :
         radios.elementsOf(1, kMostRadios, "an array of one to four numbers")) {
      wifi.perRadio.push_back(radio.number<int32_t>());
    }
  }
  reader.finish();
  return wifi;
}

void readPower(Loading &loading, const Field &field) {
  TableReader reader(field);
  Power &power = loading.device.power.emplace();
  reader.read("remaining", power.secondsRemaining, readRemaining);
  for (const Field &element : reader.elements("source")) {
    TableReader of(element);
    PowerSource source;
    of.number("capacity", source.capacity, 0, 100);
    of.text("state", source.state, kLongestKernelText);
    of.flag("charging", source.isCharging);
    of.finish();
    power.sources.push_back(std::move(source));
  }
  if (const Field assertions = reader.find("assertions")) {
    power.assertions.emplace();
    for (const Field &element : assertions.elements()) {
      TableReader of(element);
      const Field process = of.require("process", "a PID or a process's name");
      const std::vector<std::string> names =
          of.require("names", "an array of texts").texts(kLongestDeviceText);
      of.finish();
      loading.withProcess(process, [names](Device &device, int32_t pid) {
        std::vector<std::string> &held = (*device.power->assertions)[pid];
        held.insert(held.end(), names.begin(), names.end());
      });
    }
  }
  reader.finish();
}

GestaltValue readAnswer(const Field &field) {
  if (const std::string *text = field.as<std::string>()) return *text;
  if (const int64_t *number = field.as<int64_t>()) return *number;
  if (const bool *flag = field.as<bool>()) return *flag;
  if (field.asTable() == nullptr) field.fail("a text, a number, a flag or { error = NUMBER }");
  TableReader reader(field);
  Refusal refusal;
  const Field error = reader.require("error", "a number");
  refusal.error = error.number<int32_t>();
  if (refusal.error == 0) error.fail("a number other than 0");
  reader.finish();
  return refusal;
}

void readGestalt(const Field &field, Device &device) {
  TableReader reader(field);
  device.gestalt.emplace();
  for (const std::string_view key : reader.keys()) {
    (*device.gestalt)[std::string(key)] = readAnswer(reader.find(key));
  }
}

// The file's name without folders and ending.
std::string nameOf(std::string_view file) {
  file.remove_prefix(file.rfind('/') + 1);  // all of it when there is none: npos + 1 is 0
  if (file.ends_with(".toml")) file.remove_suffix(5);
  return std::string(file);
}

void readDevice(Loading &loading, const Field &document) {
  Device &device = loading.device;
  TableReader reader(document);
  // All that may stand here, so that a word that is misspelt is seen before anything that it lacks.
  const Field kernel = reader.find("kernel");
  const Field clock = reader.find("clock");
  const Field hardware = reader.find("hardware");
  const Field memory = reader.find("memory");
  const Field swap = reader.find("swap");
  const Field load = reader.find("load");
  const Field level = reader.find("memory-level");
  const Field interfaces = reader.find("interface");
  const Field wifi = reader.find("wifi");
  const Field power = reader.find("power");
  const Field gestalt = reader.find("gestalt");
  const Field templateTables = reader.find("template");
  const Field processes = reader.find("process");
  const Field events = reader.find("event");
  reader.text("name", device.name, kLongestDeviceText);
  reader.number("caller", device.caller);
  reader.flag("background", device.tellsInBackground);
  reader.flag("counted-sockets", device.countsSockets);
  reader.flag("told-zombies", device.tellsOfZombies);
  reader.finish();

  if (kernel) readKernel(kernel, device.kernel);
  if (clock) readClock(clock, device.clock);
  if (hardware) readHardware(hardware, device.hardware);
  if (device.hardware.processors.empty()) {
    device.hardware.processors.emplace_back().idle.growth = kIdleGrowth;
  }
  if (memory) readMemory(memory, device.memory);
  if (swap) device.swap = readSwap(swap);
  if (load) readLoad(load, device.loadAverages);
  if (level) device.memoryLevel = level.figure(Unit::kCount, 100).figure;
  if (interfaces) readInterfaces(interfaces, device.interfaces);
  if (wifi) device.wifi = readWiFi(wifi);
  if (power) readPower(loading, power);
  if (gestalt) readGestalt(gestalt, device);

  const Templates templates(loading, templateTables);
  if (!processes) failAt({0, "process"}, "is missing", "an array of tables");
  readProcesses(loading, templates, processes);
  if (events) readEvents(loading, templates, events);
  loading.settle();
}

// Most files are small: no more room than they need. False, with errno, when not all of it can be
// read.
bool readUpTo(size_t most, const std::string &path, std::string &text) {
  constexpr size_t kPiece = size_t{256} << 10;
  std::ifstream input(path, std::ios::binary);
  while (input && text.size() < most) {
    const size_t length = text.size();
    text.resize(std::min(length + kPiece, most));
    input.read(text.data() + length, static_cast<std::streamsize>(text.size() - length));
    text.resize(length + static_cast<size_t>(input.gcount()));
  }
  return input.is_open() && !input.bad();
}

Mistake ofWholeFile(const std::string &file, std::string what, std::string expected) {
  return {file, 0, std::move(what), std::move(expected)};
}

}  // namespace

std::variant<Device, Mistake> parseDevice(std::string_view text, std::string_view file) {
  const std::string fileName(file);
  if (text.size() > kLongestFile) {
    return ofWholeFile(fileName, "more than 128 MiB", "at most that much");
  }
  try {
    const std::shared_ptr<const toml::node> document = parseToml(text);
    Loading loading;
    loading.device.name = nameOf(file);
    readDevice(loading, Field(*document));
    return std::move(loading.device);
  } catch (const MistakeFound &found) {
    Mistake mistake = found.mistake();
    mistake.file = fileName;
    return mistake;
  }
}

std::variant<Device, Mistake> readDeviceFile(const std::string &path) {
  std::string text;
  if (!readUpTo(kLongestFile + 1, path, text)) {
    return ofWholeFile(path, std::string("can't be read: ") + std::strerror(errno), "");
  }
  return parseDevice(text, path);
}

}  // namespace host::simulator
