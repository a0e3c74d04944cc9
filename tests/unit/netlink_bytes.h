// Netlink messages made up by a test.
#pragma once

#include <linux/netlink.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "host/linux/netlink.h"

namespace netlink_test {

class Bytes {
 public:
  template <typename T>
  Bytes &add(const T &value) {
    const auto *first = reinterpret_cast<const uint8_t *>(&value);
    bytes_.insert(bytes_.end(), first, first + sizeof value);
    return *this;
  }
  Bytes &attribute(uint16_t type, const std::vector<uint8_t> &value) {
    add(nlattr{static_cast<uint16_t>(NLA_HDRLEN + value.size()), type});
    bytes_.insert(bytes_.end(), value.begin(), value.end());
    bytes_.resize((bytes_.size() + 3) / 4 * 4);
    return *this;
  }
  Bytes &attribute(uint16_t type, const std::string &text) {
    return attribute(type, std::vector<uint8_t>(text.begin(), text.end()));
  }
  Bytes &attribute(uint16_t type, const Bytes &nested) { return attribute(type, nested.bytes_); }
  template <typename T>
  Bytes &number(uint16_t type, T value) {
    Bytes one;
    one.add(value);
    return attribute(type, one.bytes_);
  }

  host::linux_machine::Span span() const { return {bytes_.data(), bytes_.size()}; }
  size_t size() const { return bytes_.size(); }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace netlink_test
