#include "host/linux/unwinder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "host/linux/memory_map.h"
#include "host/linux/procfs.h"

namespace host::linux_machine {

// A callback has no argument of its own: the one unwinder that is at work.
static const Unwinder *working = nullptr;

// Nothing is looked for beside the files themselves, least of all in the network.
static int findNoDebugInfo(Dwfl_Module *, void **, const char *, Dwarf_Addr, const char *,
                           const char *, GElf_Word, char **) {
  return -1;
}

Unwinder::Unwinder(pid_t process) : process_(process) {
  callbacks_.find_elf = findFile;
  callbacks_.find_debuginfo = findNoDebugInfo;
}

void Unwinder::readRanges() {
  const std::string path = "/proc/" + std::to_string(process_);
  const FileHandle directory = openStartingPoint(AT_FDCWD, path.c_str());
  if (!directory.isOpen()) return;
  readMemoryMap(directory.get(),
                [this](const Mapping &mapping) { ranges_.emplace(mapping.start, mapping.end); });
}

// The file behind the mapping, which may be gone or have another name here; where only its path
// helps, that is the process's own, under its own root directory.
int Unwinder::openFile(const char *path, uint64_t start) const {
  constexpr int kHow = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  const std::string folder = "/proc/" + std::to_string(process_);
  int file = -1;
  const auto range = ranges_.find(start);
  if (range != ranges_.end()) {
    char name[64];
    std::snprintf(name, sizeof name, "/map_files/%jx-%jx", static_cast<uintmax_t>(start),
                  static_cast<uintmax_t>(range->second));
    struct stat about {};
    // Looked at first: to open a device may do something.
    const std::string whole = folder + name;
    if (stat(whole.c_str(), &about) == 0 && !S_ISREG(about.st_mode)) return -1;
    file = open(whole.c_str(), kHow);
  }
  if (file < 0) file = open((folder + "/root" + path).c_str(), kHow | O_NOFOLLOW);
  struct stat about {};
  if (file >= 0 && (fstat(file, &about) != 0 || !S_ISREG(about.st_mode))) {
    close(file);
    file = -1;
  }
  return file;
}

int Unwinder::findFile(Dwfl_Module *module, void **own, const char *name, Dwarf_Addr start,
                       char **path, Elf **elf) {
  // What the kernel maps into each process is read from there.
  if (name[0] != '/') return dwfl_linux_proc_find_elf(module, own, name, start, path, elf);
  const int file = working->openFile(name, start);
  if (file >= 0) *path = strdup(name);
  return file;
}

bool Unwinder::prepare() {
  working = this;
  readRanges();
  session_.reset(dwfl_begin(&callbacks_));
  if (session_ == nullptr) return false;
  dwfl_report_begin(session_.get());
  const bool isSeen = dwfl_linux_proc_report(session_.get(), process_) == 0;
  if (dwfl_report_end(session_.get(), nullptr, nullptr) != 0 || !isSeen) return false;
  // So that the process does not stand still for that later.
  dwfl_getmodules(
      session_.get(),
      [](Dwfl_Module *module, void **, const char *, Dwarf_Addr, void *) -> int {
        Dwarf_Addr bias = 0;
        if (dwfl_module_getelf(module, &bias) != nullptr) dwfl_module_eh_cfi(module, &bias);
        return DWARF_CB_OK;
      },
      nullptr, 0);
  return true;
}

std::vector<SnapshotImage> Unwinder::images() {
  std::vector<SnapshotImage> images;
  dwfl_getmodules(
      session_.get(),
      [](Dwfl_Module *module, void **, const char *, Dwarf_Addr start, void *argument) -> int {
        Dwarf_Addr bias = 0;
        if (dwfl_module_getelf(module, &bias) == nullptr) return DWARF_CB_OK;
        SnapshotImage &image = static_cast<std::vector<SnapshotImage> *>(argument)->emplace_back();
        image.address = start;
        const unsigned char *bits = nullptr;
        GElf_Addr address = 0;
        const int length = dwfl_module_build_id(module, &bits, &address);
        if (length > 0) {
          std::copy_n(bits, std::min<size_t>(static_cast<size_t>(length), image.uuid.size()),
                      image.uuid.begin());
        }
        return DWARF_CB_OK;
      },
      &images, 0);
  std::sort(images.begin(), images.end(),
            [](const SnapshotImage &a, const SnapshotImage &b) { return a.address < b.address; });
  return images;
}

std::vector<uint64_t> Unwinder::stack(pid_t thread) {
  std::vector<uint64_t> frames;
  if (dwfl_pid(session_.get()) < 0 && dwfl_linux_proc_attach(session_.get(), process_, true) != 0) {
    return frames;
  }
  // It also fails behind the last frame that can be followed.
  dwfl_getthread_frames(
      session_.get(), thread,
      [](Dwfl_Frame *frame, void *argument) -> int {
        auto &found = *static_cast<std::vector<uint64_t> *>(argument);
        Dwarf_Addr address = 0;
        if (!dwfl_frame_pc(frame, &address, nullptr)) return DWARF_CB_ABORT;
        found.push_back(address);
        return found.size() < kMostFrames ? DWARF_CB_OK : DWARF_CB_ABORT;
      },
      &frames);
  return frames;
}

}  // namespace host::linux_machine
