// A captured machine as JSON beside the same as a device file.
#include <gtest/gtest.h>
#include <toml++/toml.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>

#include "harness/run.h"
#include "harness/stepped_device.h"

namespace test {
namespace {

using nlohmann::json;

// What a size of the file is in bytes; nothing for a text that is none.
std::optional<int64_t> bytesOf(const std::string &text) {
  static const std::string kUnits = "KMGT";
  const size_t unit = text.empty() ? std::string::npos : kUnits.find(text.back());
  const std::string digits = text.substr(0, text.size() - 1);
  if (unit == std::string::npos || digits.empty() ||
      digits.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  return std::stoll(digits) << (10 * (unit + 1));
}

void expectSame(const toml::node &file, const json &tree, const std::string &path);

void expectSameText(const std::string &file, const json &tree, const std::string &path) {
  const std::optional<int64_t> size = bytesOf(file);
  if (size && tree.is_number()) {
    EXPECT_EQ(*size, tree.get<int64_t>()) << path;
  } else {
    ASSERT_TRUE(tree.is_string()) << path;
    EXPECT_EQ(file, tree.get<std::string>()) << path;
  }
}

void expectSameTable(const toml::table &file, const json &tree, const std::string &path) {
  ASSERT_TRUE(tree.is_object()) << path;
  EXPECT_EQ(file.size(), tree.size()) << path;
  for (const auto &[key, value] : file) {
    const std::string name(key.str());
    ASSERT_TRUE(tree.contains(name)) << path << '.' << name;
    expectSame(value, tree.at(name), path + '.' + name);
  }
}

void expectSame(const toml::node &file, const json &tree, const std::string &path) {
  if (const toml::table *table = file.as_table()) {
    expectSameTable(*table, tree, path);
  } else if (const toml::array *array = file.as_array()) {
    ASSERT_TRUE(tree.is_array()) << path;
    ASSERT_EQ(array->size(), tree.size()) << path;
    for (size_t i = 0; i < array->size(); i++) {
      expectSame(*array->get(i), tree[i], path + '[' + std::to_string(i) + ']');
    }
  } else if (const auto text = file.value_exact<std::string>()) {
    expectSameText(*text, tree, path);
  } else if (const auto number = file.value_exact<int64_t>()) {
    ASSERT_TRUE(tree.is_number_integer()) << path;
    EXPECT_EQ(*number, tree.get<int64_t>()) << path;
  } else if (const auto fraction = file.value_exact<double>()) {
    ASSERT_TRUE(tree.is_number()) << path;
    EXPECT_EQ(*fraction, tree.get<double>()) << path;
  } else if (const auto flag = file.value_exact<bool>()) {
    ASSERT_TRUE(tree.is_boolean()) << path;
    EXPECT_EQ(*flag, tree.get<bool>()) << path;
  } else {
    ASSERT_TRUE(file.is_date_time()) << path;
    std::ostringstream moment;
    moment << *file.as_date_time();
    EXPECT_EQ(moment.str(), tree.get<std::string>()) << path;
  }
}

class CaptureAsJSON : public testing::TestWithParam<const char *> {};

// Of a device without texts that look like patterns, which only the file writes in another way.
TEST_P(CaptureAsJSON, IsTheSameTree) {
  const SteppedDevice device(GetParam());
  const Outcome file = runCapture({"--stacks"}, device.environment());
  const Outcome tree = runCapture({"--stacks", "--json"}, device.environment());
  ASSERT_TRUE(file.exitedWith(0)) << file.error;
  ASSERT_TRUE(tree.exitedWith(0)) << tree.error;
  expectSame(toml::parse(file.output), json::parse(tree.output), "");
}

INSTANTIATE_TEST_SUITE_P(Devices, CaptureAsJSON, testing::Values("iphone", "kinds"));

}  // namespace
}  // namespace test
