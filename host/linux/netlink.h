// Netlink: requests put together, answers taken apart into messages and attributes, and the
// connection that carries both. Knows no family's messages.
#pragma once

#include <linux/netlink.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace host::linux_machine {

// A piece of a message. The bytes need not be aligned, so values are copied out.
struct Span {
  const uint8_t *bytes = nullptr;
  size_t size = 0;

  template <typename T>
  bool read(size_t offset, T &value) const {
    if (offset > size || size - offset < sizeof(T)) return false;
    memcpy(&value, bytes + offset, sizeof(T));
    return true;
  }
  Span from(size_t offset) const {
    const size_t start = std::min(offset, size);
    return {bytes + start, size - start};
  }
  // Up to a NUL, if there is one.
  std::string_view text() const {
    const std::string_view whole(reinterpret_cast<const char *>(bytes), size);
    return whole.substr(0, whole.find('\0'));
  }
};

// Calls `visit(type, attribute)` for each attribute, up to one that breaks the rules.
template <typename Visitor>
void eachAttribute(Span attributes, Visitor &&visit) {
  nlattr header;
  while (attributes.read(0, header)) {
    if (header.nla_len < NLA_HDRLEN || header.nla_len > attributes.size) return;
    visit(header.nla_type & NLA_TYPE_MASK,
          Span{attributes.bytes + NLA_HDRLEN, header.nla_len - size_t{NLA_HDRLEN}});
    attributes = attributes.from(NLA_ALIGN(header.nla_len));
  }
}

// How far an answer has come.
struct DumpProgress {
  bool done = false;         // the kernel has said that this was all
  bool interrupted = false;  // the kernel's table changed meanwhile: entries may be missing
  bool malformed = false;    // what was read breaks the rules of the protocol
  int error = 0;             // a Linux errno with which the kernel ended the answer
};

// Takes one read apart (any bytes, any alignment). Messages with another sequence number are
// skipped. Calls `visit(type, payload)` for each of the others but the one that ends the answer;
// false from it says that the payload is malformed.
template <typename Visitor>
void readMessages(Span rest, uint32_t sequence, DumpProgress &progress, Visitor &&visit) {
  while (!progress.done && rest.size > 0) {
    nlmsghdr header;
    if (!rest.read(0, header) || header.nlmsg_len < NLMSG_HDRLEN || header.nlmsg_len > rest.size) {
      progress.malformed = true;
      return;
    }
    const Span payload{rest.bytes + NLMSG_HDRLEN, header.nlmsg_len - size_t{NLMSG_HDRLEN}};
    // As wide as the length field, so that aligning the largest length can't wrap to 0.
    rest = rest.from((size_t{header.nlmsg_len} + NLMSG_ALIGNTO - 1) & ~size_t{NLMSG_ALIGNTO - 1});
    if (header.nlmsg_seq != sequence) continue;
    if ((header.nlmsg_flags & NLM_F_DUMP_INTR) != 0) progress.interrupted = true;
    if (header.nlmsg_type == NLMSG_DONE || header.nlmsg_type == NLMSG_ERROR) {
      int32_t error = 0;
      const bool present = payload.read(0, error);
      progress.done = true;
      progress.malformed = header.nlmsg_type == NLMSG_ERROR && !present;
      progress.error = error < 0 && error > INT32_MIN ? -error : 0;
    } else if (!visit(header.nlmsg_type, payload)) {
      progress.malformed = true;
      return;
    }
  }
}

// A listing as whole as it can be had: `ask` is called, and if entries came or went meanwhile once
// more, after `forget` dropped what was visited.
template <typename Ask, typename Forget>
DumpProgress listWhole(Ask &&ask, Forget &&forget) {
  DumpProgress progress = ask();
  if (progress.interrupted && !progress.malformed && progress.error == 0) {
    forget();
    progress = ask();
  }
  return progress;
}

// A request: room for a netlink header, then what the family wants.
struct NetlinkRequest {
  size_t size = sizeof(nlmsghdr);
  alignas(nlmsghdr) uint8_t bytes[256] = {};

  template <typename T>
  void append(const T &value) {
    static_assert(sizeof(T) % NLMSG_ALIGNTO == 0);
    memcpy(bytes + size, &value, sizeof(T));
    size += sizeof(T);
  }
  // At most 64 bytes of text.
  void appendText(uint16_t type, std::string_view text);
};

// The connection to one family of the kernel's. Opened when first needed and kept. Not thread-safe.
class NetlinkConnection {
 public:
  explicit NetlinkConnection(int protocol) : protocol_(protocol) {}
  NetlinkConnection(const NetlinkConnection &) = delete;
  NetlinkConnection &operator=(const NetlinkConnection &) = delete;
  ~NetlinkConnection() { close(); }

  // Sends a request and has each message of the answer visited, as readMessages does. With
  // NLM_F_DUMP in `flags` the answer is a listing, else NLM_F_ACK is to be there so that it ends.
  // "Malformed" also where there is no connection or no answer within a second.
  template <typename Visitor>
  DumpProgress ask(NetlinkRequest request, uint16_t type, uint16_t flags, Visitor &&visit) {
    DumpProgress progress;
    if (!open() || !send(request, type, flags)) progress.malformed = true;
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!progress.done && !progress.malformed) {
      Span received;
      if (std::chrono::steady_clock::now() >= deadline || !receive(received)) {
        progress.malformed = true;
      } else {
        readMessages(received, sequence_, progress, visit);
      }
    }
    // The rest of that answer may still come: a new connection does not see it.
    if (progress.malformed) close();
    return progress;
  }

 private:
  static constexpr auto kPatience = std::chrono::seconds(1);

  bool open();
  void close();
  bool send(NetlinkRequest &request, uint16_t type, uint16_t flags);
  // Nothing is received when a signal came or somebody else has written.
  bool receive(Span &received);

  const int protocol_;
  int socket_ = -1;
  uint32_t sequence_ = 0;
  std::vector<uint8_t> buffer_;
};

}  // namespace host::linux_machine
