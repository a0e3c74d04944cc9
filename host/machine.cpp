// The families of questions, as the machine that answers has them.
#include "host/machine.h"

namespace host {

KernelQuestions &kernel() {
  return machine();
}

ProcessQuestions &processes() {
  return machine();
}

ConfinementQuestions &confinement() {
  return machine();
}

TaskQuestions &tasks() {
  return machine();
}

DescriptorQuestions &descriptors() {
  return machine();
}

HostQuestions &hostFigures() {
  return machine();
}

MemoryStatusQuestions &memoryStatus() {
  return machine();
}

NetworkQuestions &networks() {
  return machine();
}

IdentityQuestions &identity() {
  return machine();
}

PowerQuestions &power() {
  return machine();
}

EventQuestions &events() {
  return machine();
}

}  // namespace host
