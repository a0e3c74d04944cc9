#include "vm/tags.h"

#include "tests/unit/memory_machine.h"

namespace {

using namespace sondex;

using Names = std::map<uint32_t, const char *>;

const Names kKernelNames = {
    {0, "Untagged (0)"},   {1, "OSFMK"},        {2, "BSD"},         {3, "IOKIT"},
    {4, "LIBKERN"},        {5, "OSKext"},       {6, "Kext"},        {7, "IPC"},
    {8, "Stack"},          {9, "CPU"},          {10, "PMAP"},       {11, "PTE"},
    {12, "ZONE"},          {13, "kalloc"},      {14, "compressor"}, {15, "compressed data"},
    {16, "Phantom Cache"}, {17, "Wait Queues"}, {18, "Diag"},       {19, "Logs"},
    {20, "File"},          {21, "Mbuf"},        {22, "UBC"},        {23, "security"},
    {25, "Reason"},        {26, "SkyWalk"},     {27, "LTable"},
};

const Names kProcessNames = {
    {2, "MALLOC_SMALL"},
    {3, "MALLOC_LARGE metadata"},
    {4, "MALLOC_HUGE"},
    {5, "SBRK (?!)"},
    {6, "MALLOC_REALLOC"},
    {7, "MALLOC_TINY"},
    {8, "MALLOC_LARGE (freed)"},
    {9, "MALLOC_LARGE (reused)"},
    {11, "MALLOC_NANO"},
    {12, "MALLOC_MEDIUM"},
    {13, "MALLOC_PROB_GUARD"},
    {20, "Mach message"},
    {21, "IOKIT"},
    {31, "GUARD"},
    {32, "Shared PMAP"},
    {33, "Dylib"},
    {34, "ObjC dispatchers"},
    {35, "Unshared PMAP"},
    {40, "AppKit"},
    {41, "Foundation"},
    {42, "CoreGraphics"},
    {43, "CoreServices"},
    {44, "Java"},
    {45, "CoreData"},
    {46, "CoreData ObjIDs"},
    {50, "ATS"},
    {51, "CoreAnimation"},
    {52, "CG image"},
    {53, "WebKit Malloc"},
    {54, "CG raster data"},
    {55, "CG shared images"},
    {56, "CG Framebuffers"},
    {57, "CG backing stores"},
    {60, "DYLD"},
    {61, "DYLD Malloc"},
    {62, "SQLite page cache"},
    {63, "Javascript Core"},
    {64, "JS JIT Exec"},
    {65, "JS JIT Regfile"},
    {66, "OpenGL GLSL"},
    {67, "OpenCL"},
    {68, "CoreImage"},
    {69, "WebCore Purgeable"},
    {70, "ImageIO"},
    {71, "CoreProfile"},
    {72, "Assetsd"},
    {73, "Kernel Alloc Once"},
    {74, "Dispatch continuations"},
    {75, "accelerate"},
    {76, "CoreUI"},
    {77, "CoreUI image file"},
    {78, "Activity Tracing"},
    {79, "Raw Camera"},
    {80, "Corpse Info"},
    {81, "ASL Messages"},
    {82, "Swift Runtime"},
    {83, "Swift Metadata"},
    {84, "DHMM"},
    {85, "85?"},
    {86, "SceneKit"},
    {87, "SkyWalk"},
    {88, "IOSurface"},
    {89, "LibNetwork"},
    {90, "Audio"},
    {91, "VideoBitStream"},
    {92, "CM_XPC"},
    {93, "CM_RPC"},
    {94, "CM_MEMORYPOOL"},
    {95, "CM_READCACHE"},
    {96, "CM_CRABS"},
    {97, "QL Thumbnails"},
    {98, "Accounts"},
    {99, "Sanitizer"},
    {100, "IOAccel"},
    {101, "CM_REGWRAP"},
    {102, "EAR_Decoder"},
    {103, "CoreUI Cached Image Data"},
    {104, "Colorsync"},
    {105, "BTINFO"},
    {106, "CM_HLS"},
    {230, "Rosetta"},
    {231, "Rosetta Thread Context"},
    {232, "Rosetta Indirect Branch Map"},
    {233, "Rosetta Return Stack"},
    {234, "Rosetta Executable Heap"},
    {235, "Rosetta User LDT"},
    {236, "Rosetta Arena"},
    {237, "Rosetta_7"},
    {238, "Rosetta_8"},
    {239, "Rosetta_10"},
};

class TagsTest : public memory_test::MemoryTest {};

TEST_F(TagsTest, EveryNamedKernelTag) {
  for (uint32_t tag = 0; tag < 28; tag++) {
    const auto name = kKernelNames.find(tag);
    if (tag == 24) continue;
    ASSERT_NE(name, kKernelNames.end()) << tag;
    EXPECT_STREQ(tag_to_text(tag, 3, 1), name->second) << tag;
    EXPECT_STREQ(tag_to_text(tag, 0, 1), name->second) << tag;
  }
}

TEST_F(TagsTest, EveryProcessTagWithAccess) {
  for (uint32_t tag = 0; tag < 300; tag++) {
    const auto name = kProcessNames.find(tag);
    std::string wanted;
    if (tag == 0) {
      wanted = "";
    } else if (tag == 1) {
      wanted = "MALLOC metadata";
    } else if (tag == 30) {
      wanted = "Stack";
    } else if (name != kProcessNames.end()) {
      wanted = name->second;
    } else if (tag >= 240 && tag <= 255) {
      wanted = "User Tag: " + std::to_string(tag);
    } else {
      wanted = "Tag: " + std::to_string(tag) + " (Unknown, Tell Z!)";
    }
    EXPECT_EQ(tag_to_text(tag, 1, 0), wanted);
  }
}

TEST_F(TagsTest, OnlyTwoTagsDependOnTheProtection) {
  for (uint32_t tag = 0; tag < 300; tag++) {
    const std::string open = tag_to_text(tag, 3, 0);
    const std::string closed = tag_to_text(tag, 0, 0);
    if (tag == 1) {
      EXPECT_EQ(closed, "MALLOC guard page");
    } else if (tag == 30) {
      EXPECT_EQ(closed, "STACK_GUARD");
    } else {
      EXPECT_EQ(closed, open) << tag;
    }
  }
}

TEST_F(TagsTest, OddTextsStayAsTheyAre) {
  EXPECT_STREQ(tag_to_text(5, 3, 0), "SBRK (?!)");
  EXPECT_STREQ(tag_to_text(75, 3, 0), "accelerate");
  EXPECT_STREQ(tag_to_text(85, 3, 0), "85?");
  EXPECT_STREQ(tag_to_text(239, 3, 0), "Rosetta_10");
  EXPECT_STREQ(tag_to_text(0, 3, 1), "Untagged (0)");
  EXPECT_STREQ(tag_to_text(245, 3, 0), "User Tag: 245");
}

TEST_F(TagsTest, TheLargestTagFits) {
  EXPECT_STREQ(tag_to_text(0x80000000, 3, 0), "Tag: -2147483648 (Unknown, Tell Z!)");
  EXPECT_STREQ(tag_to_text(0xFFFFFFFF, 3, 0), "Tag: -1 (Unknown, Tell Z!)");
}

// The list is asked for once in a run, so that each answer takes a run of its own.
template <typename Check>
void inOwnRun(Check &&check) {
  EXPECT_EXIT(
      {
        check();
        exit(testing::Test::HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(TagsTest, ExtensionsTagsWithAList) {
  inOwnRun([&] {
    machine.extensions = {"com.example.driver"};
    EXPECT_STREQ(tag_to_text(24, 3, 1), "Tag: 24");
    EXPECT_STREQ(tag_to_text(28, 3, 1), "Tag: 28");
    EXPECT_STREQ(tag_to_text(200, 3, 1), "Tag: 200");
    EXPECT_STREQ(getKextTag(0), "Tag: 0");
    machine.extensions.reset();
    EXPECT_STREQ(getKextTag(29), "Tag: 29");
    EXPECT_EQ(machine.extensionsAsked, 1);
  });
}

TEST_F(TagsTest, ExtensionsTagsWithoutAList) {
  inOwnRun([&] {
    EXPECT_STREQ(tag_to_text(24, 3, 1), "?");
    EXPECT_STREQ(tag_to_text(200, 3, 1), "?");
    machine.extensions = {"com.example.driver"};
    EXPECT_STREQ(getKextTag(24), "?");
    EXPECT_EQ(machine.extensionsAsked, 1);
  });
}

}  // namespace
