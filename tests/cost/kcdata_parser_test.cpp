#include "kcdata/parser.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/cost/steps.h"
#include "tests/unit/kcdata_bytes.h"

namespace {

using namespace sondex;
using kcdata_test::Bytes;
using kcdata_test::opened;

uint64_t stepsFor(const Bytes &bytes) {
  testing::internal::CaptureStdout();
  const uint64_t steps = cost::stepsOf([&] { parse_stackshot(bytes.data(), bytes.size(), 2, 0); });
  testing::internal::GetCapturedStdout();
  return steps;
}

// Sixteen times as many bytes would cost 256 times as much if each were gone through anew for those
// before it.
template <typename Make>
void expectInProportion(Make &&make) {
  const uint64_t few = stepsFor(make(4000));
  EXPECT_GT(few, 1000u);
  EXPECT_LT(stepsFor(make(64000)), 32 * few);
}

TEST(KcdataParser, CostsInProportionToAText) {
  expectInProportion(
      [](size_t size) { return opened().item(2319, Bytes().text(std::string(size, 'v'))); });
}

TEST(KcdataParser, CostsInProportionToNamesWithoutALength) {
  expectInProportion([](size_t size) {
    return opened().array(2313, static_cast<uint32_t>(size), Bytes().text(std::string(size, 'n')));
  });
}

TEST(KcdataParser, CostsInProportionToContainers) {
  expectInProportion([](size_t size) {
    Bytes bytes = opened();
    while (bytes.size() < size) bytes.item(19);
    return bytes;
  });
}

}  // namespace
