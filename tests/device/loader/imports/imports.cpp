#include "imports/imports.h"

#include <unordered_map>

namespace loader {

namespace {

using Addresses = std::unordered_map<std::string_view, const void *>;

Addresses gatherAll() {
  Addresses all;
  for (const auto family : {darwinCalls, curses, errors, files, libraries, runTime, sameCalls,
                            signals, sockets, streams, threads, times}) {
    for (const Import &import : family()) all.emplace(import.name, import.address);
  }
  return all;
}

}  // namespace

std::optional<uint64_t> addressOf(std::string_view symbol) {
  static const Addresses all = gatherAll();
  if (symbol.starts_with('_')) symbol.remove_prefix(1);
  const auto found = all.find(symbol);
  if (found == all.end()) return std::nullopt;
  return reinterpret_cast<uint64_t>(found->second);
}

}  // namespace loader
