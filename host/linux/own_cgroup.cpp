#include "host/linux/own_cgroup.h"

#include <string>
#include <string_view>
#include <utility>

#include "host/darwin/errors.h"

namespace host::linux_machine {

Errno OwnCgroup::find(const std::vector<CgroupMount> &mounts, int32_t pid) {
  for (const CgroupMount &mount : mounts) {
    FileHandle root = openHierarchy(mount);
    if (!root.isOpen() || !search(std::move(root), pid, 0)) continue;
    isVersion1_ = mount.isVersion1;
    return kAnswered;
  }
  return darwin::DARWIN_ENOTSUP;
}

bool OwnCgroup::search(FileHandle group, int32_t pid, int depth) {
  std::vector<std::string> below;
  DirectoryReader lister;
  const Errno error = lister.readNames(group.get(), [&below](const char *name, bool isDirectory) {
    if (isDirectory) below.emplace_back(name);
  });
  if (error != kAnswered) return false;

  if (below.empty()) {
    std::string_view members;
    if (reader_.readList(group.get(), "cgroup.procs", members) != kAnswered ||
        members != std::to_string(pid) + "\n") {
      return false;
    }
    group_ = std::move(group);
    return true;
  }
  if (depth >= kDeepestCgroup) return false;
  for (const std::string &name : below) {
    FileHandle child = openDirectory(group.get(), name.c_str());
    if (child.isOpen() && search(std::move(child), pid, depth + 1)) return true;
  }
  return false;
}

Errno OwnCgroup::readLimit(uint64_t &limit) {
  std::string_view text;
  const Errno error = reader_.readRecord(group_.get(), memoryLimitFile(isVersion1_), text);
  if (error == kAnswered) limit = parseMemoryLimit(text);
  return error;
}

Errno OwnCgroup::writeLimit(uint64_t limit) {
  const std::string none = isVersion1_ ? "-1" : "max";
  const std::string text = limit == kNoMemoryLimit ? none : std::to_string(limit);
  return writeFile(group_.get(), memoryLimitFile(isVersion1_), text + "\n");
}

}  // namespace host::linux_machine
