#include "host/simulator/process_texts.h"

#include <variant>

namespace host::simulator {

namespace {

void replaceAll(std::string &text, std::string_view pattern, std::string_view value) {
  size_t at = text.find(pattern);
  if (at == std::string::npos) return;
  std::string result;
  size_t done = 0;
  for (; at != std::string::npos; at = text.find(pattern, done)) {
    result.append(text, done, at - done);
    result += value;
    done = at + pattern.size();
  }
  result.append(text, done);
  text = std::move(result);
}

}  // namespace

bool hasPattern(std::string_view text) {
  return text.find("{name}") != std::string_view::npos ||
         text.find("{pid}") != std::string_view::npos ||
         text.find("{index}") != std::string_view::npos ||
         text.find("{brace}") != std::string_view::npos;
}

std::string filledIn(std::string_view text, const PatternValues &values) {
  std::string result(text);
  // The name last: a pattern that it holds is its own.
  if (values.pid) replaceAll(result, "{pid}", std::to_string(*values.pid));
  if (values.index) replaceAll(result, "{index}", std::to_string(*values.index));
  if (values.name) replaceAll(result, "{name}", *values.name);
  replaceAll(result, "{brace}", "{");
  return result;
}

void fillInPid(Process &process) {
  const std::string pid = std::to_string(process.pid);
  const auto fill = [&pid](std::string &text) { replaceAll(text, "{pid}", pid); };
  for (std::string *text : {&process.name, &process.longName, &process.path, &process.container}) {
    fill(*text);
  }
  for (std::string &text : process.arguments) fill(text);
  for (std::string &text : process.environment) fill(text);
  for (Thread &thread : process.threads) fill(thread.name);
  for (Region &region : process.regions) fill(region.path);
  for (Descriptor &descriptor : process.descriptors) {
    if (File *file = std::get_if<File>(&descriptor.object)) fill(file->path);
    if (auto *semaphore = std::get_if<NamedSemaphore>(&descriptor.object)) fill(semaphore->name);
    if (auto *memory = std::get_if<SharedMemory>(&descriptor.object)) fill(memory->name);
    if (Socket *socket = std::get_if<Socket>(&descriptor.object)) {
      for (std::string *text :
           {&socket->path, &socket->peerPath, &socket->controlName, &socket->interface}) {
        fill(*text);
      }
    }
  }
}

}  // namespace host::simulator
