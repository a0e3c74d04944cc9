#include "vm/tags.h"

#include <stddef.h>
#include <stdio.h>

#include "darwin/kext.h"

namespace sondex {

constexpr uint32_t kFirstApplicationTag = 240;
constexpr uint32_t kLastApplicationTag = 255;

struct TagName {
  uint32_t tag;
  const char *name;
};

// Both tables are in the order of their tags.
static const TagName kKernelTags[] = {
    {0, "Untagged (0)"},   {1, "OSFMK"},        {2, "BSD"},         {3, "IOKIT"},
    {4, "LIBKERN"},        {5, "OSKext"},       {6, "Kext"},        {7, "IPC"},
    {8, "Stack"},          {9, "CPU"},          {10, "PMAP"},       {11, "PTE"},
    {12, "ZONE"},          {13, "kalloc"},      {14, "compressor"}, {15, "compressed data"},
    {16, "Phantom Cache"}, {17, "Wait Queues"}, {18, "Diag"},       {19, "Logs"},
    {20, "File"},          {21, "Mbuf"},        {22, "UBC"},        {23, "security"},
    {25, "Reason"},        {26, "SkyWalk"},     {27, "LTable"},
};

static const TagName kProcessTags[] = {
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

// A tag whose regions without access are guards of those with it.
struct GuardedTag {
  uint32_t tag;
  const char *name;
  const char *guard;
};

static const GuardedTag kGuardedTags[] = {
    {1, "MALLOC metadata", "MALLOC guard page"},
    {30, "Stack", "STACK_GUARD"},
};

// Null for a tag without a name.
static const char *findName(const TagName *names, size_t count, uint32_t tag) {
  size_t low = 0;
  size_t high = count;
  while (low < high) {
    const size_t middle = low + (high - low) / 2;
    if (names[middle].tag == tag) return names[middle].name;
    if (names[middle].tag < tag) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return nullptr;
}

const char *getKextTag(uint32_t tag) {
  static char returned[80];
  static bool asked = false;
  static darwin::CFDictionaryRef kextDict = nullptr;

  // Kept for the whole run, as the list only tells whether tags can be told apart at all.
  if (!asked) kextDict = darwin::OSKextCopyLoadedKextInfo(nullptr, nullptr);
  asked = true;
  if (kextDict == nullptr) return "?";
  snprintf(returned, sizeof returned, "Tag: %d", static_cast<int32_t>(tag));
  return returned;
}

static const char *kernelTagToText(uint32_t tag) {
  const char *name = findName(kKernelTags, sizeof kKernelTags / sizeof *kKernelTags, tag);
  return name != nullptr ? name : getKextTag(tag);
}

static const char *processTagToText(uint32_t tag, uint32_t protection) {
  static char buf[48];

  if (tag == 0) return "";
  for (const GuardedTag &guarded : kGuardedTags) {
    if (guarded.tag == tag) return protection != 0 ? guarded.name : guarded.guard;
  }
  const char *name = findName(kProcessTags, sizeof kProcessTags / sizeof *kProcessTags, tag);
  if (name != nullptr) return name;
  const bool application = tag >= kFirstApplicationTag && tag <= kLastApplicationTag;
  snprintf(buf, sizeof buf, application ? "User Tag: %d" : "Tag: %d (Unknown, Tell Z!)",
           static_cast<int32_t>(tag));
  return buf;
}

const char *tag_to_text(uint32_t tag, uint32_t protection, int kernel) {
  return kernel != 0 ? kernelTagToText(tag) : processTagToText(tag, protection);
}

}  // namespace sondex
