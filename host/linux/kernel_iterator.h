// Looks at many of the kernel's objects at once: a small program in the kernel, a BPF iterator,
// writes a record of each. That costs a tenth of what the files of /proc do.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "host/linux/procfs.h"

namespace host::linux_machine {

class Instructions;
class KernelTypes;

// A number that a record takes from the object. The paths are those of KernelTypes::follow, from
// the object's type on; the first that this kernel has is taken.
struct RecordField {
  size_t offset;  // in the record
  size_t size;
  const char *path;
  const char *older = nullptr;
  const char *oldest = nullptr;
};

#define RECORD_FIELD(record, member) offsetof(record, member), sizeof(record::member)

// What is looked at, as the kernel calls it.
struct RecordSource {
  const char *function;  // that stands for the iterator
  const char *context;   // the structure that it gives a program
  const char *object;    // the member of that which points to the object
  const char *type;      // the object's structure
};

class KernelIterator {
 public:
  // Adds what is not simply a number in the object. The object's pointer and that of the context
  // are in registers of their own. False if this kernel lacks what it takes.
  using Extra = bool (*)(const KernelTypes &types, Instructions &program, int record);

  // Puts the program into the kernel. Its records have `size` bytes, of which those that no field
  // takes are 0. Not there where the kernel refuses, or lacks a field.
  static std::optional<KernelIterator> load(const KernelTypes &types, const RecordSource &source,
                                            std::span<const RecordField> fields, size_t size,
                                            Extra extra = nullptr);

  // Fills `records` with one of each object, in the kernel's order, but `most` at most; of a single
  // task's objects where `task` is not 0. False, with no records, if the kernel can't give them
  // now. `own` is set to the descriptor that was open for it.
  template <typename Record>
  bool read(std::vector<Record> &records, size_t most, int32_t task, int &own) const;

 private:
  KernelIterator(FileHandle program, FileHandle link)
      : program_(std::move(program)), link_(std::move(link)) {}

  FileHandle open(int32_t task) const;
  // Appends what can be read at once; 0 at the end, negative if that failed.
  static ssize_t readPiece(const FileHandle &file, std::span<std::byte> room);

  FileHandle program_;
  FileHandle link_;  // to look at all
};

template <typename Record>
bool KernelIterator::read(std::vector<Record> &records, size_t most, int32_t task, int &own) const {
  constexpr size_t kRoom = 32768 / sizeof(Record);
  const FileHandle file = open(task);
  own = file.get();
  size_t filled = 0;
  ssize_t length = file.isOpen() ? 1 : -1;
  while (length > 0 && filled / sizeof(Record) < most) {
    records.resize(filled / sizeof(Record) + kRoom);
    length = readPiece(file, std::as_writable_bytes(std::span(records)).subspan(filled));
    if (length > 0) filled += static_cast<size_t>(length);
  }
  // The kernel hands out whole ones.
  const bool isRead = length >= 0 && filled % sizeof(Record) == 0;
  records.resize(isRead ? std::min(filled / sizeof(Record), most) : 0);
  return isRead;
}

}  // namespace host::linux_machine
