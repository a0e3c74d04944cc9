// Words that several threads read and write without a lock: each is whole and aligned, and a reader
// takes whatever stands at that moment. By what a word holds, load and store have one of two
// orders.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

namespace sondex {

using SharedInt = std::atomic<int32_t>;

// A number says all by itself: relaxed, with no order promised between two of them. Where one
// counts, it is named there.
template <typename T>
inline T load(const std::atomic<T> &word) {
  return word.load(std::memory_order_relaxed);
}

template <typename T>
inline void store(std::atomic<T> &word, typename std::atomic<T>::value_type value) {
  word.store(value, std::memory_order_relaxed);
}

// A pointer is sequentially consistent: who loads it sees what was written to its target before it
// was stored, and all threads see pointers change in one order. That order is what tells when the
// target of a former one may be freed (proc/process_table).
template <typename T>
inline T *load(const std::atomic<T *> &word) {
  return word.load(std::memory_order_seq_cst);
}

template <typename T>
inline void store(std::atomic<T *> &word, std::type_identity_t<T> *value) {
  word.store(value, std::memory_order_seq_cst);
}

}  // namespace sondex
