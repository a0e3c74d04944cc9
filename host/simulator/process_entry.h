// The lists of a process in a device file (threads, descriptors, regions): each entry stands for
// one item or for several alike, and texts may have patterns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/simulator/process_texts.h"
#include "host/simulator/toml_reader.h"

namespace host::simulator {

// A text with a pattern in it: what it is when it is filled in goes where it belongs.
template <typename Owner>
struct Pattern {
  Place place;
  std::string text;
  size_t most = 0;  // bytes, once it is filled in
  std::function<void(Owner &, const Place &, const std::string &filled)> put;
};

// A text, if the field is there, into what `where` names of its owner: at once, and when a pattern
// in it is filled in.
template <typename Owner, typename Where>
void readText(const Field &field, size_t most, Owner &owner, std::vector<Pattern<Owner>> &patterns,
              Where where) {
  if (!field) return;
  const std::string &text = field.text(most);
  std::invoke(where, owner) = text;
  if (!hasPattern(text)) return;
  patterns.push_back({field.place(), text, most,
                      [where](Owner &filledOwner, const Place &, const std::string &filled) {
                        std::invoke(where, filledOwner) = filled;
                      }});
}

template <typename T>
struct Entry {
  using Item = T;

  T item;
  int64_t copies = 1;
  Place place;
  std::vector<Pattern<T>> patterns;
};

// The items of a process, in its order, and the entries that they come from.
template <typename EntryOfItem>
struct Items {
  std::vector<typename EntryOfItem::Item> items;
  std::vector<EntryOfItem> entries;
  std::vector<size_t> entryOf;  // by item

  const EntryOfItem &entryAt(size_t item) const { return entries[entryOf[item]]; }
};

// Bytes of memory that a text takes.
inline size_t textBytes(const std::string &text) {
  return text.size() + sizeof(std::string);
}

}  // namespace host::simulator
