// The instructions of a small program for the kernel, one after the other.
#pragma once

#include <linux/bpf.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace host::linux_machine {

class Instructions {
 public:
  // The kernel's functions take the first to third, and leave alone those from the sixth on.
  enum Register : uint8_t {
    result = 0,
    first = 1,
    second = 2,
    third = 3,
    file = 6,
    object = 7,
    below = 8,
    context = 9,
    frame = 10,  // the end of the stack
  };

  void load(Register to, Register from, int64_t offset, size_t size = sizeof(uint64_t)) {
    add(BPF_LDX | BPF_MEM | width(size), to, from, static_cast<int16_t>(offset), 0);
  }
  // Loads what a way that KernelTypes::follow found ends with. Pointers that the way before led
  // through, too, are not followed anew: the kernel takes long to check each that is.
  void follow(const std::vector<uint32_t> &way, Register from, Register to, size_t size) {
    const std::vector<uint32_t> pointers(way.begin(), way.end() - 1);
    if (!pointers.empty() && (from != followedFrom_ || pointers != followed_)) {
      Register at = from;
      for (const uint32_t offset : pointers) load(below, std::exchange(at, below), offset);
      followedFrom_ = from;
      followed_ = pointers;
    }
    load(to, pointers.empty() ? from : below, way.back(), size);
    if (to == below) followed_.clear();
  }
  // At an offset from the end of the stack.
  void store(int offset, Register from, size_t size) {
    add(BPF_STX | BPF_MEM | width(size), frame, from, static_cast<int16_t>(offset), 0);
  }
  void copy(Register to, Register from) { add(BPF_ALU64 | BPF_MOV | BPF_X, to, from, 0, 0); }
  void set(Register to, int value) { add(BPF_ALU64 | BPF_MOV | kValue, to, result, 0, value); }
  void increase(Register to, int by) { add(BPF_ALU64 | BPF_ADD | kValue, to, result, 0, by); }
  void increase(Register to, Register by) { add(BPF_ALU64 | BPF_ADD | BPF_X, to, by, 0, 0); }
  void shiftLeft(Register to, int by) { add(BPF_ALU64 | BPF_LSH | kValue, to, result, 0, by); }
  void shiftRight(Register to, int by) { add(BPF_ALU64 | BPF_RSH | kValue, to, result, 0, by); }
  void shiftRight(Register to, Register by) { add(BPF_ALU64 | BPF_RSH | BPF_X, to, by, 0, 0); }
  void mask(Register to, int with) { add(BPF_ALU64 | BPF_AND | kValue, to, result, 0, with); }
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
      case 1:
        return BPF_B;
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
  // What the register `below` holds: where these pointers lead to from there.
  std::vector<uint32_t> followed_;
  Register followedFrom_ = result;
};

}  // namespace host::linux_machine
