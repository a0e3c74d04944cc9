#include "host/linux/kernel_stacks.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "host/linux/procfs.h"

namespace host::linux_machine {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

constexpr char kSymbols[] =
    "ffffffff81000000 T _stext\n"
    "ffffffff81000100 T do_wait\n"
    "ffffffff81000180 t helper\n"
    "ffffffff81000180 t helper_alias\n"
    "ffffffff810001c0 t twin\n"
    "ffffffff81000200 T between\n"
    "ffffffff81000240 t helper\n"
    "ffffffff81000300 t twin\n"
    "ffffffff81000340 D the_end\n"
    "ffffffffc0000040 t helper\t[nf]\n"
    "ffffffffc0000010 T start\t[nf]\n"
    "ffffffffc0000060 t probe\t[nf]\n"
    "ffffffffc0000080 t last\t[nf]\n";

std::vector<uint64_t> addressesIn(std::string_view stack, std::string_view symbols = kSymbols) {
  const std::vector<KernelFrame> frames = parseKernelStack(stack);
  KernelSymbols known;
  known.want(frames);
  known.add(symbols);
  known.finish();
  return known.addressesOf(frames);
}

TEST(KernelStack, LinesAreFrames) {
  const std::vector<KernelFrame> frames = parseKernelStack(
      "[<0>] do_wait+0xb1/0x150\n"
      "[<0>] helper+0x10/0x40 [nf]\n"
      "[<0>] name.part.0+0x1/0x2\n"
      "[<0>] 0xffffffffc0123456\n");
  ASSERT_EQ(frames.size(), 4u);
  EXPECT_EQ(frames[0].function, "do_wait");
  EXPECT_EQ(frames[0].module, "");
  EXPECT_EQ(frames[0].offset, 0xB1u);
  EXPECT_EQ(frames[0].size, 0x150u);
  EXPECT_EQ(frames[1].function, "helper");
  EXPECT_EQ(frames[1].module, "nf");
  EXPECT_EQ(frames[2].function, "name.part.0");
  EXPECT_EQ(frames[3].function, "");
  EXPECT_EQ(frames[3].offset, 0xFFFFFFFFC0123456u);
}

// Old kernels tell addresses in front, and end a stack in this way.
TEST(KernelStack, OfAnOldKernel) {
  const std::vector<KernelFrame> frames = parseKernelStack(
      "[<ffffffff810001b1>] do_wait+0xb1/0x150\n"
      "[<ffffffffffffffff>] 0xffffffffffffffff\n");
  ASSERT_EQ(frames.size(), 1u);
  EXPECT_EQ(frames[0].function, "do_wait");
}

TEST(KernelStack, LinesThatAreNoFramesArePassedOver) {
  EXPECT_THAT(parseKernelStack(""), IsEmpty());
  EXPECT_THAT(parseKernelStack("\n[<0>]\n[<0>] \nfunction+0x1/0x2\n[<0>] function\n"
                               "[<0>] function+0x1\n[<0>] +0x1/0x2\n[<0>] f+0xg/0x2\n"
                               "[<0>] f+1/0x2\n[<0>] f+0x1/2\n[<0>] 1000\n"
                               "[<0>] f+0x1/\n[<0>] /\n[<0>] +/\n[<0>] 0x0\n[<0>] f/+\n"),
              IsEmpty());
  EXPECT_THAT(parseKernelStack("[<0>] without_end+0x1/0x2"), IsEmpty());
}

TEST(KernelStack, NamesAndOffsetsAreAddresses) {
  EXPECT_THAT(addressesIn("[<0>] do_wait+0x11/0x80\n[<0>] between+0x0/0x40\n"),
              ElementsAre(0xFFFFFFFF81000111, 0xFFFFFFFF81000200));
  EXPECT_THAT(addressesIn("[<0>] probe+0x8/0x20 [nf]\n"), ElementsAre(0xFFFFFFFFC0000068));
  EXPECT_THAT(addressesIn("[<0>] 0xffffffffc0123456\n"), ElementsAre(0xFFFFFFFFC0123456));
}

// Of those with the same name: by their module, then by their size.
TEST(KernelStack, SeveralOfANameAreToldApart) {
  EXPECT_THAT(addressesIn("[<0>] helper+0x1/0x40\n"), ElementsAre(0xFFFFFFFF81000181));
  EXPECT_THAT(addressesIn("[<0>] helper+0x1/0xc0\n"), ElementsAre(0xFFFFFFFF81000241));
  EXPECT_THAT(addressesIn("[<0>] helper+0x1/0x20 [nf]\n"), ElementsAre(0xFFFFFFFFC0000041));
  EXPECT_THAT(addressesIn("[<0>] twin+0x1/0x40\n"), IsEmpty()) << "two of this size";
  EXPECT_THAT(addressesIn("[<0>] helper+0x1/0x99\n"), IsEmpty());
}

TEST(KernelStack, WhatIsNotKnownIsLeftOut) {
  EXPECT_THAT(addressesIn("[<0>] nowhere+0x1/0x2\n[<0>] do_wait+0x1/0x80\n"),
              ElementsAre(0xFFFFFFFF81000101));
  EXPECT_THAT(addressesIn("[<0>] probe+0x1/0x20\n"), IsEmpty()) << "of another module";
}

TEST(KernelStack, AddressesMayBeHidden) {
  EXPECT_THAT(addressesIn("[<0>] do_wait+0x1/0x80\n",
                          "0000000000000000 T _stext\n0000000000000000 T do_wait\n"),
              IsEmpty());
}

TEST(KernelStack, SymbolsThatMakeNoSenseArePassedOver) {
  EXPECT_THAT(addressesIn("[<0>] f+0x1/0x10\n",
                          "\nx\nffff T\nzz T f\nffffffffffffffffff T f\n1000 T f\n1010 T g\n"),
              ElementsAre(0x1001));
}

// The table comes in pieces, which end anywhere.
TEST(KernelStack, TableIsReadToItsEnd) {
  char folder[] = "/tmp/kernel_stacks.XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string path = std::string(folder) + "/kallsyms";
  {
    std::ofstream file(path);
    for (uint64_t i = 1; i <= 20000; i++) {
      file << std::hex << 0xFFFFFFFF81000000 + i * 16 << " T symbol" << std::dec << i << "\n";
    }
  }
  const FileHandle directory = openDirectory(AT_FDCWD, folder);
  const std::vector<KernelFrame> frames = parseKernelStack(
      "[<0>] symbol1+0x1/0x10\n[<0>] symbol9999+0x2/0x10\n[<0>] symbol20000+0x3/0x10\n");
  KernelSymbols known;
  known.want(frames);
  known.read(directory.get());
  EXPECT_THAT(known.addressesOf(frames),
              ElementsAre(0xFFFFFFFF81000011, 0xFFFFFFFF81000000 + 9999 * 16 + 2,
                          0xFFFFFFFF81000000 + 20000 * 16 + 3));
  EXPECT_EQ(unlink(path.c_str()), 0);
  KernelSymbols none;
  none.want(frames);
  none.read(directory.get());
  EXPECT_THAT(none.addressesOf(frames), IsEmpty());
  EXPECT_EQ(rmdir(folder), 0);
}

}  // namespace
}  // namespace host::linux_machine
