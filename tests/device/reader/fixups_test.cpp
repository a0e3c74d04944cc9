// Both forms of fixups, each instruction and field by itself.
#include "fixups.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "file.h"

namespace loader {

static bool operator==(const Rebase &a, const Rebase &b) {
  return a.address == b.address && a.target == b.target;
}
static void PrintTo(const Rebase &rebase, std::ostream *out) {
  *out << std::hex << rebase.address << " to " << rebase.target;
}
static bool operator==(const Bind &a, const Bind &b) {
  return a.address == b.address && a.symbol == b.symbol && a.addend == b.addend &&
         a.mayBeMissing == b.mayBeMissing;
}
static void PrintTo(const Bind &bind, std::ostream *out) {
  *out << std::hex << bind.address << " is " << bind.symbol << std::dec << "+" << bind.addend
       << (bind.mayBeMissing ? " or missing" : "");
}

}  // namespace loader

namespace test {
namespace {

using loader::Bind;
using loader::FileBytes;
using loader::FilePart;
using loader::Fixups;
using loader::Image;
using loader::Rebase;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr uint64_t kStart = 0x100000000;
constexpr uint64_t kData = kStart + 0x4000;
constexpr uint64_t kDataSize = 0x100;
constexpr uint64_t kPointers = 0x80;  // of the data are in the file

// Numbers 0 to 2: the unmapped start, code, and data that start the file.
Image imageOf() {
  Image image;
  image.segments.push_back({"__PAGEZERO", 0, 0, {}, false, false, false});
  image.segments.push_back({"__TEXT", kStart, 0x4000, {}, false, true, false});
  image.segments.push_back({"__DATA", kData, kDataSize, {0, kPointers}, true, false, false});
  image.start = kStart;
  image.end = kStart + 0x8000;
  return image;
}

// Pointer number i of the data is to kStart + i; the program follows them.
Bytes fileWith(const std::vector<uint8_t> &program) {
  Bytes bytes(kPointers);
  for (uint64_t i = 0; i < kPointers / 8; i++) setValue<uint64_t>(bytes, i * 8, kStart + i);
  bytes.insert(bytes.end(), program.begin(), program.end());
  return bytes;
}

std::vector<uint8_t> operator+(std::vector<uint8_t> program, const std::string &text) {
  program.insert(program.end(), text.begin(), text.end());
  program.push_back(0);
  return program;
}

std::vector<uint8_t> operator+(std::vector<uint8_t> program, const std::vector<uint8_t> &more) {
  program.insert(program.end(), more.begin(), more.end());
  return program;
}

class Programs : public testing::Test {
 protected:
  enum Kind { kRebase, kBind, kLazyBind, kWeakBind };

  // Returns the complaint, or "".
  std::string run(Kind kind, const std::vector<uint8_t> &program) {
    fixups_ = {};
    bytes_ = fileWith(program);
    const FilePart part = {kPointers, program.size()};
    loader::FixupPrograms programs;
    (kind == kRebase     ? programs.rebase
     : kind == kBind     ? programs.bind
     : kind == kLazyBind ? programs.lazyBind
                         : programs.weakBind) = part;
    try {
      loader::readFixupPrograms(FileBytes{bytes_}, imageOf(), programs, fixups_);
      return "";
    } catch (const loader::LoadError &error) {
      return error.what();
    }
  }

  Bytes bytes_;
  Fixups fixups_;
};

TEST_F(Programs, RebaseOnePointerAfterTheOther) {
  EXPECT_EQ(run(kRebase, {0x11, 0x22, 0x08, 0x53, 0x00}), "");
  EXPECT_THAT(fixups_.rebases,
              ElementsAre(Rebase{kData + 8, kStart + 1}, Rebase{kData + 16, kStart + 2},
                          Rebase{kData + 24, kStart + 3}));
}

TEST_F(Programs, RebaseWithSteps) {
  // Twice by a number, on by 16 bytes, once and on by 8, on by three pointers, once.
  EXPECT_EQ(run(kRebase, {0x11, 0x22, 0x00, 0x60, 0x02, 0x30, 0x10, 0x70, 0x08, 0x43, 0x51}), "");
  EXPECT_THAT(fixups_.rebases,
              ElementsAre(Rebase{kData, kStart}, Rebase{kData + 8, kStart + 1},
                          Rebase{kData + 32, kStart + 4}, Rebase{kData + 72, kStart + 9}));
}

TEST_F(Programs, RebaseSkippingInBetween) {
  EXPECT_EQ(run(kRebase, {0x11, 0x22, 0x00, 0x80, 0x03, 0x10}), "");
  EXPECT_THAT(fixups_.rebases, ElementsAre(Rebase{kData, kStart}, Rebase{kData + 24, kStart + 3},
                                           Rebase{kData + 48, kStart + 6}));
}

TEST_F(Programs, RebaseEndsAtItsEnd) {
  EXPECT_EQ(run(kRebase, {0x11, 0x22, 0x00, 0x00, 0x51}), "");
  EXPECT_THAT(fixups_.rebases, IsEmpty());
}

TEST_F(Programs, RebaseOfWhatIsNotInTheFileIsOfZero) {
  EXPECT_EQ(run(kRebase, {0x11, 0x22, 0x80, 0x01, 0x51}), "");
  EXPECT_THAT(fixups_.rebases, ElementsAre(Rebase{kData + 128, 0}));
}

TEST_F(Programs, BindToASymbol) {
  EXPECT_EQ(run(kBind, std::vector<uint8_t>{0x11, 0x40} + "_one" +
                           std::vector<uint8_t>{0x51, 0x72, 0x10, 0x90, 0x90, 0x00}),
            "");
  EXPECT_THAT(fixups_.binds,
              ElementsAre(Bind{kData + 16, "_one", 0, false}, Bind{kData + 24, "_one", 0, false}));
}

TEST_F(Programs, BindWithSteps) {
  // Libraries by number and by kind, weakly, with a distance of -16; then one without it.
  EXPECT_EQ(run(kBind, std::vector<uint8_t>{0x20, 0x81, 0x01, 0x3E, 0x41} + "_weak" +
                           std::vector<uint8_t>{0x51, 0x60, 0x70, 0x72, 0x00, 0xA0, 0x08, 0xB1,
                                                0x60, 0x00, 0x40} +
                           "_next" + std::vector<uint8_t>{0x80, 0x08, 0xC0, 0x02, 0x08}),
            "");
  EXPECT_THAT(
      fixups_.binds,
      ElementsAre(Bind{kData, "_weak", -16, true}, Bind{kData + 16, "_weak", -16, true},
                  Bind{kData + 40, "_next", 0, false}, Bind{kData + 56, "_next", 0, false}));
}

TEST_F(Programs, OfLazyBindsAreAllRun) {
  EXPECT_EQ(run(kLazyBind, std::vector<uint8_t>{0x72, 0x00, 0x11, 0x40} + "_one" +
                               std::vector<uint8_t>{0x90, 0x00, 0x72, 0x08, 0x40} + "_other" +
                               std::vector<uint8_t>{0x90, 0x00, 0x00, 0x00}),
            "");
  EXPECT_THAT(fixups_.binds,
              ElementsAre(Bind{kData, "_one", 0, false}, Bind{kData + 8, "_other", 0, false}));
}

TEST_F(Programs, ThatAreWrongAreRefused) {
  const std::vector<uint8_t> longest(11, 0xFF);
  EXPECT_THAT(run(kRebase, {0x12}), HasSubstr("no pointer"));
  EXPECT_THAT(run(kRebase, {0x90}), HasSubstr("unknown rebase instruction"));
  EXPECT_THAT(run(kRebase, {0x23, 0x00, 0x51}), HasSubstr("a segment too many"));
  EXPECT_THAT(run(kRebase, {0x21, 0x00, 0x51}), HasSubstr("outside of the data"));
  EXPECT_THAT(run(kRebase, {0x20, 0x00, 0x51}), HasSubstr("outside of the data"));
  EXPECT_THAT(run(kRebase, {0x22, 0xF9, 0x01, 0x51}), HasSubstr("outside of the data"));
  EXPECT_THAT(run(kRebase, {0x22, 0x00, 0x60, 0xFF, 0xFF, 0x7F}), HasSubstr("outside of the data"));
  EXPECT_THAT(run(kRebase, {0x22, 0x80}), HasSubstr("ends before"));
  EXPECT_THAT(run(kRebase, std::vector<uint8_t>{0x22} + longest), HasSubstr("number is too long"));
  // Back to the same pointer each time: 8 and -8 bytes.
  EXPECT_THAT(run(kRebase, {0x22, 0x00, 0x80, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 0xF8, 0xFF, 0xFF, 0xFF,
                            0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}),
              HasSubstr("more fixups than pointers"));
  EXPECT_THAT(run(kBind, {0x52}), HasSubstr("no pointer"));
  EXPECT_THAT(run(kBind, {0xD0}), HasSubstr("unknown bind instruction"));
  EXPECT_THAT(run(kBind, {0x40, 'a', 'b'}), HasSubstr("does not end"));
  EXPECT_THAT(run(kBind, {0x71, 0x00, 0x90}), HasSubstr("outside of the data"));
  EXPECT_THAT(run(kBind, std::vector<uint8_t>{0x60} + longest), HasSubstr("number is too long"));
  EXPECT_THAT(run(kWeakBind, {0x00}), HasSubstr("weak definitions"));
}

// A pointer of a chain, as the file has it.
uint64_t toTarget(uint64_t target, uint64_t highByte, uint64_t next) {
  return target | highByte << 36 | next << 51;
}
uint64_t toImport(uint64_t number, uint64_t addend, uint64_t next) {
  return number | addend << 24 | next << 51 | uint64_t{1} << 63;
}

class Chains : public testing::Test {
 protected:
  static constexpr size_t kStarts = 28;
  static constexpr size_t kSegment = kStarts + 16;
  static constexpr size_t kImports = kSegment + 24;

  // The data, then the chains: a header, where each segment has its starts, those of the data,
  // imports and names. Both the imports' form and the pointers' may be changed before the reading.
  Chains() : bytes_(kPointers + kImports) {
    set<uint32_t>(4, kStarts);
    set<uint32_t>(8, kImports);
    set<uint32_t>(20, 1);
    set<uint32_t>(kStarts, 3);
    set<uint32_t>(kStarts + 12, kSegment - kStarts);
    set<uint32_t>(kSegment, 24);
    set<uint16_t>(kSegment + 4, 0x4000);
    set<uint16_t>(kSegment + 6, 6);
    set<uint64_t>(kSegment + 8, kData - kStart);
    set<uint16_t>(kSegment + 20, 1);
    set<uint16_t>(kSegment + 22, 8);  // the first pointer of the page
  }

  template <typename T>
  void set(size_t offset, T value) {
    setValue<T>(bytes_, kPointers + offset, value);
  }
  void setPointer(size_t number, uint64_t value) { setValue<uint64_t>(bytes_, number * 8, value); }

  void addImports(const std::vector<uint32_t> &words, const std::string &names) {
    for (const uint32_t word : words) {
      for (int i = 0; i < 4; i++) bytes_.push_back(static_cast<uint8_t>(word >> i * 8));
    }
    set<uint32_t>(12, static_cast<uint32_t>(bytes_.size() - kPointers));
    bytes_.insert(bytes_.end(), names.begin(), names.end());
  }

  std::string read() {
    fixups_ = {};
    try {
      loader::readFixupChains(FileBytes{bytes_}, imageOf(), {kPointers, bytes_.size() - kPointers},
                              fixups_);
      return "";
    } catch (const loader::LoadError &error) {
      return error.what();
    }
  }

  Bytes bytes_;
  Fixups fixups_;
};

constexpr uint32_t kWeak = 1u << 8;
const std::string kNames("\0_one\0_other\0", 13);

TEST_F(Chains, LeadFromPointerToPointer) {
  set<uint32_t>(16, 2);
  addImports({1 | 1u << 9, 2 | kWeak | 6u << 9}, kNames);
  setPointer(1, toTarget(0x1234, 0x80, 4));
  setPointer(3, toImport(1, 5, 2));
  setPointer(4, toImport(0, 0, 0));
  ASSERT_EQ(read(), "");
  EXPECT_THAT(fixups_.rebases, ElementsAre(Rebase{kData + 8, kStart + (0x1234 | 0x80ull << 56)}));
  EXPECT_THAT(fixups_.binds,
              ElementsAre(Bind{kData + 24, "_other", 5, true}, Bind{kData + 32, "_one", 0, false}));
}

TEST_F(Chains, MayHoldAddressesInsteadOfDistances) {
  set<uint16_t>(kSegment + 6, 2);
  addImports({}, kNames);
  setPointer(1, toTarget(kStart + 0x20, 0, 0));
  ASSERT_EQ(read(), "");
  EXPECT_THAT(fixups_.rebases, ElementsAre(Rebase{kData + 8, kStart + 0x20}));
}

TEST_F(Chains, HaveImportsWithDistances) {
  set<uint32_t>(16, 1);
  set<uint32_t>(20, 2);
  addImports({1 | 1u << 9, static_cast<uint32_t>(-24)}, kNames);
  setPointer(1, toImport(0, 4, 0));
  ASSERT_EQ(read(), "");
  EXPECT_THAT(fixups_.binds, ElementsAre(Bind{kData + 8, "_one", -20, false}));
}

TEST_F(Chains, HaveImportsWithLongDistances) {
  set<uint32_t>(16, 1);
  set<uint32_t>(20, 3);
  addImports({1 | 1u << 16, 6, 0, 1}, kNames);
  setPointer(1, toImport(0, 0, 0));
  ASSERT_EQ(read(), "");
  EXPECT_THAT(fixups_.binds, ElementsAre(Bind{kData + 8, "_other", 1ll << 32, true}));
}

TEST_F(Chains, PassOverPagesWithoutAny) {
  addImports({}, kNames);
  set<uint16_t>(kSegment + 22, 0xFFFF);
  ASSERT_EQ(read(), "");
  EXPECT_THAT(fixups_.rebases, IsEmpty());
}

TEST_F(Chains, ThatAreWrongAreRefused) {
  addImports({}, kNames);
  const Bytes right = bytes_;
  const auto complaintAfter = [&](const auto &change) {
    bytes_ = right;
    change();
    return read();
  };
  EXPECT_EQ(complaintAfter([] {}), "");
  EXPECT_THAT(complaintAfter([&] { set<uint32_t>(0, 1); }), HasSubstr("unknown version"));
  EXPECT_THAT(complaintAfter([&] { set<uint32_t>(24, 1); }), HasSubstr("packed names"));
  EXPECT_THAT(complaintAfter([&] {
                set<uint32_t>(16, 1);
                set<uint32_t>(20, 4);
              }),
              HasSubstr("unknown form of imports"));
  EXPECT_THAT(complaintAfter([&] { set<uint32_t>(16, 0xFFFFFFFF); }), HasSubstr("ends before"));
  EXPECT_THAT(complaintAfter([&] { set<uint32_t>(4, 0xFFFFFFF0); }), HasSubstr("ends before"));
  EXPECT_THAT(complaintAfter([&] { set<uint32_t>(kStarts, 4); }), HasSubstr("segment too many"));
  EXPECT_THAT(complaintAfter([&] { set<uint16_t>(kSegment + 6, 1); }),
              HasSubstr("unknown form of pointers"));
  EXPECT_THAT(complaintAfter([&] { set<uint16_t>(kSegment + 22, 0x8000); }),
              HasSubstr("several fixup chains"));
  EXPECT_THAT(complaintAfter([&] { set<uint64_t>(kSegment + 8, 0); }),
              HasSubstr("outside of the data"));
  EXPECT_THAT(complaintAfter([&] { set<uint64_t>(kSegment + 8, ~uint64_t{0}); }),
              HasSubstr("outside of the data"));
  EXPECT_THAT(complaintAfter([&] { setPointer(1, toTarget(0, 0, 4095)); }),
              HasSubstr("outside of the data"));
  EXPECT_THAT(complaintAfter([&] { setPointer(1, toImport(0, 0, 0)); }),
              HasSubstr("an import too many"));
}

}  // namespace
}  // namespace test
