// A 32-bit process for a 64-bit kernel: says "ready" and its PID, and waits until its standard
// input ends. Freestanding, so that a compiler without 32-bit libraries builds it.

namespace {

constexpr long kExit = 1;
constexpr long kRead = 3;
constexpr long kWrite = 4;
constexpr long kGetpid = 20;
constexpr long kPrctl = 172;
constexpr long kDeathSignal = 1;
constexpr long kSIGKILL = 9;

long call(long number, long first = 0, long second = 0, long third = 0) {
  long result;
  asm volatile("int $0x80"
               : "=a"(result)
               : "a"(number), "b"(first), "c"(second), "d"(third)
               : "memory");
  return result;
}

void sayReady() {
  char line[] = "ready           ";
  long end = sizeof line - 1;
  line[--end] = '\n';
  for (long rest = call(kGetpid); rest > 0; rest /= 10) {
    line[--end] = static_cast<char>('0' + rest % 10);
  }
  call(kWrite, 1, reinterpret_cast<long>(line), sizeof line - 1);
}

}  // namespace

extern "C" [[noreturn]] void _start() {
  call(kPrctl, kDeathSignal, kSIGKILL);
  sayReady();
  char byte = 0;
  while (call(kRead, 0, reinterpret_cast<long>(&byte), 1) > 0) continue;
  while (true) call(kExit, 0);
}
