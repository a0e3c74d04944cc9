// The templates of a device file, which processes take keys over from.
#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

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

  std::optional<TableReader> tables_;
};

}  // namespace host::simulator
