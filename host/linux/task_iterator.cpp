#include "host/linux/task_iterator.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <linux/bpf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <memory>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>

#include "host/linux/kernel_types.h"

namespace host::linux_machine {

// The inode of the initial namespace of pids, of which each system has one.
static constexpr ino_t kInitialPids = 0xEFFFFFFC;

struct TaskField {
  size_t offset;  // in a record
  size_t size;
  const char *path;   // from a task_struct, as C has it
  const char *older;  // what earlier kernels had in its place; null where there was none
};

// The second and third of a task's pids are those of its group and session, by the order of the
// kernel's enum pid_type; the counts of pages stand in that of its MM_FILEPAGES and so on.
#define FIELD(member) offsetof(TaskRecord, member), sizeof(TaskRecord::member)
static constexpr TaskField kFields[] = {
    {FIELD(id), "pid", nullptr},
    {FIELD(process), "tgid", nullptr},
    {FIELD(startTime), "start_boottime", nullptr},
    {FIELD(runTime), "se.sum_exec_runtime", nullptr},
    {FIELD(turns), "sched_info.pcount", nullptr},
    {FIELD(parent), "real_parent->tgid", nullptr},
    {FIELD(group), "signal->pids[2]->numbers[0].nr", nullptr},
    {FIELD(session), "signal->pids[3]->numbers[0].nr", nullptr},
    {FIELD(terminalMajor), "signal->tty->driver->major", nullptr},
    {FIELD(terminalIndex), "signal->tty->index", nullptr},
    {FIELD(terminalGroup), "signal->tty->ctrl.pgrp->numbers[0].nr", nullptr},
    {FIELD(state), "__state", nullptr},
    {FIELD(exitState), "exit_state", nullptr},
    {FIELD(priority), "static_prio", nullptr},
    {FIELD(realTimePriority), "rt_priority", nullptr},
    {FIELD(policy), "policy", nullptr},
    {FIELD(threads), "signal->nr_threads", nullptr},
    {FIELD(virtualPages), "mm->total_vm", nullptr},
    {FIELD(filePages), "mm->rss_stat[0].count", "mm->rss_stat.count[0].counter"},
    {FIELD(anonymousPages), "mm->rss_stat[1].count", "mm->rss_stat.count[1].counter"},
    {FIELD(sharedPages), "mm->rss_stat[3].count", "mm->rss_stat.count[3].counter"},
    {FIELD(score), "signal->oom_score_adj", nullptr},
};
#undef FIELD

static_assert(std::has_unique_object_representations_v<TaskRecord>, "the kernel fills all of it");

// Instructions of the program, in their order.
class Instructions {
 public:
  // The kernel's functions take the first to third, and leave alone those from the sixth on.
  enum Register : uint8_t {
    result = 0,
    first = 1,
    second = 2,
    third = 3,
    file = 6,
    task = 7,
    below = 8,
    frame = 10,  // the end of the stack
  };

  void load(Register to, Register from, uint32_t offset, size_t size = sizeof(uint64_t)) {
    add(BPF_LDX | BPF_MEM | width(size), to, from, static_cast<int16_t>(offset), 0);
  }
  void store(int offset, Register from, size_t size) {
    add(BPF_STX | BPF_MEM | width(size), frame, from, static_cast<int16_t>(offset), 0);
  }
  void copy(Register to, Register from) { add(BPF_ALU64 | BPF_MOV | BPF_X, to, from, 0, 0); }
  void set(Register to, int value) { add(BPF_ALU64 | BPF_MOV | kValue, to, result, 0, value); }
  void increase(Register to, int by) { add(BPF_ALU64 | BPF_ADD | kValue, to, result, 0, by); }
  void skipUnlessNull(Register pointer, int16_t instructions) {
    add(BPF_JMP | BPF_JNE | kValue, pointer, result, instructions, 0);
  }
  void call(int function) { add(BPF_JMP | BPF_CALL, result, result, 0, function); }
  void leave() {
    set(result, 0);
    add(BPF_JMP | BPF_EXIT, result, result, 0, 0);
  }

  const std::vector<bpf_insn> &all() const { return all_; }

 private:
  // The instruction has its second operand within it.
  static constexpr int kValue = BPF_K;

  static int width(size_t size) {
    switch (size) {
      case 2:
        return BPF_H;
      case 4:
        return BPF_W;
      default:
        return BPF_DW;
    }
  }
  void add(int code, Register to, Register from, int16_t offset, int value) {
    bpf_insn instruction{};
    instruction.code = static_cast<uint8_t>(code);
    instruction.dst_reg = to & 0xF;
    instruction.src_reg = from & 0xF;
    instruction.off = offset;
    instruction.imm = value;
    all_.push_back(instruction);
  }

  std::vector<bpf_insn> all_;
};

// What the kernel runs for each task: it fills a record on its stack and writes it into the
// iterator's file. After the last one it runs once more, without a task. False if this kernel's
// tasks lack a field.
static bool writeProgram(const KernelTypes &types, Instructions &program) {
  using enum Instructions::Register;
  constexpr int kRecord = -static_cast<int>(sizeof(TaskRecord));
  std::vector<uint32_t> path;

  const auto follow = [&](Instructions::Register from, Instructions::Register to, size_t size) {
    for (size_t i = 0; i + 1 < path.size(); i++) {
      program.load(below, from, path[i]);
      from = below;
    }
    program.load(to, from, path.back(), size);
  };

  if (!types.follow("bpf_iter__task", "task", sizeof(void *), path)) return false;
  follow(first, task, sizeof(void *));
  if (!types.follow("bpf_iter__task", "meta->seq", sizeof(void *), path)) return false;
  follow(first, file, sizeof(void *));
  program.skipUnlessNull(task, 2);
  program.leave();

  // With the bytes behind the score.
  program.set(first, 0);
  program.store(kRecord + static_cast<int>(offsetof(TaskRecord, score)), first, sizeof(uint64_t));
  for (const TaskField &field : kFields) {
    const bool isThere =
        types.follow("task_struct", field.path, field.size, path) ||
        (field.older != nullptr && types.follow("task_struct", field.older, field.size, path));
    if (!isThere) return false;
    follow(task, first, field.size);
    program.store(kRecord + static_cast<int>(field.offset), first, field.size);
  }

  program.copy(first, file);
  program.copy(second, frame);
  program.increase(second, kRecord);
  program.set(third, sizeof(TaskRecord));
  program.call(BPF_FUNC_seq_write);
  program.leave();
  return true;
}

static int printNothing(libbpf_print_level, const char *, va_list) {
  return 0;
}

// Whether the pids of a /proc are those of the initial namespace.
static bool numbersAllProcesses(int procDirectory) {
  struct stat pids {};
  char self[16];
  const ssize_t length = readlinkat(procDirectory, "self", self, sizeof self);
  int32_t number = 0;
  return fstatat(procDirectory, "self/ns/pid", &pids, 0) == 0 && pids.st_ino == kInitialPids &&
         length > 0 && parseNumber({self, static_cast<size_t>(length)}, number) &&
         number == getpid();
}

std::optional<TaskIterator> TaskIterator::load(int procDirectory) {
  if (!numbersAllProcesses(procDirectory)) return std::nullopt;
  // It would say on standard error what the kernel refuses.
  libbpf_set_print(printNothing);
  const KernelTypes types(btf__load_vmlinux_btf());
  Instructions program;
  if (!writeProgram(types, program)) return std::nullopt;

  LIBBPF_OPTS(bpf_prog_load_opts, options, .expected_attach_type = BPF_TRACE_ITER,
              .attach_btf_id = types.findFunction("bpf_iter_task"));
  const FileHandle loaded(bpf_prog_load(BPF_PROG_TYPE_TRACING, "sondex_tasks", "Dual MIT/GPL",
                                        program.all().data(), program.all().size(), &options));
  if (!loaded.isOpen()) return std::nullopt;
  FileHandle link(bpf_link_create(loaded.get(), 0, BPF_TRACE_ITER, nullptr));
  if (!link.isOpen()) return std::nullopt;
  return TaskIterator(std::move(link));
}

// The file is made as it is read, some hundred records at a time.
bool TaskIterator::read(std::vector<TaskRecord> &records) {
  constexpr size_t kPiece = 256;
  const FileHandle file(bpf_iter_create(link_.get()));
  size_t filled = 0;
  ssize_t length = file.isOpen() ? 1 : -1;
  while (length > 0) {
    records.resize(filled / sizeof(TaskRecord) + kPiece);
    const auto bytes = std::as_writable_bytes(std::span(records)).subspan(filled);
    length = ::read(file.get(), bytes.data(), bytes.size());
    if (length > 0) filled += static_cast<size_t>(length);
  }
  const bool isWhole = length == 0 && filled % sizeof(TaskRecord) == 0;
  records.resize(isWhole ? filled / sizeof(TaskRecord) : 0);
  std::ranges::sort(records, {},
                    [](const TaskRecord &task) { return std::tie(task.process, task.id); });
  return isWhole;
}

}  // namespace host::linux_machine
