// Where the executable's imports lead: to what stands in for Darwin, to an adapter where the C
// library of this machine differs from the device's, or straight to this machine's where it does
// not. Each is listed by name, in a table of its family: what is in no table is bound by nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace loader {

struct Import {
  std::string_view name;  // as C has it
  const void *address;
};

std::span<const Import> curses();
std::span<const Import> darwinCalls();
std::span<const Import> errors();
std::span<const Import> files();
std::span<const Import> libraries();
std::span<const Import> runTime();
std::span<const Import> sameCalls();
std::span<const Import> signals();
std::span<const Import> sockets();
std::span<const Import> streams();
std::span<const Import> threads();
std::span<const Import> times();

// By the name that the object format gives it: C's with an underscore in front.
std::optional<uint64_t> addressOf(std::string_view symbol);

}  // namespace loader
