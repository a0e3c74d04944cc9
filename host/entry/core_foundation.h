// The objects behind CoreFoundation's references, for entry points that answer with them. Tests see
// here which ones were never released.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "darwin/core_foundation.h"

namespace host {

// A reference that is released with its owner. Null when it holds none.
class ObjectReference {
 public:
  ObjectReference() = default;
  // Takes over a reference that someone made.
  explicit ObjectReference(darwin::CFTypeRef object) : object_(object) {}
  ObjectReference(const ObjectReference &other);
  ObjectReference(ObjectReference &&other) noexcept
      : object_(std::exchange(other.object_, nullptr)) {}
  ObjectReference &operator=(ObjectReference other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~ObjectReference();

  darwin::CFTypeRef get() const { return object_; }
  // Hands the reference over, to be released by whoever takes it.
  template <typename Reference>
  Reference release() {
    return static_cast<Reference>(std::exchange(object_, nullptr));
  }

 private:
  darwin::CFTypeRef object_ = nullptr;
};

// Key and value, neither null.
using DictionaryEntry = std::pair<ObjectReference, ObjectReference>;

// A text in UTF-8. Only one of ASCII characters is stored in a form that CFStringGetCStringPtr can
// point to.
ObjectReference makeString(std::string text);
ObjectReference makeNumber(int64_t number);
ObjectReference makeNumber(double number);
ObjectReference makeBoolean(bool flag);
ObjectReference makeData(std::vector<uint8_t> bytes);
ObjectReference makeArray(std::vector<ObjectReference> values);
// Of keys that are the same the first counts.
ObjectReference makeDictionary(std::vector<DictionaryEntry> entries);

// Null when the object is null or of another type.
darwin::CFArrayRef asArray(darwin::CFTypeRef object);
darwin::CFDictionaryRef asDictionary(darwin::CFTypeRef object);

// How many objects there are that someone still refers to; the two flags, which are never released,
// don't count.
size_t liveObjects();

}  // namespace host
