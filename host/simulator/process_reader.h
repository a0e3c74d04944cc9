// The processes of a device file: their templates, what they hold, and what they leave to defaults.
// One entry is read once, however many processes it stands for.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "host/simulator/device.h"
#include "host/simulator/loading.h"
#include "host/simulator/toml_reader.h"

namespace host::simulator {

// The tables of `[template]`.
class Templates {
 public:
  // `field` may be absent. All templates are checked, also those that nothing takes.
  Templates(Loading &loading, const Field &field);
  Templates(const Templates &) = delete;
  Templates &operator=(const Templates &) = delete;

  // What the process of `own` takes over, the first one first. They live as long as the templates.
  std::vector<std::unique_ptr<TableReader>> layersOf(TableReader &own) const;

 private:
  void addLayers(const Field &field, std::vector<std::string_view> &inside,
                 std::vector<std::unique_ptr<TableReader>> &layers) const;

  const TomlTable *table_ = nullptr;
  Path path_;
};

// `[[process]]`, into the device.
void readProcesses(Loading &loading, const Templates &templates, const Field &field);

// The processes that an event starts, whose other keys are in `reader`, which is finished with it.
// `event` has all but the action: each process makes one event of the device.
void readStartedProcesses(Loading &loading, const Templates &templates, TableReader &reader,
                          const Event &event);

// `threads` alone, as of a process with this priority and policy. Their texts are taken as they
// are.
std::vector<Thread> readThreads(Loading &loading, const Field &field, int32_t priority,
                                int32_t policy);

// Numbers that several kinds of entries have.
extern const std::span<const Word> kApplicationStates;
extern const std::span<const Word> kSigningFlags;
// A flag, or "unknown".
int32_t readSandbox(const Field &field);

// What a path has where none is given.
inline constexpr std::string_view kDefaultPath = "/usr/libexec/{name}";

}  // namespace host::simulator
