#include "host/simulator/device_file.h"

#include <regex.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "host/simulator/event_reader.h"
#include "host/simulator/loading.h"
#include "host/simulator/process_reader.h"
#include "host/simulator/toml_reader.h"
#include "host/simulator/wide.h"

namespace host::simulator {

namespace {

constexpr size_t kLongestFile = size_t{4} << 20;
constexpr size_t kLongestKernelText = 255;
constexpr size_t kLongestText = 1023;
constexpr size_t kLongestInterface = 15;
constexpr size_t kLongestNetwork = 32;
constexpr size_t kMostRadios = 4;
constexpr size_t kMostInterfaces = 1000;
constexpr size_t kMostProcessors = 256;
constexpr uint64_t kLargestLoad = 1'000'000'000;  // thousandths
// Of an idle processor, in millionths of a tick each second.
constexpr int64_t kIdleGrowth = 100 * kMillion;

constexpr Word kEntryPoints[] = {
    {"memorystatus_get_level", 1}, {"proc_pid_rusage", 2}, {"MGCopyAnswerWithError", 4}};
constexpr Word kClockModes[] = {{"wall", 0}, {"stepped", 1}};
constexpr Word kInterfaceTypes[] = {
    {"ethernet", 6}, {"point-to-point", 23}, {"loopback", 24}, {"cellular", 255}};

struct MemoryKey {
  std::string_view key;
  Figure Memory::*figure;
};
constexpr MemoryKey kMemoryFigures[] = {
    {"free", &Memory::free},
    {"active", &Memory::active},
    {"inactive", &Memory::inactive},
    {"wired", &Memory::wired},
    {"purgeable", &Memory::purgeable},
    {"speculative", &Memory::speculative},
    {"throttled", &Memory::throttled},
    {"external", &Memory::external},
    {"internal", &Memory::internal},
    {"compressor", &Memory::compressor},
    {"uncompressed", &Memory::uncompressed},
    {"compressions", &Memory::compressions},
    {"decompressions", &Memory::decompressions},
    {"page-ins", &Memory::pageIns},
    {"page-outs", &Memory::pageOuts},
    {"swap-ins", &Memory::swapIns},
    {"swap-outs", &Memory::swapOuts},
    {"faults", &Memory::faults},
    {"copy-on-write-faults", &Memory::copyOnWriteFaults},
    {"zero-fills", &Memory::zeroFills},
    {"reactivations", &Memory::reactivations},
    {"purges", &Memory::purges},
    {"lookups", &Memory::lookups},
    {"hits", &Memory::hits},
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
    if (timebase.as<TomlArray>() == nullptr || timebase.count() != 2) {
      timebase.fail("an array of two numbers");
    }
    constexpr int64_t kMost = Field::mostOf<uint32_t>();
    kernel.timebaseNumerator = static_cast<uint32_t>(timebase.element(0).number(1, kMost));
    kernel.timebaseDenominator = static_cast<uint32_t>(timebase.element(1).number(1, kMost));
  }
  if (const Field missing = reader.find("missing")) {
    const uint32_t words = missing.severalOf(kEntryPoints);
    for (const Word &word : kEntryPoints) {
      if ((words & word.value) != 0) kernel.missing.emplace_back(word.text);
    }
  }
  reader.flag("kernel-task", kernel.givesTask);
  if (const Field extensions = reader.find("extensions")) {
    kernel.extensions = extensions.texts(kLongestKernelText);
  }
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

void readZone(const Field &field, std::string &zone) {
  zone = field.text(kLongestKernelText);
  if (!isZone(zone)) {
    field.fail("a time zone such as \"UTC\" or \"CET-1CEST,M3.5.0,M10.5.0/3\"");
  }
}

void readClock(const Field &field, DeviceClock &clock) {
  TableReader reader(field);
  reader.oneOf("mode", clock.isStepped, kClockModes);
  if (const Field step = reader.find("step")) clock.step = step.timeAboveZero();
  const Field start = reader.find("start");
  if (start) {
    const TomlTime *time = start.as<TomlTime>();
    if (time == nullptr || time->seconds < 0) {
      start.fail("a time of day from 1970 on such as 2024-03-05T14:07:09Z");
    }
    clock.start = time->seconds;
  }
  const Field zone = reader.find("zone");
  if (zone) readZone(zone, clock.zone);
  reader.time("up", clock.up);
  reader.finish();
  if (clock.isStepped && (!start || !zone)) {
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
  for (size_t i = 0; i < field.count(); i++) {
    TableReader reader(field.element(i));
    size_t copies = 1;
    const Field several = reader.find("copies");
    if (several) copies = static_cast<size_t>(several.number(1, kMostProcessors));
    Processor processor;
    reader.figure("user", processor.user, Unit::kCount);
    reader.figure("system", processor.system, Unit::kCount);
    reader.figure("nice", processor.nice, Unit::kCount);
    ReadFigure idle;
    if (const Field given = reader.find("idle")) idle = given.figure(Unit::kCount);
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
  for (const MemoryKey &row : kMemoryFigures) {
    reader.figure(row.key, memory.*row.figure, Unit::kCount);
  }
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
  if (field.as<TomlArray>() == nullptr || field.count() != averages.size()) {
    field.fail("an array of three figures");
  }
  for (size_t i = 0; i < averages.size(); i++) {
    averages[i] = field.element(i).figure(Unit::kLoad, kLargestLoad).figure;
  }
}

void readInterfaces(const Field &field, std::vector<Interface> &interfaces) {
  for (size_t i = 0; i < field.count(); i++) {
    TableReader reader(field.element(i));
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
    reader.figure("received-packets", interface.receivedPackets, Unit::kCount);
    reader.figure("sent-packets", interface.sentPackets, Unit::kCount);
    reader.figure("received", interface.receivedBytes, Unit::kSize);
    reader.figure("sent", interface.sentBytes, Unit::kSize);
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
  if (const Field name = reader.find("name")) wifi.name = name.text(kLongestNetwork);
  reader.number("channel", wifi.channel);
  reader.number("channel-flags", wifi.channelFlags);
  reader.number("signal", wifi.signal);
  if (const Field radios = reader.find("radios")) {
    if (radios.as<TomlArray>() == nullptr || radios.count() == 0 || radios.count() > kMostRadios) {
      radios.fail("an array of one to four numbers");
    }
    for (size_t i = 0; i < radios.count(); i++) {
      wifi.perRadio.push_back(radios.element(i).number<int32_t>());
    }
  }
  reader.finish();
  return wifi;
}

void readPower(Loading &loading, const Field &field) {
  TableReader reader(field);
  Power &power = loading.device.power.emplace();
  if (const Field remaining = reader.find("remaining")) {
    power.secondsRemaining = readRemaining(remaining);
  }
  const Field sources = reader.find("source");
  for (size_t i = 0; sources && i < sources.count(); i++) {
    TableReader of(sources.element(i));
    PowerSource source;
    if (const Field capacity = of.find("capacity")) {
      source.capacity = static_cast<int32_t>(capacity.number(0, 100));
    }
    if (const Field state = of.find("state")) source.state = state.text(kLongestKernelText);
    if (const Field charging = of.find("charging")) source.isCharging = charging.flag();
    of.finish();
    power.sources.push_back(std::move(source));
  }
  if (const Field assertions = reader.find("assertions")) {
    power.assertions.emplace();
    for (size_t i = 0; i < assertions.count(); i++) {
      TableReader of(assertions.element(i));
      const Field process = of.require("process", "a PID or a process's name");
      const std::vector<std::string> names =
          of.require("names", "an array of texts").texts(kLongestText);
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
  if (field.as<TomlTable>() == nullptr)
    field.fail("a text, a number, a flag or { error = NUMBER }");
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
  for (const TomlMember &member : reader.table().members) {
    (*device.gestalt)[member.key] = readAnswer(reader.find(member.key));
  }
}

// The file's name without folders and ending.
std::string nameOf(std::string_view file) {
  file.remove_prefix(file.rfind('/') + 1);  // all of it when there is none: npos + 1 is 0
  if (file.ends_with(".toml")) file.remove_suffix(5);
  return std::string(file);
}

void readDevice(Loading &loading, const TomlTable &table) {
  Device &device = loading.device;
  TableReader reader(table, 1);
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
  reader.text("name", device.name, kLongestText);
  reader.number("caller", device.caller);
  reader.flag("background", device.tellsInBackground);
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

Mistake ofWholeFile(const std::string &file, std::string what, std::string expected) {
  return {file, 0, std::move(what), std::move(expected)};
}

}  // namespace

std::variant<Device, Mistake> parseDevice(std::string_view text, std::string_view file) {
  const std::string fileName(file);
  if (text.size() > kLongestFile) {
    return ofWholeFile(fileName, "more than 4 MiB", "at most that much");
  }
  std::variant<TomlTable, TomlError> parsed = parseToml(text);
  if (TomlError *error = std::get_if<TomlError>(&parsed)) {
    return Mistake{fileName, error->line, std::move(error->what), ""};
  }
  try {
    Loading loading;
    loading.device.name = nameOf(file);
    readDevice(loading, std::get<TomlTable>(parsed));
    return std::move(loading.device);
  } catch (const MistakeFound &found) {
    Mistake mistake = found.mistake();
    mistake.file = fileName;
    return mistake;
  }
}

std::variant<Device, Mistake> readDeviceFile(const std::string &path) {
  std::string text(kLongestFile + 1, '\0');
  std::FILE *file = std::fopen(path.c_str(), "re");
  const size_t length = file != nullptr ? std::fread(text.data(), 1, text.size(), file) : 0;
  const int error = file == nullptr || std::ferror(file) != 0 ? errno : 0;
  if (file != nullptr) std::fclose(file);
  if (error != 0)
    return ofWholeFile(path, std::string("can't be read: ") + std::strerror(error), "");
  text.resize(length);
  return parseDevice(text, path);
}

}  // namespace host::simulator
