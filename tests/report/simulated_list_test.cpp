// The process list in plain text on each of the device files, compared as a whole with what was
// kept of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "harness/kept.h"
#include "harness/run.h"
#include "harness/stepped_device.h"

namespace test {
namespace {

struct Run {
  const char *device;
  KeptFile kept;
};

std::ostream &operator<<(std::ostream &out, const Run &run) {
  return out << run.device;
}

const Run kRuns[] = {
    {"iphone", KeptFile("report/iphone-list.txt")},
    {"ipad-16cpu", KeptFile("report/ipad-16cpu-list.txt")},
    {"old-32bit", KeptFile("report/old-32bit-list.txt")},
    {"minimal", KeptFile("report/minimal-list.txt")},
    {"locked-down", KeptFile("report/locked-down-list.txt")},
    {"kinds", KeptFile("report/kinds-list.txt")},
    {"kernel-6153", KeptFile("report/kernel-6153-list.txt")},
};

Outcome listOn(const SteppedDevice &device) {
  Environment environment = device.environment();
  environment.emplace_back("nc", "1");
  return runSondex({}, environment);
}

class KeptList : public testing::TestWithParam<Run> {};

TEST_P(KeptList, IsPrintedTheSameInEveryRun) {
  const SteppedDevice device(GetParam().device, SteppedDevice::Background::silent);
  const std::string first = asText(listOn(device));
  EXPECT_EQ(GetParam().kept.complaintAbout(first), "");
  EXPECT_EQ(difference(first, asText(listOn(device))), "");
}

INSTANTIATE_TEST_SUITE_P(Device, KeptList, testing::ValuesIn(kRuns), [](const auto &row) {
  std::string name = row.param.device;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

TEST(KeptReports, AllHaveATest) {
  EXPECT_THAT(keptFilesWithoutTest("report"), testing::IsEmpty());
}

}  // namespace
}  // namespace test
