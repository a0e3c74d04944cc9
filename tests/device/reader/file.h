// Bytes of executables for tests: read from a file, changed, or put together.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace test {

using Bytes = std::vector<uint8_t>;

// A sample for the device, with the form of fixups of that release.
inline Bytes readSample(const std::string &name) {
  std::ifstream file(SAMPLES "/" + name + ".macho", std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

template <typename T>
T valueAt(const Bytes &bytes, size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

template <typename T>
void setValue(Bytes &bytes, size_t offset, T value) {
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

// Of the first load command of that kind; 0 when there is none.
inline size_t commandOf(const Bytes &bytes, uint32_t kind) {
  size_t at = 32;
  for (uint32_t left = valueAt<uint32_t>(bytes, 16); left > 0; left--) {
    if (valueAt<uint32_t>(bytes, at) == kind) return at;
    at += valueAt<uint32_t>(bytes, at + 4);
  }
  return 0;
}

}  // namespace test
