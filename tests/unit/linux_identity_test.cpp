// What this machine says of itself, from folders made up for the purpose and from the live ones.
#include "host/linux/identity.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "host/posix.h"

namespace host::linux_machine {
namespace {

using darwin::DARWIN_ENOENT;
using darwin::DARWIN_EPERM;

// A root of the test's own, gone with it.
class LinuxIdentity : public testing::Test {
 protected:
  LinuxIdentity() {
    char name[] = "/tmp/identity-XXXXXX";
    if (mkdtemp(name) == nullptr) throw std::runtime_error("mkdtemp failed");
    m_root = name;
  }
  ~LinuxIdentity() override { std::filesystem::remove_all(m_root); }

  void write(const std::string &path, const std::string &text) const {
    const std::filesystem::path whole = m_root + path;
    std::filesystem::create_directories(whole.parent_path());
    std::ofstream(whole, std::ios::binary) << text;
  }

  void makeFolder(const std::string &path) const {
    std::filesystem::create_directories(m_root + path);
  }

  void addInterface(const std::string &name, const std::string &type, const std::string &address,
                    const std::vector<std::string> &folders) const {
    const std::string interface = "/sys/class/net/" + name + "/";
    write(interface + "type", type + "\n");
    write(interface + "address", address + "\n");
    for (const std::string &folder : folders) makeFolder(interface + folder);
  }

  // The answer, or "error N".
  std::string answer(const char *key) const {
    Identity identity(m_root);
    std::string text = "untouched";
    const Errno error = identity.answer(key, text);
    if (error == kAnswered) return text;
    EXPECT_EQ(text, "untouched") << key;
    return "error " + std::to_string(error);
  }

  const std::string &root() const { return m_root; }

  const std::string kNothing = "error " + std::to_string(DARWIN_ENOENT);

 private:
  std::string m_root;
};

TEST_F(LinuxIdentity, EmptyMachineHasNothingToSay) {
  for (const char *key :
       {"ComputerName", "HWModelStr", "ProductName", "ProductVersion", "BuildVersion",
        "SerialNumber", "UniqueDeviceID", "HardwarePlatform", "WifiAddress", "EthernetMacAddress",
        "BluetoothAddress", "", "UnknownKey", "computername"}) {
    EXPECT_EQ(answer(key), kNothing) << key;
  }
}

TEST_F(LinuxIdentity, FirmwareTables) {
  const std::string folder = "/sys/class/dmi/id/";
  write(folder + "product_name", "  Laptop 15  \n");
  write(folder + "board_name", "0ABC12\n");
  write(folder + "product_version", "Rev 2\n");
  write(folder + "product_serial", "SN-77\n");
  write(folder + "product_uuid", "0f0e0d0c-0b0a-0908-0706-050403020100\n");
  EXPECT_EQ(answer("marketing-name"), "Laptop 15");
  EXPECT_EQ(answer("HWModelStr"), "0ABC12");
  EXPECT_EQ(answer("SerialNumber"), "SN-77");
  EXPECT_EQ(answer("UniqueDeviceID"), "0f0e0d0c-0b0a-0908-0706-050403020100");
}

TEST_F(LinuxIdentity, WhatNobodyFilledInIsNoAnswer) {
  const std::string folder = "/sys/class/dmi/id/";
  for (const char *text : {"To Be Filled By O.E.M.", "Default string", "None", "Not Specified",
                           "System Serial Number", "UNKNOWN", "", "   ", "\n"}) {
    for (const char *file : {"board_name", "product_version", "product_serial", "product_uuid"}) {
      write(folder + file, std::string(text) + "\n");
    }
    EXPECT_EQ(answer("HWModelStr"), kNothing) << text;
    EXPECT_EQ(answer("SerialNumber"), kNothing) << text;
    EXPECT_EQ(answer("UniqueDeviceID"), kNothing) << text;
  }
  write(folder + "product_version", "ThinkPad X1\n");
  EXPECT_EQ(answer("HWModelStr"), "ThinkPad X1");
}

TEST_F(LinuxIdentity, DeviceTreeWhereThereIsNoFirmwareTable) {
  const std::string folder = "/sys/firmware/devicetree/base/";
  write(folder + "model", std::string("Board 4 Model B\0", 16));
  write(folder + "compatible", std::string("maker,board-4\0maker,chip2711\0", 29));
  write(folder + "serial-number", std::string("10000000abcdef01\0", 17));
  EXPECT_EQ(answer("marketing-name"), "Board 4 Model B");
  EXPECT_EQ(answer("HWModelStr"), "maker,board-4");
  EXPECT_EQ(answer("HardwarePlatform"), "maker,chip2711");
  EXPECT_EQ(answer("SerialNumber"), "10000000abcdef01");
}

TEST_F(LinuxIdentity, MachineWithoutANameIsCalledByItsHardware) {
  new_utsname own{};
  ASSERT_EQ(__real_uname(&own), 0);
  EXPECT_EQ(answer("marketing-name"), own.machine);
  EXPECT_EQ(answer("CPUArchitecture"), own.machine);
  write("/sys/class/dmi/id/product_name", "System Product Name\n");
  EXPECT_EQ(answer("marketing-name"), own.machine);
}

TEST_F(LinuxIdentity, FileOfAnotherUserIsRefused) {
  if (geteuid() == 0) {
    // Root reads everything that has a mode; what is no file it can't read either.
    makeFolder("/sys/class/dmi/id/product_serial");
    EXPECT_EQ(answer("SerialNumber"), "error " + std::to_string(darwin::DARWIN_EIO));
    return;
  }
  write("/sys/class/dmi/id/product_serial", "SN-77\n");
  std::filesystem::permissions(root() + "/sys/class/dmi/id/product_serial",
                               std::filesystem::perms::none);
  EXPECT_EQ(answer("SerialNumber"), "error " + std::to_string(DARWIN_EPERM));
}

TEST_F(LinuxIdentity, SystemAndItsVersion) {
  write("/etc/os-release",
        "PRETTY_NAME=\"Some System 12 (name)\"\nNAME=\"Some System\"\nVERSION_ID=\"12\"\n"
        "BUILD_ID=99\n");
  write("/proc/sys/kernel/osrelease", "6.1.0-13-amd64\n");
  EXPECT_EQ(answer("ProductName"), "Some System");
  EXPECT_EQ(answer("ProductVersion"), "12");
  EXPECT_EQ(answer("BuildVersion"), "6.1.0-13-amd64");
}

TEST_F(LinuxIdentity, VersionOfASystemWithoutOne) {
  write("/proc/sys/kernel/ostype", "Linux\n");
  EXPECT_EQ(answer("ProductName"), "Linux");
  EXPECT_EQ(answer("ProductVersion"), kNothing);
  write("/etc/os-release", "ID=x\nVERSION_CODENAME=sid\n");
  EXPECT_EQ(answer("ProductName"), "Linux");
  EXPECT_EQ(answer("ProductVersion"), "sid");
  write("/etc/os-release", "VERSION_CODENAME=sid\nBUILD_ID=rolling\n");
  EXPECT_EQ(answer("ProductVersion"), "rolling");
  write("/etc/os-release", "VERSION_ID=\nBUILD_ID=\n");
  EXPECT_EQ(answer("ProductVersion"), kNothing);
}

TEST_F(LinuxIdentity, HostName) {
  write("/proc/sys/kernel/hostname", "workshop\n");
  EXPECT_EQ(answer("ComputerName"), "workshop");
  write("/proc/sys/kernel/hostname", "(none)\n");
  EXPECT_EQ(answer("ComputerName"), kNothing);
}

TEST_F(LinuxIdentity, ProcessorsName) {
  write("/proc/cpuinfo",
        "processor\t: 0\nmodel\t\t: 2\nmodel name\t: Some CPU @ 2.6 GHz\n\n"
        "processor\t: 1\nmodel name\t: Another\n");
  EXPECT_EQ(answer("HardwarePlatform"), "Some CPU @ 2.6 GHz");
  write("/proc/cpuinfo", "processor\t: 0\nmodel name\t:\n");
  EXPECT_EQ(answer("HardwarePlatform"), kNothing);
  write("/sys/firmware/devicetree/base/compatible", std::string("\0\0", 2));
  EXPECT_EQ(answer("HardwarePlatform"), kNothing);
}

TEST_F(LinuxIdentity, AddressesOfHardwareOnly) {
  addInterface("br0", "1", "02:00:00:00:00:01", {});
  addInterface("can0", "280", "02:00:00:00:00:02", {"device"});
  addInterface("eno9", "1", "00:00:00:00:00:00", {"device"});
  addInterface("enp2", "1", "02:00:00:00:00:04", {"device"});
  addInterface("enp1", "1", "02:00:00:00:00:03", {"device"});
  addInterface("wlp3", "1", "02:00:00:00:00:06", {"device", "phy80211"});
  addInterface("wlan7", "1", "02:00:00:00:00:05", {"device", "wireless"});
  EXPECT_EQ(answer("EthernetMacAddress"), "02:00:00:00:00:03");
  EXPECT_EQ(answer("WifiAddress"), "02:00:00:00:00:05");
}

TEST_F(LinuxIdentity, MachineWithVirtualInterfacesOnly) {
  addInterface("lo", "772", "00:00:00:00:00:00", {});
  addInterface("veth1", "1", "02:00:00:00:00:01", {});
  EXPECT_EQ(answer("EthernetMacAddress"), kNothing);
  EXPECT_EQ(answer("WifiAddress"), kNothing);
}

TEST_F(LinuxIdentity, BluetoothAddress) {
  makeFolder("/sys/class/bluetooth/hci0:12");
  makeFolder("/sys/class/bluetooth/hci0");
  EXPECT_EQ(answer("BluetoothAddress"), kNothing);
  write("/sys/class/bluetooth/hci0/address", "00:00:00:00:00:00\n");
  write("/sys/class/bluetooth/hci1/address", "02:00:00:00:00:09\n");
  EXPECT_EQ(answer("BluetoothAddress"), "02:00:00:00:00:09");
}

TEST(LinuxRelease, ValuesAreReadAsAShellReadsThem) {
  const struct {
    const char *text;
    const char *value;  // null: none
  } kRows[] = {
      {"NAME=plain", "plain"},
      {"NAME=plain\n", "plain"},
      {"NAME=\"two words\"\n", "two words"},
      {"NAME='single \\quoted'\n", "single \\quoted"},
      {"NAME=\"a \\\"b\\\" \\$c \\\\\"\n", "a \"b\" $c \\"},
      {"NAME=a\\ b\n", "a b"},
      {"  NAME=indented  \n", "indented"},
      {"NAME=first\nNAME=last\n", "last"},
      {"NAME_2=other\nXNAME=other\n#NAME=other\n", nullptr},
      {"NAME\n", nullptr},
      {"NAME=\n", nullptr},
      {"NAME=\"\"\n", nullptr},
      {"NAME=\"\n", "\""},
      {"NAME=\\\n", "\\"},
      {"", nullptr},
      {"\n\n", nullptr},
  };
  for (const auto &row : kRows) {
    std::string value = "untouched";
    EXPECT_EQ(findRelease(row.text, "NAME", value), row.value != nullptr) << row.text;
    EXPECT_EQ(value, row.value != nullptr ? row.value : "untouched") << row.text;
  }
}

TEST(LiveIdentity, AgreesWithTheKernel) {
  Identity identity;
  new_utsname own{};
  ASSERT_EQ(__real_uname(&own), 0);
  const std::map<std::string, std::string> kExpected = {{"ComputerName", own.nodename},
                                                        {"BuildVersion", own.release},
                                                        {"CPUArchitecture", own.machine}};
  for (const auto &[key, expected] : kExpected) {
    std::string text;
    EXPECT_EQ(identity.answer(key, text), kAnswered) << key;
    EXPECT_EQ(text, expected) << key;
  }
  std::string name;
  EXPECT_EQ(identity.answer("marketing-name", name), kAnswered);
  EXPECT_FALSE(name.empty());
}

}  // namespace
}  // namespace host::linux_machine
