// Which network namespaces are looked into and when, with made-up sockets. Real namespaces are
// tested with the descriptors.
#include "host/linux/other_networks.h"

#include <gtest/gtest.h>

#include "darwin/socket.h"

namespace host::linux_machine {
namespace {

// Every namespace has one TCP socket, whose inode is the directory that it was asked by.
class OtherNetworksTest : public testing::Test {
 protected:
  bool describes(int processDirectory, uint64_t network, uint64_t inode) {
    darwin::socket_info info = {};
    const bool isListed = networks_.describe(processDirectory, {1, network}, inode, info);
    EXPECT_EQ(info.soi_family, isListed ? darwin::DARWIN_AF_INET : 0);
    return isListed;
  }

  int readings_ = 0;
  bool mayEnter_ = true;
  OtherNetworks networks_{
      [this](int processDirectory, std::vector<DiagSocket> &sockets, std::string &) {
        readings_++;
        if (!mayEnter_) return false;
        sockets.emplace_back().inode = static_cast<uint32_t>(processDirectory);
        return true;
      }};
};

TEST_F(OtherNetworksTest, EachIsReadOnceInAPass) {
  EXPECT_TRUE(describes(5, 100, 5));
  EXPECT_TRUE(describes(6, 100, 5)) << "of the reading by another process";
  EXPECT_EQ(readings_, 1);
  EXPECT_FALSE(describes(7, 200, 5)) << "of another network";
  EXPECT_TRUE(describes(7, 200, 7));
  EXPECT_EQ(readings_, 2);
  networks_.beginPass();
  EXPECT_EQ(readings_, 2);
  EXPECT_TRUE(describes(6, 100, 6)) << "by a process that is there now";
  EXPECT_EQ(readings_, 3);
}

TEST_F(OtherNetworksTest, AreToldApartByTheirFileSystemsToo) {
  darwin::socket_info info = {};
  EXPECT_TRUE(networks_.describe(5, {1, 100}, 5, info));
  EXPECT_FALSE(networks_.describe(6, {2, 100}, 5, info));
  EXPECT_EQ(readings_, 2);
}

TEST_F(OtherNetworksTest, AreListedOnceTheyWereEntered) {
  EXPECT_FALSE(networks_.isListed({1, 100}));
  EXPECT_FALSE(describes(5, 100, 77));
  EXPECT_TRUE(networks_.isListed({1, 100}));
  EXPECT_FALSE(networks_.isListed({1, 200}));
  mayEnter_ = false;
  EXPECT_FALSE(describes(6, 200, 6));
  EXPECT_FALSE(networks_.isListed({1, 200}));
  networks_.beginPass();
  EXPECT_FALSE(networks_.isListed({1, 100}));
}

TEST_F(OtherNetworksTest, NoMoreThanSomeAreReadInAPass) {
  const int most = static_cast<int>(OtherNetworks::kMost);
  for (int i = 1; i <= most; i++) EXPECT_TRUE(describes(i, static_cast<uint64_t>(i), i));
  EXPECT_FALSE(describes(most + 1, OtherNetworks::kMost + 1, static_cast<uint64_t>(most) + 1));
  EXPECT_EQ(readings_, most);
  EXPECT_TRUE(describes(1, 1, 1)) << "those that were read stay known";
  networks_.beginPass();
  EXPECT_TRUE(describes(most + 1, OtherNetworks::kMost + 1, static_cast<uint64_t>(most) + 1));
}

}  // namespace
}  // namespace host::linux_machine
