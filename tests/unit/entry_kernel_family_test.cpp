// Which kernel is presented, by what its version says.
#include "host/kernel_family.h"

#include <gtest/gtest.h>

#include "host/machine.h"
#include "host/simulator/device.h"
#include "host/simulator/simulated_machine.h"

namespace {

TEST(KernelFamily, IsTheNumberOfTheBuild) {
  EXPECT_EQ(host::kernelFamilyOf("xnu-2050"), 2050u);
  EXPECT_EQ(host::kernelFamilyOf("Darwin Kernel Version 23.5.0: Wed May  1 20:42:17 PDT 2024; "
                                 "root:xnu-10002.122.1~1/RELEASE_ARM64_T8110"),
            10002u);
  EXPECT_EQ(host::kernelFamilyOf("root:xnu-3789/RELEASE_ARM64"), 3789u);
}

TEST(KernelFamily, IsTheUsualOneWhereNoBuildIsNamed) {
  for (const char *version :
       {"", "Darwin", "xnu-", "xnu-~1", "xnu-beta", "xnu-99999999999999", "xn"}) {
    EXPECT_EQ(host::kernelFamilyOf(version), 4903u) << version;
    EXPECT_FALSE(host::namesKernelFamily(version)) << version;
  }
  EXPECT_TRUE(host::namesKernelFamily("root:xnu-4903~1/RELEASE_ARM64"));
}

TEST(KernelFamily, OfMachines) {
  host::Machine machine;
  EXPECT_EQ(machine.kernelFamily(), 4903u);
  host::simulator::Device device;
  host::simulator::SimulatedMachine usual(device);
  EXPECT_EQ(usual.kernelFamily(), 4903u);
  device.kernel.version = "root:xnu-8020.142.2~1/RELEASE_ARM64_T6000";
  host::simulator::SimulatedMachine late(device);
  EXPECT_EQ(late.kernelFamily(), 8020u);
  device.kernel.version = "Darwin";
  host::simulator::SimulatedMachine nameless(device);
  EXPECT_FALSE(nameless.namesKernelFamily());
  EXPECT_TRUE(late.namesKernelFamily() && machine.namesKernelFamily());
  EXPECT_EQ(late.callsOf("uname"), 0u) << "nobody asked for the name";
}

}  // namespace
