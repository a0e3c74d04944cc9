// A folder with what /proc/PID has of a process's memory and descriptors: the link of a descriptor
// and its fdinfo, the map, and what a thread waits in. A piece of the input is each of them.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/input.h"
#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "host/linux/descriptors.h"
#include "host/linux/procfs.h"
#include "host/linux/regions.h"

using namespace host::linux_machine;
using fuzz::check;

namespace {

constexpr int kDescriptor = 3;
constexpr char kLink[] = "fd/3";
constexpr char kInfo[] = "fdinfo/3";
constexpr char kMap[] = "maps";
constexpr char kCall[] = "task/1/syscall";

// In memory where the system has a place for that.
class Folder {
 public:
  Folder() {
    const bool hasMemory = access("/dev/shm", W_OK) == 0;
    path_ = (hasMemory ? "/dev/shm" : std::filesystem::temp_directory_path()) / "fuzz-XXXXXX";
    std::string name = path_;
    check(mkdtemp(name.data()) != nullptr);
    path_ = name;
    for (const char *each : {"fd", "fdinfo", "task", "task/1"}) {
      std::filesystem::create_directory(path_ / each);
    }
    directory_ = openDirectory(AT_FDCWD, path_.c_str());
    check(directory_.isOpen());
    put(kInfo, "");
    put(kMap, "");
    put(kCall, "");
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  int get() const { return directory_.get(); }
  void put(const char *name, std::string_view text) const {
    const FileHandle file(
        openat(get(), name, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    check(write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  }
  // A link can't be empty or longer than a path, and its text ends at a NUL.
  void link(std::string_view text) const {
    const std::string target(text.substr(0, PATH_MAX - 1).substr(0, text.find('\0')));
    unlinkat(get(), kLink, 0);
    if (!target.empty()) check(symlinkat(target.c_str(), get(), kLink) == 0);
  }

 private:
  std::filesystem::path path_;
  FileHandle directory_;
};

void askDescriptor(int folder, size_t infoSize) {
  static Descriptors descriptors;
  descriptors.beginPass();
  std::vector<darwin::proc_fdinfo> list;
  check(descriptors.list(folder, 16, list) != host::kAnswered || list.size() <= 1);
  uint32_t type = 0;
  descriptors.type(folder, kDescriptor, type);
  darwin::vnode_fdinfowithpath file = {};
  descriptors.vnode(folder, kDescriptor, file);
  check(fuzz::isTerminated(file.pvip.vip_path));
  darwin::pshm_fdinfo memory = {};
  descriptors.sharedMemory(folder, kDescriptor, memory);
  check(fuzz::isTerminated(memory.pshminfo.pshm_name));
  darwin::pipe_fdinfo pipe = {};
  descriptors.pipe(folder, kDescriptor, pipe);
  darwin::socket_fdinfo socket = {};
  descriptors.socket(folder, kDescriptor, socket);
  darwin::kqueue_fdinfo queue = {};
  descriptors.kqueue(folder, kDescriptor, queue);
  std::vector<darwin::kevent_extinfo> events;
  descriptors.kqueueEvents(folder, kDescriptor, events);
  // Three of a line at most, but for signals, of which there are 31.
  check(events.size() <= std::max(infoSize, size_t{31}));
}

// As who walks upward from 0.
void walkRegions(int folder, size_t mapSize) {
  Regions regions;
  uint64_t address = 0;
  size_t count = 0;
  for (;;) {
    darwin::proc_regionwithpathinfo found = {};
    const host::Errno error = regions.find(folder, {1, 1}, address, found);
    if (error != host::kAnswered) {
      check(error == darwin::DARWIN_EINVAL);
      return;
    }
    const darwin::proc_regioninfo &region = found.prp_prinfo;
    check(region.pri_size > 0 && region.pri_address >= address);
    check(fuzz::isTerminated(found.prp_vip.vip_path));
    check(++count <= mapSize);
    address = region.pri_address + region.pri_size;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const Folder folder;
  fuzz::Input input(data, size);
  const std::string_view info = input.piece();
  folder.put(kInfo, info);
  folder.link(input.piece());
  folder.put(kCall, input.piece());
  const std::string_view map = input.rest();
  folder.put(kMap, map);
  askDescriptor(folder.get(), info.size());
  walkRegions(folder.get(), map.size());
  return 0;
}
