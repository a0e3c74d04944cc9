// Code-signing queries: the flags and the signature.
#include "host/darwin/code_signing.h"

#include <unistd.h>

#include <array>
#include <vector>

#include "host/darwin/errors.h"
#include "host/entry/answer.h"
#include "host/machine/confinement.h"

namespace {

using darwin::DARWIN_EINVAL;
using darwin::DARWIN_ERANGE;

host::Errno status(pid_t pid, void *buffer, size_t size) {
  uint32_t flags = 0;
  const host::Errno error = host::confinement().codeSigningFlags(pid, flags);
  if (error != host::kAnswered) return error;
  if (size < sizeof flags) return darwin::DARWIN_ERANGE;
  return host::copyOut(&flags, sizeof flags, buffer);
}

// What stands for a signature that is not there (zeroes) or too long for the buffer: a word that is
// 0, and the length that is needed, most significant byte first.
using Header = std::array<unsigned char, 8>;

Header headerFor(size_t length) {
  Header header{};
  for (size_t i = 0; i < 4; i++) {
    header[header.size() - 1 - i] = static_cast<unsigned char>(length >> (8 * i));
  }
  return header;
}

host::Errno signature(pid_t pid, void *buffer, size_t size) {
  uint32_t flags = 0;
  host::Errno error = host::confinement().codeSigningFlags(pid, flags);
  if (error != host::kAnswered) return error;
  if ((flags & (darwin::CS_VALID | darwin::CS_DEBUGGED)) == 0) return DARWIN_EINVAL;

  std::vector<uint8_t> blob;
  error = host::confinement().codeSignature(pid, blob);
  if (error != host::kAnswered && error != darwin::DARWIN_ENOTSUP) return error;
  if (size < sizeof(Header)) return DARWIN_ERANGE;
  if (!blob.empty() && blob.size() <= size) return host::copyOut(blob.data(), blob.size(), buffer);
  const Header header = headerFor(blob.size());
  error = host::copyOut(header.data(), header.size(), buffer);
  return error == host::kAnswered && !blob.empty() ? DARWIN_ERANGE : error;
}

}  // namespace

int darwin::csops(int pid, unsigned int operation, void *buffer, size_t size) {
  const host::Errno error = host::guarded([&]() -> host::Errno {
    const pid_t asked = pid == 0 ? getpid() : pid;
    if (operation == CS_OPS_STATUS) return status(asked, buffer, size);
    return operation == CS_OPS_BLOB ? signature(asked, buffer, size) : DARWIN_EINVAL;
  });
  return host::libraryAnswer(error, 0, -1);
}
