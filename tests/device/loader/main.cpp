// Runs an executable for the device on an aarch64 Linux machine:
//
//   device-loader EXECUTABLE NAME [ARGUMENT...]
//
// EXECUTABLE is the file; NAME and the rest are the program's own arguments, with its name first.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "crash.h"
#include "fixups.h"
#include "image.h"
#include "imports/imports.h"
#include "mapping.h"

namespace {

using namespace loader;

// As sysexits.h has them: the command was used wrongly, the data are wrong.
constexpr int kUsageStatus = 64;
constexpr int kDataStatus = 65;

// Any multiple of the device's page: nothing may rely on the addresses that it is linked for.
constexpr uint64_t kSlide = 0x2AF4000;

using Main = int (*)(int argc, char **argv, char **envp, const char **apple);
using Initialiser = void (*)(int argc, char **argv, char **envp, const char **apple);

struct Arguments {
  int argc;
  char **argv;
  char **envp;
  const char **apple;
};

// Stays mapped: the names of symbols are read from it.
FileBytes readFile(const char *path) {
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
  struct stat file {};
  if (descriptor < 0 || fstat(descriptor, &file) != 0) throw LoadError(std::strerror(errno));
  if (file.st_size == 0) throw LoadError("an empty file");
  const size_t size = static_cast<size_t>(file.st_size);
  void *bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
  if (bytes == MAP_FAILED) throw LoadError(std::strerror(errno));
  close(descriptor);
  return FileBytes({static_cast<const uint8_t *>(bytes), size});
}

void initialise(const Image &image, const Mapping &mapping, const Arguments &arguments) {
  for (const Initialisers &table : image.initialisers) {
    const uint64_t start = mapping.slid(table.address);
    for (uint64_t i = 0; i < table.count; i++) {
      const uint64_t function =
          table.areDistances
              ? mapping.slid(image.start + reinterpret_cast<const uint32_t *>(start)[i])
              : reinterpret_cast<const uint64_t *>(start)[i];
      if (!mapping.contains(function)) throw LoadError("an initialiser outside of the code");
      reinterpret_cast<Initialiser>(function)(arguments.argc, arguments.argv, arguments.envp,
                                              arguments.apple);
    }
  }
}

int run(const char *path, Arguments arguments) {
  const FileBytes file = readFile(path);
  const Image image = readImage(file);
  Mapping mapping(file, image, kSlide);
  mapping.fix(readFixups(file, image), addressOf);
  mapping.protect();
  reportCrashes(mapping);
  initialise(image, mapping, arguments);
  const Main entry = reinterpret_cast<Main>(mapping.slid(image.entry));
  exit(entry(arguments.argc, arguments.argv, arguments.envp, arguments.apple));
}

}  // namespace

int main(int argc, char **argv, char **envp) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: device-loader EXECUTABLE NAME [ARGUMENT...]\n");
    return kUsageStatus;
  }
  const std::string path = std::string("executable_path=") + argv[1];
  const char *apple[] = {path.c_str(), nullptr};
  try {
    return run(argv[1], {argc - 2, argv + 2, envp, apple});
  } catch (const LoadError &error) {
    std::fprintf(stderr, "device-loader: %s: %s\n", argv[1], error.what());
    return kDataStatus;
  }
}
