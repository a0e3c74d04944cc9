// Why an executable is not started: said to the caller in one line.
#pragma once

#include <stdexcept>

namespace loader {

struct LoadError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

}  // namespace loader
