// Questions about what a process may do: its code signature and its sandbox.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host/errno.h"

namespace host {

class ConfinementQuestions {
 public:
  virtual Errno codeSigningFlags(pid_t, uint32_t &) { return darwin::DARWIN_ENOTSUP; }
  // Empty for a process without a signature.
  virtual Errno codeSignature(pid_t, std::vector<uint8_t> &) { return darwin::DARWIN_ENOTSUP; }
  // 1 sandboxed, 0 not, negative when that can't be said.
  virtual int sandboxCheck(pid_t) { return -1; }
  virtual Errno containerPath(pid_t, std::string &) { return darwin::DARWIN_ENOTSUP; }

 protected:
  ~ConfinementQuestions() = default;
};

ConfinementQuestions &confinement();

}  // namespace host
