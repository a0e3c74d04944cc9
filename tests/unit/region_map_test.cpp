#include "vm/region_map.h"

#include <cstdio>

#include "tests/unit/memory_machine.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using memory_test::kMappedPid;
using memory_test::makeRegion;
using sampled::outputOf;

class RegionMapTest : public memory_test::MemoryTest {
 protected:
  std::string map() { return showProcRegions(kMappedPid, darwin::mach_port_t{1}); }
};

TEST_F(RegionMapTest, OneLinePerRegion) {
  machine.regions = {makeRegion(0x100000000, 0x4000, 5, 33, "/bin/thing"),
                     makeRegion(0x100004000, 0x4000, 3, 7)};
  EXPECT_EQ(map(),
            "Dylib                  0x0000abcd 000100000000-000100004000 [  16K] r-x/rwx PRV "
            "/bin/thing\n"
            "MALLOC_TINY            0x0000abcd 000100004000-000100008000 [  16K] rw-/rwx PRV \n");
}

TEST_F(RegionMapTest, NeighboursThatAreAlikeStayApart) {
  machine.regions = {makeRegion(0x4000, 0x4000), makeRegion(0x8000, 0x4000),
                     makeRegion(0xc000, 0x4000)};
  const std::string text = map();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
}

TEST_F(RegionMapTest, SizesAreScaled) {
  const struct {
    uint64_t size;
    const char *text;
  } rows[] = {
      {1, "[   1??]"},         {1024, "[1024??]"},
      {1025, "[   1K]"},       {0x4000, "[  16K]"},
      {1 << 20, "[1024K]"},    {(1 << 20) + 1024, "[   1M]"},
      {1 << 30, "[1024M]"},    {3ull << 30, "[   3G]"},
      {1ull << 40, "[1024G]"}, {384ull << 40, "[393216G]"},
  };
  for (const auto &row : rows) {
    machine.regions = {makeRegion(0x4000, row.size)};
    EXPECT_NE(map().find(row.text), std::string::npos) << row.size << "\n" << map();
  }
}

TEST_F(RegionMapTest, GuardsAreNamedByTheirProtection) {
  machine.regions = {makeRegion(0x4000, 0x4000, 0, 30), makeRegion(0x8000, 0x4000, 3, 30)};
  EXPECT_EQ(map(),
            "STACK_GUARD            0x0000abcd 000000004000-000000008000 [  16K] ---/rwx PRV \n"
            "Stack                  0x0000abcd 000000008000-00000000c000 [  16K] rw-/rwx PRV \n");
}

TEST_F(RegionMapTest, ANamelessTagIsABlank) {
  machine.regions = {makeRegion(0x4000, 0x4000, 1, 0)};
  EXPECT_EQ(map(),
            "                       0x0000abcd 000000004000-000000008000 [  16K] r--/rwx PRV \n");
}

TEST_F(RegionMapTest, AnUnknownTagIsToldWhole) {
  machine.regions = {makeRegion(0x4000, 0x4000, 1, 200)};
  EXPECT_EQ(map(),
            "Tag: 200 (Unknown, Tell Z!) 0x0000abcd 000000004000-000000008000 [  16K] r--/rwx PRV "
            "\n");
}

TEST_F(RegionMapTest, TheKernelHasItsOwnTags) {
  machine.pid = 0;
  machine.regions = {makeRegion(0x4000, 0x4000, 3, 12)};
  EXPECT_EQ(showProcRegions(0, darwin::mach_port_t{1}),
            std::string("ZONE                   0x0000abcd 000000004000-000000008000 [  16K] "
                        "rw-/rwx PRV \n"));
}

TEST_F(RegionMapTest, ColorsFollowTheProtection) {
  const char *const colors[] = {"\033[0;37m", "\033[0;32m", "\033[0;36m", "\033[0;34m",
                                "\033[0;32m", "\033[0;0m",  "\033[0;31m", "\033[0;31m"};
  store(g_Color, 1);
  for (uint32_t protection = 0; protection < 8; protection++) {
    machine.regions = {makeRegion(0x4000, 0x4000, protection, 20)};
    const std::string text = map();
    const std::string start = colors[protection] + std::string("Mach message ");
    EXPECT_EQ(text.substr(0, start.size()), start) << protection;
    const std::string end = "PRV \033[0;0m\n";
    ASSERT_GE(text.size(), end.size());
    EXPECT_EQ(text.substr(text.size() - end.size()), end) << protection;
  }
}

TEST_F(RegionMapTest, UnknownProtectionBitsPickNoOtherColor) {
  store(g_Color, 1);
  machine.regions = {makeRegion(0x4000, 0x4000, 0xFFFFFFF8, 20)};
  EXPECT_EQ(map().substr(0, 7), "\033[0;37m");
}

TEST_F(RegionMapTest, NoEscapesWithoutColor) {
  for (uint32_t protection = 0; protection < 8; protection++) {
    machine.regions.push_back(makeRegion(0x4000 * (protection + 1), 0x4000, protection));
  }
  EXPECT_EQ(map().find('\033'), std::string::npos);
}

TEST_F(RegionMapTest, NoEscapesForTheFullScreen) {
  store(g_Color, 1);
  store(wantCurses, 1);
  machine.regions = {makeRegion(0x4000, 0x4000)};
  EXPECT_EQ(map().find('\033'), std::string::npos);
  EXPECT_EQ(map().size(), 81u);
}

TEST_F(RegionMapTest, PathsAreMadeSafe) {
  machine.regions = {makeRegion(0x4000, 0x4000, 1, 33, "/tmp/\033[31mred\n\x9b\x7f")};
  EXPECT_EQ(map(),
            "Dylib                  0x0000abcd 000000004000-000000008000 [  16K] r--/rwx PRV "
            "/tmp/?[31mred???\n");
}

TEST_F(RegionMapTest, APathWithoutAnEndIsCut) {
  machine.regions = {makeRegion(0x4000, 0x4000, 1, 33)};
  memset(machine.regions[0].prp_vip.vip_path, 'p', sizeof machine.regions[0].prp_vip.vip_path);
  EXPECT_EQ(map(),
            "Dylib                  0x0000abcd 000000004000-000000008000 [  16K] r--/rwx PRV " +
                std::string(1023, 'p') + "\n");
}

TEST_F(RegionMapTest, AProcessThatCantBeLookedAtHasNoMap) {
  EXPECT_EQ(outputOf([&] { EXPECT_STREQ(showProcRegions(kMappedPid + 1, 0), ""); }), "");
  EXPECT_STREQ(showProcRegions(-1, 0), "");
}

TEST_F(RegionMapTest, EachCallStartsAnew) {
  machine.regions = {makeRegion(0x4000, 0x4000)};
  const std::string first = map();
  EXPECT_EQ(map(), first);
  machine.regions.clear();
  EXPECT_EQ(map(), "");
}

TEST_F(RegionMapTest, EndsAtTheTopOfTheAddressSpace) {
  machine.regions = {makeRegion(0xFFFFFFFFFFFFC000, 0x3FFF)};
  const std::string text = map();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
  EXPECT_NE(text.find("ffffffffffffc000-ffffffffffffffff"), std::string::npos);
}

TEST_F(RegionMapTest, DebugLineTellsOfThePort) {
  machine.regions = {makeRegion(0x4000, 0x4000)};
  setenv("ZDEBUG", "1", 1);
  const std::string found = outputOf([&] { showProcRegions(kMappedPid, 0); });
  unsigned int port = 0;
  char rest = '?';
  ASSERT_EQ(sscanf(found.c_str(), " KR : 0 GOT TASK %x%c", &port, &rest), 2) << found;
  EXPECT_NE(port, 0u);
  EXPECT_EQ(rest, '\n');

  machine.givesTaskName = false;
  EXPECT_EQ(outputOf([&] { showProcRegions(kMappedPid, 0); }), " KR : 5 GOT TASK 0\n");
  EXPECT_EQ(outputOf([&] { showProcRegions(kMappedPid, 77); }), "");
}

TEST_F(RegionMapTest, ALongMapComesInPieces) {
  const std::string path(1000, 'x');
  const size_t count = 5000;
  for (size_t i = 0; i < count; i++) {
    machine.regions.push_back(makeRegion(0x4000 * (i + 1), 0x4000, 3, 33, path));
  }
  std::string last;
  const std::string printed = outputOf([&] { last = map(); });
  const size_t line = 81 + path.size();
  EXPECT_EQ(printed.size() + last.size(), count * line);
  // A piece goes out with the first line that finds it longer than 2 MiB.
  const size_t piece = ((2 << 20) / line + 1) * line;
  EXPECT_EQ(printed.size(), piece * 2);
  EXPECT_EQ((printed + last).substr(piece - line, 6), "Dylib ");
  EXPECT_EQ(last.size(), count * line - piece * 2);
}

// Keeps where it was asked for a region.
class AskedMachine : public memory_test::MemoryMachine {
 public:
  host::Errno region(pid_t of, uint64_t address, darwin::proc_regionwithpathinfo &info) override {
    asked.push_back(address);
    return MemoryMachine::region(of, address, info);
  }
  std::vector<uint64_t> asked;
};

TEST_F(RegionMapTest, EachStepAsksPastTheEndOfTheLastRegion) {
  AskedMachine other;
  other.regions = {makeRegion(0x4000, 0x4000), makeRegion(0x10000, 0x1000)};
  host::useMachine(&other);
  map();
  host::useMachine(&machine);
  EXPECT_EQ(other.asked, (std::vector<uint64_t>{0, 0x8001, 0x11001}));
}

// Lines of 128 bytes: so many of them are 2 MiB to the byte.
TEST_F(RegionMapTest, APieceIsLongerThanItsBound) {
  constexpr size_t kLine = 128;
  constexpr size_t kLines = (2 << 20) / kLine;
  const std::string path(kLine - 81, 'x');
  for (size_t i = 0; i <= kLines; i++) {
    machine.regions.push_back(makeRegion(0x4000 * (i + 1), 0x4000, 3, 33, path));
  }
  std::string last;
  EXPECT_EQ(outputOf([&] { last = map(); }), "");
  EXPECT_EQ(last.size(), (kLines + 1) * kLine);

  machine.regions.push_back(makeRegion(0x4000 * (kLines + 2), 0x4000, 3, 33, path));
  const std::string printed = outputOf([&] { last = map(); });
  EXPECT_EQ(printed.size(), (kLines + 1) * kLine);
  EXPECT_EQ(last.size(), kLine);
}

// Newer kernels don't tell of their own.
TEST_F(RegionMapTest, TheKernelsMapMayBeRefused) {
  machine.pid = 0;
  machine.family = 10002;
  machine.regions = {makeRegion(0x4000, 0x4000, 3, 12)};
  EXPECT_STREQ(showProcRegions(0, darwin::mach_port_t{1}), "");
  machine.family = 8796;
  EXPECT_STRNE(showProcRegions(0, darwin::mach_port_t{1}), "");
}

TEST(Protection, LettersOfEveryCombination) {
  const char *const texts[] = {"---", "r--", "-w-", "rw-", "--x", "r-x", "-wx", "rwx"};
  for (uint32_t bits = 0; bits < 8; bits++) {
    char text[4] = "???";
    protection_bits_to_rwx(bits, text, sizeof text);
    EXPECT_STREQ(text, texts[bits]);
    protection_bits_to_rwx(bits | 0xFFFFFFF8, text, sizeof text);
    EXPECT_STREQ(text, texts[bits]);
  }
}

TEST(Protection, NothingIsWrittenWithoutExactlyItsRoom) {
  char text[8] = "before";
  for (const size_t size : {0, 1, 3, 5, 8}) protection_bits_to_rwx(7, text, size);
  EXPECT_STREQ(text, "before");
  protection_bits_to_rwx(7, nullptr, 4);
}

TEST(ShareMode, EveryMode) {
  const char *const texts[] = {"???", "COW", "PRV", "NUL", "SHM", "TRU", "ALI", "S/A", "LRG"};
  for (uint32_t mode = 0; mode < 9; mode++) EXPECT_STREQ(share_mode_to_text(mode), texts[mode]);
  EXPECT_STREQ(share_mode_to_text(9), "???");
  EXPECT_STREQ(share_mode_to_text(0xFFFFFFFF), "???");
}

}  // namespace
