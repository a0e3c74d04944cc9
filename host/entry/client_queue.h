// What the kernel holds for the client of a control socket until it is read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

namespace host {

class ClientQueue {
 public:
  using Datagram = std::vector<uint8_t>;

  // Bytes, of which the second are kept for what a client can't do without.
  static constexpr size_t kUsualLimit = 8192;
  static constexpr size_t kKept = 2048;

  enum class Need : uint8_t { ordinary, vital };

  void setLimit(size_t bytes) { limit_ = bytes; }
  // What was taken out and is not read yet: it takes room all the same.
  void setUnread(size_t bytes) { unread_ = bytes; }

  // False when there is no room for it: then it is lost.
  bool put(Datagram datagram, Need need = Need::ordinary) {
    const size_t held = unread_ + bytes_;
    const size_t free = limit_ > held ? limit_ - held : 0;
    if (datagram.size() > free || (need == Need::ordinary && free < kKept)) return false;
    bytes_ += datagram.size();
    waiting_.push_back(std::move(datagram));
    return true;
  }

  bool isEmpty() const { return waiting_.empty(); }
  const Datagram &front() const { return waiting_.front(); }
  void pop() {
    bytes_ -= waiting_.front().size();
    waiting_.pop_front();
  }

 private:
  std::deque<Datagram> waiting_;
  size_t bytes_ = 0;  // of those
  size_t unread_ = 0;
  size_t limit_ = kUsualLimit;
};

}  // namespace host
