// Words that several threads read and write without a lock. Each is whole and aligned, and no order
// between two of them is promised: load and store are relaxed, and a reader takes whatever stands
// at that moment.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

namespace sondex {

using SharedInt = std::atomic<int32_t>;

template <typename T>
inline T load(const std::atomic<T> &word) {
  return word.load(std::memory_order_relaxed);
}

template <typename T>
inline void store(std::atomic<T> &word, typename std::atomic<T>::value_type value) {
  word.store(value, std::memory_order_relaxed);
}

template <typename T>
inline T *load(const std::atomic<T *> &word) {
  return word.load(std::memory_order_seq_cst);
}

template <typename T>
inline void store(std::atomic<T *> &word, std::type_identity_t<T> *value) {
  word.store(value, std::memory_order_seq_cst);
}

}  // namespace sondex
