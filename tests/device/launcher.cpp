// Stands in the place of the program for whoever starts it by its path: becomes the loader, under
// the emulator where this machine is not an arm64 one, with the device's executable. Arguments,
// environment, descriptors and the process itself stay what they are.
#include <unistd.h>

#include <cstdio>
#include <vector>

int main(int argc, char **argv) {
  std::vector<const char *> command = {DEVICE_COMMAND};
  command.insert(command.end(), argv, argv + argc);
  command.push_back(nullptr);
  execv(command[0], const_cast<char *const *>(command.data()));
  std::perror(command[0]);
  return 127;
}
