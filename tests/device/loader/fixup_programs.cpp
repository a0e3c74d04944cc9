// Fixups as programs for a small machine: a byte is an instruction with an argument of four bits,
// and may be followed by numbers of variable length.
#include "fixups.h"

namespace loader {

namespace {

constexpr uint8_t kInstruction = 0xF0;
constexpr uint8_t kArgument = 0x0F;
enum RebaseInstruction : uint8_t {
  kRebaseEnd = 0x00,
  kRebaseType = 0x10,
  kRebaseGoTo = 0x20,
  kRebaseAdvance = 0x30,
  kRebaseAdvancePointers = 0x40,
  kRebaseFew = 0x50,
  kRebaseMany = 0x60,
  kRebaseAndAdvance = 0x70,
  kRebaseManySkipping = 0x80,
};

enum BindInstruction : uint8_t {
  kBindEnd = 0x00,
  kBindLibrary = 0x10,
  kBindLongLibrary = 0x20,
  kBindSpecialLibrary = 0x30,
  kBindSymbol = 0x40,
  kBindType = 0x50,
  kBindAddend = 0x60,
  kBindGoTo = 0x70,
  kBindAdvance = 0x80,
  kBind = 0x90,
  kBindAndAdvance = 0xA0,
  kBindAndAdvancePointers = 0xB0,
  kBindManySkipping = 0xC0,
};

constexpr uint64_t kPointerSize = sizeof(uint64_t);
constexpr uint32_t kPointerType = 1;
constexpr uint32_t kWeakImport = 1;

class Program {
 public:
  explicit Program(const FileBytes &code) : code_(code) {}

  bool hasEnded() const { return at_ >= code_.size(); }
  uint8_t byte() { return code_.read<uint8_t>(at_++); }

  uint64_t number() {
    uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
      const uint8_t next = byte();
      const uint64_t bits = next & 0x7Fu;
      if (shift > 63 || (shift == 63 && bits > 1)) throw LoadError("a number is too long");
      value |= bits << shift;
      if ((next & 0x80) == 0) return value;
    }
  }

  int64_t signedNumber() {
    uint64_t value = 0;
    for (unsigned shift = 0;;) {
      const uint8_t next = byte();
      if (shift > 63) throw LoadError("a number is too long");
      value |= static_cast<uint64_t>(next & 0x7F) << shift;
      shift += 7;
      if ((next & 0x80) != 0) continue;
      if (shift < 64 && (next & 0x40) != 0) value |= ~uint64_t{0} << shift;
      return static_cast<int64_t>(value);
    }
  }

  std::string_view text() {
    const std::string_view text = code_.text(at_);
    at_ += text.size() + 1;
    return text;
  }

 private:
  FileBytes code_;
  uint64_t at_ = 0;
};

// Where the machine writes next. A count or a step that leads out of the data ends the program.
class Place {
 public:
  Place(const FileBytes &file, const Image &image) : file_(file), image_(image) {}

  void set(uint64_t segment, uint64_t distance) {
    if (segment >= image_.segments.size()) throw LoadError("a fixup is in a segment too many");
    address_ = image_.segments[segment].address + distance;
  }
  void advance(uint64_t bytes) { address_ += bytes; }
  uint64_t address() const { return address_; }
  uint64_t pointer() const { return pointerInFile(file_, image_, address_); }

 private:
  const FileBytes &file_;
  const Image &image_;
  uint64_t address_ = 0;
};

class Rebaser {
 public:
  Rebaser(const FileBytes &file, const Image &image, Fixups &fixups)
      : image_(image), place_(file, image), fixups_(fixups) {}

  void run(Program program) {
    while (!program.hasEnded()) {
      const uint8_t code = program.byte();
      const uint8_t argument = code & kArgument;
      switch (code & kInstruction) {
        case kRebaseEnd:
          return;
        case kRebaseType:
          if (argument != kPointerType) throw LoadError("a rebase is of no pointer");
          break;
        case kRebaseGoTo:
          place_.set(argument, program.number());
          break;
        case kRebaseAdvance:
          place_.advance(program.number());
          break;
        case kRebaseAdvancePointers:
          place_.advance(argument * kPointerSize);
          break;
        case kRebaseFew:
          rebase(argument, 0);
          break;
        case kRebaseMany:
          rebase(program.number(), 0);
          break;
        case kRebaseAndAdvance:
          rebase(1, program.number());
          break;
        case kRebaseManySkipping: {
          const uint64_t times = program.number();
          rebase(times, program.number());
          break;
        }
        default:
          throw LoadError("an unknown rebase instruction");
      }
    }
  }

 private:
  void rebase(uint64_t times, uint64_t skipped) {
    for (uint64_t i = 0; i < times; i++) {
      fixups_.rebases.push_back({place_.address(), place_.pointer()});
      checkCount(image_, fixups_);
      place_.advance(kPointerSize + skipped);
    }
  }

  const Image &image_;
  Place place_;
  Fixups &fixups_;
};

class Binder {
 public:
  Binder(const FileBytes &file, const Image &image, Fixups &fixups)
      : image_(image), place_(file, image), fixups_(fixups) {}

  // Programs of pointers that are bound when first used are one after the other, each with an end.
  void run(Program program, bool isOneOfMany) {
    while (!program.hasEnded()) {
      const uint8_t code = program.byte();
      if ((code & kInstruction) == kBindEnd && !isOneOfMany) return;
      step(code & kInstruction, code & kArgument, program);
    }
  }

 private:
  void step(uint8_t instruction, uint8_t argument, Program &program) {
    switch (instruction) {
      case kBindEnd:
      case kBindLibrary:  // the library's number, which the name does without
      case kBindSpecialLibrary:
        break;
      case kBindLongLibrary:
        program.number();
        break;
      case kBindSymbol:
        next_.mayBeMissing = (argument & kWeakImport) != 0;
        next_.symbol = program.text();
        break;
      case kBindType:
        if (argument != kPointerType) throw LoadError("a bind is of no pointer");
        break;
      case kBindAddend:
        next_.addend = program.signedNumber();
        break;
      case kBindGoTo:
        place_.set(argument, program.number());
        break;
      case kBindAdvance:
        place_.advance(program.number());
        break;
      case kBind:
        bind(1, 0);
        break;
      case kBindAndAdvance:
        bind(1, program.number());
        break;
      case kBindAndAdvancePointers:
        bind(1, argument * kPointerSize);
        break;
      case kBindManySkipping: {
        const uint64_t times = program.number();
        bind(times, program.number());
        break;
      }
      default:
        throw LoadError("an unknown bind instruction");
    }
  }

  void bind(uint64_t times, uint64_t skipped) {
    for (uint64_t i = 0; i < times; i++) {
      (void)place_.pointer();
      next_.address = place_.address();
      fixups_.binds.push_back(next_);
      checkCount(image_, fixups_);
      place_.advance(kPointerSize + skipped);
    }
  }

  const Image &image_;
  Place place_;
  Fixups &fixups_;
  Bind next_;
};

}  // namespace

void readFixupPrograms(const FileBytes &file, const Image &image, const FixupPrograms &programs,
                       Fixups &fixups) {
  // They choose among definitions of several libraries, of which there is one of each symbol here.
  if (programs.weakBind.size != 0) throw LoadError("weak definitions are not supported");
  Rebaser(file, image, fixups).run(Program(file.part(programs.rebase)));
  Binder(file, image, fixups).run(Program(file.part(programs.bind)), false);
  Binder(file, image, fixups).run(Program(file.part(programs.lazyBind)), true);
}

}  // namespace loader
