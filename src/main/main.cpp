#include "main/start_up.h"

int main(int argc, char **argv) {
  return sondex::runProgram(argc, argv);
}
