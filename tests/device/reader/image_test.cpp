// What the loader makes of executables that are right, and of those that are not: a message each.
#include "image.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "file.h"
#include "fixups.h"

namespace test {
namespace {

using loader::FileBytes;
using loader::Image;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr uint32_t kSegment = 0x19;
constexpr uint32_t kMain = 0x80000028;

// "" when there is no complaint.
std::string complaintAbout(const Bytes &bytes) {
  try {
    const FileBytes file{bytes};
    const Image image = loader::readImage(file);
    (void)loader::readFixups(file, image);
    return "";
  } catch (const loader::LoadError &error) {
    return error.what();
  }
}

class Sample : public testing::TestWithParam<const char *> {
 protected:
  Bytes bytes_ = readSample(std::string("pointers-") + GetParam());
};

INSTANTIATE_TEST_SUITE_P(OfEachForm, Sample, testing::Values("13.0", "14.0"),
                         [](const auto &of) { return of.param[1] == '3' ? "Old" : "New"; });

TEST_P(Sample, IsRead) {
  const FileBytes file{bytes_};
  const Image image = loader::readImage(file);
  ASSERT_EQ(image.segments.size(), 5u);
  EXPECT_EQ(image.segments[0].name, "__PAGEZERO");
  EXPECT_EQ(image.segments[0].size, 0u);
  EXPECT_EQ(image.segments[1].name, "__TEXT");
  EXPECT_TRUE(image.segments[1].isExecutable);
  EXPECT_FALSE(image.segments[1].isWritable);
  EXPECT_EQ(image.segments[2].name, "__DATA_CONST");
  EXPECT_TRUE(image.segments[2].isConstantOnceFixed);
  EXPECT_EQ(image.segments[3].name, "__DATA");
  EXPECT_TRUE(image.segments[3].isWritable);
  EXPECT_FALSE(image.segments[3].isConstantOnceFixed);
  EXPECT_EQ(image.start, 0x100000000u);
  EXPECT_TRUE(loader::segmentOf(image, image.entry, 4)->isExecutable);
  EXPECT_THAT(image.libraries, testing::Contains("/usr/lib/libSystem.B.dylib"));
  ASSERT_EQ(image.initialisers.size(), 1u);
  EXPECT_EQ(image.initialisers[0].count, 2u);
}

TEST_P(Sample, HasOneFormOfFixups) {
  const Image image = loader::readImage(FileBytes{bytes_});
  const bool isOld = GetParam() == std::string("13.0");
  EXPECT_EQ(image.programs.has_value(), isOld);
  EXPECT_EQ(image.chains.has_value(), !isOld);
}

// The last segment reaches to the end of the file.
TEST_P(Sample, CutShortAnywhereIsRefused) {
  for (size_t size = 0; size < bytes_.size(); size++) {
    const Bytes cut(bytes_.begin(), bytes_.begin() + static_cast<ptrdiff_t>(size));
    ASSERT_NE(complaintAbout(cut), "") << size << " bytes";
  }
}

// Whether the sixteen bytes around this one are zeros, as between segments.
bool isPadding(const Bytes &bytes, size_t at) {
  const auto start = bytes.begin() + static_cast<ptrdiff_t>(at / 16 * 16);
  return std::all_of(start, start + std::min<ptrdiff_t>(16, bytes.end() - start),
                     [](uint8_t byte) { return byte == 0; });
}

// Right or wrong, nothing is read or written that is not the file's: the sanitizers see to that.
TEST_P(Sample, WithAnyByteChangedDoesNoHarm) {
  Bytes bytes = readSample(std::string("missing-") + GetParam());
  size_t refused = 0;
  for (size_t at = 0; at < bytes.size(); at++) {
    if (isPadding(bytes, at)) continue;
    const uint8_t before = bytes[at];
    for (const uint8_t changed : {uint8_t{0x00}, uint8_t{0x7F}, uint8_t{0xFF}}) {
      bytes[at] = changed;
      refused += complaintAbout(bytes).empty() ? 0 : 1;
    }
    bytes[at] = before;
  }
  EXPECT_GT(refused, 100u);
}

struct Mistake {
  const char *name;
  std::function<void(Bytes &)> make;
  const char *complaint;
};

size_t segmentNamed(const Bytes &bytes, const char *name) {
  size_t at = commandOf(bytes, kSegment);
  while (std::strncmp(reinterpret_cast<const char *>(bytes.data()) + at + 8, name, 16) != 0) {
    at += valueAt<uint32_t>(bytes, at + 4);
  }
  return at;
}

const Mistake kMistakes[] = {
    {"Empty", [](Bytes &bytes) { bytes.clear(); }, "the file ends before"},
    {"NoMachO", [](Bytes &bytes) { setValue<uint32_t>(bytes, 0, 0x464C457F); },
     "not a 64-bit Mach-O file"},
    {"OtherProcessor", [](Bytes &bytes) { setValue<uint32_t>(bytes, 4, 0x01000007); },
     "not for arm64"},
    {"Library", [](Bytes &bytes) { setValue<uint32_t>(bytes, 12, 6); }, "not an executable"},
    {"FixedAddress", [](Bytes &bytes) { setValue<uint32_t>(bytes, 24, 0); },
     "not position-independent"},
    {"CommandOfNoLength", [](Bytes &bytes) { setValue<uint32_t>(bytes, 36, 0); },
     "a load command is too short"},
    {"CommandsBeyondTheirArea", [](Bytes &bytes) { setValue<uint32_t>(bytes, 16, 0x7FFFFFFF); },
     "the file ends before"},
    {"UnknownRequiredCommand",
     [](Bytes &bytes) { setValue<uint32_t>(bytes, commandOf(bytes, kMain), 0x800000F0); },
     "load command 240 is not supported"},
    {"NoMain", [](Bytes &bytes) { setValue<uint32_t>(bytes, commandOf(bytes, kMain), 0xF0); },
     "no main"},
    {"MainInTheData",
     [](Bytes &bytes) {
       const size_t data = segmentNamed(bytes, "__DATA");
       setValue<uint64_t>(bytes, commandOf(bytes, kMain) + 8,
                          valueAt<uint64_t>(bytes, data + 24) - 0x100000000);
     },
     "main is outside of the code"},
    {"MainFarAway",
     [](Bytes &bytes) { setValue<uint64_t>(bytes, commandOf(bytes, kMain) + 8, ~uint64_t{0}); },
     "main is outside of the code"},
    {"WritableCode",
     [](Bytes &bytes) { setValue<uint32_t>(bytes, segmentNamed(bytes, "__TEXT") + 60, 7); },
     "segment __TEXT is writable and executable"},
    {"SegmentUponAnother",
     [](Bytes &bytes) {
       setValue<uint64_t>(bytes, segmentNamed(bytes, "__DATA") + 24, 0x100000000);
     },
     "segment __DATA is misplaced"},
    {"SegmentOffThePage",
     [](Bytes &bytes) {
       const size_t at = segmentNamed(bytes, "__DATA") + 24;
       setValue<uint64_t>(bytes, at, valueAt<uint64_t>(bytes, at) + 8);
     },
     "segment __DATA is misplaced"},
    {"SegmentAtTheEndOfMemory",
     [](Bytes &bytes) {
       setValue<uint64_t>(bytes, segmentNamed(bytes, "__DATA") + 24, 0xFFFFFFFFFFFFC000);
     },
     "segment __DATA is misplaced"},
    {"HugeSegment",
     [](Bytes &bytes) {
       setValue<uint64_t>(bytes, segmentNamed(bytes, "__DATA") + 32, 1ull << 40);
     },
     "segment __DATA is misplaced"},
    {"ContentLongerThanItsSegment",
     [](Bytes &bytes) {
       setValue<uint64_t>(bytes, segmentNamed(bytes, "__DATA") + 48, 1ull << 25);
     },
     "segment __DATA is misplaced"},
    {"SectionsBeyondTheirCommand",
     [](Bytes &bytes) { setValue<uint32_t>(bytes, segmentNamed(bytes, "__TEXT") + 64, 5000); },
     "the file ends before"},
};

class Wrong : public testing::TestWithParam<Mistake> {};

INSTANTIATE_TEST_SUITE_P(Executable, Wrong, testing::ValuesIn(kMistakes),
                         [](const auto &of) { return of.param.name; });

TEST_P(Wrong, IsRefusedInWords) {
  Bytes bytes = readSample("pointers-13.0");
  ASSERT_EQ(complaintAbout(bytes), "");
  GetParam().make(bytes);
  EXPECT_THAT(complaintAbout(bytes), HasSubstr(GetParam().complaint));
}

}  // namespace
}  // namespace test
