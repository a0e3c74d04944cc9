// The reader of device files on any text; and a machine of whatever it lets through.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <variant>
#include <vector>

#include "host/simulator/device_file.h"
#include "host/simulator/simulated_machine.h"

using host::simulator::Device;
using host::simulator::Mistake;
using host::simulator::Nanoseconds;
using host::simulator::SimulatedMachine;

namespace {

// One line that a terminal can be given.
bool isFit(const std::string &text) {
  if (text.empty() || text.size() > 2000) return false;
  for (const char letter : text) {
    if (static_cast<unsigned char>(letter) < ' ' || letter == 0x7F) return false;
  }
  return true;
}

// Of the first region and what follows it.
void askMemory(SimulatedMachine &machine, int32_t pid) {
  darwin::proc_regionwithpathinfo region;
  if (machine.region(pid, 0, region) != host::kAnswered) return;
  std::array<uint8_t, 40000> memory;
  std::array<int, 4> pages;
  const uint64_t start = region.prp_prinfo.pri_address;
  machine.readMemory(pid, start, memory.size(), memory.data());
  machine.readMemory(pid, start + 1, 4000, memory.data());
  machine.pages(pid, start, pages.size(), pages.data());
}

void askAll(Device device) {
  SimulatedMachine machine(std::move(device));
  std::vector<int32_t> pids;
  std::vector<host::NetworkSource> sources;
  for (int round = 0; round < 2; ++round) {
    if (machine.processIDs(pids) == host::kAnswered) {
      for (const int32_t pid : pids) {
        darwin::proc_taskallinfo info;
        machine.taskAllInfo(pid, info);
        askMemory(machine, pid);
      }
    }
    machine.networkSources(sources);
    machine.advance(Nanoseconds{3'000'000'000});
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  auto read = host::simulator::parseDevice(text, "fuzzed.toml");
  if (const Mistake *mistake = std::get_if<Mistake>(&read)) {
    if (!isFit(mistake->text())) std::abort();
    return 0;
  }
  // What the reader lets through does not contradict itself: the machine must take it.
  askAll(std::get<Device>(std::move(read)));
  return 0;
}
