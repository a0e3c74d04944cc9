// Questions about what the machine is called and was built as.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "host/errno.h"

namespace host {

// What the identity service says to a key.
using GestaltAnswer = std::variant<std::string, int64_t, bool>;

class IdentityQuestions {
 public:
  // Whether there is an identity library; hasEntryPoint is asked whether that has
  // "MGCopyAnswerWithError".
  virtual bool hasGestalt() { return false; }
  // An error number of the service's own for a key that it refuses.
  virtual Errno gestaltAnswer(std::string_view /*key*/, GestaltAnswer &) {
    return darwin::DARWIN_ENOTSUP;
  }

 protected:
  ~IdentityQuestions() = default;
};

IdentityQuestions &identity();

}  // namespace host
