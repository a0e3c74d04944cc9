#include "host/linux/cgroup_limits.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>

#include "host/linux/mount_text.h"

namespace host::linux_machine {

// Without a limit, version 1 shows the largest number of bytes that is whole pages; no page is
// larger than this.
static constexpr uint64_t kLargestPage = uint64_t{1} << 20;
static constexpr uint64_t kVersion1Unlimited = uint64_t{INT64_MAX} - kLargestPage;

static bool hasOption(std::string_view options, std::string_view wanted) {
  while (!options.empty()) {
    size_t end = std::min(options.find(','), options.size());
    if (options.substr(0, end) == wanted) return true;
    options.remove_prefix(std::min(end + 1, options.size()));
  }
  return false;
}

std::vector<CgroupMount> parseCgroupMounts(std::string_view mountTable) {
  std::vector<CgroupMount> mounts;
  TextCursor lines(mountTable);
  std::string_view line;
  while (lines.line(line)) {
    // ID, parent, device, root, mount point, options, any number of tags, "-", type, source,
    // options of the type.
    TextCursor fields(line);
    std::string_view path;
    std::string_view word;
    if (!fields.skipWords(4) || !fields.word(path)) continue;
    bool found = false;
    while (!found && fields.word(word)) found = word == "-";
    std::string_view type;
    std::string_view options;
    if (!found || !fields.word(type) || !fields.skipWords(1) || !fields.word(options)) continue;
    bool isVersion1 = type == "cgroup" && hasOption(options, "memory");
    if (isVersion1 || type == "cgroup2") mounts.push_back({unescapeMountName(path), isVersion1});
  }
  return mounts;
}

uint64_t parseMemoryLimit(std::string_view text) {
  uint64_t limit = kNoMemoryLimit;
  if (!TextCursor(text).number(limit) || limit >= kVersion1Unlimited) return kNoMemoryLimit;
  return limit;
}

static constexpr char kMountTable[] = "/proc/self/mountinfo";

std::vector<CgroupMount> readCgroupMounts() {
  FileReader reader;
  std::string_view table;
  if (reader.readList(AT_FDCWD, kMountTable, table) != kAnswered) table = {};
  return parseCgroupMounts(table);
}

// The kernel tells each handle of the table once of a change since it was opened or told.
bool CgroupMounts::hasChanged() {
  if (!watch_.isOpen()) {
    watch_ = FileHandle(open(kMountTable, O_RDONLY | O_CLOEXEC));
    return true;
  }
  pollfd watched = {watch_.get(), POLLPRI, 0};
  return poll(&watched, 1, 0) != 0;
}

const std::vector<CgroupMount> &CgroupMounts::read() {
  if (hasChanged()) mounts_ = readCgroupMounts();
  return mounts_;
}

FileHandle openHierarchy(const CgroupMount &mount) {
  FileHandle root = openDirectory(AT_FDCWD, mount.path.c_str());
  FileReader reader;
  std::string_view controllers;
  // Version 2 without the memory controller has no limits anywhere.
  const bool hasLimits = mount.isVersion1 || (reader.readRecord(root.get(), "cgroup.controllers",
                                                                controllers) == kAnswered &&
                                              controllers.find("memory") != std::string_view::npos);
  if (!hasLimits) root.close();
  return root;
}

const char *memoryLimitFile(bool isVersion1) {
  return isVersion1 ? "memory.limit_in_bytes" : "memory.max";
}

void CgroupLimits::read() {
  read(mounts_.read());
}

void CgroupLimits::read(const std::vector<CgroupMount> &mounts) {
  limits_.clear();
  for (const CgroupMount &mount : mounts) {
    const FileHandle root = openHierarchy(mount);
    if (root.isOpen()) walk(root.get(), mount.isVersion1, kNoMemoryLimit, 0);
  }
}

// A directory has a link for each directory in it, beside its own two, where a file system counts
// them: as those of groups do.
static bool hasNothingBelow(int directory) {
  struct stat status;
  return fstat(directory, &status) == 0 && status.st_nlink == 2;
}

void CgroupLimits::walk(int group, bool isVersion1, uint64_t limit, int depth) {
  std::string_view text;
  if (reader_.readRecord(group, memoryLimitFile(isVersion1), text) == kAnswered) {
    limit = std::min(limit, parseMemoryLimit(text));
  }
  if (limit != kNoMemoryLimit) addProcesses(group, limit);
  if (depth >= kDeepestCgroup || hasNothingBelow(group)) return;

  std::vector<std::string> below;
  lister_.readNames(group, [&below](const char *name, bool isDirectory) {
    if (isDirectory) below.emplace_back(name);
  });
  for (const std::string &name : below) {
    FileHandle child = openDirectory(group, name.c_str());
    // Groups come and go while they are walked.
    if (child.isOpen()) walk(child.get(), isVersion1, limit, depth + 1);
  }
}

void CgroupLimits::addProcesses(int group, uint64_t limit) {
  std::string_view text;
  if (reader_.readList(group, "cgroup.procs", text) != kAnswered) return;
  TextCursor lines(text);
  std::string_view line;
  int32_t pid = 0;
  while (lines.line(line)) {
    if (!parseNumber(line, pid)) continue;
    uint64_t &known = limits_.try_emplace(pid, limit).first->second;
    known = std::min(known, limit);
  }
}

uint64_t CgroupLimits::of(int32_t pid) const {
  auto found = limits_.find(pid);
  return found == limits_.end() ? kNoMemoryLimit : found->second;
}

}  // namespace host::linux_machine
