#include "host/linux/kernel_iterator.h"

#include <bpf/bpf.h>
#include <linux/bpf.h>
#include <unistd.h>

#include "host/linux/instructions.h"
#include "host/linux/kernel_types.h"

namespace host::linux_machine {

static bool followAny(const KernelTypes &types, const char *structure, const RecordField &field,
                      std::vector<uint32_t> &way) {
  for (const char *path : {field.path, field.older, field.oldest}) {
    if (path != nullptr && types.follow(structure, path, field.size, way)) return true;
  }
  return false;
}

// What the kernel runs for each object: it fills a record on its stack and writes it into the
// iterator's file. After the last one it runs once more, without an object. False if this kernel
// lacks a field.
static bool writeProgram(const KernelTypes &types, const RecordSource &source,
                         std::span<const RecordField> fields, size_t size,
                         KernelIterator::Extra extra, Instructions &program) {
  using enum Instructions::Register;
  const int record = -static_cast<int>(size);
  std::vector<uint32_t> way;
  program.copy(context, first);
  if (!types.follow(source.context, source.object, sizeof(void *), way)) return false;
  program.follow(way, context, object, sizeof(void *));
  if (!types.follow(source.context, "meta->seq", sizeof(void *), way)) return false;
  program.follow(way, context, file, sizeof(void *));
  program.skipUnlessNull(object, 2);
  program.leave();

  program.set(first, 0);
  for (int at = record; at < 0; at += 8) program.store(at, first, sizeof(uint64_t));
  for (const RecordField &field : fields) {
    if (!followAny(types, source.type, field, way)) return false;
    program.follow(way, object, first, field.size);
    program.store(record + static_cast<int>(field.offset), first, field.size);
  }
  if (extra != nullptr && !extra(types, program, record)) return false;

  program.copy(first, file);
  program.copy(second, frame);
  program.increase(second, record);
  program.set(third, static_cast<int>(size));
  program.call(BPF_FUNC_seq_write);
  program.leave();
  return true;
}

std::optional<KernelIterator> KernelIterator::load(const KernelTypes &types,
                                                   const RecordSource &source,
                                                   std::span<const RecordField> fields, size_t size,
                                                   Extra extra) {
  Instructions program;
  if (!writeProgram(types, source, fields, size, extra, program)) return std::nullopt;

  bpf_prog_load_opts options{};
  options.sz = sizeof options;
  options.expected_attach_type = BPF_TRACE_ITER;
  options.attach_btf_id = types.findFunction(source.function);
  FileHandle loaded(bpf_prog_load(BPF_PROG_TYPE_TRACING, "sondex", "Dual MIT/GPL",
                                  program.all().data(), program.all().size(), &options));
  if (!loaded.isOpen()) return std::nullopt;
  FileHandle link(bpf_link_create(loaded.get(), 0, BPF_TRACE_ITER, nullptr));
  if (!link.isOpen()) return std::nullopt;
  return KernelIterator(std::move(loaded), std::move(link));
}

FileHandle KernelIterator::open(int32_t task) const {
  if (task == 0) return FileHandle(bpf_iter_create(link_.get()));
  bpf_iter_link_info which{};
  which.task.tid = static_cast<uint32_t>(task);
  bpf_link_create_opts options{};
  options.sz = sizeof options;
  options.iter_info = &which;
  options.iter_info_len = sizeof which;
  const FileHandle link(bpf_link_create(program_.get(), 0, BPF_TRACE_ITER, &options));
  return FileHandle(link.isOpen() ? bpf_iter_create(link.get()) : -1);
}

ssize_t KernelIterator::readPiece(const FileHandle &file, std::span<std::byte> room) {
  return ::read(file.get(), room.data(), room.size());
}

}  // namespace host::linux_machine
