#include "memory.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>

namespace helper {

namespace {

constexpr size_t kStack = 65536;

// Fails where something else stands already.
char *mapAt(long address, size_t bytes, int protection) {
  void *memory = mmap(reinterpret_cast<void *>(address), bytes, protection,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE, -1, 0);
  require(memory != MAP_FAILED, "mmap");
  return static_cast<char *>(memory);
}

void writeAddresses(long address, long mebibytes) {
  const size_t bytes = static_cast<size_t>(mebibytes) << 20;
  auto *words = reinterpret_cast<uint64_t *>(mapAt(address, bytes, PROT_READ | PROT_WRITE));
  for (size_t i = 0; i < bytes / sizeof *words; i++) {
    words[i] = reinterpret_cast<uint64_t>(&words[i]);
  }
}

// Of small pages: otherwise more is touched than was meant.
void touchSome(Words &words) {
  const long address = words.number();
  const size_t bytes = static_cast<size_t>(words.number()) << 20;
  const size_t distance =
      static_cast<size_t>(words.number()) * static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const char value = static_cast<char>(words.number());
  char *memory = mapAt(address, bytes, PROT_READ | PROT_WRITE);
  madvise(memory, bytes, MADV_NOHUGEPAGE);
  for (size_t place = 0; place < bytes; place += distance) memory[place] = value;
}

// Neighbours of one protection would be one mapping.
void mapAlternately(long address, long count) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  char *memory = mapAt(address, static_cast<size_t>(count) * page, PROT_READ);
  for (long i = 1; i < count; i += 2) {
    char *place = memory + static_cast<size_t>(i) * page;
    require(mprotect(place, page, PROT_READ | PROT_WRITE) == 0, "mprotect");
  }
}

int protectionOf(const std::string &rights) {
  int protection = PROT_NONE;
  if (rights.find('r') != std::string::npos) protection |= PROT_READ;
  if (rights.find('w') != std::string::npos) protection |= PROT_WRITE;
  if (rights.find('x') != std::string::npos) protection |= PROT_EXEC;
  return protection;
}

// The descriptor is closed again: the mapping keeps the file.
void mapKind(Words &words) {
  const long address = words.number();
  const size_t bytes = static_cast<size_t>(words.number());
  const std::string kind = words.text();
  const int protection = protectionOf(words.text());
  const std::string path = words.text();
  if (kind != "private" && kind != "shared" && kind != "reading") misuse(kind);
  int flags = (kind == "private" ? MAP_PRIVATE : MAP_SHARED) | MAP_FIXED_NOREPLACE;
  int file = -1;
  if (path == "-") {
    flags |= MAP_ANONYMOUS;
  } else {
    file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    require(file >= 0 && ftruncate(file, static_cast<off_t>(bytes)) == 0, "file");
  }
  if (kind == "reading") {
    close(file);
    file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    require(file >= 0, "file");
  }
  const void *memory = mmap(reinterpret_cast<void *>(address), bytes, protection, flags, file, 0);
  require(memory != MAP_FAILED, "mmap");
  if (file >= 0) close(file);
}

void *sleepForever(void *) {
  while (true) pause();
}

void startThreadsOn(long address, long count) {
  char *stack = mapAt(address, static_cast<size_t>(count) * kStack, PROT_READ | PROT_WRITE);
  pthread_attr_t attributes;
  require(pthread_attr_init(&attributes) == 0, "pthread_attr_init");
  for (long i = 0; i < count; i++, stack += kStack) {
    require(pthread_attr_setstack(&attributes, stack, kStack) == 0, "pthread_attr_setstack");
    pthread_t thread;
    errno = pthread_create(&thread, &attributes, sleepForever, nullptr);
    require(errno == 0, "pthread_create");
  }
  pthread_attr_destroy(&attributes);
}

}  // namespace

bool mapMemoryAt(const std::string &step, Words &words) {
  if (step == "addresses") {
    const long address = words.number();
    writeAddresses(address, words.number());
  } else if (step == "touched") {
    touchSome(words);
  } else if (step == "guard") {
    const long address = words.number();
    mapAt(address, static_cast<size_t>(words.number()), PROT_NONE);
  } else if (step == "mappings") {
    const long address = words.number();
    mapAlternately(address, words.number());
  } else if (step == "stacks") {
    const long address = words.number();
    startThreadsOn(address, words.number());
  } else if (step == "map") {
    mapKind(words);
  } else {
    return false;
  }
  return true;
}

void mapAndUnmapUntilTheEnd() {
  constexpr size_t kAtOnce = 40;
  std::array<char *, kAtOnce> mapped{};
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const auto bytesAt = [page](size_t place) { return (place % 7 + 1) * page; };
  for (size_t turn = 0; turn % 256 != 0 || !inputHasEnded(0); turn++) {
    const size_t place = turn * 7 % kAtOnce;
    if (mapped[place] != nullptr) munmap(mapped[place], bytesAt(place));
    void *memory =
        mmap(nullptr, bytesAt(place), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    require(memory != MAP_FAILED, "mmap");
    mapped[place] = static_cast<char *>(memory);
    mapped[place][0] = 1;
  }
}

}  // namespace helper
