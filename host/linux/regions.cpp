#include "host/linux/regions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <iterator>
#include <set>
#include <utility>

#include "host/copy_text.h"
#include "host/darwin/errors.h"
#include "host/darwin/mach_vm.h"
#include "host/darwin/proc_info.h"
#include "host/linux/blocked_call.h"

namespace host::linux_machine {

// User tags of Darwin, as far as mappings here have a counterpart.
static constexpr uint32_t kTagNone = 0;
static constexpr uint32_t kTagMalloc = 2;
static constexpr uint32_t kTagStack = 30;  // without access it is the guard of one
static constexpr uint32_t kTagGuard = 31;
static constexpr uint32_t kTagShared = 32;  // memory of others, and the kernel's pages
static constexpr uint32_t kTagLibrary = 33;
static constexpr uint32_t kTagLoader = 60;

static constexpr uint32_t kAllAccess =
    darwin::VM_PROT_READ | darwin::VM_PROT_WRITE | darwin::VM_PROT_EXECUTE;

// How regions are inherited by children.
static constexpr uint32_t kInheritShared = 0;
static constexpr uint32_t kInheritCopy = 1;

static constexpr std::string_view kEntryPage = "[vdso]";
static constexpr std::string_view kLargePages = "/anon_hugepage";

// What the kernel calls mappings that have no file; "[anon:...]" is a name that the program gave.
static uint32_t tagOfWord(std::string_view word) {
  static constexpr struct {
    std::string_view start;
    uint32_t tag;
  } kWords[] = {
      {"[heap]", kTagMalloc},    {"[stack]", kTagStack},    {"[stack:", kTagStack},
      {kEntryPage, kTagShared},  {"[vvar", kTagShared},     {"[vsyscall]", kTagShared},
      {"[vectors]", kTagShared}, {"[sigpage]", kTagShared}, {"[uprobes]", kTagShared},
  };
  static constexpr struct {
    std::string_view part;
    uint32_t tag;
  } kGivenNames[] = {{"stack", kTagStack}, {"malloc", kTagMalloc}, {"scudo", kTagMalloc}};
  for (const auto &row : kWords) {
    if (word.starts_with(row.start)) return row.tag;
  }
  if (!word.starts_with("[anon:")) return kTagNone;
  for (const auto &row : kGivenNames) {
    if (word.find(row.part) != std::string_view::npos) return row.tag;
  }
  return kTagNone;
}

// What several processes have mapped that is memory and no file.
static bool isSharedMemory(const Mapping &mapping) {
  static constexpr std::string_view kStarts[] = {"/dev/zero", "/dev/shm/", "/memfd:", "/SYSV",
                                                 "[anon_shmem:"};
  return mapping.isShared &&
         std::any_of(std::begin(kStarts), std::end(kStarts),
                     [&](std::string_view start) { return mapping.name.starts_with(start); });
}

// Of the program that loads libraries: "ld-linux-x86-64.so.2", "ld-musl-aarch64.so.1", "ld64.so.2".
static bool isLoaderPath(std::string_view path) {
  path.remove_prefix(path.rfind('/') + 1);
  return path.starts_with("ld") && path.find(".so.") != std::string_view::npos &&
         (path[2] == '-' || path[2] == '.' || path.starts_with("ld64."));
}

// Of paths only newlines are written otherwise, and backslashes are not: nothing else is an escape.
static std::string withNewlines(std::string_view name) {
  constexpr std::string_view kNewline = "\\012";
  std::string path;
  for (size_t escape = 0; (escape = name.find(kNewline)) != std::string_view::npos;) {
    path.append(name, 0, escape);
    path += '\n';
    name.remove_prefix(escape + kNewline.size());
  }
  path.append(name);
  return path;
}

// As much of a path as an answer has room for.
static std::string_view answeredPart(std::string_view path) {
  return path.substr(0, sizeof darwin::vnode_info_path::vip_path - 1);
}

// The same for regions of one file, and hardly ever for two files.
static uint32_t objectID(uint64_t device, uint64_t inode) {
  uint64_t mixed = (device * 0x9e3779b97f4a7c15 ^ inode) * 0xff51afd7ed558ccd;
  mixed ^= mixed >> 33;
  const uint32_t id = static_cast<uint32_t>(mixed >> 16);
  return id != 0 ? id : 1;
}

void Regions::release() {
  process_ = {};
  regions_ = {};
  paths_ = {};
}

bool Regions::canAnswer(const ProcessKey &process, uint64_t address) const {
  return process_.pid != 0 && process_ == process && address != 0 && address >= asked_ &&
         Clock::now() - askedAt_ < keptFor_;
}

Errno Regions::find(int processDirectory, const ProcessKey &process, uint64_t address,
                    darwin::proc_regionwithpathinfo &info) {
  if (!canAnswer(process, address)) {
    release();
    const Errno error = read(processDirectory);
    if (error != kAnswered) {
      release();
      return error;
    }
    process_ = process;
  }
  askedAt_ = Clock::now();
  const Region *found = regionAt(address);
  if (found == nullptr) {
    release();
    return darwin::DARWIN_EINVAL;
  }
  // Who walks with one address after the other's end asks again for what was found there.
  asked_ = std::min(address, found->start);
  fill(processDirectory, *found, info);
  return kAnswered;
}

Errno Regions::read(int processDirectory) {
  paths_.emplace_back();
  const Errno error =
      readMemoryMap(processDirectory, [this](const Mapping &mapping) { add(mapping); });
  if (error == darwin::DARWIN_ENOENT) return darwin::DARWIN_ESRCH;
  if (error != kAnswered) return error;
  tagStacks(processDirectory);
  tagGuards();
  tagLibraries(processDirectory);
  return kAnswered;
}

// Mappings come in pieces, and one that grew meanwhile may begin below the end of the last one.
void Regions::add(const Mapping &mapping) {
  const uint64_t lowest = regions_.empty() ? 0 : regions_.back().end;
  if (mapping.end <= lowest) return;
  Region region{};
  region.start = std::max(mapping.start, lowest);
  region.end = mapping.end;
  region.offset = mapping.offset + (region.start - mapping.start);
  region.device = makedev(mapping.majorNumber, mapping.minorNumber);
  region.inode = mapping.inode;
  region.protection = mapping.protection;
  region.most = kAllAccess;
  region.isShared = mapping.isShared;
  if (mapping.name.starts_with('[')) {
    region.tag = tagOfWord(mapping.name);
    // Of the kernel's pages only the entry page may be changed, in a copy of the process's own.
    if (region.tag == kTagShared && mapping.name != kEntryPage) {
      region.most = region.protection;
    }
  } else if (!mapping.name.empty()) {
    region.path = keepPath(mapping.name);
  }
  if (isSharedMemory(mapping)) region.tag = kTagShared;
  regions_.push_back(region);
}

// The mappings of one file mostly follow one another.
uint32_t Regions::keepPath(std::string_view name) {
  const std::string path = withNewlines(name);
  if (paths_.size() == 1 || paths_.back() != answeredPart(path)) {
    paths_.emplace_back(answeredPart(path));
  }
  return static_cast<uint32_t>(paths_.size() - 1);
}

// The region that contains the address or follows it; null when there is none.
Regions::Region *Regions::regionAt(uint64_t address) {
  const auto found =
      std::upper_bound(regions_.begin(), regions_.end(), address,
                       [](uint64_t wanted, const Region &region) { return wanted < region.end; });
  return found == regions_.end() ? nullptr : &*found;
}

bool Regions::isAnonymous(const Region &region) const {
  return region.path == 0 && region.inode == 0 && !region.isShared;
}

// A thread's stack is where its stack pointer is. A thread that runs at this moment has none to
// show.
void Regions::tagStacks(int processDirectory) {
  FileHandle tasks = openDirectory(processDirectory, "task");
  // A thread's directory has none, but stands in it.
  const bool isThread = !tasks.isOpen() && faccessat(processDirectory, "stat", F_OK, 0) == 0;
  if (isThread) tasks = openDirectory(processDirectory, "..");
  std::vector<int32_t> threads;
  if (!tasks.isOpen() || lister_.readNumbers(tasks.get(), threads) != kAnswered) return;
  for (const int32_t thread : threads) {
    const std::string name = std::to_string(thread).append("/syscall");
    std::string_view text;
    BlockedCall call{};
    if (reader_.readRecord(tasks.get(), name.c_str(), text) != kAnswered ||
        !parseBlockedCall(text, call)) {
      continue;
    }
    Region *region = regionAt(call.stackPointer);
    if (region == nullptr || call.stackPointer < region->start) continue;
    const bool canBeStack = isAnonymous(*region) && region->tag == kTagNone &&
                            (region->protection & darwin::VM_PROT_WRITE) != 0;
    if (canBeStack) region->tag = kTagStack;
  }
}

// Anonymous memory without access keeps others from running into what lies above or below.
void Regions::tagGuards() {
  for (size_t i = 0; i < regions_.size(); i++) {
    Region &region = regions_[i];
    if (region.protection != 0 || region.tag != kTagNone || !isAnonymous(region)) continue;
    const bool isBelowStack = i + 1 < regions_.size() && regions_[i + 1].start == region.end &&
                              regions_[i + 1].protection != 0 && regions_[i + 1].tag == kTagStack;
    region.tag = isBelowStack ? kTagStack : kTagGuard;
  }
}

// A file that the process has mapped to be executed, other than its program, is a library.
void Regions::tagLibraries(int processDirectory) {
  char text[4096];
  const ssize_t length = readlinkat(processDirectory, "exe", text, sizeof text);
  const std::string_view program(text, length > 0 ? static_cast<size_t>(length) : 0);

  using File = std::pair<uint64_t, uint64_t>;
  std::set<File> executed;
  for (const Region &region : regions_) {
    if (region.path != 0 && region.inode != 0 && !region.isShared &&
        (region.protection & darwin::VM_PROT_EXECUTE) != 0) {
      executed.emplace(region.device, region.inode);
    }
  }
  for (Region &region : regions_) {
    if (region.path == 0 || region.tag != kTagNone || region.isShared) continue;
    const std::string &path = paths_[region.path];
    if (path == answeredPart(program) || !executed.contains({region.device, region.inode})) {
      continue;
    }
    region.tag = isLoaderPath(path) ? kTagLoader : kTagLibrary;
  }
}

uint32_t Regions::shareMode(const Region &region) const {
  if (region.isShared) return darwin::SM_SHARED;
  if (region.tag == kTagShared) return darwin::SM_TRUESHARED;
  if (paths_[region.path].starts_with(kLargePages)) return darwin::SM_LARGE_PAGE;
  if (region.path != 0) return darwin::SM_COW;
  return region.protection == 0 ? darwin::SM_EMPTY : darwin::SM_PRIVATE;
}

// What a program may raise the protection to: all of memory that is its own, what the file was
// opened for where writes go to a file.
uint32_t Regions::mostProtection(int processDirectory, const Region &region) const {
  if (!region.isShared || region.inode == 0) return region.most;
  const uint32_t most = region.protection | darwin::VM_PROT_READ | darwin::VM_PROT_EXECUTE;
  if ((most & darwin::VM_PROT_WRITE) != 0) return most;
  char name[64];
  std::snprintf(name, sizeof name, "map_files/%" PRIx64 "-%" PRIx64, region.start, region.end);
  struct stat link {};
  const bool isOpenForWriting = fstatat(processDirectory, name, &link, AT_SYMLINK_NOFOLLOW) == 0 &&
                                (link.st_mode & S_IWUSR) != 0;
  return isOpenForWriting ? most | darwin::VM_PROT_WRITE : most;
}

void Regions::fill(int processDirectory, const Region &region,
                   darwin::proc_regionwithpathinfo &info) const {
  info = {};
  darwin::proc_regioninfo &told = info.prp_prinfo;
  told.pri_protection = region.protection;
  told.pri_max_protection = mostProtection(processDirectory, region);
  told.pri_inheritance = region.isShared ? kInheritShared : kInheritCopy;
  told.pri_flags = region.isShared ? darwin::PROC_REGION_SHARED : 0;
  told.pri_offset = region.offset;
  told.pri_user_tag = region.tag;
  told.pri_share_mode = shareMode(region);
  told.pri_obj_id = region.inode != 0 ? objectID(region.device, region.inode) : 0;
  told.pri_address = region.start;
  told.pri_size = region.end - region.start;
  info.prp_vip.vip_vi.vi_stat.vst_ino = region.inode;
  copyText(paths_[region.path], info.prp_vip.vip_path);
}

}  // namespace host::linux_machine
