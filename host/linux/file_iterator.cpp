#include "host/linux/file_iterator.h"

#include <linux/bpf.h>
#include <unistd.h>

#include <algorithm>
#include <type_traits>

#include "host/linux/instructions.h"
#include "host/linux/kernel_types.h"

namespace host::linux_machine {

// Times have been members of a structure, under two names, and are members of the inode.
static constexpr RecordField kFields[] = {
    {RECORD_FIELD(FileRecord, position), "f_pos"},
    {RECORD_FIELD(FileRecord, flags), "f_flags"},
    {RECORD_FIELD(FileRecord, inode), "f_inode->i_ino"},
    {RECORD_FIELD(FileRecord, size), "f_inode->i_size"},
    {RECORD_FIELD(FileRecord, blocks), "f_inode->i_blocks"},
    {RECORD_FIELD(FileRecord, accessSeconds), "f_inode->i_atime_sec", "f_inode->__i_atime.tv_sec",
     "f_inode->i_atime.tv_sec"},
    {RECORD_FIELD(FileRecord, modificationSeconds), "f_inode->i_mtime_sec",
     "f_inode->__i_mtime.tv_sec", "f_inode->i_mtime.tv_sec"},
    {RECORD_FIELD(FileRecord, changeSeconds), "f_inode->i_ctime_sec", "f_inode->__i_ctime.tv_sec",
     "f_inode->i_ctime.tv_sec"},
    {RECORD_FIELD(FileRecord, accessNanoseconds), "f_inode->i_atime_nsec",
     "f_inode->__i_atime.tv_nsec", "f_inode->i_atime.tv_nsec"},
    {RECORD_FIELD(FileRecord, modificationNanoseconds), "f_inode->i_mtime_nsec",
     "f_inode->__i_mtime.tv_nsec", "f_inode->i_mtime.tv_nsec"},
    {RECORD_FIELD(FileRecord, changeNanoseconds), "f_inode->i_ctime_nsec",
     "f_inode->__i_ctime.tv_nsec", "f_inode->i_ctime.tv_nsec"},
    {RECORD_FIELD(FileRecord, device), "f_inode->i_sb->s_dev"},
    {RECORD_FIELD(FileRecord, links), "f_inode->i_nlink"},
    {RECORD_FIELD(FileRecord, user), "f_inode->i_uid.val"},
    {RECORD_FIELD(FileRecord, group), "f_inode->i_gid.val"},
    {RECORD_FIELD(FileRecord, mode), "f_inode->i_mode"},
    {RECORD_FIELD(FileRecord, blockBits), "f_inode->i_blkbits"},
};

static_assert(std::has_unique_object_representations_v<FileRecord>, "the kernel fills all of it");

static constexpr RecordSource kFiles = {"bpf_iter_task_file", "bpf_iter__task_file", "file",
                                        "file"};

// A change that has been asked for since has this bit of its nanoseconds set.
static constexpr uint32_t kNanoseconds = 0x7FFFFFFF;

// Copies from wherever a pointer, which is in the third register, leads to.
static void copyFrom(Instructions &program, int to, size_t size, int function) {
  using enum Instructions::Register;
  program.copy(first, frame);
  program.increase(first, to);
  program.set(second, static_cast<int>(size));
  program.call(function);
}

// The descriptor; whether it closes on exec, which stands in a bitmap of the task's; and the name.
static bool addRest(const KernelTypes &types, Instructions &program, int record) {
  using enum Instructions::Register;
  constexpr int kBits = 64;
  const int descriptor = record + static_cast<int>(offsetof(FileRecord, descriptor));
  const int closes = record + static_cast<int>(offsetof(FileRecord, closesOnExec));
  // The word of the bitmap is put where the name will be.
  const int word = record + static_cast<int>(offsetof(FileRecord, name));
  std::vector<uint32_t> way;

  if (!types.follow(kFiles.context, "fd", sizeof(uint32_t), way)) return false;
  program.follow(way, context, first, sizeof(uint32_t));
  program.store(descriptor, first, sizeof(uint32_t));

  if (!types.follow(kFiles.context, "task", sizeof(void *), way)) return false;
  program.follow(way, context, below, sizeof(void *));
  program.skipUnlessNull(below, 2);
  program.leave();
  if (!types.follow("task_struct", "files->fdt->close_on_exec", sizeof(void *), way)) return false;
  program.follow(way, below, third, sizeof(void *));
  program.load(first, frame, descriptor, sizeof(uint32_t));
  program.shiftRight(first, 6);
  program.shiftLeft(first, 3);
  program.increase(third, first);
  copyFrom(program, word, sizeof(uint64_t), BPF_FUNC_probe_read_kernel);
  program.load(first, frame, word);
  program.load(second, frame, descriptor, sizeof(uint32_t));
  program.mask(second, kBits - 1);
  program.shiftRight(first, second);
  program.mask(first, 1);
  program.store(closes, first, sizeof(uint8_t));

  if (!types.follow("file", "f_path.dentry->d_name.name", sizeof(void *), way)) return false;
  program.set(first, 0);
  program.store(word, first, sizeof(uint64_t));
  program.follow(way, object, third, sizeof(void *));
  copyFrom(program, word, sizeof(FileRecord::name), BPF_FUNC_probe_read_kernel_str);
  return true;
}

std::optional<FileIterator> FileIterator::load(const KernelTypes &types) {
  std::optional<KernelIterator> files =
      KernelIterator::load(types, kFiles, kFields, sizeof(FileRecord), addRest);
  if (!files) return std::nullopt;
  FileIterator iterator(std::move(*files));
  std::vector<FileRecord> own;
  if (!iterator.read(getpid(), 1, own)) return std::nullopt;
  return iterator;
}

bool FileIterator::read(int32_t task, size_t most, std::vector<FileRecord> &files) const {
  // The one that is open for the look may be this program's own.
  const size_t wanted = most < SIZE_MAX ? most + 1 : most;
  int own = -1;
  if (!files_.read(files, wanted, task, own)) return false;
  if (task == getpid()) {
    std::erase_if(files, [own](const FileRecord &file) { return file.descriptor == own; });
  }
  files.resize(std::min(files.size(), most));
  for (FileRecord &file : files) file.changeNanoseconds &= kNanoseconds;
  return true;
}

}  // namespace host::linux_machine
